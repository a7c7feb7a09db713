// What a decoder's records say, as text: per epoch and satellite on a stream, as tables in CSV files, and in totals.
#pragma once

#include "host/decoders/Record_Client.h"
#include "host/decoders/Rtcm3_Decoder.h"
#include "host/decoders/Satellite_View.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace host {

// One satellite of an epoch, taken out of its record. What was not measured is no_value.
struct Satellite_Line {
    struct Set {
        double pseudorange = no_value;  // [m]
        double phase = no_value;        // [cycles]
        double doppler = no_value;      // [Hz]
        double cn0 = no_value;          // [dB-Hz]
        double lock_time = no_value;    // [s]
        int signal = 255;               // its place in the MSM signal mask; 255: not known
        bool half_cycle = false, lost = false;
    };
    std::string name;                        // "G07"
    std::optional<int> channel;              // of GLONASS
    std::array<std::optional<Set>, 3> sets;  // A, B, C
    std::optional<Satellite_View> view;
};

// The first line of the files names the columns; a blank is a value that is not there, numbers have all their digits.
//   PREFIX_epochs.csv       a row per epoch
//   PREFIX_satellites.csv   a row per satellite of each epoch: the carrier sets A, B and C one after the other, then
//                           elevation, azimuth, range and range rate of GPS satellites, where ephemeris and station are known
//
// Threads:   records arrive on the byte server's thread; all else belongs to a time when it does not send.
// Ownership: its clients stay its own: it outlives the decoder. The stream is the caller's.
// Errors:    Open_Csv and Close answer false; what went wrong with which file is reported to the handler.
class Epoch_Printer {
public:
    explicit Epoch_Printer(std::FILE *epochs);  // null: no lines per epoch
    Epoch_Printer(const Epoch_Printer &) = delete;
    Epoch_Printer &operator=(const Epoch_Printer &) = delete;

    bool Open_Csv(const std::string &prefix, kernel::Error_Handler &handler);  // replaces files that are there
    bool Connect(Rtcm3_Decoder &decoder);
    bool Close(kernel::Error_Handler &handler);  // false: a file could not be written whole
    void Print_Totals(std::FILE *out) const;

private:
    struct Csv {
        std::string name;
        std::FILE *file = nullptr;

        Csv() = default;
        Csv(const Csv &) = delete;
        Csv &operator=(const Csv &) = delete;
        ~Csv();
        bool Open(const std::string &path, const std::string &header, kernel::Error_Handler &handler);
        bool Close(kernel::Error_Handler &handler);
        void Write(const std::string &line);
    };

    void Take(const kernel::EPO_DATA &epoch);
    void Take(const kernel::KeplerData &ephemeris);
    void Take(const kernel::Position &position);
    std::optional<Satellite_View> View(const kernel::EPO_DATA &epoch, const Satellite_Line &satellite) const;

    std::FILE *const out_;
    Csv epoch_file_, satellite_file_;
    std::uint64_t epochs_ = 0, satellites_ = 0, gps_ephemerides_ = 0, glonass_ephemerides_ = 0;
    std::array<kernel::KeplerData, 33> ephemerides_{};  // by PRN; the one of PRN 0 where there is none
    std::optional<std::array<double, 3>> station_;      // [m] ECEF
    std::optional<double> antenna_height_;              // [m]

    Obs_Record_Client observation_client_;
    Eph_Record_Client ephemeris_client_;
    Glo_Eph_Record_Client glonass_client_;
    Pos_Record_Client position_client_;
};

}  // namespace host
