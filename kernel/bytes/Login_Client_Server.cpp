#include "kernel/bytes/Login_Client_Server.h"

#include "platform/clock.h"

#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/Login_Client_Server";
constexpr Err_Code login_code = 85;

constexpr long ring_size = 4096;            // bytes; holds one less
constexpr std::uint64_t limit_ms = 120000;  // from the start of a dialogue to its end
constexpr int first_tries = 3;
constexpr unsigned long prompt_pause_ms = 250, answer_pause_ms = 100;
constexpr unsigned short backspace = 8;

// ASCII alone, whatever the locale.
bool Is_Letter_Or_Digit(unsigned short c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool Is_Line_End(unsigned short c) { return c == '\r' || c == '\n'; }

// Turns a letter into lower case. Other characters change, too, but none becomes a letter.
unsigned short Lower(unsigned short c) { return static_cast<unsigned short>(c | 0x20); }

// Overwrites with zeros; no compiler leaves these stores out.
void Wipe(volatile void *memory, std::size_t n)
{
    auto *const bytes = static_cast<volatile unsigned char *>(memory);
    for (std::size_t i = 0; i < n; ++i) bytes[i] = 0;
}

// A name for a report. Control characters that the peer typed are replaced, so that no terminal obeys them.
struct Shown_Name {
    explicit Shown_Name(const char *name)
    {
        std::size_t n = 0;
        for (; name[n] != '\0' && n + 1 < sizeof text; ++n) {
            const auto c = static_cast<unsigned char>(name[n]);
            text[n] = c < 0x20 || c == 0x7F ? '?' : name[n];
        }
        text[n] = '\0';
    }
    char text[257];
};

}  // namespace

const char Login_Client_Server::Name[] = "Client Server for Login Control";

Login_Client_Server::Login_Client_Server() : Object(ClassName()), String_Byte_Server(ClassName(), ring_size, nullptr) {}

Login_Client_Server::~Login_Client_Server()
{
    Forget_Password();
    Forget_Output();
}

bool Login_Client_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name) ||
           String_Byte_Server::IsInheritedFrom(name) || Password_Login::IsInheritedFrom(name);
}

bool Login_Client_Server::IsValid() const { return String_Byte_Server::IsValid(); }

void Login_Client_Server::Start_Time()
{
    const std::uint64_t now = platform::clock_ms();
    start_.store(now, std::memory_order_relaxed);
    deadline_.store(now + limit_ms, std::memory_order_relaxed);
    tries_.store(first_tries, std::memory_order_relaxed);
}

std::uint64_t Login_Client_Server::Seconds() const
{
    return (platform::clock_ms() - start_.load(std::memory_order_relaxed)) / 1000;
}

bool Login_Client_Server::TimeOut()
{
    if (Get_State() == State::idle || platform::clock_ms() <= deadline_.load(std::memory_order_relaxed)) return false;
    Forget_Password();
    Put("\r\nLOGOUT!\r\nNo login during %.f seconds\r\n", static_cast<double>(Seconds()) + 0.5);
    Work();
    Say("Try again later\r\n");
    Say("Connection aborted\r\n");
    SetLoggedInUser(nullptr);
    Set_State(State::idle);
    Tell(Mesg_Status_100);
    return true;
}

bool Login_Client_Server::ConnectionOk() const
{
    const State state = Get_State();
    return state == State::granted || state == State::accepted || state == State::started;
}

void Login_Client_Server::Pause(unsigned long ms) { platform::sleep_ms(ms); }

bool Login_Client_Server::Send(Byte_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Ask_Password: return Begin(State::awaits_name, true, "Login on this System");
    case Mesg_Login: return Begin(State::scans, false, "Login on Remote System");
    case Mesg_Start: return Begin(State::awaits_start, true, "No Password");
    case Mesg_Attached: return Attached(server);
    case Mesg_Status_50: return Silence(server);
    case Mesg_Request_Invite: return Invited(server);
    case Mesg_Data_Ready: return Data(server);
    case Mesg_Delete_Query: Delete_Downstream(); return Byte_Client::Send(server, message);
    case Mesg_Byte_Type: return true;
    default: return Pass_On(server, message);
    }
}

bool Login_Client_Server::Begin(State state, bool on_this, const char *report)
{
    login_on_this_.store(on_this, std::memory_order_relaxed);
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, login_code, "%s", report);
    Set_State(state);
    Start_Time();
    return true;
}

