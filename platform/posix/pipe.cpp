// A server holds two files in the runtime folder: pipe-HASH, with a lock that says that the server lives and with the
// state of the pipe, which server and clients map; and pipe-HASH.socket, a datagram socket. A client makes a pair of
// connected sockets and sends one of them there. So it is in at once, whether or not the server runs at the moment.
#include "platform/pipe.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/posix/errno_table.h"
#include "platform/posix/lock_file.h"
#include "platform/posix/stream_internal.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

// The state of a pipe: the phase, and above it the number of disconnects, by which a connection sees that it is over.
using Word = std::uint64_t;
constexpr Word disconnected = 0, listening = 1, taken = 2, phase_bits = 3, one_disconnect = 4;
static_assert(std::atomic<Word>::is_always_lock_free);

Word phase_of(Word word) { return word & phase_bits; }
Word with_phase(Word word, Word phase) { return (word & ~phase_bits) | phase; }

// Bytes of the state file that are locked.
constexpr off_t server_byte = 0;  // by the server, for its life
constexpr off_t client_byte = 1;  // by a client while it opens the pipe

constexpr int most_tries = 100;  // against servers that start and end meanwhile
constexpr unsigned long look_again_ms = 10;

bool fail_with(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor()
    {
        if (number_ >= 0) close(number_);
    }
    int get() const { return number_; }
    int release() { return std::exchange(number_, -1); }
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_;
};

// A lock that belongs to the open file, not to the process, so that it also works between the threads of one process. A
// mapping keeps the file open: unlock before the descriptor is closed.
struct flock lock_on(off_t byte, short type = F_WRLCK)
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

bool try_lock(const Descriptor &file, off_t byte)
{
    struct flock lock = lock_on(byte);
    return fcntl(file.get(), F_OFD_SETLK, &lock) == 0;
}

void unlock(const Descriptor &file, off_t byte)
{
    struct flock lock = lock_on(byte, F_UNLCK);
    fcntl(file.get(), F_OFD_SETLK, &lock);
}

bool is_locked(const Descriptor &file, off_t byte)
{
    struct flock lock = lock_on(byte);
    return fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// The mapped state file.
class Shared_Word {
public:
    explicit Shared_Word(const Descriptor &file)
        : memory_(mmap(nullptr, sizeof(Word), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0))
    {
    }
    Shared_Word(const Shared_Word &) = delete;
    Shared_Word &operator=(const Shared_Word &) = delete;
    ~Shared_Word()
    {
        if (*this) munmap(memory_, sizeof(Word));
    }
    explicit operator bool() const { return memory_ != MAP_FAILED; }
    std::atomic<Word> &operator*() const { return *static_cast<std::atomic<Word> *>(memory_); }

private:
    void *const memory_;
};

// One end of a connection.
class Connection : public Stream {
public:
    Connection(Descriptor socket, std::shared_ptr<const Shared_Word> state, Word word)
        : Stream(socket.release(), false), state_(std::move(state)), word_(word)
    {
        closing_->listening = true;  // close() shuts both directions: the other end cannot write any more
    }

    // The server has disconnected: no transfer moves anything any more.
    void cut() { ::shutdown(static_cast<int>(native_), SHUT_RDWR); }

private:
    // A disconnect also takes back what was under way, which a socket would still deliver.
    std::uint32_t judge(bool is_read, std::uint32_t error, std::size_t &moved) const override
    {
        const bool is_over = (**state_).load(std::memory_order_acquire) / one_disconnect != word_ / one_disconnect;
        if (is_over) moved = 0;
        if (is_over) return error_pipe_not_connected;
        const bool has_gone = error == error_broken_pipe || error == posix::from_errno(ECONNRESET);
        if (!has_gone) return error;
        return is_read ? std::uint32_t{error_none} : std::uint32_t{error_pipe_closing};
    }

    const std::shared_ptr<const Shared_Word> state_;
    const Word word_;
};

// The path of a socket, also when it is longer than an address has room for.
class Socket_Path {
public:
    explicit Socket_Path(const std::string &path)
    {
        address_.sun_family = AF_UNIX;
        std::string name = path;
        if (name.size() >= sizeof address_.sun_path) {
            const std::size_t slash = path.rfind('/');
            folder_ = Descriptor(open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            name = "/proc/self/fd/" + std::to_string(folder_.get()) + path.substr(slash);
        }
        std::memcpy(address_.sun_path, name.c_str(), name.size() + 1);
    }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address_); }
    static constexpr socklen_t size = sizeof(sockaddr_un);

private:
    sockaddr_un address_{};
    Descriptor folder_;
};

