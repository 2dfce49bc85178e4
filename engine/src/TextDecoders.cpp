// Decoders of the text encodings the engine reads itself: uu, btoa, yEnc,
// MIME messages (their attachments) and plain base64.
#include "TextDecoders.h"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>

#include "Handles.h"

namespace engine {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::string_view View(const Bytes &bytes) {
    return std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

// The lines of a text, without their line ends.
std::vector<std::string_view> Lines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (auto &c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

DecodedItem Item(const std::wstring &name, Bytes data) {
    DecodedItem item;
    item.info.path = CleanItemPath(name);
    item.info.rawPath = Utf8(item.info.path);
    item.info.size = data.size();
    item.data = std::move(data);
    return item;
}

int Base64Value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+' || c == '-') return 62;
    if (c == '/' || c == '_') return 63;
    return -1;
}

// -- btoa ---------------------------------------------------------------------

}  // namespace

Bytes Base64Decode(std::string_view text) {
    Bytes out;
    std::uint32_t bits = 0;
    int count = 0;
    for (unsigned char c : text) {
        if (c == '=') break;
        int value = Base64Value(c);
        if (value < 0) continue;  // line ends and spaces
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            out.push_back(static_cast<std::uint8_t>(bits >> count));
        }
    }
    return out;
}

Result DecodeBtoa(const Bytes &file, const std::wstring &archiveName,
                  std::vector<DecodedItem> &items) {
    std::vector<std::string_view> lines = Lines(View(file));
    auto begin = std::find_if(lines.begin(), lines.end(),
                              [](std::string_view l) { return l.rfind("xbtoa Begin", 0) == 0; });
    if (begin == lines.end()) return kEngineWrongFormat;
    Bytes out;
    std::uint64_t word = 0;
    int digits = 0;
    std::optional<std::uint64_t> declared;
    for (auto line = begin + 1; line != lines.end(); ++line) {
        if (line->rfind("xbtoa End", 0) == 0) {
            // "xbtoa End N <count> <count in hex> E <xor> S <sum> R <rotation>"
            std::string end(*line);
            unsigned long long count = 0;
            if (std::sscanf(end.c_str(), "xbtoa End N %llu", &count) == 1) declared = count;
            break;
        }
        for (char c : *line) {
            if (c == 'z' && digits == 0) {
                out.insert(out.end(), 4, 0);
                continue;
            }
            if (c < '!' || c > 'u') return kEngineArchiveDamaged;
            word = word * 85 + static_cast<std::uint64_t>(c - '!');
            if (++digits == 5) {
                if (word > 0xFFFFFFFFULL) return kEngineArchiveDamaged;
                for (int shift = 24; shift >= 0; shift -= 8)
                    out.push_back(static_cast<std::uint8_t>(word >> shift));
                word = 0;
                digits = 0;
            }
        }
        if (out.size() > kDecodeLimit) return kEngineArchiveTooLarge;
    }
    if (!declared) return kEngineArchiveTruncated;
    // The last word is padded; the count says where the file ends.
    if (*declared > out.size()) return kEngineArchiveTruncated;
    out.resize(static_cast<std::size_t>(*declared));
    items.push_back(Item(NameWithoutExtension(archiveName), std::move(out)));
    return kEngineOK;
}

// -- yEnc ---------------------------------------------------------------------

namespace {

// The value of "key=" in a yEnc header line; "name" runs to the line's end.
std::optional<std::string> YencField(std::string_view line, std::string_view key) {
    // Appended piece by piece: g++ 12 at -O3 misreads `" " + std::string`
    // as an overlapping copy (-Wrestrict).
    std::string pattern(" ");
    pattern.append(key).append("=");
    std::size_t at = line.find(pattern);
    if (at == std::string_view::npos) return std::nullopt;
    std::string_view rest = line.substr(at + pattern.size());
    if (key == "name") return std::string(Trim(rest));
    return std::string(rest.substr(0, rest.find(' ')));
}

}  // namespace

Result DecodeYenc(const Bytes &file, std::vector<DecodedItem> &items) {
    std::vector<std::string_view> lines = Lines(View(file));
    auto begin = std::find_if(lines.begin(), lines.end(),
                              [](std::string_view l) { return l.rfind("=ybegin ", 0) == 0; });
    if (begin == lines.end()) return kEngineWrongFormat;
    std::string name = YencField(*begin, "name").value_or("");
    bool part = false;
    Bytes out;
    std::optional<std::string> expectedCrc;
    bool ended = false;
    for (auto line = begin + 1; line != lines.end(); ++line) {
        if (line->rfind("=ypart ", 0) == 0) {
            part = true;
            continue;
        }
        if (line->rfind("=yend", 0) == 0) {
            expectedCrc = YencField(*line, part ? "pcrc32" : "crc32");
            ended = true;
            break;
        }
        for (std::size_t i = 0; i < line->size(); ++i) {
            auto c = static_cast<std::uint8_t>((*line)[i]);
            if (c == '=') {
                if (++i >= line->size()) break;
                c = static_cast<std::uint8_t>(static_cast<std::uint8_t>((*line)[i]) - 64);
            }
            out.push_back(static_cast<std::uint8_t>(c - 42));
        }
        if (out.size() > kDecodeLimit) return kEngineArchiveTooLarge;
    }
    if (!ended) return kEngineArchiveTruncated;
    if (expectedCrc && !expectedCrc->empty()) {
        std::uint32_t crc =
            static_cast<std::uint32_t>(crc32(0, out.data(), static_cast<uInt>(out.size())));
        if (crc != std::strtoul(expectedCrc->c_str(), nullptr, 16)) return kEngineItemDataDamaged;
    }
    std::wstring bare = BareName(WideFromStoredName(name));
    items.push_back(Item(bare.empty() ? L"data" : bare, std::move(out)));
    return kEngineOK;
}

