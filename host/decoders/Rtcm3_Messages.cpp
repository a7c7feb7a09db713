#include "host/decoders/Rtcm3_Messages.h"

#include "host/decoders/Bit_Reader.h"
#include "kernel/records/Records.h"

#include <algorithm>
#include <bit>
#include <iterator>

namespace host {

namespace {

constexpr double light_ms = speed_of_light / 1000;  // [m] per millisecond

// The last lock time indicators that are not reserved: DF013 and its kind, DF402, DF407.
constexpr unsigned int last_legacy_lock = 127, last_msm_lock = 15, last_msm_long_lock = 704;

// 2^-n
constexpr double Binary_Fraction(unsigned int n) { return 1 / static_cast<double>(std::uint64_t{1} << n); }

unsigned int Message_Number(std::span<const unsigned char> payload)
{
    return static_cast<unsigned int>(Bit_Reader(payload).Unsigned(12));
}

// Reads a two's complement field of n bits whose lowest value means "no value".
std::optional<std::int64_t> Optional_Signed(Bit_Reader &bits, unsigned int n)
{
    const std::int64_t value = bits.Signed(n);
    if (value == -(std::int64_t{1} << (n - 1))) return {};
    return value;
}

bool Time_Of_Week_Fits(std::uint32_t time) { return time < static_cast<std::uint32_t>(ms_per_week); }
// GLONASS follows UTC: a day with a leap second has 86401 seconds.
bool Time_Of_Day_Fits(std::uint32_t time) { return time < static_cast<std::uint32_t>(ms_per_day) + 1000; }

// DF009: GPS 1 to 32, SBAS 40 to 58.
std::optional<Rtcm3_Satellite> Gps_Satellite(unsigned int id)
{
    if (id >= 1 && id <= 32) return Rtcm3_Satellite{Gnss::gps, static_cast<std::uint8_t>(id), {}};
    if (id >= 40 && id <= 58) return Rtcm3_Satellite{Gnss::sbas, static_cast<std::uint8_t>(id + 80), {}};
    return {};
}

// DF040; none when reserved.
std::optional<std::int8_t> Glonass_Channel(unsigned int field)
{
    if (field > 20) return {};
    return static_cast<std::int8_t>(static_cast<int>(field) - 7);
}

// --- 1002, 1004, 1010, 1012

constexpr double legacy_range_unit = 0.02;    // [m]; DF011, DF017, DF041, DF047
constexpr double legacy_phase_unit = 0.0005;  // [m]; DF012, DF018, DF042, DF048
constexpr double legacy_cn0_unit = 0.25;      // [dB-Hz]; DF015, DF020, DF045, DF050

// The differences between the four messages.
struct Legacy_Format {
    Gnss gnss;
    bool l2;
    unsigned int range_bits;      // DF011, DF041
    unsigned int ambiguity_bits;  // DF014, DF044
    double ambiguity;             // [m] unit of DF014, DF044
};

std::optional<Legacy_Format> Legacy_Format_Of(unsigned int message)
{
    switch (message) {
    case 1002: return Legacy_Format{Gnss::gps, false, 24, 8, light_ms};
    case 1004: return Legacy_Format{Gnss::gps, true, 24, 8, light_ms};
    case 1010: return Legacy_Format{Gnss::glonass, false, 25, 7, 2 * light_ms};
    case 1012: return Legacy_Format{Gnss::glonass, true, 25, 7, 2 * light_ms};
    default: return {};
    }
}

Signal_Code Legacy_L2_Code(Gnss gnss, std::uint64_t indicator)
{
    if (gnss == Gnss::glonass)
        return indicator == 0 ? Signal_Code{'2', 'C'} : indicator == 1 ? Signal_Code{'2', 'P'} : Signal_Code{};
    return {'2', "XPDW"[indicator & 3]};
}

class Legacy_Decoder {
public:
    Legacy_Decoder(const Legacy_Format &format, std::span<const unsigned char> payload, Rtcm3_Observations &out)
        : format_(format), bits_(payload), out_(out)
    {
    }

