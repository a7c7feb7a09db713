#include "kernel/base/Object.h"

#include "kernel/base/Error_Handler.h"

#include "tests/support/clients.h"
#include "tests/support/reports.h"

#include <gtest/gtest.h>

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

class Invalid_Object : public Object {
public:
    explicit Invalid_Object(bool &gone) : Object("invalid"), gone_(gone) {}
    ~Invalid_Object() override { gone_ = true; }
    bool IsValid() const override { return false; }
    static Invalid_Object *Construct(bool &gone) { return Constructed(new Invalid_Object(gone)); }

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
