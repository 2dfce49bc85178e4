#include "CJulianDate.h"

#include "platform/WinTime.h"

namespace {

constexpr int kFirstYear = 1900;

// Day arithmetic wraps as the 32-bit number does, without overflow.
LONG AddDays(LONG date, LONG days) {
    return static_cast<LONG>(static_cast<DWORD>(date) + static_cast<DWORD>(days));
}

LONG SubtractDays(LONG date, LONG days) {
    return static_cast<LONG>(static_cast<DWORD>(date) - static_cast<DWORD>(days));
}

}  // namespace

const int CJulianDate::anMonthLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

CJulianDate::CJulianDate(WORD year, WORD month, WORD day) { SetYMD(year, month, day); }

CJulianDate::CJulianDate(const SYSTEMTIME &date) { *this = date; }

CJulianDate::CJulianDate(DWORD dayNumber) {
    if (dayNumber != kToday) {
        m_date = static_cast<LONG>(dayNumber);
        return;
    }
    SYSTEMTIME today{};
    GetSystemTime(&today);
    SetYMD(today.wYear, today.wMonth, today.wDay);
}

int CJulianDate::IsLeapYear(int year) {
    if (year % 4 != 0) return 0;
    if (year % 100 != 0) return 1;
    return year % 400 == 0 ? 1 : 0;
}

void CJulianDate::SetYMD(WORD year, WORD month, WORD day) {
    if (year < kFirstYear || month == 0 || month > 12 || day == 0) return;
    LONG value = day - 1;
    if (IsLeapYear(year) && month > 2) ++value;
    for (int m = 1; m < month; ++m) value += anMonthLength[m - 1];
    value += (year - kFirstYear) * 365;
    for (int y = kFirstYear; y < year; y += 4) value += IsLeapYear(y);
    m_date = value;
}

void CJulianDate::ToSystime(SYSTEMTIME *date) const {
    LONG rest = m_date;
    int year = kFirstYear;
    while (rest >= DaysInYear(year)) {
        rest -= DaysInYear(year);
        ++year;
    }
    bool leap = IsLeapYear(year) != 0;
    int month = 0;  // index into anMonthLength
    while (month < 11) {
        if (month == 1 && leap && rest == 28) break;  // 29 February
        if (rest < anMonthLength[month]) break;
        rest -= anMonthLength[month];
        if (month == 1 && leap) --rest;
        ++month;
    }
    date->wYear = static_cast<WORD>(year);
    date->wMonth = static_cast<WORD>(month + 1);
    date->wDay = static_cast<WORD>(rest + 1);
    date->wHour = 0;
    date->wMinute = 0;
    date->wSecond = 0;
    date->wMilliseconds = 0;
}

CJulianDate &CJulianDate::operator=(const SYSTEMTIME &date) {
    SetYMD(date.wYear, date.wMonth, date.wDay);
    return *this;
}

// Not through the day-number constructor: a result of -1 would read as today.
CJulianDate CJulianDate::operator+(LONG days) const {
    CJulianDate result = *this;
    result.m_date = AddDays(m_date, days);
    return result;
}

CJulianDate CJulianDate::operator-(LONG days) const {
    CJulianDate result = *this;
    result.m_date = SubtractDays(m_date, days);
    return result;
}

CJulianDate &CJulianDate::operator+=(LONG days) { return *this = *this + days; }

CJulianDate &CJulianDate::operator-=(LONG days) { return *this = *this - days; }

CJulianDate &CJulianDate::operator++() { return *this += 1; }

CJulianDate CJulianDate::operator++(int) {
    CJulianDate before = *this;
    ++*this;
    return before;
}

CJulianDate &CJulianDate::operator--() { return *this -= 1; }

CJulianDate CJulianDate::operator--(int) {
    CJulianDate before = *this;
    --*this;
    return before;
}

LONG CJulianDate::operator-(const CJulianDate &other) const {
    return SubtractDays(m_date, other.m_date);
}
