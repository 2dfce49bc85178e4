// Decodes one 7z coder that only libarchive has (PPMd) from its plain packed
// stream. libarchive offers its coders only inside archives, so the stream
// is handed to it wrapped as a 7z archive of one item: a signature header,
// the packed bytes as they come, and a catalogue of one folder with that
// coder alone. The engine's 7z reader uses it for what it has deciphered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Result.h"

namespace engine {

class LibarchiveCoderDecoder {
public:
    // Puts up to `size` packed bytes into `buffer`; `got` 0 at the end.
    using Source = std::function<Result(std::uint8_t *buffer, std::size_t size, std::size_t &got)>;

    LibarchiveCoderDecoder(Source packed, std::uint64_t packedSize,
                           const std::vector<std::uint8_t> &coderId,
                           const std::vector<std::uint8_t> &properties, std::uint64_t size);
    ~LibarchiveCoderDecoder();
    LibarchiveCoderDecoder(const LibarchiveCoderDecoder &) = delete;
    LibarchiveCoderDecoder &operator=(const LibarchiveCoderDecoder &) = delete;

    // Decodes up to `size` bytes; `got` 0 at the end of the item.
    // kEngineItemDataDamaged when libarchive fails on the data.
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got);

private:
    // Opens the wrapped archive at the first read, when the source is ready.
    Result Open();

    struct Wrapped;  // the archive libarchive reads, and its handle
    std::unique_ptr<Wrapped> wrapped_;
};

}  // namespace engine
