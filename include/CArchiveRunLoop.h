// Runs one threaded CArchive operation to its end on the calling thread:
// starts it, pumps this thread's messages (so the progress window and the
// host draw) until the end callback has come and the worker is idle, and
// turns an interrupt (SIGINT, or RequestInterrupt) into CArchive::Cancel.
// The signal handler only raises a flag; Cancel is called from the pump.
//
// While a loop exists it owns SIGINT for the process and gives the previous
// handler back when it goes. One loop at a time per process.
#pragma once

#include <functional>

#include "VarnickEngine.h"

class CArchive;

// How a run ended.
enum ARCHIVE_RUN_OUTCOME {
    kArchiveRunSucceeded = 0,
    // The operation did not start; the archive's lastResult tells why.
    kArchiveRunNotStarted = 1,
    // It ran and ended with a result other than 0 (the archive's lastResult).
    kArchiveRunFailed = 2,
    // It was cancelled by an interrupt.
    kArchiveRunInterrupted = 3,
    // It ended cancelled without an interrupt: a question nobody answered
    // (a password, a conflict) or the progress window's own button.
    kArchiveRunCancelled = 4,
};

class CArchiveRunLoop {
public:
    // With `catchInterrupt` the loop installs its SIGINT handler.
    explicit CArchiveRunLoop(bool catchInterrupt = true);
    ~CArchiveRunLoop();
    CArchiveRunLoop(const CArchiveRunLoop &) = delete;
    CArchiveRunLoop &operator=(const CArchiveRunLoop &) = delete;

    // Takes over the archive's end callback, calls `start` (which starts
    // one threaded operation of `archive` and says whether it started) and
    // waits for the end. The progress window of the run is disposed of.
    ARCHIVE_RUN_OUTCOME Run(CArchive &archive, const std::function<bool()> &start);

    // Runs `work`, a blocking call of the archive's engine session such as a
    // conversion, on a helper thread while this thread pumps, with the
    // archive object's notifications installed so that an interrupt
    // reaches the engine through CArchive::Cancel. Succeeded when `work`
    // returns true, interrupted when it did not after an interrupt, failed
    // otherwise.
    ARCHIVE_RUN_OUTCOME RunBlocking(CArchive &archive, const std::function<bool()> &work);

    // Pumps messages until the archive's worker is idle; for owners that
    // are about to delete an archive.
    static void WaitUntilIdle(CArchive &archive);

    // Asks the running operation to stop at the next turn of the pump;
    // safe from a signal handler and from any thread.
    static void RequestInterrupt();

    // Takes an interrupt that came while no run was going, such as Ctrl-C
    // at a prompt before a run; true when one had come. The next run would
    // drop it.
    static bool TakeInterrupt();

private:
    static void OnEnd(void *context, bool cancelled);
    ARCHIVE_RUN_OUTCOME WaitForEnd(CArchive &archive);
    // Pumps until `done`, cancelling the archive at an interrupt.
    void PumpUntil(CArchive &archive, const std::function<bool()> &done);

    bool ended_ = false;
    bool endCancelled_ = false;
    bool interrupted_ = false;
    bool catchInterrupt_;
    void (*previousHandler_)(int) = nullptr;
};
