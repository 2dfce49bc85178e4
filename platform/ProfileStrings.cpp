#include "platform/ProfileStrings.h"

#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/SpecialFolders.h"
#include "platform/TextFile.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinPath.h"

namespace {

std::wstring_view Trim(std::wstring_view text) {
    while (!text.empty() && (text.front() == L' ' || text.front() == L'\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == L' ' || text.back() == L'\t' || text.back() == L'\r')) {
        text.remove_suffix(1);
    }
    return text;
}

std::wstring ProfilePath() {
    return platform::JoinPath(platform::SpecialFolder(CSIDL_APPDATA, false), L"win.ini");
}

// win.ini as lines; lines that are no section or key are kept as they stand
// so that a write leaves them in place.
class ProfileFile {
public:
    // False only when the file exists and cannot be read.
    bool Load() {
        std::wstring text;
        // As Windows reads profiles: a file without a mark is in the system
        // code page, UTF-8 here, so a hand-edited win.ini reads as it should.
        if (!platform::ReadTextFile(ProfilePath(), text, L"rt, ccs=UTF-8")) {
            return GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND;
        }
        std::size_t pos = 0;
        while (pos < text.size()) {
            std::size_t end = text.find(L'\n', pos);
            if (end == std::wstring::npos) end = text.size();
            lines_.emplace_back(text, pos, end - pos);
            pos = end + 1;
        }
        return true;
    }

    bool Save() const {
        if (platform::SpecialFolder(CSIDL_APPDATA, true).empty()) return false;
        std::wstring text;
        for (const std::wstring &line : lines_) text += line + L'\n';
        return platform::WriteTextFile(ProfilePath(), text, false);
    }

    static std::optional<std::wstring> SectionName(std::wstring_view line) {
        line = Trim(line);
        if (line.empty() || line.front() != L'[') return std::nullopt;
        line.remove_prefix(1);
        return std::wstring(Trim(line.substr(0, line.find(L']'))));
    }

    static bool IsComment(std::wstring_view line) {
        line = Trim(line);
        return !line.empty() && line.front() == L';';
    }

    // The key of a "key=value" line, or nothing for other lines.
    static std::optional<std::wstring> KeyName(std::wstring_view line) {
        if (IsComment(line) || SectionName(line)) return std::nullopt;
        std::size_t equals = line.find(L'=');
        if (equals == std::wstring_view::npos) return std::nullopt;
        return std::wstring(Trim(line.substr(0, equals)));
    }

    static std::wstring Value(std::wstring_view line) {
        std::wstring_view value = Trim(line.substr(line.find(L'=') + 1));
        if (value.size() >= 2 && (value.front() == L'"' || value.front() == L'\'') &&
            value.back() == value.front()) {
            value = value.substr(1, value.size() - 2);
        }
        return std::wstring(value);
    }

    // The header line of the first section of this name, or npos.
    std::size_t FindSection(std::wstring_view name) const {
        for (std::size_t i = 0; i < lines_.size(); ++i) {
            auto found = SectionName(lines_[i]);
            if (found && platform::EqualsNoCase(*found, Trim(name))) return i;
        }
        return std::wstring::npos;
    }

    // One past the last line of the section that starts at `header`.
    std::size_t SectionEnd(std::size_t header) const {
        std::size_t i = header + 1;
        while (i < lines_.size() && !SectionName(lines_[i])) ++i;
        return i;
    }

    std::size_t FindKey(std::size_t header, std::wstring_view key) const {
        for (std::size_t i = header + 1; i < SectionEnd(header); ++i) {
            auto found = KeyName(lines_[i]);
            if (found && platform::EqualsNoCase(*found, Trim(key))) return i;
        }
        return std::wstring::npos;
    }

    std::optional<std::wstring> Lookup(std::wstring_view section, std::wstring_view key) const {
        std::size_t header = FindSection(section);
        if (header == std::wstring::npos) return std::nullopt;
        std::size_t line = FindKey(header, key);
        if (line == std::wstring::npos) return std::nullopt;
        return Value(lines_[line]);
    }

    std::vector<std::wstring> SectionNames() const {
        std::vector<std::wstring> names;
        for (const std::wstring &line : lines_) {
            if (auto name = SectionName(line)) names.push_back(*name);
        }
        return names;
    }

    std::vector<std::wstring> KeyNames(std::wstring_view section) const {
        std::vector<std::wstring> names;
        std::size_t header = FindSection(section);
        if (header == std::wstring::npos) return names;
        for (std::size_t i = header + 1; i < SectionEnd(header); ++i) {
            if (auto key = KeyName(lines_[i])) names.push_back(*key);
        }
        return names;
    }

    void Set(std::wstring_view section, std::wstring_view key, std::wstring_view value) {
        std::wstring line = std::wstring(Trim(key)) + L"=" + std::wstring(value);
        std::size_t header = FindSection(section);
        if (header == std::wstring::npos) {
            lines_.push_back(L"[" + std::wstring(Trim(section)) + L"]");
            lines_.push_back(line);
            return;
        }
        std::size_t existing = FindKey(header, key);
        if (existing != std::wstring::npos) {
            lines_[existing] = line;
            return;
        }
        // After the section's last non-blank line, before any blank lines
        // that part it from the next section.
        std::size_t end = SectionEnd(header);
        while (end > header + 1 && Trim(lines_[end - 1]).empty()) --end;
        lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(end), line);
    }

    void RemoveKey(std::wstring_view section, std::wstring_view key) {
        std::size_t header = FindSection(section);
        if (header == std::wstring::npos) return;
        std::size_t line = FindKey(header, key);
        if (line != std::wstring::npos) {
            lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(line));
        }
    }

