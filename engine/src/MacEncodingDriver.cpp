// The Macintosh encodings: BinHex 4.0, MacBinary and AppleSingle (or
// AppleDouble), decoded and encoded by the engine. Each holds one file with
// its data and resource forks; the resource fork is the item's "rsrc" fork.
#include <algorithm>

#include "DecodedItems.h"
#include "Driver.h"
#include "Handles.h"
#include "LibArchive.h"
#include "MacEncoders.h"
#include "Sniff.h"

namespace engine {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint64_t Padded(std::uint64_t length) { return (length + 127) / 128 * 128; }

bool MacBinaryHeader(const sniff::Bytes &h, std::uint64_t size) {
    if (h.size() < 128 || h[0] != 0 || h[1] < 1 || h[1] > 63 || h[74] != 0 || h[82] != 0)
        return false;
    std::uint32_t dataLength = sniff::Be32(h, 83);
    std::uint32_t resourceLength = sniff::Be32(h, 87);
    if (128 + Padded(dataLength) + Padded(resourceLength) > size + 127) return false;
    if (h[122] >= 0x81) return CrcXmodem(h.data(), 124) == sniff::Be16(h, 124);
    // MacBinary I: no check value; the reserved bytes are zero and type and
    // creator are printable.
    bool reservedClear =
        std::all_of(h.begin() + 101, h.begin() + 126, [](std::uint8_t b) { return b == 0; });
    bool printable = std::all_of(h.begin() + 65, h.begin() + 73,
                                 [](std::uint8_t b) { return b >= 0x20 && b < 0x7F; });
    return reservedClear && printable;
}

std::wstring MacRoman(const std::uint8_t *bytes, std::size_t count) {
    // Names are taken as UTF-8 when they are valid, else byte by byte.
    return MacName(WideFromStoredName(std::string(bytes, bytes + count)));
}

std::optional<EngineDateTime> MacTime(std::uint32_t seconds) {
    if (seconds == 0) return std::nullopt;
    return FileTimeFromUnix(static_cast<std::int64_t>(seconds) - kMacEpochOffset, 0);
}

// -- BinHex 4.0 ---------------------------------------------------------------

// The six-bit text between the colons, then the run-length expansion.
Result BinHexBytes(const Bytes &file, Bytes &out) {
    std::size_t at = sniff::Find(file, kBinHexSignature);
    if (at == std::string_view::npos) return kEngineWrongFormat;
    while (at < file.size() && file[at] != '\n' && file[at] != '\r') ++at;
    while (at < file.size() && file[at] != ':') ++at;
    if (at >= file.size()) return kEngineArchiveTruncated;
    ++at;
    std::int8_t value[256];
    std::fill(std::begin(value), std::end(value), -1);
    for (int i = 0; i < 64; ++i)
        value[static_cast<std::uint8_t>(kBinHexAlphabet[i])] = static_cast<std::int8_t>(i);
    Bytes packed;
    std::uint32_t bits = 0;
    int count = 0;
    bool closed = false;
    for (; at < file.size(); ++at) {
        std::uint8_t c = file[at];
        if (c == ':') {
            closed = true;
            break;
        }
        if (c == '\r' || c == '\n' || c == ' ' || c == '\t') continue;
        if (value[c] < 0) return kEngineArchiveDamaged;
        bits = (bits << 6) | static_cast<std::uint32_t>(value[c]);
        count += 6;
        if (count >= 8) {
            count -= 8;
            packed.push_back(static_cast<std::uint8_t>(bits >> count));
        }
    }
    if (!closed) return kEngineArchiveTruncated;
    // 0x90 repeats the byte before it; a count of 0 stands for 0x90 itself.
    std::uint8_t last = 0;
    for (std::size_t i = 0; i < packed.size(); ++i) {
        if (packed[i] != 0x90) {
            last = packed[i];
            out.push_back(last);
            continue;
        }
        if (++i >= packed.size()) return kEngineArchiveTruncated;
        std::uint8_t repeat = packed[i];
        if (repeat == 0) {
            last = 0x90;
            out.push_back(0x90);
            continue;
        }
        if (out.size() + repeat > kDecodeLimit) return kEngineArchiveTooLarge;
        out.insert(out.end(), repeat - 1u, last);
    }
    return kEngineOK;
}

Result DecodeBinHex(const Bytes &file, std::vector<DecodedItem> &items) {
    Bytes bytes;
    if (Result result = BinHexBytes(file, bytes)) return result;
    if (bytes.empty()) return kEngineArchiveTruncated;
    std::size_t nameLength = bytes[0];
    std::size_t headerEnd = 1 + nameLength + 1 + 4 + 4 + 2 + 4 + 4;
    if (bytes.size() < headerEnd + 2) return kEngineArchiveTruncated;
    if (CrcXmodem(bytes.data(), headerEnd) != sniff::Be16(bytes, headerEnd))
        return kEngineCatalogueDamaged;
    std::uint64_t dataLength = sniff::Be32(bytes, headerEnd - 8);
    std::uint64_t resourceLength = sniff::Be32(bytes, headerEnd - 4);
    std::size_t dataAt = headerEnd + 2;
    if (dataLength + 2 > bytes.size() - dataAt) return kEngineArchiveTruncated;
    std::size_t resourceAt = dataAt + dataLength + 2;
    if (resourceLength + 2 > bytes.size() - resourceAt) return kEngineArchiveTruncated;
    if (CrcXmodem(bytes.data() + dataAt, dataLength) != sniff::Be16(bytes, dataAt + dataLength) ||
        CrcXmodem(bytes.data() + resourceAt, resourceLength) !=
            sniff::Be16(bytes, resourceAt + resourceLength))
        return kEngineItemDataDamaged;
    std::wstring name = MacRoman(bytes.data() + 1, nameLength);
    if (name.empty()) return kEngineCatalogueDamaged;
    AddMacFile(items, name, Bytes(bytes.begin() + dataAt, bytes.begin() + dataAt + dataLength),
               Bytes(bytes.begin() + resourceAt, bytes.begin() + resourceAt + resourceLength),
               std::nullopt);
    return kEngineOK;
}

// -- MacBinary ----------------------------------------------------------------

Result DecodeMacBinary(const Bytes &file, std::vector<DecodedItem> &items) {
    if (!MacBinaryHeader(file, file.size())) return kEngineWrongFormat;
    std::wstring name = MacRoman(file.data() + 2, file[1]);
    if (name.empty()) return kEngineCatalogueDamaged;
    std::uint64_t dataLength = sniff::Be32(file, 83), resourceLength = sniff::Be32(file, 87);
    std::uint64_t dataAt = 128;
    if (file[122] >= 0x81)
        dataAt += Padded(sniff::Be16(file, 120));  // MacBinary II's second header
    std::uint64_t resourceAt = dataAt + Padded(dataLength);
    if (dataAt + dataLength > file.size() || resourceAt + resourceLength > file.size())
        return kEngineArchiveTruncated;
    AddMacFile(items, name, Bytes(file.begin() + dataAt, file.begin() + dataAt + dataLength),
               Bytes(file.begin() + resourceAt, file.begin() + resourceAt + resourceLength),
               MacTime(sniff::Be32(file, 95)));
    return kEngineOK;
}

// -- AppleSingle and AppleDouble ------------------------------------------------

Result DecodeAppleSingle(const Bytes &file, const std::wstring &archiveName,
                         std::vector<DecodedItem> &items) {
    if (file.size() < 26) return kEngineArchiveTruncated;
    bool appleDouble = sniff::Be32(file, 0) == 0x00051607;
    std::size_t entries = sniff::Be16(file, 24);
    if (26 + entries * 12 > file.size()) return kEngineCatalogueDamaged;
    Bytes data, resource;
    std::wstring name;
    std::optional<EngineDateTime> modified;
    for (std::size_t i = 0; i < entries; ++i) {
        std::size_t at = 26 + i * 12;
        std::uint32_t id = sniff::Be32(file, at);
        std::uint64_t offset = sniff::Be32(file, at + 4), length = sniff::Be32(file, at + 8);
        if (offset > file.size() || length > file.size() - offset) return kEngineCatalogueDamaged;
        auto begin = file.begin() + static_cast<std::ptrdiff_t>(offset);
        auto end = begin + static_cast<std::ptrdiff_t>(length);
        if (id == 1) data.assign(begin, end);
        if (id == 2) resource.assign(begin, end);
        if (id == 3) name = MacRoman(file.data() + offset, length);
        if (id == 8 && length >= 8) {
            auto seconds = static_cast<std::int32_t>(sniff::Be32(file, offset + 4));
            modified = FileTimeFromUnix(seconds + kAppleSingleEpochOffset, 0);
        }
    }
    if (name.empty()) {
        // The file's own name: an AppleDouble "._name" stands for "name".
        name = appleDouble && archiveName.rfind(L"._", 0) == 0 ? archiveName.substr(2)
                                                               : NameWithoutExtension(archiveName);
    }
    AddMacFile(items, name, std::move(data), std::move(resource), modified);
    return kEngineOK;
}

class MacEncodings final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"hqx", "bin", "apple"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        const auto &h = input.Head();
        if (sniff::At(h, 0, {0x00, 0x05, 0x16, 0x00}) || sniff::At(h, 0, {0x00, 0x05, 0x16, 0x07}))
            return "apple";
        if (sniff::Find(h, kBinHexSignature) < 16 * 1024) return "hqx";
        if (MacBinaryHeader(h, input.size())) return "bin";
        return std::nullopt;
    }

    bool SingleItem(std::string_view) const override { return true; }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        return OpenDecoded(
            request.path,
            [&](const Bytes &file, std::vector<DecodedItem> &items) {
                if (request.formatId == "hqx") return DecodeBinHex(file, items);
                if (request.formatId == "bin") return DecodeMacBinary(file, items);
                return DecodeAppleSingle(file, request.archiveName, items);
            },
            cursor);
    }

    bool CanWrite(std::string_view) const override { return true; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        FileEncoder encode = request.formatId == "hqx"   ? EncodeBinHex
                             : request.formatId == "bin" ? EncodeMacBinary
                                                         : EncodeAppleSingle;
        return WriteSingleFile(request, feed, encode);
    }

    std::wstring Extension(std::string_view id, std::string_view) const override {
        if (id == "apple") return L".as";
        return id == "bin" ? L".bin" : L".hqx";
    }
};

}  // namespace

const Driver &MacEncodingDriver() {
    static const MacEncodings driver;
    return driver;
}

}  // namespace engine
