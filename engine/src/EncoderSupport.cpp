#include "EncoderSupport.h"

#include <fcntl.h>

#include "DecodedItems.h"
#include "FileSystem.h"
#include "Operation.h"

namespace engine {

void EncodedOutput::Drain() {
    if (fd_ < 0) return;
    if (status_ == kEngineOK && !buffer_.empty())
        status_ = WriteAll(fd_, buffer_.data(), buffer_.size());
    buffer_.clear();
}

Result EncodedOutput::Finish() {
    Drain();
    return status_;
}

Result ReadWholeItem(const WriteItem &item, Operation *operation, EncodedFile &file) {
    const std::wstring &path = item.info.path;
    std::size_t slash = path.find_last_of(L'/');
    file.name = slash == std::wstring::npos ? path : path.substr(slash + 1);
    file.resource = item.info.resourceFork;
    file.modified = item.info.modified;
    file.mode = item.info.mode;
    file.data.clear();
    if (!item.data) return kEngineOK;
    std::vector<std::uint8_t> buffer(64 * 1024);
    for (;;) {
        std::size_t got = 0;
        if (Result result = item.data->Read(buffer.data(), buffer.size(), got)) return result;
        if (got == 0) return kEngineOK;
        if (file.data.size() + got > kDecodeLimit) return kEngineArchiveTooLarge;
        file.data.insert(file.data.end(), buffer.begin(), buffer.begin() + got);
        if (!operation) continue;
        operation->AddWritten(got);
        if (Result stop = operation->Work(got)) return stop;
        if (Result stop = operation->Counters()) return stop;
    }
}

Result TakeSingleFile(ItemFeed &feed, Operation *operation, EncodedFile &file) {
    WriteItem item;
    Result result = feed.Next(item);
    if (result == kEngineNoMoreObjects) return kEngineArchiveEmpty;
    if (result != kEngineOK) return result;
    if (item.info.folder || item.info.symlink) return kEngineItemKindUnsupported;
    if (Result read = ReadWholeItem(item, operation, file)) return read;
    WriteItem more;
    result = feed.Next(more);
    if (result == kEngineOK) return kEngineTooManyItems;
    return result == kEngineNoMoreObjects ? kEngineOK : result;
}

Result WriteEncoded(const WriteRequest &request,
                    const std::function<Result(EncodedOutput &)> &encode) {
    UniqueFd fd(open(request.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!fd.valid()) return LastErrno();
    EncodedOutput output(fd.get());
    Result result = encode(output);
    Result written = output.Finish();
    return result != kEngineOK ? result : written;
}

Result WriteSingleFile(const WriteRequest &request, ItemFeed &feed, FileEncoder encode) {
    if (!request.password.empty()) return kEngineEncryptionUnsupported;
    EncodedFile file;
    if (Result result = TakeSingleFile(feed, request.operation, file)) return result;
    return WriteEncoded(request, [&](EncodedOutput &out) {
        encode(file, out);
        return kEngineOK;
    });
}

}  // namespace engine
