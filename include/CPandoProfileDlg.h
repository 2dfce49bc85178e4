// The panel of an upload profile for the Pando service, shown inside the
// upload profile dialog. It collects nothing.
#pragma once

#include "platform/WinTypes.h"

class CPandoProfileDlg {
public:
    static constexpr WORD kTemplateId = 3016;

    explicit CPandoProfileDlg(HWND parent);
    // Destroys the panel window.
    ~CPandoProfileDlg();
    CPandoProfileDlg(const CPandoProfileDlg &) = delete;
    CPandoProfileDlg &operator=(const CPandoProfileDlg &) = delete;

    // Makes the panel modeless and places it in `rect` of the parent.
    bool Run(const RECT *rect);

    HWND parent;
    HWND window = nullptr;
};
