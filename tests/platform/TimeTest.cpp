#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <optional>
#include <string>

#include "platform/WinError.h"
#include "platform/WinThread.h"
#include "platform/WinTime.h"

namespace {

// Sets TZ for one test and puts the previous zone back.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char *zone) {
        if (const char *old = std::getenv("TZ")) previous_ = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (previous_) {
            setenv("TZ", previous_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

private:
    std::optional<std::string> previous_;
};

// Central European rules, spelled out so that no zone database is needed.
constexpr const char *kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

SYSTEMTIME Time(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0, WORD second = 0,
                WORD milli = 0) {
    SYSTEMTIME time{};
    time.wYear = year;
    time.wMonth = month;
    time.wDay = day;
    time.wHour = hour;
    time.wMinute = minute;
    time.wSecond = second;
    time.wMilliseconds = milli;
    return time;
}

std::int64_t Ticks(const FILETIME &time) { return platform::TicksFromFileTime(time); }

tm StandardTime(int year, int month, int day, int hour, int minute, int second, int weekday) {
    tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    time.tm_wday = weekday;
    return time;
}

std::wstring DateText(DWORD flags, const SYSTEMTIME &date, const wchar_t *picture) {
    wchar_t buffer[80] = {};
    int written = GetDateFormatW(LOCALE_USER_DEFAULT, flags, &date, picture, buffer, 80);
    EXPECT_EQ(written, static_cast<int>(std::wcslen(buffer)) + 1);
    return buffer;
}

std::wstring TimeText(DWORD flags, const SYSTEMTIME &time, const wchar_t *picture) {
    wchar_t buffer[80] = {};
    int written = GetTimeFormatW(LOCALE_USER_DEFAULT, flags, &time, picture, buffer, 80);
    EXPECT_EQ(written, static_cast<int>(std::wcslen(buffer)) + 1);
    return buffer;
}

}  // namespace

TEST(TimeTest, AsctimeHasTheRuntimesFixedFormWithZeroPaddedDayAndRefusesBadFields) {
    tm late = StandardTime(2026, 11, 22, 1, 41, 46, 0);
    const wchar_t *text = _wasctime(&late);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, L"Sun Nov 22 01:41:46 2026\n");
    EXPECT_EQ(std::wcslen(text), 25u);

    tm early = StandardTime(1980, 1, 2, 2, 3, 55, 3);
    EXPECT_STREQ(_wasctime(&early), L"Wed Jan 02 02:03:55 1980\n");

    // Fields out of range are refused.
    tm badMonth = StandardTime(2026, 13, 1, 0, 0, 0, 0);
    EXPECT_EQ(_wasctime(&badMonth), nullptr);
    tm badWeekday = StandardTime(2026, 1, 1, 0, 0, 0, 7);
    EXPECT_EQ(_wasctime(&badWeekday), nullptr);
    EXPECT_EQ(_wasctime(nullptr), nullptr);
}

TEST(TimeTest, LocaltimeRefusesTimesBefore1970) {
    ScopedTimeZone zone("UTC0");
    __time64_t before = -1;
    tm fields{};
    EXPECT_EQ(_localtime64_s(&fields, &before), EINVAL);
    EXPECT_EQ(fields.tm_year, -1);
    EXPECT_EQ(fields.tm_mday, -1);

    __time64_t now = 0;
    __time64_t returned = _time64(&now);
    EXPECT_EQ(returned, now);
    EXPECT_LE(std::llabs(now - static_cast<__time64_t>(time(nullptr))), 1);
}

TEST(TimeTest, FileTimeAndSystemTimeAgreeWithTheCLibraryAcrossCenturies) {
    // From 1601 to 2400 in steps of a little over 83 days and 17 hours, so
    // every month, weekday and leap rule comes round.
    constexpr std::int64_t step = 83LL * 86400 + 17 * 3600 + 1234;
    const std::int64_t first = -11644473600LL;  // 1601-01-01 in Unix seconds
    const std::int64_t last = 13569465600LL;    // 2400-01-01
    for (std::int64_t seconds = first; seconds < last; seconds += step) {
        FILETIME file = platform::FileTimeFromUnixTime(seconds, 789000000);
        SYSTEMTIME system{};
        ASSERT_TRUE(FileTimeToSystemTime(&file, &system));

        auto unixSeconds = static_cast<time_t>(seconds);
        tm expected{};
        gmtime_r(&unixSeconds, &expected);
        ASSERT_EQ(system.wYear, expected.tm_year + 1900) << seconds;
        ASSERT_EQ(system.wMonth, expected.tm_mon + 1) << seconds;
        ASSERT_EQ(system.wDay, expected.tm_mday) << seconds;
        ASSERT_EQ(system.wDayOfWeek, expected.tm_wday) << seconds;
        ASSERT_EQ(system.wHour, expected.tm_hour) << seconds;
        ASSERT_EQ(system.wMinute, expected.tm_min) << seconds;
        ASSERT_EQ(system.wSecond, expected.tm_sec) << seconds;
        ASSERT_EQ(system.wMilliseconds, 789);

        FILETIME back{};
        ASSERT_TRUE(SystemTimeToFileTime(&system, &back));
        ASSERT_EQ(Ticks(back), Ticks(file)) << seconds;
    }
}