    Rtcm3_Fault Decode()
    {
        const auto count = Header();
        const bool fits = format_.gnss == Gnss::glonass ? Time_Of_Day_Fits(out_.time) : Time_Of_Week_Fits(out_.time);
        // A truncated message is reported as too_short, even if its time is wrong as well.
        if (!bits_.Failed() && !fits) return Rtcm3_Fault::bad_time;
        for (std::uint64_t i = 0; i < count; ++i) {
            const Rtcm3_Fault fault = Satellite();
            if (bits_.Failed()) return Rtcm3_Fault::too_short;
            if (fault != Rtcm3_Fault::none) return fault;
        }
        return bits_.Failed() ? Rtcm3_Fault::too_short : Rtcm3_Fault::none;
    }

private:
    // Returns the number of satellites (at most 31).
    std::uint64_t Header()
    {
        bits_.Read(12, out_.message);
        bits_.Read(12, out_.station);
        bits_.Read(format_.gnss == Gnss::glonass ? 27 : 30, out_.time);
        bits_.Read(1, out_.more_follows);
        const std::uint64_t count = bits_.Unsigned(5);
        bits_.Read(1, out_.divergence_free);
        bits_.Read(3, out_.smoothing_interval);
        return count;
    }

    Rtcm3_Fault Satellite()
    {
        const auto id = static_cast<unsigned int>(bits_.Unsigned(6));
        const bool precise = bits_.Flag();  // DF010, DF039
        std::optional<Rtcm3_Satellite> satellite = Gps_Satellite(id);
        if (format_.gnss == Gnss::glonass) {
            satellite.reset();
            if (id <= 24) satellite = {Gnss::glonass, static_cast<std::uint8_t>(id), {}};
            const auto channel = Glonass_Channel(static_cast<unsigned int>(bits_.Unsigned(5)));
            if (!channel) return Rtcm3_Fault::bad_channel;
            if (satellite) satellite->glonass_channel = channel;
        }
        if (!satellite) return Rtcm3_Fault::bad_satellite;
        // GLONASS satellites of unknown slot all have the number 0, and there may be several.
        if (id != 0 && (seen_ >> id & 1) != 0) return Rtcm3_Fault::repeated_satellite;
        seen_ |= std::uint64_t{1} << id;

        const double range = L1(*satellite, {'1', precise ? 'P' : 'C'});
        if (format_.l2) L2(*satellite, range);
        out_.satellite_table[out_.satellite_count++] = *satellite;
        return Rtcm3_Fault::none;
    }

    Rtcm3_Cell New_Cell(const Rtcm3_Satellite &satellite, Signal_Code code) const
    {
        Rtcm3_Cell cell;
        cell.satellite = static_cast<std::uint8_t>(out_.satellite_count);
        cell.code = code;
        cell.frequency = Carrier_Frequency(satellite.gnss, code, satellite.glonass_channel);
        return cell;
    }

    // DF013, DF019, DF043, DF049
    void Lock(Rtcm3_Cell &cell)
    {
        bits_.Read(7, cell.lock_indicator);
        cell.lock_time = Legacy_Lock_Time(cell.lock_indicator);
        if (cell.lock_indicator < last_legacy_lock) cell.lock_below = Legacy_Lock_Time(cell.lock_indicator + 1u);
    }

    // DF015, DF020, DF045, DF050; 0: not computed.
    void Cn0(Rtcm3_Cell &cell)
    {
        const std::uint64_t field = bits_.Unsigned(8);
        if (field != 0) cell.cn0 = static_cast<double>(field) * legacy_cn0_unit;
    }

    // Returns the range, to which the L2 fields are added. Without a phase (DF012 at its lowest value) the range is
    // there for L2 only and the cell gets none. The cell is kept in every case, for lock and C/N0.
    double L1(const Rtcm3_Satellite &satellite, Signal_Code code)
    {
        Rtcm3_Cell cell = New_Cell(satellite, code);
        const std::uint64_t within = bits_.Unsigned(format_.range_bits);
        const auto phase = Optional_Signed(bits_, 20);
        Lock(cell);
        const std::uint64_t ambiguity = bits_.Unsigned(format_.ambiguity_bits);
        Cn0(cell);
        const double range =
            static_cast<double>(within) * legacy_range_unit + static_cast<double>(ambiguity) * format_.ambiguity;
        if (phase) {
            cell.pseudorange = range;
            cell.phase_range = range + static_cast<double>(*phase) * legacy_phase_unit;
        }
        out_.cell_table[out_.cell_count++] = cell;
        return range;
    }

    // Adds no cell if both pseudorange and phase are missing.
    void L2(const Rtcm3_Satellite &satellite, double l1_range)
    {
        Rtcm3_Cell cell = New_Cell(satellite, Legacy_L2_Code(format_.gnss, bits_.Unsigned(2)));
        const auto difference = Optional_Signed(bits_, 14);
        const auto phase = Optional_Signed(bits_, 20);
        Lock(cell);
        Cn0(cell);
        // Both are differences to the pseudorange on L1: DF017, DF018, DF047, DF048.
        if (difference) cell.pseudorange = l1_range + static_cast<double>(*difference) * legacy_range_unit;
        if (phase) cell.phase_range = l1_range + static_cast<double>(*phase) * legacy_phase_unit;
        if (difference || phase) out_.cell_table[out_.cell_count++] = cell;
    }

