// Events: a record with fixed element slots and typed parameters in seven
// chains, all inside one arena, plus the per-component registry of
// parameter defaults.
//
// Record: [magic][bucket count, references][message][arena][bucket
//         pointer][14 element slots][7 chain heads]
// The record is the arena's first allocation (or an allocation in the
// arena given to Zos_EvntCreateX). Parameter nodes and the values copied
// into the event come from the same arena and go with it.
#include <cstring>

#include "zos_cbuf.h"
#include "zos_cbuf_int.h"
#include "zos_dbuf.h"
#include "zos_evnt.h"
#include "zos_evnt_int.h"
#include "zos_live.h"
#include "zos_msg_int.h"
#include "zos_str.h"
#include "zos_sys.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kEvntMagic = 0xBBAA22DDu;

struct ZosEvnt {
    uint32_t uiMagic;
    uint16_t usBuckets;
    uint16_t usRefs;
    ZMSG zMsg;  // the carrying message: a full handle, pointer-sized
    ZCBUF zBuf;
    ST_ZOS_EPARM **ppstBuckets;
    ST_ZOS_EVNT_ELEM astElem[ZOS_EVNT_ELEM_COUNT];
    ST_ZOS_EPARM *apstHeads[ZOS_EVNT_BUCKETS];
};

// A live event, or null; never reads a deleted record.
ZosEvnt *Live(ZEVNT zEvnt) {
    return zos::LiveRecord<ZosEvnt>(zEvnt, kEvntMagic);
}

// A live event, or null after logging "<name> invalid id<suffix>".
ZosEvnt *Checked(ZEVNT zEvnt, const char *name, const char *suffix = "") {
    ZosEvnt *e = Live(zEvnt);
    if (e == nullptr) ZOS_LOG_ERR("%s invalid id%s", name, suffix);
    return e;
}

// ---------------------------------------------------------------------
// Creation

// The record in the arena, registered as a live handle; null when either
// fails (the record's memory is given back).
ZosEvnt *Build(ZCBUF buf) {
    auto *e = static_cast<ZosEvnt *>(Zos_CbufAllocClrd(buf, sizeof(ZosEvnt)));
    if (e == nullptr) return nullptr;
    if (!zos::LiveAdd(e)) {
        (void)Zos_CbufFree(buf, e);
        return nullptr;
    }
    e->usBuckets = ZOS_EVNT_BUCKETS;
    e->usRefs = 1;
    e->zBuf = buf;
    e->ppstBuckets = e->apstHeads;
    e->uiMagic = kEvntMagic;
    return e;
}

// ---------------------------------------------------------------------
// Parameter chains

ST_ZOS_EPARM *FindIn(const ZosEvnt *e, uint32_t id) {
    for (ST_ZOS_EPARM *p = e->ppstBuckets[id % ZOS_EVNT_BUCKETS]; p != nullptr; p = p->pstNext) {
        if (p->uiId == id) return p;
    }
    return nullptr;
}

// A zeroed node for the id, linked at `*at` (the end of its chain).
ST_ZOS_EPARM *LinkNew(ZosEvnt *e, uint32_t id, ST_ZOS_EPARM **at) {
    auto *node = static_cast<ST_ZOS_EPARM *>(Zos_CbufAllocClrd(e->zBuf, sizeof(ST_ZOS_EPARM)));
    if (node == nullptr) return nullptr;
    node->uiId = id;
    *at = node;
    return node;
}

ST_ZOS_EPARM *AddIn(ZosEvnt *e, uint32_t id) {
    ST_ZOS_EPARM **at = &e->ppstBuckets[id % ZOS_EVNT_BUCKETS];
    while (*at != nullptr) at = &(*at)->pstNext;
    return LinkNew(e, id, at);
}

// Unlinks and frees a node of this event; false when it is not one. The
// node is found by its address in every chain before anything of it is
// read, so a stray pointer is refused.
bool RmvIn(ZosEvnt *e, ST_ZOS_EPARM *node) {
    for (uint32_t b = 0; b < ZOS_EVNT_BUCKETS; ++b) {
        for (ST_ZOS_EPARM **at = &e->ppstBuckets[b]; *at != nullptr; at = &(*at)->pstNext) {
            if (*at != node) continue;
            *at = node->pstNext;
            (void)Zos_CbufFree(e->zBuf, node);
            return true;
        }
    }
    return false;
}

// The node a setter fills: null after "<name> exist parm" when the id is
// set already, or "<name> add parm" when no node can be had.
// One walk of the chain both looks for the id and finds its end.
ST_ZOS_EPARM *NewParm(ZosEvnt *e, uint32_t id, const char *name) {
    ST_ZOS_EPARM **at = &e->ppstBuckets[id % ZOS_EVNT_BUCKETS];
    for (; *at != nullptr; at = &(*at)->pstNext) {
        if ((*at)->uiId == id) {
            ZOS_LOG_ERR("%s exist parm", name);
            return nullptr;
        }
    }
    ST_ZOS_EPARM *node = LinkNew(e, id, at);
    if (node == nullptr) ZOS_LOG_ERR("%s add parm", name);
    return node;
}

// The registry row of an id, without creating anything.
const ST_ZOS_SYS_PARM *DefaultOf(uint32_t id) {
    ST_ZOS_SYS_PARM *row = nullptr;
    (void)Zos_SysParmLocate(id, &row);
    return row;
}

const char *DefaultText(uint32_t id) {
    const ST_ZOS_SYS_PARM *row = DefaultOf(id);
    return row != nullptr ? row->pcDflt : nullptr;
}

// ---------------------------------------------------------------------
// Numeric kinds: the C type, and the conversion of a registry default text.

int64_t ParseInt64(const char *s, bool allowSign, bool *ok) {
    *ok = false;
    bool neg = false;
    if (allowSign && (*s == '-' || *s == '+')) neg = *s++ == '-';
    if (*s == '\0') return 0;
    const uint64_t limit =
        neg ? (uint64_t{1} << 63) : (allowSign ? (uint64_t{1} << 63) - 1 : ~0ull);
    uint64_t v = 0;
    for (; *s != '\0'; ++s) {
        if (*s < '0' || *s > '9') return 0;
        const auto d = static_cast<uint64_t>(*s - '0');
        if (v > (limit - d) / 10) return 0;
        v = v * 10 + d;
    }
    *ok = true;
    return neg ? static_cast<int64_t>(0 - v) : static_cast<int64_t>(v);
}

template <uint32_t K>
struct KindOf;

#define ZOS_EVNT_KIND(K, TYPE, BODY)      \
    template <>                           \
    struct KindOf<K> {                    \
        using T = TYPE;                   \
        static T Conv(const char *s) BODY \
    };

