// Shows the streams while they run: in a live line, or in status lines from time to time.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host {

// The live line shows the input, the outputs by their numbers, and the counted frames:
//   reading 0.262 MB, 0.051 MB/s | 1 connected 0.262 MB | 1143 frames, 0 CRC failures
// A status line shows one stream:
//   output 1 tcpsvr://:2101: connected, 262144 bytes, 51200 bytes/s, peer 127.0.0.1:40000
//
// Threads:   one.
// Ownership: console, ends and all that the functions use outlive it.
// Errors:    none.
class Status_View {
public:
    struct Options {
        bool live = false;
        std::chrono::seconds interval{0};  // between status lines; 0: none
    };
    Status_View(const Options &options, Console &console);

    using Bytes = std::function<std::uint64_t()>;
    enum class Live { bytes_and_rate, bytes, state };  // what the live line shows
    void Add(Live live, std::string label, std::string name, const Endpoint &end, Bytes bytes);
    void Pass();  // shows what is due
    void Last();  // shows the final state

private:
    using Clock = std::chrono::steady_clock;

    struct Stream {
        Live live;
        std::string label, name;  // in the live line and in status lines
        const Endpoint &end;
        Bytes bytes;
        std::uint64_t bytes_before = 0;  // when the last status line was shown
    };

    std::string Live_Part(const Stream &stream, Clock::time_point now) const;
    void Show_Live(Clock::time_point now);
    void Show_Lines(Clock::time_point now);

    const Options options_;
    Console &console_;
    const Clock::time_point start_;
    Clock::time_point live_shown_, lines_shown_;
    std::vector<Stream> streams_;
};

}  // namespace host
