// UTF-8 <-> BMP conversion of mixed ASCII and CJK text: the library's
// converters side by side with the C library's iconv (UTF-8 <-> UCS-2LE).
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstring>
#include <string>
#include <vector>

#include "zucs.h"

namespace {

// About 4 KiB: roughly half the characters ASCII, half CJK.
const std::string &MixedText() {
    static const std::string text = [] {
        const std::string piece =
            "Call 10086 \xE4\xB8\xAD\xE5\x9B\xBD\xE7\xA7\xBB\xE5\x8A\xA8 at 9:30, "
            "\xE6\x8B\xBC\xE9\x9F\xB3 pinyin \xE8\xBE\x93\xE5\x85\xA5 OK! ";
        std::string t;
        while (t.size() + piece.size() < 4096) t += piece;
        return t;
    }();
    return text;
}

std::vector<uint16_t> MixedBmp() {
    const std::string &t = MixedText();
    std::vector<uint16_t> bmp(t.size() + 1);
    const uint32_t n = Zucs_Utf8ToBmp(bmp.data(), static_cast<uint32_t>(bmp.size()), t.data(),
                                      static_cast<uint32_t>(t.size()));
    bmp.resize(n + 1);
    return bmp;
}

// One whole-buffer iconv conversion; returns the output bytes.
size_t IconvOnce(iconv_t cd, const void *in, size_t inBytes, void *out, size_t outBytes) {
    char *src = static_cast<char *>(const_cast<void *>(in));
    char *dst = static_cast<char *>(out);
    size_t left = outBytes;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &src, &inBytes, &dst, &left) == static_cast<size_t>(-1)) return 0;
    return outBytes - left;
}

void BM_Utf8ToBmp_Zucs(benchmark::State &state) {
    const std::string &t = MixedText();
    std::vector<uint16_t> out(t.size() + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Zucs_Utf8ToBmp(out.data(), static_cast<uint32_t>(out.size()),
                                                t.data(), static_cast<uint32_t>(t.size())));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * t.size()));
}

void BM_Utf8ToBmp_Iconv(benchmark::State &state) {
    const std::string &t = MixedText();
    std::vector<uint16_t> out(t.size() + 1);
    iconv_t cd = iconv_open("UCS-2LE", "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        state.SkipWithError("iconv_open failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(IconvOnce(cd, t.data(), t.size(), out.data(), out.size() * 2));
        benchmark::ClobberMemory();
    }
    iconv_close(cd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * t.size()));
}

void BM_BmpToUtf8_Zucs(benchmark::State &state) {
    const std::vector<uint16_t> bmp = MixedBmp();
    std::vector<char> out(MixedText().size() + 1);
    const auto units = static_cast<uint32_t>(bmp.size() - 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            Zucs_BmpToUtf8(out.data(), static_cast<uint32_t>(out.size()), bmp.data(), units));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * MixedText().size()));
}

void BM_BmpToUtf8_Iconv(benchmark::State &state) {
    const std::vector<uint16_t> bmp = MixedBmp();
    std::vector<char> out(MixedText().size() + 1);
    iconv_t cd = iconv_open("UTF-8", "UCS-2LE");
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        state.SkipWithError("iconv_open failed");
        return;
    }
    const size_t inBytes = (bmp.size() - 1) * 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(IconvOnce(cd, bmp.data(), inBytes, out.data(), out.size()));
        benchmark::ClobberMemory();
    }
    iconv_close(cd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * MixedText().size()));
}

}  // namespace

BENCHMARK(BM_Utf8ToBmp_Zucs);
BENCHMARK(BM_Utf8ToBmp_Iconv);
BENCHMARK(BM_BmpToUtf8_Zucs);
BENCHMARK(BM_BmpToUtf8_Iconv);
