// What a table tests/data/*_cells.csv says of the signals in a recording.
#pragma once

#include "tests/support/folder.h"

#include <cctype>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

// In the table's units; a blank is NaN.
struct Cell_Values {
    double pseudorange, phase, doppler, cn0, lock, half, channel;
};
using Cell_Key = std::tuple<int, int, std::string, std::string>;  // week, time of week [ms], satellite, code or band
using Cell_Table = std::map<Cell_Key, Cell_Values>;

inline Cell_Table Cells_Of(const std::string &table)
{
    const auto number = [](const std::string &text) {
        const bool blank = text.find_first_of("0123456789") == std::string::npos;
        return blank ? std::numeric_limits<double>::quiet_NaN() : std::stod(text);
    };
    std::istringstream lines(Whole_File(std::string(KERNEL_TEST_DATA "/") + table));
    Cell_Table cells;
    for (std::string line; std::getline(lines, line);) {
        if (!std::isdigit(static_cast<unsigned char>(line[0]))) continue;  // the heading
        std::vector<std::string> f;
        std::istringstream fields(line + ',');
        for (std::string field; std::getline(fields, field, ',');) f.push_back(field);
        for (std::size_t at = 4; at + 7 <= f.size(); at += 7) {
            cells[{std::stoi(f[0]), std::stoi(f[1]), f[2], f[at]}] = {
                number(f[at + 1]), number(f[at + 2]), number(f[at + 3]), number(f[at + 4]),
                number(f[at + 5]), number(f[at + 6]), number(f[3])};
        }
    }
    return cells;
}
