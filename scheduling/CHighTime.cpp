#include "CHighTime.h"

#include <algorithm>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

#include "platform/WinFormat.h"
#include "platform/WinTime.h"
#include "scheduling/TickArithmetic.h"

namespace {

constexpr __int64 kTicksPerSecond = 10000000;
constexpr __int64 kSecondsPerDay = 86400;
// Days from the calendar's year 0 to 1601-01-01.
constexpr __int64 kDaysTo1601 = 584754;
constexpr __int64 kDaysIn400Years = 146097;
constexpr __int64 kDaysIn100Years = 36524;  // a century whose first year has no leap day
constexpr __int64 kDaysIn4Years = 1461;
constexpr int kYearLimit = 29000;

// ---------------------------------------------------------- byte-count slip
//
// Text helpers once counted characters where they meant bytes, on a
// platform whose wide characters have two bytes, so each copy moved half of
// what it should. The copies below do the same on 16-bit character units,
// whatever the size of wchar_t: `byteCount` bytes are byteCount / 2 whole
// units and, for an odd count, the low byte of one more. Units that would
// land outside [0, room) are dropped.
void CopyUnitBytes(wchar_t *target, int targetIndex, const wchar_t *source, int byteCount,
                   int room) {
    int units = (byteCount + 1) / 2;
    std::vector<wchar_t> snapshot(source, source + units);  // memmove semantics
    for (int i = 0; i < units; ++i) {
        int index = targetIndex + i;
        if (index < 0 || index >= room) continue;
        bool lowByteOnly = (byteCount % 2 != 0) && i == units - 1;
        if (lowByteOnly) {
            target[index] = static_cast<wchar_t>((target[index] & ~0xFF) | (snapshot[i] & 0xFF));
        } else {
            target[index] = snapshot[i];
        }
    }
}

int CountOccurrences(const wchar_t *text, const wchar_t *search) {
    int count = 0;
    for (int pos = CHighTime::FindStr(text, search, 0); pos != -1;
         pos = CHighTime::FindStr(text, search, pos + 1)) {
        ++count;
    }
    return count;
}

// ---------------------------------------------------- wcsftime, Windows way
//
// The Windows runtime and glibc agree on most codes but not on these: %c is
// the locale's date and time ("%x %X"; glibc's C locale would spell out the
// day and month), the # flag drops leading zeros from numbers (glibc's "-")
// and asks for the long date in %#c and %#x; on any other code it does
// nothing (glibc would change the case of names).
bool IsNumericCode(wchar_t code) {
    return std::wstring_view(L"dHIjmMSUwWyYeCgGVu").find(code) != std::wstring_view::npos;
}

std::wstring WindowsCode(wchar_t code, bool alternate) {
    if (code == L'c') return alternate ? L"%A, %B %d, %Y %H:%M:%S" : L"%x %X";
    if (code == L'x' && alternate) return L"%A, %B %d, %Y";
    if (alternate && IsNumericCode(code)) return std::wstring(L"%-") + code;
    return std::wstring(L"%") + code;
}

std::wstring WindowsStrftimeFormat(std::wstring_view format) {
    std::wstring out;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != L'%' || i + 1 == format.size()) {
            out += format[i];
            continue;
        }
        bool alternate = format[i + 1] == L'#' && i + 2 < format.size();
        i += alternate ? 2 : 1;
        out += WindowsCode(format[i], alternate);
    }
    return out;
}

}  // namespace

const WORD CHighTime::anMonthDayInYear[14] = {0,   0,   31,  59,  90,  120, 151,
                                              181, 212, 243, 273, 304, 334, 365};

// ------------------------------------------------------------- construction

CHighTime::CHighTime() : m_status(valid), m_ticks(0) {}

CHighTime::CHighTime(__int64 ticks) : m_status(valid), m_ticks(ticks) {}

CHighTime::CHighTime(const SYSTEMTIME &time) : CHighTime() { *this = time; }

CHighTime::CHighTime(const FILETIME &time) : CHighTime() { *this = time; }

CHighTime::CHighTime(int year, int month, int day, int hour, int minute, int second, int milli,
                     int micro, int nano)
    : CHighTime() {
    SetDateTime(year, month, day, hour, minute, second, milli, micro, nano);
}

CHighTime CHighTime::GetPresentTime() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return CHighTime(now);
}

int CHighTime::SetDateTime(int year, int month, int day, int hour, int minute, int second,
                           int milli, int micro, int nano) {
    _HighTimeFormat format{year, month, day, hour, minute, second, milli, micro, nano, 0, 0};
    if (ConvertTimeToLongLong(format, m_ticks) == 0) {
        m_status = invalid;
        return 0;
    }
    m_status = valid;
    return 1;
}

