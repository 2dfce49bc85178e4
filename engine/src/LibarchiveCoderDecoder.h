// Decodes one coder's stream with a decoder that only libarchive has (7z's
// PPMd, zip's PPMd, bzip2, LZMA, xz and zstd behind a cipher libarchive
// cannot undo). libarchive offers its decoders only inside archives, so the
// stream is handed to it in an envelope: an archive of one item whose
// bytes before and after the stream the caller makes, read by the format
// reader the caller names. The stream itself is read once, in order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Result.h"

struct archive;

namespace engine {

class LibarchiveCoderDecoder {
public:
    // Puts up to `size` bytes of the stream into `buffer`; `got` 0 at its end.
    using Source = std::function<Result(std::uint8_t *buffer, std::size_t size, std::size_t &got)>;

    struct Envelope {
        std::vector<std::uint8_t> before, after;
        int (*enable)(archive *) = nullptr;  // the format reader
        const char *options = nullptr;       // for archive_read_set_options
    };

    LibarchiveCoderDecoder(Source stream, std::uint64_t streamSize, Envelope envelope);
    ~LibarchiveCoderDecoder();
    LibarchiveCoderDecoder(const LibarchiveCoderDecoder &) = delete;
    LibarchiveCoderDecoder &operator=(const LibarchiveCoderDecoder &) = delete;

    // Decodes up to `size` bytes; `got` 0 at the end of the item.
    // kEngineItemDataDamaged when libarchive fails on the data.
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got);

private:
    // Opens the envelope at the first read, when the source is ready.
    Result Open();

    struct Wrapped;  // the envelope as libarchive reads it, and its handle
    std::unique_ptr<Wrapped> wrapped_;
};

}  // namespace engine
