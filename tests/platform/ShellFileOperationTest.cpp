// The shell file operation: copy, move, rename and delete of files and
// trees, and deletion to the Trash.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <regex>
#include <string>

#include "platform/ShellFileOperation.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFile.h"
#include "support/PathText.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;
using testsupport::ReadBytes;
using testsupport::WriteBytes;

namespace {

const auto W = testsupport::Wide;
const auto P = testsupport::PathOf;

// Names each terminated, the list ended by an empty name.
std::wstring List(std::initializer_list<fs::path> paths) {
    std::wstring list;
    for (const fs::path &path : paths) {
        list += W(path);
        list.push_back(L'\0');
    }
    list.push_back(L'\0');
    return list;
}

int Operate(UINT function, const std::wstring &from, const std::wstring &to, FILEOP_FLAGS flags) {
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = function;
    operation.pFrom = from.c_str();
    operation.pTo = to.empty() ? nullptr : to.c_str();
    operation.fFlags = flags;
    operation.fAnyOperationsAborted = TRUE;
    int result = SHFileOperationW(&operation);
    EXPECT_FALSE(operation.fAnyOperationsAborted);
    return result;
}

constexpr FILEOP_FLAGS kQuiet = FOF_SILENT | FOF_NOCONFIRMATION;

bool OnDifferentFileSystems(const fs::path &a, const fs::path &b) {
    struct stat x, y;
    return stat(a.c_str(), &x) == 0 && stat(b.c_str(), &y) == 0 && x.st_dev != y.st_dev;
}

// What a .trashinfo file must hold for `path`, as a pattern.
std::regex TrashInfoPattern(const std::string &encodedPath) {
    return std::regex(
        "\\[Trash Info\\]\nPath=" +
        std::regex_replace(encodedPath, std::regex("[.^$|()\\[\\]{}*+?\\\\]"), "\\$&") +
        "\nDeletionDate=[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\n");
}

using ShellFileOperationTest = testsupport::ScratchTest;

}  // namespace

TEST_F(ShellFileOperationTest, CopyIntoAnExistingFolderPutsTheItemInside) {
    WriteBytes(dir / "file.txt", "file");
    fs::create_directories(dir / "tree/inner");
    WriteBytes(dir / "tree/inner/leaf", "leaf");
    fs::create_directory(dir / "dest");

    EXPECT_EQ(Operate(FO_COPY, List({dir / "file.txt"}), List({dir / "dest"}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "dest/file.txt"), "file");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "tree"}), List({dir / "dest"}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "dest/tree/inner/leaf"), "leaf");

    // A destination that does not exist is the copy's new name; missing
    // folders on its way are made.
    EXPECT_EQ(Operate(FO_COPY, List({dir / "file.txt"}), List({dir / "new/renamed.txt"}), kQuiet),
              0);
    EXPECT_EQ(ReadBytes(dir / "new/renamed.txt"), "file");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "tree"}), List({dir / "other"}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "other/inner/leaf"), "leaf");
    EXPECT_TRUE(fs::exists(dir / "tree/inner/leaf"));

    // Copying again replaces files and merges folders.
    WriteBytes(dir / "tree/inner/leaf", "changed");
    WriteBytes(dir / "dest/tree/inner/extra", "extra");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "tree"}), List({dir / "dest"}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "dest/tree/inner/leaf"), "changed");
    EXPECT_EQ(ReadBytes(dir / "dest/tree/inner/extra"), "extra");
}

TEST_F(ShellFileOperationTest, SeveralSourcesAndWildcardsGoIntoTheDestinationFolder) {
    WriteBytes(dir / "a.txt", "a");
    WriteBytes(dir / "b.TXT", "b");
    WriteBytes(dir / "c.dat", "c");
    fs::create_directory(dir / "sub.txt");

    EXPECT_EQ(Operate(FO_COPY, List({dir / "a.txt", dir / "c.dat"}), List({dir / "two"}), kQuiet),
              0);
    EXPECT_EQ(ReadBytes(dir / "two/a.txt"), "a");
    EXPECT_EQ(ReadBytes(dir / "two/c.dat"), "c");

    EXPECT_EQ(Operate(FO_COPY, List({dir / "*.txt"}), List({dir / "texts"}), kQuiet), 0);
    EXPECT_TRUE(fs::exists(dir / "texts/a.txt"));
    EXPECT_TRUE(fs::exists(dir / "texts/b.TXT"));
    EXPECT_TRUE(fs::is_directory(dir / "texts/sub.txt"));
    EXPECT_FALSE(fs::exists(dir / "texts/c.dat"));

    EXPECT_EQ(
        Operate(FO_COPY, List({dir / "*.txt"}), List({dir / "files"}), kQuiet | FOF_FILESONLY), 0);
    EXPECT_TRUE(fs::exists(dir / "files/a.txt"));
    EXPECT_FALSE(fs::exists(dir / "files/sub.txt"));

    // A wildcard that matches nothing leaves nothing to do.
    EXPECT_EQ(Operate(FO_DELETE, List({dir / "*.none"}), L"", kQuiet), 0);
    EXPECT_EQ(Operate(FO_DELETE, List({dir / "missing/*.*"}), L"", kQuiet),
              static_cast<int>(ERROR_PATH_NOT_FOUND));
}

