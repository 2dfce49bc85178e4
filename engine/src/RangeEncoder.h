// A byte-oriented range coder over 32 bits with a carry: the interval is
// narrowed by frequencies (start, size, total) or by a 14-bit probability,
// and bytes leave as soon as they can no longer change but for a carry.
#pragma once

#include <cstdint>
#include <vector>

namespace engine::vnkx {

class RangeEncoder {
public:
    static constexpr std::uint32_t kTop = 1u << 24;
    static constexpr int kProbabilityBits = 14;

    explicit RangeEncoder(std::vector<std::uint8_t> &out) : out_(out) {}

    void Encode(std::uint32_t start, std::uint32_t size, std::uint32_t total) {
        range_ /= total;
        low_ += static_cast<std::uint64_t>(start) * range_;
        range_ *= size;
        Normalize();
    }
    // `zero` is the probability of a 0, out of 1 << kProbabilityBits.
    void EncodeBit(std::uint32_t zero, int bit) {
        std::uint32_t bound = (range_ >> kProbabilityBits) * zero;
        if (bit) {
            low_ += bound;
            range_ -= bound;
        } else {
            range_ = bound;
        }
        Normalize();
    }
    void Flush() {
        for (int i = 0; i < 5; ++i) ShiftLow();
    }

private:
    void Normalize() {
        while (range_ < kTop) {
            range_ <<= 8;
            ShiftLow();
        }
    }
    // The top byte waits in `cache_` (with a run of FF bytes behind it)
    // until it is known whether a carry will still reach it.
    void ShiftLow() {
        if (static_cast<std::uint32_t>(low_) < 0xFF000000u || (low_ >> 32) != 0) {
            auto carry = static_cast<std::uint8_t>(low_ >> 32);
            std::uint8_t pending = cache_;
            do {
                out_.push_back(static_cast<std::uint8_t>(pending + carry));
                pending = 0xFF;
            } while (--cacheSize_ != 0);
            cache_ = static_cast<std::uint8_t>(low_ >> 24);
        }
        ++cacheSize_;
        low_ = (low_ & 0x00FFFFFFu) << 8;
    }

    std::vector<std::uint8_t> &out_;
    std::uint64_t low_ = 0;
    std::uint32_t range_ = 0xFFFFFFFFu;
    std::uint8_t cache_ = 0;
    std::uint64_t cacheSize_ = 1;
};

}  // namespace engine::vnkx
