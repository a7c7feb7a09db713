// The data of a stream on POSIX beside its descriptor, and waiting for a descriptor.
#pragma once

#include "platform/posix/wait_internal.h"
#include "platform/stream.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace platform {

namespace posix {

// The sources that the close of a stream wakes.
//
// Threads:   any. A section with this lock takes that of a source, and none else.
// Ownership: each member is its owner's, which leaves before the stream is released.
// Errors:    none.
class Closing_List {
public:
    // The membership of one source: while `list` is not null.
    class Member {
    public:
        explicit Member(Source &source) : source_(source) {}
        ~Member() { leave(); }
        Member(const Member &) = delete;
        Member &operator=(const Member &) = delete;
        void join(Closing_List &list);
        void leave();

    private:
        friend class Closing_List;
        Source &source_;
        Closing_List *list_ = nullptr;
        Member *next_ = nullptr;
        Member **link_ = nullptr;
    };

    void close();  // for good
    bool closed() const { return closed_.load(std::memory_order_acquire); }

private:
    std::mutex lock_;
    std::atomic<bool> closed_{false};
    Member *members_ = nullptr;
};

// Signalled while a descriptor is ready for `events` (POLLIN, POLLOUT), or once its stream is closed.
//
// Threads:   as Waitable.
// Ownership: the descriptor and the list outlive it.
// Errors:    none.
class Ready : public Waitable {
public:
    Ready(int descriptor, short events, Closing_List &closing);

private:
    // Threads, Ownership, Errors: as Source.
    struct Native : Descriptor_Source {
        Native(int descriptor, short events, Closing_List &closing);
        bool peek(Polled &polled) override { return closing.closed() || Descriptor_Source::peek(polled); }

        Closing_List &closing;
        Closing_List::Member member{*this};
    };
    bool take() override { return true; }

    Native source_;
};

}  // namespace posix

// Threads:   any; the flags are atomics. `readiness` is for the thread that connects or accepts.
// Ownership: owns its parts.
// Errors:    none.
struct Stream::Closing {
    explicit Closing(int descriptor);

    posix::Closing_List waiters;  // transfers under way, and others that wait for the stream
    const bool uses_send;         // a socket of any kind (Unix-domain included), moved by send and recv
    std::atomic<bool> listening{false};
    std::atomic<bool> shut_down{false};       // for sending, by this side
    std::atomic<bool> given_away{false};      // the descriptor belongs to somebody else
    std::unique_ptr<posix::Ready> readiness;  // of a socket, made on first use
};

}  // namespace platform
