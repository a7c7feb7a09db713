#include "host/gnss_stream/Epoch_Printer.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/time/mTime.h"

#include <charconv>
#include <cstdlib>
#include <iterator>
#include <numbers>
#include <utility>

namespace host {

namespace {

using namespace kernel;

const char unit[] = "host/Epoch_Printer";
constexpr char set_names[] = "ABC";
constexpr unsigned char no_channel = 255;  // in OBS_GLO_CHANNEL
constexpr int channel_offset = 7;          // OBS_GLO_CHANNEL holds k + 7
constexpr double half_digit = 0.0005;      // [s] of a time with three digits

constexpr ObsDataTypes Of_Set(ObsDataTypes of_a, std::size_t set)
{
    return static_cast<ObsDataTypes>(static_cast<std::size_t>(of_a) + set);
}
constexpr double Degrees(double radians) { return radians * 180 / std::numbers::pi; }

// --- Out of the record

// In the record 0 means "not measured", also for a Doppler. is_ava_obs is asked first, because an absent quantity reads
// -1, which is a possible Doppler.
double Measured(const EPO_DATA &epoch, ObsDataTypes type, unsigned char sat)
{
    const double value = epoch.is_ava_obs(type) ? epoch.ReadDoubleObs(type, sat) : 0;
    return value != 0 ? value : no_value;
}

double Measured_Float(const EPO_DATA &epoch, ObsDataTypes type, unsigned char sat)
{
    const float value = epoch.is_ava_obs(type) ? epoch.ReadFloatObs(type, sat) : 0;
    return value != 0 ? static_cast<double>(value) : no_value;
}

Satellite_Line::Set Set_Of(const EPO_DATA &epoch, std::size_t set, unsigned char sat)
{
    Satellite_Line::Set line;
    line.pseudorange = Measured(epoch, Of_Set(OBS_CODE_A, set), sat);
    line.phase = Measured(epoch, Of_Set(OBS_PHASE_A, set), sat);
    line.doppler = Measured(epoch, Of_Set(OBS_DOPPLER_A, set), sat);
    line.cn0 = Measured_Float(epoch, Of_Set(OBS_CN0_A, set), sat);
    // 0 is a value here: the lock may have just begun. The decoder stores a lock time with every signal.
    line.lock_time = static_cast<double>(epoch.ReadFloatObs(Of_Set(OBS_LOCK_TIME_A, set), sat));
    line.signal = epoch.ReadUint8Obs(Of_Set(OBS_SIGNAL_A, set), sat);
    line.half_cycle = (epoch.ReadUint8Obs(OBS_HALF_CYCLE, sat) >> set & 1) != 0;
    line.lost = (epoch.ReadUint8Obs(OBS_LOSS_OF_LOCK, sat) >> set & 1) != 0;
    return line;
}

Satellite_Line Line_Of(const EPO_DATA &epoch, unsigned char sat)
{
    Satellite_Line line;
    char name[8];
    std::snprintf(name, sizeof name, "%c%02u", epoch.ReadUint8Obs(OBS_SYSTEM, sat),
                  static_cast<unsigned int>(epoch.ReadUint8Obs(OBS_SATELLITE, sat)));
    line.name = name;
    const unsigned char channel = epoch.ReadUint8Obs(OBS_GLO_CHANNEL, sat);
    if (channel != no_channel) line.channel = channel - channel_offset;
    const unsigned int tracked = epoch.ReadUint8Obs(TRACKING_FLAG, sat);
    for (std::size_t set = 0; set < line.sets.size(); ++set)
        if (tracked >> set & 1) line.sets[set] = Set_Of(epoch, set, sat);
    return line;
}

bool Has_Week(const EPO_DATA &epoch) { return epoch.is_ava_epo(EPO_WEEK_LOW, EPO_WEEK_HIGH); }

// "2012-10-13 23:59:44.000"
std::string Date_And_Time(const mTime &time)
{
    int year, month, day, hour, minute;
    double second;
    // Rounded before it is split, so that no second is shown as 60.000.
    time.get_caldat(year, month, day, hour, minute, second, half_digit);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%06.3f", year, month, day, hour, minute, second);
    return text;
}

// Empty without a week.
std::string Calendar_Time(const EPO_DATA &epoch)
{
    const Gps_Time time = epoch.ReadGPSTime();
    return Has_Week(epoch) ? Date_And_Time(mTime(time.week, time.sec)) : "";
}

// --- Lines for people

void Print_Value(std::FILE *out, int width, int digits, double value)
{
    if (Has_Value(value))
        std::fprintf(out, " %*.*f", width, digits, value);
    else
        std::fprintf(out, " %*s", width, "");
}

void Print_Epoch(std::FILE *out, const EPO_DATA &epoch)
{
    const std::string week = Has_Week(epoch) ? std::to_string(epoch.ReadGPSTime().week) : "-";
    std::fprintf(out, "> %4s %10.3f  %s  %u satellites\n", week.c_str(), epoch.ReadDoubleEpo(EPO_SECONDS),
                 Calendar_Time(epoch).c_str(), static_cast<unsigned int>(epoch.ReadUint8Epo(EPO_SATELLITES)));
}

void Print_Position(std::FILE *out, const Position &position)
{
    double time = 0, x = 0, y = 0, z = 0;
    const std::string when = position.Read_Time(time) ? Date_And_Time(mTime(time)) : "no time";
    if (position.Read_WGS(x, y, z))
        std::fprintf(out, "P %s  %.4f %.4f %.4f  %s\n", when.c_str(), x, y, z,
                     Position::Get_Solution_Name(position.Get_Solution()));
}

// Sets that were not tracked are left out; the letter in front tells them apart.
void Print_Satellite(std::FILE *out, const Satellite_Line &line)
{
    std::fputs(line.name.c_str(), out);
    for (std::size_t set = 0; set < line.sets.size(); ++set) {
        if (!line.sets[set]) continue;
        const Satellite_Line::Set &values = *line.sets[set];
        std::fprintf(out, "  %c", set_names[set]);
        Print_Value(out, 12, 3, values.pseudorange);
        Print_Value(out, 13, 3, values.phase);
        Print_Value(out, 9, 3, values.doppler);
        Print_Value(out, 5, 2, values.cn0);
    }
    if (line.view)
        std::fprintf(out, "  el %.2f az %.2f range %.3f rate %.3f", Degrees(line.view->elevation),
                     Degrees(line.view->azimuth), line.view->range, line.view->range_rate);
    std::fputc('\n', out);
}

// --- Rows for programs

// The fewest digits that read back as the same number; a point in every locale.
std::string Exact(double value)
{
    if (!Has_Value(value)) return "";
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value);
    return {text, end.ptr};
}

std::string Epoch_Row(const EPO_DATA &epoch)
{
    const std::string week = Has_Week(epoch) ? std::to_string(epoch.ReadGPSTime().week) : "";
    return week + ',' + Exact(epoch.ReadDoubleEpo(EPO_SECONDS));
}

const char satellite_columns[] = "week,seconds,satellite,glonass_channel";
const char *const set_columns[] = {"signal",   "pseudorange_m", "phase_cycles", "doppler_hz",
                                   "cn0_dbhz", "lock_time_s",   "half_cycle",   "lock_lost"};
const char view_columns[] = ",elevation_deg,azimuth_deg,range_m,range_rate_m_s";

// The columns must agree with Satellite_Row.
std::string Satellite_Header()
{
    std::string header = satellite_columns;
    for (const char set : {'A', 'B', 'C'})
        for (const char *column : set_columns) header += std::string(",") + column + '_' + set;
    return header + view_columns;
}

std::string Set_Fields(const std::optional<Satellite_Line::Set> &set)
{
    if (!set) return std::string(std::size(set_columns), ',');
    const std::string signal = set->signal != Satellite_Line::no_signal ? std::to_string(set->signal) : "";
    std::string fields = ',' + signal;
    for (const double value : {set->pseudorange, set->phase, set->doppler, set->cn0, set->lock_time})
        fields += ',' + Exact(value);
    return fields + (set->half_cycle ? ",1" : ",0") + (set->lost ? ",1" : ",0");
}

std::string Satellite_Row(const EPO_DATA &epoch, const Satellite_Line &line)
{
    std::string row = Epoch_Row(epoch) + ',' + line.name + ',' + (line.channel ? std::to_string(*line.channel) : "");
    for (const auto &set : line.sets) row += Set_Fields(set);
    if (!line.view) return row + ",,,,";  // a comma per column of the view
    for (const double value :
         {Degrees(line.view->elevation), Degrees(line.view->azimuth), line.view->range, line.view->range_rate})
        row += ',' + Exact(value);
    return row;
}

}  // namespace

