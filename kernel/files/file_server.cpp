#include "kernel/files/file_server.h"

#include "kernel/base/Error_Handler.h"
#include "kernel/base/ipcSemaphore.h"
#include "kernel/files/file_support_internal.h"

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/message_box.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace kernel {

namespace {

const char unit[] = "kernel/file_server";

constexpr long buffer_size = 8192;        // [bytes] of the ring that the client pulls from
constexpr std::size_t block_size = 4096;  // [bytes] per read, at most
constexpr unsigned long pass_ms = 50;     // the budget grows once per pass
constexpr unsigned long retry_ms = 10;
constexpr unsigned long lock_retry_ms = 5;
constexpr unsigned long leave_poll_ms = 5;
constexpr unsigned long no_position = 0xFFFFFFFFUL;
constexpr std::uint64_t most_bytes = std::numeric_limits<std::uint64_t>::max();
constexpr Open_Error_Words words = {"file not found", "access denied"};

}  // namespace

const char File_Server::Name[] = "Server for File Communication";

std::atomic<bool> File_Server::IsUsedByOrgScan{false};

File_Server::File_Server(const char *name)
    : Object(name ? name : ClassName()), String_Byte_Server(name ? name : ClassName(), buffer_size, nullptr),
      file_(std::make_unique<Open_File>())
{
}

File_Server::~File_Server() { Close(false); }

File_Server *File_Server::Construct(const char *name, bool isUsedByOrgScan)
{
    IsUsedByOrgScan = isUsedByOrgScan;
    return Constructed([&] { return new File_Server(name); });
}

bool File_Server::IsInheritedFrom(const char *name) const
{
    return (name && std::strcmp(name, Name) == 0) || String_Byte_Server::IsInheritedFrom(name);
}

bool File_Server::IsValid() const { return String_Byte_Server::IsValid(); }

void File_Server::Disconnect()
{
    // Stop the reader first: then no thread is inside the client when it is asked.
    stop();
    Byte_Server::Disconnect();
}

bool File_Server::Work()
{
    if (!is_running()) start(false);
    return true;
}

File_Server::File_Lock::File_Lock(const File_Server &server) : lock_(server.Named_Lock_Of_File()) { Request(server); }

File_Server::File_Lock::File_Lock(const File_Server &server, std::shared_ptr<ipcMutexSemaphore> lock)
    : lock_(std::move(lock))
{
    Request(server);
}

// The wait may be for another process. If the file changes meanwhile, this thread gets the old file's lock while
// another holds the new one; the counters are atomics for that reason.
void File_Server::File_Lock::Request(const File_Server &server)
{
    if (!lock_) return;
    if (!server.Is_Own_Thread()) {
        lock_->Request();
        return;
    }
    // The reader polls and does not wait in Request(), because a thread that does not end may be killed and must not be
    // killed there. When it is asked to stop, it goes on without the lock.
    while (!lock_->Try_Request()) {
        if (server.Stop_Requested()) {
            lock_.reset();
            return;
        }
        platform::sleep_ms(lock_retry_ms);
    }
}

std::shared_ptr<ipcMutexSemaphore> File_Server::Named_Lock_Of_File() const
{
    const std::lock_guard guard(lock_guard_);
    return file_lock_;
}

// lock_ shares the lock until after the release: Close may have dropped the server's reference meanwhile.
void File_Server::File_Lock::Release()
{
    if (lock_) lock_->Release();
    lock_.reset();
}

void File_Server::Set_Rate(unsigned long rate)
{
    constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    rate_.store(rate > most ? most : static_cast<std::uint32_t>(rate), std::memory_order_relaxed);
}

// The reader pauses until bytes are granted again. Auto-run is not restarted: a list keeps its pace across its files.
void File_Server::Begin_Budget(unsigned long rate)
{
    const File_Lock lock(*this);
    Set_Rate(rate);
    budget_ = 0;
}

bool File_Server::Create(const char *name, unsigned long rate)
{
    Begin_Budget(rate);
    if (!name) {
        Close(false);
        return true;
    }
    const std::unique_ptr<char[]> own_name = Copy_Text(name);  // before Close, which may free the caller's text
    // The thread is not stopped: it may be the caller, and it goes on with the new file. If it is another thread, it
    // may find no file between Close and Open and end; Work() starts it again.
    Close(true);
    if (!own_name) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, no_memory_code, "strdup(%s) failed", name);
        return false;
    }
    std::uint64_t closes = Closes();
    return Open(own_name.get(), closes) == Opened::yes;
}

File_Server::Opened File_Server::Replace(const char *name, unsigned long rate, std::uint64_t &closes)
{
    if (Closes() != closes) return Opened::superseded;
    Begin_Budget(rate);
    Close(true);
    ++closes;
    return Open(name, closes);
}

