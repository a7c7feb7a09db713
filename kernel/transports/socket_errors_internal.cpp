#include "kernel/transports/socket_errors_internal.h"

#include "platform/error.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace kernel {

namespace {

// The order matters for the numbers that occur twice: the second rows of 10038 and 11004 are never found. In the eleven
// rows from WSAEBADF to WSANO_ADDRESS the title is the name. Both are part of the interface.
constexpr Socket_Error rows[] = {
    {10013, "WSAEACCES", "Permission denied",
     "The socket was used in a way that its access rights forbid, such as sending to a broadcast address without "
     "having "
     "enabled that, or binding to an address that another program holds exclusively."},
    {10048, "WSAEADDRINUSE", "Address already in use",
     "Only one socket at a time may use an address and port with a protocol. Another socket is bound to this one, or "
     "it "
     "was closed so recently that the system still holds the address."},
    {10049, "WSAEADDRNOTAVAIL", "Cannot assign requested address",
     "The address is not valid here: it belongs to no interface of this machine, or it is no address (or port 0) that "
     "could be connected to."},
    {10047, "WSAEAFNOSUPPORT", "Address family not supported by protocol family",
     "The address does not fit the protocol: its family is not the one that the socket was made for."},
    {10037, "WSAEALREADY", "Operation already in progress",
     "An operation was begun on a non-blocking socket that is still busy with the one before, for instance a second "
     "connect while the first is not decided."},
    {10009, "WSAEBADF", "WSAEBADF", "The number that was given is not that of an open file or socket."},
    {10069, "WSAEDQUOT", "WSAEDQUOT", "The user has used up the quota of disk space or of another resource."},
    {10062, "WSAELOOP", "WSAELOOP",
     "The name cannot be translated: its links lead in a circle, or there are too many."},
    {10063, "WSAENAMETOOLONG", "WSAENAMETOOLONG", "A name, or a part of it, is longer than the system allows."},
    {10066, "WSAENOTEMPTY", "WSAENOTEMPTY", "A directory cannot be removed, because there is something in it."},
    {10038, "WSAENOTSOCK", "WSAENOTSOCK",
     "The operation was tried on something that is not a socket, or on one that has been closed."},
    {10071, "WSAEREMOTE", "WSAEREMOTE", "The item lies on another machine and is not available from here."},
    {10070, "WSAESTALE", "WSAESTALE", "The handle refers to a remote file that is no longer available."},
    {10059, "WSAETOOMANYREFS", "WSAETOOMANYREFS", "An object of the system is referred to from too many places."},
    {10068, "WSAEUSERS", "WSAEUSERS", "The quota of users, or of what one user may have, is exhausted."},
    {11004, "WSANO_ADDRESS", "WSANO_ADDRESS", "The name is known, but there is no address for it."},
    {10053, "WSAECONNABORTED", "Software caused connection abort",
     "The connection was given up by the software of this machine, for instance after data had not been acknowledged "
     "for too long, or because of a fault in the protocol."},
    {10061, "WSAECONNREFUSED", "Connection refused",
     "The other machine is there and actively refused: most likely no program listens on that port."},
    {10054, "WSAECONNRESET", "Connection reset by peer",
     "The peer broke the connection off: its program ended or crashed, its machine was restarted, or it closed the "
     "socket "
     "hard."},
    {10039, "WSAEDESTADDRREQ", "Destination address required",
     "The operation needs the address of a receiver, and none was given."},
    {10014, "WSAEFAULT", "Bad address",
     "A pointer that was passed cannot be used, or the block that it points to is too small."},
    {10064, "WSAEHOSTDOWN", "Host is down", "The other machine does not answer; it seems to be switched off."},
    {10065, "WSAEHOSTUNREACH", "No route to host",
     "No way to the other machine is known at present: look at the network, the gateway and the firewall."},
    {10036, "WSAEINPROGRESS", "Operation now in progress",
     "A blocking operation is under way, and until it has ended no other may be begun."},
    {10004, "WSAEINTR", "Interrupted function call", "A blocking call was cancelled from outside before it had ended."},
    {10022, "WSAEINVAL", "Invalid argument",
     "An argument is not valid, or the socket is not in a state for the call, such as accept without listen."},
    {10056, "WSAEISCONN", "Socket is already connected", "The socket that was to be connected is connected already."},
    {10024, "WSAEMFILE", "Too many open files",
     "No more sockets can be had: the process, or the system, has as many open as it may."},
    {10040, "WSAEMSGSIZE", "Message too long",
     "A datagram is longer than the network or the buffer for it allows; what did not fit is lost."},
    {10050, "WSAENETDOWN", "Network is down",
     "The network, its interface or the network software of this machine has failed."},
    {10052, "WSAENETRESET", "Network dropped connection on reset",
     "The connection was ended, because keep-alive found that the peer does not answer any more."},
    {10051, "WSAENETUNREACH", "Network is unreachable",
     "This machine knows no route to the network that the address belongs to."},
    {10055, "WSAENOBUFS", "No buffer space available",
     "The system has no buffer left for the operation, or a queue is full."},
    {10042, "WSAENOPROTOOPT", "Bad protocol option",
     "The option is unknown, or not supported at this level by this kind of socket."},
    {10057, "WSAENOTCONN", "Socket is not connected",
     "Data cannot be sent or received, because the socket is not connected and no receiver was named."},
    {10038, "WSAENOTSOCK", "Socket operation on nonsocket", "What was given to the operation is not a socket."},
    {10045, "WSAEOPNOTSUPP", "Operation not supported",
     "This kind of socket does not have the operation, such as accept on a socket for datagrams."},
    {10046, "WSAEPFNOSUPPORT", "Protocol family not supported",
     "The family of protocols is not installed on this machine, or does not exist."},
    {10067, "WSAEPROCLIM", "Too many processes", "As many programs use the socket library as it admits at a time."},
    {10043, "WSAEPROTONOSUPPORT", "Protocol not supported",
     "The protocol is not installed on this machine, or does not exist."},
    {10041, "WSAEPROTOTYPE", "Protocol wrong type for socket",
     "The protocol does not fit the type of the socket, such as UDP for a stream."},
    {10058, "WSAESHUTDOWN", "Cannot send after socket shutdown",
     "The socket has been shut down in the direction in which data was to be sent or received."},
    {10044, "WSAESOCKTNOSUPPORT", "Socket type not supported",
     "The type of socket does not exist in this family of addresses."},
    {10060, "WSAETIMEDOUT", "Connection timed out",
     "The other machine did not answer in time, neither to the attempt to connect nor, on a connection that was there, "
     "to "
     "what was sent."},
    {10035, "WSAEWOULDBLOCK", "Resource temporarily unavailable",
     "A non-blocking operation cannot be done at once. That is no failure: try again later."},
    {11001, "WSAHOST_NOT_FOUND", "Host not found", "There is no machine of that name."},
    {10093, "WSANOTINITIALISED", "Successful WSAStartup not yet performed",
     "The socket library has not been started in this process, its start failed, or it was ended too often."},
    {11004, "WSANO_DATA", "Valid name, no data record of requested type",
     "The name is known, but it has no entry of the kind that was asked for."},
    {11003, "WSANO_RECOVERY", "Nonrecoverable error",
     "The look-up of the name failed for good, for instance because the name server refused it."},
    {10091, "WSASYSNOTREADY", "Network subsystem is unavailable",
     "The network software of this machine is not ready or not installed."},
    {11002, "WSATRY_AGAIN", "Nonauthoritative host not found",
     "The name server did not answer or failed for the moment; a later attempt may succeed."},
    {10092, "WSAVERNOTSUPPORTED", "Winsock.dll version out of range",
     "The socket library of this machine does not offer the version that was asked for."},
    {10101, "WSAEDISCON", "Graceful shutdown in progress", "The peer has begun to close the connection in good order."},
    {10109, "WSATYPE_NOT_FOUND", "Class type not found", "The class of service that was named is not known."},
    {6, "WSA_INVALID_HANDLE", "Specified event object handle is invalid",
     "A handle that was given, of an event or of a transport, is not valid or has been closed."},
    {87, "WSA_INVALID_PARAMETER", "One or more parameters are invalid", "The system does not accept a parameter."},
    {996, "WSA_IO_INCOMPLETE", "Overlapped I/O event object not in signaled state",
     "The result was asked for of a transfer that is still under way."},
    {997, "WSA_IO_PENDING", "Overlapped operations will complete later",
     "The transfer was begun and is under way; its end will be signalled. That is no failure."},
    {8, "WSA_NOT_ENOUGH_MEMORY", "Insufficient memory available", "The system has no memory left for the operation."},
    {10107, "WSASYSCALLFAILURE", "System call failure", "A call of the system failed that should never fail."},
    {995, "WSA_OPERATION_ABORTED", "Overlapped operation aborted",
     "A transfer was cancelled, or ended because its socket or its thread was closed."},
};
static_assert(std::size(rows) == 61);

}  // namespace

const Socket_Error *Find_Socket_Error(int code)
{
    const auto row = std::find_if(std::begin(rows), std::end(rows),
                                  [code](const Socket_Error &candidate) { return candidate.code == code; });
    return row != std::end(rows) ? row : nullptr;
}

void Report_Socket_Error(Error_Handler &report, const std::string &prefix, unsigned long error, const char *text,
                         Err_Code code, Error_Handler::Enum_Status status)
{
    const auto win32 = static_cast<std::uint32_t>(error);
    const int number = static_cast<int>(error);
    const std::string system = platform::error_text(win32);
    if (system != platform::unknown_error_text(win32))
        report.Print_Out(status, code, "%s%s Socket Error-Code: %d => %s", prefix.c_str(), text, number,
                         system.c_str());
    else if (const Socket_Error *const row = Find_Socket_Error(number))
        report.Print_Out(status, code, "%s%s Socket Error: %s=%d => %s", prefix.c_str(), text, row->name, number,
                         row->title.text);
    else
        report.Print_Out(status, code, "%s%s Unknown Socket Error-Code: %d", prefix.c_str(), text, number);
}

}  // namespace kernel
