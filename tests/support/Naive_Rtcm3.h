// The slow and obvious way to find RTCM 3 frames: the whole stream at once, the CRC bit by bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

struct Naive_Frame {
    std::uint64_t offset;
    std::size_t size;
    unsigned int message;

    bool operator==(const Naive_Frame &) const = default;
};

inline std::uint32_t Naive_Crc24q(std::span<const unsigned char> bytes)
{
    std::uint32_t crc = 0;
    for (const unsigned char byte : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            const bool high = (crc >> 23 & 1) != (static_cast<std::uint32_t>(byte) >> bit & 1);
            crc = (crc << 1 & 0xFFFFFF) ^ (high ? 0x864CFB : 0);
        }
    }
    return crc;
}

// A payload of at most 1023 bytes as a frame.
inline std::vector<unsigned char> Naive_Framed(const std::vector<unsigned char> &payload)
{
    std::vector<unsigned char> frame = {0xD3, static_cast<unsigned char>(payload.size() >> 8),
                                        static_cast<unsigned char>(payload.size())};
    for (const unsigned char byte : payload) frame.push_back(byte);
    const std::uint32_t crc = Naive_Crc24q(frame);
    for (int shift = 16; shift >= 0; shift -= 8) frame.push_back(static_cast<unsigned char>(crc >> shift));
    return frame;
}

inline std::vector<Naive_Frame> Naive_Frames(std::span<const unsigned char> bytes)
{
    std::vector<Naive_Frame> frames;
    for (std::size_t at = 0; at + 6 <= bytes.size();) {
        const std::size_t length = static_cast<std::size_t>(bytes[at + 1]) * 256 + bytes[at + 2];  // reserved bits, too
        const std::size_t size = length + 6;
        if (bytes[at] == 0xD3 && length < 1024 && size <= bytes.size() - at &&
            Naive_Crc24q(bytes.subspan(at, size)) == 0) {
            frames.push_back({at, size, length < 2 ? 0U : (bytes[at + 3] * 256U + bytes[at + 4]) / 16U});
            at += size;
        } else {
            ++at;
        }
    }
    return frames;
}
