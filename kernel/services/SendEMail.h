// Short e-mails that a host sends without waiting: a queue and a thread that hands them to the system's mail service.
//
// Windows: the mail client, through Simple MAPI (MAPI32.DLL). POSIX: the program named by $GNSS_KERNEL_SENDMAIL, or
// /usr/sbin/sendmail; platform/mail.h has its arguments, and its exit statuses as error codes.
#pragma once

#include "kernel/base/Object.h"
#include "kernel/base/Semaphore.h"
#include "kernel/base/kernel_api.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

namespace platform {
class Event;
class Mail_Service;
class Thread;
}  // namespace platform

namespace kernel {

class AVL_CStringTree;
class SendEmail;

// One queued e-mail.
//
// Threads:   constant after construction.
// Ownership: owns the message. Release destroys it; in the queue it is the SendEmail's.
// Errors:    none.
class KERNEL_API EmailInfo {
public:
    static constexpr std::uint32_t Show_Dialog = 8;  // MAPI_DIALOG

    struct Message;  // as the system's mail service takes it

    EmailInfo(SendEmail &owner, std::unique_ptr<Message> message, std::uint32_t flags);
    virtual ~EmailInfo();
    EmailInfo(const EmailInfo &) = delete;
    EmailInfo &operator=(const EmailInfo &) = delete;

    void Release() { delete this; }
    SendEmail &GetOwner() const { return owner_; }
    const Message &GetMessage() const { return *message_; }
    std::uint32_t GetFlags() const { return flags_; }  // Show_Dialog or 0

private:
    SendEmail &owner_;
    const std::unique_ptr<Message> message_;
    const std::uint32_t flags_;
};

// Sends e-mails. Texts are UTF-8; on Windows, characters that the process's code page lacks are replaced.
//
// Recipients are addresses, also with "SMTP:" in front. On POSIX an e-mail with a recipient that begins with '-', or
// has blanks or control characters or one of ()<>,;:\"[], is not sent (code 25). Line ends in a subject become blanks
// there, so that no text adds a header.
//
// Registry values: "Sender RealName" and "Sender Adress" (strings); "TO", "CC" and "BCC" (string arrays).
//
// Threads:   any thread, any operation, except during destruction. The texts and trees returned are for one thread: a
//            text is valid until the sender or the set changes, and Send and the operations on the registry move the
//            place of Next_.... A handler may hear reports on the thread that sends. It must not destroy the object.
// Ownership: everything is copied. Destruction drops what is queued. It lets the e-mail that is being sent go out;
//            after 3 s it ends the program (POSIX) or the thread (Windows).
// Errors:    false, and reported under "kernel/SendEMail", code 1:
//   3  Could not load MAPI32.DLL for Mailservice!             and the system's error; Send is false from then on
//   3  Could not get adress of MAPISendMail!...               likewise
//   3  No recipient of the email specified!                   Send is false
//   3  Could not allocated memory for 0 recipients            Send is false
//   3  Call of MAPISendMail failed: %s (Error-Code %d)        an e-mail is lost; 14 texts, those of Simple MAPI
//   2  what the mail program said about that                  POSIX, right after it
//   3  Email-thread did not respond for 3 sec. Have killed the thread.
//   3  Could not free MAPI32.DLL for Mailservice!
//   1  Write setting to registry "%s", Read settings from registry "%s"
class KERNEL_API SendEmail : public Object {
public:
    static const char Name[];  // "E-Mail with MAPI"
    static const char *ClassName() { return Name; }

    static SendEmail *Construct();  // null without memory
    ~SendEmail() override;
    bool IsInheritedFrom(const char *name) const override;

    // Null: the system's own name or address. Without an address, the From of the e-mail is the system's.
    void Set_Sender(const char *realName, const char *address);
    const char *Get_RealName() const;  // null: none
    const char *Get_ReturnAdress() const;

    // The sets of recipients that Send uses when it is given none. Add_... returns false for null, for an empty text
    // and without memory. Delete_...(text) takes out all that are equal to the text. First_... and Next_... return
    // the texts in their order, and null at the end.
    bool Add_To(const char *recipient) { return Add(To, recipient); }
    bool Add_CC(const char *recipient) { return Add(CC, recipient); }
    bool Add_BCC(const char *recipient) { return Add(BCC, recipient); }
    void Delete_To(const char *recipient) { Delete(To, recipient); }
    void Delete_CC(const char *recipient) { Delete(CC, recipient); }
    void Delete_BCC(const char *recipient) { Delete(BCC, recipient); }
    void Delete_To() { Delete(To); }
    void Delete_CC() { Delete(CC); }
    void Delete_BCC() { Delete(BCC); }
    AVL_CStringTree &GetTree_To() { return *trees_[To]; }  // not locked
    AVL_CStringTree &GetTree_CC() { return *trees_[CC]; }
    AVL_CStringTree &GetTree_BCC() { return *trees_[BCC]; }
    const char *First_To() { return First(To); }
    const char *First_CC() { return First(CC); }
    const char *First_BCC() { return First(BCC); }
    const char *Next_To() { return Next(To); }
    const char *Next_CC() { return Next(CC); }
    const char *Next_BCC() { return Next(BCC); }

    // Queues an e-mail. to, cc, bcc: recipients separated by ';', blanks around them are ignored; null or empty: none.
    // If `to` is null, the sets are used, and cc and bcc are not. attachments: file names separated by ';', read when
    // the e-mail is sent. dialog: Windows shows the e-mail to the user before it is sent. True: queued; a failure
    // later on is reported.
    bool Send(bool dialog, const char *text, const char *subject, const char *to, const char *cc, const char *bcc,
              const char *attachments);

    // Sender and sets in a sub key of the program's registry (kernel/settings/Registry.h). WriteToRegistry returns
    // false if a value could not be written; a sender of null is no value. ReadFromRegistry replaces all of them, by
    // nothing if the key cannot be read.
    bool WriteToRegistry(const char *key);
    void ReadFromRegistry(const char *key);

protected:
    enum List { To, CC, BCC };  // the sets
    static constexpr int Lists = 3;

    SendEmail();
    bool Add(List list, const char *recipient);
    void Delete(List list, const char *recipient);
    void Delete(List list);
    unsigned int Count(List list);
    unsigned int Count();  // of all sets
    const char *First(List list);
    const char *Next(List list);

private:
    struct Release_Info {
        void operator()(EmailInfo *info) const { info->Release(); }
    };
    using Info = std::unique_ptr<EmailInfo, Release_Info>;

    void Open_Service();
    void Start_Thread();
    void Stop_Thread();
    void Report_With_System_Error(unsigned int line, const char *text) const;
    void Set_Recipients(EmailInfo::Message &message, const char *to, const char *cc, const char *bcc);
    bool Fill(EmailInfo::Message &message, const char *to, const char *cc, const char *bcc);
    void Queue(Info info);
    Info Next_Queued();
    void Work();
    void Send_Now(const EmailInfo &info);

    Semaphore lock_;  // for queue, sender and sets
    std::deque<Info> queue_;
    std::unique_ptr<char[]> real_name_, address_;
    std::unique_ptr<AVL_CStringTree> trees_[Lists];
    std::unique_ptr<platform::Mail_Service> service_;  // null: not ready
    std::unique_ptr<platform::Event> queued_;          // wakes the thread
    std::shared_ptr<platform::Thread> thread_;         // null: not ready
    std::atomic<bool> is_stopped_{false};
    std::atomic<bool> is_given_up_{false};  // the e-mail that is being sent; its end is not reported
};

}  // namespace kernel
