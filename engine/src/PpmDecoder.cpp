#include "PpmDecoder.h"

#include <cstring>

namespace engine::vnkx {

// Placeholder until the model lands: the bytes as they are.
struct PpmDecoder::State {
    const std::uint8_t *in;
    std::size_t size, at = 0;
};

PpmDecoder::PpmDecoder(const PpmSettings &, const std::uint8_t *in, std::size_t size)
    : state_(std::make_unique<State>(State{in, size})) {}
PpmDecoder::~PpmDecoder() = default;
bool PpmDecoder::Ready() const { return true; }
bool PpmDecoder::Read(std::uint8_t *out, std::size_t size) {
    if (state_->size - state_->at < size) return false;
    if (size) std::memcpy(out, state_->in + state_->at, size);
    state_->at += size;
    return true;
}

}  // namespace engine::vnkx
