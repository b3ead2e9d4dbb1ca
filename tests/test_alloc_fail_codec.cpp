// Allocation failures in the HTTP bridge and the ABNF toolkit, with the
// layer in heap mode (the fixture's default), so Zos_Malloc reaches the
// failing heap. Allocation n of the armed window fails for n = 1, 2, ...
// until the window makes fewer than n allocations; a failed call must say
// so and leave nothing allocated. Covered: starting the bridge (mutex,
// table, its tree) and opening a connection (the id's tree node) and
// taking its body; building the SIP reader's token manager and character
// set; decoding a real INVITE into lists in a cbuf arena (its pages and
// large blocks come from the heap); encoding it back into a data buffer
// on a private pool with no initial nodes, so every block grows the pool
// from the heap.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "abnf_test.h"
#include "sip_reader.h"

namespace {

using ktest::FailArm;
using ktest::FailDisarm;
using ktest::FailEach;

// Platform connections that count themselves (they use the C++ heap, not
// the failing one).
int g_open = 0;
const char *const kBody = "<html>ok</html>";
void *FakeOpen(int32_t, const char *, const void *, const void *) {
    ++g_open;
    return new int(0);
}
void FakeClose(void *obj) {
    --g_open;
    delete static_cast<int *>(obj);
}
char *FakeGetBody(void *) {
    return strdup(kBody);
}

}  // namespace

TEST_F(ZosTest, AllocFailHttpStartOpenAndBody) {
    ktest::Slot(107) = reinterpret_cast<ZOS_OSDEP_FUNC>(FakeOpen);
    ktest::Slot(108) = reinterpret_cast<ZOS_OSDEP_FUNC>(FakeClose);
    ktest::Slot(115) = reinterpret_cast<ZOS_OSDEP_FUNC>(FakeGetBody);
    // The body's data buffer comes from the default buffer pool, which
    // keeps what it grows by: a first body warms it, so the rounds see
    // only the bridge's own heap blocks.
    const int32_t warm = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr);
    ASSERT_GT(warm, 0);
    ZDBUF first = Zos_HttpGetBody(warm);
    ASSERT_NE(first, nullptr);
    Zos_DbufDelete(first);
    Zos_HttpClose(warm);
    Zos_HttpDestroy();  // the bridge starts again inside each round
    // Sixteen connections: the table's tree takes its nodes from an arena
    // whose first page holds only some of them, so later opens grow it.
    constexpr size_t kConns = 16;
    const int failed = FailEach("http", [](int n) {
        FailArm(n);
        const uint32_t init = Zos_HttpInit();
        std::vector<int32_t> ids;
        int32_t id = 0;
        while (init == ZOK && ids.size() < kConns &&
               (id = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr)) > 0) {
            ids.push_back(id);
        }
        ZDBUF body = ids.size() == kConns ? Zos_HttpGetBody(ids.back()) : nullptr;
        FailDisarm();
        if (init != ZOK) {
            // Not half-started: nothing opens, and a later start works.
            EXPECT_EQ(Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr), -1) << n;
            EXPECT_EQ(g_open, 0) << n;
            return false;
        }
        // A failed open closed its platform object and mapped nothing.
        EXPECT_EQ(g_open, int(ids.size())) << n;
        for (size_t i = 0; i <= ids.size() && i < kConns; ++i) {
            void *env = nullptr;
            void *obj = Zos_HttpRetain(&env, int32_t(i + 1));
            EXPECT_EQ(obj != nullptr, i < ids.size()) << n << " id " << i + 1;
            if (obj != nullptr) Zos_HttpRelease(env);
        }
        if (body != nullptr) {
            EXPECT_EQ(Zos_DbufLen(body), std::strlen(kBody) + 1);
            EXPECT_STREQ(reinterpret_cast<const char *>(Zos_DbufBlkData(body, 0)), kBody);
            EXPECT_EQ(Zos_DbufDelete(body), ZOK);
        }
        for (int32_t i : ids) Zos_HttpClose(i);
        EXPECT_EQ(g_open, 0) << n;
        Zos_HttpDestroy();
        return body != nullptr;
    });
    // Two on starting, the rest on opens (fewer arena pages on 32-bit).
    EXPECT_GE(failed, 3);
    EXPECT_EQ(Zos_HttpInit(), ZOK);
}

