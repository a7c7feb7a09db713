#include "platform/port_io.h"

#include <bit>
#include <cstdlib>

namespace platform {

static_assert(std::endian::native == std::endian::little, "the record is sent as it lies in memory");

const char *Port_Device::name(const char *usual)
{
    const char *const named = std::getenv("GNSS_KERNEL_PORT_DEVICE");
    return named && *named ? named : usual;
}

Port_Device::~Port_Device()
{
    if (is_open()) close();
}

}  // namespace platform
