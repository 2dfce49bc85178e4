#include "support/ProgramRun.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>

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

}  // namespace testsupport
