#include "SelfExtracting.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Driver.h"
#include "FileSystem.h"
#include "Sniff.h"

namespace engine::sfx {

namespace {

constexpr const char *kStubName = "varnick-sfx";
constexpr const char *kExtension = ".sea";

using Bytes = std::vector<std::uint8_t>;

void PutLe(std::uint8_t *out, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

Result ReadAt(int fd, std::uint64_t offset, void *out, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t got = pread(fd, static_cast<std::uint8_t *>(out) + done, size - done,
                            static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return LastErrno();
        if (got == 0) return kEngineArchiveTruncated;
        done += static_cast<std::size_t>(got);
    }
    return kEngineOK;
}

Result WriteAt(int fd, std::uint64_t offset, const void *data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t put = pwrite(fd, static_cast<const std::uint8_t *>(data) + done, size - done,
                             static_cast<off_t>(offset + done));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return LastErrno();
        done += static_cast<std::size_t>(put);
    }
    return kEngineOK;
}

Result FileSize(int fd, std::uint64_t &size) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return LastErrno();
    size = static_cast<std::uint64_t>(info.st_size);
    return kEngineOK;
}

// Copies all of `from` to `to` at `offset`, in pieces.
Result CopyInto(int from, int to, std::uint64_t offset) {
    Bytes buffer(1 << 20);
    for (std::uint64_t at = 0;;) {
        ssize_t got = pread(from, buffer.data(), buffer.size(), static_cast<off_t>(at));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return LastErrno();
        if (got == 0) return kEngineOK;
        if (Result r = WriteAt(to, offset + at, buffer.data(), static_cast<std::size_t>(got)))
            return r;
        at += static_cast<std::uint64_t>(got);
    }
}

// Moves every offset a zip keeps (central directory, local headers, zip64
// records) `shift` bytes on, in the copy that starts at `base` in `out`.
class ZipShifter {
public:
    ZipShifter(int in, int out, std::uint64_t base) : in_(in), out_(out), base_(base) {}

    Result Shift() {
        std::uint64_t size = 0;
        if (Result r = FileSize(in_, size)) return r;
        if (Result r = FindEnd(size)) return r;
        Bytes end(22);
        if (Result r = ReadAt(in_, endAt_, end.data(), end.size())) return r;
        std::uint64_t cdSize = sniff::Le32(end, 12), cdOffset = sniff::Le32(end, 16);
        bool zip64 = false;
        Bytes locator(20), record(56);
        std::uint64_t recordAt = 0;
        if (endAt_ >= 20 && ReadAt(in_, endAt_ - 20, locator.data(), 20) == kEngineOK &&
            sniff::Le32(locator, 0) == 0x07064b50) {
            recordAt = sniff::Le64(locator, 8);
            if (Result r = ReadAt(in_, recordAt, record.data(), record.size())) return r;
            if (sniff::Le32(record, 0) != 0x06064b50) return kEngineArchiveDamaged;
            zip64 = true;
            cdSize = sniff::Le64(record, 40);
            cdOffset = sniff::Le64(record, 48);
        }
        if (cdOffset + cdSize > endAt_ || cdSize > (std::uint64_t{1} << 32))
            return kEngineArchiveDamaged;
        Bytes directory(static_cast<std::size_t>(cdSize));
        if (Result r = ReadAt(in_, cdOffset, directory.data(), directory.size())) return r;
        if (Result r = ShiftDirectory(directory)) return r;
        if (Result r = WriteAt(out_, base_ + cdOffset, directory.data(), directory.size()))
            return r;
        if (sniff::Le32(end, 16) != 0xFFFFFFFF) {
            if (Result r = Shifted32(end, 16)) return r;
            if (Result r = WriteAt(out_, base_ + endAt_, end.data(), end.size())) return r;
        }
        if (zip64) {
            PutLe(&locator[8], recordAt + base_, 8);
            PutLe(&record[48], cdOffset + base_, 8);
            if (Result r = WriteAt(out_, base_ + endAt_ - 20, locator.data(), 20)) return r;
            if (Result r = WriteAt(out_, base_ + recordAt, record.data(), record.size())) return r;
        }
        return kEngineOK;
    }

private:
    // The end record: the last "PK\5\6" whose comment reaches the file's end.
    Result FindEnd(std::uint64_t size) {
        std::uint64_t span = std::min<std::uint64_t>(size, 65535 + 22);
        Bytes tail(static_cast<std::size_t>(span));
        if (Result r = ReadAt(in_, size - span, tail.data(), tail.size())) return r;
        for (std::size_t at = tail.size() >= 22 ? tail.size() - 22 + 1 : 0; at-- > 0;) {
            if (sniff::Le32(tail, at) == 0x06054b50 &&
                at + 22 + sniff::Le16(tail, at + 20) == tail.size()) {
                endAt_ = size - span + at;
                return kEngineOK;
            }
        }
        return kEngineNotAnArchive;
    }

