#include "kernel/files/file_support_internal.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Object.h"

#include "platform/file.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <new>

namespace kernel {

// What has no words here comes out as its number, on purpose: 3 (no such folder), 32 (somebody else has the file), 112
// (disk full).
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
    object.Report(unit, line).Print_Out(Error_Handler::ES_Error, 15, "%s", text.c_str());
    return text;
}

std::unique_ptr<char[]> Copy_Text(const char *text)
{
    const std::size_t size = std::strlen(text) + 1;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
    if (copy) std::memcpy(copy.get(), text, size);
    return copy;
}

// Case does not count on POSIX either, although two files may differ in nothing else there: the second is then taken
// for the one that is open.
bool Same_File_Name(const char *a, const char *b)
{
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    while (*a && lower(*a) == lower(*b)) ++a, ++b;
    return lower(*a) == lower(*b);
}

std::shared_ptr<platform::File> Open_File::Get() const
{
    const std::lock_guard lock(guard_);
    return file_;
}

// The guard keeps the look whole; what it answers is the caller's to protect from Set and Close.
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

void Open_File::Set(std::shared_ptr<platform::File> file, const char *name)
{
    const std::lock_guard lock(guard_);
    // Marked for those who still hold it: their next transfer fails. The handle goes with the last of them.
    if (file_) file_->close();
    file_ = std::move(file);
    name_ = name ? std::make_unique<std::string>(name) : nullptr;
}

void Open_File::Close() { Set(nullptr, nullptr); }

}  // namespace kernel
