// DES data format: the first 8 bytes are the key, the rest is fed to
// Zdes_DecData as cipher text (any result must fit the rules), and is
// encrypted and decrypted back (the length byte keeps len % 256 bytes).
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zdes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size <= 8 || size > 1u << 16) return 0;
    const uint8_t *key = data;
    const uint8_t *body = data + 8;
    const auto len = static_cast<uint32_t>(size - 8);

    std::vector<uint8_t> plain(len);
    uint32_t plainLen = len;
    if (Zdes_DecData(key, body, len, plain.data(), &plainLen) == 0) {
        if (len % 8 != 0 || plainLen >= len) std::abort();
    }

    std::vector<uint8_t> cipher(len + 8);
    uint32_t cipherLen = static_cast<uint32_t>(cipher.size());
    if (Zdes_EncData(key, body, len, cipher.data(), &cipherLen) != 0) std::abort();
    if (cipherLen != (len + 8) / 8 * 8) std::abort();
    std::vector<uint8_t> back(len);
    uint32_t backLen = len;
    if (Zdes_DecData(key, cipher.data(), cipherLen, back.data(), &backLen) != 0) std::abort();
    if (backLen != len % 256 || std::memcmp(back.data(), body, backLen) != 0) std::abort();
    return 0;
}
