// Single calls, without a table: what a hash or a text costs.
#include "Dunlin/Util.h"

#include <benchmark/benchmark.h>

static void reverse(benchmark::State& state) {
    U32 word = 1;
    for (auto _ : state) benchmark::DoNotOptimize(word = Dunlin::Util::reverse(word + 1));
}
BENCHMARK(reverse);
