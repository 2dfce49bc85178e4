// The path helper: cutting and joining, the shell's path calls with their
// Windows results, wildcards, and drives.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinPath.h"
#include "support/PathText.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;

using testsupport::Wide;

TEST(Path, CuttingAndJoining) {
    EXPECT_EQ(platform::JoinPath(L"/a", L"b"), L"/a/b");
    EXPECT_EQ(platform::JoinPath(L"/a//", L"/b"), L"/a/b");
    EXPECT_EQ(platform::JoinPath(L"/", L"b"), L"/b");
    EXPECT_EQ(platform::JoinPath(L"", L"b"), L"b");
    EXPECT_EQ(platform::JoinPath(L"/a", L""), L"/a");

    EXPECT_EQ(platform::ParentPath(L"/a/b.txt"), L"/a");
    EXPECT_EQ(platform::ParentPath(L"/a"), L"");  // the drive part, empty here
    EXPECT_EQ(platform::ParentPath(L"name"), L"");
    EXPECT_EQ(platform::ParentPath(L"/a/b/"), L"/a/b");

    EXPECT_EQ(platform::FileNamePart(L"/a/b.tar.gz"), L"b.tar.gz");
    EXPECT_EQ(platform::FileNamePart(L"/a/"), L"");
    EXPECT_EQ(platform::ExtensionPart(L"/a.d/B.TAR.GZ"), L".GZ");
    EXPECT_EQ(platform::ExtensionPart(L"/a.d/readme"), L"");
    EXPECT_EQ(platform::ExtensionPart(L".bashrc"), L".bashrc");

    EXPECT_EQ(platform::WithTrailingSeparator(L"/a"), L"/a/");
    EXPECT_EQ(platform::WithTrailingSeparator(L""), L"");
    EXPECT_EQ(platform::WithoutTrailingSeparator(L"/a//"), L"/a");
    EXPECT_EQ(platform::WithoutTrailingSeparator(L"/"), L"/");

    EXPECT_EQ(platform::NormalizePath(L"/a/./b/../c//d/"), L"/a/c/d/");
    EXPECT_EQ(platform::NormalizePath(L"/../a/.."), L"/");
    EXPECT_EQ(platform::NormalizePath(L"../a/../../b"), L"../../b");

    EXPECT_EQ(platform::StripLongPathPrefix(L"\\\\?\\/tmp/x"), L"/tmp/x");
    EXPECT_EQ(platform::StripLongPathPrefix(L"/tmp/x"), L"/tmp/x");
    EXPECT_EQ(platform::DrivePart(L"/tmp/x"), L"");
}

TEST(Path, PathsKeepTheirCaseOnPosix) {
    EXPECT_FALSE(platform::PathsAreCaseInsensitive());
    EXPECT_EQ(platform::CaseForStorage(L"/Home/\u00c4RGER.Zip"), L"/Home/\u00c4RGER.Zip");
    // A backslash is part of a name here, not a separator.
    EXPECT_EQ(platform::FileNamePart(L"/x/a\\b"), L"a\\b");
}

TEST(Path, FindExtensionAndFileNameFollowShellRules) {
    const wchar_t *path = L"/dir.d/archive.tar.gz";
    EXPECT_STREQ(PathFindExtensionW(path), L".gz");
    EXPECT_STREQ(PathFindExtensionW(L"/dir.d/readme"), L"");
    const wchar_t *bare = L"/dir.d/readme";
    EXPECT_EQ(PathFindExtensionW(bare), bare + 13);   // the terminator
    EXPECT_STREQ(PathFindExtensionW(L"a.b c"), L"");  // a blank ends the extension
    EXPECT_EQ(PathFindExtensionW(nullptr), nullptr);

    EXPECT_STREQ(PathFindFileNameW(L"/a/b.zip"), L"b.zip");
    EXPECT_STREQ(PathFindFileNameW(L"/a/b/"), L"b/");
    EXPECT_STREQ(PathFindFileNameW(L"/"), L"/");
    EXPECT_STREQ(PathFindFileNameW(L"name"), L"name");
    EXPECT_EQ(PathFindFileNameW(nullptr), nullptr);
}

TEST(Path, WildcardsFollowWindowsRules) {
    struct Case {
        const wchar_t *name;
        const wchar_t *pattern;
        bool matches;
    };
    const Case cases[] = {
        {L"README", L"*.*", true},
        {L"a.b.c", L"*.*", true},
        {L"REPORT.TXT", L"*.txt", true},
        {L"report.txt.bak", L"*.txt", false},
        {L"\u00c4rger.Zip", L"\u00e4*.ZIP", true},
        {L"ab", L"a?", true},
        {L"a", L"a?", false},
        {L"axxbyyc", L"a*b*c", true},
        {L"axxbyy", L"a*b*c", false},
        {L"", L"*", true},
        {L"", L"", true},
        {L"a", L"", false},
        {L"abc", L"***", true},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(platform::MatchesWildcard(c.name, c.pattern), c.matches)
            << platform::ToUtf8(c.name) << " ~ " << platform::ToUtf8(c.pattern);
    }
    // Long runs of stars do not blow up.
    EXPECT_FALSE(
        platform::MatchesWildcard(std::wstring(2000, L'a'), std::wstring(500, L'*') + L"b"));
}

