// A signed difference of two CHighTime values, in 100 ns ticks, with a
// status.
#pragma once

#include "HighTimeStatus.h"
#include "platform/WinTypes.h"

class CHighTimeSpan {
public:
    using enum HighTimeStatus;

    CHighTimeSpan();
    explicit CHighTimeSpan(__int64 ticks);
    CHighTimeSpan(const CHighTimeSpan &other) = default;
    CHighTimeSpan(LONG days, int hours, int minutes, int seconds, int milli = 0, int micro = 0,
                  int nano = 0);

    CHighTimeSpan &operator=(const CHighTimeSpan &other) = default;

    // Carries each field into the next larger one, signed; nanoseconds round
    // half away from zero to a tick. The status becomes valid.
    void SetHighTimeSpan(LONG days, int hours, int minutes, int seconds, int milli = 0,
                         int micro = 0, int nano = 0);

    HighTimeStatus GetStatus() const { return m_status; }
    void SetStatus(HighTimeStatus status) { m_status = status; }
    operator __int64() const { return m_ticks; }

    // The parts, each with the sign of the span (division truncates).
    LONG GetDays() const;
    int GetHours() const;
    int GetMinutes() const;
    int GetSeconds() const;
    int GetMilliSeconds() const;
    int GetMicroSeconds() const;
    int GetNanoSeconds() const;

    __int64 GetTotalDays() const;
    __int64 GetTotalHours() const;
    __int64 GetTotalMinutes() const;
    __int64 GetTotalSeconds() const;
    __int64 GetTotalMilliSeconds() const;
    __int64 GetTotalMicroSeconds() const;
    __int64 GetTotalNanoSeconds() const;

    bool IsNegative() const { return m_ticks < 0; }

    // As for CHighTime: order by ticks, equality with status.
    bool operator==(const CHighTimeSpan &other) const;
    bool operator!=(const CHighTimeSpan &other) const;
    bool operator<(const CHighTimeSpan &other) const { return m_ticks < other.m_ticks; }
    bool operator<=(const CHighTimeSpan &other) const { return m_ticks <= other.m_ticks; }
    bool operator>(const CHighTimeSpan &other) const { return m_ticks > other.m_ticks; }
    bool operator>=(const CHighTimeSpan &other) const { return m_ticks >= other.m_ticks; }

    // The status stays; the ticks change sign.
    CHighTimeSpan operator-() const;
    // A null operand makes the result null, else an invalid one invalid.
    CHighTimeSpan operator+(const CHighTimeSpan &other) const;
    CHighTimeSpan operator-(const CHighTimeSpan &other) const;
    CHighTimeSpan &operator+=(const CHighTimeSpan &other);
    CHighTimeSpan &operator-=(const CHighTimeSpan &other);

    // As CHighTime::Format, with the codes %D %#D (whole days), %s %#s, %u
    // %#u, %n %#n, all without sign. For wcsftime the span is broken down as
    // a time from 1601-01-01 and its year counted from 1601, so a span of a
    // few days has year 0 (%Y gives 1900).
    wchar_t *Format(wchar_t *buffer, int size, const wchar_t *format) const;

private:
    __int64 WholeSeconds() const;

    HighTimeStatus m_status;
    __int64 m_ticks;
};
