#include "kernel/base/Semaphore.h"

namespace kernel {

Semaphore::Semaphore() = default;

Semaphore::~Semaphore() = default;

// Const, as Release is: who only looks at an object has to lock it, too.
void Semaphore::Request() const { section_.lock(); }

void Semaphore::Release() const { section_.unlock(); }

}  // namespace kernel
