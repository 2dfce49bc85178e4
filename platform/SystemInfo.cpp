#include "platform/SystemInfo.h"

#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "platform/SpecialFolders.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinPath.h"

namespace {

constexpr ULONGLONG kUserAddressSpace = 1ull << 47;

// cgroup v2 keeps the limit in memory.max of the process' own group; "max"
// means none.
ULONGLONG ControlGroupLimit() {
    std::ifstream groups("/proc/self/cgroup");
    std::string line;
    std::string group;
    while (std::getline(groups, line)) {
        if (line.rfind("0::", 0) == 0) group = line.substr(3);
    }
    if (group.empty()) return 0;
    std::ifstream limit("/sys/fs/cgroup" + (group == "/" ? std::string() : group) + "/memory.max");
    std::string value;
    if (!(limit >> value) || value == "max") return 0;
    try {
        return std::stoull(value);
    } catch (...) {
        return 0;
    }
}

// MemAvailable counts the page cache the kernel can give back, which free
// memory alone does not; 0 when the kernel does not say.
ULONGLONG KernelAvailableMemory() {
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    ULONGLONG kibibytes = 0;
    std::string unit;
    while (meminfo >> key >> kibibytes >> unit) {
        if (key == "MemAvailable:") return kibibytes * 1024;
    }
    return 0;
}

ULONGLONG AddressSpaceLimit() {
    struct rlimit limit {};
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        limit.rlim_cur < kUserAddressSpace) {
        return limit.rlim_cur;
    }
    return kUserAddressSpace;
}

}  // namespace

BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status) {
    if (!status || status->dwLength != sizeof(MEMORYSTATUSEX)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    struct sysinfo info {};
    if (sysinfo(&info) != 0) {
        platform::SetLastErrorFromErrno();
        return FALSE;
    }
    const ULONGLONG unit = info.mem_unit ? info.mem_unit : 1;
    ULONGLONG total = info.totalram * unit;
    ULONGLONG available = KernelAvailableMemory();
    if (available == 0) available = (info.freeram + info.bufferram) * unit;
    if (ULONGLONG limit = ControlGroupLimit(); limit != 0 && limit < total) {
        total = limit;
        if (available > total) available = total;
    }
    status->ullTotalPhys = total;
    status->ullAvailPhys = available;
    status->dwMemoryLoad = total ? static_cast<DWORD>(100 - (available * 100) / total) : 0;
    status->ullTotalPageFile = total + info.totalswap * unit;
    status->ullAvailPageFile = available + info.freeswap * unit;
    status->ullTotalVirtual = AddressSpaceLimit();
    status->ullAvailVirtual = status->ullTotalVirtual;
    status->ullAvailExtendedVirtual = 0;
    return TRUE;
}

namespace {

UINT CopyFolder(const std::wstring &folder, LPWSTR buffer, UINT size) {
    if (folder.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return 0;
    }
    if (!buffer || folder.size() >= size) return static_cast<UINT>(folder.size() + 1);
    folder.copy(buffer, folder.size());
    buffer[folder.size()] = L'\0';
    return static_cast<UINT>(folder.size());
}

}  // namespace

BOOL GetVersionExW(OSVERSIONINFOW *info) {
    if (!info || (info->dwOSVersionInfoSize != sizeof(OSVERSIONINFOW) &&
                  info->dwOSVersionInfoSize != sizeof(OSVERSIONINFOEXW))) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    struct utsname names {};
    if (uname(&names) != 0) {
        platform::SetLastErrorFromErrno();
        return FALSE;
    }
    unsigned major = 0, minor = 0, build = 0;
    std::sscanf(names.release, "%u.%u.%u", &major, &minor, &build);
    info->dwMajorVersion = major;
    info->dwMinorVersion = minor;
    info->dwBuildNumber = build;
    info->dwPlatformId = 2;  // VER_PLATFORM_WIN32_NT: the only family there is now
    std::wstring name = platform::FromUtf8(names.sysname);
    wcsncpy_s(info->szCSDVersion, 128, name.c_str(), _TRUNCATE);
    return TRUE;
}

UINT GetWindowsDirectoryW(LPWSTR buffer, UINT size) {
    return CopyFolder(platform::SpecialFolder(CSIDL_WINDOWS, false), buffer, size);
}

UINT GetSystemDirectoryW(LPWSTR buffer, UINT size) {
    std::wstring windows = platform::SpecialFolder(CSIDL_WINDOWS, false);
    return CopyFolder(windows.empty() ? windows : platform::JoinPath(windows, L"lib"), buffer,
                      size);
}
