// Linked on POSIX only. A standard stream that is closed at the start of the program gets a place holder, which fails
// when it is read or written. Otherwise the first file or connection would get its number, and with it the program's
// text.
#include <fcntl.h>
#include <unistd.h>

namespace {

bool Is_Closed(int descriptor) { return fcntl(descriptor, F_GETFD) == -1; }

// Relies on open(), which returns the lowest free number.
bool Fill_Gaps()
{
    constexpr int standard[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    for (const int descriptor : standard)
        if (Is_Closed(descriptor) && open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) != descriptor)
            return false;
    return true;
}

[[maybe_unused]] const bool filled = Fill_Gaps();

}  // namespace
