#include "Operation.h"

#include "Archive.h"
#include "Handles.h"

namespace engine {
namespace {

constexpr std::uint64_t kWorkQuantum = 64 * 1024;
constexpr auto kProgressInterval = std::chrono::milliseconds(50);

}  // namespace

Operation::Operation(Session &session) : session_(session), settings_(session.Settings()) {}

std::int32_t Operation::Raise(std::int32_t category, std::int32_t event,
                              OpaqueNotificationContext &context) {
    auto handler = session_.Handler(category, event);
    if (!handler || !handler->procedure) return kNotificationNotHandled;
    std::lock_guard lock(notifyMutex_);
    std::int32_t answer = handler->procedure(category, event, &context, handler->userData);
    if (answer == kNotificationStop) cancelled_ = true;
    return answer;
}

Result Operation::Pulse(std::int32_t category, std::int32_t event) {
    if (Cancelled()) return kEngineCancelled;
    OpaqueNotificationContext context;
    Raise(category, event, context);
    return Status();
}

bool Operation::Due(std::chrono::steady_clock::time_point &last) {
    auto now = std::chrono::steady_clock::now();
    if (now - last < kProgressInterval) return false;
    last = now;
    return true;
}

Result Operation::Work(std::uint64_t bytes) {
    if (Cancelled()) return kEngineCancelled;
    workSinceLast_ += bytes;
    if (workSinceLast_ < kWorkQuantum) return kEngineOK;
    workSinceLast_ = 0;
    return Pulse(kNotifyWorkCategory, kNotifyWorkUnit);
}

Result Operation::Scanning() {
    if (Cancelled()) return kEngineCancelled;
    if (!Due(lastScan_)) return kEngineOK;
    return Pulse(kNotifyProgressCategory, kNotifyScanning);
}

Result Operation::Verifying(std::uint64_t bytes) {
    if (Cancelled()) return kEngineCancelled;
    verifySinceLast_ += bytes;
    if (verifySinceLast_ < kWorkQuantum && !Due(lastVerify_)) return kEngineOK;
    verifySinceLast_ = 0;
    return Pulse(kNotifyProgressCategory, kNotifyVerifying);
}

Result Operation::CurrentItem(const std::wstring &name) {
    if (Cancelled()) return kEngineCancelled;
    Ref<OpaqueStringRef> text = NewString(name);
    OpaqueNotificationContext context;
    context.PutHandle(kContextName, text.get());
    Raise(kNotifyProgressCategory, kNotifyCurrentItem, context);
    return Status();
}

void Operation::SetTotals(std::uint64_t files, std::uint64_t bytes) {
    filesTotal_ = files;
    bytesTotal_ = bytes;
}

Result Operation::Counters(bool force) {
    if (Cancelled()) return kEngineCancelled;
    if (!Due(lastCounters_) && !force) return kEngineOK;
    OpaqueNotificationContext context;
    std::uint64_t total = bytesTotal_;
    // A format that does not say its sizes in advance can run past them.
    std::uint64_t read = read_, written = written_;
    if (read > total) total = read;
    if (written > total) total = written;
    context.PutCounter(kContextFilesDone, filesDone_);
    context.PutCounter(kContextFilesTotal, std::max<std::uint64_t>(filesTotal_, filesDone_));
    context.PutCounter(kContextBytesRead, read);
    context.PutCounter(kContextBytesWritten, written);
    context.PutCounter(kContextBytesTotal, total);
    Raise(kNotifyProgressCategory, kNotifyCounters, context);
    return Status();
}

Result Operation::FinishCounters() {
    std::uint64_t total = std::max({bytesTotal_.load(), read_.load(), written_.load()});
    bytesTotal_ = total;
    read_ = total;
    written_ = total;
    return Counters(true);
}

Result Operation::AskConflict(const std::wstring &existing, OpaqueArchiveObject *item,
                              std::int32_t fallback, std::int32_t &answer) {
    answer = fallback;
    if (Cancelled()) return kEngineCancelled;
    Ref<OpaqueFSObject> file = NewFSObject(existing);
    Ref<ConflictAnswer> reply = MakeRef<ConflictAnswer>();
    OpaqueNotificationContext context;
    context.PutHandle(kContextFSObject, file.get());
    context.PutHandle(kContextAnswerHandle, static_cast<OpaqueEngineObject *>(reply.get()));
    context.PutHandle(kContextArchiveObject, item);
    Raise(kNotifyWorkCategory, kNotifyTargetExists, context);
    if (Cancelled()) return kEngineCancelled;
    if (reply->resolution) answer = *reply->resolution;
    return kEngineOK;
}

Result Operation::AskPassword(OpaqueArchiveObject *item, std::wstring &password) {
    if (Cancelled()) return kEngineCancelled;
    OpaqueNotificationContext context;
    context.PutHandle(kContextArchiveObject, item);
    std::int32_t answer = Raise(kNotifyRequestCategory, kNotifyPasswordNeeded, context);
    if (Cancelled()) return kEngineCancelled;
    Object *written = context.TakeWritten(kContextPassword, Kind::StringRef);
    Ref<OpaqueStringRef> text =
        Ref<OpaqueStringRef>::Adopt(static_cast<OpaqueStringRef *>(written));
    if (answer == kNotificationNotHandled || !text) return kEnginePasswordNeeded;
    password = text->text;
    return kEngineOK;
}

}  // namespace engine
