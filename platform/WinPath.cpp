#include "platform/WinPath.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <fstream>

#include "platform/WideText.h"
#include "platform/WinError.h"

namespace {

constexpr std::wstring_view kLongPathPrefix = L"\\\\?\\";

std::size_t LastSeparator(std::wstring_view path) { return path.rfind(kPathSep); }

// Copies text into a caller's buffer of `size` characters.
void CopyOut(std::wstring_view text, wchar_t *buffer) {
    std::wmemcpy(buffer, text.data(), text.size());
    buffer[text.size()] = L'\0';
}

// The result convention of the Get...PathName calls: the length copied, or
// the size needed with the terminator when it does not fit.
DWORD ReturnPath(std::wstring_view text, wchar_t *buffer, DWORD size) {
    if (!buffer || text.size() >= size) return static_cast<DWORD>(text.size() + 1);
    CopyOut(text, buffer);
    return static_cast<DWORD>(text.size());
}

}  // namespace

namespace platform {

bool PathsAreCaseInsensitive() { return false; }

std::wstring CaseForStorage(std::wstring_view path) {
    return PathsAreCaseInsensitive() ? ToLower(path) : std::wstring(path);
}

bool IsPathSeparator(wchar_t c) { return c == kPathSep; }

bool HasTrailingSeparator(std::wstring_view path) {
    return !path.empty() && IsPathSeparator(path.back());
}

bool IsAbsolutePath(std::wstring_view path) {
    return !path.empty() && IsPathSeparator(path.front());
}

std::wstring DrivePart(std::wstring_view) { return std::wstring(); }

std::wstring StripLongPathPrefix(std::wstring_view path) {
    if (path.substr(0, kLongPathPrefix.size()) == kLongPathPrefix) {
        path.remove_prefix(kLongPathPrefix.size());
    }
    return std::wstring(path);
}

std::wstring JoinPath(std::wstring_view base, std::wstring_view name) {
    if (base.empty()) return std::wstring(name);
    if (name.empty()) return std::wstring(base);
    std::wstring joined(base);
    while (joined.size() > 1 && HasTrailingSeparator(joined)) joined.pop_back();
    while (!name.empty() && IsPathSeparator(name.front())) name.remove_prefix(1);
    if (!HasTrailingSeparator(joined)) joined += kPathSep;
    joined += name;
    return joined;
}

std::wstring ParentPath(std::wstring_view path) {
    std::size_t cut = LastSeparator(path);
    return cut == std::wstring_view::npos ? std::wstring() : std::wstring(path.substr(0, cut));
}

std::wstring FileNamePart(std::wstring_view path) {
    std::size_t cut = LastSeparator(path);
    return std::wstring(cut == std::wstring_view::npos ? path : path.substr(cut + 1));
}

std::wstring ExtensionPart(std::wstring_view path) {
    std::wstring name = FileNamePart(path);
    std::size_t dot = name.rfind(L'.');
    return dot == std::wstring::npos ? std::wstring() : name.substr(dot);
}

std::wstring WithTrailingSeparator(std::wstring_view path) {
    std::wstring out(path);
    if (!out.empty() && !HasTrailingSeparator(out)) out += kPathSep;
    return out;
}

std::wstring WithoutTrailingSeparator(std::wstring_view path) {
    std::wstring out(path);
    while (out.size() > 1 && HasTrailingSeparator(out)) out.pop_back();
    return out;
}

std::wstring NormalizePath(std::wstring_view path) {
    const bool absolute = IsAbsolutePath(path);
    const bool trailing = HasTrailingSeparator(path);
    std::vector<std::wstring_view> parts;
    std::size_t pos = 0;
    while (pos <= path.size()) {
        std::size_t end = path.find(kPathSep, pos);
        if (end == std::wstring_view::npos) end = path.size();
        std::wstring_view part = path.substr(pos, end - pos);
        if (part == L"..") {
            if (!parts.empty() && parts.back() != L"..") {
                parts.pop_back();
            } else if (!absolute) {
                parts.push_back(part);
            }
        } else if (!part.empty() && part != L".") {
            parts.push_back(part);
        }
        pos = end + 1;
    }
    std::wstring out = absolute ? std::wstring(1, kPathSep) : std::wstring();
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out += kPathSep;
        out += parts[i];
    }
    if (trailing && !parts.empty()) out += kPathSep;
    return out;
}

