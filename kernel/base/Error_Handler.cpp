#include "kernel/base/Error_Handler.h"

#include "kernel/base/Immortal_internal.h"

#include "platform/clock.h"
#include "platform/debug.h"
#include "platform/error.h"

#include <cstdlib>
#include <cstring>
#include <thread>

namespace kernel {

namespace {

// Texts are made on the stack, so that a report about lack of memory needs none.
constexpr std::size_t text_size = 2048;  // [characters], terminator included
constexpr Err_Code no_code = 1;
constexpr Err_Code os_error_code = 3;
constexpr unsigned long wait_for_exit_ms = 1000;

// std::exit may run only once. A second thread that gets here waits for the end; a destructor that reports again during
// the exit ends the process directly.
[[noreturn]] void End_Process()
{
    static std::atomic<std::thread::id> ending{};
    std::thread::id nobody{};
    if (ending.compare_exchange_strong(nobody, std::this_thread::get_id())) std::exit(-1);
    if (nobody == std::this_thread::get_id()) std::_Exit(-1);
    for (;;) platform::sleep_ms(wait_for_exit_ms);
}

// For objects without a handler. ES_Unrecoverable does not end the process here, because no text would tell why.
class Silent_Handler : public Error_Handler {
    void Do_Print(Enum_Status, Err_Code, const char *) override {}
};

void Format(char (&text)[text_size], const char *format, std::va_list arguments)
{
    text[0] = '\0';
    if (format && std::vsnprintf(text, text_size, format, arguments) < 0) text[0] = '\0';
}

}  // namespace

// Never destroyed, like the other handlers of the library: reports may come until the process ends. A variable of the
// handler's type would be destroyed, so Trace_Handler is an alias of plain bytes. The handler is constructed through
// the alias: with a copy relocation the program's bytes replace those of the library.
extern unsigned char trace_handler_bytes[];
alignas(Trace_Error_Handler) unsigned char trace_handler_bytes[sizeof(Trace_Error_Handler)];
extern KERNEL_API Trace_Error_Handler Trace_Handler __attribute__((alias("_ZN6kernel19trace_handler_bytesE")));

namespace {

[[maybe_unused]] const Error_Handler *const made = ::new (static_cast<void *>(&Trace_Handler)) Trace_Error_Handler;

}  // namespace

// For handlers of hosts; those of the library print none of these. The spelling of the last is part of the interface.
const char *const Error_Handler::StatusMesg[6] = {"Message", "Information", "Warning",
                                                  "Error",   "Fatal Error", "Unrecoverble Error"};

Error_Handler::~Error_Handler() = default;

Error_Handler &Error_Handler::Or_Silent(Error_Handler *handler)
{
    static Immortal<Silent_Handler> silent_handler;
    return handler ? *handler : *silent_handler;
}

Error_Handler *Error_Handler::Set(const char *file, unsigned int line)
{
    file_.store(file, std::memory_order_relaxed);
    line_.store(line, std::memory_order_relaxed);
    return this;
}

void Error_Handler::Print_Out(Enum_Status status, Err_Code code, const char *format, ...)
{
    char text[text_size];
    std::va_list arguments;
    va_start(arguments, format);
    Format(text, format, arguments);
    va_end(arguments);
    Do_Print(status, code, text);
    Set(nullptr, 0);
}

void Error_Handler::Print_Out(Enum_Status status, const char *format, ...)
{
    char text[text_size];
    std::va_list arguments;
    va_start(arguments, format);
    Format(text, format, arguments);
    va_end(arguments);
    Do_Print(status, no_code, text);
    Set(nullptr, 0);
}

void Error_Handler::OS_Error(Enum_Status status, const char *format, ...)
{
    // Read it first: formatting the text may change it.
    const unsigned long error = platform::last_error();
    std::va_list arguments;
    va_start(arguments, format);
    Report_OS(error, status, format, arguments);
    va_end(arguments);
}

void Error_Handler::OS_Error(unsigned long error, Enum_Status status, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    Report_OS(error, status, format, arguments);
    va_end(arguments);
}

// If the report is too long, the caller's text is cut and the system's text stays, because it names the cause.
void Error_Handler::Report_OS(unsigned long error, Enum_Status status, const char *format, std::va_list arguments)
{
    if (error == 0) return;
    const auto code = static_cast<unsigned int>(error);
    char words[platform::most_error_text];
    platform::error_text(code, words);
    // The system's text gets at most half of a report.
    char cause[text_size / 2];
    std::snprintf(cause, sizeof cause, "OS Error-Code: %d=0x%08X => %s", static_cast<int>(code), code, words);
    if (!format) {
        Do_Print(status, os_error_code, cause);
        return;
    }
    constexpr std::size_t between = std::char_traits<char>::length(" failed!\n");
    char text[text_size];
    Format(text, format, arguments);
    char report[text_size];
    const auto room = static_cast<int>(text_size - 1 - between - std::strlen(cause));
    std::snprintf(report, sizeof report, "%.*s failed!\n%s", room, text, cause);
    Do_Print(status, os_error_code, report);
}

Simple_Error_Handler::Simple_Error_Handler() : Simple_Error_Handler(false) {}

Simple_Error_Handler::Simple_Error_Handler(bool print_location) : Simple_Error_Handler(nullptr, print_location) {}

Simple_Error_Handler::Simple_Error_Handler(std::FILE *stream, bool print_location)
    : print_location_(print_location), stream_(stream ? stream : stderr)
{
}

void Simple_Error_Handler::Do_Print(Enum_Status status, Err_Code, const char *text)
{
    {
        const Semaphore_Guard guard(lock_);
        // printf with a null %s is undefined; "(null)" is what most run-time libraries print.
        if (print_location_) std::fprintf(stream_, "Line %u in File %s\n", Line(), File() ? File() : "(null)");
        std::fprintf(stream_, "%s\n", text);
    }
    // The lock is free here: destructors that run at the exit may wait for threads that want to report.
    if (status == ES_Unrecoverable) End_Process();
}

void Trace_Error_Handler::Do_Print(Enum_Status status, Err_Code, const char *text)
{
    // Not the words of StatusMesg: these are padded to one width. Prefix, text and line feed are three calls, which is
    // visible to a hook of the debugger's output and part of the interface.
    static const char *const prefix[] = {nullptr, nullptr, "Warning: ", "Error  : ", "Fatal  : ", "Terminate: "};
    {
        const Semaphore_Guard guard(lock_);
        if (status >= ES_Warning && status <= ES_Unrecoverable) platform::debug_output(prefix[status]);
        platform::debug_output(text);
        platform::debug_output("\n");
    }
    if (status == ES_Unrecoverable) {
        // Break before the exit, while the stack still shows the reporting call.
        platform::debug_break();
        End_Process();
    }
}

void NULL_Error_Handler::Do_Print(Enum_Status status, Err_Code, const char *)
{
    if (status == ES_Unrecoverable) End_Process();
}

}  // namespace kernel

extern "C" {
void BWTraceDebug(...) {}
void BWTraceCharDebug(...) {}
void BWTraceConsole(...) {}
void BWTraceCharConsole(...) {}
void BWTraceBoth(...) {}
void BWTraceCharBoth(...) {}
}
