#include "platform/MessageQueue.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <unordered_map>
#include <utility>

#include "platform/WinError.h"
#include "platform/WinThread.h"
#include "platform/WinTime.h"
#include "platform/WindowBroker.h"

namespace platform {

namespace {

// A thread made by CreateThread may be ended by TerminateThread, a deferred
// cancellation. Queue waits are places where that happens, but never inside
// a condition variable wait, which must not be unwound through: they wait
// in slices with cancellation off and look for a request between them.
constexpr auto kTerminationSlice = std::chrono::milliseconds(50);
// How often MsgWaitForMultipleObjects looks at its objects.
constexpr auto kObjectPollSlice = std::chrono::milliseconds(5);

const HWND kThreadMessagesOnly = reinterpret_cast<HWND>(static_cast<LONG_PTR>(-1));

struct QueueRegistry {
    std::mutex lock;
    std::unordered_map<DWORD, std::weak_ptr<MessageQueue>> queues;
};

// Never destroyed: threads end after static destruction has begun.
QueueRegistry &Registry() {
    static auto *registry = new QueueRegistry;
    return *registry;
}

// The calling thread's queue. When the thread ends, its windows go and
// waiting senders get 0.
struct ThreadQueue {
    std::shared_ptr<MessageQueue> queue;

    ~ThreadQueue() {
        if (!queue) return;
        const DWORD threadId = queue->ThreadId();
        DropWindowsOfThread(threadId);
        queue->Shutdown();
        std::lock_guard guard(Registry().lock);
        auto found = Registry().queues.find(threadId);
        if (found != Registry().queues.end() && found->second.lock() == queue) {
            Registry().queues.erase(found);
        }
    }
};

thread_local ThreadQueue threadQueue;

bool WindowMatches(HWND messageWindow, HWND filter) {
    if (!filter) return true;
    if (filter == kThreadMessagesOnly) return messageWindow == nullptr;
    return messageWindow == filter;
}

bool MessageMatches(UINT message, UINT filterMin, UINT filterMax) {
    return (filterMin == 0 && filterMax == 0) || (message >= filterMin && message <= filterMax);
}

MSG MakeMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    MSG made{};
    made.hwnd = window;
    made.message = message;
    made.wParam = wParam;
    made.lParam = lParam;
    made.time = GetTickCount();
    return made;
}

MessageQueue::Clock::time_point DeadlineAfter(DWORD milliseconds) {
    if (milliseconds == INFINITE) return MessageQueue::Clock::time_point::max();
    return MessageQueue::Clock::now() + std::chrono::milliseconds(milliseconds);
}

}  // namespace

MessageQueue::MessageQueue(DWORD threadId) : threadId_(threadId) {}

bool MessageQueue::Post(const MSG &message) {
    {
        std::lock_guard guard(mutex_);
        if (ended_) {
            SetLastError(message.hwnd ? ERROR_INVALID_WINDOW_HANDLE : ERROR_INVALID_THREAD_ID);
            return false;
        }
        if (posted_.size() >= kPostedMessageQuota) {
            SetLastError(ERROR_NOT_ENOUGH_QUOTA);
            return false;
        }
        posted_.push_back(message);
    }
    changed_.notify_all();
    return true;
}

bool MessageQueue::Send(std::shared_ptr<SentMessage> message) {
    {
        std::lock_guard guard(mutex_);
        if (ended_) return false;
        sent_.push_back(std::move(message));
    }
    changed_.notify_all();
    return true;
}

void MessageQueue::PostQuit(int exitCode) {
    {
        std::lock_guard guard(mutex_);
        quit_ = true;
        quitCode_ = exitCode;
    }
    changed_.notify_all();
}

void MessageQueue::Wake() {
    { std::lock_guard guard(mutex_); }
    changed_.notify_all();
}

UINT_PTR MessageQueue::SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure) {
    const UINT period = std::clamp(milliseconds, USER_TIMER_MINIMUM, USER_TIMER_MAXIMUM);
    {
        std::lock_guard guard(mutex_);
        if (ended_) return 0;
        auto same = [&](const Timer &timer) { return timer.window == window && timer.id == id; };
        auto found = std::find_if(timers_.begin(), timers_.end(), same);
        if (!window && found == timers_.end()) {
            // A thread timer gets an id of its own unless it names one it has.
            do {
                id = nextThreadTimer_++;
            } while (std::find_if(timers_.begin(), timers_.end(), same) != timers_.end());
            found = timers_.end();
        }
        const auto due = Clock::now() + std::chrono::milliseconds(period);
        if (found != timers_.end()) {
            found->period = period;
            found->procedure = procedure;
            found->due = due;
        } else {
            timers_.push_back(Timer{window, id, period, procedure, due});
        }
    }
    changed_.notify_all();
    return id ? id : 1;
}

