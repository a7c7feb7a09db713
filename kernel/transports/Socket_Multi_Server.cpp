#include "kernel/transports/Socket_Multi_Server.h"

#include "kernel/transports/multicast_ring_internal.h"
#include "kernel/transports/socket_address_internal.h"
#include "kernel/transports/socket_errors_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/socket.h"
#include "platform/wait.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <utility>

namespace kernel {

namespace {

const char unit[] = "kernel/Socket_Multi_Server";

constexpr Err_Code socket_code = 89, transfer_code = 91;
constexpr unsigned int writer_buffer = 8192;  // [bytes]
constexpr long discard_block = 512;           // [bytes] of what a client sends
constexpr long insert_block = 4096;           // [bytes]
constexpr int backlog = 1;
constexpr unsigned long half_pass_ms = 100;
constexpr unsigned long retry_ms = 250;
constexpr std::uint64_t report_ms = 60'000;  // between two reports of the same failure

// Why an accept has failed. The texts are part of the interface.
constexpr struct {
    std::uint32_t error;
    const char *text;
} accept_reasons[] = {
    {10004, "A blocking Windows Sockets 1.1 call was canceled through WSACancelBlockingCall."},
    {10013, "The connection request that was offered has timed out or been withdrawn."},
    {10014, "The addrlen parameter is too small or the addr or lpfnCondition are not part of the user address space."},
    {10022, "listen was not invoked prior to WSAAccept, the return value of the condition function is not a valid one, "
            "or any case where the specified socket is in an invalid state."},
    {10024, "The queue is nonempty upon entry to WSAAccept and there are no socket descriptors available."},
    {10035, "The socket is marked as nonblocking and no connections are present to be accepted."},
    {10036, "A blocking Windows Sockets 1.1 call is in progress."},
    {10038, "The descriptor is not a socket."},
    {10045, "The referenced socket is not a type that supports connection-oriented service."},
    {10050, "The network subsystem has failed."},
    {10055, "No buffer space is available."},
    {10061, "The connection request was forcefully rejected as indicated in the return value of the condition function "
            "(CF_REJECT)."},
    {10093, "A successful WSAStartup call must occur before using this function."},
    {11002, "The acceptance of the connection request was deferred as indicated in the return value of the condition "
            "function (CF_DEFER)."},
};

const char *Accept_Reason(std::uint32_t error)
{
    const auto row = std::find_if(std::begin(accept_reasons), std::end(accept_reasons),
                                  [=](const auto &candidate) { return candidate.error == error; });
    return row != std::end(accept_reasons) ? row->text : "";
}

Multicast_Ring::Mode Mode_Of(bool drop_when_read)
{
    return drop_when_read ? Multicast_Ring::Mode::by_mark : Multicast_Ring::Mode::by_tail;
}

}  // namespace

// The socket of one client.
//
// Threads:   as Socket_Client_Server.
// Ownership: belongs to its SockConnection, not to the identifier above it.
// Errors:    as Socket_Client_Server.
class Socket_Multi_Server::Line : public Socket_Client_Server {
public:
    Line(Error_Handler &handler, Socket_Multi_Server &owner)
        : Object(Socket_Client_Server::Name, &handler), Socket_Client_Server(handler, writer_buffer), owner_(owner)
    {
        Dont_Delete_Me();
    }
    ~Line() override { Stop_Threads(); }

    // Bytes that it cannot take now stay in the ring: with a full buffer the writer would discard what it has, and
    // before the reader has begun it would drop what it gets.
    bool Send(Byte_Server &server, CL_Mesg message) override
    {
        if (message == Mesg_Data_Ready && (!is_connected() || Room() == 0)) return false;
        return Socket_Client_Server::Send(server, message);
    }

    // Does not wait. Also takes effect when the thread has not begun yet: it sets begun_ and then reads the other flag,
    // here it is the other way round.
    void Ask_To_End()
    {
        is_to_end_ = true;
        if (!has_begun_) return;
        pre_stop();
        stop_event_->set();  // the writer's
    }

private:
    unsigned long thread() override
    {
        has_begun_ = true;
        const unsigned long result = is_to_end_ ? 1 : Socket_Client_Server::thread();
        owner_.MarkThreadDead(this);
        return result;
    }

