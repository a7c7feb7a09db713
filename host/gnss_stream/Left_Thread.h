// A thread that is left behind when it is stuck in a call of the system, such as a read of standard input.
#pragma once

#include <chrono>
#include <future>
#include <thread>
#include <utility>

namespace host {

// Threads:   one thread calls all operations.
// Ownership: the body must share the ownership of all that it uses, because a thread that was left behind uses it until
//            the process ends.
// Errors:    std::system_error when no thread can be had.
class Left_Thread {
public:
    Left_Thread() = default;
    Left_Thread(const Left_Thread &) = delete;
    Left_Thread &operator=(const Left_Thread &) = delete;
    ~Left_Thread() { Join(std::chrono::milliseconds(0)); }

    template <class Body>
    void Start(Body body)
    {
        std::packaged_task<void()> task(std::move(body));
        ended_ = task.get_future();
        thread_ = std::thread(std::move(task));
    }
    bool Has_Ended() const
    {
        return !ended_.valid() || ended_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }
    // False: the thread did not end within this time and is left behind.
    bool Join(std::chrono::milliseconds limit)
    {
        if (!thread_.joinable()) return Has_Ended();
        const bool ends = ended_.wait_for(limit) == std::future_status::ready;
        ends ? thread_.join() : thread_.detach();
        return ends;
    }

private:
    std::thread thread_;
    std::future<void> ended_;
};

}  // namespace host
