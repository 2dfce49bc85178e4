#include "ZipWriter.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <deque>
#include <memory>

#include "ByteOrder.h"
#include "FileSystem.h"
#include "Handles.h"
#include "LibArchive.h"
#include "Operation.h"
#include "OrderedWorkerPool.h"
#include "ZipAesCipher.h"
#include "ZipDirectory.h"
#include "ZipFormat.h"
#include "ZipStreamEncoder.h"
#include "ZipTraditionalCipher.h"

namespace engine {
namespace {

using namespace zipformat;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kMarker32 = 0xFFFFFFFF;
// Items up to this size are compressed whole, in memory, on a worker; larger
// ones are streamed through their coder on the writer's thread.
constexpr std::uint64_t kWholeItemLimit = 64ULL << 20;
constexpr std::uint64_t kPendingBytesLimit = 256ULL << 20;
constexpr std::size_t kStreamChunk = 1 << 20;
constexpr std::uint64_t kBatchBytes = 4ULL << 20;
constexpr std::size_t kBatchItems = 64;

void PutBytes(Bytes &out, const Bytes &bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }
std::uint32_t Clip32(std::uint64_t value) {
    return value >= kMarker32 ? kMarker32 : static_cast<std::uint32_t>(value);
}

// DOS date and time of a FILETIME, in local time; the format starts in 1980.
void DosTime(const std::optional<EngineDateTime> &modified, std::uint16_t &date,
             std::uint16_t &time) {
    std::int64_t seconds = 0;
    long nanoseconds = 0;
    if (modified) UnixFromFileTime(*modified, seconds, nanoseconds);
    time_t when = modified ? static_cast<time_t>(seconds) : ::time(nullptr);
    struct tm local {};
    localtime_r(&when, &local);
    if (local.tm_year < 80) {
        date = (1 << 5) | 1;
        time = 0;
        return;
    }
    date = static_cast<std::uint16_t>(((local.tm_year - 80) << 9) | ((local.tm_mon + 1) << 5) |
                                      local.tm_mday);
    time = static_cast<std::uint16_t>((local.tm_hour << 11) | (local.tm_min << 5) |
                                      (local.tm_sec / 2));
}

// ---------------------------------------------------------------------------

// One item on its way into the archive.
struct Job {
    ItemInfo info;
    std::string name;  // UTF-8, "/" after a folder
    bool storeOnly = false;
    Bytes data;  // what the item holds; then what is written
    std::uint32_t crc = 0;
    std::uint64_t size = 0;
    std::uint16_t method = kMethodStore;  // of the data before enciphering
    std::uint16_t versionNeeded = 10;
    std::uint16_t flags = 0;
    Bytes aesExtra;
    const ZipStoredItem *copy = nullptr;
    std::string copyFrom;
    Result result = kEngineOK;
    bool done = false;
};

// Items compressed together by one worker.
struct Batch {
    std::vector<std::shared_ptr<Job>> jobs;
    std::uint64_t bytes = 0;
};

// What the central directory says of an item written.
struct Central {
    std::string name;
    std::string comment;
    std::uint16_t madeBy = (3 << 8) | 63;  // Unix, zip format version 6.3
    std::uint16_t versionNeeded = 20;
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    std::uint16_t date = 0, time = 0;
    std::uint32_t crc = 0;
    std::uint64_t compressedSize = 0, size = 0, offset = 0;
    std::uint32_t externalAttributes = 0;
    Bytes extra;  // everything but zip64, which is made when written
    std::optional<std::uint32_t> unixTime;
};

// The extra fields a local header and its central record share: the
// modification time as an extended timestamp, and the item's own (AES).
void PutSharedExtra(Bytes &extra, const Central &entry) {
    if (entry.unixTime) {
        Put16(extra, 0x5455);
        Put16(extra, 5);
        extra.push_back(1);
        Put32(extra, *entry.unixTime);
    }
    PutBytes(extra, entry.extra);
}

class ZipWriter {
public:
    ZipWriter(const WriteRequest &request, const ZipWriteSettings &settings)
        : request_(request),
          settings_(settings),
          operation_(request.operation),
          pool_([](void *state) {
              libdeflate_free_compressor(static_cast<libdeflate_compressor *>(state));
          }) {}

