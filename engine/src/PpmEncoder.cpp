#include "PpmEncoder.h"

namespace engine::vnkx {

// Placeholder until the model lands: the bytes as they are.
struct PpmEncoder::State {
    std::vector<std::uint8_t> out;
};

PpmEncoder::PpmEncoder(const PpmSettings &) : state_(std::make_unique<State>()) {}
PpmEncoder::~PpmEncoder() = default;
bool PpmEncoder::Ready() const { return true; }
void PpmEncoder::Add(const std::uint8_t *data, std::size_t size) {
    state_->out.insert(state_->out.end(), data, data + size);
}
std::vector<std::uint8_t> PpmEncoder::Finish() { return std::move(state_->out); }

}  // namespace engine::vnkx
