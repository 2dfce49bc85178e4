// The byte layout of vnkx and its classic form vnk5 (engine/formats/vnkx/
// FORMAT.md): the header, block headers, the catalogue and the trailer, and
// their encoding. Everything is little-endian; offsets count from the
// archive's signature, wherever the archive starts in its file.
#pragma once

#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Result.h"

namespace engine::vnkx {

using Bytes = std::vector<std::uint8_t>;

enum class Flavour { Vnkx, Vnk5 };

inline constexpr std::size_t kHeaderSize = 16;
inline constexpr std::size_t kBlockHeaderSize = 40;
inline constexpr std::size_t kTrailerSize = 88;
inline constexpr std::size_t kHashSize = 32;
inline constexpr std::size_t kKeyParametersSize = 32;
inline constexpr std::size_t kCheckSize = 16;
// The sealing number of the enciphered catalogue under its key.
inline constexpr std::uint64_t kCatalogueSealNumber = ~0ULL;
inline constexpr std::uint16_t kNewestVersion = 7;
inline constexpr std::uint32_t kNoKey = 0xFFFFFFFFu;

// Header and trailer flags.
inline constexpr std::uint16_t kFlagCatalogueEnciphered = 1;
inline constexpr std::uint16_t kFlagRecoveryData = 2;
// An index file: a reference to the archive and its catalogue, no blocks.
inline constexpr std::uint16_t kFlagIndexFile = 4;
// The catalogue body is stored column by column (each field of every item,
// then the next field), which packs far better than item by item.
inline constexpr std::uint16_t kFlagColumnCatalogue = 8;

enum Method : std::uint8_t {
    kMethodDeflate = 1,
    kMethodBzip2 = 2,
    kMethodLzma2 = 3,
    kMethodPpmd = 4,
    kMethodZstd = 5,
    kMethodStore = 6,
    kMethodLz4 = 7,
    kMethodBrotli = 8,
    kMethodLzma2Large = 9,
};

enum Filter : std::uint8_t { kFilterNone = 0, kFilterX86 = 1, kFilterDelta4 = 2 };
enum Cipher : std::uint8_t { kCipherNone = 0, kCipherAesGcm = 1, kCipherChaCha = 2 };
enum ForkKind : std::uint8_t { kForkOfData = 0, kForkOfResource = 1, kForkOfThumb = 2 };
enum ItemKind : std::uint8_t { kItemFile = 0, kItemFolder = 1, kItemLink = 2 };

// What a reader of the format needs to derive a key and to tell a wrong
// password before deciphering anything.
struct KeyRecord {
    std::uint8_t cipher = kCipherAesGcm;
    std::array<std::uint8_t, kKeyParametersSize> parameters{};  // derivation, with the salt
    std::array<std::uint8_t, kCheckSize> check{};
    bool operator==(const KeyRecord &) const = default;
};

struct BlockEntry {
    std::uint64_t offset = 0;  // of its header
    std::uint64_t storedSize = 0;
    std::uint64_t unpackedSize = 0;
    std::uint8_t method = kMethodStore;
    std::uint8_t filter = kFilterNone;
    std::uint8_t cipher = kCipherNone;
    std::uint32_t keySlot = kNoKey;
    std::uint64_t sealNumber = 0;  // the nonce's number under its key
    std::uint32_t crc = 0;         // of the stored payload
};

// A run of a fork's bytes inside one block's unpacked data.
struct Extent {
    std::uint32_t block = 0;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

struct ForkEntry {
    std::uint8_t kind = kForkOfData;
    std::uint64_t size = 0;
    std::vector<Extent> extents;
    std::array<std::uint8_t, kHashSize> hash{};
};

struct ItemEntry {
    std::uint8_t kind = kItemFile;
    std::string path;  // UTF-8, "/"-separated
    std::optional<std::string> legacyName;
    std::uint64_t size = 0;
    std::uint64_t modified = 0;  // FILETIME ticks; 0 for none
    std::uint32_t mode = 0;
    std::optional<std::string> comment;
    std::string linkTarget;
    bool encrypted = false;
    std::vector<ForkEntry> forks;
};

struct CatalogueBody {
    std::optional<std::string> comment;
    std::vector<BlockEntry> blocks;
    std::vector<ItemEntry> items;
};

struct Trailer {
    std::uint16_t version = kNewestVersion;
    std::uint16_t flags = 0;
    std::uint64_t catalogueOffset = 0, catalogueSize = 0;
    std::uint64_t recoveryOffset = 0, recoverySize = 0;
    std::uint64_t archiveLength = 0;
    std::array<std::uint8_t, kHashSize> catalogueHash{};
};

struct BlockHeader {
    std::uint8_t method = kMethodStore, filter = kFilterNone, cipher = kCipherNone;
    std::uint32_t keySlot = kNoKey;
    std::uint64_t sealNumber = 0;
    std::uint64_t unpackedSize = 0, storedSize = 0;
    std::uint32_t crc = 0;
};

// Little-endian appending.
class Writer {
public:
    void U8(std::uint8_t value) { bytes.push_back(value); }
    void U16(std::uint16_t value);
    void U32(std::uint32_t value);
    void U64(std::uint64_t value);
    void Raw(const void *data, std::size_t size);
    void Text(std::string_view text);  // u32 length, UTF-8
    void Varint(std::uint64_t value);  // LEB128: 7 bits a byte, low first
    // The difference value - base (modulo 2^64) as a signed varint
    // (zigzag: 0, -1, 1, -2, ... become 0, 1, 2, 3, ...).
    void Delta(std::uint64_t value, std::uint64_t base);
    void VarText(std::string_view text);  // varint length, UTF-8
    Bytes bytes;
};

// Little-endian reading that fails, never overruns.
class Reader {
public:
    Reader(const std::uint8_t *data, std::size_t size) : data_(data), size_(size) {}
    bool U8(std::uint8_t &value);
    bool U16(std::uint16_t &value);
    bool U32(std::uint32_t &value);
    bool U64(std::uint64_t &value);
    bool Raw(void *out, std::size_t size);
    bool Text(std::string &text);
    bool Text(std::optional<std::string> &text);  // present once read
    // At most 10 bytes, and no bits beyond 64.
    bool Varint(std::uint64_t &value);
    bool Delta(std::uint64_t &value, std::uint64_t base);
    // The bytes stay in the reader's buffer.
    bool VarBytes(std::string_view &view);
    bool VarText(std::string &text);
    bool VarText(std::optional<std::string> &text);
    std::size_t left() const { return size_ - at_; }

private:
    // A little-endian integer of the value's width.
    template <class Unsigned>
    bool Fixed(Unsigned &value);

