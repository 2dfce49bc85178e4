// The database behind the registry calls: one SQLite file a hive, shared by
// every process of the product. Used by platform/Registry.cpp only.
//
// A RegistryTransaction is one registry call's work: it holds the hive's
// connection for the calling thread and one transaction on it, so a call
// sees one state of the store and changes it whole or not at all. Paths and
// names handed in are already folded (upper case); keys are known by ids
// that are never reused, so a handle can tell that its key was deleted.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "platform/WinTypes.h"

struct sqlite3;

namespace platform {

enum class RegistryHive { ClassesRoot, CurrentUser, LocalMachine, Users };

// The database file of a hive; empty for a hive that has none (HKEY_USERS,
// or a folder that is unknown).
std::wstring RegistryHivePath(RegistryHive hive);

using RegistryKeyId = std::int64_t;
// The root of every hive.
inline constexpr RegistryKeyId kRegistryRootKey = 1;

struct RegistryValue {
    std::wstring name;
    DWORD type = 0;
    std::vector<BYTE> data;
};

class RegistryTransaction {
public:
    enum class Mode { Read, Write };

    // Opens the hive's database, making it when it is missing, and begins a
    // transaction (an immediate one for writing). A hive whose database
    // cannot be made reads as a hive with nothing but its root.
    RegistryTransaction(RegistryHive hive, Mode mode);
    ~RegistryTransaction();
    RegistryTransaction(const RegistryTransaction &) = delete;
    RegistryTransaction &operator=(const RegistryTransaction &) = delete;

    // ERROR_SUCCESS when the transaction is open; else the reason.
    DWORD Status() const { return status_; }

    // Each call gives ERROR_SUCCESS or a status: ERROR_FILE_NOT_FOUND for a
    // key or value that is not there, ERROR_NO_MORE_ITEMS past the end of an
    // enumeration, ERROR_KEY_DELETED for a key id that is gone, or the
    // failure of the database.
    DWORD FindKey(const std::wstring &foldedPath, RegistryKeyId &id);
    DWORD KeyPath(RegistryKeyId id, std::wstring &foldedPath);
    DWORD AddKey(RegistryKeyId parent, const std::wstring &name, const std::wstring &foldedPath,
                 RegistryKeyId &id);
    DWORD HasSubKeys(RegistryKeyId id, bool &has);
    DWORD SubKeyAt(RegistryKeyId parent, DWORD index, std::wstring &name);
    // Deletes the key at the path with every key and value below it.
    DWORD DeleteTree(const std::wstring &foldedPath);
    DWORD GetValue(RegistryKeyId key, const std::wstring &foldedName, RegistryValue &value);
    DWORD ValueAt(RegistryKeyId key, DWORD index, RegistryValue &value);
    DWORD SetValue(RegistryKeyId key, const std::wstring &name, const std::wstring &foldedName,
                   DWORD type, const std::vector<BYTE> &data);
    DWORD DeleteValue(RegistryKeyId key, const std::wstring &foldedName);

    // Ends the transaction; its changes are then in the store.
    DWORD Commit();

    // Closes the hive's connection of this process; the next call opens it
    // again.
    static void CloseConnection(RegistryHive hive);

private:
    struct Slot;
    static Slot &SlotOf(RegistryHive hive);
    DWORD Connect(Mode mode);
    DWORD Open(const std::wstring &path, bool exists);
    DWORD Fail(int sqliteResult);

    std::unique_lock<std::mutex> lock_;
    Slot &slot_;
    RegistryHive hive_;
    sqlite3 *db_ = nullptr;  // null: the hive has no database
    bool open_ = false;
    DWORD status_ = 0;
};

}  // namespace platform