    ~ZipWriter() {
        pool_.Stop();
        if (fd_ >= 0) close(fd_);
    }

    Result Run(ItemFeed &feed) {
        fd_ = open(request_.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd_ < 0) return LastErrno();
        pool_.Start(request_.threads ? OrderedWorkerPool::kOneACore : 0);
        Result result = Pump(feed);
        pool_.Stop();
        if (result == kEngineOK && operation_) result = operation_->WritingCatalogue();
        if (result == kEngineOK) result = WriteDirectory();
        if (result == kEngineOK && close(fd_) != 0) result = LastErrno();
        fd_ = -1;
        return result;
    }

private:
    // Takes items from the feed and writes them in order while workers
    // compress the ones ahead. Small items travel in batches, so that a
    // tree of many small files does not spend its time waking threads.
    Result Pump(ItemFeed &feed) {
        bool fed = false;
        for (;;) {
            if (operation_ && operation_->Cancelled()) return kEngineCancelled;
            if (!fed && pending_.size() < MaxPending() && pendingBytes_ < kPendingBytesLimit) {
                WriteItem item;
                Result next = feed.Next(item);
                if (next == kEngineNoMoreObjects) {
                    fed = true;
                    Seal();
                    continue;
                }
                if (next != kEngineOK) return next;
                if (Result result = Take(item)) return result;
                continue;
            }
            if (pending_.empty()) {
                if (!open_) return kEngineOK;
                Seal();
                continue;
            }
            if (Result result = WriteFront()) return result;
        }
    }

    std::size_t MaxPending() const { return pool_.Workers() ? 2 * pool_.Workers() + 1 : 1; }

    Result Take(WriteItem &item) {
        auto job = std::make_shared<Job>();
        job->info = item.info;
        job->name = Utf8(item.info.path);
        if (item.info.folder && (job->name.empty() || job->name.back() != '/')) job->name += '/';
        job->storeOnly = item.storeOnly || settings_.method == 0 ||
                         (settings_.method == 1 && settings_.level == 0);
        if (item.copy) {
            job->copy = dynamic_cast<const ZipStoredItem *>(item.copy);
            job->copyFrom = item.copyFrom;
        }
        if (job->copy || item.info.folder) {
            job->done = true;
            Add(job);
            return kEngineOK;
        }
        if (item.info.symlink) {
            std::string target = Utf8(item.info.linkTarget);
            job->data.assign(target.begin(), target.end());
            job->storeOnly = true;
        } else if (item.data) {
            if (item.info.size > kWholeItemLimit) {
                // Everything before it goes out first; then it streams.
                if (Result result = Drain()) return result;
                return StreamLarge(*job, *item.data);
            }
            if (Result result = ReadWhole(*item.data, item.info.size, job->data)) return result;
        }
        job->size = job->data.size();
        Add(job);
        return kEngineOK;
    }

    // Reads an item whole; `expected` (its size when it was listed) sizes the
    // buffer, which grows only when the file has grown since.
    Result ReadWhole(DataSource &data, std::uint64_t expected, Bytes &out) {
        out.resize(static_cast<std::size_t>(expected) + 1);
        std::size_t filled = 0;
        for (;;) {
            if (out.size() == filled) out.resize(filled + kStreamChunk);
            std::size_t got = 0;
            if (Result result = data.Read(out.data() + filled, out.size() - filled, got))
                return result;
            if (got == 0) break;
            filled += got;
            if (operation_) {
                if (Result stop = operation_->Work(got)) return stop;
                if (Result stop = operation_->Counters()) return stop;
            }
        }
        out.resize(filled);
        return kEngineOK;
    }

    void Add(const std::shared_ptr<Job> &job) {
        if (!open_) open_ = std::make_shared<Batch>();
        open_->jobs.push_back(job);
        open_->bytes += job->size;
        pendingBytes_ += job->size;
        if (open_->bytes >= kBatchBytes || open_->jobs.size() >= kBatchItems) Seal();
    }

