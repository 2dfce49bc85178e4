#include "platform/TextFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFormat.h"
#include "platform/WinPath.h"

namespace {

enum class Encoding { Utf8, Utf16Le };

constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

struct OpenMode {
    wchar_t access = L'r';  // 'r', 'w' or 'a'
    bool update = false;    // '+'
    bool binary = false;
    bool exclusive = false;  // 'x'
    bool hasCcs = false;
    Encoding encoding = Encoding::Utf8;  // the ccs, or the system code page

    bool Writes() const { return access != L'r' || update; }
    bool Reads() const { return access == L'r' || update; }
};

// ----------------------------------------------------------------------------
// Mode strings: "r|w|a" [+tbx and the runtime's ignorable letters] [, ccs=X]

void SkipBlanks(std::wstring_view &text) {
    while (!text.empty() && text.front() == L' ') text.remove_prefix(1);
}

bool TakePrefix(std::wstring_view &text, std::wstring_view prefix) {
    if (!platform::EqualsNoCase(text.substr(0, prefix.size()), prefix)) return false;
    text.remove_prefix(prefix.size());
    return true;
}

std::optional<Encoding> ParseCcs(std::wstring_view text) {
    SkipBlanks(text);
    if (!TakePrefix(text, L"ccs")) return std::nullopt;
    SkipBlanks(text);
    if (!TakePrefix(text, L"=")) return std::nullopt;
    SkipBlanks(text);
    while (!text.empty() && text.back() == L' ') text.remove_suffix(1);
    if (platform::EqualsNoCase(text, L"UNICODE") || platform::EqualsNoCase(text, L"UTF-16LE")) {
        return Encoding::Utf16Le;
    }
    if (platform::EqualsNoCase(text, L"UTF-8")) return Encoding::Utf8;
    return std::nullopt;
}

std::optional<OpenMode> ParseMode(std::wstring_view text) {
    SkipBlanks(text);
    if (text.empty() || (text[0] != L'r' && text[0] != L'w' && text[0] != L'a')) {
        return std::nullopt;
    }
    OpenMode mode;
    mode.access = text[0];
    bool text_ = false;
    std::size_t i = 1;
    for (; i < text.size() && text[i] != L','; ++i) {
        switch (text[i]) {
            case L'+':
                mode.update = true;
                break;
            case L't':
                text_ = true;
                break;
            case L'b':
                mode.binary = true;
                break;
            case L'x':
                mode.exclusive = true;
                break;
            // Commit, no-commit, no-inherit, access hints, temporary: no
            // meaning for the result here.
            case L'c':
            case L'n':
            case L'N':
            case L'S':
            case L'R':
            case L'T':
            case L'D':
            case L'e':
            case L' ':
                break;
            default:
                return std::nullopt;
        }
    }
    if (text_ && mode.binary) return std::nullopt;
    if (i < text.size()) {
        if (mode.binary) return std::nullopt;
        std::optional<Encoding> ccs = ParseCcs(text.substr(i + 1));
        if (!ccs) return std::nullopt;
        mode.hasCcs = true;
        mode.encoding = *ccs;
    }
    return mode;
}

int OpenFlags(const OpenMode &mode) {
    int flags = O_CLOEXEC;
    switch (mode.access) {
        case L'r':
            flags |= mode.update ? O_RDWR : O_RDONLY;
            break;
        case L'w':
            flags |= (mode.update ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
            break;
        default:
            // An updating text stream writes the whole text back at its
            // place, which O_APPEND would turn into an append; it keeps to
            // the end of the text itself.
            flags |= (mode.update ? O_RDWR : O_WRONLY) | O_CREAT;
            if (mode.binary || !mode.update) flags |= O_APPEND;
            break;
    }
    if (mode.exclusive && mode.access != L'r') flags |= O_EXCL;
    return flags;
}

std::string StdioMode(const OpenMode &mode) {
    std::string out(1, static_cast<char>(mode.access));
    if (mode.update) out += '+';
    return out;
}

// ----------------------------------------------------------------------------
// The text transformation between the stream's UTF-8 form and the file.

std::wstring LineFeedsToCrLf(std::wstring_view text) {
    std::wstring out;
    out.reserve(text.size() + text.size() / 32);
    for (wchar_t c : text) {
        if (c == L'\n') out += L'\r';
        out += c;
    }
    return out;
}

std::wstring CrLfToLineFeeds(std::wstring_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == L'\r' && i + 1 < text.size() && text[i + 1] == L'\n') continue;
        out += text[i];
    }
    return out;
}

