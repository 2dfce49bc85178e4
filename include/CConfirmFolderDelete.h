// The notice that a folder being expanded replaces a folder on disk, with
// its two answers: whether to stop asking, and whether to merge folder
// contents from now on.
#pragma once

#include <string>

#include "platform/WinTypes.h"

class CConfirmFolderDelete {
public:
    CConfirmFolderDelete(HWND parent, const wchar_t *path);

    // Shows the notice, modal to the parent. True when it was answered;
    // false when it was refused, and both answers are false.
    bool Run();

    HWND parent;
    std::wstring path;
    bool dontAskAgain = false;   // the first answer
    bool mergeContents = false;  // the second answer
};