    // The batch being filled goes to the workers.
    void Seal() {
        if (!open_) return;
        pending_.push_back(open_);
        pool_.Submit([batch = open_, this](void *&state) {
            auto *compressor = static_cast<libdeflate_compressor *>(state);
            CompressBatch(*batch, &compressor);
            state = compressor;
        });
        open_.reset();
    }

    Result WriteFront() {
        std::shared_ptr<Batch> batch = pending_.front();
        pool_.TakeFront();
        pending_.pop_front();
        pendingBytes_ -= std::min(pendingBytes_, batch->bytes);
        for (const auto &job : batch->jobs) {
            if (job->result != kEngineOK) return job->result;
            if (Result result = WriteJob(*job)) return result;
        }
        return kEngineOK;
    }

    Result Drain() {
        Seal();
        while (!pending_.empty())
            if (Result result = WriteFront()) return result;
        return kEngineOK;
    }

    // -- workers ------------------------------------------------------------

    void CompressBatch(Batch &batch, libdeflate_compressor **cached = nullptr) {
        for (const auto &job : batch.jobs)
            if (!job->done) Compress(*job, cached);
    }

    // Compresses (when it pays) and enciphers one whole item.
    void Compress(Job &job, libdeflate_compressor **cached = nullptr) {
        job.crc = static_cast<std::uint32_t>(libdeflate_crc32(0, job.data.data(), job.data.size()));
        job.method = kMethodStore;
        if (!job.storeOnly && !job.data.empty())
            job.result = settings_.method == 1 ? Deflate(job, cached) : CompressWithCoder(job);
        if (job.result == kEngineOK) job.result = Encipher(job);
    }

    // Deflate through libdeflate, whose compressor a worker keeps in `cached`.
    Result Deflate(Job &job, libdeflate_compressor **cached) {
        libdeflate_compressor *local = nullptr;
        libdeflate_compressor *&compressor = cached ? *cached : local;
        if (!compressor)
            compressor = libdeflate_alloc_compressor(std::clamp(settings_.level, 1, 12));
        if (!compressor) return kEngineOutOfMemory;
        // Compressed data smaller than the item is all that is kept; the
        // bound only has to fit what libdeflate may write.
        std::size_t bound = libdeflate_deflate_compress_bound(compressor, job.data.size());
        auto packed = std::make_unique_for_overwrite<std::uint8_t[]>(bound);
        std::size_t made = libdeflate_deflate_compress(compressor, job.data.data(), job.data.size(),
                                                       packed.get(), bound);
        if (local) libdeflate_free_compressor(local);
        if (made > 0 && made < job.data.size()) {
            job.data.assign(packed.get(), packed.get() + made);
            job.method = kMethodDeflate;
            job.versionNeeded = 20;
        }
        return kEngineOK;
    }

    // The methods other than deflate. A dictionary larger than the item
    // only costs memory, so it is cut to the item's size.
    Result CompressWithCoder(Job &job) {
        int extent = settings_.extent;
        while (extent > 12 && (1ULL << (extent - 1)) >= job.data.size()) --extent;
        auto coder = ZipStreamEncoder::Make(settings_.method, settings_.level, extent);
        if (!coder) return kEngineOutOfMemory;
        Bytes packed;
        if (Result result = coder->CodeWhole(job.data.data(), job.data.size(), packed))
            return result;
        if (packed.size() < job.data.size()) {
            job.data = std::move(packed);
            job.method = coder->Method();
            job.versionNeeded = coder->VersionNeeded();
            job.flags |= coder->Flags();
        }
        return kEngineOK;
    }

