// The progress dialog on the window layer: driven by a worker with the
// progress messages as a run posts them, read back from its controls on the
// window's thread; the timer, the estimate, the custom bar, cancelling and the
// silent form.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "CProgressDialog.h"
#include "UiTestSupport.h"
#include "platform/Win32.h"

namespace {

// What the dialog asks of its archive, through the link.
struct FakeArchive {
    HWND parent = nullptr;
    bool showProgress = true;
    int cancels = 0;
};

const FakeArchive *Fake(const CArchive *archive) {
    return reinterpret_cast<const FakeArchive *>(archive);
}

CArchive *AsArchive(FakeArchive &fake) { return reinterpret_cast<CArchive *>(&fake); }

// Counts what the dialog hands to the host for rendering.
class RecordingHost : public platform::HeadlessUiHost {
public:
    void ProgressChanged(HWND dialog) override {
        changes++;
        lastDialog = dialog;
    }
    void ProgressEnded(HWND) override { ends++; }
    std::atomic<int> changes{0};
    std::atomic<int> ends{0};
    std::atomic<HWND> lastDialog{nullptr};
};

// What the callbacks saw, and on which thread.
struct CallbackLog {
    std::vector<std::wstring> segments;
    std::vector<std::thread::id> segmentThreads;
    int ends = 0;
    bool cancelled = false;
    std::thread::id endThread;
};

void OnSegment(const wchar_t *path, void *context) {
    auto *log = static_cast<CallbackLog *>(context);
    log->segments.push_back(path);
    log->segmentThreads.push_back(std::this_thread::get_id());
}

void OnEnd(void *context, bool cancelled) {
    auto *log = static_cast<CallbackLog *>(context);
    log->ends++;
    log->cancelled = cancelled;
    log->endThread = std::this_thread::get_id();
}

std::wstring ItemText(HWND dialog, int id) {
    wchar_t text[512] = {};
    GetDlgItemTextW(dialog, id, text, 512);
    return text;
}

std::wstring WindowText(HWND window) {
    wchar_t text[512] = {};
    GetWindowTextW(window, text, 512);
    return text;
}

int BarPosition(HWND dialog, int id) {
    return static_cast<int>(SendDlgItemMessageW(dialog, id, PBM_GETPOS, 0, 0));
}

bool ItemVisible(HWND dialog, int id) {
    return (GetWindowLongW(GetDlgItem(dialog, id), GWL_STYLE) & WS_VISIBLE) != 0;
}

void Post(CProgressDialog &dialog, unsigned event, LPARAM datum = 0) {
    PostMessageW(dialog.window, WM_PROGRESS_EVENT, event, datum);
}

using testsupport::WaitFor;

// Waits until the clock has just turned to a new second, so that what
// follows happens within one second.
void StartOfSecond() {
    LONGLONG now = _time64(nullptr);
    while (_time64(nullptr) == now) std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

class ProgressDialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        PROGRESS_ARCHIVE_LINK link;
        link.showProgress = [](const CArchive *archive) { return Fake(archive)->showProgress; };
        link.parentWindow = [](const CArchive *archive) { return Fake(archive)->parent; };
        link.cancel = [](CArchive *archive) {
            reinterpret_cast<FakeArchive *>(archive)->cancels++;
        };
        CProgressDialog::SetArchiveLink(link);
        dialog.endCallback = OnEnd;
        dialog.endContext = &log;
        dialog.segmentCallback = OnSegment;
        dialog.segmentContext = &log;
    }
    void TearDown() override { CProgressDialog::SetArchiveLink({}); }

    static HWND MakeParent() {
        HWND parent = CreateDialogParamW(
            nullptr, MAKEINTRESOURCEW(1), nullptr,
            [](HWND, UINT, WPARAM, LPARAM) -> INT_PTR { return FALSE; }, 0);
        EXPECT_NE(parent, nullptr);
        return parent;
    }

    HWND Open() {
        EXPECT_TRUE(dialog.Run(AsArchive(archive)));
        return dialog.window;
    }

    uitest::ResourceLibraries resources;
    RecordingHost host;
    platform::ScopedUiHost installed{&host};
    FakeArchive archive;
    CallbackLog log;
    CProgressDialog dialog;
};

}  // namespace

