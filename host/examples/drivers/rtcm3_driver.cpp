// RTCM 3 as a driver. Record server 0: epochs; 1 and 2: ephemerides of GPS and GLONASS; 3: positions.
// Options: near_week and start_week [GPS weeks], leap_seconds, GPS - UTC [s]; beidou_in_gps_time, 0 or 1.
#include "Stream_Driver.h"

#include "host/decoders/Rtcm3_Decoder.h"

#include <iterator>

namespace {

struct Rtcm3 {
    static constexpr char name[] = "rtcm3";
    using Options = host::Rtcm3_Options;
    using Decoder = host::Rtcm3_Decoder;

    static bool Set(Options &options, std::string_view option, const char *value)
    {
        if (option == "near_week") return Set(options.near_week, drivers::Number(value, 0, 65534));
        if (option == "start_week") return Set(options.start_week, drivers::Number(value, 0, 65534));
        if (option == "leap_seconds") return Set(options.leap_seconds, drivers::Number(value, 0, 100));
        const auto flag = drivers::Number(value, 0, 1);
        if (option != "beidou_in_gps_time" || !flag) return false;
        options.beidou_in_gps_time = *flag == 1;
        return true;
    }
    static kernel::Object_Server *Server(Decoder &decoder, unsigned int index)
    {
        kernel::Object_Server *const servers[] = {&decoder.Observations(), &decoder.Ephemerides(),
                                                  &decoder.Glonass_Ephemerides(), &decoder.Positions()};
        return index < std::size(servers) ? servers[index] : nullptr;
    }

private:
    static bool Set(std::optional<int> &option, std::optional<int> number)
    {
        if (number) option = number;
        return number.has_value();
    }
};

}  // namespace

KERNEL_DRIVER_ENTRY const char *DLL_CreateName(int version) { return drivers::Name_For<Rtcm3>(version); }
KERNEL_DRIVER_ENTRY kernel::DLL_Loader *DLL_CreateLoader(int version, kernel::Error_Handler *handler)
{
    return drivers::New_Driver<Rtcm3>(version, handler);
}
