#include "Deflate64Decoder.h"

#include <algorithm>

namespace engine {
namespace {

constexpr std::size_t kInputChunk = 64 * 1024;
constexpr std::size_t kWindow = 1u << 16;  // the farthest distance, 65536
constexpr unsigned kLongestCode = 15;
constexpr unsigned kLiteralSymbols = 288, kDistanceSymbols = 32, kMostLiteralCodes = 286;

// Length symbols 257..285 and distance symbols 0..31: the base value and the
// extra bits after the symbol. Only the last length and the last two
// distances differ from deflate.
constexpr std::uint16_t kLengthBase[29] = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                           15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                           67, 83, 99, 115, 131, 163, 195, 227, 3};
constexpr std::uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                           2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 16};
constexpr std::uint32_t kDistanceBase[32] = {1,    2,    3,    4,     5,     7,     9,     13,
                                             17,   25,   33,   49,    65,    97,    129,   193,
                                             257,  385,  513,  769,   1025,  1537,  2049,  3073,
                                             4097, 6145, 8193, 12289, 16385, 24577, 32769, 49153};
constexpr std::uint8_t kDistanceExtra[32] = {0,  0,  0,  0,  1,  1,  2,  2,  3,  3, 4,
                                             4,  5,  5,  6,  6,  7,  7,  8,  8,  9, 9,
                                             10, 10, 11, 11, 12, 12, 13, 13, 14, 14};
// The order in which a dynamic block gives the lengths of the code-length code.
constexpr std::uint8_t kCodeLengthOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                               11, 4,  12, 3, 13, 2, 14, 1, 15};

unsigned Reversed(unsigned code, unsigned length) {
    unsigned reversed = 0;
    for (unsigned i = 0; i < length; ++i, code >>= 1) reversed = (reversed << 1) | (code & 1);
    return reversed;
}

}  // namespace

bool Deflate64Decoder::Code::Build(const std::uint8_t *lengths, unsigned symbolCount) {
    if (!canonical.Build(lengths, symbolCount)) return false;
    std::fill(std::begin(fast), std::end(fast), std::uint16_t{0});
    // Deflate sends a code's first bit lowest: a short code fills every
    // entry whose low bits are its bits reversed.
    canonical.ForEachCode([this](std::uint16_t symbol, unsigned code, unsigned length) {
        if (length > kFastBits) return;
        for (unsigned i = Reversed(code, length); i < (1u << kFastBits); i += 1u << length)
            fast[i] = static_cast<std::uint16_t>(symbol << 4 | length);
    });
    return true;
}

Deflate64Decoder::Deflate64Decoder(Source source)
    : source_(std::move(source)), input_(kInputChunk), window_(kWindow) {}

void Deflate64Decoder::Fill(unsigned count) {
    while (bitCount_ <= 56) {
        if (inputAt_ == inputEnd_ && !sourceEnded_) {
            inputAt_ = 0;
            inputEnd_ = source_(input_.data(), input_.size());
            sourceEnded_ = inputEnd_ == 0;
        }
        if (inputAt_ < inputEnd_) {
            bits_ |= static_cast<std::uint64_t>(input_[inputAt_++]) << bitCount_;
            bitCount_ += 8;
            continue;
        }
        if (bitCount_ >= count) return;
        bitCount_ += 8;  // zeros past the end
        paddedBits_ += 8;
    }
}

std::uint32_t Deflate64Decoder::Take(unsigned count) {
    auto value = static_cast<std::uint32_t>(bits_ & ((std::uint64_t{1} << count) - 1));
    bits_ >>= count;
    bitCount_ -= count;
    return value;
}

int Deflate64Decoder::Decode(const Code &code) {
    Fill(kLongestCode);
    if (std::uint16_t entry = code.fast[bits_ & ((1u << Code::kFastBits) - 1)]) {
        Take(entry & 15u);
        return entry >> 4;
    }
    unsigned length = 0;
    int symbol = code.canonical.Decode(
        [this](unsigned i) { return static_cast<int>((bits_ >> i) & 1); }, length);
    if (symbol >= 0) Take(length);
    return symbol;
}

bool Deflate64Decoder::StartBlock() {
    Fill(3);
    lastBlock_ = Take(1) == 1;
    switch (Take(2)) {
        case 0: {
            Take(bitCount_ % 8);
            Fill(32);
            std::uint32_t length = Take(16), complement = Take(16);
            if (length != (~complement & 0xFFFFu)) return false;
            storedLeft_ = length;
            block_ = Block::Stored;
            return true;
        }
        case 1: {
            std::uint8_t lengths[kLiteralSymbols + kDistanceSymbols];
            std::fill(lengths, lengths + 144, std::uint8_t{8});
            std::fill(lengths + 144, lengths + 256, std::uint8_t{9});
            std::fill(lengths + 256, lengths + 280, std::uint8_t{7});
            std::fill(lengths + 280, lengths + kLiteralSymbols, std::uint8_t{8});
            std::fill(lengths + kLiteralSymbols, std::end(lengths), std::uint8_t{5});
            literals_.Build(lengths, kLiteralSymbols);
            distances_.Build(lengths + kLiteralSymbols, kDistanceSymbols);
            block_ = Block::Coded;
            return true;
        }
        case 2:
            block_ = Block::Coded;
            return ReadCodeLengths();
        default:
            return false;
    }
}

