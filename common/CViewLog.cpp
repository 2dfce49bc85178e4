#include "CViewLog.h"

#include <memory>

#include "CAppUtils.h"
#include "CLogging.h"
#include "platform/Dialog.h"
#include "platform/UiHost.h"
#include "platform/Win32.h"

namespace {

constexpr int kReadPieceChars = 2048;
constexpr int kTitleChars = 256;

struct FileCloser {
    void operator()(FILE *file) const { fclose(file); }
};

// The service writes its log into the machine-wide data folder; every
// other component into the user's log folder.
std::wstring NamedLogPath(const std::wstring &name, unsigned titleId) {
    bool service = titleId == CViewLog::kServiceLogTitle;
    std::wstring base =
        platform::SpecialFolder(service ? CSIDL_COMMON_APPDATA : CSIDL_LOCAL_APPDATA, false);
    if (base.empty()) return base;
    return base + kPathSep + L"Orvane Labs" + kPathSep + (service ? L"Varnick" : L"Logs") +
           kPathSep + name + L".log";
}

}  // namespace

CViewLog::CViewLog(HWND owner) : owner_(owner) {}

void CViewLog::SetLog(const wchar_t *name, unsigned titleId) {
    logName_ = name ? name : L"";
    externalPath_.clear();
    titleId_ = titleId;
}

void CViewLog::SetExternalLog(const wchar_t *path, unsigned titleId) {
    logName_.clear();
    externalPath_ = path ? path : L"";
    titleId_ = titleId;
}

const std::wstring &CViewLog::ChooseFile() {
    fullPath_ = externalPath_.empty() ? NamedLogPath(logName_, titleId_) : externalPath_;
    return fullPath_;
}

std::wstring CViewLog::ReadText() {
    std::wstring text;
    std::unique_ptr<FILE, FileCloser> file(_wfopen(ChooseFile().c_str(), L"rt, ccs=UNICODE"));
    if (!file) return text;
    wchar_t piece[kReadPieceChars];
    while (TextFileGets(piece, kReadPieceChars, file.get())) {
        std::wstring_view read(piece);
        if (!read.empty() && read.back() == L'\n') {
            read.remove_suffix(1);
            text.append(read).append(L"\r\n");
        } else {
            text.append(read);
        }
    }
    return text;
}

void CViewLog::Clear() { CLogging::ClearLog(ChooseFile().c_str()); }

INT_PTR CViewLog::Run(const wchar_t *name, unsigned titleId) {
    SetLog(name, titleId);
    return RunDialog();
}

INT_PTR CViewLog::RunOnExternalLog(const wchar_t *path, unsigned titleId) {
    SetExternalLog(path, titleId);
    return RunDialog();
}

INT_PTR CViewLog::RunDialog() {
    INT_PTR result = DialogBoxParamW(CAppUtils::GetCommonHINST(), MAKEINTRESOURCEW(kTemplateId),
                                     owner_, DialogProc, reinterpret_cast<LPARAM>(this));
    dialog_ = nullptr;
    return result;
}

INT_PTR CViewLog::DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto *self = platform::DialogObject(dialog, message, lParam, &CViewLog::dialog_);
    if (!self) return FALSE;
    switch (message) {
        case WM_INITDIALOG:
            return self->OnInitDlg();
        case WM_COMMAND:
            switch (LOWORD(wParam)) {
                case IDOK:
                case IDCANCEL:
                    EndDialog(dialog, LOWORD(wParam));
                    return TRUE;
                case IDC_LOG_CLEAR:
                    self->OnClear();
                    return TRUE;
                case IDC_LOG_COPY:
                    self->OnCopy();
                    return TRUE;
                case IDC_LOG_PRINT:
                    self->OnPrint();
                    return TRUE;
                default:
                    return FALSE;
            }
        default:
            return FALSE;
    }
}

BOOL CViewLog::OnInitDlg() {
    HWND dialog = dialog_;
    std::wstring title = CAppUtils::LoadString(titleId_, kTitleChars);
    SetWindowTextW(dialog, title.c_str());
    std::wstring text = ReadText();
    SetDlgItemTextW(dialog, IDC_LOG_TEXT, text.c_str());
    if (platform::CurrentUiHost()->ShowText(dialog, title, text)) EndDialog(dialog, IDOK);
    return TRUE;
}

void CViewLog::OnClear() {
    Clear();
    SetDlgItemTextW(dialog_, IDC_LOG_TEXT, L"");
}

void CViewLog::OnCopy() {
    HWND dialog = dialog_;
    HWND edit = GetDlgItem(dialog, IDC_LOG_TEXT);
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(edit)) + 1, L'\0');
    int length = GetWindowTextW(edit, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<std::size_t>(length > 0 ? length : 0));
    CAppUtils::CopyTextToClipboard(dialog, text);
}

// Printing goes to the system's print command for the file itself.
void CViewLog::OnPrint() {
    const std::wstring &file = ChooseFile();
    std::wstring folder = platform::ParentPath(file);
    ShellExecuteW(dialog_, L"print", file.c_str(), nullptr, folder.c_str(), SW_HIDE);
}
