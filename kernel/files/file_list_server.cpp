#include "kernel/files/file_list_server.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/files/list_file_internal.h"

#include <cstring>
#include <limits>
#include <string>

namespace kernel {

namespace {

const char unit[] = "kernel/file_list_server";

constexpr Err_Code list_code = 8, list_not_open_code = 12, list_end_code = 0;

}  // namespace

const char File_List_Server::Name[] = "Server for File Communication from List";

File_List_Server::File_List_Server(const char *name)
    : Object(name ? name : ClassName()), File_Server(name ? name : ClassName())
{
}

// Stops the reader before list_ is destroyed.
File_List_Server::~File_List_Server() { Close(false); }

File_List_Server *File_List_Server::Construct(const char *name)
{
    return Constructed([&] { return new File_List_Server(name); });
}

bool File_List_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || File_Server::IsInheritedFrom(name);
}

std::shared_ptr<List_File> File_List_Server::List() const
{
    const std::lock_guard guard(list_guard_);
    return list_;
}

// The last user destroys the former list. A reader that was killed during a read never releases it.
void File_List_Server::Set_List(std::shared_ptr<List_File> list)
{
    const std::lock_guard guard(list_guard_);
    list_.swap(list);
}

bool File_List_Server::Create(const char *list_name, unsigned long rate)
{
    Close(false);
    Set_List(nullptr);
    if (!list_name) return true;
    std::shared_ptr<List_File> list = List_File::Opened(list_name);
    if (!list) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, list_code, "Cannot open list file \"%s\".", list_name);
        return false;
    }
    Set_List(std::move(list));
    Set_Rate(rate);
    return Find_File() == Found::file;
}

// True also for Found::nothing: another thread has closed the file or opened one, and the reader goes on with that.
bool File_List_Server::Next_File() { return Find_File() != Found::end; }

File_List_Server::Found File_List_Server::Find_File()
{
    const std::shared_ptr<List_File> list = List();
    // Not the end: the reader finds the same file again and calls this once per pass until it is stopped.
    if (!list) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, list_not_open_code, "List file not open.");
        return Found::file;
    }
    std::uint64_t closes = Closes();
    for (std::string entry; list->Next(entry);) {
        // Rate() and not the rate of Create: AutoRun may have changed it.
        const Opened opened = Replace(entry.c_str(), Rate(), closes);
        if (opened == Opened::superseded) return Found::nothing;
        if (opened == Opened::no) continue;
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Information, list_code, "Opened next file \"%s\".", entry.c_str());
        return Found::file;
    }
    if (Closes() != closes) return Found::nothing;
    Set_List(nullptr);
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Information, list_end_code, "Reached end of list file.");
    Close(false);
    return Found::end;
}

const char Simulator_File_Server::Name[] = "Simulator_File_Server";

Simulator_File_Server::Simulator_File_Server(const char *name)
    : Object(name ? name : ClassName()), File_List_Server(name ? name : ClassName())
{
}

// Stops the reader while Next_File is still that of this class.
Simulator_File_Server::~Simulator_File_Server() { Close(false); }

Simulator_File_Server *Simulator_File_Server::Construct(const char *name)
{
    return Constructed([&] { return new Simulator_File_Server(name); });
}

bool Simulator_File_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || File_List_Server::IsInheritedFrom(name);
}

bool Simulator_File_Server::Create(const char *name, bool list_mode, unsigned long bytes_per_second)
{
    // A reader that is still at the end of the previous recording may see the new mode. It then reports that no list is
    // open.
    list_mode_ = list_mode;
    SetBytesPerSec(bytes_per_second);
    return list_mode ? File_List_Server::Create(name, bytes_per_second) : File_Server::Create(name, bytes_per_second);
}

bool Simulator_File_Server::Next_File() { return list_mode_ && File_List_Server::Next_File(); }

void Simulator_File_Server::Disable()
{
    if (!working_as_master_) AutoRun(0);
}

void Simulator_File_Server::SetBytesPerSec(unsigned long rate)
{
    constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    bytes_per_second_.store(rate > most ? most : static_cast<std::uint32_t>(rate), std::memory_order_relaxed);
}

}  // namespace kernel
