#include "kernel/memory/Alm_Data_Client.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/memory/ring_words_internal.h"

#include <memory>
#include <string_view>

namespace kernel {

const char Alm_Data_Client::Name[] = "Alm_Data_Client";

// A new segment is zero; a loaded one has what the last user saved. Two processes may both find it new: laying it out
// twice is harmless, because nothing but these two words is written.
Alm_Data_Client::Alm_Data_Client(const char *segment, unsigned long flags)
    : Object(Name), sharemem(segment, (flags & flag_create) != 0 ? sizeof(Layout) : 0, flags)
{
    auto *const layout = static_cast<Layout *>(get_ptr(0));
    if (!layout || get_size() < sizeof *layout) return;
    constexpr std::uint32_t entries = Satellites;
    const std::uint32_t found = Load(layout->entries);
    if (Load(layout->version) == 0 && (found == 0 || found == entries)) {
        Store(layout->entries, entries);
        Store(layout->version, Version, std::memory_order_release);
    }
    if (Load(layout->version, std::memory_order_acquire) == Version && Load(layout->entries) == entries)
        layout_ = layout;
}

Alm_Data_Client *Alm_Data_Client::Construct(const char *segment, unsigned long flags)
{
    return Constructed([&] { return new Alm_Data_Client(segment, flags); });
}

bool Alm_Data_Client::IsInheritedFrom(const char *name) const
{
    return name && (Alm_Client::IsInheritedFrom(name) || std::string_view(name) == Name);
}

bool Alm_Data_Client::IsValid() const { return layout_ && sharemem::valid() && Alm_Client::IsValid(); }

bool Alm_Data_Client::Send(Object_Server &server, CL_Mesg message)
{
    if (message == Mesg_Request_Invite) return true;
    if (message != Mesg_Data_Ready) return Alm_Client::Send(server, message);
    const std::unique_ptr<almanac> received(static_cast<Alm_Server &>(server).Get_Alm());
    if (received) Keep(*received);
    return true;
}

Alm_Data_Client::Entry *Alm_Data_Client::Of(int prn) const
{
    return IsValid() && prn >= 1 && prn <= Satellites ? &layout_->entry[static_cast<std::size_t>(prn) - 1] : nullptr;
}

void Alm_Data_Client::Keep(const almanac &received)
{
    Entry *const entry = Of(received.prn);
    if (!entry) {
        Report("kernel/Alm_Data_Client", __LINE__)
            .Print_Out(Error_Handler::ES_Warning, "The almanac of satellite %d cannot be kept.", received.prn);
        return;
    }
    Enter(entry->sequence);
    entry->data = received;
    Store(entry->count, entry->count + 1);
    Leave(entry->sequence);
}

bool Alm_Data_Client::get_almanac(int prn, almanac &copy) const
{
    Entry *const entry = Of(prn);
    almanac read;
    if (!entry || !Copy_Whole(entry->sequence, [&] { return Copy_Words(&entry->data, &read, sizeof read), true; }))
        return false;
    if (read.prn == 0) return false;
    copy = read;
    return true;
}

unsigned long Alm_Data_Client::get_count(int prn) const
{
    Entry *const entry = Of(prn);
    return entry ? Load(entry->count) : 0;
}

}  // namespace kernel
