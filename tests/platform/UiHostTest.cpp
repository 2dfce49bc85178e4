// The presentation seam: message boxes and prompts through the installed
// host, the headless host's record and scripted answers, and the window-state
// calls.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <variant>

#include "platform/UiHost.h"
#include "platform/WinUser.h"

namespace {

class HeadlessHostTest : public ::testing::Test {
protected:
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
};

}  // namespace

TEST(MessageBoxDefaults, DefaultButtonFollowsTypeAndDefButtonFlagsOrFallsBackOnTheFirst) {
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_OK), IDOK);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_OK | MB_ICONEXCLAMATION), IDOK);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_YESNO), IDYES);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_YESNO | MB_DEFBUTTON2 | MB_ICONHAND), IDNO);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_YESNOCANCEL | MB_DEFBUTTON3), IDCANCEL);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_OKCANCEL | MB_DEFBUTTON2), IDCANCEL);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_ABORTRETRYIGNORE | MB_DEFBUTTON2), IDRETRY);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_RETRYCANCEL), IDRETRY);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_CANCELTRYCONTINUE | MB_DEFBUTTON3), IDCONTINUE);
    // A default beyond the last button, or an unknown type, falls back on the first.
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_YESNO | MB_DEFBUTTON3), IDYES);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(MB_OK | MB_DEFBUTTON4), IDOK);
    EXPECT_EQ(platform::DefaultMessageBoxAnswer(0x0000000F), IDOK);
}

TEST_F(HeadlessHostTest, RecordsEveryBoxAndAnswersFromQueueThenDefault) {
    host.QueueAnswer(IDNO);
    auto owner = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x1234));
    EXPECT_EQ(MessageBoxW(owner, L"Replace \u65e5\u672c.zip?", L"Varnick", MB_YESNO), IDNO);
    EXPECT_EQ(MessageBoxW(nullptr, L"Again?", L"Varnick", MB_YESNO | MB_DEFBUTTON2), IDNO);
    EXPECT_EQ(MessageBoxW(nullptr, L"Done", L"Varnick", MB_YESNO), IDYES);

    auto boxes = host.Recorded();
    ASSERT_EQ(boxes.size(), 3u);
    EXPECT_EQ(boxes[0].owner, owner);
    EXPECT_EQ(boxes[0].text, L"Replace \u65e5\u672c.zip?");
    EXPECT_EQ(boxes[0].caption, L"Varnick");
    EXPECT_EQ(boxes[0].flags, MB_YESNO);
    EXPECT_EQ(boxes[0].answer, IDNO);
    EXPECT_EQ(boxes[1].answer, IDNO);
    EXPECT_EQ(boxes[2].answer, IDYES);

    host.Reset();
    EXPECT_TRUE(host.Recorded().empty());
}

TEST_F(HeadlessHostTest, NullTextAndCaptionShowAsEmptyAndError) {
    EXPECT_EQ(MessageBoxW(nullptr, nullptr, nullptr, MB_OK), IDOK);
    auto boxes = host.Recorded();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].text, L"");
    EXPECT_EQ(boxes[0].caption, L"Error");
}

TEST_F(HeadlessHostTest, BoxesFromSeveralThreadsAreAllRecorded) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 50; ++i) MessageBoxW(nullptr, L"x", L"y", MB_OK);
        });
    }
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(host.Recorded().size(), 200u);
}

TEST_F(HeadlessHostTest, PasswordScriptAnswersTwiceThenRefuses) {
    host.QueuePassword(L"secret");
    host.QueuePassword(L"secret");
    for (int i = 0; i < 3; ++i) {
        host.AskPassword({nullptr, L"a.zip", false, i > 0});
    }
    auto prompts = host.Prompts();
    ASSERT_EQ(prompts.size(), 3u);
    EXPECT_FALSE(prompts[0].refused);
    EXPECT_EQ(prompts[1].text, L"secret");
    EXPECT_TRUE(prompts[2].refused);
    ASSERT_NE(prompts[2].As<platform::PasswordPrompt>(), nullptr);
    EXPECT_EQ(prompts[2].As<platform::PasswordPrompt>()->archiveName, L"a.zip");
    EXPECT_TRUE(prompts[2].As<platform::PasswordPrompt>()->passwordWrong);
    EXPECT_EQ(prompts[2].As<platform::ConflictPrompt>(), nullptr);
}

