// A recording tap: passes a byte stream on and appends the bytes that the client takes to a file.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace kernel {

class Open_File;

// Sits between a server (upstream, whose client it is) and a client (downstream, whose server it is).
//
// Threads:   Create and Close take the object's Semaphore; any thread may call them. The pass-through runs on the
//            upstream server's thread, inside its Send, and takes only a short lock for the file.
// Ownership: belongs to its upstream server and owns its downstream client. It passes Mesg_Delete_Query on and deletes
//            the client if that replies true.
// Errors:    kernel/file_client_server, level 3: code 9 "Could not open File %s" and "Could not write to file %s", code
//            15 the cause, code 18 no memory. A failed write closes the file; the stream goes on. Outside an upstream
//            Send: Request false, MinAvail 0, GetByte No_Byte, GetNBytes 65535 (part of the interface; not 0).
class KERNEL_API File_Client_Server : public Byte_Server, public Byte_Client {
public:
    static const char Name[];  // "Client Server for File Communication"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Opens the file like Create. If that fails, it is reported, and the tap passes the stream on and records nothing
    // until a Create succeeds.
    static File_Client_Server *Construct(const char *name);
    static void Destruct(File_Client_Server *object) { Object::Destruct(object); }
    ~File_Client_Server() override;

    // Opens a file and appends to it. If the same name (UTF-8, case ignored) is open already, recording continues. Null
    // closes. Holds no lock while the system opens. Returns false without a report when another thread has called Close
    // or Create meanwhile.
    bool Create(const char *name);
    void Close();
    bool IsValid() const override;
    void ErrorBox();  // reports the last error in words

    bool Request(long n) override;
    unsigned short GetByte() override;
    using Byte_Server::UnGetByte;
    // Part of the interface: ignores `byte`, takes a byte from upstream and moves the file's position back by one from
    // its end, so that the next recorded byte replaces the last one.
    unsigned short UnGetByte(unsigned char byte) override;
    using Byte_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override;
    long MinAvail(long n) override;

    bool Send(Byte_Server &server, CL_Mesg message) override;

protected:
    explicit File_Client_Server(const char *name);

private:
    void Record(const unsigned char *bytes, std::size_t n);
    void Delete_Downstream();

    std::atomic<std::uint32_t> last_error_{0};  // Win32 number of the last failed open or write; 0: none
    const std::unique_ptr<Open_File> file_;
    Byte_Server *upstream_ = nullptr;  // set only while a message from it is passed on
};

}  // namespace kernel
