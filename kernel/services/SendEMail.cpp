#include "kernel/services/SendEMail.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/text_internal.h"
#include "kernel/settings/Registry.h"
#include "kernel/tables/AVL_CStringTree.h"

#include "platform/error.h"
#include "platform/mail.h"
#include "platform/thread.h"
#include "platform/wait.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

namespace kernel {

namespace {

constexpr char unit[] = "kernel/SendEMail";
constexpr char real_name_value[] = "Sender RealName", address_value[] = "Sender Adress";
constexpr const char *list_values[] = {"TO", "CC", "BCC"};
constexpr platform::Mail_Role roles[] = {platform::Mail_Role::to, platform::Mail_Role::cc, platform::Mail_Role::bcc};

constexpr std::size_t stack_size = 8192;  // [bytes]
constexpr int below_normal = -1;
constexpr unsigned long idle_ms = 250;
constexpr int seconds_to_end = 3;
constexpr unsigned long cancelled_ms = 500;  // for a thread to end after its program was ended

struct Result_Text {
    std::uint32_t code;
    const char *text;
};
constexpr Result_Text result_texts[] = {
    {1, "The user canceled one of the dialog boxes. No message was sent."},
    {2, "One or more unspecified errors occurred. No message was sent."},
    {3, "There was no default logon, and the user failed to log on successfully when the logon dialog box was "
        "displayed. No message was sent."},
    {5, "There was insufficient memory to proceed. No message was sent."},
    {9, "There were too many file attachments. No message was sent."},
    {10, "There were too many recipients. No message was sent."},
    {11, "The specified attachment was not found. No message was sent."},
    {12, "The specified attachment could not be opened. No message was sent."},
    {14, "A recipient did not appear in the address list. No message was sent."},
    {15, "The type of a recipient was not MAPI_TO, MAPI_CC, or MAPI_BCC. No message was sent."},
    {18, "The text in the message was too large. No message was sent."},
    {21, "A recipient matched more than one of the recipient descriptor structures and MAPI_DIALOG was not set. No "
         "message was sent."},
    {25, "One or more recipients were invalid or did not resolve to any address."},
};

const char *Text_Of(std::uint32_t code)
{
    const auto *const row = std::find_if(std::begin(result_texts), std::end(result_texts),
                                         [code](const Result_Text &result) { return result.code == code; });
    return row == std::end(result_texts) ? "Reason unknown. No message was sent." : row->text;
}

std::string_view Trimmed(std::string_view text)
{
    constexpr char blanks[] = " \t";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// Calls `action` for each entry of a list separated by ';'.
template <class Action>
void For_Each_Entry(const char *list, Action action)
{
    for (std::string_view rest = list ? list : ""; !rest.empty();) {
        const std::size_t end = std::min(rest.find(';'), rest.size());
        if (const std::string_view entry = Trimmed(rest.substr(0, end)); !entry.empty()) action(entry);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

template <class Action>
void For_Each(AVL_CStringTree &tree, Action action)
{
    for (const AVL_CStringNode *node = tree.WalkMin(); node; node = tree.WalkNext()) action(node->GetString());
}

std::unique_ptr<char[]> Copy_Or_Null(const char *text) { return text ? Copy_Text(text) : nullptr; }

// Runs a body that may run out of memory; false then.
template <class Body>
bool With_Memory(Body body)
{
    try {
        return body();
    } catch (const std::exception &) {
        return false;
    }
}

}  // namespace

struct EmailInfo::Message : platform::Mail {};

EmailInfo::EmailInfo(SendEmail &owner, std::unique_ptr<Message> message, std::uint32_t flags)
    : owner_(owner), message_(std::move(message)), flags_(flags)
{
}

EmailInfo::~EmailInfo() = default;

const char SendEmail::Name[] = "E-Mail with MAPI";

SendEmail *SendEmail::Construct()
{
    return Constructed([] { return new SendEmail; });
}

SendEmail::SendEmail() : Object(ClassName()), queued_(std::make_unique<platform::Event>())
{
    for (auto &tree : trees_) tree = std::make_unique<AVL_CStringTree>();
    Open_Service();
    if (service_) Start_Thread();
}

SendEmail::~SendEmail()
{
    {
        const Semaphore_Guard guard(lock_);
        queue_.clear();
    }
    if (thread_) Stop_Thread();
    if (service_ && !service_->close())
        Report_With_System_Error(__LINE__, "Could not free MAPI32.DLL for Mailservice!");
}

bool SendEmail::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || Object::IsInheritedFrom(name);
}

void SendEmail::Report_With_System_Error(unsigned int line, const char *text) const
{
    const std::uint32_t error = platform::last_error();
    if (error == platform::error_none) {
        Report(unit, line).Print_Out(Error_Handler::ES_Error, "%s", text);
        return;
    }
    char system_text[platform::most_error_text];
    platform::error_text(error, system_text);
    Report(unit, line)
        .Print_Out(Error_Handler::ES_Error, "%s\nOS Error-Code: %lu=0x%08lX => %s", text,
                   static_cast<unsigned long>(error), static_cast<unsigned long>(error), system_text);
}

void SendEmail::Open_Service()
{
    auto missing = platform::Mail_Service::Missing::library;
    platform::set_last_error(platform::error_none);
    service_ = platform::Mail_Service::open(missing);
    if (service_) return;
    const bool has_library = missing == platform::Mail_Service::Missing::function;
    Report_With_System_Error(__LINE__, has_library ? "Could not get adress of MAPISendMail!\r\nIncompatible "
                                                     "MAPI32.DLL-Versions. Contact Microsoft!"
                                                   : "Could not load MAPI32.DLL for Mailservice!");
}

void SendEmail::Start_Thread()
{
    const auto entry = [](void *self) -> unsigned long {
        static_cast<SendEmail *>(self)->Work();
        return 0;
    };
    if (queued_->valid()) thread_ = platform::Thread::start(entry, this, false, stack_size);
    if (thread_)
        thread_->set_priority(below_normal);
    else
        Report(unit, __LINE__).OS_Error(Error_Handler::ES_Error, "Start of the e-mail thread");
}

// A killed thread may have left the mail library in any state: it stays loaded.
void SendEmail::Stop_Thread()
{
    is_stopped_.store(true, std::memory_order_release);
    queued_->set();
    if (thread_->wait(seconds_to_end * 1000)) return;
    is_given_up_.store(true, std::memory_order_release);
    service_->cancel();
    if (!thread_->wait(cancelled_ms)) {
        thread_->kill(0);
        service_.reset();
    }
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, "Email-thread did not respond for %d sec. Have killed the thread.",
                   seconds_to_end);
}

void SendEmail::Set_Sender(const char *realName, const char *address)
{
    auto new_name = Copy_Or_Null(realName), new_address = Copy_Or_Null(address);
    const Semaphore_Guard guard(lock_);
    real_name_.swap(new_name);
    address_.swap(new_address);
}

const char *SendEmail::Get_RealName() const
{
    const Semaphore_Guard guard(lock_);
    return real_name_.get();
}

const char *SendEmail::Get_ReturnAdress() const
{
    const Semaphore_Guard guard(lock_);
    return address_.get();
}

bool SendEmail::Add(List list, const char *recipient)
{
    const Semaphore_Guard guard(lock_);
    return recipient && *recipient && trees_[list]->Insert(recipient);
}

void SendEmail::Delete(List list, const char *recipient)
{
    const Semaphore_Guard guard(lock_);
    trees_[list]->DeleteKey(recipient);
}

void SendEmail::Delete(List list)
{
    const Semaphore_Guard guard(lock_);
    trees_[list]->DeleteTree();
}

unsigned int SendEmail::Count(List list)
{
    const Semaphore_Guard guard(lock_);
    unsigned int count = 0;
    For_Each(*trees_[list], [&count](const char *) { ++count; });
    return count;
}

unsigned int SendEmail::Count()
{
    const Semaphore_Guard guard(lock_);
    return Count(To) + Count(CC) + Count(BCC);
}

const char *SendEmail::First(List list)
{
    const Semaphore_Guard guard(lock_);
    return AVL_CStringNode::GetString(trees_[list]->WalkMin());
}

const char *SendEmail::Next(List list)
{
    const Semaphore_Guard guard(lock_);
    return AVL_CStringNode::GetString(trees_[list]->WalkNext());
}

// Call with the lock held.
void SendEmail::Set_Recipients(EmailInfo::Message &message, const char *to, const char *cc, const char *bcc)
{
    const char *const given[] = {to, cc, bcc};
    for (int list = 0; list < Lists; ++list) {
        if (to)
            For_Each_Entry(given[list], [&](std::string_view entry) {
                message.recipients.push_back({roles[list], "SMTP:" + std::string(entry)});
            });
        else
            For_Each(*trees_[list], [&](const char *recipient) {
                message.recipients.push_back({roles[list], recipient});
            });
    }
}

// False: the sets were to be used, and there is no To.
bool SendEmail::Fill(EmailInfo::Message &message, const char *to, const char *cc, const char *bcc)
{
    const Semaphore_Guard guard(lock_);
    if (!to && Count(To) == 0) return false;
    Set_Recipients(message, to, cc, bcc);
    message.sender_name = real_name_ ? real_name_.get() : "";
    message.sender_address = address_ ? address_.get() : "";
    return true;
}

bool SendEmail::Send(bool dialog, const char *text, const char *subject, const char *to, const char *cc,
                     const char *bcc, const char *attachments)
{
    bool has_recipient = true;
    const bool is_queued = With_Memory([&] {
        auto message = std::make_unique<EmailInfo::Message>();
        has_recipient = Fill(*message, to, cc, bcc);
        if (!has_recipient || !thread_) return true;
        message->text = text ? text : "";
        message->subject = subject ? subject : "";
        For_Each_Entry(attachments, [&](std::string_view path) { message->attachments.emplace_back(path); });
        Queue(Info(new EmailInfo(*this, std::move(message), dialog ? EmailInfo::Show_Dialog : 0)));
        return true;
    });
    if (!is_queued)
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, "Could not allocated memory for %u recipients", 0u);
    else if (!has_recipient)
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, "No recipient of the email specified!");
    return is_queued && has_recipient && thread_;
}

