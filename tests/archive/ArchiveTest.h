// The fixture of the archive tests: a fresh home, the resource libraries
// loaded as a host loads them, and a headless host that records the boxes.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "CAppUtils.h"
#include "CLogging.h"
#include "platform/Win32.h"
#include "support/LoadedResources.h"
#include "support/TempHome.h"

namespace archivetest {

class ArchiveTest : public testsupport::HomeTest {
protected:
    void SetUp() override { ASSERT_TRUE(resources_.Loaded()); }

    static std::wstring Text(unsigned id) { return testsupport::LoadedResources::Text(id); }

    static std::wstring Wide(const std::filesystem::path &path) { return path.wstring(); }

    // The error file's text so far (UTF-16LE with its mark), as UTF-8.
    static std::string ErrorFileText() {
        return testsupport::Utf16FileText(CLogging::ErrorFilePath());
    }

    // Runs a shell command in `folder`; true when it exits with 0.
    static bool RunIn(const std::filesystem::path &folder, const std::string &command) {
        std::string line = "cd '" + folder.string() + "' && " + command + " >/dev/null 2>&1";
        return std::system(line.c_str()) == 0;
    }

    // What a shell command run in `folder` prints on stdout.
    static std::string Output(const std::filesystem::path &folder, const std::string &command) {
        std::string output;
        FILE *pipe = popen(("cd '" + folder.string() + "' && " + command).c_str(), "r");
        if (!pipe) return output;
        char buffer[256];
        while (std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
        pclose(pipe);
        return output;
    }

    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};

private:
    testsupport::LoadedResources resources_;
};

}  // namespace archivetest
