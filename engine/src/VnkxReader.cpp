// Reading vnkx and vnk5: the archive is found from the trailer at the end of
// its file, the catalogue read whole, and blocks decoded one at a time as
// the items' data is read. Every size and offset the file claims is checked
// before it is used.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <future>
#include <memory>

#include "FileSystem.h"
#include "Handles.h"
#include "Operation.h"
#include "RecoveryCode.h"
#include "VnkxArchive.h"
#include "VnkxIndex.h"

namespace engine::vnkx {
namespace {

// A catalogue or block larger than this is taken as damage, not allocated.
constexpr std::uint64_t kMostCatalogue = 1ULL << 30;
constexpr std::uint64_t kMostBlock = 1ULL << 30;
// Blocks decoded ahead of the one in use: as many at once as there are
// cores for, and up to kMostAhead decoding or decoded and not used yet.
// Blocks quick to decode (zstd text) are then ready long before the walk
// gets there, and a slow one behind them starts early enough.
constexpr std::uint32_t kBlocksAhead = 2;
constexpr std::uint32_t kMostAhead = 4;

Result DecompressCatalogue(const Bytes &packed, std::uint64_t plainSize, const Trailer &trailer,
                           CatalogueBody &body) {
    if (plainSize > kMostCatalogue) return kEngineCatalogueDamaged;
    Bytes plain;
    if (Decompress(kMethodZstd, packed.data(), packed.size(), plainSize, plain) != kEngineOK)
        return kEngineCatalogueDamaged;
    return DecodeCatalogue(plain, trailer.version, trailer.flags, body);
}

// Asks for passwords until one fits the record; kEnginePasswordNeeded or
// kEngineCancelled when none comes.
Result KeyFor(const KeyRecord &record, PasswordSource *passwords, std::size_t item,
              cipher::DerivedKey &key) {
    if (!passwords) return kEnginePasswordNeeded;
    for (;;) {
        std::string candidate;
        if (Result result = passwords->Next(item, candidate)) return result;
        if (KeyFits(record, candidate, key)) {
            passwords->Accepted();
            return kEngineOK;
        }
    }
}

// The reference an index keeps between its header and its catalogue.
Result ReadIndexReference(ArchiveBytes &bytes, std::uint64_t start, const Trailer &trailer,
                          std::optional<IndexReference> &reference) {
    // A reference holds little beyond the archive's name.
    if (trailer.catalogueOffset - kHeaderSize > (1U << 16)) return kEngineIndexReadFailed;
    Bytes record(static_cast<std::size_t>(trailer.catalogueOffset - kHeaderSize));
    IndexReference decoded;
    if (bytes.ReadAt(start + kHeaderSize, record.data(), record.size()) != kEngineOK ||
        !DecodeReference(record.data(), record.size(), decoded) ||
        decoded.catalogueHash != trailer.catalogueHash ||
        decoded.catalogueSize != trailer.catalogueSize)
        return kEngineIndexReadFailed;
    reference = std::move(decoded);
    return kEngineOK;
}

// The stored kind of a fork name; -1 for a name the format does not know.
int ForkKindOf(std::string_view name) {
    if (name == kForkData) return kForkOfData;
    if (name == kForkResource) return kForkOfResource;
    if (name == kForkThumbnail) return kForkOfThumb;
    return -1;
}

class Cursor final : public ReadCursor {
public:
    Cursor(std::shared_ptr<const ArchiveFile> file, const ReadRequest &request)
        : file_(std::move(file)),
          passwords_(request.passwords),
          operation_(request.operation),
          threads_(operation_ && operation_->settings().useThreads) {
        PlanUse();
        PlanChecks();
    }
    ~Cursor() override { ahead_.clear(); }

