// A terminal host for a test: nothing to read, and what it writes goes to a
// file, so a test sees what a command-line program would show. Installed
// for the life of the object.
#pragma once

#include <filesystem>
#include <string>

#include "platform/TerminalUiHost.h"

namespace testsupport {

class TerminalCapture {
public:
    explicit TerminalCapture(const std::filesystem::path &output);
    ~TerminalCapture();
    TerminalCapture(const TerminalCapture &) = delete;
    TerminalCapture &operator=(const TerminalCapture &) = delete;

    // Whether both descriptors could be opened.
    bool Ready() const { return input_ >= 0 && output_ >= 0; }
    // Everything written so far.
    std::string Written() const;

private:
    std::filesystem::path path_;
    int input_;
    int output_;
    platform::TerminalUiHost host_;
    platform::ScopedUiHost installed_;
};

}  // namespace testsupport