// -- MIME -----------------------------------------------------------------------

namespace {

struct Part {
    std::map<std::string, std::string> headers;  // lower-case names, unfolded values
    std::string_view body;
};

Part SplitPart(std::string_view text) {
    Part part;
    std::size_t at = 0;
    std::string last;
    while (at < text.size()) {
        std::size_t end = text.find('\n', at);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(at, end - at);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        at = end + 1;
        if (line.empty()) break;
        if ((line[0] == ' ' || line[0] == '\t') && !last.empty()) {
            part.headers[last].append(" ").append(Trim(line));
            continue;
        }
        std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        last = Lower(Trim(line.substr(0, colon)));
        part.headers[last] = std::string(Trim(line.substr(colon + 1)));
    }
    part.body = at < text.size() ? text.substr(at) : std::string_view();
    return part;
}

// A parameter of a header value ("boundary", "filename", "name"), with
// RFC 2231's "filename*=charset''text" and quotes removed.
std::optional<std::string> Parameter(const std::string &value, std::string_view name) {
    std::string lower = Lower(value);
    for (bool extended : {true, false}) {
        std::string key = std::string(name) + (extended ? "*=" : "=");
        std::size_t at = 0;
        while ((at = lower.find(key, at)) != std::string::npos) {
            if (at > 0 && lower[at - 1] != ';' && lower[at - 1] != ' ' && lower[at - 1] != '\t') {
                at += key.size();
                continue;
            }
            std::string rest = value.substr(at + key.size());
            std::string text;
            if (!rest.empty() && rest[0] == '"') {
                std::size_t close = rest.find('"', 1);
                text = rest.substr(1, close == std::string::npos ? std::string::npos : close - 1);
            } else {
                text = std::string(Trim(rest.substr(0, rest.find(';'))));
            }
            if (extended) {
                std::size_t quote = text.find("''");
                if (quote != std::string::npos) text = text.substr(quote + 2);
                std::string decoded;
                for (std::size_t i = 0; i < text.size(); ++i) {
                    if (text[i] == '%' && i + 2 < text.size() &&
                        std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
                        decoded += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
                        i += 2;
                    } else {
                        decoded += text[i];
                    }
                }
                text = decoded;
            }
            return text;
        }
    }
    return std::nullopt;
}

Bytes QuotedPrintable(std::string_view text) {
    Bytes out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c != '=') {
            out.push_back(static_cast<std::uint8_t>(c));
            continue;
        }
        if (i + 1 < text.size() &&
            (text[i + 1] == '\n' || text[i + 1] == '\r')) {  // a soft line break
            ++i;
            if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
            continue;
        }
        if (i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out.push_back(static_cast<std::uint8_t>(
                std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
            i += 2;
        } else {
            out.push_back('=');
        }
    }
    return out;
}

// "=?charset?B?...?=" and "=?charset?Q?...?=" words of a header, UTF-8 or
// Latin-1; anything else is kept as it stands.
std::wstring HeaderText(const std::string &value) {
    std::wstring text;
    std::size_t at = 0;
    while (at < value.size()) {
        std::size_t start = value.find("=?", at);
        if (start == std::string::npos) {
            text += WideFromStoredName(value.substr(at));
            break;
        }
        std::size_t q1 = value.find('?', start + 2);
        std::size_t q2 = q1 == std::string::npos ? q1 : value.find('?', q1 + 1);
        std::size_t end = q2 == std::string::npos ? q2 : value.find("?=", q2 + 1);
        if (end == std::string::npos) {
            text += WideFromStoredName(value.substr(at));
            break;
        }
        std::string between = value.substr(at, start - at);
        if (!Trim(between).empty()) text += WideFromStoredName(between);
        std::string charset = Lower(value.substr(start + 2, q1 - start - 2));
        char encoding = static_cast<char>(std::toupper(static_cast<unsigned char>(value[q1 + 1])));
        std::string payload = value.substr(q2 + 1, end - q2 - 1);
        Bytes decoded;
        if (encoding == 'B') {
            decoded = Base64Decode(payload);
        } else {
            for (auto &c : payload)
                if (c == '_') c = ' ';
            decoded = QuotedPrintable(payload);
        }
        std::string bytes(decoded.begin(), decoded.end());
        if (charset == "utf-8" || charset == "utf8")
            text += Wide(bytes);
        else
            for (unsigned char c : bytes) text += static_cast<wchar_t>(c);
        at = end + 2;
    }
    return text;
}

void CollectParts(std::string_view text, int depth, std::vector<DecodedItem> &items, int &unnamed) {
    if (depth > 16) return;
    Part part = SplitPart(text);
    std::string type =
        part.headers.count("content-type") ? part.headers["content-type"] : "text/plain";
    std::string lowerType = Lower(type);
    if (lowerType.rfind("multipart/", 0) == 0) {
        std::optional<std::string> boundary = Parameter(type, "boundary");
        if (!boundary) return;
        std::string marker = "--" + *boundary;
        std::string_view body = part.body;
        std::size_t at = body.find(marker);
        while (at != std::string_view::npos) {
            std::size_t start = body.find('\n', at);
            if (start == std::string_view::npos) break;
            if (body.substr(at + marker.size(), 2) == "--") break;  // the closing marker
            std::size_t next = body.find("\n" + marker, start);
            // The line end before a boundary belongs to the boundary.
            std::string_view inner =
                body.substr(start + 1, next == std::string_view::npos ? std::string_view::npos
                                                                      : next - start - 1);
            if (next != std::string_view::npos && !inner.empty() && inner.back() == '\r')
                inner.remove_suffix(1);
            CollectParts(inner, depth + 1, items, unnamed);
            at = next == std::string_view::npos ? next : next + 1;
        }
        return;
    }
    std::string disposition =
        part.headers.count("content-disposition") ? part.headers["content-disposition"] : "";
    std::optional<std::string> filename = Parameter(disposition, "filename");
    if (!filename) filename = Parameter(type, "name");
    bool attachment = Lower(disposition).rfind("attachment", 0) == 0;
    // The message's text is not an item; a part with a name or sent as an
    // attachment, or of any other type, is.
    if (!filename && !attachment && lowerType.rfind("text/", 0) == 0) return;
    if (!filename && lowerType.rfind("message/", 0) == 0) {
        CollectParts(part.body, depth + 1, items, unnamed);
        return;
    }
    std::string encoding = Lower(part.headers.count("content-transfer-encoding")
                                     ? part.headers["content-transfer-encoding"]
                                     : "");
    Bytes data;
    if (encoding == "base64")
        data = Base64Decode(part.body);
    else if (encoding == "quoted-printable")
        data = QuotedPrintable(part.body);
    else
        data.assign(part.body.begin(), part.body.end());
    std::wstring name = filename ? BareName(HeaderText(*filename)) : std::wstring();
    if (name.empty()) name = L"part" + std::to_wstring(++unnamed);
    items.push_back(Item(name, std::move(data)));
}

}  // namespace

