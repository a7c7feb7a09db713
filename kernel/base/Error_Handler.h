// Where reports go: the abstract handler, the three that the library brings, and the handler of objects made without
// one.
#pragma once

#include "kernel/base/Semaphore.h"
#include "kernel/base/kernel_api.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace kernel {

// Passed to Do_Print; the handlers of the library ignore it. 1: no code given, 3: an operating-system error,
// 21: null pointer for an object, 26: stream type refused, 28: data without request, 31: unknown message,
// 33: value out of range, 34: operation missing in a subclass. Each unit's header lists its other codes.
using Err_Code = int;

// A sink for reports: Set(unit, line), then Print_Out(level, code, format, ...) or OS_Error(...).
//
// Threads:   two threads may report through one handler. Each may see the other's unit and line (both are relaxed
//            atomics). Texts do not mix if Do_Print takes a lock, as in the handlers of the library. A handler that is
//            being destroyed must not be used.
// Ownership: keeps the pointer to the unit's name until the report is printed: pass a constant text.
// Errors:    none; a text longer than 2047 characters is cut, a null format is an empty text. Reports use the stack
//            only and allocate nothing.
class KERNEL_API Error_Handler {
public:
    enum Enum_Status {
        ES_Message,
        ES_Information,
        ES_Warning,
        ES_Error,
        ES_Fatal,          // printed; the process goes on
        ES_Unrecoverable,  // printed by the handlers of the library, which then end the process with exit status -1
    };

    Error_Handler() = default;
    Error_Handler(const Error_Handler &) = delete;
    Error_Handler &operator=(const Error_Handler &) = delete;
    virtual ~Error_Handler();

    // Notes the source unit ("kernel/BYTE_SER") and the line of the next report. Returns this handler.
    Error_Handler *Set(const char *file, unsigned int line);
    // Formats, prints, and clears unit and line. The second form has code 1.
    void Print_Out(Enum_Status status, Err_Code code, const char *format, ...) KERNEL_PRINTF(4, 5);
    void Print_Out(Enum_Status status, const char *format, ...) KERNEL_PRINTF(3, 4);
    // Prints "<text> failed!\nOS Error-Code: 5=0x00000005 => <the system's text>" with code 3; a null format prints the
    // second line alone. Prints nothing when the error is 0. Does not clear unit and line. Errors are Win32 numbers on
    // every platform. The first form takes the calling thread's last error. On POSIX that is the last error of this
    // library's calls: a host that reports a system call of its own uses the second form.
    void OS_Error(Enum_Status status, const char *format, ...) KERNEL_PRINTF(3, 4);
    void OS_Error(unsigned long error, Enum_Status status, const char *format, ...) KERNEL_PRINTF(4, 5);

    // Returns the handler itself. For null returns a handler that drops every report, ES_Unrecoverable included.
    static Error_Handler &Or_Silent(Error_Handler *handler);

protected:
    static const char *const StatusMesg[6];  // indexed by Enum_Status

    const char *File() const { return file_.load(std::memory_order_relaxed); }   // null: none
    unsigned int Line() const { return line_.load(std::memory_order_relaxed); }  // 0: none

private:
    // Called on the reporting thread; `text` lives until return.
    virtual void Do_Print(Enum_Status status, Err_Code code, const char *text) = 0;

    void Report_OS(unsigned long error, Enum_Status status, const char *format, std::va_list arguments);

    std::atomic<unsigned int> line_{0};
    std::atomic<const char *> file_{nullptr};
};

// Prints the text and a line feed on a stdio stream, without a word for the level.
//
// Threads:   lines of several threads never mix.
// Ownership: the stream stays the caller's and must outlive the handler.
// Errors:    none; a text that the stream refuses is lost.
class KERNEL_API Simple_Error_Handler : public Error_Handler {
public:
    Simple_Error_Handler();
    explicit Simple_Error_Handler(bool print_location);
    // A null stream means standard error. With print_location each text follows "Line %u in File %s\n".
    Simple_Error_Handler(std::FILE *stream, bool print_location);
    template <class T>
    explicit Simple_Error_Handler(T *stream) = delete;  // a pointer would convert to print_location

private:
    void Do_Print(Enum_Status status, Err_Code code, const char *text) override;

    Semaphore lock_;
    bool print_location_;
    std::FILE *stream_;
};

// Prints on the debugger's output (standard error where there is none), with a prefix from ES_Warning on.
//
// Threads:   lines of several threads never mix.
// Ownership: nothing.
// Errors:    none.
class KERNEL_API Trace_Error_Handler : public Error_Handler {
public:
    Trace_Error_Handler() = default;

private:
    void Do_Print(Enum_Status status, Err_Code code, const char *text) override;

    Semaphore lock_;
};

// Prints nothing; ES_Unrecoverable still ends the process.
//
// Threads:   any.
// Ownership: nothing.
// Errors:    none.
class KERNEL_API NULL_Error_Handler : public Error_Handler {
    void Do_Print(Enum_Status status, Err_Code code, const char *text) override;
};

// For hosts. It exists from the load of the library to the end of the process, so that other threads and statics may
// report until then. It is not the default handler, which is internal.
extern KERNEL_API Trace_Error_Handler Trace_Handler;

}  // namespace kernel

// Part of the interface; here they do nothing. Programs that were built against a tracing build still link.
extern "C" {
KERNEL_API void BWTraceDebug(...);
KERNEL_API void BWTraceCharDebug(...);
KERNEL_API void BWTraceConsole(...);
KERNEL_API void BWTraceCharConsole(...);
KERNEL_API void BWTraceBoth(...);
KERNEL_API void BWTraceCharBoth(...);
}
