// The writers' worker pool: tasks handed back oldest first, or as they
// finish, with a slow first task not holding back the ones after it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "OrderedWorkerPool.h"

namespace {

using engine::OrderedWorkerPool;

TEST(OrderedWorkerPoolTest, TasksComeBackAsTheyFinishWhileTheFirstStillRuns) {
    OrderedWorkerPool pool(nullptr);
    pool.Start(2);
    if (pool.Workers() < 2) GTEST_SKIP() << "needs two cores";
    std::atomic<bool> release{false};
    std::atomic<int> done{0};
    EXPECT_EQ(pool.Submit([&](void *&) {
        while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ++done;
    }),
              0u);
    EXPECT_EQ(pool.Submit([&](void *&) { ++done; }), 1u);
    EXPECT_EQ(pool.TakeAnyDone(), 1u) << "the quick second task, while the first waits";
    EXPECT_EQ(pool.Pending(), 1u);
    release = true;
    EXPECT_EQ(pool.TakeAnyDone(), 0u);
    EXPECT_EQ(done, 2);
    EXPECT_EQ(pool.Pending(), 0u);
}

TEST(OrderedWorkerPoolTest, WithoutWorkersTasksRunAtOnceAndKeepTheirNumbers) {
    OrderedWorkerPool pool(nullptr);
    int ran = 0;
    for (std::uint64_t i = 0; i < 3; ++i) EXPECT_EQ(pool.Submit([&](void *&) { ++ran; }), i);
    EXPECT_EQ(ran, 3);
    EXPECT_EQ(pool.TakeAnyDone(), 0u);
    pool.TakeFront();
    EXPECT_EQ(pool.TakeAnyDone(), 2u);
    EXPECT_EQ(pool.Pending(), 0u);
}

}  // namespace
