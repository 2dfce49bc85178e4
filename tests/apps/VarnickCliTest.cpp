// The command-line program end to end, as a user runs it.
#include <gtest/gtest.h>
#include <string>

#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

testsupport::ProgramRun Varnick(const std::string &arguments) {
    return testsupport::RunProgram("varnick", arguments);
}

class VarnickCli : public testsupport::HomeTest {};

}  // namespace

TEST_F(VarnickCli, ListsAFolderWithWindowsAttributesAndGroupedSizes) {
    auto folder = home.Scratch("sample");
    testsupport::WriteBytes(folder / "big.bin", std::string(1234567, 'x'));
    testsupport::WriteBytes(folder / ".hidden", "h");
    std::filesystem::create_directory(folder / "sub");

    testsupport::ProgramRun run = Varnick("ls '" + folder.string() + "'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("1,234,567  big.bin"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("--h-a  "), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("d---"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("2 files, 1,234,568 bytes"), std::string::npos) << run.output;
}

TEST_F(VarnickCli, FoldersLieBelowTheHome) {
    testsupport::ProgramRun run = Varnick("folders");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find(home.Path().string() + "/user/.local/share"), std::string::npos)
        << run.output;
}

TEST_F(VarnickCli, BadInputGivesClearMessagesAndExitCodes) {
    testsupport::ProgramRun missing = Varnick("ls '" + (home.Path() / "nowhere").string() + "'");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("no such folder"), std::string::npos) << missing.output;

    testsupport::ProgramRun unknown = Varnick("frobnicate");
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_NE(unknown.output.find("unknown command 'frobnicate'"), std::string::npos);

    EXPECT_EQ(Varnick("").exitCode, 2);
    testsupport::ProgramRun help = Varnick("--help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.output.find("usage: varnick"), std::string::npos);
}

namespace {

std::string Quoted(const std::filesystem::path &path) { return "'" + path.string() + "'"; }

// A small tree with a compressible file, a folder below and an empty file.
std::filesystem::path MakeSampleTree(testsupport::TempHome &home) {
    auto folder = home.Scratch("tree");
    testsupport::WriteBytes(folder / "notes.txt", std::string(20000, 'a') + "end\n");
    std::filesystem::create_directory(folder / "sub");
    testsupport::WriteBytes(folder / "sub" / "data.bin", std::string("\x01\x02\x03\xff", 4));
    testsupport::WriteBytes(folder / "sub" / "empty", "");
    return folder;
}

void ExpectSameFile(const std::filesystem::path &a, const std::filesystem::path &b) {
    ASSERT_TRUE(std::filesystem::exists(b)) << b;
    EXPECT_EQ(testsupport::ReadBytes(a), testsupport::ReadBytes(b)) << b;
}

}  // namespace

class VarnickArchiveCli : public VarnickCli, public ::testing::WithParamInterface<const char *> {};

