// The registry store shared by processes: two writers at once lose nothing.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "CRegistry.h"
#include "OptionsTestSupport.h"

namespace {

using RegistryStore = testsupport::RegistryHomeTest;

// Each writer makes values and keys of its own and rewrites a value they share;
// what was lost shows in the counts.
int WriteMany(int writer, int count) {
    for (int i = 0; i < count; ++i) {
        const std::wstring name = L"p" + std::to_wstring(writer) + L"_" + std::to_wstring(i);
        optionstore::OptionKey shared(L"\\Shared", true);
        shared.Write(name.c_str(), static_cast<DWORD>(i));
        shared.Write(L"last", name);
        const std::wstring path = L"Software\\Orvane Labs\\Varnick\\Shared\\" + name;
        CRegistry child;
        child.SetAppKey(path.c_str());
        child.CreateAppKey(path.c_str());
    }
    return 0;
}

}  // namespace

TEST_F(RegistryStore, TwoProcessesWritingAtOnceLoseNothing) {
    constexpr int kWrites = 150;
    optionstore::OptionKey(L"\\Shared", true);
    pid_t children[2];
    for (int writer = 0; writer < 2; ++writer) {
        // Connections of this process stay out of the child.
        platform::CloseRegistryConnections();
        children[writer] = fork();
        if (children[writer] == 0) _exit(WriteMany(writer, kWrites));
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(testsupport::ValueNames(L"\\Shared").size(), 2u * kWrites + 1);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Orvane Labs\\Varnick\\Shared", 0,
                            KEY_READ, &key),
              ERROR_SUCCESS);
    wchar_t name[256];
    DWORD keys = 0;
    while (RegEnumKeyW(key, keys, name, 256) == ERROR_SUCCESS) ++keys;
    RegCloseKey(key);
    EXPECT_EQ(keys, 2u * kWrites);
}
