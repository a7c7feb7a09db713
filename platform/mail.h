// Mail: one message at a time, handed to the system's mail service.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform {

// Results of sending, numbered as in Simple MAPI. A system may return others.
enum Mail_Result : std::uint32_t {
    mail_sent = 0,
    mail_failed = 2,
    mail_no_logon = 3,
    mail_no_memory = 5,
    mail_too_many_recipients = 10,
    mail_attachment_not_found = 11,
    mail_attachment_not_opened = 12,
    mail_unknown_recipient = 14,
    mail_bad_recipients = 25,
};

enum class Mail_Role : std::uint32_t { to = 1, cc = 2, bcc = 3 };

struct Mail_Recipient {
    Mail_Role role;
    std::string address;  // as the user gave it, also with "SMTP:" in front
};

// All texts are UTF-8.
struct Mail {
    std::string subject, text;
    std::string sender_name, sender_address;  // empty: the system's own
    std::vector<Mail_Recipient> recipients;
    std::vector<std::string> attachments;  // file names
};

// The way to the system's mail service.
//
// Windows: MAPI32.DLL (Simple MAPI). The system counts how often it is loaded, so that each service has its own load.
//
// POSIX: the program $GNSS_KERNEL_SENDMAIL, or /usr/sbin/sendmail. It is started for each mail as
// "sendmail -i [-f ADDRESS | -F NAME] RECIPIENT...", in a process group of its own, with default signals and no
// descriptors of the host's. It gets the message (mail_text.h) on its standard input. Its exit status (sysexits.h)
// becomes the result:
//
//    0  mail_sent
//   67  no such user               mail_unknown_recipient
//   68  no such host               mail_bad_recipients
//   77  permission, wrong logon    mail_no_logon
//   every other status, the end by a signal, a program that does not start: mail_failed. So is the end of a program
//   that the host collects (wait for any child, or SIGCHLD ignored): nobody knows then whether the mail was sent.
//   A command line that is too long is mail_too_many_recipients.
//
// Threads:   one thread sends; cancel() from any thread.
// Ownership: the destructor leaves the library loaded, for a thread that was killed inside it; close() frees it.
// Errors:    open() is null with last_error(), or with error_none if the system gives no number. send() returns the
//            result, and in `detail` what the system said about a failure, or an empty text. Nothing is thrown.
class Mail_Service {
public:
    enum class Missing { library, function };

    static std::unique_ptr<Mail_Service> open(Missing &missing);
    ~Mail_Service();
    Mail_Service(const Mail_Service &) = delete;
    Mail_Service &operator=(const Mail_Service &) = delete;

    // Waits until the mail is handed over, without limit. shows_dialog: Windows shows the mail and lets the user send
    // it; POSIX has no dialog and sends.
    std::uint32_t send(const Mail &mail, bool shows_dialog, std::string &detail);
    // Ends the program that a send is waiting for, and makes later sends fail. Windows has no way to do that.
    void cancel();
    bool close();  // false, with last_error()

private:
    struct State;
    Mail_Service();
    const std::unique_ptr<State> state_;
};

}  // namespace platform
