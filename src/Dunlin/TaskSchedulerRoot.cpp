#include "Dunlin/TaskSchedulerRoot.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Fork.h"
#include "Dunlin/Rdtsc.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <unordered_map>

namespace Dunlin {
namespace {

[[noreturn]] void failed(char const* call) {
    fmthrow<RuntimeException>("{}: {}", call, std::strerror(errno));
}

} // namespace

struct TaskSchedulerRoot::Impl {
    struct Watch {
        FdCallback callback;
        U64 serial; // tells an event of a removed watch from one of its successor on the same fd
    };

    int epoll = -1;
    int timer = -1;
    int wakeup = -1;
    U64 nextSerial = 1;
    std::unordered_map<int, std::shared_ptr<Watch>> watches;
    std::map<std::pair<U64, TimerId>, Task> timers; // by due time in nanoseconds, then age
    std::unordered_map<TimerId, U64> dueTimes;
    TimerId nextTimer = 1;
    U64 armedFor = 0; // what the timerfd is set to; 0 unset
    std::mutex taskMutex;
    std::deque<Task> critical, normal;
    std::atomic<bool> stopping{false};
    std::mutex openMutex;
    std::atomic<U32> openedIn{0}; // fork generation + 1 of the process that opened; 0 not open

    // Opened at first use, so that loading the library opens nothing. A forked child starts afresh:
    // the epoll and what it watches belong to the parent.
    void open() {
        U32 const here = forkGeneration() + 1;
        if (openedIn.load(std::memory_order_acquire) == here) [[likely]]
            return;
        std::lock_guard const lock(openMutex);
        U32 const opened = openedIn.load(std::memory_order_relaxed);
        if (opened == here) return;
        if (opened != 0) {
            closeDescriptors();
            // Let go without destroying anything: what a callback holds is the parent's business.
            abandon(watches);
            abandon(timers);
            abandon(critical);
            abandon(normal);
            dueTimes.clear();
            armedFor = 0;
        }
        openDescriptors();
        openedIn.store(here, std::memory_order_release);
    }
    template <class Container>
    static void abandon(Container& container) {
        [[maybe_unused]] auto const* const leaked = new Container(std::move(container));
        container.clear();
    }
    void closeDescriptors() {
        for (int const fd : {epoll, timer, wakeup})
            if (fd >= 0) close(fd);
    }
    void openDescriptors() {
        epoll = epoll_create1(EPOLL_CLOEXEC);
        timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        wakeup = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (epoll < 0 || timer < 0 || wakeup < 0) failed("event loop");
        for (int const fd : {timer, wakeup}) {
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.fd = fd;
            if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) failed("epoll_ctl");
        }
    }
    ~Impl() { closeDescriptors(); }

