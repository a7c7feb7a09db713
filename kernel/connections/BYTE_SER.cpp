#include "kernel/connections/BYTE_SER.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/connections/delivery_internal.h"
#include "kernel/connections/family_internal.h"
#include "kernel/connections/message_groups_internal.h"

#include <cctype>
#include <cstring>
#include <new>

namespace kernel {

namespace {

const char unit[] = "kernel/BYTE_SER";

}  // namespace

const char Byte_Server::Name[] = "Basisklasse Byte_Server";

Byte_Server::Byte_Server() : Object(nullptr), deliveries_(std::make_unique<Deliveries>()) {}

// By now the subclass is gone: a client that pulls while it is asked finds the base operations.
Byte_Server::~Byte_Server()
{
    const auto leave = [this] {
        Byte_Client *const former = Get_Byte_Client();
        if (former) Byte_Server::Disconnect();
        return former;
    };
    const auto forget = [this](const Byte_Client *former) {
        deliveries_->Exchange(nullptr);
        deliveries_->Wait_For_Others(former);
    };
    End_Connection(*this, leave, forget);
}

bool Byte_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Server::IsInheritedFrom(name);
}

std::optional<bool> Byte_Server::Ask(Byte_Server &origin, CL_Mesg message)
{
    const Deliveries::Visit client(*deliveries_);
    if (!client) return std::nullopt;
    return client->Send(origin, message);
}

// The lock is held while the client is asked: of two threads that disconnect, the second finds no client, and a client
// that agrees is asked once. The lock is not held while waiting: the client may pull, and pulling may take the lock.
void Byte_Server::Disconnect()
{
    Byte_Client *former = nullptr;
    {
        const Semaphore_Guard guard(*this);
        const Deliveries::Visit client(*deliveries_);
        if (client && (!client->Send(*this, Mesg_Disconnect_Query) || !deliveries_->Replace(client.Client(), nullptr)))
            return;
        former = client.Client();
    }
    deliveries_->Wait_For_Others(former);
}

Client *Byte_Server::GetClient() { return Get_Byte_Client(); }

Byte_Client *Byte_Server::Get_Byte_Client() const { return deliveries_->Client(); }

void Byte_Server::SetClient(Client *client)
{
    auto *const bytes = dynamic_cast<Byte_Client *>(client);
    Byte_Client *const former = deliveries_->Exchange(bytes);
    if (former != bytes) deliveries_->Wait_For_Others(former);
}

Byte_Client *Byte_Server::Take_Client()
{
    Byte_Client *const former = deliveries_->Exchange(nullptr);
    deliveries_->Wait_For_Others(former);
    return former;
}

// False: `old`, which may be null, is not the client any more.
bool Byte_Server::Replace(Byte_Client *old, Byte_Client *client)
{
    if (!deliveries_->Replace(old, client)) return false;
    if (old && old != client) deliveries_->Wait_For_Others(old);
    return true;
}

// A client that refuses the type stays the caller's; Switch deletes it. It is connected while it is asked, and remains
// so if it refuses disconnection, too.
bool Byte_Server::Connect(Byte_Client *client)
{
    if (!Server::Connect(client)) return false;
    const Deliveries::Visit visit(*deliveries_, client);
    if (!visit) return false;  // another thread has taken it away since; it may be deleted
    if (client->Send(*this, Mesg_Byte_Type)) return true;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, 26, "Client %s couldn't work with type %d.", client->GetName(),
                   static_cast<int>(Mesg_Byte_Type));
    Disconnect();
    return false;
}

