// Writes a decoder's records as text: lines for epochs and satellites, tables in CSV files, and totals.
#pragma once

#include "host/decoders/Record_Client.h"
#include "host/decoders/Rtcm3_Decoder.h"
#include "host/decoders/Satellite_View.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace host {

// One satellite of an epoch, read from the record. A value that was not measured is no_value.
struct Satellite_Line {
    static constexpr int no_signal = 255;

    struct Set {
        double pseudorange = no_value;  // [m]
        double phase = no_value;        // [cycles]
        double doppler = no_value;      // [Hz]
        double cn0 = no_value;          // [dB-Hz]
        double lock_time = no_value;    // [s]
        int signal = no_signal;         // its place in the MSM signal mask
        bool half_cycle = false, lost = false;
    };
    std::string name;                        // "G07"
    std::optional<int> channel;              // of GLONASS
    std::array<std::optional<Set>, 3> sets;  // A, B, C
    std::optional<Satellite_View> view;
};

// The first line of each file names the columns. An empty field is an absent value; numbers have all their digits.
//   PREFIX_epochs.csv       a row per epoch
//   PREFIX_satellites.csv a row per satellite of each epoch: the carrier sets A, B and C, then elevation, azimuth,
//   range
//                           and range rate of GPS satellites when ephemeris and station are known
//
// Threads:   records arrive on the byte server's thread; call the other operations while it does not send.
// Ownership: its clients are members, so it must outlive the decoder. The stream is the caller's.
// Errors:    Open_Csv and Close return false and report file and cause to the handler.
class Epoch_Printer {
public:
    // Lines per epoch, and lines per position and ephemeris; null: none.
    explicit Epoch_Printer(std::FILE *epochs, std::FILE *others = nullptr);
    Epoch_Printer(const Epoch_Printer &) = delete;
    Epoch_Printer &operator=(const Epoch_Printer &) = delete;

    bool Open_Csv(const std::string &prefix, kernel::Error_Handler &handler);  // replaces files that exist
    bool Connect(Rtcm3_Decoder &decoder);
    // False: records of another kind than the decoder's, a second server of a kind, or refused.
    bool Connect(kernel::Object_Server &server);
    // Before Connect: the function gets each epoch, too.
    void Also(std::function<void(const kernel::EPO_DATA &)> take) { also_ = std::move(take); }
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
    void Take(const kernel::GlonassEph &ephemeris);
    void Take(const kernel::Position &position);
    std::optional<Satellite_View> View(const kernel::EPO_DATA &epoch, const Satellite_Line &satellite) const;

    std::FILE *const out_, *const others_;
    Csv epoch_file_, satellite_file_;
    std::function<void(const kernel::EPO_DATA &)> also_;
    std::uint64_t epochs_ = 0, satellites_ = 0, gps_ephemerides_ = 0, glonass_ephemerides_ = 0;
    std::array<kernel::KeplerData, 33> ephemerides_{};  // by PRN, 1 to 32; an entry with PRN 0 is empty
    std::optional<std::array<double, 3>> station_;      // [m] ECEF
    std::optional<double> antenna_height_;              // [m]

    Obs_Record_Client observation_client_;
    Eph_Record_Client ephemeris_client_;
    Glo_Eph_Record_Client glonass_client_;
    Pos_Record_Client position_client_;
    std::array<bool, 4> is_taken_{};  // by client: it has a server
};

}  // namespace host
