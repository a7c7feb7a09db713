// The program gnss_stream as its users start it.
#pragma once

#include "tests/support/Message_Counts.h"
#include "tests/support/folder.h"
#include "tests/support/peer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
constexpr bool windows = true;
inline int Exit_Status(int result) { return result; }
#else
#include <sys/wait.h>
constexpr bool windows = false;
inline int Exit_Status(int result) { return WIFEXITED(result) ? WEXITSTATUS(result) : -1; }
#endif

inline std::string Quoted(const std::string &text) { return '"' + text + '"'; }

inline std::string Native(const std::string &path) { return std::filesystem::absolute(path).make_preferred().string(); }

inline std::string Recording(const std::string &name) { return Native(KERNEL_TEST_DATA "/" + name); }

constexpr char week_change[] = "GMSD7_20121014.rtcm3";
constexpr char clean[] = "day30_first1000.rtcm3";

struct Result {
    int exit = -1;
    std::string out, err;
    Message_Counts messages;
    std::map<std::string, std::uint64_t> totals;
};

// "1004 125 21164" is a message, "bytes read 262144" a total.
inline void Read_Table(Result &result)
{
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        unsigned int message = 0;
        std::pair<std::uint64_t, std::uint64_t> count;
        if (fields >> message >> count.first >> count.second) {
            result.messages[message] = count;
            continue;
        }
        const std::size_t name_end = line.find("  ");
        const std::size_t value = line.find_last_of(' ');
        if (name_end != 0 && name_end != std::string::npos)
            result.totals[line.substr(0, name_end)] = std::strtoull(line.c_str() + value, nullptr, 10);
    }
}

class gnss_stream : public testing::Test {
protected:
    // A program that runs beside the test.
    struct Started {
        std::string err;
        std::future<Result> result;
    };
    Started Start(const std::string &arguments, const std::string &before = "")
    {
        const std::string out = folder / ("out" + std::to_string(++runs_)), err = out + ".err";
        return {err, std::async(std::launch::async, [=] {
                    std::string command = before + Quoted(Native(GNSS_STREAM)) + " " + arguments + " > " + Quoted(out) +
                                          " 2> " + Quoted(err);
                    if (windows) command = Quoted(command);  // the command interpreter takes the outer pair away
                    Result result;
                    result.exit = Exit_Status(std::system(command.c_str()));
                    result.out = Whole_File(out);
                    result.err = Whole_File(err);
                    Read_Table(result);
                    return result;
                })};
    }
    Result Run(const std::string &arguments, const std::string &before = "")
    {
        return Start(arguments, before).result.get();
    }
    // The port of a server that was started with port 0 and status lines; 0: it does not tell.
    static std::uint16_t Port_Of(const Started &started)
    {
        const std::string mark = "listening on port ";
        std::size_t at = 0;
        std::string said;
        const bool told = Soon([&] {
            said = Whole_File(started.err);
            at = said.find(mark);
            return at != std::string::npos && said.find(',', at) != std::string::npos && said[at + mark.size()] != '0';
        });
        return told ? static_cast<std::uint16_t>(std::stoul(said.substr(at + mark.size()))) : std::uint16_t{0};
    }
    std::string List(const std::vector<std::string> &entries) const
    {
        std::string text;
        for (const std::string &entry : entries) text += entry + "\n";
        return folder.Write("list.txt", text);
    }

    Test_Folder folder;

private:
    int runs_ = 0;
};
