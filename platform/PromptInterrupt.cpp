#include "platform/PromptInterrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace platform {

namespace {

std::atomic<bool> catchHeld{false};
std::atomic<bool> interruptCaught{false};
// The pipe's end the handler writes to: a wait on any thread wakes, not
// only one the signal happens to land on. Made once and kept, so that a
// handler still running on another thread as a prompt ends never writes
// into a descriptor since reused.
std::atomic<int> wakeDescriptor{-1};
int wakeReadEnd = -1;

// The pipe's read end, emptied of an earlier prompt's wake; -1 when it
// cannot be made. Called with the catch held.
int EmptiedWakePipe() {
    if (wakeReadEnd < 0) {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
        wakeReadEnd = ends[0];
        wakeDescriptor = ends[1];
    }
    char drained[16];
    while (read(wakeReadEnd, drained, sizeof drained) > 0) {
    }
    return wakeReadEnd;
}

extern "C" void WakePrompt(int) {
    const int savedErrno = errno;
    interruptCaught = true;
    const int wake = wakeDescriptor.load();
    if (wake >= 0) {
        const char byte = 1;
        // A full pipe already wakes the wait.
        [[maybe_unused]] ssize_t written = write(wake, &byte, 1);
    }
    errno = savedErrno;
}

}  // namespace

PromptInterrupt::PromptInterrupt() {
    if (catchHeld.exchange(true)) return;
    owner_ = true;
    interruptCaught = false;
    if (sigaction(SIGINT, nullptr, &previous_) != 0 || previous_.sa_handler == SIG_IGN) return;
    wakeRead_ = EmptiedWakePipe();
    if (wakeRead_ < 0) return;
    struct sigaction wake {};
    wake.sa_handler = WakePrompt;
    sigemptyset(&wake.sa_mask);
    // No SA_RESTART: a read the signal lands in ends as well.
    wake.sa_flags = 0;
    installed_ = sigaction(SIGINT, &wake, nullptr) == 0;
}

PromptInterrupt::~PromptInterrupt() {
    if (!owner_) return;
    if (installed_) sigaction(SIGINT, &previous_, nullptr);
    const bool caught = installed_ && interruptCaught.exchange(false);
    catchHeld = false;
    if (caught) raise(SIGINT);
}

bool PromptInterrupt::WaitForInput(int fd) const {
    if (!installed_) return true;
    for (;;) {
        if (interruptCaught) return false;
        pollfd waits[2] = {{fd, POLLIN, 0}, {wakeRead_, POLLIN, 0}};
        const int ready = poll(waits, 2, -1);
        if (interruptCaught) return false;
        if (ready < 0 && errno == EINTR) continue;
        // The read tells an end or an error.
        if (ready < 0 || waits[0].revents != 0) return true;
    }
}

bool PromptInterrupt::Caught() const { return installed_ && interruptCaught; }

}  // namespace platform
