// What tests/data/message_counts.txt says about a recording.
#pragma once

#include "tests/support/folder.h"

#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <utility>

using Message_Counts = std::map<unsigned int, std::pair<std::uint64_t, std::uint64_t>>;  // message: frames, bytes

inline Message_Counts Counts_Of(const std::string &recording)
{
    std::istringstream table(Whole_File(KERNEL_TEST_DATA "/message_counts.txt"));
    Message_Counts counts;
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string name;
        unsigned int message = 0;
        std::pair<std::uint64_t, std::uint64_t> count;
        if (fields >> name >> message >> count.first >> count.second && name == recording) counts[message] = count;
    }
    return counts;
}
