#include "kernel/tables/AVL_EventTabelle.h"

#include "kernel/base/Immortal_internal.h"
#include "kernel/base/text_internal.h"
#include "kernel/tables/event_text_internal.h"
#include "kernel/tables/ordered_tree_internal.h"

#include "platform/replaced_file.h"
#include "platform/thread_number.h"
#include "platform/thread_slot.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstring>
#include <functional>
#include <new>
#include <utility>
#include <vector>

namespace kernel {

namespace {

const AVL_Tab &Entry(const void *data) { return *static_cast<const AVL_Tab *>(data); }

template <class T>
int Order_Of(const T &a, const T &b)
{
    return a < b ? 1 : b < a ? -1 : 0;
}

double Time_Of_Key(const void *key) { return Entry(key).time; }

int Compare_In_Event(const void *data, const void *key) { return Order_Of(Entry(data).time, Entry(key).time); }

// An empty text orders before itself. This is part of the interface (the newest of several empty texts comes first),
// and the reason why an entry that leaves is looked for with Take_Out.
int Compare_In_Master(const void *data, const void *key)
{
    const AVL_Tab &a = Entry(data), &b = Entry(key);
    if (const int by_time = Order_Of(a.time, b.time); by_time != 0) return by_time;
    if (!b.event) return 0;
    if (a.event != b.event) return std::less<>()(a.event, b.event) ? 1 : -1;
    if (b.text[0] == '\0') return -1;
    return Order_Of(std::strcmp(a.text, b.text), 0);
}

AVL_Tab Key(double time)
{
    AVL_Tab key;
    key.time = time;
    return key;
}

// Takes this very entry out of a tree. Time, event and text may be equal twice.
void Take_Out(S_AVL_WorkFunc *tree, const AVL_Tab *entry)
{
    AVL_Cursor at = AVL_MakeFirstKey(tree, entry);
    const void *found = at.Data() ? at.Data() : AVL_WalkSuccInorder(tree, at);
    while (found && found != entry && Entry(found).time == entry->time) found = AVL_WalkSuccInorder(tree, at);
    if (found == entry) AVL_GetPfad(tree, at);
}

void *Free_From_Master(void *entry, const void *, const void *user)
{
    if (user) static_cast<AVL_EventTabelle *>(const_cast<void *>(user))->Delete(static_cast<AVL_Tab *>(entry));
    AVL_EventTabelle::Free_Entry(static_cast<AVL_Tab *>(entry));
    return nullptr;
}

void Keep(void *, const void *) {}

const AVL_NodeFunc master_functions = {AVL_Malloc_RetHandleDirekt, Free_From_Master, Keep};
const AVL_NodeFunc event_functions = {AVL_Malloc_RetHandleDirekt, StrTab_Free, Keep};

// A file can give the name back.
bool Is_Fit(const char *name)
{
    if (!name || *name == '\0') return false;
    return std::strlen(name) <= AVL_EventTabelle::most_name && !std::strchr(name, '"');
}

using Events = std::vector<std::unique_ptr<Event_Entry>>;

bool Is_Named(const std::unique_ptr<Event_Entry> &event, const char *name)
{
    return Compare_Ignoring_Case(event->name.get(), name) == 0;
}

// At its place in the order, behind equal names. There is room for it.
void Insert(Events &events, std::unique_ptr<Event_Entry> event)
{
    const auto at = std::upper_bound(events.begin() + 1, events.end(), event, [](const auto &a, const auto &b) {
        return Compare_Ignoring_Case(a->name.get(), b->name.get()) < 0;
    });
    events.insert(at, std::move(event));
}

// Throws std::bad_alloc.
std::unique_ptr<Event_Entry> Make_Event(const AVL_NodeFunc &functions, AVL_Compare compare, const char *name)
{
    auto event = std::make_unique<Event_Entry>();
    event->name = Copy_Text(name ? name : "");
    event->tree = AVL_Konstruktor(functions, compare, Time_Of_Key);
    if (!event->name || !event->tree) throw std::bad_alloc();
    return event;
}

}  // namespace

// Changes hold the table's lock and then `lock`; who holds one of the two may read. The scan belongs to the thread that
// holds the table's lock.
struct AVL_EventTabelle::Inside {
    struct Open_Scans;