int CHighTime::SetDate(int year, int month, int day) {
    return SetDateTime(year, month, day, 0, 0, 0, 0, 0, 0);
}

int CHighTime::SetTime(int hour, int minute, int second) {
    return SetDateTime(1601, 1, 1, hour, minute, second, 0, 0, 0);
}

int CHighTime::SetFracTime(int milli, int micro, int nano) {
    return SetDateTime(1601, 1, 1, 0, 0, 0, milli, micro, nano);
}

// -------------------------------------------------------------- conversions

CHighTime::operator LARGE_INTEGER() const {
    LARGE_INTEGER value{};
    value.QuadPart = m_ticks;
    return value;
}

CHighTime::operator SYSTEMTIME() const {
    SYSTEMTIME time{};
    GetAsSystemTime(time);
    return time;
}

CHighTime::operator FILETIME() const { return platform::FileTimeFromTicks(m_ticks); }

CHighTime &CHighTime::operator=(__int64 ticks) {
    m_ticks = ticks;
    m_status = valid;
    return *this;
}

CHighTime &CHighTime::operator=(const SYSTEMTIME &time) {
    SetDateTime(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond,
                time.wMilliseconds, 0, 0);
    return *this;
}

CHighTime &CHighTime::operator=(const FILETIME &time) {
    SYSTEMTIME systemTime{};
    if (!FileTimeToSystemTime(&time, &systemTime)) {
        m_status = invalid;
        return *this;
    }
    return *this = systemTime;
}

int CHighTime::GetAsSystemTime(SYSTEMTIME &time) const {
    if (m_status != valid) return 0;
    _HighTimeFormat format = BrokenDown();
    time.wYear = static_cast<WORD>(format.nYear);
    time.wMonth = static_cast<WORD>(format.nMonth);
    time.wDayOfWeek = static_cast<WORD>(format.nDayOfWeek - 1);
    time.wDay = static_cast<WORD>(format.nDay);
    time.wHour = static_cast<WORD>(format.nHour);
    time.wMinute = static_cast<WORD>(format.nMinute);
    time.wSecond = static_cast<WORD>(format.nSecond);
    time.wMilliseconds = static_cast<WORD>(format.nMilli);
    return 1;
}

// ------------------------------------------------------------------ fields

CHighTime::_HighTimeFormat CHighTime::BrokenDown() const {
    _HighTimeFormat format{};
    ConvertLongLongToTime(m_ticks, format);
    return format;
}

int CHighTime::FieldOrMinusOne(int _HighTimeFormat::*field) const {
    return m_status == valid ? BrokenDown().*field : -1;
}

int CHighTime::GetYear() const { return FieldOrMinusOne(&_HighTimeFormat::nYear); }
int CHighTime::GetMonth() const { return FieldOrMinusOne(&_HighTimeFormat::nMonth); }
int CHighTime::GetDay() const { return FieldOrMinusOne(&_HighTimeFormat::nDay); }
int CHighTime::GetHour() const { return FieldOrMinusOne(&_HighTimeFormat::nHour); }
int CHighTime::GetMinute() const { return FieldOrMinusOne(&_HighTimeFormat::nMinute); }
int CHighTime::GetSecond() const { return FieldOrMinusOne(&_HighTimeFormat::nSecond); }
int CHighTime::GetMilliSecond() const { return FieldOrMinusOne(&_HighTimeFormat::nMilli); }
int CHighTime::GetMicroSecond() const { return FieldOrMinusOne(&_HighTimeFormat::nMicro); }
int CHighTime::GetNanoSecond() const { return FieldOrMinusOne(&_HighTimeFormat::nNano); }
int CHighTime::GetDayOfWeek() const { return FieldOrMinusOne(&_HighTimeFormat::nDayOfWeek); }
int CHighTime::GetDayOfYear() const { return FieldOrMinusOne(&_HighTimeFormat::nDayOfYear); }

// ------------------------------------------------------ comparison, arithmetic

bool CHighTime::operator==(const CHighTime &other) const {
    return m_status == other.m_status && m_ticks == other.m_ticks;
}

bool CHighTime::operator!=(const CHighTime &other) const { return !(*this == other); }

CHighTime CHighTime::operator+(const CHighTimeSpan &span) const {
    CHighTime result;
    result.m_status = CombinedStatus(m_status, span.GetStatus());
    if (result.m_status == valid) result.m_ticks = wrapping::Add(m_ticks, span);
    return result;
}

