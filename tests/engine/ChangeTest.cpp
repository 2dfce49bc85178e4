// Changing archives in place (by a rewrite that the close puts in place),
// verifying them, transforming them, and reading items and their data.
#include <algorithm>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class ChangeTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        folder = Scratch("change");
        extra = Scratch("extra");
        WriteFile(extra / "added.txt", "added later\n");
        WriteFile(extra / "more" / "inner.txt", "inner\n");
    }
    fs::path MadeArchive(const char *id, const std::string &name) {
        fs::path archive = folder / name;
        EXPECT_EQ(Create(id, {tree}, archive), kEngineOK);
        return archive;
    }
    static bool Has(const std::vector<std::wstring> &listing, const std::wstring &item) {
        return std::find(listing.begin(), listing.end(), item) != listing.end();
    }
    fs::path tree, folder, extra;
};

TEST_F(ChangeTest, AddDeleteNewFolderAndRenameTakeEffectWhenTheArchiveCloses) {
    for (const char *id : {"zip", "tar", "sevenz"}) {
        fs::path archive = MadeArchive(id, std::string("changed.") + id);
        std::string before = ReadFile(archive);
        {
            OpenedArchive opened(engine, archive, kEngineAccessChange);
            ASSERT_EQ(opened.status(), kEngineOK) << id;
            OwnedItem data = opened.Item(L"src/data");
            OwnedFSList sources = PathList(engine, {extra / "added.txt", extra / "more"});
            OwnedItemList added;
            ASSERT_EQ(AddItemsToArchive(engine, data.get(), sources.get(), added.out(), nullptr),
                      kEngineOK)
                << id;
            EXPECT_EQ(CountArchiveObjectList(added.get()), 2u);

            OwnedItem root = opened.Root();
            OwnedString name = Text(L"fresh");
            OwnedItem fresh;
            ASSERT_EQ(AcquireNewFolderInArchive(engine, root.get(), name.get(), 0, fresh.out()),
                      kEngineOK)
                << id;

            OwnedItemList doomed;
            ASSERT_EQ(NewArchiveObjectList(engine, doomed.out()), kEngineOK);
            OwnedItem blob = opened.Item(L"src/data/blob.bin");
            ASSERT_EQ(AddToArchiveObjectList(blob.get(), doomed.get()), kEngineOK);
            ASSERT_EQ(DeleteArchiveObjects(engine, doomed.get(), nullptr), kEngineOK) << id;

            OwnedItem readme = opened.Item(L"src/readme.txt");
            OwnedString renamed = Text(L"README.md");
            ASSERT_EQ(SetArchiveObjectStringProperty(readme.get(), kItemPropName, renamed.get()),
                      kEngineOK)
                << id;
            OwnedString held;
            ASSERT_EQ(AcquireArchiveObjectName(readme.get(), held.out()), kEngineOK);
            EXPECT_EQ(TextOf(held.get()), L"README.md")
                << "a handle follows its item through changes";

            std::vector<std::wstring> listing = opened.Listing();
            EXPECT_TRUE(Has(listing, L"src/data/added.txt")) << id;
            EXPECT_TRUE(Has(listing, L"src/data/more/inner.txt")) << id;
            EXPECT_TRUE(Has(listing, L"fresh/")) << id;
            EXPECT_TRUE(Has(listing, L"src/README.md")) << id;
            EXPECT_FALSE(Has(listing, L"src/data/blob.bin")) << id;
            EXPECT_EQ(ReadFile(archive), before) << id << ": the archive is untouched until closed";
            ASSERT_EQ(opened.Close(), kEngineOK);
        }
        EXPECT_NE(ReadFile(archive), before) << id;
        fs::path back = Scratch(std::string("back-") + id);
        ASSERT_EQ(Expand(archive, back), kEngineOK) << id;
        std::map<std::string, std::string> got = Snapshot(back);
        EXPECT_EQ(got["src/data/added.txt"], "added later\n") << id;
        EXPECT_EQ(got["src/data/more/inner.txt"], "inner\n") << id;
        EXPECT_EQ(got["src/README.md"], "Hello, archive.\n") << id;
        EXPECT_EQ(got["fresh"], "<dir>") << id;
        EXPECT_FALSE(got.count("src/data/blob.bin")) << id;
        EXPECT_EQ(got["src/a/b/c/d/e/f/g/deep.txt"], "deep\n") << id;
        for (const auto &entry : fs::directory_iterator(folder))
            EXPECT_EQ(entry.path().filename().string().rfind(".changed", 0), std::string::npos)
                << "a temporary file stayed: " << entry.path();
    }
}

