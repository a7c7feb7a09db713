#include "kernel/base/Object.h"

#include "kernel/base/Error_Handler.h"

#include <cstring>

namespace kernel {

// Objects keep this beside the handler they took at birth: it outlives the handler and tells when that one is gone.
struct Object::Default {
    explicit Default(Error_Handler *the_handler) : handler(the_handler) {}

    Error_Handler *handler;
    std::atomic<bool> deleted{false};
};

namespace {

// Objects made before main get its address; it must not be reported to before this file's statics stand.
Trace_Error_Handler built_in_handler;

}  // namespace

const char Object::Name[] = "Abstrakte Basisklasse";

// A function's static: objects of a host may be made before this file's own statics are.
std::shared_ptr<Object::Default> &Object::Default_Handler()
{
    static std::shared_ptr<Default> current = std::make_shared<Default>(&built_in_handler);
    return current;
}

Object::Object(const char *name, Error_Handler *handler)
    : name_(name ? name : "No Name"), handler_(handler ? handler : Default_Handler()->handler),
      default_at_birth_(handler ? nullptr : Default_Handler()), uses_default_(!handler)
{
}

// With the record of the default: a copy made after its handler was deleted must know that, too.
Object::Object(const Object &other)
    : name_(other.name_), handler_(other.handler_.load(std::memory_order_relaxed)),
      default_at_birth_(other.default_at_birth_), uses_default_(other.uses_default_.load(std::memory_order_relaxed))
{
}

Object::Object(const char *name) : Object(name, nullptr) {}

Object::~Object() = default;

const char *Object::GetName() const { return name_; }

bool Object::IsValid() const { return true; }

bool Object::IsInheritedFrom(const char *name) const { return name && std::strcmp(name, Name) == 0; }

void Object::Set_Error_Handler(Error_Handler *handler)
{
    handler_.store(handler, std::memory_order_relaxed);
    // Publishes the handler: who sees that the default is out of use must not meet it any more, as it may be deleted.
    uses_default_.store(false, std::memory_order_release);
}

Error_Handler *Object::Get_Error_Handler() const
{
    if (uses_default_.load(std::memory_order_acquire) && default_at_birth_->deleted.load(std::memory_order_acquire))
        return &built_in_handler;
    return handler_.load(std::memory_order_relaxed);
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
    std::shared_ptr<Default> old = Default_Handler();
    if (handler == old->handler) return;  // deleting it would leave the default dangling
    // In place before the old one goes: what that one's destructor makes gets the new one.
    Default_Handler() = std::make_shared<Default>(handler);
    if (!old->handler || old->handler == &built_in_handler) return;
    old->deleted.store(true, std::memory_order_release);  // read by objects made under it, before they report
    delete old->handler;
}

Error_Handler *Object::Get_Default_Handler() { return Default_Handler()->handler; }

void Object::Destruct(Object *object) { delete object; }

}  // namespace kernel
