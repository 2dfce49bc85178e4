#include "platform/WinTime.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <string>
#include <vector>

#include "platform/WinError.h"
#include "platform/WinFormat.h"

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

namespace {

using platform::kTicksPerSecond;
using platform::kTicksToUnixEpoch;

constexpr DWORD kErrorInvalidFlags = 1004;
constexpr std::int64_t kTicksPerMillisecond = 10000;
constexpr std::int64_t kMillisecondsPerDay = 86400000;
// 1601-01-01 to 1970-01-01.
constexpr std::int64_t kDaysToUnixEpoch = 134774;
// The runtime's last representable time, 3000-12-31 23:59:59 UTC.
constexpr __time64_t kMaxTime64 = 32535215999LL;

const wchar_t *const kDayNames[7] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                     L"Thursday", L"Friday", L"Saturday"};
const wchar_t *const kMonthNames[12] = {L"January",   L"February", L"March",    L"April",
                                        L"May",       L"June",     L"July",     L"August",
                                        L"September", L"October",  L"November", L"December"};

BOOL Fail(DWORD code) {
    SetLastError(code);
    return FALSE;
}

std::chrono::year_month_day CalendarDate(const SYSTEMTIME &time) {
    return std::chrono::year_month_day{std::chrono::year{time.wYear},
                                       std::chrono::month{time.wMonth},
                                       std::chrono::day{time.wDay}};
}

bool IsValidDate(const SYSTEMTIME &time) {
    return time.wYear >= 1601 && time.wYear <= 30827 && time.wMonth >= 1 && time.wMonth <= 12 &&
           time.wDay >= 1 && CalendarDate(time).ok();
}

bool IsValidClockTime(const SYSTEMTIME &time) {
    return time.wHour < 24 && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000;
}

bool IsValidSystemTime(const SYSTEMTIME &time) {
    return IsValidDate(time) && IsValidClockTime(time);
}

int DayOfWeek(const SYSTEMTIME &time) {
    return static_cast<int>(
        std::chrono::weekday{std::chrono::sys_days{CalendarDate(time)}}.c_encoding());
}

// A valid system time only.
std::int64_t TicksFromSystemTime(const SYSTEMTIME &time) {
    std::int64_t days =
        std::chrono::sys_days{CalendarDate(time)}.time_since_epoch().count() + kDaysToUnixEpoch;
    std::int64_t seconds = days * 86400 + time.wHour * 3600 + time.wMinute * 60 + time.wSecond;
    return (seconds * 1000 + time.wMilliseconds) * kTicksPerMillisecond;
}

// Non-negative ticks only.
SYSTEMTIME SystemTimeFromTicks(std::int64_t ticks) {
    std::int64_t milliseconds = ticks / kTicksPerMillisecond;
    std::int64_t days = milliseconds / kMillisecondsPerDay;
    auto ofDay = static_cast<int>(milliseconds % kMillisecondsPerDay);
    std::chrono::sys_days date{std::chrono::days{days - kDaysToUnixEpoch}};
    std::chrono::year_month_day ymd{date};
    SYSTEMTIME time{};
    time.wYear = static_cast<WORD>(static_cast<int>(ymd.year()));
    time.wMonth = static_cast<WORD>(static_cast<unsigned>(ymd.month()));
    time.wDay = static_cast<WORD>(static_cast<unsigned>(ymd.day()));
    time.wDayOfWeek = static_cast<WORD>(std::chrono::weekday{date}.c_encoding());
    time.wHour = static_cast<WORD>(ofDay / 3600000);
    time.wMinute = static_cast<WORD>(ofDay / 60000 % 60);
    time.wSecond = static_cast<WORD>(ofDay / 1000 % 60);
    time.wMilliseconds = static_cast<WORD>(ofDay % 1000);
    return time;
}

std::int64_t FloorDiv(std::int64_t value, std::int64_t divisor) {
    std::int64_t quotient = value / divisor;
    return (value % divisor < 0) ? quotient - 1 : quotient;
}

// The local zone's offset from UTC, in ticks, in force at the given UTC tick.
std::int64_t LocalOffsetTicksAt(std::int64_t utcTicks) {
    auto seconds = static_cast<time_t>(FloorDiv(utcTicks - kTicksToUnixEpoch, kTicksPerSecond));
    tm local{};
    if (localtime_r(&seconds, &local) == nullptr) return 0;
    return static_cast<std::int64_t>(local.tm_gmtoff) * kTicksPerSecond;
}

std::int64_t NowTicks() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return kTicksToUnixEpoch + static_cast<std::int64_t>(now.tv_sec) * kTicksPerSecond +
           now.tv_nsec / 100;
}

