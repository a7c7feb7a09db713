// History loggers: event tables with a name in a directory of the process, a window of time that they keep, and a text
// file.
#pragma once

#include "kernel/tables/AVL_EventTabelle.h"

#include <atomic>
#include <memory>

namespace kernel {

// Adding an entry drops those of all events that are older than it by more than the interval. Reading a file adds its
// entries one by one, so that it trims as well: set the interval to 0 first to keep all.
//
// A logger with a tree name has its interval in the machine's registry: a number of that name in the sub key
// "EventTable". It is read when the logger is created, and is 3600 s when it is not there. A logger without a tree name
// begins with 3600 s, and leaves the registry alone.
//
// Threads:   as AVL_EventTabelle. The directory has a lock of its own, which may be held while a logger's lock is
//            taken, never the other way round: do not create, find or delete loggers during a scan. A logger that was
//            found may be deleted by another thread; hold GetTreeSema() while you use it if that can happen. Create and
//            SetInterval may wait for the registry, 2 s at most, with no lock held.
// Ownership: the caller of Create owns the logger until Delete or DeleteAll. Strings are copied.
// Errors:    failures of the registry are reported to the default handler, except that there is no such key when it is
//            read; an interval that was set holds all the same. Create returns null when memory is short. A tree name
//            that is taken already is no error: the logger works, GetTreeName is null, and FindTabelle finds the first.
class KERNEL_API EventTabelle : public AVL_EventTabelle {
public:
    static EventTabelle *Create(const char *table_name, const char *tree_name);
    using AVL_EventTabelle::Delete;
    static void Delete(EventTabelle *logger);
    static void DeleteAll();                                  // all loggers with a tree name
    static EventTabelle *FindTabelle(const char *tree_name);  // null: unknown; ignores the case of ASCII letters
    static Semaphore *GetTreeSema();                          // the directory's lock
    static S_AVL_WorkFunc *GetTreeOfTrees();                  // the directory; null when there was no memory for it
    const char *GetTreeName() const { return tree_name_.get(); }
    ~EventTabelle() override;

    bool GetValues(void *entry, double &time, char *name, char *text, int &marked) const override;
    bool GetValues(double &time, char *name, char *text, int &marked) const override;
    void Add(AVL_Tab *entry, const char *name) override;
    bool WriteASCIIEntry(std::FILE *file, const AVL_Tab *entry) override;
    bool ReadASCIIEntry(std::FILE *file, AVL_Tab *entry) override;
    // Ignored: a time that is not greater than 0 or is infinite. An unknown event and the table's own name get no
    // entry, but the interval trims all the same.
    virtual void Add(double time, const char *name, const char *text, int marked);
    virtual double GetInterval();               // [s]; 0 or less keeps all
    virtual void SetInterval(double interval);  // writes it to the registry if it is another one

    void Insert(double time, const char *name, const char *text, int marked);  // adds the event first, if need be

protected:
    EventTabelle(const char *table_name, const char *tree_name);

private:
    friend KERNEL_API void StrTree_Kill(void *logger, const void *user);
    void Enter_Directory(const char *tree_name);

    std::atomic<double> interval_{0};    // [s]
    std::unique_ptr<char[]> tree_name_;  // null: not in the directory
};

// How the directory lets go of a logger: deletes it. StrTree_Free returns null.
KERNEL_API void StrTree_Kill(void *logger, const void *user);
KERNEL_API void *StrTree_Free(void *logger, const void *key, const void *user);

}  // namespace kernel
