// Error numbers and their texts. Every platform uses the numbers of Win32 and Winsock. The POSIX half translates
// the system's numbers once, at the point of failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

// The numbers that the library refers to.
enum Error : std::uint32_t {
    error_none = 0,
    error_not_found = 2,  // a file
    error_path_not_found = 3,
    error_too_many_open = 4,
    error_access_denied = 5,
    error_invalid_handle = 6,
    error_no_memory = 8,
    error_write_fault = 29,
    error_sharing_violation = 32,
    error_file_exists = 80,
    error_invalid_parameter = 87,
    error_disk_full = 112,
    error_insufficient_buffer = 122,
    error_invalid_name = 123,
    error_module_not_found = 126,     // a library
    error_procedure_not_found = 127,  // a function of a library
    error_busy = 170,
    error_bad_executable = 193,
    error_name_too_long = 206,
    error_bad_file_type = 222,  // not a regular file
    error_directory = 267,      // a link, or no folder
    error_operation_aborted = 995,
    error_io_incomplete = 996,
    error_io_pending = 997,
    error_invalid_window = 1400,
    error_not_enough_quota = 1816,
    error_not_socket = 10038,
    error_already_connected = 10056,
    error_connection_refused = 10061,
    error_host_not_found = 11001,
};

// The calling thread's last error. Read it right after a failed call; a successful call may change it.
std::uint32_t last_error();
void set_last_error(std::uint32_t error);

constexpr std::size_t most_error_text = 960;  // [bytes], terminator included; longer texts are cut

// The system's text for a number, with the line end that the system gives it; never empty. The first form allocates
// nothing.
void error_text(std::uint32_t error, char (&text)[most_error_text]);
inline std::string error_text(std::uint32_t error)
{
    char text[most_error_text];
    error_text(error, text);
    return text;
}
// What error_text returns if the system has no text.
inline std::string unknown_error_text(std::uint32_t error) { return "Unknown error " + std::to_string(error); }

}  // namespace platform
