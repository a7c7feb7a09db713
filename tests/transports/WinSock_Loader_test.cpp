#include "kernel/transports/WinSock_Loader.h"

#include "platform/fault.h"

#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
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

TEST_F(Loading, names_and_explains_errors)
{
    const struct {
        int code;
        const char *name, *title;  // the title with blanks up to 35 characters
    } cases[] = {{10013, "WSAEACCES", "Permission denied                  "},
                 {10009, "WSAEBADF", "WSAEBADF                           "},       // has no title,
                 {10038, "WSAENOTSOCK", "WSAENOTSOCK                        "},    // of two rows the first,
                 {11004, "WSANO_ADDRESS", "WSANO_ADDRESS                      "},  // as here
                 {10093, "WSANOTINITIALISED", "Successful WSAStartup not yet performed"},
                 {995, "WSA_OPERATION_ABORTED", "Overlapped operation aborted       "}};
    for (const auto &c : cases) {
        EXPECT_STREQ(WinSock_Loader::GetSocketErrorName(c.code), c.name);
        EXPECT_STREQ(WinSock_Loader::GetSocketErrorText(c.code), c.title);
        EXPECT_GT(std::strlen(WinSock_Loader::GetSocketErrorDescription(c.code)), 20u) << c.name;
    }
    int known = 0;
    for (int code = -1; code < 12000; ++code) known += WinSock_Loader::GetSocketErrorText(code) != nullptr;
    EXPECT_EQ(known, 59);
}
