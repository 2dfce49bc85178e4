#include "platform/WinFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFormat.h"
#include "platform/WinPath.h"
#include "platform/WinTime.h"

namespace {

using platform::FileObject;

constexpr char kArchivedAttribute[] = "user.varnick.archived";
constexpr mode_t kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr DWORD kWideNameLimit = MAX_PATH - 1;

BOOL Fail(DWORD code) {
    SetLastError(code);
    return FALSE;
}

// ---------------------------------------------------------------------------
// Paths

// The system form of a caller's path. Null fails with
// ERROR_INVALID_PARAMETER, empty text with ERROR_PATH_NOT_FOUND.
std::optional<std::string> SystemPath(LPCWSTR path) {
    if (!path) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return std::nullopt;
    }
    std::string narrow = platform::ToUtf8(platform::StripLongPathPrefix(path));
    if (narrow.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return std::nullopt;
    }
    return narrow;
}

std::string WithoutTrailingSeparators(const std::string &path) {
    std::string result = path;
    while (result.size() > 1 && result.back() == '/') result.pop_back();
    return result;
}

std::string LastComponent(const std::string &path) {
    std::string trimmed = WithoutTrailingSeparators(path);
    std::size_t cut = trimmed.rfind('/');
    return cut == std::string::npos ? trimmed : trimmed.substr(cut + 1);
}

std::string ParentFolder(const std::string &path) {
    std::string trimmed = WithoutTrailingSeparators(path);
    std::size_t cut = trimmed.rfind('/');
    if (cut == std::string::npos) return ".";
    return cut == 0 ? "/" : trimmed.substr(0, cut);
}

std::string JoinPath(const std::string &folder, const std::string &name) {
    if (folder.empty()) return name;
    return folder.back() == '/' ? folder + name : folder + "/" + name;
}

bool IsDotName(const std::string &name) { return name == "." || name == ".."; }

bool IsFolder(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Windows tells a missing item (2) from a missing folder on its way (3).
DWORD ErrorForPath(const std::string &path, int error) {
    if (error == ENOENT) {
        return IsFolder(ParentFolder(path)) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    }
    return platform::WinErrorFromErrno(error);
}

BOOL FailForPath(const std::string &path, int error) { return Fail(ErrorForPath(path, error)); }

// The canonical form of a path whose last parts may not exist yet.
std::string CanonicalPath(const std::string &path) {
    std::error_code error;
    std::filesystem::path canonical = std::filesystem::weakly_canonical(path, error);
    return error ? path : canonical.string();
}

bool IsSameOrInside(const std::string &inner, const std::string &outer) {
    std::string in = CanonicalPath(inner);
    std::string out = CanonicalPath(outer);
    if (in == out) return true;
    if (out.empty() || out.back() != '/') out += '/';
    return in.compare(0, out.size(), out) == 0;
}

// ---------------------------------------------------------------------------
// Facts about one item

struct ItemInfo {
    bool isLink = false;
    bool hasTarget = false;  // false for a dangling link
    struct statx data {};    // the target's data, or the link's when dangling
};

bool StatxPath(const std::string &path, int flags, struct statx &data) {
    return statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &data) == 0;
}

// Reads the item; errno tells why it failed.
bool ReadItemInfo(const std::string &path, ItemInfo &info) {
    if (!StatxPath(path, AT_SYMLINK_NOFOLLOW, info.data)) return false;
    info.isLink = S_ISLNK(info.data.stx_mode);
    info.hasTarget = true;
    if (info.isLink) {
        struct statx target {};
        info.hasTarget = StatxPath(path, 0, target);
        if (info.hasTarget) info.data = target;
    }
    return true;
}

FILETIME ToFileTime(const struct statx_timestamp &time) {
    return platform::FileTimeFromUnixTime(time.tv_sec, time.tv_nsec);
}

FILETIME CreationTime(const struct statx &data) {
    return ToFileTime((data.stx_mask & STATX_BTIME) ? data.stx_btime : data.stx_mtime);
}

std::string ModificationStamp(const struct statx_timestamp &time) {
    std::string nanoseconds = std::to_string(time.tv_nsec);
    nanoseconds.insert(0, 9 - std::min<std::size_t>(9, nanoseconds.size()), '0');
    return std::to_string(time.tv_sec) + "." + nanoseconds;
}

bool IsReadOnly(const std::string &path, mode_t mode) {
    if ((mode & kWriteBits) == 0) return true;
    if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0) return false;
    return errno == EACCES || errno == EROFS || errno == EPERM;
}

bool ArchiveBitIsSet(const std::string &path, const struct statx &data) {
    char stored[64];
    ssize_t length = getxattr(path.c_str(), kArchivedAttribute, stored, sizeof stored);
    if (length < 0) return true;
    return std::string(stored, static_cast<std::size_t>(length)) !=
           ModificationStamp(data.stx_mtime);
}

bool IsHiddenName(const std::string &name) {
    return !name.empty() && name[0] == '.' && !IsDotName(name);
}

