#include "host/station/Station_Segment.h"

#include "kernel/base/ipcSemaphore.h"
#include "kernel/memory/RTCM_Ring.h"
#include "kernel/memory/Ring.h"

#include <atomic>
#include <utility>

namespace host {

using kernel::Ring_Header;
using kernel::sharemem;

namespace {

bool Fits(const Station_Segment::Options &options, std::uint32_t pool_size, std::string &error)
{
    if (options.slots < Station_Segment::Fewest_Slots)
        error.append("A ring needs ").append(std::to_string(Station_Segment::Fewest_Slots)).append(" slots or more.");
    else if (kernel::Ring_Size(options.slots, pool_size) > Station_Segment::Largest_Size)
        error = "The ring would be too large.";
    else if (!(options.interval >= 0))
        error = "The interval must not be negative.";
    return error.empty();
}

std::uint32_t Pool_Of(const Station_Segment::Options &options)
{
    const std::uint64_t blocks = std::uint64_t{options.slots} * options.blocks_per_record;
    if (options.pool_size != 0) return options.pool_size;
    return blocks > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(blocks);
}

// The number of slots comes last: until then nobody can open it as a ring.
bool Lay_Out_Ring(sharemem &segment, const Station_Segment::Options &options, std::uint32_t pool_size, bool &fresh)
{
    auto *const header = static_cast<Ring_Header *>(segment.get_ptr(0));
    if (segment.get_size() < sizeof *header) return false;
    fresh = header->slots == 0 && (header->version == 0 || header->version == Ring_Header::Version);
    if (fresh && kernel::Ring_Size(options.slots, pool_size) > segment.get_size()) return false;  // not made by this
    if (!fresh)
        return header->version == Ring_Header::Version && header->slots >= Station_Segment::Fewest_Slots &&
               kernel::Ring_Size(header->slots, header->pool_size) <= segment.get_size();
    *header = Ring_Header{};
    header->pool_size = header->free_blocks = pool_size;
    header->blocks_per_record = options.blocks_per_record;
    header->interval = options.interval;
    header->station = options.station;
    header->version = Ring_Header::Version;
    std::atomic_ref(header->slots).store(options.slots, std::memory_order_release);
    return true;
}

}  // namespace

Station_Segment::Station_Segment(std::string name, std::uint64_t size)
    : name_(std::move(name)),
      segment_(sharemem::Create(name_.c_str(), static_cast<unsigned long>(size), sharemem::flag_create),
               [](sharemem *segment) { sharemem::Delete(segment); })
{
}

// A lock between processes, because the one that did not come first must find a layout.
std::unique_ptr<Station_Segment> Station_Segment::Laid_Out(const char *name, std::uint64_t size, std::string &error,
                                                           const std::function<bool(sharemem &, bool &)> &lay_out)
{
    kernel::ipcMutexSemaphore lock((std::string("station segment ") + name).c_str());
    lock.Request();
    std::unique_ptr<Station_Segment> made(new Station_Segment(name, size));
    if (!made->segment_)
        error = std::string("Segment ") + name + " could not be had: no memory, or no right to use it.";
    else if (!lay_out(*made->segment_, made->fresh_))
        error = std::string("Segment ") + name + " exists with another layout.";
    lock.Release();
    return error.empty() ? std::move(made) : nullptr;
}

std::unique_ptr<Station_Segment> Station_Segment::Create(int ring, const Options &options, std::string &error)
{
    const char *const name = kernel::Ring::Get_Station_Ring_Name(ring);
    const std::uint32_t pool_size = Pool_Of(options);
    error = name ? "" : "Station rings have the numbers 0 to 3.";
    if (!name || !Fits(options, pool_size, error)) return nullptr;
    return Laid_Out(name, kernel::Ring_Size(options.slots, pool_size), error,
                    [&](sharemem &segment, bool &fresh) { return Lay_Out_Ring(segment, options, pool_size, fresh); });
}

std::unique_ptr<Station_Segment> Station_Segment::Create_Monitor(int station, int ring, const Options &options,
                                                                 std::string &error)
{
    const bool good = station >= 0 && station < kernel::Ring::Station_Ring_Identity && ring >= 0 &&
                      ring < kernel::Ring::Monitor_Rings;
    const std::uint32_t pool_size = Pool_Of(options);
    error = good ? "" : "Monitor rings have stations 0 to 2046 and numbers 0 to 7.";
    if (!good || !Fits(options, pool_size, error)) return nullptr;
    return Laid_Out(kernel::Ring::Get_Monitor_Ring_Name(station, ring), kernel::Ring_Size(options.slots, pool_size),
                    error,
                    [&](sharemem &segment, bool &fresh) { return Lay_Out_Ring(segment, options, pool_size, fresh); });
}

std::unique_ptr<Station_Segment> Station_Segment::Create_Rtcm(int ring, std::string &error)
{
    const char *const name = kernel::RTCM_Ring::Get_Name(ring);
    error = name ? "" : "RTCM rings have the numbers 0 to 3.";
    if (!name) return nullptr;
    // Zeroed memory is an empty ring.
    return Laid_Out(name, kernel::RTCM_Ring::Size, error, [](sharemem &segment, bool &fresh) {
        fresh = segment.in_use() == 1;
        return segment.get_size() >= kernel::RTCM_Ring::Size;
    });
}

}  // namespace host
