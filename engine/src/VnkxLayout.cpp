#include "VnkxLayout.h"

#include <libdeflate.h>
#include <openssl/sha.h>

#include <cstring>

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

Bytes EncodeCatalogue(const CatalogueBody &body, std::uint16_t version) {
    Writer out;
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
    out.U32(static_cast<std::uint32_t>(body.items.size()));
    for (const ItemEntry &item : body.items) {
        bool comment = item.comment && version > 0;
        std::uint8_t flags =
            (comment ? 1 : 0) | (item.legacyName ? 2 : 0) | (item.encrypted ? 4 : 0);
        out.U8(item.kind);
        out.U8(flags);
        out.Text(item.path);
        if (item.legacyName) out.Text(*item.legacyName);
        out.U64(item.size);
        out.U64(item.modified);
        out.U32(item.mode);
        if (comment) out.Text(*item.comment);
        if (item.kind == kItemLink) out.Text(item.linkTarget);
        std::uint8_t forks = 0;
        for (const ForkEntry &fork : item.forks)
            if (version > 0 || fork.kind == kForkOfData) ++forks;
        out.U8(forks);
        for (const ForkEntry &fork : item.forks) {
            if (version == 0 && fork.kind != kForkOfData) continue;
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
    return out.bytes;
}

Result DecodeCatalogue(const Bytes &bytes, std::uint16_t version, CatalogueBody &body) {
    Reader in(bytes.data(), bytes.size());
    std::uint8_t hasComment = 0;
    if (!in.U8(hasComment)) return kEngineCatalogueDamaged;
    if (hasComment && !in.Text(body.comment)) return kEngineCatalogueDamaged;
    std::uint32_t blocks = 0;
    if (!in.U32(blocks) || blocks > kMostBlocks || blocks > in.left() / kBlockEntrySize)
        return kEngineCatalogueDamaged;
    body.blocks.resize(blocks);
    for (BlockEntry &block : body.blocks) {
        std::uint8_t reserved = 0;
        if (!in.U64(block.offset) || !in.U64(block.storedSize) || !in.U64(block.unpackedSize) ||
            !in.U8(block.method) || !in.U8(block.filter) || !in.U8(block.cipher) ||
            !in.U8(reserved) || !in.U32(block.keySlot) || !in.U64(block.sealNumber) ||
            !in.U32(block.crc))
            return kEngineCatalogueDamaged;
    }
    std::uint32_t items = 0;
    if (!in.U32(items) || items > kMostItems || items > in.left() / 30)
        return kEngineCatalogueDamaged;
    body.items.resize(items);
    for (ItemEntry &item : body.items) {
        std::uint8_t flags = 0;
        if (!in.U8(item.kind) || item.kind > kItemLink || !in.U8(flags) || !in.Text(item.path))
            return kEngineCatalogueDamaged;
        if ((flags & 2) && !in.Text(item.legacyName)) return kEngineCatalogueDamaged;
        item.encrypted = (flags & 4) != 0;
        if (!in.U64(item.size) || !in.U64(item.modified) || !in.U32(item.mode))
            return kEngineCatalogueDamaged;
        // Item comments came with version 7.
        if ((flags & 1) && (version == 0 || !in.Text(item.comment))) return kEngineCatalogueDamaged;
        if (item.kind == kItemLink && !in.Text(item.linkTarget)) return kEngineCatalogueDamaged;
        std::uint8_t forks = 0;
        if (!in.U8(forks)) return kEngineCatalogueDamaged;
        item.forks.resize(forks);
        for (ForkEntry &fork : item.forks) {
            std::uint32_t extents = 0;
            if (!in.U8(fork.kind) || fork.kind > kForkOfThumb || !in.U64(fork.size) ||
                !in.U32(extents) || extents > kMostExtents || extents > in.left() / 20)
                return kEngineCatalogueDamaged;
            fork.extents.resize(extents);
            std::uint64_t total = 0;
            for (Extent &extent : fork.extents) {
                if (!in.U32(extent.block) || !in.U64(extent.offset) || !in.U64(extent.length) ||
                    extent.block >= blocks ||
                    extent.offset > body.blocks[extent.block].unpackedSize ||
                    extent.length > body.blocks[extent.block].unpackedSize - extent.offset)
                    return kEngineCatalogueDamaged;
                total += extent.length;
            }
            if (total != fork.size || !in.Raw(fork.hash.data(), fork.hash.size()))
                return kEngineCatalogueDamaged;
        }
    }
    return kEngineOK;
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
