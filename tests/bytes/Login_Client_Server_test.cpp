#include "kernel/bytes/Login_Client_Server.h"

#include "kernel/bytes/Byte_Client_Switch.h"
#include "kernel/transports/Socket_Client_Server.h"

#include "platform/clock.h"

#include "tests/support/clients.h"
#include "tests/support/folder.h"
#include "tests/support/peer.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>
#include <set>

using namespace kernel;

namespace {

const std::string backspace = "\b";
const std::string long_name(256, 'n');

// A host with one user. It notes what it is told, and does not sleep.
class Host_Login : public Login_Client_Server {
public:
    explicit Host_Login(Error_Handler *handler = nullptr) : Object(ClassName(), handler) {}

    const char *GetUserName() override { return user; }
    const char *GetPassword() override { return password; }
    void SetLoggedInUser(const char *name) override { logged_in += name ? std::string(name) + ";" : "-;"; }
    bool CheckPassword(const char *name, const char *word) override
    {
        ++checks;
        checked_name = name;
        checked = word;
        checked_at = word;
        return user && password && std::string(name) == user && std::string(word) == password;
    }
    const char *GetLoginScreenLine(int i) override { return i < 2 ? screen[i] : nullptr; }
    void Pause(unsigned long ms) override
    {
        paused += ms;
        if (really_pauses) Login_Client_Server::Pause(ms);
    }

    int Where() const { return static_cast<int>(Get_State()); }
    // The ring, emptied: whether this text is still in its memory.
    bool Ring_Holds(const std::string &text)
    {
        Clear();
        const auto *bytes = reinterpret_cast<const char *>(Reserve(4095));
        return std::string(bytes, 4095).find(text) != std::string::npos;
    }

    const char *user = "frank";
    const char *password = "s3cret%s";
    const char *screen[2] = {"Station %s\r\n", "100%n\r\n"};
    std::string logged_in, checked_name, checked;
    const char *checked_at = nullptr;
    int checks = 0;
    unsigned long paused = 0;
    bool really_pauses = false;
};

// A line with a login: what the other end types goes in, what it sees comes out.
class Line {
public:
    explicit Line(CL_Mesg mode, bool comes_up = true)
    {
        login.Dont_Delete_Me();
        screen.Dont_Delete_Me();
        screen.Pull_All();
        login.Connect(&screen);
        from_there->Connect(&login);
        EXPECT_TRUE(login.Send(*from_there, mode));
        if (comes_up) Come_Up();
    }
    ~Line()
    {
        login.Disconnect();
        from_there->Disconnect();
    }
    void Come_Up() { EXPECT_TRUE(login.Send(*from_there, Mesg_Attached)); }
    // What comes back, and the state afterwards: "text|state".
    std::string Type(const std::string &text)
    {
        from_there->PutBin(reinterpret_cast<const unsigned char *>(text.data()), static_cast<unsigned>(text.size()));
        went_on = from_there->Work();
        return Seen();
    }
    std::string Seen() { return std::exchange(screen.pulled, {}) + "|" + std::to_string(login.Where()); }
    bool Heard_Of(CL_Mesg message) const { return std::count(screen.heard.begin(), screen.heard.end(), message) == 1; }

    Capturing_Handler reports;
    Host_Login login{&reports};
    Recording_Client screen;
    const std::unique_ptr<String_Byte_Server> from_there{String_Byte_Server::Construct(4096, &reports)};
    bool went_on = false;
};

std::vector<std::string> Texts(const Reports &reports)
{
    std::vector<std::string> texts;
    for (const Reported &report : reports) texts.push_back(std::to_string(report.level) + " " + report.text);
    return texts;
}

// What one side says is what the other one hears, until both are silent.
void Converse(Line &a, Line &b)
{
    for (int quiet = 0; quiet < 2;) {
        const std::string said = std::exchange(a.screen.pulled, {});
        b.from_there->PutStr(said.c_str());
        b.from_there->Work();
        const std::string answered = std::exchange(b.screen.pulled, {});
        a.from_there->PutStr(answered.c_str());
        a.from_there->Work();
        quiet = said.empty() && answered.empty() ? quiet + 1 : 0;
    }
}

}  // namespace

