#include "support/ProgramOnTerminal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

namespace testsupport {

ProgramOnTerminal::ProgramOnTerminal(const std::string &program,
                                     const std::vector<std::string> &arguments) {
    winsize size{};
    size.ws_col = 100;
    size.ws_row = 24;
    if (openpty(&master_, &terminal_, nullptr, nullptr, &size) != 0) return;
    echoAtStart_ = EchoOn();
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

ProgramOnTerminal::~ProgramOnTerminal() {
    if (child_ > 0 && !exited_) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    if (master_ >= 0) close(master_);
    if (terminal_ >= 0) close(terminal_);
}

bool ProgramOnTerminal::WaitFor(const std::string &marker) {
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (shown_.find(marker, consumed_) == std::string::npos) {
        if (!ReadSome(deadline)) return false;
    }
    consumed_ = shown_.find(marker, consumed_) + marker.size();
    return true;
}

void ProgramOnTerminal::Type(const std::string &keys) {
    EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

int ProgramOnTerminal::WaitStatus(std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    int status = 0;
    while (waitpid(child_, &status, WNOHANG) != child_) {
        if (Clock::now() > deadline) return -1;
        ReadSome(Clock::now() + std::chrono::milliseconds(5));
    }
    exited_ = true;
    while (ReadSome(Clock::now() + std::chrono::milliseconds(20))) {
    }
    return status;
}

int ProgramOnTerminal::ExitCode(std::chrono::milliseconds patience) {
    const int status = WaitStatus(patience);
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool ProgramOnTerminal::EchoOn() const {
    termios settings{};
    return tcgetattr(terminal_, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
}

bool ProgramOnTerminal::ReadSome(Clock::time_point deadline) {
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

}  // namespace testsupport
