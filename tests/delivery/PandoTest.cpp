// The Pando and mail hand-offs, run against stand-in desktop tools put first
// on PATH: the real ones would open a desktop.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "CAppUtils.h"
#include "CFSUtils.h"
#include "CPando.h"
#include "platform/Win32.h"
#include "support/LoadedResources.h"
#include "support/RecordingTools.h"
#include "support/TempHome.h"

namespace {

using testsupport::RecordedCall;

const std::string kPrefix = "pando:send?&files_to_send=";

class HandOffTest : public testsupport::HomeTest {
protected:
    HandOffTest() : tools(home.Scratch("tools")) {
        tools.Add("xdg-open");
        tools.Add("xdg-email");
        tools.PutFirstOnPath();
    }

    // What a log of the run holds, as text (a bare log file: the product's
    // own logs begin with a heading).
    std::wstring LogText(const std::filesystem::path &path) {
        std::wstring text;
        platform::ReadTextFile(path.wstring(), text);
        return text;
    }

    std::wstring Text(unsigned id) { return CAppUtils::LoadString(id); }

    testsupport::LoadedResources resources;
    testsupport::RecordingTools tools;
};

TEST_F(HandOffTest, SendJoinsPathsByCommasAndStartsAnewWhenTheLimitIsReached) {
    std::filesystem::path logPath = home.Scratch() / "pando.log";
    FILE *log = _wfopen(logPath.wstring().c_str(), L"wt, ccs=UNICODE");
    ASSERT_NE(log, nullptr);
    CPando pando(log);
    EXPECT_EQ(pando.commandLimit, 8191u);  // the system counts as a recent one
    pando.commandLimit = 50;

    // 26 characters of prefix. "/p/bb" fits: 31 + 5 + 10 = 46. "/cc" meets
    // the limit exactly (37 + 3 + 10 = 50), so the list so far goes without
    // a trailing comma and "/cc" opens the next one without a leading one.
    STDStringList paths = {L"/p/aa", L"/p/bb", L"/cc", L"/d d"};
    pando.Send(&paths);
    std::vector<RecordedCall> calls = tools.WaitForCalls(2);
    fclose(log);

    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0], (RecordedCall{"xdg-open", kPrefix + "/cc,/d d"}));
    EXPECT_EQ(calls[1], (RecordedCall{"xdg-open", kPrefix + "/p/aa,/p/bb"}));
    std::wstring started = Text(1174) + L"\n";
    EXPECT_EQ(LogText(logPath), started + started);
}

TEST_F(HandOffTest, AFailedLaunchIsLoggedOrShownWithItsReason) {
    // With nothing on PATH to open the URL, the launch has no association.
    tools.PutFirstOnPath(false);
    std::filesystem::remove(tools.Bin() / "xdg-open");
    std::wstring expected = FormatW(Text(1175).c_str(), Text(931).c_str());
    ASSERT_NE(expected.find(Text(931)), std::wstring::npos);

    std::filesystem::path logPath = home.Scratch() / "pando.log";
    FILE *log = _wfopen(logPath.wstring().c_str(), L"wt, ccs=UNICODE");
    ASSERT_NE(log, nullptr);
    CPando(log).LaunchPando(L"pando:send?&files_to_send=/a");
    fclose(log);
    EXPECT_EQ(LogText(logPath), expected + L"\n");

    platform::HeadlessUiHost host;
    platform::ScopedUiHost scope(&host);
    CPando().LaunchPando(L"pando:send?&files_to_send=/a");
    std::vector<platform::MessageBoxRecord> boxes = host.Recorded();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].text, expected);
    EXPECT_EQ(boxes[0].caption, Text(230));
}

// The "MAPI" value works the other way round from its usual sense: mail is
// started only while it is 0 or missing.
TEST_F(HandOffTest, MailStartsOnlyWhileTheMapiValueIsZeroOrMissing) {
    std::filesystem::path attachment = home.Scratch() / "my file.zip";
    testsupport::WriteBytes(attachment, "zip");

    ASSERT_TRUE(WriteProfileStringW(L"Mail", L"MAPI", L"1"));
    CFSUtils::MailFile(L"/skipped/when/mapi/is/one.zip");
    ASSERT_TRUE(WriteProfileStringW(L"Mail", L"MAPI", L"0"));
    CFSUtils::MailFile(attachment.wstring().c_str());
    ASSERT_TRUE(WriteProfileStringW(L"Mail", nullptr, nullptr));
    CFSUtils::MailFile(L"");

    std::vector<RecordedCall> calls = tools.WaitForCalls(2);
    // A launch the value should have stopped would show up late, if at all.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    calls = tools.Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0], (RecordedCall{"xdg-email"}));
    EXPECT_EQ(calls[1], (RecordedCall{"xdg-email", "--attach", attachment.string()}));
}

}  // namespace
