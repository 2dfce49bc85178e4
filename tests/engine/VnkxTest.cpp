// The own format vnkx and its classic form vnk5: every method round trip,
// changes that copy blocks as stored, both ciphers with and without hidden
// names, damage found and survived, duplicates folded, transforms, the first
// version, and the trailer and signature bytes as the format's description
// lays them out.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "EngineFixture.h"
#include "OrderedWorkerPool.h"
#include "VnkxBlockPlan.h"

namespace enginetest {
namespace {

class VnkxTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        folder = Scratch("vnkx");
        // Dense near calls, as in machine code, with operands of every kind,
        // so that the branch filter is chosen and undone.
        std::string code;
        for (unsigned i = 0, x = 7; i < 60000; ++i) {
            x = x * 1664525u + 1013904223u;
            code += '\xE8';
            for (int k = 0; k < 3; ++k) code += static_cast<char>(x >> (8 * k));
            code += (i % 3 == 0) ? '\0' : (i % 3 == 1) ? '\xFF' : static_cast<char>(x >> 24);
            code += static_cast<char>(i % 7 == 0 ? 0xE8 : x >> 13);
        }
        WriteFile(tree / "data" / "code.bin", code);
    }
    void SetBool(const char *name, bool value) {
        ASSERT_EQ(SetFormatBooleanProperty(engine, "vnkx", name, value), kEngineOK);
    }
    void SetVnkx(const char *name, int32_t value) {
        ASSERT_EQ(SetFormatIntegerProperty(engine, "vnkx", name, value), kEngineOK);
    }
    fs::path Made(const std::string &name, const char *format = "vnkx",
                  const std::wstring &password = L"") {
        fs::path archive = folder / name;
        OwnedString secret = password.empty() ? OwnedString() : Text(password);
        EXPECT_EQ(Create(format, {tree}, archive, nullptr, secret.get()), kEngineOK) << name;
        return archive;
    }
    EngineResult Verify(const fs::path &archive, const std::wstring &password = L"") {
        OwnedFS file = Path(archive);
        OwnedString secret = password.empty() ? OwnedString() : Text(password);
        return VerifyArchive(engine, file.get(), secret.get());
    }
    // Expands and compares with the sample tree.
    void ExpectRoundTrip(const fs::path &archive, const std::string &label,
                         const std::wstring &password = L"") {
        fs::path out = Scratch("out-" + label);
        OwnedString secret = password.empty() ? OwnedString() : Text(password);
        ASSERT_EQ(Expand(archive, out, nullptr, secret.get()), kEngineOK) << label;
        EXPECT_EQ(Snapshot(out / "src"), Snapshot(tree)) << label;
    }
    fs::path tree, folder;
};

TEST_F(VnkxTest, EveryMethodRoundTripsAndVerifies) {
    for (int32_t method = 1; method <= 9; ++method) {
        SetVnkx(kFormatPropCompMethod, method);
        std::string name = "method" + std::to_string(method) + ".vnkx";
        fs::path archive = Made(name);
        EXPECT_EQ(FormatOf(archive), "vnkx") << name;
        EXPECT_EQ(Verify(archive), kEngineOK) << name;
        ExpectRoundTrip(archive, name);
    }
    // Presets, one block per file, no filters, and a single thread.
    for (int32_t degree = 1; degree <= 5; ++degree) {
        SetVnkx(kFormatPropCompressionDegree, degree);
        SetBool(kFormatPropBlockMode, degree % 2 == 0);
        SetBool(kFormatPropFilters, degree != 3);
        ASSERT_EQ(SetEngineBooleanProperty(engine, kEnginePropUseThreads, degree != 4), kEngineOK);
        std::string name = "degree" + std::to_string(degree) + ".vnkx";
        ExpectRoundTrip(Made(name), name);
    }
}

TEST_F(VnkxTest, ExtentBeyondMemoryIsRefused) {
    SetVnkx(kFormatPropCompMethod, 9);
    SetVnkx(kFormatPropCompExtent, 30);
    EXPECT_EQ(Create("vnkx", {tree}, folder / "huge.vnkx"), kEngineExtentTooHigh);
    SetVnkx(kFormatPropCompMethod, 5);
    SetVnkx(kFormatPropCompExtent, 31);
    EXPECT_EQ(Create("vnkx", {tree}, folder / "beyond.vnkx"), kEngineExtentTooHigh);
}

