// Expanding, extracting and removing through the facade, on real archives.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "CArchiveExpand.h"
#include "CArchiveExtract.h"
#include "CExpandConflictAction.h"
#include "archive/FacadeTest.h"

namespace {

using archivetest::EndLog;
namespace fs = std::filesystem;

class ExpandTest : public archivetest::FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        ExpandStraightIntoTheFolder();
    }

    static size_t FilesIn(const fs::path &folder) {
        size_t count = 0;
        for (const auto &entry : fs::recursive_directory_iterator(folder))
            count += entry.is_regular_file() ? 1 : 0;
        return count;
    }
};

// Asking is the notification tests' case, with every answer.
TEST_F(ExpandTest, ExpandWholeArchiveAndKeepBoth) {
    auto archive = MakeArchive(SampleZip());
    fs::path out = work / "out";
    auto expand = [&] { return archive->ExpandTo(Wide(out).c_str()); };
    RunToEnd(*archive, expand);
    EXPECT_EQ(testsupport::ReadBytes(out / "docs/sub/c.txt"), "c");

    testsupport::WriteBytes(out / "a.txt", "old");
    appOptions->ExpandConflictMethod = kResolutionKeepBoth;
    RunToSuccess(*archive, expand);
    EXPECT_EQ(testsupport::ReadBytes(out / "a.txt"), "old") << "kept";
    EXPECT_EQ(FilesIn(out), 6u) << "each incoming file beside the one it met";
    EXPECT_TRUE(host.Recorded().empty()) << "no error box";
}

// Chosen items meet the files there as the conflict method says; "replace
// if newer" compares the item's date with the file's.
TEST_F(ExpandTest, ExtractChosenItemsWithEachConflictMethod) {
    auto archive = MakeArchive(SampleZip());
    const fs::path out = work / "out";
    std::vector<std::wstring> items{L"a.txt", L"docs\\sub\\c.txt"};
    const std::string incoming(1000, 'a');
    const struct {
        DWORD method;
        int fileAgeDays;  // negative: the file there is newer than the item
        bool replaced;
        std::size_t files;
    } cases[] = {
        {kResolutionReplace, 0, true, 2},
        {kResolutionKeepBoth, 0, false, 3},
        {kResolutionReplaceIfNewer, -1, false, 2},
        {kResolutionReplaceIfNewer, 1, true, 2},
    };
    for (const auto &[method, fileAgeDays, replaced, files] : cases) {
        SCOPED_TRACE(testing::Message() << method << ", " << fileAgeDays);
        fs::remove_all(out);
        fs::path there = Put("out/a.txt", "old");
        fs::last_write_time(
            there, fs::file_time_type::clock::now() - std::chrono::hours(24 * fileAgeDays));
        appOptions->ExpandConflictMethod = method;
        RunToEnd(*archive, [&] { return archive->Extract(&items, Wide(out).c_str()); });
        EXPECT_EQ(testsupport::ReadBytes(there), replaced ? incoming : "old");
        EXPECT_EQ(FilesIn(out), files);
        EXPECT_TRUE(host.Recorded().empty());
    }
}

TEST_F(ExpandTest, RefusedDestinationAsksForAnotherFolderOrEndsQuietly) {
    auto archive = MakeArchive(SampleZip());
    appOptions->ExpandConflictMethod = kResolutionReplace;
    // A folder that no one may create, whoever runs the test.
    fs::path blocked = "/sys/varnick-refused";

    host.QueueAnswer(IDYES);
    host.QueueDirectory(Wide(work / "chosen"));
    RunToEnd(*archive, [&] { return archive->ExpandTo(Wide(blocked).c_str()); });
    ASSERT_EQ(host.Recorded().size(), 1u);
    EXPECT_EQ(host.Recorded()[0].text, Text(903));
    EXPECT_EQ(archive->lastResult, 0);
    EXPECT_TRUE(fs::exists(work / "chosen/a.txt")) << "expanded into the chosen folder";

    host.Reset();
    host.QueueAnswer(IDNO);
    RunToSuccess(*archive, [&] { return archive->ExpandTo(Wide(blocked).c_str()); });
    EXPECT_EQ(host.Recorded().size(), 1u) << "the question only, no error box";
}

TEST_F(ExpandTest, ExtractLeavesOutItemsThatAreGone) {
    auto archive = MakeArchive(SampleZip());
    appOptions->ExpandConflictMethod = kResolutionReplace;
    fs::path out = work / "out";
    std::vector<std::wstring> items{L"docs\\sub\\c.txt", L"gone.txt"};
    RunToEnd(*archive, [&] { return archive->Extract(&items, Wide(out).c_str()); });
    EXPECT_EQ(FilesIn(out), 1u);
    EXPECT_FALSE(fs::exists(out / "a.txt"));

    std::vector<std::wstring> allGone{L"gone.txt", L"docs\\none.txt"};
    fs::path empty = work / "empty";
    RunToEnd(*archive, [&] { return archive->Extract(&allGone, Wide(empty).c_str()); });
    EXPECT_FALSE(fs::exists(empty) && FilesIn(empty) > 0) << "nothing expanded";
    EXPECT_TRUE(host.Recorded().empty()) << "and no error";
}

// The archive stays open between calls: a later change of the name does not
// reach it until CloseExtract.
TEST_F(ExpandTest, ExtractToTempTwiceOpensTheArchiveOnce) {
    auto archive = MakeArchive(SampleZip());
    archive->tempFolder = Wide(work / "temp");
    ASSERT_TRUE(archive->ExtractToTempUnthreaded(L"a.txt"));
    archive->SetArchiveName(Wide(work / "missing.zip").c_str());
    ASSERT_TRUE(archive->ExtractToTempUnthreaded(L"docs\\sub\\c.txt"));
    EXPECT_TRUE(fs::exists(work / "temp/a.txt"));
    EXPECT_EQ(FilesIn(work / "temp"), 2u);

    archive->CloseExtract();
    EXPECT_FALSE(archive->ExtractToTempUnthreaded(L"a.txt")) << "opened again, by the new name";
    EXPECT_NE(archive->lastResult, 0);
}

TEST_F(ExpandTest, RemoveAsksForThePasswordUntilItFits) {
    Put("src/a.txt", std::string(1000, 'a'));
    Put("src/b.txt", std::string(1000, 'b'));
    OpaqueEngineObject *session = engine.GetEngine();
    ASSERT_EQ(SetFormatBooleanProperty(session, "vnkx", kFormatPropEncryptArchive, true), 0);
    fs::path path = work / "locked.vnkx";
    ASSERT_EQ(Create(path, {work / "src/a.txt", work / "src/b.txt"}, "vnkx", L"right"), 0);
    SetFormatBooleanProperty(session, "vnkx", kFormatPropEncryptArchive, false);

    auto archive = MakeArchive(path);
    archive->refreshAfterChange = false;
    host.QueuePassword(L"wrong");
    host.QueuePassword(L"right");
    std::vector<std::wstring> items{L"a.txt"};
    RunToEnd(*archive, [&] { return archive->RemoveFrom(&items); });
    EXPECT_GE(host.Prompts().size(), 2u) << "asked again after the wrong one";
    EXPECT_FALSE(archive->cancelled);

    archive->password = L"right";
    std::vector<std::wstring> both{L"a.txt", L"b.txt"};
    fs::path out = work / "out";
    RunToEnd(*archive, [&] { return archive->Extract(&both, Wide(out).c_str()); });
    EXPECT_FALSE(fs::exists(out / "a.txt")) << "removed";
    EXPECT_TRUE(fs::exists(out / "b.txt"));
}

}  // namespace
