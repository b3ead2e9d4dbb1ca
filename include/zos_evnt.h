/*
 * Events: reference-counted records with fixed element slots and typed
 * parameters keyed by number. Everything an event owns (the record,
 * parameter nodes, copied texts and memory) lives in one arena
 * (zos_cbuf.h) of 512-byte blocks, so deleting the event frees it all at
 * once. An event has no lock: it belongs to one thread at a time.
 *
 * Parameter ids: (component << 16) | number. A parameter is never
 * overwritten: a second set of the same id fails and keeps the first value.
 *
 * Reading a parameter: stored with the getter's own kind gives its value;
 * stored with another kind gives the registry default of the id (see
 * Zos_SysParmAttach), converted from its text by the numeric getters, or
 * 0 / null when the id has no registry row; absent gives 0 / null. A
 * getter never logs a missing parameter.
 *
 * Every call checks the handle first (a deleted event is refused without
 * reading its memory) and logs "<name> invalid id" for a bad one.
 */
#ifndef ZOS_EVNT_H
#define ZOS_EVNT_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZEVNT; /* event */
typedef void *ZMSG;  /* message (zos_msg.h) */

/* Block size of an event's own arena. */
#define ZOS_EVNT_BLOCK_SIZE 512u
/* Parameter chains of an event: parameter n lives in chain n % 7. */
#define ZOS_EVNT_BUCKETS 7u
/* Most references an event can hold. */
#define ZOS_EVNT_REF_MAX 65535u

/* A parameter id from a component index and a number. */
#define ZOS_EPARM_ID(comp, num) ((((uint32_t)(comp)) << 16) | ((uint32_t)(num)&0xFFFFu))

/* Parameter kinds, as stored in a node. */
#define ZOS_EPARM_CHAR 1u    /* int8_t */
#define ZOS_EPARM_UCHAR 2u   /* uint8_t */
#define ZOS_EPARM_SHORT 3u   /* int16_t */
#define ZOS_EPARM_USHORT 4u  /* uint16_t */
#define ZOS_EPARM_INT 5u     /* int32_t */
#define ZOS_EPARM_UINT 6u    /* uint32_t */
#define ZOS_EPARM_LONG 7u    /* long (32 bits on 32-bit ARM) */
#define ZOS_EPARM_ULONG 8u   /* unsigned long */
#define ZOS_EPARM_INT64 9u   /* int64_t */
#define ZOS_EPARM_UINT64 10u /* uint64_t */
#define ZOS_EPARM_BOOL 11u   /* uint32_t, 0 or not */
#define ZOS_EPARM_STR 12u    /* text copied into the arena, NUL-terminated */
#define ZOS_EPARM_USTR 13u   /* 16-bit text copied into the arena, 0-terminated */
#define ZOS_EPARM_MEM 14u    /* bytes copied into the arena, with their length */
#define ZOS_EPARM_PTR 15u    /* pointer, not copied */
#define ZOS_EPARM_COOKIE 16u /* opaque pointer-sized word */

/* Bytes of the binary type list (Zos_EvntCreateFmt, Zos_EvntRead). The
 * n-th byte gives the kind of parameter n. Variadic arguments, creating /
 * reading:
 *   1 boolean      unsigned int            / uint32_t *
 *   2 uint32_t     unsigned int            / uint32_t *
 *   3 unsigned long unsigned long          / unsigned long *
 *   4 uint16_t     unsigned int (promoted) / uint16_t *
 *   5 uint8_t      unsigned int (promoted) / uint8_t *
 *   6 text         const char *            / const char **
 *   7 pointer      void *                  / void **
 *   8 memory       const void *, unsigned int length (taken as 0 when the
 *                  pointer is null)        / void **, uint32_t *
 *  10 cookie       uintptr_t               / uintptr_t *
 * Any other byte (9 included) is refused. */
#define ZOS_EVNT_FMT_END 0
#define ZOS_EVNT_FMT_BOOL 1
#define ZOS_EVNT_FMT_UINT 2
#define ZOS_EVNT_FMT_ULONG 3
#define ZOS_EVNT_FMT_USHORT 4
#define ZOS_EVNT_FMT_UCHAR 5
#define ZOS_EVNT_FMT_STR 6
#define ZOS_EVNT_FMT_PTR 7
#define ZOS_EVNT_FMT_MEM 8
#define ZOS_EVNT_FMT_COOKIE 10

