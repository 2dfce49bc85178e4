// Segmented vnkx and index files: parts of the asked size named in order,
// (1,2) as each begins, a set read from any of its parts, a missing or
// damaged part asked for with (200,10), and indexes listed alone and
// expanded once the archive is found.
#include <fstream>

#include "EngineFixture.h"

namespace enginetest {
namespace {

// Writes `where` under key 12 and answers 1.
int32_t AnswerLocation(NotificationContext context, const fs::path &where) {
    FSObject object = nullptr;
    EXPECT_EQ(NewFSObjectFromUnicodePath(where.wstring().c_str(), &object), kEngineOK);
    EXPECT_EQ(SetDataInContext(context, kContextLocation, &object, sizeof object), kEngineOK);
    return kNotificationHandled;
}

class VnkxSegmentsTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        // Bytes that do not compress, so that the archive has a known bulk.
        std::string noise;
        for (unsigned i = 0, x = 12345; i < 150000; ++i) {
            x = x * 1103515245u + 12345u;
            noise += static_cast<char>(x >> 16);
        }
        WriteFile(tree / "data" / "noise.bin", noise);
        folder = Scratch("made");
    }

    // Splits the sample tree into parts of `size` bytes named after `name`.
    EngineResult Split(const std::string &name, uint64_t size, std::vector<std::wstring> &parts,
                       const fs::path *index = nullptr) {
        OwnedFSList sources = PathList(engine, {tree});
        OwnedFS output = Path(folder / name);
        OwnedFSList result;
        OwnedFS indexFile = index ? Path(*index) : OwnedFS();
        auto low = static_cast<uint32_t>(size), high = static_cast<uint32_t>(size >> 32);
        EngineResult status =
            index ? CreateSegmentsWithFormatAndIndex(engine, sources.get(), output.get(),
                                                     result.out(), "vnkx", low, high, nullptr,
                                                     indexFile.get())
                  : CreateSegmentsWithFormat(engine, sources.get(), output.get(), result.out(),
                                             "vnkx", low, high, nullptr);
        parts = status == kEngineOK ? PathsOf(result.get()) : std::vector<std::wstring>();
        return status;
    }

    std::vector<std::wstring> SplitOrFail(const std::string &name, uint64_t size) {
        std::vector<std::wstring> parts;
        EXPECT_EQ(Split(name, size, parts), kEngineOK);
        return parts;
    }

    void ExpectExpandsToTree(const fs::path &archive, const std::string &label) {
        fs::path out = Scratch("out-" + label);
        ASSERT_EQ(Expand(archive, out), kEngineOK) << label;
        EXPECT_EQ(Snapshot(out / "src"), Snapshot(tree)) << label;
    }

    // Expands `archive` while (200,10) is answered with `answer`: asked
    // once, for `name`.
    void ExpectAskedOnceAndExpanded(const fs::path &archive, const fs::path &answer,
                                    const std::wstring &name, const std::string &label) {
        Recorder recorder(engine);
        recorder.On(kNotifyRequestCategory, kNotifySegmentMissing,
                    [&](NotificationContext context) { return AnswerLocation(context, answer); });
        ExpectExpandsToTree(archive, label);
        auto asked = recorder.Of(kNotifyRequestCategory, kNotifySegmentMissing);
        ASSERT_EQ(asked.size(), 1u) << label;
        EXPECT_EQ(asked[0].name, name) << label;
    }

    EngineResult Verify(const fs::path &archive) {
        OwnedFS file = Path(archive);
        return VerifyArchive(engine, file.get(), nullptr);
    }

    // A change of the archive: a new folder at its root.
    EngineResult NewFolderIn(const fs::path &archive) {
        OpenedArchive opened(engine, archive, kEngineAccessChange);
        if (opened.status() != kEngineOK) return opened.status();
        OwnedItem root = opened.Root();
        OwnedString name = Text(L"new");
        OwnedItem made;
        return AcquireNewFolderInArchive(engine, root.get(), name.get(), 0, made.out());
    }

    bool IsFirst(const fs::path &file) {
        OwnedFS object = Path(file);
        return IsFirstSegmentFSObject(engine, object.get());
    }

    fs::path tree, folder;
};

void FlipByte(const fs::path &file, std::streamoff at) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekg(at);
    char byte = 0;
    stream.get(byte);
    stream.seekp(at);
    stream.put(static_cast<char>(byte ^ 0x5A));
}

