// The command line of gnss_config.
#pragma once

#include "host/gnss_config/Registry_Text.h"

#include <string>
#include <vector>

namespace host {

enum class Config_Command { list, read, write, remove, export_text, import_text };

struct Config_Options {
    Config_Command command = Config_Command::list;
    Key_Name key;
    std::string name;                 // of a value
    long index = -1;                  // of an array's element; negative: none
    std::string type = "string";      // of a written value: see --help
    std::vector<std::string> values;  // to write
    std::string file = "-";           // for export and import
    bool recursive = false;           // list
    bool password = false;            // read
    bool whole_key = false;           // remove
};

// Exit status of the program.
enum Config_Exit : int { config_fine = 0, config_failed = 1, config_usage = 2 };

// Help and version go to standard output, errors to standard error. False: the program ends with `exit`.
bool Parse_Config_Line(int argc, const char *const *argv, Config_Options &options, int &exit);

}  // namespace host
