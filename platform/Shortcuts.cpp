#include "platform/Shortcuts.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFile.h"
#include "platform/WinPath.h"
#include "platform/WinProcess.h"

namespace {

namespace fs = std::filesystem;

constexpr wchar_t kFileScheme[] = L"file://";

// ---------------------------------------------------------------------------
// Value escaping of desktop entries

std::wstring EscapeValue(const std::wstring &value) {
    std::wstring escaped;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const wchar_t c = value[i];
        if (c == L'\\') {
            escaped += L"\\\\";
        } else if (c == L'\n') {
            escaped += L"\\n";
        } else if (c == L'\t') {
            escaped += L"\\t";
        } else if (c == L'\r') {
            escaped += L"\\r";
        } else if (c == L' ' && i == 0) {
            escaped += L"\\s";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::wstring UnescapeValue(const std::wstring &value) {
    std::wstring plain;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != L'\\' || i + 1 == value.size()) {
            plain += value[i];
            continue;
        }
        switch (value[++i]) {
            case L's':
                plain += L' ';
                break;
            case L'n':
                plain += L'\n';
                break;
            case L't':
                plain += L'\t';
                break;
            case L'r':
                plain += L'\r';
                break;
            default:
                plain += value[i];  // "\\" and escapes of other keys' syntax
        }
    }
    return plain;
}

// One argument of an Exec key, quoted when it holds a reserved character;
// a percent sign is doubled, since a single one starts a field code.
std::wstring QuoteExecArgument(const std::wstring &argument) {
    static const std::wstring kReserved = L" \t\n\"'\\><~|&;$*?#()`";
    std::wstring doubled;
    for (wchar_t c : argument) doubled += c == L'%' ? std::wstring(L"%%") : std::wstring(1, c);
    if (!argument.empty() && argument.find_first_of(kReserved) == std::wstring::npos) {
        return doubled;
    }
    std::wstring quoted = L"\"";
    for (wchar_t c : doubled) {
        if (c == L'"' || c == L'`' || c == L'$' || c == L'\\') quoted += L'\\';
        quoted += c;
    }
    return quoted + L"\"";
}

// The arguments of an Exec value (already unescaped); field codes such as
// "%f" are dropped, "%%" gives "%".
std::vector<std::wstring> SplitExec(const std::wstring &exec) {
    std::vector<std::wstring> arguments;
    std::wstring current;
    bool inArgument = false;
    bool quoted = false;
    bool fieldCodeOnly = false;
    auto finish = [&] {
        if (inArgument && !fieldCodeOnly) arguments.push_back(current);
        current.clear();
        inArgument = false;
        fieldCodeOnly = false;
    };
    for (std::size_t i = 0; i < exec.size(); ++i) {
        const wchar_t c = exec[i];
        if (quoted) {
            if (c == L'"') {
                quoted = false;
            } else if (c == L'\\' && i + 1 < exec.size()) {
                current += exec[++i];
            } else {
                current += c;
            }
        } else if (c == L' ' || c == L'\t') {
            finish();
        } else if (c == L'"') {
            quoted = inArgument = true;
        } else if (c == L'%' && i + 1 < exec.size()) {
            const wchar_t code = exec[++i];
            if (code == L'%') {
                current += L'%';
            } else if (!inArgument) {
                fieldCodeOnly = true;
            }
            inArgument = true;
        } else {
            current += c;
            inArgument = true;
            fieldCodeOnly = false;
        }
    }
    finish();
    return arguments;
}

// ---------------------------------------------------------------------------
// Reading and writing desktop entries

using DesktopEntry = std::map<std::wstring, std::wstring>;

std::wstring Trimmed(const std::wstring &text) {
    const std::size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring::npos) return L"";
    const std::size_t last = text.find_last_not_of(L" \t\r");
    return text.substr(first, last - first + 1);
}

// The keys of the "Desktop Entry" group, values unescaped; localized keys
// are left out. Nothing for a file that has no such group.
std::optional<DesktopEntry> ReadDesktopEntry(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::wstring text = platform::FromUtf8(bytes);
    DesktopEntry entry;
    bool inGroup = false;
    bool sawGroup = false;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(L'\n', start);
        if (end == std::wstring::npos) end = text.size();
        const std::wstring line = Trimmed(text.substr(start, end - start));
        start = end + 1;
        if (line.empty() || line[0] == L'#') continue;
        if (line[0] == L'[') {
            inGroup = line == L"[Desktop Entry]";
            sawGroup = sawGroup || inGroup;
            continue;
        }
        const std::size_t equals = line.find(L'=');
        if (!inGroup || equals == std::wstring::npos) continue;
        const std::wstring key = Trimmed(line.substr(0, equals));
        if (key.find(L'[') != std::wstring::npos) continue;
        entry.emplace(key, UnescapeValue(Trimmed(line.substr(equals + 1))));
    }
    if (!sawGroup) return std::nullopt;
    return entry;
}

std::wstring Value(const DesktopEntry &entry, const std::wstring &key) {
    auto found = entry.find(key);
    return found == entry.end() ? L"" : found->second;
}

std::wstring PathOrUrl(const std::wstring &url) {
    if (url.compare(0, wcslen(kFileScheme), kFileScheme) != 0) return url;
    std::wstring rest = url.substr(wcslen(kFileScheme));
    // "file://host/path": only the local host is a path here.
    const std::size_t slash = rest.find(L'/');
    if (slash == std::wstring::npos) return url;
    const std::wstring host = rest.substr(0, slash);
    if (!host.empty() && host != L"localhost") return url;
    return platform::DecodeUrlPath(platform::ToUtf8(rest.substr(slash)));
}