TEST(Login_Client_Server, asks_for_name_and_password)
{
    Line line(Mesg_Ask_Password);
    EXPECT_STREQ(line.login.GetName(), "Client Server for Login Control");
    for (const char *name :
         {Login_Client_Server::Name, Password_Login::Name, Byte_Client::Name, String_Byte_Server::Name})
        EXPECT_TRUE(line.login.IsInheritedFrom(name)) << name;
    EXPECT_FALSE(line.login.IsInheritedFrom(Socket_Client_Server::Name));
    EXPECT_EQ(line.Seen(), "Station %s\r\n100%n\r\n\r\nName : |1");  // no directive is obeyed
    EXPECT_EQ(line.Type(" \r\n.\xE9"), "|1");                        // no letter or digit: not echoed
    EXPECT_EQ(line.Type("fx" + backspace), "fx\b|2");
    EXPECT_EQ(line.Type(backspace), "\b|1");
    EXPECT_EQ(line.Type("frank\r"), "frank\r\nPassword : |4");
    EXPECT_EQ(line.login.paused, 250u);
    EXPECT_EQ(line.Type("\n%"), "\n%|4");
    EXPECT_EQ(line.Type("s9" + backspace), "**\b|5");
    EXPECT_EQ(line.Type("3cret%s"), "*******|5");
    EXPECT_FALSE(line.login.ConnectionOk());
    EXPECT_EQ(line.Type("\rDATA"), "\r\n\r\nOK!\r\nPassword accepted, starting operation.\r\n|7");
    EXPECT_FALSE(line.went_on);  // Mesg_Data_Ready is answered false: a switch hands over
    EXPECT_TRUE(line.Heard_Of(Mesg_Status_90) && line.login.ConnectionOk() && line.login.LoginOnThis());
    EXPECT_EQ(line.login.logged_in, "-;frank;");
    EXPECT_EQ(line.from_there->MinAvail(0), 4);  // and finds all data in place
    line.Type("");
    EXPECT_EQ(line.from_there->MinAvail(0), 4);  // the loop ends although nobody takes any
    EXPECT_EQ(Texts(line.reports.Take()),
              (std::vector<std::string>{"0 Login on this System", "0 Sending Login Screen", "0 Asking for Username",
                                        "0 Asking User \"frank\" for Password.",
                                        "0 Password from User \"frank\" accepted "}));
}

TEST(Login_Client_Server, gives_the_other_end_time_to_read)
{
    Line line(Mesg_Ask_Password);
    line.login.really_pauses = true;
    EXPECT_GE(Elapsed([&] { line.Type("frank\r"); }), 245u);
}

TEST(Login_Client_Server, gives_three_tries)
{
    Line line(Mesg_Ask_Password);
    line.Seen();
    const auto fail = [&] { return line.Type("\x1B[2Jjo\x1B\r"), line.Type("wrong\r"); };
    const std::string failed = "*****\r\n\r\nFAIL!\r\nIllegal Username or Password. ", again = "\r\nName : |1";
    EXPECT_EQ(fail(), failed + "Two tries left.\r\n" + again);
    EXPECT_EQ(fail(), failed + "One try left.\r\n" + again);
    EXPECT_FALSE(line.Heard_Of(Mesg_Status_100));
    EXPECT_EQ(fail(), "*****\r\n\r\nLOGOUT!\r\nIllegal Username or Password.\r\nSorry you are logged out.\r\n|0");
    EXPECT_TRUE(line.Heard_Of(Mesg_Status_100) && !line.went_on && !line.login.ConnectionOk());
    EXPECT_EQ(line.login.logged_in, "-;-;");
    const Reports reports = line.reports.Take();
    EXPECT_EQ(reports.back(), (Reported{0, 85, "User 2Jjo? logged out, after three tries.\r\n",
                                        "kernel/Login_Client_Server"}));  // the terminal that shows it obeys nothing
    EXPECT_EQ(line.login.checked, "wrong");
    for (const std::string &text : Texts(reports)) EXPECT_EQ(text.find("wrong"), text.npos) << text;
    for (std::size_t i = 0; i < 257; ++i) EXPECT_EQ(line.login.checked_at[i], 0) << i;  // wiped
    EXPECT_EQ(line.Type("frank\r"), "|0");
    // A new mode message begins anew, with all tries; a host may give more.
    EXPECT_TRUE(line.login.Send(*line.from_there, Mesg_Ask_Password));
    line.from_there->Clear();
    EXPECT_EQ(fail(), failed + "Two tries left.\r\n" + again);
}

