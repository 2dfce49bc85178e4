// Stand-in programs for tests of code that starts outside programs without
// waiting for them (desktop tools, scanners). Each call of a stand-in is
// noted in a file of its own, written whole before it appears, so that
// calls made at the same time never mix.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace testsupport {

class ScopedPath;

// One recorded call: the program's file name, then its arguments.
using RecordedCall = std::vector<std::string>;

class RecordingTools {
public:
    // Tools go in `folder`/bin, records in `folder`/calls.
    explicit RecordingTools(const std::filesystem::path &folder);
    ~RecordingTools();
    RecordingTools(const RecordingTools &) = delete;
    RecordingTools &operator=(const RecordingTools &) = delete;

    // Writes an executable stand-in called `name`; returns its path.
    std::filesystem::path Add(const std::string &name);
    const std::filesystem::path &Bin() const { return bin_; }
    // Puts the tools folder in front of PATH (or makes it PATH alone) until
    // this object goes.
    void PutFirstOnPath(bool keepSystemPath = true);

    // Waits until `count` calls are recorded or the time is up, and returns
    // every call recorded by then, sorted (the order in which programs
    // started is not theirs to keep).
    std::vector<RecordedCall> WaitForCalls(
        std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds(10)) const;
    std::vector<RecordedCall> Calls() const;

private:
    std::filesystem::path bin_;
    std::filesystem::path calls_;
    std::unique_ptr<ScopedPath> path_;
};

}  // namespace testsupport
