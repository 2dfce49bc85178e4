// File-system steps the engine's operations share.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "Result.h"

namespace engine {

// A descriptor closed when it goes.
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    ~UniqueFd();
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Gives up ownership: the caller closes it.
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1);

private:
    int fd_;
};

// Makes a folder and the folders above it that are missing.
Result MakeFolders(const std::string &path);
Result WriteAll(int fd, const void *data, std::size_t count);
// Removes a file, link or whole folder tree below `folderFd`, following no
// links.
Result RemoveAt(int folderFd, const std::string &name);
// "name_1.ext", "name_2.ext", ...: the first name not present in the folder.
std::string UniqueNameAt(int folderFd, const std::string &name);
// The same for a path: the path itself when free.
std::string UniquePath(const std::string &path);
mode_t CurrentUmask();
// A new empty file beside `path` for writing its replacement; removed by the
// caller unless renamed onto `path`.
Result TemporaryBeside(const std::string &path, std::string &temporary);
// Renames a finished temporary file onto its target, or removes it.
Result PutInPlace(const std::string &temporary, const std::string &target);
std::string ParentOf(const std::string &path);
std::string NameOf(const std::string &path);

}  // namespace engine
