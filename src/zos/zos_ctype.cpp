// The layer's character-class table, built at compile time.
#include "zos_sys.h"

namespace {

constexpr uint8_t kUpper = 0x01, kLower = 0x02, kDigit = 0x04, kSpace = 0x08, kPunct = 0x10,
                  kCntrl = 0x20, kBlank = 0x40, kHex = 0x80;

constexpr uint8_t ClassOf(int c) {
    if (c >= 'A' && c <= 'Z') return kUpper | ((c <= 'F') ? kHex : 0);
    if (c >= 'a' && c <= 'z') return kLower | ((c <= 'f') ? kHex : 0);
    if (c >= '0' && c <= '9') return kDigit | kHex;
    if (c == ' ') return kSpace | kBlank;
    if (c >= '\t' && c <= '\r') return kSpace | kCntrl;
    if (c < 0x20 || c == 0x7F) return kCntrl;
    if (c < 0x7F) return kPunct;
    return 0;  // bytes above 0x7F have no class
}

struct Table {
    uint8_t v[257];
};

constexpr Table Build() {
    Table t{};
    t.v[0] = 0;  // end of input
    for (int c = 0; c < 256; ++c) t.v[c + 1] = ClassOf(c);
    return t;
}

constexpr Table kTable = Build();
static_assert(kTable.v['A' + 1] == (kUpper | kHex));
static_assert((kTable.v[' ' + 1] & 0x57) != 0 && (kTable.v['\t' + 1] & 0x57) == 0);

}  // namespace

extern "C" {

const uint8_t g_aucZosCtype[257] = {
#define ZOS_CT8(i)                                                                   \
    kTable.v[i], kTable.v[i + 1], kTable.v[i + 2], kTable.v[i + 3], kTable.v[i + 4], \
        kTable.v[i + 5], kTable.v[i + 6], kTable.v[i + 7]
#define ZOS_CT64(i)                                                                \
    ZOS_CT8(i), ZOS_CT8(i + 8), ZOS_CT8(i + 16), ZOS_CT8(i + 24), ZOS_CT8(i + 32), \
        ZOS_CT8(i + 40), ZOS_CT8(i + 48), ZOS_CT8(i + 56)
    ZOS_CT64(0), ZOS_CT64(64), ZOS_CT64(128), ZOS_CT64(192), kTable.v[256]
#undef ZOS_CT64
#undef ZOS_CT8
};

KESTRO_API const uint8_t *Zos_GetZosCType(void) {
    return g_aucZosCtype;
}

}  // extern "C"
