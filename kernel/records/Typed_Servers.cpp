#include "kernel/records/Typed_Servers.h"

#include <cstring>

namespace kernel {

// `Base` is the nearest base class with a Name; Typed_Server and Typed_Client have none. Object is a virtual base, so
// the most derived class names it, here.
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
// Not in the table, because its wrappers differ; the rest is the same. The spellings, one with a hyphen and one with an
// underscore, are part of the interface.
KERNEL_DEFINE_KIND(Met, Met_Data, Mesg_Type_Met, "Meterologic-Server", "Meterologic_Client")

}  // namespace kernel
