// Looking into archives made in the test: counts, sizes, comment, access
// mode and the item tree of each readable kind, the single-stream kinds, the
// files that are not archives, encryption, renaming and comments.
#include <gtest/gtest.h>

#include <algorithm>

#include "CArchiveInfo.h"
#include "archive/FacadeTest.h"

namespace {

using archivetest::FacadeTest;

class CArchiveInfoTest : public FacadeTest {
protected:
    std::vector<std::wstring> Paths(const CArchive &archive) const {
        std::vector<std::wstring> paths;
        for (const CArchiveItem &item : archive.archiveObject->items) paths.push_back(item.path);
        std::sort(paths.begin(), paths.end());
        return paths;
    }
    const CArchiveItem *Item(const CArchive &archive, const std::wstring &path) const {
        for (const CArchiveItem &item : archive.archiveObject->items) {
            if (item.path == path) return &item;
        }
        return nullptr;
    }

    const std::vector<std::wstring> kSampleTree{L"a.txt", L"docs/", L"docs/b.txt", L"docs/sub/",
                                                L"docs/sub/c.txt"};
};

TEST_F(CArchiveInfoTest, ZipGivesCountsSizesCommentModeAndTree) {
    std::filesystem::path zip = SampleZip();
    ASSERT_TRUE(RunIn(work, "echo 'the comment' | zip -qz sample.zip"));
    auto archive = MakeArchive(zip);
    ASSERT_TRUE(archive->GetArchiveInfo(false));
    EXPECT_EQ(archive->formatType, format::zip);
    EXPECT_EQ(archive->fileCount, 3u);
    EXPECT_EQ(archive->folderCount, 3u) << "the root and two folders";
    EXPECT_EQ(archive->expandedSize, 3001u);
    EXPECT_LT(archive->compressedSize, 3001u);
    EXPECT_EQ(archive->archiveSize, std::filesystem::file_size(zip));
    EXPECT_EQ(archive->comment.substr(0, 11), L"the comment");
    EXPECT_EQ(archive->accessMode, 255u);
    EXPECT_EQ(archive->modeText, Text(309));
    EXPECT_EQ(Paths(*archive), kSampleTree);
    const CArchiveItem *b = Item(*archive, L"docs/b.txt");
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->name, L"b.txt");
    EXPECT_EQ(b->expandedSize, 2000u);
    EXPECT_TRUE(Item(*archive, L"docs/")->IsFolder());

    // Read again: the listing is replaced, not appended.
    ASSERT_TRUE(archive->GetArchiveInfo(false));
    EXPECT_EQ(archive->archiveObject->items.size(), kSampleTree.size());
}

TEST_F(CArchiveInfoTest, SevenZipTgzAndArjKindsListTheSameTree) {
    SampleZip();
    const std::pair<std::string, std::string> kinds[] = {
        {"sample.7z", "cd src && 7zz a -bso0 -bsp0 ../sample.7z a.txt docs"},
        {"sample.tgz", "cd src && tar czf ../sample.tgz a.txt docs"},
        // An old archiver's kind, listed by the engine's own reader.
        {"sample.arj", "cd src && arj a -r -y ../sample.arj '*' >/dev/null"},
    };
    for (const auto &[made, command] : kinds) {
        auto archive = MakeArchive(Make(made, command));
        ASSERT_TRUE(archive->GetArchiveInfo(false)) << made;
        EXPECT_EQ(archive->fileCount, 3u) << made;
        EXPECT_EQ(archive->folderCount, 3u) << made;
        EXPECT_EQ(archive->expandedSize, 3001u) << made;
        EXPECT_EQ(Paths(*archive), kSampleTree) << made;
    }
}

TEST_F(CArchiveInfoTest, SingleStreamIsOneItemOfTheFilesSizeReadOnly) {
    Put("one.txt", std::string(5000, 'x'));
    std::filesystem::path gz = Make("one.txt.gz", "gzip -k one.txt");
    auto archive = MakeArchive(gz);
    EXPECT_TRUE(archive->GetArchiveInfo(false));
    EXPECT_EQ(archive->formatType, format::gz);
    EXPECT_EQ(archive->fileCount, 1u);
    EXPECT_EQ(archive->compressedSize, std::filesystem::file_size(gz));
    EXPECT_EQ(archive->modeText, Text(2201));
    EXPECT_EQ(archive->accessMode, 7u);
    EXPECT_TRUE(archive->archiveObject->items.empty()) << "not walked";
}

TEST_F(CArchiveInfoTest, MissingFilesAndNonArchivesStopWithTheirMessages) {
    auto missing = MakeArchive(work / "nowhere.zip");
    EXPECT_FALSE(missing->GetArchiveInfo(false));
    auto boxes = host.Recorded();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_NE(boxes[0].text.find(L"nowhere.zip"), std::wstring::npos);
    EXPECT_EQ(missing->fileCount, 0u);

    auto fake = MakeArchive(Put("fake.zip", "this is plain text, not a zip at all"));
    EXPECT_FALSE(fake->GetArchiveInfo(false));
    EXPECT_TRUE(fake->archiveObject->stop);
    EXPECT_NE(fake->lastResult, 0);
    EXPECT_NE(ErrorFileText().find("OpenArchive"), std::string::npos);
}

