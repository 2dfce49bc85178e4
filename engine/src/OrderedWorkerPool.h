// Worker threads for writers that code pieces in parallel: tasks run on any
// worker, and the caller takes them back oldest first when it must store
// them in the order they were handed over, or as they finish when it need
// not. Each worker keeps one coder state from task to task (a compression
// context), released when it stops.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace engine {

class OrderedWorkerPool {
public:
    // A task codes one piece; `state` is its worker's coder state, null
    // until a task sets it.
    using Task = std::function<void(void *&state)>;
    using FreeState = std::function<void(void *state)>;

    explicit OrderedWorkerPool(FreeState freeState);
    ~OrderedWorkerPool();
    OrderedWorkerPool(const OrderedWorkerPool &) = delete;
    OrderedWorkerPool &operator=(const OrderedWorkerPool &) = delete;

    // Up to `most` workers, no more than there are cores; with none, every
    // task runs at once on the caller's thread, when it is submitted.
    void Start(unsigned most);
    static unsigned Cores();
    static constexpr unsigned kOneACore = ~0u;
    // Ends the workers; tasks not yet begun are dropped.
    void Stop();

    std::size_t Workers() const { return workers_.size(); }
    // Tasks submitted and not yet taken back.
    std::size_t Pending() const { return order_.size(); }

    // The task's number: tasks are numbered from 0 as they are submitted.
    std::uint64_t Submit(Task task);
    // Waits until the oldest task not yet taken back is done and forgets it.
    // Only with a task pending.
    void TakeFront();
    // Waits until any task not yet taken back is done, forgets it and gives
    // its number. Only with a task pending.
    std::uint64_t TakeAnyDone();

private:
    struct Entry {
        Task task;
        std::uint64_t number = 0;
        bool done = false;
    };

    void Work();

    FreeState freeState_;
    void *ownState_ = nullptr;
    std::vector<std::thread> workers_;
    std::deque<std::shared_ptr<Entry>> order_;
    std::mutex mutex_;
    std::condition_variable wake_, finished_;
    std::deque<std::shared_ptr<Entry>> queue_;
    std::uint64_t submitted_ = 0;
    bool stopping_ = false;
};

}  // namespace engine
