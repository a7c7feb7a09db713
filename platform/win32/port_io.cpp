#include "platform/port_io.h"

#include <windows.h>

#include <utility>

namespace platform {

namespace {

HANDLE handle_of(std::intptr_t native) { return reinterpret_cast<HANDLE>(native); }

}  // namespace

// INVALID_HANDLE_VALUE is -1, too.
bool Port_Device::open()
{
    native_ = reinterpret_cast<std::intptr_t>(
        CreateFileA(name("\\\\.\\Dev_kpiodrv"), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    return is_open();
}

bool Port_Device::send(const Port_Request &request)
{
    Port_Request record = request;
    DWORD returned = 0;
    return DeviceIoControl(handle_of(native_), Port_Request::control_code, &record, sizeof record, nullptr, 0,
                           &returned, nullptr) != 0;
}

bool Port_Device::close() { return CloseHandle(handle_of(std::exchange(native_, closed))) != 0; }

}  // namespace platform