TEST_F(CArchiveInfoTest, EncryptedZipPromptsOnceAndACancelIsNotAskedAgain) {
    Put("enc/one.txt", "1");
    Put("enc/two.txt", "2");
    std::filesystem::path zip =
        Make("enc.zip", "cd enc && zip -q -P right ../enc.zip one.txt two.txt");
    auto archive = MakeArchive(zip);
    host.QueuePassword(std::nullopt);
    archive->GetArchiveInfo(false);
    EXPECT_TRUE(archive->encrypted);
    EXPECT_EQ(host.Prompts().size(), 1u);
    EXPECT_TRUE(archive->archiveObject->stop);
    EXPECT_TRUE(archive->archiveObject->passwordPromptCancelled);
    EXPECT_FALSE(archive->passwordRefused) << "the password pair is the call's alone";
    EXPECT_EQ(archive->fileCount, 2u) << "the walk goes on";
    EXPECT_TRUE(Item(*archive, L"two.txt")->encrypted);

    auto accepted = MakeArchive(zip);
    host.QueuePassword(L"right");
    ASSERT_TRUE(accepted->GetArchiveInfo(false));
    EXPECT_EQ(accepted->password, L"right");
    EXPECT_EQ(host.Prompts().size(), 2u) << "a known password is not asked for";
}

// Only the items of a vnkx archive are walked: an enciphered zip whose
// catalogue opens without a password does not count as encrypted.
TEST_F(CArchiveInfoTest, IsEncryptedLooksAtTheOpenForOtherFormatsQuirk) {
    Put("enc/one.txt", "1");
    auto headers = MakeArchive(
        Make("hidden.7z", "cd enc && 7zz a -bso0 -bsp0 -pright -mhe=on ../hidden.7z one.txt"));
    EXPECT_TRUE(headers->IsEncrypted());
    EXPECT_TRUE(headers->encrypted);
    EXPECT_EQ(headers->lastResult, 0);

    auto items = MakeArchive(Make("items.zip", "cd enc && zip -q -P right ../items.zip one.txt"));
    EXPECT_FALSE(items->IsEncrypted());
    auto plain = MakeArchive(SampleZip());
    EXPECT_FALSE(plain->IsEncrypted());
}

TEST_F(CArchiveInfoTest, RenameAndCommentChangeTheArchiveInPlace) {
    auto archive = MakeArchive(SampleZip());
    EXPECT_TRUE(archive->RenameArchiveItem(L"docs/b.txt", L"renamed.txt"));
    EXPECT_TRUE(archive->changed);
    EXPECT_FALSE(archive->RenameArchiveItem(L"docs/none.txt", L"x.txt"));
    EXPECT_NE(archive->lastResult, 0);

    // The vnkx comment calls work on any format that keeps a comment.
    EXPECT_TRUE(archive->SetVnkxComment(L"new comment"));
    archive->comment.clear();
    EXPECT_TRUE(archive->GetVnkxComment());
    EXPECT_EQ(archive->comment, L"new comment");

    ASSERT_TRUE(archive->GetArchiveInfo(false));
    EXPECT_NE(Item(*archive, L"docs/renamed.txt"), nullptr);
    EXPECT_EQ(Item(*archive, L"docs/b.txt"), nullptr);
    EXPECT_EQ(archive->comment, L"new comment");
    EXPECT_EQ(
        std::system(("unzip -tq '" + (work / "sample.zip").string() + "' >/dev/null").c_str()), 0);
}

TEST_F(CArchiveInfoTest, VnkxInfoAndItemEncryption) {
    SampleZip();
    const std::vector<std::filesystem::path> sources{work / "src/a.txt", work / "src/docs"};
    ASSERT_EQ(Create(work / "plain.vnkx", sources, "vnkx"), 0);
    ASSERT_EQ(Create(work / "locked.vnkx", sources, "vnkx", L"geheim"), 0);

    auto plain = MakeArchive(work / "plain.vnkx");
    ASSERT_TRUE(plain->GetArchiveInfo(false));
    EXPECT_EQ(plain->formatType, format::vnkx);
    EXPECT_EQ(Paths(*plain), kSampleTree);
    EXPECT_FALSE(plain->IsEncrypted());

    // The item prompt is zip's: a vnkx with enciphered items lists without
    // asking, and its encrypted flag says whether a password is known.
    auto locked = MakeArchive(work / "locked.vnkx");
    ASSERT_TRUE(locked->GetArchiveInfo(false));
    EXPECT_TRUE(host.Prompts().empty());
    EXPECT_EQ(locked->fileCount, 3u);
    EXPECT_TRUE(locked->encrypted) << "an item said so";
    EXPECT_TRUE(Item(*locked, L"a.txt")->encrypted);
    locked->encrypted = false;
    EXPECT_TRUE(locked->IsEncrypted()) << "the items of a vnkx are walked";
}

}  // namespace
