// The project's own archive format vnkx and its classic form vnk5 ("vnk"):
// told by the trailer at the end of the file (so also behind a
// self-extracting stub), read and written by the Vnkx* files.

#include <algorithm>

#include "Driver.h"
#include "FormatProfile.h"
#include "OrderedWorkerPool.h"
#include "VnkxArchive.h"
#include "VnkxBlockPlan.h"

namespace engine {
namespace {

// Text blocks of preset 4: order 12 with a 32 MiB model packs headers and
// sources below LZMA2, in less time.
constexpr int kDefaultTextOrder = 12, kDefaultTextModelLog = 25;
// The smallest preset: a longer context and a model of 128 MiB.
constexpr int kSmallestTextOrder = 16, kSmallestTextModelLog = 27;

// vnkx methods: 1 deflate, 2 bzip2, 3 LZMA2, 4 PPMd, 5 zstd (the default),
// 6 store, 7 LZ4, 8 brotli, 9 LZMA2 with the largest dictionaries.
const FormatProfile kVnkxProfile = {
    5,
    {
        {1, 1, 9, 6, 15, 15, 15},
        {2, 1, 9, 9, 17, 20, 20},
        {3, 0, 9, 5, 16, 28, 24},
        {4, 2, 32, 12, 20, 30, 25},
        {5, 1, 22, 1, 10, 27, 22},
        {6, -1, -1, -1, -1, -1, -1},
        {7, -1, -1, -1, 16, 16, 16},
        {8, 0, 11, 9, 10, 24, 22},
        {9, 0, 9, 9, 24, 30, 27},
    },
    {0, 256, 256},
};

// "compressionDegree" 1 (fastest) to 5 (smallest): method, level, extent,
// and for the smallest the text model (order, log2 of its memory).
const vnkx::MethodChoice kDegrees[] = {
    {vnkx::kMethodLz4, -1, 16},
    {vnkx::kMethodZstd, 1, 22},
    {vnkx::kMethodZstd, 8, 24},
    {vnkx::kMethodLzma2, 7, 24},
    {vnkx::kMethodLzma2Large, 9, 26, false, 0, 0, kSmallestTextOrder, kSmallestTextModelLog},
};

bool IsVnk5(std::string_view id) { return id == "vnk5" || id == "vnk"; }

// The methods the first version of the format knows; the others fall back
// to the nearest one it has.
std::uint8_t FirstVersionMethod(std::uint8_t method) {
    switch (method) {
        case vnkx::kMethodPpmd:
        case vnkx::kMethodLzma2Large:
            return vnkx::kMethodLzma2;
        case vnkx::kMethodLz4:
        case vnkx::kMethodBrotli:
            return vnkx::kMethodZstd;
        default:
            return method;
    }
}

Result VnkxSettings(const WriteRequest &request, vnkx::WriteSettings &settings) {
    const PropertyMap &format = request.format;
    vnkx::MethodChoice &choice = settings.choice;
    std::int32_t degree = IntegerOf(format, kFormatPropCompressionDegree, 0);
    if (degree >= 1 && degree <= 5) {
        choice = kDegrees[degree - 1];
    } else {
        std::int32_t method = IntegerOf(format, kFormatPropCompMethod, kVnkxProfile.defaultMethod);
        const MethodProfile *profile = CurrentMethod(kVnkxProfile, format);
        if (!profile) return kEngineMethodUnsupported;
        choice.method = static_cast<std::uint8_t>(method);
        choice.level = IntegerOf(format, kFormatPropCompressionLevel, profile->levelDefault);
        choice.extent = IntegerOf(format, kFormatPropCompExtent, profile->extentDefault);
        if (profile->levelLeast >= 0)
            choice.level = std::clamp(choice.level, profile->levelLeast, profile->levelMost);
        if (profile->extentLeast >= 0 && choice.extent < profile->extentLeast)
            choice.extent = profile->extentLeast;
        if (profile->extentMost >= 0 && choice.extent > profile->extentMost)
            return kEngineExtentTooHigh;
        if (choice.method == vnkx::kMethodPpmd) {
            choice.textOrder = choice.level;
            choice.textModelLog = choice.extent;
        }
    }
    // Preset 4 codes text with the default model: smaller than LZMA2 on
    // text, and faster. zstd runs (the defaults) do not: the model codes
    // and decodes text at about 13 MB/s a core, which would make them
    // slower than the defaults are meant to be, both ways.
    bool textHelps = degree == 4;
    if (textHelps && choice.textOrder == 0) {
        choice.textOrder = kDefaultTextOrder;
        choice.textModelLog = kDefaultTextModelLog;
    }
    settings.version = IntegerOf(format, kFormatPropMaxVersion, vnkx::kNewestVersion) == 0
                           ? 0
                           : vnkx::kNewestVersion;
    settings.solid = BooleanOf(format, kFormatPropBlockMode, true);
    settings.fold = BooleanOf(format, kFormatPropFoldDuplicates, true);
    settings.filters = BooleanOf(format, kFormatPropFilters, true);
    settings.legacyNames = IntegerOf(format, kFormatPropEncodeLevel, 0) == 1;
    std::int32_t encryption = IntegerOf(format, kFormatPropEncryptMethod, 1);
    if (!request.password.empty()) {
        if (encryption == 0) encryption = 1;
        if (encryption != 1 && encryption != 2) return kEngineEncryptionUnsupported;
    }
    settings.cipher = static_cast<std::uint8_t>(encryption == 2 ? 2 : 1);
    settings.encryptCatalogue = BooleanOf(format, kFormatPropEncryptArchive, false);
    settings.redundancy =
        static_cast<unsigned>(std::clamp(IntegerOf(format, kFormatPropRedundancyLevel, 0), 0, 50));
    if (settings.version == 0) {
        // The first version has no text blocks.
        choice.textOrder = 0;
        choice.method = FirstVersionMethod(choice.method);
        settings.cipher = vnkx::kCipherAesGcm;
        settings.encryptCatalogue = false;
        settings.filters = false;
    }
    // zstd runs give text blocks of their own to word text, which the first
    // version does not have.
    choice.wordText = settings.version > 0 && choice.textOrder == 0 &&
                      vnkx::CodedMethod(choice.method) == vnkx::kMethodZstd;
    const std::uint64_t perWorker = vnkx::WorkerMemoryOfRun(choice), allowed = WriteMemoryAllowed();
    if (!vnkx::RunFits(perWorker, allowed)) return kEngineExtentTooHigh;
    if (request.threads)
        settings.workers = vnkx::WorkersFor(perWorker, OrderedWorkerPool::Cores(), allowed);
    return kEngineOK;
}

class OwnFormats final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"vnkx", "vnk5", "vnk"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        // Any part of a segmented vnkx, told by its segment header.
        const std::vector<std::uint8_t> &head = input.Head();
        vnkx::SegmentHeader segment;
        if (vnkx::DecodeSegmentHeader(head.data(), head.size(), segment)) return "vnkx";
        std::optional<vnkx::Flavour> flavour =
            vnkx::SniffArchive(input.path(), input.Tail(), input.size());
        if (!flavour) return std::nullopt;
        return *flavour == vnkx::Flavour::Vnk5 ? "vnk5" : "vnkx";
    }

