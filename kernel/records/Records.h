// The records of the typed servers. Observation epochs (EPO_DATA.h), GPS ephemerides (comorb.h) and positions
// (Position.h) have their own headers.
//
// All records are plain values: they own nothing and are copied whole. A new one is all zero, which means "no value"
// unless a field says otherwise. Measured values that may be missing are Mdouble. Times are GPS: `week` since
// 1980-01-06 with rollovers resolved (0: no time) and seconds of week. Angles sent as semicircles are converted with
// pi = 3.1415926535898.
#pragma once

#include "kernel/base/kernel_api.h"
#include "kernel/records/Mdouble.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kernel {

// One satellite's GPS almanac. Sections and tables are those of IS-GPS-200.
struct almanac {
    int prn = 0;     // 1..32; 0: the record is empty
    int health = 0;  // 8 bits, 0: all signals and data are good, 20.3.3.5.1.3
    int config = 0;  // 4 bits from page 25: anti-spoofing and satellite kind, 20.3.3.5.1.4; 0: not received
    int week = 0;    // [weeks] of toa, from WNa, 20.3.3.5.1.5
    double toa = 0;  // [s] of week, reference time, 20.3.3.5.2.2

    double e = 0;          // [1] eccentricity, table 20-VI
    double sqrt_A = 0;     // [sqrt(m)] root of the semi-major axis, table 20-VI
    double delta_i = 0;    // [rad] inclination less 0.30 semicircles, table 20-VI
    double Omega0 = 0;     // [rad] longitude of the ascending node at the start of the week, Earth-fixed, table 20-VI
    double Omega_dot = 0;  // [rad/s] rate of right ascension, table 20-VI
    double omega = 0;      // [rad] argument of perigee, table 20-VI
    double M0 = 0;         // [rad] mean anomaly at toa, table 20-VI
    double af0 = 0;        // [s] clock offset at toa, table 20-VI
    double af1 = 0;        // [s/s] clock drift, table 20-VI
};

// GPS time and UTC, IS-GPS-200 20.3.3.5.1.6 and table 20-IX; how to use it: 20.3.3.5.2.4.
struct UTCT {
    double A0 = 0;      // [s] GPS time less UTC at t_ot, without leap seconds
    double A1 = 0;      // [s/s]
    double t_ot = 0;    // [s] of week, reference time
    int WN_t = 0;       // [weeks] of t_ot; the satellite sends 8 bits
    int delta_LS = 0;   // [s] leap seconds now
    int WN_LSF = 0;     // [weeks] in which the next, or last, leap second takes effect; the satellite sends 8 bits
    int DN = 0;         // [days] 1..7, the day at the end of which it takes effect; 1 is Sunday; 0: nothing received
    int delta_LSF = 0;  // [s] leap seconds after that
};

// The ionosphere's delay for a single-frequency user, IS-GPS-200 20.3.3.5.1.7 and table 20-X; the model: 20.3.3.5.2.5.
// If all eight are 0, nothing was received.
struct IONOT {
    std::array<double, 4> alpha{};  // [s/semicircle^n], n = 0..3: the delay's amplitude
    std::array<double, 4> beta{};   // [s/semicircle^n], n = 0..3: its period
};

// One satellite's GLONASS ephemeris and clock, as broadcast: GLONASS ICD (L1, L2) 5.1, sections 4.4 and 4.5.
// DF numbers are the fields of RTCM 3 message 1020; each field is here. Positions are in PZ-90, Earth-fixed.
// Times of day are UTC(SU) + 3 h.
struct GlonassEph {
    int slot = 0;     // n, orbital slot, 1..24; 0: the record is empty; DF038
    int channel = 0;  // H, frequency channel, -7..13; DF040 less 7

    double tb = 0;  // [s] of day, reference time, a multiple of 15 minutes; DF110
    double tk = 0;  // [s] of day, start of the frame, a multiple of half a minute; DF107
    int NT = 0;     // [days] 1.. of the four-year period, the day of tb; 0: not sent; DF129
    int N4 = 0;     // number of the four-year period, 1 began in 1996; 0: not sent; DF134

    std::array<double, 3> position{};      // [m] PZ-90 at tb; DF112, DF115, DF118
    std::array<double, 3> velocity{};      // [m/s]; DF111, DF114, DF117
    std::array<double, 3> acceleration{};  // [m/s^2] by Sun and Moon only; DF113, DF116, DF119

    double tau_n = 0;        // [s] to add to the satellite's clock at tb; DF124
    double gamma_n = 0;      // [1] relative deviation of its frequency; DF121
    double delta_tau_n = 0;  // [s] delay of the L2 signal less that of L1; DF125
    int En = 0;              // [days] age of the immediate data; DF126

    static constexpr int Bn_Malfunction = 4;  // the highest bit of Bn

