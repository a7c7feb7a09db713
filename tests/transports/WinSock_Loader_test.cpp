#include "kernel/transports/WinSock_Loader.h"

#include "platform/fault.h"

#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <string>

using namespace kernel;

namespace {

const char unit[] = "kernel/Win32_Buffered_Byte_Client";

struct Loading : testing::Test {
    ~Loading() override { platform::fault::clear(); }

    Capturing_Handler reports;
};

bool Data_Is_Zero()
{
    const WSADATA zero;
    return std::memcmp(&WinSock_Loader::WSA_data, &zero, sizeof zero) == 0;
}

}  // namespace

TEST_F(Loading, starts_with_the_first_and_releases_with_the_last)
{
    for (int turn = 0; turn < 2; ++turn) {
        auto pipe = std::make_unique<WinSock_Loader>(&reports, true);
        EXPECT_EQ(reports.Take(), Reports{});
        auto first = std::make_unique<WinSock_Loader>(&reports, false);
        auto second = std::make_unique<WinSock_Loader>(&reports, false);
        const WSADATA &data = WinSock_Loader::WSA_data;
        const std::string loaded = std::string("WinSock.DLL with version 2.2 loaded.\n") + data.szDescription + " is " +
                                   data.szSystemStatus + ".";
        EXPECT_EQ(reports.Take(), (Reports{{1, 89, loaded, unit}}));
        EXPECT_EQ(WinSock_Loader::No_of_WSA, 2u);
        pipe.reset();
        first.reset();
        EXPECT_EQ(data.wVersion, 0x0202);
        EXPECT_EQ(reports.Take(), Reports{});
        second.reset();
        EXPECT_EQ(reports.Take(), (Reports{{1, 89, "Releasing WinSock.DLL version 2.2", unit}}));
        EXPECT_TRUE(Data_Is_Zero());
    }
}

TEST_F(Loading, says_that_the_library_is_missing_or_another)
{
    platform::fault::plan_socket_library(10091, 0);
    WinSock_Loader(&reports, false);
    platform::fault::plan_socket_library(0, 0x0301);
    WinSock_Loader(&reports, false);
    EXPECT_EQ(reports.Take(), (Reports{{4, 89, "Could not find a usable WinSock DLL for version 2.2.", unit},
                                       {1, 89, "Releasing WinSock.DLL version 0.0", unit},
                                       {4, 89, "WinSock.DLL supports version 3.1, need version 2.2.", unit},
                                       {1, 89, "Releasing WinSock.DLL version 3.1", unit}}));
    EXPECT_EQ(WinSock_Loader::No_of_WSA, 0u);
    EXPECT_TRUE(Data_Is_Zero());
}

namespace {

// Code, name and title of each error that can be found, in the order of the table. Two codes have a second row, with
// another title, that is never found.
constexpr char known_errors[] = R"(10013 WSAEACCES Permission denied
10048 WSAEADDRINUSE Address already in use
10049 WSAEADDRNOTAVAIL Cannot assign requested address
10047 WSAEAFNOSUPPORT Address family not supported by protocol family
10037 WSAEALREADY Operation already in progress
10009 WSAEBADF WSAEBADF
10069 WSAEDQUOT WSAEDQUOT
10062 WSAELOOP WSAELOOP
10063 WSAENAMETOOLONG WSAENAMETOOLONG
10066 WSAENOTEMPTY WSAENOTEMPTY
10038 WSAENOTSOCK WSAENOTSOCK
10071 WSAEREMOTE WSAEREMOTE
10070 WSAESTALE WSAESTALE
10059 WSAETOOMANYREFS WSAETOOMANYREFS
10068 WSAEUSERS WSAEUSERS
11004 WSANO_ADDRESS WSANO_ADDRESS
10053 WSAECONNABORTED Software caused connection abort
10061 WSAECONNREFUSED Connection refused
10054 WSAECONNRESET Connection reset by peer
10039 WSAEDESTADDRREQ Destination address required
10014 WSAEFAULT Bad address
10064 WSAEHOSTDOWN Host is down
10065 WSAEHOSTUNREACH No route to host
10036 WSAEINPROGRESS Operation now in progress
10004 WSAEINTR Interrupted function call
10022 WSAEINVAL Invalid argument
10056 WSAEISCONN Socket is already connected
10024 WSAEMFILE Too many open files
10040 WSAEMSGSIZE Message too long
10050 WSAENETDOWN Network is down
10052 WSAENETRESET Network dropped connection on reset
10051 WSAENETUNREACH Network is unreachable
10055 WSAENOBUFS No buffer space available
10042 WSAENOPROTOOPT Bad protocol option
10057 WSAENOTCONN Socket is not connected
10045 WSAEOPNOTSUPP Operation not supported
10046 WSAEPFNOSUPPORT Protocol family not supported
10067 WSAEPROCLIM Too many processes
10043 WSAEPROTONOSUPPORT Protocol not supported
10041 WSAEPROTOTYPE Protocol wrong type for socket
10058 WSAESHUTDOWN Cannot send after socket shutdown
10044 WSAESOCKTNOSUPPORT Socket type not supported
10060 WSAETIMEDOUT Connection timed out
10035 WSAEWOULDBLOCK Resource temporarily unavailable
11001 WSAHOST_NOT_FOUND Host not found
10093 WSANOTINITIALISED Successful WSAStartup not yet performed
11003 WSANO_RECOVERY Nonrecoverable error
10091 WSASYSNOTREADY Network subsystem is unavailable
11002 WSATRY_AGAIN Nonauthoritative host not found
10092 WSAVERNOTSUPPORTED Winsock.dll version out of range
10101 WSAEDISCON Graceful shutdown in progress
10109 WSATYPE_NOT_FOUND Class type not found
6 WSA_INVALID_HANDLE Specified event object handle is invalid
87 WSA_INVALID_PARAMETER One or more parameters are invalid
996 WSA_IO_INCOMPLETE Overlapped I/O event object not in signaled state
997 WSA_IO_PENDING Overlapped operations will complete later
8 WSA_NOT_ENOUGH_MEMORY Insufficient memory available
10107 WSASYSCALLFAILURE System call failure
995 WSA_OPERATION_ABORTED Overlapped operation aborted
)";

}  // namespace

TEST_F(Loading, names_and_explains_errors)
{
    std::istringstream lines(known_errors);
    std::set<int> codes;
    std::set<std::string> descriptions;
    int code = 0;
    for (std::string name, title; lines >> code >> name && std::getline(lines >> std::ws, title);) {
        ASSERT_TRUE(WinSock_Loader::GetSocketErrorName(code)) << code;
        EXPECT_EQ(WinSock_Loader::GetSocketErrorName(code), name);
        title.resize(std::max<std::size_t>(title.size(), 35), ' ');
        EXPECT_EQ(WinSock_Loader::GetSocketErrorText(code), title);
        EXPECT_GT(std::strlen(WinSock_Loader::GetSocketErrorDescription(code)), 20u) << name;
        codes.insert(code);
        descriptions.insert(WinSock_Loader::GetSocketErrorDescription(code));
    }
    EXPECT_EQ(codes.size(), 59u);
    EXPECT_EQ(descriptions.size(), codes.size());
    for (code = -1; code < 12000; ++code) {
        const bool is_known = codes.count(code) > 0;
        EXPECT_EQ(WinSock_Loader::GetSocketErrorName(code) != nullptr, is_known) << code;
        EXPECT_EQ(WinSock_Loader::GetSocketErrorText(code) != nullptr, is_known) << code;
        EXPECT_EQ(WinSock_Loader::GetSocketErrorDescription(code) != nullptr, is_known) << code;
    }
}
