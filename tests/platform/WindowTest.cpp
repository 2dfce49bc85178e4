#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "WindowTestSupport.h"
#include "platform/WinUser.h"
#include "support/TempHome.h"

// Windows of registered classes announce themselves in the runtime folder,
// so every test has a home of its own.
class WindowLifetime : public testsupport::HomeTest {};
class WindowData : public testsupport::HomeTest {};
class WindowMessages : public testsupport::HomeTest {};
class WindowSearch : public testsupport::HomeTest {};
class WindowFocus : public testsupport::HomeTest {};
class WindowEvents : public testsupport::HomeTest {};

using windowtest::PumpUntil;
using windowtest::TestWindow;

namespace {

struct Recorded {
    HWND window;
    UINT message;
};

// Records the lifetime messages every window of the test gets.
windowtest::Handler Recorder(std::vector<Recorded> &log) {
    return [&log](HWND window, UINT message, WPARAM, LPARAM, LRESULT &) {
        if (message == WM_NCCREATE || message == WM_CREATE || message == WM_DESTROY ||
            message == WM_NCDESTROY) {
            log.push_back({window, message});
        }
        return false;
    };
}

LRESULT CALLBACK RefuseCreation(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_CREATE) return -1;
    return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace

TEST_F(WindowLifetime, CreationAndDestructionMessagesComeInWindowsOrder) {
    std::vector<Recorded> log;
    auto parent = std::make_unique<TestWindow>(Recorder(log));
    TestWindow child(Recorder(log), parent->Handle(), WS_CHILD);
    TestWindow grandchild(Recorder(log), child.Handle(), WS_CHILD);
    HWND p = parent->Handle(), c = child.Handle(), g = grandchild.Handle();
    ASSERT_TRUE(p && c && g);
    ASSERT_EQ(log.size(), 6u);
    EXPECT_EQ(log[0].message, WM_NCCREATE);
    EXPECT_EQ(log[1].message, WM_CREATE);
    EXPECT_EQ(GetParent(c), p);
    EXPECT_EQ(GetDlgCtrlID(c), 7);
    EXPECT_TRUE(IsChild(p, g));
    EXPECT_FALSE(IsChild(g, p));

    log.clear();
    parent.reset();
    std::vector<Recorded> expected{{p, WM_DESTROY},   {c, WM_DESTROY},   {g, WM_DESTROY},
                                   {g, WM_NCDESTROY}, {c, WM_NCDESTROY}, {p, WM_NCDESTROY}};
    ASSERT_EQ(log.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(log[i].window, expected[i].window) << i;
        EXPECT_EQ(log[i].message, expected[i].message) << i;
    }
    EXPECT_FALSE(IsWindow(p));
    EXPECT_FALSE(IsWindow(c));
    EXPECT_FALSE(IsWindow(g));
    EXPECT_FALSE(DestroyWindow(p));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST_F(WindowLifetime, FailedCreationOwnedWindowsAndOtherThreads) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = RefuseCreation;
    windowClass.lpszClassName = L"VarnickRefusingWindow";
    ASSERT_NE(RegisterClassW(&windowClass), 0);
    EXPECT_EQ(CreateWindowExW(0, L"VarnickRefusingWindow", L"", 0, 0, 0, 0, 0, nullptr, nullptr,
                              nullptr, nullptr),
              nullptr);
    UnregisterClassW(L"VarnickRefusingWindow", nullptr);

    TestWindow lone;
    EXPECT_EQ(CreateWindowExW(0, TestWindow::ClassName(), L"", WS_CHILD, 0, 0, 0, 0, nullptr,
                              nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), ERROR_TLW_WITH_WSCHILD);

    // An owned popup goes with its owner; GetParent names the owner of a popup.
    auto owner = std::make_unique<TestWindow>();
    TestWindow popup({}, owner->Handle(), WS_POPUP);
    EXPECT_EQ(GetParent(popup.Handle()), owner->Handle());
    EXPECT_EQ(GetWindow(popup.Handle(), GW_OWNER), owner->Handle());
    owner.reset();
    EXPECT_FALSE(IsWindow(popup.Handle()));

    // Only the owning thread destroys a window.
    HWND mine = lone.Handle();
    std::thread([mine] {
        EXPECT_FALSE(DestroyWindow(mine));
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    }).join();
    EXPECT_TRUE(IsWindow(mine));
}

TEST_F(WindowData, TextLongsEnabledAndVisibleAreKept) {
    std::vector<UINT> notices;
    TestWindow window([&](HWND, UINT message, WPARAM, LPARAM, LRESULT &) {
        if (message == WM_ENABLE || message == WM_SHOWWINDOW) notices.push_back(message);
        return false;
    });
    HWND handle = window.Handle();

    wchar_t text[8];
    EXPECT_EQ(GetWindowTextW(handle, text, 8), 4);
    EXPECT_STREQ(text, L"test");
    ASSERT_TRUE(SetWindowTextW(handle, L"a longer title"));
    EXPECT_EQ(GetWindowTextLengthW(handle), 14);
    EXPECT_EQ(GetWindowTextW(handle, text, 8), 7);
    EXPECT_STREQ(text, L"a longe");

    // A thread that does not own the window reads the text without waiting
    // for the owner to pump.
    std::thread([handle] {
        wchar_t read[32];
        EXPECT_EQ(GetWindowTextW(handle, read, 32), 14);
        EXPECT_STREQ(read, L"a longer title");
    }).join();

    const LONG_PTR data = SetWindowLongPtrW(handle, GWLP_USERDATA, 0);
    EXPECT_EQ(SetWindowLongPtrW(handle, GWLP_USERDATA, data), 0);
    EXPECT_EQ(GetWindowLongPtrW(handle, 0), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_INDEX);

    EXPECT_TRUE(IsWindowEnabled(handle));
    EXPECT_FALSE(EnableWindow(handle, FALSE));
    EXPECT_FALSE(IsWindowEnabled(handle));
    EXPECT_TRUE(GetWindowLongW(handle, GWL_STYLE) & static_cast<LONG>(WS_DISABLED));
    EXPECT_TRUE(EnableWindow(handle, FALSE));
    EXPECT_TRUE(EnableWindow(handle, TRUE));

    EXPECT_FALSE(IsWindowVisible(handle));
    EXPECT_FALSE(ShowWindow(handle, SW_SHOW));
    EXPECT_TRUE(IsWindowVisible(handle));
    EXPECT_TRUE(ShowWindow(handle, SW_SHOW));
    TestWindow child({}, handle, WS_CHILD | WS_VISIBLE);
    EXPECT_TRUE(IsWindowVisible(child.Handle()));
    EXPECT_TRUE(ShowWindow(handle, SW_HIDE));
    EXPECT_FALSE(IsWindowVisible(child.Handle()));

    // One notice for each change, none for a call that changes nothing.
    std::vector<UINT> expected{WM_ENABLE, WM_ENABLE, WM_SHOWWINDOW, WM_SHOWWINDOW};
    EXPECT_EQ(notices, expected);

    DWORD process = 0;
    EXPECT_EQ(GetWindowThreadProcessId(handle, &process), GetCurrentThreadId());
    EXPECT_EQ(process, GetCurrentProcessId());
    EXPECT_EQ(GetWindowThreadProcessId(reinterpret_cast<HWND>(0x1234), nullptr), 0u);

    RECT rect;
    ASSERT_TRUE(SetWindowPos(handle, nullptr, 0, 0, 1, 1, SWP_NOMOVE | SWP_NOZORDER));
    ASSERT_TRUE(GetClientRect(handle, &rect));
    EXPECT_EQ(rect.right, 1);
    EXPECT_EQ(rect.bottom, 1);
}

TEST_F(WindowMessages, RegisteredNumbersAreStableAndShared) {
    UINT autoPlay = RegisterWindowMessageW(L"QueryCancelAutoPlay");
    EXPECT_GE(autoPlay, 0xC000u);
    EXPECT_LE(autoPlay, 0xFFFFu);
    EXPECT_EQ(RegisterWindowMessageW(L"querycancelautoplay"), autoPlay);
    EXPECT_NE(RegisterWindowMessageW(L"VarnickOtherMessage"), autoPlay);
    EXPECT_EQ(RegisterWindowMessageW(L""), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(WindowSearch, FindsTopLevelWindowsOfThisProcessByClassAndTitle) {
    TestWindow older({}, nullptr, 0, L"Progress");
    TestWindow newer({}, nullptr, 0, L"Progress");
    TestWindow other({}, nullptr, 0, L"Other");
    TestWindow child({}, other.Handle(), WS_CHILD, L"Inner");
    HWND hidden = CreateWindowExW(0, TestWindow::ClassName(), L"Hidden", 0, 0, 0, 0, 0,
                                  HWND_MESSAGE, nullptr, nullptr, nullptr);

    EXPECT_EQ(FindWindowW(TestWindow::ClassName(), L"progress"), newer.Handle());
    EXPECT_EQ(FindWindowW(L"varnicktestwindow", L"Other"), other.Handle());
    EXPECT_EQ(FindWindowW(nullptr, L"Other"), other.Handle());
    EXPECT_EQ(FindWindowW(nullptr, L"Inner"), nullptr);
    EXPECT_EQ(FindWindowW(nullptr, L"Hidden"), nullptr);
    EXPECT_EQ(FindWindowW(L"NoSuchClass", nullptr), nullptr);
    DestroyWindow(newer.Handle());
    EXPECT_EQ(FindWindowW(TestWindow::ClassName(), L"Progress"), older.Handle());
    DestroyWindow(hidden);
}

TEST_F(WindowFocus, ShowingActivatesAndFocusMovesWithMessages) {
    std::vector<std::pair<HWND, UINT>> log;
    auto record = [&log](HWND window, UINT message, WPARAM, LPARAM, LRESULT &) {
        if (message == WM_SETFOCUS || message == WM_KILLFOCUS) log.push_back({window, message});
        return false;
    };
    auto owner = std::make_unique<TestWindow>(record);
    ShowWindow(owner->Handle(), SW_SHOW);
    EXPECT_EQ(GetActiveWindow(), owner->Handle());
    EXPECT_EQ(GetFocus(), owner->Handle());

    TestWindow child(record, owner->Handle(), WS_CHILD | WS_VISIBLE);
    log.clear();
    EXPECT_EQ(SetFocus(child.Handle()), owner->Handle());
    EXPECT_EQ(GetFocus(), child.Handle());
    std::vector<std::pair<HWND, UINT>> expected{{owner->Handle(), WM_KILLFOCUS},
                                                {child.Handle(), WM_SETFOCUS}};
    EXPECT_EQ(log, expected);

    // A popup of the owner takes over, and gives back when it goes.
    {
        TestWindow popup(record, owner->Handle(), WS_POPUP | WS_VISIBLE);
        EXPECT_EQ(GetActiveWindow(), popup.Handle());
        EXPECT_EQ(GetFocus(), popup.Handle());
    }
    EXPECT_EQ(GetActiveWindow(), owner->Handle());

    // Another thread cannot take the focus of this one's windows.
    HWND target = child.Handle();
    std::thread([target] { EXPECT_EQ(SetFocus(target), nullptr); }).join();

    owner.reset();
    EXPECT_EQ(GetActiveWindow(), nullptr);
    EXPECT_EQ(GetFocus(), nullptr);
}

TEST_F(WindowEvents, ListenersHearCreationChangesAndDestruction) {
    std::vector<platform::WindowEventKind> kinds;
    int cookie = platform::AddWindowEventListener(
        [&kinds](const platform::WindowEvent &event) { kinds.push_back(event.kind); });
    {
        TestWindow window({}, nullptr, WS_VISIBLE);
        SetWindowTextW(window.Handle(), L"changed");
        EnableWindow(window.Handle(), FALSE);
    }
    platform::RemoveWindowEventListener(cookie);
    TestWindow unheard;
    using Kind = platform::WindowEventKind;
    std::vector<Kind> expected{Kind::Shown, Kind::Created, Kind::Changed, Kind::Changed,
                               Kind::Destroyed};
    EXPECT_EQ(kinds, expected);
}
