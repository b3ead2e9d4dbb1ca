// SMS PDU codec: packing, semi-octets, the buffer's bounds, the encoders
// and the decoders against published PDUs.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string Hex(const uint8_t *p, size_t n) {
    std::string out(2 * n + 1, '\0');
    PDU_pduBytesToHexString(p, static_cast<uint32_t>(n), out.data());
    out.resize(2 * n);
    return out;
}
std::string Hex(const Bytes &b) {
    return Hex(b.data(), b.size());
}

Bytes FromHex(const std::string &hex) {
    Bytes out(hex.size() / 2);
    EXPECT_EQ(PDU_pduHexStringToBytes(hex.c_str(), out.data()), static_cast<int32_t>(out.size()));
    return out;
}

std::string Pack(const char *text, int32_t *unrep = nullptr) {
    uint8_t out[256];
    const int32_t n = ascii_to_pdu(text, out, sizeof(out), unrep);
    return Hex(out, static_cast<size_t>(n));
}

struct Delivered {
    int32_t rc = -2;
    std::string from, text;
    ST_ZOS_SYS_TIME time{};
    // The stamp as "year-month-day hour:minute:second zone-seconds".
    std::string Stamp() const {
        char s[64];
        std::snprintf(s, sizeof(s), "%d-%d-%d %d:%d:%d %d", time.wYear, time.ucMonth, time.ucDay,
                      time.ucHour, time.ucMinute, time.ucSecond, time.iTzOffset);
        return s;
    }
};

Delivered ReadDeliver(const std::string &hex, uint32_t textSize = 512) {
    Delivered d;
    char from[PDU_ADDR_SIZE];
    std::vector<char> text(textSize);
    d.rc = PDU_3gppGetSubmitPduMessageAndAddress(hex.c_str(), from, text.data(), textSize, &d.time);
    d.from = from;
    d.text = text.data();
    return d;
}

struct Rpdu {
    int32_t rc = -2, tpType = -1, mti = -1, mr = -1, extra = -1;
    std::string from, tpdu;
};

Rpdu DecodeRp(const Bytes &raw, uint32_t hexSize = 1100) {
    Rpdu r;
    char from[PDU_ADDR_SIZE];
    std::vector<char> tpdu(hexSize + 1, '\0');
    r.rc = PDU_3gppDecodeSms(raw.data(), static_cast<uint32_t>(raw.size()), tpdu.data(), hexSize,
                             from, 0, &r.tpType, &r.mti, &r.mr, &r.extra);
    r.from = from;
    r.tpdu = tpdu.data();
    return r;
}

// Published SMS-DELIVER PDUs (service centre field first).
const char kHelloHello[] =
    "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37";
const char kHowAreYou[] =
    "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
const char kUcs2[] = "07914306073011F0040B914316709807F2000880604290224080084E2D5174901A8BAF";
const char kFonic[] =
    "07919471060040340409D0C6A733390400009060920173018093CC74595C96838C4F6772085AD6DDE4320B444E9741"
    "D4B03C6D7EC3E9E9B71B9474D3CB727799DEA286CFE5B9991DA6CBC3F432E85E9793CBA0F09A9EB6A7CB72BA0B9474"
    "D3CB727799DE72D6E9FABAFB0CBAA7E56490BA4CD7D34170F91BE4ACD3F575F7794E0F9F4161F1B92C2F8FD1EE32DD"
    "054AA2E520E3D3991C82A8E5701B";

}  // namespace

class SmsPduTest : public ZosTest {};

TEST_F(SmsPduTest, SeptetPackingMatchesPublishedExamples) {
    EXPECT_EQ(Pack("hellohello"), "E8329BFD4697D9EC37");
    EXPECT_EQ(Pack("hello"), "E8329BFD06");
    EXPECT_EQ(Pack("Hello World!"), "C8329BFD065DDF72363904");
    EXPECT_EQ(Pack("123456789"), "31D98C56B3DD7039");
    EXPECT_EQ(Pack("abcd"), "61F1980C");
    // Extension characters take the escape and a second septet.
    EXPECT_EQ(Pack("[{abc}]~"), "1BDE0615168F37A98D6FD303");
    EXPECT_EQ(count_septets("[{abc}]~"), 13);
    EXPECT_EQ(count_septets("a{"), 3);
    EXPECT_EQ(count_septets(""), 0);
    EXPECT_EQ(count_septets(nullptr), 0);

    // Unpacking gives the text back, extension characters included.
    for (const char *t : {"hellohello", "Hello World!", "[{abc}]~", "a\\|^\f", "1234567"}) {
        const Bytes packed = FromHex(Pack(t));
        char out[64];
        const auto n = static_cast<uint32_t>(count_septets(t));
        EXPECT_EQ(pdu_to_ascii(packed.data(), n, out, 2 * n + 1), static_cast<int32_t>(strlen(t)));
        EXPECT_STREQ(out, t);
        EXPECT_EQ(pdu_to_ascii(packed.data(), n, out, 2 * n), 0) << "needs 2n+1";
    }
}

