// Data buffers against std::string and std::vector: a 1400-byte payload
// with three 20-byte headers put in front, payloads appended one after the
// other, and flattening a chain of payloads into one contiguous copy.
// Arenas against jemalloc: many small objects allocated, then all freed.
#include <benchmark/benchmark.h>
#include <jemalloc/jemalloc.h>

#include <string>
#include <vector>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

constexpr uint32_t kPayload = 1400;
constexpr uint32_t kHeader = 20;
constexpr int kHeaders = 3;
constexpr int kPayloads = 8;
constexpr int kObjects = 256;

const std::string &Payload() {
    static const std::string p(kPayload, 'p');
    return p;
}

const std::string &Header() {
    static const std::string h(kHeader, 'h');
    return h;
}

// The data-buffer pool (arg 0), which as configured releases a block
// bucket's memory whenever it falls wholly free, or a pool with the same
// buckets that keeps its blocks (arg 1): the steady state of an engine
// with many buffers alive.
//
// Arg 2 is the configured pool with its smallest bucket raised from 36 to
// 64 bytes. A buffer header is 36 bytes with 32-bit pointers and comes from
// that bucket, whose first block of 10 nodes is never released; with
// 64-bit pointers it is 56 bytes and comes from the 128-byte bucket, which
// empties and refills with every packet. Arg 2 shows on this machine what
// the 32-bit target pays.
//
// Arg 3 is the configured pool made without its lock: the difference to
// arg 0 is what taking and giving the lock costs (two atomic
// read-modify-writes per allocation and per release of a chain).
// The pool of row kArg, made once per layer.
template <int kArg>
ZPOOL DbufPoolVariant() {
    return kbench::PerLayer<ZPOOL>([] {
        ST_ZOS_POOL_CFG cfg = *Zos_CfgGetDbufPool();
        static std::vector<ST_ZOS_BKT_INFO> rows;  // the pool reads its table
        rows.assign(cfg.pstBktInfo, cfg.pstBktInfo + cfg.ucBktCnt);
        if constexpr (kArg == 1) cfg.ucShrink = 0;
        if constexpr (kArg == 2) rows[0].uiSize = 64;
        if constexpr (kArg == 3) cfg.ucLocked = 0;
        cfg.pstBktInfo = rows.data();
        return Zos_PoolCreate(&cfg);
    });
}

ZPOOL PoolFor(const benchmark::State &state) {
    switch (state.range(0)) {
        case 1:
            return DbufPoolVariant<1>();
        case 2:
            return DbufPoolVariant<2>();
        case 3:
            return DbufPoolVariant<3>();
        default:
            return nullptr;
    }
}

// Sizes of the small objects: 16 to 96 bytes in a fixed cycle.
uint32_t ObjectSize(int i) {
    return 16 + static_cast<uint32_t>(i * 37 % 81);
}

// ---------------------------------------------------------------------
// Payload with headers in front

void PacketDbuf(benchmark::State &state) {
    ZPOOL pool = PoolFor(state);
    for (auto _ : state) {
        ZDBUF b = Zos_DbufCreate(pool, 1, 256);
        uint32_t rc = Zos_DbufPstAddMultD(b, Payload().data(), kPayload);
        for (int i = 0; i < kHeaders; ++i) rc |= Zos_DbufPreAddMultD(b, Header().data(), kHeader);
        benchmark::DoNotOptimize(b);
        Zos_DbufDelete(b);
        KBENCH_CHECK(state, b != nullptr && rc == ZOK);
    }
}

void PacketString(benchmark::State &state) {
    for (auto _ : state) {
        std::string s;
        s.append(Payload());
        for (int i = 0; i < kHeaders; ++i) s.insert(0, Header());
        benchmark::DoNotOptimize(s.data());
    }
}

void PacketVector(benchmark::State &state) {
    for (auto _ : state) {
        std::vector<char> v;
        v.insert(v.end(), Payload().begin(), Payload().end());
        for (int i = 0; i < kHeaders; ++i) v.insert(v.begin(), Header().begin(), Header().end());
        benchmark::DoNotOptimize(v.data());
    }
}

// ---------------------------------------------------------------------
// Payloads appended

