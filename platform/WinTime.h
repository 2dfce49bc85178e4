// Clock and calendar calls in their Windows form. FILETIME counts 100 ns
// ticks since 1601-01-01 UTC.
//
// The local time zone is the process's POSIX zone (TZ, else /etc/localtime).
// Zone arguments of the Tz... calls must be null: the library only ever
// converts with the current zone. Sleep lives with the threads
// (platform/WinThread.h).
#pragma once

#include <cstdint>
#include <ctime>

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

// ------------------------------------------------------------- clock
void GetLocalTime(SYSTEMTIME *localTime);
void GetSystemTime(SYSTEMTIME *systemTime);
void GetSystemTimeAsFileTime(FILETIME *fileTime);

// Milliseconds since boot (suspended time included, as on Windows). The
// 32-bit form wraps after 49.7 days.
DWORD GetTickCount();
ULONGLONG GetTickCount64();

// ------------------------------------------------- FILETIME and SYSTEMTIME
// Both fail with ERROR_INVALID_PARAMETER as Windows does: a file time of
// 0x8000000000000000 or more; a system time outside 1601..30827, a month
// outside 1..12, a day beyond its month, hour 24, minute or second 60,
// millisecond 1000. The day of the week is ignored on input and computed on
// output.
BOOL FileTimeToSystemTime(const FILETIME *fileTime, SYSTEMTIME *systemTime);
BOOL SystemTimeToFileTime(const SYSTEMTIME *systemTime, FILETIME *fileTime);

// Windows shifts by the zone's offset of the present moment, not of the
// converted time, so a summer file time read in winter is an hour off; the
// pair is kept that way so that it stays an exact inverse.
BOOL FileTimeToLocalFileTime(const FILETIME *fileTime, FILETIME *localFileTime);
BOOL LocalFileTimeToFileTime(const FILETIME *localFileTime, FILETIME *fileTime);
// -1, 0 or 1, comparing the 64-bit values as unsigned numbers.
LONG CompareFileTime(const FILETIME *first, const FILETIME *second);

// Uses the offset in force at the converted time (daylight saving
// included). `timeZone` must be null (the current zone); anything else
// fails with ERROR_NOT_SUPPORTED.
BOOL SystemTimeToTzSpecificLocalTime(const void *timeZone, const SYSTEMTIME *universalTime,
                                     SYSTEMTIME *localTime);

// ------------------------------------------------------ runtime time calls
using __time64_t = std::int64_t;
using errno_t = int;

__time64_t _time64(__time64_t *destination);
// Local broken-down time. As in the Windows runtime, a null argument or a
// time before 1970 or after 3000-12-31 23:59:59 UTC gives EINVAL, and the
// target's fields then read -1.
errno_t _localtime64_s(struct tm *target, const __time64_t *source);
// The runtime's fixed form "Wed Jan 02 02:03:55 1980\n": 25 characters and
// the terminator, the day of the month with a leading zero. The text lives
// in a buffer of the calling thread that the next call overwrites. Null for
// a null or out-of-range `tm` (year 1900..9999).
wchar_t *_wasctime(const struct tm *time);

// ------------------------------------------------------- NLS date and time
// The user's default forms are ISO 8601-like and the same on every machine,
// whatever the POSIX locale: short date "yyyy-MM-dd", long date
// "dddd, d MMMM yyyy", year and month "MMMM yyyy", time "HH:mm:ss". Day and
// month names are English. Every locale id is read as the user default.
//
// Format pictures follow Windows: d dd ddd dddd, M MM MMM MMMM, y yy yyyy,
// g gg (era), h hh H HH m mm s ss t tt; text in single quotes is literal and
// '' is one quote; any other character is copied. A null date or time means
// now (local). Both return the characters written including the terminator,
// or with size 0 the size needed; too small a buffer gives 0 and
// ERROR_INSUFFICIENT_BUFFER, a bad date or time ERROR_INVALID_PARAMETER, a
// picture together with a DATE_ form flag ERROR_INVALID_FLAGS.
using LCID = DWORD;
inline constexpr LCID LOCALE_SYSTEM_DEFAULT = 0x0800;
inline constexpr LCID LOCALE_USER_DEFAULT = 0x0400;
inline constexpr LCID LOCALE_INVARIANT = 0x007F;
inline constexpr DWORD LOCALE_NOUSEROVERRIDE = 0x80000000;
inline constexpr DWORD DATE_SHORTDATE = 0x00000001;
inline constexpr DWORD DATE_LONGDATE = 0x00000002;
inline constexpr DWORD DATE_YEARMONTH = 0x00000008;
// With a picture the TIME_ flags still apply: the left-out element goes
// together with the separator in front of it ("HH':'mm':'ss" without seconds
// is "HH':'mm").
inline constexpr DWORD TIME_NOMINUTESORSECONDS = 0x00000001;
inline constexpr DWORD TIME_NOSECONDS = 0x00000002;
inline constexpr DWORD TIME_NOTIMEMARKER = 0x00000004;
inline constexpr DWORD TIME_FORCE24HOURFORMAT = 0x00000008;

int GetDateFormatW(LCID locale, DWORD flags, const SYSTEMTIME *date, LPCWSTR format, LPWSTR buffer,
                   int size);
int GetTimeFormatW(LCID locale, DWORD flags, const SYSTEMTIME *time, LPCWSTR format, LPWSTR buffer,
                   int size);