DWORD AttributesOf(const std::string &path, const ItemInfo &info) {
    DWORD attributes = 0;
    if (info.isLink) attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    if (IsHiddenName(LastComponent(path))) attributes |= FILE_ATTRIBUTE_HIDDEN;
    if (!info.hasTarget) return attributes;
    const mode_t mode = info.data.stx_mode;
    const bool ordinary = S_ISREG(mode) || S_ISDIR(mode);
    if (S_ISDIR(mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    if (!ordinary) attributes |= FILE_ATTRIBUTE_SYSTEM;
    if (IsReadOnly(path, mode)) attributes |= FILE_ATTRIBUTE_READONLY;
    if (ordinary && ArchiveBitIsSet(path, info.data)) attributes |= FILE_ATTRIBUTE_ARCHIVE;
    return attributes ? attributes : FILE_ATTRIBUTE_NORMAL;
}

void SplitSize(std::uint64_t size, DWORD &high, DWORD &low) {
    high = static_cast<DWORD>(size >> 32);
    low = static_cast<DWORD>(size & 0xFFFFFFFFu);
}

std::uint64_t ReportedSize(const struct statx &data) {
    return S_ISDIR(data.stx_mode) ? 0 : data.stx_size;
}

// ---------------------------------------------------------------------------
// Archive bit

// Runs `change` on a file the caller owns but may not write, by lending it
// the owner's write bit for the moment, as user attributes need it.
template <typename Change>
int WithOwnerWriteAccess(const std::string &path, Change change) {
    if (change() == 0) return 0;
    struct stat info;
    if (errno != EACCES || stat(path.c_str(), &info) != 0 || info.st_uid != geteuid()) return -1;
    if (chmod(path.c_str(), info.st_mode | S_IWUSR) != 0) return -1;
    int result = change();
    int saved = errno;
    chmod(path.c_str(), info.st_mode & 07777);
    errno = saved;
    return result;
}

// File systems without user attributes, and items that cannot carry them,
// keep the bit set.
bool AttributesUnsupported(int error) {
    return error == ENOTSUP || error == EOPNOTSUPP || error == EPERM;
}

BOOL ClearArchiveBitOf(const std::string &path) {
    struct statx data {};
    if (!StatxPath(path, 0, data)) return FailForPath(path, errno);
    const std::string stamp = ModificationStamp(data.stx_mtime);
    int result = WithOwnerWriteAccess(path, [&] {
        return setxattr(path.c_str(), kArchivedAttribute, stamp.data(), stamp.size(), 0);
    });
    if (result != 0 && !AttributesUnsupported(errno)) return FailForPath(path, errno);
    return TRUE;
}

BOOL SetArchiveBitOf(const std::string &path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) return FailForPath(path, errno);
    int result =
        WithOwnerWriteAccess(path, [&] { return removexattr(path.c_str(), kArchivedAttribute); });
    if (result != 0 && errno != ENODATA && !AttributesUnsupported(errno)) {
        return FailForPath(path, errno);
    }
    return TRUE;
}

// ---------------------------------------------------------------------------
// Folder listing

struct DirCloser {
    void operator()(DIR *dir) const { closedir(dir); }
};

// The names in a folder, "." and ".." included; errno tells why it failed.
bool ListFolder(const std::string &folder, std::vector<std::string> &names) {
    std::unique_ptr<DIR, DirCloser> dir(opendir(folder.empty() ? "." : folder.c_str()));
    if (!dir) return false;
    errno = 0;
    while (dirent *entry = readdir(dir.get())) names.emplace_back(entry->d_name);
    return errno == 0;
}

class FindObject : public platform::KernelObject {
public:
    FindObject(std::string folder, std::vector<std::string> names)
        : folder_(std::move(folder)), names_(std::move(names)) {}

    // Fills the next entry that still exists; false when none is left.
    bool Next(WIN32_FIND_DATAW &data) {
        while (next_ < names_.size()) {
            const std::string &name = names_[next_++];
            if (Fill(name, data)) return true;
        }
        return false;
    }

private:
    bool Fill(const std::string &name, WIN32_FIND_DATAW &data) const {
        const std::string path = JoinPath(folder_, name);
        ItemInfo info;
        if (!ReadItemInfo(path, info)) return false;
        std::memset(&data, 0, sizeof data);
        data.dwFileAttributes = AttributesOf(path, info);
        data.ftCreationTime = CreationTime(info.data);
        data.ftLastAccessTime = ToFileTime(info.data.stx_atime);
        data.ftLastWriteTime = ToFileTime(info.data.stx_mtime);
        SplitSize(ReportedSize(info.data), data.nFileSizeHigh, data.nFileSizeLow);
        data.dwReserved0 = info.isLink ? IO_REPARSE_TAG_SYMLINK : 0;
        wcsncpy_s(data.cFileName, MAX_PATH, platform::FromUtf8(name).c_str(), _TRUNCATE);
        return true;
    }

    std::string folder_;
    std::vector<std::string> names_;
    std::size_t next_ = 0;
};

bool HasWildcards(const std::wstring &pattern) {
    return pattern.find_first_of(L"*?") != std::wstring::npos;
}

// "." and ".." first, as a Windows listing gives them, then by name
// without regard to case.
bool ListingOrder(const std::string &a, const std::string &b) {
    if (IsDotName(a) || IsDotName(b)) {
        if (IsDotName(a) && IsDotName(b)) return a.size() < b.size();
        return IsDotName(a);
    }
    int folded = platform::CompareNoCase(platform::FromUtf8(a), platform::FromUtf8(b));
    return folded != 0 ? folded < 0 : a < b;
}

// Names too long for cFileName cannot be reported whole; they are left out
// rather than reported under a name that does not exist.
bool FitsFindData(const std::wstring &name) { return name.size() <= kWideNameLimit; }

HANDLE FindMatches(const std::string &folder, const std::wstring &pattern) {
    std::vector<std::string> names;
    if (!ListFolder(folder, names)) {
        int error = errno;
        SetLastError(error == ENOENT || error == ENOTDIR ? ERROR_PATH_NOT_FOUND
                                                         : platform::WinErrorFromErrno(error));
        return INVALID_HANDLE_VALUE;
    }
    const bool isRoot = CanonicalPath(folder.empty() ? "." : folder) == "/";
    std::vector<std::string> matches;
    for (const std::string &name : names) {
        if (isRoot && IsDotName(name)) continue;  // a drive root has no "." or ".."
        std::wstring wide = platform::FromUtf8(name);
        if (FitsFindData(wide) && platform::MatchesWildcard(wide, pattern)) matches.push_back(name);
    }
    std::sort(matches.begin(), matches.end(), ListingOrder);
    if (matches.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    return new FindObject(folder, std::move(matches));
}

HANDLE FindOne(const std::string &path, const std::string &folder, const std::string &name) {
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) {
        SetLastError(ErrorForPath(path, errno));
        return INVALID_HANDLE_VALUE;
    }
    if (!FitsFindData(platform::FromUtf8(name))) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    return new FindObject(folder, {name});
}

// ---------------------------------------------------------------------------
// Copying and removing

class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    int Get() const { return descriptor_; }

private:
    int descriptor_;
};

