// Making archives and adding to them through the facade, on real files, with
// the results checked by the command-line tools of each format.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "CArchiveCompress.h"
#include "CExpandConflictAction.h"
#include "CNewArchiveContentList.h"
#include "archive/FacadeTest.h"

namespace archivetest {
namespace {

class CompressTest : public FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        Put("src/a.txt", std::string(3000, 'a'));
        Put("src/b.log", std::string(500, 'b'));
        Put("src/docs/c.txt", "c");
        Put("src/docs/d.md", "d");
    }

    std::unique_ptr<CArchive> Created(const std::filesystem::path &path, format::type type,
                                      CNewArchiveContentList &list) {
        auto archive = MakeArchive(path);
        archive->formatType = type;
        RunToEnd(*archive, [&] { return archive->CreateFromList(&list); });
        return archive;
    }

    // The names a command prints, one a line, sorted.
    std::string Listing(const std::string &command) { return Output(work, command + " | sort"); }

    // The application log's lines that carry a property's debug text.
    static std::vector<std::string> DebugLines() {
        std::vector<std::string> lines;
        std::istringstream stream(
            testsupport::Utf16FileText(CLogging::LogFolder() + L"Varnick.log"));
        for (std::string line; std::getline(stream, line);) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (line.find("kFormatPropertyID") != std::string::npos) lines.push_back(line);
        }
        return lines;
    }

    std::wstring Src(const std::string &relative) { return Wide(work / "src" / relative); }
};

TEST_F(CompressTest, EachFormatIsReadByItsOwnTools) {
    CNewArchiveContentList list;
    list.Files = {Src("a.txt"), Wide(work / "missing.txt")};
    list.Folders = {Src("docs")};
    const std::string expected = "a.txt\ndocs/\ndocs/c.txt\ndocs/d.md\n";

    auto zip = Created(work / "out.zip", format::zip, list);
    EXPECT_EQ(zip->lastResult, 0);
    EXPECT_TRUE(RunIn(work, "unzip -tq out.zip"));
    EXPECT_EQ(Listing("unzip -Z1 out.zip"), expected) << "a missing source is skipped";
    EXPECT_EQ(zip->fileCount, 3u) << "the archive is read again after the change";

    auto tgz = Created(work / "out.tgz", format::tgz, list);
    EXPECT_EQ(tgz->lastResult, 0);
    EXPECT_TRUE(RunIn(work, "gzip -t out.tgz"));
    EXPECT_EQ(Listing("bsdtar -tf out.tgz"), expected);

    auto tbz = Created(work / "out.tbz2", format::tbz2, list);
    EXPECT_EQ(tbz->lastResult, 0);
    EXPECT_TRUE(RunIn(work, "bzip2 -t out.tbz2"));
    EXPECT_EQ(Listing("bsdtar -tf out.tbz2"), expected);

    auto seven = Created(work / "out.7z", format::sevenz, list);
    EXPECT_EQ(seven->lastResult, 0);
    EXPECT_TRUE(RunIn(work, "7zz t out.7z"));

    auto vnkx = Created(work / "out.vnkx", format::vnkx, list);
    EXPECT_EQ(vnkx->lastResult, 0);
    EXPECT_EQ(vnkx->fileCount, 3u);
    RunToSuccess(*vnkx, [&] { return vnkx->Verify(); });
}

