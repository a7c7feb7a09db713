// Driver libraries: plug-ins that a host loads while it runs. A driver decodes the stream of a receiver, or talks to
// it.
//
// A driver library (.so, .dll) exports C functions with these names:
//
//   const char *DLL_CreateName(int version)
//       The driver's name if it supports this interface version, else null. LoadDriverLibrary calls it in each library
//       that it finds by search.
//   kernel::DLL_Loader *DLL_CreateLoader(int version, kernel::Error_Handler *handler)
//       A new driver object, or null if it does not support this version. The handler is never null and outlives the
//       object. Create_Driver_Loader calls it.
//
// docs/extending.md lists what a driver is made of.
#pragma once

#include "kernel/base/Object.h"

#include <cstddef>

// Before the definition of a function that a driver exports. A driver for Windows is compiled like any program that
// uses the shared library.
#if defined(KERNEL_API_DLLEXPORT) || defined(KERNEL_API_DLLIMPORT)
#define KERNEL_DRIVER_ENTRY extern "C" __declspec(dllexport)
#else
#define KERNEL_DRIVER_ENTRY extern "C" __attribute__((visibility("default")))
#endif

namespace kernel {

class Byte_Client;
class Byte_Server;
class Object_Server;
class Remote_Control;

constexpr int Driver_Interface_Version = 109;  // shown as 1.9
constexpr std::size_t Driver_Path_Size = 260;  // [bytes], terminator included

using Driver_Module = void *;
using Driver_Function = void (*)();

// The base of the object that a driver hands out. It defines what hosts can ask of every driver.
//
// Threads:   the driver's matter; hosts make, use and delete it on one thread, and the streams run on theirs.
// Ownership: the host's, until Delete. What the accessors return is the driver's: a host that connects the byte client
//            to a server of its own disconnects it before Delete; the client must refuse deletion (Dont_Delete_Me).
// Errors:    by false or null, with Last_Error(); reports go to the handler of the constructor. Nothing is thrown.
class KERNEL_API DLL_Loader : public virtual Object {
public:
    static const char Name[];  // "DLL_Loader"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;
    ~DLL_Loader() override;

    // The same text as DLL_CreateName returns.
    virtual const char *Driver_Name() const = 0;
    // The version that the driver was built for: Driver_Interface_Version of its headers.
    virtual int Interface_Version() const = 0;
    // Sets an option of the driver's own. It comes before Start, Record_Server and Get_Client: drivers refuse it later.
    // False also for an unknown name or a bad value.
    virtual bool Set_Option(const char *name, const char *value) = 0;
    // Begins a stream. Also after Stop, for the next one.
    virtual bool Start() = 0;
    // The stream has ended: the driver hands over what it still holds. Call it when no other thread is inside the byte
    // client.
    virtual bool Stop() = 0;
    // The servers of the driver's records, from 0; null behind the last one. The host connects its record clients to
    // them; IsInheritedFrom tells the kind.
    virtual Object_Server *Record_Server(unsigned int index) = 0;
    // Why the last operation that failed did so; "" before. Valid until the next operation.
    virtual const char *Last_Error() const = 0;

    virtual Byte_Client *Get_Client();     // takes the receiver's bytes; null: none
    virtual Byte_Server *Get_Server();     // gives bytes for the receiver; null: none
    virtual Remote_Control *Get_Remote();  // of the driver's own connection; null: none

    // Destroys the object and makes the pointer null. To be called before the driver is freed.
    static void Delete(DLL_Loader *&loader);

protected:
    explicit DLL_Loader(Error_Handler &handler);
};

// Loads a driver library by its file name; null if that fails. Free_Driver_Library ends the load.
//
// If the file, or a library that it needs, is missing, a library of the same family is searched for in its folder: one
// whose name differs in the three characters before the first dot, such as rx_105.dll for rx_100.dll. The first one in
// the order of the names, letter case ignored, that answers interface version 109 is loaded. A file that is there is
// not asked. There is no search
//   - for a name without a dot or without a folder;
//   - when fewer than three characters stand before the first dot of the whole name, or a separator is one of them.
// Both '/' and '\\' separate folders. A dot in a folder's name counts: for "d.rv/rx_100.dll" nothing is found. '?' and
// '*' in the last component stand for any character and any characters, also those of `fileName` itself. In folders
// they stand for themselves.
//
// `loadedName`, if not null, has room for Driver_Path_Size bytes: the path that was loaded, or `fileName`, cut to that
// size. Names are UTF-8. Reports to `handler` (null: the default handler), unit "kernel/LoadDriverLibary", code 0:
//   2  Searching for DLL "%s"                           the name with ??? for the three characters
//   2  DLL %s has no Name function %s!
//   2  DLL %s has wrong interface. Need interface Version %d.%d!   also if DLL_CreateName throws
//   1  Using as %s new DLL %s instead of %s
//   3  Could not find DLL "%s"
// A library that does not load for any other reason than a missing file is not reported.
//
// Threads:   any.
KERNEL_API Driver_Module LoadDriverLibrary(const char *fileName, char *loadedName, Error_Handler *handler);

// Ends one load. With the last one the library is unloaded: nothing of it may be in use any more, neither objects nor
// texts. False for null.
KERNEL_API bool Free_Driver_Library(Driver_Module driver);

// A function that the library exports; null if it has none of this name.
KERNEL_API Driver_Function Find_Driver_Function(Driver_Module driver, const char *name);

// The driver's object, or null, with a report of level 3 and code 0: the driver has no DLL_CreateLoader, or that
// returned null or threw. The handler (null: the default handler) is the driver's from then on and outlives the object.
KERNEL_API DLL_Loader *Create_Driver_Loader(Driver_Module driver, Error_Handler *handler);

}  // namespace kernel
