#include "platform/RegistryStore.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <system_error>
#include <thread>

#include "CLogging.h"
#include "platform/Registry.h"
#include "platform/SpecialFolders.h"
#include "platform/WideText.h"
#include "platform/WinPath.h"

namespace platform {

namespace {

// "VNKR": marks a database as a hive of this store, so that no other
// SQLite file is ever taken for one and changed.
constexpr std::int64_t kApplicationId = 0x564E4B52;
constexpr int kSchemaVersion = 1;
constexpr int kBusyMilliseconds = 15000;

constexpr char kSchema[] =
    "CREATE TABLE keys("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT,"
    "  parent INTEGER REFERENCES keys(id) ON DELETE CASCADE,"
    "  name TEXT NOT NULL,"
    "  path TEXT NOT NULL UNIQUE);"
    "CREATE INDEX keys_by_parent ON keys(parent, path);"
    "CREATE TABLE vals("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT,"
    "  key INTEGER NOT NULL REFERENCES keys(id) ON DELETE CASCADE,"
    "  name TEXT NOT NULL,"
    "  folded TEXT NOT NULL,"
    "  type INTEGER NOT NULL,"
    "  data BLOB NOT NULL,"
    "  UNIQUE(key, folded));"
    "INSERT INTO keys(id, parent, name, path) VALUES(1, NULL, '', '');";

// A prepared statement; binding and reading by position, text as UTF-8.
class Statement {
public:
    Statement(sqlite3 *db, const char *sql) {
        result_ = sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr);
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    Statement &Bind(int index, std::int64_t value) {
        if (result_ == SQLITE_OK) result_ = sqlite3_bind_int64(statement_, index, value);
        return *this;
    }
    Statement &Bind(int index, const std::wstring &text) {
        if (result_ == SQLITE_OK) {
            const std::string utf8 = ToUtf8(text);
            result_ = sqlite3_bind_text(statement_, index, utf8.data(),
                                        static_cast<int>(utf8.size()), SQLITE_TRANSIENT);
        }
        return *this;
    }
    // An empty blob is bound as a blob of no bytes, never as NULL.
    Statement &Bind(int index, const std::vector<BYTE> &bytes) {
        static const BYTE kNothing = 0;
        if (result_ == SQLITE_OK) {
            result_ = sqlite3_bind_blob(statement_, index, bytes.empty() ? &kNothing : bytes.data(),
                                        static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
        }
        return *this;
    }

    // SQLITE_ROW, SQLITE_DONE, or the failure of preparing, binding or
    // stepping.
    int Step() {
        if (result_ != SQLITE_OK && result_ != SQLITE_ROW) return result_;
        result_ = sqlite3_step(statement_);
        return result_;
    }

    std::int64_t Int(int column) const { return sqlite3_column_int64(statement_, column); }
    std::wstring Text(int column) const {
        const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement_, column));
        return text ? FromUtf8(text) : std::wstring();
    }
    std::vector<BYTE> Blob(int column) const {
        const auto *bytes = static_cast<const BYTE *>(sqlite3_column_blob(statement_, column));
        const int size = sqlite3_column_bytes(statement_, column);
        return bytes ? std::vector<BYTE>(bytes, bytes + size) : std::vector<BYTE>();
    }

private:
    sqlite3_stmt *statement_ = nullptr;
    int result_ = SQLITE_OK;
};

// A row of "SELECT name, type, data FROM vals".
void ReadValueRow(const Statement &statement, RegistryValue &value) {
    value.name = statement.Text(0);
    value.type = static_cast<DWORD>(statement.Int(1));
    value.data = statement.Blob(2);
}

int Exec(sqlite3 *db, const char *sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

// The first column of the first row as a number.
int QueryInt(sqlite3 *db, const char *sql, std::int64_t &value) {
    Statement statement(db, sql);
    int result = statement.Step();
    if (result == SQLITE_ROW) {
        value = statement.Int(0);
        return SQLITE_OK;
    }
    return result == SQLITE_DONE ? SQLITE_ERROR : result;
}

DWORD StatusOf(int sqliteResult) {
    switch (sqliteResult & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return ERROR_SUCCESS;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return ERROR_LOCK_VIOLATION;
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_CANTOPEN:
            return ERROR_ACCESS_DENIED;
        case SQLITE_FULL:
            return ERROR_DISK_FULL;
        case SQLITE_NOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case SQLITE_NOTADB:
        case SQLITE_CORRUPT:
            return ERROR_BADDB;
        default:
            return ERROR_REGISTRY_IO_FAILED;
    }
}

// A damaged or foreign database file is recorded once per file and
// process, not on every call that meets it.
void ReportBadDatabase(const std::wstring &path, const std::wstring &detail) {
    static std::mutex mutex;
    static std::set<std::wstring> reported;
    {
        std::lock_guard<std::mutex> guard(mutex);
        if (!reported.insert(path).second) return;
    }
    const std::wstring text = path + L": not a registry database (" + detail + L")";
    CLogging::Err(L"RegistryStore::Open", __LINE__, L".\\RegistryStore", ERROR_BADDB, false,
                  text.c_str());
}

bool IsPerUser(RegistryHive hive) { return hive == RegistryHive::CurrentUser; }

// The top-level keys a new hive starts with, as a new Windows profile has
// them: "Software" is where every product keeps its settings.
const char *SeedKeys(RegistryHive hive) {
    switch (hive) {
        case RegistryHive::CurrentUser:
            return "INSERT INTO keys(parent, name, path) VALUES(1, 'Software', 'SOFTWARE');";
        case RegistryHive::LocalMachine:
            return "INSERT INTO keys(parent, name, path) VALUES(1, 'SOFTWARE', 'SOFTWARE');";
        default:
            return "";
    }
}

// Makes an empty file a hive; leaves a hive as it is; refuses anything
// else. BUSY results come back for the caller to retry.
int InitialiseSchema(sqlite3 *db, RegistryHive hive, bool readOnly, DWORD &status) {
    std::int64_t applicationId = 0;
    int result = QueryInt(db, "PRAGMA application_id", applicationId);
    if (result != SQLITE_OK) return result;
    if (applicationId == kApplicationId) return SQLITE_OK;
    std::int64_t objects = 0;
    result = QueryInt(db, "SELECT count(*) FROM sqlite_master", objects);
    if (result != SQLITE_OK) return result;
    if (applicationId != 0 || objects != 0) {
        status = ERROR_BADDB;
        return SQLITE_OK;
    }
    if (readOnly) {
        status = ERROR_ACCESS_DENIED;
        return SQLITE_OK;
    }
    if ((result = Exec(db, "PRAGMA journal_mode=WAL")) != SQLITE_OK) return result;
    if ((result = Exec(db, "BEGIN IMMEDIATE")) != SQLITE_OK) return result;
    // Another process may have made it while this one waited.
    result = QueryInt(db, "PRAGMA application_id", applicationId);
    if (result == SQLITE_OK && applicationId == 0) {
        const std::string marks = "PRAGMA application_id=" + std::to_string(kApplicationId) +
                                  ";PRAGMA user_version=" + std::to_string(kSchemaVersion) + ";";
        result = Exec(db, kSchema);
        if (result == SQLITE_OK) result = Exec(db, SeedKeys(hive));
        if (result == SQLITE_OK) result = Exec(db, marks.c_str());
    }
    if (result == SQLITE_OK) result = Exec(db, "COMMIT");
    if (result != SQLITE_OK) Exec(db, "ROLLBACK");
    return result;
}

DWORD PrepareDatabase(sqlite3 *db, RegistryHive hive, bool readOnly) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyMilliseconds);
    // NORMAL is enough in WAL mode: a crash may lose the last calls but
    // never leaves one half done.
    int result = readOnly ? SQLITE_OK : Exec(db, "PRAGMA synchronous=NORMAL");
    DWORD status = ERROR_SUCCESS;
    while (true) {
        result = InitialiseSchema(db, hive, readOnly, status);
        if (result == SQLITE_OK && status == ERROR_SUCCESS && !readOnly) {
            result = Exec(db, "PRAGMA journal_mode=WAL");
        }
        if ((result & 0xFF) != SQLITE_BUSY || std::chrono::steady_clock::now() > deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (status != ERROR_SUCCESS) return status;
    if (result != SQLITE_OK) return StatusOf(result);
    return StatusOf(Exec(db, "PRAGMA foreign_keys=ON"));
}

bool MakeHiveFolder(RegistryHive hive, const std::wstring &folder) {
    if (IsPerUser(hive)) return MakePrivateFolder(folder);
    std::error_code error;
    std::filesystem::create_directories(ToUtf8(folder), error);
    return !error;
}

bool StatFile(const std::wstring &path, struct stat &info) {
    return !path.empty() && ::stat(ToUtf8(path).c_str(), &info) == 0;
}

}  // namespace

std::wstring RegistryHivePath(RegistryHive hive) {
    const wchar_t *file = nullptr;
    int csidl = CSIDL_COMMON_APPDATA;
    switch (hive) {
        case RegistryHive::CurrentUser:
            file = L"CurrentUser.db";
            csidl = CSIDL_LOCAL_APPDATA;
            break;
        case RegistryHive::LocalMachine:
            file = L"LocalMachine.db";
            break;
        case RegistryHive::ClassesRoot:
            file = L"ClassesRoot.db";
            break;
        case RegistryHive::Users:
            return L"";
    }
    const std::wstring folder = SpecialFolder(csidl, false);
    if (folder.empty()) return L"";
    return JoinPath(JoinPath(JoinPath(folder, L"Orvane Labs"), L"Registry"), file);
}

// The connection of one hive in this process. It is kept between calls and
// opened again when the hive's file changes (another VARNICK_HOME, a file
// deleted or replaced). A connection inherited through fork belongs to the
// parent and is never used or closed by the child.
struct RegistryTransaction::Slot {
    std::mutex mutex;
    std::wstring path;
    dev_t device = 0;
    ino_t inode = 0;
    pid_t owner = 0;
    sqlite3 *db = nullptr;
    bool readOnly = false;

