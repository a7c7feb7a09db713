// Starts the socket library with the first transport and ends it with the last one; names and explains socket errors.
#pragma once

#include "kernel/base/Object.h"

#include <atomic>
#include <cstdint>

namespace kernel {

class Error_Handler;

// The socket library's description of itself: Winsock's record in its 32-bit layout (400 bytes), on every system.
//
//   offset  bytes
//        0      2  wVersion, low byte major, high byte minor
//        2      2  wHighVersion
//        4    257  szDescription
//      261    129  szSystemStatus
//      390      2  iMaxSockets (0: not given)
//      392      2  iMaxUdpDg (0: not given)
//      396      4  lpVendorInfo (always 0)
struct WSADATA {
    std::uint16_t wVersion = 0;
    std::uint16_t wHighVersion = 0;
    char szDescription[257] = {};
    char szSystemStatus[129] = {};
    std::uint16_t iMaxSockets = 0;
    std::uint16_t iMaxUdpDg = 0;
    std::uint32_t lpVendorInfo = 0;
};
static_assert(sizeof(WSADATA) == 400);

// The base of every transport.
//
// Threads:   while a transport that uses sockets exists, others may be created and destroyed on any thread. Create the
//            first and destroy the last one on one thread at a time.
// Ownership: the count is the number of existing transports that use sockets; the texts of the table are constants.
// Errors:    reported under kernel/Win32_Buffered_Byte_Client, code 89: level 4 when the socket library is missing or
//            has another version (sockets then fail later), level 1 when it is loaded and when it is released.
class KERNEL_API WinSock_Loader : public virtual Object {
public:
    static const char Name[];  // "WinSock_Loader"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static std::atomic<std::uint32_t> No_of_WSA;
    static WSADATA WSA_data;  // filled by the first start, all zero after the last release

    // without_winsock: for transports that use no sockets; these neither start nor end the library.
    WinSock_Loader(Error_Handler *handler, bool without_winsock);
    ~WinSock_Loader() override;

    // These look up Winsock's number: the name ("WSAECONNREFUSED"), a short text, padded with blanks to 35 characters
    // ("Connection refused"), and an explanation. They return null for 0 and for a number that is not in the table.
    static const char *GetSocketErrorName(int error);
    static const char *GetSocketErrorText(int error);
    static const char *GetSocketErrorDescription(int error);

private:
    void Start();

    const bool without_winsock_;
};

}  // namespace kernel
