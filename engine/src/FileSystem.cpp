#include "FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace engine {

UniqueFd::~UniqueFd() {
    if (fd_ >= 0) close(fd_);
}

void UniqueFd::reset(int fd) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
}

Result PutInPlace(const std::string &temporary, const std::string &target) {
    if (rename(temporary.c_str(), target.c_str()) == 0) return kEngineOK;
    Result result = LastErrno();
    unlink(temporary.c_str());
    return result;
}

Result MakeFolders(const std::string &path) {
    struct stat info {};
    if (stat(path.c_str(), &info) == 0)
        return S_ISDIR(info.st_mode) ? kEngineOK : FromErrno(ENOTDIR);
    std::string parent = ParentOf(path);
    if (!parent.empty() && parent != path) {
        if (Result result = MakeFolders(parent)) return result;
    }
    if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) return LastErrno();
    return kEngineOK;
}

Result WriteAll(int fd, const void *data, std::size_t count) {
    const char *bytes = static_cast<const char *>(data);
    while (count > 0) {
        ssize_t done = write(fd, bytes, count);
        if (done < 0) {
            if (errno == EINTR) continue;
            return LastErrno();
        }
        bytes += done;
        count -= static_cast<std::size_t>(done);
    }
    return kEngineOK;
}

Result RemoveAt(int folderFd, const std::string &name) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        return FromErrno(EINVAL);
    struct stat info {};
    if (fstatat(folderFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return LastErrno();
    if (!S_ISDIR(info.st_mode))
        return unlinkat(folderFd, name.c_str(), 0) == 0 ? kEngineOK : LastErrno();
    int fd = openat(folderFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return LastErrno();
    DIR *listing = fdopendir(fd);
    if (!listing) {
        close(fd);
        return LastErrno();
    }
    Result result = kEngineOK;
    while (dirent *entry = readdir(listing)) {
        std::string child = entry->d_name;
        if (child == "." || child == "..") continue;
        result = RemoveAt(dirfd(listing), child);
        if (result != kEngineOK) break;
    }
    closedir(listing);
    if (result != kEngineOK) return result;
    return unlinkat(folderFd, name.c_str(), AT_REMOVEDIR) == 0 ? kEngineOK : LastErrno();
}

namespace {

std::string Numbered(const std::string &name, int n) {
    std::size_t dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0) return name + "_" + std::to_string(n);
    return name.substr(0, dot) + "_" + std::to_string(n) + name.substr(dot);
}

}  // namespace

std::string UniqueNameAt(int folderFd, const std::string &name) {
    struct stat info {};
    for (int n = 1;; ++n) {
        std::string candidate = Numbered(name, n);
        if (fstatat(folderFd, candidate.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return candidate;
    }
}

std::string UniquePath(const std::string &path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) return path;
    std::string parent = ParentOf(path);
    std::string name = NameOf(path);
    for (int n = 1;; ++n) {
        std::string candidate = (parent == "/" ? "" : parent) + "/" + Numbered(name, n);
        if (lstat(candidate.c_str(), &info) != 0) return candidate;
    }
}

mode_t CurrentUmask() {
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    mode_t mask = umask(022);
    umask(mask);
    return mask;
}

Result TemporaryBeside(const std::string &path, std::string &temporary) {
    std::string pattern = ParentOf(path) + "/." + NameOf(path) + ".XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    int fd = mkstemp(buffer.data());
    if (fd < 0) return LastErrno();
    close(fd);
    temporary = buffer.data();
    return kEngineOK;
}

std::string ParentOf(const std::string &path) {
    std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string NameOf(const std::string &path) {
    std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace engine