// The filter decides for every format alike: a mask, a date limit and the
// archive bit keep files out, but a file named directly always goes in.
TEST_F(CompressTest, FilterTakesMaskDateAndArchiveBitButNeverAFileNamedDirectly) {
    const std::pair<format::type, std::string> kFormats[] = {
        {format::zip, "filtered.zip"},
        {format::tgz, "filtered.tgz"},
        {format::tbz2, "filtered.tbz2"},
        {format::sevenz, "filtered.7z"},
    };
    for (const auto &[type, name] : kFormats) {
        SCOPED_TRACE(name);
        // Each format its own tree: a run clears the archive bits it takes.
        const std::string tree = name + ".src/";
        Put(tree + "b.log", "b");
        Put(tree + "docs/c.txt", "c");
        Put(tree + "docs/d.md", "d");
        Put(tree + "docs/old.txt", "old");
        std::filesystem::last_write_time(
            work / tree / "docs/old.txt",
            std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 30));
        std::wstring done = Wide(Put(tree + "docs/done.txt", "archived already"));
        SetFileAttributesW(done.c_str(),
                           GetFileAttributesW(done.c_str()) & ~FILE_ATTRIBUTE_ARCHIVE);
        const bool bitsWork = !(GetFileAttributesW(done.c_str()) & FILE_ATTRIBUTE_ARCHIVE);
        Put(tree + ".hidden/h.txt", "h");

        CNewArchiveContentList list;
        list.Files = {Wide(work / tree / "b.log")};  // excluded by the mask, but named
        // A folder named directly is tested like any other.
        list.Folders = {Wide(work / tree / "docs"), Wide(work / tree / ".hidden")};
        list.GetNewFilterObject();
        list.Filter->SystemAndHidden = false;
        list.Filter->Mask = L" *.TXT ;x.*, ";
        list.Filter->ByDate = true;
        list.Filter->DateType = kFilterDateSinceDays;
        list.Filter->Since = 10;
        list.Filter->AddArchived = true;
        list.Filter->ResetArchived = true;
        auto archive = Created(work / name, type, list);
        EXPECT_EQ(archive->lastResult, 0);

        std::string listing = Listing("bsdtar -tf " + name);
        EXPECT_NE(listing.find("b.log"), std::string::npos);
        EXPECT_NE(listing.find("docs/c.txt"), std::string::npos);
        EXPECT_EQ(listing.find("d.md"), std::string::npos) << "no mask fits";
        EXPECT_EQ(listing.find("old.txt"), std::string::npos) << "older than ten days";
        EXPECT_EQ(listing.find("h.txt"), std::string::npos) << "a hidden folder";
        if (!bitsWork) continue;
        EXPECT_EQ(listing.find("done.txt"), std::string::npos) << "archive bit cleared";
        EXPECT_FALSE(GetFileAttributesW(Wide(work / tree / "docs/c.txt").c_str()) &
                     FILE_ATTRIBUTE_ARCHIVE)
            << "a file taken has its bit reset";
        EXPECT_FALSE(GetFileAttributesW(Wide(work / tree / "docs/old.txt").c_str()) &
                     FILE_ATTRIBUTE_ARCHIVE)
            << "reset before the date test leaves the file out";
    }
}

// The stamp itself is the catalogue tests' case.
TEST_F(CompressTest, OneArchivePerItemAndTimeStampsNameEachArchive) {
    appOptions->CompressFolderMethod = 1;
    CNewArchiveContentList list;
    list.Files = {Src("a.txt")};
    list.Folders = {Src("docs")};
    list.OneArchivePerItem = true;
    list.Timestamp = true;
    std::filesystem::create_directories(work / "each");
    auto archive = Created(work / "each" / "ignored.zip", format::zip, list);
    EXPECT_EQ(archive->lastResult, 0);
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(work / "each"))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names.size(), 2u);
    EXPECT_TRUE(std::regex_match(names[0], std::regex(R"(a\.txt\d{14}\.zip)"))) << names[0];
    EXPECT_TRUE(std::regex_match(names[1], std::regex(R"(docs\d{14}\.zip)"))) << names[1];
}

// Each retry runs one extent lower; the least extent itself is never tried.
TEST_F(CompressTest, ExtentTooHighIsRetriedOneLowerEachTimeAndStopsAboveTheLeast) {
    const std::string extent = "kFormatPropertyIDCurrentCompressionExtent = ";
    auto triedSince = [&](std::size_t first) {
        std::vector<std::string> lines = DebugLines(), tried;
        for (std::size_t i = first; i < lines.size(); ++i) {
            if (lines[i].rfind(extent, 0) == 0) tried.push_back(lines[i].substr(extent.size()));
        }
        return tried;
    };
    CEngine probe;
    int32_t most = 0;
    ASSERT_EQ(SetFormatIntegerProperty(probe.GetEngine(), "vnkx", kFormatPropCompMethod, 2), 0);
    ASSERT_EQ(GetFormatIntegerProperty(probe.GetEngine(), "vnkx", kFormatPropCompExtentMost, &most),
              0);
    formatOptions->VnkxUseSimple = false;
    formatOptions->VnkxCompressionMethod = 2;
    formatOptions->CompressionMemory = static_cast<DWORD>(most + 2);
    CNewArchiveContentList list;
    list.Files = {Src("a.txt")};
    auto archive = Created(work / "extent.vnkx", format::vnkx, list);
    EXPECT_EQ(archive->lastResult, 0);
    EXPECT_EQ(formatOptions->CompressionMemory, static_cast<DWORD>(most))
        << "the lowered extent stays in the options";
    EXPECT_EQ(triedSince(0),
              (std::vector<std::string>{std::to_string(most + 2), std::to_string(most + 1),
                                        std::to_string(most)}));

    // A method whose only extent is its least: every extent above fails, and
    // the loop ends at the least without trying it.
    constexpr int32_t kSingleExtentMethod = 7;
    int32_t least = 0;
    ASSERT_EQ(SetFormatIntegerProperty(probe.GetEngine(), "vnkx", kFormatPropCompMethod,
                                       kSingleExtentMethod),
              0);
    ASSERT_EQ(
        GetFormatIntegerProperty(probe.GetEngine(), "vnkx", kFormatPropCompExtentLeast, &least), 0);
    ASSERT_EQ(GetFormatIntegerProperty(probe.GetEngine(), "vnkx", kFormatPropCompExtentMost, &most),
              0);
    ASSERT_EQ(least, most);
    formatOptions->VnkxCompressionMethod = kSingleExtentMethod;
    formatOptions->CompressionMemory = static_cast<DWORD>(least + 2);
    std::size_t before = DebugLines().size();
    auto stopped = Created(work / "stopped.vnkx", format::vnkx, list);
    EXPECT_EQ(stopped->lastResult, kEngineExtentTooHigh);
    EXPECT_EQ(formatOptions->CompressionMemory, static_cast<DWORD>(least));
    EXPECT_EQ(triedSince(before),
              (std::vector<std::string>{std::to_string(least + 2), std::to_string(least + 1)}));
    EXPECT_FALSE(std::filesystem::exists(work / "stopped.vnkx"));
}