TEST_F(SmsPduTest, UnrepresentableAndSpecialCharacters) {
    int32_t unrep = 7;
    EXPECT_EQ(Pack("@\xA3$\xE9?", &unrep), "8080A0F003");  // @ pound $ e-acute ?
    EXPECT_EQ(unrep, 0) << "a real question mark is representable";
    Pack("a\xC3", &unrep);  // A-tilde is not in the alphabet
    EXPECT_EQ(unrep, 1);
    Pack("\xE4\xB8\xAD", &unrep);  // UTF-8 of a CJK character
    EXPECT_EQ(unrep, 1);
    uint8_t out[4];
    EXPECT_EQ(ascii_to_pdu("hello", out, 4, nullptr), 0) << "more codes than room";
    EXPECT_EQ(ascii_to_pdu("hell", out, 4, nullptr), 4);
    EXPECT_EQ(ascii_to_pdu("", out, 4, nullptr), 0);

    const uint8_t esc[] = {27, 101, 27, 40, 27};  // euro sign, "{", trailing escape
    char text[16];
    EXPECT_EQ(convert_7bit_to_ascii(esc, 2, text, 5), 1);
    EXPECT_STREQ(text, "?");
    EXPECT_EQ(convert_7bit_to_ascii(esc, 5, text, sizeof(text)), 3);
    EXPECT_STREQ(text, "?{?");
    std::memset(text, 'x', sizeof(text));
    EXPECT_EQ(convert_7bit_to_ascii(esc, 2, text, 4), 0);
    EXPECT_EQ(text[0], 'x') << "nothing written without room";
    const uint8_t greek[] = {16, 0, 127};
    EXPECT_EQ(convert_7bit_to_ascii(greek, 3, text, sizeof(text)), 3);
    EXPECT_STREQ(text, "?@\xE0");
}

TEST_F(SmsPduTest, MostSignificantBitFirstPackings) {
    uint8_t out[16];
    char text[32];
    int32_t flag = 0;
    EXPECT_EQ(ascii_to_7bitAsciiAnsi("ab", out, sizeof(out), &flag), 2);
    EXPECT_EQ(Hex(out, 2), "C388");
    EXPECT_EQ(ascii_to_7bitAsciiAnsi("hello world", out, sizeof(out), &flag), 10);
    EXPECT_EQ(ansi7bitAscii_to_ascii(out, 11, text), 11);
    EXPECT_STREQ(text, "hello world");
    EXPECT_EQ(ascii_to_7bitAsciiAnsi("hello world", out, 9, &flag), 0) << "no room";
    EXPECT_EQ(ascii_to_7bitAsciiAnsi(nullptr, out, sizeof(out), &flag) +
                  ascii_to_7bitAsciiAnsi("ab", nullptr, sizeof(out), &flag),
              0);
    EXPECT_EQ(ascii_to_7bitAsciiAnsi("h\xE9", out, sizeof(out), &flag), 0);
    EXPECT_EQ(flag, 1);
    // 0x7F is the last byte that packs, 0x80 the first that does not.
    EXPECT_EQ(ascii_to_7bitAsciiAnsi("\x7F", out, sizeof(out), &flag), 1);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(ascii_to_7bitAsciiAnsi("\x80", out, sizeof(out), &flag), 0);
    EXPECT_EQ(flag, 1);

    // The table-mapped form: "@" is code 0, "{" an escape pair.
    EXPECT_EQ(ascii_to_7bitAsciiPdu("a@{", out, sizeof(out), &flag), 4);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(Hex(out, 4), "C200DA80");
    EXPECT_EQ(pdu7BitAscii_to_ascii(out, 4, text, 9), 3);
    EXPECT_STREQ(text, "a@{");
    EXPECT_EQ(pdu7BitAscii_to_ascii(out, 4, text, 8), 0);
}

