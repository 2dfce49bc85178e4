// varnick-sfx: expands the archive appended to this program.
//
//   <program> [--password-file FILE] [DESTINATION]
//
// Without a destination it asks for one on the terminal (an empty answer
// means the current folder). When the archive needs a password it is read
// from FILE (its first line), else asked for on the terminal without echo,
// else read as a line from standard input. Exit status 0 on success, 1 when
// expanding failed, 2 on a usage error; Ctrl-C at the password prompt stops
// the expansion (what it began is removed) and then ends the program by the
// signal.
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>

#include "VarnickEngine.h"
#include "platform/WideText.h"

namespace {

struct Options {
    std::string destination;
    std::string passwordFile;
    bool destinationGiven = false;
};

bool ParseOptions(int argc, char **argv, Options &options) {
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--password-file" && i + 1 < argc) {
            options.passwordFile = argv[++i];
        } else if (argument == "-h" || argument == "--help" ||
                   (!argument.empty() && argument[0] == '-' && argument != "-")) {
            return false;
        } else if (!options.destinationGiven) {
            options.destination = argument;
            options.destinationGiven = true;
        } else {
            return false;
        }
    }
    return true;
}

std::string ReadLine(std::istream &in) {
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

// The signals that end a password prompt (and, after it, the program), and
// the one that did, 0 while none did.
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};
volatile sig_atomic_t gStopSignal = 0;

void NoteStop(int signal) { gStopSignal = signal; }

// Turns terminal echo off for its lifetime. An interrupt (or a hangup, or
// a kill) meanwhile ends the prompt's read rather than the program, so the
// expansion stops as cancelled, removing what it began, and the terminal
// gets its echo back; main then lets the signal end the program.
class NoEcho {
public:
    explicit NoEcho(int fd) : fd_(fd) {
        if (tcgetattr(fd_, &saved_) != 0) return;
        struct sigaction note {};
        note.sa_handler = NoteStop;  // without SA_RESTART: the read returns
        sigemptyset(&note.sa_mask);
        for (std::size_t i = 0; i < std::size(kStopSignals); ++i)
            sigaction(kStopSignals[i], &note, &previous_[i]);
        caught_ = true;
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        active_ = tcsetattr(fd_, TCSAFLUSH, &quiet) == 0;
    }
    ~NoEcho() {
        if (active_) tcsetattr(fd_, TCSAFLUSH, &saved_);
        if (caught_)
            for (std::size_t i = 0; i < std::size(kStopSignals); ++i)
                sigaction(kStopSignals[i], &previous_[i], nullptr);
    }
    NoEcho(const NoEcho &) = delete;
    NoEcho &operator=(const NoEcho &) = delete;

private:
    int fd_;
    termios saved_{};
    struct sigaction previous_[std::size(kStopSignals)]{};
    bool caught_ = false, active_ = false;
};

