// Old compressors and archivers the engine recognises: arc and arj, which
// it also lists and expands, and Compact Pro, SCO compress, Unix compact and
// freeze, which it does not yet.
#include "ArcReader.h"
#include "ArjReader.h"
#include "Driver.h"
#include "Sniff.h"

namespace engine {
namespace {

bool ArjMainHeader(const sniff::Bytes &h) {
    if (!sniff::At(h, 0, {0x60, 0xEA}) || h.size() < 12) return false;
    std::uint16_t size = sniff::Le16(h, 2);
    return size >= 20 && size <= 2600 && h[10] == 2;
}

bool ArcHeader(const sniff::Bytes &h) {
    if (h.size() < 29 || h[0] != 0x1A || h[1] < 1 || h[1] > 11) return false;
    std::size_t length = 0;
    while (length < 13 && h[2 + length] != 0) {
        if (h[2 + length] < 0x20 || h[2 + length] > 0x7E) return false;
        ++length;
    }
    return length > 0 && length < 13;
}

bool CompactProHeader(const sniff::Bytes &h, std::uint64_t size) {
    if (h.size() < 8 || h[0] != 1 || h[1] != 1) return false;
    std::uint32_t directory = sniff::Be32(h, 4);
    return directory >= 8 && directory + 7 <= size;
}

class LegacyCompressors final : public Driver {
public:
    std::vector<std::string> Ids() const override {
        return {"arc", "arj", "cpt", "sco", "compact", "freeze"};
    }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        const auto &h = input.Head();
        if (ArjMainHeader(h)) return "arj";
        if (sniff::At(h, 0, {0x1F, 0xA0})) return "sco";
        if (sniff::At(h, 0, {0x1F, 0x9E}) || sniff::At(h, 0, {0x1F, 0x9F})) return "freeze";
        if (sniff::At(h, 0, {0xFF, 0x1F})) return "compact";
        if (ArcHeader(h)) return "arc";
        if (CompactProHeader(h, input.size())) return "cpt";
        return std::nullopt;
    }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        if (request.formatId == "arc") return OpenArcReader(request, cursor);
        if (request.formatId == "arj") return OpenArjReader(request, cursor);
        return kEngineNotImplemented;
    }
};

}  // namespace

const Driver &LegacyCompressorDriver() {
    static const LegacyCompressors driver;
    return driver;
}

}  // namespace engine
