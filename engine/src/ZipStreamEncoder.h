// The zip writer's compressors, one item at a time, fed in pieces: deflate
// (8), bzip2 (12), LZMA (14, with the zip header of its properties and an
// end marker), zstd (93) and xz (95). Whole small items of deflate take
// libdeflate instead (faster, and smaller); every other case comes here.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Result.h"

namespace engine {

class ZipStreamEncoder {
public:
    // Receives compressed bytes as they are made; a failure stops the item.
    using Sink = std::function<Result(const std::uint8_t *, std::size_t)>;

    // The "compMethod" of the zip format (1 deflate, 2 bzip2, 3 LZMA, 4 zstd,
    // 5 xz) at a level and an extent (log2 of the window or dictionary);
    // null for another method or when the coder cannot start.
    static std::unique_ptr<ZipStreamEncoder> Make(int compMethod, int level, int extent);
    virtual ~ZipStreamEncoder() = default;

    // The method number in the zip headers, the version a reader needs, and
    // the general purpose flags the method sets.
    virtual std::uint16_t Method() const = 0;
    virtual std::uint16_t VersionNeeded() const = 0;
    virtual std::uint16_t Flags() const { return 0; }

    // Codes `size` bytes; `last` ends the item (with or without bytes).
    virtual Result Code(const std::uint8_t *data, std::size_t size, bool last,
                        const Sink &sink) = 0;

    // A whole item in one call, into `out`.
    Result CodeWhole(const std::uint8_t *data, std::size_t size, std::vector<std::uint8_t> &out);
};

// The memory one encoder of the method takes at least (its dictionary's
// search structures); 0 where it is small whatever the settings.
std::uint64_t ZipEncoderMemory(int compMethod, int level, int extent);

}  // namespace engine