TEST_F(ShellFileOperationTest, MultipleDestinationsPairWithTheSources) {
    WriteBytes(dir / "one", "1");
    WriteBytes(dir / "two", "2");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "one", dir / "two"}),
                      List({dir / "x/1st", dir / "y/2nd"}), kQuiet | FOF_MULTIDESTFILES),
              0);
    EXPECT_EQ(ReadBytes(dir / "x/1st"), "1");
    EXPECT_EQ(ReadBytes(dir / "y/2nd"), "2");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "one", dir / "two"}), List({dir / "z"}),
                      kQuiet | FOF_MULTIDESTFILES),
              DE_MANYDEST);
}

TEST_F(ShellFileOperationTest, MoveMergesFoldersAndReplacesFiles) {
    fs::create_directories(dir / "src/docs/deep");
    WriteBytes(dir / "src/docs/same", "new");
    WriteBytes(dir / "src/docs/deep/only-new", "n");
    fs::create_directories(dir / "dest/docs");
    WriteBytes(dir / "dest/docs/same", "old");
    WriteBytes(dir / "dest/docs/only-old", "o");

    EXPECT_EQ(Operate(FO_MOVE, List({dir / "src/docs"}), List({dir / "dest"}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "dest/docs/same"), "new");
    EXPECT_EQ(ReadBytes(dir / "dest/docs/only-old"), "o");
    EXPECT_EQ(ReadBytes(dir / "dest/docs/deep/only-new"), "n");
    EXPECT_FALSE(fs::exists(dir / "src/docs"));

    // The form the file utilities use: a file to a full path in a folder
    // that does not exist yet.
    WriteBytes(dir / "archive.vnk", "vnk");
    EXPECT_EQ(Operate(FO_MOVE, List({dir / "archive.vnk"}), List({dir / "moved/archive.vnk"}), 20),
              0);
    EXPECT_EQ(ReadBytes(dir / "moved/archive.vnk"), "vnk");
    EXPECT_FALSE(fs::exists(dir / "archive.vnk"));
}

TEST_F(ShellFileOperationTest, MoveOfATreeAcrossFileSystems) {
    std::string pattern = "/dev/shm/varnick-shellop-XXXXXX";
    if (!fs::is_directory("/dev/shm") || !mkdtemp(pattern.data())) GTEST_SKIP();
    const fs::path foreign = pattern;
    if (!OnDifferentFileSystems(foreign, dir)) {
        fs::remove_all(foreign);
        GTEST_SKIP() << "no second file system";
    }
    fs::create_directories(foreign / "tree/inner");
    WriteBytes(foreign / "tree/inner/leaf", "leaf");
    EXPECT_EQ(Operate(FO_MOVE, List({foreign / "tree"}), List({dir}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "tree/inner/leaf"), "leaf");
    EXPECT_FALSE(fs::exists(foreign / "tree"));
    fs::remove_all(foreign);
}

TEST_F(ShellFileOperationTest, PermanentDeleteRemovesWholeTreesWithReadOnlyParts) {
    fs::create_directories(dir / "tree/locked");
    WriteBytes(dir / "tree/locked/file", "x");
    fs::permissions(dir / "tree/locked/file", fs::perms::owner_read);
    fs::permissions(dir / "tree/locked", fs::perms::owner_read | fs::perms::owner_exec);
    WriteBytes(dir / "single", "x");
    EXPECT_EQ(Operate(FO_DELETE, List({dir / "tree", dir / "single"}), L"", kQuiet), 0);
    EXPECT_FALSE(fs::exists(dir / "tree"));
    EXPECT_FALSE(fs::exists(dir / "single"));
    EXPECT_TRUE(fs::is_empty(dir));
    EXPECT_FALSE(fs::exists(P(platform::TrashFolder())));
    EXPECT_EQ(Operate(FO_DELETE, List({dir / "single"}), L"", kQuiet), ERROR_FILE_NOT_FOUND);
}

TEST_F(ShellFileOperationTest, DeleteWithUndoGoesToTheTrashWithItsInfo) {
    const fs::path trash = P(platform::TrashFolder());
    EXPECT_EQ(trash.string().rfind(home.Path().string(), 0), 0u) << trash;

    const std::string name = "my report \xC3\xBC.txt";
    WriteBytes(dir / name, "first");
    ASSERT_EQ(Operate(FO_DELETE, List({dir / name}), L"", kQuiet | FOF_ALLOWUNDO), 0);
    EXPECT_FALSE(fs::exists(dir / name));
    EXPECT_EQ(ReadBytes(trash / "files" / name), "first");
    const std::string encoded = fs::canonical(dir).string() + "/my%20report%20%C3%BC.txt";
    EXPECT_TRUE(std::regex_match(ReadBytes(trash / "info" / (name + ".trashinfo")),
                                 TrashInfoPattern(encoded)))
        << ReadBytes(trash / "info" / (name + ".trashinfo"));

    // The same name again gets a name of its own in the trash.
    WriteBytes(dir / name, "second");
    ASSERT_EQ(Operate(FO_DELETE, List({dir / name}), L"", kQuiet | FOF_ALLOWUNDO), 0);
    const std::string second = "my report \xC3\xBC.2.txt";
    EXPECT_EQ(ReadBytes(trash / "files" / second), "second");
    EXPECT_EQ(ReadBytes(trash / "files" / name), "first");
    EXPECT_TRUE(std::regex_match(ReadBytes(trash / "info" / (second + ".trashinfo")),
                                 TrashInfoPattern(encoded)));

    // Folders go whole; a link goes as the link.
    fs::create_directories(dir / "folder/inner");
    WriteBytes(dir / "folder/inner/leaf", "leaf");
    fs::create_symlink(dir / "folder", dir / "link");
    ASSERT_EQ(Operate(FO_DELETE, List({dir / "folder", dir / "link"}), L"", kQuiet | FOF_ALLOWUNDO),
              0);
    EXPECT_EQ(ReadBytes(trash / "files/folder/inner/leaf"), "leaf");
    EXPECT_TRUE(fs::is_symlink(trash / "files/link"));
    EXPECT_TRUE(fs::is_empty(dir));
    EXPECT_EQ(fs::status(trash).permissions() & fs::perms::all, fs::perms::owner_all);
}

TEST_F(ShellFileOperationTest, DeleteWithUndoFromAnotherFileSystemCopiesIntoTheHomeTrash) {
    std::string pattern = "/dev/shm/varnick-trash-XXXXXX";
    if (!fs::is_directory("/dev/shm") || !mkdtemp(pattern.data())) GTEST_SKIP();
    const fs::path foreign = pattern;
    if (!OnDifferentFileSystems(foreign, home.Path())) {
        fs::remove_all(foreign);
        GTEST_SKIP() << "no second file system";
    }
    fs::create_directories(foreign / "tree");
    WriteBytes(foreign / "tree/leaf", "leaf");
    EXPECT_EQ(Operate(FO_DELETE, List({foreign / "tree"}), L"", kQuiet | FOF_ALLOWUNDO), 0);
    const fs::path trash = P(platform::TrashFolder());
    EXPECT_EQ(ReadBytes(trash / "files/tree/leaf"), "leaf");
    EXPECT_TRUE(std::regex_match(ReadBytes(trash / "info/tree.trashinfo"),
                                 TrashInfoPattern((foreign / "tree").string())));
    EXPECT_FALSE(fs::exists(foreign / "tree"));
    // Nothing of the test lands in that file system's own trash.
    EXPECT_FALSE(
        fs::exists(fs::path("/dev/shm") / (".Trash-" + std::to_string(geteuid())) / "files/tree"));
    fs::remove_all(foreign);
}

// Outside VARNICK_HOME an item on another mount goes to that mount's own
// trash, with a path relative to the mount. Shown on a private mount in a
// child process, where that is permitted.
TEST_F(ShellFileOperationTest, DeleteWithUndoOnAnotherMountUsesThatMountsTrash) {
    const fs::path mountPoint = home.Scratch("mnt");
    const fs::path dataHome = home.Scratch("data");
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=1m") != 0) {
            _exit(77);
        }
        unsetenv("VARNICK_HOME");
        setenv("XDG_DATA_HOME", dataHome.c_str(), 1);
        setenv("HOME", dataHome.c_str(), 1);
        fs::create_directories(mountPoint / "sub");
        WriteBytes(mountPoint / "sub/item name", "x");
        if (Operate(FO_DELETE, List({mountPoint / "sub/item name"}), L"", kQuiet | FOF_ALLOWUNDO)) {
            _exit(1);
        }
        const fs::path trash = mountPoint / (".Trash-" + std::to_string(geteuid()));
        if (ReadBytes(trash / "files/item name") != "x") _exit(2);
        if (!std::regex_match(ReadBytes(trash / "info/item name.trashinfo"),
                              TrashInfoPattern("sub/item%20name"))) {
            _exit(3);
        }
        if (fs::exists(dataHome / "Trash/files/item name")) _exit(4);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no private mounts here";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(ShellFileOperationTest, RenameAndCopiesThatCollide) {
    WriteBytes(dir / "a.txt", "a");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "a.txt"}), List({dir / "a.txt"}), kQuiet), DE_SAMEFILE);
    EXPECT_EQ(Operate(FO_COPY, List({dir / "a.txt"}), List({dir}), kQuiet | FOF_RENAMEONCOLLISION),
              0);
    EXPECT_EQ(ReadBytes(dir / "a - Copy.txt"), "a");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "a.txt"}), List({dir}), kQuiet | FOF_RENAMEONCOLLISION),
              0);
    EXPECT_EQ(ReadBytes(dir / "a - Copy (2).txt"), "a");

    EXPECT_EQ(Operate(FO_RENAME, List({dir / "a.txt"}), List({dir / "b.txt"}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "b.txt"), "a");
    EXPECT_EQ(Operate(FO_RENAME, List({dir / "b.txt"}), List({dir / "a - Copy.txt"}), kQuiet),
              static_cast<int>(ERROR_ALREADY_EXISTS));
    fs::create_directory(dir / "elsewhere");
    EXPECT_EQ(Operate(FO_RENAME, List({dir / "b.txt"}), List({dir / "elsewhere/b.txt"}), kQuiet),
              DE_DIFFDIR);
}

