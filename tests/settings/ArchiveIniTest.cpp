// The job file: CArchiveINI's writer and reader with their result rules, the
// plain C writer's own section order, the names of the archives a job made,
// and starting the runner.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ArchiveIniInterface.h"
#include "CAppOptionsRepository.h"
#include "CArchive.h"
#include "CArchiveINI.h"
#include "CCrypto.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CIniFile.h"
#include "CNewArchiveContentList.h"
#include "CSchedulerTaskRepository.h"
#include "OptionsTestSupport.h"
#include "TransferProfiles.h"
#include "platform/WideText.h"
#include "settings/CmdLineLaunch.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::wstring>;

class ArchiveIniTest : public testsupport::JobFileTest {
protected:
    std::wstring JobText() { return platform::FromUtf8(testsupport::Utf16FileText(JobFile())); }
    bool JobHas(const std::wstring &line) {
        return JobText().find(L"\r\n" + line + L"\r\n") != std::wstring::npos;
    }
};

std::wstring Enciphered(const wchar_t *password) {
    wchar_t hex[254] = {};
    CCrypto crypto;
    crypto.EncryptString(password, hex, 254);
    return hex;
}

TEST_F(ArchiveIniTest, ReadFailsOnlyWithoutAFileAndAJobOfTypeZeroKeepsItsArchiveWhateverItSays) {
    CArchiveINI job;
    EXPECT_FALSE(job.Read(L""));
    EXPECT_FALSE(job.Read(home.Scratch().wstring()));
    EXPECT_FALSE(job.Read((home.Scratch() / "missing.ini").wstring()));

    struct Row {
        const char *text;
        DWORD wizardType;
        bool keepArchive;
    };
    // An empty file has no WizardType, yet the context menu's reader has the
    // last word; a delivery job keeps the archive only when asked.
    for (const Row &row :
         {Row{"", 0, true}, Row{"[Archive]\nWizardType=0\nKeepArchive=0\n", 0, true},
          Row{"[Archive]\nWizardType=2\n", 2, false}}) {
        SCOPED_TRACE(row.text);
        WriteJobFile(row.text);
        CArchiveINI read;
        ASSERT_TRUE(read.Read(JobFile()));
        EXPECT_EQ(row.wizardType, read.WizardType);
        EXPECT_EQ(row.keepArchive, read.KeepArchive);
    }
}

// A stored profile is taken whole; one that has gone leaves the bare name
// and the rest of the job is read all the same.
TEST_F(ArchiveIniTest, ReadOfAnFtpJobTakesTheStoredProfileOrTheBareNameOfOneThatHasGone) {
    FtpProfileRecord stored{};
    wcscpy_s(stored.name, kProfileNameChars, L"Office");
    wcscpy_s(stored.server, kProfileServerChars, L"ftp.example.org");
    stored.port = 2121;
    AddFTPProfile(&stored);
    WriteJobFile(
        "[Archive]\nWizardType=1\n[FTP]\nProfileName=Office\n[Scheduler]\nTaskName=Nightly\n");
    CArchiveINI office;
    ASSERT_TRUE(office.Read(JobFile()));
    EXPECT_STREQ(L"ftp.example.org", office.FTPProfile.server);
    EXPECT_EQ(2121u, office.FTPProfile.port);
    ASSERT_NE(nullptr, office.TaskRepository);
    EXPECT_EQ(L"Nightly", office.TaskRepository->m_TaskName);

    const std::wstring file = ExistingFile("a.txt");
    WriteJobFile(
        "[Archive]\nWizardType=1\nKeepArchive=1\n[ArchiveInfo]\nName=/out/a.zip\n"
        "[FilesToInclude]\n0=" +
        platform::ToUtf8(file) +
        "\n[FTP]\nProfileName=Gone Server\nFTPMD5File=1\n"
        "[ContextMenu]\nRequestedActionCmd=7\nExtractTo=/dest\n");
    CArchiveINI job;
    ASSERT_TRUE(job.Read(JobFile()));
    EXPECT_STREQ(L"Gone Server", job.FTPProfile.name);
    EXPECT_EQ(L'\0', job.FTPProfile.server[0]);
    EXPECT_TRUE(job.FTPMD5File);
    EXPECT_TRUE(job.KeepArchive);
    EXPECT_EQ(L"/out/a.zip", job.GetArchive()->name);
    EXPECT_EQ(Strings{file}, job.GetArchiveContent()->Files);
    EXPECT_EQ(7u, job.RequestedActionCmd);
    EXPECT_EQ(L"/dest", job.ExtractTo);
}