TEST_F(ChangeTest, ACancelledChangeLeavesTheArchiveAsItWas) {
    fs::path archive = MadeArchive("zip", "kept.zip");
    std::string before = ReadFile(archive);
    {
        OpenedArchive opened(engine, archive, kEngineAccessChange);
        Recorder recorder(engine);
        recorder.On(100, 6, [](NotificationContext) { return kNotificationStop; });
        OwnedItemList doomed;
        ASSERT_EQ(NewArchiveObjectList(engine, doomed.out()), kEngineOK);
        OwnedItem readme = opened.Item(L"src/readme.txt");
        ASSERT_EQ(AddToArchiveObjectList(readme.get(), doomed.get()), kEngineOK);
        EXPECT_EQ(DeleteArchiveObjects(engine, doomed.get(), nullptr), kEngineCancelled);
        EXPECT_TRUE(Has(opened.Listing(), L"src/readme.txt"));
    }
    EXPECT_EQ(ReadFile(archive), before);
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    EXPECT_EQ(names, std::vector<std::string>{"kept.zip"});
}

TEST_F(ChangeTest, ChangesNeedModeChangeAndAChangeableFormat) {
    fs::path archive = MadeArchive("zip", "readonly.zip");
    OpenedArchive opened(engine, archive, kEngineAccessRead);
    OwnedItem root = opened.Root();
    OwnedString name = Text(L"x");
    OwnedItem made;
    EXPECT_EQ(AcquireNewFolderInArchive(engine, root.get(), name.get(), 0, made.out()),
              kEngineReadOnlyMedium);

    fs::path gz = folder / "one.gz";
    ASSERT_EQ(Create("gz", {tree / "readme.txt"}, gz), kEngineOK);
    OpenedArchive single(engine, gz, kEngineAccessChange);
    EXPECT_EQ(single.status(), kEngineReadOnlyMedium);

    OpenedArchive changeable(engine, archive, kEngineAccessChange);
    OwnedItem item = changeable.Item(L"src/readme.txt");
    OwnedString taken = Text(L"hollow");
    OwnedItem src = changeable.Item(L"src");
    OwnedString clash = Text(L"hollow");
    OwnedItem data = changeable.Item(L"src/data");
    EXPECT_EQ(SetArchiveObjectStringProperty(data.get(), kItemPropName, clash.get()),
              kEngineDuplicateItem);
    OwnedString slash = Text(L"a/b");
    EXPECT_EQ(SetArchiveObjectStringProperty(item.get(), kItemPropName, slash.get()),
              kEngineInvalidParameter);
}

TEST_F(ChangeTest, AnEmptyArchiveIsMadeAndFilledLater) {
    fs::path archive = folder / "empty.zip";
    OwnedFS file = Path(archive);
    EngineArchive made = nullptr;
    ASSERT_EQ(AcquireNewArchiveFromFSObject(engine, file.get(), "zip", &made), kEngineOK);
    EXPECT_EQ(RunShell("7zz t " + Quote(archive)).status, 0);
    ASSERT_EQ(OpenArchive(engine, made, kEngineAccessChange), kEngineOK);
    ArchiveObject root = nullptr;
    ASSERT_EQ(AcquireRootArchiveObject(made, &root), kEngineOK);
    OwnedFSList sources = PathList(engine, {tree / "readme.txt"});
    OwnedItemList added;
    ASSERT_EQ(AddItemsToArchive(engine, root, sources.get(), added.out(), nullptr), kEngineOK);
    ReleaseArchiveObject(root);
    CloseArchive(made);
    ReleaseArchive(made);
    EXPECT_EQ(RunShell("unzip -tq " + Quote(archive)).status, 0);
    EXPECT_EQ(AcquireNewArchiveFromFSObject(engine, file.get(), "gz", &made),
              kEngineItemKindUnsupported);
}

