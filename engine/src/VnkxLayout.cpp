#include "VnkxLayout.h"

#include <libdeflate.h>
#include <openssl/sha.h>

#include <cstring>
#include <map>

namespace engine::vnkx {
namespace {

constexpr std::uint8_t kBlockMagic[4] = {'V', 'B', 'L', 'K'};
constexpr std::uint8_t kTrailerMagic[4] = {'V', 'N', 'K', 'T'};
constexpr std::uint8_t kTrailerEnd[4] = {'V', 'N', 'K', 'E'};
// Limits a reader holds a catalogue to before it allocates anything.
constexpr std::uint32_t kMostBlocks = 1u << 24;
// The encoded size of one block entry of the catalogue.
constexpr std::size_t kBlockEntrySize = 44;
constexpr std::uint32_t kMostItems = 1u << 24;
constexpr std::uint32_t kMostExtents = 1u << 20;
// Bits of an item's flags.
constexpr std::uint8_t kItemHasComment = 1;
constexpr std::uint8_t kItemHasLegacyName = 2;
constexpr std::uint8_t kItemEnciphered = 4;
// A varint of 64 bits takes at most this many bytes.
constexpr int kMostVarintBytes = 10;

std::uint64_t Le(const std::uint8_t *data, int bytes) {
    std::uint64_t value = 0;
    for (int i = bytes; i-- > 0;) value = (value << 8) | data[i];
    return value;
}

}  // namespace

void Writer::U16(std::uint16_t value) {
    U8(static_cast<std::uint8_t>(value));
    U8(static_cast<std::uint8_t>(value >> 8));
}
void Writer::U32(std::uint32_t value) {
    U16(static_cast<std::uint16_t>(value));
    U16(static_cast<std::uint16_t>(value >> 16));
}
void Writer::U64(std::uint64_t value) {
    U32(static_cast<std::uint32_t>(value));
    U32(static_cast<std::uint32_t>(value >> 32));
}
void Writer::Raw(const void *data, std::size_t size) {
    const auto *bytesIn = static_cast<const std::uint8_t *>(data);
    bytes.insert(bytes.end(), bytesIn, bytesIn + size);
}
void Writer::Text(std::string_view text) {
    U32(static_cast<std::uint32_t>(text.size()));
    Raw(text.data(), text.size());
}
void Writer::Varint(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) U8(static_cast<std::uint8_t>(value | 0x80));
    U8(static_cast<std::uint8_t>(value));
}
void Writer::Delta(std::uint64_t value, std::uint64_t base) {
    std::uint64_t difference = value - base;
    // The sign bit moves to bit 0; a negative difference flips the rest.
    Varint((difference << 1) ^ (0 - (difference >> 63)));
}
void Writer::VarText(std::string_view text) {
    Varint(text.size());
    Raw(text.data(), text.size());
}

bool Reader::Raw(void *out, std::size_t size) {
    if (size > left()) return false;
    if (size) std::memcpy(out, data_ + at_, size);
    at_ += size;
    return true;
}
template <class Unsigned>
bool Reader::Fixed(Unsigned &value) {
    if (left() < sizeof(Unsigned)) return false;
    value = static_cast<Unsigned>(Le(data_ + at_, sizeof(Unsigned)));
    at_ += sizeof(Unsigned);
    return true;
}
bool Reader::U8(std::uint8_t &value) { return Fixed(value); }
bool Reader::U16(std::uint16_t &value) { return Fixed(value); }
bool Reader::U32(std::uint32_t &value) { return Fixed(value); }
bool Reader::U64(std::uint64_t &value) { return Fixed(value); }
bool Reader::Text(std::optional<std::string> &text) {
    std::string read;
    if (!Text(read)) return false;
    text = std::move(read);
    return true;
}
bool Reader::Text(std::string &text) {
    std::uint32_t length = 0;
    if (!U32(length) || length > left()) return false;
    text.assign(reinterpret_cast<const char *>(data_ + at_), length);
    at_ += length;
    return true;
}