    Result Next(ItemInfo &info) override {
        FinishItem();
        std::size_t next = current_ == kNoIndex ? 0 : current_ + 1;
        if (next >= file_->body.items.size()) return kEngineNoMoreObjects;
        current_ = next;
        const ItemEntry &entry = file_->body.items[current_];
        info = ItemInfo();
        info.rawPath = entry.path;
        info.path = CleanItemPath(Wide(entry.path));
        info.folder = entry.kind == kItemFolder;
        info.symlink = entry.kind == kItemLink;
        info.linkTarget = Wide(entry.linkTarget);
        info.encrypted = entry.encrypted;
        info.size = entry.size;
        if (entry.modified) info.modified = entry.modified;
        info.mode = entry.mode;
        if (entry.comment) info.comment = Wide(*entry.comment);
        info.compressedSize = CompressedShare(entry);
        auto stored = std::make_shared<StoredItem>();
        stored->archive = file_;
        stored->entry = entry;
        info.stored = stored;
        for (const ForkEntry &fork : entry.forks)
            if (fork.kind == kForkOfThumb) info.thumbnailSize = fork.size;
        for (const ForkEntry &fork : entry.forks) {
            if (fork.kind != kForkOfResource) continue;
            auto bytes = std::make_shared<std::vector<std::uint8_t>>();
            if (Result result = ReadFork(fork, *bytes)) return result;
            info.resourceFork = bytes;
        }
        data_ = nullptr;
        for (const ForkEntry &fork : entry.forks)
            if (fork.kind == kForkOfData) data_ = &fork;
        StartFork();
        return kEngineOK;
    }

    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        got = 0;
        auto *out = static_cast<std::uint8_t *>(buffer);
        for (;;) {
            const std::uint8_t *piece = nullptr;
            std::size_t length = 0;
            if (Result result = NextPiece(size - got, piece, length)) return result;
            if (length == 0) break;
            std::memcpy(out + got, piece, length);
            got += length;
            if (got == size) break;
        }
        return Worked(got);
    }

    // The bytes stay in the decoded block: items are written from there.
    Result ReadView(void *, std::size_t size, const void *&view, std::size_t &got) override {
        const std::uint8_t *piece = nullptr;
        if (Result result = NextPiece(size, piece, got)) return result;
        view = piece;
        return Worked(got);
    }

    // The thumbnail is read like the data, from its blocks (enciphered with
    // them), so it needs the same password.
    Result SelectFork(std::string_view name) override {
        if (current_ == kNoIndex) return kEngineNoSuchFork;
        int kind = ForkKindOf(name);
        for (const ForkEntry &fork : file_->body.items[current_].forks) {
            if (fork.kind == kind) {
                data_ = &fork;
                StartFork();
                return kEngineOK;
            }
        }
        return kEngineNoSuchFork;
    }

    std::optional<std::wstring> Comment() const override {
        if (!file_->body.comment) return std::nullopt;
        return Wide(*file_->body.comment);
    }

private:
    // The next bytes of the fork being read, at most `most`, where its block
    // holds them (hashed on the way); none at its end, where the hash is
    // checked.
    Result NextPiece(std::size_t most, const std::uint8_t *&piece, std::size_t &length) {
        length = 0;
        if (!data_ || current_ == kNoIndex || most == 0) return kEngineOK;
        while (extent_ < data_->extents.size()) {
            const Extent &extent = data_->extents[extent_];
            if (inExtent_ == extent.length) {
                ++extent_;
                inExtent_ = 0;
                continue;
            }
            if (Result result = LoadBlock(extent.block, current_)) return result;
            if (extent_ == 0 && inExtent_ == 0) verdict_ = VerdictOf(*data_);
            piece = block_->data() + extent.offset + inExtent_;
            length =
                static_cast<std::size_t>(std::min<std::uint64_t>(most, extent.length - inExtent_));
            if (verdict_ == kUnchecked) UpdateDigest(hash_, piece, length);
            inExtent_ += length;
            return kEngineOK;
        }
        if (!checked_) {
            checked_ = true;
            bool sound =
                verdict_ == kUnchecked ? FinishDigest(hash_) == data_->hash : verdict_ == kSound;
            if (!sound) return kEngineItemDataDamaged;
        }
        return kEngineOK;
    }

