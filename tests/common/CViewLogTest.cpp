// The log viewer's choice of file, its reading and its clearing.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "CLogging.h"
#include "CViewLog.h"
#include "platform/Win32.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

class ViewLogTest : public testsupport::HomeTest {
protected:
    static std::wstring Folder(int csidl) { return platform::SpecialFolder(csidl, false); }
};

constexpr unsigned kOtherLogTitle = 734;

}  // namespace

TEST_F(ViewLogTest, NamedLogLiesInTheLogFolderAndTheServiceLogInTheMachineFolder) {
    CViewLog viewer;
    viewer.SetLog(L"Wizard", kOtherLogTitle);
    EXPECT_EQ(viewer.ChooseFile(), Folder(CSIDL_LOCAL_APPDATA) + L"/Orvane Labs/Logs/Wizard.log");
    EXPECT_EQ(viewer.ChooseFile(), CLogging::LogFolder() + L"Wizard.log");

    viewer.SetLog(L"ArcNameService", CViewLog::kServiceLogTitle);
    EXPECT_EQ(viewer.ChooseFile(),
              Folder(CSIDL_COMMON_APPDATA) + L"/Orvane Labs/Varnick/ArcNameService.log");

    std::wstring external = (home.Scratch() / "job.log").wstring();
    viewer.SetExternalLog(external.c_str(), CViewLog::kServiceLogTitle);
    EXPECT_EQ(viewer.ChooseFile(), external) << "a full path is taken whatever the title";
    EXPECT_EQ(viewer.TitleId(), CViewLog::kServiceLogTitle);

    viewer.SetLog(L"Wizard", kOtherLogTitle);
    EXPECT_EQ(viewer.ChooseFile(), CLogging::LogFolder() + L"Wizard.log")
        << "the path is forgotten";
}

TEST_F(ViewLogTest, TextComesBackWithCarriageReturnsAndLongLinesWhole) {
    std::wstring path = (home.Scratch() / "job.log").wstring();
    std::wstring longLine(5000, L'z');
    ASSERT_TRUE(
        platform::WriteTextFile(path, L"first\n\nthird \u00e9\n" + longLine + L"\nlast", false));

    CViewLog viewer;
    viewer.SetExternalLog(path.c_str(), kOtherLogTitle);
    EXPECT_EQ(viewer.ReadText(), L"first\r\n\r\nthird \u00e9\r\n" + longLine + L"\r\nlast");
}

TEST_F(ViewLogTest, LineEndingJustPastAPieceGetsOneCarriageReturn) {
    std::wstring path = (home.Scratch() / "edge.log").wstring();
    std::wstring line(2047, L'e');  // one piece, and its line end alone in the next
    ASSERT_TRUE(platform::WriteTextFile(path, line + L"\n" + line + L"\n", false));

    CViewLog viewer;
    viewer.SetExternalLog(path.c_str(), kOtherLogTitle);
    EXPECT_EQ(viewer.ReadText(), line + L"\r\n" + line + L"\r\n");
}

TEST_F(ViewLogTest, MissingLogReadsEmpty) {
    CViewLog viewer;
    viewer.SetLog(L"Never", kOtherLogTitle);
    EXPECT_EQ(viewer.ReadText(), L"");
}

TEST_F(ViewLogTest, ClearEmptiesTheChosenLog) {
    FILE *log = CLogging::OpenLog(L"Wizard", false);
    ASSERT_NE(log, nullptr);
    CLogging::Msg(log, 0, L"something\n");
    CLogging::CloseLog(log);

    CViewLog viewer;
    viewer.SetLog(L"Wizard", kOtherLogTitle);
    ASSERT_NE(viewer.ReadText().find(L"something\r\n"), std::wstring::npos);
    viewer.Clear();
    EXPECT_EQ(viewer.ReadText(), L"");
    EXPECT_EQ(testsupport::ReadBytes(fs::path(viewer.ChooseFile())), "\xFF\xFE");
}
