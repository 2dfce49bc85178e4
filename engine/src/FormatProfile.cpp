#include "FormatProfile.h"

#include <unistd.h>

namespace engine {

const MethodProfile *CurrentMethod(const FormatProfile &profile, const PropertyMap &properties) {
    std::int32_t method = IntegerOf(properties, kFormatPropCompMethod, profile.defaultMethod);
    for (const auto &m : profile.methods)
        if (m.method == method) return &m;
    return nullptr;
}

Result ProfileValue(const FormatProfile &profile, const PropertyMap &properties,
                    std::string_view name, std::int32_t &value) {
    const MethodProfile *method = CurrentMethod(profile, properties);
    if (name == kFormatPropCompMethod) {
        value = IntegerOf(properties, name, profile.defaultMethod);
        return kEngineOK;
    }
    if (name == kFormatPropEncryptMethod || name == kFormatPropKeySize) {
        value = IntegerOf(properties, name, 0);
        return kEngineOK;
    }
    if (name == kFormatPropKeySizeDefault) {
        std::int32_t encryption = IntegerOf(properties, kFormatPropEncryptMethod, 0);
        if (profile.keySizes.empty()) return kEnginePropertyNotApplicable;
        value = encryption >= 0 && static_cast<std::size_t>(encryption) < profile.keySizes.size()
                    ? profile.keySizes[static_cast<std::size_t>(encryption)]
                    : 0;
        return kEngineOK;
    }
    if (!method) return kEngineMethodUnsupported;
    struct Row {
        std::string_view name;
        std::int32_t MethodProfile::*field;
    };
    static const Row rows[] = {
        {kFormatPropCompressionLeast, &MethodProfile::levelLeast},
        {kFormatPropCompressionMost, &MethodProfile::levelMost},
        {kFormatPropCompressionDefault, &MethodProfile::levelDefault},
        {kFormatPropCompExtentLeast, &MethodProfile::extentLeast},
        {kFormatPropCompExtentMost, &MethodProfile::extentMost},
        {kFormatPropCompExtentDefault, &MethodProfile::extentDefault},
    };
    for (const auto &row : rows) {
        if (name == row.name) {
            value = method->*row.field;
            return kEngineOK;
        }
    }
    if (name == kFormatPropCompressionLevel) {
        value = IntegerOf(properties, name, method->levelDefault);
        return kEngineOK;
    }
    if (name == kFormatPropCompExtent) {
        value = IntegerOf(properties, name, method->extentDefault);
        return kEngineOK;
    }
    return kEnginePropertyNotApplicable;
}

std::uint64_t WriteMemoryAllowed() {
    long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) return 1ULL << 31;
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize) / 2;
}

}  // namespace engine
