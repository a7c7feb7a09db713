// errno in Win32's numbers: the one table of the POSIX half.
#pragma once

#include <cstdint>

namespace platform::posix {

// 31 ("a device does not function") for an errno that has no counterpart.
std::uint32_t from_errno(int error);
// The same for a call on a socket: where Winsock has a number of its own, that one.
std::uint32_t from_socket_errno(int error);
// Sets the calling thread's last error from errno; always false, for `return fail()`.
bool fail();
bool fail_socket();

}  // namespace platform::posix
