#include "SevenZipReader.h"

#include <archive.h>
#include <fcntl.h>
#include <lzma.h>
#include <openssl/evp.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <optional>

#include "ByteOrder.h"
#include "Handles.h"
#include "LibarchiveCoderDecoder.h"
#include "Operation.h"
#include "SevenZipFormat.h"
#include "SevenZipStage.h"
#include "platform/WideText.h"

namespace engine {
namespace {

// Limits on what a catalogue may claim, checked before anything is
// allocated for it.
constexpr std::uint64_t kMaxCatalogue = 256ULL << 20;
constexpr std::uint64_t kMaxCount = 1ULL << 24;
constexpr std::size_t kChunk = 64 * 1024;
using namespace sevenzip;

// Reads the catalogue's fields; any read past the end marks it damaged and
// yields zeros from then on.
class Fields {
public:
    Fields(const std::uint8_t *data, std::size_t size) : data_(data), size_(size) {}
    bool ok() const { return ok_; }
    bool Fail() { return ok_ = false; }

    std::uint8_t Byte() {
        if (pos_ >= size_) {
            Fail();
            return 0;
        }
        return data_[pos_++];
    }
    std::uint32_t U32() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value |= static_cast<std::uint32_t>(Byte()) << (8 * i);
        return value;
    }
    std::uint64_t U64() {
        std::uint64_t value = 0;
        for (int i = 0; i < 8; ++i) value |= static_cast<std::uint64_t>(Byte()) << (8 * i);
        return value;
    }
    // 7z's variable-length number: the leading one bits of the first byte
    // say how many bytes follow.
    std::uint64_t Number() {
        std::uint8_t first = Byte();
        std::uint8_t mask = 0x80;
        std::uint64_t value = 0;
        for (int i = 0; i < 8; ++i) {
            if ((first & mask) == 0) {
                std::uint64_t high = first & (mask - 1u);
                return value | (high << (8 * i));
            }
            value |= static_cast<std::uint64_t>(Byte()) << (8 * i);
            mask >>= 1;
        }
        return value;
    }
    std::uint64_t Count() {
        std::uint64_t count = Number();
        if (count > kMaxCount) Fail();
        return ok_ ? count : 0;
    }
    void Skip(std::uint64_t count) {
        if (count > size_ - pos_) {
            Fail();
            pos_ = size_;
        } else {
            pos_ += static_cast<std::size_t>(count);
        }
    }
    std::vector<std::uint8_t> Take(std::uint64_t count) {
        if (count > size_ - pos_) {
            Fail();
            return {};
        }
        std::vector<std::uint8_t> bytes(data_ + pos_, data_ + pos_ + count);
        pos_ += static_cast<std::size_t>(count);
        return bytes;
    }
    std::vector<bool> Bits(std::uint64_t count) {
        std::vector<bool> bits(static_cast<std::size_t>(count));
        std::uint8_t byte = 0, mask = 0;
        for (auto &&bit : bits) {
            if (mask == 0) {
                byte = Byte();
                mask = 0x80;
            }
            bit = (byte & mask) != 0;
            mask >>= 1;
        }
        return bits;
    }
    std::vector<bool> Defined(std::uint64_t count) {
        if (Byte() != 0) return std::vector<bool>(static_cast<std::size_t>(count), true);
        return Bits(count);
    }
    std::vector<std::optional<std::uint32_t>> Digests(std::uint64_t count) {
        std::vector<bool> defined = Defined(count);
        std::vector<std::optional<std::uint32_t>> digests(defined.size());
        for (std::size_t i = 0; i < defined.size() && ok_; ++i)
            if (defined[i]) digests[i] = U32();
        return digests;
    }
    void Expect(std::uint8_t property) {
        if (Byte() != property) Fail();
    }

private:
    const std::uint8_t *data_;
    std::size_t size_;
    std::size_t pos_ = 0;
    bool ok_ = true;
};

struct Coder {
    std::vector<std::uint8_t> id;
    std::uint64_t inStreams = 1, outStreams = 1;
    std::vector<std::uint8_t> properties;
};

struct Folder {
    std::vector<Coder> coders;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> bindPairs;  // in stream <- out stream
    std::vector<std::uint64_t> packedStreams;
    std::vector<std::uint64_t> unpackSizes;  // one per out stream
    std::optional<std::uint32_t> crc;
    std::uint64_t packOffset = 0;  // in the file
    std::uint64_t packSize = 0;
    // Where each of packedStreams lies in the file, and how long it is.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> packs;
    std::uint64_t substreams = 1;