/* Element slots (Zos_EParmFindZ). An absent slot reads as its default. */
#define ZOS_EVNT_ELEM_MAJOR 0u  /* major type, absent 0xFFFFFFFF (-1) */
#define ZOS_EVNT_ELEM_MINOR 1u  /* minor type, absent 0xFFFFFFFF (-1) */
#define ZOS_EVNT_ELEM_STAT 2u   /* status type, absent 0 */
#define ZOS_EVNT_ELEM_CODE 3u   /* status code, absent 0 */
#define ZOS_EVNT_ELEM_ID 4u     /* element id, absent 0 */
#define ZOS_EVNT_ELEM_MEM 5u    /* element memory (pointer), absent null */
#define ZOS_EVNT_ELEM_DATA 6u   /* element data: flag = length, value = pointer */
#define ZOS_EVNT_ELEM_DBUF 7u   /* element data buffer (owned), absent null */
#define ZOS_EVNT_ELEM_COOKIE 8u /* element cookie, absent 0 */
#define ZOS_EVNT_ELEM_USER 9u   /* 9 to 13: free for the user (9, 10: messages) */
#define ZOS_EVNT_ELEM_COUNT 14u

/* One element slot: a present flag (or, for the data slots, the length)
 * and a pointer-sized value. */
typedef struct tagZOS_EVNT_ELEM {
    uint32_t uiFlag;
    uintptr_t zValue;
} ST_ZOS_EVNT_ELEM;

/* A parameter node, allocated from the event's arena. The value is read
 * and written by the setters and getters: 32-bit and pointer-sized kinds in
 * zWord, 64-bit kinds in the eight bytes (the node is only pointer-aligned,
 * so 64-bit values are copied bytewise). uiLen: bytes of a memory value,
 * characters of a text (the terminator not counted). */
typedef struct tagZOS_EPARM {
    struct tagZOS_EPARM *pstNext;
    uint32_t uiKind;
    uint32_t uiLen;
    uint32_t uiId;
    union {
        uintptr_t zWord;
        uint8_t aucBytes[8];
    } u;
} ST_ZOS_EPARM;

/* A row of a component's event-parameter registry. pcDflt is the default
 * that getters give for a parameter stored with another kind: numeric
 * getters convert the text (a text that does not convert gives 0), text,
 * memory and pointer getters return the text itself (memory with its
 * length), the cookie getter its address, the 16-bit text getters null.
 * zValue is the caller's word, kept and not read by the layer. */
typedef struct tagZOS_SYS_PARM {
    uint16_t usNum;
    uintptr_t zValue;
    const char *pcDflt;
} ST_ZOS_SYS_PARM;

/* A component's registry: rows appended up to the capacity. */
typedef struct tagZOS_SYS_EVNT {
    uint32_t uiCapacity;
    uint32_t uiCount;
    ST_ZOS_SYS_PARM *pstParms;
} ST_ZOS_SYS_EVNT;

/* ---- life ------------------------------------------------------------- */

/* A new event with one reference in a new arena; null and "EvntCreate
 * alloc memory." on failure. */
KESTRO_API ZEVNT Zos_EvntCreate(void);
/* With an arena: the record is allocated there and the event holds one
 * more reference to the arena ("EvntCreateX alloc memory." on failure);
 * without: as Zos_EvntCreate. */
KESTRO_API ZEVNT Zos_EvntCreateX(ZCBUF zBuf);
/* Create and fill from the binary type list (ZOS_EVNT_FMT_*): parameter
 * numbers 0, 1, 2 ... Null on any failure, the event deleted: "EvntCreateFmtX
 * null format.", "EvntCreateFmtX create event.", "EvntCreateFmtX unknown
 * type %d.". */
