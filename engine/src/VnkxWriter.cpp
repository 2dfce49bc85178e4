// Writing vnkx and vnk5: item data is gathered into blocks (solid across
// files, or one run of blocks per file), the blocks are filtered, compressed
// and enciphered on worker threads and written in order, identical contents
// are stored once, and the catalogue and trailer close the archive. Items of
// another archive of the format bring their blocks along as they are stored.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <numeric>
#include <optional>
#include <set>

#include "FileSystem.h"
#include "Handles.h"
#include "JpegThumbnail.h"
#include "Operation.h"
#include "OrderedWorkerPool.h"
#include "RecoveryCode.h"
#include "VnkxArchive.h"
#include "VnkxBlockPlan.h"

namespace engine::vnkx {
namespace {

// Items up to this size are read whole and hashed before they are placed,
// so that a duplicate is found before any of it is written; larger ones
// stream into blocks as they are read (a duplicate of a size seen before
// is spooled first), so that a large item is not held beside the blocks it
// fills. Pictures are read whole up to a larger size for their thumbnails.
constexpr std::uint64_t kWholePictureLimit = 64ULL << 20;
constexpr std::size_t kChunk = 1 << 20;
constexpr std::uint64_t kLargeBlock = 16ULL << 20;

// One block on its way into the archive.
struct Job {
    std::uint64_t task = 0;   // the pool's number for its coding
    std::uint32_t index = 0;  // in the catalogue's block list
    Bytes data;               // unpacked; then what is stored
    MethodChoice choice;
    BlockEntry entry;
    Result result = kEngineOK;
};

// The contents of a fork placed before, by size and hash.
struct Placed {
    std::uint64_t size;
    std::array<std::uint8_t, kHashSize> hash;
    bool operator<(const Placed &other) const {
        return size != other.size ? size < other.size : hash < other.hash;
    }
};

class ArchiveWriter {
public:
    ArchiveWriter(const WriteRequest &request, const WriteSettings &settings)
        : request_(request),
          settings_(settings),
          operation_(request.operation),
          thumbnails_(request.threads ? std::max(1u, std::thread::hardware_concurrency() / 2) : 0),
          pool_([](void *state) { FreeCoderState(state); }) {
        makeThumbnails_ = BooleanOf(request.format, kFormatPropThumbNails, false);
    }
    ~ArchiveWriter() {
        pool_.Stop();
        if (fd_ >= 0) close(fd_);
    }

    Result Run(ItemFeed &feed) {
        feed_ = &feed;
        // Read back too: the recovery record is computed from what was written.
        fd_ = open(request_.path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd_ < 0) return LastErrno();
        if (Result result = StartKey()) return result;
        std::uint16_t flags = (settings_.encryptCatalogue && key_ ? kFlagCatalogueEnciphered : 0) |
                              CatalogueLayoutFlag(settings_.version);
        Bytes header = EncodeHeader(settings_.flavour, settings_.version, flags);
        if (Result result = Write(header.data(), header.size())) return result;
        pool_.Start(settings_.workers);
        for (;;) {
            if (operation_ && operation_->Cancelled()) return kEngineCancelled;
            WriteItem item;
            Result next = feed.Next(item);
            if (next == kEngineNoMoreObjects) break;
            if (next != kEngineOK) return next;
            if (Result result = Take(item)) return result;
        }
        if (Result result = PlaceThumbnails()) return result;
        ListInCallersOrder();
        Seal();
        if (Result result = Drain()) return result;
        pool_.Stop();
        if (operation_) {
            if (Result stop = operation_->WritingCatalogue()) return stop;
        }
        if (Result result = WriteCatalogue(flags)) return result;
        if (close(fd_) != 0) {
            fd_ = -1;
            return LastErrno();
        }
        fd_ = -1;
        return kEngineOK;
    }

private:
    Result StartKey() {
        if (request_.password.empty()) return kEngineOK;
        cipher::KeyParameters parameters = cipher::KeyParameters::Fresh();
        key_.emplace();
        if (!cipher::DeriveKey(request_.password, parameters, *key_)) return kEngineEncryptFailed;
        KeyRecord record;
        record.cipher = settings_.cipher;
        record.parameters = parameters.Serialise();
        std::copy(key_->check.begin(), key_->check.end(), record.check.begin());
        keys_.push_back(record);
        keySlot_ = 0;
        sealer_.emplace(static_cast<cipher::AeadKind>(settings_.cipher), *key_);
        return kEngineOK;
    }

