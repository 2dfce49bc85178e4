#include "Session.h"

#include <algorithm>

namespace engine {
namespace {

enum class ValueKind { Boolean, Integer, Text };

struct EnginePropertyRule {
    const char *name;
    ValueKind kind;
    PropertyValue initial;
};

const EnginePropertyRule kEngineProperties[] = {
    {kEnginePropUseThreads, ValueKind::Boolean, true},
    {kEnginePropIgnoreReturnReceipts, ValueKind::Boolean, true},
    {kEnginePropSaveComments, ValueKind::Boolean, true},
    {kEnginePropNoRecompression, ValueKind::Boolean, false},
    {kEnginePropExpansionOptions, ValueKind::Integer, std::int32_t{0}},
    {kEnginePropConflictResolution, ValueKind::Integer, std::int32_t{kResolutionAsk}},
    {kEnginePropDuplicateResolution, ValueKind::Integer, std::int32_t{kResolutionKeepBoth}},
    {kEnginePropDeleteAction, ValueKind::Integer, std::int32_t{0}},
    {kEnginePropPreserveMacResource, ValueKind::Integer, std::int32_t{0}},
    {kEnginePropCreateFolderMethod, ValueKind::Integer, std::int32_t{kCreateFolderNever}},
    {kEnginePropPostEncodingFormat, ValueKind::Text, std::string()},
};

struct FormatPropertyRule {
    const char *name;
    ValueKind kind;
};

const FormatPropertyRule kFormatProperties[] = {
    {kFormatPropCompMethod, ValueKind::Integer},
    {kFormatPropCompressionLevel, ValueKind::Integer},
    {kFormatPropCompExtent, ValueKind::Integer},
    {kFormatPropEncodeLevel, ValueKind::Integer},
    {kFormatPropRedundancyLevel, ValueKind::Integer},
    {kFormatPropMaxVersion, ValueKind::Integer},
    {kFormatPropCompressionDegree, ValueKind::Integer},
    {kFormatPropRecompression, ValueKind::Integer},
    {kFormatPropRecompressionLevel, ValueKind::Integer},
    {kFormatPropEncryptMethod, ValueKind::Integer},
    {kFormatPropKeySize, ValueKind::Integer},
    {kFormatPropThumbNails, ValueKind::Boolean},
    {kFormatPropFoldDuplicates, ValueKind::Boolean},
    {kFormatPropFilters, ValueKind::Boolean},
    {kFormatPropRecompressArchives, ValueKind::Boolean},
    {kFormatPropBlockMode, ValueKind::Boolean},
    {kFormatPropEncryptArchive, ValueKind::Boolean},
    {kFormatPropSelfExtracting, ValueKind::Boolean},
};

ValueKind KindOf(const PropertyValue &value) {
    if (std::holds_alternative<bool>(value)) return ValueKind::Boolean;
    if (std::holds_alternative<std::int32_t>(value)) return ValueKind::Integer;
    return ValueKind::Text;
}

bool InRange(std::int32_t value, std::int32_t least, std::int32_t most) {
    return value >= least && value <= most;
}

// Values outside what a property means are refused rather than kept.
bool ValidEngineValue(std::string_view name, const PropertyValue &value) {
    if (!std::holds_alternative<std::int32_t>(value)) return true;
    std::int32_t v = std::get<std::int32_t>(value);
    std::int32_t method = v & ~kResolutionMergeFolders;
    if (name == kEnginePropConflictResolution) return InRange(method, 1, 4);
    if (name == kEnginePropDuplicateResolution)
        return InRange(method, 1, 4) || method == kResolutionAskDuplicate;
    if (name == kEnginePropDeleteAction) return InRange(v, 0, 1);
    if (name == kEnginePropPreserveMacResource) return InRange(v, 0, 2);
    if (name == kEnginePropCreateFolderMethod) return InRange(v, 0, 2);
    return true;
}

const char *const kPostEncodings[] = {"", "gz", "bz2", "compress", "xz", "lzma", "zstd", "lz4"};

}  // namespace

std::int32_t IntegerOf(const PropertyMap &map, std::string_view name, std::int32_t fallback) {
    auto found = map.find(name);
    if (found == map.end() || !std::holds_alternative<std::int32_t>(found->second)) return fallback;
    return std::get<std::int32_t>(found->second);
}

bool BooleanOf(const PropertyMap &map, std::string_view name, bool fallback) {
    auto found = map.find(name);
    if (found == map.end() || !std::holds_alternative<bool>(found->second)) return fallback;
    return std::get<bool>(found->second);
}

Session::Session() : OpaqueEngineObject(kKind) {
    for (const auto &rule : kEngineProperties) engineProperties_[rule.name] = rule.initial;
}

Result Session::SetEngineProperty(std::string_view name, PropertyValue value) {
    auto rule = std::find_if(std::begin(kEngineProperties), std::end(kEngineProperties),
                             [&](const EnginePropertyRule &s) { return name == s.name; });
    if (rule == std::end(kEngineProperties)) return kEnginePropertyNotApplicable;
    if (rule->kind != KindOf(value)) return kEngineInvalidParameter;
    if (!ValidEngineValue(name, value)) return kEngineInvalidParameter;
    if (name == kEnginePropPostEncodingFormat) {
        const std::string &id = std::get<std::string>(value);
        if (std::none_of(std::begin(kPostEncodings), std::end(kPostEncodings),
                         [&](const char *known) { return id == known; }))
            return kEngineWrongFormat;
    }
    std::lock_guard lock(mutex_);
    engineProperties_[std::string(name)] = std::move(value);
    return kEngineOK;
}

EngineSettings Session::Settings() const {
    std::lock_guard lock(mutex_);
    EngineSettings s;
    s.useThreads = BooleanOf(engineProperties_, kEnginePropUseThreads, true);
    s.noRecompression = BooleanOf(engineProperties_, kEnginePropNoRecompression, false);
    s.saveComments = BooleanOf(engineProperties_, kEnginePropSaveComments, true);
    s.conflictResolution =
        IntegerOf(engineProperties_, kEnginePropConflictResolution, kResolutionAsk);
    s.duplicateResolution =
        IntegerOf(engineProperties_, kEnginePropDuplicateResolution, kResolutionKeepBoth);
    s.deleteAction = IntegerOf(engineProperties_, kEnginePropDeleteAction, 0);
    s.preserveMacResource = IntegerOf(engineProperties_, kEnginePropPreserveMacResource, 0);
    s.createFolderMethod = IntegerOf(engineProperties_, kEnginePropCreateFolderMethod, 0);
    auto post = engineProperties_.find(kEnginePropPostEncodingFormat);
    if (post != engineProperties_.end() && std::holds_alternative<std::string>(post->second))
        s.postEncodingFormat = std::get<std::string>(post->second);
    return s;
}

Result Session::SetFormatProperty(std::string_view formatId, std::string_view name,
                                  PropertyValue value) {
    auto rule = std::find_if(std::begin(kFormatProperties), std::end(kFormatProperties),
                             [&](const FormatPropertyRule &s) { return name == s.name; });
    if (rule == std::end(kFormatProperties)) return kEnginePropertyNotApplicable;
    if (rule->kind != KindOf(value)) return kEngineInvalidParameter;
    std::lock_guard lock(mutex_);
    auto format = formatProperties_.find(formatId);
    if (format == formatProperties_.end())
        format = formatProperties_.emplace(std::string(formatId), PropertyMap()).first;
    format->second[std::string(name)] = std::move(value);
    return kEngineOK;
}

PropertyMap Session::FormatProperties(std::string_view formatId) const {
    std::lock_guard lock(mutex_);
    auto format = formatProperties_.find(formatId);
    return format == formatProperties_.end() ? PropertyMap() : format->second;
}

void Session::Install(std::int32_t category, std::int32_t event, NotificationHandler handler) {
    std::lock_guard lock(mutex_);
    notifications_[{category, event}] = handler;
}

void Session::Remove(std::int32_t category, std::int32_t event) {
    std::lock_guard lock(mutex_);
    notifications_.erase({category, event});
}

std::optional<NotificationHandler> Session::Handler(std::int32_t category,
                                                    std::int32_t event) const {
    std::lock_guard lock(mutex_);
    auto found = notifications_.find({category, event});
    if (found == notifications_.end()) return std::nullopt;
    return found->second;
}

void Session::AddFilter(OpaqueCompressionFilter *filter) {
    std::lock_guard lock(mutex_);
    filters_.push_back(Ref<OpaqueCompressionFilter>::Share(filter));
}

bool Session::RemoveFilter(OpaqueCompressionFilter *filter) {
    std::lock_guard lock(mutex_);
    auto found = std::find_if(filters_.begin(), filters_.end(),
                              [&](const auto &f) { return f.get() == filter; });
    if (found == filters_.end()) return false;
    filters_.erase(found);
    return true;
}

std::vector<Ref<OpaqueCompressionFilter>> Session::Filters() const {
    std::lock_guard lock(mutex_);
    return filters_;
}

}  // namespace engine
