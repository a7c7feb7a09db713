// The configuration store: named values in the keys of a registry. Windows: the system's. POSIX: a database per hive;
// docs/host-guide.md says where.
#pragma once

#include "kernel/base/Object.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace platform {
class Registry_Key;
}

namespace kernel {

// The interface of Registry, which says what each operation does.
//
// Threads:   as Registry.
// Ownership: never deleted through this interface.
// Errors:    as Registry.
class KERNEL_API ARegistry {
public:
    enum Modus {
        None,              // refused
        All,               // creates
        Read_and_Write,    // creates
        Read_only,         // never creates
        Write_only,        // creates; values can be read, keys cannot be enumerated
        Read_after_Write,  // as Read_and_Write; without the rights for it, as Read_only
    };
    // On POSIX, Current_User and Local_Machine have keys; under the others none is there, and none can be created.
    enum Root : std::uint32_t {
        Classes_Root = 0x80000000,
        Current_User = 0x80000001,
        Local_Machine = 0x80000002,
        Users = 0x80000003,
        Performance_Data = 0x80000004,
        Dyn_Data = 0x80000006,
    };

    virtual bool Init(const char *subKey, Modus mode) = 0;
    virtual bool Init(Root root, const char *path, Modus mode) = 0;
    virtual const char *ReadString(const char *name, unsigned int index, const char *otherwise) = 0;
    virtual const char *ReadString(const char *name, const char *otherwise) = 0;
    virtual bool WriteString(const char *name, unsigned int index, const char *value) = 0;
    virtual bool WriteString(const char *name, const char *value) = 0;
    virtual const char *ReadPassword(const char *name, const char *otherwise) = 0;
    virtual bool WritePassword(const char *name, const char *value) = 0;
    virtual unsigned long ReadDWord(const char *name, unsigned int index, unsigned long otherwise) = 0;
    virtual unsigned long ReadDWord(const char *name, unsigned long otherwise) = 0;
    virtual bool WriteDWord(const char *name, unsigned int index, unsigned long value) = 0;
    virtual bool WriteDWord(const char *name, unsigned long value) = 0;
    virtual unsigned short ReadWord(const char *name, unsigned int index, unsigned short otherwise) = 0;
    virtual unsigned short ReadWord(const char *name, unsigned short otherwise) = 0;
    virtual bool WriteWord(const char *name, unsigned int index, unsigned short value) = 0;
    virtual bool WriteWord(const char *name, unsigned short value) = 0;
    virtual unsigned char ReadByte(const char *name, unsigned int index, unsigned char otherwise) = 0;
    virtual unsigned char ReadByte(const char *name, unsigned char otherwise) = 0;
    virtual bool WriteByte(const char *name, unsigned int index, unsigned char value) = 0;
    virtual bool WriteByte(const char *name, unsigned char value) = 0;
    virtual bool ReadBool(const char *name, unsigned int index, bool otherwise) = 0;
    virtual bool ReadBool(const char *name, bool otherwise) = 0;
    virtual bool WriteBool(const char *name, unsigned int index, bool value) = 0;
    virtual bool WriteBool(const char *name, bool value) = 0;
    virtual int ReadInt(const char *name, unsigned int index, int otherwise) = 0;
    virtual int ReadInt(const char *name, int otherwise) = 0;
    virtual bool WriteInt(const char *name, unsigned int index, int value) = 0;
    virtual bool WriteInt(const char *name, int value) = 0;
    virtual long ReadLong(const char *name, unsigned int index, long otherwise) = 0;
    virtual long ReadLong(const char *name, long otherwise) = 0;
    virtual bool WriteLong(const char *name, unsigned int index, long value) = 0;
    virtual bool WriteLong(const char *name, long value) = 0;
    virtual double ReadDouble(const char *name, unsigned int index, double otherwise) = 0;
    virtual double ReadDouble(const char *name, double otherwise) = 0;
    virtual bool WriteDouble(const char *name, unsigned int index, double value) = 0;
    virtual bool WriteDouble(const char *name, double value) = 0;
    virtual unsigned int GetArraySize(const char *name) = 0;
    virtual bool DeleteArrayIndex(const char *name, unsigned int index) = 0;
    virtual bool Delete() = 0;
    virtual bool Delete(const char *name) = 0;
    virtual const char *GetBaseName() const = 0;
    virtual const char *GetDisplayName() const = 0;
    virtual int GetNumSubKeys(unsigned long *count, unsigned long *maxLength) = 0;
    virtual int EnumSubKey(int index, char *buffer, unsigned long size) = 0;

protected:
    ~ARegistry() = default;
};

// One key, opened in one mode. A sub key means the path SOFTWARE\MORVALEN\WORD\SUBKEY under the class's root, where
// WORD is the program's word (SetExePath); a path is relative to the root that is given with it. Names of keys and
// values ignore case; a path has at most 512 parts of at most 255 bytes.
//
// Reads return `otherwise` when the value is not there, and also after each failure. Values:
//   text      REG_SZ, or REG_EXPAND_SZ (never expanded): ReadString, WriteString; scrambled: ReadPassword and Write...
//   number    a text with 32 significant digits, whatever the locale: ReadDouble, WriteDouble
//   word      REG_DWORD (REG_DWORD_BIG_ENDIAN is read, too): ReadDWord, and all the smaller types
//   texts     REG_MULTI_SZ: the operations with an index. Writing fills a gap with empty texts
//   words     REG_BINARY, 4 bytes each, little-endian: the same; a gap is filled with zeros
// A simple text or word is also an array of one element. Reads give up on values of more than 100,000 bytes; array
// writes do not make them. An array is read, changed and written back: of two writers at the same time, one wins.
//
// Threads:   one thread at a time per object. Other objects, threads and processes may use the same key; each write is
//            whole, also after a kill or a power cut. On POSIX a lock of another process is waited for, 2 s at most.
// Ownership: names and values are copied. A text that is returned is valid until the next call on the object, which may
//            have it as an argument.
// Errors:    reported, level Error, code 1, or 3 for errors of the system; the operation returns `otherwise` or false.
//            What is not there is no error: reads return `otherwise`, deletes true. Init reports it.
class KERNEL_API Registry : public virtual Object, public ARegistry {
public:
    static const char Name[];  // "Registry"
    static const char *ClassName() { return Name; }
    static const char *const Access_String[6];  // words for the modes

