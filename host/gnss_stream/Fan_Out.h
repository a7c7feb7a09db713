// The client of a stream's input: hands each block to every output.
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

// Pulls blocks of up to 4096 bytes. For an input that can wait it waits until an output has room, so that nothing is lost
// towards a peer that reads, however slowly; it never waits for an output that nobody is connected to. For a live input it
// waits a quarter of a second at most, which is enough for a peer that keeps up and does no harm to the others; what an
// output has no room for then is the output's to discard and to report, and until that has moved nobody waits for it again.
//
// Threads:   Send runs on the input's delivering thread; Bytes and Is_Busy may be asked by any thread; Limit_Waiting comes
//            from any.
//            Outputs are added before the first block.
// Ownership: the outputs are the caller's. Belongs to its server unless Dont_Delete_Me was called.
// Errors:    none reported. An output tells what it was given and could send (Output::Sent).
class Fan_Out : public kernel::Byte_Client {
public:
    static const char Name[];  // "Fan_Out"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // patience: an input that asks whether to go on although no data comes is told no when there was none for this long.
    Fan_Out(bool input_can_wait, std::chrono::milliseconds patience);
    static constexpr std::chrono::milliseconds for_ever = std::chrono::hours(24 * 365 * 100);

    void Add(Output &output) { branches_.push_back({&output, {}}); }
    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override;

    // From now on an output that has taken nothing for this long is no longer waited for.
    void Limit_Waiting(std::chrono::milliseconds limit);

    std::uint64_t Bytes() const { return bytes_.load(std::memory_order_relaxed); }  // pulled
    bool Is_Busy() const { return busy_.load(std::memory_order_relaxed); }          // handing on

private:
    struct Branch {
        Output *output;
        std::optional<std::uint64_t> gave_up_at;  // bytes sent when the waiting was in vain
    };

    bool Pull(kernel::Byte_Server &server);
    void Hand_On(Branch &branch, std::span<const unsigned char> block);
    bool Wait_For_Room(const Output &output, std::size_t n) const;
    static void Wait_Briefly(Branch &branch, std::size_t n);

    const bool input_can_wait_;
    const std::chrono::milliseconds patience_;
    std::vector<Branch> branches_;
    std::array<unsigned char, 4096> block_;
    std::chrono::steady_clock::time_point last_;  // when data came, or a connection
    std::atomic<std::int64_t> limit_ms_{-1};      // of waiting; negative: none
    std::atomic<std::uint64_t> bytes_{0};
    std::atomic<bool> busy_{false};
};

}  // namespace host
