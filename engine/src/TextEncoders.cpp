// Encoders of the text encodings. Each writes what the matching decoder of
// the engine, and the usual tools of the encoding, read back.
#include "TextEncoders.h"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <charconv>

#include "Handles.h"

namespace engine {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::string Number(std::uint64_t value, int base = 10) {
    char digits[24];
    auto end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
    return std::string(digits, end);
}

// The name on a header line: UTF-8, with line ends taken out.
std::string HeaderLineName(const std::wstring &name) {
    std::string bytes = Utf8(name);
    std::replace_if(
        bytes.begin(), bytes.end(), [](char c) { return c == '\n' || c == '\r'; }, '_');
    return bytes;
}

// -- uuencode -------------------------------------------------------------------

constexpr std::size_t kUuLineBytes = 45;

// Zero is written as "`" rather than a space, so no line ends in blanks.
char UuChar(unsigned value) {
    value &= 0x3F;
    return value ? static_cast<char>(value + 32) : '`';
}

void UuLine(const std::uint8_t *bytes, std::size_t count, EncodedOutput &out) {
    out.Put(UuChar(static_cast<unsigned>(count)));
    for (std::size_t i = 0; i < count; i += 3) {
        unsigned b0 = bytes[i];
        unsigned b1 = i + 1 < count ? bytes[i + 1] : 0;
        unsigned b2 = i + 2 < count ? bytes[i + 2] : 0;
        out.Put(UuChar(b0 >> 2));
        out.Put(UuChar((b0 << 4) | (b1 >> 4)));
        out.Put(UuChar((b1 << 2) | (b2 >> 6)));
        out.Put(UuChar(b2));
    }
    out.Put('\n');
}

// -- btoa -----------------------------------------------------------------------

// Base 85 from "!", "z" for a word of zeros, 78 characters a line, and the
// three running sums of the trailer over every byte encoded (the padding of
// the last word too).
class BtoaWriter {
public:
    explicit BtoaWriter(EncodedOutput &out) : out_(out) {}

    void Byte(std::uint8_t c) {
        Sum(c);
        word_ = (word_ << 8) | c;
        if (++filled_ < 4) return;
        Word(word_);
        word_ = 0;
        filled_ = 0;
    }
    void Finish(std::uint64_t count) {
        while (filled_ != 0) Byte(0);
        if (column_ != 0) out_.Put('\n');
        out_.Put("xbtoa End N " + Number(count) + " " + Number(count, 16) + " E " +
                 Number(eor_, 16) + " S " + Number(sum_, 16) + " R " + Number(rotation_, 16) +
                 "\n");
    }

private:
    static constexpr int kLineLength = 78;

    void Sum(std::uint8_t c) {
        eor_ ^= c;
        sum_ += c + 1u;
        rotation_ = (rotation_ & 0x80000000u) ? (rotation_ << 1) + 1 : rotation_ << 1;
        rotation_ += c;
    }
    void Char(char c) {
        out_.Put(c);
        if (++column_ < kLineLength) return;
        out_.Put('\n');
        column_ = 0;
    }
    void Word(std::uint32_t word) {
        if (word == 0) {
            Char('z');
            return;
        }
        char digits[5];
        for (int i = 4; i >= 0; --i) {
            digits[i] = static_cast<char>('!' + word % 85);
            word /= 85;
        }
        for (char c : digits) Char(c);
    }

    EncodedOutput &out_;
    std::uint32_t word_ = 0;
    int filled_ = 0;
    int column_ = 0;
    std::uint32_t eor_ = 0, sum_ = 0, rotation_ = 0;
};

// -- yEnc -----------------------------------------------------------------------

constexpr int kYencLineLength = 128;

// NUL, LF, CR and "=" always; a tab or space where a line begins or ends
// (where transports strip them); a dot where a line begins (NNTP).
bool YencEscaped(std::uint8_t c, int column, bool lastByte) {
    if (c == 0 || c == '\n' || c == '\r' || c == '=') return true;
    bool edge = column == 0 || column >= kYencLineLength - 1 || lastByte;
    if ((c == '\t' || c == ' ') && edge) return true;
    return c == '.' && column == 0;
}

// -- MIME -----------------------------------------------------------------------

bool Rfc2231Plain(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) ||
           std::string_view("!#$&+-.^_`|~").find(c) != std::string_view::npos;
}

