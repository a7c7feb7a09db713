#include "platform/named_lock.h"

#include "platform/posix/errno_table.h"
#include "platform/posix/runtime_folder.h"

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

// FNV-1a, 64 bits: names are paths of any length and may hold any character.
std::uint64_t hash(std::string_view name)
{
    std::uint64_t value = 0xcbf29ce484222325u;
    for (const char c : name) value = (value ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
    return value;
}

std::string path_of(std::string_view name)
{
    const std::string folder = posix::runtime_folder();
    if (folder.empty()) return {};
    char file[32];
    std::snprintf(file, sizeof file, "/lock-%016" PRIx64, hash(name));
    return folder + file;
}

int open_lock_file(const std::string &path)
{
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
}

// The last user takes the file away; whoever opened it before that and locks it after must see that it is gone.
bool is_current_file(int descriptor, const std::string &path)
{
    struct stat own {
    }, named{};
    return fstat(descriptor, &own) == 0 && stat(path.c_str(), &named) == 0 && own.st_ino == named.st_ino &&
           own.st_dev == named.st_dev;
}

void flock_forever(int descriptor, int how)
{
    while (flock(descriptor, how) != 0 && errno == EINTR) continue;
}

}  // namespace

// One per name in this process: the mutex serialises its threads, the file's lock its process with the others.
struct Named_Lock::State {
    std::recursive_mutex mutex;
    std::string path;  // empty for the nameless
    int descriptor = -1;
    unsigned int depth = 0;  // guarded by mutex

    ~State()
    {
        if (descriptor < 0) return;
        if (flock(descriptor, LOCK_EX | LOCK_NB) == 0 && is_current_file(descriptor, path)) unlink(path.c_str());
        close(descriptor);
    }

    void lock_file()
    {
        while (descriptor >= 0) {
            flock_forever(descriptor, LOCK_EX);
            if (is_current_file(descriptor, path)) return;
            const int fresh = open_lock_file(path);
            if (fresh < 0) return;  // the folder is gone: within the process the mutex still serves
            close(descriptor);
            descriptor = fresh;
        }
    }
};

Named_Lock::Named_Lock(std::string_view name)
{
    if (name.empty()) {
        state_ = std::make_shared<State>();
        return;
    }
    static std::mutex guard;
    static std::map<std::string, std::weak_ptr<State>> states;
    const std::string path = path_of(name);
    if (path.empty()) return;
    const std::lock_guard lock(guard);
    std::erase_if(states, [](const auto &entry) { return entry.second.expired(); });
    state_ = states[path].lock();
    if (state_) return;
    auto state = std::make_shared<State>();
    state->path = path;
    state->descriptor = open_lock_file(path);
    if (state->descriptor < 0) {
        posix::fail();
        return;
    }
    state_ = state;
    states[path] = state;
}

Named_Lock::~Named_Lock() = default;

void Named_Lock::lock()
{
    if (!state_) return;
    state_->mutex.lock();
    if (state_->depth++ == 0) state_->lock_file();
}

void Named_Lock::unlock()
{
    if (!state_) return;
    if (--state_->depth == 0 && state_->descriptor >= 0) flock_forever(state_->descriptor, LOCK_UN);
    state_->mutex.unlock();
}

}  // namespace platform
