// Archives told by their content: files made here by other tools, read
// through the engine's DetermineFileFormat, IsExeASea and CheckForEncrypted.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "CEngine.h"
#include "FormatCatalogue.h"
#include "SDKUtils.h"
#include "archive/ArchiveTest.h"

namespace fs = std::filesystem;

namespace {

class ClassificationTest : public archivetest::ArchiveTest {
protected:
    void SetUp() override {
        ArchiveTest::SetUp();
        folder = home.Scratch("files");
        testsupport::WriteBytes(folder / "a.txt", "some text, some text, some text\n");
        testsupport::WriteBytes(folder / "b.txt", std::string(5000, 'b'));
    }

    // The engine's id for the file's content, "" when it finds no archive.
    std::string SniffedId(const fs::path &path) {
        FSObject file = nullptr;
        if (NewFSObjectFromUnicodePath(Wide(path).c_str(), &file) != kEngineOK) return "<no path>";
        FormatId id = "";
        EngineResult result = DetermineFileFormat(engine.GetEngine(), file, id);
        DisposeFSObject(file);
        return result == kEngineOK ? std::string(id) : std::string();
    }

    format::type SniffedType(const fs::path &path) {
        return GetFormatType(SniffedId(path).c_str());
    }

    // A copy of a system program: an executable with nothing appended.
    fs::path PlainExecutable(const std::string &name) {
        fs::path program = folder / name;
        fs::copy_file("/bin/true", program, fs::copy_options::overwrite_existing);
        return program;
    }

    // An executable with a zip appended, as self-extracting archives are.
    fs::path SelfExtracting(const std::string &name) {
        EXPECT_TRUE(RunIn(folder, "zip -q sfx-payload.zip a.txt b.txt"));
        fs::path program = PlainExecutable(name);
        std::string bytes = testsupport::ReadBytes(program);
        bytes += testsupport::ReadBytes(folder / "sfx-payload.zip");
        testsupport::WriteBytes(program, bytes);
        return program;
    }

    fs::path folder;
    CEngine engine;
};

TEST_F(ClassificationTest, ArchivesOfOtherToolsAreKnownByContentNotName) {
    ASSERT_TRUE(RunIn(folder, "zip -q made.zip a.txt b.txt && cp made.zip zip-named.dat"));
    ASSERT_TRUE(RunIn(folder, "bsdtar -cf made.tar a.txt b.txt"));
    ASSERT_TRUE(RunIn(folder, "7zz a -bd made.7z a.txt b.txt"));
    ASSERT_TRUE(RunIn(folder, "gzip -k a.txt && mv a.txt.gz made.gz"));
    ASSERT_TRUE(RunIn(folder, "bsdtar -czf made.tgz a.txt"));

    EXPECT_EQ(SniffedType(folder / "made.zip"), format::zip);
    EXPECT_EQ(SniffedType(folder / "zip-named.dat"), format::zip);
    EXPECT_EQ(SniffedType(folder / "made.tar"), format::tar);
    EXPECT_EQ(SniffedType(folder / "made.7z"), format::sevenz);
    EXPECT_EQ(SniffedType(folder / "made.gz"), format::gz);
    // A compressed tar is a tar to the engine: many items, not one.
    EXPECT_EQ(SniffedType(folder / "made.tgz"), format::tar);
    EXPECT_TRUE(GetFormatCapabilities(SniffedType(folder / "made.tgz")) & kFormatHoldsManyItems);
    // No archive at all.
    EXPECT_EQ(SniffedId(folder / "a.txt"), "");
    EXPECT_EQ(GetFormatType(SniffedId(folder / "a.txt").c_str()), format::unknown);
}

TEST_F(ClassificationTest, ExecutableIsAnArchiveOnlyWithAnArchiveInside) {
    fs::path plain = PlainExecutable("plain.exe");
    fs::path sfx = SelfExtracting("setup.exe");

    EXPECT_FALSE(IsExeASea(Wide(plain).c_str()));
    EXPECT_TRUE(IsExeASea(Wide(sfx).c_str()));
    EXPECT_FALSE(IsExeASea(Wide(folder / "missing.exe").c_str()));

    // The name test asks the engine only when told to.
    EXPECT_FALSE(IsArchive(Wide(sfx).c_str(), false));
    EXPECT_TRUE(IsArchive(Wide(sfx).c_str(), true));
    EXPECT_FALSE(IsArchive(Wide(plain).c_str(), true));
    // By name alone an executable is the self-extracting kind.
    EXPECT_EQ(GetFormatType(Wide(sfx).c_str()), format::exe);
}

// MacBinary I: a 128-byte header (name, type and creator, fork lengths) and
// the data fork padded to 128 bytes. Many plain files look like one.
std::string MacBinaryFile(const std::string &name, const std::string &data) {
    std::string header(128, '\0');
    header[1] = static_cast<char>(name.size());
    header.replace(2, name.size(), name);
    header.replace(65, 8, "TEXTttxt");
    for (int i = 0; i < 4; ++i) {
        header[83 + i] = static_cast<char>((data.size() >> (8 * (3 - i))) & 0xFF);
    }
    std::string fork = data;
    fork.resize((data.size() + 127) / 128 * 128, '\0');
    return header + fork;
}

TEST_F(ClassificationTest, IsExeASeaTakesMacBinaryForNoArchive) {
    fs::path mac = folder / "mac.exe";
    testsupport::WriteBytes(mac, MacBinaryFile("notes.txt", "hello, hello"));
    ASSERT_EQ(SniffedId(mac), "bin");
    EXPECT_FALSE(IsExeASea(Wide(mac).c_str()));
    EXPECT_FALSE(IsArchive(Wide(mac).c_str(), true));
    // Under another name it is an archive of its own kind.
    EXPECT_TRUE(IsArchive(Wide(folder / "mac.bin").c_str(), false));
}

TEST_F(ClassificationTest, CheckForEncryptedReadsTheArchiveAndLogsWhatTheEngineRefuses) {
    ASSERT_TRUE(RunIn(folder, "zip -q plain.zip a.txt b.txt"));
    ASSERT_TRUE(RunIn(folder, "zip -q -P secret locked.zip a.txt b.txt"));
    ASSERT_TRUE(RunIn(folder, "7zz a -bd -psecret locked.7z a.txt b.txt"));
    ASSERT_TRUE(RunIn(folder, "bsdtar -cf plain.tar a.txt"));

    // The 7z archive has its item data enciphered and its names readable;
    // tar has no encryption at all.
    const std::pair<const char *, bool> cases[] = {
        {"plain.zip", false}, {"locked.zip", true}, {"locked.7z", true}, {"plain.tar", false}};
    for (const auto &[name, expected] : cases) {
        SCOPED_TRACE(name);
        bool encrypted = !expected;
        EXPECT_EQ(CheckForEncrypted(engine.GetEngine(), Wide(folder / name).c_str(), &encrypted),
                  kEngineOK);
        EXPECT_EQ(encrypted, expected);
    }
    // A file the engine cannot open: its result is returned and logged.
    bool encrypted = false;
    EngineResult result =
        CheckForEncrypted(engine.GetEngine(), Wide(folder / "a.txt").c_str(), &encrypted);
    EXPECT_NE(result, kEngineOK);
    EXPECT_FALSE(encrypted);
    std::string log = ErrorFileText();
    EXPECT_NE(log.find("CheckForEncrypted"), std::string::npos) << log;
    EXPECT_NE(log.find(std::to_string(result)), std::string::npos) << log;
}

}  // namespace
