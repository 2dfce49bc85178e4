// Command lines, starting programs and documents, process handles and the
// environment.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ScopedEnv.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinModule.h"
#include "platform/WinProcess.h"
#include "support/DialogDriving.h"
#include "support/PathText.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;
using platform::FromUtf8;
using platform::SplitCommandLine;
using Args = std::vector<std::wstring>;

void WriteScript(const fs::path &path, const std::string &body) {
    testsupport::WriteBytes(path, "#!/bin/sh\n" + body + "\n");
    fs::permissions(path, fs::perms::owner_all);
}

const auto W = testsupport::Wide;

std::string ReadText(const fs::path &path) { return testsupport::ReadBytes(path); }

// Waits until a file written by a child has its final content.
bool WaitForFile(const fs::path &path) {
    return testsupport::WaitFor(
        [&] { return fs::exists(path) && fs::exists(path.string() + ".done"); });
}

// PATH with a folder of stand-in desktop tools in front (or alone).
std::string ToolPath(const fs::path &folder, bool keepSystem = true) {
    const char *old = std::getenv("PATH");
    return folder.string() + (keepSystem && old ? ":" + std::string(old) : "");
}

// A stand-in tool that writes its arguments, one a line, to `record`.
void WriteRecordingTool(const fs::path &tool, const fs::path &record) {
    WriteScript(tool, "printf '%s\\n' \"$@\" > '" + record.string() + "'\ntouch '" +
                          record.string() + ".done'");
}

class ProcessTest : public testsupport::HomeTest {
protected:
    fs::path Folder(const std::string &name) { return home.Scratch(name); }

    // ShellExecuteW's result as a number.
    static LONG_PTR Shell(const wchar_t *verb, const std::wstring &file) {
        return reinterpret_cast<LONG_PTR>(
            ShellExecuteW(nullptr, verb, file.c_str(), nullptr, nullptr, SW_SHOW));
    }

    int ShellResult(const SHELLEXECUTEINFOW &info) {
        return static_cast<int>(reinterpret_cast<LONG_PTR>(info.hInstApp));
    }

    SHELLEXECUTEINFOW Info(const wchar_t *verb, const std::wstring &file,
                           const wchar_t *parameters = nullptr,
                           const wchar_t *directory = nullptr) {
        file_ = file;
        SHELLEXECUTEINFOW info{};
        info.cbSize = sizeof info;
        info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_UNICODE;
        info.lpVerb = verb;
        info.lpFile = file_.c_str();
        info.lpParameters = parameters;
        info.lpDirectory = directory;
        info.nShow = SW_SHOWNORMAL;
        return info;
    }

private:
    std::wstring file_;
};

}  // namespace

TEST(CommandLine, SplitsAtBlanksAndGroupsQuotes) {
    EXPECT_EQ(SplitCommandLine(L"a  b\tc"), (Args{L"a", L"b", L"c"}));
    EXPECT_EQ(SplitCommandLine(L"\"a b\" c"), (Args{L"a b", L"c"}));
    EXPECT_EQ(SplitCommandLine(L"x\"a b\"y"), (Args{L"xa by"}));
    EXPECT_EQ(SplitCommandLine(L"a \"\" b"), (Args{L"a", L"", L"b"}));
    EXPECT_EQ(SplitCommandLine(L"\"unterminated part"), (Args{L"unterminated part"}));
    EXPECT_EQ(SplitCommandLine(L"   "), Args{});
    EXPECT_EQ(SplitCommandLine(nullptr), Args{});
}

