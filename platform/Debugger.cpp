#include "platform/Debugger.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

// The "TracerPid:" line of /proc/self/status; 0 when it cannot be read.
long TracerPid() {
    std::ifstream status("/proc/self/status");
    const std::string label = "TracerPid:";
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, label.size(), label) == 0)
            return std::atol(line.c_str() + label.size());
    return 0;
}

}  // namespace

BOOL IsDebuggerPresent() { return TracerPid() != 0 ? TRUE : FALSE; }

void DebugBreak() {
    if (IsDebuggerPresent())
        std::raise(SIGTRAP);
    else
        std::abort();
}
