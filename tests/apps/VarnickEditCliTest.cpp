// The commands of the command-line program that change an archive, take
// items out of it or repair it, end to end on real archives.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;

using testsupport::Mentions;
using testsupport::Quoted;

class VarnickEditCli : public testsupport::HomeTest {
protected:
    void SetUp() override {
        HomeTest::SetUp();
        tree = home.Scratch("tree");
        testsupport::WriteBytes(tree / "notes.txt", std::string(5000, 'n'));
        fs::create_directory(tree / "docs");
        testsupport::WriteBytes(tree / "docs" / "a.txt", "alpha");
        testsupport::WriteBytes(tree / "docs" / "b.txt", "beta");
        extra = home.Scratch("extra");
        testsupport::WriteBytes(extra / "new.txt", "added later");
    }

    // Standard input is no terminal: nobody answers a prompt.
    testsupport::ProgramRun Varnick(const std::string &arguments) {
        return testsupport::RunProgram("varnick", arguments + " < /dev/null");
    }
    testsupport::ProgramRun VarnickOk(const std::string &arguments) {
        return testsupport::RunToSuccess("varnick", arguments + " < /dev/null");
    }

    // An archive of the files of `tree` (not the folder itself), so that
    // "docs" lies at the top of the archive.
    fs::path Made(const std::string &name, const std::string &options = "") {
        const fs::path archive = home.Path() / name;
        testsupport::ProgramRun run =
            VarnickOk("create " + Quoted(archive) + " " + Quoted(tree / "notes.txt") + " " +
                      Quoted(tree / "docs") + " " + options);
        return archive;
    }

    std::string Listing(const fs::path &archive, const std::string &options = "") {
        testsupport::ProgramRun run = VarnickOk("list --json " + Quoted(archive) + " " + options);
        return run.output;
    }

    fs::path tree;
    fs::path extra;
};

bool Lists(const std::string &listing, const std::string &path) {
    return listing.find("\"path\": \"" + path + "\"") != std::string::npos;
}

class VarnickEditFormats : public VarnickEditCli,
                           public ::testing::WithParamInterface<const char *> {};

TEST_P(VarnickEditFormats, AddsIntoAFolderMakesFoldersRenamesAndRemovesItems) {
    const fs::path archive = Made(std::string("edit.") + GetParam());

    testsupport::ProgramRun added =
        VarnickOk("add " + Quoted(archive) + " " + Quoted(extra / "new.txt") + " --into docs");
    EXPECT_TRUE(Lists(Listing(archive), "docs/new.txt")) << Listing(archive);

    // A folder that is not there yet is made first.
    VarnickOk("add " + Quoted(archive) + " " + Quoted(extra / "new.txt") + " --into more");
    EXPECT_TRUE(Lists(Listing(archive), "more/new.txt"));

    // A password encrypts what is added.
    VarnickOk("add " + Quoted(archive) + " " + Quoted(extra / "new.txt") + " --password pw");
    const fs::path secret = home.Path() / "secret";
    EXPECT_EQ(Varnick("extract " + Quoted(archive) + " new.txt -d " + Quoted(secret)).exitCode, 1);
    VarnickOk("extract " + Quoted(archive) + " new.txt -d " + Quoted(secret) + " --password pw");
    EXPECT_EQ(testsupport::ReadBytes(secret / "new.txt"), "added later");

    VarnickOk("mkdir " + Quoted(archive) + " docs sub");
    VarnickOk("mkdir " + Quoted(archive) + " / top");
    std::string listing = Listing(archive);
    EXPECT_TRUE(Lists(listing, "docs/sub/")) << listing;
    EXPECT_TRUE(Lists(listing, "top/")) << listing;
    EXPECT_EQ(Varnick("mkdir " + Quoted(archive) + " / top").exitCode, 1);

    VarnickOk("rename " + Quoted(archive) + " docs/a.txt first.txt");
    listing = Listing(archive);
    EXPECT_TRUE(Lists(listing, "docs/first.txt")) << listing;
    EXPECT_FALSE(Lists(listing, "docs/a.txt")) << listing;

    VarnickOk("remove " + Quoted(archive) + " notes.txt docs/b.txt more/");
    listing = Listing(archive);
    EXPECT_FALSE(Lists(listing, "notes.txt")) << listing;
    EXPECT_FALSE(Lists(listing, "docs/b.txt")) << listing;
    EXPECT_FALSE(Lists(listing, "more/new.txt")) << listing;
    EXPECT_TRUE(Lists(listing, "docs/first.txt")) << listing;

    // Whatever was left still expands whole.
    const fs::path out = home.Path() / "out";
    VarnickOk("expand " + Quoted(archive) + " -d " + Quoted(out) + " --password pw");
    EXPECT_EQ(testsupport::ReadBytes(out / "docs" / "first.txt"), "alpha");
    EXPECT_EQ(testsupport::ReadBytes(out / "docs" / "new.txt"), "added later");
}

