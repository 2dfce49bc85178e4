#include "CHighTime.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "CivilCalendar.h"
#include "platform/WideText.h"
#include "platform/WinTime.h"

namespace {

constexpr __int64 kTicksPerDay = 864000000000LL;
// Days from 1970-01-01 back to 1601-01-01.
const std::int64_t kDays1601 = civil::DaysFromCivil(1601, 1, 1);

__int64 ExpectedTicks(int year, unsigned month, unsigned day, int hour = 0, int minute = 0,
                      int second = 0) {
    return (civil::DaysFromCivil(year, month, day) - kDays1601) * kTicksPerDay +
           ((hour * 60LL + minute) * 60 + second) * 10000000LL;
}

std::wstring Formatted(const CHighTime &time, const wchar_t *format, int size = 100) {
    std::wstring buffer(static_cast<std::size_t>(size), L'?');
    const wchar_t *result = time.Format(buffer.data(), size, format);
    return result == nullptr ? L"<null>" : std::wstring(result);
}

void ExpectDate(const CHighTime &time, int year, int month, int day, int dayOfYear) {
    EXPECT_EQ(time.GetYear(), year);
    EXPECT_EQ(time.GetMonth(), month);
    EXPECT_EQ(time.GetDay(), day);
    EXPECT_EQ(time.GetDayOfYear(), dayOfYear);
}

}  // namespace

