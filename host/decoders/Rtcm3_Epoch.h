// Assembles the observation messages of a stream into epochs, and dates them.
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

// All observations of one time; valid only during the call of the sink.
struct Rtcm3_Epoch {
    std::optional<int> week;  // GPS, in full; none until the stream has shown it
    std::int32_t tow = 0;     // [ms] GPS time of week
    std::uint16_t station = 0;
    bool complete = false;   // its last message has arrived; else the next epoch or the end has closed it
    bool went_back = false;  // earlier than the previous epoch
    // From the epoch's first message, see Rtcm3_Observations.
    std::uint8_t issue_of_station = 0, clock_steering = 0, smoothing_interval = 0;
    bool divergence_free = false;
    // Each satellite once. One without cells had none, or had them in an earlier part of the epoch.
    std::span<const Rtcm3_Satellite> satellites;
    std::span<const Rtcm3_Cell> cells;  // their member `satellite` is an index into `satellites`
};

// An epoch ends with a message marked as its last one, with a message of another time or station, or with Finish. A
// repeated signal in an epoch (a frame sent twice) is dropped, also right after the epoch's end. A new signal after the
// end makes a further part with the same time.
//
// Times and weeks are those of Rtcm3_Clock. A GLONASS time is dated by its day of week. A legacy GLONASS message has no
// day and is dated by the previous epoch.
//
// Threads:   one at a time; the sink runs inside Take and Finish and must not call them.
// Ownership: keeps copies; allocates only when an epoch is larger than all earlier ones.
// Errors:    none; dropped messages and cells are counted.
class Rtcm3_Epoch_Assembler {
public:
    using Sink = std::function<void(const Rtcm3_Epoch &)>;

    struct Counters {
        std::uint64_t epochs = 0;          // handed on
        std::uint64_t incomplete = 0;      // of these, closed without their last message
        std::uint64_t repeated_cells = 0;  // dropped
        std::uint64_t undated = 0;         // GLONASS messages dropped, because nothing gave their date
        std::uint64_t went_back = 0;       // steps back in time
    };

    explicit Rtcm3_Epoch_Assembler(Sink sink, const Rtcm3_Options &options = {});
    Rtcm3_Epoch_Assembler(const Rtcm3_Epoch_Assembler &) = delete;
    Rtcm3_Epoch_Assembler &operator=(const Rtcm3_Epoch_Assembler &) = delete;

    // Messages of other kinds are ignored.
    void Take(const Rtcm3_Message &message);
    // Call at the end of the stream: hands on the open epoch.
    void Finish() { Close(Ending::early); }

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
    // last_message: the epoch's last message has arrived; early: another epoch or the end of the stream closes it.
    enum class Ending : unsigned char { last_message, early };
    void Close(Ending ending);
    void Merge(const Rtcm3_Observations &observations);
    std::uint8_t Index_Of(Rtcm3_Satellite satellite);
    bool Is_There(const Rtcm3_Cell &cell) const;

    Sink sink_;
    Rtcm3_Clock clock_;
    Counters count_;
    bool open_ = false;  // messages of the epoch may follow
    Rtcm3_Epoch epoch_;  // the last one, without its week, satellites and cells
    std::vector<Rtcm3_Satellite> satellites_;
    std::vector<Rtcm3_Cell> cells_;
    std::size_t delivered_ = 0;  // cells handed on in earlier parts

    std::array<std::optional<std::int8_t>, 25> glonass_channels_{};  // by slot; for MSM4 and MSM6
};

}  // namespace host