TEST(Login_Client_Server, echoes_what_was_typed_ahead)
{
    Line line(Mesg_Ask_Password, false);
    line.from_there->PutStr("ahead\r");
    line.Come_Up();
    EXPECT_EQ(line.Seen(), "Station %s\r\n100%n\r\n\r\nName : ahead\r|1");
    EXPECT_EQ(line.from_there->MinAvail(0), 0);
    EXPECT_EQ(line.Type("jo\rno\rmore"), "jo\r\nPassword : **\r\n\r\nFAIL!\r\nIllegal Username or Password. "
                                         "Two tries left.\r\nmore\r\nName : |1");
}

TEST(Login_Client_Server, cuts_what_is_too_long)
{
    for (const std::size_t n : {255, 256, 257, 300}) {
        Line line(Mesg_Ask_Password);
        line.Seen();
        const std::string text(n, 'n'), kept(std::min<std::size_t>(n, 256), 'n'), stars(kept.size(), '*');
        const std::string begun = line.Type(text);
        EXPECT_EQ(begun, n > 256 ? kept + "\r\n|3" : kept + "|2") << n;
        EXPECT_EQ(line.Type("\r"), (n == 256 ? "\r\n\r\nPassword : |4" : "\r\nPassword : |4")) << n;
        line.Type(text + "\r");
        EXPECT_EQ(line.login.checks, 1) << n;
        EXPECT_EQ(line.login.checked_name, kept) << n;
        EXPECT_EQ(line.login.checked, kept) << n;
    }
}

TEST(Login_Client_Server, answers_prompts)
{
    Line line(Mesg_Login);
    EXPECT_EQ(line.Seen(), "|10");
    EXPECT_FALSE(line.login.LoginOnThis());
    struct Step {
        const char *heard, *said_and_state;
    };
    const Step steps[] = {
        {"\r\nWelcome\r\n", "|10"},  // 'l' of "Welcome" begins no LOGOUT
        {"\r\nNa", "|11"},           // waits for the rest
        {"me : ", "\r\nfrank\r\n|10"},
        {"frank\r\n", "|11"},  // the 'n' might begin another prompt
        {"pASSWORD : ", "s3cret%s\r\n|10"},
        {"********\r\nfa", "|14"},
        {"IL!\r\n", "|10"},
        {"n0", "|11"},
        {"......", "|10"},
        {"P", "|12"},
        {"..........", "|10"},
        {"O", "|13"},
        {"K!", "OK!\r\n|17"},
    };
    for (const Step &step : steps) EXPECT_EQ(line.Type(step.heard), step.said_and_state) << step.heard;
    EXPECT_TRUE(line.Heard_Of(Mesg_Status_90) && !line.went_on && line.login.ConnectionOk());
    EXPECT_EQ(line.login.paused, 200u);
    EXPECT_FALSE(line.login.Ring_Holds("t%s"));  // behind "OK!" and its line end
    EXPECT_EQ(Texts(line.reports.Take()),
              (std::vector<std::string>{"0 Login on Remote System", "0 Transfer User Name \"frank\"",
                                        "0 Transfer Password", "0 Login as \"frank\" failed", "0 Login successful"}));
}

TEST(Login_Client_Server, gives_up_where_it_cannot_answer)
{
    struct Case {
        CL_Mesg mode;
        const char *user, *password, *heard, *said_and_state, *report;
    };
    const Case cases[] = {
        {Mesg_Login, nullptr, "x", "Name : ", "\r\nLOGOUT!\r\nNo Username available!\r\nConnection aboarted\r\n|21",
         "No Username available"},
        {Mesg_Login, "u", nullptr, "Password : ",
         "\r\nLOGOUT!\r\nNot Passsword available\r\nConnection aboarted\r\n|16", "No Password available"},
        {Mesg_Login, "u", "", "Password : ", "\r\nLOGOUT!\r\nNot Passsword available\r\nConnection aboarted\r\n|16",
         "No Password available"},
        {Mesg_Login, "u", "x", "Logout!", "|16", "Login as \"u\" failed"},
        {Mesg_Login, nullptr, "x", "LOGOUT!", "|16", "Login failed"},
        {Mesg_Start, "u", "x", "LOGOUT!", "|21", "Login failed"},
    };
    for (const Case &c : cases) {
        Line line(c.mode, false);
        line.login.user = c.user;
        line.login.password = c.password;
        EXPECT_EQ(line.Type(c.heard), c.said_and_state) << c.heard;
        EXPECT_TRUE(line.Heard_Of(Mesg_Status_100) && !line.went_on && !line.login.ConnectionOk()) << c.heard;
        EXPECT_EQ(line.reports.Take().back(), (Reported{3, 85, c.report, "kernel/Login_Client_Server"}));
        EXPECT_EQ(line.Type("more"), "|" + std::to_string(line.login.Where()));  // and the loop ends
        EXPECT_EQ(line.from_there->MinAvail(0), 4);
    }
}

