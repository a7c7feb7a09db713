#include "kernel/files/file_list_server.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/files/list_file_internal.h"

#include <cstring>
#include <string>

namespace kernel {

namespace {

const char unit[] = "kernel/file_list_server";

}  // namespace

const char File_List_Server::Name[] = "Server for File Communication from List";

File_List_Server::File_List_Server(const char *name)
    : Object(name ? name : ClassName()), File_Server(name ? name : ClassName()), list_(std::make_unique<List_File>())
{
}

// The reader is stopped while it still finds the list.
File_List_Server::~File_List_Server() { Close(false); }

File_List_Server *File_List_Server::Construct(const char *name)
{
    return Constructed([&] { return new File_List_Server(name); });
}

bool File_List_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || File_Server::IsInheritedFrom(name);
}

bool File_List_Server::Create(const char *list_name, unsigned long rate)
{
    Close(false);
    // The list has no lock: from here until Work() no reader is there to use it.
    list_->Close();
    if (!list_name) return true;
    if (!list_->Open(list_name)) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 8, "Cannot open list file \"%s\".", list_name);
        return false;
    }
    Set_Rate(rate);
    return Next_File();
}

bool File_List_Server::Next_File()
{
    // True is meant: the reader finds the same file again and asks once per pass, until it is stopped.
    if (!list_->Is_Open()) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 12, "List file not open.");
        return true;
    }
    for (std::string entry;;) {
        File_Lock lock(*this);
        if (!list_->Next(entry)) return End_List(lock);
        // Let go first: Create drops this lock and makes one for the next name. The rate is that of now, which AutoRun
        // may have changed.
        lock.Release();
        if (File_Server::Create(entry.c_str(), Rate())) {
            Report(unit, __LINE__)
                .Print_Out(Error_Handler::ES_Information, 8, "Opened next file \"%s\".", entry.c_str());
            return true;
        }
    }
}

bool File_List_Server::End_List(File_Lock &lock)
{
    list_->Close();
    lock.Release();
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Information, 0, "Reached end of list file.");
    Close(false);
    return false;
}

const char Simulator_File_Server::Name[] = "Simulator_File_Server";

Simulator_File_Server::Simulator_File_Server(const char *name)
    : Object(name ? name : ClassName()), File_List_Server(name ? name : ClassName())
{
}

// The reader is stopped while Next_File is still this class's.
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
    // A reader that is at the end of the recording before this one may already see the new mode, and says that no list
    // is open.
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
    bytes_per_second_ = rate > 0xFFFFFFFFUL ? 0xFFFFFFFFU : static_cast<std::uint32_t>(rate);
}

}  // namespace kernel
