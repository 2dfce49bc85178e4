// Error records, the error file, session logs and component logs.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>

#include "CLogging.h"
#include "platform/Win32.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

// The first use in a fresh home builds the log folder there.
class LoggingTest : public testsupport::HomeTest {
protected:
    fs::path ErrorFile() const { return fs::path(CLogging::ErrorFilePath()); }
};

// A UTF-16LE file as its bytes say: the mark must be there; the text comes
// back with its CR LF pairs untouched.
const auto Utf8OfUtf16File = testsupport::Utf16FileText;

// _wasctime without its line feed: "Wed Jan 02 02:03:55 1980".
const std::string kTime = R"([A-Z][a-z]{2} [A-Z][a-z]{2} \d{2} \d{2}:\d{2}:\d{2} \d{4})";

}  // namespace

TEST_F(LoggingTest, ErrRecordsAreUtf16LinesWithFieldsInOrder) {
    CLogging::Err(L"CMonFileSys::AddFile", 146, L".\\MonFileSys", 17001, true,
                  L"ArchiveFSObjectList");
    CLogging::Err(L"CArchive::Open", 7, L".\\Archive", 2, false, nullptr);

    std::string bytes = testsupport::ReadBytes(ErrorFile());
    ASSERT_GE(bytes.size(), 2u);
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    EXPECT_EQ(bytes.find("\xFF\xFE", 2), std::string::npos) << "an append writes no mark";

    std::regex expected("^" + kTime +
                        R"( ArchiveFSObjectList Varnick Compression Message: 17001 at )"
                        R"(CMonFileSys::AddFile \[line 146 : \.\\MonFileSys\]\r\n)" +
                        // A null text is a single blank between time and kind.
                        kTime +
                        R"(   Runtime error: 2 at CArchive::Open \[line 7 : \.\\Archive\]\r\n$)");
    std::string text = Utf8OfUtf16File(ErrorFile());
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

// Code and line print as signed integers, text outside Latin-1 stays whole
// (an emoji as a surrogate pair), and a record longer than its buffer is lost.
TEST_F(LoggingTest, ErrSignedNumbersWholeTextAndOverlongRecordsLost) {
    CLogging::Err(L"CCrypto::Encrypt", 4294967295u, L".\\Crypto", 0x80004005u, false, L"x");
    CLogging::Err(L"CFtpIntf::Put", 3, L".\\FtpIntf", 5, false, L"\u65e5\u672c \U0001F600.zip");
    CLogging::Err(L"CArchive::Open", 1, L".\\Archive", 2, false, std::wstring(600, L'x').c_str());
    CLogging::Err(L"CArchive::Open", 2, L".\\Archive", 2, false, L"short");
    const std::string text = Utf8OfUtf16File(ErrorFile());
    EXPECT_NE(text.find("Runtime error: -2147467259 at CCrypto::Encrypt [line -1 : .\\Crypto]"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80.zip"), std::string::npos);
    EXPECT_EQ(text.find("xxxx"), std::string::npos);
    EXPECT_NE(text.find("short"), std::string::npos);
}

TEST_F(LoggingTest, SessionLogGetsRecordsUntilItIsClosed) {
    FILE *session = CLogging::OpenLog(L"Session", false);
    ASSERT_NE(session, nullptr);
    CLogging::SetSessionErrorHandle(session);
    CLogging::SetSessionErrorHandle(nullptr);  // ignored
    EXPECT_EQ(CLogging::SessionErrorHandle(), session);

    CLogging::Err(L"A::First", 1, L".\\A", 1, false, L"first");
    CLogging::CloseLog(session);
    EXPECT_EQ(CLogging::SessionErrorHandle(), nullptr);
    CLogging::Err(L"A::Second", 2, L".\\A", 2, false, L"second");

    std::string sessionText = Utf8OfUtf16File(CLogging::LastLogPath());
    EXPECT_NE(sessionText.find("first Runtime error: 1 at A::First"), std::string::npos);
    EXPECT_EQ(sessionText.find("second"), std::string::npos);
    std::string errors = Utf8OfUtf16File(ErrorFile());
    EXPECT_NE(errors.find("first"), std::string::npos);
    EXPECT_NE(errors.find("second"), std::string::npos);
}

TEST_F(LoggingTest, ErrWithUnopenableErrorFileWritesNowhere) {
    FILE *session = CLogging::OpenLog(L"Session", false);
    ASSERT_NE(session, nullptr);
    CLogging::SetSessionErrorHandle(session);
    fs::create_directory(ErrorFile());  // a folder where the file should be

    CLogging::Err(L"A::Lost", 1, L".\\A", 1, false, L"lost");
    CLogging::CloseLog(session);
    EXPECT_EQ(Utf8OfUtf16File(CLogging::LastLogPath()).find("lost"), std::string::npos);
}

TEST_F(LoggingTest, OpenLogWritesHeaderAndAppendsOrTruncates) {
    FILE *log = CLogging::OpenLog(L"Wizard", false);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(CLogging::LastLogPath(), CLogging::LogFolder() + L"Wizard.log");
    CLogging::Msg(log, 0, L"one %s %d", L"\u00e9t\u00e9", 1);
    CLogging::CloseLog(log);

    std::regex header("^\r\n\r\n-{39}\r\n" + kTime + "\r\n\r\none \xC3\xA9t\xC3\xA9 1$");
    std::string first = Utf8OfUtf16File(CLogging::LastLogPath());
    EXPECT_TRUE(std::regex_match(first, header)) << first;

    log = CLogging::OpenLog(L"Wizard", true);
    CLogging::Msg(log, 0, L"two\n");
    CLogging::CloseLog(log);
    std::string appended = Utf8OfUtf16File(CLogging::LastLogPath());
    EXPECT_EQ(appended.rfind(first, 0), 0u);
    EXPECT_EQ(appended.substr(appended.size() - 5), "two\r\n");

    log = CLogging::OpenLog(L"Wizard", false);
    CLogging::CloseLog(log);
    EXPECT_EQ(Utf8OfUtf16File(CLogging::LastLogPath()).find("one"), std::string::npos);
}

TEST_F(LoggingTest,
       ClearLogEmptiesTheFileAndCloseAndDeleteLogDeletesTheMostRecentlyOpenedLogNotItsOwn) {
    FILE *log = CLogging::OpenLog(L"Full", false);
    CLogging::Msg(log, 0, L"content\n");
    CLogging::CloseLog(log);
    CLogging::ClearLog(CLogging::LastLogPath().c_str());
    EXPECT_EQ(Utf8OfUtf16File(CLogging::LastLogPath()), "");
    CLogging::ClearLog(nullptr);

    // The most recently opened log is the one deleted, not the one given.
    log = CLogging::OpenLog(L"Temporary", false);
    ASSERT_NE(log, nullptr);
    const std::wstring path = CLogging::LastLogPath();
    FILE *second =
        CLogging::OpenExternalLog((home.Scratch() / "second.log").wstring().c_str(), false);
    ASSERT_NE(second, nullptr);
    CLogging::SetSessionErrorHandle(log);
    CLogging::CloseAndDeleteLog(log);
    EXPECT_TRUE(fs::exists(fs::path(path)));
    EXPECT_FALSE(fs::exists(home.Scratch() / "second.log"));
    EXPECT_EQ(CLogging::SessionErrorHandle(), nullptr);
    CLogging::CloseLog(second);
    CLogging::CloseAndDeleteLog(nullptr);
    CLogging::CloseLog(nullptr);
}

TEST_F(LoggingTest, OpenLogFailuresAreRecordedEachInItsOwnNameAndGiveNull) {
    std::wstring lastBefore = CLogging::LastLogPath();
    EXPECT_EQ(CLogging::OpenLog(L"no such folder/x", false), nullptr);
    std::wstring path = (home.Path() / "absent" / "x.log").wstring();
    EXPECT_EQ(CLogging::OpenExternalLog(path.c_str(), true), nullptr);
    EXPECT_EQ(CLogging::OpenExternalLog(nullptr, false), nullptr);
    std::string errors = Utf8OfUtf16File(ErrorFile());
    const std::string record = R"(   Runtime error: \d+ at CLogging::)";
    EXPECT_TRUE(
        std::regex_match(errors, std::regex("^" + kTime + record + R"(OpenLog .*\r\n)" + "(" +
                                            kTime + record + R"(OpenExternalLog .*\r\n){2}$)")))
        << errors;
    EXPECT_EQ(CLogging::LastLogPath(), lastBefore);
}

TEST_F(LoggingTest, MsgCutsLongLinesAndLevelBoundsAreInclusive) {
    FILE *log = CLogging::OpenExternalLog((home.Scratch() / "levels.log").wstring().c_str(), false);
    ASSERT_NE(log, nullptr);
    CLogging::Msg(log, 0, nullptr);
    CLogging::Msg(nullptr, 0, L"nowhere\n");
    CLogging::Msg(log, 0, L"%s", std::wstring(700, L'y').c_str());
    CLogging::SetLevel(1, 2);
    for (int level : {-1, 0, 1, 2, 3}) CLogging::Msg(log, level, L"<%d>", level);
    CLogging::SetLevel(5, 4);  // an empty range: only level 0 passes
    for (int level : {4, 5, 0}) CLogging::Msg(log, level, L"[%d]", level);
    CLogging::SetLevel(0, 0);
    CLogging::CloseLog(log);
    std::string text = Utf8OfUtf16File(CLogging::LastLogPath());
    EXPECT_EQ(text.substr(text.find(std::string(511, 'y'))),
              std::string(511, 'y') + "<0><1><2>[0]");
}

TEST_F(LoggingTest, DebugChannelIsSilentWithoutVarnickDebugAndThePlainDbgAlways) {
    unsetenv("VARNICK_DEBUG");
    testing::internal::CaptureStderr();
    CLogging::Dbg(L"unheard %d\n", 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    setenv("VARNICK_DEBUG", "1", 1);
    testing::internal::CaptureStderr();
    CLogging::Dbg(L"state %d of %s\n", 3, L"worker");
    Dbg(L"plain %d\n", 2);
    CLogging::Dbg(L"%s", std::wstring(600, L'd').c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "state 3 of worker\n" + std::string(511, 'd'));
    unsetenv("VARNICK_DEBUG");
}
