// A vnkx or vnk5 archive as found in a file: where it starts, its trailer,
// key table and catalogue, and the reader and writer built on them.
#pragma once

#include <map>
#include <memory>
#include <optional>

#include "Driver.h"
#include "PasswordCipher.h"
#include "VnkxLayout.h"
#include "VnkxMethods.h"
#include "VnkxSegments.h"

namespace engine::vnkx {

struct ArchiveFile {
    std::string path;
    Flavour flavour = Flavour::Vnkx;
    std::uint64_t start = 0;  // of the signature in the file
    Trailer trailer;
    std::vector<KeyRecord> keys;
    std::uint8_t catalogueCipher = kCipherNone;
    std::uint32_t catalogueKeySlot = kNoKey;
    CatalogueBody body;
    // The key that opened an enciphered catalogue, so that a change can
    // encipher the new one the same way without asking again.
    std::optional<cipher::DerivedKey> catalogueKey;
    // One file, a set of segments, or an index and the archive it describes.
    std::shared_ptr<ArchiveSource> source;
};

// What a vnkx item keeps of its stored form: a writer of the same format
// copies its blocks as they are, with their key records.
struct StoredItem final : StoredData {
    std::shared_ptr<const ArchiveFile> archive;
    ItemEntry entry;
};

// Reads the trailer, the key table and the (plain) catalogue region of the
// archive that ends the file; asks `passwords` for an enciphered catalogue,
// and through `operation` for segments that are not beside `path`.
Result OpenArchiveFile(const std::string &path, PasswordSource *passwords, ArchiveFile &file,
                       Operation *operation = nullptr);
// The format version in the trailer of the archive at `path` (the last
// segment of a segmented one); none when it cannot be read.
std::optional<std::uint16_t> ArchiveVersion(const std::string &path);
// The flavour of the archive that ends the file, for the content test.
std::optional<Flavour> SniffArchive(const std::string &path, const std::vector<std::uint8_t> &tail,
                                    std::uint64_t fileSize);

std::unique_ptr<ReadCursor> MakeCursor(std::shared_ptr<const ArchiveFile> file,
                                       const ReadRequest &request);

struct WriteSettings {
    Flavour flavour = Flavour::Vnkx;
    MethodChoice choice;
    std::uint16_t version = kNewestVersion;
    bool solid = true;
    bool fold = true;
    bool filters = true;
    bool legacyNames = false;
    std::uint8_t cipher = kCipherAesGcm;  // with a password
    bool encryptCatalogue = false;
    unsigned redundancy = 0;  // percent of recovery data, 0 for none
    unsigned workers = 0;     // blocks coded at once; 0 codes them on the caller's thread
};

Result WriteArchive(const WriteRequest &request, ItemFeed &feed, const WriteSettings &settings);

// Items larger than this stream into blocks as they are read rather than
// being read whole first. Files from disk this large are fed ahead of the
// others: their blocks are the longest to code.
constexpr std::uint64_t kWholeItemLimit = 8ULL << 20;

// Writes a repaired copy of the archive under its own name into `folder`
// with its recovery record.
Result RecoverArchiveFile(const std::string &archive, const std::string &folder);

// Derives the key of a record from a password; false when it does not fit.
bool KeyFits(const KeyRecord &record, const std::string &password, cipher::DerivedKey &key);

}  // namespace engine::vnkx
