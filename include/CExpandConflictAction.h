// The prompt for an item to be written where one already exists.
#pragma once

#include <string>

#include "platform/WinTypes.h"

class CExpandConflictAction {
public:
    // The answers, as `action` holds them. "All" answers are meant for the
    // rest of the run; the caller keeps that.
    enum Action : int {
        Replace = 0,
        ReplaceAll = 1,
        Skip = 2,
        SkipAll = 3,
        ReplaceIfNewer = 4,
        KeepBoth = 5,
        Stop = 6,
    };

    CExpandConflictAction(HWND parent, const wchar_t *path, bool folder);

    // Shows the prompt, modal to the parent. True when one of the actions
    // was chosen; false when the prompt was refused, and `action` is Stop.
    bool Run();

    HWND parent;
    std::wstring path;
    bool folder;
    int action = Stop;
};