TEST_F(HeadlessHostTest, EachKindOfPromptHasItsOwnScriptAndAnExplicitRefusal) {
    host.QueueConflictAction(platform::kConflictSkipAll);
    host.QueueDirectory(std::nullopt);
    host.QueueDirectory(L"/tmp");
    host.QueueFolderDelete(platform::FolderDeleteAnswer{true, false});
    host.QueueArcNameConflict(platform::kArcNameUseUnique);
    host.QueueAnswer(IDNO);

    // Boxes and other kinds do not use up the directory script.
    EXPECT_EQ(host.AskArcNameConflict({nullptr, L"a.zip", L"a_1.zip"}), 2);
    EXPECT_EQ(MessageBoxW(nullptr, L"?", L"", MB_YESNO), IDNO);
    EXPECT_EQ(host.ChooseDirectory({nullptr, L"Where?", L""}), std::nullopt);
    EXPECT_EQ(host.ChooseDirectory({nullptr, L"Where?", L""}),
              std::optional<std::wstring>(L"/tmp"));
    EXPECT_EQ(host.ChooseDirectory({nullptr, L"Where?", L""}), std::nullopt);
    EXPECT_EQ(host.AskConflictAction({nullptr, L"a", true}), platform::kConflictSkipAll);
    auto folder = host.ConfirmFolderDelete({nullptr, L"/x"});
    ASSERT_TRUE(folder);
    EXPECT_TRUE(folder->dontAskAgain);
    EXPECT_FALSE(folder->mergeContents);
    EXPECT_EQ(host.ChooseSaveFile({nullptr, L"", L"", 0, L"a.txt"}), std::nullopt);
    EXPECT_EQ(host.LocateArchive({nullptr, L"*.vnkx"}), std::nullopt);
    EXPECT_EQ(host.AskNextDisk({nullptr, L"a", L"b", L"/"}), std::nullopt);

    auto prompts = host.Prompts();
    ASSERT_EQ(prompts.size(), 9u);
    EXPECT_EQ(prompts[0].choice, 2);
    EXPECT_EQ(prompts[4].choice, platform::kConflictSkipAll);
    EXPECT_TRUE(prompts[5].folderDelete.dontAskAgain);
    EXPECT_EQ(host.Recorded().size(), 1u);

    host.Reset();
    EXPECT_TRUE(host.Prompts().empty());
    host.QueuePassword(L"gone");
    host.Reset();
    EXPECT_EQ(host.AskPassword({}), std::nullopt);
}

TEST_F(HeadlessHostTest, WhileShownRunsOnTheAskingThreadBeforeTheAnswer) {
    std::thread::id asking;
    std::size_t recordedMeanwhile = 99;
    host.WhileShown([&] {
        asking = std::this_thread::get_id();
        recordedMeanwhile = host.Prompts().size();
    });
    std::thread worker([&] { host.AskPassword({nullptr, L"a.zip", false, false}); });
    std::thread::id workerId = worker.get_id();
    worker.join();
    EXPECT_EQ(asking, workerId);
    EXPECT_EQ(recordedMeanwhile, 0u);
}

TEST(UiHostDefaults, AHostThatOnlyShowsBoxesRefusesEveryPrompt) {
    struct BoxesOnly : platform::UiHost {
        int MessageBox(HWND, const std::wstring &, const std::wstring &, UINT) override {
            return IDOK;
        }
    } host;
    EXPECT_EQ(host.AskPassword({}), std::nullopt);
    EXPECT_EQ(host.AskConflictAction({}), std::nullopt);
    EXPECT_EQ(host.ConfirmFolderDelete({}), std::nullopt);
    EXPECT_EQ(host.ChooseDirectory({}), std::nullopt);
    EXPECT_EQ(host.ChooseSaveFile({}), std::nullopt);
    EXPECT_EQ(host.LocateArchive({}), std::nullopt);
    EXPECT_EQ(host.AskNextDisk({}), std::nullopt);
    EXPECT_EQ(host.AskArcNameConflict({}), std::nullopt);
}

TEST(UiHostDefaults, EveryPromptReachesOneEntryAsItsOwnKind) {
    // Answers each prompt with the number of its kind, as text or choice.
    struct OneEntry : platform::UiHost {
        int MessageBox(HWND, const std::wstring &, const std::wstring &, UINT) override {
            return IDOK;
        }
        std::optional<platform::PromptAnswer> AnswerPrompt(
            const platform::PromptRequest &request) override {
            const int kind = static_cast<int>(request.index());
            if (std::holds_alternative<platform::FolderDeletePrompt>(request)) {
                return platform::FolderDeleteAnswer{true, true};
            }
            if (std::holds_alternative<platform::ConflictPrompt>(request) ||
                std::holds_alternative<platform::ArcNameConflictPrompt>(request)) {
                return kind;
            }
            return std::to_wstring(kind);
        }
    } host;
    using Text = std::optional<std::wstring>;
    EXPECT_EQ(host.AskPassword({}), Text(L"0"));
    EXPECT_EQ(host.AskConflictAction({}), 1);
    std::optional<platform::FolderDeleteAnswer> folder = host.ConfirmFolderDelete({});
    ASSERT_TRUE(folder);
    EXPECT_TRUE(folder->dontAskAgain && folder->mergeContents);
    EXPECT_EQ(host.ChooseDirectory({}), Text(L"3"));
    EXPECT_EQ(host.ChooseSaveFile({}), Text(L"4"));
    EXPECT_EQ(host.LocateArchive({}), Text(L"5"));
    EXPECT_EQ(host.AskNextDisk({}), Text(L"6"));
    EXPECT_EQ(host.AskArcNameConflict({}), 7);
}

