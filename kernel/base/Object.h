// The root class: a name and a place to report to.
#pragma once

#include "kernel/base/kernel_api.h"

#include <atomic>
#include <exception>
#include <memory>

namespace kernel {

class Error_Handler;

// Base of every named object of the library. It is inherited virtually, so that a connectable object has exactly one
// name and one handler.
//
// Threads:   any thread may read, replace and report to the handler at any time except during destruction; the rest is
//            constant after construction. Objects may be made and destroyed on any thread, also while the process ends
//            and while another thread sets the default handler. No thread may be inside a default handler that is being
//            replaced.
// Ownership: neither name nor handler is owned: both outlive the object. The default handler belongs to the library; an
//            object that outlives the default handler it was made with reports to the built-in one from then on.
// Errors:    never throws; units report through Report().
class KERNEL_API Object {
public:
    static const char Name[];  // "Abstrakte Basisklasse"
    static const char *ClassName() { return Name; }

    // A null name becomes "No Name"; a null or missing handler becomes the current default handler.
    explicit Object(const char *name, Error_Handler *handler);
    explicit Object(const char *name);
    Object &operator=(const Object &) = delete;

    virtual const char *GetName() const;
    virtual bool IsValid() const;
    // True when `name` equals the Name of this class or of a base, case included; false for null.
    virtual bool IsInheritedFrom(const char *name) const;
    virtual void Set_Error_Handler(Error_Handler *handler);  // null drops all reports
    virtual ~Object();

    void Set_Error_Handler(Error_Handler &handler) { Set_Error_Handler(&handler); }
    void SetErrorHandler(Error_Handler *handler) { Set_Error_Handler(handler); }
    void SetErrorHandler(Error_Handler &handler) { Set_Error_Handler(&handler); }
    Error_Handler *Get_Error_Handler() const;
    Error_Handler *GetErrorHandler() const { return Get_Error_Handler(); }

    bool valid() const { return IsValid(); }
    static bool valid(const Object *object) { return object && object->IsValid(); }

    // The way for a unit to report: notes unit and line in this object's handler and returns the handler to print with.
    // If the object's handler is null, returns one that drops everything. `unit` is a constant such as "kernel/CLIENT".
    Error_Handler &Report(const char *unit, unsigned int line) const;
    // Reports "Please implement %s in class %s inherited from %s" as ES_Fatal with code 34: a base operation was called
    // that a subclass must provide. `base` is the base class's short name.
    void Report_Missing(const char *unit, unsigned int line, const char *operation, const char *base) const;

    // The library owns each default handler that it is given. It deletes the previous one, unless that is the new one
    // itself or one of the library's own (the built-in one, Trace_Handler). With null, objects made from now on report
    // nowhere. Call it once, at the start of the program. If memory is short, the new handler is set, and the previous
    // one is not deleted.
    static void Set_Default_Handler(Error_Handler *handler);
    static void Set_Default_Handler(Error_Handler &handler) { Set_Default_Handler(&handler); }
    static void SetDefaultHandler(Error_Handler *handler) { Set_Default_Handler(handler); }
    static void SetDefaultHandler(Error_Handler &handler) { Set_Default_Handler(&handler); }
    static Error_Handler *Get_Default_Handler();
    static Error_Handler *GetDefaultHandler() { return Get_Default_Handler(); }

    static void Destruct(Object *object);  // null is ignored

protected:
    // For subclasses that can be copied: the copy has the same name and reports to the same handler.
    Object(const Object &other);

    // The body of every Construct: returns the object that `make` returns, usually from a `new` expression. If the
    // object is not valid, destroys it and returns null; returns null when there is no memory for it.
    template <class Make>
    static auto Constructed(Make make) -> decltype(make())
    {
        try {
            auto *const object = make();
            if (valid(object)) return object;
            Destruct(object);
        } catch (const std::exception &) {
        }
        return nullptr;
    }

private:
    struct Default;   // a default handler, and whether it has been deleted
    struct Defaults;  // the current Default and its lock
    static Defaults &The_Defaults();
    static std::shared_ptr<Default> Default_Handler();
    Object(const char *name, Error_Handler *handler, std::shared_ptr<Default> default_at_birth);

    const char *name_;
    const std::shared_ptr<Default> default_at_birth_;
    std::atomic<bool> uses_default_;        // handler_ is the one of default_at_birth_; read before handler_
    std::atomic<Error_Handler *> handler_;  // written before uses_default_
};

}  // namespace kernel