TEST(CHighTimeTest, YearBeyond29000OrMonthOutsideTheYearFailsAndKeepsTheTicksGettersGiveMinusOne) {
    EXPECT_EQ(CHighTime(-29001, 1, 1, 0, 0, 0).GetStatus(), CHighTime::invalid);
    EXPECT_EQ(CHighTime(2026, 0, 1, 0, 0, 0).GetStatus(), CHighTime::invalid);
    EXPECT_EQ(CHighTime(29000, 12, 31, 23, 59, 59).GetYear(), 29000);
    EXPECT_EQ(CHighTime(29001, 1, 1, 0, 0, 0).GetStatus(), CHighTime::invalid);

    CHighTime time(2026, 11, 22, 1, 41, 46);
    __int64 before = time;
    EXPECT_EQ(time.SetDateTime(2026, 13, 1, 0, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(time.GetStatus(), CHighTime::invalid);
    EXPECT_EQ(static_cast<__int64>(time), before);
    EXPECT_EQ(time.GetYear(), -1);
    EXPECT_EQ(time.GetNanoSecond(), -1);
    SYSTEMTIME untouched{};
    untouched.wYear = 1234;
    EXPECT_EQ(time.GetAsSystemTime(untouched), 0);
    EXPECT_EQ(untouched.wYear, 1234);

    EXPECT_EQ(time.SetDateTime(2026, 12, 1, 0, 0, 0, 0, 0, 0), 1);
    EXPECT_EQ(time.GetStatus(), CHighTime::valid);
}

TEST(CHighTimeTest, ExcessDayAndClockFieldsCarryForward) {
    CHighTime february31(2001, 2, 31, 0, 0, 0);
    EXPECT_EQ(february31.GetStatus(), CHighTime::valid);
    ExpectDate(february31, 2001, 3, 3, 62);
    ExpectDate(CHighTime(2000, 2, 31, 0, 0, 0), 2000, 3, 2, 62);

    CHighTime lateHour(2026, 12, 31, 25, 61, 61, 1000);
    ExpectDate(lateHour, 2027, 1, 1, 1);
    EXPECT_EQ(lateHour.GetHour(), 2);
    EXPECT_EQ(lateHour.GetMinute(), 2);
    EXPECT_EQ(lateHour.GetSecond(), 2);
    EXPECT_EQ(lateHour.GetMilliSecond(), 0);
}

TEST(CHighTimeTest, NanosecondsRoundToTheNearestTickFromFifty) {
    CHighTime time;
    time.SetFracTime(0, 0, 49);
    EXPECT_EQ(static_cast<__int64>(time), 0);
    time.SetFracTime(0, 0, 50);
    EXPECT_EQ(static_cast<__int64>(time), 1);
    EXPECT_EQ(time.GetNanoSecond(), 100);
    time.SetFracTime(1, 2, 350);
    EXPECT_EQ(static_cast<__int64>(time), 10000 + 20 + 4);
    EXPECT_EQ(time.GetMilliSecond(), 1);
    EXPECT_EQ(time.GetMicroSecond(), 2);
    EXPECT_EQ(time.GetNanoSecond(), 400);
}

TEST(CHighTimeTest, RoundTripsAgreeWithAnIndependentCalendar) {
    auto check = [](int year, unsigned month, unsigned day) {
        int hour = static_cast<int>((year + month) % 24);
        int minute = static_cast<int>((day * 7) % 60);
        int second = static_cast<int>((year * 13) % 60);
        CHighTime time(year, static_cast<int>(month), static_cast<int>(day), hour, minute, second,
                       123, 456, 700);
        std::int64_t days = civil::DaysFromCivil(year, month, day);
        ASSERT_EQ(static_cast<__int64>(time),
                  ExpectedTicks(year, month, day, hour, minute, second) + 1234567)
            << year << "-" << month << "-" << day;
        CHighTime::_HighTimeFormat fields{};
        CHighTime::ConvertLongLongToTime(time, fields);
        ASSERT_EQ(fields.nYear, year);
        ASSERT_EQ(fields.nMonth, static_cast<int>(month));
        ASSERT_EQ(fields.nDay, static_cast<int>(day)) << year << "-" << month;
        ASSERT_EQ(fields.nDayOfYear, days - civil::DaysFromCivil(year, 1, 1) + 1);
        ASSERT_EQ(fields.nDayOfWeek, civil::WeekDay(days) + 1);
        ASSERT_EQ(fields.nHour, hour);
        ASSERT_EQ(fields.nMinute, minute);
        ASSERT_EQ(fields.nSecond, second);
        ASSERT_EQ(fields.nMilli, 123);
        ASSERT_EQ(fields.nMicro, 456);
        ASSERT_EQ(fields.nNano, 700);
    };
    auto checkYear = [&](int year) {
        for (unsigned month = 1; month <= 12; ++month) {
            unsigned last = civil::DaysInMonth(year, month);
            for (unsigned day : {1u, 2u, 15u, last - 1, last}) check(year, month, day);
        }
    };
    for (int year = 1601; year <= 3000; ++year) checkYear(year);
    for (int year = 3001; year <= 29000; year += 97) checkYear(year);
    checkYear(29000);
}

TEST(CHighTimeTest, OrderIgnoresStatusButEqualityDoesNot) {
    CHighTime early(5);
    CHighTime late(10);
    late.SetStatus(CHighTime::invalid);
    EXPECT_TRUE(early < late);
    EXPECT_TRUE(early <= late);
    EXPECT_FALSE(early > late);
    EXPECT_TRUE(late >= early);

    CHighTime sameTicks(5);
    sameTicks.SetStatus(CHighTime::null);
    EXPECT_FALSE(early == sameTicks);
    EXPECT_TRUE(early != sameTicks);
    EXPECT_FALSE(early < sameTicks);
    EXPECT_TRUE(early <= sameTicks);
}

TEST(CHighTimeTest, ArithmeticPropagatesNullOverInvalidOverValid) {
    CHighTime start(2026, 1, 31, 12, 0, 0);
    CHighTimeSpan day(1, 0, 0, 0);
    CHighTime next = start + day;
    EXPECT_EQ(next.GetStatus(), CHighTime::valid);
    ExpectDate(next, 2026, 2, 1, 32);
    EXPECT_EQ(next - day, start);
    CHighTimeSpan difference = next - start;
    EXPECT_EQ(difference.GetStatus(), CHighTimeSpan::valid);
    EXPECT_EQ(difference.GetTotalHours(), 24);

    CHighTime invalid = start;
    invalid.SetStatus(CHighTime::invalid);
    CHighTimeSpan nullSpan = day;
    nullSpan.SetStatus(CHighTimeSpan::null);
    EXPECT_EQ((invalid + day).GetStatus(), CHighTime::invalid);
    EXPECT_EQ((invalid + nullSpan).GetStatus(), CHighTime::null);
    EXPECT_EQ((start - nullSpan).GetStatus(), CHighTime::null);
    EXPECT_EQ((start - invalid).GetStatus(), CHighTimeSpan::invalid);
}

TEST(CHighTimeTest, SystemTimeAndFileTimeConversions) {
    SYSTEMTIME system{};
    system.wYear = 2026;
    system.wMonth = 11;
    system.wDay = 22;
    system.wDayOfWeek = 3;  // wrong on purpose: ignored
    system.wHour = 1;
    system.wMinute = 41;
    system.wSecond = 46;
    system.wMilliseconds = 250;
    CHighTime time(system);
    EXPECT_EQ(static_cast<__int64>(time), ExpectedTicks(2026, 11, 22, 1, 41, 46) + 2500000);

    SYSTEMTIME back = time;
    EXPECT_EQ(back.wDayOfWeek, 0);  // Sunday
    EXPECT_EQ(back.wDay, 22);
    EXPECT_EQ(back.wMilliseconds, 250);

    // Through FileTimeToSystemTime: below a millisecond is lost.
    FILETIME file = platform::FileTimeFromTicks(ExpectedTicks(2026, 11, 22) + 12345678);
    CHighTime fromFile(file);
    EXPECT_EQ(static_cast<__int64>(fromFile), ExpectedTicks(2026, 11, 22) + 12340000);
    FILETIME highBit{0, 0x80000000u};
    fromFile = highBit;
    EXPECT_EQ(fromFile.GetStatus(), CHighTime::invalid);

    // Out to FILETIME and LARGE_INTEGER the ticks go unchanged.
    CHighTime exact(ExpectedTicks(2026, 11, 22) + 12345678);
    FILETIME out = exact;
    EXPECT_EQ(platform::TicksFromFileTime(out), ExpectedTicks(2026, 11, 22) + 12345678);
}

TEST(CHighTimeTest, FormatOfInvalidAndNullValues) {
    CHighTime invalid(2026, 13, 1, 0, 0, 0);
    EXPECT_EQ(Formatted(invalid, L"%Y"), L"Invalid datetime");
    EXPECT_EQ(Formatted(invalid, L"%Y", 8), L"Invalid");

    CHighTime null;
    null.SetStatus(CHighTime::null);
    EXPECT_EQ(Formatted(null, L"%Y"), L"<null>");

    wchar_t buffer[10];
    EXPECT_EQ(CHighTime().Format(buffer, 0, L"%Y"), nullptr);
}

TEST(CHighTimeTest, FormatCodesKeepTheWindowsRuntimeMeaning) {
    CHighTime time(2026, 11, 2, 13, 41, 6);
    EXPECT_EQ(Formatted(time, L"%Y-%m-%d %H:%M:%S"), L"2026-11-02 13:41:06");
    EXPECT_EQ(Formatted(time, L"%y %I %p %j %%"), L"26 01 PM 306 %");
    EXPECT_EQ(Formatted(time, L"%A %a %B %b"), L"Monday Mon November Nov");
    EXPECT_EQ(Formatted(time, L"%c"), L"11/02/26 13:41:06");
    EXPECT_EQ(Formatted(time, L"%x|%X"), L"11/02/26|13:41:06");
    EXPECT_EQ(Formatted(time, L"%#d.%#m.%Y %#H:%M"), L"2.11.2026 13:41");
    EXPECT_EQ(Formatted(time, L"%#x"), L"Monday, November 02, 2026");
    EXPECT_EQ(Formatted(time, L"%#a %#B"), L"Mon November");
    // Too small a buffer for the result gives an empty text.
    EXPECT_EQ(Formatted(time, L"%Y-%m-%d", 5), L"");
}

TEST(CHighTimeTest, FormatFractionCodesShowTheByteCountSlip) {
    CHighTime time(2026, 11, 2, 13, 41, 6, 45, 600, 700);
    // A three-digit number arrives as its first two digits, whether the
    // code is shorter ("%s", "%u") or as long ("%#n", whose "n" stays).
    EXPECT_EQ(Formatted(time, L"%S.%s"), L"06.04");
    EXPECT_EQ(Formatted(time, L"%u"), L"60");
    EXPECT_EQ(Formatted(time, L"<%#n>"), L"<70n>");
}

// A replacement writes only half of each copy (the byte count taken for a
// character count); what could overflow is refused, absent text ignored,
// and what a shorter replacement would shift before the buffer is dropped.
TEST(CHighTimeTest, ReplaceStrWritesOnlyHalfOfEachCopy) {
    struct Row {
        const wchar_t *text;
        int size;
        const wchar_t *old;
        const wchar_t *replacement;
        int count;
        const wchar_t *result;
    };
    for (const Row &row :
         {Row{L"%D", 10, L"%D", L"12", 1, L"1D"}, Row{L"a%sb", 10, L"%s", L"005", 1, L"a00s"},
          Row{L"%s-%s", 10, L"%s", L"ab", 2, L"as-as"}, Row{L"a%sb", 4, L"%s", L"005", 0, L"a%sb"},
          Row{L"a%sb", 5, L"%u", L"005", 0, L"a%sb"}, Row{L"%#sX", 10, L"%#s", L"5", 1, L"5#sX"}}) {
        wchar_t text[10] = {};
        wcscpy_s(text, 10, row.text);
        EXPECT_EQ(CHighTime::ReplaceStr(text, row.size, row.old, row.replacement), row.count)
            << row.text;
        EXPECT_STREQ(text, row.result) << row.text;
    }
}

TEST(CHighTimeTest, TimesFarBefore1601StayWithinTheCalendarTables) {
    // Valid by the year limit, though the break-down of such ticks means
    // nothing; it must neither crash nor read outside its tables.
    CHighTime ancient(-29000, 6, 15, 12, 0, 0);
    EXPECT_EQ(ancient.GetStatus(), CHighTime::valid);
    EXPECT_GE(ancient.GetMonth(), 1);
    EXPECT_LE(ancient.GetMonth(), 12);
    wchar_t buffer[64];
    EXPECT_NE(ancient.Format(buffer, 64, L"%Y-%m-%d %a %b %s"), nullptr);
    EXPECT_NE(CHighTime(static_cast<__int64>(-1)).Format(buffer, 64, L"%H %#n"), nullptr);
}
