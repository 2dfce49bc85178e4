// Undoes the four-stream branch filter that 7-Zip puts before x86 code
// (BCJ2). The encoder took the targets of calls (E8), jumps (E9) and
// conditional jumps (0F 80..8F) out of the code, turned them into absolute
// addresses and wrote them big-endian to a call stream and a jump stream;
// a range-coded stream of bits says, for each such opcode in the main
// stream, whether its target was taken out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "Result.h"

namespace engine {

class Bcj2Decoder {
public:
    // Puts up to `size` bytes of one stream into `buffer`; `got` 0 at its end.
    using Source = std::function<Result(std::uint8_t *buffer, std::size_t size, std::size_t &got)>;

    // `size`: how many bytes the filtered code has (the end of the main
    // stream alone cannot tell whether a last opcode still has a bit).
    Bcj2Decoder(Source main, Source calls, Source jumps, Source bits, std::uint64_t size);

    // Decodes up to `size` bytes; `got` is 0 once all the code is out.
    // kEngineItemDataDamaged when a stream ends early.
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got);

private:
    // One input read through a buffer of its own.
    class Input {
    public:
        explicit Input(Source source);
        // false at the end of the stream or on an error (kept in `error`).
        bool Next(std::uint8_t &byte);
        Result error = kEngineOK;

    private:
        Source source_;
        std::vector<std::uint8_t> buffer_;
        std::size_t at_ = 0, end_ = 0;
        bool ended_ = false;
    };

    bool StartBits();
    int DecodeBit(std::uint16_t &probability);
    Result Fail(const Input &input) const;
    // The opcode just written is followed by a target that was taken out.
    Result PutBackTarget(std::uint8_t opcode);

    Input main_, calls_, jumps_, bits_;
    std::uint64_t size_, position_ = 0;
    std::uint8_t previous_ = 0;
    // 256 contexts for E8 by the byte before it, one for E9, one for 0F 8x.
    std::uint16_t probabilities_[258];
    std::uint32_t range_ = 0xFFFFFFFFu, code_ = 0;
    bool started_ = false;
    std::uint8_t pending_[4] = {};
    unsigned pendingAt_ = 0, pendingCount_ = 0;
};

}  // namespace engine
