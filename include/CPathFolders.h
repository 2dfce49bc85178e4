// The folder names of one path, from the innermost outwards, stepped
// through one at a time. A path naming a file starts from its folder; a
// path that does not exist counts as a folder. What is left before the
// first separator (the drive on Windows, nothing for an absolute POSIX
// path) comes last when it is not empty.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class CPathFolders {
public:
    // Takes at most 1,023 characters of `path`.
    explicit CPathFolders(const wchar_t *path);
    virtual ~CPathFolders();

    // The name at the position, which moves on; empty at the end. The text
    // is one static string, overwritten by the next call.
    const wchar_t *GetNextFolder();

private:
    std::vector<std::wstring> folders_;
    std::size_t position_ = 0;
};