INSTANTIATE_TEST_SUITE_P(Formats, VarnickEditFormats, ::testing::Values("zip", "vnkx"));

// The conflict options are expand's, and the library's conflict methods its own case.
TEST_F(VarnickEditCli, ExtractsChosenItemsUnderTheirOwnNamesAndFoldersWithWhatTheyHold) {
    const fs::path archive = Made("pick.zip");
    const fs::path out = home.Path() / "picked";
    VarnickOk("extract " + Quoted(archive) + " notes.txt docs/b.txt -d " + Quoted(out));
    EXPECT_EQ(testsupport::ReadBytes(out / "notes.txt"), std::string(5000, 'n'));
    EXPECT_EQ(testsupport::ReadBytes(out / "b.txt"), "beta");
    EXPECT_FALSE(fs::exists(out / "a.txt"));
    EXPECT_FALSE(fs::exists(out / "docs"));

    // A folder brings what it holds.
    VarnickOk("extract " + Quoted(archive) + " /docs/ -d " + Quoted(home.Path() / "f"));
    EXPECT_EQ(testsupport::ReadBytes(home.Path() / "f" / "docs" / "a.txt"), "alpha");
    EXPECT_EQ(testsupport::ReadBytes(home.Path() / "f" / "docs" / "b.txt"), "beta");
}

TEST_F(VarnickEditCli, AnItemThatIsNotInTheArchiveChangesNothing) {
    const fs::path archive = Made("typo.zip");
    const std::string before = testsupport::ReadBytes(archive);
    for (const std::string &command :
         {"extract " + Quoted(archive) + " notes.txt nothere.txt -d " + Quoted(home.Path() / "x"),
          "remove " + Quoted(archive) + " notes.txt nothere.txt",
          "rename " + Quoted(archive) + " nothere.txt other.txt",
          "mkdir " + Quoted(archive) + " nothere sub"}) {
        testsupport::ProgramRun run = Varnick(command);
        EXPECT_EQ(run.exitCode, 1) << command << "\n" << run.output;
        EXPECT_TRUE(Mentions(run, "nothere")) << run.output;
        EXPECT_TRUE(Mentions(run, "no such item in the archive")) << run.output;
    }
    EXPECT_EQ(testsupport::ReadBytes(archive), before);
    EXPECT_FALSE(fs::exists(home.Path() / "x" / "notes.txt"));
}

TEST_F(VarnickEditCli, ACommentIsSetAndReadBackOnVnkxOnly) {
    const fs::path vnkx = Made("noted.vnkx");
    VarnickOk("comment " + Quoted(vnkx) + " 'kept for the audit'");
    testsupport::ProgramRun read = VarnickOk("comment " + Quoted(vnkx));
    EXPECT_EQ(read.output, "kept for the audit\n");
    EXPECT_TRUE(Mentions(Varnick("info " + Quoted(vnkx)), "kept for the audit"));

    const fs::path zip = Made("plain.zip");
    testsupport::ProgramRun refused = Varnick("comment " + Quoted(zip) + " 'no place for it'");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(Mentions(refused, "only a vnkx archive takes a comment")) << refused.output;
}

class VarnickProtectFormats : public VarnickEditCli,
                              public ::testing::WithParamInterface<const char *> {};

TEST_P(VarnickProtectFormats, EncryptedArchiveNeedsThePasswordUntilDecrypted) {
    const fs::path archive = Made(std::string("guarded.") + GetParam());
    const fs::path passwordFile = home.Path() / "password";
    testsupport::WriteBytes(passwordFile, "open sesame\n");
    VarnickOk("encrypt " + Quoted(archive) + " --password-file " + Quoted(passwordFile));
    EXPECT_EQ(Varnick("encrypt " + Quoted(archive) + " --password x").exitCode, 1);

    testsupport::ProgramRun without =
        Varnick("expand " + Quoted(archive) + " -d " + Quoted(home.Path() / "a"));
    EXPECT_EQ(without.exitCode, 1) << without.output;
    EXPECT_FALSE(fs::exists(home.Path() / "a" / "docs" / "a.txt"));

    testsupport::ProgramRun wrong = Varnick("decrypt " + Quoted(archive) + " --password nope");
    EXPECT_EQ(wrong.exitCode, 1) << wrong.output;
    EXPECT_TRUE(Mentions(wrong, "wrong password")) << wrong.output;
    testsupport::ProgramRun unasked = Varnick("decrypt " + Quoted(archive));
    EXPECT_EQ(unasked.exitCode, 1) << unasked.output;
    EXPECT_TRUE(Mentions(unasked, "give --password")) << unasked.output;

    VarnickOk("decrypt " + Quoted(archive) + " --password 'open sesame'");
    VarnickOk("expand " + Quoted(archive) + " -d " + Quoted(home.Path() / "b"));
    EXPECT_EQ(testsupport::ReadBytes(home.Path() / "b" / "docs" / "a.txt"), "alpha");
    EXPECT_EQ(Varnick("decrypt " + Quoted(archive) + " --password x").exitCode, 1);
}