// Memory, not only cores, sets how many blocks are coded at once: light runs
// (the defaults) stay within 256 MiB on any machine, and heavy settings on a
// small machine get fewer workers instead of a refusal.
TEST(VnkxWorkers, FollowMemoryNotOnlyCores) {
    using engine::vnkx::WorkersFor;
    constexpr std::uint64_t kMiB = 1 << 20, kGiB = kMiB << 10;
    struct Row {
        std::uint64_t perWorker;
        unsigned cores;
        std::uint64_t allowed;
        unsigned workers;
    } rows[] = {
        {80 * kMiB, 2, 12 * kGiB, 2},   // the defaults here
        {80 * kMiB, 64, 12 * kGiB, 2},  // ... and on a large machine: 3 x 80 MiB <= 256 MiB
        {40 * kMiB, 64, 12 * kGiB, 5},  // lighter blocks, more of them
        {930 * kMiB, 2, 12 * kGiB, 2},  // the smallest preset here
        {930 * kMiB, 64, 4 * kGiB, 3},  // ... on many cores and little memory
        {930 * kMiB, 64, 2 * kGiB, 1},  // one worker and its block still fit
        {80 * kMiB, 0, 12 * kGiB, 1},   // a machine that names no cores
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.perWorker / kMiB);
        EXPECT_EQ(WorkersFor(row.perWorker, row.cores, row.allowed), row.workers);
    }
    EXPECT_TRUE(engine::vnkx::RunFits(930 * kMiB, 2 * kGiB));
    EXPECT_FALSE(engine::vnkx::RunFits(1100 * kMiB, 2 * kGiB));
}

TEST_F(VnkxTest, TheClassicFormAndTheFirstVersionAreReadable) {
    fs::path classic = Made("classic.vnk", "vnk5", L"pw");
    EXPECT_EQ(FormatOf(classic), "vnk5");
    ExpectRoundTrip(classic, "classic", L"pw");
    SetVnkx(kFormatPropMaxVersion, 0);
    SetVnkx(kFormatPropCompMethod, 8);  // not in the first version: falls back
    fs::path first = Made("first.vnkx");
    std::string bytes = ReadFile(first);
    ASSERT_GE(bytes.size(), 16u);
    EXPECT_EQ(bytes[8], 0);  // version 0 in the header
    ExpectRoundTrip(first, "first");
}

// The signature at the start, and a trailer at the end that gives the
// archive's length and the catalogue's place, checked by its own CRC: read
// here without the engine.
TEST_F(VnkxTest, SignatureAndTrailerAreWhereTheLayoutPutsThem) {
    fs::path archive = Made("layout.vnkx");
    std::string bytes = ReadFile(archive);
    ASSERT_GT(bytes.size(), 16u + 88u);
    EXPECT_EQ(bytes.substr(0, 8), std::string("VNKX\x1A\r\n\0", 8));
    std::string trailer = bytes.substr(bytes.size() - 88);
    EXPECT_EQ(trailer.substr(0, 4), "VNKT");
    EXPECT_EQ(trailer.substr(84, 4), "VNKE");
    auto le = [&](std::size_t at, int count) {
        uint64_t value = 0;
        for (int i = count; i-- > 0;) value = (value << 8) | static_cast<uint8_t>(trailer[at + i]);
        return value;
    };
    EXPECT_EQ(le(4, 2), 7u);
    EXPECT_EQ(le(40, 8), bytes.size());
    uint64_t catalogue = le(8, 8), catalogueSize = le(16, 8);
    EXPECT_EQ(catalogue + catalogueSize + 88, bytes.size());
    EXPECT_EQ(bytes.substr(catalogue, 4), "VCAT");
    EXPECT_EQ(bytes.substr(16, 4), "VBLK");

    // A program in front of it leaves it an archive of the same kind.
    fs::path fronted = folder / "fronted.bin";
    WriteFile(fronted, std::string(5000, '\x7f') + bytes);
    EXPECT_EQ(FormatOf(fronted), "vnkx");
    OpenedArchive opened(engine, fronted);
    EXPECT_EQ(opened.status(), kEngineOK);
    EXPECT_FALSE(opened.Listing().empty());
}

