// The text of a mail as programs like sendmail take it: a MIME message of 7-bit lines.
#pragma once

#include "platform/mail.h"

#include <string>
#include <string_view>

namespace platform {

// The address without blanks around it and without "SMTP:" in front, letter case ignored. Empty if it is none that may
// stand in a command line and in a header: it begins with '-', it has blanks, control characters or one of ()<>,;:\"[],
// or it is longer than 320 bytes. UTF-8 is let through.
std::string_view mail_address(std::string_view given);

// Appends the message. Lines end with LF and have less than 998 characters; none begins with a dot.
//   From     only with a sender address that is one; else the mail program puts the user's own there
//   To, Cc   the recipients of these roles; the others stand nowhere
//   Subject  control characters, line ends included, become blanks: a text cannot add a header
//   text     UTF-8 in base64, line ends as CRLF
//   files    each in base64, by the last part of its name
// The result is mail_bad_recipients if a recipient is no address or there is none, mail_attachment_not_found,
// mail_attachment_not_opened (also if it cannot be read, or is no regular file), or mail_sent. Throws bad_alloc.
Mail_Result mail_text(const Mail &mail, std::string &message);

}  // namespace platform
