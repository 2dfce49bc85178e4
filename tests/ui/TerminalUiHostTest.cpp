// The terminal host as a command-line program meets it: a helper program on
// a pseudo-terminal shows a progress dialog driven by a worker, asks for a
// password without echo and shows a message box; without a terminal it shows
// nothing and refuses.
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <string>
#include <thread>

#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

// The test types into and reads from the master side; the helper program
// has the other side as its controlling terminal.
class PseudoTerminal {
public:
    PseudoTerminal() {
        winsize size{};
        size.ws_col = 80;
        size.ws_row = 24;
        if (openpty(&master_, &terminal_, nullptr, nullptr, &size) != 0) master_ = terminal_ = -1;
    }
    ~PseudoTerminal() {
        if (master_ >= 0) close(master_);
        if (terminal_ >= 0) close(terminal_);
    }
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    bool Ok() const { return master_ >= 0; }

    // Starts `program` with the terminal as its stdin, stdout and stderr.
    pid_t Start(const std::string &program, const std::string &argument) {
        pid_t child = fork();
        if (child == 0) {
            if (login_tty(terminal_) != 0) _exit(126);
            execl(program.c_str(), program.c_str(), argument.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
        close(terminal_);
        terminal_ = -1;
        return child;
    }

    void Type(const std::string &keys) {
        EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Everything shown until `marker` appears, or all that came within ten
    // seconds; with no marker, until nothing more comes for a fifth of one.
    std::string Read(const std::string &marker = "") {
        std::string shown;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (marker.empty() || shown.find(marker) == std::string::npos) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd ready{master_, POLLIN, 0};
            int wait = marker.empty() ? 200 : static_cast<int>(left.count());
            if (wait <= 0 || poll(&ready, 1, wait) <= 0) break;
            char buffer[512];
            ssize_t got = read(master_, buffer, sizeof buffer);
            if (got <= 0) break;  // EIO once the program has gone
            shown.append(buffer, static_cast<std::size_t>(got));
        }
        return shown;
    }

private:
    int master_ = -1;
    int terminal_ = -1;
};

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

}  // namespace

TEST(TerminalHostProgram, ShowsProgressFromTheDialogAndAsksOnItsTerminal) {
    testsupport::TempHome home;
    PseudoTerminal pty;
    ASSERT_TRUE(pty.Ok());
    auto started = std::chrono::steady_clock::now();
    pid_t child = pty.Start(std::string(VARNICK_BIN_DIR) + "/ui-terminal-helper", "s3cret");
    ASSERT_GT(child, 0);

    std::string progress = pty.Read("Password for a.zip: ");
    auto asked = std::chrono::steady_clock::now();
    for (const char *shown :
         {"Compressing", "Adding files to the archive", "/x/a.zip", "docs/file", "Files: ", "%"}) {
        EXPECT_NE(progress.find(shown), std::string::npos) << shown;
    }
    // Forty steps of counters and names give far fewer redraws, each from
    // the block's first line: at most ten a second.
    auto tenths =
        std::chrono::duration_cast<std::chrono::milliseconds>(asked - started).count() / 100;
    std::size_t redraws = Count(progress, "\x1b[5A");
    EXPECT_GE(redraws, 1u);
    EXPECT_LE(redraws, static_cast<std::size_t>(tenths) + 2);

    pty.Type("s3cret\n");
    std::string box = pty.Read("(1) Yes  (2) No [No]: ");
    EXPECT_NE(box.find("Varnick\r\nKeep the archive?\r\n"), std::string::npos);
    pty.Type("yes\n");
    std::string rest = pty.Read("RESULT box=6");
    EXPECT_EQ(WaitForExit(child), 0);
    rest += pty.Read();
    EXPECT_NE(rest.find("RESULT password=given matches=1"), std::string::npos);
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
