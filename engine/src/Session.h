// One open engine: its properties (engine-wide and per format), its
// notification table and its compression filters. Everything here persists
// between operations of the session.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Object.h"
#include "Result.h"
#include "VarnickEngine.h"

struct OpaqueEngineObject : engine::Object {
    using engine::Object::Object;
};

struct OpaqueCompressionFilter : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::Filter;
    OpaqueCompressionFilter(EngineCompressionFilterProc procedure, void *userData)
        : Object(kKind), procedure(procedure), userData(userData) {}
    EngineCompressionFilterProc procedure;
    void *userData;
};

namespace engine {

using PropertyValue = std::variant<bool, std::int32_t, std::string>;
using PropertyMap = std::map<std::string, PropertyValue, std::less<>>;

struct NotificationHandler {
    EngineNotificationProc procedure = nullptr;
    void *userData = nullptr;
};

// The engine properties an operation reads, taken when it starts.
struct EngineSettings {
    bool useThreads = true;
    bool noRecompression = false;
    bool saveComments = true;
    std::int32_t conflictResolution = kResolutionAsk;
    std::int32_t duplicateResolution = kResolutionKeepBoth;
    std::int32_t deleteAction = 0;
    std::int32_t preserveMacResource = 0;
    std::int32_t createFolderMethod = kCreateFolderNever;
    std::string postEncodingFormat;
};

class Session final : public OpaqueEngineObject {
public:
    static constexpr Kind kKind = Kind::Session;
    Session();

    Result SetEngineProperty(std::string_view name, PropertyValue value);
    EngineSettings Settings() const;

    // Format properties: values set by the caller, read back over the
    // format's defaults by the drivers.
    Result SetFormatProperty(std::string_view formatId, std::string_view name, PropertyValue value);
    PropertyMap FormatProperties(std::string_view formatId) const;

    void Install(std::int32_t category, std::int32_t event, NotificationHandler handler);
    void Remove(std::int32_t category, std::int32_t event);
    std::optional<NotificationHandler> Handler(std::int32_t category, std::int32_t event) const;

    void AddFilter(OpaqueCompressionFilter *filter);
    bool RemoveFilter(OpaqueCompressionFilter *filter);
    std::vector<Ref<OpaqueCompressionFilter>> Filters() const;

private:
    mutable std::mutex mutex_;
    PropertyMap engineProperties_;
    std::map<std::string, PropertyMap, std::less<>> formatProperties_;
    std::map<std::pair<std::int32_t, std::int32_t>, NotificationHandler> notifications_;
    std::vector<Ref<OpaqueCompressionFilter>> filters_;
};

// The answer handle of a (1,3) notification: the caller sets
// "conflictResolution" on it.
class ConflictAnswer final : public OpaqueEngineObject {
public:
    static constexpr Kind kKind = Kind::ConflictAnswer;
    ConflictAnswer() : OpaqueEngineObject(kKind) {}
    std::optional<std::int32_t> resolution;
};

// Reads a typed value of a property map, or `fallback`.
std::int32_t IntegerOf(const PropertyMap &map, std::string_view name, std::int32_t fallback);
bool BooleanOf(const PropertyMap &map, std::string_view name, bool fallback);

}  // namespace engine
