// The content of RTCM 3 messages as plain values, after the message tables of RTCM 10403.3 (DFnnn: its data fields).
//
//   1002, 1004, 1010, 1012         GPS and GLONASS observations    -> Rtcm3_Observations
//   1074..1077, 1084..1087,
//   1094..1097, 1114..1117,
//   1124..1127                     MSM4 to MSM7                    -> Rtcm3_Observations
//   1005, 1006                     antenna reference point         -> Rtcm3_Station
//   1007, 1008, 1033               antenna and receiver            -> Rtcm3_Equipment
//   1013                           system parameters               -> Rtcm3_System_Parameters
//   1019, 1020                     GPS and GLONASS ephemerides     -> Rtcm3_Gps_Ephemeris, Rtcm3_Glonass_Ephemeris
//
// Distances are in metres, angles in radians, times in the unit stated at each. A double without a value is NaN (see
// Has_Value). Other values that may be absent are std::optional, or their comment gives the value that means "absent".
#pragma once

#include "kernel/time/Gps_Time.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>
#include <variant>

namespace host {

constexpr double speed_of_light = 299792458.0;  // [m/s]
constexpr double gps_pi = 3.1415926535898;      // of IS-GPS-200, for semicircles
constexpr auto ms_per_day = static_cast<std::int32_t>(kernel::Seconds_Per_Day * 1000);    // [ms]
constexpr auto ms_per_week = static_cast<std::int32_t>(kernel::Seconds_Per_Week * 1000);  // [ms]

constexpr std::int32_t no_lock_limit = std::numeric_limits<std::int32_t>::max();  // [ms] for the last indicator
constexpr double no_value = std::numeric_limits<double>::quiet_NaN();
inline bool Has_Value(double value) { return !std::isnan(value); }

// Why a message was refused. Rtcm3_Fault_Name gives the names.
enum class Rtcm3_Fault : unsigned char {
    none,
    unsupported,         // no decoder for this message number, or not the one asked for
    too_short,           // the payload ends before the fields that its header announces
    bad_time,            // a time of week or day out of its range
    bad_satellite,       // a satellite number that is reserved
    bad_channel,         // a GLONASS frequency channel that is reserved
    repeated_satellite,  // twice in one message
    too_many_cells,      // satellites times signals of an MSM above 64
    bad_text,            // a descriptor longer than 31 characters
};
constexpr std::size_t rtcm3_faults = 9;
const char *Rtcm3_Fault_Name(Rtcm3_Fault fault);

// The letters of RINEX 3.
enum class Gnss : char { gps = 'G', glonass = 'R', galileo = 'E', qzss = 'J', beidou = 'C', sbas = 'S' };

// Band and attribute of a RINEX 3 observation code, such as "1C"; empty for a reserved signal. The legacy messages give
// only a kind of code: for them 2X stands for a civil code on L2, 2D for a cross-correlated P(Y) and 2W for a
// correlated one.
struct Signal_Code {
    char band = 0, attribute = 0;

