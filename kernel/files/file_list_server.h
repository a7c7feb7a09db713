// Replays the recordings that a list file names, one after the other. Also the replaying half of a simulated receiver.
#pragma once

#include "kernel/files/file_server.h"

#include <memory>

namespace kernel {

class List_File;

// A list file holds one file name per line (LF or CR LF, at most 256 characters, relative to the current directory).
// Blanks and tabs around the name, empty lines and "//" comments are ignored. If a single '/' precedes it in the line,
// as in a path, "//" is no comment. The names are UTF-8; a byte order mark before the first one is skipped. The list
// may grow while it is open.
//
// Threads:   as File_Server; Next_File runs on the reader thread. Close, stop() and Create end its search for a file
//            that can be opened. pre_stop() does not: the search finds a file first, so that the replay can continue
//            with it.
// Ownership: the list file is open until its end, Create or destruction.
// Errors:    kernel/file_list_server: level 3, code 8 "Cannot open list file \"%s\".", level 3, code 12 "List file not
//            open."; level 1: "Opened next file \"%s\"." (8), "Reached end of list file." (0). An entry that cannot be
//            opened is reported as in File_Server, and the next one is taken.
class KERNEL_API File_List_Server : public File_Server {
public:
    static const char Name[];  // "Server for File Communication from List"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static File_List_Server *Construct(const char *name);  // a null name is the default name
    static void Destruct(File_List_Server *server) { Object::Destruct(server); }

    // Opens the list and its first file; `rate` is in bytes per second. Null closes. Returns false when no file could
    // be opened.
    bool Create(const char *list_name, unsigned long rate) override;
    // Part of the interface: if no list is open, reports that and returns true.
    bool Next_File() override;

    ~File_List_Server() override;

protected:
    explicit File_List_Server(const char *name);

private:
    enum class Found { file, end, nothing };
    Found Find_File();
    std::shared_ptr<List_File> List() const;
    void Set_List(std::shared_ptr<List_File> list);

    mutable std::mutex list_guard_;    // guards list_; not held while the list is read
    std::shared_ptr<List_File> list_;  // null when no list is open
};

// Replays a single recording or a list, as Create decides.
//
// Threads:   as File_Server; the members are atomics.
// Ownership: as File_Server.
// Errors:    as File_Server and File_List_Server.
class KERNEL_API Simulator_File_Server : public File_List_Server {
public:
    static const char Name[];  // "Simulator_File_Server"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    static Simulator_File_Server *Construct(const char *name);  // a null name is the default name
    static void Destruct(Simulator_File_Server *server) { Object::Destruct(server); }

    using File_List_Server::Create;
    // `name` is a list file or a recording.
    bool Create(const char *name, bool list_mode, unsigned long bytes_per_second);
    bool Next_File() override;  // false when not in list mode

    void Enable() { AutoRun(GetBytesPerSec()); }
    void Disable();  // ends auto-run, unless working as master
    int IsWorkingAsMaster() const { return working_as_master_; }
    void SetWorkingAsMaster(int master) { working_as_master_ = master; }
    void SetBytesPerSec(unsigned long rate);  // takes effect at the next Enable
    unsigned long GetBytesPerSec() const { return bytes_per_second_.load(std::memory_order_relaxed); }

    ~Simulator_File_Server() override;

protected:
    explicit Simulator_File_Server(const char *name);

private:
    std::atomic<std::uint32_t> bytes_per_second_{1000};
    std::atomic<int> working_as_master_{0};
    std::atomic<bool> list_mode_{false};  // read by the reader thread
};

}  // namespace kernel