TEST_F(ArchiveIniTest, ExtractFolderOptionsLastsOnlyWithoutAppOptionsKeyAndBurnNeedsADevice) {
    WriteJobFile("[ContextMenu]\nExtractFolderOptions=2\n[AppOptions]\nExpandFolderOptions=0\n");
    CArchiveINI overridden;
    ASSERT_TRUE(overridden.Read(JobFile()));
    EXPECT_EQ(0u, overridden.GetAppOptions()->ExpandFolderOptions);

    WriteJobFile("[ContextMenu]\nExtractFolderOptions=2\n");
    CArchiveINI kept;
    ASSERT_TRUE(kept.Read(JobFile()));
    EXPECT_EQ(2u, kept.GetAppOptions()->ExpandFolderOptions);

    // A burn job without a device reads nothing else of its section.
    WriteJobFile("[Archive]\nWizardType=3\n[Burn]\nLabel=Disc\nSafeSpeed=1\n");
    CArchiveINI burn;
    ASSERT_TRUE(burn.Read(JobFile()));
    EXPECT_TRUE(burn.Label.empty());
    EXPECT_FALSE(burn.SafeSpeed);
}

TEST_F(ArchiveIniTest, CreateThenReadGivesBackABurnJob) {
    const std::wstring file = ExistingFile("b.txt");
    const std::wstring folder = ExistingFolder("tree");
    {
        CArchiveINI job;
        job.WizardType = kWizardBurn;
        job.KeepArchive = false;
        job.Device = L'E';
        job.Label = L"Backup";
        job.SafeSpeed = true;
        job.GetArchiveContent()->SegmentSize = 650 * 1024 * 1024LL;
        ASSERT_TRUE(job.AddFilespec(file.c_str(), false));
        ASSERT_TRUE(job.AddFilespec(folder.c_str(), true));
        std::wstring path = JobFile();
        EXPECT_EQ(&path, job.Create(&path));
    }
    // The archive's own section, its password with it, is the facade tests' case.
    EXPECT_FALSE(JobHas(L"[Email]"));

    CArchiveINI read;
    ASSERT_TRUE(read.Read(JobFile()));
    EXPECT_EQ(3u, read.WizardType);
    EXPECT_FALSE(read.KeepArchive);
    EXPECT_EQ(L'E', read.Device);
    EXPECT_EQ(L"Backup", read.Label);
    EXPECT_TRUE(read.SafeSpeed);
    EXPECT_TRUE(read.Segmented);
    EXPECT_EQ(2u, read.GetFilespecCount());
}

TEST_F(ArchiveIniTest, CreateWithoutAPathMakesAnSwTemporaryFileOwnedByTheCaller) {
    CArchiveINI job;
    std::unique_ptr<std::wstring> path(job.Create(nullptr));
    ASSERT_TRUE(path);
    const fs::path made(*path);
    EXPECT_EQ(fs::path(CFSUtils::GetTempFolder()), made.parent_path());
    EXPECT_EQ(L"SW", made.filename().wstring().substr(0, 2));
    CArchiveINI read;
    EXPECT_TRUE(read.Read(*path));
    fs::remove(made);

    std::wstring empty;
    EXPECT_EQ(&empty, job.Create(&empty));
}

TEST_F(ArchiveIniTest, AddFilespecFollowsAFileShortcutOnlyWhenCompressOrigIsSet) {
    const std::wstring target = ExistingFile("target.txt");
    const fs::path link = home.Scratch() / "link.txt";
    fs::create_symlink(target, link);
    const fs::path folderLink = home.Scratch() / "folderlink";
    fs::create_directory_symlink(ExistingFolder("real"), folderLink);

    CArchiveINI job;
    job.GetAppOptions()->CompressOrig = true;
    job.AddFilespec(link.wstring().c_str(), false);
    job.AddFilespec(folderLink.wstring().c_str(), true);
    job.GetAppOptions()->CompressOrig = false;
    job.AddFilespec(link.wstring().c_str(), false);
    EXPECT_EQ((Strings{target, link.wstring()}), job.GetArchiveContent()->Files);
    EXPECT_EQ(Strings{folderLink.wstring()}, job.GetArchiveContent()->Folders);
}

TEST_F(ArchiveIniTest, NewArchiveNamesGoToTheJobReadAndAreAppendedOnEveryRead) {
    WriteJobFile("[Archive]\nWizardType=0\n");
    CArchiveINI runner;
    ASSERT_TRUE(runner.Read(JobFile()));
    runner.NewArcNames = {L"/out/one.zip", L"/out/two.zip"};
    runner.SaveNewArcNames();
    EXPECT_TRUE(JobHas(L"[ArcNames]\r\n0=/out/one.zip\r\n1=/out/two.zip"));
    EXPECT_TRUE(JobHas(L"WizardType=0")) << "the rest of the job stays";

    CArchiveINI requester;
    requester.ReadNewArcNames(JobFile().c_str());
    requester.ReadNewArcNames(JobFile().c_str());
    EXPECT_EQ((Strings{L"/out/one.zip", L"/out/two.zip", L"/out/one.zip", L"/out/two.zip"}),
              requester.NewArcNames);
}

