#include "LongMatchFinder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace engine::vnkx {
namespace {

constexpr std::uint64_t kBase = 0x100000001B3ULL;
constexpr std::uint32_t kEmpty = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kMostSlots = std::size_t{16} << 20;

// A polynomial hash over a window, so the next window's hash follows from
// this one's with one byte out and one in. Bytes count from 1, so that a
// run of zeros does not hash like a shorter one.
class RollingHash {
public:
    explicit RollingHash(std::uint32_t length) : length_(length) {
        for (std::uint32_t i = 1; i < length; ++i) outFactor_ *= kBase;
    }
    std::uint64_t Of(const std::uint8_t *window) const {
        std::uint64_t hash = 0;
        for (std::uint32_t i = 0; i < length_; ++i) hash = hash * kBase + window[i] + 1;
        return hash;
    }
    std::uint64_t Next(std::uint64_t hash, std::uint8_t out, std::uint8_t in) const {
        return (hash - (out + 1ULL) * outFactor_) * kBase + in + 1;
    }

private:
    std::uint32_t length_;
    std::uint64_t outFactor_ = 1;
};

}  // namespace

LongMatchFinder::LongMatchFinder(std::uint32_t minimumLength)
    : minimum_(std::clamp<std::uint32_t>(minimumLength, 16, 4096)) {}

std::size_t LongMatchFinder::TableSlots(std::size_t size) const {
    std::size_t inserted = size / (minimum_ / 2) + 1;
    return std::clamp<std::size_t>(std::bit_ceil(2 * inserted), 1024, kMostSlots);
}

std::vector<LongMatch> LongMatchFinder::Find(const std::uint8_t *data, std::size_t size) const {
    std::vector<LongMatch> matches;
    if (size < minimum_ || size >= kEmpty) return matches;
    const std::size_t slots = TableSlots(size);
    const int shift = 64 - std::countr_zero(slots);
    auto slotOf = [shift](std::uint64_t hash) {
        return static_cast<std::size_t>((hash * 0x9E3779B97F4A7C15ULL) >> shift);
    };
    // Only every step-th position is remembered: a repeat at least
    // minimum + step - 1 long still holds a remembered window whole.
    const std::size_t step = minimum_ / 2;
    std::vector<std::uint32_t> table(slots, kEmpty);
    // Most windows were never seen: a bit per window hash, four times as
    // many bits as slots, answers that from the core's own cache before the
    // table (far larger) is touched.
    const std::size_t filterBits = slots * 4;
    const int filterShift = 64 - std::countr_zero(filterBits);
    std::vector<std::uint64_t> seen(filterBits / 64, 0);
    auto bitOf = [filterShift](std::uint64_t hash) {
        return static_cast<std::size_t>((hash * 0xD6E8FEB86659FD93ULL) >> filterShift);
    };
    const RollingHash rolling(minimum_);
    const std::size_t lastWindow = size - minimum_;

    std::size_t literalsFrom = 0;
    std::size_t at = 0, nextInserted = 0;
    std::uint64_t hash = rolling.Of(data);
    for (;;) {
        const std::size_t bit = bitOf(hash);
        const bool maybeSeen = (seen[bit / 64] >> (bit % 64)) & 1;
        if (!maybeSeen && at != nextInserted) {
            if (at == lastWindow) break;
            hash = rolling.Next(hash, data[at], data[at + minimum_]);
            ++at;
            continue;
        }
        std::uint32_t &slot = table[slotOf(hash)];
        std::size_t from = slot;
        if (maybeSeen && slot != kEmpty && std::memcmp(data + from, data + at, minimum_) == 0) {
            std::size_t start = at;
            while (start > literalsFrom && from > 0 && data[start - 1] == data[from - 1]) {
                --start;
                --from;
            }
            std::size_t end = at + minimum_;
            while (end < size && data[end] == data[end - start + from]) ++end;
            matches.push_back(LongMatch{static_cast<std::uint32_t>(start - literalsFrom),
                                        static_cast<std::uint32_t>(start - from),
                                        static_cast<std::uint32_t>(end - start)});
            literalsFrom = at = end;
            if (at > lastWindow) break;
            hash = rolling.Of(data + at);
            nextInserted = (at + step - 1) / step * step;
            continue;
        }
        if (at == nextInserted) {
            nextInserted += step;
            slot = static_cast<std::uint32_t>(at);
            seen[bit / 64] |= 1ULL << (bit % 64);
        }
        if (at == lastWindow) break;
        hash = rolling.Next(hash, data[at], data[at + minimum_]);
        ++at;
    }
    return matches;
}

}  // namespace engine::vnkx
