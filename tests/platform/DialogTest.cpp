#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "WindowTestSupport.h"
#include "platform/WinFormat.h"
#include "platform/WinUser.h"
#include "support/TempHome.h"

// Windows of registered classes announce themselves in the runtime folder,
// so every test has a home of its own.
class Dialog : public testsupport::HomeTest {};

using windowtest::PumpUntil;
using windowtest::TestWindow;

namespace {

constexpr UINT kProgressMessage = 33799;
constexpr int kStatusText = 1114;
constexpr int kFilesDone = 1113;
constexpr int kBar = 1115;

INT_PTR CALLBACK NothingHandled(HWND, UINT, WPARAM, LPARAM) { return FALSE; }

// A progress window in the manner of the library's: the worker writes a
// counter and posts; the window thread moves the bar and writes the count.
struct Progress {
    std::atomic<long long> done{0};
    long long total = 0;
    bool ended = false;
};

INT_PTR CALLBACK ProgressProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(dialog, DWLP_USER, lParam);
        SendDlgItemMessageW(dialog, kBar, PBM_SETRANGE, 0, MAKELPARAM(0, 100));
        SetDlgItemTextW(dialog, kStatusText, L"Compressing");
        return TRUE;
    }
    auto *progress = reinterpret_cast<Progress *>(GetWindowLongPtrW(dialog, DWLP_USER));
    if (message != kProgressMessage || !progress) return FALSE;
    if (wParam == 1) {
        long long done = progress->done.load();
        SendDlgItemMessageW(dialog, kBar, PBM_SETPOS,
                            static_cast<WPARAM>(done * 100 / progress->total), 0);
        SetDlgItemTextW(dialog, kFilesDone, FormatW(L"%I64d", done).c_str());
    } else if (wParam == 3) {
        progress->ended = true;
    }
    return TRUE;
}

}  // namespace

TEST_F(Dialog, AWorkerDrivesTheDialogWithPostsAndTheWindowThreadReadsItsControls) {
    Progress progress;
    progress.total = 400;
    HWND dialog = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(2021), nullptr, ProgressProc,
                                     reinterpret_cast<LPARAM>(&progress));
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(platform::DialogTemplateId(dialog), 2021);
    EXPECT_TRUE(IsWindowVisible(dialog));

    std::thread worker([&progress, dialog] {
        for (int i = 1; i <= 400; ++i) {
            progress.done = i;
            PostMessageW(dialog, kProgressMessage, 1, 0);
        }
        PostMessageW(dialog, kProgressMessage, 3, 0);
    });
    ASSERT_TRUE(PumpUntil([&progress] { return progress.ended; }));
    worker.join();

    EXPECT_EQ(SendDlgItemMessageW(dialog, kBar, PBM_GETPOS, 0, 0), 100);
    EXPECT_EQ(SendMessageW(GetDlgItem(dialog, kBar), PBM_GETPOS, 0, 0), 100);
    wchar_t text[32];
    GetDlgItemTextW(dialog, kFilesDone, text, 32);
    EXPECT_STREQ(text, L"400");
    BOOL translated = FALSE;
    EXPECT_EQ(GetDlgItemInt(dialog, kFilesDone, &translated, FALSE), 400u);
    EXPECT_TRUE(translated);
    GetDlgItemTextW(dialog, kStatusText, text, 32);
    EXPECT_STREQ(text, L"Compressing");

    // A host reads the same from any thread without waiting.
    std::thread([dialog] {
        platform::ControlSnapshot bar = platform::ReadControl(dialog, kBar);
        EXPECT_TRUE(bar.exists);
        EXPECT_EQ(bar.state.position, 100);
        EXPECT_TRUE(bar.visible);
        EXPECT_FALSE(platform::ReadControl(dialog, 9999).exists);
    }).join();
    EXPECT_TRUE(DestroyWindow(dialog));
}

