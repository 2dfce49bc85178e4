#include "Sniff.h"

#include <algorithm>

namespace engine::sniff {

bool At(const Bytes &data, std::size_t offset, std::initializer_list<std::uint8_t> magic) {
    if (offset > data.size() || data.size() - offset < magic.size()) return false;
    return std::equal(magic.begin(), magic.end(),
                      data.begin() + static_cast<std::ptrdiff_t>(offset));
}

bool AtText(const Bytes &data, std::size_t offset, std::string_view text) {
    if (offset > data.size() || data.size() - offset < text.size()) return false;
    return std::equal(text.begin(), text.end(), data.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

std::size_t Find(const Bytes &data, std::string_view pattern, std::size_t from) {
    if (pattern.empty() || from >= data.size()) return std::string_view::npos;
    auto found = std::search(
        data.begin() + static_cast<std::ptrdiff_t>(from), data.end(), pattern.begin(),
        pattern.end(), [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); });
    return found == data.end() ? std::string_view::npos
                               : static_cast<std::size_t>(found - data.begin());
}

std::uint16_t Le16(const Bytes &d, std::size_t o) {
    return o + 2 <= d.size() ? static_cast<std::uint16_t>(d[o] | (d[o + 1] << 8)) : 0;
}

std::uint32_t Le32(const Bytes &d, std::size_t o) {
    return o + 4 <= d.size() ? static_cast<std::uint32_t>(Le16(d, o)) |
                                   (static_cast<std::uint32_t>(Le16(d, o + 2)) << 16)
                             : 0;
}

std::uint64_t Le64(const Bytes &d, std::size_t o) {
    return o + 8 <= d.size() ? static_cast<std::uint64_t>(Le32(d, o)) |
                                   (static_cast<std::uint64_t>(Le32(d, o + 4)) << 32)
                             : 0;
}

std::uint16_t Be16(const Bytes &d, std::size_t o) {
    return o + 2 <= d.size() ? static_cast<std::uint16_t>((d[o] << 8) | d[o + 1]) : 0;
}

std::uint32_t Be32(const Bytes &d, std::size_t o) {
    return o + 4 <= d.size() ? (static_cast<std::uint32_t>(Be16(d, o)) << 16) | Be16(d, o + 2) : 0;
}

bool TarHeaderAt(const Bytes &data, std::size_t offset) {
    if (data.size() < offset + 512) return false;
    const std::uint8_t *h = data.data() + offset;
    if (std::all_of(h, h + 512, [](std::uint8_t b) { return b == 0; })) {
        // An archive of no items is two zero blocks.
        return offset == 0 && data.size() >= 1024 &&
               std::all_of(h, h + 1024, [](std::uint8_t b) { return b == 0; });
    }
    // The checksum field: octal digits, possibly led by spaces, ended by
    // NUL or space.
    std::uint32_t stored = 0;
    bool digits = false;
    for (int i = 148; i < 156; ++i) {
        std::uint8_t c = h[i];
        if (c >= '0' && c <= '7') {
            stored = stored * 8 + (c - '0');
            digits = true;
        } else if (c == ' ' && !digits) {
            continue;
        } else if (c == 0 || c == ' ') {
            break;
        } else {
            return false;
        }
    }
    if (!digits) return false;
    std::uint32_t unsignedSum = 0;
    std::int32_t signedSum = 0;
    for (int i = 0; i < 512; ++i) {
        std::uint8_t c = (i >= 148 && i < 156) ? ' ' : h[i];
        unsignedSum += c;
        signedSum += static_cast<std::int8_t>(c);
    }
    return stored == unsignedSum || static_cast<std::int32_t>(stored) == signedSum;
}

bool CompressedStream(const Bytes &h) { return !StreamId(h).empty(); }

bool Executable(const Bytes &h) {
    return At(h, 0, {0x7F, 'E', 'L', 'F'}) || AtText(h, 0, "MZ") ||
           At(h, 0, {0xCF, 0xFA, 0xED, 0xFE}) || At(h, 0, {0xCE, 0xFA, 0xED, 0xFE}) ||
           At(h, 0, {0xCA, 0xFE, 0xBA, 0xBE});
}

bool LineStartsWith(const Bytes &data, std::string_view prefix, std::size_t limit) {
    std::size_t end = std::min(limit, data.size());
    std::size_t line = 0;
    while (line < end) {
        if (line + prefix.size() <= data.size() && AtText(data, line, prefix)) return true;
        while (line < end && data[line] != '\n') ++line;
        ++line;
    }
    return false;
}

}  // namespace engine::sniff

namespace engine::sniff {
namespace {

// An lzma-alone header: properties, a sensible dictionary size, and an
// expanded size that is either unknown or plausible.
bool LzmaAloneHeader(const Bytes &h) {
    if (h.size() < 13 || h[0] >= 225) return false;
    std::uint32_t dictionary = Le32(h, 1);
    if (dictionary < 4096) return false;
    bool powerOfTwo = (dictionary & (dictionary - 1)) == 0;
    std::uint32_t low = dictionary & (dictionary >> 1);
    bool threeHalves = low != 0 && ((dictionary ^ low) & ((dictionary ^ low) - 1)) == 0 &&
                       ((low & (low - 1)) == 0);
    if (!powerOfTwo && !threeHalves) return false;
    std::uint64_t expanded = Le64(h, 5);
    return expanded == ~std::uint64_t{0} || expanded < (std::uint64_t{1} << 48);
}

}  // namespace

std::string StreamId(const Bytes &h) {
    if (At(h, 0, {0x1F, 0x8B, 0x08})) return "gz";
    if (AtText(h, 0, "BZh") && h.size() > 9 && h[3] >= '1' && h[3] <= '9' &&
        (At(h, 4, {0x31, 0x41, 0x59, 0x26, 0x53, 0x59}) ||
         At(h, 4, {0x17, 0x72, 0x45, 0x38, 0x50, 0x90})))
        return "bz2";
    if (At(h, 0, {0xFD, '7', 'z', 'X', 'Z', 0x00})) return "xz";
    if (At(h, 0, {0x28, 0xB5, 0x2F, 0xFD})) return "zstd";
    if (At(h, 0, {0x04, 0x22, 0x4D, 0x18}) || At(h, 0, {0x02, 0x21, 0x4C, 0x18})) return "lz4";
    if (At(h, 0, {0x1F, 0x9D})) return "compress";
    if (LzmaAloneHeader(h)) return "lzma";
    return {};
}

}  // namespace engine::sniff