    const Legacy_Format format_;
    Bit_Reader bits_;
    Rtcm3_Observations &out_;
    std::uint64_t seen_ = 0;  // a bit for each satellite field that has come
};

// --- MSM4 to MSM7

struct Msm_System {
    unsigned int base;  // message number of its MSM0
    Gnss gnss;
    unsigned int satellites;    // the satellites 1 to this number are in use
    unsigned int first_number;  // the number of satellite 1
    std::string_view codes;     // two characters for each of the signals 1 to 32; blanks: reserved
};

// DF395 of each system, with the names of RINEX 3, in which BeiDou's band 2 is B1I and its band 1 is B1C.
constexpr Msm_System msm_systems[] = {
    {1070, Gnss::gps, 32, 1, "  1C1P1W      2C2P2W        2S2L2X        5I5Q5X          1S1L1X"},
    {1080, Gnss::glonass, 24, 1, "  1C1P        2C2P                                              "},
    {1090, Gnss::galileo, 52, 1, "  1C1A1B1X1Z  6C6A6B6X6Z  7I7Q7X  8I8Q8X  5I5Q5X                "},
    {1110, Gnss::qzss, 10, 193, "  1C      1Z    6S6L6X      2S2L2X        5I5Q5X          1S1L1X"},
    {1120, Gnss::beidou, 63, 1, "  2I2Q2X      6I6Q6X      7I7Q7X          5D5P5X7D        1D1P1X"},
};

constexpr bool Whole(const Msm_System &system) { return system.codes.size() == 2 * 32; }
static_assert(std::all_of(std::begin(msm_systems), std::end(msm_systems), Whole));

struct Msm_Format {
    unsigned int code_bits, code_unit;    // fine pseudorange, in 2^-unit ms: DF400, DF405
    unsigned int phase_bits, phase_unit;  // fine phase range: DF401, DF406
    unsigned int lock_bits;               // DF402, DF407
    unsigned int cn0_bits;                // DF403, DF408
    double cn0_unit;                      // [dB-Hz]
    bool rates;                           // extended satellite information, DF399 and DF404
};

// MSM1 to MSM3 are not supported: without whole milliseconds (DF397) their ranges would have to be guessed.
constexpr Msm_Format msm_formats[] = {
    {15, 24, 22, 29, 4, 6, 1, false},         // MSM4
    {15, 24, 22, 29, 4, 6, 1, true},          // MSM5
    {20, 29, 24, 31, 10, 10, 0.0625, false},  // MSM6
    {20, 29, 24, 31, 10, 10, 0.0625, true},   // MSM7
};

constexpr std::uint64_t no_rough_range = 255;  // DF397
constexpr unsigned int msm_channels = 14;      // DF419: values below this are channels
constexpr double fine_rate_unit = 0.0001;      // [m/s]; DF404

class Msm_Decoder {
public:
    Msm_Decoder(const Msm_System &system, const Msm_Format &format, std::span<const unsigned char> payload,
                Rtcm3_Observations &out)
        : system_(system), format_(format), bits_(payload), out_(out)
    {
    }

    Rtcm3_Fault Decode()
    {
        const Rtcm3_Fault time = Header();
        if (time != Rtcm3_Fault::none) return time;
        const Rtcm3_Fault masks = Masks();
        if (masks != Rtcm3_Fault::none) return masks;
        Satellites();
        Cells();
        return bits_.Failed() ? Rtcm3_Fault::too_short : Rtcm3_Fault::none;
    }

private:
    std::span<Rtcm3_Satellite> New_Satellites() { return std::span(out_.satellite_table).first(out_.satellite_count); }
    std::span<Rtcm3_Cell> New_Cells() { return std::span(out_.cell_table).first(out_.cell_count); }

    Rtcm3_Fault Header()
    {
        bits_.Read(12, out_.message);
        bits_.Read(12, out_.station);
        if (system_.gnss == Gnss::glonass) {
            const auto day = static_cast<std::uint8_t>(bits_.Unsigned(3));
            if (day < 7) out_.glonass_day = day;
            bits_.Read(27, out_.time);
            // A truncated header reads as 0, which is a valid time; Masks detects the truncation.
            if (!Time_Of_Day_Fits(out_.time)) return Rtcm3_Fault::bad_time;
        } else {
            bits_.Read(30, out_.time);
            if (!Time_Of_Week_Fits(out_.time)) return Rtcm3_Fault::bad_time;
        }
        bits_.Read(1, out_.more_follows);
        bits_.Read(3, out_.issue_of_station);
        bits_.Skip(7);  // DF001, reserved
        bits_.Read(2, out_.clock_steering);
        bits_.Read(2, out_.external_clock);
        bits_.Read(1, out_.divergence_free);
        bits_.Read(3, out_.smoothing_interval);
        return Rtcm3_Fault::none;
    }

