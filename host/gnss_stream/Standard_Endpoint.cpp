#include "host/gnss_stream/Standard_Endpoint.h"

#include "kernel/bytes/String_Byte_Server.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <utility>

namespace host {

namespace {

using namespace std::chrono_literals;

const char unit[] = "host/Standard_Endpoint";
constexpr std::streamsize block_size = std::max(BUFSIZ, 4096);  // bytes; at least the size of std::cin's buffer
constexpr long ring_size = 2 * block_size;                      // bytes
constexpr auto end_limit = 50ms;                                // for the end of a thread that is not stuck

// Reads what is there without waiting for a whole block; returns 0 at the end, and throws on a failure. This is the
// only way with the standard library: sgetc fills the buffer with one call of the system, and in_avail then returns how
// many bytes came. All of them are taken.
std::streamsize Read_Some(std::array<char, block_size> &block)
{
    std::streambuf &in = *std::cin.rdbuf();
    if (in.sgetc() == std::char_traits<char>::eof()) return 0;
    return in.sgetn(block.data(), std::clamp<std::streamsize>(in.in_avail(), 1, block_size));
}

}  // namespace

// Shared with the thread, which may be left behind in a read.
struct Standard_Input::State {
    explicit State(Console &c) : console(c) {}
    ~State() { kernel::String_Byte_Server::Destruct(server); }

    Console &console;
    kernel::String_Byte_Server *const server = kernel::String_Byte_Server::Construct(ring_size, nullptr);
    std::atomic<bool> ended{false};

    std::mutex lock;
    std::condition_variable changed;
    bool stop = false, delivering = false, abandoned = false;  // guarded by the lock

    // False: the block must not be delivered any more.
    bool Begin_Delivery()
    {
        const std::lock_guard held(lock);
        delivering = !abandoned;
        changed.notify_all();
        return delivering;
    }
    // False: this was the last block.
    bool End_Delivery()
    {
        const std::lock_guard held(lock);
        delivering = false;
        changed.notify_all();
        return !abandoned && !stop;
    }
};

Standard_Input::Standard_Input(Console &console) : state_(std::make_shared<State>(console)) {}

bool Standard_Input::Connect(kernel::Byte_Client &client) { return state_->server && state_->server->Connect(&client); }

void Standard_Input::Start()
{
    std::ios::sync_with_stdio(false);  // gives std::cin a buffer of its own
    thread_.Start([state = state_] {
        try {
            Run(*state);
        } catch (const std::ios_base::failure &) {
            state->console.Set(unit, __LINE__)
                ->Print_Out(kernel::Error_Handler::ES_Error, "Could not read standard input.");
        }
        state->ended = true;
    });
}

void Standard_Input::Run(State &state)
{
    std::array<char, block_size> block;
    for (std::streamsize n; (n = Read_Some(block)) > 0 && state.Begin_Delivery();) {
        state.server->PutBin(reinterpret_cast<const unsigned char *>(block.data()), static_cast<unsigned int>(n));
        state.server->Work();
        state.server->Clear();
        if (!state.End_Delivery()) return;
    }
}

bool Standard_Input::Ended() const { return state_->ended; }

// Lets a block that was there to be read be delivered. A block that a read brings later is dropped.
void Standard_Input::Stop()
{
    std::unique_lock held(state_->lock);
    if (std::exchange(state_->stop, true)) return;
    state_->changed.wait_for(held, end_limit, [&] { return state_->delivering || state_->ended; });
    state_->changed.wait(held, [&] { return !state_->delivering; });
    state_->abandoned = true;
}

Stream_Status Standard_Input::Status() const { return {Ended() ? "ended" : "reading", ""}; }

bool Standard_Input::Close() { return thread_.Join(end_limit); }

// Shared with the thread, which may be left behind in a write or in the opening of a pipe.
struct Standard_Output::Target {
    ~Target()
    {
        if (file && file != stdout) std::fclose(file);
    }
    bool Open_Pipe()
    {
        file = std::fopen(name.c_str(), "ab");
        if (!file) Say(kernel::Error_Handler::ES_Error, __LINE__, "cannot be opened.");
        return file;
    }
    bool Write(std::span<const unsigned char> block)
    {
        if (std::fwrite(block.data(), 1, block.size(), file) == block.size() && std::fflush(file) == 0) return true;
        Say(kernel::Error_Handler::ES_Error, __LINE__,
            "cannot be written to: its reader has gone, or the disk is full.");
        return false;
    }
    void Say(kernel::Error_Handler::Enum_Status level, unsigned int line, const char *what)
    {
        console.Set(unit, line)->Print_Out(level, "%s %s", name.c_str(), what);
    }

    const std::string name;
    std::FILE *file;  // of the writing thread; null: a pipe that is not open yet
    Console &console;
};

Standard_Output::Standard_Output(std::shared_ptr<Target> target, std::size_t queue_size, Queued_Writer::Open open)
    : target_(std::move(target)),
      writer_(
          queue_size, [to = target_](auto block) { return to->Write(block); }, std::move(open))
{
}

std::unique_ptr<Standard_Output> Standard_Output::Make(std::size_t queue_size, Console &console)
{
    const std::shared_ptr<Target> target(new Target{"Standard output", stdout, console});
    return std::unique_ptr<Standard_Output>(new Standard_Output(target, queue_size, {}));
}

std::unique_ptr<Standard_Output> Standard_Output::Make_Pipe(std::string name, std::size_t queue_size, Console &console)
{
    const std::shared_ptr<Target> target(new Target{std::move(name), nullptr, console});
    return std::unique_ptr<Standard_Output>(
        new Standard_Output(target, queue_size, [target] { return target->Open_Pipe(); }));
}

bool Standard_Output::Open()
{
    writer_.Start();
    return true;
}

void Standard_Output::Put(std::span<const unsigned char> block)
{
    if (Is_Up() && !writer_.Put(block))
        target_->Say(kernel::Error_Handler::ES_Warning, __LINE__,
                     "takes too little: what was waiting for it has been discarded.");
}

Stream_Status Standard_Output::Status() const
{
    return {Has_Failed() ? "failed" : Is_Up() ? "writing" : "waiting for a reader", ""};
}

bool Standard_Output::Close() { return writer_.Stop(end_limit); }

}  // namespace host
