// The compression methods and content filters of vnkx blocks: each block is
// coded whole in memory, so every method here works buffer to buffer.
#pragma once

#include <cstdint>
#include <vector>

#include "Result.h"
#include "VnkxLayout.h"

namespace engine::vnkx {

// Text: long repeats, then PPM on the bytes between them (TextBlockCoder).
// Only blocks of version 7 hold it.
inline constexpr std::uint8_t kMethodText = 10;
// Text of zstd runs: LZMA2 (or zstd, in archives of earlier writers) after
// the word transform (WordTransform).
// Only blocks of version 7 hold it.
inline constexpr std::uint8_t kMethodWordText = 11;

struct MethodChoice {
    std::uint8_t method = kMethodZstd;  // as stored in a block (PPMd is coded as LZMA2)
    int level = 1;                      // the engine's level of the method
    int extent = 22;                    // log2 of window or dictionary
    bool branchFilter = false;          // LZMA2: x86 branch conversion inside the stream
    int niceLength = 0;                 // LZMA2: match length taken at once; 0 as the level says
    int searchDepth = 0;                // LZMA2: match finder's search depth; 0 as the level says
    // Text blocks of a run: the PPM order, 0 when text is not a kind of its
    // own; and the log2 of the model's memory. A text block's own choice
    // (method 10) carries them as its level and extent.
    int textOrder = 0;
    int textModelLog = 25;
    // Text blocks of a run without a text model: coded as word text.
    bool wordText = false;
};

// LZMA2 streams carry their own branch filter, which converts more calls
// than the block filter can; the other methods take the block filter.
bool FiltersInStream(std::uint8_t method);

// The method a requested one codes its blocks other than text with: PPMd
// codes only text with its own kind of model and the rest as LZMA2.
std::uint8_t CodedMethod(std::uint8_t requested);
// The unpacked size of the blocks of a method: the window and some more,
// so that blocks compress well yet several fit in memory at once. Text
// blocks are half the model's memory, at least 32 MiB, at most 128 MiB:
// long repeats reach far, and fewer blocks still keep two cores busy.
std::uint64_t BlockSizeFor(const MethodChoice &choice);
// What one worker needs to code a block of the method (coder state and
// both buffers), in bytes.
std::uint64_t WorkerMemory(const MethodChoice &choice);

// Compresses `in`; false when the method failed (the caller then stores).
// `coderState` keeps a worker's coders from one block to the next: null at
// first, given back with FreeCoderState.
bool Compress(const MethodChoice &choice, const Bytes &in, Bytes &out, void *&coderState);
void FreeCoderState(void *coderState);
// Decompresses exactly `unpackedSize` bytes; kEngineItemDataDamaged when the
// data does not decode to that.
Result Decompress(std::uint8_t method, const std::uint8_t *in, std::size_t size,
                  std::uint64_t unpackedSize, Bytes &out);

// The filter that helps a block's content (executable code, 32-bit
// samples), or none.
std::uint8_t ChooseFilter(const Bytes &data);
// True when more than 1 in 1024 bytes start an x86 near call whose
// operand's top byte is 00 or FF, as machine code does and text does not.
bool DenseInCalls(const std::uint8_t *data, std::size_t size);
void ApplyFilter(std::uint8_t filter, Bytes &data);
// False for a filter this reader does not know.
bool RemoveFilter(std::uint8_t filter, Bytes &data);

}  // namespace engine::vnkx
