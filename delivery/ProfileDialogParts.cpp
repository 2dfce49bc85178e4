#include "ProfileDialogParts.h"

#include "CAppUtils.h"
#include "platform/Win32.h"

namespace delivery {

namespace {

INT_PTR PanelProc(HWND, UINT message, WPARAM, LPARAM) { return message == WM_INITDIALOG; }

}  // namespace

HWND CreateProfilePanel(HWND parent, WORD templateId, const RECT *rect) {
    HWND panel = CreateDialogParamW(CAppUtils::GetCommonHINST(), MAKEINTRESOURCEW(templateId),
                                    parent, PanelProc, 0);
    if (!panel) return nullptr;
    if (rect) {
        MoveWindow(panel, rect->left, rect->top, rect->right - rect->left, rect->bottom - rect->top,
                   TRUE);
    }
    return panel;
}

void DestroyProfilePanel(HWND &panel) {
    if (panel && IsWindow(panel)) DestroyWindow(panel);
    panel = nullptr;
}

}  // namespace delivery
