#include "kernel/services/LoadDriverLibary.h"

#include "host/decoders/Record_Client.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

using namespace kernel;

namespace {

constexpr char unit[] = "kernel/LoadDriverLibary";

Reported Line(int level, const std::string &text) { return {level, 0, text, unit}; }

// A folder with copies of the test drivers; what they note of being loaded and unloaded is in its file "log".
struct Drivers : Test_Folder {
    const Environment_Setting log{"TEST_DRIVER_LOG", *this / "log"};

    std::string Put(const char *driver, const std::string &name) const { return Write(name, Whole_File(driver)); }
};

}  // namespace

TEST(LoadDriverLibrary, loads_the_file_or_the_first_of_its_family_that_answers)
{
    struct File {
        const char *driver, *name;  // a null driver: a file that is no library
    };
    const struct {
        std::vector<File> files;
        std::string requested, loaded;  // "": none
        std::string pattern;            // "": nothing is searched for
        std::vector<File> refused;      // and the form of the report
    } rows[] = {
        {{{DRIVER_NULL, "rx_100.dll"}, {DRIVER_GOOD, "rx_101.dll"}}, "rx_100.dll", "rx_100.dll", "", {}},
        {{{nullptr, "rx_100.dll"}, {DRIVER_GOOD, "rx_101.dll"}}, "rx_100.dll", "", "", {}},
        {{{DRIVER_GOOD, "rx_105.dll"}, {DRIVER_GOOD, "rx_106.dll"}}, "rx_100.dll", "rx_105.dll", "rx_???.dll", {}},
        {{{nullptr, "rx_101.dll"},
          {DRIVER_NULL, "rx_102.dll"},
          {DRIVER_NO_ENTRY, "RX_103.dll"},
          {DRIVER_THROWS, "rx_104.dll"},
          {DRIVER_GOOD, "Rx_105.DLL"}},
         "rx_100.dll",
         "Rx_105.DLL",
         "rx_???.dll",
         {{"DLL %s has wrong interface. Need interface Version 1.9!", "rx_102.dll"},
          {"DLL %s has no Name function DLL_CreateName!", "RX_103.dll"},
          {"DLL %s has wrong interface. Need interface Version 1.9!", "rx_104.dll"}}},
        {{{DRIVER_GOOD, "rx_1051.dll"}, {DRIVER_GOOD, "ry_105.dll"}}, "rx_100.dll", "", "rx_???.dll", {}},
        {{{DRIVER_GOOD, "a\xCE\xA9z.dll"}}, "bcd.dll", "a\xCE\xA9z.dll", "???.dll", {}},
        {{{DRIVER_GOOD, "bcd.dll"}}, "\xCE\xA9xy.dll", "bcd.dll", "???.dll", {}},
        {{{DRIVER_GOOD, "ry.dll"}}, "rx.dll", "", "", {}},  // fewer than three characters
        {{{DRIVER_GOOD, "rx_105.x.dll"}}, "rx_100.*", "rx_105.x.dll", "rx_???.*", {}},
        {{{DRIVER_GOOD, "rx_105.x.dll"}}, "rx_100.*y", "", "rx_???.*y", {}},
        {{{DRIVER_GOOD, "rx_105"}}, "rx_100", "", "", {}},
    };
    for (const auto &row : rows) {
        Capturing_Handler handler;
        const Drivers folder;
        for (const File &file : row.files) {
            if (file.driver)
                folder.Put(file.driver, file.name);
            else
                folder.Write(file.name, Pattern(5000));
        }
        const std::string requested = folder / row.requested, loaded = folder / row.loaded;
        const bool found = !row.loaded.empty();
        Reports expected;
        if (!row.pattern.empty()) expected.push_back(Line(2, "Searching for DLL \"" + folder / row.pattern + '"'));
        for (const File &refused : row.refused) {
            const std::string text = refused.driver;
            expected.push_back(Line(2, std::string(text).replace(text.find("%s"), 2, folder / refused.name)));
        }
        if (!row.pattern.empty() && found)
            expected.push_back(Line(1, "Using as test new DLL " + loaded + " instead of " + requested));
        if (!row.pattern.empty() && !found) expected.push_back(Line(3, "Could not find DLL \"" + requested + '"'));

        char name[Driver_Path_Size] = "";
        Driver_Module const driver = LoadDriverLibrary(requested.c_str(), name, &handler);
        EXPECT_EQ(driver != nullptr, found) << requested;
        EXPECT_EQ(name, found ? loaded : requested);
        EXPECT_EQ(handler.Take(), expected);
        EXPECT_EQ(Free_Driver_Library(driver), found);
        std::string lives;  // each driver was unloaded before the next one was loaded
        for (std::size_t i = 0; i < row.refused.size() + found; ++i) lives += "+-";
        EXPECT_EQ(Whole_File(folder / "log"), lives) << requested;
    }
}

