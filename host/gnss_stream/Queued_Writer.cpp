#include "host/gnss_stream/Queued_Writer.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <utility>

namespace host {

struct Queued_Writer::State {
    State(std::size_t n, Write w, Open o) : size(n), write(std::move(w)), open(std::move(o)), is_open(!open) {}

    const std::size_t size;
    const Write write;
    const Open open;
    const std::unique_ptr<unsigned char[]> ring = std::make_unique<unsigned char[]>(size);

    std::mutex lock;
    std::condition_variable more;  // bytes, or the stop
    // All that follows is guarded by the lock. The `writing` bytes at the front are being written and must not change.
    std::size_t front = 0, stored = 0, writing = 0;
    std::uint64_t written = 0;
    bool is_open, failed = false, stop = false;

    // Calls open() without the lock, because it may never return.
    bool Opens()
    {
        const bool opened = open();
        const std::lock_guard held(lock);
        is_open = opened;
        if (!opened) Fail();
        return opened;
    }
    void Fail()
    {
        failed = true;
        stored = 0;
    }
    void Store(std::span<const unsigned char> block)
    {
        const std::size_t back = (front + stored) % size;
        const std::size_t head = std::min(block.size(), size - back);
        std::memcpy(&ring[back], block.data(), head);
        std::memcpy(&ring[0], block.data() + head, block.size() - head);
        stored += block.size();
    }
};

Queued_Writer::Queued_Writer(std::size_t size, Write write, Open open)
    : state_(std::make_shared<State>(size, std::move(write), std::move(open)))
{
}

// Does not wait: call Stop before to wait for the thread.
Queued_Writer::~Queued_Writer() { Stop(std::chrono::milliseconds(0)); }

void Queued_Writer::Start()
{
    // The thread shares the state: when it is left behind, it uses the state after the writer is destroyed.
    thread_.Start([state = state_] { Run(*state); });
}

void Queued_Writer::Run(State &state)
{
    if (state.open && !state.Opens()) return;
    for (std::unique_lock held(state.lock);;) {
        state.more.wait(held, [&] { return state.stop || state.stored > 0; });
        if (state.stop) return;
        // Up to the ring's end, so that a write needs no copy; the next one has the rest.
        state.writing = std::min({state.stored, state.size - state.front, block_size});
        const std::span<const unsigned char> block(&state.ring[state.front], state.writing);
        // Written without the lock, because a write may never return. The block does not change meanwhile: Put stores
        // behind it, and discarding leaves the `writing` bytes.
        held.unlock();
        const bool done = state.write(block);
        held.lock();
        state.front = (state.front + block.size()) % state.size;
        state.stored -= block.size();
        state.writing = 0;
        if (done) state.written += block.size();
        if (done) continue;
        state.Fail();
        return;
    }
}

bool Queued_Writer::Put(std::span<const unsigned char> block)
{
    const std::lock_guard held(state_->lock);
    // True although the block is lost: false means a lack of room. Has_Failed shows a failure.
    if (state_->failed || state_->stop) return true;
    const bool fits = state_->stored + block.size() <= state_->size;
    // All waiting bytes are discarded, so that the stream has one gap instead of one per block. Then there is room,
    // since at most one block is being written.
    if (!fits) state_->stored = state_->writing;
    state_->Store(block);
    state_->more.notify_one();
    return fits;
}

void Queued_Writer::Discard()
{
    const std::lock_guard held(state_->lock);
    state_->stored = state_->writing;
}

std::size_t Queued_Writer::Room() const
{
    const std::lock_guard held(state_->lock);
    return state_->size - state_->stored;
}

bool Queued_Writer::Is_Empty() const
{
    const std::lock_guard held(state_->lock);
    // `stored` includes the block that is being written.
    return state_->stored == 0;
}

bool Queued_Writer::Is_Open() const
{
    const std::lock_guard held(state_->lock);
    return state_->is_open;
}

bool Queued_Writer::Has_Failed() const
{
    const std::lock_guard held(state_->lock);
    return state_->failed;
}

std::uint64_t Queued_Writer::Written() const
{
    const std::lock_guard held(state_->lock);
    return state_->written;
}

bool Queued_Writer::Stop(std::chrono::milliseconds limit)
{
    {
        const std::lock_guard held(state_->lock);
        state_->stop = true;
    }
    state_->more.notify_one();
    return thread_.Join(limit);
}

}  // namespace host
