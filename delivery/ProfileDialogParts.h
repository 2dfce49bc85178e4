// What the profile dialogs and their panels share.
#pragma once

#include "platform/Dialog.h"

namespace delivery {

// The dialog object of a profile dialog's procedure: handed over with
// WM_INITDIALOG, kept in DWLP_USER, and told its window. Null before that.
template <class Dialog>
Dialog *DialogObject(HWND dialog, UINT message, LPARAM lParam) {
    if (message != WM_INITDIALOG) {
        return reinterpret_cast<Dialog *>(GetWindowLongPtrW(dialog, DWLP_USER));
    }
    auto *self = reinterpret_cast<Dialog *>(lParam);
    SetWindowLongPtrW(dialog, DWLP_USER, lParam);
    if (self) self->window = dialog;
    return self;
}

// A modeless panel from `templateId` under `parent`, moved into `rect`; null
// when it could not be made. The panel answers no message of its own.
HWND CreateProfilePanel(HWND parent, WORD templateId, const RECT *rect);

// Destroys the panel if it still stands and forgets it.
void DestroyProfilePanel(HWND &panel);

}  // namespace delivery
