/*
 * Data buffers: a chained, reference-counted byte buffer. A header and a
 * doubly linked chain of blocks, all drawn from one bucket pool (by
 * default the layer's "zos dbuf" pool), with free room kept at the front
 * of the first block and the back of the last so that protocol layers can
 * prepend headers and append payload without copying.
 *
 * Types: 1 message buffer (bytes in order: append, prepend, remove, split,
 * concatenate), 2 memory buffer (an allocator: Zos_DbufAlloc areas, sizes
 * rounded up to 4; the append and prepend operations refuse it).
 *
 * A buffer starts with one reference; Zos_DbufClone adds one (at most 255)
 * and Zos_DbufDelete drops one, freeing everything on the last. While a
 * buffer is shared (two references or more) every operation that changes
 * it is refused. Buffers take no lock: one task owns a buffer at a time.
 *
 * Results are 0 / 1 unless stated; failures write one line to the system
 * log naming the operation.
 */
#ifndef ZOS_DBUF_H
#define ZOS_DBUF_H

#include "zos_type.h"
#include "zfile.h"

ZOS_BEGIN_DECLS

#define ZOS_DBUF_TYPE_MSG 1u
#define ZOS_DBUF_TYPE_MEM 2u
/* Most references a buffer can hold. */
#define ZOS_DBUF_REF_MAX 255u
/* Bytes of a block's header counted against the size given at creation:
 * a buffer of size s has blocks of s - 24 data bytes. A block of capacity
 * c is one pool request of c + the block header: c + 24 on the 32-bit
 * product target (two links and four counts), c + 32 on a 64-bit host,
 * where the links are 8 bytes. So on x86-64 the blocks of a size-128
 * buffer ask for 136 bytes and land in the next bucket up. */
#define ZOS_DBUF_BLK_HDR 24u

/* Start-up and shut-down (part of Zos_SysInit / Zos_SysDestroy): the
 * data-buffer mutex and pool. */
KESTRO_API uint32_t Zos_DbufInit(void);
KESTRO_API void Zos_DbufDestroy(void);

/* Validity test used by the operations: 1 for a null or released buffer,
 * a buffer of the refused type (255 refuses none), a shared buffer when
 * bRefuseShared is set, or an empty one when bNeedData is set. */
KESTRO_API uint32_t Zos_DbufChkValid(ZDBUF zDbuf, uint32_t uiRefusedType, uint32_t bRefuseShared,
                                     uint32_t bNeedData);

/* A buffer from the pool (null: the data-buffer pool) of type 1 or 2. A
 * size above the pool's largest bucket is replaced by it; the standard
 * block holds size - 24 bytes. */
KESTRO_API ZDBUF Zos_DbufCreate(ZPOOL zPool, uint32_t uiType, uint32_t uiSize);
/* Creates and reserves uiDataSize bytes (*ppData their address); the
 * size and the pointer must both be given or both be absent. */
KESTRO_API ZDBUF Zos_DbufCreateD(ZPOOL zPool, uint32_t uiType, uint32_t uiSize, uint32_t uiDataSize,
                                 void **ppData);
/* As Zos_DbufCreateD with the area zeroed. */
KESTRO_API ZDBUF Zos_DbufCreateClrd(ZPOOL zPool, uint32_t uiType, uint32_t uiSize,
                                    uint32_t uiDataSize, void **ppData);
/* Creates and appends the data (none for a length of 0). */
KESTRO_API ZDBUF Zos_DbufCreateAddD(ZPOOL zPool, uint32_t uiType, uint32_t uiSize,
                                    const void *pData, uint32_t uiLen);