    Result Worked(std::size_t got) {
        if (operation_ && got) return operation_->Work(got);
        return kEngineOK;
    }

    void StartFork() {
        extent_ = 0;
        inExtent_ = 0;
        checked_ = false;
        verdict_ = kUnchecked;
        hash_ = NewDigest();
    }

    // Data forks that lie whole in one block are hashed by whoever decodes
    // the block (a thread ahead of the walk, mostly), so that the walk only
    // writes their bytes out. Each such item has a verdict, set once its
    // block is decoded; a block is decoded once while it is in use.
    void PlanChecks() {
        const auto &items = file_->body.items;
        checksOf_.assign(file_->body.blocks.size(), {});
        for (std::size_t item = 0; item < items.size(); ++item)
            if (const ForkEntry *fork = WholeDataFork(items[item]))
                checksOf_[fork->extents[0].block].push_back(item);
        verdicts_ = std::make_unique<std::atomic<std::uint8_t>[]>(items.size());
        for (std::size_t item = 0; item < items.size(); ++item) verdicts_[item] = kUnchecked;
    }
    // The item's data fork when it lies whole in one block, else null.
    const ForkEntry *WholeDataFork(const ItemEntry &item) const {
        for (const ForkEntry &fork : item.forks)
            if (fork.kind == kForkOfData)
                return fork.extents.size() == 1 && fork.extents[0].block < checksOf_.size()
                           ? &fork
                           : nullptr;
        return nullptr;
    }
    void CheckForks(std::uint32_t index, const Bytes &bytes) {
        if (index >= checksOf_.size()) return;
        for (std::size_t item : checksOf_[index]) {
            const ForkEntry &fork = *WholeDataFork(file_->body.items[item]);
            const Extent &extent = fork.extents[0];
            bool sound = extent.offset <= bytes.size() &&
                         extent.length <= bytes.size() - extent.offset &&
                         Sha256(bytes.data() + extent.offset, extent.length) == fork.hash;
            verdicts_[item] = sound ? kSound : kDamaged;
        }
    }
    // The current item's verdict when `fork` is its data fork (a thumbnail
    // read through SelectFork is hashed on the walk).
    std::uint8_t VerdictOf(const ForkEntry &fork) const {
        return fork.kind == kForkOfData ? verdicts_[current_].load() : kUnchecked;
    }
    void FinishItem() { data_ = nullptr; }

    std::uint64_t CompressedShare(const ItemEntry &entry) const {
        long double share = 0;
        for (const ForkEntry &fork : entry.forks)
            for (const Extent &extent : fork.extents) {
                const BlockEntry &block = file_->body.blocks[extent.block];
                if (block.unpackedSize)
                    share += static_cast<long double>(extent.length) * block.storedSize /
                             block.unpackedSize;
            }
        return static_cast<std::uint64_t>(share);
    }

    Result ReadFork(const ForkEntry &fork, std::vector<std::uint8_t> &bytes) {
        bytes.clear();
        for (const Extent &extent : fork.extents) {
            if (Result result = LoadBlock(extent.block, current_)) return result;
            bytes.insert(
                bytes.end(), block_->begin() + static_cast<std::ptrdiff_t>(extent.offset),
                block_->begin() + static_cast<std::ptrdiff_t>(extent.offset + extent.length));
        }
        if (Sha256(bytes.data(), bytes.size()) != fork.hash) return kEngineItemDataDamaged;
        return kEngineOK;
    }

