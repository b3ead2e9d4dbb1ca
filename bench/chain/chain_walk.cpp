// The walk of chain_walk.h as the one export of a shared library.
#include "chain_walk.h"

extern "C" __attribute__((visibility("default"))) uint32_t KbenchChainWalkShared(
    const ST_ZOS_HASH *h, uintptr_t zKeyData, uintptr_t zArg1, uintptr_t zArg2, uintptr_t *pzItem) {
    return KbenchChainWalk(h, zKeyData, zArg1, zArg2, pzItem);
}