TEST(TimeTest, SystemTimeToFileTimeValidatesLikeWindows) {
    const SYSTEMTIME refused[] = {
        Time(2026, 13, 1),
        Time(2026, 0, 1),
        Time(2026, 1, 32),
        Time(2026, 1, 0),
        Time(2026, 2, 29),
        Time(1900, 2, 29),
        Time(2026, 4, 31),
        Time(2026, 1, 1, 24),
        Time(2026, 1, 1, 0, 60),
        Time(2026, 1, 1, 0, 0, 60),
        Time(2026, 1, 1, 0, 0, 0, 1000),
        Time(1600, 12, 31),
        Time(30828, 1, 1),
    };
    for (const SYSTEMTIME &time : refused) {
        FILETIME file{123, 456};
        SetLastError(0);
        EXPECT_FALSE(SystemTimeToFileTime(&time, &file))
            << time.wYear << "-" << time.wMonth << "-" << time.wDay << " " << time.wHour;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(file.dwLowDateTime, 123u);
    }

    FILETIME file{};
    SYSTEMTIME leapDay = Time(2000, 2, 29, 23, 59, 59, 999);
    leapDay.wDayOfWeek = 6;  // wrong on purpose: ignored
    EXPECT_TRUE(SystemTimeToFileTime(&leapDay, &file));
    SYSTEMTIME back{};
    ASSERT_TRUE(FileTimeToSystemTime(&file, &back));
    EXPECT_EQ(back.wDayOfWeek, 2);  // a Tuesday
}

TEST(TimeTest, FileTimeToSystemTimeRefusesTheHighBitAndReachesYear30828) {
    FILETIME negative{0, 0x80000000u};
    SYSTEMTIME time{};
    SetLastError(0);
    EXPECT_FALSE(FileTimeToSystemTime(&negative, &time));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

    FILETIME largest{0xFFFFFFFFu, 0x7FFFFFFFu};
    ASSERT_TRUE(FileTimeToSystemTime(&largest, &time));
    EXPECT_EQ(time.wYear, 30828);
    EXPECT_EQ(time.wMonth, 9);
    EXPECT_EQ(time.wDay, 14);
    EXPECT_EQ(time.wHour, 2);
    EXPECT_EQ(time.wMinute, 48);
    EXPECT_EQ(time.wSecond, 5);
    EXPECT_EQ(time.wMilliseconds, 477);
}

TEST(TimeTest, CompareFileTimeComparesUnsigned) {
    FILETIME small{5, 0};
    FILETIME big{0, 0x80000000u};
    EXPECT_EQ(CompareFileTime(&small, &big), -1);
    EXPECT_EQ(CompareFileTime(&big, &small), 1);
    EXPECT_EQ(CompareFileTime(&small, &small), 0);
}

TEST(TimeTest, ZoneConversionsUseTheOffsetInForceAtThatTime) {
    ScopedTimeZone zone(kCentralEurope);
    const SYSTEMTIME winterUtc = Time(2026, 1, 15, 12, 0, 0, 250);
    const SYSTEMTIME summerUtc = Time(2026, 7, 15, 23, 30);
    SYSTEMTIME local{};

    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &winterUtc, &local));
    EXPECT_EQ(local.wHour, 13);
    EXPECT_EQ(local.wMilliseconds, 250);
    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &summerUtc, &local));
    EXPECT_EQ(local.wDay, 16);
    EXPECT_EQ(local.wHour, 1);
    EXPECT_EQ(local.wMinute, 30);
    EXPECT_EQ(local.wDayOfWeek, 4);  // Thursday

    // The last winter minute before the change and the first summer one.
    const SYSTEMTIME beforeChange = Time(2026, 3, 29, 0, 59);
    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &beforeChange, &local));
    EXPECT_EQ(local.wHour, 1);
    const SYSTEMTIME afterChange = Time(2026, 3, 29, 1, 0);
    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &afterChange, &local));
    EXPECT_EQ(local.wHour, 3);
}

TEST(TimeTest, ZoneConversionsRefuseAZoneRecordAndBadTimes) {
    const SYSTEMTIME utc = Time(2026, 1, 15);
    SYSTEMTIME local{};
    int someZone = 0;
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(&someZone, &utc, &local));
    EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
    const SYSTEMTIME bad = Time(2026, 2, 30);
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, &bad, &local));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(TimeTest, LocalFileTimeShiftsByThePresentOffsetBothWays) {
    ScopedTimeZone zone("XYZ-3");  // three hours ahead, no daylight saving
    FILETIME utc = platform::FileTimeFromUnixTime(1000000000, 0);
    FILETIME local{};
    ASSERT_TRUE(FileTimeToLocalFileTime(&utc, &local));
    EXPECT_EQ(Ticks(local) - Ticks(utc), 3 * 3600 * platform::kTicksPerSecond);
    FILETIME back{};
    ASSERT_TRUE(LocalFileTimeToFileTime(&local, &back));
    EXPECT_EQ(Ticks(back), Ticks(utc));

    SYSTEMTIME systemNow{};
    SYSTEMTIME localNow{};
    GetSystemTime(&systemNow);
    GetLocalTime(&localNow);
    FILETIME systemFile{};
    FILETIME localFile{};
    ASSERT_TRUE(SystemTimeToFileTime(&systemNow, &systemFile));
    ASSERT_TRUE(SystemTimeToFileTime(&localNow, &localFile));
    std::int64_t difference = Ticks(localFile) - Ticks(systemFile);
    EXPECT_NEAR(static_cast<double>(difference) / platform::kTicksPerSecond, 3 * 3600.0, 5.0);

    FILETIME clock{};
    GetSystemTimeAsFileTime(&clock);
    EXPECT_NEAR(static_cast<double>(Ticks(clock) - Ticks(systemFile)) / platform::kTicksPerSecond,
                0.0, 5.0);
}

