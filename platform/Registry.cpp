#include "platform/Registry.h"

#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/RegistryStore.h"
#include "platform/WideText.h"
#include "platform/WinError.h"

// An open key: the hive, the id of the key in it, and what the handle was
// opened for.
struct HKEY__ {
    platform::RegistryHive hive;
    platform::RegistryKeyId id;
    REGSAM access;
};

namespace {

using platform::RegistryHive;
using platform::RegistryKeyId;
using platform::RegistryTransaction;
using platform::RegistryValue;
using Mode = RegistryTransaction::Mode;

struct KeyTarget {
    RegistryHive hive = RegistryHive::Users;
    RegistryKeyId id = 0;
    REGSAM access = 0;
};

// Handles handed out and not yet closed; anything else is refused.
std::mutex &HandlesMutex() {
    static std::mutex mutex;
    return mutex;
}
std::unordered_set<HKEY> &LiveHandles() {
    static auto *handles = new std::unordered_set<HKEY>;
    return *handles;
}

bool PredefinedHive(HKEY key, RegistryHive &hive) {
    if (key == HKEY_CLASSES_ROOT) {
        hive = RegistryHive::ClassesRoot;
    } else if (key == HKEY_CURRENT_USER) {
        hive = RegistryHive::CurrentUser;
    } else if (key == HKEY_LOCAL_MACHINE) {
        hive = RegistryHive::LocalMachine;
    } else if (key == HKEY_USERS) {
        hive = RegistryHive::Users;
    } else {
        return false;
    }
    return true;
}

DWORD Resolve(HKEY key, KeyTarget &target) {
    RegistryHive hive;
    if (PredefinedHive(key, hive)) {
        target = {hive, platform::kRegistryRootKey, KEY_ALL_ACCESS};
        return ERROR_SUCCESS;
    }
    std::lock_guard<std::mutex> guard(HandlesMutex());
    if (!LiveHandles().count(key)) return ERROR_INVALID_HANDLE;
    target = {key->hive, key->id, key->access};
    return ERROR_SUCCESS;
}

HKEY NewHandle(RegistryHive hive, RegistryKeyId id, REGSAM access) {
    HKEY key = new HKEY__{hive, id, access};
    std::lock_guard<std::mutex> guard(HandlesMutex());
    LiveHandles().insert(key);
    return key;
}

// The specific rights a requested access stands for.
REGSAM SpecificAccess(REGSAM access) {
    if (access & (MAXIMUM_ALLOWED | GENERIC_ALL)) return KEY_ALL_ACCESS;
    REGSAM result = access & KEY_ALL_ACCESS;
    if (access & GENERIC_READ) result |= KEY_READ;
    if (access & GENERIC_WRITE) result |= KEY_WRITE;
    if (access & GENERIC_EXECUTE) result |= KEY_EXECUTE;
    return result;
}

std::wstring Fold(std::wstring_view name) { return platform::ToUpper(name); }

std::wstring ValueName(LPCWSTR name) { return name ? name : L""; }

// The levels of a subkey path. A trailing backslash is dropped; any other
// empty level makes the path bad.
DWORD SplitLevels(LPCWSTR subKey, std::vector<std::wstring> &levels) {
    levels.clear();
    if (!subKey || !*subKey) return ERROR_SUCCESS;
    std::wstring_view path(subKey);
    if (path.back() == L'\\') path.remove_suffix(1);
    std::size_t start = 0;
    while (true) {
        const std::size_t end = path.find(L'\\', start);
        const std::wstring_view level = path.substr(start, end - start);
        if (level.empty()) return ERROR_BAD_PATHNAME;
        if (level.size() > kRegistryKeyNameMax) return ERROR_INVALID_PARAMETER;
        levels.emplace_back(level);
        if (end == std::wstring_view::npos) return ERROR_SUCCESS;
        start = end + 1;
    }
}

std::wstring ChildPath(const std::wstring &parent, const std::wstring &level) {
    return parent.empty() ? Fold(level) : parent + L'\\' + Fold(level);
}

// Opens a transaction on the hive of a live key that the handle allows
// `needed` on.
DWORD BeginOnKey(HKEY key, REGSAM needed, Mode mode, std::optional<RegistryTransaction> &work,
                 KeyTarget &target, std::wstring *path = nullptr) {
    DWORD status = Resolve(key, target);
    if (status != ERROR_SUCCESS) return status;
    if ((target.access & needed) != needed) return ERROR_ACCESS_DENIED;
    work.emplace(target.hive, mode);
    if ((status = work->Status()) != ERROR_SUCCESS) return status;
    std::wstring keyPath;
    status = work->KeyPath(target.id, keyPath);
    if (path) *path = keyPath;
    return status;
}

// A subkey path below a handle's key, with a transaction on its hive. `path`
// starts as the handle key's path; the caller walks `levels` from there.
struct SubKeyWork {
    std::vector<std::wstring> levels;
    std::optional<RegistryTransaction> work;
    KeyTarget target;
    std::wstring path;

