#include "BackgroundWriter.h"

#include "FileSystem.h"

namespace engine {

BackgroundWriter::BackgroundWriter(bool threaded) : threaded_(threaded) {
    if (threaded_) thread_ = std::thread([this] { Run(); });
}

BackgroundWriter::~BackgroundWriter() {
    if (!threaded_) return;
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

Result BackgroundWriter::Write(int fd, std::vector<char> &buffer, std::size_t size) {
    if (!threaded_) return WriteAll(fd, buffer.data(), size);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !busy_; });
    Result before = result_;
    result_ = kEngineOK;
    if (before != kEngineOK) return before;
    pending_.resize(buffer.size());
    pending_.swap(buffer);
    pendingSize_ = size;
    fd_ = fd;
    busy_ = true;
    lock.unlock();
    changed_.notify_all();
    return kEngineOK;
}

Result BackgroundWriter::Finish() {
    if (!threaded_) return kEngineOK;
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !busy_; });
    Result result = result_;
    result_ = kEngineOK;
    return result;
}

void BackgroundWriter::Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return busy_ || stopping_; });
        if (!busy_) return;
        int fd = fd_;
        std::size_t size = pendingSize_;
        lock.unlock();
        Result result = WriteAll(fd, pending_.data(), size);
        lock.lock();
        result_ = result;
        busy_ = false;
        changed_.notify_all();
    }
}

}  // namespace engine