    explicit Registry(Error_Handler *handler);
    // As the first, then Init; GetDisplayName() is null if that failed.
    Registry(const char *subKey, Modus mode, Error_Handler *handler);
    Registry(Root root, const char *path, Modus mode, Error_Handler *handler);
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;
    ~Registry() override;
    bool IsInheritedFrom(const char *name) const override;

    // Null when the key cannot be opened. The caller deletes the object. The forms without a root mean Local_Machine.
    static Registry *Create(const char *subKey, Modus mode, Error_Handler *handler);
    static Registry *Create(Root root, const char *path, Modus mode, Error_Handler *handler);
    static Registry *CreateProgName(const char *subKey, Modus mode, Error_Handler *handler);
    static Registry *CreateProgName(Root root, const char *subKey, Modus mode, Error_Handler *handler);

    // The program's file name, in place of "DRUX.exe". What stands behind its last folder, up to its last dot, is the
    // word in the paths, in upper case. For the host, before it opens its first key; any thread. False without memory.
    static bool SetExePath(const char *path);
    // "HKEY_LOCAL_MACHINE" and the like. Others are written into one of two buffers of the thread, in turn.
    static const char *Key2Str(std::uint32_t root);

    // Opens another key; the former one is closed, also when that fails. A null sub key changes nothing.
    bool Init(const char *subKey, Modus mode) override;
    bool Init(Root root, const char *path, Modus mode) override;
    bool InitProgName(const char *subKey, Modus mode);
    bool InitProgName(Root root, const char *subKey, Modus mode);

    // Null, and not `otherwise`, when the system fails.
    const char *ReadString(const char *name, unsigned int index, const char *otherwise) override;
    const char *ReadString(const char *name, const char *otherwise) override;
    // Reports a value of another type and leaves it alone; that is true, as for WriteDWord.
    bool WriteString(const char *name, unsigned int index, const char *value) override;
    bool WriteString(const char *name, const char *value) override;
    const char *ReadPassword(const char *name, const char *otherwise) override;
    bool WritePassword(const char *name, const char *value) override;
    unsigned long ReadDWord(const char *name, unsigned int index, unsigned long otherwise) override;
    unsigned long ReadDWord(const char *name, unsigned long otherwise) override;
    // A value of more than 32 bits is refused; so is a long that its sign would not survive.
    bool WriteDWord(const char *name, unsigned int index, unsigned long value) override;
    bool WriteDWord(const char *name, unsigned long value) override;
    unsigned short ReadWord(const char *name, unsigned int index, unsigned short otherwise) override;
    unsigned short ReadWord(const char *name, unsigned short otherwise) override;
    bool WriteWord(const char *name, unsigned int index, unsigned short value) override;
    bool WriteWord(const char *name, unsigned short value) override;
    unsigned char ReadByte(const char *name, unsigned int index, unsigned char otherwise) override;
    unsigned char ReadByte(const char *name, unsigned char otherwise) override;
    bool WriteByte(const char *name, unsigned int index, unsigned char value) override;
    bool WriteByte(const char *name, unsigned char value) override;
    bool ReadBool(const char *name, unsigned int index, bool otherwise) override;
    bool ReadBool(const char *name, bool otherwise) override;
    bool WriteBool(const char *name, unsigned int index, bool value) override;
    bool WriteBool(const char *name, bool value) override;
    int ReadInt(const char *name, unsigned int index, int otherwise) override;
    int ReadInt(const char *name, int otherwise) override;
    bool WriteInt(const char *name, unsigned int index, int value) override;
    bool WriteInt(const char *name, int value) override;
    long ReadLong(const char *name, unsigned int index, long otherwise) override;
    long ReadLong(const char *name, long otherwise) override;
    bool WriteLong(const char *name, unsigned int index, long value) override;
    bool WriteLong(const char *name, long value) override;
    double ReadDouble(const char *name, unsigned int index, double otherwise) override;
    double ReadDouble(const char *name, double otherwise) override;
    bool WriteDouble(const char *name, unsigned int index, double value) override;
    bool WriteDouble(const char *name, double value) override;
    unsigned int GetArraySize(const char *name) override;  // 0: not there
    bool DeleteArrayIndex(const char *name, unsigned int index) override;
    // Deletes the key with all keys below it, in any mode, and closes it. Roots are refused.
    bool Delete() override;
    bool Delete(const char *name) override;
    const char *GetBaseName() const override;     // the path; null when no key is open
    const char *GetDisplayName() const override;  // root, two backslashes, path; the same