    Inside(AVL_EventTabelle &of, const AVL_NodeFunc &with, const char *name) : table(of), functions(with)
    {
        events.push_back(Make_Event(master_functions, Compare_In_Master, name));
    }

    int Count() const { return static_cast<int>(events.size()) - 1; }
    const Event_Entry &Event(int number) const { return *events[static_cast<std::size_t>(number)]; }
    S_AVL_WorkFunc *Tree(int number) const { return Event(number).tree; }
    S_AVL_WorkFunc *Master() const { return Tree(0); }
    int Number_Of(const char *name) const;
    S_AVL_WorkFunc *Tree_Of(const char *name) const;  // null: unknown
    void Rename(int number, std::unique_ptr<char[]> name);
    void Remove_Less(double t);

    bool Scans() const { return scanner.load(std::memory_order_relaxed) == platform::thread_number(); }
    bool Begin_Scan(S_AVL_WorkFunc *tree);
    void End_Scan() KERNEL_ANNOTATION(no_thread_safety_analysis);

    AVL_EventTabelle &table;
    const AVL_NodeFunc functions;
    Semaphore lock;
    Events events;  // 0 is the master
    AVL_Cursor cursor;
    S_AVL_WorkFunc *scanned = nullptr;  // only compared when its event was deleted: the cursor has left it then
    std::atomic<platform::Thread_Number> scanner{0};  // the scanning thread; 0: none
    Inside *next_open = nullptr;                      // the next table that the same thread scans
    std::atomic<bool> has_hexadecimal_times{false};   // the file that is being read
};

// The tables that a thread scans. When the thread ends, its scans end, and others get the tables' locks.
struct AVL_EventTabelle::Inside::Open_Scans : platform::Thread_End {
    ~Open_Scans() override
    {
        while (Inside *const inside = first) {
            first = inside->next_open;
            inside->cursor = AVL_Cursor();
            inside->scanned = nullptr;
            inside->scanner.store(0, std::memory_order_relaxed);
            inside->table.Release();
        }
    }
    void Forget(const Inside *inside)
    {
        Inside **at = &first;
        while (*at != inside) at = &(*at)->next_open;
        *at = inside->next_open;
    }
    Inside *first = nullptr;

