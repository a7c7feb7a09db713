// The station ring that decoded epochs are published into.
#pragma once

#include "host/station/Epoch_Publisher.h"
#include "host/station/Station_Segment.h"
#include "kernel/base/Error_Handler.h"
#include "kernel/base/ipcSemaphore.h"

#include <memory>
#include <optional>

namespace host {

// Threads:   Publish runs on the input's thread; call the others while it does not. The thread of Open destroys the
//            object.
// Ownership: holds the ring while it exists, and a lock that makes it the only writer among all programs. The handler
//            is the caller's and outlives it.
// Errors:    reported to the handler: a ring that could not be opened, or that another program writes (level 3), and at
//            the end epochs and satellites that are not in the ring (level 2).
class Ring_Output {
public:
    explicit Ring_Output(kernel::Error_Handler &handler) : handler_(handler) {}
    ~Ring_Output();

    // With slots the ring is made if it does not exist.
    bool Open(int ring, std::uint32_t slots);
    void Publish(const kernel::EPO_DATA &epoch);
    void Close();
    Epoch_Publisher::Counts Count() const { return publisher_ ? publisher_->Count() : Epoch_Publisher::Counts{}; }

private:
    using Open_Ring = std::unique_ptr<kernel::Ring, void (*)(kernel::Ring *)>;

    kernel::Error_Handler &handler_;
    std::optional<kernel::ipcMutexSemaphore> writing_;  // held while this program may write
    std::unique_ptr<Station_Segment> segment_;          // null: another program made the ring
    Open_Ring ring_{nullptr, [](kernel::Ring *ring) { kernel::Ring::Delete(ring); }};
    std::optional<Epoch_Publisher> publisher_;
};

}  // namespace host