    Result Encipher(Job &job) {
        if (settings_.cipher == ZipWriteSettings::Cipher::None || job.info.folder) return kEngineOK;
        Bytes header, trailer;
        if (settings_.cipher == ZipWriteSettings::Cipher::Traditional) {
            ZipTraditionalCipher cipher;
            if (!cipher.StartEncrypting(request_.password, static_cast<std::uint8_t>(job.crc >> 24),
                                        header))
                return kEngineEncryptFailed;
            cipher.Encrypt(job.data.data(), job.data.size());
        } else {
            ZipAesCipher cipher;
            bool aes256 = settings_.cipher == ZipWriteSettings::Cipher::Aes256;
            if (!cipher.StartEncrypting(request_.password, aes256 ? 3 : 1, header) ||
                !cipher.Encrypt(job.data.data(), job.data.size()) || !cipher.Code(trailer))
                return kEngineEncryptFailed;
            job.aesExtra = AesExtra(aes256, job.method);
        }
        job.flags |= kFlagEncrypted;
        job.data.insert(job.data.begin(), header.begin(), header.end());
        PutBytes(job.data, trailer);
        return kEngineOK;
    }

    static Bytes AesExtra(bool aes256, std::uint16_t method) {
        Bytes extra;
        Put16(extra, 0x9901);
        Put16(extra, 7);
        Put16(extra, 2);  // AE-2: no CRC, the HMAC checks the data
        extra.push_back('A');
        extra.push_back('E');
        extra.push_back(aes256 ? 3 : 1);
        Put16(extra, method);
        return extra;
    }

    // -- writing ------------------------------------------------------------

    Result Write(const void *data, std::size_t size) {
        if (Result result = WriteAll(fd_, data, size)) return result;
        offset_ += size;
        return kEngineOK;
    }

    Central CentralFor(const Job &job) {
        Central entry;
        entry.name = job.name;
        if (job.info.comment) entry.comment = Utf8(*job.info.comment);
        DosTime(job.info.modified, entry.date, entry.time);
        if (job.info.modified) {
            std::int64_t seconds;
            long nanoseconds;
            UnixFromFileTime(*job.info.modified, seconds, nanoseconds);
            if (seconds >= 0 && seconds < (1LL << 32))
                entry.unixTime = static_cast<std::uint32_t>(seconds);
        }
        std::uint32_t mode =
            job.info.mode ? job.info.mode & 07777 : (job.info.folder ? 0755 : 0644);
        if (job.info.folder) {
            entry.externalAttributes = ((040000u | mode) << 16) | 0x10;
        } else if (job.info.symlink) {
            entry.externalAttributes = (0120777u << 16);
        } else {
            entry.externalAttributes = (0100000u | mode) << 16;
        }
        bool ascii = std::all_of(entry.name.begin(), entry.name.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; }) &&
                     std::all_of(entry.comment.begin(), entry.comment.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        if (!ascii) entry.flags |= kFlagUtf8;
        entry.offset = offset_;
        return entry;
    }

    // The local header, with a zip64 field when the sizes or the offset need
    // it (always for an item streamed, whose sizes come afterwards).
    Bytes LocalHeader(const Central &entry, bool zip64) {
        Bytes header;
        Put32(header, kLocalSignature);
        Put16(header,
              zip64 ? std::max<std::uint16_t>(45, entry.versionNeeded) : entry.versionNeeded);
        Put16(header, entry.flags);
        Put16(header, entry.method);
        Put16(header, entry.time);
        Put16(header, entry.date);
        Put32(header, entry.crc);
        Put32(header, zip64 ? kMarker32 : static_cast<std::uint32_t>(entry.compressedSize));
        Put32(header, zip64 ? kMarker32 : static_cast<std::uint32_t>(entry.size));
        Bytes extra;
        if (zip64) {
            Put16(extra, 0x0001);
            Put16(extra, 16);
            Put64(extra, entry.size);
            Put64(extra, entry.compressedSize);
        }
        PutSharedExtra(extra, entry);
        Put16(header, static_cast<std::uint32_t>(entry.name.size()));
        Put16(header, static_cast<std::uint32_t>(extra.size()));
        header.insert(header.end(), entry.name.begin(), entry.name.end());
        PutBytes(header, extra);
        return header;
    }

