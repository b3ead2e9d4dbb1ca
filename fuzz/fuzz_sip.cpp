// The SIP reader on any bytes: a message reads or fails cleanly, and every
// part of a read message lies inside the text.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fuzz_layer.h"
#include "kestro_lite.h"
#include "sip_reader.h"

namespace {

const kestro::sip::Reader *g_reader = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    kfuzz::StartQuietLayer();
    g_reader = new kestro::sip::Reader;
    if (!g_reader->ok()) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 1u << 16) return 0;
    std::unique_ptr<char[]> text(new char[size]);
    std::memcpy(text.get(), data, size);
    const char *end = text.get() + size;
    auto inside = [&](const ST_ZOS_SSTR &s) {
        if (s.uiLen != 0 && (s.pcStr < text.get() || s.pcStr + s.uiLen > end)) std::abort();
    };
    kestro::sip::Message m;
    kestro::sip::Failure f;
    // Every fourth input prints its report, so the report path is fuzzed too.
    if (!g_reader->Read(text.get(), uint32_t(size), &m, (data[0] & 3) == 0, &f)) {
        if (f.offset > size) std::abort();
        return 0;
    }
    inside(m.method);
    inside(m.uri);
    inside(m.reason);
    inside(m.body);
    inside(m.cseqMethod);
    for (const auto &h : m.headers) {
        inside(h.name);
        inside(h.raw);
        if (h.Value().size() > h.raw.uiLen) std::abort();
    }
    if (m.hasContentLength && m.body.uiLen != m.contentLength) std::abort();
    return 0;
}
