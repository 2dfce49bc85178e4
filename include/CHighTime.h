// A point in time in 100 ns ticks from 1601-01-01 00:00:00, the origin of
// FILETIME, with a status. No zone is held: GetPresentTime reads the local
// clock.
//
// The calendar arithmetic and the text helpers below are static members so
// that CHighTimeSpan breaks its ticks down and formats the same way.
#pragma once

#include <ctime>

#include "CHighTimeSpan.h"
#include "HighTimeStatus.h"
#include "platform/WinTypes.h"

class CHighTime {
public:
    using enum HighTimeStatus;

    // The broken-down form of a tick count.
    struct _HighTimeFormat {
        int nYear;
        int nMonth;  // 1 to 12
        int nDay;
        int nHour;
        int nMinute;
        int nSecond;
        int nMilli;
        int nMicro;
        int nNano;
        int nDayOfYear;  // 1 to 366
        int nDayOfWeek;  // 1 Sunday to 7 Saturday
    };

    // Entry m is the day of a common year at which month m begins, entry
    // m + 1 where it ends.
    static const WORD anMonthDayInYear[14];

    CHighTime();
    explicit CHighTime(__int64 ticks);
    CHighTime(const CHighTime &other) = default;
    CHighTime(const SYSTEMTIME &time);
    CHighTime(const FILETIME &time);
    CHighTime(int year, int month, int day, int hour, int minute, int second, int milli = 0,
              int micro = 0, int nano = 0);

    // Now, from the local clock (millisecond resolution).
    static CHighTime GetPresentTime();

    // 1 and status valid on success; 0 and status invalid otherwise, with the
    // ticks left as they were.
    int SetDateTime(int year, int month, int day, int hour, int minute, int second, int milli,
                    int micro, int nano);
    int SetDate(int year, int month, int day);        // clock time 00:00:00
    int SetTime(int hour, int minute, int second);    // date 1601-01-01
    int SetFracTime(int milli, int micro, int nano);  // 1601-01-01 00:00:00

    HighTimeStatus GetStatus() const { return m_status; }
    void SetStatus(HighTimeStatus status) { m_status = status; }

    operator __int64() const { return m_ticks; }
    operator LARGE_INTEGER() const;
    // Zeros where the value is not valid.
    operator SYSTEMTIME() const;
    // The ticks unchanged, whatever the status.
    operator FILETIME() const;

    CHighTime &operator=(const CHighTime &other) = default;
    CHighTime &operator=(__int64 ticks);
    // Micro- and nanoseconds become 0; the day of the week is ignored.
    CHighTime &operator=(const SYSTEMTIME &time);
    // Through FileTimeToSystemTime, so below a millisecond is lost; a file
    // time it refuses makes the value invalid.
    CHighTime &operator=(const FILETIME &time);

    // 1 on success; 0 if the value is not valid, the target left as it was.
    int GetAsSystemTime(SYSTEMTIME &time) const;

    // The fields of the broken-down form, or -1 if the value is not valid.
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    int GetMilliSecond() const;
    int GetMicroSecond() const;
    int GetNanoSecond() const;
    int GetDayOfWeek() const;  // 1 Sunday to 7 Saturday
    int GetDayOfYear() const;

    // Order by ticks alone; equality also needs the same status.
    bool operator==(const CHighTime &other) const;
    bool operator!=(const CHighTime &other) const;
    bool operator<(const CHighTime &other) const { return m_ticks < other.m_ticks; }
    bool operator<=(const CHighTime &other) const { return m_ticks <= other.m_ticks; }
    bool operator>(const CHighTime &other) const { return m_ticks > other.m_ticks; }
    bool operator>=(const CHighTime &other) const { return m_ticks >= other.m_ticks; }

    // A null operand makes the result null, else an invalid one invalid.
    CHighTime operator+(const CHighTimeSpan &span) const;
    CHighTime operator-(const CHighTimeSpan &span) const;
    CHighTimeSpan operator-(const CHighTime &other) const;
    CHighTime &operator+=(const CHighTimeSpan &span);
    CHighTime &operator-=(const CHighTimeSpan &span);

    // The format's own codes, replaced first: %s %#s milliseconds, %u %#u
    // microseconds, %n %#n nanoseconds (the # forms without leading zeros);
    // every other code is wcsftime's with the Windows runtime's meaning.
    // Returns the buffer; "Invalid datetime" for an invalid value; null for
    // a null value, a null buffer or format, or a size below 1.
    wchar_t *Format(wchar_t *buffer, int size, const wchar_t *format) const;

    // -------------------------------------------- shared with CHighTimeSpan

    // Always 1. Division truncates, so negative ticks give odd fields.
    static int ConvertLongLongToTime(__int64 ticks, _HighTimeFormat &format);
    // 1, or 0 with `ticks` untouched for a year beyond +-29,000 or a month
    // outside 1..12. Other fields are not checked: an excess carries, so
    // 31 February is 3 March in a common year.
    static int ConvertTimeToLongLong(const _HighTimeFormat &format, __int64 &ticks);
    static void ConvertToStandardFormat(const _HighTimeFormat &format, tm &standard);

    // Index of `search` in `text` at or after `start`; -1 if none or if
    // `start` lies outside the text.
    static int FindStr(const wchar_t *text, const wchar_t *search, int start);
    // Replaces every occurrence of `search` in `text` (a buffer of `capacity`
    // characters) and returns their count; 0, text unchanged, if there is
    // none or the result could exceed `capacity`. It keeps the byte-count
    // slip that formatted texts have always shown: the shift of the text
    // after a length change and the copy of the replacement each use a
    // character count as a count of two-byte units' bytes, so only half of
    // each is written ("%D" -> "12" leaves "1D"; "a%sb" with "%s" -> "005"
    // leaves "a00s"). Nothing is written outside the buffer.
    static int ReplaceStr(wchar_t *text, int capacity, const wchar_t *search,
                          const wchar_t *replacement);

    // One of Format's own codes and the number that replaces it.
    struct FormatCode {
        const wchar_t *code;
        const wchar_t *printFormat;
        int value;
    };
    // The body of Format: copies `format` into `buffer`, replaces the codes
    // in the order given, then runs the rest through wcsftime with
    // `standard`.
    static wchar_t *FormatWithCodes(wchar_t *buffer, int size, const wchar_t *format,
                                    const FormatCode *codes, int codeCount, const tm &standard);
    // Format's text for a value that is not valid.
    static wchar_t *FormatInvalid(wchar_t *buffer, int size);

private:
    _HighTimeFormat BrokenDown() const;
    int FieldOrMinusOne(int _HighTimeFormat::*field) const;

    HighTimeStatus m_status;
    __int64 m_ticks;
};