    const std::uint8_t *data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

std::array<std::uint8_t, 8> Signature(Flavour flavour);
Bytes EncodeHeader(Flavour flavour, std::uint16_t version, std::uint16_t flags);
// The flavour of a header, or nothing.
std::optional<Flavour> HeaderFlavour(const std::uint8_t *data, std::size_t size);

Bytes EncodeBlockHeader(const BlockHeader &header);
bool DecodeBlockHeader(const std::uint8_t *data, std::size_t size, BlockHeader &header);

Bytes EncodeTrailer(const Trailer &trailer);
bool DecodeTrailer(const std::uint8_t *data, std::size_t size, Trailer &trailer);

void EncodeKeyRecord(Writer &out, const KeyRecord &key);
bool DecodeKeyRecord(Reader &in, KeyRecord &key);

// The layout flag an archive of this version is written with: columns from
// version 7 on, items one after another in version 0 (whose readers know
// nothing else).
std::uint16_t CatalogueLayoutFlag(std::uint16_t version);

// The catalogue body before compression, in the layout the archive's flags
// name (kFlagColumnCatalogue or not); version 0 leaves out what its readers
// do not know (forks other than data, item comments).
Bytes EncodeCatalogue(const CatalogueBody &body, std::uint16_t version, std::uint16_t flags);
Result DecodeCatalogue(const Bytes &bytes, std::uint16_t version, std::uint16_t flags,
                       CatalogueBody &body);

inline constexpr std::uint8_t kCatalogueMagic[4] = {'V', 'C', 'A', 'T'};

// What a block's seal binds besides its payload: method, filter, cipher and
// unpacked size.
Bytes BlockAssociatedData(const BlockEntry &block);

std::uint32_t Crc32(const std::uint8_t *data, std::size_t size, std::uint32_t crc = 0);
std::array<std::uint8_t, kHashSize> Sha256(const std::uint8_t *data, std::size_t size);

// SHA-256 over data that comes in pieces.
struct DigestFree {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};
using Digest = std::unique_ptr<EVP_MD_CTX, DigestFree>;
Digest NewDigest();
void UpdateDigest(Digest &digest, const void *data, std::size_t size);
std::array<std::uint8_t, kHashSize> FinishDigest(Digest &digest);

}  // namespace engine::vnkx
