// Expanding archives that other tools made, compared byte for byte with
// what went in; the notifications of a run; where items land.
#include <algorithm>
#include <set>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class ExpandTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        folder = Scratch("archives");
    }
    fs::path Made(const std::string &name, const std::string &command) {
        Shell made = RunShell(command, tree.parent_path());
        EXPECT_EQ(made.status, 0) << command << "\n" << made.output;
        return folder / name;
    }
    fs::path tree, folder;
};

TEST_F(ExpandTest, ArchivesOfOtherToolsExpandToTheSameBytes) {
    const std::pair<const char *, const char *> cases[] = {
        {"a.zip", "zip -qr archives/a.zip src"},
        {"b.zip", "7zz a -bd -tzip archives/b.zip src >/dev/null"},
        {"c.7z", "7zz a -bd archives/c.7z src >/dev/null"},
        {"d.tar", "bsdtar -cf archives/d.tar src"},
        {"e.tgz", "bsdtar -czf archives/e.tgz src"},
        {"f.tbz2", "bsdtar -cjf archives/f.tbz2 src"},
        {"g.txz", "bsdtar -cJf archives/g.txz src"},
        {"h.tzst", "bsdtar --zstd -cf archives/h.tzst src"},
        {"i.cpio", "bsdtar --format newc -cf archives/i.cpio src"},
        {"j.zip", "bsdtar --format zip -cf archives/j.zip src"},
        {"k.7z", "bsdtar --format 7zip -cf archives/k.7z src"},
        {"l.iso", "bsdtar --format iso9660 -cf archives/l.iso src"},
        {"m.xar", "bsdtar --format xar -cf archives/m.xar src"},
        {"n.tar", "7zz a -bd -ttar archives/n.tar src >/dev/null"},
        {"p.7z", "7zz a -bd -m0=Swap2 -m1=LZMA2 archives/p.7z src >/dev/null"},
        {"q.7z", "7zz a -bd -m0=Swap4 -m1=Delta:2 -m2=LZMA2 archives/q.7z src >/dev/null"},
    };
    std::map<std::string, std::string> expected = Snapshot(tree.parent_path() / "src");
    for (const auto &[name, command] : cases) {
        fs::path archive = Made(name, command);
        fs::path out = Scratch(std::string("out-") + name);
        ASSERT_EQ(Expand(archive, out), kEngineOK) << name;
        std::map<std::string, std::string> got = Snapshot(out / "src");
        if (std::string(name) == "l.iso") {
            // An ISO image keeps no empty files apart from others; compare what it keeps.
            EXPECT_EQ(got["data/blob.bin"], expected["data/blob.bin"]) << name;
            continue;
        }
        EXPECT_EQ(got, expected) << name;
    }
    // A coder no reader here takes (the RISC-V branch filter, newer than
    // this liblzma) is a method not supported, not damage.
    fs::path riscv = Made("o.7z", "7zz a -bd -m0=RISCV -m1=LZMA2 archives/o.7z src >/dev/null");
    EXPECT_EQ(Expand(riscv, Scratch("out-o.7z")), kEngineMethodUnsupported);
    // One thread decodes and writes in turn: the same bytes.
    ASSERT_EQ(SetEngineBooleanProperty(engine, kEnginePropUseThreads, false), kEngineOK);
    fs::path single = Scratch("out-single-thread");
    ASSERT_EQ(Expand(folder / "c.7z", single), kEngineOK);
    EXPECT_EQ(Snapshot(single / "src"), expected);
}

