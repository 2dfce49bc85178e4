#include "platform/WinThread.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/SpecialFolders.h"
#include "platform/WideText.h"
#include "platform/WinError.h"

#if defined(__SANITIZE_ADDRESS__)
// TerminateThread unwinds a thread from inside a system call. Frames that
// unwinding skips leave their stack poisoned, and the address sanitizer then
// reports its own bookkeeping as an error at the next landing pad. With
// locals on the sanitizer's separate stacks nothing stale is left behind, so
// sanitizer builds of anything that loads this library run with that on.
extern "C" int __asan_option_detect_stack_use_after_return;
namespace {
[[gnu::constructor]] void KeepLocalsOffTheThreadStack() {
    __asan_option_detect_stack_use_after_return = 1;
}
}  // namespace
#endif

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

// A thread made by CreateThread can be ended by TerminateThread, a deferred
// pthread_cancel. Its waits here are places where that happens as well: they
// sleep in slices and look for a pending request between them, never inside
// a condition variable wait, which must not be unwound through.
thread_local bool terminable = false;
constexpr auto kTerminationSlice = std::chrono::milliseconds(50);
constexpr DWORD kTerminateWaitMilliseconds = 1000;

class CancellationOff {
public:
    CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
    ~CancellationOff() { pthread_setcancelstate(previous_, nullptr); }
    CancellationOff(const CancellationOff &) = delete;
    CancellationOff &operator=(const CancellationOff &) = delete;

private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

void TerminationPoint() {
    if (terminable) pthread_testcancel();
}

// Waits on `changed` until `ready` holds or the time is up; true if ready.
template <typename Ready>
bool WaitFor(std::condition_variable &changed, std::unique_lock<std::mutex> &lock,
             DWORD milliseconds, Ready ready) {
    const bool finite = milliseconds != INFINITE;
    const auto deadline = Clock::now() + std::chrono::milliseconds(finite ? milliseconds : 0);
    for (;;) {
        TerminationPoint();
        CancellationOff noCancel;
        if (!terminable) {
            if (finite) return changed.wait_until(lock, deadline, ready);
            changed.wait(lock, ready);
            return true;
        }
        auto until = Clock::now() + kTerminationSlice;
        if (finite) until = std::min(until, deadline);
        if (changed.wait_until(lock, until, ready)) return true;
        if (finite && Clock::now() >= deadline) return false;
    }
}

}  // namespace

void CompletionSignal::Complete(DWORD code) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (complete_) return;
        complete_ = true;
        code_ = code;
    }
    changed_.notify_all();
}

bool CompletionSignal::IsComplete() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return complete_;
}

DWORD CompletionSignal::Code() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return code_;
}

DWORD CompletionSignal::Wait(DWORD milliseconds) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return WaitFor(changed_, lock, milliseconds, [this] { return complete_; }) ? WAIT_OBJECT_0
                                                                               : WAIT_TIMEOUT;
}

// ---------------------------------------------------------------- threads

