#include "kernel/Typed_Servers.h"

#include <cstring>

namespace kernel {

#define KERNEL_DEFINE_CLASS(Class, Base, text)                                                                         \
    const char Class::Name[] = text;                                                                                   \
    Class::Class(const char *name) : Object(name ? name : ClassName()) {}                                              \
    Class *Class::Construct() { return Constructed(new Class); }                                                       \
    bool Class::IsInheritedFrom(const char *name) const                                                                \
    {                                                                                                                  \
        return (name && std::strcmp(name, Name) == 0) || Base::IsInheritedFrom(name);                                  \
    }

#define KERNEL_DEFINE_KIND(X, Record, type, server_name, client_name)                                                  \
    KERNEL_DEFINE_CLASS(X##_Server, Object_Server, server_name)                                                        \
    KERNEL_DEFINE_CLASS(X##_Client, Object_Client, client_name)

KERNEL_RECORD_KINDS(KERNEL_DEFINE_KIND)
KERNEL_DEFINE_KIND(Met, Met_Data, Mesg_Type_Met, "Meterologic-Server", "Meterologic_Client")

}  // namespace kernel
