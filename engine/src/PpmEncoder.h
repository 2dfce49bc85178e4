// Codes bytes with prediction by partial matching: made for text, where it
// packs far tighter than LZ coders at a similar speed. One encoder codes one
// stream; its bytes may come in as many pieces as the caller likes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "PpmModel.h"

namespace engine::vnkx {

class PpmEncoder {
public:
    explicit PpmEncoder(const PpmSettings &settings);
    ~PpmEncoder();
    PpmEncoder(const PpmEncoder &) = delete;
    PpmEncoder &operator=(const PpmEncoder &) = delete;

    // False when the model's memory could not be had.
    bool Ready() const;
    void Add(const std::uint8_t *data, std::size_t size);
    // The coded stream; the encoder is spent afterwards.
    std::vector<std::uint8_t> Finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace engine::vnkx
