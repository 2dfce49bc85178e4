// The session: version, properties that persist, handles and their
// references, strings and path lists, the notification table, filters.
#include <algorithm>
#include <set>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class SessionTest : public EngineTest {};

TEST_F(SessionTest, VersionIsReadWithOrWithoutAnEngine) {
    uint16_t a = 0, b = 0, c = 0, d = 0;
    ASSERT_EQ(GetVersionInfo(nullptr, &a, &b, &c, &d), kEngineOK);
    uint16_t e = 0, f = 0, g = 0, h = 0;
    ASSERT_EQ(GetVersionInfo(engine, &e, &f, &g, &h), kEngineOK);
    EXPECT_EQ(a, e);
    EXPECT_EQ(d, h);
    EXPECT_GE(a, 1);
    EXPECT_EQ(GetVersionInfo(nullptr, &a, nullptr, &c, &d), kEngineInvalidParameter);
}

TEST_F(SessionTest, EnginePropertiesAreCheckedByNameKindAndValue) {
    EXPECT_EQ(SetEngineBooleanProperty(engine, kEnginePropUseThreads, false), kEngineOK);
    EXPECT_EQ(SetEngineBooleanProperty(engine, kEnginePropIgnoreReturnReceipts, true), kEngineOK);
    EXPECT_EQ(SetEngineIntegerProperty(engine, kEnginePropExpansionOptions, 0), kEngineOK);
    EXPECT_EQ(SetEngineIntegerProperty(engine, kEnginePropConflictResolution,
                                       4 | kResolutionMergeFolders),
              kEngineOK);
    EXPECT_EQ(SetEngineIntegerProperty(engine, kEnginePropDuplicateResolution, 7), kEngineOK);
    // Outside the meaning of the property, of the wrong kind, or unknown.
    EXPECT_EQ(SetEngineIntegerProperty(engine, kEnginePropConflictResolution, 9),
              kEngineInvalidParameter);
    EXPECT_EQ(SetEngineIntegerProperty(engine, kEnginePropCreateFolderMethod, 3),
              kEngineInvalidParameter);
    EXPECT_EQ(SetEngineBooleanProperty(engine, kEnginePropDeleteAction, true),
              kEngineInvalidParameter);
    EXPECT_EQ(SetEngineIntegerProperty(engine, "noSuchProperty", 1), kEnginePropertyNotApplicable);
    EXPECT_EQ(SetEngineFormatIDProperty(engine, kEnginePropPostEncodingFormat, "gz"), kEngineOK);
    EXPECT_EQ(SetEngineFormatIDProperty(engine, kEnginePropPostEncodingFormat, ""), kEngineOK);
    EXPECT_EQ(SetEngineFormatIDProperty(engine, kEnginePropPostEncodingFormat, "rar"),
              kEngineWrongFormat);
    EXPECT_EQ(SetEngineFormatIDProperty(engine, kEnginePropUseThreads, "gz"),
              kEnginePropertyNotApplicable);
}

