#include "platform/named_lock.h"

#include "platform/posix/errno_table.h"
#include "platform/posix/lock_file.h"

#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace platform {

using posix::is_current_file;
using posix::open_lock_file;
using posix::take_flock;

// One per name in this process. The mutex excludes the other threads, the lock on the file the other processes.
struct Named_Lock::State {
    State(const std::string &lock_path, int lock_file) : path(lock_path), descriptor(lock_file) {}
    ~State()
    {
        if (descriptor < 0) return;
        if (take_flock(descriptor, LOCK_EX | LOCK_NB) && is_current_file(descriptor, path)) unlink(path.c_str());
        close(descriptor);
    }

    // Call with the mutex held. False when another process has the lock and `how` does not wait.
    bool lock_file(int how)
    {
        while (descriptor >= 0) {
            if (!take_flock(descriptor, how) && errno == EWOULDBLOCK) return false;
            if (is_current_file(descriptor, path)) return true;
            const int fresh = open_lock_file(path);
            if (fresh < 0) return true;  // the folder is gone; the mutex still works within the process
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
    const std::string path;  // empty for a lock without a name
    int descriptor;
    unsigned int depth = 0;  // guarded by mutex
    // Written with the mutex held. It contains a thread's own id only while that thread holds the lock.
    std::atomic<std::thread::id> owner{};
};

// The locks of this process by path, so that equal names share a State. The guard is held only to use the map: system
// calls for a lock may block, and the thread may be killed in one.
struct Named_Lock::Known {
    std::mutex guard;
    std::map<std::string, std::weak_ptr<State>> states;

    static Known &all()
    {
        static Known *const known = new Known;  // never destroyed: threads may outlive the statics
        return *known;
    }
    std::shared_ptr<State> find(const std::string &path)
    {
        const std::lock_guard lock(guard);
        const auto found = states.find(path);
        return found == states.end() ? nullptr : found->second.lock();
    }
    // Returns the State of that path: `fresh`, or the one that another thread has added meanwhile.
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
    const std::string path = posix::runtime_file("lock", name);
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