INSTANTIATE_TEST_SUITE_P(Formats, VarnickProtectFormats, ::testing::Values("zip", "vnkx"));

// Runs the program on a terminal of its own (script's pseudo-terminal),
// with `typed` waiting as input; its exit code.
int OnATerminal(const std::string &arguments, const std::string &typed) {
    return testsupport::Shell("printf '" + typed + "' | script -qec \"" +
                              std::string(VARNICK_BIN_DIR) + "/varnick " + arguments +
                              "\" /dev/null > /dev/null");
}

TEST_F(VarnickEditCli, OnATerminalANewPasswordIsTypedTwiceAndTheOldOneOnce) {
    const fs::path archive = Made("typed.zip");
    // The first pair differs, so the new password is asked for again.
    ASSERT_EQ(OnATerminal("encrypt " + Quoted(archive), "abc\\nabd\\nxyz\\nxyz\\n"), 0);
    EXPECT_EQ(Varnick("verify " + Quoted(archive) + " --password abc").exitCode, 1);
    VarnickOk("verify " + Quoted(archive) + " --password xyz");

    ASSERT_EQ(OnATerminal("decrypt " + Quoted(archive), "xyz\\n"), 0);
    VarnickOk("verify " + Quoted(archive));
}

TEST_F(VarnickEditCli, RecoversADamagedVnkxThatCarriesRecoveryData) {
    const fs::path archive = Made("guarded.vnkx", "--redundancy 10");
    const std::string bytes = testsupport::ReadBytes(archive);
    std::string damaged = bytes;
    for (std::size_t i = 100; i < 110; ++i) damaged[i] ^= 0x5A;
    testsupport::WriteBytes(archive, damaged);
    EXPECT_EQ(Varnick("verify " + Quoted(archive)).exitCode, 1);

    const fs::path repaired = home.Path() / "repaired";
    VarnickOk("recover " + Quoted(archive) + " -d " + Quoted(repaired));
    EXPECT_EQ(testsupport::ReadBytes(repaired / "guarded.vnkx"), bytes);
    VarnickOk("verify " + Quoted(repaired / "guarded.vnkx"));

    EXPECT_EQ(Varnick("recover " + Quoted(archive)).exitCode, 2);
}

TEST_F(VarnickEditCli, BadInputIsToldWithItsExitCode) {
    const fs::path archive = Made("input.zip");
    const fs::path missing = home.Path() / "missing.zip";
    // A command that reads the archive first, and recover, which does not.
    for (const std::string &command :
         {"add " + Quoted(missing) + " " + Quoted(extra / "new.txt"),
          "recover " + Quoted(missing) + " -d " + Quoted(home.Path() / "r")}) {
        testsupport::ProgramRun run = Varnick(command);
        EXPECT_EQ(run.exitCode, 1) << command;
        EXPECT_TRUE(Mentions(run, "no such file")) << command << "\n" << run.output;
    }

    const fs::path text = home.Path() / "text.zip";
    testsupport::WriteBytes(text, "not an archive, only text\n");
    EXPECT_EQ(Varnick("extract " + Quoted(text) + " a").exitCode, 1);

    testsupport::ProgramRun nothing =
        Varnick("add " + Quoted(archive) + " " + Quoted(home.Path() / "nowhere.txt"));
    EXPECT_EQ(nothing.exitCode, 1);
    EXPECT_TRUE(Mentions(nothing, "no such file or folder")) << nothing.output;

    testsupport::ProgramRun unwritable =
        Varnick("extract " + Quoted(archive) + " notes.txt -d /sys/varnick-out");
    EXPECT_EQ(unwritable.exitCode, 1);
    EXPECT_TRUE(Mentions(unwritable, "/sys/varnick-out")) << unwritable.output;

    EXPECT_EQ(Varnick("rename " + Quoted(archive) + " notes.txt docs/moved.txt").exitCode, 2);
    EXPECT_EQ(
        Varnick("add " + Quoted(archive) + " " + Quoted(extra) + " --into docs/deeper").exitCode,
        2);
    EXPECT_EQ(Varnick("extract " + Quoted(archive)).exitCode, 2);
}

}  // namespace
