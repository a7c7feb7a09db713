// Replays a recorded byte stream from a file, paced by a byte budget.
#pragma once

#include "kernel/base/Base_Thread.h"
#include "kernel/bytes/String_Byte_Server.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace kernel {

class ipcMutexSemaphore;
class Open_File;

// Reads a file in blocks of at most 4096 bytes and hands them to the connected client like a serial port or socket.
// The budget is the number of bytes that may be read. It grows at a fixed rate (AutoRun), by grants (Insert), or for
// one call (Work(n)). Typical use: Construct, Connect a client, Create(file, rate), Work() starts the thread.
//
// Threads:   the reader thread delivers: the client's Send, Next_File and the reports run on it. Any thread may call
//            the control operations; they make changes under a lock named after the file, which is shared with other
//            processes that replay the same name. When the reader thread itself (the client) calls stop(), Close or
//            Disconnect, they only ask the thread to end. Connect, Switch, Disconnect and destruction wait until no
//            thread is inside the old client; see Byte_Server for what they promise and forbid. One thread calls Work()
//            and Work(n); Work(n) first asks a running reader to end and waits for it. Do not destroy the object on the
//            reader thread. A subclass that overrides Next_File, thread or Sleep calls Close(false) in its destructor.
// Ownership: the client as Byte_Server; the file is open for reading until Close, and nobody may write to it meanwhile.
// Errors:    kernel/file_server, level 3: code 9 "Could not open file %s", code 15 the cause, also in a message box,
//            code 18 no memory or no lock; level 2, code 16 "EOF of file \"%s\"". Only regular files are opened: a FIFO
//            or a device is refused with Win32 error 222 ("no regular file"). A failed read is repeated while there is
//            budget; then, or when the file is closed, the run ends and reports the cause once (code 15). A reader that
//            is being stopped shows no box, because the box would delay it. Bytes that the client leaves in the buffer
//            of 8191 bytes are kept; bytes that do not fit are dropped, as on a live line without a reader.
class KERNEL_API File_Server : public String_Byte_Server, public Base_Thread {
public:
    static const char Name[];  // "Server for File Communication"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Makes every file server of the process read one byte per call. Set by Construct, before construction.
    static std::atomic<bool> IsUsedByOrgScan;

    // A null name is the default name.
    static File_Server *Construct(const char *name, bool isUsedByOrgScan);
    static void Destruct(File_Server *server) { Object::Destruct(server); }

    bool IsValid() const override;
    void Disconnect() override;  // stops the thread first
    // Starts the thread if it does not run. Returns true.
    bool Work() override;

    // Opens a file for replay, with an empty budget and a rate in bytes per second (0: only grants). The name is UTF-8.
    // Null closes. An empty name succeeds without a file; the thread then ends at once. Holds no lock while the system
    // opens. Returns false without a report when another thread has called Close or Create meanwhile.
    virtual bool Create(const char *name, unsigned long rate);
    // from_thread: the caller is the reader thread or must not wait for it; the thread is not stopped.
    virtual void Close(bool from_thread);
    virtual void Insert(unsigned long n);      // grants n more bytes; saturates
    virtual void AutoRun(unsigned long rate);  // [bytes/s] from now on; 0 ends it
    virtual bool Next_File();                  // called at the end of the file; false when there is no next file

    // Replays n more bytes on the calling thread and ends auto-run. At a change of file it returns early, because a new
    // file starts with an empty budget. Returns false at the end of the (last) file, and true also without a client or
    // a file. A failed read is repeated until it succeeds or another thread closes the file; until then this call does
    // not return.
    bool Work(unsigned long n);

    const char *GetFilename() const;   // null when closed; valid until the next change of file
    std::int64_t GetBytesIn() const;   // [bytes] from all files since construction
    unsigned long GetFilePos() const;  // [bytes]; 0xFFFFFFFF without a file
    // Reports the last error and shows it in a message box.
    void ErrorBox();

    unsigned long thread() override;  // the reader; -1 without a client, 0 after the end of file, else 1

    ~File_Server() override;

protected:
    explicit File_Server(const char *name);
    unsigned long terminate() override;  // freezes the budget and closes the file; does not wait

    // The result of opening a file; superseded: another thread has closed the file or opened one meanwhile.
    enum class Opened { yes, no, superseded };
    // Like Create, for a list. `closes` is the value of Closes() that the caller knows; this call adds its own closes.
    // If Closes() differs, another thread has closed or opened meanwhile, and this call gives way.
    Opened Replace(const char *name, unsigned long rate, std::uint64_t &closes);
    std::uint64_t Closes() const;

    unsigned long Rate() const { return rate_.load(std::memory_order_relaxed); }
    void Set_Rate(unsigned long rate);

    // Holds the lock named after the open file for a scope; does nothing without a file.
    class KERNEL_API File_Lock {
    public:
        explicit File_Lock(const File_Server &server);
        File_Lock(const File_Server &server, std::shared_ptr<ipcMutexSemaphore> lock);
        ~File_Lock() { Release(); }
        File_Lock(const File_Lock &) = delete;
        File_Lock &operator=(const File_Lock &) = delete;
        void Release();

    private:
        void Request(const File_Server &server);

        std::shared_ptr<ipcMutexSemaphore> lock_;
    };

private:
    struct Block;  // one read
    std::shared_ptr<ipcMutexSemaphore> Named_Lock_Of_File() const;
    void Begin_Budget(unsigned long rate);
    Opened Open(const char *name, std::uint64_t &closes);
    void Grant(std::uint64_t n);
    bool Asked_To_End() const;
    unsigned long Run();
    bool Deliver();
    bool Read(Block &block);
    void Hand_Over(const Block &block);
    void Top_Up();
    void Freeze();
    void Show_Error(std::uint32_t error);

    std::atomic<std::uint32_t> last_error_{0};  // Win32 number of the last failed open or read; 0: none
    std::atomic<std::uint32_t> read_error_{0};  // of this run's last failed read; 0: none, or reported already
    std::atomic<bool> steps_{false};            // Work(n) runs the body: one pass, without the thread
    const std::unique_ptr<Open_File> file_;
    // Counters in bytes, of 64 bits, so that they do not wrap in a replay of years. Relaxed atomics: the control
    // operations change them under the file lock. The reader reads them without it; an old value delays it by one pass.
    std::atomic<std::uint32_t> rate_{0};       // [bytes/s]
    std::atomic<std::uint64_t> budget_{0};     // allowed since the last reset
    std::atomic<std::uint64_t> delivered_{0};  // of the budget
    std::atomic<std::uint64_t> run_start_{0};  // clock_ms when the thread or the auto-run started
    std::atomic<std::uint64_t> granted_{0};    // by auto-run since then
    std::atomic<std::uint64_t> bytes_in_{0};
    mutable std::mutex lock_guard_;                 // guards file_lock_
    std::shared_ptr<ipcMutexSemaphore> file_lock_;  // null when closed
};

}  // namespace kernel