KESTRO_API ZEVNT Zos_EvntCreateFmt(const char *pcFormat, ...);
KESTRO_API ZEVNT Zos_EvntCreateFmtX(const char *pcFormat, va_list vaArgs);
/* Create and fill from a text format. Characters other than conversions
 * are skipped; a conversion is '%', optional '*', optional 'z', optional
 * 'h' or 'l' (counted) and one of d u s p; each makes the next parameter.
 * Kinds and variadic arguments (creating / reading):
 *   %d %u      int32_t / uint32_t        int / unsigned int      (pointer to the type)
 *   %hd %hu    int16_t / uint16_t        int (promoted)           int16_t *, uint16_t *
 *   %hhd %hhu  int8_t / uint8_t          int (promoted)           int8_t *, uint8_t *
 *   %ld %lu    long / unsigned long      long / unsigned long     long *, unsigned long *
 *   %lld %llu  int64_t / uint64_t        int64_t / uint64_t       int64_t *, uint64_t *
 *   %zu        cookie                    uintptr_t (size_t)       uintptr_t *
 *   %zd        long (signed size word)   long (ssize_t)           long *
 *   %s         text                      const char *             const char **
 *   %p         pointer                   void *                   void **
 *   %*s %*p    memory                    const void *, then an unsigned int
 *                                        length                   void **, uint32_t *
 * A star changes only 's' and 'p' (any number of stars counts as one);
 * with 'd' or 'u' it is ignored. 'z' overrides 'h' and 'l'; with 's' or
 * 'p' it is ignored. 'h' and 'l' together: the 'l' count decides. Any
 * other letter (the end of the text included, as 0) fails: "EvntCreateFmtSX
 * unknown type %d."; also "EvntCreateFmtSX null format.", "EvntCreateFmtSX
 * create event.". Failure deletes the event and returns null. */
KESTRO_API ZEVNT Zos_EvntCreateFmtS(const char *pcFormat, ...);
KESTRO_API ZEVNT Zos_EvntCreateFmtSX(const char *pcFormat, va_list vaArgs);

/* Read parameters 0, 1, 2 ... back through the caller's pointers by the
 * same binary list; an absent parameter reads as 0 / null. 0 on success;
 * 1 with "EvntReadX null parameter." or "EvntReadX unknown type %d.". */
