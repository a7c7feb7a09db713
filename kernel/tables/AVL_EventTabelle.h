// The table of events: entries with a time, a text and a mark, in the order of time, by event and over all events.
#pragma once

#include "kernel/base/Semaphore.h"
#include "kernel/tables/AVL_NodeFunc.h"

#include <cstddef>
#include <cstdio>
#include <memory>

namespace kernel {

class S_AVL_WorkFunc;

// An event: a name and the tree of its entries.
//
// Threads:   as the table.
// Ownership: the table's; owns both.
// Errors:    none.
struct KERNEL_API Event_Entry {
    Event_Entry() = default;
    Event_Entry(const Event_Entry &) = delete;
    Event_Entry &operator=(const Event_Entry &) = delete;
    ~Event_Entry();

    S_AVL_WorkFunc *tree = nullptr;
    std::unique_ptr<char[]> name;
};

// An entry, one block with its text at the end. Make_Entry gives room for the whole text.
struct AVL_Tab {
    double time = 0;  // [s], of any time base; greater than 0 in a table
    unsigned char reserved[24] = {};
    Event_Entry *event = nullptr;  // null outside of a table
    unsigned char marked = 1;      // 1 or 0
    char text[1] = "";             // ends with a zero byte
};

// Times are in seconds, of any time base. Event 0 (the "master") is the table itself: all entries of all events, and
// its name is the table's. Events 1 to GetMaxEvent() are sorted by name; the case of ASCII letters in names is ignored.
// A number is a place in that order: it changes when events are added, deleted or renamed.
//
// Equal times: within an event entries keep the order in which they were added. In the master they are ordered by event
// (in no particular order) and then by text; the newest of several empty texts comes first.
//
// Names: AddEvent and ChangeEvent refuse a name that a file could not give back: an empty one, one with a double quote,
// one of more than most_name bytes, and the table's own. While a table has no events, its own name is unknown to all
// operations.
//
// Threads:   any. The table's lock (the Semaphore) is held by a scan from its start to ScanDone, so that others that
//            add, trim or write wait for it; a thread that ends closes its scans. Operations on the current entry act
//            on a scan of the calling thread, and find no entry without one. GetEventNumber, GetEventName, GetMaxEvent
//            and the Find family do not wait for scans: they take an inner lock, which every change takes for a moment,
//            after the table's lock. GetValues and the hook Delete run with that inner lock held: an override must not
//            call what takes a table's lock. Two threads must not read files into a table at once.
// Ownership: the table owns its entries and names. An entry takes its text and about 180 bytes (64-bit Linux). A name
//            returned is valid until its event is renamed or deleted.
// Errors:    unknown events and lack of memory are results (0, false, null, -1); nothing is reported, nothing is
//            changed.
class KERNEL_API AVL_EventTabelle : public virtual Semaphore {
public:
    static constexpr std::size_t most_name = 1023;  // [bytes] of an event's name
    static constexpr std::size_t most_text = 4060;  // [bytes] of a text that is read from a file; more is cut off

    virtual ~AVL_EventTabelle();

    // The virtual operations in their order.
    virtual void Delete(AVL_Tab *entry);  // called before an entry is freed by trimming or by deleting events; nothing
    virtual int IsValid() const;
    virtual int AddEvent(const char *name);  // 1; 0: the name exists, or is refused
    virtual int DelEvent(const char *name);  // with all its entries; 0: unknown, or the master
    // 1: renamed, or, when the old name is unknown, the new event was added. 0: the names are the same but for case. A
    // new name that another event has is taken, too: then the number of that name is that of the first of the two.
    virtual int ChangeEvent(const char *old_name, const char *new_name);
    // Copy an entry. The buffers have room for the name and the text; null ones get nothing. Without an entry false,
    // with time 0, "None", "Nothing in List" and 0. The second form copies the current entry.
    virtual bool GetValues(void *entry, double &time, char *name, char *text, int &marked) const = 0;
    virtual bool GetValues(double &time, char *name, char *text, int &marked) const = 0;
    virtual void Add(AVL_Tab *entry, const char *name) = 0;  // a copy of it
    // The text of an entry in a file, without the line end: see docs/formats.md. ReadASCIIEntry finds room for a text
    // of most_text bytes, and the members of *entry at their defaults.
    virtual bool WriteASCIIEntry(std::FILE *file, const AVL_Tab *entry);
    virtual bool ReadASCIIEntry(std::FILE *file, AVL_Tab *entry);

    static void Delete(AVL_EventTabelle *&table);  // and makes it null
    S_AVL_WorkFunc *GetMasterTree() const;

    const char *GetEventName(int number) const;  // null: no such number
    int GetEventNumber(const char *name) const;  // -1: unknown
    unsigned char GetMaxEvent() const;           // only the low eight bits of the number of events

