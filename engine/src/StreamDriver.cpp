// The single-file compressors: one item of data in a gz, bz2, xz, lzma,
// zstd, lz4 or compress stream. Read through libarchive's filters over its
// raw format; written the same way from one file.
#include <archive.h>

#include <algorithm>

#include "FormatProfile.h"
#include "Handles.h"
#include "LibArchive.h"
#include "Sniff.h"

namespace engine {
namespace {

struct StreamKind {
    const char *id;
    const wchar_t *extension;
    const char *module;  // libarchive's option module, null without levels
    int (*addFilter)(archive *);
    FormatProfile profile;
};

const StreamKind kKinds[] = {
    {"gz", L".gz", "gzip", archive_write_add_filter_gzip, {0, {{0, 1, 9, 6, 15, 15, 15}}, {}}},
    {"bz2", L".bz2", "bzip2", archive_write_add_filter_bzip2, {0, {{0, 1, 9, 9, 17, 20, 20}}, {}}},
    {"xz", L".xz", "xz", archive_write_add_filter_xz, {0, {{0, 0, 9, 6, 18, 26, 23}}, {}}},
    {"lzma", L".lzma", "lzma", archive_write_add_filter_lzma, {0, {{0, 0, 9, 6, 18, 26, 23}}, {}}},
    {"zstd", L".zst", "zstd", archive_write_add_filter_zstd, {0, {{0, 1, 19, 3, 10, 27, 21}}, {}}},
    {"lz4", L".lz4", "lz4", archive_write_add_filter_lz4, {0, {{0, 1, 9, 1, 16, 22, 22}}, {}}},
    {"compress",
     L".z",
     nullptr,
     archive_write_add_filter_compress,
     {0, {{0, -1, -1, -1, 16, 16, 16}}, {}}},
};

const StreamKind *KindOf(std::string_view id) {
    for (const auto &kind : kKinds)
        if (id == kind.id) return &kind;
    return nullptr;
}

void EnableRawStream(archive *handle) {
    archive_read_support_filter_all(handle);
    archive_read_support_format_raw(handle);
}

// The name a gzip stream keeps of its file, without any folder part.
std::wstring GzipStoredName(const sniff::Bytes &head) {
    if (head.size() < 10 || !sniff::At(head, 0, {0x1F, 0x8B, 0x08}) || !(head[3] & 0x08)) return {};
    std::size_t at = 10;
    if (head[3] & 0x04) at += 2 + sniff::Le16(head, 10);
    std::string name;
    while (at < head.size() && head[at] != 0) name += static_cast<char>(head[at++]);
    if (at >= head.size()) return {};
    std::size_t slash = name.find_last_of("/\\");
    if (slash != std::string::npos) name = name.substr(slash + 1);
    if (name == "." || name == "..") return {};
    return WideFromStoredName(name);
}

std::wstring WithoutExtension(const std::wstring &name) {
    std::size_t dot = name.find_last_of(L'.');
    if (dot == std::wstring::npos || dot == 0) return name;
    return name.substr(0, dot);
}

// The raw stream's one item, with what the stream says of its size.
class StreamCursor final : public ReadCursor {
public:
    StreamCursor(std::unique_ptr<ReadCursor> inner, std::uint64_t fileSize,
                 std::optional<std::uint64_t> expanded)
        : inner_(std::move(inner)), fileSize_(fileSize), expanded_(expanded) {}

    Result Next(ItemInfo &info) override {
        Result result = inner_->Next(info);
        if (result != kEngineOK) return result;
        info.compressedSize = fileSize_;
        info.sizeKnown = expanded_.has_value();
        info.size = expanded_.value_or(0);
        info.folder = false;
        return kEngineOK;
    }
    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        return inner_->Read(buffer, size, got);
    }

private:
    std::unique_ptr<ReadCursor> inner_;
    std::uint64_t fileSize_;
    std::optional<std::uint64_t> expanded_;
};

class Stream final : public Driver {
public:
    std::vector<std::string> Ids() const override {
        std::vector<std::string> ids;
        for (const auto &kind : kKinds) ids.push_back(kind.id);
        return ids;
    }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        std::string id = sniff::StreamId(input.Head());
        if (id.empty()) return std::nullopt;
        return id;
    }