    Socket_Multi_Server &owner_;
    std::atomic<bool> is_to_end_{false}, has_begun_{false};
};

struct Socket_Multi_Server::SockConnection {
    explicit SockConnection(const sockaddr_in &address) : peer(address) {}
    SockConnection(const SockConnection &) = delete;
    SockConnection &operator=(const SockConnection &) = delete;
    // The line ends its threads.
    virtual ~SockConnection()
    {
        Object::Destruct(identifier);
        Object::Destruct(line);
    }

    Multicast_Client_Identifier *identifier = nullptr;
    bool active = true;  // its thread has not ended
    Multicast_Ring::Position position = Multicast_Ring::caught_up;
    const sockaddr_in peer;
    Line *line = nullptr;
    std::uint64_t offset = 0;   // of the position in the whole stream, as far as losses are known
    std::uint64_t lost = 0;     // [bytes] not reported yet
    std::uint64_t told_at = 0;  // [ms] of clock_ms, when a loss was reported; 0: never
};

const char Socket_Multi_Server::Name[] = "Socket_Multi_Server";

Socket_Multi_Server::Socket_Multi_Server(Error_Handler *handler, bool drop_when_read, unsigned int ring_size)
    : Object(Name, handler), WinSock_Loader(handler, false), Remote_Control(Name),
      wake_(std::make_unique<platform::Event>()),
      ring_(std::make_unique<Multicast_Ring>(ring_size, Mode_Of(drop_when_read))), acceptor_(*this)
{
    acceptor_.Init(this, &Socket_Multi_Server::WaitForClientsThread);
}

Socket_Multi_Server::~Socket_Multi_Server() { Stop_Threads(); }

// All are asked before the first is waited for.
void Socket_Multi_Server::Stop_Threads()
{
    acceptor_.pre_stop();
    pre_stop();
    Close_Handle();
    acceptor_.stop();
    stop();
    held_ = {};
    dead_.clear();
    Connections last;
    {
        const Semaphore_Guard guard(lock_);
        last.swap(connections_);
    }
}

Socket_Multi_Server *Socket_Multi_Server::Construct(Error_Handler *const handler, bool drop_when_read,
                                                    unsigned int ring_size)
{
    return Constructed([&] { return new Socket_Multi_Server(handler, drop_when_read, ring_size); });
}

bool Socket_Multi_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Server::IsInheritedFrom(name) ||
           Byte_Client::IsInheritedFrom(name) || WinSock_Loader::IsInheritedFrom(name) ||
           Remote_Control::IsInheritedFrom(name);
}

bool Socket_Multi_Server::IsValid() const { return ring_->Is_Valid() && wake_->valid() && Client_Server::IsValid(); }

// The producer's side.

bool Socket_Multi_Server::Send(Byte_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Request_Invite: server.Request(1); return true;
    case Mesg_Data_Ready: {
        char block[insert_block];
        const long got = Bytes_Moved(server.GetNBytes(block, insert_block), insert_block);
        InsertData(block, static_cast<int>(got));
        return got > 0;
    }
    default: return Byte_Client::Send(server, message);
    }
}

void Socket_Multi_Server::InsertData(char *data, int n)
{
    if (!data || n <= 0) return;
    const Semaphore_Guard guard(lock_);
    bytes_in_ += static_cast<unsigned int>(n);
    const auto change = ring_->Insert(reinterpret_cast<const unsigned char *>(data), n);
    if (ring_->Get_Mode() == Multicast_Ring::Mode::by_mark) {
        for (const auto &connection : connections_)
            if (connection->active) connection->position = ring_->Adapted(change, connection->position);
    }
    synchronized_ = false;
}

int Socket_Multi_Server::AdaptReadPointer(bool wraps, int old_head, int new_head, int old_tail, int new_tail,
                                          int position) const
{
    const Semaphore_Guard guard(lock_);
    return ring_->Adapted({wraps, old_head, new_head, old_tail, new_tail}, position);
}

