// The text encodings of a file: uuencode and its base64 form, plain
// base64, btoa, yEnc and MIME, all decoded and encoded by the engine.
#include <algorithm>
#include <cctype>

#include "DecodedItems.h"
#include "Handles.h"
#include "Sniff.h"
#include "TextDecoders.h"
#include "TextEncoders.h"

namespace engine {
namespace {

// "begin 644 name" or "begin-base64 644 name": the line of a uuencoded file.
std::size_t BeginLine(const sniff::Bytes &h, bool &base64) {
    std::size_t line = 0;
    std::size_t end = std::min<std::size_t>(h.size(), 16 * 1024);
    while (line < end) {
        std::size_t at = std::string_view::npos;
        if (sniff::AtText(h, line, "begin-base64 ")) {
            base64 = true;
            at = line + 13;
        } else if (sniff::AtText(h, line, "begin ")) {
            base64 = false;
            at = line + 6;
        }
        if (at != std::string_view::npos) {
            std::size_t digits = 0;
            while (at + digits < h.size() && h[at + digits] >= '0' && h[at + digits] <= '7')
                ++digits;
            if (digits >= 3 && digits <= 4 && at + digits < h.size() && h[at + digits] == ' ')
                return line;
        }
        while (line < end && h[line] != '\n') ++line;
        ++line;
    }
    return std::string_view::npos;
}

std::wstring BeginName(const sniff::Bytes &h, std::size_t line) {
    std::size_t at = line;
    for (int field = 0; field < 2; ++field) {
        while (at < h.size() && h[at] != ' ') ++at;
        while (at < h.size() && h[at] == ' ') ++at;
    }
    std::string name;
    while (at < h.size() && h[at] != '\n' && h[at] != '\r') name += static_cast<char>(h[at++]);
    std::size_t slash = name.find_last_of("/\\");
    if (slash != std::string::npos) name = name.substr(slash + 1);
    return name == "." || name == ".." ? std::wstring() : WideFromStoredName(name);
}

// A file of nothing but base64 lines of one length.
bool PlainBase64(const sniff::Bytes &h, std::uint64_t size) {
    if (size < 64 || h.empty()) return false;
    std::size_t lineLength = 0, current = 0, lines = 0;
    for (std::size_t i = 0; i < h.size(); ++i) {
        std::uint8_t c = h[i];
        if (c == '\r') continue;
        if (c == '\n') {
            if (lines == 0)
                lineLength = current;
            else if (current != lineLength && i + 1 < h.size())
                return false;
            ++lines;
            current = 0;
            continue;
        }
        if (!std::isalnum(c) && c != '+' && c != '/' && c != '=') return false;
        ++current;
    }
    return lines >= 1 && lineLength >= 40 && lineLength % 4 == 0;
}

class TextEncodings final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"uu", "b64", "btoa", "yenc", "mime"}; }

    std::optional<std::string> Sniff(SniffInput &input) const override {
        const auto &h = input.Head();
        bool base64 = false;
        if (BeginLine(h, base64) != std::string_view::npos) return base64 ? "b64" : "uu";
        if (sniff::LineStartsWith(h, "xbtoa Begin")) return "btoa";
        if (sniff::LineStartsWith(h, "=ybegin ")) return "yenc";
        if (sniff::LineStartsWith(h, "MIME-Version:") || sniff::LineStartsWith(h, "Mime-Version:"))
            return "mime";
        if (PlainBase64(h, input.size())) return "b64";
        return std::nullopt;
    }

    bool SingleItem(std::string_view id) const override { return id != "mime"; }

    Result OpenReader(const ReadRequest &request,
                      std::unique_ptr<ReadCursor> &cursor) const override {
        SniffInput input(request.path);
        bool base64 = false;
        std::size_t line = BeginLine(input.Head(), base64);
        std::wstring name;
        if (line != std::string_view::npos) name = BeginName(input.Head(), line);
        if (name.empty()) name = L"data";
        return OpenDecoded(
            request.path,
            [&](const std::vector<std::uint8_t> &file, std::vector<DecodedItem> &items) {
                bool begins = line != std::string_view::npos;
                if ((request.formatId == "uu" || request.formatId == "b64") && begins)
                    return DecodeUu(file, line, name, items);
                if (request.formatId == "btoa") return DecodeBtoa(file, request.archiveName, items);
                if (request.formatId == "yenc") return DecodeYenc(file, items);
                if (request.formatId == "mime") return DecodeMime(file, items);
                if (request.formatId == "b64")
                    return DecodePlainBase64(file, request.archiveName, items);
                return Result{kEngineWrongFormat};
            },
            cursor);
    }

    bool CanWrite(std::string_view) const override { return true; }

    Result Write(const WriteRequest &request, ItemFeed &feed) const override {
        if (request.formatId == "mime") return WriteMessage(request, feed);
        FileEncoder encode = request.formatId == "uu"     ? EncodeUu
                             : request.formatId == "b64"  ? EncodeBase64File
                             : request.formatId == "btoa" ? EncodeBtoa
                                                          : EncodeYenc;
        return WriteSingleFile(request, feed, encode);
    }

    std::wstring Extension(std::string_view id, std::string_view) const override {
        if (id == "uu") return L".uue";
        return Driver::Extension(id, {});
    }

private:
    // Every file of the feed as an attachment under its own name; folders
    // give their files, links are left out.
    static Result WriteMessage(const WriteRequest &request, ItemFeed &feed) {
        if (!request.password.empty()) return kEngineEncryptionUnsupported;
        return WriteEncoded(request, [&](EncodedOutput &out) -> Result {
            BeginMimeMessage(out);
            std::size_t attached = 0;
            for (;;) {
                WriteItem item;
                Result result = feed.Next(item);
                if (result == kEngineNoMoreObjects) break;
                if (result != kEngineOK) return result;
                if (item.info.folder || item.info.symlink) continue;
                EncodedFile file;
                if (Result read = ReadWholeItem(item, request.operation, file)) return read;
                AddMimeAttachment(file, out);
                ++attached;
            }
            EndMimeMessage(out);
            return attached == 0 ? kEngineArchiveEmpty : kEngineOK;
        });
    }
};

}  // namespace

const Driver &TextEncodingDriver() {
    static const TextEncodings driver;
    return driver;
}

}  // namespace engine
