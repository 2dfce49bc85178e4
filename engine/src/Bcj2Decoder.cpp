#include "Bcj2Decoder.h"

#include <algorithm>

namespace engine {
namespace {

constexpr std::size_t kInputChunk = 64 * 1024;
// The bit coder is LZMA's: 11-bit probabilities moving by 1/32.
constexpr unsigned kProbabilityBits = 11;
constexpr std::uint16_t kProbabilityHalf = 1u << (kProbabilityBits - 1);
constexpr unsigned kMoveBits = 5;
constexpr std::uint32_t kTop = 1u << 24;

bool IsBranch(std::uint8_t before, std::uint8_t byte) {
    return (byte & 0xFE) == 0xE8 || (before == 0x0F && (byte & 0xF0) == 0x80);
}

}  // namespace

Bcj2Decoder::Input::Input(Source source) : source_(std::move(source)), buffer_(kInputChunk) {}

bool Bcj2Decoder::Input::Next(std::uint8_t &byte) {
    if (at_ == end_) {
        if (ended_) return false;
        std::size_t got = 0;
        error = source_(buffer_.data(), buffer_.size(), got);
        at_ = 0;
        end_ = got;
        if (error != kEngineOK || got == 0) {
            ended_ = true;
            return false;
        }
    }
    byte = buffer_[at_++];
    return true;
}

Bcj2Decoder::Bcj2Decoder(Source main, Source calls, Source jumps, Source bits, std::uint64_t size)
    : main_(std::move(main)),
      calls_(std::move(calls)),
      jumps_(std::move(jumps)),
      bits_(std::move(bits)),
      size_(size) {
    std::fill(std::begin(probabilities_), std::end(probabilities_), kProbabilityHalf);
}

bool Bcj2Decoder::StartBits() {
    for (int i = 0; i < 5; ++i) {
        std::uint8_t byte = 0;
        if (!bits_.Next(byte)) return false;
        code_ = (code_ << 8) | byte;
    }
    started_ = true;
    return true;
}

int Bcj2Decoder::DecodeBit(std::uint16_t &probability) {
    const std::uint32_t bound = (range_ >> kProbabilityBits) * probability;
    int bit = 0;
    if (code_ < bound) {
        range_ = bound;
        probability += ((1u << kProbabilityBits) - probability) >> kMoveBits;
    } else {
        range_ -= bound;
        code_ -= bound;
        probability -= probability >> kMoveBits;
        bit = 1;
    }
    if (range_ < kTop) {
        // The encoder's flush leaves enough bytes; past them a damaged
        // stream reads zeros and shows itself in the item's check value.
        std::uint8_t byte = 0;
        bits_.Next(byte);
        range_ <<= 8;
        code_ = (code_ << 8) | byte;
    }
    return bit;
}

Result Bcj2Decoder::Fail(const Input &input) const {
    return input.error != kEngineOK ? input.error : kEngineItemDataDamaged;
}

Result Bcj2Decoder::PutBackTarget(std::uint8_t opcode) {
    Input &targets = opcode == 0xE8 ? calls_ : jumps_;
    std::uint32_t absolute = 0;
    for (int i = 0; i < 4; ++i) {
        std::uint8_t byte = 0;
        if (!targets.Next(byte)) return Fail(targets);
        absolute = (absolute << 8) | byte;
    }
    // Relative to the end of the instruction again.
    const std::uint32_t relative = absolute - static_cast<std::uint32_t>(position_ + 4);
    for (int i = 0; i < 4; ++i) pending_[i] = static_cast<std::uint8_t>(relative >> (8 * i));
    pendingAt_ = 0;
    pendingCount_ = 4;
    previous_ = pending_[3];
    return kEngineOK;
}

Result Bcj2Decoder::Read(std::uint8_t *out, std::size_t size, std::size_t &got) {
    got = 0;
    if (!started_ && !StartBits()) return Fail(bits_);
    while (got < size && position_ < size_) {
        if (pendingAt_ < pendingCount_) {
            out[got++] = pending_[pendingAt_++];
            ++position_;
            continue;
        }
        std::uint8_t byte = 0;
        if (!main_.Next(byte)) return Fail(main_);
        out[got++] = byte;
        ++position_;
        // A branch opcode as the very last byte has no bit.
        if (!IsBranch(previous_, byte) || position_ == size_) {
            previous_ = byte;
            continue;
        }
        std::uint16_t &probability = byte == 0xE8   ? probabilities_[previous_]
                                     : byte == 0xE9 ? probabilities_[256]
                                                    : probabilities_[257];
        if (DecodeBit(probability) == 0) {
            previous_ = byte;
            continue;
        }
        if (Result result = PutBackTarget(byte)) return result;
    }
    return kEngineOK;
}

}  // namespace engine