TEST(Login_Client_Server, needs_no_password_in_its_third_mode)
{
    Line up(Mesg_Start);
    EXPECT_EQ(up.Seen(), "\r\nOK!\r\n|22");
    EXPECT_TRUE(up.login.ConnectionOk() && up.login.LoginOnThis());
    EXPECT_EQ(up.Type("data"), "|22");
    EXPECT_EQ(up.from_there->MinAvail(0), 4);  // all for the data client
    EXPECT_FALSE(up.went_on);

    Line line(Mesg_Start, false);
    struct Step {
        const char *heard, *said_and_state;
    };
    const Step steps[] = {{"x\n", "\r\nOK!\r\n|18"}, {"lo", "|20"}, {"ve letters", "|18"}, {"o", "|19"}, {"ne", "|18"},
                          {"ok!", "OK!\r\n|22"}};
    for (const Step &step : steps) EXPECT_EQ(line.Type(step.heard), step.said_and_state) << step.heard;
    EXPECT_TRUE(line.Heard_Of(Mesg_Status_90) && !line.went_on);
}

TEST(Login_Client_Server, asks_for_the_length_of_what_it_expects)
{
    struct Invited : Bare_Server {
        Invited() : Object("invited") {}
        bool Request(long n) override { return asked = n, true; }
        unsigned short GetByte() override { return next; }
        long asked = -1;
        unsigned short next = No_Byte;
    };
    struct Case {
        CL_Mesg mode;
        char letter;
        long asked;
    };
    for (const Case &c : {Case{Mesg_Login, 'N', 6}, Case{Mesg_Login, 'L', 6}, Case{Mesg_Login, 'P', 10},
                          Case{Mesg_Login, 'O', 2}, Case{Mesg_Login, 'F', 4}, Case{Mesg_Login, 'x', 1},
                          Case{Mesg_Start, 'O', 2}, Case{Mesg_Start, 'L', 6}, Case{Mesg_Ask_Password, 'x', 1}}) {
        Line line(c.mode, false);
        Invited server;
        EXPECT_FALSE(line.login.Send(server, Mesg_Data_Ready));  // no byte is no character: the loop ends
        const int before = line.login.Where();
        server.next = static_cast<unsigned char>(c.letter);
        EXPECT_TRUE(line.login.Send(server, Mesg_Data_Ready));
        EXPECT_EQ(line.login.Where() == before, c.mode == Mesg_Login && c.letter == 'x') << c.letter;
        EXPECT_TRUE(line.login.Send(server, Mesg_Request_Invite));
        EXPECT_EQ(server.asked, c.asked) << c.letter;
    }
}

TEST(Login_Client_Server, ends_after_two_minutes)
{
    for (const CL_Mesg message : {Mesg_Status_50, Mesg_Request_Invite}) {
        Line line(Mesg_Ask_Password);
        line.Type("frank\rhalf");
        EXPECT_EQ(line.Seen(), "|5");
        platform::advance_clock(100000);
        EXPECT_TRUE(line.login.Send(*line.from_there, message));
        EXPECT_FALSE(line.login.TimeOut());
        line.Seen();
        platform::advance_clock(20001);
        EXPECT_FALSE(line.login.Send(*line.from_there, message));
        EXPECT_EQ(line.Seen(),
                  "\r\nLOGOUT!\r\nNo login during 120 seconds\r\nTry again later\r\nConnection aborted\r\n|0");
        EXPECT_TRUE(line.Heard_Of(Mesg_Status_100));
        EXPECT_EQ(line.login.logged_in, "-;-;");
        EXPECT_FALSE(line.login.TimeOut());  // once
        line.login.Start_Time();
        EXPECT_TRUE(line.login.Send(*line.from_there, message));
    }
}

