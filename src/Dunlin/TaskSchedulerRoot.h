// The event loop of a process's activity thread: descriptors, timers and tasks, on epoll with one
// timerfd and one eventfd. Everything in the life of a shadow and of the command-line tool hangs on
// it. A host with a loop of its own embeds it by one pollable descriptor, `pollFd()`, and one call
// that runs what is ready, `runReady()`.
//
// One thread runs the loop and calls every member, except `stop()` and `taskAdd()`, which any
// thread may call. Callbacks may add and remove descriptors, timers and tasks, their own included.
// A forked child finds the loop empty, with descriptors of its own.
#pragma once

#include "Dunlin/Types.h"

#include <functional>
#include <memory>

namespace Dunlin {

class TaskSchedulerRoot {
public:
    using Task = std::function<void()>;
    // The epoll events (EPOLLIN, EPOLLOUT, ...) that are ready.
    using FdCallback = std::function<void(U32 events)>;
    using TimerId = U64;
    enum class Priority : U8 { critical, normal };

    TaskSchedulerRoot();
    ~TaskSchedulerRoot();
    TaskSchedulerRoot(TaskSchedulerRoot const&) = delete;
    TaskSchedulerRoot& operator=(TaskSchedulerRoot const&) = delete;

    // Calls `callback` while `fd` has one of `events` (level-triggered). A descriptor may be added
    // once; adding it again changes events and callback. Raises RuntimeException if it cannot be
    // polled. `fdDel` before the descriptor is closed; no call comes after it.
    void fdAdd(int fd, U32 events, FdCallback callback);
    void fdDel(int fd);

    // Calls `callback` once, `seconds` from now (0 or more). `timerDel` of a timer that has run or
    // was never made does nothing.
    TimerId timerAdd(double seconds, Task callback);
    void timerDel(TimerId id);

    // Runs `task` on the loop's next turn; critical tasks run before normal ones, and also from
    // `runCriticalPriorityTasks`.
    void taskAdd(Priority priority, Task task);

    // Runs the critical tasks that are queued now, on the calling thread. May be called from the
    // middle of a table operation. Tasks they queue in turn run at the next call.
    void runCriticalPriorityTasks();

    // One turn: waits up to `timeout` seconds (negative: for ever) for something to do, then runs
    // all that is ready. True if anything ran.
    bool runOnce(double timeout);
    // Turns until `stop()`.
    void run();
    void stop();

    // For a host's loop: readable when `runReady` has something to do. `runReady` never waits.
    int pollFd() const;
    bool runReady() { return runOnce(0); }

    // The loop's clock, in seconds of CLOCK_MONOTONIC.
    double now() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// The process's loop, never null. It opens its descriptors at first use.
extern TaskSchedulerRoot* schedulerRootDunlin;

} // namespace Dunlin
