#include "host/gnss_stream/Mailer.h"

#include <thread>

namespace host {

namespace {

const char unit[] = "host/Mailer";
constexpr std::chrono::milliseconds taking_time{300};  // within which the sender's thread begins with an e-mail

}  // namespace

void Mailer::Complain(unsigned int line, const char *text)
{
    handler_.Set(unit, line)->Print_Out(kernel::Error_Handler::ES_Error, "%s", text);
}

bool Mailer::Open(const Options &options)
{
    mail_.reset(kernel::SendEmail::Construct());
    if (!mail_) return Complain(__LINE__, "Not enough memory."), false;
    mail_->Set_Error_Handler(handler_);
    if (options.to.empty()) mail_->ReadFromRegistry("Mail");
    for (const std::string &to : options.to) mail_->Add_To(to.c_str());
    if (!options.from.empty()) {
        const char *const known = mail_->Get_RealName();
        const std::string name = known ? known : "";  // Set_Sender replaces what Get_RealName has shown
        mail_->Set_Sender(name.empty() ? nullptr : name.c_str(), options.from.c_str());
    }
    if (mail_->First_To()) return true;
    Complain(__LINE__, "Nobody is to get e-mails: give --mail-to, or the value TO of the registry's key Mail.");
    return false;
}

void Mailer::Send(const std::string &subject, const std::string &text)
{
    sent_ = std::chrono::steady_clock::now();
    if (!mail_->Send(false, text.c_str(), subject.c_str(), nullptr, nullptr, nullptr, nullptr))
        Complain(__LINE__, ("No mail service takes the e-mail \"" + subject + "\".").c_str());
}

void Mailer::End()
{
    std::this_thread::sleep_until(sent_ + taking_time);
    mail_.reset();
}

}  // namespace host
