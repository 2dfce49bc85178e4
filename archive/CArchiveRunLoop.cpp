#include "CArchiveRunLoop.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveObject.h"

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

bool CArchiveRunLoop::TakeInterrupt() { return interruptRequested.exchange(false); }

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

void CArchiveRunLoop::PumpUntil(CArchive &archive, const std::function<bool()> &done) {
    while (!done()) {
        if (interruptRequested.exchange(false)) interrupted_ = true;
        // Again on every turn: a worker that had not yet begun clears the
        // cancel flag when it does.
        if (interrupted_) archive.Cancel();
        PumpAndPause();
    }
}

ARCHIVE_RUN_OUTCOME CArchiveRunLoop::WaitForEnd(CArchive &archive) {
    // The end callback may come before the worker has cleared its state;
    // the archive is only safe to reuse once it is idle as well.
    PumpUntil(archive, [&] { return ended_ && !archive.Busy(); });
    archive.DisposeOfProgress();
    const bool cancelled = endCancelled_ || archive.cancelled;
    if (!cancelled && archive.lastResult == 0) return kArchiveRunSucceeded;
    // A run that was interrupted and then failed failed because of the
    // interrupt, whatever code the engine gave on its way out.
    if (interrupted_) return kArchiveRunInterrupted;
    return cancelled ? kArchiveRunCancelled : kArchiveRunFailed;
}

ARCHIVE_RUN_OUTCOME CArchiveRunLoop::RunBlocking(CArchive &archive,
                                                 const std::function<bool()> &work) {
    interrupted_ = false;
    interruptRequested = false;
    if (!archive.archiveObject && !archive.OpenArchiveObject()) return kArchiveRunNotStarted;
    CArchiveObject &object = *archive.archiveObject;
    object.cancel = false;
    const std::vector<NotificationPair> pairs = object.CommonNotifications();
    object.InstallNotifications(pairs);
    std::atomic<bool> done{false};
    bool succeeded = false;
    std::thread helper([&] {
        succeeded = work();
        done = true;
    });
    PumpUntil(archive, [&] { return done.load(); });
    helper.join();
    object.EndBlockingCall(pairs);
    if (succeeded) return kArchiveRunSucceeded;
    return interrupted_ ? kArchiveRunInterrupted : kArchiveRunFailed;
}

void CArchiveRunLoop::WaitUntilIdle(CArchive &archive) {
    while (archive.Busy()) PumpAndPause();
}
