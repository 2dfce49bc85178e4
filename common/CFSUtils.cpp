#include "CFSUtils.h"

#include <cwchar>
#include <string>

#include "CAppUtils.h"
#include "platform/Shortcuts.h"
#include "platform/Win32.h"

namespace {

constexpr std::size_t kPathChars = platform::kPathBufferSize;
constexpr unsigned kMyArchivesFolderName = 321;
constexpr int kUniqueNameRounds = 101;

using PathBuffer = wchar_t[kPathChars];

std::wstring Text(const wchar_t *text) { return text ? text : L""; }

// A function's static result: a path buffer. A text that does not fit
// leaves it empty, as wcscpy_s does.
const wchar_t *Keep(PathBuffer &buffer, const std::wstring &text) {
    wcscpy_s(buffer, kPathChars, text.c_str());
    return buffer;
}

DWORD AttributesOf(const wchar_t *path) {
    return path ? GetFileAttributesW(path) : INVALID_FILE_ATTRIBUTES;
}

bool HasAttribute(const wchar_t *path, DWORD bits) {
    DWORD attributes = AttributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & bits) != 0;
}

bool StandardInfo(const wchar_t *path, WIN32_FILE_ATTRIBUTE_DATA &info) {
    return path && GetFileAttributesExW(path, GetFileExInfoStandard, &info);
}

class FindHandle {
public:
    FindHandle(const std::wstring &pattern, WIN32_FIND_DATAW &data)
        : handle_(FindFirstFileW(pattern.c_str(), &data)) {}
    ~FindHandle() {
        if (Valid()) FindClose(handle_);
    }
    FindHandle(const FindHandle &) = delete;
    FindHandle &operator=(const FindHandle &) = delete;
    bool Valid() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
    bool Next(WIN32_FIND_DATAW &data) { return FindNextFileW(handle_, &data) != FALSE; }

private:
    HANDLE handle_;
};

bool IsDotEntry(const wchar_t *name) {
    return std::wcscmp(name, L".") == 0 || std::wcscmp(name, L"..") == 0;
}

// The name list of the shell's file operation: each name terminated, and
// the list ended by an empty name.
std::wstring ShellNameList(const std::wstring &path) { return path + L'\0'; }

// The short form that keeps paths within the shell call's limit; the path
// as given when there is none (a target that does not exist yet).
std::wstring ShortFormOf(const std::wstring &path) {
    PathBuffer shortPath;
    DWORD length = GetShortPathNameW(path.c_str(), shortPath, kPathChars);
    return length > 0 && length < kPathChars ? std::wstring(shortPath) : path;
}

bool RunShellOperation(UINT function, const std::wstring &from, const std::wstring &to,
                       FILEOP_FLAGS flags) {
    if (from.empty()) return false;
    std::wstring fromList = ShellNameList(from);
    std::wstring toList = ShellNameList(to);
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = function;
    operation.pFrom = fromList.c_str();
    operation.pTo = to.empty() ? nullptr : toList.c_str();
    operation.fFlags = flags;
    return SHFileOperationW(&operation) == 0;
}

bool ShellExecuteSucceeded(LPCWSTR verb, const wchar_t *file, const wchar_t *parameters,
                           const wchar_t *directory) {
    if (!file || !*file) return false;
    HINSTANCE result = ShellExecuteW(nullptr, verb, file, parameters, directory, SW_SHOWNORMAL);
    return reinterpret_cast<LONG_PTR>(result) > 32;
}

std::wstring SpecialFolderPath(int csidl, bool create) {
    PathBuffer folder;
    return SHGetSpecialFolderPathW(nullptr, folder, csidl, create ? TRUE : FALSE)
               ? std::wstring(folder)
               : std::wstring();
}

std::wstring WithoutOneTrailingSeparator(std::wstring path) {
    if (!path.empty() && path.back() == kPathSep) path.pop_back();
    return path;
}

std::wstring NameWithoutExtension(const std::wstring &name) {
    std::size_t dot = name.rfind(L'.');
    return dot == std::wstring::npos ? name : name.substr(0, dot);
}

}  // namespace

// ------------------------------------------------------------------ tests

bool CFSUtils::FileExists(const wchar_t *path) {
    return AttributesOf(path) != INVALID_FILE_ATTRIBUTES;
}

bool CFSUtils::FolderExists(const wchar_t *path) {
    return HasAttribute(path, FILE_ATTRIBUTE_DIRECTORY);
}