bool CopyBytesPlainly(int from, int to) {
    std::vector<char> buffer(1 << 18);
    for (;;) {
        ssize_t got = read(from, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        for (ssize_t done = 0; done < got;) {
            ssize_t put = write(to, buffer.data() + done, static_cast<std::size_t>(got - done));
            if (put < 0 && errno == EINTR) continue;
            if (put < 0) return false;
            done += put;
        }
    }
}

bool CopyBytes(int from, int to) {
    bool first = true;
    for (;;) {
        ssize_t copied = copy_file_range(from, nullptr, to, nullptr, 1 << 30, 0);
        if (copied == 0) return true;
        if (copied > 0) {
            first = false;
            continue;
        }
        if (errno == EINTR) continue;
        const bool unsupported =
            errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP;
        if (first && unsupported) return CopyBytesPlainly(from, to);
        return false;
    }
}

bool SameItem(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Copies the contents, mode and times of a regular file.
BOOL CopyRegularFile(const std::string &from, const std::string &to, bool failIfExists) {
    FileDescriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    if (source.Get() < 0) return FailForPath(from, errno);
    struct stat sourceInfo;
    if (fstat(source.Get(), &sourceInfo) != 0) return FailForPath(from, errno);
    if (S_ISDIR(sourceInfo.st_mode)) return Fail(ERROR_ACCESS_DENIED);

    struct stat targetInfo;
    if (stat(to.c_str(), &targetInfo) == 0) {
        if (failIfExists) return Fail(ERROR_FILE_EXISTS);
        if (SameItem(sourceInfo, targetInfo)) return Fail(ERROR_SHARING_VIOLATION);
        if (S_ISDIR(targetInfo.st_mode) || IsReadOnly(to, targetInfo.st_mode)) {
            return Fail(ERROR_ACCESS_DENIED);
        }
    }
    int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (failIfExists ? O_EXCL : 0);
    FileDescriptor target(open(to.c_str(), flags, S_IRUSR | S_IWUSR));
    if (target.Get() < 0) {
        return Fail(errno == EEXIST ? ERROR_FILE_EXISTS : ErrorForPath(to, errno));
    }
    const struct timespec times[2] = {sourceInfo.st_atim, sourceInfo.st_mtim};
    if (!CopyBytes(source.Get(), target.Get()) ||
        fchmod(target.Get(), sourceInfo.st_mode & 07777) != 0 ||
        futimens(target.Get(), times) != 0) {
        DWORD code = platform::WinErrorFromErrno(errno);
        unlink(to.c_str());
        return Fail(code);
    }
    return TRUE;
}

BOOL CopyTreeOf(const std::string &from, const std::string &to, bool replaceExisting);

BOOL CopyLink(const std::string &from, const std::string &to, bool replaceExisting) {
    std::vector<char> target(PATH_MAX + 1);
    ssize_t length = readlink(from.c_str(), target.data(), target.size() - 1);
    if (length < 0) return FailForPath(from, errno);
    target[static_cast<std::size_t>(length)] = '\0';
    struct stat existing;
    if (lstat(to.c_str(), &existing) == 0) {
        if (!replaceExisting) return Fail(ERROR_ALREADY_EXISTS);
        if (S_ISDIR(existing.st_mode)) return Fail(ERROR_ACCESS_DENIED);
        if (unlink(to.c_str()) != 0) return FailForPath(to, errno);
    }
    if (symlink(target.data(), to.c_str()) != 0) return FailForPath(to, errno);
    return TRUE;
}

BOOL CopyFolder(const std::string &from, const std::string &to, bool replaceExisting,
                const struct stat &sourceInfo) {
    struct stat existing;
    const bool created = lstat(to.c_str(), &existing) != 0;
    if (!created && !S_ISDIR(existing.st_mode)) return Fail(ERROR_ALREADY_EXISTS);
    if (created && mkdir(to.c_str(), S_IRWXU) != 0) return FailForPath(to, errno);
    std::vector<std::string> names;
    if (!ListFolder(from, names)) return FailForPath(from, errno);
    for (const std::string &name : names) {
        if (IsDotName(name)) continue;
        if (!CopyTreeOf(JoinPath(from, name), JoinPath(to, name), replaceExisting)) return FALSE;
    }
    if (created) {
        const struct timespec times[2] = {sourceInfo.st_atim, sourceInfo.st_mtim};
        chmod(to.c_str(), sourceInfo.st_mode & 07777);
        utimensat(AT_FDCWD, to.c_str(), times, 0);
    }
    return TRUE;
}

BOOL CopyTreeOf(const std::string &from, const std::string &to, bool replaceExisting) {
    struct stat info;
    if (lstat(from.c_str(), &info) != 0) return FailForPath(from, errno);
    if (S_ISLNK(info.st_mode)) return CopyLink(from, to, replaceExisting);
    if (S_ISDIR(info.st_mode)) return CopyFolder(from, to, replaceExisting, info);
    if (S_ISREG(info.st_mode)) return CopyRegularFile(from, to, !replaceExisting);
    if (S_ISFIFO(info.st_mode)) {
        if (mkfifo(to.c_str(), info.st_mode & 07777) != 0) {
            return Fail(errno == EEXIST ? ERROR_ALREADY_EXISTS : ErrorForPath(to, errno));
        }
        return TRUE;
    }
    return Fail(ERROR_ACCESS_DENIED);  // devices and sockets are not copied
}

// Removing an item needs write and search access to its folder; the
// caller's own read-only folders are opened up first, as Windows deletes
// read-only items when told to.
void OpenUpFolder(const std::string &folder) {
    if (access(folder.c_str(), W_OK | X_OK) == 0) return;
    struct stat info;
    if (stat(folder.c_str(), &info) == 0 && info.st_uid == geteuid()) {
        chmod(folder.c_str(), (info.st_mode & 07777) | S_IRWXU);
    }
}

BOOL RemoveTreeOf(const std::string &path) {
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) return FailForPath(path, errno);
    if (!S_ISDIR(info.st_mode)) {
        if (unlink(path.c_str()) != 0) return FailForPath(path, errno);
        return TRUE;
    }
    OpenUpFolder(path);
    std::vector<std::string> names;
    if (!ListFolder(path, names)) return FailForPath(path, errno);
    for (const std::string &name : names) {
        if (!IsDotName(name) && !RemoveTreeOf(JoinPath(path, name))) return FALSE;
    }
    if (rmdir(path.c_str()) != 0) return FailForPath(path, errno);
    return TRUE;
}

// Across file systems a move is a copy followed by removal of the source;
// a failed copy leaves nothing behind.
BOOL MoveByCopy(const std::string &from, const std::string &to) {
    if (!CopyTreeOf(from, to, false)) {
        DWORD code = GetLastError();
        RemoveTreeOf(to);
        return Fail(code);
    }
    return RemoveTreeOf(from);
}

// Renames without following links; 0 or the errno of the failure.
int RenameItem(const std::string &from, const std::string &to, bool replace) {
    if (replace) return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // The file system cannot refuse atomically: check, then rename.
    struct stat existing;
    if (lstat(to.c_str(), &existing) == 0) return EEXIST;
    return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

// ---------------------------------------------------------------------------
// Handles

FileObject *FileFromHandle(HANDLE handle) {
    FileObject *file = platform::ObjectAs<FileObject>(handle);
    if (!file) SetLastError(ERROR_INVALID_HANDLE);
    return file;
}

// A handle opened without the access asked for is a valid handle used
// wrongly, which Windows reports as access denied.
DWORD ErrorForHandle(int error) {
    return error == EBADF ? ERROR_ACCESS_DENIED : platform::WinErrorFromErrno(error);
}

int OpenAccessFlags(DWORD access) {
    const bool reads = access & (GENERIC_READ | GENERIC_ALL | GENERIC_EXECUTE | 0x0001);
    const bool writes = access & (GENERIC_WRITE | GENERIC_ALL | 0x0002 | 0x0004);
    if (writes) return reads ? O_RDWR : O_WRONLY;
    return O_RDONLY;
}

bool WantsWrite(DWORD access) { return OpenAccessFlags(access) != O_RDONLY; }

std::optional<int> DispositionFlags(DWORD disposition) {
    switch (disposition) {
        case CREATE_NEW:
            return O_CREAT | O_EXCL;
        case CREATE_ALWAYS:
            return O_CREAT | O_TRUNC;
        case OPEN_EXISTING:
            return 0;
        case OPEN_ALWAYS:
            return O_CREAT;
        case TRUNCATE_EXISTING:
            return O_TRUNC;
        default:
            return std::nullopt;
    }
}

HANDLE FailHandle(DWORD code) {
    SetLastError(code);
    return INVALID_HANDLE_VALUE;
}

HANDLE OpenFolder(const std::string &path, DWORD disposition, DWORD flags) {
    if (disposition == CREATE_NEW) return FailHandle(ERROR_FILE_EXISTS);
    const bool opens = disposition == OPEN_EXISTING || disposition == OPEN_ALWAYS;
    if (!opens || !(flags & FILE_FLAG_BACKUP_SEMANTICS)) return FailHandle(ERROR_ACCESS_DENIED);
    int descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return FailHandle(ErrorForPath(path, errno));
    SetLastError(disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return new FileObject(descriptor);
}

bool IsKeepTime(const FILETIME *time) {
    return !time || (time->dwLowDateTime == 0 && time->dwHighDateTime == 0) ||
           (time->dwLowDateTime == 0xFFFFFFFFu && time->dwHighDateTime == 0xFFFFFFFFu);
}

struct timespec ToTimespec(const FILETIME *time) {
    struct timespec result {};
    if (IsKeepTime(time)) {
        result.tv_nsec = UTIME_OMIT;
        return result;
    }
    std::int64_t seconds = 0;
    long nanoseconds = 0;
    platform::UnixTimeFromFileTime(*time, seconds, nanoseconds);
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = nanoseconds;
    return result;
}

// Copies `text` and its terminator if it fits; the length without the
// terminator, or the size needed with it, as the Windows text getters do.
DWORD ReturnText(const std::wstring &text, DWORD bufferLength, LPWSTR buffer) {
    const DWORD length = static_cast<DWORD>(text.size());
    if (!buffer || bufferLength <= length) return length + 1;
    std::wmemcpy(buffer, text.c_str(), text.size() + 1);
    return length;
}

std::string TemporaryFolder() {
    const char *fromEnvironment = std::getenv("TMPDIR");
    std::string folder = fromEnvironment && *fromEnvironment ? fromEnvironment : "/tmp";
    if (folder.back() != '/') folder += '/';
    return folder;
}

UINT TickSeed() {
    auto now = std::chrono::steady_clock::now().time_since_epoch();
    auto ticks = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return static_cast<UINT>(ticks & 0xFFFF);
}

}  // namespace

// ---------------------------------------------------------------------------
// Attributes

DWORD GetFileAttributesW(LPCWSTR fileName) {
    std::optional<std::string> path = SystemPath(fileName);
    if (!path) return INVALID_FILE_ATTRIBUTES;
    ItemInfo info;
    if (!ReadItemInfo(*path, info)) {
        SetLastError(ErrorForPath(*path, errno));
        return INVALID_FILE_ATTRIBUTES;
    }
    return AttributesOf(*path, info);
}

BOOL GetFileAttributesExW(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS level, LPVOID information) {
    if (level != GetFileExInfoStandard || !information) return Fail(ERROR_INVALID_PARAMETER);
    std::optional<std::string> path = SystemPath(fileName);
    if (!path) return FALSE;
    ItemInfo info;
    if (!ReadItemInfo(*path, info)) return FailForPath(*path, errno);
    auto *data = static_cast<WIN32_FILE_ATTRIBUTE_DATA *>(information);
    data->dwFileAttributes = AttributesOf(*path, info);
    data->ftCreationTime = CreationTime(info.data);
    data->ftLastAccessTime = ToFileTime(info.data.stx_atime);
    data->ftLastWriteTime = ToFileTime(info.data.stx_mtime);
    SplitSize(ReportedSize(info.data), data->nFileSizeHigh, data->nFileSizeLow);
    return TRUE;
}

BOOL SetFileAttributesW(LPCWSTR fileName, DWORD attributes) {
    std::optional<std::string> path = SystemPath(fileName);
    if (!path) return FALSE;
    struct stat info;
    if (stat(path->c_str(), &info) != 0) return FailForPath(*path, errno);
    const bool wantReadOnly = attributes & FILE_ATTRIBUTE_READONLY;
    const bool isReadOnly = IsReadOnly(*path, info.st_mode);
    // The archive attribute needs write access, so it changes while the
    // item is writable: after opening it up, before closing it.
    if (!wantReadOnly && isReadOnly && chmod(path->c_str(), info.st_mode | S_IWUSR) != 0) {
        return FailForPath(*path, errno);
    }
    if (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) {
        BOOL done = (attributes & FILE_ATTRIBUTE_ARCHIVE) ? SetArchiveBitOf(*path)
                                                          : ClearArchiveBitOf(*path);
        if (!done) return FALSE;
    }
    if (wantReadOnly && (info.st_mode & kWriteBits) &&
        chmod(path->c_str(), info.st_mode & ~kWriteBits & 07777) != 0) {
        return FailForPath(*path, errno);
    }
    return TRUE;
}

BOOL PathFileExistsW(LPCWSTR path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES ? TRUE : FALSE;
}

BOOL PathIsDirectoryW(LPCWSTR path) {
    DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) return FALSE;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) ? FILE_ATTRIBUTE_DIRECTORY : FALSE;
}

