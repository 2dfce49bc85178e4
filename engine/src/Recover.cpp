// RecoverArchive for zip: every item whose data checks out is copied as it
// is stored into a new zip of the archive's name in the destination folder.
// The items are found through the central directory when it can be read,
// else by their local headers; stored and deflated data is decoded and held
// against its CRC before it is kept.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>

#include "ByteOrder.h"
#include "Changes.h"
#include "FileSystem.h"
#include "LibArchive.h"
#include "ZipDirectory.h"
#include "ZipFormat.h"
#include "ZipWriter.h"

namespace engine {
namespace {

using namespace zipformat;

constexpr std::size_t kChunk = 256 * 1024;

struct Candidate {
    std::wstring name;
    std::optional<std::wstring> comment;
    ZipStoredItem stored;
    bool sizesKnown = true;
};

struct LocalHeader {
    std::uint16_t flags = 0, method = 0, time = 0, date = 0;
    std::uint32_t crc = 0;
    std::uint64_t compressedSize = 0, size = 0;
    std::uint64_t dataAt = 0;
    std::wstring name;
};

bool ReadLocal(int fd, std::uint64_t fileSize, std::uint64_t offset, LocalHeader &header) {
    std::uint8_t fixed[30];
    if (offset + sizeof fixed > fileSize ||
        pread(fd, fixed, sizeof fixed, static_cast<off_t>(offset)) != sizeof fixed)
        return false;
    if (Le32(fixed) != kLocalSignature) return false;
    header.flags = Le16(fixed + 6);
    header.method = Le16(fixed + 8);
    header.time = Le16(fixed + 10);
    header.date = Le16(fixed + 12);
    header.crc = Le32(fixed + 14);
    header.compressedSize = Le32(fixed + 18);
    header.size = Le32(fixed + 22);
    std::uint16_t nameLength = Le16(fixed + 26), extraLength = Le16(fixed + 28);
    header.dataAt = offset + 30 + nameLength + extraLength;
    if (header.dataAt > fileSize) return false;
    std::vector<std::uint8_t> name(nameLength);
    if (nameLength &&
        pread(fd, name.data(), nameLength, static_cast<off_t>(offset + 30)) != nameLength)
        return false;
    header.name = ZipText(name.data(), name.size(), (header.flags & kFlagUtf8) != 0);
    return true;
}

// Decodes the item's data and holds it against its CRC and size; for a
// deflated item whose sizes are unknown (a data descriptor), the end of the
// stream tells where its data ends.
bool Intact(int fd, std::uint64_t fileSize, const LocalHeader &header, ZipStoredItem &item,
            bool sizesKnown) {
    if (item.method == 0) {
        if (!sizesKnown || item.compressedSize != item.size || header.dataAt + item.size > fileSize)
            return false;
        std::vector<std::uint8_t> buffer(kChunk);
        std::uint32_t crc = 0;
        for (std::uint64_t done = 0; done < item.size;) {
            std::size_t want =
                static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), item.size - done));
            if (pread(fd, buffer.data(), want, static_cast<off_t>(header.dataAt + done)) !=
                static_cast<ssize_t>(want))
                return false;
            crc = static_cast<std::uint32_t>(crc32(crc, buffer.data(), static_cast<uInt>(want)));
            done += want;
        }
        return crc == item.crc;
    }
    if (item.method != 8) return false;
    z_stream stream{};
    if (inflateInit2(&stream, -15) != Z_OK) return false;
    std::vector<std::uint8_t> in(kChunk), out(kChunk);
    std::uint64_t at = header.dataAt, produced = 0;
    std::uint32_t crc = 0;
    int status = Z_OK;
    while (status == Z_OK) {
        if (stream.avail_in == 0) {
            std::uint64_t left =
                sizesKnown ? header.dataAt + item.compressedSize - at : fileSize - at;
            std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(in.size(), left));
            if (want == 0) break;
            ssize_t got = pread(fd, in.data(), want, static_cast<off_t>(at));
            if (got <= 0) break;
            at += static_cast<std::uint64_t>(got);
            stream.next_in = in.data();
            stream.avail_in = static_cast<uInt>(got);
        }
        stream.next_out = out.data();
        stream.avail_out = static_cast<uInt>(out.size());
        status = inflate(&stream, Z_NO_FLUSH);
        std::size_t made = out.size() - stream.avail_out;
        crc = static_cast<std::uint32_t>(crc32(crc, out.data(), static_cast<uInt>(made)));
        produced += made;
    }
    std::uint64_t consumed = at - stream.avail_in - header.dataAt;
    inflateEnd(&stream);
    if (status != Z_STREAM_END) return false;
    if (!sizesKnown) {
        // The descriptor after the data says what the header could not.
        std::uint8_t descriptor[16];
        std::uint64_t after = header.dataAt + consumed;
        if (pread(fd, descriptor, sizeof descriptor, static_cast<off_t>(after)) !=
            sizeof descriptor)
            return false;
        const std::uint8_t *fields = Le32(descriptor) == 0x08074b50 ? descriptor + 4 : descriptor;
        item.crc = Le32(fields);
        item.compressedSize = consumed;
        item.size = produced;
    }
    return consumed == item.compressedSize && produced == item.size && crc == item.crc;
}

