#include "kernel/WinSock_Loader.h"

#include "platform/fault.h"

#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <string>

using namespace kernel;

namespace {

const char unit[] = "kernel/Win32_Buffered_Byte_Client";

struct Loading : testing::Test {
    ~Loading() override { platform::fault::clear(); }

    std::unique_ptr<WinSock_Loader> Loader(bool without_winsock = false)
    {
        return std::make_unique<WinSock_Loader>(&reports, without_winsock);
    }
    Capturing_Handler reports;
};

bool Data_Is_Zero()
{
    const WSADATA zero;
    return std::memcmp(&WinSock_Loader::WSA_data, &zero, sizeof zero) == 0;
}

// By number and first name; the two second rows are left out, since they are never found.
const char rows[] =
    "10013 EACCES 10048 EADDRINUSE 10049 EADDRNOTAVAIL 10047 EAFNOSUPPORT 10037 EALREADY 10009 EBADF 10069 EDQUOT "
    "10062 ELOOP 10063 ENAMETOOLONG 10066 ENOTEMPTY 10038 ENOTSOCK 10071 EREMOTE 10070 ESTALE 10059 ETOOMANYREFS "
    "10068 EUSERS 11004 NO_ADDRESS 10053 ECONNABORTED 10061 ECONNREFUSED 10054 ECONNRESET 10039 EDESTADDRREQ "
    "10014 EFAULT 10064 EHOSTDOWN 10065 EHOSTUNREACH 10036 EINPROGRESS 10004 EINTR 10022 EINVAL 10056 EISCONN "
    "10024 EMFILE 10040 EMSGSIZE 10050 ENETDOWN 10052 ENETRESET 10051 ENETUNREACH 10055 ENOBUFS 10042 ENOPROTOOPT "
    "10057 ENOTCONN 10045 EOPNOTSUPP 10046 EPFNOSUPPORT 10067 EPROCLIM 10043 EPROTONOSUPPORT 10041 EPROTOTYPE "
    "10058 ESHUTDOWN 10044 ESOCKTNOSUPPORT 10060 ETIMEDOUT 10035 EWOULDBLOCK 11001 HOST_NOT_FOUND "
    "10093 NOTINITIALISED 11003 NO_RECOVERY 10091 SYSNOTREADY 11002 TRY_AGAIN 10092 VERNOTSUPPORTED 10101 EDISCON "
    "10109 TYPE_NOT_FOUND 6 _INVALID_HANDLE 87 _INVALID_PARAMETER 996 _IO_INCOMPLETE 997 _IO_PENDING "
    "8 _NOT_ENOUGH_MEMORY 10107 SYSCALLFAILURE 995 _OPERATION_ABORTED";

}  // namespace

TEST_F(Loading, starts_with_the_first_and_releases_with_the_last)
{
    for (int turn = 0; turn < 3; ++turn) {
        auto pipe = Loader(true);
        EXPECT_EQ(reports.Take(), Reports{});
        auto first = Loader(), second = Loader();
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
    Loader();
    platform::fault::plan_socket_library(0, 0x0301);
    Loader();
    EXPECT_EQ(reports.Take(), (Reports{{4, 89, "Could not find a usable WinSock DLL for version 2.2.", unit},
                                       {1, 89, "Releasing WinSock.DLL version 0.0", unit},
                                       {4, 89, "WinSock.DLL supports version 3.1, need version 2.2.", unit},
                                       {1, 89, "Releasing WinSock.DLL version 3.1", unit}}));
    EXPECT_EQ(WinSock_Loader::No_of_WSA, 0u);
    EXPECT_TRUE(Data_Is_Zero());
}

TEST_F(Loading, names_and_explains_errors)
{
    int code = 0, found = 0;
    std::string name;
    for (std::istringstream table(rows); table >> code >> name; ++found) {
        name = "WSA" + name;
        EXPECT_STREQ(WinSock_Loader::GetSocketErrorName(code), name.c_str());
        EXPECT_GT(std::strlen(WinSock_Loader::GetSocketErrorDescription(code)), 20u) << name;
        const std::string text = WinSock_Loader::GetSocketErrorText(code);
        EXPECT_GE(text.size(), 35u) << name;
        EXPECT_EQ(text.starts_with(name), found >= 5 && found < 16) << name;
    }
    EXPECT_EQ(found, 59);
    EXPECT_STREQ(WinSock_Loader::GetSocketErrorText(10061), "Connection refused                 ");
    EXPECT_STREQ(WinSock_Loader::GetSocketErrorText(11004), "WSANO_ADDRESS                      ");
    EXPECT_STREQ(WinSock_Loader::GetSocketErrorText(10093), "Successful WSAStartup not yet performed");
    for (const int unknown : {0, -1, 10012}) EXPECT_EQ(WinSock_Loader::GetSocketErrorText(unknown), nullptr);
    EXPECT_EQ(WinSock_Loader::GetSocketErrorName(0), nullptr);
    EXPECT_EQ(WinSock_Loader::GetSocketErrorDescription(0), nullptr);
}
