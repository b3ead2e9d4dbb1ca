// Object map: ids handed out sequentially from a range, each mapped to an
// object, kept in a red-black tree by id (value 0 while only reserved).
#include "zos_omap.h"
#include "zos_mem.h"
#include "zos_rbt.h"
#include "zos_rbt_int.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kMagic = 0x0B3A9C5D;
constexpr uint32_t kLastUsable = 0xFFFFFFFE;  // 0xFFFFFFFF means "no id"

struct Omap {
    uint32_t uiMagic;
    uint32_t uiFirst; /* first id of the range */
    uint32_t uiLast;  /* last id of the range */
    uint32_t uiNext;  /* where the next allocation starts looking */
    ZRBT zTree;       /* id to object */
};

inline Omap *Valid(ZOMAP zMap) {
    Omap *map = static_cast<Omap *>(zMap);
    return zos::LiveRecord<Omap>(map, kMagic);
}

inline uint32_t After(const Omap *map, uint32_t uiId) {
    return uiId >= map->uiLast ? map->uiFirst : uiId + 1;
}

// The first free id at or after `from` within the range, or false when
// every id from there to the end is taken. Runs of ids in use are walked
// in order through the tree rather than looked up one by one.
bool FreeFrom(const Omap *map, uint32_t from, uint32_t *puiId) {
    ZRBTNODE node = zos::RbtCeil(map->zTree, from);
    uint32_t cand = from;
    while (node != nullptr && Zos_RbtGetKey(node) == cand) {
        if (cand == map->uiLast) return false;
        ++cand;
        node = Zos_RbtNext(map->zTree, node, ZOS_RBT_INORDER);
    }
    *puiId = cand;
    return true;
}

// Fills the enumeration outputs from a node (null: the end).
uint32_t Report(ZRBTNODE node, uint32_t *puiId, void **ppObj) {
    if (node == nullptr) return ZFAILED;
    if (puiId != nullptr) *puiId = static_cast<uint32_t>(Zos_RbtGetKey(node));
    if (ppObj != nullptr) *ppObj = reinterpret_cast<void *>(Zos_RbtGetValue(node));
    return ZOK;
}

}  // namespace

extern "C" {

KESTRO_API ZOMAP Zos_OmapCreate(uint32_t uiFirstId, uint32_t uiRange) {
    if (uiRange == 0 || uiFirstId > kLastUsable || uiRange - 1 > kLastUsable - uiFirstId) {
        ZOS_LOG_ERR("OmapCreate invalid range.");
        return nullptr;
    }
    Omap *map = static_cast<Omap *>(Zos_MallocClrd(static_cast<int32_t>(sizeof(Omap))));
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapCreate alloc mem.");
        return nullptr;
    }
    map->zTree = Zos_RbtCreate(nullptr);
    if (map->zTree == nullptr) {
        ZOS_LOG_ERR("OmapCreate create tree.");
        Zos_Free(map);
        return nullptr;
    }
    if (!zos::LiveAdd(map)) {
        ZOS_LOG_ERR("OmapCreate alloc mem.");
        Zos_RbtDelete(map->zTree);
        Zos_Free(map);
        return nullptr;
    }
    map->uiMagic = kMagic;
    map->uiFirst = uiFirstId;
    map->uiLast = uiFirstId + (uiRange - 1);
    map->uiNext = uiFirstId;
    return map;
}

KESTRO_API void Zos_OmapDelete(ZOMAP zMap) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        if (zMap != nullptr) ZOS_LOG_ERR("OmapDelete invalid id.");
        return;
    }
    zos::LiveRemove(map);
    map->uiMagic = 0;
    Zos_RbtDelete(map->zTree);
    Zos_Free(map);
}