TEST(Login_Client_Server, asks_again_after_silence)
{
    struct Case {
        CL_Mesg mode;
        const char *typed, *said_and_state, *report;
    };
    const Case cases[] = {
        {Mesg_Ask_Password, "", "\r\nName : |1", "Asking again for Username"},
        {Mesg_Ask_Password, "fra", "\r\nName : |1", "Asking again for Username"},
        {Mesg_Ask_Password, "frank\r", "\r\nPassword : |4", "Asking User \"frank\" again for Password."},
        {Mesg_Ask_Password, "frank\rs3", "\r\nPassword : |4", "Asking User \"frank\" again for Password."},
        {Mesg_Login, "", "\r\n|10", "No data since 60 sec."},
    };
    for (const Case &c : cases) {
        Line line(c.mode);
        line.Type(c.typed);
        line.Seen();
        platform::advance_clock(60000);
        line.screen.Answer_With(Mesg_Status_50, c.mode == Mesg_Ask_Password);
        EXPECT_EQ(line.login.Send(*line.from_there, Mesg_Status_50), c.mode == Mesg_Ask_Password);  // the own client's
        EXPECT_EQ(line.Seen(), c.said_and_state) << c.typed;
        EXPECT_EQ(line.reports.Take().back().text, c.report);
    }
}

// A transport drops what it holds when its connection comes up.
TEST(Login_Client_Server, tells_the_sending_side_of_a_connection_before_it_shows_the_screen)
{
    Line line(Mesg_Ask_Password, false);
    line.login.PutStr("of a lost connection");
    line.screen.On(Mesg_Attached, [&](Byte_Server &) { return line.screen.pulled += "[up]", true; });
    line.Come_Up();
    EXPECT_EQ(line.Seen(), "[up]Station %s\r\n100%n\r\n\r\nName : |1");
}

TEST(Login_Client_Server, ends_when_the_screen_cannot_be_shown)
{
    const std::string too_long(4096, 'x');
    Line line(Mesg_Ask_Password, false);
    line.login.screen[1] = too_long.c_str();
    EXPECT_FALSE(line.login.Send(*line.from_there, Mesg_Attached));
    Line alone(Mesg_Ask_Password, false);
    alone.login.Disconnect();
    EXPECT_FALSE(alone.login.Send(*alone.from_there, Mesg_Attached));
}

TEST(Login_Client_Server, passes_other_messages_on)
{
    Line line(Mesg_Ask_Password);
    line.screen.Take();
    line.screen.Answer_With(Mesg_Status_210, false);
    for (const CL_Mesg message : {Mesg_Second, Mesg_Detached, Mesg_Status_210})
        EXPECT_TRUE(line.login.Send(*line.from_there, message)) << message;  // refused below, the base still agrees
    EXPECT_EQ(line.screen.Take(), (Heard{Mesg_Second, Mesg_Detached, Mesg_Status_210}));
    EXPECT_EQ(line.screen.Ticks(), 1u);
    EXPECT_TRUE(line.login.Send(*line.from_there, Mesg_Byte_Type));
    EXPECT_EQ(line.screen.Take(), Heard{});
}

TEST(Login_Client_Server, takes_its_client_along)
{
    for (const bool stays : {false, true}) {
        bool login_deleted = false, client_deleted = false;
        struct Watched : Host_Login {
            explicit Watched(bool &deleted) : Object("watched"), deleted_(deleted) {}
            ~Watched() override { deleted_ = true; }
            bool &deleted_;
        };
        auto *const login = new Watched(login_deleted);
        auto *const client = new Recording_Client(&client_deleted);
        login->Connect(client);
        if (stays) client->Dont_Delete_Me();
        const std::unique_ptr<String_Byte_Server> server(String_Byte_Server::Construct(64, nullptr));
        server->Connect(login);
        server->Connect(Byte_Client_NULL::Construct());
        EXPECT_TRUE(login_deleted);
        EXPECT_EQ(client_deleted, !stays);
        if (stays) delete client;
    }
    Line line(Mesg_Ask_Password);  // may not be deleted: keeps it
    EXPECT_FALSE(line.login.Send(*line.from_there, Mesg_Delete_Query));
    EXPECT_TRUE(line.login.IsConnected());
}

