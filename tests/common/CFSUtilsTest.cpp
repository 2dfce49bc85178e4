// File-system helpers: tests, path text, folders, unique names, shell
// operations and shortcuts, all below a temporary home.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "CAppUtils.h"
#include "CFSUtils.h"
#include "platform/Shortcuts.h"
#include "platform/Win32.h"
#include "support/PathText.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

// Paths as the system sees them: UTF-8, whatever the process locale.
const auto P = testsupport::PathOf;

class FSUtilsTest : public testsupport::HomeTest {
protected:
    fs::path scratch = home.Scratch();

    std::wstring In(const std::string &relative) const {
        return platform::FromUtf8((scratch / relative).string());
    }
    std::wstring MakeFile(const std::string &relative, const std::string &content = "data") const {
        fs::path path = scratch / relative;
        fs::create_directories(path.parent_path());
        testsupport::WriteBytes(path, content);
        return platform::FromUtf8(path.string());
    }
    std::wstring MakeFolder(const std::string &relative) const {
        fs::create_directories(scratch / relative);
        return platform::FromUtf8((scratch / relative).string());
    }
    static fs::path TrashFiles() { return fs::path(platform::TrashFolder()) / "files"; }
};

}  // namespace

TEST_F(FSUtilsTest, ExistenceTestsAndIsFolderOfMissingPathIsTrueAsItsAttributesSay) {
    std::wstring file = MakeFile("a.txt");
    std::wstring folder = MakeFolder("sub");
    std::wstring hidden = MakeFile(".hidden");

    EXPECT_TRUE(CFSUtils::FileExists(folder.c_str())) << "a folder counts as existing";
    EXPECT_FALSE(CFSUtils::FileExists(In("missing").c_str()));
    EXPECT_FALSE(CFSUtils::FolderExists(file.c_str()));
    EXPECT_FALSE(CFSUtils::FolderExists(In("missing").c_str()));
    EXPECT_TRUE(CFSUtils::IsSystemOrHidden(hidden.c_str()));
    EXPECT_FALSE(CFSUtils::IsSystemOrHidden(In("missing").c_str()));
    EXPECT_FALSE(CFSUtils::IsFolder(file.c_str()));
    EXPECT_TRUE(CFSUtils::IsFolder(In("missing").c_str()));
}

TEST(FSUtilsText, CheckFileExtensionComparesWholeSuffixIgnoringCase) {
    EXPECT_TRUE(CFSUtils::CheckFileExtension(L"/x/b.Tar.Gz", L".tar.gz"));
    EXPECT_TRUE(CFSUtils::CheckFileExtension(L"backup_vnk", L"_vnk")) << "a bare suffix";
    EXPECT_FALSE(CFSUtils::CheckFileExtension(L"a.zipx", L".zip"));
    EXPECT_FALSE(CFSUtils::CheckFileExtension(L"ip", L".zip")) << "shorter than the extension";
    EXPECT_TRUE(CFSUtils::CheckFileExtension(L"\u00c4RGER.\u00c4", L".\u00e4"));
}

TEST(FSUtilsText, RemoveFileExtensionCutsAtLastDotEvenInsideADottedFolderNameWhenFileHasNoDot) {
    EXPECT_STREQ(CFSUtils::RemoveFileExtension(L"/a/b.tar.gz"), L"/a/b.tar");
    EXPECT_STREQ(CFSUtils::RemoveFileExtension(L"/a.d/"), L"/a.d/") << "no file name: whole";
    EXPECT_STREQ(CFSUtils::RemoveFileExtension(nullptr), L"");
    EXPECT_STREQ(CFSUtils::RemoveFileExtension(L"/data/v1.2/README"), L"/data/v1");
}

TEST(FSUtilsText, ExtensionIsNeverTakenFromAFolderName) {
    EXPECT_STREQ(CFSUtils::Extension(L"/a.b/c"), L"");
}