TEST_F(Dialog, ControlsComeIntoBeingWhenAddressedAndKeepTheirState) {
    HWND dialog = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(100), nullptr, NothingHandled, 0);
    ASSERT_NE(dialog, nullptr);
    HWND edit = GetDlgItem(dialog, 1001);
    ASSERT_NE(edit, nullptr);
    EXPECT_EQ(GetDlgItem(dialog, 1001), edit);
    EXPECT_EQ(GetDlgCtrlID(edit), 1001);
    EXPECT_EQ(GetParent(edit), dialog);

    EXPECT_TRUE(SetDlgItemInt(dialog, 1001, static_cast<UINT>(-12), TRUE));
    BOOL translated = FALSE;
    EXPECT_EQ(static_cast<int>(GetDlgItemInt(dialog, 1001, &translated, TRUE)), -12);
    EXPECT_TRUE(translated);
    GetDlgItemInt(dialog, 1001, &translated, FALSE);
    EXPECT_FALSE(translated);
    SetDlgItemTextW(dialog, 1001, L"  17");
    EXPECT_EQ(GetDlgItemInt(dialog, 1001, &translated, FALSE), 17u);
    EXPECT_TRUE(translated);
    for (const wchar_t *bad : {L"17x", L"", L"4294967296"}) {
        SetDlgItemTextW(dialog, 1001, bad);
        EXPECT_EQ(GetDlgItemInt(dialog, 1001, &translated, FALSE), 0u) << bad;
        EXPECT_FALSE(translated) << bad;
    }

    EXPECT_EQ(IsDlgButtonChecked(dialog, 1002), BST_UNCHECKED);
    CheckDlgButton(dialog, 1002, BST_CHECKED);
    EXPECT_EQ(IsDlgButtonChecked(dialog, 1002), BST_CHECKED);
    CheckRadioButton(dialog, 1010, 1012, 1011);
    EXPECT_EQ(IsDlgButtonChecked(dialog, 1010), BST_UNCHECKED);
    EXPECT_EQ(IsDlgButtonChecked(dialog, 1011), BST_CHECKED);
    EXPECT_EQ(IsDlgButtonChecked(dialog, 1012), BST_UNCHECKED);

    HWND button = GetDlgItem(dialog, 1002);
    EXPECT_TRUE(IsWindowEnabled(button));
    EXPECT_TRUE(IsWindowVisible(button));
    EnableWindow(button, FALSE);
    ShowWindow(button, SW_HIDE);
    EXPECT_FALSE(IsWindowEnabled(button));
    EXPECT_FALSE(IsWindowVisible(button));
    EXPECT_FALSE(platform::ReadControl(dialog, 1002).enabled);

    // A window that is no dialog has no implicit controls.
    TestWindow plain;
    EXPECT_EQ(GetDlgItem(plain.Handle(), 5), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_CONTROL_ID_NOT_FOUND);
    DestroyWindow(dialog);
    EXPECT_FALSE(IsWindow(edit));
}

TEST_F(Dialog, ProgressBarsKeepRangeAndPositionAsWindowsDoes) {
    HWND dialog = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(100), nullptr, NothingHandled, 0);
    HWND bar = GetDlgItem(dialog, 1115);
    PBRANGE range{};
    EXPECT_EQ(SendMessageW(bar, PBM_GETRANGE, FALSE, reinterpret_cast<LPARAM>(&range)), 100);
    EXPECT_EQ(range.iLow, 0);
    EXPECT_EQ(SendMessageW(bar, PBM_SETRANGE, 0, MAKELPARAM(10, 50)), MAKELRESULT(0, 100));
    EXPECT_EQ(SendMessageW(bar, PBM_SETPOS, 70, 0), 10);  // clamped into the range
    EXPECT_EQ(SendMessageW(bar, PBM_GETPOS, 0, 0), 50);
    SendMessageW(bar, PBM_SETRANGE32, 0, 100000);
    SendMessageW(bar, PBM_SETPOS, 70000, 0);
    EXPECT_EQ(SendMessageW(bar, PBM_GETRANGE, TRUE, 0), 0);
    EXPECT_EQ(SendMessageW(bar, PBM_GETRANGE, FALSE, 0), 100000);
    EXPECT_EQ(SendMessageW(bar, PBM_GETPOS, 0, 0), 70000);
    DestroyWindow(dialog);
}

namespace {

struct ModalRun {
    std::atomic<bool> initialised{false};
    std::atomic<bool> ownerEnabledDuringRun{true};
    HWND owner = nullptr;
};

// Ends itself from a timer, as a prompt that times out would.
INT_PTR CALLBACK TimedPrompt(HWND dialog, UINT message, WPARAM, LPARAM lParam) {
    auto *run = reinterpret_cast<ModalRun *>(GetWindowLongPtrW(dialog, DWLP_USER));
    switch (message) {
        case WM_INITDIALOG:
            SetWindowLongPtrW(dialog, DWLP_USER, lParam);
            SetTimer(dialog, 1, 30, nullptr);
            reinterpret_cast<ModalRun *>(lParam)->initialised = true;
            return TRUE;
        case WM_TIMER:
            run->ownerEnabledDuringRun = IsWindowEnabled(run->owner) != FALSE;
            KillTimer(dialog, 1);
            EndDialog(dialog, 77);
            return TRUE;
        default:
            return FALSE;
    }
}

}  // namespace

TEST_F(Dialog, AModalPromptRunsOnAWorkerWhileTheOwnerThreadPumps) {
    std::vector<WPARAM> enableNotices;
    TestWindow owner(
        [&](HWND, UINT message, WPARAM wParam, LPARAM, LRESULT &) {
            if (message == WM_ENABLE) enableNotices.push_back(wParam);
            return false;
        },
        nullptr, WS_VISIBLE);
    ModalRun run;
    run.owner = owner.Handle();
    std::atomic<INT_PTR> result{0};
    std::atomic<bool> finished{false};
    std::thread worker([&] {
        result = DialogBoxParamW(nullptr, MAKEINTRESOURCEW(500), run.owner, TimedPrompt,
                                 reinterpret_cast<LPARAM>(&run));
        finished = true;
    });
    ASSERT_TRUE(PumpUntil([&] { return finished.load(); }));
    worker.join();
    EXPECT_EQ(result.load(), 77);
    EXPECT_TRUE(run.initialised);
    EXPECT_FALSE(run.ownerEnabledDuringRun);
    EXPECT_TRUE(IsWindowEnabled(owner.Handle()));
    // The owner heard of both changes on its own thread.
    ASSERT_TRUE(PumpUntil([&] { return enableNotices.size() == 2; }));
    EXPECT_EQ(enableNotices, (std::vector<WPARAM>{FALSE, TRUE}));
}

