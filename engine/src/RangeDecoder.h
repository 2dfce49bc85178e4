// Reads what RangeEncoder wrote. Past the end of its input it reads zero
// bytes and counts them, so a cut stream decodes to wrong symbols that the
// caller rejects, never to a read outside the buffer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace engine::vnkx {

class RangeDecoder {
public:
    static constexpr std::uint32_t kTop = 1u << 24;
    static constexpr int kProbabilityBits = 14;

    RangeDecoder(const std::uint8_t *in, std::size_t size) : in_(in), end_(in + size) {
        for (int i = 0; i < 5; ++i) code_ = (code_ << 8) | Next();
    }

    // The frequency the next symbol lies at; at least `total` only in a
    // damaged stream.
    std::uint32_t Threshold(std::uint32_t total) {
        range_ /= total;
        return code_ / range_;
    }
    void Decode(std::uint32_t start, std::uint32_t size) {
        code_ -= start * range_;
        range_ *= size;
        Normalize();
    }
    int DecodeBit(std::uint32_t zero) {
        std::uint32_t bound = (range_ >> kProbabilityBits) * zero;
        int bit = 0;
        if (code_ < bound) {
            range_ = bound;
        } else {
            code_ -= bound;
            range_ -= bound;
            bit = 1;
        }
        Normalize();
        return bit;
    }
    // More bytes were needed than the input has.
    bool Overrun() const { return missing_ != 0; }

private:
    std::uint8_t Next() {
        if (in_ != end_) return *in_++;
        ++missing_;
        return 0;
    }
    void Normalize() {
        while (range_ < kTop) {
            code_ = (code_ << 8) | Next();
            range_ <<= 8;
        }
    }

    const std::uint8_t *in_, *end_;
    std::uint32_t code_ = 0, range_ = 0xFFFFFFFFu;
    std::size_t missing_ = 0;
};

}  // namespace engine::vnkx
