// File calls: attributes, the archive bit, listing, whole-item calls,
// temporary names and open files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFile.h"
#include "platform/WinFormat.h"
#include "platform/WinTime.h"
#include "support/PathText.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;
using testsupport::ReadBytes;
using testsupport::WriteBytes;

namespace {

const auto W = testsupport::Wide;

void SetModificationTime(const fs::path &path, time_t seconds) {
    const struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

time_t ModificationTime(const fs::path &path) {
    struct stat info {};
    stat(path.c_str(), &info);
    return info.st_mtime;
}

// A folder on another file system than the test home, removed afterwards.
class ForeignFolder {
public:
    ForeignFolder() {
        std::string pattern = "/dev/shm/varnick-file-test-XXXXXX";
        if (!fs::is_directory("/dev/shm") || !mkdtemp(pattern.data())) return;
        path_ = pattern;
    }
    ~ForeignFolder() {
        std::error_code ignored;
        if (!path_.empty()) fs::remove_all(path_, ignored);
    }
    // Empty when no other file system is at hand.
    const fs::path &Path() const { return path_; }
    bool DiffersFrom(const fs::path &other) const {
        struct stat a, b;
        return !path_.empty() && stat(path_.c_str(), &a) == 0 && stat(other.c_str(), &b) == 0 &&
               a.st_dev != b.st_dev;
    }

private:
    fs::path path_;
};

std::vector<std::wstring> FindAll(const std::wstring &pattern, DWORD &error) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) {
        error = GetLastError();
        return names;
    }
    do {
        names.emplace_back(data.cFileName);
    } while (FindNextFileW(find, &data));
    error = GetLastError();
    EXPECT_TRUE(FindClose(find));
    return names;
}

using FileTest = testsupport::ScratchTest;

}  // namespace