// clang-format off
ZOS_EVNT_KIND(ZOS_EPARM_CHAR, int8_t,
              { char v = 0; return Zos_StrToChar(s, 0, &v) == ZOK ? static_cast<int8_t>(v) : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_UCHAR, uint8_t,
              { uint8_t v = 0; return Zos_StrToUc(s, 0, &v) == ZOK ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_SHORT, int16_t,
              { int16_t v = 0; return Zos_StrToShort(s, 0, &v) == ZOK ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_USHORT, uint16_t,
              { uint16_t v = 0; return Zos_StrToUs(s, 0, &v) == ZOK ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_INT, int32_t,
              { int32_t v = 0; return Zos_StrToInt(s, 0, &v) == ZOK ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_UINT, uint32_t,
              { uint32_t v = 0; return Zos_StrToUint(s, 0, &v) == ZOK ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_LONG, long,
              { long v = 0; return Zos_StrToLong(s, 0, &v) == ZOK ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_ULONG, unsigned long,
              { unsigned long v = 0; return Zos_StrToUl(s, 0, &v) == ZOK ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_INT64, int64_t,
              { bool ok = false; const int64_t v = ParseInt64(s, true, &ok); return ok ? v : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_UINT64, uint64_t,
              { bool ok = false; const int64_t v = ParseInt64(s, false, &ok);
                return ok ? static_cast<uint64_t>(v) : 0; })
ZOS_EVNT_KIND(ZOS_EPARM_BOOL, uint32_t,
              { uint32_t v = 0; return Zos_StrToBool(s, 0, &v) == ZOK ? v : 0; })
// clang-format on

#undef ZOS_EVNT_KIND

// 64-bit values go bytewise into the node (nodes are only pointer-aligned);
// the others sit in the pointer-sized word.
template <uint32_t K>
void Store(ST_ZOS_EPARM *node, typename KindOf<K>::T v) {
    if constexpr (K == ZOS_EPARM_INT64 || K == ZOS_EPARM_UINT64) {
        std::memcpy(node->u.aucBytes, &v, sizeof(v));
    } else {
        node->u.zWord = static_cast<uintptr_t>(v);
    }
}

template <uint32_t K>
typename KindOf<K>::T Load(const ST_ZOS_EPARM *node) {
    using T = typename KindOf<K>::T;
    if constexpr (K == ZOS_EPARM_INT64 || K == ZOS_EPARM_UINT64) {
        T v;
        std::memcpy(&v, node->u.aucBytes, sizeof(v));
        return v;
    } else {
        return static_cast<T>(node->u.zWord);
    }
}

template <uint32_t K>
uint32_t SetNumIn(ZosEvnt *e, uint32_t id, typename KindOf<K>::T v, const char *name) {
    ST_ZOS_EPARM *node = NewParm(e, id, name);
    if (node == nullptr) return ZFAILED;
    node->uiKind = K;
    Store<K>(node, v);
    return ZOK;
}

template <uint32_t K>
typename KindOf<K>::T GetNumIn(const ZosEvnt *e, uint32_t id) {
    const ST_ZOS_EPARM *node = FindIn(e, id);
    if (node == nullptr) return 0;
    if (node->uiKind == K) return Load<K>(node);
    const char *text = DefaultText(id);
    return text != nullptr ? KindOf<K>::Conv(text) : 0;
}

template <uint32_t K>
uint32_t SetNum(ZEVNT zEvnt, uint32_t id, typename KindOf<K>::T v, const char *name) {
    ZosEvnt *e = Checked(zEvnt, name);
    return e != nullptr ? SetNumIn<K>(e, id, v, name) : ZFAILED;
}

template <uint32_t K>
typename KindOf<K>::T GetNum(ZEVNT zEvnt, uint32_t id, const char *name) {
    const ZosEvnt *e = Checked(zEvnt, name);
    return e != nullptr ? GetNumIn<K>(e, id) : 0;
}

// ---------------------------------------------------------------------
// Copied values: texts, 16-bit texts and memory

// A text of `len` units of `unit` bytes copied with a zero terminator.
// A null text is stored as null. "<name> set val" when the copy fails.
uint32_t SetTextIn(ZosEvnt *e, uint32_t id, const void *text, uint32_t len, uint32_t unit,
                   uint32_t kind, const char *name) {
    ST_ZOS_EPARM *node = NewParm(e, id, name);
    if (node == nullptr) return ZFAILED;
    node->uiKind = kind;
    if (text == nullptr) return ZOK;
    void *copy = nullptr;
    if (len < (0x7FFFFFF0u / unit)) copy = Zos_CbufAlloc(e->zBuf, (len + 1) * unit);
    if (copy == nullptr) {
        ZOS_LOG_ERR("%s set val", name);
        (void)RmvIn(e, node);
        return ZFAILED;
    }
    std::memcpy(copy, text, static_cast<size_t>(len) * unit);
    std::memset(static_cast<uint8_t *>(copy) + static_cast<size_t>(len) * unit, 0, unit);
    node->uiLen = len;
    node->u.zWord = reinterpret_cast<uintptr_t>(copy);
    return ZOK;
}

uint32_t UstrLen(const uint16_t *s) {
    uint32_t n = 0;
    while (s[n] != 0 && n < 0x7FFFFFF0u) ++n;
    return n;
}

uint32_t SetMemIn(ZosEvnt *e, uint32_t id, const void *data, uint32_t len, const char *name) {
    ST_ZOS_EPARM *node = NewParm(e, id, name);
    if (node == nullptr) return ZFAILED;
    node->uiKind = ZOS_EPARM_MEM;
    node->uiLen = len;
    if (len == 0) {
        // Length 0: the pointer is kept as given, nothing copied.
        node->u.zWord = reinterpret_cast<uintptr_t>(data);
        return ZOK;
    }
    if (data == nullptr) ZOS_LOG_WARN("EParmSetMem null val");
    void *copy = Zos_CbufAlloc(e->zBuf, len);
    if (copy == nullptr) {
        ZOS_LOG_ERR("%s alloc val", name);
        (void)RmvIn(e, node);
        return ZFAILED;
    }
    // A null source copies nothing: the bytes stay as the arena gave them.
    if (data != nullptr) std::memcpy(copy, data, len);
    node->u.zWord = reinterpret_cast<uintptr_t>(copy);
    return ZOK;
}

uint32_t SetWordIn(ZosEvnt *e, uint32_t id, uint32_t kind, uintptr_t word, const char *name) {
    ST_ZOS_EPARM *node = NewParm(e, id, name);
    if (node == nullptr) return ZFAILED;
    node->uiKind = kind;
    node->u.zWord = word;
    return ZOK;
}

uint32_t Len(const char *s) {
    return s != nullptr ? static_cast<uint32_t>(std::strlen(s)) : 0;
}

// Text, memory, pointer and cookie reads: the stored word of the kind, else
// the registry default text as the getter's own result.
const char *GetStrIn(const ZosEvnt *e, uint32_t id, uint32_t *len) {
    if (len != nullptr) *len = 0;
    const ST_ZOS_EPARM *node = FindIn(e, id);
    if (node == nullptr) return nullptr;
    if (node->uiKind == ZOS_EPARM_STR) {
        if (len != nullptr) *len = node->uiLen;
        return reinterpret_cast<const char *>(node->u.zWord);
    }
    const char *text = DefaultText(id);
    if (len != nullptr) *len = Len(text);
    return text;
}

const uint16_t *GetUstrIn(const ZosEvnt *e, uint32_t id, uint32_t *len) {
    if (len != nullptr) *len = 0;
    const ST_ZOS_EPARM *node = FindIn(e, id);
    if (node == nullptr) return nullptr;
    if (node->uiKind != ZOS_EPARM_USTR) {
        (void)DefaultOf(id);  // looked up as for every other kind; no 16-bit default exists
        return nullptr;
    }
    if (len != nullptr) *len = node->uiLen;
    return reinterpret_cast<const uint16_t *>(node->u.zWord);
}

void *GetMemIn(const ZosEvnt *e, uint32_t id, uint32_t *len) {
    if (len != nullptr) *len = 0;
    const ST_ZOS_EPARM *node = FindIn(e, id);
    if (node == nullptr) return nullptr;
    if (node->uiKind == ZOS_EPARM_MEM) {
        if (len != nullptr) *len = node->uiLen;
        return reinterpret_cast<void *>(node->u.zWord);
    }
    const char *text = DefaultText(id);
    if (len != nullptr) *len = Len(text);
    return const_cast<char *>(text);
}

uintptr_t GetWordIn(const ZosEvnt *e, uint32_t id, uint32_t kind) {
    const ST_ZOS_EPARM *node = FindIn(e, id);
    if (node == nullptr) return 0;
    if (node->uiKind == kind) return node->u.zWord;
    return reinterpret_cast<uintptr_t>(DefaultText(id));
}

// ---------------------------------------------------------------------
// Element slots

ST_ZOS_EVNT_ELEM *Slot(ZEVNT zEvnt, uint32_t index) {
    ZosEvnt *e = Live(zEvnt);
    return e != nullptr ? &e->astElem[index] : nullptr;
}

uint32_t SetSlot(ZEVNT zEvnt, uint32_t index, uintptr_t value) {
    ST_ZOS_EVNT_ELEM *s = Slot(zEvnt, index);
    if (s == nullptr) return ZFAILED;
    s->uiFlag = 1;
    s->zValue = value;
    return ZOK;
}

uintptr_t GetSlot(ZEVNT zEvnt, uint32_t index, uintptr_t absent) {
    const ST_ZOS_EVNT_ELEM *s = Slot(zEvnt, index);
    return s != nullptr && s->uiFlag != 0 ? s->zValue : absent;
}

constexpr uintptr_t kAbsentType = 0xFFFFFFFFu;

// ---------------------------------------------------------------------
// Formatted creation and reading

// Sets parameter `id` of kind `kind` from the next variadic argument(s),
// read with the C type a C caller passes.
uint32_t SetFromArg(ZosEvnt *e, uint32_t id, uint32_t kind, va_list *ap) {
    switch (kind) {
        case ZOS_EPARM_CHAR:
            return SetNumIn<ZOS_EPARM_CHAR>(e, id, static_cast<int8_t>(va_arg(*ap, int)),
                                            "EParmSetChar");
        case ZOS_EPARM_UCHAR:
            return SetNumIn<ZOS_EPARM_UCHAR>(e, id, static_cast<uint8_t>(va_arg(*ap, unsigned)),
                                             "EParmSetUchar");
        case ZOS_EPARM_SHORT:
            return SetNumIn<ZOS_EPARM_SHORT>(e, id, static_cast<int16_t>(va_arg(*ap, int)),
                                             "EParmSetShort");
        case ZOS_EPARM_USHORT:
            return SetNumIn<ZOS_EPARM_USHORT>(e, id, static_cast<uint16_t>(va_arg(*ap, unsigned)),
                                              "EParmSetUshort");
        case ZOS_EPARM_INT:
            return SetNumIn<ZOS_EPARM_INT>(e, id, va_arg(*ap, int), "EParmSetInt");
        case ZOS_EPARM_UINT:
            return SetNumIn<ZOS_EPARM_UINT>(e, id, va_arg(*ap, unsigned), "EParmSetUint");
        case ZOS_EPARM_LONG:
            return SetNumIn<ZOS_EPARM_LONG>(e, id, va_arg(*ap, long), "EParmSetLong");
        case ZOS_EPARM_ULONG:
            return SetNumIn<ZOS_EPARM_ULONG>(e, id, va_arg(*ap, unsigned long), "EParmSetUlong");
        case ZOS_EPARM_INT64:
            return SetNumIn<ZOS_EPARM_INT64>(e, id, static_cast<int64_t>(va_arg(*ap, long long)),
                                             "EParmSetInt64");
        case ZOS_EPARM_UINT64:
            return SetNumIn<ZOS_EPARM_UINT64>(
                e, id, static_cast<uint64_t>(va_arg(*ap, unsigned long long)), "EParmSetUint64");
        case ZOS_EPARM_BOOL:
            return SetNumIn<ZOS_EPARM_BOOL>(e, id, va_arg(*ap, unsigned), "EParmSetBool");
        case ZOS_EPARM_STR: {
            const char *s = va_arg(*ap, const char *);
            return SetTextIn(e, id, s, Len(s), 1, ZOS_EPARM_STR, "EParmSetStr");
        }
        case ZOS_EPARM_MEM: {
            const void *p = va_arg(*ap, const void *);
            const uint32_t len = va_arg(*ap, unsigned);
            return SetMemIn(e, id, p, p != nullptr ? len : 0, "EParmSetMem");
        }
        case ZOS_EPARM_PTR:
            return SetWordIn(e, id, ZOS_EPARM_PTR, reinterpret_cast<uintptr_t>(va_arg(*ap, void *)),
                             "EParmSetPtr");
        case ZOS_EPARM_COOKIE:
            return SetWordIn(e, id, ZOS_EPARM_COOKIE, va_arg(*ap, uintptr_t), "EParmSetCookie");
        default:
            return ZFAILED;
    }
}

template <typename T>
void Put(va_list *ap, T v) {
    T *out = va_arg(*ap, T *);
    if (out != nullptr) *out = v;
}

// Writes parameter `id` of kind `kind` through the next pointer argument(s).
void ReadToArg(const ZosEvnt *e, uint32_t id, uint32_t kind, va_list *ap) {
    switch (kind) {
        case ZOS_EPARM_CHAR:
            return Put(ap, GetNumIn<ZOS_EPARM_CHAR>(e, id));
        case ZOS_EPARM_UCHAR:
            return Put(ap, GetNumIn<ZOS_EPARM_UCHAR>(e, id));
        case ZOS_EPARM_SHORT:
            return Put(ap, GetNumIn<ZOS_EPARM_SHORT>(e, id));
        case ZOS_EPARM_USHORT:
            return Put(ap, GetNumIn<ZOS_EPARM_USHORT>(e, id));
        case ZOS_EPARM_INT:
            return Put(ap, GetNumIn<ZOS_EPARM_INT>(e, id));
        case ZOS_EPARM_UINT:
            return Put(ap, GetNumIn<ZOS_EPARM_UINT>(e, id));
        case ZOS_EPARM_LONG:
            return Put(ap, GetNumIn<ZOS_EPARM_LONG>(e, id));
        case ZOS_EPARM_ULONG:
            return Put(ap, GetNumIn<ZOS_EPARM_ULONG>(e, id));
        case ZOS_EPARM_INT64:
            return Put(ap, GetNumIn<ZOS_EPARM_INT64>(e, id));
        case ZOS_EPARM_UINT64:
            return Put(ap, GetNumIn<ZOS_EPARM_UINT64>(e, id));
        case ZOS_EPARM_BOOL:
            return Put(ap, GetNumIn<ZOS_EPARM_BOOL>(e, id));
        case ZOS_EPARM_STR:
            return Put(ap, GetStrIn(e, id, nullptr));
        case ZOS_EPARM_MEM: {
            uint32_t len = 0;
            void *p = GetMemIn(e, id, &len);
            Put(ap, p);
            return Put(ap, len);
        }
        case ZOS_EPARM_PTR:
            return Put(ap, reinterpret_cast<void *>(GetWordIn(e, id, ZOS_EPARM_PTR)));
        case ZOS_EPARM_COOKIE:
            return Put(ap, GetWordIn(e, id, ZOS_EPARM_COOKIE));
        default:
            return;
    }
}

// Kind of a byte of the binary type list; 0 for an unknown byte.
uint32_t BinaryKind(uint8_t b) {
    switch (b) {
        case ZOS_EVNT_FMT_BOOL:
            return ZOS_EPARM_BOOL;
        case ZOS_EVNT_FMT_UINT:
            return ZOS_EPARM_UINT;
        case ZOS_EVNT_FMT_ULONG:
            return ZOS_EPARM_ULONG;
        case ZOS_EVNT_FMT_USHORT:
            return ZOS_EPARM_USHORT;
        case ZOS_EVNT_FMT_UCHAR:
            return ZOS_EPARM_UCHAR;
        case ZOS_EVNT_FMT_STR:
            return ZOS_EPARM_STR;
        case ZOS_EVNT_FMT_PTR:
            return ZOS_EPARM_PTR;
        case ZOS_EVNT_FMT_MEM:
            return ZOS_EPARM_MEM;
        case ZOS_EVNT_FMT_COOKIE:
            return ZOS_EPARM_COOKIE;
        default:
            return 0;
    }
}

// ---------------------------------------------------------------------
// Registry

ST_ZOS_COMP_ENTRY *CompEntry(uint32_t comp) {
    if (comp >= ZOS_COMP_COUNT) return nullptr;
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    return holder != nullptr ? &holder->pstComps[comp] : nullptr;
}

ST_ZOS_SYS_EVNT *TableOf(uint32_t comp) {
    ST_ZOS_COMP_ENTRY *entry = CompEntry(comp);
    return entry != nullptr ? static_cast<ST_ZOS_SYS_EVNT *>(entry->pEvntTbl) : nullptr;
}

}  // namespace

int zos::EvntNextConv(const char **ppc, EvntConv *pstConv) {
    const char *p = *ppc;
    pstConv->uiKind = 0;
    pstConv->cLetter = '\0';
    while (*p != '\0' && *p != '%') ++p;
    if (*p == '\0') {
        *ppc = p;
        return 0;
    }
    ++p;
    bool star = false;
    while (*p == '*') {
        star = true;
        ++p;
    }
    const bool z = *p == 'z';
    if (z) ++p;
    uint32_t h = 0;
    uint32_t l = 0;
    for (; *p == 'h' || *p == 'l'; ++p) ++(*p == 'h' ? h : l);
    pstConv->cLetter = *p;
    if (*p != '\0') ++p;
    *ppc = p;
    switch (pstConv->cLetter) {
        case 'd':
            pstConv->uiKind = z        ? ZOS_EPARM_LONG
                              : l >= 2 ? ZOS_EPARM_INT64
                              : l == 1 ? ZOS_EPARM_LONG
                              : h >= 2 ? ZOS_EPARM_CHAR
                              : h == 1 ? ZOS_EPARM_SHORT
                                       : ZOS_EPARM_INT;
            return 1;
        case 'u':
            pstConv->uiKind = z        ? ZOS_EPARM_COOKIE
                              : l >= 2 ? ZOS_EPARM_UINT64
                              : l == 1 ? ZOS_EPARM_ULONG
                              : h >= 2 ? ZOS_EPARM_UCHAR
                              : h == 1 ? ZOS_EPARM_USHORT
                                       : ZOS_EPARM_UINT;
            return 1;
        case 's':
            pstConv->uiKind = star ? ZOS_EPARM_MEM : ZOS_EPARM_STR;
            return 1;
        case 'p':
            pstConv->uiKind = star ? ZOS_EPARM_MEM : ZOS_EPARM_PTR;
            return 1;
        default:
            return -1;
    }
}

namespace {

// An event whose arena others still hold (one given to Zos_EvntCreateX, or
// shared with a message or a caller) gives its parameter nodes and its
// record back to the arena, which would otherwise keep them until it goes:
// an arena that outlives many events would grow with each. Values copied
// into parameters stay: a node filled through Zos_EParmAdd may point at
// memory the event does not own.
void GiveBack(ZosEvnt *e, ZCBUF buf) {
    for (uint32_t b = 0; b < ZOS_EVNT_BUCKETS; ++b) {
        for (ST_ZOS_EPARM *node = e->ppstBuckets[b]; node != nullptr;) {
            ST_ZOS_EPARM *next = node->pstNext;
            (void)Zos_CbufFree(buf, node);
            node = next;
        }
    }
    (void)Zos_CbufFree(buf, e);
}

}  // namespace

ZCBUF zos::EvntBuf(ZEVNT zEvnt) {
    const ZosEvnt *e = Live(zEvnt);
    return e != nullptr ? e->zBuf : nullptr;
}

void zos::EvntDeleteBefore(ZEVNT zEvnt, ZCBUF zNext) {
    if (zEvnt == nullptr) return;
    ZosEvnt *e = Checked(zEvnt, "EvntDelete", ".");
    if (e == nullptr) return;
    if (--e->usRefs != 0) return;
    ST_ZOS_EVNT_ELEM &dbuf = e->astElem[ZOS_EVNT_ELEM_DBUF];
    if (dbuf.uiFlag != 0 && dbuf.zValue != 0) {
        (void)Zos_DbufDelete(reinterpret_cast<ZDBUF>(dbuf.zValue));
    }
    ZCBUF buf = e->zBuf;
    e->uiMagic = 0;
    zos::LiveRemove(e);
    // The arena outlives this event (and the reference that goes next)?
    if (zos::CbufRefsHeld(buf) > (buf == zNext ? 2u : 1u)) GiveBack(e, buf);
    Zos_CbufDelete(buf);
}

extern "C" {

// ---------------------------------------------------------------------
// Life

KESTRO_API ZEVNT Zos_EvntCreate(void) {
    ZCBUF buf = Zos_CbufCreate(ZOS_EVNT_BLOCK_SIZE);
    ZosEvnt *e = buf != nullptr ? Build(buf) : nullptr;
    if (e == nullptr) {
        Zos_CbufDelete(buf);
        ZOS_LOG_ERR("EvntCreate alloc memory.");
    }
    return e;
}

KESTRO_API ZEVNT Zos_EvntCreateX(ZCBUF zBuf) {
    if (zBuf == nullptr) return Zos_EvntCreate();
    ZCBUF ref = Zos_CbufClone(zBuf);
    ZosEvnt *e = ref != nullptr ? Build(ref) : nullptr;
    if (e == nullptr) {
        Zos_CbufDelete(ref);
        ZOS_LOG_ERR("EvntCreateX alloc memory.");
    }
    return e;
}

KESTRO_API ZEVNT Zos_EvntCreateFmtX(const char *pcFormat, va_list vaArgs) {
    if (pcFormat == nullptr) {
        ZOS_LOG_ERR("EvntCreateFmtX null format.");
        return nullptr;
    }
    auto *e = static_cast<ZosEvnt *>(Zos_EvntCreate());
    if (e == nullptr) {
        ZOS_LOG_ERR("EvntCreateFmtX create event.");
        return nullptr;
    }
    va_list ap;
    va_copy(ap, vaArgs);
    uint32_t ret = ZOK;
    for (uint32_t n = 0; ret == ZOK; ++n) {
        const auto b = static_cast<uint8_t>(pcFormat[n]);
        if (b == ZOS_EVNT_FMT_END) break;
        const uint32_t kind = BinaryKind(b);
        if (kind == 0) {
            ZOS_LOG_ERR("EvntCreateFmtX unknown type %d.", static_cast<int>(b));
            ret = ZFAILED;
        } else {
            ret = SetFromArg(e, n, kind, &ap);
        }
    }
    va_end(ap);
    if (ret != ZOK) {
        Zos_EvntDelete(e);
        return nullptr;
    }
    return e;
}

KESTRO_API ZEVNT Zos_EvntCreateFmt(const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    ZEVNT e = Zos_EvntCreateFmtX(pcFormat, ap);
    va_end(ap);
    return e;
}

KESTRO_API ZEVNT Zos_EvntCreateFmtSX(const char *pcFormat, va_list vaArgs) {
    if (pcFormat == nullptr) {
        ZOS_LOG_ERR("EvntCreateFmtSX null format.");
        return nullptr;
    }
    auto *e = static_cast<ZosEvnt *>(Zos_EvntCreate());
    if (e == nullptr) {
        ZOS_LOG_ERR("EvntCreateFmtSX create event.");
        return nullptr;
    }
    va_list ap;
    va_copy(ap, vaArgs);
    const char *p = pcFormat;
    zos::EvntConv conv{};
    uint32_t ret = ZOK;
    for (uint32_t n = 0; ret == ZOK; ++n) {
        const int r = zos::EvntNextConv(&p, &conv);
        if (r == 0) break;
        if (r < 0) {
            ZOS_LOG_ERR("EvntCreateFmtSX unknown type %d.",
                        static_cast<int>(static_cast<uint8_t>(conv.cLetter)));
            ret = ZFAILED;
        } else {
            ret = SetFromArg(e, n, conv.uiKind, &ap);
        }
    }
    va_end(ap);
    if (ret != ZOK) {
        Zos_EvntDelete(e);
        return nullptr;
    }
    return e;
}

KESTRO_API ZEVNT Zos_EvntCreateFmtS(const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    ZEVNT e = Zos_EvntCreateFmtSX(pcFormat, ap);
    va_end(ap);
    return e;
}

KESTRO_API uint32_t Zos_EvntReadX(ZEVNT zEvnt, const char *pcFormat, va_list vaArgs) {
    const ZosEvnt *e = Live(zEvnt);
    if (e == nullptr || pcFormat == nullptr) {
        ZOS_LOG_ERR("EvntReadX null parameter.");
        return ZFAILED;
    }
    va_list ap;
    va_copy(ap, vaArgs);
    uint32_t ret = ZOK;
    for (uint32_t n = 0;; ++n) {
        const auto b = static_cast<uint8_t>(pcFormat[n]);
        if (b == ZOS_EVNT_FMT_END) break;
        const uint32_t kind = BinaryKind(b);
        if (kind == 0) {
            ZOS_LOG_ERR("EvntReadX unknown type %d.", static_cast<int>(b));
            ret = ZFAILED;
            break;
        }
        ReadToArg(e, n, kind, &ap);
    }
    va_end(ap);
    return ret;
}

KESTRO_API uint32_t Zos_EvntRead(ZEVNT zEvnt, const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t ret = Zos_EvntReadX(zEvnt, pcFormat, ap);
    va_end(ap);
    return ret;
}

KESTRO_API uint32_t Zos_EvntReadSX(ZEVNT zEvnt, const char *pcFormat, va_list vaArgs) {
    const ZosEvnt *e = Live(zEvnt);
    if (e == nullptr || pcFormat == nullptr) {
        ZOS_LOG_ERR("EvntReadSX null parameter.");
        return ZFAILED;
    }
    va_list ap;
    va_copy(ap, vaArgs);
    const char *p = pcFormat;
    zos::EvntConv conv{};
    uint32_t ret = ZOK;
    for (uint32_t n = 0;; ++n) {
        const int r = zos::EvntNextConv(&p, &conv);
        if (r == 0) break;
        if (r < 0) {
            ZOS_LOG_ERR("EvntReadSX unknown type %d.",
                        static_cast<int>(static_cast<uint8_t>(conv.cLetter)));
            ret = ZFAILED;
            break;
        }
        ReadToArg(e, n, conv.uiKind, &ap);
    }
    va_end(ap);
    return ret;
}

KESTRO_API uint32_t Zos_EvntReadS(ZEVNT zEvnt, const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t ret = Zos_EvntReadSX(zEvnt, pcFormat, ap);
    va_end(ap);
    return ret;
}

KESTRO_API ZEVNT Zos_EvntClone(ZEVNT zEvnt) {
    ZosEvnt *e = Checked(zEvnt, "EvntClone", ".");
    if (e == nullptr) return nullptr;
    if (e->usRefs >= ZOS_EVNT_REF_MAX) {
        ZOS_LOG_ERR("EvntClone too many reference.");
        return nullptr;
    }
    ++e->usRefs;
    return e;
}

KESTRO_API void Zos_EvntDelete(ZEVNT zEvnt) {
    zos::EvntDeleteBefore(zEvnt, nullptr);
}

KESTRO_API void *Zos_EvntAlloc(ZEVNT zEvnt, uint32_t uiSize) {
    ZosEvnt *e = Checked(zEvnt, "EvntAlloc", ".");
    return e != nullptr ? Zos_CbufAlloc(e->zBuf, uiSize) : nullptr;
}

KESTRO_API void *Zos_EvntAllocClrd(ZEVNT zEvnt, uint32_t uiSize) {
    ZosEvnt *e = Checked(zEvnt, "EvntAllocClrd", ".");
    return e != nullptr ? Zos_CbufAllocClrd(e->zBuf, uiSize) : nullptr;
}

KESTRO_API ZCBUF Zos_EvntGetMemBuf(ZEVNT zEvnt) {
    ZosEvnt *e = Checked(zEvnt, "EvntGetMemBuf");
    return e != nullptr ? e->zBuf : nullptr;
}

KESTRO_API ZCBUF Zos_EvntCloneMemBuf(ZEVNT zEvnt) {
    ZosEvnt *e = Checked(zEvnt, "EvntCloneMemBuf");
    return e != nullptr ? Zos_CbufClone(e->zBuf) : nullptr;
}

KESTRO_API ZMSG Zos_EvntGetMsgId(ZEVNT zEvnt) {
    ZosEvnt *e = Checked(zEvnt, "EvntGetMsgId");
    return e != nullptr ? e->zMsg : nullptr;
}

KESTRO_API uint32_t Zos_EvntSetMsgId(ZEVNT zEvnt, ZMSG zMsg) {
    ZosEvnt *e = Checked(zEvnt, "EvntSetMsgId");
    if (e == nullptr) return ZFAILED;
    e->zMsg = zMsg;
    return ZOK;
}

// ---------------------------------------------------------------------
// Parameter nodes

KESTRO_API uint32_t Zos_EParmAdd(ZEVNT zEvnt, uint32_t uiId, ST_ZOS_EPARM **ppstParm) {
    if (ppstParm != nullptr) *ppstParm = nullptr;
    ZosEvnt *e = Checked(zEvnt, "EParmAdd");
    if (e == nullptr) return ZFAILED;
    ST_ZOS_EPARM *node = AddIn(e, uiId);
    if (node == nullptr) return ZFAILED;
    if (ppstParm != nullptr) *ppstParm = node;
    return ZOK;
}

KESTRO_API uint32_t Zos_EParmRmv(ZEVNT zEvnt, ST_ZOS_EPARM *pstParm) {
    ZosEvnt *e = Checked(zEvnt, "EParmRmv");
    if (e == nullptr || pstParm == nullptr) return ZFAILED;
    return RmvIn(e, pstParm) ? ZOK : ZFAILED;
}

KESTRO_API ST_ZOS_EPARM *Zos_EParmFind(ZEVNT zEvnt, uint32_t uiId, ST_ZOS_SYS_PARM **ppstDflt) {
    if (ppstDflt != nullptr) *ppstDflt = nullptr;
    ZosEvnt *e = Checked(zEvnt, "EParmFind");
    if (e == nullptr) return nullptr;
    if (ppstDflt != nullptr) *ppstDflt = const_cast<ST_ZOS_SYS_PARM *>(DefaultOf(uiId));
    return FindIn(e, uiId);
}

KESTRO_API uint32_t Zos_EParmErase(ZEVNT zEvnt, uint32_t uiId) {
    ZosEvnt *e = Checked(zEvnt, "EParmErase");
    if (e == nullptr) return ZFAILED;
    ST_ZOS_EPARM *node = FindIn(e, uiId);
    return node != nullptr && RmvIn(e, node) ? ZOK : ZFAILED;
}

KESTRO_API ST_ZOS_EVNT_ELEM *Zos_EParmFindZ(ZEVNT zEvnt, uint32_t uiIndex) {
    ZosEvnt *e = Checked(zEvnt, "EParmFindZ");
    if (e == nullptr || uiIndex >= ZOS_EVNT_ELEM_COUNT) return nullptr;
    return &e->astElem[uiIndex];
}

KESTRO_API uint32_t Zos_EParmGetSendTaskId(ZEVNT zEvnt) {
    ZosEvnt *e = Checked(zEvnt, "EParmGetSendTaskId");
    uint32_t send = ZOS_INVALID_ID;
    uint32_t recv = ZOS_INVALID_ID;
    if (e != nullptr) (void)zos::MsgTaskIds(e->zMsg, &send, &recv);
    return send;
}

KESTRO_API uint32_t Zos_EParmGetRecvTaskId(ZEVNT zEvnt) {
    ZosEvnt *e = Checked(zEvnt, "EParmGetRecvTaskId");
    uint32_t send = ZOS_INVALID_ID;
    uint32_t recv = ZOS_INVALID_ID;
    if (e != nullptr) (void)zos::MsgTaskIds(e->zMsg, &send, &recv);
    return recv;
}

// ---------------------------------------------------------------------
// Element slots

KESTRO_API uint32_t Zos_EParmSetMajorType(ZEVNT zEvnt, uint32_t uiType) {
    return SetSlot(zEvnt, ZOS_EVNT_ELEM_MAJOR, uiType);
}

KESTRO_API uint32_t Zos_EParmGetMajorType(ZEVNT zEvnt) {
    return static_cast<uint32_t>(GetSlot(zEvnt, ZOS_EVNT_ELEM_MAJOR, kAbsentType));
}

KESTRO_API uint32_t Zos_EParmSetMinorType(ZEVNT zEvnt, uint32_t uiType) {
    return SetSlot(zEvnt, ZOS_EVNT_ELEM_MINOR, uiType);
}

KESTRO_API uint32_t Zos_EParmGetMinorType(ZEVNT zEvnt) {
    return static_cast<uint32_t>(GetSlot(zEvnt, ZOS_EVNT_ELEM_MINOR, kAbsentType));
}

KESTRO_API uint32_t Zos_EParmSetStatType(ZEVNT zEvnt, uint32_t uiType) {
    return SetSlot(zEvnt, ZOS_EVNT_ELEM_STAT, uiType);
}

KESTRO_API uint32_t Zos_EParmGetStatType(ZEVNT zEvnt) {
    return static_cast<uint32_t>(GetSlot(zEvnt, ZOS_EVNT_ELEM_STAT, 0));
}

KESTRO_API uint32_t Zos_EParmSetStatCode(ZEVNT zEvnt, uint32_t uiCode) {
    return SetSlot(zEvnt, ZOS_EVNT_ELEM_CODE, uiCode);
}

KESTRO_API uint32_t Zos_EParmGetStatCode(ZEVNT zEvnt) {
    return static_cast<uint32_t>(GetSlot(zEvnt, ZOS_EVNT_ELEM_CODE, 0));
}

KESTRO_API uint32_t Zos_EParmSetElemId(ZEVNT zEvnt, uint32_t uiId) {
    return SetSlot(zEvnt, ZOS_EVNT_ELEM_ID, uiId);
}

KESTRO_API uint32_t Zos_EParmGetElemId(ZEVNT zEvnt) {
    return static_cast<uint32_t>(GetSlot(zEvnt, ZOS_EVNT_ELEM_ID, 0));
}

KESTRO_API uint32_t Zos_EParmSetElemMem(ZEVNT zEvnt, void *pMem) {
    return SetSlot(zEvnt, ZOS_EVNT_ELEM_MEM, reinterpret_cast<uintptr_t>(pMem));
}

KESTRO_API void *Zos_EParmGetElemMem(ZEVNT zEvnt) {
    return reinterpret_cast<void *>(GetSlot(zEvnt, ZOS_EVNT_ELEM_MEM, 0));
}

KESTRO_API uint32_t Zos_EParmSetElemData(ZEVNT zEvnt, const void *pData, uint32_t uiLen) {
    ZosEvnt *e = Live(zEvnt);
    if (e == nullptr) return ZFAILED;
    ST_ZOS_EVNT_ELEM &slot = e->astElem[ZOS_EVNT_ELEM_DATA];
    if (pData == nullptr || uiLen == 0) {
        // Length 0: borrowed as given. A null pointer stores nothing.
        slot.uiFlag = pData != nullptr ? uiLen : 0;
        slot.zValue = reinterpret_cast<uintptr_t>(pData);
        return ZOK;
    }
    void *copy = Zos_CbufAlloc(e->zBuf, uiLen);
    if (copy == nullptr) return ZFAILED;
    std::memcpy(copy, pData, uiLen);
    slot.uiFlag = uiLen;
    slot.zValue = reinterpret_cast<uintptr_t>(copy);
    return ZOK;
}

KESTRO_API uint32_t Zos_EParmSetElemDataX(ZEVNT zEvnt, ZDBUF zDbuf) {
    ZosEvnt *e = Live(zEvnt);
    if (e == nullptr || Zos_DbufChkValid(zDbuf, 255, 0, 0) != ZOK) return ZFAILED;
    const uint32_t len = Zos_DbufLen(zDbuf);
    void *copy = nullptr;
    if (len != 0) {
        copy = Zos_CbufAlloc(e->zBuf, len);
        if (copy == nullptr) return ZFAILED;
        if (Zos_DbufCopyD(zDbuf, 0, len, copy) != ZOK) {
            (void)Zos_CbufFree(e->zBuf, copy);
            return ZFAILED;
        }
    }
    ST_ZOS_EVNT_ELEM &slot = e->astElem[ZOS_EVNT_ELEM_DATA];
    slot.uiFlag = len;
    slot.zValue = reinterpret_cast<uintptr_t>(copy);
    return ZOK;
}

KESTRO_API void *Zos_EParmGetElemData(ZEVNT zEvnt, uint32_t *puiLen) {
    if (puiLen != nullptr) *puiLen = 0;
    const ST_ZOS_EVNT_ELEM *s = Slot(zEvnt, ZOS_EVNT_ELEM_DATA);
    if (s == nullptr) return nullptr;
    if (puiLen != nullptr) *puiLen = s->uiFlag;
    return reinterpret_cast<void *>(s->zValue);
}

KESTRO_API uint32_t Zos_EParmSetElemDbuf(ZEVNT zEvnt, ZDBUF zDbuf) {
    ST_ZOS_EVNT_ELEM *s = Slot(zEvnt, ZOS_EVNT_ELEM_DBUF);
    if (s == nullptr) return ZFAILED;
    const auto old = reinterpret_cast<ZDBUF>(s->zValue);
    if (s->uiFlag != 0 && old != nullptr && old != zDbuf) (void)Zos_DbufDelete(old);
    s->uiFlag = zDbuf != nullptr ? 1 : 0;
    s->zValue = reinterpret_cast<uintptr_t>(zDbuf);
    return ZOK;
}

KESTRO_API ZDBUF Zos_EParmGetElemDbuf(ZEVNT zEvnt) {
    return reinterpret_cast<ZDBUF>(GetSlot(zEvnt, ZOS_EVNT_ELEM_DBUF, 0));
}

KESTRO_API uint32_t Zos_EParmClrElemDbuf(ZEVNT zEvnt) {
    ST_ZOS_EVNT_ELEM *s = Slot(zEvnt, ZOS_EVNT_ELEM_DBUF);
    if (s == nullptr) return ZFAILED;
    s->uiFlag = 0;
    s->zValue = 0;
    return ZOK;
}

KESTRO_API uint32_t Zos_EParmSetElemCookie(ZEVNT zEvnt, uintptr_t zCookie) {
    return SetSlot(zEvnt, ZOS_EVNT_ELEM_COOKIE, zCookie);
}

KESTRO_API uintptr_t Zos_EParmGetElemCookie(ZEVNT zEvnt) {
    return GetSlot(zEvnt, ZOS_EVNT_ELEM_COOKIE, 0);
}

// ---------------------------------------------------------------------
// Typed parameters

#define ZOS_EPARM_NUM_PAIR(Name, K, T)                                        \
    KESTRO_API uint32_t Zos_EParmSet##Name(ZEVNT zEvnt, uint32_t uiId, T v) { \
        return SetNum<K>(zEvnt, uiId, v, "EParmSet" #Name);                   \
    }                                                                         \
    KESTRO_API T Zos_EParmGet##Name(ZEVNT zEvnt, uint32_t uiId) {             \
        return GetNum<K>(zEvnt, uiId, "EParmGet" #Name);                      \
    }

ZOS_EPARM_NUM_PAIR(Char, ZOS_EPARM_CHAR, int8_t)
ZOS_EPARM_NUM_PAIR(Uchar, ZOS_EPARM_UCHAR, uint8_t)
ZOS_EPARM_NUM_PAIR(Short, ZOS_EPARM_SHORT, int16_t)
ZOS_EPARM_NUM_PAIR(Ushort, ZOS_EPARM_USHORT, uint16_t)
ZOS_EPARM_NUM_PAIR(Int, ZOS_EPARM_INT, int32_t)
ZOS_EPARM_NUM_PAIR(Uint, ZOS_EPARM_UINT, uint32_t)
ZOS_EPARM_NUM_PAIR(Long, ZOS_EPARM_LONG, long)
ZOS_EPARM_NUM_PAIR(Ulong, ZOS_EPARM_ULONG, unsigned long)
ZOS_EPARM_NUM_PAIR(Int64, ZOS_EPARM_INT64, int64_t)
ZOS_EPARM_NUM_PAIR(Uint64, ZOS_EPARM_UINT64, uint64_t)
ZOS_EPARM_NUM_PAIR(Bool, ZOS_EPARM_BOOL, uint32_t)

#undef ZOS_EPARM_NUM_PAIR

KESTRO_API uint32_t Zos_EParmSetStr(ZEVNT zEvnt, uint32_t uiId, const char *pcStr) {
    ZosEvnt *e = Checked(zEvnt, "EParmSetStr");
    if (e == nullptr) return ZFAILED;
    return SetTextIn(e, uiId, pcStr, Len(pcStr), 1, ZOS_EPARM_STR, "EParmSetStr");
}

KESTRO_API uint32_t Zos_EParmSetNStr(ZEVNT zEvnt, uint32_t uiId, const char *pcStr,
                                     uint32_t uiLen) {
    ZosEvnt *e = Checked(zEvnt, "EParmSetNStr");
    if (e == nullptr) return ZFAILED;
    return SetTextIn(e, uiId, pcStr, pcStr != nullptr ? uiLen : 0, 1, ZOS_EPARM_STR,
                     "EParmSetNStr");
}

KESTRO_API const char *Zos_EParmGetStr(ZEVNT zEvnt, uint32_t uiId) {
    const ZosEvnt *e = Checked(zEvnt, "EParmGetStr");
    return e != nullptr ? GetStrIn(e, uiId, nullptr) : nullptr;
}

KESTRO_API const char *Zos_EParmGetNStr(ZEVNT zEvnt, uint32_t uiId, uint32_t *puiLen) {
    if (puiLen != nullptr) *puiLen = 0;
    const ZosEvnt *e = Checked(zEvnt, "EParmGetNStr");
    return e != nullptr ? GetStrIn(e, uiId, puiLen) : nullptr;
}

KESTRO_API uint32_t Zos_EParmSetUstr(ZEVNT zEvnt, uint32_t uiId, const uint16_t *pusStr) {
    ZosEvnt *e = Checked(zEvnt, "EParmSetUstr");
    if (e == nullptr) return ZFAILED;
    const uint32_t len = pusStr != nullptr ? UstrLen(pusStr) : 0;
    return SetTextIn(e, uiId, pusStr, len, 2, ZOS_EPARM_USTR, "EParmSetUstr");
}

KESTRO_API uint32_t Zos_EParmSetNUStr(ZEVNT zEvnt, uint32_t uiId, const uint16_t *pusStr,
                                      uint32_t uiLen) {
    ZosEvnt *e = Checked(zEvnt, "EParmSetNUStr");
    if (e == nullptr) return ZFAILED;
    return SetTextIn(e, uiId, pusStr, pusStr != nullptr ? uiLen : 0, 2, ZOS_EPARM_USTR,
                     "EParmSetNUStr");
}

KESTRO_API const uint16_t *Zos_EParmGetUstr(ZEVNT zEvnt, uint32_t uiId) {
    const ZosEvnt *e = Checked(zEvnt, "EParmGetUstr");
    return e != nullptr ? GetUstrIn(e, uiId, nullptr) : nullptr;
}

KESTRO_API const uint16_t *Zos_EParmGetNUStr(ZEVNT zEvnt, uint32_t uiId, uint32_t *puiLen) {
    if (puiLen != nullptr) *puiLen = 0;
    const ZosEvnt *e = Checked(zEvnt, "EParmGetNUStr");
    return e != nullptr ? GetUstrIn(e, uiId, puiLen) : nullptr;
}

KESTRO_API uint32_t Zos_EParmSetMem(ZEVNT zEvnt, uint32_t uiId, const void *pData, uint32_t uiLen) {
    ZosEvnt *e = Checked(zEvnt, "EParmSetMem");
    return e != nullptr ? SetMemIn(e, uiId, pData, uiLen, "EParmSetMem") : ZFAILED;
}

KESTRO_API void *Zos_EParmGetMem(ZEVNT zEvnt, uint32_t uiId, uint32_t *puiLen) {
    if (puiLen != nullptr) *puiLen = 0;
    const ZosEvnt *e = Checked(zEvnt, "EParmGetMem");
    return e != nullptr ? GetMemIn(e, uiId, puiLen) : nullptr;
}

KESTRO_API uint32_t Zos_EParmSetPtr(ZEVNT zEvnt, uint32_t uiId, void *pVal) {
    ZosEvnt *e = Checked(zEvnt, "EParmSetPtr");
    if (e == nullptr) return ZFAILED;
    return SetWordIn(e, uiId, ZOS_EPARM_PTR, reinterpret_cast<uintptr_t>(pVal), "EParmSetPtr");
}

KESTRO_API void *Zos_EParmGetPtr(ZEVNT zEvnt, uint32_t uiId) {
    const ZosEvnt *e = Checked(zEvnt, "EParmGetPtr");
    return e != nullptr ? reinterpret_cast<void *>(GetWordIn(e, uiId, ZOS_EPARM_PTR)) : nullptr;
}

KESTRO_API uint32_t Zos_EParmSetCookie(ZEVNT zEvnt, uint32_t uiId, uintptr_t zCookie) {
    ZosEvnt *e = Checked(zEvnt, "EParmSetCookie");
    return e != nullptr ? SetWordIn(e, uiId, ZOS_EPARM_COOKIE, zCookie, "EParmSetCookie") : ZFAILED;
}

KESTRO_API uintptr_t Zos_EParmGetCookie(ZEVNT zEvnt, uint32_t uiId) {
    const ZosEvnt *e = Checked(zEvnt, "EParmGetCookie");
    return e != nullptr ? GetWordIn(e, uiId, ZOS_EPARM_COOKIE) : 0;
}

// ---------------------------------------------------------------------
// Registry: one platform block per component (header and rows), which
// the holder's release frees with the component table.

KESTRO_API uint32_t Zos_SysEvntAttach(uint32_t uiComp, uint32_t uiCapacity) {
    ST_ZOS_COMP_ENTRY *entry = CompEntry(uiComp);
    if (entry == nullptr || entry->pEvntTbl != nullptr || uiCapacity == 0 ||
        uiCapacity > 0x10000u) {
        return ZFAILED;
    }
    const uint32_t size =
        static_cast<uint32_t>(sizeof(ST_ZOS_SYS_EVNT) + uiCapacity * sizeof(ST_ZOS_SYS_PARM));
    auto *tbl = static_cast<ST_ZOS_SYS_EVNT *>(Zos_OsdepAlloc(size));
    if (tbl == nullptr) return ZFAILED;
    tbl->uiCapacity = uiCapacity;
    tbl->uiCount = 0;
    tbl->pstParms = reinterpret_cast<ST_ZOS_SYS_PARM *>(tbl + 1);
    entry->pEvntTbl = tbl;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysEvntDetach(uint32_t uiComp) {
    ST_ZOS_COMP_ENTRY *entry = CompEntry(uiComp);
    if (entry == nullptr) return ZFAILED;
    Zos_OsdepFree(entry->pEvntTbl);
    entry->pEvntTbl = nullptr;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysEvntLocate(uint32_t uiComp, ST_ZOS_SYS_EVNT **ppstTbl) {
    if (ppstTbl != nullptr) *ppstTbl = nullptr;
    ST_ZOS_SYS_EVNT *tbl = TableOf(uiComp);
    if (tbl == nullptr) return ZFAILED;
    if (ppstTbl != nullptr) *ppstTbl = tbl;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysParmAttach(uint32_t uiId, uintptr_t zValue, const char *pcDflt) {
    if ((uiId >> 16) >= ZOS_COMP_COUNT) return ZFAILED;
    ST_ZOS_SYS_EVNT *tbl = TableOf(uiId >> 16);
    if (tbl == nullptr) {
        ZOS_LOG_ERR("SysParmAttach no attach.");
        return ZFAILED;
    }
    if (tbl->uiCount >= tbl->uiCapacity) {
        ZOS_LOG_ERR("SysParmAttach parm full.");
        return ZFAILED;
    }
    ST_ZOS_SYS_PARM &row = tbl->pstParms[tbl->uiCount++];
    row.usNum = static_cast<uint16_t>(uiId & 0xFFFFu);
    row.zValue = zValue;
    row.pcDflt = pcDflt;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysParmLocate(uint32_t uiId, ST_ZOS_SYS_PARM **ppstParm) {
    if (ppstParm != nullptr) *ppstParm = nullptr;
    if ((uiId >> 16) >= ZOS_COMP_COUNT) return ZFAILED;
    ST_ZOS_SYS_EVNT *tbl = TableOf(uiId >> 16);
    if (tbl == nullptr) return ZFAILED;
    const uint32_t num = uiId & 0xFFFFu;
    ST_ZOS_SYS_PARM *row = nullptr;
    if (num < tbl->uiCount && tbl->pstParms[num].usNum == num) {
        row = &tbl->pstParms[num];
    } else {
        for (uint32_t i = 0; i < tbl->uiCount && row == nullptr; ++i) {
            if (tbl->pstParms[i].usNum == num) row = &tbl->pstParms[i];
        }
    }
    if (row == nullptr) {
        ZOS_LOG_ERR("SysParmLocate no parm<%d>.", static_cast<int>(num));
        return ZFAILED;
    }
    if (ppstParm != nullptr) *ppstParm = row;
    return ZOK;
}

}  // extern "C"
