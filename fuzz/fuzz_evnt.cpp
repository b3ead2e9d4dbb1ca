// Fuzzes one event with a random sequence of set, get, erase, node add and
// remove, clone and delete operations and checks it after every step
// against a std::map of what each parameter should hold.
//
// Input: each operation is one byte (operation in the low 3 bits, kind in
// the high 5), then a parameter number byte and the bytes of its value, read
// as far as the input goes. Numbers 0 to 255 put many parameters in each of
// the seven chains.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "fuzz_layer.h"
#include "kestro_lite.h"

namespace {

void Fail(const char *what, size_t step) {
    std::fprintf(stderr, "fuzz_evnt: %s at step %zu\n", what, step);
    std::abort();
}

struct Input : kfuzz::Input {
    uint64_t Word64() {
        uint64_t v = 0;
        for (int i = 0; i < 8; ++i) v = v << 8 | Byte();
        return v;
    }
    std::string Bytes(size_t len) {
        std::string s;
        while (s.size() < len && n > 0) s.push_back(static_cast<char>(Byte()));
        return s;
    }
};

// What a parameter should hold: its kind, a number (cut to the kind's
// width) or bytes (texts, 16-bit texts as pairs of bytes, memory).
struct Want {
    uint32_t kind;
    uint64_t num;
    std::string bytes;
};

const int g_anchor = 0;  // a pointer kept by a zero-length memory value

uint64_t Cut(uint32_t kind, uint64_t v) {
    switch (kind) {
        case ZOS_EPARM_CHAR:
            return static_cast<uint64_t>(static_cast<int8_t>(v));
        case ZOS_EPARM_UCHAR:
            return static_cast<uint8_t>(v);
        case ZOS_EPARM_SHORT:
            return static_cast<uint64_t>(static_cast<int16_t>(v));
        case ZOS_EPARM_USHORT:
            return static_cast<uint16_t>(v);
        case ZOS_EPARM_INT:
            return static_cast<uint64_t>(static_cast<int32_t>(v));
        case ZOS_EPARM_UINT:
        case ZOS_EPARM_BOOL:
            return static_cast<uint32_t>(v);
        case ZOS_EPARM_LONG:
            return static_cast<uint64_t>(static_cast<long>(v));
        case ZOS_EPARM_ULONG:
            return static_cast<unsigned long>(v);
        case ZOS_EPARM_PTR:
        case ZOS_EPARM_COOKIE:
            return static_cast<uintptr_t>(v);
        default:
            return v;
    }
}

uint32_t Set(ZEVNT e, uint32_t id, Want &w, Input &in) {
    const uint64_t v = Cut(w.kind, in.Word64());
    w.num = v;
    switch (w.kind) {
        case ZOS_EPARM_CHAR:
            return Zos_EParmSetChar(e, id, static_cast<int8_t>(v));
        case ZOS_EPARM_UCHAR:
            return Zos_EParmSetUchar(e, id, static_cast<uint8_t>(v));
        case ZOS_EPARM_SHORT:
            return Zos_EParmSetShort(e, id, static_cast<int16_t>(v));
        case ZOS_EPARM_USHORT:
            return Zos_EParmSetUshort(e, id, static_cast<uint16_t>(v));
        case ZOS_EPARM_INT:
            return Zos_EParmSetInt(e, id, static_cast<int32_t>(v));
        case ZOS_EPARM_UINT:
            return Zos_EParmSetUint(e, id, static_cast<uint32_t>(v));
        case ZOS_EPARM_LONG:
            return Zos_EParmSetLong(e, id, static_cast<long>(v));
        case ZOS_EPARM_ULONG:
            return Zos_EParmSetUlong(e, id, static_cast<unsigned long>(v));
        case ZOS_EPARM_INT64:
            return Zos_EParmSetInt64(e, id, static_cast<int64_t>(v));
        case ZOS_EPARM_UINT64:
            return Zos_EParmSetUint64(e, id, v);
        case ZOS_EPARM_BOOL:
            return Zos_EParmSetBool(e, id, static_cast<uint32_t>(v));
        case ZOS_EPARM_PTR:
            return Zos_EParmSetPtr(e, id, reinterpret_cast<void *>(v));
        case ZOS_EPARM_COOKIE:
            return Zos_EParmSetCookie(e, id, static_cast<uintptr_t>(v));
        default:
            break;
    }
    const auto len = static_cast<uint32_t>(v % 700);  // over a block now and then
    w.bytes = in.Bytes(w.kind == ZOS_EPARM_USTR ? 2 * len : len);
    const auto got = static_cast<uint32_t>(w.bytes.size());
    switch (w.kind) {
        case ZOS_EPARM_STR:
            return Zos_EParmSetNStr(e, id, w.bytes.data(), got);
        case ZOS_EPARM_USTR: {
            std::u16string u(got / 2, u'\0');
            std::memcpy(u.data(), w.bytes.data(), u.size() * 2);
            w.bytes.resize(u.size() * 2);
            return Zos_EParmSetNUStr(e, id, reinterpret_cast<const uint16_t *>(u.data()),
                                     static_cast<uint32_t>(u.size()));
        }
        default:
            if (got == 0) return Zos_EParmSetMem(e, id, &g_anchor, 0);
            return Zos_EParmSetMem(e, id, w.bytes.data(), got);
    }
}

// The value a getter of `kind` gives for parameter `id`, as the model
// would hold it (bytes in `bytes`, pointer kinds as a number).
uint64_t Get(ZEVNT e, uint32_t id, uint32_t kind, std::string *bytes) {
    uint32_t len = 0;
    switch (kind) {
        case ZOS_EPARM_CHAR:
            return static_cast<uint64_t>(Zos_EParmGetChar(e, id));
        case ZOS_EPARM_UCHAR:
            return Zos_EParmGetUchar(e, id);
        case ZOS_EPARM_SHORT:
            return static_cast<uint64_t>(Zos_EParmGetShort(e, id));
        case ZOS_EPARM_USHORT:
            return Zos_EParmGetUshort(e, id);
        case ZOS_EPARM_INT:
            return static_cast<uint64_t>(Zos_EParmGetInt(e, id));
        case ZOS_EPARM_UINT:
            return Zos_EParmGetUint(e, id);
        case ZOS_EPARM_LONG:
            return static_cast<uint64_t>(Zos_EParmGetLong(e, id));
        case ZOS_EPARM_ULONG:
            return Zos_EParmGetUlong(e, id);
        case ZOS_EPARM_INT64:
            return static_cast<uint64_t>(Zos_EParmGetInt64(e, id));
        case ZOS_EPARM_UINT64:
            return Zos_EParmGetUint64(e, id);
        case ZOS_EPARM_BOOL:
            return Zos_EParmGetBool(e, id);
        case ZOS_EPARM_PTR:
            return reinterpret_cast<uintptr_t>(Zos_EParmGetPtr(e, id));
        case ZOS_EPARM_COOKIE:
            return Zos_EParmGetCookie(e, id);
        case ZOS_EPARM_STR: {
            const char *s = Zos_EParmGetNStr(e, id, &len);
            if (s != nullptr) bytes->assign(s, len);
            return reinterpret_cast<uintptr_t>(s);
        }
        case ZOS_EPARM_USTR: {
            const uint16_t *s = Zos_EParmGetNUStr(e, id, &len);
            if (s != nullptr) bytes->assign(reinterpret_cast<const char *>(s), 2 * size_t{len});
            return reinterpret_cast<uintptr_t>(s);
        }
        default: {
            const void *p = Zos_EParmGetMem(e, id, &len);
            if (p != nullptr && p != &g_anchor) bytes->assign(static_cast<const char *>(p), len);
            return reinterpret_cast<uintptr_t>(p);
        }
    }
}

bool CopiedKind(uint32_t kind) {
    return kind == ZOS_EPARM_STR || kind == ZOS_EPARM_USTR || kind == ZOS_EPARM_MEM;
}

// A getter of `kind` on parameter `id` against the model (no registry is
// attached, so any other kind reads 0 / null).
void Check(ZEVNT e, const std::map<uint32_t, Want> &model, uint32_t id, uint32_t kind,
           size_t step) {
    std::string bytes;
    const uint64_t got = Get(e, id, kind, &bytes);
    const auto it = model.find(id);
    if (it == model.end() || it->second.kind != kind) {
        if (got != 0) Fail("absent or other kind not 0", step);
        return;
    }
    const Want &w = it->second;
    if (!CopiedKind(kind)) {
        if (got != w.num) Fail("number differs", step);
    } else if (kind == ZOS_EPARM_MEM && w.bytes.empty()) {
        if (got != reinterpret_cast<uintptr_t>(&g_anchor)) Fail("borrowed pointer", step);
    } else if (got == 0 || bytes != w.bytes) {
        Fail("bytes differ", step);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    kfuzz::StartQuietLayer();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input in{{data, size}};
    ZEVNT e = Zos_EvntCreate();
    if (e == nullptr) Fail("create", 0);
    std::map<uint32_t, Want> model;
    uint32_t refs = 1;
    for (size_t step = 1; in.n > 0 && step < 300; ++step) {
        const uint8_t op = in.Byte();
        const uint32_t kind = 1 + (op >> 3) % 16;
        const uint32_t id = in.Byte();
        switch (op & 7) {
            case 0:
            case 1: {
                Want w{kind, 0, {}};
                const uint32_t r = Set(e, id, w, in);
                if (r != (model.count(id) != 0 ? ZFAILED : ZOK)) Fail("set result", step);
                if (r == ZOK) model[id] = w;
                break;
            }
            case 2:
                Check(e, model, id, kind, step);
                break;
            case 3:
                if (Zos_EParmErase(e, id) != (model.erase(id) != 0 ? ZOK : ZFAILED)) {
                    Fail("erase result", step);
                }
                break;
            case 4: {
                ST_ZOS_EPARM *node = nullptr;
                if (Zos_EParmAdd(e, 1000 + id, &node) != ZOK || node == nullptr) Fail("add", step);
                if (Zos_EParmFind(e, 1000 + id, nullptr) == nullptr) Fail("find added", step);
                if (Zos_EParmRmv(e, node) != ZOK || Zos_EParmRmv(e, node) != ZFAILED) {
                    Fail("remove", step);
                }
                break;
            }
            case 5:
                if (refs < 64) {
                    if (Zos_EvntClone(e) != e) Fail("clone", step);
                    ++refs;
                }
                break;
            case 6:
                Zos_EvntDelete(e);
                if (--refs == 0) {
                    // Gone: refused without reading it, then a fresh one.
                    if (Zos_EParmSetInt(e, id, 1) != ZFAILED || Zos_EParmGetUint(e, id) != 0) {
                        Fail("deleted event answered", step);
                    }
                    e = Zos_EvntCreate();
                    if (e == nullptr) Fail("create again", step);
                    model.clear();
                    refs = 1;
                }
                break;
            default:
                for (const auto &[n, w] : model) Check(e, model, n, w.kind, step);
                break;
        }
    }
    for (const auto &[n, w] : model) Check(e, model, n, w.kind, 0);
    while (refs-- > 0) Zos_EvntDelete(e);
    return 0;
}
