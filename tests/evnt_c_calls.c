/* Plain C callers of the variadic event functions: the arguments are
 * promoted exactly as a C compiler promotes them (char and short to int,
 * nothing for long long), which is what the library must read on every
 * word size. Each function returns 0 when everything read back matches. */
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "kestro_lite.h"

int KtestEvntTextFromC(void) {
    signed char sc = -100;
    unsigned char uc = 200;
    short s = -30000;
    unsigned short us = 65000;
    long l = LONG_MIN;
    unsigned long ul = ULONG_MAX;
    long long ll = LLONG_MIN;
    unsigned long long ull = ULLONG_MAX;
    size_t z = SIZE_MAX;
    long zd = -9;
    int anchor = 0;
    ZEVNT e = Zos_EvntCreateFmtS("%hhd %hhu %hd %hu %d %u %ld %lu %lld %llu %zu %zd %s %p %*s", sc,
                                 uc, s, us, -1, 4000000000u, l, ul, ll, ull, z, zd, "text",
                                 (void *)&anchor, "mem", 3u);
    signed char rsc = 0;
    unsigned char ruc = 0;
    short rs = 0;
    unsigned short rus = 0;
    int ri = 0;
    unsigned ru = 0;
    long rl = 0;
    unsigned long rul = 0;
    long long rll = 0;
    unsigned long long rull = 0;
    size_t rz = 0;
    long rzd = 0;
    const char *rstr = NULL;
    void *rp = NULL;
    void *rmem = NULL;
    uint32_t rlen = 0;
    int bad = 0;
    if (e == NULL) return 1;
    if (Zos_EvntReadS(e, "%hhd %hhu %hd %hu %d %u %ld %lu %lld %llu %zu %zd %s %p %*s", &rsc, &ruc,
                      &rs, &rus, &ri, &ru, &rl, &rul, &rll, &rull, &rz, &rzd, &rstr, &rp, &rmem,
                      &rlen) != ZOK) {
        bad = 2;
    } else if (rsc != sc || ruc != uc || rs != s || rus != us || ri != -1 || ru != 4000000000u ||
               rl != l || rul != ul || rll != ll || rull != ull || rz != z || rzd != zd) {
        bad = 3;
    } else if (rstr == NULL || strcmp(rstr, "text") != 0 || rp != (void *)&anchor || rlen != 3 ||
               rmem == NULL || memcmp(rmem, "mem", 3) != 0) {
        bad = 4;
    }
    Zos_EvntDelete(e);
    return bad;
}

int KtestEvntBinaryFromC(void) {
    unsigned short us = 65535;
    unsigned char uc = 255;
    int anchor = 0;
    ZEVNT e = Zos_EvntCreateFmt("\x01\x02\x03\x04\x05\x06\x07\x08\x0a", 1u, 0xFFFFFFFFu, ULONG_MAX,
                                us, uc, "abc", (void *)&anchor, "xyz", 2u, (uintptr_t)UINTPTR_MAX);
    uint32_t b = 0, u = 0, mlen = 0;
    unsigned long ul = 0;
    uint16_t rus = 0;
    uint8_t ruc = 0;
    const char *str = NULL;
    void *p = NULL, *mem = NULL;
    uintptr_t cookie = 0;
    int bad = 0;
    if (e == NULL) return 1;
    if (Zos_EvntRead(e, "\x01\x02\x03\x04\x05\x06\x07\x08\x0a", &b, &u, &ul, &rus, &ruc, &str, &p,
                     &mem, &mlen, &cookie) != ZOK) {
        bad = 2;
    } else if (b != 1 || u != 0xFFFFFFFFu || ul != ULONG_MAX || rus != us || ruc != uc ||
               cookie != UINTPTR_MAX) {
        bad = 3;
    } else if (str == NULL || strcmp(str, "abc") != 0 || p != (void *)&anchor || mlen != 2 ||
               memcmp(mem, "xy", 2) != 0) {
        bad = 4;
    }
    Zos_EvntDelete(e);
    return bad;
}
