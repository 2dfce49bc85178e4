// Runs a program of the product as a user would, through the shell, and
// collects what it printed (stdout and stderr together) and its exit code.
#pragma once

#include <string>

namespace testsupport {

struct ProgramRun {
    int exitCode = -1;  // -1 when the program did not exit normally
    std::string output;
};

// `program` is a file name in the build's bin folder; `arguments` is shell text.
ProgramRun RunProgram(const std::string &program, const std::string &arguments);

}  // namespace testsupport
