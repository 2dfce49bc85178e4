// The terminal host on a pseudo-terminal: prompts typed into it, passwords
// without echo, message boxes with their buttons, the progress block, and
// the silent behaviour without a terminal.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <filesystem>
#include <future>
#include <thread>

#include "PseudoTerminal.h"
#include "platform/TerminalUiHost.h"
#include "platform/WideText.h"
#include "platform/WinUser.h"
#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;
using uitest::PseudoTerminal;

namespace {

class TerminalHostTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(pty.Ok()); }

    // Runs a question of the host on its own thread, as a worker would.
    template <class Ask>
    auto Asking(Ask ask) {
        return std::async(std::launch::async, ask);
    }

    PseudoTerminal pty;
    platform::TerminalUiHost host{pty.Terminal(), pty.Terminal()};
};

bool EchoIsOn(int fd) {
    termios settings{};
    tcgetattr(fd, &settings);
    return (settings.c_lflag & ECHO) != 0;
}

}  // namespace

TEST_F(TerminalHostTest, PasswordIsTypedWithoutEchoAndEchoComesBack) {
    ASSERT_TRUE(host.HasTerminal());
    auto answer = Asking([&] {
        return host.AskPassword({nullptr, L"\u65e5\u672c.zip", false, true});
    });
    std::string shown = pty.ReadUntil("Password for \xe6\x97\xa5\xe6\x9c\xac.zip: ");
    EXPECT_NE(shown.find("The password was not correct."), std::string::npos);
    pty.Type("s3cr\xc3\xa9t\n");
    ASSERT_EQ(answer.get(), std::optional<std::wstring>(L"s3cr\u00e9t"));
    EXPECT_EQ(pty.ReadQuiet().find("s3cr"), std::string::npos);
    EXPECT_TRUE(EchoIsOn(pty.Terminal()));
}

TEST_F(TerminalHostTest, NewPasswordIsTypedTwiceUntilBothAgree) {
    auto answer = Asking([&] { return host.AskPassword({nullptr, L"a.zip", true, false}); });
    pty.ReadUntil("Password for a.zip: ");
    pty.Type("one\n");
    pty.ReadUntil("Type it again: ");
    pty.Type("two\n");
    EXPECT_NE(pty.ReadUntil("Password for a.zip: ").find("The two passwords differ."),
              std::string::npos);
    pty.Type("same\n");
    pty.ReadUntil("Type it again: ");
    pty.Type("same\n");
    EXPECT_EQ(answer.get(), std::optional<std::wstring>(L"same"));
}

TEST_F(TerminalHostTest, MessageBoxShowsItsButtonsAndTakesNumberWordOrDefault) {
    auto box = [&](UINT flags) {
        return Asking(
            [&, flags] { return host.MessageBox(nullptr, L"Go on?", L"Varnick", flags); });
    };
    auto first = box(MB_YESNOCANCEL | MB_DEFBUTTON2);
    std::string shown = pty.ReadUntil("[No]: ");
    EXPECT_NE(shown.find("Varnick\r\nGo on?\r\n(1) Yes  (2) No  (3) Cancel [No]: "),
              std::string::npos);
    pty.Type("\n");
    EXPECT_EQ(first.get(), IDNO);

    auto second = box(MB_YESNOCANCEL);
    pty.ReadUntil("[Yes]: ");
    pty.Type("3\n");
    EXPECT_EQ(second.get(), IDCANCEL);

    // "c" could be Cancel or Continue: the box asks again.
    auto third = box(MB_CANCELTRYCONTINUE);
    pty.ReadUntil("[Cancel]: ");
    pty.Type("c\n");
    pty.ReadUntil("numbers or words: ");
    pty.Type("CONT\n");
    EXPECT_EQ(third.get(), IDCONTINUE);

    auto fourth = box(MB_OKCANCEL | MB_DEFBUTTON2);
    pty.ReadUntil("[Cancel]: ");
    pty.Type("\x04");
    EXPECT_EQ(fourth.get(), IDCANCEL);
}

