// Settings shared by both directions of the PPM text coder.
#pragma once

#include <cstdint>

namespace engine::vnkx {

struct PpmSettings {
    int order = 12;                // longest context, 2 to 64
    std::uint32_t memoryMiB = 32;  // the model's memory; it starts over when full
};

}  // namespace engine::vnkx