TEST_F(SmsPduTest, Ucs2ToUtf8) {
    const Bytes ucs2 = FromHex("4E2D5174901A8BAF0041");
    char out[32];
    EXPECT_EQ(pdu_utf16_to_utf8(ucs2.data(), 10, out, sizeof(out)), 13);
    EXPECT_STREQ(out,
                 "\xE4\xB8\xAD\xE5\x85\xB4\xE9\x80\x9A\xE8\xAE\xAF"
                 "A");
    EXPECT_EQ(pdu_utf16_to_utf8(ucs2.data(), 10, out, 7), 6) << "stops beyond size - 4";
    EXPECT_STREQ(out, "\xE4\xB8\xAD\xE5\x85\xB4");
    // The one-, two- and three-byte forms at their edges.
    const Bytes edges = FromHex("007F008007FF0800");
    EXPECT_EQ(pdu_utf16_to_utf8(edges.data(), 8, out, sizeof(out)), 8);
    EXPECT_STREQ(out, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80");
    EXPECT_EQ(pdu_utf16_to_utf8(ucs2.data(), 1, out, sizeof(out)), 0);
    EXPECT_EQ(pdu_utf16_to_utf8(ucs2.data(), 10, out, 3), 0);
    const Bytes stop = FromHex("0041FFFF0042");
    EXPECT_EQ(pdu_utf16_to_utf8(stop.data(), 6, out, sizeof(out)), -1);
    EXPECT_STREQ(out, "A");
}

TEST_F(SmsPduTest, SemiOctetsAndFillers) {
    const struct {
        const char *digits;
        const char *hex;
    } cases[] = {{"12345", "2143F5"}, {"1234", "2143"}, {"*", "FA"},  {"#", "FB"},
                 {",", "FC"},         {"N", "FD"},      {"1x", "F1"}, {"x", "FF"}};
    for (const auto &c : cases) {
        PduBuf buf;
        _PDU_pduInitEncode(&buf);
        const auto n = static_cast<uint32_t>(strlen(c.digits));
        EXPECT_EQ(_PDU_pduWriteStringToBCD(&buf, c.digits, n), static_cast<int32_t>(n));
        EXPECT_EQ(Hex(buf.pucStart, static_cast<size_t>(_PDU_pduGetLength(&buf))), c.hex)
            << c.digits;
    }
    // Room must exceed n / 2 bytes.
    PduBuf buf;
    _PDU_pduInitEncode(&buf);
    ASSERT_EQ(_PDU_pduAdvance(&buf, PDU_BUF_SIZE - 2), static_cast<int32_t>(PDU_BUF_SIZE - 2));
    EXPECT_EQ(_PDU_pduWriteStringToBCD(&buf, "1234", 4), -1);
    EXPECT_EQ(_PDU_pduWriteStringToBCD(&buf, "123", 3), 3);

    char out[16];
    const Bytes bcd = FromHex("2143F5");
    ASSERT_EQ(_PDU_pduInitDecode(&buf, bcd.data(), 3), 0);
    EXPECT_EQ(_PDU_pduReadBCDToString(&buf, 3, out), 3);
    EXPECT_STREQ(out, "12345");
    const Bytes early = FromHex("21F34365");  // a filler before the last octet ends it early
    ASSERT_EQ(_PDU_pduInitDecode(&buf, early.data(), 4), 0);
    EXPECT_EQ(_PDU_pduReadBCDToString(&buf, 4, out), 1);
    EXPECT_STREQ(out, "123");
    EXPECT_EQ(_PDU_pduReadBCDToString(&buf, 1, out), -1) << "nothing left";
    const Bytes lowBad = FromHex("214E65");  // a low nibble that is no digit ends them there
    ASSERT_EQ(_PDU_pduInitDecode(&buf, lowBad.data(), 3), 0);
    EXPECT_EQ(_PDU_pduReadBCDToString(&buf, 3, out), 1);
    EXPECT_STREQ(out, "12");

    // An address: its digits, after "+" for an international number. The
    // octets count as read even when a filler ends the digits at once.
    ASSERT_EQ(_PDU_pduInitDecode(&buf, bcd.data(), 3), 0);
    EXPECT_EQ(_PDU_pduDecodeAddress(&buf, 3, 0x91, out), 3);
    EXPECT_STREQ(out, "+12345");
    const Bytes filler = FromHex("FF21");
    ASSERT_EQ(_PDU_pduInitDecode(&buf, filler.data(), 2), 0);
    EXPECT_EQ(_PDU_pduDecodeAddress(&buf, 1, 0x91, out), 1);
    EXPECT_STREQ(out, "+");
    EXPECT_EQ(_PDU_pduDecodeAddress(&buf, 1, 0x81, out), 1);
    EXPECT_STREQ(out, "12");
    EXPECT_EQ(_PDU_pduDecodeAddress(&buf, 1, 0x91, out), -1) << "nothing left";
    EXPECT_STREQ(out, "");
    EXPECT_EQ(_PDU_pduDecodeAddress(&buf, 0, 0x81, nullptr), -1);

    EXPECT_EQ(_PDU_pduHexByteToBcd(29), 0x92);
    EXPECT_EQ(_PDU_pduHexByteToBcd(7), 0x70);
    EXPECT_EQ(_PDU_pduHexByteToBcd(100), 0);
    EXPECT_EQ(_PDU_pduCharToBCD('#'), 11);
    EXPECT_EQ(_PDU_pduCharToBCD('+'), -1);
    EXPECT_EQ(_PDU_pduBcdToChar(13), 'N');
    EXPECT_EQ(_PDU_pduBcdToChar(15), -1);
}

// The user data behind TP-UDL and the optional header: where it starts,
// what is left, and how long it is in septets (header septets taken off)
// or in bytes (all that is left).
TEST_F(SmsPduTest, UserDataAndHeaderLocated) {
    PduBuf buf;
    PduUserData ud;
    const auto decode = [&](const char *hex, int32_t udhi, int32_t septets) {
        const Bytes in = FromHex(hex);
        EXPECT_EQ(_PDU_pduInitDecode(&buf, in.data(), static_cast<uint32_t>(in.size())), 0);
        std::memset(&ud, 0xAA, sizeof ud);  // what an earlier use left
        return _PDU_pduDecodeUserDataAndHeader(&buf, udhi, septets, &ud);
    };
    const auto cleared = [&] {
        return ud.auiReserved[0] == 0 && ud.auiReserved[1] == 0 && ud.auiReserved[2] == 0;
    };
    // 10 septets behind a 5-byte header, which takes 7 septets with its length byte.
    EXPECT_EQ(decode("0A0500032A0201C8341A", 1, 1), 10);
    EXPECT_EQ(ud.pucData, buf.pucStart + 7);
    EXPECT_EQ(ud.uiRemaining, 3u);
    EXPECT_EQ(ud.uiDataLen, 3u);
    EXPECT_TRUE(cleared());
    EXPECT_EQ(decode("03414243", 0, 0), 4);  // 8-bit data: every byte left
    EXPECT_EQ(ud.pucData, buf.pucStart + 1);
    EXPECT_EQ(ud.uiDataLen, 3u);
    EXPECT_TRUE(cleared());
    // A header and nothing after it: no bytes left reads as all ones.
    EXPECT_EQ(decode("020100", 1, 1), 3);
    EXPECT_EQ(ud.uiRemaining, 0xFFFFFFFFu);
    EXPECT_EQ(ud.uiDataLen, 0u);
    // A header longer than the input fails, with the record cleared.
    EXPECT_EQ(decode("050900", 1, 1), -1);
    EXPECT_EQ(ud.pucData, nullptr);
    EXPECT_TRUE(cleared());
    EXPECT_EQ(_PDU_pduDecodeUserDataAndHeader(nullptr, 0, 0, &ud) +
                  _PDU_pduDecodeUserDataAndHeader(&buf, 0, 0, nullptr),
              -2);
    _PDU_pduInitUserData(nullptr);  // nothing to clear
}

TEST_F(SmsPduTest, BufferNeverPassesItsEnd) {
    PduBuf buf;
    std::vector<uint8_t> big(PDU_BUF_SIZE + 1, 0x11);
    EXPECT_EQ(_PDU_pduInitDecode(&buf, big.data(), PDU_BUF_SIZE + 1), -1);
    EXPECT_EQ(_PDU_pduInitDecode(&buf, big.data(), PDU_BUF_SIZE), 0);
    EXPECT_EQ(_PDU_pduRemaining(&buf), static_cast<int32_t>(PDU_BUF_SIZE));
    std::string hex(2 * PDU_BUF_SIZE + 1, 'a');
    EXPECT_EQ(_PDU_pduInitDecode(&buf, hex.c_str(), 0), -1) << "hex longer than the buffer";
    hex.resize(2 * PDU_BUF_SIZE);
    EXPECT_EQ(_PDU_pduInitDecode(&buf, hex.c_str(), 0), 0);
    EXPECT_EQ(buf.uiLength, PDU_BUF_SIZE);
    EXPECT_EQ(_PDU_pduInitDecode(&buf, "123", 0), 0);
    EXPECT_EQ(buf.uiLength, 1u) << "an odd last digit is dropped";
    EXPECT_EQ(_PDU_pduInitDecode(&buf, "", 0), 0);
    EXPECT_EQ(buf.uiLength, 0u);
    EXPECT_EQ(_PDU_pduInitDecode(&buf, "0g1Z", 0), 0) << "non-digits count as 0";
    EXPECT_EQ(Hex(buf.pucStart, buf.uiLength), "0010");

    uint8_t b = 0;
    EXPECT_EQ(_PDU_pduReadByte(&buf, &b), 1);
    EXPECT_EQ(_PDU_pduCheckLength(&buf, 1), 0);
    EXPECT_EQ(_PDU_pduCheckLength(&buf, 2), -1);
    EXPECT_EQ(_PDU_pduAdvance(&buf, 2), -1);
    EXPECT_EQ(_PDU_pduReadByte(&buf, &b), 1);
    EXPECT_EQ(b, 0x10);
    EXPECT_EQ(_PDU_pduReadByte(&buf, &b), -1);
    EXPECT_EQ(_PDU_pduRemaining(&buf), -1);

    _PDU_pduInitEncode(&buf);
    EXPECT_EQ(_PDU_pduWriteBytes(&buf, big.data(), PDU_BUF_SIZE + 1), -1);
    EXPECT_EQ(_PDU_pduWriteBytes(&buf, big.data(), PDU_BUF_SIZE),
              static_cast<int32_t>(PDU_BUF_SIZE));
    EXPECT_EQ(_PDU_pduWriteByte(&buf, 1), -1);
    EXPECT_EQ(_PDU_pduGetLength(&buf), static_cast<int32_t>(PDU_BUF_SIZE));
    EXPECT_EQ(_PDU_pduInitDecode(nullptr, "00", 0), -1);
    EXPECT_EQ(_PDU_pduReadByte(nullptr, &b), -1);
}

TEST_F(SmsPduTest, SubmitAndRelayEncoders) {
    char hex[256];
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "+123", "hello", 0, hex, sizeof(hex), 0), 30);
    EXPECT_STREQ(hex, "1107039121F30000AA05E8329BFD06");
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "tel:+123", "hello", 0, hex, sizeof(hex), 1), 30);
    EXPECT_STREQ(hex, "3107039121F30000AA05E8329BFD06");
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(0, "5551234", "", 0, hex, sizeof(hex), 0), 24);
    EXPECT_STREQ(hex, "11000781551532F40000AA00");
    // An address of no digits is its length 0 and its type alone.
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "+", "", 0, hex, sizeof(hex), 0), 16);
    EXPECT_STREQ(hex, "110700910000AA00");
    // A character outside the alphabet sends the whole text as UCS-2.
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(1, "10086",
                                       "\xE4\xB8\xAD"
                                       "A",
                                       0, hex, sizeof(hex), 0),
              30);
    EXPECT_STREQ(hex, "110105810180F60008AA044E2D0041");
    uint8_t raw[64];
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "+123", "hello", 1, raw, 30, 0), 15);
    EXPECT_EQ(Hex(raw, 15), "1107039121F30000AA05E8329BFD06");
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "+123", "hello", 1, raw, 29, 0), -1);
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "+123", "hello", 0, hex, 30, 0), -1) << "no NUL room";
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "+123", "hello", 0, hex, 31, 0), 30) << "just enough";
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, nullptr, "hello", 0, hex, sizeof(hex), 0), -1);
    const std::string longText(300, 'a');
    EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "1", longText.c_str(), 1, raw, sizeof(raw), 0), -1);
    // A UCS-2 text longer than the buffer's half, or of more than 255
    // bytes, is refused whatever room the caller gives.
    std::vector<char> wide(4096);
    for (const size_t n : {300u, 127u}) {
        const std::string text = "\xE4\xB8\xAD" + std::string(n, 'a');
        EXPECT_EQ(PDU_3gppEncodeSubmitTPDU(7, "1", text.c_str(), 0, wide.data(), 4096, 0), -1) << n;
    }

    const Bytes tpdu = FromHex("1107039121F30000AA05E8329BFD06");
    uint8_t rp[64];
    EXPECT_EQ(PDU_3gppEncodeSubmit(tpdu.data(), 15, "+8613800", 9, rp, sizeof(rp)), 25);
    EXPECT_EQ(Hex(rp, 25), "0009000591683108F00F" + Hex(tpdu));
    EXPECT_EQ(PDU_3gppEncodeSubmit(tpdu.data(), 15, "+86x", 9, rp, sizeof(rp)), 20);
    EXPECT_EQ(Hex(rp, 5), "000900000F") << "an invalid centre is left out";
    EXPECT_EQ(PDU_3gppEncodeSubmit(tpdu.data(), 15, nullptr, 9, rp, 39), -1);
    // RP-User-data's length is one byte: 255 is the longest TPDU.
    const Bytes longest(256, 0x11);
    Bytes big(1024);
    EXPECT_EQ(PDU_3gppEncodeSubmit(longest.data(), 255, nullptr, 9, big.data(), 1024), 260);
    EXPECT_EQ(big[4], 0xFF);
    EXPECT_EQ(PDU_3gppEncodeSubmit(longest.data(), 256, nullptr, 9, big.data(), 1024), -1);

    EXPECT_EQ(PDU_3gppEncodeDeliverReport(0, 5, 0, rp, sizeof(rp)), 6);
    EXPECT_EQ(Hex(rp, 6), "020541020000");
    // RP-ERROR: the cause element, then the TPDU length with no identifier.
    EXPECT_EQ(PDU_3gppEncodeDeliverReport(0, 5, 0x6F, rp, sizeof(rp)), 8);
    EXPECT_EQ(Hex(rp, 8), "040542016F020000");
    EXPECT_EQ(PDU_3gppEncodeDeliverReport(0, 5, 0x6F, rp, 15), -1);
    EXPECT_EQ(PDU_3gppEncodeDeliverReport(0, 5, 0, rp, 11), -1);
    EXPECT_EQ(PDU_3gppEncodeSmma(3, 0, rp, 4), 2);
    EXPECT_EQ(Hex(rp, 2), "0603");
    EXPECT_EQ(PDU_3gppEncodeSmma(3, 0, rp, 3), -1);

    int32_t plus = 0;
    EXPECT_EQ(isValidSmscRPDAddress("+", &plus), 0);
    EXPECT_EQ(isValidSmscRPDAddress("", &plus), 0);
    EXPECT_EQ(isValidSmscRPDAddress("12a", &plus), 0);
    EXPECT_EQ(isValidSmscRPDAddress("1+2", &plus), 0);
    EXPECT_EQ(plus, 0);
    EXPECT_EQ(isValidSmscRPDAddress("0123", &plus), 1);
    EXPECT_EQ(plus, 0);
    EXPECT_EQ(isValidSmscRPDAddress("+12", &plus), 1);
    EXPECT_EQ(plus, 1);
}

