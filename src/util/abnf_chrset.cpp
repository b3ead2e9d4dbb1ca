// ABNF character sets: 256 class words, one per byte value, checked by
// their magic word and registered as live handles.
#include <cstring>

#include "abnf_int.h"
#include "zos_live.h"

namespace abnf {

const ST_ABNF_CHRSET *LiveChrset(const ST_ABNF_CHRSET *set) {
    return zos::LiveRecord<const ST_ABNF_CHRSET>(set, ABNF_CHRSET_MAGIC);
}

}  // namespace abnf

namespace {

ST_ABNF_CHRSET *Live(ST_ABNF_CHRSET *set) {
    return zos::LiveRecord<ST_ABNF_CHRSET>(set, ABNF_CHRSET_MAGIC);
}

}  // namespace

extern "C" {

KESTRO_API ST_ABNF_CHRSET *Abnf_ChrsetCreate(uint32_t uiId) {
    auto *set = static_cast<ST_ABNF_CHRSET *>(Zos_MallocClrd(sizeof(ST_ABNF_CHRSET)));
    if (set == nullptr) {
        ZOS_LOG_ERR("AbnfChrsetCreate malloc.");
        return nullptr;
    }
    set->uiId = uiId;
    set->uiMagic = ABNF_CHRSET_MAGIC;
    if (!zos::LiveAdd(set)) {
        Zos_Free(set);
        ZOS_LOG_ERR("AbnfChrsetCreate malloc.");
        return nullptr;
    }
    return set;
}

KESTRO_API uint32_t Abnf_ChrsetDelete(ST_ABNF_CHRSET *pstSet) {
    ST_ABNF_CHRSET *set = Live(pstSet);
    if (set == nullptr) {
        ZOS_LOG_ERR("AbnfChrsetDelete invalid id.");
        return ZFAILED;
    }
    zos::LiveRemove(set);
    set->uiMagic = 0;
    Zos_Free(set);
    return ZOK;
}

KESTRO_API uint32_t Abnf_ChrsetSetStr(ST_ABNF_CHRSET *pstSet, const char *pcText, uint32_t uiMask) {
    ST_ABNF_CHRSET *set = Live(pstSet);
    if (set == nullptr) {
        ZOS_LOG_ERR("AbnfChrsetSetStr invalid magic id.");
        return ZFAILED;
    }
    if (pcText == nullptr) return ZOK;
    // The byte count runs in 16 bits: a text of 65536 bytes or more wraps
    // and only its first (length mod 65536) bytes are marked.
    const uint16_t n = static_cast<uint16_t>(std::strlen(pcText));
    for (uint16_t i = 0; i < n; i++) set->auiClass[static_cast<uint8_t>(pcText[i])] |= uiMask;
    return ZOK;
}

KESTRO_API uint32_t Abnf_ChrsetSetByte(ST_ABNF_CHRSET *pstSet, uint8_t ucByte, uint32_t uiMask) {
    ST_ABNF_CHRSET *set = Live(pstSet);
    if (set == nullptr) {
        ZOS_LOG_ERR("AbnfChrsetSetByte invalid id.");
        return ZFAILED;
    }
    set->auiClass[ucByte] |= uiMask;
    return ZOK;
}

KESTRO_API uint32_t Abnf_ChrsetCopy(ST_ABNF_CHRSET *pstSet, const uint32_t *puiTable,
                                    uint32_t uiCount) {
    if (uiCount != 256) {
        ZOS_LOG_ERR("AbnfChrsetCopy invalid size.");
        return ZFAILED;
    }
    ST_ABNF_CHRSET *set = Live(pstSet);
    if (set == nullptr || puiTable == nullptr) {
        ZOS_LOG_ERR("AbnfChrsetCopy invalid id.");
        return ZFAILED;
    }
    std::memmove(set->auiClass, puiTable, sizeof(set->auiClass));
    return ZOK;
}

KESTRO_API uint32_t Abnf_ChrsetFind(const ST_ABNF_CHRSET *pstSet, uint8_t ucByte, uint32_t uiMask) {
    if (pstSet == nullptr) return 0;
    const ST_ABNF_CHRSET *set = abnf::LiveChrset(pstSet);
    if (set == nullptr) {
        ZOS_LOG_ERR("AbnfChrsetFind invalid id.");
        return 0;
    }
    return (set->auiClass[ucByte] & uiMask) != 0 ? 1 : 0;
}

}  // extern "C"
