// The job runner end to end: a job written here with the plain C layer, run
// by the program in its own process, and what it left in the job file.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "ArchiveIniInterface.h"
#include "CArchiveINI.h"
#include "CIniFile.h"
#include "CNewArchiveContentList.h"
#include "FormatCatalogue.h"
#include "platform/ScopedEnv.h"
#include "platform/WideText.h"
#include "support/ProgramRun.h"
#include "support/RecordingTools.h"
#include "support/TempHome.h"

namespace {

namespace fs = std::filesystem;

std::wstring Wide(const fs::path &path) { return platform::FromUtf8(path.string()); }

bool Shell(const std::string &command) { return testsupport::Shell(command) == 0; }

class VarnickCmdline : public testsupport::HomeTest {
protected:
    void SetUp() override {
        HomeTest::SetUp();
        work = home.Scratch("work");
        fs::create_directories(work / "src/docs");
        testsupport::WriteBytes(work / "src/a.txt", std::string(4000, 'a'));
        testsupport::WriteBytes(work / "src/docs/b.txt", "bee");
        job = work / "job.ini";
    }

    // A job for `archive` holding src/a.txt and src/docs; `edit` may change
    // the record before it is saved.
    void WriteJob(const fs::path &archive, DWORD formatType = format::zip) {
        INIINFO *info = CreateIni(Wide(job).c_str());
        ASSERT_NE(info, nullptr);
        wcsncpy_s(info->ArchiveName, 1024, Wide(archive).c_str(), _TRUNCATE);
        info->Format = formatType;
        AddFile(info, Wide(work / "src/a.txt").c_str());
        AddFolder(info, Wide(work / "src/docs").c_str());
        ASSERT_TRUE(SaveIni(info));
    }

    // The shell extension's part of a job: the action and its folder.
    void AskFor(DWORD action, const fs::path &extractTo = {}) {
        CIniFile ini(Wide(job).c_str());
        ini.SetInt(L"ContextMenu", L"RequestedActionCmd", action);
        if (!extractTo.empty())
            ini.SetString(L"ContextMenu", L"ExtractTo", Wide(extractTo).c_str());
        ini.Save();
    }

    testsupport::ProgramRun RunJob() {
        return testsupport::RunProgram("varnick-cmdline", "'" + job.string() + "'");
    }
    testsupport::ProgramRun RunJobOk() {
        return testsupport::RunToSuccess("varnick-cmdline", "'" + job.string() + "'");
    }

    std::vector<std::wstring> NewArcNames() const {
        CArchiveINI readBack;
        readBack.ReadNewArcNames(Wide(job).c_str());
        return readBack.NewArcNames;
    }

    // The sample, compressed by a job of its own into `archive`.
    void Compressed(const fs::path &archive, DWORD formatType) {
        WriteJob(archive, formatType);
        AskFor(0);  // a job written over an older one keeps its ContextMenu
        RunJobOk();
    }

