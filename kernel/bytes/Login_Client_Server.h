// A login by name and password over a byte connection, as the side that asks and as the side that answers.
#pragma once

#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/Password_Login.h"
#include "kernel/bytes/String_Byte_Server.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kernel {

// A client for the bytes from the other end, and a server for the bytes to it: its own client is the sending side of
// the same connection. A host derives a class that implements Password_Login and names the object
// (Object(ClassName())).
//
// A mode message begins the dialogue. It may come again at any time and begins the dialogue anew:
//   Mesg_Ask_Password  asks the other end. It shows the screen and "Name : " when the connection comes up
//                      (Mesg_Attached), echoes the name, masks the password with "*", and allows three tries.
//   Mesg_Login         answers the prompts of the other end.
//   Mesg_Start         takes any connection: logged in when it comes up, or when the other end says "OK!".
// The own client gets the outcome: Mesg_Status_90 for logged in, Mesg_Status_100 for failed, logged out or too late.
// The reply to the message that led to the outcome is false.
//
// The chain for data behind a login has a Byte_Client_Switch:
//
//   transport -> switch -> { login, data client }      login -> transport
//
// The reply false after Mesg_Status_90 makes the switch hand over to the data client. The host has three duties:
//   - The reply false after Mesg_Status_100 or a time-out makes the switch look for another client, too. The data
//     client must reply to Mesg_Status_210 with ConnectionOk(); otherwise it serves a peer that did not log in.
//   - The state outlives the connection. At Mesg_Detached the host must make the login the switch's current client
//     again and send it the mode message. Otherwise the next peer counts as logged in.
//   - A logged-out peer stays connected until it sends more. The host must close the connection at Mesg_Status_100.
// The data client gets the bytes behind the last words of the dialogue: "Password accepted, starting operation." on the
// side that answers, "OK!" on the side that asks.
//
// The reply to Mesg_Data_Ready is false when nothing was taken: when there is no byte, and when the dialogue has ended.
// A delivery loop then ends, and a switch hands over. At Mesg_Request_Invite one byte is requested even after the
// dialogue has ended.
//
// A name or password has at most 256 characters. A longer name is cut, and the rest of its line is ignored. The 257th
// character ends a password, whatever it is. Both must begin with an ASCII letter or digit.
//
// A dialogue that began more than two minutes ago ends at the next Mesg_Status_50 or Mesg_Request_Invite, even when the
// peer is logged in but no data client has taken over.
//
// Of the other messages Byte_Server::Forward_Send passes the notices on to the own client. The reply to the rest is
// true, also to Mesg_Disconnect_Query: Disable_Disconnect has no effect here.
//
// Threads:   messages run on the connection's receiving thread, which sleeps up to 250 ms after a prompt or an answer.
//            Another thread may send a mode message while no connection is up. Only the receiving thread may call
//            TimeOut; any thread may call ConnectionOk, LoginOnThis and Start_Time.
// Ownership: owns its client as a Byte_Server does. If the client is the transport above it, the chain is a circle.
//            Dont_Delete_Me must then be set for the transport, and the host must call Disconnect() of the login before
//            it destroys the transport.
// Errors:    kernel/Login_Client_Server, code 85: the course of the dialogue (0); no name or password to send, refused,
//            logged out by the other end (3). Control characters of a name are reported as '?'. No report contains a
//            password. The typed password is overwritten after the check, and the sent one after the own client has
//            taken it. The buffers of transports are not overwritten.
class KERNEL_API Login_Client_Server : public Byte_Client, public String_Byte_Server, public virtual Password_Login {
public:
    static const char Name[];  // "Client Server for Login Control"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;
    bool IsValid() const override;

    static void Destruct(Login_Client_Server *object) { Object::Destruct(object); }
    ~Login_Client_Server() override;

    void Start_Time();  // two minutes and three tries from now
    // Ends a dialogue whose time is over. Returns false when the time is not over or there is no dialogue.
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
        // The side that answers; the "expects" states wait for the rest of a word.
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

    // Relaxed order is enough: other threads read each of these values on its own.
    std::atomic<State> state_{State::idle};
    std::atomic<std::uint64_t> deadline_{0x0FFFFFFF};  // [ms] of the clock
    std::atomic<std::uint64_t> start_{0x0FFFFFFF};     // [ms] of the clock
    std::atomic<int> tries_{0};
    std::atomic<bool> login_on_this_{false};
    // For the receiving thread only.
    char name_[most_characters + 1] = {};
    char password_[most_characters + 1] = {};
    std::size_t length_ = 0;  // characters typed so far, of name or password
};

}  // namespace kernel
