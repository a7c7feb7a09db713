// Puts the observation messages of a stream together to epochs, and dates them.
#pragma once

#include "host/decoders/Rtcm3_Clock.h"
#include "host/decoders/Rtcm3_Messages.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace host {

// All that was observed at one time; valid during the call of the sink only.
struct Rtcm3_Epoch {
    std::optional<int> week;  // GPS, in full; none while nothing in the stream has told it
    std::int32_t tow = 0;     // [ms] GPS time of week
    std::uint16_t station = 0;
    bool complete = false;   // its last message said that none follows; else the next epoch or the end closed it
    bool went_back = false;  // earlier than the epoch before
    // Of the epoch's first message, as Rtcm3_Observations has them.
    std::uint8_t issue_of_station = 0, clock_steering = 0, smoothing_interval = 0;
    bool divergence_free = false;
    std::span<const Rtcm3_Satellite>
        satellites;                     // each once; one without cells had none, or had them in an earlier part
    std::span<const Rtcm3_Cell> cells;  // their `satellite` counts in `satellites`
};

// An epoch ends with a message that says that none follows, with a message of another time or station, or with Finish. A
// signal that comes again in an epoch (a frame sent twice) is dropped, also right after the epoch's end; a new one then
// makes a further part of the same time.
//
// Times and weeks are those of Rtcm3_Clock. A GLONASS time is dated by its day of week; a legacy one, which has none, by
// the epoch before it.
//
// Threads:   one at a time; the sink runs inside Take and Finish and must not call them.
// Ownership: keeps copies; allocates only while an epoch is larger than all before.
// Errors:    none; what is dropped is counted.
class Rtcm3_Epoch_Assembler {
public:
    using Sink = std::function<void(const Rtcm3_Epoch &)>;

    struct Counters {
        std::uint64_t epochs = 0;          // handed on
        std::uint64_t incomplete = 0;      // of these, closed by something else than their last message
        std::uint64_t repeated_cells = 0;  // dropped
        std::uint64_t undated = 0;         // GLONASS messages dropped, as there was nothing to date them by
        std::uint64_t went_back = 0;       // steps back in time
    };

    explicit Rtcm3_Epoch_Assembler(Sink sink, const Rtcm3_Options &options = {});
    Rtcm3_Epoch_Assembler(const Rtcm3_Epoch_Assembler &) = delete;
    Rtcm3_Epoch_Assembler &operator=(const Rtcm3_Epoch_Assembler &) = delete;

    // Messages of other kinds are ignored.
    void Take(const Rtcm3_Message &message);
    // The stream has ended: hands on what is open.
    void Finish() { Close(false); }

    const Counters &Count() const { return count_; }
    const Rtcm3_Clock &Clock() const { return clock_; }

private:
    void Add(const Rtcm3_Observations &observations);
    void Add(const Rtcm3_Gps_Ephemeris &ephemeris) { clock_.Hear(ephemeris); }
    void Add(const Rtcm3_Glonass_Ephemeris &ephemeris);
    void Add(const Rtcm3_System_Parameters &parameters) { clock_.Hear(parameters); }
    template <class T>
    void Add(const T &)
    {
    }

    void Open(std::int32_t tow, const Rtcm3_Observations &first);
    void Close(bool complete);
    void Merge(const Rtcm3_Observations &observations);
    std::uint8_t Index_Of(Rtcm3_Satellite satellite);
    bool Is_There(const Rtcm3_Cell &cell) const;

    Sink sink_;
    Rtcm3_Clock clock_;
    Counters count_;
    bool open_ = false;  // messages of the epoch may follow
    Rtcm3_Epoch epoch_;  // the last one, but for its week, satellites and cells
    std::vector<Rtcm3_Satellite> satellites_;
    std::vector<Rtcm3_Cell> cells_;
    std::size_t delivered_ = 0;  // cells handed on in earlier parts

    std::array<std::optional<std::int8_t>, 25> glonass_channels_{};  // by slot; for MSM4 and MSM6
};

}  // namespace host
