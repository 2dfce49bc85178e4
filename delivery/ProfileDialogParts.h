// What the profile dialogs and their panels share.
#pragma once

#include "platform/Dialog.h"

namespace delivery {

// A modeless panel from `templateId` under `parent`, moved into `rect`; null
// when it could not be made. The panel answers no message of its own.
HWND CreateProfilePanel(HWND parent, WORD templateId, const RECT *rect);

// Destroys the panel if it still stands and forgets it.
void DestroyProfilePanel(HWND &panel);

}  // namespace delivery