TEST(LoadDriverLibrary, does_not_search_without_a_folder_and_keeps_to_the_room_for_the_name)
{
    Heard_Reports heard;
    EXPECT_EQ(LoadDriverLibrary("no_such_driver_100.dll", nullptr, nullptr), nullptr);
    EXPECT_EQ(LoadDriverLibrary("./no_such_driver_100.dll", nullptr, nullptr), nullptr);  // the first dot counts
    EXPECT_EQ(LoadDriverLibrary(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(heard->Take(), Reports());
    const Test_Folder folder;
    const std::string missing = folder / std::string(300, 'x') + "/rx_100.dll";
    char name[Driver_Path_Size + 1];
    std::memset(name, '#', sizeof name);
    EXPECT_EQ(LoadDriverLibrary(missing.c_str(), name, nullptr), nullptr);
    EXPECT_EQ(name, missing.substr(0, Driver_Path_Size - 1));
    EXPECT_EQ(name[Driver_Path_Size], '#');
    EXPECT_EQ(heard->Take(), Reports());  // no such name can be: nothing is searched for
    EXPECT_EQ(LoadDriverLibrary((folder / "rx_100.dll").c_str(), nullptr, nullptr), nullptr);
    EXPECT_EQ(heard->Take().size(), 2u);  // by the default handler
}

TEST(Create_Driver_Loader, makes_the_object_of_the_driver)
{
    Capturing_Handler handler;
    const Drivers folder;
    Driver_Module const driver = LoadDriverLibrary(folder.Put(DRIVER_GOOD, "rx_100.dll").c_str(), nullptr, nullptr);
    DLL_Loader *loader = Create_Driver_Loader(driver, &handler);
    ASSERT_NE(loader, nullptr);
    EXPECT_STREQ(loader->Driver_Name(), "test");
    EXPECT_TRUE(loader->IsInheritedFrom("DLL_Loader"));
    EXPECT_FALSE(loader->IsInheritedFrom("DLL_loader"));
    EXPECT_EQ(loader->Get_Error_Handler(), &handler);
    EXPECT_EQ(loader->Get_Client(), nullptr);
    EXPECT_EQ(loader->Get_Server(), nullptr);
    EXPECT_EQ(loader->Get_Remote(), nullptr);
    EXPECT_NE(Find_Driver_Function(driver, "DLL_CreateLoader"), nullptr);
    DLL_Loader::Delete(loader);
    EXPECT_EQ(loader, nullptr);
    EXPECT_TRUE(Free_Driver_Library(driver));
    EXPECT_EQ(Whole_File(folder / "log"), "+d-");
    EXPECT_EQ(handler.Take(), Reports());
}

TEST(Create_Driver_Loader, reports_a_driver_that_gives_none)
{
    Heard_Reports heard;
    const char no_object[] = "The driver's DLL_CreateLoader has no object for interface version 1.9";
    const char no_function[] = "The driver has no function DLL_CreateLoader; interface version 1.9 has one";
    const struct {
        const char *driver, *text;
    } rows[] = {{DRIVER_NULL, no_object}, {DRIVER_THROWS, no_object}, {DRIVER_NO_ENTRY, no_function}};
    for (const auto &row : rows) {
        Driver_Module const driver = LoadDriverLibrary(row.driver, nullptr, nullptr);
        ASSERT_NE(driver, nullptr) << row.driver;
        EXPECT_EQ(Create_Driver_Loader(driver, nullptr), nullptr);
        EXPECT_EQ(heard->Take(), (Reports{Line(3, row.text)}));
        EXPECT_TRUE(Free_Driver_Library(driver));
    }
}

// The example drivers. The one asked for is missing, the one that is there stands in for it.
TEST(Example_Drivers, turn_a_stream_into_records_and_leave_nothing_behind)
{
    const std::string recording = Whole_File(KERNEL_TEST_DATA "/day30_first1000.rtcm3");
    const std::string sentences = "$GNGGA,123519.50,4807.0380,N,01131.0000,W,4,08,0.9,545.40,M,46.90,M,1.0,0001*4B\r\n"
                                  "$GPRMC,123519.50,A,4807.038,N,01131.000,W,022.4,084.4,230394,003.1,W*53\r\n";
    const struct {
        const char *library, *name, *option;
        const std::string &stream;
        unsigned int positions, epochs;  // which record servers
        std::size_t some_positions, some_epochs;
    } rows[] = {{NMEA_DRIVER, "nmea", "leap_seconds", sentences, 0, 1, 1, 1},
                {RTCM3_DRIVER, "rtcm3", "leap_seconds", recording, 3, 0, 125, 125}};
    for (const auto &row : rows) {
        const Test_Folder folder;
        folder.Write(std::string(row.name) + "_100.x", Whole_File(row.library));
        Capturing_Handler handler;
        Driver_Module const driver =
            LoadDriverLibrary((folder / (std::string(row.name) + "_099.x")).c_str(), nullptr, &handler);
        EXPECT_EQ(handler.Take().size(), 2u);
        DLL_Loader *loader = Create_Driver_Loader(driver, &handler);
        ASSERT_NE(loader, nullptr) << row.name;
        EXPECT_STREQ(loader->Driver_Name(), row.name);
        EXPECT_EQ(loader->Interface_Version(), 109);
        EXPECT_FALSE(loader->Stop());
        EXPECT_FALSE(loader->Set_Option(row.option, "x") || loader->Set_Option("Leap", "1"));
        EXPECT_STREQ(loader->Last_Error(), "no such option, or a bad value");
        EXPECT_TRUE(loader->Set_Option(row.option, "16"));
        EXPECT_TRUE(loader->Start());
        EXPECT_FALSE(loader->Set_Option(row.option, "16"));

        std::size_t positions = 0, epochs = 0;
        host::Pos_Record_Client position_client([&](auto) { ++positions; });
        host::Obs_Record_Client epoch_client([&](auto) { ++epochs; });
        position_client.Dont_Delete_Me();
        epoch_client.Dont_Delete_Me();
        EXPECT_TRUE(loader->Record_Server(row.positions)->Connect(&position_client));
        EXPECT_TRUE(loader->Record_Server(row.epochs)->Connect(&epoch_client));
        EXPECT_EQ(loader->Record_Server(9), nullptr);
        String_Byte_Server *const server = String_Byte_Server::Construct(4096, &handler);
        EXPECT_TRUE(server->Connect(loader->Get_Client()));
        for (std::size_t at = 0; at < row.stream.size(); at += 1000) {
            const std::string part = row.stream.substr(at, 1000);
            server->PutBin(reinterpret_cast<const unsigned char *>(part.data()),
                           static_cast<unsigned int>(part.size()));
            server->Work();
        }
        EXPECT_TRUE(loader->Stop());
        String_Byte_Server::Destruct(server);
        DLL_Loader::Delete(loader);
        EXPECT_EQ(positions, row.some_positions);
        EXPECT_EQ(epochs, row.some_epochs);
        EXPECT_TRUE(Free_Driver_Library(driver));
    }
}

#ifdef __linux__
// What the process has mapped and opened; LOADS in the environment makes more of it.
TEST(LoadDriverLibrary, leaves_nothing_behind_however_often)
{
    const char *const wanted = std::getenv("LOADS");
    const Test_Folder folder;
    folder.Write("nmea_100.x", Whole_File(NMEA_DRIVER));
    folder.Write("nmea_101.x", Whole_File(DRIVER_NULL));
    folder.Write("nmea_102.x", Pattern(5000));
    const auto load = [&, handler = std::make_unique<Capturing_Handler>()] {
        Driver_Module const driver = LoadDriverLibrary((folder / "nmea_099.x").c_str(), nullptr, handler.get());
        DLL_Loader *loader = Create_Driver_Loader(driver, handler.get());
        EXPECT_TRUE(loader && loader->Start());
        DLL_Loader::Delete(loader);
        Free_Driver_Library(driver);
        handler->Take();
    };
    const auto held = [] {
        const auto maps = Whole_File("/proc/self/maps");
        const std::filesystem::directory_iterator descriptors("/proc/self/fd");
        return std::pair(std::count(maps.begin(), maps.end(), '\n'),
                         std::distance(begin(descriptors), end(descriptors)));
    };
    for (int i = 0; i < 3; ++i) load();
    const auto before = held();
    for (int i = wanted ? std::atoi(wanted) : 30; i > 0; --i) load();
    EXPECT_EQ(held(), before);
}
#endif
