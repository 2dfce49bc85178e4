// What the engine's own zip writer adds: comments, items copied as they are
// stored when an archive changes, compression on several threads, items
// too large to take whole, and zip64.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class ZipTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        folder = Scratch("zip");
    }
    std::wstring CommentOf(const OpenedArchive &opened, const std::wstring &path) {
        OwnedItem item = path.empty() ? opened.Root() : opened.Item(path);
        OwnedString text;
        if (AcquireArchiveObjectStringProperty(item.get(), kItemPropComments, text.out()) !=
            kEngineOK)
            return L"<none>";
        return TextOf(text.get());
    }
    fs::path tree, folder;
};

TEST_F(ZipTest, CommentsOfOtherToolsAreReadAndOwnOnesWritten) {
    ASSERT_EQ(RunShell("zip -q -r archives.zip src && printf 'The archive says hi\\n' | zip -q -z "
                       "archives.zip && "
                       "printf 'about the readme\\n' | zip -q -c archives.zip src/readme.txt",
                       tree.parent_path())
                  .status,
              0);
    {
        OpenedArchive opened(engine, tree.parent_path() / "archives.zip");
        EXPECT_EQ(CommentOf(opened, L""), L"The archive says hi");
        EXPECT_EQ(CommentOf(opened, L"src/readme.txt"), L"about the readme");
        OwnedItem readme = opened.Item(L"src/readme.txt");
        EXPECT_TRUE(ArchiveObjectHasComments(readme.get()));
        OwnedItem blob = opened.Item(L"src/data/blob.bin");
        EXPECT_FALSE(ArchiveObjectHasComments(blob.get()));
        int64_t compressed = 0;
        ASSERT_EQ(GetArchiveObjectIntegerProperty(blob.get(), kItemPropCompressedSize, &compressed),
                  kEngineOK);
        EXPECT_GT(compressed, 0);
        EXPECT_LT(compressed, 300000);
    }

    fs::path archive = folder / "commented.zip";
    ASSERT_EQ(Create("zip", {tree}, archive), kEngineOK);
    {
        OpenedArchive opened(engine, archive, kEngineAccessChange);
        OwnedItem root = opened.Root();
        OwnedString text = Text(L"Zusammenfassung: Grüße");
        ASSERT_EQ(SetArchiveObjectStringProperty(root.get(), kItemPropComments, text.get()),
                  kEngineOK);
        OwnedItem deep = opened.Item(L"src/a/b/c/d/e/f/g/deep.txt");
        OwnedString note = Text(L"a note");
        ASSERT_EQ(SetArchiveObjectStringProperty(deep.get(), kItemPropComments, note.get()),
                  kEngineOK);
        EXPECT_EQ(CommentOf(opened, L""), L"Zusammenfassung: Grüße");
    }
    OpenedArchive reopened(engine, archive);
    EXPECT_EQ(CommentOf(reopened, L""), L"Zusammenfassung: Grüße");
    EXPECT_EQ(CommentOf(reopened, L"src/a/b/c/d/e/f/g/deep.txt"), L"a note");
    EXPECT_NE(RunShell("unzip -z " + Quote(archive)).output.find("Zusammenfassung"),
              std::string::npos);
    EXPECT_EQ(RunShell("unzip -tq " + Quote(archive)).status, 0);

    // Formats without comments say so.
    fs::path tar = folder / "plain.tar";
    ASSERT_EQ(Create("tar", {tree}, tar), kEngineOK);
    OpenedArchive tarArchive(engine, tar, kEngineAccessChange);
    OwnedItem root = tarArchive.Root();
    OwnedString text = Text(L"x");
    EXPECT_EQ(SetArchiveObjectStringProperty(root.get(), kItemPropComments, text.get()),
              kEnginePropertyNotApplicable);
}