    // -- items --------------------------------------------------------------

    Result Take(WriteItem &item) {
        ItemEntry entry;
        entry.path = Utf8(item.info.path);
        entry.kind = item.info.folder ? kItemFolder : item.info.symlink ? kItemLink : kItemFile;
        entry.linkTarget = Utf8(item.info.linkTarget);
        entry.modified = item.info.modified.value_or(0);
        entry.mode = item.info.mode;
        if (item.info.comment && settings_.flavour == Flavour::Vnkx)
            entry.comment = Utf8(*item.info.comment);
        if (settings_.legacyNames) entry.legacyName = Legacy(item.info.path);
        if (const auto *stored = dynamic_cast<const StoredItem *>(item.copy)) {
            if (Result result = CopyStored(*stored, entry)) return result;
            entry.size = stored->entry.size;
            List(std::move(entry), item.position);
            return Progress(0, stored->entry.size);
        }
        if (entry.kind == kItemFile) {
            ForkEntry fork;
            fork.kind = kForkOfData;
            if (item.data) {
                bool wantsThumbnail = (makeThumbnails_ || item.info.thumbnailSize) &&
                                      settings_.flavour == Flavour::Vnkx && settings_.version > 0;
                if (Result result =
                        PlaceData(*item.data, item.info.size, item.storeOnly, wantsThumbnail, fork))
                    return result;
            } else {
                fork.hash = Sha256(nullptr, 0);
            }
            entry.size = fork.size;
            entry.encrypted = key_.has_value() && fork.size > 0;
            entry.forks.push_back(std::move(fork));
            if (item.info.resourceFork && settings_.version > 0) {
                ForkEntry resource;
                resource.kind = kForkOfResource;
                Bytes bytes(item.info.resourceFork->begin(), item.info.resourceFork->end());
                if (Result result = PlaceWhole(std::move(bytes), item.storeOnly, resource))
                    return result;
                entry.forks.push_back(std::move(resource));
            }
            if (!settings_.solid) {
                Seal();
                if (Result result = Throttle()) return result;
            }
        }
        List(std::move(entry), item.position);
        return kEngineOK;
    }

    void List(ItemEntry entry, std::size_t position) {
        body_.items.push_back(std::move(entry));
        positions_.push_back(position);
    }

    // The catalogue lists items in the caller's order, whatever order they
    // were fed and placed in.
    void ListInCallersOrder() {
        std::vector<std::size_t> order(body_.items.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return positions_[a] < positions_[b];
        });
        std::vector<ItemEntry> items;
        items.reserve(order.size());
        for (std::size_t index : order) items.push_back(std::move(body_.items[index]));
        body_.items = std::move(items);
    }

    // The legacy 8-bit form of a name: ASCII kept, anything else "_".
    static std::string Legacy(const std::wstring &path) {
        std::string legacy;
        for (wchar_t c : path) legacy.push_back(c < 0x80 ? static_cast<char>(c) : '_');
        return legacy;
    }

    // A picture (read whole: larger ones get no thumbnail) is also handed to
    // the thumbnail maker, whose results are placed after the last item.
    Result PlaceData(DataSource &data, std::uint64_t expected, bool storeOnly, bool wantsThumbnail,
                     ForkEntry &fork) {
        if (expected <= (wantsThumbnail ? kWholePictureLimit : kWholeItemLimit)) {
            Bytes whole;
            if (Result result = ReadWhole(data, expected, whole)) return result;
            if (wantsThumbnail && thumbnail::LooksLikeJpeg(whole.data(), whole.size()))
                thumbnails_.Add(body_.items.size(), whole);
            return PlaceWhole(std::move(whole), storeOnly, fork);
        }
        if (settings_.fold && largeSizes_.count(expected))
            return PlaceSpooled(data, storeOnly, fork);
        largeSizes_.insert(expected);
        return PlaceStream(data, expected, storeOnly, fork);
    }

