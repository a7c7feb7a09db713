#include "kernel/base/Object.h"

#include "kernel/base/Error_Handler.h"

#include "platform/clock.h"
#include "platform/debug.h"

#include "tests/support/clients.h"
#include "tests/support/ending.h"
#include "tests/support/reports.h"
#include "tests/support/short_memory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace kernel;

namespace {

class Mortal_Handler : public Capturing_Handler {
public:
    explicit Mortal_Handler(int &deaths) : deaths_(deaths) {}
    ~Mortal_Handler() override { ++deaths_; }

private:
    int &deaths_;
};

struct Copyable_Object : Object {
    using Object::Object;
};

// Keeps the lines of its reports.
class Line_Handler : public Error_Handler {
public:
    std::vector<unsigned int> lines;

private:
    void Do_Print(Enum_Status, Err_Code, const char *) override { lines.push_back(Line()); }
};

class Invalid_Object : public Object {
public:
    explicit Invalid_Object(bool &gone) : Object("invalid"), gone_(gone) {}
    ~Invalid_Object() override { gone_ = true; }
    bool IsValid() const override { return false; }
    static Invalid_Object *Construct(bool &gone)
    {
        return Constructed([&] { return new Invalid_Object(gone); });
    }

private:
    bool &gone_;
};

}  // namespace

TEST(Object, has_a_name_a_class_and_a_handler)
{
    Capturing_Handler handler;
    const Object nameless(nullptr, &handler);
    EXPECT_STREQ(nameless.GetName(), "No Name");
    EXPECT_EQ(nameless.Get_Error_Handler(), &handler);
    EXPECT_FALSE(nameless.IsInheritedFrom("abstrakte basisklasse") || nameless.IsInheritedFrom(nullptr));
    EXPECT_NE(Object::Get_Default_Handler(), static_cast<Error_Handler *>(&Trace_Handler));
    bool gone = false;
    EXPECT_EQ(Invalid_Object::Construct(gone), nullptr);
    EXPECT_TRUE(gone);
}

TEST(Object, knows_its_bases_by_name)
{
    const Recording_Client client;
    const Bare_Server server;
    for (const char *name : {"Abstrakte Basisklasse", "Basisklasse Client_Server"})
        EXPECT_TRUE(client.IsInheritedFrom(name) && server.IsInheritedFrom(name)) << name;
    for (const char *name : {"Basisklasse Client", "Basisklasse Byte_Client"})
        EXPECT_TRUE(client.IsInheritedFrom(name) && !server.IsInheritedFrom(name)) << name;
    for (const char *name : {"Basisklasse Server", "Basisklasse Byte_Server"})
        EXPECT_TRUE(server.IsInheritedFrom(name) && !client.IsInheritedFrom(name)) << name;
}

TEST(Object, the_library_owns_default_handlers_but_not_the_built_in_one)
{
    Error_Handler *const built_in = Object::Get_Default_Handler();
    int deaths = 0;
    auto *first = new Mortal_Handler(deaths);
    Object::Set_Default_Handler(first);
    Object::Set_Default_Handler(first);  // the same once more: nothing to delete
    EXPECT_EQ(deaths, 0);
    Copyable_Object old("old");
    const Copyable_Object copy(old);
    EXPECT_EQ(copy.Get_Error_Handler(), first);

    auto *second = new Mortal_Handler(deaths);
    Object::SetDefaultHandler(second);
    EXPECT_EQ(deaths, 1);
    EXPECT_EQ(old.Get_Error_Handler(), built_in);  // its handler is gone; its reports are not
    EXPECT_EQ(copy.Get_Error_Handler(), built_in);
    EXPECT_EQ(Object("new").Get_Error_Handler(), second);

    Object::Set_Default_Handler(nullptr);
    EXPECT_EQ(deaths, 2);
    const Copyable_Object silent("silent");
    EXPECT_EQ(Copyable_Object(silent).Get_Error_Handler(), nullptr);
    silent.Report("kernel/X", 1).Print_Out(Error_Handler::ES_Error, 1, "vanishes");

    Object::Set_Default_Handler(built_in);
    Capturing_Handler own;
    old.SetErrorHandler(own);
    EXPECT_EQ(old.GetErrorHandler(), &own);
}

TEST(Object, reports_with_unit_and_line)
{
    Line_Handler handler;
    const Object object("line", &handler);
    object.Report("kernel/X", 7).Print_Out(Error_Handler::ES_Error, 1, "text");
    object.Report_Missing("kernel/X", 8, "Work()", "Server");
    EXPECT_EQ(handler.lines, (std::vector<unsigned int>{7, 8}));
    Bare_Server server;
    server.Set_Error_Handler(handler);
    server.Work();
    EXPECT_GT(handler.lines.at(2), 8u);  // where the unit reported
}