CHighTime CHighTime::operator-(const CHighTimeSpan &span) const {
    CHighTime result;
    result.m_status = CombinedStatus(m_status, span.GetStatus());
    if (result.m_status == valid) result.m_ticks = wrapping::Subtract(m_ticks, span);
    return result;
}

CHighTimeSpan CHighTime::operator-(const CHighTime &other) const {
    CHighTimeSpan result;
    result.SetStatus(CombinedStatus(m_status, other.m_status));
    if (result.GetStatus() == valid)
        result = CHighTimeSpan(wrapping::Subtract(m_ticks, other.m_ticks));
    return result;
}

CHighTime &CHighTime::operator+=(const CHighTimeSpan &span) { return *this = *this + span; }

CHighTime &CHighTime::operator-=(const CHighTimeSpan &span) { return *this = *this - span; }

// ------------------------------------------------------------------ format

wchar_t *CHighTime::Format(wchar_t *buffer, int size, const wchar_t *format) const {
    if (buffer == nullptr || format == nullptr || m_status == null || size < 1) return nullptr;
    if (m_status != valid) return FormatInvalid(buffer, size);
    _HighTimeFormat fields = BrokenDown();
    const FormatCode codes[] = {
        {L"%s", L"%03d", fields.nMilli}, {L"%#s", L"%d", fields.nMilli},
        {L"%u", L"%03d", fields.nMicro}, {L"%#u", L"%d", fields.nMicro},
        {L"%n", L"%03d", fields.nNano},  {L"%#n", L"%d", fields.nNano},
    };
    tm standard{};
    ConvertToStandardFormat(fields, standard);
    return FormatWithCodes(buffer, size, format, codes, 6, standard);
}

wchar_t *CHighTime::FormatInvalid(wchar_t *buffer, int size) {
    std::wcsncpy(buffer, L"Invalid datetime", static_cast<std::size_t>(size));
    buffer[size - 1] = 0;  // a short buffer keeps what fits, terminated
    return buffer;
}

wchar_t *CHighTime::FormatWithCodes(wchar_t *buffer, int size, const wchar_t *format,
                                    const FormatCode *codes, int codeCount, const tm &standard) {
    // One unit more than the buffer, always zero, so that the text stays
    // terminated whatever the replacements leave.
    std::vector<wchar_t> text(static_cast<std::size_t>(size) + 1, 0);
    std::wcsncpy(text.data(), format, static_cast<std::size_t>(size - 1));
    for (int i = 0; i < codeCount; ++i) {
        if (FindStr(text.data(), codes[i].code, 0) == -1) continue;
        std::wstring number = FormatW(codes[i].printFormat, codes[i].value);
        ReplaceStr(text.data(), size, codes[i].code, number.c_str());
    }
    std::wstring rest = WindowsStrftimeFormat(text.data());
    if (std::wcsftime(buffer, static_cast<std::size_t>(size), rest.c_str(), &standard) == 0) {
        buffer[0] = 0;
    }
    return buffer;
}

// ---------------------------------------------------------------- calendar

int CHighTime::ConvertLongLongToTime(__int64 ticks, _HighTimeFormat &format) {
    __int64 fraction = ticks % kTicksPerSecond;
    __int64 seconds = ticks / kTicksPerSecond;
    __int64 clock = seconds % kSecondsPerDay;
    __int64 days = seconds / kSecondsPerDay;

    __int64 n = days + kDaysTo1601;
    format.nDayOfWeek = static_cast<int>((days + kDaysTo1601 - 1) % 7 + 1);

    __int64 r = n % kDaysIn400Years;
    __int64 century = (r - 1) / kDaysIn100Years;
    bool leapCapable = true;
    __int64 quad = 0;
    __int64 c = 0;
    if (century != 0) {
        c = (r - 1) % kDaysIn100Years;
        quad = (c + 1) / kDaysIn4Years;
        if (quad != 0) {
            c = (c + 1) % kDaysIn4Years;
        } else {
            leapCapable = false;  // the first four years of such a century start without a leap day
        }
    } else {
        quad = r / kDaysIn4Years;
        c = r % kDaysIn4Years;
    }

    __int64 y = 0;
    if (leapCapable) {
        y = (c - 1) / 365;
        if (y != 0) c = (c - 1) % 365;
    } else {
        y = c / 365;
        c = c % 365;
    }

    format.nDayOfYear = static_cast<int>(c + 1);
    format.nYear = static_cast<int>(century * 100 + y + (n / kDaysIn400Years) * 400 + quad * 4);

    bool leapYear = y == 0 && leapCapable;
    if (leapYear && c == 59) {
        format.nMonth = 2;
        format.nDay = 29;
    } else {
        if (leapYear && c >= 60) --c;
        // Days before the calendar's year 0 give meaningless fields; the
        // month is kept inside the table all the same.
        __int64 month = std::clamp<__int64>(((c + 1) >> 5) + 1, 1, 12);
        while (month < 12 && c + 1 > anMonthDayInYear[month + 1]) ++month;
        format.nMonth = static_cast<int>(month);
        format.nDay = static_cast<int>(c + 1 - anMonthDayInYear[month]);
    }

    if (clock != 0) {
        format.nSecond = static_cast<int>(clock % 60);
        format.nMinute = static_cast<int>((clock / 60) % 60);
        format.nHour = static_cast<int>(clock / 3600);
    } else {
        format.nSecond = format.nMinute = format.nHour = 0;
    }

    if (fraction != 0) {
        format.nNano = static_cast<int>((fraction % 10) * 100);
        format.nMicro = static_cast<int>((fraction / 10) % 1000);
        format.nMilli = static_cast<int>(fraction / 10000);
    } else {
        format.nNano = format.nMicro = format.nMilli = 0;
    }
    return 1;
}

