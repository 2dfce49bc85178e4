// Archives the engine lists and expands but does not write: rar (also
// behind a self-extracting stub), cab, lha/lzh, ISO 9660 images, cpio
// (plain or compressed), ar and xar. All through libarchive.
#include <archive.h>

#include "LibArchive.h"
#include "Sniff.h"

namespace engine {
namespace {

const std::string_view kRar4("Rar!\x1A\x07\x00", 7);
const std::string_view kRar5("Rar!\x1A\x07\x01\x00", 8);

bool CpioMagic(const sniff::Bytes &h) {
    return sniff::AtText(h, 0, "070707") || sniff::AtText(h, 0, "070701") ||
           sniff::AtText(h, 0, "070702") || sniff::At(h, 0, {0xC7, 0x71}) ||
           sniff::At(h, 0, {0x71, 0xC7});
}

void EnableRar(archive *h) {
    archive_read_support_format_rar(h);
    archive_read_support_format_rar5(h);
}
void EnableCab(archive *h) { archive_read_support_format_cab(h); }
void EnableLha(archive *h) { archive_read_support_format_lha(h); }
void EnableIso(archive *h) { archive_read_support_format_iso9660(h); }
void EnableCpio(archive *h) {
    archive_read_support_filter_all(h);
    archive_read_support_format_cpio(h);
}
void EnableAr(archive *h) { archive_read_support_format_ar(h); }
void EnableXar(archive *h) { archive_read_support_format_xar(h); }

struct Family {
    const char *id;
    EnableFormats enable;
};

const Family kFamilies[] = {
    {"rar", EnableRar},   {"cab", EnableCab}, {"lha", EnableLha}, {"iso", EnableIso},
    {"cpio", EnableCpio}, {"ar", EnableAr},   {"xar", EnableXar},
};

class ReadOnlyArchives final : public Driver {
public:
    std::vector<std::string> Ids() const override {
        std::vector<std::string> ids;
        for (const auto &family : kFamilies) ids.push_back(family.id);
        return ids;
    }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        const auto &h = input.Head();
        if (sniff::AtText(h, 0, kRar4) || sniff::AtText(h, 0, kRar5)) return "rar";
        if (sniff::At(h, 0, {'M', 'S', 'C', 'F', 0, 0, 0, 0})) return "cab";
        if (h.size() > 21 && h[2] == '-' && h[3] == 'l' && (h[4] == 'h' || h[4] == 'z') &&
            h[6] == '-')
            return "lha";
        if (sniff::AtText(h, 0x8001, "CD001")) return "iso";
        if (sniff::AtText(h, 0, "!<arch>\n")) return "ar";
        if (sniff::AtText(h, 0, "xar!")) return "xar";
        if (CpioMagic(h)) return "cpio";
        if (sniff::CompressedStream(h) && CpioMagic(input.Unwrapped())) return "cpio";
        if (sniff::Executable(h)) {
            const auto &stub = input.Head(1024 * 1024);
            if (sniff::Find(stub, kRar4, 1) != std::string_view::npos ||
                sniff::Find(stub, kRar5, 1) != std::string_view::npos)
                return "rar";
        }
        return std::nullopt;
    }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        for (const auto &family : kFamilies)
            if (request.formatId == family.id)
                return OpenLibarchiveCursor(request, family.enable, {}, cursor);
        return kEngineWrongFormat;
    }
};

}  // namespace

const Driver &ReadOnlyArchiveDriver() {
    static const ReadOnlyArchives driver;
    return driver;
}

}  // namespace engine