namespace {

struct ThreadState {
    CompletionSignal completion;
    std::mutex mutex;
    std::condition_variable started;
    bool running = false;
    pid_t tid = 0;
    pthread_t thread{};
    bool terminateRequested = false;
    DWORD terminateCode = 0;
};

using ThreadObject = CompletionHandle<ThreadState>;

struct ThreadLaunch {
    LPTHREAD_START_ROUTINE routine;
    LPVOID parameter;
    std::shared_ptr<ThreadState> state;
};

// Marks the thread finished however it leaves: by returning, or by the
// unwinding of a cancellation.
class FinishOnExit {
public:
    explicit FinishOnExit(ThreadState &state) : state_(state) {}
    ~FinishOnExit() {
        DWORD code = code_;
        {
            std::lock_guard<std::mutex> lock(state_.mutex);
            if (state_.terminateRequested) code = state_.terminateCode;
            state_.running = false;
        }
        state_.completion.Complete(code);
    }
    FinishOnExit(const FinishOnExit &) = delete;
    FinishOnExit &operator=(const FinishOnExit &) = delete;
    void SetCode(DWORD code) { code_ = code; }

private:
    ThreadState &state_;
    DWORD code_ = 0;
};

void *ThreadMain(void *argument) {
    std::unique_ptr<ThreadLaunch> launch(static_cast<ThreadLaunch *>(argument));
    std::shared_ptr<ThreadState> state = launch->state;
    terminable = true;
    {
        std::lock_guard<std::mutex> lock(state->mutex);
        state->tid = gettid();
        state->running = true;
    }
    state->started.notify_all();
    FinishOnExit finish(*state);
    finish.SetCode(launch->routine(launch->parameter));
    return nullptr;
}

}  // namespace

}  // namespace platform

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T stackSize, LPTHREAD_START_ROUTINE startAddress,
                    LPVOID parameter, DWORD creationFlags, LPDWORD threadId) {
    using namespace platform;
    if (!startAddress || creationFlags != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto state = std::make_shared<ThreadState>();
    auto launch = std::make_unique<ThreadLaunch>(ThreadLaunch{startAddress, parameter, state});

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize > 0) {
        pthread_attr_setstacksize(
            &attributes, std::max<SIZE_T>(stackSize, static_cast<SIZE_T>(PTHREAD_STACK_MIN)));
    }
    pthread_t thread;
    int error = pthread_create(&thread, &attributes, ThreadMain, launch.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        SetLastError(WinErrorFromErrno(error));
        return nullptr;
    }
    launch.release();

    // The thread's id is known once it runs; wait for that so that the
    // caller gets it and TerminateThread has a live thread to address.
    std::unique_lock<std::mutex> lock(state->mutex);
    state->thread = thread;
    WaitFor(state->started, lock, INFINITE,
            [&] { return state->tid != 0 || state->completion.IsComplete(); });
    if (threadId) *threadId = static_cast<DWORD>(state->tid);
    lock.unlock();
    return new ThreadObject(state);
}

BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode) {
    auto *object = platform::ObjectAs<platform::ThreadObject>(thread);
    if (!object || !exitCode) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *exitCode = object->Shared().completion.Code();
    return TRUE;
}

DWORD GetThreadId(HANDLE thread) {
    auto *object = platform::ObjectAs<platform::ThreadObject>(thread);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    std::lock_guard<std::mutex> lock(object->Shared().mutex);
    return static_cast<DWORD>(object->Shared().tid);
}

BOOL TerminateThread(HANDLE thread, DWORD exitCode) {
    auto *object = platform::ObjectAs<platform::ThreadObject>(thread);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    platform::ThreadState &state = object->Shared();
    {
        // Under the lock the thread cannot pass its end, so its pthread_t is
        // still valid while it is marked running.
        std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.running) return TRUE;
        if (!state.terminateRequested) {
            state.terminateRequested = true;
            state.terminateCode = exitCode;
            pthread_cancel(state.thread);
        }
        if (state.tid == gettid()) return TRUE;
    }
    // A thread stopped by Windows is gone at once; here it ends at its next
    // blocking call, which callers are given a moment to reach.
    state.completion.Wait(platform::kTerminateWaitMilliseconds);
    return TRUE;
}

DWORD GetCurrentThreadId() { return static_cast<DWORD>(gettid()); }

void Sleep(DWORD milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    if (milliseconds == INFINITE) {
        for (;;) pause();
    }
    timespec remaining{static_cast<time_t>(milliseconds / 1000),
                       static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&remaining, &remaining) == -1 && errno == EINTR) {
    }
}

// ----------------------------------------------------------------- events

namespace platform {
namespace {

struct EventState {
    explicit EventState(bool manual, bool initial) : manualReset(manual), signalled(initial) {}
    std::mutex mutex;
    std::condition_variable changed;
    const bool manualReset;
    bool signalled;
};

class EventObject : public KernelObject {
public:
    explicit EventObject(std::shared_ptr<EventState> state) : state_(std::move(state)) {}
    EventState &Shared() { return *state_; }

