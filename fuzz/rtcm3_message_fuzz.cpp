// Any bytes as messages, through every decoder and on to the epochs. Each message: two bytes of length, then the
// payload; a length with its highest bit set also puts one of the known message numbers in front.
#include "host/decoders/Rtcm3_Epoch.h"
#include "host/decoders/Rtcm3_Messages.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

using namespace host;

constexpr unsigned int numbers[] = {1002, 1004, 1005, 1006, 1007, 1008, 1010, 1012, 1013, 1019, 1020,
                                    1033, 1074, 1075, 1076, 1077, 1084, 1085, 1086, 1087, 1094, 1095,
                                    1096, 1097, 1114, 1115, 1116, 1117, 1124, 1125, 1126, 1127};

void Require(bool holds, const char *what)
{
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

void Check_Cells(std::span<const Rtcm3_Cell> cells, std::size_t satellites)
{
    for (const Rtcm3_Cell &cell : cells) {
        Require(cell.satellite < satellites, "a cell of no satellite");
        Require(!Has_Value(cell.pseudorange) || std::abs(cell.pseudorange) < 8e7, "a pseudorange out of its fields");
        Require(!Has_Value(cell.phase_range) || std::abs(cell.phase_range) < 8e7, "a phase range out of its fields");
        Require(!Has_Value(cell.range_rate) || std::abs(cell.range_rate) < 8195, "a rate out of its fields");
        Require(!Has_Value(cell.cn0) || (cell.cn0 > 0 && cell.cn0 < 64), "a C/N0 out of its field");
        Require(cell.lock_time >= 0, "a lock time below 0");
    }
}

void Check(const Rtcm3_Epoch &epoch)
{
    Require(epoch.tow >= 0 && epoch.tow < ms_per_week, "no time of week");
    Require(!epoch.cells.empty() && epoch.satellites.size() < 256, "an epoch of no size");
    Check_Cells(epoch.cells, epoch.satellites.size());
}

// Each decoder for itself, also with what is not its message: on a fault there is nothing.
template <class T>
void Check_Decoder(std::span<const unsigned char> payload, Rtcm3_Fault wanted)
{
    T out;
    const Rtcm3_Fault fault = Decode(payload, out);
    Require(fault == wanted || fault == Rtcm3_Fault::unsupported, "the same message, another fault");
    if constexpr (std::is_same_v<T, Rtcm3_Observations>) {
        Require(out.satellite_count <= out.most && out.cell_count <= out.most, "more than fits");
        Require(fault == Rtcm3_Fault::none || out.satellite_count + out.cell_count == 0, "a part delivered");
        Check_Cells(out.cells(), out.satellite_count);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::span<const unsigned char> rest(data, size);
    Rtcm3_Options options;
    options.beidou_in_gps_time = size % 2 == 0;
    if (size % 3 == 0) options.leap_seconds = 16;
    Rtcm3_Epoch_Assembler assembler(Check, options);
    Rtcm3_Message_Decoder decoder;
    std::uint64_t messages = 0;
    while (rest.size() >= 2) {
        const bool named = rest[0] >= 0x80;
        const std::size_t length = std::min<std::size_t>((rest[0] & 3u) << 8 | rest[1], rest.size() - 2);
        // A block of its own, so that a read behind the end is seen.
        const auto payload = std::make_unique<unsigned char[]>(length);
        std::copy_n(rest.begin() + 2, length, payload.get());
        if (named && length >= 2) {
            const unsigned int number = numbers[(rest[0] >> 2) % 32];
            payload[0] = static_cast<unsigned char>(number >> 4);
            payload[1] = static_cast<unsigned char>((number & 15) << 4 | (payload[1] & 15));
        }
        rest = rest.subspan(2 + length);

        const std::span<const unsigned char> bytes(payload.get(), length);
        const Rtcm3_Message *message = decoder.Decode(bytes);
        const Rtcm3_Fault fault = decoder.Last_Fault();
        Require((message != nullptr) == (fault == Rtcm3_Fault::none), "an answer that does not fit its fault");
        Check_Decoder<Rtcm3_Observations>(bytes, fault);
        Check_Decoder<Rtcm3_Station>(bytes, fault);
        Check_Decoder<Rtcm3_Equipment>(bytes, fault);
        Check_Decoder<Rtcm3_System_Parameters>(bytes, fault);
        Check_Decoder<Rtcm3_Gps_Ephemeris>(bytes, fault);
        Check_Decoder<Rtcm3_Glonass_Ephemeris>(bytes, fault);
        if (message) assembler.Take(*message);
        ++messages;
    }
    assembler.Finish();
    std::uint64_t counted = 0;
    for (std::size_t i = 0; i < rtcm3_faults; ++i) counted += decoder.Count(static_cast<Rtcm3_Fault>(i));
    Require(counted == messages, "messages miscounted");
    return 0;
}
