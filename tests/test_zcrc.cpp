// FCS-16 and CRC-32: catalogue check values and residues, the RFC 1662
// table, and the fast CRC-32 paths against a bit-by-bit reference.
#include <gtest/gtest.h>

#include <vector>

#include "kestro_lite.h"

namespace {

const uint8_t kCheck[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

uint32_t BitwiseCrc32(const uint8_t *p, size_t n) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) {
        crc ^= p[i];
        for (int b = 0; b < 8; ++b) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
    }
    return ~crc;
}

TEST(Zcrc, CheckValuesAndResidues) {
    EXPECT_EQ(Zcrc_Calc32(kCheck, 9), 0xCBF43926u);
    const uint16_t fcs = static_cast<uint16_t>(~Zcrc_Fcs16(0xFFFF, kCheck, 9));
    EXPECT_EQ(fcs, 0x906E);
    // Data followed by its complemented FCS, low byte first, leaves the
    // good-FCS residue; the same holds for the CRC-32 (complemented).
    uint8_t frame[13];
    std::copy(kCheck, kCheck + 9, frame);
    frame[9] = static_cast<uint8_t>(fcs);
    frame[10] = static_cast<uint8_t>(fcs >> 8);
    EXPECT_EQ(Zcrc_Fcs16(0xFFFF, frame, 11), 0xF0B8);
    const uint32_t crc = Zcrc_Calc32(kCheck, 9);
    for (int i = 0; i < 4; ++i) frame[9 + i] = static_cast<uint8_t>(crc >> (8 * i));
    EXPECT_EQ(~Zcrc_Calc32(frame, 13), 0xDEBB20E3u);
}

TEST(Zcrc, FcsTableAndEmptyInput) {
    EXPECT_EQ(m_awFcsTbl[0], 0x0000);
    EXPECT_EQ(m_awFcsTbl[1], 0x1189);
    EXPECT_EQ(m_awFcsTbl[7], 0x74BF);
    EXPECT_EQ(m_awFcsTbl[0xF0], 0xF78F);
    EXPECT_EQ(m_awFcsTbl[0xF8], 0x7BC7);
    EXPECT_EQ(m_awFcsTbl[0xFF], 0x0F78);
    // Running the FCS over a single byte from 0 is the table entry.
    for (uint32_t i = 0; i < 256; ++i) {
        const uint8_t b = static_cast<uint8_t>(i);
        ASSERT_EQ(Zcrc_Fcs16(0, &b, 1), m_awFcsTbl[i]) << i;
    }
    EXPECT_EQ(Zcrc_Fcs16(0x1234, kCheck, 0), 0x1234);
    EXPECT_EQ(Zcrc_Fcs16(0x1234, nullptr, 9), 0x1234);
    EXPECT_EQ(Zcrc_Calc32(kCheck, 0), 0u);
    EXPECT_EQ(Zcrc_Calc32(nullptr, 9), 0u);
    // Split updates chain.
    EXPECT_EQ(Zcrc_Fcs16(Zcrc_Fcs16(0xFFFF, kCheck, 4), kCheck + 4, 5),
              Zcrc_Fcs16(0xFFFF, kCheck, 9));
}

TEST(Zcrc, Crc32MatchesBitwiseAtEveryLengthAndAlignment) {
    std::vector<uint8_t> buf(70000 + 16);
    uint32_t x = 12345;
    for (uint8_t &b : buf) {
        x = x * 1103515245u + 12345u;
        b = static_cast<uint8_t>(x >> 16);
    }
    for (uint32_t off = 0; off < 8; ++off) {
        for (uint32_t len = 0; len <= 300; ++len) {
            ASSERT_EQ(Zcrc_Calc32(buf.data() + off, len),
                      len == 0 ? 0u : BitwiseCrc32(buf.data() + off, len))
                << "offset " << off << " length " << len;
        }
    }
    for (uint32_t len : {1024u, 4096u + 5u, 65536u, 70000u}) {
        EXPECT_EQ(Zcrc_Calc32(buf.data() + 3, len), BitwiseCrc32(buf.data() + 3, len)) << len;
    }
    // All-ones and all-zero blocks (carry-heavy inputs for the folding).
    std::vector<uint8_t> ones(4096, 0xFF), zeros(4096, 0);
    EXPECT_EQ(Zcrc_Calc32(ones.data(), 4096), BitwiseCrc32(ones.data(), 4096));
    EXPECT_EQ(Zcrc_Calc32(zeros.data(), 4096), BitwiseCrc32(zeros.data(), 4096));
}

}  // namespace