TEST_F(ProgressDialogTest, WorkerDrivesTheDialogWithTheRunsMessagesAndTheWindowShowsThem) {
    dialog.SetDlgString(PROGRESSDLG_TITLE, L"Compressing");
    dialog.SetDlgString(PROGRESSDLG_OPERATION, L"Adding files to the archive");
    dialog.SetDlgString(PROGRESSDLG_DETAIL, L"/x/a.vnkx");
    HWND window = Open();
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(IsWindowVisible(window));
    EXPECT_EQ(WindowText(window), L"Compressing");
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_OPERATION_LINE),
              L"Adding files to the archive");
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_DETAIL_LINE), L"/x/a.vnkx");

    // The worker writes, then posts, and never waits for the window.
    std::thread worker([&] {
        dialog.SetFileName(L"docs/b.txt");
        Post(dialog, PROGRESS_EVENT_FILE_NAME);
        dialog.filesTotal = 10;
        dialog.filesDone = 4;
        dialog.bytesTotal = 1000;
        dialog.bytesRead = 300;
        dialog.timeBase = 300;
        dialog.bytesDone = 300 + 200;
        Post(dialog, PROGRESS_EVENT_COUNTERS);
        dialog.SetNewestSegment(L"/x/a.part01.vnkx");
        Post(dialog, PROGRESS_EVENT_SEGMENT);
        // The next segment begins long after the first, in a real run.
        WaitFor([&] { return dialog.PendingSegment() == L"/x/a.part01.vnkx"; });
        dialog.SetNewestSegment(L"/x/a.part02.vnkx");
        Post(dialog, PROGRESS_EVENT_SEGMENT);
        dialog.ShowCustomProgress(true);
        dialog.SetDlgString(PROGRESSDLG_CUSTOM_LABEL, L"Encrypting");
        dialog.SetCustomProgressBar(40);
        Post(dialog, PROGRESS_EVENT_END, 0);
    });
    ASSERT_TRUE(uitest::PumpUntil([&] { return log.ends == 1; }));
    worker.join();

    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILE_NAME), L"docs/b.txt");
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILES_DONE), L"4");
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 50);
    EXPECT_EQ(dialog.barPercent, 50);
    EXPECT_TRUE(ItemVisible(window, CProgressDialog::IDC_CUSTOM_BAR));
    EXPECT_TRUE(ItemVisible(window, CProgressDialog::IDC_CUSTOM_FRAME));
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_CUSTOM_LABEL), L"Encrypting");
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_CUSTOM_BAR), 40);

    // Each segment is announced once the next one begins, the last at the
    // end; callbacks run on the window's thread.
    ASSERT_EQ(log.segments.size(), 2u);
    EXPECT_EQ(log.segments[0], L"/x/a.part01.vnkx");
    EXPECT_EQ(log.segments[1], L"/x/a.part02.vnkx");
    EXPECT_EQ(log.segmentThreads[0], std::this_thread::get_id());
    EXPECT_EQ(log.segmentThreads[1], std::this_thread::get_id());
    EXPECT_EQ(log.endThread, std::this_thread::get_id());
    EXPECT_FALSE(log.cancelled);
    EXPECT_EQ(host.ends, 1);
}

TEST_F(ProgressDialogTest, TimerCreepsTheCountersEverySecondUntilTheEnd) {
    HWND window = Open();
    dialog.bytesTotal = 100000;
    dialog.bytesDone = 50000;
    dialog.OnTimer(CProgressDialog::kTimerId);
    EXPECT_EQ(dialog.bytesDone, 50100);
    EXPECT_EQ(dialog.bytesTotal, 100100);
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 50);

    // Timer 234 really runs on the window's thread...
    LONGLONG before = dialog.bytesDone;
    ASSERT_TRUE(uitest::PumpUntil([&] { return dialog.bytesDone > before; },
                                  std::chrono::milliseconds(2500)));
    // ...and the end stops it.
    Post(dialog, PROGRESS_EVENT_END, 1);
    ASSERT_TRUE(uitest::PumpUntil([&] { return log.ends == 1; }));
    EXPECT_TRUE(log.cancelled);
    LONGLONG after = dialog.bytesDone;
    uitest::PumpUntil([] { return false; }, std::chrono::milliseconds(1300));
    EXPECT_EQ(dialog.bytesDone, after);
}

TEST_F(ProgressDialogTest, EstimateUsesTwiceTheTotalAndComesAtMostOnceASecond) {
    HWND window = Open();
    StartOfSecond();
    LONGLONG now = _time64(nullptr);
    dialog.startTime = now - 10;
    dialog.bytesTotal = 1000;
    dialog.bytesDone = 500;
    dialog.UpdateTimeRemaining();
    EXPECT_EQ(dialog.elapsed, 10);
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_TIME_REMAINING), L"30 seconds");

    dialog.bytesDone = 1000;
    dialog.UpdateTimeRemaining();
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_TIME_REMAINING), L"30 seconds")
        << "a second estimate within the same second is not made";

    dialog.lastEstimate = 0;
    dialog.UpdateTimeRemaining();
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_TIME_REMAINING), L"10 seconds");

    dialog.lastEstimate = 0;
    dialog.startTime = now - 7200;
    dialog.bytesDone = 400;
    dialog.UpdateTimeRemaining();
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_TIME_REMAINING),
              L"8 hours, 0 minutes, 0 seconds");
}

TEST_F(ProgressDialogTest, DoneBeyondTwiceTheTotalShowsANegativeTimeInSeconds) {
    HWND window = Open();
    dialog.startTime = _time64(nullptr) - 10;
    dialog.bytesTotal = 100;
    dialog.bytesDone = 300;
    dialog.UpdateTimeRemaining();
    // 10 x 200 / 300 - 10 wraps round in unsigned arithmetic: -4.
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_TIME_REMAINING), L"-4 seconds");
}

