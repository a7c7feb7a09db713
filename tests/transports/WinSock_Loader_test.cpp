#include "kernel/transports/WinSock_Loader.h"

#include "platform/fault.h"

#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
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

// 32-bit FNV-1a: guards a table of interface texts without a second copy of it.
std::uint32_t Fingerprint(const std::string &text)
{
    std::uint32_t hash = 0x811C9DC5;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x01000193;
    return hash;
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
        EXPECT_EQ(WinSock_Loader::No_of_WSA.load(), 2u);
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
    EXPECT_EQ(WinSock_Loader::No_of_WSA.load(), 0u);
    EXPECT_TRUE(Data_Is_Zero());
}

TEST_F(Loading, names_and_explains_errors)
{
    const struct {
        int code;
        const char *name, *title;
    } cases[] = {{6, "WSA_INVALID_HANDLE", "Specified event object handle is invalid"},
                 {10047, "WSAEAFNOSUPPORT", "Address family not supported by protocol family"},
                 {10054, "WSAECONNRESET", "Connection reset by peer           "},   // filled up to 35 characters
                 {10070, "WSAESTALE", "WSAESTALE                          "},       // has no title
                 {11004, "WSANO_ADDRESS", "WSANO_ADDRESS                      "}};  // two rows: the first one counts
    for (const auto &c : cases) {
        EXPECT_STREQ(WinSock_Loader::GetSocketErrorName(c.code), c.name);
        EXPECT_STREQ(WinSock_Loader::GetSocketErrorText(c.code), c.title);
    }
    std::string table;  // of all errors that can be found
    std::set<std::string> descriptions;
    for (int code = -1; code < 12000; ++code) {
        const char *const name = WinSock_Loader::GetSocketErrorName(code);
        const char *const title = WinSock_Loader::GetSocketErrorText(code);
        const char *const description = WinSock_Loader::GetSocketErrorDescription(code);
        ASSERT_EQ(name != nullptr, title != nullptr) << code;
        ASSERT_EQ(name != nullptr, description != nullptr) << code;
        if (!name) continue;
        table += std::to_string(code) + ' ' + name + ' ' + title + '\n';
        descriptions.insert(description);
        EXPECT_GT(std::strlen(description), 20u) << name;
    }
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 59);
    EXPECT_EQ(descriptions.size(), 59u);
    EXPECT_EQ(Fingerprint(table), 0x44B16418u) << table;
}
