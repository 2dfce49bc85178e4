// The Macintosh encodings: BinHex 4.0, MacBinary and AppleSingle (or
// AppleDouble). Recognised; decoding comes with its own code.
#include <algorithm>

#include "Driver.h"
#include "Sniff.h"

namespace engine {
namespace {

std::uint16_t CrcXmodem(const std::uint8_t *data, std::size_t count) {
    std::uint16_t crc = 0;
    for (std::size_t i = 0; i < count; ++i) {
        crc = static_cast<std::uint16_t>(crc ^ (data[i] << 8));
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<std::uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

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

class MacEncodings final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"hqx", "bin", "apple"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        const auto &h = input.Head();
        if (sniff::At(h, 0, {0x00, 0x05, 0x16, 0x00}) || sniff::At(h, 0, {0x00, 0x05, 0x16, 0x07}))
            return "apple";
        if (sniff::Find(h, "(This file must be converted with BinHex") < 16 * 1024) return "hqx";
        if (MacBinaryHeader(h, input.size())) return "bin";
        return std::nullopt;
    }
};

}  // namespace

const Driver &MacEncodingDriver() {
    static const MacEncodings driver;
    return driver;
}

}  // namespace engine