TEST(TimeTest, TickCountRisesWithSleep) {
    const DWORD before = GetTickCount();
    Sleep(25);
    const DWORD elapsed = GetTickCount() - before;
    EXPECT_GE(elapsed, 24u);
    EXPECT_LT(elapsed, 5000u);
}

TEST(TimeTest, DateFormatUserDefaultsAreIsoLike) {
    const SYSTEMTIME date = Time(2026, 11, 2);
    EXPECT_EQ(DateText(DATE_SHORTDATE, date, nullptr), L"2026-11-02");
    EXPECT_EQ(DateText(0, date, nullptr), L"2026-11-02");
    EXPECT_EQ(DateText(DATE_LONGDATE, date, nullptr), L"Monday, 2 November 2026");
    EXPECT_EQ(DateText(DATE_YEARMONTH, date, nullptr), L"November 2026");
}

TEST(TimeTest, DateFormatPicturesFollowWindowsRules) {
    const SYSTEMTIME date = Time(2005, 1, 2);
    EXPECT_EQ(DateText(0, date, L"dd'/'MM'/'yyyy"), L"02/01/2005");
    EXPECT_EQ(DateText(0, date, L"d M y yy yyyy"), L"2 1 5 05 2005");
    EXPECT_EQ(DateText(0, date, L"ddd dddd MMM MMMM"), L"Sun Sunday Jan January");
    EXPECT_EQ(DateText(0, date, L"'day' d 'o''clock' '' gg"), L"day 2 o'clock ' A.D.");
    // Letters of the other function are plain text here.
    EXPECT_EQ(DateText(0, date, L"yyyy-MM-dd hh"), L"2005-01-02 hh");
}

TEST(TimeTest, TimeFormatPicturesAndFlags) {
    const SYSTEMTIME time = Time(2026, 1, 1, 13, 5, 9);
    EXPECT_EQ(TimeText(0, time, nullptr), L"13:05:09");
    EXPECT_EQ(TimeText(TIME_NOSECONDS, time, nullptr), L"13:05");
    EXPECT_EQ(TimeText(TIME_NOMINUTESORSECONDS, time, nullptr), L"13");
    EXPECT_EQ(TimeText(0, time, L"HH':'mm"), L"13:05");
    EXPECT_EQ(TimeText(0, time, L"h:m:s t tt"), L"1:5:9 P PM");
    EXPECT_EQ(TimeText(TIME_NOSECONDS, time, L"hh:mm:ss tt"), L"01:05 PM");
    EXPECT_EQ(TimeText(TIME_NOTIMEMARKER, time, L"tt hh:mm"), L"01:05");
    EXPECT_EQ(TimeText(TIME_FORCE24HOURFORMAT, time, L"hh:mm"), L"13:05");
    EXPECT_EQ(TimeText(0, Time(2026, 1, 1, 0, 0, 0), L"h tt"), L"12 AM");
}

TEST(TimeTest, DateAndTimeFormatBufferSizesAndErrors) {
    const SYSTEMTIME date = Time(2026, 11, 22, 1, 41, 46);
    EXPECT_EQ(GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &date, nullptr, nullptr, 0), 11);
    EXPECT_EQ(GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &date, nullptr, nullptr, 0), 9);

    wchar_t small[10] = {};
    SetLastError(0);
    EXPECT_EQ(GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &date, nullptr, small, 10), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);

    wchar_t buffer[40] = {};
    EXPECT_EQ(GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &date, L"yyyy", buffer, 40), 0);
    EXPECT_EQ(GetLastError(), 1004u);  // ERROR_INVALID_FLAGS
    EXPECT_EQ(GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE | DATE_LONGDATE, &date, nullptr,
                             buffer, 40),
              0);
    EXPECT_EQ(GetLastError(), 1004u);

    const SYSTEMTIME badDate = Time(2026, 2, 30);
    EXPECT_EQ(GetDateFormatW(LOCALE_USER_DEFAULT, 0, &badDate, nullptr, buffer, 40), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    const SYSTEMTIME badTime = Time(2026, 1, 1, 25);
    EXPECT_EQ(GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &badTime, nullptr, buffer, 40), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

    // No date: today.
    EXPECT_EQ(GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, nullptr, nullptr, buffer, 40),
              11);
}
