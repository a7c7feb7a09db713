#include "kernel/base/Object.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/Immortal_internal.h"

#include <cstring>
#include <mutex>
#include <utility>

namespace kernel {

// The record of a default handler. Objects made with that handler share the record, which outlives the handler and says
// whether it has been deleted.
struct Object::Default {
    explicit Default(Error_Handler *the_handler) : handler(the_handler) {}

    std::atomic<Error_Handler *> handler;
    std::atomic<bool> deleted{false};
};

namespace {

// A static of a function and not of the file: statics of a host may make objects before those of this file exist.
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

// The lock is a leaf: it is held only to copy or replace the pointer.
struct Object::Defaults {
    std::mutex lock;
    Default built_in{Built_In_Handler()};
    std::shared_ptr<Default> current{std::shared_ptr<Default>(), &built_in};  // owns nothing, so it allocates nothing
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

// Copies the record of the default handler as well: a copy made after the handler was deleted must not use it.
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
    // Publishes the constructed handler to threads that read the pointer.
    handler_.store(handler, std::memory_order_release);
    // Cleared second: a thread that reads false here must not read the default handler afterwards, which may be
    // deleted.
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
    constexpr Err_Code operation_missing = 34;
    Report(unit, line)
        .Print_Out(Error_Handler::ES_Fatal, operation_missing, "Please implement %s in class %s inherited from %s",
                   operation, GetName(), base);
}

void Object::Set_Default_Handler(Error_Handler *handler)
{
    std::shared_ptr<Default> old;
    {
        Defaults &defaults = The_Defaults();
        const std::lock_guard guard(defaults.lock);
        if (handler == defaults.current->handler) return;  // deleting it would leave the default dangling
        // Set the new one before deleting the old one: objects made by the old handler's destructor get the new one.
        try {
            old = std::exchange(defaults.current, std::make_shared<Default>(handler));
        } catch (const std::bad_alloc &) {
            // The new handler takes over the record of the old one. Objects made under the old handler keep using it.
            defaults.current->handler = handler;
            return;
        }
    }
    if (!Is_Deletable(old->handler)) return;
    old->deleted.store(true, std::memory_order_release);  // Get_Error_Handler() of objects made under it reads this
    delete old->handler;
}

Error_Handler *Object::Get_Default_Handler() { return Default_Handler()->handler; }

void Object::Destruct(Object *object) { delete object; }

}  // namespace kernel
