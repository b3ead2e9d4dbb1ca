// The layer's formatter against glibc snprintf and {fmt} on typical log
// formats: mixed integers and strings, one long string, one double.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdio>
#include <string>

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

// ---- a double

void Double_Zos(benchmark::State &state) {
    char buf[kBuf];
    double d = 12345.678901;
    for (auto _ : state) {
        benchmark::DoNotOptimize(d);
        benchmark::DoNotOptimize(Zos_SNPrintf(buf, kBuf, "rtt %f ms", d));
        benchmark::ClobberMemory();
    }
}

void Double_Snprintf(benchmark::State &state) {
    char buf[kBuf];
    double d = 12345.678901;
    for (auto _ : state) {
        benchmark::DoNotOptimize(d);
        benchmark::DoNotOptimize(std::snprintf(buf, kBuf, "rtt %f ms", d));
        benchmark::ClobberMemory();
    }
}

void Double_Fmt(benchmark::State &state) {
    char buf[kBuf];
    double d = 12345.678901;
    for (auto _ : state) {
        benchmark::DoNotOptimize(d);
        benchmark::DoNotOptimize(fmt::format_to_n(buf, kBuf - 1, "rtt {:f} ms", d));
        benchmark::ClobberMemory();
    }
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
