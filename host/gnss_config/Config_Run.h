// What gnss_config does.
#pragma once

#include "host/gnss_config/Config_Options.h"

#include <iosfwd>

namespace host {

// Returns the exit status. `in` is read by import and for a password "-"; `out` takes what is shown, `err` what went
// wrong, one line each.
int Run_Config(const Config_Options &options, std::istream &in, std::ostream &out, std::ostream &err);

}  // namespace host
