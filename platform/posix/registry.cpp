#include "platform/registry.h"

#include "platform/posix/errno_table.h"
#include "platform/posix/settings_folder.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sqlite3.h>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds longest_wait{2};  // for a lock
constexpr int schema_version = 1;
constexpr sqlite3_int64 root_id = 1;

// Ids are never used again (AUTOINCREMENT): an open key finds out that its key is gone.
constexpr char schema[] = "CREATE TABLE keys(id INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER NOT NULL,"
                          " name TEXT NOT NULL COLLATE NOCASE, UNIQUE(parent, name));"
                          "CREATE TABLE vals(key INTEGER NOT NULL, name TEXT NOT NULL COLLATE NOCASE,"
                          " type INTEGER NOT NULL, data BLOB NOT NULL, PRIMARY KEY(key, name)) WITHOUT ROWID;"
                          "INSERT INTO keys(id, parent, name) VALUES(1, 0, '');"
                          "PRAGMA user_version = 1";

// Short naps: beside processes that write all the time the lock is seldom free, and nobody stands in line for it.
bool nap(Clock::time_point start, int count)
{
    if (Clock::now() - start >= longest_wait) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(count < 20 ? 100 * (count + 1) : 2000));
    return true;
}

std::uint32_t error_of(sqlite3 *base, int result)
{
    switch (result & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE: return error_none;
    case SQLITE_NOMEM: return error_no_memory;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL: return error_busy;
    case SQLITE_READONLY:
    case SQLITE_PERM: return error_access_denied;
    case SQLITE_FULL: return error_disk_full;
    case SQLITE_CANTOPEN: {  // "not found" would be taken for a key or value that is not there
        const std::uint32_t error = posix::from_errno(base ? sqlite3_system_errno(base) : 0);
        return error != error_none && error != error_not_found ? error : posix::from_errno(EIO);
    }
    case SQLITE_IOERR: return posix::from_errno(EIO);  // errno is no longer that of the failure
    case SQLITE_TOOBIG: return error_invalid_parameter;
    default: return registry_corrupt;
    }
}

