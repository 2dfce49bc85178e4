// A prompt stands modal to its owner window: the owner is disabled until
// the prompt is answered, as a modal dialog disables its owner, and enabled
// again afterwards if it was enabled before. The owner may belong to
// another thread, which goes on pumping its messages meanwhile.
#pragma once

#include "platform/WinTypes.h"

class ModalOwner {
public:
    explicit ModalOwner(HWND owner);
    ~ModalOwner();
    ModalOwner(const ModalOwner &) = delete;
    ModalOwner &operator=(const ModalOwner &) = delete;

private:
    HWND owner_;
    bool disabled_ = false;
};
