// Application helpers: message boxes through the headless host, numbers and
// sizes as text, language, the support link, and the window helpers.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "../platform/ScopedEnv.h"
#include "CAppUtils.h"
#include "CHighTime.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

// The resource libraries loaded as a host loads them, and a headless host
// that records the boxes.
class AppUtilsTest : public testsupport::HomeTest {
protected:
    void SetUp() override { ASSERT_TRUE(resources_.Loaded()); }

    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};

private:
    testsupport::LoadedResources resources_;
};

constexpr unsigned kProductName = 230;
constexpr unsigned kArchiveFailed = 306;  // a format of two texts
constexpr unsigned kArchiveErrorTitle = 307;
constexpr unsigned kScheduleFailed = 109;  // a format of one text

const auto Text = testsupport::LoadedResources::Text;

std::wstring SizeText(std::int64_t size) {
    wchar_t out[32];
    return CAppUtils::FormatFileSize(size, out);
}

// The locale for one test: LANG alone decides.
struct Locale {
    explicit Locale(const char *lang) : lang("LANG", lang) {}
    testsupport::ScopedEnv all{"LC_ALL", nullptr};
    testsupport::ScopedEnv messages{"LC_MESSAGES", nullptr};
    testsupport::ScopedEnv lang;
};

}  // namespace

TEST_F(AppUtilsTest, ErrorMsgBoxAndErrorFormatFillTheTextWithTheArguments) {
    CAppUtils::ErrorMsgBox(kArchiveFailed, kArchiveErrorTitle, L"\u65e5\u672c.vnk", L"Damaged.");
    CAppUtils::ErrorMsgBox(kScheduleFailed, kProductName, L"Access denied.");
    CAppUtils::ErrorMsgBox(kArchiveFailed, kProductName, nullptr, L"ignored");

    auto boxes = host.Recorded();
    ASSERT_EQ(boxes.size(), 3u);
    EXPECT_EQ(boxes[0].text,
              FormatW(Text(kArchiveFailed).c_str(), L"\u65e5\u672c.vnk", L"Damaged."));
    EXPECT_EQ(boxes[0].caption, Text(kArchiveErrorTitle));
    EXPECT_EQ(boxes[0].flags, MB_ICONEXCLAMATION | MB_OK);
    EXPECT_EQ(boxes[1].text, FormatW(Text(kScheduleFailed).c_str(), L"Access denied."));
    EXPECT_EQ(boxes[1].caption, Text(kProductName));
    EXPECT_EQ(boxes[2].text, Text(kArchiveFailed)) << "no first argument: the text as it stands";

    // ErrorFormat prints through the same text.
    EXPECT_EQ(std::wstring(CAppUtils::ErrorFormat(kScheduleFailed, L"Disk full.")),
              FormatW(Text(kScheduleFailed).c_str(), L"Disk full."));
    EXPECT_STREQ(CAppUtils::ErrorFormat(0xFFFF0, L"x"), L"");
}

TEST_F(AppUtilsTest, SizesAndNumbersGroupWithTheSeparatorsOfWinIni) {
    ASSERT_TRUE(WriteProfileStringW(L"Intl", L"sThousand", L"."));
    EXPECT_EQ(SizeText(0), L"0");
    EXPECT_EQ(SizeText(1234567890123LL), L"1234.567.890.123");
    wchar_t out[32];
    EXPECT_STREQ(CAppUtils::FormatFileSize(1, 0, out), L"4.294.967.296");

    ASSERT_TRUE(WriteProfileStringW(L"Intl", L"sDecimal", L","));
    EXPECT_STREQ(CAppUtils::GetDoubleFormat(1234567.125, 3), L"1.234.567,125");
    EXPECT_STREQ(CAppUtils::GetDoubleFormat(1234.5, -3), L"1.234");

    ASSERT_TRUE(WriteProfileStringW(L"Intl", L"sThousand", L"\u2009"));
    EXPECT_EQ(SizeText(12345), L"12\u2009345");
    EXPECT_STREQ(CAppUtils::GetNumberFormatW(-1234567), L"-1\u2009234\u2009567");
    EXPECT_STREQ(CAppUtils::GetDoubleFormat(-0.25, 1), L"-0,2");
}

TEST(AppUtilsText, FitPathShortensToTheWidthInCharacters) {
    const wchar_t *path = L"/home/user/documents/archives/file.zip";
    EXPECT_STREQ(CAppUtils::FitPath(path, 38, nullptr), path);
    EXPECT_STREQ(CAppUtils::FitPath(path, 37, nullptr), L"/home/.../documents/archives/file.zip");
    EXPECT_STREQ(CAppUtils::FitPath(path, 26, nullptr), L"/home/.../file.zip");
    EXPECT_STREQ(CAppUtils::FitPath(path, 3, nullptr), L"/home/.../file.zip")
        << "the last part always stays";
    EXPECT_STREQ(CAppUtils::FitPath(L"/home/file.zip", 5, nullptr), L"/home/file.zip")
        << "nothing to leave out";
}

