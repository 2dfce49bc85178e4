// Zip: read through libarchive, with what only the central directory tells
// (comments, compressed sizes, where the data lies) read by the engine;
// written by the engine's own writer. A zip behind a self-extracting stub is
// found by its end record.
#include <archive.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <map>

#include "FileSystem.h"
#include "FormatProfile.h"
#include "LibArchive.h"
#include "Sniff.h"
#include "ZipDirectory.h"
#include "ZipItemDecoder.h"
#include "ZipStreamEncoder.h"
#include "ZipWriter.h"

namespace engine {
namespace {

const FormatProfile kZipProfile = {
    1,
    {
        {0, -1, -1, -1, -1, -1, -1},  // store
        {1, 0, 9, 6, 15, 15, 15},     // deflate
        {2, 1, 9, 9, 17, 20, 20},     // bzip2 (block size)
        {3, 0, 9, 5, 16, 27, 24},     // LZMA
        {4, 1, 19, 3, 10, 27, 22},    // zstd
        {5, 0, 9, 6, 16, 27, 23},     // xz
    },
    {0, 256, 128, 0},
};

// The end-of-central-directory record near the end, consistent with the
// file: a zip whatever precedes it.
bool EndRecordFits(SniffInput &input) {
    const auto &tail = input.Tail();
    if (tail.size() < 22) return false;
    std::uint64_t tailStart = input.size() - tail.size();
    for (std::size_t at = tail.size() - 22 + 1; at-- > 0;) {
        if (!sniff::At(tail, at, {'P', 'K', 5, 6})) continue;
        std::uint16_t commentLength = sniff::Le16(tail, at + 20);
        if (at + 22 + commentLength != tail.size()) continue;
        std::uint32_t directorySize = sniff::Le32(tail, at + 12);
        std::uint32_t directoryOffset = sniff::Le32(tail, at + 16);
        if (directorySize == 0xFFFFFFFF || directoryOffset == 0xFFFFFFFF) return true;  // zip64
        std::uint64_t endOffset = tailStart + at;
        if (directorySize > endOffset) continue;
        std::uint64_t directoryStart = endOffset - directorySize;
        if (directorySize == 0) return directoryOffset <= endOffset;
        // The directory begins with a central header, wherever the stub put
        // the archive.
        if (directoryStart >= tailStart) {
            if (sniff::At(tail, static_cast<std::size_t>(directoryStart - tailStart),
                          {'P', 'K', 1, 2}))
                return true;
            continue;
        }
        return directoryOffset <= directoryStart;
    }
    return false;
}

void EnableZip(archive *handle) { archive_read_support_format_zip(handle); }

// libarchive's items, each joined with its central directory record by
// name, in order. The data libarchive cannot give, or not safely
// (Deflate64, enciphered methods other than store and deflate, AES items),
// the engine decodes from the archive itself (ZipItemDecoder).
class ZipCursor final : public ReadCursor {
public:
    ZipCursor(std::unique_ptr<ReadCursor> inner, ZipDirectory directory, std::string path,
              PasswordSource *passwords)
        : inner_(std::move(inner)),
          comment_(directory.comment),
          path_(std::move(path)),
          passwords_(passwords) {
        for (auto &entry : directory.entries)
            byName_[CleanItemPath(entry.name)].push_back(std::move(entry));
        for (auto &[name, entries] : byName_) std::reverse(entries.begin(), entries.end());
    }
    Result Next(ItemInfo &info) override {
        decoder_.reset();  // it refers to the item it decodes
        Result result = inner_->Next(info);
        if (result != kEngineOK) return result;
        index_ = index_ == kNoIndex ? 0 : index_ + 1;
        auto found = byName_.find(info.path);
        if (found != byName_.end() && !found->second.empty()) {
            ZipDirectoryEntry entry = std::move(found->second.back());
            found->second.pop_back();
            info.comment = entry.comment;
            info.compressedSize = entry.stored->compressedSize;
            info.stored = entry.stored;
            checked_ = std::static_pointer_cast<const ZipStoredItem>(entry.stored);
        } else {
            checked_.reset();
        }
        crc_ = 0;
        length_ = 0;
        return kEngineOK;
    }
    // libarchive checks the CRC of what it inflates, not of stored data, so
    // every item's data is held against its central record here.
    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        Result result = DecodedHere() ? ReadHere(static_cast<std::uint8_t *>(buffer), size, got)
                                      : inner_->Read(buffer, size, got);
        if (result != kEngineOK || !Checkable()) return result;
        if (got > 0) {
            crc_ = static_cast<std::uint32_t>(
                crc32(crc_, static_cast<const Bytef *>(buffer), static_cast<uInt>(got)));
            length_ += got;
            return kEngineOK;
        }
        if ((DecodedHere() && length_ != checked_->size) ||
            (length_ == checked_->size && crc_ != checked_->crc))
            return kEngineItemDataDamaged;
        return kEngineOK;
    }
    std::optional<std::wstring> Comment() const override { return comment_; }

private:
    std::unique_ptr<ReadCursor> inner_;
    std::optional<std::wstring> comment_;
    std::map<std::wstring, std::vector<ZipDirectoryEntry>> byName_;
    std::shared_ptr<const ZipStoredItem> checked_;
    std::uint32_t crc_ = 0;
    std::uint64_t length_ = 0;

