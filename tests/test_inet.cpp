// Address text in both directions (checked against the C library over
// random addresses), the scratch texts, the comparison shortcut, the
// platform-backed operations with empty and installed slots, and name
// resolution.
#include <arpa/inet.h>

#include <cstring>
#include <random>
#include <string>

#include "zos_test.h"

namespace {

using Bytes16 = std::array<uint8_t, 16>;

Bytes16 V6(std::initializer_list<uint16_t> groups) {
    Bytes16 b{};
    size_t i = 0;
    for (uint16_t g : groups) {
        b[i++] = static_cast<uint8_t>(g >> 8);
        b[i++] = static_cast<uint8_t>(g);
    }
    return b;
}

std::string Ntop6(const Bytes16 &b) {
    char buf[ZOS_INET_IPV6_STR_SIZE];
    if (Zos_InetNtop6(b.data(), buf, sizeof(buf)) != ZOK) return "<fail>";
    return buf;
}

std::string Pton6(const char *text) {
    Bytes16 b{};
    if (Zos_InetPton6(text, b.data()) != ZOK) return "<fail>";
    return Ntop6(b);
}

class InetTest : public ZosTest {};

TEST_F(InetTest, Ntop6Forms) {
    EXPECT_EQ(Ntop6(V6({0, 0, 0, 0, 0, 0, 0x0102, 0x0304})), "::1.2.3.4");
    EXPECT_EQ(Ntop6(V6({0, 0, 0, 0, 0, 0xffff, 0x0102, 0x0304})), "::ffff:1.2.3.4");
    EXPECT_EQ(Ntop6(V6({})), "::");
    EXPECT_EQ(Ntop6(V6({0, 0, 0, 0, 0, 0, 0, 1})), "::1");
    EXPECT_EQ(Ntop6(V6({0, 0, 0, 0, 0, 0, 0, 2})), "::2");
    EXPECT_EQ(Ntop6(V6({0x2001, 0xdb8, 0, 0, 1, 0, 0, 1})), "2001:db8::1:0:0:1");
    EXPECT_EQ(Ntop6(V6({0x2001, 0xdb8, 0, 1, 0, 0, 0, 1})), "2001:db8:0:1::1");
    EXPECT_EQ(Ntop6(V6({0xfe80, 0, 0, 0, 0, 0, 0, 0})), "fe80::");
    EXPECT_EQ(Ntop6(V6({1, 2, 3, 4, 5, 6, 7, 0})), "1:2:3:4:5:6:7::");
    // A single zero group is a run too.
    EXPECT_EQ(Ntop6(V6({1, 0, 3, 4, 5, 6, 7, 8})), "1::3:4:5:6:7:8");
    EXPECT_EQ(Ntop6(V6({0xABCD, 0xEF01, 0x2345, 0x6789, 0xabcd, 0xef01, 0x2345, 0x6789})),
              "abcd:ef01:2345:6789:abcd:ef01:2345:6789");
    // Five zero groups without 0xffff, and 0xffff after fewer zeros.
    EXPECT_EQ(Ntop6(V6({0, 0, 0, 0, 0, 0xfffe, 0x0102, 0x0304})), "::fffe:102:304");
    EXPECT_EQ(Ntop6(V6({0, 0, 0, 0, 1, 0xffff, 0x0102, 0x0304})), "::1:ffff:102:304");
}

TEST_F(InetTest, NtopSizesAndTypes) {
    const Bytes16 full = V6({0xABCD, 0xEF01, 0x2345, 0x6789, 0xabcd, 0xef01, 0x2345, 0x6789});
    char buf[64];
    std::memset(buf, 'x', sizeof(buf));
    EXPECT_EQ(Zos_InetNtop6(full.data(), buf, 39), ZFAILED);  // 39 characters, no room for NUL
    EXPECT_EQ(buf[0], 'x');
    EXPECT_EQ(Zos_InetNtop6(full.data(), buf, 40), ZOK);
    EXPECT_EQ(std::strlen(buf), 39u);

    const uint8_t v4[4] = {192, 168, 100, 255};
    std::memset(buf, 'x', sizeof(buf));
    EXPECT_EQ(Zos_InetNtop(ZOS_INET_IPV4, v4, buf, 15), ZFAILED);
    EXPECT_EQ(buf[0], 'x');
    EXPECT_EQ(Zos_InetNtop(ZOS_INET_IPV4, v4, buf, 16), ZOK);
    EXPECT_STREQ(buf, "192.168.100.255");
    EXPECT_EQ(Zos_InetNtop(ZOS_INET_IPV4, nullptr, buf, 16), ZFAILED);
    EXPECT_EQ(Zos_InetNtop(ZOS_INET_IPV6, full.data(), nullptr, 64), ZFAILED);

    ktest::ClearLogged();
    EXPECT_EQ(Zos_InetNtop(2, v4, buf, 64), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("InetNtop unsupported inet type."));
    Bytes16 out{};
    EXPECT_EQ(Zos_InetPton(7, "::1", out.data()), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("InetPton unsupported inet type."));
}

TEST_F(InetTest, Pton6Forms) {
    EXPECT_EQ(Pton6("::1.2.3.4"), "::1.2.3.4");
    EXPECT_EQ(Pton6("::ffff:1.2.3.4"), "::ffff:1.2.3.4");
    EXPECT_EQ(Pton6("::FFFF:10.0.0.1"), "::ffff:10.0.0.1");
    EXPECT_EQ(Pton6("1:2:3:4:5:6:1.2.3.4"), "1:2:3:4:5:6:102:304");
    EXPECT_EQ(Pton6("::"), "::");
    EXPECT_EQ(Pton6("::1"), "::1");
    EXPECT_EQ(Pton6("1::"), "1::");
    EXPECT_EQ(Pton6("0:0:0:0:0:0:0:0"), "::");
    EXPECT_EQ(Pton6("2001:DB8:0:0:8:800:200C:417A"), "2001:db8::8:800:200c:417a");
    EXPECT_EQ(Pton6("1:2:3:4:5:6:7::"), "1:2:3:4:5:6:7::");
    EXPECT_EQ(Pton6("::2:3:4:5:6:7:8"), "::2:3:4:5:6:7:8");
    EXPECT_EQ(Pton6("0001:02:003::"), "1:2:3::");
}

TEST_F(InetTest, Pton6Refusals) {
    const char *bad[] = {"",
                         ":",
                         ":1::",
                         ":::",
                         "1:::2",
                         "1::2::3",
                         "1:2",
                         "1:2:3:4:5:6:7",
                         "1:2:3:4:5:6:7:8:9",
                         "1:2:3:4:5:6:7:8::",
                         "::1:2:3:4:5:6:7:8",
                         "1:",
                         "12345::",
                         "g::",
                         "::1.2.3",
                         "::1.2.3.4.5",
                         "::256.1.1.1",
                         "::01.2.3.4",
                         "::1.2.3.4:5",
                         "1:2:3:4:5:6:7:1.2.3.4",
                         "::1..2.3",
                         "1.2.3.4",
                         " ::1",
                         "::1 ",
                         "::1%eth0"};
    for (const char *text : bad) {
        Bytes16 out;
        out.fill(0xAA);
        EXPECT_EQ(Zos_InetPton6(text, out.data()), ZFAILED) << text;
        EXPECT_EQ(out[0], 0xAA) << "output touched for " << text;
    }
    Bytes16 out{};
    EXPECT_EQ(Zos_InetPton6(nullptr, out.data()), ZFAILED);
    EXPECT_EQ(Zos_InetPton6("::1", nullptr), ZFAILED);
}

// Random addresses, most groups zero so runs of every length and the two
// dotted forms come up often.
Bytes16 RandomV6(std::mt19937 &rng) {
    Bytes16 b{};
    std::uniform_int_distribution<int> pick(0, 9);
    for (size_t g = 0; g < 8; ++g) {
        const int k = pick(rng);
        const uint16_t w = k < 5   ? 0
                           : k < 6 ? 0xffff
                                   : static_cast<uint16_t>(rng() >> (rng() % 16));
        b[2 * g] = static_cast<uint8_t>(w >> 8);
        b[2 * g + 1] = static_cast<uint8_t>(w);
    }
    if (pick(rng) == 0) std::fill(b.begin(), b.begin() + 10, uint8_t{0});
    return b;
}

// Where the C library writes another form than ours: it never shortens a
// single zero group, and writes "::a.b.c.d" also for seven leading zero
// groups unless the last group is 1.
bool LibcAgrees(const Bytes16 &b) {
    uint32_t best = 0, bestLen = 0;
    for (uint32_t i = 0; i < 8;) {
        uint32_t j = i;
        while (j < 8 && b[2 * j] == 0 && b[2 * j + 1] == 0) ++j;
        if (j - i > bestLen) best = i, bestLen = j - i;
        i = j == i ? i + 1 : j;
    }
    if (bestLen == 1) return false;
    const uint32_t last = (uint32_t{b[14]} << 8) | b[15];
    return !(best == 0 && bestLen == 7 && last != 1);
}

TEST_F(InetTest, AgainstCLibraryOverRandomAddresses) {
    std::mt19937 rng(20261125);
    int compared = 0;
    for (int n = 0; n < 5000; ++n) {
        const Bytes16 b = RandomV6(rng);
        char lib[INET6_ADDRSTRLEN];
        ASSERT_NE(inet_ntop(AF_INET6, b.data(), lib, sizeof(lib)), nullptr);
        const std::string ours = Ntop6(b);
        if (LibcAgrees(b)) {
            ++compared;
            EXPECT_EQ(ours, lib);
        }
        // Both texts read back to the same address, in both parsers.
        Bytes16 back{}, libBack{};
        ASSERT_EQ(Zos_InetPton6(lib, back.data()), ZOK) << lib;
        EXPECT_EQ(back, b) << lib;
        ASSERT_EQ(Zos_InetPton6(ours.c_str(), back.data()), ZOK) << ours;
        EXPECT_EQ(back, b) << ours;
        ASSERT_EQ(inet_pton(AF_INET6, ours.c_str(), libBack.data()), 1) << ours;
        EXPECT_EQ(libBack, b) << ours;

        // A damaged text: both parsers accept or refuse it alike, and
        // agree on the address when they accept.
        std::string bent = ours;
        const char alphabet[] = "0123456789abcdefABCDEF:.g ";
        const size_t at = rng() % (bent.size() + 1);
        switch (rng() % 3) {
            case 0:
                bent.insert(at, 1, alphabet[rng() % (sizeof(alphabet) - 1)]);
                break;
            case 1:
                if (at < bent.size()) bent.erase(at, 1);
                break;
            default:
                if (at < bent.size()) bent[at] = alphabet[rng() % (sizeof(alphabet) - 1)];
        }
        Bytes16 mine{}, theirs{};
        const bool okMine = Zos_InetPton6(bent.c_str(), mine.data()) == ZOK;
        const bool okLib = inet_pton(AF_INET6, bent.c_str(), theirs.data()) == 1;
        EXPECT_EQ(okMine, okLib) << bent;
        if (okMine && okLib) {
            EXPECT_EQ(mine, theirs) << bent;
        }
    }
    EXPECT_GT(compared, 2000);

    for (int n = 0; n < 2000; ++n) {
        const uint32_t v = rng();
        char lib[INET_ADDRSTRLEN], ours[ZOS_INET_IPV4_STR_SIZE];
        ASSERT_NE(inet_ntop(AF_INET, &v, lib, sizeof(lib)), nullptr);
        ASSERT_EQ(Zos_InetNtop(ZOS_INET_IPV4, &v, ours, sizeof(ours)), ZOK);
        EXPECT_STREQ(ours, lib);
    }
}

TEST_F(InetTest, IpToStrSizeRule) {
    ST_ZOS_INET_ADDR a{};
    a.wType = ZOS_INET_IPV4;
    const uint8_t v4[4] = {10, 1, 2, 3};
    std::memcpy(&a.u.uiIpv4, v4, 4);
    char buf[64];
    uint32_t size = 10;
    EXPECT_EQ(Zos_InetIpToStr(&a, buf, &size), ZOK);
    EXPECT_EQ(size, 16u);
    size = 100;
    EXPECT_EQ(Zos_InetIpToStr(&a, nullptr, &size), ZOK);
    EXPECT_EQ(size, 16u);
    size = 16;
    EXPECT_EQ(Zos_InetIpToStr(&a, buf, &size), ZOK);
    EXPECT_STREQ(buf, "10.1.2.3");
    EXPECT_EQ(size, 8u);

    a.wType = ZOS_INET_IPV6;
    const Bytes16 v6 = V6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0x42});
    std::memcpy(a.u.aucIpv6, v6.data(), 16);
    size = 43;
    EXPECT_EQ(Zos_InetIpToStr(&a, buf, &size), ZOK);
    EXPECT_EQ(size, 44u);
    size = 44;
    EXPECT_EQ(Zos_InetIpToStr(&a, buf, &size), ZOK);
    EXPECT_STREQ(buf, "2001:db8::42");
    EXPECT_EQ(size, 12u);

    ktest::ClearLogged();
    a.wType = 5;
    size = 64;
    EXPECT_EQ(Zos_InetIpToStr(&a, buf, &size), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("InetIpToStr unsupported inet type."));
    EXPECT_EQ(Zos_InetIpToStr(nullptr, buf, &size), ZFAILED);
    EXPECT_EQ(Zos_InetIpToStr(&a, buf, nullptr), ZFAILED);
}