TEST_F(ChangeTest, VerifyReadsEverythingAndFindsDamage) {
    fs::path archive = MadeArchive("zip", "verified.zip");
    OwnedFS file = Path(archive);
    Recorder recorder(engine);
    recorder.OnAll();
    EXPECT_EQ(VerifyArchive(engine, file.get(), nullptr), kEngineOK);
    EXPECT_FALSE(recorder.Of(100, 8).empty());

    // Flip bytes inside the blob's compressed data.
    std::string bytes = ReadFile(archive);
    std::size_t at = bytes.find("blob.bin");
    ASSERT_NE(at, std::string::npos);
    for (std::size_t i = at + 200; i < at + 260; ++i) bytes[i] = static_cast<char>(bytes[i] ^ 0x55);
    fs::path damaged = folder / "damaged.zip";
    WriteFile(damaged, bytes);
    OwnedFS damagedFile = Path(damaged);
    EngineResult result = VerifyArchive(engine, damagedFile.get(), nullptr);
    EXPECT_TRUE(result == kEngineItemDataDamaged || result == kEngineArchiveTruncated) << result;

    // Stored data has no stream of its own to catch a change: the CRC must.
    fs::path plain = Scratch("plain");
    WriteFile(plain / "note.txt", std::string(4000, 'n'));
    fs::path stored = folder / "stored.zip";
    ASSERT_EQ(RunShell("cd " + Quote(plain) + " && zip -q0X " + Quote(stored) + " note.txt").status,
              0);
    bytes = ReadFile(stored);
    bytes[bytes.find("nnnn") + 1000] = 'x';
    WriteFile(stored, bytes);
    OwnedFS storedFile = Path(stored);
    EXPECT_EQ(VerifyArchive(engine, storedFile.get(), nullptr), kEngineItemDataDamaged);
}

TEST_F(ChangeTest, TransformWritesAZipBesideTheSourceUnderAFreeName) {
    ASSERT_EQ(SetEngineFormatIDProperty(engine, kEnginePropPostEncodingFormat, "gz"), kEngineOK);
    fs::path source = MadeArchive("tar", "bundle.tgz");
    WriteFile(folder / "bundle.zip", "taken");
    OwnedFS file = Path(source);
    OwnedFS result;
    ASSERT_EQ(
        TransformArchive(engine, file.get(), nullptr, result.out(), "zip", nullptr, nullptr, 1, 0),
        kEngineOK);
    EXPECT_EQ(PathOf(result.get()), (folder / "bundle_1.zip").wstring());
    EXPECT_EQ(RunShell("unzip -tq " + Quote(folder / "bundle_1.zip")).status, 0);
    fs::path back = Scratch("transformed");
    ASSERT_EQ(Expand(folder / "bundle_1.zip", back), kEngineOK);
    EXPECT_EQ(Snapshot(back / "src"), Snapshot(tree));

    // With a new password, and into a named destination.
    OwnedString password = Text(L"newpass");
    OwnedFS destination = Path(folder / "locked.zip");
    ASSERT_EQ(TransformArchive(engine, file.get(), destination.get(), result.out(), "zip", nullptr,
                               password.get(), 1, 0),
              kEngineOK);
    EXPECT_EQ(RunShell("7zz t -pnewpass " + Quote(folder / "locked.zip")).status, 0);

    // And back without it, the old password opening the source.
    OwnedFS lockedFile = Path(folder / "locked.zip");
    OwnedFS plainDestination = Path(folder / "open.zip");
    ASSERT_EQ(TransformArchive(engine, lockedFile.get(), plainDestination.get(), result.out(),
                               "zip", password.get(), nullptr, 1, 0),
              kEngineOK);
    EXPECT_EQ(RunShell("unzip -tq " + Quote(folder / "open.zip")).status, 0);
}

