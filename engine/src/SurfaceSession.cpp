// The C surface: session, version, properties, formats, notifications and
// compression filters.
#include <malloc.h>

#include <cstring>
#include <mutex>

#include "Archive.h"
#include "Driver.h"
#include "Handles.h"
#include "Session.h"
#include "Surface.h"

using namespace engine;

namespace {

bool KnownFormat(const char *formatId) { return formatId && DriverFor(formatId) != nullptr; }

// Blocks, items and coder tables are buffers of megabytes, allocated and
// freed by the hundred on several threads. glibc raises its threshold for
// mapping an allocation of its own each time such a buffer is freed, after
// which they come from the threads' heaps and stay resident when freed: the
// defaults' run on the bench peaked at 247 MB where 179 MB were ever in use
// at once. A fixed threshold hands them back to the system when freed.
void ReturnLargeBuffersWhenFreed() {
    static std::once_flag once;
    std::call_once(once, [] { mallopt(M_MMAP_THRESHOLD, 1 << 20); });
}

}  // namespace

extern "C" {

EngineResult OpenVarnickEngine(OpaqueEngineObject **engine, const char *) {
    if (!engine) return kEngineInvalidParameter;
    ReturnLargeBuffersWhenFreed();
    *engine = new Session();
    return kEngineOK;
}

EngineResult CloseVarnickEngine(OpaqueEngineObject *engine) {
    Session *session = SessionOf(engine);
    if (!session) return kEngineInvalidParameter;
    session->Release();
    return kEngineOK;
}

EngineResult GetVersionInfo(OpaqueEngineObject *engine, uint16_t *major, uint16_t *minor,
                            uint16_t *revision, uint16_t *build) {
    if (engine && !SessionOf(engine)) return kEngineInvalidParameter;
    if (!major || !minor || !revision || !build) return kEngineInvalidParameter;
    *major = VARNICK_ENGINE_VERSION_MAJOR;
    *minor = VARNICK_ENGINE_VERSION_MINOR;
    *revision = VARNICK_ENGINE_VERSION_REVISION;
    *build = VARNICK_ENGINE_VERSION_BUILD;
    return kEngineOK;
}

EngineResult SetEngineBooleanProperty(OpaqueEngineObject *engine, const char *name, bool value) {
    Session *session = SessionOf(engine);
    if (!session || !name) return kEngineInvalidParameter;
    return session->SetEngineProperty(name, value);
}

EngineResult SetEngineIntegerProperty(OpaqueEngineObject *engine, const char *name, int32_t value) {
    if (!name) return kEngineInvalidParameter;
    if (IsLive(engine, Kind::ConflictAnswer)) {
        if (std::strcmp(name, kEnginePropConflictResolution) != 0)
            return kEnginePropertyNotApplicable;
        std::int32_t method = value & ~kResolutionMergeFolders;
        if (method < 1 || method > 4) return kEngineInvalidParameter;
        static_cast<ConflictAnswer *>(engine)->resolution = value;
        return kEngineOK;
    }
    Session *session = SessionOf(engine);
    if (!session) return kEngineInvalidParameter;
    return session->SetEngineProperty(name, value);
}

EngineResult SetEngineFormatIDProperty(OpaqueEngineObject *engine, const char *name,
                                       const char *formatId) {
    Session *session = SessionOf(engine);
    if (!session || !name || !formatId) return kEngineInvalidParameter;
    if (std::strcmp(name, kEnginePropPostEncodingFormat) != 0) return kEnginePropertyNotApplicable;
    return session->SetEngineProperty(name, std::string(formatId));
}

EngineResult SetFormatBooleanProperty(OpaqueEngineObject *engine, const char *formatId,
                                      const char *name, bool value) {
    Session *session = SessionOf(engine);
    if (!session || !name) return kEngineInvalidParameter;
    if (!KnownFormat(formatId)) return kEngineWrongFormat;
    return session->SetFormatProperty(formatId, name, value);
}

EngineResult SetFormatIntegerProperty(OpaqueEngineObject *engine, const char *formatId,
                                      const char *name, int32_t value) {
    Session *session = SessionOf(engine);
    if (!session || !name) return kEngineInvalidParameter;
    if (!KnownFormat(formatId)) return kEngineWrongFormat;
    return session->SetFormatProperty(formatId, name, value);
}

EngineResult GetFormatIntegerProperty(OpaqueEngineObject *engine, const char *formatId,
                                      const char *name, int32_t *value) {
    Session *session = SessionOf(engine);
    if (!session || !name || !value) return kEngineInvalidParameter;
    if (!KnownFormat(formatId)) return kEngineWrongFormat;
    return DriverFor(formatId)->FormatValue(formatId, session->FormatProperties(formatId), name,
                                            *value);
}

EngineResult DetermineFileFormat(OpaqueEngineObject *engine, FSObject file,
                                 EngineFormatId formatId) {
    OpaqueFSObject *object = Checked(file);
    if (!SessionOf(engine) || !object || !formatId) return kEngineInvalidParameter;
    std::string id;
    if (Result result = DetermineFormat(object->Native(), id)) return result;
    std::memset(formatId, 0, kEngineFormatIdSize);
    std::strncpy(formatId, id.c_str(), kEngineFormatIdSize - 1);
    return kEngineOK;
}

EngineResult GetArchiveFormatMaximumAccessMode(OpaqueEngineObject *engine, const char *formatId,
                                               uint16_t *mode) {
    if (!SessionOf(engine) || !formatId || !mode) return kEngineInvalidParameter;
    const Driver *driver = DriverFor(formatId);
    if (!driver) return kEngineWrongFormat;
    *mode = driver->MaximumAccessMode(formatId);
    return kEngineOK;
}

EngineResult InstallNotification(OpaqueEngineObject *engine, int32_t category, int32_t event,
                                 EngineNotificationProc procedure, void *userData) {
    Session *session = SessionOf(engine);
    if (!session || !procedure) return kEngineInvalidParameter;
    session->Install(category, event, NotificationHandler{procedure, userData});
    return kEngineOK;
}

EngineResult RemoveNotification(OpaqueEngineObject *engine, int32_t category, int32_t event) {
    Session *session = SessionOf(engine);
    if (!session) return kEngineInvalidParameter;
    session->Remove(category, event);
    return kEngineOK;
}

EngineResult GetDataFromContext(NotificationContext context, int32_t key, void *buffer,
                                uint32_t size) {
    OpaqueNotificationContext *data = Checked(context);
    if (!data || !buffer) return kEngineInvalidParameter;
    auto slot = data->slots.find(key);
    if (slot == data->slots.end()) return kEnginePropertyAbsent;
    if (slot->second.counter) {
        if (size != sizeof(std::uint64_t)) return kEngineInvalidParameter;
        std::memcpy(buffer, &slot->second.value, sizeof(std::uint64_t));
    } else {
        if (size != sizeof(void *)) return kEngineInvalidParameter;
        std::memcpy(buffer, &slot->second.handle, sizeof(void *));
    }
    return kEngineOK;
}

EngineResult SetDataInContext(NotificationContext context, int32_t key, const void *buffer,
                              uint32_t size) {
    OpaqueNotificationContext *data = Checked(context);
    if (!data || !buffer || size != sizeof(void *)) return kEngineInvalidParameter;
    void *handle = nullptr;
    std::memcpy(&handle, buffer, sizeof(void *));
    Kind wanted;
    int slot;
    if (key == kContextPassword) {
        wanted = Kind::StringRef;
        slot = 0;
    } else if (key == kContextLocation) {
        wanted = Kind::FSObject;
        slot = 1;
    } else {
        return kEnginePropertyNotApplicable;
    }
    if (!IsLive(handle, wanted)) return kEngineInvalidParameter;
    if (data->written[slot] && data->written[slot] != handle) data->written[slot]->Release();
    data->written[slot] = static_cast<Object *>(handle);
    return kEngineOK;
}

EngineResult AddCompressionFilter(OpaqueEngineObject *engine, EngineCompressionFilterProc procedure,
                                  void *userData, CompressionFilter *filter) {
    Session *session = SessionOf(engine);
    if (!session || !procedure || !filter) return kEngineInvalidParameter;
    auto *installed = new OpaqueCompressionFilter(procedure, userData);
    session->AddFilter(installed);  // the session's reference
    *filter = installed;            // and the caller's
    return kEngineOK;
}

EngineResult RemoveCompressionFilter(OpaqueEngineObject *engine, CompressionFilter filter) {
    Session *session = SessionOf(engine);
    OpaqueCompressionFilter *installed = Checked(filter);
    if (!session || !installed) return kEngineInvalidParameter;
    if (!session->RemoveFilter(installed)) return kEngineInvalidParameter;
    installed->Release();
    return kEngineOK;
}

}  // extern "C"
