// The file of a history: an event table of the library whose times are UTC, in seconds since 1970.
#pragma once

#include "kernel/tables/EventTabelle.h"

#include <memory>
#include <string>

namespace host {

struct Event_Table_Deleter {
    void operator()(kernel::EventTabelle *table) const { kernel::EventTabelle::Delete(table); }
};
using Event_Table = std::unique_ptr<kernel::EventTabelle, Event_Table_Deleter>;

// The name of all events together, for scans. No event can have it.
constexpr char all_events[] = "";

enum class Missing_File { is_empty, is_error };

// The table in a file, or null and what is wrong. A file that is no event file is refused, so that nobody writes a
// history over a recording. An entry whose text is longer than the library's most_text is cut.
Event_Table Read_Event_File(const std::string &name, Missing_File missing, std::string &error);

// Replaces the file in one step. False: the old one is still there.
bool Write_Event_File(const std::string &name, kernel::EventTabelle &table);

}  // namespace host
