#include "CRegistry.h"

#include <cwchar>
#include <string>

namespace {

// Closes a key at the end of the scope that opened it.
class OpenKey {
public:
    explicit OpenKey(HKEY key) : key_(key) {}
    ~OpenKey() {
        if (key_) RegCloseKey(key_);
    }
    OpenKey(const OpenKey &) = delete;
    OpenKey &operator=(const OpenKey &) = delete;
    HKEY get() const { return key_; }
    explicit operator bool() const { return key_ != nullptr; }

private:
    HKEY key_;
};

}  // namespace

CRegistry::CRegistry() : majorKey_(HKEY_CURRENT_USER) {}

CRegistry::~CRegistry() { delete[] appKey_; }

void CRegistry::SetMajorKey(DWORD majorKey) {
    switch (majorKey) {
        case 0:
            majorKey_ = HKEY_CURRENT_USER;
            break;
        case 1:
            majorKey_ = HKEY_LOCAL_MACHINE;
            break;
        case 2:
            majorKey_ = HKEY_CLASSES_ROOT;
            break;
        default:
            break;
    }
}

void CRegistry::SetAppKey(const wchar_t *path) {
    if (!path) return;
    const std::size_t length = std::wcslen(path);
    auto *copy = new wchar_t[length + 1];
    std::wmemcpy(copy, path, length + 1);
    delete[] appKey_;
    appKey_ = copy;
}

LONG CRegistry::RegCreateKeyExW(HKEY key, const wchar_t *subKey, DWORD reserved, wchar_t *keyClass,
                                DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES security,
                                PHKEY result, LPDWORD disposition) {
    SECURITY_DESCRIPTOR descriptor;
    SECURITY_ATTRIBUTES openToAll;
    if (!security) {
        InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
        openToAll.nLength = sizeof openToAll;
        openToAll.lpSecurityDescriptor = &descriptor;
        openToAll.bInheritHandle = TRUE;
        security = &openToAll;
    }
    return ::RegCreateKeyExW(key, subKey, reserved, keyClass, options, access, security, result,
                             disposition);
}

void CRegistry::CreateKey(HKEY hive, const wchar_t *parent, const wchar_t *child) {
    HKEY parentKey = nullptr;
    if (RegOpenKeyExW(hive, parent, 0, KEY_ALL_ACCESS, &parentKey) != ERROR_SUCCESS) return;
    OpenKey parentScope(parentKey);
    CreateBelow(parentKey, child);
}

void CRegistry::CreateBelow(HKEY parent, const wchar_t *child) {
    wchar_t noClass[] = L"";
    HKEY childKey = nullptr;
    DWORD disposition = 0;
    if (RegCreateKeyExW(parent, child, 0, noClass, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        &childKey, &disposition) == ERROR_SUCCESS) {
        RegCloseKey(childKey);
    }
}

void CRegistry::CreateAppKey(const wchar_t *path) {
    if (!path) return;
    if (!appKey_) SetAppKey(path);
    std::wstring working = path;
    const std::size_t firstBreak = working.find(L'\\');
    if (firstBreak == std::wstring::npos) {
        CreateBelow(majorKey_, path);
        return;
    }
    // The first level of the argument is taken to exist; the levels below
    // it are those of the stored application key.
    working.resize(firstBreak);
    const std::wstring appKey = appKey_;
    std::size_t levelStart = appKey.find(L'\\');
    if (levelStart == std::wstring::npos) return;  // a one-level key has nothing below its first
    ++levelStart;
    std::size_t levelEnd;
    while ((levelEnd = appKey.find(L'\\', levelStart)) != std::wstring::npos) {
        const std::wstring level = appKey.substr(levelStart, levelEnd - levelStart);
        CreateKey(majorKey_, working.c_str(), level.c_str());
        working += L'\\';
        working += level;
        levelStart = levelEnd + 1;
    }
    CreateKey(majorKey_, working.c_str(), appKey.c_str() + levelStart);
}

HKEY CRegistry::OpenAppKey(REGSAM access) const {
    HKEY key = nullptr;
    if (RegOpenKeyExW(majorKey_, appKey_, 0, access, &key) != ERROR_SUCCESS) return nullptr;
    return key;
}

LONG CRegistry::SetValue(const wchar_t *name, DWORD type, const BYTE *data, DWORD size, bool text) {
    OpenKey key(OpenAppKey(KEY_SET_VALUE));
    if (!key) return ERROR_FILE_NOT_FOUND;
    return text ? RegSetValueExW(key.get(), name, 0, type, data, size)
                : platform::RegSetValueBytes(key.get(), name, type, data, size);
}