TEST_F(ZipTest, ChangingAnEncipheredZipKeepsItsItemsAsTheyAreStored) {
    ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropEncryptMethod, 3), kEngineOK);
    OwnedString password = Text(L"pk-secret");
    fs::path archive = folder / "traditional.zip";
    ASSERT_EQ(Create("zip", {tree}, archive, nullptr, password.get()), kEngineOK);
    {
        OpenedArchive opened(engine, archive, kEngineAccessChange);
        Recorder recorder(engine);
        recorder.On(200, 9, [](NotificationContext) { return kNotificationStop; });
        OwnedItemList doomed;
        ASSERT_EQ(NewArchiveObjectList(engine, doomed.out()), kEngineOK);
        OwnedItem readme = opened.Item(L"src/readme.txt");
        ASSERT_EQ(AddToArchiveObjectList(readme.get(), doomed.get()), kEngineOK);
        // No password is asked for: nothing is deciphered.
        ASSERT_EQ(DeleteArchiveObjects(engine, doomed.get(), nullptr), kEngineOK);
        EXPECT_TRUE(recorder.Of(200, 9).empty());
    }
    EXPECT_EQ(RunShell("unzip -tq -P pk-secret " + Quote(archive)).status, 0);
    EXPECT_NE(RunShell("unzip -tq -P wrong " + Quote(archive)).status, 0);
    fs::path back = Scratch("back");
    ASSERT_EQ(Expand(archive, back, nullptr, password.get()), kEngineOK);
    EXPECT_EQ(ReadFile(back / "src" / "data" / "blob.bin"), ReadFile(tree / "data" / "blob.bin"));
    EXPECT_FALSE(fs::exists(back / "src" / "readme.txt"));
}

TEST_F(ZipTest, OneThreadOrManyTheArchiveHoldsTheSame) {
    for (int i = 0; i < 200; ++i)
        WriteFile(tree / "many" / ("file" + std::to_string(i) + ".txt"),
                  std::string(1000 + i * 37, static_cast<char>('a' + i % 26)));
    ASSERT_EQ(SetEngineBooleanProperty(engine, kEnginePropUseThreads, true), kEngineOK);
    ASSERT_EQ(Create("zip", {tree}, folder / "threads.zip"), kEngineOK);
    ASSERT_EQ(SetEngineBooleanProperty(engine, kEnginePropUseThreads, false), kEngineOK);
    ASSERT_EQ(Create("zip", {tree}, folder / "single.zip"), kEngineOK);
    for (const char *name : {"threads.zip", "single.zip"}) {
        EXPECT_EQ(RunShell("unzip -tq " + Quote(folder / name)).status, 0) << name;
        fs::path back = Scratch(std::string("back-") + name);
        ASSERT_EQ(Expand(folder / name, back), kEngineOK);
        EXPECT_EQ(Snapshot(back / "src"), Snapshot(tree)) << name;
    }
    OpenedArchive threaded(engine, folder / "threads.zip"), single(engine, folder / "single.zip");
    EXPECT_EQ(threaded.Listing(), single.Listing()) << "items keep their order";
}

// Methods beyond deflate, for the items taken whole and for one streamed:
// 7-Zip names each and reads it, libarchive and the engine expand it.
TEST_F(ZipTest, EveryMethodIsWrittenAndReadBackByOtherTools) {
    std::string text;
    for (int i = 0; i < 20000; ++i) text += "line " + std::to_string(i * 7919 % 1000) + "\n";
    WriteFile(tree / "lines.txt", text);
    const std::pair<int32_t, const char *> methods[] = {
        {2, "BZip2"}, {3, "LZMA:eos"}, {4, "zstd"}, {5, "xz"}};
    // No cipher, AES-256, the traditional cipher, as 7-Zip names them.
    const std::pair<int32_t, const char *> ciphers[] = {
        {0, ""}, {1, "AES-256 "}, {3, "ZipCrypto "}};
    OwnedString password = Text(L"pw");
    for (const auto &[method, name] : methods) {
        ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropCompMethod, method),
                  kEngineOK);
        for (const auto &[cipher, cipherName] : ciphers) {
            ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropEncryptMethod, cipher),
                      kEngineOK);
            const std::string label = cipherName + std::string(name);
            const std::string stem = "m" + std::to_string(method) + "c" + std::to_string(cipher);
            fs::path archive = folder / (stem + ".zip");
            ASSERT_EQ(Create("zip", {tree}, archive, nullptr, cipher ? password.get() : nullptr),
                      kEngineOK)
                << label;
            Shell listed = RunShell("7zz l -slt -ppw " + Quote(archive));
            EXPECT_NE(listed.output.find("Method = " + label), std::string::npos) << label << "\n"
                                                                                  << listed.output;
            EXPECT_EQ(RunShell("7zz t -ppw " + Quote(archive)).status, 0) << label;
            if (!cipher) {
                EXPECT_EQ(RunShell("bsdtar -xOf " + Quote(archive) + " >/dev/null").status, 0)
                    << label;
            }
            fs::path out = Scratch("out-" + stem);
            ASSERT_EQ(Expand(archive, out, nullptr, cipher ? password.get() : nullptr), kEngineOK)
                << label;
            EXPECT_EQ(Snapshot(out / "src"), Snapshot(tree)) << label;
        }
    }
}