std::int64_t ElapsedMillisecondsSinceBoot() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

// ------------------------------------------------------------- clock

void GetSystemTimeAsFileTime(FILETIME *fileTime) {
    *fileTime = platform::FileTimeFromTicks(NowTicks());
}

void GetSystemTime(SYSTEMTIME *systemTime) { *systemTime = SystemTimeFromTicks(NowTicks()); }

void GetLocalTime(SYSTEMTIME *localTime) {
    std::int64_t now = NowTicks();
    *localTime = SystemTimeFromTicks(now + LocalOffsetTicksAt(now));
}

DWORD GetTickCount() { return static_cast<DWORD>(GetTickCount64()); }

ULONGLONG GetTickCount64() { return static_cast<ULONGLONG>(ElapsedMillisecondsSinceBoot()); }

// ------------------------------------------------- FILETIME and SYSTEMTIME

BOOL FileTimeToSystemTime(const FILETIME *fileTime, SYSTEMTIME *systemTime) {
    if (fileTime == nullptr || systemTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    std::int64_t ticks = platform::TicksFromFileTime(*fileTime);
    if (ticks < 0) return Fail(ERROR_INVALID_PARAMETER);
    *systemTime = SystemTimeFromTicks(ticks);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME *systemTime, FILETIME *fileTime) {
    if (systemTime == nullptr || fileTime == nullptr || !IsValidSystemTime(*systemTime)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *fileTime = platform::FileTimeFromTicks(TicksFromSystemTime(*systemTime));
    return TRUE;
}

BOOL FileTimeToLocalFileTime(const FILETIME *fileTime, FILETIME *localFileTime) {
    if (fileTime == nullptr || localFileTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    auto ticks = static_cast<std::uint64_t>(platform::TicksFromFileTime(*fileTime));
    ticks += static_cast<std::uint64_t>(LocalOffsetTicksAt(NowTicks()));
    *localFileTime = platform::FileTimeFromTicks(static_cast<std::int64_t>(ticks));
    return TRUE;
}

BOOL LocalFileTimeToFileTime(const FILETIME *localFileTime, FILETIME *fileTime) {
    if (fileTime == nullptr || localFileTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    auto ticks = static_cast<std::uint64_t>(platform::TicksFromFileTime(*localFileTime));
    ticks -= static_cast<std::uint64_t>(LocalOffsetTicksAt(NowTicks()));
    *fileTime = platform::FileTimeFromTicks(static_cast<std::int64_t>(ticks));
    return TRUE;
}

LONG CompareFileTime(const FILETIME *first, const FILETIME *second) {
    auto a = static_cast<std::uint64_t>(platform::TicksFromFileTime(*first));
    auto b = static_cast<std::uint64_t>(platform::TicksFromFileTime(*second));
    return a < b ? -1 : (a > b ? 1 : 0);
}

BOOL SystemTimeToTzSpecificLocalTime(const void *timeZone, const SYSTEMTIME *universalTime,
                                     SYSTEMTIME *localTime) {
    if (timeZone != nullptr) return Fail(ERROR_NOT_SUPPORTED);
    if (universalTime == nullptr || localTime == nullptr || !IsValidSystemTime(*universalTime)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    std::int64_t utc = TicksFromSystemTime(*universalTime);
    std::int64_t local = utc + LocalOffsetTicksAt(utc);
    if (local < 0) return Fail(ERROR_INVALID_PARAMETER);
    *localTime = SystemTimeFromTicks(local);
    return TRUE;
}

// ------------------------------------------------------ runtime time calls

__time64_t _time64(__time64_t *destination) {
    auto now = static_cast<__time64_t>(time(nullptr));
    if (destination != nullptr) *destination = now;
    return now;
}

errno_t _localtime64_s(struct tm *target, const __time64_t *source) {
    if (target == nullptr) return EINVAL;
    if (source == nullptr || *source < 0 || *source > kMaxTime64) {
        target->tm_sec = target->tm_min = target->tm_hour = -1;
        target->tm_mday = target->tm_mon = target->tm_year = -1;
        target->tm_wday = target->tm_yday = target->tm_isdst = -1;
        return EINVAL;
    }
    auto seconds = static_cast<time_t>(*source);
    return localtime_r(&seconds, target) != nullptr ? 0 : EINVAL;
}

wchar_t *_wasctime(const struct tm *time) {
    thread_local wchar_t text[26];
    if (time == nullptr || time->tm_year < 0 || time->tm_year > 8099 || time->tm_mon < 0 ||
        time->tm_mon > 11 || time->tm_mday < 1 || time->tm_mday > 31 || time->tm_hour < 0 ||
        time->tm_hour > 23 || time->tm_min < 0 || time->tm_min > 59 || time->tm_sec < 0 ||
        time->tm_sec > 59 || time->tm_wday < 0 || time->tm_wday > 6) {
        errno = EINVAL;
        return nullptr;
    }
    swprintf_s(text, 26, L"%.3s %.3s %02d %02d:%02d:%02d %4d\n", kDayNames[time->tm_wday],
               kMonthNames[time->tm_mon], time->tm_mday, time->tm_hour, time->tm_min, time->tm_sec,
               time->tm_year + 1900);
    return text;
}

// ------------------------------------------------------- NLS date and time

namespace {

constexpr DWORD kDateFormFlags = DATE_SHORTDATE | DATE_LONGDATE | DATE_YEARMONTH;
// DATE_USE_ALT_CALENDAR, the reading-order flags and LOCALE_USE_CP_ACP are
// accepted and change nothing here.
constexpr DWORD kDateFlags =
    kDateFormFlags | 0x04 | 0x10 | 0x20 | 0x40 | LOCALE_NOUSEROVERRIDE | 0x40000000;
constexpr DWORD kTimeFlags = TIME_NOMINUTESORSECONDS | TIME_NOSECONDS | TIME_NOTIMEMARKER |
                             TIME_FORCE24HOURFORMAT | LOCALE_NOUSEROVERRIDE | 0x40000000;

// A piece of a format picture: a run of one picture letter, or literal text
// (letter 0).
struct PictureToken {
    wchar_t letter = 0;
    int count = 0;
    std::wstring text;
};

bool IsPictureLetter(wchar_t c, const wchar_t *letters) {
    for (; *letters != 0; ++letters) {
        if (*letters == c) return true;
    }
    return false;
}

void AppendLiteral(std::vector<PictureToken> &tokens, wchar_t c) {
    if (tokens.empty() || tokens.back().letter != 0) tokens.push_back(PictureToken{});
    tokens.back().text += c;
}

std::vector<PictureToken> ParsePicture(const wchar_t *picture, const wchar_t *letters) {
    std::vector<PictureToken> tokens;
    const wchar_t *p = picture;
    while (*p != 0) {
        if (*p == L'\'') {
            ++p;
            if (*p == L'\'') {  // '' outside quotes
                AppendLiteral(tokens, L'\'');
                ++p;
                continue;
            }
            while (*p != 0) {
                if (*p == L'\'' && p[1] == L'\'') {
                    AppendLiteral(tokens, L'\'');
                    p += 2;
                } else if (*p == L'\'') {
                    ++p;
                    break;
                } else {
                    AppendLiteral(tokens, *p++);
                }
            }
        } else if (IsPictureLetter(*p, letters)) {
            PictureToken token{*p, 0, {}};
            while (*p == token.letter) {
                ++token.count;
                ++p;
            }
            tokens.push_back(token);
        } else {
            AppendLiteral(tokens, *p++);
        }
    }
    return tokens;
}

// Drops every element of `letter` with the separator that leads to it (or,
// for a first element, the separator that follows it).
void DropElement(std::vector<PictureToken> &tokens, wchar_t letter) {
    for (std::size_t i = 0; i < tokens.size();) {
        if (tokens[i].letter != letter) {
            ++i;
            continue;
        }
        std::size_t first = i;
        std::size_t last = i + 1;
        bool hasEarlierElement = false;
        for (std::size_t j = 0; j < i; ++j) hasEarlierElement |= tokens[j].letter != 0;
        if (hasEarlierElement) {
            while (first > 0 && tokens[first - 1].letter == 0) --first;
        } else {
            while (last < tokens.size() && tokens[last].letter == 0) ++last;
        }
        tokens.erase(tokens.begin() + static_cast<std::ptrdiff_t>(first),
                     tokens.begin() + static_cast<std::ptrdiff_t>(last));
        i = first;
    }
}

std::wstring Number(int value, int count) { return FormatW(count >= 2 ? L"%02d" : L"%d", value); }

std::wstring Name(const wchar_t *name, int count) {
    return count == 3 ? std::wstring(name, 3) : std::wstring(name);
}

std::wstring RenderDate(const std::vector<PictureToken> &tokens, const SYSTEMTIME &date) {
    std::wstring out;
    for (const PictureToken &token : tokens) {
        switch (token.letter) {
            case L'd':
                out += token.count <= 2 ? Number(date.wDay, token.count)
                                        : Name(kDayNames[DayOfWeek(date)], token.count);
                break;
            case L'M':
                out += token.count <= 2 ? Number(date.wMonth, token.count)
                                        : Name(kMonthNames[date.wMonth - 1], token.count);
                break;
            case L'y':
                out += token.count <= 2 ? Number(date.wYear % 100, token.count)
                                        : FormatW(L"%d", date.wYear);
                break;
            case L'g':
                out += L"A.D.";
                break;
            default:
                out += token.text;
        }
    }
    return out;
}

std::wstring RenderTime(const std::vector<PictureToken> &tokens, const SYSTEMTIME &time) {
    std::wstring out;
    int hour12 = time.wHour % 12 == 0 ? 12 : time.wHour % 12;
    const wchar_t *marker = time.wHour < 12 ? L"AM" : L"PM";
    for (const PictureToken &token : tokens) {
        switch (token.letter) {
            case L'h':
                out += Number(hour12, token.count);
                break;
            case L'H':
                out += Number(time.wHour, token.count);
                break;
            case L'm':
                out += Number(time.wMinute, token.count);
                break;
            case L's':
                out += Number(time.wSecond, token.count);
                break;
            case L't':
                out += token.count == 1 ? std::wstring(marker, 1) : std::wstring(marker);
                break;
            default:
                out += token.text;
        }
    }
    return out;
}

const wchar_t *DefaultDatePicture(DWORD flags) {
    if ((flags & DATE_LONGDATE) != 0) return L"dddd, d MMMM yyyy";
    if ((flags & DATE_YEARMONTH) != 0) return L"MMMM yyyy";
    return L"yyyy-MM-dd";
}

// Copies the result the Windows way: size 0 asks for the size needed.
int ReturnText(const std::wstring &text, LPWSTR buffer, int size) {
    int needed = static_cast<int>(text.size()) + 1;
    if (size == 0) return needed;
    if (size < needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    return needed;
}

// The caller's time, or the local time now when none is given.
const SYSTEMTIME *GivenOrNow(const SYSTEMTIME *given, SYSTEMTIME &now) {
    if (given != nullptr) return given;
    GetLocalTime(&now);
    return &now;
}

bool IsValidBuffer(LPWSTR buffer, int size) { return size == 0 || (size > 0 && buffer != nullptr); }

int CountOf(DWORD bits) {
    int count = 0;
    for (; bits != 0; bits &= bits - 1) ++count;
    return count;
}

}  // namespace

int GetDateFormatW(LCID, DWORD flags, const SYSTEMTIME *date, LPCWSTR format, LPWSTR buffer,
                   int size) {
    if (!IsValidBuffer(buffer, size)) return Fail(ERROR_INVALID_PARAMETER);
    DWORD forms = flags & kDateFormFlags;
    if ((flags & ~kDateFlags) != 0 || CountOf(forms) > 1 || (format != nullptr && forms != 0)) {
        return Fail(kErrorInvalidFlags);
    }
    SYSTEMTIME now{};
    date = GivenOrNow(date, now);
    if (!IsValidDate(*date)) return Fail(ERROR_INVALID_PARAMETER);
    const wchar_t *picture = format != nullptr ? format : DefaultDatePicture(flags);
    return ReturnText(RenderDate(ParsePicture(picture, L"dMyg"), *date), buffer, size);
}

int GetTimeFormatW(LCID, DWORD flags, const SYSTEMTIME *time, LPCWSTR format, LPWSTR buffer,
                   int size) {
    if (!IsValidBuffer(buffer, size)) return Fail(ERROR_INVALID_PARAMETER);
    if ((flags & ~kTimeFlags) != 0 || (format != nullptr && (flags & LOCALE_NOUSEROVERRIDE))) {
        return Fail(kErrorInvalidFlags);
    }
    SYSTEMTIME now{};
    time = GivenOrNow(time, now);
    if (!IsValidClockTime(*time)) return Fail(ERROR_INVALID_PARAMETER);
    std::vector<PictureToken> tokens =
        ParsePicture(format != nullptr ? format : L"HH:mm:ss", L"hHmst");
    if ((flags & TIME_NOMINUTESORSECONDS) != 0) DropElement(tokens, L'm');
    if ((flags & (TIME_NOMINUTESORSECONDS | TIME_NOSECONDS)) != 0) DropElement(tokens, L's');
    if ((flags & TIME_NOTIMEMARKER) != 0) DropElement(tokens, L't');
    if ((flags & TIME_FORCE24HOURFORMAT) != 0) {
        for (PictureToken &token : tokens) {
            if (token.letter == L'h') token.letter = L'H';
        }
    }
    return ReturnText(RenderTime(tokens, *time), buffer, size);
}
