// A TCP port behind the login dialogue, both sides. Once the peer is logged in, what comes from it goes to the standard
// output, and the standard input, a text, goes to it.
//
//   login_port hash NAME >> USERS              a line for the file of users; the password is read from the standard
//   input
//   login_port listen PORT USERS               asks whoever connects for a name and a password
//   login_port call HOST PORT NAME PASSWORD    logs on there; the first line of the file PASSWORD is the password
//
// Everything goes over the line as it is, passwords included: for lines that are trusted, or inside a tunnel.
#include "user_file.h"

#include "kernel/bytes/Byte_Client_Switch.h"
#include "kernel/bytes/Login_Client_Server.h"
#include "kernel/transports/Socket_Client_Server.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>

namespace {

constexpr std::chrono::milliseconds patience{5000}, poll{10};

bool Await(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(poll);
    return condition();
}

// The transport. It is also what the login tells the outcome to: a peer that is logged out is shown the door.
class Port : public kernel::Socket_Client_Server {
public:
    explicit Port(kernel::Error_Handler &reports)
        : Object("login_port", &reports), kernel::Socket_Client_Server(reports, 65536)
    {
    }
    ~Port() override { Stop_Threads(); }

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        if (message == kernel::Mesg_Status_100) {
            ::Await([&] { return Unsent() == 0; });  // it still reads why
            Hang_Up();
        }
        return Socket_Client_Server::Send(server, message);
    }
};

// The dialogue. It outlives connections: when one goes, the next peer is asked anew.
class Login : public kernel::Login_Client_Server {
public:
    Login(kernel::Byte_Client_Switch &gate, User_File users)
        : Object(ClassName()), gate_(gate), users_(std::move(users))
    {
    }
    Login(kernel::Byte_Client_Switch &gate, std::string name, std::string password)
        : Object(ClassName()), gate_(gate), name_(std::move(name)), password_(std::move(password))
    {
    }

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        const bool answer = Login_Client_Server::Send(server, message);
        if (message != kernel::Mesg_Detached) return answer;
        gate_.Connect(this);
        return Login_Client_Server::Send(server, LoginOnThis() ? kernel::Mesg_Ask_Password : kernel::Mesg_Login);
    }

private:
    const char *GetUserName() override { return name_.c_str(); }
    const char *GetPassword() override { return password_.c_str(); }
    void SetLoggedInUser(const char *name) override
    {
        if (name) std::fprintf(stderr, "%s is logged in\n", name);
    }
    bool CheckPassword(const char *name, const char *password) override { return users_.Knows(name, password); }
    const char *GetLoginScreenLine(int i) override { return i == 0 ? "login_port\r\n" : nullptr; }

    kernel::Byte_Client_Switch &gate_;
    User_File users_;
    std::string name_, password_;
};

// What the other end sends after the login.
class Data_Client : public kernel::Byte_Client {
public:
    explicit Data_Client(const kernel::Login_Client_Server &login) : Object("data"), login_(login) {}

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        switch (message) {
        case kernel::Mesg_Status_210: return login_.ConnectionOk();  // nobody comes this way without a login
        case kernel::Mesg_Request_Invite: server.Request(1); return true;
        case kernel::Mesg_Data_Ready: return Pull(server);
        default: return Byte_Client::Send(server, message);
        }
    }

private:
    bool Pull(kernel::Byte_Server &server)
    {
        char block[4096];
        const long got = server.GetNBytes(block, sizeof block);
        if (got <= 0) return false;
        return std::fwrite(block, 1, static_cast<std::size_t>(got), stdout) > 0 && std::fflush(stdout) == 0;
    }

    const kernel::Login_Client_Server &login_;
};

// Line by line; where the buffer is full, it waits.
void Send_Input(Port &port, const Login &login, const std::function<bool()> &goes_on)
{
    kernel::String_Byte_Server *const feed = kernel::String_Byte_Server::Construct(4097, nullptr);
    if (!feed) return;
    feed->Connect(&port);
    char block[4096];
    while (goes_on() && std::fgets(block, sizeof block, stdin)) {
        while (goes_on() && (!login.ConnectionOk() || port.Room() < sizeof block)) std::this_thread::sleep_for(poll);
        feed->PutStr(block);
        feed->Work();
    }
    Await([&] { return port.Unsent() == 0; });
    kernel::String_Byte_Server::Destruct(feed);
}

// Destroys the gate. 0: there was a login.
int Run(Port &port, kernel::Byte_Client_Switch &gate, Login &login, kernel::CL_Mesg mode,
        const std::function<bool()> &create, bool ends_with_the_connection)
{
    login.Set_Error_Handler(port.Get_Error_Handler());
    Data_Client data(login);
    // The owner is this function.
    for (kernel::Client_Server *object :
         {static_cast<kernel::Client_Server *>(&port), static_cast<kernel::Client_Server *>(&gate),
          static_cast<kernel::Client_Server *>(&login), static_cast<kernel::Client_Server *>(&data)})
        object->Dont_Delete_Me();
    bool logged_in = false;
    const auto goes_on = [&] {
        logged_in = logged_in || login.ConnectionOk();
        return !ends_with_the_connection || port.is_running();
    };
    const bool fine =
        gate.Connect(&data) && gate.Connect(&login) && port.Connect(&gate) && login.Connect(&port) && create();
    if (fine) {
        if (mode == kernel::Mesg_Login)
            port.MesgLogin();
        else
            port.MesgAskPassword();
        port.Work();
        Send_Input(port, login, goes_on);
        while (goes_on()) std::this_thread::sleep_for(poll);
    }
    port.stop();
    login.Disconnect();  // port and login are a circle
    port.Disconnect();
    kernel::Byte_Client_Switch::Destruct(&gate);
    return logged_in ? 0 : 1;
}

int Number(const char *text) { return std::clamp(std::atoi(text), 0, 65536); }

int Hash(const char *name)
{
    std::string password;
    std::getline(std::cin, password);
    const std::string line = User_File::Line(name, password);
    if (line.empty()) std::fprintf(stderr, "a name without ':' and a password are needed\n");
    std::fputs(line.c_str(), stdout);
    return line.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char **argv)
{
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what == "hash" && argc == 3) return Hash(argv[2]);

    static kernel::Simple_Error_Handler reports(stderr, false);
    kernel::Byte_Client_Switch *const gate = kernel::Byte_Client_Switch::Construct();
    if (!gate) return 1;
    Port port(reports);
    if (what == "listen" && argc == 4 && Number(argv[2]) < 65536) {
        Login login(*gate, User_File(argv[3]));
        return Run(
            port, *gate, login, kernel::Mesg_Ask_Password, [&] { return port.CreateServer(Number(argv[2])); }, false);
    }
    if (what == "call" && argc == 6 && Number(argv[3]) > 0 && Number(argv[3]) < 65536) {
        std::string password;
        std::getline(std::ifstream(argv[5]), password);
        Login login(*gate, argv[4], password);
        return Run(
            port, *gate, login, kernel::Mesg_Login,
            [&] { return port.CreateClient(argv[2], Number(argv[3]), nullptr, 0); }, true);
    }
    std::fprintf(stderr, "usage: login_port hash NAME | listen PORT USERS | call HOST PORT NAME PASSWORD_FILE\n");
    return 2;
}