// engine/formats/vnkx/read_layout.py reads archives knowing only the layout
// description: every method, filter and word text form the writer chooses.
TEST_F(VnkxTest, ASecondReaderWrittenFromTheLayoutReadsEveryBlockAndItem) {
    // Two channels of 16-bit sound, for the delta filter.
    std::string sound;
    for (int i = 0; i < 200000; ++i) {
        for (double period : {20.0, 33.0}) {
            auto sample = static_cast<int16_t>(12000 * std::sin(i / period));
            sound += static_cast<char>(sample & 0xFF);
            sound += static_cast<char>((sample >> 8) & 0xFF);
        }
    }
    WriteFile(tree / "data" / "sound.raw", sound);
    // Identifiers drawn at random: text that zstd packs only a few times.
    std::string text;
    const char *syllables[] = {"ka", "lo", "mi", "nu", "pe", "ra", "si", "to", "vu", "ze"};
    for (unsigned i = 0, x = 5; i < 60000; ++i) {
        x = x * 1664525u + 1013904223u;
        for (unsigned k = 0; k < 2 + (x >> 30); ++k) text += syllables[(x >> (4 * k + 8)) % 10];
        text += (x >> 20) % 9 == 0 ? ";\n" : (x >> 20) % 3 == 0 ? "_" : " ";
    }
    WriteFile(tree / "include" / "sample.h", text);
    const std::string reader =
        Quote(fs::path(VARNICK_SOURCE_DIR) / "engine" / "formats" / "vnkx" / "read_layout.py");
    auto readBack = [&](const fs::path &archive) {
        Shell run = RunShell("python3 " + reader + " " + Quote(archive) + " 2>&1");
        EXPECT_EQ(run.status, 0) << archive << "\n" << run.output;
        return run.output;
    };
    std::string defaults = readBack(Made("defaults.vnkx"));
    EXPECT_NE(defaults.find("filters [0, 2] word text forms [3]"), std::string::npos) << defaults;
    for (int32_t method : {1, 2, 3, 6}) {
        SetVnkx(kFormatPropCompMethod, method);
        std::string read = readBack(Made("method" + std::to_string(method) + ".vnkx"));
        // Deflate puts all in one block, mostly code: the x86 filter.
        if (method == 1) {
            EXPECT_NE(read.find("filters [1]"), std::string::npos) << read;
        }
    }
    SetVnkx(kFormatPropCompressionDegree, 3);  // a longer search
    std::string degree3 = readBack(Made("degree3.vnkx"));
    EXPECT_NE(degree3.find("word text forms [1]"), std::string::npos) << degree3;
    readBack(Made("classic.vnk", "vnk5"));
}

TEST_F(VnkxTest, DuplicatesAreStoredOnce) {
    std::string noise;
    for (unsigned i = 0, x = 1; i < 2000000; ++i) {
        x = x * 1103515245u + 12345u;
        noise += static_cast<char>(x >> 24);
    }
    fs::path twins = Scratch("twins");
    WriteFile(twins / "one.bin", noise);
    WriteFile(twins / "two.bin", noise);
    fs::path folded = folder / "folded.vnkx";
    ASSERT_EQ(Create("vnkx", {twins}, folded), kEngineOK);
    SetBool(kFormatPropFoldDuplicates, false);
    SetBool(kFormatPropBlockMode, false);
    fs::path unfolded = folder / "unfolded.vnkx";
    ASSERT_EQ(Create("vnkx", {twins}, unfolded), kEngineOK);
    EXPECT_LT(fs::file_size(folded), noise.size() + noise.size() / 10);
    EXPECT_GT(fs::file_size(unfolded), 2 * noise.size() - noise.size() / 10);
    fs::path out = Scratch("twins-out");
    ASSERT_EQ(Expand(folded, out), kEngineOK);
    EXPECT_EQ(Snapshot(out / "twins"), Snapshot(twins));
}

