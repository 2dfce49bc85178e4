#include "platform/SystemInfo.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "platform/WinError.h"

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

DWORD GetActiveProcessorCount() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0) {
        int count = CPU_COUNT(&set);
        if (count > 0) return static_cast<DWORD>(count);
    }
    long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<DWORD>(online) : 1;
}
