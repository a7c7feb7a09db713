#include "platform/profile_folder.h"

#include "platform/win32/wide_text.h"

#include <windows.h>

namespace platform {

std::string profile_folder(If_Missing)
{
    wchar_t folder[MAX_PATH + 1];
    const UINT length = GetWindowsDirectoryW(folder, MAX_PATH + 1);
    return length <= MAX_PATH ? win32::utf8({folder, length}) : "";
}

}  // namespace platform