TEST_F(FSUtilsTest, ForceDirectoriesMakesParentsAndFollowsItsRules) {
    std::wstring deep = In("one/two/three");
    EXPECT_TRUE(CFSUtils::ForceDirectories(deep.c_str()));
    EXPECT_TRUE(fs::is_directory(P(deep)));
    EXPECT_TRUE(CFSUtils::ForceDirectories(deep.c_str())) << "an existing folder";

    std::wstring trailing = In("four/five/");
    EXPECT_TRUE(CFSUtils::ForceDirectories(trailing.c_str()));
    EXPECT_TRUE(fs::is_directory(P(In("four/five"))));

    EXPECT_TRUE(CFSUtils::ForceDirectories(L""));
    EXPECT_TRUE(CFSUtils::ForceDirectories(nullptr));
    fs::path cwd = fs::current_path();
    fs::current_path(scratch);
    EXPECT_TRUE(CFSUtils::ForceDirectories(L"abc")) << "fewer than 4 characters";
    EXPECT_FALSE(fs::exists(scratch / "abc"));
    fs::current_path(cwd);

    std::wstring blocked = MakeFile("file") + L"/sub";
    EXPECT_FALSE(CFSUtils::ForceDirectories(blocked.c_str()));
}

TEST_F(FSUtilsTest, CreateUniqueFileNameMakesFolderAndNumbersTakenNames) {
    std::wstring folder = In("new/folder");
    std::wstring first = CFSUtils::CreateUniqueFileName((folder + L"/").c_str(), L"a.vidx");
    EXPECT_TRUE(fs::is_directory(P(folder)));
    EXPECT_EQ(first.find(L"//"), std::wstring::npos);
    std::wregex form(std::regex_replace(folder, std::wregex(LR"([.^$|()\[\]{}*+?\\])"), L"\\$&") +
                     LR"(/-?\d+_a\.vidx)");
    EXPECT_TRUE(std::regex_match(first, form)) << platform::ToUtf8(first);
    EXPECT_FALSE(fs::exists(P(first))) << "only the name is made";

    testsupport::WriteBytes(P(first), "taken");
    std::wstring second = CFSUtils::CreateUniqueFileName(folder.c_str(), L"a.vidx");
    EXPECT_NE(second, first);
    EXPECT_FALSE(fs::exists(P(second)));
}

TEST_F(FSUtilsTest, CreateUniqueFolderNumbersFromOne) {
    std::wstring parent = MakeFolder("out");
    MakeFolder("out/a.b");
    std::wstring first = CFSUtils::CreateUniqueFolder(parent.c_str(), L"a.b.vnk");
    EXPECT_EQ(first, parent + L"/a.b_1");
    EXPECT_TRUE(fs::is_directory(P(first)));
    std::wstring second = CFSUtils::CreateUniqueFolder(parent.c_str(), L"a.b.vnk");
    EXPECT_EQ(second, parent + L"/a.b_2");

    std::wstring fresh = CFSUtils::CreateUniqueFolder(parent.c_str(), L"fresh.zip");
    EXPECT_EQ(fresh, parent + L"/fresh");
    EXPECT_TRUE(fs::is_directory(P(fresh)));

    EXPECT_STREQ(CFSUtils::CreateUniqueFolder(parent.c_str(), L""), L"");

    MakeFile("out/x_5");
    EXPECT_EQ(std::wstring(CFSUtils::CreateUniqueFolder((parent + L"/x").c_str(), 5)),
              parent + L"/x_6")
        << "a file of the name counts as taken";
}

