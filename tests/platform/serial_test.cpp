// Serial ports on pseudo-terminals; POSIX only.
#include "platform/serial.h"

#include "platform/clock.h"
#include "platform/error.h"

#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/pty.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <thread>

using namespace platform;

namespace {

std::shared_ptr<Serial_Port> Open(const Pty &pty) { return Serial_Port::open(pty.Name().c_str()); }

constexpr speed_t speed_other = 010000;  // the kernel's BOTHER: a number of its own
constexpr Serial_Timeouts no_waiting = {Serial_Timeouts::no_wait, 0, 0, 0, 0};

std::string Read(Serial_Port &port, std::size_t n)
{
    std::string bytes(n, '\0');
    std::size_t got = 0;
    if (!port.read(bytes.data(), n, got)) return "error " + std::to_string(last_error());
    bytes.resize(got);
    return bytes;
}

}  // namespace

TEST(serial, finds_ports_by_number_and_keeps_others_out)
{
    Pty pty;
    Test_Folder folder;
    const Environment_Setting setting("GNSS_KERNEL_COM_DIR", folder / "");
    std::filesystem::create_symlink(pty.Name(), folder / "COM12");
    std::filesystem::create_symlink(folder / "unplugged", folder / "COM1");
    const std::string file = folder.Write("file", "");
    for (const char *name : {"COM12", "com12", "\\\\.\\COM12"}) {
        auto port = Serial_Port::open(name);
        ASSERT_TRUE(port) << name;
        EXPECT_FALSE(Open(pty));  // while it is open
        EXPECT_EQ(last_error(), 5u);
    }
    EXPECT_TRUE(Serial_Port::open("ptmx"));  // a name alone is a device of the system
    for (const char *name : {"COM1", "COM13", "COM999999", "COM", "", file.c_str()}) {
        EXPECT_FALSE(Serial_Port::open(name)) << name;
        EXPECT_EQ(last_error(), 2u) << name;
    }
}

TEST(serial, sets_the_line)
{
    Pty pty;
    const auto port = Open(pty);
    Serial_Settings settings;
    const std::pair<std::uint32_t, speed_t> speeds[] = {{9600, B9600}, {4000000, B4000000}, {250000, speed_other}};
    for (const auto &[baud, name] : speeds) {
        settings.baud = baud;
        EXPECT_TRUE(port->set_settings(settings));
        const termios line = pty.Line();
        EXPECT_EQ(cfgetospeed(&line), name) << baud;
        Serial_Settings read_back;
        EXPECT_TRUE(port->get_settings(read_back) && read_back.baud == baud);
    }
    // A pseudo-terminal drops PARENB and any size but CS8.
    settings = {1200, 8, Serial_Settings::odd_parity, Serial_Settings::two_stop_bits, Serial_Settings::handshake};
    EXPECT_TRUE(port->set_settings(settings));
    EXPECT_EQ(pty.Line().c_cflag & (CSTOPB | PARODD | CRTSCTS | CLOCAL), CSTOPB | PARODD | CRTSCTS | CLOCAL);
    for (const auto change :
         {+[](Serial_Settings &s) { s.baud = 0; }, +[](Serial_Settings &s) { s.byte_size = 9; },
          +[](Serial_Settings &s) { s.byte_size = 4; }, +[](Serial_Settings &s) { s.byte_size = 5; },
          +[](Serial_Settings &s) { s.stop_bits = Serial_Settings::one5_stop_bits; }}) {
        Serial_Settings wrong = settings, kept;
        change(wrong);
        EXPECT_TRUE(!port->set_settings(wrong) && last_error() == 87);
        EXPECT_TRUE(port->get_settings(kept) && kept == settings);
    }
}

TEST(serial, a_read_ends_by_its_limits)
{
    Pty pty;
    const auto port = Open(pty);
    const std::pair<Serial_Timeouts, std::uint64_t> cases[] = {{no_waiting, 0}, {{0, 1, 40}, 49}, {{20, 0, 60000}, 20}};
    for (const auto &[timeouts, least_ms] : cases) {
        ASSERT_TRUE(port->set_timeouts(timeouts) && pty.Send("abc"));
        const std::uint64_t begin = clock_ms();
        EXPECT_EQ(Read(*port, 10), "abc");
        EXPECT_TRUE(clock_ms() - begin >= least_ms && clock_ms() - begin < 10000) << clock_ms() - begin;
    }
    ASSERT_TRUE(port->set_timeouts({}));
    std::string held(10, '.');
    std::size_t got = 1;
    EXPECT_TRUE(port->read_held(held.data(), 10, got) && got == 0);  // never waits
    ASSERT_TRUE(pty.Send("abc"));
    EXPECT_TRUE(Soon([&] { return port->read_held(held.data(), 10, got) && got > 0; }));
    EXPECT_EQ(held.substr(0, got), "abc");
    std::thread sender([&] {
        for (const char *piece : {"ab", "cd", "e"}) {
            sleep_ms(20);
            pty.Send(piece);
        }
    });
    EXPECT_EQ(Read(*port, 5), "abcde");  // waits for all without a limit
    sender.join();
}

TEST(serial, adopts_an_open_port_and_passes_every_byte_as_it_is)
{
    Pty pty;
    const int descriptor = open(pty.Name().c_str(), O_RDWR | O_NOCTTY);
    const auto port = Serial_Port::adopt(reinterpret_cast<void *>(std::intptr_t{descriptor}));
    ASSERT_TRUE(port && port->set_timeouts(no_waiting));
    EXPECT_EQ(Read(*port, 10), "");  // raw and without waiting, like a port that it opened itself
    ASSERT_TRUE(pty.Send(Pattern(3000)));
    EXPECT_TRUE(Read(*port, 3000) == Pattern(3000));
    Serial_Settings settings;
    pty.Unplug();
    EXPECT_TRUE(Read(*port, 10) == "error 6" && !port->get_settings(settings) && last_error() == 6);
    for (void *wrong : {static_cast<void *>(nullptr), reinterpret_cast<void *>(-1), reinterpret_cast<void *>(9999)}) {
        EXPECT_FALSE(Serial_Port::adopt(wrong));
        EXPECT_EQ(last_error(), 6u);
    }
}
