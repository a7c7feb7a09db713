#include "kernel/memory/sharemem.h"

#include "platform/error.h"
#include "platform/replaced_file.h"
#include "platform/shared_memory.h"
#include "platform/window.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

namespace kernel {

namespace {

struct Header {
    std::uint32_t users;
    std::uint32_t size;
};
static_assert(sizeof(Header) == 8);

std::atomic_ref<std::uint32_t> Word(const platform::Shared_Memory &memory, std::size_t offset)
{
    return std::atomic_ref(*reinterpret_cast<std::uint32_t *>(memory.data() + offset));
}
std::atomic_ref<std::uint32_t> Users(const platform::Shared_Memory &memory)
{
    return Word(memory, offsetof(Header, users));
}
std::atomic_ref<std::uint32_t> Size(const platform::Shared_Memory &memory)
{
    return Word(memory, offsetof(Header, size));
}

// One file for each name of a segment, and none outside of the folder.
std::string File_Name(const std::string &segment)
{
    std::string name;
    for (const char c : segment) {
        char encoded[4] = {c};
        if (static_cast<unsigned char>(c) < 0x20 || std::strchr("/\\:*?\"<>|%", c))
            std::snprintf(encoded, sizeof encoded, "%%%02X", static_cast<unsigned char>(c));
        name += encoded;
    }
    const char *const folder = std::getenv("TEMP") ? std::getenv("TMP") : nullptr;
    return (folder && *folder ? folder + std::string("/") : std::string()) + name + ".TMP";
}

}  // namespace

sharemem::sharemem(const char *name, unsigned long size, unsigned long flags)
    : flags_(static_cast<std::uint32_t>(flags)), size_(static_cast<std::uint32_t>(size))
{
    try {
        name_ = name ? name : "";
        if (size == size_) Initialise();  // an object without memory, or of more than 32 bits, stays invalid
    } catch (const std::exception &) {
    }
}

sharemem::~sharemem()
{
    close();
    if (size_ == 0) GlobalMessage(global_message, message_reset, 0);
}

sharemem *sharemem::Create(const char *name, unsigned long size, unsigned long flags)
{
    sharemem *segment = new (std::nothrow) sharemem(name, size, flags);
    if (segment && !segment->valid()) Delete(segment);
    return segment;
}

void sharemem::Delete(sharemem *&segment)
{
    if (sharemem *const ended = std::exchange(segment, nullptr))
        ended->disposal_ ? ended->disposal_(ended) : delete ended;
}

void sharemem::alloc(unsigned long size)
{
    close();
    size_ = static_cast<std::uint32_t>(size);
    if (size != size_) return;
    try {
        Initialise();
    } catch (const std::exception &) {
    }
}

// The lock of the transition is held until the header is complete, so that nobody sees a segment without its size.
void sharemem::Initialise()
{
    using platform::Shared_Memory;
    if ((flags_ & flag_create) == 0) return Attach();
    if (size_ == 0 || size_ > UINT32_MAX - sizeof(Header) || (flags_ & flag_read_only) != 0)
        return platform::set_last_error(platform::error_invalid_parameter);
    platform::Named_Lock lock(Shared_Memory::transition(name_));
    const std::lock_guard guard(lock);
    auto found = Shared_Memory::Found::existing;
    memory_ = Shared_Memory::create(name_, size_ + sizeof(Header), found);
    if (!Has_Header()) return;
    if (found == Shared_Memory::Found::fresh)
        Make_New();
    else
        Users(*memory_).fetch_add(1, std::memory_order_relaxed);
}

// A foreign segment may be too small for one: it is given up.
bool sharemem::Has_Header()
{
    if (memory_ && memory_->size() < sizeof(Header)) memory_.reset();
    return memory_ != nullptr;
}

void sharemem::Attach()
{
    {
        platform::Named_Lock lock(platform::Shared_Memory::transition(name_));
        const std::lock_guard guard(lock);
        memory_ = platform::Shared_Memory::open(name_);
        if (!Has_Header()) return;
        Users(*memory_).fetch_add(1, std::memory_order_relaxed);
    }
    GlobalMessage(global_message, message_attached, 0);
}

void sharemem::Make_New()
{
    if ((flags_ & flag_persistent) != 0 && !Load_File()) std::memset(memory_->data(), 0, size_ + sizeof(Header));
    Users(*memory_).store(1, std::memory_order_relaxed);
    Size(*memory_).store(size_, std::memory_order_relaxed);
}

bool sharemem::Load_File()
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(platform::open_stream(File_Name(name_).c_str()),
                                                                std::fclose);
    return file && std::fread(memory_->data(), size_ + sizeof(Header), 1, file.get()) == 1;
}

// The segment as its creator made it: this object may have asked for more, or for less.
void sharemem::Save_File() const
{
    const auto file = platform::Replaced_File::open(File_Name(name_).c_str());
    const std::size_t bytes = get_size() + sizeof(Header);
    if (file && std::fwrite(memory_->data(), bytes, 1, file->stream()) == 1) file->commit();
}

int sharemem::in_use() const
{
    return memory_ ? static_cast<int>(Users(*memory_).load(std::memory_order_relaxed)) : -1;
}

