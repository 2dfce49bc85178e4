// Reading and writing through libarchive, shared by the drivers of the
// formats libarchive knows. A driver says which formats and filters to
// enable and how to set up a writer; the walking, the error mapping and the
// passwords are here.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Driver.h"

struct archive;
struct archive_entry;

namespace engine {

using EnableFormats = void (*)(archive *);

// A cursor over any archive libarchive reads with the enabled formats.
// `singleItemName`, when not empty, names the one item of a raw stream.
Result OpenLibarchiveCursor(const ReadRequest &request, EnableFormats enable,
                            const std::wstring &singleItemName,
                            std::unique_ptr<ReadCursor> &cursor);

struct LibarchiveWriter {
    // Chooses format, filters and options; a failure ends the write.
    std::function<Result(archive *)> configure;
    // Runs before each item's header, e.g. to store an item uncompressed.
    std::function<void(archive *, const WriteItem &)> beforeItem;
};

// Writes the items of the feed into request.path.
Result WriteWithLibarchive(const WriteRequest &request, ItemFeed &feed,
                           const LibarchiveWriter &writer);

// The result for the last failure of a libarchive handle.
Result LibarchiveFailure(archive *handle, Result fallback);

// FILETIME ticks and Unix time.
EngineDateTime FileTimeFromUnix(std::int64_t seconds, long nanoseconds);
// A DOS date and time (local time, two-second steps) as FILETIME ticks.
EngineDateTime FileTimeFromDos(std::uint16_t date, std::uint16_t time);
void UnixFromFileTime(EngineDateTime ticks, std::int64_t &seconds, long &nanoseconds);

}  // namespace engine

namespace engine {

// Adds the compressor of a stream id ("gz", "bz2", "xz", "lzma", "zstd",
// "lz4", "compress") to a writer, at the level the properties give.
Result AddStreamFilter(archive *handle, std::string_view id, const PropertyMap &properties);

}  // namespace engine

namespace engine {

// libarchive converts names with the calling thread's locale; while an
// engine call runs, its thread uses a UTF-8 locale, so that every name can be
// read and written whatever locale the host process chose.
class Utf8LocaleScope {
public:
    Utf8LocaleScope();
    ~Utf8LocaleScope();
    Utf8LocaleScope(const Utf8LocaleScope &) = delete;
    Utf8LocaleScope &operator=(const Utf8LocaleScope &) = delete;

private:
    void *previous_ = nullptr;
};

}  // namespace engine
