// The layer's formatter against glibc snprintf and {fmt} on typical log
// formats: mixed integers and strings, one long string, and doubles over a
// spread of values and precisions.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

constexpr size_t kBuf = 512;

const std::string &LongText() {
    static const std::string text = [] {
        std::string s;
        while (s.size() < 300) s += "the quick brown fox jumps over the lazy dog; ";
        return s;
    }();
    return text;
}

// ---- "%s: %d %u 0x%x %s"

void LogLine_Zos(benchmark::State &state) {
    char buf[kBuf];
    int i = -12345;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Zos_SNPrintf(buf, kBuf, "%s: %d %u 0x%x %s", "SipTransport", i,
                                              4000000000u, 0xdeadbeefu, "request sent"));
        benchmark::ClobberMemory();
    }
}

void LogLine_Snprintf(benchmark::State &state) {
    char buf[kBuf];
    int i = -12345;
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::snprintf(buf, kBuf, "%s: %d %u 0x%x %s", "SipTransport", i,
                                               4000000000u, 0xdeadbeefu, "request sent"));
        benchmark::ClobberMemory();
    }
}

void LogLine_Fmt(benchmark::State &state) {
    char buf[kBuf];
    int i = -12345;
    for (auto _ : state) {
        benchmark::DoNotOptimize(fmt::format_to_n(buf, kBuf - 1, "{}: {} {} 0x{:x} {}",
                                                  "SipTransport", i, 4000000000u, 0xdeadbeefu,
                                                  "request sent"));
        benchmark::ClobberMemory();
    }
}

// ---- a long string

void LongString_Zos(benchmark::State &state) {
    char buf[kBuf];
    const char *text = LongText().c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(Zos_SNPrintf(buf, kBuf, "msg=[%s]", text));
        benchmark::ClobberMemory();
    }
}

void LongString_Snprintf(benchmark::State &state) {
    char buf[kBuf];
    const char *text = LongText().c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::snprintf(buf, kBuf, "msg=[%s]", text));
        benchmark::ClobberMemory();
    }
}

void LongString_Fmt(benchmark::State &state) {
    char buf[kBuf];
    const char *text = LongText().c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(fmt::format_to_n(buf, kBuf - 1, "msg=[{}]", text));
        benchmark::ClobberMemory();
    }
}

// ---- doubles: a spread of values and precisions
//
// The layer prints fixed-point digits by truncation (no rounding), so its
// text differs from the C library's wherever rounding would change a
// digit: 2.9999999 prints "2.999999" (C: "3.000000"), and digits beyond a
// double's precision come from repeated multiplication by 10. The counter
// "differ" says how many of the value/precision pairs print differently
// from snprintf; the first such pairs are listed on standard error once.

const double kDoubles[] = {0.5,          2.9999999, 3.14159265358979, 12345.678901, -0.001234,
                           98765432.125, 1.0 / 3.0, -273.15,          1e15 + 0.375, 6.02214076e-5,
                           100.0,        0.1};
const char *const kDoubleFormats[] = {"%.0f", "%.2f", "%f", "%.9f"};
constexpr size_t kDoublePairs = std::size(kDoubles) * std::size(kDoubleFormats);

// Pairs whose text differs between the layer and snprintf.
uint32_t DoubleDifferences() {
    static const uint32_t count = [] {
        uint32_t n = 0;
        for (const char *f : kDoubleFormats) {
            for (double d : kDoubles) {
                char zos[kBuf];
                char libc[kBuf];
                Zos_SNPrintf(zos, kBuf, f, d);
                std::snprintf(libc, kBuf, f, d);
                if (std::strcmp(zos, libc) == 0) continue;
                if (++n <= 6)
                    std::fprintf(stderr, "%s of %.17g: layer \"%s\", C \"%s\"\n", f, d, zos, libc);
            }
        }
        return n;
    }();
    return count;
}

template <typename Print>
void DoubleSpread(benchmark::State &state, Print print) {
    char buf[kBuf];
    for (auto _ : state) {
        size_t total = 0;
        for (const char *f : kDoubleFormats) {
            for (double d : kDoubles) {
                benchmark::DoNotOptimize(d);
                total += static_cast<size_t>(print(buf, f, d));
                benchmark::ClobberMemory();
            }
        }
        KBENCH_CHECK(state, total > kDoublePairs);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kDoublePairs));
}

void Double_Zos(benchmark::State &state) {
    state.counters["differ"] = DoubleDifferences();
    DoubleSpread(state,
                 [](char *buf, const char *f, double d) { return Zos_SNPrintf(buf, kBuf, f, d); });
}

void Double_Snprintf(benchmark::State &state) {
    DoubleSpread(state,
                 [](char *buf, const char *f, double d) { return std::snprintf(buf, kBuf, f, d); });
}

// {fmt} takes the precision as an argument.
void Double_Fmt(benchmark::State &state) {
    char buf[kBuf];
    static const int kPrecisions[] = {0, 2, 6, 9};
    for (auto _ : state) {
        size_t total = 0;
        for (int prec : kPrecisions) {
            for (double d : kDoubles) {
                benchmark::DoNotOptimize(d);
                total += fmt::format_to_n(buf, kBuf - 1, "{:.{}f}", d, prec).size;
                benchmark::ClobberMemory();
            }
        }
        KBENCH_CHECK(state, total > kDoublePairs);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kDoublePairs));
}

}  // namespace

BENCHMARK(LogLine_Zos);
BENCHMARK(LogLine_Snprintf);
BENCHMARK(LogLine_Fmt);
BENCHMARK(LongString_Zos);
BENCHMARK(LongString_Snprintf);
BENCHMARK(LongString_Fmt);
BENCHMARK(Double_Zos);
BENCHMARK(Double_Snprintf);
BENCHMARK(Double_Fmt);
