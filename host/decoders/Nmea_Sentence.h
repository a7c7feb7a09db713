// NMEA 0183: finds the sentences in a byte stream, and reads those that say where and when: GGA and RMC.
//
// A sentence: '$', a body of printable characters, '*', two hexadecimal digits, CR LF. The digits are the exclusive or
// of the body's bytes. The body is fields with commas between them. The first one is two letters for the talker and
// three for the kind of sentence.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace host {

// Threads:   one at a time; the sink runs inside Feed and must not call it.
// Ownership: copies at most one incomplete sentence; allocates nothing after construction. A body is valid during the
//            call of the sink.
// Errors:    counted; an exception of the sink passes through.
class Nmea_Scanner {
public:
    // The standard allows 82 [bytes], '$' and line end included; many receivers send longer ones.
    static constexpr std::size_t longest_body = 250;

    struct Counters {
        std::uint64_t sentences = 0;  // intact
        std::uint64_t refused = 0;    // cut short, too long, or without a good checksum
    };

    explicit Nmea_Scanner(std::function<void(std::string_view body)> sink);
    Nmea_Scanner(const Nmea_Scanner &) = delete;
    Nmea_Scanner &operator=(const Nmea_Scanner &) = delete;

    // The next piece of the stream, of any size. Bytes between sentences are skipped.
    void Feed(std::span<const unsigned char> piece);
    // The stream has ended: a sentence that needs only its line end counts. The next stream starts anew.
    void Finish();

    const Counters &Count() const { return count_; }

private:
    void Take(char c);
    void End_Sentence();
    void Refuse();

    const std::function<void(std::string_view)> sink_;
    std::string sentence_;  // behind '$'
    bool is_inside_ = false;
    Counters count_;
};

// A position as GGA says it.
struct Nmea_Fix {
    double time_of_day = 0;  // [s] UTC
    double latitude = 0;     // [rad] WGS-84, north
    double longitude = 0;    // [rad] WGS-84, east
    double height = 0;       // [m] above the ellipsoid: the sentence's altitude and geoid separation
    int quality = 0;         // 1 to 8: single, differential, precise, fixed, float, estimated, by hand, simulated
    std::optional<int> satellites;  // used
    std::optional<double> hdop;     // [1]
};
// None for another sentence, for one without a position (quality 0), and for one that misses a value or has a bad one.
std::optional<Nmea_Fix> Read_Gga(std::string_view body);

// The time that RMC says: [s] since 1980-01-06 00:00 of a clock that follows UTC, as of kernel/time/mTime.h. None for
// another sentence, for one that the receiver marks as void, and for a bad date or time. Years are 1980 to 2079.
std::optional<double> Read_Rmc(std::string_view body);

}  // namespace host
