// Hands one e-mail to the mail program: mail TO CC BCC SUBJECT TEXT ATTACHMENTS. It ends when the program has ended.
#include "kernel/services/SendEMail.h"

#include "tests/support/reports.h"
#include "tests/support/timing.h"

#include <cstdio>

namespace {

int Send(char **argv)
{
    Capturing_Handler handler;
    kernel::SendEmail *const mail = kernel::SendEmail::Construct();
    mail->Set_Error_Handler(&handler);
    mail->Set_Sender("Prüfstation \"7\" <x>", "station@example.org");
    bool sent = mail->Send(false, argv[5], argv[4], argv[1], argv[2], argv[3], argv[6]);
    // E-mails go one after the other: the failure of a second one shows that the first one has gone.
    sent = sent && mail->Send(false, "", "", "-none", nullptr, nullptr, nullptr);
    sent = sent && Soon([&] {
               return handler.Has("Call of MAPISendMail failed: One or more recipients were invalid or did not "
                                  "resolve to any address. (Error-Code 25)");
           });
    kernel::Object::Destruct(mail);
    for (const Reported &report : handler.Take()) std::fprintf(stderr, "%s\n", report.text.c_str());
    return sent ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) { return argc == 7 ? Send(argv) : 2; }
