// Where the processes of one user meet: locks and the like.
#pragma once

#include <string>

namespace platform::posix {

// $GNSS_KERNEL_RUNTIME_DIR, else $XDG_RUNTIME_DIR/gnss-kernel if that is a folder of this user, else
// /tmp/gnss-kernel-UID; made when missing, with mode
// 0700. Empty, with the last error set, when it cannot be had or is somebody else's.
std::string runtime_folder();

}  // namespace platform::posix
