#include "host/station/Epoch_Publisher.h"

#include <algorithm>
#include <optional>

namespace host {

using namespace kernel;

namespace {

std::optional<DATA_TYPE> Type_Of(unsigned char letter)
{
    const auto found = std::find(Data_Type_Letters.begin(), Data_Type_Letters.end(), static_cast<char>(letter));
    if (found == Data_Type_Letters.end()) return {};
    return static_cast<DATA_TYPE>(found - Data_Type_Letters.begin());
}

// An absent quantity is not measured: 0.
double Number(const EPO_DATA &epoch, ObsDataTypes type, unsigned char sat)
{
    return epoch.is_ava_obs(type) ? epoch.ReadDoubleObs(type, sat) : 0;
}
float Small_Number(const EPO_DATA &epoch, ObsDataTypes type, unsigned char sat)
{
    return epoch.is_ava_obs(type) ? epoch.ReadFloatObs(type, sat) : 0;
}
std::uint8_t Bits(const EPO_DATA &epoch, ObsDataTypes type, unsigned char sat)
{
    return epoch.is_ava_obs(type) ? epoch.ReadUint8Obs(type, sat) : std::uint8_t{0};
}

ObsDataTypes Carrier(ObsDataTypes first, std::size_t i)
{
    return static_cast<ObsDataTypes>(first + static_cast<int>(i));
}

void Fill(MEASBLOCK &block, DATA_TYPE type, const EPO_DATA &epoch, unsigned char sat)
{
    constexpr int channel_offset = 7;
    block.type = static_cast<std::uint8_t>(type);
    block.number = epoch.ReadUint8Obs(OBS_SATELLITE, sat);
    const unsigned char channel = epoch.ReadUint8Obs(OBS_GLO_CHANNEL, sat);
    block.channel = static_cast<std::int8_t>(channel == 255 ? 0 : channel - channel_offset);
    block.tracking = Bits(epoch, TRACKING_FLAG, sat);
    block.half_cycle = Bits(epoch, OBS_HALF_CYCLE, sat);
    block.loss_of_lock = Bits(epoch, OBS_LOSS_OF_LOCK, sat);
    for (std::size_t i = 0; i < 3; ++i) {
        block.valid[i] = epoch.ReadUint8Obs(Carrier(OBS_VALID_A, i), sat);
        block.signal[i] = epoch.ReadUint8Obs(Carrier(OBS_SIGNAL_A, i), sat);
        block.code[i] = Number(epoch, Carrier(OBS_CODE_A, i), sat);
        block.phase[i] = Number(epoch, Carrier(OBS_PHASE_A, i), sat);
        block.doppler[i] = Number(epoch, Carrier(OBS_DOPPLER_A, i), sat);
        block.cn0[i] = Small_Number(epoch, Carrier(OBS_CN0_A, i), sat);
        block.lock_time[i] = Small_Number(epoch, Carrier(OBS_LOCK_TIME_A, i), sat);
        block.satellite_position[i] = Number(epoch, Carrier(OBS_SAT_X, i), sat);
    }
    block.satellite_clock = Number(epoch, OBS_SAT_CLOCK, sat);
    block.elevation = Small_Number(epoch, OBS_ELEVATION, sat);
    block.azimuth = Small_Number(epoch, OBS_AZIMUTH, sat);
    block.iono_delay = Small_Number(epoch, OBS_IONO_DELAY, sat);
    block.tropo_delay = Small_Number(epoch, OBS_TROPO_DELAY, sat);
    block.range = Number(epoch, OBS_RANGE, sat);
    block.range_rate = Number(epoch, OBS_RANGE_RATE, sat);
}

void Fill_Record(REFDATA &record, const EPO_DATA &epoch)
{
    constexpr unsigned high_bits = 0xF;  // of DF003
    if (epoch.is_ava_epo(EPO_STATION_LOW, EPO_STATION_HIGH))
        record.station = epoch.ReadUint8Epo(EPO_STATION_LOW) | (epoch.ReadUint8Epo(EPO_STATION_HIGH) & high_bits) << 8;
    if (!epoch.is_ava_epo(EPO_CLOCK_OFFSET)) return;
    record.clk_error = epoch.ReadDoubleEpo(EPO_CLOCK_OFFSET);
    record.clk_drift = epoch.is_ava_epo(EPO_CLOCK_DRIFT) ? epoch.ReadDoubleEpo(EPO_CLOCK_DRIFT) : 0;
    record.flags |= REFDATA::Has_Clk;
}

}  // namespace

bool Epoch_Publisher::Publish(const EPO_DATA &epoch)
{
    const bool is_dated = epoch.is_ava_epo(EPO_SECONDS, EPO_WEEK_LOW, EPO_WEEK_HIGH) != 0;
    const int satellites = epoch.is_ava_epo(EPO_SATELLITES) ? epoch.ReadUint8Epo(EPO_SATELLITES) : 0;
    const double time = is_dated ? epoch.ReadGPSTime().secondsSinceGPS() : 0;
    REFDATA *const record = is_dated ? ring_.ins_meas(time, std::min(satellites, Most_Satellites)) : nullptr;
    if (!record) {
        ++refused_;
        return false;
    }
    Fill_Record(*record, epoch);
    MEASBLOCK *const blocks = ring_.get_blocks(record);
    const int room = Ring::get_block_count(record);
    std::fill_n(blocks, blocks ? room : 0, MEASBLOCK{});  // of an epoch that is filled again
    int used = 0;
    for (int sat = 0; sat < satellites && used < room; ++sat)
        if (const auto type = Type_Of(epoch.ReadUint8Obs(OBS_SYSTEM, static_cast<unsigned char>(sat))))
            Fill(blocks[used++], *type, epoch, static_cast<unsigned char>(sat));
    left_out_ += static_cast<std::uint64_t>(satellites - used);
    ring_.set_last_obs(time);
    ring_.ins_done_meas(record);
    ++published_;
    return true;
}

}  // namespace host