namespace {

uint32_t FixedEpoch(ST_ZOS_EPOCH_TIME *t) {
    t->llSec = 1718701507;  // 2024-06-18 09:05:07 UTC
    t->uiNsec = 0;
    return ZOK;
}

uint32_t UtcLocal(const int64_t *t, ST_ZOS_TM *tm) {
    *tm = ST_ZOS_TM{};
    if (*t != 1718701507) return ZFAILED;
    tm->iYear = 124;
    tm->iMon = 5;
    tm->iMday = 18;
    tm->iHour = 9;
    tm->iMin = 5;
    tm->iSec = 7;
    tm->iWday = 2;
    return ZOK;
}

}  // namespace

TEST_F(SmsPduTest, DeliverStampsTheClockWithItsQuirks) {
    ZOS_OSDEP_FUNC epoch = ktest::Slot(6), local = ktest::Slot(10);
    ktest::Slot(6) = reinterpret_cast<ZOS_OSDEP_FUNC>(FixedEpoch);
    ktest::Slot(10) = reinterpret_cast<ZOS_OSDEP_FUNC>(UtcLocal);
    char hex[256];
    const int32_t n = PDU_3gppEncodeDeliverySms("+8613912345678", "hello", hex, sizeof(hex), 0);
    const int32_t m = PDU_3gppEncodeDeliverySms("10086", "\xE4\xB8\xAD", hex + 128, 128, 1);
    ktest::Slot(6) = nullptr;
    const int32_t none = PDU_3gppEncodeDeliverySms("1", "a", hex + 200, 56, 2);
    ktest::Slot(6) = epoch;
    ktest::Slot(10) = local;

    // Year octet 0 (2024 - 100 is not below 100), month 6 written as 7.
    EXPECT_EQ(n, 64);
    EXPECT_EQ(std::string(hex, 64),
              "06810000000000040D91683119325476F800000070819050700A05E8329BFD06");
    // UCS-2 text under the indication's coding scheme.
    EXPECT_EQ(m, 50);
    EXPECT_STREQ(hex + 128, "068100000000000405810180F600C80070819050700A024E2D");
    // Without a clock: seven zero octets.
    EXPECT_EQ(none, 44);
    EXPECT_STREQ(hex + 200, "06810000000000040181F100C0000000000000000161");
    EXPECT_EQ(PDU_3gppEncodeDeliverySms("1", "a", hex, 44, 0), -1);

    // It reads back with the stamp as written.
    const Delivered d = ReadDeliver(std::string(hex, 64));
    EXPECT_EQ(d.rc, 0);
    EXPECT_EQ(d.from, "+8613912345678");
    EXPECT_EQ(d.text, "hello");
    EXPECT_EQ(d.Stamp(), "2000-7-18 9:5:7 90000") << "0x0A reads as 100 quarter hours";
}

