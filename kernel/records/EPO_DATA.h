// One observation epoch of a GNSS receiver: a sparse container of epoch-wide values and of measurements per satellite.
//
// Producers and consumers agree on the two enumerations below. Each quantity has a storage kind (double, float or
// byte). The 9 quantities of an epoch fill exactly its 3 + 6 places, and the 37 quantities of a satellite exactly its
// 15 + 10 + 12 places: a complete epoch on three carriers always fits.
//
// A satellite is observed on up to three carriers, with one signal on each: A is the first, C the second, B the third.
// A receiver that tracks both C/A and P(Y) on L1 stores C1 in A, P1 in B and P2 in C. Store two codes in A and C,
// because an Obs_Server compares these. There is no place for other carriers: QZSS L6, Galileo E6, BeiDou B1C and B2a.
//
//   system, letter  A [MHz]             C                   B
//   GPS      'G'    L1  1575.42         L2  1227.60         L5  1176.45, or P(Y) on L1
//   GLONASS  'R'    G1  1602 + k 9/16   G2  1246 + k 7/16   G3  1202.025, or P on G1
//   Galileo  'E'    E1  1575.42         E5b 1207.14         E5a 1176.45
//   SBAS     'S'    L1  1575.42         -                   L5  1176.45
//   QZSS     'J'    L1  1575.42         L2  1227.60         L5  1176.45
//   BeiDou   'C'    B1I 1561.098        B2  1207.14         B3  1268.52
#pragma once

#include "kernel/base/kernel_api.h"
#include "kernel/time/Gps_Time.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace kernel {

// Epoch-wide values. An absent double reads -1.0, an absent byte 255. Where 255 is a possible value, ask is_ava_epo.
enum EpoDataTypes : int {
    EPO_SECONDS = 0,       // double [s] GPS seconds of week, 0 to 604800
    EPO_SATELLITES = 1,    // byte   number of satellites in the epoch
    EPO_WEEK_LOW = 2,      // byte   GPS week, low byte
    EPO_WEEK_HIGH = 3,     // byte   GPS week, high byte
    EPO_CLOCK_OFFSET = 4,  // double [s] receiver clock minus GPS time
    EPO_CLOCK_DRIFT = 5,   // double [s/s]
    EPO_STATION_LOW = 6,   // byte   reference station number (DF003, 12 bits), low byte
    EPO_STATION_HIGH = 7,  // byte   bits 0-3: its high bits; bits 4-6: issue of data station (DF409)
    EPO_SMOOTHING = 8,     // byte   bits 0-2: smoothing interval as DF418; bit 3: divergence-free (DF417);
                           //        bits 4-5: clock steering (DF411)
    EPO_END = 9,
};

// Measurements of one satellite. A quantity that no satellite has reads -1 (double, float) or 255 (byte). If other
// satellites have it, an entry that was never stored reads 0 (double, float: not measured) or 255 (byte: not known).
enum ObsDataTypes : int {
    TRACKING_FLAG = 0,      // byte   1 to 7: carriers tracked, bit 0: A, bit 1: B, bit 2: C
    OBS_SYSTEM = 1,         // byte   the system's letter, see above
    OBS_GLO_CHANNEL = 2,    // byte   GLONASS frequency channel k + 7, 0 (k = -7) to 13 (k = 6)
    OBS_HALF_CYCLE = 3,     // byte   half-cycle ambiguity not resolved, a bit per carrier as in TRACKING_FLAG
    OBS_SATELLITE = 4,      // byte   number within the system: PRN, GLONASS slot, SBAS 120 to 158, QZSS from 1
    OBS_VALID_A = 5,        // byte   code validity: 0 usable, 255 unusable or not known, between: the producer's grades
    OBS_VALID_B = 6,        // byte
    OBS_VALID_C = 7,        // byte
    OBS_SIGNAL_A = 8,       // byte   tracked signal, 1 to 32: its place in the system's RTCM MSM signal mask (DF395),
    OBS_SIGNAL_B = 9,       // byte     e.g. GPS 2: C/A, 4: Z-tracked P(Y) on L1, 10: the same on L2, 15 to 17: L2C,
    OBS_SIGNAL_C = 10,      // byte     22 to 24: L5
    OBS_LOSS_OF_LOCK = 11,  // byte   lock lost since the epoch before, a bit per carrier as in TRACKING_FLAG
    OBS_SAT_X = 12,         // double [m] satellite position at transmission, ECEF
    OBS_SAT_Y = 13,         // double [m]
    OBS_SAT_Z = 14,         // double [m]
    OBS_CODE_A = 15,        // double [m] pseudorange, 0: not measured
    OBS_CODE_B = 16,        // double [m]
    OBS_CODE_C = 17,        // double [m]
    OBS_PHASE_A = 18,       // double [cycles] carrier phase, growing with the range, 0: not measured
    OBS_PHASE_B = 19,       // double [cycles]
    OBS_PHASE_C = 20,       // double [cycles]
    OBS_DOPPLER_A = 21,     // double [Hz] positive while the satellite comes nearer
    OBS_DOPPLER_B = 22,     // double [Hz]
    OBS_DOPPLER_C = 23,     // double [Hz]
    OBS_RANGE = 24,         // double [m] geometric range
    OBS_RANGE_RATE = 25,    // double [m/s] of the geometric range
    OBS_SAT_CLOCK = 26,     // double [s] satellite clock minus system time
    OBS_CN0_A = 27,         // float  [dB-Hz] carrier to noise density, 0: not measured
    OBS_CN0_B = 28,         // float  [dB-Hz]
    OBS_CN0_C = 29,         // float  [dB-Hz]
    OBS_LOCK_TIME_A = 30,   // float  [s] minimum time of continuous lock (DF013, DF402, DF407 and the like)
    OBS_LOCK_TIME_B = 31,   // float  [s]
    OBS_LOCK_TIME_C = 32,   // float  [s]
    OBS_ELEVATION = 33,     // float  [rad] above the horizon
    OBS_AZIMUTH = 34,       // float  [rad] from north over east
    OBS_IONO_DELAY = 35,    // float  [m] ionospheric delay of the code on carrier A
    OBS_TROPO_DELAY = 36,   // float  [m] tropospheric delay
    OBS_END = 37,
};

