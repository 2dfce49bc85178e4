// Starting programs and opening documents, process handles, and the
// process environment.
//
// ShellExecuteW / ShellExecuteExW start processes with posix_spawn. The
// parameters are a Windows command line, split by the Windows rules. The
// verb "open" (or none) runs a program and hands a document, folder or URL
// to xdg-open; "print" hands a document to lp; "explore" opens a folder.
// The product's programs keep their Windows names in the logic: the file
// name of the path is mapped to the executable in the program folder.
#pragma once

#include <string>
#include <vector>

#include "platform/KernelObject.h"
#include "platform/WinThread.h"
#include "platform/WinTypes.h"

// Show commands; a window system may use them, a terminal program does not.
inline constexpr int SW_HIDE = 0;
inline constexpr int SW_SHOWNORMAL = 1;
inline constexpr int SW_NORMAL = 1;
inline constexpr int SW_SHOWMINIMIZED = 2;
inline constexpr int SW_SHOWMAXIMIZED = 3;
inline constexpr int SW_MAXIMIZE = 3;
inline constexpr int SW_SHOWNOACTIVATE = 4;
inline constexpr int SW_SHOW = 5;
inline constexpr int SW_MINIMIZE = 6;
inline constexpr int SW_SHOWMINNOACTIVE = 7;
inline constexpr int SW_SHOWNA = 8;
inline constexpr int SW_RESTORE = 9;
inline constexpr int SW_SHOWDEFAULT = 10;

inline constexpr ULONG SEE_MASK_DEFAULT = 0x00000000;
inline constexpr ULONG SEE_MASK_CLASSNAME = 0x00000001;
inline constexpr ULONG SEE_MASK_NOCLOSEPROCESS = 0x00000040;
inline constexpr ULONG SEE_MASK_NOASYNC = 0x00000100;
inline constexpr ULONG SEE_MASK_FLAG_DDEWAIT = 0x00000100;
inline constexpr ULONG SEE_MASK_DOENVSUBST = 0x00000200;
inline constexpr ULONG SEE_MASK_FLAG_NO_UI = 0x00000400;
inline constexpr ULONG SEE_MASK_UNICODE = 0x00004000;
inline constexpr ULONG SEE_MASK_NO_CONSOLE = 0x00008000;
inline constexpr ULONG SEE_MASK_NOZONECHECKS = 0x00800000;

// ShellExecute results at or below 32 are failures.
inline constexpr int SE_ERR_FNF = 2;
inline constexpr int SE_ERR_PNF = 3;
inline constexpr int SE_ERR_ACCESSDENIED = 5;
inline constexpr int SE_ERR_OOM = 8;
inline constexpr int SE_ERR_SHARE = 26;
inline constexpr int SE_ERR_ASSOCINCOMPLETE = 27;
inline constexpr int SE_ERR_DDETIMEOUT = 28;
inline constexpr int SE_ERR_DDEFAIL = 29;
inline constexpr int SE_ERR_DDEBUSY = 30;
inline constexpr int SE_ERR_NOASSOC = 31;
inline constexpr int SE_ERR_DLLNOTFOUND = 32;

inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
inline constexpr DWORD ERROR_NO_ASSOCIATION = 1155;

struct SHELLEXECUTEINFOW {
    DWORD cbSize;
    ULONG fMask;
    HWND hwnd;
    LPCWSTR lpVerb;
    LPCWSTR lpFile;
    LPCWSTR lpParameters;
    LPCWSTR lpDirectory;
    int nShow;
    // Out: above 32 on success, else one of the SE_ERR_ values.
    HINSTANCE hInstApp;
    LPVOID lpIDList;
    LPCWSTR lpClass;
    HKEY hkeyClass;
    DWORD dwHotKey;
    union {
        HANDLE hIcon;
        HANDLE hMonitor;
    };
    // Out, with SEE_MASK_NOCLOSEPROCESS: the started process, or null.
    HANDLE hProcess;
};
using LPSHELLEXECUTEINFOW = SHELLEXECUTEINFOW *;

// On failure returns FALSE; GetLastError and hInstApp tell why.
BOOL ShellExecuteExW(SHELLEXECUTEINFOW *info);
// Returns a value above 32 on success, or the SE_ERR_ code (0 for out of
// resources) cast to HINSTANCE.
HINSTANCE ShellExecuteW(HWND hwnd, LPCWSTR verb, LPCWSTR file, LPCWSTR parameters,
                        LPCWSTR directory, INT showCommand);

struct STARTUPINFOW {
    DWORD cb;
    LPWSTR lpReserved;
    LPWSTR lpDesktop;
    LPWSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};
using LPSTARTUPINFOW = STARTUPINFOW *;

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};
using LPPROCESS_INFORMATION = PROCESS_INFORMATION *;

// Runs applicationName (or the first argument of commandLine) with the
// arguments of commandLine. Attributes, inheritance, flags and the startup
// record are ignored; environment null means this process's environment.
// hThread is a second handle to the same process.
BOOL CreateProcessW(LPCWSTR applicationName, LPWSTR commandLine,
                    LPSECURITY_ATTRIBUTES processAttributes, LPSECURITY_ATTRIBUTES threadAttributes,
                    BOOL inheritHandles, DWORD creationFlags, LPVOID environment,
                    LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                    LPPROCESS_INFORMATION processInformation);

// STILL_ACTIVE while the process runs; then its exit status, or for a
// process ended by a signal 128 plus the signal number (a TerminateProcess
// of this layer reports the code it was given).
BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
BOOL TerminateProcess(HANDLE process, UINT exitCode);
DWORD GetProcessId(HANDLE process);
DWORD GetCurrentProcessId();

// The environment of this process; children inherit it. Names are looked
// up as given first, then without regard to case as Windows does.
BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);
// "%NAME%" is replaced by the variable's value; an unknown name stays as it
// is. Returns the characters needed including the terminator.
DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size);

namespace platform {

// Splits a Windows command line into arguments as CommandLineToArgvW does
// for the arguments after the program name: white space separates, double
// quotes group, 2n backslashes before a quote give n backslashes and a
// quote that toggles, 2n+1 give n backslashes and a literal quote, and ""
// inside a quoted part gives a literal quote. Other backslashes are literal.
std::vector<std::wstring> SplitCommandLine(const wchar_t *commandLine);
// Quotes one argument so that SplitCommandLine gives it back unchanged.
std::wstring QuoteArgument(const std::wstring &argument);
// The arguments quoted and joined by single blanks.
std::wstring JoinCommandLine(const std::vector<std::wstring> &arguments);

// When the file name of path is one of the product's Windows program names
// (compared without regard to case), the path of its executable: the same
// folder, or the program folder when path names no folder. Any other path
// comes back unchanged.
std::wstring MapProgramName(const std::wstring &path);

}  // namespace platform
