// The table of format drivers. Adding a format is one driver file and one
// line here; the order is the order of the content tests, the most specific
// magic first and the loose text tests last.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Driver.h"
#include "LibArchive.h"
#include "Sniff.h"

namespace engine {

const std::vector<const Driver *> &Drivers() {
    static const std::vector<const Driver *> table = {
        &PrivateFileDriver(),       // pf
        &OwnFormatsDriver(),        // vnkx, vnk5, pf
        &ZipDriver(),               // zip, also behind a self-extracting stub
        &SevenZipDriver(),          // 7z
        &ReadOnlyArchiveDriver(),   // rar, cab, lha, iso, cpio, ar, xar
        &TarDriver(),               // tar, plain or inside a compressed stream
        &StreamDriver(),            // gz, bz2, xz, lzma, zstd, lz4, compress
        &LegacyCompressorDriver(),  // arc, arj, cpt, sco, compact, freeze
        &MacEncodingDriver(),       // hqx, bin, apple
        &TextEncodingDriver(),      // uu, b64, btoa, yenc, mime
    };
    return table;
}

const Driver *DriverFor(std::string_view id) {
    for (const Driver *driver : Drivers())
        for (const auto &known : driver->Ids())
            if (known == id) return driver;
    return nullptr;
}

Result DetermineFormat(const std::string &path, std::string &id) {
    Utf8LocaleScope locale;
    SniffInput input(path);
    if (!input.readable()) return LastErrno();
    for (const Driver *driver : Drivers()) {
        if (auto found = driver->Sniff(input)) {
            id = *found;
            return kEngineOK;
        }
    }
    return kEngineNotAnArchive;
}

std::wstring Driver::Extension(std::string_view id, std::string_view) const {
    std::wstring extension = L".";
    for (char c : id) extension += static_cast<wchar_t>(c);
    return extension;
}

Result Driver::FormatValue(std::string_view, const PropertyMap &, std::string_view,
                           std::int32_t &) const {
    return kEnginePropertyNotApplicable;
}

SniffInput::SniffInput(std::string path) : path_(std::move(path)) {
    struct stat info {};
    if (stat(path_.c_str(), &info) != 0) return;
    if (S_ISDIR(info.st_mode)) {
        errno = EISDIR;
        return;
    }
    int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    close(fd);
    readable_ = true;
    size_ = static_cast<std::uint64_t>(info.st_size);
}

namespace {

std::vector<std::uint8_t> ReadRange(const std::string &path, std::uint64_t offset,
                                    std::size_t count) {
    std::vector<std::uint8_t> bytes(count);
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    std::size_t done = 0;
    while (done < count) {
        ssize_t got =
            pread(fd, bytes.data() + done, count - done, static_cast<off_t>(offset + done));
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    close(fd);
    bytes.resize(done);
    return bytes;
}

}  // namespace

const std::vector<std::uint8_t> &SniffInput::Head(std::size_t count) {
    if (readable_ && count > headAsked_) {
        headAsked_ = count;
        head_ =
            ReadRange(path_, 0, static_cast<std::size_t>(std::min<std::uint64_t>(count, size_)));
    }
    return head_;
}

const std::vector<std::uint8_t> &SniffInput::Tail() {
    if (readable_ && !tailRead_) {
        tailRead_ = true;
        std::uint64_t count = std::min<std::uint64_t>(size_, 64 * 1024 + 22);
        tail_ = ReadRange(path_, size_ - count, static_cast<std::size_t>(count));
    }
    return tail_;
}

const std::vector<std::uint8_t> &SniffInput::Unwrapped() {
    if (unwrappedRead_) return unwrapped_;
    unwrappedRead_ = true;
    if (!readable_ || !sniff::CompressedStream(Head())) return unwrapped_;
    archive *reader = archive_read_new();
    archive_read_support_filter_all(reader);
    archive_read_support_format_raw(reader);
    archive_entry *entry = nullptr;
    if (archive_read_open_filename(reader, path_.c_str(), 16 * 1024) == ARCHIVE_OK &&
        archive_read_next_header(reader, &entry) == ARCHIVE_OK) {
        unwrapped_.resize(4096);
        std::size_t done = 0;
        while (done < unwrapped_.size()) {
            la_ssize_t got =
                archive_read_data(reader, unwrapped_.data() + done, unwrapped_.size() - done);
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        unwrapped_.resize(done);
    }
    archive_read_free(reader);
    return unwrapped_;
}

}  // namespace engine