std::vector<Candidate> FromDirectory(const ZipDirectory &directory) {
    std::vector<Candidate> candidates;
    for (const auto &entry : directory.entries) {
        Candidate candidate;
        candidate.name = entry.name;
        candidate.comment = entry.comment;
        candidate.stored = *entry.stored;
        candidates.push_back(std::move(candidate));
    }
    return candidates;
}

// Every local header in the file, when the directory is gone.
std::vector<Candidate> FromLocalHeaders(int fd, std::uint64_t fileSize) {
    std::vector<Candidate> candidates;
    std::vector<std::uint8_t> buffer(kChunk + 3);
    for (std::uint64_t base = 0; base < fileSize; base += kChunk) {
        std::size_t want =
            static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), fileSize - base));
        if (pread(fd, buffer.data(), want, static_cast<off_t>(base)) != static_cast<ssize_t>(want))
            break;
        for (std::size_t i = 0; i + 4 <= want && i < kChunk; ++i) {
            if (buffer[i] != 'P' || Le32(buffer.data() + i) != kLocalSignature) continue;
            LocalHeader header;
            if (!ReadLocal(fd, fileSize, base + i, header)) continue;
            Candidate candidate;
            candidate.name = header.name;
            candidate.stored.localOffset = base + i;
            candidate.stored.flags = header.flags;
            candidate.stored.method = header.method;
            candidate.stored.crc = header.crc;
            candidate.stored.compressedSize = header.compressedSize;
            candidate.stored.size = header.size;
            candidate.stored.externalAttributes = candidate.name.ends_with(L"/") ? 0x10 : 0;
            candidate.sizesKnown = !(header.flags & kFlagDescriptor);
            candidates.push_back(std::move(candidate));
        }
    }
    return candidates;
}

class RecoveredFeed final : public ItemFeed {
public:
    RecoveredFeed(std::vector<WriteItem> items) : items_(std::move(items)) {}
    Result Next(WriteItem &item) override {
        if (next_ >= items_.size()) return kEngineNoMoreObjects;
        item = items_[next_++];
        return kEngineOK;
    }

private:
    std::vector<WriteItem> items_;
    std::size_t next_ = 0;
};

}  // namespace

Result RecoverZip(Operation &operation, const std::string &archive, const std::string &folder) {
    UniqueFd file(open(archive.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.valid()) return LastErrno();
    int fd = file.get();
    struct stat info {};
    if (fstat(fd, &info) != 0) return LastErrno();
    auto fileSize = static_cast<std::uint64_t>(info.st_size);
    std::string target = folder + "/" + NameOf(archive);
    char *realSource = realpath(archive.c_str(), nullptr);
    char *realFolder = realpath(folder.c_str(), nullptr);
    bool same =
        realSource && realFolder && std::string(realFolder) + "/" + NameOf(archive) == realSource;
    free(realSource);
    free(realFolder);
    if (same) return kEngineDestinationRefused;  // the damaged archive is kept as it is

    ZipDirectory directory;
    bool fromDirectory = ReadZipDirectory(archive, directory) == kEngineOK;
    std::vector<Candidate> candidates =
        fromDirectory ? FromDirectory(directory) : FromLocalHeaders(fd, fileSize);
    std::vector<std::shared_ptr<ZipStoredItem>> kept;
    std::vector<WriteItem> items;
    std::size_t dropped = 0;
    for (auto &candidate : candidates) {
        if (Result stop = operation.Verifying(candidate.stored.compressedSize)) return stop;
        LocalHeader header;
        bool folderItem = candidate.name.ends_with(L"/");
        bool enciphered = (candidate.stored.flags & kFlagEncrypted) != 0;
        if (!ReadLocal(fd, fileSize, candidate.stored.localOffset, header) || enciphered ||
            (!folderItem &&
             !Intact(fd, fileSize, header, candidate.stored, candidate.sizesKnown))) {
            ++dropped;
            continue;
        }
        auto stored = std::make_shared<ZipStoredItem>(candidate.stored);
        stored->flags &= static_cast<std::uint16_t>(~kFlagDescriptor);  // the sizes are known now
        kept.push_back(stored);
        WriteItem item;
        item.info.path = CleanItemPath(candidate.name);
        item.info.folder = folderItem;
        item.info.size = stored->size;
        item.info.modified = FileTimeFromDos(header.date, header.time);
        item.info.comment = candidate.comment;
        if (!folderItem) {
            item.copy = stored.get();
            item.copyFrom = archive;
        }
        items.push_back(std::move(item));
    }
    if (items.empty()) return kEngineNotRecoverable;
    std::string temporary;
    if (Result result = TemporaryBeside(target, temporary)) return result;
    WriteRequest request;
    request.path = temporary;
    request.formatId = "zip";
    request.comment = directory.comment;
    request.threads = false;
    request.operation = &operation;
    RecoveredFeed feed(std::move(items));
    Result result = WriteZip(request, feed, ZipWriteSettings());
    if (result != kEngineOK) {
        unlink(temporary.c_str());
        return result;
    }
    if (Result placed = PutInPlace(temporary, target)) return placed;
    return dropped ? kEngineItemDataDamaged : kEngineOK;
}

}  // namespace engine
