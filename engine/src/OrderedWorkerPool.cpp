#include "OrderedWorkerPool.h"

#include <algorithm>

namespace engine {

OrderedWorkerPool::OrderedWorkerPool(FreeState freeState) : freeState_(std::move(freeState)) {}

OrderedWorkerPool::~OrderedWorkerPool() {
    Stop();
    if (ownState_ && freeState_) freeState_(ownState_);
}

unsigned OrderedWorkerPool::Cores() { return std::max(1u, std::thread::hardware_concurrency()); }

void OrderedWorkerPool::Start(unsigned most) {
    if (!workers_.empty()) return;
    unsigned count = std::min(most, Cores());
    for (unsigned i = 0; i < count; ++i) workers_.emplace_back([this] { Work(); });
}

void OrderedWorkerPool::Stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (auto &worker : workers_) worker.join();
    workers_.clear();
    std::lock_guard lock(mutex_);
    stopping_ = false;
    queue_.clear();
    order_.clear();
}

std::uint64_t OrderedWorkerPool::Submit(Task task) {
    auto entry = std::make_shared<Entry>();
    entry->task = std::move(task);
    entry->number = submitted_++;
    order_.push_back(entry);
    if (workers_.empty()) {
        entry->task(ownState_);
        entry->done = true;
        return entry->number;
    }
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(entry);
    }
    wake_.notify_one();
    return entry->number;
}

void OrderedWorkerPool::TakeFront() {
    std::shared_ptr<Entry> entry = order_.front();
    {
        std::unique_lock lock(mutex_);
        finished_.wait(lock, [&] { return entry->done; });
    }
    order_.pop_front();
}

std::uint64_t OrderedWorkerPool::TakeAnyDone() {
    auto done = order_.end();
    {
        std::unique_lock lock(mutex_);
        finished_.wait(lock, [&] {
            done = std::find_if(order_.begin(), order_.end(),
                                [](const std::shared_ptr<Entry> &entry) { return entry->done; });
            return done != order_.end();
        });
    }
    std::uint64_t number = (*done)->number;
    order_.erase(done);
    return number;
}

void OrderedWorkerPool::Work() {
    void *state = nullptr;
    for (;;) {
        std::shared_ptr<Entry> entry;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
            if (queue_.empty()) break;
            entry = queue_.front();
            queue_.pop_front();
        }
        entry->task(state);
        {
            std::lock_guard lock(mutex_);
            entry->done = true;
        }
        finished_.notify_all();
    }
    if (state && freeState_) freeState_(state);
}

}  // namespace engine