    std::size_t MainCoder() const {
        for (std::size_t i = 0; i < coders.size(); ++i)
            if (std::none_of(bindPairs.begin(), bindPairs.end(),
                             [&](const auto &p) { return p.second == i; }))
                return i;
        return 0;
    }
    std::uint64_t UnpackSize() const {
        std::size_t main = MainCoder();
        return main < unpackSizes.size() ? unpackSizes[main] : 0;
    }
};

bool IsId(const Coder &coder, std::initializer_list<std::uint8_t> id) {
    return std::equal(coder.id.begin(), coder.id.end(), id.begin(), id.end());
}
bool IsAes(const Coder &coder) { return IsId(coder, {0x06, 0xF1, 0x07, 0x01}); }

bool Encrypted(const Folder &folder) {
    return std::any_of(folder.coders.begin(), folder.coders.end(), IsAes);
}

// The liblzma filter of a 7z coder id, or 0 for none.
lzma_vli LzmaFilterOf(const Coder &coder) {
    const auto &id = coder.id;
    if (id.size() == 1 && id[0] == 0x21) return LZMA_FILTER_LZMA2;
    if (id.size() == 1 && id[0] == 0x03) return LZMA_FILTER_DELTA;
    if (id.size() == 1 && id[0] == 0x0A) return LZMA_FILTER_ARM64;
    if (id.size() == 3 && id[0] == 0x03 && id[1] == 0x01 && id[2] == 0x01) return LZMA_FILTER_LZMA1;
    if (id.size() == 4 && id[0] == 0x03 && id[1] == 0x03) {
        std::uint16_t branch = static_cast<std::uint16_t>((id[2] << 8) | id[3]);
        switch (branch) {
            case 0x0103:
                return LZMA_FILTER_X86;
            case 0x0205:
                return LZMA_FILTER_POWERPC;
            case 0x0401:
                return LZMA_FILTER_IA64;
            case 0x0501:
                return LZMA_FILTER_ARM;
            case 0x0701:
                return LZMA_FILTER_ARMTHUMB;
            case 0x0805:
                return LZMA_FILTER_SPARC;
            default:
                return 0;
        }
    }
    return 0;
}

bool IsCopy(const Coder &coder) { return IsId(coder, {0x00}); }
bool IsBcj2(const Coder &coder) { return IsId(coder, {0x03, 0x03, 0x01, 0x1B}); }
bool IsBzip2(const Coder &coder) { return IsId(coder, {0x04, 0x02, 0x02}); }
bool IsDeflate(const Coder &coder) { return IsId(coder, {0x04, 0x01, 0x08}); }
bool IsDeflate64(const Coder &coder) { return IsId(coder, {0x04, 0x01, 0x09}); }
bool IsPpmd(const Coder &coder) { return IsId(coder, {0x03, 0x04, 0x01}); }
// The group width of a byte swap filter, 0 for another coder.
std::size_t SwapWidth(const Coder &coder) {
    return IsId(coder, {0x02, 0x03, 0x02}) ? 2 : IsId(coder, {0x02, 0x03, 0x04}) ? 4 : 0;
}

bool EndsLzmaChain(const Coder &coder) {
    lzma_vli filter = LzmaFilterOf(coder);
    return filter == LZMA_FILTER_LZMA1 || filter == LZMA_FILTER_LZMA2;
}

// Every coder of the folder is one this reader takes, with the streams it
// should have: BCJ2 four in, the others one; each one out.
bool Decodable(const Folder &folder) {
    if (folder.packedStreams.empty()) return false;
    return std::all_of(folder.coders.begin(), folder.coders.end(), [](const Coder &coder) {
        if (coder.outStreams != 1) return false;
        if (IsBcj2(coder)) return coder.inStreams == 4;
        return coder.inStreams == 1 &&
               (IsAes(coder) || IsCopy(coder) || LzmaFilterOf(coder) != 0 || IsBzip2(coder) ||
                IsDeflate(coder) || IsDeflate64(coder) || IsPpmd(coder) || SwapWidth(coder));
    });
}

// The first in stream of each coder (the numbering runs over the coders).
std::size_t FirstInStream(const Folder &folder, std::size_t coder) {
    std::size_t first = 0;
    for (std::size_t i = 0; i < coder; ++i)
        first += static_cast<std::size_t>(folder.coders[i].inStreams);
    return first;
}

struct Streams {
    std::uint64_t packPos = 0;
    std::vector<std::uint64_t> packSizes;
    std::vector<Folder> folders;
    std::vector<std::uint64_t> sizes;  // of each item stream, folder by folder
    std::vector<std::optional<std::uint32_t>> crcs;
};

bool ReadFolder(Fields &f, Folder &folder) {
    std::uint64_t coders = f.Count();
    if (coders == 0 || coders > 64) return f.Fail();
    std::uint64_t totalIn = 0, totalOut = 0;
    for (std::uint64_t i = 0; i < coders && f.ok(); ++i) {
        Coder coder;
        std::uint8_t main = f.Byte();
        if (main & 0xC0) return f.Fail();  // alternative methods: never written
        coder.id = f.Take(main & 0x0F);
        if (main & 0x10) {
            coder.inStreams = f.Count();
            coder.outStreams = f.Count();
            if (coder.inStreams > 64 || coder.outStreams > 64) return f.Fail();
        }
        if (main & 0x20) coder.properties = f.Take(f.Count());
        totalIn += coder.inStreams;
        totalOut += coder.outStreams;
        folder.coders.push_back(std::move(coder));
    }
    if (totalOut == 0 || totalIn < totalOut - 1) return f.Fail();
    for (std::uint64_t i = 0; i + 1 < totalOut && f.ok(); ++i) {
        std::uint64_t in = f.Number(), out = f.Number();
        if (in >= totalIn || out >= totalOut) return f.Fail();
        folder.bindPairs.emplace_back(in, out);
    }
    std::uint64_t packed = totalIn - (totalOut - 1);
    if (packed == 1) {
        for (std::uint64_t i = 0; i < totalIn; ++i)
            if (std::none_of(folder.bindPairs.begin(), folder.bindPairs.end(),
                             [&](const auto &p) { return p.first == i; })) {
                folder.packedStreams.push_back(i);
                break;
            }
    } else {
        for (std::uint64_t i = 0; i < packed && f.ok(); ++i)
            folder.packedStreams.push_back(f.Number());
    }
    folder.unpackSizes.resize(static_cast<std::size_t>(totalOut));
    return f.ok();
}

bool ReadStreams(Fields &f, Streams &streams, std::uint64_t fileSize) {
    for (;;) {
        std::uint8_t property = f.Byte();
        if (!f.ok()) return false;
        if (property == kEnd) break;
        if (property == kPackInfo) {
            streams.packPos = f.Number();
            std::uint64_t count = f.Count();
            for (;;) {
                std::uint8_t id = f.Byte();
                if (!f.ok()) return false;
                if (id == kEnd) break;
                if (id == kSize) {
                    for (std::uint64_t i = 0; i < count; ++i)
                        streams.packSizes.push_back(f.Number());
                } else if (id == kCRC) {
                    f.Digests(count);
                } else {
                    return f.Fail();
                }
            }
            if (streams.packSizes.size() != count) return f.Fail();
        } else if (property == kUnPackInfo) {
            f.Expect(kFolder);
            std::uint64_t count = f.Count();
            if (f.Byte() != 0) return f.Fail();  // folders kept elsewhere: never written
            streams.folders.resize(static_cast<std::size_t>(count));
            for (auto &folder : streams.folders)
                if (!ReadFolder(f, folder)) return false;
            f.Expect(kCodersUnPackSize);
            for (auto &folder : streams.folders)
                for (auto &size : folder.unpackSizes) size = f.Number();
            for (;;) {
                std::uint8_t id = f.Byte();
                if (!f.ok()) return false;
                if (id == kEnd) break;
                if (id != kCRC) return f.Fail();
                auto digests = f.Digests(count);
                for (std::size_t i = 0; i < digests.size(); ++i)
                    streams.folders[i].crc = digests[i];
            }
        } else if (property == kSubStreamsInfo) {
            std::uint8_t id = f.Byte();
            if (id == kNumUnPackStream) {
                for (auto &folder : streams.folders) folder.substreams = f.Count();
                id = f.Byte();
            }
            bool sizesGiven = id == kSize;
            for (const auto &folder : streams.folders) {
                std::uint64_t sum = 0;
                for (std::uint64_t i = 0; i + 1 < folder.substreams && sizesGiven; ++i) {
                    std::uint64_t size = f.Number();
                    streams.sizes.push_back(size);
                    sum += size;
                }
                if (folder.substreams == 0) continue;
                if (!sizesGiven && folder.substreams != 1) return f.Fail();
                if (sum > folder.UnpackSize()) return f.Fail();
                streams.sizes.push_back(folder.UnpackSize() - sum);
            }
            if (sizesGiven) id = f.Byte();
            std::uint64_t unknown = 0;
            for (const auto &folder : streams.folders)
                if (folder.substreams != 1 || !folder.crc) unknown += folder.substreams;
            while (f.ok() && id != kEnd) {
                if (id != kCRC) return f.Fail();
                auto digests = f.Digests(unknown);
                std::size_t next = 0;
                for (const auto &folder : streams.folders) {
                    if (folder.substreams == 1 && folder.crc) {
                        streams.crcs.push_back(folder.crc);
                    } else {
                        for (std::uint64_t i = 0; i < folder.substreams && next < digests.size();
                             ++i)
                            streams.crcs.push_back(digests[next++]);
                    }
                }
                id = f.Byte();
            }
        } else {
            return f.Fail();
        }
    }
    if (streams.sizes.empty()) {
        for (const auto &folder : streams.folders) streams.sizes.push_back(folder.UnpackSize());
    }
    if (streams.crcs.empty()) {
        for (const auto &folder : streams.folders)
            for (std::uint64_t i = 0; i < folder.substreams; ++i)
                streams.crcs.push_back(folder.substreams == 1 ? folder.crc : std::nullopt);
    }
    // Where each folder's packed data lies, checked against the file.
    std::uint64_t offset = kSignatureHeaderSize + streams.packPos;
    std::size_t pack = 0;
    for (auto &folder : streams.folders) {
        if (pack + folder.packedStreams.size() > streams.packSizes.size()) return f.Fail();
        folder.packOffset = offset;
        folder.packSize = 0;
        folder.packs.clear();
        for (std::size_t i = 0; i < folder.packedStreams.size(); ++i) {
            folder.packs.emplace_back(offset, streams.packSizes[pack]);
            folder.packSize += streams.packSizes[pack];
            offset += streams.packSizes[pack++];
        }
        if (offset > fileSize || offset < folder.packOffset) return f.Fail();
    }
    return f.ok();
}

// ---------------------------------------------------------------------------
// Decoding a folder: the stages of SevenZipStage.h, and those that need a
// coder's record.

class LzmaStage final : public Stage {
public:
    LzmaStage(std::unique_ptr<Stage> input, std::uint64_t limit)
        : input_(std::move(input)), limit_(limit) {}
    ~LzmaStage() override {
        lzma_end(&stream_);
        for (auto &filter : filters_) free(filter.options);
    }
    // Filters from the output side to the input side, as liblzma takes them.
    Result Start(const std::vector<const Coder *> &coders) {
        for (const Coder *coder : coders) {
            lzma_filter filter{LzmaFilterOf(*coder), nullptr};
            if (lzma_properties_decode(&filter, nullptr, coder->properties.data(),
                                       coder->properties.size()) != LZMA_OK)
                return kEngineMethodUnsupported;
            filters_.push_back(filter);
        }
        std::vector<lzma_filter> chain(filters_.begin(), filters_.end());
        chain.push_back({LZMA_VLI_UNKNOWN, nullptr});
        if (lzma_raw_decoder(&stream_, chain.data()) != LZMA_OK) return kEngineMethodUnsupported;
        input_buffer_.resize(kChunk);
        return kEngineOK;
    }
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = 0;
        std::size_t want =
            static_cast<std::size_t>(std::min<std::uint64_t>(size, limit_ - produced_));
        while (got < want) {
            if (stream_.avail_in == 0 && !inputEnded_) {
                std::size_t count = 0;
                if (Result result = input_->Read(input_buffer_.data(), input_buffer_.size(), count))
                    return result;
                inputEnded_ = count == 0;
                stream_.next_in = input_buffer_.data();
                stream_.avail_in = count;
            }
            stream_.next_out = out + got;
            stream_.avail_out = want - got;
            lzma_ret status = lzma_code(&stream_, LZMA_RUN);
            std::size_t made = (want - got) - stream_.avail_out;
            got += made;
            produced_ += made;
            if (status == LZMA_STREAM_END) break;
            if (status != LZMA_OK) return kEngineItemDataDamaged;
            if (made == 0 && inputEnded_ && stream_.avail_in == 0) return kEngineArchiveTruncated;
        }
        return kEngineOK;
    }

private:
    std::unique_ptr<Stage> input_;
    std::uint64_t limit_;
    std::uint64_t produced_ = 0;
    lzma_stream stream_ = LZMA_STREAM_INIT;
    std::vector<lzma_filter> filters_;
    std::vector<std::uint8_t> input_buffer_;
    bool inputEnded_ = false;
};

