#include "kernel/services/SendEMail.h"

#include "kernel/tables/AVL_CStringTree.h"

#include "platform/library.h"

#include "tests/support/registry.h"
#include "tests/support/reports.h"
#include "tests/support/short_memory.h"
#include "tests/support/timing.h"

#include <gtest/gtest.h>

#include <clocale>
#include <csignal>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#endif

using namespace kernel;

namespace {

Reported Line(int level, const std::string &text) { return {level, 1, text, "kernel/SendEMail"}; }

struct Destruct {
    void operator()(SendEmail *mail) const { Object::Destruct(mail); }
};
using Mailer = std::unique_ptr<SendEmail, Destruct>;

Mailer New_Mailer(Error_Handler &handler)
{
    Mailer mailer(SendEmail::Construct());
    mailer->Set_Error_Handler(&handler);
    return mailer;
}

// Sender and recipients in one line.
std::string Settings(SendEmail &mailer)
{
    const auto or_null = [](const char *text) { return std::string(text ? text : "null"); };
    std::string line = or_null(mailer.Get_RealName()) + " <" + or_null(mailer.Get_ReturnAdress()) + "> To";
    for (const char *to = mailer.First_To(); to; to = mailer.Next_To()) line.append(" ").append(to);
    line += " CC";
    for (const char *cc = mailer.First_CC(); cc; cc = mailer.Next_CC()) line.append(" ").append(cc);
    line += " BCC";
    for (const char *bcc = mailer.First_BCC(); bcc; bcc = mailer.Next_BCC()) line.append(" ").append(bcc);
    return line;
}

TEST(SendEMail, settings_survive_in_the_registry)
{
    const Own_Registry own;
    Capturing_Handler handler;
    const Mailer mailer = New_Mailer(handler);
    mailer->Set_Sender("Station 7", "station@example.org");
    for (const char *const to : {"bob", "alice", "eve", "alice"}) EXPECT_TRUE(mailer->Add_To(to));
    EXPECT_FALSE(mailer->Add_To("") || mailer->Add_To(nullptr));
    mailer->Delete_To("eve");
    mailer->Add_BCC("carol");
    const std::string settings = "Station 7 <station@example.org> To alice alice bob CC BCC carol";
    EXPECT_EQ(Settings(*mailer), settings);
    EXPECT_TRUE(mailer->GetTree_To().TestKey("bob"));
    EXPECT_TRUE(mailer->WriteToRegistry("Mail"));

    const Mailer other = New_Mailer(handler);
    other->Add_CC("from before");
    other->ReadFromRegistry("Mail");
    EXPECT_EQ(Settings(*other), settings);
    const Reports heard = handler.Take();
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_TRUE(heard[0].level == 1 && heard[0].text.starts_with("Write setting to registry \"HKEY_"));
    EXPECT_TRUE(heard[1].level == 1 && heard[1].text.starts_with("Read settings from registry \"HKEY_"));

    other->Delete_To();  // a shorter list replaces a longer one, and no sender the former one
    other->Set_Sender(nullptr, nullptr);
    EXPECT_TRUE(other->WriteToRegistry("Mail"));
    mailer->ReadFromRegistry("Mail");
    EXPECT_EQ(Settings(*mailer), "null <null> To CC BCC carol");
    mailer->ReadFromRegistry("No such key");
    EXPECT_EQ(Settings(*mailer), "null <null> To CC BCC");
}

TEST(SendEMail, refuses_without_a_recipient)
{
    Capturing_Handler handler;
    const Mailer mailer = New_Mailer(handler);
    mailer->Add_CC("carol");
    EXPECT_FALSE(mailer->Send(false, "text", "subject", nullptr, "carol", "eve", nullptr));
    EXPECT_EQ(handler.Take(), Reports{Line(3, "No recipient of the email specified!")});
}

#ifndef _WIN32

// A mail program that does what the first recipient says, and keeps the others' e-mails.
class Mail_Program : public testing::Test {
protected:
    Mail_Program()
    {
        folder_.Write("sendmail", R"(#!/bin/sh
case "$2 $4" in *" many@"*) exec cat >> "$0.log" ;; esac
cat > "$0.last"
case "$2" in
status@*) echo "bad luck" >&2; exit "${2#status@}" ;;
signal) kill -9 $$ ;;
hang) sleep 61 & echo "$!" > "$0.pid"; wait ;;
esac
[ ! -e /proc/self/fd/200 ] || echo leaked >> "$0.log"
{ echo "$*"; cat "$0.last"; } >> "$0.log"
)");
        std::filesystem::permissions(Program(), std::filesystem::perms::owner_all);
    }
    std::string Program() const { return folder_ / "sendmail"; }
    std::string Log() const { return Whole_File(folder_ / "sendmail.log"); }
    bool Send_To(const std::string &to, const char *files = nullptr)
    {
        return mailer_->Send(false, "text", "subject", to.c_str(), nullptr, nullptr, files);
    }

    const Test_Folder folder_;
    const Environment_Setting setting_{"GNSS_KERNEL_SENDMAIL", Program()};
    Capturing_Handler handler_;
    Mailer mailer_ = New_Mailer(handler_);
};

