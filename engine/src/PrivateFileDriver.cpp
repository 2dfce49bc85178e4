// The private-file envelope "pf": one file, compressed with zstd and sealed
// in chunks with AES-256-GCM under a key derived from a password. The layout
// is written down in formats/pf/FORMAT.md.
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <array>
#include <cstring>
#include <memory>

#include "Driver.h"
#include "FileSystem.h"
#include "Operation.h"
#include "PasswordCipher.h"
#include "Sniff.h"
#include "platform/WideText.h"

namespace engine {
namespace {

using cipher::AeadKind;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kMagic[8] = {'V', 'n', 'k', 'P', 'F', 0x0D, 0x0A, 0x1A};
constexpr std::uint8_t kVersion = 1;
constexpr std::uint8_t kCompressionZstd = 1;
constexpr std::size_t kFixedSize = 64;
constexpr std::size_t kItemFixedSize = 22;  // size, time, mode, name length
constexpr std::size_t kMostName = 4096;
constexpr std::uint32_t kChunk = 1u << 20;
constexpr std::uint32_t kMostChunk = 16u << 20;
constexpr std::uint32_t kLastChunk = 0x8000'0000u;
constexpr int kZstdLevel = 3;

void Put16(Bytes &out, std::size_t at, std::uint16_t v) {
    for (int i = 0; i < 2; ++i) out[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}
void Put32(Bytes &out, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) out[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}
void Put64(Bytes &out, std::size_t at, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) out[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// Everything before the first chunk; every chunk's associated data is its
// SHA-256 and the chunk's last-flag, so no field of it can change unseen.
struct Header {
    AeadKind aead = AeadKind::Aes256Gcm;
    std::uint32_t chunkSize = kChunk;
    cipher::KeyParameters key;
    std::array<std::uint8_t, cipher::kCheckSize> check{};
    std::uint64_t size = 0;
    std::uint64_t modified = 0;  // FILETIME ticks, 0 when unknown
    std::uint32_t mode = 0;
    std::string name;  // UTF-8
    Bytes bytes;       // as stored
    std::array<std::uint8_t, 32> digest{};

    void Serialise() {
        bytes.assign(kFixedSize + kItemFixedSize + name.size(), 0);
        std::memcpy(bytes.data(), kMagic, sizeof kMagic);
        bytes[8] = kVersion;
        bytes[9] = static_cast<std::uint8_t>(aead);
        bytes[10] = kCompressionZstd;
        Put32(bytes, 12, chunkSize);
        auto parameters = key.Serialise();
        std::copy(parameters.begin(), parameters.end(), bytes.begin() + 16);
        std::copy(check.begin(), check.end(), bytes.begin() + 48);
        Put64(bytes, 64, size);
        Put64(bytes, 72, modified);
        Put32(bytes, 80, mode);
        Put16(bytes, 84, static_cast<std::uint16_t>(name.size()));
        std::memcpy(bytes.data() + kFixedSize + kItemFixedSize, name.data(), name.size());
        Digest();
    }
    void Digest() {
        unsigned int length = 0;
        EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr);
    }
    std::array<std::uint8_t, 33> Associated(bool last) const {
        std::array<std::uint8_t, 33> associated{};
        std::copy(digest.begin(), digest.end(), associated.begin());
        associated[32] = last ? 1 : 0;
        return associated;
    }
};

bool HasMagic(const Bytes &head) {
    return head.size() >= sizeof kMagic && std::memcmp(head.data(), kMagic, sizeof kMagic) == 0;
}

Result ReadExactly(int fd, void *out, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t got = read(fd, static_cast<std::uint8_t *>(out) + done, size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return LastErrno();
        if (got == 0) return kEngineArchiveTruncated;
        done += static_cast<std::size_t>(got);
    }
    return kEngineOK;
}

Result ReadHeader(int fd, Header &header) {
    Bytes fixed(kFixedSize + kItemFixedSize);
    if (Result r = ReadExactly(fd, fixed.data(), fixed.size())) return r;
    if (!HasMagic(fixed)) return kEngineWrongFormat;
    if (fixed[8] > kVersion) return kEngineArchiveTooNew;
    header.aead = static_cast<AeadKind>(fixed[9]);
    header.chunkSize = static_cast<std::uint32_t>(sniff::Le32(fixed, 12));
    if ((header.aead != AeadKind::Aes256Gcm && header.aead != AeadKind::ChaCha20Poly1305) ||
        fixed[10] != kCompressionZstd || header.chunkSize == 0 || header.chunkSize > kMostChunk ||
        !cipher::KeyParameters::Parse(std::span(fixed).subspan(16, 32), header.key))
        return kEngineCatalogueDamaged;
    std::copy_n(fixed.begin() + 48, cipher::kCheckSize, header.check.begin());
    header.size = sniff::Le64(fixed, 64);
    header.modified = sniff::Le64(fixed, 72);
    header.mode = static_cast<std::uint32_t>(sniff::Le32(fixed, 80));
    std::size_t nameLength = sniff::Le16(fixed, 84);
    if (nameLength > kMostName) return kEngineCatalogueDamaged;
    header.name.resize(nameLength);
    if (Result r = ReadExactly(fd, header.name.data(), nameLength)) return r;
    header.bytes = std::move(fixed);
    header.bytes.insert(header.bytes.end(), header.name.begin(), header.name.end());
    header.Digest();
    return kEngineOK;
}

struct ZstdFree {
    void operator()(ZSTD_DCtx *c) const { ZSTD_freeDCtx(c); }
    void operator()(ZSTD_CCtx *c) const { ZSTD_freeCCtx(c); }
};

// The one item: its header lists it; its data is the chunks opened in turn
// and decompressed. The key is derived on the first read, with the password
// asked for until its check value fits.
class PrivateFileCursor final : public ReadCursor {
public:
    PrivateFileCursor(std::unique_ptr<UniqueFd> fd, Header header, std::uint64_t fileSize,
                      const ReadRequest &request)
        : fd_(std::move(fd)), header_(std::move(header)), fileSize_(fileSize), request_(request) {}

    Result Next(ItemInfo &info) override {
        if (listed_) return kEngineNoMoreObjects;
        listed_ = true;
        info = ItemInfo{};
        info.rawPath = header_.name;
        info.path = platform::FromUtf8(header_.name);
        if (info.path.empty()) info.path = L"data";
        info.encrypted = true;
        info.size = header_.size;
        info.compressedSize = fileSize_ - header_.bytes.size();
        if (header_.modified) info.modified = header_.modified;
        info.mode = header_.mode & 07777;
        return kEngineOK;
    }

    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        got = 0;
        if (!listed_) return kEngineNoMoreObjects;
        if (!cipher_)
            if (Result r = Unlock()) return r;
        ZSTD_outBuffer out{buffer, size, 0};
        while (out.pos == 0 && size > 0) {
            if (input_.pos == input_.size) {
                if (ended_) break;
                if (Result r = NextChunk()) return r;
                continue;
            }
            std::size_t status = ZSTD_decompressStream(decoder_.get(), &out, &input_);
            if (ZSTD_isError(status)) return kEngineItemDataDamaged;
            if (status == 0 && input_.pos == input_.size && ended_ && out.pos == 0) break;
        }
        produced_ += out.pos;
        got = out.pos;
        if (produced_ > header_.size || (got == 0 && produced_ != header_.size))
            return kEngineItemDataDamaged;
        return kEngineOK;
    }

private:
    Result Unlock() {
        for (;;) {
            std::string password;
            if (Result r = request_.passwords ? request_.passwords->Next(0, password)
                                              : kEnginePasswordNeeded)
                return r;
            cipher::DerivedKey key;
            if (!cipher::DeriveKey(password, header_.key, key)) return kEngineOutOfMemory;
            if (!key.Matches(header_.check)) continue;
            request_.passwords->Accepted();
            cipher_ = std::make_unique<cipher::BlockCipher>(header_.aead, key);
            decoder_.reset(ZSTD_createDCtx());
            if (!decoder_) return kEngineOutOfMemory;
            return kEngineOK;
        }
    }

    Result NextChunk() {
        Bytes word(4);
        if (Result r = ReadExactly(fd_->get(), word.data(), word.size())) return r;
        std::uint32_t length = sniff::Le32(word, 0);
        bool last = (length & kLastChunk) != 0;
        length &= ~kLastChunk;
        if (length < cipher::kTagSize || length - cipher::kTagSize > header_.chunkSize)
            return kEngineItemDataDamaged;
        Bytes sealed(length);
        if (Result r = ReadExactly(fd_->get(), sealed.data(), sealed.size())) return r;
        auto associated = header_.Associated(last);
        if (!cipher_->Open(chunkIndex_++, sealed, associated, plain_))
            return kEngineItemDataDamaged;
        if (last) {
            // Nothing may follow the last chunk.
            std::uint8_t extra = 0;
            if (read(fd_->get(), &extra, 1) != 0) return kEngineItemDataDamaged;
            ended_ = true;
        }
        input_ = {plain_.data(), plain_.size(), 0};
        if (request_.operation)
            if (Result stop = request_.operation->Work(sealed.size())) return stop;
        return kEngineOK;
    }

    std::unique_ptr<UniqueFd> fd_;
    Header header_;
    std::uint64_t fileSize_;
    ReadRequest request_;
    bool listed_ = false;
    std::unique_ptr<cipher::BlockCipher> cipher_;
    std::unique_ptr<ZSTD_DCtx, ZstdFree> decoder_;
    Bytes plain_;
    ZSTD_inBuffer input_{nullptr, 0, 0};
    std::uint64_t chunkIndex_ = 0;
    std::uint64_t produced_ = 0;
    bool ended_ = false;
};

// Writes the compressed stream as sealed chunks of at most the chunk size;
// the last one is flagged (it may be empty).
class ChunkWriter {
public:
    ChunkWriter(int fd, const Header &header, const cipher::BlockCipher &cipher)
        : fd_(fd), header_(header), cipher_(cipher) {
        pending_.reserve(header.chunkSize);
    }
    Result Add(const std::uint8_t *data, std::size_t size) {
        while (size > 0) {
            std::size_t take = std::min<std::size_t>(size, header_.chunkSize - pending_.size());
            pending_.insert(pending_.end(), data, data + take);
            data += take;
            size -= take;
            if (pending_.size() == header_.chunkSize)
                if (Result r = Flush(false)) return r;
        }
        return kEngineOK;
    }
    Result Finish() { return Flush(true); }

private:
    Result Flush(bool last) {
        auto associated = header_.Associated(last);
        if (!cipher_.Seal(index_++, pending_, associated, sealed_)) return kEngineEncryptFailed;
        Bytes word(4);
        Put32(word, 0, static_cast<std::uint32_t>(sealed_.size()) | (last ? kLastChunk : 0));
        if (Result r = WriteAll(fd_, word.data(), word.size())) return r;
        if (Result r = WriteAll(fd_, sealed_.data(), sealed_.size())) return r;
        pending_.clear();
        return kEngineOK;
    }
    int fd_;
    const Header &header_;
    const cipher::BlockCipher &cipher_;
    Bytes pending_, sealed_;
    std::uint64_t index_ = 0;
};

std::string LastComponent(const std::wstring &path) {
    std::size_t slash = path.find_last_of(L'/');
    return platform::ToUtf8(slash == std::wstring::npos ? path : path.substr(slash + 1));
}

Result Compress(DataSource &data, ZSTD_CCtx *encoder, ChunkWriter &chunks, Operation *operation,
                std::uint64_t &total) {
    Bytes in(kChunk), out(ZSTD_CStreamOutSize());
    for (;;) {
        std::size_t got = 0;
        if (Result r = data.Read(in.data(), in.size(), got)) return r;
        ZSTD_EndDirective mode = got == 0 ? ZSTD_e_end : ZSTD_e_continue;
        ZSTD_inBuffer input{in.data(), got, 0};
        std::size_t remaining = 0;
        do {
            ZSTD_outBuffer output{out.data(), out.size(), 0};
            remaining = ZSTD_compressStream2(encoder, &output, &input, mode);
            if (ZSTD_isError(remaining)) return kEngineWriteFailed;
            if (Result r = chunks.Add(out.data(), output.pos)) return r;
        } while (mode == ZSTD_e_end ? remaining != 0 : input.pos < input.size);
        if (got == 0) return kEngineOK;
        total += got;
        if (operation) {
            operation->AddWritten(got);
            if (Result stop = operation->Work(got)) return stop;
            if (Result stop = operation->Counters()) return stop;
        }
    }
}

class PrivateFile final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"pf"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        if (HasMagic(input.Head(sizeof kMagic))) return "pf";
        return std::nullopt;
    }

