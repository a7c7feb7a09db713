// Serial ports on pseudo-terminals; POSIX only.
#include "platform/serial.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/fault.h"

#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/pty.h"

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

bool Write(Serial_Port &port, const std::string &bytes, std::size_t &put)
{
    Event never;
    return port.write(bytes.data(), bytes.size(), put, never);
}

std::uint32_t Error_Of(bool result) { return result ? 0 : last_error(); }

}  // namespace

TEST(serial, belongs_to_who_opened_it)
{
    Pty pty;
    auto port = Open(pty);
    ASSERT_TRUE(port);
    EXPECT_FALSE(Open(pty));
    EXPECT_EQ(last_error(), 5u);
    port->close();
    EXPECT_FALSE(Open(pty));  // until nobody is inside any more
    port.reset();
    EXPECT_TRUE(Open(pty));
}

TEST(serial, finds_ports_by_number)
{
    Pty pty;
    Test_Folder folder;
    const Environment_Setting setting("GNSS_KERNEL_COM_DIR", folder / "");
    std::filesystem::create_symlink(pty.Name(), folder / "COM12");
    std::filesystem::create_symlink(folder / "unplugged", folder / "COM1");
    const std::string file = folder.Write("file", "");
    for (const char *name : {"COM12", "com12", "\\\\.\\COM12"}) EXPECT_TRUE(Serial_Port::open(name)) << name;
    for (const char *name : {"COM1", "COM13", "COM999999", "COM", "", file.c_str()}) {
        EXPECT_FALSE(Serial_Port::open(name)) << name;
        EXPECT_EQ(last_error(), 2u) << name;
    }
}

TEST(serial, passes_every_byte_as_it_is)
{
    Pty pty;
    const auto port = Open(pty);
    const std::string bytes = Pattern(3000);
    std::size_t put = 0;
    ASSERT_TRUE(pty.Send(bytes));
    EXPECT_TRUE(Read(*port, 3000) == bytes);
    ASSERT_TRUE(Write(*port, bytes, put));
    EXPECT_EQ(put, bytes.size());
    EXPECT_TRUE(pty.Receive(3000) == bytes);
}

TEST(serial, sets_the_line)
{
    Pty pty;
    const auto port = Open(pty);
    Serial_Settings settings;
    const struct {
        std::uint32_t baud;
        speed_t name;
    } speeds[] = {{9600, B9600}, {115200, B115200}, {4000000, B4000000}, {250000, speed_other}};
    for (const auto &speed : speeds) {
        settings.baud = speed.baud;
        EXPECT_TRUE(port->set_settings(settings));
        const termios line = pty.Line();
        EXPECT_EQ(cfgetospeed(&line), speed.name) << speed.baud;
        Serial_Settings read_back;
        EXPECT_TRUE(port->get_settings(read_back));
        EXPECT_EQ(read_back.baud, speed.baud);
    }
    settings = {1200, 8, Serial_Settings::odd_parity, Serial_Settings::two_stop_bits, Serial_Settings::handshake};
    EXPECT_TRUE(port->set_settings(settings));
    // A pseudo-terminal drops PARENB and any size but CS8.
    EXPECT_EQ(pty.Line().c_cflag & (CSTOPB | PARODD | CRTSCTS | CLOCAL), CSTOPB | PARODD | CRTSCTS | CLOCAL);
    for (const auto change :
         {+[](Serial_Settings &s) { s.baud = 0; }, +[](Serial_Settings &s) { s.byte_size = 9; },
          +[](Serial_Settings &s) { s.byte_size = 4; }, +[](Serial_Settings &s) { s.byte_size = 5; },
          +[](Serial_Settings &s) { s.stop_bits = Serial_Settings::one5_stop_bits; }}) {
        Serial_Settings wrong = settings, kept;
        change(wrong);
        EXPECT_EQ(Error_Of(port->set_settings(wrong)), 87u);
        EXPECT_TRUE(port->get_settings(kept));
        EXPECT_EQ(kept, settings);
    }
}

