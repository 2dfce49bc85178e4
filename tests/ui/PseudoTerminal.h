// A pseudo-terminal for the terminal host's tests: the host reads and writes
// the terminal side, the test types into and reads from the other side.
#pragma once

#include <chrono>
#include <string>

namespace uitest {

class PseudoTerminal {
public:
    // 80 columns by 24 lines.
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    bool Ok() const { return master_ >= 0 && terminal_ >= 0; }
    // The side a program (or host) uses as its terminal.
    int Terminal() const { return terminal_; }
    // The side the test drives.
    int Master() const { return master_; }

    void Type(const std::string &keys);
    // Everything shown until `marker` appears (the marker included), or all
    // that came within the timeout.
    std::string ReadUntil(const std::string &marker,
                          std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Everything shown until nothing more comes for `quiet`.
    std::string ReadQuiet(std::chrono::milliseconds quiet = std::chrono::milliseconds(200));
    // Gives the terminal side away (to a child); the test keeps the master.
    void CloseTerminal();

private:
    int master_ = -1;
    int terminal_ = -1;
};

}  // namespace uitest
