// Shows and changes the values of the registry; see --help.
#include "host/gnss_config/Config_Run.h"

#include <exception>
#include <iostream>

int main(int argc, char **argv)
{
    host::Config_Options options;
    int exit = host::config_fine;
    try {
        if (!host::Parse_Config_Line(argc, argv, options, exit)) return exit;
        return host::Run_Config(options, std::cin, std::cout, std::cerr);
    } catch (const std::exception &failure) {
        std::cerr << "gnss_config: " << failure.what() << '\n';
        return host::config_failed;
    }
}