// LZMA2 with its smallest dictionary, for data framed as stored chunks.
const Coder kStoredLzma2 = {{0x21}, 1, 1, {0x00}};

// 7z's numbers: as many leading one bits in the first byte as bytes follow
// (little-endian), the first byte's other bits above them.
void PutNumber(std::vector<std::uint8_t> &out, std::uint64_t value) {
    int extra = 0;
    while (extra < 8 && value >= (std::uint64_t{1} << (7 * (extra + 1)))) ++extra;
    const std::uint8_t mask = static_cast<std::uint8_t>(0xFF00u >> extra);
    const std::uint64_t high = extra < 8 ? value >> (8 * extra) : 0;
    out.push_back(static_cast<std::uint8_t>(mask | high));
    for (int i = 0; i < extra; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::vector<std::uint8_t> OneItemCatalogue(std::uint64_t packedSize,
                                           const std::vector<std::uint8_t> &id,
                                           const std::vector<std::uint8_t> &properties,
                                           std::uint64_t size) {
    std::vector<std::uint8_t> c = {kHeader, kMainStreamsInfo, kPackInfo};
    PutNumber(c, 0);  // the packed bytes follow the signature header
    PutNumber(c, 1);
    c.push_back(kSize);
    PutNumber(c, packedSize);
    c.push_back(kEnd);
    c.insert(c.end(), {kUnPackInfo, kFolder});
    PutNumber(c, 1);
    c.push_back(0);   // the folder is here, not elsewhere
    PutNumber(c, 1);  // one coder, one stream in and out
    c.push_back(static_cast<std::uint8_t>(id.size() | (properties.empty() ? 0 : 0x20)));
    c.insert(c.end(), id.begin(), id.end());
    if (!properties.empty()) {
        PutNumber(c, properties.size());
        c.insert(c.end(), properties.begin(), properties.end());
    }
    c.push_back(kCodersUnPackSize);
    PutNumber(c, size);
    // One stream in the folder (libarchive wants the substreams said).
    c.insert(c.end(), {kEnd, kSubStreamsInfo, kEnd, kEnd});
    c.push_back(kFilesInfo);
    PutNumber(c, 1);
    c.push_back(kName);
    PutNumber(c, 1 + 4);
    c.insert(c.end(), {0, 'x', 0, 0, 0});  // not elsewhere; "x" in UTF-16LE
    c.insert(c.end(), {kEnd, kEnd});
    return c;
}

// A 7z archive of one item around a coder's packed stream, for libarchive:
// the signature header before it, a catalogue of one folder with that coder
// alone after it.
LibarchiveCoderDecoder::Envelope OneItemArchive(std::uint64_t packedSize, const Coder &coder,
                                                std::uint64_t size) {
    LibarchiveCoderDecoder::Envelope envelope;
    envelope.after = OneItemCatalogue(packedSize, coder.id, coder.properties, size);
    auto &head = envelope.before;
    head.assign(kSignature.begin(), kSignature.end());
    head.insert(head.end(), {0, 4});  // version 0.4
    Put32(head, 0);                   // its own CRC, below
    Put64(head, packedSize);          // the catalogue follows the stream
    Put64(head, envelope.after.size());
    Put32(head, static_cast<std::uint32_t>(
                    crc32(0, envelope.after.data(), static_cast<uInt>(envelope.after.size()))));
    const std::uint32_t own = static_cast<std::uint32_t>(crc32(0, head.data() + 12, 20));
    for (int i = 0; i < 4; ++i) head[8 + i] = static_cast<std::uint8_t>(own >> (8 * i));
    envelope.enable = archive_read_support_format_7zip;
    return envelope;
}

class LibarchiveCoderStage final : public Stage {
public:
    LibarchiveCoderStage(std::unique_ptr<Stage> input, std::uint64_t inputSize, const Coder &coder,
                         std::uint64_t size)
        : input_(std::move(input)),
          decoder_([this](std::uint8_t *buffer, std::size_t size,
                          std::size_t &got) { return input_->Read(buffer, size, got); },
                   inputSize, OneItemArchive(inputSize, coder, size)) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        return decoder_.Read(out, size, got);
    }

private:
    std::unique_ptr<Stage> input_;
    LibarchiveCoderDecoder decoder_;
};

// The AES key of a password: SHA-256 over salt, UTF-16LE password and a
// counter, 2^power times.
bool StretchKey(unsigned power, const std::vector<std::uint8_t> &salt, const std::wstring &password,
                std::uint8_t key[32]) {
    std::vector<BYTE> text = platform::ToUtf16Bytes(password);
    std::vector<std::uint8_t> round(salt.begin(), salt.end());
    round.insert(round.end(), text.begin(), text.end());
    if (power == 0x3F) {
        std::memset(key, 0, 32);
        if (!round.empty()) std::memcpy(key, round.data(), std::min<std::size_t>(32, round.size()));
        return true;
    }
    // 7-Zip writes 19 and reads up to 24; more would let an archive keep
    // the reader busy for hours.
    if (power > 24) return false;
    std::size_t counterAt = round.size();
    round.resize(round.size() + 8, 0);
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest(EVP_MD_CTX_new(),
                                                                   EVP_MD_CTX_free);
    if (!digest) return false;
    EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr);
    for (std::uint64_t i = 0; i < (std::uint64_t{1} << power); ++i) {
        for (int b = 0; b < 8; ++b) round[counterAt + b] = static_cast<std::uint8_t>(i >> (8 * b));
        EVP_DigestUpdate(digest.get(), round.data(), round.size());
    }
    unsigned length = 0;
    EVP_DigestFinal_ex(digest.get(), key, &length);
    return length == 32;
}

