// The prompt for the next segment of a spanned archive: put its disk in
// place, or name the folder that holds it.
#pragma once

#include <string>

#include "platform/WinTypes.h"

class CNextDiskDlg {
public:
    // `folder` is where the segment was looked for; it is offered again.
    CNextDiskDlg(HWND parent, const wchar_t *archiveName, const wchar_t *segmentName,
                 const wchar_t *folder);

    // Shows the prompt, modal to the parent. True when the user is ready;
    // `folder` then names the folder to look in (the same one after a disk
    // change). False when refused.
    bool Run();

    HWND parent;
    std::wstring archiveName;
    std::wstring segmentName;
    std::wstring folder;
};
