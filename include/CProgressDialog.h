// The modeless window of a running archive operation: what is being done,
// the current file, a percentage bar, a second custom bar, files done and
// the time remaining.
//
// The operation runs on a worker thread. The worker writes the counters and
// texts into this object and posts WM_PROGRESS_EVENT to the window; all
// drawing happens on the window's thread, so the worker never waits for the
// screen.
//
// Sharing between the two threads: the counters, the custom percentage and
// the cancel flag are atomics, written and read without waiting (a counter
// newer than its message is harmless). The texts (the four dialog strings,
// the file name and the segment paths) are private and go through
// SetDlgString, SetFileName and SetNewestSegment on the worker's side; a
// small lock guards each assignment and each copy the window takes, so the
// window never reads a text while it is being assigned. No lock is held
// while a window call or a callback runs.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "platform/WinTypes.h"
#include "platform/Window.h"

class CArchive;

enum PROGRESSDLGSTRINGID {
    PROGRESSDLG_TITLE = 0,
    PROGRESSDLG_OPERATION = 1,
    PROGRESSDLG_DETAIL = 2,
    PROGRESSDLG_CUSTOM_LABEL = 3,
};

// The window message of the progress events: the event in wParam, its datum
// in lParam.
inline constexpr UINT WM_PROGRESS_EVENT = 33799;

enum PROGRESS_EVENT : unsigned {
    PROGRESS_EVENT_COUNTERS = 1,
    PROGRESS_EVENT_FILE_NAME = 2,
    PROGRESS_EVENT_END = 3,  // datum: the cancel flag
    PROGRESS_EVENT_SEGMENT = 8,
    PROGRESS_EVENT_SHOW_CUSTOM = 9,  // datum: show (not 0) or hide
    PROGRESS_EVENT_CUSTOM = 10,
    PROGRESS_EVENT_CANCELLING = 11,
};

// Called on the dialog's thread at the end of the operation, and for each
// finished segment.
using PROGRESS_END_CALLBACK = void (*)(void *context, bool cancelled);
using PROGRESS_SEGMENT_CALLBACK = void (*)(const wchar_t *path, void *context);

// How a dialog reaches the archive it shows: whether the run shows progress
// (and may prompt), the window that owns the dialog, and how to tell the
// run to stop. The archive facade installs it; without it a dialog shows
// without an owner, and cancelling sets only the dialog's own flag, which
// the run's notifications read as well.
struct PROGRESS_ARCHIVE_LINK {
    bool (*showProgress)(const CArchive *archive) = nullptr;
    HWND (*parentWindow)(const CArchive *archive) = nullptr;
    void (*cancel)(CArchive *archive) = nullptr;
};

class CProgressDialog {
public:
    // Control ids of the dialog's template.
    enum : int {
        IDC_DETAIL_LINE = 1109,
        IDC_FILE_NAME = 1111,
        IDC_FILES_DONE = 1113,
        IDC_OPERATION_LINE = 1114,
        IDC_PROGRESS_BAR = 1115,
        IDC_TIME_REMAINING = 1117,
        IDC_CUSTOM_BAR = 1118,
        IDC_CUSTOM_LABEL = 1119,
        IDC_CUSTOM_FRAME = 1325,
    };
    static constexpr UINT_PTR kTimerId = 234;
    static constexpr UINT kTimerPeriod = 1000;

    CProgressDialog();
    virtual ~CProgressDialog();
    CProgressDialog(const CProgressDialog &) = delete;
    CProgressDialog &operator=(const CProgressDialog &) = delete;

    static void SetArchiveLink(const PROGRESS_ARCHIVE_LINK &link);

    // Creates the modeless dialog (template 2021) on the calling thread,
    // which must pump its messages: owned by the archive's window when the
    // archive shows progress, else unowned, hidden and 1 by 1. False when
    // the window could not be made.
    bool Run(CArchive *archive);

    // Stores the text and, if the window exists, shows it. Ids out of 0 to 3
    // do nothing. Any thread.
    void SetDlgString(PROGRESSDLGSTRINGID id, const wchar_t *text);
    // The worker's texts, read by the window at events 2 and 8.
    void SetFileName(const wchar_t *name);
    void SetNewestSegment(const wchar_t *path);
    // Copies of the texts.
    std::wstring DlgString(PROGRESSDLGSTRINGID id) const;
    std::wstring FileName() const;
    std::wstring NewestSegment() const;
    std::wstring PendingSegment() const;

    void SetDisableAutoRun(bool disable) { disableAutoRun = disable; }
    bool DisableAutoRun() const { return disableAutoRun; }

    // Moves the custom bar forward (or back to 0) by posting event 10; true
    // while the operation is not cancelled. Any thread.
    bool SetCustomProgressBar(int percent);
    // Posts event 9; true when the post worked. Any thread.
    bool ShowCustomProgress(bool show);

    // The window's thread.
    void Cancel();
    void StopTimer();
    void UpdateFileName();
    void UpdateFilesComplete();
    void UpdateProgressbar();
    void UpdateTimeRemaining();

    // Handlers of the dialog procedure.
    BOOL OnInitDialog();
    void OnCommand(WORD command);
    void OnSize(UINT type, int width, int height);
    void OnTimer(UINT_PTR id);
    void OnProgressEvent(unsigned event, LONG argument);
    INT_PTR OnQueryCancelAutoPlay();

    // A number of seconds as text (strings 254 to 256), in a buffer of the
    // calling thread that the next call overwrites.
    static const wchar_t *ConvertInt64ToString(LONGLONG seconds);

    CArchive *archive = nullptr;  // not owned
    std::atomic<HWND> window{nullptr};
    std::atomic<bool> cancelRequested{false};
    std::atomic<LONGLONG> filesDone{0};
    std::atomic<LONGLONG> filesTotal{0};
    std::atomic<LONGLONG> bytesTotal{0};
    std::atomic<LONGLONG> bytesDone{0};
    std::atomic<LONGLONG> bytesRead{0};
    std::atomic<LONGLONG> timeBase{0};  // cleared when the run is cancelled
    PROGRESS_END_CALLBACK endCallback = nullptr;
    void *endContext = nullptr;
    PROGRESS_SEGMENT_CALLBACK segmentCallback = nullptr;
    void *segmentContext = nullptr;
    std::atomic<int> customPercent{0};
    UINT autoPlayMessage = 0;
    int barPercent = 0;
    LONGLONG startTime = 0;
    LONGLONG elapsed = 0;
    LONGLONG lastEstimate = 0;
    bool disableAutoRun = false;

private:
    static INT_PTR DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    void ShowString(PROGRESSDLGSTRINGID id, const std::wstring &text);
    void ShowCustomControls(bool show);
    void AnnouncePendingSegment();
    // Lets the presenting host render the window's controls.
    void Presented();

    mutable std::mutex textLock_;
    std::wstring strings_[4];  // title, operation line, detail line, custom label
    std::wstring fileName_;
    std::wstring newestSegment_;
    std::wstring pendingSegment_;
    bool showProgress_ = true;
};