// The shell operation itself is the platform's; here what the helpers add:
// the existence checks, the trash or not, and the folder a move makes.
TEST_F(FSUtilsTest, DeleteCopyAndMoveCheckTheirItemAndChooseTheTrash) {
    EXPECT_FALSE(CFSUtils::DeleteFileW(In("missing").c_str(), false));
    std::wstring toTrash = MakeFile("old.vnk", "old");
    EXPECT_TRUE(CFSUtils::DeleteFileW(toTrash.c_str(), false));
    EXPECT_EQ(testsupport::ReadBytes(TrashFiles() / "old.vnk"), "old");
    std::wstring gone = MakeFile("gone.vnk");
    EXPECT_TRUE(CFSUtils::DeleteFileW(gone.c_str(), true));
    EXPECT_FALSE(fs::exists(P(gone)));
    EXPECT_FALSE(fs::exists(TrashFiles() / "gone.vnk"));

    EXPECT_FALSE(CFSUtils::DeleteFolder(MakeFile("plain").c_str(), true));
    MakeFile("tree/inner/f");
    EXPECT_TRUE(CFSUtils::DeleteFolder(In("tree").c_str(), false));
    EXPECT_TRUE(fs::exists(TrashFiles() / "tree" / "inner" / "f"));

    std::wstring source = MakeFile("src/\u00e9t\u00e9.txt", "summer");
    std::wstring moved = In("deep/new/place.txt");
    EXPECT_TRUE(CFSUtils::MoveShellItem(source.c_str(), moved.c_str()));
    EXPECT_EQ(testsupport::ReadBytes(P(moved)), "summer");
    EXPECT_FALSE(fs::exists(P(source)));
    EXPECT_TRUE(CFSUtils::CopyShellItem(moved.c_str(), source.c_str(), true));
    EXPECT_EQ(testsupport::ReadBytes(P(source)), "summer");
}

TEST_F(FSUtilsTest, SizesDatesAndCounts) {
    std::wstring file = MakeFile("tree/a.bin", std::string(5000, 'z'));
    MakeFile("tree/b.bin");
    MakeFile("tree/sub/c.bin");
    MakeFile("tree/sub/deeper/d.bin");
    EXPECT_EQ(CFSUtils::GetFileSize(file.c_str()), 5000u);
    EXPECT_EQ(CFSUtils::GetFileCount(In("tree").c_str(), false), 2u);
    EXPECT_EQ(CFSUtils::GetFileCount(In("tree").c_str(), true), 4u);

    FILETIME missing = CFSUtils::GetFileDate(In("missing").c_str());
    EXPECT_EQ(missing.dwLowDateTime | missing.dwHighDateTime, 0u);

    fs::last_write_time(P(file), fs::last_write_time(P(file)) - std::chrono::hours(48));
    FILETIME before = CFSUtils::GetFileDate(file.c_str());
    EXPECT_TRUE(CFSUtils::TouchFile(file.c_str()));
    FILETIME after = CFSUtils::GetFileDate(file.c_str());
    EXPECT_GT(platform::TicksFromFileTime(after) - platform::TicksFromFileTime(before),
              47LL * 3600 * platform::kTicksPerSecond);
}

TEST_F(FSUtilsTest, ShortcutsAreDesktopFiles) {
    std::wstring target = MakeFile("report.pdf");
    ASSERT_TRUE(CFSUtils::CreateDesktopShortcut(target.c_str(), L"Report", L"The report", 0));
    wchar_t desktop[platform::kPathBufferSize];
    ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, desktop, CSIDL_DESKTOPDIRECTORY, FALSE));
    std::wstring link = std::wstring(desktop) + L"/Report.desktop";
    EXPECT_EQ(platform::ResolveShortcut(link), target);

    ASSERT_TRUE(CFSUtils::CreateStartupShortcut(MakeFile("Scheduler.exe").c_str()));
    wchar_t startup[platform::kPathBufferSize];
    ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, startup, CSIDL_STARTUP, FALSE));
    EXPECT_TRUE(fs::exists(P(std::wstring(startup) + L"/Scheduler.desktop")));

    EXPECT_FALSE(CFSUtils::CreateDesktopShortcut(target.c_str(), L"", nullptr, 0));
}