// The ARC program chooses per file among storing, packing runs, squeezing
// and crunching (or squashing when asked): every method it writes expands
// to the same bytes, and damage in coded data is found.
TEST_F(ExpandTest, ArcArchivesExpandWhateverMethodTheArcProgramChose) {
    fs::path in = Scratch("arc-in");
    std::uint32_t seed = 11;
    auto noise = [&seed](std::size_t count) {
        std::string bytes(count, '\0');
        for (char &c : bytes) c = static_cast<char>((seed = seed * 1103515245u + 12345u) >> 24);
        return bytes;
    };
    std::string lines, skewed;
    for (int i = 1; i <= 3000; ++i) lines += std::to_string(i) + "\n";
    for (char c : noise(4000)) skewed += "aaaaaaaabbbbccd"[static_cast<unsigned char>(c) % 15];
    WriteFile(in / "lines.txt", lines);
    WriteFile(in / "skewed.txt", skewed);
    WriteFile(in / "runs.bin", std::string(3000, 'A') + std::string(500, '\x90') + "xyz" + "xyz");
    WriteFile(in / "noise.bin", noise(5000));
    WriteFile(in / "mixed.bin", noise(3000) + std::string(2000, 'Z'));
    WriteFile(in / "empty", "");

    // The method byte of each entry header, walked as the format lays them out.
    auto methods = [](const std::string &archive) {
        std::set<int> seen;
        for (std::size_t at = 0; at + 29 <= archive.size() && archive[at + 1] != 0;) {
            seen.insert(archive[at + 1]);
            std::uint32_t size = 0;
            for (int i = 3; i >= 0; --i)
                size = size << 8 | static_cast<std::uint8_t>(archive[at + 15 + i]);
            at += 29 + size;
        }
        return seen;
    };
    const std::pair<const char *, std::set<int>> cases[] = {
        {"a", {2, 3, 4, 8}},   // stored, packed, squeezed, crunched
        {"aq", {2, 3, 4, 9}},  // squashed instead of crunched
    };
    for (const auto &[command, expected] : cases) {
        // The program takes DOS-sized names (8.3) and paths: it runs where the files are.
        fs::path archive = folder / (std::string(command) + ".arc");
        ASSERT_EQ(RunShell("timeout 60 arc " + std::string(command) +
                               " x.arc lines.txt skewed.txt runs.bin noise.bin mixed.bin "
                               "empty >/dev/null && mv x.arc " +
                               Quote(archive),
                           in)
                      .status,
                  0);
        const std::string bytes = ReadFile(archive);
        for (int method : expected)
            EXPECT_TRUE(methods(bytes).count(method)) << command << " " << method;
        EXPECT_EQ(FormatOf(archive), "arc");
        fs::path out = Scratch(std::string("arc-out-") + command);
        ASSERT_EQ(Expand(archive, out), kEngineOK) << command;
        EXPECT_EQ(Snapshot(out), Snapshot(in)) << command;

        // A flipped byte in the middle of the coded entries, and the archive cut short.
        std::string damaged = bytes;
        damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x21);
        WriteFile(folder / "damaged.arc", damaged);
        OwnedFS damagedFile = Path(folder / "damaged.arc");
        EXPECT_EQ(VerifyArchive(engine, damagedFile.get(), nullptr), kEngineItemDataDamaged)
            << command;
        WriteFile(folder / "cut.arc", bytes.substr(0, bytes.size() - 100));
        OwnedFS cutFile = Path(folder / "cut.arc");
        EXPECT_NE(VerifyArchive(engine, cutFile.get(), nullptr), kEngineOK) << command;
    }
}

// ARJ's methods: 0 stores, 1 to 3 code with Huffman tables (the archiver
// searching less hard each step), 4 with its own simpler codes. Folders,
// modes and times come with the items; damage is found, and an enciphered
// ("garbled") item is refused plainly.
TEST_F(ExpandTest, ArjArchivesOfEveryMethodExpand) {
    fs::path in = Scratch("arj-in");
    std::string lines;
    for (int i = 1; i <= 20000; ++i) lines += "line " + std::to_string(i % 977) + "\n";
    WriteFile(in / "lines.txt", lines);
    WriteFile(in / "sub" / "deeper" / "program", ReadFile("/bin/true"));
    fs::permissions(in / "sub" / "deeper" / "program", fs::perms::owner_all);
    WriteFile(in / "sub" / "empty", "");
    for (int method = 0; method <= 4; ++method) {
        const std::string name = "m" + std::to_string(method);
        fs::path archive = folder / (name + ".arj");
        ASSERT_EQ(RunShell("arj a -r -y -m" + std::to_string(method) + " " + Quote(archive) +
                               " '*' >/dev/null",
                           in)
                      .status,
                  0);
        EXPECT_EQ(FormatOf(archive), "arj");
        fs::path out = Scratch("arj-out-" + name);
        ASSERT_EQ(Expand(archive, out), kEngineOK) << name;
        EXPECT_EQ(Snapshot(out), Snapshot(in)) << name;
        EXPECT_EQ(fs::status(out / "sub" / "deeper" / "program").permissions(),
                  fs::perms::owner_all)
            << name;
    }

    const std::string bytes = ReadFile(folder / "m1.arj");
    std::string damaged = bytes;
    damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x10);
    WriteFile(folder / "damaged.arj", damaged);
    OwnedFS damagedFile = Path(folder / "damaged.arj");
    EXPECT_EQ(VerifyArchive(engine, damagedFile.get(), nullptr), kEngineItemDataDamaged);
    damaged = bytes;
    damaged[10] = static_cast<char>(damaged[10] ^ 0x10);  // inside the main header
    WriteFile(folder / "header.arj", damaged);
    OwnedFS headerFile = Path(folder / "header.arj");
    EXPECT_NE(VerifyArchive(engine, headerFile.get(), nullptr), kEngineOK);

    fs::path garbled = folder / "garbled.arj";
    ASSERT_EQ(RunShell("arj a -y -gsecret " + Quote(garbled) + " lines.txt >/dev/null", in).status,
              0);
    EXPECT_EQ(Expand(garbled, Scratch("arj-out-garbled")), kEngineEncryptionUnsupported);
}

