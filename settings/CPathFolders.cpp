#include "CPathFolders.h"

#include <string>

#include "platform/Win32.h"

namespace {

// The library's fixed path buffer, terminator included.
constexpr std::size_t kPathBufferChars = 1024;

// A failed attribute query gives all bits, the folder bit among them, so a
// path that does not exist is taken for a folder.
bool CountsAsFolder(const std::wstring &path) {
    return (GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::size_t LastSeparator(const std::wstring &path) { return path.find_last_of(kPathSep); }

}  // namespace

CPathFolders::CPathFolders(const wchar_t *path) {
    std::wstring rest = std::wstring(path ? path : L"").substr(0, kPathBufferChars - 1);
    if (!CountsAsFolder(rest)) {
        const std::size_t cut = LastSeparator(rest);
        if (cut != std::wstring::npos) rest.erase(cut);
    }
    for (std::size_t cut = LastSeparator(rest); cut != std::wstring::npos;
         cut = LastSeparator(rest)) {
        // Doubled and trailing separators would give empty names, and an
        // empty name is what marks the end of the stepping.
        if (cut + 1 < rest.size()) folders_.push_back(rest.substr(cut + 1));
        rest.erase(cut);
    }
    if (!rest.empty()) folders_.push_back(rest);
}

CPathFolders::~CPathFolders() = default;

const wchar_t *CPathFolders::GetNextFolder() {
    static std::wstring folder;
    folder = position_ < folders_.size() ? folders_[position_++] : std::wstring();
    return folder.c_str();
}