namespace {

// A SIP message as lines (start line and headers, copied into the
// decoding buffer) and the body.
struct Lines {
    ST_ZOS_DLIST list{};
    ST_ZOS_SSTR body{};
};

uint32_t Fail(ST_ABNF_MSG *m, const char *what) {
    Abnf_ErrLog(m, 0, 0, what, __LINE__);
    return ZFAILED;
}

uint32_t DecodeLines(ST_ABNF_MSG *m, void *data) {
    auto *p = static_cast<Lines *>(data);
    for (;;) {
        ST_ZOS_SSTR line{};
        if (Abnf_GetLine(m, &line) != ZOK || Abnf_ExpectCRLF(m) != ZOK) return Fail(m, "line");
        if (line.uiLen == 0) break;
        void *item = nullptr;
        if (Abnf_AnyLstAddParm(m->zBuf, &p->list, sizeof(ST_ZOS_SSTR), &item) != ZOK ||
            Zos_UbufCpyNSStr(m->zBuf, line.pcStr, line.uiLen, static_cast<ST_ZOS_SSTR *>(item)) !=
                ZOK) {
            return Fail(m, "copy");
        }
    }
    const char *at = m->stState.pcCur;
    const uint32_t rest = m->stState.uiTotalLen - uint32_t(at - m->stState.pcBase);
    if (Zos_UbufCpyNSStr(m->zBuf, at, rest, &p->body) != ZOK) return Fail(m, "body");
    return ZOK;
}

uint32_t EncodeLine(ST_ABNF_MSG *m, void *item) {
    return Abnf_AddPstSStr(m, static_cast<ST_ZOS_SSTR *>(item));
}

uint32_t EncodeLines(ST_ABNF_MSG *m, void *data) {
    auto *p = static_cast<Lines *>(data);
    return Abnf_AnyLstEncodeX(m, &p->list, 0, 1, "\r\n", EncodeLine) == ZOK &&
                   Abnf_AddPstStr(m, "\r\n") == ZOK && Abnf_AddPstSStr(m, &p->body) == ZOK
               ? ZOK
               : ZFAILED;
}

std::string Flat(ZDBUF b) {
    std::string s(Zos_DbufLen(b), '\0');
    if (!s.empty()) Zos_DbufCopyD(b, 0, uint32_t(s.size()), s.data());
    return s;
}

}  // namespace

TEST_F(ZosTest, AllocFailAbnfRulesDecodeEncode) {
    namespace sip = kestro::sip;
    // The reader's token manager (record, hash table) and character set.
    int failed = FailEach("rules", [](int n) {
        FailArm(n);
        auto reader = std::make_unique<sip::Reader>();
        FailDisarm();
        if (!reader->ok()) return false;
        EXPECT_EQ(reader->Lookup("v", 1), uint32_t(sip::kVia)) << n;
        EXPECT_EQ(reader->Lookup("content-LENGTH", 14), uint32_t(sip::kContentLength)) << n;
        return true;
    });
    EXPECT_GE(failed, 4);

    const std::string text =
        ktest::ReadFile(std::string(KESTRO_VECTORS_DIR) + "/protocols/sip/rfc4475/sdp01.dat");
    ASSERT_EQ(text.size(), 494u);
    const ST_ZOS_SSTR in{const_cast<char *>(text.data()), uint32_t(text.size())};
    // Decoding into a cbuf with small pages: the arena's record, its pages
    // and the line copies each fail in turn.
    failed = FailEach("decode", [&](int n) {
        FailArm(n);
        ZCBUF arena = Zos_CbufCreate(64);
        Lines lines;
        const uint32_t rc = arena != nullptr
                                ? Abnf_AnyDecode(ABNF_PROTO_SIP, DecodeLines, &in, arena, &lines)
                                : ZFAILED;
        FailDisarm();
        if (rc == ZOK) {
            EXPECT_EQ(lines.list.uiCount, 11u);  // start line and ten headers
            EXPECT_EQ(lines.body.uiLen, 150u);
            EXPECT_EQ(ktest::S(lines.body), text.substr(text.size() - 150));
        }
        if (arena != nullptr) Zos_CbufDelete(arena);
        return rc == ZOK;
    });
    EXPECT_GE(failed, 3);

    // Encoding the decoded lines back gives the message byte for byte.
    ZCBUF arena = Zos_CbufCreate(0);
    Lines lines;
    ASSERT_EQ(Abnf_AnyDecode(ABNF_PROTO_SIP, DecodeLines, &in, arena, &lines), ZOK);
    static const ST_ZOS_BKT_INFO rows[2] = {{64, 0, 1}, {160, 0, 1}};
    failed = FailEach("encode", [&](int n) {
        ST_ZOS_POOL_CFG cfg{"af abnf", rows, nullptr, nullptr, 0, 1, 0, 2};
        ZPOOL pool = Zos_PoolCreate(&cfg);
        EXPECT_NE(pool, nullptr);
        FailArm(n);
        ZDBUF out = Zos_DbufCreate(pool, 1, 128);
        const uint32_t rc =
            out != nullptr ? Abnf_AnyEncode(ABNF_PROTO_SIP, EncodeLines, out, &lines) : ZFAILED;
        FailDisarm();
        if (rc == ZOK) {
            EXPECT_EQ(Flat(out), text) << n;
        }
        if (out != nullptr) Zos_DbufDelete(out);
        Zos_PoolDelete(pool);
        return rc == ZOK;
    });
    EXPECT_GE(failed, 3);
    Zos_CbufDelete(arena);
}
