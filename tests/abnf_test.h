// Helpers of the ABNF tests: a decoding message over a heap copy of exactly
// the text's bytes (so AddressSanitizer sees any read past its end), with
// its error record.
#pragma once

#include <cstring>
#include <memory>
#include <ostream>
#include <string>

#include "zos_test.h"

namespace ktest {

struct AbnfDec {
    std::unique_ptr<char[]> bytes;
    uint32_t len;
    ST_ABNF_ERR err{};
    ST_ABNF_MSG msg{};

    AbnfDec(uint32_t proto, const std::string &text)
        : bytes(new char[text.size() ? text.size() : 1]), len(uint32_t(text.size())) {
        if (!text.empty()) std::memcpy(bytes.get(), text.data(), text.size());
        Abnf_ErrInit(&err);
        ST_ZOS_SSTR s{bytes.get(), len};
        Abnf_MsgInit(&msg, proto, &s, nullptr, &err, 1);
    }
    ~AbnfDec() { Abnf_ErrDestroy(&err); }
    AbnfDec(const AbnfDec &) = delete;
    AbnfDec &operator=(const AbnfDec &) = delete;

    uint32_t code() const { return err.usErrCode; }
    // Offset of the token start / cursor in the text.
    size_t start() const { return size_t(msg.stState.pcTknStart - bytes.get()); }
    size_t cur() const { return size_t(msg.stState.pcCur - bytes.get()); }
};

// What one step on a fresh message over a text left: its result, the error
// code, and the offsets of the token start and of the cursor.
struct Step {
    uint32_t rc, code;
    size_t start, cur;
    bool operator==(const Step &) const = default;
};
inline std::ostream &operator<<(std::ostream &os, const Step &s) {
    return os << "{" << s.rc << ", " << s.code << ", " << s.start << ", " << s.cur << "}";
}
inline Step RunStep(uint32_t proto, const std::string &text, uint32_t (*step)(ST_ABNF_MSG *)) {
    AbnfDec d(proto, text);
    const uint32_t rc = step(&d.msg);
    return {rc, d.code(), d.start(), d.cur()};
}

inline std::string S(const ST_ZOS_SSTR &s) {
    return s.pcStr != nullptr ? std::string(s.pcStr, s.uiLen) : std::string();
}

}  // namespace ktest
