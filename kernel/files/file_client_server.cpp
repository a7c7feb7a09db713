#include "kernel/files/file_client_server.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/files/file_support_internal.h"

#include "platform/error.h"
#include "platform/file.h"

#include <cstring>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/file_client_server";

// No_Byte as a count, part of the interface. Callers check for it with Bytes_Moved.
constexpr long no_upstream_count = 65535;
constexpr Open_Error_Words words = {"device not found", "access denied (Device open ?)"};

}  // namespace

const char File_Client_Server::Name[] = "Client Server for File Communication";

File_Client_Server::File_Client_Server(const char *name)
    : Object(name ? name : ClassName()), file_(std::make_unique<Open_File>())
{
}

File_Client_Server::~File_Client_Server() { Close(); }

File_Client_Server *File_Client_Server::Construct(const char *name)
{
    return Constructed([&] {
        std::unique_ptr<File_Client_Server> object(new File_Client_Server(nullptr));
        object->Create(name);
        return object.release();
    });
}

bool File_Client_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Server::IsInheritedFrom(name) ||
           Byte_Client::IsInheritedFrom(name);
}

// Name and file are set and cleared together: after Create there is no name without a file.
bool File_Client_Server::IsValid() const { return Client_Server::IsValid() && (!file_->Name() || file_->Get()); }

bool File_Client_Server::Create(const char *name)
{
    if (!name) {
        Close();
        return true;
    }
    const std::unique_ptr<char[]> own_name = Copy_Text(name);  // before Close, which may free the caller's text
    std::uint64_t closes = 0;
    {
        const Semaphore_Guard guard(*this);
        // The pointer is valid while the lock is held, because every Close takes the lock.
        const char *open_name = file_->Name();
        if (open_name && Same_File_Name(open_name, name)) return true;
        Close();
        closes = file_->Closes();
    }
    if (!own_name) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, no_memory_code, "strdup(%s) failed", name);
        return false;
    }
    // No lock is held here: opening may block without limit.
    auto file = platform::File::open(own_name.get(), platform::File::Mode::append);
    if (!file) {
        last_error_ = platform::last_error();
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, file_code, "Could not open File %s", own_name.get());
        ErrorBox();
        return false;
    }
    // Opening for append leaves the position at the start.
    file->seek_end(0);
    return file_->Set(std::move(file), own_name.get(), closes);
}

void File_Client_Server::Close()
{
    std::shared_ptr<platform::File> former;  // outlives the lock
    const Semaphore_Guard guard(*this);
    former = file_->Close();
}

bool File_Client_Server::Request(long n) { return upstream_ && upstream_->Request(n); }

long File_Client_Server::MinAvail(long n) { return upstream_ ? upstream_->MinAvail(n) : 0; }

// One system call per byte; GetNBytes is faster.
unsigned short File_Client_Server::GetByte()
{
    const unsigned short value = upstream_ ? upstream_->GetByte() : No_Byte;
    if (value != No_Byte) {
        const auto byte = static_cast<unsigned char>(value);
        Record(&byte, 1);
    }
    return value;
}

unsigned short File_Client_Server::UnGetByte(unsigned char)
{
    const unsigned short value = upstream_ ? upstream_->GetByte() : No_Byte;
    if (value == No_Byte) return value;
    // Fails for an empty file, in which there is no byte to replace.
    if (const auto file = file_->Get()) file->seek_end(-1);
    return value;
}

long File_Client_Server::GetNBytes(unsigned char *buffer, long n)
{
    if (!upstream_) return no_upstream_count;
    const long got = upstream_->GetNBytes(buffer, n);
    const long moved = Bytes_Moved(got, n);
    if (moved > 0) Record(buffer, static_cast<std::size_t>(moved));
    return got;
}

void File_Client_Server::Record(const unsigned char *bytes, std::size_t n)
{
    const auto file = file_->Get();
    if (!file) return;
    std::size_t written = 0;
    if (file->write(bytes, n, written)) return;
    const std::uint32_t error = platform::last_error();
    if (file->closed()) return;  // another thread closed it between Get and write
    last_error_ = error;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, file_code, "Could not write to file %s", file_->Name_Copy().c_str());
    ErrorBox();
    Close();
}

bool File_Client_Server::Send(Byte_Server &server, CL_Mesg message)
{
    if (message == Mesg_Delete_Query) {
        Delete_Downstream();
        return Byte_Client::Send(server, message);
    }
    // The tap replies for the chain; its client was asked when it was connected to the tap. All other messages are
    // passed down, Mesg_Disconnect_Query included: the end of the chain decides, and ticks are counted there.
    if (message == Mesg_Byte_Type) return true;
    // Restored afterwards: a nested message must not take the upstream away from the outer one.
    Byte_Server *const outer = std::exchange(upstream_, &server);
    const std::optional<bool> answer = Ask(message);
    upstream_ = outer;
    return answer ? *answer : Byte_Client::Send(server, message);
}

// If this object may be deleted, deletes its client, too.
void File_Client_Server::Delete_Downstream()
{
    if (!Delete_Me()) return;
    // Take_Client first: otherwise this object's destructor would send to a deleted client.
    Byte_Client *const downstream = Take_Client();
    if (downstream && downstream->Send(*this, Mesg_Delete_Query)) Object::Destruct(downstream);
}

void File_Client_Server::ErrorBox() { Report_Open_Error(*this, unit, __LINE__, last_error_, words); }

}  // namespace kernel