std::string EncodeForFile(std::wstring_view text, Encoding encoding) {
    std::wstring lines = LineFeedsToCrLf(text);
    if (encoding == Encoding::Utf8) return platform::ToUtf8(lines);
    std::vector<BYTE> bytes = platform::ToUtf16Bytes(lines);
    return std::string(bytes.begin(), bytes.end());
}

std::wstring DecodeFromFile(std::string_view bytes, Encoding encoding) {
    std::wstring text =
        encoding == Encoding::Utf8
            ? platform::FromUtf8(bytes)
            : platform::FromUtf16Bytes(reinterpret_cast<const BYTE *>(bytes.data()), bytes.size());
    return CrLfToLineFeeds(text);
}

// The length of the bytes that end on a whole UTF-8 sequence; the rest is a
// sequence that stdio cut at its buffer's end.
std::size_t CompleteUtf8Length(std::string_view bytes) {
    const std::size_t n = bytes.size();
    for (std::size_t back = 1; back <= 3 && back <= n; ++back) {
        auto c = static_cast<unsigned char>(bytes[n - back]);
        if ((c & 0xC0) == 0x80) continue;
        std::size_t length = c >= 0xF8 ? 1 : c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        return length > back ? n - back : n;
    }
    return n;
}

// ----------------------------------------------------------------------------
// Descriptor-level helpers.

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int Get() const { return fd_; }
    int Release() { return std::exchange(fd_, -1); }
    // Closes now, for callers that need the result of close.
    int Close() { return fd_ >= 0 ? ::close(Release()) : 0; }

private:
    int fd_;
};

bool WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t done = ::write(fd, bytes.data(), bytes.size());
        if (done < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(done));
    }
    return true;
}

bool PwriteAll(int fd, std::string_view bytes, off_t offset) {
    while (!bytes.empty()) {
        ssize_t done = ::pwrite(fd, bytes.data(), bytes.size(), offset);
        if (done < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(done));
        offset += done;
    }
    return true;
}