// --- Files

Epoch_Printer::Csv::~Csv()
{
    if (file) std::fclose(file);
}

bool Epoch_Printer::Csv::Open(const std::string &path, const std::string &header, Error_Handler &handler)
{
    name = path;
    // Binary, so that a table has the same line ends on every system.
    file = std::fopen(path.c_str(), "wb");
    if (!file) {
        handler.Set(unit, __LINE__)->Print_Out(Error_Handler::ES_Error, "Could not create file %s.", name.c_str());
        return false;
    }
    Write(header);
    return true;
}

bool Epoch_Printer::Csv::Close(Error_Handler &handler)
{
    if (!file) return true;
    // Write does not check: the stream remembers a failure, and fclose fails when the buffered rest cannot be written.
    const bool written = std::ferror(file) == 0;
    if (std::fclose(std::exchange(file, nullptr)) == 0 && written) return true;
    handler.Set(unit, __LINE__)->Print_Out(Error_Handler::ES_Error, "Could not write to file %s.", name.c_str());
    return false;
}

void Epoch_Printer::Csv::Write(const std::string &line)
{
    if (!file) return;
    std::fputs(line.c_str(), file);
    std::fputc('\n', file);
}

bool Epoch_Printer::Open_Csv(const std::string &prefix, Error_Handler &handler)
{
    return epoch_file_.Open(prefix + "_epochs.csv", "week,seconds,time,satellites", handler) &&
           satellite_file_.Open(prefix + "_satellites.csv", Satellite_Header(), handler);
}

