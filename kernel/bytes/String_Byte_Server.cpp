#include "kernel/bytes/String_Byte_Server.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

namespace kernel {

namespace {

// The buffer of a formatted text stands on the caller's stack, so that a line of text allocates nothing.
constexpr std::size_t format_size = 5052;  // with the terminator

}  // namespace

const char String_Byte_Server::Name[] = "String_Byte_Server";

String_Byte_Server::String_Byte_Server(const char *name, long size, Error_Handler *handler) : Object(name, handler)
{
    // Not valid then; yet every operation stands a missing ring.
    if (size < 2) return;
    ring_.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(size)]());
    if (ring_) size_ = static_cast<std::size_t>(size);
}

String_Byte_Server::String_Byte_Server(long size, Error_Handler *handler)
    : String_Byte_Server(ClassName(), size, handler)
{
}

String_Byte_Server::~String_Byte_Server() = default;

String_Byte_Server *String_Byte_Server::Construct(long size, Error_Handler *handler)
{
    return Constructed([&] { return new String_Byte_Server(size, handler); });
}

bool String_Byte_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Server::IsInheritedFrom(name);
}

bool String_Byte_Server::IsValid() const { return ring_ && Client_Server::IsValid(); }

bool String_Byte_Server::Request(long n)
{
    // Bounded first: where long has 64 bits, a large request must not come out small or negative.
    requested_ = static_cast<std::int32_t>(std::clamp(n, 0L, long{std::numeric_limits<std::int32_t>::max()}));
    return Stored() >= static_cast<std::size_t>(requested_);
}

// Lets the client pull while its request can be met. False when it refused.
bool String_Byte_Server::Serve(long &available)
{
    // From inside the message the client may ask anew and give bytes back: request and stock are both looked at again.
    while (Is_Pending(available)) {
        // Also when there is no client any more: it may have had itself disconnected from inside its last answer.
        if (!Tell(Mesg_Data_Ready)) {
            requested_ = 0;
            return false;
        }
        available = MinAvail(0);
    }
    return true;
}

// True when the round goes on: the client has a request, or it has pulled from inside the invitation and may do so
// again. A client that moved nothing ends the round; it would be invited for ever.
bool String_Byte_Server::Invite()
{
    const std::size_t before = Stored();
    // A refusal counts even when the client has asked before it refused.
    if (!Tell(Mesg_Request_Invite)) requested_ = 0;
    return requested_ > 0 || (requested_ < 0 && Stored() < before);
}

bool String_Byte_Server::Work()
{
    if (!Get_Byte_Client()) return false;
    // What the last round left open is dropped: the client, invited again, says what it wants now.
    requested_ = 0;
    long available = MinAvail(0);
    while (available > 0 && available >= requested_) {
        if (!Invite()) return false;
        if (!Serve(available)) return false;
    }
    if (requested_ > available) Tell(Mesg_Status_40);
    return true;
}

// Unlike Work it invites with the ring empty, too: the answer is the request that the next call waits for.
bool String_Byte_Server::ContinueWork()
{
    long available = MinAvail(0);
    // Not yet: the client has had Mesg_Status_40 and does not get it again with every piece that comes.
    if (available < requested_) return true;
    for (;;) {
        if (!Get_Byte_Client()) return false;
        if (!Serve(available)) return false;
        if (!Invite()) return false;
        if (requested_ > available) {
            Tell(Mesg_Status_40);
            return true;
        }
    }
}

// Modulo 2^32: a client that never asks may pull for years.
void String_Byte_Server::Take(std::size_t n)
{
    requested_ = static_cast<std::int32_t>(static_cast<std::uint32_t>(requested_) - static_cast<std::uint32_t>(n));
}

unsigned short String_Byte_Server::GetByte()
{
    if (read_ == write_) return No_Byte;
    Take(1);
    const unsigned char byte = ring_[read_];
    read_ = Next(read_);
    return byte;
}

// Part of the interface: the request stays as it is, unlike that of the transports. So a byte that is given back and
// pulled again is taken off the request twice.
unsigned short String_Byte_Server::UnGetByte(unsigned char byte)
{
    if (!ring_) return No_Byte;
    const std::size_t before = (read_ == 0 ? size_ : read_) - 1;
    if (before == write_) return No_Byte;  // full
    read_ = before;
    ring_[read_] = byte;
    return byte;
}

long String_Byte_Server::GetNBytes(unsigned char *buffer, long n)
{
    if (!buffer || n <= 0 || read_ == write_) return 0;
    const std::size_t take = std::min(static_cast<std::size_t>(n), Stored());
    const std::size_t head = std::min(take, size_ - read_);  // up to the ring's end; the rest stands at its start
    std::memcpy(buffer, &ring_[read_], head);
    if (head < take) std::memcpy(buffer + head, &ring_[0], take - head);
    read_ = head == take ? read_ + take : take - head;
    if (read_ == size_) read_ = 0;
    Rewind_Empty();
    Take(take);
    return static_cast<long>(take);
}

long String_Byte_Server::MinAvail(long)
{
    Rewind_Empty();
    return static_cast<long>(Stored());
}

unsigned short String_Byte_Server::Put(unsigned char byte)
{
    if (!ring_ || Next(write_) == read_) return No_Byte;
    ring_[write_] = byte;
    write_ = Next(write_);
    return byte;
}

// Takes what GetByte answers as it is: the end mark adds nothing.
unsigned short String_Byte_Server::Put(unsigned short value)
{
    return value == No_Byte ? No_Byte : Put(static_cast<unsigned char>(value & 0xFF));
}

bool String_Byte_Server::PutStr(const unsigned char *text)
{
    return text && PutBin(text, static_cast<unsigned int>(std::strlen(reinterpret_cast<const char *>(text))));
}

bool String_Byte_Server::PutBin(const unsigned char *bytes, unsigned int n)
{
    if (!bytes || n == 0) return true;
    const std::size_t room = ring_ ? size_ - 1 - Stored() : 0;
    const std::size_t take = std::min(std::size_t{n}, room);
    if (take > 0) {
        const std::size_t head = std::min(take, size_ - write_);
        std::memcpy(&ring_[write_], bytes, head);
        if (head < take) std::memcpy(&ring_[0], bytes + head, take - head);
        write_ = head == take ? write_ + take : take - head;
        if (write_ == size_) write_ = 0;
    }
    return take == n;
}

bool String_Byte_Server::PutWordIntel(unsigned short word)
{
    const unsigned char bytes[] = {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8)};
    return PutBin(bytes, 2);
}

bool String_Byte_Server::PutWordMotorola(unsigned short word)
{
    const unsigned char bytes[] = {static_cast<unsigned char>(word >> 8), static_cast<unsigned char>(word)};
    return PutBin(bytes, 2);
}

bool String_Byte_Server::PutDWordIntel(unsigned long word)
{
    return PutWordIntel(static_cast<unsigned short>(word)) && PutWordIntel(static_cast<unsigned short>(word >> 16));
}

bool String_Byte_Server::PutDWordMotorola(unsigned long word)
{
    return PutWordMotorola(static_cast<unsigned short>(word >> 16)) &&
           PutWordMotorola(static_cast<unsigned short>(word));
}

bool String_Byte_Server::Put(const char *format, ...)
{
    if (!format) return false;
    char text[format_size];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return length >= 0 && PutStr(text);
}

// A pending request outlives this and waits for what is put next.
void String_Byte_Server::Clear() { read_ = write_ = 0; }

}  // namespace kernel