bool ReadFrom(int fd, off_t offset, std::string &bytes) {
    char chunk[65536];
    for (;;) {
        ssize_t done = ::pread(fd, chunk, sizeof chunk, offset);
        if (done < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (done == 0) return true;
        bytes.append(chunk, static_cast<std::size_t>(done));
        offset += done;
    }
}

// The first bytes of the file, read through a descriptor of their own when
// the stream's one cannot read.
std::string LeadingBytes(int fd, bool readable, const std::string &path) {
    char head[3] = {};
    ssize_t done = -1;
    if (readable) {
        done = ::pread(fd, head, sizeof head, 0);
    } else {
        Descriptor probe(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (probe.Get() >= 0) done = ::pread(probe.Get(), head, sizeof head, 0);
    }
    return done > 0 ? std::string(head, static_cast<std::size_t>(done)) : std::string();
}

// ----------------------------------------------------------------------------
// The stream below a text-mode FILE*.
//
// A reading stream holds the whole text in its UTF-8 form and serves it from
// memory. A writing stream converts what stdio flushes and writes it at once,
// so fflush puts it in the file. An updating stream ("+") holds the whole
// text and writes all of it back on each flush.

class TextStream {
public:
    enum class Kind { Reader, Writer, Updater };

    TextStream(Descriptor &&fd, Kind kind, Encoding encoding, off_t dataStart, bool append)
        : fd_(fd.Release()),
          kind_(kind),
          encoding_(encoding),
          dataStart_(dataStart),
          append_(append) {}

    bool Load() {
        std::string bytes;
        if (!ReadFrom(fd_.Get(), dataStart_, bytes)) return false;
        content_ = platform::ToUtf8(DecodeFromFile(bytes, encoding_));
        return true;
    }

    ssize_t Read(char *buffer, std::size_t size) {
        if (position_ >= content_.size()) return 0;
        std::size_t count = std::min(size, content_.size() - position_);
        content_.copy(buffer, count, position_);
        position_ += count;
        return static_cast<ssize_t>(count);
    }

    // As fopencookie asks: the bytes taken, or 0 with errno set on failure.
    ssize_t Write(const char *buffer, std::size_t size) {
        if (kind_ == Kind::Writer) return WriteThrough(buffer, size);
        if (kind_ == Kind::Reader) {
            errno = EBADF;
            return 0;
        }
        if (append_ || position_ > content_.size()) position_ = content_.size();
        content_.replace(position_, std::min(size, content_.size() - position_), buffer, size);
        position_ += size;
        return WriteBack() ? static_cast<ssize_t>(size) : 0;
    }

    int Seek(off64_t *offset, int whence) {
        if (kind_ == Kind::Writer) {
            // Only the position itself can be asked for (ftell).
            if (whence != SEEK_CUR || *offset != 0) {
                errno = ESPIPE;
                return -1;
            }
            *offset = static_cast<off64_t>(position_);
            return 0;
        }
        off64_t base = whence == SEEK_SET   ? 0
                       : whence == SEEK_CUR ? static_cast<off64_t>(position_)
                                            : static_cast<off64_t>(content_.size());
        if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) {
            errno = EINVAL;
            return -1;
        }
        off64_t target = base + *offset;
        if (target < 0) {
            errno = EINVAL;
            return -1;
        }
        position_ = static_cast<std::size_t>(target);
        *offset = target;
        return 0;
    }

    int Close() {
        bool written = true;
        if (kind_ == Kind::Writer && !carry_.empty()) {
            // A sequence left incomplete at the end becomes U+FFFD.
            written = WriteAll(fd_.Get(), EncodeForFile(platform::FromUtf8(carry_), encoding_));
        }
        int closed = fd_.Close();
        return written && closed == 0 ? 0 : -1;
    }

private:
    ssize_t WriteThrough(const char *buffer, std::size_t size) {
        carry_.append(buffer, size);
        std::size_t complete = CompleteUtf8Length(carry_);
        std::string_view whole(carry_.data(), complete);
        bool written = WriteAll(fd_.Get(), EncodeForFile(platform::FromUtf8(whole), encoding_));
        carry_.erase(0, complete);
        if (!written) return 0;
        position_ += size;
        return static_cast<ssize_t>(size);
    }

    bool WriteBack() {
        std::string bytes = EncodeForFile(platform::FromUtf8(content_), encoding_);
        return PwriteAll(fd_.Get(), bytes, dataStart_) &&
               ::ftruncate(fd_.Get(), dataStart_ + static_cast<off_t>(bytes.size())) == 0;
    }

    Descriptor fd_;
    Kind kind_;
    Encoding encoding_;
    off_t dataStart_;
    bool append_;
    std::string content_;  // Reader, Updater: the text in UTF-8 with "\n"
    std::string carry_;    // Writer: an incomplete sequence held for the next write
    std::size_t position_ = 0;
};

ssize_t CookieRead(void *cookie, char *buffer, size_t size) {
    return static_cast<TextStream *>(cookie)->Read(buffer, size);
}
ssize_t CookieWrite(void *cookie, const char *buffer, size_t size) {
    return static_cast<TextStream *>(cookie)->Write(buffer, size);
}
int CookieSeek(void *cookie, off64_t *offset, int whence) {
    return static_cast<TextStream *>(cookie)->Seek(offset, whence);
}
int CookieClose(void *cookie) {
    std::unique_ptr<TextStream> stream(static_cast<TextStream *>(cookie));
    return stream->Close();
}

FILE *Fail(int error) {
    errno = error;
    platform::SetLastErrorFromErrno();
    return nullptr;
}

TextStream::Kind KindOf(const OpenMode &mode) {
    if (mode.update) return TextStream::Kind::Updater;
    return mode.access == L'r' ? TextStream::Kind::Reader : TextStream::Kind::Writer;
}

// Finds the encoding from the mark, or writes the mark into an empty file.
// Returns false with errno set when the mark cannot be written.
bool SettleEncoding(int fd, const OpenMode &mode, const std::string &path, off_t size,
                    Encoding &encoding, off_t &dataStart) {
    encoding = mode.encoding;
    dataStart = 0;
    if (!mode.hasCcs) return true;
    if (size > 0) {
        std::string head = LeadingBytes(fd, mode.Reads(), path);
        if (head.substr(0, 2) == kUtf16Mark) {
            encoding = Encoding::Utf16Le;
            dataStart = 2;
        } else if (head == kUtf8Mark) {
            encoding = Encoding::Utf8;
            dataStart = 3;
        }
        return true;
    }
    if (!mode.Writes()) return true;
    std::string_view mark = encoding == Encoding::Utf8 ? kUtf8Mark : kUtf16Mark;
    dataStart = static_cast<off_t>(mark.size());
    return WriteAll(fd, mark);
}

FILE *OpenText(Descriptor &&fd, const OpenMode &mode, const std::string &path, off_t size) {
    Encoding encoding;
    off_t dataStart;
    if (!SettleEncoding(fd.Get(), mode, path, size, encoding, dataStart)) return Fail(errno);
    auto stream = std::make_unique<TextStream>(std::move(fd), KindOf(mode), encoding, dataStart,
                                               mode.access == L'a');
    if (mode.Reads() && !stream->Load()) return Fail(errno);
    cookie_io_functions_t functions{CookieRead, CookieWrite, CookieSeek, CookieClose};
    const char *cookieMode = mode.update ? "r+" : mode.access == L'r' ? "r" : "w";
    FILE *file = fopencookie(stream.get(), cookieMode, functions);
    if (!file) return Fail(errno);
    stream.release();
    return file;
}

// One character of UTF-8 from the file, given its first byte. A byte that
// cannot continue the sequence is put back and the sequence becomes U+FFFD.
wchar_t ReadUtf8Character(int lead, FILE *file) {
    if (lead < 0x80) return static_cast<wchar_t>(lead);
    int length = lead >= 0xF8 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    std::string sequence(1, static_cast<char>(lead));
    while (static_cast<int>(sequence.size()) < length) {
        int next = getc_unlocked(file);
        if (next == EOF) return 0xFFFD;
        if ((next & 0xC0) != 0x80) {
            ungetc(next, file);
            return 0xFFFD;
        }
        sequence += static_cast<char>(next);
    }
    std::wstring decoded = platform::FromUtf8(sequence);
    return decoded.size() == 1 ? decoded[0] : 0xFFFD;
}

}  // namespace