    bool SingleItem(std::string_view) const override { return true; }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        SniffInput input(request.path);
        std::wstring name = GzipStoredName(input.Head());
        if (name.empty()) name = WithoutExtension(request.archiveName);
        if (name.empty()) name = L"data";
        std::optional<std::uint64_t> expanded;
        const auto &tail = input.Tail();
        // A single gzip member states its size modulo 4 GiB at its end.
        if (request.formatId == "gz" && tail.size() >= 4 && input.size() < (1ULL << 32))
            expanded = sniff::Le32(tail, tail.size() - 4);
        std::unique_ptr<ReadCursor> inner;
        if (Result result = OpenLibarchiveCursor(request, EnableRawStream, name, inner))
            return result;
        cursor = std::make_unique<StreamCursor>(std::move(inner), input.size(), expanded);
        return kEngineOK;
    }

    bool CanWrite(std::string_view id) const override { return KindOf(id) != nullptr; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        const StreamKind *kind = KindOf(request.formatId);
        if (!kind) return kEngineWrongFormat;
        if (!request.password.empty()) return kEngineEncryptionUnsupported;
        OneItemFeed single(feed);
        LibarchiveWriter writer;
        writer.configure = [&](archive *handle) -> Result {
            if (archive_write_set_format_raw(handle) != ARCHIVE_OK) return kEngineWriteFailed;
            return AddStreamFilter(handle, kind->id, request.format);
        };
        Result result = WriteWithLibarchive(request, single, writer);
        return result == kEngineOK ? single.status() : result;
    }

    std::wstring Extension(std::string_view id, std::string_view) const override {
        const StreamKind *kind = KindOf(id);
        return kind ? kind->extension : L"";
    }

    Result FormatValue(std::string_view id, const PropertyMap &properties, std::string_view name,
                       std::int32_t &value) const override {
        const StreamKind *kind = KindOf(id);
        if (!kind) return kEngineWrongFormat;
        if (name == kFormatPropCompMethod) return kEnginePropertyNotApplicable;
        return ProfileValue(kind->profile, properties, name, value);
    }

private:
    // Passes on one file and refuses anything more.
    class OneItemFeed final : public ItemFeed {
    public:
        explicit OneItemFeed(ItemFeed &inner) : inner_(inner) {}
        Result Next(WriteItem &item) override {
            Result result = inner_.Next(item);
            if (result != kEngineOK) return result;
            if (item.info.folder || item.info.symlink) status_ = kEngineItemKindUnsupported;
            if (++count_ > 1) status_ = kEngineTooManyItems;
            return status_ == kEngineOK ? kEngineOK : status_;
        }
        Result status() const { return status_; }

    private:
        ItemFeed &inner_;
        int count_ = 0;
        Result status_ = kEngineOK;
    };
};

}  // namespace

Result AddStreamFilter(archive *handle, std::string_view id, const PropertyMap &properties) {
    const StreamKind *kind = KindOf(id);
    if (!kind) return kEngineWrongFormat;
    if (kind->addFilter(handle) != ARCHIVE_OK) return kEngineMethodUnsupported;
    if (kind->module) {
        std::int32_t level = 0;
        ProfileValue(kind->profile, properties, kFormatPropCompressionLevel, level);
        level = std::clamp(level, kind->profile.methods[0].levelLeast,
                           kind->profile.methods[0].levelMost);
        std::string text = std::to_string(level);
        archive_write_set_filter_option(handle, kind->module, "compression-level", text.c_str());
    }
    return kEngineOK;
}

const Driver &StreamDriver() {
    static const Stream driver;
    return driver;
}

}  // namespace engine
