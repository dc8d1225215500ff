#include "bench/Harness.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace Bench {

namespace {
[[noreturn]] void fail(std::string const& what) {
    fmt::print(stderr, "bench: {}\n", what);
    std::exit(2);
}
} // namespace

U64 processorNs() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<U64>(time.tv_sec) * 1'000'000'000U + static_cast<U64>(time.tv_nsec);
}

void pinToProcessor(unsigned processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    // On a machine with one processor, or where pinning is refused, the figures are still figures.
    if (sched_setaffinity(0, sizeof set, &set) != 0)
        fmt::print(stderr, "bench: cannot pin to processor {}; figures will scatter\n", processor);
}

std::vector<U32> shuffled(U32 count, U64 seed) {
    std::vector<U32> order(count);
    std::iota(order.begin(), order.end(), 0U);
    Random random(seed);
    for (U32 i = count; i > 1; --i) std::swap(order[i - 1], order[random.below(i)]);
    return order;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    std::size_t const middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double measure(U32 rounds, U64 operations, std::function<void()> const& round) {
    std::vector<double> perOperation;
    round();
    for (U32 i = 0; i < rounds; ++i) {
        U64 const start = processorNs();
        round();
        perOperation.push_back(static_cast<double>(processorNs() - start) /
                               static_cast<double>(operations));
    }
    return median(perOperation);
}

double inReader(std::function<double()> const& body, std::function<void()> const& meanwhile) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) fail("no pipe");
    std::fflush(nullptr);
    pid_t const reader = fork();
    if (reader < 0) fail("cannot start a reader process");
    if (reader == 0) {
        pinToProcessor(readerProcessor);
        double const figure = body();
        bool const sent = write(pipeEnds[1], &figure, sizeof figure) == sizeof figure;
        _exit(sent ? 0 : 1);
    }
    close(pipeEnds[1]);
    pollfd waiting{pipeEnds[0], POLLIN, 0};
    if (meanwhile)
        while (poll(&waiting, 1, 0) == 0) meanwhile();
    double figure = 0;
    bool const received = read(pipeEnds[0], &figure, sizeof figure) == sizeof figure;
    close(pipeEnds[0]);
    int status = 0;
    waitpid(reader, &status, 0);
    if (!received || status != 0)
        fail(fmt::format("the reader process ended with status {:#x}", status));
    return figure;
}

SharedPages::SharedPages(std::size_t size)
    : data_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
      size_(size) {
    if (data_ == MAP_FAILED) fail(fmt::format("cannot map {} bytes", size));
}
SharedPages::~SharedPages() {
    munmap(data_, size_);
}

void print(std::vector<Row> const& rows, bool markdown) {
    std::string const head =
        markdown ? "| Scenario | Entries | Measured | Yardstick | | Multiple | Reach | "
                   "|\n|---|--:|--:|--:|---|--:|--:|---|\n"
                 : fmt::format("{:34}{:>10}{:>14}{:>14}  {:24}{:>9}{:>8}\n", "scenario", "entries",
                               "measured", "yardstick", "", "multiple", "reach");
    fmt::print("{}", head);
    for (auto const& row : rows) {
        double const multiple = row.yardstick > 0 ? row.value / row.yardstick : 0;
        std::string const reach = row.reach > 0 ? fmt::format("{:.2f}", row.reach) : "";
        char const* const verdict = row.reach <= 0          ? ""
                                    : multiple <= row.reach ? "reached"
                                                            : "falls short";
        std::string const value = fmt::format("{:.1f} {}", row.value, row.unit);
        std::string const stick =
            row.yardstick > 0 ? fmt::format("{:.1f} {}", row.yardstick, row.unit) : "";
        std::string const times = row.yardstick > 0 ? fmt::format("{:.2f}", multiple) : "";
        if (markdown)
            fmt::print("| {} | {:L} | {} | {} | {} | {} | {} | {} |\n", row.scenario, row.entries,
                       value, stick, row.yardstickName, times, reach, verdict);
        else
            fmt::print("{:34}{:>10}{:>14}{:>14}  {:24}{:>9}{:>8}  {}\n", row.scenario, row.entries,
                       value, stick, row.yardstickName, times, reach, verdict);
    }
}

} // namespace Bench