bool Epoch_Printer::Close(Error_Handler &handler)
{
    // Both are closed, even when the first fails.
    const bool epochs = epoch_file_.Close(handler);
    return satellite_file_.Close(handler) && epochs;
}

// --- Records

Epoch_Printer::Epoch_Printer(std::FILE *epochs, std::FILE *others)
    : out_(epochs), others_(others), observation_client_([this](std::unique_ptr<EPO_DATA> epoch) { Take(*epoch); }),
      ephemeris_client_([this](std::unique_ptr<KeplerData> ephemeris) { Take(*ephemeris); }),
      glonass_client_([this](std::unique_ptr<GlonassEph> ephemeris) { Take(*ephemeris); }),
      position_client_([this](std::unique_ptr<Position> position) { Take(*position); })
{
    // They are members, which the decoder's servers must not delete.
    observation_client_.Dont_Delete_Me();
    ephemeris_client_.Dont_Delete_Me();
    glonass_client_.Dont_Delete_Me();
    position_client_.Dont_Delete_Me();
}

bool Epoch_Printer::Connect(Rtcm3_Decoder &decoder)
{
    return Connect(decoder.Observations()) && Connect(decoder.Ephemerides()) &&
           Connect(decoder.Glonass_Ephemerides()) && Connect(decoder.Positions());
}

bool Epoch_Printer::Connect(Object_Server &server)
{
    const std::pair<const char *, Object_Client *> kinds[] = {{Obs_Server::ClassName(), &observation_client_},
                                                              {Eph_Server::ClassName(), &ephemeris_client_},
                                                              {Glo_Eph_Server::ClassName(), &glonass_client_},
                                                              {Pos_Server::ClassName(), &position_client_}};
    for (std::size_t i = 0; i < is_taken_.size(); ++i) {
        if (!server.IsInheritedFrom(kinds[i].first)) continue;
        return !std::exchange(is_taken_[i], true) && server.Connect(kinds[i].second);
    }
    return false;
}

