#include "CJulianDate.h"

#include <gtest/gtest.h>

#include "CivilCalendar.h"
#include "platform/WinTime.h"

namespace {

const std::int64_t kDays1900 = civil::DaysFromCivil(1900, 1, 1);

SYSTEMTIME Date(WORD year, WORD month, WORD day) {
    SYSTEMTIME date{};
    date.wYear = year;
    date.wMonth = month;
    date.wDay = day;
    return date;
}

}  // namespace

TEST(CJulianDateTest, RefusedDateKeepsTheStoredValueAndADayPastTheMonthCarriesOn) {
    CJulianDate date(2000, 1, 1);
    LONG stored = date.GetDayNumber();
    date.SetYMD(1899, 12, 31);
    EXPECT_EQ(date.GetDayNumber(), stored);
    date.SetYMD(2000, 0, 1);
    date.SetYMD(2000, 13, 1);
    date.SetYMD(2000, 1, 0);
    date = Date(1899, 1, 1);
    EXPECT_EQ(date.GetDayNumber(), stored);
    // A new object refused at construction starts from day 0.
    EXPECT_EQ(CJulianDate(1899, 1, 1).GetDayNumber(), 0);
    // A day past the end of the month carries on.
    EXPECT_EQ(CJulianDate(2001, 2, 31), CJulianDate(2001, 3, 3));
    EXPECT_EQ(CJulianDate(2000, 2, 31), CJulianDate(2000, 3, 2));
    EXPECT_EQ(CJulianDate(2000, 12, 32), CJulianDate(2001, 1, 1));
}

TEST(CJulianDateTest,
     EveryDayFrom1900To2400AgreesWithAnIndependentCalendarAndToSystimeZeroesTheClock) {
    for (int year = 1900; year < 2400; ++year) {
        for (unsigned month = 1; month <= 12; ++month) {
            for (unsigned day = 1; day <= civil::DaysInMonth(year, month); ++day) {
                CJulianDate date(static_cast<WORD>(year), static_cast<WORD>(month),
                                 static_cast<WORD>(day));
                ASSERT_EQ(date.GetDayNumber(), civil::DaysFromCivil(year, month, day) - kDays1900)
                    << year << "-" << month << "-" << day;
                SYSTEMTIME back{};
                back.wDayOfWeek = 6;
                back.wHour = 5;
                back.wMilliseconds = 8;
                date.ToSystime(&back);
                ASSERT_EQ(back.wYear, year);
                ASSERT_EQ(back.wMonth, month);
                ASSERT_EQ(back.wDay, day) << year << "-" << month;
                // The clock is zeroed and the weekday left as it was.
                ASSERT_EQ(back.wHour + back.wMilliseconds, 0);
                ASSERT_EQ(back.wDayOfWeek, 6);
            }
        }
    }
}

TEST(CJulianDateTest, DayArithmeticAndSignedComparison) {
    CJulianDate date(2000, 2, 28);
    CJulianDate next = date + 1;
    EXPECT_EQ(next - date, 1);
    EXPECT_EQ(date - next, -1);
    EXPECT_EQ(next, CJulianDate(2000, 2, 29));
    EXPECT_EQ(date + 2, CJulianDate(2000, 3, 1));
    EXPECT_EQ(CJulianDate(2000, 3, 1) - 366, CJulianDate(1999, 3, 1));

    // Before day 0 the number is negative and compares as such, and a result
    // of -1 stays -1 rather than turning into today.
    CJulianDate before = CJulianDate(1900, 1, 1) - 1;
    EXPECT_EQ(before.GetDayNumber(), -1);
    EXPECT_LT(before, CJulianDate(1900, 1, 1));
    EXPECT_GT(CJulianDate(1900, 1, 1), before);
    EXPECT_LE(before, before);
    EXPECT_NE(before, CJulianDate(1900, 1, 1));
}
