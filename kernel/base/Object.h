// The root class: a name and a place to report to.
#pragma once

#include "kernel/base/kernel_api.h"

#include <atomic>
#include <exception>
#include <memory>

namespace kernel {

class Error_Handler;

// Every named object of the library; inherited virtually, so that a connectable object has exactly one name and handler.
//
// Threads:   any thread may read, replace and report to the handler at any moment but destruction; the rest is constant from
//            construction on. Objects are made and destroyed on any thread, also while the process ends and while another
//            thread sets the default handler; but nobody may be inside a default handler that is being replaced.
// Ownership: neither name nor handler is owned: both outlive the object. A handler taken from the default is the
//            library's; an object that outlives its default reports to the built-in one from then on.
// Errors:    never throws; units report through Report().
class KERNEL_API Object {
public:
    static const char Name[];  // "Abstrakte Basisklasse"
    static const char *ClassName() { return Name; }

    // A null name becomes "No Name"; a null handler (or none) becomes the default handler of this moment.
    explicit Object(const char *name, Error_Handler *handler);
    explicit Object(const char *name);
    Object &operator=(const Object &) = delete;

    virtual const char *GetName() const;
    virtual bool IsValid() const;
    // True when `name` is, letter by letter, the Name of this class or of a base; null is false.
    virtual bool IsInheritedFrom(const char *name) const;
    virtual void Set_Error_Handler(Error_Handler *handler);  // null: reports vanish
    virtual ~Object();

    void Set_Error_Handler(Error_Handler &handler) { Set_Error_Handler(&handler); }
    void SetErrorHandler(Error_Handler *handler) { Set_Error_Handler(handler); }
    void SetErrorHandler(Error_Handler &handler) { Set_Error_Handler(&handler); }
    Error_Handler *Get_Error_Handler() const;
    Error_Handler *GetErrorHandler() const { return Get_Error_Handler(); }

    bool valid() const { return IsValid(); }
    static bool valid(const Object *object) { return object && object->IsValid(); }

    // How a unit speaks: notes unit and line in this object's handler and answers the handler to print with; for a null
    // handler one that swallows everything. `unit` is a constant such as "kernel/CLIENT".
    Error_Handler &Report(const char *unit, unsigned int line) const;
    // "Please implement %s in class %s inherited from %s" at level 4 with code 34: a base operation was called that a
    // subclass must provide. `base` is the base class's short name.
    void Report_Missing(const char *unit, unsigned int line, const char *operation, const char *base) const;

    // The library owns each default handed to it: the previous one is deleted, unless it is the new one itself or one of
    // the library's own (the built-in one, Trace_Handler). Null: objects made from now on report nowhere. Set it once, at
    // start. Without memory the new one is in place all the same, and the previous one is kept.
    static void Set_Default_Handler(Error_Handler *handler);
    static void Set_Default_Handler(Error_Handler &handler) { Set_Default_Handler(&handler); }
    static void SetDefaultHandler(Error_Handler *handler) { Set_Default_Handler(handler); }
    static void SetDefaultHandler(Error_Handler &handler) { Set_Default_Handler(&handler); }
    static Error_Handler *Get_Default_Handler();
    static Error_Handler *GetDefaultHandler() { return Get_Default_Handler(); }

    static void Destruct(Object *object);  // null is ignored

protected:
    // For classes that can be copied: the copy has the same name and reports to the same handler.
    Object(const Object &other);

    // The body of every Construct: the object that `make` returns, a `new` expression as a rule. Null after destroying it
    // when it is not valid, and when there is no memory for it.
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
    struct Default;   // a default handler and whether it has been deleted
    struct Defaults;  // the one of this moment
    static Defaults &The_Defaults();
    static std::shared_ptr<Default> Default_Handler();
    Object(const char *name, Error_Handler *handler, std::shared_ptr<Default> default_at_birth);

    const char *name_;
    const std::shared_ptr<Default> default_at_birth_;
    std::atomic<bool> uses_default_;        // handler_ is the one of default_at_birth_; read before handler_
    std::atomic<Error_Handler *> handler_;  // written before uses_default_
};

}  // namespace kernel