TEST_F(SessionTest, FormatPropertiesPersistAndRangesFollowTheMethod) {
    int32_t value = 0;
    ASSERT_EQ(GetFormatIntegerProperty(engine, "zip", kFormatPropCompMethod, &value), kEngineOK);
    EXPECT_EQ(value, 1);  // deflate
    ASSERT_EQ(GetFormatIntegerProperty(engine, "zip", kFormatPropCompressionDefault, &value),
              kEngineOK);
    EXPECT_EQ(value, 6);
    ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropCompMethod, 0), kEngineOK);
    ASSERT_EQ(GetFormatIntegerProperty(engine, "zip", kFormatPropCompressionLeast, &value),
              kEngineOK);
    EXPECT_EQ(value, -1);  // store has no levels
    ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropCompressionLevel, 3), kEngineOK);
    ASSERT_EQ(GetFormatIntegerProperty(engine, "zip", kFormatPropCompressionLevel, &value),
              kEngineOK);
    EXPECT_EQ(value, 3);

    ASSERT_EQ(SetFormatIntegerProperty(engine, "zip", kFormatPropEncryptMethod, 2), kEngineOK);
    ASSERT_EQ(GetFormatIntegerProperty(engine, "zip", kFormatPropKeySizeDefault, &value),
              kEngineOK);
    EXPECT_EQ(value, 128);

    // The own format's table: zstd by default, level 1, extent 22; store
    // and LZ4 have no levels.
    ASSERT_EQ(GetFormatIntegerProperty(engine, "vnkx", kFormatPropCompMethod, &value), kEngineOK);
    EXPECT_EQ(value, 5);
    ASSERT_EQ(GetFormatIntegerProperty(engine, "vnkx", kFormatPropCompExtentDefault, &value),
              kEngineOK);
    EXPECT_EQ(value, 22);
    ASSERT_EQ(SetFormatIntegerProperty(engine, "vnkx", kFormatPropCompMethod, 7), kEngineOK);
    ASSERT_EQ(GetFormatIntegerProperty(engine, "vnkx", kFormatPropCompressionMost, &value),
              kEngineOK);
    EXPECT_EQ(value, -1);

    EXPECT_EQ(SetFormatBooleanProperty(engine, "vnkx", kFormatPropBlockMode, true), kEngineOK);
    EXPECT_EQ(SetFormatBooleanProperty(engine, "vnkx", kFormatPropCompMethod, true),
              kEngineInvalidParameter);
    EXPECT_EQ(SetFormatIntegerProperty(engine, "nosuch", kFormatPropCompMethod, 1),
              kEngineWrongFormat);
    EXPECT_EQ(GetFormatIntegerProperty(engine, "tar", kFormatPropCompressionDefault, &value),
              kEnginePropertyNotApplicable);

    // Another session has its own properties.
    OpaqueEngineObject *other = nullptr;
    ASSERT_EQ(OpenVarnickEngine(&other, "test"), kEngineOK);
    ASSERT_EQ(GetFormatIntegerProperty(other, "zip", kFormatPropCompMethod, &value), kEngineOK);
    EXPECT_EQ(value, 1);
    CloseVarnickEngine(other);
}

TEST_F(SessionTest, AccessModesFollowWhatTheEngineCanChange) {
    uint16_t mode = 0;
    for (const char *changeable : {"zip", "tar", "sevenz"}) {
        ASSERT_EQ(GetArchiveFormatMaximumAccessMode(engine, changeable, &mode), kEngineOK);
        EXPECT_EQ(mode, kEngineAccessChange) << changeable;
    }
    for (const char *readOnly : {"rar", "gz", "cab", "hqx"}) {
        ASSERT_EQ(GetArchiveFormatMaximumAccessMode(engine, readOnly, &mode), kEngineOK);
        EXPECT_EQ(mode, kEngineAccessRead) << readOnly;
    }
    EXPECT_EQ(GetArchiveFormatMaximumAccessMode(engine, "nosuch", &mode), kEngineWrongFormat);
}

TEST_F(SessionTest, HandlesOfTheWrongKindOrGivenBackAreRefused) {
    OwnedFS file = Path(Scratch("x") / "file.txt");
    // A path handle is not a string handle, nor an engine.
    EXPECT_EQ(DisposeStringRef(reinterpret_cast<StringRef>(file.get())), kEngineInvalidParameter);
    EXPECT_EQ(CloseVarnickEngine(reinterpret_cast<OpaqueEngineObject *>(file.get())),
              kEngineInvalidParameter);
    FSObject given = file.release();
    EXPECT_EQ(DisposeFSObject(given), kEngineOK);
    EXPECT_EQ(DisposeFSObject(given), kEngineInvalidParameter);
    StringRef path = nullptr;
    EXPECT_EQ(AcquirePathFromFSObject(given, &path), kEngineInvalidParameter);
    EXPECT_EQ(GetUnicodeStringFromStringRef(nullptr), nullptr);
}

TEST_F(SessionTest, PathsAreFullAndNamesTheLastComponent) {
    OwnedFS file = Path("/tmp//some/./folder/name.tar.gz/");
    EXPECT_EQ(PathOf(file.get()), L"/tmp/some/folder/name.tar.gz");
    OwnedString name;
    ASSERT_EQ(AcquireFSObjectName(file.get(), name.out()), kEngineOK);
    EXPECT_EQ(TextOf(name.get()), L"name.tar.gz");
    OwnedFS relative = Path("relative.zip");
    EXPECT_EQ(PathOf(relative.get()), (fs::current_path() / "relative.zip").wstring());
    EXPECT_TRUE(IsFirstSegmentFSObject(engine, Path("/a/b.part01.vnkx").get()));
    EXPECT_TRUE(IsFirstSegmentFSObject(engine, Path("/a/b.PART1.vnkx").get()));
    EXPECT_FALSE(IsFirstSegmentFSObject(engine, Path("/a/b.part02.vnkx").get()));
    EXPECT_FALSE(IsFirstSegmentFSObject(engine, Path("/a/b.vnkx").get()));
    FSObject none = nullptr;
    EXPECT_EQ(NewFSObjectFromUnicodePath(L"", &none), kEngineInvalidParameter);
}

