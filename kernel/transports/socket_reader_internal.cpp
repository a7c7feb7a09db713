// What all threads ask and order: the target, closing, the NTRIP settings.
#include "kernel/transports/socket_reader_internal.h"

#include "kernel/transports/socket_address_internal.h"

#include "platform/socket.h"

#include <cstring>

namespace kernel {

namespace {

constexpr std::size_t longest_text = 255;  // characters of a mountpoint, user, password

}  // namespace

// The address as it is, dotted text or a name, in this order. What is found is kept for all connections to come. Two
// threads may look at once: both find the same.
bool Socket_Reader::Target::Resolve(platform::Event &stop)
{
    if (address != no_address) return true;
    const std::string name = Where();
    std::uint32_t found = 0;
    if (!platform::parse_dotted(name.c_str(), found) || found == no_address) {
        if (!platform::resolve(name.c_str(), found, stop)) return false;
    }
    address = found;
    return true;
}

std::shared_ptr<Socket_Reader::Target> Socket_Reader::Get_Target() const
{
    const Semaphore_Guard guard(owner_);
    return target_;
}

bool Socket_Reader::Is_Open() const
{
    const Semaphore_Guard guard(owner_);
    return socket_ != nullptr;
}

Socket_Reader::Remote Socket_Reader::The_Other_End(const Target &target) const
{
    if (!target.is_server) return {target.host, target.port};
    const Semaphore_Guard guard(owner_);
    return {platform::dotted(Host_Of(peer_)), Port_Of(peer_)};
}

std::string Socket_Reader::Remote_Name() const
{
    const Semaphore_Guard guard(owner_);
    const Remote remote = The_Other_End(*target_);
    const bool is_known = target_->is_server ? owner_.handle_ != nullptr : !remote.host.empty();
    return is_known ? remote.host + ":" + std::to_string(remote.port) : "";
}

std::string Socket_Reader::Prefix() const
{
    const Semaphore_Guard guard(owner_);
    return socket_ ? target_->host + ":" + std::to_string(target_->port) : "";
}

void Socket_Reader::Close_Socket()
{
    const Semaphore_Guard guard(owner_);
    if (!socket_) return;
    socket_->close();
    socket_.reset();
}

// Under one lock: the reader, which the first close wakes, must find neither the other close still to be done nor the
// target that is left.
bool Socket_Reader::Close_Handle(const Opening *next)
{
    bool was_open = false;
    {
        const Semaphore_Guard guard(owner_);
        owner_.FreeAcceptSocket();
        Want(0);
        was_open = socket_ != nullptr;
        Close_Socket();
        if (next) {
            target_ = next->target;
            socket_ = next->accepted;
            peer_ = next->peer;
        }
    }
    if (was_open) owner_.Sleep(1);
    return was_open;
}

bool Socket_Reader::Is_Seen_To() const { return owner_.is_running() && !owner_.Is_Own_Thread(); }

void Socket_Reader::Close(const Opening *next)
{
    const bool is_seen_to = Is_Seen_To();  // asked first: the reader may end at once
    if (!Close_Handle(next)) return;
    if (!is_seen_to) owner_.SetStatus(Owner::Status_Disconnected);
    owner_.Sleep(1);
    if (!is_seen_to) Tell(Mesg_Detached);
}

Socket_Reader::Ntrip Socket_Reader::Get_Ntrip() const
{
    const Semaphore_Guard guard(owner_);
    return ntrip_;
}

void Socket_Reader::Set_Ntrip(bool Ntrip::*field, bool value)
{
    const Semaphore_Guard guard(owner_);
    ntrip_.*field = value;
}

bool Socket_Reader::Set_Ntrip(std::string Ntrip::*field, const char *text)
{
    if (!text || std::strlen(text) > longest_text) return false;
    const Semaphore_Guard guard(owner_);
    ntrip_.*field = text;
    return true;
}

}  // namespace kernel
