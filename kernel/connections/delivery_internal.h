// The client of a byte server, and which threads are inside it.
#pragma once

#include "platform/thread_number.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace kernel {

class Byte_Client;

// A message is sent from inside a Visit. Whoever takes the client away replaces it here and then waits, with no lock
// held, until the other threads have left it. From then on the old client hears nothing more, and may be destroyed.
//
// Visits do not exclude each other: two servers whose clients send to each other must not wait for each other.
//
// Threads:   any. The lock is a leaf: under it stands nothing but a look at the list of killed threads.
// Ownership: nothing; the clients are the server's.
// Errors:    none reported.
class Deliveries {
public:
    Deliveries() { entries_.reserve(expected_entries); }

    Byte_Client *Client() const { return client_.load(std::memory_order_acquire); }
    Byte_Client *Exchange(Byte_Client *client);  // the one before
    // False when `old` is not the client (any more); nothing has changed then.
    bool Replace(Byte_Client *old, Byte_Client *client);
    // Waits until no other thread is inside `former`. The calling thread may be: a client takes itself away from inside
    // a message. For null, which is to say that there was nobody to take away, it waits for all who are inside a client
    // that is not the client any more, unless the calling thread is inside one as well: two of them would wait for each
    // other. A thread that was killed inside a client does not count.
    void Wait_For_Others(const Byte_Client *former);

    // The calling thread is inside the client, from construction to destruction.
    //
    // Threads:   made and destroyed on one thread.
    // Ownership: the Deliveries outlive the visit.
    // Errors:    without a client, or without memory for the entry, the visit is empty.
    class Visit {
    public:
        explicit Visit(Deliveries &deliveries) : Visit(deliveries, nullptr) {}
        // Only while `client` is the client; null is any.
        Visit(Deliveries &deliveries, const Byte_Client *client);
        ~Visit();
        Visit(const Visit &) = delete;
        Visit &operator=(const Visit &) = delete;
        explicit operator bool() const { return client_ != nullptr; }
        Byte_Client *Client() const { return client_; }
        Byte_Client *operator->() const { return client_; }

    private:
        Deliveries &deliveries_;
        Byte_Client *client_ = nullptr;
    };

private:
    struct Entry {
        platform::Thread_Number thread;
        const Byte_Client *client;
    };
    static constexpr std::size_t expected_entries = 16;  // a thread has one more for each message inside a message

    bool Is_Awaited(const Entry &entry, const Byte_Client *former, platform::Thread_Number self) const;

    std::mutex lock_;
    std::condition_variable left_;
    int waiting_ = 0;
    // Not on the stacks of the visitors: that of a killed thread may be gone.
    std::vector<Entry> entries_;
    std::atomic<Byte_Client *> client_{nullptr};  // written with the lock held
};

}  // namespace kernel
