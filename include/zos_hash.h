/*
 * Chained hash tables with a fixed bucket array and a fixed pool of entry
 * nodes, and the key functions the system's tables share.
 *
 * The table never stores keys. Each entry holds one opaque word (the
 * item); the caller supplies a key function that turns (key data,
 * argument 1, argument 2) into a 32-bit key and a compare function that
 * tells whether a stored item matches (key data, argument 1, argument 2).
 * The bucket array and the node array (and with the A variants the table
 * record itself) live in one arena that goes when the table is deleted.
 * Nothing is allocated after creation and the table never grows. The
 * table takes no lock: callers lock around it.
 */
#ifndef ZOS_HASH_H
#define ZOS_HASH_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Key function: 0 and the key in *puiKey, or non-zero when no key can be
 * made. The key functions below have this type and can be given as is;
 * with them the key data is the seed, argument 1 the text (or the value)
 * and argument 2 the length. */
typedef uint32_t (*PFN_ZOS_HASHKEY)(uintptr_t zKeyData, uintptr_t zArg1, uintptr_t zArg2,
                                    uint32_t *puiKey);
/* Compare function: 0 when the stored item matches the key data. */
typedef uint32_t (*PFN_ZOS_HASHCMP)(uintptr_t zItem, uintptr_t zKeyData, uintptr_t zArg1,
                                    uintptr_t zArg2);

typedef struct tagZOS_HASH_NODE {
    struct tagZOS_HASH_NODE *pstNext;
    uintptr_t zItem;
} ST_ZOS_HASH_NODE;

/* Table record: filled by Zos_HashCreate/Zos_HashCreateX in caller
 * memory, or the first allocation of its own arena with the A variants. */
typedef struct tagZOS_HASH {
    ZCBUF zCbuf;                   /* owns the arrays (and the A record) */
    ST_ZOS_HASH_NODE **ppstBucket; /* hash size chain heads */
    ST_ZOS_HASH_NODE *pstFree;     /* free nodes, last freed first */
    PFN_ZOS_HASHKEY pfnKey;
    PFN_ZOS_HASHCMP pfnCmp;
    uint32_t uiSize; /* number of buckets */
} ST_ZOS_HASH;

/* Creation: 0 / 1. Hash size at most 0x3FFFFFFE, node count at most
 * 0x1FFFFFFE; without a node count it equals the hash size. The A forms
 * make the table's arena a child of zParent (standalone when null) and
 * return the record, held in that arena, through ppstHash. */
KESTRO_API uint32_t Zos_HashCreate(ST_ZOS_HASH *pstHash, uint32_t uiHashSize,
                                   PFN_ZOS_HASHKEY pfnKey, PFN_ZOS_HASHCMP pfnCmp);
KESTRO_API uint32_t Zos_HashCreateX(ST_ZOS_HASH *pstHash, uint32_t uiHashSize, uint32_t uiNodeCount,
                                    PFN_ZOS_HASHKEY pfnKey, PFN_ZOS_HASHCMP pfnCmp);
KESTRO_API uint32_t Zos_HashCreateA(ZCBUF zParent, uint32_t uiHashSize, PFN_ZOS_HASHKEY pfnKey,
                                    PFN_ZOS_HASHCMP pfnCmp, ST_ZOS_HASH **ppstHash);
KESTRO_API uint32_t Zos_HashCreateAX(ZCBUF zParent, uint32_t uiHashSize, uint32_t uiNodeCount,
                                     PFN_ZOS_HASHKEY pfnKey, PFN_ZOS_HASHCMP pfnCmp,
                                     ST_ZOS_HASH **ppstHash);
/* Clears the record and releases the arena (an A record goes with it):
 * 1 for a null table, else 0. */
KESTRO_API uint32_t Zos_HashDelete(ST_ZOS_HASH *pstHash);

/* Adds an item; refused when a stored item compares equal or no node is
 * free. The newest entry of a chain is found first. */
KESTRO_API uint32_t Zos_HashInsert(ST_ZOS_HASH *pstHash, uintptr_t zItem, uintptr_t zKeyData,
                                   uintptr_t zArg1, uintptr_t zArg2);
/* 1 and the item in *pzItem (when not null) if found, else 0. */
KESTRO_API uint32_t Zos_HashFind(ST_ZOS_HASH *pstHash, uintptr_t zKeyData, uintptr_t zArg1,
                                 uintptr_t zArg2, uintptr_t *pzItem);
/* As Zos_HashFind with the key already made. */
KESTRO_API uint32_t Zos_HashFindByKey(ST_ZOS_HASH *pstHash, uint32_t uiKey, uintptr_t zKeyData,
                                      uintptr_t zArg1, uintptr_t zArg2, uintptr_t *pzItem);
/* Unlinks the first matching entry: 0 / 1. */
KESTRO_API uint32_t Zos_HashRemove(ST_ZOS_HASH *pstHash, uintptr_t zKeyData, uintptr_t zArg1,
                                   uintptr_t zArg2);

/* Key functions (seed, data, length or unused, out key), always 0. The
 * string forms are djb2 over at most zLen bytes, stopping at a NUL; the
 * NoCase form counts upper-case letters as lower case; the Uint32 form
 * takes the value itself. A non-zero seed s turns h into
 * h + (s << 7) + (h << 5), in 32-bit arithmetic. */
KESTRO_API uint32_t Zos_HashKeyFromStr(uintptr_t zSeed, uintptr_t zData, uintptr_t zLen,
                                       uint32_t *puiKey);
KESTRO_API uint32_t Zos_HashKeyFromStrNoCase(uintptr_t zSeed, uintptr_t zData, uintptr_t zLen,
                                             uint32_t *puiKey);
KESTRO_API uint32_t Zos_HashKeyFromUint32(uintptr_t zSeed, uintptr_t zData, uintptr_t zExtra,
                                          uint32_t *puiKey);

ZOS_END_DECLS

#endif /* ZOS_HASH_H */