TEST_F(Mail_Program, gets_message_and_recipients_and_no_descriptor_of_the_host)
{
    const int leaking = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(dup2(leaking, 200), 200);
    mailer_->Set_Sender("Station 7", "station@example.org");
    EXPECT_TRUE(mailer_->Send(true, "down", "Station 7", " alice ; ;bob", "carol;", " eve", (Program() + ";").c_str()));
    const std::string begin = "-i -f station@example.org alice bob carol eve\nFrom: Station 7\n <station@example.org>\n"
                              "To: alice,\n bob\nCc: carol\nSubject: Station 7\n";
    ASSERT_TRUE(Soon([&] { return Log().ends_with("--=_part--\n"); })) << Log();
    EXPECT_TRUE(Log().starts_with(begin)) << Log();
    close(200);
    close(leaking);

    mailer_->Set_Sender("Station 7", nullptr);
    mailer_->Add_To("dora");
    EXPECT_TRUE(mailer_->Send(false, "", "second", nullptr, "carol", nullptr, nullptr));
    const std::string second = "-i -F Station 7 dora\nTo: dora\nSubject: second\n";
    EXPECT_TRUE(Soon([&] { return Log().find(second) != std::string::npos; })) << Log();
    EXPECT_EQ(handler_.Take(), Reports{});
}

TEST_F(Mail_Program, failures_are_reported_and_the_queue_goes_on)
{
    const std::string failed = "One or more unspecified errors occurred. No message was sent. (Error-Code 2)";
    const struct {
        std::string to, files, text, detail;
    } cases[] = {
        {"status@67", "", "A recipient did not appear in the address list. No message was sent. (Error-Code 14)",
         " ended with status 67: bad luck"},
        {"status@68", "", "One or more recipients were invalid or did not resolve to any address. (Error-Code 25)",
         " ended with status 68: bad luck"},
        {"status@77", "",
         "There was no default logon, and the user failed to log on successfully when the logon dialog box was "
         "displayed. No message was sent. (Error-Code 3)",
         " ended with status 77: bad luck"},
        {"signal", "", failed, " was ended by signal 9"},
        {"-t", "", "One or more recipients were invalid or did not resolve to any address. (Error-Code 25)", ""},
        {"alice", folder_ / "none", "The specified attachment was not found. No message was sent. (Error-Code 11)", ""},
        {"alice", folder_ / ".", "The specified attachment could not be opened. No message was sent. (Error-Code 12)",
         ""},
    };
    Reports expected;
    for (const auto &[to, files, text, detail] : cases) {
        EXPECT_TRUE(Send_To(to, files.c_str()));
        expected.push_back(Line(3, "Call of MAPISendMail failed: " + text));
        if (!detail.empty()) expected.push_back(Line(2, Program() + detail));
    }
    for (const int status : {1, 64, 65, 66, 69, 70, 71, 72, 73, 74, 75, 76, 78, 255}) {
        const std::string number = std::to_string(status);
        EXPECT_TRUE(Send_To("status@" + number));
        expected.push_back(Line(3, "Call of MAPISendMail failed: " + failed));
        expected.push_back(Line(2, Program() + " ended with status " + number + ": bad luck"));
    }
    EXPECT_TRUE(Send_To("last"));
    ASSERT_TRUE(Soon([&] { return Log().starts_with("-i last\n"); }));
    EXPECT_EQ(handler_.Take(), expected);

    std::filesystem::remove(Program());
    EXPECT_TRUE(Send_To("alice"));
    ASSERT_TRUE(Soon([&] { return handler_.Has(Program() + ": No such file or directory"); }));
    EXPECT_EQ(handler_.Take()[0], Line(3, "Call of MAPISendMail failed: " + failed));
}