    Result ReadWhole(DataSource &data, std::uint64_t expected, Bytes &out) {
        out.resize(static_cast<std::size_t>(expected) + 1);
        std::size_t filled = 0;
        for (;;) {
            if (out.size() == filled) out.resize(filled + kChunk);
            std::size_t got = 0;
            if (Result result = data.Read(out.data() + filled, out.size() - filled, got))
                return result;
            if (got == 0) break;
            filled += got;
            if (Result stop = Progress(got, 0)) return stop;
        }
        out.resize(filled);
        return kEngineOK;
    }

    Result PlaceWhole(Bytes bytes, bool storeOnly, ForkEntry &fork) {
        fork.size = bytes.size();
        fork.hash = Sha256(bytes.data(), bytes.size());
        if (settings_.fold && Fold(fork)) return Progress(0, fork.size);
        BlockKind kind = KindOfContent(settings_.choice, bytes.data(), bytes.size(), storeOnly);
        Result result = Append(bytes.data(), bytes.size(), kind, fork);
        Remember(fork);
        return result == kEngineOK ? Progress(0, fork.size) : result;
    }

    // A large item streamed into blocks as it is read.
    Result PlaceStream(DataSource &data, std::uint64_t expected, bool storeOnly, ForkEntry &fork) {
        Digest digest = NewDigest();
        Bytes chunk(kChunk);
        std::optional<BlockKind> kind;
        for (;;) {
            std::size_t got = 0;
            if (Result result = data.Read(chunk.data(), chunk.size(), got)) return result;
            if (got == 0) break;
            UpdateDigest(digest, chunk.data(), got);
            fork.size += got;
            if (!kind) kind = KindOfContent(settings_.choice, chunk.data(), got, storeOnly);
            itemAhead_ = expected - std::min(expected, fork.size);
            if (Result result = Append(chunk.data(), got, *kind, fork)) return result;
            if (Result stop = Progress(got, got)) return stop;
        }
        itemAhead_ = 0;
        fork.hash = FinishDigest(digest);
        Remember(fork);
        return kEngineOK;
    }

    // A large item of a size seen before goes to a scratch file first, so
    // that it is stored only when it is not a duplicate.
    Result PlaceSpooled(DataSource &data, bool storeOnly, ForkEntry &fork) {
        std::unique_ptr<FILE, int (*)(FILE *)> spool(tmpfile(), fclose);
        if (!spool) return LastErrno();
        Digest digest = NewDigest();
        Bytes chunk(kChunk);
        for (;;) {
            std::size_t got = 0;
            if (Result result = data.Read(chunk.data(), chunk.size(), got)) return result;
            if (got == 0) break;
            UpdateDigest(digest, chunk.data(), got);
            fork.size += got;
            if (fwrite(chunk.data(), 1, got, spool.get()) != got) return kEngineDiskFull;
            if (Result stop = Progress(got, 0)) return stop;
        }
        fork.hash = FinishDigest(digest);
        if (Fold(fork)) return Progress(0, fork.size);
        rewind(spool.get());
        std::optional<BlockKind> kind;
        std::uint64_t appended = 0;
        for (;;) {
            std::size_t got = fread(chunk.data(), 1, chunk.size(), spool.get());
            if (got == 0) break;
            if (!kind) kind = KindOfContent(settings_.choice, chunk.data(), got, storeOnly);
            appended += got;
            itemAhead_ = fork.size - std::min(fork.size, appended);
            if (Result result = Append(chunk.data(), got, *kind, fork)) return result;
            if (Result stop = Progress(0, got)) return stop;
        }
        itemAhead_ = 0;
        Remember(fork);
        return kEngineOK;
    }