bool CFSUtils::IsFolder(const wchar_t *path) {
    return (AttributesOf(path) & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool CFSUtils::IsReadOnly(const wchar_t *path) {
    return HasAttribute(path, FILE_ATTRIBUTE_READONLY);
}

bool CFSUtils::IsSystemOrHidden(const wchar_t *path) {
    return HasAttribute(path, FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_HIDDEN);
}

bool CFSUtils::IsFolderWriteable(const wchar_t *folder) {
    if (!folder || !*folder) return false;
    std::wstring probe = Text(folder) + kPathSep + L"__swt__.out";
    HANDLE file =
        CreateFileW(probe.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE || file == nullptr) return false;
    CloseHandle(file);
    DeleteShellItem(probe.c_str(), true);
    return true;
}

bool CFSUtils::CheckFileExtension(const wchar_t *path, const wchar_t *extension) {
    if (!path || !extension) return false;
    return platform::EndsWithNoCase(path, extension);
}

// ------------------------------------------------------------------ facts

DWORD CFSUtils::GetFileSize(const wchar_t *path) {
    WIN32_FILE_ATTRIBUTE_DATA info;
    return StandardInfo(path, info) ? info.nFileSizeLow : 0;
}

std::uint64_t CFSUtils::GetFileSize64(const wchar_t *path) {
    WIN32_FILE_ATTRIBUTE_DATA info;
    if (!StandardInfo(path, info)) return 0;
    return (static_cast<std::uint64_t>(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
}

FILETIME CFSUtils::GetFileDate(const wchar_t *path) {
    WIN32_FILE_ATTRIBUTE_DATA info;
    return StandardInfo(path, info) ? info.ftLastWriteTime : FILETIME{0, 0};
}

DWORD CFSUtils::GetFileCount(const wchar_t *folder, bool recurse) {
    if (!folder || !*folder) return 0;
    std::wstring base = folder;
    WIN32_FIND_DATAW entry;
    FindHandle find(base + kPathSep + L"*.*", entry);
    if (!find.Valid()) return 0;
    DWORD count = 0;
    do {
        if (IsDotEntry(entry.cFileName)) continue;
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            // A linked folder is not entered: it may lead back up the tree.
            if (recurse && !(entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
                std::wstring sub = base + kPathSep + entry.cFileName;
                count += GetFileCount(sub.c_str(), true);
            }
        } else {
            ++count;
        }
    } while (find.Next(entry));
    return count;
}

int CFSUtils::GetIconIndex(const wchar_t *, UINT) { return 0; }

int CFSUtils::GetFolderIconIndex(const wchar_t *) { return 0; }

int CFSUtils::GetFolderIconSelIndex(const wchar_t *) { return 0; }

// -------------------------------------------------------------- path text

const wchar_t *CFSUtils::Extension(const wchar_t *path) {
    static PathBuffer result;
    return Keep(result, path ? std::wstring(PathFindExtensionW(path)) : std::wstring());
}

const wchar_t *CFSUtils::RemoveFileExtension(const wchar_t *path) {
    static PathBuffer result;
    Keep(result, Text(path));
    if (platform::FileNamePart(result).empty()) return result;
    if (wchar_t *dot = std::wcsrchr(result, L'.')) *dot = L'\0';
    return result;
}

const wchar_t *CFSUtils::ExtractFileName(const wchar_t *path) {
    static PathBuffer result;
    return Keep(result, platform::FileNamePart(Text(path)));
}

const wchar_t *CFSUtils::ExtractFilePath(const wchar_t *path) {
    static PathBuffer result;
    return Keep(result, platform::ParentPath(Text(path)));
}

const wchar_t *CFSUtils::CanonLocation(const wchar_t *path) {
    static PathBuffer result;
    if (!path || !*path) return Keep(result, L"");
    PathBuffer full;
    DWORD length = GetFullPathNameW(path, kPathChars, full, nullptr);
    if (length == 0 || length >= kPathChars) return Keep(result, L"");
    return Keep(result, platform::CaseForStorage(platform::WithoutTrailingSeparator(full)));
}

const wchar_t *CFSUtils::ConvertToSlashes(const wchar_t *path) {
    static PathBuffer result;
    std::wstring text = Text(path);
    for (wchar_t &c : text) {
        if (c == kPathSep) c = L'/';
    }
    return Keep(result, text);
}

const wchar_t *CFSUtils::ConvertToBSlashes(const wchar_t *path) {
    static PathBuffer result;
    std::wstring text = Text(path);
    for (wchar_t &c : text) {
        if (c == L'/') c = kPathSep;
    }
    return Keep(result, text);
}

const wchar_t *CFSUtils::WrapInDoubleQuotes(const wchar_t *text) {
    static PathBuffer result;
    return Keep(result, L"\"" + Text(text) + L"\"");
}

const wchar_t *CFSUtils::GetLongFileName(const wchar_t *path) {
    static PathBuffer result;
    if (!path) return Keep(result, L"");
    PathBuffer longPath;
    DWORD length = GetLongPathNameW(path, longPath, kPathChars);
    return Keep(result, length > 0 && length < kPathChars ? longPath : path);
}

// ---------------------------------------------------------------- folders

bool CFSUtils::ForceDirectories(const wchar_t *path) {
    std::wstring text = Text(path);
    if (text.size() < 4 || FolderExists(text.c_str())) return true;
    // "a/b/" names the same folder as "a/b"; its parent is "a".
    std::wstring folder = platform::WithoutTrailingSeparator(text);
    std::wstring parent = platform::ParentPath(folder);
    if (parent != folder) ForceDirectories(parent.c_str());
    return ::CreateDirectoryW(folder.c_str(), nullptr) != FALSE;
}

bool CFSUtils::ShellGetFolderPath(int csidl, wchar_t *buffer) {
    return buffer && SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, buffer) == S_OK;
}

const wchar_t *CFSUtils::GetTempFolder() {
    static PathBuffer result;
    PathBuffer temp;
    DWORD length = GetTempPathW(kPathChars, temp);
    if (length == 0 || length >= kPathChars) return Keep(result, L"");
    Keep(result, GetLongFileName(temp));
    if (!*result) Keep(result, temp);
    return Keep(result, WithoutOneTrailingSeparator(result));
}

const wchar_t *CFSUtils::GetMyDocumentsFolder() {
    static PathBuffer result;
    return Keep(result, SpecialFolderPath(CSIDL_PERSONAL, false));
}

const wchar_t *CFSUtils::GetMyArchivesFolder() {
    static PathBuffer result;
    std::wstring documents = GetMyDocumentsFolder();
    if (documents.empty()) return Keep(result, L"");
    return Keep(result,
                documents + kPathSep + CAppUtils::GetResString(nullptr, kMyArchivesFolderName));
}

// ----------------------------------------------------------- unique names

const wchar_t *CFSUtils::CreateUniqueFileName(const wchar_t *folder, const wchar_t *name) {
    static PathBuffer result;
    if (!folder || !*folder) return Keep(result, L"");
    std::wstring base = WithoutOneTrailingSeparator(folder);
    if (!FileExists(base.c_str())) ForceDirectories(base.c_str());
    // The tick count goes through "%i", as it always has: above 2^31 ms of
    // uptime it prints negative, which is still a unique prefix.
    int ticks = static_cast<int>(GetTickCount());
    std::wstring file = Text(name);
    std::wstring candidate = FormatW(L"%s%c%i_%s", base.c_str(), kPathSep, ticks, file.c_str());
    for (int counter = 0; counter < kUniqueNameRounds && FileExists(candidate.c_str()); ++counter) {
        candidate = FormatW(L"%s%c%i%i_%s", base.c_str(), kPathSep, ticks, counter, file.c_str());
    }
    return Keep(result, candidate);
}

const wchar_t *CFSUtils::CreateUniqueFolder(const wchar_t *path, int number) {
    static PathBuffer result;
    if (!path || !*path) return Keep(result, L"");
    std::wstring candidate = FormatW(L"%s_%d", path, number);
    while (FileExists(candidate.c_str())) candidate = FormatW(L"%s_%d", path, ++number);
    ForceDirectories(candidate.c_str());
    return Keep(result, candidate);
}

const wchar_t *CFSUtils::CreateUniqueFolder(const wchar_t *parent, const wchar_t *name) {
    static PathBuffer result;
    if (!parent || !*parent || !name || !*name) return Keep(result, L"");
    std::wstring candidate = std::wstring(parent) + kPathSep + NameWithoutExtension(name);
    if (!FileExists(candidate.c_str())) {
        ForceDirectories(candidate.c_str());
        return Keep(result, candidate);
    }
    return Keep(result, CreateUniqueFolder(candidate.c_str(), 1));
}

// ---------------------------------------------------------------- changes

bool CFSUtils::TouchFile(const wchar_t *path) {
    if (!path || !*path) return false;
    HANDLE file = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE || file == nullptr) return false;
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    BOOL done = SetFileTime(file, nullptr, nullptr, &now);
    CloseHandle(file);
    return done != FALSE;
}

bool CFSUtils::SetArchiveBit(const wchar_t *path, bool on) {
    if (!path || !*path) return false;
    return (on ? platform::SetArchiveBit(path) : platform::ClearArchiveBit(path)) != FALSE;
}

bool CFSUtils::DeleteFileW(const wchar_t *path, bool permanent) {
    if (!FileExists(path)) return false;
    return DeleteShellItem(ShortFormOf(path).c_str(), permanent);
}

bool CFSUtils::DeleteFolder(const wchar_t *path, bool permanent) {
    if (!FolderExists(path)) return false;
    return DeleteShellItem(path, permanent);
}

bool CFSUtils::DeleteShellItem(const wchar_t *path, bool permanent) {
    return RunShellOperation(FO_DELETE, Text(path), L"", permanent ? 0 : FOF_ALLOWUNDO);
}

bool CFSUtils::CopyShellItem(const wchar_t *from, const wchar_t *to, bool silent) {
    return RunShellOperation(FO_COPY, Text(from), Text(to), silent ? FOF_SILENT : 0);
}

bool CFSUtils::MoveShellItem(const wchar_t *from, const wchar_t *to) {
    std::wstring folder = ExtractFilePath(to);
    if (!FileExists(folder.c_str())) ForceDirectories(folder.c_str());
    return RunShellOperation(FO_MOVE, ShortFormOf(Text(from)), ShortFormOf(Text(to)),
                             FOF_SILENT | FOF_NOCONFIRMATION);
}

// ------------------------------------------------------- starting things

bool CFSUtils::LaunchURL(const wchar_t *url) {
    return ShellExecuteSucceeded(L"open", url, nullptr, nullptr);
}

bool CFSUtils::LaunchProgram(const wchar_t *program, const wchar_t *arguments) {
    return ShellExecuteSucceeded(L"open", program, arguments, nullptr);
}

bool CFSUtils::OpenFile(const wchar_t *path) {
    std::wstring folder = ExtractFilePath(path);
    return ShellExecuteSucceeded(L"open", path, nullptr, folder.empty() ? nullptr : folder.c_str());
}

bool CFSUtils::OpenExplorerToFolder(const wchar_t *path) {
    return ShellExecuteSucceeded(L"explore", path, nullptr, nullptr);
}

bool CFSUtils::CreateDesktopShortcut(const wchar_t *target, const wchar_t *name,
                                     const wchar_t *description, int flags) {
    if (!target || !*target || !name || !*name) return false;
    std::wstring desktop = SpecialFolderPath(CSIDL_DESKTOPDIRECTORY, true);
    if (desktop.empty()) return false;
    std::wstring link = desktop + kPathSep + name + L".desktop";
    if (flags != 0) {
        return platform::CreateApplicationDesktopFile(link, target, L"", name, Text(description));
    }
    return platform::CreateLinkDesktopFile(link, target, name, Text(description));
}

bool CFSUtils::CreateStartupShortcut(const wchar_t *target) {
    if (!target || !*target) return false;
    std::wstring startup = SpecialFolderPath(CSIDL_STARTUP, true);
    if (startup.empty()) return false;
    std::wstring name = NameWithoutExtension(platform::FileNamePart(target));
    if (name.empty()) return false;
    return platform::CreateApplicationDesktopFile(startup + kPathSep + name + L".desktop", target,
                                                  L"", name, L"");
}

namespace {

// The wait cursor for the life of a scope, then the one before it.
class WaitCursor {
public:
    WaitCursor() : previous_(SetCursor(LoadCursorW(nullptr, IDC_WAIT))) {}
    ~WaitCursor() { SetCursor(previous_); }
    WaitCursor(const WaitCursor &) = delete;
    WaitCursor &operator=(const WaitCursor &) = delete;

private:
    HCURSOR previous_;
};

}  // namespace

void CFSUtils::MailFile(const wchar_t *path) {
    WaitCursor wait;
    // A 0 goes on and anything else stops, the reverse of what the value
    // usually means; kept as the program has always read it.
    if (GetProfileIntW(L"Mail", L"MAPI", 0) != 0) return;
    std::wstring arguments;
    if (path && *path) arguments = L"--attach " + platform::QuoteArgument(path);
    ShellExecuteW(nullptr, L"open", L"xdg-email", arguments.c_str(), nullptr, SW_SHOWNORMAL);
}