    // These return an error number: 0 for success, 6 when no key is open (reported), else the system's, not reported.
    // 234: the buffer is too small, 259: the index is too large. Lengths are without the final zero.
    int GetNumSubKeys(unsigned long *count, unsigned long *maxLength) override;
    int EnumSubKey(int index, char *buffer, unsigned long size) override;
    int GetNumValues(unsigned long *count, unsigned long *maxNameLength);
    // nameSize and dataSize: the room before, the length after. type and data may be null; without data,
    // dataSize as well.
    int EnumValue(unsigned long index, char *name, unsigned long *nameSize, unsigned long *type, void *data,
                  unsigned long *dataSize);
    // The bytes of a value as they are, of any type and length.
    int ReadValue(const char *name, unsigned long *type, void *data, unsigned long *dataSize);
    int WriteValue(const char *name, unsigned long type, const void *data, unsigned long dataSize);

    Root GetHKeyRoot() const { return root_; }
    Modus GetModus() const { return mode_; }
    bool HasWriteAccess() const { return may_write_ != 0; }

protected:
    // For UserRegistry: the root of the forms without one.
    Registry(const char *class_name, Root own_root, Error_Handler *handler);

private:
    struct Asked;  // what a call is about, for its reports
    struct Buffer {
        std::unique_ptr<char[]> bytes;
        std::size_t capacity = 0;  // [bytes] of a value; two more are there for zeros
    };

    void Clear();
    std::uint32_t Open_Key(const char *path, Modus mode, bool &created);
    bool Refuse(std::uint32_t error, bool created);
    bool Realloc_buf(std::uint64_t size);
    bool Is_Ready(const Asked &asked, const char *no_key, const char *no_name) const;
    std::uint32_t Query(const char *name);
    const char *Read_Text() const { return buffers_[current_].bytes.get(); }
    bool Fail(const Asked &asked, const char *format, std::uint32_t error) const;
    void Report_Type(const Asked &asked, const char *format) const;
    bool Find_Word(const char *name, std::uint32_t &word);
    bool Find_Word(const char *name, unsigned int index, std::uint32_t &word);
    std::uint32_t Simple_Word() const;
    bool Fits(const char *name, std::int64_t number, std::int64_t most) const;
    bool Put_Text(const Asked &asked, const char *value, const char *failed);
    bool Put_Word(const Asked &asked, unsigned long value);
    template <class Body>
    bool Guarded(Body body) const;
    template <class T, class... Where>
    T Read_As(T otherwise, const char *name, Where... where);

    const Root own_root_;
    std::unique_ptr<char[]> base_name_, display_name_;
    Root root_ = Local_Machine;
    std::unique_ptr<platform::Registry_Key> key_;  // null: no key is open
    Modus mode_ = None;
    std::uint8_t may_write_ = 0, may_read_ = 0;
    Buffer buffers_[2];  // in turn, so that a text that was read may be an argument of the next call
    unsigned int current_ = 0;
    std::size_t size_ = 0;    // [bytes] of the value that was read last
    std::uint32_t type_ = 0;  // the same
};

// The same under Current_User.
//
// Threads:   as Registry.
// Ownership: as Registry.
// Errors:    as Registry.
class KERNEL_API UserRegistry : public Registry {
public:
    static const char Name[];  // "UserRegistry"
    static const char *ClassName() { return Name; }

    explicit UserRegistry(Error_Handler *handler);
    UserRegistry(const char *subKey, Modus mode, Error_Handler *handler);
    UserRegistry(Root root, const char *path, Modus mode, Error_Handler *handler);
    bool IsInheritedFrom(const char *name) const override;

    static UserRegistry *Create(const char *subKey, Modus mode, Error_Handler *handler);
    static UserRegistry *Create(Root root, const char *path, Modus mode, Error_Handler *handler);
    static UserRegistry *CreateProgName(const char *subKey, Modus mode, Error_Handler *handler);
    static UserRegistry *CreateProgName(Root root, const char *subKey, Modus mode, Error_Handler *handler);
};

}  // namespace kernel