// Threads:   one.
// Ownership: owns the prepared statement; the database outlives it.
// Errors:    by step().
class Statement {
public:
    Statement() = default;
    Statement(sqlite3 *base, const char *text) { prepare(base, text); }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    void prepare(sqlite3 *base, const char *text)
    {
        if (!statement_) prepared_ = sqlite3_prepare_v2(base, text, -1, &statement_, nullptr);
    }
    Statement &bind(int at, sqlite3_int64 number)
    {
        sqlite3_bind_int64(statement_, at, number);
        return *this;
    }
    Statement &bind(int at, std::string_view text)
    {
        sqlite3_bind_text(statement_, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
        return *this;
    }
    Statement &bind(int at, const void *data, std::size_t size)  // null would be NULL
    {
        if (sqlite3_bind_blob64(statement_, at, size > 0 ? data : "", size, SQLITE_STATIC) != SQLITE_OK)
            prepared_ = SQLITE_TOOBIG;
        return *this;
    }
    int step() { return prepared_ == SQLITE_OK ? sqlite3_step(statement_) : prepared_; }
    void reset() { sqlite3_reset(statement_); }
    bool is_null(int column) { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    sqlite3_int64 number(int column) { return sqlite3_column_int64(statement_, column); }
    std::string_view bytes(int column)
    {
        const auto *const data = static_cast<const char *>(sqlite3_column_blob(statement_, column));
        return {data ? data : "", static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
    }

private:
    sqlite3_stmt *statement_ = nullptr;
    int prepared_ = SQLITE_OK;
};

struct Reset {  // ends a statement that is kept, and with it its lock
    Statement &statement;
    ~Reset() { statement.reset(); }
};

struct Hive_File {
    std::string folder, name;
    mode_t folder_mode, mode;
};

// Empty names with last_error() when there is no folder for the hive.
Hive_File file_of(bool is_user)
{
    const mode_t mode = is_user ? 0600 : 0644;
    if (const std::string folder = posix::given_settings_folder(); !folder.empty())
        return {folder, folder + (is_user ? "/user.db" : "/machine.db"), 0700, mode};
    const std::string folder = is_user ? posix::user_settings_folder() : "/var/lib/gnss-kernel";
    const mode_t folder_mode = is_user ? 0700 : 0755;
    return {folder, folder.empty() ? "" : folder + "/registry.db", folder_mode, mode};
}

// Never opens the file: closing a descriptor of it would drop the locks of this process's other connections.
bool make_file(const Hive_File &file)
{
    if (!posix::make_folders(file.folder, file.folder_mode)) return false;
    if (mknod(file.name.c_str(), S_IFREG | file.mode, 0) == 0)
        chmod(file.name.c_str(), file.mode);  // whatever umask says
    else if (errno != EEXIST)
        return posix::fail();
    return true;
}

// A connection to one hive.
//
// Threads:   one at a time.
// Ownership: owns the connection.
// Errors:    error numbers.
class Hive {
public:
    ~Hive() { sqlite3_close(base_); }

    std::uint32_t open(std::uint32_t root, bool may_create);
    bool is_read_only() const { return sqlite3_db_readonly(base_, "main") == 1; }
    sqlite3 *base() const { return base_; }
    std::uint32_t error(int result) const { return error_of(base_, result); }
    std::uint32_t run(const char *text) const { return error(sqlite3_exec(base_, text, nullptr, nullptr, nullptr)); }
    // The key's id, 0 if it is not there.
    std::uint32_t find(const char *path, sqlite3_int64 &id) { return walk(path, id, false); }
    std::uint32_t make(const char *path, sqlite3_int64 &id, bool &created);
    // Runs a change in a transaction, which holds if the change returns 0.
    template <class Change>
    std::uint32_t change(Change change);

private:
    static int wait_for_lock(void *hive, int count)
    {
        auto &self = *static_cast<Hive *>(hive);
        if (count == 0) self.wait_start_ = Clock::now();
        return nap(self.wait_start_, count);
    }
    std::uint32_t version(int &number) const;
    std::uint32_t lay_out(bool is_private);
    std::uint32_t walk(const char *path, sqlite3_int64 &id, bool makes);

    sqlite3 *base_ = nullptr;
    Clock::time_point wait_start_;
};

std::uint32_t Hive::version(int &number) const
{
    Statement statement(base_, "PRAGMA user_version");
    const int result = statement.step();
    number = result == SQLITE_ROW ? static_cast<int>(statement.number(0)) : 0;
    return error(result);
}

// The change of the journal does not wait for a lock by itself.
std::uint32_t Hive::lay_out(bool is_private)
{
    const auto start = Clock::now();
    std::uint32_t error = error_none;
    for (int count = 0; is_private; ++count) {
        error = run("PRAGMA journal_mode = WAL");
        if (error != error_busy || !nap(start, count)) break;
    }
    if (error != error_none) return error;
    return change([&] {
        int number = 0;
        const std::uint32_t failed = version(number);
        return failed != error_none || number != 0 ? failed : run(schema);  // another process may have been faster
    });
}

std::uint32_t Hive::open(std::uint32_t root, bool may_create)
{
    const bool is_user = root == registry_current_user;
    if (!is_user && root != registry_local_machine) return may_create ? error_access_denied : error_not_found;
    const Hive_File file = file_of(is_user);
    if (file.name.empty()) return last_error();
    struct stat status {};
    const bool is_there = stat(file.name.c_str(), &status) == 0;
    if (!is_there && (errno != ENOENT || !may_create)) return posix::from_errno(errno);
    if (!is_there && !make_file(file)) return last_error();
    if (is_there && (status.st_mode & 0777 & ~file.mode) != 0 && status.st_uid == geteuid())
        chmod(file.name.c_str(), file.mode);
    const int opened = sqlite3_open_v2(file.name.c_str(), &base_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (opened != SQLITE_OK) return error(opened);
    sqlite3_busy_handler(base_, wait_for_lock, this);
    int keeps_log = 1;  // the files beside the hive stay, so that it can be read when the disk is full
    sqlite3_file_control(base_, "main", SQLITE_FCNTL_PERSIST_WAL, &keeps_log);
    int number = 0;
    std::uint32_t failed = version(number);
    if (failed == error_none && number == 0) {
        if (!may_create) return error_not_found;  // its creator was killed, or has just begun
        failed = lay_out(is_user);
    }
    if (failed != error_none) return failed;
    if (number < 0 || number > schema_version) return registry_newer;
    return run("PRAGMA synchronous = FULL");
}

template <class Change>
std::uint32_t Hive::change(Change change)
{
    std::uint32_t error = run("BEGIN IMMEDIATE");
    if (error != error_none) return error;
    error = change();
    if (error == error_none) error = run("COMMIT");
    if (error != error_none) run("ROLLBACK");
    return error;
}

std::uint32_t Hive::walk(const char *path, sqlite3_int64 &id, bool makes)
{
    Statement look(base_, "SELECT id FROM keys WHERE parent = ?1 AND name = ?2");
    Statement make(base_, "INSERT INTO keys(parent, name) VALUES(?1, ?2)");
    id = root_id;
    for (const char *part = path; *part != '\0';) {
        const std::string_view name(part, std::strcspn(part, "\\"));
        look.bind(1, id).bind(2, name);
        const Reset after_look{look}, after_make{make};
        int result = look.step();
        if (result == SQLITE_ROW) {
            id = look.number(0);
        } else if (result == SQLITE_DONE && makes) {
            make.bind(1, id).bind(2, name);
            result = make.step();
            id = sqlite3_last_insert_rowid(base_);
        } else {
            id = 0;
        }
        if (id == 0 || error(result) != error_none) return error(result);
        part += name.size();
        part += std::strspn(part, "\\");
    }
    return error_none;
}

std::uint32_t Hive::make(const char *path, sqlite3_int64 &id, bool &created)
{
    created = false;
    std::uint32_t error = find(path, id);
    if (error != error_none || id != 0) return error;
    if (is_read_only()) return error_access_denied;
    return change([&] {
        error = find(path, id);
        if (error != error_none || id != 0) return error;
        created = true;
        return walk(path, id, true);
    });
}

// Threads, Ownership, Errors: as Registry_Key.
class Sqlite_Key : public Registry_Key {
public:
    std::uint32_t start(std::uint32_t root, const char *path, std::uint32_t access, bool may_create, bool &created);

    std::uint32_t query(const char *name, std::uint32_t &type, void *data, std::size_t &size) override;
    std::uint32_t set(const char *name, std::uint32_t type, const void *data, std::size_t size) override;
    std::uint32_t remove_value(const char *name) override;
    std::uint32_t sub_keys(std::size_t &count, std::size_t &longest_name) override
    {
        return count_names("SELECT count(*), max(length(CAST(name AS BLOB))) FROM keys WHERE parent = ?1", count,
                           longest_name);
    }
    std::uint32_t values(std::size_t &count, std::size_t &longest_name) override
    {
        return count_names("SELECT count(*), max(length(CAST(name AS BLOB))) FROM vals WHERE key = ?1", count,
                           longest_name);
    }
    std::uint32_t longest_value(std::size_t &size) override
    {
        std::size_t count = 0;
        return count_names("SELECT count(*), max(length(data)) FROM vals WHERE key = ?1", count, size);
    }
    std::uint32_t sub_key_name(std::size_t index, std::string &name) override
    {
        if ((access_ & registry_enumerate_sub_keys) == 0) return error_access_denied;
        return name_at("SELECT name FROM keys WHERE parent = ?1 ORDER BY name LIMIT 1 OFFSET ?2", index, name);
    }
    std::uint32_t value_name(std::size_t index, std::string &name) override
    {
        if ((access_ & registry_query_value) == 0) return error_access_denied;
        return name_at("SELECT name FROM vals WHERE key = ?1 ORDER BY name LIMIT 1 OFFSET ?2", index, name);
    }

private:
    std::uint32_t still_there();
    std::uint32_t count_names(const char *text, std::size_t &count, std::size_t &longest);
    std::uint32_t name_at(const char *text, std::size_t index, std::string &name);

    Hive hive_;  // destroyed behind the statements
    Statement query_, set_;
    sqlite3_int64 id_ = 0;
    std::uint32_t access_ = 0;
};

std::uint32_t Sqlite_Key::start(std::uint32_t root, const char *path, std::uint32_t access, bool may_create,
                                bool &created)
{
    access_ = access;
    std::uint32_t error = registry_path_error(path);
    if (error == error_none) error = hive_.open(root, may_create);
    if (error == error_none) error = may_create ? hive_.make(path, id_, created) : hive_.find(path, id_);
    if (error != error_none) return error;
    if (id_ == 0) return error_not_found;
    const bool writes = (access & (registry_set_value | registry_create_sub_key)) != 0;
    return writes && hive_.is_read_only() ? error_access_denied : error_none;
}

std::uint32_t Sqlite_Key::still_there()
{
    Statement look(hive_.base(), "SELECT 1 FROM keys WHERE id = ?1");
    const int result = look.bind(1, id_).step();
    return result == SQLITE_DONE ? std::uint32_t{registry_key_deleted} : hive_.error(result);
}

// One row if the key exists; without a type if the value does not.
std::uint32_t Sqlite_Key::query(const char *name, std::uint32_t &type, void *data, std::size_t &size)
{
    if ((access_ & registry_query_value) == 0) return error_access_denied;
    query_.prepare(hive_.base(), "SELECT v.type, v.data FROM keys AS k LEFT JOIN vals AS v ON v.key = k.id"
                                 " AND v.name = ?2 WHERE k.id = ?1");
    const Reset at_end{query_};
    const int result = query_.bind(1, id_).bind(2, std::string_view(name)).step();
    if (result == SQLITE_DONE) return registry_key_deleted;
    if (result != SQLITE_ROW) return hive_.error(result);
    if (query_.is_null(0)) return error_not_found;
    const std::string_view stored = query_.bytes(1);
    const std::size_t room = size;
    type = static_cast<std::uint32_t>(query_.number(0));
    size = stored.size();
    if (size > room) return registry_more_data;
    std::memcpy(data, stored.data(), size);
    return error_none;
}

std::uint32_t Sqlite_Key::set(const char *name, std::uint32_t type, const void *data, std::size_t size)
{
    if ((access_ & registry_set_value) == 0) return error_access_denied;
    if (const std::uint32_t error = registry_value_name_error(name)) return error;
    set_.prepare(hive_.base(), "INSERT INTO vals(key, name, type, data) SELECT id, ?2, ?3, ?4 FROM keys WHERE id = ?1"
                               " ON CONFLICT(key, name) DO UPDATE SET type = excluded.type, data = excluded.data");
    const Reset at_end{set_};
    const int result = set_.bind(1, id_).bind(2, std::string_view(name)).bind(3, type).bind(4, data, size).step();
    if (result != SQLITE_DONE) return hive_.error(result);
    return sqlite3_changes(hive_.base()) == 0 ? std::uint32_t{registry_key_deleted} : error_none;
}

std::uint32_t Sqlite_Key::remove_value(const char *name)
{
    if ((access_ & registry_set_value) == 0) return error_access_denied;
    Statement statement(hive_.base(), "DELETE FROM vals WHERE key = ?1 AND name = ?2");
    const int result = statement.bind(1, id_).bind(2, std::string_view(name)).step();
    if (result != SQLITE_DONE) return hive_.error(result);
    if (sqlite3_changes(hive_.base()) > 0) return error_none;
    const std::uint32_t error = still_there();
    return error != error_none ? error : std::uint32_t{error_not_found};
}

std::uint32_t Sqlite_Key::count_names(const char *text, std::size_t &count, std::size_t &longest)
{
    if ((access_ & registry_query_value) == 0) return error_access_denied;
    if (const std::uint32_t error = still_there()) return error;
    Statement statement(hive_.base(), text);
    const int result = statement.bind(1, id_).step();
    if (result != SQLITE_ROW) return hive_.error(result);
    count = static_cast<std::size_t>(statement.number(0));
    longest = static_cast<std::size_t>(statement.number(1));
    return error_none;
}

std::uint32_t Sqlite_Key::name_at(const char *text, std::size_t index, std::string &name)
{
    if (const std::uint32_t error = still_there()) return error;
    return registry_answer([&]() -> std::uint32_t {
        Statement statement(hive_.base(), text);
        const int result = statement.bind(1, id_).bind(2, static_cast<sqlite3_int64>(index)).step();
        if (result == SQLITE_DONE) return registry_no_more_items;
        if (result == SQLITE_ROW) name = statement.bytes(0);
        return hive_.error(result);
    });
}

std::uint32_t started(std::uint32_t root, const char *path, std::uint32_t access, bool may_create,
                      std::unique_ptr<Registry_Key> &key, bool &created)
{
    return registry_answer([&] {
        auto fresh = std::make_unique<Sqlite_Key>();
        const std::uint32_t error = fresh->start(root, path, access, may_create, created);
        if (error == error_none) key = std::move(fresh);
        return error;
    });
}

}  // namespace

std::uint32_t Registry_Key::open(std::uint32_t root, const char *path, std::uint32_t access,
                                 std::unique_ptr<Registry_Key> &key)
{
    bool created = false;
    return started(root, path, access, false, key, created);
}

std::uint32_t Registry_Key::create(std::uint32_t root, const char *path, std::uint32_t access,
                                   std::unique_ptr<Registry_Key> &key, bool &created)
{
    return started(root, path, access, true, key, created);
}

std::uint32_t Registry_Key::remove(std::uint32_t root, const char *path)
{
    return registry_answer([&] {
        Hive hive;
        std::uint32_t error = registry_path_error(path);
        if (error == error_none) error = hive.open(root, false);
        if (error != error_none) return error;
        return hive.change([&]() -> std::uint32_t {
            sqlite3_int64 id = 0;
            error = hive.find(path, id);
            if (error != error_none) return error;
            if (id == 0) return error_not_found;
            Statement below(hive.base(), "SELECT 1 FROM keys WHERE parent = ?1");
            if (id == root_id || below.bind(1, id).step() == SQLITE_ROW) return error_access_denied;
            for (const char *text : {"DELETE FROM vals WHERE key = ?1", "DELETE FROM keys WHERE id = ?1"}) {
                Statement statement(hive.base(), text);
                const int result = statement.bind(1, id).step();
                if (result != SQLITE_DONE) return hive.error(result);
            }
            return error_none;
        });
    });
}

}  // namespace platform
