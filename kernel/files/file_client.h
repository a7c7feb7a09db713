// Records a byte stream into a file.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <cstdint>
#include <memory>

namespace platform {
class File;
}

namespace kernel {

// Takes every block that its server offers, whether a file is open or not.
//
// Threads:   no lock: call Create and Close while the server does not send, or on its sending thread.
// Ownership: owns the open file; no other process may write to it until Close. Belongs to its server (see
//            Client_Server).
// Errors:    kernel/file_client: level 2, code 9 "File %s already open"; level 3, code 9 "Could not open file %s" and
//            "Could not write to file %s", code 15 the cause, code 18 no memory. A failed write closes the file: the
//            bytes already written stay, and later blocks are taken from the server and dropped. Invalid while a name
//            is set and no file is open.
class KERNEL_API File_Client : public Byte_Client {
public:
    static const char Name[];  // "Client or File Communication"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Opens the file like Create. If that fails, it is reported, and the client records nothing until a Create
    // succeeds: a station without a disk still runs.
    static File_Client *Construct(const char *name);
    static File_Client *Construct();
    static void Destruct(File_Client *client) { Object::Destruct(client); }

    // A copy has the same handler and the same object name and no file, because a file has one writer. Assignment
    // copies only the last error; name, handler, file and connection stay.
    File_Client(const File_Client &other);
    File_Client &operator=(const File_Client &other);
    ~File_Client() override;

    // Opens a file for recording and truncates it. If the same name (UTF-8, case ignored) is open already, recording
    // continues. Null closes.
    bool Create(const char *name);
    void Close();
    bool IsValid() const override;
    bool Send(Byte_Server &server, CL_Mesg message) override;
    void ErrorBox();  // reports the last error in words

protected:
    explicit File_Client(const char *name);  // opens nothing; Construct does
    File_Client();

    // For recorders that do more with a block.
    static constexpr long block_size = 4096;  // bytes
    // Pulls what the server has, at most a block. Returns the number of bytes, 0 when none came.
    static long Take_Block(Byte_Server &server, unsigned char *block);
    // Appends to the file, if one is open. False: reported in the name of that unit; the caller closes.
    bool Append(const unsigned char *block, long n, const char *unit_name);
    const std::shared_ptr<platform::File> &Get_File() const { return file_; }  // null when closed
    const char *Get_File_Name() const { return name_.get(); }                  // null when closed
    void Set_Last_Error(std::uint32_t error) { last_error_ = error; }

private:
    void ResetValues();

    std::uint32_t last_error_ = 0;          // Win32 number of the last failed open or write; 0: none
    std::shared_ptr<platform::File> file_;  // null when closed
    std::unique_ptr<char[]> name_;          // null when closed
};

}  // namespace kernel
