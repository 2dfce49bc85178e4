// The common file dialogs: a folder to choose, a file to save, the archive
// an index file stands for. Each is modal to its parent and asks through
// the installed UiHost.
#pragma once

#include <string>

#include "platform/WinTypes.h"

// Flags of RunSaveFile.
inline constexpr DWORD SAVEFILE_OVERWRITEPROMPT = 0x0001;

class CCommonDlgs {
public:
    CCommonDlgs() = delete;

    // An existing folder, as a full path; empty when none was chosen.
    // `text` (or string `textId`) says what the folder is for.
    static std::wstring RunChooseDirectory(HWND parent, const wchar_t *text,
                                           const wchar_t *initialFolder = nullptr);
    static std::wstring RunChooseDirectory(HWND parent, unsigned textId);

    // A file to write, as a full path, in `chosen`. The title and the filter
    // ("Text Files (*.txt)|*.txt|...||") are string ids; `suggestedName` is
    // offered first. With SAVEFILE_OVERWRITEPROMPT an existing file is only
    // taken after the user agreed to replace it. False when cancelled.
    static bool RunSaveFile(HWND parent, unsigned titleId, unsigned filterId, DWORD flags,
                            const wchar_t *suggestedName, std::wstring &chosen);

    // The real archive of an index file: an existing file, looked for with
    // `pattern` ("*.vnkx"), as a full path in `path`. False when cancelled.
    static bool GetIndexArchiveRealArchiveLocation(HWND parent, const wchar_t *pattern,
                                                   std::wstring &path);
};
