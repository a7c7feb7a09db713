// Rings of epochs in shared memory: one process writes, any number of others read meanwhile. Ring_Layout.h has the
// bytes.
#pragma once

#include "kernel/memory/Ring_Layout.h"
#include "kernel/memory/sharemem.h"

#include <atomic>

namespace kernel {

// A copy of a record and its blocks.
struct Ring_Epoch {
    static constexpr std::size_t Most_Blocks = 31;

    REFDATA record;
    std::array<MEASBLOCK, Most_Blocks> blocks;
    int count = 0;  // blocks used
};

// An open ring. It never makes the segment: the station program does (host/station/Station_Segment.h).
//
// Writing: ins_meas or ins_pos gives the record of an epoch, the writer fills it and its blocks, and ins_done_meas
// publishes it. Readers see nothing until the second record is published, and get_total is one short for ever: the
// first record finds the head where it belongs. The ring evicts the oldest record when its slot or its blocks are
// needed, and never the newest.
//
// Reading: once `slots` - 16 records were published, readers start 16 slots behind the oldest, so that the writer can
// evict records without disturbing them. Pointers to records point into the segment. A slow reader, and one of the
// newest record, must therefore copy: Copy_Epoch says whether the writer was there meanwhile.
//
// The searches are those of the interface, not exact ones. In a ring that has wrapped they may also look at slots
// outside of the readers' part. Between two records find_greater may return the earlier one, and find_equal may miss a
// record that is there. Whoever needs the right one walks, or searches the readers' part by itself.
//
// Threads:   one process and thread writes; a second one would tear the ring. Any others read, each with an object of
//            its own, or one object on several threads but for the current record, which they then share. Publishing
//            stores the head with release order after the record is complete, and readers load it with acquire order.
// Ownership: as sharemem. The list of open rings owns nothing. Pointers are valid while the object is open; what they
//            point to may be evicted at any time.
// Errors:    none reported: null, -1, 0 or false. A segment that is smaller than its header says, or has fewer than 3
//            slots, is not opened. A ring of another version() can be read as far as it makes sense, but not written.
class KERNEL_API Ring : public sharemem {
public:
    static constexpr int Station_Rings = 4, Monitor_Rings = 8, Guard = 16;
    static constexpr int Station_Ring_Identity = 2047;  // get_station_id() of a station ring
    static constexpr double Same_Epoch = 0.01;          // [s]

    static Ring *Create(int ring);               // station ring 0..3; null when there is none to open
    static Ring *Create(int station, int ring);  // monitor ring: station 0..2046, ring 0..7
    static void Delete(Ring *&ring);
    static const char *Get_Station_Ring_Name(int ring);               // "RING_0".."RING_3", or null
    static const char *Get_Monitor_Ring_Name(int station, int ring);  // in a buffer of this thread: "RING_2_#0017"

    // The open rings of this process, in the order of station and ring. Safe from any thread, but the caller sees to it
    // that nobody deletes the ring that it uses.
    static Ring *Find(short station, unsigned short ring);
    static Ring *First();
    static Ring *Last();
    static Ring *Next(const Ring *ring);
    static Ring *Prev(const Ring *ring);
    static void DeleteAll();

    ~Ring() override;

    int valid() const { return header_ && sharemem::valid(); }
    int get_ring() const { return static_cast<int>(identity_ & 7); }
    int get_station_id() const { return static_cast<int>(identity_ >> 3); }
    bool version() const;  // whether the layout is this one
    const char *get_name() const { return get_segment_name(); }

    // --- Writing

    // The record of this epoch, zeroed but for its time: a new one, or the newest when it is at most 0.01 s away; null
    // when the time goes back by more, or is no number. `blocks` of 1 to 24 are taken for a record that owns none; if
    // they cannot be had, and with any other number, it has none.
    REFDATA *ins_meas(double time, int blocks);
    REFDATA *ins_pos(double time);                 // the same without blocks
    void ins_done_meas(REFDATA *record);           // publishes it; null is ignored
    MEASBLOCK *get_blocks(REFDATA *record) const;  // the first of its blocks; null without any
    static int get_block_count(const REFDATA *record);

    // --- Reading. get_ and walk_ also make the result the current record, find_ does not.

