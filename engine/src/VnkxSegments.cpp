// Segments of a vnkx: cutting a finished archive into parts, and reading a
// set of parts as one byte range, asking for parts that are not where the
// set was opened.
#include "VnkxSegments.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "FileSystem.h"
#include "Handles.h"
#include "Operation.h"
#include "VnkxArchive.h"

namespace engine::vnkx {
namespace {

constexpr std::uint8_t kSegmentSignature[8] = {'V', 'N', 'K', 'S', 0x1A, 0x0D, 0x0A, 0x00};
constexpr std::uint8_t kSegmentHeaderEnd[4] = {'V', 'N', 'S', 'E'};
constexpr std::size_t kSegmentCrcAt = 96;
constexpr std::size_t kCopyChunk = 1 << 20;
// A procedure that keeps answering with places where the part is not gets
// asked this often before the part counts as missing.
constexpr int kMostAsks = 16;

bool EndsWithVnkx(const std::string &name) {
    static const char kSuffix[] = ".vnkx";
    const std::size_t length = sizeof kSuffix - 1;
    if (name.size() < length) return false;
    for (std::size_t i = 0; i < length; ++i) {
        char c = name[name.size() - length + i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != kSuffix[i]) return false;
    }
    return true;
}

bool IsFolder(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::uint64_t FileSize(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

// Folders where parts of a set (or the archive of an index) were found
// after asking, by the set's id: an archive is opened more than once in
// one operation (its catalogue, then its data), and the answer holds for
// each opening. Whatever is found there is checked like any other part.
class RememberedPlaces {
public:
    void Note(const std::string &key, const std::string &folder) {
        std::lock_guard lock(mutex_);
        for (auto &entry : entries_)
            if (entry.first == key && entry.second == folder) return;
        if (entries_.size() >= kMost) entries_.erase(entries_.begin());
        entries_.emplace_back(key, folder);
    }
    std::vector<std::string> Of(const std::string &key) const {
        std::lock_guard lock(mutex_);
        std::vector<std::string> folders;
        for (auto it = entries_.rbegin(); it != entries_.rend(); ++it)
            if (it->first == key) folders.push_back(it->second);
        return folders;
    }

private:
    static constexpr std::size_t kMost = 64;
    mutable std::mutex mutex_;
    std::vector<std::pair<std::string, std::string>> entries_;
};

RememberedPlaces &Remembered() {
    static RememberedPlaces places;
    return places;
}

template <std::size_t N>
std::string KeyOf(const std::array<std::uint8_t, N> &id) {
    return std::string(id.begin(), id.end());
}

Result RaiseSegmentBegun(Operation &operation, const std::string &path) {
    if (operation.Cancelled()) return kEngineCancelled;
    OpaqueNotificationContext context;
    Ref<OpaqueFSObject> file = NewFSObjectNative(path);
    context.PutHandle(kContextFSObject, file.get());
    operation.Raise(kNotifyWorkCategory, kNotifySegmentBegun, context);
    return operation.Status();
}

// (200,10) for a file by name: gives the file the answer leads to (the
// answer may be its folder or the file itself).
Result AskWhere(Operation *operation, const std::string &name, std::string &candidate) {
    if (!operation) return kEngineSegmentMissing;
    if (operation->Cancelled()) return kEngineCancelled;
    OpaqueNotificationContext context;
    Ref<OpaqueStringRef> wanted = NewString(Wide(name));
    context.PutHandle(kContextName, wanted.get());
    std::int32_t answer = operation->Raise(kNotifyRequestCategory, kNotifySegmentMissing, context);
    if (operation->Cancelled()) return kEngineCancelled;
    Ref<OpaqueFSObject> where = Ref<OpaqueFSObject>::Adopt(
        static_cast<OpaqueFSObject *>(context.TakeWritten(kContextLocation, Kind::FSObject)));
    if (answer == kNotificationNotHandled || !where) return kEngineSegmentMissing;
    candidate = where->Native();
    if (IsFolder(candidate)) candidate += "/" + name;
    return kEngineOK;
}

class FileBytes final : public ArchiveBytes {
public:
    FileBytes(std::string path, int fd, std::uint64_t size)
        : path_(std::move(path)), fd_(fd), size_(size) {}
    std::uint64_t size() const override { return size_; }
    Result ReadAt(std::uint64_t offset, void *buffer, std::size_t size) override {
        if (offset > size_ || size > size_ - offset) return kEngineArchiveTruncated;
        return ReadExactly(fd_.get(), offset, buffer, size);
    }
    std::vector<std::string> Files() const override { return {path_}; }

private:
    std::string path_;
    UniqueFd fd_;
    std::uint64_t size_;
};

struct Part {
    std::string path;
    SegmentHeader header;
};

// What a part must say of itself to be the `number`th of the set `first`
// belongs to, following the parts before it.
bool Follows(const SegmentHeader &header, const SegmentHeader &first, std::uint32_t number,
             std::uint64_t offset) {
    return header.number == number && header.count == first.count && header.setId == first.setId &&
           header.archiveLength == first.archiveLength && header.offset == offset &&
           header.size <= header.archiveLength - offset &&
           (number == header.count) == ((header.flags & kSegmentLast) != 0) &&
           (number != header.count || header.offset + header.size == header.archiveLength);
}

std::optional<Part> PartAt(const std::string &path, const SegmentHeader &first,
                           std::uint32_t number, std::uint64_t offset) {
    std::optional<SegmentHeader> header = ReadSegmentHeader(path);
    if (!header || !Follows(*header, first, number, offset) ||
        FileSize(path) != kSegmentHeaderSize + header->size)
        return std::nullopt;
    return Part{path, *header};
}

bool Sound(const Part &part) {
    UniqueFd fd(open(part.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) return false;
    Digest digest = NewDigest();
    Bytes chunk(kCopyChunk);
    for (std::uint64_t done = 0; done < part.header.size;) {
        std::size_t want = static_cast<std::size_t>(
            std::min<std::uint64_t>(chunk.size(), part.header.size - done));
        if (ReadExactly(fd.get(), kSegmentHeaderSize + done, chunk.data(), want) != kEngineOK)
            return false;
        UpdateDigest(digest, chunk.data(), want);
        done += want;
    }
    return FinishDigest(digest) == part.header.hash;
}

// Finds the `number`th part: at `expected`, else where (200,10) leads.
// With `sound`, a copy must also hold what its header's hash says.
Result FindPart(Operation *operation, const std::string &expected, const SegmentHeader &first,
                std::uint32_t number, std::uint64_t offset, bool sound, Part &found) {
    auto fits = [&](const std::string &candidate) {
        std::optional<Part> part = PartAt(candidate, first, number, offset);
        if (!part || (sound && !Sound(*part))) return false;
        found = *part;
        return true;
    };
    if (fits(expected)) return kEngineOK;
    for (const std::string &folder : Remembered().Of(KeyOf(first.setId)))
        if (fits(folder + "/" + NameOf(expected))) return kEngineOK;
    for (int asked = 0; asked < kMostAsks; ++asked) {
        std::string candidate;
        if (Result result = AskWhere(operation, NameOf(expected), candidate)) return result;
        if (fits(candidate)) {
            Remembered().Note(KeyOf(first.setId), ParentOf(candidate));
            return kEngineOK;
        }
    }
    return kEngineSegmentMissing;
}

class SegmentSet final : public ArchiveBytes {
public:
    SegmentSet(std::string base, std::vector<Part> parts)
        : base_(std::move(base)), parts_(std::move(parts)) {}

    std::uint64_t size() const override { return parts_.front().header.archiveLength; }

    Result ReadAt(std::uint64_t offset, void *buffer, std::size_t size) override {
        if (offset > this->size() || size > this->size() - offset) return kEngineArchiveTruncated;
        auto *out = static_cast<std::uint8_t *>(buffer);
        std::lock_guard lock(mutex_);
        for (const Part &part : parts_) {
            if (size == 0) break;
            const SegmentHeader &header = part.header;
            if (offset >= header.offset + header.size) continue;
            std::uint64_t inPart = offset - header.offset;
            std::size_t take =
                static_cast<std::size_t>(std::min<std::uint64_t>(size, header.size - inPart));
            UniqueFd fd(open(part.path.c_str(), O_RDONLY | O_CLOEXEC));
            if (!fd.valid()) return kEngineSegmentMissing;
            if (Result result = ReadExactly(fd.get(), kSegmentHeaderSize + inPart, out, take))
                return result;
            out += take;
            offset += take;
            size -= take;
        }
        return kEngineOK;
    }

    Result ReplaceDamaged(std::uint64_t offset, std::uint64_t size, Operation *operation) override {
        std::lock_guard lock(mutex_);
        for (Part &part : parts_) {
            const SegmentHeader &header = part.header;
            bool overlaps = offset < header.offset + header.size && header.offset < offset + size;
            if (!overlaps || Sound(part)) continue;
            // The damaged part is named to the caller by asking for a sound
            // copy of it.
            Part copy;
            std::string expected = SegmentPath(base_, header.number, header.count);
            Result result = AskForCopy(operation, part, expected, copy);
            if (result == kEngineSegmentMissing) return kEngineItemDataDamaged;
            if (result != kEngineOK) return result;
            part = copy;
            return kEngineOK;
        }
        return kEngineItemDataDamaged;
    }

    std::vector<std::string> Files() const override {
        std::vector<std::string> files;
        for (const Part &part : parts_) files.push_back(part.path);
        return files;
    }
    bool Segmented() const override { return true; }

private:
    static Result AskForCopy(Operation *operation, const Part &damaged, const std::string &expected,
                             Part &copy) {
        for (int asked = 0; asked < kMostAsks; ++asked) {
            std::string candidate;
            if (Result result = AskWhere(operation, NameOf(expected), candidate)) return result;
            std::optional<Part> part =
                PartAt(candidate, damaged.header, damaged.header.number, damaged.header.offset);
            if (part && part->path != damaged.path && Sound(*part)) {
                copy = *part;
                return kEngineOK;
            }
        }
        return kEngineSegmentMissing;
    }

    std::string base_;
    std::vector<Part> parts_;
    std::mutex mutex_;
};

Result OpenSet(const std::string &path, const SegmentHeader &opened, Operation *operation,
               std::shared_ptr<ArchiveBytes> &bytes) {
    std::optional<std::string> base = SegmentBase(path);
    if (!base && opened.count > 1) return kEngineSegmentMissing;
    std::vector<Part> parts;
    std::uint64_t offset = 0;
    for (std::uint32_t number = 1; number <= opened.count; ++number) {
        Part part;
        if (number == opened.number) {
            if (!Follows(opened, opened, number, offset)) return kEngineSegmentOrder;
            part = Part{path, opened};
        } else if (Result result = FindPart(operation, SegmentPath(*base, number, opened.count),
                                            opened, number, offset, false, part)) {
            return result;
        }
        offset += part.header.size;
        parts.push_back(std::move(part));
    }
    bytes = std::make_shared<SegmentSet>(base.value_or(path), std::move(parts));
    return kEngineOK;
}

}  // namespace

Result ReadExactly(int fd, std::uint64_t offset, void *buffer, std::size_t size) {
    auto *bytes = static_cast<std::uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < size) {
        ssize_t got = pread(fd, bytes + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0) return LastErrno();
        if (got == 0) return kEngineArchiveTruncated;
        done += static_cast<std::size_t>(got);
    }
    return kEngineOK;
}

Bytes EncodeSegmentHeader(const SegmentHeader &header) {
    Writer out;
    out.Raw(kSegmentSignature, sizeof kSegmentSignature);
    out.U16(header.version);
    out.U16(header.flags);
    out.U32(header.number);
    out.U32(header.count);
    out.U32(0);
    out.Raw(header.setId.data(), header.setId.size());
    out.U64(header.offset);
    out.U64(header.size);
    out.U64(header.archiveLength);
    out.Raw(header.hash.data(), header.hash.size());
    out.U32(Crc32(out.bytes.data(), out.bytes.size()));
    out.Raw(kSegmentHeaderEnd, sizeof kSegmentHeaderEnd);
    return out.bytes;
}

bool HasSegmentSignature(const std::uint8_t *data, std::size_t size) {
    return size >= sizeof kSegmentSignature &&
           std::memcmp(data, kSegmentSignature, sizeof kSegmentSignature) == 0;
}

bool DecodeSegmentHeader(const std::uint8_t *data, std::size_t size, SegmentHeader &header) {
    std::uint32_t crc = 0;
    if (size < kSegmentHeaderSize || !HasSegmentSignature(data, size) ||
        std::memcmp(data + kSegmentCrcAt + 4, kSegmentHeaderEnd, 4) != 0 ||
        !Reader(data + kSegmentCrcAt, 4).U32(crc) || Crc32(data, kSegmentCrcAt) != crc)
        return false;
    Reader in(data + sizeof kSegmentSignature, kSegmentCrcAt - sizeof kSegmentSignature);
    std::uint32_t reserved = 0;
    bool read = in.U16(header.version) && in.U16(header.flags) && in.U32(header.number) &&
                in.U32(header.count) && in.U32(reserved) &&
                in.Raw(header.setId.data(), header.setId.size()) && in.U64(header.offset) &&
                in.U64(header.size) && in.U64(header.archiveLength) &&
                in.Raw(header.hash.data(), header.hash.size());
    return read && header.number >= 1 && header.number <= header.count &&
           header.offset <= header.archiveLength;
}

std::optional<SegmentHeader> ReadSegmentHeader(const std::string &path) {
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::uint8_t bytes[kSegmentHeaderSize];
    SegmentHeader header;
    if (!fd.valid() || ReadExactly(fd.get(), 0, bytes, sizeof bytes) != kEngineOK ||
        !DecodeSegmentHeader(bytes, sizeof bytes, header))
        return std::nullopt;
    return header;
}

std::string SegmentPath(const std::string &base, std::uint32_t number, std::uint32_t count) {
    int width = std::max(2, static_cast<int>(std::to_string(count).size()));
    char part[32];
    std::snprintf(part, sizeof part, ".part%0*u.vnkx", width, number);
    return base + part;
}

std::optional<std::string> SegmentBase(const std::string &path) {
    if (!EndsWithVnkx(path)) return std::nullopt;
    std::string stem = path.substr(0, path.size() - 5);
    std::size_t part = stem.rfind(".part");
    if (part == std::string::npos || part < stem.find_last_of('/') + 1) return std::nullopt;
    std::string number = stem.substr(part + 5);
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return stem.substr(0, part);
}

std::string SegmentBaseOfOutput(const std::string &output) {
    return EndsWithVnkx(output) ? output.substr(0, output.size() - 5) : output;
}

Result WriteSegments(Operation &operation, const std::string &archive, const std::string &base,
                     std::uint64_t partSize, std::vector<std::string> &parts) {
    if (partSize <= kSegmentHeaderSize) return kEngineInvalidParameter;
    UniqueFd source(open(archive.c_str(), O_RDONLY | O_CLOEXEC));
    if (!source.valid()) return LastErrno();
    const std::uint64_t length = FileSize(archive);
    const std::uint64_t room = partSize - kSegmentHeaderSize;
    const std::uint64_t count = std::max<std::uint64_t>(1, (length + room - 1) / room);
    if (count > 0xFFFFFFFFULL) return kEngineSegmentingFailed;
    SegmentHeader header;
    header.count = static_cast<std::uint32_t>(count);
    header.archiveLength = length;
    if (RAND_bytes(header.setId.data(), static_cast<int>(header.setId.size())) != 1)
        return kEngineSegmentingFailed;
    auto undo = [&](Result result) {
        for (const std::string &part : parts) unlink(part.c_str());
        parts.clear();
        return result;
    };
    Bytes chunk(kCopyChunk);
    for (std::uint32_t number = 1; number <= header.count; ++number) {
        std::string path = SegmentPath(base, number, header.count);
        if (Result stop = RaiseSegmentBegun(operation, path)) return undo(stop);
        UniqueFd out(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        if (!out.valid()) return undo(LastErrno());
        parts.push_back(path);
        header.number = number;
        header.offset = (number - 1) * room;
        header.size = std::min(room, length - header.offset);
        header.flags = number == header.count ? kSegmentLast : 0;
        Bytes placeholder(kSegmentHeaderSize, 0);
        if (Result result = WriteAll(out.get(), placeholder.data(), placeholder.size()))
            return undo(result);
        Digest digest = NewDigest();
        for (std::uint64_t done = 0; done < header.size;) {
            std::size_t want =
                static_cast<std::size_t>(std::min<std::uint64_t>(chunk.size(), header.size - done));
            if (Result result = ReadExactly(source.get(), header.offset + done, chunk.data(), want))
                return undo(result);
            UpdateDigest(digest, chunk.data(), want);
            if (Result result = WriteAll(out.get(), chunk.data(), want)) return undo(result);
            done += want;
            if (Result stop = operation.Work(want)) return undo(stop);
        }
        header.hash = FinishDigest(digest);
        Bytes encoded = EncodeSegmentHeader(header);
        if (pwrite(out.get(), encoded.data(), encoded.size(), 0) !=
            static_cast<ssize_t>(encoded.size()))
            return undo(LastErrno());
    }
    return kEngineOK;
}

Result OpenArchiveBytes(const std::string &path, Operation *operation,
                        std::shared_ptr<ArchiveBytes> &bytes) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return LastErrno();
    auto file = std::make_shared<FileBytes>(path, fd, FileSize(path));
    std::uint8_t head[kSegmentHeaderSize];
    if (file->size() < kSegmentHeaderSize || file->ReadAt(0, head, sizeof head) != kEngineOK ||
        !HasSegmentSignature(head, sizeof head)) {
        bytes = std::move(file);
        return kEngineOK;
    }
    SegmentHeader header;
    if (!DecodeSegmentHeader(head, sizeof head, header)) {
        // This part's own header is damaged; the first part knows the set.
        std::optional<std::string> base = SegmentBase(path);
        if (!base) return kEngineArchiveDamaged;
        std::string first = SegmentPath(*base, 1, 99);
        std::optional<SegmentHeader> known = ReadSegmentHeader(first);
        if (!known || first == path) return kEngineArchiveDamaged;
        return OpenSet(first, *known, operation, bytes);
    }
    return OpenSet(path, header, operation, bytes);
}

Result RecoverSegments(Operation &operation, const std::string &anyPart,
                       const std::string &folder) {
    std::shared_ptr<ArchiveBytes> bytes;
    if (Result result = OpenArchiveBytes(anyPart, &operation, bytes)) return result;
    std::vector<std::string> files = bytes->Files();
    std::optional<SegmentHeader> first = ReadSegmentHeader(files.front());
    std::optional<std::string> base = SegmentBase(files.front());
    if (!bytes->Segmented() || !first || !base) return kEngineNotRecoverable;
    std::string target = folder + "/" + NameOf(*base);
    if (ParentOf(files.front()) == folder) return kEngineDestinationRefused;

    // Joined beside the parts, repaired into the destination, cut there.
    std::string joined;
    if (Result result = TemporaryBeside(files.front(), joined)) return result;
    Result result = kEngineOK;
    {
        UniqueFd out(open(joined.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
        if (!out.valid()) result = LastErrno();
        Bytes chunk(kCopyChunk);
        for (std::uint64_t at = 0; result == kEngineOK && at < bytes->size();) {
            std::size_t want =
                static_cast<std::size_t>(std::min<std::uint64_t>(chunk.size(), bytes->size() - at));
            result = bytes->ReadAt(at, chunk.data(), want);
            if (result == kEngineOK) result = WriteAll(out.get(), chunk.data(), want);
            at += want;
        }
    }
    if (result == kEngineOK) result = RecoverArchiveFile(joined, folder);
    unlink(joined.c_str());
    if (result != kEngineOK) return result;
    std::string repaired = folder + "/" + NameOf(joined);
    std::vector<std::string> parts;
    result = WriteSegments(operation, repaired, target, kSegmentHeaderSize + first->size, parts);
    unlink(repaired.c_str());
    return result;
}

Result ArchiveSource::ReadData(std::uint64_t offset, void *buffer, std::size_t size,
                               Operation *operation) {
    if (!reference) return own->ReadAt(start + offset, buffer, size);
    std::lock_guard lock(mutex_);
    if (!data_) {
        if (Result result = FindIndexedArchive(operation)) return result;
    }
    return data_->ReadAt(dataStart_ + offset, buffer, size);
}

Result ArchiveSource::ReplaceDamaged(std::uint64_t offset, std::uint64_t size,
                                     Operation *operation) {
    if (!reference) return own->ReplaceDamaged(start + offset, size, operation);
    std::lock_guard lock(mutex_);
    if (!data_) return kEngineItemDataDamaged;
    return data_->ReplaceDamaged(dataStart_ + offset, size, operation);
}

Result ArchiveSource::FindIndexedArchive(Operation *operation) {
    const IndexReference &wanted = *reference;
    // The archive an index describes: its catalogue must be the index's.
    auto matches = [&](const std::string &candidate, std::shared_ptr<ArchiveBytes> &found,
                       std::uint64_t &foundStart) -> Result {
        if (Result result = OpenArchiveBytes(candidate, operation, found)) return result;
        std::uint64_t size = found->size();
        std::uint8_t end[kTrailerSize];
        Trailer trailer;
        if (size < wanted.archiveLength || wanted.archiveLength < kTrailerSize ||
            found->ReadAt(size - kTrailerSize, end, kTrailerSize) != kEngineOK ||
            !DecodeTrailer(end, kTrailerSize, trailer) ||
            trailer.archiveLength != wanted.archiveLength ||
            trailer.catalogueOffset != wanted.catalogueOffset ||
            trailer.catalogueSize != wanted.catalogueSize ||
            trailer.catalogueHash != wanted.catalogueHash)
            return kEngineIndexMismatch;
        foundStart = size - wanted.archiveLength;
        return kEngineOK;
    };
    std::shared_ptr<ArchiveBytes> found;
    std::uint64_t foundStart = 0;
    const std::string key = KeyOf(wanted.catalogueHash);
    std::vector<std::string> places = {ParentOf(ownPath)};
    for (const std::string &folder : Remembered().Of(key)) places.push_back(folder);
    Result result = kEngineSegmentMissing;
    for (const std::string &folder : places) {
        std::string candidate = folder + "/" + wanted.archiveName;
        if (access(candidate.c_str(), F_OK) == 0) result = matches(candidate, found, foundStart);
        if (result == kEngineOK || result == kEngineCancelled) break;
    }
    for (int asked = 0; result != kEngineOK && asked < kMostAsks; ++asked) {
        if (result == kEngineCancelled) return result;
        std::string candidate;
        if (Result answer = AskWhere(operation, wanted.archiveName, candidate)) return answer;
        if (access(candidate.c_str(), F_OK) != 0) continue;
        // A file that is there but is another archive is not asked for again.
        if ((result = matches(candidate, found, foundStart)) == kEngineIndexMismatch) return result;
        if (result == kEngineOK) Remembered().Note(key, ParentOf(candidate));
    }
    if (result != kEngineOK) return result;
    data_ = std::move(found);
    dataStart_ = foundStart;
    return kEngineOK;
}

}  // namespace engine::vnkx
