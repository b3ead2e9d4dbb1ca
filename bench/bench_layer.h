// The layer under the benchmarks. The program's main starts it once, with
// quiet logs and the module manager threaded, before any benchmark runs,
// and stops it after the last; no benchmark starts or stops it on its own,
// so the order (random interleaving included) cannot leave one benchmark
// timing calls that fail on a layer another one stopped.
//
// A benchmark that needs the layer started otherwise (the host-driven
// module road) holds a LayerInMode for its run; the layer is then
// restarted as main had it. Objects made on the layer (pools, readers,
// token managers) are kept per layer generation through PerLayer().
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

namespace kbench {

// Starts the layer with the module manager in the given drive mode
// (1 threaded, 0 host-driven). False when it does not start.
bool LayerStart(uint32_t modDrvMode);
void LayerStop();

// Bumped by every start; objects made on an earlier layer are stale.
uint32_t LayerGeneration();

class LayerInMode {
  public:
    explicit LayerInMode(uint32_t modDrvMode);
    ~LayerInMode();
    LayerInMode(const LayerInMode &) = delete;
    LayerInMode &operator=(const LayerInMode &) = delete;
    bool Ok() const { return ok_; }

  private:
    bool ok_;
};

// One object per layer generation, made by make() on first use. An object
// of a stopped layer is dropped without being deleted: its memory went
// with that layer.
template <typename T, typename Make>
T PerLayer(Make make) {
    static T obj{};
    static uint32_t gen = 0;
    if (gen != LayerGeneration()) {
        obj = make();
        gen = LayerGeneration();
    }
    return obj;
}

// Two-thread figures swing by several times between runs on a loaded
// 2-core machine: such benchmarks are repeated and reported as their
// minimum and median (and mean) instead of one figure. For ->Apply().
void MinMedian(benchmark::internal::Benchmark *b);

// Zeroes callgrind's counts before every run of the benchmark (nothing
// outside valgrind), so that bench/count.sh counts only the last run, the
// one whose iterations are reported. For ->Apply() on single-thread rows.
void Counted(benchmark::internal::Benchmark *b);

}  // namespace kbench

// Ends the benchmark with an error when a call inside it fails: a failed
// call is never timed as if it had done its work. For use inside the
// timing loop (it leaves the loop) and before it.
#define KBENCH_CHECK(state, cond)                \
    if (!(cond)) {                               \
        (state).SkipWithError("failed: " #cond); \
        break;                                   \
    }
#define KBENCH_REQUIRE(state, cond)                  \
    do {                                             \
        if (!(cond)) {                               \
            (state).SkipWithError("failed: " #cond); \
            return;                                  \
        }                                            \
    } while (0)
