/*
 * Network address helpers: IPv4 and IPv6 text conversion, byte order,
 * descriptor sets and the local address.
 *
 * The text work (both directions for IPv6, address to text for IPv4) is
 * done here; byte order, descriptor sets and IPv4 text to address are
 * platform operations reached through the platform table. Those slots are
 * empty unless a build fills them (Zpand_InetOsdepInstall), and each
 * function then takes its fallback: byte order returns the value unchanged,
 * the others fail with 1.
 *
 * IPv6 text follows the usual rules, with two choices of its own: the
 * longest run of zero groups is written as "::" even when it is a single
 * group, and an address whose first six groups are zero is written as
 * "::a.b.c.d" (five zero groups and 0xffff give "::ffff:a.b.c.d").
 */
#ifndef ZOS_INET_H
#define ZOS_INET_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Address types. */
#define ZOS_INET_IPV4 0u
#define ZOS_INET_IPV6 1u

/* Text sizes with the terminating NUL. */
#define ZOS_INET_IPV4_STR_SIZE 16u
#define ZOS_INET_IPV6_STR_SIZE 44u

/* An address with its port: IPv4 as a 32-bit value in network order (the
 * bytes in memory are the dotted order), IPv6 as 16 bytes. */
typedef struct tagZOS_INET_ADDR {
    uint16_t wType; /* ZOS_INET_IPV4 / ZOS_INET_IPV6 */
    uint16_t wPort;
    union {
        uint32_t uiIpv4;
        uint8_t aucIpv6[16];
    } u;
} ST_ZOS_INET_ADDR;

/* The addresses a name resolves to: a count and up to
 * ZOS_INET_ADDRS_MAX records. */
#define ZOS_INET_ADDRS_MAX 8u
typedef struct tagZOS_INET_ADDRS {
    uint32_t uiCount;
    ST_ZOS_INET_ADDR astAddr[ZOS_INET_ADDRS_MAX];
} ST_ZOS_INET_ADDRS;

/* Descriptor set handle (made by the platform). */
typedef uintptr_t ZFDSET;

/* Dotted text to an IPv4 value in network order, through the platform:
 * 0, or 1 for a null argument, no platform operation or bad text. */
KESTRO_API uint32_t Zos_InetAddr(const char *pcText, uint32_t *puiAddr);
KESTRO_API uint32_t Zos_InetPton4(const char *pcText, uint32_t *puiAddr);

/* IPv4 value (network order) to dotted text in a scratch buffer of the
 * environment, shared by every caller: each call overwrites the previous
 * text. *ppcText is set to "" first. 0 / 1. */
KESTRO_API uint32_t Zos_InetNtoa(uint32_t uiAddr, char **ppcText);
/* The same text, or "0.0.0.0" when it cannot be made. */
KESTRO_API const char *Zos_InetNtoaX(uint32_t uiAddr);

/* Address to text: IPv4 reads four bytes, IPv6 sixteen. The text is
 * copied only when it fits uiSize with its NUL; else 1. */
KESTRO_API uint32_t Zos_InetNtop(uint32_t uiType, const void *pAddr, char *pcBuf, uint32_t uiSize);
KESTRO_API uint32_t Zos_InetNtop6(const uint8_t *pucAddr, char *pcBuf, uint32_t uiSize);

/* Text to address: IPv4 (four bytes, through the platform) or IPv6
 * (sixteen bytes). 0 / 1. */
KESTRO_API uint32_t Zos_InetPton(uint32_t uiType, const char *pcText, void *pAddr);
/* IPv6 text to 16 bytes: up to eight hexadecimal groups of one to four
 * digits, at most one "::" standing for one or more zero groups, and an
 * optional dotted IPv4 tail in place of the last two groups (decimal
 * octets 0..255 without leading zeros). Anything else is 1 and leaves the
 * output untouched. */
KESTRO_API uint32_t Zos_InetPton6(const char *pcText, uint8_t *pucAddr);

/* Address record to text. With no buffer, or *puiSize below 16 (IPv4) or
 * 44 (IPv6), stores the needed size in *puiSize and returns 0; else writes
 * the text, stores its length in *puiSize and returns 0. 1 for a null
 * record or size, an unknown type or a failed conversion. */
KESTRO_API uint32_t Zos_InetIpToStr(const ST_ZOS_INET_ADDR *pstAddr, char *pcBuf,
                                    uint32_t *puiSize);

/* Six bytes as "%02X:%02X:%02X:%02X:%02X:%02X" in an environment scratch
 * buffer (overwritten by the next call). 0 / 1. */
KESTRO_API uint32_t Zos_InetMactoa(const uint8_t *pucMac, char **ppcText);

/* 0 when equal, 1 otherwise (and for null). Type, port and the first
 * 32 bits of the address must match; for IPv6 the rest is then compared
 * as text up to the first zero byte of the second address. */
KESTRO_API uint32_t Zos_InetCmpAddr(const ST_ZOS_INET_ADDR *pstAddr1,
                                    const ST_ZOS_INET_ADDR *pstAddr2);

/* Byte order through the platform; the value unchanged without it. */
KESTRO_API uint32_t Zos_InetNtohl(uint32_t uiVal);
KESTRO_API uint32_t Zos_InetHtonl(uint32_t uiVal);
KESTRO_API uint16_t Zos_InetNtohs(uint16_t wVal);
KESTRO_API uint16_t Zos_InetHtons(uint16_t wVal);

/* Descriptor sets through the platform: 0 / 1 (Zos_InetFdIsset: 1 when
 * the descriptor is in the set, else 0). */
KESTRO_API uint32_t Zos_InetFdCreate(ZFDSET *pzSet);
KESTRO_API uint32_t Zos_InetFdDelete(ZFDSET zSet);
KESTRO_API uint32_t Zos_InetFdZero(ZFDSET zSet);
KESTRO_API uint32_t Zos_InetFdCopy(ZFDSET zDst, ZFDSET zSrc);
KESTRO_API uint32_t Zos_InetFdSet(int32_t iFd, ZFDSET zSet);
KESTRO_API uint32_t Zos_InetFdIsset(int32_t iFd, ZFDSET zSet);
KESTRO_API uint32_t Zos_InetFdClr(int32_t iFd, ZFDSET zSet);

/* The device's current local address as text (IPv4 dotted or IPv6),
 * through the platform: 0, or 1 with "" in the buffer when there is no
 * platform operation, no address or the text does not fit. */
KESTRO_API uint32_t Zos_InetGetLocalIp(char *pcBuf, uint32_t uiSize);

ZOS_END_DECLS

#endif /* ZOS_INET_H */