    DWORD Wait(DWORD milliseconds) override {
        EventState &s = *state_;
        std::unique_lock<std::mutex> lock(s.mutex);
        if (!WaitFor(s.changed, lock, milliseconds, [&] { return s.signalled; })) {
            return WAIT_TIMEOUT;
        }
        if (!s.manualReset) s.signalled = false;
        return WAIT_OBJECT_0;
    }

private:
    std::shared_ptr<EventState> state_;
};

// Named events of this process.
std::mutex namedEventsMutex;
std::map<std::wstring, std::weak_ptr<EventState>> namedEvents;

std::shared_ptr<EventState> FindNamedEvent(const std::wstring &name) {
    auto found = namedEvents.find(name);
    return found == namedEvents.end() ? nullptr : found->second.lock();
}

// Changes the event's state under its lock, then wakes its waiters to look.
template <typename Change>
BOOL ChangeEvent(HANDLE event, Change change) {
    auto *object = ObjectAs<EventObject>(event);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    EventState &s = object->Shared();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        change(s);
    }
    s.changed.notify_all();
    return TRUE;
}

}  // namespace
}  // namespace platform

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR name) {
    using namespace platform;
    if (!name || !*name) {
        SetLastError(ERROR_SUCCESS);
        return new EventObject(std::make_shared<EventState>(manualReset, initialState));
    }
    std::lock_guard<std::mutex> lock(namedEventsMutex);
    if (auto existing = FindNamedEvent(name)) {
        SetLastError(ERROR_ALREADY_EXISTS);
        return new EventObject(existing);
    }
    auto state = std::make_shared<EventState>(manualReset, initialState);
    namedEvents[name] = state;
    SetLastError(ERROR_SUCCESS);
    return new EventObject(state);
}

BOOL SetEvent(HANDLE event) {
    return platform::ChangeEvent(event, [](platform::EventState &s) { s.signalled = true; });
}

BOOL ResetEvent(HANDLE event) {
    return platform::ChangeEvent(event, [](platform::EventState &s) { s.signalled = false; });
}

// ---------------------------------------------------------------- mutexes

namespace platform {
namespace {

bool ThreadIsGone(pid_t tid) {
    return syscall(SYS_tgkill, getpid(), tid, 0) == -1 && errno == ESRCH;
}

// An unnamed mutex: owned by a thread, recursive. A thread that ends while
// owning it leaves it abandoned; waiters look for that now and then.
class LocalMutex : public KernelObject {
public:
    DWORD Wait(DWORD milliseconds) override {
        constexpr auto kOwnerCheck = std::chrono::milliseconds(50);
        const pid_t self = gettid();
        std::unique_lock<std::mutex> lock(mutex_);
        if (owner_ == self) {
            ++count_;
            return WAIT_OBJECT_0;
        }
        const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
        for (;;) {
            if (owner_ == 0) return Take(self, WAIT_OBJECT_0);
            if (ThreadIsGone(owner_)) return Take(self, WAIT_ABANDONED);
            auto until = Clock::now() + kOwnerCheck;
            if (milliseconds != INFINITE) {
                if (Clock::now() >= deadline) return WAIT_TIMEOUT;
                until = std::min(until, deadline);
            }
            TerminationPoint();
            CancellationOff noCancel;
            released_.wait_until(lock, until);
        }
    }

    bool Release() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (owner_ != gettid()) return false;
            if (--count_ > 0) return true;
            owner_ = 0;
        }
        released_.notify_one();
        return true;
    }

private:
    DWORD Take(pid_t self, DWORD result) {
        owner_ = self;
        count_ = 1;
        return result;
    }

    std::mutex mutex_;
    std::condition_variable released_;
    pid_t owner_ = 0;
    unsigned count_ = 0;
};

// ------------------------------------------------ the system-wide mutex

// The shared file holds one robust, process-shared, recursive pthread
// mutex. Byte 0 of the file is locked (open-file-description lock) while a
// handle is being made; byte 1 is read-locked by every open handle, so a
// handle can tell whether others exist: if none does, the object is new and
// its mutex is made afresh, as a Windows object would be.
struct SharedMutexData {
    std::uint32_t magic;
    std::uint32_t size;
    pthread_mutex_t mutex;
};
constexpr std::uint32_t kSharedMutexMagic = 0x584D4E56u;  // "VNMX"