bool MessageQueue::KillTimer(HWND window, UINT_PTR id) {
    std::lock_guard guard(mutex_);
    auto found = std::find_if(timers_.begin(), timers_.end(), [&](const Timer &timer) {
        return timer.window == window && timer.id == id;
    });
    if (found == timers_.end()) return false;
    timers_.erase(found);
    return true;
}

bool MessageQueue::HasTimerProcedure(HWND window, UINT_PTR id, TIMERPROC procedure) {
    std::lock_guard guard(mutex_);
    return std::any_of(timers_.begin(), timers_.end(), [&](const Timer &timer) {
        return timer.window == window && timer.id == id && timer.procedure == procedure;
    });
}

void MessageQueue::ForgetWindow(HWND window) {
    std::lock_guard guard(mutex_);
    posted_.erase(std::remove_if(posted_.begin(), posted_.end(),
                                 [window](const MSG &message) { return message.hwnd == window; }),
                  posted_.end());
    timers_.erase(std::remove_if(timers_.begin(), timers_.end(),
                                 [window](const Timer &timer) { return timer.window == window; }),
                  timers_.end());
}

std::shared_ptr<SentMessage> MessageQueue::PopSentLocked() {
    if (sent_.empty()) return nullptr;
    std::shared_ptr<SentMessage> message = std::move(sent_.front());
    sent_.pop_front();
    return message;
}

void MessageQueue::WaitLocked(std::unique_lock<std::mutex> &lock, Clock::time_point until) {
    lock.unlock();
    pthread_testcancel();
    lock.lock();
    int previous = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    changed_.wait_until(lock, std::min(until, Clock::now() + kTerminationSlice));
    pthread_setcancelstate(previous, nullptr);
}

bool MessageQueue::Take(MSG &message, HWND window, UINT filterMin, UINT filterMax, bool remove,
                        bool wait) {
    std::unique_lock lock(mutex_);
    for (;;) {
        while (std::shared_ptr<SentMessage> sent = PopSentLocked()) {
            lock.unlock();
            DeliverSentMessage(*sent);
            lock.lock();
        }
        for (auto it = posted_.begin(); it != posted_.end(); ++it) {
            if (!WindowMatches(it->hwnd, window) ||
                !MessageMatches(it->message, filterMin, filterMax)) {
                continue;
            }
            message = *it;
            if (remove) posted_.erase(it);
            return true;
        }
        if (quit_) {
            message = MakeMessage(nullptr, WM_QUIT, static_cast<WPARAM>(quitCode_), 0);
            if (remove) quit_ = false;
            return true;
        }
        const auto now = Clock::now();
        auto next = Clock::time_point::max();
        if (MessageMatches(WM_TIMER, filterMin, filterMax)) {
            for (Timer &timer : timers_) {
                if (!WindowMatches(timer.window, window)) continue;
                if (timer.due > now) {
                    next = std::min(next, timer.due);
                    continue;
                }
                message = MakeMessage(timer.window, WM_TIMER, timer.id,
                                      reinterpret_cast<LPARAM>(timer.procedure));
                if (remove) timer.due = now + std::chrono::milliseconds(timer.period);
                return true;
            }
        }
        if (!wait) return false;
        WaitLocked(lock, next);
    }
}

bool MessageQueue::ServeSentMessages() {
    std::unique_lock lock(mutex_);
    bool served = false;
    while (std::shared_ptr<SentMessage> sent = PopSentLocked()) {
        lock.unlock();
        DeliverSentMessage(*sent);
        served = true;
        lock.lock();
    }
    return served;
}

bool MessageQueue::WaitServing(const std::function<bool()> &done, Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (done()) return true;
        if (std::shared_ptr<SentMessage> sent = PopSentLocked()) {
            lock.unlock();
            DeliverSentMessage(*sent);
            lock.lock();
            continue;
        }
        if (Clock::now() >= deadline) return false;
        WaitLocked(lock, deadline);
    }
}

bool MessageQueue::HasInputLocked(DWORD wakeMask, Clock::time_point now) const {
    if ((wakeMask & QS_SENDMESSAGE) && !sent_.empty()) return true;
    if ((wakeMask & (QS_POSTMESSAGE | QS_ALLPOSTMESSAGE)) && (!posted_.empty() || quit_)) {
        return true;
    }
    if (wakeMask & QS_TIMER) {
        for (const Timer &timer : timers_) {
            if (timer.due <= now) return true;
        }
    }
    return false;
}

bool MessageQueue::WaitForInput(DWORD wakeMask, Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto now = Clock::now();
        if (HasInputLocked(wakeMask, now)) return true;
        if (now >= deadline) return false;
        auto until = deadline;
        if (wakeMask & QS_TIMER) {
            for (const Timer &timer : timers_) until = std::min(until, timer.due);
        }
        WaitLocked(lock, until);
    }
}

