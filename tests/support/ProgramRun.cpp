#include "support/ProgramRun.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <thread>

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

ProgramRun RunToSuccess(const std::string &program, const std::string &arguments) {
    ProgramRun run = RunProgram(program, arguments);
    EXPECT_EQ(run.exitCode, 0) << program << " " << arguments << "\n" << run.output;
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

namespace {

namespace fs = std::filesystem;

// Starts the program with its output thrown away; its process id, or -1.
pid_t Start(const std::string &program, const std::vector<std::string> &arguments) {
    const std::string path = std::string(VARNICK_BIN_DIR) + "/" + program;
    std::vector<char *> argv{const_cast<char *>(path.c_str())};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    const int devNull = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t child = fork();
    if (child == 0) {
        dup2(devNull, STDOUT_FILENO);
        dup2(devNull, STDERR_FILENO);
        execv(path.c_str(), argv.data());
        _exit(127);
    }
    if (devNull >= 0) close(devNull);
    return child;
}

std::set<fs::path> Entries(const fs::path &folder) {
    std::set<fs::path> entries;
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder, error)) {
        entries.insert(entry.path());
    }
    return entries;
}

bool HoldsNewWrittenFile(const fs::path &folder, const std::set<fs::path> &before) {
    for (const fs::path &entry : Entries(folder)) {
        std::error_code error;
        if (!before.contains(entry) && fs::is_regular_file(entry, error) &&
            fs::file_size(entry, error) > 0 && !error)
            return true;
    }
    return false;
}

bool HasExited(pid_t child, int &status) { return waitpid(child, &status, WNOHANG) == child; }

int ExitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

}  // namespace

InterruptedRun InterruptOnceWriting(const std::string &program,
                                    const std::vector<std::string> &arguments,
                                    const fs::path &folder, const fs::path &result) {
    InterruptedRun run;
    const std::set<fs::path> before = Entries(folder);
    const pid_t child = Start(program, arguments);
    if (child < 0) return run;
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    bool writing = false;
    while (!(writing = HoldsNewWrittenFile(folder, before)) &&
           std::chrono::steady_clock::now() < deadline) {
        if (HasExited(child, status)) return {ExitCodeOf(status), false};
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    kill(child, SIGSTOP);
    if (HasExited(child, status)) return {ExitCodeOf(status), false};
    std::error_code error;
    run.caughtMidWork = writing && !fs::exists(result, error);
    kill(child, SIGINT);
    kill(child, SIGCONT);
    if (waitpid(child, &status, 0) == child) run.exitCode = ExitCodeOf(status);
    return run;
}

}  // namespace testsupport
