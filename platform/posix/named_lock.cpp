#include "platform/named_lock.h"

#include "platform/posix/errno_table.h"
#include "platform/posix/runtime_folder.h"

#include <atomic>
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
#include <thread>
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

bool take_flock(int descriptor, int how)
{
    while (flock(descriptor, how) != 0)
        if (errno != EINTR) return false;
    return true;
}

}  // namespace

// One per name in this process: the mutex serialises its threads, the file's lock its process with the others.
struct Named_Lock::State {
    State(const std::string &lock_path, int lock_file) : path(lock_path), descriptor(lock_file) {}
    ~State()
    {
        if (descriptor < 0) return;
        if (take_flock(descriptor, LOCK_EX | LOCK_NB) && is_current_file(descriptor, path)) unlink(path.c_str());
        close(descriptor);
    }

    // With the mutex held. False: another process has the lock, and `how` says not to wait.
    bool lock_file(int how)
    {
        while (descriptor >= 0) {
            if (!take_flock(descriptor, how) && errno == EWOULDBLOCK) return false;
            if (is_current_file(descriptor, path)) return true;
            const int fresh = open_lock_file(path);
            if (fresh < 0) return true;  // the folder is gone: within the process the mutex still serves
            close(descriptor);
            descriptor = fresh;
        }
        return true;
    }
    void enter()
    {
        ++depth;
        owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }

    std::recursive_mutex mutex;
    const std::string path;  // empty for the nameless
    int descriptor;
    unsigned int depth = 0;  // guarded by mutex
    // Written with the mutex held. A thread finds its own id here only while it holds the lock.
    std::atomic<std::thread::id> owner{};
};

// The locks of this process, so that equal names meet. The guard is held over the map alone: what the system does for a
// lock may wait, or the thread be killed in it.
struct Named_Lock::Known {
    std::mutex guard;
    std::map<std::string, std::weak_ptr<State>> states;

    static Known &all()
    {
        static Known *const known = new Known;  // never destroyed: threads outlive the library's statics
        return *known;
    }
    std::shared_ptr<State> find(const std::string &path)
    {
        const std::lock_guard lock(guard);
        const auto found = states.find(path);
        return found == states.end() ? nullptr : found->second.lock();
    }
    // The one of that path: `fresh`, or another thread's that was quicker.
    std::shared_ptr<State> add(const std::shared_ptr<State> &fresh)
    {
        const std::lock_guard lock(guard);
        std::erase_if(states, [](const auto &entry) { return entry.second.expired(); });
        std::shared_ptr<State> known = states[fresh->path].lock();
        if (known) return known;
        states[fresh->path] = fresh;
        return fresh;
    }
};

Named_Lock::Named_Lock(std::string_view name)
{
    if (name.empty()) {
        state_ = std::make_shared<State>(std::string(), -1);
        return;
    }
    const std::string path = path_of(name);
    if (path.empty()) return;
    state_ = Known::all().find(path);
    if (state_) return;
    const int descriptor = open_lock_file(path);
    if (descriptor < 0) {
        posix::fail();
        return;
    }
    const auto fresh = std::make_shared<State>(path, descriptor);
    state_ = Known::all().add(fresh);
}

Named_Lock::~Named_Lock() = default;

void Named_Lock::lock()
{
    if (!state_) return;
    state_->mutex.lock();
    if (state_->depth == 0) state_->lock_file(LOCK_EX);
    state_->enter();
}

bool Named_Lock::try_lock()
{
    if (!state_) return true;
    if (!state_->mutex.try_lock()) return false;
    if (state_->depth == 0 && !state_->lock_file(LOCK_EX | LOCK_NB)) {
        state_->mutex.unlock();
        return false;
    }
    state_->enter();
    return true;
}

void Named_Lock::unlock()
{
    if (!state_ || state_->owner.load(std::memory_order_relaxed) != std::this_thread::get_id()) return;
    if (--state_->depth == 0) {
        state_->owner.store({}, std::memory_order_relaxed);
        if (state_->descriptor >= 0) take_flock(state_->descriptor, LOCK_UN);
    }
    state_->mutex.unlock();
}

}  // namespace platform
