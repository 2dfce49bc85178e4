// File and folder calls in their Windows form, status through SetLastError.
//
// Paths are wide text, handed to the system as UTF-8; a "\\?\" prefix is
// dropped. Attributes carry the Windows bits: read-only means the caller may
// not write the item, hidden means its name begins with a dot, system means
// it is neither a regular file nor a folder, reparse point means a symbolic
// link. The archive bit lives in the extended attribute
// "user.varnick.archived" (see ClearArchiveBit).
#pragma once

#include <string>

#include "platform/KernelObject.h"
#include "platform/WinTypes.h"

// Callers always pass null for these; the records themselves have no POSIX
// meaning, so they stay incomplete here.

using PLARGE_INTEGER = LARGE_INTEGER *;

inline constexpr DWORD GENERIC_READ = 0x80000000u;
inline constexpr DWORD GENERIC_WRITE = 0x40000000u;
inline constexpr DWORD GENERIC_EXECUTE = 0x20000000u;
inline constexpr DWORD GENERIC_ALL = 0x10000000u;

inline constexpr DWORD FILE_SHARE_READ = 0x00000001;
inline constexpr DWORD FILE_SHARE_WRITE = 0x00000002;
inline constexpr DWORD FILE_SHARE_DELETE = 0x00000004;

inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;

inline constexpr DWORD FILE_FLAG_WRITE_THROUGH = 0x80000000u;
inline constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000u;
inline constexpr DWORD FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000u;
inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000u;

inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFFu;

inline constexpr DWORD MOVEFILE_REPLACE_EXISTING = 0x00000001;
inline constexpr DWORD MOVEFILE_COPY_ALLOWED = 0x00000002;
inline constexpr DWORD MOVEFILE_WRITE_THROUGH = 0x00000008;

inline constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;

// The tag FindFirstFileW reports in dwReserved0 for a symbolic link.
inline constexpr DWORD IO_REPARSE_TAG_SYMLINK = 0xA000000Cu;

struct WIN32_FILE_ATTRIBUTE_DATA {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
};
using LPWIN32_FILE_ATTRIBUTE_DATA = WIN32_FILE_ATTRIBUTE_DATA *;
static_assert(sizeof(WIN32_FILE_ATTRIBUTE_DATA) == 36);

enum GET_FILEEX_INFO_LEVELS { GetFileExInfoStandard, GetFileExMaxInfoLevel };

struct WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
};
using LPWIN32_FIND_DATAW = WIN32_FIND_DATAW *;

// Attributes and times.
DWORD GetFileAttributesW(LPCWSTR fileName);
BOOL SetFileAttributesW(LPCWSTR fileName, DWORD attributes);
BOOL GetFileAttributesExW(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS level, LPVOID information);
BOOL PathFileExistsW(LPCWSTR path);
// FILE_ATTRIBUTE_DIRECTORY for a folder (or a link to one), else FALSE.
BOOL PathIsDirectoryW(LPCWSTR path);

// Listing. The handle is closed with FindClose (CloseHandle also works).
HANDLE FindFirstFileW(LPCWSTR fileName, LPWIN32_FIND_DATAW findData);
BOOL FindNextFileW(HANDLE findFile, LPWIN32_FIND_DATAW findData);
BOOL FindClose(HANDLE findFile);

// Whole items.
BOOL MoveFileW(LPCWSTR existingFileName, LPCWSTR newFileName);
BOOL MoveFileExW(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags);
BOOL CopyFileW(LPCWSTR existingFileName, LPCWSTR newFileName, BOOL failIfExists);
BOOL DeleteFileW(LPCWSTR fileName);
BOOL CreateDirectoryW(LPCWSTR pathName, LPSECURITY_ATTRIBUTES securityAttributes);
BOOL RemoveDirectoryW(LPCWSTR pathName);

// Temporary names and the working folder.
DWORD GetTempPathW(DWORD bufferLength, LPWSTR buffer);
// `tempFileName` holds MAX_PATH characters.
UINT GetTempFileNameW(LPCWSTR pathName, LPCWSTR prefixString, UINT unique, LPWSTR tempFileName);
DWORD GetCurrentDirectoryW(DWORD bufferLength, LPWSTR buffer);
BOOL SetCurrentDirectoryW(LPCWSTR pathName);

// Open files. Only synchronous I/O: `overlapped` must be null.
HANDLE CreateFileW(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                   LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                   DWORD flagsAndAttributes, HANDLE templateFile);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD numberOfBytesToRead, LPDWORD numberOfBytesRead,
              LPOVERLAPPED overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD numberOfBytesToWrite,
               LPDWORD numberOfBytesWritten, LPOVERLAPPED overlapped);
DWORD GetFileSize(HANDLE file, LPDWORD fileSizeHigh);
BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER fileSize);
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distanceToMove, PLARGE_INTEGER newFilePointer,
                      DWORD moveMethod);
BOOL SetEndOfFile(HANDLE file);
BOOL GetFileTime(HANDLE file, LPFILETIME creationTime, LPFILETIME lastAccessTime,
                 LPFILETIME lastWriteTime);
// The creation time cannot be set on POSIX and is ignored; a null time or
// one of zero leaves that time as it is.
BOOL SetFileTime(HANDLE file, const FILETIME *creationTime, const FILETIME *lastAccessTime,
                 const FILETIME *lastWriteTime);

namespace platform {

// An open file or folder behind a HANDLE from CreateFileW.
class FileObject : public KernelObject {
public:
    explicit FileObject(int descriptor) : descriptor_(descriptor) {}
    ~FileObject() override;
    int Descriptor() const { return descriptor_; }
    // A file handle counts as signalled, as a Windows one does when no
    // I/O is under way.
    DWORD Wait(DWORD milliseconds) override;

private:
    int descriptor_;
};

// The archive bit: set means "changed since last archived". Clearing stores
// the current modification time in the extended attribute; setting removes
// it. On a file system without user extended attributes the bit reads set
// and clearing succeeds without effect.
BOOL ClearArchiveBit(const std::wstring &path);
BOOL SetArchiveBit(const std::wstring &path);

// Copies a file, folder tree or link to `target`. Existing files in the
// way are replaced when `replaceExisting` is true; existing folders are
// merged. Status through SetLastError.
BOOL CopyTree(const std::wstring &source, const std::wstring &target, bool replaceExisting);
// Removes a file, link or whole folder tree, read-only items included.
BOOL RemoveTree(const std::wstring &path);

// Makes a folder and the missing folders above it; TRUE when it is there.
BOOL CreateFolders(const std::wstring &path);
// The folder that holds an item: the text before its last separator, or
// "/" or "." where the path names none.
std::wstring ContainingFolder(const std::wstring &path);
// True when `inner` is `outer` or lies below it, links resolved.
bool IsSameOrInside(const std::wstring &inner, const std::wstring &outer);

}  // namespace platform