// ---------------------------------------------------------------------------
// Listing

HANDLE FindFirstFileW(LPCWSTR fileName, LPWIN32_FIND_DATAW findData) {
    if (!findData) return FailHandle(ERROR_INVALID_PARAMETER);
    std::optional<std::string> path = SystemPath(fileName);
    if (!path) return INVALID_HANDLE_VALUE;
    const std::size_t cut = path->rfind('/');
    const std::string folder = cut == std::string::npos ? "" : path->substr(0, cut + 1);
    const std::string name = path->substr(folder.size());
    if (name.empty()) return FailHandle(ERROR_FILE_NOT_FOUND);

    const std::wstring pattern = platform::FromUtf8(name);
    HANDLE handle =
        HasWildcards(pattern) ? FindMatches(folder, pattern) : FindOne(*path, folder, name);
    if (handle == INVALID_HANDLE_VALUE) return handle;
    if (!static_cast<FindObject *>(handle)->Next(*findData)) {
        CloseHandle(handle);
        return FailHandle(ERROR_FILE_NOT_FOUND);
    }
    SetLastError(ERROR_SUCCESS);
    return handle;
}

BOOL FindNextFileW(HANDLE findFile, LPWIN32_FIND_DATAW findData) {
    auto *find = platform::ObjectAs<FindObject>(findFile);
    if (!find) return Fail(ERROR_INVALID_HANDLE);
    if (!findData) return Fail(ERROR_INVALID_PARAMETER);
    if (!find->Next(*findData)) return Fail(ERROR_NO_MORE_FILES);
    return TRUE;
}