    bool Fold(ForkEntry &fork) {
        auto found = placed_.find(Placed{fork.size, fork.hash});
        if (found == placed_.end()) return false;
        fork.extents = found->second;
        return true;
    }
    void Remember(const ForkEntry &fork) {
        if (settings_.fold && fork.size > 0)
            placed_.emplace(Placed{fork.size, fork.hash}, fork.extents);
    }

    // The thumbnails go into stored blocks of their own; identical ones are
    // folded like any content. They count as no item's bytes.
    Result PlaceThumbnails() {
        for (auto &[index, jpeg] : thumbnails_.Finish()) {
            ForkEntry fork;
            fork.kind = kForkOfThumb;
            fork.size = jpeg.size();
            fork.hash = Sha256(jpeg.data(), jpeg.size());
            if (!(settings_.fold && Fold(fork))) {
                if (Result result = Append(jpeg.data(), jpeg.size(), BlockKind::Stored, fork))
                    return result;
                Remember(fork);
            }
            body_.items[index].forks.push_back(std::move(fork));
        }
        return kEngineOK;
    }

    // Appends bytes to the open block, sealing full ones. Each kind of
    // content goes into blocks of its own.
    Result Append(const std::uint8_t *data, std::size_t size, BlockKind kind, ForkEntry &fork) {
        if (kind != openKind_ && !open_.empty()) Seal();
        openKind_ = kind;
        const std::uint64_t blockSize = BlockSizeFor(ChoiceForBlock(settings_.choice, kind));
        kindBlockSize_ = blockSize;
        while (size > 0) {
            if (!open_.empty() && open_.size() >= openBlockSize_) {
                Seal();
                openKind_ = kind;
                if (Result result = Throttle()) return result;
            }
            if (open_.empty()) OpenBlock(blockSize, size);
            std::size_t take = static_cast<std::size_t>(
                std::min<std::uint64_t>(size, openBlockSize_ - open_.size()));
            std::uint32_t block = static_cast<std::uint32_t>(nextBlock_);
            if (!fork.extents.empty() && fork.extents.back().block == block &&
                fork.extents.back().offset + fork.extents.back().length == open_.size()) {
                fork.extents.back().length += take;
            } else {
                fork.extents.push_back(Extent{block, open_.size(), take});
            }
            open_.insert(open_.end(), data, data + take);
            data += take;
            size -= take;
        }
        return kEngineOK;
    }

    // Near the end of the run blocks shrink to a share of what is left for
    // each worker, so that the workers finish together rather than one
    // coding a full block alone at the end. A quarter of the usual size is
    // the least: smaller blocks cost more than an idle core gains.
    void OpenBlock(std::uint64_t blockSize, std::uint64_t inHand) {
        openBlockSize_ = blockSize;
        std::optional<std::uint64_t> feedAhead = feed_->BytesAhead();
        if (pool_.Workers() > 1 && feedAhead) {
            const std::uint64_t left = inHand + itemAhead_ + *feedAhead;
            const std::uint64_t least = blockSize / 4;
            const std::uint64_t share = (left + pool_.Workers() - 1) / pool_.Workers();
            std::uint64_t size = std::clamp(share, least, blockSize);
            // No shred of a block after this one.
            if (left - std::min(left, size) < least) size = std::clamp(left, size, blockSize);
            openBlockSize_ = size;
        }
        // Room for the whole block at once: grown step by step, it was
        // copied about once more on the way.
        open_.reserve(static_cast<std::size_t>(openBlockSize_));
    }

    Result CopyStored(const StoredItem &stored, ItemEntry &entry) {
        entry.encrypted = stored.entry.encrypted;
        for (const ForkEntry &source : stored.entry.forks) {
            if (settings_.version == 0 && source.kind != kForkOfData) continue;
            ForkEntry fork = source;
            for (Extent &extent : fork.extents) {
                std::uint32_t block = 0;
                if (Result result = CopyBlock(stored, extent.block, block)) return result;
                extent.block = block;
            }
            entry.forks.push_back(std::move(fork));
        }
        return kEngineOK;
    }