using KeyCache = std::map<std::vector<std::uint8_t>, std::array<std::uint8_t, 32>>;

// The key and IV of an AES coder. The stretching is slow on purpose, and a
// folder with four packed streams has four coders with one salt: `keys`
// keeps what one password made, by strength and salt.
bool DeriveKey(const Coder &aes, const std::wstring &password, KeyCache &keys, std::uint8_t key[32],
               std::uint8_t iv[16]) {
    const auto &p = aes.properties;
    std::memset(iv, 0, 16);
    if (p.empty()) return false;
    unsigned power = p[0] & 0x3F;
    std::size_t saltSize = 0, ivSize = 0;
    if (p[0] & 0xC0) {
        if (p.size() < 2) return false;
        saltSize = ((p[0] >> 7) & 1) + (p[1] >> 4);
        ivSize = ((p[0] >> 6) & 1) + (p[1] & 0x0F);
        if (p.size() < 2 + saltSize + ivSize) return false;
    }
    std::vector<std::uint8_t> salt(p.begin() + (saltSize ? 2 : 0),
                                   p.begin() + (saltSize ? 2 + saltSize : 0));
    if (ivSize) std::memcpy(iv, p.data() + 2 + saltSize, ivSize);
    std::vector<std::uint8_t> which(salt);
    which.push_back(static_cast<std::uint8_t>(power));
    auto known = keys.find(which);
    if (known == keys.end()) {
        std::array<std::uint8_t, 32> made;
        if (!StretchKey(power, salt, password, made.data())) return false;
        known = keys.emplace(std::move(which), made).first;
    }
    std::memcpy(key, known->second.data(), 32);
    return true;
}

