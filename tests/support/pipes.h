// A pipe's name that belongs to one test, and a second process at its other end.
#pragma once

#include "platform/clock.h"
#include "platform/pipe.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/sockets.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>

namespace test {

using Stream_Pointer = std::shared_ptr<platform::Stream>;

struct Pipe_Name {
    Test_Folder folder;
    Environment_Setting setting{"GNSS_KERNEL_RUNTIME_DIR", folder / "run"};
    std::string name = "kernel-test-" + std::to_string(std::random_device()()) + std::to_string(platform::clock_ms());
};

// The client that has come, or comes within 20 s.
inline Stream_Pointer Taken(platform::Server_Pipe &pipe)
{
    Stream_Pointer client;
    while (!(client = pipe.take()) && platform::last_error() == platform::error_io_pending &&
           pipe.arrival().wait(20000))
        continue;
    return client;
}

inline Stream_Pointer Opened(const std::string &name)  // as soon as it can be opened
{
    Stream_Pointer stream;
    Soon([&] { return (stream = platform::open_pipe(name)) != nullptr; });
    return stream;
}

// The second process is this program with PIPE_PROCESS set: 's' (server) or 'c' (client) and the name of a pipe. It
// writes "abc", reads one byte and dies as if killed: nothing of it is cleaned up.
inline const bool is_pipe_process = [] {
    const char *const order = std::getenv("PIPE_PROCESS");
    if (!order || !*order) return false;
    const auto pipe = *order == 's' ? platform::Server_Pipe::create(order + 1) : nullptr;
    const Stream_Pointer other = pipe && pipe->listen() ? Taken(*pipe) : Opened(order + 1);
    if (other) Written(other, "abc"), Read(other, 1);
    std::_Exit(0);
}();

class Pipe_Process {
public:
    Pipe_Process(char role, const std::string &name)
        : order_("PIPE_PROCESS", role + name),
          process_([self = "\"" + ::testing::internal::GetArgvs()[0] + "\""] { (void)!std::system(self.c_str()); })
    {
    }
    ~Pipe_Process() { process_.join(); }

private:
    Environment_Setting order_;
    std::thread process_;
};

}  // namespace test
