// The prompt for a new archive whose name is taken by an existing one.
#pragma once

#include <string>

#include "platform/WinTypes.h"

class CArcNameConflictDialog {
public:
    enum Choice : int {
        ReplaceArchive = 0,
        AddToArchive = 1,
        UseUniqueName = 2,
    };

    // `uniqueName` is the free name offered as the third choice.
    CArcNameConflictDialog(HWND parent, const wchar_t *path, const wchar_t *uniqueName);

    // Shows the prompt, modal to the parent. True when a choice was made;
    // it is then in `choice`. False when refused.
    bool Run();

    HWND parent;
    std::wstring path;
    std::wstring uniqueName;
    int choice = ReplaceArchive;
};
