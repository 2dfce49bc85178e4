#include "platform/ShellFileOperation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <new>
#include <vector>

#include "platform/Shortcuts.h"
#include "platform/SpecialFolders.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFile.h"
#include "platform/WinFormat.h"
#include "platform/WinPath.h"

namespace {

namespace fs = std::filesystem;

// The code of the failure just recorded, as SHFileOperationW returns it.
int LastFailure() {
    DWORD code = GetLastError();
    return code != ERROR_SUCCESS ? static_cast<int>(code)
                                 : static_cast<int>(ERROR_INVALID_FUNCTION);
}

// The names of a list in which each is terminated and an empty one ends it.
std::vector<std::wstring> SplitNameList(LPCWSTR list) {
    std::vector<std::wstring> names;
    if (!list) return names;
    for (const wchar_t *name = list; *name; name += wcslen(name) + 1) names.emplace_back(name);
    return names;
}

bool HasWildcards(const std::wstring &path) {
    return platform::FileNamePart(path).find_first_of(L"*?") != std::wstring::npos;
}

bool Exists(const std::wstring &path) { return PathFileExistsW(path.c_str()); }

bool IsFolder(const std::wstring &path) { return PathIsDirectoryW(path.c_str()); }

bool IsLink(const std::wstring &path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

// A folder counts only when it is one itself; a link to a folder is an item.
bool IsRealFolder(const std::wstring &path) { return IsFolder(path) && !IsLink(path); }

bool IsSameItem(const std::wstring &a, const std::wstring &b) {
    return platform::IsSameOrInside(a, b) && platform::IsSameOrInside(b, a);
}

bool IsRoot(const std::wstring &path) { return IsSameItem(path, kPathSepString); }

// The items a source names: itself, or the matches of a wildcard in its
// last part ("." and ".." left out, folders too with FOF_FILESONLY). 0, or
// the code of a folder that cannot be listed; no match is no failure.
int ExpandSource(const std::wstring &source, FILEOP_FLAGS flags, std::vector<std::wstring> &items) {
    items.clear();
    if (!HasWildcards(source)) {
        items.push_back(source);
        return 0;
    }
    const std::size_t cut = source.rfind(kPathSep);
    const std::wstring folder = cut == std::wstring::npos ? L"" : source.substr(0, cut + 1);
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(source.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) {
        return GetLastError() == ERROR_FILE_NOT_FOUND ? 0 : LastFailure();
    }
    do {
        const std::wstring name = data.cFileName;
        if (name == L"." || name == L"..") continue;
        const bool isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
                              !(data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
        if ((flags & FOF_FILESONLY) && isFolder) continue;
        items.push_back(folder + name);
    } while (FindNextFileW(find, &data));
    FindClose(find);
    return 0;
}

// "name - Copy.ext", then "name - Copy (2).ext" and on, as the shell names
// a copy that would collide.
std::wstring CollisionFreeName(const std::wstring &target) {
    const std::wstring folder =
        target.substr(0, target.size() - platform::FileNamePart(target).size());
    const std::wstring name = platform::FileNamePart(target);
    std::wstring extension = IsRealFolder(target) ? L"" : platform::ExtensionPart(name);
    if (extension.size() == name.size()) extension.clear();
    const std::wstring stem = name.substr(0, name.size() - extension.size());
    std::wstring candidate =
        FormatW(L"%s%s - Copy%s", folder.c_str(), stem.c_str(), extension.c_str());
    for (int number = 2; Exists(candidate); ++number) {
        candidate =
            FormatW(L"%s%s - Copy (%d)%s", folder.c_str(), stem.c_str(), number, extension.c_str());
    }
    return candidate;
}

// Moves `source` onto an existing folder `target`, merging their contents.
int MoveMerging(const std::wstring &source, const std::wstring &target);

int MoveOne(const std::wstring &source, const std::wstring &target) {
    if (Exists(target) && IsRealFolder(source) && IsRealFolder(target)) {
        return MoveMerging(source, target);
    }
    const DWORD flags = MOVEFILE_COPY_ALLOWED | (Exists(target) ? MOVEFILE_REPLACE_EXISTING : 0);
    return MoveFileExW(source.c_str(), target.c_str(), flags) ? 0 : LastFailure();
}

int MoveMerging(const std::wstring &source, const std::wstring &target) {
    const std::wstring pattern = platform::JoinPath(source, L"*");
    std::vector<std::wstring> items;
    if (int result = ExpandSource(pattern, 0, items)) return result;
    for (const std::wstring &item : items) {
        const std::wstring into = platform::JoinPath(target, platform::FileNamePart(item));
        if (int result = MoveOne(item, into)) return result;
    }
    return platform::RemoveTree(source) ? 0 : LastFailure();
}

int CheckPair(const std::wstring &source, const std::wstring &target) {
    if (!Exists(source)) return LastFailure();
    if (IsRoot(source)) return DE_ROOTDIR;
    if (IsRealFolder(source) && platform::IsSameOrInside(target, source) &&
        !IsSameItem(target, source)) {
        return DE_DESTSUBTREE;
    }
    if (!Exists(target)) return 0;
    if (IsRealFolder(source) && !IsRealFolder(target)) return DE_FLDDESTISFILE;
    if (!IsRealFolder(source) && IsRealFolder(target)) return DE_FILEDESTISFLD;
    return 0;
}

// Copies or moves one item to the place it is meant to have.
int TransferOne(UINT function, const std::wstring &source, std::wstring target,
                FILEOP_FLAGS flags) {
    const bool collides =
        Exists(target) && (IsSameItem(source, target) || (flags & FOF_RENAMEONCOLLISION));
    if (collides) {
        if (!(flags & FOF_RENAMEONCOLLISION)) return DE_SAMEFILE;
        target = CollisionFreeName(target);
    }
    if (int problem = CheckPair(source, target)) return problem;
    if (!platform::CreateFolders(platform::ContainingFolder(target))) return LastFailure();
    if (function == FO_COPY) return platform::CopyTree(source, target, true) ? 0 : LastFailure();
    return MoveOne(source, target);
}

// Copy and move: an existing folder, a wildcard source or several sources
// onto one destination put the items inside the destination folder.
int Transfer(UINT function, const std::vector<std::wstring> &sources,
             const std::vector<std::wstring> &targets, FILEOP_FLAGS flags) {
    const bool paired = flags & FOF_MULTIDESTFILES;
    if (targets.empty() || (paired && targets.size() != sources.size())) return DE_MANYDEST;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const std::wstring &destination = paired ? targets[i] : targets.front();
        const bool intoFolder =
            IsFolder(destination) || HasWildcards(sources[i]) || (!paired && sources.size() > 1);
        std::vector<std::wstring> items;
        if (int result = ExpandSource(sources[i], flags, items)) return result;
        if (intoFolder && !items.empty() && !platform::CreateFolders(destination))
            return LastFailure();
        for (const std::wstring &item : items) {
            const std::wstring target =
                intoFolder ? platform::JoinPath(destination, platform::FileNamePart(item))
                           : destination;
            if (int result = TransferOne(function, item, target, flags)) return result;
        }
    }
    return 0;
}

int Delete(const std::vector<std::wstring> &sources, FILEOP_FLAGS flags) {
    for (const std::wstring &source : sources) {
        std::vector<std::wstring> items;
        if (int result = ExpandSource(source, flags, items)) return result;
        for (const std::wstring &item : items) {
            if (!Exists(item)) return LastFailure();
            if (IsRoot(item)) return DE_ROOTDIR;
            const BOOL done =
                (flags & FOF_ALLOWUNDO) ? platform::MoveToTrash(item) : platform::RemoveTree(item);
            if (!done) return LastFailure();
        }
    }
    return 0;
}

int Rename(const std::vector<std::wstring> &sources, const std::vector<std::wstring> &targets) {
    if (sources.size() != 1 || targets.size() != 1) return DE_MANYSRC1DEST;
    const std::wstring &source = sources.front();
    const std::wstring &target = targets.front();
    if (!IsSameItem(platform::ContainingFolder(source), platform::ContainingFolder(target))) {
        return DE_DIFFDIR;
    }
    return MoveFileExW(source.c_str(), target.c_str(), 0) ? 0 : LastFailure();
}

int RunOperation(const SHFILEOPSTRUCTW &operation) {
    const std::vector<std::wstring> sources = SplitNameList(operation.pFrom);
    if (sources.empty()) return DE_INVALIDFILES;
    std::vector<std::wstring> targets = SplitNameList(operation.pTo);
    if (targets.empty() && operation.wFunc != FO_DELETE) {
        wchar_t current[platform::kPathBufferSize];
        DWORD length = GetCurrentDirectoryW(platform::kPathBufferSize, current);
        if (length == 0 || length >= platform::kPathBufferSize) return LastFailure();
        targets.emplace_back(current);
    }
    switch (operation.wFunc) {
        case FO_COPY:
        case FO_MOVE:
            return Transfer(operation.wFunc, sources, targets, operation.fFlags);
        case FO_DELETE:
            return Delete(sources, operation.fFlags);
        case FO_RENAME:
            return Rename(sources, targets);
        default:
            return ERROR_INVALID_PARAMETER;
    }
}

// ---------------------------------------------------------------------------
// Trash

std::wstring DeletionDate() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return FormatW(L"%04d-%02d-%02dT%02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                   local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}

std::string TrashInfoText(const std::string &originalPath) {
    return "[Trash Info]\nPath=" + platform::EncodeUrlPath(platform::FromUtf8(originalPath)) +
           "\nDeletionDate=" + platform::ToUtf8(DeletionDate()) + "\n";
}

// The name under which an item lies in the trash: its own, then
// "stem.2.ext", "stem.3.ext", ... Long names are cut so that the info
// file's name still fits the file system.
std::wstring TrashName(const std::wstring &name, int number) {
    constexpr std::size_t kLongestName = 200;  // bytes, leaving room for ".trashinfo"
    std::wstring stem = name;
    std::wstring extension = platform::ExtensionPart(name);
    if (extension.size() == name.size() || extension.size() > 32) extension.clear();
    stem.resize(name.size() - extension.size());
    while (!stem.empty() && platform::ToUtf8(stem + extension).size() > kLongestName) {
        stem.pop_back();
    }
    if (number == 1) return stem + extension;
    return FormatW(L"%s.%d%s", stem.c_str(), number, extension.c_str());
}

bool WriteNewFile(const std::wstring &path, const std::string &bytes) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const bool done =
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
        written == bytes.size();
    const DWORD code = GetLastError();
    CloseHandle(file);
    if (!done) {
        DeleteFileW(path.c_str());
        SetLastError(code);
    }
    return done;
}

bool PrepareTrash(const std::wstring &trash) {
    return platform::MakePrivateFolder(trash) &&
           platform::MakePrivateFolder(platform::JoinPath(trash, L"files")) &&
           platform::MakePrivateFolder(platform::JoinPath(trash, L"info"));
}

// Claims a name in the trash by creating its info file, then moves the item
// in. `infoPath` is the path the info file records.
BOOL MoveIntoTrash(const std::wstring &item, const std::wstring &trash, const std::string &infoPath,
                   bool copyAllowed) {
    const std::wstring name = platform::FileNamePart(item);
    const std::string info = TrashInfoText(infoPath);
    for (int number = 1; number < 10000; ++number) {
        const std::wstring entry = TrashName(name, number);
        const std::wstring stored = platform::JoinPath(platform::JoinPath(trash, L"files"), entry);
        const std::wstring infoFile =
            platform::JoinPath(platform::JoinPath(trash, L"info"), entry + L".trashinfo");
        if (Exists(stored)) continue;
        if (!WriteNewFile(infoFile, info)) {
            if (GetLastError() == ERROR_FILE_EXISTS) continue;
            return FALSE;
        }
        const DWORD flags = copyAllowed ? MOVEFILE_COPY_ALLOWED : 0;
        if (MoveFileExW(item.c_str(), stored.c_str(), flags)) return TRUE;
        const DWORD code = GetLastError();
        DeleteFileW(infoFile.c_str());
        SetLastError(code);
        return FALSE;
    }
    SetLastError(ERROR_FILE_EXISTS);
    return FALSE;
}

// The item's absolute path, its folder resolved but not the item itself,
// so a link is trashed as the link.
std::wstring AbsoluteItemPath(const std::wstring &path) {
    const std::wstring trimmed = platform::WithoutTrailingSeparator(path);
    std::error_code error;
    fs::path absolute = fs::absolute(platform::ToUtf8(trimmed), error);
    if (error) return trimmed;
    fs::path folder = fs::weakly_canonical(absolute.parent_path(), error);
    if (error) return platform::FromUtf8(absolute.string());
    return platform::FromUtf8((folder / absolute.filename()).string());
}

bool DeviceOf(const std::wstring &path, dev_t &device) {
    struct stat info;
    if (lstat(platform::ToUtf8(path).c_str(), &info) != 0) return false;
    device = info.st_dev;
    return true;
}

// The top folder of the mount that holds `item`; empty when the item is
// itself the top of its mount.
std::wstring MountTop(const std::wstring &item, dev_t device) {
    std::wstring top = platform::ContainingFolder(item);
    dev_t folderDevice = 0;
    if (!DeviceOf(top, folderDevice) || folderDevice != device) return L"";
    while (top != kPathSepString) {
        const std::wstring up = platform::ContainingFolder(top);
        if (!DeviceOf(up, folderDevice) || folderDevice != device) break;
        top = up;
    }
    return top;
}

// The trash at the top of a mount, as the freedesktop.org rules allow:
// $topdir/.Trash-$uid, private to the user. It records paths relative to
// the top.
BOOL MoveIntoMountTrash(const std::wstring &item, const std::wstring &top) {
    const std::wstring trash =
        platform::JoinPath(top, FormatW(L".Trash-%u", static_cast<unsigned>(geteuid())));
    if (!PrepareTrash(trash)) return FALSE;
    const std::wstring relative = item.substr(platform::WithTrailingSeparator(top).size());
    return MoveIntoTrash(item, trash, platform::ToUtf8(relative), false);
}

// Items on other mounts go to that mount's own trash, except under
// VARNICK_HOME, where nothing may land outside the home.
bool MountTrashAllowed() {
    const char *home = std::getenv("VARNICK_HOME");
    return !home || !*home;
}

}  // namespace

int SHFileOperationW(LPSHFILEOPSTRUCTW fileOp) {
    if (!fileOp) return ERROR_INVALID_PARAMETER;
    fileOp->fAnyOperationsAborted = FALSE;
    fileOp->hNameMappings = nullptr;
    try {
        return RunOperation(*fileOp);
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

namespace platform {

std::wstring TrashFolder() {
    const std::wstring dataHome = SpecialFolder(CSIDL_LOCAL_APPDATA, false);
    return dataHome.empty() ? L"" : JoinPath(dataHome, L"Trash");
}

BOOL MoveToTrash(const std::wstring &path) {
    const std::wstring item = AbsoluteItemPath(StripLongPathPrefix(path));
    dev_t itemDevice = 0;
    if (!DeviceOf(item, itemDevice)) {
        SetLastError(IsFolder(platform::ContainingFolder(item)) ? ERROR_FILE_NOT_FOUND
                                                                : ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    const std::wstring trash = TrashFolder();
    if (trash.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    dev_t trashDevice = 0;
    if (!platform::CreateFolders(platform::ContainingFolder(trash)) || !PrepareTrash(trash) ||
        !DeviceOf(trash, trashDevice)) {
        return FALSE;
    }
    // Renaming can still meet another mount of the same file system, hence the copy.
    if (itemDevice == trashDevice) return MoveIntoTrash(item, trash, ToUtf8(item), true);
    if (MountTrashAllowed()) {
        const std::wstring top = MountTop(item, itemDevice);
        if (!top.empty() && MoveIntoMountTrash(item, top)) return TRUE;
    }
    return MoveIntoTrash(item, trash, ToUtf8(item), true);
}

}  // namespace platform