TEST_F(VnkxTest, ChangesKeepEveryOtherItemAndComments) {
    fs::path archive = Made("changed.vnkx");
    {
        OpenedArchive opened(engine, archive, kEngineAccessChange);
        ASSERT_EQ(opened.status(), kEngineOK);
        OwnedItem root = opened.Root();
        OwnedString comment = Text(L"Archivnotiz: Grüße");
        ASSERT_EQ(SetArchiveObjectStringProperty(root.get(), kItemPropComments, comment.get()),
                  kEngineOK);
        OwnedItem readme = opened.Item(L"src/readme.txt");
        OwnedString newName = Text(L"liesmich.txt");
        ASSERT_EQ(SetArchiveObjectStringProperty(readme.get(), kItemPropName, newName.get()),
                  kEngineOK);
        OwnedItem deep = opened.Item(L"src/a/b/c/d/e/f/g/deep.txt");
        OwnedString note = Text(L"a note");
        ASSERT_EQ(SetArchiveObjectStringProperty(deep.get(), kItemPropComments, note.get()),
                  kEngineOK);
        OwnedItemList doomed;
        ASSERT_EQ(NewArchiveObjectList(engine, doomed.out()), kEngineOK);
        OwnedItem blob = opened.Item(L"src/data/empty.txt");
        ASSERT_EQ(AddToArchiveObjectList(blob.get(), doomed.get()), kEngineOK);
        ASSERT_EQ(DeleteArchiveObjects(engine, doomed.get(), nullptr), kEngineOK);
        OwnedItem src = opened.Item(L"src");
        OwnedString folderName = Text(L"neu");
        OwnedItem made;
        ASSERT_EQ(AcquireNewFolderInArchive(engine, src.get(), folderName.get(), 0, made.out()),
                  kEngineOK);
        fs::path extra = folder / "extra.txt";
        WriteFile(extra, "added later\n");
        OwnedFSList sources = PathList(engine, {extra});
        OwnedItemList added;
        ASSERT_EQ(AddItemsToArchive(engine, made.get(), sources.get(), added.out(), nullptr),
                  kEngineOK);
        EXPECT_EQ(opened.Close(), kEngineOK);
    }
    EXPECT_EQ(Verify(archive), kEngineOK);
    OpenedArchive reopened(engine, archive);
    std::vector<std::wstring> listing = reopened.Listing();
    auto has = [&](const std::wstring &path) {
        return std::find(listing.begin(), listing.end(), path) != listing.end();
    };
    EXPECT_TRUE(has(L"src/liesmich.txt"));
    EXPECT_FALSE(has(L"src/readme.txt"));
    EXPECT_FALSE(has(L"src/data/empty.txt"));
    EXPECT_TRUE(has(L"src/neu/extra.txt"));
    EXPECT_TRUE(has(L"src/data/blob.bin"));
    OwnedItem root = reopened.Root();
    OwnedString text;
    ASSERT_EQ(AcquireArchiveObjectStringProperty(root.get(), kItemPropComments, text.out()),
              kEngineOK);
    EXPECT_EQ(TextOf(text.get()), L"Archivnotiz: Grüße");
    OwnedItem deep = reopened.Item(L"src/a/b/c/d/e/f/g/deep.txt");
    ASSERT_EQ(AcquireArchiveObjectStringProperty(deep.get(), kItemPropComments, text.out()),
              kEngineOK);
    EXPECT_EQ(TextOf(text.get()), L"a note");
    fs::path out = Scratch("changed-out");
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "src" / "liesmich.txt"), "Hello, archive.\n");
    EXPECT_EQ(ReadFile(out / "src" / "data" / "blob.bin"), ReadFile(tree / "data" / "blob.bin"));
}

TEST_F(VnkxTest, BothCiphersWithNamesHiddenOrNot) {
    for (int32_t method : {1, 2}) {
        for (bool hidden : {false, true}) {
            SetVnkx(kFormatPropEncryptMethod, method);
            SetBool(kFormatPropEncryptArchive, hidden);
            std::string name = "enc" + std::to_string(method) + (hidden ? "h" : "") + ".vnkx";
            fs::path archive = Made(name, "vnkx", L"geheim");
            EXPECT_EQ(ReadFile(archive).find("Hello, archive."), std::string::npos) << name;
            {
                // Hidden names need the password to list at all.
                OpenedArchive listed(engine, archive);
                EXPECT_EQ(listed.status(), hidden ? kEnginePasswordNeeded : kEngineOK) << name;
            }

            Recorder recorder(engine);
            int asked = 0;
            recorder.On(200, 9, [&](NotificationContext context) {
                return GivePassword(context, ++asked == 1 ? L"falsch" : L"geheim");
            });
            ExpectRoundTrip(archive, name);
            EXPECT_EQ(asked, 2) << name;
            EXPECT_EQ(Verify(archive, L"geheim"), kEngineOK) << name;
        }
    }
    SetBool(kFormatPropEncryptArchive, false);
    fs::path locked = Made("locked.vnkx", "vnkx", L"geheim");
    fs::path plain = Made("plain.vnkx");
    {
        OpenedArchive opened(engine, locked, kEngineAccessRead, L"geheim");
        OwnedString wrong = Text(L"falsch"), right = Text(L"geheim");
        EXPECT_EQ(VerifyArchivePassword(engine, opened.get(), wrong.get()),
                  kEnginePasswordOnPlainArchive);
        EXPECT_EQ(VerifyArchivePassword(engine, opened.get(), right.get()), kEngineOK);
    }
    OpenedArchive opened(engine, plain);
    OwnedString any = Text(L"x");
    EXPECT_EQ(VerifyArchivePassword(engine, opened.get(), any.get()),
              kEnginePasswordOnEncryptedItem);
    // No answer to the question: the password is needed.
    EXPECT_EQ(Verify(locked), kEnginePasswordNeeded);
}

