// What a host says about users and passwords: the other half of Login_Client_Server.
#pragma once

#include "kernel/base/Object.h"

namespace kernel {

// An interface for hosts, inherited virtually: an implementation can be a class of its own beside the dialogue.
//
// Threads:   called on the thread that delivers to the dialogue, with none of the library's locks held.
// Ownership: texts that are returned stay the host's and are good until its next call. Texts that are given are good
//            until the call returns.
// Errors:    null where a line says so.
class KERNEL_API Password_Login : public virtual Object {
public:
    static const char Name[];  // "virtual base class Password_Login"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // To log on to a remote system. Null: there is none, and the dialogue ends. An empty password is none, too.
    virtual const char *GetUserName() = 0;
    virtual const char *GetPassword() = 0;
    // Who is logged in here; null: nobody.
    virtual void SetLoggedInUser(const char *name) = 0;
    // The dialogue does not call this.
    virtual void Unused_Slot() {}
    // True grants access. The peer typed both texts: up to 256 characters each, any character but CR, LF and NUL. The
    // dialogue overwrites the password after the call.
    virtual bool CheckPassword(const char *name, const char *password) = 0;
    // Line i, from 0, of what is shown before the first question, with its line end; null after the last. At most 4095
    // characters: a longer line ends the connection.
    virtual const char *GetLoginScreenLine(int i) = 0;

protected:
    Password_Login();
};

}  // namespace kernel