bool Login_Client_Server::Pass_On(Byte_Server &server, CL_Mesg message)
{
    return Forward_Send(server, message) || Byte_Client::Send(server, message);
}

// When this object may be deleted, its client is deleted as well. The client is taken out first, because this object's
// destructor would otherwise ask a client that is gone.
void Login_Client_Server::Delete_Downstream()
{
    if (!Delete_Me()) return;
    Byte_Client *const downstream = Take_Client();
    if (downstream && downstream->Send(*this, Mesg_Delete_Query)) Object::Destruct(downstream);
}

// Passes the message on first: at Mesg_Attached a transport drops the data that it holds, and would drop the screen.
bool Login_Client_Server::Attached(Byte_Server &server)
{
    SetLoggedInUser(nullptr);
    const bool passed_on = Forward_Send(server, Mesg_Attached);
    Forget_Password();
    Forget_Output();  // what a lost connection did not take must not go to this one
    if (Get_State() == State::awaits_name) {
        if (!Show_Screen(server)) return false;
    } else if (Get_State() == State::awaits_start) {
        Set_State(State::started);
        Say("\r\nOK!\r\n");
        Start_Time();
    }
    return passed_on || Byte_Client::Send(server, Mesg_Attached);
}

bool Login_Client_Server::Show_Screen(Byte_Server &server)
{
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, login_code, "Sending Login Screen");
    for (int i = 0; const char *const line = GetLoginScreenLine(i); ++i) {
        if (!Say(line)) return false;
    }
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, login_code, "Asking for Username");
    Ask_For_Name();
    Echo_Typed_Ahead(server);
    Start_Time();
    return true;
}

void Login_Client_Server::Ask_For_Name()
{
    Set_State(State::awaits_name);
    Say("\r\nName : ");
}

// Mesg_Status_50: the transport asks after a minute without data.
bool Login_Client_Server::Silence(Byte_Server &server)
{
    if (TimeOut()) return false;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Message, login_code, "No data since %.0f sec.", static_cast<double>(Seconds()));
    switch (Get_State()) {
    case State::awaits_name:
    case State::reads_name:
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, login_code, "Asking again for Username");
        Ask_For_Name();
        break;
    case State::awaits_password:
    case State::reads_password:
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Message, login_code, "Asking User \"%s\" again for Password.",
                       Shown_Name(name_).text);
        Forget_Password();
        Set_State(State::awaits_password);
        Say("\r\nPassword : ");
        break;
    default: Say("\r\n");
    }
    return Forward_Send(server, Mesg_Status_50);
}

// Requests as many bytes as the expected text has.
bool Login_Client_Server::Invited(Byte_Server &server)
{
    if (TimeOut()) return false;
    long wanted = 1;
    switch (Get_State()) {
    case State::expects_name:
    case State::expects_logout:
    case State::expects_start_logout: wanted = 6; break;
    case State::expects_password: wanted = 10; break;
    case State::expects_ok:
    case State::expects_start_ok: wanted = 2; break;
    case State::expects_fail: wanted = 4; break;
    case State::checks_password:
    case State::gave_up: return Data(server);
    default: break;
    }
    server.Request(wanted);
    return true;
}

bool Login_Client_Server::Data(Byte_Server &server)
{
    const State state = Get_State();
    switch (state) {
    case State::expects_name: return Send_Name(server);
    case State::expects_password: return Send_Password(server);
    case State::expects_ok: return Told_Ok(server, State::accepted, State::scans);
    case State::expects_fail: return Told_Fail(server);
    case State::expects_logout: return Told_Logout(server);
    case State::expects_start_ok: return Told_Ok(server, State::started, State::awaits_start);
    case State::expects_start_logout: return Told_Start_Logout(server);
    case State::idle:
    case State::checks_password:
    case State::granted:
    case State::refused:
    case State::accepted:
    case State::gave_up:
    case State::started: return false;  // nothing is taken
    default: break;
    }
    const unsigned short character = server.GetByte();
    if (character == No_Byte) return false;
    switch (state) {
    case State::awaits_name: return Name_Begins(character);
    case State::reads_name: return Name_Goes_On(character);
    case State::skips_name: return Name_Is_Too_Long(character);
    case State::awaits_password: return Password_Begins(character);
    case State::reads_password: return Password_Goes_On(server, character);
    case State::awaits_start: return Scan_Start(character);
    default: return Scan(character);
    }
}

