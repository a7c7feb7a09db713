#include "kernel/memory/sharemem.h"

#include "kernel/transports/Message_Window.h"
#include "tests/support/segments.h"

#include <climits>
#include <cstring>
#include <vector>

using namespace kernel;

namespace {

constexpr unsigned long create = sharemem::flag_create, persistent = sharemem::flag_persistent;

using Segment = std::unique_ptr<sharemem, void (*)(sharemem *)>;
Segment Made(const std::string &name, unsigned long size, unsigned long flags)
{
    return {sharemem::Create(name.c_str(), size, flags), [](sharemem *segment) { sharemem::Delete(segment); }};
}

char *Text(const Segment &segment) { return static_cast<char *>(segment->get_ptr(0)); }

class sharemem_test : public Segments {
protected:
    const std::string name = "sharemem_test_" + std::to_string(std::hash<std::string>()(folder / ""));
};

struct Server : smem_server {
    using smem_server::smem_server;
    void message(const char *text, int level) override { said += std::to_string(level) + " " + text + "\n"; }
    std::string said;
};

}  // namespace

TEST_F(sharemem_test, first_makes_it_and_later_ones_attach)
{
    EXPECT_FALSE(Made(name, 0, 0));
    EXPECT_FALSE(Made(name, 0, create));
    EXPECT_FALSE(Made(name, 100, create | sharemem::flag_read_only));
    EXPECT_FALSE(Made(name, 0xFFFFFFF8, create));  // with its header it would begin again at 0
    sharemem missing(name.c_str(), 0, 0);
    EXPECT_FALSE(missing.valid());
    EXPECT_EQ(missing.in_use(), -1);
    EXPECT_EQ(missing.get_size(), 0u);
    EXPECT_EQ(missing.get_ptr(0), nullptr);

    Segment first = Made(name, 100, create);
    ASSERT_TRUE(first);
    std::strcpy(Text(first), "kept");
    const auto *const header = static_cast<std::uint32_t *>(first->get_ptr(0)) - 2;
    EXPECT_EQ(header[0], 1u);
    EXPECT_EQ(header[1], 100u);
    Segment second = Made(name, 5000, create | 4 | 8), third = Made(name, 0, sharemem::flag_read_only);
    ASSERT_TRUE(second && third);
    EXPECT_EQ(second->get_size(), 100u);
    EXPECT_EQ(first->in_use(), 3);
    std::strcat(Text(third), " here");  // opening with it is writable
    EXPECT_STREQ(Text(second), "kept here");
    second.reset();
    EXPECT_EQ(first->in_use(), 2);
    first->reset_use();
    EXPECT_EQ(third->in_use(), 1);
    for (auto *segment : {&first, &third}) segment->reset();
    EXPECT_FALSE(Made(name, 0, 0));
}

TEST_F(sharemem_test, windows_hear_of_opening_and_leaving)
{
    Message_Window window;
    const auto heard = [&] {
        std::vector<std::uint64_t> wparams;
        for (Message_Window::Message message; window.Receive(message, 20);)
            if (message.message == 27004) wparams.push_back(message.wparam);
        return wparams;
    };
    using List = std::vector<std::uint64_t>;
    Segment owner = Made(name, 10, create), other = Made(name, 10, create);
    EXPECT_EQ(heard(), List{});
    Segment opened = Made(name, 0, 0);
    EXPECT_EQ(heard(), List{1});
    opened.reset();
    EXPECT_EQ(heard(), List{2});
    owner->reset_use();
    EXPECT_EQ(heard(), List{2});
    smem_server server(name.c_str(), 0, 0, 0);
    char post[] = "POST 27004 2";
    server.interpret(post);
    EXPECT_EQ(heard(), (List{1, 2}));
}