TEST(serial, a_read_ends_by_its_limits)
{
    Pty pty;
    const auto port = Open(pty);
    const struct {
        Serial_Timeouts timeouts;
        std::uint64_t least, most;  // ms
    } cases[] = {{no_waiting, 0, 1000}, {{0, 1, 40}, 49, 5000}, {{20, 0, 0}, 20, 5000}, {{20, 0, 10000}, 20, 5000}};
    for (const auto &c : cases) {
        ASSERT_TRUE(port->set_timeouts(c.timeouts));
        ASSERT_TRUE(pty.Send("abc"));
        const std::uint64_t begin = clock_ms();
        EXPECT_EQ(Read(*port, 10), "abc");
        EXPECT_GE(clock_ms() - begin, c.least);
        EXPECT_LE(clock_ms() - begin, c.most);
    }
    ASSERT_TRUE(port->set_timeouts({}));
    std::thread sender([&] {
        for (const char *piece : {"ab", "cd", "e"}) {
            sleep_ms(20);
            pty.Send(piece);
        }
    });
    EXPECT_EQ(Read(*port, 5), "abcde");  // waits for all without a limit
    sender.join();
}

TEST(serial, a_write_waits_for_room)
{
    Pty pty;
    const auto port = Open(pty);
    const std::string bytes = Pattern(100000);
    std::size_t put = 0;
    ASSERT_TRUE(port->set_timeouts({0, 0, 0, 0, 50}));
    EXPECT_TRUE(Write(*port, bytes, put));
    EXPECT_GT(put, 0u);
    EXPECT_LT(put, bytes.size());
    std::string far_end;
    std::thread reader([&] { far_end = pty.Receive(bytes.size()); });
    const std::size_t first = put;
    ASSERT_TRUE(port->set_timeouts(no_waiting));  // says nothing about writes
    EXPECT_TRUE(Write(*port, bytes.substr(first), put));
    reader.join();
    EXPECT_EQ(put, bytes.size() - first);
    EXPECT_TRUE(far_end == bytes);
}

TEST(serial, tells_an_idle_line_from_one_that_is_gone)
{
    Pty pty;
    const auto port = Open(pty);
    std::uint32_t errors = 0;
    ASSERT_TRUE(port->set_timeouts(no_waiting));
    EXPECT_EQ(Read(*port, 10), "");
    fault::plan_serial_errors(serial_frame | serial_break);
    EXPECT_TRUE(port->clear_error(errors));
    EXPECT_EQ(errors, 0x18u);
    EXPECT_TRUE(port->clear_error(errors));
    EXPECT_EQ(errors, 0u);
    pty.Unplug();
    Serial_Settings settings;
    std::size_t put = 0;
    EXPECT_EQ(Read(*port, 10), "error 6");
    EXPECT_EQ(Error_Of(Write(*port, "x", put)), 6u);
    EXPECT_EQ(Error_Of(port->clear_error(errors)), 6u);
    EXPECT_EQ(Error_Of(port->get_settings(settings)), 6u);
    EXPECT_EQ(Error_Of(port->set_settings(settings)), 87u);  // no speed
}

TEST(serial, adopts_an_open_port)
{
    Pty pty;
    const int descriptor = open(pty.Name().c_str(), O_RDWR | O_NOCTTY);
    const auto port = Serial_Port::adopt(reinterpret_cast<void *>(std::intptr_t{descriptor}));
    ASSERT_TRUE(port && port->set_timeouts(no_waiting));
    EXPECT_EQ(port->native(), reinterpret_cast<void *>(std::intptr_t{descriptor}));
    EXPECT_EQ(Read(*port, 10), "");  // as raw, and as little waiting, as one of its own
    ASSERT_TRUE(pty.Send("\x03\x11\x13\r"));
    EXPECT_EQ(Read(*port, 10), "\x03\x11\x13\r");
    for (void *wrong : {static_cast<void *>(nullptr), reinterpret_cast<void *>(-1), reinterpret_cast<void *>(9999)}) {
        EXPECT_FALSE(Serial_Port::adopt(wrong));
        EXPECT_EQ(last_error(), 6u);
    }
}