// A line typed on the terminal `fd`, without its line end; false when a
// stop signal or the end of input came first. The signals are blocked but
// while waiting, so one that comes between the check and the wait still
// ends the wait.
bool ReadTerminalLine(int fd, std::string &line) {
    sigset_t stopping, previous;
    sigemptyset(&stopping);
    for (int signal : kStopSignals) sigaddset(&stopping, signal);
    sigprocmask(SIG_BLOCK, &stopping, &previous);
    line.clear();
    bool ended = false;
    while (!gStopSignal && !ended) {
        pollfd ready{fd, POLLIN, 0};
        if (ppoll(&ready, 1, nullptr, &previous) < 0) continue;  // EINTR: look at the flag
        char piece[256];
        ssize_t got = read(fd, piece, sizeof piece);
        if (got <= 0) break;
        line.append(piece, static_cast<std::size_t>(got));
        ended = line.back() == '\n';  // the terminal gives whole lines
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    return ended && !gStopSignal;
}

struct PasswordState {
    std::string file;
    int asked = 0;
};

// The password, none when there is no answer (the end of input, or a stop).
std::optional<std::string> AskPassword(PasswordState &state) {
    if (!state.file.empty()) {
        std::ifstream in(state.file);
        return ReadLine(in);
    }
    if (isatty(STDIN_FILENO)) {
        // Echo goes (and the interrupt is caught) before the prompt shows.
        NoEcho quiet(STDIN_FILENO);
        std::cerr << (state.asked > 1 ? "Wrong password. Password: " : "Password: ") << std::flush;
        std::string line;
        bool answered = ReadTerminalLine(STDIN_FILENO, line);
        std::cerr << "\n";
        if (!answered) return std::nullopt;
        return line;
    }
    std::string line = ReadLine(std::cin);
    if (line.empty() && !std::cin.good()) return std::nullopt;
    return line;
}

int32_t OnPassword(int32_t, int32_t, NotificationContext context, void *userData) {
    auto &state = *static_cast<PasswordState *>(userData);
    // A file gives one answer; a person gets three tries.
    if (++state.asked > (state.file.empty() ? 3 : 1)) return kNotificationStop;
    std::optional<std::string> password = AskPassword(state);
    if (!password) return kNotificationStop;
    StringRef text = nullptr;
    std::wstring wide = platform::FromUtf8(*password);
    if (NewStringRefFromUnicodeString(wide.c_str(), &text) != kEngineOK) return kNotificationStop;
    SetDataInContext(context, kContextPassword, &text, sizeof text);
    return kNotificationHandled;
}

std::string SelfPath() {
    char buffer[PATH_MAX] = {};
    ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : std::string();
}

std::string CurrentFolder() {
    char buffer[PATH_MAX] = {};
    return getcwd(buffer, sizeof buffer) ? std::string(buffer) : std::string(".");
}

std::string AskDestination() {
    std::string here = CurrentFolder();
    std::cerr << "Expand into folder [" << here << "]: " << std::flush;
    std::string answer = ReadLine(std::cin);
    return answer.empty() ? here : answer;
}

FSObject PathObject(const std::string &path) {
    FSObject object = nullptr;
    std::wstring wide = platform::FromUtf8(path);
    NewFSObjectFromUnicodePath(wide.c_str(), &object);
    return object;
}

int Expand(const std::string &self, const std::string &destination, PasswordState &passwords) {
    OpaqueEngineObject *engine = nullptr;
    if (OpenVarnickEngine(&engine, "varnick-sfx") != kEngineOK) {
        std::cerr << "The expander could not start.\n";
        return 1;
    }
    InstallNotification(engine, kNotifyRequestCategory, kNotifyPasswordNeeded, OnPassword,
                        &passwords);
    // Files already in the destination are replaced: the person chose it.
    SetEngineIntegerProperty(engine, kEnginePropConflictResolution, 1);
    FSObject archive = PathObject(self), folder = PathObject(destination);
    FSObjectList result = nullptr;
    EngineResult status = ExpandOrDecodeFile(engine, archive, folder, &result, nullptr);
    if (status == kEngineOK)
        std::cerr << "Expanded " << CountFSObjectList(result) << " item(s) into " << destination
                  << ".\n";
    else if (gStopSignal)
        std::cerr << "Stopped.\n";
    else
        std::cerr << "Expanding failed (" << static_cast<int>(status) << ").\n";
    if (result) DisposeFSObjectList(result);
    DisposeFSObject(archive);
    DisposeFSObject(folder);
    CloseVarnickEngine(engine);
    return status == kEngineOK ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::cerr << "usage: " << argv[0] << " [--password-file FILE] [DESTINATION]\n";
        return 2;
    }
    std::string self = SelfPath();
    if (self.empty()) {
        std::cerr << "This program cannot find itself.\n";
        return 1;
    }
    std::string destination = options.destinationGiven ? options.destination : AskDestination();
    PasswordState passwords{options.passwordFile};
    int status = Expand(self, destination, passwords);
    if (gStopSignal) {
        signal(gStopSignal, SIG_DFL);
        raise(gStopSignal);
    }
    return status;
}