FILE *_wfopen(const wchar_t *path, const wchar_t *mode) {
    if (!path || !mode) return Fail(EINVAL);
    std::optional<OpenMode> parsed = ParseMode(mode);
    if (!parsed) return Fail(EINVAL);
    const std::string native = platform::ToUtf8(platform::StripLongPathPrefix(path));
    Descriptor fd(::open(native.c_str(), OpenFlags(*parsed), 0666));
    if (fd.Get() < 0) return Fail(errno);
    struct stat info {};
    if (::fstat(fd.Get(), &info) != 0) return Fail(errno);
    if (S_ISDIR(info.st_mode)) return Fail(EISDIR);
    if (!parsed->binary) return OpenText(std::move(fd), *parsed, native, info.st_size);
    FILE *file = ::fdopen(fd.Get(), StdioMode(*parsed).c_str());
    if (!file) return Fail(errno);
    fd.Release();
    return file;
}

int TextFilePuts(const wchar_t *text, FILE *file) {
    if (!text || !file) {
        errno = EINVAL;
        return -1;
    }
    std::string bytes = platform::ToUtf8(text);
    if (bytes.empty()) return 0;
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() ? 0 : -1;
}

wchar_t *TextFileGets(wchar_t *buffer, int count, FILE *file) {
    if (!buffer || !file || count < 1) {
        errno = EINVAL;
        return nullptr;
    }
    flockfile(file);
    int length = 0;
    bool ended = false;
    while (length < count - 1) {
        int c = getc_unlocked(file);
        if (c == EOF) {
            ended = true;
            break;
        }
        wchar_t character = ReadUtf8Character(c, file);
        buffer[length++] = character;
        if (character == L'\n') break;
    }
    bool failed = ferror_unlocked(file) != 0;
    funlockfile(file);
    if (failed || (ended && length == 0)) return nullptr;
    buffer[length] = L'\0';
    return buffer;
}

int TextFileVPrintf(FILE *file, const wchar_t *format, va_list args) {
    if (!file || !format) {
        errno = EINVAL;
        return -1;
    }
    std::wstring text = VFormatW(format, args);
    return TextFilePuts(text.c_str(), file) < 0 ? -1 : static_cast<int>(text.size());
}

int TextFilePrintf(FILE *file, const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    int result = TextFileVPrintf(file, format, args);
    va_end(args);
    return result;
}

namespace platform {

namespace {
struct FileCloser {
    void operator()(FILE *file) const { std::fclose(file); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;
}  // namespace

bool ReadTextFile(const std::wstring &path, std::wstring &text, const wchar_t *mode) {
    UniqueFile file(_wfopen(path.c_str(), mode));
    if (!file) return false;
    std::string bytes;
    char chunk[65536];
    std::size_t done;
    while ((done = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) bytes.append(chunk, done);
    if (std::ferror(file.get())) {
        SetLastErrorFromErrno();
        return false;
    }
    text = FromUtf8(bytes);
    return true;
}

bool WriteTextFile(const std::wstring &path, std::wstring_view text, bool append) {
    FILE *file = _wfopen(path.c_str(), append ? L"at, ccs=UNICODE" : L"wt, ccs=UNICODE");
    if (!file) return false;
    std::string bytes = ToUtf8(text);
    bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    bool closed = std::fclose(file) == 0;
    if (!written || !closed) {
        SetLastErrorFromErrno();
        return false;
    }
    return true;
}

}  // namespace platform
