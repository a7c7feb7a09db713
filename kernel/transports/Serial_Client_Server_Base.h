// A serial port as both ends of a byte stream: the common base of the plain and the overlapped variant.
#pragma once

#include "kernel/base/Base_Thread.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/transports/Remote_Control.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace kernel {

class Serial_Line;
class Serial_Reader;

// How an application reaches its receiver. The library keeps the value and does not look at it.
struct ADriver {
    enum ConnectionType : int {
        Connection_None,
        Connection_Serial,
        Connection_Modem,
        Connection_Socket,
        Connection_Pipe,
        Connection_File,
    };
};

// Bytes received from the port are offered to the connected Byte_Client. Bytes from a server above are written to the
// port. To use it: construct it, Connect a client, Create(port, ...), then Work(), which starts the reader thread.
//
// Messages to the client: Mesg_Attached when the thread begins, Mesg_Request_Invite and Mesg_Data_Ready, Mesg_Second
// about once a second while it waits for data, Mesg_Status_50 after a minute in which its request was not met (the port
// is closed when the client returns false), Mesg_Status_110 when the port is lost, and Mesg_Detached when the thread
// ends.
//
// Threads:   the reader thread runs the client's Send; call Request and the pull operations only inside it. One
//            producer's thread at a time may call Send. Any thread may call everything else. On the reader's own thread
//            (from the client's Send) stop, Create, Connect and Disconnect only ask the thread to end. Connect, Switch,
//            Disconnect and destruction wait until no thread is inside the old client; Byte_Server says what they
//            promise and forbid. Close ends every wait on the port, and the reader then ends. Do not destroy the object
//            on the reader thread. A subclass that overrides a function which the thread calls must call stop() in its
//            destructor.
// Ownership: owns the client as a Byte_Server does, and the port until Close. Texts are copied.
// Errors:    code 72. "Serial-Error Code: ..." with the system's text (level 3), for the last error, which is kept
//            until the next Create; a request for more than 4096 bytes (level 4). The variants report the rest. This
//            class does not call SetStatus (see Remote_Control); subclasses may.
class KERNEL_API Serial_Client_Server_Base : public Byte_Server,
                                             public Byte_Client,
                                             public Base_Thread,
                                             public Remote_Control {
public:
    static const char Name[];  // "Base for serial Communication"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;
    bool IsValid() const override;

    // Stops the thread, closes an open port, opens COM1, COM2, ... and sets the line. Returns 0 on failure: a port that
    // cannot be set as wished is closed again, and the cause is reported.
    //   baud       [bit/s]
    //   parity     0 none, 1 odd, 2 even; others leave what the port has
    //   stopbits   1, 2 and 3: one, one and a half, two; others leave what the port has. One and a half are for 5 bits
    //              to a character, two for all others.
    //   handshake  0: RTS and DTR are on; otherwise the port handles them by the fill of its buffer (POSIX: RTS and CTS
    //              are one, so that output waits for CTS as well). DSR, and on Windows CTS, do not hold up output.
    //   flag       kept in Extra_Flag, for subclasses
    //   queue_size [bytes] wish for the driver's buffers; the driver decides
    int Create(int port, unsigned long baud, int parity, int stopbits, int bytesize, int handshake, int flag,
               unsigned long queue_size);
    // Takes over an open port with its speed and format, and makes it raw. handle: a HANDLE, or on POSIX a descriptor,
    // reinterpret_cast<void *>(std::intptr_t{descriptor}). Returns 0 on failure; a handle that is no port stays the
    // caller's.
    int Create(void *const handle);
    // Closes the port. Waits up to half a second for bytes that are not written yet, and then drops them.
    virtual void Close();
    void ErrorBox();  // reports the last error, if there is one; shows no dialog

    // Drops bytes that were received and not yet pulled. When the port has that speed already, it drops nothing and
    // returns true. Returns false for 0 and without a port.
    bool Set_Speed(unsigned long baud) override;
    unsigned long Get_Speed() override;  // [bit/s]; without a port the speed of the last one, or 0
    bool IsActive() const;               // returns whether a port is open
    const char *GetComName() const { return com_name_.c_str(); }  // good until the next Create or SetComName
    void SetComName(const char *const name);
    std::uint64_t GetBytesIn() const;                                                         // pulled by the client
    std::uint64_t GetBytesOut() const { return bytes_out_.load(std::memory_order_relaxed); }  // handed to the system
    ADriver::ConnectionType GetConnectionType() const { return connection_type_.load(std::memory_order_relaxed); }
    void SetConnectionType(ADriver::ConnectionType type) { connection_type_.store(type, std::memory_order_relaxed); }
    Remote_Control *Get_Remote() { return this; }

    bool Connect(Byte_Client *client) override;  // stops the thread first; so does Disconnect
    void Disconnect() override;
    // Starts the thread if it does not run; returns whether it runs. When Work is called while the thread sends
    // Mesg_Detached and the port is open, the thread makes another run instead of ending. A client may therefore call
    // Work inside Mesg_Detached. Work waits for any other thread that is about to end; on the reader's own thread it
    // then returns false.
    bool Work() override;
    unsigned short GetByte() override;
    using Byte_Server::UnGetByte;
    unsigned short UnGetByte(unsigned char byte) override;  // takes back what was pulled, and up to 16 bytes more
    using Byte_Server::GetNBytes;
    long GetNBytes(unsigned char *buffer, long n) override;
    long MinAvail(long) override;  // bytes held; the argument is ignored

    // Mesg_Request_Invite: requests whatever the server has. The variants handle Mesg_Data_Ready.
    bool Send(Byte_Server &server, CL_Mesg message) override;

    bool Hang_Up() override;                                       // closes the port; returns whether one was open
    bool Dial(const char *, const char *, const char *) override;  // false: a line without a modem cannot dial

    void pre_stop() override;         // ends a write that waits, with a reader thread or without
    unsigned long thread() override;  // the result of the last run
    ~Serial_Client_Server_Base() override;

protected:
    // The variant gives its reader.
    Serial_Client_Server_Base(Error_Handler &handler, const char *name, std::unique_ptr<Serial_Reader> reader);

    // Opens the port with this number, sets the name for GetComName, and returns whether the port is open. A subclass
    // may open any device by its path instead.
    virtual bool OpenFile(int port) = 0;
    static std::string Device_Name(int port);  // "COM9", "\\.\COM10"
    bool Open_Device(const char *name);        // sets the last error, or clears it

    bool SetCommWait();    // time-outs that suit the speed
    bool SetCommNoWait();  // a read returns at once with what is there
    void Move_to_Start();
    bool Extra_Flag() const { return extra_flag_; }
    unsigned long terminate() override;
    bool Gives_Up_Posting() const override { return Is_Own_Thread() && Stop_Requested(); }

    // For the variants, on any thread.
    void Fail(std::uint32_t error);  // sets the last error and reports it
    // Pulls at most block_size bytes from the server. Returns their number, or -1 when a stop was requested.
    long Take(Byte_Server &server, unsigned char *block);
    void Count_Out(std::size_t n) { bytes_out_.fetch_add(n, std::memory_order_relaxed); }
    void Set_Last_Error(std::uint32_t error) { last_error_.store(error, std::memory_order_relaxed); }

    static constexpr std::int32_t block_size = 4096;  // bytes; the largest write

    const std::unique_ptr<Serial_Line> line_;
    const std::unique_ptr<Serial_Reader> reader_;

private:
    friend class Serial_Reader;

    bool Configure(unsigned long baud, int parity, int stopbits, int bytesize, int handshake, unsigned long queue_size);
    int Created();
    void Close_Former();
    enum class Phase { ended, running, ending };
    void Enter(Phase phase);
    bool Is_Kept_Running();
    bool Has_Another_Run();

    std::atomic<std::uint32_t> last_error_{0};  // Win32 number; 0: none
    std::atomic<std::uint64_t> bytes_out_{0};
    std::atomic<std::uint32_t> baud_{0};  // [bit/s] as last read from a port
    std::string com_name_;
    std::atomic<ADriver::ConnectionType> connection_type_{ADriver::Connection_None};
    bool extra_flag_ = false;
    std::mutex phase_guard_;
    Phase phase_ = Phase::ended;  // of the thread's run
    bool another_run_ = false;    // asked for while this one was ending
};

}  // namespace kernel
