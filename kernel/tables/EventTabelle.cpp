#include "kernel/tables/EventTabelle.h"

#include "kernel/base/Immortal_internal.h"
#include "kernel/base/text_internal.h"
#include "kernel/settings/Registry.h"
#include "kernel/tables/event_text_internal.h"
#include "kernel/tables/ordered_tree_internal.h"

#include "platform/debug.h"
#include "platform/error.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

namespace kernel {

namespace {

constexpr double usual_interval = 3600;  // [s]
constexpr char registry_key[] = "EventTable";

// The interval of the logger with this name, in seconds. On most machines nobody has set one: that there is no such key
// is not reported, other failures are.
double Stored_Interval(const char *tree_name)
{
    Registry key(nullptr);
    key.Set_Error_Handler(nullptr);
    const bool is_open = key.InitProgName(registry_key, Registry::Read_only);
    const bool is_missing = !is_open && platform::last_error() == platform::error_not_found;
    key.Set_Error_Handler(Object::Get_Default_Handler());
    if (is_missing || (!is_open && !key.InitProgName(registry_key, Registry::Read_only))) return usual_interval;
    return key.ReadDouble(tree_name, usual_interval);
}

// The directory: loggers by tree name.
struct Directory {
    Semaphore lock;
    S_AVL_WorkFunc *const tree;