TEST(CommandLine, BackslashesCountOnlyBeforeAQuote) {
    // Plain backslashes are literal, as in a Windows path.
    EXPECT_EQ(SplitCommandLine(L"\"c:\\Program Files\\x\\\\\""), (Args{L"c:\\Program Files\\x\\"}));
    EXPECT_EQ(SplitCommandLine(L"a\\\\b"), (Args{L"a\\\\b"}));
    // 2n+1 backslashes and a quote: n backslashes and a literal quote.
    EXPECT_EQ(SplitCommandLine(L"a\\\"b"), (Args{L"a\"b"}));
    EXPECT_EQ(SplitCommandLine(L"a\\\\\\\"b"), (Args{L"a\\\"b"}));
    // 2n backslashes and a quote: n backslashes, and the quote groups.
    EXPECT_EQ(SplitCommandLine(L"a\\\\\"b c\""), (Args{L"a\\b c"}));
    EXPECT_EQ(SplitCommandLine(L"\"a\\\\\" b"), (Args{L"a\\", L"b"}));
}

TEST(CommandLine, QuotedFolderWithATrailingBackslashSwallowsTheClosingQuote) {
    // The Windows rule as it stands: the backslash escapes the quote, so
    // the argument runs on to the end of the line.
    EXPECT_EQ(SplitCommandLine(L"\"c:\\My Folder\\\" next"), (Args{L"c:\\My Folder\" next"}));
}

TEST(CommandLine, DoubledQuotesInsideAQuotedPartAreLiteralAndEndIt) {
    EXPECT_EQ(SplitCommandLine(L"\"a\"\"b\""), (Args{L"a\"b"}));
    // The literal quote ends the quoted part, so the blank separates.
    EXPECT_EQ(SplitCommandLine(L"\"a\"\"b c\""), (Args{L"a\"b", L"c"}));
    EXPECT_EQ(SplitCommandLine(L"\"\"\"a\"\"\""), (Args{L"\"a\""}));
    EXPECT_EQ(SplitCommandLine(L"a\"\"b"), (Args{L"ab"}));
}

TEST(CommandLine, QuotingRoundTrips) {
    const Args tricky = {L"plain",         L"",           L"with blank",       L"tab\there",
                         L"quote\"inside", L"trailing\\", L"trailing blank\\", L"\\\\server\\share",
                         L"\\\"",          L"\"\"",       L"end\\\\"};
    EXPECT_EQ(SplitCommandLine(platform::JoinCommandLine(tricky).c_str()), tricky);
    EXPECT_EQ(platform::QuoteArgument(L"plain"), L"plain");
    EXPECT_EQ(platform::QuoteArgument(L"a b\\"), L"\"a b\\\\\"");
}

TEST(ProgramNames, WindowsNamesMapToTheProgramFolder) {
    EXPECT_EQ(platform::MapProgramName(L"/opt/v/CmdLine.exe"), L"/opt/v/varnick-cmdline");
    EXPECT_EQ(platform::MapProgramName(L"/opt/v/CMDLINE.EXE"), L"/opt/v/varnick-cmdline");
    EXPECT_EQ(platform::MapProgramName(L"/opt/v/Scheduler.exe"), L"/opt/v/varnick-scheduler");
    EXPECT_EQ(platform::MapProgramName(L"/opt/v/AdminScheduler.exe"), L"/opt/v/varnick-scheduler");
    EXPECT_EQ(platform::MapProgramName(L"/a/wizard.exe"), L"/a/varnick-wizard");
    EXPECT_EQ(platform::MapProgramName(L"/a/VarnickAtShutdown.exe"), L"/a/varnick-atshutdown");
    EXPECT_EQ(platform::MapProgramName(L"/a/arcnameservice.exe"), L"/a/varnick-arcnameservice");
    EXPECT_EQ(platform::MapProgramName(L"/a/VarnickConnect_Wizard.exe"),
              L"/a/varnick-connect-wizard");
    EXPECT_EQ(platform::MapProgramName(L"/a/Varnick14.exe"), L"/a/varnick-viewer");
    EXPECT_EQ(platform::MapProgramName(L"wizard.exe"),
              platform::ProgramFolder() + L"/varnick-wizard");
    // Other names, and names that merely end like a product name, stay.
    EXPECT_EQ(platform::MapProgramName(L"/a/MyCmdLine.exe"), L"/a/MyCmdLine.exe");
    EXPECT_EQ(platform::MapProgramName(L"/a/notes.txt"), L"/a/notes.txt");
}

