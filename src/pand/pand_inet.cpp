// Byte order and descriptor sets.
#include <arpa/inet.h>
#include <sys/select.h>

#include <new>

#include "pand_heap.h"
#include "zpand.h"

namespace {

fd_set *AsSet(uintptr_t z) {
    return reinterpret_cast<fd_set *>(z);
}
bool FdOk(int32_t fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zpand_InetNtohl(uint32_t uiVal) {
    return ntohl(uiVal);
}
KESTRO_API uint32_t Zpand_InetHtonl(uint32_t uiVal) {
    return htonl(uiVal);
}
KESTRO_API uint16_t Zpand_InetNtohs(uint16_t wVal) {
    return ntohs(wVal);
}
KESTRO_API uint16_t Zpand_InetHtons(uint16_t wVal) {
    return htons(wVal);
}

KESTRO_API uint32_t Zpand_InetFdCreate(uintptr_t *pzSet) {
    if (pzSet == nullptr) return ZFAILED;
    void *p = zpand::heap::Alloc(sizeof(fd_set));
    if (p == nullptr) return ZFAILED;
    auto *set = new (p) fd_set;
    FD_ZERO(set);
    *pzSet = reinterpret_cast<uintptr_t>(set);
    return ZOK;
}

KESTRO_API uint32_t Zpand_InetFdDelete(uintptr_t zSet) {
    if (zSet == 0) return ZFAILED;
    zpand::heap::Free(AsSet(zSet));
    return ZOK;
}

KESTRO_API uint32_t Zpand_InetFdCopy(uintptr_t zDst, uintptr_t zSrc) {
    if (zDst == 0 || zSrc == 0) return ZFAILED;
    *AsSet(zDst) = *AsSet(zSrc);
    return ZOK;
}

KESTRO_API uint32_t Zpand_InetFdZero(uintptr_t zSet) {
    if (zSet == 0) return ZFAILED;
    FD_ZERO(AsSet(zSet));
    return ZOK;
}

KESTRO_API uint32_t Zpand_InetFdSet(int32_t iFd, uintptr_t zSet) {
    if (zSet == 0 || !FdOk(iFd)) return ZFAILED;
    FD_SET(iFd, AsSet(zSet));
    return ZOK;
}

KESTRO_API uint32_t Zpand_InetFdIsset(int32_t iFd, uintptr_t zSet) {
    if (zSet == 0 || !FdOk(iFd)) return 0;
    return FD_ISSET(iFd, AsSet(zSet)) ? 1u : 0u;
}

KESTRO_API uint32_t Zpand_InetFdClr(int32_t iFd, uintptr_t zSet) {
    if (zSet == 0 || !FdOk(iFd)) return ZFAILED;
    FD_CLR(iFd, AsSet(zSet));
    return ZOK;
}

}  // extern "C"