LONG CRegistry::QueryValue(const wchar_t *name, DWORD *type, BYTE *data, DWORD *size, bool text) {
    OpenKey key(OpenAppKey(KEY_QUERY_VALUE));
    if (!key) return ERROR_FILE_NOT_FOUND;
    return text ? RegQueryValueExW(key.get(), name, nullptr, type, data, size)
                : platform::RegQueryValueBytes(key.get(), name, type, data, size);
}

int CRegistry::WriteRegSetting(const wchar_t *name, const wchar_t *value) {
    if (!value) return 0;
    DWORD size = static_cast<DWORD>(std::wcslen(value) * 2);
    if (size == 0) size = 1;
    return SetValue(name, REG_SZ, reinterpret_cast<const BYTE *>(value), size, true) ==
           ERROR_SUCCESS;
}

int CRegistry::WriteRegSetting(const wchar_t *name, DWORD *value) {
    if (!value) return 0;
    return SetValue(name, REG_DWORD, reinterpret_cast<const BYTE *>(value), sizeof(DWORD), false) ==
           ERROR_SUCCESS;
}

int CRegistry::WriteRegSetting(const wchar_t *name, void *data, DWORD size) {
    return SetValue(name, REG_BINARY, static_cast<const BYTE *>(data), size, false) ==
           ERROR_SUCCESS;
}

int CRegistry::WriteRegSetting(const wchar_t *name, const unsigned char *data, int size) {
    if (size < 0) return 0;
    return SetValue(name, REG_MULTI_SZ, data, static_cast<DWORD>(size), false) == ERROR_SUCCESS;
}

int CRegistry::WriteRegSetting(const wchar_t *name, bool, const wchar_t *value, unsigned int size) {
    return SetValue(name, REG_EXPAND_SZ, reinterpret_cast<const BYTE *>(value), size, true) ==
           ERROR_SUCCESS;
}

int CRegistry::GetRegSetting(const wchar_t *name, wchar_t *buffer, DWORD size) {
    if (!buffer) return 0;
    return QueryValue(name, nullptr, reinterpret_cast<BYTE *>(buffer), &size, true) ==
           ERROR_SUCCESS;
}

int CRegistry::GetRegSetting(const wchar_t *name, DWORD *value) {
    if (!value) return 0;
    DWORD size = sizeof(DWORD);
    return QueryValue(name, nullptr, reinterpret_cast<BYTE *>(value), &size, false) ==
           ERROR_SUCCESS;
}

int CRegistry::GetRegSetting(const wchar_t *name, void *data, DWORD size) {
    if (!data) return 0;
    return QueryValue(name, nullptr, static_cast<BYTE *>(data), &size, false) == ERROR_SUCCESS;
}

int CRegistry::GetRegSetting(const wchar_t *name, unsigned char *data, int *size) {
    if (!data || !size || *size < 0) return 0;
    DWORD bytes = static_cast<DWORD>(*size);
    const LONG status = QueryValue(name, nullptr, data, &bytes, false);
    if (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) *size = static_cast<int>(bytes);
    return status == ERROR_SUCCESS;
}

int CRegistry::GetTypeAndSize(const wchar_t *name, DWORD *type, DWORD *size) {
    return QueryValue(name, type, nullptr, size, false) == ERROR_SUCCESS;
}

int CRegistry::RemoveName(const wchar_t *name) {
    OpenKey key(OpenAppKey(KEY_SET_VALUE));
    return key && RegDeleteValueW(key.get(), name) == ERROR_SUCCESS;
}

int CRegistry::RemoveKey() { return SHDeleteKeyW(majorKey_, appKey_) == ERROR_SUCCESS; }

int CRegistry::FindFirst(wchar_t *buffer, DWORD size) {
    valueIndex_ = 0;
    return FindNext(buffer, size);
}

int CRegistry::FindNext(wchar_t *buffer, DWORD size) {
    OpenKey key(OpenAppKey(KEY_QUERY_VALUE));
    if (!key) return 0;
    DWORD chars = size;
    return RegEnumValueW(key.get(), valueIndex_++, buffer, &chars, nullptr, nullptr, nullptr,
                         nullptr) == ERROR_SUCCESS;
}

int CRegistry::GetNextString(DWORD index, wchar_t *buffer, DWORD size) {
    OpenKey key(OpenAppKey(KEY_QUERY_VALUE));
    if (!key) return 0;
    DWORD chars = size;
    return RegEnumValueW(key.get(), index, buffer, &chars, nullptr, nullptr, nullptr, nullptr) ==
           ERROR_SUCCESS;
}

int CRegistry::FindFirstKey(wchar_t *buffer, DWORD size) {
    keyIndex_ = 0;
    return FindNextKey(buffer, size);
}

int CRegistry::FindNextKey(wchar_t *buffer, DWORD size) {
    return RegEnumKeyW(majorKey_, keyIndex_++, buffer, size) == ERROR_SUCCESS;
}
