// What a former user of a serial port leaves behind: flow control by characters.
#pragma once

#ifdef _WIN32
#include <windows.h>
#undef near  // two words that it takes away
#undef far
#else
#include <cstdlib>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#endif

#include <string>

// number: of the port COMn. False when the port does not take it.
inline bool Leave_Flow_Control(int number)
{
#ifdef _WIN32
    const std::string name = "\\\\.\\COM" + std::to_string(number);
    HANDLE const port = CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    DCB state{};
    state.DCBlength = sizeof state;
    const bool got = GetCommState(port, &state) != 0;
    state.fOutX = state.fInX = TRUE;
    const bool set = got && SetCommState(port, &state) && GetCommState(port, &state) && state.fOutX && state.fInX;
    CloseHandle(port);
    return set;
#else
    const char *const folder = std::getenv("GNSS_KERNEL_COM_DIR");
    const std::string name = std::string(folder ? folder : "").append("/COM").append(std::to_string(number));
    const int port = open(name.c_str(), O_RDWR | O_NOCTTY);
    termios line{};
    const bool got = tcgetattr(port, &line) == 0;
    line.c_iflag |= IXON | IXOFF;
    const bool set = got && tcsetattr(port, TCSANOW, &line) == 0;
    close(port);
    return set;
#endif
}