TEST_F(VnkxTest, TransformsToAndFromZipAndAddsOrRemovesEncryption) {
    fs::path archive = Made("source.vnkx");
    OwnedFS file = Path(archive);
    OwnedFS result;
    ASSERT_EQ(
        TransformArchive(engine, file.get(), nullptr, result.out(), "zip", nullptr, nullptr, 1, 0),
        kEngineOK);
    fs::path zip = folder / "source.zip";
    EXPECT_EQ(PathOf(result.get()), zip.wstring());
    EXPECT_EQ(RunShell("unzip -tq " + Quote(zip)).status, 0);

    OwnedFS zipFile = Path(zip);
    OwnedString password = Text(L"neu");
    OwnedFS locked = Path(folder / "locked.vnkx");
    ASSERT_EQ(TransformArchive(engine, zipFile.get(), locked.get(), result.out(), "vnkx", nullptr,
                               password.get(), 1, 0),
              kEngineOK);
    EXPECT_EQ(Verify(folder / "locked.vnkx", L"neu"), kEngineOK);
    OwnedFS open = Path(folder / "open.vnkx");
    ASSERT_EQ(TransformArchive(engine, locked.get(), open.get(), result.out(), "vnkx",
                               password.get(), nullptr, 1, 0),
              kEngineOK);
    ExpectRoundTrip(folder / "open.vnkx", "open");
    EXPECT_EQ(ReadFile(folder / "open.vnkx").find("VNKX"), 0u);
}

// Damage of every kind is found by verify, and neither listing nor
// expanding a damaged archive crashes.
TEST_F(VnkxTest, DamageIsFoundAndSurvived) {
    fs::path archive = Made("whole.vnkx");
    std::string bytes = ReadFile(archive);
    ASSERT_EQ(Verify(archive), kEngineOK);
    std::size_t firstBlock = 16;
    struct Damage {
        std::string name;
        std::string bytes;
    };
    std::vector<Damage> damages;
    std::string flipped = bytes;
    flipped[firstBlock + 100] = static_cast<char>(flipped[firstBlock + 100] ^ 0x40);
    damages.push_back({"flip", flipped});
    damages.push_back({"cut", bytes.substr(0, bytes.size() - 40)});
    std::string dropped = bytes;
    dropped.erase(firstBlock + 50, 7);
    damages.push_back({"drop", dropped});
    std::string noBlock = bytes;
    std::fill(noBlock.begin() + static_cast<std::ptrdiff_t>(firstBlock),
              noBlock.begin() + static_cast<std::ptrdiff_t>(firstBlock + 40), '\0');
    damages.push_back({"block", noBlock});
    std::string catalogue = bytes;
    catalogue[bytes.size() - 100] = static_cast<char>(catalogue[bytes.size() - 100] ^ 1);
    damages.push_back({"catalogue", catalogue});
    for (const Damage &damage : damages) {
        fs::path damaged = folder / (damage.name + ".vnkx");
        WriteFile(damaged, damage.bytes);
        EngineResult verified = Verify(damaged);
        EXPECT_TRUE(verified == kEngineItemDataDamaged || verified == kEngineArchiveTruncated ||
                    verified == kEngineCatalogueDamaged || verified == kEngineNotAnArchive)
            << damage.name << " " << verified;
        fs::path out = Scratch("damaged-" + damage.name);
        EXPECT_NE(Expand(damaged, out), kEngineOK) << damage.name;
    }
    // Random bytes shifted through the whole file never crash the reader.
    for (std::size_t at = 0; at < bytes.size(); at += bytes.size() / 37 + 1) {
        std::string hit = bytes;
        for (std::size_t i = at; i < std::min(hit.size(), at + 16); ++i) hit[i] = '\xA5';
        fs::path damaged = folder / "hit.vnkx";
        WriteFile(damaged, hit);
        Verify(damaged);
    }
}

