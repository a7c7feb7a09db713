// Segments of one test. On POSIX it has its own; on Windows their names belong to all programs, so one test at a time
// uses them.
#pragma once

#include "host/station/Station_Segment.h"
#include "kernel/base/ipcSemaphore.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

class Segments : public testing::Test {
protected:
    Segments() { lock_.Request(); }
    ~Segments() override { lock_.Release(); }

    // Station ring 0, laid out anew.
    static std::unique_ptr<host::Station_Segment> Ring_0(std::uint32_t slots, std::uint32_t pool)
    {
        std::string error;
        host::Station_Segment::Options options;
        options.slots = slots;
        options.pool_size = pool;
        auto segment = host::Station_Segment::Create(0, options, error);
        EXPECT_TRUE(segment && segment->Is_Fresh()) << error;
        return segment;
    }

    Test_Folder folder;

private:
    const Environment_Setting runtime_{"GNSS_KERNEL_RUNTIME_DIR", folder / "run"};
    kernel::ipcMutexSemaphore lock_{"segments of gnss-kernel tests"};
};