    fs::path work;
    fs::path job;
};

TEST_F(VarnickCmdline, CompressJobMakesTheZipAndRecordsItsNameAndLogWhereverTheJobSays) {
    const fs::path archive = work / "out.zip";
    WriteJob(archive);

    RunJobOk();
    EXPECT_TRUE(Shell("unzip -tq '" + archive.string() + "' >/dev/null"));
    EXPECT_TRUE(Shell("unzip -Z1 '" + archive.string() + "' | grep -qx 'docs/b.txt'"));

    EXPECT_EQ(NewArcNames(), std::vector<std::wstring>{Wide(archive)});

    const std::wstring log = GetLogFile(Wide(job).c_str());
    ASSERT_FALSE(log.empty()) << "the runner tells where it logged";
    EXPECT_TRUE(fs::exists(platform::ToUtf8(log)));
    EXPECT_EQ(fs::path(platform::ToUtf8(log)).parent_path().string().rfind(home.Path().string(), 0),
              0u)
        << "the log lies below the home";

    // A log named by the job is kept where it says.
    const fs::path named = work / "mine.log";
    {
        CIniFile ini(Wide(job).c_str());
        ini.SetString(L"CmdLine", L"LogFile", Wide(named).c_str());
        ini.Save();
    }
    RunJobOk();
    EXPECT_EQ(GetLogFile(Wide(job).c_str()), Wide(named));
    EXPECT_GT(fs::file_size(named), 0u);
}

TEST_F(VarnickCmdline, FailuresExitOneWithTheTextOnStandardError) {
    // A verify of a damaged archive.
    const fs::path damaged = work / "damaged.zip";
    testsupport::WriteBytes(damaged, "PK\x03\x04 this is not the rest of a zip archive");
    WriteJob(damaged);
    AskFor(4);
    testsupport::ProgramRun verify = RunJob();
    EXPECT_EQ(verify.exitCode, 1) << verify.output;
    EXPECT_NE(verify.output.find("varnick-cmdline: verify"), std::string::npos) << verify.output;
    EXPECT_TRUE(NewArcNames().empty()) << "a failed job names no archive";

    // A job file that is not there.
    testsupport::ProgramRun missing =
        testsupport::RunProgram("varnick-cmdline", "'" + (work / "none.ini").string() + "'");
    EXPECT_EQ(missing.exitCode, 1) << missing.output;
    EXPECT_NE(missing.output.find("none.ini"), std::string::npos) << missing.output;

    // An action the runner does not know, and no arguments at all.
    WriteJob(work / "x.zip");
    AskFor(99);
    EXPECT_EQ(RunJob().exitCode, 1);
    EXPECT_EQ(testsupport::RunProgram("varnick-cmdline", "").exitCode, 2);
}

TEST_F(VarnickCmdline, ExpandJobsWriteIntoTheNamedFolderOrBesideTheArchive) {
    ASSERT_TRUE(Shell("cd '" + (work / "src").string() + "' && zip -qr ../in.zip a.txt docs"));
    const fs::path target = work / "target";
    WriteJob(work / "in.zip");
    AskFor(2, target);
    RunJobOk();
    EXPECT_EQ(testsupport::ReadBytes(target / "docs/b.txt"), "bee");

    fs::create_directories(work / "here");
    fs::copy_file(work / "in.zip", work / "here/in.zip");
    WriteJob(work / "here/in.zip");
    AskFor(3);
    RunJobOk();
    EXPECT_EQ(testsupport::ReadBytes(work / "here/a.txt"), std::string(4000, 'a'));
}

TEST_F(VarnickCmdline, ConvertJobsWriteTheOtherFormatBesideTheArchiveAndKeepIt) {
    struct Case {
        const char *source;
        DWORD sourceFormat;
        DWORD action;
        const char *made;  // empty: the conversion is refused
    };
    const Case cases[] = {
        {"z.zip", format::zip, 6, "z.vnkx"},
        {"v.vnkx", format::vnkx, 5, "v.zip"},
        {"again.zip", format::zip, 5, ""},
        {"again.vnkx", format::vnkx, 6, ""},
    };
    for (const Case &test : cases) {
        SCOPED_TRACE(test.source);
        const fs::path source = work / test.source;
        Compressed(source, test.sourceFormat);
        AskFor(test.action);
        testsupport::ProgramRun run = RunJob();
        EXPECT_TRUE(fs::exists(source)) << "the old archive stays";
        if (!*test.made) {
            EXPECT_EQ(run.exitCode, 1) << run.output;
            EXPECT_NE(run.output.find("was not converted"), std::string::npos) << run.output;
            EXPECT_EQ(NewArcNames(), std::vector<std::wstring>{Wide(source)})
                << "only the compression's name stays";
            continue;
        }
        ASSERT_EQ(run.exitCode, 0) << run.output;
        // What a conversion makes is the library's case.
        EXPECT_EQ(NewArcNames(), std::vector<std::wstring>{Wide(work / test.made)});
        EXPECT_TRUE(fs::exists(work / test.made));
    }
    // A second conversion of the same archive takes the next free name.
    Compressed(work / "z.zip", format::zip);
    AskFor(6);
    RunJobOk();
    EXPECT_EQ(NewArcNames(), std::vector<std::wstring>{Wide(work / "z_1.vnkx")});
}

TEST_F(VarnickCmdline, SelfExtractingJobsLeaveAProgramBesideTheSources) {
    const fs::path temp = home.Scratch("tmp");
    testsupport::ScopedEnv tmpdir("TMPDIR", temp.c_str());
    for (DWORD formatType : {format::vnkx, format::zip}) {
        const fs::path archive = work / (formatType == format::zip ? "self.zip" : "self.vnkx");
        SCOPED_TRACE(archive.string());
        WriteJob(archive, formatType);
        AskFor(7);
        RunJobOk();
        ASSERT_EQ(NewArcNames(), std::vector<std::wstring>{Wide(archive)})
            << "the program takes the archive's place";
        EXPECT_TRUE(fs::is_empty(temp)) << "nothing is left in the temporary folder";
        // A program, which the library's tests run.
        EXPECT_EQ(testsupport::ReadBytes(archive).substr(0, 4),
                  "\x7f"
                  "ELF");
    }
}

TEST_F(VarnickCmdline, AMailJobHandsTheArchiveToTheMailProgram) {
    testsupport::RecordingTools tools(home.Scratch("tools"));
    tools.Add("xdg-email");
    tools.PutFirstOnPath();
    const fs::path archive = work / "mailed.zip";
    WriteJob(archive);
    AskFor(8);
    RunJobOk();
    const auto calls = tools.WaitForCalls(1);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], (testsupport::RecordedCall{"xdg-email", "--attach", archive.string()}));
    EXPECT_EQ(NewArcNames(), std::vector<std::wstring>{Wide(archive)});
}