TEST_F(ProcessTest, ProgramRunsWithSplitParametersInItsFolderAndIsWaitable) {
    fs::path bin = Folder("bin");
    fs::path work = Folder("work with blank");
    fs::path record = work / "args.txt";
    WriteScript(bin / "tool", "printf '%s\\n' \"$PWD\" \"$@\" > args.txt\nsleep 0.3\nexit 7");
    const std::wstring directory = W(work);
    SHELLEXECUTEINFOW info =
        Info(L"open", W(bin / "tool"), L"\"a b\" c\\\"d \"e\\\\\"", directory.c_str());
    ASSERT_TRUE(ShellExecuteExW(&info));
    EXPECT_GT(ShellResult(info), 32);
    ASSERT_NE(info.hProcess, nullptr);

    DWORD code = 0;
    EXPECT_EQ(WaitForSingleObject(info.hProcess, 20), WAIT_TIMEOUT);
    EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(info.hProcess, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
    EXPECT_EQ(code, 7u);
    EXPECT_GT(GetProcessId(info.hProcess), 0u);
    EXPECT_TRUE(CloseHandle(info.hProcess));
    EXPECT_EQ(ReadText(record), work.string() + "\na b\nc\"d\ne\\\n");
}

TEST_F(ProcessTest, ProductProgramNameRunsItsExecutable) {
    fs::path bin = Folder("bin");
    fs::path record = bin / "ran.txt";
    WriteScript(bin / "varnick-cmdline", "echo \"$1\" > '" + record.string() + "'");
    SHELLEXECUTEINFOW info = Info(L"open", W(bin / "CmdLine.exe"), L"\"job file.ini\"");
    ASSERT_TRUE(ShellExecuteExW(&info));
    EXPECT_EQ(WaitForSingleObject(info.hProcess, 10000), WAIT_OBJECT_0);
    CloseHandle(info.hProcess);
    EXPECT_EQ(ReadText(record), "job file.ini\n");
}

TEST_F(ProcessTest, FailuresGiveTheWindowsResults) {
    fs::path bin = Folder("bin");
    SHELLEXECUTEINFOW info = Info(L"open", W(bin / "missing"));
    EXPECT_FALSE(ShellExecuteExW(&info));
    EXPECT_EQ(ShellResult(info), SE_ERR_FNF);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(info.hProcess, nullptr);

    info = Info(L"open", W(bin / "no folder" / "missing"));
    EXPECT_FALSE(ShellExecuteExW(&info));
    EXPECT_EQ(ShellResult(info), SE_ERR_PNF);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);

    // A program file that may not be run.
    testsupport::WriteBytes(bin / "tool.exe", "#!/bin/sh\nexit 0\n");
    fs::permissions(bin / "tool.exe", fs::perms::owner_read | fs::perms::owner_write);
    info = Info(L"open", W(bin / "tool.exe"));
    EXPECT_FALSE(ShellExecuteExW(&info));
    EXPECT_EQ(ShellResult(info), SE_ERR_ACCESSDENIED);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);

    // ShellExecuteW reports the same numbers as its result.
    EXPECT_EQ(Shell(L"open", W(bin / "missing")), SE_ERR_FNF);
}

