// Compression methods of a format with their level and extent ranges, as
// the format properties report them.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "Result.h"
#include "Session.h"

namespace engine {

struct MethodProfile {
    std::int32_t method;
    std::int32_t levelLeast, levelMost, levelDefault;     // -1 for a method without levels
    std::int32_t extentLeast, extentMost, extentDefault;  // log2 of window or block
};

struct FormatProfile {
    std::int32_t defaultMethod;
    std::vector<MethodProfile> methods;
    // Key size in bits by "encryptMethod" (index), 0 for none.
    std::vector<std::int32_t> keySizes;
};

// Values of a format's properties: what was set, or the defaults and ranges
// of the current method.
Result ProfileValue(const FormatProfile &profile, const PropertyMap &properties,
                    std::string_view name, std::int32_t &value);
const MethodProfile *CurrentMethod(const FormatProfile &profile, const PropertyMap &properties);

// Memory a write may take: half of what the machine has.
std::uint64_t WriteMemoryAllowed();

}  // namespace engine
