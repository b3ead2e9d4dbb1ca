// The formatter keeps no shared state: threads formatting at the same time
// through the bounded, unbounded and caller-function roads get their own
// texts.
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

uint32_t Append(uint32_t c, uintptr_t arg) {
    reinterpret_cast<std::string *>(arg)->push_back(static_cast<char>(c));
    return 0;
}

uint32_t ViaFunction(std::string *out, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const uint32_t n = Zos_Kvprintf(fmt, Append, reinterpret_cast<uintptr_t>(out), 10, ap);
    va_end(ap);
    return n;
}

}  // namespace

TEST(Fmt, ThreadsFormatIndependently) {
    constexpr int kThreads = 4;
    std::vector<std::thread> threads;
    std::vector<int> bad(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &bad] {
            const char *fmt = "%d:%s:%#x:%.2f:%-6s|";
            const char *word = t % 2 != 0 ? "odd" : "even";
            char got[64], unbounded[64], want[64];
            for (int i = 0; i < 5000; ++i) {
                const double d = i + 0.5;
                std::snprintf(want, sizeof want, fmt, i * t, word, i, d, word);
                std::string viaFn;
                const uint32_t n = Zos_SNPrintf(got, sizeof got, fmt, i * t, word, i, d, word);
                Zos_SPrintf(unbounded, fmt, i * t, word, i, d, word);
                ViaFunction(&viaFn, fmt, i * t, word, i, d, word);
                bad[t] += std::strcmp(got, want) != 0 || std::strcmp(unbounded, want) != 0 ||
                          viaFn != want || n != std::strlen(want);
            }
        });
    }
    for (auto &th : threads) th.join();
    EXPECT_EQ(bad, std::vector<int>(kThreads, 0));
}
