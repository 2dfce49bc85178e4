#include "ZipDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"
#include "FileSystem.h"
#include "Handles.h"
#include "ZipFormat.h"

namespace engine {
namespace {

using namespace zipformat;

constexpr std::uint64_t kMaxDirectory = 1ULL << 30;

// Code page 437, the characters above ASCII.
const char16_t kCodePage437[128] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF,
    0x00EE, 0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9,
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA,
    0x00F1, 0x00D1, 0x00AA, 0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB,
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557,
    0x255D, 0x255C, 0x255B, 0x2510, 0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559,
    0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4, 0x03A6, 0x0398, 0x03A9, 0x03B4,
    0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

bool ReadAt(int fd, std::uint64_t offset, void *buffer, std::size_t count) {
    auto *bytes = static_cast<std::uint8_t *>(buffer);
    while (count > 0) {
        ssize_t got = pread(fd, bytes, count, static_cast<off_t>(offset));
        if (got <= 0) return false;
        bytes += got;
        offset += static_cast<std::uint64_t>(got);
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

// The zip64 fields of an extra block, in their fixed order, only for the
// values the fixed fields mark as too large.
void ApplyZip64(const std::uint8_t *data, std::size_t size, ZipStoredItem &item, bool sizeMarked,
                bool compressedMarked, bool offsetMarked) {
    std::size_t at = 0;
    auto take = [&](std::uint64_t &field) {
        if (at + 8 > size) return;
        field = Le64(data + at);
        at += 8;
    };
    if (sizeMarked) take(item.size);
    if (compressedMarked) take(item.compressedSize);
    if (offsetMarked) take(item.localOffset);
}

// Walks an extra field: zip64, the Unicode path, and the AES header.
void ReadExtra(const std::uint8_t *extra, std::size_t size, ZipStoredItem &item, bool sizeMarked,
               bool compressedMarked, bool offsetMarked, std::wstring &unicodePath) {
    std::size_t at = 0;
    while (at + 4 <= size) {
        std::uint16_t id = Le16(extra + at);
        std::uint16_t length = Le16(extra + at + 2);
        if (at + 4 + length > size) break;
        const std::uint8_t *data = extra + at + 4;
        if (id == 0x0001)
            ApplyZip64(data, length, item, sizeMarked, compressedMarked, offsetMarked);
        if (id == 0x7075 && length > 5) unicodePath = Wide(std::string(data + 5, data + length));
        if (id == 0x9901) item.aesExtra.assign(extra + at, extra + at + 4 + length);
        at += 4u + length;
    }
}

bool FindEnd(int fd, std::uint64_t fileSize, std::vector<std::uint8_t> &tail, std::size_t &at) {
    std::uint64_t count = std::min<std::uint64_t>(fileSize, 65535 + 22);
    tail.resize(static_cast<std::size_t>(count));
    if (!ReadAt(fd, fileSize - count, tail.data(), tail.size())) return false;
    for (std::size_t i = tail.size() >= 22 ? tail.size() - 22 + 1 : 0; i-- > 0;) {
        if (Le32(tail.data() + i) != kEndSignature) continue;
        if (i + 22 + Le16(tail.data() + i + 20) != tail.size()) continue;
        at = i;
        return true;
    }
    return false;
}

}  // namespace

std::wstring ZipText(const std::uint8_t *bytes, std::size_t count, bool utf8Flag) {
    std::string text(reinterpret_cast<const char *>(bytes), count);
    std::wstring decoded = WideFromStoredName(text);
    if (utf8Flag) return Wide(text);
    // Valid UTF-8 is taken as it (systems that write UTF-8 without the flag
    // are common); anything else is the old DOS code page.
    bool ascii = std::all_of(text.begin(), text.end(),
                             [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (ascii) return decoded;
    if (Utf8(decoded) == text) return decoded;
    std::wstring dos;
    for (unsigned char c : text)
        dos += c < 0x80 ? static_cast<wchar_t>(c) : static_cast<wchar_t>(kCodePage437[c - 0x80]);
    return dos;
}

Result ReadZipDirectory(const std::string &path, ZipDirectory &directory) {
    UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.valid()) return LastErrno();
    int fd = file.get();
    struct stat info {};
    if (fstat(fd, &info) != 0) return LastErrno();
    auto fileSize = static_cast<std::uint64_t>(info.st_size);

    std::vector<std::uint8_t> tail;
    std::size_t endAt = 0;
    if (!FindEnd(fd, fileSize, tail, endAt)) return kEngineCatalogueDamaged;
    const std::uint8_t *end = tail.data() + endAt;
    std::uint64_t endOffset = fileSize - tail.size() + endAt;
    std::uint64_t count = Le16(end + 10);
    std::uint64_t directorySize = Le32(end + 12);
    std::uint64_t directoryOffset = Le32(end + 16);
    std::uint16_t commentLength = Le16(end + 20);
    if (commentLength) directory.comment = ZipText(end + 22, commentLength, false);
    std::uint64_t directoryEnd = endOffset;
    // A zip64 end record, found through its locator just before the end.
    if (endOffset >= 20 &&
        (count == 0xFFFF || directorySize == 0xFFFFFFFF || directoryOffset == 0xFFFFFFFF)) {
        std::uint8_t locator[20];
        if (ReadAt(fd, endOffset - 20, locator, sizeof locator) &&
            Le32(locator) == kLocator64Signature) {
            std::uint64_t end64 = Le64(locator + 8);
            std::uint8_t record[56];
            if (end64 > endOffset || endOffset - end64 < sizeof record)
                return kEngineCatalogueDamaged;
            if (!ReadAt(fd, end64, record, sizeof record) || Le32(record) != kEnd64Signature)
                return kEngineCatalogueDamaged;
            count = Le64(record + 32);
            directorySize = Le64(record + 40);
            directoryOffset = Le64(record + 48);
            directoryEnd = end64;
        }
    }
    if (directorySize > directoryEnd || directorySize > kMaxDirectory)
        return kEngineCatalogueDamaged;
    // Where the directory really begins; a stub before the archive shifts
    // every offset by the same amount.
    std::uint64_t directoryStart = directoryEnd - directorySize;
    if (directoryOffset > directoryStart) return kEngineCatalogueDamaged;
    std::uint64_t shift = directoryStart - directoryOffset;
    std::vector<std::uint8_t> central(static_cast<std::size_t>(directorySize));
    if (!ReadAt(fd, directoryStart, central.data(), central.size())) return kEngineArchiveTruncated;
    if (count > central.size() / 46 + 1) return kEngineCatalogueDamaged;

    std::size_t at = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        if (at + 46 > central.size() || Le32(central.data() + at) != kCentralSignature)
            return kEngineCatalogueDamaged;
        const std::uint8_t *h = central.data() + at;
        std::size_t nameLength = Le16(h + 28), extraLength = Le16(h + 30),
                    entryComment = Le16(h + 32);
        if (at + 46 + nameLength + extraLength + entryComment > central.size())
            return kEngineCatalogueDamaged;
        auto item = std::make_shared<ZipStoredItem>();
        item->madeBy = Le16(h + 4);
        item->versionNeeded = Le16(h + 6);
        item->flags = Le16(h + 8);
        item->method = Le16(h + 10);
        item->dosTime = Le16(h + 12);
        item->crc = Le32(h + 16);
        item->compressedSize = Le32(h + 20);
        item->size = Le32(h + 24);
        item->externalAttributes = Le32(h + 38);
        item->localOffset = Le32(h + 42);
        std::wstring unicodePath;
        ReadExtra(h + 46 + nameLength, extraLength, *item, item->size == 0xFFFFFFFF,
                  item->compressedSize == 0xFFFFFFFF, item->localOffset == 0xFFFFFFFF, unicodePath);
        item->localOffset += shift;
        if (item->localOffset >= directoryStart ||
            item->compressedSize > directoryStart - item->localOffset)
            return kEngineCatalogueDamaged;
        bool utf8 = (item->flags & kFlagUtf8) != 0;
        ZipDirectoryEntry entry;
        entry.name = !unicodePath.empty() ? unicodePath : ZipText(h + 46, nameLength, utf8);
        if (entryComment)
            entry.comment = ZipText(h + 46 + nameLength + extraLength, entryComment, utf8);
        entry.stored = item;
        directory.entries.push_back(std::move(entry));
        at += 46 + nameLength + extraLength + entryComment;
    }
    std::stable_sort(
        directory.entries.begin(), directory.entries.end(),
        [](const auto &a, const auto &b) { return a.stored->localOffset < b.stored->localOffset; });
    return kEngineOK;
}

Result ZipDataStart(int fd, std::uint64_t localOffset, std::uint64_t &dataAt) {
    std::uint8_t local[30];
    if (pread(fd, local, sizeof local, static_cast<off_t>(localOffset)) != sizeof local ||
        Le32(local) != kLocalSignature)
        return kEngineCatalogueDamaged;
    dataAt = localOffset + sizeof local + Le16(local + 26) + Le16(local + 28);
    return kEngineOK;
}

}  // namespace engine
