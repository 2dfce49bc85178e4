#include "LibArchive.h"

#include <archive.h>
#include <archive_entry.h>

#include <locale.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "Handles.h"
#include "Operation.h"

namespace engine {
namespace {

constexpr std::int64_t kUnixEpochInFileTimeSeconds = 11644473600LL;
constexpr std::size_t kBlock = 256 * 1024;
// What libarchive sets as errno for a format error (EILSEQ on Linux) and for
// its other own errors (-1): not system errors to hand through.
constexpr int kFormatErrno = EILSEQ;

bool SystemError(int error) { return error > 0 && error != kFormatErrno && error != EINVAL; }

bool Mentions(const char *message, const char *word) {
    return message && strcasestr(message, word) != nullptr;
}

// The entry's path as text. The wide form first: libarchive makes it from
// names stored as UTF-16 or flagged UTF-8 whatever the process's locale,
// where the narrow forms need a locale that can hold the name.
std::wstring DecodedPath(archive_entry *entry, const char *raw) {
    if (const wchar_t *wide = archive_entry_pathname_w(entry)) return wide;
    if (const char *utf8 = archive_entry_pathname_utf8(entry)) return Wide(utf8);
    return WideFromStoredName(raw ? raw : "");
}

ItemInfo InfoFromEntry(archive_entry *entry) {
    ItemInfo info;
    const char *raw = archive_entry_pathname(entry);
    std::wstring decoded = DecodedPath(entry, raw);
    info.rawPath = raw ? raw : Utf8(decoded);
    info.folder =
        archive_entry_filetype(entry) == AE_IFDIR || (!decoded.empty() && decoded.back() == L'/');
    info.path = CleanItemPath(decoded);
    if (archive_entry_filetype(entry) == AE_IFLNK) {
        info.symlink = true;
        const char *target = archive_entry_symlink_utf8(entry);
        if (!target) target = archive_entry_symlink(entry);
        info.linkTarget = target ? WideFromStoredName(target) : std::wstring();
    }
    if (const char *hard = archive_entry_hardlink(entry)) {
        const char *hardUtf8 = archive_entry_hardlink_utf8(entry);
        info.hardlink = true;
        info.linkTarget = hardUtf8 ? Wide(hardUtf8) : WideFromStoredName(hard);
    }
    info.sizeKnown = archive_entry_size_is_set(entry) != 0;
    info.size =
        info.folder || !info.sizeKnown ? 0 : static_cast<std::uint64_t>(archive_entry_size(entry));
    if (archive_entry_mtime_is_set(entry))
        info.modified =
            FileTimeFromUnix(archive_entry_mtime(entry), archive_entry_mtime_nsec(entry));
    info.mode = static_cast<std::uint32_t>(archive_entry_perm(entry));
    info.encrypted = archive_entry_is_encrypted(entry) != 0;
    return info;
}

class LibarchiveCursor final : public ReadCursor {
public:
    LibarchiveCursor(const ReadRequest &request, std::wstring singleItemName)
        : request_(request), singleItemName_(std::move(singleItemName)) {}
    ~LibarchiveCursor() override {
        if (handle_) archive_read_free(handle_);
    }

    Result Open(EnableFormats enable) {
        handle_ = archive_read_new();
        if (!handle_) return kEngineOutOfMemory;
        enable(handle_);
        archive_read_set_passphrase_callback(handle_, this, &LibarchiveCursor::Passphrase);
        errno = 0;
        if (archive_read_open_filename(handle_, request_.path.c_str(), kBlock) != ARCHIVE_OK) {
            int error = archive_errno(handle_);
            if (SystemError(error)) return FromErrno(error);
            return kEngineWrongFormat;
        }
        return kEngineOK;
    }