    void arm() {
        U64 const due = timers.empty() ? 0 : std::max<U64>(timers.begin()->first.first, 1);
        if (due == armedFor) return;
        armedFor = due;
        itimerspec when{};
        when.it_value.tv_sec = static_cast<time_t>(due / 1'000'000'000U);
        when.it_value.tv_nsec = static_cast<long>(due % 1'000'000'000U);
        timerfd_settime(timer, TFD_TIMER_ABSTIME, &when, nullptr);
    }
    void ring() {
        U64 const one = 1;
        // A full counter already wakes the loop.
        [[maybe_unused]] auto const written = ::write(wakeup, &one, sizeof one);
    }
    // One read takes all that an eventfd or a timerfd has counted.
    static void drain(int fd) {
        U64 count;
        [[maybe_unused]] auto const taken = ::read(fd, &count, sizeof count);
    }
    // Runs what is queued at the moment of the call, one at a time, so that a task may throw or
    // re-enter without losing another.
    bool runTasks(std::deque<Task>& queue) {
        std::size_t left;
        {
            std::lock_guard const lock(taskMutex);
            left = queue.size();
        }
        bool ran = false;
        for (; left > 0; --left) {
            Task task;
            {
                std::lock_guard const lock(taskMutex);
                if (queue.empty()) break;
                task = std::move(queue.front());
                queue.pop_front();
            }
            ran = true;
            task();
        }
        return ran;
    }
    bool runTimers() {
        U64 const now = Rdtsc::monotonicNanoseconds();
        TimerId const youngest = nextTimer; // those made from now on wait for the next turn
        bool ran = false;
        for (;;) {
            auto const first = timers.begin();
            if (first == timers.end() || first->first.first > now) break;
            if (first->first.second >= youngest) break;
            Task const task = std::move(first->second);
            dueTimes.erase(first->first.second);
            timers.erase(first);
            ran = true;
            task();
        }
        return ran;
    }
    bool tasksQueued() {
        std::lock_guard const lock(taskMutex);
        return !critical.empty() || !normal.empty();
    }
};

TaskSchedulerRoot::TaskSchedulerRoot() : impl_(std::make_unique<Impl>()) {}
TaskSchedulerRoot::~TaskSchedulerRoot() = default;

void TaskSchedulerRoot::fdAdd(int fd, U32 events, FdCallback callback) {
    Impl& d = *impl_;
    d.open();
    bool const known = d.watches.contains(fd);
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    if (epoll_ctl(d.epoll, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &event) != 0)
        failed("epoll_ctl");
    d.watches[fd] = std::make_shared<Impl::Watch>(Impl::Watch{std::move(callback), d.nextSerial++});
}

void TaskSchedulerRoot::fdDel(int fd) {
    impl_->open();
    if (impl_->watches.erase(fd) == 0) return;
    epoll_ctl(impl_->epoll, EPOLL_CTL_DEL, fd, nullptr);
}

TaskSchedulerRoot::TimerId TaskSchedulerRoot::timerAdd(double seconds, Task callback) {
    Impl& d = *impl_;
    d.open();
    double const wait = std::max(0.0, std::min(seconds, 1e9));
    U64 const due = Rdtsc::monotonicNanoseconds() + static_cast<U64>(wait * 1e9);
    TimerId const id = d.nextTimer++;
    d.timers.emplace(std::pair(due, id), std::move(callback));
    d.dueTimes.emplace(id, due);
    d.arm();
    return id;
}

void TaskSchedulerRoot::timerDel(TimerId id) {
    Impl& d = *impl_;
    d.open();
    auto const found = d.dueTimes.find(id);
    if (found == d.dueTimes.end()) return;
    d.timers.erase({found->second, id});
    d.dueTimes.erase(found);
    d.arm();
}

void TaskSchedulerRoot::taskAdd(Priority priority, Task task) {
    Impl& d = *impl_;
    d.open();
    {
        std::lock_guard const lock(d.taskMutex);
        (priority == Priority::critical ? d.critical : d.normal).push_back(std::move(task));
    }
    d.ring();
}

void TaskSchedulerRoot::runCriticalPriorityTasks() {
    impl_->runTasks(impl_->critical);
}

bool TaskSchedulerRoot::runOnce(double timeout) {
    Impl& d = *impl_;
    d.open();
    d.arm(); // a timer's callback further up the stack may be running the loop
    int wait = timeout < 0 ? -1 : static_cast<int>(std::min(std::ceil(timeout * 1e3), 2e9));
    if (d.tasksQueued()) wait = 0;
    std::array<epoll_event, 64> events;
    int const ready = epoll_wait(d.epoll, events.data(), static_cast<int>(events.size()), wait);
    if (ready < 0 && errno != EINTR) failed("epoll_wait");

    // Look the watches up before anything runs: a callback may remove one and reuse its number.
    std::array<std::shared_ptr<Impl::Watch>, 64> watches;
    bool timerDue = false;
    for (int i = 0; i < ready; ++i) {
        int const fd = events[static_cast<std::size_t>(i)].data.fd;
        if (fd == d.timer) {
            Impl::drain(fd);
            d.armedFor = 0;
            timerDue = true;
        } else if (fd == d.wakeup) {
            Impl::drain(fd);
        } else if (auto const found = d.watches.find(fd); found != d.watches.end()) {
            watches[static_cast<std::size_t>(i)] = found->second;
        }
    }
    // A host that polls must be told of timers and tasks that this turn leaves behind, also when a
    // callback throws.
    struct AtEnd {
        Impl& d;
        ~AtEnd() {
            d.arm();
            if (d.tasksQueued()) d.ring();
        }
    } const atEnd{d};
    bool ran = d.runTasks(d.critical);
    if (timerDue) ran |= d.runTimers();
    for (int i = 0; i < ready; ++i) {
        auto const& watch = watches[static_cast<std::size_t>(i)];
        if (!watch) continue;
        auto const& event = events[static_cast<std::size_t>(i)];
        auto const found = d.watches.find(event.data.fd);
        if (found == d.watches.end() || found->second->serial != watch->serial) continue;
        watch->callback(event.events);
        ran = true;
    }
    ran |= d.runTasks(d.normal);
    return ran;
}

void TaskSchedulerRoot::run() {
    impl_->stopping = false;
    while (!impl_->stopping) runOnce(-1);
}

void TaskSchedulerRoot::stop() {
    impl_->stopping = true;
    impl_->open();
    impl_->ring();
}

int TaskSchedulerRoot::pollFd() const {
    impl_->open();
    return impl_->epoll;
}

double TaskSchedulerRoot::now() const {
    return static_cast<double>(Rdtsc::monotonicNanoseconds()) * 1e-9;
}

namespace {
TaskSchedulerRoot& theRoot() {
    // Never destroyed: objects that hang on it may outlive it otherwise.
    static auto& root = *new TaskSchedulerRoot;
    return root;
}
} // namespace

TaskSchedulerRoot* schedulerRootDunlin = &theRoot();

} // namespace Dunlin
