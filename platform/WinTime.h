// Clock and calendar calls in their Windows form. FILETIME counts 100 ns
// ticks since 1601-01-01 UTC.
#pragma once

#include <cstdint>

#include "platform/WinTypes.h"

namespace platform {

// Ticks between 1601-01-01 and the Unix epoch.
inline constexpr std::int64_t kTicksToUnixEpoch = 116444736000000000LL;
inline constexpr std::int64_t kTicksPerSecond = 10000000LL;

std::int64_t TicksFromFileTime(const FILETIME &time);
FILETIME FileTimeFromTicks(std::int64_t ticks);
FILETIME FileTimeFromUnixTime(std::int64_t seconds, long nanoseconds);
// Seconds and nanoseconds since the Unix epoch (floor division, so times
// before 1970 keep a non-negative nanosecond part).
void UnixTimeFromFileTime(const FILETIME &time, std::int64_t &seconds, long &nanoseconds);

}  // namespace platform