TEST_F(sharemem_test, persistent_one_comes_back_from_its_file)
{
    const struct {
        const char *temp, *tmp;
        std::string suffix, file;
    } cases[] = {
        {"set", "tmp", "", "tmp/" + name + ".TMP"},
        {"set", "tmp", "../a/b:", "tmp/" + name + "..%2Fa%2Fb%3A.TMP"},
        {"", "tmp", "", "current/" + name + ".TMP"},
        {"set", "", "", "current/" + name + ".TMP"},
    };
    for (const char *made : {"tmp", "current"}) std::filesystem::create_directory(folder / made);
    const auto former = std::filesystem::current_path();
    std::filesystem::current_path(folder / "current");
    for (const auto &c : cases) {
        const Environment_Setting temp("TEMP", c.temp), tmp("TMP", *c.tmp ? folder / c.tmp : "");
        Segment segment = Made(name + c.suffix, 100, create | persistent);
        ASSERT_TRUE(segment);
        for (int i = 0; i < 100; ++i) Text(segment)[i] = static_cast<char>(i + 1);
        for (const unsigned long asked : {50000ul, 50ul}) {  // the last one saves what there is, whatever it asked for
            Segment other = Made(name + c.suffix, asked, create | persistent);
            segment.reset();
            other.reset();
            EXPECT_EQ(Whole_File(folder / c.file).size(), 108u) << c.file;
            segment = Made(name + c.suffix, 100, create | persistent);
            ASSERT_TRUE(segment);
        }
        const std::string saved = Whole_File(folder / c.file);
#ifndef _WIN32
        EXPECT_EQ(std::filesystem::status(folder / c.file).permissions(), std::filesystem::perms(0600)) << c.file;
#endif
        EXPECT_EQ(std::string(Text(segment), 100), saved.substr(8, 100));
        EXPECT_EQ(Text(segment)[99], 100);
        EXPECT_EQ(segment->in_use(), 1);
        segment.reset();
        folder.Write(c.file, saved.substr(0, 60));  // cut short: nothing of it is taken
        segment = Made(name + c.suffix, 100, create | persistent);
        EXPECT_EQ(std::string(Text(segment), 100), std::string(100, '\0'));
    }
    std::filesystem::current_path(former);
}

TEST_F(sharemem_test, a_thousand_opens_leak_nothing)
{
    const Segment owner = Made(name, 1 << 20, create);
    const auto size = [] {  // [pages] of the address space
        std::ifstream file("/proc/self/statm");
        long pages = 0;
        file >> pages;
        return pages;
    };
    const auto open = [&] { EXPECT_TRUE(Made(name, 0, 0)); };
    for (int i = 0; i < 10; ++i) open();
    const long before = size();
    for (int i = 0; i < 1000; ++i) open();
    EXPECT_LT(size() - before, 2000) << "of 256,000";
    EXPECT_EQ(owner->in_use(), 1);
}

TEST_F(sharemem_test, server_interprets_commands)
{
    Server server(name.c_str(), 64, 17, create);
    EXPECT_EQ(server.get_ID(), 17u);
    const std::string user = "3 Memory: " + name + "\n3 Users: 1\n3 Size: 64\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {" \t\r\n", ""},
        {"?",
         "-1 Commands:\r\n  ?       - this command list\r\n  desc    - info about this object\r\n  user    - number "
         "of users and size info\r\n  update  - get latest info\r\n  reset   - reset\r\n  post <msg subtype "
         "parameter>  - send a global message\n"},
        {" DESC now", "-1 shared memory base class v2.00\r\nThis is a window allocating a piece of\r\nshared memory. "
                      "Messages are displayed\r\nand users may link to it.\r\n\n"},
        {"\tUSER\n", user},
        {"Update", ""},
        {"reset", ""},
        {"RESET", "-1 Unknown command: RESET\n"},
        {"Reset", "-1 Unknown command: Reset\n"},
        {"%s%n", "-1 Unknown command: %s%n\n"},
        {std::string(400, 'x'), "-1 Unknown command: " + std::string(255, 'x') + "\n"},
    };
    for (auto [line, said] : cases) {
        server.said.clear();
        server.interpret(line.data());
        EXPECT_EQ(server.said, said) << line;
    }
    EXPECT_EQ(server.printf(5, "%d lines", 3), 7);
}