TEST(Path, MatchSpecTakesASemicolonListOfSpecs) {
    EXPECT_TRUE(PathMatchSpecW(L"photo.jpg", L"*.zip; *.JPG"));
    EXPECT_TRUE(PathMatchSpecW(L"noext", L"*.txt;*.*"));
    EXPECT_FALSE(PathMatchSpecW(L"photo.png", L"*.zip;*.jpg"));
    EXPECT_FALSE(PathMatchSpecW(L"photo.png", L""));
    EXPECT_FALSE(PathMatchSpecW(L"photo.png", L";;"));
    EXPECT_FALSE(PathMatchSpecW(nullptr, L"*"));
    EXPECT_FALSE(PathMatchSpecW(L"a", nullptr));
}

class PathFileTest : public testsupport::HomeTest {};

TEST_F(PathFileTest, ShortAndLongNamesAreTheSameButTheItemMustExist) {
    fs::path file = home.Scratch() / "\u65e5\u672c.txt";
    testsupport::WriteBytes(file, "x");
    const std::wstring path = Wide(file);
    wchar_t buffer[platform::kPathBufferSize];
    EXPECT_EQ(GetShortPathNameW(path.c_str(), buffer, platform::kPathBufferSize), path.size());
    EXPECT_EQ(buffer, path);
    EXPECT_EQ(GetLongPathNameW((L"\\\\?\\" + path).c_str(), buffer, platform::kPathBufferSize),
              path.size());
    EXPECT_EQ(buffer, path);
    // Too small: the size needed with the terminator.
    EXPECT_EQ(GetShortPathNameW(path.c_str(), buffer, 4), path.size() + 1);
    EXPECT_EQ(GetShortPathNameW(path.c_str(), nullptr, 0), path.size() + 1);
    // The same buffer in and out.
    EXPECT_EQ(GetShortPathNameW(buffer, buffer, platform::kPathBufferSize), path.size());

    SetLastError(0);
    EXPECT_EQ(GetShortPathNameW(Wide(home.Scratch() / "gone").c_str(), buffer, 100), 0u);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetLongPathNameW((path + L"/below").c_str(), buffer, 100), 0u);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(GetLongPathNameW(L"", buffer, 100), 0u);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetLongPathNameW(nullptr, buffer, 100), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(PathFileTest, FullPathNameIsLexicalAndPointsAtTheFilePart) {
    wchar_t buffer[platform::kPathBufferSize];
    wchar_t *filePart = nullptr;
    EXPECT_EQ(GetFullPathNameW(L"/a/./b/../c.txt", platform::kPathBufferSize, buffer, &filePart),
              8u);
    EXPECT_STREQ(buffer, L"/a/c.txt");
    EXPECT_EQ(filePart, buffer + 3);
    EXPECT_EQ(GetFullPathNameW(L"/a/b/", platform::kPathBufferSize, buffer, &filePart), 5u);
    EXPECT_EQ(filePart, nullptr);
    EXPECT_EQ(GetFullPathNameW(L"/a/b", 2, buffer, nullptr), 5u);

    fs::path previous = fs::current_path();
    fs::current_path(home.Scratch());
    EXPECT_GT(GetFullPathNameW(L"x/../y", platform::kPathBufferSize, buffer, nullptr), 0u);
    EXPECT_EQ(buffer, Wide(home.Scratch() / "y"));
    fs::current_path(previous);

    EXPECT_EQ(GetFullPathNameW(L"", platform::kPathBufferSize, buffer, nullptr), 0u);
    EXPECT_EQ(GetFullPathNameW(nullptr, platform::kPathBufferSize, buffer, nullptr), 0u);
}

TEST_F(PathFileTest, DrivesAreMountPointsWithRootFirst) {
    std::vector<std::wstring> drives = platform::FixedDrives();
    ASSERT_FALSE(drives.empty());
    EXPECT_EQ(drives.front(), L"/");
    for (const std::wstring &drive : drives) {
        EXPECT_TRUE(platform::IsAbsolutePath(drive));
    }
}

TEST_F(PathFileTest, DiskFreeSpaceComesFromTheFileSystem) {
    ULARGE_INTEGER available{}, total{}, free{};
    ASSERT_TRUE(GetDiskFreeSpaceExW(Wide(home.Path()).c_str(), &available, &total, &free));
    EXPECT_GT(total.QuadPart, 0u);
    EXPECT_LE(free.QuadPart, total.QuadPart);
    EXPECT_LE(available.QuadPart, free.QuadPart);
    EXPECT_TRUE(GetDiskFreeSpaceExW(nullptr, nullptr, nullptr, nullptr));

    SetLastError(0);
    EXPECT_FALSE(
        GetDiskFreeSpaceExW(Wide(home.Path() / "gone").c_str(), &available, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

}  // namespace
