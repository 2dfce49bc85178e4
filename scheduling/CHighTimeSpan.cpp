#include "CHighTimeSpan.h"

#include <cstdlib>
#include <ctime>

#include "CHighTime.h"
#include "scheduling/TickArithmetic.h"

namespace {

constexpr __int64 kTicksPerSecond = 10000000;

// Nanoseconds to ticks, half away from zero.
__int64 RoundedTicks(__int64 nano) { return (nano >= 0 ? nano + 50 : nano - 50) / 100; }

}  // namespace

CHighTimeSpan::CHighTimeSpan() : m_status(valid), m_ticks(0) {}

CHighTimeSpan::CHighTimeSpan(__int64 ticks) : m_status(valid), m_ticks(ticks) {}

CHighTimeSpan::CHighTimeSpan(LONG days, int hours, int minutes, int seconds, int milli, int micro,
                             int nano)
    : CHighTimeSpan() {
    SetHighTimeSpan(days, hours, minutes, seconds, milli, micro, nano);
}

void CHighTimeSpan::SetHighTimeSpan(LONG days, int hours, int minutes, int seconds, int milli,
                                    int micro, int nano) {
    __int64 t = RoundedTicks(nano);
    __int64 carriedMicro = t / 10 + micro;
    __int64 carriedMilli = carriedMicro / 1000 + milli;
    __int64 carriedSeconds = carriedMilli / 1000 + seconds;
    __int64 carriedMinutes = carriedSeconds / 60 + minutes;
    __int64 carriedHours = carriedMinutes / 60 + hours;
    __int64 carriedDays = carriedHours / 24 + days;

    __int64 ticks = carriedDays * 86400 + (carriedHours % 24) * 3600 + (carriedMinutes % 60) * 60 +
                    carriedSeconds % 60;
    ticks = wrapping::Multiply(ticks, kTicksPerSecond);
    ticks =
        wrapping::Add(ticks, (carriedMilli % 1000) * 10000 + (carriedMicro % 1000) * 10 + t % 10);
    m_ticks = ticks;
    m_status = valid;
}

// ------------------------------------------------------------------- parts

__int64 CHighTimeSpan::WholeSeconds() const { return m_ticks / kTicksPerSecond; }

LONG CHighTimeSpan::GetDays() const { return static_cast<LONG>(WholeSeconds() / 86400); }
int CHighTimeSpan::GetHours() const { return static_cast<int>(WholeSeconds() % 86400 / 3600); }
int CHighTimeSpan::GetMinutes() const { return static_cast<int>(WholeSeconds() % 3600 / 60); }
int CHighTimeSpan::GetSeconds() const { return static_cast<int>(WholeSeconds() % 60); }
int CHighTimeSpan::GetMilliSeconds() const {
    return static_cast<int>(m_ticks % kTicksPerSecond / 10000);
}
int CHighTimeSpan::GetMicroSeconds() const { return static_cast<int>(m_ticks % 10000 / 10); }
int CHighTimeSpan::GetNanoSeconds() const { return static_cast<int>(m_ticks % 10 * 100); }

__int64 CHighTimeSpan::GetTotalDays() const { return WholeSeconds() / 86400; }
__int64 CHighTimeSpan::GetTotalHours() const { return WholeSeconds() / 3600; }
__int64 CHighTimeSpan::GetTotalMinutes() const { return WholeSeconds() / 60; }
__int64 CHighTimeSpan::GetTotalSeconds() const { return WholeSeconds(); }
__int64 CHighTimeSpan::GetTotalMilliSeconds() const { return m_ticks / 10000; }
__int64 CHighTimeSpan::GetTotalMicroSeconds() const { return m_ticks / 10; }
__int64 CHighTimeSpan::GetTotalNanoSeconds() const {
    // Wraps beyond 292 years rather than overflow.
    return wrapping::Multiply(m_ticks, 100);
}

// ------------------------------------------------------ comparison, arithmetic

bool CHighTimeSpan::operator==(const CHighTimeSpan &other) const {
    return m_status == other.m_status && m_ticks == other.m_ticks;
}

bool CHighTimeSpan::operator!=(const CHighTimeSpan &other) const { return !(*this == other); }

CHighTimeSpan CHighTimeSpan::operator-() const {
    CHighTimeSpan result(wrapping::Subtract(0, m_ticks));
    result.m_status = m_status;
    return result;
}

CHighTimeSpan CHighTimeSpan::operator+(const CHighTimeSpan &other) const {
    CHighTimeSpan result;
    result.m_status = CombinedStatus(m_status, other.m_status);
    if (result.m_status == valid) result.m_ticks = wrapping::Add(m_ticks, other.m_ticks);
    return result;
}

CHighTimeSpan CHighTimeSpan::operator-(const CHighTimeSpan &other) const {
    CHighTimeSpan result;
    result.m_status = CombinedStatus(m_status, other.m_status);
    if (result.m_status == valid) result.m_ticks = wrapping::Subtract(m_ticks, other.m_ticks);
    return result;
}

CHighTimeSpan &CHighTimeSpan::operator+=(const CHighTimeSpan &other) {
    return *this = *this + other;
}

CHighTimeSpan &CHighTimeSpan::operator-=(const CHighTimeSpan &other) {
    return *this = *this - other;
}

// ------------------------------------------------------------------ format

wchar_t *CHighTimeSpan::Format(wchar_t *buffer, int size, const wchar_t *format) const {
    if (buffer == nullptr || format == nullptr || m_status == null || size <= 0) return nullptr;
    if (m_status != valid) return CHighTime::FormatInvalid(buffer, size);

    int days = std::abs(static_cast<int>(GetDays()));
    int milli = std::abs(GetMilliSeconds());
    int micro = std::abs(GetMicroSeconds());
    int nano = std::abs(GetNanoSeconds());
    const CHighTime::FormatCode codes[] = {
        {L"%D", L"%0d", days},  {L"%#D", L"%d", days},   {L"%s", L"%03d", milli},
        {L"%#s", L"%d", milli}, {L"%u", L"%03d", micro}, {L"%#u", L"%d", micro},
        {L"%n", L"%03d", nano}, {L"%#n", L"%d", nano},
    };

    CHighTime::_HighTimeFormat fields{};
    CHighTime::ConvertLongLongToTime(m_ticks, fields);
    tm standard{};
    CHighTime::ConvertToStandardFormat(fields, standard);
    standard.tm_year = fields.nYear - 1601;  // the span's years count from 1601
    return CHighTime::FormatWithCodes(buffer, size, format, codes, 8, standard);
}
