// The log viewer: which log file it shows, its text as the viewer's edit
// control takes it, and clearing it.
//
// A log is named ("Wizard" for "Wizard.log" in the log folder) or given by
// its full path. The dialog that shows it (resource 537, with Clear, Copy
// and Print) belongs to the window layer, which drives this class.
#pragma once

#include <string>

#include "platform/WinTypes.h"

class CViewLog {
public:
    // The title of the service's log; a named log with this title lies in
    // the service's folder, not in the user's log folder.
    static constexpr unsigned kServiceLogTitle = 733;

    explicit CViewLog(HWND owner = nullptr);
    CViewLog(const CViewLog &) = delete;
    CViewLog &operator=(const CViewLog &) = delete;

    // The log to show: by name, or by full path. `titleId` is the string
    // id of the dialog's title.
    void SetLog(const wchar_t *name, unsigned titleId);
    void SetExternalLog(const wchar_t *path, unsigned titleId);
    unsigned TitleId() const { return titleId_; }

    // Picks the file (as the dialog does when it opens and when it clears)
    // and returns its full path; empty when the folder it lies in is unknown.
    const std::wstring &ChooseFile();
    // The log's text with every line ending in CR LF, read in pieces of
    // 2,048 characters; empty when the file cannot be opened.
    std::wstring ReadText();
    // Empties the log file.
    void Clear();

private:
    HWND owner_;
    HWND dialog_ = nullptr;
    std::wstring logName_;
    std::wstring externalPath_;
    unsigned titleId_ = 0;
    std::wstring fullPath_;
};
