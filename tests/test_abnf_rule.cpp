// ABNF rules: numbers with bounds, q-values, addresses, whole-string
// converters against models (inet_pton, strtoull), percent-encoding,
// encoders, the token manager, lists and the drivers.
#include <arpa/inet.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "abnf_test.h"

using ktest::AbnfDec;
using ktest::S;

namespace {

// An encoding message over a fresh data buffer.
struct AbnfEnc {
    ZDBUF buf = Zos_DbufCreate(nullptr, 1, 128);
    ST_ABNF_ERR err{};
    ST_ABNF_MSG msg{};
    AbnfEnc() {
        Abnf_ErrInit(&err);
        Abnf_MsgInit(&msg, 5, nullptr, buf, &err, 0);
    }
    ~AbnfEnc() {
        Abnf_ErrDestroy(&err);
        Zos_DbufDelete(buf);
    }
    std::string text() const { return ktest::DbufText(buf); }
};

bool StrAll(const std::string &s, bool (*pred)(char)) {
    if (s.empty()) return false;
    for (char c : s) {
        if (!pred(c)) return false;
    }
    return true;
}

}  // namespace

TEST_F(ZosTest, AbnfNumbersAndBounds) {
    uint32_t v = 0;
    AbnfDec d(0, "0042;x");
    ASSERT_EQ(Abnf_GetUiDigit(&d.msg, &v), ZOK);
    EXPECT_EQ(v, 42u);
    EXPECT_EQ(d.msg.ucStopChr, ';');
    AbnfDec none(0, "x1");
    EXPECT_EQ(Abnf_GetUiDigit(&none.msg, &v), ZFAILED);
    EXPECT_EQ(none.code(), ABNF_ERR_FORM);
    AbnfDec empty(0, "5");
    Abnf_GetUiDigit(&empty.msg, &v);
    EXPECT_EQ(Abnf_GetUiDigit(&empty.msg, &v), ZFAILED);
    EXPECT_EQ(empty.code(), ABNF_ERR_NO_TEXT);
    // Bounds: below the minimum 14, above the maximum 15, all ones open.
    AbnfDec lo(0, "9");
    lo.msg.uiMinVal = 10;
    EXPECT_EQ(Abnf_GetUiDigit(&lo.msg, &v), ZFAILED);
    EXPECT_EQ(lo.code(), ABNF_ERR_BELOW_MIN);
    AbnfDec hi(0, "300");
    hi.msg.uiMaxVal = 255;
    EXPECT_EQ(Abnf_GetUiDigit(&hi.msg, &v), ZFAILED);
    EXPECT_EQ(hi.code(), ABNF_ERR_ABOVE_MAX);
    // The narrow forms truncate before the bounds.
    uint16_t us = 0;
    uint8_t uc = 0;
    AbnfDec t16(0, "65537");
    t16.msg.uiMaxVal = 0xFFFF;
    ASSERT_EQ(Abnf_GetUsDigit(&t16.msg, &us), ZOK);
    EXPECT_EQ(us, 1u);
    AbnfDec t8(0, "257");
    t8.msg.uiMaxVal = 0xFF;
    ASSERT_EQ(Abnf_GetUcDigit(&t8.msg, &uc), ZOK);
    EXPECT_EQ(uc, 1u);
    // Hexadecimal: at most 8 digits.
    AbnfDec x9(0, "123456789");
    EXPECT_EQ(Abnf_GetXUiDigit(&x9.msg, &v), ZFAILED);
    EXPECT_EQ(x9.code(), ABNF_ERR_FORM);
    AbnfDec xf(0, "FFFFffff");
    ASSERT_EQ(Abnf_GetXUiDigit(&xf.msg, &v), ZOK);
    EXPECT_EQ(v, 0xFFFFFFFFu);
    // Q-values: 5, 50, 500 are all 500; four digits fail.
    for (const char *q : {"5", "50", "500"}) {
        AbnfDec d5(5, q);
        ASSERT_EQ(Abnf_GetQval(&d5.msg, &us), ZOK);
        EXPECT_EQ(us, 500u) << q;
    }
    AbnfDec q4(5, "1234");
    EXPECT_EQ(Abnf_GetQval(&q4.msg, &us), ZFAILED);
    EXPECT_EQ(q4.code(), ABNF_ERR_FORM);
    AbnfDec q0(5, "x5");  // no digit at all
    EXPECT_EQ(Abnf_GetQval(&q0.msg, &us), ZFAILED);
    EXPECT_EQ(q0.code(), ABNF_ERR_FORM);
    uint8_t x = 0;
    EXPECT_EQ(Abnf_XChr2Digit('g', &x), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfXChr2Digit invalid char."));
    EXPECT_EQ(Abnf_XChr2Digit('b', &x), ZOK);
    EXPECT_EQ(x, 11);
}

TEST_F(ZosTest, AbnfAddressRules) {
    uint32_t a4 = 0;
    AbnfDec ok(0, "10.0.255.1:5060");
    ASSERT_EQ(Abnf_GetIpV4(&ok.msg, &a4), ZOK);
    const uint8_t *b = reinterpret_cast<const uint8_t *>(&a4);
    EXPECT_TRUE(b[0] == 10 && b[1] == 0 && b[2] == 255 && b[3] == 1);
    EXPECT_EQ(ok.msg.ucStopChr, ':');
    for (const char *bad : {"1.2.3", "256.1.1.1", "1.2.3.x", "1.2.3..4", "1234.1.1.1"}) {
        AbnfDec d(0, bad);
        EXPECT_EQ(Abnf_GetIpV4(&d.msg, &a4), ZFAILED) << bad;
        EXPECT_EQ(d.code(), ABNF_ERR_FORM) << bad;
    }
    uint8_t a6[16];
    AbnfDec v6(5, "2001:db8::1]:5060");
    ASSERT_EQ(Abnf_GetIpV6(&v6.msg, a6), ZOK);
    EXPECT_EQ(a6[0], 0x20);
    EXPECT_EQ(a6[15], 1);
    EXPECT_EQ(v6.msg.ucStopChr, ']');
    AbnfDec noColon(5, "1234");
    EXPECT_EQ(Abnf_GetIpV6(&noColon.msg, a6), ZFAILED);
    EXPECT_EQ(noColon.code(), ABNF_ERR_IPV6);
    // More than 43 address characters are never taken.
    AbnfDec tooLong(5, "0000:0000:0000:0000:0000:ffff:001.002.003.004");
    EXPECT_EQ(Abnf_GetIpV6(&tooLong.msg, a6), ZFAILED);

    // Encoders: IPv4 most significant byte first, IPv6 shortest text.
    AbnfEnc e;
    EXPECT_EQ(Abnf_AddIpV4(&e.msg, 0xC0A80001u), ZOK);
    EXPECT_EQ(Abnf_AddPstChr(&e.msg, ' '), ZOK);
    const uint8_t v6a[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ(Abnf_AddIpV6(&e.msg, v6a), ZOK);
    Abnf_AddPstChr(&e.msg, ' ');
    const uint8_t mapped[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 1, 2, 3, 4};
    EXPECT_EQ(Abnf_AddIpV6(&e.msg, mapped), ZOK);
    Abnf_AddPstChr(&e.msg, ' ');
    const uint8_t compat[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4};
    EXPECT_EQ(Abnf_AddIpV6(&e.msg, compat), ZOK);
    EXPECT_EQ(e.text(), "192.168.0.1 2001:db8::1 ::ffff:1.2.3.4 ::1.2.3.4");
    EXPECT_EQ(Abnf_AddIpV6(&e.msg, nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfGetIpV6 invalid address."));
}

TEST_F(ZosTest, AbnfConvertersAgainstModels) {
    std::mt19937 rng(1234);
    auto pick = [&](const char *alphabet, size_t maxLen) {
        const size_t n = std::strlen(alphabet);
        std::string s(rng() % (maxLen + 1), '\0');
        for (char &c : s) c = alphabet[rng() % n];
        return s;
    };
    uint32_t v = 0;
    EXPECT_EQ(Abnf_NStr2UiDigit("12a", 3, &v), ZFAILED);
    EXPECT_EQ(Abnf_NStr2UiDigit("12", 2, &v), ZOK);
    EXPECT_EQ(v, 12u);
    // No text, or an empty one, is refused before a message is made: no
    // warning of the message's own.
    ASSERT_EQ(Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ALL), ZOK);
    ktest::ClearLogged();
    EXPECT_EQ(Abnf_NStr2UiDigit(nullptr, 0, &v) + Abnf_NStr2UiDigit(nullptr, 2, &v) +
                  Abnf_NStr2UiDigit("12", 0, &v),
              3 * ZFAILED);
    EXPECT_TRUE(ktest::Logged().empty());
    EXPECT_EQ(Abnf_NStrIsIpv4(nullptr, 0), 0u);
    EXPECT_EQ(Abnf_NStrIsIpv6("", 0), 0u);
    for (int i = 0; i < 4000; i++) {
        // Decimal against strtoull (19 digits at most: exact in 64 bits;
        // the rule wraps in 32 bits, so the model is taken mod 2^32).
        const std::string d = pick(i % 4 ? "0123456789" : "0123456789 x-+", 19);
        const bool digits = StrAll(d, [](char c) { return c >= '0' && c <= '9'; });
        const unsigned long long m = std::strtoull(d.c_str(), nullptr, 10);
        uint16_t us = 0;
        uint8_t uc = 0;
        ASSERT_EQ(Abnf_NStr2UiDigit(d.data(), uint32_t(d.size()), &v) == ZOK, digits) << d;
        ASSERT_EQ(Abnf_NStr2UsDigit(d.data(), uint32_t(d.size()), &us) == ZOK, digits) << d;
        ASSERT_EQ(Abnf_NStr2UcDigit(d.data(), uint32_t(d.size()), &uc) == ZOK, digits) << d;
        if (digits) {
            ASSERT_EQ(v, uint32_t(m)) << d;
            ASSERT_EQ(us, uint16_t(m)) << d;
            ASSERT_EQ(uc, uint8_t(m)) << d;
        }
        // Hexadecimal: 1 to 8 digits.
        const std::string h = pick(i % 4 ? "0123456789abcdefABCDEF" : "0123456789abcdefgx", 10);
        const bool hex = h.size() <= 8 && StrAll(h, [](char c) { return std::isxdigit(c) != 0; });
        ASSERT_EQ(Abnf_NStr2XUiDigit(h.data(), uint32_t(h.size()), &v) == ZOK, hex) << h;
        if (hex) {
            ASSERT_EQ(v, uint32_t(std::strtoull(h.c_str(), nullptr, 16))) << h;
        }

        // IPv4 against inet_pton: equal where the model accepts; the rule
        // also takes leading zeros (up to 3 digits a part), which the model
        // refuses.
        std::string a = pick("0123456789.", 15);
        if (i % 3 == 0) {
            a = std::to_string(rng() % 300) + "." + std::to_string(rng() % 256) + "." +
                std::to_string(rng() % 256) + "." + std::to_string(rng() % 260);
        }
        in_addr model{};
        const bool pton = inet_pton(AF_INET, a.c_str(), &model) == 1;
        const bool mine = Abnf_NStr2Ipv4(a.data(), uint32_t(a.size()), &v) == ZOK;
        if (pton) {
            ASSERT_TRUE(mine) << a;
            ASSERT_EQ(v, model.s_addr) << a;
        } else if (mine) {
            ASSERT_NE(a.find('0'), std::string::npos) << a;  // only a leading-zero form
        }
        ASSERT_EQ(Abnf_NStrIsIpv4(a.data(), uint32_t(a.size())), mine ? 1u : 0u);

        // IPv6 against inet_pton, on texts of random addresses (as
        // inet_ntop writes them, some with a character changed) and on
        // random texts.
        std::string t;
        if (i % 2 == 0) {
            uint8_t raw[16];
            for (uint8_t &c : raw) c = rng() % 3 ? 0 : uint8_t(rng());
            char buf[INET6_ADDRSTRLEN];
            inet_ntop(AF_INET6, raw, buf, sizeof(buf));
            t = buf;
            if (i % 6 == 0 && !t.empty()) t[rng() % t.size()] = "0:.fx"[rng() % 5];
        } else {
            t = pick("0123:.af", 20);
        }
        in6_addr m6{};
        uint8_t got[16];
        const bool p6 = inet_pton(AF_INET6, t.c_str(), &m6) == 1;
        ASSERT_EQ(Abnf_NStr2Ipv6(t.data(), uint32_t(t.size()), got) == ZOK, p6) << t;
        if (p6) {
            ASSERT_EQ(std::memcmp(got, &m6, 16), 0) << t;
        }
    }
}

TEST_F(ZosTest, AbnfQvalAndPercentRoundTrips) {
    AbnfEnc e;
    EXPECT_EQ(Abnf_AddQval(&e.msg, 1000), ZOK);
    EXPECT_EQ(e.text(), "10");
    for (uint16_t q = 0; q < 1000; q++) {
        AbnfEnc w;
        ASSERT_EQ(Abnf_AddQval(&w.msg, q), ZOK);
        const std::string text = w.text();
        AbnfDec r(5, text);
        uint16_t back = 0xFFFF;
        ASSERT_EQ(Abnf_GetQval(&r.msg, &back), ZOK) << text;
        ASSERT_EQ(back, q) << text;
    }

    // A space with an empty set is "%20".
    ST_ABNF_CHRSET *set = Abnf_ChrsetCreate(1);
    char out[64];
    uint32_t size = sizeof(out);
    ASSERT_EQ(Abnf_StrN2P(" ", 1, set, 1, out, &size), ZOK);
    EXPECT_EQ(std::string(out, size), "%20");
    size = 0;
    EXPECT_EQ(Abnf_StrN2P(" ", 1, set, 1, out, &size), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfStrN2P invalid size."));
    EXPECT_EQ(Abnf_StrP2N("%41", 3, out, &size), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfStrP2N invalid size."));
    // A triplet needs 3 bytes of room; plain bytes stop at the capacity.
    size = 2;
    ASSERT_EQ(Abnf_StrN2P("a b", 3, set, 1, out, &size), ZOK);
    EXPECT_EQ(size, 0u);
    Abnf_ChrsetSetStr(set, "abcdefghijklmnopqrstuvwxyz0123456789-_.~", 1);
    size = 2;
    ASSERT_EQ(Abnf_StrN2P("abc", 3, set, 1, out, &size), ZOK);
    EXPECT_EQ(std::string(out, size), "ab");
    size = 4;
    ASSERT_EQ(Abnf_StrN2P("a b", 3, set, 1, out, &size), ZOK);
    EXPECT_EQ(std::string(out, size), "a%20");
    // Decoding: "%" without two hex digits is copied; capacity stops it.
    size = 16;
    ASSERT_EQ(Abnf_StrP2N("a%4g%41%", 8, out, &size), ZOK);
    EXPECT_EQ(std::string(out, size), "a%4gA%");
    size = 2;
    ASSERT_EQ(Abnf_StrP2N("%41%42%43", 9, out, &size), ZOK);
    EXPECT_EQ(std::string(out, size), "AB");
    ASSERT_EQ(Abnf_SizeP2N("%41%42%4", 8, &size), ZOK);
    EXPECT_EQ(size, 4u);

    std::mt19937 rng(99);
    for (int i = 0; i < 500; i++) {
        std::string raw(rng() % 40, '\0');
        for (char &c : raw) c = char(rng());
        uint32_t need = 0;
        ASSERT_EQ(Abnf_SizeN2P(raw.data(), uint32_t(raw.size()), set, 1, &need), ZOK);
        std::vector<char> enc(need + 1);
        uint32_t n = need + 1;
        ASSERT_EQ(Abnf_StrN2P(raw.data(), uint32_t(raw.size()), set, 1, enc.data(), &n), ZOK);
        ASSERT_EQ(n, need);
        uint32_t dn = 0;
        ASSERT_EQ(Abnf_SizeP2N(enc.data(), n, &dn), ZOK);
        ASSERT_EQ(dn, raw.size());
        std::vector<char> dec(raw.size() + 1);
        dn = uint32_t(dec.size());
        ASSERT_EQ(Abnf_StrP2N(enc.data(), n, dec.data(), &dn), ZOK);
        ASSERT_EQ(std::string(dec.data(), dn), raw);
    }
    Abnf_ChrsetDelete(set);
}

TEST_F(ZosTest, AbnfEncoders) {
    AbnfEnc e;
    const ST_ZOS_SSTR s{const_cast<char *>("tag"), 3};
    EXPECT_EQ(Abnf_AddPstStr(&e.msg, "a="), ZOK);
    EXPECT_EQ(Abnf_AddPstStrN(&e.msg, "xyz", 2), ZOK);
    EXPECT_EQ(Abnf_AddPstSStr(&e.msg, &s), ZOK);
    EXPECT_EQ(Abnf_AddPstLSStr(&e.msg, &s), ZOK);
    EXPECT_EQ(Abnf_AddPairSStr(&e.msg, '"', &s), ZOK);
    EXPECT_EQ(Abnf_AddUiDigit(&e.msg, 4294967295u), ZOK);
    Abnf_AddPstChr(&e.msg, ',');
    EXPECT_EQ(Abnf_AddUsDigit(&e.msg, 65535), ZOK);
    Abnf_AddPstChr(&e.msg, ',');
    EXPECT_EQ(Abnf_AddUcDigit(&e.msg, 7), ZOK);
    Abnf_AddPstChr(&e.msg, ',');
    EXPECT_EQ(Abnf_AddXUiDigit(&e.msg, 0xbeef), ZOK);
    Abnf_AddPstChr(&e.msg, ',');
    EXPECT_EQ(Abnf_AddQval(&e.msg, 50), ZOK);
    Abnf_AddPstChr(&e.msg, ',');
    EXPECT_EQ(Abnf_AddQval(&e.msg, 5), ZOK);
    const ST_ABNF_TKN_TBL tbl[] = {{"INVITE", 6, 1}, {"ACK", 3, 2}, {"", 0, 3}};
    Abnf_AddPstChr(&e.msg, ',');
    EXPECT_EQ(Abnf_AddTkn(&e.msg, tbl, 3, 2), ZOK);
    EXPECT_EQ(e.text(), "a=xytagtag\"tag\"4294967295,65535,7,BEEF,05,005,ACK");
    // Failures: no entry (no message), empty text 21, null strings 21.
    ktest::ClearLogged();
    EXPECT_EQ(Abnf_AddTkn(&e.msg, tbl, 3, 9), ZFAILED);
    EXPECT_TRUE(ktest::Logged().empty());
    EXPECT_EQ(Abnf_AddTkn(&e.msg, tbl, 3, 3), ZFAILED);
    EXPECT_EQ(e.err.usErrCode, ABNF_ERR_NULL_STR);
    EXPECT_TRUE(ktest::LoggedContains("AbnfAddPstStrN null string."));
    e.err.usErrCode = 0;
    EXPECT_EQ(Abnf_AddPairSStr(&e.msg, '"', nullptr), ZFAILED);
    EXPECT_EQ(e.err.usErrCode, ABNF_ERR_NULL_STR);
    EXPECT_TRUE(ktest::LoggedContains("AbnfAddPairSStr null string."));
    // Without a message every adder refuses.
    const uint32_t refused[] = {
        Abnf_AddPstChr(nullptr, 'a'),     Abnf_AddPstStr(nullptr, "a"),
        Abnf_AddPstStrN(nullptr, "a", 1), Abnf_AddPstSStr(nullptr, &s),
        Abnf_AddPstLSStr(nullptr, &s),    Abnf_AddPairSStr(nullptr, '"', &s),
        Abnf_AddUiDigit(nullptr, 1),      Abnf_AddUsDigit(nullptr, 1),
        Abnf_AddUcDigit(nullptr, 1),      Abnf_AddXUiDigit(nullptr, 1),
        Abnf_AddQval(nullptr, 1),         Abnf_AddTkn(nullptr, tbl, 3, 1)};
    for (size_t i = 0; i < std::size(refused); ++i) EXPECT_EQ(refused[i], ZFAILED) << i;

    // A memory buffer refuses appends: code 23 and the messages in order
    // (the inner append's first).
    ZDBUF mem = Zos_DbufCreate(nullptr, 2, 128);
    ST_ABNF_MSG m;
    ST_ABNF_ERR err;
    Abnf_ErrInit(&err);
    ASSERT_EQ(Abnf_MsgInit(&m, 5, nullptr, mem, &err, 0), ZOK);
    ktest::ClearLogged();
    EXPECT_EQ(Abnf_AddXUiDigit(&m, 1), ZFAILED);
    EXPECT_EQ(err.usErrCode, ABNF_ERR_ADD);
    std::vector<std::string> msgs;
    for (const auto &l : ktest::Logged()) {
        if (l.msg.rfind("Abnf", 0) == 0) msgs.push_back(l.msg);
    }
    ASSERT_EQ(msgs.size(), 2u);
    EXPECT_NE(msgs[0].find("AbnfAddPstStrN format data."), std::string::npos);
    EXPECT_NE(msgs[1].find("AbnfAddXUlDigit format data."), std::string::npos);
    for (auto [fn, text] : std::vector<std::pair<uint32_t (*)(ST_ABNF_MSG *), const char *>>{
             {[](ST_ABNF_MSG *x) { return Abnf_AddPstChr(x, 'a'); }, "AbnfAddPstChr format data."},
             {[](ST_ABNF_MSG *x) { return Abnf_AddPstStr(x, "a"); }, "AbnfAddPstStr format data."},
             {[](ST_ABNF_MSG *x) { return Abnf_AddUiDigit(x, 1); }, "AddUiDigit format data."},
             {[](ST_ABNF_MSG *x) { return Abnf_AddUsDigit(x, 1); }, "AbnfAddUsDigit format data."},
             {[](ST_ABNF_MSG *x) { return Abnf_AddUcDigit(x, 1); }, "AbnfAddUcDigit format data."},
             {[](ST_ABNF_MSG *x) { return Abnf_AddQval(x, 1); }, "AbnfAddQval format data."},
             {[](ST_ABNF_MSG *x) {
                  const ST_ZOS_SSTR t{const_cast<char *>("t"), 1};
                  return Abnf_AddPairSStr(x, '<', &t);
              },
              "AbnfAddPairSStr format 1char."},
         }) {
        ktest::ClearLogged();
        EXPECT_EQ(fn(&m), ZFAILED) << text;
        EXPECT_TRUE(ktest::LoggedContains(text)) << text;
    }
    // The encoding report shows what the buffer holds.
    ktest::ClearPrinted();
    Abnf_ErrLogPrint(&e.msg, nullptr);
    EXPECT_NE(ktest::Printed().find("SIP Encode Error, More Detail See Below:\r\n*****encoded "
                                    "data in buffer:\r\na=xytag"),
              std::string::npos);
    Abnf_ErrDestroy(&err);
    Zos_DbufDelete(mem);
}

TEST_F(ZosTest, AbnfTokenManager) {
    ST_ABNF_TKN_MGR *mgr = Abnf_TknMgrCreate(1, 1, 4);
    ASSERT_NE(mgr, nullptr);
    EXPECT_EQ(mgr->usNoCase, 1u);
    EXPECT_EQ(Abnf_TknAdd(mgr, 0, "Via", 3, 10), ZOK);
    EXPECT_EQ(Abnf_TknAdd(mgr, 0, "v", 1, 10), ZOK);
    EXPECT_EQ(Abnf_TknAdd(mgr, 2, "via", 3, 20), ZOK);      // another key class
    EXPECT_EQ(Abnf_TknAdd(mgr, 0, "VIA", 3, 30), ZFAILED);  // same text, case folded
    EXPECT_TRUE(ktest::LoggedContains("AbnfTknAdd insert token."));
    EXPECT_EQ(mgr->usCount, 3u);
    EXPECT_EQ(Abnf_TknAdd(mgr, 0, "To", 2, 40), ZOK);
    EXPECT_EQ(Abnf_TknAdd(mgr, 0, "From", 4, 50), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfTknAdd table is full."));
    EXPECT_EQ(Abnf_TknFind(mgr, 0, "vIA", 3), 10u);
    EXPECT_EQ(Abnf_TknFind(mgr, 2, "VIA", 3), 20u);
    EXPECT_EQ(Abnf_TknFind(mgr, 0, "Vi", 2), ABNF_TKN_UNKNOWN);
    EXPECT_EQ(Abnf_TknFind(mgr, 0, "Via: x", 3), 10u);  // counted, inside a longer text
    EXPECT_EQ(Abnf_TknFind(mgr, 0, nullptr, 0), ABNF_TKN_INVALID);
    uint32_t key = 0;
    Zos_HashKeyFromStrNoCase(2, reinterpret_cast<uintptr_t>("via"), 3, &key);
    EXPECT_EQ(Abnf_TknFindByKey(mgr, 2, key, "Via", 3), 20u);
    EXPECT_EQ(Abnf_TknFindByKey(mgr, 2, key, nullptr, 3), ABNF_TKN_INVALID);
    EXPECT_TRUE(ktest::LoggedContains("AbnfTknFindByKey invalid id."));

    // The token scan: key computed while scanning, prefix mixed in, the
    // unknown token a success with id 0xFFFFFFFE.
    ST_ABNF_CHRSET *set = Abnf_ChrsetCreate(1);
    Abnf_ChrsetSetStr(set, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-", 1);
    uint32_t id = 0;
    AbnfDec d(5, "VIA: x");
    ASSERT_EQ(Abnf_GetTknChrset(&d.msg, mgr, 0, set, 1, &id), ZOK);
    EXPECT_EQ(id, 10u);
    EXPECT_EQ(d.msg.ucStopChr, ':');
    AbnfDec p(5, "via:");
    ASSERT_EQ(Abnf_GetTknChrset(&p.msg, mgr, 2, set, 1, &id), ZOK);
    EXPECT_EQ(id, 20u);
    AbnfDec u(5, "Unknown-Header: x");
    ASSERT_EQ(Abnf_GetTknChrset(&u.msg, mgr, 0, set, 1, &id), ZOK);
    EXPECT_EQ(id, ABNF_TKN_UNKNOWN);
    AbnfDec sep(5, "To :x");
    ASSERT_EQ(Abnf_GetTknSepas(&sep.msg, mgr, 0, ' ', ':', 0, 0, &id), ZOK);
    EXPECT_EQ(id, 40u);
    // Parameter conflicts and a missing manager.
    AbnfDec noMgr(5, "To");
    EXPECT_EQ(Abnf_GetTknChrset(&noMgr.msg, nullptr, 0, set, 1, &id), ZFAILED);
    EXPECT_EQ(noMgr.code(), ABNF_ERR_NO_TKN_MGR);
    AbnfDec noSet(5, "To");
    noSet.msg.pstTknMgr = mgr;
    EXPECT_EQ(Abnf_GetTkn(&noSet.msg, &id), ZFAILED);
    EXPECT_EQ(noSet.code(), ABNF_ERR_FORM);
    AbnfDec empty(5, ":");
    EXPECT_EQ(Abnf_GetTknChrset(&empty.msg, mgr, 0, set, 1, &id), ZFAILED);
    EXPECT_EQ(empty.code(), ABNF_ERR_EXPECT);

    // The static table form returns the first entry's id on any match.
    const ST_ABNF_TKN_TBL tbl[] = {{"udp", 3, 7}, {"tcp", 3, 8}, {"tls", 3, 9}};
    AbnfDec t(5, "TLS;x");
    ASSERT_EQ(Abnf_GetTknChrsetX(&t.msg, set, 1, tbl, 3, &id), ZOK);
    EXPECT_EQ(id, 7u);
    AbnfDec t2(5, "sctp");
    EXPECT_EQ(Abnf_GetTknChrsetX(&t2.msg, set, 1, tbl, 3, &id), ZFAILED);
    AbnfDec t3(5, "udp");
    EXPECT_EQ(Abnf_GetTknChrsetX(&t3.msg, set, 1, tbl, 0, &id), ZFAILED);
    // Only an entry of the token's own length matches, not one it begins;
    // an entry without text is passed over.
    AbnfDec prefix(5, "tc;x");
    EXPECT_EQ(Abnf_GetTknChrsetX(&prefix.msg, set, 1, tbl, 3, &id), ZFAILED);
    const ST_ABNF_TKN_TBL holes[] = {{nullptr, 2, 4}, {"ws", 2, 5}};
    AbnfDec ws(5, "WS");
    id = 0;
    EXPECT_EQ(Abnf_GetTknChrsetX(&ws.msg, set, 1, holes, 2, &id), ZOK);
    EXPECT_EQ(id, 4u);

    const ST_ABNF_TKN e{3, 1, "Abc", 3};
    const auto ue = reinterpret_cast<uintptr_t>(&e);
    EXPECT_EQ(Abnf_TknHashComp(ue, 3, reinterpret_cast<uintptr_t>("Abc"), 3), 0u);
    EXPECT_EQ(Abnf_TknHashComp(ue, 3, reinterpret_cast<uintptr_t>("abc"), 3), 1u);
    EXPECT_EQ(Abnf_TknHashCompNoCase(ue, 3, reinterpret_cast<uintptr_t>("aBC"), 3), 0u);
    EXPECT_EQ(Abnf_TknHashCompNoCase(ue, 4, reinterpret_cast<uintptr_t>("abc"), 3), 1u);

    // A deleted manager is refused everywhere, without reading it.
    ASSERT_EQ(Abnf_TknMgrDelete(mgr), ZOK);
    EXPECT_EQ(Abnf_TknMgrDelete(mgr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfTknMgrDelete invalid id."));
    EXPECT_EQ(Abnf_TknAdd(mgr, 0, "x", 1, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfTknAdd invalid id."));
    EXPECT_EQ(Abnf_TknFind(mgr, 0, "Via", 3), ABNF_TKN_INVALID);
    EXPECT_TRUE(ktest::LoggedContains("AbnfTknFind invalid id."));
    AbnfDec dead(5, "Via");
    EXPECT_EQ(Abnf_GetTknChrset(&dead.msg, mgr, 0, set, 1, &id), ZFAILED);
    EXPECT_EQ(dead.code(), ABNF_ERR_EXPECT);
    EXPECT_EQ(Abnf_TknMgrCreate(1, 0, 0), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("AbnfTknMgrCreate create hash."));
    Abnf_ChrsetDelete(set);
}

namespace {

struct Item {
    uint32_t value;
};

uint32_t DecodeItem(ST_ABNF_MSG *msg, void *data) {
    return Abnf_GetUiDigit(msg, &static_cast<Item *>(data)->value) == ZOK &&
                   Abnf_TryExpectChr(msg, ',', 1) == ZOK
               ? ZOK
               : ZFAILED;
}

// 0 writes the value, 2 for the value 0 (writes nothing), 1 for 99.
uint32_t EncodeItem(ST_ABNF_MSG *msg, void *data) {
    const uint32_t v = static_cast<Item *>(data)->value;
    if (v == 0) return 2;
    if (v == 99) return 1;
    return Abnf_AddUiDigit(msg, v);
}

uint32_t CopyItem(ZUBUF, void *dst, const void *src) {
    const auto *s = static_cast<const Item *>(src);
    if (s->value == 13) return ZFAILED;
    static_cast<Item *>(dst)->value = s->value;
    return ZOK;
}

struct Pair {
    uint32_t a = 0, b = 0;
};

uint32_t DecodePair(ST_ABNF_MSG *msg, void *data) {
    auto *p = static_cast<Pair *>(data);
    if (Abnf_GetUiDigit(msg, &p->a) != ZOK) {
        Abnf_ErrLog(msg, 0, 0, "pair first", 1);
        return ZFAILED;
    }
    if (Abnf_ExpectChr(msg, '-', 1) != ZOK || Abnf_GetUiDigit(msg, &p->b) != ZOK) {
        Abnf_ErrLog(msg, 0, 0, "pair second", 2);
        return ZFAILED;
    }
    return ZOK;
}

uint32_t EncodePair(ST_ABNF_MSG *msg, void *data) {
    const auto *p = static_cast<const Pair *>(data);
    return Abnf_AddUiDigit(msg, p->a) == ZOK && Abnf_AddPstChr(msg, '-') == ZOK &&
                   Abnf_AddUiDigit(msg, p->b) == ZOK
               ? ZOK
               : ZFAILED;
}

}  // namespace

TEST_F(ZosTest, AbnfListsAndDrivers) {
    ZDBUF mem = Zos_DbufCreate(nullptr, 2, 128);
    ST_ZOS_DLIST list{};
    AbnfDec d(0, "1,22,x");
    d.msg.zBuf = mem;
    EXPECT_EQ(Abnf_AnyLstItemDecode(&d.msg, &list, sizeof(Item), DecodeItem), ZOK);
    EXPECT_EQ(Abnf_AnyLstItemDecode(&d.msg, &list, sizeof(Item), DecodeItem), ZOK);
    EXPECT_EQ(Abnf_AnyLstItemDecode(&d.msg, &list, sizeof(Item), DecodeItem), ZFAILED);
    EXPECT_EQ(list.uiCount, 2u);  // the failed item is not linked
    EXPECT_EQ(list.uiMax, ZOS_LIST_NO_LIMIT);

    void *p = nullptr;
    ASSERT_EQ(Abnf_AnyLstAddParm(mem, &list, sizeof(Item), &p), ZOK);
    static_cast<Item *>(p)->value = 0;  // encodes as nothing
    const Item src{7}, bad{13};
    void *q = nullptr;
    ASSERT_EQ(Abnf_AnyLstCpyParm(mem, &list, &src, CopyItem, sizeof(Item), &q), ZOK);
    EXPECT_EQ(Abnf_AnyLstCpyParm(mem, &list, &bad, CopyItem, sizeof(Item), &q), ZFAILED);
    EXPECT_EQ(q, nullptr);        // no item handed out
    EXPECT_EQ(list.uiCount, 4u);  // the failed copy was removed again

    AbnfEnc e;
    ASSERT_EQ(Abnf_AnyLstEncode(&e.msg, &list, 1, 1, ',', EncodeItem), ZOK);
    EXPECT_EQ(e.text(), ",1,22,7,");  // no separator after the empty item
    AbnfEnc x;
    ASSERT_EQ(Abnf_AnyLstEncodeX(&x.msg, &list, 0, 0, ", ", EncodeItem), ZFAILED);  // 2 fails X
    AbnfEnc lead;  // a leading separator that cannot be added
    EXPECT_EQ(Abnf_AnyLstEncodeX(&lead.msg, &list, 1, 0, "", EncodeItem), ZFAILED);
    EXPECT_EQ(Abnf_AnyLstRmvParm(&list, p), ZOK);
    EXPECT_EQ(Abnf_AnyLstRmvParm(&list, p), ZFAILED);
    AbnfEnc x2;
    ASSERT_EQ(Abnf_AnyLstEncodeX(&x2.msg, &list, 0, 0, ", ", EncodeItem), ZOK);
    EXPECT_EQ(x2.text(), "1, 22, 7");
    void *r = nullptr;
    Abnf_AnyLstAddParm(mem, &list, sizeof(Item), &r);
    static_cast<Item *>(r)->value = 99;
    AbnfEnc x3;
    EXPECT_EQ(Abnf_AnyLstEncode(&x3.msg, &list, 0, 0, ',', EncodeItem), ZFAILED);
    ST_ZOS_DLIST none{};
    EXPECT_EQ(Abnf_AnyLstEncode(&x3.msg, &none, 1, 1, ',', EncodeItem), ZOK);
    // Plain allocation and appending a node that refers to the data.
    void *a = nullptr;
    EXPECT_EQ(Abnf_ListAllocData(mem, 8, &a), ZOK);
    ASSERT_NE(a, nullptr);
    ST_ZOS_DLIST other{};
    EXPECT_EQ(Abnf_ListAppendData(mem, &other, a), ZOK);
    EXPECT_EQ(other.uiCount, 1u);
    EXPECT_EQ(Abnf_AnyLstRmvParm(&other, a), ZOK);

    // Drivers: success hands the memory buffer over; a failure prints the
    // report with the frames and the caret, and frees what it made.
    Pair pair;
    ST_ZOS_SSTR text{const_cast<char *>("12-34"), 5};
    ZDBUF res = nullptr;
    ASSERT_EQ(Abnf_AnyDecodeX(0, DecodePair, &text, &res, &pair), ZOK);
    EXPECT_NE(res, nullptr);
    EXPECT_EQ(Zos_DbufType(res), 2u);
    Zos_DbufDelete(res);
    EXPECT_TRUE(pair.a == 12 && pair.b == 34);
    ST_ZOS_SSTR badText{const_cast<char *>("12+34"), 5};
    ktest::ClearPrinted();
    EXPECT_EQ(Abnf_AnyDecodeX(0, DecodePair, &badText, &res, &pair), ZFAILED);
    EXPECT_EQ(res, nullptr);
    const std::string rep = ktest::Printed();
    EXPECT_NE(rep.find("UNKNOWN Decode Error"), std::string::npos);
    EXPECT_NE(rep.find("\"pair second\""), std::string::npos);
    EXPECT_NE(rep.find("    \"12+34\"\r\n       ^\r\n"), std::string::npos) << rep;
    EXPECT_EQ(Abnf_AnyDecode(0, DecodePair, &text, mem, &pair), ZOK);
    EXPECT_EQ(Abnf_AnyDecodeL(0, DecodePair, &text, mem, &pair), ZOK);
    EXPECT_EQ(Abnf_AnyDecode(0, DecodePair, nullptr, mem, &pair), ZFAILED);
    EXPECT_EQ(Abnf_AnyDecode(0, DecodePair, &text, mem, nullptr), ZFAILED);
    res = reinterpret_cast<ZDBUF>(&res);
    EXPECT_EQ(Abnf_AnyEncodeX(5, nullptr, &pair, 1, &res), ZFAILED);  // no encoder
    EXPECT_EQ(res, nullptr);
    ktest::ClearPrinted();
    ASSERT_EQ(Abnf_AnyEncodeX(5, EncodePair, &pair, 1, &res), ZOK);
    EXPECT_EQ(Zos_DbufLen(res), 5u);
    Zos_DbufDelete(res);
    EXPECT_EQ(ktest::Printed().find("Error"), std::string::npos) << "a report without an error";
    // An encoder that fails: the report is printed and nothing is handed out.
    res = reinterpret_cast<ZDBUF>(&res);
    const PFN_ABNF_ENCODE refuse = [](ST_ABNF_MSG *, void *) -> uint32_t { return ZFAILED; };
    EXPECT_EQ(Abnf_AnyEncodeX(5, refuse, &pair, 1, &res), ZFAILED);
    EXPECT_EQ(res, nullptr);
    EXPECT_NE(ktest::Printed().find(" Encode Error, More Detail See Below:"), std::string::npos)
        << ktest::Printed();
    // A long encoding spans blocks; the flat form is one block.
    std::vector<Pair> many(100, Pair{123456, 654321});
    auto encodeMany = [](ST_ABNF_MSG *m, void *data) -> uint32_t {
        auto *v = static_cast<std::vector<Pair> *>(data);
        for (Pair &pp : *v) {
            if (EncodePair(m, &pp) != ZOK) return ZFAILED;
        }
        return ZOK;
    };
    ASSERT_EQ(Abnf_AnyEncodeX(5, encodeMany, &many, 1, &res), ZOK);
    EXPECT_EQ(Zos_DbufLen(res), 1300u);
    EXPECT_EQ(Zos_DbufBlkSize(res), 1u);
    Zos_DbufDelete(res);
    ASSERT_EQ(Abnf_AnyEncodeX(5, encodeMany, &many, 0, &res), ZOK);
    EXPECT_GT(Zos_DbufBlkSize(res), 1u);
    Zos_DbufDelete(res);
    Zos_DbufDelete(mem);
}