TEST_F(VarnickCmdline, VarnickJobWritesAJobAndRunsItAsTheRunnerDoes) {
    const fs::path archive = work / "cli.vnkx";
    testsupport::RunToSuccess(
        "varnick", "job --new '" + job.string() + "' --archive '" + archive.string() + "' '" +
                       (work / "src/a.txt").string() + "' '" + (work / "src/docs").string() + "'");
    EXPECT_FALSE(fs::exists(archive)) << "writing a job runs nothing";
    {
        CArchiveINI read;
        ASSERT_TRUE(read.Read(Wide(job)));
        EXPECT_EQ(read.WizardType, static_cast<DWORD>(kWizardKeepOnly));
        EXPECT_EQ(read.GetArchiveContent()->Folders.size(), 1u);
        EXPECT_EQ(read.GetArchiveContent()->Files.size(), 1u);
    }

    testsupport::RunToSuccess("varnick", "job '" + job.string() + "'");
    EXPECT_EQ(NewArcNames(), std::vector<std::wstring>{Wide(archive)});
    testsupport::ProgramRun results =
        testsupport::RunProgram("varnick", "job --results '" + job.string() + "'");
    EXPECT_EQ(results.output, "new archive: " + archive.string() + "\nlog: " +
                                  platform::ToUtf8(GetLogFile(Wide(job).c_str())) + "\n");
    AskFor(2, work / "out");
    testsupport::RunToSuccess("varnick", "job '" + job.string() + "'");
    EXPECT_EQ(testsupport::ReadBytes(work / "out/docs/b.txt"), "bee");

    for (const char *misuse : {"job", "job --new x.ini --archive y.unknownformat a.txt"})
        EXPECT_EQ(testsupport::RunProgram("varnick", misuse).exitCode, 2) << misuse;
    EXPECT_EQ(
        testsupport::RunProgram("varnick", "job --new x.ini --archive y.zip nothing").exitCode, 1);
    EXPECT_EQ(testsupport::RunProgram("varnick", "job '" + (work / "none").string() + "'").exitCode,
              1);
}

TEST_F(VarnickCmdline, AnInterruptCancelsTheRunWithExitCodeThree) {
    // Enough data that the run takes seconds.
    std::string noise(150u << 20, '\0');
    std::uint64_t state = 88172645463325252ull;
    for (char &byte : noise) {
        state ^= state << 13, state ^= state >> 7, state ^= state << 17;
        byte = static_cast<char>(state);
    }
    testsupport::WriteBytes(work / "src/a.txt", noise);
    noise.clear();
    const fs::path archive = work / "big.zip";
    WriteJob(archive);
    const testsupport::InterruptedRun run =
        testsupport::InterruptOnceWriting("varnick-cmdline", {job.string()}, work, archive);
    ASSERT_TRUE(run.caughtMidWork);
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_TRUE(NewArcNames().empty());
}

TEST_F(VarnickCmdline, DeliveryIsAnnouncedAndTheArchiveKept) {
    const fs::path archive = work / "mail.zip";
    WriteJob(archive);
    {
        CIniFile ini(Wide(job).c_str());
        ini.SetInt(L"Archive", L"WizardType", kWizardEmail);
        ini.Save();
    }
    testsupport::ProgramRun run =
        testsupport::RunProgram("varnick-cmdline", "-s '" + job.string() + "'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("not available yet"), std::string::npos) << run.output;
    EXPECT_TRUE(fs::exists(archive));
}

}  // namespace
