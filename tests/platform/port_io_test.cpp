// No test opens the usual device: root may write to it.
#include "platform/port_io.h"

#include "platform/error.h"

#include "tests/support/environment.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace platform;

namespace {

#ifdef _WIN32
constexpr bool windows = true;
#else
constexpr bool windows = false;
#endif

}  // namespace

TEST(port_io, has_the_drivers_record)
{
    const Port_Request request = {.port = 0xFEDC, .value = 0xA5};
    unsigned char bytes[12];
    ASSERT_EQ(sizeof request, sizeof bytes);
    std::memcpy(bytes, &request, sizeof bytes);
    const unsigned char expected[] = {30, 0, 0, 0, 0xDC, 0xFE, 0, 0, 0xA5, 0, 0, 0};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
    EXPECT_EQ(Port_Request::control_code, 0x9C40u << 16 | 1u << 14 | 0x800u << 2);
}

TEST(port_io, writes_a_byte_at_the_ports_number)
{
    const Test_Folder folder;
    const std::string file = folder.Write("port", std::string(65536, '.'));
    const Environment_Setting device("GNSS_KERNEL_PORT_DEVICE", file);
    Port_Device port;
    ASSERT_TRUE(port.open() && port.is_open());
    const bool sent = port.send({.port = 0x378, .value = 'a'}) && port.send({.port = 0, .value = 'b'}) &&
                      port.send({.port = 0xFFFF, .value = 'c'}) && port.send({.port = 0x378, .value = 'd'});
    EXPECT_EQ(sent, !windows);  // there a file knows no such command
    EXPECT_TRUE(port.close() && !port.is_open());
    EXPECT_FALSE(port.send({.port = 1, .value = 'x'}));
    std::string expected(65536, '.');
    if (sent) expected[0x378] = 'd', expected[0] = 'b', expected[0xFFFF] = 'c';
    EXPECT_TRUE(Whole_File(file) == expected);
}

TEST(port_io, refuses_a_device_that_is_not_there)
{
    const Test_Folder folder;
    const Environment_Setting device("GNSS_KERNEL_PORT_DEVICE", folder / "none");
    Port_Device port;
    EXPECT_FALSE(port.open());
    EXPECT_EQ(last_error(), error_not_found);
    EXPECT_FALSE(port.is_open());
}
