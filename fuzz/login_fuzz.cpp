// What the other end of a login says: whatever it is, the dialogue ends or goes on, no text is longer than its limit,
// and nobody is logged in without the right password. The first byte chooses the mode (its remainder by 3) and the size
// of the pieces; the rest is what is said.
#include "fuzz/Require.h"
#include "kernel/bytes/Login_Client_Server.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

class Fuzzed_Login : public kernel::Login_Client_Server {
public:
    explicit Fuzzed_Login(kernel::Error_Handler &handler) : Object(ClassName(), &handler) {}
    const char *GetUserName() override { return "user"; }
    const char *GetPassword() override { return "pass"; }
    void SetLoggedInUser(const char *name) override { Require(!name || granted_, "logged in without the password"); }
    bool CheckPassword(const char *name, const char *password) override
    {
        Require(std::strlen(name) <= 256 && std::strlen(password) <= 256, "a text longer than its limit");
        return granted_ = std::strcmp(name, "user") == 0 && std::strcmp(password, "pass") == 0;
    }
    const char *GetLoginScreenLine(int) override { return nullptr; }
    void Pause(unsigned long) override {}

    void Check() const
    {
        const State state = Get_State();
        Require(state <= State::granted || (state >= State::scans && state <= State::started), "a state that is none");
        Require(state != State::checks_password && (state != State::granted || granted_),
                "a state that is not reached this way");
    }

private:
    bool granted_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    kernel::NULL_Error_Handler handler;
    Fuzzed_Login login(handler);
    kernel::String_Byte_Server *const line = kernel::String_Byte_Server::Construct(4096, &handler);
    kernel::Byte_Client_NULL *const screen = kernel::Byte_Client_NULL::Construct(64);
    if (!line || !screen) std::abort();
    login.Dont_Delete_Me();
    login.Connect(screen);
    line->Connect(&login);
    const kernel::CL_Mesg modes[] = {kernel::Mesg_Ask_Password, kernel::Mesg_Login, kernel::Mesg_Start};
    Require(login.Send(*line, modes[data[0] % 3]), "the mode was refused");
    if (data[0] % 3 != 2)
        Require(login.Send(*line, kernel::Mesg_Attached),
                "the connection was refused");  // else it would be logged in at once

    const std::size_t piece = data[0] + std::size_t{1};
    for (std::size_t at = 1; at < size; at += piece) {
        line->PutBin(data + at, static_cast<unsigned int>(std::min(piece, size - at)));
        line->Work();
        login.Check();
        line->Clear();  // what an ended dialogue leaves, and the rest of a word that has not come whole
    }
    kernel::String_Byte_Server::Destruct(line);
    return 0;
}
