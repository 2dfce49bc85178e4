#include "JpegThumbnail.h"

#include <turbojpeg.h>

#include <algorithm>
#include <memory>

namespace engine::thumbnail {
namespace {

// Pictures waiting for a thread may hold this much; one always may wait.
constexpr std::size_t kMostQueued = 64u << 20;
// A picture that still needs more pixels than this at the smallest scale
// is not decoded (a few bytes of header can claim 65535 x 65535).
constexpr std::uint64_t kMostDecodedPixels = 1u << 24;

struct HandleFree {
    void operator()(void *handle) const { tjDestroy(handle); }
};
using Handle = std::unique_ptr<void, HandleFree>;

struct JpegFree {
    void operator()(unsigned char *buffer) const { tjFree(buffer); }
};

struct Size {
    int width = 0, height = 0;
};

// The thumbnail's size: the picture's, scaled so that its longest side is
// kLongestSide at most.
Size TargetSize(Size picture) {
    int longest = std::max(picture.width, picture.height);
    if (longest <= kLongestSide) return picture;
    auto scaled = [&](int side) {
        return std::max(
            1, static_cast<int>((static_cast<long>(side) * kLongestSide + longest / 2) / longest));
    };
    return {scaled(picture.width), scaled(picture.height)};
}

// The smallest decoding scale whose result still covers `target`, so that
// the decoder does most of the shrinking and averaging does the rest.
Size DecodeSize(Size picture, Size target) {
    int count = 0;
    tjscalingfactor *factors = tjGetScalingFactors(&count);
    Size best = picture;
    for (int i = 0; factors && i < count; ++i) {
        if (factors[i].num > factors[i].denom) continue;
        Size scaled{TJSCALED(picture.width, factors[i]), TJSCALED(picture.height, factors[i])};
        if (scaled.width >= target.width && scaled.height >= target.height &&
            static_cast<long>(scaled.width) * scaled.height <
                static_cast<long>(best.width) * best.height)
            best = scaled;
    }
    return best;
}

// Box averaging from `from` to the smaller `to`, `channels` bytes a pixel.
Bytes Shrink(const Bytes &pixels, Size from, Size to, int channels) {
    if (from.width == to.width && from.height == to.height) return pixels;
    Bytes out(static_cast<std::size_t>(to.width) * to.height * channels);
    for (int y = 0; y < to.height; ++y) {
        int top = static_cast<int>(static_cast<long>(y) * from.height / to.height);
        int bottom =
            std::max(top + 1, static_cast<int>(static_cast<long>(y + 1) * from.height / to.height));
        for (int x = 0; x < to.width; ++x) {
            int left = static_cast<int>(static_cast<long>(x) * from.width / to.width);
            int right = std::max(
                left + 1, static_cast<int>(static_cast<long>(x + 1) * from.width / to.width));
            unsigned long sums[3] = {0, 0, 0};
            for (int sy = top; sy < bottom; ++sy) {
                const std::uint8_t *row =
                    pixels.data() + (static_cast<std::size_t>(sy) * from.width + left) * channels;
                for (int sx = left; sx < right; ++sx)
                    for (int c = 0; c < channels; ++c) sums[c] += *row++;
            }
            unsigned long count = static_cast<unsigned long>(bottom - top) * (right - left);
            std::uint8_t *pixel =
                out.data() + (static_cast<std::size_t>(y) * to.width + x) * channels;
            for (int c = 0; c < channels; ++c)
                pixel[c] = static_cast<std::uint8_t>((sums[c] + count / 2) / count);
        }
    }
    return out;
}

}  // namespace

bool LooksLikeJpeg(const std::uint8_t *data, std::size_t size) {
    return size >= 4 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF;
}

Bytes MakeThumbnail(const std::uint8_t *data, std::size_t size) {
    if (!LooksLikeJpeg(data, size) || size > 0xFFFFFFFFu) return {};
    Handle decoder(tjInitDecompress());
    if (!decoder) return {};
    Size picture;
    int subsampling = 0, colourSpace = 0;
    if (tjDecompressHeader3(decoder.get(), data, static_cast<unsigned long>(size), &picture.width,
                            &picture.height, &subsampling, &colourSpace) != 0 ||
        picture.width <= 0 || picture.height <= 0)
        return {};
    // TurboJPEG decodes CMYK only as CMYK; such pictures get no thumbnail.
    if (colourSpace == TJCS_CMYK || colourSpace == TJCS_YCCK) return {};
    bool grey = colourSpace == TJCS_GRAY;
    int format = grey ? TJPF_GRAY : TJPF_RGB;
    int channels = tjPixelSize[format];
    Size target = TargetSize(picture);
    Size decoded = DecodeSize(picture, target);
    if (static_cast<std::uint64_t>(decoded.width) * decoded.height > kMostDecodedPixels) return {};
    Bytes pixels(static_cast<std::size_t>(decoded.width) * decoded.height * channels);
    // A warning (data cut short, a bad marker) counts as damage: no thumbnail
    // is better than one half grey.
    if (tjDecompress2(decoder.get(), data, static_cast<unsigned long>(size), pixels.data(),
                      decoded.width, 0, decoded.height, format, TJFLAG_STOPONWARNING) != 0)
        return {};
    Bytes small = Shrink(pixels, decoded, target, channels);

    Handle encoder(tjInitCompress());
    if (!encoder) return {};
    unsigned char *jpeg = nullptr;
    unsigned long jpegSize = 0;
    int result = tjCompress2(encoder.get(), small.data(), target.width, 0, target.height, format,
                             &jpeg, &jpegSize, grey ? TJSAMP_GRAY : TJSAMP_420, kQuality, 0);
    std::unique_ptr<unsigned char, JpegFree> owned(jpeg);
    if (result != 0 || !jpeg) return {};
    return Bytes(jpeg, jpeg + jpegSize);
}

ThumbnailMaker::~ThumbnailMaker() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        queue_.clear();
    }
    wake_.notify_all();
    for (std::thread &thread : threads_) thread.join();
}

void ThumbnailMaker::Add(std::size_t key, Bytes picture) {
    if (threadCount_ == 0) {
        Bytes made = MakeThumbnail(picture.data(), picture.size());
        if (!made.empty()) made_.emplace_back(key, std::move(made));
        return;
    }
    while (threads_.size() < threadCount_) threads_.emplace_back([this] { Work(); });
    std::unique_lock lock(mutex_);
    room_.wait(lock,
               [&] { return queue_.empty() || queuedBytes_ + picture.size() <= kMostQueued; });
    queuedBytes_ += picture.size();
    queue_.emplace_back(key, std::move(picture));
    lock.unlock();
    wake_.notify_one();
}

std::vector<std::pair<std::size_t, Bytes>> ThumbnailMaker::Finish() {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] { return queue_.empty() && busy_ == 0; });
    std::vector<std::pair<std::size_t, Bytes>> made = std::move(made_);
    made_.clear();
    std::sort(made.begin(), made.end(),
              [](const auto &a, const auto &b) { return a.first < b.first; });
    return made;
}

void ThumbnailMaker::Work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
        if (stopping_) return;
        std::pair<std::size_t, Bytes> picture = std::move(queue_.front());
        queue_.pop_front();
        ++busy_;
        lock.unlock();
        Bytes made = MakeThumbnail(picture.second.data(), picture.second.size());
        lock.lock();
        --busy_;
        queuedBytes_ -= picture.second.size();
        if (!made.empty()) made_.emplace_back(picture.first, std::move(made));
        room_.notify_all();
    }
}

}  // namespace engine::thumbnail