    Result Next(ItemInfo &info) override {
        if (request_.operation && request_.operation->Cancelled()) return kEngineCancelled;
        archive_entry *entry = nullptr;
        int status = archive_read_next_header(handle_, &entry);
        if (status == ARCHIVE_EOF) return kEngineNoMoreObjects;
        if (status < ARCHIVE_WARN) {
            if (Result stop = PasswordOutcome()) return stop;
            bool first = index_ == kNoIndex;
            return Classify(first ? kEngineCatalogueDamaged : kEngineArchiveTruncated);
        }
        index_ = index_ == kNoIndex ? 0 : index_ + 1;
        info = InfoFromEntry(entry);
        currentEncrypted_ = info.encrypted;
        remaining_ =
            info.sizeKnown && !info.folder ? std::optional<std::uint64_t>(info.size) : std::nullopt;
        if (!singleItemName_.empty()) {
            info.path = singleItemName_;
            info.rawPath = Utf8(singleItemName_);
        }
        return kEngineOK;
    }

    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        got = 0;
        // Some readers (xar) hand out padding behind an item's data; what an
        // item holds is what its header says.
        if (remaining_) {
            if (*remaining_ == 0) return kEngineOK;
            size = static_cast<std::size_t>(std::min<std::uint64_t>(size, *remaining_));
        }
        la_ssize_t count = archive_read_data(handle_, buffer, size);
        if (count < 0) {
            if (Result stop = PasswordOutcome()) return stop;
            return Classify(kEngineItemDataDamaged);
        }
        got = static_cast<std::size_t>(count);
        if (remaining_) *remaining_ -= std::min<std::uint64_t>(*remaining_, got);
        if (givenPassword_ && currentEncrypted_ && request_.passwords)
            request_.passwords->Accepted();
        return kEngineOK;
    }

private:
    static const char *Passphrase(archive *, void *self) {
        auto *cursor = static_cast<LibarchiveCursor *>(self);
        if (!cursor->request_.passwords) return nullptr;
        Result result = cursor->request_.passwords->Next(cursor->index_, cursor->passphrase_);
        if (result != kEngineOK) {
            cursor->passwordFailure_ = result;
            return nullptr;
        }
        cursor->givenPassword_ = true;
        return cursor->passphrase_.c_str();
    }

    Result PasswordOutcome() {
        Result failure = passwordFailure_;
        passwordFailure_ = kEngineOK;
        if (failure != kEngineOK) return failure;
        if (request_.operation && request_.operation->Cancelled()) return kEngineCancelled;
        return kEngineOK;
    }

    Result Classify(Result fallback) {
        const char *message = archive_error_string(handle_);
        if (Mentions(message, "passphrase")) return kEnginePasswordNeeded;
        if (Mentions(message, "encrypt")) return kEngineEncryptionUnsupported;
        // A 7z coder it does not know is "Unknown codec", one it knows but not
        // in that place (a byte swap filter) "Unexpected codec".
        if (Mentions(message, "unsupported") || Mentions(message, "not supported") ||
            Mentions(message, "unknown codec") || Mentions(message, "unexpected codec"))
            return kEngineMethodUnsupported;
        if (Mentions(message, "truncated") || Mentions(message, "premature"))
            return kEngineArchiveTruncated;
        return LibarchiveFailure(handle_, fallback);
    }

    ReadRequest request_;
    std::wstring singleItemName_;
    archive *handle_ = nullptr;
    std::size_t index_ = kNoIndex;
    std::string passphrase_;
    bool givenPassword_ = false;
    Result passwordFailure_ = kEngineOK;
    bool currentEncrypted_ = false;
    std::optional<std::uint64_t> remaining_;
};

archive_entry *EntryFromItem(const ItemInfo &info, archive_entry *entry) {
    archive_entry_clear(entry);
    std::string path = Utf8(info.path);
    if (info.folder && (path.empty() || path.back() != '/')) path += '/';
    archive_entry_set_pathname_utf8(entry, path.c_str());
    if (info.folder) {
        archive_entry_set_filetype(entry, AE_IFDIR);
        archive_entry_set_perm(entry, info.mode ? info.mode & 07777 : 0755);
    } else if (info.symlink) {
        archive_entry_set_filetype(entry, AE_IFLNK);
        archive_entry_set_perm(entry, 0777);
        archive_entry_set_symlink_utf8(entry, Utf8(info.linkTarget).c_str());
    } else {
        archive_entry_set_filetype(entry, AE_IFREG);
        archive_entry_set_perm(entry, info.mode ? info.mode & 07777 : 0644);
        archive_entry_set_size(entry, static_cast<la_int64_t>(info.size));
    }
    if (info.modified) {
        std::int64_t seconds;
        long nanoseconds;
        UnixFromFileTime(*info.modified, seconds, nanoseconds);
        archive_entry_set_mtime(entry, seconds, nanoseconds);
    }
    return entry;
}

}  // namespace

EngineDateTime FileTimeFromDos(std::uint16_t date, std::uint16_t time) {
    struct tm local {};
    local.tm_year = ((date >> 9) & 0x7F) + 80;
    local.tm_mon = ((date >> 5) & 0x0F) - 1;
    local.tm_mday = date & 0x1F;
    local.tm_hour = (time >> 11) & 0x1F;
    local.tm_min = (time >> 5) & 0x3F;
    local.tm_sec = (time & 0x1F) * 2;
    local.tm_isdst = -1;
    return FileTimeFromUnix(mktime(&local), 0);
}

