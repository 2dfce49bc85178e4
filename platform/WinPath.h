// The one path helper: separators, case, cutting and joining, the shell's
// path calls, and drives.
//
// POSIX has one tree and one separator, kPathSep ("/"). A backslash is an
// ordinary character of a name here. The drive component of a path (what
// "c:" is on Windows) is always empty. Names are case-sensitive, so paths
// keep their case; wildcard matching and extension tests still ignore case.
// Calls that write into a caller's buffer assume the library's path buffer
// of kPathBufferSize characters where Windows assumes MAX_PATH.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/WinTypes.h"

inline constexpr wchar_t kPathSep = L'/';
inline constexpr const wchar_t *kPathSepString = L"/";

inline constexpr UINT DRIVE_UNKNOWN = 0;
inline constexpr UINT DRIVE_NO_ROOT_DIR = 1;
inline constexpr UINT DRIVE_REMOVABLE = 2;
inline constexpr UINT DRIVE_FIXED = 3;
inline constexpr UINT DRIVE_REMOTE = 4;
inline constexpr UINT DRIVE_CDROM = 5;
inline constexpr UINT DRIVE_RAMDISK = 6;

namespace platform {

// The library's fixed path buffers hold this many wide characters.
inline constexpr std::size_t kPathBufferSize = 1024;

// The one case predicate: false on POSIX.
bool PathsAreCaseInsensitive();
// The path as it is stored or compared: lower-cased only where names are
// case-insensitive, else unchanged.
std::wstring CaseForStorage(std::wstring_view path);

bool IsPathSeparator(wchar_t c);
bool HasTrailingSeparator(std::wstring_view path);
// Begins at the root of the tree.
bool IsAbsolutePath(std::wstring_view path);
// The drive component ("c:" on Windows): always empty here.
std::wstring DrivePart(std::wstring_view path);
// Drops a leading "\\?\" long-path prefix, which has no meaning here.
std::wstring StripLongPathPrefix(std::wstring_view path);

// base + one separator + name. An empty part gives the other unchanged;
// separators where the two meet collapse to one.
std::wstring JoinPath(std::wstring_view base, std::wstring_view name);
// The text before the last separator; empty when there is none. So the
// parent of "/a" is "", as the parent of "c:\a" is "c:" on Windows.
std::wstring ParentPath(std::wstring_view path);
// The text after the last separator (the whole text when there is none).
std::wstring FileNamePart(std::wstring_view path);
// The file name's extension from its last ".", dot included; empty when the
// name has no dot. A name that begins with its only dot is all extension,
// as _wsplitpath reports it.
std::wstring ExtensionPart(std::wstring_view path);
// The path with one separator at its end / without separators at its end
// (the root keeps its separator). An empty path stays empty.
std::wstring WithTrailingSeparator(std::wstring_view path);
std::wstring WithoutTrailingSeparator(std::wstring_view path);
// Lexical clean-up: repeated separators become one, "." parts go, ".." takes
// away the part before it (never the root; a relative path keeps leading
// ".."). A trailing separator is kept.
std::wstring NormalizePath(std::wstring_view path);

// Windows wildcards: "*" any run of characters, "?" one character, letters
// compared without regard to case; "*.*" matches every name, also one
// without a dot.
bool MatchesWildcard(std::wstring_view name, std::wstring_view pattern);

// Mount points of local disk file systems, "/" first.
std::vector<std::wstring> FixedDrives();

}  // namespace platform

// Shell path calls (shlwapi). The Find calls return a pointer into `path`:
// the extension's dot, or the terminator when there is none (a blank or a
// separator after the last dot ends the extension); the file name, where a
// trailing separator stays part of the last name ("a/b/" gives "b/").
wchar_t *PathFindExtensionW(const wchar_t *path);
wchar_t *PathFindFileNameW(const wchar_t *path);
// True when the file matches one of the ";"-separated patterns (leading
// blanks of each skipped) by MatchesWildcard. An empty pattern matches nothing.
BOOL PathMatchSpecW(const wchar_t *file, const wchar_t *patterns);

// Short and long names are the same here: the path is copied, "\\?\"
// dropped. A missing path fails with ERROR_FILE_NOT_FOUND (or
// ERROR_PATH_NOT_FOUND), as on Windows. Returns the length copied, or the
// size needed with its terminator when the buffer is too small, or 0.
DWORD GetShortPathNameW(const wchar_t *longPath, wchar_t *shortPath, DWORD size);
DWORD GetLongPathNameW(const wchar_t *shortPath, wchar_t *longPath, DWORD size);
// The absolute, normalized form (the current folder before a relative
// path); the path need not exist. `filePart`, if given, points at the last
// name in the buffer, or is null when the path ends in a separator.
DWORD GetFullPathNameW(const wchar_t *fileName, DWORD size, wchar_t *buffer, wchar_t **filePart);

// statvfs of the folder (the current folder for null); each output may be
// null.
BOOL GetDiskFreeSpaceExW(const wchar_t *directoryName, ULARGE_INTEGER *freeBytesAvailableToCaller,
                         ULARGE_INTEGER *totalNumberOfBytes,
                         ULARGE_INTEGER *totalNumberOfFreeBytes);