KESTRO_API uint32_t Zos_OmapAllocId(ZOMAP zMap, uint32_t *puiId) {
    Omap *map = Valid(zMap);
    if (map == nullptr || puiId == nullptr) {
        ZOS_LOG_ERR("OmapAllocId invalid id.");
        return ZFAILED;
    }
    *puiId = ZOS_INVALID_ID;
    uint32_t id = 0;
    const uint32_t range = map->uiLast - map->uiFirst + 1;
    // From the cursor to the end of the range, then from its start.
    if (Zos_RbtSize(map->zTree) == range ||
        (!FreeFrom(map, map->uiNext, &id) &&
         (map->uiNext == map->uiFirst || !FreeFrom(map, map->uiFirst, &id)))) {
        ZOS_LOG_ERR("OmapAllocId no free id.");
        return ZFAILED;
    }
    if (Zos_RbtAdd(map->zTree, id, 0) != ZOK) {
        ZOS_LOG_ERR("OmapAllocId add id %u.", id);
        return ZFAILED;
    }
    map->uiNext = After(map, id);
    *puiId = id;
    return ZOK;
}

KESTRO_API uint32_t Zos_OmapFreeId(ZOMAP zMap, uint32_t uiId) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapFreeId invalid id.");
        return ZFAILED;
    }
    if (Zos_RbtRmv(map->zTree, uiId) != ZOK) {
        ZOS_LOG_ERR("OmapFreeId id %u not in use.", uiId);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_OmapMap(ZOMAP zMap, uint32_t uiId, void *pObj) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapMap invalid id.");
        return ZFAILED;
    }
    if (pObj == nullptr) {
        ZOS_LOG_ERR("OmapMap null object.");
        return ZFAILED;
    }
    ZRBTNODE node = Zos_RbtFind(map->zTree, uiId);
    if (node == nullptr) {
        ZOS_LOG_ERR("OmapMap id %u not in use.", uiId);
        return ZFAILED;
    }
    return Zos_RbtMap(map->zTree, uiId, reinterpret_cast<uintptr_t>(pObj));
}

KESTRO_API uint32_t Zos_OmapAdd(ZOMAP zMap, void *pObj, uint32_t *puiId) {
    Omap *map = Valid(zMap);
    if (map == nullptr || puiId == nullptr) {
        ZOS_LOG_ERR("OmapAdd invalid id.");
        return ZFAILED;
    }
    *puiId = ZOS_INVALID_ID;
    if (pObj == nullptr) {
        ZOS_LOG_ERR("OmapAdd null object.");
        return ZFAILED;
    }
    uint32_t id = 0;
    if (Zos_OmapAllocId(map, &id) != ZOK) return ZFAILED;
    if (Zos_RbtMap(map->zTree, id, reinterpret_cast<uintptr_t>(pObj)) != ZOK) {
        Zos_RbtRmv(map->zTree, id);
        return ZFAILED;
    }
    *puiId = id;
    return ZOK;
}

KESTRO_API void *Zos_OmapFind(ZOMAP zMap, uint32_t uiId) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapFind invalid id.");
        return nullptr;
    }
    return reinterpret_cast<void *>(Zos_RbtGetValue(Zos_RbtFind(map->zTree, uiId)));
}

KESTRO_API void *Zos_OmapRemove(ZOMAP zMap, uint32_t uiId) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapRemove invalid id.");
        return nullptr;
    }
    void *obj = reinterpret_cast<void *>(Zos_RbtGetValue(Zos_RbtFind(map->zTree, uiId)));
    if (obj == nullptr) {
        ZOS_LOG_ERR("OmapRemove no object %u.", uiId);
        return nullptr;
    }
    Zos_RbtRmv(map->zTree, uiId);
    return obj;
}

KESTRO_API uint32_t Zos_OmapFirst(ZOMAP zMap, uint32_t *puiId, void **ppObj) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapFirst invalid id.");
        return ZFAILED;
    }
    return Report(Zos_RbtMin(map->zTree), puiId, ppObj);
}

KESTRO_API uint32_t Zos_OmapNext(ZOMAP zMap, uint32_t uiId, uint32_t *puiNextId, void **ppObj) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapNext invalid id.");
        return ZFAILED;
    }
    if (uiId >= map->uiLast) return ZFAILED;
    return Report(zos::RbtCeil(map->zTree, uiId + 1u), puiNextId, ppObj);
}

KESTRO_API uint32_t Zos_OmapCount(ZOMAP zMap) {
    Omap *map = Valid(zMap);
    if (map == nullptr) {
        ZOS_LOG_ERR("OmapCount invalid id.");
        return 0;
    }
    return Zos_RbtSize(map->zTree);
}

}  // extern "C"
