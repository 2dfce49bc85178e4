#include "WindowTestSupport.h"

#include <thread>

namespace windowtest {

namespace {

ATOM RegisterTestClass(WNDPROC procedure) {
    static const ATOM atom = [procedure] {
        WNDCLASSEXW windowClass{};
        windowClass.cbSize = sizeof(windowClass);
        windowClass.lpfnWndProc = procedure;
        windowClass.lpszClassName = TestWindow::ClassName();
        return RegisterClassExW(&windowClass);
    }();
    return atom;
}

}  // namespace

TestWindow::TestWindow(Handler handler, HWND parent, DWORD style, const wchar_t *title)
    : handler_(std::move(handler)) {
    RegisterTestClass(Procedure);
    handle_ = CreateWindowExW(0, ClassName(), title, style, 0, 0, 100, 50, parent,
                              reinterpret_cast<HMENU>(static_cast<INT_PTR>(7)), nullptr, this);
}

TestWindow::~TestWindow() {
    if (IsWindow(handle_)) DestroyWindow(handle_);
}

LRESULT CALLBACK TestWindow::Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        auto *create = reinterpret_cast<CREATESTRUCTW *>(lParam);
        SetWindowLongPtrW(window, GWLP_USERDATA,
                          reinterpret_cast<LONG_PTR>(create->lpCreateParams));
    }
    auto *self = reinterpret_cast<TestWindow *>(GetWindowLongPtrW(window, GWLP_USERDATA));
    LRESULT result = 0;
    if (self && self->handler_ && self->handler_(window, message, wParam, lParam, result)) {
        return result;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace windowtest
