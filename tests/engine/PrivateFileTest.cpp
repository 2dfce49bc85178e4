// The private-file envelope: one file in, the same file out with the right
// password only, and any change to the envelope found.
#include <random>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class PrivateFileTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        folder = Scratch("pf");
        // Compressible text followed by noise, over more than one chunk.
        std::string contents;
        for (int i = 0; contents.size() < 1'500'000; ++i)
            contents += "line " + std::to_string(i) + " of the private file\n";
        std::mt19937 random(7);
        for (int i = 0; i < 1'500'000; ++i) contents += static_cast<char>(random());
        source = folder / "in" / "report 2026.txt";
        WriteFile(source, contents);
    }
    fs::path Made(const std::wstring &password = L"secret") {
        OwnedString text = Text(password);
        std::wstring written;
        EXPECT_EQ(Create("pf", {source}, folder / "out.pf", &written, text.get()), kEngineOK);
        return folder / "out.pf";
    }
    fs::path folder, source;
};

TEST_F(PrivateFileTest, RoundTripKeepsNameDataAndAsksAgainForAWrongPassword) {
    fs::path archive = Made();
    EXPECT_EQ(FormatOf(archive), "pf");
    EXPECT_LT(fs::file_size(archive), fs::file_size(source));
    // Nothing of the contents shows through.
    EXPECT_EQ(ReadFile(archive).find("of the private file"), std::string::npos);
    {
        OpenedArchive opened(engine, archive);
        ASSERT_EQ(opened.status(), kEngineOK);
        EXPECT_EQ(opened.Listing(), std::vector<std::wstring>{L"report 2026.txt"});
        bool encrypted = false;
        OwnedItem item = opened.Item(L"report 2026.txt");
        ASSERT_EQ(GetArchiveObjectBooleanProperty(item.get(), kItemPropEncrypted, &encrypted),
                  kEngineOK);
        EXPECT_TRUE(encrypted);
    }

    Recorder recorder(engine);
    int asked = 0;
    recorder.On(200, 9, [&](NotificationContext context) {
        return GivePassword(context, ++asked == 1 ? L"wrong" : L"secret");
    });
    fs::path out = folder / "expanded";
    fs::create_directories(out);
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(ReadFile(out / "report 2026.txt"), ReadFile(source));
}

TEST_F(PrivateFileTest, CreatingWithoutAPasswordIsRefused) {
    EXPECT_EQ(Create("pf", {source}, folder / "none.pf"), kEnginePasswordNeeded);
    EXPECT_FALSE(fs::exists(folder / "none.pf"));
    // One file only.
    WriteFile(folder / "in" / "second.txt", "x");
    OwnedString text = Text(L"secret");
    EXPECT_NE(Create("pf", {source, folder / "in" / "second.txt"}, folder / "two.pf", nullptr,
                     text.get()),
              kEngineOK);
}

TEST_F(PrivateFileTest, ExpandingRefusesWithoutThePasswordAndVerifyTellsWrongFromRight) {
    fs::path archive = Made();
    fs::path out = folder / "expanded";
    fs::create_directories(out);
    EXPECT_EQ(Expand(archive, out), kEnginePasswordNeeded);
    EXPECT_FALSE(fs::exists(out / "report 2026.txt"));

    OwnedFS file = Path(archive);
    EngineArchive bound = nullptr;
    ASSERT_EQ(AcquireArchive(engine, file.get(), &bound), kEngineOK);
    OwnedString right = Text(L"secret"), wrong = Text(L"Secret");
    EXPECT_EQ(VerifyArchivePassword(engine, bound, wrong.get()), kEnginePasswordOnPlainArchive);
    EXPECT_EQ(VerifyArchivePassword(engine, bound, right.get()), kEngineOK);
    ReleaseArchive(bound);
    EXPECT_EQ(VerifyArchive(engine, file.get(), right.get()), kEngineOK);
}

TEST_F(PrivateFileTest, DamageAnywhereIsFound) {
    fs::path archive = Made();
    const std::string original = ReadFile(archive);
    OwnedString password = Text(L"secret");
    struct Change {
        const char *what;
        std::size_t at;      // byte flipped, or npos
        std::size_t length;  // kept length, or npos
        EngineResult expected;
    };
    const std::size_t npos = std::string::npos;
    const Change changes[] = {
        {"stored size", 64, npos, kEngineItemDataDamaged},
        {"name", 90, npos, kEngineItemDataDamaged},
        {"first chunk", 200, npos, kEngineItemDataDamaged},
        {"last byte", original.size() - 1, npos, kEngineItemDataDamaged},
        {"cut in a chunk", npos, original.size() / 2, kEngineArchiveTruncated},
        {"last chunk dropped", npos, 0, kEngineArchiveTruncated},
    };
    for (const Change &change : changes) {
        SCOPED_TRACE(change.what);
        std::string bytes = original;
        if (change.at != npos) bytes[change.at] ^= 0x20;
        if (change.length != npos && change.length != 0) bytes.resize(change.length);
        if (change.length == 0) {
            // Up to the start of the last chunk: the first chunk's length
            // word tells where it ends.
            std::size_t header = 64 + 22 + std::string("report 2026.txt").size();
            std::uint32_t first = 0;
            for (int i = 0; i < 4; ++i)
                first |= static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[header + i]))
                         << (8 * i);
            bytes.resize(header + 4 + (first & 0x7fffffff));
        }
        WriteFile(archive, bytes);
        OwnedFS file = Path(archive);
        EXPECT_EQ(VerifyArchive(engine, file.get(), password.get()), change.expected);
    }
}

}  // namespace
}  // namespace enginetest
