// Making archives: what other tools say of them, names, duplicates, the
// single-file compressors, notifications and cancelling.
#include <algorithm>
#include <chrono>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class CreateTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        out = Scratch("made");
    }
    void ExpectToolsAccept(const fs::path &archive, const std::vector<std::string> &checks) {
        for (const auto &check : checks) {
            Shell result = RunShell(check + " " + Quote(archive));
            EXPECT_EQ(result.status, 0) << check << " " << archive << "\n" << result.output;
        }
    }
    std::map<std::string, std::string> ExpandedBy(const std::string &command,
                                                  const std::string &name) {
        fs::path folder = Scratch("by-" + name);
        Shell result = RunShell(command, folder);
        EXPECT_EQ(result.status, 0) << command << "\n" << result.output;
        return Snapshot(folder / "src");
    }
    fs::path tree, out;
};

TEST_F(CreateTest, ZipTarAnd7zAreReadByTheOtherToolsByteForByte) {
    std::map<std::string, std::string> expected = Snapshot(tree);
    std::wstring written;
    ASSERT_EQ(Create("zip", {tree}, out / "deflated.zip", &written), kEngineOK);
    EXPECT_EQ(written, (out / "deflated.zip").wstring());
    ExpectToolsAccept(out / "deflated.zip", {"unzip -tq", "7zz t", "bsdtar -tf"});
    EXPECT_EQ(ExpandedBy("unzip -q " + Quote(out / "deflated.zip"), "unzip"), expected);
    EXPECT_EQ(ExpandedBy("7zz x -bd " + Quote(out / "deflated.zip") + " >/dev/null", "7zz-zip"),
              expected);

    ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropCompMethod, 0), kEngineOK);
    ASSERT_EQ(Create("zip", {tree}, out / "stored.zip"), kEngineOK);
    EXPECT_NE(RunShell("unzip -v " + Quote(out / "stored.zip")).output.find("Stored"),
              std::string::npos);
    ExpectToolsAccept(out / "stored.zip", {"unzip -tq", "7zz t"});

    ASSERT_EQ(Create("sevenz", {tree}, out / "seven.7z"), kEngineOK);
    ExpectToolsAccept(out / "seven.7z", {"7zz t", "bsdtar -tf"});
    EXPECT_EQ(ExpandedBy("7zz x -bd " + Quote(out / "seven.7z") + " >/dev/null", "7zz-7z"),
              expected);

    const std::pair<const char *, const char *> tars[] = {{"", "tar"},     {"gz", "tgz"},
                                                          {"bz2", "tbz2"}, {"compress", "tz"},
                                                          {"xz", "txz"},   {"zstd", "tzst"}};
    for (const auto &[encoding, name] : tars) {
        ASSERT_EQ(SetEngineFormatIDProperty(engine, kEnginePropPostEncodingFormat, encoding),
                  kEngineOK);
        fs::path archive = out / (std::string("tree.") + name);
        ASSERT_EQ(Create("tar", {tree}, archive), kEngineOK) << name;
        ExpectToolsAccept(archive, {"bsdtar -tf"});
        EXPECT_EQ(FormatOf(archive), "tar") << name;
        EXPECT_EQ(ExpandedBy("bsdtar -xf " + Quote(archive), name), expected) << name;
    }
}

TEST_F(CreateTest, EncryptedZipOpensWithThePasswordInOtherTools) {
    OwnedString password = Text(L"s3cret");
    ASSERT_EQ(Create("zip", {tree}, out / "aes.zip", nullptr, password.get()), kEngineOK);
    ExpectToolsAccept(out / "aes.zip", {"7zz t -ps3cret"});
    EXPECT_NE(RunShell("7zz t -pwrong " + Quote(out / "aes.zip")).status, 0);

    ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropEncryptMethod, 3), kEngineOK);
    ASSERT_EQ(Create("zip", {tree}, out / "traditional.zip", nullptr, password.get()), kEngineOK);
    ExpectToolsAccept(out / "traditional.zip", {"unzip -tq -P s3cret", "7zz t -ps3cret"});

    // The engine reads both back with the password.
    for (const char *name : {"aes.zip", "traditional.zip"}) {
        fs::path back = Scratch(std::string("back-") + name);
        ASSERT_EQ(Expand(out / name, back, nullptr, password.get()), kEngineOK) << name;
        EXPECT_EQ(Snapshot(back / "src"), Snapshot(tree)) << name;
    }
    // Formats without encryption say so.
    EXPECT_EQ(Create("sevenz", {tree}, out / "no.7z", nullptr, password.get()),
              kEngineEncryptionUnsupported);
    EXPECT_FALSE(fs::exists(out / "no.7z"));
}

