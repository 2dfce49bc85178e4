// Message queues: one per thread, made when the thread first needs one (it
// makes a window, pumps, sends or posts to itself), gone when it ends.
//
// PostMessageW queues from any thread and never waits. SendMessageW calls the
// window procedure directly on the window's own thread; from another thread
// it queues the message and waits for the answer, and while it waits it
// serves messages that other threads send to the waiting thread, so two
// threads sending to each other do not deadlock. Sent messages are served by
// GetMessageW, PeekMessageW and waiting senders, before posted messages.
// WM_QUIT comes when no posted message is left; WM_TIMER only when the queue
// is otherwise empty, at most once per period.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/KernelObject.h"
#include "platform/WinTypes.h"
#include "platform/Window.h"

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
};
using LPMSG = MSG *;
using PMSG = MSG *;

using TIMERPROC = void (*)(HWND window, UINT message, UINT_PTR id, DWORD time);

inline constexpr UINT PM_NOREMOVE = 0x0000;
inline constexpr UINT PM_REMOVE = 0x0001;
inline constexpr UINT PM_NOYIELD = 0x0002;

// Wake masks of MsgWaitForMultipleObjects. There is no input device, so the
// key and mouse bits never fire.
inline constexpr DWORD QS_KEY = 0x0001;
inline constexpr DWORD QS_MOUSEMOVE = 0x0002;
inline constexpr DWORD QS_MOUSEBUTTON = 0x0004;
inline constexpr DWORD QS_POSTMESSAGE = 0x0008;
inline constexpr DWORD QS_TIMER = 0x0010;
inline constexpr DWORD QS_PAINT = 0x0020;
inline constexpr DWORD QS_SENDMESSAGE = 0x0040;
inline constexpr DWORD QS_HOTKEY = 0x0080;
inline constexpr DWORD QS_ALLPOSTMESSAGE = 0x0100;
inline constexpr DWORD QS_RAWINPUT = 0x0400;
inline constexpr DWORD QS_MOUSE = QS_MOUSEMOVE | QS_MOUSEBUTTON;
inline constexpr DWORD QS_INPUT = QS_MOUSE | QS_KEY | QS_RAWINPUT;
inline constexpr DWORD QS_ALLEVENTS = QS_INPUT | QS_POSTMESSAGE | QS_TIMER | QS_PAINT | QS_HOTKEY;
inline constexpr DWORD QS_ALLINPUT = QS_ALLEVENTS | QS_SENDMESSAGE;

inline constexpr UINT USER_TIMER_MINIMUM = 0x0000000A;
inline constexpr UINT USER_TIMER_MAXIMUM = 0x7FFFFFFF;

// A queue holds at most this many posted messages; a post beyond fails
// with ERROR_NOT_ENOUGH_QUOTA, as on Windows.
inline constexpr std::size_t kPostedMessageQuota = 10000;

inline constexpr DWORD ERROR_MESSAGE_SYNC_ONLY = 1159;
inline constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;
inline constexpr DWORD ERROR_NOT_ENOUGH_QUOTA = 1816;

// A null window posts to the calling thread. HWND_BROADCAST posts to every
// top-level window of this process. WM_COPYDATA, WM_SETTEXT and WM_GETTEXT
// carry pointers and cannot be posted (ERROR_MESSAGE_SYNC_ONLY). A destroyed
// window gives FALSE with ERROR_INVALID_WINDOW_HANDLE.
BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// ERROR_INVALID_THREAD_ID when the thread has no queue.
BOOL PostThreadMessageW(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam);
// 0 with ERROR_INVALID_WINDOW_HANDLE for a window that is not there; 0 when
// the window's thread ends or the window goes before it answers.
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Direct on the window's thread; else queued like a sent message without
// waiting for the answer.
BOOL SendNotifyMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// The filter window may be null (any window of the thread and thread
// messages) or (HWND)-1 (thread messages only); both bounds 0 take every
// message. GetMessageW returns 0 for WM_QUIT, -1 for an invalid window.
BOOL GetMessageW(LPMSG message, HWND window, UINT filterMin, UINT filterMax);
BOOL PeekMessageW(LPMSG message, HWND window, UINT filterMin, UINT filterMax, UINT removeFlags);
// Without a keyboard nothing is translated: TRUE for key messages, else FALSE.
BOOL TranslateMessage(const MSG *message);
// Calls the procedure of a window of the calling thread, or the TIMERPROC
// of a WM_TIMER whose timer was set with one.
LRESULT DispatchMessageW(const MSG *message);
void PostQuitMessage(int exitCode);
// WAIT_OBJECT_0 + i when object i is signalled (all of them with waitAll),
// WAIT_OBJECT_0 + count when the queue has a message of the wake mask,
// WAIT_TIMEOUT, or WAIT_FAILED.
DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll,
                                DWORD milliseconds, DWORD wakeMask);