    Result WriteJob(Job &job) {
        if (job.copy) return CopyStored(job);
        Central entry = CentralFor(job);
        entry.flags |= job.flags;
        entry.size = job.size;
        entry.compressedSize = job.data.size();
        entry.crc = job.crc;
        entry.method = job.method;
        entry.versionNeeded = job.info.folder ? 20 : job.versionNeeded;
        if (!job.aesExtra.empty()) {
            entry.method = kMethodAes;
            entry.crc = 0;
            entry.versionNeeded = std::max<std::uint16_t>(51, entry.versionNeeded);
            entry.extra = job.aesExtra;
        }
        bool zip64 = entry.size >= kMarker32 || entry.compressedSize >= kMarker32;
        Bytes header = LocalHeader(entry, zip64);
        if (Result result = Write(header.data(), header.size())) return result;
        if (Result result = Write(job.data.data(), job.data.size())) return result;
        directory_.push_back(std::move(entry));
        if (operation_) {
            operation_->AddWritten(job.size);
            if (Result stop = operation_->Work(job.data.size())) return stop;
            if (Result stop = operation_->Counters()) return stop;
        }
        return kEngineOK;
    }

    // An item larger than a worker takes whole: compressed as it is read,
    // the sizes and check value written into its header afterwards.
    Result StreamLarge(Job &job, DataSource &data) {
        std::unique_ptr<ZipStreamEncoder> coder;
        if (!job.storeOnly) {
            coder = ZipStreamEncoder::Make(settings_.method, settings_.level, settings_.extent);
            if (!coder) return kEngineOutOfMemory;
        }
        Central entry = CentralFor(job);
        entry.method = coder ? coder->Method() : kMethodStore;
        entry.flags |= coder ? coder->Flags() : 0;
        entry.versionNeeded = std::max<std::uint16_t>(45, coder ? coder->VersionNeeded() : 0);
        bool aes = settings_.cipher == ZipWriteSettings::Cipher::Aes128 ||
                   settings_.cipher == ZipWriteSettings::Cipher::Aes256;
        bool traditional = settings_.cipher == ZipWriteSettings::Cipher::Traditional;
        if (aes) {
            entry.extra =
                AesExtra(settings_.cipher == ZipWriteSettings::Cipher::Aes256, entry.method);
            entry.method = kMethodAes;
            entry.versionNeeded = std::max<std::uint16_t>(51, entry.versionNeeded);
            entry.flags |= kFlagEncrypted;
        }
        if (traditional)
            entry.flags |= kFlagEncrypted | kFlagDescriptor;  // the check byte is the time's
        std::uint64_t headerAt = offset_;
        Bytes header = LocalHeader(entry, true);
        if (Result result = Write(header.data(), header.size())) return result;

        ZipAesCipher aesCipher;
        ZipTraditionalCipher pkCipher;
        Bytes prefix;
        if (aes && !aesCipher.StartEncrypting(
                       request_.password,
                       settings_.cipher == ZipWriteSettings::Cipher::Aes256 ? 3 : 1, prefix))
            return kEngineEncryptFailed;
        if (traditional &&
            !pkCipher.StartEncrypting(request_.password, static_cast<std::uint8_t>(entry.time >> 8),
                                      prefix))
            return kEngineEncryptFailed;
        if (Result result = Write(prefix.data(), prefix.size())) return result;
        std::uint64_t compressed = prefix.size();

        Bytes in(kStreamChunk), scratch;
        std::uint32_t crc = 0;
        std::uint64_t size = 0;
        // Enciphering works in place: what the coder made goes through a copy.
        auto emit = [&](const std::uint8_t *bytes, std::size_t count) -> Result {
            if (count == 0) return kEngineOK;
            scratch.assign(bytes, bytes + count);
            if (aes && !aesCipher.Encrypt(scratch.data(), count)) return kEngineEncryptFailed;
            if (traditional) pkCipher.Encrypt(scratch.data(), count);
            compressed += count;
            return Write(scratch.data(), count);
        };
        for (bool last = false; !last;) {
            std::size_t got = 0;
            if (Result result = data.Read(in.data(), in.size(), got)) return result;
            last = got == 0;
            crc = static_cast<std::uint32_t>(libdeflate_crc32(crc, in.data(), got));
            size += got;
            if (Result result =
                    coder ? coder->Code(in.data(), got, last, emit) : emit(in.data(), got))
                return result;
            if (operation_) {
                operation_->AddWritten(got);
                if (Result stop = operation_->Work(got)) return stop;
                if (Result stop = operation_->Counters()) return stop;
            }
        }
        if (aes) {
            Bytes code;
            if (!aesCipher.Code(code)) return kEngineEncryptFailed;
            if (Result result = Write(code.data(), code.size())) return result;
            compressed += code.size();
        }
        entry.crc = aes ? 0 : crc;
        entry.size = size;
        entry.compressedSize = compressed;
        if (traditional) {
            Bytes descriptor;
            Put32(descriptor, kDescriptorSignature);
            Put32(descriptor, crc);
            Put64(descriptor, compressed);
            Put64(descriptor, size);
            if (Result result = Write(descriptor.data(), descriptor.size())) return result;
        }
        Bytes patched = LocalHeader(entry, true);
        if (pwrite(fd_, patched.data(), patched.size(), static_cast<off_t>(headerAt)) !=
            static_cast<ssize_t>(patched.size()))
            return LastErrno();
        entry.offset = headerAt;
        directory_.push_back(std::move(entry));
        return kEngineOK;
    }