TEST_F(CreateTest, SingleFileCompressorsTakeOneFile) {
    fs::path file = tree / "data" / "blob.bin";
    const std::pair<const char *, const char *> kinds[] = {
        {"gz", "gzip -dc"},       {"bz2", "bzip2 -dc"},
        {"xz", "xz -dc"},         {"lzma", "xz --format=lzma -dc"},
        {"zstd", "zstd -qdc"},    {"lz4", "lz4 -qdc"},
        {"compress", "gzip -dc"},
    };
    for (const auto &[id, decoder] : kinds) {
        std::wstring written;
        ASSERT_EQ(Create(id, {file}, out / (std::string("blob-") + id), &written), kEngineOK) << id;
        Shell decoded = RunShell(decoder + std::string(" ") + Quote(fs::path(written)));
        EXPECT_EQ(decoded.status, 0) << id << decoded.output.substr(0, 200);
        EXPECT_TRUE(decoded.output == ReadFile(file)) << id;
        EXPECT_EQ(FormatOf(fs::path(written)), id);
    }
    EXPECT_EQ(Create("gz", {tree}, out / "folder.gz"), kEngineItemKindUnsupported);
    EXPECT_EQ(Create("gz", {file, tree / "readme.txt"}, out / "two.gz"), kEngineTooManyItems);
    EXPECT_FALSE(fs::exists(out / "two.gz"));
}

TEST_F(CreateTest, TheExtensionIsAddedOnlyWhenTheNameHasNone) {
    std::wstring written;
    ASSERT_EQ(Create("zip", {tree / "readme.txt"}, out / "plain", &written), kEngineOK);
    EXPECT_EQ(written, (out / "plain.zip").wstring());
    ASSERT_EQ(SetEngineFormatIDProperty(engine, kEnginePropPostEncodingFormat, "gz"), kEngineOK);
    ASSERT_EQ(Create("tar", {tree / "readme.txt"}, out / "bundle", &written), kEngineOK);
    EXPECT_EQ(written, (out / "bundle.tgz").wstring());
    ASSERT_EQ(Create("sevenz", {tree / "readme.txt"}, out / "named.archive", &written), kEngineOK);
    EXPECT_EQ(written, (out / "named.archive").wstring());
    // An existing file of the name is replaced.
    WriteFile(out / "old.zip", "not an archive");
    ASSERT_EQ(Create("zip", {tree / "readme.txt"}, out / "old.zip"), kEngineOK);
    EXPECT_EQ(FormatOf(out / "old.zip"), "zip");
}

TEST_F(CreateTest, SourcesAreStoredUnderTheirLastComponent) {
    ASSERT_EQ(Create("zip", {tree / "a" / "b" / "c", tree / "readme.txt"}, out / "last.zip"),
              kEngineOK);
    OpenedArchive opened(engine, out / "last.zip");
    std::vector<std::wstring> listing = opened.Listing();
    EXPECT_EQ(listing.front(), L"c/");
    EXPECT_NE(std::find(listing.begin(), listing.end(), L"c/d/e/f/g/deep.txt"), listing.end());
    EXPECT_NE(std::find(listing.begin(), listing.end(), L"readme.txt"), listing.end());
    EXPECT_EQ(std::find(listing.begin(), listing.end(), L"src/"), listing.end()) << "no src prefix";
}

class DuplicateTest : public CreateTest {
protected:
    void SetUp() override {
        CreateTest::SetUp();
        first = Scratch("first");
        second = Scratch("second");
        WriteFile(first / "same.txt", "first\n");
        WriteFile(second / "same.txt", "second\n");
        WriteFile(first / "folder" / "one.txt", "one\n");
        WriteFile(second / "folder" / "two.txt", "two\n");
        fs::last_write_time(first / "same.txt",
                            fs::file_time_type::clock::now() - std::chrono::hours(48));
    }
    std::map<std::string, std::string> Made(int32_t resolution) {
        SetInteger(kEnginePropDuplicateResolution, resolution);
        fs::path archive = out / ("dup-" + std::to_string(resolution) + ".zip");
        EXPECT_EQ(
            Create("zip",
                   {first / "same.txt", first / "folder", second / "same.txt", second / "folder"},
                   archive),
            kEngineOK);
        fs::path back = Scratch("dup-back-" + std::to_string(resolution));
        EXPECT_EQ(Expand(archive, back), kEngineOK);
        return Snapshot(back);
    }
    fs::path first, second;
};

