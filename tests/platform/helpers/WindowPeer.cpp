// A second process for the cross-process window tests. It shows a top-level
// window of the class "VarnickPeerWindow" with the title given as its
// argument and pumps until the window is closed.
//
// WM_COPYDATA with dwData 1 answers the sum of the bytes; with dwData 2 it
// finds the test's window (class "VarnickPeerCaller") and sends the bytes
// back to it reversed, answering that window's answer plus one.
#include <algorithm>
#include <string>
#include <vector>

#include "platform/WideText.h"
#include "platform/WinUser.h"

namespace {

constexpr wchar_t kPeerClass[] = L"VarnickPeerWindow";
constexpr wchar_t kCallerClass[] = L"VarnickPeerCaller";

LRESULT SumOf(const COPYDATASTRUCT &data) {
    const auto *bytes = static_cast<const BYTE *>(data.lpData);
    LRESULT sum = 0;
    for (DWORD i = 0; i < data.cbData; ++i) sum += bytes[i];
    return sum;
}

LRESULT SendBackReversed(HWND window, const COPYDATASTRUCT &data) {
    HWND caller = FindWindowW(kCallerClass, nullptr);
    if (!caller) return -1;
    const auto *bytes = static_cast<const BYTE *>(data.lpData);
    std::vector<BYTE> reversed(bytes, bytes + data.cbData);
    std::reverse(reversed.begin(), reversed.end());
    COPYDATASTRUCT back{7, data.cbData, reversed.data()};
    return SendMessageW(caller, WM_COPYDATA, reinterpret_cast<WPARAM>(window),
                        reinterpret_cast<LPARAM>(&back)) +
           1;
}

LRESULT CALLBACK PeerProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_COPYDATA: {
            const auto &data = *reinterpret_cast<const COPYDATASTRUCT *>(lParam);
            if (data.dwData == 1) return SumOf(data);
            if (data.dwData == 2) return SendBackReversed(window, data);
            return 0;
        }
        case WM_DESTROY:
            PostQuitMessage(0);
            return 0;
        default:
            return DefWindowProcW(window, message, wParam, lParam);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return 2;
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = PeerProc;
    windowClass.lpszClassName = kPeerClass;
    if (!RegisterClassExW(&windowClass)) return 3;
    std::wstring title = platform::FromUtf8(argv[1]);
    HWND window = CreateWindowExW(0, kPeerClass, title.c_str(), WS_OVERLAPPEDWINDOW, 0, 0, 200, 100,
                                  nullptr, nullptr, nullptr, nullptr);
    if (!window) return 4;
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return static_cast<int>(message.wParam);
}
