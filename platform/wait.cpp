#include "platform/wait.h"

namespace platform {

bool Waitable::wait(unsigned long ms)
{
    Waitable *const self[] = {this};
    return wait_any(self, ms) == 0;
}

}  // namespace platform
