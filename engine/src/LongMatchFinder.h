// Finds long repeats inside one block of text: headers, sources and logs
// repeat whole paragraphs far apart, which a context model alone codes
// again byte by byte. Only repeats of at least the minimum length count, so
// the search is a rolling hash over windows of that length with a sparse
// table, cheap enough to run ahead of a slow literal coder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace engine::vnkx {

// `literals` bytes as they are, then `length` bytes copied from `distance`
// bytes back (the copy may overlap what it makes).
struct LongMatch {
    std::uint32_t literals;
    std::uint32_t distance;
    std::uint32_t length;
};

class LongMatchFinder {
public:
    // Windows shorter than 16 bytes find matches too short to pay for
    // themselves; the caller's choice is kept within 16 to 4096.
    explicit LongMatchFinder(std::uint32_t minimumLength = kDefaultMinimum);

    // The matches of `data` in order; the bytes after the last one are
    // literals. Blocks above 4 GiB are not searched (no matches).
    std::vector<LongMatch> Find(const std::uint8_t *data, std::size_t size) const;

    // Slots of the hash table for a block of `size` bytes, a power of two:
    // twice the positions inserted, at most 16 Mi.
    std::size_t TableSlots(std::size_t size) const;
    std::uint32_t minimumLength() const { return minimum_; }

    static constexpr std::uint32_t kDefaultMinimum = 128;

private:
    std::uint32_t minimum_;
};

}  // namespace engine::vnkx
