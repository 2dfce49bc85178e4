#include "CProgressDialog.h"

#include "CAppUtils.h"
#include "platform/Dialog.h"
#include "platform/UiHost.h"
#include "platform/WinFormat.h"
#include "platform/WinTime.h"
#include "platform/WinUser.h"

namespace {

constexpr UINT kTemplateId = 2021;
constexpr UINT kCancellingText = 1217;
constexpr UINT kSecondsFormat = 254;
constexpr UINT kMinutesFormat = 255;
constexpr UINT kHoursFormat = 256;
constexpr int kFormatChars = 100;
constexpr int kLineChars = 256;

static_assert(CProgressDialog::IDC_DETAIL_LINE == platform::progress_template::kDetailLine &&
              CProgressDialog::IDC_FILE_NAME == platform::progress_template::kFileName &&
              CProgressDialog::IDC_FILES_DONE == platform::progress_template::kFilesDone &&
              CProgressDialog::IDC_OPERATION_LINE == platform::progress_template::kOperationLine &&
              CProgressDialog::IDC_PROGRESS_BAR == platform::progress_template::kProgressBar &&
              CProgressDialog::IDC_TIME_REMAINING == platform::progress_template::kTimeRemaining &&
              CProgressDialog::IDC_CUSTOM_BAR == platform::progress_template::kCustomBar &&
              CProgressDialog::IDC_CUSTOM_LABEL == platform::progress_template::kCustomLabel &&
              CProgressDialog::IDC_CUSTOM_FRAME == platform::progress_template::kCustomFrame &&
              kTemplateId == platform::progress_template::kTemplateId);

std::mutex linkLock;
PROGRESS_ARCHIVE_LINK archiveLink;

PROGRESS_ARCHIVE_LINK CurrentLink() {
    std::lock_guard lock(linkLock);
    return archiveLink;
}

// The control that shows each dialog string; 0 for the title.
int StringControl(PROGRESSDLGSTRINGID id) {
    switch (id) {
        case PROGRESSDLG_OPERATION:
            return CProgressDialog::IDC_OPERATION_LINE;
        case PROGRESSDLG_DETAIL:
            return CProgressDialog::IDC_DETAIL_LINE;
        case PROGRESSDLG_CUSTOM_LABEL:
            return CProgressDialog::IDC_CUSTOM_LABEL;
        default:
            return 0;
    }
}

bool IsStringId(PROGRESSDLGSTRINGID id) {
    return id >= PROGRESSDLG_TITLE && id <= PROGRESSDLG_CUSTOM_LABEL;
}

}  // namespace

CProgressDialog::CProgressDialog()
    : autoPlayMessage(RegisterWindowMessageW(L"QueryCancelAutoPlay")) {}

CProgressDialog::~CProgressDialog() {
    // The owner destroys the window on its thread; a window left standing
    // must not call into a deleted object.
    HWND standing = window.exchange(nullptr);
    if (standing && IsWindow(standing)) {
        SetWindowLongPtrW(standing, DWLP_USER, 0);
        DestroyWindow(standing);
    }
}

void CProgressDialog::SetArchiveLink(const PROGRESS_ARCHIVE_LINK &link) {
    std::lock_guard lock(linkLock);
    archiveLink = link;
}

bool CProgressDialog::Run(CArchive *owner) {
    archive = owner;
    PROGRESS_ARCHIVE_LINK link = CurrentLink();
    showProgress_ = link.showProgress ? link.showProgress(owner) : true;
    HWND parent = showProgress_ && link.parentWindow ? link.parentWindow(owner) : nullptr;
    HWND made = CreateDialogParamW(CAppUtils::GetCommonHINST(), MAKEINTRESOURCEW(kTemplateId),
                                   parent, DialogProc, reinterpret_cast<LPARAM>(this));
    if (made && showProgress_) Presented();
    return made != nullptr;
}

INT_PTR CProgressDialog::DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto *self = platform::DialogObject(dialog, message, lParam, &CProgressDialog::window);
    if (!self) return FALSE;
    switch (message) {
        case WM_SIZE:
            self->OnSize(static_cast<UINT>(wParam), LOWORD(lParam), HIWORD(lParam));
            return TRUE;
        case WM_INITDIALOG:
            return self->OnInitDialog();
        case WM_COMMAND:
            self->OnCommand(LOWORD(wParam));
            return TRUE;
        case WM_TIMER:
            self->OnTimer(wParam);
            return TRUE;
        case WM_PROGRESS_EVENT:
            // The end callback may delete the dialog: nothing touches it
            // after this call.
            self->OnProgressEvent(static_cast<unsigned>(wParam), static_cast<LONG>(lParam));
            return TRUE;
        default:
            break;
    }
    if (message == self->autoPlayMessage) return self->OnQueryCancelAutoPlay();
    return FALSE;
}

