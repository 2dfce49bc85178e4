// The progress dialog on the window layer: driven by a worker with the
// progress messages as a run posts them, read back from its controls on the
// window's thread; the timer, the estimate, the custom bar, cancelling and the
// silent form.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "CProgressDialog.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"

namespace {

// What the dialog asks of its archive, through the link.
struct FakeArchive {
    HWND parent = nullptr;
    bool showProgress = true;
    int cancels = 0;
};

FakeArchive *Fake(const CArchive *archive) {
    return reinterpret_cast<FakeArchive *>(const_cast<CArchive *>(archive));
}

// Counts what the dialog hands to the host for rendering.
class RecordingHost : public platform::HeadlessUiHost {
public:
    void ProgressChanged(HWND) override { changes++; }
    void ProgressEnded(HWND) override { ends++; }
    std::atomic<int> changes{0};
    std::atomic<int> ends{0};
};

// What the callbacks saw, and on which thread.
struct CallbackLog {
    std::vector<std::wstring> segments;
    std::vector<std::thread::id> threads;
    int ends = 0;
    bool cancelled = false;
};

std::wstring ItemText(HWND dialog, int id) { return platform::ReadControl(dialog, id).text; }

int BarPosition(HWND dialog, int id) {
    return static_cast<int>(SendDlgItemMessageW(dialog, id, PBM_GETPOS, 0, 0));
}

void Post(CProgressDialog &dialog, unsigned event, LPARAM datum = 0) {
    PostMessageW(dialog.window, WM_PROGRESS_EVENT, event, datum);
}

class ProgressDialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        PROGRESS_ARCHIVE_LINK link;
        link.showProgress = [](const CArchive *archive) { return Fake(archive)->showProgress; };
        link.parentWindow = [](const CArchive *archive) { return Fake(archive)->parent; };
        link.cancel = [](CArchive *archive) { Fake(archive)->cancels++; };
        CProgressDialog::SetArchiveLink(link);
        dialog.endContext = dialog.segmentContext = &log;
        dialog.endCallback = [](void *context, bool cancelled) {
            auto *log = static_cast<CallbackLog *>(context);
            log->ends++;
            log->cancelled = cancelled;
            log->threads.push_back(std::this_thread::get_id());
        };
        dialog.segmentCallback = [](const wchar_t *path, void *context) {
            auto *log = static_cast<CallbackLog *>(context);
            log->segments.push_back(path);
            log->threads.push_back(std::this_thread::get_id());
        };
    }
    void TearDown() override { CProgressDialog::SetArchiveLink({}); }

    HWND Open() {
        EXPECT_TRUE(dialog.Run(reinterpret_cast<CArchive *>(&archive)));
        return dialog.window;
    }

    testsupport::LoadedResources resources;
    RecordingHost host;
    platform::ScopedUiHost installed{&host};
    FakeArchive archive;
    CallbackLog log;
    CProgressDialog dialog;
};

}  // namespace

TEST_F(ProgressDialogTest, WorkerDrivesTheDialogWithTheRunsMessagesAndTheWindowShowsThem) {
    dialog.SetDlgString(PROGRESSDLG_OPERATION, L"Adding files to the archive");
    HWND window = Open();
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(IsWindowVisible(window));
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_OPERATION_LINE),
              L"Adding files to the archive");

    // The worker writes, then posts, and never waits for the window.
    std::thread worker([&] {
        dialog.SetFileName(L"docs/b.txt");
        Post(dialog, PROGRESS_EVENT_FILE_NAME);
        dialog.filesTotal = 10;
        dialog.filesDone = 4;
        dialog.bytesTotal = 1000;
        dialog.timeBase = 300;
        dialog.bytesDone = 300 + 200;
        Post(dialog, PROGRESS_EVENT_COUNTERS);
        dialog.SetNewestSegment(L"/x/a.part01.vnkx");
        Post(dialog, PROGRESS_EVENT_SEGMENT);
        // The next segment begins long after the first, in a real run.
        testsupport::WaitFor([&] { return dialog.PendingSegment() == L"/x/a.part01.vnkx"; });
        dialog.SetNewestSegment(L"/x/a.part02.vnkx");
        Post(dialog, PROGRESS_EVENT_SEGMENT);
        dialog.ShowCustomProgress(true);
        dialog.SetDlgString(PROGRESSDLG_CUSTOM_LABEL, L"Encrypting");
        dialog.SetCustomProgressBar(40);
        Post(dialog, PROGRESS_EVENT_END, 0);
    });
    ASSERT_TRUE(testsupport::PumpUntil([&] { return log.ends == 1; }));
    worker.join();

    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILE_NAME), L"docs/b.txt");
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILES_DONE), L"4");
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 50);
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_CUSTOM_LABEL), L"Encrypting");
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_CUSTOM_BAR), 40);

    // Each segment is announced once the next one begins, the last at the
    // end; callbacks run on the window's thread.
    EXPECT_EQ(log.segments, (std::vector<std::wstring>{L"/x/a.part01.vnkx", L"/x/a.part02.vnkx"}));
    EXPECT_EQ(log.threads, std::vector<std::thread::id>(3, std::this_thread::get_id()));
    EXPECT_FALSE(log.cancelled);
    EXPECT_EQ(host.ends, 1);
}

