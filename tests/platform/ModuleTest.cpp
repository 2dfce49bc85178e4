// Module paths, library loading and resource strings.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinModule.h"

namespace {

namespace fs = std::filesystem;

const fs::path kBinFolder = fs::canonical(VARNICK_BIN_DIR);

std::wstring ModulePath(HMODULE module) {
    wchar_t buffer[1024];
    DWORD length = GetModuleFileNameW(module, buffer, 1024);
    return std::wstring(buffer, length);
}

// A loaded library that is freed at the end of the test.
class Library {
public:
    explicit Library(const wchar_t *name) : module_(LoadLibraryW(name)) {}
    ~Library() {
        if (module_) FreeLibrary(module_);
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    HMODULE get() const { return module_; }

private:
    HMODULE module_;
};

}  // namespace

TEST(Module, LibraryAndProgramPathsWithTheBufferRule) {
    fs::path library = platform::ToUtf8(ModulePath(platform::LibraryModule()));
    EXPECT_EQ(library.filename(), "libvarnick.so");
    EXPECT_EQ(fs::canonical(library).parent_path(), kBinFolder);
    EXPECT_EQ(fs::canonical(platform::ToUtf8(platform::ProgramFolder())), kBinFolder);

    // The null module is the running program.
    fs::path program = platform::ToUtf8(ModulePath(nullptr));
    EXPECT_EQ(program.filename(), "platform_tests");
    EXPECT_EQ(GetModuleHandleW(nullptr) != nullptr, true);
    EXPECT_EQ(ModulePath(GetModuleHandleW(nullptr)), ModulePath(nullptr));

    // A name cut to the buffer reports an insufficient buffer.
    const std::wstring full = ModulePath(platform::LibraryModule());
    wchar_t small[6] = L"?????";
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameW(platform::LibraryModule(), small, 6), 6u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(std::wstring(small), full.substr(0, 5));
}

TEST(Module, ProductLibraryNamesLoadFromTheProgramFolder) {
    Library resources(L"Resources.dll");
    ASSERT_NE(resources.get(), nullptr);
    fs::path path = platform::ToUtf8(ModulePath(resources.get()));
    EXPECT_EQ(path.filename(), "libvarnick-resources.so");
    EXPECT_EQ(fs::canonical(path).parent_path(), kBinFolder);
    EXPECT_EQ(GetModuleHandleW(L"resources.DLL"), resources.get());

    // A folder given with the name is used as it stands.
    std::wstring inFolder = platform::FromUtf8((kBinFolder / "NonLocalizedResources.dll").string());
    Library nonLocalized(inFolder.c_str());
    EXPECT_NE(nonLocalized.get(), nullptr);

    Library engine(L"VarnickEngine.dll");
    ASSERT_NE(engine.get(), nullptr);
    EXPECT_NE(GetProcAddress(engine.get(), "VarnickEngineVersionText"), nullptr);
}

TEST(Module, MissingLibraryAndSymbolFailWithWindowsCodes) {
    SetLastError(0);
    EXPECT_EQ(LoadLibraryW(L"NoSuchLibrary.dll"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(LoadLibraryW(L""), nullptr);

    Library resources(L"Resources.dll");
    ASSERT_NE(resources.get(), nullptr);
    EXPECT_NE(GetProcAddress(resources.get(), "VarnickStringTable"), nullptr);
    SetLastError(0);
    EXPECT_EQ(GetProcAddress(resources.get(), "NoSuchSymbol"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(resources.get(), reinterpret_cast<LPCSTR>(7)), nullptr);
}

TEST(Module, LoadStringCopiesCutsAndTerminates) {
    Library resources(L"Resources.dll");
    ASSERT_NE(resources.get(), nullptr);
    const wchar_t *expected = platform::FindResourceString(resources.get(), 1217);
    ASSERT_NE(expected, nullptr);
    const int fullLength = static_cast<int>(std::wcslen(expected));
    ASSERT_GT(fullLength, 4);

    wchar_t buffer[256];
    EXPECT_EQ(LoadStringW(resources.get(), 1217, buffer, 256), fullLength);
    EXPECT_STREQ(buffer, expected);

    wchar_t small[5] = L"xxxx";
    EXPECT_EQ(LoadStringW(resources.get(), 1217, small, 5), 4);
    EXPECT_EQ(std::wstring(small), std::wstring(expected, 4));

    // Exactly the text and its terminator fit.
    std::wstring exact(static_cast<std::size_t>(fullLength) + 1, L'x');
    EXPECT_EQ(LoadStringW(resources.get(), 1217, exact.data(), fullLength + 1), fullLength);
    EXPECT_STREQ(exact.c_str(), expected);
}

TEST(Module, LoadStringOfAMissingIdGivesNothing) {
    Library resources(L"Resources.dll");
    Library nonLocalized(L"NonLocalizedResources.dll");
    ASSERT_NE(resources.get(), nullptr);
    ASSERT_NE(nonLocalized.get(), nullptr);
    wchar_t buffer[64] = L"left over";
    EXPECT_EQ(LoadStringW(resources.get(), 65000, buffer, 64), 0);
    EXPECT_STREQ(buffer, L"");
    // Each library has only its own texts.
    ASSERT_GT(LoadStringW(nonLocalized.get(), 230, buffer, 64), 0);
    EXPECT_EQ(LoadStringW(resources.get(), 230, buffer, 64), 0);
    // No buffer to copy into: nothing, as the read-only mode is not offered.
    EXPECT_EQ(LoadStringW(resources.get(), 1217, buffer, 0), 0);
    // A module without a table has no texts.
    EXPECT_EQ(LoadStringW(nullptr, 1217, buffer, 64), 0);
}