    bool operator==(const Signal_Code &) const = default;
    explicit operator bool() const { return band != 0; }
};

// [Hz]; no_value for an unknown code, or for GLONASS (FDMA) without a channel.
double Carrier_Frequency(Gnss gnss, Signal_Code code, std::optional<int> glonass_channel);

struct Rtcm3_Satellite {
    Gnss gnss = Gnss::gps;
    // GPS: PRN 1 to 32. SBAS: PRN 120 to 138. GLONASS: slot 1 to 24; 0: unknown (legacy messages only).
    // Galileo: 1 to 52. QZSS: PRN 193 to 202. BeiDou: 1 to 63. DF009, DF038, DF394
    std::uint8_t number = 0;
    std::optional<std::int8_t> glonass_channel;  // -7 to 13; DF040, DF419; none in MSM4 and MSM6
};

// One signal of one satellite.
struct Rtcm3_Cell {
    std::uint8_t satellite = 0;        // index of its satellite
    Signal_Code code;                  // DF010, DF016, DF039, DF046, DF395
    std::uint8_t msm_signal = 0;       // 1 to 32, DF395; 0 in legacy messages
    bool half_cycle = false;           // DF420: the phase may be off by half a cycle; false in legacy messages
    std::uint16_t lock_indicator = 0;  // as sent, in its message's own scale: DF013, DF019, DF043, DF049, DF402, DF407
    std::int32_t lock_time = 0;        // [ms] at least this long without a slip, by the indicator; 0: not known
    std::int32_t lock_below = no_lock_limit;  // [ms] and shorter than this, where the next indicator begins
    double frequency = no_value;              // [Hz] of the carrier
    double pseudorange = no_value;  // [m]; DF011+DF014 (+DF017), DF041+DF044 (+DF047), DF397+DF398+DF400 or DF405
    // [m] phase range, growing with the pseudorange; the ambiguity is arbitrary but constant without slips. In legacy
    // messages it also jumps by 1500 cycles where its distance to the pseudorange would leave the field.
    double phase_range = no_value;  // DF012, DF018, DF042, DF048, DF397+DF398+DF401 or DF406
    double range_rate = no_value;   // [m/s], positive when the distance grows; DF399+DF404; MSM5 and MSM7 only
    double cn0 = no_value;          // [dB-Hz]; DF015, DF020, DF045, DF050, DF403, DF408

    double Phase_Cycles() const { return phase_range * (frequency / speed_of_light); }  // [cycles]
    double Doppler() const { return -range_rate * (frequency / speed_of_light); }       // [Hz]
};

// The observations of one system at one time. The tables have a fixed size, some 5 KB, so that decoding does not
// allocate.
struct Rtcm3_Observations {
    static constexpr std::size_t most = 64;  // satellites, and cells

    std::uint16_t message = 0;  // DF002
    std::uint16_t station = 0;  // DF003
    Gnss gnss = Gnss::gps;      // of the message; a legacy GPS message may hold SBAS satellites
    // [ms] in the system's own time. GLONASS: of the day, UTC + 3 h, to 86 400 999 in a leap second. Else: of the week.
    std::uint32_t time = 0;                   // DF004, DF034, DF248, DF427, DF428
    std::optional<std::uint8_t> glonass_day;  // 0: Sunday; in UTC + 3 h; GLONASS MSM only; none when unknown (7). DF416
    bool more_follows = false;                // further messages of this epoch come; DF005, DF393
    std::uint8_t issue_of_station = 0;        // DF409; 0 in legacy messages
    std::uint8_t clock_steering = 2;          // DF411: 0 no, 1 yes, 2 unknown; 2 in legacy messages
    std::uint8_t external_clock = 3;      // DF412: 0 internal, 1 locked, 2 not locked, 3 unknown; 3 in legacy messages
    bool divergence_free = false;         // kind of carrier smoothing; DF007, DF036, DF417
    std::uint8_t smoothing_interval = 0;  // indicator, 0: no smoothing, 7: unlimited; DF008, DF037, DF418

    std::size_t satellite_count = 0, cell_count = 0;
    std::array<Rtcm3_Satellite, most> satellite_table;
    std::array<Rtcm3_Cell, most> cell_table;  // in the order of the satellites

    std::span<const Rtcm3_Satellite> satellites() const { return std::span(satellite_table).first(satellite_count); }
    std::span<const Rtcm3_Cell> cells() const { return std::span(cell_table).first(cell_count); }
};

// Where the antenna reference point is: 1005, 1006.
struct Rtcm3_Station {
    std::uint16_t message = 0;
    std::uint16_t station = 0;         // DF003
    std::uint8_t itrf_year = 0;        // DF021, reserved
    bool gps = false;                  // service indicators: DF022
    bool glonass = false;              // DF023
    bool galileo = false;              // DF024
    bool virtual_station = false;      // DF141: computed, no physical station
    bool single_oscillator = false;    // DF142: all observations at the same instant
    std::uint8_t quarter_cycle = 0;    // DF364: 0 unknown, 1 corrected, 2 not corrected
    double x = 0, y = 0, z = 0;        // [m] ECEF; DF025, DF026, DF027
    double antenna_height = no_value;  // [m] reference point above the marker; DF028; 1006 only
};

// Up to 31 bytes, as sent (ISO 8859-1; they may be unprintable).
struct Rtcm3_Text {
    std::array<char, 31> bytes{};
    std::uint8_t size = 0;

