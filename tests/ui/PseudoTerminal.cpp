#include "PseudoTerminal.h"

#include <poll.h>
#include <pty.h>
#include <unistd.h>
#include <cerrno>

namespace uitest {

PseudoTerminal::PseudoTerminal() {
    winsize size{};
    size.ws_col = 80;
    size.ws_row = 24;
    if (openpty(&master_, &terminal_, nullptr, nullptr, &size) != 0) {
        master_ = -1;
        terminal_ = -1;
    }
}

PseudoTerminal::~PseudoTerminal() {
    CloseTerminal();
    if (master_ >= 0) close(master_);
}

void PseudoTerminal::CloseTerminal() {
    if (terminal_ >= 0) close(terminal_);
    terminal_ = -1;
}

void PseudoTerminal::Type(const std::string &keys) {
    std::size_t done = 0;
    while (done < keys.size()) {
        ssize_t written = write(master_, keys.data() + done, keys.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        done += static_cast<std::size_t>(written);
    }
}

std::string PseudoTerminal::ReadUntil(const std::string &marker,
                                      std::chrono::milliseconds timeout) {
    std::string shown;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (shown.find(marker) == std::string::npos) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        pollfd ready{master_, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
        char buffer[512];
        ssize_t got = read(master_, buffer, sizeof buffer);
        if (got <= 0) break;  // EIO once every terminal side is closed
        shown.append(buffer, static_cast<std::size_t>(got));
    }
    return shown;
}

std::string PseudoTerminal::ReadQuiet(std::chrono::milliseconds quiet) {
    std::string shown;
    for (;;) {
        pollfd ready{master_, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(quiet.count())) <= 0) return shown;
        char buffer[512];
        ssize_t got = read(master_, buffer, sizeof buffer);
        if (got <= 0) return shown;
        shown.append(buffer, static_cast<std::size_t>(got));
    }
}

}  // namespace uitest
