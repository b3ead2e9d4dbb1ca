// Lines per second into a log file: Zos_LogInfo on a log with a file (cache
// ring drained to the file, one Zos_LogFlush at the end) against fprintf of
// the same lines, time prefix included, to a FILE*.
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

constexpr int64_t kLines = 500000;

std::string BenchDir(const char *name) {
    const std::string dir =
        std::string("/tmp/kestro-bench-") + std::to_string(::getpid()) + "-" + name;
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

void LogInfoToFile(benchmark::State &state) {
    const std::string dir = BenchDir("log");
    // The layer runs with a quiet system log and no rotation inside a run.
    ZLOGID log = Zos_LogCreateX("BENCH", (dir + "/bench.log").c_str(), ZOS_LOG_FLAG_MUTEX,
                                ZOS_LOG_LEVEL_ALL, static_cast<uint32_t>(state.range(0)));
    KBENCH_REQUIRE(state, log != nullptr);
    int i = 0;
    for (auto _ : state) {
        KBENCH_CHECK(state,
                     Zos_LogInfo(log, "request %d done in %d us: %s", i, i * 3, "ok") == ZOK);
        ++i;
    }
    Zos_LogFlush(log);
    state.SetItemsProcessed(state.iterations());
    Zos_LogDelete(log);
    // Every line must have reached the file (its name carries the time the
    // log opened it).
    uintmax_t size = 0;
    for (const auto &f : std::filesystem::directory_iterator(dir)) size += f.file_size();
    std::filesystem::remove_all(dir);
    KBENCH_REQUIRE(state, size >= static_cast<uintmax_t>(state.iterations()) * 40);
}

void FprintfToFile(benchmark::State &state) {
    const std::string dir = BenchDir("fprintf");
    FILE *f = std::fopen((dir + "/bench.log").c_str(), "wb");
    if (f == nullptr) {
        state.SkipWithError("cannot open file");
        return;
    }
    int i = 0;
    for (auto _ : state) {
        // The same prefix the log writes: local time with milliseconds.
        timespec ts{};
        clock_gettime(CLOCK_REALTIME, &ts);
        tm lt{};
        localtime_r(&ts.tv_sec, &lt);
        std::fprintf(f, "%02d:%02d:%02d.%03ld %s: %s: request %d done in %d us: %s\n", lt.tm_hour,
                     lt.tm_min, lt.tm_sec, ts.tv_nsec / 1000000, "BENCH", "INFO", i, i * 3, "ok");
        ++i;
    }
    std::fflush(f);
    ::fsync(::fileno(f));
    std::fclose(f);
    state.SetItemsProcessed(state.iterations());
    std::filesystem::remove_all(dir);
}

}  // namespace

// Cache sizes: the configured default (4 KiB) and a larger ring. Times are
// per line, in nanoseconds.
BENCHMARK(LogInfoToFile)->Arg(4096)->Arg(65536)->Iterations(kLines)->Unit(benchmark::kNanosecond);
BENCHMARK(FprintfToFile)->Iterations(kLines)->Unit(benchmark::kNanosecond);