bool Reader::Varint(std::uint64_t &value) {
    value = 0;
    for (int i = 0; i < kMostVarintBytes && at_ < size_; ++i) {
        std::uint8_t byte = data_[at_++];
        // The tenth byte has room for bit 63 only.
        if (i == kMostVarintBytes - 1 && byte > 1) return false;
        value |= static_cast<std::uint64_t>(byte & 0x7F) << (7 * i);
        if (!(byte & 0x80)) return true;
    }
    return false;
}
bool Reader::Delta(std::uint64_t &value, std::uint64_t base) {
    std::uint64_t zigzag = 0;
    if (!Varint(zigzag)) return false;
    value = base + ((zigzag >> 1) ^ (0 - (zigzag & 1)));
    return true;
}
bool Reader::VarBytes(std::string_view &view) {
    std::uint64_t length = 0;
    if (!Varint(length) || length > left()) return false;
    view = std::string_view(reinterpret_cast<const char *>(data_ + at_),
                            static_cast<std::size_t>(length));
    at_ += static_cast<std::size_t>(length);
    return true;
}
bool Reader::VarText(std::string &text) {
    std::string_view view;
    if (!VarBytes(view)) return false;
    text.assign(view);
    return true;
}
bool Reader::VarText(std::optional<std::string> &text) {
    std::string read;
    if (!VarText(read)) return false;
    text = std::move(read);
    return true;
}

std::array<std::uint8_t, 8> Signature(Flavour flavour) {
    if (flavour == Flavour::Vnk5) return {'V', 'N', 'K', '5', 0x1A, '\r', '\n', 0};
    return {'V', 'N', 'K', 'X', 0x1A, '\r', '\n', 0};
}

Bytes EncodeHeader(Flavour flavour, std::uint16_t version, std::uint16_t flags) {
    Writer out;
    auto signature = Signature(flavour);
    out.Raw(signature.data(), signature.size());
    out.U16(version);
    out.U16(flags);
    out.U32(0);
    return out.bytes;
}

std::optional<Flavour> HeaderFlavour(const std::uint8_t *data, std::size_t size) {
    if (size < kHeaderSize) return std::nullopt;
    for (Flavour flavour : {Flavour::Vnkx, Flavour::Vnk5}) {
        auto signature = Signature(flavour);
        if (std::memcmp(data, signature.data(), signature.size()) == 0) return flavour;
    }
    return std::nullopt;
}

Bytes EncodeBlockHeader(const BlockHeader &header) {
    Writer out;
    out.Raw(kBlockMagic, 4);
    out.U8(header.method);
    out.U8(header.filter);
    out.U8(header.cipher);
    out.U8(0);
    out.U32(header.keySlot);
    out.U64(header.sealNumber);
    out.U64(header.unpackedSize);
    out.U64(header.storedSize);
    out.U32(header.crc);
    return out.bytes;
}

bool DecodeBlockHeader(const std::uint8_t *data, std::size_t size, BlockHeader &header) {
    if (size < kBlockHeaderSize || std::memcmp(data, kBlockMagic, 4) != 0) return false;
    Reader in(data + 4, size - 4);
    std::uint8_t reserved = 0;
    return in.U8(header.method) && in.U8(header.filter) && in.U8(header.cipher) &&
           in.U8(reserved) && in.U32(header.keySlot) && in.U64(header.sealNumber) &&
           in.U64(header.unpackedSize) && in.U64(header.storedSize) && in.U32(header.crc);
}

Bytes EncodeTrailer(const Trailer &trailer) {
    Writer out;
    out.Raw(kTrailerMagic, 4);
    out.U16(trailer.version);
    out.U16(trailer.flags);
    out.U64(trailer.catalogueOffset);
    out.U64(trailer.catalogueSize);
    out.U64(trailer.recoveryOffset);
    out.U64(trailer.recoverySize);
    out.U64(trailer.archiveLength);
    out.Raw(trailer.catalogueHash.data(), kHashSize);
    out.U32(Crc32(out.bytes.data(), out.bytes.size()));
    out.Raw(kTrailerEnd, 4);
    return out.bytes;
}

