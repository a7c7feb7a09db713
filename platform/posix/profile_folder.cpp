#include "platform/profile_folder.h"

#include "platform/posix/settings_folder.h"

namespace platform {

std::string profile_folder(If_Missing if_missing)
{
    const std::string folder = posix::user_settings_folder();
    if (if_missing == If_Missing::create && !folder.empty() && !posix::make_folders(folder, 0700)) return "";
    return folder;
}

}  // namespace platform