TEST(AppUtilsSystem, LanguageFollowsTheLocale) {
    {
        Locale locale("fr_FR.UTF-8");
        EXPECT_STREQ(CAppUtils::GetLanguageDesignator(), L"FR");
        EXPECT_EQ(CAppUtils::GetLanguageCode(), 0x040C);
        EXPECT_STREQ(CAppUtils::GetLanguageString(), L"French");
    }
    {
        Locale locale("zh_CN.UTF-8");
        EXPECT_STREQ(CAppUtils::GetLanguageDesignator(), L"CH");
        EXPECT_EQ(CAppUtils::GetLanguageCode(), 0x0804);
    }
    for (const char *other : {"es_ES.UTF-8", "C"}) {
        Locale locale(other);
        EXPECT_STREQ(CAppUtils::GetLanguageDesignator(), L"EN") << other;
        EXPECT_EQ(CAppUtils::GetLanguageCode(), 0x0409) << other;
        EXPECT_STREQ(CAppUtils::GetLanguageString(), L"English") << other;
    }
}

TEST_F(AppUtilsTest, SupportLinkCarriesPageDateEditionAndLanguage) {
    Locale locale("de_DE.UTF-8");
    std::wstring url = CAppUtils::GetISupportURL(SUPPORT_PAGE_ISHELP, false);
    std::wregex form(
        LR"(https://[^?]+\?f=iShelp&date=\d{2}-\d{2}-\d{4}&p=STD&o=W&v=14&e=&l=DE&vc=\d{1,3})");
    EXPECT_TRUE(std::regex_match(url, form)) << platform::ToUtf8(url);
    std::wstring solution = CAppUtils::GetISupportURL(SUPPORT_PAGE_FEEDBACK, true);
    EXPECT_NE(solution.find(L"f=feedback&"), std::wstring::npos);
    EXPECT_NE(solution.find(L"&p=SOL&o=W"), std::wstring::npos);
    EXPECT_STREQ(CAppUtils::GetISupportURL(static_cast<SUPPORT_PAGE_TYPE>(99), false), L"");
}

using testsupport::PlainWindow;

TEST(CAppUtilsWindows, DialogIsCentredOverItsParentAndKeptOnTheScreen) {
    HWND parent = PlainWindow(nullptr, 100, 100, 400, 300);
    HWND dialog = PlainWindow(nullptr, 0, 0, 200, 100);
    CAppUtils::CenterDlgOverParent(dialog, parent);
    RECT box{};
    ASSERT_TRUE(GetWindowRect(dialog, &box));
    EXPECT_EQ(box.left, 200);
    EXPECT_EQ(box.top, 200);
    EXPECT_EQ(box.right - box.left, 200);

    // A parent near the screen's edge would push the dialog off it.
    MoveWindow(parent, GetSystemMetrics(SM_CXSCREEN) - 50, -40, 100, 60, FALSE);
    CAppUtils::CenterDlgOverParent(dialog, parent);
    ASSERT_TRUE(GetWindowRect(dialog, &box));
    EXPECT_EQ(box.right, GetSystemMetrics(SM_CXSCREEN));
    EXPECT_EQ(box.top, 0);

    CAppUtils::CenterDlgOverParent(dialog, nullptr);
    ASSERT_TRUE(GetWindowRect(dialog, &box));
    EXPECT_EQ(box.left, (GetSystemMetrics(SM_CXSCREEN) - 200) / 2);
    DestroyWindow(dialog);
    DestroyWindow(parent);
}

namespace {
int userMessagesSeen = 0;
LRESULT CountingProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_USER + 1) ++userMessagesSeen;
    return DefWindowProcW(window, message, wParam, lParam);
}
}  // namespace

TEST(CAppUtilsWindows, ProcessMessagesDispatchesWaitingMessagesAndKeepsQuit) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = CountingProcedure;
    windowClass.lpszClassName = L"AppUtilsCountingWindow";
    ASSERT_NE(RegisterClassW(&windowClass), 0);
    HWND window = CreateWindowExW(0, L"AppUtilsCountingWindow", L"", 0, 0, 0, 0, 0, HWND_MESSAGE,
                                  nullptr, nullptr, nullptr);
    PostMessageW(window, WM_USER + 1, 0, 0);
    PostMessageW(window, WM_USER + 1, 0, 0);
    PostQuitMessage(7);
    CAppUtils::ProcessMessages();
    MSG message{};
    ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, static_cast<UINT>(WM_QUIT));
    EXPECT_EQ(message.wParam, 7u);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(userMessagesSeen, 2);
    DestroyWindow(window);
}
