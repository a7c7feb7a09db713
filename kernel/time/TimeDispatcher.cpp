#include "kernel/time/TimeDispatcher.h"

#include <iterator>
#include <limits>

namespace kernel {

void TimeDispatcher::NewTime(Gps_Time time)
{
    if (object_ && function_) (object_->*function_)(time);
}

void TimeDispatcher::Register(TimeDispatcherFunction *object, Function function)
{
    object_ = object;
    function_ = function;
}

unsigned int SynchronReceiverSimulator::ObjCount = 0;
std::map<SynchronReceiverSimulator::Place, SynchronReceiverSimulator *> SynchronReceiverSimulator::tree;

// The base constructor puts the simulator into the register, and the base destructor takes it out. Before and after the
// derived class lives, an update from another thread would call a pure virtual operation.
SynchronReceiverSimulator::SynchronReceiverSimulator() : place_(Join(ObjCount)) { ++ObjCount; }

SynchronReceiverSimulator::SynchronReceiverSimulator(const SynchronReceiverSimulator &original)
    : TimeDispatcherFunction(original), place_(Join(original.place_.first))
{
}

SynchronReceiverSimulator &SynchronReceiverSimulator::operator=(const SynchronReceiverSimulator &original)
{
    if (this != &original) {
        // Erase first: otherwise Join could place this simulator behind its own entry.
        tree.erase(place_);
        place_ = Join(original.place_.first);
    }
    return *this;
}

SynchronReceiverSimulator::~SynchronReceiverSimulator() { tree.erase(place_); }

// Places this simulator behind the last one with the same creation number.
SynchronReceiverSimulator::Place SynchronReceiverSimulator::Join(unsigned int creation_number)
{
    Place place{creation_number, 0};
    const auto behind = tree.upper_bound({creation_number, std::numeric_limits<unsigned int>::max()});
    if (behind != tree.begin() && std::prev(behind)->first.first == creation_number)
        place.second = std::prev(behind)->first.second + 1;
    tree.emplace(place, this);
    return place;
}

// Finds the next simulator by its place, not by an iterator: an update may erase any simulator.
void SynchronReceiverSimulator::UpdateAllObjectsTo(Gps_Time time)
{
    for (auto next = tree.begin(); next != tree.end();) {
        const Place place = next->first;
        next->second->UpdateTo(time);
        next = tree.upper_bound(place);
    }
}

}  // namespace kernel