    // An item of another zip, its data copied as it is stored.
    Result CopyStored(Job &job) {
        const ZipStoredItem &stored = *job.copy;
        UniqueFd file(open(job.copyFrom.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file.valid()) return LastErrno();
        int source = file.get();
        std::uint64_t dataAt = 0;
        if (Result result = ZipDataStart(source, stored.localOffset, dataAt)) return result;

        Central entry = CentralFor(job);
        entry.method = stored.method;
        entry.crc = stored.crc;
        entry.size = stored.size;
        entry.compressedSize = stored.compressedSize;
        entry.versionNeeded = std::max<std::uint16_t>(stored.versionNeeded, 20);
        entry.madeBy = stored.madeBy;
        entry.externalAttributes = stored.externalAttributes;
        // Keep what the data needs to be read: encryption and its kind, the
        // compression options, and the descriptor whose presence sets the
        // traditional cipher's check byte.
        entry.flags =
            static_cast<std::uint16_t>((entry.flags & kFlagUtf8) | (stored.flags & 0x0047));
        bool descriptor = (stored.flags & kFlagEncrypted) && (stored.flags & kFlagDescriptor) &&
                          stored.method != kMethodAes;
        if (descriptor) entry.flags |= kFlagDescriptor;
        entry.extra = stored.aesExtra;
        bool zip64 = entry.size >= kMarker32 || entry.compressedSize >= kMarker32;
        Bytes header = LocalHeader(entry, zip64);
        if (Result result = Write(header.data(), header.size())) return result;
        Bytes buffer(kStreamChunk);
        std::uint64_t remaining = stored.compressedSize, at = dataAt;
        while (remaining > 0) {
            std::size_t want =
                static_cast<std::size_t>(std::min<std::uint64_t>(remaining, buffer.size()));
            ssize_t got = pread(source, buffer.data(), want, static_cast<off_t>(at));
            if (got < 0) return LastErrno();
            if (got == 0) return kEngineArchiveTruncated;
            if (Result result = Write(buffer.data(), static_cast<std::size_t>(got))) return result;
            remaining -= static_cast<std::uint64_t>(got);
            at += static_cast<std::uint64_t>(got);
            if (operation_) {
                if (Result stop = operation_->Work(static_cast<std::uint64_t>(got))) return stop;
            }
        }
        if (descriptor) {
            Bytes trailer;
            Put32(trailer, kDescriptorSignature);
            Put32(trailer, entry.crc);
            if (zip64) {
                Put64(trailer, entry.compressedSize);
                Put64(trailer, entry.size);
            } else {
                Put32(trailer, static_cast<std::uint32_t>(entry.compressedSize));
                Put32(trailer, static_cast<std::uint32_t>(entry.size));
            }
            if (Result result = Write(trailer.data(), trailer.size())) return result;
        }
        if (operation_) {
            operation_->AddWritten(entry.size);
            if (Result stop = operation_->Counters()) return stop;
        }
        directory_.push_back(std::move(entry));
        return kEngineOK;
    }

    Result WriteDirectory() {
        std::uint64_t start = offset_;
        for (const Central &entry : directory_) {
            Bytes zip64;
            if (entry.size >= kMarker32) Put64(zip64, entry.size);
            if (entry.compressedSize >= kMarker32) Put64(zip64, entry.compressedSize);
            if (entry.offset >= kMarker32) Put64(zip64, entry.offset);
            Bytes extra;
            if (!zip64.empty()) {
                Put16(extra, 0x0001);
                Put16(extra, static_cast<std::uint32_t>(zip64.size()));
                PutBytes(extra, zip64);
            }
            PutSharedExtra(extra, entry);
            Bytes record;
            Put32(record, kCentralSignature);
            Put16(record, entry.madeBy);
            Put16(record, zip64.empty() ? entry.versionNeeded
                                        : std::max<std::uint16_t>(45, entry.versionNeeded));
            Put16(record, entry.flags);
            Put16(record, entry.method);
            Put16(record, entry.time);
            Put16(record, entry.date);
            Put32(record, entry.crc);
            Put32(record, Clip32(entry.compressedSize));
            Put32(record, Clip32(entry.size));
            Put16(record, static_cast<std::uint32_t>(entry.name.size()));
            Put16(record, static_cast<std::uint32_t>(extra.size()));
            Put16(record,
                  static_cast<std::uint32_t>(std::min<std::size_t>(entry.comment.size(), 0xFFFF)));
            Put16(record, 0);  // disk
            Put16(record, 0);  // internal attributes
            Put32(record, entry.externalAttributes);
            Put32(record, Clip32(entry.offset));
            record.insert(record.end(), entry.name.begin(), entry.name.end());
            PutBytes(record, extra);
            record.insert(
                record.end(), entry.comment.begin(),
                entry.comment.begin() + std::min<std::size_t>(entry.comment.size(), 0xFFFF));
            if (Result result = Write(record.data(), record.size())) return result;
        }
        std::uint64_t size = offset_ - start;
        std::uint64_t count = directory_.size();
        Bytes end;
        if (count >= 0xFFFF || size >= kMarker32 || start >= kMarker32) {
            std::uint64_t end64At = offset_;
            Put32(end, kEnd64Signature);
            Put64(end, 44);
            Put16(end, (3 << 8) | 63);
            Put16(end, 45);
            Put32(end, 0);
            Put32(end, 0);
            Put64(end, count);
            Put64(end, count);
            Put64(end, size);
            Put64(end, start);
            Put32(end, kLocator64Signature);
            Put32(end, 0);
            Put64(end, end64At);
            Put32(end, 1);
        }
        std::string comment = request_.comment ? Utf8(*request_.comment) : std::string();
        if (comment.size() > 0xFFFF) comment.resize(0xFFFF);
        Put32(end, kEndSignature);
        Put16(end, 0);
        Put16(end, 0);
        Put16(end, static_cast<std::uint32_t>(std::min<std::uint64_t>(count, 0xFFFF)));
        Put16(end, static_cast<std::uint32_t>(std::min<std::uint64_t>(count, 0xFFFF)));
        Put32(end, Clip32(size));
        Put32(end, Clip32(start));
        Put16(end, static_cast<std::uint32_t>(comment.size()));
        end.insert(end.end(), comment.begin(), comment.end());
        return Write(end.data(), end.size());
    }

    const WriteRequest &request_;
    ZipWriteSettings settings_;
    Operation *operation_;
    int fd_ = -1;
    std::uint64_t offset_ = 0;
    std::vector<Central> directory_;
    std::shared_ptr<Batch> open_;
    std::deque<std::shared_ptr<Batch>> pending_;
    std::uint64_t pendingBytes_ = 0;
    OrderedWorkerPool pool_;
};

}  // namespace

Result WriteZip(const WriteRequest &request, ItemFeed &feed, const ZipWriteSettings &settings) {
    ZipWriter writer(request, settings);
    return writer.Run(feed);
}

}  // namespace engine
