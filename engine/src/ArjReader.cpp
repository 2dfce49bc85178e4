#include "ArjReader.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"
#include "CanonicalCode.h"
#include "DecodedItems.h"
#include "LibArchive.h"
#include "ZipDirectory.h"

namespace engine {
namespace {

constexpr std::size_t kMostBasicHeader = 2600, kLeastFirstHeader = 30;
enum FileType : std::uint8_t { kMainHeader = 2, kFolder = 3, kVolumeLabel = 4, kChapter = 5 };
constexpr std::uint8_t kGarbled = 0x01, kContinuesInNextVolume = 0x04;
constexpr std::uint8_t kHostUnix = 2, kHostNext = 8;
enum Method : std::uint8_t { kStored = 0, kMostHuffman = 3, kFastest = 4 };
// Methods 1 to 3: the code tables and the least match.
constexpr unsigned kLiteralCodes = 510, kLengthCodes = 19, kPositionCodes = 17;
constexpr unsigned kLiteralCountBits = 9, kLengthCountBits = 5, kPositionCountBits = 5;
constexpr unsigned kLeastMatch = 3, kLongestCode = CanonicalCode::kLongest;

struct ArjEntry {
    ItemInfo info;
    std::uint8_t method = 0;
    std::size_t dataAt = 0, packedSize = 0;
    std::uint32_t crc = 0;
    bool continued = false;
};

// Reads bits first bit highest, as the coder wrote them; past the end it
// gives zeros and remembers that it did.
class BitReader {
public:
    BitReader(const std::uint8_t *in, std::size_t size) : in_(in), size_(size) {}
    std::uint32_t Peek(unsigned count) {
        Fill();
        return count ? static_cast<std::uint32_t>(bits_ >> (64 - count)) : 0;
    }
    void Skip(unsigned count) {
        bits_ <<= count;
        have_ -= count;
        taken_ += count;
    }
    std::uint32_t Get(unsigned count) {
        std::uint32_t value = Peek(count);
        Skip(count);
        return value;
    }
    bool Overrun() const { return taken_ > 8 * static_cast<std::uint64_t>(size_); }

private:
    void Fill() {
        while (have_ <= 56) {
            std::uint64_t byte = at_ < size_ ? in_[at_++] : 0;
            bits_ |= byte << (56 - have_);
            have_ += 8;
        }
    }
    const std::uint8_t *in_;
    std::size_t size_, at_ = 0;
    std::uint64_t bits_ = 0, taken_ = 0;
    unsigned have_ = 0;
};

// A canonical Huffman code of up to 16 bits, sent first bit highest; or a
// single symbol that takes no bits.
class Code {
public:
    bool Build(const std::uint8_t *lengths, unsigned symbolCount) {
        constant_ = -1;
        return canonical_.Build(lengths, symbolCount);
    }
    void Constant(unsigned symbol) { constant_ = static_cast<int>(symbol); }
    // -1 for a code that was never assigned.
    int Decode(BitReader &bits) const {
        if (constant_ >= 0) return constant_;
        std::uint32_t peek = bits.Peek(kLongestCode);
        unsigned length = 0;
        int symbol = canonical_.Decode(
            [peek](unsigned i) { return static_cast<int>((peek >> (kLongestCode - 1 - i)) & 1); },
            length);
        if (symbol >= 0) bits.Skip(length);
        return symbol;
    }

private:
    CanonicalCode canonical_;
    int constant_ = -1;
};

// Copies a match byte by byte (it may overlap what it makes); false when it
// reaches back before the start.
bool CopyMatch(std::vector<std::uint8_t> &out, std::size_t distance, std::size_t length,
               std::size_t limit) {
    if (distance == 0 || distance > out.size()) return false;
    length = std::min(length, limit - out.size());
    for (std::size_t i = 0; i < length; ++i) out.push_back(out[out.size() - distance]);
    return true;
}

// Methods 1 to 3: blocks, each with a count of codes, the code of the code
// lengths, the literal-and-length code, and the position code.
class HuffmanDecoder {
public:
    HuffmanDecoder(const std::uint8_t *in, std::size_t size) : bits_(in, size) {}