int CHighTime::ConvertTimeToLongLong(const _HighTimeFormat &format, __int64 &ticks) {
    __int64 t = (static_cast<__int64>(format.nNano) + 50) / 100;

    if (format.nYear > kYearLimit || format.nYear < -kYearLimit || format.nMonth < 1 ||
        format.nMonth > 12) {
        return 0;
    }
    __int64 year = format.nYear;
    bool leapYear = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);

    __int64 micro = t / 10 + format.nMicro;
    __int64 milli = micro / 1000 + format.nMilli;
    __int64 sec = milli / 1000 + format.nSecond;
    __int64 min = sec / 60 + format.nMinute;
    __int64 hour = min / 60 + format.nHour;
    __int64 day = hour / 24 + format.nDay;

    __int64 d =
        year * 365 + year / 4 - year / 100 + year / 400 + anMonthDayInYear[format.nMonth] + day;
    if (leapYear && format.nMonth < 3) --d;

    __int64 seconds =
        (d - kDaysTo1601) * kSecondsPerDay + (hour % 24) * 3600 + (min % 60) * 60 + sec % 60;
    ticks = wrapping::Add(wrapping::Multiply(seconds, kTicksPerSecond),
                          (milli % 1000) * 10000 + (micro % 1000) * 10 + t % 10);
    return 1;
}

void CHighTime::ConvertToStandardFormat(const _HighTimeFormat &format, tm &standard) {
    standard.tm_year = format.nYear - 1900;
    standard.tm_mon = format.nMonth - 1;
    standard.tm_wday = format.nDayOfWeek - 1;
    standard.tm_yday = format.nDayOfYear - 1;
    standard.tm_mday = format.nDay;
    standard.tm_hour = format.nHour;
    standard.tm_min = format.nMinute;
    standard.tm_sec = format.nSecond;
    standard.tm_isdst = 0;
}

// ------------------------------------------------------------ text helpers

int CHighTime::FindStr(const wchar_t *text, const wchar_t *search, int start) {
    auto length = static_cast<int>(std::wcslen(text));
    if (start < 0 || start > length) return -1;
    const wchar_t *found = std::wcsstr(text + start, search);
    return found == nullptr ? -1 : static_cast<int>(found - text);
}

int CHighTime::ReplaceStr(wchar_t *text, int capacity, const wchar_t *search,
                          const wchar_t *replacement) {
    if (capacity < 1 || *search == 0) return 0;
    // Work on a copy with a guard terminator, so that a text the slip leaves
    // unterminated is never read past its buffer.
    std::vector<wchar_t> work(text, text + capacity);
    work.push_back(0);

    int count = CountOccurrences(work.data(), search);
    if (count == 0) return 0;
    auto searchLength = static_cast<int>(std::wcslen(search));
    auto replacementLength = static_cast<int>(std::wcslen(replacement));
    int difference = replacementLength - searchLength;
    if (static_cast<int>(std::wcslen(work.data())) + difference * count > capacity) return 0;

    int pos = FindStr(work.data(), search, 0);
    for (int done = 0; done < count && pos != -1; ++done) {
        if (difference != 0) {
            // The text from the occurrence on moves by the difference, but
            // its length in characters is taken for bytes.
            auto tail = static_cast<int>(std::wcslen(work.data() + pos));
            CopyUnitBytes(work.data(), pos + difference, work.data() + pos, tail, capacity);
        }
        CopyUnitBytes(work.data(), pos, replacement, replacementLength, capacity);
        pos = FindStr(work.data(), search, pos + 1);
    }
    std::copy(work.begin(), work.begin() + capacity, text);
    return count;
}
