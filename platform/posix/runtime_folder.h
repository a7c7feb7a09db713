// The folder for locks, pipes and windows that the processes of one user share.
#pragma once

#include <string>

namespace platform::posix {

// $GNSS_KERNEL_RUNTIME_DIR, else $XDG_RUNTIME_DIR/gnss-kernel if that is a folder of this user, else
// /tmp/gnss-kernel-UID. Creates it with mode 0700 when it is missing. Empty, with the last error set, when it cannot be
// created or belongs to another user.
std::string runtime_folder();

}  // namespace platform::posix