TEST_F(ChangeTest, ItemsIteratorsPropertiesAndForkData) {
    fs::path archive = MadeArchive("zip", "items.zip");
    OpenedArchive opened(engine, archive);
    OwnedItem data = opened.Item(L"src/data/");
    OwnedIterator walk;
    ASSERT_EQ(NewArchiveIterator(data.get(), walk.out()), kEngineOK);
    OwnedItem first, again, second;
    ASSERT_EQ(AcquireCurrentArchiveObject(walk.get(), first.out()), kEngineOK);
    ASSERT_EQ(AcquireCurrentArchiveObject(walk.get(), again.out()), kEngineOK);
    ASSERT_EQ(AcquireNextArchiveObject(walk.get(), second.out()), kEngineOK);
    OwnedString a, b, c;
    AcquireArchiveObjectName(first.get(), a.out());
    AcquireArchiveObjectName(again.get(), b.out());
    AcquireArchiveObjectName(second.get(), c.out());
    EXPECT_EQ(TextOf(a.get()), TextOf(b.get()));
    EXPECT_NE(TextOf(a.get()), TextOf(c.get()));

    OwnedItem hollow = opened.Item(L"src/hollow");
    OwnedIterator empty;
    ASSERT_EQ(NewArchiveIterator(hollow.get(), empty.out()), kEngineOK);
    OwnedItem none;
    EXPECT_EQ(AcquireCurrentArchiveObject(empty.get(), none.out()), kEngineNoMoreObjects);
    OwnedItem missing;
    OwnedString nowhere = Text(L"src/nowhere");
    EXPECT_EQ(AcquireArchiveObjectFromPath(opened.get(), nowhere.get(), missing.out()),
              kEngineNoMoreObjects);

    OwnedItem blob = opened.Item(L"src/data/blob.bin");
    int64_t size = 0;
    ASSERT_EQ(GetArchiveObjectIntegerProperty(blob.get(), kItemPropExpandedSize, &size), kEngineOK);
    EXPECT_EQ(size, 300000);
    EngineDateTime modified = 0;
    ASSERT_EQ(GetArchiveObjectDateTimeProperty(blob.get(), kItemPropModificationDate, &modified),
              kEngineOK);
    EXPECT_GT(modified, 130000000000000000ULL);  // after 2012
    bool flag = true;
    ASSERT_EQ(GetArchiveObjectBooleanProperty(blob.get(), kItemPropFolder, &flag), kEngineOK);
    EXPECT_FALSE(flag);
    OwnedString comment;
    EXPECT_EQ(AcquireArchiveObjectStringProperty(blob.get(), kItemPropComments, comment.out()),
              kEnginePropertyAbsent);
    EXPECT_FALSE(ArchiveObjectHasComments(blob.get()));
    EXPECT_TRUE(ArchiveObjectPropertyAvailable(blob.get(), kItemPropExpandedSize));

    OwnedItem root = opened.Root();
    ASSERT_EQ(GetArchiveObjectIntegerProperty(root.get(), kItemPropCompressedSize, &size),
              kEngineOK);
    EXPECT_EQ(size, static_cast<int64_t>(fs::file_size(archive)));
    ASSERT_EQ(GetArchiveObjectIntegerProperty(root.get(), kItemPropExpandedSize, &size), kEngineOK);
    EXPECT_EQ(size, 300000 + 16 + 13 + 5);

    ArchiveObjectFork fork = nullptr;
    ASSERT_EQ(GetArchiveObjectFork(blob.get(), kForkData, &fork), kEngineOK);
    uint64_t forkSize = 0;
    ASSERT_EQ(GetArchiveObjectForkSize(fork, &forkSize), kEngineOK);
    std::string buffer(forkSize, '\0');
    uint64_t count = 0;
    ASSERT_EQ(GetArchiveObjectForkData(engine, fork, buffer.data(), static_cast<uint32_t>(forkSize),
                                       0, &count, nullptr),
              kEngineOK);
    EXPECT_EQ(count, forkSize);
    EXPECT_TRUE(buffer == ReadFile(tree / "data" / "blob.bin"));
    ArchiveObjectFork thumb = nullptr;
    EXPECT_EQ(GetArchiveObjectFork(blob.get(), kForkThumbnail, &thumb), kEngineNoSuchFork);
}

TEST_F(ChangeTest, SegmentsAndIndexesBelongToTheOwnFormat) {
    OwnedFSList sources = PathList(engine, {tree});
    OwnedFS output = Path(folder / "parts.zip");
    OwnedFS index = Path(folder / "parts.vidx");
    OwnedFSList segments;
    EXPECT_EQ(CreateSegmentsWithFormat(engine, sources.get(), output.get(), segments.out(), "zip",
                                       1 << 20, 0, nullptr),
              kEngineNotAnArchive);
    OwnedFS result;
    EXPECT_EQ(ArchiveFSObjectListCreatingIndex(engine, "zip", sources.get(), output.get(),
                                               result.out(), nullptr, index.get()),
              kEngineWrongFormat);
    EXPECT_FALSE(fs::exists(folder / "parts.zip"));
    fs::path archive = MadeArchive("zip", "plain.zip");
    OpenedArchive opened(engine, archive);
    OwnedItem readme = opened.Item(L"src/readme.txt");
    EXPECT_TRUE(ArchiveObjectHasProperty(readme.get(), kItemPropModificationDate));
    EXPECT_FALSE(ArchiveObjectHasProperty(readme.get(), kItemPropComments));
}

}  // namespace
}  // namespace enginetest