// A message that takes or brings a socket along with the state at which it was sent.
class Parcel {
public:
    Parcel()
    {
        header_.msg_iov = &part_;
        header_.msg_iovlen = 1;
        header_.msg_control = control_;
        header_.msg_controllen = sizeof control_;
    }

    bool send(const std::string &to, Word word, const Descriptor &socket)
    {
        const Descriptor through(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const Socket_Path path(to);
        header_.msg_name = const_cast<sockaddr *>(path.get());
        header_.msg_namelen = Socket_Path::size;
        word_ = word;
        cmsghdr *const control = CMSG_FIRSTHDR(&header_);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(sizeof(int));
        const int number = socket.get();
        std::memcpy(CMSG_DATA(control), &number, sizeof number);
        return sendmsg(through.get(), &header_, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || failed_to_send();
    }

    // False when there is none. The socket is missing when this process has no descriptor left.
    bool receive(int from, Word &word, Descriptor &socket)
    {
        ssize_t got = 0;
        do {
            got = recvmsg(from, &header_, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        } while (got < 0 && errno == EINTR);
        if (got < 0) return false;
        word = got == sizeof word_ ? word_ : ~Word{0};
        const cmsghdr *const control = CMSG_FIRSTHDR(&header_);
        int number = -1;
        if (control && control->cmsg_type == SCM_RIGHTS) std::memcpy(&number, CMSG_DATA(control), sizeof number);
        socket = Descriptor(number);
        return true;
    }

private:
    static bool failed_to_send()
    {
        const bool has_gone = errno == ENOENT || errno == ECONNREFUSED || errno == EPIPE;
        if (has_gone) return fail_with(error_not_found);
        return errno == EAGAIN ? fail_with(error_pipe_busy) : posix::fail();
    }

    Word word_ = 0;
    alignas(cmsghdr) char control_[CMSG_SPACE(sizeof(int))] = {};
    iovec part_{&word_, sizeof word_};
    msghdr header_{};
};

std::string file_of(std::string_view name)
{
    std::string plain;
    if (!plain_pipe_name(name, plain)) return {};
    for (char &c : plain) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    }
    return posix::runtime_file("pipe", plain);
}

std::string socket_of(const std::string &file) { return file + ".socket"; }

bool has_type(const std::string &path, mode_t type)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == type;
}

// The state file of a new server, locked and empty. A file that nobody has locked is the leftover of a dead server. A
// new file takes its place, so that the former server's clients are not told about the new one's disconnects.
Descriptor make_file(const std::string &path)
{
    for (int i = 0; i < most_tries; ++i) {
        Descriptor fresh(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (fresh) {
            if (try_lock(fresh, server_byte) && posix::is_current_file(fresh.get(), path)) return fresh;
            continue;
        }
        if (errno != EEXIST) {
            posix::fail();
            return Descriptor();
        }
        if (!has_type(path, S_IFREG)) {
            if (errno == ENOENT) continue;
            set_last_error(error_access_denied);
            return Descriptor();
        }
        const Descriptor leftover(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        if (!leftover) continue;
        if (!try_lock(leftover, server_byte)) break;
        if (posix::is_current_file(leftover.get(), path)) unlink(path.c_str());
    }
    set_last_error(error_pipe_busy);
    return Descriptor();
}

// The socket of the server; call with the lock. A leftover is removed only if it is a socket.
Descriptor make_socket(const std::string &path)
{
    Descriptor made(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (has_type(path, S_IFSOCK)) unlink(path.c_str());
    if (made && bind(made.get(), Socket_Path(path).get(), Socket_Path::size) == 0) return made;
    if (errno == EADDRINUSE) errno = EACCES;  // something else has that name
    posix::fail();
    return Descriptor();
}

// A living server, as a client sees it.
struct Found {
    Descriptor file;
    std::shared_ptr<const Shared_Word> state;

    Found() = default;
    Found(const Found &) = delete;
    Found &operator=(const Found &) = delete;
    ~Found()
    {
        if (file) unlock(file, client_byte);
    }
};

bool find(const std::string &path, Found &found)
{
    struct stat status {};
    found.file = Descriptor(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!found.file) return posix::fail();
    const bool lives = is_locked(found.file, server_byte) && fstat(found.file.get(), &status) == 0 &&
                       status.st_size >= static_cast<off_t>(sizeof(Word));
    if (!lives) return fail_with(error_not_found);
    found.state = std::make_shared<const Shared_Word>(found.file);
    return *found.state || posix::fail();
}

bool is_listening(const Found &server)
{
    return phase_of((**server.state).load(std::memory_order_acquire)) == listening;
}

// The lock makes this one client at a time. It ends with the process, so that a client that is killed here does no
// harm.
std::shared_ptr<Stream> open_at(const std::string &path)
{
    Found server;
    if (!find(path, server)) return nullptr;
    Word word = try_lock(server.file, client_byte) ? (**server.state).load(std::memory_order_acquire) : taken;
    int pair[2];
    if (phase_of(word) != listening) return fail_with(error_pipe_busy), nullptr;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair) != 0) return posix::fail(), nullptr;
    Descriptor own(pair[0]), other(pair[1]);
    if (!Parcel().send(socket_of(path), word, other)) return nullptr;
    const Word now = with_phase(word, taken);
    // Fails when the server has seen the client already, or has closed the pipe meanwhile; the stream tells that.
    (**server.state).compare_exchange_strong(word, now, std::memory_order_acq_rel);
    return std::make_shared<Connection>(std::move(own), server.state, now);
}

}  // namespace

// Threads:   `lock` guards the file's names and the connection; a client changes the word once, from listening to
//            taken.
// Ownership: the files, until close().
// Errors:    none.
struct Server_Pipe::State {
    State(Descriptor locked, std::string state_path)
        : path(std::move(state_path)), file(std::move(locked)), word(std::make_shared<const Shared_Word>(file)),
          parcels(make_socket(socket_of(path)))
    {
    }
    ~State() { remove(); }

