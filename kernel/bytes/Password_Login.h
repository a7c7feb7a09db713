// The host's side of Login_Client_Server: users, passwords and the login screen.
#pragma once

#include "kernel/base/Object.h"

namespace kernel {

// An interface for hosts. It is inherited virtually, so that an implementation can be a class of its own.
//
// Threads:   called on the thread that delivers to the dialogue, with none of the library's locks held.
// Ownership: returned texts stay the host's and must be valid until its next call. Texts in arguments are valid until
//            the call returns.
// Errors:    null where a function below says so.
class KERNEL_API Password_Login : public virtual Object {
public:
    static const char Name[];  // "virtual base class Password_Login"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // These two return name and password for a remote system. Null means that there is none; the dialogue then ends. An
    // empty password counts as none.
    virtual const char *GetUserName() = 0;
    virtual const char *GetPassword() = 0;
    // Tells the host which user is logged in here; null: none.
    virtual void SetLoggedInUser(const char *name) = 0;
    // The dialogue does not call this.
    virtual void Unused_Slot() {}
    // Returns true to grant access. The peer typed both texts: up to 256 characters each, any character but CR, LF and
    // NUL. The dialogue overwrites the password after the call.
    virtual bool CheckPassword(const char *name, const char *password) = 0;
    // Returns line i (from 0) of the screen before the first question, with its line end, and null after the last line.
    // A line has at most 4095 characters; a longer one ends the connection.
    virtual const char *GetLoginScreenLine(int i) = 0;

protected:
    Password_Login();
};

}  // namespace kernel
