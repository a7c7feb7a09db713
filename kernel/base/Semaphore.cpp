#include "kernel/base/Semaphore.h"

namespace kernel {

Semaphore::Semaphore() = default;

Semaphore::~Semaphore() = default;

// Const, like Release: reading an object needs its lock as well.
void Semaphore::Request() const { section_.lock(); }

void Semaphore::Release() const { section_.unlock(); }

}  // namespace kernel
