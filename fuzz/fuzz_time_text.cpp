// Time text and printable copies. Any text reads as a time or is refused;
// a time read writes back in the default form and reads again to the same
// fields (the fraction of a second is not written, so it reads back as 0).
// The printable copy of any text doubles each '%', puts '.' for what is not
// printable, and prints back through the formatter as the copy's source
// with only those dots in place.
#include <cstring>
#include <string>

#include "fuzz_layer.h"

namespace {

bool SameFields(const ST_ZOS_SYS_TIME &a, const ST_ZOS_SYS_TIME &b) {
    return a.wYear == b.wYear && a.ucMonth == b.ucMonth && a.ucDay == b.ucDay &&
           a.ucWeekDay == b.ucWeekDay && a.ucHour == b.ucHour && a.ucMinute == b.ucMinute &&
           a.ucSecond == b.ucSecond && a.iTzOffset == b.iTzOffset;
}

void TimeText(const std::string &text) {
    ST_ZOS_SYS_TIME t{};
    if (Zos_Str2SysTime(text.c_str(), &t) != ZOK) return;
    if (t.uiMillisecond > 999) std::abort();
    const char *written = Zos_SysTime2Str(nullptr, &t);
    if (written == nullptr) std::abort();
    const std::string again(written);
    ST_ZOS_SYS_TIME back{};
    if (Zos_Str2SysTime(again.c_str(), &back) != ZOK) std::abort();
    if (!SameFields(t, back) || back.uiMillisecond != 0) std::abort();
}

void PrintableCopy(const std::string &text) {
    char *copy = nullptr;
    if (Zos_Str2NPS(text.c_str(), &copy) != ZOK || copy == nullptr) std::abort();
    const size_t len = std::strlen(text.c_str());  // up to the first NUL
    std::string want;
    for (size_t i = 0; i < len; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const bool kept = (c >= 0x20 && c < 0x7F) || c == '\t' || c == '\n' || c == '\r';
        want += kept ? static_cast<char>(c) : '.';
    }
    std::string doubled;
    for (char c : want) doubled += c == '%' ? std::string("%%") : std::string(1, c);
    if (doubled != copy) std::abort();
    // Safe as a format: it prints the text back, '%' included.
    std::string printed(want.size() + 1, '\0');
    Zos_SNPrintf(printed.data(), static_cast<uint32_t>(printed.size()), copy);
    if (std::strcmp(printed.c_str(), want.c_str()) != 0) std::abort();
    if (len != 0) Zos_SysStrFree(copy);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = (kfuzz::StartQuietLayer(), true);
    (void)started;
    if (size > 512) return 0;
    const std::string text(reinterpret_cast<const char *>(data), size);
    TimeText(text);
    PrintableCopy(text);
    return 0;
}