TEST(UiHostInstall, NullReinstallsDefaultAndScopeRestoresPrevious) {
    platform::UiHost *original = platform::CurrentUiHost();
    EXPECT_EQ(original, &platform::DefaultHeadlessUiHost());
    {
        platform::HeadlessUiHost outer;
        platform::ScopedUiHost first(&outer);
        EXPECT_EQ(platform::CurrentUiHost(), &outer);
        {
            platform::HeadlessUiHost inner;
            platform::ScopedUiHost second(&inner);
            EXPECT_EQ(platform::CurrentUiHost(), &inner);
        }
        EXPECT_EQ(platform::CurrentUiHost(), &outer);
    }
    EXPECT_EQ(platform::CurrentUiHost(), original);
    EXPECT_EQ(platform::SetUiHost(nullptr), original);
}

TEST(UiHostInstall, SystemMetricsComeFromTheHost) {
    struct WideScreenHost : platform::HeadlessUiHost {
        int SystemMetric(int index) override { return index == SM_CXSCREEN ? 3840 : 0; }
    } wide;
    EXPECT_EQ(GetSystemMetrics(SM_CMONITORS), 1);
    EXPECT_EQ(GetSystemMetrics(SM_CXSCREEN), 1024);
    EXPECT_EQ(GetSystemMetrics(SM_CYSCREEN), 768);
    EXPECT_EQ(GetSystemMetrics(-5), 0);
    platform::ScopedUiHost installed(&wide);
    EXPECT_EQ(GetSystemMetrics(SM_CXSCREEN), 3840);
}

TEST(WindowState, SystemCursorsLoadAndSet) {
    HCURSOR wait = LoadCursorW(nullptr, IDC_WAIT);
    HCURSOR arrow = LoadCursorW(nullptr, IDC_ARROW);
    ASSERT_NE(wait, nullptr);
    ASSERT_NE(arrow, nullptr);
    EXPECT_NE(wait, arrow);
    EXPECT_EQ(LoadCursorW(nullptr, IDC_WAIT), wait);
    EXPECT_EQ(LoadCursorW(nullptr, L"custom"), nullptr);

    HCURSOR before = SetCursor(wait);
    EXPECT_EQ(GetCursor(), wait);
    EXPECT_EQ(SetCursor(arrow), wait);
    SetCursor(before);
}

TEST(DebugOutput, GoesToStderrOnlyWhenDebugIsSet) {
    unsetenv("VARNICK_DEBUG");
    testing::internal::CaptureStderr();
    OutputDebugStringW(L"quiet\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    setenv("VARNICK_DEBUG", "1", 1);
    testing::internal::CaptureStderr();
    OutputDebugStringW(L"\u00c4rger\n");
    OutputDebugStringW(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\xC3\x84rger\n");
    unsetenv("VARNICK_DEBUG");
}

TEST(UserLanguage, ComesFromTheFirstLocaleVariableSet) {
    struct Saved {
        const char *name;
        std::optional<std::string> value;
    };
    std::vector<Saved> saved;
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char *value = std::getenv(name);
        saved.push_back({name, value ? std::optional<std::string>(value) : std::nullopt});
        unsetenv(name);
    }
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0409) << "nothing set";
    setenv("LANG", "ko_KR.UTF-8", 1);
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0412);
    setenv("LC_MESSAGES", "zh_TW", 1);
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0404);
    setenv("LC_ALL", "zh_SG.UTF-8", 1);
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0804);
    setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0409);
    setenv("LC_ALL", "tlh_XX", 1);
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0409) << "no Windows id here";
    EXPECT_EQ(PRIMARYLANGID(0x0804), LANG_CHINESE);
    EXPECT_EQ(SUBLANGID(0x0804), SUBLANG_CHINESE_SIMPLIFIED);

    for (const Saved &entry : saved) {
        if (entry.value) {
            setenv(entry.name, entry.value->c_str(), 1);
        } else {
            unsetenv(entry.name);
        }
    }
}
