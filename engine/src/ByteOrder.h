// Little-endian fields of the archive formats the engine reads itself.
#pragma once

#include <cstdint>

namespace engine {

inline std::uint16_t Le16(const std::uint8_t *p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}
inline std::uint32_t Le32(const std::uint8_t *p) {
    return Le16(p) | static_cast<std::uint32_t>(Le16(p + 2)) << 16;
}
inline std::uint64_t Le64(const std::uint8_t *p) {
    return Le32(p) | static_cast<std::uint64_t>(Le32(p + 4)) << 32;
}

}  // namespace engine