// Puts the text and sends it at once.
bool Login_Client_Server::Say(const char *text) { return PutStr(text) && Work(); }

void Login_Client_Server::Echo(unsigned short character)
{
    Put(character);
    Work();
}

void Login_Client_Server::Echo_Typed_Ahead(Byte_Server &server)
{
    server.Request(1);
    for (unsigned short character; (character = server.GetByte()) != No_Byte; server.Request(1)) Echo(character);
}

// The side that asks.

bool Login_Client_Server::Name_Begins(unsigned short character)
{
    length_ = 0;
    if (!Is_Letter_Or_Digit(character)) return true;
    name_[length_++] = static_cast<char>(character);
    Set_State(State::reads_name);
    Echo(character);
    return true;
}

bool Login_Client_Server::Name_Goes_On(unsigned short character)
{
    if (length_ == most_characters) {
        name_[length_] = '\0';
        Set_State(State::skips_name);
        Say("\r\n");
        return Name_Is_Too_Long(character);
    }
    if (Is_Line_End(character)) {
        name_[length_] = '\0';
        Ask_For_Password();
        return true;
    }
    if (character == backspace) {
        if (--length_ == 0) Set_State(State::awaits_name);
    } else {
        name_[length_++] = static_cast<char>(character);
    }
    Echo(character);
    return true;
}

bool Login_Client_Server::Name_Is_Too_Long(unsigned short character)
{
    if (Is_Line_End(character)) Ask_For_Password();
    return true;
}

void Login_Client_Server::Ask_For_Password()
{
    Set_State(State::awaits_password);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Message, login_code, "Asking User \"%s\" for Password.", Shown_Name(name_).text);
    PutStr("\r\nPassword : ");
    Pause(prompt_pause_ms);
    Work();
}

bool Login_Client_Server::Password_Begins(unsigned short character)
{
    length_ = 0;
    if (Is_Letter_Or_Digit(character)) {
        password_[length_++] = static_cast<char>(character);
        Set_State(State::reads_password);
        character = '*';
    }
    Echo(character);
    return true;
}

bool Login_Client_Server::Password_Goes_On(Byte_Server &server, unsigned short character)
{
    if (length_ == most_characters || Is_Line_End(character)) {
        password_[length_] = '\0';
        Set_State(State::checks_password);
        Say("\r\n");
        return Check(server);
    }
    if (character == backspace) {
        if (length_ > 0) password_[--length_] = '\0';
    } else {
        password_[length_++] = static_cast<char>(character);
        character = '*';
    }
    Echo(character);
    return true;
}

bool Login_Client_Server::Check(Byte_Server &server)
{
    const bool right = CheckPassword(name_, password_);
    Forget_Password();
    return right ? Grant() : Refuse(server);
}

bool Login_Client_Server::Grant()
{
    Say("\r\nOK!\r\n");
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Message, login_code, "Password from User \"%s\" accepted ",
                   Shown_Name(name_).text);
    Set_State(State::granted);
    SetLoggedInUser(name_);
    Say("Password accepted, starting operation.\r\n");
    return End(Mesg_Status_90);
}

bool Login_Client_Server::Refuse(Byte_Server &server)
{
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Message, login_code, "Wrong Password from User %s", Shown_Name(name_).text);
    const int left = tries_.fetch_sub(1, std::memory_order_relaxed) - 1;
    if (left < 1) {
        Say("\r\nLOGOUT!\r\nIllegal Username or Password.\r\nSorry you are logged out.\r\n");
        Set_State(State::idle);
        SetLoggedInUser(nullptr);
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Message, login_code, "User %s logged out, after three tries.\r\n",
                       Shown_Name(name_).text);
        return End(Mesg_Status_100);
    }
    PutStr("\r\nFAIL!\r\nIllegal Username or Password. ");
    if (left == 1)
        Say("One try left.\r\n");
    else if (left == 2)
        Say("Two tries left.\r\n");
    else if (Put("%d tries left.\r\n", left))
        Work();
    Echo_Typed_Ahead(server);
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, login_code, "Asking for Username.");
    Ask_For_Name();
    server.Request(1);
    return true;
}

