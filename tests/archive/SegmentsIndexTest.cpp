// Segmented and indexed vnkx through the facade: made from a content list,
// each finished part handed to the segment callback, a set expanded with a
// part asked for through the folder prompt, and an index of an archive made
// afterwards.
#include <gtest/gtest.h>

#include <algorithm>

#include "CNewArchiveContentList.h"
#include "archive/FacadeTest.h"

namespace archivetest {
namespace {

namespace fs = std::filesystem;

class SegmentsIndexTest : public FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        Put("src/noise.bin", Noise(200000, 7));
        Put("src/docs/a.txt", std::string(3000, 'a'));
        indexFolder = work / "indexes";
        fs::create_directories(indexFolder);
        appOptions->ArchiveIndexFolder = Wide(indexFolder);
    }

    static void SegmentDone(const wchar_t *path, void *context) {
        static_cast<std::vector<std::wstring> *>(context)->push_back(path);
    }

    std::unique_ptr<CArchive> CreateVnkx(const fs::path &path, std::int64_t segmentSize,
                                         bool makeIndex) {
        auto archive = MakeArchive(path);
        archive->formatType = format::vnkx;
        archive->segmentCallback = SegmentDone;
        archive->segmentContext = &finished;
        list.Folders = {Wide(work / "src")};
        list.SegmentSize = segmentSize;
        list.MakeIndex = makeIndex;
        RunToEnd(*archive, [&] { return archive->CreateFromList(&list); });
        return archive;
    }

    std::vector<std::wstring> PartsIn(const fs::path &folder) {
        std::vector<std::wstring> parts;
        for (const auto &entry : fs::directory_iterator(folder))
            if (entry.path().filename().string().find(".part") != std::string::npos)
                parts.push_back(entry.path().wstring());
        std::sort(parts.begin(), parts.end());
        return parts;
    }

    // Expands `path` through a new facade and gives the expanded noise.
    std::string ExpandedNoise(const fs::path &path, const fs::path &destination) {
        auto archive = MakeArchive(path);
        archive->formatType = format::vnkx;
        fs::create_directories(destination);
        RunToSuccess(*archive, [&] { return archive->ExpandTo(Wide(destination).c_str()); });
        for (const auto &entry : fs::recursive_directory_iterator(destination))
            if (entry.path().filename() == "noise.bin") return testsupport::ReadBytes(entry.path());
        return {};
    }

    // Index files of the archive named `bare` anywhere below the index
    // folder: their names carry the index prefix and a unique number.
    std::vector<fs::path> IndexesOf(const std::string &bare) {
        const std::string prefix = platform::ToUtf8(Text(763));
        std::vector<fs::path> found;
        for (const auto &entry : fs::recursive_directory_iterator(indexFolder)) {
            std::string name = entry.path().filename().string();
            if (name.rfind(prefix, 0) == 0 && name.size() >= bare.size() + 5 &&
                name.compare(name.size() - bare.size() - 5, std::string::npos, bare + ".vidx") == 0)
                found.push_back(entry.path());
        }
        return found;
    }

    CNewArchiveContentList list;
    std::vector<std::wstring> finished;
    fs::path indexFolder;
};

TEST_F(SegmentsIndexTest, SegmentedArchiveWithIndexFromAContentList) {
    auto archive = CreateVnkx(work / "set.vnkx", 64 << 10, true);
    ASSERT_EQ(archive->lastResult, 0);
    std::vector<std::wstring> parts = PartsIn(work);
    ASSERT_GE(parts.size(), 3u);
    EXPECT_EQ(archive->name, parts.front()) << "the archive is named by its first part";
    EXPECT_EQ(fs::path(parts.front()).filename(), "set.part01.vnkx");
    // The callback runs once a part, when the window takes the message; the
    // path it gets is the newest one written by then, so parts cut quickly
    // may be announced under a later part's name. The last is always right.
    ASSERT_EQ(finished.size(), parts.size());
    EXPECT_EQ(finished.back(), parts.back());
    for (const std::wstring &path : finished)
        EXPECT_NE(std::find(parts.begin(), parts.end(), path), parts.end());

    EXPECT_EQ(IndexesOf("set").size(), 1u);

    std::string noise = testsupport::ReadBytes(work / "src" / "noise.bin");
    EXPECT_EQ(ExpandedNoise(parts.front(), work / "out-whole"), noise);

    // A part that is not beside the first is asked for with the folder prompt.
    fs::path away = work / "away";
    fs::create_directories(away);
    fs::rename(parts[1], away / fs::path(parts[1]).filename());
    host.QueueDirectory(Wide(away));
    EXPECT_EQ(ExpandedNoise(parts.front(), work / "out-asked"), noise);
    auto prompts = host.Prompts();
    EXPECT_FALSE(prompts.empty());
}

TEST_F(SegmentsIndexTest, PlainArchiveWithIndexAndAnIndexMadeAfterwards) {
    auto archive = CreateVnkx(work / "plain.vnkx", 0, true);
    ASSERT_EQ(archive->lastResult, 0);
    EXPECT_TRUE(fs::exists(work / "plain.vnkx"));
    EXPECT_EQ(IndexesOf("plain").size(), 1u);
    EXPECT_TRUE(finished.empty()) << "no segments, no segment callback";

    // The index of an existing archive goes below the index folder too.
    auto again = MakeArchive(work / "plain.vnkx");
    again->formatType = format::vnkx;
    RunToSuccess(*again, [&] { return again->MakeIndexFromVnkx(); });
    EXPECT_FALSE(again->showProgress) << "an index run keeps the progress hidden";
    std::vector<fs::path> indexes = IndexesOf("plain");
    ASSERT_EQ(indexes.size(), 2u);

    // Each index lists the archive's items without it.
    fs::rename(work / "plain.vnkx", work / "moved.vnkx");
    for (const fs::path &index : indexes) {
        auto listed = MakeArchive(index);
        EXPECT_TRUE(listed->GetArchiveInfo(false)) << index;
        EXPECT_EQ(listed->fileCount, 2u) << index;
    }
    // Expanding from an index asks where the archive is.
    host.QueueArchiveLocation(Wide(work / "moved.vnkx"));
    EXPECT_EQ(ExpandedNoise(indexes.front(), work / "from-index"),
              testsupport::ReadBytes(work / "src" / "noise.bin"));
}

}  // namespace
}  // namespace archivetest