TEST_F(TerminalHostTest, ConflictPromptTakesAWholeLabelBeforeAPrefix) {
    auto ask = [&] {
        return Asking([&] { return host.AskConflictAction({nullptr, L"/x/a.txt", false}); });
    };
    auto whole = ask();
    std::string shown = pty.ReadUntil("(7) Stop: ");
    EXPECT_NE(shown.find("The file /x/a.txt already exists."), std::string::npos);
    pty.Type("replace\n");  // also the beginning of two other labels
    EXPECT_EQ(whole.get(), platform::kConflictReplace);

    auto prefix = ask();
    pty.ReadUntil("(7) Stop: ");
    pty.Type("keep\n");
    EXPECT_EQ(prefix.get(), platform::kConflictKeepBoth);

    auto number = ask();
    pty.ReadUntil("(7) Stop: ");
    pty.Type("\n");  // no default: asked again
    pty.ReadUntil("numbers or words: ");
    pty.Type("5\n");
    EXPECT_EQ(number.get(), platform::kConflictReplaceIfNewer);
}

TEST_F(TerminalHostTest, FolderAndFilePromptsTakeOnlyWhatExists) {
    testsupport::TempHome home;
    fs::path folder = home.Scratch("chosen");
    fs::path file = folder / "a.vnkx";
    testsupport::WriteBytes(file, "x");

    auto directory = Asking([&] {
        return host.ChooseDirectory({nullptr, L"Choose a folder to expand into:", L""});
    });
    pty.ReadUntil("Folder: ");
    pty.Type(file.string() + "\n");
    pty.ReadUntil("is not a folder.");
    pty.Type(folder.string() + "\n");
    EXPECT_EQ(directory.get(), std::optional<std::wstring>(platform::FromUtf8(folder.string())));

    auto archive = Asking([&] { return host.LocateArchive({nullptr, L"*.vnkx"}); });
    pty.ReadUntil("File: ");
    pty.Type(folder.string() + "\n");
    pty.ReadUntil("is not a file.");
    pty.Type(file.string() + "\n");
    EXPECT_EQ(archive.get(), std::optional<std::wstring>(platform::FromUtf8(file.string())));
}

TEST_F(TerminalHostTest, SaveFileAsksBeforeReplacingWhenTold) {
    testsupport::TempHome home;
    fs::path taken = home.Scratch() / "Contents of a.txt";
    fs::path other = home.Scratch() / "b.txt";
    testsupport::WriteBytes(taken, "old");
    std::wstring suggested = platform::FromUtf8(taken.string());

    auto file = Asking([&] {
        return host.ChooseSaveFile({nullptr, L"Save Archive Contents", L"",
                                    platform::kSaveFileOverwritePrompt, suggested});
    });
    pty.ReadUntil("File name [" + taken.string() + "]: ");
    pty.Type("\n");
    pty.ReadUntil("Replace it?\r\n(1) Yes  (2) No [No]: ");
    pty.Type("\n");
    pty.ReadUntil("File name [" + taken.string() + "]: ");
    pty.Type(other.string() + "\n");
    EXPECT_EQ(file.get(), std::optional<std::wstring>(platform::FromUtf8(other.string())));

    // Without the flag the existing file is taken as it stands.
    auto plain = Asking([&] { return host.ChooseSaveFile({nullptr, L"", L"", 0, suggested}); });
    pty.ReadUntil("]: ");
    pty.Type("\n");
    EXPECT_EQ(plain.get(), std::optional<std::wstring>(suggested));
}

TEST_F(TerminalHostTest, ProgressBlockIsRedrawnInPlaceAndLeftWhenItEnds) {
    auto dialog = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x10));
    platform::ProgressView view;
    view.title = L"Compressing";
    view.operation = L"Adding files";
    view.detail = L"/x/a.zip";
    view.fileName = L"b.txt";
    view.percent = 40;
    view.filesDone = L"3";
    view.timeRemaining = L"12 seconds";
    host.DrawProgress(dialog, view, false);
    std::string first = pty.ReadQuiet();
    EXPECT_NE(first.find("Compressing"), std::string::npos);
    EXPECT_NE(first.find("[############..................]  40%  Files: 3  Left: 12 seconds"),
              std::string::npos);
    EXPECT_EQ(first.find("\x1b[5A"), std::string::npos);

    view.percent = 100;
    host.DrawProgress(dialog, view, false);
    std::string second = pty.ReadQuiet();
    EXPECT_EQ(second.rfind("\r\x1b[5A", 0), 0u) << "the block is redrawn from its first line";
    EXPECT_NE(second.find("100%"), std::string::npos);

    // A prompt meanwhile starts below the block, and the next draw makes a
    // new block instead of climbing over the prompt.
    auto box = Asking([&] { return host.MessageBox(nullptr, L"Sure?", L"", MB_OK); });
    EXPECT_EQ(pty.ReadUntil("[OK]: ").rfind("\r\n", 0), 0u);
    pty.Type("\n");
    EXPECT_EQ(box.get(), IDOK);
    pty.ReadQuiet();
    host.DrawProgress(dialog, view, true);
    std::string last = pty.ReadQuiet();
    EXPECT_EQ(last.find("\x1b[5A"), std::string::npos);
    EXPECT_EQ(last.substr(last.size() - 2), "\r\n");
}

