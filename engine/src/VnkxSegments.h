// Segmented vnkx: the archive's byte stream cut into files
// "name.part01.vnkx", "name.part02.vnkx", ..., each opened by a segment
// header that names its place in the set. Writing cuts a finished archive;
// reading presents the parts as one byte range, so the reader sees the same
// offsets as in a single file. Also the byte source an archive is read from:
// one file, a set of segments, or (for an index) the archive it describes.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VnkxLayout.h"

namespace engine {
class Operation;
}

namespace engine::vnkx {

inline constexpr std::size_t kSegmentHeaderSize = 104;
inline constexpr std::size_t kSetIdSize = 16;
inline constexpr std::uint16_t kSegmentLast = 1;

// Exactly `size` bytes at `offset` of a descriptor; kEngineArchiveTruncated
// when the file ends before.
Result ReadExactly(int fd, std::uint64_t offset, void *buffer, std::size_t size);

struct SegmentHeader {
    std::uint16_t version = kNewestVersion;
    std::uint16_t flags = 0;   // kSegmentLast on the last part
    std::uint32_t number = 1;  // from 1
    std::uint32_t count = 1;
    std::array<std::uint8_t, kSetIdSize> setId{};
    std::uint64_t offset = 0;                    // of the part's first byte in the archive
    std::uint64_t size = 0;                      // archive bytes in the part
    std::uint64_t archiveLength = 0;             // of the whole archive
    std::array<std::uint8_t, kHashSize> hash{};  // SHA-256 of the part's archive bytes
};

Bytes EncodeSegmentHeader(const SegmentHeader &header);
bool DecodeSegmentHeader(const std::uint8_t *data, std::size_t size, SegmentHeader &header);
bool HasSegmentSignature(const std::uint8_t *data, std::size_t size);
// The segment header of a file, when it is a sound one.
std::optional<SegmentHeader> ReadSegmentHeader(const std::string &path);

// "base.part01.vnkx": two digits, more when the set has more than 99 parts.
std::string SegmentPath(const std::string &base, std::uint32_t number, std::uint32_t count);
// The base of a part's path ("dir/name" of "dir/name.part07.vnkx").
std::optional<std::string> SegmentBase(const std::string &path);
// Where a new set's parts are named from: the output without ".vnkx".
std::string SegmentBaseOfOutput(const std::string &output);

// Cuts a finished archive file into parts of at most `partSize` bytes each
// (header included), raising (1,2) as each begins. Parts written are
// removed again on failure or cancel.
Result WriteSegments(Operation &operation, const std::string &archive, const std::string &base,
                     std::uint64_t partSize, std::vector<std::string> &parts);

// RecoverArchive of a set: the parts are joined beside the first, the
// archive repaired from its recovery record into `folder`, and cut again
// there into parts of the same size under the same names.
Result RecoverSegments(Operation &operation, const std::string &anyPart, const std::string &folder);

// The bytes of one file, or of a set of segments as one range.
class ArchiveBytes {
public:
    virtual ~ArchiveBytes() = default;
    virtual std::uint64_t size() const = 0;
    // Exactly `size` bytes; kEngineArchiveTruncated past the end.
    virtual Result ReadAt(std::uint64_t offset, void *buffer, std::size_t size) = 0;
    // After a check failed on bytes in [offset, offset + size): a damaged
    // segment among them is asked for again with (200,10), under its name.
    // kEngineOK when a sound copy took its place and the read may be tried
    // again; kEngineItemDataDamaged when none did.
    virtual Result ReplaceDamaged(std::uint64_t, std::uint64_t, Operation *) {
        return kEngineItemDataDamaged;
    }
    // The files the archive lies in, in order.
    virtual std::vector<std::string> Files() const = 0;
    virtual bool Segmented() const { return false; }
};

// Opens a plain file or, when `path` is any part of a set, the whole set:
// parts not beside it are asked for with (200,10).
Result OpenArchiveBytes(const std::string &path, Operation *operation,
                        std::shared_ptr<ArchiveBytes> &bytes);

// What an index file records of the archive it describes.
struct IndexReference {
    bool segmented = false;
    std::uint32_t segmentCount = 1;
    std::array<std::uint8_t, kSetIdSize> setId{};
    std::uint64_t archiveLength = 0;
    std::uint64_t catalogueOffset = 0, catalogueSize = 0;
    std::array<std::uint8_t, kHashSize> catalogueHash{};
    std::string archiveName;  // file name of the archive or of its first part
};

// Where an archive's catalogue and its blocks are read from. For an index
// the blocks lie in another archive, found when data is first read.
class ArchiveSource {
public:
    std::shared_ptr<ArchiveBytes> own;  // what the catalogue was read from
    std::string ownPath;
    std::uint64_t start = 0;  // of the archive in `own`
    std::optional<IndexReference> reference;

    // Reads at an offset of the archive that holds the blocks.
    Result ReadData(std::uint64_t offset, void *buffer, std::size_t size, Operation *operation);
    Result ReplaceDamaged(std::uint64_t offset, std::uint64_t size, Operation *operation);
    // Where the blocks end: the catalogue of the archive that holds them.
    std::uint64_t DataEnd(std::uint64_t ownCatalogueOffset) const {
        return reference ? reference->catalogueOffset : ownCatalogueOffset;
    }

private:
    Result FindIndexedArchive(Operation *operation);
    std::mutex mutex_;
    std::shared_ptr<ArchiveBytes> data_;
    std::uint64_t dataStart_ = 0;
};

}  // namespace engine::vnkx