TEST_F(InetTest, ScratchTextsAreShared) {
    // Byte order comes from the platform; installed here.
    ASSERT_EQ(Zpand_InetOsdepInstall(), ZOK);
    const uint32_t a = htonl(0x0A000001), b = htonl(0xC0A80102);
    char *t1 = nullptr, *t2 = nullptr;
    ASSERT_EQ(Zos_InetNtoa(a, &t1), ZOK);
    EXPECT_STREQ(t1, "10.0.0.1");
    ASSERT_EQ(Zos_InetNtoa(b, &t2), ZOK);
    EXPECT_EQ(t1, t2);
    EXPECT_STREQ(t1, "192.168.1.2");
    EXPECT_STREQ(Zos_InetNtoaX(htonl(0xFFFFFFFF)), "255.255.255.255");
    EXPECT_STREQ(Zos_InetNtoaX(0), "0.0.0.0");
    EXPECT_EQ(Zos_InetNtoa(a, nullptr), ZFAILED);

    const uint8_t mac1[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xff};
    const uint8_t mac2[6] = {1, 2, 3, 4, 5, 6};
    char *m1 = nullptr, *m2 = nullptr;
    ASSERT_EQ(Zos_InetMactoa(mac1, &m1), ZOK);
    EXPECT_STREQ(m1, "00:1A:2B:3C:4D:FF");
    ASSERT_EQ(Zos_InetMactoa(mac2, &m2), ZOK);
    EXPECT_EQ(m1, m2);
    EXPECT_STREQ(m1, "01:02:03:04:05:06");
    EXPECT_EQ(Zos_InetMactoa(nullptr, &m1), ZFAILED);
}