// Builds the stages behind one coder's output, walking from the folder's
// output towards its packed streams; AES keys are derived once per salt.
struct Builder {
    const Folder &folder;
    const std::wstring *password;
    int fd;
    KeyCache keys = {};
    std::size_t built = 0;

    Result Output(std::size_t coder, std::unique_ptr<Stage> &stage) {
        // Each coder is built once: more means the bindings run in a circle.
        if (coder >= folder.coders.size() || ++built > folder.coders.size())
            return kEngineCatalogueDamaged;
        const Coder &c = folder.coders[coder];
        const std::uint64_t size =
            coder < folder.unpackSizes.size() ? folder.unpackSizes[coder] : 0;
        const std::size_t in = FirstInStream(folder, coder);
        if (IsBcj2(c)) return Bcj2(in, size, stage);
        if (LzmaFilterOf(c) != 0) return Lzma(coder, size, stage);
        std::unique_ptr<Stage> input;
        if (Result result = Input(in, input)) return result;
        if (IsAes(c)) {
            if (Result result = Aes(c, std::move(input), stage)) return result;
        } else if (IsBzip2(c)) {
            stage = std::make_unique<BzipStage>(std::move(input));
        } else if (IsDeflate(c)) {
            stage = std::make_unique<InflateStage>(std::move(input));
        } else if (IsDeflate64(c)) {
            stage = std::make_unique<Deflate64Stage>(std::move(input));
        } else if (IsPpmd(c)) {
            stage =
                std::make_unique<LibarchiveCoderStage>(std::move(input), InputSize(in), c, size);
        } else if (std::size_t width = SwapWidth(c)) {
            stage = std::make_unique<SwapStage>(std::move(input), width);
        } else {
            stage = std::move(input);  // copy
        }
        // Ciphered data ends in padding; no coder gives more than its size.
        stage = std::make_unique<LimitStage>(std::move(stage), size);
        return kEngineOK;
    }

    // The coder whose output feeds in stream `in`, if one does.
    std::optional<std::size_t> Feeder(std::size_t in) const {
        auto bound = std::find_if(folder.bindPairs.begin(), folder.bindPairs.end(),
                                  [&](const auto &pair) { return pair.first == in; });
        if (bound == folder.bindPairs.end()) return std::nullopt;
        return static_cast<std::size_t>(bound->second);
    }
    // The packed stream that feeds in stream `in`, if one does.
    const std::pair<std::uint64_t, std::uint64_t> *Packed(std::size_t in) const {
        auto packed = std::find(folder.packedStreams.begin(), folder.packedStreams.end(), in);
        std::size_t index = static_cast<std::size_t>(packed - folder.packedStreams.begin());
        return index < folder.packs.size() ? &folder.packs[index] : nullptr;
    }

    // What feeds in stream `in`: another coder's output or a packed stream.
    Result Input(std::size_t in, std::unique_ptr<Stage> &stage) {
        if (std::optional<std::size_t> feeder = Feeder(in)) return Output(*feeder, stage);
        const auto *packed = Packed(in);
        if (!packed) return kEngineCatalogueDamaged;
        stage = std::make_unique<PackStage>(fd, packed->first, packed->second);
        return kEngineOK;
    }

    // How many bytes feed in stream `in`.
    std::uint64_t InputSize(std::size_t in) const {
        if (std::optional<std::size_t> feeder = Feeder(in))
            return *feeder < folder.unpackSizes.size() ? folder.unpackSizes[*feeder] : 0;
        const auto *packed = Packed(in);
        return packed ? packed->second : 0;
    }

    // liblzma takes a branch or delta filter only with LZMA behind it: the
    // coders down to the first LZMA go into one chain, and where none
    // follows, stored LZMA2 chunks stand in for it.
    Result Lzma(std::size_t coder, std::uint64_t size, std::unique_ptr<Stage> &stage) {
        std::vector<const Coder *> chain{&folder.coders[coder]};
        std::size_t last = coder;
        while (!EndsLzmaChain(folder.coders[last])) {
            std::optional<std::size_t> feeder = Feeder(FirstInStream(folder, last));
            if (!feeder || *feeder >= folder.coders.size() ||
                LzmaFilterOf(folder.coders[*feeder]) == 0)
                break;
            if (++built > folder.coders.size()) return kEngineCatalogueDamaged;
            last = *feeder;
            chain.push_back(&folder.coders[last]);
        }
        std::unique_ptr<Stage> input;
        if (Result result = Input(FirstInStream(folder, last), input)) return result;
        if (!EndsLzmaChain(*chain.back())) {
            // A filter behind another coder (7-Zip puts BCJ before bzip2 or
            // deflate): its input goes to liblzma as LZMA2's stored chunks.
            input = std::make_unique<StoredLzma2Stage>(std::move(input));
            chain.push_back(&kStoredLzma2);
        }
        auto decoder = std::make_unique<LzmaStage>(std::move(input), size);
        if (Result result = decoder->Start(chain)) return result;
        stage = std::move(decoder);
        return kEngineOK;
    }