    REFDATA *get_head();
    REFDATA *find_head() const;
    REFDATA *get_tail();
    REFDATA *find_tail() const;
    double get_head_rtime() const;  // [s] GPS; 0 when there is none
    double get_tail_rtime() const;
    REFDATA *find_greater(double time) const;  // at this time or later
    REFDATA *get_greater(double time);
    REFDATA *find_less(double time) const;  // at this time or earlier
    REFDATA *get_less(double time);
    REFDATA *find_equal(double time, double tolerance) const;
    REFDATA *get_equal(double time, double tolerance);
    REFDATA *find_succ(const REFDATA *record) const;  // null behind the newest
    REFDATA *find_prev(const REFDATA *record) const;  // null before the oldest that readers see
    REFDATA *walk_succ(const REFDATA *record);        // a null record: the one after the current one
    REFDATA *walk_prev(const REFDATA *record);

    // Copies a record with its blocks. False when the writer was inside meanwhile, or it was evicted: the copy is then
    // not to be used. For a record that was left half written by a dying writer it stays false. The slot of an evicted
    // record is used again: if you kept the pointer, compare the time.
    bool Copy_Epoch(const REFDATA *record, Ring_Epoch &copy) const;
    // The record `index` places after the oldest that readers see; null behind the newest.
    REFDATA *Record_At(int index) const;
    int Readable() const;  // records from the oldest that readers see to the newest

    int get_n() const;                // records for readers
    int get_maxn() const;             // slots - 1
    int get_minn() const;             // records for readers that fit in any case
    unsigned long get_total() const;  // after 4294967295 comes the number of slots
    double get_maxtime() const;       // [s] that get_minn() records take at the ring's interval

    // Blocks of one kind, or of all; null when there is none.
    MEASBLOCK *get_meas(REFDATA *record, DATA_TYPE type) const;
    MEASBLOCK *get_meas_sat(REFDATA *record, unsigned satellite) const;  // Ring_Satellite
    MEASBLOCK *get_meas_index(REFDATA *record, unsigned index, DATA_TYPE type) const;
    static int get_sats(const REFDATA *record, DATA_TYPE type);  // as counted when it was published

    // --- Fields of the header and of records; units stand in Ring_Layout.h. By component (0 to 2), or all three. Of an
    // invalid ring, a null record and a component out of range they read 0, and writes have no effect.

    double get_pos(int i) const;
    void get_pos(double *xyz) const;
    void set_pos(const double *xyz);
    double get_ref_pos(int i) const;
    void get_ref_pos(double *xyz) const;
    void set_ref_pos(int i, double value);
    void set_ref_pos(const double *xyz);
    double get_off_l1(int i) const;
    void get_off_l1(double *neu) const;
    void set_off_l1(int i, double value);
    void set_off_l1(const double *neu);
    double get_off_l2(int i) const;
    void get_off_l2(double *neu) const;
    void set_off_l2(int i, double value);
    void set_off_l2(const double *neu);
    double get_ref_off(int i) const;
    void get_ref_off(double *neu) const;
    void set_ref_off(int i, double value);  // these two make has_ref_off true
    void set_ref_off(const double *neu);
    bool has_ref_off() const;
    double get_cal_data(int i) const;  // 0 to 37
    void get_cal_data(double *values) const;
    void set_cal_data(int i, double value);
    void set_cal_data(const double *values);
    void get_ant_number(char (&text)[32]) const;
    void set_ant_number(const char *text);  // these are cut at 31 bytes
    void get_ant_type(char (&text)[32]) const;
    void set_ant_type(const char *text);
    void get_point_number(char (&text)[32]) const;
    void set_point_number(const char *text);

    bool get_ant(const REFDATA *record, double *xyz) const;  // false: none; xyz is left alone
    void set_ant(REFDATA *record, const double *xyz);        // also taken into the mean
    void get_ant_mean(double *xyz) const;
    bool get_spp(const REFDATA *record, double *xyz) const;
    void set_spp(REFDATA *record, const double *xyz);
    void get_spp_mean(double *xyz) const;
    static bool has_spp(const REFDATA *record);
    static double get_spp_error(const REFDATA *record);
    static void set_spp_error(REFDATA *record, double error);
    static double get_dop(const REFDATA *record, int i);  // 0 to 3: geometric, position, horizontal, vertical
    static void set_dop(REFDATA *record, int i, double value);

