// win.ini profile strings: defaults, Windows parsing rules, cutting to the
// buffer, lists, writes that keep the rest of the file, and the locale's
// thousands separator.
#include <gtest/gtest.h>

#include <locale.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "ScopedEnv.h"
#include "platform/ProfileStrings.h"
#include "platform/WideText.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;

using testsupport::ScopedEnv;

class ProfileStringsTest : public testsupport::HomeTest {
protected:
    fs::path WinIni() { return home.Path() / "user/.config/win.ini"; }

    void WriteWinIni(const std::string &bytes) {
        fs::create_directories(WinIni().parent_path());
        testsupport::WriteBytes(WinIni(), bytes);
    }

    std::wstring Get(const wchar_t *section, const wchar_t *key, const wchar_t *fallback,
                     DWORD size = 256) {
        std::wstring buffer(size, L'?');
        DWORD length = GetProfileStringW(section, key, fallback, buffer.data(), size);
        EXPECT_EQ(buffer[length], L'\0');
        return buffer.substr(0, length);
    }
};

TEST_F(ProfileStringsTest, MissingFileOrKeyGivesTheDefault) {
    EXPECT_EQ(Get(L"Mail", L"MAPI", L"fallback  "), L"fallback");  // trailing blanks cut
    EXPECT_EQ(Get(L"Mail", L"MAPI", nullptr), L"");
    EXPECT_EQ(GetProfileIntW(L"Mail", L"MAPI", 0), 0u);
    EXPECT_EQ(GetProfileIntW(L"Mail", L"MAPI", 7), 7u);
    WriteWinIni("[Mail]\nOther=1\n");
    EXPECT_EQ(Get(L"Mail", L"MAPI", L"d"), L"d");
    EXPECT_EQ(Get(L"Nothing", L"MAPI", L"d"), L"d");
}

TEST_F(ProfileStringsTest, ReadsWithWindowsRules) {
    WriteWinIni(
        "; comment\r\n"
        "[ mail ]\r\n"
        "  MAPI = 1 \r\n"
        ";MAPI=2\r\n"
        "Quoted=\" padded \"\r\n"
        "Empty=\r\n"
        "[Numbers]\r\n"
        "Big=12abc\r\n"
        "Word=abc\r\n"
        "Negative=-3\r\n"
        "Text=\xC3\xA4\xE6\x97\xA5\r\n");
    EXPECT_EQ(Get(L"MAIL", L"mapi", L"d"), L"1");
    EXPECT_EQ(GetProfileIntW(L"Mail", L"MAPI", 0), 1u);
    EXPECT_EQ(Get(L"Mail", L"Quoted", L"d"), L" padded ");
    EXPECT_EQ(Get(L"Mail", L"Empty", L"d"), L"");
    EXPECT_EQ(GetProfileIntW(L"Numbers", L"Big", 0), 12u);
    EXPECT_EQ(GetProfileIntW(L"Numbers", L"Word", 5), 0u);
    EXPECT_EQ(GetProfileIntW(L"Numbers", L"Negative", 0), static_cast<UINT>(-3));
    EXPECT_EQ(GetProfileIntW(nullptr, L"x", 4), 4u);
    // A file without a mark is in the system code page, UTF-8.
    EXPECT_EQ(Get(L"Numbers", L"Text", L"d"), L"\u00e4\u65e5");
}

TEST_F(ProfileStringsTest, ResultIsCutToSizeMinusOne) {
    WriteWinIni("[Intl]\nsThousand=abcdef\n");
    EXPECT_EQ(Get(L"Intl", L"sThousand", L",", 4), L"abc");
    EXPECT_EQ(Get(L"Intl", L"sThousand", L",", 1), L"");
    wchar_t buffer[2] = L"x";
    EXPECT_EQ(GetProfileStringW(L"Intl", L"sThousand", L",", buffer, 0), 0u);
    EXPECT_STREQ(buffer, L"x");
    EXPECT_EQ(GetProfileStringW(L"Intl", L"sThousand", L",", nullptr, 10), 0u);
}

TEST_F(ProfileStringsTest, NullSectionOrKeyListsNamesWithDoubleTerminator) {
    WriteWinIni("[One]\na=1\nb=2\n[Two]\n");
    wchar_t buffer[32];
    EXPECT_EQ(GetProfileStringW(nullptr, nullptr, L"d", buffer, 32), 8u);
    EXPECT_EQ(std::wstring(buffer, 9), std::wstring(L"One\0Two\0\0", 9));
    EXPECT_EQ(GetProfileStringW(L"one", nullptr, L"d", buffer, 32), 4u);
    EXPECT_EQ(std::wstring(buffer, 5), std::wstring(L"a\0b\0\0", 5));
    // Too small: cut to size - 2 and closed with two terminators.
    EXPECT_EQ(GetProfileStringW(nullptr, nullptr, L"d", buffer, 6), 4u);
    EXPECT_EQ(std::wstring(buffer, 6), std::wstring(L"One\0\0\0", 6));
}

