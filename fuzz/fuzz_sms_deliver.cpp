// PDU_3gppGetSubmitPduMessageAndAddress on the input as hexadecimal text
// and on its hexadecimal form, and the user-data locator on the raw bytes.
#include <string>
#include <vector>

#include "sms_pdu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const uint32_t textSize = size > 0 ? 1u + data[0] : 1u;
    std::vector<char> text(textSize);
    std::vector<char> from(PDU_ADDR_SIZE);
    ST_ZOS_SYS_TIME stamp{};
    const std::string asText(reinterpret_cast<const char *>(data), size);
    (void)PDU_3gppGetSubmitPduMessageAndAddress(asText.c_str(), from.data(), text.data(), textSize,
                                                &stamp);
    if (size <= PDU_BUF_SIZE) {
        std::string hex(2 * size + 1, '\0');
        PDU_pduBytesToHexString(data, static_cast<uint32_t>(size), hex.data());
        (void)PDU_3gppGetSubmitPduMessageAndAddress(hex.c_str(), from.data(), text.data(), textSize,
                                                    nullptr);
    }
    if (size > 1 && size <= PDU_BUF_SIZE) {
        PduBuf buf;
        PduUserData ud;
        if (_PDU_pduInitDecode(&buf, data + 1, static_cast<uint32_t>(size - 1)) == 0 &&
            _PDU_pduDecodeUserDataAndHeader(&buf, data[0] & 1, data[0] & 2, &ud) >= 0 &&
            ud.uiRemaining != 0xFFFFFFFFu) {
            // The located data must lie inside the buffer.
            if (ud.pucData < buf.pucStart ||
                ud.pucData + ud.uiRemaining > buf.pucStart + buf.uiLength) {
                __builtin_trap();
            }
        }
    }
    return 0;
}
