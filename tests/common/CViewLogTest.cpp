// The log viewer: its choice of file, its reading and its clearing, and
// its dialog run modally while a "user" on another thread presses buttons.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "CLogging.h"
#include "CViewLog.h"
#include "platform/UiHost.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/TempHome.h"
#include "support/TerminalCapture.h"

namespace fs = std::filesystem;

namespace {

using ViewLogTest = testsupport::HomeTest;

constexpr unsigned kOtherLogTitle = 734;

using testsupport::Click;
using testsupport::WaitFor;

std::wstring LogText(HWND dialog) {
    return platform::ReadControl(dialog, CViewLog::IDC_LOG_TEXT).text;
}

class ViewLogDialogTest : public testsupport::HomeTest {
protected:
    void SetUp() override {
        path = (home.Scratch() / "job.log").wstring();
        ASSERT_TRUE(platform::WriteTextFile(path, L"started\nfinished \u00e9\n", false));
    }

    // Runs the dialog on this thread while `user` acts on its window from
    // another one; `user` ends it.
    INT_PTR RunWith(CViewLog &viewer, const std::function<void(HWND)> &user) {
        std::thread person([&] {
            if (WaitFor([&] { return viewer.Window() != nullptr; })) user(viewer.Window());
        });
        INT_PTR result = viewer.RunOnExternalLog(path.c_str(), kOtherLogTitle);
        person.join();
        return result;
    }

    static constexpr const wchar_t *kShown = L"started\r\nfinished \u00e9\r\n";
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
    std::wstring path;
};

}  // namespace

TEST_F(ViewLogTest, TextComesBackWithCarriageReturnsLongLinesWholeAndOneAtAPiecesEdge) {
    std::wstring path = (home.Scratch() / "job.log").wstring();
    std::wstring longLine(5000, L'z');
    std::wstring edge(2047, L'e');  // one piece, and its line end alone in the next
    ASSERT_TRUE(platform::WriteTextFile(
        path, L"first\n\nthird \u00e9\n" + longLine + L"\n" + edge + L"\nlast", false));

    CViewLog viewer;
    viewer.SetExternalLog(path.c_str(), kOtherLogTitle);
    EXPECT_EQ(viewer.ReadText(),
              L"first\r\n\r\nthird \u00e9\r\n" + longLine + L"\r\n" + edge + L"\r\nlast");

    viewer.SetLog(L"Never", kOtherLogTitle);
    EXPECT_EQ(viewer.ReadText(), L"") << "a missing log reads empty";
}

TEST_F(ViewLogDialogTest, DialogShowsTheLogAndClearEmptiesTheFile) {
    CViewLog viewer;
    std::wstring shown;
    std::wstring afterClear = L"unread";
    INT_PTR result = RunWith(viewer, [&](HWND window) {
        WaitFor([&] { return !LogText(window).empty(); });
        shown = LogText(window);
        Click(window, CViewLog::IDC_LOG_CLEAR);
        WaitFor([&] { return LogText(window).empty(); });
        afterClear = LogText(window);
        Click(window, IDCANCEL);
    });
    EXPECT_EQ(result, IDCANCEL);
    EXPECT_EQ(shown, kShown);
    EXPECT_EQ(afterClear, L"");
    EXPECT_EQ(testsupport::ReadBytes(fs::path(path)), "\xFF\xFE");
    EXPECT_EQ(viewer.Window(), nullptr);

    std::vector<platform::TextRecord> texts = host.Texts();
    ASSERT_EQ(texts.size(), 1u) << "the host is offered the text once";
    EXPECT_EQ(texts[0].text, kShown);
}

TEST_F(ViewLogDialogTest, PrintHandsTheLogFileToThePrintCommand) {
    // A stand-in print command on PATH notes what it was given.
    fs::path bin = home.Scratch() / "bin";
    fs::create_directories(bin);
    fs::path noted = home.Scratch() / "printed.txt";
    testsupport::WriteBytes(bin / "lp", "#!/bin/sh\nprintf '%s\\n' \"$PWD\" \"$@\" > '" +
                                            noted.string() + ".part' && mv '" + noted.string() +
                                            ".part' '" + noted.string() + "'\n");
    fs::permissions(bin / "lp", fs::perms::owner_all);
    std::string oldPath = std::getenv("PATH") ? std::getenv("PATH") : "";
    setenv("PATH", (bin.string() + ":" + oldPath).c_str(), 1);

    CViewLog viewer;
    RunWith(viewer, [&](HWND window) {
        Click(window, CViewLog::IDC_LOG_PRINT);
        WaitFor([&] { return fs::exists(noted); });
        Click(window, IDOK);
    });
    setenv("PATH", oldPath.c_str(), 1);
    std::string folder = home.Scratch().string();
    EXPECT_EQ(testsupport::ReadBytes(noted), folder + "\n" + folder + "/job.log\n");
}

TEST_F(ViewLogDialogTest, TerminalHostPrintsTheLogAndTheDialogClosesAtOnce) {
    testsupport::TerminalCapture terminal(home.Scratch() / "out.txt");
    ASSERT_TRUE(terminal.Ready());
    CViewLog viewer;
    EXPECT_EQ(viewer.RunOnExternalLog(path.c_str(), kOtherLogTitle), IDOK);
    std::string printed = terminal.Written();
    EXPECT_NE(printed.find("started\nfinished \xC3\xA9\n"), std::string::npos) << printed;
    EXPECT_EQ(printed.find('\r'), std::string::npos);
}
