// Special folders: the layout below VARNICK_HOME, the XDG rules, creation
// and the Windows failure values.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "ScopedEnv.h"
#include "platform/SpecialFolders.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinPath.h"
#include "support/PathText.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;

using testsupport::Wide;

using testsupport::ScopedEnv;

mode_t ModeOf(const fs::path &path) {
    struct stat info {};
    stat(path.c_str(), &info);
    return info.st_mode & 0777;
}

class SpecialFoldersTest : public testsupport::HomeTest {
protected:
    fs::path User() { return home.Path() / "user"; }
    fs::path Machine() { return home.Path() / "machine"; }
};

TEST_F(SpecialFoldersTest, EveryFolderLiesBelowTheVarnickHome) {
    // The variables of the real session must not leak into a test home.
    ScopedEnv data("XDG_DATA_HOME", "/elsewhere/data");
    ScopedEnv config("XDG_CONFIG_HOME", "/elsewhere/config");
    ScopedEnv desktop("XDG_DESKTOP_DIR", "/elsewhere/desktop");
    const std::pair<int, fs::path> expected[] = {
        {CSIDL_LOCAL_APPDATA, User() / ".local/share"},
        {CSIDL_APPDATA, User() / ".config"},
        {CSIDL_INTERNET_CACHE, User() / ".cache"},
        {CSIDL_STARTUP, User() / ".config/autostart"},
        {CSIDL_PERSONAL, User() / "Documents"},
        {CSIDL_DESKTOPDIRECTORY, User() / "Desktop"},
        {CSIDL_DESKTOP, User() / "Desktop"},
        {CSIDL_PROFILE, User()},
        {CSIDL_COMMON_APPDATA, Machine() / "var/lib"},
        {CSIDL_WINDOWS, Machine() / "usr"},
        {CSIDL_PROGRAM_FILES, Machine() / "opt"},
        {CSIDL_COMMON_STARTUP, Machine() / "etc/xdg/autostart"},
    };
    wchar_t buffer[platform::kPathBufferSize];
    for (const auto &[csidl, path] : expected) {
        EXPECT_EQ(platform::SpecialFolder(csidl, false), Wide(path)) << csidl;
        ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, buffer, csidl, FALSE)) << csidl;
        EXPECT_EQ(buffer, Wide(path));
        ASSERT_EQ(SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_DEFAULT, buffer), S_OK);
        EXPECT_EQ(buffer, Wide(path));
    }
    EXPECT_EQ(platform::UserHomeFolder(), Wide(User()));
    // Reported without being made.
    EXPECT_FALSE(fs::exists(User() / ".local"));
}

TEST_F(SpecialFoldersTest, CreateMakesPrivateUserFoldersAndSharedMachineFolders) {
    wchar_t buffer[platform::kPathBufferSize];
    ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, buffer, CSIDL_LOCAL_APPDATA, TRUE));
    EXPECT_TRUE(fs::is_directory(User() / ".local/share"));
    EXPECT_EQ(ModeOf(User() / ".local/share"), 0700u);

    ASSERT_EQ(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA | CSIDL_FLAG_CREATE, nullptr,
                               SHGFP_TYPE_CURRENT, buffer),
              S_OK);
    EXPECT_TRUE(fs::is_directory(Machine() / "var/lib"));

    EXPECT_EQ(platform::SpecialFolder(CSIDL_APPDATA | CSIDL_FLAG_CREATE, false),
              Wide(User() / ".config"));
    EXPECT_TRUE(fs::is_directory(User() / ".config"));

    // A file where the folder should be: the call fails and the buffer is empty.
    testsupport::WriteBytes(User() / ".cache", "x");
    EXPECT_FALSE(SHGetSpecialFolderPathW(nullptr, buffer, CSIDL_INTERNET_CACHE, TRUE));
    EXPECT_STREQ(buffer, L"");
    EXPECT_EQ(
        SHGetFolderPathW(nullptr, CSIDL_INTERNET_CACHE | CSIDL_FLAG_CREATE, nullptr, 0, buffer),
        E_FAIL);
    EXPECT_EQ(platform::SpecialFolder(CSIDL_INTERNET_CACHE, true), L"");
}

TEST_F(SpecialFoldersTest, UserDirsFileNamesDesktopAndDocuments) {
    fs::create_directories(User() / ".config");
    testsupport::WriteBytes(User() / ".config/user-dirs.dirs",
                            "# written by xdg-user-dirs-update\n"
                            "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
                            "XDG_DOCUMENTS_DIR=\"/srv/\xE6\x96\x87\xE6\x9B\xB8/\"\n"
                            "XDG_MUSIC_DIR=\"relative/ignored\"\n"
                            "XDG_PICTURES_DIR=\"$HOME\"\n");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_DESKTOPDIRECTORY, false),
              Wide(User() / "Schreibtisch"));
    EXPECT_EQ(platform::SpecialFolder(CSIDL_PERSONAL, false), L"/srv/\u6587\u66f8");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_MYMUSIC, false), Wide(User() / "Music"));
    EXPECT_EQ(platform::SpecialFolder(CSIDL_MYPICTURES, false), Wide(User()));
}