TEST_F(ExpandTest, SingleFileCompressorsDecodeUnderTheFilesName) {
    WriteFile(folder / "notes.txt", "single file contents\n");
    const std::pair<const char *, const char *> cases[] = {
        {"notes.txt.gz", "gzip -k notes.txt"},
        {"notes.txt.bz2", "bzip2 -k notes.txt"},
        {"notes.txt.xz", "xz -k notes.txt"},
        {"notes.txt.lzma", "xz -k --format=lzma notes.txt"},
        {"notes.txt.zst", "zstd -q -k notes.txt"},
        {"notes.txt.lz4", "lz4 -q notes.txt notes.txt.lz4"},
    };
    for (const auto &[name, command] : cases) {
        Shell made = RunShell(command, folder);
        ASSERT_EQ(made.status, 0) << made.output;
        fs::path out = Scratch(std::string("single-") + name);
        std::vector<std::wstring> outputs;
        // The folder method never applies to one decoded file.
        SetInteger(kEnginePropCreateFolderMethod, kCreateFolderAlways);
        ASSERT_EQ(Expand(folder / name, out, &outputs), kEngineOK) << name;
        EXPECT_EQ(ReadFile(out / "notes.txt"), "single file contents\n") << name;
        EXPECT_EQ(outputs, std::vector<std::wstring>{(out / "notes.txt").wstring()}) << name;
    }
    // gzip keeps the file's own name; it wins over the archive's.
    RunShell("gzip -c notes.txt > renamed.gz", folder);
    fs::path out = Scratch("gz-name");
    ASSERT_EQ(Expand(folder / "renamed.gz", out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "notes.txt"), "single file contents\n");
}

TEST_F(ExpandTest, ProgressNotificationsNameItemsAndCountersReachTheTotals) {
    fs::path archive = Made("progress.zip", "zip -qr archives/progress.zip src");
    Recorder recorder(engine);
    recorder.OnAll();
    fs::path out = Scratch("progress");
    ASSERT_EQ(Expand(archive, out), kEngineOK);

    std::vector<std::wstring> names;
    for (const auto &seen : recorder.Of(100, 6)) names.push_back(seen.name);
    EXPECT_NE(std::find(names.begin(), names.end(), L"src/data/blob.bin"), names.end());
    EXPECT_NE(std::find(names.begin(), names.end(), L"src/data/Grüße, 東京.txt"), names.end());

    std::vector<Seen> counters = recorder.Of(100, 7);
    ASSERT_FALSE(counters.empty());
    const Seen &last = counters.back();
    ASSERT_EQ(last.counters.size(), 5u);
    uint64_t files = 4, bytes = 300000 + 16 + 13 + 5;  // readme, blob, empty, unicode, deep
    EXPECT_EQ(last.counters[0], files + 1);
    EXPECT_EQ(last.counters[1], files + 1);
    EXPECT_EQ(last.counters[2], bytes);
    EXPECT_EQ(last.counters[3], bytes);
    EXPECT_EQ(last.counters[4], bytes);
    for (const auto &seen : counters) EXPECT_LE(seen.counters[2], seen.counters[4]);
    EXPECT_FALSE(recorder.Of(1, 1).empty());
}

TEST_F(ExpandTest, AStopAnswerCancelsAndWhatWasExpandedStays) {
    fs::path archive = Made("cancel.tar", "bsdtar -cf archives/cancel.tar src");
    Recorder recorder(engine);
    recorder.On(100, 6, [&](NotificationContext context) {
        StringRef name = nullptr;
        GetDataFromContext(context, kContextName, &name, sizeof name);
        return TextOf(name) == L"src/data/blob.bin" ? kNotificationStop : kNotificationHandled;
    });
    fs::path out = Scratch("cancelled");
    EXPECT_EQ(Expand(archive, out), kEngineCancelled);
    EXPECT_FALSE(fs::exists(out / "src" / "data" / "blob.bin"));
    // Items before the stop were expanded and stay.
    std::size_t before = 0;
    for (const auto &[path, contents] : Snapshot(out)) before += contents != "<dir>";
    EXPECT_GE(before, 1u);

    Recorder stopOnWork(engine);
    stopOnWork.On(1, 1, [](NotificationContext) { return kNotificationStop; });
    fs::path again = Scratch("cancelled-work");
    EXPECT_EQ(Expand(archive, again), kEngineCancelled);
    EXPECT_FALSE(fs::exists(again / "src" / "data" / "blob.bin"))
        << "a part-written file is removed";
}

