// Chained hash tables over a fixed node pool, and the shared key functions.
//
// Finds, inserts and removes make the key of a built-in key function in
// place rather than through the record's pointer, and pick the bucket
// without a division: a power-of-two size is masked, any other takes a
// multiply-based exact remainder whose multiplier the table keeps in its
// arena just before the bucket array (the record's fields stay as callers
// see them). Keys and buckets are exactly those of the call and of %, so
// chains come out the same.
#include "zos_hash.h"
#include "zos_cbuf.h"
#include "zos_fastmod.h"
#include "zos_sys.h"
#include "zos_util.h"

namespace {

using Node = ST_ZOS_HASH_NODE;

constexpr uint32_t kMaxHashSize = 0x3FFFFFFE;
constexpr uint32_t kMaxNodeCount = 0x1FFFFFFE;
// Size argument of the table's arena.
constexpr uint32_t kArenaHint = 64;
constexpr uint32_t kUpperBit = 0x01;  // character class: upper-case letter

inline uint32_t MixSeed(uint32_t h, uintptr_t zSeed) {
    if (zSeed == 0) return h;
    return h + (static_cast<uint32_t>(zSeed) << 7) + (h << 5);
}

// The built-in key functions' bodies, shared by the exported functions and
// the inline road of the tables made with them.
inline uint32_t StrKey(uintptr_t zSeed, uintptr_t zData, uintptr_t zLen) {
    const unsigned char *p = reinterpret_cast<const unsigned char *>(zData);
    uint32_t h = 5381;
    if (p != nullptr) {
        for (uintptr_t i = 0; i < zLen && p[i] != 0; ++i) h = h * 33 + p[i];
    }
    return MixSeed(h, zSeed);
}

inline uint32_t StrNoCaseKey(uintptr_t zSeed, uintptr_t zData, uintptr_t zLen) {
    const unsigned char *p = reinterpret_cast<const unsigned char *>(zData);
    uint32_t h = 5381;
    if (p != nullptr) {
        const uint8_t *ctype = Zos_GetZosCType();
        for (uintptr_t i = 0; i < zLen && p[i] != 0; ++i) {
            uint32_t c = p[i];
            if ((ctype[c + 1] & kUpperBit) != 0) c += 32;
            h = h * 33 + c;
        }
    }
    return MixSeed(h, zSeed);
}

inline uint32_t Uint32Key(uintptr_t zSeed, uintptr_t zData) {
    return MixSeed(static_cast<uint32_t>(zData), zSeed);
}

// The fast-modulo multiplier of the table's size, kept in its arena just
// before the bucket array, with the size it was made for.
struct Shape {
    uint64_t ulMul;
    uint32_t uiSize;
};

// Room for the shape, keeping the bucket array on a 16-byte boundary.
constexpr uint32_t kShapeBytes = (sizeof(Shape) + 15) / 16 * 16;

// A key, or kNoKey when the key function failed.
constexpr uint64_t kNoKey = uint64_t{1} << 32;

// The keys of the string kinds, made directly, and of any other key
// function, called; out of the find's line so that the value kind's road
// stays short.
__attribute__((noinline)) uint64_t OtherKey(PFN_ZOS_HASHKEY pfnKey, uintptr_t zKeyData,
                                            uintptr_t zArg1, uintptr_t zArg2) {
    if (pfnKey == Zos_HashKeyFromStr) return StrKey(zKeyData, zArg1, zArg2);
    if (pfnKey == Zos_HashKeyFromStrNoCase) return StrNoCaseKey(zKeyData, zArg1, zArg2);
    uint32_t uiKey = 0;
    return pfnKey(zKeyData, zArg1, zArg2, &uiKey) == 0 ? uiKey : kNoKey;
}

// The key of (key data, argument 1, argument 2) by the record's key
// function, or kNoKey. The built-in ones are recognised by address and
// their bodies used in place of the call.
__attribute__((always_inline)) inline uint64_t MakeKey(const ST_ZOS_HASH *pstHash,
                                                       uintptr_t zKeyData, uintptr_t zArg1,
                                                       uintptr_t zArg2) {
    const PFN_ZOS_HASHKEY pfnKey = pstHash->pfnKey;
    if (pfnKey == Zos_HashKeyFromUint32) return Uint32Key(zKeyData, zArg1);
    return OtherKey(pfnKey, zKeyData, zArg1, zArg2);
}

// The chain head of a key: key mod hash size. A power-of-two size is
// masked; any other takes the fast remainder while the shape was made for
// the size the record holds (a record changed by hand divides).
__attribute__((always_inline)) inline Node **HeadOf(const ST_ZOS_HASH *pstHash, uint32_t uiKey) {
    const uint32_t uiSize = pstHash->uiSize;
    uint32_t index;
    if ((uiSize & (uiSize - 1)) == 0) {
        index = uiKey & (uiSize - 1);
    } else {
        const auto *shape = reinterpret_cast<const Shape *>(
            reinterpret_cast<const char *>(pstHash->ppstBucket) - kShapeBytes);
        index =
            shape->uiSize == uiSize ? zos::FastMod(uiKey, shape->ulMul, uiSize) : uiKey % uiSize;
    }
    return &pstHash->ppstBucket[index];
}

// Texts of one creating entry point.
struct CreateTexts {
    const char *pcNullParm;
    const char *pcHashBig;
    const char *pcNodeBig;
    const char *pcCreateBuf;
    const char *pcAllocMem;
};

constexpr CreateTexts kTextsX = {"HashCreateX null parameter(s).", "HashCreateX hash size too big.",
                                 "HashCreateX node size too big.",
                                 "HashCreateX create memory buffer.", "HashCreateX alloc mem."};
constexpr CreateTexts kTextsAX = {"HashCreateAX null parameter(s).",
                                  "HashCreateAX hash size too big.",
                                  "HashCreateAX node size too big.",
                                  "HashCreateAX create memory buffer.", "HashCreateAX alloc mem."};

bool CheckSizes(const CreateTexts &texts, uint32_t uiHashSize, uint32_t uiNodeCount) {
    if (uiHashSize > kMaxHashSize) {
        ZOS_LOG_ERR(texts.pcHashBig);
        return false;
    }
    if (uiNodeCount > kMaxNodeCount) {
        ZOS_LOG_ERR(texts.pcNodeBig);
        return false;
    }
    return true;
}

// Takes the cleared bucket and node arrays from the table's arena, chains
// the nodes into the free list and fills the record. The caller deletes
// the arena on failure.
bool Build(const CreateTexts &texts, ST_ZOS_HASH *pstHash, ZCBUF zCbuf, uint32_t uiHashSize,
           uint32_t uiNodeCount, PFN_ZOS_HASHKEY pfnKey, PFN_ZOS_HASHCMP pfnCmp) {
    // The arrays can exceed what one arena request can carry (with 64-bit
    // pointers, or the shape added to a near-4 GB bucket array); such a
    // table cannot be had.
    const uint64_t bucketBytes = kShapeBytes + uint64_t{uiHashSize} * sizeof(Node *);
    const uint64_t nodeBytes = uint64_t{uiNodeCount} * sizeof(Node);
    void *front = nullptr;
    void *nodes = nullptr;
    if (bucketBytes <= UINT32_MAX && nodeBytes <= UINT32_MAX) {
        front = Zos_CbufAllocClrd(zCbuf, static_cast<uint32_t>(bucketBytes));
        if (front != nullptr) nodes = Zos_CbufAllocClrd(zCbuf, static_cast<uint32_t>(nodeBytes));
    }
    if (nodes == nullptr) {
        ZOS_LOG_ERR(texts.pcAllocMem);
        return false;
    }
    auto *shape = static_cast<Shape *>(front);
    shape->ulMul = zos::FastModMul(uiHashSize);
    shape->uiSize = uiHashSize;
    void *buckets = static_cast<char *>(front) + kShapeBytes;
    Node *node = static_cast<Node *>(nodes);
    for (uint32_t i = 0; i + 1 < uiNodeCount; ++i) node[i].pstNext = &node[i + 1];
    pstHash->zCbuf = zCbuf;
    pstHash->ppstBucket = static_cast<Node **>(buckets);
    pstHash->pstFree = node;
    pstHash->pfnKey = pfnKey;
    pstHash->pfnCmp = pfnCmp;
    pstHash->uiSize = uiHashSize;
    return true;
}

__attribute__((always_inline)) inline Node *FindInChain(const ST_ZOS_HASH *pstHash, uint32_t uiKey,
                                                        uintptr_t zKeyData, uintptr_t zArg1,
                                                        uintptr_t zArg2) {
    const PFN_ZOS_HASHCMP pfnCmp = pstHash->pfnCmp;
    for (Node *node = *HeadOf(pstHash, uiKey); node != nullptr; node = node->pstNext) {
        if (pfnCmp(node->zItem, zKeyData, zArg1, zArg2) == 0) return node;
    }
    return nullptr;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_HashCreate(ST_ZOS_HASH *pstHash, uint32_t uiHashSize,
                                   PFN_ZOS_HASHKEY pfnKey, PFN_ZOS_HASHCMP pfnCmp) {
    return Zos_HashCreateX(pstHash, uiHashSize, uiHashSize, pfnKey, pfnCmp);
}

KESTRO_API uint32_t Zos_HashCreateX(ST_ZOS_HASH *pstHash, uint32_t uiHashSize, uint32_t uiNodeCount,
                                    PFN_ZOS_HASHKEY pfnKey, PFN_ZOS_HASHCMP pfnCmp) {
    const CreateTexts &texts = kTextsX;
    if (pstHash == nullptr || uiHashSize == 0 || uiNodeCount == 0 || pfnKey == nullptr ||
        pfnCmp == nullptr) {
        ZOS_LOG_ERR(texts.pcNullParm);
        return ZFAILED;
    }
    if (!CheckSizes(texts, uiHashSize, uiNodeCount)) return ZFAILED;
    ZCBUF zCbuf = Zos_CbufCreate(kArenaHint);
    if (zCbuf == nullptr) {
        ZOS_LOG_ERR(texts.pcCreateBuf);
        return ZFAILED;
    }
    if (!Build(texts, pstHash, zCbuf, uiHashSize, uiNodeCount, pfnKey, pfnCmp)) {
        Zos_CbufDelete(zCbuf);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_HashCreateA(ZCBUF zParent, uint32_t uiHashSize, PFN_ZOS_HASHKEY pfnKey,
                                    PFN_ZOS_HASHCMP pfnCmp, ST_ZOS_HASH **ppstHash) {
    return Zos_HashCreateAX(zParent, uiHashSize, uiHashSize, pfnKey, pfnCmp, ppstHash);
}

KESTRO_API uint32_t Zos_HashCreateAX(ZCBUF zParent, uint32_t uiHashSize, uint32_t uiNodeCount,
                                     PFN_ZOS_HASHKEY pfnKey, PFN_ZOS_HASHCMP pfnCmp,
                                     ST_ZOS_HASH **ppstHash) {
    const CreateTexts &texts = kTextsAX;
    if (ppstHash == nullptr || uiHashSize == 0 || uiNodeCount == 0 || pfnKey == nullptr ||
        pfnCmp == nullptr) {
        ZOS_LOG_ERR(texts.pcNullParm);
        return ZFAILED;
    }
    *ppstHash = nullptr;
    if (!CheckSizes(texts, uiHashSize, uiNodeCount)) return ZFAILED;
    void *record = nullptr;
    ZCBUF zCbuf = Zos_CbufCreateXD(zParent, kArenaHint, sizeof(ST_ZOS_HASH), &record);
    if (zCbuf == nullptr) {
        ZOS_LOG_ERR(texts.pcCreateBuf);
        return ZFAILED;
    }
    ST_ZOS_HASH *pstHash = static_cast<ST_ZOS_HASH *>(record);
    if (!Build(texts, pstHash, zCbuf, uiHashSize, uiNodeCount, pfnKey, pfnCmp)) {
        Zos_CbufDelete(zCbuf);
        return ZFAILED;
    }
    *ppstHash = pstHash;
    return ZOK;
}

KESTRO_API uint32_t Zos_HashDelete(ST_ZOS_HASH *pstHash) {
    if (pstHash == nullptr) return ZFAILED;
    // The record may live in the arena itself: take the handle first.
    ZCBUF zCbuf = pstHash->zCbuf;
    *pstHash = ST_ZOS_HASH{};
    Zos_CbufDelete(zCbuf);
    return ZOK;
}

KESTRO_API uint32_t Zos_HashInsert(ST_ZOS_HASH *pstHash, uintptr_t zItem, uintptr_t zKeyData,
                                   uintptr_t zArg1, uintptr_t zArg2) {
    if (pstHash == nullptr || pstHash->ppstBucket == nullptr) return ZFAILED;
    uint64_t ulKey = MakeKey(pstHash, zKeyData, zArg1, zArg2);
    if (ulKey == kNoKey) {
        ZOS_LOG_ERR("HashInsert hash key make.");
        return ZFAILED;
    }
    if (FindInChain(pstHash, static_cast<uint32_t>(ulKey), zKeyData, zArg1, zArg2) != nullptr) {
        ZOS_LOG_ERR("HashInsert item exist.");
        return ZFAILED;
    }
    Node *node = pstHash->pstFree;
    if (node == nullptr) {
        ZOS_LOG_ERR("HashInsert no node is free.");
        return ZFAILED;
    }
    pstHash->pstFree = node->pstNext;
    // The node is already off the free list: when the second key making
    // fails it stays lost to the table until the table is deleted.
    ulKey = MakeKey(pstHash, zKeyData, zArg1, zArg2);
    if (ulKey == kNoKey) {
        ZOS_LOG_ERR("HashInsert hash key make.");
        return ZFAILED;
    }
    Node **head = HeadOf(pstHash, static_cast<uint32_t>(ulKey));
    node->zItem = zItem;
    node->pstNext = *head;
    *head = node;
    return ZOK;
}

KESTRO_API uint32_t Zos_HashFind(ST_ZOS_HASH *pstHash, uintptr_t zKeyData, uintptr_t zArg1,
                                 uintptr_t zArg2, uintptr_t *pzItem) {
    if (pstHash == nullptr || pstHash->ppstBucket == nullptr) return 0;
    const uint64_t ulKey = MakeKey(pstHash, zKeyData, zArg1, zArg2);
    if (ulKey == kNoKey) return 0;
    Node *node = FindInChain(pstHash, static_cast<uint32_t>(ulKey), zKeyData, zArg1, zArg2);
    if (node == nullptr) return 0;
    if (pzItem != nullptr) *pzItem = node->zItem;
    return 1;
}

KESTRO_API uint32_t Zos_HashFindByKey(ST_ZOS_HASH *pstHash, uint32_t uiKey, uintptr_t zKeyData,
                                      uintptr_t zArg1, uintptr_t zArg2, uintptr_t *pzItem) {
    if (pstHash == nullptr || pstHash->ppstBucket == nullptr) return 0;
    Node *node = FindInChain(pstHash, uiKey, zKeyData, zArg1, zArg2);
    if (node == nullptr) return 0;
    if (pzItem != nullptr) *pzItem = node->zItem;
    return 1;
}

KESTRO_API uint32_t Zos_HashRemove(ST_ZOS_HASH *pstHash, uintptr_t zKeyData, uintptr_t zArg1,
                                   uintptr_t zArg2) {
    if (pstHash == nullptr || pstHash->ppstBucket == nullptr) return ZFAILED;
    const uint64_t ulKey = MakeKey(pstHash, zKeyData, zArg1, zArg2);
    Node *node = nullptr;
    Node **link = nullptr;
    if (ulKey != kNoKey) {
        for (link = HeadOf(pstHash, static_cast<uint32_t>(ulKey)); *link != nullptr;
             link = &(*link)->pstNext) {
            if (pstHash->pfnCmp((*link)->zItem, zKeyData, zArg1, zArg2) == 0) {
                node = *link;
                break;
            }
        }
    }
    if (node == nullptr) {
        ZOS_LOG_ERR("HashRemove node item is not existed.");
        return ZFAILED;
    }
    *link = node->pstNext;
    node->zItem = 0;
    node->pstNext = pstHash->pstFree;
    pstHash->pstFree = node;
    return ZOK;
}

KESTRO_API uint32_t Zos_HashKeyFromStr(uintptr_t zSeed, uintptr_t zData, uintptr_t zLen,
                                       uint32_t *puiKey) {
    if (puiKey != nullptr) *puiKey = StrKey(zSeed, zData, zLen);
    return ZOK;
}

KESTRO_API uint32_t Zos_HashKeyFromStrNoCase(uintptr_t zSeed, uintptr_t zData, uintptr_t zLen,
                                             uint32_t *puiKey) {
    if (puiKey != nullptr) *puiKey = StrNoCaseKey(zSeed, zData, zLen);
    return ZOK;
}

KESTRO_API uint32_t Zos_HashKeyFromUint32(uintptr_t zSeed, uintptr_t zData, uintptr_t,
                                          uint32_t *puiKey) {
    if (puiKey != nullptr) *puiKey = Uint32Key(zSeed, zData);
    return ZOK;
}

}  // extern "C"
