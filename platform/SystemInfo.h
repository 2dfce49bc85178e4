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

// The number of processors the process may run on.
DWORD GetActiveProcessorCount();
