// A client that keeps the newest almanac of each GPS satellite in shared memory, for other processes.
#pragma once

#include "kernel/memory/sharemem.h"
#include "kernel/records/Typed_Servers.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace kernel {

// The segment's data, little-endian:
//
//   offset     bytes
//        0         4  version, 1
//        4         4  entries, 32
//   8 + 104 i    104  entry of PRN i + 1: 4 bytes sequence (odd while it is being written), 4 bytes number of almanacs
//                     received, 96 bytes almanac (Records.h; prn 0: none yet)
//
// Threads:   Send runs on the producer's thread; one process writes. get_almanac from any thread and process.
// Ownership: as sharemem and Object_Client. It owns and deletes the records that it takes.
// Errors:    a satellite that has no entry is reported (level 2). An existing segment of another layout is refused.
class KERNEL_API Alm_Data_Client : public Alm_Client, public sharemem {
public:
    static const char Name[];  // "Alm_Data_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;
    static constexpr int Satellites = 32;
    static constexpr std::uint32_t Version = 1;

    // Makes the segment or attaches to it. With sharemem::flag_persistent the almanacs outlive the last user. Without
    // flag_create it only opens, to read. Null when the segment cannot be had.
    static Alm_Data_Client *Construct(const char *segment, unsigned long flags = flag_create | flag_persistent);
    static void Destruct(Alm_Data_Client *client) { Object::Destruct(client); }

    bool IsValid() const override;
    bool valid() const { return IsValid(); }
    bool Send(Object_Server &server, CL_Mesg message) override;

    // False when there is none of this satellite, or it was being written at that moment.
    bool get_almanac(int prn, almanac &copy) const;
    unsigned long get_count(int prn) const;  // almanacs received for it; 0 for a number that cannot be

protected:
    explicit Alm_Data_Client(const char *segment, unsigned long flags);

private:
    struct Entry {
        std::uint32_t sequence = 0;
        std::uint32_t count = 0;
        almanac data;
    };
    struct Layout {
        std::uint32_t version = Version;
        std::uint32_t entries = Satellites;
        std::array<Entry, Satellites> entry;
    };
    static_assert(sizeof(almanac) == 96 && offsetof(almanac, toa) == 16 && offsetof(almanac, af1) == 88);
    static_assert(sizeof(Entry) == 104 && sizeof(Layout) == 8 + Satellites * sizeof(Entry));

    Entry *Of(int prn) const;
    void Keep(const almanac &received);

    Layout *layout_ = nullptr;
};

}  // namespace kernel