    Result Shifted32(Bytes &bytes, std::size_t at) {
        std::uint64_t value = sniff::Le32(bytes, at) + base_;
        if (value >= 0xFFFFFFFF) return kEngineArchiveTooLarge;
        PutLe(&bytes[at], value, 4);
        return kEngineOK;
    }

    Result ShiftDirectory(Bytes &cd) {
        for (std::size_t at = 0; at + 46 <= cd.size();) {
            if (sniff::Le32(cd, at) != 0x02014b50) return kEngineArchiveDamaged;
            std::size_t nameLength = sniff::Le16(cd, at + 28),
                        extraLength = sniff::Le16(cd, at + 30),
                        commentLength = sniff::Le16(cd, at + 32);
            std::size_t next = at + 46 + nameLength + extraLength + commentLength;
            if (next > cd.size()) return kEngineArchiveDamaged;
            if (sniff::Le32(cd, at + 42) != 0xFFFFFFFF) {
                if (Result r = Shifted32(cd, at + 42)) return r;
            } else if (Result r = ShiftZip64Extra(cd, at, at + 46 + nameLength, extraLength)) {
                return r;
            }
            at = next;
        }
        return kEngineOK;
    }

    // The zip64 extra field holds, in order, only the values whose 32-bit
    // fields are all ones: sizes, then the local header's offset.
    Result ShiftZip64Extra(Bytes &cd, std::size_t header, std::size_t extra, std::size_t length) {
        for (std::size_t at = extra; at + 4 <= extra + length;) {
            std::size_t id = sniff::Le16(cd, at), size = sniff::Le16(cd, at + 2);
            if (at + 4 + size > extra + length) break;
            if (id == 0x0001) {
                std::size_t field = at + 4;
                if (sniff::Le32(cd, header + 24) == 0xFFFFFFFF) field += 8;
                if (sniff::Le32(cd, header + 20) == 0xFFFFFFFF) field += 8;
                if (field + 8 > at + 4 + size) return kEngineArchiveDamaged;
                PutLe(&cd[field], sniff::Le64(cd, field) + base_, 8);
                return kEngineOK;
            }
            at += 4 + size;
        }
        return kEngineArchiveDamaged;
    }

    int in_, out_;
    std::uint64_t base_;
    std::uint64_t endAt_ = 0;
};

bool AppendsPlainly(const std::string &formatId) {
    return formatId == "vnkx" || formatId == "vnk5" || formatId == "vnk";
}

}  // namespace

bool Supports(const std::string &formatId) { return formatId == "zip" || AppendsPlainly(formatId); }

std::string StubPath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&StubPath), &info) == 0 || !info.dli_fname) return {};
    std::string library = info.dli_fname;
    std::size_t slash = library.find_last_of('/');
    std::string stub = (slash == std::string::npos ? std::string(".") : library.substr(0, slash)) +
                       "/" + kStubName;
    return access(stub.c_str(), R_OK) == 0 ? stub : std::string();
}