EngineDateTime FileTimeFromUnix(std::int64_t seconds, long nanoseconds) {
    std::int64_t ticks = (seconds + kUnixEpochInFileTimeSeconds) * 10000000LL + nanoseconds / 100;
    return ticks < 0 ? 0 : static_cast<EngineDateTime>(ticks);
}

void UnixFromFileTime(EngineDateTime ticks, std::int64_t &seconds, long &nanoseconds) {
    auto signedTicks = static_cast<std::int64_t>(ticks);
    seconds = signedTicks / 10000000LL - kUnixEpochInFileTimeSeconds;
    nanoseconds = static_cast<long>((signedTicks % 10000000LL) * 100);
}

Result LibarchiveFailure(archive *handle, Result fallback) {
    int error = archive_errno(handle);
    if (error == ENOMEM) return kEngineOutOfMemory;
    if (SystemError(error)) return FromErrno(error);
    return fallback;
}

Result OpenLibarchiveCursor(const ReadRequest &request, EnableFormats enable,
                            const std::wstring &singleItemName,
                            std::unique_ptr<ReadCursor> &cursor) {
    auto opened = std::make_unique<LibarchiveCursor>(request, singleItemName);
    if (Result result = opened->Open(enable)) return result;
    cursor = std::move(opened);
    return kEngineOK;
}

Result WriteWithLibarchive(const WriteRequest &request, ItemFeed &feed,
                           const LibarchiveWriter &writer) {
    archive *handle = archive_write_new();
    if (!handle) return kEngineOutOfMemory;
    archive_entry *entry = archive_entry_new();
    std::vector<char> buffer(kBlock);
    Operation *operation = request.operation;
    Result result = writer.configure ? writer.configure(handle) : kEngineOK;
    if (result == kEngineOK &&
        archive_write_open_filename(handle, request.path.c_str()) != ARCHIVE_OK)
        result = LibarchiveFailure(handle, kEngineWriteFailed);
    bool opened = result == kEngineOK;
    while (result == kEngineOK) {
        WriteItem item;
        result = feed.Next(item);
        if (result == kEngineNoMoreObjects) {
            result = kEngineOK;
            break;
        }
        if (result != kEngineOK) break;
        if (writer.beforeItem) writer.beforeItem(handle, item);
        if (archive_write_header(handle, EntryFromItem(item.info, entry)) < ARCHIVE_WARN) {
            result = LibarchiveFailure(handle, kEngineWriteFailed);
            break;
        }
        while (item.data && result == kEngineOK) {
            std::size_t got = 0;
            result = item.data->Read(buffer.data(), buffer.size(), got);
            if (result != kEngineOK || got == 0) break;
            if (archive_write_data(handle, buffer.data(), got) < 0) {
                result = LibarchiveFailure(handle, kEngineWriteFailed);
                break;
            }
            if (operation) {
                operation->AddWritten(got);
                result = operation->Work(got);
                if (result == kEngineOK) result = operation->Counters();
            }
        }
        if (result == kEngineOK && archive_write_finish_entry(handle) < ARCHIVE_WARN)
            result = LibarchiveFailure(handle, kEngineWriteFailed);
    }
    if (result == kEngineOK && operation) result = operation->WritingCatalogue();
    if (opened && archive_write_close(handle) != ARCHIVE_OK && result == kEngineOK)
        result = LibarchiveFailure(handle, kEngineWriteFailed);
    archive_entry_free(entry);
    archive_write_free(handle);
    return result;
}

}  // namespace engine

namespace engine {
namespace {

locale_t Utf8Locale() {
    static locale_t locale = [] {
        for (const char *name : {"C.UTF-8", "C.utf8", "en_US.UTF-8"})
            if (locale_t made = newlocale(LC_ALL_MASK, name, nullptr)) return made;
        return locale_t(nullptr);
    }();
    return locale;
}

}  // namespace

Utf8LocaleScope::Utf8LocaleScope() {
    if (locale_t utf8 = Utf8Locale()) previous_ = uselocale(utf8);
}

Utf8LocaleScope::~Utf8LocaleScope() {
    if (previous_) uselocale(static_cast<locale_t>(previous_));
}

}  // namespace engine
