// Writing index files: the catalogue region of the archive is copied as it
// is stored (so an enciphered catalogue stays enciphered, and its hash is
// the archive's), after a reference record that names the archive.
#include "VnkxIndex.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "FileSystem.h"
#include "Operation.h"

namespace engine::vnkx {
namespace {

constexpr std::uint8_t kReferenceMagic[4] = {'V', 'R', 'E', 'F'};
constexpr std::uint16_t kReferenceSegmented = 1;
// A catalogue larger than this is taken as damage, as the reader does.
constexpr std::uint64_t kMostCatalogue = 1ULL << 30;

// The archive's trailer and catalogue region, checked against each other.
Result ReadCatalogueRegion(ArchiveBytes &bytes, Trailer &trailer, std::uint64_t &start,
                           Bytes &region) {
    std::uint64_t size = bytes.size();
    std::uint8_t end[kTrailerSize];
    if (size < kHeaderSize + kTrailerSize) return kEngineArchiveTruncated;
    if (Result result = bytes.ReadAt(size - kTrailerSize, end, kTrailerSize)) return result;
    if (!DecodeTrailer(end, kTrailerSize, trailer) || trailer.archiveLength > size ||
        trailer.archiveLength < kHeaderSize + kTrailerSize)
        return kEngineNotAnArchive;
    start = size - trailer.archiveLength;
    std::uint8_t header[kHeaderSize];
    if (Result result = bytes.ReadAt(start, header, kHeaderSize)) return result;
    if (HeaderFlavour(header, kHeaderSize) != Flavour::Vnkx) return kEngineWrongFormat;
    // An index of an index would describe no archive at all.
    if (trailer.flags & kFlagIndexFile) return kEngineWrongFormat;
    if (trailer.catalogueOffset < kHeaderSize || trailer.catalogueSize > kMostCatalogue ||
        trailer.catalogueOffset + trailer.catalogueSize > trailer.archiveLength - kTrailerSize)
        return kEngineCatalogueDamaged;
    region.resize(static_cast<std::size_t>(trailer.catalogueSize));
    if (Result result = bytes.ReadAt(start + trailer.catalogueOffset, region.data(), region.size()))
        return result;
    if (Sha256(region.data(), region.size()) != trailer.catalogueHash)
        return kEngineCatalogueDamaged;
    return kEngineOK;
}

IndexReference ReferenceTo(const ArchiveBytes &bytes, const Trailer &trailer) {
    IndexReference reference;
    std::vector<std::string> files = bytes.Files();
    reference.archiveName = NameOf(files.front());
    reference.segmented = bytes.Segmented();
    reference.segmentCount = static_cast<std::uint32_t>(files.size());
    if (reference.segmented) {
        if (std::optional<SegmentHeader> first = ReadSegmentHeader(files.front()))
            reference.setId = first->setId;
    }
    reference.archiveLength = trailer.archiveLength;
    reference.catalogueOffset = trailer.catalogueOffset;
    reference.catalogueSize = trailer.catalogueSize;
    reference.catalogueHash = trailer.catalogueHash;
    return reference;
}

}  // namespace

Bytes EncodeReference(const IndexReference &reference) {
    Writer out;
    out.Raw(kReferenceMagic, 4);
    out.U16(reference.segmented ? kReferenceSegmented : 0);
    out.U16(0);
    out.U32(reference.segmentCount);
    out.Raw(reference.setId.data(), reference.setId.size());
    out.U64(reference.archiveLength);
    out.U64(reference.catalogueOffset);
    out.U64(reference.catalogueSize);
    out.Raw(reference.catalogueHash.data(), reference.catalogueHash.size());
    out.Text(reference.archiveName);
    out.U32(Crc32(out.bytes.data(), out.bytes.size()));
    return out.bytes;
}

bool DecodeReference(const std::uint8_t *data, std::size_t size, IndexReference &reference) {
    if (size < 8 || std::memcmp(data, kReferenceMagic, 4) != 0) return false;
    std::uint32_t crc = 0;
    Reader tail(data + size - 4, 4);
    if (!tail.U32(crc) || Crc32(data, size - 4) != crc) return false;
    Reader in(data + 4, size - 8);
    std::uint16_t flags = 0, reserved = 0;
    bool read = in.U16(flags) && in.U16(reserved) && in.U32(reference.segmentCount) &&
                in.Raw(reference.setId.data(), reference.setId.size()) &&
                in.U64(reference.archiveLength) && in.U64(reference.catalogueOffset) &&
                in.U64(reference.catalogueSize) &&
                in.Raw(reference.catalogueHash.data(), reference.catalogueHash.size()) &&
                in.Text(reference.archiveName) && in.left() == 0;
    reference.segmented = (flags & kReferenceSegmented) != 0;
    // The name is looked up beside the index and asked for: a bare name only.
    return read && !reference.archiveName.empty() &&
           reference.archiveName.find('/') == std::string::npos && reference.archiveName != "." &&
           reference.archiveName != "..";
}

std::string IndexPathFor(const std::string &requested) {
    std::string name = NameOf(requested);
    return name.find('.', 1) == std::string::npos ? requested + ".vidx" : requested;
}

Result WriteIndex(Operation &operation, const std::string &archive, const std::string &index) {
    std::shared_ptr<ArchiveBytes> bytes;
    if (Result result = OpenArchiveBytes(archive, &operation, bytes)) return result;
    Trailer trailer;
    std::uint64_t start = 0;
    Bytes region;
    if (Result result = ReadCatalogueRegion(*bytes, trailer, start, region)) return result;
    if (Result stop = operation.WritingCatalogue()) return stop;

    Bytes reference = EncodeReference(ReferenceTo(*bytes, trailer));
    // The copied catalogue keeps its cipher and layout.
    std::uint16_t flags =
        (trailer.flags & (kFlagCatalogueEnciphered | kFlagColumnCatalogue)) | kFlagIndexFile;
    Bytes out = EncodeHeader(Flavour::Vnkx, trailer.version, flags);
    out.insert(out.end(), reference.begin(), reference.end());
    Trailer own;
    own.version = trailer.version;
    own.flags = flags;
    own.catalogueOffset = out.size();
    own.catalogueSize = region.size();
    own.catalogueHash = trailer.catalogueHash;
    out.insert(out.end(), region.begin(), region.end());
    own.archiveLength = out.size() + kTrailerSize;
    Bytes end = EncodeTrailer(own);
    out.insert(out.end(), end.begin(), end.end());

    // The folder of an index is made when missing: the library's unique
    // names may put the index into a folder of its own.
    std::string temporary;
    if (MakeFolders(ParentOf(index)) != kEngineOK || TemporaryBeside(index, temporary) != kEngineOK)
        return kEngineIndexWriteFailed;
    Result result = kEngineOK;
    {
        UniqueFd fd(open(temporary.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
        result = fd.valid() ? WriteAll(fd.get(), out.data(), out.size()) : LastErrno();
    }
    if (result != kEngineOK) {
        unlink(temporary.c_str());
        return result;
    }
    return PutInPlace(temporary, index);
}

}  // namespace engine::vnkx
