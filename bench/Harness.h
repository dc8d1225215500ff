// What every scenario needs: two processes on two processors, a clock, medians, random orders.
//
// The writer is the benchmark's own process on processor 0. A reader is a child process on
// processor 1 that measures itself and sends its figures back through a pipe.
#pragma once

#include "Dunlin/Types.h"

#include <functional>
#include <string>
#include <vector>

namespace Bench {

struct Options {
    std::vector<U32> sizes{12'000, 100'000, 1'000'000};
    U32 rounds = 7;
    U64 seed = 1;
    bool markdown = false;
};

// Processor time of the calling thread: unlike the clock on the wall it does not run while another
// process has the processor, so that a machine that does other things too gives usable figures.
U64 processorNs();
void pinToProcessor(unsigned processor);
constexpr unsigned writerProcessor = 0;
constexpr unsigned readerProcessor = 1;

// The numbers 0 to count-1 in a random order.
std::vector<U32> shuffled(U32 count, U64 seed);

// A small fast generator (splitmix64); the same seed gives the same numbers everywhere.
class Random {
public:
    explicit Random(U64 seed) : state_(seed) {}
    U64 next() {
        U64 z = (state_ += 0x9e3779b97f4a7c15U);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31);
    }
    U32 below(U32 limit) { return static_cast<U32>((next() >> 32) * limit >> 32); }

private:
    U64 state_;
};

double median(std::vector<double> values);

// Calls `round` the given number of times after one that does not count; each call does
// `operations` of them. Gives nanoseconds for one operation, the median of the rounds.
double measure(U32 rounds, U64 operations, std::function<void()> const& round);

// Runs `body` in a reader process and gives what it returned. `meanwhile`, if there is one, is
// called here over and over until the reader is done; it is given the chance to be under way before
// the reader starts. Ends the benchmark if the reader dies.
double inReader(std::function<double()> const& body, std::function<void()> const& meanwhile = {});

// Keeps the compiler from leaving out or moving what produced the bytes.
inline void used(void const* bytes) {
    asm volatile("" : : "r"(bytes) : "memory");
}

// Shared pages like those of a table's files: kept in memory, mapped by writer and readers.
class SharedPages {
public:
    explicit SharedPages(std::size_t size);
    SharedPages(SharedPages const&) = delete;
    SharedPages& operator=(SharedPages const&) = delete;
    ~SharedPages();
    void* data() const { return data_; }

private:
    void* data_;
    std::size_t size_;
};

// One line of the result: a figure beside its yardstick and the multiple we want to stay below.
struct Row {
    std::string scenario;
    U32 entries;
    double value;
    char const* unit;
    double yardstick;
    std::string yardstickName;
    double reach; // 0: no goal
};
void print(std::vector<Row> const& rows, bool markdown);

} // namespace Bench