void MessageQueue::Shutdown() {
    std::deque<std::shared_ptr<SentMessage>> waiting;
    {
        std::lock_guard guard(mutex_);
        ended_ = true;
        waiting.swap(sent_);
        posted_.clear();
        timers_.clear();
    }
    for (const auto &message : waiting) {
        if (message->reply) message->reply(0);
    }
}

std::shared_ptr<MessageQueue> CurrentQueue() {
    if (!threadQueue.queue) {
        const DWORD threadId = GetCurrentThreadId();
        threadQueue.queue = std::make_shared<MessageQueue>(threadId);
        std::lock_guard guard(Registry().lock);
        Registry().queues[threadId] = threadQueue.queue;
    }
    return threadQueue.queue;
}

std::shared_ptr<MessageQueue> QueueOfThread(DWORD threadId) {
    std::lock_guard guard(Registry().lock);
    auto found = Registry().queues.find(threadId);
    return found == Registry().queues.end() ? nullptr : found->second.lock();
}

void DeliverSentMessage(const SentMessage &message) {
    std::shared_ptr<Window> window = FindOwnWindow(message.window);
    LRESULT result =
        window ? CallWindowProcedure(window, message.message, message.wParam, message.lParam) : 0;
    if (message.reply) message.reply(result);
}

}  // namespace platform

namespace {

using platform::MessageQueue;

bool CarriesPointer(UINT message) {
    return message == WM_COPYDATA || message == WM_SETTEXT || message == WM_GETTEXT;
}

// Sends to a window of another thread of this process and waits, serving
// what others send to this thread meanwhile.
bool SendAcrossThreads(const platform::Window &window, UINT message, WPARAM wParam, LPARAM lParam,
                       DWORD milliseconds, LRESULT &result) {
    struct Answer {
        std::atomic<bool> done{false};
        LRESULT result = 0;
    };
    std::shared_ptr<MessageQueue> self = platform::CurrentQueue();
    auto answer = std::make_shared<Answer>();
    auto sent = std::make_shared<platform::SentMessage>();
    sent->window = window.handle;
    sent->message = message;
    sent->wParam = wParam;
    sent->lParam = lParam;
    sent->reply = [answer, self](LRESULT value) {
        answer->result = value;
        answer->done.store(true);
        self->Wake();
    };
    if (!window.queue->Send(sent)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return false;
    }
    if (!self->WaitServing([&answer] { return answer->done.load(); },
                           platform::DeadlineAfter(milliseconds))) {
        SetLastError(ERROR_TIMEOUT);
        return false;
    }
    result = answer->result;
    return true;
}

bool SendAndWait(HWND window, UINT message, WPARAM wParam, LPARAM lParam, DWORD milliseconds,
                 LRESULT &result) {
    result = 0;
    std::shared_ptr<platform::Window> object = platform::FindWindowObject(window);
    if (!object) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return false;
    }
    if (object->remote) {
        return platform::WindowBroker::Instance().Send(*object->remote, message, wParam, lParam,
                                                       milliseconds, result);
    }
    if (object->threadId == GetCurrentThreadId()) {
        result = platform::CallWindowProcedure(object, message, wParam, lParam);
        return true;
    }
    return SendAcrossThreads(*object, message, wParam, lParam, milliseconds, result);
}

bool IsFilterWindowValid(HWND window) {
    return !window || window == platform::kThreadMessagesOnly || platform::FindOwnWindow(window);
}

}  // namespace

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (CarriesPointer(message)) {
        SetLastError(ERROR_MESSAGE_SYNC_ONLY);
        return FALSE;
    }
    if (!window) {
        return platform::CurrentQueue()->Post(
                   platform::MakeMessage(nullptr, message, wParam, lParam))
                   ? TRUE
                   : FALSE;
    }
    if (window == HWND_BROADCAST) {
        for (HWND topLevel : platform::TopLevelWindows()) {
            PostMessageW(topLevel, message, wParam, lParam);
        }
        return TRUE;
    }
    std::shared_ptr<platform::Window> object = platform::FindWindowObject(window);
    if (!object) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    if (object->remote) {
        return platform::WindowBroker::Instance().Post(*object->remote, message, wParam, lParam)
                   ? TRUE
                   : FALSE;
    }
    return object->queue->Post(platform::MakeMessage(window, message, wParam, lParam)) ? TRUE
                                                                                       : FALSE;
}

