/*
 * Dynamic node bucket: a store of fixed-size nodes carved from blocks that
 * grow by a given number of nodes up to a maximum. Each block carries the
 * marker "ZZZZ" and its own free count; each node carries a tag, "}{Zn"
 * while free and 0xAC1D2D3D while handed out, so a node given back twice or
 * a stray pointer is refused. Counts are 16-bit.
 */
#ifndef ZOS_DBKT_H
#define ZOS_DBKT_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZDBKT; /* node bucket */

/* Node size 0 is refused; a maximum of 0 becomes the initial count (both 0
 * is refused); the initial count is limited to the maximum. The first block
 * holds the initial count; later blocks add min(maximum - total, growth)
 * nodes, and growth 0 keeps the bucket at its first block. With bCheck the
 * block of every node handed out is verified too. Null on failure. */
KESTRO_API ZDBKT Zos_DbktCreate(uint32_t bLocked, uint32_t bCheck, uint32_t uiNodeSize,
                                uint16_t usInitCount, uint16_t usMaxCount, uint16_t usGrowCount);
/* Frees every block; nodes still handed out die with them. */
KESTRO_API uint32_t Zos_DbktDelete(ZDBKT zBkt);
/* A node of at least the requested size, or null when the bucket is at its
 * maximum or memory is short. */
KESTRO_API void *Zos_DbktGetBkt(ZDBKT zBkt);
KESTRO_API uint32_t Zos_DbktPutBkt(ZDBKT zBkt, void *pNode);
/* Free nodes, used nodes (total - free), gets, puts and the peak of used
 * nodes. Every non-null out is set to 0 first. */
KESTRO_API uint32_t Zos_DbktGetCount(ZDBKT zBkt, uint32_t *puiFree, uint32_t *puiUsed,
                                     uint32_t *puiGets, uint32_t *puiPuts, uint32_t *puiPeak);

ZOS_END_DECLS

#endif /* ZOS_DBKT_H */