int Socket_Multi_Server::GetFromPointerToTail(int position, unsigned char *buffer, int n, int &got) const
{
    const Semaphore_Guard guard(lock_);
    long moved = 0;
    position = ring_->Read(position, buffer, n, moved);
    got = static_cast<int>(moved);
    return position;
}

bool Socket_Multi_Server::EndReached(int position, int tail) const { return ring_->Has_Ended(position, tail); }

std::uint64_t Socket_Multi_Server::GetBytesIn() const
{
    const Semaphore_Guard guard(lock_);
    return bytes_in_;
}

// The list of clients.

Socket_Multi_Server::Connections::const_iterator
Socket_Multi_Server::Place_Of(const Multicast_Client_Identifier *identifier) const
{
    return std::lower_bound(connections_.begin(), connections_.end(), identifier,
                            [](const auto &connection, const auto *sought) {
                                return std::less<const Multicast_Client_Identifier *>()(connection->identifier, sought);
                            });
}

SP<Socket_Multi_Server::SockConnection>
Socket_Multi_Server::GetConnection(Multicast_Client_Identifier *identifier) const
{
    const Semaphore_Guard guard(lock_);
    const auto place = Place_Of(identifier);
    return place != connections_.end() && (*place)->identifier == identifier ? *place : nullptr;
}

// For loops that hold the lock only between two clients. `last` may be off the list by now.
template <class Wanted>
SP<Socket_Multi_Server::SockConnection> Socket_Multi_Server::Next_After(const Multicast_Client_Identifier *last,
                                                                        Wanted wanted) const
{
    const Semaphore_Guard guard(lock_);
    auto place = Place_Of(last);
    if (place != connections_.end() && (*place)->identifier == last) ++place;
    place = std::find_if(place, connections_.end(), wanted);
    return place != connections_.end() ? *place : nullptr;
}

int Socket_Multi_Server::GetNumConnections() const
{
    const Semaphore_Guard guard(lock_);
    return static_cast<int>(
        std::count_if(connections_.begin(), connections_.end(), [](const auto &c) { return c->active; }));
}

long Socket_Multi_Server::GetNBytes(Multicast_Client_Identifier *identifier, unsigned char *buffer, long n)
{
    if (!buffer || n < 1) return 0;
    const Semaphore_Guard guard(lock_);
    const auto connection = GetConnection(identifier);
    if (!connection) return 0;
    Note_Loss(*connection);
    long got = 0;
    connection->position = ring_->Read(connection->position, buffer, n, got);
    connection->offset += static_cast<unsigned long>(got);
    synchronized_ = CheckIfAllClientsAreSynchronized();
    return got;
}

// From the back: a pass serves the front first, so that the first look mostly has the answer.
bool Socket_Multi_Server::CheckIfAllClientsAreSynchronized() const
{
    const Semaphore_Guard guard(lock_);
    return std::all_of(connections_.rbegin(), connections_.rend(),
                       [this](const auto &c) { return !c->active || ring_->Has_Ended(c->position, ring_->Tail()); });
}

// Compares what the ring has for the client with what the client should still get. Bytes that are heard twice count as
// no loss.
void Socket_Multi_Server::Note_Loss(SockConnection &connection) const
{
    const std::uint64_t offset = bytes_in_ - ring_->Unread(connection.position);
    if (offset > connection.offset) connection.lost += offset - connection.offset;
    connection.offset = offset;
}

void Socket_Multi_Server::Report_Loss(SockConnection &connection)
{
    std::uint64_t lost = 0;
    {
        const Semaphore_Guard guard(lock_);
        const std::uint64_t now = platform::clock_ms();
        if (connection.lost == 0 || (connection.told_at > 0 && now - connection.told_at < report_ms)) return;
        connection.told_at = std::max<std::uint64_t>(now, 1);
        lost = std::exchange(connection.lost, 0);
    }
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, transfer_code,
                   "Client %s:%d does not keep up, ring with %u bytes overrun, %llu bytes discarded!",
                   platform::dotted(Host_Of(connection.peer)).c_str(), int{Port_Of(connection.peer)}, ring_->Size(),
                   static_cast<unsigned long long>(lost));
}

// Called when a connection that may be off the list is not used any more.
void Socket_Multi_Server::Released()
{
    if (has_dead_) wake_->set();
}