    // DF394, DF395, DF396: the satellites, the signals, and the pairs of both that are present. The first bit is number
    // 1.
    Rtcm3_Fault Masks()
    {
        const std::uint64_t high = bits_.Unsigned(32);
        std::uint64_t satellites = high << 32 | bits_.Unsigned(32);
        // Shifted into the upper half, so that the top bit is number 1 here, too.
        const std::uint64_t signals = bits_.Unsigned(32) << 32;
        if (bits_.Failed()) return Rtcm3_Fault::too_short;
        // The limit of the standard (DF396) and of the tables. Check it before anything is written.
        if (static_cast<std::size_t>(std::popcount(satellites)) * static_cast<std::size_t>(std::popcount(signals)) >
            Rtcm3_Observations::most)
            return Rtcm3_Fault::too_many_cells;
        for (; satellites != 0; satellites &= ~Top(satellites)) {
            const auto index = static_cast<unsigned int>(std::countl_zero(satellites));
            if (index >= system_.satellites) return Rtcm3_Fault::bad_satellite;
            auto &satellite = out_.satellite_table[out_.satellite_count];
            satellite = {system_.gnss, static_cast<std::uint8_t>(system_.first_number + index), {}};
            Cell_Mask(signals);
            ++out_.satellite_count;
        }
        return Rtcm3_Fault::none;
    }

    static std::uint64_t Top(std::uint64_t mask) { return std::uint64_t{1} << 63 >> std::countl_zero(mask); }

    void Cell_Mask(std::uint64_t signals)
    {
        for (; signals != 0; signals &= ~Top(signals)) {
            if (!bits_.Flag()) continue;
            const auto index = static_cast<unsigned int>(std::countl_zero(signals));
            Rtcm3_Cell cell;
            cell.satellite = static_cast<std::uint8_t>(out_.satellite_count);
            cell.msm_signal = static_cast<std::uint8_t>(index + 1);
            // A reserved signal has no code, but its fields are present and must be read.
            if (system_.codes[2 * index] != ' ') cell.code = {system_.codes[2 * index], system_.codes[2 * index + 1]};
            out_.cell_table[out_.cell_count++] = cell;
        }
    }

    // The fields that the cells of a satellite share. The message holds each kind of field for all satellites in turn.
    void Satellites()
    {
        const auto satellites = New_Satellites();
        const std::size_t count = satellites.size();
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t whole = bits_.Unsigned(8);  // DF397 [ms]
            // no_value is not-a-number, which all sums up to the pseudorange keep.
            rough_range_[i] = whole == no_rough_range ? no_value : static_cast<double>(whole);
        }
        if (format_.rates) {
            for (Rtcm3_Satellite &satellite : satellites) {
                const auto extended = static_cast<unsigned int>(bits_.Unsigned(4));  // for GLONASS DF419
                if (system_.gnss == Gnss::glonass && extended < msm_channels)
                    satellite.glonass_channel = Glonass_Channel(extended);
            }
        }
        for (std::size_t i = 0; i < count; ++i)
            rough_range_[i] += static_cast<double>(bits_.Unsigned(10)) * Binary_Fraction(10);  // DF398
        for (std::size_t i = 0; format_.rates && i < count; ++i) {
            const auto rate = Optional_Signed(bits_, 14);  // DF399 [m/s]
            rough_rate_[i] = rate ? static_cast<double>(*rate) : no_value;
        }
    }

    // The sum of the satellite's rough value and the cell's fine value; no_value if either is missing.
    double Sum(double rough, unsigned int n, double unit)
    {
        const auto fine = Optional_Signed(bits_, n);
        return fine ? rough + static_cast<double>(*fine) * unit : no_value;
    }

