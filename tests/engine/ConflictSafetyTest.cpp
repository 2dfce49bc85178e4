// What expanding does with what is already there ("conflictResolution" and
// the (1,3) notification), and with items whose names or links lead out of
// the destination.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class ConflictTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        fs::path tree = MakeSampleTree("src");
        archive = Scratch("archives") / "sample.tar";
        ASSERT_EQ(RunShell("bsdtar -cf archives/sample.tar src", tree.parent_path()).status, 0);
        out = Scratch("out");
        WriteFile(out / "src" / "readme.txt", "existing contents\n");
        WriteFile(out / "src" / "data" / "mine.txt", "not from the archive\n");
    }
    void Age(const fs::path &path, int hours) {
        fs::last_write_time(path, fs::file_time_type::clock::now() + std::chrono::hours(hours));
    }
    fs::path archive, out;
};

TEST_F(ConflictTest, ReplaceKeepBothAndReplaceIfNewer) {
    SetInteger(kEnginePropConflictResolution, kResolutionKeepBoth | kResolutionMergeFolders);
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "src" / "readme.txt"), "existing contents\n");
    EXPECT_EQ(ReadFile(out / "src" / "readme_1.txt"), "Hello, archive.\n");
    EXPECT_EQ(ReadFile(out / "src" / "data" / "mine.txt"), "not from the archive\n");

    // The archive's items are from 2023: a file of the future is newer.
    SetInteger(kEnginePropConflictResolution, kResolutionReplaceIfNewer | kResolutionMergeFolders);
    Age(out / "src" / "readme.txt", 24);
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "src" / "readme.txt"), "existing contents\n");
    fs::last_write_time(out / "src" / "readme.txt",
                        fs::file_time_type::clock::now() - std::chrono::hours(24 * 365 * 5));
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "src" / "readme.txt"), "Hello, archive.\n");

    WriteFile(out / "src" / "readme.txt", "existing contents\n");
    SetInteger(kEnginePropConflictResolution, kResolutionReplace | kResolutionMergeFolders);
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "src" / "readme.txt"), "Hello, archive.\n");
    EXPECT_TRUE(fs::exists(out / "src" / "data" / "mine.txt")) << "merged, not replaced";
}

TEST_F(ConflictTest, ReplacingAFolderWithoutMergeRemovesWhatWasInIt) {
    SetInteger(kEnginePropConflictResolution, kResolutionReplace);
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_FALSE(fs::exists(out / "src" / "data" / "mine.txt"));
    EXPECT_EQ(ReadFile(out / "src" / "readme.txt"), "Hello, archive.\n");
}

TEST_F(ConflictTest, AskingGoesThroughTheNotificationAndNoAnswerKeepsWhatIsThere) {
    SetInteger(kEnginePropConflictResolution, kResolutionAsk);
    // No procedure: nothing is replaced.
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "src" / "readme.txt"), "existing contents\n");
    EXPECT_FALSE(fs::exists(out / "src" / "data" / "blob.bin")) << "the folder was kept as it is";

    std::vector<std::wstring> itemNames;
    Recorder recorder(engine);
    recorder.On(1, 3, [&](NotificationContext context) {
        ArchiveObject item = nullptr;
        EXPECT_EQ(GetDataFromContext(context, kContextArchiveObject, &item, sizeof item),
                  kEngineOK);
        StringRef name = nullptr;
        EXPECT_EQ(AcquireArchiveObjectName(item, &name), kEngineOK);
        itemNames.push_back(TextOf(name));
        DisposeStringRef(name);
        bool folder = false;
        GetArchiveObjectIsFolder(item, &folder);
        // Merge folders, keep both files.
        return AnswerConflict(
            context, folder ? kResolutionReplace | kResolutionMergeFolders : kResolutionKeepBoth);
    });
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    std::vector<Seen> asked = recorder.Of(1, 3);
    ASSERT_EQ(asked.size(), 3u);  // the folders src and src/data, and readme.txt
    EXPECT_EQ(asked[0].name, (out / "src").wstring());
    EXPECT_EQ(itemNames, (std::vector<std::wstring>{L"src", L"readme.txt", L"data"}));
    EXPECT_EQ(ReadFile(out / "src" / "readme_1.txt"), "Hello, archive.\n");
    EXPECT_TRUE(fs::exists(out / "src" / "data" / "blob.bin"));
}

