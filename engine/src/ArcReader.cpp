#include "ArcReader.h"

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"
#include "DecodedItems.h"
#include "LibArchive.h"
#include "ZipDirectory.h"

namespace engine {
namespace {

constexpr std::uint8_t kMarker = 0x1A;
constexpr std::size_t kNameField = 13;
// Method 1 (the first stored form) has no original size: its header is
// four bytes shorter.
constexpr std::size_t kOldHeader = 2 + kNameField + 4 + 2 + 2 + 2, kHeader = kOldHeader + 4;
enum Method : std::uint8_t {
    kEnd = 0,
    kStoredOld = 1,
    kStored = 2,
    kPacked = 3,
    kSqueezed = 4,
    kCrunched = 8,
    kSquashed = 9,
    // ARC's own information records and later programs' extensions: not items.
    kFirstRecord = 20,
};
constexpr std::uint8_t kRunMark = 0x90;

struct ArcEntry {
    ItemInfo info;
    std::uint8_t method = 0;
    std::size_t dataAt = 0, packedSize = 0;
    std::uint16_t crc = 0;
};

// CRC-16 with the polynomial 0x8005, bits reflected, starting at 0.
std::uint16_t ArcCrc(const std::vector<std::uint8_t> &data) {
    std::uint16_t crc = 0;
    for (std::uint8_t byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
    }
    return crc;
}

// The entries in file order, up to the end mark. Anything else where a
// header should begin, or data reaching past the file, is damage.
Result ReadEntries(const std::vector<std::uint8_t> &file, std::vector<ArcEntry> &entries) {
    std::size_t at = 0;
    for (;;) {
        if (at + 2 > file.size()) return kEngineArchiveTruncated;
        if (file[at] != kMarker) return kEngineCatalogueDamaged;
        std::uint8_t method = file[at + 1];
        if (method == kEnd) return kEngineOK;
        std::size_t headerSize = method == kStoredOld ? kOldHeader : kHeader;
        if (file.size() - at < headerSize) return kEngineArchiveTruncated;
        const std::uint8_t *h = file.data() + at;
        ArcEntry entry;
        entry.method = method;
        entry.packedSize = Le32(h + 15);
        entry.dataAt = at + headerSize;
        if (entry.packedSize > file.size() - entry.dataAt) return kEngineArchiveTruncated;
        at = entry.dataAt + entry.packedSize;
        if (method >= kFirstRecord) continue;
        std::size_t nameLength = 0;
        while (nameLength < kNameField && h[2 + nameLength] != 0) ++nameLength;
        entry.info.rawPath.assign(reinterpret_cast<const char *>(h + 2), nameLength);
        entry.info.path = BareName(ZipText(h + 2, nameLength, false));
        if (entry.info.path.empty()) return kEngineCatalogueDamaged;
        entry.info.modified = FileTimeFromDos(Le16(h + 19), Le16(h + 21));
        entry.crc = Le16(h + 23);
        entry.info.size = method == kStoredOld ? entry.packedSize : Le32(h + 25);
        entry.info.compressedSize = entry.packedSize;
        entries.push_back(std::move(entry));
    }
}

// Undoes the packing of runs: 0x90 n repeats the byte before it until n
// bytes stand, and 0x90 0 is 0x90 itself (which does not start a run).
class RunExpander {
public:
    RunExpander(std::vector<std::uint8_t> &out, std::size_t limit) : out_(out), limit_(limit) {}
    bool Put(std::uint8_t byte) {
        if (!afterMark_) {
            if (byte == kRunMark) {
                afterMark_ = true;
                return true;
            }
            last_ = byte;
            return Add(byte, 1);
        }
        afterMark_ = false;
        if (byte == 0) return Add(kRunMark, 1);
        return Add(last_, byte - 1u);
    }

private:
    bool Add(std::uint8_t byte, std::size_t count) {
        if (count > limit_ - out_.size()) return false;
        out_.insert(out_.end(), count, byte);
        return true;
    }
    std::vector<std::uint8_t> &out_;
    std::size_t limit_;
    bool afterMark_ = false;
    std::uint8_t last_ = 0;
};

// Huffman coding of the packed bytes: a node count, the nodes as pairs of
// 16-bit children (a negative child -(v + 1) is the value v, 256 the end),
// then the codes, low bit of each byte first. The squeezer need not write
// the end code: the data may simply run out.
bool Unsqueeze(const std::uint8_t *in, std::size_t size, RunExpander &out) {
    constexpr int kEndValue = 256;
    if (size < 2) return false;
    std::size_t count = Le16(in);
    if (count > 256 || 2 + 4 * count > size) return false;
    std::vector<std::int16_t> children(2 * std::max<std::size_t>(count, 1), -(kEndValue + 1));
    for (std::size_t i = 0; i < 2 * count; ++i)
        children[i] = static_cast<std::int16_t>(Le16(in + 2 + 2 * i));
    std::size_t at = 2 + 4 * count, bit = 8;
    std::uint8_t byte = 0;
    for (;;) {
        int node = 0;
        while (node >= 0) {
            if (bit == 8) {
                if (at == size) return true;
                byte = in[at++];
                bit = 0;
            }
            if (static_cast<std::size_t>(node) >= std::max<std::size_t>(count, 1)) return false;
            node = children[2 * static_cast<std::size_t>(node) + ((byte >> bit++) & 1)];
        }
        int value = -(node + 1);
        if (value == kEndValue) return true;
        if (value > kEndValue || !out.Put(static_cast<std::uint8_t>(value))) return false;
    }
}

// LZW as Unix compress codes it with resets: codes of 9 bits growing to
// `mostBits`, code 256 clearing the table, and codes read in groups of
// eight, so that a group is left unfinished when the width changes.
class LzwDecoder {
public:
    LzwDecoder(const std::uint8_t *in, std::size_t size, int mostBits)
        : in_(in),
          size_(size),
          mostBits_(mostBits),
          prefix_(std::size_t{1} << mostBits),
          suffix_(std::size_t{1} << mostBits) {
        for (unsigned i = 0; i < 256; ++i) suffix_[i] = static_cast<std::uint8_t>(i);
    }