    void Cells()
    {
        const auto cells = New_Cells();
        const double code_unit = Binary_Fraction(format_.code_unit), phase_unit = Binary_Fraction(format_.phase_unit);
        for (Rtcm3_Cell &cell : cells)
            cell.pseudorange = light_ms * Sum(rough_range_[cell.satellite], format_.code_bits, code_unit);
        for (Rtcm3_Cell &cell : cells)
            cell.phase_range = light_ms * Sum(rough_range_[cell.satellite], format_.phase_bits, phase_unit);
        for (Rtcm3_Cell &cell : cells) {
            bits_.Read(format_.lock_bits, cell.lock_indicator);
            const auto least = format_.lock_bits == 4 ? Msm_Lock_Time : Msm_Long_Lock_Time;
            const unsigned int last = format_.lock_bits == 4 ? last_msm_lock : last_msm_long_lock;
            cell.lock_time = least(cell.lock_indicator);
            if (cell.lock_indicator < last) cell.lock_below = least(cell.lock_indicator + 1u);
        }
        for (Rtcm3_Cell &cell : cells) bits_.Read(1, cell.half_cycle);
        for (Rtcm3_Cell &cell : cells) {
            const std::uint64_t cn0 = bits_.Unsigned(format_.cn0_bits);
            if (cn0 != 0) cell.cn0 = static_cast<double>(cn0) * format_.cn0_unit;
        }
        for (Rtcm3_Cell &cell : cells) {
            const auto &channel = out_.satellite_table[cell.satellite].glonass_channel;
            cell.frequency = Carrier_Frequency(system_.gnss, cell.code, channel);
            if (format_.rates) cell.range_rate = Sum(rough_rate_[cell.satellite], 15, fine_rate_unit);  // DF404
        }
    }

    const Msm_System &system_;
    const Msm_Format &format_;
    Bit_Reader bits_;
    Rtcm3_Observations &out_;
    std::array<double, Rtcm3_Observations::most> rough_range_;  // [ms]
    std::array<double, Rtcm3_Observations::most> rough_rate_;   // [m/s]
};

const Msm_System *Msm_System_Of(unsigned int message)
{
    for (const Msm_System &system : msm_systems)
        if (message >= system.base + 4 && message <= system.base + 7) return &system;
    return nullptr;
}

Rtcm3_Fault Decode_Observations(std::span<const unsigned char> payload, Rtcm3_Observations &out)
{
    const unsigned int message = Message_Number(payload);
    if (const auto legacy = Legacy_Format_Of(message)) {
        out.gnss = legacy->gnss;
        return Legacy_Decoder(*legacy, payload, out).Decode();
    }
    if (const Msm_System *system = Msm_System_Of(message)) {
        out.gnss = system->gnss;
        return Msm_Decoder(*system, msm_formats[message - system->base - 4], payload, out).Decode();
    }
    return Rtcm3_Fault::unsupported;
}

// --- Station and equipment

// Reads a count and that many characters.
bool Read_Text(Bit_Reader &bits, Rtcm3_Text &out)
{
    bits.Read(8, out.size);
    if (out.size > out.bytes.size()) return false;
    for (std::size_t i = 0; i < out.size; ++i) bits.Read(8, out.bytes[i]);
    return true;
}

bool Read_Texts(Bit_Reader &bits, Rtcm3_Equipment &out)
{
    bits.Skip(12);
    bits.Read(12, out.station);
    if (!Read_Text(bits, out.antenna)) return false;
    bits.Read(8, out.setup);
    // 1007 ends with the setup, 1008 with the antenna's serial number; 1033 has more.
    if (out.message >= 1008 && !Read_Text(bits, out.antenna_serial)) return false;
    if (out.message < 1033) return true;
    return Read_Text(bits, out.receiver) && Read_Text(bits, out.firmware) && Read_Text(bits, out.receiver_serial);
}

// --- Ephemerides

// Fields read in their order; the scale is 2^-n for a positive n.
class Ephemeris_Reader : public Bit_Reader {
public:
    using Bit_Reader::Bit_Reader;