void Socket_Multi_Server::MarkThreadDead(Socket_Client_Server *line)
{
    {
        const Semaphore_Guard guard(lock_);
        for (const auto &connection : connections_)
            if (connection->line == line) connection->active = false;
        has_marked_ = true;
    }
    wake_->set();
}

// Destroys only what no other thread uses. Off the list, a connection gets no new user.
void Socket_Multi_Server::RunGarbageCollection()
{
    {
        const Semaphore_Guard guard(lock_);
        if (has_marked_) {
            const auto is_dead = [](const auto &connection) { return !connection->active; };
            std::copy_if(connections_.begin(), connections_.end(), std::back_inserter(dead_), is_dead);
            std::erase_if(connections_, is_dead);
            has_marked_ = false;
        }
    }
    if (dead_.empty()) return;
    has_dead_ = true;
    std::erase_if(dead_, [](const auto &connection) { return connection.use_count() == 1; });
    has_dead_ = !dead_.empty();
}

// The passes.

bool Socket_Multi_Server::Work() { return Is_Own_Thread() || start(false) || is_running(); }

unsigned long Socket_Multi_Server::thread()
{
    while (!Stop_Requested()) {
        Push();
        for (int half = 0; half < 2 && !Stop_Requested(); ++half) Sleep(half_pass_ms);
    }
    return 1;
}

void Socket_Multi_Server::Push()
{
    {
        const Semaphore_Guard guard(lock_);
        if (synchronized_) return;
    }
    const auto is_concerned = [this](const SP<SockConnection> &connection) KERNEL_REQUIRES(lock_) {
        if (!connection->active) return false;
        Note_Loss(*connection);
        return connection->lost > 0 || !ring_->Has_Ended(connection->position, ring_->Tail());
    };
    const Multicast_Client_Identifier *last = nullptr;
    while (const auto connection = Next_After(last, is_concerned)) {
        Report_Loss(*connection);
        connection->identifier->Send(*this, Mesg_Data_Ready);
        last = connection->identifier;
    }
    Released();
}

// Ending connections.

void Socket_Multi_Server::Hang_Up_All()
{
    const Multicast_Client_Identifier *last = nullptr;
    while (const auto connection = Next_After(last, [](const auto &) { return true; })) {
        connection->line->Ask_To_End();
        last = connection->identifier;
    }
    Released();
}

void Socket_Multi_Server::Hang_Up(Multicast_Client_Identifier *identifier)
{
    if (const auto connection = GetConnection(identifier)) connection->line->Ask_To_End();
    Released();
}

bool Socket_Multi_Server::Hang_Up()
{
    Hang_Up_All();
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Warning, transfer_code, "Hang-up done on Socket Server port %d.", int{port_});
    return true;
}

bool Socket_Multi_Server::Close_Handle()
{
    SP<platform::Socket> listener;
    {
        const Semaphore_Guard guard(lock_);
        listener.swap(listener_);
    }
    if (listener) listener->close();
    Hang_Up_All();
    wake_->set();
    return listener != nullptr;
}

void Socket_Multi_Server::Close()
{
    if (Close_Handle()) SetStatus(Status_Disconnected);
}

void Socket_Multi_Server::Disconnect()
{
    stop();
    Byte_Server::Disconnect();
}

// The port.

bool Socket_Multi_Server::CreateServer(int port)
{
    Close();
    port_ = static_cast<std::uint16_t>(port);
    const auto listener = platform::Socket::create();
    if (!listener)
        return Fail_To_Listen(platform::last_error(), "Could not create socket server communication object.\n");
    listener->set_reuse_address();
    if (!listener->bind({0, port_}))
        return Fail_To_Listen(platform::last_error(), "Could not bind socket server communication object.\n");
    if (!listener->listen(backlog))
        return Fail_To_Listen(platform::last_error(), "Could not listen to socket server communication object.\n");
    platform::Address chosen{0, static_cast<std::uint16_t>(port)};
    listener->local_address(chosen);
    SP<platform::Socket> other = listener;  // of a thread that has opened one at the same time
    {
        const Semaphore_Guard guard(lock_);
        other.swap(listener_);
        port_ = chosen.port;
    }
    if (other) other->close();
    wake_->set();
    const bool goes_on = acceptor_.is_running() && !stop_accepting_;
    if (goes_on || acceptor_.start(false) || acceptor_.is_running()) return true;
    Close_Handle();
    return Fail_To_Listen(platform::error_too_many_open, "Could not start thread that waits for clients.\n");
}