TEST_F(Mail_Program, a_host_that_does_not_keep_its_children_hears_that_the_result_is_unknown)
{
    const auto former = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_TRUE(Send_To("alice"));
    const std::string detail = ": its end was collected by the host; it is not known whether the mail was sent";
    EXPECT_TRUE(Soon([&] { return handler_.Has(Program() + detail); }));
    std::signal(SIGCHLD, former);
    EXPECT_TRUE(handler_.Take()[0].text.ends_with("(Error-Code 2)"));
}

TEST_F(Mail_Program, is_ended_when_it_hangs_and_the_object_goes)
{
    EXPECT_TRUE(Send_To("hang"));
    EXPECT_TRUE(Send_To("dropped"));
    ASSERT_TRUE(Soon([&] { return Whole_File(Program() + ".pid").ends_with('\n'); }));
    const std::uint64_t taken = Elapsed([&] { mailer_.reset(); });
    EXPECT_GE(taken, 3000u);
    EXPECT_LT(taken, 3500u);
    EXPECT_EQ(handler_.Take(), Reports{Line(3, "Email-thread did not respond for 3 sec. Have killed the thread.")});
    const pid_t started_by_program = std::stoi(Whole_File(Program() + ".pid"));
    EXPECT_TRUE(Soon([&] {
        const std::string status = Whole_File("/proc/" + std::to_string(started_by_program) + "/stat");
        return status.empty() || status.find(") Z") != std::string::npos;
    }));
    EXPECT_EQ(Log(), "");
}

TEST_F(Mail_Program, gets_each_message_of_four_threads_once)
{
    constexpr int threads = 4, messages = 250;
    std::vector<std::thread> senders;
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([this, t] {
            for (int i = 0; i < messages; ++i) {
                mailer_->Set_Sender(nullptr, ("station" + std::to_string(t)).c_str());
                EXPECT_TRUE(Send_To("many@" + std::to_string(t) + "." + std::to_string(i) + "."));
            }
        });
    }
    for (std::thread &sender : senders) sender.join();
    EXPECT_TRUE(Send_To("last"));
    ASSERT_TRUE(Soon([&] { return Log().find("To: last\n") != std::string::npos; }, 60000));
    const std::string log = Log();
    for (int i = 0; i < threads * messages; ++i) {
        const std::string header =
            "\nTo: many@" + std::to_string(i % threads) + "." + std::to_string(i / threads) + ".\n";
        const std::size_t first = log.find(header);
        EXPECT_TRUE(first != std::string::npos && log.find(header, first + 1) == std::string::npos) << header;
    }
}

// Keeps the last report without memory.
class Last_Report : public Error_Handler {
public:
    char text[200] = "";

private:
    void Do_Print(Enum_Status, Err_Code, const char *report) override
    {
        std::snprintf(text, sizeof text, "%s", report);
    }
};

// An object that lacks anything takes no e-mail: nobody would send it.
TEST_F(Mail_Program, gets_nothing_from_an_object_that_was_made_without_memory)
{
    Error_Handler *const former = Object::Get_Default_Handler();
    auto *const last = new Last_Report;
    Object::Set_Default_Handler(last);
    const auto with_memory = [](long blocks) {
        const Short_Memory memory(blocks);
        return Mailer(SendEmail::Construct());
    };
    int refusals = 0;
    for (long blocks = 0;; ++blocks) {
        last->text[0] = 0;
        const Mailer mailer = with_memory(blocks);
        if (mailer && mailer->Send(false, "text", "subject", "alice", nullptr, nullptr, nullptr)) break;
        if (!mailer) continue;
        ++refusals;
        const std::string report = last->text;
        EXPECT_TRUE(report.ends_with("Mailservice!\nOS Error-Code: 8=0x00000008 => Cannot allocate memory") ||
                    report.starts_with("Start of the e-mail thread failed!\nOS Error-Code: 8=0x00000008"))
            << report;
    }
    EXPECT_GT(refusals, 1);
    Object::Set_Default_Handler(former);
}

#endif

}  // namespace