TEST_F(SpecialFoldersTest, UnknownFoldersAndBadBuffersFail) {
    wchar_t buffer[platform::kPathBufferSize] = L"x";
    EXPECT_FALSE(SHGetSpecialFolderPathW(nullptr, buffer, 0x7F, FALSE));
    EXPECT_STREQ(buffer, L"");
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(SHGetFolderPathW(nullptr, 0x7F, nullptr, 0, buffer), E_INVALIDARG);
    EXPECT_EQ(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, 0, nullptr), E_INVALIDARG);
    EXPECT_FALSE(SHGetSpecialFolderPathW(nullptr, nullptr, CSIDL_APPDATA, FALSE));
    EXPECT_EQ(platform::SpecialFolder(-1, false), L"");
}

TEST_F(SpecialFoldersTest, APathThatDoesNotFitTheBufferFails) {
    std::string longHome = (home.Path() / std::string(200, 'h')).string();
    while (longHome.size() < 1100) longHome += "/" + std::string(200, 'h');
    ScopedEnv varnickHome("VARNICK_HOME", (longHome + "/").c_str());
    wchar_t buffer[platform::kPathBufferSize];
    EXPECT_FALSE(SHGetSpecialFolderPathW(nullptr, buffer, CSIDL_LOCAL_APPDATA, FALSE));
    EXPECT_EQ(SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, buffer), E_FAIL);
    // The string form has no limit, and no doubled separator.
    EXPECT_EQ(platform::SpecialFolder(CSIDL_LOCAL_APPDATA, false),
              platform::FromUtf8(longHome + "/user/.local/share"));
}

TEST_F(SpecialFoldersTest, RuntimeFolderIsPrivate) {
    fs::create_directories(User() / "run");
    fs::permissions(User() / "run", fs::perms(0755));
    EXPECT_EQ(platform::UserRuntimeFolder(), Wide(User() / "run"));
    EXPECT_EQ(ModeOf(User() / "run"), 0700u);

    // Something in the way that is not a folder: no runtime folder at all.
    fs::remove(User() / "run");
    testsupport::WriteBytes(User() / "run", "");
    EXPECT_EQ(platform::UserRuntimeFolder(), L"");

    // A link planted where the folder should be is refused, even to our own folder.
    fs::remove(User() / "run");
    fs::create_directories(home.Path() / "elsewhere");
    fs::create_directory_symlink(home.Path() / "elsewhere", User() / "run");
    SetLastError(0);
    EXPECT_EQ(platform::UserRuntimeFolder(), L"");
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(platform::MakePrivateFolder(Wide(home.Path() / "new/deeper")));
    EXPECT_EQ(ModeOf(home.Path() / "new/deeper"), 0700u);
}

TEST_F(SpecialFoldersTest, HomeWithNamesOutsideLatin1) {
    fs::path unusual = home.Path() / "\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80";
    ScopedEnv varnickHome("VARNICK_HOME", unusual.c_str());
    std::wstring folder = platform::SpecialFolder(CSIDL_LOCAL_APPDATA, true);
    EXPECT_EQ(folder, Wide(unusual / "user/.local/share"));
    EXPECT_TRUE(fs::is_directory(unusual / "user/.local/share"));
}

// Without VARNICK_HOME only paths are worked out here; nothing is made.
TEST(SpecialFoldersXdg, VariablesAndHomeGiveThePerUserFolders) {
    ScopedEnv varnickHome("VARNICK_HOME", nullptr);
    ScopedEnv homeVariable("HOME", "/home/tester/");
    ScopedEnv data("XDG_DATA_HOME", "/xdg/data");
    ScopedEnv config("XDG_CONFIG_HOME", "relative/is/ignored");
    ScopedEnv cache("XDG_CACHE_HOME", nullptr);
    ScopedEnv desktop("XDG_DESKTOP_DIR", "/xdg/desk");
    ScopedEnv documents("XDG_DOCUMENTS_DIR", nullptr);
    EXPECT_EQ(platform::UserHomeFolder(), L"/home/tester");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_LOCAL_APPDATA, false), L"/xdg/data");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_APPDATA, false), L"/home/tester/.config");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_STARTUP, false), L"/home/tester/.config/autostart");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_INTERNET_CACHE, false), L"/home/tester/.cache");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_DESKTOPDIRECTORY, false), L"/xdg/desk");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_PERSONAL, false), L"/home/tester/Documents");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_COMMON_APPDATA, false), L"/var/lib");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_WINDOWS, false), L"/usr");
    EXPECT_EQ(platform::SpecialFolder(CSIDL_PROGRAM_FILES, false), L"/opt");
}

}  // namespace