bool MatchesWildcard(std::wstring_view name, std::wstring_view pattern) {
    if (pattern == L"*.*") return true;
    // Greedy matching that backtracks to the last "*": linear in practice and
    // never deeper than one level, whatever the pattern.
    std::size_t n = 0, p = 0;
    std::size_t starPattern = std::wstring_view::npos, starName = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == L'*') {
            starPattern = p++;
            starName = n;
        } else if (p < pattern.size() &&
                   (pattern[p] == L'?' || FoldLower(pattern[p]) == FoldLower(name[n]))) {
            ++p;
            ++n;
        } else if (starPattern != std::wstring_view::npos) {
            p = starPattern + 1;
            n = ++starName;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == L'*') ++p;
    return p == pattern.size();
}

namespace {

struct MountEntry {
    std::wstring mountPoint;
    std::string type;
};

// /proc/self/mounts writes blanks, tabs, line feeds and backslashes of a
// mount point as three-digit octal escapes.
std::string UnescapeMountField(const std::string &field) {
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const std::string digits = field.substr(i + 1, 3);
            if (digits.size() == 3 && std::all_of(digits.begin(), digits.end(),
                                                  [](char c) { return c >= '0' && c <= '7'; })) {
                out += static_cast<char>(std::stoi(digits, nullptr, 8));
                i += 3;
                continue;
            }
        }
        out += field[i];
    }
    return out;
}

std::vector<MountEntry> ReadMounts() {
    std::vector<MountEntry> mounts;
    std::ifstream in("/proc/self/mounts");
    std::string device, mountPoint, type, rest;
    while (in >> device >> mountPoint >> type) {
        std::getline(in, rest);
        mounts.push_back({FromUtf8(UnescapeMountField(mountPoint)), type});
    }
    return mounts;
}

bool IsOneOf(const std::string &type, std::initializer_list<const char *> names) {
    return std::any_of(names.begin(), names.end(), [&](const char *n) { return type == n; });
}

bool IsDiskFileSystem(const std::string &type) {
    return IsOneOf(type, {"ext2",     "ext3",  "ext4",   "xfs",      "btrfs", "f2fs",   "jfs",
                          "reiserfs", "zfs",   "nilfs2", "bcachefs", "vfat",  "msdos",  "exfat",
                          "ntfs",     "ntfs3", "hfs",    "hfsplus",  "ufs",   "fuseblk"});
}

bool IsRemoteFileSystem(const std::string &type) {
    return IsOneOf(type, {"nfs", "nfs4", "cifs", "smb3", "smbfs", "9p", "ceph", "glusterfs",
                          "fuse.sshfs", "afs", "davfs", "fuse.davfs"});
}

// The block device behind a folder says "removable" in sysfs for media
// such as USB sticks and card readers; a partition asks its whole disk.
bool IsOnRemovableDevice(const std::string &folder) {
    struct stat info {};
    if (stat(folder.c_str(), &info) != 0) return false;
    const std::string device = "/sys/dev/block/" + std::to_string(major(info.st_dev)) + ":" +
                               std::to_string(minor(info.st_dev));
    for (const char *candidate : {"/removable", "/../removable"}) {
        std::ifstream in(device + candidate);
        int flag = 0;
        if (in >> flag) return flag == 1;
    }
    return false;
}

UINT DriveTypeOfMount(const MountEntry &mount) {
    if (mount.mountPoint == kPathSepString) return DRIVE_FIXED;
    const std::string folder = ToUtf8(mount.mountPoint);
    struct stat info {};
    if (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return DRIVE_NO_ROOT_DIR;
    if (IsOneOf(mount.type, {"iso9660", "udf"})) return DRIVE_CDROM;
    if (IsOneOf(mount.type, {"tmpfs", "ramfs"})) return DRIVE_RAMDISK;
    if (IsRemoteFileSystem(mount.type)) return DRIVE_REMOTE;
    if (IsDiskFileSystem(mount.type)) {
        return IsOnRemovableDevice(folder) ? DRIVE_REMOVABLE : DRIVE_FIXED;
    }
    return DRIVE_UNKNOWN;
}

}  // namespace

std::vector<std::wstring> FixedDrives() {
    // A folder mounted over again shows its last mount; the order is that of
    // the first one.
    std::vector<MountEntry> visible;
    for (MountEntry &mount : ReadMounts()) {
        auto same = std::find_if(visible.begin(), visible.end(), [&](const MountEntry &m) {
            return m.mountPoint == mount.mountPoint;
        });
        if (same == visible.end()) {
            visible.push_back(std::move(mount));
        } else {
            same->type = mount.type;
        }
    }
    std::vector<std::wstring> drives{kPathSepString};
    for (const MountEntry &mount : visible) {
        if (mount.mountPoint != kPathSepString && DriveTypeOfMount(mount) == DRIVE_FIXED) {
            drives.push_back(mount.mountPoint);
        }
    }
    return drives;
}

}  // namespace platform

