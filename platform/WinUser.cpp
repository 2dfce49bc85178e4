#include "platform/WinUser.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/WideText.h"

namespace {

std::atomic<HWND> captureWindow{nullptr};
std::atomic<HWND> foregroundWindow{nullptr};
std::atomic<HCURSOR> currentCursor{nullptr};

bool IsSystemCursorName(LPCWSTR name) {
    auto id = reinterpret_cast<ULONG_PTR>(name);
    return id >= 0x7F00 && id <= 0x7FFF;
}

}  // namespace

int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags) {
    return platform::CurrentUiHost()->MessageBox(owner, text ? text : L"",
                                                 caption ? caption : L"Error", flags);
}

HWND GetFocus() { return nullptr; }

HWND GetActiveWindow() { return nullptr; }

HWND GetForegroundWindow() { return foregroundWindow.load(); }

HWND FindWindowW(LPCWSTR, LPCWSTR) { return nullptr; }

BOOL SetForegroundWindow(HWND window) {
    if (!window) return FALSE;
    foregroundWindow.store(window);
    return TRUE;
}

HWND SetCapture(HWND window) { return captureWindow.exchange(window); }

BOOL ReleaseCapture() {
    captureWindow.store(nullptr);
    return TRUE;
}

HWND GetCapture() { return captureWindow.load(); }

HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name) {
    if (instance || !IsSystemCursorName(name)) return nullptr;
    // The handle of a system cursor is its id, so it stays the same for
    // every load and tells which cursor is set.
    return reinterpret_cast<HCURSOR>(const_cast<wchar_t *>(name));
}

HCURSOR SetCursor(HCURSOR cursor) { return currentCursor.exchange(cursor); }

HCURSOR GetCursor() { return currentCursor.load(); }

int GetSystemMetrics(int index) { return platform::CurrentUiHost()->SystemMetric(index); }

void OutputDebugStringW(LPCWSTR text) {
    if (!text || !std::getenv("VARNICK_DEBUG")) return;
    std::string narrow = platform::ToUtf8(text);
    std::fputs(narrow.c_str(), stderr);
    std::fflush(stderr);
}