    bool Run(std::vector<std::uint8_t> &out, std::size_t limit) {
        std::uint16_t blockLeft = 0;
        while (out.size() < limit) {
            if (blockLeft == 0) {
                blockLeft = static_cast<std::uint16_t>(bits_.Get(16));
                if (!ReadSmallCode(lengthCode_, kLengthCodes, kLengthCountBits, 3) ||
                    !ReadLiteralCode() ||
                    !ReadSmallCode(positionCode_, kPositionCodes, kPositionCountBits, -1))
                    return false;
            }
            --blockLeft;  // a block of 0 codes stands for 65536, as the archiver counts
            int symbol = literalCode_.Decode(bits_);
            if (symbol < 0) return false;
            if (symbol < 256) {
                out.push_back(static_cast<std::uint8_t>(symbol));
            } else {
                std::size_t length = static_cast<unsigned>(symbol) - 256 + kLeastMatch;
                int position = positionCode_.Decode(bits_);
                if (position < 0) return false;
                std::size_t distance = 1;
                if (position > 0)
                    distance += (std::size_t{1} << (position - 1)) +
                                bits_.Get(static_cast<unsigned>(position - 1));
                if (!CopyMatch(out, distance, length, limit)) return false;
            }
            if (bits_.Overrun()) return false;
        }
        return true;
    }

private:
    // How many lengths a code lists; none means one symbol follows, which
    // the code gives without taking bits. False when either is out of range.
    bool ReadLengthCount(Code &code, unsigned symbolCount, unsigned countBits, unsigned &count) {
        count = bits_.Get(countBits);
        if (count > 0) return count <= symbolCount;
        unsigned symbol = bits_.Get(countBits);
        code.Constant(symbol);
        return symbol < symbolCount;
    }

    // The code of code lengths and the position code: each length in three
    // bits, 7 followed by one bit a step longer; after the third length of
    // the first, two bits of zero lengths.
    bool ReadSmallCode(Code &code, unsigned symbolCount, unsigned countBits, int zerosAfter) {
        unsigned count = 0;
        if (!ReadLengthCount(code, symbolCount, countBits, count)) return false;
        if (count == 0) return true;
        std::uint8_t lengths[kLengthCodes] = {};
        for (unsigned i = 0; i < count;) {
            unsigned length = bits_.Get(3);
            if (length == 7)
                while (bits_.Get(1))
                    if (++length > kLongestCode) return false;
            lengths[i++] = static_cast<std::uint8_t>(length);
            if (static_cast<int>(i) == zerosAfter)
                for (unsigned zeros = bits_.Get(2); zeros > 0 && i < symbolCount; --zeros)
                    lengths[i++] = 0;
        }
        return code.Build(lengths, symbolCount);
    }

    // The lengths of the literal code, coded with the code of code lengths:
    // 0 to 2 are runs of zero lengths (one; 3 to 18; 20 to 531), the rest a
    // length plus two.
    bool ReadLiteralCode() {
        unsigned count = 0;
        if (!ReadLengthCount(literalCode_, kLiteralCodes, kLiteralCountBits, count)) return false;
        if (count == 0) return true;
        std::uint8_t lengths[kLiteralCodes] = {};
        for (unsigned i = 0; i < count;) {
            int symbol = lengthCode_.Decode(bits_);
            if (symbol < 0) return false;
            if (symbol > 2) {
                lengths[i++] = static_cast<std::uint8_t>(symbol - 2);
                continue;
            }
            unsigned zeros = symbol == 0   ? 1
                             : symbol == 1 ? bits_.Get(4) + 3
                                           : bits_.Get(kLiteralCountBits) + 20;
            if (zeros > kLiteralCodes - i) return false;
            i += zeros;
        }
        return literalCode_.Build(lengths, kLiteralCodes);
    }

    BitReader bits_;
    Code lengthCode_, literalCode_, positionCode_;
};

// Method 4: a literal or a match length as a run of one bits choosing a
// width, then that many bits; positions alike, from a width of 9 bits.
class FastestDecoder {
public:
    FastestDecoder(const std::uint8_t *in, std::size_t size) : bits_(in, size) {}

    bool Run(std::vector<std::uint8_t> &out, std::size_t limit) {
        while (out.size() < limit) {
            std::uint32_t length = Stepped(0, 7);
            if (length == 0) {
                out.push_back(static_cast<std::uint8_t>(bits_.Get(8)));
            } else {
                std::size_t distance = Stepped(9, 13) + 1;
                if (!CopyMatch(out, distance, length - 1 + kLeastMatch, limit)) return false;
            }
            if (bits_.Overrun()) return false;
        }
        return true;
    }

private:
    std::uint32_t Stepped(unsigned firstWidth, unsigned endWidth) {
        std::uint32_t base = 0, step = 1u << firstWidth;
        unsigned width = firstWidth;
        for (; width < endWidth && bits_.Get(1); ++width, step <<= 1) base += step;
        return base + bits_.Get(width);
    }

