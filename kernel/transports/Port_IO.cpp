#include "kernel/transports/Port_IO.h"

#include "kernel/base/Error_Handler.h"

#include "platform/error.h"
#include "platform/port_io.h"

#include <cstring>

namespace kernel {

namespace {

const char unit[] = "kernel/Port_IO";
constexpr Err_Code memory_code = 18, driver_code = 213;

}  // namespace

const char Port_IO::Name[] = "Port IO unter NT";

Port_IO::Port_IO() : Object(ClassName()), device_(std::make_unique<platform::Port_Device>()) {}

Port_IO::~Port_IO() { Port_IO::Close(); }

Port_IO *Port_IO::Create(Error_Handler *handler)
{
    Port_IO *const object = Constructed([] { return new Port_IO; });
    if (object) {
        if (handler) object->Set_Error_Handler(handler);
        return object;
    }
    Error_Handler::Or_Silent(handler ? handler : Get_Default_Handler())
        .Set(unit, __LINE__)
        ->Print_Out(Error_Handler::ES_Fatal, memory_code, "No memory to allocated class Port_IO()");
    return nullptr;
}

bool Port_IO::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

bool Port_IO::IsValid() const { return Object::IsValid() && Semaphore::IsValid(); }

// Opening a device of this kind does not wait, so that the lock may be held.
bool Port_IO::Open()
{
    unsigned long close_error = 0, open_error = 0;
    {
        const Semaphore_Guard guard(*this);
        if (device_->is_open() && !device_->close()) close_error = platform::last_error();
        if (!device_->open()) open_error = platform::last_error();
    }
    Error("Close", close_error);
    Error("Open", open_error);
    if (open_error != 0) return false;
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Information, driver_code, "kpiodrv.sys: Open successfully!");
    return true;
}

void Port_IO::Close()
{
    unsigned long error = 0;
    {
        const Semaphore_Guard guard(*this);
        if (!device_->is_open()) return;
        if (!device_->close()) error = platform::last_error();
    }
    if (error != 0) return Error("Close", error);
    Report(unit, __LINE__).Print_Out(Error_Handler::ES_Information, driver_code, "kpiodrv.sys: Close successfully!");
}

bool Port_IO::OutByte(unsigned short port, unsigned char value)
{
    bool open = false;
    unsigned long error = 0;
    {
        const Semaphore_Guard guard(*this);
        open = device_->is_open();
        if (open && device_->send({.port = port, .value = value})) return true;
        error = platform::last_error();
    }
    if (open)
        Error("Write", error);
    else
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, driver_code, "kpiodrv.sys: Driver not open!");
    return false;
}

void Port_IO::Error(const char *operation) { Error(operation, platform::last_error()); }

void Port_IO::Error(const char *operation, unsigned long error)
{
    if (error == 0) return;
    const auto number = static_cast<std::uint32_t>(error);
    char text[platform::most_error_text];
    platform::error_text(number, text);
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, driver_code, "kpiodrv.sys: Error in %s Code: %d=0x%08X => %s", operation,
                   static_cast<int>(number), number, text);
}

}  // namespace kernel
