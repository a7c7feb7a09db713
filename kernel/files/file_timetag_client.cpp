#include "kernel/files/file_timetag_client.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/files/file_support_internal.h"
#include "kernel/files/timetag_row_internal.h"
#include "kernel/time/mTime.h"

#include "platform/error.h"
#include "platform/file.h"

#include <cstring>
#include <new>

namespace kernel {

namespace {

const char unit[] = "Kernel/file_timetag_client";

}  // namespace

const char File_TimeTag_Client::Name[] = "File_TimeTag_Client";

File_TimeTag_Client::File_TimeTag_Client() : Object(ClassName()) {}

File_TimeTag_Client::File_TimeTag_Client(const File_TimeTag_Client &other) : Object(other), File_Client(other) {}

File_TimeTag_Client &File_TimeTag_Client::operator=(const File_TimeTag_Client &other)
{
    File_Client::operator=(other);
    return *this;
}

File_TimeTag_Client::~File_TimeTag_Client() { Close(); }

File_TimeTag_Client *File_TimeTag_Client::Construct(const char *name)
{
    return Constructed([&] {
        std::unique_ptr<File_TimeTag_Client> client(new File_TimeTag_Client);
        client->Create(name);
        return client.release();
    });
}

File_TimeTag_Client *File_TimeTag_Client::Construct()
{
    return Constructed([&] { return new File_TimeTag_Client; });
}

bool File_TimeTag_Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || File_Client::IsInheritedFrom(name);
}

std::string File_TimeTag_Client::Tag_File_Name(const char *data_name)
{
    try {
        return Timetag_Name(data_name);
    } catch (const std::bad_alloc &) {
        return {};
    }
}

bool File_TimeTag_Client::IsValid() const { return File_Client::IsValid() && (!tags_name_ || tags_); }

bool File_TimeTag_Client::Create(const char *name)
{
    try {
        // A copy, since the caller's text may be the one that Close frees.
        const std::string data_name = name ? name : "";
        if (!File_Client::Create(name ? data_name.c_str() : nullptr)) return false;
        if (!name) {
            Close();
            return true;
        }
        const std::string tags_name = Timetag_Name(data_name.c_str());
        if (tags_name.empty()) return false;
        if (tags_ && Same_File_Name(tags_name_.get(), tags_name.c_str())) {
            Report(unit, __LINE__)
                .Print_Out(Error_Handler::ES_Warning, file_code, "Timetag file %s already open", tags_name.c_str());
            return true;
        }
        CloseTimeTagFile();
        tags_name_ = Copy_Text(tags_name.c_str());
        tags_ = tags_name_ ? platform::File::open(tags_name.c_str(), platform::File::Mode::create) : nullptr;
        if (tags_) {
            tags_->seek_end(0);
            WriteTimeTagHeader();
            return true;
        }
        if (tags_name_) {
            Set_Last_Error(platform::last_error());
            tags_name_.reset();
            Report(unit, __LINE__)
                .Print_Out(Error_Handler::ES_Error, file_code, "Could not open file %s", tags_name.c_str());
            ErrorBox();
            return false;
        }
    } catch (const std::bad_alloc &) {
    }
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, no_memory_code, "strdup(%s) failed", name);
    return false;
}

void File_TimeTag_Client::Close()
{
    File_Client::Close();
    CloseTimeTagFile();
}

void File_TimeTag_Client::CloseTimeTagFile()
{
    tags_.reset();
    tags_name_.reset();
}

bool File_TimeTag_Client::Send(Byte_Server &server, CL_Mesg message)
{
    if (message != Mesg_Data_Ready) return File_Client::Send(server, message);
    unsigned char block[block_size];
    const auto n = static_cast<unsigned int>(Take_Block(server, block));
    WriteToFile(block, n);
    WriteToTimetagFile(n);  // a row also for a message without bytes
    return true;
}

void File_TimeTag_Client::WriteToFile(unsigned char *bytes, unsigned int n)
{
    if (!Append(bytes, static_cast<long>(n), unit)) Close();
}

bool File_TimeTag_Client::WriteTimeTagHeader()
{
    if (!tags_) return false;
    const std::string header = Timetag_Header(Get_File_Name() ? Get_File_Name() : "");
    std::size_t written = 0;
    if (tags_->write(header.data(), header.size(), written)) return true;
    Set_Last_Error(platform::last_error());
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, file_code, "Could not write header of timetag file %s", tags_name_.get());
    ErrorBox();
    CloseTimeTagFile();
    return false;
}

void File_TimeTag_Client::WriteToTimetagFile(unsigned int length)
{
    if (!tags_) return;
    const double time = GetTimeStamp();
    const std::int64_t offset = GetFilePointer(Get_File().get(), Get_File_Name());
    if (!tags_) return;  // closed, since the data file has no size
    char row[timetag_row_size];
    std::size_t written = 0;
    if (tags_->write(row, Format_Timetag_Row(row, time, offset, length), written)) return;
    Set_Last_Error(platform::last_error());
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, file_code, "Could not write to timetag file %s", tags_name_.get());
    ErrorBox();
    CloseTimeTagFile();
}

// The position is the size: only this object writes to the file, and always at its end.
std::int64_t File_TimeTag_Client::GetFilePointer(void *file, const char *name)
{
    if (!file) return 0;
    const std::int64_t size = static_cast<platform::File *>(file)->position();
    if (size >= 0) return size;
    Set_Last_Error(platform::last_error());
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, file_code, "Could not obtain file pointer of file %s", name);
    ErrorBox();
    Close();
    return 0;
}

double File_TimeTag_Client::GetTimeStamp() { return mTime(mTime::UTC_Now).get_roguetime(); }

}  // namespace kernel
