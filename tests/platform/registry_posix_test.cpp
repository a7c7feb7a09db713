// What can happen to the files of the registry: kills, full disks, damage, other users, locks.
#include "kernel/settings/Registry.h"
#include "platform/error.h"
#include "platform/profile_folder.h"
#include "platform/registry.h"
#include "tests/support/registry.h"
#include "tests/support/reports.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <pwd.h>
#include <random>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace kernel;

namespace {

constexpr auto machine = ARegistry::Local_Machine, user = ARegistry::Current_User;

unsigned Mode_Of(const std::string &file)
{
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// Somebody else's connection to a hive.
class Other {
public:
    explicit Other(const std::string &file) { sqlite3_open(file.c_str(), &base_); }
    ~Other() { sqlite3_close(base_); }
    void Run(const char *text) { EXPECT_EQ(sqlite3_exec(base_, text, nullptr, nullptr, nullptr), SQLITE_OK) << text; }

private:
    sqlite3 *base_ = nullptr;
};

// Opens, reads with 7 as default, writes 8: the answers, and the numbers of the errors that were reported.
std::string Tried(ARegistry::Root root, const char *path, ARegistry::Modus mode)
{
    Capturing_Handler heard;
    const std::unique_ptr<Registry> key(Registry::Create(root, path, mode, &heard));
    std::string result = key ? "opened" : "closed";
    if (key) result += " " + std::to_string(key->ReadDWord("v", 7));
    if (key) result += " " + std::to_string(key->WriteDWord("v", 8));
    for (const Reported &report : heard.Take()) {
        const std::size_t at = report.text.find("OS Error-Code: ");
        result += at == std::string::npos ? " " + report.text.substr(0, 18)
                                          : " " + std::to_string(std::atoi(report.text.c_str() + at + 15));
    }
    return result;
}

// Does something in another process, as another user if this one is root; what it returned.
template <class Body>
std::string As_Another_User(Body body)
{
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        const bool is_other = geteuid() != 0 || (setegid(65534) == 0 && seteuid(65534) == 0);
        const std::string result = is_other ? body() : "no other user";
        _exit(write(ends[1], result.data(), result.size()) < 0);
    }
    close(ends[1]);
    std::string result(200, '\0');
    result.resize(static_cast<std::size_t>(std::max<ssize_t>(read(ends[0], result.data(), result.size()), 0)));
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return result;
}

std::string Value_Of(int writer, int number)
{
    return std::string(static_cast<std::size_t>(50 + number % 400), static_cast<char>('a' + (writer + number) % 26));
}

// Writes values and notes each one that was answered true; goes on behind the last one noted.
void Write_Values(int writer, int count, const std::string &notes)
{
    Registry key(user, "Shared\\Values", ARegistry::Read_and_Write, nullptr);
    int number = static_cast<int>(Whole_File(notes).size());
    std::FILE *const file = std::fopen(notes.c_str(), "ab");
    for (; number < count; ++number) {
        const std::string name = std::to_string(writer) + "." + std::to_string(number);
        if (!key.WriteString(name.c_str(), Value_Of(writer, number).c_str())) _exit(1);
        std::fputc('x', file);
        std::fflush(file);
    }
    _exit(0);
}

int Setting(const char *name, int otherwise)
{
    const char *const text = std::getenv(name);
    return text ? std::atoi(text) : otherwise;
}

}  // namespace