void AppendDbuf(benchmark::State &state) {
    ZPOOL pool = PoolFor(state);
    for (auto _ : state) {
        ZDBUF b = Zos_DbufCreate(pool, 1, 2048);
        uint32_t rc = ZOK;
        for (int i = 0; i < kPayloads; ++i)
            rc |= Zos_DbufPstAddMultD(b, Payload().data(), kPayload);
        benchmark::DoNotOptimize(b);
        Zos_DbufDelete(b);
        KBENCH_CHECK(state, b != nullptr && rc == ZOK);
    }
}

void AppendString(benchmark::State &state) {
    for (auto _ : state) {
        std::string s;
        for (int i = 0; i < kPayloads; ++i) s.append(Payload());
        benchmark::DoNotOptimize(s.data());
    }
}

void AppendVector(benchmark::State &state) {
    for (auto _ : state) {
        std::vector<char> v;
        for (int i = 0; i < kPayloads; ++i) v.insert(v.end(), Payload().begin(), Payload().end());
        benchmark::DoNotOptimize(v.data());
    }
}

// ---------------------------------------------------------------------
// Flattening a chain of payloads into one contiguous copy

void FlattenDbuf(benchmark::State &state) {
    ZDBUF b = Zos_DbufCreate(PoolFor(state), 1, 2048);
    for (int i = 0; i < kPayloads; ++i) Zos_DbufPstAddMultD(b, Payload().data(), kPayload);
    KBENCH_REQUIRE(state, Zos_DbufLen(b) == kPayloads * kPayload);
    for (auto _ : state) {
        ZDBUF flat = Zos_DbufFlat(b);
        benchmark::DoNotOptimize(flat);
        KBENCH_CHECK(state, flat != nullptr);
        Zos_DbufDelete(flat);
    }
    Zos_DbufDelete(b);
}

void FlattenString(benchmark::State &state) {
    const std::vector<std::string> chunks(kPayloads, Payload());
    for (auto _ : state) {
        std::string s;
        s.reserve(kPayloads * kPayload);
        for (const std::string &c : chunks) s.append(c);
        benchmark::DoNotOptimize(s.data());
    }
}

void FlattenVector(benchmark::State &state) {
    const std::vector<std::vector<char>> chunks(
        kPayloads, std::vector<char>(Payload().begin(), Payload().end()));
    for (auto _ : state) {
        std::vector<char> v;
        v.reserve(kPayloads * kPayload);
        for (const auto &c : chunks) v.insert(v.end(), c.begin(), c.end());
        benchmark::DoNotOptimize(v.data());
    }
}

// ---------------------------------------------------------------------
// Many small objects: an arena dropped whole, or one jemalloc free each

void ArenaSmallObjects(benchmark::State &state) {
    for (auto _ : state) {
        ZCBUF c = Zos_CbufCreate(4096);
        bool ok = c != nullptr;
        for (int i = 0; i < kObjects; ++i) {
            void *p = Zos_CbufAlloc(c, ObjectSize(i));
            benchmark::DoNotOptimize(p);
            ok &= p != nullptr;
        }
        Zos_CbufDelete(c);
        KBENCH_CHECK(state, ok);
    }
    state.SetItemsProcessed(state.iterations() * kObjects);
}

void JemallocSmallObjects(benchmark::State &state) {
    void *objs[kObjects];
    for (auto _ : state) {
        for (int i = 0; i < kObjects; ++i) {
            objs[i] = mallocx(ObjectSize(i), 0);
            benchmark::DoNotOptimize(objs[i]);
        }
        for (int i = 0; i < kObjects; ++i) dallocx(objs[i], 0);
    }
    state.SetItemsProcessed(state.iterations() * kObjects);
}

}  // namespace

BENCHMARK(PacketDbuf)->Arg(0)->Arg(1)->Arg(2)->Arg(3)->Apply(kbench::Counted);
BENCHMARK(PacketString)->Apply(kbench::Counted);
BENCHMARK(PacketVector)->Apply(kbench::Counted);
BENCHMARK(AppendDbuf)->Arg(0)->Arg(1)->Arg(2)->Arg(3)->Apply(kbench::Counted);
BENCHMARK(AppendString)->Apply(kbench::Counted);
BENCHMARK(AppendVector)->Apply(kbench::Counted);
BENCHMARK(FlattenDbuf)->Arg(0)->Arg(1);
BENCHMARK(FlattenString);
BENCHMARK(FlattenVector);
BENCHMARK(ArenaSmallObjects);
BENCHMARK(JemallocSmallObjects);