TEST(Object, the_handlers_of_the_library_may_be_the_default_for_a_while)
{
    Error_Handler *const built_in = Object::Get_Default_Handler();
    for (Error_Handler *own : {static_cast<Error_Handler *>(&Trace_Handler), &Error_Handler::Or_Silent(nullptr)}) {
        Object::Set_Default_Handler(*own);
        const Object object("object");
        Object::Set_Default_Handler(built_in);
        EXPECT_EQ(object.Get_Error_Handler(), own);
        own->Set("kernel/X", 1)->Print_Out(Error_Handler::ES_Message, "still there");
    }
}

TEST(Object, without_memory_a_default_handler_is_in_place_all_the_same)
{
    Error_Handler *const built_in = Object::Get_Default_Handler();
    int deaths = 0;
    auto *first = new Mortal_Handler(deaths);
    auto *second = new Mortal_Handler(deaths);
    Object::Set_Default_Handler(first);
    const Object old("old");
    {
        const Short_Memory memory(0);
        Object::Set_Default_Handler(second);
    }
    EXPECT_EQ(Object("new").Get_Error_Handler(), second);
    EXPECT_EQ(old.Get_Error_Handler(), first);
    EXPECT_EQ(deaths, 0);  // not deleted, because no record could say so to its objects
    Object::Set_Default_Handler(built_in);
    EXPECT_EQ(deaths, 1);
    delete first;
}

// One thread brings new handlers, one reports to them, one makes and copies objects while the default changes.
TEST(Object, a_new_handler_is_complete_for_every_thread)
{
    Error_Handler *const built_in = Object::Get_Default_Handler();
    NULL_Error_Handler null;
    Copyable_Object object("shared", &null);
    std::vector<std::unique_ptr<Capturing_Handler>> handlers;
    std::atomic<bool> done{false};
    std::thread reporter([&] {
        while (!done) object.Report("kernel/X", 1);
    });
    std::thread maker([&] {
        while (!done) EXPECT_NE(Copyable_Object(Copyable_Object("made")).Get_Error_Handler(), nullptr);
    });
    for (int i = 0; i < 3000; ++i) {
        handlers.push_back(std::make_unique<Capturing_Handler>());
        object.Set_Error_Handler(handlers.back().get());
        Object::Set_Default_Handler(new NULL_Error_Handler);
        std::this_thread::yield();
    }
    done = true;
    reporter.join();
    maker.join();
    Object::Set_Default_Handler(built_in);
}

namespace {

// A static of a host, older than those of the library: its end comes after theirs.
struct Late_Reporter {
    ~Late_Reporter()
    {
        if (!armed) return;
        std::vector<std::string> reused;  // what was freed on this thread holds something else by now
        for (std::size_t size = 16; size < 80; ++size) reused.emplace_back(size, '\xFF');
        Object("late").Report("kernel/X", 1).Print_Out(Error_Handler::ES_Error, "late");
        Trace_Handler.Print_Out(Error_Handler::ES_Error, "traced");
        Error_Handler::Or_Silent(nullptr).Print_Out(Error_Handler::ES_Error, "silent");
    }
    bool armed = false;
} late_reporter;

// Threads make, report and destroy until the process is gone; one ends it. They are left alone.
void End_Among_Threads(Error_Handler::Enum_Status status, int threads)
{
    platform::set_debug_output([](const char *text) {
        if (std::string(text) == "late" || std::string(text) == "traced") std::fputs(text, stderr);
    });
    late_reporter.armed = true;
    const auto busy = [] {
        for (;;) {
            const Copyable_Object object("busy");
            Copyable_Object(object).Report("kernel/X", 1).Print_Out(Error_Handler::ES_Message, "busy");
        }
    };
    for (int i = 0; i < threads; ++i) std::thread(busy).detach();
    std::thread([status] {
        platform::sleep_ms(10);
        if (status == Error_Handler::ES_Unrecoverable)
            NULL_Error_Handler().Print_Out(status, "the end");
        else
            std::exit(3);
    }).join();
    platform::sleep_ms(10000);
}

}  // namespace

TEST(Object, objects_come_and_go_until_the_process_is_gone)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const int threads : {0, 1, 3, 3}) {
        EXPECT_EXIT(End_Among_Threads(Error_Handler::ES_Unrecoverable, threads), Ended_With(-1), "latetraced");
        EXPECT_EXIT(End_Among_Threads(Error_Handler::ES_Error, threads), Ended_With(3), "latetraced");
    }
}
