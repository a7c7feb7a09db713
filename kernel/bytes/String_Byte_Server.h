// A byte server fed from memory: its owner puts bytes in, the connected client pulls them out in the same order.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kernel {

// A ring of `size` bytes holds size - 1. What does not fit is refused, never overwritten.
//
// Threads:   nothing here locks. Where one thread puts and another pulls, the owner holds this object's Semaphore
//            around each call; Work then runs the client's Send on the calling thread, with that lock held.
// Ownership: bytes are copied in and out; the client may keep no pointer into the ring.
// Errors:    full and empty are ordinary answers (false, a short count); nothing is reported.
class KERNEL_API String_Byte_Server : public Byte_Server {
public:
    static const char Name[];  // "String_Byte_Server"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Null when size < 2 or memory is short. The caller owns the object until Destruct. A null handler means the
    // default.
    static String_Byte_Server *Construct(long size, Error_Handler *handler);
    static String_Byte_Server *Construct(Error_Handler *handler) { return Construct(512, handler); }
    static void Destruct(String_Byte_Server *server) { Object::Destruct(server); }

    bool IsValid() const override;

    // Called by the client from inside its answer to Mesg_Request_Invite. True when n bytes are stored already. A
    // negative n asks for nothing.
    bool Request(long n) override;
    // One round of the dialogue: invite, let pull while the request can be met, then tell to wait (Mesg_Status_40).
    // False: no client, or the client refused or wanted nothing. A client that pulls from inside Mesg_Request_Invite,
    // and asks for nothing, is invited again as long as it finds something to pull. One that answers Mesg_Data_Ready
    // with true and pulls nothing is told again, for ever: to pull is its part of the contract.
    bool Work() override;
    // The same when more data has come for a request that is pending: serves it first, then invites.
    bool ContinueWork();
    unsigned short GetByte() override;
    using Byte_Server::UnGetByte;
    unsigned short UnGetByte(unsigned char byte) override;
    using Byte_Server::GetNBytes;
    // Moves at most n bytes to buffer and takes them off the request. Returns the number moved; 0 when empty or null.
    long GetNBytes(unsigned char *buffer, long n) override;
    // Bytes stored; the argument is ignored. Rewinds an empty ring, so that the next block goes in as one piece.
    long MinAvail(long) override;

    // The owner's side. Bytes stored before a failure stay.
    unsigned short
    Put(unsigned char byte);  // the byte, or No_Byte when full; cast a number, Put(13) fits several forms
    unsigned short Put(char byte) { return Put(static_cast<unsigned char>(byte)); }
    unsigned short Put(unsigned short value);  // its low byte; No_Byte is not stored
    bool PutStr(const unsigned char *text);    // up to the terminator; null is false
    bool PutStr(const char *text) { return PutStr(reinterpret_cast<const unsigned char *>(text)); }
    bool PutBin(const unsigned char *bytes, unsigned int n);  // null is true: nothing was lost
    bool PutWordIntel(unsigned short word);                   // least significant byte first
    bool PutWordMotorola(unsigned short word);                // most significant byte first
    bool PutDWordIntel(unsigned long word);                   // the low 32 bits
    bool PutDWordMotorola(unsigned long word);
    bool Put(const char *format, ...) KERNEL_PRINTF(2, 3);  // at most 5051 characters; a null format is false
    void Clear();

    ~String_Byte_Server() override;

protected:
    // Name and handler count where this is the most derived class; a subclass gives them to its own virtual base
    // Object.
    String_Byte_Server(const char *name, long size, Error_Handler *handler);
    explicit String_Byte_Server(long size = 4096, Error_Handler *handler = nullptr);

    // For subclasses that fill the ring in place: n free bytes in one piece, or null when they do not lie so; then
    // Commit of what was filled. Nothing may be pulled or put in between.
    unsigned char *Reserve(std::size_t n)
    {
        Rewind_Empty();
        const std::size_t end = write_ < read_ ? read_ - 1 : size_ - (read_ == 0 ? 1 : 0);  // one byte stays free
        return ring_ && end - write_ >= n ? &ring_[write_] : nullptr;
    }
    void Commit(std::size_t n)
    {
        write_ += n;
        if (write_ == size_) write_ = 0;
    }

private:
    std::size_t Stored() const { return write_ >= read_ ? write_ - read_ : size_ - read_ + write_; }
    std::size_t Next(std::size_t position) const { return position + 1 == size_ ? 0 : position + 1; }
    bool Is_Pending(long available) const { return requested_ > 0 && requested_ <= available; }
    // The next block then goes in as one piece, and where the last one was: it is still in the processor's cache.
    void Rewind_Empty()
    {
        if (read_ == write_) read_ = write_ = 0;
    }
    void Take(std::size_t n);
    bool Serve(long &available);
    bool Invite();

    std::size_t size_ = 0;                   // bytes; 0 without a ring
    std::unique_ptr<unsigned char[]> ring_;  // null makes the object invalid
    std::size_t read_ = 0, write_ = 0;       // next to give, next to store; equal means empty
    std::int32_t requested_ = 0;             // bytes asked for and not yet taken; negative: the client took more
};

}  // namespace kernel
