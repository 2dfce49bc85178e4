// Items decoded whole into memory: the text and Mac encodings, whose
// files are small and whose decoders read them at once. A cursor hands
// them out like any other.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Driver.h"

namespace engine {

struct DecodedItem {
    ItemInfo info;
    std::vector<std::uint8_t> data;
};

// The largest file a whole-file decoder takes, and the most it may produce.
inline constexpr std::uint64_t kDecodeLimit = 512ULL << 20;

// Reads the whole file (kEngineArchiveTooLarge above the limit).
Result ReadWholeFile(const std::string &path, std::vector<std::uint8_t> &bytes);

using Decoder =
    std::function<Result(const std::vector<std::uint8_t> &file, std::vector<DecodedItem> &items)>;

// Reads the file whole, decodes it and hands its items out through a cursor.
Result OpenDecoded(const std::string &path, const Decoder &decode,
                   std::unique_ptr<ReadCursor> &cursor);

// Decodes the data of the item at an index, once, when it is first read.
using ItemDecoder = std::function<Result(std::size_t index, std::vector<std::uint8_t> &data)>;

// Items listed at once whose data is decoded only when read: listing
// decodes nothing, and damage in one item fails that item alone.
std::unique_ptr<ReadCursor> MakeDecodedCursor(std::vector<ItemInfo> items, ItemDecoder decode);

// An archive of an old kind read whole: `readEntries(file, entries)` lists
// its entries (each with its ItemInfo `info`), `decode(file, entry, data)`
// decodes one when its data is read.
template <typename Entry, typename ReadEntries, typename DecodeEntry>
Result OpenEntryArchive(const std::string &path, ReadEntries readEntries, DecodeEntry decode,
                        std::unique_ptr<ReadCursor> &cursor) {
    auto file = std::make_shared<std::vector<std::uint8_t>>();
    if (Result result = ReadWholeFile(path, *file)) return result;
    auto entries = std::make_shared<std::vector<Entry>>();
    if (Result result = readEntries(*file, *entries)) return result;
    std::vector<ItemInfo> items;
    for (const Entry &entry : *entries) items.push_back(entry.info);
    cursor = MakeDecodedCursor(
        std::move(items),
        [file, entries, decode](std::size_t index, std::vector<std::uint8_t> &data) {
            return decode(*file, (*entries)[index], data);
        });
    return kEngineOK;
}

// A Mac file: its data fork as the item's data, its resource fork kept as
// the item's "rsrc" fork.
void AddMacFile(std::vector<DecodedItem> &items, const std::wstring &name,
                std::vector<std::uint8_t> data, std::vector<std::uint8_t> resource,
                std::optional<EngineDateTime> modified);

// An AppleDouble file holding a resource fork, as Mac systems write "._"
// files.
std::vector<std::uint8_t> AppleDouble(const std::vector<std::uint8_t> &resource);

// An HFS name as a POSIX one: "/" is a character of it, shown as ":".
std::wstring MacName(const std::wstring &name);

// The name a decoded file takes when its encoding keeps none: the encoded
// file's name without its extension.
std::wstring NameWithoutExtension(const std::wstring &name);

// A name from inside an encoded file, without any folder part.
std::wstring BareName(const std::wstring &name);

}  // namespace engine
