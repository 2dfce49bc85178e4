#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "WindowTestSupport.h"
#include "platform/WinThread.h"
#include "platform/WinUser.h"
#include "support/TempHome.h"

// Windows of registered classes announce themselves in the runtime folder,
// so every test has a home of its own.
class MessageQueue : public testsupport::HomeTest {};

using windowtest::PumpUntil;
using windowtest::TestWindow;

namespace {

constexpr UINT kProgressMessage = 33799;

}  // namespace

TEST_F(MessageQueue, WorkerPostsWithoutWaitingAndOwnerGetsThemInOrder) {
    std::vector<LPARAM> received;
    bool ended = false;
    DWORD handledOn = 0;
    TestWindow window([&](HWND, UINT message, WPARAM wParam, LPARAM lParam, LRESULT &) {
        if (message != kProgressMessage) return false;
        handledOn = GetCurrentThreadId();
        if (wParam == 1) received.push_back(lParam);
        if (wParam == 3) ended = true;
        return true;
    });
    HWND target = window.Handle();

    // The owner does not pump while the worker posts: posting never waits.
    std::thread worker([target] {
        for (LPARAM i = 0; i < 2000; ++i) ASSERT_TRUE(PostMessageW(target, kProgressMessage, 1, i));
        ASSERT_TRUE(PostMessageW(target, kProgressMessage, 3, 0));
    });
    worker.join();

    MSG message;
    while (!ended && GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    ASSERT_EQ(received.size(), 2000u);
    for (LPARAM i = 0; i < 2000; ++i) ASSERT_EQ(received[i], i);
    EXPECT_EQ(handledOn, GetCurrentThreadId());
}

TEST_F(MessageQueue, SendFromAnotherThreadRunsOnTheOwnerAndWaitsForTheAnswer) {
    DWORD handledOn = 0;
    TestWindow window([&](HWND, UINT message, WPARAM wParam, LPARAM lParam, LRESULT &result) {
        if (message != WM_USER + 1) return false;
        handledOn = GetCurrentThreadId();
        result = static_cast<LRESULT>(wParam) + lParam;
        return true;
    });
    HWND target = window.Handle();
    std::atomic<LRESULT> answer{0};
    std::atomic<bool> done{false};
    std::thread worker([&] {
        answer = SendMessageW(target, WM_USER + 1, 20, 22);
        done = true;
    });
    ASSERT_TRUE(PumpUntil([&] { return done.load(); }));
    worker.join();
    EXPECT_EQ(answer.load(), 42);
    EXPECT_EQ(handledOn, GetCurrentThreadId());

    // On the owner's own thread the call is direct.
    EXPECT_EQ(SendMessageW(target, WM_USER + 1, 1, 2), 3);
}

TEST_F(MessageQueue, TwoThreadsSendingToEachOtherDoNotDeadlock) {
    constexpr UINT kAsk = WM_USER + 10;
    constexpr UINT kAskBack = WM_USER + 11;
    HWND other = nullptr;
    std::atomic<bool> ready{false};
    std::atomic<bool> go{false};
    std::atomic<LRESULT> otherGot{0};
    DWORD otherThread = 0;

    TestWindow mine([&](HWND, UINT message, WPARAM wParam, LPARAM, LRESULT &result) {
        if (message == kAsk) result = 100 + static_cast<LRESULT>(wParam);
        if (message == kAskBack) result = 1000 + static_cast<LRESULT>(wParam);
        return message == kAsk || message == kAskBack;
    });
    HWND me = mine.Handle();

    std::thread thread([&] {
        // Its handler sends back to the first thread while that one waits
        // for it.
        TestWindow theirs([me](HWND, UINT message, WPARAM wParam, LPARAM, LRESULT &result) {
            if (message != kAsk) return false;
            result = SendMessageW(me, kAskBack, wParam, 0) + 1;
            return true;
        });
        other = theirs.Handle();
        otherThread = GetCurrentThreadId();
        ready = true;
        while (!go) std::this_thread::yield();
        otherGot = SendMessageW(me, kAsk, 5, 0);
        MSG message;
        while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    });
    while (!ready) std::this_thread::yield();
    go = true;
    // Both threads send at the same moment.
    LRESULT mineGot = SendMessageW(other, kAsk, 7, 0);
    EXPECT_EQ(mineGot, 1008);
    ASSERT_TRUE(PumpUntil([&] { return otherGot.load() != 0; }));
    EXPECT_EQ(otherGot.load(), 105);
    ASSERT_TRUE(PostThreadMessageW(otherThread, WM_QUIT, 0, 0));
    thread.join();
    // The thread's window went with it.
    EXPECT_FALSE(IsWindow(other));
}

TEST_F(MessageQueue, TimersComeOnlyWhenTheQueueIsOtherwiseEmpty) {
    int ticks = 0;
    TestWindow window([&](HWND, UINT message, WPARAM wParam, LPARAM, LRESULT &) {
        if (message == WM_TIMER && wParam == 234) ++ticks;
        return message == WM_TIMER;
    });
    HWND target = window.Handle();
    ASSERT_EQ(SetTimer(target, 234, 20, nullptr), 234u);
    for (WPARAM i = 0; i < 3; ++i) PostMessageW(target, WM_USER, i, 0);
    Sleep(60);

    // The timer is long due, yet the posted messages come first, and the
    // overdue timer comes once, not once per missed period.
    MSG message;
    for (WPARAM i = 0; i < 3; ++i) {
        ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
        EXPECT_EQ(message.message, WM_USER);
        EXPECT_EQ(message.wParam, i);
    }
    ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, WM_TIMER);
    EXPECT_EQ(message.hwnd, target);
    EXPECT_EQ(message.wParam, 234u);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_TIMER, WM_TIMER, PM_REMOVE));

    ASSERT_TRUE(PumpUntil([&] { return ticks >= 3; }));
    ASSERT_TRUE(KillTimer(target, 234));
    Sleep(60);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_TIMER, WM_TIMER, PM_REMOVE));
    EXPECT_FALSE(KillTimer(target, 234));
}