Byte_Client *Byte_Server::Switch(Byte_Client *client)
{
    // Again when another thread has replaced the old client meanwhile.
    for (;;) {
        const Deliveries::Visit old(*deliveries_);
        // Null means that nothing was handed over; GetClient tells whether the new client is connected.
        if (!old) {
            Connect(client);
            return nullptr;
        }
        if (!client) {
            Disconnect();
            return nullptr;
        }
        if (client == old.Client()) return nullptr;  // nothing changes hands
        if (!client->Send(*this, Mesg_Byte_Type)) {
            Disconnect();
            Object::Destruct(client);
            return nullptr;
        }
        // The old one is told, not asked: it goes on in its caller's hands, also when it allows no disconnection. Each
        // hears its message from a server whose client it is.
        old->Send(*this, Mesg_Detached);
        if (!deliveries_->Replace(old.Client(), client)) continue;
        if (const Deliveries::Visit now(*deliveries_, client); now) client->Send(*this, Mesg_Attached);
        deliveries_->Wait_For_Others(old.Client());
        return old.Client();
    }
}

bool Byte_Server::PreDisconnect() { return Ask(Mesg_PreDisconnect_Query).value_or(true); }

unsigned short Byte_Server::GetByte()
{
    Report_Missing(unit, __LINE__, "GetByte", "Byte_Server");
    return No_Byte;
}

unsigned short Byte_Server::UnGetByte(unsigned char)
{
    Report_Missing(unit, __LINE__, "UnGetByte", "Byte_Server");
    return No_Byte;
}

long Byte_Server::GetNBytes(unsigned char *, long)
{
    Report_Missing(unit, __LINE__, "GetNBytes", "Byte_Server");
    return 0;
}

long Byte_Server::MinAvail(long)
{
    Report_Missing(unit, __LINE__, "MinAvail", "Byte_Server");
    return 0;
}

long Byte_Server::GetString(char *buffer, long n)
{
    if (!buffer) return 0;
    long stored = 0;
    while (stored < n) {
        const unsigned short byte = GetByte();
        if (byte == No_Byte) break;
        buffer[stored++] = static_cast<char>(byte);
    }
    buffer[stored] = '\0';
    return stored;
}

// Returns true without a client: upstream, a refusal may end the connection.
bool Byte_Server::Forward_Send(Byte_Server &origin, CL_Mesg message)
{
    return Group_Of(message) != Message_Group::Notice || Ask(origin, message).value_or(true);
}

unsigned short Byte_Server::get(unsigned char &byte)
{
    const unsigned short value = GetByte();
    byte = static_cast<unsigned char>(value & 0xFF);
    return value;
}

unsigned short Byte_Server::UnGetByte(unsigned short byte)
{
    if (byte == No_Byte) return No_Byte;
    if (byte > 0xFF) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Error, 33, "%s(0x%04X) out of Range in inherited class %s", "UnGetByte",
                       static_cast<unsigned int>(byte), GetName());
        return No_Byte;
    }
    return UnGetByte(static_cast<unsigned char>(byte));
}

namespace {

// Asks for one byte at a time until `matches` accepts one; that byte, or No_Byte when the data ends first.
// Request replaces what the client had asked for, and the pull takes it off: a match leaves no request standing.
template <class Matches>
unsigned short Scan(Byte_Server &server, Matches matches)
{
    for (;;) {
        server.Request(1);
        const unsigned short byte = server.GetByte();
        if (byte == No_Byte || matches(byte)) return byte;
    }
}

}  // namespace

bool Byte_Server::Sync_Byte(unsigned char byte)
{
    return Scan(*this, [byte](unsigned short b) { return b == byte; }) != No_Byte;
}

bool Byte_Server::Sync_Byte(signed char byte)
{
    return Scan(*this, [byte](unsigned short b) { return int{b} == int{byte}; }) != No_Byte;
}

unsigned short Byte_Server::Sync_Bytes(const unsigned char *set)
{
    return Sync_Bytes(reinterpret_cast<const char *>(set));
}

unsigned short Byte_Server::Sync_Bytes(const char *set)
{
    if (!set) return No_Byte;
    return Scan(*this, [set](unsigned short b) { return std::strchr(set, b) != nullptr; });
}