KESTRO_API uint32_t Zos_EvntRead(ZEVNT zEvnt, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_EvntReadX(ZEVNT zEvnt, const char *pcFormat, va_list vaArgs);
/* The same by the text format; texts "EvntReadSX null parameter." and
 * "EvntReadSX unknown type %d.". */
KESTRO_API uint32_t Zos_EvntReadS(ZEVNT zEvnt, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_EvntReadSX(ZEVNT zEvnt, const char *pcFormat, va_list vaArgs);

/* Adds a reference and returns the same event; null and "EvntClone too
 * many reference." at 65535 references (the count is kept). */
KESTRO_API ZEVNT Zos_EvntClone(ZEVNT zEvnt);
/* Drops a reference; the last one deletes the element data buffer (slot
 * 7), clears the magic and drops the arena. Null is ignored; a bad handle
 * logs "EvntDelete invalid id.". */
KESTRO_API void Zos_EvntDelete(ZEVNT zEvnt);

/* Memory from the event's arena, freed with the event. */
KESTRO_API void *Zos_EvntAlloc(ZEVNT zEvnt, uint32_t uiSize);
KESTRO_API void *Zos_EvntAllocClrd(ZEVNT zEvnt, uint32_t uiSize);
/* The event's arena, and a new reference to it (the caller deletes it). */
KESTRO_API ZCBUF Zos_EvntGetMemBuf(ZEVNT zEvnt);
KESTRO_API ZCBUF Zos_EvntCloneMemBuf(ZEVNT zEvnt);

/* The message that carries the event (the full handle), null if none. */
KESTRO_API ZMSG Zos_EvntGetMsgId(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EvntSetMsgId(ZEVNT zEvnt, ZMSG zMsg);

/* ---- parameter nodes -------------------------------------------------- */

/* A new node for the id, kind 0, appended at the end of its chain (no
 * search: use the setters to keep ids unique). */
KESTRO_API uint32_t Zos_EParmAdd(ZEVNT zEvnt, uint32_t uiId, ST_ZOS_EPARM **ppstParm);
/* Unlinks the node and gives its memory back to the arena (a copied value
 * stays until the event dies). 1 when the node is not in the event. */
KESTRO_API uint32_t Zos_EParmRmv(ZEVNT zEvnt, ST_ZOS_EPARM *pstParm);
/* The node of the id, or null. When ppstDflt is non-null it receives the
 * registry row of the id (null when none; looked up only when asked). */
KESTRO_API ST_ZOS_EPARM *Zos_EParmFind(ZEVNT zEvnt, uint32_t uiId, ST_ZOS_SYS_PARM **ppstDflt);
/* Removes the parameter of the id; 1 when absent (silently) or bad handle. */
KESTRO_API uint32_t Zos_EParmErase(ZEVNT zEvnt, uint32_t uiId);
/* The element slot of the index; null for 14 or more. */
KESTRO_API ST_ZOS_EVNT_ELEM *Zos_EParmFindZ(ZEVNT zEvnt, uint32_t uiIndex);

/* Sender and receiver of the carrying message; 0xFFFFFFFF when the event
 * has none or it was deleted. */
KESTRO_API uint32_t Zos_EParmGetSendTaskId(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EParmGetRecvTaskId(ZEVNT zEvnt);

/* ---- element slots: setters 0 / 1, getters the value or the absent value;
 * silent on a bad handle. Setting a slot again replaces its value. ---- */

KESTRO_API uint32_t Zos_EParmSetMajorType(ZEVNT zEvnt, uint32_t uiType);
KESTRO_API uint32_t Zos_EParmGetMajorType(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EParmSetMinorType(ZEVNT zEvnt, uint32_t uiType);
KESTRO_API uint32_t Zos_EParmGetMinorType(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EParmSetStatType(ZEVNT zEvnt, uint32_t uiType);
KESTRO_API uint32_t Zos_EParmGetStatType(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EParmSetStatCode(ZEVNT zEvnt, uint32_t uiCode);
KESTRO_API uint32_t Zos_EParmGetStatCode(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EParmSetElemId(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmGetElemId(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EParmSetElemMem(ZEVNT zEvnt, void *pMem);
KESTRO_API void *Zos_EParmGetElemMem(ZEVNT zEvnt);
/* With a length the bytes are copied into the arena (1 when that fails,
 * the slot unchanged); with length 0 the pointer is borrowed as given. */
KESTRO_API uint32_t Zos_EParmSetElemData(ZEVNT zEvnt, const void *pData, uint32_t uiLen);
/* The bytes of a data buffer copied into the arena as the element data
 * (an empty buffer stores null, length 0); the buffer stays the caller's. */
KESTRO_API uint32_t Zos_EParmSetElemDataX(ZEVNT zEvnt, ZDBUF zDbuf);
KESTRO_API void *Zos_EParmGetElemData(ZEVNT zEvnt, uint32_t *puiLen);
/* The event takes the buffer over and deletes it when it dies; a buffer
 * already there is deleted first (unless it is the same one). */
KESTRO_API uint32_t Zos_EParmSetElemDbuf(ZEVNT zEvnt, ZDBUF zDbuf);
KESTRO_API ZDBUF Zos_EParmGetElemDbuf(ZEVNT zEvnt);
/* Empties slot 7 without deleting the buffer: it goes back to the caller. */
KESTRO_API uint32_t Zos_EParmClrElemDbuf(ZEVNT zEvnt);
KESTRO_API uint32_t Zos_EParmSetElemCookie(ZEVNT zEvnt, uintptr_t zCookie);
KESTRO_API uintptr_t Zos_EParmGetElemCookie(ZEVNT zEvnt);

/* ---- typed parameters: setters 0 / 1 ("<name> exist parm" for an id
 * already set, "<name> add parm" when no node can be had). ---- */

KESTRO_API uint32_t Zos_EParmSetChar(ZEVNT zEvnt, uint32_t uiId, int8_t cVal);
KESTRO_API int8_t Zos_EParmGetChar(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetUchar(ZEVNT zEvnt, uint32_t uiId, uint8_t ucVal);
KESTRO_API uint8_t Zos_EParmGetUchar(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetShort(ZEVNT zEvnt, uint32_t uiId, int16_t sVal);
KESTRO_API int16_t Zos_EParmGetShort(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetUshort(ZEVNT zEvnt, uint32_t uiId, uint16_t usVal);
KESTRO_API uint16_t Zos_EParmGetUshort(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetInt(ZEVNT zEvnt, uint32_t uiId, int32_t iVal);
KESTRO_API int32_t Zos_EParmGetInt(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetUint(ZEVNT zEvnt, uint32_t uiId, uint32_t uiVal);
KESTRO_API uint32_t Zos_EParmGetUint(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetLong(ZEVNT zEvnt, uint32_t uiId, long lVal);
KESTRO_API long Zos_EParmGetLong(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetUlong(ZEVNT zEvnt, uint32_t uiId, unsigned long ulVal);
KESTRO_API unsigned long Zos_EParmGetUlong(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetInt64(ZEVNT zEvnt, uint32_t uiId, int64_t llVal);
KESTRO_API int64_t Zos_EParmGetInt64(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetUint64(ZEVNT zEvnt, uint32_t uiId, uint64_t ullVal);
KESTRO_API uint64_t Zos_EParmGetUint64(ZEVNT zEvnt, uint32_t uiId);
/* Stored as given; reads back the stored word (not folded to 0/1). */
KESTRO_API uint32_t Zos_EParmSetBool(ZEVNT zEvnt, uint32_t uiId, uint32_t bVal);
KESTRO_API uint32_t Zos_EParmGetBool(ZEVNT zEvnt, uint32_t uiId);

/* Texts are copied with a terminator ("EParmSetStr set val" when the copy
 * fails). A null text is stored as null without copying. NStr copies
 * uiLen characters (the text need not be terminated). */
KESTRO_API uint32_t Zos_EParmSetStr(ZEVNT zEvnt, uint32_t uiId, const char *pcStr);
KESTRO_API uint32_t Zos_EParmSetNStr(ZEVNT zEvnt, uint32_t uiId, const char *pcStr, uint32_t uiLen);
KESTRO_API const char *Zos_EParmGetStr(ZEVNT zEvnt, uint32_t uiId);
/* The text and its length in *puiLen (0 when absent). */
KESTRO_API const char *Zos_EParmGetNStr(ZEVNT zEvnt, uint32_t uiId, uint32_t *puiLen);
/* 16-bit texts: lengths in characters. */
KESTRO_API uint32_t Zos_EParmSetUstr(ZEVNT zEvnt, uint32_t uiId, const uint16_t *pusStr);
KESTRO_API uint32_t Zos_EParmSetNUStr(ZEVNT zEvnt, uint32_t uiId, const uint16_t *pusStr,
                                      uint32_t uiLen);
KESTRO_API const uint16_t *Zos_EParmGetUstr(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API const uint16_t *Zos_EParmGetNUStr(ZEVNT zEvnt, uint32_t uiId, uint32_t *puiLen);

/* Bytes copied into the arena ("EParmSetMem alloc val" when that fails).
 * A null pointer with a non-zero length logs the warning "EParmSetMem null
 * val" and stores uiLen bytes of the arena whose content is left unset
 * (nothing is read from the null pointer); with length 0 the pointer is
 * stored as given, not copied. */
KESTRO_API uint32_t Zos_EParmSetMem(ZEVNT zEvnt, uint32_t uiId, const void *pData, uint32_t uiLen);
KESTRO_API void *Zos_EParmGetMem(ZEVNT zEvnt, uint32_t uiId, uint32_t *puiLen);
KESTRO_API uint32_t Zos_EParmSetPtr(ZEVNT zEvnt, uint32_t uiId, void *pVal);
KESTRO_API void *Zos_EParmGetPtr(ZEVNT zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_EParmSetCookie(ZEVNT zEvnt, uint32_t uiId, uintptr_t zCookie);
KESTRO_API uintptr_t Zos_EParmGetCookie(ZEVNT zEvnt, uint32_t uiId);

/* ---- event-parameter registry, per component (0 to 251) --------------- */

/* A table of uiCapacity rows for the component; 1 when the index is out
 * of range, a table exists, uiCapacity is 0 or memory fails. */
KESTRO_API uint32_t Zos_SysEvntAttach(uint32_t uiComp, uint32_t uiCapacity);
KESTRO_API uint32_t Zos_SysEvntDetach(uint32_t uiComp);
/* *ppstTbl is null first; 1 when the component has no table. */
KESTRO_API uint32_t Zos_SysEvntLocate(uint32_t uiComp, ST_ZOS_SYS_EVNT **ppstTbl);
/* Appends a row for the id's number: "SysParmAttach no attach." without a
 * table, "SysParmAttach parm full." when full. The text is not copied. */
KESTRO_API uint32_t Zos_SysParmAttach(uint32_t uiId, uintptr_t zValue, const char *pcDflt);
/* *ppstParm is null first; 1 for a component above 251, silently without a
 * table, with "SysParmLocate no parm<%d>." when the number has no row. */
KESTRO_API uint32_t Zos_SysParmLocate(uint32_t uiId, ST_ZOS_SYS_PARM **ppstParm);

ZOS_END_DECLS

#endif /* ZOS_EVNT_H */