TEST_F(ProfileStringsTest, WritesKeepTheRestOfTheFile) {
    EXPECT_TRUE(WriteProfileStringW(L"Mail", L"MAPI", L"1"));
    EXPECT_EQ(testsupport::ReadBytes(WinIni()).substr(0, 2), "\xFF\xFE");
    EXPECT_EQ(GetProfileIntW(L"Mail", L"MAPI", 0), 1u);

    WriteWinIni("; keep me\n[Mail]\nMAPI=1\n\n[Other]\nx=\xE6\x97\xA5\n");
    EXPECT_TRUE(WriteProfileStringW(L"mail", L"New", L"v"));
    EXPECT_TRUE(WriteProfileStringW(L"Mail", L"mapi", L"0"));
    EXPECT_TRUE(WriteProfileStringW(L"Third", L"k", L"\U0001F600"));
    std::wstring text;
    {
        std::string bytes = testsupport::ReadBytes(WinIni());
        ASSERT_EQ(bytes.substr(0, 2), "\xFF\xFE");
        text = platform::FromUtf16Bytes(reinterpret_cast<const BYTE *>(bytes.data()) + 2,
                                        bytes.size() - 2);
    }
    EXPECT_EQ(text,
              L"; keep me\r\n[Mail]\r\nmapi=0\r\nNew=v\r\n\r\n[Other]\r\nx=\u65e5\r\n"
              L"[Third]\r\nk=\U0001F600\r\n");

    EXPECT_TRUE(WriteProfileStringW(L"Mail", L"New", nullptr));
    EXPECT_EQ(Get(L"Mail", L"New", L"gone"), L"gone");
    EXPECT_TRUE(WriteProfileStringW(L"Mail", nullptr, nullptr));
    EXPECT_EQ(GetProfileIntW(L"Mail", L"MAPI", 9), 9u);
    EXPECT_EQ(Get(L"Other", L"x", L"d"), L"\u65e5");

    EXPECT_TRUE(WriteProfileStringW(nullptr, nullptr, nullptr));
    EXPECT_FALSE(WriteProfileStringW(nullptr, L"k", L"v"));
}

TEST_F(ProfileStringsTest, ThousandsSeparatorFromWinIniThenLocaleThenDefault) {
    {
        // The C locale has no thousands separator: the caller's default.
        ScopedEnv all("LC_ALL", "C");
        EXPECT_EQ(Get(L"Intl", L"sThousand", L",", 4), L",");
        ScopedEnv unknown("LC_ALL", "xx_YY.NOPE");
        EXPECT_EQ(Get(L"Intl", L"sThousand", L",", 4), L",");
    }
    // Only the "Intl" "sThousand" pair asks the locale.
    {
        ScopedEnv all("LC_ALL", "C");
        EXPECT_EQ(Get(L"Intl", L"sDecimal", L"."), L".");
    }
    WriteWinIni("[intl]\nsThousand=.\n");
    EXPECT_EQ(Get(L"Intl", L"sThousand", L",", 4), L".");
}

// The German locale, compiled into the test home when the system lacks it.
bool GermanLocaleAvailable(const fs::path &folder) {
    auto available = [] {
        locale_t german = newlocale(LC_ALL_MASK, "de_DE.UTF-8", static_cast<locale_t>(0));
        if (german) freelocale(german);
        return german != static_cast<locale_t>(0);
    };
    if (available()) return true;
#ifdef __SANITIZE_ADDRESS__
    // glibc never frees the search path of a locale found through LOCPATH,
    // which the leak checker reports.
    return false;
#endif
    fs::create_directories(folder);
    const std::string command =
        "localedef -i de_DE -f UTF-8 '" + folder.string() + "/de_DE.UTF-8' >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) return false;
    setenv("LOCPATH", folder.c_str(), 1);
    return available();
}

TEST_F(ProfileStringsTest, ThousandsSeparatorOfTheUsersLocale) {
    ScopedEnv locpath("LOCPATH", std::getenv("LOCPATH"));
    if (!GermanLocaleAvailable(home.Path() / "locales")) GTEST_SKIP() << "no de_DE.UTF-8";
    ScopedEnv all("LC_ALL", nullptr);
    ScopedEnv numeric("LC_NUMERIC", "de_DE.UTF-8");
    EXPECT_EQ(Get(L"Intl", L"sThousand", L",", 4), L".");
    // LC_ALL comes first.
    ScopedEnv c("LC_ALL", "C");
    EXPECT_EQ(Get(L"Intl", L"sThousand", L",", 4), L",");
}

}  // namespace
