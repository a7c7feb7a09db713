// Files: whole blocks in, whole blocks out.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// An open file. Readers share a file with readers; a file open for writing is nobody else's: the second open fails with
// error_sharing_violation. (POSIX: among the programs that use this layer.)
//
// Regular files only. A pipe, a FIFO, a socket or a device is refused with error_bad_file_type, and its other side is not
// waited for: a silent writer would hold a reader, and close() would not wake it.
//
// Threads:   one thread transfers; any thread may close. A transfer on a closed file fails with error_invalid_handle; the
//            descriptor is released when nobody holds the object any more.
// Ownership: by shared_ptr; the last holder closes the file.
// Errors:    null or false, with last_error() set.
class File {
public:
    enum class Mode {
        read,         // must exist; a folder is refused with error_access_denied
        read_shared,  // the same, and others may write to the file meanwhile
        create,       // for writing; what was there is cut off
        append,       // for writing; what was there stays. The position is the start, as with every open.
    };
    // The name is UTF-8, of any length that the system can store. Where it is not (Windows): error_invalid_name.
    // A folder on a share that has gone may hold this call for a long time: hold no lock around it.
    static std::shared_ptr<File> open(const char *name, Mode mode);
    ~File();
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    // Reads n bytes; got is less only at the end of the file, or with false.
    bool read(void *buffer, std::size_t n, std::size_t &got);
    // Writes n bytes; a short write of the system is continued. With false `put` bytes are written.
    bool write(const void *buffer, std::size_t n, std::size_t &put);
    // Moves the position to `offset` bytes from the end (0 or less). False before the start, and the position stays.
    bool seek_end(std::int64_t offset);
    // The position in bytes; -1 when it has none.
    std::int64_t position() const;

    void close() { closed_.store(true, std::memory_order_release); }
    bool closed() const { return closed_.load(std::memory_order_acquire); }

private:
    explicit File(std::intptr_t native) : native_(native) {}
    static std::shared_ptr<File> open_native(const char *name, Mode mode);
    bool read_once(void *buffer, std::size_t n, std::size_t &got);
    bool write_once(const void *buffer, std::size_t n, std::size_t &put);

    const std::intptr_t native_;  // Win32: the HANDLE; POSIX: the descriptor
    std::atomic<bool> closed_{false};
};

}  // namespace platform