BOOL CProgressDialog::OnInitDialog() {
    HWND dialog = window;
    if (!showProgress_) {
        // A silent operation keeps the same wiring in an invisible window.
        SetWindowPos(dialog, nullptr, 0, 0, 1, 1, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        ShowWindow(dialog, SW_HIDE);
        return TRUE;
    }
    startTime = _time64(nullptr);
    SendDlgItemMessageW(dialog, IDC_PROGRESS_BAR, PBM_SETRANGE, 0, MAKELPARAM(0, 100));
    SendDlgItemMessageW(dialog, IDC_CUSTOM_BAR, PBM_SETRANGE, 0, MAKELPARAM(0, 100));
    ShowCustomControls(false);
    for (PROGRESSDLGSTRINGID id : {PROGRESSDLG_TITLE, PROGRESSDLG_OPERATION, PROGRESSDLG_DETAIL}) {
        ShowString(id, DlgString(id));
    }
    SetTimer(dialog, kTimerId, kTimerPeriod, nullptr);
    return TRUE;
}

void CProgressDialog::ShowString(PROGRESSDLGSTRINGID id, const std::wstring &text) {
    HWND dialog = window;
    if (!dialog) return;
    int control = StringControl(id);
    if (control == 0) {
        SetWindowTextW(dialog, text.c_str());
    } else {
        SetDlgItemTextW(dialog, control, text.c_str());
    }
}

void CProgressDialog::SetDlgString(PROGRESSDLGSTRINGID id, const wchar_t *text) {
    if (!IsStringId(id)) return;
    std::wstring value = text ? text : L"";
    {
        std::lock_guard lock(textLock_);
        strings_[id] = value;
    }
    HWND dialog = window;
    if (!dialog) return;
    ShowString(id, value);
    // The host renders on the window's thread; a worker's text shows with
    // the next event.
    if (GetWindowThreadProcessId(dialog, nullptr) == GetCurrentThreadId()) Presented();
}

void CProgressDialog::SetFileName(const wchar_t *name) {
    std::lock_guard lock(textLock_);
    fileName_ = name ? name : L"";
}

void CProgressDialog::SetNewestSegment(const wchar_t *path) {
    std::lock_guard lock(textLock_);
    newestSegment_ = path ? path : L"";
}

std::wstring CProgressDialog::DlgString(PROGRESSDLGSTRINGID id) const {
    if (!IsStringId(id)) return L"";
    std::lock_guard lock(textLock_);
    return strings_[id];
}

std::wstring CProgressDialog::FileName() const {
    std::lock_guard lock(textLock_);
    return fileName_;
}

std::wstring CProgressDialog::NewestSegment() const {
    std::lock_guard lock(textLock_);
    return newestSegment_;
}

std::wstring CProgressDialog::PendingSegment() const {
    std::lock_guard lock(textLock_);
    return pendingSegment_;
}

bool CProgressDialog::SetCustomProgressBar(int percent) {
    if (percent == 0 || percent > customPercent) {
        customPercent = percent >= 100 ? 100 : percent;
        PostMessageW(window, WM_PROGRESS_EVENT, PROGRESS_EVENT_CUSTOM, 0);
    }
    return !cancelRequested;
}

bool CProgressDialog::ShowCustomProgress(bool show) {
    return PostMessageW(window, WM_PROGRESS_EVENT, PROGRESS_EVENT_SHOW_CUSTOM, show ? 1 : 0) !=
           FALSE;
}

void CProgressDialog::Cancel() {
    cancelRequested = true;
    StopTimer();
    PROGRESS_ARCHIVE_LINK link = CurrentLink();
    if (archive && link.cancel) link.cancel(archive);
    SetDlgString(PROGRESSDLG_DETAIL, CAppUtils::LoadString(kCancellingText, kLineChars).c_str());
}

void CProgressDialog::StopTimer() {
    if (window) KillTimer(window, kTimerId);
}

void CProgressDialog::UpdateFileName() {
    SetDlgItemTextW(window, IDC_FILE_NAME, FileName().c_str());
}

void CProgressDialog::UpdateFilesComplete() {
    SetDlgItemTextW(window, IDC_FILES_DONE, FormatW(L"%I64d", filesDone.load()).c_str());
}

void CProgressDialog::UpdateProgressbar() {
    LONGLONG total = bytesTotal;
    if (total <= 0) return;
    // In 128 bits: a hundred times a large count does not fit in 64.
    barPercent = static_cast<int>(static_cast<__int128>(bytesDone.load()) * 100 / total);
    SendDlgItemMessageW(window, IDC_PROGRESS_BAR, PBM_SETPOS, static_cast<WPARAM>(barPercent), 0);
}

void CProgressDialog::UpdateTimeRemaining() {
    LONGLONG now = _time64(nullptr);
    elapsed = now - startTime;
    if (now <= lastEstimate) return;
    lastEstimate = now;
    LONGLONG done = bytesDone;
    if (done <= 0) {
        SetDlgItemTextW(window, IDC_TIME_REMAINING, L"");
        return;
    }
    // Both sides of the work run up to the total, hence twice the total.
    // Unsigned throughout: a run past twice its total wraps round to a
    // negative number of seconds.
    auto seconds = static_cast<ULONGLONG>(elapsed);
    ULONGLONG remaining =
        seconds * (2 * static_cast<ULONGLONG>(bytesTotal.load())) / static_cast<ULONGLONG>(done) -
        seconds;
    SetDlgItemTextW(window, IDC_TIME_REMAINING,
                    ConvertInt64ToString(static_cast<LONGLONG>(remaining)));
}

const wchar_t *CProgressDialog::ConvertInt64ToString(LONGLONG seconds) {
    static thread_local std::wstring text;
    if (seconds < 60) {
        text = FormatW(CAppUtils::LoadString(kSecondsFormat, kFormatChars).c_str(), seconds);
    } else if (seconds < 3600) {
        text = FormatW(CAppUtils::LoadString(kMinutesFormat, kFormatChars).c_str(),
                       static_cast<int>(seconds / 60), static_cast<int>(seconds % 60));
    } else {
        text = FormatW(CAppUtils::LoadString(kHoursFormat, kFormatChars).c_str(),
                       static_cast<int>(seconds / 3600), static_cast<int>(seconds % 3600 / 60),
                       static_cast<int>(seconds % 60));
    }
    return text.c_str();
}

void CProgressDialog::ShowCustomControls(bool show) {
    for (int id : {IDC_CUSTOM_BAR, IDC_CUSTOM_LABEL, IDC_CUSTOM_FRAME}) {
        ShowWindow(GetDlgItem(window, id), show ? SW_SHOW : SW_HIDE);
    }
}

void CProgressDialog::OnCommand(WORD command) {
    if (command == IDCANCEL) Cancel();
}

void CProgressDialog::OnSize(UINT, int, int) {
    // The layout of the controls belongs to the template and the host that
    // renders it.
}

void CProgressDialog::OnTimer(UINT_PTR) {
    // The counters creep so that the display stays alive through a long
    // stretch without events, and the ratio moves a little towards 1.
    LONGLONG step = bytesTotal / 1000;
    bytesDone += step;
    bytesTotal += step;
    UpdateProgressbar();
    UpdateTimeRemaining();
    Presented();
}

void CProgressDialog::AnnouncePendingSegment() {
    std::wstring pending = PendingSegment();
    if (!pending.empty() && segmentCallback) segmentCallback(pending.c_str(), segmentContext);
}

void CProgressDialog::OnProgressEvent(unsigned event, LONG argument) {
    switch (event) {
        case PROGRESS_EVENT_COUNTERS:
            UpdateProgressbar();
            UpdateFilesComplete();
            UpdateTimeRemaining();
            break;
        case PROGRESS_EVENT_FILE_NAME:
            UpdateFileName();
            UpdateTimeRemaining();
            break;
        case PROGRESS_EVENT_END: {
            KillTimer(window, kTimerId);
            if (showProgress_) platform::CurrentUiHost()->ProgressEnded(window);
            AnnouncePendingSegment();
            // The end callback comes last: it may delete this dialog.
            PROGRESS_END_CALLBACK callback = endCallback;
            if (callback) callback(endContext, argument != 0);
            return;
        }
        case PROGRESS_EVENT_SEGMENT: {
            AnnouncePendingSegment();
            std::lock_guard lock(textLock_);
            pendingSegment_ = newestSegment_;
            break;
        }
        case PROGRESS_EVENT_SHOW_CUSTOM:
            ShowCustomControls(argument != 0);
            break;
        case PROGRESS_EVENT_CUSTOM:
            SendDlgItemMessageW(window, IDC_CUSTOM_BAR, PBM_SETPOS,
                                static_cast<WPARAM>(customPercent.load()), 0);
            break;
        case PROGRESS_EVENT_CANCELLING:
            SetDlgString(PROGRESSDLG_OPERATION,
                         CAppUtils::LoadString(kCancellingText, kLineChars).c_str());
            SetFileName(L"");
            UpdateFileName();
            bytesDone = 0;
            timeBase = 0;
            UpdateProgressbar();
            filesDone = 0;
            UpdateFilesComplete();
            UpdateTimeRemaining();
            break;
        default:
            return;
    }
    Presented();
}

INT_PTR CProgressDialog::OnQueryCancelAutoPlay() {
    if (!disableAutoRun) return FALSE;
    SetWindowLongPtrW(window, DWLP_MSGRESULT, 1);
    return TRUE;
}

void CProgressDialog::Presented() {
    HWND dialog = window;
    if (showProgress_ && dialog) platform::CurrentUiHost()->ProgressChanged(dialog);
}