TEST_F(ZipTest, AnItemTooLargeToTakeWholeIsStreamed) {
    fs::path big = Scratch("big") / "big.bin";
    std::string block(1 << 20, '\0');
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<char>((i * 2654435761u) >> 24);
    {
        std::string contents;
        for (int i = 0; i < 70; ++i) contents += block;
        WriteFile(big, contents);
    }
    OwnedString password = Text(L"large");
    // Deflate under each cipher; the other methods enciphered with AES.
    const std::pair<int32_t, int> runs[] = {{1, 0}, {1, 1}, {1, 3}, {2, 1}, {3, 1}, {4, 1}, {5, 1}};
    for (const auto &[method, encryption] : runs) {
        ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropCompMethod, method),
                  kEngineOK);
        ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropEncryptMethod, encryption),
                  kEngineOK);
        fs::path archive =
            folder / ("big" + std::to_string(method) + std::to_string(encryption) + ".zip");
        ASSERT_EQ(Create("zip", {big}, archive, nullptr, encryption ? password.get() : nullptr),
                  kEngineOK);
        EXPECT_EQ(RunShell("7zz t -plarge " + Quote(archive)).status, 0) << method << encryption;
        OwnedFS file = Path(archive);
        EXPECT_EQ(VerifyArchive(engine, file.get(), encryption ? password.get() : nullptr),
                  kEngineOK)
            << method << encryption;
    }
}

// Deflate64 is decoded by the engine itself: long matches (length code 285
// and its 16 extra bits), distances past 32 KiB, stored blocks between
// coded ones, and an empty item; flipped or cut data is refused.
TEST_F(ZipTest, Deflate64ItemsOfAnotherToolExpandAndDamageIsFound) {
    fs::path in = Scratch("d64") / "in";
    std::string far(50000, ' '), noise(200000, '\0');
    std::uint32_t seed = 7;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
    for (char &c : far) c = "abcdefghij \n"[(next() >> 16) % 12];
    for (char &c : noise) c = static_cast<char>(next() >> 24);
    std::string repeats;
    for (int i = 0; i < 8; ++i) {
        repeats += far;
        repeats[repeats.size() - 1 - (next() >> 16) % far.size()] = 'X';
    }
    WriteFile(in / "zeros", std::string(1000000, '\0'));
    WriteFile(in / "far", repeats);
    WriteFile(in / "mixed", noise + repeats.substr(0, 100000) + noise);
    WriteFile(in / "empty", "");
    fs::path archive = folder / "d64.zip";
    ASSERT_EQ(RunShell("7zz a -tzip -mm=Deflate64 -mx9 " + Quote(archive) + " .", in).status, 0);

    fs::path out = Scratch("d64-out");
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(Snapshot(out), Snapshot(in));
    OwnedFS file = Path(archive);
    EXPECT_EQ(VerifyArchive(engine, file.get(), nullptr), kEngineOK);

    const std::string whole = ReadFile(archive);
    // The data of "far": past its local header's name and extra field.
    const std::size_t header = whole.find("far") - 30;
    const auto field = [&whole](std::size_t at) {
        return static_cast<std::uint8_t>(whole[at]) | static_cast<std::uint8_t>(whole[at + 1]) << 8;
    };
    ASSERT_EQ(whole.compare(header, 4, "PK\3\4"), 0);
    ASSERT_EQ(field(header + 8), 9);  // Deflate64
    const std::size_t data = header + 30 + field(header + 26) + field(header + 28);
    for (std::size_t at : {data + 2, data + 200, data + 5000}) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
        fs::path bad = folder / ("flipped" + std::to_string(at) + ".zip");
        WriteFile(bad, damaged);
        OwnedFS badFile = Path(bad);
        EXPECT_NE(VerifyArchive(engine, badFile.get(), nullptr), kEngineOK) << at;
    }
}