// name="text" when the name is plain printable ASCII, else RFC 2231's
// name*=utf-8''percent-encoded form.
std::string MimeParameter(std::string_view key, const std::wstring &name) {
    std::string bytes = Utf8(name);
    bool quotable = std::all_of(bytes.begin(), bytes.end(), [](char c) {
        return c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
    });
    if (quotable) return std::string(key) + "=\"" + bytes + "\"";
    std::string text = std::string(key) + "*=utf-8''";
    const char hex[] = "0123456789ABCDEF";
    for (char c : bytes) {
        if (Rfc2231Plain(c)) {
            text += c;
            continue;
        }
        auto byte = static_cast<unsigned char>(c);
        text += '%';
        text += hex[byte >> 4];
        text += hex[byte & 15];
    }
    return text;
}

}  // namespace

void EncodeUu(const EncodedFile &file, EncodedOutput &out) {
    std::uint32_t mode = file.mode & 0777;
    std::string octal = Number(mode ? mode : 0644, 8);
    // Readers look for three or four digits.
    octal.insert(0, 3 - std::min<std::size_t>(3, octal.size()), '0');
    out.Put("begin " + octal + " " + HeaderLineName(file.name) + "\n");
    for (std::size_t at = 0; at < file.data.size(); at += kUuLineBytes)
        UuLine(file.data.data() + at, std::min(kUuLineBytes, file.data.size() - at), out);
    out.Put("`\nend\n");
}

void EncodeBase64(const Bytes &data, EncodedOutput &out, std::size_t lineLength,
                  std::string_view lineEnd) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t column = 0;
    auto put = [&](char c) {
        out.Put(c);
        if (++column < lineLength) return;
        out.Put(lineEnd);
        column = 0;
    };
    for (std::size_t i = 0; i < data.size(); i += 3) {
        std::size_t left = data.size() - i;
        std::uint32_t group = static_cast<std::uint32_t>(data[i]) << 16;
        if (left > 1) group |= static_cast<std::uint32_t>(data[i + 1]) << 8;
        if (left > 2) group |= data[i + 2];
        put(kAlphabet[group >> 18]);
        put(kAlphabet[(group >> 12) & 63]);
        put(left > 1 ? kAlphabet[(group >> 6) & 63] : '=');
        put(left > 2 ? kAlphabet[group & 63] : '=');
    }
    if (column != 0) out.Put(lineEnd);
}

void EncodeBase64File(const EncodedFile &file, EncodedOutput &out) { EncodeBase64(file.data, out); }

void EncodeBtoa(const EncodedFile &file, EncodedOutput &out) {
    out.Put("xbtoa Begin\n");
    BtoaWriter writer(out);
    for (std::uint8_t c : file.data) writer.Byte(c);
    writer.Finish(file.data.size());
}

void EncodeYenc(const EncodedFile &file, EncodedOutput &out) {
    const Bytes &data = file.data;
    out.Put("=ybegin line=" + Number(kYencLineLength) + " size=" + Number(data.size()) +
            " name=" + HeaderLineName(file.name) + "\n");
    int column = 0;
    for (std::size_t i = 0; i < data.size(); ++i) {
        auto c = static_cast<std::uint8_t>(data[i] + 42);
        if (YencEscaped(c, column, i + 1 == data.size())) {
            out.Put('=');
            out.Put(static_cast<char>(c + 64));
            column += 2;
        } else {
            out.Put(static_cast<char>(c));
            ++column;
        }
        if (column < kYencLineLength) continue;
        out.Put('\n');
        column = 0;
    }
    if (column != 0) out.Put('\n');
    auto crc = static_cast<std::uint32_t>(crc32(0, data.data(), static_cast<uInt>(data.size())));
    std::string hex = Number(crc, 16);
    out.Put("=yend size=" + Number(data.size()) + " crc32=" + std::string(8 - hex.size(), '0') +
            hex + "\n");
}

void BeginMimeMessage(EncodedOutput &out) {
    out.Put("MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"");
    out.Put(kMimeBoundary);
    out.Put("\"\r\n\r\nThis is a multi-part message in MIME format.\r\n");
}

void AddMimeAttachment(const EncodedFile &file, EncodedOutput &out) {
    out.Put("\r\n--");
    out.Put(kMimeBoundary);
    out.Put("\r\nContent-Type: application/octet-stream; " + MimeParameter("name", file.name) +
            "\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment; " +
            MimeParameter("filename", file.name) + "\r\n\r\n");
    EncodeBase64(file.data, out, 76, "\r\n");
}

void EndMimeMessage(EncodedOutput &out) {
    out.Put("\r\n--");
    out.Put(kMimeBoundary);
    out.Put("--\r\n");
}

}  // namespace engine