TEST_F(FileTest, AttributesOfEveryKindOfItem) {
    WriteBytes(dir / "plain", "x");
    fs::create_directory(dir / "folder");
    WriteBytes(dir / ".hidden", "x");
    WriteBytes(dir / "locked", "x");
    fs::permissions(dir / "locked", fs::perms::owner_read | fs::perms::group_read);
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    fs::create_symlink(dir / "plain", dir / "to-file");
    fs::create_directory_symlink(dir / "folder", dir / "to-folder");
    fs::create_symlink(dir / "nowhere", dir / "dangling");

    EXPECT_EQ(GetFileAttributesW(W(dir / "plain").c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW(W(dir / "folder").c_str()),
              FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW(W(dir / ".hidden").c_str()),
              FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW(W(dir / "locked").c_str()),
              FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW(W(dir / "pipe").c_str()), FILE_ATTRIBUTE_SYSTEM);
    EXPECT_EQ(GetFileAttributesW(W(dir / "to-file").c_str()),
              FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW(W(dir / "to-folder").c_str()),
              FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE);
    // A dangling link still exists: only the link itself is reported.
    EXPECT_EQ(GetFileAttributesW(W(dir / "dangling").c_str()), FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_TRUE(PathFileExistsW(W(dir / "dangling").c_str()));
    // A trailing separator names the folder itself.
    EXPECT_EQ(GetFileAttributesW(W(dir / "folder/").c_str()),
              FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE);
}

TEST_F(FileTest, MissingPathGivesAllBitsIncludingTheDirectoryBit) {
    DWORD attributes = GetFileAttributesW(W(dir / "missing").c_str());
    EXPECT_EQ(attributes, INVALID_FILE_ATTRIBUTES);
    EXPECT_NE(attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetFileAttributesW(W(dir / "no-folder/missing").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(PathFileExistsW(W(dir / "missing").c_str()));
    EXPECT_FALSE(PathIsDirectoryW(W(dir / "missing").c_str()));
    EXPECT_EQ(PathIsDirectoryW(W(dir).c_str()), static_cast<BOOL>(FILE_ATTRIBUTE_DIRECTORY));
}

TEST_F(FileTest, ArchiveBitClearsAndComesBackWithAModification) {
    const fs::path file = dir / "data.bin";
    WriteBytes(file, "one");
    SetModificationTime(file, 1'600'000'000);
    EXPECT_TRUE(GetFileAttributesW(W(file).c_str()) & FILE_ATTRIBUTE_ARCHIVE);

    ASSERT_TRUE(platform::ClearArchiveBit(W(file)));
    EXPECT_EQ(GetFileAttributesW(W(file).c_str()), FILE_ATTRIBUTE_NORMAL);

    WriteBytes(file, "two");
    SetModificationTime(file, 1'600'000'100);
    EXPECT_TRUE(GetFileAttributesW(W(file).c_str()) & FILE_ATTRIBUTE_ARCHIVE);

    ASSERT_TRUE(SetFileAttributesW(W(file).c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_FALSE(GetFileAttributesW(W(file).c_str()) & FILE_ATTRIBUTE_ARCHIVE);
    ASSERT_TRUE(platform::SetArchiveBit(W(file)));
    EXPECT_TRUE(GetFileAttributesW(W(file).c_str()) & FILE_ATTRIBUTE_ARCHIVE);
    ASSERT_TRUE(SetFileAttributesW(W(file).c_str(), FILE_ATTRIBUTE_NORMAL));
    ASSERT_TRUE(SetFileAttributesW(W(file).c_str(), FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_TRUE(GetFileAttributesW(W(file).c_str()) & FILE_ATTRIBUTE_ARCHIVE);

    // Clearing keeps the modification time, so clearing does not undo itself.
    ASSERT_TRUE(platform::ClearArchiveBit(W(file)));
    EXPECT_EQ(ModificationTime(file), 1'600'000'100);
    // A read-only file of the caller's is archived too, and stays read-only.
    ASSERT_TRUE(platform::SetArchiveBit(W(file)));
    fs::permissions(file, fs::perms::owner_read);
    ASSERT_TRUE(platform::ClearArchiveBit(W(file)));
    EXPECT_EQ(GetFileAttributesW(W(file).c_str()), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, fs::perms::owner_read);
    EXPECT_FALSE(platform::ClearArchiveBit(W(dir / "missing")));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(FileTest, ReadOnlyIsTheWriteBitsAndHiddenOrSystemCannotBeSet) {
    const fs::path file = dir / "doc.txt";
    WriteBytes(file, "text");
    ASSERT_TRUE(SetFileAttributesW(W(file).c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::all & ~fs::perms::owner_exec,
              fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    EXPECT_EQ(GetFileAttributesW(W(file).c_str()), FILE_ATTRIBUTE_READONLY);
    // Windows refuses to delete a read-only file.
    EXPECT_FALSE(DeleteFileW(W(file).c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);

    ASSERT_TRUE(SetFileAttributesW(
        W(file).c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(GetFileAttributesW(W(file).c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_TRUE(DeleteFileW(W(file).c_str()));
    EXPECT_FALSE(SetFileAttributesW(W(file).c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(FileTest, AttributeDataCarriesSizeAndTimes) {
    WriteBytes(dir / "five", "12345");
    SetModificationTime(dir / "five", 1'234'567'890);
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ASSERT_TRUE(GetFileAttributesExW(W(dir / "five").c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.nFileSizeLow, 5u);
    EXPECT_EQ(data.nFileSizeHigh, 0u);
    const FILETIME expected = platform::FileTimeFromUnixTime(1'234'567'890, 0);
    EXPECT_EQ(data.ftLastWriteTime.dwLowDateTime, expected.dwLowDateTime);
    EXPECT_EQ(data.ftLastWriteTime.dwHighDateTime, expected.dwHighDateTime);
    EXPECT_FALSE(GetFileAttributesExW(W(dir / "gone").c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(GetFileAttributesExW(W(dir).c_str(), GetFileExMaxInfoLevel, &data));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(FileTest, FindMatchesWindowsWildcardsWithDotEntriesFirst) {
    for (const char *name : {"a.txt", "B.TXT", "c.dat", "noext", "zz.txt.bak"}) {
        WriteBytes(dir / name, "abc");
    }
    fs::create_directory(dir / "sub");
    DWORD error = 0;

    EXPECT_EQ(FindAll(W(dir / "*.txt"), error), (std::vector<std::wstring>{L"a.txt", L"B.TXT"}));
    EXPECT_EQ(error, ERROR_NO_MORE_FILES);
    EXPECT_EQ(FindAll(W(dir / "*.*"), error),
              (std::vector<std::wstring>{L".", L"..", L"a.txt", L"B.TXT", L"c.dat", L"noext",
                                         L"sub", L"zz.txt.bak"}));
    EXPECT_EQ(FindAll(W(dir / "?.dat"), error), (std::vector<std::wstring>{L"c.dat"}));
    EXPECT_EQ(FindAll(W(dir / "noext"), error), (std::vector<std::wstring>{L"noext"}));

    EXPECT_TRUE(FindAll(W(dir / "*.zip"), error).empty());
    EXPECT_EQ(error, ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(FindAll(W(dir / "missing/*.*"), error).empty());
    EXPECT_EQ(error, ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(FindAll(W(dir / "absent"), error).empty());
    EXPECT_EQ(error, ERROR_FILE_NOT_FOUND);

    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(W(dir / "s*").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_STREQ(data.cFileName, L"sub");
    EXPECT_TRUE(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(data.cAlternateFileName[0], L'\0');
    EXPECT_FALSE(FindNextFileW(find, &data));
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(find));
}

TEST_F(FileTest, FindReportsSizesAndTheLinkTag) {
    WriteBytes(dir / "big", std::string(70000, 'x'));
    fs::create_symlink(dir / "big", dir / "link");
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(W(dir / "link").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.nFileSizeLow, 70000u);
    EXPECT_EQ(data.dwReserved0, IO_REPARSE_TAG_SYMLINK);
    EXPECT_TRUE(data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_TRUE(CloseHandle(find));  // a find handle is a kernel object too
}

TEST_F(FileTest, MoveRenamesAndRefusesAnExistingTarget) {
    WriteBytes(dir / "a", "A");
    WriteBytes(dir / "b", "B");
    fs::create_directory(dir / "folder");
    EXPECT_FALSE(MoveFileW(W(dir / "a").c_str(), W(dir / "b").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_TRUE(MoveFileExW(W(dir / "a").c_str(), W(dir / "b").c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_EQ(ReadBytes(dir / "b"), "A");
    EXPECT_FALSE(fs::exists(dir / "a"));
    EXPECT_FALSE(
        MoveFileExW(W(dir / "b").c_str(), W(dir / "folder").c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(MoveFileW(W(dir / "missing").c_str(), W(dir / "c").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(MoveFileW(W(dir / "b").c_str(), W(dir / "no/such/c").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(FileTest, MoveAcrossFileSystemsCopiesThenDeletesFilesAndFolders) {
    ForeignFolder foreign;
    if (!foreign.DiffersFrom(dir)) GTEST_SKIP() << "no second file system";
    WriteBytes(foreign.Path() / "file", "payload");
    fs::create_directories(foreign.Path() / "tree/inner");
    WriteBytes(foreign.Path() / "tree/inner/leaf", "leaf");
    fs::create_symlink("inner/leaf", foreign.Path() / "tree/link");
    SetModificationTime(foreign.Path() / "file", 1'500'000'000);

    EXPECT_FALSE(MoveFileExW(W(foreign.Path() / "file").c_str(), W(dir / "file").c_str(), 0));
    EXPECT_EQ(GetLastError(), ERROR_NOT_SAME_DEVICE);

    ASSERT_TRUE(MoveFileW(W(foreign.Path() / "file").c_str(), W(dir / "file").c_str()));
    EXPECT_EQ(ReadBytes(dir / "file"), "payload");
    EXPECT_FALSE(fs::exists(foreign.Path() / "file"));
    EXPECT_EQ(ModificationTime(dir / "file"), 1'500'000'000);

    ASSERT_TRUE(MoveFileW(W(foreign.Path() / "tree").c_str(), W(dir / "tree").c_str()));
    EXPECT_EQ(ReadBytes(dir / "tree/inner/leaf"), "leaf");
    EXPECT_EQ(fs::read_symlink(dir / "tree/link"), "inner/leaf");
    EXPECT_FALSE(fs::exists(foreign.Path() / "tree"));
}

TEST_F(FileTest, CopyKeepsContentTimeAndReadOnlyAndNeverDestroysItsSource) {
    WriteBytes(dir / "src", "content");
    SetModificationTime(dir / "src", 1'400'000'000);
    fs::permissions(dir / "src", fs::perms::owner_read);
    WriteBytes(dir / "existing", "old");

    EXPECT_FALSE(CopyFileW(W(dir / "src").c_str(), W(dir / "existing").c_str(), TRUE));
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    EXPECT_EQ(ReadBytes(dir / "existing"), "old");
    ASSERT_TRUE(CopyFileW(W(dir / "src").c_str(), W(dir / "existing").c_str(), FALSE));
    EXPECT_EQ(ReadBytes(dir / "existing"), "content");
    ASSERT_TRUE(CopyFileW(W(dir / "src").c_str(), W(dir / "new").c_str(), TRUE));
    EXPECT_EQ(GetFileAttributesW(W(dir / "new").c_str()),
              FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(fs::last_write_time(dir / "new"), fs::last_write_time(dir / "src"));

    EXPECT_FALSE(CopyFileW(W(dir / "src").c_str(), W(dir / "src").c_str(), FALSE));
    EXPECT_EQ(ReadBytes(dir / "src"), "content");
    EXPECT_FALSE(CopyFileW(W(dir / "src").c_str(), W(dir / "new").c_str(), FALSE));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);  // the target is read-only
    EXPECT_FALSE(CopyFileW(W(dir).c_str(), W(dir / "folder-copy").c_str(), FALSE));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(CopyFileW(W(dir / "missing").c_str(), W(dir / "x").c_str(), FALSE));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(FileTest, DeleteTakesFilesAndLinksButNotFolders) {
    WriteBytes(dir / "target", "t");
    fs::create_symlink(dir / "target", dir / "link");
    fs::create_directory(dir / "folder");
    EXPECT_TRUE(DeleteFileW(W(dir / "link").c_str()));
    EXPECT_TRUE(fs::exists(dir / "target"));
    EXPECT_TRUE(DeleteFileW(W(dir / "target").c_str()));
    EXPECT_FALSE(DeleteFileW(W(dir / "target").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(DeleteFileW(W(dir / "folder").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(FileTest, FolderCreationAndRemovalReportWindowsCodes) {
    const std::wstring folder = W(dir / "made");
    EXPECT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    EXPECT_FALSE(CreateDirectoryW(folder.c_str(), nullptr));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_FALSE(CreateDirectoryW(W(dir / "a/b").c_str(), nullptr));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);

    WriteBytes(dir / "made/inside", "x");
    EXPECT_FALSE(RemoveDirectoryW(folder.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_DIR_NOT_EMPTY);
    EXPECT_FALSE(RemoveDirectoryW(W(dir / "made/inside").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_DIRECTORY);
    fs::remove(dir / "made/inside");
    EXPECT_TRUE(RemoveDirectoryW(folder.c_str()));
    EXPECT_FALSE(fs::exists(dir / "made"));
}

TEST_F(FileTest, TempPathAndTempFileNames) {
    const char *previous = std::getenv("TMPDIR");
    const std::string saved = previous ? previous : "";
    setenv("TMPDIR", dir.c_str(), 1);
    wchar_t buffer[MAX_PATH];
    const std::wstring expected = W(dir) + L"/";
    EXPECT_EQ(GetTempPathW(MAX_PATH, buffer), expected.size());
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(GetTempPathW(3, buffer), expected.size() + 1);  // the size needed
    unsetenv("TMPDIR");
    EXPECT_EQ(GetTempPathW(MAX_PATH, buffer), 5u);
    EXPECT_STREQ(buffer, L"/tmp/");
    if (previous) setenv("TMPDIR", saved.c_str(), 1);

    wchar_t name[MAX_PATH];
    UINT unique = GetTempFileNameW(W(dir).c_str(), L"varnick", 0, name);
    ASSERT_NE(unique, 0u);
    EXPECT_EQ(name, expected + FormatW(L"var%X.tmp", unique));
    EXPECT_TRUE(fs::is_regular_file(platform::ToUtf8(name)));
    UINT second = GetTempFileNameW(W(dir).c_str(), L"var", 0, name);
    EXPECT_NE(second, unique);

    EXPECT_EQ(GetTempFileNameW(W(dir).c_str(), nullptr, 0x1ABCD, name), 0x1ABCDu);
    EXPECT_EQ(name, expected + L"ABCD.tmp");
    EXPECT_FALSE(fs::exists(platform::ToUtf8(name)));

    EXPECT_EQ(GetTempFileNameW(W(dir / "missing").c_str(), L"x", 0, name), 0u);
    EXPECT_EQ(GetLastError(), ERROR_DIRECTORY);
    EXPECT_EQ(GetTempFileNameW(std::wstring(300, L'a').c_str(), L"x", 0, name), 0u);
    EXPECT_EQ(GetTempFileNameW(nullptr, L"x", 0, name), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(FileTest, CreateFileDispositions) {
    const std::wstring path = W(dir / "f.bin");
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    DWORD done = 0;
    ASSERT_TRUE(WriteFile(file, "hello world", 11, &done, nullptr));
    EXPECT_EQ(done, 11u);
    CloseHandle(file);

    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);

    file = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(GetFileSize(file, nullptr), 11u);
    CloseHandle(file);

    file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(GetFileSize(file, nullptr), 0u);
    CloseHandle(file);

    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, TRUNCATE_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, 9, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(
        CreateFileW(W(dir / "none").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
        INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(CreateFileW(W(dir / "none/x").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0,
                          nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);

    // Folders open only for backup semantics.
    EXPECT_EQ(CreateFileW(W(dir).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    HANDLE folder = CreateFileW(W(dir).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    ASSERT_NE(folder, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(CloseHandle(folder));

    // A read-only file is not opened for writing, whoever asks.
    fs::permissions(dir / "f.bin", fs::perms::owner_read);
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    HANDLE created = CreateFileW(W(dir / "ro").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                 FILE_ATTRIBUTE_READONLY, nullptr);
    ASSERT_NE(created, INVALID_HANDLE_VALUE);
    CloseHandle(created);
    EXPECT_TRUE(GetFileAttributesW(W(dir / "ro").c_str()) & FILE_ATTRIBUTE_READONLY);
}

TEST_F(FileTest, FileTimesRoundTripThroughAHandle) {
    HANDLE file =
        CreateFileW(W(dir / "t").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    const FILETIME written = platform::FileTimeFromUnixTime(1'300'000'000, 123'456'700);
    const FILETIME accessed = platform::FileTimeFromUnixTime(1'300'000'500, 0);
    ASSERT_TRUE(SetFileTime(file, nullptr, &accessed, &written));
    const FILETIME keep{0, 0};
    ASSERT_TRUE(SetFileTime(file, nullptr, &keep, nullptr));  // zero leaves a time alone
    FILETIME creation{}, access{}, write{};
    ASSERT_TRUE(GetFileTime(file, &creation, &access, &write));
    EXPECT_EQ(platform::TicksFromFileTime(write), platform::TicksFromFileTime(written));
    EXPECT_EQ(platform::TicksFromFileTime(access), platform::TicksFromFileTime(accessed));
    EXPECT_GT(platform::TicksFromFileTime(creation), 0);
    CloseHandle(file);
}

TEST_F(FileTest, BadInputFailsWithTheWindowsValue) {
    EXPECT_EQ(GetFileAttributesW(nullptr), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(GetFileAttributesW(L""), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(GetFileAttributesExW(nullptr, GetFileExInfoStandard, nullptr));
    EXPECT_FALSE(SetFileAttributesW(nullptr, 0));
    EXPECT_FALSE(PathFileExistsW(nullptr));
    EXPECT_FALSE(PathIsDirectoryW(L""));
    WIN32_FIND_DATAW data;
    EXPECT_EQ(FindFirstFileW(nullptr, &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(FindFirstFileW(L"", &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(FindFirstFileW(W(dir / "*").c_str(), nullptr), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(FindNextFileW(nullptr, &data));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(FindClose(INVALID_HANDLE_VALUE));
    EXPECT_FALSE(MoveFileW(nullptr, L"x"));
    EXPECT_FALSE(MoveFileW(L"", L""));
    EXPECT_FALSE(CopyFileW(L"x", nullptr, FALSE));
    EXPECT_FALSE(DeleteFileW(nullptr));
    EXPECT_FALSE(CreateDirectoryW(L"", nullptr));
    EXPECT_FALSE(RemoveDirectoryW(nullptr));
    EXPECT_FALSE(SetCurrentDirectoryW(nullptr));
    EXPECT_EQ(CreateFileW(nullptr, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(GetFileSize(nullptr, nullptr), INVALID_FILE_SIZE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(WriteFile(INVALID_HANDLE_VALUE, "x", 1, nullptr, nullptr));
    EXPECT_FALSE(SetEndOfFile(nullptr));
    EXPECT_FALSE(GetFileTime(nullptr, nullptr, nullptr, nullptr));
    EXPECT_FALSE(platform::ClearArchiveBit(L""));
    EXPECT_FALSE(platform::RemoveTree(L""));

    // Long paths: a missing one is simply missing; a name over the file
    // system's limit is too long.
    for (std::size_t length : {1023u, 1024u, 5000u}) {
        std::wstring longPath = W(dir) + L"/" + std::wstring(length, L'x');
        EXPECT_EQ(GetFileAttributesW(longPath.c_str()), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
    }
    std::wstring deep = W(dir);
    while (deep.size() < 1100) deep += L"/abcdefghij";
    EXPECT_EQ(GetFileAttributesW(deep.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(FileTest, NamesOutsideLatin1AndTheLongPathPrefix) {
    const std::wstring name = L"\u65e5\u672c\u8a9e \U0001F600.txt";
    const std::wstring path = W(dir) + L"/" + name;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    EXPECT_TRUE(fs::exists(dir / platform::ToUtf8(name)));
    DWORD error = 0;
    EXPECT_EQ(FindAll(W(dir) + L"/*.TXT", error), (std::vector<std::wstring>{name}));
    EXPECT_EQ(FindAll(W(dir) + L"/\u65e5?? ?.txt", error), (std::vector<std::wstring>{name}));

    const std::wstring prefixed = L"\\\\?\\" + path;
    EXPECT_NE(GetFileAttributesW(prefixed.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(
        CopyFileW(prefixed.c_str(), (L"\\\\?\\" + W(dir) + L"/\u00e9t\u00e9").c_str(), TRUE));
    EXPECT_TRUE(fs::exists(dir / "\xC3\xA9t\xC3\xA9"));
}

TEST_F(FileTest, TreesAreCopiedMergedAndRemovedWithReadOnlyParts) {
    fs::create_directories(dir / "src/a/b");
    WriteBytes(dir / "src/a/b/leaf", "leaf");
    WriteBytes(dir / "src/top", "top");
    fs::permissions(dir / "src/a/b/leaf", fs::perms::owner_read);
    fs::permissions(dir / "src/a/b", fs::perms::owner_read | fs::perms::owner_exec);
    fs::create_directories(dir / "dst/a");
    WriteBytes(dir / "dst/a/kept", "kept");

    ASSERT_TRUE(platform::CopyTree(W(dir / "src"), W(dir / "dst"), true));
    EXPECT_EQ(ReadBytes(dir / "dst/a/b/leaf"), "leaf");
    EXPECT_EQ(ReadBytes(dir / "dst/a/kept"), "kept");
    EXPECT_EQ(ReadBytes(dir / "dst/top"), "top");
    EXPECT_FALSE(platform::CopyTree(W(dir / "src"), W(dir / "dst"), false));
    EXPECT_FALSE(platform::CopyTree(W(dir / "src"), W(dir / "src/a/inside"), true));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

    ASSERT_TRUE(platform::RemoveTree(W(dir / "src")));
    EXPECT_FALSE(fs::exists(dir / "src"));
    ASSERT_TRUE(platform::RemoveTree(W(dir / "dst")));
    EXPECT_FALSE(platform::RemoveTree(W(dir / "dst")));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}