TEST_F(ShellFileOperationTest, FailuresGiveWindowsCodes) {
    EXPECT_EQ(SHFileOperationW(nullptr), static_cast<int>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Operate(FO_DELETE, std::wstring(2, L'\0'), L"", kQuiet), DE_INVALIDFILES);
    SHFILEOPSTRUCTW nothing{};
    nothing.wFunc = FO_COPY;
    EXPECT_EQ(SHFileOperationW(&nothing), DE_INVALIDFILES);
    WriteBytes(dir / "file", "x");
    EXPECT_EQ(Operate(9, List({dir / "file"}), List({dir / "x"}), kQuiet),
              static_cast<int>(ERROR_INVALID_PARAMETER));

    EXPECT_EQ(Operate(FO_COPY, List({dir / "missing"}), List({dir / "x"}), kQuiet),
              static_cast<int>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Operate(FO_DELETE, List({dir / "no/such/thing"}), L"", kQuiet | FOF_ALLOWUNDO),
              static_cast<int>(ERROR_PATH_NOT_FOUND));

    fs::create_directories(dir / "tree/sub");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "tree"}), List({dir / "tree/sub"}), kQuiet),
              DE_DESTSUBTREE);
    EXPECT_EQ(Operate(FO_MOVE, List({dir / "tree"}), List({dir / "tree/sub/deeper"}), kQuiet),
              DE_DESTSUBTREE);
    fs::create_directory(dir / "holder");
    WriteBytes(dir / "holder/tree", "a file where the folder would go");
    EXPECT_EQ(Operate(FO_COPY, List({dir / "tree"}), List({dir / "holder"}), kQuiet),
              DE_FLDDESTISFILE);
    EXPECT_TRUE(fs::is_directory(dir / "tree/sub"));

    // Long and non-Latin names fail or work like any other.
    const fs::path longName = dir / std::string(1100, 'n');
    EXPECT_NE(Operate(FO_COPY, List({longName}), List({dir / "x"}), kQuiet), 0);
    const fs::path deep =
        dir / (std::string(200, 'd') + "/" + std::string(200, 'e') + "/" + std::string(200, 'f') +
               "/" + std::string(200, 'g') + "/" + std::string(200, 'h') + "/file");
    EXPECT_EQ(Operate(FO_DELETE, List({deep}), L"", kQuiet),
              static_cast<int>(ERROR_PATH_NOT_FOUND));
    const fs::path cyrillic = dir / "\xD0\xB4\xD0\xBE\xD0\xBC \xF0\x9F\x8F\xA0";
    WriteBytes(cyrillic, "home");
    EXPECT_EQ(Operate(FO_MOVE, List({cyrillic}), List({dir / "tree"}), kQuiet), 0);
    EXPECT_EQ(ReadBytes(dir / "tree" / cyrillic.filename()), "home");
}