namespace {

std::atomic<int> threadTimerCalls{0};
void CALLBACK CountThreadTimer(HWND window, UINT message, UINT_PTR, DWORD) {
    if (!window && message == WM_TIMER) ++threadTimerCalls;
}

}  // namespace

TEST_F(MessageQueue, ThreadTimersGetTheirOwnIdAndCallTheirProcedure) {
    threadTimerCalls = 0;
    UINT_PTR first = SetTimer(nullptr, 0, 10, CountThreadTimer);
    UINT_PTR second = SetTimer(nullptr, 0, 10, CountThreadTimer);
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);
    EXPECT_NE(first, second);
    ASSERT_TRUE(PumpUntil([] { return threadTimerCalls >= 4; }));
    EXPECT_TRUE(KillTimer(nullptr, first));
    EXPECT_TRUE(KillTimer(nullptr, second));

    // A WM_TIMER posted with a number that is no live timer's procedure is
    // not called.
    threadTimerCalls = 0;
    MSG forged{};
    forged.message = WM_TIMER;
    forged.wParam = first;
    forged.lParam = reinterpret_cast<LPARAM>(&CountThreadTimer);
    DispatchMessageW(&forged);
    EXPECT_EQ(threadTimerCalls.load(), 0);
}

TEST_F(MessageQueue, DestroyedWindowRefusesPostsAndSends) {
    TestWindow window;
    HWND target = window.Handle();
    ASSERT_TRUE(PostMessageW(target, WM_USER + 5, 0, 0));
    ASSERT_TRUE(SetTimer(target, 1, 10, nullptr));
    ASSERT_TRUE(DestroyWindow(target));

    SetLastError(0);
    EXPECT_FALSE(PostMessageW(target, WM_USER + 5, 0, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    SetLastError(0);
    EXPECT_EQ(SendMessageW(target, WM_USER + 5, 0, 0), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_FALSE(SetTimer(target, 2, 10, nullptr));
    // What was posted before, and the timer, went with the window.
    Sleep(20);
    MSG message;
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
}

TEST_F(MessageQueue, QuitComesAfterPostedMessagesAndFiltersSelect) {
    TestWindow window;
    HWND target = window.Handle();
    PostQuitMessage(7);
    PostMessageW(target, WM_USER + 1, 1, 0);
    PostMessageW(target, WM_USER + 2, 2, 0);
    ASSERT_TRUE(PostMessageW(nullptr, WM_APP, 3, 0));

    MSG message;
    // Looking leaves the message where it is.
    ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(message.message, WM_USER + 1u);
    ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(message.message, WM_USER + 1u);
    // A range takes the first message inside it.
    ASSERT_TRUE(PeekMessageW(&message, nullptr, WM_USER + 2, WM_USER + 2, PM_REMOVE));
    EXPECT_EQ(message.wParam, 2u);
    // (HWND)-1 takes thread messages only.
    ASSERT_TRUE(PeekMessageW(&message, reinterpret_cast<HWND>(-1), 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, WM_APP);
    EXPECT_EQ(message.hwnd, nullptr);

    EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), TRUE);
    EXPECT_EQ(message.message, WM_USER + 1u);
    EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), FALSE);
    EXPECT_EQ(message.message, WM_QUIT);
    EXPECT_EQ(message.wParam, 7u);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));

    // A window of another thread, or none, is no valid filter.
    EXPECT_EQ(GetMessageW(&message, reinterpret_cast<HWND>(0x1234), 0, 0), -1);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST_F(MessageQueue, APostBeyondTheQuotaFails) {
    TestWindow window;
    HWND target = window.Handle();
    for (std::size_t i = 0; i < kPostedMessageQuota; ++i) {
        ASSERT_TRUE(PostMessageW(target, WM_USER, 0, 0));
    }
    EXPECT_FALSE(PostMessageW(target, WM_USER, 0, 0));
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_QUOTA);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    }
    EXPECT_TRUE(PostMessageW(target, WM_USER, 0, 0));
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    }
}

TEST_F(MessageQueue, AThreadThatEndsAnswersItsSenders) {
    std::atomic<HWND> silent{nullptr};
    std::atomic<bool> leave{false};
    std::thread owner([&] {
        // Makes a window and never pumps.
        TestWindow window;
        silent = window.Handle();
        while (!leave) std::this_thread::yield();
    });
    while (!silent) std::this_thread::yield();

    std::atomic<bool> sent{false};
    std::atomic<LRESULT> answer{-1};
    std::thread sender([&] {
        answer = SendMessageW(silent, WM_USER, 0, 0);
        sent = true;
    });
    Sleep(50);
    EXPECT_FALSE(sent);
    leave = true;
    owner.join();
    sender.join();
    EXPECT_EQ(answer.load(), 0);
    EXPECT_FALSE(IsWindow(silent));
}
