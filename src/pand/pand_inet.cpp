// Byte order, descriptor sets, IPv4 text, name resolution and the local
// address.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "pand_heap.h"
#include "pand_jni.h"
#include "zos_inet.h"
#include "zos_log.h"
#include "zos_sys.h"
#include "zpand.h"

namespace {

fd_set *AsSet(uintptr_t z) {
    return reinterpret_cast<fd_set *>(z);
}
bool FdOk(int32_t fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

// Where the local address comes from when something better than the
// interface list is bound (the Java side once loaded).
std::atomic<PFN_ZPAND_LOCAL_IP> g_localIpSource{nullptr};

// Text of the first interface that is up, not loopback and of the family.
bool FirstInterfaceAddress(int family, char *buf, uint32_t size) {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) return false;
    bool found = false;
    for (ifaddrs *it = list; it != nullptr && !found; it = it->ifa_next) {
        if (it->ifa_addr == nullptr || it->ifa_addr->sa_family != family) continue;
        if ((it->ifa_flags & IFF_UP) == 0 || (it->ifa_flags & IFF_LOOPBACK) != 0) continue;
        const void *addr = family == AF_INET
                               ? static_cast<const void *>(
                                     &reinterpret_cast<sockaddr_in *>(it->ifa_addr)->sin_addr)
                               : static_cast<const void *>(
                                     &reinterpret_cast<sockaddr_in6 *>(it->ifa_addr)->sin6_addr);
        found = inet_ntop(family, addr, buf, size) != nullptr;
    }
    freeifaddrs(list);
    return found;
}

// The Java side's "getLocalIP" once bound: true when it gave a text that
// fits.
bool JavaLocalIp(char *buf, uint32_t size) {
    if (g_zZpandNet == nullptr || g_zZpandNetGetLocalIP == nullptr) return false;
    zpand::jni::EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return false;
    auto text =
        static_cast<jstring>(env->CallStaticObjectMethod(g_zZpandNet, g_zZpandNetGetLocalIP));
    if (zpand::jni::ClearException(env) || text == nullptr) return false;
    uint32_t len = 0;
    char *bytes = Zpand_JstringToBytes(env, text, &len);
    env->DeleteLocalRef(text);
    const bool ok = bytes != nullptr && len != 0 && len < size;
    if (ok) std::memcpy(buf, bytes, len + 1);
    std::free(bytes);
    return ok;
}

template <typename F>
ZOS_OSDEP_FUNC AsSlot(F fn) {
    return reinterpret_cast<ZOS_OSDEP_FUNC>(fn);
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

KESTRO_API uint32_t Zpand_InetPton4(const char *pcText, uint32_t *puiAddr) {
    if (pcText == nullptr || puiAddr == nullptr) return ZFAILED;
    in_addr a{};
    if (inet_pton(AF_INET, pcText, &a) != 1) return ZFAILED;
    *puiAddr = a.s_addr;
    return ZOK;
}

KESTRO_API void Zpand_InetSetLocalIpSource(PFN_ZPAND_LOCAL_IP pfnSource) {
    g_localIpSource.store(pfnSource);
}

KESTRO_API uint32_t Zpand_InetGetLocalIp(char *pcBuf, uint32_t uiSize) {
    if (pcBuf == nullptr || uiSize == 0) return ZFAILED;
    pcBuf[0] = '\0';
    PFN_ZPAND_LOCAL_IP source = g_localIpSource.load();
    if (source != nullptr) {
        if (source(pcBuf, uiSize) == ZOK && std::memchr(pcBuf, 0, uiSize) != nullptr &&
            pcBuf[0] != '\0') {
            return ZOK;
        }
        pcBuf[0] = '\0';
        return ZFAILED;
    }
    if (JavaLocalIp(pcBuf, uiSize)) return ZOK;
    if (FirstInterfaceAddress(AF_INET, pcBuf, uiSize)) return ZOK;
    if (FirstInterfaceAddress(AF_INET6, pcBuf, uiSize)) return ZOK;
    pcBuf[0] = '\0';
    return ZFAILED;
}

KESTRO_API uint32_t Zpand_OsInetGetHostByName(const char *pcName, ST_ZOS_INET_ADDRS *pstAddrs) {
    if (pcName == nullptr || pstAddrs == nullptr) return ZFAILED;
    pstAddrs->uiCount = 0;
    addrinfo hints{};
    addrinfo *list = nullptr;
    if (getaddrinfo(pcName, nullptr, &hints, &list) != 0) return ZFAILED;
    for (addrinfo *it = list; it != nullptr; it = it->ai_next) {
        // Results beyond the record's room are not stored.
        if (pstAddrs->uiCount >= ZOS_INET_ADDRS_MAX) break;
        ST_ZOS_INET_ADDR &a = pstAddrs->astAddr[pstAddrs->uiCount];
        char text[ZOS_INET_IPV6_STR_SIZE] = "";
        if (it->ai_family == AF_INET6 && it->ai_addr != nullptr) {
            std::memset(&a, 0, sizeof(a));
            a.wType = ZOS_INET_IPV6;
            std::memcpy(a.u.aucIpv6, &reinterpret_cast<sockaddr_in6 *>(it->ai_addr)->sin6_addr, 16);
            inet_ntop(AF_INET6, a.u.aucIpv6, text, sizeof(text));
            if (std::strcmp(text, "::") != 0) ++pstAddrs->uiCount;
        } else if (it->ai_family == AF_INET && it->ai_addr != nullptr) {
            std::memset(&a, 0, sizeof(a));
            a.wType = ZOS_INET_IPV4;
            a.u.uiIpv4 = reinterpret_cast<sockaddr_in *>(it->ai_addr)->sin_addr.s_addr;
            inet_ntop(AF_INET, &a.u.uiIpv4, text, sizeof(text));
            if (a.u.uiIpv4 != 0) ++pstAddrs->uiCount;
        } else {
            continue;
        }
        Zos_LogDbg(Zos_LogGetZosId(), "OsInetGetHostByName host with first <%d> ip address <%s> .",
                   static_cast<int>(pstAddrs->uiCount), text);
    }
    freeaddrinfo(list);
    return ZOK;
}

KESTRO_API uint32_t Zpand_InetOsdepInstall(void) {
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    if (holder == nullptr || holder->pfnOsdep == nullptr) return ZFAILED;
    const ZOS_OSDEP_FUNC fill[] = {
        AsSlot(Zpand_InetNtohl),     AsSlot(Zpand_InetHtonl),    AsSlot(Zpand_InetNtohs),
        AsSlot(Zpand_InetHtons),     AsSlot(Zpand_InetFdCreate), AsSlot(Zpand_InetFdDelete),
        AsSlot(Zpand_InetFdCopy),    AsSlot(Zpand_InetFdZero),   AsSlot(Zpand_InetFdSet),
        AsSlot(Zpand_InetFdIsset),   AsSlot(Zpand_InetFdClr),    AsSlot(Zpand_InetPton4),
        AsSlot(Zpand_InetGetLocalIp)};
    // Table slots 49 to 61, in the order above.
    std::memcpy(holder->pfnOsdep + 49, fill, sizeof(fill));
    return ZOK;
}

}  // extern "C"