TEST_F(InetTest, CompareShortcut) {
    ST_ZOS_INET_ADDR a{}, b{};
    a.wType = b.wType = ZOS_INET_IPV4;
    a.wPort = b.wPort = 5060;
    a.u.uiIpv4 = b.u.uiIpv4 = 0x01020304;
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZOK);
    b.wPort = 5061;
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZFAILED);
    b.wPort = 5060;
    b.wType = ZOS_INET_IPV6;
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZFAILED);
    EXPECT_EQ(Zos_InetCmpAddr(nullptr, &b), ZFAILED);

    a.wType = ZOS_INET_IPV6;
    Bytes16 x = V6({0x2001, 0xdb8, 0x1111, 0x2222, 0, 0, 0, 1});
    Bytes16 y = x;
    std::memcpy(a.u.aucIpv6, x.data(), 16);
    std::memcpy(b.u.aucIpv6, y.data(), 16);
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZOK);
    // A difference before the second address's first zero byte counts...
    a.u.aucIpv6[5] ^= 1;
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZFAILED);
    a.u.aucIpv6[5] ^= 1;
    // ...one after it does not: the comparison stops at that zero byte.
    a.u.aucIpv6[15] = 9;
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZOK);
    // No zero byte at all: all sixteen bytes compare, nothing beyond.
    std::memset(a.u.aucIpv6, 0x11, 16);
    std::memset(b.u.aucIpv6, 0x11, 16);
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZOK);
    a.u.aucIpv6[15] = 0x12;
    EXPECT_EQ(Zos_InetCmpAddr(&a, &b), ZFAILED);
}

