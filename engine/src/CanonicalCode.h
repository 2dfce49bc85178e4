// A canonical Huffman code as deflate and the LZH family define it: shorter
// codes are smaller numbers, and the codes of one length are consecutive
// numbers given to its symbols in their order. Only the lengths travel.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace engine {

class CanonicalCode {
public:
    static constexpr unsigned kLongest = 16;

    // False for a length above kLongest or more codes than the lengths
    // allow. Fewer are taken (a block may have one distance code, or none):
    // a number never given out decodes to -1 when it is met.
    bool Build(const std::uint8_t *lengths, unsigned symbolCount) {
        count_.fill(0);
        symbols_.clear();
        for (unsigned s = 0; s < symbolCount; ++s) {
            if (lengths[s] > kLongest) return false;
            ++count_[lengths[s]];
        }
        count_[0] = 0;
        int left = 1;
        for (unsigned length = 1; length <= kLongest; ++length) {
            left = left * 2 - count_[length];
            if (left < 0) return false;
        }
        for (unsigned length = 1; length <= kLongest; ++length)
            for (unsigned s = 0; s < symbolCount; ++s)
                if (lengths[s] == length) symbols_.push_back(static_cast<std::uint16_t>(s));
        return true;
    }

    // Reads a code first bit first, `bit(i)` giving its i-th bit (0 or 1):
    // the symbol, or -1; `length` is how many bits it took.
    template <typename Bit>
    int Decode(Bit bit, unsigned &length) const {
        int value = 0, first = 0, index = 0;
        for (length = 1; length <= kLongest; ++length) {
            value |= bit(length - 1);
            int count = count_[length];
            if (value - first < count)
                return symbols_[static_cast<std::size_t>(index + value - first)];
            index += count;
            first = (first + count) << 1;
            value <<= 1;
        }
        return -1;
    }

    // Calls visit(symbol, code, length) for every symbol that has a code.
    template <typename Visit>
    void ForEachCode(Visit visit) const {
        unsigned code = 0, index = 0;
        for (unsigned length = 1; length <= kLongest; ++length, code <<= 1)
            for (unsigned i = 0; i < count_[length]; ++i) visit(symbols_[index++], code++, length);
    }

private:
    std::array<std::uint16_t, kLongest + 1> count_{};
    std::vector<std::uint16_t> symbols_;
};

}  // namespace engine
