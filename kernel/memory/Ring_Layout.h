// The bytes of a ring: its header, its records and their measurement blocks. All processes that use a ring lay it out
// so: little-endian, without gaps. docs/formats.md shows the same as tables.
//
// In the segment's data stand the header (2440 bytes), `slots` records of 216 bytes, and `pool_size` blocks of 172.
#pragma once

#include "kernel/records/Records.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kernel {

static_assert(std::endian::native == std::endian::little);

// The kinds of satellites, which blocks are chosen by. DATA_ALL is for questions only.
enum DATA_TYPE : int { DATA_GPS, DATA_GLONASS, DATA_GALILEO, DATA_BEIDOU, DATA_QZSS, DATA_SBAS, DATA_ALL };
constexpr std::size_t Data_Types = DATA_ALL;

// The letters of the kinds, as in RINEX.
constexpr std::array<char, Data_Types> Data_Type_Letters{'G', 'R', 'E', 'C', 'J', 'S'};

// The number of a satellite in a ring: 256 times its kind, and its number within the system. GPS: the PRN.
constexpr unsigned Ring_Satellite(DATA_TYPE type, unsigned number)
{
    return static_cast<unsigned>(type) * 256 + number;
}

// What one satellite's epoch measures. The quantities are those of EPO_DATA (EPO_DATA.h) on the carriers A, B, C; the
// same values mean "not measured" and "not known" as there.
struct MEASBLOCK {
    //                                  offset
    std::uint8_t type = 0;                            //    0  DATA_TYPE
    std::uint8_t number = 0;                          //    1  within the system; 0: the block is empty
    std::int8_t channel = 0;                          //    2  GLONASS frequency channel, -7..6
    std::uint8_t tracking = 0;                        //    3  carriers tracked, TRACKING_FLAG
    std::array<std::uint8_t, 3> valid{};              //    4  code validity, 0: usable
    std::uint8_t half_cycle = 0;                      //    7  a bit per carrier
    std::array<std::uint8_t, 3> signal{};             //    8  place in the signal mask DF395
    std::uint8_t loss_of_lock = 0;                    //   11  a bit per carrier
    std::array<Word_Double, 3> code{};                //   12  [m] pseudorange
    std::array<Word_Double, 3> phase{};               //   36  [cycles]
    std::array<Word_Double, 3> doppler{};             //   60  [Hz]
    std::array<float, 3> cn0{};                       //   84  [dB-Hz]
    std::array<float, 3> lock_time{};                 //   96  [s]
    std::array<Word_Double, 3> satellite_position{};  //  108  [m] ECEF, at transmission
    Word_Double satellite_clock = 0;                  //  132  [s]
    float elevation = 0;                              //  140  [rad]
    float azimuth = 0;                                //  144  [rad]
    float iono_delay = 0;                             //  148  [m] of the code on carrier A
    float tropo_delay = 0;                            //  152  [m]
    Word_Double range = 0;                            //  156  [m] geometric
    Word_Double range_rate = 0;                       //  164  [m/s]
};
static_assert(sizeof(MEASBLOCK) == 172 && alignof(MEASBLOCK) == 4 && std::is_trivially_copyable_v<MEASBLOCK>);
static_assert(offsetof(MEASBLOCK, code) == 12 && offsetof(MEASBLOCK, cn0) == 84 &&
              offsetof(MEASBLOCK, satellite_position) == 108 && offsetof(MEASBLOCK, elevation) == 140 &&
              offsetof(MEASBLOCK, range) == 156);

// One epoch. The fields of the ring itself: time, sequence, skipped, flags (gap), first_block, block_flags (number).
struct REFDATA {
    static constexpr std::uint32_t No_Block = 0xFFFFFFFF;
    static constexpr std::uint32_t Has_Ant = 1, Has_Spp = 2, Has_Clk = 4, Has_Temp = 8, Has_Press = 16, Has_Hum = 32;
    static constexpr unsigned Gap_Shift = 19, Gap_Mask = 0xFFF;      // of `flags`
    static constexpr unsigned Blocks_Shift = 8, Blocks_Mask = 0x1F;  // of `block_flags`