std::uint64_t File_Server::Closes() const { return file_->Closes(); }

// Holds no lock while the system opens: that may block without limit, and Insert, Close and destruction must not.
File_Server::Opened File_Server::Open(const char *name, std::uint64_t &closes)
{
    try {
        auto file_lock = std::make_shared<ipcMutexSemaphore>(name);
        if (!*file_lock) {
            Close(false);
            ++closes;
            Report(unit, __LINE__)
                .Print_Out(Error_Handler::ES_Error, no_memory_code, "new ipcMutexSemaphore(%s) failed", name);
            return Opened::no;
        }
        std::shared_ptr<platform::File> file;
        if (*name) file = platform::File::open(name, platform::File::Mode::read);
        if (*name && !file) {
            const std::uint32_t error = platform::last_error();
            Close(false);
            ++closes;
            last_error_ = error;
            Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, file_code, "Could not open file %s", name);
            ErrorBox();
            return Opened::no;
        }
        const File_Lock lock(*this, file_lock);
        const std::lock_guard guard(lock_guard_);
        delivered_ = 0;
        if (!file_->Set(file, name, closes)) return Opened::superseded;  // `file` is destroyed after the locks
        file_lock_ = std::move(file_lock);
        return Opened::yes;
    } catch (const std::bad_alloc &) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, no_memory_code, "strdup(%s) failed", name);
        return Opened::no;
    }
}

// Stops the thread before taking the lock, because the thread may need the lock to end. The reader itself calls this
// for every list entry that cannot be opened, and goes on with the next.
void File_Server::Close(bool from_thread)
{
    if (!from_thread && !Is_Own_Thread()) stop();
    std::shared_ptr<platform::File> former;  // outlives the locks: the system's close may take long
    std::shared_ptr<ipcMutexSemaphore> former_lock;
    const File_Lock lock(*this);
    const std::lock_guard guard(lock_guard_);
    former = file_->Close();
    former_lock.swap(file_lock_);
}

// Has no effect before Create, which sets the budget to 0.
void File_Server::Insert(unsigned long n)
{
    const File_Lock lock(*this);
    Grant(n);
}

// Saturates: a budget that wrapped around would stop the replay.
void File_Server::Grant(std::uint64_t n)
{
    std::uint64_t budget = budget_.load(std::memory_order_relaxed);
    while (!budget_.compare_exchange_weak(budget, budget > most_bytes - n ? most_bytes : budget + n)) continue;
}

void File_Server::AutoRun(unsigned long rate)
{
    const File_Lock lock(*this);
    // Bytes granted before stay granted under the new rate.
    run_start_ = platform::clock_ms();
    granted_ = 0;
    Set_Rate(rate);
}

bool File_Server::Next_File() { return false; }

// Uses up the budget, so that the reader's inner loop ends at its next check.
void File_Server::Freeze()
{
    Request_Stop();
    budget_ = delivered_.load();
    rate_ = 0;
}

// Two readers would share one buffer, so a running one is asked to end first. The request is repeated, because a reader
// that is just starting clears it. A reader that could not be killed does not count as running.
bool File_Server::Work(unsigned long n)
{
    while (is_running() && !Is_Own_Thread()) {
        {
            const File_Lock lock(*this);
            Freeze();
        }
        platform::sleep_ms(leave_poll_ms);
    }
    {
        const File_Lock lock(*this);
        delivered_ = 0;
        budget_ = n;
        rate_ = 0;
    }
    const bool stepped_before = steps_.exchange(true);  // true if a client calls Work(n) from inside Work(n)
    const bool more = thread() != 0;
    steps_ = stepped_before;
    if (Is_Own_Thread()) Request_Stop();  // Work(n) on the reader thread ends auto-run and the run that called it
    return more;
}

// Counts on the reader thread only: the flag stays set after a stop and must not end a later Work(n).
bool File_Server::Asked_To_End() const { return Is_Own_Thread() && Stop_Requested(); }

unsigned long File_Server::thread()
{
    // Checked only here: if SetClient removes the client later, the reader reads on without one.
    if (!Get_Byte_Client()) return static_cast<unsigned long>(-1);
    run_start_ = platform::clock_ms();
    granted_ = 0;
    last_error_ = 0;
    read_error_ = 0;
    const unsigned long result = Run();
    // A read error is reported once, here, and not with each retry. Create reports its own errors.
    if (const std::uint32_t error = read_error_.exchange(0)) Show_Error(error);
    return result;
}