    void RemoveSection(std::wstring_view section) {
        std::size_t header = FindSection(section);
        if (header == std::wstring::npos) return;
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(header),
                     lines_.begin() + static_cast<std::ptrdiff_t>(SectionEnd(header)));
    }

private:
    std::vector<std::wstring> lines_;
};

// The separator of a named locale, decoded in that locale's own character
// set; nothing when the system does not know the locale.
std::optional<std::wstring> ThousandsSeparatorOf(const char *name) {
    locale_t locale = newlocale(LC_NUMERIC_MASK | LC_CTYPE_MASK, name, static_cast<locale_t>(0));
    if (!locale) return std::nullopt;
    std::string separator = nl_langinfo_l(THOUSEP, locale);
    locale_t previous = uselocale(locale);
    std::wstring wide(separator.size() + 1, L'\0');
    std::size_t length = std::mbstowcs(wide.data(), separator.c_str(), wide.size());
    uselocale(previous);
    freelocale(locale);
    if (length == static_cast<std::size_t>(-1)) return std::wstring();
    wide.resize(length);
    return wide;
}

// The thousands separator of the user's locale as the environment names
// it, independent of what the process chose with setlocale. Kept per locale
// name once known, since sizes are formatted by the thousand.
std::wstring LocaleThousandsSeparator() {
    const char *name = nullptr;
    for (const char *variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
        const char *value = std::getenv(variable);
        if (value && *value) {
            name = value;
            break;
        }
    }
    if (!name) return std::wstring();
    static std::mutex lock;
    static std::map<std::string, std::wstring> known;
    std::lock_guard<std::mutex> guard(lock);
    auto found = known.find(name);
    if (found != known.end()) return found->second;
    std::optional<std::wstring> separator = ThousandsSeparatorOf(name);
    if (!separator) return std::wstring();
    known.emplace(name, *separator);
    return *separator;
}

bool IsThousandsSeparatorKey(LPCWSTR section, LPCWSTR key) {
    return platform::EqualsNoCase(Trim(section), L"Intl") &&
           platform::EqualsNoCase(Trim(key), L"sThousand");
}

std::wstring DefaultText(LPCWSTR defaultValue) {
    std::wstring_view text = defaultValue ? defaultValue : L"";
    while (!text.empty() && text.back() == L' ') text.remove_suffix(1);
    return std::wstring(text);
}

DWORD CopyValue(std::wstring_view value, LPWSTR buffer, DWORD size) {
    std::size_t count = std::min<std::size_t>(value.size(), size - 1);
    std::wmemcpy(buffer, value.data(), count);
    buffer[count] = L'\0';
    return static_cast<DWORD>(count);
}

// Names one after another, each terminated, and a final terminator; when
// they do not fit, cut to size - 2 characters and closed with two.
DWORD CopyList(const std::vector<std::wstring> &names, LPWSTR buffer, DWORD size) {
    std::wstring list;
    for (const std::wstring &name : names) list += name + L'\0';
    if (list.size() + 1 <= size) {
        std::wmemcpy(buffer, list.data(), list.size());
        buffer[list.size()] = L'\0';
        return static_cast<DWORD>(list.size());
    }
    if (size < 2) {
        buffer[0] = L'\0';
        return 0;
    }
    std::wmemcpy(buffer, list.data(), size - 2);
    buffer[size - 2] = L'\0';
    buffer[size - 1] = L'\0';
    return size - 2;
}

std::mutex &ProfileLock() {
    static std::mutex lock;
    return lock;
}

}  // namespace

DWORD GetProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer,
                        DWORD size) {
    if (!buffer || size == 0) return 0;
    ProfileFile file;
    {
        std::lock_guard<std::mutex> guard(ProfileLock());
        file.Load();
    }
    if (!section) return CopyList(file.SectionNames(), buffer, size);
    if (!key) return CopyList(file.KeyNames(section), buffer, size);
    if (std::optional<std::wstring> value = file.Lookup(section, key)) {
        return CopyValue(*value, buffer, size);
    }
    if (IsThousandsSeparatorKey(section, key)) {
        std::wstring separator = LocaleThousandsSeparator();
        if (!separator.empty()) return CopyValue(separator, buffer, size);
    }
    return CopyValue(DefaultText(defaultValue), buffer, size);
}

UINT GetProfileIntW(LPCWSTR section, LPCWSTR key, INT defaultValue) {
    if (!section || !key) return static_cast<UINT>(defaultValue);
    ProfileFile file;
    {
        std::lock_guard<std::mutex> guard(ProfileLock());
        file.Load();
    }
    std::optional<std::wstring> value = file.Lookup(section, key);
    if (!value) return static_cast<UINT>(defaultValue);
    std::wstring_view text = *value;
    bool negative = !text.empty() && text.front() == L'-';
    if (!text.empty() && (text.front() == L'-' || text.front() == L'+')) text.remove_prefix(1);
    UINT number = 0;
    for (wchar_t c : text) {
        if (c < L'0' || c > L'9') break;
        number = number * 10 + static_cast<UINT>(c - L'0');
    }
    return negative ? 0u - number : number;
}

BOOL WriteProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value) {
    if (!section) {
        // All three null asks to flush a cache, which there is none of.
        if (!key && !value) return TRUE;
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(ProfileLock());
    ProfileFile file;
    if (!file.Load()) return FALSE;
    if (!key) {
        file.RemoveSection(section);
    } else if (!value) {
        file.RemoveKey(section, key);
    } else {
        file.Set(section, key, value);
    }
    return file.Save() ? TRUE : FALSE;
}