// KERNEL_REGISTRY_VALUES and KERNEL_REGISTRY_KILL_MS make it long.
TEST(registry_posix, loses_nothing_when_writers_are_killed)
{
    const Own_Registry registry;
    const Test_Folder folder;
    const int count = Setting("KERNEL_REGISTRY_VALUES", 60), pause = Setting("KERNEL_REGISTRY_KILL_MS", 20);
    constexpr int writers = 4;
    std::vector<pid_t> children(writers, 0);
    std::vector<bool> done(writers, false);
    const auto notes = [&](int writer) { return folder / ("notes" + std::to_string(writer)); };
    std::mt19937 random(11);
    int kills = 0;
    while (std::count(done.begin(), done.end(), true) < writers) {
        for (int writer = 0; writer < writers; ++writer) {
            int status = 0;
            const auto at = static_cast<std::size_t>(writer);
            if (children[at] != 0 && waitpid(children[at], &status, WNOHANG) == children[at]) {
                EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "a write failed";
                done[at] = !WIFSIGNALED(status);
                children[at] = 0;
            }
            if (children[at] == 0 && !done[at]) {
                children[at] = fork();
                if (children[at] == 0) Write_Values(writer, count, notes(writer));
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        const std::size_t victim = random() % writers;
        if (kills < count / 4 && children[victim] > 0 && kill(children[victim], SIGKILL) == 0) ++kills;
    }
    Registry key(user, "Shared\\Values", ARegistry::Read_only, nullptr);
    for (int writer = 0; writer < writers; ++writer)
        for (int number = 0; number < count; ++number)
            EXPECT_EQ(key.ReadString((std::to_string(writer) + "." + std::to_string(number)).c_str(), ""),
                      Value_Of(writer, number));
    EXPECT_GT(kills, 0);
    RecordProperty("kills", kills);
}

TEST(registry_posix, keeps_the_old_value_when_the_disk_is_full)
{
    const Own_Registry registry;
    std::signal(SIGXFSZ, SIG_IGN);
    for (const ARegistry::Root root : {user, machine}) {
        Capturing_Handler heard;
        Registry key(root, "Full", ARegistry::All, &heard);
        ASSERT_TRUE(key.WriteString("v", "old"));
        rlimit former{}, tight{};
        getrlimit(RLIMIT_FSIZE, &former);
        tight = {60'000, former.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tight);
        const bool written = key.WriteString("v", std::string(90'000, 'x').c_str());
        setrlimit(RLIMIT_FSIZE, &former);
        EXPECT_FALSE(written);
        const Reports reports = heard.Take();
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_NE(reports[0].text.find("in WriteString failed!\nOS Error-Code: 31="), std::string::npos) << reports[0];
        EXPECT_STREQ(key.ReadString("v", ""), "old");
        EXPECT_TRUE(key.WriteString("v", "new"));
        key.Init(root, "Other", ARegistry::All);              // the last connection to the hive closes
        EXPECT_EQ(Mode_Of(registry.User() + "-shm"), 0600u);  // room for it is not to be had on a full disk
    }
}

TEST(registry_posix, deletes_a_deep_tree_with_few_files)
{
    const Own_Registry registry;
    Capturing_Handler heard;
    std::string path = "Top";
    for (int depth = 0; depth < 60; ++depth) path += "\\k";
    ASSERT_TRUE(Registry(user, path.c_str(), ARegistry::All, &heard).WriteDWord("v", 1));
    Registry top(user, "Top", ARegistry::All, &heard);
    rlimit former{}, tight{};
    getrlimit(RLIMIT_NOFILE, &former);
    tight = {40, former.rlim_max};
    setrlimit(RLIMIT_NOFILE, &tight);
    EXPECT_TRUE(top.Delete());
    setrlimit(RLIMIT_NOFILE, &former);
    EXPECT_EQ(heard.Take(), Reports{});
    EXPECT_EQ(Tried(user, "Top", ARegistry::Read_only), "closed 2");
}

TEST(registry_posix, reports_a_hive_that_it_cannot_use)
{
    const struct {
        const char *what, *reading, *writing;
        void (*spoil)(const std::string &file);
    } rows[] = {
        {"no file", "closed 2", "opened 7 1", [](const std::string &) {}},
        {"an empty file", "closed 2", "opened 7 1", [](const std::string &file) { std::ofstream(file) << ""; }},
        {"no database", "closed 1015", "closed 1015",
         [](const std::string &file) { std::ofstream(file) << std::string(5000, 'x'); }},
        {"half a database", "closed 1015", "closed 1015",
         [](const std::string &file) { Other(file).Run("CREATE TABLE other(x); PRAGMA user_version = 1"); }},
        {"a later version", "closed 1306", "closed 1306",
         [](const std::string &file) { Other(file).Run("PRAGMA user_version = 2"); }},
        {"a folder", "closed Not enought rights", "closed Not enought rights",
         [](const std::string &file) { std::filesystem::create_directory(file); }},
    };
    for (const auto &row : rows) {
        const Own_Registry registry;
        row.spoil(registry.User());
        row.spoil(registry.Machine());
        for (const ARegistry::Root root : {user, machine}) {
            EXPECT_EQ(Tried(root, "K", ARegistry::Read_only), row.reading) << row.what;
            EXPECT_EQ(Tried(root, "K", ARegistry::All), row.writing) << row.what;
        }
    }
    const Own_Registry registry;
    for (const ARegistry::Root root : {ARegistry::Classes_Root, ARegistry::Users, ARegistry::Dyn_Data}) {
        EXPECT_EQ(Tried(root, "K", ARegistry::Read_only), "closed 2");
        EXPECT_EQ(Tried(root, "K", ARegistry::All), "closed Not enought rights");
    }
}

TEST(registry_posix, waits_two_seconds_for_a_lock)
{
    const Own_Registry registry;
    Capturing_Handler heard;
    Registry users(user, "K", ARegistry::All, &heard), machines(machine, "K", ARegistry::All, &heard);
    ASSERT_TRUE(users.WriteDWord("v", 1) && machines.WriteDWord("v", 1));
    const auto seconds = [start = std::chrono::steady_clock::now()] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    Other of_user(registry.User()), of_machine(registry.Machine());
    of_user.Run("BEGIN IMMEDIATE");
    of_machine.Run("BEGIN EXCLUSIVE");
    EXPECT_EQ(users.ReadDWord("v", 7), 1u);  // a writer does not shut readers out
    EXPECT_LT(seconds(), 1.5);
    std::thread other([&] { EXPECT_FALSE(users.WriteDWord("v", 2)); });
    EXPECT_EQ(machines.ReadDWord("v", 7), 7u);
    other.join();
    EXPECT_GT(seconds(), 1.9);
    EXPECT_LT(seconds(), 8);
    const Reports reports = heard.Take();
    ASSERT_EQ(reports.size(), 2u);
    for (const Reported &report : reports)
        EXPECT_NE(report.text.find("OS Error-Code: 170=0x000000AA"), std::string::npos) << report;
    std::thread end([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        of_machine.Run("COMMIT");
        of_user.Run("COMMIT");
    });
    EXPECT_EQ(machines.ReadDWord("v", 7), 1u);
    EXPECT_TRUE(users.WriteDWord("v", 2));
    end.join();
}

TEST(registry_posix, keeps_files_private_but_the_machines)
{
    const mode_t former = umask(0077);
    const Own_Registry registry;
    Registry users(user, "K", ARegistry::All, nullptr), machines(machine, "K", ARegistry::All, nullptr);
    umask(former);
    ASSERT_TRUE(users.WriteDWord("v", 1) && machines.WriteDWord("v", 2));
    EXPECT_EQ(Mode_Of(registry.User()), 0600u);
    EXPECT_EQ(Mode_Of(registry.User() + "-wal"), 0600u);
    EXPECT_EQ(Mode_Of(registry.Machine()), 0644u);
    chmod(registry.User().c_str(), 0666);
    Registry again(user, "K", ARegistry::Read_only, nullptr);
    EXPECT_EQ(Mode_Of(registry.User()), 0600u);

    const std::string folder = std::filesystem::path(registry.User()).parent_path().string();
    if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    chmod(folder.c_str(), 0755);
    EXPECT_EQ(As_Another_User([&] { return Tried(machine, "K", ARegistry::Read_only).substr(0, 10); }), "opened 2 0");
    EXPECT_EQ(As_Another_User([&] { return Tried(machine, "K", ARegistry::Read_after_Write).substr(0, 10); }),
              "opened 2 0");
    EXPECT_EQ(As_Another_User([&] { return Tried(machine, "K", ARegistry::All); }), "closed Not enought rights");
    EXPECT_EQ(As_Another_User([&] { return Tried(machine, "New", ARegistry::Read_after_Write); }),
              "closed Not enought rights");
    EXPECT_EQ(As_Another_User([&] { return Tried(user, "K", ARegistry::Read_only); }), "closed Not enought rights");
    chmod(folder.c_str(), 0700);
    EXPECT_EQ(As_Another_User([&] { return Tried(machine, "K", ARegistry::Read_only); }), "closed Not enought rights");
    const Environment_Setting setting("GNSS_KERNEL_REGISTRY_DIR", folder + "/below");
    EXPECT_EQ(As_Another_User([&] { return Tried(user, "K", ARegistry::All); }), "closed Not enought rights");
}

TEST(registry_posix, stands_in_one_folder_with_profile_files)
{
    const Test_Folder at;
    const struct {
        std::string given, config, home, folder, file;
    } rows[] = {
        {at / "g/deep", at / "c", at / "h", at / "g/deep", "/user.db"},
        {"", at / "c", at / "h", at / "c/gnss-kernel", "/registry.db"},
        {"", "", at / "h", at / "h/.config/gnss-kernel", "/registry.db"},
        {"", "relative", at / "i", at / "i/.config/gnss-kernel", "/registry.db"},
    };
    using platform::If_Missing, platform::profile_folder;
    for (const auto &row : rows) {
        const Environment_Setting given("GNSS_KERNEL_REGISTRY_DIR", row.given), config("XDG_CONFIG_HOME", row.config),
            home("HOME", row.home);
        EXPECT_EQ(profile_folder(If_Missing::leave), row.folder);
        EXPECT_EQ(Tried(user, "K", ARegistry::Read_only), "closed 2");
        EXPECT_FALSE(std::filesystem::exists(row.folder));
        EXPECT_EQ(Tried(user, "K", ARegistry::All), "opened 7 1");
        EXPECT_EQ(Mode_Of(row.folder + row.file), 0600u) << row.folder;
        EXPECT_EQ(Mode_Of(row.folder), 0700u);
        EXPECT_EQ(profile_folder(If_Missing::create), row.folder);
    }
    const Environment_Setting given("GNSS_KERNEL_REGISTRY_DIR", ""), config("XDG_CONFIG_HOME", "");
    for (const char *none : {"", "relative"}) {
        const Environment_Setting home("HOME", none);
        EXPECT_EQ(profile_folder(If_Missing::leave), std::string(getpwuid(geteuid())->pw_dir) + "/.config/gnss-kernel");
    }
    const Environment_Setting relative("GNSS_KERNEL_REGISTRY_DIR", "relative");
    EXPECT_EQ(profile_folder(If_Missing::leave), "relative");
}