    double get_clk_error() const;
    double get_clk_drift() const;
    double get_clk_error_var() const;
    double get_clk_drift_var() const;
    void set_clk(REFDATA *record, double error, double drift, double error_var, double drift_var);  // newest as well
    void reset_clk();                     // zeroes the four, and counts
    void jump_clk(double jump);           // [s] added to the error, and counts
    unsigned long get_clk_reset() const;  // resets and jumps

    static double get_temp(const REFDATA *record);
    static double get_press(const REFDATA *record);
    static double get_hum(const REFDATA *record);
    void set_temp(REFDATA *record, double value);  // also the last one
    void set_press(REFDATA *record, double value);
    void set_hum(REFDATA *record, double value);
    void set_mean_met_data(double temp, double press, double hum);           // takes one more value into the means
    void set_mean_met_data_no_count(double temp, double press, double hum);  // replaces the means
    void reset_met_data();                                                   // zeroes means, last ones and the count
    unsigned long get_mean_met_data(double &temp, double &press, double &hum) const;  // how many values are in them
    double get_mean_temp() const;
    double get_mean_press() const;
    double get_mean_hum() const;
    double get_last_temp() const;
    double get_last_press() const;
    double get_last_hum() const;

    double get_interval() const;
    void set_interval(double seconds);
    double get_cutoff() const;
    void set_cutoff(double degrees);
    double get_last_obs() const;
    void set_last_obs(double time);
    double get_Code_Phase_Value() const;
    void set_Code_Phase_Value(double value);
    unsigned long get_File_Length() const;
    void set_File_Length(unsigned long seconds);
    unsigned long get_max_channel() const;
    void set_max_channel(unsigned long channels);
    unsigned long get_decoder() const;
    void set_decoder(unsigned long decoder);
    unsigned long get_obs_type() const;
    void set_obs_type(unsigned long types);
    unsigned long get_has() const;
    void set_has(unsigned long bits);
    unsigned long get_start_rtime() const;
    void set_start_rtime(unsigned long time);
    bool get_sat_enable_receiver(unsigned satellite) const;  // Ring_Satellite; true unless disabled
    void set_sat_enable_receiver(unsigned satellite);
    void set_sat_disable_receiver(unsigned satellite);
    bool is_rogue() const;
    void set_rogue(bool rogue);

protected:
    Ring(const char *name, int station, int ring);
    static void Leave_List(Ring *ring);
    int Index_Of(const REFDATA *record) const;  // -1: not of this ring
    bool Is_Readable(const REFDATA *record) const { return Holds(record, Reader_Tail()); }

private:
    struct List;
    static Ring *Opened(Ring *ring);
    void Open();

    bool Holds(const REFDATA *record, int oldest) const;  // between this slot and the newest
    int Head() const;                                     // slot; -1 when the header is not sane
    int Reader_Tail() const;                              // slot; -1: nothing to read
    int Step(int slot, int steps) const;
    REFDATA *At(int slot) const { return slot < 0 ? nullptr : records_ + slot; }
    double Time_At(int slot) const;
    int Search(long long low, long long high, double least, double most) const;
    REFDATA *Current(REFDATA *record);
    bool Is_Single() const;
    Ring_Header *Fields() const { return valid() ? header_ : nullptr; }

    REFDATA *Allocate(double time);
    void Begin_New(int slot, double time, double before);
    bool Evict_Tail();
    bool Take_Blocks(REFDATA &record, std::uint32_t blocks);
    void Take_Blocks_Of(REFDATA &record, int blocks);
    bool Recount();
    bool Follows(const REFDATA &record, std::uint32_t end, bool first) const;

    Ring_Header *header_ = nullptr;
    REFDATA *records_ = nullptr;
    MEASBLOCK *blocks_ = nullptr;
    std::atomic<REFDATA *> current_{nullptr};
    std::uint32_t slots_ = 0;
    int cursor_ = 0;
    const std::uint32_t identity_;  // bits 0 to 2: ring; 3 to 13: station
    std::uint32_t pool_ = 0;        // [blocks]
    int unpublished_ = -1;          // slot that ins_done_meas has not seen yet; -1: none
    bool recounted_ = false;
    Ring *next_ = nullptr, *prev_ = nullptr;  // in the list, under its lock
};

}  // namespace kernel
