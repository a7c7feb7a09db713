// A login by name and password over a byte connection, as the side that asks and as the side that answers.
#pragma once

#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/Password_Login.h"
#include "kernel/bytes/String_Byte_Server.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kernel {

// The client of what the other end says, and the server of what goes back to it: its own client is the sending side of
// the same connection. A host derives a class that implements Password_Login, and names the object
// (Object(ClassName())).
//
// A mode message begins the dialogue, and begins it anew at any time:
//   Mesg_Ask_Password  asks the other end. It shows the screen and "Name : " when the connection comes up
//                      (Mesg_Attached), echoes the name, masks the password with "*", and allows three tries.
//   Mesg_Login         answers the prompts of the other end.
//   Mesg_Start         takes any connection: logged in when it comes up, or when the other end says "OK!".
// The outcome goes to the own client: Mesg_Status_90 logged in, Mesg_Status_100 failed, logged out or too late. Then
// the message that brought it is answered false.
//
// The chain for data behind a login has a Byte_Client_Switch:
//
//   transport -> switch -> { login, data client }      login -> transport
//
// The false after Mesg_Status_90 makes the switch hand over to the data client. The host has three duties:
//   - The false after Mesg_Status_100 and a time-out make the switch look for another client, too. The data client must
//     answer Mesg_Status_210 with ConnectionOk(), or it serves a peer that did not log in.
//   - The state outlives the connection. For the next one (at Mesg_Detached) the host makes the login the switch's
//     current client again and sends it the mode message. Otherwise the next peer is taken for logged in.
//   - A logged-out peer stays connected until it says more. A host closes the connection at Mesg_Status_100.
// The data client gets what follows the last word of the dialogue: "Password accepted, starting operation." on the side
// that answers, "OK!" on the side that asks.
//
// Mesg_Data_Ready is answered false when nothing was taken: when there is no byte, and when the dialogue has ended. A
// delivery loop ends then, and a switch hands over. Mesg_Request_Invite asks for one byte even then.
//
// A name or password has at most 256 characters. A longer name is cut, the rest of its line is ignored. The 257th
// character ends a password, whatever it is. Both must begin with an ASCII letter or digit.
//
// Two minutes after the start of the dialogue the next Mesg_Status_50 or Mesg_Request_Invite ends it, also when it is
// logged in and nobody has taken over.
//
// Other messages go on to the own client if Byte_Server::Forward_Send passes them; the others are answered true, also
// Mesg_Disconnect_Query: Disable_Disconnect has no effect here.
//
// Threads:   messages belong on the connection's receiving thread, which sleeps up to 250 ms after a prompt or an
//            answer. A mode message may come from another thread while no connection is up. TimeOut is for the
//            receiving thread; ConnectionOk, LoginOnThis and Start_Time may be called on any.
// Ownership: owns its client as a Byte_Server does. Where that is the transport above it, the chain is a circle: the
//            transport says Dont_Delete_Me, and the host calls Disconnect() of the login before it destroys the
//            transport.
// Errors:    kernel/Login_Client_Server, code 85: the course of the dialogue (0); no name or password to send, refused,
//            logged out by the other end (3). Control characters of a name show as '?'. No report contains a password.
//            The typed password is overwritten after the check, the sent one when the own client has taken it; the
//            buffers of transports are not.
class KERNEL_API Login_Client_Server : public Byte_Client, public String_Byte_Server, public virtual Password_Login {
public:
    static const char Name[];  // "Client Server for Login Control"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;
    bool IsValid() const override;

    static void Destruct(Login_Client_Server *object) { Object::Destruct(object); }
    ~Login_Client_Server() override;

    void Start_Time();  // two minutes and three tries from now
    // Ends a dialogue whose time is over; false when it is not, or when there is none.
    bool TimeOut();
    bool ConnectionOk() const;                                                           // logged in
    bool LoginOnThis() const { return login_on_this_.load(std::memory_order_relaxed); }  // asks, or takes any

    bool Send(Byte_Server &server, CL_Mesg message) override;

protected:
    Login_Client_Server();

    // The numbers are part of the interface.
    enum class State : int {
        idle = 0,  // or logged out
        // The side that asks.
        awaits_name = 1,
        reads_name = 2,
        skips_name = 3,  // of a name that is too long
        awaits_password = 4,
        reads_password = 5,
        checks_password = 6,
        granted = 7,
        // The side that answers; "expects" is for the rest of a word.
        scans = 10,
        expects_name = 11,
        expects_password = 12,
        expects_ok = 13,
        expects_fail = 14,
        expects_logout = 15,
        refused = 16,
        accepted = 17,
        // The mode without a password.
        awaits_start = 18,
        expects_start_ok = 19,
        expects_start_logout = 20,
        gave_up = 21,  // also of the side that answers, when it has no name
        started = 22,
    };
    State Get_State() const { return state_.load(std::memory_order_relaxed); }

    // Sleeps on the receiving thread, so that the other end's program is ready to read what comes.
    virtual void Pause(unsigned long ms);

private:
    static constexpr std::size_t most_characters = 256;  // of a name, and of a password

    void Set_State(State state) { state_.store(state, std::memory_order_relaxed); }
    bool Begin(State state, bool on_this, const char *report);
    bool Attached(Byte_Server &server);
    bool Show_Screen(Byte_Server &server);
    void Ask_For_Name();
    bool Silence(Byte_Server &server);
    bool Invited(Byte_Server &server);
    bool Data(Byte_Server &server);
    bool Pass_On(Byte_Server &server, CL_Mesg message);
    void Delete_Downstream();

    bool Say(const char *text);
    void Echo(unsigned short character);
    void Echo_Typed_Ahead(Byte_Server &server);

    bool Name_Begins(unsigned short character);
    bool Name_Goes_On(unsigned short character);
    bool Name_Is_Too_Long(unsigned short character);
    void Ask_For_Password();
    bool Password_Begins(unsigned short character);
    bool Password_Goes_On(Byte_Server &server, unsigned short character);
    bool Check(Byte_Server &server);
    bool Grant();
    bool Refuse(Byte_Server &server);

    bool Scan(unsigned short character);
    bool Scan_Start(unsigned short character);
    bool Send_Name(Byte_Server &server);
    bool Send_Password(Byte_Server &server);
    bool Told_Ok(Byte_Server &server, State reached, State otherwise);
    bool Told_Fail(Byte_Server &server);
    bool Told_Logout(Byte_Server &server);
    bool Told_Start_Logout(Byte_Server &server);
    void Report_Failure(Error_Handler::Enum_Status level);

    bool End(CL_Mesg outcome);
    void Forget_Password();
    void Forget_Output();
    std::uint64_t Seconds() const;

    // Relaxed: each is a value of its own, looked at by other threads.
    std::atomic<State> state_{State::idle};
    std::atomic<std::uint64_t> deadline_{0x0FFFFFFF};  // [ms] of the clock
    std::atomic<std::uint64_t> start_{0x0FFFFFFF};     // [ms] of the clock
    std::atomic<int> tries_{0};
    std::atomic<bool> login_on_this_{false};
    // The receiving thread's.
    char name_[most_characters + 1] = {};
    char password_[most_characters + 1] = {};
    std::size_t length_ = 0;  // characters typed so far, of either
};

}  // namespace kernel