    // A block of another archive, written as it is stored (once, however
    // many items lie in it), with the key record it was sealed under.
    Result CopyBlock(const StoredItem &stored, std::uint32_t sourceIndex, std::uint32_t &index) {
        const ArchiveFile &source = *stored.archive;
        auto copied = copied_.find({&source, sourceIndex});
        if (copied != copied_.end()) {
            index = copied->second;
            return kEngineOK;
        }
        if (sourceIndex >= source.body.blocks.size()) return kEngineCatalogueDamaged;
        Seal();
        if (Result result = Drain()) return result;
        BlockEntry entry = source.body.blocks[sourceIndex];
        if (entry.cipher != kCipherNone) {
            if (entry.keySlot >= source.keys.size()) return kEngineCatalogueDamaged;
            entry.keySlot = SlotOf(source.keys[entry.keySlot]);
            if (!catalogueKey_ && source.catalogueKey &&
                source.catalogueKeySlot < source.keys.size()) {
                catalogueKey_ = source.catalogueKey;
                catalogueRecord_ = SlotOf(source.keys[source.catalogueKeySlot]);
            }
        }
        // The source may be segmented, or an index whose archive lies elsewhere.
        std::uint64_t from = entry.offset;
        entry.offset = offset_;
        std::uint64_t remaining = kBlockHeaderSize + entry.storedSize;
        Bytes buffer(kChunk);
        while (remaining > 0) {
            std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(remaining, kChunk));
            if (Result result = source.source->ReadData(from, buffer.data(), want, operation_))
                return result;
            if (Result result = Write(buffer.data(), want)) return result;
            from += want;
            remaining -= want;
            if (Result stop = Progress(0, 0, want)) return stop;
        }
        // The copied header keeps its key slot of the old archive; the
        // catalogue's entry is the one a reader follows.
        index = static_cast<std::uint32_t>(nextBlock_++);
        ListBlock(index, entry);
        copied_.emplace(std::make_pair(&source, sourceIndex), index);
        return kEngineOK;
    }

    void ListBlock(std::uint32_t index, const BlockEntry &entry) {
        if (body_.blocks.size() <= index) body_.blocks.resize(index + 1);
        body_.blocks[index] = entry;
    }

    std::uint32_t SlotOf(const KeyRecord &record) {
        for (std::size_t i = 0; i < keys_.size(); ++i)
            if (keys_[i] == record) return static_cast<std::uint32_t>(i);
        keys_.push_back(record);
        return static_cast<std::uint32_t>(keys_.size() - 1);
    }

    // -- blocks -------------------------------------------------------------

    void Seal() {
        if (open_.empty()) return;
        auto job = std::make_shared<Job>();
        job->data = std::move(open_);
        open_.clear();
        job->entry.unpackedSize = job->data.size();
        job->choice = ChoiceForBlock(settings_.choice, openKind_);
        job->entry.method = job->choice.method;
        job->index = static_cast<std::uint32_t>(nextBlock_);
        job->entry.sealNumber = nextBlock_;
        ++nextBlock_;
        pending_.push_back(job);
        job->task = pool_.Submit([this, job](void *&state) { Code(*job, state); });
    }

    // Keeps the blocks in flight within the memory the settings allow.
    Result Throttle() {
        while (pending_.size() > MaxPending())
            if (Result result = WriteFinished()) return result;
        return kEngineOK;
    }
    // One block waits beside those being coded, unless blocks are large (text
    // blocks, whose coders hold a model too): filling the next one takes far
    // less time than coding one, so the workers hardly wait for it.
    std::size_t MaxPending() const {
        if (!pool_.Workers()) return 0;
        return pool_.Workers() + (kindBlockSize_ > kLargeBlock ? 0 : 1);
    }

    Result Drain() {
        while (!pending_.empty())
            if (Result result = WriteFinished()) return result;
        return kEngineOK;
    }