    // `needed` is asked of the handle only when the path names a subkey.
    DWORD Begin(HKEY key, LPCWSTR subKey, Mode mode, REGSAM needed) {
        DWORD status = SplitLevels(subKey, levels);
        if (status != ERROR_SUCCESS) return status;
        return BeginOnKey(key, levels.empty() ? 0 : needed, mode, work, target, &path);
    }
    std::wstring FullPath() const {
        std::wstring full = path;
        for (const std::wstring &level : levels) full = ChildPath(full, level);
        return full;
    }
};

void PutUnit(std::vector<BYTE> &bytes, char32_t unit) {
    bytes.push_back(static_cast<BYTE>(unit & 0xFF));
    bytes.push_back(static_cast<BYTE>((unit >> 8) & 0xFF));
}

// The caller's wchar_t text as UTF-16LE, exactly `size` bytes of it. Only
// the wchar_t that these bytes need are read, so a size of N * 2 never
// reads beyond N characters. Surrogates standing alone pass unchanged.
std::vector<BYTE> EncodeText(const BYTE *data, DWORD size) {
    std::vector<BYTE> bytes;
    bytes.reserve(size + 2);
    for (std::size_t offset = 0; bytes.size() < size; offset += sizeof(wchar_t)) {
        wchar_t c;
        std::memcpy(&c, data + offset, sizeof c);
        const auto point = static_cast<char32_t>(c);
        if (point > 0xFFFF && point <= 0x10FFFF) {
            PutUnit(bytes, 0xD800 + ((point - 0x10000) >> 10));
            PutUnit(bytes, 0xDC00 + ((point - 0x10000) & 0x3FF));
        } else {
            PutUnit(bytes, point > 0x10FFFF ? 0xFFFD : point);
        }
    }
    bytes.resize(size);
    return bytes;
}

// UTF-16LE data into the caller's wchar_t buffer; no terminator is added.
// An odd last byte lands in the low byte of the next character, as it
// would in a UTF-16 buffer.
void DecodeText(const std::vector<BYTE> &bytes, BYTE *out) {
    const std::size_t units = bytes.size() / 2;
    auto unitAt = [&bytes](std::size_t i) -> char32_t {
        return bytes[2 * i] | (static_cast<char32_t>(bytes[2 * i + 1]) << 8);
    };
    std::size_t slot = 0;
    for (std::size_t i = 0; i < units; ++i, ++slot) {
        char32_t point = unitAt(i);
        if (point >= 0xD800 && point <= 0xDBFF && i + 1 < units) {
            const char32_t low = unitAt(i + 1);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        const auto c = static_cast<wchar_t>(point);
        std::memcpy(out + slot * sizeof c, &c, sizeof c);
    }
    if (bytes.size() % 2) {
        wchar_t c;
        std::memcpy(&c, out + slot * sizeof c, sizeof c);
        c = static_cast<wchar_t>((static_cast<char32_t>(c) & ~char32_t{0xFF}) | bytes.back());
        std::memcpy(out + slot * sizeof c, &c, sizeof c);
    }
}

// What RegQueryValueExW gives back for a value found.
LONG Deliver(const RegistryValue &value, LPDWORD type, LPBYTE data, LPDWORD size, bool wide) {
    if (type) *type = value.type;
    if (!size) return ERROR_SUCCESS;
    const DWORD stored = static_cast<DWORD>(value.data.size());
    const DWORD capacity = *size;
    *size = stored;
    if (!data) return ERROR_SUCCESS;
    if (stored > capacity) return ERROR_MORE_DATA;
    if (wide && platform::IsRegistryTextType(value.type)) {
        DecodeText(value.data, data);
    } else if (stored > 0) {
        std::memcpy(data, value.data.data(), stored);
    }
    return ERROR_SUCCESS;
}

// A name into a buffer of *chars characters with its terminator.
LONG CopyName(const std::wstring &name, LPWSTR buffer, LPDWORD chars) {
    if (name.size() + 1 > *chars) return ERROR_MORE_DATA;
    std::wmemcpy(buffer, name.c_str(), name.size() + 1);
    *chars = static_cast<DWORD>(name.size());
    return ERROR_SUCCESS;
}

LONG QueryValue(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size, bool wide) {
    if (data && !size) return ERROR_INVALID_PARAMETER;
    std::optional<RegistryTransaction> work;
    KeyTarget target;
    DWORD status = BeginOnKey(key, KEY_QUERY_VALUE, Mode::Read, work, target);
    if (status != ERROR_SUCCESS) return static_cast<LONG>(status);
    RegistryValue value;
    status = work->GetValue(target.id, Fold(ValueName(name)), value);
    if (status != ERROR_SUCCESS) return static_cast<LONG>(status);
    work->Commit();
    return Deliver(value, type, data, size, wide);
}

LONG SetValue(HKEY key, LPCWSTR name, DWORD type, const BYTE *data, DWORD size, bool wide) {
    if (!data && size > 0) return ERROR_INVALID_PARAMETER;
    const std::wstring valueName = ValueName(name);
    if (valueName.size() > kRegistryValueNameMax) return ERROR_INVALID_PARAMETER;
    const std::vector<BYTE> bytes = wide && platform::IsRegistryTextType(type)
                                        ? EncodeText(data, size)
                                        : std::vector<BYTE>(data, data + size);
    std::optional<RegistryTransaction> work;
    KeyTarget target;
    DWORD status = BeginOnKey(key, KEY_SET_VALUE, Mode::Write, work, target);
    if (status == ERROR_SUCCESS) {
        status = work->SetValue(target.id, valueName, Fold(valueName), type, bytes);
    }
    if (status == ERROR_SUCCESS) status = work->Commit();
    return static_cast<LONG>(status);
}

LONG DeleteKey(HKEY key, LPCWSTR subKey, bool withSubKeys) {
    SubKeyWork walk;
    DWORD status = walk.Begin(key, subKey, Mode::Write, 0);
    if (status != ERROR_SUCCESS) return static_cast<LONG>(status);
    const std::wstring path = walk.FullPath();
    if (path.empty()) return ERROR_ACCESS_DENIED;
    RegistryKeyId id = 0;
    bool hasSubKeys = false;
    status = walk.work->FindKey(path, id);
    if (status == ERROR_SUCCESS && !withSubKeys) status = walk.work->HasSubKeys(id, hasSubKeys);
    if (status == ERROR_SUCCESS && hasSubKeys) status = ERROR_ACCESS_DENIED;
    if (status == ERROR_SUCCESS) status = walk.work->DeleteTree(path);
    if (status == ERROR_SUCCESS) status = walk.work->Commit();
    return static_cast<LONG>(status);
}

}  // namespace

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision) {
    if (!descriptor || revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto *record = static_cast<SECURITY_DESCRIPTOR *>(descriptor);
    *record = SECURITY_DESCRIPTOR{};
    record->Revision = static_cast<BYTE>(revision);
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, void *dacl,
                               BOOL defaulted) {
    if (!descriptor) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto *record = static_cast<SECURITY_DESCRIPTOR *>(descriptor);
    record->Control = static_cast<WORD>(record->Control & ~(SE_DACL_PRESENT | SE_DACL_DEFAULTED));
    if (present) record->Control |= SE_DACL_PRESENT;
    if (present && defaulted) record->Control |= SE_DACL_DEFAULTED;
    record->Dacl = present ? dacl : nullptr;
    return TRUE;
}

LONG RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD, LPWSTR, DWORD, REGSAM access,
                     LPSECURITY_ATTRIBUTES, PHKEY result, LPDWORD disposition) {
    if (!result) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    SubKeyWork walk;
    DWORD status = walk.Begin(key, subKey, Mode::Write, KEY_CREATE_SUB_KEY);
    RegistryKeyId id = walk.target.id;
    bool created = false;
    for (auto level = walk.levels.begin(); status == ERROR_SUCCESS && level != walk.levels.end();
         ++level) {
        walk.path = ChildPath(walk.path, *level);
        RegistryKeyId child = 0;
        status = walk.work->FindKey(walk.path, child);
        created = status == ERROR_FILE_NOT_FOUND;
        if (created) status = walk.work->AddKey(id, *level, walk.path, child);
        id = child;
    }
    if (status == ERROR_SUCCESS) status = walk.work->Commit();
    if (status != ERROR_SUCCESS) return static_cast<LONG>(status);
    *result = NewHandle(walk.target.hive, id, SpecificAccess(access));
    if (disposition) *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    return ERROR_SUCCESS;
}

