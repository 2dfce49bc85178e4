// Threads, events, mutexes (also between processes) and counters.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/WinError.h"
#include "platform/WinThread.h"
#include "support/TempHome.h"

namespace {

using Clock = std::chrono::steady_clock;

long MillisecondsSince(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// Closes a handle at the end of a scope.
class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
    ~Handle() {
        if (handle_) CloseHandle(handle_);
    }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;
    HANDLE get() const { return handle_; }

private:
    HANDLE handle_;
};

// Runs `body` on a thread of its own and waits for it.
template <typename Body>
void OnOtherThread(Body body) {
    std::thread(body).join();
}

struct WaitingThread {
    HANDLE event;
    DWORD result = 0;
};

DWORD WaitOnEvent(LPVOID parameter) {
    auto *waiting = static_cast<WaitingThread *>(parameter);
    waiting->result = WaitForSingleObject(waiting->event, 5000);
    return 40 + waiting->result;
}

}  // namespace

TEST(Events, ManualResetStaysSignalledUntilReset) {
    Handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(event.get()));
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(event.get()));
    auto start = Clock::now();
    EXPECT_EQ(WaitForSingleObject(event.get(), 100), WAIT_TIMEOUT);
    EXPECT_GE(MillisecondsSince(start), 95);
}

TEST(Events, AutoResetReleasesOneWaitAndStartsAsAsked) {
    Handle event(CreateEventW(nullptr, FALSE, TRUE, nullptr));
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.get(), 20), WAIT_TIMEOUT);

    // Set from another thread while this one waits.
    std::thread setter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        SetEvent(event.get());
    });
    auto start = Clock::now();
    EXPECT_EQ(WaitForSingleObject(event.get(), 5000), WAIT_OBJECT_0);
    EXPECT_GE(MillisecondsSince(start), 40);
    setter.join();
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_TIMEOUT);
}

TEST(Threads, HandleIsWaitableAndCarriesTheExitCode) {
    Handle gate(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    WaitingThread waiting{gate.get()};
    DWORD id = 0;
    Handle thread(CreateThread(nullptr, 0, WaitOnEvent, &waiting, 0, &id));
    ASSERT_NE(thread.get(), nullptr);
    EXPECT_NE(id, 0u);
    EXPECT_NE(id, GetCurrentThreadId());
    EXPECT_EQ(GetThreadId(thread.get()), id);

    EXPECT_EQ(WaitForSingleObject(thread.get(), 50), WAIT_TIMEOUT);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread.get(), &code));
    EXPECT_EQ(code, STILL_ACTIVE);

    SetEvent(gate.get());
    EXPECT_EQ(WaitForSingleObject(thread.get(), 5000), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeThread(thread.get(), &code));
    EXPECT_EQ(code, 40u + WAIT_OBJECT_0);
    // A finished thread's handle stays signalled.
    EXPECT_EQ(WaitForSingleObject(thread.get(), 0), WAIT_OBJECT_0);
}

TEST(Threads, ClosingTheHandleLeavesTheThreadRunning) {
    static std::atomic<bool> finished{false};
    Handle gate(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Handle done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    struct Pair {
        HANDLE gate;
        HANDLE done;
    } pair{gate.get(), done.get()};
    HANDLE thread = CreateThread(
        nullptr, 0,
        [](LPVOID parameter) -> DWORD {
            auto *p = static_cast<Pair *>(parameter);
            WaitForSingleObject(p->gate, 5000);
            finished = true;
            SetEvent(p->done);
            return 0;
        },
        &pair, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(CloseHandle(thread));
    SetEvent(gate.get());
    EXPECT_EQ(WaitForSingleObject(done.get(), 5000), WAIT_OBJECT_0);
    EXPECT_TRUE(finished);
    EXPECT_EQ(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr), nullptr);
}

namespace {

std::atomic<int> unwound{0};

struct CountsUnwinding {
    ~CountsUnwinding() { ++unwound; }
};

// Ends `thread` and checks that it is over when TerminateThread returns.
void ExpectTerminated(HANDLE thread) {
    ASSERT_NE(thread, nullptr);
    Sleep(30);  // let it reach its blocking call
    const int before = unwound;
    EXPECT_TRUE(TerminateThread(thread, 9));
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 9u);
    EXPECT_EQ(unwound, before + 1);
    CloseHandle(thread);
}

}  // namespace

