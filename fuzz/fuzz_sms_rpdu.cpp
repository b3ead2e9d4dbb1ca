// PDU_3gppDecodeSms on raw bytes, on the input as hexadecimal text and on
// the input's own hexadecimal form, with output sizes taken from the input.
#include <cstring>
#include <string>
#include <vector>

#include "sms_pdu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const size_t hexSize = size > 0 ? 1u + static_cast<size_t>(data[0]) * 5u : 0u;
    std::vector<char> tpdu(hexSize);  // exactly as large as announced
    std::vector<char> from(PDU_ADDR_SIZE);
    int32_t type = 0, mti = 0, mr = 0, extra = 0;
    auto decode = [&](const void *in, uint32_t len) {
        (void)PDU_3gppDecodeSms(in, len, tpdu.empty() ? nullptr : tpdu.data(),
                                static_cast<uint32_t>(tpdu.size()), from.data(), 0, &type, &mti,
                                &mr, &extra);
    };
    if (size > 0) decode(data, static_cast<uint32_t>(size));
    const std::string text(reinterpret_cast<const char *>(data), size);
    decode(text.c_str(), 0);
    if (size <= PDU_BUF_SIZE) {
        std::string hex(2 * size + 1, '\0');
        PDU_pduBytesToHexString(data, static_cast<uint32_t>(size), hex.data());
        decode(hex.c_str(), 0);
    }
    return 0;
}