    // Blocks are written as they are coded, not in the order they were
    // sealed: a long block (a library's) then holds no core idle behind it.
    // The catalogue lists them by number, wherever they lie.
    Result WriteFinished() {
        std::uint64_t task = pool_.TakeAnyDone();
        auto found = std::find_if(pending_.begin(), pending_.end(),
                                  [task](const auto &job) { return job->task == task; });
        std::shared_ptr<Job> job = *found;
        pending_.erase(found);
        if (job->result != kEngineOK) return job->result;
        job->entry.offset = offset_;
        BlockHeader header;
        header.method = job->entry.method;
        header.filter = job->entry.filter;
        header.cipher = job->entry.cipher;
        header.keySlot = job->entry.keySlot;
        header.sealNumber = job->entry.sealNumber;
        header.unpackedSize = job->entry.unpackedSize;
        header.storedSize = job->entry.storedSize;
        header.crc = job->entry.crc;
        Bytes bytes = EncodeBlockHeader(header);
        if (Result result = Write(bytes.data(), bytes.size())) return result;
        if (Result result = Write(job->data.data(), job->data.size())) return result;
        ListBlock(job->index, job->entry);
        return Progress(0, 0, job->data.size());
    }

    void Code(Job &job, void *&state) {
        BlockEntry &entry = job.entry;
        if (entry.method != kMethodStore) {
            MethodChoice choice = job.choice;
            // Text has nothing the filters are made for.
            bool text = entry.method == kMethodText || entry.method == kMethodWordText;
            if (settings_.filters && settings_.version > 0 && !text)
                entry.filter = ChooseFilter(job.data);
            if (entry.filter == kFilterX86 && FiltersInStream(entry.method)) {
                choice.branchFilter = true;
                entry.filter = kFilterNone;
            }
            ApplyFilter(entry.filter, job.data);
            Bytes packed;
            if (Compress(choice, job.data, packed, state) && packed.size() < job.data.size()) {
                job.data = std::move(packed);
            } else {
                entry.method = kMethodStore;
            }
        }
        if (sealer_) {
            entry.cipher = settings_.cipher;
            entry.keySlot = keySlot_;
            Bytes sealed;
            if (!sealer_->Seal(entry.sealNumber, job.data, BlockAssociatedData(entry), sealed)) {
                job.result = kEngineEncryptFailed;
                return;
            }
            job.data = std::move(sealed);
        }
        entry.storedSize = job.data.size();
        entry.crc = Crc32(job.data.data(), job.data.size());
    }

    // -- the end ------------------------------------------------------------

