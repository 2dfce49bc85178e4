// Zip: read and written through libarchive; a zip behind a self-extracting
// stub is found by its end record.
#include <archive.h>

#include "FormatProfile.h"
#include "LibArchive.h"
#include "Sniff.h"

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
        return OpenLibarchiveCursor(request, EnableZip, {}, cursor);
    }

    bool CanWrite(std::string_view) const override { return true; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        std::int32_t method =
            IntegerOf(request.format, kFormatPropCompMethod, kZipProfile.defaultMethod);
        if (method != 0 && method != 1) return kEngineMethodUnsupported;
        std::int32_t level = 6;
        ProfileValue(kZipProfile, request.format, kFormatPropCompressionLevel, level);
        std::int32_t encryption = IntegerOf(request.format, kFormatPropEncryptMethod, 1);
        std::int32_t keySize = IntegerOf(request.format, kFormatPropKeySize, 0);
        const char *cipher = nullptr;
        if (!request.password.empty()) {
            if (encryption == 1) cipher = keySize == 128 ? "aes128" : "aes256";
            if (encryption == 2) cipher = keySize == 256 ? "aes256" : "aes128";
            if (encryption == 3) cipher = "zipcrypt";
            if (encryption < 0 || encryption > 3) return kEngineEncryptionUnsupported;
        }
        LibarchiveWriter writer;
        writer.configure = [&](archive *handle) -> Result {
            if (archive_write_set_format_zip(handle) != ARCHIVE_OK) return kEngineWriteFailed;
            archive_write_set_option(handle, "zip", "hdrcharset", "UTF-8");
            if (method == 0) {
                archive_write_zip_set_compression_store(handle);
            } else {
                archive_write_zip_set_compression_deflate(handle);
                std::string levelText = std::to_string(level);
                archive_write_set_option(handle, "zip", "compression-level", levelText.c_str());
            }
            if (cipher) {
                if (archive_write_set_option(handle, "zip", "encryption", cipher) != ARCHIVE_OK)
                    return kEngineEncryptionUnsupported;
                if (archive_write_set_passphrase(handle, request.password.c_str()) != ARCHIVE_OK)
                    return kEngineEncryptionUnsupported;
            }
            return kEngineOK;
        };
        writer.beforeItem = [method](archive *handle, const WriteItem &item) {
            if (method == 0 || item.storeOnly)
                archive_write_zip_set_compression_store(handle);
            else
                archive_write_zip_set_compression_deflate(handle);
        };
        return WriteWithLibarchive(request, feed, writer);
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
