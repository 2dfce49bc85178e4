// File-system and shell helpers.
//
// Functions that return `const wchar_t *` return a static buffer of the
// function, overwritten by its next call: copy the text at once, and use
// them from one thread at a time. Paths use the platform's separator. A
// null path is treated as an empty one. Failures give false, 0 or an empty
// text, never a message.
#pragma once

#include <cstdint>

#include "platform/WinTypes.h"

class CFSUtils {
public:
    CFSUtils() = delete;

    // Tests. FileExists is true for anything the path names, a folder too.
    static bool FileExists(const wchar_t *path);
    // An existing folder.
    static bool FolderExists(const wchar_t *path);
    // The directory bit of the attributes as they stand, so a missing path
    // counts as a folder (its attributes are 0xFFFFFFFF).
    static bool IsFolder(const wchar_t *path);
    static bool IsReadOnly(const wchar_t *path);
    static bool IsSystemOrHidden(const wchar_t *path);
    // Tries to create a file in the folder, and removes it again.
    static bool IsFolderWriteable(const wchar_t *folder);
    // Whether the path ends with `extension`, compared without regard to
    // case; a whole suffix, so ".tar.gz" works. A path shorter than the
    // extension gives false; an empty extension matches any path.
    static bool CheckFileExtension(const wchar_t *path, const wchar_t *extension);

    // Facts. Sizes and times of a missing file are 0.
    static DWORD GetFileSize(const wchar_t *path);  // the low 32 bits
    static std::uint64_t GetFileSize64(const wchar_t *path);
    static FILETIME GetFileDate(const wchar_t *path);  // last write, UTC
    // Files (not folders) in the folder; with `recurse`, below it as well.
    static DWORD GetFileCount(const wchar_t *folder, bool recurse);
    // The shell's image list has no POSIX counterpart: always 0.
    static int GetIconIndex(const wchar_t *path, UINT flags = 0);
    static int GetFolderIconIndex(const wchar_t *path);
    static int GetFolderIconSelIndex(const wchar_t *path);

    // Path text.
    // The file name's extension with its dot, or "".
    static const wchar_t *Extension(const wchar_t *path);
    // The path cut at its last "." anywhere in the text, even in a folder
    // name when the file name has none; a path with an empty file name
    // (ending in a separator) comes back whole.
    static const wchar_t *RemoveFileExtension(const wchar_t *path);
    // The part after the last separator.
    static const wchar_t *ExtractFileName(const wchar_t *path);
    // The part before the last separator, without it; "" with none.
    static const wchar_t *ExtractFilePath(const wchar_t *path);
    // The path as stored and compared: full, without a trailing separator,
    // and lower-cased only where file names ignore case.
    static const wchar_t *CanonLocation(const wchar_t *path);
    // Separators to "/" (towards the engine) and back to the platform's.
    static const wchar_t *ConvertToSlashes(const wchar_t *path);
    static const wchar_t *ConvertToBSlashes(const wchar_t *path);
    static const wchar_t *WrapInDoubleQuotes(const wchar_t *text);
    static const wchar_t *GetLongFileName(const wchar_t *path);

    // Folders.
    // Makes the folder and its missing parents. An empty text, a text of
    // fewer than 4 characters or an existing folder give true at once.
    static bool ForceDirectories(const wchar_t *path);
    // The special folder `csidl` into `buffer` (1024 characters).
    static bool ShellGetFolderPath(int csidl, wchar_t *buffer);
    // The temporary folder, without a trailing separator.
    static const wchar_t *GetTempFolder();
    static const wchar_t *GetMyDocumentsFolder();
    // The documents folder and the product's archives folder (string 321).
    static const wchar_t *GetMyArchivesFolder();

    // Unique names. An empty folder, path, parent or name gives "" and
    // makes nothing.
    // "<folder>/<ticks>_<name>", numbered further while taken (at most 101
    // tries, then the last candidate); the folder is made when missing.
    static const wchar_t *CreateUniqueFileName(const wchar_t *folder, const wchar_t *name);
    // The first free "<path>_<n>" from `number` on, made as a folder.
    static const wchar_t *CreateUniqueFolder(const wchar_t *path, int number);
    // A new folder in `parent` named after `name` without its extension,
    // numbered when that is taken.
    static const wchar_t *CreateUniqueFolder(const wchar_t *parent, const wchar_t *name);

    // Changes.
    // Sets the last write time to now.
    static bool TouchFile(const wchar_t *path);
    static bool SetArchiveBit(const wchar_t *path, bool on);
    // To the trash, or removed for good when `permanent`. False for a
    // missing item, with nothing done.
    static bool DeleteFileW(const wchar_t *path, bool permanent);
    static bool DeleteFolder(const wchar_t *path, bool permanent);
    static bool DeleteShellItem(const wchar_t *path, bool permanent);
    static bool CopyShellItem(const wchar_t *from, const wchar_t *to, bool silent);
    // Makes the target's folder when missing.
    static bool MoveShellItem(const wchar_t *from, const wchar_t *to);

    // Starting things; true when the program was started.
    static bool LaunchURL(const wchar_t *url);
    static bool LaunchProgram(const wchar_t *program, const wchar_t *arguments);
    static bool OpenFile(const wchar_t *path);
    static bool OpenExplorerToFolder(const wchar_t *path);
    // A launcher named `name` on the desktop: a link to the target, or with
    // `flags` non-zero one that runs the target as a program.
    static bool CreateDesktopShortcut(const wchar_t *target, const wchar_t *name,
                                      const wchar_t *description, int flags);
    // A start-up entry that runs the target program when the user logs on.
    static bool CreateStartupShortcut(const wchar_t *target);

    // Opens a new mail in the user's mail program with the file attached
    // (none for an empty path), and returns without waiting. Only when the
    // win.ini value "MAPI" of section "Mail" is 0 or missing; with any other
    // value nothing is started. Nothing is reported.
    static void MailFile(const wchar_t *path);
};
