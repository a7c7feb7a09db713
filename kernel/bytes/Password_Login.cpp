#include "kernel/bytes/Password_Login.h"

#include <cstring>

namespace kernel {

const char Password_Login::Name[] = "virtual base class Password_Login";

Password_Login::Password_Login() : Object(nullptr) {}

bool Password_Login::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

}  // namespace kernel