namespace {

UINT autoPlayMessage = 0;

INT_PTR CALLBACK AnsweringDialog(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    if (message == autoPlayMessage) {
        SetWindowLongPtrW(dialog, DWLP_MSGRESULT, 1);
        return TRUE;
    }
    if (message == WM_COMMAND) {
        SetWindowLongPtrW(dialog, DWLP_USER, static_cast<LONG_PTR>(LOWORD(wParam)));
        return TRUE;
    }
    return message == WM_INITDIALOG;
}

INT_PTR CALLBACK EndsAtOnce(HWND dialog, UINT message, WPARAM, LPARAM lParam) {
    if (message == WM_INITDIALOG) EndDialog(dialog, lParam);
    return message == WM_INITDIALOG;
}

INT_PTR CALLBACK HidesItself(HWND dialog, UINT message, WPARAM, LPARAM) {
    if (message == WM_INITDIALOG) {
        SetWindowPos(dialog, nullptr, 0, 0, 1, 1, SWP_NOMOVE | SWP_NOZORDER);
        ShowWindow(dialog, SW_HIDE);
    }
    return message == WM_INITDIALOG;
}

}  // namespace

TEST_F(Dialog, ResultsCloseKeysAndVisibility) {
    autoPlayMessage = RegisterWindowMessageW(L"QueryCancelAutoPlay");
    HWND dialog = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(100), nullptr, AnsweringDialog, 0);
    ASSERT_NE(dialog, nullptr);
    // What the procedure handles answers DWLP_MSGRESULT.
    EXPECT_EQ(SendMessageW(dialog, autoPlayMessage, 0, 0), 1);
    // WM_CLOSE becomes IDCANCEL by a post; Escape through IsDialogMessageW too.
    SendMessageW(dialog, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsWindow(dialog));
    ASSERT_TRUE(PumpUntil([dialog] { return GetWindowLongPtrW(dialog, DWLP_USER) == IDCANCEL; }));
    SetWindowLongPtrW(dialog, DWLP_USER, 0);
    MSG key{};
    key.hwnd = GetDlgItem(dialog, 1001);
    key.message = WM_KEYDOWN;
    key.wParam = VK_RETURN;
    EXPECT_TRUE(IsDialogMessageW(dialog, &key));
    EXPECT_EQ(GetWindowLongPtrW(dialog, DWLP_USER), IDOK);
    key.hwnd = nullptr;
    EXPECT_FALSE(IsDialogMessageW(dialog, &key));
    DestroyWindow(dialog);

    EXPECT_EQ(DialogBoxParamW(nullptr, MAKEINTRESOURCEW(100), nullptr, EndsAtOnce, 5), 5);
    EXPECT_EQ(DialogBoxParamW(nullptr, MAKEINTRESOURCEW(100), reinterpret_cast<HWND>(0x1234),
                              EndsAtOnce, 5),
              0);

    // A dialog that hides itself while it is made stays hidden.
    HWND hidden = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(2021), nullptr, HidesItself, 0);
    EXPECT_FALSE(IsWindowVisible(hidden));
    RECT rect;
    GetWindowRect(hidden, &rect);
    EXPECT_EQ(rect.right - rect.left, 1);
    DestroyWindow(hidden);
}

TEST_F(Dialog, AModalLoopEndsFromAnotherThreadAndPassesQuitOn) {
    std::atomic<HWND> running{nullptr};
    auto grab = [](HWND, UINT message, WPARAM, LPARAM) -> INT_PTR {
        return message == WM_INITDIALOG;
    };
    int cookie = platform::AddWindowEventListener([&running](const platform::WindowEvent &event) {
        if (event.kind == platform::WindowEventKind::Created &&
            platform::DialogTemplateId(event.window) == 600) {
            running = event.window;
        }
    });
    std::thread ender([&running] {
        while (!running) std::this_thread::yield();
        EndDialog(running, 9);
    });
    EXPECT_EQ(DialogBoxParamW(nullptr, MAKEINTRESOURCEW(600), nullptr, grab, 0), 9);
    ender.join();
    platform::RemoveWindowEventListener(cookie);

    // WM_QUIT ends the loop and is posted again for the outer loop.
    std::thread([] {
        auto quitAtInit = [](HWND, UINT message, WPARAM, LPARAM) -> INT_PTR {
            if (message == WM_INITDIALOG) PostQuitMessage(3);
            return message == WM_INITDIALOG;
        };
        EXPECT_EQ(DialogBoxParamW(nullptr, MAKEINTRESOURCEW(601), nullptr, quitAtInit, 0), 0);
        MSG message;
        EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), FALSE);
        EXPECT_EQ(message.wParam, 3u);
    }).join();
}