LONG RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD, REGSAM access, PHKEY result) {
    if (!result) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    SubKeyWork walk;
    DWORD status = walk.Begin(key, subKey, Mode::Read, 0);
    RegistryKeyId id = 0;
    if (status == ERROR_SUCCESS) status = walk.work->FindKey(walk.FullPath(), id);
    if (status != ERROR_SUCCESS) return static_cast<LONG>(status);
    walk.work->Commit();
    *result = NewHandle(walk.target.hive, id, SpecificAccess(access));
    return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY key) {
    RegistryHive hive;
    if (PredefinedHive(key, hive)) return ERROR_SUCCESS;
    {
        std::lock_guard<std::mutex> guard(HandlesMutex());
        if (LiveHandles().erase(key) == 0) return ERROR_INVALID_HANDLE;
    }
    delete key;
    return ERROR_SUCCESS;
}

LONG RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size) {
    return QueryValue(key, name, type, data, size, true);
}

LONG RegSetValueExW(HKEY key, LPCWSTR name, DWORD, DWORD type, const BYTE *data, DWORD size) {
    return SetValue(key, name, type, data, size, true);
}

LONG RegDeleteValueW(HKEY key, LPCWSTR name) {
    std::optional<RegistryTransaction> work;
    KeyTarget target;
    DWORD status = BeginOnKey(key, KEY_SET_VALUE, Mode::Write, work, target);
    if (status == ERROR_SUCCESS) status = work->DeleteValue(target.id, Fold(ValueName(name)));
    if (status == ERROR_SUCCESS) status = work->Commit();
    return static_cast<LONG>(status);
}