    Result Bcj2(std::size_t in, std::uint64_t size, std::unique_ptr<Stage> &stage) {
        std::unique_ptr<Stage> inputs[4];
        for (std::size_t i = 0; i < 4; ++i)
            if (Result result = Input(in + i, inputs[i])) return result;
        stage = std::make_unique<Bcj2Stage>(inputs, size);
        return kEngineOK;
    }

    Result Aes(const Coder &coder, std::unique_ptr<Stage> input, std::unique_ptr<Stage> &stage) {
        if (!password) return kEnginePasswordNeeded;
        std::uint8_t key[32], iv[16];
        if (!DeriveKey(coder, *password, keys, key, iv)) return kEngineEncryptionUnsupported;
        stage = std::make_unique<AesStage>(std::move(input), key, iv);
        return kEngineOK;
    }
};

struct Item {
    std::wstring name;
    bool hasStream = true;
    bool folder = false;
    std::optional<EngineDateTime> modified;
    std::optional<std::uint32_t> attributes;
    std::uint64_t size = 0;
    std::optional<std::uint32_t> crc;
    std::size_t folderIndex = 0;
    std::uint64_t offset = 0;  // in the folder's output
};

class SevenZipCursor final : public ReadCursor {
public:
    explicit SevenZipCursor(const ReadRequest &request) : request_(request) {}
    ~SevenZipCursor() override {
        if (fd_ >= 0) close(fd_);
    }

    Result Open() {
        fd_ = open(request_.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0) return LastErrno();
        off_t end = lseek(fd_, 0, SEEK_END);
        if (end < 0) return LastErrno();
        fileSize_ = static_cast<std::uint64_t>(end);
        std::uint8_t start[kSignatureHeaderSize];
        if (pread(fd_, start, sizeof start, 0) != static_cast<ssize_t>(sizeof start))
            return kEngineCatalogueDamaged;
        if (std::memcmp(start, kSignature.data(), kSignature.size()) != 0)
            return kEngineWrongFormat;
        Fields header(start + 12, 20);
        std::uint64_t offset = header.U64(), size = header.U64();
        std::uint32_t crc = header.U32();
        if (size == 0) return kEngineOK;  // an archive of no items
        if (size > kMaxCatalogue || offset > fileSize_ ||
            size > fileSize_ - kSignatureHeaderSize - offset)
            return kEngineArchiveTruncated;
        std::vector<std::uint8_t> catalogue(static_cast<std::size_t>(size));
        if (pread(fd_, catalogue.data(), catalogue.size(),
                  static_cast<off_t>(kSignatureHeaderSize + offset)) !=
            static_cast<ssize_t>(catalogue.size()))
            return kEngineArchiveTruncated;
        if (crc32(0, catalogue.data(), static_cast<uInt>(catalogue.size())) != crc)
            return kEngineCatalogueDamaged;
        // A packed catalogue is a folder of its own, perhaps enciphered.
        for (int depth = 0; depth < 4 && !catalogue.empty() && catalogue[0] == kEncodedHeader;
             ++depth) {
            Fields f(catalogue.data() + 1, catalogue.size() - 1);
            Streams streams;
            if (!ReadStreams(f, streams, fileSize_) || streams.folders.empty())
                return kEngineCatalogueDamaged;
            const Folder &packed = streams.folders[0];
            anyEncrypted_ = anyEncrypted_ || Encrypted(packed);
            std::uint64_t unpacked = packed.UnpackSize();
            if (unpacked > kMaxCatalogue) return kEngineCatalogueDamaged;
            std::vector<std::uint8_t> plain(static_cast<std::size_t>(unpacked));
            if (Result result = DecodeWhole(packed, kNoIndex, plain)) return result;
            catalogue = std::move(plain);
        }
        if (catalogue.empty() || catalogue[0] != kHeader) return kEngineCatalogueDamaged;
        return ReadHeader(catalogue);
    }

    Result Next(ItemInfo &info) override {
        if (request_.operation && request_.operation->Cancelled()) return kEngineCancelled;
        if (current_ != kNoIndex && current_ + 1 >= items_.size()) return kEngineNoMoreObjects;
        current_ = current_ == kNoIndex ? 0 : current_ + 1;
        if (items_.empty()) return kEngineNoMoreObjects;
        const Item &item = items_[current_];
        info = ItemInfo();
        info.path = CleanItemPath(item.name);
        info.rawPath = Utf8(item.name);
        info.folder = item.folder;
        info.size = item.size;
        info.modified = item.modified;
        if (item.attributes && (*item.attributes & 0x8000))
            info.mode = (*item.attributes >> 16) & 07777;
        info.encrypted = item.hasStream && Encrypted(streams_.folders[item.folderIndex]);
        remaining_ = item.hasStream ? item.size : 0;
        running_ = 0;
        positioned_ = false;
        return kEngineOK;
    }

    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        got = 0;
        if (current_ == kNoIndex || current_ >= items_.size()) return kEngineOK;
        const Item &item = items_[current_];
        if (remaining_ == 0) return kEngineOK;
        if (!positioned_) {
            if (Result result = MoveTo(item)) return result;
            positioned_ = true;
        }
        std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(size, remaining_));
        if (Result result = FolderRead(static_cast<std::uint8_t *>(buffer), want, got))
            return result;
        if (got == 0) return kEngineArchiveTruncated;
        remaining_ -= got;
        running_ = crc32(running_, static_cast<const Bytef *>(buffer), static_cast<uInt>(got));
        if (remaining_ == 0 && item.crc && running_ != *item.crc) return kEngineItemDataDamaged;
        return kEngineOK;
    }

