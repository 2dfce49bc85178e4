#include "common/RegistryDump.h"

#include <cstdint>
#include <string>
#include <vector>

#include "platform/TextFile.h"
#include "platform/WideText.h"
#include "platform/WinFormat.h"

namespace {

constexpr DWORD kShownDataBytes = 1024;
constexpr DWORD kSubKeyNameChars = kRegistryKeyNameMax + 1;
constexpr DWORD kValueNameChars = kRegistryValueNameMax + 1;

// The stored bytes of a value, cut to what the dump shows.
LONG ReadValue(HKEY key, const wchar_t *name, DWORD &type, std::vector<BYTE> &data) {
    DWORD size = 0;
    LONG status = platform::RegQueryValueBytes(key, name, &type, nullptr, &size);
    // The value may grow between the two reads; a few tries settle it.
    for (int attempt = 0; status == ERROR_SUCCESS && attempt < 4; ++attempt) {
        data.resize(size);
        status = platform::RegQueryValueBytes(key, name, &type, data.data(), &size);
        if (status != ERROR_MORE_DATA) break;
        status = ERROR_SUCCESS;
    }
    if (status != ERROR_SUCCESS) return status;
    data.resize(size < kShownDataBytes ? size : kShownDataBytes);
    return ERROR_SUCCESS;
}

std::wstring TextOf(const std::vector<BYTE> &data) {
    std::wstring text = platform::FromUtf16Bytes(data.data(), data.size() & ~std::size_t{1});
    return text.substr(0, text.find(L'\0'));
}

std::int32_t NumberOf(const std::vector<BYTE> &data) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < data.size() && i < 4; ++i)
        number |= std::uint32_t{data[i]} << (8 * i);
    return static_cast<std::int32_t>(number);
}

std::wstring ValueLine(const std::wstring &indent, const wchar_t *name, DWORD type,
                       const std::vector<BYTE> &data) {
    const wchar_t *at = indent.c_str();
    switch (type) {
        case REG_NONE:
            return FormatW(L"%s%s,REG_NONE\n", at, name);
        case REG_SZ:
            return FormatW(L"%s%s,REG_SZ,\"%s\"\n", at, name, TextOf(data).c_str());
        case REG_EXPAND_SZ:
            return FormatW(L"%s%s,REG_EXPAND_SZ\n", at, name);
        case REG_BINARY: {
            std::wstring line = FormatW(L"%s%s,REG_BINARY", at, name);
            for (BYTE byte : data) line += FormatW(L",%02x", byte);
            return line + L"\n";
        }
        case REG_DWORD:
            return FormatW(L"%s%s,REG_DWORD,%i\n", at, name, NumberOf(data));
        case REG_DWORD_BIG_ENDIAN:
            return FormatW(L"%s%s,REG_DWORD_BIG_ENDIAN\n", at, name);
        case REG_LINK:
            return FormatW(L"%s%s,REG_LINK\n", at, name);
        case REG_MULTI_SZ:
            return FormatW(L"%s%s,REG_MULTI_SZ\n", at, name);
        case REG_QWORD:
            return FormatW(L"%s%s,REG_QWORD\n", at, name);
        default:
            return FormatW(L"%s%s,ERROR_UNDEFINED,\n", at, name);
    }
}

void DumpDefaultValue(FILE *file, HKEY key, const std::wstring &indent) {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
    const LONG status = ReadValue(key, L"", type, data);
    if (status == ERROR_FILE_NOT_FOUND) {
        TextFilePrintf(file, L"%s%s,REG_SZ,\"%s\"\n", indent.c_str(), L"(Default)",
                       L"(value not set)");
    } else if (status == ERROR_SUCCESS) {
        TextFilePuts(ValueLine(indent, L"(Default)", type, data).c_str(), file);
    }
}

void DumpNamedValues(FILE *file, HKEY key, const std::wstring &indent) {
    std::vector<wchar_t> name(kValueNameChars);
    for (DWORD index = 0;; ++index) {
        DWORD chars = kValueNameChars;
        if (RegEnumValueW(key, index, name.data(), &chars, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            break;
        }
        if (chars == 0) continue;  // the default value is shown first
        DWORD type = REG_NONE;
        std::vector<BYTE> data;
        if (ReadValue(key, name.data(), type, data) == ERROR_SUCCESS) {
            TextFilePuts(ValueLine(indent, name.data(), type, data).c_str(), file);
        }
    }
}

}  // namespace

const wchar_t *RegistryHiveName(HKEY hive) {
    if (hive == HKEY_CLASSES_ROOT) return L"HKEY_CLASSES_ROOT";
    if (hive == HKEY_CURRENT_USER) return L"HKEY_CURRENT_USER";
    if (hive == HKEY_LOCAL_MACHINE) return L"HKEY_LOCAL_MACHINE";
    if (hive == HKEY_USERS) return L"HKEY_USERS";
    return nullptr;
}

LONG DumpRegistryKey(FILE *file, HKEY hive, const wchar_t *path, int depth) {
    const wchar_t *hiveName = RegistryHiveName(hive);
    if (!hiveName) return ERROR_INVALID_HANDLE;
    const std::wstring keyPath = path ? path : L"";
    HKEY key = nullptr;
    const LONG status = RegOpenKeyExW(hive, keyPath.c_str(), 0, KEY_READ, &key);
    if (status != ERROR_SUCCESS) return status;
    const std::wstring indent(static_cast<std::size_t>(depth > 0 ? depth : 0) * 2, L' ');
    if (keyPath.empty()) {
        TextFilePrintf(file, L"%s%s\n", indent.c_str(), hiveName);
    } else {
        TextFilePrintf(file, L"%s%s\\%s\n", indent.c_str(), hiveName, keyPath.c_str());
    }
    const std::wstring valueIndent = indent + L"  ";
    DumpDefaultValue(file, key, valueIndent);
    DumpNamedValues(file, key, valueIndent);
    wchar_t name[kSubKeyNameChars];
    for (DWORD index = 0; RegEnumKeyW(key, index, name, kSubKeyNameChars) == ERROR_SUCCESS;
         ++index) {
        const std::wstring child =
            keyPath.empty() ? std::wstring(name) : FormatW(L"%s\\%s", keyPath.c_str(), name);
        DumpRegistryKey(file, hive, child.c_str(), depth + 1);
    }
    RegCloseKey(key);
    return ERROR_SUCCESS;
}