TEST_F(VnkxTest, RecoveryDataRepairsDamagedBlocksAndCatalogue) {
    SetVnkx(kFormatPropRedundancyLevel, 10);
    fs::path archive = Made("guarded.vnkx");
    std::string bytes = ReadFile(archive);
    ASSERT_EQ(Verify(archive), kEngineOK);
    std::string damaged = bytes;
    for (std::size_t i = 200; i < 260; ++i) damaged[i] = static_cast<char>(damaged[i] ^ 0x5A);
    uint64_t catalogue = 0;
    for (int i = 8; i-- > 0;)
        catalogue = (catalogue << 8) | static_cast<uint8_t>(bytes[bytes.size() - 88 + 8 + i]);
    damaged[catalogue + 30] = static_cast<char>(damaged[catalogue + 30] ^ 0x01);
    fs::path broken = folder / "broken" / "guarded.vnkx";
    WriteFile(broken, damaged);
    EXPECT_NE(Verify(broken), kEngineOK);
    OwnedFS file = Path(broken);
    OwnedFS same = Path(broken.parent_path());
    EXPECT_EQ(RecoverArchive(engine, file.get(), same.get(), 0, nullptr),
              kEngineDestinationRefused);
    fs::path repaired = Scratch("repaired");
    OwnedFS destination = Path(repaired);
    ASSERT_EQ(RecoverArchive(engine, file.get(), destination.get(), 0, nullptr), kEngineOK);
    EXPECT_EQ(ReadFile(repaired / "guarded.vnkx"), bytes);
    ExpectRoundTrip(repaired / "guarded.vnkx", "repaired");

    // Without recovery data there is nothing to repair with.
    SetVnkx(kFormatPropRedundancyLevel, 0);
    fs::path bare = Made("bare.vnkx");
    OwnedFS bareFile = Path(bare);
    EXPECT_EQ(RecoverArchive(engine, bareFile.get(), destination.get(), 0, nullptr),
              kEngineNotRecoverable);
}

// Text, machine code and already compressed data go into blocks of their own,
// and a folded duplicate points back into an earlier block; none of that may
// change the stored order of the items or what comes out, with or without a
// password, whatever the method.
TEST_F(VnkxTest, ItemsOfEveryKindKeepTheirOrderAcrossBlocksOfTheirOwn) {
    std::string text;
    for (int i = 0; text.size() < 600000; ++i)
        text +=
            "#define SETTING_" + std::to_string(i) + " (1u << " + std::to_string(i % 31) + ")\n";
    std::string code =
        "\x7F"
        "ELF";
    for (unsigned i = 0, x = 3; code.size() < 600000; ++i) {
        x = x * 1664525u + 1013904223u;
        code += '\xE8';
        for (int k = 0; k < 3; ++k) code += static_cast<char>(x >> (8 * k));
        code += i % 2 ? '\0' : '\xFF';
        code += std::string(3 + x % 5, static_cast<char>(0x48 + x % 4));
    }
    std::string noise;
    for (unsigned i = 0, x = 9; i < 300000; ++i) {
        x = x * 1103515245u + 12345u;
        noise += static_cast<char>(x >> 24);
    }
    fs::path mixed = Scratch("mixed");
    WriteFile(mixed / "a-notes.txt", text);
    WriteFile(mixed / "b-tool.so", code);
    WriteFile(mixed / "c-photo.jpg", noise);
    WriteFile(mixed / "d-notes-copy.txt", text);
    WriteFile(mixed / "e-tool.so", code.substr(0, 400000) + text.substr(0, 1000));
    WriteFile(mixed / "f-notes.txt", text.substr(1000) + "tail");

    fs::path zip = folder / "order.zip";
    ASSERT_EQ(Create("zip", {mixed}, zip), kEngineOK);
    std::vector<std::wstring> order = OpenedArchive(engine, zip).Listing();
    ASSERT_EQ(order.size(), 7u);  // the folder and its six files

    for (int32_t method : {5, 6, 3}) {
        SetVnkx(kFormatPropCompMethod, method);
        for (const std::wstring password : {L"", L"pw"}) {
            std::string name = "mixed" + std::to_string(method) + (password.empty() ? "" : "-pw");
            fs::path archive = folder / (name + ".vnkx");
            OwnedString secret = password.empty() ? OwnedString() : Text(password);
            ASSERT_EQ(Create("vnkx", {mixed}, archive, nullptr, secret.get()), kEngineOK) << name;
            EXPECT_EQ(OpenedArchive(engine, archive, kEngineAccessRead, password).Listing(), order)
                << name;
            EXPECT_EQ(Verify(archive, password), kEngineOK) << name;
            fs::path out = Scratch("out-" + name);
            ASSERT_EQ(Expand(archive, out, nullptr, secret.get()), kEngineOK) << name;
            EXPECT_EQ(Snapshot(out / "mixed"), Snapshot(mixed)) << name;
        }
    }
}

