// Named blocks of memory that several processes share, and the message that tells all windows about them.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace platform {
class Shared_Memory;
}

namespace kernel {

// The segment of this name and its header. All processes lay it out so, little-endian:
//
//   offset  bytes
//        0      4  users: attached objects, advisory. A killed process does not count down.
//        4      4  size of the data [bytes], as the creator gave it
//        8   size  the data
//
// The segment exists while some process holds it. The first object with flag_create makes it, zeroed; later ones attach
// to it, whatever size they ask for.
//
// Flags: flag_create makes the segment when it does not exist; without it the segment is only opened. With
// flag_persistent the last user saves the whole segment to a file, and the next creator loads it. flag_read_only is for
// opening and has no effect there; creation with it fails. The bits 4 and 8 have no effect.
//
// The file is NAME.TMP in the folder that $TMP names if $TEMP is set; otherwise, and with an empty $TMP or none, it is
// in the current folder. Characters of the name that a file name cannot have, and '%', are written as % and two
// hexadecimal digits.
//
// Threads:   constructor, close, alloc and destructor exclude each other between objects, also of other processes. One
//            object is used by one thread at a time, but for what get_ptr points to, which is the users' to share.
// Ownership: get_ptr points into the mapping, which ends with close(), alloc() and destruction.
// Errors:    none reported: the object is not valid() when the segment could not be had. Failures of the file are
//            ignored: without all its bytes the data are zero.
class KERNEL_API sharemem {
public:
    static constexpr unsigned long flag_create = 1, flag_read_only = 2, flag_persistent = 16;
    // Posted by GlobalMessage to every window; wParam is one of the two, lParam 0.
    static constexpr int global_message = 27004, message_attached = 1, message_reset = 2;

    // size: [bytes] of data; 0 for an object that only opens.
    sharemem(const char *name, unsigned long size, unsigned long flags);
    sharemem(const sharemem &) = delete;
    sharemem &operator=(const sharemem &) = delete;

    virtual ~sharemem();

protected:
    virtual void alloc(unsigned long size);  // closes, and begins again with this size

public:
    static sharemem *Create(const char *name, unsigned long size, unsigned long flags);  // null when not valid
    static void Delete(sharemem *&segment);                                              // null is ignored

    int valid() const { return memory_ != nullptr; }
    int in_use() const;                         // the users, -1 when not valid
    void reset_use();                           // sets the users to 1 and tells all windows
    void *get_ptr(unsigned long offset) const;  // the data from `offset` on, not checked; null when not valid
    unsigned long get_size() const;             // [bytes] of data that are there; 0 when not valid
    void close();

    const char *get_segment_name() const { return name_.c_str(); }

protected:
    // How Delete ends the object; null: by delete. For a subclass that may be deleted by its own thread.
    using Disposal = void (*)(sharemem *segment);
    Disposal disposal_ = nullptr;

private:
    void Initialise();
    bool Has_Header();
    void Attach();
    void Make_New();
    bool Load_File();
    void Save_File() const;

    std::unique_ptr<platform::Shared_Memory> memory_;
    const std::uint32_t flags_;
    std::uint32_t size_;  // [bytes] asked for; 0: only opens
    std::string name_;
};

// A segment with a number and a small interpreter of commands, for a window or console that owns the segment and shows
// messages about it.
//
// Threads:   as sharemem; init and the first message are this class's own, since they run inside its constructor.
// Ownership: as sharemem.
// Errors:    as sharemem.
class KERNEL_API smem_server : public sharemem {
public:
    smem_server(const char *name, unsigned long size, unsigned long id, unsigned long flags);

    virtual const char *title() const;
    virtual const char *description() const;
    virtual void init();  // called when this object is the first user
    virtual unsigned long get_ID() const;
    // One command: "?", "help", "desc", "user", "update", "reset" (which is the only one that minds the case), "post"
    // and three numbers. A line is cut at 255 bytes. Null and blank lines are ignored.
    virtual void interpret(char *line);
    virtual void message(const char *text, int level);  // shows a text; level -1: none

    void update();
    // Formats a line of at most 2047 bytes for message(); the first has level -1. Returns its length.
    int printf(const char *format, ...) KERNEL_PRINTF(2, 3);
    int printf(int level, const char *format, ...) KERNEL_PRINTF(3, 4);

private:
    const std::uint32_t id_;
};

// Posts to every window of this user, on Windows to all top-level windows.
KERNEL_API void GlobalMessage(int message, int wParam, long lParam);

}  // namespace kernel