void SendEmail::Queue(Info info)
{
    {
        const Semaphore_Guard guard(lock_);
        queue_.push_back(std::move(info));
    }
    queued_->set();
}

SendEmail::Info SendEmail::Next_Queued()
{
    const Semaphore_Guard guard(lock_);
    if (queue_.empty()) return nullptr;
    Info info = std::move(queue_.front());
    queue_.pop_front();
    return info;
}

void SendEmail::Work()
{
    while (!is_stopped_.load(std::memory_order_acquire)) {
        if (const Info info = Next_Queued())
            Send_Now(*info);
        else
            queued_->wait(idle_ms);
    }
}

void SendEmail::Send_Now(const EmailInfo &info)
{
    std::string detail;
    const std::uint32_t result =
        service_->send(info.GetMessage(), (info.GetFlags() & EmailInfo::Show_Dialog) != 0, detail);
    if (result == platform::mail_sent || is_given_up_.load(std::memory_order_acquire)) return;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Error, "Call of %s failed: %s (Error-Code %d)", "MAPISendMail", Text_Of(result),
                   static_cast<int>(result));
    if (!detail.empty()) Report(unit, __LINE__).Print_Out(Error_Handler::ES_Warning, "%s", detail.c_str());
}

// Reads and writes of the registry wait for other processes: the lock is not held meanwhile.
bool SendEmail::WriteToRegistry(const char *key)
{
    Registry registry(key, Registry::Read_and_Write, &Error_Handler::Or_Silent(Get_Error_Handler()));
    if (registry.GetModus() == Registry::None) return false;
    Report(unit, __LINE__)
        .Print_Out(Error_Handler::ES_Information, "Write setting to registry \"%s\"", registry.GetDisplayName());
    return With_Memory([&] {
        std::unique_ptr<char[]> name, address;
        std::vector<std::string> recipients[Lists];
        {
            const Semaphore_Guard guard(lock_);
            name = Copy_Or_Null(real_name_.get());
            address = Copy_Or_Null(address_.get());
            for (int list = 0; list < Lists; ++list)
                For_Each(*trees_[list], [&](const char *recipient) { recipients[list].emplace_back(recipient); });
        }
        const auto write = [&registry](const char *value, const char *text) {
            return text ? registry.WriteString(value, text) : registry.Delete(value);
        };
        bool is_written = write(real_name_value, name.get());
        is_written = write(address_value, address.get()) && is_written;
        for (int list = 0; list < Lists; ++list) {
            is_written = registry.Delete(list_values[list]) && is_written;
            for (unsigned int i = 0; i < recipients[list].size(); ++i)
                is_written = registry.WriteString(list_values[list], i, recipients[list][i].c_str()) && is_written;
        }
        return is_written;
    });
}

void SendEmail::ReadFromRegistry(const char *key)
{
    Set_Sender(nullptr, nullptr);
    Registry registry(key, Registry::Read_only, &Error_Handler::Or_Silent(Get_Error_Handler()));
    const bool is_open = registry.GetModus() != Registry::None;
    if (is_open) {
        Report(unit, __LINE__)
            .Print_Out(Error_Handler::ES_Information, "Read settings from registry \"%s\"", registry.GetDisplayName());
        const auto name = Copy_Or_Null(registry.ReadString(real_name_value, nullptr));
        Set_Sender(name.get(), registry.ReadString(address_value, nullptr));
    }
    for (const List list : {To, CC, BCC}) {
        Delete(list);
        const unsigned int size = is_open ? registry.GetArraySize(list_values[list]) : 0;
        for (unsigned int i = 0; i < size; ++i) Add(list, registry.ReadString(list_values[list], i, nullptr));
    }
}

}  // namespace kernel
