#include "kernel/files/file_support_internal.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Object.h"

#include "platform/file.h"

#include <cstdio>
#include <cstring>
#include <new>

namespace kernel {

// The texts are part of the interface, and so is the number for every other error, such as 3 (no such folder), 32
// (another process has the file), 112 (disk full).
std::string Open_Error_Text(std::uint32_t error, const Open_Error_Words &words)
{
    switch (error) {
    case 0: return {};
    case 2: return words.not_found;
    case 4: return "too many open files";
    case 5: return words.access_denied;
    case 6: return "invalid handle";
    case 8: return "not enough memory";
    case 9: return "invalid block";
    case 10: return "bad environment";
    case 11: return "bad format";
    case 12: return "invalid access";
    case 13: return "invalid Data";
    case 21: return "not ready";
    case 110: return "open failed";
    case 123: return "File name invalid";
    case 222: return "no regular file";  // a FIFO or a device, which platform::File refuses
    case 1450: return "No system resources";
    case 1816: return "Not enough quota is available to process this command.";
    default: break;
    }
    char text[64];
    std::snprintf(text, sizeof text, "NT ErrorCode: %d = 0x%08X", static_cast<int>(error),
                  static_cast<unsigned int>(error));
    return text;
}

std::string Report_Open_Error(const Object &object, const char *unit, unsigned int line, std::uint32_t error,
                              const Open_Error_Words &words)
{
    const std::string cause = Open_Error_Text(error, words);
    if (cause.empty()) return {};
    const std::string text = "Initialization Error\nCode: " + cause;
    object.Report(unit, line).Print_Out(Error_Handler::ES_Error, cause_code, "%s", text.c_str());
    return text;
}

// Case is ignored on POSIX as well: of two files whose names differ only in case, the second is taken for the first.
// Only ASCII letters, in every locale: other bytes are parts of UTF-8 characters.
bool Same_File_Name(const char *a, const char *b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    while (*a && lower(*a) == lower(*b)) ++a, ++b;
    return lower(*a) == lower(*b);
}

std::shared_ptr<platform::File> Open_File::Get() const
{
    const std::lock_guard lock(guard_);
    return file_;
}

// The guard protects the read only. The caller must keep Set and Close away while it uses the pointer.
const char *Open_File::Name() const
{
    const std::lock_guard lock(guard_);
    return name_ ? name_->c_str() : nullptr;
}

std::string Open_File::Name_Copy() const
{
    const std::lock_guard lock(guard_);
    return name_ ? *name_ : std::string();
}

std::uint64_t Open_File::Closes() const
{
    const std::lock_guard lock(guard_);
    return closes_;
}

bool Open_File::Set(std::shared_ptr<platform::File> file, const char *name, std::uint64_t closes)
{
    std::shared_ptr<platform::File> former;  // outlives the guard
    const std::lock_guard lock(guard_);
    if (closes_ != closes) return false;
    former = Replace(std::move(file), name);
    return true;
}

std::shared_ptr<platform::File> Open_File::Close()
{
    const std::lock_guard lock(guard_);
    ++closes_;
    return Replace(nullptr, nullptr);
}

// file_->close() makes the next transfer of every other holder fail.
std::shared_ptr<platform::File> Open_File::Replace(std::shared_ptr<platform::File> file, const char *name)
{
    auto own_name = name ? std::make_unique<std::string>(name) : nullptr;  // first: it may throw
    if (file_) file_->close();
    file_.swap(file);
    name_ = std::move(own_name);
    return file;
}

}  // namespace kernel