KESTRO_API uint32_t Zos_DbufDelete(ZDBUF zDbuf);
/* Frees every block; the buffer stays valid with length 0. */
KESTRO_API uint32_t Zos_DbufFree(ZDBUF zDbuf);
/* The same buffer with one more reference; null when refused. */
KESTRO_API ZDBUF Zos_DbufClone(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufRefCnt(ZDBUF zDbuf);

/* Reserves an area inside the buffer: at the tail or before the head of
 * the first block with room, else in a new block at the end. */
KESTRO_API void *Zos_DbufAlloc(ZDBUF zDbuf, uint32_t uiSize);
/* Looks at the last block only: its tail grows, and when its head room
 * fits too the head moves back as well and the area before the head is
 * given (the block is counted as growing once). Meant for memory buffers,
 * whose content is never read in order. */
KESTRO_API void *Zos_DbufAllocX(ZDBUF zDbuf, uint32_t uiSize);
KESTRO_API void *Zos_DbufAllocClrd(ZDBUF zDbuf, uint32_t uiSize);

/* Type (0 if invalid), length, sum of block capacities. */
KESTRO_API uint32_t Zos_DbufType(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufLen(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufSize(ZDBUF zDbuf);
/* Sets the length: a shorter one drops bytes at the back, a longer one
 * takes room after the last block's tail (its bytes as they are). */
KESTRO_API uint32_t Zos_DbufNewLen(ZDBUF zDbuf, uint32_t uiLen);
/* Standard block capacity; number of blocks; length of block uiIndex (0
 * when there is none). */
KESTRO_API uint32_t Zos_DbufDftBlkSize(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufBlkSize(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufBlkLen(ZDBUF zDbuf, uint32_t uiIndex);
/* The data of block uiIndex (null when there is none). */
KESTRO_API uint8_t *Zos_DbufBlkData(ZDBUF zDbuf, uint32_t uiIndex);

/* Chain of whole buffers: SetNext appends zNext at the end of the chain. */
KESTRO_API ZDBUF Zos_DbufGetNext(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufSetNext(ZDBUF zDbuf, ZDBUF zNext);

/* Offsets: data pointer to offset in the buffer (0xFFFFFFFF when not in
 * it) and back (null when out of range); the Blk forms work inside block
 * uiIndex. */
KESTRO_API uint32_t Zos_DbufD2O(ZDBUF zDbuf, const void *pData);
KESTRO_API uint8_t *Zos_DbufO2D(ZDBUF zDbuf, uint32_t uiOffset);
KESTRO_API uint32_t Zos_DbufBlkD2O(ZDBUF zDbuf, uint32_t uiIndex, const void *pData);
KESTRO_API uint8_t *Zos_DbufBlkO2D(ZDBUF zDbuf, uint32_t uiIndex, uint32_t uiOffset);

/* Append: one byte, bytes, a C string (without its NUL), all of another
 * buffer, formatted text. A length of 0 fails without a log line. */
/* Adds the bytes in new blocks only, before the first block (bPrepend)
 * or after the last, leaving the room of the existing end block unused:
 * data longer than the standard block size goes in one block of exactly
 * its length when that can be had; otherwise the remainder (length mod
 * the block size) takes one standard block placed outermost (at the end
 * of its area when prepending, at its start when appending) and the rest
 * full standard blocks. On failure nothing changes ("DbufAddData alloc
 * data."). Memory and shared buffers are refused. The append and prepend
 * forms build their new blocks with it. */
KESTRO_API uint32_t Zos_DbufAddData(ZDBUF zDbuf, const void *pData, uint32_t uiLen,
                                    uint32_t bPrepend);
KESTRO_API uint32_t Zos_DbufPstAddD(ZDBUF zDbuf, uint8_t ucData);
KESTRO_API uint32_t Zos_DbufPstAddMultD(ZDBUF zDbuf, const void *pData, uint32_t uiLen);
KESTRO_API uint32_t Zos_DbufPstAddStrD(ZDBUF zDbuf, const char *pcStr);
KESTRO_API uint32_t Zos_DbufPstAddBufD(ZDBUF zDbuf, ZDBUF zSrc);
KESTRO_API uint32_t Zos_DbufPstAddFmtD(ZDBUF zDbuf, const char *pcFormat, ...);
/* Prepend: the same forms. */
KESTRO_API uint32_t Zos_DbufPreAddD(ZDBUF zDbuf, uint8_t ucData);
KESTRO_API uint32_t Zos_DbufPreAddMultD(ZDBUF zDbuf, const void *pData, uint32_t uiLen);
KESTRO_API uint32_t Zos_DbufPreAddStrD(ZDBUF zDbuf, const char *pcStr);
KESTRO_API uint32_t Zos_DbufPreAddBufD(ZDBUF zDbuf, ZDBUF zSrc);
KESTRO_API uint32_t Zos_DbufPreAddFmtD(ZDBUF zDbuf, const char *pcFormat, ...);

/* Remove uiLen bytes from the front / back, copied to pData when given. */
KESTRO_API uint32_t Zos_DbufPreDelMultD(ZDBUF zDbuf, uint32_t uiLen, void *pData);
KESTRO_API uint32_t Zos_DbufPstDelMultD(ZDBUF zDbuf, uint32_t uiLen, void *pData);
/* Drops iCount bytes at the front (positive) or the back (negative). */
KESTRO_API uint32_t Zos_DbufAdjD(ZDBUF zDbuf, int32_t iCount);

/* Deep copy with identical blocks. */
KESTRO_API ZDBUF Zos_DbufCopy(ZDBUF zDbuf);
/* A new buffer (same pool, type and block size) holding a range. */
KESTRO_API ZDBUF Zos_DbufCopyX(ZDBUF zDbuf, uint32_t uiOffset, uint32_t uiLen);
/* Copies a range into memory. */
KESTRO_API uint32_t Zos_DbufCopyD(ZDBUF zDbuf, uint32_t uiOffset, uint32_t uiLen, void *pDst);
/* The bytes from uiOffset on move to a new buffer (same pool, type and
 * block size); null for an offset of 0 or at least the length. */
KESTRO_API ZDBUF Zos_DbufSplit(ZDBUF zDbuf, uint32_t uiOffset);
/* Appends the source's blocks to the destination and deletes the source
 * header. The types must match; neither may be shared. */
KESTRO_API uint32_t Zos_DbufCat(ZDBUF zDst, ZDBUF zSrc);

/* 1 when the buffer is one block (or none) with no next buffer. */
KESTRO_API uint32_t Zos_DbufIsFlat(ZDBUF zDbuf);
/* A new type 1 buffer (size 128) holding the whole buffer / a range in a
 * single block. */
KESTRO_API ZDBUF Zos_DbufFlat(ZDBUF zDbuf);
KESTRO_API ZDBUF Zos_DbufFlatX(ZDBUF zDbuf, uint32_t uiOffset, uint32_t uiLen);

/* Files through the file module: load a whole file into a new type 1
 * buffer (size 2048) in one block; save every block in order, by the
 * safe save (the target is replaced only once complete). */
KESTRO_API uint32_t Zos_DbufLoadFile(const char *pcPath, ZDBUF *pzDbuf);
KESTRO_API uint32_t Zos_DbufLoadFileX(ZFILE zFile, ZDBUF *pzDbuf);
KESTRO_API uint32_t Zos_DbufSaveFile(ZDBUF zDbuf, const char *pcPath);
/* Writes every block to an open file. */
KESTRO_API uint32_t Zos_DbufSaveFileX(ZDBUF zDbuf, ZFILE zFile);

/* Diagnostics. LogTxt writes the content as text, LogHex as a hex dump,
 * LogPrint the header and block layout, each to a log at a level.
 * DbgShow prints the layout to the console, DumpPrint the allocation
 * trace, DumpDbgShow both. ChkPool checks the data-buffer pool: 0 sound. */
KESTRO_API uint32_t Zos_DbufLogTxt(ZLOGID zLogId, uint32_t uiLevel, ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufLogHex(ZLOGID zLogId, uint32_t uiLevel, ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufLogPrint(ZLOGID zLogId, uint32_t uiLevel, ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufDbgShow(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufDumpPrint(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufDumpDbgShow(ZDBUF zDbuf);
KESTRO_API uint32_t Zos_DbufChkPool(void);

/*
 * Allocation trace: a dump (zos_dump.h) attached to the buffer that
 * records its creation ("membuf create" / "msgbuf create"), every clone
 * ("clone") and every delete ("delete", with the count after the drop),
 * each with the reference count. DumpCreate attaches it under a name
 * (null: "dbuf"; cut to 15 characters) and records the creation at the
 * caller's file and line. DumpStack notes a caller's file and line for
 * the next clone or delete record. DumpDelete records a "delete" at the
 * caller and removes the trace; the last Zos_DbufDelete removes it too.
 */
KESTRO_API uint32_t Zos_DbufDumpCreate(ZDBUF zDbuf, const char *pcName, const char *pcFile,
                                       uint32_t uiLine);
KESTRO_API uint32_t Zos_DbufDumpStack(ZDBUF zDbuf, const char *pcFile, uint32_t uiLine);
KESTRO_API uint32_t Zos_DbufDumpDelete(ZDBUF zDbuf, const char *pcFile, uint32_t uiLine);

ZOS_END_DECLS

#endif /* ZOS_DBUF_H */