    Result LoadBlock(std::uint32_t index, std::size_t item) {
        // Folded items point back into earlier blocks: a few decoded blocks
        // are kept, the one used longest ago giving way.
        for (Cached &cached : cache_)
            if (cached.index == index) {
                cached.used = ++clock_;
                block_ = &cached.bytes;
                TopUpAhead();
                return kEngineOK;
            }
        Cached *slot = &cache_[0];
        for (Cached &cached : cache_)
            if (cached.used < slot->used) slot = &cached;
        slot->index = kNoIndex;
        slot->used = ++clock_;
        block_ = &slot->bytes;
        auto pending = std::find_if(ahead_.begin(), ahead_.end(),
                                    [index](const auto &ahead) { return ahead->index == index; });
        if (pending != ahead_.end()) {
            Result result = (*pending)->result.get();
            slot->bytes.swap((*pending)->bytes);
            Recycle((*pending)->bytes);
            ahead_.erase(pending);
            if (result != kEngineOK) return result;
        } else {
            const BlockEntry &block = file_->body.blocks[index];
            Bytes stored;
            if (Result result = FetchStored(block, stored)) return result;
            const cipher::DerivedKey *key = nullptr;
            if (block.cipher != kCipherNone) {
                if (Result result = KeyOfSlot(block.keySlot, item, key)) return result;
            }
            // The next block decodes beside this one rather than after it.
            Reach(index);
            if (Result result = DecodeStored(block, key, stored, slot->bytes)) return result;
            CheckForks(index, slot->bytes);
        }
        slot->index = index;
        Reach(index);
        return kEngineOK;
    }

    Result FetchStored(const BlockEntry &block, Bytes &stored) {
        if (block.storedSize > kMostBlock || block.unpackedSize > kMostBlock)
            return kEngineItemDataDamaged;
        std::uint64_t end = file_->source->DataEnd(file_->trailer.catalogueOffset);
        if (block.offset > end || kBlockHeaderSize + block.storedSize > end - block.offset)
            return kEngineItemDataDamaged;
        stored.resize(kBlockHeaderSize + block.storedSize);
        Result read = ReadStored(block, stored);
        // A damaged segment may have a sound copy elsewhere: asked for once.
        if (read == kEngineItemDataDamaged) {
            read = file_->source->ReplaceDamaged(block.offset, stored.size(), operation_);
            if (read == kEngineOK) read = ReadStored(block, stored);
        }
        return read;
    }

    // Items mostly run through the blocks in order: while the caller uses
    // one block, the next ones are read and handed to threads of their own
    // to decode, as many as there are cores for (slow coders such as the
    // text blocks' keep them all busy). A block whose key is not known yet,
    // or whose bytes do not check out, is left to the load that needs it,
    // which may ask. False when nothing further should be started.
    bool DecodeAhead(std::uint32_t index) {
        if (!threads_ || index >= file_->body.blocks.size()) return false;
        for (const auto &pending : ahead_)
            if (pending->index == index) return true;
        if (ahead_.size() >= kMostAhead || Decoding() >= kBlocksAhead) return false;
        for (const Cached &cached : cache_)
            if (cached.index == index) return true;
        const BlockEntry &block = file_->body.blocks[index];
        const cipher::DerivedKey *key = nullptr;
        if (block.cipher != kCipherNone) {
            auto found = keys_.find(block.keySlot);
            if (found == keys_.end()) return false;
            key = &found->second;
        }
        if (block.storedSize > kMostBlock || block.unpackedSize > kMostBlock) return false;
        std::uint64_t end = file_->source->DataEnd(file_->trailer.catalogueOffset);
        if (block.offset > end || kBlockHeaderSize + block.storedSize > end - block.offset)
            return false;
        auto stored = std::make_shared<Bytes>(kBlockHeaderSize + block.storedSize);
        if (ReadStored(block, *stored) != kEngineOK) return false;
        auto ahead = std::make_unique<Ahead>();
        ahead->index = index;
        if (!spare_.empty()) {
            ahead->bytes.swap(spare_.back());
            spare_.pop_back();
        }
        Ahead *into = ahead.get();
        ahead->result = std::async(std::launch::async, [this, &block, key, stored, into] {
            Result result = DecodeStored(block, key, *stored, into->bytes);
            if (result == kEngineOK) CheckForks(into->index, into->bytes);
            return result;
        });
        ahead_.push_back(std::move(ahead));
        return true;
    }

