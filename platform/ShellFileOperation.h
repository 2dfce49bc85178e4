// The shell's file operation: copy, move, rename and delete of files and
// whole folder trees, with deletion to the user's Trash when undo is asked
// for. There is no user interface: confirmations count as given and the
// operation is never cancelled.
#pragma once

#include <string>

#include "platform/WinTypes.h"

inline constexpr UINT FO_MOVE = 0x0001;
inline constexpr UINT FO_COPY = 0x0002;
inline constexpr UINT FO_DELETE = 0x0003;
inline constexpr UINT FO_RENAME = 0x0004;

using FILEOP_FLAGS = WORD;
inline constexpr FILEOP_FLAGS FOF_MULTIDESTFILES = 0x0001;
inline constexpr FILEOP_FLAGS FOF_CONFIRMMOUSE = 0x0002;
inline constexpr FILEOP_FLAGS FOF_SILENT = 0x0004;
inline constexpr FILEOP_FLAGS FOF_RENAMEONCOLLISION = 0x0008;
inline constexpr FILEOP_FLAGS FOF_NOCONFIRMATION = 0x0010;
inline constexpr FILEOP_FLAGS FOF_WANTMAPPINGHANDLE = 0x0020;
inline constexpr FILEOP_FLAGS FOF_ALLOWUNDO = 0x0040;
inline constexpr FILEOP_FLAGS FOF_FILESONLY = 0x0080;
inline constexpr FILEOP_FLAGS FOF_SIMPLEPROGRESS = 0x0100;
inline constexpr FILEOP_FLAGS FOF_NOCONFIRMMKDIR = 0x0200;
inline constexpr FILEOP_FLAGS FOF_NOERRORUI = 0x0400;
inline constexpr FILEOP_FLAGS FOF_NOCOPYSECURITYATTRIBS = 0x0800;
inline constexpr FILEOP_FLAGS FOF_NORECURSION = 0x1000;
inline constexpr FILEOP_FLAGS FOF_NO_CONNECTED_ELEMENTS = 0x2000;
inline constexpr FILEOP_FLAGS FOF_WANTNUKEWARNING = 0x4000;

// The shell's own result codes, next to Win32 codes handed through.
inline constexpr int DE_SAMEFILE = 0x71;
inline constexpr int DE_MANYSRC1DEST = 0x72;
inline constexpr int DE_DIFFDIR = 0x73;
inline constexpr int DE_ROOTDIR = 0x74;
inline constexpr int DE_OPCANCELLED = 0x75;
inline constexpr int DE_DESTSUBTREE = 0x76;
inline constexpr int DE_ACCESSDENIEDSRC = 0x78;
inline constexpr int DE_PATHTOODEEP = 0x79;
inline constexpr int DE_MANYDEST = 0x7A;
inline constexpr int DE_INVALIDFILES = 0x7C;
inline constexpr int DE_DESTSAMETREE = 0x7D;
inline constexpr int DE_FLDDESTISFILE = 0x7E;
inline constexpr int DE_FILEDESTISFLD = 0x80;
inline constexpr int DE_FILENAMETOOLONG = 0x81;

struct SHFILEOPSTRUCTW {
    HWND hwnd;
    UINT wFunc;
    LPCWSTR pFrom;  // names, each terminated, the list ended by an empty one
    LPCWSTR pTo;    // the same form; one name unless FOF_MULTIDESTFILES
    FILEOP_FLAGS fFlags;
    BOOL fAnyOperationsAborted;
    LPVOID hNameMappings;
    LPCWSTR lpszProgressTitle;
};
using LPSHFILEOPSTRUCTW = SHFILEOPSTRUCTW *;

// 0 on success; otherwise a DE_ code or the Win32 code of the first failure.
int SHFileOperationW(LPSHFILEOPSTRUCTW fileOp);

namespace platform {

// The user's Trash folder (holding "files" and "info"), below the local
// application data folder; it is not created here.
std::wstring TrashFolder();

// Moves one file, link or folder tree to the Trash. Status through
// SetLastError.
BOOL MoveToTrash(const std::wstring &path);

}  // namespace platform