BOOL FindClose(HANDLE findFile) {
    if (!platform::ObjectAs<FindObject>(findFile)) return Fail(ERROR_INVALID_HANDLE);
    return CloseHandle(findFile);
}

// ---------------------------------------------------------------------------
// Whole items

BOOL MoveFileW(LPCWSTR existingFileName, LPCWSTR newFileName) {
    return MoveFileExW(existingFileName, newFileName, MOVEFILE_COPY_ALLOWED);
}

BOOL MoveFileExW(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags) {
    std::optional<std::string> from = SystemPath(existingFileName);
    if (!from) return FALSE;
    std::optional<std::string> to = SystemPath(newFileName);
    if (!to) return FALSE;
    struct stat source;
    if (lstat(from->c_str(), &source) != 0) return FailForPath(*from, errno);

    struct stat existing;
    const bool targetExists = lstat(to->c_str(), &existing) == 0;
    const bool replace = flags & MOVEFILE_REPLACE_EXISTING;
    if (targetExists) {
        if (SameItem(source, existing)) return TRUE;
        if (!replace) return Fail(ERROR_ALREADY_EXISTS);
        if (S_ISDIR(existing.st_mode) || S_ISDIR(source.st_mode)) return Fail(ERROR_ACCESS_DENIED);
    }
    const int error = RenameItem(*from, *to, replace);
    if (error == 0) return TRUE;
    if (error == EEXIST) return Fail(ERROR_ALREADY_EXISTS);
    if (error != EXDEV) return FailForPath(*to, error);
    if (!(flags & MOVEFILE_COPY_ALLOWED)) return Fail(ERROR_NOT_SAME_DEVICE);
    if (targetExists && !RemoveTreeOf(*to)) return FALSE;
    return MoveByCopy(*from, *to);
}

