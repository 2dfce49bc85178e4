// The engine's developer program end to end, as the benchmark runs it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;
using testsupport::ReadBytes;
using testsupport::WriteBytes;

testsupport::ProgramRun Engine(const std::string &arguments) {
    return testsupport::RunProgram("varnick-engine", arguments);
}
testsupport::ProgramRun EngineOk(const std::string &arguments) {
    return testsupport::RunToSuccess("varnick-engine", arguments);
}

using testsupport::Quoted;

class VarnickEngineCli : public testsupport::HomeTest {
protected:
    // A small tree with text, bytes of every value, an empty file and a
    // nested folder.
    fs::path MakeSources() {
        fs::path sources = home.Scratch("sources") / "tree";
        fs::create_directories(sources / "sub" / "deeper");
        std::string text;
        for (int i = 0; i < 2000; ++i) text += "line " + std::to_string(i) + " of some text\n";
        std::string bytes;
        for (int i = 0; i < 70000; ++i) bytes += static_cast<char>((i * 7919) & 0xFF);
        WriteBytes(sources / "text.txt", text);
        WriteBytes(sources / "sub" / "bytes.bin", bytes);
        WriteBytes(sources / "sub" / "deeper" / "empty", "");
        return sources;
    }
};

TEST_F(VarnickEngineCli, ZipRoundTripRestoresEveryFileAndListsAndTestsTheArchive) {
    fs::path sources = MakeSources();
    fs::path archive = home.Scratch("out") / "tree.zip";

    EngineOk("a --level 6 " + Quoted(archive) + " " + Quoted(sources));
    EXPECT_EQ(ReadBytes(archive).substr(0, 2), "PK");

    auto listed = EngineOk("l " + Quoted(archive));
    EXPECT_NE(listed.output.find("tree/sub/bytes.bin"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("tree/sub/deeper/"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("3 files"), std::string::npos) << listed.output;

    EngineOk("t " + Quoted(archive));

    fs::path destination = home.Scratch("expanded");
    EngineOk("x " + Quoted(archive) + " " + Quoted(destination));
    testsupport::ExpectSameTree(sources, destination / "tree");

    // A second expansion into the same folder replaces rather than stops.
    EngineOk("x " + Quoted(archive) + " " + Quoted(destination));
}

TEST_F(VarnickEngineCli, FormatFollowsTheExtensionUnlessOneIsGiven) {
    fs::path sources = MakeSources();
    fs::path out = home.Scratch("out");

    EngineOk("a --no-threads " + Quoted(out / "tree.tgz") + " " + Quoted(sources));
    EXPECT_EQ(ReadBytes(out / "tree.tgz").substr(0, 2), "\x1f\x8b");

    EngineOk("a --format zip " + Quoted(out / "tree.data") + " " + Quoted(sources));
    EXPECT_EQ(ReadBytes(out / "tree.data").substr(0, 2), "PK");

    auto unknown = Engine("a " + Quoted(out / "tree.what") + " " + Quoted(sources));
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_NE(unknown.output.find("--format"), std::string::npos) << unknown.output;
}

TEST_F(VarnickEngineCli, PasswordReachesTheEngineBothWays) {
    fs::path sources = MakeSources();
    fs::path archive = home.Scratch("out") / "secret.zip";
    EngineOk("a --password 'pass word' " + Quoted(archive) + " " + Quoted(sources));

    auto without = Engine("x " + Quoted(archive) + " " + Quoted(home.Scratch("none")));
    EXPECT_EQ(without.exitCode, 1);
    EXPECT_NE(without.output.find("17507 (a password is needed"), std::string::npos)
        << without.output;

    fs::path destination = home.Scratch("with");
    EngineOk("x --password 'pass word' " + Quoted(archive) + " " + Quoted(destination));
    testsupport::ExpectSameTree(sources, destination / "tree");
}

TEST_F(VarnickEngineCli, FailuresExitWithTheEngineResultAndItsMeaning) {
    fs::path junk = home.Scratch("in") / "junk.zip";
    WriteBytes(junk, std::string(100, 'j'));
    auto notArchive = Engine("l " + Quoted(junk));
    EXPECT_EQ(notArchive.exitCode, 1);
    EXPECT_NE(notArchive.output.find("17510 (the file is of no kind the engine knows)"),
              std::string::npos)
        << notArchive.output;

    auto missing = Engine("t " + Quoted(home.Path() / "nowhere.zip"));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("2 (the system cannot find the file specified)"),
              std::string::npos)
        << missing.output;

    EXPECT_EQ(Engine("").exitCode, 2);
    EXPECT_EQ(Engine("q archive.zip").exitCode, 2);
    EXPECT_EQ(Engine("x only-one.zip").exitCode, 2);
    auto badNumber = Engine("a --level six out.zip in");
    EXPECT_EQ(badNumber.exitCode, 2);
    EXPECT_NE(badNumber.output.find("needs a number"), std::string::npos) << badNumber.output;
}

}  // namespace