// Mappings stay for the life of the process: a thread that ends while owning
// the mutex leaves it on its robust list, which the kernel reads then.
struct SharedMapping {
    SharedMutexData *data = nullptr;
    // Acquisitions minus releases by threads of this process; while above
    // zero the mutex is never made afresh under them.
    std::atomic<long> heldHere{0};
};

std::mutex mappingsMutex;
// Never destroyed, like the mappings it lists.
auto &mappings = *new std::map<std::pair<dev_t, ino_t>, SharedMapping *>;

SharedMapping *MapSharedMutex(int fd, const std::string &path) {
    struct stat info;
    if (fstat(fd, &info) != 0) return nullptr;
    std::lock_guard<std::mutex> lock(mappingsMutex);
    auto key = std::make_pair(info.st_dev, info.st_ino);
    auto found = mappings.find(key);
    if (found != mappings.end()) return found->second;
    // A mapping keeps its open file description alive, and with it any lock
    // taken through it; so it gets a description of its own that never locks.
    int mapFd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (mapFd < 0) return nullptr;
    void *address =
        mmap(nullptr, sizeof(SharedMutexData), PROT_READ | PROT_WRITE, MAP_SHARED, mapFd, 0);
    close(mapFd);
    if (address == MAP_FAILED) return nullptr;
    auto *mapping = new SharedMapping;
    mapping->data = static_cast<SharedMutexData *>(address);
    mappings.emplace(key, mapping);
    return mapping;
}

void InitialiseSharedMutex(SharedMutexData &data) {
    std::memset(&data, 0, sizeof data);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&data.mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    data.size = sizeof data;
    data.magic = kSharedMutexMagic;
}

bool LockByte(int fd, short type, off_t byte, bool wait) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    for (;;) {
        if (fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &lock) == 0) return true;
        if (errno != EINTR) return false;
    }
}

// The file of a mutex name: "Global\" and "Local\" are one namespace here,
// and characters outside a safe set are written as %XX of their UTF-8.
std::string SharedMutexFileName(std::wstring_view name) {
    for (std::wstring_view prefix : {L"Global\\", L"Local\\"}) {
        if (name.substr(0, prefix.size()) == prefix) {
            name.remove_prefix(prefix.size());
            break;
        }
    }
    std::string file = "mutex.";
    for (unsigned char c : ToUtf8(name)) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
            c == '-' || c == '_' || c == '.') {
            file += static_cast<char>(c);
        } else {
            static const char kHex[] = "0123456789ABCDEF";
            file += '%';
            file += kHex[c >> 4];
            file += kHex[c & 15];
        }
    }
    return file;
}

class SharedMutex : public KernelObject {
public:
    SharedMutex(int fd, SharedMapping *mapping) : fd_(fd), mapping_(mapping) {}
    ~SharedMutex() override { close(fd_); }

    DWORD Wait(DWORD milliseconds) override {
        const int error = Lock(milliseconds);
        switch (error) {
            case 0:
                ++mapping_->heldHere;
                return WAIT_OBJECT_0;
            case EOWNERDEAD:
                pthread_mutex_consistent(&mapping_->data->mutex);
                ++mapping_->heldHere;
                return WAIT_ABANDONED;
            case EBUSY:
            case ETIMEDOUT:
                return WAIT_TIMEOUT;
            default:
                SetLastError(WinErrorFromErrno(error));
                return WAIT_FAILED;
        }
    }

