// The facade: the shared archive object, the job-file section, and
// threaded runs end to end through a worker, the notifications and the
// progress window.
#include <gtest/gtest.h>

#include <algorithm>

#include "CArchiveInfo.h"
#include "CIniFile.h"
#include "CNewArchiveContentList.h"
#include "CRegistry.h"
#include "archive/FacadeTest.h"

namespace {

using archivetest::EndLog;
using archivetest::FacadeTest;

// Copies share one archive object; only one of them may delete it.
TEST_F(FacadeTest, CopiesShareTheArchiveObjectQuirk) {
    auto archive = MakeArchive(work / "a.zip");
    ASSERT_TRUE(archive->OpenArchiveObject());
    CArchive copy(*archive);
    EXPECT_EQ(copy.archiveObject, archive->archiveObject);
    EXPECT_EQ(copy.name, archive->name);
    copy.archiveObject = nullptr;  // the other copy deletes it
}

TEST_F(FacadeTest, SegmentPairIsInstalledOnlyForASegmentedVnkxList) {
    auto archive = MakeArchive(work / "a.vnkx");
    ASSERT_TRUE(archive->OpenArchiveObject());
    CArchiveObject &object = *archive->archiveObject;
    auto segmentPair = [&] {
        auto pairs = object.CommonNotifications();
        return std::count(pairs.begin(), pairs.end(), NotificationPair{1, 2});
    };
    archive->formatType = format::vnkx;
    EXPECT_EQ(segmentPair(), 0) << "no list";
    CNewArchiveContentList list;
    list.SegmentSize = 1 << 20;
    object.contentList = &list;
    EXPECT_EQ(segmentPair(), 1);
    archive->formatType = format::zip;
    EXPECT_EQ(segmentPair(), 0);
    archive->formatType = format::vnkx;
    list.SegmentSize = 0;
    EXPECT_EQ(segmentPair(), 0);
}

TEST_F(FacadeTest, JobFileSectionRoundTripsAndKeepsWhatIsMissing) {
    const std::wstring job = Wide(work / "job.ini");
    auto archive = MakeArchive(work / "a.zip");
    archive->password = L"not saved";
    archive->formatType = format::tar;
    EXPECT_TRUE(archive->SaveToIni(job.c_str()));
    {
        CIniFile ini(job.c_str());
        wchar_t text[64] = {L'x'};
        ASSERT_TRUE(ini.GetString(L"ArchiveInfo", L"Password", text, 64));
        EXPECT_STREQ(text, L"") << "an unencrypted archive saves an empty password";
    }
    archive->encrypted = true;
    archive->password = L"s\u00e9cret";
    archive->SaveToIni(job.c_str());

    CArchive read;
    EXPECT_TRUE(read.ReadFromIni(job.c_str()));
    EXPECT_EQ(read.name, archive->name);
    EXPECT_EQ(read.password, L"s\u00e9cret");
    EXPECT_EQ(read.formatType, format::tar);

    const std::wstring sparse = Wide(work / "sparse.ini");
    {
        CIniFile ini(sparse.c_str());
        ini.SetInt(L"ArchiveInfo", L"Format", format::vnkx);
        ini.Save();
    }
    read.name = L"kept";
    read.ReadFromIni(sparse.c_str());
    EXPECT_EQ(read.name, L"kept");
    EXPECT_FALSE(read.encrypted) << "the flag is cleared before reading";
    EXPECT_EQ(read.formatType, format::vnkx);
}

// Verify is a whole run: window, worker, notifications, engine, end message.
TEST_F(FacadeTest, VerifyEndsThroughTheWindowOnTheCallersThread) {
    auto archive = MakeArchive(SampleZip());
    EndLog log;
    log.Attach(*archive);
    std::wstring textAtEnd;
    log.atEnd = [&] {
        textAtEnd = archive->archiveObject->progressDialog->DlgString(PROGRESSDLG_OPERATION);
    };
    ASSERT_TRUE(archive->Verify());
    EXPECT_FALSE(IsWindowEnabled(parent)) << "the parent is disabled while the window stands";
    EXPECT_EQ(archive->archiveObject->progressDialog->DlgString(PROGRESSDLG_DETAIL), archive->name);
    ASSERT_TRUE(PumpUntil([&] { return log.ends == 1 && !archive->Busy(); }));
    EXPECT_EQ(log.thread, std::this_thread::get_id());
    EXPECT_FALSE(log.cancelled);
    EXPECT_EQ(textAtEnd, Text(689));
    EXPECT_EQ(archive->lastResult, 0);
    archive->DisposeOfProgress();
    EXPECT_TRUE(IsWindowEnabled(parent));
}

TEST_F(FacadeTest, ThreadedInfoRunsHiddenAndTurnsShowProgressBackOn) {
    auto archive = MakeArchive(SampleZip());
    EndLog log;
    log.Attach(*archive);
    ASSERT_TRUE(archive->GetArchiveInfo(true));
    EXPECT_TRUE(IsWindowEnabled(parent)) << "a hidden run leaves the parent enabled";
    EXPECT_FALSE(IsWindowVisible(archive->GetProgressHwnd()));
    ASSERT_TRUE(PumpUntil([&] { return log.ends == 1 && !archive->Busy(); }));
    EXPECT_EQ(log.thread, std::this_thread::get_id());
    EXPECT_TRUE(archive->showProgress);
    EXPECT_EQ(archive->lastResult, 0);
    EXPECT_EQ(archive->fileCount, 3u);
    archive->DisposeOfProgress();
}

TEST_F(FacadeTest, ExtractWithoutProgressEndsThroughTheCallbackOnTheWorker) {
    auto archive = MakeArchive(SampleZip());
    archive->showProgress = false;
    EndLog log;
    log.Attach(*archive);
    std::vector<std::wstring> items{L"a.txt"};
    ASSERT_TRUE(archive->Extract(&items, Wide(work / "out").c_str()));
    EXPECT_FALSE(archive->IsProgressUp()) << "no window at all";
    ASSERT_TRUE(PumpUntil([&] { return log.ends == 1 && !archive->Busy(); }));
    EXPECT_NE(log.thread, std::this_thread::get_id());
    EXPECT_FALSE(log.cancelled);
    EXPECT_EQ(archive->operationKind, ARCHIVE_OPERATION_EXPANDING);
    EXPECT_TRUE(std::filesystem::exists(work / "out" / "a.txt"));
}

TEST_F(FacadeTest, CancelFromTheOwnerEndsTheRunWithTheCancellingMessageFirst) {
    auto archive = MakeArchive(BigZip());
    EndLog log;
    log.Attach(*archive);
    std::wstring lineAtEnd;
    log.atEnd = [&] {
        lineAtEnd = archive->archiveObject->progressDialog->DlgString(PROGRESSDLG_OPERATION);
    };
    ASSERT_TRUE(archive->Verify());
    CancelUnderway(*archive, log);
    EXPECT_TRUE(log.cancelled);
    EXPECT_TRUE(archive->cancelled);
    EXPECT_EQ(archive->lastResult, kEngineCancelled);
    EXPECT_EQ(lineAtEnd, Text(1217)) << "message 11 came before the end";
    archive->DisposeOfProgress();
}

}  // namespace
