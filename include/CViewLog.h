// The log viewer: which log file it shows, its text as the viewer's edit
// control takes it, and clearing it.
//
// A log is named ("Wizard" for "Wizard.log" in the log folder) or given by
// its full path, and shown in a modal dialog (template 537) with Clear, Copy
// and Print. A host that shows texts itself (the terminal) gets the log's
// text, and the dialog closes at once.
#pragma once

#include <atomic>
#include <string>

#include "platform/WinTypes.h"
#include "platform/Window.h"

class CViewLog {
public:
    // The title of the service's log; a named log with this title lies in
    // the service's folder, not in the user's log folder.
    static constexpr unsigned kServiceLogTitle = 733;

    // The dialog's template and its controls.
    static constexpr UINT kTemplateId = 537;
    enum : int {
        IDC_LOG_TEXT = 5370,
        IDC_LOG_CLEAR = 5371,
        IDC_LOG_COPY = 5372,
        IDC_LOG_PRINT = 5373,
    };

    explicit CViewLog(HWND owner = nullptr);
    CViewLog(const CViewLog &) = delete;
    CViewLog &operator=(const CViewLog &) = delete;

    // The log to show: by name, or by full path. `titleId` is the string
    // id of the dialog's title.
    void SetLog(const wchar_t *name, unsigned titleId);
    void SetExternalLog(const wchar_t *path, unsigned titleId);
    unsigned TitleId() const { return titleId_; }

    // Shows the log called `name`, or the log at a full path, in the modal
    // dialog on the calling thread; the dialog's result (IDOK or IDCANCEL),
    // -1 when it could not be made.
    INT_PTR Run(const wchar_t *name, unsigned titleId);
    INT_PTR RunOnExternalLog(const wchar_t *path, unsigned titleId);
    // The dialog's window while it stands, else null.
    HWND Window() const { return dialog_.load(); }

    // Handlers of the dialog procedure.
    BOOL OnInitDlg();
    void OnClear();
    void OnCopy();
    void OnPrint();

    // Picks the file (as the dialog does when it opens and when it clears)
    // and returns its full path; empty when the folder it lies in is unknown.
    const std::wstring &ChooseFile();
    // The log's text with every line ending in CR LF, read in pieces of
    // 2,048 characters; empty when the file cannot be opened.
    std::wstring ReadText();
    // Empties the log file.
    void Clear();

private:
    static INT_PTR DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    INT_PTR RunDialog();

    HWND owner_;
    std::atomic<HWND> dialog_{nullptr};
    std::wstring logName_;
    std::wstring externalPath_;
    unsigned titleId_ = 0;
    std::wstring fullPath_;
};
