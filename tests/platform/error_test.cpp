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
    for (const std::uint32_t error : {2u, 5u, 32u, 87u, 112u, 10061u}) texts.insert(error_text(error));
    EXPECT_EQ(texts.size(), 6u);  // all different
    EXPECT_FALSE(texts.contains(""));
    EXPECT_NE(error_text(0x7FFFFFF1).find("Unknown error"), std::string::npos);
}

#ifndef _WIN32
TEST(error, translates_errno)
{
    struct Case {
        int posix;
        std::uint32_t win32;
    };
    for (const Case &c : {Case{0, 0},
                          {ENOENT, 2},
                          {ENOTDIR, 3},
                          {EMFILE, 4},
                          {EACCES, 5},
                          {EISDIR, 5},
                          {EBADF, 6},
                          {ENOSPC, 112},
                          {EPIPE, 109},
                          {ECONNREFUSED, 10061},
                          {ETIMEDOUT, 10060},
                          {EPROTO, 31}})
        EXPECT_EQ(posix::from_errno(c.posix), c.win32) << c.posix;
    errno = ENOSPC;
    EXPECT_FALSE(posix::fail());
    EXPECT_EQ(last_error(), 112u);
    EXPECT_EQ(error_text(112), std::strerror(ENOSPC));
}
#endif