// Satellites are entries, numbered from 0; the first EPO_SATELLITES are in use. The first store of a quantity decides
// its kind. An epoch that is filled again (the static record of a server) keeps what is not stored again, including the
// code validity that the check of Obs_Server has set.
//
// Threads:   one at a time; an epoch that was handed over belongs to the receiver.
// Ownership: one array per stored quantity, from malloc on first use to destruction; copies are deep.
// Errors:    never throws and reports nothing; see the operations.
class KERNEL_API EPO_DATA {
public:
    explicit EPO_DATA(int capacity);             // number of entries, 0 to 255; the low 8 bits count
    EPO_DATA(const EPO_DATA &other);             // without memory: an empty epoch of the same capacity
    EPO_DATA &operator=(const EPO_DATA &other);  // as copy
    ~EPO_DATA();

    // Return the place used, counted per kind. Return -1 when all places of the kind are taken, the quantity is stored
    // in another kind, the type is not in the enumeration, or memory is short. Return -2 when sat is greater than the
    // capacity (equal is accepted); the quantity is present then, too.
    int StoreDoubleEpo(EpoDataTypes type, double value);
    int StoreUint8Epo(EpoDataTypes type, unsigned char value);
    int StoreDoubleObs(ObsDataTypes type, double value, unsigned char sat);
    int StoreFloatObs(ObsDataTypes type, float value, unsigned char sat);
    int StoreUint8Obs(ObsDataTypes type, unsigned char value, unsigned char sat);

    // Return -1 or 255 when the quantity is absent or stored in another kind, or sat is greater than the capacity.
    double ReadDoubleEpo(EpoDataTypes type) const;
    unsigned char ReadUint8Epo(EpoDataTypes type) const;
    double ReadDoubleObs(ObsDataTypes type, unsigned char sat) const;
    float ReadFloatObs(ObsDataTypes type, unsigned char sat) const;
    unsigned char ReadUint8Obs(ObsDataTypes type, unsigned char sat) const;

    int StoreGPSTime(const Gps_Time &time);  // 1, or -1 when a store failed
    Gps_Time ReadGPSTime() const;            // absent: week 65535, -1 s

    // Return 1 when every listed type is present in any kind, else 0. EPO_END or OBS_END may end the list early.
    template <class... Types>
    int is_ava_epo(EpoDataTypes type, Types... more) const
    {
        return All_Present({type, static_cast<EpoDataTypes>(more)...});
    }
    template <class... Types>
    int is_ava_obs(ObsDataTypes type, Types... more) const
    {
        return All_Present({type, static_cast<ObsDataTypes>(more)...});
    }

    // Removes an entry: the entries after it move down by one and the count decreases by one. The old last entry keeps
    // its values. Does nothing without a count, or when sat is not below the count.
    void RemoveEpoIndex(unsigned char sat);

    // Makes this a deep copy, capacity included. Returns 1, or -1 for null or without memory; then nothing changes.
    // Existing arrays are reused: copying epochs of the same shape does not allocate.
    int copy(const EPO_DATA *source);

private:
    static constexpr std::uint8_t not_present = 255;

    // The places of one kind. An index entry holds a place counted over all kinds; those of this kind begin at `first`.
    template <class T, int first, int limit>
    struct Places {
        std::uint8_t used = 0;
        T item[limit] = {};

        int Find(std::uint8_t place) const { return place >= first && place < first + limit ? place - first : -1; }
        bool Is_Free(std::uint8_t place) const { return place == not_present && used < limit; }
        int Add(std::uint8_t &place, T value);
    };

    template <class T, int first, int limit>
    int Store_Epo(Places<T, first, limit> &values, EpoDataTypes type, T value);
    template <class T, int first, int limit>
    T Read_Epo(const Places<T, first, limit> &values, EpoDataTypes type, T absent) const;
    template <class T, int first, int limit>
    int Store_Obs(Places<T *, first, limit> &arrays, ObsDataTypes type, T value, unsigned char sat, int fill);
    template <class T, int first, int limit>
    T Read_Obs(const Places<T *, first, limit> &arrays, ObsDataTypes type, unsigned char sat, T absent) const;

    int All_Present(std::initializer_list<EpoDataTypes> types) const;
    int All_Present(std::initializer_list<ObsDataTypes> types) const;

    // Of each array; one more than the capacity, which is a valid index.
    std::size_t Entries() const { return std::size_t{capacity_} + 1; }
    template <class T>
    T *New_Array(int fill) const;
    bool Can_Hold(const EPO_DATA &source) const;
    bool Allocate_As(const EPO_DATA &source);
    void Swap(EPO_DATA &other);

    std::uint8_t capacity_;
    std::uint8_t epo_index_[EPO_END];
    std::uint8_t obs_index_[OBS_END];
    Places<double, 0, 3> epo_doubles_;
    Places<unsigned char, 3, 6> epo_bytes_;
    Places<double *, 0, 15> doubles_;
    Places<float *, 15, 10> floats_;
    Places<unsigned char *, 25, 12> bytes_;
};

}  // namespace kernel