private:
    Result ReadHeader(const std::vector<std::uint8_t> &catalogue) {
        Fields f(catalogue.data() + 1, catalogue.size() - 1);
        std::uint8_t property = f.Byte();
        if (property == kArchiveProperties) {
            for (std::uint8_t kind = f.Byte(); f.ok() && kind != kEnd; kind = f.Byte())
                f.Skip(f.Number());
            property = f.Byte();
        }
        if (property == kAdditionalStreamsInfo) {
            Streams ignored;
            if (!ReadStreams(f, ignored, fileSize_)) return kEngineCatalogueDamaged;
            property = f.Byte();
        }
        if (property == kMainStreamsInfo) {
            if (!ReadStreams(f, streams_, fileSize_)) return kEngineCatalogueDamaged;
            property = f.Byte();
        }
        if (property == kFilesInfo) {
            if (!ReadFiles(f)) return kEngineCatalogueDamaged;
            property = f.Byte();
        }
        if (!f.ok() || property != kEnd) return kEngineCatalogueDamaged;
        for (const auto &folder : streams_.folders) {
            anyEncrypted_ = anyEncrypted_ || Encrypted(folder);
            if (!Decodable(folder)) unsupported_ = true;
        }
        return PlaceItems();
    }

    bool ReadFiles(Fields &f) {
        std::uint64_t count = f.Count();
        std::vector<Item> items(static_cast<std::size_t>(count));
        std::vector<bool> emptyStream(items.size(), false), emptyFile, anti;
        std::size_t empties = 0;
        for (;;) {
            std::uint8_t type = f.Byte();
            if (!f.ok()) return false;
            if (type == kEnd) break;
            std::uint64_t size = f.Number();
            if (type == kEmptyStream) {
                emptyStream = f.Bits(count);
                empties = static_cast<std::size_t>(
                    std::count(emptyStream.begin(), emptyStream.end(), true));
            } else if (type == kEmptyFile) {
                emptyFile = f.Bits(empties);
            } else if (type == kAnti) {
                anti = f.Bits(empties);
            } else if (type == kName) {
                if (f.Byte() != 0) return false;
                std::vector<std::uint8_t> names = f.Take(size - 1);
                std::size_t at = 0;
                for (auto &item : items) {
                    std::size_t start = at;
                    while (at + 1 < names.size() && (names[at] || names[at + 1])) at += 2;
                    if (at + 1 >= names.size()) return false;
                    item.name = platform::FromUtf16Bytes(names.data() + start, at - start);
                    at += 2;
                }
            } else if (type == kMTime || type == kWinAttributes) {
                std::vector<bool> defined = f.Defined(count);
                if (f.Byte() != 0) return false;
                for (std::size_t i = 0; i < items.size() && f.ok(); ++i) {
                    if (!defined[i]) continue;
                    if (type == kMTime)
                        items[i].modified = f.U64();
                    else
                        items[i].attributes = f.U32();
                }
            } else {
                f.Skip(size);
            }
            if (!f.ok()) return false;
        }
        std::size_t empty = 0;
        for (std::size_t i = 0; i < items.size(); ++i) {
            Item &item = items[i];
            item.hasStream = !emptyStream[i];
            if (!item.hasStream) {
                bool isFile = empty < emptyFile.size() && emptyFile[empty];
                bool isAnti = empty < anti.size() && anti[empty];
                ++empty;
                if (isAnti) continue;  // a deletion marker of an update, nothing to show
                item.folder = !isFile;
            }
            if (item.attributes && (*item.attributes & 0x10)) item.folder = true;
            items_.push_back(std::move(item));
        }
        return true;
    }

    Result PlaceItems() {
        std::size_t folder = 0, stream = 0;
        std::uint64_t inFolder = 0, offset = 0;
        for (auto &item : items_) {
            if (!item.hasStream) continue;
            while (folder < streams_.folders.size() &&
                   inFolder >= streams_.folders[folder].substreams) {
                ++folder;
                inFolder = 0;
                offset = 0;
            }
            if (folder >= streams_.folders.size() || stream >= streams_.sizes.size())
                return kEngineCatalogueDamaged;
            item.folderIndex = folder;
            item.offset = offset;
            item.size = streams_.sizes[stream];
            item.crc = stream < streams_.crcs.size() ? streams_.crcs[stream] : std::nullopt;
            offset += item.size;
            ++inFolder;
            ++stream;
        }
        if (unsupported_ && !anyEncrypted_) return kEngineMethodUnsupported;
        return kEngineOK;
    }

    // Builds the decoding stages of a folder, from its packed streams to its
    // output, with a key or without one.
    Result Chain(const Folder &folder, const std::wstring *password,
                 std::unique_ptr<Stage> &stage) {
        if (!Decodable(folder)) return kEngineMethodUnsupported;
        Builder builder{folder, password, fd_};
        return builder.Output(folder.MainCoder(), stage);
    }

    // Opens a folder's chain, asking for passwords until the start of its
    // data decodes: a wrong key makes the decoder fail at once.
    Result OpenFolder(std::size_t index, std::size_t itemIndex) {
        const Folder &folder = streams_.folders[index];
        stage_.reset();
        probe_.clear();
        probeAt_ = 0;
        folderAt_ = 0;
        openFolder_ = kNoIndex;
        if (!Encrypted(folder)) {
            if (Result result = Chain(folder, nullptr, stage_)) return result;
            openFolder_ = index;
            return kEngineOK;
        }
        if (!request_.passwords) return kEnginePasswordNeeded;
        for (;;) {
            std::string candidate;
            if (Result result = request_.passwords->Next(itemIndex, candidate)) return result;
            std::wstring password = Wide(candidate);
            std::unique_ptr<Stage> stage;
            if (Result result = Chain(folder, &password, stage)) return result;
            std::vector<std::uint8_t> probe(static_cast<std::size_t>(ProbeSize(folder, index)));
            std::size_t filled = 0;
            Result result = kEngineOK;
            while (filled < probe.size() && result == kEngineOK) {
                std::size_t got = 0;
                result = stage->Read(probe.data() + filled, probe.size() - filled, got);
                if (got == 0) break;
                filled += got;
            }
            bool whole = filled == folder.UnpackSize();
            bool fits = result == kEngineOK && (filled == probe.size() || whole);
            if (fits && whole && folder.crc)
                fits = crc32(0, probe.data(), static_cast<uInt>(filled)) == *folder.crc;
            if (fits) fits = ItemsInProbeCheckOut(index, probe.data(), filled);
            if (!fits) continue;  // the next candidate, or the question again
            request_.passwords->Accepted();
            probe.resize(filled);
            probe_ = std::move(probe);
            stage_ = std::move(stage);
            openFolder_ = index;
            return kEngineOK;
        }
    }

    // How much of a ciphered folder is decoded before its key is taken as
    // right. LZMA, bzip2 and deflate fail at once on a wrong key; a stored
    // folder, and PPMd or a filter, which take any bytes, only show it in an
    // item's check value, so the probe reaches the end of its first item (up
    // to a limit).
    std::uint64_t ProbeSize(const Folder &folder, std::size_t index) const {
        bool failsAtOnce =
            std::any_of(folder.coders.begin(), folder.coders.end(), [](const Coder &coder) {
                return EndsLzmaChain(coder) || IsBzip2(coder) || IsDeflate(coder) ||
                       IsDeflate64(coder);
            });
        std::uint64_t size = kChunk;
        if (!failsAtOnce) {
            for (const auto &item : items_) {
                if (!item.hasStream || item.folderIndex != index || !item.crc) continue;
                size = std::max<std::uint64_t>(
                    size, std::min<std::uint64_t>(item.offset + item.size, 16u << 20));
                break;
            }
        }
        return std::min(size, folder.UnpackSize());
    }

    bool ItemsInProbeCheckOut(std::size_t index, const std::uint8_t *data, std::size_t size) const {
        for (const auto &item : items_) {
            if (!item.hasStream || item.folderIndex != index || !item.crc ||
                item.offset + item.size > size)
                continue;
            if (crc32(0, data + item.offset, static_cast<uInt>(item.size)) != *item.crc)
                return false;
        }
        return true;
    }

    Result FolderRead(std::uint8_t *out, std::size_t size, std::size_t &got) {
        got = 0;
        if (probeAt_ < probe_.size()) {
            got = std::min(size, probe_.size() - probeAt_);
            std::memcpy(out, probe_.data() + probeAt_, got);
            probeAt_ += got;
        } else if (Result result = stage_->Read(out, size, got)) {
            return result;
        }
        folderAt_ += got;
        return kEngineOK;
    }

    // Puts the folder's output at the item's start, decoding and dropping
    // what lies before it.
    Result MoveTo(const Item &item) {
        if (openFolder_ != item.folderIndex || folderAt_ > item.offset) {
            if (Result result = OpenFolder(item.folderIndex, current_)) return result;
        }
        std::vector<std::uint8_t> dropped(kChunk);
        while (folderAt_ < item.offset) {
            std::size_t got = 0;
            std::size_t want = static_cast<std::size_t>(
                std::min<std::uint64_t>(dropped.size(), item.offset - folderAt_));
            if (Result result = FolderRead(dropped.data(), want, got)) return result;
            if (got == 0) return kEngineArchiveTruncated;
            if (request_.operation && request_.operation->Cancelled()) return kEngineCancelled;
        }
        return kEngineOK;
    }

    // Decodes a whole folder (a packed catalogue) into `out`.
    Result DecodeWhole(const Folder &folder, std::size_t itemIndex,
                       std::vector<std::uint8_t> &out) {
        streams_.folders.push_back(folder);
        Result result = OpenFolder(streams_.folders.size() - 1, itemIndex);
        std::size_t filled = 0;
        while (result == kEngineOK && filled < out.size()) {
            std::size_t got = 0;
            result = FolderRead(out.data() + filled, out.size() - filled, got);
            if (result == kEngineOK && got == 0) result = kEngineCatalogueDamaged;
            filled += got;
        }
        stage_.reset();
        openFolder_ = kNoIndex;
        streams_.folders.pop_back();
        if (result == kEngineItemDataDamaged || result == kEngineArchiveTruncated)
            return kEngineCatalogueDamaged;
        if (result == kEngineOK && folder.crc &&
            crc32(0, out.data(), static_cast<uInt>(out.size())) != *folder.crc)
            return kEngineCatalogueDamaged;
        return result;
    }

    ReadRequest request_;
    int fd_ = -1;
    std::uint64_t fileSize_ = 0;
    Streams streams_;
    std::vector<Item> items_;
    bool anyEncrypted_ = false;
    bool unsupported_ = false;
    std::size_t current_ = kNoIndex;
    std::uint64_t remaining_ = 0;
    std::uint32_t running_ = 0;
    bool positioned_ = false;
    std::size_t openFolder_ = kNoIndex;
    std::unique_ptr<Stage> stage_;
    std::vector<std::uint8_t> probe_;
    std::size_t probeAt_ = 0;
    std::uint64_t folderAt_ = 0;
};

}  // namespace

Result OpenSevenZipCursor(const ReadRequest &request, std::unique_ptr<ReadCursor> &cursor) {
    auto opened = std::make_unique<SevenZipCursor>(request);
    if (Result result = opened->Open()) return result;
    cursor = std::move(opened);
    return kEngineOK;
}

}  // namespace engine