    Result WriteCatalogue(std::uint16_t flags) {
        if (request_.comment && settings_.flavour == Flavour::Vnkx)
            body_.comment = Utf8(*request_.comment);
        const std::uint16_t layout = CatalogueLayoutFlag(settings_.version);
        Bytes plain = EncodeCatalogue(body_, settings_.version, layout);
        Bytes packed;
        void *state = nullptr;
        // zstd 19: a catalogue is small, and its columns pack far better
        // at the strongest levels.
        MethodChoice choice{kMethodZstd, 11, 22};
        bool packedOk = Compress(choice, plain, packed, state);
        FreeCoderState(state);
        if (!packedOk) return kEngineWriteFailed;
        std::uint8_t catalogueCipher = kCipherNone;
        std::uint32_t catalogueSlot = kNoKey;
        if (settings_.encryptCatalogue) {
            const cipher::DerivedKey *key = key_            ? &*key_
                                            : catalogueKey_ ? &*catalogueKey_
                                                            : nullptr;
            if (key) {
                catalogueSlot = key_ ? keySlot_ : catalogueRecord_;
                catalogueCipher = keys_[catalogueSlot].cipher;
                cipher::BlockCipher sealer(static_cast<cipher::AeadKind>(catalogueCipher), *key);
                Bytes sealed;
                if (!sealer.Seal(kCatalogueSealNumber, packed, {}, sealed))
                    return kEngineEncryptFailed;
                packed = std::move(sealed);
            }
        }
        // The header was written before the catalogue's cipher was settled
        // (a copied archive's key may encipher it).
        const std::uint16_t finalFlags =
            (catalogueCipher != kCipherNone ? kFlagCatalogueEnciphered : 0) | layout;
        if (finalFlags != flags) {
            Bytes header = EncodeHeader(settings_.flavour, settings_.version, finalFlags);
            if (pwrite(fd_, header.data(), header.size(), 0) != static_cast<ssize_t>(header.size()))
                return LastErrno();
        }
        Writer region;
        region.Raw(kCatalogueMagic, 4);
        region.U32(static_cast<std::uint32_t>(keys_.size()));
        for (const KeyRecord &key : keys_) EncodeKeyRecord(region, key);
        region.U8(catalogueCipher);
        region.U32(catalogueSlot);
        region.U64(plain.size());
        region.U64(packed.size());
        region.Raw(packed.data(), packed.size());

        Trailer trailer;
        trailer.version = settings_.version;
        trailer.flags = finalFlags;
        trailer.catalogueOffset = offset_;
        trailer.catalogueSize = region.bytes.size();
        trailer.catalogueHash = Sha256(region.bytes.data(), region.bytes.size());
        if (Result result = Write(region.bytes.data(), region.bytes.size())) return result;
        if (settings_.redundancy > 0 && settings_.version > 0) {
            std::uint64_t size = 0;
            recovery::FileRegion covered{fd_, 0, offset_};
            if (Result result =
                    recovery::WriteRecord(covered, settings_.redundancy, fd_, offset_, size))
                return result;
            trailer.flags |= kFlagRecoveryData;
            trailer.recoveryOffset = offset_;
            trailer.recoverySize = size;
            offset_ += size;
            if (lseek(fd_, static_cast<off_t>(offset_), SEEK_SET) < 0) return LastErrno();
        }
        trailer.archiveLength = offset_ + kTrailerSize;
        Bytes end = EncodeTrailer(trailer);
        return Write(end.data(), end.size());
    }

    Result Write(const void *data, std::size_t size) {
        if (Result result = WriteAll(fd_, data, size)) return result;
        offset_ += size;
        return kEngineOK;
    }

    // Counters: bytes read from sources, bytes of items done, bytes of
    // archive written (as work).
    Result Progress(std::uint64_t read, std::uint64_t done, std::uint64_t written = 0) {
        if (!operation_) return kEngineOK;
        (void)read;
        if (done) operation_->AddWritten(done);
        if (Result stop = operation_->Work(read + written)) return stop;
        return operation_->Counters();
    }

    const WriteRequest &request_;
    WriteSettings settings_;
    Operation *operation_;
    bool makeThumbnails_ = false;
    thumbnail::ThumbnailMaker thumbnails_;
    int fd_ = -1;
    std::uint64_t offset_ = 0;
    std::uint64_t nextBlock_ = 0;
    Bytes open_;
    BlockKind openKind_ = BlockKind::General;
    std::uint64_t kindBlockSize_ = 0;  // the usual size of the open kind's blocks
    std::uint64_t openBlockSize_ = 0;  // the open block's, smaller near the end
    ItemFeed *feed_ = nullptr;
    std::uint64_t itemAhead_ = 0;  // of the item being placed, the bytes not yet appended
    CatalogueBody body_;
    std::vector<KeyRecord> keys_;
    std::optional<cipher::DerivedKey> key_;
    std::uint32_t keySlot_ = kNoKey;
    std::optional<cipher::BlockCipher> sealer_;
    std::optional<cipher::DerivedKey> catalogueKey_;
    std::uint32_t catalogueRecord_ = kNoKey;
    std::vector<std::size_t> positions_;  // each listed item's WriteItem::position
    std::map<Placed, std::vector<Extent>> placed_;
    std::set<std::uint64_t> largeSizes_;
    std::map<std::pair<const ArchiveFile *, std::uint32_t>, std::uint32_t> copied_;
    std::deque<std::shared_ptr<Job>> pending_;
    OrderedWorkerPool pool_;
};

}  // namespace

Result WriteArchive(const WriteRequest &request, ItemFeed &feed, const WriteSettings &settings) {
    ArchiveWriter writer(request, settings);
    return writer.Run(feed);
}

}  // namespace engine::vnkx
