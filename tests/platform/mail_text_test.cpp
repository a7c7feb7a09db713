#include "platform/mail_text.h"

#include "platform/base64.h"

#include "tests/support/folder.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace platform;

namespace {

Mail To_Alice()
{
    Mail mail;
    mail.recipients = {{Mail_Role::to, "alice@example.org"}};
    return mail;
}

// The message, which must be fit for every mail program: 7 bits, short lines, no dot in front.
std::string Message(const Mail &mail)
{
    std::string message;
    EXPECT_EQ(mail_text(mail, message), mail_sent);
    std::istringstream lines(message);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LT(line.size(), 998u) << line;
        EXPECT_FALSE(line.starts_with('.')) << line;
        for (const char c : line) EXPECT_TRUE(c >= ' ' && c < 0x7F) << line;
    }
    return message;
}

// A header with the lines that continue it.
std::string Header(const std::string &message, const std::string &name)
{
    const std::size_t begin = ('\n' + message).find('\n' + name + ": ");
    if (begin == std::string::npos) return "none";
    std::size_t end = message.find('\n', begin);
    while (message[end + 1] == ' ') end = message.find('\n', end + 1);
    return message.substr(begin + name.size() + 2, end - begin - name.size() - 2);
}

std::string In_Lines(std::string base64)
{
    for (std::size_t at = 76; at < base64.size(); at += 77) base64.insert(at, 1, '\n');
    return base64 + (base64.empty() ? "" : "\n");
}

TEST(platform_mail_text, lets_only_addresses_through)
{
    const struct {
        std::string given, address;
    } cases[] = {
        {"alice@example.org", "alice@example.org"},
        {" SMTP: alice@example.org\t", "alice@example.org"},
        {"smtp:root", "root"},
        {"gr\u00FC\u00DFe@example.org", "gr\u00FC\u00DFe@example.org"},
        {"SMTP:-oQ/", ""},
        {"-bs", ""},
        {"alice@example.org\nBcc: eve@example.org", ""},
        {"alice@example.org\r", ""},
        {"alice@example.org,eve@example.org", ""},
        {"No Name", ""},
        {std::string(320, 'a'), std::string(320, 'a')},
        {std::string(321, 'a'), ""},
        {"SMTP:", ""},
        {"", ""},
    };
    for (const auto &[given, address] : cases) EXPECT_EQ(mail_address(given), address) << given;

    for (const char *const refused : {"eve@example.org\nX: y", "-t", ""}) {
        Mail mail = To_Alice();
        mail.recipients.push_back({Mail_Role::bcc, refused});
        std::string message;
        EXPECT_EQ(mail_text(mail, message), mail_bad_recipients) << refused;
    }
    std::string message;
    EXPECT_EQ(mail_text({}, message), mail_bad_recipients);
}

TEST(platform_mail_text, subject_and_name_add_no_header_and_keep_every_character)
{
    Mail mail = To_Alice();
    mail.subject = "Station 7: silent for 15 minutes";
    EXPECT_EQ(Header(Message(mail), "Subject"), mail.subject);
    mail.subject = "down\r\nBcc: eve@example.org";
    EXPECT_EQ(Header(Message(mail), "Subject"), "down  Bcc: eve@example.org");
    mail.subject = "=?odd";
    EXPECT_EQ(Header(Message(mail), "Subject"), "=?UTF-8?B?" + base64(mail.subject) + "?=");
    mail.subject = std::string(44, 'a') + "\u00FC" + std::string(10, 'b');  // the fold would split the character
    EXPECT_EQ(Header(Message(mail), "Subject"), "=?UTF-8?B?" + base64(mail.subject.substr(0, 44)) + "?=\n =?UTF-8?B?" +
                                                    base64(mail.subject.substr(44)) + "?=");
    EXPECT_EQ(Header(Message(mail), "From"), "none");
    mail.sender_name = "Station 7";
    mail.sender_address = "No Name";
    EXPECT_EQ(Header(Message(mail), "From"), "none");
    mail.sender_address = "station@example.org";
    EXPECT_EQ(Header(Message(mail), "From"), "Station 7\n <station@example.org>");
    mail.sender_name = "\"<eve@example.org>\n";
    EXPECT_EQ(Header(Message(mail), "From"),
              "=?UTF-8?B?" + base64("\"<eve@example.org> ") + "?=\n <station@example.org>");
}

TEST(platform_mail_text, recipients_stand_by_their_roles_and_nobody_sees_the_blind_copies)
{
    Mail mail = To_Alice();
    mail.recipients.insert(
        mail.recipients.end(),
        {{Mail_Role::bcc, "eve@example.org"}, {Mail_Role::cc, "SMTP:carol"}, {Mail_Role::to, "bob@example.org"}});
    const std::string message = Message(mail);
    EXPECT_EQ(Header(message, "To"), "alice@example.org,\n bob@example.org");
    EXPECT_EQ(Header(message, "Cc"), "carol");
    EXPECT_EQ(message.find("eve"), std::string::npos);
}

TEST(platform_mail_text, text_and_files_arrive_byte_for_byte)
{
    const Test_Folder folder;
    Mail mail = To_Alice();
    mail.text = ".\n" + std::string(3000, 'x') + "\ngr\u00FC\u00DFe\r\n--=_part--\n";
    const std::string lines = ".\r\n" + std::string(3000, 'x') + "\r\ngr\u00FC\u00DFe\r\n--=_part--\r\n";
    const std::string text_part =
        "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: base64\n\n" + In_Lines(base64(lines));
    EXPECT_TRUE(Message(mail).ends_with("MIME-Version: 1.0\n" + text_part));

    const struct {
        std::string name, parameter;
        std::size_t size;
    } files[] = {
        {"raw data.rtcm3", "filename=\"raw data.rtcm3\"", 512 * 57},  // as large as a block, one more, none
        {"gr\u00FC\u00DFe;.bin", "filename*=UTF-8''gr%C3%BC%C3%9Fe%3B.bin", 512 * 57 + 1},
        {"empty", "filename=\"empty\"", 0},
    };
    std::string parts = "Content-Type: multipart/mixed; boundary=\"=_part\"\n\n--=_part\n" + text_part;
    for (const auto &[name, parameter, size] : files) {
        mail.attachments.push_back(folder.Write(name, Pattern(size)));
        parts += "--=_part\nContent-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n"
                 "Content-Disposition: attachment;\n " +
                 parameter + "\n\n" + In_Lines(base64(Pattern(size)));
    }
    EXPECT_TRUE(Message(mail).ends_with("MIME-Version: 1.0\n" + parts + "--=_part--\n"));

    std::string message;
    mail.attachments.back() = folder / "missing";
    EXPECT_EQ(mail_text(mail, message), mail_attachment_not_found);
    mail.attachments.back() = folder / ".";
    EXPECT_EQ(mail_text(mail, message), mail_attachment_not_opened);
}

}  // namespace
