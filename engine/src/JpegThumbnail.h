// Small JPEG pictures of JPEG pictures, for the "thumb" fork of vnkx items:
// decoded at the smallest scale libjpeg-turbo offers that still covers the
// thumbnail, averaged down to it, and encoded again.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace engine::thumbnail {

using Bytes = std::vector<std::uint8_t>;

// The longest side of a thumbnail in pixels; smaller pictures keep their size.
inline constexpr int kLongestSide = 160;
inline constexpr int kQuality = 75;

// True when the bytes begin as a JPEG does (start of image, then a marker).
bool LooksLikeJpeg(const std::uint8_t *data, std::size_t size);

// The thumbnail of a JPEG picture; empty when the picture does not decode
// cleanly (damaged, cut short, CMYK, or too large to decode).
Bytes MakeThumbnail(const std::uint8_t *data, std::size_t size);

// Makes thumbnails on threads of its own while the caller goes on with its
// work; the pictures waiting take at most a bounded amount of memory. The
// results are collected at the end, keyed by what the caller gave.
class ThumbnailMaker {
public:
    // threads 0: every thumbnail is made at once in Add. The threads start
    // with the first picture.
    explicit ThumbnailMaker(unsigned threads) : threadCount_(threads) {}
    ~ThumbnailMaker();
    ThumbnailMaker(const ThumbnailMaker &) = delete;
    ThumbnailMaker &operator=(const ThumbnailMaker &) = delete;

    // Queues a picture (waiting while too much is queued already).
    void Add(std::size_t key, Bytes picture);
    // Waits for every queued picture; the thumbnails made, in key order.
    std::vector<std::pair<std::size_t, Bytes>> Finish();

private:
    void Work();

    unsigned threadCount_;
    std::vector<std::thread> threads_;
    std::mutex mutex_;
    std::condition_variable wake_, room_;
    std::deque<std::pair<std::size_t, Bytes>> queue_;
    std::size_t queuedBytes_ = 0;
    std::size_t busy_ = 0;
    bool stopping_ = false;
    std::vector<std::pair<std::size_t, Bytes>> made_;
};

}  // namespace engine::thumbnail