    // The blocks in the order the items first use them, which is the order
    // they are decoded ahead in: a writer may store them in another (large
    // files' blocks first, or blocks added by a later change).
    void PlanUse() {
        usePosition_.assign(file_->body.blocks.size(), kNotUsed);
        for (const ItemEntry &entry : file_->body.items)
            for (const ForkEntry &fork : entry.forks) {
                if (fork.kind == kForkOfThumb) continue;
                for (const Extent &extent : fork.extents) {
                    if (extent.block >= usePosition_.size() ||
                        usePosition_[extent.block] != kNotUsed)
                        continue;
                    usePosition_[extent.block] = useOrder_.size();
                    useOrder_.push_back(extent.block);
                }
            }
    }
    std::size_t UsePosition(std::uint32_t index) const {
        return index < usePosition_.size() ? usePosition_[index] : kNotUsed;
    }

    // The walk has reached the block: the blocks decoding ahead that it
    // has passed are dropped, and more are started. Going back to an earlier
    // block (a folded item's) moves nothing.
    void Reach(std::uint32_t index) {
        const std::size_t at = UsePosition(index);
        if (at != kNotUsed && (reached_ == kNotUsed || at > reached_)) {
            reached_ = at;
            std::erase_if(ahead_, [this](const std::unique_ptr<Ahead> &pending) {
                if (UsePosition(pending->index) > reached_) return false;
                pending->result.wait();
                Recycle(pending->bytes);
                return true;
            });
        }
        TopUpAhead();
    }
    // Starts the next blocks in the order of use, within the limits above.
    void TopUpAhead() {
        if (reached_ == kNotUsed) return;
        for (std::size_t next = reached_ + 1;
             next <= reached_ + kMostAhead && next < useOrder_.size(); ++next)
            if (!DecodeAhead(useOrder_[next])) break;
    }
    std::size_t Decoding() const {
        return static_cast<std::size_t>(
            std::count_if(ahead_.begin(), ahead_.end(), [](const std::unique_ptr<Ahead> &pending) {
                return pending->result.wait_for(std::chrono::seconds(0)) !=
                       std::future_status::ready;
            }));
    }

    // Decoded blocks' buffers are kept for the next blocks: a fresh one of a
    // block's size costs a page fault every few KiB, which added up to a
    // tenth of an expansion's time.
    void Recycle(Bytes &bytes) {
        if (bytes.capacity() == 0 || spare_.size() >= kMostAhead) return;
        spare_.emplace_back().swap(bytes);
    }

    // Opens and decodes a block's checked bytes; safe on any thread.
    static Result DecodeStored(const BlockEntry &block, const cipher::DerivedKey *key,
                               const Bytes &stored, Bytes &out) {
        const std::uint8_t *payload = stored.data() + kBlockHeaderSize;
        Bytes opened;
        if (block.cipher != kCipherNone) {
            if (!key) return kEngineItemDataDamaged;
            cipher::BlockCipher sealer(static_cast<cipher::AeadKind>(block.cipher), *key);
            Bytes associated = BlockAssociatedData(block);
            if (!sealer.Open(block.sealNumber, {payload, block.storedSize}, associated, opened))
                return kEngineItemDataDamaged;
            payload = opened.data();
        }
        std::size_t payloadSize = block.cipher != kCipherNone ? opened.size() : block.storedSize;
        if (Result result = Decompress(block.method, payload, payloadSize, block.unpackedSize, out))
            return result;
        if (!RemoveFilter(block.filter, out)) return kEngineMethodUnsupported;
        return kEngineOK;
    }