    //                                  offset
    double time = 0;                          //    0  [s] GPS, since 1980-01-06
    std::uint32_t sequence = 0;               //    8  odd while the writer is inside; grows with each use of the slot
    std::uint32_t skipped = 0;                //   12  blocks left free at the end of the pool, before this record's
    std::uint32_t flags = 0;                  //   16  bits 0 to 5: Has_...; 19 to 30: gap to the record before,
                                              //       (whole seconds * 10) mod 4096
    std::uint32_t first_block = No_Block;     //   20  index in the pool
    std::array<double, 3> ant{};              //   24  [m] ECEF, the antenna by the station's own solution
    std::array<double, 3> spp{};              //   48  [m] ECEF, by code and this epoch alone
    double clk_error = 0;                     //   72  [s] receiver clock less GPS time
    double clk_drift = 0;                     //   80  [s/s]
    double clk_error_var = 0;                 //   88  [s^2]
    double clk_drift_var = 0;                 //   96  [s^2/s^2]
    double spp_error = 0;                     //  104  [m] standard deviation of `spp`
    std::array<float, 4> dop{};               //  112  [1] geometric, position, horizontal, vertical
    float temp = 0, press = 0, hum = 0;       //  128  [deg C], 132 [hPa], 136 [%]
    std::array<std::uint8_t, 8> sats{};       //  140  blocks by DATA_TYPE, counted when the record is published
    std::uint32_t station = 0;                //  148  reference station number, DF003
    std::array<std::uint8_t, 56> reserved{};  //  152
    std::uint32_t reserved_2 = 0;             //  208
    std::uint32_t block_flags = 0;            //  212  bits 8 to 12: number of blocks; 13 to 15 are kept
};
static_assert(sizeof(REFDATA) == 216 && alignof(REFDATA) == 8 && std::is_trivially_copyable_v<REFDATA>);
static_assert(offsetof(REFDATA, flags) == 16 && offsetof(REFDATA, first_block) == 20 && offsetof(REFDATA, ant) == 24 &&
              offsetof(REFDATA, clk_error) == 72 && offsetof(REFDATA, dop) == 112 && offsetof(REFDATA, sats) == 140 &&
              offsetof(REFDATA, block_flags) == 212);

// The station. The first words, and those from 1744 on, are the ring's; the rest the station program fills.
struct Ring_Header {
    static constexpr std::uint16_t Version = 522;
    static constexpr std::uint32_t Has_Ref_Off = 1, Is_Rogue = 2;
    static constexpr std::size_t Cal_Values = 38;  // L1 and L2: 19 each, at 0, 5, ... 90 degrees from the zenith
    static constexpr std::size_t Satellites = Data_Types * 256;

