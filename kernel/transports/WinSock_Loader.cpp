#include "kernel/transports/WinSock_Loader.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/transports/socket_errors_internal.h"

#include "platform/socket.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace kernel {

namespace {

// The loader reports under the name of the unit that it serves, so that a transport reports under one name.
const char unit[] = "kernel/Win32_Buffered_Byte_Client";

constexpr std::uint16_t wanted_version = 0x0202;  // 2.2: low byte major, high byte minor
constexpr Err_Code code = 89;

// The texts print major and minor version in different orders; see the destructor.
unsigned int Low(std::uint16_t version) { return version & 0xFFu; }
unsigned int High(std::uint16_t version) { return version >> 8u; }

// A field always ends with a zero; a longer text of the system is cut.
template <std::size_t size>
void Copy(char (&field)[size], const std::string &text)
{
    field[text.copy(field, size - 1)] = '\0';
}

static_assert(offsetof(WSADATA, szDescription) == 4 && offsetof(WSADATA, szSystemStatus) == 261 &&
              offsetof(WSADATA, iMaxSockets) == 390 && offsetof(WSADATA, lpVendorInfo) == 396);

}  // namespace

const char WinSock_Loader::Name[] = "WinSock_Loader";

std::atomic<std::uint32_t> WinSock_Loader::No_of_WSA{0};
WSADATA WinSock_Loader::WSA_data;

bool WinSock_Loader::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

// Start sets the count to 1 when it has loaded the library. Later transports that use sockets only raise the count.
WinSock_Loader::WinSock_Loader(Error_Handler *handler, bool without_winsock)
    : Object(Name, handler), without_winsock_(without_winsock)
{
    if (No_of_WSA == 0) {
        WSA_data = {};
        if (!without_winsock_) Start();
    } else if (!without_winsock_) {
        ++No_of_WSA;
    }
}

// A failure is only reported. A host may still use the object; its socket calls fail, and the host sees that.
void WinSock_Loader::Start()
{
    platform::Socket_Library library;
    if (!platform::socket_startup(wanted_version, library)) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, code, "Could not find a usable WinSock DLL for version %u.%u.",
                       Low(wanted_version), High(wanted_version));
        return;
    }
    WSA_data.wVersion = library.version;
    WSA_data.wHighVersion = library.high_version;
    Copy(WSA_data.szDescription, library.description);
    Copy(WSA_data.szSystemStatus, library.status);
    if (library.version != wanted_version) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Fatal, code, "WinSock.DLL supports version %u.%u, need version %u.%u.",
                       High(library.version), Low(library.version), Low(wanted_version), High(wanted_version));
        platform::socket_cleanup();
        return;
    }
    No_of_WSA = 1;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Information, code, "WinSock.DLL with version %u.%u loaded.\n%s is %s.",
                   Low(wanted_version), High(wanted_version), WSA_data.szDescription, WSA_data.szSystemStatus);
}

// Part of the interface: the texts "Releasing ..." and, in Start, "supports version ..." print the minor version first,
// and a loader whose start failed releases the library as well.
WinSock_Loader::~WinSock_Loader()
{
    if (!without_winsock_) {
        if (No_of_WSA > 0) --No_of_WSA;
        if (No_of_WSA == 0) {
            Report(unit, __LINE__)
                .Print_Out(Error_Handler::ES_Information, code, "Releasing WinSock.DLL version %u.%u",
                           High(WSA_data.wVersion), Low(WSA_data.wVersion));
            platform::socket_cleanup();
        }
    }
    if (No_of_WSA == 0) WSA_data = {};
}

const char *WinSock_Loader::GetSocketErrorName(int error)
{
    const Socket_Error *const row = Find_Socket_Error(error);
    return row ? row->name : nullptr;
}

const char *WinSock_Loader::GetSocketErrorText(int error)
{
    const Socket_Error *const row = Find_Socket_Error(error);
    return row ? row->title.text : nullptr;
}

const char *WinSock_Loader::GetSocketErrorDescription(int error)
{
    const Socket_Error *const row = Find_Socket_Error(error);
    return row ? row->description : nullptr;
}

}  // namespace kernel
