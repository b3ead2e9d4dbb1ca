// Events against a std::unordered_map of std::variant: create, set six
// parameters of mixed kinds (two of them texts), read them back, delete.
// The event runs also report the platform-heap allocations per event
// (counter "heap_allocs"), counted by wrapping the heap slot.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <unordered_map>
#include <variant>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

const char kUri[] = "sip:alice@example.com";
const char kCallId[] = "a84b4c76e66710@pc33.example.com";

uint64_t g_heapCalls = 0;
void *CountingMalloc(uint32_t size) {
    ++g_heapCalls;
    return Zpand_Malloc(size);
}

// The heap slot wrapped for one benchmark's run only, so no other
// benchmark pays for the counting.
class CountedHeap {
  public:
    CountedHeap() : saved_(Zos_OsenvLocateNew()->pfnOsdep[0]) {
        Zos_OsenvLocateNew()->pfnOsdep[0] = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingMalloc);
    }
    ~CountedHeap() { Zos_OsenvLocateNew()->pfnOsdep[0] = saved_; }
    CountedHeap(const CountedHeap &) = delete;
    CountedHeap &operator=(const CountedHeap &) = delete;

  private:
    ZOS_OSDEP_FUNC saved_;
};

void EventSixParams(benchmark::State &state) {
    const CountedHeap counted;
    int anchor = 0;
    const uint64_t before = g_heapCalls;
    for (auto _ : state) {
        ZEVNT e = Zos_EvntCreate();
        KBENCH_CHECK(state, e != nullptr);
        Zos_EParmSetUint(e, 0, 200);
        Zos_EParmSetInt(e, 1, -5);
        Zos_EParmSetStr(e, 2, kUri);
        Zos_EParmSetPtr(e, 3, &anchor);
        Zos_EParmSetUint64(e, 4, 0x123456789ull);
        Zos_EParmSetStr(e, 5, kCallId);
        uint64_t sum = Zos_EParmGetUint(e, 0) + static_cast<uint64_t>(Zos_EParmGetInt(e, 1)) +
                       Zos_EParmGetUint64(e, 4);
        benchmark::DoNotOptimize(sum);
        const char *uri = Zos_EParmGetStr(e, 2);
        benchmark::DoNotOptimize(uri);
        const void *ptr = Zos_EParmGetPtr(e, 3);
        benchmark::DoNotOptimize(ptr);
        const char *callId = Zos_EParmGetStr(e, 5);
        benchmark::DoNotOptimize(callId);
        Zos_EvntDelete(e);
        KBENCH_CHECK(state, sum == 195 + 0x123456789ull && ptr == &anchor && uri != nullptr &&
                                callId != nullptr && uri[4] == 'a' && callId[0] == 'a');
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
