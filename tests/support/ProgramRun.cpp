#include "support/ProgramRun.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace testsupport {

ProgramRun RunProgram(const std::string &program, const std::string &arguments) {
    std::string command = std::string(VARNICK_BIN_DIR) + "/" + program + " " + arguments + " 2>&1";
    ProgramRun run;
    FILE *pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    std::array<char, 4096> buffer{};
    while (std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        run.output.append(buffer.data(), n);
    }
    int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

bool Mentions(const ProgramRun &run, const std::string &text) {
    return run.output.find(text) != std::string::npos;
}

std::string Quoted(const std::filesystem::path &path) { return "'" + path.string() + "'"; }

int Shell(const std::string &command) {
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace testsupport
