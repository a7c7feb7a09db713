#include "kernel/transports/stream_reader_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/stream.h"
#include "platform/wait.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

namespace kernel {

namespace {

constexpr std::uint64_t tick_ms = 1000;
constexpr std::uint64_t patience_ms = 60000;
constexpr std::uint64_t wait_ms = 1000;  // no wait is longer: tick and deadline are checked after it

}  // namespace

// Pulling. The reader's thread alone changes the counts, so that no step here needs to be indivisible.

std::int32_t Stream_Reader::Want(long n)
{
    const auto wanted = static_cast<std::int32_t>(std::clamp(n, 0L, most));
    requested_.store(wanted, std::memory_order_relaxed);
    return wanted;
}

long Stream_Reader::Held()
{
    if (drop_.load(std::memory_order_relaxed) && drop_.exchange(false)) buffer_.Drop();
    return static_cast<long>(buffer_.Held());
}

void Stream_Reader::Drop()
{
    drop_ = false;
    buffer_.Drop();
}

long Stream_Reader::Take(unsigned char *buffer, long n)
{
    if (!buffer || n < 1 || Held() < 1) return 0;
    const std::size_t taken = buffer_.Take(buffer, static_cast<std::size_t>(n));
    requested_.store(Requested() - static_cast<std::int32_t>(taken), std::memory_order_relaxed);
    bytes_in_.store(Bytes_In() + taken, std::memory_order_relaxed);
    return static_cast<long>(taken);
}

// The limit of a request holds here as well: more bytes can never be held, and the client would wait for ever.
unsigned short Stream_Reader::Put_Back(unsigned char byte)
{
    if (!buffer_.Put_Back(byte)) return No_Byte;
    requested_.store(std::min(Requested() + 1, static_cast<std::int32_t>(most)), std::memory_order_relaxed);
    bytes_in_.store(Bytes_In() - 1, std::memory_order_relaxed);
    return byte;
}

unsigned short Stream_Reader::Take_Byte(Byte_Server &server)
{
    unsigned char byte = 0;
    return server.GetNBytes(&byte, 1) == 1 ? byte : No_Byte;
}

// The loop.

bool Stream_Reader::Begin()
{
    Want(0);
    const bool is_accepted = Tell(Mesg_Attached);
    Start_Clocks();
    return is_accepted;
}

void Stream_Reader::Start_Clocks()
{
    next_tick_ = platform::clock_ms() + tick_ms;
    Be_Patient();
}

void Stream_Reader::Run()
{
    if (kind_ == Kind::connection) {
        while (Invite() && Deliver() && Fill()) {
        }
    } else {
        while (Invite() && Fill() && Deliver()) {
        }
    }
}

bool Stream_Reader::Fill()
{
    if (kind_ == Kind::serial_line) Be_Patient();
    while (Available() < Requested()) {
        if (!Receive()) return false;
    }
    return Filled();
}

// A client that accepts and takes nothing is asked for ever, until a stop: to pull is its part of the contract.
bool Stream_Reader::Deliver()
{
    while (Requested() > 0 && Requested() <= Available() && !Is_Stopping()) {
        if (!Offer()) return false;
    }
    return true;
}

bool Stream_Reader::Offer()
{
    const long held = Available();
    if (Tell(Mesg_Data_Ready)) return true;
    return (kind_ == Kind::connection && Available() != held) || Refused();
}

// The clocks.

void Stream_Reader::Tick()
{
    const std::uint64_t now = platform::clock_ms();
    if (now < next_tick_) return;
    Tell(Mesg_Second);
    next_tick_ = (kind_ == Kind::serial_line ? next_tick_ : now) + tick_ms;
}

void Stream_Reader::Be_Patient()
{
    silent_since_ = platform::clock_ms();
    deadline_ = silent_since_ + patience_ms;
}

bool Stream_Reader::Is_Patient() const { return platform::clock_ms() < deadline_; }

bool Stream_Reader::Still_Wanted()
{
    const bool is_wanted = Tell(Mesg_Status_50);
    const std::uint64_t now = platform::clock_ms();
    if (!is_wanted) return Unwanted(static_cast<double>(now - silent_since_) / 1000.0);
    deadline_ = now + patience_ms;
    return true;
}

bool Stream_Reader::Silence()
{
    if (kind_ == Kind::connection && !Is_Patient()) return Still_Wanted();
    Tell(Mesg_Status_40);
    return kind_ == Kind::connection || Is_Patient() || Still_Wanted();
}

// Reading.

// The free end of the buffer belongs to the read while it is under way.
bool Stream_Reader::Read(const std::shared_ptr<platform::Stream> &stream, std::size_t n, const Signals &signals)
{
    buffer_.Compact();
    read_at_ = buffer_.End();
    if (signals.read.read(stream, read_at_, n)) return Read_Ended(Read_End::at_once);
    const std::uint32_t error = platform::last_error();
    if (error == platform::error_io_pending) return Await(signals);
    read_at_ = nullptr;
    return Read_Failed(*stream, error);
}

// The end of the buffer moves when the bytes held are dropped while a read is under way.
bool Stream_Reader::Take_In(platform::Transfer &read, std::size_t &moved)
{
    unsigned char *const at = std::exchange(read_at_, nullptr);
    if (!read.result(moved)) return false;
    Held();
    if (at != buffer_.End()) std::memmove(buffer_.End(), at, moved);
    buffer_.Add(moved);
    return true;
}

bool Stream_Reader::Await(const Signals &signals)
{
    switch (Wait_For(signals.stop, signals.read, signals.other)) {
    case Woken::by_stop: return Stop_Seen();
    case Woken::by_signal: return Read_Ended(Read_End::after_wait);
    case Woken::given_up: break;
    }
    return false;
}

// The stop comes first where both are signalled.
Stream_Reader::Woken Stream_Reader::Wait_For(platform::Event &stop, platform::Waitable &signal,
                                             platform::Waitable *other)
{
    if (kind_ == Kind::connection) silent_since_ = platform::clock_ms();
    for (bool goes_on = true; goes_on;) {
        Tick();
        switch (Wait(stop, signal, other)) {
        case 0: return Woken::by_stop;
        case 1: return Woken::by_signal;
        case platform::wait_timeout: goes_on = Silence(); break;
        default: goes_on = Wait_Failed(platform::last_error()); break;
        }
    }
    return Woken::given_up;
}

// Time-outs come once a second, however often the other signal wakes the reader in between.
int Stream_Reader::Wait(platform::Event &stop, platform::Waitable &signal, platform::Waitable *other)
{
    platform::Waitable *const waited_for[] = {&stop, &signal, other};
    const std::span<platform::Waitable *const> all(waited_for, other ? 3 : 2);
    const std::uint64_t end = platform::clock_ms() + wait_ms;
    for (;;) {
        const std::uint64_t now = platform::clock_ms();
        const int index = platform::wait_any(all, now < end ? static_cast<unsigned long>(end - now) : 0);
        if (index == 2 || index == platform::wait_timeout) Look_After_Other(index == 2);
        if (index != 2) return index;
    }
}

}  // namespace kernel