TEST_F(InetTest, EmptySlotsTakeTheirFallbacks) {
    EXPECT_EQ(Zos_InetNtohl(0x11223344u), 0x11223344u);
    EXPECT_EQ(Zos_InetHtons(0x1122), 0x1122);
    uint32_t v = 0;
    EXPECT_EQ(Zos_InetAddr("1.2.3.4", &v), ZFAILED);
    uint8_t four[4] = {};
    EXPECT_EQ(Zos_InetPton(ZOS_INET_IPV4, "1.2.3.4", four), ZFAILED);
    ZFDSET set = 123;
    EXPECT_EQ(Zos_InetFdCreate(&set), ZFAILED);
    EXPECT_EQ(set, 0u);
    EXPECT_EQ(Zos_InetFdIsset(3, set), 0u);
    char ip[64] = "x";
    ktest::ClearLogged();
    EXPECT_EQ(Zos_InetGetLocalIp(ip, sizeof(ip)), ZFAILED);
    EXPECT_STREQ(ip, "");
    EXPECT_TRUE(ktest::LoggedContains("InetGetLocalIp no function."));
    // Without the platform the host-order step keeps the value, so the
    // dotted text reads the word's bytes from the most significant one.
    EXPECT_STREQ(Zos_InetNtoaX(0x0A000001u), "10.0.0.1");
}

