// Where reports go: the abstract handler, the three that the library brings, and the handler of objects made without one.
#pragma once

#include "kernel/base/Semaphore.h"
#include "kernel/base/kernel_api.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace kernel {

// Carried to Do_Print; the handlers of the library ignore it. 1: no code given, 3: an operating-system error,
// 21: null pointer for an object, 26: stream type refused, 28: data without request, 31: unknown message,
// 33: value out of range, 34: operation missing in a subclass; each unit's header lists what else it uses.
using Err_Code = int;

// A sink for reports: Set(unit, line), then Print_Out(level, code, format, ...) or OS_Error(...).
//
// Threads:   two threads may report through one handler; each may see the other's unit and line (both are relaxed
//            atomics), but texts never mix where Do_Print serialises, as the handlers of the library do. Nobody may report
//            through a handler that is being destroyed.
// Ownership: keeps pointers to the unit's name until the report is out: pass a constant text.
// Errors:    none; a text longer than 2047 characters is cut, a null format is an empty text. Reports need no memory but
//            the stack.
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

    // Notes the source unit ("kernel/BYTE_SER") and line of the report to come; answers this handler.
    Error_Handler *Set(const char *file, unsigned int line);
    // Formats, prints, and forgets unit and line. The second form has code 1.
    void Print_Out(Enum_Status status, Err_Code code, const char *format, ...) KERNEL_PRINTF(4, 5);
    void Print_Out(Enum_Status status, const char *format, ...) KERNEL_PRINTF(3, 4);
    // "<text> failed!\nOS Error-Code: 5=0x00000005 => <the system's text>" with code 3; without a format the second line
    // alone. Nothing when the error is 0. Unit and line stay as they are. Errors are Win32 numbers on every platform. The
    // first form takes the calling thread's last error: on POSIX that of this library's calls; what a host's own system
    // call left behind it cannot know, so a host there uses the second form.
    void OS_Error(Enum_Status status, const char *format, ...) KERNEL_PRINTF(3, 4);
    void OS_Error(unsigned long error, Enum_Status status, const char *format, ...) KERNEL_PRINTF(4, 5);

    // The handler itself, or for null one that swallows every report, level 5 included.
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

// Prints the text and a line feed on a stdio stream; no word for the level.
//
// Threads:   lines of several threads never mix.
// Ownership: the stream stays the caller's and must outlive the handler.
// Errors:    none; what the stream refuses is lost.
class KERNEL_API Simple_Error_Handler : public Error_Handler {
public:
    Simple_Error_Handler();
    explicit Simple_Error_Handler(bool print_location);
    // A null stream means standard error. With print_location each text follows "Line %u in File %s\n".
    Simple_Error_Handler(std::FILE *stream, bool print_location);
    template <class T>
    explicit Simple_Error_Handler(T *stream) = delete;  // would be taken for print_location

private:
    void Do_Print(Enum_Status status, Err_Code code, const char *text) override;

    Semaphore lock_;
    bool print_location_;
    std::FILE *stream_;
};

// Prints on the debugger's output (standard error where there is none), with a prefix for levels 2 to 5.
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

// Prints nothing; level 5 still ends the process.
//
// Threads:   any.
// Ownership: nothing.
// Errors:    none.
class KERNEL_API NULL_Error_Handler : public Error_Handler {
    void Do_Print(Enum_Status status, Err_Code code, const char *text) override;
};

// For hosts; lives from the load of the library to the end of the process, so that other threads and statics may report
// until then. Not the default handler: that one is internal.
extern KERNEL_API Trace_Error_Handler Trace_Handler;

}  // namespace kernel

// Empty on purpose: programs built against a tracing build still link.
extern "C" {
KERNEL_API void BWTraceDebug(...);
KERNEL_API void BWTraceCharDebug(...);
KERNEL_API void BWTraceConsole(...);
KERNEL_API void BWTraceCharConsole(...);
KERNEL_API void BWTraceBoth(...);
KERNEL_API void BWTraceCharBoth(...);
}