BOOL CopyFileW(LPCWSTR existingFileName, LPCWSTR newFileName, BOOL failIfExists) {
    std::optional<std::string> from = SystemPath(existingFileName);
    if (!from) return FALSE;
    std::optional<std::string> to = SystemPath(newFileName);
    if (!to) return FALSE;
    return CopyRegularFile(*from, *to, failIfExists != FALSE);
}

BOOL DeleteFileW(LPCWSTR fileName) {
    std::optional<std::string> path = SystemPath(fileName);
    if (!path) return FALSE;
    struct stat info;
    if (lstat(path->c_str(), &info) != 0) return FailForPath(*path, errno);
    if (S_ISDIR(info.st_mode)) return Fail(ERROR_ACCESS_DENIED);
    if (!S_ISLNK(info.st_mode) && IsReadOnly(*path, info.st_mode)) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    if (unlink(path->c_str()) != 0) return FailForPath(*path, errno);
    return TRUE;
}

BOOL CreateDirectoryW(LPCWSTR pathName, LPSECURITY_ATTRIBUTES) {
    std::optional<std::string> path = SystemPath(pathName);
    if (!path) return FALSE;
    if (mkdir(path->c_str(), 0777) == 0) return TRUE;
    if (errno == EEXIST) return Fail(ERROR_ALREADY_EXISTS);
    if (errno == ENOENT) return Fail(ERROR_PATH_NOT_FOUND);
    return FailForPath(*path, errno);
}

BOOL RemoveDirectoryW(LPCWSTR pathName) {
    std::optional<std::string> path = SystemPath(pathName);
    if (!path) return FALSE;
    struct stat info;
    if (lstat(path->c_str(), &info) != 0) return FailForPath(*path, errno);
    if (S_ISLNK(info.st_mode)) {
        // A link to a folder goes as the link itself, as a junction does.
        if (!IsFolder(*path)) return Fail(ERROR_DIRECTORY);
        if (unlink(path->c_str()) != 0) return FailForPath(*path, errno);
        return TRUE;
    }
    if (!S_ISDIR(info.st_mode)) return Fail(ERROR_DIRECTORY);
    if (rmdir(path->c_str()) == 0) return TRUE;
    if (errno == ENOTEMPTY || errno == EEXIST) return Fail(ERROR_DIR_NOT_EMPTY);
    return FailForPath(*path, errno);
}

// ---------------------------------------------------------------------------
// Temporary names and the working folder

DWORD GetTempPathW(DWORD bufferLength, LPWSTR buffer) {
    return ReturnText(platform::FromUtf8(TemporaryFolder()), bufferLength, buffer);
}

