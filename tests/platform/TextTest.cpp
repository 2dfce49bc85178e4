// Conversions, folding and the Windows-format helper.
#include <gtest/gtest.h>

#include "platform/WideText.h"
#include "platform/WinFormat.h"

TEST(WideText, Utf8RoundTripOutsideLatin1) {
    const std::wstring text = L"Ärger \u65e5\u672c \U0001F600 end";
    std::string narrow = platform::ToUtf8(text);
    EXPECT_EQ(narrow, "\xC3\x84rger \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80 end");
    EXPECT_EQ(platform::FromUtf8(narrow), text);
}

TEST(WideText, InvalidInputBecomesReplacementCharacter) {
    EXPECT_EQ(platform::FromUtf8("a\xFF"
                                 "b\xC3"),
              L"a\uFFFDb\uFFFD");
    EXPECT_EQ(platform::FromUtf8("\xC0\x80"), L"\uFFFD\uFFFD");  // overlong NUL
    EXPECT_EQ(platform::ToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

TEST(WideText, Utf16BytesUseSurrogatePairsLittleEndian) {
    auto bytes = platform::ToUtf16Bytes(L"A\U0001F600");
    std::vector<BYTE> expected = {0x41, 0x00, 0x3D, 0xD8, 0x00, 0xDE};
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(platform::FromUtf16Bytes(bytes.data(), bytes.size()), L"A\U0001F600");
    // A trailing odd byte is ignored; a lone surrogate is replaced.
    const BYTE odd[] = {0x41, 0x00, 0x00, 0xD8, 0x42};
    EXPECT_EQ(platform::FromUtf16Bytes(odd, sizeof odd), L"A\uFFFD");
}

TEST(WideText, BufferConversionsCutAtCharacterBoundaryAndTerminate) {
    char narrow[4];
    EXPECT_EQ(WCToMB(L"a\u00e9\u00e9", narrow, sizeof narrow), 3);
    EXPECT_STREQ(narrow, "a\xC3\xA9");
    EXPECT_EQ(WCToMB(L"\u65e5", narrow, 3), 0);  // three bytes do not fit in two
    EXPECT_STREQ(narrow, "");
    wchar_t wide[3];
    EXPECT_EQ(MBToWC("abcdef", wide, 3), 2);
    EXPECT_STREQ(wide, L"ab");
    EXPECT_EQ(MBToWC(nullptr, wide, 3), 0);
    EXPECT_EQ(WCToMB(L"x", nullptr, 3), 0);
}

TEST(WideText, CaseFoldingIsLocaleIndependentAndCoversNonLatin) {
    EXPECT_EQ(_wcsicmp(L"A.ZIP", L"a.zip"), 0);
    EXPECT_EQ(_wcsicmp(L"\u00c4RGER", L"\u00e4rger"), 0);
    EXPECT_EQ(_wcsicmp(L"\u0414\u041e\u041c", L"\u0434\u043e\u043c"), 0);
    EXPECT_LT(_wcsicmp(L"abc", L"ABD"), 0);
    EXPECT_GT(_wcsicmp(L"abcd", L"ABC"), 0);
    EXPECT_EQ(_wcsnicmp(L"Varnick.exe", L"VARNICK.dll", 8), 0);
    EXPECT_EQ(StrCmpNIW(L"x", L"y", 0), 0);
    EXPECT_EQ(_wcsicmp(nullptr, L""), 0);
    wchar_t text[] = L"MiXeD \u00c9";
    EXPECT_STREQ(CharLowerW(text), L"mixed \u00e9");
    EXPECT_TRUE(platform::EndsWithNoCase(L"archive.TAR.GZ", L".tar.gz"));
    EXPECT_FALSE(platform::EndsWithNoCase(L"gz", L".tar.gz"));
    EXPECT_STREQ(StrStrIW(L"Hello World", L"WORLD"), L"World");
}

TEST(WideText, BoundedCopiesFollowTheRuntime) {
    wchar_t small[4];
    EXPECT_EQ(wcscpy_s(small, 4, L"abcd"), ERANGE);
    EXPECT_STREQ(small, L"");
    EXPECT_EQ(wcsncpy_s(small, 4, L"abcdef", _TRUNCATE), STRUNCATE);
    EXPECT_STREQ(small, L"abc");
    EXPECT_EQ(wcsncpy_s(small, 4, L"abcdef", 2), 0);
    EXPECT_STREQ(small, L"ab");
    EXPECT_EQ(wcscat_s(small, 4, L"c"), 0);
    EXPECT_STREQ(small, L"abc");
    EXPECT_EQ(wcscat_s(small, 4, L"d"), ERANGE);
}

TEST(WinFormat, StringsAndCharactersHaveWindowsMeaning) {
    EXPECT_EQ(FormatW(L"%s|%S|%c|%C", L"wide \u00e9", "narrow \xC3\xA9", L'\u00e9', 'x'),
              L"wide \u00e9|narrow \u00e9|\u00e9|x");
    EXPECT_EQ(FormatW(L"%ls %hs %ws", L"a", "b", L"c"), L"a b c");
    EXPECT_EQ(FormatW(L"[%- 23s]", L"left"), L"[left                   ]");
    EXPECT_EQ(FormatW(L"[%8s][%.2s][%-4c]", L"r", L"trunc", L'z'), L"[       r][tr][z   ]");
    EXPECT_EQ(FormatW(L"%s", static_cast<const wchar_t *>(nullptr)), L"(null)");
    EXPECT_EQ(FormatW(L"100%% %s", L"done"), L"100% done");
}

TEST(WinFormat, SizedIntegersAndFloats) {
    EXPECT_EQ(FormatW(L"%I64u %I64d %I64X", static_cast<ULONGLONG>(18446744073709551615ull),
                      static_cast<LONGLONG>(-5), static_cast<ULONGLONG>(0xABCDEF0123ull)),
              L"18446744073709551615 -5 ABCDEF0123");
    EXPECT_EQ(FormatW(L"%I32X %02X %08x", 0xDEADBEEFu, 7u, 255u), L"DEADBEEF 07 000000ff");
    EXPECT_EQ(FormatW(L"%ld %lu %03ld", static_cast<LONG>(-12), static_cast<ULONG>(12),
                      static_cast<LONG>(7)),
              L"-12 12 007");
    EXPECT_EQ(FormatW(L"%.2fGB %i %*d", 1.5, 42, 5, 3), L"1.50GB 42     3");
    EXPECT_EQ(FormatW(L"%Iu", static_cast<std::size_t>(99)), L"99");
    EXPECT_EQ(FormatW(L"%0d|%#x", 5, 255u), L"5|0xff");
}

TEST(WinFormat, BoundedFormsTruncateOrEmptyAsTheRuntimeDoes) {
    wchar_t buffer[6];
    EXPECT_EQ(swprintf_s(buffer, 6, L"%s", L"12345"), 5);
    EXPECT_STREQ(buffer, L"12345");
    EXPECT_EQ(swprintf_s(buffer, 6, L"%s", L"123456"), -1);
    EXPECT_STREQ(buffer, L"");
    EXPECT_EQ(_snwprintf_s(buffer, 6, _TRUNCATE, L"%s", L"abcdefgh"), -1);
    EXPECT_STREQ(buffer, L"abcde");
    EXPECT_EQ(_snwprintf_s(buffer, 6, 3, L"%s", L"abcdefgh"), -1);
    EXPECT_STREQ(buffer, L"abc");
    std::wstring big(2000, L'x');
    std::wstring out(2000, L'\0');
    EXPECT_EQ(wsprintfW(out.data(), L"%s", big.c_str()), 1023);
    EXPECT_EQ(std::wcslen(out.c_str()), 1023u);
}
