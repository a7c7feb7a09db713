#include "kernel/files/file_client.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/files/file_support_internal.h"

#include "platform/error.h"
#include "platform/file.h"

#include <cstring>
#include <new>

namespace kernel {

namespace {

const char unit[] = "kernel/file_client";

constexpr Open_Error_Words words = {"device not found", "access denied (File open ?)"};

}  // namespace

const char File_Client::Name[] = "Client or File Communication";

File_Client::File_Client(const char *name) : Object(name ? name : ClassName()) { ResetValues(); }

File_Client::File_Client() : File_Client(ClassName()) {}

// Byte_Client is default-constructed, because counters and connection are not copied.
File_Client::File_Client(const File_Client &other) : Object(other), Byte_Client() { ResetValues(); }

File_Client &File_Client::operator=(const File_Client &other)
{
    last_error_ = other.last_error_;
    return *this;
}

File_Client::~File_Client() { Close(); }

File_Client *File_Client::Construct(const char *name)
{
    return Constructed([&] {
        std::unique_ptr<File_Client> client(new File_Client);
        client->Create(name);
        return client.release();
    });
}

File_Client *File_Client::Construct()
{
    return Constructed([&] { return new File_Client; });
}

bool File_Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name);
}

bool File_Client::IsValid() const { return Client_Server::IsValid() && (!name_ || file_); }

void File_Client::ResetValues()
{
    file_.reset();
    last_error_ = 0;
    name_.reset();
}

bool File_Client::Create(const char *name)
{
    if (!name) {
        Close();
        return true;
    }
    if (name_ && file_ && Same_File_Name(name_.get(), name)) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Warning, file_code, "File %s already open", name);
        return true;
    }
    std::unique_ptr<char[]> own_name = Copy_Text(name);  // before Close, which may free the caller's text
    Close();
    if (!own_name) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, no_memory_code, "strdup(%s) failed", name);
        return false;
    }
    file_ = platform::File::open(own_name.get(), platform::File::Mode::create);
    if (!file_) {
        // The name is not kept: a client without name and file is valid and records nothing.
        last_error_ = platform::last_error();
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, file_code, "Could not open file %s", own_name.get());
        ErrorBox();
        return false;
    }
    name_ = std::move(own_name);
    file_->seek_end(0);
    return true;
}

// Resets both: with a name and no file the object would not be valid.
void File_Client::Close()
{
    file_.reset();
    name_.reset();
}

bool File_Client::Send(Byte_Server &server, CL_Mesg message)
{
    switch (message) {
    // A request of one byte, so that the server calls as soon as there is any data; Mesg_Data_Ready then takes all. The
    // replies are always true: a full disk must not end the stream.
    case Mesg_Request_Invite: server.Request(1); return true;
    case Mesg_Data_Ready: {
        unsigned char block[block_size];
        if (!Append(block, Take_Block(server, block), unit)) Close();
        return true;
    }
    default: return Byte_Client::Send(server, message);
    }
}

long File_Client::Take_Block(Byte_Server &server, unsigned char *block)
{
    server.MinAvail(0);  // called for its effect: an empty ring starts at its beginning again
    return Bytes_Moved(server.GetNBytes(block, block_size), block_size);
}

bool File_Client::Append(const unsigned char *block, long n, const char *unit_name)
{
    std::size_t written = 0;
    if (!file_ || n == 0 || file_->write(block, static_cast<std::size_t>(n), written)) return true;
    last_error_ = platform::last_error();
    Report(unit_name, __LINE__)
        .Print_Out(Error_Handler::ES_Error, file_code, "Could not write to file %s", name_.get());
    ErrorBox();
    return false;
}

void File_Client::ErrorBox() { Report_Open_Error(*this, unit, __LINE__, last_error_, words); }

}  // namespace kernel