    // The lock goes last: until then no other server takes the files for leftovers.
    void remove()
    {
        if (!file) return;
        if (posix::is_current_file(file.get(), path)) {
            if (has_type(socket_of(path), S_IFSOCK)) unlink(socket_of(path).c_str());
            unlink(path.c_str());
        }
        unlock(file, server_byte);
        file = Descriptor();
    }
    std::atomic<Word> &now() const { return **word; }

    const std::string path;
    std::mutex lock;
    Descriptor file;  // none after remove()
    const std::shared_ptr<const Shared_Word> word;
    const Descriptor parcels;  // the socket that clients send to
    std::weak_ptr<Connection> connection;
    std::unique_ptr<Waitable> arrival;
};

std::shared_ptr<Server_Pipe> Server_Pipe::create(std::string_view name)
{
    try {
        const std::string path = file_of(name);
        if (path.empty()) return nullptr;
        Descriptor file = make_file(path);
        if (!file) return nullptr;
        if (ftruncate(file.get(), sizeof(Word)) != 0) return posix::fail(), nullptr;
        auto state = std::make_unique<State>(std::move(file), path);
        if (!*state->word) return posix::fail(), nullptr;
        if (!state->parcels) return nullptr;
        Descriptor unconnected(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!unconnected) return posix::fail(), nullptr;
        const std::shared_ptr<Server_Pipe> pipe(new Server_Pipe(unconnected.get(), std::move(state)));
        unconnected.release();
        pipe->state_->now().store(listening, std::memory_order_release);
        return pipe;
    } catch (const std::bad_alloc &) {
        set_last_error(error_no_memory);
        return nullptr;
    }
}

Server_Pipe::Server_Pipe(std::intptr_t native, std::unique_ptr<State> state)
    : Stream(native, false), state_(std::move(state))
{
    state_->arrival = std::make_unique<posix::Ready>(state_->parcels.get(), POLLIN, closing_->waiters);
}

Server_Pipe::~Server_Pipe() { close(); }

void Server_Pipe::close()
{
    const std::lock_guard guard(state_->lock);
    state_->remove();
    Stream::close();
}

bool Server_Pipe::disconnect()
{
    const std::lock_guard guard(state_->lock);
    const Word word = state_->now().load(std::memory_order_acquire);
    if (closed()) return fail_with(error_invalid_handle);
    if (phase_of(word) == listening) return fail_with(error_pipe_listening);
    if (phase_of(word) == disconnected) return fail_with(error_pipe_not_connected);
    state_->now().store(with_phase(word + one_disconnect, disconnected), std::memory_order_release);
    if (const auto connection = state_->connection.lock()) connection->cut();
    Descriptor waiting;  // a client that has come and was not taken
    for (Word sent; Parcel().receive(state_->parcels.get(), sent, waiting);) waiting = Descriptor();
    return true;
}

bool Server_Pipe::listen()
{
    const std::lock_guard guard(state_->lock);
    const Word word = state_->now().load(std::memory_order_acquire);
    if (closed()) return fail_with(error_invalid_handle);
    if (phase_of(word) == disconnected) state_->now().store(with_phase(word, listening), std::memory_order_release);
    return true;
}

Waitable &Server_Pipe::arrival() const { return *state_->arrival; }

// A parcel of an earlier state comes from a client that was slow; it finds itself disconnected. A client whose socket
// was lost on the way finds the end.
std::shared_ptr<Stream> Server_Pipe::take()
try {
    const std::lock_guard guard(state_->lock);
    Word sent = 0;
    Descriptor socket;
    for (;;) {
        if (closed()) return fail_with(error_operation_aborted), nullptr;
        if (!Parcel().receive(state_->parcels.get(), sent, socket)) break;
        const Word word = state_->now().load(std::memory_order_acquire);
        if (sent != with_phase(word, listening)) continue;
        if (!socket) {
            state_->now().store(with_phase(word + one_disconnect, listening), std::memory_order_release);
            continue;
        }
        state_->now().store(with_phase(word, taken), std::memory_order_release);
        const auto connection = std::make_shared<Connection>(std::move(socket), state_->word, with_phase(word, taken));
        state_->connection = connection;
        return connection;
    }
    set_last_error(error_io_pending);
    return nullptr;
} catch (const std::bad_alloc &) {
    set_last_error(error_no_memory);
    return nullptr;
}

// The stream's own socket is never connected, so that each transfer fails at once.
std::uint32_t Server_Pipe::judge(bool, std::uint32_t, std::size_t &moved) const
{
    moved = 0;
    const bool listens = phase_of(state_->now().load(std::memory_order_acquire)) != disconnected;
    return listens ? error_pipe_listening : error_pipe_not_connected;
}

std::shared_ptr<Stream> open_pipe(std::string_view name)
{
    try {
        const std::string path = file_of(name);
        return path.empty() ? nullptr : open_at(path);
    } catch (const std::bad_alloc &) {
        set_last_error(error_no_memory);
        return nullptr;
    }
}

bool wait_for_pipe(std::string_view name, unsigned long ms)
try {
    const std::uint64_t end = clock_ms() + ms;
    const std::string path = file_of(name);
    for (Found server; !path.empty() && find(path, server); sleep_ms(look_again_ms)) {
        if (is_listening(server)) return true;
        if (clock_ms() >= end) return fail_with(error_wait_timeout);
    }
    return false;
} catch (const std::bad_alloc &) {
    return fail_with(error_no_memory);
}

}  // namespace platform
