#include "platform/WinTime.h"

namespace platform {

std::int64_t TicksFromFileTime(const FILETIME &time) {
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) |
                                     time.dwLowDateTime);
}

FILETIME FileTimeFromTicks(std::int64_t ticks) {
    auto value = static_cast<std::uint64_t>(ticks);
    return FILETIME{static_cast<DWORD>(value & 0xFFFFFFFFu), static_cast<DWORD>(value >> 32)};
}

FILETIME FileTimeFromUnixTime(std::int64_t seconds, long nanoseconds) {
    return FileTimeFromTicks(kTicksToUnixEpoch + seconds * kTicksPerSecond + nanoseconds / 100);
}

void UnixTimeFromFileTime(const FILETIME &time, std::int64_t &seconds, long &nanoseconds) {
    std::int64_t ticks = TicksFromFileTime(time) - kTicksToUnixEpoch;
    seconds = ticks / kTicksPerSecond;
    std::int64_t rest = ticks % kTicksPerSecond;
    if (rest < 0) {
        rest += kTicksPerSecond;
        --seconds;
    }
    nanoseconds = static_cast<long>(rest * 100);
}

}  // namespace platform
