// An independent proleptic Gregorian calendar for checking the date classes:
// the well-known days-from-civil formula, counting days from 1970-01-01.
#pragma once

#include <cstdint>

namespace civil {

inline std::int64_t DaysFromCivil(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

inline bool IsLeap(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

inline unsigned DaysInMonth(std::int64_t year, unsigned month) {
    static const unsigned lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : lengths[month - 1];
}

// 0 Sunday to 6 Saturday.
inline int WeekDay(std::int64_t daysFrom1970) {
    return static_cast<int>(((daysFrom1970 % 7) + 7 + 4) % 7);
}

}  // namespace civil