    // AES items (AE-2) keep no CRC; ZipItemDecoder checks their
    // authentication code instead.
    bool Checkable() const { return checked_ && checked_->aesExtra.empty(); }
    bool DecodedHere() const { return checked_ && ZipItemDecoder::Needed(*checked_); }

    Result ReadHere(std::uint8_t *out, std::size_t size, std::size_t &got) {
        got = 0;
        if (!decoder_) {
            if (!archive_.valid()) archive_.reset(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
            if (!archive_.valid()) return LastErrno();
            decoder_ =
                std::make_unique<ZipItemDecoder>(archive_.get(), *checked_, passwords_, index_);
        }
        return decoder_->Read(out, size, got);
    }

    std::string path_;
    PasswordSource *passwords_;
    std::size_t index_ = kNoIndex;
    UniqueFd archive_;
    std::unique_ptr<ZipItemDecoder> decoder_;
};

class Zip final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"zip"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        const auto &head = input.Head();
        if (sniff::At(head, 0, {'P', 'K', 3, 4}) || sniff::At(head, 0, {'P', 'K', 5, 6}) ||
            (sniff::At(head, 0, {'P', 'K', 7, 8}) && sniff::At(head, 4, {'P', 'K', 3, 4})))
            return "zip";
        if (EndRecordFits(input)) return "zip";
        return std::nullopt;
    }

    std::uint16_t MaximumAccessMode(std::string_view) const override { return kEngineAccessChange; }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        std::unique_ptr<ReadCursor> inner;
        if (Result result = OpenLibarchiveCursor(request, EnableZip, {}, inner)) return result;
        // A directory the engine cannot read leaves the items without what
        // only it tells; libarchive's reading stands.
        ZipDirectory directory;
        if (ReadZipDirectory(request.path, directory) != kEngineOK) directory = ZipDirectory();
        cursor = std::make_unique<ZipCursor>(std::move(inner), std::move(directory), request.path,
                                             request.passwords);
        return kEngineOK;
    }

    bool CanWrite(std::string_view) const override { return true; }
    bool KeepsStoredForm(std::string_view, const std::string &,
                         const PropertyMap &) const override {
        return true;
    }
    bool KeepsComments(std::string_view) const override { return true; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        ZipWriteSettings settings;
        settings.method =
            IntegerOf(request.format, kFormatPropCompMethod, kZipProfile.defaultMethod);
        if (!CurrentMethod(kZipProfile, request.format)) return kEngineMethodUnsupported;
        ProfileValue(kZipProfile, request.format, kFormatPropCompressionLevel, settings.level);
        ProfileValue(kZipProfile, request.format, kFormatPropCompExtent, settings.extent);
        if (ZipEncoderMemory(settings.method, settings.level, settings.extent) >
            WriteMemoryAllowed())
            return kEngineExtentTooHigh;
        if (!request.password.empty()) {
            std::int32_t encryption = IntegerOf(request.format, kFormatPropEncryptMethod, 1);
            std::int32_t keySize = IntegerOf(request.format, kFormatPropKeySize, 0);
            using Cipher = ZipWriteSettings::Cipher;
            switch (encryption) {
                case 0:
                    settings.cipher = Cipher::None;
                    break;
                case 1:
                    settings.cipher = keySize == 128 ? Cipher::Aes128 : Cipher::Aes256;
                    break;
                case 2:
                    settings.cipher = keySize == 256 ? Cipher::Aes256 : Cipher::Aes128;
                    break;
                case 3:
                    settings.cipher = Cipher::Traditional;
                    break;
                default:
                    return kEngineEncryptionUnsupported;
            }
        }
        return WriteZip(request, feed, settings);
    }

    Result FormatValue(std::string_view, const PropertyMap &properties, std::string_view name,
                       std::int32_t &value) const override {
        if (name == kFormatPropEncryptMethod) {
            value = IntegerOf(properties, name, 1);
            return kEngineOK;
        }
        return ProfileValue(kZipProfile, properties, name, value);
    }
};

}  // namespace

const Driver &ZipDriver() {
    static const Zip driver;
    return driver;
}

}  // namespace engine
