// tar in all its dialects, plain or inside a compressed stream (tgz, tbz2,
// tz, tar.xz, ...). Written as POSIX pax, which every reader takes, with the
// stream compressor of "postEncodingFormat".
#include <archive.h>

#include "LibArchive.h"
#include "Sniff.h"

namespace engine {
namespace {

void EnableTar(archive *handle) {
    archive_read_support_filter_all(handle);
    archive_read_support_format_tar(handle);
}

struct TarExtension {
    const char *postEncoding;
    const wchar_t *extension;
};

const TarExtension kExtensions[] = {
    {"", L".tar"},   {"gz", L".tgz"},     {"bz2", L".tbz2"},     {"compress", L".tz"},
    {"xz", L".txz"}, {"lzma", L".tlzma"}, {"zstd", L".tar.zst"}, {"lz4", L".tar.lz4"},
};

class Tar final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"tar"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        if (sniff::TarHeaderAt(input.Head(), 0)) return "tar";
        if (sniff::CompressedStream(input.Head()) && sniff::TarHeaderAt(input.Unwrapped(), 0))
            return "tar";
        return std::nullopt;
    }

    std::uint16_t MaximumAccessMode(std::string_view) const override { return kEngineAccessChange; }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        return OpenLibarchiveCursor(request, EnableTar, {}, cursor);
    }

    bool CanWrite(std::string_view) const override { return true; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        if (!request.password.empty()) return kEngineEncryptionUnsupported;
        LibarchiveWriter writer;
        writer.configure = [&](archive *handle) -> Result {
            if (archive_write_set_format_pax_restricted(handle) != ARCHIVE_OK)
                return kEngineWriteFailed;
            if (request.postEncoding.empty()) return kEngineOK;
            return AddStreamFilter(handle, request.postEncoding, request.postEncodingFormat);
        };
        return WriteWithLibarchive(request, feed, writer);
    }

    std::wstring Extension(std::string_view, std::string_view postEncoding) const override {
        for (const auto &known : kExtensions)
            if (postEncoding == known.postEncoding) return known.extension;
        return L".tar";
    }
};

}  // namespace

const Driver &TarDriver() {
    static const Tar driver;
    return driver;
}

}  // namespace engine