bool Byte_Server::Sync_String(const char *text)
{
    for (const char *next = text; next && *next; ++next) {
        const unsigned short byte = GetByte();
        if (byte == No_Byte) return false;
        if (int{byte} == static_cast<signed char>(*next)) continue;
        // This byte may begin the text itself: the second $ of "$$GP". A mismatch at the first character is not given
        // back: the caller scans on, and would get the same byte again for ever.
        if (next != text) UnGetByte(byte);
        // Cancels the request: the server sends Mesg_Request_Invite again instead of Mesg_Data_Ready for the rest.
        Request(0);
        return false;
    }
    return text != nullptr;
}

bool Byte_Server::Sync_String_Upper(const char *text)
{
    for (const char *next = text; next && *next; ++next) {
        const unsigned short byte = GetByte();
        if (byte == No_Byte) return false;
        const int wanted = static_cast<signed char>(*next);  // toupper knows no negative values: these never match
        if (wanted >= 0 && std::toupper(byte) == std::toupper(wanted)) continue;
        Request(0);
        return false;
    }
    return text != nullptr;
}

const char Byte_Client::Name[] = "Basisklasse Byte_Client";

Byte_Client::Byte_Client() : Object(nullptr) {}

bool Byte_Client::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Client::IsInheritedFrom(name);
}

bool Byte_Client::Send(Byte_Server &server, CL_Mesg message)
{
    switch (message) {
    case Mesg_Byte_Type: return true;
    case Mesg_Object_Type:
    case Mesg_Login:
    case Mesg_Ask_Password: return false;
    case Mesg_Second: break;
    default: return Client::Send(server, message);
    }
    if (!Client::Send(server, message)) return false;
    const std::uint32_t ticks = Ticks();
    if (!Is_Minute(ticks)) return true;
    const Semaphore_Guard guard(*this);
    // Through the server: its client, mostly this object, gets the minute as a message like any other, and a subclass
    // hears it in its own Send.
    Tell_Minute(ticks, [&server](CL_Mesg later) { server.Tell(later); });
    return true;
}

const char Byte_Client_NULL::Name[] = "Byte_Client_NULL";

Byte_Client_NULL::Byte_Client_NULL(long request_size)
    : Object(Byte_Client::ClassName()), request_size_(static_cast<std::int32_t>(request_size))
{
    // A negative size never requests, as 0.
    if (request_size_ > 1) buffer_.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(request_size_)]);
}

Byte_Client_NULL *Byte_Client_NULL::Construct(long request_size)
{
    return Constructed([&] { return new Byte_Client_NULL(request_size); });
}

bool Byte_Client_NULL::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Byte_Client::IsInheritedFrom(name);
}

bool Byte_Client_NULL::IsValid() const { return request_size_ < 2 || buffer_; }

bool Byte_Client_NULL::Send(Byte_Server &server, CL_Mesg message)
{
    ++messages_;
    switch (message) {
    // Freed whatever the reply is. From then on the object is not valid, and a server that replaces it deletes it
    // unasked.
    case Mesg_Disconnect_Query: buffer_.reset(); return Byte_Client::Send(server, message);
    // It is there to keep a line empty: no transport is to wait for it.
    case Mesg_Pause: return true;
    case Mesg_Request_Invite:
        if (request_size_ <= 0) return false;
        server.Request(request_size_);
        return true;
    case Mesg_Data_Ready: return Drain(server);
    default: return Byte_Client::Send(server, message);
    }
}

bool Byte_Client_NULL::Drain(Byte_Server &server)
{
    if (request_size_ <= 0) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 28, "Server sends Data without request");
        return false;
    }
    // More than was asked for; the server takes that as it comes (its count of what is wanted goes below 0).
    if (request_size_ == 1) {
        while (server.GetByte() != No_Byte) ++bytes_;
        return true;
    }
    if (!buffer_) return false;  // disconnected since; after a true the server would ask again for ever
    // A block that comes full need not be the last one; a short one is.
    long got = 0;
    do {
        got = Bytes_Moved(server.GetNBytes(buffer_.get(), request_size_), request_size_);
        bytes_ += static_cast<std::uint32_t>(got);
    } while (got == request_size_);
    return true;
}

}  // namespace kernel
