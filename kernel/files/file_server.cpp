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

constexpr long buffer_size = 8192;        // bytes of the ring that the client pulls from
constexpr std::size_t block_size = 4096;  // bytes per read, at most
// The grain of the pace: the budget grows once per pass.
constexpr unsigned long pass_ms = 50;
constexpr unsigned long retry_ms = 10;
constexpr unsigned long lock_retry_ms = 5;
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
    // The reader first: with it gone nobody is inside the client that is asked.
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

// The wait may be for another process. Who waits while the file changes gets the old file's lock, and meets the holder of
// the new one; the counters are atomics for that.
void File_Server::File_Lock::Request(const File_Server &server)
{
    if (!lock_) return;
    if (!server.Is_Own_Thread()) {
        lock_->Request();
        return;
    }
    // The reader may be killed when it does not end, and must not stand in the queue for the lock then: it asks again and
    // again, and goes on without the lock when it is to end.
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

// Keeps the lock alive past its release: Close may have let go of it meanwhile.
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

// The reader rests until somebody grants anew. Auto-run is not begun anew: a list keeps its pace over its files.
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
    const std::unique_ptr<char[]> own_name = Copy_Text(name);  // the caller's text may be the one that Close frees
    // The thread is not stopped: it may be the caller, and goes on with the new file. When it is not, it may look between
    // Close and Open, find no file and end: Work() starts it again.
    Close(true);
    if (!own_name) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 18, "strdup(%s) failed", name);
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

// No lock is held while the system opens: it may take for ever, and Insert, Close and destruction must not.
File_Server::Opened File_Server::Open(const char *name, std::uint64_t &closes)
{
    try {
        auto file_lock = std::make_shared<ipcMutexSemaphore>(name);
        if (!*file_lock) {
            Close(false);
            ++closes;
            Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 18, "new ipcMutexSemaphore(%s) failed", name);
            return Opened::no;
        }
        std::shared_ptr<platform::File> file;
        if (*name) file = platform::File::open(name, platform::File::Mode::read);
        if (*name && !file) {
            const std::uint32_t error = platform::last_error();
            Close(false);
            ++closes;
            last_error_ = error;
            Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 9, "Could not open file %s", name);
            ErrorBox();
            return Opened::no;
        }
        const File_Lock lock(*this, file_lock);
        const std::lock_guard guard(lock_guard_);
        delivered_ = 0;
        if (!file_->Set(file, name, closes)) return Opened::superseded;  // `file` goes after the locks
        file_lock_ = std::move(file_lock);
        return Opened::yes;
    } catch (const std::bad_alloc &) {
        Report(unit, __LINE__).Print_Out(Error_Handler::ES_Error, 18, "strdup(%s) failed", name);
        return Opened::no;
    }
}

// The thread is stopped before the lock is taken: it may want the lock to come to its end. The reader itself gets here
// with every list entry that cannot be opened, and goes on with the next.
void File_Server::Close(bool from_thread)
{
    if (!from_thread && !Is_Own_Thread()) stop();
    std::shared_ptr<platform::File> former;  // outlives the locks: what the system does for a close may take its time
    std::shared_ptr<ipcMutexSemaphore> former_lock;
    const File_Lock lock(*this);
    const std::lock_guard guard(lock_guard_);
    former = file_->Close();
    former_lock.swap(file_lock_);
}

// Before Create it grants nothing: Create starts from 0.
void File_Server::Insert(unsigned long n)
{
    const File_Lock lock(*this);
    Grant(n);
}

// Not past the end of the counter: a budget that wrapped would stop the replay.
void File_Server::Grant(std::uint64_t n)
{
    std::uint64_t budget = budget_.load(std::memory_order_relaxed);
    while (!budget_.compare_exchange_weak(budget, budget > most_bytes - n ? most_bytes : budget + n)) continue;
}

void File_Server::AutoRun(unsigned long rate)
{
    const File_Lock lock(*this);
    // What was granted before stays: a new rate takes nothing back.
    run_start_ = platform::clock_ms();
    granted_ = 0;
    Set_Rate(rate);
}

bool File_Server::Next_File() { return false; }

// No further reads: the reader's inner loop ends at its next look.
void File_Server::Freeze()
{
    Request_Stop();
    budget_ = delivered_.load();
    rate_ = 0;
}

// Two readers would share one buffer: a running one is asked to leave, again and again, since it may be about to start.
// One that was given up on does not count.
bool File_Server::Work(unsigned long n)
{
    while (is_running() && !Is_Own_Thread()) {
        {
            const File_Lock lock(*this);
            Freeze();
        }
        platform::sleep_ms(5);
    }
    {
        const File_Lock lock(*this);
        delivered_ = 0;
        budget_ = n;
        rate_ = 0;
    }
    const bool stepped_before = steps_.exchange(true);  // by a client that steps from inside a step
    const bool more = thread() != 0;
    steps_ = stepped_before;
    if (Is_Own_Thread()) Request_Stop();  // the step has ended auto-run, and ends the run around it
    return more;
}