    bool SingleItem(std::string_view) const override { return true; }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        auto fd = std::make_unique<UniqueFd>(open(request.path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!fd->valid()) return LastErrno();
        struct stat info {};
        if (fstat(fd->get(), &info) != 0) return LastErrno();
        Header header;
        if (Result r = ReadHeader(fd->get(), header)) return r;
        cursor = std::make_unique<PrivateFileCursor>(
            std::move(fd), std::move(header), static_cast<std::uint64_t>(info.st_size), request);
        return kEngineOK;
    }

    bool CanWrite(std::string_view) const override { return true; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        if (request.password.empty()) return kEnginePasswordNeeded;
        WriteItem item;
        if (Result r = feed.Next(item)) return r == kEngineNoMoreObjects ? kEngineArchiveEmpty : r;
        if (item.info.folder || item.info.symlink || !item.data) return kEngineItemKindUnsupported;

        Header header;
        header.key = cipher::KeyParameters::Fresh();
        cipher::DerivedKey key;
        if (!cipher::DeriveKey(request.password, header.key, key)) return kEngineEncryptFailed;
        header.check = key.check;
        header.size = item.info.size;
        header.modified = item.info.modified.value_or(0);
        header.mode = item.info.mode;
        header.name = LastComponent(item.info.path);
        if (header.name.size() > kMostName) return kEngineNameTooLong;
        header.Serialise();
        cipher::BlockCipher sealer(header.aead, key);

        UniqueFd fd(open(request.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        if (!fd.valid()) return LastErrno();
        if (Result r = WriteAll(fd.get(), header.bytes.data(), header.bytes.size())) return r;

        std::unique_ptr<ZSTD_CCtx, ZstdFree> encoder(ZSTD_createCCtx());
        if (!encoder) return kEngineOutOfMemory;
        ZSTD_CCtx_setParameter(encoder.get(), ZSTD_c_compressionLevel,
                               item.storeOnly ? 1 : kZstdLevel);
        ZSTD_CCtx_setParameter(encoder.get(), ZSTD_c_checksumFlag, 1);
        ChunkWriter chunks(fd.get(), header, sealer);
        std::uint64_t total = 0;
        if (Result r = Compress(*item.data, encoder.get(), chunks, request.operation, total))
            return r;
        // The size is in every chunk's associated data: a file that changed
        // while it was read cannot be stored truthfully.
        if (total != header.size) return kEngineFileReadFailed;
        if (Result r = chunks.Finish()) return r;

        WriteItem extra;
        Result more = feed.Next(extra);
        if (more == kEngineOK) return kEngineTooManyItems;
        return more == kEngineNoMoreObjects ? kEngineOK : more;
    }
};

}  // namespace

const Driver &PrivateFileDriver() {
    static const PrivateFile driver;
    return driver;
}

}  // namespace engine
