#include "CArchiveRunLoop.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "CAppUtils.h"
#include "CArchive.h"

namespace {

// Raised by the handler or by RequestInterrupt, taken by the pump.
std::atomic<bool> interruptRequested{false};

extern "C" void NoteInterrupt(int) { interruptRequested = true; }

// Short enough that the terminal's bar moves smoothly, long enough to
// leave the cores to the worker.
constexpr auto kPumpInterval = std::chrono::milliseconds(5);

void PumpAndPause() {
    CAppUtils::ProcessMessages();
    std::this_thread::sleep_for(kPumpInterval);
}

}  // namespace

CArchiveRunLoop::CArchiveRunLoop(bool catchInterrupt) : catchInterrupt_(catchInterrupt) {
    if (catchInterrupt_) previousHandler_ = std::signal(SIGINT, NoteInterrupt);
}

CArchiveRunLoop::~CArchiveRunLoop() {
    if (catchInterrupt_)
        std::signal(SIGINT, previousHandler_ == SIG_ERR ? SIG_DFL : previousHandler_);
}

void CArchiveRunLoop::RequestInterrupt() { interruptRequested = true; }

void CArchiveRunLoop::OnEnd(void *context, bool cancelled) {
    auto *loop = static_cast<CArchiveRunLoop *>(context);
    loop->endCancelled_ = cancelled;
    loop->ended_ = true;
}

ARCHIVE_RUN_OUTCOME CArchiveRunLoop::Run(CArchive &archive, const std::function<bool()> &start) {
    ended_ = false;
    endCancelled_ = false;
    interrupted_ = false;
    // An interrupt that came between two runs stops nothing.
    interruptRequested = false;
    archive.endCallback = OnEnd;
    archive.endContext = this;
    if (!start()) return kArchiveRunNotStarted;
    return WaitForEnd(archive);
}

ARCHIVE_RUN_OUTCOME CArchiveRunLoop::WaitForEnd(CArchive &archive) {
    // The end callback may come before the worker has cleared its state;
    // the archive is only safe to reuse once it is idle as well.
    while (!ended_ || archive.Busy()) {
        if (interruptRequested.exchange(false)) {
            archive.Cancel();
            interrupted_ = true;
        }
        PumpAndPause();
    }
    archive.DisposeOfProgress();
    const bool cancelled = endCancelled_ || archive.cancelled;
    if (!cancelled && archive.lastResult == 0) return kArchiveRunSucceeded;
    // A run that was interrupted and then failed failed because of the
    // interrupt, whatever code the engine gave on its way out.
    if (interrupted_) return kArchiveRunInterrupted;
    return cancelled ? kArchiveRunCancelled : kArchiveRunFailed;
}

void CArchiveRunLoop::WaitUntilIdle(CArchive &archive) {
    while (archive.Busy()) PumpAndPause();
}