    static Open_Scans *Of_This_Thread();  // null without memory
};

AVL_EventTabelle::Inside::Open_Scans *AVL_EventTabelle::Inside::Open_Scans::Of_This_Thread()
{
    static Immortal<platform::Thread_Slot> slot;
    auto *scans = static_cast<Open_Scans *>((*slot).get());
    if (scans) return scans;
    std::unique_ptr<platform::Thread_End> made(new (std::nothrow) Open_Scans);
    scans = static_cast<Open_Scans *>(made.get());
    return made && (*slot).set(std::move(made)) ? scans : nullptr;
}

// The first of several equal names.
int AVL_EventTabelle::Inside::Number_Of(const char *name) const
{
    if (Count() == 0 || !name) return -1;
    const auto at = std::lower_bound(events.begin() + 1, events.end(), name, [](const auto &event, const char *key) {
        return Compare_Ignoring_Case(event->name.get(), key) < 0;
    });
    if (at != events.end() && Is_Named(*at, name)) return static_cast<int>(at - events.begin());
    return Is_Named(events[0], name) ? 0 : -1;
}

S_AVL_WorkFunc *AVL_EventTabelle::Inside::Tree_Of(const char *name) const
{
    const int number = Number_Of(name);
    return number < 0 ? nullptr : Tree(number);
}

// The events' trees only let go of the entries; the master frees them.
void AVL_EventTabelle::Inside::Remove_Less(double t)
{
    const void *const first = AVL_SearchMin(Master());
    if (!first || Entry(first).time >= t) return;
    const AVL_Tab key = Key(t);
    for (int number = Count(); number >= 0; --number) AVL_DelLess(Tree(number), &key, number > 0 ? nullptr : &table);
}

void AVL_EventTabelle::Inside::Rename(int number, std::unique_ptr<char[]> name)
{
    const auto at = events.begin() + number;
    (*at)->name = std::move(name);
    if (number == 0) return;
    std::unique_ptr<Event_Entry> event = std::move(*at);
    events.erase(at);
    Insert(events, std::move(event));
}

bool AVL_EventTabelle::Inside::Begin_Scan(S_AVL_WorkFunc *tree)
{
    Open_Scans *const scans = Open_Scans::Of_This_Thread();
    if (!scans) return false;
    scanned = tree;
    scanner.store(platform::thread_number(), std::memory_order_relaxed);
    next_open = std::exchange(scans->first, this);
    return true;
}

void AVL_EventTabelle::Inside::End_Scan()
{
    cursor = AVL_Cursor();
    scanned = nullptr;
    scanner.store(0, std::memory_order_relaxed);
    Open_Scans::Of_This_Thread()->Forget(this);
    table.Release();
}

Event_Entry::~Event_Entry() { AVL_Destruktor(tree); }

// --- The table and its events

AVL_EventTabelle::AVL_EventTabelle(const AVL_NodeFunc *functions, const char *name)
{
    try {
        inside_ = std::make_unique<Inside>(*this, functions ? *functions : event_functions, name);
    } catch (const std::bad_alloc &) {
    }
}

// The events' trees first and without a table: the master then frees each entry once.
AVL_EventTabelle::~AVL_EventTabelle()
{
    if (!inside_) return;
    if (inside_->Scans()) inside_->End_Scan();
    const Semaphore_Guard lock(*this);
    for (int number = inside_->Count(); number >= 0; --number) AVL_DelTree(inside_->Tree(number), nullptr);
}

void AVL_EventTabelle::Delete(AVL_Tab *) {}

void AVL_EventTabelle::Delete(AVL_EventTabelle *&table) { delete std::exchange(table, nullptr); }

int AVL_EventTabelle::IsValid() const { return inside_ && Semaphore::IsValid() ? 1 : 0; }

S_AVL_WorkFunc *AVL_EventTabelle::GetMasterTree() const { return inside_ ? inside_->Master() : nullptr; }

const char *AVL_EventTabelle::GetEventName(int number) const
{
    if (!inside_) return nullptr;
    const Semaphore_Guard inner(inside_->lock);
    return number < 0 || number > inside_->Count() ? nullptr : inside_->Event(number).name.get();
}

int AVL_EventTabelle::GetEventNumber(const char *name) const
{
    if (!inside_) return -1;
    const Semaphore_Guard inner(inside_->lock);
    return inside_->Number_Of(name);
}

unsigned char AVL_EventTabelle::GetMaxEvent() const
{
    if (!inside_) return 0;
    const Semaphore_Guard inner(inside_->lock);
    return static_cast<unsigned char>(inside_->Count());
}

// An event that exists is found without the table's lock: nobody waits for a scan to learn that.
int AVL_EventTabelle::AddEvent(const char *name)
{
    if (!inside_ || !Is_Fit(name) || GetEventNumber(name) >= 0) return 0;
    const Semaphore_Guard lock(*this);
    const Semaphore_Guard inner(inside_->lock);
    if (inside_->Number_Of(name) >= 0 || Is_Named(inside_->events[0], name)) return 0;
    try {
        inside_->events.reserve(inside_->events.size() + 1);
        Insert(inside_->events, Make_Event(inside_->functions, Compare_In_Event, name));
    } catch (const std::bad_alloc &) {
        return 0;
    }
    return 1;
}

int AVL_EventTabelle::DelEvent(const char *name)
{
    if (GetEventNumber(name) < 1) return 0;
    const Semaphore_Guard lock(*this);
    const Semaphore_Guard inner(inside_->lock);
    const int number = inside_->Number_Of(name);
    if (number < 1) return 0;
    AVL_DelTree(inside_->Tree(number), this);
    inside_->events.erase(inside_->events.begin() + number);
    return 1;
}

int AVL_EventTabelle::ChangeEvent(const char *old_name, const char *new_name)
{
    if (!inside_ || !old_name || !Is_Fit(new_name) || Compare_Ignoring_Case(old_name, new_name) == 0) return 0;
    std::unique_ptr<char[]> copy = Copy_Text(new_name);
    if (!copy) return 0;
    if (GetEventNumber(old_name) >= 0) {
        const Semaphore_Guard lock(*this);
        const Semaphore_Guard inner(inside_->lock);
        const int number = inside_->Number_Of(old_name);
        if (number > 0 && Is_Named(inside_->events[0], new_name)) return 0;
        if (number >= 0) inside_->Rename(number, std::move(copy));
        if (number >= 0) return 1;
    }
    return AddEvent(new_name);
}

// --- Scans

template <class Place>
bool AVL_EventTabelle::Open_Scan(const char *name, Place place)
{
    if (!inside_) return false;
    Request();
    S_AVL_WorkFunc *const tree = inside_->Scans() ? nullptr : inside_->Tree_Of(name);
    if (!tree || !inside_->Begin_Scan(tree)) {
        Release();
        return false;
    }
    inside_->cursor = place(tree);
    return inside_->cursor.Data() != nullptr;
}

bool AVL_EventTabelle::ScanFirst(const char *name) { return Open_Scan(name, AVL_MakeMin); }

bool AVL_EventTabelle::ScanLast(const char *name) { return Open_Scan(name, AVL_MakeMax); }

bool AVL_EventTabelle::ScanSucc(double t, const char *name)
{
    return Open_Scan(name, [t](S_AVL_WorkFunc *tree) {
        const AVL_Tab key = Key(t);
        AVL_Cursor cursor = AVL_MakeFirstKey(tree, &key);
        if (!cursor.Data()) AVL_WalkSuccInorder(tree, cursor);
        return cursor;
    });
}

// Without an entry before t the scan stands in front of the first.
bool AVL_EventTabelle::ScanPrev(double t, const char *name)
{
    return Open_Scan(name, [t](S_AVL_WorkFunc *tree) {
        const AVL_Tab key = Key(t);
        const AVL_Cursor cursor = AVL_MakeLess(tree, &key);
        return cursor.Data() ? cursor : AVL_MakePred(tree, &key);
    });
}

bool AVL_EventTabelle::WalkNext()
{
    return inside_ && inside_->Scans() && AVL_WalkSuccInorder(inside_->scanned, inside_->cursor) != nullptr;
}

bool AVL_EventTabelle::WalkPrev()
{
    return inside_ && inside_->Scans() && AVL_WalkPredInorder(inside_->scanned, inside_->cursor) != nullptr;
}

void AVL_EventTabelle::ScanDone()
{
    if (inside_ && inside_->Scans()) inside_->End_Scan();
}

// --- The current entry

const AVL_Tab *AVL_EventTabelle::Current_Entry() const
{
    return inside_ && inside_->Scans() ? static_cast<const AVL_Tab *>(inside_->cursor.Data()) : nullptr;
}

double AVL_EventTabelle::GetRtime() const
{
    const AVL_Tab *const entry = Current_Entry();
    return entry ? entry->time : 0;
}

bool AVL_EventTabelle::GetMark() const
{
    const AVL_Tab *const entry = Current_Entry();
    return entry && entry->marked != 0;
}

template <class Change>
void AVL_EventTabelle::Set_Mark(Change change)
{
    auto *const entry = const_cast<AVL_Tab *>(Current_Entry());
    if (!entry) return;
    const Semaphore_Guard inner(inside_->lock);  // the Find family reads the mark
    entry->marked = change(entry->marked != 0) ? 1 : 0;
}

void AVL_EventTabelle::Mark()
{
    Set_Mark([](bool) { return true; });
}

void AVL_EventTabelle::UnMark()
{
    Set_Mark([](bool) { return false; });
}

void AVL_EventTabelle::InvertMark()
{
    Set_Mark([](bool marked) { return !marked; });
}

bool AVL_EventTabelle::RemoveAkt()
{
    auto *const entry = const_cast<AVL_Tab *>(Current_Entry());
    if (!entry) return false;
    const Semaphore_Guard inner(inside_->lock);
    AVL_GetPfad(inside_->scanned, inside_->cursor);
    Take_Out(inside_->scanned == inside_->Master() ? entry->event->tree : inside_->Master(), entry);
    Free_Entry(entry);
    return true;
}

bool AVL_EventTabelle::DelMarked() { return GetMark() && RemoveAkt(); }

bool AVL_EventTabelle::DelUnMarked() { return !GetMark() && RemoveAkt(); }

// --- Entries come and go

AVL_Tab *AVL_EventTabelle::Make_Entry(double time, const char *text)
{
    const std::size_t size = std::strlen(text) + 1;
    void *const block = ::operator new(std::max(sizeof(AVL_Tab), offsetof(AVL_Tab, text) + size), std::nothrow);
    if (!block) return nullptr;
    auto *const entry = new (block) AVL_Tab;
    entry->time = time;
    std::memcpy(static_cast<char *>(block) + offsetof(AVL_Tab, text), text, size);
    return entry;
}

void AVL_EventTabelle::Free_Entry(AVL_Tab *entry) { ::operator delete(static_cast<void *>(entry)); }

void AVL_EventTabelle::Insert_Entry(double time, const char *name, const char *text, int marked, double interval)
{
    if (!inside_ || !(time > 0) || std::isinf(time) || !name || !text) return;
    AVL_Tab *const entry = Make_Entry(time, text);
    if (!entry) return;
    const Semaphore_Guard lock(*this);
    const Semaphore_Guard inner(inside_->lock);
    if (interval > 0) inside_->Remove_Less(time - interval);
    const int number = inside_->Number_Of(name);
    if (number <= 0 || !AVL_InsertStabil(inside_->Tree(number), entry, entry)) {
        Free_Entry(entry);
        return;
    }
    entry->event = inside_->events[static_cast<std::size_t>(number)].get();
    entry->marked = marked != 0 ? 1 : 0;
    if (AVL_InsertStabil(inside_->Master(), entry, entry)) return;
    Take_Out(inside_->Tree(number), entry);
    Free_Entry(entry);
}

void AVL_EventTabelle::RemoveLess(double t)
{
    if (!inside_) return;
    const Semaphore_Guard lock(*this);
    const Semaphore_Guard inner(inside_->lock);
    inside_->Remove_Less(t);
}

void AVL_EventTabelle::RemoveGreater(double t)
{
    if (!inside_) return;
    const Semaphore_Guard lock(*this);
    const Semaphore_Guard inner(inside_->lock);
    const AVL_Tab key = Key(t);
    for (int number = inside_->Count(); number >= 0; --number)
        AVL_DelGreater(inside_->Tree(number), &key, number > 0 ? nullptr : this);
}

template <class Take>
void AVL_EventTabelle::Remove_One(Take take, const char *name, int least)
{
    if (!inside_) return;
    const Semaphore_Guard lock(*this);
    const Semaphore_Guard inner(inside_->lock);
    const int number = inside_->Number_Of(name);
    if (number < least) return;
    auto *const entry = static_cast<AVL_Tab *>(take(inside_->Tree(number)));
    if (!entry) return;
    Take_Out(number == 0 ? entry->event->tree : inside_->Master(), entry);
    if (inside_->Scans()) inside_->End_Scan();
    Free_Entry(entry);
}

void AVL_EventTabelle::RemoveMin(const char *name) { Remove_One(AVL_GetMin, name, 0); }

void AVL_EventTabelle::RemoveMax(const char *name) { Remove_One(AVL_GetMax, name, 1); }

void AVL_EventTabelle::RemoveTree(const char *name)
{
    if (!inside_) return;
    const Semaphore_Guard lock(*this);
    const Semaphore_Guard inner(inside_->lock);
    const int named = inside_->Number_Of(name);
    if (named >= 1) AVL_DelTree(inside_->Tree(named), this);
    if (named != 0) return;
    for (int number = inside_->Count(); number >= 0; --number) AVL_DelTree(inside_->Tree(number), nullptr);
}

void StrTab_Kill(void *entry, AVL_EventTabelle *table)
{
    if (!entry || !table || !table->inside_) return;
    const Semaphore_Guard lock(*table);
    const Semaphore_Guard inner(table->inside_->lock);
    Take_Out(table->inside_->Master(), static_cast<AVL_Tab *>(entry));
    table->Delete(static_cast<AVL_Tab *>(entry));
    AVL_EventTabelle::Free_Entry(static_cast<AVL_Tab *>(entry));
}

void *StrTab_Free(void *entry, const void *, const void *user)
{
    StrTab_Kill(entry, static_cast<AVL_EventTabelle *>(const_cast<void *>(user)));
    return nullptr;
}

// --- Questions

template <class Choose>
double AVL_EventTabelle::Time_Of(Choose choose, const char *name) const
{
    if (!inside_) return 0;
    const Semaphore_Guard lock(*this);
    S_AVL_WorkFunc *const tree = name ? inside_->Tree_Of(name) : inside_->Master();
    const void *const entry = tree ? choose(tree) : nullptr;
    return entry ? Entry(entry).time : 0;
}

template <class Choose>
const char *AVL_EventTabelle::Event_Of(Choose choose) const
{
    if (!inside_) return nullptr;
    const Semaphore_Guard lock(*this);
    const void *const entry = choose(inside_->Master());
    return entry ? Entry(entry).event->name.get() : nullptr;
}

double AVL_EventTabelle::GetMin() const { return Time_Of(AVL_SearchMin, nullptr); }

double AVL_EventTabelle::GetMax() const { return Time_Of(AVL_SearchMax, nullptr); }

double AVL_EventTabelle::GetMin(const char *name) const { return name ? Time_Of(AVL_SearchMin, name) : 0; }

double AVL_EventTabelle::GetMax(const char *name) const { return name ? Time_Of(AVL_SearchMax, name) : 0; }

const char *AVL_EventTabelle::FindMin() const { return Event_Of(AVL_SearchMin); }

const char *AVL_EventTabelle::FindMax() const { return Event_Of(AVL_SearchMax); }

bool AVL_EventTabelle::Is_Empty() const
{
    if (!inside_) return true;
    const Semaphore_Guard inner(inside_->lock);
    return AVL_SearchMin(inside_->Master()) == nullptr;
}

// The entry is copied with the inner lock held: then it cannot go meanwhile.
template <class Search>
bool AVL_EventTabelle::Look_Up(Search search, double t, int event, double &time, char *name, char *text,
                               int &marked) const
{
    if (!inside_ || !(t >= 0) || event < 0) return false;
    const Semaphore_Guard inner(inside_->lock);
    if (event > inside_->Count()) return false;
    const AVL_Tab key = Key(t);
    return GetValues(search(inside_->Tree(event), &key), time, name, text, marked);
}

bool AVL_EventTabelle::Find(double t, int event, double &time, char *name, char *text, int &marked) const
{
    return Look_Up(AVL_SearchKey, t, event, time, name, text, marked);
}

bool AVL_EventTabelle::FindSucc(double t, int event, double &time, char *name, char *text, int &marked) const
{
    return Look_Up(AVL_SearchSucc, t, event, time, name, text, marked);
}

bool AVL_EventTabelle::FindPrev(double t, int event, double &time, char *name, char *text, int &marked) const
{
    return Look_Up(AVL_SearchPred, t, event, time, name, text, marked);
}

bool AVL_EventTabelle::FindSuccKey(double t, int event, double &time, char *name, char *text, int &marked) const
{
    return Look_Up(AVL_SearchGreaterEqual, t, event, time, name, text, marked);
}

bool AVL_EventTabelle::FindPrevKey(double t, int event, double &time, char *name, char *text, int &marked) const
{
    return Look_Up(AVL_SearchLessEqual, t, event, time, name, text, marked);
}

// --- Files

bool AVL_EventTabelle::WriteASCIIEntry(std::FILE *file, const AVL_Tab *entry)
{
    return Write_Time(file, entry->time) && Write_Text(file, entry->marked != 0 ? ",1" : ",0");
}

bool AVL_EventTabelle::ReadASCIIEntry(std::FILE *file, AVL_Tab *entry)
{
    const bool hexadecimal = inside_ && inside_->has_hexadecimal_times.load(std::memory_order_relaxed);
    int flag = 0;
    if (!(hexadecimal ? Read_Hexadecimal_Time : Read_Time)(file, entry->time) || !Read_Flag(file, flag)) return false;
    entry->marked = flag != '0' ? 1 : 0;
    return true;
}

bool AVL_EventTabelle::Write_Event(std::FILE *file, const Event_Entry &event, Marking marking)
{
    AVL_Cursor at = AVL_MakeMin(event.tree);
    if (!at.Data()) return true;
    if (!Write_Text(file, "~\"") || !Write_Text(file, event.name.get()) || !Write_Text(file, "\"\n")) return false;
    for (const void *data = at.Data(); data; data = AVL_WalkSuccInorder(event.tree, at)) {
        const bool marked = Entry(data).marked != 0;
        if ((marking == only_marked && !marked) || (marking == only_unmarked && marked)) continue;
        if (!WriteASCIIEntry(file, &Entry(data)) || !Write_Text(file, "\n")) return false;
    }
    return true;
}

bool AVL_EventTabelle::WriteASCII(std::FILE *file, Marking marking)
{
    if (!inside_ || !file) return false;
    static const char banner[] = "######################################################\n"
                                 "# Ordered trees of events and their entries          #\n"
                                 "# Event table                                        #\n"
                                 "# Version 1.20                                       #\n"
                                 "######################################################\n"
                                 "\n";
    const Semaphore_Guard lock(*this);
    if (!Write_Text(file, banner)) return false;
    for (int number = 1; number <= inside_->Count(); ++number)
        if (!Write_Event(file, inside_->Event(number), marking)) return false;
    return true;
}

bool AVL_EventTabelle::WriteASCII(const char *path, Marking marking)
{
    if (!inside_ || !path) return false;
    try {
        const auto file = platform::Replaced_File::open(path);
        return file && WriteASCII(file->stream(), marking) && file->commit();
    } catch (const std::bad_alloc &) {  // the name takes memory
        return false;
    }
}

// A version: major 1 with minor 1 (hexadecimal times), 2, 20 and 21.
bool AVL_EventTabelle::Accept_Version(int major, int minor)
{
    inside_->has_hexadecimal_times.store(minor == 1, std::memory_order_relaxed);
    return major == 1 && (minor == 1 || minor == 2 || minor == 20 || minor == 21);
}

bool AVL_EventTabelle::ReadASCII(std::FILE *file)
{
    if (!inside_ || !file) return false;
    inside_->has_hexadecimal_times.store(false, std::memory_order_relaxed);
    for (int c = 0; (c = std::getc(file)) != EOF;) {
        int major = 0, minor = 0;
        char name[most_name + 1];
        if (c == '#') {
            if (Read_Version(file, major, minor) && !Accept_Version(major, minor)) return false;
            Skip_Line(file);
        } else if (c == '~' && Read_Name(file, name, most_name)) {
            AddEvent(name);
            Read_Entries(file, name);
        }
    }
    return true;
}

void AVL_EventTabelle::Read_Entries(std::FILE *file, const char *name)
{
    alignas(AVL_Tab) std::byte block[offsetof(AVL_Tab, text) + most_text + 1];
    for (int c = 0; (c = std::getc(file)) != EOF;) {
        if (c == '#') {
            Skip_Line(file);
        } else if (c == '~' || std::isxdigit(c)) {
            std::ungetc(c, file);
            if (c == '~') return;
            auto *const entry = new (block) AVL_Tab;
            if (ReadASCIIEntry(file, entry)) Add(entry, name);
        }
    }
}

bool AVL_EventTabelle::ReadASCII(const char *path)
{
    if (!inside_ || !path) return false;
    try {
        const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(platform::open_stream(path), std::fclose);
        return file && ReadASCII(file.get());
    } catch (const std::bad_alloc &) {  // the name takes memory
        return false;
    }
}

}  // namespace kernel
