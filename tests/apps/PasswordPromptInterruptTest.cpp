// Ctrl-C typed at varnick's password prompts, on a pseudo-terminal as a
// user meets them: the prompt ends at once and the command stops as an
// interrupted run (exit 3) with nothing made, whether the prompt stands
// before the run, while the listing is read or in the middle of the run.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "support/ProgramOnTerminal.h"
#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;

constexpr char kCtrlC = '\x03';

// varnick on a terminal of its own.
class VarnickOnTerminal : public testsupport::ProgramOnTerminal {
public:
    explicit VarnickOnTerminal(const std::vector<std::string> &arguments)
        : ProgramOnTerminal(std::string(VARNICK_BIN_DIR) + "/varnick", arguments) {}
};

// A prompt that went on waiting would hold the program until it is killed;
// an ended one lets it go in a few milliseconds.
constexpr std::chrono::milliseconds kPromptEnds{3000};

bool HoldsAnyFile(const fs::path &folder) {
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_directory()) return true;
    }
    return false;
}

class PasswordPromptInterrupt : public testsupport::HomeTest {
protected:
    fs::path MakeSources() {
        const fs::path sources = home.Scratch("sources");
        testsupport::WriteBytes(sources / "notes.txt", std::string(5000, 'n'));
        return sources;
    }
};

}  // namespace

TEST_F(PasswordPromptInterrupt, CtrlCAtTheNewPasswordPromptStopsCreateAtOnceLeavingNothing) {
    const fs::path sources = MakeSources();
    const fs::path target = home.Scratch("target");
    VarnickOnTerminal varnick(
        {"create", "--ask-password", (target / "secret.zip").string(), sources.string()});
    ASSERT_TRUE(varnick.Started());
    ASSERT_TRUE(varnick.WaitFor("Password for ")) << varnick.Shown();

    varnick.Type(std::string(1, kCtrlC));
    EXPECT_EQ(varnick.ExitCode(kPromptEnds), 3) << varnick.Shown();
    EXPECT_NE(varnick.Shown().find("create: interrupted"), std::string::npos) << varnick.Shown();
    EXPECT_TRUE(fs::is_empty(target));
    EXPECT_TRUE(varnick.EchoAtStart());
    EXPECT_TRUE(varnick.EchoOn()) << "the terminal's echo is given back";
}

TEST_F(PasswordPromptInterrupt, CtrlCAtTheLibrarysPasswordPromptStopsTheCommandAsInterrupted) {
    const fs::path sources = MakeSources();
    // A Zip archive's password is asked while its listing is read, before
    // the run; a vnkx archive's by the run's worker, while this thread pumps.
    for (const char *name : {"locked.zip", "locked.vnkx"}) {
        SCOPED_TRACE(name);
        const fs::path archive = home.Path() / name;
        testsupport::RunToSuccess("varnick", "-q create --password s3cret " +
                                                 testsupport::Quoted(archive) + " " +
                                                 testsupport::Quoted(sources));
        const fs::path out = home.Scratch(std::string("out-") + name);
        VarnickOnTerminal varnick({"expand", archive.string(), "-d", out.string()});
        ASSERT_TRUE(varnick.Started());
        ASSERT_TRUE(varnick.WaitFor("Password for ")) << varnick.Shown();

        varnick.Type(std::string(1, kCtrlC));
        EXPECT_EQ(varnick.ExitCode(kPromptEnds), 3) << varnick.Shown();
        EXPECT_NE(varnick.Shown().find(": interrupted"), std::string::npos) << varnick.Shown();
        EXPECT_FALSE(HoldsAnyFile(out));
        // Asked once: the interrupt was not dropped for a second question.
        EXPECT_EQ(varnick.Shown().find("Password for ", varnick.Shown().find("Password for ") + 1),
                  std::string::npos)
            << varnick.Shown();
    }
}

TEST_F(PasswordPromptInterrupt, APasswordTypedTwiceStillMakesAnEncryptedArchive) {
    const fs::path sources = MakeSources();
    const fs::path archive = home.Path() / "typed.vnkx";
    VarnickOnTerminal varnick(
        {"-q", "create", "--ask-password", archive.string(), sources.string()});
    ASSERT_TRUE(varnick.Started());
    ASSERT_TRUE(varnick.WaitFor("Password for ")) << varnick.Shown();
    varnick.Type("s3cret\n");
    ASSERT_TRUE(varnick.WaitFor("Type it again: ")) << varnick.Shown();
    varnick.Type("s3cret\n");
    EXPECT_EQ(varnick.ExitCode(std::chrono::seconds(30)), 0) << varnick.Shown();
    EXPECT_EQ(varnick.Shown().find("s3cret"), std::string::npos) << "not echoed";

    const fs::path out = home.Scratch("out");
    testsupport::RunToSuccess("varnick", "-q expand --password s3cret " +
                                             testsupport::Quoted(archive) + " -d " +
                                             testsupport::Quoted(out));
    EXPECT_EQ(testsupport::ReadBytes(out / "sources" / "notes.txt"), std::string(5000, 'n'));
    EXPECT_NE(testsupport::RunProgram(
                  "varnick", "-q expand --password wrong " + testsupport::Quoted(archive) + " -d " +
                                 testsupport::Quoted(home.Scratch("wrong")) + " </dev/null")
                  .exitCode,
              0);
}