bool DecodeTrailer(const std::uint8_t *data, std::size_t size, Trailer &trailer) {
    if (size != kTrailerSize || std::memcmp(data, kTrailerMagic, 4) != 0 ||
        std::memcmp(data + kTrailerSize - 4, kTrailerEnd, 4) != 0)
        return false;
    if (Crc32(data, kTrailerSize - 8) != Le(data + kTrailerSize - 8, 4)) return false;
    Reader in(data + 4, kTrailerSize - 4);
    return in.U16(trailer.version) && in.U16(trailer.flags) && in.U64(trailer.catalogueOffset) &&
           in.U64(trailer.catalogueSize) && in.U64(trailer.recoveryOffset) &&
           in.U64(trailer.recoverySize) && in.U64(trailer.archiveLength) &&
           in.Raw(trailer.catalogueHash.data(), kHashSize);
}

void EncodeKeyRecord(Writer &out, const KeyRecord &key) {
    out.U8(key.cipher);
    out.Raw(key.parameters.data(), key.parameters.size());
    out.Raw(key.check.data(), key.check.size());
}

bool DecodeKeyRecord(Reader &in, KeyRecord &key) {
    return in.U8(key.cipher) && in.Raw(key.parameters.data(), key.parameters.size()) &&
           in.Raw(key.check.data(), key.check.size());
}

