#include "PpmEncoder.h"

#include "PpmModel.h"
#include "RangeEncoder.h"

namespace engine::vnkx {

struct PpmEncoder::State {
    explicit State(const PpmSettings &settings) : model(settings), coder(out) {}
    PpmModel model;
    std::vector<std::uint8_t> out;
    RangeEncoder coder;
};

PpmEncoder::PpmEncoder(const PpmSettings &settings) : state_(std::make_unique<State>(settings)) {}
PpmEncoder::~PpmEncoder() = default;

bool PpmEncoder::Ready() const { return state_->model.Ready(); }

void PpmEncoder::Add(const std::uint8_t *data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) state_->model.Encode(state_->coder, data[i]);
}

std::vector<std::uint8_t> PpmEncoder::Finish() {
    state_->coder.Flush();
    return std::move(state_->out);
}

}  // namespace engine::vnkx