void Epoch_Printer::Take(const EPO_DATA &epoch)
{
    if (also_) also_(epoch);
    const unsigned char satellites = epoch.ReadUint8Epo(EPO_SATELLITES);
    ++epochs_;
    satellites_ += satellites;
    epoch_file_.Write(Epoch_Row(epoch) + ',' + Calendar_Time(epoch) + ',' + std::to_string(satellites));
    if (out_) Print_Epoch(out_, epoch);
    // The totals alone do not need the satellites.
    if (!out_ && !satellite_file_.file) return;
    for (unsigned char sat = 0; sat < satellites; ++sat) {
        Satellite_Line line = Line_Of(epoch, sat);
        line.view = View(epoch, line);
        if (out_) Print_Satellite(out_, line);
        satellite_file_.Write(Satellite_Row(epoch, line));
    }
}

std::optional<Satellite_View> Epoch_Printer::View(const EPO_DATA &epoch, const Satellite_Line &satellite) const
{
    if (satellite.name[0] != 'G' || !station_ || !Has_Week(epoch)) return {};
    const auto prn = std::strtoul(satellite.name.c_str() + 1, nullptr, 10);
    const KeplerData &ephemeris = ephemerides_[prn < ephemerides_.size() ? prn : 0];
    if (ephemeris.Get(Kepler_prn) == 0) return {};
    // Any code is exact enough: it dates the transmission, and some metres of ionosphere shift the satellite by less
    // than a millimetre.
    for (const auto &set : satellite.sets)
        if (set && Has_Value(set->pseudorange))
            return View_Of(ephemeris, epoch.ReadGPSTime(), set->pseudorange, *station_);
    return {};
}

void Epoch_Printer::Take(const KeplerData &ephemeris)
{
    ++gps_ephemerides_;
    const std::uint32_t prn = ephemeris.Get(Kepler_prn);
    if (others_) std::fprintf(others_, "E G%02u %4.0f %10.3f\n", prn, ephemeris[Kepler_week], ephemeris[Kepler_toe]);
    if (prn < ephemerides_.size()) ephemerides_[prn] = ephemeris;
}

void Epoch_Printer::Take(const GlonassEph &ephemeris)
{
    ++glonass_ephemerides_;
    if (others_) std::fprintf(others_, "E R%02d %8.0f\n", ephemeris.slot, static_cast<double>(ephemeris.tb));
}

void Epoch_Printer::Take(const Position &position)
{
    std::array<double, 3> xyz;
    if (position.Read_WGS(xyz.data())) station_ = xyz;
    if (others_) Print_Position(others_, position);
    double height = 0;
    if (position.Read_Antenna_Height(height)) antenna_height_ = height;
}

void Epoch_Printer::Print_Totals(std::FILE *out) const
{
    // In the same columns as the totals of Rtcm3_Output, which come before.
    const std::pair<const char *, std::uint64_t> totals[] = {{"epochs", epochs_},
                                                             {"satellites in epochs", satellites_},
                                                             {"GPS ephemerides", gps_ephemerides_},
                                                             {"GLONASS ephemerides", glonass_ephemerides_}};
    for (const auto &[name, value] : totals)
        std::fprintf(out, "%-24s %12llu\n", name, static_cast<unsigned long long>(value));
    if (station_) {
        const auto &[x, y, z] = *station_;
        std::fprintf(out, "%-24s %.4f %.4f %.4f\n", "station position [m]", x, y, z);
        if (antenna_height_) std::fprintf(out, "%-24s %12.4f\n", "antenna height [m]", *antenna_height_);
    } else {
        std::fprintf(out, "%-24s %12s\n", "station position [m]", "none");
    }
}

}  // namespace host
