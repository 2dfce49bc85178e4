// Threads and synchronisation objects behind HANDLE.
//
// CreateThread starts a detached thread that is never joined; its handle is
// waitable until the thread ends, and closing the handle leaves the thread
// running. Events and unnamed mutexes live in this process. A named mutex is
// one object for every process of the user: it lives in a small shared file
// of the user's runtime folder, so all processes serialise on it, waits take
// timeouts, the owning thread may take it again, and an owner that died
// leaves it abandoned (the next wait gets it with WAIT_ABANDONED).
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/KernelObject.h"
#include "platform/WinTypes.h"

using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID parameter);

// The exit code of a thread or process that is still running.
inline constexpr DWORD STILL_ACTIVE = 259;

// Access rights; accepted and ignored, every opened object allows all.
inline constexpr DWORD SYNCHRONIZE = 0x00100000;
inline constexpr DWORD MUTEX_MODIFY_STATE = 0x0001;
inline constexpr DWORD MUTEX_ALL_ACCESS = 0x001F0001;
inline constexpr DWORD EVENT_MODIFY_STATE = 0x0002;
inline constexpr DWORD EVENT_ALL_ACCESS = 0x001F0003;

// Threads. The start routine's result becomes the thread's exit code.
// dwCreationFlags: 0 only (CREATE_SUSPENDED is refused with
// ERROR_INVALID_PARAMETER).
HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize,
                    LPTHREAD_START_ROUTINE startAddress, LPVOID parameter, DWORD creationFlags,
                    LPDWORD threadId);
BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);
DWORD GetThreadId(HANDLE thread);
// Ends the thread at its next blocking call (POSIX deferred cancellation:
// a sleep, a read, a wait of this layer); its stack unwinds and its handle
// then reports exitCode. Waits up to a second for that before returning.
BOOL TerminateThread(HANDLE thread, DWORD exitCode);
DWORD GetCurrentThreadId();
void Sleep(DWORD milliseconds);

// Events. Names are local to the process; a second CreateEventW of the same
// name opens the same event and sets ERROR_ALREADY_EXISTS.
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                    LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

// Mutexes. A named mutex is shared by every process of the user; when the
// name already existed, the call succeeds and sets ERROR_ALREADY_EXISTS.
// "Global\" and "Local\" prefixes name the same object.
HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES attributes, BOOL initialOwner, LPCWSTR name);
// Fails with ERROR_NOT_OWNER when the calling thread does not own it.
BOOL ReleaseMutex(HANDLE mutex);

namespace platform {

// Something that ends once with a code (a thread, a process), waitable with
// a timeout from any thread. Kernel objects of those kinds share one.
class CompletionSignal {
public:
    void Complete(DWORD code);
    bool IsComplete() const;
    // STILL_ACTIVE until completed.
    DWORD Code() const;
    // WAIT_OBJECT_0 once completed, WAIT_TIMEOUT if that took too long.
    DWORD Wait(DWORD milliseconds) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool complete_ = false;
    DWORD code_ = STILL_ACTIVE;
};

// A handle to something that ends once, sharing its state with whatever runs
// it; the state's `completion` signal is what the handle waits for.
template <typename State>
class CompletionHandle : public KernelObject {
public:
    explicit CompletionHandle(std::shared_ptr<State> state) : state_(std::move(state)) {}
    DWORD Wait(DWORD milliseconds) override { return state_->completion.Wait(milliseconds); }
    State &Shared() { return *state_; }

private:
    std::shared_ptr<State> state_;
};

}  // namespace platform
