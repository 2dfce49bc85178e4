// Text made smaller before an LZ coder sees it: the identifiers a block
// repeats most are replaced by codes of one or two bytes, and the list of
// them goes in front. An LZ coder spends fewer bits on such a code than on a
// short match or on the word's letters, and searches a third fewer bytes.
//
// The transformed form: the number of one-byte words (a byte, at most 64),
// of two-byte words (two bytes, little-endian, at most 16128), the words
// each ended by a line feed, then the text. In the text, bytes below 0x80
// are themselves; 0x80 + n is one-byte word n; 0xC0 + h followed by l is
// two-byte word 256 h + l (h below 63); 0xFF followed by a byte of 0x80 or
// more is that byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Result.h"

namespace engine::vnkx {

class WordTransform {
public:
    static constexpr std::size_t kOneByteWords = 64;
    static constexpr std::size_t kTwoByteWords = 63 * 256;
    static constexpr std::size_t kLongestWord = 64;

    // The largest transformed form of `size` bytes: every listed word at its
    // longest, and an escape for one byte in 64.
    static constexpr std::uint64_t LargestForm(std::uint64_t size) {
        return 3 + (kOneByteWords + kTwoByteWords) * (kLongestWord + 1) + size + size / 64;
    }

    // False when the text does not suit: more than one byte in 64 at 0x80 or
    // above (each needs an escape) or no word recurs enough to earn a code.
    static bool Encode(const std::uint8_t *data, std::size_t size, std::vector<std::uint8_t> &out);
    // kEngineItemDataDamaged unless `in` is a transformed form of exactly
    // `outSize` bytes.
    static Result Decode(const std::uint8_t *in, std::size_t size, std::uint8_t *out,
                         std::size_t outSize);
};

}  // namespace engine::vnkx