    double Natural(unsigned int n, unsigned int scale)
    {
        return static_cast<double>(Unsigned(n)) * Binary_Fraction(scale);
    }
    double Scaled(unsigned int n, unsigned int scale)
    {
        return static_cast<double>(Signed(n)) * Binary_Fraction(scale);
    }
    double Angle(unsigned int n, unsigned int scale) { return Scaled(n, scale) * gps_pi; }  // semicircles
    double Glonass(unsigned int n, unsigned int scale)
    {
        return static_cast<double>(Sign_Magnitude(n)) * Binary_Fraction(scale);
    }
};

// Lengths and scales are those of the satellite's message: RTCM sends its bits unchanged.
void Read_Gps_Orbit(Ephemeris_Reader &bits, Rtcm3_Gps_Ephemeris &out)
{
    out.crs = bits.Scaled(16, 5);
    out.delta_n = bits.Angle(16, 43);
    out.m0 = bits.Angle(32, 31);
    out.cuc = bits.Scaled(16, 29);
    out.e = bits.Natural(32, 33);
    out.cus = bits.Scaled(16, 29);
    const double root = bits.Natural(32, 19);
    out.semi_major_axis = root * root;
    out.toe = bits.Natural(16, 0) * 16;
    out.cic = bits.Scaled(16, 29);
    out.omega0 = bits.Angle(32, 31);
    out.cis = bits.Scaled(16, 29);
    out.i0 = bits.Angle(32, 31);
    out.crc = bits.Scaled(16, 5);
    out.omega = bits.Angle(32, 31);
    out.omega_dot = bits.Angle(24, 43);
}

void Read_Gps_Ephemeris(Ephemeris_Reader &bits, Rtcm3_Gps_Ephemeris &out)
{
    bits.Skip(12);
    bits.Read(6, out.prn);
    bits.Read(10, out.week);
    bits.Read(4, out.ura);
    bits.Read(2, out.l2_code);
    out.i_dot = bits.Angle(14, 43);
    bits.Read(8, out.iode);
    out.toc = bits.Natural(16, 0) * 16;
    out.af2 = bits.Scaled(8, 55);
    out.af1 = bits.Scaled(16, 43);
    out.af0 = bits.Scaled(22, 31);
    bits.Read(10, out.iodc);
    Read_Gps_Orbit(bits, out);
    out.tgd = bits.Scaled(8, 31);
    bits.Read(6, out.health);
    bits.Read(1, out.l2p_no_data);
    bits.Read(1, out.long_fit);
}

constexpr auto seconds_per_day = static_cast<std::int32_t>(kernel::Seconds_Per_Day);  // [s]

void Read_Glonass_Start(Ephemeris_Reader &bits, Rtcm3_Glonass_Ephemeris &out)
{
    bits.Read(1, out.almanac_health);
    bits.Read(1, out.almanac_health_known);
    bits.Read(2, out.p1);
    const auto hours = static_cast<std::int32_t>(bits.Unsigned(5));
    const auto minutes = static_cast<std::int32_t>(bits.Unsigned(6));
    const auto halves = static_cast<std::int32_t>(bits.Unsigned(1));
    constexpr std::int32_t no_time = seconds_per_day;  // refused, like an hour above 23
    out.tk = minutes < 60 ? hours * 3600 + minutes * 60 + halves * 30 : no_time;
    bits.Read(1, out.bn_msb);
    bits.Read(1, out.p2);
    out.tb = static_cast<std::int32_t>(bits.Unsigned(7)) * 900;
}

void Read_Glonass_Rest(Ephemeris_Reader &bits, Rtcm3_Glonass_Ephemeris &out)
{
    for (std::size_t axis = 0; axis < 3; ++axis) {  // sent in kilometres
        out.velocity[axis] = bits.Glonass(24, 20) * 1000;
        out.position[axis] = bits.Glonass(27, 11) * 1000;
        out.acceleration[axis] = bits.Glonass(5, 30) * 1000;
    }
    bits.Read(1, out.p3);
    out.gamma = bits.Glonass(11, 40);
    bits.Read(2, out.p);
    bits.Read(1, out.ln_third);
    out.tau = bits.Glonass(22, 30);
    out.delta_tau = bits.Glonass(5, 30);
    bits.Read(5, out.en);
    bits.Read(1, out.p4);
    bits.Read(4, out.ft);
    bits.Read(11, out.nt);
    bits.Read(2, out.m);
    bits.Read(1, out.additional);
    bits.Read(11, out.na);
    out.tau_c = bits.Glonass(32, 31);
    bits.Read(5, out.n4);
    out.tau_gps = bits.Glonass(22, 30);
    bits.Read(1, out.ln_fifth);
    bits.Skip(7);
}

// Copies `value` to `out` if it was read completely and has no fault.
template <class T>
Rtcm3_Fault Deliver(const Bit_Reader &bits, Rtcm3_Fault fault, const T &value, T &out)
{
    if (bits.Failed()) return Rtcm3_Fault::too_short;
    if (fault == Rtcm3_Fault::none) out = value;
    return fault;
}

constexpr std::int32_t longest_legacy_lock = 937'000;  // [ms]; DF013: 127

// DF013: the step doubles from one row to the next.
struct Lock_Step {
    int below, factor, offset;  // seconds = factor * indicator - offset
};
constexpr Lock_Step lock_steps[] = {{24, 1, 0},   {48, 2, 24},     {72, 4, 120},
                                    {96, 8, 408}, {120, 16, 1176}, {127, 32, 3096}};

// Carrier frequencies of the bands [Hz] of all systems except GLONASS.
double Band_Frequency(Gnss gnss, char band)
{
    switch (band) {
    case '1': return 1575.42e6;
    case '2': return gnss == Gnss::beidou ? 1561.098e6 : 1227.60e6;
    case '5': return 1176.45e6;
    case '6': return gnss == Gnss::beidou ? 1268.52e6 : 1278.75e6;
    case '7': return 1207.14e6;
    case '8': return 1191.795e6;
    default: return no_value;
    }
}

}  // namespace