    std::string_view View() const { return {bytes.data(), size}; }
};

// The equipment of the station: 1007, 1008, 1033. Texts that the message does not have are empty.
struct Rtcm3_Equipment {
    std::uint16_t message = 0;
    std::uint16_t station = 0;   // DF003
    Rtcm3_Text antenna;          // DF029, DF030
    std::uint8_t setup = 0;      // DF031; 0: use the standard antenna model
    Rtcm3_Text antenna_serial;   // DF032, DF033; 1008, 1033
    Rtcm3_Text receiver;         // DF227, DF228; 1033
    Rtcm3_Text firmware;         // DF229, DF230; 1033
    Rtcm3_Text receiver_serial;  // DF231, DF232; 1033
};

// 1013, without its list of announced messages.
struct Rtcm3_System_Parameters {
    std::uint16_t station = 0;        // DF003
    std::uint16_t mjd = 0;            // [days] DF051
    std::uint32_t second_of_day = 0;  // [s] UTC; DF052
    std::uint8_t leap_seconds = 0;    // [s] GPS - UTC; DF054
};

// 1019. The terms are those of IS-GPS-200.
struct Rtcm3_Gps_Ephemeris {
    std::uint8_t prn = 0;        // 1 to 32; DF009
    std::uint16_t week = 0;      // modulo 1024; DF076. See Full_Week
    std::uint8_t ura = 0;        // index; DF077
    std::uint8_t l2_code = 0;    // 1: P, 2: C/A, 3: L2C; DF078
    std::uint8_t iode = 0;       // DF071
    std::uint16_t iodc = 0;      // DF085
    std::uint8_t health = 0;     // 6 bits, 0: healthy; DF102
    bool l2p_no_data = false;    // DF103: no navigation data on L2 P
    bool long_fit = false;       // DF137: fit interval above 4 hours
    double toc = 0;              // [s] of week; DF081
    double af0 = 0;              // [s] DF084
    double af1 = 0;              // [s/s] DF083
    double af2 = 0;              // [s/s^2] DF082
    double tgd = 0;              // [s] DF101
    double toe = 0;              // [s] of week; DF093
    double semi_major_axis = 0;  // [m] the square of DF092
    double e = 0;                // DF090
    double m0 = 0;               // [rad] DF088
    double delta_n = 0;          // [rad/s] DF087
    double omega0 = 0;           // [rad] DF095
    double omega_dot = 0;        // [rad/s] DF100
    double i0 = 0;               // [rad] DF097
    double i_dot = 0;            // [rad/s] DF079
    double omega = 0;            // [rad] DF099
    double crs = 0, crc = 0;     // [m] DF086, DF098
    double cus = 0, cuc = 0;     // [rad] DF091, DF089
    double cis = 0, cic = 0;     // [rad] DF096, DF094
};

// 1020. The terms are those of the GLONASS interface document; times are UTC + 3 h.
struct Rtcm3_Glonass_Ephemeris {
    std::uint8_t slot = 0;                 // 1 to 24; DF038
    std::int8_t channel = 0;               // -7 to 13; DF040
    bool almanac_health = false;           // C_n, 1: healthy; DF104
    bool almanac_health_known = false;     // DF105
    std::uint8_t p1 = 0;                   // between two t_b: 0: none, 1: 30 min, 2: 45 min, 3: 60 min; DF106
    std::int32_t tk = 0;                   // [s] of day: start of the frame, to 30 s; DF107
    bool bn_msb = false;                   // unhealthy; DF108
    bool p2 = false;                       // t_b is an odd number of intervals; DF109
    std::int32_t tb = 0;                   // [s] of day: reference time; DF110
    std::array<double, 3> position{};      // [m] PZ-90, x y z; DF112, DF115, DF118
    std::array<double, 3> velocity{};      // [m/s] DF111, DF114, DF117
    std::array<double, 3> acceleration{};  // [m/s^2] of sun and moon; DF113, DF116, DF119
    bool p3 = false;                       // five satellites of almanac in this frame; DF120
    double gamma = 0;                      // relative frequency offset; DF121
    std::uint8_t p = 0;                    // GLONASS-M: source of the clock data; DF122
    bool ln_third = false;                 // GLONASS-M: unhealthy, third string; DF123
    double tau = 0;                        // [s] satellite to system time; DF124
    double delta_tau = 0;                  // [s] GLONASS-M: L2 against L1; DF125
    std::uint8_t en = 0;                   // [days] age of the data; DF126
    bool p4 = false;                       // GLONASS-M: updated; DF127
    std::uint8_t ft = 0;                   // GLONASS-M: accuracy, index; DF128
    std::uint16_t nt = 0;                  // [days] 1 to 1461 from the start of a leap year; 0: unknown; DF129
    std::uint8_t m = 0;                    // 1: GLONASS-M; DF130
    bool additional = false;               // the five fields below are valid; DF131
    std::uint16_t na = 0;                  // [days] of tau_c, as nt; DF132
    double tau_c = 0;                      // [s] system time to UTC(SU); DF133
    std::uint8_t n4 = 0;                   // four-year interval from 1996, 1: the first; DF134
    double tau_gps = 0;                    // [s] DF135
    bool ln_fifth = false;                 // GLONASS-M: unhealthy, fifth string; DF136
};

// Decode one message. The payload is the frame without header and CRC. Bytes after the last field are ignored, because
// later versions of a message may have them. After a fault observations have no satellites and cells; all other kinds
// of `out` are unchanged.
//
// Any thread may call them for its own `out`. They allocate nothing and keep nothing.
Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Observations &out);
Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Station &out);
Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Equipment &out);
Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_System_Parameters &out);
Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Gps_Ephemeris &out);
Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Glonass_Ephemeris &out);