unsigned long File_Server::Run()
{
    while (file_->Get()) {
        if (!Deliver()) return 0;
        if (steps_ || read_error_ != 0 || Asked_To_End()) return 1;
        Sleep(pass_ms);
        Top_Up();
    }
    // There is no file, or it was closed.
    return last_error_ == 0 ? 1 : 0;
}

struct File_Server::Block {
    std::shared_ptr<platform::File> file;
    std::size_t n = 0;    // [bytes] wanted
    std::size_t got = 0;  // [bytes] read; less than n at the end of the file
};

// Delivers until the budget is used up. False at the end of the last file.
bool File_Server::Deliver()
{
    Block block{file_->Get()};
    while (block.file) {
        const std::uint64_t delivered = delivered_.load(std::memory_order_relaxed);
        const std::uint64_t budget = budget_.load(std::memory_order_relaxed);
        if (delivered >= budget) return true;
        block.n = static_cast<std::size_t>(std::min<std::uint64_t>(budget - delivered, block_size));
        if (IsUsedByOrgScan.load(std::memory_order_relaxed)) block.n = 1;

        const bool read = Read(block);
        // A failed read may have delivered some bytes first. An empty read at the end still invites the client to take
        // what it left in the ring.
        if (block.got > 0 || read) Hand_Over(block);
        if (read && block.got == block.n) continue;

        if (block.file->closed()) {  // by another thread; there may be a new file
            block.file = file_->Get();
        } else if (!read) {  // retry while there is budget
            if (Asked_To_End()) return true;
            platform::sleep_ms(retry_ms);
        } else {
            // Copied before Next_File, which closes the file at the end of a list and frees its name.
            const std::string ended = file_->Name_Copy();
            if (!Next_File()) {
                Report(unit, __LINE__)
                    .Print_Out(Error_Handler::ES_Warning, end_of_file_code, "EOF of file \"%s\"", ended.c_str());
                return false;
            }
            const auto next = file_->Get();
            if (next == block.file) return true;  // no list is open: Next_File reports that once per pass
            block.file = next;
        }
    }
    return true;
}

// Reads directly into the ring if its free bytes are contiguous, which is so whenever the client has taken all.
bool File_Server::Read(Block &block)
{
    unsigned char bytes[block_size];
    unsigned char *const in_place = Reserve(block.n);
    const bool read = block.file->read(in_place ? in_place : bytes, block.n, block.got);
    const std::uint32_t error = platform::last_error();
    // If another thread has closed the file, the failure is not an error of the file.
    if (!read && !block.file->closed()) last_error_ = read_error_ = error;
    if (in_place)
        Commit(block.got);
    else
        PutBin(bytes, static_cast<unsigned int>(block.got));
    return read;
}

void File_Server::Hand_Over(const Block &block)
{
    // Only this thread writes the counter, so no atomic addition is needed.
    bytes_in_.store(bytes_in_.load(std::memory_order_relaxed) + block.got, std::memory_order_relaxed);
    String_Byte_Server::Work();
    // Create sets delivered_ to 0 for a new file: bytes of the old file must not be counted there.
    if (!block.file->closed()) delivered_.fetch_add(block.got, std::memory_order_relaxed);
}

void File_Server::Top_Up()
{
    if (rate_ == 0) return;
    // The lock keeps AutoRun out, which changes run_start_, granted_ and rate_ together.
    const File_Lock lock(*this);
    const double elapsed = static_cast<double>(platform::clock_ms() - run_start_) / 1000.0;  // [s]
    const auto target = static_cast<std::uint64_t>(static_cast<double>(rate_) * elapsed);
    // After a lower rate the target may be below granted_; bytes are not taken back.
    if (target > granted_) Grant(target - granted_);
    granted_ = target;
}

unsigned long File_Server::terminate()
{
    {
        const File_Lock lock(*this);
        Freeze();
    }
    // stop() waits. 0 is the exit code if it has to kill.
    Close(true);
    return 0;
}

const char *File_Server::GetFilename() const { return file_->Name(); }

std::int64_t File_Server::GetBytesIn() const
{
    return static_cast<std::int64_t>(bytes_in_.load(std::memory_order_relaxed));
}

unsigned long File_Server::GetFilePos() const
{
    const auto file = file_->Get();
    const std::int64_t position = file ? file->position() : -1;
    return position < 0 ? no_position : static_cast<unsigned long>(position);
}

void File_Server::ErrorBox() { Show_Error(last_error_); }

// Call without any lock: on Windows the box waits for a click. A reader that is being stopped shows no box, because
// stop() would kill it while the box waits.
void File_Server::Show_Error(std::uint32_t error)
{
    const std::string text = Report_Open_Error(*this, unit, __LINE__, error, words);
    if (!text.empty() && !Asked_To_End()) platform::message_box(text.c_str(), "Error");
}

}  // namespace kernel