BOOL PostThreadMessageW(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam) {
    if (CarriesPointer(message)) {
        SetLastError(ERROR_MESSAGE_SYNC_ONLY);
        return FALSE;
    }
    std::shared_ptr<MessageQueue> queue = platform::QueueOfThread(threadId);
    if (!queue) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return FALSE;
    }
    return queue->Post(platform::MakeMessage(nullptr, message, wParam, lParam)) ? TRUE : FALSE;
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    LRESULT result = 0;
    SendAndWait(window, message, wParam, lParam, INFINITE, result);
    return result;
}

BOOL SendNotifyMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    std::shared_ptr<platform::Window> object = platform::FindWindowObject(window);
    if (!object) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    if (object->remote) return PostMessageW(window, message, wParam, lParam);
    if (object->threadId == GetCurrentThreadId()) {
        platform::CallWindowProcedure(object, message, wParam, lParam);
        return TRUE;
    }
    auto sent = std::make_shared<platform::SentMessage>();
    sent->window = window;
    sent->message = message;
    sent->wParam = wParam;
    sent->lParam = lParam;
    if (object->queue->Send(std::move(sent))) return TRUE;
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
}

BOOL GetMessageW(LPMSG message, HWND window, UINT filterMin, UINT filterMax) {
    if (!message) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return -1;
    }
    if (!IsFilterWindowValid(window)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return -1;
    }
    platform::CurrentQueue()->Take(*message, window, filterMin, filterMax, true, true);
    return message->message == WM_QUIT ? FALSE : TRUE;
}

BOOL PeekMessageW(LPMSG message, HWND window, UINT filterMin, UINT filterMax, UINT removeFlags) {
    if (!message || !IsFilterWindowValid(window)) {
        SetLastError(message ? ERROR_INVALID_WINDOW_HANDLE : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return platform::CurrentQueue()->Take(*message, window, filterMin, filterMax,
                                          (removeFlags & PM_REMOVE) != 0, false)
               ? TRUE
               : FALSE;
}

BOOL TranslateMessage(const MSG *message) {
    if (!message) return FALSE;
    switch (message->message) {
        case WM_KEYDOWN:
        case WM_KEYUP:
        case WM_SYSKEYDOWN:
        case WM_SYSKEYUP:
            return TRUE;
        default:
            return FALSE;
    }
}

LRESULT DispatchMessageW(const MSG *message) {
    if (!message) return 0;
    if (message->message == WM_TIMER && message->lParam) {
        // Only the procedure of a live timer is called, never a number
        // somebody posted.
        auto procedure = reinterpret_cast<TIMERPROC>(message->lParam);
        if (platform::CurrentQueue()->HasTimerProcedure(message->hwnd, message->wParam,
                                                        procedure)) {
            procedure(message->hwnd, WM_TIMER, message->wParam, GetTickCount());
        }
        return 0;
    }
    if (!message->hwnd) return 0;
    std::shared_ptr<platform::Window> window = platform::FindOwnWindow(message->hwnd);
    if (!window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    return platform::CallWindowProcedure(window, message->message, message->wParam,
                                         message->lParam);
}

void PostQuitMessage(int exitCode) { platform::CurrentQueue()->PostQuit(exitCode); }

DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll,
                                DWORD milliseconds, DWORD wakeMask) {
    if (count > 0 && !handles) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    std::shared_ptr<MessageQueue> queue = platform::CurrentQueue();
    const auto deadline = platform::DeadlineAfter(milliseconds);
    for (;;) {
        const auto now = MessageQueue::Clock::now();
        const bool input = queue->WaitForInput(wakeMask, now);
        if (waitAll) {
            if (input &&
                (count == 0 || WaitForMultipleObjects(count, handles, TRUE, 0) == WAIT_OBJECT_0)) {
                return WAIT_OBJECT_0;
            }
        } else {
            if (count > 0) {
                DWORD result = WaitForMultipleObjects(count, handles, FALSE, 0);
                if (result != WAIT_TIMEOUT) return result;
            }
            if (input) return WAIT_OBJECT_0 + count;
        }
        if (now >= deadline) return WAIT_TIMEOUT;
        auto until = deadline;
        if (count > 0) until = std::min(until, now + platform::kObjectPollSlice);
        queue->WaitForInput(wakeMask, until);
    }
}

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure) {
    if (!window) return platform::CurrentQueue()->SetTimer(nullptr, id, milliseconds, procedure);
    std::shared_ptr<platform::Window> object = platform::FindWindowObject(window);
    if (!object || object->remote) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    return object->queue->SetTimer(window, id, milliseconds, procedure);
}

BOOL KillTimer(HWND window, UINT_PTR id) {
    std::shared_ptr<MessageQueue> queue;
    if (window) {
        std::shared_ptr<platform::Window> object = platform::FindWindowObject(window);
        if (!object || object->remote) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return FALSE;
        }
        queue = object->queue;
    } else {
        queue = platform::CurrentQueue();
    }
    if (queue->KillTimer(window, id)) return TRUE;
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}
