#include "kernel/memory/Ring.h"

#include "kernel/base/Immortal_internal.h"
#include "kernel/base/Semaphore.h"
#include "kernel/memory/ring_words_internal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <utility>

namespace kernel {

namespace {

constexpr int most_wanted_blocks = 24;
constexpr int most_evictions = 61;     // for the blocks of one record
constexpr double longest_gap = 13107;  // [s]
constexpr std::uint32_t usual_blocks = 12;

std::uint32_t Blocks_Of(const REFDATA &record)
{
    const std::uint32_t blocks = record.block_flags >> REFDATA::Blocks_Shift & REFDATA::Blocks_Mask;
    return record.first_block == REFDATA::No_Block ? 0 : blocks;
}

void Set_Blocks(REFDATA &record, std::uint32_t first, std::uint32_t blocks, std::uint32_t skipped)
{
    record.first_block = first;
    record.skipped = skipped;
    record.block_flags &= ~(REFDATA::Blocks_Mask << REFDATA::Blocks_Shift);
    record.block_flags |= blocks << REFDATA::Blocks_Shift;
}

void Clear(REFDATA &record)
{
    const std::uint32_t sequence = record.sequence;
    record = REFDATA{};
    record.sequence = sequence;
}

}  // namespace

// --- The open rings

struct Ring::List {
    Semaphore lock;
    Ring *first = nullptr, *last = nullptr;

    static List &All();
    static auto Key(const Ring &ring) { return std::pair(ring.get_station_id(), ring.get_ring()); }