    int Bn = 0;                  // 3 bits; the highest: malfunction (DF108); the others are not used
    bool ln = false;             // string 3: malfunction; DF123
    bool almanac_known = false;  // Cn is known; DF105
    bool Cn = false;             // the almanac calls the satellite operational; DF104
    int M = 0;        // 0: GLONASS, 1: GLONASS-M; if 0, FT, NT, P, P4, delta_tau_n and ln are not valid; DF130
    int FT = 0;       // 4 bits, index of the user range accuracy; 15: unknown; DF128
    int P = 0;        // 2 bits, the origin of tau_c and tau_GPS; DF122
    int P1 = 0;       // 2 bits: interval of tb, 0, 30, 45 or 60 minutes; DF106
    bool P2 = false;  // tb is an odd quarter of an hour (of 30 or 60 minutes); DF109
    bool P3 = false;  // the frame has five satellites of the almanac, otherwise four; DF120
    bool P4 = false;  // the ephemeris was renewed; DF127

    // From string 5; valid if `additional` is set.
    bool additional = false;  // DF131
    int NA = 0;               // [days] 1.. of the four-year period, the day of tau_c; DF132
    double tau_c = 0;         // [s] GLONASS time to UTC(SU); DF133
    double tau_GPS = 0;       // [s] fraction of a second of GPS time less GLONASS time; DF135
    bool ln5 = false;         // string 5: malfunction; DF136

    static constexpr double tb_Step = 900.0;  // [s]

    // Issue of data: the number of the quarter of an hour within the day, 0..95. Ephemeris and clock change with tb.
    int IOD() const { return static_cast<int>(tb / tb_Step); }
    // Whether the satellite reports itself as usable.
    bool Healthy() const { return (Bn & Bn_Malfunction) == 0 && !ln; }
};

// The frequencies of each GLONASS slot; GLONASS ICD (L1, L2) 5.1, 3.3.1.1.
//
// Threads:   a value.
// Ownership: holds nothing.
// Errors:    Set returns false for a slot or channel out of range; the readers treat such a slot as unknown. Nothing is
//            reported.
class KERNEL_API GloFreqTable {
public:
    static constexpr int Slots = 32;  // numbered from 1; the constellation has 24; the others are for spares
    static constexpr int First_Channel = -7, Last_Channel = 13;
    static constexpr int No_Channel = -128;

    GloFreqTable() { Clear(); }
    bool Set(int slot, int channel);
    void Clear();                 // makes all slots unknown
    int Channel(int slot) const;  // No_Channel when not known
    double L1(int slot) const;    // [Hz] carrier; 0 when not known
    double L2(int slot) const;    // [Hz] likewise

    static constexpr double L1_Of(int channel) { return 1602.0e6 + channel * 562.5e3; }  // [Hz]
    static constexpr double L2_Of(int channel) { return 1246.0e6 + channel * 437.5e3; }  // [Hz]

private:
    std::array<std::int8_t, Slots> channels_;
};

// Data of a weather station; the kinds are those of RINEX meteorological files.
struct Met_Data {
    int week = 0;
    double second = 0;       // [s] of week
    Mdouble pressure;        // [hPa] at the sensor, PR
    Mdouble temperature;     // [deg C] dry air, TD
    Mdouble humidity;        // [%] relative, HR
    Mdouble zenith_wet;      // [m] delay of the signal, ZW
    Mdouble zenith_dry;      // [m] ZD
    Mdouble zenith_total;    // [m] ZT
    Mdouble wind_direction;  // [deg] where the wind comes from, clockwise from north, WD
    Mdouble wind_speed;      // [m/s] WS
    Mdouble rain;            // [mm] since the last record, RI
    Mdouble hail;            // [hits] since the last record, HI
};

// The power supplies of a receiver.
struct Voltage_Data {
    int week = 0;
    double second = 0;                // [s] of week
    std::array<Mdouble, 2> external;  // [V] power inputs
    std::array<Mdouble, 2> battery;   // [V] exchangeable batteries
    Mdouble backup;                   // [V] battery of clock and memory
    Mdouble antenna;                  // [V] fed to the antenna
    Mdouble antenna_current;          // [A]
    Mdouble temperature;              // [deg C] inside
};

// A pulse at one of the receiver's event inputs. Separate week and seconds resolve its time to better than a
// nanosecond.
struct EventData {
    int input = 0;  // from 1, as labelled on the receiver; 0: the record is empty
    int week = 0;
    double second = 0;        // [s] of week
    std::uint32_t count = 0;  // of pulses at this input since the receiver's start; wraps around
    bool falling = false;     // the edge that was timed
    Mdouble clock_offset;     // [s] receiver clock less GPS time, if `second` is by the receiver's clock
    Mdouble accuracy;         // [s] standard deviation of the time
};

// One message of a geostationary augmentation satellite (WAAS, EGNOS, ...), ICAO Annex 10 volume I, appendix B, 3.5.3.
struct WAAS_Data {
    static constexpr int Message_Bits = 250;

    int prn = 0;  // 120..158; 0: the record is empty
    int week = 0;
    double second = 0;  // [s] of week at which the message's first bit was sent
    // The message's first bit is the highest of byte 0. The 250 bits include preamble and parity; six zeros follow.
    std::array<std::uint8_t, 32> bits{};