    // A block's header and payload, as the catalogue says they are.
    Result ReadStored(const BlockEntry &block, Bytes &stored) {
        Result result =
            file_->source->ReadData(block.offset, stored.data(), stored.size(), operation_);
        if (result != kEngineOK)
            return result == kEngineArchiveTruncated ? kEngineItemDataDamaged : result;
        BlockHeader header;
        if (!DecodeBlockHeader(stored.data(), kBlockHeaderSize, header) ||
            header.storedSize != block.storedSize || header.unpackedSize != block.unpackedSize ||
            header.method != block.method || header.crc != block.crc ||
            Crc32(stored.data() + kBlockHeaderSize, block.storedSize) != block.crc)
            return kEngineItemDataDamaged;
        return kEngineOK;
    }

    Result KeyOfSlot(std::uint32_t slot, std::size_t item, const cipher::DerivedKey *&key) {
        if (slot >= file_->keys.size()) return kEngineItemDataDamaged;
        auto found = keys_.find(slot);
        if (found == keys_.end()) {
            cipher::DerivedKey derived;
            if (file_->catalogueKey && slot == file_->catalogueKeySlot) {
                derived = *file_->catalogueKey;
            } else if (Result result = KeyFor(file_->keys[slot], passwords_, item, derived)) {
                return result;
            }
            found = keys_.emplace(slot, derived).first;
        }
        key = &found->second;
        return kEngineOK;
    }

    std::shared_ptr<const ArchiveFile> file_;
    PasswordSource *passwords_;
    Operation *operation_;
    bool threads_;
    std::size_t current_ = kNoIndex;
    const ForkEntry *data_ = nullptr;
    std::size_t extent_ = 0;
    std::uint64_t inExtent_ = 0;
    bool checked_ = false;
    Digest hash_;
    static constexpr std::uint8_t kUnchecked = 0, kSound = 1, kDamaged = 2;
    std::uint8_t verdict_ = kUnchecked;                      // of the fork being read
    std::vector<std::vector<std::size_t>> checksOf_;         // by block: items hashed with it
    std::unique_ptr<std::atomic<std::uint8_t>[]> verdicts_;  // by item
    struct Cached {
        std::size_t index = kNoIndex;
        std::uint64_t used = 0;
        Bytes bytes;
    };
    std::array<Cached, 4> cache_;
    struct Ahead {
        std::uint32_t index = 0;
        Bytes bytes;
        std::future<Result> result;
    };
    // Blocks decoding on threads of their own, in order; waited for before
    // anything they read goes away.
    std::deque<std::unique_ptr<Ahead>> ahead_;
    static constexpr std::size_t kNotUsed = static_cast<std::size_t>(-1);
    std::vector<std::uint32_t> useOrder_;   // blocks, by their first use
    std::vector<std::size_t> usePosition_;  // of each block in useOrder_
    std::size_t reached_ = kNotUsed;        // the furthest position in useOrder_ loaded
    std::vector<Bytes> spare_;
    std::uint64_t clock_ = 0;
    Bytes *block_ = nullptr;
    std::map<std::uint32_t, cipher::DerivedKey> keys_;
};

}  // namespace

bool KeyFits(const KeyRecord &record, const std::string &password, cipher::DerivedKey &key) {
    cipher::KeyParameters parameters;
    if (!cipher::KeyParameters::Parse(record.parameters, parameters)) return false;
    return cipher::DeriveKey(password, parameters, key) && key.Matches(record.check);
}

std::optional<Flavour> SniffArchive(const std::string &path, const std::vector<std::uint8_t> &tail,
                                    std::uint64_t fileSize) {
    Trailer trailer;
    if (tail.size() < kTrailerSize ||
        !DecodeTrailer(tail.data() + tail.size() - kTrailerSize, kTrailerSize, trailer) ||
        trailer.archiveLength > fileSize || trailer.archiveLength < kHeaderSize + kTrailerSize)
        return std::nullopt;
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::uint8_t header[kHeaderSize];
    if (!fd.valid() ||
        ReadExactly(fd.get(), fileSize - trailer.archiveLength, header, sizeof header) != kEngineOK)
        return std::nullopt;
    return HeaderFlavour(header, sizeof header);
}