TEST_F(DuplicateTest, EveryDuplicateResolution) {
    auto replaced = Made(kResolutionReplace);
    EXPECT_EQ(replaced["same.txt"], "second\n");
    EXPECT_FALSE(replaced.count("folder/one.txt"));
    EXPECT_EQ(replaced["folder/two.txt"], "two\n");

    auto skipped = Made(kResolutionSkip);
    EXPECT_EQ(skipped["same.txt"], "first\n");
    EXPECT_EQ(skipped["folder/one.txt"], "one\n");
    EXPECT_FALSE(skipped.count("folder/two.txt"));

    auto both = Made(kResolutionKeepBoth);
    EXPECT_EQ(both["same.txt"], "first\n");
    EXPECT_EQ(both["same_1.txt"], "second\n");
    EXPECT_EQ(both["folder_1/two.txt"], "two\n");

    auto newer = Made(kResolutionReplaceIfNewer);
    EXPECT_EQ(newer["same.txt"], "second\n");  // the first one is two days old

    auto merged = Made(kResolutionSkip | kResolutionMergeFolders);
    EXPECT_EQ(merged["folder/one.txt"], "one\n");
    EXPECT_EQ(merged["folder/two.txt"], "two\n");
    EXPECT_EQ(merged["same.txt"], "first\n");
}

TEST_F(DuplicateTest, AskingGoesThroughTheNotification) {
    Recorder recorder(engine);
    recorder.On(1, 3, [](NotificationContext context) {
        ArchiveObject item = nullptr;
        EXPECT_EQ(GetDataFromContext(context, kContextArchiveObject, &item, sizeof item),
                  kEngineOK);
        bool folder = false;
        EXPECT_EQ(GetArchiveObjectIsFolder(item, &folder), kEngineOK);
        return AnswerConflict(
            context, folder ? kResolutionReplace | kResolutionMergeFolders : kResolutionKeepBoth);
    });
    auto asked = Made(kResolutionAskDuplicate);
    EXPECT_EQ(asked["same_1.txt"], "second\n");
    EXPECT_EQ(asked["folder/two.txt"], "two\n");
    EXPECT_EQ(asked["folder/one.txt"], "one\n");
    std::vector<Seen> seen = recorder.Of(1, 3);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].name, (second / "same.txt").wstring());
}

TEST_F(CreateTest, NotificationsOfACreationAndCancellingLeaveNoArchive) {
    Recorder recorder(engine);
    recorder.OnAll();
    ASSERT_EQ(Create("zip", {tree}, out / "watched.zip"), kEngineOK);
    EXPECT_FALSE(recorder.Of(100, 5).empty());
    EXPECT_FALSE(recorder.Of(100, 6).empty());
    std::vector<Seen> counters = recorder.Of(100, 7);
    ASSERT_FALSE(counters.empty());
    uint64_t bytes = 300000 + 16 + 13 + 5;
    EXPECT_EQ(counters.back().counters, (std::vector<uint64_t>{5, 5, bytes, bytes, bytes}));

    Recorder stopper(engine);
    stopper.On(1, 1, [](NotificationContext) { return kNotificationStop; });
    EXPECT_EQ(Create("zip", {tree}, out / "stopped.zip"), kEngineCancelled);
    for (const auto &entry : fs::directory_iterator(out))
        EXPECT_EQ(entry.path().filename(), "watched.zip") << "left behind: " << entry.path();
}

TEST_F(CreateTest, DeleteActionRemovesTheSourcesAfterSuccess) {
    fs::path doomed = Scratch("doomed");
    WriteFile(doomed / "inner" / "file.txt", "bye\n");
    SetInteger(kEnginePropDeleteAction, 1);
    ASSERT_EQ(Create("tar", {doomed}, out / "kept.tar"), kEngineOK);
    EXPECT_FALSE(fs::exists(doomed));
    OpenedArchive opened(engine, out / "kept.tar");
    EXPECT_EQ(opened.Listing(),
              (std::vector<std::wstring>{L"doomed/", L"doomed/inner/", L"doomed/inner/file.txt"}));
}

}  // namespace
}  // namespace enginetest
