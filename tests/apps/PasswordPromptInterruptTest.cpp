// Ctrl-C typed at varnick's password prompts, on a pseudo-terminal as a
// user meets them: the prompt ends at once and the command stops as an
// interrupted run (exit 3) with nothing made, whether the prompt stands
// before the run, while the listing is read or in the middle of the run.
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kCtrlC = '\x03';

// varnick on a pseudo-terminal of its own: its stdin, stdout and stderr,
// and its controlling terminal, so that Ctrl-C typed on the master side
// reaches it as the terminal sends it. The test keeps the terminal side
// open to read its settings after the program has gone.
class VarnickOnTerminal {
public:
    explicit VarnickOnTerminal(const std::vector<std::string> &arguments) {
        winsize size{};
        size.ws_col = 100;
        size.ws_row = 24;
        if (openpty(&master_, &terminal_, nullptr, nullptr, &size) != 0) return;
        echoAtStart_ = EchoOn();
        const std::string program = std::string(VARNICK_BIN_DIR) + "/varnick";
        std::vector<char *> argv{const_cast<char *>(program.c_str())};
        for (const std::string &argument : arguments)
            argv.push_back(const_cast<char *>(argument.c_str()));
        argv.push_back(nullptr);
        child_ = fork();
        if (child_ == 0) {
            close(master_);
            if (login_tty(terminal_) != 0) _exit(126);
            execv(program.c_str(), argv.data());
            _exit(127);
        }
    }
    ~VarnickOnTerminal() {
        if (child_ > 0 && !exited_) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        if (master_ >= 0) close(master_);
        if (terminal_ >= 0) close(terminal_);
    }
    VarnickOnTerminal(const VarnickOnTerminal &) = delete;
    VarnickOnTerminal &operator=(const VarnickOnTerminal &) = delete;

    bool Started() const { return child_ > 0; }

    // Reads what the program shows until `marker` has appeared; false when
    // it did not within a generous time (a slow start under load).
    bool WaitFor(const std::string &marker) {
        const auto deadline = Clock::now() + std::chrono::seconds(20);
        while (shown_.find(marker, consumed_) == std::string::npos) {
            if (!ReadSome(deadline)) return false;
        }
        consumed_ = shown_.find(marker, consumed_) + marker.size();
        return true;
    }

    void Type(const std::string &keys) {
        EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // The exit code once the program has ended, -1 when it did not exit
    // normally or went on past `patience` (then it is killed). Polls.
    int ExitCode(std::chrono::milliseconds patience) {
        const auto deadline = Clock::now() + patience;
        int status = 0;
        while (waitpid(child_, &status, WNOHANG) != child_) {
            if (Clock::now() > deadline) return -1;
            ReadSome(Clock::now() + std::chrono::milliseconds(5));
        }
        exited_ = true;
        while (ReadSome(Clock::now() + std::chrono::milliseconds(20))) {
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string &Shown() const { return shown_; }

    bool EchoAtStart() const { return echoAtStart_; }
    bool EchoOn() const {
        termios settings{};
        return tcgetattr(terminal_, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }

private:
    // False when nothing came before `deadline`.
    bool ReadSome(Clock::time_point deadline) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd ready{master_, POLLIN, 0};
        if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) return false;
        char buffer[512];
        const ssize_t got = read(master_, buffer, sizeof buffer);
        if (got <= 0) return false;
        shown_.append(buffer, static_cast<std::size_t>(got));
        return true;
    }

    int master_ = -1;
    int terminal_ = -1;
    pid_t child_ = -1;
    bool exited_ = false;
    bool echoAtStart_ = false;
    std::string shown_;
    std::size_t consumed_ = 0;
};

// A prompt that went on waiting would hold the program until it is killed;
// an ended one lets it go in a few milliseconds.
constexpr std::chrono::milliseconds kPromptEnds{3000};

bool HoldsAnyFile(const fs::path &folder) {
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_directory()) return true;
    }
    return false;
}

class PasswordPromptInterrupt : public testsupport::HomeTest {
protected:
    fs::path MakeSources() {
        const fs::path sources = home.Scratch("sources");
        testsupport::WriteBytes(sources / "notes.txt", std::string(5000, 'n'));
        return sources;
    }
};

}  // namespace

