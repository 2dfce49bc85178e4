// The command-line program end to end, as a user runs it.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

testsupport::ProgramRun Varnick(const std::string &arguments) {
    return testsupport::RunProgram("varnick", arguments);
}

testsupport::ProgramRun VarnickOk(const std::string &arguments) {
    return testsupport::RunToSuccess("varnick", arguments);
}

class VarnickCli : public testsupport::HomeTest {};

using testsupport::Mentions;
using testsupport::Quoted;
using testsupport::Shell;

}  // namespace

TEST_F(VarnickCli, ListsAFolderWithWindowsAttributesAndGroupedSizes) {
    auto folder = home.Scratch("sample");
    testsupport::WriteBytes(folder / "big.bin", std::string(1234567, 'x'));
    testsupport::WriteBytes(folder / ".hidden", "h");
    std::filesystem::create_directory(folder / "sub");

    testsupport::ProgramRun run = VarnickOk("ls '" + folder.string() + "'");
    EXPECT_NE(run.output.find("1,234,567  big.bin"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("--h-a  "), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("d---"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("2 files, 1,234,568 bytes"), std::string::npos) << run.output;
}

namespace {

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

// Creating, listing and expanding in every written format is the test of
// VarnickCreateCli below; here the other views of one archive.
TEST_F(VarnickCli, ListJsonInfoAndVerifyDescribeAnArchive) {
    const auto tree = MakeSampleTree(home);
    const auto archive = home.Path() / "sample.vnkx";
    VarnickOk("create " + Quoted(archive) + " " + Quoted(tree) + " --level 5");

    testsupport::ProgramRun listed = VarnickOk("list " + Quoted(archive));
    EXPECT_NE(listed.output.find("20,004"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("tree/notes.txt"), std::string::npos) << listed.output;

    testsupport::ProgramRun json = VarnickOk("list --json " + Quoted(archive));
    EXPECT_NE(json.output.find("\"size\": 20004"), std::string::npos) << json.output;
    EXPECT_EQ(json.output.front(), '[');

    testsupport::ProgramRun info = VarnickOk("info " + Quoted(archive));
    EXPECT_NE(info.output.find("files            3"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("encrypted        no"), std::string::npos) << info.output;
    testsupport::ProgramRun quiet = VarnickOk("verify -q " + Quoted(archive));
    EXPECT_EQ(quiet.output, "") << "quiet prints nothing on success";
}

TEST_F(VarnickCli, BadInputGivesClearMessagesAndExitCodes) {
    EXPECT_TRUE(Mentions(Varnick("ls " + Quoted(home.Path() / "nowhere")), "no such folder"));
    testsupport::ProgramRun unknown = Varnick("frobnicate");
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_TRUE(Mentions(unknown, "unknown command 'frobnicate'"));

    testsupport::ProgramRun missing = Varnick("--quiet list " + Quoted(home.Path() / "none.zip"));
    EXPECT_EQ(missing.exitCode, 1) << "quiet still tells failures";
    EXPECT_NE(missing.output.find("no such file"), std::string::npos) << missing.output;

    const auto text = home.Path() / "plain.zip";
    testsupport::WriteBytes(text, "this is not an archive at all\n");
    testsupport::ProgramRun notArchive = Varnick("info " + Quoted(text));
    EXPECT_EQ(notArchive.exitCode, 1);
    EXPECT_NE(notArchive.output.find("varnick: "), std::string::npos) << notArchive.output;

    EXPECT_EQ(Varnick("list " + Quoted(text) + " --frob").exitCode, 2);
    testsupport::ProgramRun unknownFormat =
        Varnick("create " + Quoted(home.Path() / "x.abc") + " " + Quoted(home.Path()));
    EXPECT_EQ(unknownFormat.exitCode, 2);
    EXPECT_NE(unknownFormat.output.find("unknown format"), std::string::npos);
}

TEST_F(VarnickCli, APasswordProtectedArchiveNeedsTheRightPassword) {
    const auto tree = MakeSampleTree(home);
    const auto archive = home.Path() / "secret.zip";
    const auto passwordFile = home.Path() / "password";
    testsupport::WriteBytes(passwordFile, "open sesame\n");
    VarnickOk("create " + Quoted(archive) + " " + Quoted(tree) + " --password-file " +
              Quoted(passwordFile));
    EXPECT_TRUE(Mentions(Varnick("info " + Quoted(archive)), "encrypted        yes"));
    testsupport::ProgramRun wrong = Varnick("expand " + Quoted(archive) + " -d " +
                                            Quoted(home.Path() / "w") + " --password nope");
    EXPECT_EQ(wrong.exitCode, 1) << wrong.output;
    EXPECT_NE(wrong.output.find("wrong password"), std::string::npos) << wrong.output;
    EXPECT_FALSE(std::filesystem::exists(home.Path() / "w" / "tree" / "notes.txt"));

    VarnickOk("expand " + Quoted(archive) + " -d " + Quoted(home.Path() / "r") +
              " --password 'open sesame'");
    ExpectSameFile(tree / "notes.txt", home.Path() / "r" / "tree" / "notes.txt");
}

TEST_F(VarnickCli, ExpandKeepsWhatIsThereUnlessToldToOverwriteWhichMergesFolders) {
    const auto tree = MakeSampleTree(home);
    const auto archive = home.Path() / "again.zip";
    VarnickOk("create " + Quoted(archive) + " " + Quoted(tree));
    const auto out = home.Path() / "out";
    const auto notes = out / "tree" / "notes.txt";
    const auto own = out / "tree" / "own.txt";
    std::filesystem::create_directories(notes.parent_path());
    testsupport::WriteBytes(notes, "mine");
    testsupport::WriteBytes(own, "kept");

    VarnickOk("expand " + Quoted(archive) + " -d " + Quoted(out) + " --skip");
    EXPECT_EQ(testsupport::ReadBytes(notes), "mine");

    VarnickOk("expand " + Quoted(archive) + " -d " + Quoted(out) + " --overwrite");
    ExpectSameFile(tree / "notes.txt", notes);
    ExpectSameFile(tree / "sub" / "data.bin", out / "tree" / "sub" / "data.bin");
    EXPECT_EQ(testsupport::ReadBytes(own), "kept");
    EXPECT_EQ(Varnick("expand " + Quoted(archive) + " --overwrite --skip").exitCode, 2);

    // --yes answers the question with an overwrite too.
    testsupport::WriteBytes(notes, "mine");
    VarnickOk("--yes expand " + Quoted(archive) + " -d " + Quoted(out));
    ExpectSameFile(tree / "notes.txt", notes);
}

namespace {

// A format create writes, and how another program reads it back ("" for
// the product's own formats).
struct WrittenFormat {
    const char *extension;
    const char *foreignCheck;
};

class VarnickCreateCli : public VarnickCli, public ::testing::WithParamInterface<WrittenFormat> {};

}  // namespace

TEST_P(VarnickCreateCli, MakesAnArchiveThatListsExpandsAndReadsElsewhere) {
    const auto tree = MakeSampleTree(home);
    const auto archive = home.Path() / (std::string("sample.") + GetParam().extension);
    testsupport::ProgramRun created = VarnickOk("create " + Quoted(archive) + " " + Quoted(tree));
    EXPECT_TRUE(Mentions(created, archive.string())) << created.output;

    testsupport::ProgramRun listed = VarnickOk("list " + Quoted(archive));
    EXPECT_TRUE(Mentions(listed, "tree/sub/data.bin")) << listed.output;

    const auto out = home.Path() / "out";
    VarnickOk("expand " + Quoted(archive) + " -d " + Quoted(out));
    testsupport::ExpectSameTree(tree, out / "tree");
    if (*GetParam().foreignCheck) {
        EXPECT_EQ(Shell(std::string(GetParam().foreignCheck) + " " + Quoted(archive) +
                        " >/dev/null 2>&1"),
                  0);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryWrittenFormat, VarnickCreateCli,
                         // The library's formats have their own tests; here
                         // the program's own branches: its formats, 7z through
                         // the extension, and the ".tar.gz" written as tgz.
                         ::testing::Values(WrittenFormat{"zip", "unzip -t"},
                                           WrittenFormat{"vnkx", ""}, WrittenFormat{"7z", "7zz t"},
                                           WrittenFormat{"tar.gz", "gzip -t"}),
                         [](const ::testing::TestParamInfo<WrittenFormat> &info) {
                             std::string name = info.param.extension;
                             for (char &c : name) {
                                 if (c == '.') c = '_';
                             }
                             return name;
                         });

TEST_F(VarnickCli, OneFileCompressorsWriteTheFileAlone) {
    const auto tree = MakeSampleTree(home);
    for (const std::string kind : {"gz", "bz2"}) {
        const auto archive = home.Path() / ("notes." + kind);
        VarnickOk("create " + Quoted(archive) + " " + Quoted(tree / "notes.txt"));
        const std::string tool = kind == "gz" ? "gzip" : "bzip2";
        EXPECT_EQ(
            Shell(tool + " -dc " + Quoted(archive) + " | cmp -s - " + Quoted(tree / "notes.txt")),
            0)
            << kind;
    }
}

TEST_F(VarnickCli, MasksPickFilesBelowFoldersAndPerItemMakesAnArchiveEach) {
    const auto tree = MakeSampleTree(home);
    const auto masked = home.Path() / "masked.zip";
    VarnickOk("create " + Quoted(masked) + " " + Quoted(tree) +
              " --mask '*.txt;*.nothing' --mask 'EMP*'");
    testsupport::ProgramRun listed = Varnick("list " + Quoted(masked));
    EXPECT_TRUE(Mentions(listed, "tree/notes.txt")) << listed.output;
    EXPECT_TRUE(Mentions(listed, "tree/sub/empty")) << listed.output;
    EXPECT_FALSE(Mentions(listed, "data.bin")) << listed.output;

    // Each PATH alone, named after itself, in the folder of ARCHIVE.
    const auto each = home.Scratch("each");
    VarnickOk("create " + Quoted(each / "any.vnkx") + " " + Quoted(tree / "notes.txt") + " " +
              Quoted(tree / "sub") + " --per-item");
    EXPECT_TRUE(std::filesystem::exists(each / "notes.txt.vnkx"));
    EXPECT_TRUE(std::filesystem::exists(each / "sub.vnkx"));
    EXPECT_FALSE(std::filesystem::exists(each / "any.vnkx"));
    EXPECT_TRUE(Mentions(Varnick("list " + Quoted(each / "sub.vnkx")), "sub/data.bin"));
}

TEST_F(VarnickCli, SettingsOfTheCommandLineReachTheArchive) {
    const auto tree = MakeSampleTree(home);
    // Methods whose window lies outside the default one's range, too.
    for (const std::string method : {"deflate", "lz4"}) {
        const auto archive = home.Path() / ("m-" + method + ".vnkx");
        VarnickOk("create " + Quoted(archive) + " " + Quoted(tree) + " --method " + method);
        VarnickOk("verify " + Quoted(archive));
    }
    const auto stored = home.Path() / "stored.zip";
    VarnickOk("create " + Quoted(stored) + " " + Quoted(tree) + " --method store");
    EXPECT_GE(std::filesystem::file_size(stored), 20004u);

    const auto noted = home.Path() / "noted.vnkx";
    VarnickOk("create " + Quoted(noted) + " " + Quoted(tree) +
              " --comment 'for the record' --redundancy 10 --level 3");
    EXPECT_TRUE(Mentions(Varnick("info " + Quoted(noted)), "comment          for the record"));

    // Sizes in k; reading a set of segments is the library's case.
    const auto parts = home.Scratch("parts");
    VarnickOk("create " + Quoted(parts / "big.vnkx") + " " + Quoted(tree) +
              " --method store --segment-size 8k");
    EXPECT_TRUE(std::filesystem::exists(parts / "big.part03.vnkx"));

    testsupport::ProgramRun indexed = VarnickOk("create " + Quoted(home.Path() / "indexed.vnkx") +
                                                " " + Quoted(tree) + " --index");
    std::smatch index;
    ASSERT_TRUE(std::regex_search(indexed.output, index, std::regex("index (.*\\.vidx)\n")))
        << indexed.output;
    EXPECT_TRUE(std::filesystem::exists(index[1].str())) << index[1];

    const auto moved = home.Path() / "moved.zip";
    VarnickOk("create " + Quoted(moved) + " " + Quoted(tree) + " --delete-sources");
    EXPECT_FALSE(std::filesystem::exists(tree / "notes.txt"));
    EXPECT_TRUE(Mentions(Varnick("list " + Quoted(moved)), "tree/notes.txt"));
}

TEST_F(VarnickCli, OptionsThatDoNotFitTheFormatAreUsageErrors) {
    const auto tree = MakeSampleTree(home);
    const std::string zip = Quoted(home.Path() / "x.zip") + " " + Quoted(tree);
    for (const std::string options :
         {"--segment-size 1M", "--index", "--redundancy 5", "--comment hi", "--method lz4"}) {
        testsupport::ProgramRun run = Varnick("create " + zip + " " + options);
        EXPECT_EQ(run.exitCode, 2) << options;
        EXPECT_TRUE(Mentions(run, "usage: varnick create")) << options;
    }
    const std::string vnkx = Quoted(home.Path() / "x.vnkx") + " " + Quoted(tree);
    for (const std::string options : {"--segment-size 12X", "--redundancy 51", "--level 12",
                                      "--method zip", "--per-item --sfx", "--password"}) {
        EXPECT_EQ(Varnick("create " + vnkx + " " + options).exitCode, 2) << options;
    }
    EXPECT_FALSE(std::filesystem::exists(home.Path() / "x.zip"));
    EXPECT_FALSE(std::filesystem::exists(home.Path() / "x.vnkx"));
}

TEST_F(VarnickCli, ConvertsBetweenZipAndVnkxBesideTheSource) {
    const auto tree = MakeSampleTree(home);
    const auto folder = home.Scratch("convert");
    VarnickOk("create " + Quoted(folder / "a.zip") + " " + Quoted(tree));
    testsupport::ProgramRun toVnkx =
        VarnickOk("convert " + Quoted(folder / "a.zip") + " --to vnkx");
    ASSERT_TRUE(std::filesystem::exists(folder / "a.vnkx")) << toVnkx.output;
    EXPECT_TRUE(Mentions(Varnick("info " + Quoted(folder / "a.vnkx")), "Varnick X"));

    std::filesystem::remove(folder / "a.zip");
    testsupport::ProgramRun toZip = VarnickOk("convert " + Quoted(folder / "a.vnkx") + " --to zip");
    EXPECT_TRUE(Mentions(toZip, (folder / "a.zip").string())) << toZip.output;
    EXPECT_EQ(Varnick("convert " + Quoted(folder / "a.zip") + " --to zip").exitCode, 1);
    EXPECT_EQ(Varnick("convert " + Quoted(folder / "a.zip") + " --to rar").exitCode, 2);
}

TEST_F(VarnickCli, AnEncryptedArchiveConvertsWithItsPasswordOnly) {
    const auto tree = MakeSampleTree(home);
    const auto folder = home.Scratch("secret");
    const auto source = Quoted(folder / "s.zip");
    VarnickOk("create " + source + " " + Quoted(tree) + " --password abc");
    testsupport::ProgramRun without = Varnick("convert " + source + " --to vnkx </dev/null");
    EXPECT_EQ(without.exitCode, 1);
    EXPECT_TRUE(Mentions(without, "give --password")) << without.output;
    // One of the wrong passwords that the Zip password check lets through.
    testsupport::ProgramRun wrong = Varnick("convert " + source + " --to vnkx --password abd");
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_TRUE(Mentions(wrong, "wrong password")) << wrong.output;
    EXPECT_FALSE(std::filesystem::exists(folder / "s.vnkx"));

    VarnickOk("convert " + source + " --to vnkx --password abc");
    const auto result = Quoted(folder / "s.vnkx");
    EXPECT_TRUE(Mentions(Varnick("info " + result), "encrypted        yes"));
    VarnickOk("verify " + result + " --password abc");
}

TEST_F(VarnickCli, SelfExtractingProgramsExpandThemselves) {
    const auto tree = MakeSampleTree(home);
    const auto folder = home.Scratch("sfx");
    // One made from an archive that is there, one made by create.
    VarnickOk("create " + Quoted(folder / "a.vnkx") + " " + Quoted(tree));
    VarnickOk("sfx " + Quoted(folder / "a.vnkx"));
    EXPECT_TRUE(std::filesystem::exists(folder / "a.vnkx"));
    VarnickOk("create " + Quoted(folder / "b.zip") + " " + Quoted(tree) + " --sfx");
    EXPECT_FALSE(std::filesystem::exists(folder / "b.zip"));

    for (const std::string program : {"a.exe", "b.exe"}) {
        const auto out = home.Path() / ("out-" + program);
        std::filesystem::create_directories(out);
        ASSERT_EQ(
            Shell(Quoted(folder / program) + " " + Quoted(out) + " </dev/null >/dev/null 2>&1"), 0)
            << program;
        testsupport::ExpectSameTree(tree, out / "tree");
    }
}

TEST_F(VarnickCli, DigestsMatchTheSystemToolsAndAreWrittenBesideTheFile) {
    const auto tree = MakeSampleTree(home);
    const auto file = tree / "notes.txt";
    const auto systemDigest = [&](const std::string &tool) {
        testsupport::ProgramRun run;
        FILE *pipe = popen((tool + " " + Quoted(file)).c_str(), "r");
        char text[128] = {};
        if (pipe && std::fgets(text, sizeof text, pipe)) run.output = text;
        if (pipe) pclose(pipe);
        return run.output.substr(0, run.output.find(' '));
    };
    const std::string md5 = systemDigest("md5sum");
    std::string sha1 = systemDigest("sha1sum");
    for (char &c : sha1) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));

    testsupport::ProgramRun both = VarnickOk("digest " + Quoted(file));
    EXPECT_TRUE(Mentions(both, "MD5  " + md5)) << both.output;
    EXPECT_TRUE(Mentions(both, "SHA1 " + sha1)) << both.output;

    testsupport::ProgramRun written = VarnickOk("digest " + Quoted(file) + " --sha1 --write");
    EXPECT_FALSE(Mentions(written, "MD5")) << written.output;
    EXPECT_FALSE(std::filesystem::exists(tree / "notes.txt.md5"));
    EXPECT_EQ(testsupport::ReadBytes(tree / "notes.txt.sha1"), sha1 + "\r\n");

    EXPECT_EQ(Varnick("digest " + Quoted(tree / "none")).exitCode, 1);
    EXPECT_EQ(Varnick("digest " + Quoted(tree)).exitCode, 1);
}

TEST_F(VarnickCli, InterruptedCreateExitsWithThreeAndLeavesNothingBehind) {
    // Data that does not compress, enough that the run takes seconds.
    const auto big = home.Scratch("big");
    ASSERT_EQ(Shell("head -c 150M /dev/urandom > " + Quoted(big / "noise.bin")), 0);
    const auto target = home.Scratch("target");
    const testsupport::InterruptedRun run = testsupport::InterruptOnceWriting(
        "varnick", {"create", (target / "big.zip").string(), big.string()}, target,
        target / "big.zip");
    ASSERT_TRUE(run.caughtMidWork);
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_TRUE(std::filesystem::is_empty(target));
}

TEST_F(VarnickCli, CreateTellsMissingSourcesAndUnwritableDestinations) {
    const auto tree = MakeSampleTree(home);
    testsupport::ProgramRun missing =
        Varnick("create " + Quoted(home.Path() / "m.zip") + " " + Quoted(tree / "nothing-here"));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(Mentions(missing, "nothing-here: no such file or folder")) << missing.output;

    // A folder cannot be made below a file.
    testsupport::ProgramRun unwritable =
        Varnick("create " + Quoted(tree / "notes.txt" / "a.zip") + " " + Quoted(tree / "sub"));
    EXPECT_EQ(unwritable.exitCode, 1);
    EXPECT_TRUE(Mentions(unwritable, "cannot be made")) << unwritable.output;
}