TEST_F(ConflictTest, AStopAnswerToAConflictCancels) {
    SetInteger(kEnginePropConflictResolution, kResolutionAsk);
    Recorder recorder(engine);
    recorder.On(1, 3, [](NotificationContext) { return kNotificationStop; });
    EXPECT_EQ(Expand(archive, out), kEngineCancelled);
}

class SafetyTest : public EngineTest {};

TEST_F(SafetyTest, NamesAndLinksLeadingOutAreRefusedAndTheRestExpands) {
    fs::path parent = Scratch("parent");
    // Made with Python's tarfile, which writes whatever names it is given.
    Shell made = RunShell(
        "python3 -c \"\n"
        "import io, tarfile\n"
        "t = tarfile.open('evil.tar', 'w', format=tarfile.USTAR_FORMAT)\n"
        "def add(name, data=b'', kind=tarfile.REGTYPE, link=''):\n"
        "    i = tarfile.TarInfo(name); i.type = kind; i.linkname = link; i.size = len(data)\n"
        "    t.addfile(i, io.BytesIO(data))\n"
        "add('good.txt', b'good\\n'); add('../escape.txt', b'e'); add('/absolute.txt', b'a')\n"
        "add('deep/../../up.txt', b'u'); add('link-out', kind=tarfile.SYMTYPE, link='/etc')\n"
        "add('rel-out', kind=tarfile.SYMTYPE, link='../../outside')\n"
        "add('link-in', kind=tarfile.SYMTYPE, link='good.txt'); add('here', kind=tarfile.SYMTYPE, "
        "link='.')\n"
        "add('here/through.txt', b'x'); add('last.txt', b'last\\n')\n"
        "t.close()\"",
        parent);
    ASSERT_EQ(made.status, 0) << made.output;
    fs::path archive = parent / "evil.tar";
    fs::path out = parent / "out";
    EXPECT_EQ(Expand(archive, out), kEngineUnsafeItemPath);

    std::map<std::string, std::string> inside = Snapshot(out);
    EXPECT_EQ(inside["good.txt"], "good\n");
    EXPECT_EQ(inside["last.txt"], "last\n");
    EXPECT_EQ(inside["link-in"], "-> good.txt");
    EXPECT_EQ(inside["here"], "-> .");
    EXPECT_FALSE(inside.count("link-out"));
    EXPECT_FALSE(inside.count("rel-out"));
    EXPECT_FALSE(inside.count("here/through.txt"));
    EXPECT_FALSE(inside.count("absolute.txt"));
    // Nothing beside the destination either.
    std::vector<std::string> beside;
    for (const auto &entry : fs::directory_iterator(parent))
        beside.push_back(entry.path().filename().string());
    std::sort(beside.begin(), beside.end());
    EXPECT_EQ(beside, (std::vector<std::string>{"evil.tar", "out"}));
}

TEST_F(SafetyTest, AZipWithNamesLeadingOutExpandsOnlyWhatStaysInside) {
    fs::path parent = Scratch("zipparent");
    Shell made = RunShell(
        "python3 -c \"import zipfile; z = zipfile.ZipFile('evil.zip', 'w'); "
        "z.writestr('../../zip-escape.txt', 'x'); z.writestr('ok/inside.txt', 'inside'); "
        "z.close()\"",
        parent);
    ASSERT_EQ(made.status, 0) << made.output;
    fs::path out = parent / "out";
    EXPECT_EQ(Expand(parent / "evil.zip", out), kEngineUnsafeItemPath);
    EXPECT_EQ(ReadFile(out / "ok" / "inside.txt"), "inside");
    EXPECT_FALSE(fs::exists(parent.parent_path() / "zip-escape.txt"));
    EXPECT_FALSE(fs::exists(parent / "zip-escape.txt"));
}

TEST_F(SafetyTest, ADestinationThatCannotBeWrittenIsRefused) {
    if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
    fs::path locked = Scratch("locked");
    chmod(locked.c_str(), 0555);
    WriteFile(Scratch("src") / "a.txt", "a");
    ASSERT_EQ(RunShell("bsdtar -cf ../a.tar a.txt", Scratch("src")).status, 0);
    EXPECT_EQ(Expand(Scratch("src").parent_path() / "a.tar", locked / "sub"),
              kEngineDestinationRefused);
    chmod(locked.c_str(), 0755);
}

}  // namespace
}  // namespace enginetest
