// Events against a std::unordered_map of std::variant: create, set six
// parameters of mixed kinds (two of them texts), read them back, delete.
// The event runs also report the platform-heap allocations per event
// (counter "heap_allocs"), counted by wrapping the heap slot.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <unordered_map>
#include <variant>

#include "kestro_lite.h"

namespace {

const char kUri[] = "sip:alice@example.com";
const char kCallId[] = "a84b4c76e66710@pc33.example.com";

void Quiet(const char *) {}

uint64_t g_heapCalls = 0;
void *CountingMalloc(uint32_t size) {
    ++g_heapCalls;
    return Zpand_Malloc(size);
}

void Start() {
    static const bool started = [] {
        Zos_CfgSetPrintDisp(Quiet);
        if (Zos_SysInit() != ZOK) return false;
        Zos_OsenvLocateNew()->pfnOsdep[0] = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingMalloc);
        return true;
    }();
    if (!started) std::abort();
}

void EventSixParams(benchmark::State &state) {
    Start();
    int anchor = 0;
    const uint64_t before = g_heapCalls;
    for (auto _ : state) {
        ZEVNT e = Zos_EvntCreate();
        Zos_EParmSetUint(e, 0, 200);
        Zos_EParmSetInt(e, 1, -5);
        Zos_EParmSetStr(e, 2, kUri);
        Zos_EParmSetPtr(e, 3, &anchor);
        Zos_EParmSetUint64(e, 4, 0x123456789ull);
        Zos_EParmSetStr(e, 5, kCallId);
        uint64_t sum = Zos_EParmGetUint(e, 0) + static_cast<uint64_t>(Zos_EParmGetInt(e, 1)) +
                       Zos_EParmGetUint64(e, 4);
        benchmark::DoNotOptimize(sum);
        benchmark::DoNotOptimize(Zos_EParmGetStr(e, 2));
        benchmark::DoNotOptimize(Zos_EParmGetPtr(e, 3));
        benchmark::DoNotOptimize(Zos_EParmGetStr(e, 5));
        Zos_EvntDelete(e);
    }
    state.counters["heap_allocs"] = benchmark::Counter(static_cast<double>(g_heapCalls - before) /
                                                       static_cast<double>(state.iterations()));
}

using Value = std::variant<int32_t, uint32_t, uint64_t, void *, std::string>;

void MapSixParams(benchmark::State &state) {
    int anchor = 0;
    for (auto _ : state) {
        auto *m = new std::unordered_map<uint32_t, Value>;
        m->emplace(0, uint32_t{200});
        m->emplace(1, int32_t{-5});
        m->emplace(2, std::string(kUri));
        m->emplace(3, static_cast<void *>(&anchor));
        m->emplace(4, uint64_t{0x123456789ull});
        m->emplace(5, std::string(kCallId));
        uint64_t sum = std::get<uint32_t>(m->at(0)) +
                       static_cast<uint64_t>(std::get<int32_t>(m->at(1))) +
                       std::get<uint64_t>(m->at(4));
        benchmark::DoNotOptimize(sum);
        benchmark::DoNotOptimize(std::get<std::string>(m->at(2)).data());
        benchmark::DoNotOptimize(std::get<void *>(m->at(3)));
        benchmark::DoNotOptimize(std::get<std::string>(m->at(5)).data());
        delete m;
    }
}

}  // namespace

BENCHMARK(EventSixParams);
BENCHMARK(MapSixParams);
