// Deflate64 (zip method 9, "enhanced deflate"): deflate with a 64 KiB
// window, two more distance codes reaching 65536 bytes back, and the last
// length code carrying 16 extra bits (lengths up to 65538). Neither zlib nor
// libarchive reads it, so the engine decodes it itself, as a stream: the
// caller takes the output in pieces of any size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "CanonicalCode.h"
#include "Result.h"

namespace engine {

class Deflate64Decoder {
public:
    // Puts up to `size` compressed bytes into `buffer`; 0 at the end of the
    // compressed data.
    using Source = std::function<std::size_t(std::uint8_t *buffer, std::size_t size)>;

    explicit Deflate64Decoder(Source source);

    // Decodes up to `size` bytes; `got` is 0 once the stream has ended.
    // kEngineItemDataDamaged for bytes that are no Deflate64 stream or end
    // before it does.
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got);

private:
    // Codes up to kFastBits long are found with one look into `fast`,
    // longer ones by walking the canonical code.
    struct Code {
        static constexpr unsigned kFastBits = 10;
        CanonicalCode canonical;
        std::uint16_t fast[1u << kFastBits];  // symbol << 4 | length; 0: not a short code
        bool Build(const std::uint8_t *lengths, unsigned symbolCount);
    };
    enum class Block { None, Stored, Coded };

    void Fill(unsigned count);
    std::uint32_t Take(unsigned count);
    int Decode(const Code &code);
    bool StartBlock();
    bool ReadCodeLengths();
    bool Damaged() const { return paddedBits_ > bitCount_; }
    void Emit(std::uint8_t byte, std::uint8_t *out, std::size_t &got);

    Source source_;
    std::vector<std::uint8_t> input_;
    std::size_t inputAt_ = 0, inputEnd_ = 0;
    bool sourceEnded_ = false;
    std::uint64_t bits_ = 0;
    unsigned bitCount_ = 0;
    // Zero bits added past the end of the input: taking any of them means
    // the stream was cut.
    unsigned paddedBits_ = 0;

    Block block_ = Block::None;
    bool lastBlock_ = false, ended_ = false;
    std::uint32_t storedLeft_ = 0, matchLeft_ = 0, matchDistance_ = 0;
    Code literals_{}, distances_{};

    std::vector<std::uint8_t> window_;
    std::uint64_t produced_ = 0;
};

}  // namespace engine
