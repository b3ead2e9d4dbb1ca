// IPv6 text: any text is read or refused exactly as the C library's reader
// does, to the same address; the text written for an address reads back to
// it; the first 16 input bytes as an address make the same round trip.
#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "zos_inet.h"

namespace {

void RoundTrip(const uint8_t *addr) {
    char text[ZOS_INET_IPV6_STR_SIZE];
    if (Zos_InetNtop6(addr, text, sizeof(text)) != ZOK) std::abort();
    uint8_t back[16];
    if (Zos_InetPton6(text, back) != ZOK) std::abort();
    if (std::memcmp(back, addr, 16) != 0) std::abort();
    if (inet_pton(AF_INET6, text, back) != 1 || std::memcmp(back, addr, 16) != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 256) return 0;
    const std::string text(reinterpret_cast<const char *>(data), size);
    uint8_t mine[16], theirs[16];
    std::memset(mine, 0xAA, sizeof(mine));
    const bool okMine = Zos_InetPton6(text.c_str(), mine) == ZOK;
    const bool okLib = inet_pton(AF_INET6, text.c_str(), theirs) == 1;
    if (okMine != okLib) std::abort();
    if (okMine) {
        if (std::memcmp(mine, theirs, 16) != 0) std::abort();
        RoundTrip(mine);
    } else if (mine[0] != 0xAA) {
        std::abort();  // a refused text leaves the output alone
    }
    if (size >= 16) RoundTrip(data);
    return 0;
}