LONG RegDeleteKeyW(HKEY key, LPCWSTR subKey) { return DeleteKey(key, subKey, false); }

LSTATUS SHDeleteKeyW(HKEY key, LPCWSTR subKey) { return DeleteKey(key, subKey, true); }

LONG RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameChars, LPDWORD, LPDWORD type,
                   LPBYTE data, LPDWORD size) {
    if (!name || !nameChars || (data && !size)) return ERROR_INVALID_PARAMETER;
    std::optional<RegistryTransaction> work;
    KeyTarget target;
    DWORD status = BeginOnKey(key, KEY_QUERY_VALUE, Mode::Read, work, target);
    RegistryValue value;
    if (status == ERROR_SUCCESS) status = work->ValueAt(target.id, index, value);
    if (status != ERROR_SUCCESS) return static_cast<LONG>(status);
    work->Commit();
    const LONG named = CopyName(value.name, name, nameChars);
    if (named != ERROR_SUCCESS) return named;
    return Deliver(value, type, data, size, true);
}

LONG RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameChars, LPDWORD, LPWSTR keyClass,
                   LPDWORD classChars, LPFILETIME lastWrite) {
    if (!name || !nameChars) return ERROR_INVALID_PARAMETER;
    std::optional<RegistryTransaction> work;
    KeyTarget target;
    DWORD status = BeginOnKey(key, KEY_ENUMERATE_SUB_KEYS, Mode::Read, work, target);
    std::wstring subKey;
    if (status == ERROR_SUCCESS) status = work->SubKeyAt(target.id, index, subKey);
    if (status != ERROR_SUCCESS) return static_cast<LONG>(status);
    work->Commit();
    const LONG named = CopyName(subKey, name, nameChars);
    if (named != ERROR_SUCCESS) return named;
    if (keyClass && classChars && *classChars > 0) keyClass[0] = L'\0';
    if (classChars) *classChars = 0;
    if (lastWrite) *lastWrite = FILETIME{};
    return ERROR_SUCCESS;
}

LONG RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD nameChars) {
    return RegEnumKeyExW(key, index, name, &nameChars, nullptr, nullptr, nullptr, nullptr);
}

namespace platform {

LONG RegSetValueBytes(HKEY key, const wchar_t *name, DWORD type, const BYTE *data, DWORD size) {
    return SetValue(key, name, type, data, size, false);
}

LONG RegQueryValueBytes(HKEY key, const wchar_t *name, DWORD *type, BYTE *data, DWORD *size) {
    return QueryValue(key, name, type, data, size, false);
}

bool IsRegistryTextType(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

}  // namespace platform
