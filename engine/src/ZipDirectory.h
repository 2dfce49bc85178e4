// The central directory of a zip archive, read by the engine itself: what
// libarchive does not tell (comments, compressed sizes, where each item's
// data lies), and what a rewrite needs to copy an item's data as it is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Catalogue.h"
#include "Result.h"

namespace engine {

// An item's stored form, enough to copy its data unchanged into a new zip.
struct ZipStoredItem final : StoredData {
    std::uint64_t localOffset = 0;  // from the start of the file
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::uint32_t crc = 0;
    std::uint16_t method = 0;
    std::uint16_t flags = 0;
    std::uint16_t dosTime = 0;  // its high byte checks a password when the sizes follow the data
    std::uint16_t versionNeeded = 20;
    std::uint16_t madeBy = 0;
    std::uint32_t externalAttributes = 0;
    std::vector<std::uint8_t> aesExtra;  // the whole 0x9901 field of an AES item
};

struct ZipDirectoryEntry {
    std::wstring name;
    std::optional<std::wstring> comment;
    std::shared_ptr<const ZipStoredItem> stored;
};

struct ZipDirectory {
    std::vector<ZipDirectoryEntry> entries;  // by the position of their data
    std::optional<std::wstring> comment;
};

// kEngineCatalogueDamaged when the directory is missing or does not fit
// the file; every size and offset is checked against the file first.
Result ReadZipDirectory(const std::string &path, ZipDirectory &directory);

// Where an item's data begins: past its local header, whose name and extra
// field may differ in length from the central record's.
// kEngineCatalogueDamaged when no local header lies at `localOffset`.
Result ZipDataStart(int fd, std::uint64_t localOffset, std::uint64_t &dataAt);

// Text of a zip field: UTF-8 when flagged or valid, else code page 437.
std::wstring ZipText(const std::uint8_t *bytes, std::size_t count, bool utf8Flag);

}  // namespace engine