TEST_F(VnkxSegmentsTest, PartsHaveTheAskedSizeAndNamesAndExpandBackFromAnyPart) {
    struct Case {
        const char *label;
        uint64_t size;
        std::size_t fewest, most;  // parts expected
        const char *firstName;
    };
    // A size larger than the archive, a few parts, and parts far smaller
    // than one block (more than 99 of them: the numbers get wider).
    const Case cases[] = {
        {"one", 64ull << 20, 1, 1, "one.part01.vnkx"},
        {"few", 64 << 10, 3, 9, "few.part01.vnkx"},
        {"tiny", 400, 150, 5000, "tiny.part001.vnkx"},
    };
    for (const Case &c : cases) {
        Recorder recorder(engine);
        recorder.On(kNotifyWorkCategory, kNotifySegmentBegun);
        std::vector<std::wstring> parts;
        ASSERT_EQ(Split(std::string(c.label) + ".vnkx", c.size, parts), kEngineOK) << c.label;
        EXPECT_GE(parts.size(), c.fewest) << c.label;
        EXPECT_LE(parts.size(), c.most) << c.label;
        EXPECT_EQ(fs::path(parts.front()).filename(), c.firstName) << c.label;
        std::vector<std::wstring> begun;
        for (const Seen &seen : recorder.Of(kNotifyWorkCategory, kNotifySegmentBegun))
            begun.push_back(seen.name);
        EXPECT_EQ(begun, parts) << c.label << ": (1,2) once per part, in order";
        for (std::size_t i = 0; i < parts.size(); ++i) {
            EXPECT_LE(fs::file_size(parts[i]), c.size) << c.label << " part " << i + 1;
            EXPECT_EQ(FormatOf(parts[i]), "vnkx") << c.label << " part " << i + 1;
        }
        ExpectExpandsToTree(parts.front(), std::string(c.label) + "-first");
        EXPECT_EQ(Verify(parts.back()), kEngineOK) << c.label;
    }
    // Opening the last part reads the whole set; a set expanded with
    // "deleteAction" 1 goes as a whole.
    std::vector<std::wstring> parts = SplitOrFail("again.vnkx", 64 << 10);
    {
        OpenedArchive whole(engine, parts.back());
        ASSERT_EQ(whole.status(), kEngineOK);
        EXPECT_FALSE(whole.Listing().empty());
    }
    SetInteger(kEnginePropDeleteAction, 1);
    ExpectExpandsToTree(parts.back(), "last");
    for (const std::wstring &part : parts) EXPECT_FALSE(fs::exists(part)) << fs::path(part);
}

TEST_F(VnkxSegmentsTest, AMissingPartIsAskedForByNameAndFoundWhereTheAnswerLeads) {
    std::vector<std::wstring> parts = SplitOrFail("set.vnkx", 64 << 10);
    ASSERT_GE(parts.size(), 3u);
    fs::path elsewhere = Scratch("elsewhere");
    fs::rename(parts[1], elsewhere / fs::path(parts[1]).filename());

    ExpectAskedOnceAndExpanded(parts.front(), elsewhere, L"set.part02.vnkx", "found-in-folder");
    // Where a part was found is remembered for the next opening; a part
    // moved on is asked for again.
    ExpectExpandsToTree(parts.front(), "remembered");
    fs::path further = Scratch("further");
    fs::path moved = elsewhere / fs::path(parts[1]).filename();
    fs::path movedOn = further / moved.filename();
    fs::rename(moved, movedOn);
    {  // the file itself, after a first answer that leads nowhere
        Recorder recorder(engine);
        int calls = 0;
        recorder.On(kNotifyRequestCategory, kNotifySegmentMissing, [&](NotificationContext c) {
            return AnswerLocation(c, ++calls == 1 ? Scratch("empty") : movedOn);
        });
        ExpectExpandsToTree(parts.front(), "found-as-file");
        EXPECT_EQ(calls, 2);
    }
    fs::rename(movedOn, Scratch("hidden") / moved.filename());
    {  // a stop answer cancels; nobody answering leaves the part missing
        Recorder recorder(engine);
        recorder.On(kNotifyRequestCategory, kNotifySegmentMissing,
                    [](NotificationContext) { return kNotificationStop; });
        EXPECT_EQ(Expand(parts.front(), Scratch("cancelled")), kEngineCancelled);
    }
    EXPECT_EQ(Expand(parts.front(), Scratch("unanswered")), kEngineSegmentMissing);
}

