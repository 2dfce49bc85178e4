// Shared pieces of the window layer's tests: a window class whose procedure
// a test supplies as a function object, and the pump of the support library.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "platform/WinUser.h"
#include "support/DialogDriving.h"

namespace windowtest {

// What a test's window does with a message; return false to leave it to
// DefWindowProcW.
using Handler = std::function<bool(HWND, UINT, WPARAM, LPARAM, LRESULT &)>;

// A window of the class "VarnickTestWindow" whose messages go to `handler`.
// The handler lives as long as the object; the window is destroyed with it
// when it still stands (on the thread that made it).
class TestWindow {
public:
    explicit TestWindow(Handler handler = {}, HWND parent = nullptr, DWORD style = 0,
                        const wchar_t *title = L"test");
    ~TestWindow();
    TestWindow(const TestWindow &) = delete;
    TestWindow &operator=(const TestWindow &) = delete;

    HWND Handle() const { return handle_; }
    static const wchar_t *ClassName() { return L"VarnickTestWindow"; }

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    Handler handler_;
    HWND handle_ = nullptr;
};

using testsupport::PumpUntil;

}  // namespace windowtest
