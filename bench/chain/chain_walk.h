// The table's find written again outside the library: the key of the
// built-in value key function, the chain head by mask or remainder, and
// the chain walked through the record's compare function. The benchmark
// compiles it into its own program and into a small shared library of its
// own, to show what the find costs with and without a call across shared
// objects.
#pragma once

#include "kestro_lite.h"

static inline uint32_t KbenchChainWalk(const ST_ZOS_HASH *h, uintptr_t zKeyData, uintptr_t zArg1,
                                       uintptr_t zArg2, uintptr_t *pzItem) {
    if (h == nullptr || h->ppstBucket == nullptr) return 0;
    uint32_t key = 0;
    if (h->pfnKey == Zos_HashKeyFromUint32) {
        key = static_cast<uint32_t>(zArg1);
    } else if (h->pfnKey(zKeyData, zArg1, zArg2, &key) != 0) {
        return 0;
    }
    const uint32_t size = h->uiSize;
    const uint32_t index = (size & (size - 1)) == 0 ? key & (size - 1) : key % size;
    const PFN_ZOS_HASHCMP cmp = h->pfnCmp;
    for (const ST_ZOS_HASH_NODE *n = h->ppstBucket[index]; n != nullptr; n = n->pstNext) {
        if (cmp(n->zItem, zKeyData, zArg1, zArg2) == 0) {
            if (pzItem != nullptr) *pzItem = n->zItem;
            return 1;
        }
    }
    return 0;
}

extern "C" uint32_t KbenchChainWalkShared(const ST_ZOS_HASH *h, uintptr_t zKeyData, uintptr_t zArg1,
                                          uintptr_t zArg2, uintptr_t *pzItem);
