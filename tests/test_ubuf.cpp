// Universal buffer: dispatch to every kind by its magic word, wrappers,
// nodes, frees, and the copy family's empty and failure cases.
#include <cstring>
#include <string>

#include "zos_test.h"

namespace {

// A wrapper allocator that always fails, to drive the failure texts.
void *NoAlloc(void *, uint32_t) {
    return nullptr;
}

}  // namespace

TEST_F(ZosTest, UbufDispatchesByKind) {
    ZCBUF c = Zos_CbufCreate(0);
    ZDBUF d = Zos_DbufCreate(nullptr, 2, 128);
    ZSBUF s = Zos_SbufCreate(0);
    ZPBUF p = Zos_PbufCreate();
    for (void *buf : {static_cast<void *>(c), d, s, p}) {
        void *a = Zos_UbufAllocClrd(buf, 20);
        ASSERT_NE(a, nullptr);
        EXPECT_EQ(static_cast<uint8_t *>(a)[19], 0u);
        EXPECT_GE(Zos_UbufSize(buf), 20u);
    }
    // Hold: arenas and segment buffers answer, the others have no test.
    void *ca = Zos_UbufAlloc(c, 8);
    void *sa = Zos_UbufAlloc(s, 8);
    EXPECT_EQ(Zos_UbufHoldD(c, ca), 1u);
    EXPECT_EQ(Zos_UbufHoldD(s, sa), 1u);
    EXPECT_EQ(Zos_UbufHoldD(d, Zos_UbufAlloc(d, 8)), 0u);
    // Free: arenas and page buffers give memory back, data and segment
    // buffers never do.
    EXPECT_EQ(Zos_UbufFree(c, ca), ZOK);
    EXPECT_EQ(Zos_UbufFree(d, Zos_UbufAlloc(d, 8)), ZFAILED);
    EXPECT_EQ(Zos_UbufFree(s, sa), ZFAILED);
    void *pa = Zos_UbufAlloc(p, 8);
    EXPECT_EQ(Zos_UbufFreeX(p, &pa), ZOK);
    EXPECT_EQ(pa, nullptr);

    // Wrappers carry the kind's functions; unknown records are refused.
    ZUBUF w = Zos_UbufCreate(c);
    ASSERT_NE(w, nullptr);
    void *wa = Zos_UbufAlloc(w, 16);
    EXPECT_EQ(Zos_CbufHoldD(c, wa), 1u);
    EXPECT_EQ(Zos_UbufHoldD(w, wa), 1u);
    EXPECT_EQ(Zos_UbufSize(w), Zos_CbufSize(c));
    EXPECT_EQ(Zos_UbufCreate(w), nullptr);  // no wrapper around a wrapper
    EXPECT_TRUE(ktest::LoggedContains("UbufCreate unknown buffer."));
    uint32_t junk[8] = {};
    EXPECT_EQ(Zos_UbufAlloc(junk, 8), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("UbufAlloc unknown buffer."));
    EXPECT_EQ(Zos_UbufSize(junk), 0u);
    EXPECT_TRUE(ktest::LoggedContains("UbufSize unknown buffer."));
    EXPECT_EQ(Zos_UbufFree(junk, junk), ZFAILED);
    EXPECT_EQ(Zos_UbufHoldD(junk, junk), 0u);
    EXPECT_EQ(Zos_UbufAlloc(nullptr, 8), nullptr);
    EXPECT_EQ(Zos_UbufSize(nullptr), 0u);
    ZUBUF bare = Zos_UbufCreateX(c, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(Zos_UbufAlloc(bare, 8), nullptr);  // no function: neutral results
    EXPECT_EQ(Zos_UbufSize(bare), 0u);
    EXPECT_EQ(Zos_UbufFree(bare, wa), ZFAILED);
    EXPECT_EQ(Zos_UbufDelete(bare), ZOK);
    EXPECT_EQ(Zos_UbufDelete(w), ZOK);
    EXPECT_EQ(Zos_UbufDelete(junk), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("UbufDelete invalid id."));

    Zos_CbufDelete(c);
    Zos_DbufDelete(d);
    Zos_SbufDelete(s);
    Zos_PbufDelete(p);
}

TEST_F(ZosTest, UbufNodes) {
    ZCBUF c = Zos_CbufCreate(0);
    void *data = &data;
    auto **node = static_cast<void **>(Zos_UbufAllocSNode(c, 10, &data));
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node[0], nullptr);
    EXPECT_EQ(node[1], data);
    EXPECT_EQ(data, static_cast<void *>(node + 2));
    auto **dnode = static_cast<void **>(Zos_UbufAllocDNode(c, 0, &data));
    ASSERT_NE(dnode, nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(dnode[2], nullptr);
    Zos_CbufDelete(c);
}

TEST_F(ZosTest, UbufCopyFamily) {
    ZCBUF c = Zos_CbufCreate(0);
    char *out = reinterpret_cast<char *>(&out);
    EXPECT_EQ(Zos_UbufCpyNStr(c, "abc", 0, &out), ZOK);  // empty: nothing allocated
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(Zos_UbufCpyNStr(c, "abc", 2, nullptr), ZFAILED);
    EXPECT_EQ(Zos_CbufSize(c), 0u);
    ASSERT_EQ(Zos_UbufCpyNStr(c, "abcdef", 3, &out), ZOK);
    EXPECT_STREQ(out, "abc");
    ASSERT_EQ(Zos_UbufCpyStr(c, "hello", &out), ZOK);
    EXPECT_STREQ(out, "hello");
    EXPECT_EQ(Zos_CbufHoldD(c, out), 1u);

    ST_ZOS_SSTR src{const_cast<char *>("counted"), 5};
    ST_ZOS_SSTR dst{out, 99};
    ASSERT_EQ(Zos_UbufCpyXSStr(c, &src, &dst), ZOK);
    EXPECT_EQ(std::string(dst.pcStr, dst.uiLen + 1), std::string("count") + '\0');
    ASSERT_EQ(Zos_UbufCpyXSStr(c, nullptr, &dst), ZOK);  // null counts as empty
    EXPECT_EQ(dst.pcStr, nullptr);
    EXPECT_EQ(dst.uiLen, 0u);
    ASSERT_EQ(Zos_SStrXCpy(c, &dst, &src), ZOK);
    EXPECT_EQ(dst.uiLen, 5u);
    EXPECT_EQ(Zos_UbufFreeSStr(c, &dst), ZOK);
    EXPECT_EQ(dst.pcStr, nullptr);
    ASSERT_EQ(Zos_UbufCpyNUSStr(c, "xyz", 3, &dst), ZOK);
    EXPECT_STREQ(dst.pcStr, "xyz");
    ASSERT_EQ(Zos_UbufCpyFStr(c, &out, "%s-%03d", "n", 7), ZOK);
    EXPECT_STREQ(out, "n-007");

    ZDBUF d = Zos_DbufCreateAddD(nullptr, 1, 128, "payload", 7);
    ASSERT_EQ(Zos_UbufCpyDStr(c, d, &out), ZOK);
    EXPECT_STREQ(out, "payload");
    ASSERT_EQ(Zos_UbufCpyDUSStr(c, d, &dst), ZOK);
    EXPECT_EQ(dst.uiLen, 7u);
    EXPECT_EQ(Zos_UbufCpyDStr(c, nullptr, &out) + Zos_UbufCpyDStr(c, d, nullptr), 2 * ZFAILED);
    ZDBUF empty = Zos_DbufCreate(nullptr, 1, 128);
    EXPECT_EQ(Zos_UbufCpyDSStr(c, empty, &dst), ZOK);
    EXPECT_EQ(dst.pcStr, nullptr);

    // Failures: each member's own text.
    ZUBUF failing = Zos_UbufCreateX(c, NoAlloc, nullptr, nullptr, nullptr);
    const struct {
        uint32_t rc;
        const char *text;
    } cases[] = {
        {Zos_UbufCpyStr(failing, "a", &out), "UbufCpyNStr alloc memory."},
        {Zos_UbufCpyNLStr(failing, "a", 1, &out), "UbufCpyNLStr alloc memory."},
        {Zos_UbufCpyNLUSStr(failing, "a", 1, &out), "UbufCpyNLUSStr alloc memory."},
        {Zos_UbufCpyUXStr(failing, &src, &out), "UbufCpyNStr alloc memory."},
        {Zos_UbufCpySStr(failing, "a", &dst), "UbufCpyNSStr copy the string."},
        {Zos_UbufCpyLSStr(failing, "a", &dst), "UbufCpyLSStr copy the string."},
        {Zos_UbufCpyNLSStr(failing, "a", 1, &dst), "UbufCpyNLSStr copy the string."},
        {Zos_UbufCpyNLUStr(failing, "a", 1, &dst), "UbufCpyNLUStr copy the string."},
        {Zos_UbufCpyUSStr(failing, "a", &dst), "UbufCpyNUSStr copy the string."},
        {Zos_UbufCpyLXSStr(failing, &src, &dst), "UbufCpyNLSStr copy the string."},
        {Zos_UbufCpyXLUStr(failing, &src, &dst), "UbufCpyNLUStr copy the string."},
        {Zos_UbufCpyUXUSStr(failing, &src, &dst), "UbufCpyNUSStr copy the string."},
        {Zos_UbufCpyDLSStr(failing, d, &dst), "UbufCpyDStr alloc memory."},
        {Zos_UbufCpyDSStr(failing, d, &dst), "UbufCpyDSStr copy the data."},
        {Zos_UbufCpyDUSStr(failing, d, &dst), "UbufCpyDUSStr copy the data."},
        {Zos_UbufCpyFStr(failing, &out, "%d", 5), "UbufCpyFStr alloc memory."},
    };
    for (const auto &tc : cases) {
        EXPECT_EQ(tc.rc, ZFAILED) << tc.text;
        EXPECT_TRUE(ktest::LoggedContains(tc.text)) << tc.text;
    }
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(dst.pcStr, nullptr);
    EXPECT_EQ(dst.uiLen, 0u);
    char small[4];
    EXPECT_EQ(Zos_NStrDCpy(small, sizeof(small), nullptr), ZOK);
    EXPECT_STREQ(small, "");
    Zos_UbufDelete(failing);
    Zos_DbufDelete(d);
    Zos_DbufDelete(empty);
    Zos_CbufDelete(c);
}