bool Socket_Multi_Server::Fail_To_Listen(std::uint32_t error, const char *text)
{
    ReportErrorIntern(error, text, socket_code, Error_Handler::ES_Error);
    SetStatus(Status_Failed);
    return false;
}

unsigned short Socket_Multi_Server::GetPort() const { return port_; }

bool Socket_Multi_Server::IsBusy()
{
    const Semaphore_Guard guard(lock_);
    return listener_ && is_running();
}

bool Socket_Multi_Server::Is_Current(const Accepted &client) const
{
    const Semaphore_Guard guard(lock_);
    return listener_ == client.listener;
}

void Socket_Multi_Server::ReportErrorIntern(unsigned long error, const char *text, Err_Code code,
                                            Error_Handler::Enum_Status status)
{
    if (error == 0) return;
    Report_Socket_Error(Report(unit, __LINE__), std::string(":").append(std::to_string(port_)), error, text, code,
                        status);
    if (status == Error_Handler::ES_Fatal) Close();
}

bool Socket_Multi_Server::Gives_Up_Posting() const
{
    return (Is_Own_Thread() && Stop_Requested()) || (acceptor_.Is_Own_Thread() && stop_accepting_);
}

// The thread that waits for clients.

void Socket_Multi_Server::Acceptor::pre_stop()
{
    Base_Thread::pre_stop();
    owner_.WaitForClientsThreadTerminate();
}

unsigned long Socket_Multi_Server::Acceptor::terminate()
{
    Request_Stop();
    owner_.WaitForClientsThreadTerminate();
    return Base_Thread::terminate();
}

// Flag first, event second: the thread that the event wakes reads the flag.
unsigned long Socket_Multi_Server::WaitForClientsThreadTerminate()
{
    stop_accepting_ = true;
    wake_->set();
    return 0;
}

// A new run forgets the end of the last one. A stop of this run has set the thread's own flag by then.
unsigned long Socket_Multi_Server::WaitForClientsThread()
{
    stop_accepting_ = false;
    while (!acceptor_.Stop_Requested() && !stop_accepting_) {
        try {
            Accept_And_Serve();
        } catch (const std::bad_alloc &) {
            Failed_To_Serve();
        }
    }
    return 1;
}

// A client that cannot be served yet is held: it waits, as do the ones that come behind it.
void Socket_Multi_Server::Accept_And_Serve()
{
    RunGarbageCollection();
    if (!held_.socket) Accept();
    if (!held_.socket) return;
    if (!Is_Current(held_) || Serve())
        held_ = {};
    else
        Failed_To_Serve();
}

// Returns without a client when there is something else to do.
void Socket_Multi_Server::Accept()
{
    SP<platform::Socket> listener;
    {
        const Semaphore_Guard guard(lock_);
        listener = listener_;
    }
    if (!listener) {
        wake_->wait(platform::wait_forever);
        return;
    }
    platform::Address peer;
    auto accepted = listener->accept(peer, *wake_);
    if (!accepted) return Failed_To_Accept(platform::last_error());
    held_ = {std::move(listener), std::move(accepted), Sockaddr_Of(peer.host, peer.port)};
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Information, transfer_code, "Client %s:%d has connected.",
                   platform::dotted(peer.host).c_str(), int{peer.port});
}

bool Socket_Multi_Server::Throttle::Is_Due(std::uint32_t of)
{
    const std::uint64_t now = platform::clock_ms();
    if (error == of && told > 0 && now - told < report_ms) return false;
    error = of;
    told = std::max<std::uint64_t>(now, 1);
    return true;
}