TEST_F(ProgressDialogTest, TimerCreepsTheCountersEverySecondUntilTheEndButNeverAZeroTotal) {
    HWND window = Open();
    dialog.OnTimer(CProgressDialog::kTimerId);
    EXPECT_EQ(dialog.bytesTotal, 0);
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_TIME_REMAINING), L"");

    dialog.bytesTotal = 100000;
    dialog.bytesDone = 50000;
    dialog.OnTimer(CProgressDialog::kTimerId);
    EXPECT_EQ(dialog.bytesDone, 50100);
    EXPECT_EQ(dialog.bytesTotal, 100100);
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 50);

    // The timer really runs on the window's thread, and the end stops it.
    LONGLONG before = dialog.bytesDone;
    ASSERT_TRUE(testsupport::PumpUntil([&] { return dialog.bytesDone > before; },
                                       std::chrono::milliseconds(2500)));
    Post(dialog, PROGRESS_EVENT_END, 1);
    ASSERT_TRUE(testsupport::PumpUntil([&] { return log.ends == 1; }));
    EXPECT_TRUE(log.cancelled);
    LONGLONG after = dialog.bytesDone;
    testsupport::PumpUntil([] { return false; }, std::chrono::milliseconds(1300));
    EXPECT_EQ(dialog.bytesDone, after);
}

TEST_F(ProgressDialogTest, EstimateUsesTwiceTheTotalOnceASecondAndGoesNegativeBeyondIt) {
    HWND window = Open();
    LONGLONG now = _time64(nullptr);
    while (_time64(nullptr) == now) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    now = _time64(nullptr);
    auto estimate = [&](LONGLONG elapsed, LONGLONG done) {
        dialog.startTime = now - elapsed;
        dialog.bytesDone = done;
        dialog.UpdateTimeRemaining();
        return ItemText(window, CProgressDialog::IDC_TIME_REMAINING);
    };
    dialog.bytesTotal = 1000;
    EXPECT_EQ(estimate(10, 500), L"30 seconds");
    EXPECT_EQ(estimate(10, 1000), L"30 seconds") << "not twice within a second";
    dialog.lastEstimate = 0;
    EXPECT_EQ(estimate(10, 1000), L"10 seconds");
    dialog.lastEstimate = 0;
    EXPECT_EQ(estimate(7200, 400), L"8 hours, 0 minutes, 0 seconds");
    EXPECT_STREQ(CProgressDialog::ConvertInt64ToString(3599), L"59 minutes, 59 seconds");
    // Done beyond twice the total: 10 x 2000 / 3000 - 10 wraps round in
    // unsigned arithmetic and shows as -4 seconds.
    dialog.lastEstimate = 0;
    EXPECT_EQ(estimate(10, 3000), L"-4 seconds");
}

TEST_F(ProgressDialogTest, CustomBarNeverGoesBackExceptThroughZeroAndStopsWithACancel) {
    HWND window = Open();
    for (int percent : {50, 30, 0, 30, 250}) dialog.SetCustomProgressBar(percent);
    EXPECT_EQ(dialog.customPercent, 100);
    dialog.SetCustomProgressBar(0);
    dialog.SetCustomProgressBar(30);
    dialog.SetCustomProgressBar(20);
    testsupport::PumpPending();
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_CUSTOM_BAR), 30);
    dialog.Cancel();
    EXPECT_FALSE(dialog.SetCustomProgressBar(0));
}

TEST_F(ProgressDialogTest, CancelStopsTheRunThroughTheArchiveAndSaysSo) {
    HWND window = Open();
    PostMessageW(window, WM_COMMAND, IDOK, 0);
    testsupport::PumpPending();
    EXPECT_FALSE(dialog.cancelRequested) << "only command 2 cancels";

    PostMessageW(window, WM_CLOSE, 0, 0);  // becomes command 2
    ASSERT_TRUE(testsupport::PumpUntil([&] { return dialog.cancelRequested.load(); }));
    EXPECT_EQ(archive.cancels, 1);
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_DETAIL_LINE), L"Cancelling...");
    EXPECT_EQ(log.ends, 0) << "the end comes later, as event 3";

    // The run notices and posts 11: the display starts from nothing.
    dialog.SetFileName(L"b.txt");
    dialog.bytesTotal = 1000;
    dialog.bytesDone = 600;
    dialog.timeBase = 300;
    dialog.filesDone = 5;
    Post(dialog, PROGRESS_EVENT_CANCELLING);
    testsupport::PumpPending();
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_OPERATION_LINE), L"Cancelling...");
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILE_NAME), L"");
    EXPECT_EQ(dialog.bytesDone, 0);
    EXPECT_EQ(dialog.timeBase, 0);
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 0);
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILES_DONE), L"0");
}

TEST_F(ProgressDialogTest, HiddenDialogStillForwardsSegmentsAndTheEnd) {
    archive.showProgress = false;
    archive.parent = testsupport::PlainWindow(nullptr);  // not used when progress is not shown
    HWND window = Open();
    ASSERT_NE(window, nullptr);
    EXPECT_FALSE(IsWindowVisible(window));
    EXPECT_EQ(GetParent(window), nullptr);
    EXPECT_EQ(dialog.startTime, 0) << "the hidden form is not initialised";

    dialog.SetNewestSegment(L"a.part01.vnkx");
    Post(dialog, PROGRESS_EVENT_SEGMENT);
    testsupport::PumpPending();
    EXPECT_TRUE(log.segments.empty()) << "the first segment waits for the second";
    dialog.SetNewestSegment(L"a.part02.vnkx");
    Post(dialog, PROGRESS_EVENT_SEGMENT);
    Post(dialog, PROGRESS_EVENT_END, 0);
    ASSERT_TRUE(testsupport::PumpUntil([&] { return log.ends == 1; }));
    EXPECT_EQ(log.segments, (std::vector<std::wstring>{L"a.part01.vnkx", L"a.part02.vnkx"}));
    EXPECT_EQ(host.changes, 0) << "nothing is presented";
    EXPECT_EQ(host.ends, 0);
    DestroyWindow(archive.parent);
}
