// ABNF token manager: protocol keywords mapped to ids through a fixed hash
// table. The key of a token is its djb2 hash (case-folded for a manager
// that ignores case), mixed with the key class as h * 33 + class * 128,
// which is the hash table's own seeded string key; the token scan computes
// the same key while it scans.
#include <cstring>

#include "abnf_int.h"
#include "zos_live.h"

namespace abnf {

ST_ABNF_TKN_MGR *LiveTknMgr(ST_ABNF_TKN_MGR *mgr) {
    return zos::LiveRecord<ST_ABNF_TKN_MGR>(mgr, ABNF_TKNMGR_MAGIC);
}

}  // namespace abnf

namespace {

template <bool kNoCase>
uint32_t Compare(uintptr_t zEntry, uintptr_t zKeyClass, uintptr_t zText, uintptr_t zLen);

// The table's chain walk with the compare function inlined: the entry of
// (key class, text) under a key, or null.
const ST_ABNF_TKN *FindEntry(const ST_ABNF_TKN_MGR *mgr, uint32_t key, uint16_t keyClass,
                             const char *text, uint32_t len) {
    const ST_ZOS_HASH &hash = mgr->stHash;
    if (hash.ppstBucket == nullptr || hash.uiSize == 0) return nullptr;
    const auto t = reinterpret_cast<uintptr_t>(text);
    for (const ST_ZOS_HASH_NODE *n = hash.ppstBucket[key % hash.uiSize]; n != nullptr;
         n = n->pstNext) {
        const uint32_t differs = mgr->usNoCase != 0 ? Compare<true>(n->zItem, keyClass, t, len)
                                                    : Compare<false>(n->zItem, keyClass, t, len);
        if (differs == 0) return reinterpret_cast<const ST_ABNF_TKN *>(n->zItem);
    }
    return nullptr;
}

template <bool kNoCase>
uint32_t Compare(uintptr_t zEntry, uintptr_t zKeyClass, uintptr_t zText, uintptr_t zLen) {
    const auto *e = reinterpret_cast<const ST_ABNF_TKN *>(zEntry);
    const auto *text = reinterpret_cast<const uint8_t *>(zText);
    if (e == nullptr || e->usKeyClass != static_cast<uint16_t>(zKeyClass) || e->uiLen != zLen) {
        return 1;
    }
    const auto *mine = reinterpret_cast<const uint8_t *>(e->pcText);
    if (zLen == 0) return 0;
    if (mine == nullptr || text == nullptr) return 1;
    if (!kNoCase) return std::memcmp(mine, text, zLen) == 0 ? 0 : 1;
    for (uintptr_t i = 0; i < zLen; i++) {
        if (abnf::Lower(mine[i]) != abnf::Lower(text[i])) return 1;
    }
    return 0;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Abnf_TknHashComp(uintptr_t zEntry, uintptr_t zKeyClass, uintptr_t zText,
                                     uintptr_t zLen) {
    return Compare<false>(zEntry, zKeyClass, zText, zLen);
}

KESTRO_API uint32_t Abnf_TknHashCompNoCase(uintptr_t zEntry, uintptr_t zKeyClass, uintptr_t zText,
                                           uintptr_t zLen) {
    return Compare<true>(zEntry, zKeyClass, zText, zLen);
}

KESTRO_API ST_ABNF_TKN_MGR *Abnf_TknMgrCreate(uint32_t uiId, uint32_t bNoCase,
                                              uint16_t usCapacity) {
    const uint32_t size = sizeof(ST_ABNF_TKN_MGR) + uint32_t{usCapacity} * sizeof(ST_ABNF_TKN);
    auto *mgr = static_cast<ST_ABNF_TKN_MGR *>(Zos_MallocClrd(static_cast<int32_t>(size)));
    if (mgr == nullptr) {
        ZOS_LOG_ERR("AbnfTknMgrCreate malloc.");
        return nullptr;
    }
    mgr->usMgrId = static_cast<uint16_t>(uiId);
    mgr->usNoCase = bNoCase != 0 ? 1 : 0;
    mgr->usCapacity = usCapacity;
    mgr->pstTkns = reinterpret_cast<ST_ABNF_TKN *>(mgr + 1);
    const uint32_t rc = Zos_HashCreate(&mgr->stHash, usCapacity,
                                       bNoCase != 0 ? Zos_HashKeyFromStrNoCase : Zos_HashKeyFromStr,
                                       bNoCase != 0 ? Abnf_TknHashCompNoCase : Abnf_TknHashComp);
    if (rc != ZOK) {
        ZOS_LOG_ERR("AbnfTknMgrCreate create hash.");
        Zos_Free(mgr);
        return nullptr;
    }
    mgr->uiMagic = ABNF_TKNMGR_MAGIC;
    if (!zos::LiveAdd(mgr)) {
        ZOS_LOG_ERR("AbnfTknMgrCreate malloc.");
        Zos_HashDelete(&mgr->stHash);
        Zos_Free(mgr);
        return nullptr;
    }
    return mgr;
}

KESTRO_API uint32_t Abnf_TknMgrDelete(ST_ABNF_TKN_MGR *pstMgr) {
    ST_ABNF_TKN_MGR *mgr = abnf::LiveTknMgr(pstMgr);
    if (mgr == nullptr) {
        ZOS_LOG_ERR("AbnfTknMgrDelete invalid id.");
        return ZFAILED;
    }
    zos::LiveRemove(mgr);
    mgr->uiMagic = 0;
    Zos_HashDelete(&mgr->stHash);
    Zos_Free(mgr);
    return ZOK;
}

KESTRO_API uint32_t Abnf_TknAdd(ST_ABNF_TKN_MGR *pstMgr, uint16_t usKeyClass, const char *pcText,
                                uint32_t uiLen, uint16_t usTknId) {
    ST_ABNF_TKN_MGR *mgr = abnf::LiveTknMgr(pstMgr);
    if (mgr == nullptr) {
        ZOS_LOG_ERR("AbnfTknAdd invalid id.");
        return ZFAILED;
    }
    if (mgr->usCount >= mgr->usCapacity) {
        ZOS_LOG_ERR("AbnfTknAdd table is full.");
        return ZFAILED;
    }
    ST_ABNF_TKN *e = &mgr->pstTkns[mgr->usCount++];
    e->usKeyClass = usKeyClass;
    e->usTknId = usTknId;
    e->pcText = pcText;
    e->uiLen = pcText != nullptr ? uiLen : 0;
    if (Zos_HashInsert(&mgr->stHash, reinterpret_cast<uintptr_t>(e), usKeyClass,
                       reinterpret_cast<uintptr_t>(pcText), e->uiLen) != ZOK) {
        mgr->usCount--;
        ZOS_LOG_ERR("AbnfTknAdd insert token.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_TknFind(ST_ABNF_TKN_MGR *pstMgr, uint16_t usKeyClass, const char *pcText,
                                 uint32_t uiLen) {
    ST_ABNF_TKN_MGR *mgr = abnf::LiveTknMgr(pstMgr);
    if (mgr == nullptr || pcText == nullptr) {
        ZOS_LOG_ERR("AbnfTknFind invalid id.");
        return ABNF_TKN_INVALID;
    }
    // The manager's key function, computed here rather than through the
    // table's function pointer: the same djb2 key, stopping at a NUL.
    const bool nocase = mgr->usNoCase != 0;
    uint32_t h = 5381;
    for (uint32_t i = 0; i < uiLen && pcText[i] != '\0'; i++) {
        h = abnf::HashStep(h, static_cast<uint8_t>(pcText[i]), nocase);
    }
    const uint32_t key = usKeyClass != 0 ? h * 33u + uint32_t{usKeyClass} * 128u : h;
    const ST_ABNF_TKN *e = FindEntry(mgr, key, usKeyClass, pcText, uiLen);
    return e != nullptr ? e->usTknId : ABNF_TKN_UNKNOWN;
}

KESTRO_API uint32_t Abnf_TknFindByKey(ST_ABNF_TKN_MGR *pstMgr, uint16_t usKeyClass, uint32_t uiKey,
                                      const char *pcText, uint32_t uiLen) {
    ST_ABNF_TKN_MGR *mgr = abnf::LiveTknMgr(pstMgr);
    if (mgr == nullptr || pcText == nullptr) {
        ZOS_LOG_ERR("AbnfTknFindByKey invalid id.");
        return ABNF_TKN_INVALID;
    }
    const ST_ABNF_TKN *e = FindEntry(mgr, uiKey, usKeyClass, pcText, uiLen);
    return e != nullptr ? e->usTknId : ABNF_TKN_UNKNOWN;
}

}  // extern "C"
