// Shared by the option record tests: a fresh home with a job file in it,
// and the value names of a registry key below the product root.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "settings/OptionStore.h"
#include "support/RegistryHome.h"

namespace testsupport {

class JobFileTest : public RegistryHomeTest {
protected:
    std::wstring JobFile() { return (home.Scratch() / "job.ini").wstring(); }
    // A file or folder that exists below the scratch folder: a job that is
    // read drops the paths that have gone.
    std::wstring ExistingFile(const std::string &name) {
        WriteBytes(home.Scratch() / name, "data");
        return (home.Scratch() / name).wstring();
    }
    std::wstring ExistingFolder(const std::string &name) {
        std::filesystem::create_directories(home.Scratch() / name);
        return (home.Scratch() / name).wstring();
    }
    // A job file written by hand, as UTF-8 with its mark.
    void WriteJobFile(const std::string &text) {
        WriteBytes(home.Scratch() / "job.ini", "\xEF\xBB\xBF" + text);
    }
};

inline std::vector<std::wstring> ValueNames(const wchar_t *subKey) {
    optionstore::OptionKey key(subKey);
    std::vector<std::wstring> names;
    wchar_t name[256] = {};
    for (int found = key.Registry().FindFirst(name, 256); found;
         found = key.Registry().FindNext(name, 256))
        names.push_back(name);
    return names;
}

}  // namespace testsupport
