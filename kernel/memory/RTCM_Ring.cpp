#include "kernel/memory/RTCM_Ring.h"

#include "kernel/memory/ring_words_internal.h"
#include "platform/clock.h"

#include <cmath>
#include <new>
#include <utility>

namespace kernel {

const char *RTCM_Ring::Get_Name(int ring)
{
    static constexpr const char *names[Rings] = {"RTCM_0", "RTCM_1", "RTCM_2", "RTCM_3"};
    return ring >= 0 && ring < Rings ? names[ring] : nullptr;
}

RTCM_Ring::RTCM_Ring(int ring) : sharemem(Get_Name(ring), 0, flag_read_only), ring_(ring)
{
    if (get_size() < Size) {
        close();
        return;
    }
    head_ = static_cast<std::uint32_t *>(get_ptr(4));
    slots_ = static_cast<rtcm_epo_data *>(get_ptr(8));
}

RTCM_Ring *RTCM_Ring::Create(int ring)
{
    RTCM_Ring *opened = Get_Name(ring) ? new (std::nothrow) RTCM_Ring(ring) : nullptr;
    if (opened && !opened->valid()) Delete(opened);
    return opened;
}

void RTCM_Ring::Delete(RTCM_Ring *&ring)
{
    sharemem *segment = std::exchange(ring, nullptr);
    sharemem::Delete(segment);
}

std::uint32_t RTCM_Ring::Head() const { return Load(*head_, std::memory_order_acquire) % Slots; }

rtcm_epo_data *RTCM_Ring::get_head() const { return valid() ? slots_ + Head() : nullptr; }

rtcm_epo_data *RTCM_Ring::Near(double time, double tolerance) const
{
    for (int i = 0; i < Slots; ++i)
        if (std::abs(slots_[i].time - time) <= tolerance) return slots_ + i;
    return nullptr;
}

rtcm_epo_data *RTCM_Ring::get_epo(double time) const
{
    if (!valid()) return nullptr;
    rtcm_epo_data *const slot = Near(time, Same_Epoch);
    return slot ? slot : Near(time, Near_Epoch);
}

rtcm_epo_data *RTCM_Ring::ins_epo(double time, int value)
{
    if (!valid() || std::isnan(time)) return nullptr;
    if (rtcm_epo_data *const same = Near(time, Same_Epoch)) return same;
    rtcm_epo_data *const next = slots_ + (Head() + 1) % Slots;
    *next = rtcm_epo_data{};
    next->time = time;
    next->value = value;
    return next;
}

void RTCM_Ring::ins_done()
{
    if (!valid()) return;
    Store(*head_, (Head() + 1) % Slots, std::memory_order_release);
    GlobalMessage(global_message, message_published, ring_);
    platform::sleep_ms(1);
}

}  // namespace kernel
