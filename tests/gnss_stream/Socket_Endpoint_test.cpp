// A connection for which there is no memory.
#include "host/gnss_stream/Socket_Endpoint.h"

#include "tests/support/replaced_new.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>

namespace {

std::atomic<std::size_t> largest{std::numeric_limits<std::size_t>::max()};  // bytes of an allocation that succeeds

}  // namespace

TEST(Socket_Output, does_not_open_without_its_buffer)
{
    using namespace host;
    for (const bool has_memory : {true, false}) {
        Console console;
        testing::internal::CaptureStderr();
        largest = has_memory ? largest.load() : 60000;
        replaced_new::admits = [](std::size_t n) { return n <= largest.load(std::memory_order_relaxed); };
        {
            const auto output = Make_Socket_Output(Tcp_Server_Path{0}, {0, false, 1U << 16}, console);
            largest = std::numeric_limits<std::size_t>::max();
            EXPECT_EQ(output->Open(), has_memory);
        }
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.find("not enough memory") == std::string::npos, has_memory) << said;
        EXPECT_EQ(console.Faults(), has_memory ? 0u : 1u);
    }
}
