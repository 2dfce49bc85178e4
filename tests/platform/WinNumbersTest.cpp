// The runtime's number texts: reading stops at the first non-digit and
// saturates out of range; writing follows the radix and sign rules.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>

#include "platform/WinNumbers.h"

namespace {

TEST(WinNumbersTest, ReadingSkipsBlanksTakesSignAndStopsAtNonDigit) {
    EXPECT_EQ(_wtoi(L" \t\r\n-2309 "), -2309);
    EXPECT_EQ(_wtoi(L"+17abc"), 17);
    EXPECT_EQ(_wtoi(L"abc"), 0);
    EXPECT_EQ(_wtoi(L""), 0);
    EXPECT_EQ(_wtoi(L"- 5"), 0);
    EXPECT_EQ(_wtoi(L"0x1F"), 0);
    EXPECT_EQ(_wtoi64(L"  -9000000000x"), -9000000000LL);
    errno = 0;
    EXPECT_EQ(_wtoi(nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST(WinNumbersTest, ReadingSaturatesOutOfRange) {
    EXPECT_EQ(_wtoi(L"2147483647"), INT_MAX);
    EXPECT_EQ(_wtoi(L"-2147483648"), INT_MIN);
    errno = 0;
    EXPECT_EQ(_wtoi(L"2147483648"), INT_MAX);
    EXPECT_EQ(errno, ERANGE);
    errno = 0;
    EXPECT_EQ(_wtoi(L"-99999999999999999999999"), INT_MIN);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(_wtoi64(L"9223372036854775807"), INT64_MAX);
    EXPECT_EQ(_wtoi64(L"-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(_wtoi64(L"18446744073709551615"), INT64_MAX);
    EXPECT_EQ(_wtoi64(L"-9223372036854775809"), INT64_MIN);
}

TEST(WinNumbersTest, WritingFollowsTheRadix) {
    wchar_t buffer[66];
    EXPECT_STREQ(_ui64tow(0, buffer, 10), L"0");
    EXPECT_STREQ(_ui64tow(UINT64_MAX, buffer, 10), L"18446744073709551615");
    EXPECT_STREQ(_ui64tow(35, buffer, 36), L"z");
    errno = 0;
    EXPECT_STREQ(_ui64tow(35, buffer, 37), L"");
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