TEST_F(VnkxSegmentsTest, ADamagedPartIsNamedByAskingForASoundCopy) {
    std::vector<std::wstring> parts = SplitOrFail("hurt.vnkx", 64 << 10);
    ASSERT_GE(parts.size(), 3u);
    fs::path spare = Scratch("spare");
    fs::copy_file(parts[1], spare / fs::path(parts[1]).filename());
    FlipByte(parts[1], 5000);

    // Nobody answers: the damage is reported as damaged data.
    EXPECT_EQ(Verify(parts.front()), kEngineItemDataDamaged);

    Recorder recorder(engine);
    recorder.On(kNotifyRequestCategory, kNotifySegmentMissing,
                [&](NotificationContext context) { return AnswerLocation(context, spare); });
    ExpectExpandsToTree(parts.front(), "repaired");
    auto asked = recorder.Of(kNotifyRequestCategory, kNotifySegmentMissing);
    ASSERT_FALSE(asked.empty());
    EXPECT_EQ(asked[0].name, L"hurt.part02.vnkx");
}

TEST_F(VnkxSegmentsTest, ASetWithRecoveryDataIsRepairedIntoPartsOfTheSameNames) {
    ASSERT_EQ(SetFormatIntegerProperty(engine, "vnkx", kFormatPropRedundancyLevel, 10), kEngineOK);
    std::vector<std::wstring> parts = SplitOrFail("safe.vnkx", 64 << 10);
    ASSERT_GE(parts.size(), 3u);
    FlipByte(parts[1], 3000);
    fs::path repaired = Scratch("repaired");
    OwnedFS file = Path(parts[2]);
    OwnedFS destination = Path(repaired);
    ASSERT_EQ(RecoverArchive(engine, file.get(), destination.get(), 0, nullptr), kEngineOK);
    for (const std::wstring &part : parts) {
        fs::path copy = repaired / fs::path(part).filename();
        ASSERT_TRUE(fs::exists(copy)) << copy;
        EXPECT_EQ(fs::file_size(copy), fs::file_size(part));
    }
    EXPECT_EQ(Verify(repaired / fs::path(parts[0]).filename()), kEngineOK);
    ExpectExpandsToTree(repaired / fs::path(parts[0]).filename(), "recovered");
    OwnedFS home = Path(folder);
    EXPECT_EQ(RecoverArchive(engine, file.get(), home.get(), 0, nullptr),
              kEngineDestinationRefused);
}

TEST_F(VnkxSegmentsTest, FirstSegmentIsToldByContentAndSetsAreWrittenOnce) {
    std::vector<std::wstring> parts = SplitOrFail("seg.vnkx", 64 << 10);
    ASSERT_GE(parts.size(), 2u);
    EXPECT_TRUE(IsFirst(parts[0]));
    EXPECT_FALSE(IsFirst(parts[1]));
    // A plain archive under a first part's name is no segment; a name that
    // is not there can only be judged by its form.
    ASSERT_EQ(Create("vnkx", {tree}, folder / "plain.part01.vnkx"), kEngineOK);
    EXPECT_FALSE(IsFirst(folder / "plain.part01.vnkx"));
    EXPECT_TRUE(IsFirst(folder / "absent.part01.vnkx"));
    EXPECT_FALSE(IsFirst(folder / "absent.part02.vnkx"));

    EXPECT_EQ(NewFolderIn(parts[0]), kEngineReadOnlyMedium);
    // A set is made whole again by transforming it: its blocks are copied
    // across the parts as they are stored.
    {
        OwnedFS source = Path(parts[1]);
        OwnedFS target = Path(folder / "joined.vnkx");
        OwnedFS made;
        ASSERT_EQ(TransformArchive(engine, source.get(), target.get(), made.out(), "vnkx", nullptr,
                                   nullptr, 0, 0),
                  kEngineOK);
        EXPECT_EQ(FormatOf(folder / "joined.vnkx"), "vnkx");
        EXPECT_FALSE(IsFirst(folder / "joined.vnkx"));
        ExpectExpandsToTree(folder / "joined.vnkx", "joined");
    }

    std::vector<std::wstring> none;
    OwnedFSList sources = PathList(engine, {tree});
    OwnedFS output = Path(folder / "z.zip");
    OwnedFSList result;
    EXPECT_EQ(CreateSegmentsWithFormat(engine, sources.get(), output.get(), result.out(), "zip",
                                       1 << 20, 0, nullptr),
              kEngineNotAnArchive);
    EXPECT_EQ(Split("small.vnkx", 50, none), kEngineInvalidParameter);
}