TEST_P(VarnickArchiveCli, CreatesListsVerifiesAndExpandsAnArchiveOfAFolder) {
    const auto tree = MakeSampleTree(home);
    const auto archive = home.Path() / (std::string("sample.") + GetParam());
    testsupport::ProgramRun created =
        Varnick("create " + Quoted(archive) + " " + Quoted(tree) + " --level 5");
    ASSERT_EQ(created.exitCode, 0) << created.output;
    ASSERT_TRUE(std::filesystem::exists(archive));

    testsupport::ProgramRun listed = Varnick("list " + Quoted(archive));
    ASSERT_EQ(listed.exitCode, 0) << listed.output;
    EXPECT_NE(listed.output.find("20,004"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("tree/notes.txt"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("tree/sub/data.bin"), std::string::npos) << listed.output;

    testsupport::ProgramRun json = Varnick("list --json " + Quoted(archive));
    ASSERT_EQ(json.exitCode, 0) << json.output;
    EXPECT_NE(json.output.find("\"size\": 20004"), std::string::npos) << json.output;
    EXPECT_EQ(json.output.front(), '[');

    testsupport::ProgramRun info = Varnick("info " + Quoted(archive));
    ASSERT_EQ(info.exitCode, 0) << info.output;
    EXPECT_NE(info.output.find("files            3"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("encrypted        no"), std::string::npos) << info.output;

    testsupport::ProgramRun verified = Varnick("verify " + Quoted(archive));
    EXPECT_EQ(verified.exitCode, 0) << verified.output;

    const auto out = home.Path() / "out";
    testsupport::ProgramRun expanded = Varnick("expand " + Quoted(archive) + " -d " + Quoted(out));
    ASSERT_EQ(expanded.exitCode, 0) << expanded.output;
    ExpectSameFile(tree / "notes.txt", out / "tree" / "notes.txt");
    ExpectSameFile(tree / "sub" / "data.bin", out / "tree" / "sub" / "data.bin");
    ExpectSameFile(tree / "sub" / "empty", out / "tree" / "sub" / "empty");
}

INSTANTIATE_TEST_SUITE_P(Formats, VarnickArchiveCli, ::testing::Values("zip", "vnkx"));

TEST_F(VarnickCli, ArchiveCommandsTellMissingFilesNonArchivesAndBadOptions) {
    testsupport::ProgramRun missing = Varnick("list " + Quoted(home.Path() / "none.zip"));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("no such file"), std::string::npos) << missing.output;

    const auto text = home.Path() / "plain.zip";
    testsupport::WriteBytes(text, "this is not an archive at all\n");
    testsupport::ProgramRun notArchive = Varnick("info " + Quoted(text));
    EXPECT_EQ(notArchive.exitCode, 1);
    EXPECT_NE(notArchive.output.find("varnick: "), std::string::npos) << notArchive.output;

    EXPECT_EQ(Varnick("list " + Quoted(text) + " --frob").exitCode, 2);
    EXPECT_EQ(Varnick("verify").exitCode, 2);
    testsupport::ProgramRun unknownFormat =
        Varnick("create " + Quoted(home.Path() / "x.abc") + " " + Quoted(home.Path()));
    EXPECT_EQ(unknownFormat.exitCode, 2);
    EXPECT_NE(unknownFormat.output.find("unknown format"), std::string::npos);
    EXPECT_EQ(Varnick("create " + Quoted(home.Path() / "x.zip") + " " + Quoted(home.Path()) +
                      " --level 12")
                  .exitCode,
              2);
}

TEST_F(VarnickCli, APasswordProtectedArchiveNeedsTheRightPassword) {
    const auto tree = MakeSampleTree(home);
    const auto archive = home.Path() / "secret.zip";
    const auto passwordFile = home.Path() / "password";
    testsupport::WriteBytes(passwordFile, "open sesame\n");
    ASSERT_EQ(Varnick("create " + Quoted(archive) + " " + Quoted(tree) + " --password-file " +
                      Quoted(passwordFile))
                  .exitCode,
              0);
    testsupport::ProgramRun info = Varnick("info " + Quoted(archive));
    EXPECT_NE(info.output.find("encrypted        yes"), std::string::npos) << info.output;
    testsupport::ProgramRun without = Varnick("verify " + Quoted(archive) + " < /dev/null");
    EXPECT_EQ(without.exitCode, 1);
    EXPECT_NE(without.output.find("give --password"), std::string::npos) << without.output;

    testsupport::ProgramRun wrong = Varnick("expand " + Quoted(archive) + " -d " +
                                            Quoted(home.Path() / "w") + " --password nope");
    EXPECT_EQ(wrong.exitCode, 1) << wrong.output;
    EXPECT_NE(wrong.output.find("wrong password"), std::string::npos) << wrong.output;
    EXPECT_FALSE(std::filesystem::exists(home.Path() / "w" / "tree" / "notes.txt"));

    testsupport::ProgramRun right =
        Varnick("expand " + Quoted(archive) + " -d " + Quoted(home.Path() / "r") +
                " --password 'open sesame'");
    ASSERT_EQ(right.exitCode, 0) << right.output;
    ExpectSameFile(tree / "notes.txt", home.Path() / "r" / "tree" / "notes.txt");
}

TEST_F(VarnickCli, ExpandKeepsWhatIsThereUnlessToldToOverwriteWhichMergesFolders) {
    const auto tree = MakeSampleTree(home);
    const auto archive = home.Path() / "again.zip";
    ASSERT_EQ(Varnick("create " + Quoted(archive) + " " + Quoted(tree)).exitCode, 0);
    const auto out = home.Path() / "out";
    const auto notes = out / "tree" / "notes.txt";
    const auto own = out / "tree" / "own.txt";
    std::filesystem::create_directories(notes.parent_path());
    testsupport::WriteBytes(notes, "mine");
    testsupport::WriteBytes(own, "kept");

    EXPECT_EQ(Varnick("expand " + Quoted(archive) + " -d " + Quoted(out) + " --skip").exitCode, 0);
    EXPECT_EQ(testsupport::ReadBytes(notes), "mine");

    EXPECT_EQ(Varnick("expand " + Quoted(archive) + " -d " + Quoted(out) + " --overwrite").exitCode,
              0);
    ExpectSameFile(tree / "notes.txt", notes);
    ExpectSameFile(tree / "sub" / "data.bin", out / "tree" / "sub" / "data.bin");
    EXPECT_EQ(testsupport::ReadBytes(own), "kept");
    EXPECT_EQ(Varnick("expand " + Quoted(archive) + " --overwrite --skip").exitCode, 2);
}
