#include "platform/socket.h"

#include "platform/error.h"
#include "platform/fault.h"
#include "platform/thread.h"

#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace platform {

namespace {

// One look-up, shared by the thread that does it and all threads that wait for it.
struct Look_Up {
    std::string name;
    Event done;               // auto-reset: each waiter sets it again for the next one
    std::uint32_t error = 0;  // both published by `done`
    std::uint32_t host = 0;
};

// The look-ups in progress. Never destroyed: a thread that hangs in the system may return while the process ends.
struct Look_Ups {
    std::mutex lock;
    std::map<std::string, std::shared_ptr<Look_Up>> by_name;
};

Look_Ups &look_ups()
{
    static Look_Ups *const under_way = new Look_Ups;
    return *under_way;
}

// Removes the look-up from the map before signalling `done`: a later caller asks the system again.
unsigned long look_up_on_thread(void *context)
{
    const std::shared_ptr<Look_Up> own = std::move(*static_cast<std::shared_ptr<Look_Up> *>(context));
    delete static_cast<std::shared_ptr<Look_Up> *>(context);
    if (!fault::planned_name(own->name.c_str(), own->error, own->host))
        own->error = look_up(own->name.c_str(), own->host);
    {
        const std::lock_guard guard(look_ups().lock);
        look_ups().by_name.erase(own->name);
    }
    own->done.set();
    return 0;
}

// Returns the look-up in progress for this name, or starts one. Null, with last_error(), when the system has no thread
// left.
std::shared_ptr<Look_Up> join_look_up(const char *name)
{
    const std::lock_guard guard(look_ups().lock);
    std::shared_ptr<Look_Up> &entry = look_ups().by_name[name];
    if (entry) return entry;
    entry = std::make_shared<Look_Up>();
    entry->name = name;
    auto *const share = new std::shared_ptr<Look_Up>(entry);
    if (Thread::start(look_up_on_thread, share, false, 0)) return entry;
    const std::uint32_t error = last_error();
    delete share;
    look_ups().by_name.erase(name);
    set_last_error(error);
    return nullptr;
}

// Reads one number of a dotted address, in the notation of C. False when there is none or it is larger than `most`. The
// loop stops at the first value of more than 32 bits, so that nothing overflows.
bool parse_part(const char *&text, std::uint64_t most, std::uint32_t &part)
{
    const bool octal = text[0] == '0';
    const bool hex = octal && (text[1] == 'x' || text[1] == 'X');
    const unsigned base = hex ? 16 : octal ? 8 : 10;
    if (hex) text += 2;
    std::uint64_t value = 0;
    const char *const begin = text;
    for (;; ++text) {
        unsigned digit = base;
        if (*text >= '0' && *text <= '9') digit = static_cast<unsigned>(*text - '0');
        if (*text >= 'a' && *text <= 'f') digit = static_cast<unsigned>(*text - 'a' + 10);
        if (*text >= 'A' && *text <= 'F') digit = static_cast<unsigned>(*text - 'A' + 10);
        if (digit >= base) break;
        value = value * base + digit;
        if (value > std::numeric_limits<std::uint32_t>::max()) return false;
    }
    part = static_cast<std::uint32_t>(value);
    return text != begin && value <= most;
}

}  // namespace

std::string dotted(std::uint32_t host)
{
    return std::to_string(host >> 24) + '.' + std::to_string(host >> 16 & 0xFF) + '.' +
           std::to_string(host >> 8 & 0xFF) + '.' + std::to_string(host & 0xFF);
}

// Up to three parts of one byte each, and a last part for the remaining bytes.
bool parse_dotted(const char *text, std::uint32_t &host)
{
    std::uint32_t left = 0;
    for (unsigned free_bits = 32;; free_bits -= 8) {
        std::uint32_t part = 0;
        if (!parse_part(text, (std::uint64_t{1} << free_bits) - 1, part)) return false;
        if (*text == '.' && free_bits > 8 && part <= 0xFF) {
            left |= part << (free_bits - 8);
            ++text;
            continue;
        }
        if (*text != '\0' && *text != ' ') return false;
        host = left | part;
        return true;
    }
}

// Look-ups of one name share a thread. A station that reconnects for years while its name server hangs has one hanging
// thread per name, not one per try.
bool resolve(const char *name, std::uint32_t &host, Event &stop)
{
    if (name && parse_dotted(name, host)) return true;
    if (!name || *name == '\0') {  // some systems resolve the empty name to themselves
        set_last_error(error_host_not_found);
        return false;
    }
    const std::shared_ptr<Look_Up> asked = join_look_up(name);
    if (!asked) return false;
    Waitable *const both[] = {&stop, &asked->done};
    const int first = wait_any(both, wait_forever);
    if (first == 1) asked->done.set();
    if (first == 1 && asked->error == 0) {
        host = asked->host;
        return true;
    }
    set_last_error(first == 1 ? asked->error : first == 0 ? error_operation_aborted : error_too_many_open);
    return false;
}

// Somebody owns the number at each moment, also when memory runs out on the way.
std::shared_ptr<Socket> Socket::own(std::uintptr_t native)
{
    std::unique_ptr<Socket> made;
    try {
        made.reset(new Socket(native));
    } catch (const std::bad_alloc &) {
        close_number(native);
        throw;
    }
    return made;
}

std::shared_ptr<Socket> Socket::accept_now(Address &peer)
{
    const std::uintptr_t accepted = take_peer(peer);
    return accepted == nobody ? nullptr : adopt(accepted);
}

// False when `stop` was signalled first, or when the system cannot wait.
bool Socket::wait_ready(Event &stop)
{
    Waitable *const both[] = {&stop, &readiness()};
    const int first = wait_any(both, wait_forever);
    if (first == 0) set_last_error(error_operation_aborted);
    return first == 1;
}

bool Socket::connect(const Address &address, Event &stop)
{
    while (!connect_now(address)) {
        if (last_error() != error_io_pending || !wait_ready(stop)) return false;
    }
    return true;
}

std::shared_ptr<Socket> Socket::accept(Address &peer, Event &stop)
{
    for (;;) {
        if (auto accepted = accept_now(peer)) return accepted;
        if (last_error() != error_io_pending || !wait_ready(stop)) return nullptr;
    }
}

std::uintptr_t Socket::release() { return static_cast<std::uintptr_t>(give_away()); }

}  // namespace platform