void Socket_Multi_Server::Failed_To_Accept(std::uint32_t error)
{
    if (error == platform::error_operation_aborted) return;  // woken, or closed on this side
    if (accept_failure_.Is_Due(error))
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, transfer_code, "Attempt to wait for clients failed. Reason: %s.",
                       Accept_Reason(error));
    wake_->wait(retry_ms);
}

void Socket_Multi_Server::Failed_To_Serve()
{
    if (serve_failure_.Is_Due(platform::error_too_many_open))
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, transfer_code, "Creation of %d. Socket Server on port %u failed.",
                       GetNumConnections() + 1, unsigned{port_});
    wake_->wait(retry_ms);
}

// The lists need no memory for one more connection after this: neither to enter it nor to take it off.
void Socket_Multi_Server::Make_Room()
{
    const Semaphore_Guard guard(lock_);
    const std::size_t all = connections_.size() + dead_.size() + 1;
    connections_.reserve(all);
    dead_.reserve(all);
}

// Null without memory or descriptors.
SP<Socket_Multi_Server::SockConnection> Socket_Multi_Server::Made_Connection() const
{
    Error_Handler &handler = Error_Handler::Or_Silent(Get_Error_Handler());
    auto &owner = const_cast<Socket_Multi_Server &>(*this);
    auto connection = std::make_shared<SockConnection>(held_.peer);
    connection->line = Constructed([&] { return new Line(handler, owner); });
    connection->identifier = Multicast_Client_Identifier::Construct(&owner, &handler);
    if (!connection->line || connection->line->Room() == 0 || !connection->identifier) return nullptr;
    Byte_Client_NULL *const discard = Byte_Client_NULL::Construct(discard_block);
    const bool complete =
        discard && connection->line->Connect(discard) && connection->identifier->Connect(connection->line);
    return complete ? connection : nullptr;
}

// False: not now. A client whose object fails in the end is cut, as its socket has been handed over by then.
bool Socket_Multi_Server::Serve()
{
    const auto connection = Made_Connection();
    if (!connection) return false;
    Make_Room();
    const int number = GetNumConnections() + 1;
    const unsigned int port = port_;
    const auto socket = static_cast<unsigned int>(held_.socket->release());
    bool works = connection->line->CreateServer(socket, port_, held_.peer, this);
    if (works) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Information, transfer_code,
                       "Created Socket Server thread for %d. Client on port %u.", number, port);
        if (!Add(connection)) return true;  // the port was closed meanwhile
        works = connection->line->Work();
        if (!works) MarkThreadDead(connection->line);
    }
    if (works)
        SetStatus(Status_Connected_As_Server);
    else
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, transfer_code, "Creation of %d. Socket Server on port %u failed.",
                       number, port);
    return true;
}

bool Socket_Multi_Server::Add(const SP<SockConnection> &connection)
{
    const Semaphore_Guard guard(lock_);
    if (listener_ != held_.listener) return false;
    connection->position = ring_->Start();
    connection->offset = bytes_in_;
    connections_.insert(Place_Of(connection->identifier), connection);
    return true;
}

// What each client reads.

const char Multicast_Client_Identifier::Name[] = "Multicast_Client_Identifier";

Multicast_Client_Identifier::Multicast_Client_Identifier(Socket_Multi_Server *owner, Error_Handler *handler)
    : Object(Name, handler), owner_(owner)
{
}

Multicast_Client_Identifier *Multicast_Client_Identifier::Construct(Socket_Multi_Server *owner, Error_Handler *handler)
{
    return Constructed([&] { return new Multicast_Client_Identifier(owner, handler); });
}

bool Multicast_Client_Identifier::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Server::IsInheritedFrom(name) ||
           Byte_Client::IsInheritedFrom(name);
}

long Multicast_Client_Identifier::GetNBytes(unsigned char *buffer, long n)
{
    return owner_ ? owner_->GetNBytes(this, buffer, n) : 0;
}

bool Multicast_Client_Identifier::Send(Byte_Server &server, CL_Mesg message)
{
    return message == Mesg_Data_Ready ? Tell(message) : Byte_Client::Send(server, message);
}

bool Multicast_Client_Identifier::Hang_Up()
{
    if (!owner_) return false;
    owner_->Hang_Up(this);
    return true;
}

}  // namespace kernel
