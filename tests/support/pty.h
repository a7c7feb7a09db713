// A serial line to test on: a pseudo-terminal, of which the test holds the far end. POSIX only.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <termios.h>
#include <unistd.h>
#include <utility>

class Pty {
public:
    Pty() : far_end_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
    {
        if (far_end_ < 0 || grantpt(far_end_) != 0 || unlockpt(far_end_) != 0) std::abort();
        name_ = ptsname(far_end_);
    }
    ~Pty() { Unplug(); }
    Pty(const Pty &) = delete;
    Pty &operator=(const Pty &) = delete;

    const std::string &Name() const { return name_; }  // of the end that a program opens
    void Unplug()
    {
        if (far_end_ >= 0) close(std::exchange(far_end_, -1));
    }

    // Sends to the port, which takes some 4 KiB that nobody has read; false when it takes no more for 5 s.
    bool Send(const std::string &bytes) const
    {
        pollfd polled{far_end_, POLLOUT, 0};
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t put = write(far_end_, bytes.data() + sent, bytes.size() - sent);
            if (put < 0 && poll(&polled, 1, 5000) < 1) return false;
            if (put > 0) sent += static_cast<std::size_t>(put);
        }
        return true;
    }
    // What comes from the port, up to n bytes; less when nothing comes for 5 s.
    std::string Receive(std::size_t n) const
    {
        std::string bytes;
        char block[4096];
        pollfd polled{far_end_, POLLIN, 0};
        while (bytes.size() < n && poll(&polled, 1, 5000) > 0) {
            const ssize_t got = read(far_end_, block, std::min(sizeof block, n - bytes.size()));
            if (got <= 0) break;
            bytes.append(block, static_cast<std::size_t>(got));
        }
        return bytes;
    }
    // The line settings as the system has them.
    termios Line() const
    {
        termios line{};
        if (tcgetattr(far_end_, &line) != 0) std::abort();
        return line;
    }

private:
    int far_end_;
    std::string name_;
};
