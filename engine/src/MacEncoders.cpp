// Encoders of the Macintosh encodings. Names are written as UTF-8 (what
// the decoders take first) with ":" back as the "/" it shows on HFS; a
// file from the disk has no resource fork and the type and creator "????".
#include "MacEncoders.h"

#include <algorithm>
#include <array>

#include "Handles.h"
#include "LibArchive.h"

namespace engine {
namespace {

using Bytes = std::vector<std::uint8_t>;

// BinHex and MacBinary keep at most 63 bytes of a name.
constexpr std::size_t kShortNameBytes = 63;
constexpr std::uint32_t kAppleSingleUnknownDate = 0x80000000u;

void PutBe16(Bytes &out, std::uint32_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

void PutBe32(Bytes &out, std::uint32_t value) {
    PutBe16(out, value >> 16);
    PutBe16(out, value & 0xFFFF);
}

void SetBe32(std::uint8_t *at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

// The HFS form of a name, cut to `limit` bytes at a character's start.
std::string HfsName(const std::wstring &name, std::size_t limit = std::string::npos) {
    std::string bytes = Utf8(name);
    std::replace(bytes.begin(), bytes.end(), ':', '/');
    if (bytes.size() <= limit) return bytes;
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<std::uint8_t>(bytes[cut]) & 0xC0) == 0x80) --cut;
    return bytes.substr(0, cut);
}

std::optional<std::int64_t> UnixSeconds(const std::optional<EngineDateTime> &time) {
    if (!time) return std::nullopt;
    std::int64_t seconds = 0;
    long nanoseconds = 0;
    UnixFromFileTime(*time, seconds, nanoseconds);
    return seconds;
}

// Seconds since 1904; 0 (no date) when unknown or out of reach.
std::uint32_t MacSeconds(const std::optional<EngineDateTime> &time) {
    auto seconds = UnixSeconds(time);
    if (!seconds) return 0;
    std::int64_t mac = *seconds + kMacEpochOffset;
    return mac > 0 && mac <= 0xFFFFFFFFLL ? static_cast<std::uint32_t>(mac) : 0;
}

// Signed seconds since 2000; the "unknown" value when out of reach.
std::uint32_t AppleSingleSeconds(const std::optional<EngineDateTime> &time) {
    auto seconds = UnixSeconds(time);
    if (!seconds) return kAppleSingleUnknownDate;
    std::int64_t since2000 = *seconds - kAppleSingleEpochOffset;
    if (since2000 <= INT32_MIN || since2000 > INT32_MAX) return kAppleSingleUnknownDate;
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(since2000));
}

const Bytes &ResourceOf(const EncodedFile &file) {
    static const Bytes none;
    return file.resource ? *file.resource : none;
}

void PadTo128(std::size_t length, EncodedOutput &out) {
    std::size_t rest = length % 128;
    if (rest != 0) out.Put(std::string(128 - rest, '\0'));
}

// BinHex's two stages after the plain bytes: runs of three or more equal
// bytes become byte, 0x90, count (a literal 0x90 is 0x90, 0); the result is
// written six bits a character, 64 characters a line, between colons.
class BinHexWriter {
public:
    explicit BinHexWriter(EncodedOutput &out) : out_(out) {
        out_.Put(kBinHexSignature);
        out_.Put(" 4.0)\n:");
        column_ = 1;
    }

    void Put(const std::uint8_t *bytes, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) Byte(bytes[i]);
    }
    void Put(const Bytes &bytes) { Put(bytes.data(), bytes.size()); }
    void PutBe16(std::uint16_t value) {
        Byte(static_cast<std::uint8_t>(value >> 8));
        Byte(static_cast<std::uint8_t>(value));
    }
    void Finish() {
        EndRun();
        if (bitCount_ > 0) Char(static_cast<unsigned>(bits_ << (6 - bitCount_)));
        out_.Put(":\n");
    }

private:
    static constexpr int kLineLength = 64;
    static constexpr std::uint8_t kRunMarker = 0x90;

    void Byte(std::uint8_t c) {
        if (run_ > 0 && c == runByte_ && run_ < 255) {
            ++run_;
            return;
        }
        EndRun();
        runByte_ = c;
        run_ = 1;
    }
    void EndRun() {
        if (run_ == 0) return;
        Literal(runByte_);
        if (run_ >= 3) {
            Packed(kRunMarker);
            Packed(static_cast<std::uint8_t>(run_));
        } else if (run_ == 2) {
            Literal(runByte_);
        }
        run_ = 0;
    }
    void Literal(std::uint8_t c) {
        Packed(c);
        if (c == kRunMarker) Packed(0);
    }
    void Packed(std::uint8_t c) {
        bits_ = (bits_ << 8) | c;
        bitCount_ += 8;
        while (bitCount_ >= 6) {
            bitCount_ -= 6;
            Char(bits_ >> bitCount_);
        }
        bits_ &= (1u << bitCount_) - 1;
    }
    void Char(unsigned value) {
        out_.Put(kBinHexAlphabet[value & 63]);
        if (++column_ < kLineLength) return;
        out_.Put('\n');
        column_ = 0;
    }