TEST_F(ArchiveIniTest, SaveIniWritesItsOwnSectionOrder) {
    INIINFO *info = CreateIni(JobFile().c_str());
    ASSERT_NE(nullptr, info);
    info->WizardType = 1;
    info->KeepArchive = false;
    wcscpy_s(info->ArchiveName, 1024, L"/out/job.vnkx");
    info->Encrypt = true;
    wcscpy_s(info->Password, 256, L"pass word");
    info->Format = 7;
    info->Timestamp = true;
    info->SegmentSize = 5000000000LL;
    info->UseFilter = true;
    wcscpy_s(info->Mask, 1024, L"*.txt");
    info->DateType = 4;
    info->Since = 3;
    info->AddConflictMethod = 2;
    info->ZipCompressionLevel = 9;
    wcscpy_s(info->FTPProfileName, 256, L"Office");
    info->FTPMD5File = true;
    AddFile(info, L"/in/a.txt");
    AddFolder(info, L"/in/tree");
    AddFile(info, L"/in/b.txt");
    ASSERT_TRUE(SaveIni(info));

    // Sections in the writer's own order, with the lines that carry what was set.
    std::vector<std::wstring> sections;
    const std::wstring text = L"\n" + JobText();
    for (std::size_t at = text.find(L"\n["); at != std::wstring::npos;
         at = text.find(L"\n[", at + 1))
        sections.push_back(text.substr(at + 1, text.find(L']', at) - at));
    EXPECT_EQ(sections,
              (Strings{L"[ArchiveInfo]", L"[Format]", L"[FilesToInclude]", L"[FoldersToInclude]",
                       L"[FolderFilter]", L"[AppOptions]", L"[ExcludeLocations]",
                       L"[VarnickXFormatOptions]", L"[ZipFormatOptions]", L"[BZipFormatOptions]",
                       L"[GZipFormatOptions]", L"[Archive]", L"[FTP]"}));
    EXPECT_TRUE(JobHas(L"Encrypt=1\r\nPassword=" + Enciphered(L"pass word")));
    EXPECT_TRUE(
        JobHas(L"[FilesToInclude]\r\n0=/in/a.txt\r\n1=/in/b.txt\r\n"
               L"[FoldersToInclude]\r\n0=/in/tree"));

    // What the plain writer stored, CArchiveINI reads.
    CArchiveINI read;
    ASSERT_TRUE(read.Read(JobFile()));
    EXPECT_EQ(1u, read.WizardType);
    EXPECT_EQ(L"pass word", read.GetArchive()->password);
    EXPECT_EQ(5000000000LL, read.GetArchiveContent()->SegmentSize);
    EXPECT_TRUE(read.FilterSet());
    EXPECT_EQ(2u, read.GetAppOptions()->AddConflictMethod);
    EXPECT_EQ(9u, read.GetFormatOptions()->ZipCompressionLevel);
    EXPECT_STREQ(L"Office", read.FTPProfile.name);
}

TEST_F(ArchiveIniTest, SaveIniWritesNoPasswordLineWithoutEncryptionAndNoEmailSection) {
    INIINFO *info = CreateIni(JobFile().c_str());
    ASSERT_NE(nullptr, info);
    wcscpy_s(info->Password, 256, L"unused");
    ASSERT_TRUE(SaveIni(info));
    EXPECT_EQ(std::wstring::npos, JobText().find(L"Password"));
    EXPECT_EQ(std::wstring::npos, JobText().find(L"[Email]"));
    EXPECT_TRUE(JobHas(L"WizardType=2"));
    EXPECT_TRUE(JobHas(L"[FolderFilter]\r\nFolderFilterState=0"));
}

TEST_F(ArchiveIniTest, TheRunnerStartsBesideTheLibraryWithTheArgumentsAsGivenAndIsAwaited) {
    const fs::path folder = home.Scratch("programs");
    const fs::path record = home.Scratch() / "record.txt";
    testsupport::WriteBytes(
        folder / "varnick-cmdline",
        "#!/bin/sh\nsleep 0.3\n{ pwd; for a in \"$@\"; do echo \"[$a]\"; done; } > '" +
            record.string() + "'\n");
    fs::permissions(folder / "varnick-cmdline", fs::perms::owner_all);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(jobfile::RunCmdLineBeside((folder / "libvarnick.so").wstring().c_str(),
                                          L"\"/jobs/my job.ini\" -x"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
    ASSERT_TRUE(fs::exists(record)) << "the call returns once the runner has ended";
    EXPECT_EQ(folder.string() + "\n[/jobs/my job.ini]\n[-x]\n", testsupport::ReadBytes(record));

    EXPECT_FALSE(jobfile::RunCmdLineBeside(L"libvarnick.so", L"job.ini"));
    EXPECT_FALSE(jobfile::RunCmdLineBeside(
        (home.Scratch("empty") / "libvarnick.so").wstring().c_str(), L"job.ini"));
}

}  // namespace