// A large file among small ones is read and coded first, where its long
// blocks keep a core busy while the rest fills the other; the listing keeps
// the files' own order, and expansion, whose read-ahead follows the items
// rather than the blocks' order, gives every file back. The last blocks of
// the run share what is left between the cores.
TEST_F(VnkxTest, LargeFilesAreCodedFirstAndTheLastBlocksShareTheWork) {
    std::string large;
    for (unsigned x = 5; large.size() < (12u << 20);) {
        x = x * 1664525u + 1013904223u;
        large += "record " + std::to_string(x % 5000) + std::string(x % 13, '.') + "\n";
    }
    fs::path mixed = Scratch("large");
    for (int i = 0; i < 6; ++i)
        WriteFile(mixed / ("a-note" + std::to_string(i) + ".txt"),
                  "note " + std::to_string(i) + std::string(20000, 'x'));
    WriteFile(mixed / "m-large.log", large);
    WriteFile(mixed / "z-last.txt", "the last of them\n");
    fs::path zip = folder / "large.zip";
    ASSERT_EQ(Create("zip", {mixed}, zip), kEngineOK);
    std::vector<std::wstring> order = OpenedArchive(engine, zip).Listing();

    SetVnkx(kFormatPropCompMethod, 7);  // LZ4: blocks of 8 MiB, quickly coded
    fs::path archive = folder / "large.vnkx";
    ASSERT_EQ(Create("vnkx", {mixed}, archive), kEngineOK);
    EXPECT_EQ(OpenedArchive(engine, archive).Listing(), order);
    fs::path out = Scratch("out-large");
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(Snapshot(out / "large"), Snapshot(mixed));

    std::string bytes = ReadFile(archive);
    engine::vnkx::Trailer trailer;
    engine::vnkx::CatalogueBody catalogue;
    ReadPlainCatalogue({bytes.begin(), bytes.end()}, trailer, catalogue);
    const auto &blocks = catalogue.blocks;
    ASSERT_FALSE(blocks.empty());
    std::uint64_t total = 0, largest = 0, smallest = UINT64_MAX;
    for (const auto &block : blocks) {
        total += block.unpackedSize;
        largest = std::max(largest, block.unpackedSize);
        smallest = std::min(smallest, block.unpackedSize);
    }
    for (const auto &item : catalogue.items) {
        bool large = item.path.find("m-large.log") != std::string::npos;
        for (const auto &fork : item.forks)
            for (const auto &extent : fork.extents)
                EXPECT_EQ(extent.block == 0, large && &extent == &fork.extents[0])
                    << item.path << ": the large file alone opens the first block";
    }
    if (engine::OrderedWorkerPool::Cores() < 2) GTEST_SKIP() << "one core: blocks keep their size";
    // Full blocks would be 8 MiB and a little over 4: the 12 MiB are cut into
    // about a half and two quarters instead, none smaller than 2 MiB.
    EXPECT_GE(blocks.size(), 3u);
    EXPECT_LE(largest, total * 55 / 100);
    EXPECT_GE(smallest, 2u << 20);
}

}  // namespace
}  // namespace enginetest