std::optional<std::wstring> DesktopTarget(const std::string &path) {
    std::optional<DesktopEntry> entry = ReadDesktopEntry(path);
    if (!entry) return std::nullopt;
    const std::wstring type = Value(*entry, L"Type");
    if (type == L"Link" && !Value(*entry, L"URL").empty()) return PathOrUrl(Value(*entry, L"URL"));
    if (type == L"Application") {
        std::vector<std::wstring> arguments = SplitExec(Value(*entry, L"Exec"));
        if (!arguments.empty()) return arguments.front();
    }
    return std::nullopt;
}

// The end of a chain of symbolic links, absolute, even when it is missing.
std::wstring FollowLinks(const std::string &path) {
    std::error_code error;
    fs::path current = fs::absolute(path, error).lexically_normal();
    constexpr int kMostHops = 40;  // as the kernel allows
    for (int hop = 0; hop < kMostHops; ++hop) {
        fs::path target = fs::read_symlink(current, error);
        if (error) break;
        current =
            (target.is_absolute() ? target : current.parent_path() / target).lexically_normal();
    }
    return platform::FromUtf8(current.string());
}

std::wstring FileUrlOrText(const std::wstring &target) {
    if (!platform::IsAbsolutePath(target)) return target;
    return kFileScheme + platform::FromUtf8(platform::EncodeUrlPath(target));
}

std::wstring EntryName(const std::wstring &name, const std::wstring &filePath) {
    if (!name.empty()) return name;
    std::wstring fileName = platform::FileNamePart(filePath);
    const std::wstring extension = platform::ExtensionPart(fileName);
    if (platform::EqualsNoCase(extension, L".desktop")) fileName.resize(fileName.size() - 8);
    return fileName;
}

std::wstring EntryText(const std::wstring &type, const std::wstring &name,
                       const std::wstring &description, const std::wstring &lastKeys) {
    std::wstring text = L"[Desktop Entry]\nVersion=1.0\nType=" + type + L"\n";
    text += L"Name=" + EscapeValue(name) + L"\n";
    if (!description.empty()) text += L"Comment=" + EscapeValue(description) + L"\n";
    return text + lastKeys;
}

// Writes the whole file next to its place and renames it there, so a reader
// never sees half of it.
bool ReplaceFile(const std::wstring &path, const std::wstring &text, mode_t mode) {
    const std::wstring folder = platform::ContainingFolder(path);
    platform::CreateFolders(folder);
    wchar_t temporary[MAX_PATH];
    if (GetTempFileNameW(folder.c_str(), L"vnk", 0, temporary) == 0) return false;
    const std::string bytes = platform::ToUtf8(text);
    HANDLE file = CreateFileW(temporary, GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    bool done =
        file != INVALID_HANDLE_VALUE &&
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
        written == bytes.size();
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    done = done && chmod(platform::ToUtf8(temporary).c_str(), mode) == 0 &&
           MoveFileExW(temporary, path.c_str(), MOVEFILE_REPLACE_EXISTING);
    if (!done) {
        const DWORD code = GetLastError();
        DeleteFileW(temporary);
        SetLastError(code);
    }
    return done;
}

}  // namespace

namespace platform {

std::string EncodeUrlPath(const std::wstring &path) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    for (unsigned char c : ToUtf8(path)) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                           (c >= '0' && c <= '9') || c == '/' || c == '-' || c == '_' || c == '.' ||
                           c == '~';
        if (plain) {
            encoded += static_cast<char>(c);
        } else {
            encoded += '%';
            encoded += kHex[c >> 4];
            encoded += kHex[c & 0xF];
        }
    }
    return encoded;
}

std::wstring DecodeUrlPath(const std::string &text) {
    auto hexValue = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
            hexValue(text[i + 2]) >= 0) {
            bytes += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            bytes += text[i];
        }
    }
    return FromUtf8(bytes);
}

std::wstring ResolveShortcut(const std::wstring &path) {
    const std::wstring plain = StripLongPathPrefix(path);
    if (plain.empty()) return path;
    const std::string narrow = ToUtf8(plain);
    struct stat info;
    if (lstat(narrow.c_str(), &info) != 0) return path;
    if (S_ISLNK(info.st_mode)) return FollowLinks(narrow);
    if (S_ISREG(info.st_mode) && EndsWithNoCase(plain, L".desktop")) {
        if (std::optional<std::wstring> target = DesktopTarget(narrow)) return *target;
    }
    return path;
}

bool CreateLinkDesktopFile(const std::wstring &linkPath, const std::wstring &target,
                           const std::wstring &name, const std::wstring &description) {
    if (linkPath.empty() || target.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const std::wstring url = L"URL=" + EscapeValue(FileUrlOrText(target)) + L"\n";
    return ReplaceFile(linkPath, EntryText(L"Link", EntryName(name, linkPath), description, url),
                       0644);
}

bool CreateApplicationDesktopFile(const std::wstring &path, const std::wstring &program,
                                  const std::wstring &arguments, const std::wstring &name,
                                  const std::wstring &description) {
    if (path.empty() || program.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    std::wstring exec = QuoteExecArgument(program);
    for (const std::wstring &argument : SplitCommandLine(arguments.c_str())) {
        exec += L" " + QuoteExecArgument(argument);
    }
    const std::wstring keys = L"Exec=" + EscapeValue(exec) + L"\nTerminal=false\n";
    // Launchers on a desktop are trusted only when executable.
    return ReplaceFile(path, EntryText(L"Application", EntryName(name, path), description, keys),
                       0755);
}

}  // namespace platform