// The side that answers. The first letter tells which word may follow.

bool Login_Client_Server::Scan(unsigned short character)
{
    switch (Lower(character)) {
    case 'f': Set_State(State::expects_fail); break;
    case 'l': Set_State(State::expects_logout); break;
    case 'n': Set_State(State::expects_name); break;
    case 'o': Set_State(State::expects_ok); break;
    case 'p': Set_State(State::expects_password); break;
    default: break;
    }
    return true;
}

bool Login_Client_Server::Send_Name(Byte_Server &server)
{
    Set_State(State::scans);
    if (!server.Sync_String_Upper("ame : ")) return true;
    const char *const name = GetUserName();
    if (!name) {
        PutStr("\r\nLOGOUT!\r\nNo Username available!\r\n");
        Say("Connection aboarted\r\n");
        Set_State(State::gave_up);
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, login_code, "No Username available");
        return End(Mesg_Status_100);
    }
    PutStr("\r\n");
    PutStr(name);
    PutStr("\r\n");
    Pause(answer_pause_ms);
    Work();
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Message, login_code, "Transfer User Name \"%s\"", Shown_Name(name).text);
    return true;
}

bool Login_Client_Server::Send_Password(Byte_Server &server)
{
    Set_State(State::scans);
    if (!server.Sync_String_Upper("assword : ")) return true;
    const char *const password = GetPassword();
    if (!password || password[0] == '\0') {
        PutStr("\r\nLOGOUT!\r\nNot Passsword available\r\n");
        Say("Connection aboarted\r\n");
        Set_State(State::refused);
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, login_code, "No Password available");
        return End(Mesg_Status_100);
    }
    PutStr(password);
    PutStr("\r\n");
    Pause(answer_pause_ms);
    Work();
    if (MinAvail(0) == 0) Forget_Output();
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, login_code, "Transfer Password");
    return true;
}

bool Login_Client_Server::Told_Ok(Byte_Server &server, State reached, State otherwise)
{
    Set_State(otherwise);
    if (!server.Sync_String_Upper("K!")) return true;
    Say("OK!\r\n");
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Message, login_code, "Login successful");
    Set_State(reached);
    return End(Mesg_Status_90);
}

bool Login_Client_Server::Told_Fail(Byte_Server &server)
{
    Set_State(State::scans);
    if (server.Sync_String_Upper("ail!")) Report_Failure(Error_Handler::ES_Message);
    return true;
}

bool Login_Client_Server::Told_Logout(Byte_Server &server)
{
    Set_State(State::scans);
    if (!server.Sync_String_Upper("ogout!")) return true;
    Set_State(State::refused);
    Report_Failure(Error_Handler::ES_Error);
    return End(Mesg_Status_100);
}

void Login_Client_Server::Report_Failure(Error_Handler::Enum_Status level)
{
    Error_Handler &report = Report(unit, __LINE__);
    if (const char *const name = GetUserName())
        report.Print_Out(level, login_code, "Login as \"%s\" failed", Shown_Name(name).text);
    else
        report.Print_Out(level, login_code, "Login failed");
}

// The mode without a password.

bool Login_Client_Server::Scan_Start(unsigned short character)
{
    if (Is_Line_End(character))
        Say("\r\nOK!\r\n");
    else if (Lower(character) == 'l')
        Set_State(State::expects_start_logout);
    else if (Lower(character) == 'o')
        Set_State(State::expects_start_ok);
    return true;
}

bool Login_Client_Server::Told_Start_Logout(Byte_Server &server)
{
    Set_State(State::awaits_start);
    if (!server.Sync_String_Upper("ogout!")) return true;
    Set_State(State::gave_up);
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, login_code, "Login failed");
    return End(Mesg_Status_100);
}

// Sends the outcome to the own client. Returns false as the reply to the present message: that makes a switch hand
// over.
bool Login_Client_Server::End(CL_Mesg outcome)
{
    Tell(outcome);
    return false;
}

void Login_Client_Server::Forget_Password() { Wipe(password_, sizeof password_); }

// An empty ring starts again at its first byte, so that no text reaches the last byte, which is not overwritten.
void Login_Client_Server::Forget_Output()
{
    Clear();
    if (unsigned char *const bytes = Reserve(ring_size - 1)) Wipe(bytes, ring_size - 1);
}

}  // namespace kernel
