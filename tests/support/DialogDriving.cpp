#include "support/DialogDriving.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "platform/Window.h"

namespace testsupport {

bool WaitFor(const std::function<bool()> &done) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void PumpPending() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

bool PumpUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        PumpPending();
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
    }
}

void Click(HWND dialog, int id) {
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), BN_CLICKED), 0);
}

HWND PlainWindow(HWND parent, int x, int y, int width, int height) {
    static const ATOM registered = [] {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = DefWindowProcW;
        windowClass.lpszClassName = L"VarnickTestPlainWindow";
        return RegisterClassW(&windowClass);
    }();
    EXPECT_NE(registered, 0);
    return CreateWindowExW(0, L"VarnickTestPlainWindow", L"", 0, x, y, width, height, parent,
                           nullptr, nullptr, nullptr);
}

}  // namespace testsupport
