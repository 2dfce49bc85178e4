// Runs a program of the product as a user would, through the shell, and
// collects what it printed (stdout and stderr together) and its exit code.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testsupport {

struct ProgramRun {
    int exitCode = -1;  // -1 when the program did not exit normally
    std::string output;
};

// `program` is a file name in the build's bin folder; `arguments` is shell text.
ProgramRun RunProgram(const std::string &program, const std::string &arguments);

// The same, expecting exit code 0; a failure shows the arguments and what
// the program printed.
ProgramRun RunToSuccess(const std::string &program, const std::string &arguments);

// Whether the run printed `text`.
bool Mentions(const ProgramRun &run, const std::string &text);

// A path as one word of shell text.
std::string Quoted(const std::filesystem::path &path);

// Runs shell text; its exit status, or -1 when it did not exit normally.
int Shell(const std::string &command);

// How a run that was interrupted on purpose ended.
struct InterruptedRun {
    int exitCode = -1;  // -1 when the program did not exit normally
    // The program was still at its work when the interrupt was sent: it
    // had not made `result` and had not exited.
    bool caughtMidWork = false;
};

// Runs `program` (a file name in the build's bin folder) with `arguments`
// and interrupts it while it writes: once a new non-empty file appears in
// `folder` it is frozen, checked to be still at its work, sent SIGINT and
// let go on. An empty probe file or a start-up that is slow under load
// cannot bring the interrupt early, and a fast finish cannot take the
// interrupt past the end unnoticed.
InterruptedRun InterruptOnceWriting(const std::string &program,
                                    const std::vector<std::string> &arguments,
                                    const std::filesystem::path &folder,
                                    const std::filesystem::path &result);

}  // namespace testsupport
