// Single bytes to hardware I/O ports, such as the lines of a parallel port.
#pragma once

#include "kernel/base/Object.h"
#include "kernel/base/Semaphore.h"

#include <memory>

namespace platform {
class Port_Device;
}

namespace kernel {

// The way to the system's port driver. Windows: the device Dev_kpiodrv of a driver that the host installs. POSIX: the
// file /dev/port, where only root may write. The variable GNSS_KERNEL_PORT_DEVICE names another device.
//
// Threads:   any; the device is used with the object's Semaphore held, and reports are made without it.
// Ownership: the device, closed at the end of the object at the latest.
// Errors:    kernel/Port_IO, code 213: opened and closed (1), not open (3), "Error in Open", "Close" or "Write" with
//            the system's number and words (3). Code 18 (4): no memory for the object.
class KERNEL_API Port_IO : public virtual Object, public Semaphore {
public:
    static const char Name[];  // "Port IO unter NT"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // A null handler means the default. Nothing is opened yet.
    static Port_IO *Create(Error_Handler *handler);
    static void Destruct(Port_IO *object) { Object::Destruct(object); }
    ~Port_IO() override;

    virtual bool Open();  // closes what is open first
    virtual void Close();
    virtual bool OutByte(unsigned short port, unsigned char value);
    bool IsValid() const override;

protected:
    Port_IO();

    // Reports what went wrong in an operation; nothing for error 0. The first form takes the last error.
    void Error(const char *operation);
    void Error(const char *operation, unsigned long error);

private:
    const std::unique_ptr<platform::Port_Device> device_;  // used with the lock held
};

}  // namespace kernel