namespace {

// What version 0 keeps of an item: no comments, the data fork only.
bool KeepsComment(const ItemEntry &item, std::uint16_t version) {
    return item.comment && version > 0;
}
bool KeepsFork(const ForkEntry &fork, std::uint16_t version) {
    return version > 0 || fork.kind == kForkOfData;
}
std::uint8_t ItemFlags(const ItemEntry &item, std::uint16_t version) {
    return (KeepsComment(item, version) ? kItemHasComment : 0) |
           (item.legacyName ? kItemHasLegacyName : 0) | (item.encrypted ? kItemEnciphered : 0);
}
std::uint8_t KeptForks(const ItemEntry &item, std::uint16_t version) {
    std::uint8_t count = 0;
    for (const ForkEntry &fork : item.forks) count += KeepsFork(fork, version);
    return count;
}
bool InsideItsBlock(const Extent &extent, const std::vector<BlockEntry> &blocks) {
    return extent.block < blocks.size() && extent.offset <= blocks[extent.block].unpackedSize &&
           extent.length <= blocks[extent.block].unpackedSize - extent.offset;
}

// The archive comment and the block list, the same in both layouts.
void EncodeHead(Writer &out, const CatalogueBody &body) {
    out.U8(body.comment ? 1 : 0);
    if (body.comment) out.Text(*body.comment);
    out.U32(static_cast<std::uint32_t>(body.blocks.size()));
    for (const BlockEntry &block : body.blocks) {
        out.U64(block.offset);
        out.U64(block.storedSize);
        out.U64(block.unpackedSize);
        out.U8(block.method);
        out.U8(block.filter);
        out.U8(block.cipher);
        out.U8(0);
        out.U32(block.keySlot);
        out.U64(block.sealNumber);
        out.U32(block.crc);
    }
}

bool DecodeHead(Reader &in, CatalogueBody &body) {
    std::uint8_t hasComment = 0;
    if (!in.U8(hasComment) || (hasComment && !in.Text(body.comment))) return false;
    std::uint32_t blocks = 0;
    if (!in.U32(blocks) || blocks > kMostBlocks || blocks > in.left() / kBlockEntrySize)
        return false;
    body.blocks.resize(blocks);
    for (BlockEntry &block : body.blocks) {
        std::uint8_t reserved = 0;
        if (!in.U64(block.offset) || !in.U64(block.storedSize) || !in.U64(block.unpackedSize) ||
            !in.U8(block.method) || !in.U8(block.filter) || !in.U8(block.cipher) ||
            !in.U8(reserved) || !in.U32(block.keySlot) || !in.U64(block.sealNumber) ||
            !in.U32(block.crc))
            return false;
    }
    return true;
}

// The item count, bounded by the fewest bytes an item takes in the rest.
bool DecodeItemCount(Reader &in, std::size_t leastItemSize, CatalogueBody &body) {
    std::uint32_t items = 0;
    if (!in.U32(items) || items > kMostItems || items > in.left() / leastItemSize) return false;
    body.items.resize(items);
    return true;
}

bool FlagsFitVersion(std::uint8_t flags, std::uint16_t version) {
    // Item comments came with version 7.
    return !(flags & kItemHasComment) || version > 0;
}

// -- items one after another -------------------------------------------------

void EncodeRows(Writer &out, const CatalogueBody &body, std::uint16_t version) {
    out.U32(static_cast<std::uint32_t>(body.items.size()));
    for (const ItemEntry &item : body.items) {
        out.U8(item.kind);
        out.U8(ItemFlags(item, version));
        out.Text(item.path);
        if (item.legacyName) out.Text(*item.legacyName);
        out.U64(item.size);
        out.U64(item.modified);
        out.U32(item.mode);
        if (KeepsComment(item, version)) out.Text(*item.comment);
        if (item.kind == kItemLink) out.Text(item.linkTarget);
        out.U8(KeptForks(item, version));
        for (const ForkEntry &fork : item.forks) {
            if (!KeepsFork(fork, version)) continue;
            out.U8(fork.kind);
            out.U64(fork.size);
            out.U32(static_cast<std::uint32_t>(fork.extents.size()));
            for (const Extent &extent : fork.extents) {
                out.U32(extent.block);
                out.U64(extent.offset);
                out.U64(extent.length);
            }
            out.Raw(fork.hash.data(), fork.hash.size());
        }
    }
}

bool DecodeRowFork(Reader &in, const std::vector<BlockEntry> &blocks, ForkEntry &fork) {
    std::uint32_t extents = 0;
    if (!in.U8(fork.kind) || fork.kind > kForkOfThumb || !in.U64(fork.size) || !in.U32(extents) ||
        extents > kMostExtents || extents > in.left() / 20)
        return false;
    fork.extents.resize(extents);
    std::uint64_t total = 0;
    for (Extent &extent : fork.extents) {
        if (!in.U32(extent.block) || !in.U64(extent.offset) || !in.U64(extent.length) ||
            !InsideItsBlock(extent, blocks))
            return false;
        total += extent.length;
    }
    return total == fork.size && in.Raw(fork.hash.data(), fork.hash.size());
}

bool DecodeRows(Reader &in, std::uint16_t version, CatalogueBody &body) {
    if (!DecodeItemCount(in, 30, body)) return false;
    for (ItemEntry &item : body.items) {
        std::uint8_t flags = 0;
        if (!in.U8(item.kind) || item.kind > kItemLink || !in.U8(flags) ||
            !FlagsFitVersion(flags, version) || !in.Text(item.path))
            return false;
        if ((flags & kItemHasLegacyName) && !in.Text(item.legacyName)) return false;
        item.encrypted = (flags & kItemEnciphered) != 0;
        if (!in.U64(item.size) || !in.U64(item.modified) || !in.U32(item.mode)) return false;
        if ((flags & kItemHasComment) && !in.Text(item.comment)) return false;
        if (item.kind == kItemLink && !in.Text(item.linkTarget)) return false;
        std::uint8_t forks = 0;
        if (!in.U8(forks)) return false;
        item.forks.resize(forks);
        for (ForkEntry &fork : item.forks)
            if (!DecodeRowFork(in, body.blocks, fork)) return false;
    }
    return true;
}

// -- columns -----------------------------------------------------------------

// Extents are written as steps from the one before: the block from the
// previous extent's block, the offset from where the previous extent in the
// same block ended (0 for a block's first), so that a solid run of files
// costs a few bytes an extent.
class ExtentSteps {
public:
    explicit ExtentSteps(std::size_t blocks) : ends_(blocks, 0) {}
    std::uint32_t previousBlock() const { return previousBlock_; }
    std::uint64_t endIn(std::uint32_t block) const { return ends_[block]; }
    void Passed(const Extent &extent) {
        previousBlock_ = extent.block;
        ends_[extent.block] = extent.offset + extent.length;
    }

private:
    std::vector<std::uint64_t> ends_;
    std::uint32_t previousBlock_ = 0;
};

// A fork kept in the catalogue beside its item.
struct KeptFork {
    const ItemEntry *item;
    const ForkEntry *fork;
};

// The data fork's size is written as a step from the item's size, which it
// nearly always equals; other forks' sizes as they are.
std::uint64_t ForkSizeBase(const ItemEntry &item, const ForkEntry &fork) {
    return fork.kind == kForkOfData ? item.size : 0;
}

std::size_t SharedPrefix(std::string_view previous, std::string_view path) {
    std::size_t shared = 0;
    while (shared < previous.size() && shared < path.size() && previous[shared] == path[shared])
        ++shared;
    return shared;
}

void EncodeItemColumns(Writer &out, const CatalogueBody &body, std::uint16_t version) {
    const std::vector<ItemEntry> &items = body.items;
    out.U32(static_cast<std::uint32_t>(items.size()));
    for (const ItemEntry &item : items) out.U8(item.kind);
    for (const ItemEntry &item : items) out.U8(ItemFlags(item, version));
    std::string_view previous;
    for (const ItemEntry &item : items) {
        std::size_t shared = SharedPrefix(previous, item.path);
        out.Varint(shared);
        out.VarText(std::string_view(item.path).substr(shared));
        previous = item.path;
    }
    for (const ItemEntry &item : items)
        if (item.legacyName) out.VarText(*item.legacyName);
    for (const ItemEntry &item : items) out.Varint(item.size);
    std::uint64_t time = 0;
    for (const ItemEntry &item : items) {
        out.Delta(item.modified, time);
        time = item.modified;
    }
    for (const ItemEntry &item : items) out.Varint(item.mode);
    for (const ItemEntry &item : items)
        if (KeepsComment(item, version)) out.VarText(*item.comment);
    for (const ItemEntry &item : items)
        if (item.kind == kItemLink) out.VarText(item.linkTarget);
}

void EncodeForkColumns(Writer &out, const CatalogueBody &body, std::uint16_t version) {
    std::vector<KeptFork> forks;
    for (const ItemEntry &item : body.items) {
        out.U8(KeptForks(item, version));
        for (const ForkEntry &fork : item.forks)
            if (KeepsFork(fork, version)) forks.push_back({&item, &fork});
    }
    for (const KeptFork &kept : forks) out.U8(kept.fork->kind);
    for (const KeptFork &kept : forks)
        out.Delta(kept.fork->size, ForkSizeBase(*kept.item, *kept.fork));
    for (const KeptFork &kept : forks) out.Varint(kept.fork->extents.size());
    ExtentSteps steps(body.blocks.size());
    for (const KeptFork &kept : forks) {
        const std::vector<Extent> &extents = kept.fork->extents;
        for (std::size_t i = 0; i < extents.size(); ++i) {
            const Extent &extent = extents[i];
            // A body whose extents name no block of its own is not the
            // writer's; it is never decoded back, so its steps may be any.
            if (extent.block >= body.blocks.size()) continue;
            out.Delta(extent.block, steps.previousBlock());
            out.Delta(extent.offset, steps.endIn(extent.block));
            // The last extent's length is what the fork's size leaves.
            if (i + 1 < extents.size()) out.Varint(extent.length);
            steps.Passed(extent);
        }
    }
    // Each distinct hash once, last: 0 for a new one, else 1 + the number of
    // the distinct hash it repeats.
    std::map<std::array<std::uint8_t, kHashSize>, std::uint64_t> seen;
    std::vector<const std::array<std::uint8_t, kHashSize> *> distinct;
    for (const KeptFork &kept : forks) {
        auto [at, added] = seen.emplace(kept.fork->hash, distinct.size());
        out.Varint(added ? 0 : at->second + 1);
        if (added) distinct.push_back(&kept.fork->hash);
    }
    for (const auto *hash : distinct) out.Raw(hash->data(), hash->size());
}

void EncodeColumns(Writer &out, const CatalogueBody &body, std::uint16_t version) {
    EncodeItemColumns(out, body, version);
    EncodeForkColumns(out, body, version);
}

// The fewest bytes an item takes in the columns: kind, flags, shared
// length, rest length, size, time, mode and fork count.
constexpr std::size_t kLeastColumnItem = 8;
// ... and a fork: kind, size, extent count and hash reference.
constexpr std::size_t kLeastColumnFork = 4;
// ... and an extent: block and offset steps.
constexpr std::size_t kLeastColumnExtent = 2;
// Shared prefixes let a small body name long paths many times over: all
// paths together may hold no more than a catalogue of items one after
// another could.
constexpr std::uint64_t kMostPathBytes = 1ULL << 30;

bool DecodePathColumn(Reader &in, std::vector<ItemEntry> &items) {
    std::uint64_t total = 0;
    const std::string *previous = nullptr;
    for (ItemEntry &item : items) {
        std::uint64_t shared = 0;
        std::string_view rest;
        if (!in.Varint(shared) || shared > (previous ? previous->size() : 0) || !in.VarBytes(rest))
            return false;
        total += shared + rest.size();
        if (total > kMostPathBytes) return false;
        if (previous) item.path.assign(*previous, 0, static_cast<std::size_t>(shared));
        item.path.append(rest);
        previous = &item.path;
    }
    return true;
}

bool DecodeItemColumns(Reader &in, std::uint16_t version, CatalogueBody &body) {
    if (!DecodeItemCount(in, kLeastColumnItem, body)) return false;
    std::vector<ItemEntry> &items = body.items;
    for (ItemEntry &item : items)
        if (!in.U8(item.kind) || item.kind > kItemLink) return false;
    std::vector<std::uint8_t> flags(items.size());
    for (std::uint8_t &itemFlags : flags)
        if (!in.U8(itemFlags) || !FlagsFitVersion(itemFlags, version)) return false;
    if (!DecodePathColumn(in, items)) return false;
    for (std::size_t i = 0; i < items.size(); ++i)
        if ((flags[i] & kItemHasLegacyName) && !in.VarText(items[i].legacyName)) return false;
    for (ItemEntry &item : items)
        if (!in.Varint(item.size)) return false;
    std::uint64_t time = 0;
    for (ItemEntry &item : items) {
        if (!in.Delta(item.modified, time)) return false;
        time = item.modified;
    }
    for (ItemEntry &item : items) {
        std::uint64_t mode = 0;
        if (!in.Varint(mode) || mode > 0xFFFFFFFFu) return false;
        item.mode = static_cast<std::uint32_t>(mode);
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        items[i].encrypted = (flags[i] & kItemEnciphered) != 0;
        if ((flags[i] & kItemHasComment) && !in.VarText(items[i].comment)) return false;
    }
    for (ItemEntry &item : items)
        if (item.kind == kItemLink && !in.VarText(item.linkTarget)) return false;
    return true;
}

// The forks of every item, in order, with room made for them once the
// count column shows the rest of the body can hold them.
bool DecodeForkCounts(Reader &in, CatalogueBody &body, std::vector<ForkEntry *> &forks) {
    std::vector<std::uint8_t> counts(body.items.size());
    std::uint64_t total = 0;
    for (std::uint8_t &count : counts) {
        if (!in.U8(count)) return false;
        total += count;
    }
    if (total > in.left() / kLeastColumnFork) return false;
    forks.reserve(static_cast<std::size_t>(total));
    for (std::size_t i = 0; i < counts.size(); ++i) {
        body.items[i].forks.resize(counts[i]);
        for (ForkEntry &fork : body.items[i].forks) forks.push_back(&fork);
    }
    return true;
}

bool DecodeExtents(Reader &in, const std::vector<BlockEntry> &blocks,
                   const std::vector<ForkEntry *> &forks) {
    std::uint64_t total = 0;
    for (ForkEntry *fork : forks) {
        std::uint64_t count = 0;
        if (!in.Varint(count) || count > kMostExtents) return false;
        total += count;
        if (total > in.left() / kLeastColumnExtent) return false;
        fork->extents.resize(static_cast<std::size_t>(count));
    }
    ExtentSteps steps(blocks.size());
    for (ForkEntry *fork : forks) {
        std::uint64_t left = fork->size;
        for (std::size_t i = 0; i < fork->extents.size(); ++i) {
            Extent &extent = fork->extents[i];
            std::uint64_t block = 0;
            if (!in.Delta(block, steps.previousBlock()) || block >= blocks.size()) return false;
            extent.block = static_cast<std::uint32_t>(block);
            if (!in.Delta(extent.offset, steps.endIn(extent.block))) return false;
            extent.length = left;
            if (i + 1 < fork->extents.size() && (!in.Varint(extent.length) || extent.length > left))
                return false;
            if (!InsideItsBlock(extent, blocks)) return false;
            left -= extent.length;
            steps.Passed(extent);
        }
        // A fork without extents holds no bytes.
        if (fork->extents.empty() && fork->size != 0) return false;
    }
    return true;
}

bool DecodeHashes(Reader &in, const std::vector<ForkEntry *> &forks) {
    // Each fork's distinct hash number; a new one takes the next number.
    std::vector<std::uint64_t> numbers(forks.size());
    std::uint64_t distinct = 0;
    for (std::uint64_t &number : numbers) {
        std::uint64_t reference = 0;
        if (!in.Varint(reference) || reference > distinct) return false;
        number = reference ? reference - 1 : distinct++;
    }
    if (in.left() != distinct * kHashSize) return false;
    std::vector<std::array<std::uint8_t, kHashSize>> hashes(static_cast<std::size_t>(distinct));
    for (auto &hash : hashes) in.Raw(hash.data(), hash.size());
    for (std::size_t i = 0; i < forks.size(); ++i) forks[i]->hash = hashes[numbers[i]];
    return true;
}

bool DecodeForkColumns(Reader &in, CatalogueBody &body) {
    std::vector<ForkEntry *> forks;
    if (!DecodeForkCounts(in, body, forks)) return false;
    for (ForkEntry *fork : forks)
        if (!in.U8(fork->kind) || fork->kind > kForkOfThumb) return false;
    for (ItemEntry &item : body.items)
        for (ForkEntry &fork : item.forks)
            if (!in.Delta(fork.size, ForkSizeBase(item, fork))) return false;
    return DecodeExtents(in, body.blocks, forks) && DecodeHashes(in, forks);
}

bool DecodeColumns(Reader &in, std::uint16_t version, CatalogueBody &body) {
    return DecodeItemColumns(in, version, body) && DecodeForkColumns(in, body);
}

}  // namespace

