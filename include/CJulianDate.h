// A plain day number for date arithmetic: day 0 is 1900-01-01. Despite the
// name it is not the astronomers' Julian day.
#pragma once

#include "platform/WinTypes.h"

class CJulianDate {
public:
    // The day number that stands for today (UTC).
    static constexpr DWORD kToday = 0xFFFFFFFFu;
    // Lengths of the months of a common year.
    static const int anMonthLength[12];

    // A date SetYMD refuses leaves day 0.
    CJulianDate(WORD year, WORD month, WORD day);
    CJulianDate(const SYSTEMTIME &date);
    explicit CJulianDate(DWORD dayNumber = kToday);

    // A year before 1900, a month outside 1..12 or day 0 leaves the value as
    // it was. The day is not checked against its month: it carries on.
    void SetYMD(WORD year, WORD month, WORD day);
    // Year, month and day, with the clock fields zero. The day of the week
    // is left as it was; a caller that needs it sets it.
    void ToSystime(SYSTEMTIME *date) const;
    static int IsLeapYear(int year);

    LONG GetDayNumber() const { return m_date; }

    CJulianDate &operator=(const SYSTEMTIME &date);

    CJulianDate operator+(LONG days) const;
    CJulianDate operator-(LONG days) const;
    CJulianDate &operator+=(LONG days);
    CJulianDate &operator-=(LONG days);
    CJulianDate &operator++();
    CJulianDate operator++(int);
    CJulianDate &operator--();
    CJulianDate operator--(int);
    // Days from `other` to this date.
    LONG operator-(const CJulianDate &other) const;

    bool operator==(const CJulianDate &other) const { return m_date == other.m_date; }
    bool operator!=(const CJulianDate &other) const { return m_date != other.m_date; }
    bool operator<(const CJulianDate &other) const { return m_date < other.m_date; }
    bool operator<=(const CJulianDate &other) const { return m_date <= other.m_date; }
    bool operator>(const CJulianDate &other) const { return m_date > other.m_date; }
    bool operator>=(const CJulianDate &other) const { return m_date >= other.m_date; }

private:
    static int DaysInYear(int year) { return 365 + IsLeapYear(year); }

    LONG m_date = 0;
};
