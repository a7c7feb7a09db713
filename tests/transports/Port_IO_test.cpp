// No test opens the usual device: root may write to it.
#include "kernel/transports/Port_IO.h"

#include "platform/error.h"

#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/reports.h"
#include "tests/support/short_memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <filesystem>
#include <unistd.h>
#endif

using namespace kernel;

namespace {

const char unit[] = "kernel/Port_IO";

std::string Failed(const char *operation, std::uint32_t error)
{
    char number[64];
    std::snprintf(number, sizeof number, " Code: %d=0x%08X => ", static_cast<int>(error), error);
    return std::string("kpiodrv.sys: Error in ") + operation + number + platform::error_text(error);
}

// A file in the place of the device.
class Port {
public:
    Reports Take() { return reports.Take(); }
    bool Opened() { return io->Open() && Take() == Reports{{1, 213, "kpiodrv.sys: Open successfully!", unit}}; }

    const Test_Folder folder;
    const std::string file = folder.Write("port", std::string(65536, '.'));
    const Environment_Setting device{"GNSS_KERNEL_PORT_DEVICE", file};
    Capturing_Handler reports;
    const std::unique_ptr<Port_IO> io{Port_IO::Create(&reports)};
};

}  // namespace

TEST(Port_IO, reports_open_and_close)
{
    Port port;
    ASSERT_TRUE(port.io);
    EXPECT_STREQ(port.io->GetName(), "Port IO unter NT");
    EXPECT_TRUE(port.io->IsInheritedFrom(Port_IO::Name) && port.io->IsInheritedFrom(Object::Name));
    port.io->Close();  // nothing to close
    EXPECT_FALSE(port.io->OutByte(0x378, 1));
    EXPECT_EQ(port.Take(), (Reports{{3, 213, "kpiodrv.sys: Driver not open!", unit}}));
    EXPECT_TRUE(port.Opened());
    EXPECT_TRUE(port.Opened());  // anew
    port.io->Close();
    EXPECT_EQ(port.Take(), (Reports{{1, 213, "kpiodrv.sys: Close successfully!", unit}}));
    port.io->Close();
    EXPECT_EQ(port.Take(), Reports{});

    EXPECT_TRUE(port.Opened());
    const Environment_Setting elsewhere("GNSS_KERNEL_PORT_DEVICE", port.folder / "none");
    EXPECT_FALSE(port.io->Open());
    EXPECT_EQ(port.Take(), (Reports{{3, 213, Failed("Open", 2), unit}}));
    EXPECT_FALSE(port.io->OutByte(0x378, 1));  // the one that was open is closed
}

TEST(Port_IO, needs_memory_for_itself_alone)
{
    struct Counting_Handler : Error_Handler {  // itself needs none
        void Do_Print(Enum_Status status, Err_Code code, const char *text) override
        {
            const bool right =
                status == 4 && code == 18 && std::strcmp(text, "No memory to allocated class Port_IO()") == 0;
            ++(right ? reports : others);
        }
        int reports = 0, others = 0;
    } handler;
    Port_IO *io = nullptr;
    const int refused = Refused_Without_Memory([&] { return (io = Port_IO::Create(&handler)) != nullptr; });
    Port_IO::Destruct(io);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(handler.reports, refused);
    EXPECT_EQ(handler.others, 0);
}

TEST(Port_IO, uses_the_default_handler_when_given_none)
{
    Heard_Reports reports;
    const std::unique_ptr<Port_IO> io(Port_IO::Create(nullptr));
    EXPECT_FALSE(io->OutByte(1, 2));
    EXPECT_TRUE(reports->Has("kpiodrv.sys: Driver not open!"));
}

#ifdef _WIN32
TEST(Port_IO, reports_what_the_driver_refuses)
{
    Port port;
    EXPECT_TRUE(port.Opened());
    EXPECT_FALSE(port.io->OutByte(0x378, 1));  // a file is no driver
    const Reports reports = port.Take();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_TRUE(reports[0].text.starts_with("kpiodrv.sys: Error in Write Code: "));
}
#else
namespace {

std::vector<int> Descriptors_Of(const std::string &file)
{
    std::vector<int> found;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry, gone) == file) found.push_back(std::stoi(entry.path().filename()));
    }
    return found;
}

}  // namespace

TEST(Port_IO, writes_from_several_threads)
{
    Port port;
    EXPECT_TRUE(port.Opened());
    const auto write = [&](unsigned short first) {
        for (unsigned port_number = first; port_number < 2000; port_number += 2)
            EXPECT_TRUE(port.io->OutByte(static_cast<unsigned short>(port_number), 'x'));
    };
    {
        const std::jthread one(write, 0), other(write, 1), opens([&] {
            for (int i = 0; i < 100; ++i) port.io->Open();
        });
    }
    EXPECT_TRUE(port.io->OutByte(0xFFFF, 'y'));
    EXPECT_EQ(Descriptors_Of(port.file).size(), 1u);  // each Open has closed the one before
    EXPECT_TRUE(Whole_File(port.file) == std::string(2000, 'x') + std::string(63535, '.') + "y");
}

TEST(Port_IO, reports_what_the_system_refuses)
{
    Port port;
    EXPECT_TRUE(port.Opened());
    for (const int descriptor : Descriptors_Of(port.file)) close(descriptor);
    EXPECT_FALSE(port.io->OutByte(0x378, 1));
    port.io->Close();
    EXPECT_EQ(port.Take(), (Reports{{3, 213, Failed("Write", 6), unit}, {3, 213, Failed("Close", 6), unit}}));
    EXPECT_FALSE(port.io->OutByte(0x378, 1));  // closed all the same
    EXPECT_EQ(port.Take(), (Reports{{3, 213, "kpiodrv.sys: Driver not open!", unit}}));
}
#endif