    std::uint16_t MaximumAccessMode(std::string_view) const override { return kEngineAccessChange; }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        auto file = std::make_shared<vnkx::ArchiveFile>();
        if (Result result =
                vnkx::OpenArchiveFile(request.path, request.passwords, *file, request.operation))
            return result;
        cursor = vnkx::MakeCursor(std::move(file), request);
        return kEngineOK;
    }

    bool CanWrite(std::string_view) const override { return true; }
    // Blocks are copied as they are stored, unless the first version is to
    // be written from an archive of a later one, whose blocks may use what
    // the first version cannot read: its items are then decoded and coded
    // again.
    bool KeepsStoredForm(std::string_view id, const std::string &path,
                         const PropertyMap &format) const override {
        if (IsVnk5(id) || IntegerOf(format, kFormatPropMaxVersion, vnkx::kNewestVersion) != 0)
            return true;
        std::optional<std::uint16_t> version = vnkx::ArchiveVersion(path);
        return version && *version == 0;
    }
    bool KeepsComments(std::string_view id) const override { return !IsVnk5(id); }
    std::uint64_t LargeItemsFirstFrom(std::string_view) const override {
        return vnkx::kWholeItemLimit;
    }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        vnkx::WriteSettings settings;
        if (IsVnk5(request.formatId)) {
            // The classic form: one method, AES-256 of the data only.
            settings.flavour = vnkx::Flavour::Vnk5;
            settings.choice = {vnkx::kMethodDeflate, 6, 15};
            settings.version = 0;
            settings.fold = false;
            settings.filters = false;
            settings.cipher = vnkx::kCipherAesGcm;
            settings.workers = request.threads ? OrderedWorkerPool::kOneACore : 0;
        } else if (Result result = VnkxSettings(request, settings)) {
            return result;
        }
        return vnkx::WriteArchive(request, feed, settings);
    }

    std::wstring Extension(std::string_view id, std::string_view) const override {
        return IsVnk5(id) ? L".vnk" : L".vnkx";
    }

    Result FormatValue(std::string_view id, const PropertyMap &properties, std::string_view name,
                       std::int32_t &value) const override {
        if (id != "vnkx") return kEnginePropertyNotApplicable;
        return ProfileValue(kVnkxProfile, properties, name, value);
    }
};

}  // namespace

const Driver &OwnFormatsDriver() {
    static const OwnFormats driver;
    return driver;
}

}  // namespace engine
