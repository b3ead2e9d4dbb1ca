// Handles made and deleted on several threads at once while another
// thread keeps checking handles that stay alive: the handle registry
// grows under them (more than a thousand buffers alive together) and
// moves its entries as others go, and no check of a live buffer fails,
// before, during or after a growth or a move. A check that meets an
// entry while a delete moves it back must look again rather than refuse:
// the makers check every buffer they still hold before each delete, which
// puts thousands of checks beside the other makers' moves.
#include <atomic>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

constexpr int kMakers = 3;
constexpr int kPerMaker = 700;  // together past the registry's first two sizes
constexpr int kRounds = 8;      // each about 60 ms under AddressSanitizer
constexpr int kSentinels = 64;  // spread over the table, so moves meet them

}  // namespace

TEST_F(ZosTest, HandleChecksHoldWhileOtherThreadsMakeAndDeleteHandles) {
    std::vector<ZDBUF> sentinels;
    for (int i = 0; i < kSentinels; ++i) {
        sentinels.push_back(Zos_DbufCreateAddD(nullptr, 1, 128, "s", 1));
        ASSERT_NE(sentinels.back(), nullptr);
    }
    std::atomic<bool> done{false};
    std::atomic<int> sentinelFailures{0};
    std::atomic<int> ownFailures{0};
    std::thread checker([&] {
        while (!done.load()) {
            for (ZDBUF s : sentinels) {
                if (Zos_DbufChkValid(s, 255, 0, 1) != ZOK) sentinelFailures++;
            }
        }
    });
    std::vector<std::thread> makers;
    for (int t = 0; t < kMakers; ++t) {
        makers.emplace_back([&, t] {
            std::vector<ZDBUF> mine;
            for (int round = 0; round < kRounds; ++round) {
                for (int i = 0; i < kPerMaker; ++i) {
                    ZDBUF b = Zos_DbufCreateAddD(nullptr, 1, 128, &t, sizeof(t));
                    if (b == nullptr) {
                        ownFailures++;
                        continue;
                    }
                    mine.push_back(b);
                }
                for (size_t i = 0; i < mine.size(); ++i) {
                    for (size_t j = i; j < mine.size(); ++j) {
                        if (Zos_DbufChkValid(mine[j], 255, 0, 1) != ZOK) ownFailures++;
                    }
                    if (Zos_DbufDelete(mine[i]) != ZOK) ownFailures++;
                }
                mine.clear();
            }
        });
    }
    for (auto &m : makers) m.join();
    done = true;
    checker.join();
    EXPECT_EQ(sentinelFailures.load(), 0);
    EXPECT_EQ(ownFailures.load(), 0);
    for (ZDBUF s : sentinels) EXPECT_EQ(Zos_DbufDelete(s), ZOK);
    EXPECT_EQ(Zos_DbufChkValid(sentinels[0], 255, 0, 0), ZFAILED);  // deleted: refused
}
