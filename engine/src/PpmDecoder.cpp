#include "PpmDecoder.h"

#include "PpmModel.h"
#include "RangeDecoder.h"

namespace engine::vnkx {

struct PpmDecoder::State {
    State(const PpmSettings &settings, const std::uint8_t *in, std::size_t size)
        : model(settings), coder(in, size) {}
    PpmModel model;
    RangeDecoder coder;
};

PpmDecoder::PpmDecoder(const PpmSettings &settings, const std::uint8_t *in, std::size_t size)
    : state_(std::make_unique<State>(settings, in, size)) {}
PpmDecoder::~PpmDecoder() = default;

bool PpmDecoder::Ready() const { return state_->model.Ready(); }

bool PpmDecoder::Read(std::uint8_t *out, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        int symbol = state_->model.Decode(state_->coder);
        if (symbol < 0) return false;
        out[i] = static_cast<std::uint8_t>(symbol);
    }
    return !state_->coder.Overrun();
}

}  // namespace engine::vnkx