TEST_F(SmsPduTest, PublishedDeliversDecode) {
    Delivered d = ReadDeliver(kHelloHello);
    EXPECT_EQ(d.rc, 0);
    EXPECT_EQ(d.from, "27838890001");
    EXPECT_EQ(d.text, "hellohello");
    EXPECT_EQ(d.Stamp(), "2099-3-29 15:16:59 7200") << "two digits always land in 20xx";

    d = ReadDeliver(kHowAreYou);
    EXPECT_EQ(d.rc, 0);
    EXPECT_EQ(d.from, "+31641600986");
    EXPECT_EQ(d.text, "How are you?");
    EXPECT_EQ(d.time.wYear, 2002);

    d = ReadDeliver(kUcs2);
    EXPECT_EQ(d.rc, 0);
    EXPECT_EQ(d.from, "+34610789702");
    EXPECT_EQ(d.text, "\xE4\xB8\xAD\xE5\x85\xB4\xE9\x80\x9A\xE8\xAE\xAF");
    EXPECT_EQ(d.Stamp().substr(0, 9), "2008-6-24");

    d = ReadDeliver(kFonic);
    EXPECT_EQ(d.rc, 0);
    EXPECT_EQ(d.from, "FONIC");
    EXPECT_EQ(d.text,
              "Lieber FONIC Kunde, die Tarifoption Internet-Tagesflatrate wurde aktiviert. "
              "Internet-Nutzung wird jetzt pro Nutzungstag abgerechnet. Ihr FONIC Team");
    d = ReadDeliver(kFonic, 7);
    EXPECT_EQ(d.text, "Lieber") << "cut to the text size";
}

