// The payload of a text block: long repeats found by LongMatchFinder, coded
// as a compact list, and the bytes between them coded with the PPM text
// coder. The payload carries the model's settings, so a reader needs
// nothing but the block's unpacked size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "LongMatchFinder.h"
#include "PpmModel.h"
#include "Result.h"

namespace engine::vnkx {

struct TextSettings {
    PpmSettings ppm;
    std::uint32_t minimumMatch = LongMatchFinder::kDefaultMinimum;
};

class TextBlockCoder {
public:
    // The settings a reader accepts from a payload; anything else is damage
    // (a hostile order or model size must not cost memory).
    static constexpr int kLeastOrder = PpmModel::kLeastOrder, kMostOrder = PpmModel::kMostOrder;
    static constexpr std::uint32_t kMostModelMiB = 1024;

    // False when the model's memory could not be had or the block is too
    // large for the list's fields (the caller then stores the block).
    static bool Encode(const std::uint8_t *data, std::size_t size, const TextSettings &settings,
                       std::vector<std::uint8_t> &payload);
    // Decodes exactly `unpackedSize` bytes into `out`; kEngineItemDataDamaged
    // for a payload that does not decode to them.
    static Result Decode(const std::uint8_t *payload, std::size_t size, std::uint8_t *out,
                         std::size_t unpackedSize);
    // What coding a block of `blockSize` bytes takes besides the block
    // itself: model, match table and list, and the payload.
    static std::uint64_t EncoderMemory(const TextSettings &settings, std::uint64_t blockSize);
};

}  // namespace engine::vnkx