TEST_F(VnkxSegmentsTest, AnIndexListsAloneAndExpandsOnceTheArchiveIsFound) {
    OwnedFSList sources = PathList(engine, {tree});
    OwnedFS output = Path(folder / "kept.vnkx");
    OwnedFS index = Path(folder / "Index of kept.vidx");
    OwnedFS written;
    ASSERT_EQ(ArchiveFSObjectListCreatingIndex(engine, "vnkx", sources.get(), output.get(),
                                               written.out(), nullptr, index.get()),
              kEngineOK);
    fs::path indexFile = folder / "Index of kept.vidx";
    EXPECT_EQ(FormatOf(indexFile), "vnkx");
    std::vector<std::wstring> listing = OpenedArchive(engine, folder / "kept.vnkx").Listing();
    EXPECT_LT(fs::file_size(indexFile), fs::file_size(folder / "kept.vnkx") / 10);

    fs::path away = Scratch("away");
    fs::rename(folder / "kept.vnkx", away / "kept.vnkx");
    EXPECT_EQ(OpenedArchive(engine, indexFile).Listing(), listing);

    ExpectAskedOnceAndExpanded(indexFile, away, L"kept.vnkx", "from-index");

    // Another archive of the same name is not the one the index describes.
    fs::rename(away / "kept.vnkx", Scratch("hidden") / "kept.vnkx");
    fs::path other = Scratch("other");
    ASSERT_EQ(Create("vnkx", {folder / ".." / "src" / "readme.txt"}, other / "kept.vnkx"),
              kEngineOK);
    Recorder wrong(engine);
    wrong.On(kNotifyRequestCategory, kNotifySegmentMissing,
             [&](NotificationContext context) { return AnswerLocation(context, other); });
    EXPECT_EQ(Expand(indexFile, Scratch("mismatch")), kEngineIndexMismatch);

    EXPECT_EQ(NewFolderIn(indexFile), kEngineReadOnlyMedium) << "an index is not changed";
}

TEST_F(VnkxSegmentsTest, IndexesOfExistingAndSegmentedArchives) {
    // Of an archive made before.
    ASSERT_EQ(Create("vnkx", {tree}, folder / "old.vnkx"), kEngineOK);
    {
        OwnedFS archive = Path(folder / "old.vnkx");
        OwnedFS index = Path(folder / "Index of old");
        ASSERT_EQ(CreateArchiveIndex(engine, archive.get(), index.get()), kEngineOK);
    }
    fs::path oldIndex = folder / "Index of old.vidx";
    ASSERT_TRUE(fs::exists(oldIndex));
    // The archive beside the index is found without asking.
    ExpectExpandsToTree(oldIndex, "beside");
    {
        OwnedFS zip = Path(folder / "z.zip");
        ASSERT_EQ(Create("zip", {tree}, folder / "z.zip"), kEngineOK);
        OwnedFS index = Path(folder / "Index of z.vidx");
        EXPECT_EQ(CreateArchiveIndex(engine, zip.get(), index.get()), kEngineWrongFormat);
    }

    // Of a set of parts, made with it; the parts are then elsewhere.
    fs::path setIndex = folder / "Index of parts.vidx";
    std::vector<std::wstring> parts;
    ASSERT_EQ(Split("parts.vnkx", 64 << 10, parts, &setIndex), kEngineOK);
    ASSERT_TRUE(fs::exists(setIndex));
    fs::path away = Scratch("parts-away");
    for (const std::wstring &part : parts) fs::rename(part, away / fs::path(part).filename());
    EXPECT_FALSE(OpenedArchive(engine, setIndex).Listing().empty());
    ExpectAskedOnceAndExpanded(setIndex, away, L"parts.part01.vnkx", "set-from-index");
}

}  // namespace
}  // namespace enginetest
