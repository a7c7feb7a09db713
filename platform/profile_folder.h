// The folder of the user's settings.
#pragma once

#include <string>

namespace platform {

enum class If_Missing { leave, create };

// Where profile files stand whose name has no folder: the Windows folder; on POSIX the folder of the user's registry
// (platform/registry.h). It is made with mode 0700. "" with last_error() when there is none.
//
// Threads: any, while nobody changes the environment.
std::string profile_folder(If_Missing if_missing);

}  // namespace platform