TEST(Login_Client_Server, logs_on_to_itself)
{
    for (const bool knows_the_password : {true, false}) {
        Line there(Mesg_Ask_Password, false), here(Mesg_Login);
        if (!knows_the_password) here.login.password = "guess";
        there.Come_Up();
        Converse(there, here);
        EXPECT_EQ(there.login.Where(), knows_the_password ? 7 : 0);
        EXPECT_EQ(here.login.Where(), knows_the_password ? 17 : 16);
        EXPECT_EQ(there.login.checks, knows_the_password ? 1 : 3);
    }
}

TEST(Login_Client_Server, stands_random_bytes)
{
    std::mt19937 random(20121014);
    const std::string alphabet = "fraNn \r\n\b*Oo0Kk!LlGgUTtPpSsWwDdMmEe:\x00\xFF%";
    std::set<int> reached;
    for (int sequence = 0; sequence < 10000; ++sequence) {
        const CL_Mesg modes[] = {Mesg_Ask_Password, Mesg_Login, Mesg_Start};
        Line line(modes[random() % 3], random() % 2 == 0);
        if (random() % 10 == 0) line.login.password = nullptr;
        for (int piece = 0; piece < 8; ++piece) {
            std::string text(random() % 20, '\0');
            for (char &c : text)
                c = random() % 4 == 0 ? static_cast<char>(random()) : alphabet[random() % alphabet.size()];
            if (random() % 8 == 0) text.assign(random() % 300, 'a');
            const char *words[] = {"Name : ", "Password : ", "OK!", "FAIL!", "LOGOUT!", "frank\rs3cret%s\r", "a\ra\r"};
            if (random() % 4 == 0) text += words[random() % std::size(words)];
            line.Type(text);
            reached.insert(line.login.Where());
            ASSERT_LE(line.login.checked.size(), 256u);
            ASSERT_LE(line.login.checked_name.size(), 256u);
            if (random() % 16 == 0) line.login.Send(*line.from_there, Mesg_Status_50);
            if (random() % 32 == 0) line.login.Send(*line.from_there, Mesg_Attached);
            if (!line.went_on) line.from_there->Clear();
        }
    }
    // All but the one that lasts as long as the check.
    EXPECT_EQ(reached, (std::set<int>{0, 1, 2, 3, 4, 5, 7, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22}));
}

namespace {

// A login that keeps a host's duties: the next peer is asked anew.
class Guarding_Login : public Host_Login {
public:
    Guarding_Login(Byte_Client_Switch &gate, Error_Handler *handler)
        : Object(ClassName(), handler), Host_Login(handler), gate_(gate)
    {
    }
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        const bool answer = Host_Login::Send(server, message);
        if (message != Mesg_Detached || !LoginOnThis()) return answer;
        gate_.Connect(this);
        return Host_Login::Send(server, Mesg_Ask_Password);
    }

private:
    Byte_Client_Switch &gate_;
};

// A transport with a login, and a data client behind it, which says "[data]" when it takes over.
class Login_Socket {
public:
    Login_Socket()
    {
        for (Client_Server *object :
             {static_cast<Client_Server *>(&login), static_cast<Client_Server *>(&data),
              static_cast<Client_Server *>(gate.get()), static_cast<Client_Server *>(socket.get())})
            object->Dont_Delete_Me();
        data.records = false;
        data.Pull_All().On(Mesg_Status_210, [&](Byte_Server &) { return login.ConnectionOk(); });
        data.On(Mesg_Status_220, [&](Byte_Server &) { return login.PutStr("[data]") && login.Work(); });
        data.On(Mesg_Status_40, [&](Byte_Server &) { return got_data = Got("[data]"), true; });
        gate->Connect(&data);
        gate->Connect(&login);
        socket->Connect(gate.get());
        login.Connect(socket.get());
    }
    ~Login_Socket()
    {
        socket->stop();
        login.Disconnect();  // opens the circle
        gate->Disconnect();
    }
    bool Ask()
    {
        socket->MesgAskPassword();
        return socket->CreateServer(0) && socket->Work() && Soon([&] { return socket->GetPort() != 0; });
    }
    bool Got(const char *text) const { return data.pulled.find(text) != std::string::npos; }

