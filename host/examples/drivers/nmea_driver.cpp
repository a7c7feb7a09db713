// NMEA 0183 as a driver. Record server 0: positions (GGA); 1: times (RMC), as epochs without satellites.
// Option: leap_seconds, GPS - UTC [s].
#include "Stream_Driver.h"

#include "host/decoders/Nmea_Decoder.h"

#include <iterator>

namespace {

struct Nmea {
    static constexpr char name[] = "nmea";
    using Options = host::Nmea_Options;
    using Decoder = host::Nmea_Decoder;

    static bool Set(Options &options, std::string_view option, const char *value)
    {
        const auto seconds = drivers::Number(value, 0, 100);
        if (option != "leap_seconds" || !seconds) return false;
        options.leap_seconds = *seconds;
        return true;
    }
    static kernel::Object_Server *Server(Decoder &decoder, unsigned int index)
    {
        kernel::Object_Server *const servers[] = {&decoder.Positions(), &decoder.Times()};
        return index < std::size(servers) ? servers[index] : nullptr;
    }
};

}  // namespace

KERNEL_DRIVER_ENTRY const char *DLL_CreateName(int version) { return drivers::Name_For<Nmea>(version); }
KERNEL_DRIVER_ENTRY kernel::DLL_Loader *DLL_CreateLoader(int version, kernel::Error_Handler *handler)
{
    return drivers::New_Driver<Nmea>(version, handler);
}
