// 7z: read and written through libarchive. A self-extracting 7z carries
// the signature after its stub.
#include <archive.h>

#include "FormatProfile.h"
#include "LibArchive.h"
#include "SevenZipFormat.h"
#include "SevenZipReader.h"
#include "Sniff.h"

namespace engine {
namespace {

// Methods: 0 store, 1 deflate, 2 bzip2, 3 LZMA2 (the default), 4 PPMd,
// 5 LZMA. The dictionary follows the level.
const FormatProfile kSevenZipProfile = {
    3,
    {
        {0, -1, -1, -1, -1, -1, -1},
        {1, 1, 9, 6, 15, 15, 15},
        {2, 1, 9, 9, 17, 20, 20},
        {3, 0, 9, 6, 16, 26, 23},
        {4, 0, 9, 6, 16, 26, 23},
        {5, 0, 9, 6, 16, 26, 23},
    },
    {},
};

const char *const kMethodNames[] = {"store", "deflate", "bzip2", "lzma2", "ppmd", "lzma1"};

void EnableSevenZip(archive *handle) { archive_read_support_format_7zip(handle); }

class SevenZip final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"sevenz"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        const auto &head = input.Head();
        if (sniff::AtText(head, 0, sevenzip::kSignature)) return "sevenz";
        if (sniff::Executable(head)) {
            const auto &stub = input.Head(1024 * 1024);
            std::size_t found = sniff::Find(stub, sevenzip::kSignature, 1);
            // The signature header is followed by its version (0, 2..4).
            if (found != std::string_view::npos && found + 7 < stub.size() && stub[found + 6] == 0)
                return "sevenz";
        }
        return std::nullopt;
    }

    std::uint16_t MaximumAccessMode(std::string_view) const override { return kEngineAccessChange; }

    // The engine's own reader first: it deciphers. libarchive takes what it
    // leaves (coders it does not decode), and has a second try at an archive
    // the own reader finds damaged.
    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        Result own = OpenSevenZipCursor(request, cursor);
        if (own == kEngineOK || own == kEngineCancelled || own == kEnginePasswordNeeded ||
            own == kEngineEncryptionUnsupported)
            return own;
        Result other = OpenLibarchiveCursor(request, EnableSevenZip, {}, cursor);
        return other == kEngineOK || own == kEngineMethodUnsupported ? other : own;
    }

    bool CanWrite(std::string_view) const override { return true; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        if (!request.password.empty()) return kEngineEncryptionUnsupported;
        std::int32_t method =
            IntegerOf(request.format, kFormatPropCompMethod, kSevenZipProfile.defaultMethod);
        if (method < 0 || method > 5) return kEngineMethodUnsupported;
        std::int32_t level = 6;
        ProfileValue(kSevenZipProfile, request.format, kFormatPropCompressionLevel, level);
        LibarchiveWriter writer;
        writer.configure = [&](archive *handle) -> Result {
            if (archive_write_set_format_7zip(handle) != ARCHIVE_OK) return kEngineWriteFailed;
            const char *name = method == 0 ? "copy" : kMethodNames[method];
            if (archive_write_set_option(handle, "7zip", "compression", name) != ARCHIVE_OK)
                return kEngineMethodUnsupported;
            if (method != 0) {
                std::string levelText = std::to_string(level);
                archive_write_set_option(handle, "7zip", "compression-level", levelText.c_str());
            }
            return kEngineOK;
        };
        return WriteWithLibarchive(request, feed, writer);
    }

    std::wstring Extension(std::string_view, std::string_view) const override { return L".7z"; }

    Result FormatValue(std::string_view, const PropertyMap &properties, std::string_view name,
                       std::int32_t &value) const override {
        return ProfileValue(kSevenZipProfile, properties, name, value);
    }
};

}  // namespace

const Driver &SevenZipDriver() {
    static const SevenZip driver;
    return driver;
}

}  // namespace engine