// Only of the reader thread itself: after a stop the flag stays raised, and a later step is not meant.
bool File_Server::Asked_To_End() const { return Is_Own_Thread() && Stop_Requested(); }

unsigned long File_Server::thread()
{
    // Asked only here: a client that SetClient takes away later leaves a reader that reads on for nobody.
    if (!Get_Byte_Client()) return static_cast<unsigned long>(-1);
    run_start_ = platform::clock_ms();
    granted_ = 0;
    last_error_ = 0;
    read_error_ = 0;
    const unsigned long result = Run();
    // An error of a read is told now, and not with each try. What Create could not open has been told there.
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
    // Without a file there is nothing more to do: it was closed, or never there.
    return last_error_ == 0 ? 1 : 0;
}

struct File_Server::Block {
    std::shared_ptr<platform::File> file;
    std::size_t n = 0;    // bytes wanted
    std::size_t got = 0;  // bytes read; less than n at the end of the file
};

// Spends the budget. False when the last file has come to its end.
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
        // A read that fails may have brought bytes before it did; one that brings none at the end still invites the
        // client to what it left.
        if (block.got > 0 || read) Hand_Over(block);
        if (read && block.got == block.n) continue;

        if (block.file->closed()) {  // under us: there may be another one, or none
            block.file = file_->Get();
        } else if (!read) {  // repeated while there is budget
            if (Asked_To_End()) return true;
            platform::sleep_ms(retry_ms);
        } else {
            // Before Next_File, which closes the last file at the end of a list, its name included.
            const std::string ended = file_->Name_Copy();
            if (!Next_File()) {
                Report(unit, __LINE__).Print_Out(Error_Handler::ES_Warning, 16, "EOF of file \"%s\"", ended.c_str());
                return false;
            }
            const auto next = file_->Get();
            if (next == block.file) return true;  // a list that is not open says so and goes on: once per pass
            block.file = next;
        }
    }
    return true;
}

// Into the ring, in place where its free bytes lie in one piece: they do whenever the client has taken all.
bool File_Server::Read(Block &block)
{
    unsigned char bytes[block_size];
    unsigned char *const in_place = Reserve(block.n);
    const bool read = block.file->read(in_place ? in_place : bytes, block.n, block.got);
    const std::uint32_t error = platform::last_error();
    // Closed by another thread is no error of the file's.
    if (!read && !block.file->closed()) last_error_ = read_error_ = error;
    if (in_place)
        Commit(block.got);
    else
        PutBin(bytes, static_cast<unsigned int>(block.got));
    return read;
}

void File_Server::Hand_Over(const Block &block)
{
    // Nobody else writes this counter: a plain addition, without locking the bus.
    bytes_in_.store(bytes_in_.load(std::memory_order_relaxed) + block.got, std::memory_order_relaxed);
    String_Byte_Server::Work();
    // Create starts the count of a new file at 0: what was read from the old one must not go on its account.
    if (!block.file->closed()) delivered_.fetch_add(block.got, std::memory_order_relaxed);
}

void File_Server::Top_Up()
{
    if (rate_ == 0) return;
    // Against AutoRun, which changes start, rate and what was granted together.
    const File_Lock lock(*this);
    const double elapsed = static_cast<double>(platform::clock_ms() - run_start_) / 1000.0;  // s
    const auto target = static_cast<std::uint64_t>(static_cast<double>(rate_) * elapsed);
    // A lower rate may have put the target behind what was granted; that is no reason to take bytes back.
    if (target > granted_) Grant(target - granted_);
    granted_ = target;
}

unsigned long File_Server::terminate()
{
    {
        const File_Lock lock(*this);
        Freeze();
    }
    // stop() does the waiting; 0 is the exit code, should it come to a kill.
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
    return position < 0 ? 0xFFFFFFFFUL : static_cast<unsigned long>(position);
}

void File_Server::ErrorBox() { Show_Error(last_error_); }

// No caller holds a lock here: on Windows the box stays until somebody has seen it. A reader that is waited for shows none:
// it would be killed behind its box.
void File_Server::Show_Error(std::uint32_t error)
{
    const std::string text = Report_Open_Error(*this, unit, __LINE__, error, words);
    if (!text.empty() && !Asked_To_End()) platform::message_box(text.c_str(), "Error");
}

}  // namespace kernel