void sharemem::reset_use()
{
    if (memory_) Users(*memory_).store(1, std::memory_order_relaxed);
    GlobalMessage(global_message, message_reset, 0);
}

void *sharemem::get_ptr(unsigned long offset) const
{
    return memory_ ? memory_->data() + sizeof(Header) + offset : nullptr;
}

unsigned long sharemem::get_size() const
{
    if (!memory_) return 0;
    const std::size_t most = memory_->size() - sizeof(Header);
    return static_cast<unsigned long>(std::min<std::size_t>(Size(*memory_).load(std::memory_order_relaxed), most));
}

// After reset_use() more users may leave than were counted: then each of them saves, so that the last state stays.
void sharemem::close()
{
    if (!memory_) return;
    try {
        platform::Named_Lock lock(platform::Shared_Memory::transition(name_));
        const std::lock_guard guard(lock);
        const std::uint32_t users = std::max(Users(*memory_).load(std::memory_order_relaxed), 1u) - 1;
        Users(*memory_).store(users, std::memory_order_relaxed);
        if (users == 0 && (flags_ & flag_persistent) != 0 && size_ != 0) Save_File();
        memory_.reset();
    } catch (const std::exception &) {  // no memory for the lock or the name of the file
        memory_.reset();
    }
}

// --- smem_server

namespace {

constexpr char server_title[] = "shared memory base class v2.00";
constexpr char server_description[] = "shared memory base class v2.00\r\n"
                                      "This is a window allocating a piece of\r\n"
                                      "shared memory. Messages are displayed\r\n"
                                      "and users may link to it.\r\n";
constexpr char command_list[] = "Commands:\r\n"
                                "  ?       - this command list\r\n"
                                "  desc    - info about this object\r\n"
                                "  user    - number of users and size info\r\n"
                                "  update  - get latest info\r\n"
                                "  reset   - reset\r\n"
                                "  post <msg subtype parameter>  - send a global message";
constexpr std::size_t longest_line = 255, longest_message = 2047;  // [bytes]
constexpr int no_level = -1, user_level = 3;

// Takes the next word off the line; empty at its end.
std::string_view Next_Word(std::string_view &line)
{
    constexpr std::string_view blanks = " \n\r\t";
    const std::size_t begin = std::min(line.find_first_not_of(blanks), line.size());
    const std::size_t end = std::min(line.find_first_of(blanks, begin), line.size());
    const std::string_view word = line.substr(begin, end - begin);
    line.remove_prefix(end);
    return word;
}

bool Is(std::string_view word, std::string_view command)
{
    return std::equal(word.begin(), word.end(), command.begin(), command.end(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

int Number(std::string_view word)
{
    char digits[longest_line + 1] = {};
    word.copy(digits, longest_line);
    return static_cast<int>(std::strtol(digits, nullptr, 10));
}

int Say(smem_server &server, int level, const char *format, std::va_list arguments)
{
    char text[longest_message + 1] = {};
    std::vsnprintf(text, sizeof text, format ? format : "", arguments);
    server.message(text, level);
    return static_cast<int>(std::strlen(text));
}

}  // namespace

smem_server::smem_server(const char *name, unsigned long size, unsigned long id, unsigned long flags)
    : sharemem(name, size, flags), id_(static_cast<std::uint32_t>(id))
{
    if (in_use() == 1) smem_server::init();
    smem_server::message("shared memory base class v2.00 - installed", no_level);
}

const char *smem_server::title() const { return server_title; }

const char *smem_server::description() const { return server_description; }

void smem_server::init() {}

unsigned long smem_server::get_ID() const { return id_; }

void smem_server::message(const char *, int) {}

void smem_server::update() {}

int smem_server::printf(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int length = Say(*this, no_level, format, arguments);
    va_end(arguments);
    return length;
}

int smem_server::printf(int level, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int length = Say(*this, level, format, arguments);
    va_end(arguments);
    return length;
}

void smem_server::interpret(char *line)
{
    if (!line) return;
    std::string_view rest(line);
    rest = rest.substr(0, longest_line);
    const std::string_view command = Next_Word(rest);
    if (command.empty()) return;
    if (command == "?" || Is(command, "help")) {
        message(command_list, no_level);
    } else if (Is(command, "desc")) {
        message(description(), no_level);
    } else if (Is(command, "user")) {
        printf(user_level, "Memory: %s", get_segment_name());
        printf(user_level, "Users: %d", in_use());
        printf(user_level, "Size: %ld", static_cast<long>(get_size()));
    } else if (command == "reset") {
        reset_use();
    } else if (Is(command, "post")) {
        const int number = Number(Next_Word(rest)), subtype = Number(Next_Word(rest));
        GlobalMessage(number, subtype, Number(Next_Word(rest)));
    } else if (Is(command, "update")) {
        update();
    } else {
        printf("Unknown command: %.*s", static_cast<int>(command.size()), command.data());
    }
}

void GlobalMessage(int message, int wParam, long lParam)
{
    try {
        platform::broadcast_message({static_cast<std::uint32_t>(message),
                                     static_cast<std::uint64_t>(static_cast<std::int64_t>(wParam)), lParam});
    } catch (const std::exception &) {  // without memory nobody hears of it
    }
}

}  // namespace kernel