    void Close() {
        if (db && owner == ::getpid()) sqlite3_close_v2(db);
        db = nullptr;
        path.clear();
    }
};

RegistryTransaction::Slot &RegistryTransaction::SlotOf(RegistryHive hive) {
    // Never destroyed: a call during static destruction still finds its slot.
    static Slot *slots = new Slot[4];
    return slots[static_cast<int>(hive)];
}

void CloseRegistryConnections() {
    for (RegistryHive hive : {RegistryHive::ClassesRoot, RegistryHive::CurrentUser,
                              RegistryHive::LocalMachine, RegistryHive::Users}) {
        RegistryTransaction::CloseConnection(hive);
    }
}

void RegistryTransaction::CloseConnection(RegistryHive hive) {
    Slot &slot = SlotOf(hive);
    std::lock_guard<std::mutex> guard(slot.mutex);
    slot.Close();
}

RegistryTransaction::RegistryTransaction(RegistryHive hive, Mode mode)
    : lock_(SlotOf(hive).mutex), slot_(SlotOf(hive)), hive_(hive) {
    status_ = Connect(mode);
    if (status_ != ERROR_SUCCESS || !db_) return;
    int result = Exec(db_, mode == Mode::Write ? "BEGIN IMMEDIATE" : "BEGIN");
    if (result != SQLITE_OK) {
        status_ = Fail(result);
        return;
    }
    open_ = true;
}

RegistryTransaction::~RegistryTransaction() {
    if (open_) Exec(db_, "ROLLBACK");
}

DWORD RegistryTransaction::Connect(Mode mode) {
    const std::wstring path = RegistryHivePath(hive_);
    if (slot_.db && slot_.owner != ::getpid()) slot_.db = nullptr;
    struct stat info {};
    bool exists = StatFile(path, info);
    if (slot_.db && (!exists || path != slot_.path || info.st_dev != slot_.device ||
                     info.st_ino != slot_.inode)) {
        slot_.Close();
    }
    if (!slot_.db) {
        if (path.empty()) return mode == Mode::Write ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
        DWORD status = Open(path, exists);
        // A hive that cannot be made reads as empty; one that is there but
        // cannot be used is a failure.
        if (status != ERROR_SUCCESS) {
            return !exists && mode == Mode::Read ? ERROR_SUCCESS : status;
        }
    }
    if (mode == Mode::Write && slot_.readOnly) return ERROR_ACCESS_DENIED;
    db_ = slot_.db;
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::Open(const std::wstring &path, bool exists) {
    if (!exists && !MakeHiveFolder(hive_, ParentPath(path))) return ERROR_ACCESS_DENIED;
    const std::string file = ToUtf8(path);
    sqlite3 *db = nullptr;
    int result =
        sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (result != SQLITE_OK && exists) {
        sqlite3_close_v2(db);
        db = nullptr;
        result = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    }
    if (result != SQLITE_OK) {
        sqlite3_close_v2(db);
        return StatusOf(result);
    }
    sqlite3_extended_result_codes(db, 1);
    sqlite3_busy_timeout(db, kBusyMilliseconds);
    const bool readOnly = sqlite3_db_readonly(db, "main") == 1;
    DWORD status = PrepareDatabase(db, hive_, readOnly);
    struct stat info {};
    if (status == ERROR_SUCCESS && !StatFile(path, info)) status = ERROR_FILE_NOT_FOUND;
    if (status != ERROR_SUCCESS) {
        if (status == ERROR_BADDB) ReportBadDatabase(path, FromUtf8(sqlite3_errmsg(db)));
        sqlite3_close_v2(db);
        return status;
    }
    slot_.db = db;
    slot_.path = path;
    slot_.device = info.st_dev;
    slot_.inode = info.st_ino;
    slot_.owner = ::getpid();
    slot_.readOnly = readOnly;
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::Fail(int sqliteResult) {
    DWORD status = StatusOf(sqliteResult);
    if (status == ERROR_BADDB) ReportBadDatabase(slot_.path, FromUtf8(sqlite3_errmsg(db_)));
    return status;
}

DWORD RegistryTransaction::Commit() {
    if (!open_) return status_;
    open_ = false;
    int result = Exec(db_, "COMMIT");
    if (result != SQLITE_OK) {
        Exec(db_, "ROLLBACK");
        return Fail(result);
    }
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::FindKey(const std::wstring &foldedPath, RegistryKeyId &id) {
    if (!db_) {
        id = kRegistryRootKey;
        return foldedPath.empty() ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    }
    Statement statement(db_, "SELECT id FROM keys WHERE path = ?");
    int result = statement.Bind(1, foldedPath).Step();
    if (result == SQLITE_DONE) return ERROR_FILE_NOT_FOUND;
    if (result != SQLITE_ROW) return Fail(result);
    id = statement.Int(0);
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::KeyPath(RegistryKeyId id, std::wstring &foldedPath) {
    if (!db_) {
        foldedPath.clear();
        return id == kRegistryRootKey ? ERROR_SUCCESS : ERROR_KEY_DELETED;
    }
    Statement statement(db_, "SELECT path FROM keys WHERE id = ?");
    int result = statement.Bind(1, id).Step();
    if (result == SQLITE_DONE) return ERROR_KEY_DELETED;
    if (result != SQLITE_ROW) return Fail(result);
    foldedPath = statement.Text(0);
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::AddKey(RegistryKeyId parent, const std::wstring &name,
                                  const std::wstring &foldedPath, RegistryKeyId &id) {
    if (!db_) return ERROR_ACCESS_DENIED;
    Statement statement(db_, "INSERT INTO keys(parent, name, path) VALUES(?, ?, ?)");
    int result = statement.Bind(1, parent).Bind(2, name).Bind(3, foldedPath).Step();
    if (result != SQLITE_DONE) return Fail(result);
    id = sqlite3_last_insert_rowid(db_);
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::HasSubKeys(RegistryKeyId id, bool &has) {
    has = false;
    if (!db_) return ERROR_SUCCESS;
    Statement statement(db_, "SELECT 1 FROM keys WHERE parent = ? LIMIT 1");
    int result = statement.Bind(1, id).Step();
    if (result != SQLITE_ROW && result != SQLITE_DONE) return Fail(result);
    has = result == SQLITE_ROW;
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::SubKeyAt(RegistryKeyId parent, DWORD index, std::wstring &name) {
    if (!db_) return ERROR_NO_MORE_ITEMS;
    Statement statement(db_,
                        "SELECT name FROM keys WHERE parent = ? ORDER BY path LIMIT 1 OFFSET ?");
    int result = statement.Bind(1, parent).Bind(2, static_cast<std::int64_t>(index)).Step();
    if (result == SQLITE_DONE) return ERROR_NO_MORE_ITEMS;
    if (result != SQLITE_ROW) return Fail(result);
    name = statement.Text(0);
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::DeleteTree(const std::wstring &foldedPath) {
    if (!db_) return ERROR_FILE_NOT_FOUND;
    // Below "A\B" lies every path from "A\B\" up to, not including, "A\B]":
    // "]" follows the backslash.
    Statement statement(
        db_, "DELETE FROM keys WHERE path = ?1 OR (path > ?1 || '\\' AND path < ?1 || ']')");
    int result = statement.Bind(1, foldedPath).Step();
    if (result != SQLITE_DONE) return Fail(result);
    return sqlite3_changes(db_) > 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

DWORD RegistryTransaction::GetValue(RegistryKeyId key, const std::wstring &foldedName,
                                    RegistryValue &value) {
    if (!db_) return ERROR_FILE_NOT_FOUND;
    Statement statement(db_, "SELECT name, type, data FROM vals WHERE key = ? AND folded = ?");
    int result = statement.Bind(1, key).Bind(2, foldedName).Step();
    if (result == SQLITE_DONE) return ERROR_FILE_NOT_FOUND;
    if (result != SQLITE_ROW) return Fail(result);
    ReadValueRow(statement, value);
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::ValueAt(RegistryKeyId key, DWORD index, RegistryValue &value) {
    if (!db_) return ERROR_NO_MORE_ITEMS;
    Statement statement(
        db_, "SELECT name, type, data FROM vals WHERE key = ? ORDER BY id LIMIT 1 OFFSET ?");
    int result = statement.Bind(1, key).Bind(2, static_cast<std::int64_t>(index)).Step();
    if (result == SQLITE_DONE) return ERROR_NO_MORE_ITEMS;
    if (result != SQLITE_ROW) return Fail(result);
    ReadValueRow(statement, value);
    return ERROR_SUCCESS;
}

DWORD RegistryTransaction::SetValue(RegistryKeyId key, const std::wstring &name,
                                    const std::wstring &foldedName, DWORD type,
                                    const std::vector<BYTE> &data) {
    if (!db_) return ERROR_ACCESS_DENIED;
    // A rewrite keeps the value's place in the enumeration and its name.
    Statement statement(db_,
                        "INSERT INTO vals(key, name, folded, type, data) VALUES(?, ?, ?, ?, ?) "
                        "ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, "
                        "data = excluded.data");
    int result = statement.Bind(1, key)
                     .Bind(2, name)
                     .Bind(3, foldedName)
                     .Bind(4, static_cast<std::int64_t>(type))
                     .Bind(5, data)
                     .Step();
    return result == SQLITE_DONE ? ERROR_SUCCESS : Fail(result);
}

DWORD RegistryTransaction::DeleteValue(RegistryKeyId key, const std::wstring &foldedName) {
    if (!db_) return ERROR_FILE_NOT_FOUND;
    Statement statement(db_, "DELETE FROM vals WHERE key = ? AND folded = ?");
    int result = statement.Bind(1, key).Bind(2, foldedName).Step();
    if (result != SQLITE_DONE) return Fail(result);
    return sqlite3_changes(db_) > 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

}  // namespace platform
