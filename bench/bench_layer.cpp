// The benchmark program's main and the one start of the layer.
#include "bench_layer.h"

#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "kestro_lite.h"

namespace kbench {
namespace {

uint32_t g_generation = 0;

void Quiet(const char *) {}

}  // namespace

bool LayerStart(uint32_t modDrvMode) {
    // Settings are dropped by every stop, so they are given before every start.
    Zos_CfgSetPrintDisp(Quiet);
    Zos_CfgSetLogPrint(0);
    Zos_CfgSetLogFile("");
    Zos_CfgSetLogFileSize(0x7FFFFFFFu);  // no rotation inside a run
    Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_FATAL);
    Zos_CfgSetQueueSize(8192);
    Zos_CfgSetModDrvMode(modDrvMode);
    if (Zos_SysInit() != ZOK) return false;
    ++g_generation;
    return true;
}

void LayerStop() {
    Zos_SysDestroy();
}

uint32_t LayerGeneration() {
    return g_generation;
}

LayerInMode::LayerInMode(uint32_t modDrvMode) {
    LayerStop();
    ok_ = LayerStart(modDrvMode);
}

LayerInMode::~LayerInMode() {
    LayerStop();
    if (!LayerStart(1)) {
        std::fputs("kestro_bench: the layer did not restart\n", stderr);
        std::_Exit(1);
    }
}

void MinMedian(benchmark::internal::Benchmark *b) {
    b->Repetitions(7)->ReportAggregatesOnly(true)->ComputeStatistics(
        "min", [](const std::vector<double> &v) { return *std::min_element(v.begin(), v.end()); });
}

void Counted(benchmark::internal::Benchmark *b) {
    b->Setup([](const benchmark::State &) { CALLGRIND_ZERO_STATS; });
}

}  // namespace kbench

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!kbench::LayerStart(1)) {
        std::fputs("kestro_bench: the layer did not start\n", stderr);
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    kbench::LayerStop();
    return 0;
}
