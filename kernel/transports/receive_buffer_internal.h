// Received bytes until the client has taken them, with room in front for those that it gives back. Not installed.
#pragma once

#include <array>
#include <cstddef>

namespace kernel {

// Bytes [read, write) of a block of 16 + 4096 + 16 are held. Both positions are 16 when it is empty, so that a client
// can give back up to 16 bytes more than it took.
//
// Threads:   one, the reader; the client pulls on it, too.
// Ownership: copies in and out.
// Errors:    none; short counts.
class Receive_Buffer {
public:
    static constexpr std::size_t most = 4096;  // held after a receive

    std::size_t Held() const { return write_ - read_; }
    std::size_t Take(unsigned char *to, std::size_t n);  // the number moved
    bool Put_Back(unsigned char byte);                   // false: no room in front
    void Drop() { read_ = write_ = margin; }

    // A receive: Compact, then at most Room() bytes go to End(), then Add tells how many came.
    void Compact();
    unsigned char *End() { return bytes_.data() + write_; }
    std::size_t Room() const { return Held() < most ? most - Held() : 0; }
    void Add(std::size_t n) { write_ += n; }

private:
    static constexpr std::size_t margin = 16;

    std::array<unsigned char, margin + most + margin> bytes_{};
    std::size_t read_ = margin, write_ = margin;
};

}  // namespace kernel
