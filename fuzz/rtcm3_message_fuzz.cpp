// Any bytes as messages, through every decoder and on to the epochs. Rtcm3_Payloads.h says how they become messages.
#include "fuzz/Require.h"
#include "fuzz/Rtcm3_Payloads.h"
#include "host/decoders/Rtcm3_Epoch.h"
#include "host/decoders/Rtcm3_Messages.h"

#include <cmath>
#include <cstdint>

namespace {

using namespace host;

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
    Rtcm3_Options options;
    options.beidou_in_gps_time = size % 2 == 0;
    if (size % 3 == 0) options.leap_seconds = 16;
    Rtcm3_Epoch_Assembler assembler(Check, options);
    Rtcm3_Message_Decoder decoder;
    std::uint64_t messages = 0;
    Each_Rtcm3_Payload({data, size}, [&](std::span<const unsigned char> bytes) {
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
    });
    assembler.Finish();
    std::uint64_t counted = 0;
    for (std::size_t i = 0; i < rtcm3_faults; ++i) counted += decoder.Count(static_cast<Rtcm3_Fault>(i));
    Require(counted == messages, "messages miscounted");
    return 0;
}
