// The ABNF whole-string converters and percent-encoding on any bytes:
// numbers against strtoull, IPv4 and IPv6 against inet_pton, and the
// percent-encoding round trip with the sizes the size functions give.
#include <arpa/inet.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_layer.h"
#include "kestro_lite.h"

namespace {

ST_ABNF_CHRSET *g_set = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    kfuzz::StartQuietLayer();
    g_set = Abnf_ChrsetCreate(1);
    Abnf_ChrsetSetStr(g_set, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.~",
                      1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 4096) return 0;
    const uint32_t len = uint32_t(size);
    std::unique_ptr<char[]> text(new char[len]);
    std::memcpy(text.get(), data, len);
    const std::string z(text.get(), len);  // NUL-terminated for the models

    uint32_t v = 0;
    const bool digits = z.find_first_not_of("0123456789") == std::string::npos;
    if ((Abnf_NStr2UiDigit(text.get(), len, &v) == ZOK) != digits) std::abort();
    if (digits && len <= 19 && v != uint32_t(std::strtoull(z.c_str(), nullptr, 10))) std::abort();
    const bool hex = len <= 8 && z.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if ((Abnf_NStr2XUiDigit(text.get(), len, &v) == ZOK) != hex) std::abort();
    if (hex && v != uint32_t(std::strtoull(z.c_str(), nullptr, 16))) std::abort();
    uint16_t us;
    uint8_t uc;
    Abnf_NStr2UsDigit(text.get(), len, &us);
    Abnf_NStr2UcDigit(text.get(), len, &uc);

    in_addr a4{};
    if (inet_pton(AF_INET, z.c_str(), &a4) == 1 && z.size() == std::strlen(z.c_str())) {
        if (Abnf_NStr2Ipv4(text.get(), len, &v) != ZOK || v != a4.s_addr) std::abort();
    }
    in6_addr a6{};
    uint8_t got[16];
    const bool p6 = z.size() == std::strlen(z.c_str()) && inet_pton(AF_INET6, z.c_str(), &a6) == 1;
    const bool m6 = Abnf_NStr2Ipv6(text.get(), len, got) == ZOK;
    if (p6 != m6 || (p6 && std::memcmp(got, &a6, 16) != 0)) std::abort();
    if (Abnf_NStrIsIpv6(text.get(), len) != (m6 ? 1u : 0u)) std::abort();
    Abnf_NStrIsIpv4(text.get(), len);

    // Percent-decoding of the input as it is, into exactly its size.
    uint32_t need = 0;
    Abnf_SizeP2N(text.get(), len, &need);
    std::unique_ptr<char[]> dec(new char[need ? need : 1]);
    uint32_t n = need ? need : 1;
    if (Abnf_StrP2N(text.get(), len, dec.get(), &n) != ZOK || (need && n != need)) std::abort();
    // Encoding and back.
    Abnf_SizeN2P(text.get(), len, g_set, 1, &need);
    std::unique_ptr<char[]> enc(new char[need]);
    n = need;
    if (Abnf_StrN2P(text.get(), len, g_set, 1, enc.get(), &n) != ZOK || n != need) std::abort();
    std::unique_ptr<char[]> back(new char[len]);
    uint32_t bn = len;
    if (Abnf_StrP2N(enc.get(), n, back.get(), &bn) != ZOK || bn != len ||
        std::memcmp(back.get(), text.get(), len) != 0) {
        std::abort();
    }
    return 0;
}