TEST(Threads, TerminatedThreadUnwindsAndReportsTheGivenCode) {
    ExpectTerminated(CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            CountsUnwinding guard;
            for (;;) Sleep(10);
        },
        nullptr, 0, nullptr));

    // A thread blocked in a wait of this layer ends as well.
    Handle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ExpectTerminated(CreateThread(
        nullptr, 0,
        [](LPVOID event) -> DWORD {
            CountsUnwinding guard;
            return WaitForSingleObject(event, INFINITE);
        },
        never.get(), 0, nullptr));
}

TEST(Mutexes, OwnerMayTakeItAgainAndOthersWait) {
    Handle mutex(CreateMutexW(nullptr, TRUE, nullptr));
    ASSERT_NE(mutex.get(), nullptr);
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
    OnOtherThread([&] {
        EXPECT_EQ(WaitForSingleObject(mutex.get(), 30), WAIT_TIMEOUT);
        EXPECT_FALSE(ReleaseMutex(mutex.get()));
        EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
    });
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    OnOtherThread([&] { EXPECT_EQ(WaitForSingleObject(mutex.get(), 30), WAIT_TIMEOUT); });
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_FALSE(ReleaseMutex(mutex.get()));
    OnOtherThread([&] {
        EXPECT_EQ(WaitForSingleObject(mutex.get(), 30), WAIT_OBJECT_0);
        EXPECT_TRUE(ReleaseMutex(mutex.get()));
    });
}

TEST(Mutexes, ThreadThatEndsOwningItLeavesItAbandoned) {
    Handle mutex(CreateMutexW(nullptr, FALSE, nullptr));
    OnOtherThread([&] { EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0); });
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 5000), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
}

class NamedMutex : public testsupport::HomeTest {
protected:
    static constexpr const wchar_t *kName = L"CArchiveNamesRepositoryAccess";

    // Runs `child` in a forked process; it reports through the pipe and its
    // exit status. Returns the child's pid.
    template <typename Child>
    pid_t Fork(Child child) {
        pid_t pid = fork();
        if (pid == 0) {
            close(fromChild_[0]);
            _exit(child(fromChild_[1]));
        }
        return pid;
    }

    void SetUp() override { ASSERT_EQ(pipe(fromChild_), 0); }
    void TearDown() override {
        close(fromChild_[0]);
        close(fromChild_[1]);
    }

    char ReadFromChild() {
        char c = 0;
        return read(fromChild_[0], &c, 1) == 1 ? c : 0;
    }

    static int ExitStatus(pid_t pid) {
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int fromChild_[2] = {-1, -1};
};

TEST_F(NamedMutex, OwnerThatDiesLeavesItAbandonedToTheNextWait) {
    Handle mutex(CreateMutexW(nullptr, FALSE, kName));
    ASSERT_NE(mutex.get(), nullptr);
    pid_t child = Fork([](int toParent) {
        HANDLE own = CreateMutexW(nullptr, FALSE, kName);
        if (!own || WaitForSingleObject(own, 5000) != WAIT_OBJECT_0) return 1;
        if (write(toParent, "h", 1) != 1) return 3;
        Sleep(100);
        return 0;  // ends holding it
    });
    ASSERT_EQ(ReadFromChild(), 'h');
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 10000), WAIT_ABANDONED);
    EXPECT_EQ(ExitStatus(child), 0);
    // Abandonment is reported once; the mutex is then an ordinary one.
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
}

TEST_F(NamedMutex, TerminatedThreadStopsWaitingForIt) {
    Handle mutex(CreateMutexW(nullptr, TRUE, kName));
    ASSERT_NE(mutex.get(), nullptr);
    ExpectTerminated(CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            CountsUnwinding guard;
            Handle own(CreateMutexW(nullptr, FALSE, kName));
            return WaitForSingleObject(own.get(), INFINITE);
        },
        nullptr, 0, nullptr));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
}
