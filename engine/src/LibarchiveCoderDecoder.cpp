#include "LibarchiveCoderDecoder.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cstring>

namespace engine {
namespace {

constexpr std::size_t kChunk = 64 * 1024;

struct FreeReader {
    void operator()(archive *handle) const { archive_read_free(handle); }
};

}  // namespace

struct LibarchiveCoderDecoder::Wrapped {
    Source stream;
    std::uint64_t streamSize = 0;
    Envelope envelope;
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(kChunk);
    std::vector<std::uint8_t> first;  // the first piece of the stream
    std::uint64_t position = 0;       // in the wrapped archive
    std::uint64_t streamRead = 0;
    Result streamFailure = kEngineOK;
    std::unique_ptr<archive, FreeReader> handle;
    bool opened = false;
    Result openFailure = kEngineOK;

    std::uint64_t Size() const { return Before() + streamSize + envelope.after.size(); }
    std::uint64_t Before() const { return envelope.before.size(); }

    // The bytes at `position`: memory for the two ends, the source in order
    // for the middle. libarchive may read past the bytes before the stream
    // before it goes to a catalogue at the end and back (7z), so the first
    // piece of the stream is kept to be read again.
    la_ssize_t Next(const void **out) {
        if (position < Before()) {
            *out = envelope.before.data() + position;
            return static_cast<la_ssize_t>(Before() - position);
        }
        const std::uint64_t inStream = position - Before();
        if (inStream < streamSize) {
            if (inStream < first.size()) {
                *out = first.data() + inStream;
                return static_cast<la_ssize_t>(first.size() - inStream);
            }
            if (inStream != streamRead) return ARCHIVE_FATAL;
            std::size_t want = static_cast<std::size_t>(
                std::min<std::uint64_t>(buffer.size(), streamSize - inStream));
            std::size_t got = 0;
            streamFailure = stream(buffer.data(), want, got);
            if (streamFailure != kEngineOK || got == 0) {
                if (streamFailure == kEngineOK) streamFailure = kEngineItemDataDamaged;
                return ARCHIVE_FATAL;
            }
            if (streamRead == 0) first.assign(buffer.begin(), buffer.begin() + got);
            streamRead += got;
            *out = buffer.data();
            return static_cast<la_ssize_t>(got);
        }
        const std::uint64_t inAfter = inStream - streamSize;
        if (inAfter >= envelope.after.size()) return 0;
        *out = envelope.after.data() + inAfter;
        return static_cast<la_ssize_t>(envelope.after.size() - inAfter);
    }

    static la_ssize_t Read(archive *, void *self, const void **out) {
        auto *wrapped = static_cast<Wrapped *>(self);
        la_ssize_t count = wrapped->Next(out);
        if (count > 0) wrapped->position += static_cast<std::uint64_t>(count);
        return count;
    }
    static la_int64_t Seek(archive *, void *self, la_int64_t offset, int whence) {
        auto *wrapped = static_cast<Wrapped *>(self);
        const std::int64_t base = whence == SEEK_SET ? 0
                                  : whence == SEEK_CUR
                                      ? static_cast<std::int64_t>(wrapped->position)
                                      : static_cast<std::int64_t>(wrapped->Size());
        const std::int64_t target = base + offset;
        if (target < 0 || static_cast<std::uint64_t>(target) > wrapped->Size())
            return ARCHIVE_FATAL;
        wrapped->position = static_cast<std::uint64_t>(target);
        return target;
    }
    static la_int64_t Skip(archive *, void *self, la_int64_t request) {
        auto *wrapped = static_cast<Wrapped *>(self);
        // Within the stream only by reading it.
        if (wrapped->position >= wrapped->Before() &&
            wrapped->position < wrapped->Before() + wrapped->streamSize)
            return 0;
        std::uint64_t room = wrapped->Size() - wrapped->position;
        std::uint64_t step = std::min<std::uint64_t>(room, static_cast<std::uint64_t>(request));
        wrapped->position += step;
        return static_cast<la_int64_t>(step);
    }
};

LibarchiveCoderDecoder::LibarchiveCoderDecoder(Source stream, std::uint64_t streamSize,
                                               Envelope envelope)
    : wrapped_(std::make_unique<Wrapped>()) {
    wrapped_->stream = std::move(stream);
    wrapped_->streamSize = streamSize;
    wrapped_->envelope = std::move(envelope);
}

LibarchiveCoderDecoder::~LibarchiveCoderDecoder() = default;

Result LibarchiveCoderDecoder::Open() {
    Wrapped &w = *wrapped_;
    w.opened = true;
    w.handle.reset(archive_read_new());
    archive *handle = w.handle.get();
    if (!handle) return w.openFailure = kEngineOutOfMemory;
    w.envelope.enable(handle);
    if (w.envelope.options) archive_read_set_options(handle, w.envelope.options);
    archive_read_set_read_callback(handle, Wrapped::Read);
    archive_read_set_seek_callback(handle, Wrapped::Seek);
    archive_read_set_skip_callback(handle, Wrapped::Skip);
    archive_read_set_callback_data(handle, &w);
    archive_entry *entry = nullptr;
    if (archive_read_open1(handle) != ARCHIVE_OK ||
        archive_read_next_header(handle, &entry) != ARCHIVE_OK)
        w.openFailure = w.streamFailure != kEngineOK ? w.streamFailure : kEngineItemDataDamaged;
    return w.openFailure;
}

Result LibarchiveCoderDecoder::Read(std::uint8_t *out, std::size_t size, std::size_t &got) {
    got = 0;
    if (!wrapped_->opened) Open();
    if (wrapped_->openFailure != kEngineOK) return wrapped_->openFailure;
    la_ssize_t count = archive_read_data(wrapped_->handle.get(), out, size);
    if (count < 0)
        return wrapped_->streamFailure != kEngineOK ? wrapped_->streamFailure
                                                    : kEngineItemDataDamaged;
    got = static_cast<std::size_t>(count);
    return kEngineOK;
}

}  // namespace engine
