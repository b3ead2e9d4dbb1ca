// ABNF token manager and character set shared by readers: once filled they
// are only read, so threads scan and look up at once without a lock, each
// with its own message record.
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

const char *const kNames[] = {"Via", "To", "From", "Call-ID", "CSeq", "Contact", "Route"};

}  // namespace

TEST_F(ZosTest, ConcAbnfSharedManagerAndSet) {
    ST_ABNF_TKN_MGR *mgr = Abnf_TknMgrCreate(1, 1, 32);
    ST_ABNF_CHRSET *set = Abnf_ChrsetCreate(1);
    ASSERT_TRUE(mgr != nullptr && set != nullptr);
    Abnf_ChrsetSetStr(set, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-", 1);
    for (uint16_t i = 0; i < 7; i++) {
        ASSERT_EQ(Abnf_TknAdd(mgr, 0, kNames[i], uint32_t(std::strlen(kNames[i])), i + 1), ZOK);
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([&, t] {
            for (int n = 0; n < 2000; n++) {
                const int i = (n + t) % 7;
                std::string text = std::string(kNames[i]) + ": x";
                if (n % 2) text[0] = char(text[0] ^ 0x20);  // other case
                ST_ABNF_MSG msg;
                ST_ZOS_SSTR s{text.data(), uint32_t(text.size())};
                Abnf_MsgInit(&msg, ABNF_PROTO_SIP, &s, nullptr, nullptr, 1);
                uint32_t id = 0;
                if (Abnf_GetTknChrset(&msg, mgr, 0, set, 1, &id) != ZOK || id != uint32_t(i + 1)) {
                    wrong++;
                }
                if (Abnf_TknFind(mgr, 0, kNames[i], uint32_t(std::strlen(kNames[i]))) !=
                    uint32_t(i + 1)) {
                    wrong++;
                }
            }
        });
    }
    for (auto &th : threads) th.join();
    EXPECT_EQ(wrong.load(), 0);

    EXPECT_EQ(Abnf_ChrsetDelete(set), ZOK);
    EXPECT_EQ(Abnf_TknMgrDelete(mgr), ZOK);
}