Result DecodeMime(const Bytes &file, std::vector<DecodedItem> &items) {
    int unnamed = 0;
    CollectParts(View(file), 0, items, unnamed);
    if (items.empty()) return kEngineArchiveEmpty;
    return kEngineOK;
}

// -- uu -----------------------------------------------------------------------

namespace {

// The bytes of one uuencoded line: its first character gives the count; a
// line cut short (trailing blanks stripped on the way) reads as zeros.
void UuLine(std::string_view line, Bytes &out) {
    auto value = [&](std::size_t at) -> std::uint32_t {
        return at < line.size() ? (static_cast<std::uint8_t>(line[at]) - 32u) & 63u : 0u;
    };
    std::size_t count = value(0);
    for (std::size_t group = 0; count > 0; group += 4) {
        std::uint32_t bits = value(group + 1) << 18 | value(group + 2) << 12 |
                             value(group + 3) << 6 | value(group + 4);
        for (int shift = 16; shift >= 0 && count > 0; shift -= 8, --count)
            out.push_back(static_cast<std::uint8_t>(bits >> shift));
    }
}

}  // namespace

Result DecodeUu(const Bytes &file, std::size_t beginAt, const std::wstring &name,
                std::vector<DecodedItem> &items) {
    if (beginAt >= file.size()) return kEngineWrongFormat;
    std::vector<std::string_view> lines = Lines(View(file).substr(beginAt));
    auto begin = lines.begin();
    bool base64 = begin->rfind("begin-base64 ", 0) == 0;
    Bytes out;
    std::string text;
    bool ended = false;
    for (auto line = begin + 1; line != lines.end(); ++line) {
        std::string_view trimmed = Trim(*line);
        if (trimmed == "end" || (base64 && trimmed == "====")) {
            ended = true;
            break;
        }
        if (base64)
            text.append(line->begin(), line->end());
        else
            UuLine(*line, out);
        if (out.size() + text.size() > kDecodeLimit) return kEngineArchiveTooLarge;
    }
    if (!ended) return kEngineArchiveTruncated;
    if (base64) out = Base64Decode(text);
    items.push_back(Item(name, std::move(out)));
    return kEngineOK;
}

Result DecodePlainBase64(const Bytes &file, const std::wstring &archiveName,
                         std::vector<DecodedItem> &items) {
    items.push_back(Item(NameWithoutExtension(archiveName), Base64Decode(View(file))));
    return kEngineOK;
}

}  // namespace engine
