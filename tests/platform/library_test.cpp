#include "platform/library.h"

#include "platform/error.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <algorithm>

#ifndef _WIN32
#include <sys/stat.h>
#endif

using namespace platform;

TEST(library, knows_its_own_place)
{
    const std::string path = own_path(), folder = own_folder();
    EXPECT_NE(Whole_File(path), "");
    EXPECT_EQ(path.substr(folder.size()).substr(0, 21), "platform_library_test");
}

TEST(library, is_loaded_by_a_name_in_utf_8_and_unloaded_by_the_last_free)
{
    const Test_Folder folder;
    std::string name = folder.Write("M\xC3\xBCnchen \xCE\xA9.x", Whole_File(DRIVER_GOOD));
    const Environment_Setting log("TEST_DRIVER_LOG", folder / "log");
    void *const library = load_library(name.c_str());
    ASSERT_NE(library, nullptr) << last_error();
    for (char &c : name) c = c == '/' ? '\\' : c == '\\' ? '/' : c;  // the other system's separator
    EXPECT_EQ(load_library(name.c_str()), library);

    EXPECT_NE(function_of(library, "DLL_CreateName"), nullptr);
    EXPECT_EQ(function_of(library, "DLL_Createname"), nullptr);
    EXPECT_EQ(last_error(), error_procedure_not_found);

    EXPECT_TRUE(free_library(library));
    EXPECT_EQ(Whole_File(folder / "log"), "+");
    EXPECT_TRUE(free_library(library));
    EXPECT_EQ(Whole_File(folder / "log"), "+-");
    EXPECT_FALSE(free_library(nullptr));
    EXPECT_EQ(last_error(), error_invalid_handle);
}

TEST(library, says_why_it_is_not_loaded)
{
    const Test_Folder folder;
    const struct {
        std::string name;
        Error error;
    } rows[] = {
        {"", error_module_not_found},
        {"no_such_library_7.x", error_module_not_found},
        {folder / "missing.x", error_module_not_found},
        {folder / "missing/rx.x", error_module_not_found},
        {DRIVER_NEEDY, error_module_not_found},  // it is there, what it needs is not
        {folder / "", error_access_denied},
        {folder.Write("text.x", Pattern(5000)), error_bad_executable},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(load_library(row.name.c_str()), nullptr) << row.name;
        EXPECT_EQ(last_error(), row.error) << row.name;
    }
#ifndef _WIN32
    ASSERT_EQ(mkfifo((folder / "pipe.x").c_str(), 0600), 0);  // nobody writes: an open would wait for ever
    EXPECT_EQ(load_library((folder / "pipe.x").c_str()), nullptr);
    EXPECT_EQ(last_error(), error_bad_file_type);
#endif
}

TEST(library, lists_the_names_in_a_folder)
{
    const Test_Folder folder;
    folder.Write("b.x", "");
    folder.Write("\xCE\xA9", "");
    std::vector<std::string> names{"a"};
    ASSERT_TRUE(names_in_folder((folder / "").c_str(), names));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"a", "b.x", "\xCE\xA9"}));
    EXPECT_FALSE(names_in_folder((folder / "missing").c_str(), names));
    EXPECT_TRUE(last_error() == error_not_found || last_error() == error_path_not_found) << last_error();
}
