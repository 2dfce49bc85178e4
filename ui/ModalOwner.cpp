#include "ui/ModalOwner.h"

#include "platform/WinUser.h"

namespace {

// A modal dialog disables the top-level window of its parent.
HWND TopLevelOf(HWND window) {
    while (window && (GetWindowLongW(window, GWL_STYLE) & WS_CHILD)) window = GetParent(window);
    return window;
}

}  // namespace

ModalOwner::ModalOwner(HWND owner) : owner_(TopLevelOf(owner)) {
    if (owner_ && IsWindow(owner_) && IsWindowEnabled(owner_)) {
        EnableWindow(owner_, FALSE);
        disabled_ = true;
    }
}

ModalOwner::~ModalOwner() {
    if (disabled_) EnableWindow(owner_, TRUE);
}