    Directory();
};

const char *Tree_Name(const void *logger) { return static_cast<const EventTabelle *>(logger)->GetTreeName(); }

int Compare_Names(const void *logger, const void *key)
{
    const int order = Compare_Ignoring_Case(Tree_Name(logger), static_cast<const char *>(key));
    return order < 0 ? 1 : order > 0 ? -1 : 0;
}

Directory::Directory() : tree(AVL_Konstruktor({AVL_Malloc_RetHandleDirekt, StrTree_Free, StrTree_Kill}, Compare_Names))
{
}

Directory &The_Directory()
{
    static Immortal<Directory> directory;
    return *directory;
}

void Trace_Deletion(const char *tree_name)
{
    const char format[] = "Deleting History Tree \"%s\".\n";
    const std::size_t size = sizeof format + std::strlen(tree_name);
    const std::unique_ptr<char[]> line(new (std::nothrow) char[size]);
    if (!line) return;
    std::snprintf(line.get(), size, format, tree_name);
    platform::debug_output(line.get());
}

bool Copy_Values(const AVL_Tab *entry, double &time, char *name, char *text, int &marked)
{
    time = entry ? entry->time : 0;
    marked = entry ? entry->marked : 0;
    if (name) std::strcpy(name, !entry ? "None" : entry->event ? entry->event->name.get() : "");
    if (text) std::strcpy(text, entry ? entry->text : "Nothing in List");
    return entry != nullptr;
}

}  // namespace

EventTabelle::EventTabelle(const char *table_name, const char *tree_name)
    : AVL_EventTabelle(nullptr, table_name), interval_(usual_interval)
{
    if (tree_name && *tree_name != '\0' && IsValid()) Enter_Directory(tree_name);
    if (!tree_name_) return;
    double expected = usual_interval;  // another thread may have found the logger, and set another one
    interval_.compare_exchange_strong(expected, Stored_Interval(tree_name_.get()));
}

void EventTabelle::Enter_Directory(const char *tree_name)
{
    Directory &directory = The_Directory();
    const Semaphore_Guard lock(directory.lock);
    tree_name_ = Copy_Text(tree_name);  // before the insertion, which compares names
    if (!tree_name_ || !directory.tree || !AVL_InsertUnique(directory.tree, tree_name, this)) tree_name_.reset();
}

EventTabelle::~EventTabelle()
{
    Directory &directory = The_Directory();
    const Semaphore_Guard lock(directory.lock);
    if (tree_name_) AVL_GetPfad(directory.tree, AVL_MakeKey(directory.tree, tree_name_.get()));
}

EventTabelle *EventTabelle::Create(const char *table_name, const char *tree_name)
{
    try {
        std::unique_ptr<EventTabelle> logger(new EventTabelle(table_name, tree_name));
        return logger->IsValid() ? logger.release() : nullptr;
    } catch (const std::exception &) {
        return nullptr;
    }
}

void EventTabelle::Delete(EventTabelle *logger) { delete logger; }

void EventTabelle::DeleteAll()
{
    Directory &directory = The_Directory();
    platform::debug_output("DeleteAllHistoryLoggers start...\n");
    if (directory.tree) {
        {
            const Semaphore_Guard lock(directory.lock);
            AVL_Cursor at = AVL_MakeMin(directory.tree);
            for (const void *logger = at.Data(); logger; logger = AVL_WalkSuccInorder(directory.tree, at))
                Trace_Deletion(Tree_Name(logger));
        }
        const Semaphore_Guard lock(directory.lock);
        AVL_DelTree(directory.tree, nullptr);
    }
    platform::debug_output("DeleteAllHistoryLoggers done...\n");
}

EventTabelle *EventTabelle::FindTabelle(const char *tree_name)
{
    Directory &directory = The_Directory();
    if (!tree_name || *tree_name == '\0' || !directory.tree) return nullptr;
    const Semaphore_Guard lock(directory.lock);
    return static_cast<EventTabelle *>(AVL_SearchKey(directory.tree, tree_name));
}

Semaphore *EventTabelle::GetTreeSema() { return &The_Directory().lock; }

S_AVL_WorkFunc *EventTabelle::GetTreeOfTrees() { return The_Directory().tree; }

// Called with the directory's lock held, after the logger has left it. Without its name, the destructor leaves the
// directory alone.
void StrTree_Kill(void *logger, const void *)
{
    auto *const table = static_cast<EventTabelle *>(logger);
    if (!table) return;
    {
        const Semaphore_Guard lock(*table);
        table->tree_name_.reset();
    }
    EventTabelle::Delete(table);
}

void *StrTree_Free(void *logger, const void *, const void *user)
{
    StrTree_Kill(logger, user);
    return nullptr;
}

bool EventTabelle::GetValues(void *entry, double &time, char *name, char *text, int &marked) const
{
    return Copy_Values(Is_Empty() ? nullptr : static_cast<const AVL_Tab *>(entry), time, name, text, marked);
}

bool EventTabelle::GetValues(double &time, char *name, char *text, int &marked) const
{
    return Copy_Values(Current_Entry(), time, name, text, marked);
}

void EventTabelle::Add(AVL_Tab *entry, const char *name)
{
    if (entry) Add(entry->time, name, entry->text, entry->marked);
}

void EventTabelle::Add(double time, const char *name, const char *text, int marked)
{
    Insert_Entry(time, name, text, marked, interval_);
}

void EventTabelle::Insert(double time, const char *name, const char *text, int marked)
{
    AddEvent(name);
    Add(time, name, text, marked);
}

bool EventTabelle::WriteASCIIEntry(std::FILE *file, const AVL_Tab *entry)
{
    return AVL_EventTabelle::WriteASCIIEntry(file, entry) && Write_Text(file, ",") && Write_Quoted(file, entry->text);
}

bool EventTabelle::ReadASCIIEntry(std::FILE *file, AVL_Tab *entry)
{
    return AVL_EventTabelle::ReadASCIIEntry(file, entry) && Read_Text_Field(file, entry->text, most_text);
}

double EventTabelle::GetInterval() { return interval_; }

void EventTabelle::SetInterval(double interval)
{
    if (interval_.exchange(interval) == interval || !tree_name_) return;
    const std::unique_ptr<Registry> key(Registry::Create(registry_key, Registry::Write_only, nullptr));
    if (key) key->WriteDouble(tree_name_.get(), interval);
}

}  // namespace kernel
