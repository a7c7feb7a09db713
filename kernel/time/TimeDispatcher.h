// One common time for receivers that are simulated or replayed. A dispatcher passes the time to one listener; a
// register passes it to all simulators.
#pragma once

#include "kernel/time/Gps_Time.h"

#include <map>
#include <utility>

namespace kernel {

// Base of the listeners of a TimeDispatcher, which calls one operation of a derived class that takes a Gps_Time.
//
// Threads:   calls arrive on the thread that dispatches the time.
// Ownership: nothing; never deleted through this class.
// Errors:    none.
class KERNEL_API TimeDispatcherFunction {
public:
    virtual void NewTime(Gps_Time time) = 0;

protected:
    TimeDispatcherFunction() = default;
    TimeDispatcherFunction(const TimeDispatcherFunction &) = default;
    TimeDispatcherFunction &operator=(const TimeDispatcherFunction &) = default;
    ~TimeDispatcherFunction() = default;
};

// Passes each new time to one operation of one object. A copy calls the same operation of the same object.
//
// Threads:   not locked; NewTime calls the operation on its own caller's thread.
// Ownership: does not own the object, which must live until Register names another one or null.
// Errors:    none; without an object or an operation nothing happens.
class KERNEL_API TimeDispatcher {
public:
    using Function = void (TimeDispatcherFunction::*)(Gps_Time);

    TimeDispatcher() = default;
    TimeDispatcher(const TimeDispatcher &) = default;
    TimeDispatcher &operator=(const TimeDispatcher &) = default;
    virtual ~TimeDispatcher() { Reset_Members(); }

    virtual void NewTime(Gps_Time time);
    // Replaces what was registered before. A derived class casts its operation to Function.
    void Register(TimeDispatcherFunction *object, Function function);

private:
    void Reset_Members() { Register(nullptr, nullptr); }

    TimeDispatcherFunction *object_ = nullptr;
    Function function_ = nullptr;
};

// Base of simulated receivers. UpdateAllObjectsTo updates all living ones in the order of their creation. A copy has
// the creation number of its original and comes after it and after earlier copies.
// The destructor is not virtual: mark a concrete simulator `final`, and delete it through its own type. A program that
// links the archive must not create one before main: the register may not exist yet.
//
// Threads:   the register has no lock: create, destroy, copy and update on one thread, or under one lock of the host.
//            An update may create and destroy simulators, its own included; new ones are updated in the same round.
// Ownership: the register holds pointers; each simulator removes its own when it is destroyed.
// Errors:    none.
class KERNEL_API SynchronReceiverSimulator : public TimeDispatcherFunction {
public:
    virtual void UpdateTo(Gps_Time time) = 0;

    static void UpdateAllObjectsTo(Gps_Time time);

protected:
    using Place = std::pair<unsigned int, unsigned int>;  // creation number; position among equal ones

    SynchronReceiverSimulator();
    SynchronReceiverSimulator(const SynchronReceiverSimulator &original);
    SynchronReceiverSimulator &operator=(const SynchronReceiverSimulator &original);
    ~SynchronReceiverSimulator();

    unsigned int Creation_Number() const { return place_.first; }

    static unsigned int ObjCount;  // creation numbers given out, from 0; copies take none
    static std::map<Place, SynchronReceiverSimulator *> tree;

private:
    Place Join(unsigned int creation_number);

    Place place_;
};

}  // namespace kernel