TEST_F(SmsPduTest, DeliverDecoderRefusesBrokenInput) {
    // Every truncation of a valid PDU fails cleanly.
    const std::string full = kHelloHello;
    for (size_t len = 0; len <= full.size() - 18; len += 2) {
        EXPECT_EQ(ReadDeliver(full.substr(0, len)).rc, -1) << len;
    }
    // Text past TP-UDL and a UDL longer than the data: only what is there.
    EXPECT_EQ(ReadDeliver(full.substr(0, full.size() - 4)).text, "hellohel");
    // An originator type without bit 7, and one longer than any number.
    EXPECT_EQ(ReadDeliver("00040B487238880900F100009930925161958001E8").rc, -1);
    EXPECT_EQ(ReadDeliver("000465C8" + std::string(80, '1')).rc, -1);
    // The coding scheme picks the decoder; 8-bit and compressed data are
    // refused; UCS-2 takes every byte left (E832 9BFD, the odd 06 dropped).
    const char *ucs2 = "\xEE\xA0\xB2\xE9\xAF\xBD";
    const struct {
        const char *dcs, *text;
    } schemes[] = {{"00", "hello"}, {"F0", "hello"}, {"C8", "hello"}, {"D0", "hello"},
                   {"08", ucs2},    {"E0", ucs2},    {"F4", nullptr}, {"04", nullptr},
                   {"0C", nullptr}, {"20", nullptr}, {"80", nullptr}};
    for (const auto &c : schemes) {
        const std::string head = "00040381214300";
        const Delivered r = ReadDeliver(head + c.dcs + "9930925161958005E8329BFD06");
        EXPECT_EQ(r.rc, c.text != nullptr ? 0 : -1) << c.dcs;
        if (c.text != nullptr) {
            EXPECT_EQ(r.text, c.text) << c.dcs;
        }
    }
    // A header is skipped before the septets.
    const Delivered h = ReadDeliver("0044038121430000993092516195800B050003170301E8329B0D");
    EXPECT_EQ(h.rc, 0);
    EXPECT_EQ(h.text, "hell") << "septets counted from the byte after the header";
    EXPECT_EQ(ReadDeliver("004403812143000099309251619580090A0003").rc, -1);
    // Validity period present when bits 3-2 are both set.
    EXPECT_EQ(ReadDeliver("000C038121430000009930925161958005E8329BFD06").text, "hello");
    EXPECT_EQ(ReadDeliver(std::string(2 * PDU_BUF_SIZE + 2, '0')).rc, -1);
}

