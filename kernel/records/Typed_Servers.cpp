#include "kernel/records/Typed_Servers.h"

#include <cstring>

namespace kernel {

// Base is the class that has a name: Typed_Server and Typed_Client, which stand in between, have none that could be
// asked for. Object is a virtual base, so that its name comes from here and from nowhere else.
#define KERNEL_DEFINE_CLASS(Class, Base, text)                                                                         \
    const char Class::Name[] = text;                                                                                   \
    Class::Class(const char *name) : Object(name ? name : ClassName()) {}                                              \
    Class *Class::Construct()                                                                                          \
    {                                                                                                                  \
        return Constructed([&] { return new Class; });                                                                 \
    }                                                                                                                  \
    bool Class::IsInheritedFrom(const char *name) const                                                                \
    {                                                                                                                  \
        return (name && std::strcmp(name, Name) == 0) || Base::IsInheritedFrom(name);                                  \
    }

#define KERNEL_DEFINE_KIND(X, Record, type, server_name, client_name)                                                  \
    KERNEL_DEFINE_CLASS(X##_Server, Object_Server, server_name)                                                        \
    KERNEL_DEFINE_CLASS(X##_Client, Object_Client, client_name)

KERNEL_RECORD_KINDS(KERNEL_DEFINE_KIND)
// No row of the table, whose wrappers it does not have; the rest is the same. The hyphen and the underscore are meant.
KERNEL_DEFINE_KIND(Met, Met_Data, Mesg_Type_Met, "Meterologic-Server", "Meterologic_Client")

}  // namespace kernel
