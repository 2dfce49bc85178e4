// Writes one buffer to a file on a thread of its own while the caller
// fills the next: expanding overlaps decoding and writing.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "Result.h"

namespace engine {

class BackgroundWriter {
public:
    // Without `threaded`, every write happens at once on the caller's thread.
    explicit BackgroundWriter(bool threaded);
    ~BackgroundWriter();
    BackgroundWriter(const BackgroundWriter &) = delete;
    BackgroundWriter &operator=(const BackgroundWriter &) = delete;

    // Hands `size` bytes of `buffer` over for writing to `fd` and gives the
    // caller an empty buffer of the same capacity back in its place. The
    // result is that of the write before.
    Result Write(int fd, std::vector<char> &buffer, std::size_t size);
    // Waits for the write under way; its result.
    Result Finish();

private:
    void Run();

    bool threaded_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<char> pending_;
    std::size_t pendingSize_ = 0;
    int fd_ = -1;
    bool busy_ = false;
    bool stopping_ = false;
    Result result_ = kEngineOK;
};

}  // namespace engine