TEST_F(InetTest, InstalledPlatformOperations) {
    ASSERT_EQ(Zpand_InetOsdepInstall(), ZOK);
    EXPECT_EQ(Zos_InetHtonl(0x01020304u), htonl(0x01020304u));
    EXPECT_EQ(Zos_InetNtohs(0x0102), ntohs(0x0102));
    uint32_t v = 0;
    ASSERT_EQ(Zos_InetAddr("192.0.2.7", &v), ZOK);
    EXPECT_STREQ(Zos_InetNtoaX(v), "192.0.2.7");
    EXPECT_EQ(Zos_InetPton4("192.0.2.256", &v), ZFAILED);
    EXPECT_EQ(Zos_InetAddr(nullptr, &v), ZFAILED);
    uint8_t four[4] = {};
    ASSERT_EQ(Zos_InetPton(ZOS_INET_IPV4, "203.0.113.9", four), ZOK);
    EXPECT_EQ(four[0], 203);
    EXPECT_EQ(four[3], 9);

    ZFDSET set = 0, copy = 0;
    ASSERT_EQ(Zos_InetFdCreate(&set), ZOK);
    ASSERT_EQ(Zos_InetFdCreate(&copy), ZOK);
    EXPECT_EQ(Zos_InetFdIsset(5, set), 0u);
    EXPECT_EQ(Zos_InetFdSet(5, set), ZOK);
    EXPECT_EQ(Zos_InetFdIsset(5, set), 1u);
    EXPECT_EQ(Zos_InetFdCopy(copy, set), ZOK);
    EXPECT_EQ(Zos_InetFdClr(5, set), ZOK);
    EXPECT_EQ(Zos_InetFdIsset(5, set), 0u);
    EXPECT_EQ(Zos_InetFdIsset(5, copy), 1u);
    EXPECT_EQ(Zos_InetFdZero(copy), ZOK);
    EXPECT_EQ(Zos_InetFdIsset(5, copy), 0u);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_InetFdSet(-1, set), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("InetFdSet invalid fd."));
    EXPECT_EQ(Zos_InetFdIsset(-2, set), 0u);
    EXPECT_TRUE(ktest::LoggedContains("InetFdIsset invalid fd."));
    EXPECT_EQ(Zos_InetFdClr(-3, set), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("InetFdClr invalid fd."));
    EXPECT_EQ(Zos_InetFdSet(1 << 20, set), ZFAILED);  // beyond the set
    EXPECT_EQ(Zos_InetFdDelete(set), ZOK);
    EXPECT_EQ(Zos_InetFdDelete(copy), ZOK);

    // A platform create that fails is reported.
    ktest::Slot(53) =
        reinterpret_cast<ZOS_OSDEP_FUNC>(+[](uintptr_t *) -> uint32_t { return ZFAILED; });
    ktest::ClearLogged();
    EXPECT_EQ(Zos_InetFdCreate(&set), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("InetFdCreate create failed."));
}