const char *Rtcm3_Fault_Name(Rtcm3_Fault fault)
{
    static constexpr const char *names[rtcm3_faults] = {
        "none",        "unsupported",        "too short",      "bad time", "bad satellite",
        "bad channel", "repeated satellite", "too many cells", "bad text"};
    return names[static_cast<std::size_t>(fault)];
}

double Carrier_Frequency(Gnss gnss, Signal_Code code, std::optional<int> glonass_channel)
{
    if (gnss != Gnss::glonass) return Band_Frequency(gnss, code.band);
    if (!glonass_channel) return no_value;
    switch (code.band) {
    case '1': return kernel::GloFreqTable::L1_Of(*glonass_channel);
    case '2': return kernel::GloFreqTable::L2_Of(*glonass_channel);
    default: return no_value;
    }
}

Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Observations &out)
{
    // `out` is reused, so reset the fields that not every kind of message sets.
    out.satellite_count = out.cell_count = 0;
    out.glonass_day.reset();
    out.issue_of_station = 0;
    out.clock_steering = 2;
    out.external_clock = 3;
    const Rtcm3_Fault fault = Decode_Observations(payload, out);
    if (fault != Rtcm3_Fault::none) out.satellite_count = out.cell_count = 0;
    return fault;
}

Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Station &out)
{
    Bit_Reader bits(payload);
    Rtcm3_Station station;
    bits.Read(12, station.message);
    if (station.message != 1005 && station.message != 1006) return Rtcm3_Fault::unsupported;
    bits.Read(12, station.station);
    bits.Read(6, station.itrf_year);
    bits.Read(1, station.gps);
    bits.Read(1, station.glonass);
    bits.Read(1, station.galileo);
    bits.Read(1, station.virtual_station);
    constexpr double unit = 0.0001;  // [m]; DF025 to DF028
    station.x = static_cast<double>(bits.Signed(38)) * unit;
    bits.Read(1, station.single_oscillator);
    bits.Skip(1);
    station.y = static_cast<double>(bits.Signed(38)) * unit;
    bits.Read(2, station.quarter_cycle);
    station.z = static_cast<double>(bits.Signed(38)) * unit;
    if (station.message == 1006) station.antenna_height = static_cast<double>(bits.Unsigned(16)) * unit;
    return Deliver(bits, Rtcm3_Fault::none, station, out);
}

Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Equipment &out)
{
    Bit_Reader bits(payload);
    Rtcm3_Equipment equipment;
    equipment.message = static_cast<std::uint16_t>(Message_Number(payload));
    if (equipment.message != 1007 && equipment.message != 1008 && equipment.message != 1033)
        return Rtcm3_Fault::unsupported;
    const Rtcm3_Fault fault = Read_Texts(bits, equipment) ? Rtcm3_Fault::none : Rtcm3_Fault::bad_text;
    return Deliver(bits, fault, equipment, out);
}

Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_System_Parameters &out)
{
    if (Message_Number(payload) != 1013) return Rtcm3_Fault::unsupported;
    Bit_Reader bits(payload);
    Rtcm3_System_Parameters parameters;
    bits.Skip(12);
    bits.Read(12, parameters.station);
    bits.Read(16, parameters.mjd);
    bits.Read(17, parameters.second_of_day);
    const std::uint64_t announced = bits.Unsigned(5);
    bits.Read(8, parameters.leap_seconds);
    // DF055 to DF057 of each announced message are not used, but they must be present.
    constexpr unsigned int announcement_bits = 29;
    for (std::uint64_t i = 0; i < announced; ++i) bits.Skip(announcement_bits);
    const bool fits = parameters.second_of_day <= static_cast<std::uint32_t>(seconds_per_day);
    return Deliver(bits, fits ? Rtcm3_Fault::none : Rtcm3_Fault::bad_time, parameters, out);
}

Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Gps_Ephemeris &out)
{
    if (Message_Number(payload) != 1019) return Rtcm3_Fault::unsupported;
    Ephemeris_Reader bits(payload);
    Rtcm3_Gps_Ephemeris ephemeris;
    Read_Gps_Ephemeris(bits, ephemeris);
    Rtcm3_Fault fault = Rtcm3_Fault::none;
    if (ephemeris.toe * 1000 >= ms_per_week || ephemeris.toc * 1000 >= ms_per_week) fault = Rtcm3_Fault::bad_time;
    if (ephemeris.prn < 1 || ephemeris.prn > 32) fault = Rtcm3_Fault::bad_satellite;
    return Deliver(bits, fault, ephemeris, out);
}

