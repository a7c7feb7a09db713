#include "host/station/Ring_Reader.h"

#include <atomic>
#include <cmath>

namespace host {

using kernel::REFDATA;
using kernel::Ring_Epoch;

namespace {

double Time_Of(REFDATA *record) { return std::atomic_ref(record->time).load(std::memory_order_relaxed); }

}  // namespace

void Ring_Reader::Start_At(double time)
{
    last_ = std::nextafter(time, before_all);
    has_given_ = false;
}

// Counted from the oldest that readers see. The writer may go on meanwhile; whoever uses the result looks at the time
// of the copy.
int Ring_Reader::First_After(double time) const
{
    int low = 0, high = ring_.Readable();
    while (low < high) {
        const int middle = low + (high - low) / 2;
        REFDATA *const record = ring_.Record_At(middle);
        if (record && Time_Of(record) <= time)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

bool Ring_Reader::Next(Ring_Epoch &epoch)
{
    constexpr int tries = 3;  // for a copy that the writer disturbed
    for (int failed = 0;;) {
        const int index = First_After(last_);
        REFDATA *const record = ring_.Record_At(index);
        if (!record) return false;
        const double time = Time_Of(record);
        if (ring_.Copy_Epoch(record, epoch) && epoch.record.time > last_) {
            lapped_ = has_given_ && index == 0;
            gap_ = has_given_ ? epoch.record.time - last_ : 0;
            has_given_ = true;
            last_ = epoch.record.time;
            return true;
        }
        if (record == ring_.find_head() || !(time > last_)) return false;  // later
        if (++failed < tries) continue;
        ++torn_;
        failed = 0;
        last_ = time;
    }
}

}  // namespace host