    Capturing_Handler reports;
    const std::unique_ptr<Byte_Client_Switch> gate{Byte_Client_Switch::Construct()};
    Guarding_Login login{*gate, &reports};
    Recording_Client data;
    std::atomic<bool> got_data{false};
    const std::unique_ptr<Socket_Client_Server> socket{Socket_Client_Server::Construct(reports, 4096)};
};

}  // namespace

TEST(Login_Client_Server, asks_a_peer_on_loopback)
{
    Login_Socket asking;
    ASSERT_TRUE(asking.Ask());
    Peer peer = Peer::To(asking.socket->GetPort());
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer.Hear_To("Name : "), "Station %s\r\n100%n\r\n\r\nName : ");
    peer.Say("frank\r");
    EXPECT_EQ(peer.Hear_To(": "), "frank\r\nPassword : ");
    peer.Say("s3cret%s\r");
    EXPECT_EQ(peer.Hear_To("[data]"), "********\r\n\r\nOK!\r\nPassword accepted, starting operation.\r\n[data]");
    peer.Say("[data]");
    EXPECT_TRUE(Soon([&] { return asking.got_data.load(); }));
    EXPECT_TRUE(asking.login.ConnectionOk());

    peer.Leave();  // the next one is no friend
    EXPECT_TRUE(Soon([&] { return !asking.login.ConnectionOk() && asking.gate->Get_Client(0) == &asking.login; }));
    for (peer = Peer(); !peer;) peer = Peer::To(asking.socket->GetPort());  // closed for a moment
    EXPECT_EQ(peer.Hear_To("Name : "), "Station %s\r\n100%n\r\n\r\nName : ");
    for (int tries = 0; tries < 3; ++tries) {
        peer.Say("frank\r");
        peer.Hear_To("Password : ");
        peer.Say("wrong\r");
        peer.Hear_To(".\r\n");
        if (tries < 2) peer.Hear_To("Name : ");
    }
    EXPECT_EQ(peer.Hear_To("out.\r\n"), "Sorry you are logged out.\r\n");
    peer.Say("bytes of a stranger");
    EXPECT_TRUE(peer.Hears_The_End());
    asking.socket->stop();
    EXPECT_FALSE(asking.Got("stranger"));
}

TEST(Login_Client_Server, logs_on_to_itself_on_loopback)
{
    Login_Socket there, here;
    ASSERT_TRUE(there.Ask());
    ASSERT_TRUE(here.socket->CreateClient("127.0.0.1", there.socket->GetPort(), nullptr, 0));
    here.socket->MesgLogin();
    ASSERT_TRUE(here.socket->Work());
    EXPECT_TRUE(Soon([&] { return here.got_data && there.got_data; }));
    EXPECT_TRUE(here.login.ConnectionOk() && there.login.ConnectionOk());
    there.socket->stop();
    EXPECT_EQ(there.login.logged_in, "-;frank;");
}

TEST(Login_Client_Server, asks_socat)
{
    if (std::system("command -v socat > /dev/null 2>&1") != 0) GTEST_SKIP() << "no socat";
    const Test_Folder folder;
    Login_Socket asking;
    ASSERT_TRUE(asking.Ask());
    const std::string seen = folder.Write("seen", ""), port = std::to_string(asking.socket->GetPort());
    const std::string command =
        "await() { n=0; until grep -q \"$1\" '" + seen + "' || [ $n -gt 200 ]; do n=$((n+1)); sleep 0.05; done; }\n" +
        "(await Name; printf 'frank\\r'; await Password; printf 's3cret%%s\\r'; await data) | " +
        "socat -t 1 - TCP:127.0.0.1:" + port + " > '" + seen + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    asking.socket->stop();
    EXPECT_EQ(asking.login.logged_in, "-;frank;");
    EXPECT_EQ(Whole_File(seen), "Station %s\r\n100%n\r\n\r\nName : frank\r\nPassword : ********\r\n\r\nOK!\r\n"
                                "Password accepted, starting operation.\r\n[data]");
}
