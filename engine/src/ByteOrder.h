// Little-endian fields of the archive formats the engine reads and writes
// itself.
#pragma once

#include <cstdint>
#include <vector>

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

// Appended to `out`.
inline void Put16(std::vector<std::uint8_t> &out, std::uint32_t value) {
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}
inline void Put32(std::vector<std::uint8_t> &out, std::uint32_t value) {
    Put16(out, value & 0xFFFF);
    Put16(out, value >> 16);
}
inline void Put64(std::vector<std::uint8_t> &out, std::uint64_t value) {
    Put32(out, static_cast<std::uint32_t>(value));
    Put32(out, static_cast<std::uint32_t>(value >> 32));
}

}  // namespace engine
