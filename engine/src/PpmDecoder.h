// Reads a stream of PpmEncoder back. The caller knows how many bytes were
// coded; damaged input decodes to wrong bytes (the block's checks find
// them) but never reads or writes outside its buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "PpmModel.h"

namespace engine::vnkx {

class PpmDecoder {
public:
    PpmDecoder(const PpmSettings &settings, const std::uint8_t *in, std::size_t size);
    ~PpmDecoder();
    PpmDecoder(const PpmDecoder &) = delete;
    PpmDecoder &operator=(const PpmDecoder &) = delete;

    bool Ready() const;
    // Decodes the next `size` bytes; false when the input is used up
    // before them (a cut stream).
    bool Read(std::uint8_t *out, std::size_t size);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace engine::vnkx
