// The 7-bit unpackers and converters on arbitrary bytes, with outputs of
// exactly the announced size; and packing followed by unpacking, which must
// give a representable text back unchanged.
#include <cstring>
#include <string>
#include <vector>

#include "sms_pdu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 4096) return 0;
    const auto n = static_cast<uint32_t>(size);
    const uint32_t septets = n * 8u / 7u;
    std::vector<char> out(2u * septets + 1u);
    (void)pdu_to_ascii(data, septets, out.data(), static_cast<uint32_t>(out.size()));
    (void)pdu7BitAscii_to_ascii(data, septets, out.data(), static_cast<uint32_t>(out.size()));
    (void)convert_7bit_to_ascii(data, n, out.data(), static_cast<uint32_t>(out.size()));
    (void)ansi7bitAscii_to_ascii(data, septets, out.data());
    std::vector<char> utf8(1u + data[0]);
    (void)pdu_utf16_to_utf8(data, n, utf8.data(), static_cast<uint32_t>(utf8.size()));

    const std::string text(reinterpret_cast<const char *>(data), size);
    std::vector<uint8_t> packed(1u + data[0] * 2u);
    const auto room = static_cast<uint32_t>(packed.size());
    int32_t unrep = 0, failed = 0;
    (void)ascii_to_7bitAsciiPdu(text.c_str(), packed.data(), room, &unrep);
    (void)ascii_to_7bitAsciiAnsi(text.c_str(), packed.data(), room, &failed);
    const int32_t bytes = ascii_to_pdu(text.c_str(), packed.data(), room, &unrep);
    const int32_t codes = count_septets(text.c_str());
    if (bytes > 0 && unrep == 0 && std::strchr(text.c_str(), '`') == nullptr) {
        std::vector<char> back(2u * static_cast<uint32_t>(codes) + 1u);
        const int32_t len = pdu_to_ascii(packed.data(), static_cast<uint32_t>(codes), back.data(),
                                         static_cast<uint32_t>(back.size()));
        if (len < 0 || std::strcmp(back.data(), text.c_str()) != 0) __builtin_trap();
    }
    return 0;
}