wchar_t *PathFindExtensionW(const wchar_t *path) {
    if (!path) return nullptr;
    const wchar_t *dot = nullptr;
    const wchar_t *p = path;
    for (; *p; ++p) {
        if (*p == L'.') {
            dot = p;
        } else if (*p == kPathSep || *p == L' ') {
            dot = nullptr;
        }
    }
    return const_cast<wchar_t *>(dot ? dot : p);
}

wchar_t *PathFindFileNameW(const wchar_t *path) {
    if (!path) return nullptr;
    const wchar_t *name = path;
    for (const wchar_t *p = path; *p; ++p) {
        if (*p == kPathSep && p[1] && p[1] != kPathSep) name = p + 1;
    }
    return const_cast<wchar_t *>(name);
}

BOOL PathMatchSpecW(const wchar_t *file, const wchar_t *patterns) {
    if (!file || !patterns) return FALSE;
    std::wstring_view list(patterns);
    std::size_t pos = 0;
    while (pos < list.size()) {
        std::size_t end = list.find(L';', pos);
        if (end == std::wstring_view::npos) end = list.size();
        std::wstring_view one = list.substr(pos, end - pos);
        while (!one.empty() && one.front() == L' ') one.remove_prefix(1);
        if (!one.empty() && platform::MatchesWildcard(file, one)) return TRUE;
        pos = end + 1;
    }
    return FALSE;
}

namespace {

// The copy both name calls make; a missing path fails as Windows fails.
DWORD CopyExistingPath(const wchar_t *source, wchar_t *target, DWORD size) {
    if (!source) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::wstring path = platform::StripLongPathPrefix(source);
    struct stat info {};
    if (path.empty() || lstat(platform::ToUtf8(path).c_str(), &info) != 0) {
        if (path.empty()) errno = ENOENT;
        platform::SetLastErrorFromErrno();
        return 0;
    }
    // The copy goes through a string, so source and target may be the same.
    return ReturnPath(path, target, size);
}

}  // namespace

DWORD GetShortPathNameW(const wchar_t *longPath, wchar_t *shortPath, DWORD size) {
    return CopyExistingPath(longPath, shortPath, size);
}

DWORD GetLongPathNameW(const wchar_t *shortPath, wchar_t *longPath, DWORD size) {
    return CopyExistingPath(shortPath, longPath, size);
}

DWORD GetFullPathNameW(const wchar_t *fileName, DWORD size, wchar_t *buffer, wchar_t **filePart) {
    if (filePart) *filePart = nullptr;
    if (!fileName || !*fileName) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    std::wstring path = platform::StripLongPathPrefix(fileName);
    if (!platform::IsAbsolutePath(path)) {
        std::string current(4096, '\0');
        while (!getcwd(current.data(), current.size())) {
            if (errno != ERANGE) {
                platform::SetLastErrorFromErrno();
                return 0;
            }
            current.resize(current.size() * 2);
        }
        path = platform::JoinPath(platform::FromUtf8(current.c_str()), path);
    }
    std::wstring full = platform::NormalizePath(path);
    DWORD result = ReturnPath(full, buffer, size);
    if (buffer && result == full.size() && filePart && !platform::HasTrailingSeparator(full)) {
        *filePart = buffer + full.rfind(kPathSep) + 1;
    }
    return result;
}

BOOL GetDiskFreeSpaceExW(const wchar_t *directoryName, ULARGE_INTEGER *freeBytesAvailableToCaller,
                         ULARGE_INTEGER *totalNumberOfBytes,
                         ULARGE_INTEGER *totalNumberOfFreeBytes) {
    std::string folder =
        directoryName ? platform::ToUtf8(platform::StripLongPathPrefix(directoryName)) : ".";
    struct statvfs info {};
    if (folder.empty() || statvfs(folder.c_str(), &info) != 0) {
        if (folder.empty()) errno = ENOENT;
        platform::SetLastErrorFromErrno();
        return FALSE;
    }
    const ULONGLONG unit = info.f_frsize ? info.f_frsize : info.f_bsize;
    if (freeBytesAvailableToCaller) freeBytesAvailableToCaller->QuadPart = info.f_bavail * unit;
    if (totalNumberOfBytes) totalNumberOfBytes->QuadPart = info.f_blocks * unit;
    if (totalNumberOfFreeBytes) totalNumberOfFreeBytes->QuadPart = info.f_bfree * unit;
    return TRUE;
}