    //                                  offset
    std::uint32_t head = 0;                               //    0  slot of the newest published record
    std::uint32_t tail = 0;                               //    4  slot of the oldest
    std::uint32_t free_blocks = 0;                        //    8
    std::uint32_t next_block = 0;                         //   12  to hand out next
    std::uint32_t pool_size = 0;                          //   16  [blocks]
    std::uint32_t count = 0;                              //   20  records held
    std::uint32_t slots = 0;                              //   24
    std::uint32_t total = 0;                              //   28  records published, less one
    std::uint16_t version = 0;                            //   32
    std::uint16_t station = 0;                            //   34  reference station number, DF003
    std::uint32_t flags = 0;                              //   36  Has_Ref_Off, Is_Rogue
    std::array<char, 32> ant_number{};                    //   40  serial number; these three end with a zero
    std::array<char, 32> ant_type{};                      //   72  IGS name of antenna and radome
    std::array<char, 32> point_number{};                  //  104
    std::array<double, 3> pos{};                          //  136  [m] ECEF, the antenna as far as known
    std::array<double, 3> ref_pos{};                      //  160  [m] ECEF, the marker
    std::array<double, 3> off_l1{};                       //  184  [m] north, east, up: phase centre of L1
    std::array<double, 3> off_l2{};                       //  208  [m] of L2
    std::array<double, 3> ref_off{};                      //  232  [m] north, east, up: antenna less marker
    std::array<double, Cal_Values> cal_data{};            //  256  [m] variation of the phase centres
    std::array<double, 3> ant_mean{};                     //  560  [m] mean of the records' `ant`
    std::array<double, 3> spp_mean{};                     //  584  [m] mean of the records' `spp`
    std::uint32_t ant_count = 0, spp_count = 0;           //  608, 612  solutions in these means
    double clk_error = 0, clk_drift = 0;                  //  616 [s], 624 [s/s], the newest
    double clk_error_var = 0, clk_drift_var = 0;          //  632 [s^2], 640 [s^2/s^2]
    std::uint32_t clk_resets = 0;                         //  648  jumps and resets of the receiver's clock
    std::uint32_t met_count = 0;                          //  652  values in the means that follow
    double mean_temp = 0, mean_press = 0, mean_hum = 0;   //  656 [deg C], 664 [hPa], 672 [%]
    double last_temp = 0, last_press = 0, last_hum = 0;   //  680, 688, 696  the newest
    double interval = 0;                                  //  704  [s] between two epochs
    double cutoff = 0;                                    //  712  [deg] elevation
    double last_obs = 0;                                  //  720  [s] GPS, time of the newest observations
    double code_phase_value = 0;                          //  728  [m]
    std::uint32_t file_length = 0;                        //  736  [s] of the station's files
    std::uint32_t max_channel = 0;                        //  740  of the receiver
    std::uint32_t decoder = 0;                            //  744  the station program's number of its decoder
    std::uint32_t obs_type = 0;                           //  748  a bit per DATA_TYPE that is recorded
    std::uint32_t has = 0;                                //  752  the station program's bits
    std::uint32_t reserved_0 = 0;                         //  756
    std::array<std::uint8_t, Satellites / 8> disabled{};  //  760  a bit per Ring_Satellite the receiver leaves out
    std::array<std::uint8_t, 792> reserved{};             //  952
    std::uint32_t meas_inserts = 0;                       // 1744
    std::uint32_t blocks_handed_out = 0;                  // 1748
    std::uint32_t pos_inserts = 0;                        // 1752
    std::uint32_t start_time = 0;                         // 1756  [s] GPS
    std::array<std::uint8_t, 584> reserved_2{};           // 1760
    std::uint32_t blocks_per_record = 0;                  // 2344  expected; 0: 12
    std::array<std::uint8_t, 92> reserved_3{};            // 2348
};
static_assert(sizeof(Ring_Header) == 2440 && alignof(Ring_Header) == 8 && std::is_trivially_copyable_v<Ring_Header>);
static_assert(offsetof(Ring_Header, version) == 32 && offsetof(Ring_Header, pos) == 136 &&
              offsetof(Ring_Header, cal_data) == 256 && offsetof(Ring_Header, ant_mean) == 560 &&
              offsetof(Ring_Header, clk_error) == 616 && offsetof(Ring_Header, mean_temp) == 656 &&
              offsetof(Ring_Header, interval) == 704 && offsetof(Ring_Header, disabled) == 760 &&
              offsetof(Ring_Header, meas_inserts) == 1744 && offsetof(Ring_Header, start_time) == 1756 &&
              offsetof(Ring_Header, blocks_per_record) == 2344);

// [bytes] of a segment's data with so many slots and blocks.
constexpr std::uint64_t Ring_Size(std::uint64_t slots, std::uint64_t pool_size)
{
    return sizeof(Ring_Header) + slots * sizeof(REFDATA) + pool_size * sizeof(MEASBLOCK);
}

}  // namespace kernel
