// A program run on a pseudo-terminal of its own: its stdin, stdout and
// stderr, and its controlling terminal, so that Ctrl-C typed on the master
// side reaches it as a terminal sends it. The terminal side stays open, so
// that its settings (echo) can be read after the program has gone.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace testsupport {

class ProgramOnTerminal {
public:
    using Clock = std::chrono::steady_clock;

    ProgramOnTerminal(const std::string &program, const std::vector<std::string> &arguments);
    ~ProgramOnTerminal();
    ProgramOnTerminal(const ProgramOnTerminal &) = delete;
    ProgramOnTerminal &operator=(const ProgramOnTerminal &) = delete;

    bool Started() const { return child_ > 0; }

    // Reads what the program shows until `marker` has appeared past what
    // was waited for before; false when it did not within a generous time.
    bool WaitFor(const std::string &marker);
    void Type(const std::string &keys);

    // The wait status once the program has ended; -1 when it went on past
    // `patience` (it is then killed). Polls, reading what it shows.
    int WaitStatus(std::chrono::milliseconds patience);
    // The exit code, -1 when it did not exit normally or in time.
    int ExitCode(std::chrono::milliseconds patience);

    const std::string &Shown() const { return shown_; }
    bool EchoAtStart() const { return echoAtStart_; }
    bool EchoOn() const;

private:
    // False when nothing came before `deadline`.
    bool ReadSome(Clock::time_point deadline);

    int master_ = -1;
    int terminal_ = -1;
    pid_t child_ = -1;
    bool exited_ = false;
    bool echoAtStart_ = false;
    std::string shown_;
    std::size_t consumed_ = 0;
};

}  // namespace testsupport
