// A dump listed on one thread while another records into it and clears
// it: a listing shows the records as they were before a clear or after it,
// never a clear half done.
#include <atomic>
#include <regex>
#include <string>
#include <thread>

#include "zos_test.h"

namespace {

constexpr uint16_t kDeep = 16;
constexpr int kListings = 400;

}  // namespace

// Record k of each round carries the value k, so every row a listing shows
// must carry its own index; a listing taken between two steps of a clear
// starts at a later record.
TEST_F(ZosTest, ConcDumpListedWhileRecordedAndCleared) {
    ZDUMP dump = Zos_DumpCreate("conc dump", kDeep);
    ASSERT_NE(dump, nullptr);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        while (!done) {
            for (uint32_t k = 0; k < kDeep; ++k) {
                EXPECT_EQ(Zos_DumpStack(dump, "conc_dump.c", k, "step", k), ZOK);
            }
            EXPECT_EQ(Zos_DumpClear(dump), ZOK);
        }
    });
    const std::regex row(R"(    <(\d+)>\s+(\d+)  "step")");
    for (int i = 0; i < kListings; ++i) {
        ZDBUF out = Zos_DbufCreate(nullptr, 1, 512);
        EXPECT_NE(out, nullptr);
        EXPECT_EQ(Zos_DumpPrintBuf(dump, out), ZOK);
        const std::string text = ktest::DbufText(out);
        for (std::sregex_iterator it(text.begin(), text.end(), row), end; it != end; ++it) {
            EXPECT_EQ((*it)[1], (*it)[2]) << text;
        }
        Zos_DbufDelete(out);
    }
    done = true;
    writer.join();
    EXPECT_EQ(Zos_DumpDelete(dump), ZOK);
}
