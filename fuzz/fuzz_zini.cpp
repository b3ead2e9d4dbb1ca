// Fuzzes the INI decoder with arbitrary text. Every input gives a result
// code and an object (or 1 without one), never a read outside the text.
// A text that decodes is written back into memory and decoded again: the
// second tree must equal the first (comments are not written, so only
// names and values are compared).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_layer.h"
#include "kestro_lite.h"

namespace {

void Fail(const char *what, const std::string &a, const std::string &b) {
    std::fprintf(stderr, "fuzz_zini: %s\n--- first\n%s\n--- second\n%s\n", what, a.c_str(),
                 b.c_str());
    std::abort();
}

std::string Text(const ST_ZOS_SSTR &s) {
    return s.uiLen != 0 ? std::string(s.pcStr, s.uiLen) : std::string();
}

// Names and values of the tree, each with its length so that no two trees
// print alike. Checks the index lookups against the records on the way.
std::string Tree(ZiniFile *ini) {
    std::string out;
    uint32_t si = 0;
    for (ST_ZOS_DLIST_NODE *n = ini->stSectLst.pstHead; n != nullptr; n = n->pstNext, ++si) {
        auto *s = reinterpret_cast<ST_ZINI_SECT *>(n);
        const std::string name = Text(s->stName);
        if (name.empty() || Zini_GetSectName(ini, si) != name) Fail("section name", name, "");
        out += "[" + std::to_string(name.size()) + ":" + name + "]";
        uint32_t ki = 0;
        for (ST_ZOS_DLIST_NODE *m = s->stKeyLst.pstHead; m != nullptr; m = m->pstNext, ++ki) {
            auto *k = reinterpret_cast<ST_ZINI_KEY *>(m);
            const std::string key = Text(k->stName);
            const std::string value = Text(k->stValue);
            if (key.empty() || Zini_GetKeyName(ini, si, ki) != key ||
                Zini_GetKeyStr(ini, si, ki, "") != value) {
                Fail("key lookup", key, value);
            }
            out += " " + std::to_string(key.size()) + ":" + key + "=" +
                   std::to_string(value.size()) + ":" + value;
        }
        if (ki != Zini_GetKeyCount(ini, si)) Fail("key count", name, "");
    }
    if (si != Zini_GetSectCount(ini)) Fail("section count", out, "");
    return out;
}

// The written form, through the writer steps into a data buffer.
std::string Encode(ZiniFile *ini) {
    ZDBUF out = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, 4096);
    ST_ABNF_MSG msg{};
    if (out == nullptr || Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, nullptr, out, nullptr, 0) != ZOK ||
        Zini_EncodeBuf(&msg, ini) != ZOK) {
        Fail("encode", Tree(ini), "");
    }
    const std::string text = kfuzz::DbufText(out);
    Zos_DbufDelete(out);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    kfuzz::StartQuietLayer();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 16) return 0;
    ZiniFile *ini = nullptr;
    const uint32_t rc =
        Zini_CreateX(reinterpret_cast<const char *>(data), static_cast<uint32_t>(size), &ini);
    if (rc == ZFAILED) std::abort();  // only a missing buffer gives 1
    if (ini == nullptr) Fail("no object", "", "");
    const std::string first = Tree(ini);
    if (rc == ZOK) {
        const std::string text = Encode(ini);
        ZiniFile *back = nullptr;
        if (Zini_CreateX(text.data(), static_cast<uint32_t>(text.size()), &back) !=
            (text.empty() ? ZINI_EMPTY_INPUT : ZOK)) {
            Fail("written text does not decode", first, text);
        }
        const std::string second = Tree(back);
        if (second != first) Fail("round trip", first, second);
        Zini_Delete(back);
    } else if (rc != ZINI_DECODE_FAILED && rc != ZINI_EMPTY_INPUT) {
        Fail("result code", std::to_string(rc), "");
    }
    Zini_Delete(ini);
    return 0;
}