namespace {

// The trailer that ends the archive's bytes, checked by its own CRC.
Result ReadTrailer(ArchiveBytes &bytes, Trailer &trailer) {
    if (bytes.size() < kHeaderSize + kTrailerSize) return kEngineArchiveTruncated;
    std::uint8_t end[kTrailerSize];
    if (Result result = bytes.ReadAt(bytes.size() - kTrailerSize, end, kTrailerSize)) return result;
    return DecodeTrailer(end, kTrailerSize, trailer) ? kEngineOK : kEngineArchiveTruncated;
}

}  // namespace

std::optional<std::uint16_t> ArchiveVersion(const std::string &path) {
    std::shared_ptr<ArchiveBytes> bytes;
    Trailer trailer;
    if (OpenArchiveBytes(path, nullptr, bytes) != kEngineOK || ReadTrailer(*bytes, trailer))
        return std::nullopt;
    return trailer.version;
}

Result OpenArchiveFile(const std::string &path, PasswordSource *passwords, ArchiveFile &file,
                       Operation *operation) {
    file.source = std::make_shared<ArchiveSource>();
    ArchiveSource &source = *file.source;
    source.ownPath = path;
    if (Result result = OpenArchiveBytes(path, operation, source.own)) return result;
    ArchiveBytes &bytes = *source.own;
    const std::uint64_t size = bytes.size();
    file.path = path;
    if (Result result = ReadTrailer(bytes, file.trailer)) return result;
    const Trailer &trailer = file.trailer;
    if (trailer.archiveLength > size || trailer.archiveLength < kHeaderSize + kTrailerSize)
        return kEngineArchiveTruncated;
    if (trailer.version > kNewestVersion) return kEngineArchiveTooNew;
    file.start = size - trailer.archiveLength;
    source.start = file.start;
    std::uint8_t header[kHeaderSize];
    if (Result result = bytes.ReadAt(file.start, header, kHeaderSize)) return result;
    std::optional<Flavour> flavour = HeaderFlavour(header, kHeaderSize);
    if (!flavour) return kEngineArchiveTruncated;
    file.flavour = *flavour;
    std::uint64_t catalogueEnd = trailer.archiveLength - kTrailerSize;
    if (trailer.catalogueOffset < kHeaderSize || trailer.catalogueOffset > catalogueEnd ||
        trailer.catalogueSize > catalogueEnd - trailer.catalogueOffset ||
        trailer.catalogueSize > kMostCatalogue)
        return kEngineCatalogueDamaged;
    if (trailer.flags & kFlagIndexFile) {
        if (Result result = ReadIndexReference(bytes, file.start, trailer, source.reference))
            return result;
    }
    Bytes region(static_cast<std::size_t>(trailer.catalogueSize));
    if (Result result =
            bytes.ReadAt(file.start + trailer.catalogueOffset, region.data(), region.size()))
        return result;
    if (Sha256(region.data(), region.size()) != trailer.catalogueHash)
        return kEngineCatalogueDamaged;

    Reader in(region.data(), region.size());
    std::uint8_t magic[4];
    std::uint32_t keyCount = 0;
    if (!in.Raw(magic, 4) || std::memcmp(magic, kCatalogueMagic, 4) != 0 || !in.U32(keyCount) ||
        keyCount > in.left() / (1 + kKeyParametersSize + kCheckSize))
        return kEngineCatalogueDamaged;
    file.keys.resize(keyCount);
    for (KeyRecord &key : file.keys)
        if (!DecodeKeyRecord(in, key)) return kEngineCatalogueDamaged;
    std::uint64_t plainSize = 0, packedSize = 0;
    if (!in.U8(file.catalogueCipher) || !in.U32(file.catalogueKeySlot) || !in.U64(plainSize) ||
        !in.U64(packedSize) || packedSize != in.left())
        return kEngineCatalogueDamaged;
    Bytes packed(static_cast<std::size_t>(packedSize));
    in.Raw(packed.data(), packed.size());
    if (file.catalogueCipher != kCipherNone) {
        if (file.catalogueKeySlot >= file.keys.size()) return kEngineCatalogueDamaged;
        cipher::DerivedKey key;
        if (Result result = KeyFor(file.keys[file.catalogueKeySlot], passwords, kNoIndex, key))
            return result;
        cipher::BlockCipher sealer(static_cast<cipher::AeadKind>(file.catalogueCipher), key);
        Bytes opened;
        if (!sealer.Open(kCatalogueSealNumber, packed, {}, opened)) return kEngineCatalogueDamaged;
        packed = std::move(opened);
        file.catalogueKey = key;
    }
    if (Result result = DecompressCatalogue(packed, plainSize, trailer, file.body)) return result;
    for (const BlockEntry &block : file.body.blocks)
        if (block.cipher != kCipherNone && block.keySlot >= file.keys.size())
            return kEngineCatalogueDamaged;
    return kEngineOK;
}