    // A scan starts at the first or last entry, at the first at or after t, or at the last before t. True: there is a
    // current entry. False also when the event is unknown or this thread scans already. The lock is held, even when
    // there is no entry, unless the event was unknown. Every successful start needs a ScanDone.
    bool ScanFirst(const char *name);
    bool ScanLast(const char *name);
    bool ScanSucc(double t, const char *name);
    bool ScanPrev(double t, const char *name);
    // One step; false past the end, from where the next step leads to the first entry, or back to the last.
    bool WalkNext();
    bool WalkPrev();
    void ScanDone();

    // The current entry. When it leaves the table, by whatever operation, there is none until the next step, which
    // leads to its neighbour.
    double GetRtime() const;  // 0: none
    bool GetMark() const;
    void Mark();
    void UnMark();
    void InvertMark();
    bool RemoveAkt();
    bool DelMarked();    // removes it if it is marked
    bool DelUnMarked();  // removes it if it is not

    void RemoveLess(double t);  // the entries of all events with a lesser time
    void RemoveGreater(double t);
    // The earliest or latest entry; it also ends a scan of this thread. RemoveMax refuses the master.
    void RemoveMin(const char *name);
    void RemoveMax(const char *name);
    void RemoveTree(const char *name);  // all entries

    double GetMin() const;  // the times; 0: no entry
    double GetMax() const;
    double GetMin(const char *name) const;
    double GetMax(const char *name) const;
    const char *FindMin() const;  // the events of the earliest and latest entry
    const char *FindMax() const;

    // The entry at t, the first after it, the last before it, the first at or after it, the last at or before it. False
    // for t < 0 and for numbers of no event, and then nothing is copied.
    bool Find(double t, int event, double &time, char *name, char *text, int &marked) const;
    bool FindSucc(double t, int event, double &time, char *name, char *text, int &marked) const;
    bool FindPrev(double t, int event, double &time, char *name, char *text, int &marked) const;
    bool FindSuccKey(double t, int event, double &time, char *name, char *text, int &marked) const;
    bool FindPrevKey(double t, int event, double &time, char *name, char *text, int &marked) const;

    enum Marking : int { all_entries = 0, only_marked = 1, only_unmarked = 2 };
    // The path (UTF-8) is replaced as a whole: when anything fails, the old file is still there. The table's lock is
    // held while the file is written.
    bool WriteASCII(std::FILE *file, Marking marking);
    bool WriteASCII(const char *path, Marking marking);
    // Adds the entries of a file. What is no entry is skipped. False: the file's version is not supported, or it cannot
    // be opened. The stream must be binary.
    bool ReadASCII(std::FILE *file);
    bool ReadASCII(const char *path);

    // Null when memory is short. Free_Entry ignores null.
    static AVL_Tab *Make_Entry(double time, const char *text);
    static void Free_Entry(AVL_Tab *entry);

protected:
    // functions: for the trees of events; null stands for the usual ones. Their free_func, called with a table as user,
    // has to take the entry out of the master and to free it, and otherwise does nothing, as StrTab_Free.
    AVL_EventTabelle(const AVL_NodeFunc *functions, const char *name);

    // Trims all events before time - interval if the interval is greater than 0, and adds an entry at the end of its
    // equals. Nothing happens for a time that is not greater than 0 or is infinite. An unknown event and the master get
    // no entry.
    void Insert_Entry(double time, const char *name, const char *text, int marked, double interval);
    const AVL_Tab *Current_Entry() const;
    bool Is_Empty() const;

private:
    friend KERNEL_API void StrTab_Kill(void *entry, AVL_EventTabelle *table);
    struct Inside;
    template <class Place>
    bool Open_Scan(const char *name, Place place) KERNEL_ANNOTATION(no_thread_safety_analysis);
    template <class Change>
    void Set_Mark(Change change);
    template <class Take>
    void Remove_One(Take take, const char *name, int least);
    template <class Choose>
    double Time_Of(Choose choose, const char *name) const;
    template <class Choose>
    const char *Event_Of(Choose choose) const;
    template <class Search>
    bool Look_Up(Search search, double t, int event, double &time, char *name, char *text, int &marked) const;
    bool Write_Event(std::FILE *file, const Event_Entry &event, Marking marking);
    bool Accept_Version(int major, int minor);
    void Read_Entries(std::FILE *file, const char *name);

    std::unique_ptr<Inside> inside_;  // null: not valid
};

// The free_func of event trees. With a table it takes the entry out of the table's master and frees it; without one it
// does nothing.
KERNEL_API void StrTab_Kill(void *entry, AVL_EventTabelle *table);
KERNEL_API void *StrTab_Free(void *entry, const void *key, const void *user);

}  // namespace kernel