TEST_F(ProcessTest, DocumentsFoldersAndUrlsGoToTheDesktopTools) {
    fs::path tools = Folder("tools");
    fs::path docs = Folder("docs");
    fs::path opened = docs / "opened.txt";
    fs::path printed = docs / "printed.txt";
    WriteRecordingTool(tools / "xdg-open", opened);
    WriteRecordingTool(tools / "lp", printed);
    testsupport::ScopedEnv path("PATH", ToolPath(tools).c_str());
    testsupport::WriteBytes(docs / "notes.txt", "hello");
    const std::wstring notes = W(docs / "notes.txt");

    auto run = [&](const wchar_t *verb, const std::wstring &file) {
        fs::remove(opened.string() + ".done");
        fs::remove(printed.string() + ".done");
        return Shell(verb, file);
    };
    EXPECT_GT(run(nullptr, notes), 32);
    ASSERT_TRUE(WaitForFile(opened));
    EXPECT_EQ(ReadText(opened), docs.string() + "/notes.txt\n");

    EXPECT_GT(run(L"print", notes), 32);
    ASSERT_TRUE(WaitForFile(printed));
    EXPECT_EQ(ReadText(printed), docs.string() + "/notes.txt\n");

    EXPECT_GT(run(L"explore", W(docs)), 32);
    ASSERT_TRUE(WaitForFile(opened));
    EXPECT_EQ(ReadText(opened), docs.string() + "\n");

    EXPECT_GT(run(L"open", L"pando:send?&files_to_send=/a/b.vnk"), 32);
    ASSERT_TRUE(WaitForFile(opened));
    EXPECT_EQ(ReadText(opened), "pando:send?&files_to_send=/a/b.vnk\n");

    // Verbs that mean nothing for the target have no association.
    EXPECT_EQ(run(L"print", W(docs)), SE_ERR_NOASSOC);
    EXPECT_EQ(run(L"explore", notes), SE_ERR_NOASSOC);
    EXPECT_EQ(run(L"print", L"https://example.org/"), SE_ERR_NOASSOC);
}

TEST_F(ProcessTest, WithoutTheDesktopToolNothingIsAssociated) {
    fs::path empty = Folder("empty");
    fs::path docs = Folder("docs");
    testsupport::WriteBytes(docs / "notes.txt", "hello");
    testsupport::ScopedEnv path("PATH", ToolPath(empty, false).c_str());
    EXPECT_EQ(Shell(L"open", W(docs / "notes.txt")), SE_ERR_NOASSOC);
}

TEST_F(ProcessTest, ChildWithoutAHandleIsReaped) {
    fs::path bin = Folder("bin");
    fs::path pidFile = bin / "pid";
    WriteScript(bin / "tool",
                "echo $$ > '" + pidFile.string() + "'\ntouch '" + pidFile.string() + ".done'");
    ASSERT_GT(Shell(nullptr, W(bin / "tool")), 32);
    ASSERT_TRUE(WaitForFile(pidFile));
    const std::string proc = "/proc/" + std::to_string(std::stoi(ReadText(pidFile)));
    // A zombie would keep its /proc entry.
    EXPECT_TRUE(testsupport::WaitFor([&] { return !fs::exists(proc); }));
}

TEST(Environment, ExpandReplacesKnownNamesAndKeepsTheRest) {
    ASSERT_TRUE(SetEnvironmentVariableW(L"VARNICK_TEST_DIR", L"/data"));
    auto expand = [](const wchar_t *text) {
        DWORD needed = ExpandEnvironmentStringsW(text, nullptr, 0);
        std::wstring result(needed, L'\0');
        EXPECT_EQ(ExpandEnvironmentStringsW(text, result.data(), needed), needed);
        result.resize(needed - 1);
        return result;
    };
    EXPECT_EQ(expand(L"%VARNICK_TEST_DIR%\\x"), L"/data\\x");
    EXPECT_EQ(expand(L"%NO_SUCH_NAME_HERE%"), L"%NO_SUCH_NAME_HERE%");
    EXPECT_EQ(expand(L"50% of %VARNICK_TEST_DIR%"), L"50% of /data");
    EXPECT_EQ(expand(L"100%"), L"100%");
    EXPECT_EQ(expand(L"%%"), L"%%");
    wchar_t small[3];
    EXPECT_EQ(ExpandEnvironmentStringsW(L"%VARNICK_TEST_DIR%", small, 3), 6u);
    SetEnvironmentVariableW(L"VARNICK_TEST_DIR", nullptr);
}
