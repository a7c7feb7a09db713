// How a child process of a test ends.
#pragma once

#include <gtest/gtest.h>

// For EXPECT_EXIT: Windows passes the whole status on, POSIX its lowest byte.
inline ::testing::ExitedWithCode Ended_With(int status)
{
#ifdef _WIN32
    return ::testing::ExitedWithCode(status);
#else
    return ::testing::ExitedWithCode(status & 0xFF);
#endif
}