TEST_F(ZipTest, ItemsBeyondFourGibibytesUseZip64) {
    fs::path huge = Scratch("huge") / "sparse.bin";
    {
        int fd = open(huge.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(ftruncate(fd, (4LL << 30) + 12345), 0);
        ASSERT_EQ(pwrite(fd, "end", 3, (4LL << 30) + 12000), 3);
        close(fd);
    }
    ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropCompressionLevel, 1), kEngineOK);
    fs::path archive = folder / "huge.zip";
    ASSERT_EQ(Create("zip", {huge}, archive), kEngineOK);
    EXPECT_LT(fs::file_size(archive), 64u << 20);
    OpenedArchive opened(engine, archive);
    OwnedItem item = opened.Item(L"sparse.bin");
    int64_t size = 0;
    ASSERT_EQ(GetArchiveObjectIntegerProperty(item.get(), kItemPropExpandedSize, &size), kEngineOK);
    EXPECT_EQ(size, (4LL << 30) + 12345);
    Shell listed = RunShell("unzip -l " + Quote(archive));
    EXPECT_NE(listed.output.find("4294979641"), std::string::npos) << listed.output;
    OwnedFS file = Path(archive);
    EXPECT_EQ(VerifyArchive(engine, file.get(), nullptr), kEngineOK);
}

TEST_F(ZipTest, RecoveringKeepsEveryIntactItemUnderTheArchivesName) {
    fs::path archive = folder / "damaged.zip";
    ASSERT_EQ(Create("zip", {tree}, archive), kEngineOK);
    std::string bytes = ReadFile(archive);
    fs::path out = Scratch("recovered");
    OwnedFS destination = Path(out);

    // The central directory cut off: every item is found by its header.
    std::size_t directory = bytes.find(std::string("PK\x01\x02", 4));
    ASSERT_NE(directory, std::string::npos);
    WriteFile(archive, bytes.substr(0, directory + 10));
    OwnedFS file = Path(archive);
    ASSERT_EQ(RecoverArchive(engine, file.get(), destination.get(), 0, nullptr), kEngineOK);
    EXPECT_EQ(RunShell("unzip -tq " + Quote(out / "damaged.zip")).status, 0);
    fs::path back = Scratch("back");
    ASSERT_EQ(Expand(out / "damaged.zip", back), kEngineOK);
    EXPECT_EQ(Snapshot(back / "src"), Snapshot(tree));

    // Damaged data: that item is left out, the rest kept, and the code says so.
    std::size_t blob = bytes.find("blob.bin");
    for (std::size_t i = blob + 100; i < blob + 160; ++i)
        bytes[i] = static_cast<char>(bytes[i] ^ 0x5A);
    WriteFile(archive, bytes);
    ASSERT_EQ(RecoverArchive(engine, file.get(), destination.get(), 0, nullptr),
              kEngineItemDataDamaged);
    OpenedArchive repaired(engine, out / "damaged.zip");
    std::vector<std::wstring> listing = repaired.Listing();
    EXPECT_EQ(std::find(listing.begin(), listing.end(), L"src/data/blob.bin"), listing.end());
    EXPECT_NE(std::find(listing.begin(), listing.end(), L"src/readme.txt"), listing.end());

    // The damaged archive is never written over.
    OwnedFS same = Path(folder);
    EXPECT_EQ(RecoverArchive(engine, file.get(), same.get(), 0, nullptr),
              kEngineDestinationRefused);
    // Nothing left to keep.
    WriteFile(archive, std::string("PK\x03\x04", 4) + std::string(100, 'x'));
    EXPECT_EQ(RecoverArchive(engine, file.get(), destination.get(), 0, nullptr),
              kEngineNotRecoverable);
}

}  // namespace
}  // namespace enginetest
