// The one internal interface every format family implements, and the table
// they register in. A driver sniffs content, reads items in stored order
// through a cursor, and writes an archive from a feed of items; listing,
// expanding, verifying, changing by rewrite and transforming are built on
// those three by the engine, the same for every format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Catalogue.h"
#include "Result.h"
#include "Session.h"

namespace engine {

class Operation;

// The start and end of a file, and what a compressed stream holds, for the
// content tests. Reads lazily; a driver asks only for what it needs.
class SniffInput {
public:
    explicit SniffInput(std::string path);

    const std::string &path() const { return path_; }
    std::uint64_t size() const { return size_; }
    bool readable() const { return readable_; }
    // At most `count` bytes from the start (fewer for a short file).
    const std::vector<std::uint8_t> &Head(std::size_t count = 64 * 1024);
    // The last bytes of the file, up to 64 KiB plus an end record.
    const std::vector<std::uint8_t> &Tail();
    // The first bytes of the data inside a compressed stream (gz, bz2, xz,
    // lzma, zstd, lz4, compress), empty when the file is not one.
    const std::vector<std::uint8_t> &Unwrapped();

private:
    std::string path_;
    std::uint64_t size_ = 0;
    bool readable_ = false;
    std::vector<std::uint8_t> head_;
    std::size_t headAsked_ = 0;
    std::vector<std::uint8_t> tail_;
    bool tailRead_ = false;
    std::vector<std::uint8_t> unwrapped_;
    bool unwrappedRead_ = false;
};

// Gives the passwords to try for the item at a stored index, one a call: the
// known one first, then what the (200,9) notification answers.
class PasswordSource {
public:
    virtual ~PasswordSource() = default;
    // 0 with the next candidate; kEnginePasswordNeeded or kEngineCancelled
    // when there is none.
    virtual Result Next(std::size_t storedIndex, std::string &password) = 0;
    // The candidate given last opened the item's data.
    virtual void Accepted() {}
};

// Walks the stored items of an archive in stored order.
class ReadCursor {
public:
    virtual ~ReadCursor() = default;
    // Moves to the next item; kEngineNoMoreObjects after the last.
    virtual Result Next(ItemInfo &info) = 0;
    // Reads the current item's data; got is 0 at its end.
    virtual Result Read(void *buffer, std::size_t size, std::size_t &got) = 0;
    // Reads like Read, but a cursor that holds the bytes already may leave
    // them there: `view` points at them, in `buffer` or in the cursor's own
    // memory, until the next call on the cursor.
    virtual Result ReadView(void *buffer, std::size_t size, const void *&view, std::size_t &got) {
        view = buffer;
        return Read(buffer, size, got);
    }
    // Makes Read give the current item's fork of that name from its start;
    // "data" is every item's. kEngineNoSuchFork when the item has none.
    virtual Result SelectFork(std::string_view name) {
        return name == kForkData ? kEngineOK : kEngineNoSuchFork;
    }
    // The archive's comment, when the format keeps one (after the first Next).
    virtual std::optional<std::wstring> Comment() const { return std::nullopt; }
};

// A source of bytes for one item being written.
class DataSource {
public:
    virtual ~DataSource() = default;
    virtual Result Read(void *buffer, std::size_t size, std::size_t &got) = 0;
};

struct WriteItem {
    ItemInfo info;               // path in the archive, kind, size, time, mode
    DataSource *data = nullptr;  // for files; null for folders and links
    bool storeOnly = false;      // already compressed: store it as it is
    // An item of an archive of the same format, to be copied as it is
    // stored (its data neither decoded nor deciphered) from `copyFrom`.
    const StoredData *copy = nullptr;
    std::string copyFrom;
    // Where the item stands in the caller's order. Feeds may hand items over
    // in another order (Driver::LargeItemsFirstFrom); a writer that lists
    // items in the caller's order sorts by this.
    std::size_t position = 0;
};

// What a writer takes its items from, in order.
class ItemFeed {
public:
    virtual ~ItemFeed() = default;
    // The next item; kEngineNoMoreObjects after the last.
    virtual Result Next(WriteItem &item) = 0;
    // The data of the items not yet handed over, as far as it is known.
    virtual std::optional<std::uint64_t> BytesAhead() const { return std::nullopt; }
};

struct ReadRequest {
    std::string path;  // the file, as the system takes it
    std::string formatId;
    std::wstring archiveName;  // the archive's own name, for single-item formats
    PasswordSource *passwords = nullptr;
    Operation *operation = nullptr;
};

struct WriteRequest {
    std::string path;  // the file to write
    std::string formatId;
    PropertyMap format;                   // the session's properties of the format
    std::string postEncoding;             // tar: the compressor of the stream
    PropertyMap postEncodingFormat;       // ... and that compressor's properties
    std::string password;                 // UTF-8; empty: no encryption
    std::optional<std::wstring> comment;  // the archive's comment, where the format keeps one
    bool threads = true;                  // "useThreads"
    Operation *operation = nullptr;
};

class Driver {
public:
    virtual ~Driver() = default;

