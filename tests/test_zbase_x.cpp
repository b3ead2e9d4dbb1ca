// Allocating forms of the base codecs: results in an arena or in system
// strings; failures clear the result, log one line and keep nothing.
#include <string>

#include "kestro_lite.h"
#include "zos_test.h"

namespace {

using AllocFn = uint32_t (*)(ZUBUF, const ST_ZOS_SSTR *, ST_ZOS_SSTR *);

uint32_t B64(ZUBUF b, const ST_ZOS_SSTR *in, ST_ZOS_SSTR *out) {
    return Zbase64_EncodeX(b, in, 0, out);
}
uint32_t B64Url(ZUBUF b, const ST_ZOS_SSTR *in, ST_ZOS_SSTR *out) {
    return Zbase64_EncodeX(b, in, 1, out);
}
uint32_t B64XX(ZUBUF b, const ST_ZOS_SSTR *in, ST_ZOS_SSTR *out) {
    return Zbase64_DecodeXX(b, in->pcStr, in->uiLen, &out->pcStr, &out->uiLen);
}

void *FailingMalloc(uint32_t) {
    return nullptr;
}

class ZbaseX : public ZosTest {
  protected:
    void SetUp() override {
        ZosTest::SetUp();
        Zos_LogOpen(Zos_LogGetZosId(), ZOS_LOG_LEVEL_WARN);  // the warning texts too
        arena_ = Zos_CbufCreate(64);
        ASSERT_NE(arena_, nullptr);
    }
    void TearDown() override {
        Zos_CbufDelete(arena_);
        ZosTest::TearDown();
    }
    // The result of fn in the arena or (null buffer) a system string,
    // checked for its zero and where it lives; "<fail>" on failure.
    std::string Run(AllocFn fn, const std::string &in, ZUBUF buf) {
        ST_ZOS_SSTR src = {const_cast<char *>(in.data()), static_cast<uint32_t>(in.size())};
        ST_ZOS_SSTR out = {nullptr, 7};
        if (fn(buf, &src, &out) != ZOK) return "<fail>";
        const std::string s(out.pcStr, out.uiLen);
        EXPECT_EQ(out.pcStr[out.uiLen], '\0');
        if (buf != nullptr) {
            EXPECT_EQ(Zos_CbufHoldD(arena_, out.pcStr), 1u);
        } else {
            EXPECT_GE(Zos_SysStrLen(out.pcStr), out.uiLen);
            Zos_SysStrFree(out.pcStr);
        }
        return s;
    }
    ZCBUF arena_ = nullptr;
};

TEST_F(ZbaseX, ResultsInArenaAndSystemStrings) {
    for (ZUBUF buf : {static_cast<ZUBUF>(arena_), static_cast<ZUBUF>(nullptr)}) {
        EXPECT_EQ(Run(B64, "foobar", buf), "Zm9vYmFy");
        EXPECT_EQ(Run(B64Url, "\xFB\xFF", buf), "-_8=");
        EXPECT_EQ(Run(Zbase64_DecodeX, "Zm9vYg==", buf), "foob");
        EXPECT_EQ(Run(B64XX, "+/8=", buf), "\xFB\xFF");
        // The eighth position of a three-byte tail stays as cleared.
        EXPECT_EQ(Run(Zbase32_EncodeX, "foo", buf), std::string("MZXW===\0", 8));
        EXPECT_EQ(Run(Zbase32_DecodeX, "MZXW6===", buf), std::string("foo\0\0", 5));
        EXPECT_EQ(Run(Zbase16_EncodeX, "\x0A\xFF", buf), "0AFF");
        EXPECT_EQ(Run(Zbase16_DecodeX, "666F", buf), "fo");
    }
    std::string data(5000, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 256);
    EXPECT_EQ(Run(Zbase64_DecodeX, Run(B64Url, data, arena_), arena_), data);
    EXPECT_EQ(Run(Zbase32_DecodeX, Run(Zbase32_EncodeX, data, nullptr), nullptr), data);
    EXPECT_EQ(Run(Zbase16_DecodeX, Run(Zbase16_EncodeX, data, arena_), nullptr), data);
    // A missing out argument refuses the call before anything is written.
    char *text = nullptr;
    uint32_t len = 7;
    EXPECT_EQ(Zbase64_DecodeXX(arena_, "Zg==", 4, nullptr, nullptr), ZFAILED);
    EXPECT_EQ(Zbase64_DecodeXX(arena_, "Zg==", 4, &text, nullptr), ZFAILED);
    EXPECT_EQ(Zbase64_DecodeXX(arena_, "Zg==", 4, nullptr, &len), ZFAILED);
    EXPECT_EQ(len, 7u);
    const ST_ZOS_SSTR in{const_cast<char *>("666F"), 4};
    for (auto fn :
         {Zbase64_DecodeX, Zbase32_EncodeX, Zbase32_DecodeX, Zbase16_EncodeX, Zbase16_DecodeX}) {
        EXPECT_EQ(fn(arena_, &in, nullptr), ZFAILED);
    }
    EXPECT_EQ(Zbase64_EncodeX(arena_, &in, 0, nullptr), ZFAILED);
}

TEST_F(ZbaseX, FailuresClearLogAndKeepNothing) {
    // Outputs above 4096 bytes are large arena blocks, so the arena's size
    // shows whether a failed result was given back, and they need a fresh
    // heap block whether or not a buffer is given.
    const std::string big(4500, 'q'), b64 = Run(B64, big + big, arena_);
    const std::string b32 = Run(Zbase32_EncodeX, big, arena_), b16 = b32 + b32;
    const struct {
        AllocFn fn;
        std::string in;
        const char *log;
        uint32_t level;
        bool noMemory;
    } cases[] = {
        {B64, "", "Zbase64_EncodeX get length.", ZOS_LOG_LEVEL_ERROR, false},
        {B64, big, "Zbase64_EncodeX allocate buffer.", ZOS_LOG_LEVEL_ERROR, true},
        {Zbase64_DecodeX, "", "Zbase64_DecodeX get length.", ZOS_LOG_LEVEL_WARN, false},
        {Zbase64_DecodeX, "Zg=", "Zbase64_DecodeX get length.", ZOS_LOG_LEVEL_WARN, false},
        {Zbase64_DecodeX, b64, "Zbase64_DecodeX allocate buffer.", ZOS_LOG_LEVEL_WARN, true},
        {Zbase64_DecodeX, b64 + "Zg*=", "Zbase64_DecodeX decode data.", ZOS_LOG_LEVEL_WARN, false},
        {Zbase64_DecodeX, b64 + "-AAA+AAA", "Zbase64_DecodeX decode data.", ZOS_LOG_LEVEL_WARN,
         false},
        {B64XX, "Zg==Z", "Zbase64_DecodeXX get length.", ZOS_LOG_LEVEL_ERROR, false},
        {B64XX, b64, "Zbase64_DecodeXX allocate buffer.", ZOS_LOG_LEVEL_ERROR, true},
        {B64XX, "Zg*=" + b64, "Zbase64_DecodeXX decode data.", ZOS_LOG_LEVEL_ERROR, false},
        {Zbase32_EncodeX, "", "Zbase32_EncodeX get length.", ZOS_LOG_LEVEL_ERROR, false},
        {Zbase32_EncodeX, big, "Zbase32_EncodeX allocate buffer.", ZOS_LOG_LEVEL_ERROR, true},
        {Zbase32_DecodeX, "MZXW6==", "Zbase32_DecodeX get length.", ZOS_LOG_LEVEL_ERROR, false},
        {Zbase32_DecodeX, b16, "Zbase32_DecodeX allocate buffer.", ZOS_LOG_LEVEL_ERROR, true},
        {Zbase32_DecodeX, b16 + "mzxw6===", "Zbase32_DecodeX decode data.", ZOS_LOG_LEVEL_ERROR,
         false},
        {Zbase16_EncodeX, "", "Zbase16_EncodeX get length.", ZOS_LOG_LEVEL_ERROR, false},
        {Zbase16_EncodeX, big, "Zbase16_EncodeX allocate buffer.", ZOS_LOG_LEVEL_ERROR, true},
        {Zbase16_DecodeX, "ABC", "Zbase16_DecodeX get length.", ZOS_LOG_LEVEL_ERROR, false},
        {Zbase16_DecodeX, b16, "Zbase16_DecodeX allocate buffer.", ZOS_LOG_LEVEL_ERROR, true},
        {Zbase16_DecodeX, "0a" + b16, "Zbase16_DecodeX decode data.", ZOS_LOG_LEVEL_ERROR, false},
    };
    ktest::SlotRef slot = ktest::Slot(0);
    const ZOS_OSDEP_FUNC saved = slot;
    char junk = 'x';
    for (const auto &c : cases) {
        for (ZUBUF buf : {static_cast<ZUBUF>(arena_), static_cast<ZUBUF>(nullptr)}) {
            ktest::ClearLogged();
            const uint32_t before = Zos_CbufSize(arena_);
            ST_ZOS_SSTR src = {const_cast<char *>(c.in.data()), static_cast<uint32_t>(c.in.size())};
            ST_ZOS_SSTR out = {&junk, 9};
            if (c.noMemory) slot = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingMalloc);
            EXPECT_EQ(c.fn(buf, &src, &out), ZFAILED) << c.log;
            slot = saved;
            EXPECT_TRUE(out.pcStr == nullptr && out.uiLen == 0) << c.log;
            EXPECT_EQ(Zos_CbufSize(arena_), before) << c.log;
            // Ours is the last line (an arena out of memory logs first).
            const auto lines = ktest::Logged();
            ASSERT_EQ(lines.size(), c.noMemory && buf != nullptr ? 2u : 1u) << c.log;
            EXPECT_EQ(lines.back().level, c.level) << c.log;
            EXPECT_TRUE(ktest::LoggedContains(c.log)) << c.log;
        }
    }
}

}  // namespace
