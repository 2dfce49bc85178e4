#include "RecordingTools.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "../platform/ScopedEnv.h"

namespace fs = std::filesystem;

namespace testsupport {

class ScopedPath {
public:
    explicit ScopedPath(const std::string &value) : env_("PATH", value.c_str()) {}

private:
    ScopedEnv env_;
};

RecordingTools::RecordingTools(const fs::path &folder)
    : bin_(folder / "bin"), calls_(folder / "calls") {
    fs::create_directories(bin_);
    fs::create_directories(calls_);
}

RecordingTools::~RecordingTools() = default;

fs::path RecordingTools::Add(const std::string &name) {
    fs::path tool = bin_ / name;
    std::string record = (calls_ / "call.$$").string();
    std::ofstream(tool) << "#!/bin/sh\n"
                        << "{ echo \"${0##*/}\"; for a in \"$@\"; do printf '%s\\n' \"$a\"; done; }"
                        << " > \"" << record << ".tmp\" && mv \"" << record << ".tmp\" \"" << record
                        << "\"\n";
    fs::permissions(tool, fs::perms::owner_all, fs::perm_options::replace);
    return tool;
}

void RecordingTools::PutFirstOnPath(bool keepSystemPath) {
    path_.reset();
    std::string value = bin_.string();
    const char *old = std::getenv("PATH");
    if (keepSystemPath && old) value += ":" + std::string(old);
    path_ = std::make_unique<ScopedPath>(value);
}

std::vector<RecordedCall> RecordingTools::Calls() const {
    std::vector<RecordedCall> calls;
    for (const fs::directory_entry &entry : fs::directory_iterator(calls_)) {
        if (entry.path().extension() == ".tmp") continue;
        std::ifstream file(entry.path());
        RecordedCall call;
        for (std::string line; std::getline(file, line);) call.push_back(line);
        calls.push_back(call);
    }
    std::sort(calls.begin(), calls.end());
    return calls;
}

std::vector<RecordedCall> RecordingTools::WaitForCalls(std::size_t count,
                                                       std::chrono::milliseconds limit) const {
    auto deadline = std::chrono::steady_clock::now() + limit;
    std::vector<RecordedCall> calls = Calls();
    while (calls.size() < count && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        calls = Calls();
    }
    return calls;
}

}  // namespace testsupport