std::uint16_t CatalogueLayoutFlag(std::uint16_t version) {
    return version > 0 ? kFlagColumnCatalogue : 0;
}

Bytes EncodeCatalogue(const CatalogueBody &body, std::uint16_t version, std::uint16_t flags) {
    Writer out;
    EncodeHead(out, body);
    if (flags & kFlagColumnCatalogue)
        EncodeColumns(out, body, version);
    else
        EncodeRows(out, body, version);
    return out.bytes;
}

Result DecodeCatalogue(const Bytes &bytes, std::uint16_t version, std::uint16_t flags,
                       CatalogueBody &body) {
    Reader in(bytes.data(), bytes.size());
    if (!DecodeHead(in, body)) return kEngineCatalogueDamaged;
    bool read = (flags & kFlagColumnCatalogue) ? DecodeColumns(in, version, body)
                                               : DecodeRows(in, version, body);
    return read ? kEngineOK : kEngineCatalogueDamaged;
}

std::uint32_t Crc32(const std::uint8_t *data, std::size_t size, std::uint32_t crc) {
    return libdeflate_crc32(crc, data, size);
}

std::array<std::uint8_t, kHashSize> Sha256(const std::uint8_t *data, std::size_t size) {
    std::array<std::uint8_t, kHashSize> hash{};
    SHA256(data, size, hash.data());
    return hash;
}

Bytes BlockAssociatedData(const BlockEntry &block) {
    Writer out;
    out.U8(block.method);
    out.U8(block.filter);
    out.U8(block.cipher);
    out.U64(block.unpackedSize);
    return out.bytes;
}

Digest NewDigest() {
    Digest digest(EVP_MD_CTX_new());
    if (digest) EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr);
    return digest;
}

void UpdateDigest(Digest &digest, const void *data, std::size_t size) {
    if (digest) EVP_DigestUpdate(digest.get(), data, size);
}

std::array<std::uint8_t, kHashSize> FinishDigest(Digest &digest) {
    std::array<std::uint8_t, kHashSize> hash{};
    unsigned length = 0;
    if (digest) EVP_DigestFinal_ex(digest.get(), hash.data(), &length);
    return hash;
}

}  // namespace engine::vnkx