    template <typename Put>
    bool Run(Put put) {
        long code = NextCode();
        if (code < 0) return true;
        if (code >= 256) return false;
        std::uint8_t last = static_cast<std::uint8_t>(code);
        long previous = code;
        if (!put(last)) return false;
        std::vector<std::uint8_t> stack;
        while ((code = NextCode()) >= 0) {
            if (code == kClear) {
                std::fill(prefix_.begin(), prefix_.begin() + 256, 0);
                clear_ = true;
                next_ = kFirst - 1;
                if ((code = NextCode()) < 0) break;
            }
            long incoming = code;
            if (code > next_) return false;
            if (code == next_) {
                stack.push_back(last);
                code = previous;
            }
            while (code >= 256) {
                if (stack.size() > prefix_.size()) return false;
                stack.push_back(suffix_[static_cast<std::size_t>(code)]);
                code = prefix_[static_cast<std::size_t>(code)];
            }
            last = suffix_[static_cast<std::size_t>(code)];
            stack.push_back(last);
            for (auto byte = stack.rbegin(); byte != stack.rend(); ++byte)
                if (!put(*byte)) return false;
            stack.clear();
            if (next_ < MostCodes()) {
                prefix_[static_cast<std::size_t>(next_)] = static_cast<std::uint16_t>(previous);
                suffix_[static_cast<std::size_t>(next_)] = last;
                ++next_;
            }
            previous = incoming;
        }
        return true;
    }

private:
    static constexpr long kClear = 256, kFirst = 257;
    static constexpr int kFirstBits = 9;

    long MostCodes() const { return 1L << mostBits_; }

    long NextCode() {
        if (clear_ || offset_ >= groupBits_ || next_ > highest_) {
            if (next_ > highest_) {
                ++bits_;
                highest_ = bits_ == mostBits_ ? MostCodes() : (1L << bits_) - 1;
            }
            if (clear_) {
                bits_ = kFirstBits;
                highest_ = (1L << bits_) - 1;
                clear_ = false;
            }
            std::size_t take = std::min<std::size_t>(static_cast<std::size_t>(bits_), size_ - at_);
            if (take == 0) return -1;
            std::memcpy(group_, in_ + at_, take);
            at_ += take;
            offset_ = 0;
            groupBits_ = static_cast<long>(take * 8) - (bits_ - 1);
        }
        long code = 0;
        for (int i = 0; i < bits_; ++i, ++offset_)
            code |= static_cast<long>((group_[offset_ >> 3] >> (offset_ & 7)) & 1) << i;
        return code;
    }

    const std::uint8_t *in_;
    std::size_t size_, at_ = 0;
    int mostBits_, bits_ = kFirstBits;
    long highest_ = (1L << kFirstBits) - 1, next_ = kFirst, offset_ = 0, groupBits_ = 0;
    bool clear_ = false;
    std::uint8_t group_[16] = {};
    std::vector<std::uint16_t> prefix_;
    std::vector<std::uint8_t> suffix_;
};

Result Decode(const std::vector<std::uint8_t> &file, const ArcEntry &entry,
              std::vector<std::uint8_t> &out) {
    const std::uint8_t *in = file.data() + entry.dataAt;
    const std::size_t size = entry.packedSize;
    if (entry.info.size > kDecodeLimit) return kEngineArchiveTooLarge;
    const auto limit = static_cast<std::size_t>(entry.info.size);
    out.clear();
    out.reserve(limit);
    RunExpander runs(out, limit);
    bool decoded = false;
    switch (entry.method) {
        case kStoredOld:
        case kStored:
            out.assign(in, in + size);
            decoded = true;
            break;
        case kPacked:
            decoded =
                std::all_of(in, in + size, [&runs](std::uint8_t byte) { return runs.Put(byte); });
            break;
        case kSqueezed:
            decoded = Unsqueeze(in, size, runs);
            break;
        case kCrunched:
            // The first byte names the widest code.
            decoded = size > 0 && in[0] >= 9 && in[0] <= 13 &&
                      LzwDecoder(in + 1, size - 1, in[0]).Run([&runs](std::uint8_t byte) {
                          return runs.Put(byte);
                      });
            break;
        case kSquashed:
            decoded = LzwDecoder(in, size, 13).Run([&out, limit](std::uint8_t byte) {
                if (out.size() == limit) return false;
                out.push_back(byte);
                return true;
            });
            break;
        default:
            return kEngineMethodUnsupported;
    }
    if (!decoded || out.size() != limit || ArcCrc(out) != entry.crc) return kEngineItemDataDamaged;
    return kEngineOK;
}

}  // namespace

Result OpenArcReader(const ReadRequest &request, std::unique_ptr<ReadCursor> &cursor) {
    return OpenEntryArchive<ArcEntry>(request.path, ReadEntries, Decode, cursor);
}

}  // namespace engine
