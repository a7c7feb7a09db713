// A window is a FIFO window-NUMBER in the runtime folder. It can be reached while a process has it open for reading,
// which ends with that process in every case. Its queue takes some 2,700 messages; that of a datagram socket takes ten.
#include "platform/window.h"

#include "platform/error.h"
#include "platform/posix/errno_table.h"
#include "platform/posix/runtime_folder.h"
#include "platform/posix/wait_internal.h"
#include "platform/wait.h"

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr char prefix[] = "window-";
constexpr std::uint32_t magic = 0x57474E53;
constexpr int most_tries = 100;  // to find a free number

// Each message is one write. It is written whole or not at all, because it is smaller than PIPE_BUF.
struct Record {
    std::uint32_t magic;
    std::uint32_t message;
    std::uint64_t wparam;
    std::int64_t lparam;
};
static_assert(sizeof(Record) == 24 && sizeof(Record) <= PIPE_BUF);

std::string path_of(const std::string &folder, std::uint32_t number)
{
    return folder + '/' + prefix + std::to_string(number);
}

// Empty when there is no folder, or when the number cannot be one that create() gave.
std::string path_of(void *window)
{
    const auto number = reinterpret_cast<std::uintptr_t>(window);
    const std::string folder = posix::runtime_folder();
    return folder.empty() || number > UINT32_MAX ? std::string() : path_of(folder, static_cast<std::uint32_t>(number));
}

// Mixed from time and process id: not null, not repeated soon, and positive as an `int` for hosts that store it in one.
std::uint32_t fresh_number()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    auto value = static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
    value ^= static_cast<std::uint64_t>(getpid()) << 40;
    value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9u;
    value = (value ^ value >> 27) * 0x94d049bb133111ebu;
    return 0x10000u + static_cast<std::uint32_t>(value >> 33) % 0x7FFF0000u;
}

// Returns -1 when no process has it open for reading (ENXIO), or when it does not exist (ENOENT).
int open_for_posting(const std::string &path)
{
    return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
}

// The receiver may close between open and write. SIGPIPE is then kept from this thread, however the host handles it.
bool write_without_signal(int descriptor, const Record &record)
{
    sigset_t pipe, before, pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    sigpending(&pending);
    const bool written = write(descriptor, &record, sizeof record) == sizeof record;
    const int error = errno;
    const timespec at_once{};
    if (!written && error == EPIPE && sigismember(&pending, SIGPIPE) == 0) sigtimedwait(&pipe, nullptr, &at_once);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

bool fail_with(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

bool post(const std::string &path, const Window_Message &message)
{
    const int descriptor = open_for_posting(path);
    if (descriptor < 0) return errno == ENOENT || errno == ENXIO ? fail_with(error_invalid_window) : posix::fail();
    const bool posted = write_without_signal(descriptor, {magic, message.message, message.wparam, message.lparam});
    const int error = errno;
    close(descriptor);
    if (posted) return true;
    return fail_with(error == EAGAIN  ? std::uint32_t{error_not_enough_quota}
                     : error == EPIPE ? std::uint32_t{error_invalid_window}
                                      : posix::from_errno(error));
}

}  // namespace

// A Waitable: its descriptor polls readable while a message is there, and taking the signal takes the message.
struct Window::State : Waitable {
    int reader = -1;
    std::optional<posix::Descriptor_Source> source;  // of the reader
    std::uint32_t number = 0;
    std::string path;
    int writer = -1;  // our own writing end; without it the FIFO would poll as hung up after each sender's close
    Record record{};
    std::size_t have = 0;  // [bytes] of `record` received so far

    ~State() override
    {
        if (!path.empty()) unlink(path.c_str());
        if (writer >= 0) close(writer);
        if (reader >= 0) close(reader);
    }

    // Opened under another name first: a FIFO without a reader looks like the leftover of a dead process.
    bool open_in(const std::string &folder)
    {
        const std::string unborn = folder + "/unborn-" + std::to_string(number), born = path_of(folder, number);
        if (mkfifo(unborn.c_str(), 0600) != 0) return false;
        reader = open(unborn.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
        writer = open_for_posting(unborn);
        if (reader >= 0 && writer >= 0 && link(unborn.c_str(), born.c_str()) == 0) path = born;
        const int error = errno;
        unlink(unborn.c_str());
        errno = error;
        if (path.empty()) return false;
        native_ = reinterpret_cast<std::intptr_t>(static_cast<posix::Source *>(&source.emplace(reader, POLLIN)));
        return true;
    }

    bool take() override
    {
        if (have == sizeof record) have = 0;
        for (;;) {
            auto *const bytes = reinterpret_cast<char *>(&record);
            const ssize_t got = read(reader, bytes + have, sizeof record - have);
            if (got <= 0) return false;
            have += static_cast<std::size_t>(got);
            if (have < sizeof record) continue;
            if (record.magic == magic) return true;
            std::memmove(bytes, bytes + 1, --have);  // foreign bytes: search the next message behind them
        }
    }
};

Window::Window(std::unique_ptr<State> state) : state_(std::move(state)) {}

Window::~Window() = default;

std::unique_ptr<Window> Window::create()
{
    const std::string folder = posix::runtime_folder();
    if (folder.empty()) return nullptr;
    for (int tries = 0; tries < most_tries; ++tries) {
        auto state = std::make_unique<State>();
        state->number = fresh_number();
        if (state->open_in(folder)) return std::unique_ptr<Window>(new Window(std::move(state)));
        if (errno != EEXIST) break;
    }
    posix::fail();
    return nullptr;
}

void *Window::handle() const { return reinterpret_cast<void *>(std::uintptr_t{state_->number}); }

bool Window::receive(Window_Message &message, unsigned long ms)
{
    if (!state_->wait(ms)) return false;
    message = {state_->record.message, state_->record.wparam, state_->record.lparam};
    return true;
}

// Other errors, such as no descriptors left, do not mean that the window is gone.
bool is_window(void *window)
{
    const std::string path = path_of(window);
    if (path.empty()) return false;
    const int descriptor = open_for_posting(path);
    if (descriptor < 0) return errno != ENXIO && errno != ENOENT;
    close(descriptor);
    return true;
}

bool post_message(void *window, const Window_Message &message)
{
    const std::string path = path_of(window);
    return path.empty() ? fail_with(error_invalid_window) : post(path, message);
}

int broadcast_message(const Window_Message &message)
{
    const std::string folder = posix::runtime_folder();
    DIR *const entries = folder.empty() ? nullptr : opendir(folder.c_str());
    if (!entries) return 0;
    int taken = 0;
    while (const dirent *entry = readdir(entries)) {
        if (std::strncmp(entry->d_name, prefix, sizeof prefix - 1) != 0) continue;
        const std::string path = folder + '/' + entry->d_name;
        if (post(path, message))
            ++taken;
        else if (last_error() == error_invalid_window)
            unlink(path.c_str());
    }
    closedir(entries);
    return taken;
}

}  // namespace platform
