// The C library's malloc/free on one and two threads, in a program that
// links neither the library nor jemalloc (which would replace malloc), as
// the reference beside kestro_bench's pool and jemalloc rows.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

void GlibcMallocFree(benchmark::State &state) {
    const auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *p = std::malloc(size);
        benchmark::DoNotOptimize(p);
        std::free(p);
        if (p == nullptr) {
            state.SkipWithError("malloc failed");
            break;
        }
    }
}

double Min(const std::vector<double> &v) {
    return *std::min_element(v.begin(), v.end());
}

BENCHMARK(GlibcMallocFree)->Arg(32)->Arg(256)->Arg(4096)->Threads(1)->UseRealTime();
BENCHMARK(GlibcMallocFree)
    ->Arg(32)
    ->Arg(256)
    ->Arg(4096)
    ->Threads(2)
    ->UseRealTime()
    ->Repetitions(7)
    ->ReportAggregatesOnly(true)
    ->ComputeStatistics("min", Min);

}  // namespace
