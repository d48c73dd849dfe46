#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/main_queue.h"
#include "base/serial_queue.h"

namespace quillo {
namespace {

TEST(SerialQueue, RunsTasksInOrderOnItsOwnThread) {
    std::vector<int> order;
    std::thread::id worker;
    {
        SerialQueue queue("app.quillo.test");
        for (int i = 0; i < 100; ++i) {
            queue.post([&, i] {
                order.push_back(i);
                worker = std::this_thread::get_id();
            });
        }
    }  // the destructor runs what is queued before joining
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[i], i);
    }
    EXPECT_NE(worker, std::this_thread::get_id());
}

TEST(SerialQueue, InvokeReturnsTheResultAndMayNest) {
    SerialQueue queue("app.quillo.test");
    EXPECT_EQ(queue.invoke([] { return 42; }), 42);
    // A task invoking its own queue runs at once instead of waiting on itself.
    EXPECT_EQ(queue.invoke([&] { return queue.invoke([] { return std::string("inner"); }); }),
              "inner");
    EXPECT_FALSE(queue.isCurrent());
    EXPECT_TRUE(queue.invoke([&] { return queue.isCurrent(); }));
}

TEST(SerialQueue, AThrowingTaskDoesNotStopTheQueue) {
    SerialQueue queue("app.quillo.test");
    queue.post([] { throw std::runtime_error("boom"); });
    EXPECT_EQ(queue.invoke([] { return 1; }), 1);
}

TEST(LoopMainQueue, WorkerInvokesMainAndLoopQuits) {
    LoopMainQueue main;
    MainQueue::install(&main);
    std::atomic<int> seen{0};
    std::thread worker([&] {
        // The worker waits on the main queue's answer, as tool calls do.
        int value = MainQueue::shared().invoke([&] {
            EXPECT_TRUE(main.isCurrent());
            return 7;
        });
        seen = value;
        main.quit();
    });
    main.run();
    worker.join();
    EXPECT_EQ(seen.load(), 7);
    MainQueue::install(nullptr);
}

TEST(LoopMainQueue, RunPendingRunsTasksPostedByTasks) {
    LoopMainQueue main;
    int count = 0;
    main.post([&] {
        ++count;
        main.post([&] { ++count; });
    });
    EXPECT_EQ(main.runPending(), 2);
    EXPECT_EQ(count, 2);
}

}  // namespace
}  // namespace quillo