// Timers of a window go to the queue of the window's thread and may be set
// and killed from any thread; those without a window belong to the calling
// thread and get a new id. Setting an id again restarts it. The period is
// kept within USER_TIMER_MINIMUM and USER_TIMER_MAXIMUM.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure);
BOOL KillTimer(HWND window, UINT_PTR id);

namespace platform {

// A message sent to a window of another thread (or by another process).
struct SentMessage {
    HWND window = nullptr;
    UINT message = 0;
    WPARAM wParam = 0;
    LPARAM lParam = 0;
    // Called once with the answer on the window's thread, or with 0 when the
    // window or its thread is gone before it answers. May be empty.
    std::function<void(LRESULT)> reply;
};

class MessageQueue {
public:
    using Clock = std::chrono::steady_clock;

    explicit MessageQueue(DWORD threadId);
    MessageQueue(const MessageQueue &) = delete;
    MessageQueue &operator=(const MessageQueue &) = delete;

    DWORD ThreadId() const { return threadId_; }

    // From any thread. False, with the last error set, when the thread ended
    // or the queue is full.
    bool Post(const MSG &message);
    bool Send(std::shared_ptr<SentMessage> message);
    void PostQuit(int exitCode);
    // Wakes the thread if it waits for a message.
    void Wake();

    UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure);
    bool KillTimer(HWND window, UINT_PTR id);
    bool HasTimerProcedure(HWND window, UINT_PTR id, TIMERPROC procedure);
    // Drops the posted messages and timers of a destroyed window.
    void ForgetWindow(HWND window);

    // On the owning thread only. Serves sent messages, then takes the first
    // posted message of the filter, WM_QUIT, or a due timer. With `wait` it
    // blocks until there is one.
    bool Take(MSG &message, HWND window, UINT filterMin, UINT filterMax, bool remove, bool wait);
    // Serves the sent messages waiting now; true if there were any.
    bool ServeSentMessages();
    // Serves sent messages until `done` holds (checked after every wake-up)
    // or the deadline passes; false at the deadline.
    bool WaitServing(const std::function<bool()> &done, Clock::time_point deadline);
    // Waits until a message of the wake mask is there, or the deadline.
    bool WaitForInput(DWORD wakeMask, Clock::time_point deadline);

    // The thread has ended: answers waiting senders with 0 and refuses
    // everything from now on.
    void Shutdown();

    // The thread's focus and active window; guarded by WindowLock().
    HWND focus = nullptr;
    HWND active = nullptr;

private:
    struct Timer {
        HWND window;
        UINT_PTR id;
        UINT period;
        TIMERPROC procedure;
        Clock::time_point due;
    };

    bool HasInputLocked(DWORD wakeMask, Clock::time_point now) const;
    std::shared_ptr<SentMessage> PopSentLocked();
    void WaitLocked(std::unique_lock<std::mutex> &lock, Clock::time_point until);

    const DWORD threadId_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<MSG> posted_;
    std::deque<std::shared_ptr<SentMessage>> sent_;
    std::vector<Timer> timers_;
    UINT_PTR nextThreadTimer_ = 0x7FFE0001;
    bool quit_ = false;
    int quitCode_ = 0;
    bool ended_ = false;
};

// The calling thread's queue, made on first use.
std::shared_ptr<MessageQueue> CurrentQueue();
// The queue of a thread of this process, or null when it has none.
std::shared_ptr<MessageQueue> QueueOfThread(DWORD threadId);
// Delivers a sent message on the calling thread (which owns its window) and
// replies.
void DeliverSentMessage(const SentMessage &message);

}  // namespace platform
