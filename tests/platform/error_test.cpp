#include "platform/error.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#ifndef _WIN32
#include "platform/posix/errno_table.h"

#include <cerrno>
#include <cstring>
#endif

using namespace platform;

TEST(error, is_per_thread)
{
    std::atomic<int> stage{0};
    std::thread other([&] {
        while (stage != 1) continue;
        set_last_error(2);
        stage = 2;
    });
    set_last_error(5);
    stage = 1;
    while (stage != 2) continue;  // no call of the system in between
    EXPECT_EQ(last_error(), 5u);
    other.join();
}

TEST(error, has_words_for_every_number)
{
    std::set<std::string> texts;
    const std::uint32_t errors[] = {2,   5,   32,  87,  112,  126,  127,   193,   232,   233,
                                    536, 995, 996, 997, 1400, 1816, 10058, 10061, 11001, 11002};
    for (const std::uint32_t error : errors) texts.insert(error_text(error));
    EXPECT_EQ(texts.size(), std::size(errors));  // all different
    EXPECT_FALSE(texts.contains(""));
    EXPECT_NE(error_text(0x7FFFFFF1).find("Unknown error"), std::string::npos);
}

#ifndef _WIN32
TEST(error, translates_errno)
{
    const std::pair<int, std::uint32_t> cases[] = {
        {0, 0},     {ENOENT, 2},   {ENOTDIR, 3}, {EMFILE, 4},           {EACCES, 5},        {EISDIR, 5},
        {EBADF, 6}, {ENOSPC, 112}, {EPIPE, 109}, {ECONNREFUSED, 10061}, {ETIMEDOUT, 10060}, {EPROTO, 31}};
    for (const auto &[number, error] : cases) EXPECT_EQ(posix::from_errno(number), error) << number;
    EXPECT_EQ(posix::from_socket_errno(EPIPE), 10054u);  // Winsock's own, where it has one
    EXPECT_EQ(posix::from_socket_errno(EMFILE), 10024u);
    EXPECT_EQ(posix::from_socket_errno(ECONNREFUSED), 10061u);
    errno = ENOSPC;
    EXPECT_FALSE(posix::fail());
    EXPECT_EQ(last_error(), 112u);
    EXPECT_EQ(error_text(112), std::strerror(ENOSPC));
}
#endif