bool Deflate64Decoder::ReadCodeLengths() {
    Fill(14);
    unsigned literalCount = Take(5) + 257, distanceCount = Take(5) + 1;
    unsigned lengthCodeCount = Take(4) + 4;
    if (literalCount > kMostLiteralCodes) return false;
    std::uint8_t codeLengths[19] = {};
    for (unsigned i = 0; i < lengthCodeCount; ++i) {
        Fill(3);
        codeLengths[kCodeLengthOrder[i]] = static_cast<std::uint8_t>(Take(3));
    }
    Code lengthCode{};
    if (!lengthCode.Build(codeLengths, 19)) return false;

    std::uint8_t lengths[kLiteralSymbols + kDistanceSymbols] = {};
    const unsigned total = literalCount + distanceCount;
    for (unsigned i = 0; i < total;) {
        int symbol = Decode(lengthCode);
        if (symbol < 0 || Damaged()) return false;
        if (symbol < 16) {
            lengths[i++] = static_cast<std::uint8_t>(symbol);
            continue;
        }
        Fill(7);
        std::uint8_t value = 0;
        unsigned repeat;
        if (symbol == 16) {
            if (i == 0) return false;
            value = lengths[i - 1];
            repeat = 3 + Take(2);
        } else if (symbol == 17) {
            repeat = 3 + Take(3);
        } else {
            repeat = 11 + Take(7);
        }
        if (repeat > total - i) return false;
        std::fill(lengths + i, lengths + i + repeat, value);
        i += repeat;
    }
    // A block without its end code could never end.
    if (lengths[256] == 0) return false;
    return literals_.Build(lengths, literalCount) &&
           distances_.Build(lengths + literalCount, distanceCount);
}

void Deflate64Decoder::Emit(std::uint8_t byte, std::uint8_t *out, std::size_t &got) {
    window_[produced_++ & (kWindow - 1)] = byte;
    out[got++] = byte;
}

Result Deflate64Decoder::Read(std::uint8_t *out, std::size_t size, std::size_t &got) {
    got = 0;
    while (got < size && !ended_) {
        if (matchLeft_ > 0) {
            auto run = static_cast<std::uint32_t>(std::min<std::size_t>(matchLeft_, size - got));
            for (std::uint32_t i = 0; i < run; ++i)
                Emit(window_[(produced_ - matchDistance_) & (kWindow - 1)], out, got);
            matchLeft_ -= run;
            continue;
        }
        if (block_ == Block::None) {
            if (!StartBlock() || Damaged()) return kEngineItemDataDamaged;
            continue;
        }
        if (block_ == Block::Stored) {
            if (storedLeft_ == 0) {
                block_ = Block::None;
                ended_ = lastBlock_;
                continue;
            }
            Fill(8);
            Emit(static_cast<std::uint8_t>(Take(8)), out, got);
            --storedLeft_;
            if (Damaged()) return kEngineItemDataDamaged;
            continue;
        }
        int symbol = Decode(literals_);
        if (symbol < 0 || Damaged()) return kEngineItemDataDamaged;
        if (symbol < 256) {
            Emit(static_cast<std::uint8_t>(symbol), out, got);
            continue;
        }
        if (symbol == 256) {
            block_ = Block::None;
            ended_ = lastBlock_;
            continue;
        }
        unsigned lengthSymbol = static_cast<unsigned>(symbol) - 257;
        if (lengthSymbol >= 29) return kEngineItemDataDamaged;
        Fill(16);
        std::uint32_t length = kLengthBase[lengthSymbol] + Take(kLengthExtra[lengthSymbol]);
        int distanceSymbol = Decode(distances_);
        if (distanceSymbol < 0 || distanceSymbol >= static_cast<int>(kDistanceSymbols))
            return kEngineItemDataDamaged;
        Fill(14);
        std::uint32_t distance =
            kDistanceBase[distanceSymbol] + Take(kDistanceExtra[distanceSymbol]);
        if (Damaged() || distance > produced_) return kEngineItemDataDamaged;
        matchLeft_ = length;
        matchDistance_ = distance;
    }
    return kEngineOK;
}

}  // namespace engine