    EncodedOutput &out_;
    std::uint8_t runByte_ = 0;
    unsigned run_ = 0;
    std::uint32_t bits_ = 0;
    int bitCount_ = 0;
    int column_ = 0;
};

}  // namespace

std::uint16_t CrcXmodem(const std::uint8_t *data, std::size_t count, std::uint16_t crc) {
    for (std::size_t i = 0; i < count; ++i) {
        crc = static_cast<std::uint16_t>(crc ^ (data[i] << 8));
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<std::uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

void EncodeBinHex(const EncodedFile &file, EncodedOutput &out) {
    const Bytes &resource = ResourceOf(file);
    std::string name = HfsName(file.name, kShortNameBytes);
    Bytes header;
    header.push_back(static_cast<std::uint8_t>(name.size()));
    header.insert(header.end(), name.begin(), name.end());
    header.push_back(0);                                // version
    for (int i = 0; i < 8; ++i) header.push_back('?');  // type and creator
    PutBe16(header, 0);                                 // Finder flags
    PutBe32(header, static_cast<std::uint32_t>(file.data.size()));
    PutBe32(header, static_cast<std::uint32_t>(resource.size()));
    BinHexWriter writer(out);
    writer.Put(header);
    writer.PutBe16(CrcXmodem(header.data(), header.size()));
    writer.Put(file.data);
    writer.PutBe16(CrcXmodem(file.data.data(), file.data.size()));
    writer.Put(resource);
    writer.PutBe16(CrcXmodem(resource.data(), resource.size()));
    writer.Finish();
}

void EncodeMacBinary(const EncodedFile &file, EncodedOutput &out) {
    const Bytes &resource = ResourceOf(file);
    std::string name = HfsName(file.name, kShortNameBytes);
    std::array<std::uint8_t, 128> header{};
    header[1] = static_cast<std::uint8_t>(name.size());
    std::copy(name.begin(), name.end(), header.begin() + 2);
    std::fill(header.begin() + 65, header.begin() + 73, '?');  // type and creator
    SetBe32(&header[83], static_cast<std::uint32_t>(file.data.size()));
    SetBe32(&header[87], static_cast<std::uint32_t>(resource.size()));
    std::uint32_t modified = MacSeconds(file.modified);
    SetBe32(&header[91], modified);  // created: nothing better is known
    SetBe32(&header[95], modified);
    header[122] = 0x81;  // written by MacBinary II
    header[123] = 0x81;  // and needs a reader of it
    std::uint16_t crc = CrcXmodem(header.data(), 124);
    header[124] = static_cast<std::uint8_t>(crc >> 8);
    header[125] = static_cast<std::uint8_t>(crc);
    out.Put(std::string_view(reinterpret_cast<const char *>(header.data()), header.size()));
    out.PutBytes(file.data);
    PadTo128(file.data.size(), out);
    out.PutBytes(resource);
    PadTo128(resource.size(), out);
}

void EncodeAppleSingle(const EncodedFile &file, EncodedOutput &out) {
    const Bytes &resource = ResourceOf(file);
    std::string name = HfsName(file.name);
    Bytes dates;
    if (file.modified) {
        std::uint32_t modified = AppleSingleSeconds(file.modified);
        PutBe32(dates, modified);  // created
        PutBe32(dates, modified);
        PutBe32(dates, kAppleSingleUnknownDate);  // backed up
        PutBe32(dates, kAppleSingleUnknownDate);  // accessed
    }
    struct Entry {
        std::uint32_t id;
        const std::uint8_t *bytes;
        std::size_t length;
    };
    std::vector<Entry> entries;
    entries.push_back({3, reinterpret_cast<const std::uint8_t *>(name.data()), name.size()});
    if (!dates.empty()) entries.push_back({8, dates.data(), dates.size()});
    if (!resource.empty()) entries.push_back({2, resource.data(), resource.size()});
    entries.push_back({1, file.data.data(), file.data.size()});

    Bytes header;
    PutBe32(header, 0x00051600);  // AppleSingle
    PutBe32(header, 0x00020000);  // version 2
    header.resize(header.size() + 16, 0);
    PutBe16(header, static_cast<std::uint32_t>(entries.size()));
    std::size_t offset = header.size() + entries.size() * 12;
    for (const Entry &entry : entries) {
        PutBe32(header, entry.id);
        PutBe32(header, static_cast<std::uint32_t>(offset));
        PutBe32(header, static_cast<std::uint32_t>(entry.length));
        offset += entry.length;
    }
    out.PutBytes(header);
    for (const Entry &entry : entries)
        out.Put(std::string_view(reinterpret_cast<const char *>(entry.bytes), entry.length));
}

}  // namespace engine
