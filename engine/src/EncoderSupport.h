// What the encoders of the text and Mac encodings share: a buffered output
// that goes to the file in chunks, and the feed's files taken whole (their
// sizes go into headers before the data).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Driver.h"

namespace engine {

// Text or bytes an encoder produces. With a descriptor the buffer is
// written out whenever it grows past a chunk; without one everything stays
// in text().
class EncodedOutput {
public:
    explicit EncodedOutput(int fd = -1) : fd_(fd) {}
    EncodedOutput(const EncodedOutput &) = delete;
    EncodedOutput &operator=(const EncodedOutput &) = delete;

    void Put(char c) {
        buffer_.push_back(c);
        if (buffer_.size() >= kChunk) Drain();
    }
    void Put(std::string_view text) {
        buffer_.append(text);
        if (buffer_.size() >= kChunk) Drain();
    }
    void PutBytes(const std::vector<std::uint8_t> &bytes) {
        Put(std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
    }
    // Writes what is left; the first failure of any write.
    Result Finish();
    const std::string &text() const { return buffer_; }

private:
    static constexpr std::size_t kChunk = 64 * 1024;
    void Drain();

    int fd_;
    std::string buffer_;
    Result status_ = kEngineOK;
};

// One file of a feed, read whole.
struct EncodedFile {
    std::wstring name;  // the last component of the item's path
    std::vector<std::uint8_t> data;
    std::shared_ptr<const std::vector<std::uint8_t>> resource;  // null: no resource fork
    std::optional<EngineDateTime> modified;
    std::uint32_t mode = 0;
};

// Reads the item's data whole (kEngineArchiveTooLarge beyond what a decoder
// takes back), counting it and giving the operation its chance to stop.
Result ReadWholeItem(const WriteItem &item, Operation *operation, EncodedFile &file);

// The one file of a single-file encoding: a folder or link is refused, and
// so is a second item.
Result TakeSingleFile(ItemFeed &feed, Operation *operation, EncodedFile &file);

// Opens the request's file and lets `encode` fill it.
Result WriteEncoded(const WriteRequest &request,
                    const std::function<Result(EncodedOutput &)> &encode);

// The whole write of a single-file encoding: no password, exactly one
// file, encoded into the request's file.
using FileEncoder = void (*)(const EncodedFile &, EncodedOutput &);
Result WriteSingleFile(const WriteRequest &request, ItemFeed &feed, FileEncoder encode);

}  // namespace engine
