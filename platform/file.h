// Files that are read and written in whole blocks.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

// An open file. Several readers may share a file. A file open for writing is exclusive: a second open fails with
// error_sharing_violation (on POSIX only among programs that use this layer).
//
// Regular files only. A pipe, a FIFO, a socket or a device is refused at once with error_bad_file_type: a FIFO without
// data would block its reader, and close() could not wake it.
//
// Threads:   one thread transfers; any thread may close. A transfer on a closed file fails with error_invalid_handle.
//            The descriptor is released with the last reference to the object.
// Ownership: by shared_ptr; the last holder closes the file.
// Errors:    null or false, with last_error() set.
class File {
public:
    enum class Mode {
        read,         // must exist; a folder is refused with error_access_denied
        read_shared,  // the same, and others may write to the file meanwhile
        create,       // for writing; truncates the file
        append,       // for writing; keeps the content. The position is the start, as with every mode.
    };
    // The name is UTF-8, of any length that the system can store. On Windows other names fail with error_invalid_name.
    // Hold no lock around this call: on a share that is down it may block for a long time.
    static std::shared_ptr<File> open(const char *name, Mode mode);
    ~File();
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    // Reads n bytes. `got` is less than n only at the end of the file, or when the result is false.
    bool read(void *buffer, std::size_t n, std::size_t &got);
    // Writes n bytes; continues a short write of the system. If the result is false, `put` bytes were written.
    bool write(const void *buffer, std::size_t n, std::size_t &put);
    // Moves the position to `offset` bytes from the end (0 or less). Returns false, and does not move, before the
    // start.
    bool seek_end(std::int64_t offset);
    // The position [bytes]; -1 if the system gives none.
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
