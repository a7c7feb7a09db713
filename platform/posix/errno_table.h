// The conversion of errno to Win32's numbers, for the whole POSIX half.
#pragma once

#include <cstdint>

namespace platform::posix {

// Returns 31 ("a device does not function") for an errno without a counterpart.
std::uint32_t from_errno(int error);
// The same for a call on a socket: prefers the number of Winsock where it has one.
std::uint32_t from_socket_errno(int error);
// Sets the calling thread's last error from errno. Returns false, for `return fail()`.
bool fail();
bool fail_socket();

}  // namespace platform::posix