TEST_F(ExpandTest, CreateFolderMethodDecidesTheFolderNamedAfterTheArchive) {
    fs::path one = Made("one.tar.gz", "bsdtar -czf archives/one.tar.gz src");
    WriteFile(tree.parent_path() / "loose.txt", "loose\n");
    fs::path two = Made("two.zip", "zip -qr archives/two.zip src loose.txt");

    SetInteger(kEnginePropCreateFolderMethod, kCreateFolderNever);
    std::vector<std::wstring> outputs;
    fs::path never = Scratch("never");
    ASSERT_EQ(Expand(two, never, &outputs), kEngineOK);
    EXPECT_TRUE(fs::exists(never / "loose.txt"));
    EXPECT_EQ(outputs, (std::vector<std::wstring>{(never / "src").wstring(),
                                                  (never / "loose.txt").wstring()}));

    SetInteger(kEnginePropCreateFolderMethod, kCreateFolderAlways);
    fs::path always = Scratch("always");
    ASSERT_EQ(Expand(one, always, &outputs), kEngineOK);
    EXPECT_TRUE(fs::exists(always / "one" / "src" / "readme.txt"));
    EXPECT_EQ(outputs, std::vector<std::wstring>{(always / "one").wstring()});

    SetInteger(kEnginePropCreateFolderMethod, kCreateFolderIfSeveral);
    fs::path several = Scratch("several");
    ASSERT_EQ(Expand(one, several), kEngineOK);
    EXPECT_TRUE(fs::exists(several / "src" / "readme.txt"));  // one top-level item
    ASSERT_EQ(Expand(two, several), kEngineOK);
    EXPECT_TRUE(fs::exists(several / "two" / "loose.txt"));
}

TEST_F(ExpandTest, ChosenItemsLandUnderTheirBareNames) {
    fs::path archive = Made("chosen.zip", "zip -qr archives/chosen.zip src");
    OpenedArchive opened(engine, archive);
    ASSERT_EQ(opened.status(), kEngineOK);
    OwnedItemList list;
    ASSERT_EQ(NewArchiveObjectList(engine, list.out()), kEngineOK);
    for (const wchar_t *path : {L"src/data/blob.bin", L"src/a/b/c"}) {
        OwnedItem item = opened.Item(path);
        ASSERT_EQ(AddToArchiveObjectList(item.get(), list.get()), kEngineOK);
    }
    EXPECT_EQ(CountArchiveObjectList(list.get()), 2u);
    fs::path out = Scratch("chosen");
    OwnedFS destination = Path(out);
    OwnedFSList result;
    ASSERT_EQ(ExpandArchiveObjects(engine, list.get(), destination.get(), result.out(), nullptr),
              kEngineOK);
    EXPECT_EQ(ReadFile(out / "blob.bin"), ReadFile(tree / "data" / "blob.bin"));
    EXPECT_EQ(ReadFile(out / "c" / "d" / "e" / "f" / "g" / "deep.txt"), "deep\n");
    EXPECT_FALSE(fs::exists(out / "src"));
    EXPECT_EQ(PathsOf(result.get()),
              (std::vector<std::wstring>{(out / "blob.bin").wstring(), (out / "c").wstring()}));
}

TEST_F(ExpandTest, WithoutADestinationItemsGoBesideTheArchive) {
    fs::path archive = Made("beside.tgz", "bsdtar -czf archives/beside.tgz src");
    OwnedFS file = Path(archive);
    OwnedFSList result;
    SetInteger(kEnginePropDeleteAction, 1);
    ASSERT_EQ(ExpandOrDecodeFile(engine, file.get(), nullptr, result.out(), nullptr), kEngineOK);
    EXPECT_EQ(ReadFile(folder / "src" / "readme.txt"), "Hello, archive.\n");
    EXPECT_FALSE(fs::exists(archive)) << "deleteAction 1 removes the archive after expanding it";
}

}  // namespace
}  // namespace enginetest
