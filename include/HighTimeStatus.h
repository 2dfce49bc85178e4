// The state of a CHighTime or CHighTimeSpan value. A null value is one that
// was never given a time; an invalid one came from a bad date or a failed
// conversion. Both classes bring the names into their scope, so
// CHighTime::valid reads as well as HighTimeStatus::valid.
#pragma once

#include <cstdint>

enum class HighTimeStatus : std::int32_t { valid = 0, invalid = 1, null = 2 };

// The status of a sum or difference: null wins over invalid, invalid over
// valid.
constexpr HighTimeStatus CombinedStatus(HighTimeStatus left, HighTimeStatus right) {
    if (left == HighTimeStatus::null || right == HighTimeStatus::null) return HighTimeStatus::null;
    if (left == HighTimeStatus::invalid || right == HighTimeStatus::invalid) {
        return HighTimeStatus::invalid;
    }
    return HighTimeStatus::valid;
}
