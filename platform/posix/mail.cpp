#include "platform/mail.h"

#include "platform/error.h"
#include "platform/mail_text.h"
#include "platform/posix/errno_table.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

extern char **environ;

namespace platform {

struct Mail_Service::State {
    std::mutex lock;  // for the two below; held for kill and waitid without waiting only
    pid_t child = 0;  // 0: none
    bool is_cancelled = false;

    void began(pid_t id);
    bool waited_for(siginfo_t &end);
    void end_child() const;
};

namespace {

constexpr int first_descriptor = 3;         // behind standard input, output and error
constexpr off_t most_words = 65536;         // [bytes] of what the program says; more is refused
constexpr std::size_t most_reported = 400;  // [bytes] of it

// A file in memory. The program reads the message from one and writes its words to another, so that neither side waits
// for the other and no write can raise SIGPIPE.
class Memory_File {
public:
    Memory_File() : descriptor_(memfd_create("mail", MFD_CLOEXEC | MFD_ALLOW_SEALING))
    {
        if (descriptor_ < 0 || descriptor_ >= first_descriptor) return;
        const int low = descriptor_;  // the host has closed a standard stream
        descriptor_ = fcntl(low, F_DUPFD_CLOEXEC, first_descriptor);
        ::close(low);
    }
    ~Memory_File()
    {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    Memory_File(const Memory_File &) = delete;
    Memory_File &operator=(const Memory_File &) = delete;

    int descriptor() const { return descriptor_; }
    bool holds(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t put = write(descriptor_, bytes.data(), bytes.size());
            if (put < 0 && errno != EINTR) return false;
            bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(put, 0)));
        }
        return lseek(descriptor_, 0, SEEK_SET) == 0;
    }
    bool limit(off_t size) const
    {
        return ftruncate(descriptor_, size) == 0 && fcntl(descriptor_, F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK) == 0;
    }
    // The begin of the content in one line.
    std::string words() const
    {
        std::string text(most_reported, '\0');
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(pread(descriptor_, text.data(), text.size(), 0), 0)));
        text.resize(std::min(text.find('\0'), text.size()));
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, ' ');
        text.resize(text.find_last_not_of(' ') + 1);
        return text;
    }

private:
    int descriptor_;
};

// How the program is started.
class Start {
public:
    Start(const Memory_File &message, const Memory_File &words)
    {
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, message.descriptor(), STDIN_FILENO);
        posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, words.descriptor(), STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions_, first_descriptor);
    }
    ~Start()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    Start(const Start &) = delete;
    Start &operator=(const Start &) = delete;

    // Returns an errno, or 0.
    int operator()(std::vector<std::string> &words, pid_t &child) const
    {
        std::vector<char *> arguments;
        for (std::string &word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        return posix_spawn(&child, arguments[0], &actions_, &attributes_, arguments.data(), environ);
    }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

std::vector<std::string> command_line(const Mail &mail)
{
    const char *const set = std::getenv("GNSS_KERNEL_SENDMAIL");
    std::vector<std::string> words{set && *set ? set : "/usr/sbin/sendmail", "-i"};
    if (const std::string_view sender = mail_address(mail.sender_address); !sender.empty())
        words.insert(words.end(), {"-f", std::string(sender)});
    else if (!mail.sender_name.empty())
        words.insert(words.end(), {"-F", mail.sender_name});
    for (const Mail_Recipient &recipient : mail.recipients) words.emplace_back(mail_address(recipient.address));
    return words;
}

std::uint32_t result_of_start(int error)
{
    switch (error) {
    case E2BIG: return mail_too_many_recipients;
    case ENOMEM:
    case EAGAIN: return mail_no_memory;
    default: return mail_failed;
    }
}

std::uint32_t result_of_status(int status)
{
    switch (status) {
    case EX_OK: return mail_sent;
    case EX_NOUSER: return mail_unknown_recipient;
    case EX_NOHOST: return mail_bad_recipients;
    case EX_NOPERM: return mail_no_logon;
    default: return mail_failed;
    }
}

std::string words_of_errno(int error) { return error_text(posix::from_errno(error)); }

}  // namespace

// A host may collect our child, and the system may give its number to another process. waitid knows the difference.
void Mail_Service::State::end_child() const
{
    siginfo_t end{};
    if (child > 0 && waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOHANG | WNOWAIT) == 0)
        kill(-child, SIGKILL);  // its process group
}

void Mail_Service::State::began(pid_t id)
{
    const std::lock_guard guard(lock);
    child = id;
    if (is_cancelled) end_child();
}

// False if the host has collected the child. The number stays the child's until the second waitid.
bool Mail_Service::State::waited_for(siginfo_t &end)
{
    int result = 0;
    do result = waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT);
    while (result != 0 && errno == EINTR);
    const std::lock_guard guard(lock);
    siginfo_t ignored{};
    if (result == 0) waitid(P_PID, static_cast<id_t>(child), &ignored, WEXITED | WNOHANG);
    child = 0;
    return result == 0;
}

Mail_Service::Mail_Service() : state_(std::make_unique<State>()) {}

Mail_Service::~Mail_Service() = default;

// Whether there is a program shows when a mail is sent: it may be installed while the host runs.
std::unique_ptr<Mail_Service> Mail_Service::open(Missing &missing)
{
    missing = Missing::library;
    try {
        return std::unique_ptr<Mail_Service>(new Mail_Service);
    } catch (const std::bad_alloc &) {
        set_last_error(error_no_memory);
        return nullptr;
    }
}

std::uint32_t Mail_Service::send(const Mail &mail, bool, std::string &detail)
try {
    detail.clear();
    std::string text;
    if (const Mail_Result result = mail_text(mail, text); result != mail_sent) return result;
    const Memory_File message, said;
    if (!message.holds(text) || !said.limit(most_words)) {
        detail = "No file in memory for the mail: " + words_of_errno(errno);
        return mail_failed;
    }
    std::vector<std::string> words = command_line(mail);
    pid_t child = 0;
    if (const int error = Start(message, said)(words, child); error != 0) {
        detail = words[0] + ": " + words_of_errno(error);
        return result_of_start(error);
    }
    state_->began(child);
    siginfo_t end{};
    if (!state_->waited_for(end)) {
        detail = words[0] + ": its end was collected by the host; it is not known whether the mail was sent";
        return mail_failed;
    }
    const bool has_exited = end.si_code == CLD_EXITED;
    const std::uint32_t result = has_exited ? result_of_status(end.si_status) : std::uint32_t{mail_failed};
    if (result == mail_sent) return result;
    detail = words[0] + (has_exited ? " ended with status " : " was ended by signal ") + std::to_string(end.si_status);
    if (const std::string told = said.words(); !told.empty()) detail += ": " + told;
    return result;
} catch (const std::exception &) {
    return mail_no_memory;
}

void Mail_Service::cancel()
{
    const std::lock_guard guard(state_->lock);
    state_->is_cancelled = true;
    state_->end_child();
}

bool Mail_Service::close() { return true; }

}  // namespace platform
