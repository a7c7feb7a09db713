// The client of a stream's input: gives each block to every output.
#pragma once

#include "host/gnss_stream/Endpoint.h"
#include "kernel/connections/BYTE_SER.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace host {

// Pulls blocks of up to 4096 bytes. It never waits for an output that nobody is connected to. With an input that can
// wait, it waits until each output has room, so that a peer that reads loses nothing, however slow it is. With a live
// input it waits for an output a quarter of a second at most: enough for a peer that keeps up, and harmless for the
// others. An output that then has no room discards and reports; there is no further wait for it until it has sent
// something.
//
// Threads:   Send runs on the input's delivering thread. Bytes, Is_Busy and Limit_Waiting may be called by any thread.
//            Outputs are added before the first block.
// Ownership: the outputs are the caller's. Belongs to its server unless Dont_Delete_Me was called.
// Errors:    none reported. Output::Sent shows what an output has lost.
class Fan_Out : public kernel::Byte_Client {
public:
    static const char Name[];  // "Fan_Out"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Whether the input waits when its client does (Input::Can_Wait), or sends on.
    enum class Source { can_wait, live };

    // patience: Mesg_Status_50 (an input is silent) gets the reply false after this time without data.
    Fan_Out(Source source, std::chrono::milliseconds patience);
    static constexpr std::chrono::milliseconds for_ever = std::chrono::hours(24 * 365 * 100);

    void Add(Output &output) { branches_.push_back({&output, {}}); }
    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override;

    // From now on the wait for an output ends when that has sent nothing for this long.
    void Limit_Waiting(std::chrono::milliseconds limit);

    std::uint64_t Bytes() const { return bytes_.load(std::memory_order_relaxed); }  // pulled so far
    bool Is_Busy() const { return busy_.load(std::memory_order_relaxed); }          // giving blocks to the outputs

private:
    struct Branch {
        Output *output;
        std::optional<std::uint64_t> gave_up_at;  // Output::Sent when the last wait was in vain
    };

    bool Pull(kernel::Byte_Server &server);
    void Hand_On(Branch &branch, std::span<const unsigned char> block);
    bool Wait_For_Room(const Output &output, std::size_t n) const;
    static void Wait_Briefly(Branch &branch, std::size_t n);

    const Source source_;
    const std::chrono::milliseconds patience_;
    std::vector<Branch> branches_;
    std::array<unsigned char, Output::block_limit> block_;
    std::chrono::steady_clock::time_point last_;  // of the last data or connection
    std::atomic<std::int64_t> limit_ms_{-1};      // of a wait; negative: none
    std::atomic<std::uint64_t> bytes_{0};
    std::atomic<bool> busy_{false};
};

}  // namespace host
