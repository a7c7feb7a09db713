#include "kernel/base/Object.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Immortal_internal.h"

#include <cstring>
#include <mutex>
#include <utility>

namespace kernel {

// Objects keep this beside the handler they took at birth: it outlives the handler and tells when that one is gone.
struct Object::Default {
    explicit Default(Error_Handler *the_handler) : handler(the_handler) {}

    std::atomic<Error_Handler *> handler;
    std::atomic<bool> deleted{false};
};

namespace {

// Functions' statics: a host's own statics may make objects before those of this file are there, and after their end.
Error_Handler *Built_In_Handler()
{
    static Immortal<Trace_Error_Handler> built_in_handler;
    return &*built_in_handler;
}

bool Is_Deletable(const Error_Handler *handler)
{
    return handler && handler != Built_In_Handler() && handler != &Trace_Handler &&
           handler != &Error_Handler::Or_Silent(nullptr);
}

}  // namespace

// The lock is a leaf: taken to copy or replace the pointer, and for nothing else.
struct Object::Defaults {
    std::mutex lock;
    Default built_in{Built_In_Handler()};
    std::shared_ptr<Default> current{std::shared_ptr<Default>(), &built_in};  // owns nothing: the first needs no memory
};

const char Object::Name[] = "Abstrakte Basisklasse";

Object::Defaults &Object::The_Defaults()
{
    static Immortal<Defaults> defaults;
    return *defaults;
}

std::shared_ptr<Object::Default> Object::Default_Handler()
{
    Defaults &defaults = The_Defaults();
    const std::lock_guard guard(defaults.lock);
    return defaults.current;
}

Object::Object(const char *name, Error_Handler *handler, std::shared_ptr<Default> default_at_birth)
    : name_(name ? name : "No Name"), default_at_birth_(std::move(default_at_birth)), uses_default_(!handler),
      handler_(handler ? handler : default_at_birth_->handler.load(std::memory_order_acquire))
{
}

Object::Object(const char *name, Error_Handler *handler) : Object(name, handler, handler ? nullptr : Default_Handler())
{
}

// With the record of the default: a copy made after its handler was deleted must know that, too.
Object::Object(const Object &other)
    : name_(other.name_), default_at_birth_(other.default_at_birth_),
      uses_default_(other.uses_default_.load(std::memory_order_acquire)),
      handler_(other.handler_.load(std::memory_order_acquire))
{
}

Object::Object(const char *name) : Object(name, nullptr) {}

Object::~Object() = default;

const char *Object::GetName() const { return name_; }

bool Object::IsValid() const { return true; }

bool Object::IsInheritedFrom(const char *name) const { return name && std::strcmp(name, Name) == 0; }

void Object::Set_Error_Handler(Error_Handler *handler)
{
    // Publishes the handler as it was constructed, to whoever reads the pointer.
    handler_.store(handler, std::memory_order_release);
    // Then that the default is out of use: who sees that must not meet it any more, as it may be deleted.
    uses_default_.store(false, std::memory_order_release);
}

Error_Handler *Object::Get_Error_Handler() const
{
    if (uses_default_.load(std::memory_order_acquire) && default_at_birth_->deleted.load(std::memory_order_acquire))
        return Built_In_Handler();
    return handler_.load(std::memory_order_acquire);
}

Error_Handler &Object::Report(const char *unit, unsigned int line) const
{
    return *Error_Handler::Or_Silent(Get_Error_Handler()).Set(unit, line);
}

void Object::Report_Missing(const char *unit, unsigned int line, const char *operation, const char *base) const
{
    Report(unit, line)
        .Print_Out(Error_Handler::ES_Fatal, 34, "Please implement %s in class %s inherited from %s", operation,
                   GetName(), base);
}

void Object::Set_Default_Handler(Error_Handler *handler)
{
    std::shared_ptr<Default> old;
    {
        Defaults &defaults = The_Defaults();
        const std::lock_guard guard(defaults.lock);
        if (handler == defaults.current->handler) return;  // deleting it would leave the default dangling
        // In place before the old one goes: what that one's destructor makes gets the new one.
        try {
            old = std::exchange(defaults.current, std::make_shared<Default>(handler));
        } catch (const std::bad_alloc &) {
            // The new one takes over the record of the old one, to which the objects made under it go on reporting.
            defaults.current->handler = handler;
            return;
        }
    }
    if (!Is_Deletable(old->handler)) return;
    old->deleted.store(true, std::memory_order_release);  // read by objects made under it, before they report
    delete old->handler;
}

Error_Handler *Object::Get_Default_Handler() { return Default_Handler()->handler; }

void Object::Destruct(Object *object) { delete object; }

}  // namespace kernel