    bool Release() {
        if (pthread_mutex_unlock(&mapping_->data->mutex) != 0) return false;
        --mapping_->heldHere;
        return true;
    }

private:
    // pthread_mutex_lock and kin: 0, EOWNERDEAD, or ETIMEDOUT / EBUSY. A
    // thread that TerminateThread may end locks in slices.
    int Lock(DWORD milliseconds) {
        pthread_mutex_t *mutex = &mapping_->data->mutex;
        if (milliseconds == 0) return pthread_mutex_trylock(mutex);
        if (milliseconds == INFINITE && !terminable) return pthread_mutex_lock(mutex);
        const bool finite = milliseconds != INFINITE;
        const timespec deadline = MonotonicAfter(finite ? milliseconds : 0);
        for (;;) {
            TerminationPoint();
            timespec until = deadline;
            if (terminable) {
                timespec slice = MonotonicAfter(static_cast<DWORD>(kTerminationSlice.count()));
                if (!finite || Earlier(slice, deadline)) until = slice;
            }
            int error = pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &until);
            if (error != ETIMEDOUT || (finite && !Earlier(until, deadline))) return error;
        }
    }

    static timespec MonotonicAfter(DWORD milliseconds) {
        timespec at;
        clock_gettime(CLOCK_MONOTONIC, &at);
        at.tv_sec += milliseconds / 1000;
        at.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
        if (at.tv_nsec >= 1000000000L) {
            at.tv_nsec -= 1000000000L;
            ++at.tv_sec;
        }
        return at;
    }

    static bool Earlier(const timespec &a, const timespec &b) {
        return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
    }

    int fd_;
    SharedMapping *mapping_;
};

// Opens the system-wide mutex `name`, making it when no handle to it is
// open; sets `existed` when other handles to it were open.
SharedMutex *OpenSharedMutex(const wchar_t *name, bool &existed) {
    std::wstring folder = UserRuntimeFolder();
    if (folder.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    std::string path = ToUtf8(folder) + "/" + SharedMutexFileName(name);
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_CREAT, 0600);
    if (fd < 0) {
        SetLastErrorFromErrno();
        return nullptr;
    }
    auto fail = [fd](DWORD code) -> SharedMutex * {
        close(fd);  // drops the locks of this description too
        SetLastError(code);
        return nullptr;
    };
    if (!LockByte(fd, F_WRLCK, 0, true)) return fail(WinErrorFromErrno(errno));

    existed = !LockByte(fd, F_WRLCK, 1, false);
    if (!existed && ftruncate(fd, sizeof(SharedMutexData)) != 0) {
        return fail(WinErrorFromErrno(errno));
    }
    SharedMapping *mapping = MapSharedMutex(fd, path);
    if (!mapping) return fail(WinErrorFromErrno(errno));
    bool fresh =
        mapping->data->magic != kSharedMutexMagic || mapping->data->size != sizeof(SharedMutexData);
    if ((!existed && mapping->heldHere == 0) || fresh) InitialiseSharedMutex(*mapping->data);
    // Turns this handle's test lock into the shared "handle open" lock.
    if (!LockByte(fd, F_RDLCK, 1, false)) return fail(WinErrorFromErrno(errno));
    auto *object = new SharedMutex(fd, mapping);
    struct flock unlock {};
    unlock.l_type = F_UNLCK;
    unlock.l_whence = SEEK_SET;
    unlock.l_start = 0;
    unlock.l_len = 1;
    fcntl(fd, F_OFD_SETLK, &unlock);
    return object;
}

}  // namespace
}  // namespace platform

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCWSTR name) {
    using namespace platform;
    if (!name || !*name) {
        auto *mutex = new LocalMutex;
        if (initialOwner) mutex->Wait(INFINITE);
        SetLastError(ERROR_SUCCESS);
        return mutex;
    }
    bool existed = false;
    SharedMutex *mutex = OpenSharedMutex(name, existed);
    if (!mutex) return nullptr;
    if (initialOwner && !existed) mutex->Wait(INFINITE);
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return mutex;
}

BOOL ReleaseMutex(HANDLE mutex) {
    platform::KernelObject *object = platform::ObjectFromHandle(mutex);
    bool released = false;
    if (auto *shared = dynamic_cast<platform::SharedMutex *>(object)) {
        released = shared->Release();
    } else if (auto *local = dynamic_cast<platform::LocalMutex *>(object)) {
        released = local->Release();
    } else {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!released) SetLastError(ERROR_NOT_OWNER);
    return released ? TRUE : FALSE;
}