TEST_F(SessionTest, ListsKeepTheirOwnReferences) {
    OwnedFSList list;
    ASSERT_EQ(NewFSObjectList(engine, list.out()), kEngineOK);
    {
        OwnedFS a = Path("/x/a");
        OwnedFS b = Path("/x/b");
        ASSERT_EQ(AddFSObjectToFSObjectList(engine, a.get(), list.get()), kEngineOK);
        ASSERT_EQ(AddFSObjectToFSObjectList(engine, b.get(), list.get()), kEngineOK);
    }  // the caller's references are given back here
    ASSERT_EQ(CountFSObjectList(list.get()), 2u);
    OwnedFS second;
    ASSERT_EQ(GetNthFSObject(list.get(), 1, second.out()), kEngineOK);
    list.Reset();
    EXPECT_EQ(PathOf(second.get()), L"/x/b");  // still alive through the caller's own reference
    OwnedFS beyond;
    OwnedFSList other = PathList(engine, {"/y"});
    EXPECT_EQ(GetNthFSObject(other.get(), 1, beyond.out()), kEngineNoMoreObjects);
}

TEST_F(SessionTest, StringsRoundTripWideText) {
    OwnedString text = Text(L"Passwörd ✓ 東京");
    EXPECT_EQ(TextOf(text.get()), L"Passwörd ✓ 東京");
}

int32_t CountingFilter(int32_t, int32_t, NotificationContext, void *) {
    return kNotificationHandled;
}

TEST_F(SessionTest, NotificationsInstallReplaceAndRemovePerPair) {
    EXPECT_EQ(InstallNotification(engine, 1, 1, CountingFilter, nullptr), kEngineOK);
    EXPECT_EQ(InstallNotification(engine, 1, 1, CountingFilter, this), kEngineOK);
    EXPECT_EQ(RemoveNotification(engine, 1, 1), kEngineOK);
    EXPECT_EQ(RemoveNotification(engine, 1, 1), kEngineOK);
    EXPECT_EQ(InstallNotification(engine, 1, 1, nullptr, nullptr), kEngineInvalidParameter);
}

bool ExcludeTxt(FSObject candidate, void *calls) {
    static_cast<std::vector<std::wstring> *>(calls)->push_back(PathOf(candidate));
    std::wstring path = PathOf(candidate);
    return path.size() < 4 || path.substr(path.size() - 4) != L".txt";
}

TEST_F(SessionTest, CompressionFiltersAreAskedOncePerCandidateAndFalseLeavesItOut) {
    fs::path tree = MakeSampleTree();
    std::vector<std::wstring> calls;
    CompressionFilter filter = nullptr;
    ASSERT_EQ(AddCompressionFilter(engine, ExcludeTxt, &calls, &filter), kEngineOK);
    fs::path output = Scratch("out") / "filtered.zip";
    ASSERT_EQ(Create("zip", {tree}, output), kEngineOK);
    ASSERT_EQ(RemoveCompressionFilter(engine, filter), kEngineOK);
    EXPECT_EQ(RemoveCompressionFilter(engine, filter), kEngineInvalidParameter);

    std::set<std::wstring> unique(calls.begin(), calls.end());
    EXPECT_EQ(unique.size(), calls.size()) << "a candidate was asked twice";
    EXPECT_TRUE(unique.count(tree.wstring()));
    EXPECT_TRUE(unique.count((tree / "data" / "blob.bin").wstring()));

    OpenedArchive archive(engine, output);
    ASSERT_EQ(archive.status(), kEngineOK);
    std::vector<std::wstring> listing = archive.Listing();
    for (const auto &item : listing)
        EXPECT_EQ(item.find(L".txt"), std::wstring::npos) << std::string(item.begin(), item.end());
    EXPECT_NE(std::find(listing.begin(), listing.end(), L"sample/data/blob.bin"), listing.end());

    // Without the filter, everything goes in.
    fs::path all = Scratch("out") / "all.zip";
    ASSERT_EQ(Create("zip", {tree}, all), kEngineOK);
    OpenedArchive unfiltered(engine, all);
    EXPECT_GT(unfiltered.Listing().size(), listing.size());
}

}  // namespace
}  // namespace enginetest
