#include "host/gnss_stream/Ring_Output.h"

#include <string>

namespace host {

using kernel::Error_Handler;

namespace {

const char unit[] = "host/Ring_Output";

}  // namespace

Ring_Output::~Ring_Output()
{
    if (writing_) writing_->Release();
}

bool Ring_Output::Open(int ring, std::uint32_t slots)
{
    const std::string number = std::to_string(ring);
    std::string error;
    writing_.emplace(("writer of ring " + number).c_str());
    if (!writing_->Try_Request()) {
        writing_.reset();
        error = "Ring " + number + " is written by another program.";
    } else if (slots > 0) {
        Station_Segment::Options options;
        options.slots = slots;
        segment_ = Station_Segment::Create(ring, options, error);
    }
    if (error.empty()) ring_.reset(kernel::Ring::Create(ring));
    if (!ring_ && error.empty()) error = "There is no ring " + number + "; --create-ring makes it.";
    if (ring_ && !ring_->version()) error = "Ring " + number + " has another layout.";
    if (error.empty()) publisher_.emplace(*ring_);
    if (!error.empty()) handler_.Set(unit, __LINE__)->Print_Out(Error_Handler::ES_Error, "%s", error.c_str());
    return error.empty();
}

void Ring_Output::Publish(const kernel::EPO_DATA &epoch)
{
    if (publisher_) publisher_->Publish(epoch);
}

void Ring_Output::Close()
{
    const Epoch_Publisher::Counts count = Count();
    if (count.refused == 0 && count.left_out == 0) return;
    handler_.Set(unit, __LINE__)
        ->Print_Out(Error_Handler::ES_Warning,
                    "Not in the ring: %llu epochs without a week or older than its newest, %llu satellites.",
                    static_cast<unsigned long long>(count.refused), static_cast<unsigned long long>(count.left_out));
}

}  // namespace host