Result RecoverArchiveFile(const std::string &archive, const std::string &folder) {
    // The damaged archive is kept as it is: never the destination.
    struct stat home {
    }, destination{};
    if (stat(ParentOf(archive).c_str(), &home) == 0 && stat(folder.c_str(), &destination) == 0 &&
        home.st_dev == destination.st_dev && home.st_ino == destination.st_ino)
        return kEngineDestinationRefused;
    std::string target = folder + "/" + NameOf(archive);

    UniqueFd source(open(archive.c_str(), O_RDONLY | O_CLOEXEC));
    if (!source.valid()) return LastErrno();
    struct stat status {};
    if (fstat(source.get(), &status) != 0) return LastErrno();
    auto size = static_cast<std::uint64_t>(status.st_size);
    std::uint8_t end[kTrailerSize];
    Trailer trailer;
    if (size < kHeaderSize + kTrailerSize ||
        ReadExactly(source.get(), size - kTrailerSize, end, kTrailerSize) != kEngineOK ||
        !DecodeTrailer(end, kTrailerSize, trailer) || trailer.archiveLength > size ||
        !(trailer.flags & kFlagRecoveryData) ||
        trailer.catalogueOffset + trailer.catalogueSize > trailer.recoveryOffset ||
        trailer.recoveryOffset + trailer.recoverySize + kTrailerSize > trailer.archiveLength)
        return kEngineNotRecoverable;
    std::string temporary;
    if (Result result = TemporaryBeside(target, temporary)) return result;
    Result result = kEngineOK;
    {
        UniqueFd copy(open(temporary.c_str(), O_RDWR | O_TRUNC | O_CLOEXEC));
        if (!copy.valid()) result = LastErrno();
        Bytes buffer(1 << 20);
        for (std::uint64_t at = 0; result == kEngineOK && at < size;) {
            std::size_t want =
                static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), size - at));
            result = ReadExactly(source.get(), at, buffer.data(), want);
            if (result == kEngineOK) result = WriteAll(copy.get(), buffer.data(), want);
            at += want;
        }
        if (result == kEngineOK) {
            std::uint64_t start = size - trailer.archiveLength;
            recovery::FileRegion region{copy.get(), start,
                                        trailer.catalogueOffset + trailer.catalogueSize};
            recovery::FileRegion record{copy.get(), start + trailer.recoveryOffset,
                                        trailer.recoverySize};
            recovery::Report report;
            result = recovery::RepairRegion(region, record, report);
        }
    }
    if (result != kEngineOK) {
        unlink(temporary.c_str());
        return result;
    }
    return PutInPlace(temporary, target);
}

std::unique_ptr<ReadCursor> MakeCursor(std::shared_ptr<const ArchiveFile> file,
                                       const ReadRequest &request) {
    return std::make_unique<Cursor>(std::move(file), request);
}

}  // namespace engine::vnkx
