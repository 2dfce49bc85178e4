// Runs a program of the product as a user would, through the shell, and
// collects what it printed (stdout and stderr together) and its exit code.
#pragma once

#include <filesystem>
#include <string>

namespace testsupport {

struct ProgramRun {
    int exitCode = -1;  // -1 when the program did not exit normally
    std::string output;
};

// `program` is a file name in the build's bin folder; `arguments` is shell text.
ProgramRun RunProgram(const std::string &program, const std::string &arguments);

// Whether the run printed `text`.
bool Mentions(const ProgramRun &run, const std::string &text);

// A path as one word of shell text.
std::string Quoted(const std::filesystem::path &path);

// Runs shell text; its exit status, or -1 when it did not exit normally.
int Shell(const std::string &command);

}  // namespace testsupport
