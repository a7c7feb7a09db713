#include "kernel/base/Semaphore.h"

namespace kernel {

Semaphore::Semaphore() : section_(new std::recursive_mutex) {}

Semaphore::~Semaphore()
{
    delete section_;
    section_ = nullptr;
}

// Const, as Release is: who only looks at an object has to lock it, too.
void Semaphore::Request() const
{
    if (section_) section_->lock();
}

void Semaphore::Release() const
{
    if (section_) section_->unlock();
}

}  // namespace kernel