    // The ids the driver answers for.
    virtual std::vector<std::string> Ids() const = 0;
    // The id of the content, or nothing when it is not this family's.
    virtual std::optional<std::string> Sniff(SniffInput &input) const = 0;
    // 255 when the engine can change archives of the id, else 7.
    virtual std::uint16_t MaximumAccessMode(std::string_view) const { return kEngineAccessRead; }
    // One item of data and nothing else (the single-file compressors).
    virtual bool SingleItem(std::string_view) const { return false; }

    virtual Result OpenReader(const ReadRequest &, std::unique_ptr<ReadCursor> &) const {
        return kEngineNotImplemented;
    }

    virtual bool CanWrite(std::string_view) const { return false; }
    // The writer copies the items of the archive at `path` as they are
    // stored (WriteItem::copy) when it writes the id with the session's
    // `format` properties.
    virtual bool KeepsStoredForm(std::string_view, const std::string & /*path*/,
                                 const PropertyMap & /*format*/) const {
        return false;
    }
    // The writer keeps comments of archives of the id.
    virtual bool KeepsComments(std::string_view) const { return false; }
    // Files from disk of at least this size are fed to the writer before
    // the others (0: everything in the caller's order). A writer that codes
    // blocks side by side then starts the longest work first, instead of
    // leaving one core alone with a large file's blocks at the end.
    virtual std::uint64_t LargeItemsFirstFrom(std::string_view) const { return 0; }
    virtual Result Write(const WriteRequest &, ItemFeed &) const { return kEngineNotImplemented; }
    // The extension a new archive of the id gets, with its dot.
    virtual std::wstring Extension(std::string_view id, std::string_view postEncoding) const;
    // Ranges and defaults of format properties for the current settings,
    // and the values the writer uses. kEnginePropertyNotApplicable when the
    // format has no such property.
    virtual Result FormatValue(std::string_view id, const PropertyMap &properties,
                               std::string_view name, std::int32_t &value) const;
};

// The table of drivers, in the order their content tests run.
const std::vector<const Driver *> &Drivers();
const Driver *DriverFor(std::string_view id);
// The format id of a file's content; kEngineNotAnArchive for none.
Result DetermineFormat(const std::string &path, std::string &id);

// Each driver file defines one of these; the table lists them.
const Driver &ZipDriver();
const Driver &SevenZipDriver();
const Driver &TarDriver();
const Driver &StreamDriver();
const Driver &ReadOnlyArchiveDriver();
const Driver &TextEncodingDriver();
const Driver &MacEncodingDriver();
const Driver &LegacyCompressorDriver();
const Driver &OwnFormatsDriver();
const Driver &PrivateFileDriver();

}  // namespace engine
