// Self-extracting archives: the stub with a zip behind it runs and expands
// itself, still reads as a zip to the engine and to unzip, and asks for a
// password when the archive needs one.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "EngineFixture.h"
#include "support/ProgramOnTerminal.h"

namespace enginetest {
namespace {

class SelfExtractingTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        folder = Scratch("sfx");
    }
    fs::path MakeZip(const std::string &name, const std::wstring &password = L"") {
        OwnedString text = Text(password);
        EXPECT_EQ(Create("zip", {tree / "readme.txt", tree / "data", tree / "hollow", tree / "a"},
                         folder / name, nullptr, password.empty() ? nullptr : text.get()),
                  kEngineOK);
        return folder / name;
    }
    fs::path AddStub(const fs::path &archive, EngineResult expected = kEngineOK) {
        OwnedFS file = Path(archive);
        OwnedFS result;
        EXPECT_EQ(AddSelfExtractingToArchive(engine, file.get(), result.out(), 2), expected);
        return result.get() ? fs::path(PathOf(result.get())) : fs::path();
    }
    // Runs the program into a fresh folder and gives that folder.
    Shell Run(const fs::path &program, const fs::path &into, const std::string &rest = "") {
        fs::create_directories(into);
        return RunShell(Quote(program) + " " + Quote(into) + " " + rest, folder);
    }
    fs::path tree, folder;
};

TEST_F(SelfExtractingTest, ZipBehindTheStubRunsListsAndReadsAsZip) {
    fs::path zip = MakeZip("bundle.zip");
    fs::path program = AddStub(zip);
    EXPECT_EQ(program, folder / "bundle.sea");
    EXPECT_NE(fs::status(program).permissions() & fs::perms::owner_exec, fs::perms::none);
    EXPECT_EQ(FormatOf(program), "zip");

    // The engine lists the same items; unzip finds every offset where it
    // belongs (it warns, and fails -t, about a prefix the offsets ignore).
    OpenedArchive plain(engine, zip), behind(engine, program);
    ASSERT_EQ(behind.status(), kEngineOK);
    EXPECT_EQ(behind.Listing(), plain.Listing());
    Shell tested = RunShell("unzip -tq " + Quote(program));
    EXPECT_EQ(tested.status, 0) << tested.output;

    Shell ran = Run(program, folder / "out");
    ASSERT_EQ(ran.status, 0) << ran.output;
    EXPECT_EQ(Snapshot(folder / "out"), Snapshot(tree));

    // A second stub does not replace the first.
    EXPECT_EQ(AddStub(zip), folder / "bundle_1.sea");
}

TEST_F(SelfExtractingTest, PasswordComesFromStandardInputOrAFile) {
    fs::path program = AddStub(MakeZip("locked.zip", L"secret"));
    Shell wrong = Run(program, folder / "wrong", "</dev/null");
    EXPECT_NE(wrong.status, 0) << wrong.output;
    EXPECT_FALSE(fs::exists(folder / "wrong" / "readme.txt"));

    Shell piped = Run(program, folder / "piped", "<<'EOF'\nnope\nsecret\nEOF");
    ASSERT_EQ(piped.status, 0) << piped.output;
    EXPECT_EQ(ReadFile(folder / "piped" / "readme.txt"), "Hello, archive.\n");

    WriteFile(folder / "password.txt", "secret\n");
    Shell filed =
        Run(program, folder / "filed", "--password-file " + Quote(folder / "password.txt"));
    ASSERT_EQ(filed.status, 0) << filed.output;
    EXPECT_EQ(Snapshot(folder / "filed"), Snapshot(tree));
}

// The password typed on the terminal is not shown; Ctrl-C at the prompt,
// where echo is off, stops the program, removes what it began and gives
// the terminal its echo back.
TEST_F(SelfExtractingTest, ThePasswordPromptOnATerminalHidesTheAnswerAndCanBeInterrupted) {
    fs::path program = AddStub(MakeZip("asked.zip", L"secret"));
    {
        fs::path into = folder / "typed";
        fs::create_directories(into);
        testsupport::ProgramOnTerminal run(program.string(), {into.string()});
        ASSERT_TRUE(run.Started());
        ASSERT_TRUE(run.WaitFor("Password: ")) << run.Shown();
        run.Type("nope\n");
        ASSERT_TRUE(run.WaitFor("Wrong password. Password: ")) << run.Shown();
        run.Type("secret\n");
        EXPECT_EQ(run.ExitCode(std::chrono::seconds(20)), 0) << run.Shown();
        EXPECT_EQ(run.Shown().find("secret"), std::string::npos) << run.Shown();
        EXPECT_TRUE(run.EchoOn());
        EXPECT_EQ(ReadFile(into / "readme.txt"), "Hello, archive.\n");
    }
    fs::path into = folder / "asked";
    fs::create_directories(into);
    testsupport::ProgramOnTerminal run(program.string(), {into.string()});
    ASSERT_TRUE(run.Started());
    ASSERT_TRUE(run.WaitFor("Password: ")) << run.Shown();
    EXPECT_TRUE(run.EchoAtStart());
    run.Type("\x03");
    int status = run.WaitStatus(std::chrono::seconds(30));
    ASSERT_NE(status, -1) << run.Shown();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_TRUE(run.EchoOn());
    EXPECT_FALSE(fs::exists(into / "readme.txt"));
}

TEST_F(SelfExtractingTest, CreatingOrTransformingWithTheFormatPropertyMakesAProgram) {
    ASSERT_EQ(Create("tar", {tree / "readme.txt", tree / "data"}, folder / "plain.tar"), kEngineOK);
    for (const char *format : {"zip", "vnkx"}) {
        SCOPED_TRACE(format);
        ASSERT_EQ(SetFormatBooleanProperty(engine, format, kFormatPropSelfExtracting, true),
                  kEngineOK);
        fs::path made = folder / (std::string("made.") + format);
        ASSERT_EQ(Create(format, {tree / "readme.txt", tree / "data"}, made), kEngineOK);
        OwnedFS plain = Path(folder / "plain.tar");
        OwnedFS target = Path(folder / (std::string("turned.") + format));
        OwnedFS turned;
        ASSERT_EQ(TransformArchive(engine, plain.get(), target.get(), turned.out(), format, nullptr,
                                   nullptr, 1, 0),
                  kEngineOK);
        for (const fs::path &program : {made, fs::path(PathOf(turned.get()))}) {
            EXPECT_EQ(FormatOf(program), format);
            const fs::path into = folder / (program.stem().string() + "-" + format);
            Shell ran = Run(program, into);
            ASSERT_EQ(ran.status, 0) << ran.output;
            EXPECT_EQ(ReadFile(into / "data" / "Grüße, 東京.txt"), "unicode name\n");
            EXPECT_EQ(ReadFile(into / "data" / "blob.bin"), ReadFile(tree / "data" / "blob.bin"));
        }
    }
}

TEST_F(SelfExtractingTest, FormatsThatCannotRunBehindAStubAreRefused) {
    ASSERT_EQ(Create("tar", {tree / "readme.txt"}, folder / "plain.tar"), kEngineOK);
    AddStub(folder / "plain.tar", kEngineSfxUnsupported);
    EXPECT_FALSE(fs::exists(folder / "plain.sea"));
    WriteFile(folder / "text.txt", "no archive");
    AddStub(folder / "text.txt", kEngineNotAnArchive);
}

}  // namespace
}  // namespace enginetest
