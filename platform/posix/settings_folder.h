// Where the files of the registry and of profiles stand.
#pragma once

#include <string>
#include <sys/types.h>

namespace platform::posix {

// $GNSS_KERNEL_REGISTRY_DIR, which stands for the user's folder and for the machine's. "" when it is not set.
std::string given_settings_folder();

// The user's: the given one, else gnss-kernel in $XDG_CONFIG_HOME, else in .config of $HOME, else of the home that the
// system knows. A relative path counts in the first variable only: anywhere else it would be another folder after each
// change of the working folder. "" with last_error() error_path_not_found when there is none.
//
// Threads: any, while nobody changes the environment.
std::string user_settings_folder();

// Makes the folder and those above it that are missing. False with last_error().
bool make_folders(const std::string &folder, mode_t mode);

}  // namespace platform::posix
