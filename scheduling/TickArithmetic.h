// Tick counts are 64-bit and wrap, as two's complement arithmetic does,
// where a far date or a long span leaves their range; the language would
// call a plain overflow undefined.
#pragma once

#include <cstdint>

namespace wrapping {

inline std::int64_t Add(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

inline std::int64_t Subtract(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

inline std::int64_t Multiply(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

}  // namespace wrapping