TEST_F(InetTest, LocalAddress) {
    ASSERT_EQ(Zpand_InetOsdepInstall(), ZOK);
    char ip[ZOS_INET_IPV6_STR_SIZE];
    if (Zos_InetGetLocalIp(ip, sizeof(ip)) == ZOK) {
        // Whatever the host has, it reads back as an address.
        uint8_t bytes[16];
        EXPECT_TRUE(Zos_InetPton6(ip, bytes) == ZOK || inet_pton(AF_INET, ip, bytes) == 1) << ip;
        EXPECT_STRNE(ip, "127.0.0.1");
        EXPECT_TRUE(std::strcmp(ip, "0.0.0.0") != 0 && std::strcmp(ip, "::") != 0)
            << "an interface that is up has an address of its own";
    } else {
        EXPECT_STREQ(ip, "");
    }
    // A bound source wins; one that fails gives failure and "".
    Zpand_InetSetLocalIpSource([](char *buf, uint32_t size) -> uint32_t {
        return Zos_SNPrintf(buf, static_cast<int32_t>(size), "%s", "10.9.8.7") > 0 ? ZOK : ZFAILED;
    });
    EXPECT_EQ(Zos_InetGetLocalIp(ip, sizeof(ip)), ZOK);
    EXPECT_STREQ(ip, "10.9.8.7");
    Zpand_InetSetLocalIpSource([](char *, uint32_t) -> uint32_t { return ZFAILED; });
    ktest::ClearLogged();
    EXPECT_EQ(Zos_InetGetLocalIp(ip, sizeof(ip)), ZFAILED);
    EXPECT_STREQ(ip, "");
    EXPECT_TRUE(ktest::LoggedContains("InetGetLocalIp get failed."));
    // So does one that answers success with an empty text.
    Zpand_InetSetLocalIpSource([](char *buf, uint32_t) -> uint32_t {
        buf[0] = '\0';
        return ZOK;
    });
    EXPECT_EQ(Zos_InetGetLocalIp(ip, sizeof(ip)), ZFAILED);
    Zpand_InetSetLocalIpSource(nullptr);
    EXPECT_EQ(Zos_InetGetLocalIp(nullptr, 10), ZFAILED);
    EXPECT_EQ(Zpand_InetGetLocalIp(nullptr, 10) + Zpand_InetGetLocalIp(ip, 0), 2 * ZFAILED);
}

TEST_F(InetTest, ResolvesLocalhost) {
    ASSERT_EQ(Zos_LogOpen(Zos_LogGetZosId(), 0x10), ZOK);  // debug lines
    ST_ZOS_INET_ADDRS res;
    std::memset(&res, 0xAB, sizeof(res));
    ASSERT_EQ(Zpand_OsInetGetHostByName("localhost", &res), ZOK);
    ASSERT_GE(res.uiCount, 1u);
    ASSERT_LE(res.uiCount, ZOS_INET_ADDRS_MAX);
    bool loop = false;
    for (uint32_t i = 0; i < res.uiCount; ++i) {
        const ST_ZOS_INET_ADDR &a = res.astAddr[i];
        ASSERT_TRUE(a.wType == ZOS_INET_IPV4 || a.wType == ZOS_INET_IPV6);
        char text[ZOS_INET_IPV6_STR_SIZE];
        ASSERT_EQ(Zos_InetNtop(a.wType, &a.u, text, sizeof(text)), ZOK);
        loop = loop || std::string(text) == "127.0.0.1" || std::string(text) == "::1";
    }
    EXPECT_TRUE(loop);
    EXPECT_TRUE(ktest::LoggedContains("OsInetGetHostByName host with first <1> ip address <"));

    std::memset(&res, 0xAB, sizeof(res));
    EXPECT_EQ(Zpand_OsInetGetHostByName("no-such-host.invalid", &res), ZFAILED);
    EXPECT_EQ(res.uiCount, 0u);
    EXPECT_EQ(Zpand_OsInetGetHostByName(nullptr, &res), ZFAILED);
}

}  // namespace