TEST_F(SmsPduTest, RelayDecoder) {
    // RP-DATA from the network: RP-OA "+8613800200500", no RP-DA, the TPDU
    // of the first published example.
    const std::string tpduHex = std::string(kHelloHello).substr(16);
    const Bytes tpdu = FromHex(tpduHex);
    Bytes rp = FromHex("012A0891683108200005F000");
    rp.push_back(static_cast<uint8_t>(tpdu.size()));
    rp.insert(rp.end(), tpdu.begin(), tpdu.end());
    Rpdu r = DecodeRp(rp);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.mti, 1);
    EXPECT_EQ(r.mr, 0x2A);
    EXPECT_EQ(r.tpType, PDU_TP_DELIVER);
    EXPECT_EQ(r.from, "+8613800200500");
    EXPECT_EQ(r.tpdu, "00" + tpduHex);
    EXPECT_EQ(ReadDeliver(r.tpdu).text, "hellohello") << "the output feeds the deliver reader";

    // The same as hexadecimal text.
    char from[PDU_ADDR_SIZE], out[200];
    int32_t type = -1, mti = -1, mr = -1;
    const std::string rpHex = Hex(rp);
    EXPECT_EQ(
        PDU_3gppDecodeSms(rpHex.c_str(), 0, out, sizeof(out), from, 0, &type, &mti, &mr, nullptr),
        0);
    EXPECT_EQ(out, "00" + tpduHex);

    EXPECT_EQ(DecodeRp(rp, static_cast<uint32_t>(2 * tpdu.size() + 2)).rc, -1) << "no room";
    for (size_t len = 1; len < 14; ++len) {
        EXPECT_EQ(DecodeRp(Bytes(rp.begin(), rp.begin() + static_cast<long>(len))).rc, -1) << len;
    }
    Bytes shortUd = rp;
    shortUd.pop_back();
    EXPECT_EQ(DecodeRp(shortUd).rc, -1) << "RP-User-data longer than the bytes";
    // An undecodable RP-OA is skipped with a warning.
    Bytes badOa = rp;
    badOa[3] = 0x11;
    r = DecodeRp(badOa);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.from, "");
    EXPECT_EQ(DecodeRp(FromHex("000100000003")).rc, -1) << "reserved TP-MTI";
    EXPECT_EQ(DecodeRp(FromHex("000100000102")).tpType, PDU_TP_STATUS_REPORT);
    EXPECT_EQ(DecodeRp(FromHex("000100000101")).tpType, PDU_TP_REPORT);

    // RP-ACK with and without user data.
    r = DecodeRp(FromHex("030741020000"));
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.mr, 7);
    EXPECT_EQ(r.tpType, PDU_TP_DELIVER);
    EXPECT_EQ(DecodeRp(FromHex("0207")).rc, 0);
    EXPECT_EQ(DecodeRp(FromHex("020700")).rc, 0);
    EXPECT_EQ(DecodeRp(FromHex("020755")).rc, -1);
    EXPECT_EQ(DecodeRp(FromHex("020741")).rc, -1);
    // RP-ERROR: cause length and value; our own layout reads 0x01 as the cause.
    r = DecodeRp(FromHex("0509016F"));
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.extra, 0x6F);
    EXPECT_EQ(r.tpType, PDU_TP_REPORT);
    uint8_t own[18];
    ASSERT_EQ(PDU_3gppEncodeDeliverReport(0, 5, 0x6F, own, sizeof(own)), 8);
    EXPECT_EQ(DecodeRp(Bytes(own, own + 8)).extra, 0x01);
    EXPECT_EQ(DecodeRp(FromHex("0509")).rc, -1);
    // Other message types are accepted and ignored.
    r = DecodeRp(FromHex("06"));
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.mti, 6);

    EXPECT_EQ(DecodeRp(Bytes{}).rc, -1);
    EXPECT_EQ(
        PDU_3gppDecodeSms(rp.data(), 10, out, sizeof(out), nullptr, 0, &type, &mti, &mr, nullptr),
        -1);
    EXPECT_EQ(
        PDU_3gppDecodeSms(rp.data(), 10, out, sizeof(out), from, 0, &type, &mti, nullptr, nullptr),
        -1);
    EXPECT_EQ(PDU_3gppDecodeSms(rp.data(), PDU_BUF_SIZE + 1, out, sizeof(out), from, 0, &type, &mti,
                                &mr, nullptr),
              -1);
}
