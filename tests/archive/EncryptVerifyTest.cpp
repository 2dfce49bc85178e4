// Encryption, password checks, verification and recovery through the
// facade, on real archives.
#include <gtest/gtest.h>

#include <filesystem>

#include "archive/FacadeTest.h"

namespace {

using archivetest::EndLog;
namespace fs = std::filesystem;

class EncryptVerifyTest : public archivetest::FacadeTest {
protected:
    fs::path SampleArchive(const char *formatId, const std::string &name) {
        fs::path a = Put("src/a.txt", std::string(3000, 'a'));
        fs::path b = Put("src/b.txt", std::string(3000, 'b'));
        fs::path path = work / name;
        EXPECT_EQ(Create(path, {a, b}, formatId), 0);
        return path;
    }

    static size_t EntriesIn(const fs::path &folder) {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
    }
};

TEST_F(EncryptVerifyTest, EncryptAndRemoveEncryptionOfZipAndVnkxRewriteInPlace) {
    formatOptions->ZipEncryptionMethod = 3;
    formatOptions->VnkxEncryptionMethod = 1;
    for (const auto &[formatId, name] : {std::pair{"zip", "plain.zip"}, {"vnkx", "plain.vnkx"}}) {
        SCOPED_TRACE(formatId);
        fs::path path = SampleArchive(formatId, name);
        size_t entries = EntriesIn(work);
        auto archive = MakeArchive(path);

        RunToSuccess(*archive, [&] { return archive->Encrypt(L"secret"); });
        EXPECT_TRUE(archive->encrypted);
        EXPECT_EQ(archive->password, L"secret");
        EXPECT_EQ(EntriesIn(work), entries) << "the new file took the old one's name";
        EXPECT_TRUE(archive->VerifyPassword(L"secret"));
        EXPECT_FALSE(archive->VerifyPassword(L"guess"));
        EXPECT_EQ(archive->password, L"secret") << "a wrong guess forgets nothing";

        RunToSuccess(*archive, [&] { return archive->RemoveEncryption(L"secret"); });
        EXPECT_FALSE(archive->encrypted);
        EXPECT_TRUE(archive->password.empty());
        EXPECT_EQ(EntriesIn(work), entries);

        // Without encryption any password fits, and the stored one is dropped.
        archive->password = L"stale";
        EXPECT_TRUE(archive->VerifyPassword(L"anything"));
        EXPECT_TRUE(archive->password.empty());
        EXPECT_TRUE(host.Recorded().empty());
    }
}

// A file that is no archive, and a format other than Zip and vnkx: the
// library sets nothing for the latter and leaves the refusal to the engine.
TEST_F(EncryptVerifyTest, FailedTransformLeavesTheSourceUntouched) {
    Put("src/a.txt", "a");
    fs::path tar = Make("plain.tar", "cd src && tar cf ../plain.tar a.txt");
    fs::path notes = Put("notes.zip", "not an archive at all");
    for (const auto &[path, result] :
         {std::pair{notes, EngineResult{0}}, {tar, EngineResult{kEngineEncryptionUnsupported}}}) {
        SCOPED_TRACE(path.filename().string());
        const std::string before = testsupport::ReadBytes(path);
        const std::size_t entries = EntriesIn(work);
        auto archive = MakeArchive(path);
        RunToEnd(*archive, [&] { return archive->Encrypt(L"secret"); });
        EXPECT_NE(archive->lastResult, 0);
        if (result) {
            EXPECT_EQ(archive->lastResult, result);
        }
        EXPECT_FALSE(archive->encrypted);
        EXPECT_TRUE(archive->password.empty());
        EXPECT_EQ(testsupport::ReadBytes(path), before);
        EXPECT_EQ(EntriesIn(work), entries) << "no half-written file beside it";
    }
}

TEST_F(EncryptVerifyTest, VerifyAndRecoverAVnkxWithRecoveryData) {
    OpaqueEngineObject *session = engine.GetEngine();
    ASSERT_EQ(SetFormatIntegerProperty(session, "vnkx", kFormatPropRedundancyLevel, 10), 0);
    fs::path path = SampleArchive("vnkx", "guarded.vnkx");
    SetFormatIntegerProperty(session, "vnkx", kFormatPropRedundancyLevel, 0);
    auto archive = MakeArchive(path);
    RunToSuccess(*archive, [&] { return archive->Verify(); });

    std::string bytes = testsupport::ReadBytes(path);
    for (size_t i = 100; i < 120; ++i) bytes[i] ^= 0x5A;
    testsupport::WriteBytes(path, bytes);
    RunToEnd(*archive, [&] { return archive->Verify(); });
    EXPECT_NE(archive->lastResult, 0);

    // No folder chosen: nothing runs, and that is no failure.
    host.QueueDirectory(std::nullopt);
    RunToSuccess(*archive, [&] { return archive->Recover(); });
    EXPECT_FALSE(fs::exists(work / "recovered"));

    fs::path recovered = work / "recovered";
    fs::create_directories(recovered);
    host.QueueDirectory(Wide(recovered));
    RunToSuccess(*archive, [&] { return archive->Recover(); });
    ASSERT_EQ(EntriesIn(recovered), 1u);
    archive->SetArchiveName(Wide(fs::directory_iterator(recovered)->path()).c_str());
    RunToSuccess(*archive, [&] { return archive->Verify(); });
}

}  // namespace
