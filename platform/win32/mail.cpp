#include "platform/mail.h"

#include "platform/error.h"
#include "platform/library.h"
#include "platform/win32/wide_text.h"

#include <windows.h>

#include <mapi.h>

#include <clocale>
#include <new>

namespace platform {

struct Mail_Service::State {
    void *library = nullptr;
    LPMAPISENDMAIL send = nullptr;
};

namespace {

constexpr ULONG placed_by_system = 0xFFFFFFFF;
constexpr std::size_t longest_locale = 200;

// MAPISendMail takes the process's code page, which is not UTF-8 in every host.
std::string native(const std::string &utf8)
{
    const std::wstring text = win32::wide(utf8);
    const int size = static_cast<int>(text.size());
    std::string bytes(
        static_cast<std::size_t>(WideCharToMultiByte(CP_ACP, 0, text.data(), size, nullptr, 0, nullptr, nullptr)),
        '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), size, bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr);
    return bytes;
}

// A mail in MAPI's structures.
class Mapi_Mail {
public:
    explicit Mapi_Mail(const Mail &mail)
        : subject_(native(mail.subject)), text_(native(mail.text)),
          sender_name_(mail.sender_name.empty() ? "No Name" : native(mail.sender_name)),
          sender_address_(native(mail.sender_address))
    {
        for (const Mail_Recipient &recipient : mail.recipients) addresses_.push_back(native(recipient.address));
        for (const std::string &path : mail.attachments) paths_.push_back(native(path));
        for (std::size_t i = 0; i < addresses_.size(); ++i)
            recipients_.push_back({0, static_cast<ULONG>(mail.recipients[i].role), addresses_[i].data(),
                                   addresses_[i].data(), 0, nullptr});
        for (std::string &path : paths_) files_.push_back({0, 0, placed_by_system, path.data(), nullptr, nullptr});
        message_.lpszSubject = subject_.data();
        message_.lpszNoteText = text_.data();
        // Without an address the mail client puts the user's own there.
        if (!mail.sender_address.empty()) message_.lpOriginator = &originator_;
        message_.nRecipCount = static_cast<ULONG>(recipients_.size());
        message_.lpRecips = recipients_.data();
        message_.nFileCount = static_cast<ULONG>(files_.size());
        message_.lpFiles = files_.data();
    }
    Mapi_Mail(const Mapi_Mail &) = delete;
    Mapi_Mail &operator=(const Mapi_Mail &) = delete;

    MapiMessage *message() { return &message_; }

private:
    std::string subject_, text_, sender_name_, sender_address_;
    std::vector<std::string> addresses_, paths_;
    std::vector<MapiRecipDesc> recipients_;
    std::vector<MapiFileDesc> files_;
    MapiRecipDesc originator_{0, MAPI_ORIG, sender_name_.data(), sender_address_.data(), 0, nullptr};
    MapiMessage message_{};
};

// Mail clients run inside the process, and some change its locale.
class Kept_Locale {
public:
    Kept_Locale() : former_(current().substr(0, longest_locale)) {}
    ~Kept_Locale()
    {
        if (current() != former_) std::setlocale(LC_ALL, former_.c_str());
    }
    Kept_Locale(const Kept_Locale &) = delete;
    Kept_Locale &operator=(const Kept_Locale &) = delete;

private:
    static std::string current()
    {
        const char *const name = std::setlocale(LC_ALL, nullptr);
        return name ? name : "";
    }

    const std::string former_;
};

}  // namespace

Mail_Service::Mail_Service() : state_(std::make_unique<State>()) {}

Mail_Service::~Mail_Service() = default;

std::unique_ptr<Mail_Service> Mail_Service::open(Missing &missing)
try {
    missing = Missing::library;
    std::unique_ptr<Mail_Service> service(new Mail_Service);
    service->state_->library = load_library("MAPI32.DLL");
    if (!service->state_->library) return nullptr;
    missing = Missing::function;
    service->state_->send = reinterpret_cast<LPMAPISENDMAIL>(
        reinterpret_cast<void *>(function_of(service->state_->library, "MAPISendMail")));
    if (service->state_->send) return service;
    const std::uint32_t error = last_error();
    service->close();
    set_last_error(error);
    return nullptr;
} catch (const std::bad_alloc &) {
    set_last_error(error_no_memory);
    return nullptr;
}

std::uint32_t Mail_Service::send(const Mail &mail, bool shows_dialog, std::string &detail)
try {
    detail.clear();
    Mapi_Mail mapi(mail);
    const Kept_Locale kept;
    return state_->send(0, 0, mapi.message(), shows_dialog ? MAPI_DIALOG : 0, 0);
} catch (const std::exception &) {
    return mail_no_memory;
}

void Mail_Service::cancel() {}

bool Mail_Service::close() { return free_library(state_->library); }

}  // namespace platform