Rtcm3_Fault Decode(std::span<const unsigned char> payload, Rtcm3_Glonass_Ephemeris &out)
{
    if (Message_Number(payload) != 1020) return Rtcm3_Fault::unsupported;
    Ephemeris_Reader bits(payload);
    Rtcm3_Glonass_Ephemeris ephemeris;
    bits.Skip(12);
    bits.Read(6, ephemeris.slot);
    const auto channel = Glonass_Channel(static_cast<unsigned int>(bits.Unsigned(5)));
    ephemeris.channel = channel.value_or(0);
    Read_Glonass_Start(bits, ephemeris);
    Read_Glonass_Rest(bits, ephemeris);
    Rtcm3_Fault fault = Rtcm3_Fault::none;
    if (ephemeris.tk >= seconds_per_day || ephemeris.tb >= seconds_per_day) fault = Rtcm3_Fault::bad_time;
    if (!channel) fault = Rtcm3_Fault::bad_channel;
    if (ephemeris.slot < 1 || ephemeris.slot > 24) fault = Rtcm3_Fault::bad_satellite;
    return Deliver(bits, fault, ephemeris, out);
}

namespace {

// Decodes into the T of the message, and replaces another kind of message by a T.
template <class T>
Rtcm3_Fault Decode_As(std::span<const unsigned char> payload, Rtcm3_Message &message)
{
    // Decoded in place if the previous message was of this kind: constructing some 5 KB of observations each time would
    // be slow.
    T *place = std::get_if<T>(&message);
    return Decode(payload, place ? *place : message.emplace<T>());
}

Rtcm3_Fault Decode_Any(std::span<const unsigned char> payload, Rtcm3_Message &message)
{
    switch (const unsigned int number = Message_Number(payload)) {
    case 1005:
    case 1006: return Decode_As<Rtcm3_Station>(payload, message);
    case 1007:
    case 1008:
    case 1033: return Decode_As<Rtcm3_Equipment>(payload, message);
    case 1013: return Decode_As<Rtcm3_System_Parameters>(payload, message);
    case 1019: return Decode_As<Rtcm3_Gps_Ephemeris>(payload, message);
    case 1020: return Decode_As<Rtcm3_Glonass_Ephemeris>(payload, message);
    default:
        if (!Legacy_Format_Of(number) && !Msm_System_Of(number)) return Rtcm3_Fault::unsupported;
        return Decode_As<Rtcm3_Observations>(payload, message);
    }
}

}  // namespace

const Rtcm3_Message *Rtcm3_Message_Decoder::Decode(std::span<const unsigned char> payload)
{
    last_ = Decode_Any(payload, message_);
    ++counts_[static_cast<std::size_t>(last_)];
    return last_ == Rtcm3_Fault::none ? &message_ : nullptr;
}

int Full_Week(unsigned int ten_bits, int near)
{
    constexpr int cycle = 1024;
    // Two cycles keep the sum above 0, also for a negative `near`.
    const int ahead = (static_cast<int>(ten_bits % cycle) - near % cycle + 2 * cycle) % cycle;
    return near + (ahead < cycle / 2 ? ahead : ahead - cycle);
}

std::int32_t Legacy_Lock_Time(unsigned int indicator)
{
    const auto value = static_cast<int>(indicator & last_legacy_lock);
    for (const Lock_Step &step : lock_steps)
        if (value < step.below) return (step.factor * value - step.offset) * 1000;
    return longest_legacy_lock;
}

// DF402: the time doubles with each step; the indicator 1 means 32 ms.
std::int32_t Msm_Lock_Time(unsigned int indicator) { return indicator == 0 ? 0 : 16 << (indicator & last_msm_lock); }

// DF407: milliseconds below 64; above, the step doubles with every 32 values.
std::int32_t Msm_Long_Lock_Time(unsigned int indicator)
{
    if (indicator > last_msm_long_lock) return 0;
    if (indicator < 64) return static_cast<std::int32_t>(indicator);
    return static_cast<std::int32_t>((32 + indicator % 32) << (indicator / 32 - 1));
}

}  // namespace host
