#include "TextBlockCoder.h"

#include <zstd.h>

#include <cstring>
#include <limits>

#include "PpmDecoder.h"
#include "PpmEncoder.h"
#include "VnkxLayout.h"

namespace engine::vnkx {
namespace {

// Payload: u8 layout (1), u8 PPM order, u16 model MiB, u32 match count,
// u32 list size, u32 packed list size, the packed list, the PPM stream.
constexpr std::uint8_t kLayout = 1;
constexpr std::size_t kHeadSize = 16;
// The list packs a little tighter at higher levels, but it is small and
// every block pays for the level's time.
constexpr int kListLevel = 12;
constexpr std::size_t kMostVarint = 5;

void PutVarint(std::vector<std::uint8_t> &out, std::uint32_t value) {
    while (value >= 0x80) {
        out.push_back(static_cast<std::uint8_t>(value | 0x80));
        value >>= 7;
    }
    out.push_back(static_cast<std::uint8_t>(value));
}

// Reads varints from a buffer, refusing any that runs past its end or past
// 32 bits.
class VarintReader {
public:
    VarintReader(const std::uint8_t *in, std::size_t size) : in_(in), size_(size) {}
    bool Next(std::uint32_t &value) {
        std::uint64_t result = 0;
        for (int shift = 0; shift < 35; shift += 7) {
            if (at_ == size_) return false;
            std::uint8_t byte = in_[at_++];
            result |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
            if (!(byte & 0x80)) {
                if (result > std::numeric_limits<std::uint32_t>::max()) return false;
                value = static_cast<std::uint32_t>(result);
                return true;
            }
        }
        return false;
    }
    bool AtEnd() const { return at_ == size_; }

private:
    const std::uint8_t *in_;
    std::size_t size_, at_ = 0;
};

// Each field of the matches in a column of its own: literal runs, then
// distances, then lengths; alike numbers side by side pack better.
std::vector<std::uint8_t> ListOf(const std::vector<LongMatch> &matches) {
    std::vector<std::uint8_t> list;
    list.reserve(matches.size() * 8);
    for (const LongMatch &match : matches) PutVarint(list, match.literals);
    for (const LongMatch &match : matches) PutVarint(list, match.distance);
    for (const LongMatch &match : matches) PutVarint(list, match.length);
    return list;
}

// Copies a match byte by byte where it overlaps what it makes (a run).
void CopyMatch(std::uint8_t *out, std::size_t at, std::size_t distance, std::size_t length) {
    std::uint8_t *to = out + at;
    const std::uint8_t *from = to - distance;
    if (distance >= length) {
        std::memcpy(to, from, length);
    } else {
        for (std::size_t i = 0; i < length; ++i) to[i] = from[i];
    }
}

struct Head {
    PpmSettings ppm;
    std::uint32_t count, listSize, packedSize;
};

// The model settings a payload may carry: a hostile order or model size
// must not cost memory.
bool Accepted(const PpmSettings &ppm) {
    return ppm.order >= TextBlockCoder::kLeastOrder && ppm.order <= TextBlockCoder::kMostOrder &&
           ppm.memoryMiB >= 1 && ppm.memoryMiB <= TextBlockCoder::kMostModelMiB;
}

// Every match makes at least one byte, so a block has no more matches than
// bytes: with the packed list's own size, that bounds what the list may take
// before any of it is made.
bool ReadHead(const std::uint8_t *payload, std::size_t size, std::size_t unpackedSize, Head &head) {
    Reader in(payload, size);
    std::uint8_t layout = 0, order = 0;
    std::uint16_t memory = 0;
    if (!in.U8(layout) || layout != kLayout || !in.U8(order) || !in.U16(memory) ||
        !in.U32(head.count) || !in.U32(head.listSize) || !in.U32(head.packedSize))
        return false;
    head.ppm.order = order;
    head.ppm.memoryMiB = memory;
    return Accepted(head.ppm) && head.count <= unpackedSize &&
           head.listSize <= 3 * kMostVarint * static_cast<std::uint64_t>(head.count) &&
           head.packedSize <= size - kHeadSize &&
           (head.listSize == 0 ||
            ZSTD_getFrameContentSize(payload + kHeadSize, head.packedSize) == head.listSize);
}

bool UnpackList(const std::uint8_t *packed, const Head &head, std::vector<LongMatch> &matches) {
    std::vector<std::uint8_t> list(head.listSize);
    if (head.listSize > 0) {
        std::size_t made = ZSTD_decompress(list.data(), list.size(), packed, head.packedSize);
        if (ZSTD_isError(made) || made != list.size()) return false;
    } else if (head.packedSize != 0) {
        return false;
    }
    // At least three bytes a match: a count the list cannot hold is refused
    // before anything the size of the count is made.
    if (head.count > list.size() / 3) return false;
    matches.resize(head.count);
    VarintReader reader(list.data(), list.size());
    for (LongMatch &match : matches)
        if (!reader.Next(match.literals)) return false;
    for (LongMatch &match : matches)
        if (!reader.Next(match.distance)) return false;
    for (LongMatch &match : matches)
        if (!reader.Next(match.length)) return false;
    return reader.AtEnd();
}

}  // namespace

bool TextBlockCoder::Encode(const std::uint8_t *data, std::size_t size,
                            const TextSettings &settings, std::vector<std::uint8_t> &payload) {
    if (size >= std::numeric_limits<std::uint32_t>::max() || !Accepted(settings.ppm)) return false;
    std::vector<LongMatch> matches = LongMatchFinder(settings.minimumMatch).Find(data, size);
    std::vector<std::uint8_t> list = ListOf(matches);
    std::vector<std::uint8_t> packed(ZSTD_compressBound(list.size()));
    std::size_t packedSize = list.empty() ? 0
                                          : ZSTD_compress(packed.data(), packed.size(), list.data(),
                                                          list.size(), kListLevel);
    if (ZSTD_isError(packedSize)) return false;

    PpmEncoder encoder(settings.ppm);
    if (!encoder.Ready()) return false;
    std::size_t at = 0;
    for (const LongMatch &match : matches) {
        encoder.Add(data + at, match.literals);
        at += match.literals + match.length;
    }
    encoder.Add(data + at, size - at);
    std::vector<std::uint8_t> stream = encoder.Finish();

    Writer head;
    head.bytes.reserve(kHeadSize + packedSize + stream.size());
    head.U8(kLayout);
    head.U8(static_cast<std::uint8_t>(settings.ppm.order));
    head.U16(static_cast<std::uint16_t>(settings.ppm.memoryMiB));
    head.U32(static_cast<std::uint32_t>(matches.size()));
    head.U32(static_cast<std::uint32_t>(list.size()));
    head.U32(static_cast<std::uint32_t>(packedSize));
    payload = std::move(head.bytes);
    payload.insert(payload.end(), packed.begin(),
                   packed.begin() + static_cast<std::ptrdiff_t>(packedSize));
    payload.insert(payload.end(), stream.begin(), stream.end());
    return true;
}

Result TextBlockCoder::Decode(const std::uint8_t *payload, std::size_t size, std::uint8_t *out,
                              std::size_t unpackedSize) {
    Head head;
    std::vector<LongMatch> matches;
    if (!ReadHead(payload, size, unpackedSize, head) ||
        !UnpackList(payload + kHeadSize, head, matches))
        return kEngineItemDataDamaged;
    const std::size_t streamAt = kHeadSize + head.packedSize;
    PpmDecoder decoder(head.ppm, payload + streamAt, size - streamAt);
    if (!decoder.Ready()) return kEngineOutOfMemory;
    std::size_t at = 0;
    for (const LongMatch &match : matches) {
        if (match.literals > unpackedSize - at || !decoder.Read(out + at, match.literals))
            return kEngineItemDataDamaged;
        at += match.literals;
        if (match.length == 0 || match.distance == 0 || match.distance > at ||
            match.length > unpackedSize - at)
            return kEngineItemDataDamaged;
        CopyMatch(out, at, match.distance, match.length);
        at += match.length;
    }
    if (!decoder.Read(out + at, unpackedSize - at)) return kEngineItemDataDamaged;
    return kEngineOK;
}

std::uint64_t TextBlockCoder::EncoderMemory(const TextSettings &settings, std::uint64_t blockSize) {
    LongMatchFinder finder(settings.minimumMatch);
    std::uint64_t table = finder.TableSlots(static_cast<std::size_t>(blockSize)) * 4 * 9 / 8;
    std::uint64_t list = blockSize / settings.minimumMatch * (sizeof(LongMatch) + 2 * 8);
    // The payload is at most the block's literals and the list.
    return (std::uint64_t{settings.ppm.memoryMiB} << 20) + table + list + blockSize;
}

}  // namespace engine::vnkx
