#include "kernel/connections/Client_Server.h"

#include <cstring>

namespace kernel {

const char Client_Server::Name[] = "Basisklasse Client_Server";

// The most derived class names the object; this base only stands in when it is the most derived itself.
Client_Server::Client_Server() : Object(nullptr) {}

bool Client_Server::IsValid() const { return Semaphore::IsValid() && Object::IsValid(); }

bool Client_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

bool Client_Server::Set_Speed(unsigned long) { return false; }

unsigned long Client_Server::Get_Speed() { return 0; }

}  // namespace kernel