UINT GetTempFileNameW(LPCWSTR pathName, LPCWSTR prefixString, UINT unique, LPWSTR tempFileName) {
    if (!pathName || !tempFileName) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::wstring folder = platform::StripLongPathPrefix(pathName);
    if (!folder.empty() && folder.back() != L'/') folder += L'/';
    if (folder.size() > MAX_PATH - 14) {
        SetLastError(111);  // ERROR_BUFFER_OVERFLOW
        return 0;
    }
    const std::wstring prefix = std::wstring(prefixString ? prefixString : L"").substr(0, 3);
    auto nameFor = [&](UINT number) {
        return FormatW(L"%s%s%X.tmp", folder.c_str(), prefix.c_str(), number & 0xFFFF);
    };
    if (unique != 0) {
        wcscpy_s(tempFileName, MAX_PATH, nameFor(unique).c_str());
        return unique;
    }
    UINT number = TickSeed();
    for (UINT tries = 0; tries < 0xFFFF; ++tries, number = (number + 1) & 0xFFFF) {
        if (number == 0) number = 1;
        const std::wstring name = nameFor(number);
        FileDescriptor file(
            open(platform::ToUtf8(name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (file.Get() >= 0) {
            wcscpy_s(tempFileName, MAX_PATH, name.c_str());
            return number;
        }
        if (errno == EEXIST) continue;
        SetLastError(errno == ENOENT || errno == ENOTDIR ? ERROR_DIRECTORY
                                                         : platform::WinErrorFromErrno(errno));
        return 0;
    }
    SetLastError(ERROR_FILE_EXISTS);
    return 0;
}

DWORD GetCurrentDirectoryW(DWORD bufferLength, LPWSTR buffer) {
    std::vector<char> folder(PATH_MAX);
    while (!getcwd(folder.data(), folder.size())) {
        if (errno != ERANGE) {
            platform::SetLastErrorFromErrno();
            return 0;
        }
        folder.resize(folder.size() * 2);
    }
    return ReturnText(platform::FromUtf8(folder.data()), bufferLength, buffer);
}

BOOL SetCurrentDirectoryW(LPCWSTR pathName) {
    std::optional<std::string> path = SystemPath(pathName);
    if (!path) return FALSE;
    if (chdir(path->c_str()) == 0) return TRUE;
    if (errno == ENOTDIR && !IsFolder(*path)) {
        struct stat info;
        if (stat(path->c_str(), &info) == 0) return Fail(ERROR_DIRECTORY);
    }
    return FailForPath(*path, errno);
}

// ---------------------------------------------------------------------------
// Open files

HANDLE CreateFileW(LPCWSTR fileName, DWORD desiredAccess, DWORD, LPSECURITY_ATTRIBUTES,
                   DWORD creationDisposition, DWORD flagsAndAttributes, HANDLE) {
    std::optional<int> disposition = DispositionFlags(creationDisposition);
    if (!disposition) return FailHandle(ERROR_INVALID_PARAMETER);
    if (creationDisposition == TRUNCATE_EXISTING && !WantsWrite(desiredAccess)) {
        return FailHandle(ERROR_INVALID_PARAMETER);
    }
    std::optional<std::string> path = SystemPath(fileName);
    if (!path) return INVALID_HANDLE_VALUE;

    struct stat info;
    const bool existed = stat(path->c_str(), &info) == 0;
    if (existed && S_ISDIR(info.st_mode)) {
        return OpenFolder(*path, creationDisposition, flagsAndAttributes);
    }
    if (existed && creationDisposition == CREATE_NEW) return FailHandle(ERROR_FILE_EXISTS);
    if (existed && WantsWrite(desiredAccess) && IsReadOnly(*path, info.st_mode)) {
        return FailHandle(ERROR_ACCESS_DENIED);
    }
    const mode_t mode = (flagsAndAttributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;
    int descriptor =
        open(path->c_str(), OpenAccessFlags(desiredAccess) | *disposition | O_CLOEXEC, mode);
    if (descriptor < 0) {
        return FailHandle(errno == EEXIST ? ERROR_FILE_EXISTS : ErrorForPath(*path, errno));
    }
    const bool reportsExisting =
        existed && (creationDisposition == CREATE_ALWAYS || creationDisposition == OPEN_ALWAYS);
    SetLastError(reportsExisting ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return new FileObject(descriptor);
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD numberOfBytesToRead, LPDWORD numberOfBytesRead,
              LPOVERLAPPED overlapped) {
    if (numberOfBytesRead) *numberOfBytesRead = 0;
    FileObject *object = FileFromHandle(file);
    if (!object) return FALSE;
    if (overlapped) return Fail(ERROR_NOT_SUPPORTED);
    if (!buffer && numberOfBytesToRead > 0) return Fail(ERROR_NOACCESS);
    constexpr DWORD kLargestRead = 1u << 30;
    auto *bytes = static_cast<char *>(buffer);
    DWORD total = 0;
    while (total < numberOfBytesToRead) {
        const DWORD asked = std::min(numberOfBytesToRead - total, kLargestRead);
        ssize_t got = read(object->Descriptor(), bytes + total, asked);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return Fail(ErrorForHandle(errno));
        total += static_cast<DWORD>(got);
        if (static_cast<DWORD>(got) < asked) break;  // end of file or what a pipe had
    }
    if (numberOfBytesRead) *numberOfBytesRead = total;
    return TRUE;
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD numberOfBytesToWrite,
               LPDWORD numberOfBytesWritten, LPOVERLAPPED overlapped) {
    if (numberOfBytesWritten) *numberOfBytesWritten = 0;
    FileObject *object = FileFromHandle(file);
    if (!object) return FALSE;
    if (overlapped) return Fail(ERROR_NOT_SUPPORTED);
    if (!buffer && numberOfBytesToWrite > 0) return Fail(ERROR_NOACCESS);
    const auto *bytes = static_cast<const char *>(buffer);
    DWORD total = 0;
    while (total < numberOfBytesToWrite) {
        ssize_t put = write(object->Descriptor(), bytes + total, numberOfBytesToWrite - total);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) {
            if (numberOfBytesWritten) *numberOfBytesWritten = total;
            return Fail(ErrorForHandle(errno));
        }
        total += static_cast<DWORD>(put);
    }
    if (numberOfBytesWritten) *numberOfBytesWritten = total;
    return TRUE;
}

BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER fileSize) {
    FileObject *object = FileFromHandle(file);
    if (!object) return FALSE;
    if (!fileSize) return Fail(ERROR_INVALID_PARAMETER);
    struct stat info;
    if (fstat(object->Descriptor(), &info) != 0) return Fail(ErrorForHandle(errno));
    fileSize->QuadPart = S_ISDIR(info.st_mode) ? 0 : info.st_size;
    return TRUE;
}

DWORD GetFileSize(HANDLE file, LPDWORD fileSizeHigh) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size)) return INVALID_FILE_SIZE;
    DWORD high = 0;
    DWORD low = 0;
    SplitSize(static_cast<std::uint64_t>(size.QuadPart), high, low);
    if (fileSizeHigh) *fileSizeHigh = high;
    SetLastError(NO_ERROR);  // tells a size of 0xFFFFFFFF from a failure
    return low;
}

BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distanceToMove, PLARGE_INTEGER newFilePointer,
                      DWORD moveMethod) {
    FileObject *object = FileFromHandle(file);
    if (!object) return FALSE;
    int whence = moveMethod == FILE_BEGIN     ? SEEK_SET
                 : moveMethod == FILE_CURRENT ? SEEK_CUR
                 : moveMethod == FILE_END     ? SEEK_END
                                              : -1;
    if (whence < 0) return Fail(ERROR_INVALID_PARAMETER);
    off_t position = lseek(object->Descriptor(), distanceToMove.QuadPart, whence);
    if (position < 0) return Fail(errno == EINVAL ? ERROR_NEGATIVE_SEEK : ErrorForHandle(errno));
    if (newFilePointer) newFilePointer->QuadPart = position;
    return TRUE;
}

BOOL SetEndOfFile(HANDLE file) {
    FileObject *object = FileFromHandle(file);
    if (!object) return FALSE;
    off_t position = lseek(object->Descriptor(), 0, SEEK_CUR);
    if (position < 0 || ftruncate(object->Descriptor(), position) != 0) {
        return Fail(ErrorForHandle(errno == EINVAL ? EBADF : errno));
    }
    return TRUE;
}

BOOL GetFileTime(HANDLE file, LPFILETIME creationTime, LPFILETIME lastAccessTime,
                 LPFILETIME lastWriteTime) {
    FileObject *object = FileFromHandle(file);
    if (!object) return FALSE;
    struct statx data {};
    if (statx(object->Descriptor(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &data) !=
        0) {
        return Fail(ErrorForHandle(errno));
    }
    if (creationTime) *creationTime = CreationTime(data);
    if (lastAccessTime) *lastAccessTime = ToFileTime(data.stx_atime);
    if (lastWriteTime) *lastWriteTime = ToFileTime(data.stx_mtime);
    return TRUE;
}

BOOL SetFileTime(HANDLE file, const FILETIME *, const FILETIME *lastAccessTime,
                 const FILETIME *lastWriteTime) {
    FileObject *object = FileFromHandle(file);
    if (!object) return FALSE;
    const struct timespec times[2] = {ToTimespec(lastAccessTime), ToTimespec(lastWriteTime)};
    if (futimens(object->Descriptor(), times) != 0) return Fail(ErrorForHandle(errno));
    return TRUE;
}

// ---------------------------------------------------------------------------

namespace platform {

FileObject::~FileObject() {
    if (descriptor_ >= 0) close(descriptor_);
}

DWORD FileObject::Wait(DWORD) { return WAIT_OBJECT_0; }

BOOL ClearArchiveBit(const std::wstring &path) {
    std::optional<std::string> system = SystemPath(path.c_str());
    return system ? ClearArchiveBitOf(*system) : FALSE;
}

BOOL SetArchiveBit(const std::wstring &path) {
    std::optional<std::string> system = SystemPath(path.c_str());
    return system ? SetArchiveBitOf(*system) : FALSE;
}

BOOL CopyTree(const std::wstring &source, const std::wstring &target, bool replaceExisting) {
    std::optional<std::string> from = SystemPath(source.c_str());
    if (!from) return FALSE;
    std::optional<std::string> to = SystemPath(target.c_str());
    if (!to) return FALSE;
    if (IsFolder(*from) && ::IsSameOrInside(*to, *from)) return Fail(ERROR_INVALID_PARAMETER);
    return CopyTreeOf(*from, *to, replaceExisting);
}

BOOL RemoveTree(const std::wstring &path) {
    std::optional<std::string> system = SystemPath(path.c_str());
    return system ? RemoveTreeOf(*system) : FALSE;
}

BOOL CreateFolders(const std::wstring &path) {
    std::optional<std::string> system = SystemPath(path.c_str());
    if (!system) return FALSE;
    if (IsFolder(*system)) return TRUE;
    std::error_code error;
    std::filesystem::create_directories(*system, error);
    if (error) return Fail(WinErrorFromErrno(error.value()));
    return TRUE;
}

std::wstring ContainingFolder(const std::wstring &path) {
    return FromUtf8(ParentFolder(ToUtf8(StripLongPathPrefix(path))));
}

bool IsSameOrInside(const std::wstring &inner, const std::wstring &outer) {
    return ::IsSameOrInside(ToUtf8(StripLongPathPrefix(inner)), ToUtf8(StripLongPathPrefix(outer)));
}

}  // namespace platform
