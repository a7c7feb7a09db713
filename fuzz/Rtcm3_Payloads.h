// Cuts any bytes into payloads of RTCM 3 messages.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>

// Each message in `rest` has two bytes of length and then its payload. If the highest bit of the length is set, one of
// the known message numbers replaces the first bits of the payload. Calls use(payload) for each.
template <class Use>
void Each_Rtcm3_Payload(std::span<const unsigned char> rest, Use use)
{
    static constexpr unsigned int numbers[] = {1002, 1004, 1005, 1006, 1007, 1008, 1010, 1012, 1013, 1019, 1020,
                                               1033, 1074, 1075, 1076, 1077, 1084, 1085, 1086, 1087, 1094, 1095,
                                               1096, 1097, 1114, 1115, 1116, 1117, 1124, 1125, 1126, 1127};
    while (rest.size() >= 2) {
        const bool named = rest[0] >= 0x80;
        const std::size_t length = std::min<std::size_t>((rest[0] & 3u) << 8 | rest[1], rest.size() - 2);
        // A block of its own, so that a sanitizer sees a read beyond the end.
        const auto payload = std::make_unique<unsigned char[]>(length);
        std::copy_n(rest.begin() + 2, length, payload.get());
        if (named && length >= 2) {
            const unsigned int number = numbers[(rest[0] >> 2) % std::size(numbers)];
            payload[0] = static_cast<unsigned char>(number >> 4);
            payload[1] = static_cast<unsigned char>((number & 15) << 4 | (payload[1] & 15));
        }
        rest = rest.subspan(2 + length);
        use(std::span<const unsigned char>(payload.get(), length));
    }
}