    void Add(Ring &ring)
    {
        const Semaphore_Guard guard(lock);
        Ring *after = last;
        while (after && Key(ring) < Key(*after)) after = after->prev_;
        ring.prev_ = after;
        ring.next_ = after ? after->next_ : first;
        (after ? after->next_ : first) = &ring;
        (ring.next_ ? ring.next_->prev_ : last) = &ring;
    }
    void Remove(Ring &ring)
    {
        const Semaphore_Guard guard(lock);
        Unlink(ring);
    }
    // Two threads never take the same one.
    Ring *Take_First()
    {
        const Semaphore_Guard guard(lock);
        Ring *const taken = first;
        if (taken) Unlink(*taken);
        return taken;
    }

private:
    void Unlink(Ring &ring)
    {
        if (!ring.prev_ && first != &ring) return;
        (ring.prev_ ? ring.prev_->next_ : first) = ring.next_;
        (ring.next_ ? ring.next_->prev_ : last) = ring.prev_;
        ring.next_ = ring.prev_ = nullptr;
    }
};

Ring::List &Ring::List::All()
{
    static Immortal<List> list;
    return *list;
}

Ring *Ring::Find(short station, unsigned short ring)
{
    const Semaphore_Guard guard(List::All().lock);
    Ring *found = List::All().first;
    while (found && List::Key(*found) != std::pair(int{station}, int{ring})) found = found->next_;
    return found;
}

Ring *Ring::First()
{
    const Semaphore_Guard guard(List::All().lock);
    return List::All().first;
}

Ring *Ring::Last()
{
    const Semaphore_Guard guard(List::All().lock);
    return List::All().last;
}

Ring *Ring::Next(const Ring *ring)
{
    const Semaphore_Guard guard(List::All().lock);
    return ring ? ring->next_ : nullptr;
}

Ring *Ring::Prev(const Ring *ring)
{
    const Semaphore_Guard guard(List::All().lock);
    return ring ? ring->prev_ : nullptr;
}

void Ring::DeleteAll()
{
    while (Ring *ring = List::All().Take_First()) Delete(ring);
}

void Ring::Leave_List(Ring *ring) { List::All().Remove(*ring); }

// --- Opening

const char *Ring::Get_Station_Ring_Name(int ring)
{
    static constexpr const char *names[Station_Rings] = {"RING_0", "RING_1", "RING_2", "RING_3"};
    return ring >= 0 && ring < Station_Rings ? names[ring] : nullptr;
}

const char *Ring::Get_Monitor_Ring_Name(int station, int ring)
{
    static thread_local char name[48];
    std::snprintf(name, sizeof name, "%s%1d_#%04d", "RING_", ring, station);
    return name;
}

Ring::Ring(const char *name, int station, int ring)
    : sharemem(name, 0, flag_read_only), identity_(static_cast<std::uint32_t>(station << 3 | ring))
{
    Open();
    if (valid()) List::All().Add(*this);
}

Ring::~Ring() { Leave_List(this); }

// The numbers of slots and blocks are kept here: what the header says later may be anything.
void Ring::Open()
{
    if (!sharemem::valid() || get_size() < sizeof(Ring_Header)) return close();
    auto *const header = static_cast<Ring_Header *>(get_ptr(0));
    slots_ = Load(header->slots);
    pool_ = Load(header->pool_size);
    if (slots_ < 3 || Ring_Size(slots_, pool_) > get_size()) return close();
    header_ = header;
    records_ = static_cast<REFDATA *>(get_ptr(sizeof(Ring_Header)));
    blocks_ = reinterpret_cast<MEASBLOCK *>(records_ + slots_);
}

Ring *Ring::Opened(Ring *ring)
{
    if (ring && !ring->valid()) Delete(ring);
    return ring;
}

Ring *Ring::Create(int ring)
{
    const char *const name = Get_Station_Ring_Name(ring);
    return name ? Opened(new (std::nothrow) Ring(name, Station_Ring_Identity, ring)) : nullptr;
}

Ring *Ring::Create(int station, int ring)
{
    if (station < 0 || station >= Station_Ring_Identity || ring < 0 || ring >= Monitor_Rings) return nullptr;
    return Opened(new (std::nothrow) Ring(Get_Monitor_Ring_Name(station, ring), station, ring));
}

void Ring::Delete(Ring *&ring)
{
    sharemem *segment = std::exchange(ring, nullptr);
    if (!segment) return;
    Leave_List(static_cast<Ring *>(segment));
    sharemem::Delete(segment);
}

bool Ring::version() const { return valid() && Load(header_->version) == Ring_Header::Version; }

// --- Writing

int Ring::Step(int slot, int steps) const
{
    const long long slots = slots_;
    return static_cast<int>(((slot + steps) % slots + slots) % slots);
}

int Ring::get_block_count(const REFDATA *record) { return record ? static_cast<int>(Blocks_Of(*record)) : 0; }

REFDATA *Ring::Allocate(double time)
{
    if (!version() || std::isnan(time)) return nullptr;
    // A record that was left unpublished, by this writer or by one that died, has taken a slot and blocks.
    const bool continues = unpublished_ >= 0 && std::abs(At(unpublished_)->time - time) <= Same_Epoch;
    if ((!recounted_ || (unpublished_ >= 0 && !continues)) && !Recount()) return nullptr;
    cursor_ = continues ? unpublished_ : Head();
    REFDATA *const newest = At(cursor_);
    const double before = newest->time;
    if (before - Same_Epoch > time) return nullptr;
    if (before + Same_Epoch >= time) {
        Enter(newest->sequence);
        return newest;
    }
    if (header_->count > 0) cursor_ = Step(cursor_, 1);
    if (header_->count > 0 && static_cast<std::uint32_t>(cursor_) == header_->tail) Evict_Tail();
    Begin_New(cursor_, time, before);
    return At(cursor_);
}

void Ring::Begin_New(int slot, double time, double before)
{
    REFDATA &record = records_[slot];
    Enter(record.sequence);
    Store(header_->count, header_->count + 1);
    Clear(record);
    record.time = time;
    const double gap = time - before;
    if (gap >= 0 && gap < longest_gap)
        record.flags |= (static_cast<std::uint32_t>(gap) * 10 & REFDATA::Gap_Mask) << REFDATA::Gap_Shift;
    unpublished_ = slot;
}

// The tail moves first, so that a reader that looks at it after copying knows. The newest record is never evicted.
bool Ring::Evict_Tail()
{
    if (header_->tail >= slots_) return false;
    REFDATA &record = records_[header_->tail];
    const int next = Step(static_cast<int>(header_->tail), 1);
    if (next == Head() || static_cast<int>(header_->tail) == Head()) return false;
    Store(header_->tail, static_cast<std::uint32_t>(next), std::memory_order_release);
    Enter(record.sequence);
    if (MEASBLOCK *const first = get_blocks(&record)) {
        const std::uint32_t blocks = Blocks_Of(record);
        std::fill_n(first, blocks, MEASBLOCK{});
        Store(header_->free_blocks, header_->free_blocks + blocks + record.skipped);
    }
    Clear(record);
    Store(header_->count, header_->count - 1);
    return true;
}

// Blocks of a record are one run. A run that does not fit at the end of the pool begins at its start, and the blocks
// that were skipped stay with the record until it is evicted.
bool Ring::Take_Blocks(REFDATA &record, std::uint32_t blocks)
{
    if (blocks > pool_) return false;
    for (int evictions = 0;; ++evictions) {
        if (header_->free_blocks == pool_ && pool_ - header_->next_block < blocks) header_->next_block = 0;
        const std::uint32_t first = pool_ - header_->next_block < blocks ? 0 : header_->next_block;
        const std::uint32_t skipped = first == header_->next_block ? 0 : pool_ - header_->next_block;
        if (header_->free_blocks < blocks + skipped) {
            if (evictions == most_evictions || !Evict_Tail()) return false;
            continue;
        }
        std::fill_n(blocks_ + first, blocks, MEASBLOCK{});
        Store(header_->free_blocks, header_->free_blocks - blocks - skipped);
        Store(header_->next_block, (first + blocks) % pool_);
        Store(header_->blocks_handed_out, header_->blocks_handed_out + blocks);
        Set_Blocks(record, first, blocks, skipped);
        return true;
    }
}

// A record that owns blocks keeps them, whatever is asked: they would be lost to the pool.
void Ring::Take_Blocks_Of(REFDATA &record, int blocks)
{
    if (Blocks_Of(record) > 0) return;
    const bool wanted = blocks >= 1 && blocks <= most_wanted_blocks;
    if (!wanted || !Take_Blocks(record, static_cast<std::uint32_t>(blocks)))
        Set_Blocks(record, REFDATA::No_Block, 0, 0);
}

REFDATA *Ring::ins_meas(double time, int blocks)
{
    REFDATA *const record = Allocate(time);
    if (!record) return nullptr;
    Take_Blocks_Of(*record, blocks);
    Store(header_->meas_inserts, header_->meas_inserts + 1);
    return record;
}

REFDATA *Ring::ins_pos(double time)
{
    REFDATA *const record = Allocate(time);
    if (record) Store(header_->pos_inserts, header_->pos_inserts + 1);
    return record;
}

// Readers load the head with acquire order. After 2^32 records the total goes on at the number of slots: a smaller one
// would say that the ring has not wrapped.
void Ring::ins_done_meas(REFDATA *record)
{
    if (!record || !valid() || !recounted_) return;
    REFDATA &written = records_[cursor_];
    written.sats = {};
    if (const MEASBLOCK *const blocks = get_blocks(&written))
        for (std::uint32_t i = 0; i < Blocks_Of(written); ++i)
            if (blocks[i].number != 0 && blocks[i].type < Data_Types) ++written.sats[blocks[i].type];
    Leave(written.sequence);
    unpublished_ = -1;
    if (Head() == cursor_) return;
    const std::uint32_t total = header_->total + 1;
    Store(header_->head, static_cast<std::uint32_t>(cursor_), std::memory_order_release);
    Store(header_->total, total == 0 ? slots_ : total, std::memory_order_release);
}

// Whether the record's blocks begin at `end`, where those of the record before it end.
bool Ring::Follows(const REFDATA &record, std::uint32_t end, bool first) const
{
    const std::uint32_t blocks = Blocks_Of(record);
    if (record.first_block >= pool_ || blocks > pool_ - record.first_block || record.skipped >= pool_) return false;
    if (record.skipped > 0) return record.first_block == 0 && (first || record.skipped == pool_ - end);
    return first || record.first_block == end % pool_;
}

// What the header counts, from the records themselves. Blocks that no published record owns are free again.
bool Ring::Recount()
{
    unpublished_ = -1;
    if (Head() < 0 || header_->tail >= slots_) return false;
    const int held =
        header_->total == 0 && header_->count == 0 ? 0 : Step(Head() - static_cast<int>(header_->tail), 0) + 1;
    std::uint32_t owned = 0, end = 0;
    for (int i = 0; i < held; ++i) {
        REFDATA &record = records_[Step(static_cast<int>(header_->tail), i)];
        if (Blocks_Of(record) == 0) continue;
        const std::uint32_t taken = Blocks_Of(record) + record.skipped;
        if (!Follows(record, end, owned == 0) || taken > pool_ - owned) {
            Set_Blocks(record, REFDATA::No_Block, 0, 0);  // not what this writer makes: a record without blocks is safe
            continue;
        }
        owned += taken;
        end = record.first_block + Blocks_Of(record);
    }
    Store(header_->count, static_cast<std::uint32_t>(held));
    Store(header_->free_blocks, pool_ - owned);
    Store(header_->next_block, pool_ == 0 ? 0 : end % pool_);
    recounted_ = true;
    return true;
}

// --- Reading

int Ring::Head() const
{
    const std::uint32_t head = Load(header_->head, std::memory_order_acquire);
    return head < slots_ ? static_cast<int>(head) : -1;
}

// The published records are counted from tail and head: the header's count has one more while the writer is inside. The
// tail is loaded first, so that it is never beyond the head.
int Ring::Reader_Tail() const
{
    if (!valid()) return -1;
    const std::uint32_t total = Load(header_->total, std::memory_order_acquire);
    const std::uint32_t tail = Load(header_->tail, std::memory_order_acquire);
    const int head = Head();
    if (head < 0 || total == 0 || tail >= slots_) return -1;
    const int oldest = static_cast<int>(tail);
    if (std::int64_t{total} < std::int64_t{slots_} - Guard) return oldest;
    return Step(head - oldest, 0) >= Guard ? Step(oldest, Guard) : -1;
}

double Ring::Time_At(int slot) const { return Load(records_[slot].time); }

REFDATA *Ring::Current(REFDATA *record)
{
    current_.store(record, std::memory_order_relaxed);
    return record;
}

REFDATA *Ring::find_head() const { return Reader_Tail() < 0 ? nullptr : At(Head()); }

REFDATA *Ring::find_tail() const { return At(Reader_Tail()); }

REFDATA *Ring::get_head() { return Current(find_head()); }

REFDATA *Ring::get_tail() { return Current(find_tail()); }

double Ring::get_head_rtime() const
{
    REFDATA *const record = find_head();
    return record ? Load(record->time) : 0;
}

double Ring::get_tail_rtime() const
{
    REFDATA *const record = find_tail();
    return record ? Load(record->time) : 0;
}

int Ring::Index_Of(const REFDATA *record) const
{
    if (!record || !valid() || record < records_ || record >= records_ + slots_) return -1;
    return static_cast<int>(record - records_);
}

int Ring::Readable() const
{
    const int tail = Reader_Tail();
    return tail < 0 ? 0 : Step(Head() - tail, 0) + 1;
}

bool Ring::Holds(const REFDATA *record, int oldest) const
{
    const int index = Index_Of(record);
    return oldest >= 0 && index >= 0 && Step(index - oldest, 0) <= Step(Head() - oldest, 0);
}

REFDATA *Ring::Record_At(int index) const
{
    const int tail = Reader_Tail();
    return tail < 0 || index < 0 || index > Step(Head() - tail, 0) ? nullptr : At(Step(tail, index));
}

REFDATA *Ring::find_succ(const REFDATA *record) const
{
    const int index = Index_Of(record);
    return index < 0 || index == Head() ? nullptr : At(Step(index, 1));
}

REFDATA *Ring::find_prev(const REFDATA *record) const
{
    const int index = Index_Of(record);
    return index < 0 || index == Reader_Tail() ? nullptr : At(Step(index, -1));
}

bool Ring::Is_Single() const { return !valid() || Load(header_->head) == Load(header_->tail); }

REFDATA *Ring::walk_succ(const REFDATA *record)
{
    if (Is_Single()) return nullptr;
    const REFDATA *const from = record ? record : current_.load(std::memory_order_relaxed);
    return from ? Current(find_succ(from)) : get_head();
}

REFDATA *Ring::walk_prev(const REFDATA *record)
{
    if (Is_Single()) return nullptr;
    const REFDATA *const from = record ? record : current_.load(std::memory_order_relaxed);
    return from ? Current(find_prev(from)) : get_tail();
}

// A half that lies above the times wanted, or below, is left out; indices beyond the slots begin again at 0.
int Ring::Search(long long low, long long high, double least, double most) const
{
    if (Load(header_->total) >= slots_) high += slots_;
    const auto slot = [&](long long index) { return Step(static_cast<int>(index % slots_), 0); };
    while (low < high) {
        const long long middle = (low + high + 1) / 2;
        const double time = Time_At(slot(middle));
        if (most >= time && least <= time) return slot(middle);
        if (most >= time)
            low = middle + 1;
        else
            high = middle - 1;
    }
    return slot(high);
}

REFDATA *Ring::find_greater(double time) const
{
    const int tail = Reader_Tail(), head = tail < 0 ? -1 : Head();
    if (head < 0 || std::isnan(time)) return nullptr;
    if (time <= Time_At(tail)) return At(tail);
    if (time >= Time_At(head)) return time == Time_At(head) ? At(head) : nullptr;
    return At(Search(tail + 1, head - 1, time, time));
}

REFDATA *Ring::find_less(double time) const
{
    const int tail = Reader_Tail(), head = tail < 0 ? -1 : Head();
    if (head < 0 || !(time >= Time_At(tail))) return nullptr;
    if (time == Time_At(tail)) return At(tail);
    if (time >= Time_At(head)) return At(head);
    REFDATA *const found = At(Search(tail + 1, head - 1, time, time));
    return Load(found->time) > time ? find_prev(found) : found;
}

REFDATA *Ring::find_equal(double time, double tolerance) const
{
    const int tail = Reader_Tail(), head = tail < 0 ? -1 : Head();
    const double least = time - tolerance, most = time + tolerance;
    if (head < 0 || !(tolerance >= 0) || !(most >= Time_At(tail)) || Time_At(head) < least) return nullptr;
    const auto is_near = [&](double found) { return least <= found && found <= most; };
    if (is_near(Time_At(head))) return At(head);
    const int found = Search(tail + 1, head - 1, least, most);
    return is_near(Time_At(found)) ? At(found) : nullptr;
}

REFDATA *Ring::get_greater(double time) { return Current(find_greater(time)); }

REFDATA *Ring::get_less(double time) { return Current(find_less(time)); }

REFDATA *Ring::get_equal(double time, double tolerance) { return Current(find_equal(time, tolerance)); }

bool Ring::Copy_Epoch(const REFDATA *record, Ring_Epoch &copy) const
{
    if (!Is_Readable(record)) return false;
    REFDATA &source = records_[Index_Of(record)];
    const bool whole = Copy_Whole(source.sequence, [&] {
        Copy_Words(&source, &copy.record, sizeof copy.record);
        const std::uint32_t blocks = Blocks_Of(copy.record), first = copy.record.first_block;
        copy.count = static_cast<int>(blocks);
        if (blocks == 0) return true;
        if (first >= pool_ || blocks > pool_ - first) return false;
        Copy_Words(blocks_ + first, copy.blocks.data(), blocks * sizeof(MEASBLOCK));
        return true;
    });
    return whole && Holds(record, static_cast<int>(Load(header_->tail, std::memory_order_acquire) % slots_));
}

int Ring::get_n() const
{
    if (!valid()) return 0;
    const std::uint32_t total = Load(header_->total), count = Load(header_->count);
    if (std::int64_t{total} < std::int64_t{slots_} - Guard) return static_cast<int>(total);
    return static_cast<int>(std::min(count, slots_) - std::min<std::uint32_t>(count, Guard));
}

int Ring::get_maxn() const { return valid() ? static_cast<int>(slots_) - 1 : 0; }

int Ring::get_minn() const
{
    if (!valid()) return 0;
    const std::uint32_t blocks = Load(header_->blocks_per_record);
    const std::uint32_t records = slots_ - std::min<std::uint32_t>(slots_, Guard);
    return static_cast<int>(std::min(records, pool_ / (blocks == 0 ? usual_blocks : blocks)));
}

unsigned long Ring::get_total() const { return valid() ? Load(header_->total) : 0; }

double Ring::get_maxtime() const { return get_minn() * get_interval(); }

// --- Blocks

MEASBLOCK *Ring::get_blocks(REFDATA *record) const
{
    if (Index_Of(record) < 0) return nullptr;
    const std::uint32_t blocks = Blocks_Of(*record), first = record->first_block;
    return blocks == 0 || first >= pool_ || blocks > pool_ - first ? nullptr : blocks_ + first;
}

MEASBLOCK *Ring::get_meas_index(REFDATA *record, unsigned index, DATA_TYPE type) const
{
    MEASBLOCK *const blocks = get_blocks(record);
    for (int i = 0; blocks && i < get_block_count(record); ++i)
        if ((type == DATA_ALL || blocks[i].type == type) && index-- == 0) return blocks + i;
    return nullptr;
}

MEASBLOCK *Ring::get_meas(REFDATA *record, DATA_TYPE type) const { return get_meas_index(record, 0, type); }

MEASBLOCK *Ring::get_meas_sat(REFDATA *record, unsigned satellite) const
{
    MEASBLOCK *const blocks = get_blocks(record);
    for (int i = 0; blocks && i < get_block_count(record); ++i)
        if (Ring_Satellite(static_cast<DATA_TYPE>(blocks[i].type), blocks[i].number) == satellite) return blocks + i;
    return nullptr;
}

int Ring::get_sats(const REFDATA *record, DATA_TYPE type)
{
    if (!record || type < 0 || type > DATA_ALL) return 0;
    return type == DATA_ALL ? get_block_count(record) : record->sats[static_cast<std::size_t>(type)];
}

}  // namespace kernel
