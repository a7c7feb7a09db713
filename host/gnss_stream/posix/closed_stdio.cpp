// Linked on POSIX only: a standard stream that is closed when the program starts gets a place holder that refuses to be read
// or written. Without it the first file or connection to be opened would take its number, and get the program's text.
#include <fcntl.h>

namespace {

bool Is_Closed(int descriptor) { return fcntl(descriptor, F_GETFD) == -1; }

// open() answers the lowest number that is free.
bool Fill_Gaps()
{
    for (int descriptor = 0; descriptor < 3; ++descriptor)
        if (Is_Closed(descriptor) && open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY) != descriptor)
            return false;
    return true;
}

[[maybe_unused]] const bool filled = Fill_Gaps();

}  // namespace