TEST_F(ProgressDialogTest, ZeroTotalNeverMovesTheBarAndShowsNoTime) {
    HWND window = Open();
    SendDlgItemMessageW(window, CProgressDialog::IDC_PROGRESS_BAR, PBM_SETPOS, 7, 0);
    dialog.startTime = _time64(nullptr) - 10;
    dialog.OnProgressEvent(PROGRESS_EVENT_COUNTERS, 0);
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 7);
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_TIME_REMAINING), L"");
    dialog.OnTimer(CProgressDialog::kTimerId);
    EXPECT_EQ(dialog.bytesTotal, 0);
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 7);
}

TEST(ProgressTimeText, SecondsMinutesAndHoursFromTheResourceFormats) {
    uitest::ResourceLibraries resources;
    EXPECT_STREQ(CProgressDialog::ConvertInt64ToString(59), L"59 seconds");
    EXPECT_STREQ(CProgressDialog::ConvertInt64ToString(-5), L"-5 seconds");
    EXPECT_STREQ(CProgressDialog::ConvertInt64ToString(60), L"1 minutes, 0 seconds");
    EXPECT_STREQ(CProgressDialog::ConvertInt64ToString(3599), L"59 minutes, 59 seconds");
    EXPECT_STREQ(CProgressDialog::ConvertInt64ToString(3661), L"1 hours, 1 minutes, 1 seconds");
}

TEST_F(ProgressDialogTest, CustomBarNeverGoesBackExceptThroughZero) {
    HWND window = Open();
    EXPECT_TRUE(dialog.SetCustomProgressBar(50));
    EXPECT_TRUE(dialog.SetCustomProgressBar(30));
    EXPECT_EQ(dialog.customPercent, 50);
    uitest::PumpPending();
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_CUSTOM_BAR), 50);
    dialog.SetCustomProgressBar(0);
    dialog.SetCustomProgressBar(30);
    EXPECT_EQ(dialog.customPercent, 30);
    dialog.SetCustomProgressBar(250);
    EXPECT_EQ(dialog.customPercent, 100);
    uitest::PumpPending();
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_CUSTOM_BAR), 100);

    dialog.Cancel();
    EXPECT_FALSE(dialog.SetCustomProgressBar(0));
}

TEST_F(ProgressDialogTest, CancelStopsTheRunThroughTheArchiveAndSaysSo) {
    HWND window = Open();
    PostMessageW(window, WM_COMMAND, IDOK, 0);
    uitest::PumpPending();
    EXPECT_FALSE(dialog.cancelRequested) << "only command 2 cancels";

    PostMessageW(window, WM_CLOSE, 0, 0);  // becomes command 2
    ASSERT_TRUE(uitest::PumpUntil([&] { return dialog.cancelRequested.load(); }));
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
    uitest::PumpPending();
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_OPERATION_LINE), L"Cancelling...");
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILE_NAME), L"");
    EXPECT_EQ(dialog.FileName(), L"");
    EXPECT_EQ(dialog.bytesDone, 0);
    EXPECT_EQ(dialog.timeBase, 0);
    EXPECT_EQ(BarPosition(window, CProgressDialog::IDC_PROGRESS_BAR), 0);
    EXPECT_EQ(ItemText(window, CProgressDialog::IDC_FILES_DONE), L"0");
}

TEST_F(ProgressDialogTest, HiddenDialogStillForwardsSegmentsAndTheEnd) {
    HWND parent = MakeParent();
    archive.showProgress = false;
    archive.parent = parent;  // not used when progress is not shown
    HWND window = Open();
    ASSERT_NE(window, nullptr);
    EXPECT_FALSE(IsWindowVisible(window));
    RECT rect{};
    GetWindowRect(window, &rect);
    EXPECT_EQ(rect.right - rect.left, 1);
    EXPECT_EQ(rect.bottom - rect.top, 1);
    EXPECT_EQ(GetParent(window), nullptr);
    EXPECT_EQ(dialog.startTime, 0) << "the hidden form is not initialised";

    dialog.SetNewestSegment(L"a.part01.vnkx");
    Post(dialog, PROGRESS_EVENT_SEGMENT);
    uitest::PumpPending();
    EXPECT_TRUE(log.segments.empty()) << "the first segment waits for the second";
    dialog.SetNewestSegment(L"a.part02.vnkx");
    Post(dialog, PROGRESS_EVENT_SEGMENT);
    Post(dialog, PROGRESS_EVENT_END, 0);
    ASSERT_TRUE(uitest::PumpUntil([&] { return log.ends == 1; }));
    EXPECT_EQ(log.segments, (std::vector<std::wstring>{L"a.part01.vnkx", L"a.part02.vnkx"}));
    EXPECT_EQ(host.changes, 0) << "nothing is presented";
    EXPECT_EQ(host.ends, 0);
    DestroyWindow(parent);
}
