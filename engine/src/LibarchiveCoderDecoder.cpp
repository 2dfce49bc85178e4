#include "LibarchiveCoderDecoder.h"

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "SevenZipFormat.h"

namespace engine {
namespace {

using namespace sevenzip;

constexpr std::size_t kChunk = 64 * 1024;

// 7z's numbers: as many leading one bits in the first byte as bytes follow
// (little-endian), the first byte's other bits above them.
void PutNumber(std::vector<std::uint8_t> &out, std::uint64_t value) {
    int extra = 0;
    while (extra < 8 && value >= (std::uint64_t{1} << (7 * (extra + 1)))) ++extra;
    const std::uint8_t mask = static_cast<std::uint8_t>(0xFF00u >> extra);
    const std::uint64_t high = extra < 8 ? value >> (8 * extra) : 0;
    out.push_back(static_cast<std::uint8_t>(mask | high));
    for (int i = 0; i < extra; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void PutLe(std::uint8_t *at, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::vector<std::uint8_t> Catalogue(std::uint64_t packedSize, const std::vector<std::uint8_t> &id,
                                    const std::vector<std::uint8_t> &properties,
                                    std::uint64_t size) {
    std::vector<std::uint8_t> c = {kHeader, kMainStreamsInfo, kPackInfo};
    PutNumber(c, 0);  // the packed bytes follow the signature header
    PutNumber(c, 1);
    c.push_back(kSize);
    PutNumber(c, packedSize);
    c.push_back(kEnd);
    c.insert(c.end(), {kUnPackInfo, kFolder});
    PutNumber(c, 1);
    c.push_back(0);   // the folder is here, not elsewhere
    PutNumber(c, 1);  // one coder, one stream in and out
    c.push_back(static_cast<std::uint8_t>(id.size() | (properties.empty() ? 0 : 0x20)));
    c.insert(c.end(), id.begin(), id.end());
    if (!properties.empty()) {
        PutNumber(c, properties.size());
        c.insert(c.end(), properties.begin(), properties.end());
    }
    c.push_back(kCodersUnPackSize);
    PutNumber(c, size);
    // One stream in the folder (libarchive wants the substreams said).
    c.insert(c.end(), {kEnd, kSubStreamsInfo, kEnd, kEnd});
    c.push_back(kFilesInfo);
    PutNumber(c, 1);
    c.push_back(kName);
    PutNumber(c, 1 + 4);
    c.insert(c.end(), {0, 'x', 0, 0, 0});  // not elsewhere; "x" in UTF-16LE
    c.insert(c.end(), {kEnd, kEnd});
    return c;
}

}  // namespace

struct LibarchiveCoderDecoder::Wrapped {
    Source packed;
    std::uint64_t packedSize = 0;
    std::vector<std::uint8_t> head;       // the signature header
    std::vector<std::uint8_t> catalogue;  // after the packed bytes
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(kChunk);
    std::vector<std::uint8_t> first;  // the first piece of the packed bytes
    std::uint64_t position = 0;       // in the wrapped archive
    std::uint64_t packedRead = 0;
    Result packedFailure = kEngineOK;
    archive *handle = nullptr;
    bool opened = false;
    Result openFailure = kEngineOK;

    std::uint64_t Size() const { return kSignatureHeaderSize + packedSize + catalogue.size(); }

    // The bytes at `position`: memory for the two ends, the source in order
    // for the middle. libarchive may read past the signature header before
    // it goes to the catalogue and back, so the first piece of the packed
    // bytes is kept to be read again.
    la_ssize_t Next(const void **out) {
        if (position < kSignatureHeaderSize) {
            *out = head.data() + position;
            return static_cast<la_ssize_t>(kSignatureHeaderSize - position);
        }
        const std::uint64_t inPacked = position - kSignatureHeaderSize;
        if (inPacked < packedSize) {
            if (inPacked < first.size()) {
                *out = first.data() + inPacked;
                return static_cast<la_ssize_t>(first.size() - inPacked);
            }
            if (inPacked != packedRead) return ARCHIVE_FATAL;
            std::size_t want = static_cast<std::size_t>(
                std::min<std::uint64_t>(buffer.size(), packedSize - inPacked));
            std::size_t got = 0;
            packedFailure = packed(buffer.data(), want, got);
            if (packedFailure != kEngineOK || got == 0) {
                if (packedFailure == kEngineOK) packedFailure = kEngineItemDataDamaged;
                return ARCHIVE_FATAL;
            }
            if (packedRead == 0) first.assign(buffer.begin(), buffer.begin() + got);
            packedRead += got;
            *out = buffer.data();
            return static_cast<la_ssize_t>(got);
        }
        const std::uint64_t inCatalogue = inPacked - packedSize;
        if (inCatalogue >= catalogue.size()) return 0;
        *out = catalogue.data() + inCatalogue;
        return static_cast<la_ssize_t>(catalogue.size() - inCatalogue);
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
        // Within the packed bytes only by reading them.
        if (wrapped->position >= kSignatureHeaderSize &&
            wrapped->position < kSignatureHeaderSize + wrapped->packedSize)
            return 0;
        std::uint64_t room = wrapped->Size() - wrapped->position;
        std::uint64_t step = std::min<std::uint64_t>(room, static_cast<std::uint64_t>(request));
        wrapped->position += step;
        return static_cast<la_int64_t>(step);
    }
};

LibarchiveCoderDecoder::LibarchiveCoderDecoder(Source packed, std::uint64_t packedSize,
                                               const std::vector<std::uint8_t> &coderId,
                                               const std::vector<std::uint8_t> &properties,
                                               std::uint64_t size)
    : wrapped_(std::make_unique<Wrapped>()) {
    Wrapped &w = *wrapped_;
    w.packed = std::move(packed);
    w.packedSize = packedSize;
    w.catalogue = Catalogue(packedSize, coderId, properties, size);
    w.head.assign(kSignatureHeaderSize, 0);
    std::memcpy(w.head.data(), kSignature.data(), kSignature.size());
    w.head[7] = 4;  // version 0.4
    PutLe(w.head.data() + 12, packedSize, 8);
    PutLe(w.head.data() + 20, w.catalogue.size(), 8);
    PutLe(w.head.data() + 28, crc32(0, w.catalogue.data(), static_cast<uInt>(w.catalogue.size())),
          4);
    PutLe(w.head.data() + 8, crc32(0, w.head.data() + 12, 20), 4);
}

LibarchiveCoderDecoder::~LibarchiveCoderDecoder() {
    if (wrapped_->handle) archive_read_free(wrapped_->handle);
}

Result LibarchiveCoderDecoder::Open() {
    Wrapped &w = *wrapped_;
    w.opened = true;
    w.handle = archive_read_new();
    if (!w.handle) return w.openFailure = kEngineOutOfMemory;
    archive_read_support_format_7zip(w.handle);
    archive_read_set_read_callback(w.handle, Wrapped::Read);
    archive_read_set_seek_callback(w.handle, Wrapped::Seek);
    archive_read_set_skip_callback(w.handle, Wrapped::Skip);
    archive_read_set_callback_data(w.handle, &w);
    archive_entry *entry = nullptr;
    if (archive_read_open1(w.handle) != ARCHIVE_OK ||
        archive_read_next_header(w.handle, &entry) != ARCHIVE_OK)
        w.openFailure = w.packedFailure != kEngineOK ? w.packedFailure : kEngineItemDataDamaged;
    return w.openFailure;
}

Result LibarchiveCoderDecoder::Read(std::uint8_t *out, std::size_t size, std::size_t &got) {
    got = 0;
    if (!wrapped_->opened) Open();
    if (wrapped_->openFailure != kEngineOK) return wrapped_->openFailure;
    la_ssize_t count = archive_read_data(wrapped_->handle, out, size);
    if (count < 0)
        return wrapped_->packedFailure != kEngineOK ? wrapped_->packedFailure
                                                    : kEngineItemDataDamaged;
    got = static_cast<std::size_t>(count);
    return kEngineOK;
}

}  // namespace engine