using Rtcm3_Message = std::variant<Rtcm3_Observations, Rtcm3_Station, Rtcm3_Equipment, Rtcm3_System_Parameters,
                                   Rtcm3_Gps_Ephemeris, Rtcm3_Glonass_Ephemeris>;

// Chooses the decoder by the message number, and counts the results.
//
// Threads:   one at a time.
// Ownership: owns the message that Decode returns; it is valid until the next Decode.
// Errors:    Decode returns null; Last_Fault gives the reason, which is counted.
class Rtcm3_Message_Decoder {
public:
    // Null on a fault.
    const Rtcm3_Message *Decode(std::span<const unsigned char> payload);

    Rtcm3_Fault Last_Fault() const { return last_; }
    // The number of messages with this result; `none` counts the decoded ones.
    std::uint64_t Count(Rtcm3_Fault fault) const { return counts_[static_cast<std::size_t>(fault)]; }

private:
    Rtcm3_Message message_;
    Rtcm3_Fault last_ = Rtcm3_Fault::none;
    std::array<std::uint64_t, rtcm3_faults> counts_{};
};

// The GPS week that ends in these ten bits and lies nearest to `near`, 512 weeks before to 511 after it.
int Full_Week(unsigned int ten_bits, int near);

// [ms] The minimum lock time by the indicator of a legacy message (DF013 and its kind; 0 to 127), of MSM4 and MSM5
// (DF402; 0 to 15), of MSM6 and MSM7 (DF407; 0 to 704; reserved values above give 0).
std::int32_t Legacy_Lock_Time(unsigned int indicator);
std::int32_t Msm_Lock_Time(unsigned int indicator);
std::int32_t Msm_Long_Lock_Time(unsigned int indicator);

}  // namespace host
