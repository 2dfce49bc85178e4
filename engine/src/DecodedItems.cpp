#include "DecodedItems.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "Handles.h"

namespace engine {
namespace {

// Items listed at once; an item's data is decoded when it is first read.
class DecodedCursor final : public ReadCursor {
public:
    DecodedCursor(std::vector<ItemInfo> items, ItemDecoder decode)
        : items_(std::move(items)), decode_(std::move(decode)) {}
    Result Next(ItemInfo &info) override {
        current_ = current_ == kNoIndex ? 0 : current_ + 1;
        if (current_ >= items_.size()) {
            current_ = items_.size();
            return kEngineNoMoreObjects;
        }
        info = items_[current_];
        decoded_ = false;
        position_ = 0;
        return kEngineOK;
    }
    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        got = 0;
        if (current_ >= items_.size() || items_[current_].folder) return kEngineOK;
        if (!decoded_) {
            if (Result result = decode_(current_, data_)) return result;
            decoded_ = true;
        }
        got = std::min(size, data_.size() - position_);
        if (got == 0) return kEngineOK;
        std::memcpy(buffer, data_.data() + position_, got);
        position_ += got;
        return kEngineOK;
    }

private:
    std::vector<ItemInfo> items_;
    ItemDecoder decode_;
    std::size_t current_ = kNoIndex;
    bool decoded_ = false;
    std::vector<std::uint8_t> data_;
    std::size_t position_ = 0;
};

void Put32Be(std::vector<std::uint8_t> &out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

}  // namespace

Result ReadWholeFile(const std::string &path, std::vector<std::uint8_t> &bytes) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return LastErrno();
    struct stat info {};
    if (fstat(fd, &info) != 0) {
        close(fd);
        return LastErrno();
    }
    if (static_cast<std::uint64_t>(info.st_size) > kDecodeLimit) {
        close(fd);
        return kEngineArchiveTooLarge;
    }
    bytes.resize(static_cast<std::size_t>(info.st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t got = read(fd, bytes.data() + done, bytes.size() - done);
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    close(fd);
    bytes.resize(done);
    return kEngineOK;
}

std::vector<std::uint8_t> AppleDouble(const std::vector<std::uint8_t> &resource) {
    std::vector<std::uint8_t> out;
    Put32Be(out, 0x00051607);
    Put32Be(out, 0x00020000);
    const char filler[] = "Mac OS X        ";
    out.insert(out.end(), filler, filler + 16);
    out.push_back(0);
    out.push_back(2);
    std::uint32_t finderAt = 26 + 2 * 12;
    Put32Be(out, 9);  // Finder information
    Put32Be(out, finderAt);
    Put32Be(out, 32);
    Put32Be(out, 2);  // resource fork
    Put32Be(out, finderAt + 32);
    Put32Be(out, static_cast<std::uint32_t>(resource.size()));
    out.resize(out.size() + 32, 0);
    out.insert(out.end(), resource.begin(), resource.end());
    return out;
}

Result OpenDecoded(const std::string &path, const Decoder &decode,
                   std::unique_ptr<ReadCursor> &cursor) {
    std::vector<std::uint8_t> file;
    if (Result result = ReadWholeFile(path, file)) return result;
    auto items = std::make_shared<std::vector<DecodedItem>>();
    if (Result result = decode(file, *items)) return result;
    std::vector<ItemInfo> infos;
    for (const DecodedItem &item : *items) infos.push_back(item.info);
    cursor = MakeDecodedCursor(std::move(infos),
                               [items](std::size_t index, std::vector<std::uint8_t> &data) {
                                   data = (*items)[index].data;
                                   return Result{kEngineOK};
                               });
    return kEngineOK;
}

std::unique_ptr<ReadCursor> MakeDecodedCursor(std::vector<ItemInfo> items, ItemDecoder decode) {
    return std::make_unique<DecodedCursor>(std::move(items), std::move(decode));
}

void AddMacFile(std::vector<DecodedItem> &items, const std::wstring &name,
                std::vector<std::uint8_t> data, std::vector<std::uint8_t> resource,
                std::optional<EngineDateTime> modified) {
    DecodedItem file;
    file.info.path = CleanItemPath(name);
    file.info.rawPath = Utf8(file.info.path);
    file.info.size = data.size();
    file.info.modified = modified;
    if (!resource.empty())
        file.info.resourceFork =
            std::make_shared<const std::vector<std::uint8_t>>(std::move(resource));
    file.data = std::move(data);
    items.push_back(std::move(file));
}

std::wstring MacName(const std::wstring &name) {
    std::wstring posix = name;
    for (auto &c : posix)
        if (c == L'/') c = L':';
    if (posix.empty() || posix == L"." || posix == L"..") return {};
    return posix;
}

std::wstring NameWithoutExtension(const std::wstring &name) {
    std::size_t dot = name.find_last_of(L'.');
    if (dot == std::wstring::npos || dot == 0) return name;
    return name.substr(0, dot);
}

std::wstring BareName(const std::wstring &name) {
    std::size_t cut = name.find_last_of(L"/\\");
    std::wstring bare = cut == std::wstring::npos ? name : name.substr(cut + 1);
    if (bare == L"." || bare == L"..") return {};
    return bare;
}

}  // namespace engine