// "Ask" for same-named items is asked only when adding: a new archive keeps
// both without a question.
TEST_F(CompressTest, AskingForDuplicatesKeepsBothWhenCreatingAndAsksWhenAdding) {
    appOptions->AddConflictMethod = 7;
    appOptions->AddMergeContents = false;
    CNewArchiveContentList twins;
    twins.Files = {Wide(Put("one/x.txt", "first")), Wide(Put("two/x.txt", "second"))};
    auto created = Created(work / "twins.vnkx", format::vnkx, twins);
    EXPECT_EQ(created->lastResult, 0);
    EXPECT_EQ(created->fileCount, 2u);
    EXPECT_TRUE(host.Prompts().empty());

    auto archive = MakeArchive(SampleZip());
    CNewArchiveContentList again;
    again.Files = {Wide(Put("more/a.txt", "newer"))};
    host.QueueConflictAction(CExpandConflictAction::KeepBoth);
    RunToSuccess(*archive, [&] { return archive->AddTo(&again, L""); });
    EXPECT_EQ(host.Prompts().size(), 1u);
    EXPECT_EQ(Listing("unzip -Z1 sample.zip").rfind("a.txt\na_1.txt\ndocs/\n", 0), 0u);
}

TEST_F(CompressTest, AddPutsTheItemsIntoTheDestinationFolder) {
    auto archive = MakeArchive(SampleZip());
    Put("more/new.txt", "new");
    CNewArchiveContentList list;
    list.Files = {Wide(work / "more" / "new.txt")};
    RunToSuccess(*archive, [&] { return archive->AddTo(&list, L"\\docs"); });
    EXPECT_TRUE(RunIn(work, "unzip -tq sample.zip"));
    EXPECT_NE(Listing("unzip -Z1 sample.zip").find("docs/new.txt\n"), std::string::npos);

    // A folder that is not there ends the run with the end of the walk.
    RunToEnd(*archive, [&] { return archive->AddTo(&list, L"\\nowhere"); });
    EXPECT_EQ(archive->lastResult, kEngineNoMoreObjects);
}

TEST_F(CompressTest, NestedDestinationIsNotFoundAsItStands) {
    auto archive = MakeArchive(SampleZip());
    Put("more/deep.txt", "deep");
    CNewArchiveContentList list;
    list.Files = {Wide(work / "more" / "deep.txt")};
    RunToEnd(*archive, [&] { return archive->AddTo(&list, L"\\docs\\sub"); });
    EXPECT_EQ(archive->lastResult, kEngineNoMoreObjects);
}

TEST_F(CompressTest, RunsThatMakeNothing) {
    // An empty list ends like a cancelled run.
    CNewArchiveContentList empty;
    auto none = Created(work / "none.zip", format::zip, empty);
    EXPECT_EQ(none->lastResult, kEngineCancelled);
    EXPECT_FALSE(std::filesystem::exists(work / "none.zip"));

    // Segments are for vnkx only.
    CNewArchiveContentList segmented;
    segmented.Files = {Src("a.txt")};
    segmented.SegmentSize = 1 << 20;
    auto zip = Created(work / "seg.zip", format::zip, segmented);
    EXPECT_EQ(zip->lastResult, kEngineNotAnArchive);
    EXPECT_FALSE(std::filesystem::exists(work / "seg.zip"));
}

}  // namespace
}  // namespace archivetest
