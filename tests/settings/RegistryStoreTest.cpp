// The registry store shared by processes: two writers at once lose nothing.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "CLogging.h"
#include "platform/Registry.h"
#include "support/TempHome.h"

namespace {

// A key handle closed at the end of its scope.
class Key {
public:
    Key() = default;
    ~Key() {
        if (key_) RegCloseKey(key_);
    }
    Key(const Key &) = delete;
    Key &operator=(const Key &) = delete;
    HKEY get() const { return key_; }
    HKEY *out() { return &key_; }

private:
    HKEY key_ = nullptr;
};

LONG Create(HKEY parent, const wchar_t *path, Key &key) {
    DWORD disposition = 0;
    return RegCreateKeyExW(parent, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                           nullptr, key.out(), &disposition);
}

LONG SetDword(HKEY key, const wchar_t *name, DWORD value) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&value),
                          sizeof value);
}

// Counts what RegEnum* lists up to ERROR_NO_MORE_ITEMS.
template <typename Enumerate>
std::size_t Count(Enumerate enumerate) {
    DWORD index = 0;
    while (enumerate(index) == ERROR_SUCCESS) ++index;
    EXPECT_EQ(enumerate(index), static_cast<LONG>(ERROR_NO_MORE_ITEMS));
    return index;
}

// Runs `work` in a child process and gives its pid; the child's exit code
// is what `work` returns. Connections of this process stay out of the child.
template <typename Work>
pid_t Spawn(Work work) {
    platform::CloseRegistryConnections();
    pid_t child = fork();
    if (child == 0) _exit(work());
    return child;
}

int ExitCodeOf(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class RegistryStore : public testsupport::HomeTest {
protected:
    void SetUp() override { CLogging::ResetLogFolder(); }
    void TearDown() override {
        platform::CloseRegistryConnections();
        CLogging::ResetLogFolder();
    }
};

}  // namespace

TEST_F(RegistryStore, TwoProcessesWritingAtOnceLoseNothing) {
    {
        Key key;
        ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\Shared", key), ERROR_SUCCESS);
    }
    constexpr int kWrites = 150;
    auto writer = [](int id) {
        return [id]() {
            for (int i = 0; i < kWrites; ++i) {
                Key key;
                if (RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Shared", 0, KEY_SET_VALUE,
                                  key.out()) != ERROR_SUCCESS) {
                    return 10;
                }
                const std::wstring name = L"p" + std::to_wstring(id) + L"_" + std::to_wstring(i);
                if (SetDword(key.get(), name.c_str(), static_cast<DWORD>(i)) != ERROR_SUCCESS) {
                    return 11;
                }
                if (SetDword(key.get(), L"last", static_cast<DWORD>(i)) != ERROR_SUCCESS) return 12;
                Key child;
                if (Create(HKEY_CURRENT_USER, (L"Software\\Shared\\" + name).c_str(), child) !=
                    ERROR_SUCCESS) {
                    return 13;
                }
            }
            return 0;
        };
    };
    pid_t first = Spawn(writer(1));
    pid_t second = Spawn(writer(2));
    EXPECT_EQ(ExitCodeOf(first), 0);
    EXPECT_EQ(ExitCodeOf(second), 0);

    Key key;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Shared", 0, KEY_READ, key.out()),
              ERROR_SUCCESS);
    wchar_t name[256];
    EXPECT_EQ(Count([&](DWORD index) {
                  DWORD chars = 256;
                  return RegEnumValueW(key.get(), index, name, &chars, nullptr, nullptr, nullptr,
                                       nullptr);
              }),
              2u * kWrites + 1);
    EXPECT_EQ(Count([&](DWORD index) { return RegEnumKeyW(key.get(), index, name, 256); }),
              2u * kWrites);
}