    BitReader bits_;
};

Result Decode(const std::vector<std::uint8_t> &file, const ArjEntry &entry,
              std::vector<std::uint8_t> &out) {
    if (entry.info.encrypted) return kEngineEncryptionUnsupported;
    if (entry.continued) return kEngineMethodUnsupported;
    if (entry.info.size > kDecodeLimit) return kEngineArchiveTooLarge;
    const std::uint8_t *in = file.data() + entry.dataAt;
    const std::size_t size = entry.packedSize;
    const auto limit = static_cast<std::size_t>(entry.info.size);
    out.clear();
    out.reserve(limit);
    bool decoded = false;
    if (entry.method == kStored) {
        out.assign(in, in + size);
        decoded = true;
    } else if (entry.method <= kMostHuffman) {
        decoded = HuffmanDecoder(in, size).Run(out, limit);
    } else if (entry.method == kFastest) {
        decoded = FastestDecoder(in, size).Run(out, limit);
    } else {
        return kEngineMethodUnsupported;
    }
    if (!decoded || out.size() != limit ||
        crc32(0, out.data(), static_cast<uInt>(out.size())) != entry.crc)
        return kEngineItemDataDamaged;
    return kEngineOK;
}

// An entry of a local header's basic part: the fields, then the name and
// the comment, each ending in a zero byte.
bool ReadFileHeader(const std::uint8_t *basic, std::size_t basicSize, ArjEntry &entry) {
    std::size_t first = basic[0];
    if (first < kLeastFirstHeader || first >= basicSize) return false;
    const std::uint8_t host = basic[3], flags = basic[4], type = basic[6];
    entry.method = basic[5];
    entry.info.encrypted = (flags & kGarbled) != 0;
    entry.continued = (flags & kContinuesInNextVolume) != 0;
    const std::uint32_t stamp = Le32(basic + 8);
    entry.info.modified = host == kHostUnix || host == kHostNext
                              ? FileTimeFromUnix(stamp, 0)
                              : FileTimeFromDos(static_cast<std::uint16_t>(stamp >> 16),
                                                static_cast<std::uint16_t>(stamp));
    entry.info.size = Le32(basic + 16);
    entry.crc = Le32(basic + 20);
    if (host == kHostUnix || host == kHostNext) entry.info.mode = Le16(basic + 26) & 07777u;
    entry.info.folder = type == kFolder;
    const auto *name = basic + first;
    std::size_t nameLength = 0;
    while (first + nameLength < basicSize && name[nameLength] != 0) ++nameLength;
    entry.info.rawPath.assign(reinterpret_cast<const char *>(name), nameLength);
    std::wstring path = ZipText(name, nameLength, false);
    std::replace(path.begin(), path.end(), L'\\', L'/');
    entry.info.path = CleanItemPath(path);
    return !entry.info.path.empty();
}

// The main header, then each file's header and data, up to a header of
// size 0. Every header carries a CRC-32 of its basic part.
Result ReadEntries(const std::vector<std::uint8_t> &file, std::vector<ArjEntry> &entries) {
    std::size_t at = 0;
    for (bool main = true;; main = false) {
        if (file.size() - at < 4) return kEngineArchiveTruncated;
        if (file[at] != 0x60 || file[at + 1] != 0xEA) return kEngineCatalogueDamaged;
        const std::size_t basicSize = Le16(file.data() + at + 2);
        if (basicSize == 0) return kEngineOK;
        if (basicSize > kMostBasicHeader) return kEngineCatalogueDamaged;
        if (file.size() - at - 4 < basicSize + 4) return kEngineArchiveTruncated;
        const std::uint8_t *basic = file.data() + at + 4;
        if (crc32(0, basic, static_cast<uInt>(basicSize)) != Le32(basic + basicSize))
            return kEngineCatalogueDamaged;
        // Extended headers follow, each with its size and a CRC, up to a size of 0.
        std::size_t data = at + 4 + basicSize + 4;
        for (;;) {
            if (file.size() - data < 2) return kEngineArchiveTruncated;
            std::size_t extended = Le16(file.data() + data);
            data += 2;
            if (extended == 0) break;
            if (file.size() - data < extended + 4) return kEngineArchiveTruncated;
            data += extended + 4;
        }
        at = data;
        if (main) continue;
        ArjEntry entry;
        if (!ReadFileHeader(basic, basicSize, entry)) return kEngineCatalogueDamaged;
        entry.dataAt = data;
        entry.packedSize = Le32(basic + 12);
        if (entry.packedSize > file.size() - data) return kEngineArchiveTruncated;
        at = data + entry.packedSize;
        entry.info.compressedSize = entry.packedSize;
        const std::uint8_t type = basic[6];
        if (type == kVolumeLabel || type == kChapter || type == kMainHeader) continue;
        entries.push_back(std::move(entry));
    }
}

}  // namespace

Result OpenArjReader(const ReadRequest &request, std::unique_ptr<ReadCursor> &cursor) {
    return OpenEntryArchive<ArjEntry>(request.path, ReadEntries, Decode, cursor);
}

}  // namespace engine
