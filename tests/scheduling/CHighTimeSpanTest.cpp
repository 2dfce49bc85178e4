#include "CHighTimeSpan.h"

#include <gtest/gtest.h>

#include <string>

#include "CHighTime.h"

namespace {

std::wstring Formatted(const CHighTimeSpan &span, const wchar_t *format, int size = 100) {
    std::wstring buffer(static_cast<std::size_t>(size), L'?');
    const wchar_t *result = span.Format(buffer.data(), size, format);
    return result == nullptr ? L"<null>" : std::wstring(result);
}

}  // namespace

TEST(CHighTimeSpanTest, PartsOfANegativeSpanAreAllNegative) {
    CHighTimeSpan span(-1, -2, -3, -4, -5, -6, -700);
    EXPECT_TRUE(span.IsNegative());
    EXPECT_EQ(span.GetDays(), -1);
    EXPECT_EQ(span.GetHours(), -2);
    EXPECT_EQ(span.GetMinutes(), -3);
    EXPECT_EQ(span.GetSeconds(), -4);
    EXPECT_EQ(span.GetMilliSeconds(), -5);
    EXPECT_EQ(span.GetMicroSeconds(), -6);
    EXPECT_EQ(span.GetNanoSeconds(), -700);

    // Mixed signs are summed first, then split.
    CHighTimeSpan mixed(0, 1, -30, 0);
    EXPECT_EQ(mixed.GetHours(), 0);
    EXPECT_EQ(mixed.GetMinutes(), 30);
}

TEST(CHighTimeSpanTest, TotalsTruncateTowardZeroAndNanosecondsRoundHalfAwayFromIt) {
    EXPECT_EQ(static_cast<__int64>(CHighTimeSpan(0, 0, 0, 0, 0, 0, 49)), 0);
    EXPECT_EQ(static_cast<__int64>(CHighTimeSpan(0, 0, 0, 0, 0, 0, 50)), 1);
    EXPECT_EQ(static_cast<__int64>(CHighTimeSpan(0, 0, 0, 0, 0, 0, -50)), -1);
    CHighTimeSpan span(1, 1, 0, 30, 500);
    EXPECT_EQ(span.GetTotalDays(), 1);
    EXPECT_EQ(span.GetTotalHours(), 25);
    EXPECT_EQ(span.GetTotalMinutes(), 1500);
    EXPECT_EQ(span.GetTotalSeconds(), 90030);
    EXPECT_EQ(span.GetTotalMilliSeconds(), 90030500);
    EXPECT_EQ((-span).GetTotalHours(), -25);
}

TEST(CHighTimeSpanTest, ArithmeticPropagatesNullOverInvalidOverValid) {
    CHighTimeSpan hour(0, 1, 0, 0);
    CHighTimeSpan minute(0, 0, 1, 0);
    EXPECT_EQ((hour + minute).GetTotalMinutes(), 61);
    EXPECT_EQ((hour - minute).GetTotalMinutes(), 59);

    CHighTimeSpan invalid = hour;
    invalid.SetStatus(CHighTimeSpan::invalid);
    CHighTimeSpan null = hour;
    null.SetStatus(CHighTimeSpan::null);
    EXPECT_EQ((hour + invalid).GetStatus(), CHighTimeSpan::invalid);
    EXPECT_EQ((invalid - hour).GetStatus(), CHighTimeSpan::invalid);
    EXPECT_EQ((invalid + null).GetStatus(), CHighTimeSpan::null);
    EXPECT_EQ((null - hour).GetStatus(), CHighTimeSpan::null);
    EXPECT_EQ((-invalid).GetStatus(), CHighTimeSpan::invalid);
}

TEST(CHighTimeSpanTest, FormatOfInvalidAndNullSpans) {
    CHighTimeSpan invalid;
    invalid.SetStatus(CHighTimeSpan::invalid);
    EXPECT_EQ(Formatted(invalid, L"%D"), L"Invalid datetime");
    CHighTimeSpan null;
    null.SetStatus(CHighTimeSpan::null);
    EXPECT_EQ(Formatted(null, L"%D"), L"<null>");
    wchar_t buffer[4];
    EXPECT_EQ(CHighTimeSpan().Format(buffer, 4, nullptr), nullptr);
}

TEST(CHighTimeSpanTest, FormatClockCodesReadTheSpanAsATimeFrom1601) {
    CHighTimeSpan span(3, 2, 3, 4);
    EXPECT_EQ(Formatted(span, L"%H:%M:%S"), L"02:03:04");
    // Year 0 of the span is 1900 to wcsftime; day of year counts from 1.
    EXPECT_EQ(Formatted(span, L"%Y %j"), L"1900 004");
    // A negative span breaks down to a time before 1601.
    EXPECT_EQ(Formatted(-CHighTimeSpan(0, 1, 0, 0), L"%H"), L"-1");
}

TEST(CHighTimeSpanTest, FormatDaysShowTheByteCountSlip) {
    // "%D" with two digits keeps only the first: twelve days read "1D".
    EXPECT_EQ(Formatted(CHighTimeSpan(12, 0, 0, 0), L"%D"), L"1D");
    EXPECT_EQ(Formatted(-CHighTimeSpan(12, 0, 0, 0), L"%D"), L"1D");
    // Four digits: two arrive, and the half-shifted code leaves its "%"
    // behind them.
    EXPECT_EQ(Formatted(CHighTimeSpan(1234, 0, 0, 0), L"%D"), L"12%");
}
