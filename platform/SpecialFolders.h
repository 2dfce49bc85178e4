// Special folders by their Windows CSIDL numbers, with their POSIX meaning.
//
// Per-user folders follow the XDG base and user directories; machine-wide
// ones are fixed system folders. When VARNICK_HOME is set every per-user
// folder lies below $VARNICK_HOME/user (a home of its own, the XDG variables
// ignored) and every machine-wide one below $VARNICK_HOME/machine. The
// layout is written down in platform/README.md. Paths have no trailing
// separator. A known folder is reported whether or not it exists yet; the
// create flag makes it.
#pragma once

#include <string>

#include "platform/WinTypes.h"

inline constexpr int CSIDL_DESKTOP = 0x0000;
inline constexpr int CSIDL_PERSONAL = 0x0005;
inline constexpr int CSIDL_MYDOCUMENTS = CSIDL_PERSONAL;
inline constexpr int CSIDL_STARTUP = 0x0007;
inline constexpr int CSIDL_MYMUSIC = 0x000D;
inline constexpr int CSIDL_MYVIDEO = 0x000E;
inline constexpr int CSIDL_DESKTOPDIRECTORY = 0x0010;
inline constexpr int CSIDL_TEMPLATES = 0x0015;
inline constexpr int CSIDL_COMMON_STARTUP = 0x0018;
inline constexpr int CSIDL_APPDATA = 0x001A;
inline constexpr int CSIDL_LOCAL_APPDATA = 0x001C;
inline constexpr int CSIDL_INTERNET_CACHE = 0x0020;
inline constexpr int CSIDL_COMMON_APPDATA = 0x0023;
inline constexpr int CSIDL_WINDOWS = 0x0024;
inline constexpr int CSIDL_PROGRAM_FILES = 0x0026;
inline constexpr int CSIDL_MYPICTURES = 0x0027;
inline constexpr int CSIDL_PROFILE = 0x0028;
inline constexpr int CSIDL_PROGRAM_FILESX86 = 0x002A;

inline constexpr int CSIDL_FLAG_DONT_VERIFY = 0x4000;
inline constexpr int CSIDL_FLAG_CREATE = 0x8000;
inline constexpr int CSIDL_FLAG_MASK = 0xFF00;

inline constexpr DWORD SHGFP_TYPE_CURRENT = 0;
inline constexpr DWORD SHGFP_TYPE_DEFAULT = 1;

// `path` holds kPathBufferSize (1,024) characters. FALSE for an unknown
// folder, a path that does not fit, or a folder that could not be made;
// the buffer is then left empty.
BOOL SHGetSpecialFolderPathW(HWND owner, wchar_t *path, int csidl, BOOL create);
// The same; CSIDL_FLAG_CREATE in `csidl` makes the folder. S_OK, or
// E_INVALIDARG for an unknown folder or a null buffer, or E_FAIL.
HRESULT SHGetFolderPathW(HWND owner, int csidl, HANDLE token, DWORD flags, wchar_t *path);

namespace platform {

// The folder for a CSIDL (flags in the high byte allowed); empty when the
// folder is unknown or could not be made.
std::wstring SpecialFolder(int csidl, bool create);
// The user's home: $VARNICK_HOME/user, else $HOME, else the password entry.
std::wstring UserHomeFolder();
// A private folder (mode 0700) for the user's sockets: $VARNICK_HOME/user/run
// when VARNICK_HOME is set, else $XDG_RUNTIME_DIR, else a folder of the user
// in the temporary folder. Made when missing; empty when no private folder
// can be had.
std::wstring UserRuntimeFolder();
// Makes a folder only this user can enter: missing parents and the folder
// with mode 0700; an existing folder of the user that is more open is
// tightened to 0700. False, with the last error set, when it cannot be
// made, or is a link or somebody else's folder (ERROR_ACCESS_DENIED).
bool MakePrivateFolder(const std::wstring &path);

}  // namespace platform