    int Preamble() const { return bits[0]; }   // 0x53, 0x9A, 0xC6 in turn
    int Type() const { return bits[1] >> 2; }  // 0..63
    // Whether the last 24 of the 250 bits are the parity of those before. True for an empty record, so check the
    // preamble, too.
    KERNEL_API bool Has_Good_Parity() const;
};

// A double with an alignment of 4 bytes; converts from and to double.
struct Word_Double {
    std::array<std::uint32_t, 2> words{};  // [the field's unit] as the machine lays out a double

    constexpr Word_Double() = default;
    constexpr Word_Double(double value) : words(std::bit_cast<std::array<std::uint32_t, 2>>(value)) {}
    constexpr operator double() const { return std::bit_cast<double>(words); }
};

// One satellite's observations in rtcm_epo_data. The RTCM 3 messages 1001 to 1012 and the multiple signal messages
// carry some or all of these. DF numbers are fields of RTCM 3. Zero means "not measured" in every field.
struct rtcm_sat_data {
    //                                  offset
    std::uint8_t system = 0;    //  0  'G', 'R', 'E', 'C', 'J', 'S' as in RINEX; 0: this entry and those after are empty
    std::uint8_t number = 0;    //  1  within the system: DF009, DF038
    std::int8_t channel = 0;    //  2  GLONASS frequency channel, DF040 less 7
    std::uint8_t reserved = 0;  //  3
    std::array<std::uint8_t, 2> code{};        //  4  per frequency: the code tracked, DF010, DF016, DF039, DF046
    std::array<std::uint8_t, 2> half_cycle{};  //  6  1: the phase may be off by half a cycle, DF420
    std::array<Word_Double, 2> pseudorange{};  //  8  [m] in full, light milliseconds included, DF011, DF017
    std::array<Word_Double, 2> phase{};        // 24  [cycles] in the sense of the pseudorange, DF012, DF018
    std::array<float, 2> lock_time{};          // 40  [s] at least; DF013, DF019
    std::array<float, 2> cn0{};                // 48  [dB-Hz] DF015, DF020
    std::array<float, 2> doppler{};            // 56  [Hz] positive when approaching
};

// The content of a slot of the RTCM ring, also the record of RTCM_Server. Other processes read it: it is little-endian,
// without gaps, and aligned to 4 bytes, because the slots of 2380 bytes follow each other and 2380 is no multiple of 8.
struct rtcm_epo_data {
    static constexpr std::size_t Satellites = 36;

    //                                  offset
    Word_Double time = 0;                  //    0  [s] the ring's time of the epoch, the key of the slot
    std::int32_t value = 0;                //    8  the number given with the slot
    std::uint16_t station = 0;             //   12  DF003
    std::uint16_t satellites = 0;          //   14  entries used
    std::array<Word_Double, 3> antenna{};  //   16  [m] ECEF (ITRF), reference point, DF025 to DF027; all 0: not known
    Word_Double antenna_height = 0;        //   40  [m] above the marker, DF028
    std::int32_t week = 0;                 //   48  [weeks] GPS; 0: not known
    std::uint8_t itrf_year = 0;            //   52  DF021
    std::uint8_t smoothing = 0;            //   53  bit 0: divergence-free, DF007; bits 1..3: interval, DF008
    std::uint8_t steering = 0;             //   54  clock steering, DF411
    std::uint8_t glonass_biases = 0;       //   55  mask of `glonass_bias`, DF422
    std::array<float, 4> glonass_bias{};   //   56  [m] code less phase: L1 C/A, L1 P, L2 C/A, L2 P, DF423 to DF426
    std::int32_t reserved = 0;             //   72
    std::array<rtcm_sat_data, Satellites> satellite{};  //   76
};
static_assert(sizeof(rtcm_sat_data) == 64 && offsetof(rtcm_sat_data, code) == 4 &&
              offsetof(rtcm_sat_data, half_cycle) == 6 && offsetof(rtcm_sat_data, pseudorange) == 8 &&
              offsetof(rtcm_sat_data, phase) == 24 && offsetof(rtcm_sat_data, lock_time) == 40 &&
              offsetof(rtcm_sat_data, cn0) == 48 && offsetof(rtcm_sat_data, doppler) == 56);
static_assert(sizeof(rtcm_epo_data) == 2380 && offsetof(rtcm_epo_data, time) == 0 &&
              offsetof(rtcm_epo_data, value) == 8 && offsetof(rtcm_epo_data, station) == 12 &&
              offsetof(rtcm_epo_data, antenna) == 16 && offsetof(rtcm_epo_data, antenna_height) == 40 &&
              offsetof(rtcm_epo_data, week) == 48 && offsetof(rtcm_epo_data, glonass_bias) == 56 &&
              offsetof(rtcm_epo_data, satellite) == 76);
static_assert(alignof(rtcm_epo_data) == 4 && std::is_trivially_copyable_v<rtcm_epo_data>);

}  // namespace kernel
