// One run of an archive operation as the caller's notifications see it:
// cancellation, the work pulse, the current item, the counters, conflicts
// and passwords. Notifications go out from one thread at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "LibArchive.h"
#include "Result.h"
#include "Session.h"

struct OpaqueArchiveObject;
struct OpaqueNotificationContext;

namespace engine {

class Operation {
public:
    explicit Operation(Session &session);
    Operation(const Operation &) = delete;
    Operation &operator=(const Operation &) = delete;

    Session &session() const { return session_; }
    const EngineSettings &settings() const { return settings_; }

    bool Cancelled() const { return cancelled_.load(std::memory_order_relaxed); }
    // kEngineCancelled once any notification answered 2, else 0.
    Result Status() const { return Cancelled() ? kEngineCancelled : kEngineOK; }

    // Calls the procedure installed for the pair; 0 when there is none. A
    // stop answer cancels the operation.
    std::int32_t Raise(std::int32_t category, std::int32_t event,
                       OpaqueNotificationContext &context);
    // A pair without keys whose only answer is "stop".
    Result Pulse(std::int32_t category, std::int32_t event);

    // (1,1) once a 64 KiB of work has passed since the last one.
    Result Work(std::uint64_t bytes);
    // (100,4), (100,8): phases, no more often than every 50 ms.
    Result Scanning();
    Result Verifying(std::uint64_t bytes);
    Result WritingCatalogue() { return Pulse(kNotifyProgressCategory, kNotifyWritingCatalogue); }
    // (100,6) with the item's name.
    Result CurrentItem(const std::wstring &name);

    // Counters of (100,7): files done and in all, bytes read, written and in
    // all. Read and written each reach the total when Finish is called.
    void SetTotals(std::uint64_t files, std::uint64_t bytes);
    void AddRead(std::uint64_t bytes) { read_ += bytes; }
    void AddWritten(std::uint64_t bytes) { written_ += bytes; }
    void FileDone() { filesDone_ += 1; }
    Result Counters(bool force = false);
    Result FinishCounters();

    // (1,3): the target exists. `existing` is the file on disk (expanding) or
    // the incoming file (adding); `item` the item concerned. Gives the answer
    // set on the answer handle, or `fallback` when none was set.
    Result AskConflict(const std::wstring &existing, OpaqueArchiveObject *item,
                       std::int32_t fallback, std::int32_t &answer);
    // (200,9): gives the password for `item`. kEnginePasswordNeeded when the
    // procedure did not answer, kEngineCancelled on stop.
    Result AskPassword(OpaqueArchiveObject *item, std::wstring &password);

private:
    bool Due(std::chrono::steady_clock::time_point &last);

    Utf8LocaleScope locale_;
    Session &session_;
    EngineSettings settings_;
    std::atomic<bool> cancelled_{false};
    std::recursive_mutex notifyMutex_;
    std::uint64_t workSinceLast_ = 0;
    std::uint64_t verifySinceLast_ = 0;
    std::chrono::steady_clock::time_point lastScan_{};
    std::chrono::steady_clock::time_point lastCounters_{};
    std::chrono::steady_clock::time_point lastVerify_{};
    std::atomic<std::uint64_t> filesDone_{0}, filesTotal_{0}, read_{0}, written_{0}, bytesTotal_{0};
};

}  // namespace engine