namespace {

// The helper program on a terminal of its own: stdin, stdout and stderr are
// the pseudo-terminal, which is its controlling terminal.
pid_t StartOnTerminal(PseudoTerminal &pty, const std::string &program,
                      const std::string &argument) {
    pid_t child = fork();
    if (child == 0) {
        if (login_tty(pty.Terminal()) != 0) _exit(126);
        execl(program.c_str(), program.c_str(), argument.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    pty.CloseTerminal();
    return child;
}

int WaitForExit(pid_t child) {
    for (int i = 0; i < 1000; ++i) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
}

std::size_t Count(const std::string &text, const std::string &piece) {
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos;
         at = text.find(piece, at + piece.size())) {
        ++count;
    }
    return count;
}

const std::string kHelper = std::string(VARNICK_BIN_DIR) + "/ui-terminal-helper";

}  // namespace

TEST(TerminalHostProgram, ShowsProgressFromTheDialogAndAsksOnItsTerminal) {
    testsupport::TempHome home;
    PseudoTerminal pty;
    ASSERT_TRUE(pty.Ok());
    auto started = std::chrono::steady_clock::now();
    pid_t child = StartOnTerminal(pty, kHelper, "s3cret");
    ASSERT_GT(child, 0);

    std::string progress = pty.ReadUntil("Password for a.zip: ");
    auto asked = std::chrono::steady_clock::now();
    EXPECT_NE(progress.find("Compressing"), std::string::npos);
    EXPECT_NE(progress.find("Adding files to the archive"), std::string::npos);
    EXPECT_NE(progress.find("/x/a.zip"), std::string::npos);
    EXPECT_NE(progress.find("docs/file"), std::string::npos);
    EXPECT_NE(progress.find("Files: "), std::string::npos);
    EXPECT_NE(progress.find("%"), std::string::npos);
    // Forty steps of counters and names give far fewer redraws: at most ten
    // a second.
    auto tenths =
        std::chrono::duration_cast<std::chrono::milliseconds>(asked - started).count() / 100;
    std::size_t redraws = Count(progress, "\x1b[5A");
    EXPECT_GE(redraws, 1u);
    EXPECT_LE(redraws, static_cast<std::size_t>(tenths) + 2);

    pty.Type("s3cret\n");
    std::string box = pty.ReadUntil("(1) Yes  (2) No [No]: ");
    EXPECT_NE(box.find("Keep the archive?"), std::string::npos);
    pty.Type("yes\n");
    std::string rest = pty.ReadUntil("RESULT box=6");
    EXPECT_EQ(WaitForExit(child), 0);
    rest += pty.ReadQuiet();
    EXPECT_NE(rest.find("RESULT password=given matches=1"), std::string::npos);
    EXPECT_NE(rest.find("RESULT box=6"), std::string::npos);
    EXPECT_EQ((box + rest).find("s3cret"), std::string::npos) << "the password is not echoed";
    // The end leaves the last state of the block on the screen.
    EXPECT_NE(rest.find("docs/file40.txt"), std::string::npos);
    EXPECT_NE(rest.find("100%"), std::string::npos);
}

TEST(TerminalHostProgram, WithoutATerminalShowsNothingAndRefuses) {
    testsupport::TempHome home;
    const testsupport::ProgramRun run =
        testsupport::RunProgram("ui-terminal-helper", "s3cret </dev/null");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output, "RESULT password=refused matches=0\nRESULT box=7\n");
}
