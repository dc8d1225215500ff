// The event loop.
#include "Dunlin/TaskSchedulerRoot.h"

#include <poll.h>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>

namespace {

using Dunlin::TaskSchedulerRoot;
using Priority = TaskSchedulerRoot::Priority;

TEST(TaskSchedulerRoot, TimersRunInOrderAndDeletedOnesNever) {
    TaskSchedulerRoot loop;
    std::string order;
    loop.timerAdd(0.02, [&] { order += 'c'; });
    auto const b = loop.timerAdd(0.01, [&] { order += 'b'; });
    loop.timerAdd(0, [&] {
        order += 'a';
        loop.timerDel(b);
        loop.timerAdd(0.001, [&] { order += 'd'; });
    });
    while (order.size() < 3) loop.runOnce(1);
    EXPECT_EQ(order, "adc");
}

TEST(TaskSchedulerRoot, CriticalTasksRunFirstAndOnDemand) {
    TaskSchedulerRoot loop;
    std::string order;
    loop.taskAdd(Priority::normal, [&] { order += 'n'; });
    loop.taskAdd(Priority::critical, [&] {
        order += 'c';
        loop.taskAdd(Priority::critical, [&] { order += 'd'; });
    });
    loop.runCriticalPriorityTasks();
    EXPECT_EQ(order, "c"); // what a task queues waits for the next call
    EXPECT_TRUE(loop.runReady());
    EXPECT_EQ(order, "cdn");
    EXPECT_FALSE(loop.runReady());
}

TEST(TaskSchedulerRoot, ARemovedDescriptorIsNeverCalledEvenWithinTheTurn) {
    TaskSchedulerRoot loop;
    int a[2], b[2];
    ASSERT_EQ(pipe(a), 0);
    ASSERT_EQ(pipe(b), 0);
    int calls = 0;
    auto const callback = [&](U32) {
        ++calls;
        loop.fdDel(a[0]);
        loop.fdDel(b[0]);
    };
    loop.fdAdd(a[0], EPOLLIN, callback);
    loop.fdAdd(b[0], EPOLLIN, callback);
    ASSERT_EQ(write(a[1], "x", 1), 1);
    ASSERT_EQ(write(b[1], "x", 1), 1);
    loop.runOnce(1);
    loop.runReady();
    EXPECT_EQ(calls, 1);
    for (int const fd : {a[0], a[1], b[0], b[1]}) close(fd);
}

TEST(TaskSchedulerRoot, AHostLoopEmbedsItByOneDescriptor) {
    TaskSchedulerRoot loop;
    int ran = 0;
    pollfd entry{loop.pollFd(), POLLIN, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 0);
    loop.timerAdd(0.01, [&] {
        ++ran;
        loop.taskAdd(Priority::normal, [&] { ++ran; });
    });
    while (ran < 2) {
        ASSERT_EQ(poll(&entry, 1, 2000), 1);
        loop.runReady();
    }
    loop.runReady();
    EXPECT_EQ(poll(&entry, 1, 0), 0);
}

TEST(TaskSchedulerRoot, WhatIsLeftWhenACallbackThrowsOrRunsTheLoopStillRuns) {
    TaskSchedulerRoot loop;
    pollfd entry{loop.pollFd(), POLLIN, 0};
    std::string order;
    loop.timerAdd(0, [] { throw 1; });
    loop.timerAdd(0.01, [&] {
        order += 'a';
        while (order.size() < 2 && loop.runOnce(2)) {
        }
    });
    loop.timerAdd(0.02, [&] {
        order += 'b';
        loop.taskAdd(Priority::normal, [] { throw 2; });
        loop.taskAdd(Priority::normal, [&] { order += 'c'; });
    });
    int thrown = 0;
    while (order.size() < 3) {
        ASSERT_EQ(poll(&entry, 1, 2000), 1) << order;
        try {
            loop.runReady();
        } catch (int) {
            ++thrown;
        }
    }
    EXPECT_EQ(order, "abc");
    EXPECT_EQ(thrown, 2);
}

TEST(TaskSchedulerRoot, StopFromAnotherThreadEndsRun) {
    TaskSchedulerRoot loop;
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        loop.taskAdd(Priority::normal, [&] { loop.stop(); });
    });
    loop.run();
    other.join();
}

} // namespace
