// Facts about the machine in their Windows form.
#pragma once

#include "platform/WinTypes.h"

struct MEMORYSTATUSEX {
    DWORD dwLength;
    DWORD dwMemoryLoad;
    ULONGLONG ullTotalPhys;
    ULONGLONG ullAvailPhys;
    ULONGLONG ullTotalPageFile;
    ULONGLONG ullAvailPageFile;
    ULONGLONG ullTotalVirtual;
    ULONGLONG ullAvailVirtual;
    ULONGLONG ullAvailExtendedVirtual;
};

// Physical memory is the machine's, lowered to the memory limit of the
// process' control group when one is set; "virtual" is the address-space
// limit of the process (RLIMIT_AS), or the user half of a 64-bit space.
// dwLength must be sizeof(MEMORYSTATUSEX).
BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status);

// The system's version: the running kernel's release "major.minor..." on
// POSIX. Accepts both record sizes, as Windows does.
struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
struct OSVERSIONINFOEXW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
BOOL GetVersionExW(OSVERSIONINFOW *info);

// The Windows folder is /usr and its system folder, where the shared system
// libraries lie, /usr/lib (below VARNICK_HOME when set, like every machine
// folder). Both return the length, or the size needed when it does not fit.
UINT GetWindowsDirectoryW(LPWSTR buffer, UINT size);
UINT GetSystemDirectoryW(LPWSTR buffer, UINT size);