Result WriteSelfExtracting(const std::string &archive, const std::string &formatId,
                           const std::string &output) {
    bool zip = formatId == "zip";
    if (!Supports(formatId)) return kEngineSfxUnsupported;
    std::string stubPath = StubPath();
    if (stubPath.empty()) return kEngineSfxModuleMissing;
    UniqueFd stub(open(stubPath.c_str(), O_RDONLY | O_CLOEXEC));
    UniqueFd in(open(archive.c_str(), O_RDONLY | O_CLOEXEC));
    if (!stub.valid()) return kEngineSfxModuleMissing;
    if (!in.valid()) return LastErrno();
    UniqueFd out(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0755));
    if (!out.valid()) return LastErrno();
    // The mode given to open is cut by the umask; a program must run.
    if (fchmod(out.get(), 0755) != 0) return LastErrno();
    std::uint64_t stubSize = 0;
    if (Result r = FileSize(stub.get(), stubSize)) return r;
    if (Result r = CopyInto(stub.get(), out.get(), 0)) return r;
    if (Result r = CopyInto(in.get(), out.get(), stubSize)) return r;
    if (zip) return ZipShifter(in.get(), out.get(), stubSize).Shift();
    return kEngineOK;
}

Result MakeSelfExtracting(const std::string &archive, const std::string &formatId) {
    std::string temporary;
    if (Result r = TemporaryBeside(archive, temporary)) return r;
    Result result = WriteSelfExtracting(archive, formatId, temporary);
    if (result != kEngineOK) {
        unlink(temporary.c_str());
        return result;
    }
    return PutInPlace(temporary, archive);
}

Result AddSelfExtracting(const std::string &archive, std::string &written) {
    std::string formatId;
    if (Result r = DetermineFormat(archive, formatId)) return r;
    if (!Supports(formatId)) return kEngineSfxUnsupported;
    std::string output = SelfExtractingName(archive);
    std::string temporary;
    if (Result r = TemporaryBeside(output, temporary)) return r;
    Result result = WriteSelfExtracting(archive, formatId, temporary);
    if (result != kEngineOK) {
        unlink(temporary.c_str());
        return result;
    }
    if (Result r = PutInPlace(temporary, output)) return r;
    written = output;
    return kEngineOK;
}

std::string SelfExtractingName(const std::string &archive) {
    std::string folder = ParentOf(archive), name = NameOf(archive);
    std::size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    return UniquePath((folder.empty() ? std::string() : folder + "/") + name + kExtension);
}

std::uint64_t ElfImageEnd(int fd) {
    Elf64_Ehdr header{};
    if (ReadAt(fd, 0, &header, sizeof header) != kEngineOK ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64)
        return 0;
    std::uint64_t end = sizeof header;
    end = std::max<std::uint64_t>(
        end, header.e_phoff + std::uint64_t{header.e_phnum} * header.e_phentsize);
    end = std::max<std::uint64_t>(
        end, header.e_shoff + std::uint64_t{header.e_shnum} * header.e_shentsize);
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment{};
        if (ReadAt(fd, header.e_phoff + std::uint64_t{i} * header.e_phentsize, &segment,
                   sizeof segment) != kEngineOK)
            return 0;
        end = std::max<std::uint64_t>(end, segment.p_offset + segment.p_filesz);
    }
    for (unsigned i = 0; i < header.e_shnum; ++i) {
        Elf64_Shdr section{};
        if (ReadAt(fd, header.e_shoff + std::uint64_t{i} * header.e_shentsize, &section,
                   sizeof section) != kEngineOK)
            return 0;
        if (section.sh_type != SHT_NOBITS)
            end = std::max<std::uint64_t>(end, section.sh_offset + section.sh_size);
    }
    return end;
}

}  // namespace engine::sfx