TEST_F(PasswordPromptInterrupt, CtrlCAtTheNewPasswordPromptStopsCreateAtOnceLeavingNothing) {
    const fs::path sources = MakeSources();
    const fs::path target = home.Scratch("target");
    VarnickOnTerminal varnick(
        {"create", "--ask-password", (target / "secret.zip").string(), sources.string()});
    ASSERT_TRUE(varnick.Started());
    ASSERT_TRUE(varnick.WaitFor("Password for ")) << varnick.Shown();

    varnick.Type(std::string(1, kCtrlC));
    EXPECT_EQ(varnick.ExitCode(kPromptEnds), 3) << varnick.Shown();
    EXPECT_NE(varnick.Shown().find("create: interrupted"), std::string::npos) << varnick.Shown();
    EXPECT_TRUE(fs::is_empty(target));
    EXPECT_TRUE(varnick.EchoAtStart());
    EXPECT_TRUE(varnick.EchoOn()) << "the terminal's echo is given back";
}

TEST_F(PasswordPromptInterrupt, CtrlCAtTheLibrarysPasswordPromptStopsTheCommandAsInterrupted) {
    const fs::path sources = MakeSources();
    // A Zip archive's password is asked while its listing is read, before
    // the run; a vnkx archive's by the run's worker, while this thread pumps.
    for (const char *name : {"locked.zip", "locked.vnkx"}) {
        SCOPED_TRACE(name);
        const fs::path archive = home.Path() / name;
        testsupport::RunToSuccess("varnick", "-q create --password s3cret " +
                                                 testsupport::Quoted(archive) + " " +
                                                 testsupport::Quoted(sources));
        const fs::path out = home.Scratch(std::string("out-") + name);
        VarnickOnTerminal varnick({"expand", archive.string(), "-d", out.string()});
        ASSERT_TRUE(varnick.Started());
        ASSERT_TRUE(varnick.WaitFor("Password for ")) << varnick.Shown();

        varnick.Type(std::string(1, kCtrlC));
        EXPECT_EQ(varnick.ExitCode(kPromptEnds), 3) << varnick.Shown();
        EXPECT_NE(varnick.Shown().find(": interrupted"), std::string::npos) << varnick.Shown();
        EXPECT_FALSE(HoldsAnyFile(out));
        // Asked once: the interrupt was not dropped for a second question.
        EXPECT_EQ(varnick.Shown().find("Password for ", varnick.Shown().find("Password for ") + 1),
                  std::string::npos)
            << varnick.Shown();
    }
}

TEST_F(PasswordPromptInterrupt, APasswordTypedTwiceStillMakesAnEncryptedArchive) {
    const fs::path sources = MakeSources();
    const fs::path archive = home.Path() / "typed.vnkx";
    VarnickOnTerminal varnick(
        {"-q", "create", "--ask-password", archive.string(), sources.string()});
    ASSERT_TRUE(varnick.Started());
    ASSERT_TRUE(varnick.WaitFor("Password for ")) << varnick.Shown();
    varnick.Type("s3cret\n");
    ASSERT_TRUE(varnick.WaitFor("Type it again: ")) << varnick.Shown();
    varnick.Type("s3cret\n");
    EXPECT_EQ(varnick.ExitCode(std::chrono::seconds(30)), 0) << varnick.Shown();
    EXPECT_EQ(varnick.Shown().find("s3cret"), std::string::npos) << "not echoed";

    const fs::path out = home.Scratch("out");
    testsupport::RunToSuccess("varnick", "-q expand --password s3cret " +
                                             testsupport::Quoted(archive) + " -d " +
                                             testsupport::Quoted(out));
    EXPECT_EQ(testsupport::ReadBytes(out / "sources" / "notes.txt"), std::string(5000, 'n'));
    EXPECT_NE(testsupport::RunProgram(
                  "varnick", "-q expand --password wrong " + testsupport::Quoted(archive) + " -d " +
                                 testsupport::Quoted(home.Scratch("wrong")) + " </dev/null")
                  .exitCode,
              0);
}
