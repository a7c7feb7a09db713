// The e-mails of a run: from whom, to whom, and on their way.
#pragma once

#include "host/gnss_stream/Console.h"
#include "kernel/services/SendEMail.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace host {

// Recipients and sender are given, or stand in the sub key "Mail" of the program's registry.
//
// Threads:   one.
// Ownership: the console outlives it. Destruction gives up what End did not wait for.
// Errors:    reported as those of "mail"; an e-mail that is lost is no fault of the run.
class Mailer {
public:
    struct Options {
        std::vector<std::string> to;                      // empty: recipients and sender by registry
        std::string from;                                 // empty: the registry's or the system's
        std::chrono::milliseconds after{15 * 60 * 1000};  // until an end that is silent or down is mailed
        bool is_wanted = false;
    };

    explicit Mailer(Console &console) : handler_(console, "mail", End_Handler::Faults::from_fatal) {}

    bool Open(const Options &options);  // false: nobody is to get e-mails, or no memory
    // Only hands it over. Whether there is a mail service shows then, and whether it takes the e-mail shows later.
    void Send(const std::string &subject, const std::string &text);
    void End();  // waits for the e-mail that is going out, 3 s at most; others that wait are dropped

private:
    struct Destruct {
        void operator()(kernel::SendEmail *mail) const { kernel::Object::Destruct(mail); }
    };

    void Complain(unsigned int line, const char *text);

    End_Handler handler_;
    std::unique_ptr<kernel::SendEmail, Destruct> mail_;
    std::chrono::steady_clock::time_point sent_{};  // the last time
};

}  // namespace host
