/*
 * Print service: the one road by which text leaves the layer for the
 * platform's console (or the configured print hook, PrintDisp). It owns a
 * private "zos print" pool for print texts, a print mutex and an open
 * switch, and offers a 512-byte output accumulator for long multi-part
 * texts.
 */
#ifndef ZOS_PRINT_H
#define ZOS_PRINT_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Size of an output accumulator buffer, and the longest piece appended
 * by one Zos_PrintOutPutFmt. */
#define ZOS_PRINT_OUT_SIZE 512u
#define ZOS_PRINT_OUT_FMT_MAX 127u

/* Creates the print pool and mutex and opens printing; 1 without an
 * environment or when the pool or mutex cannot be made. */
KESTRO_API uint32_t Zos_PrintInit(void);
KESTRO_API void Zos_PrintDestroy(void);
/* The open switch: while closed Zos_Printf prints nothing. */
KESTRO_API void Zos_PrintOpen(void);
KESTRO_API void Zos_PrintClose(void);
/* 1 while open. */
KESTRO_API uint32_t Zos_PrintIsOpen(void);

/* Formats and prints one line (at most 4095 characters, longer is cut).
 * Before the print service starts it hands over to Zos_PrintNull. 1
 * without an environment or when nothing could be printed (an empty
 * result included); 0 while closed. */
KESTRO_API uint32_t Zos_Printf(const char *pcFormat, ...);
/* The form used before initialisation: formats into a 4096-byte heap
 * buffer and prints through the print hook if set, else the platform. */
KESTRO_API uint32_t Zos_PrintNull(const char *pcFormat, va_list ap);
/* Hands the text straight to the platform print; 0 when there is none. */
KESTRO_API uint32_t Zos_PrintStrByOs(const char *pcText);

/* Blocks from the print pool; null for size 0 or above 0x7FFFFFFE, or
 * before the print service starts. */
KESTRO_API void *Zos_PrintAlloc(uint32_t uiSize);
KESTRO_API void *Zos_PrintAllocClrd(uint32_t uiSize);
/* A copy of a non-empty text in the print pool; null for null or "". */
KESTRO_API char *Zos_PrintStrAlloc(const char *pcText);
/* A formatted text in the print pool; null for an empty result. */
KESTRO_API char *Zos_PrintStrFAlloc(const char *pcFormat, ...);
KESTRO_API void Zos_PrintFree(void *pMem);
/* Length the format would produce. */
KESTRO_API uint32_t Zos_PrintVSize(const char *pcFormat, va_list ap);
KESTRO_API uint32_t Zos_PrintSize(const char *pcFormat, ...);

/*
 * Output accumulator: a caller-owned buffer of ZOS_PRINT_OUT_SIZE bytes
 * and its length. Each append that would bring the length to 512 or more
 * first flushes what the buffer holds (to the data buffer when one is
 * given, else printed with "%s") and empties it; then at most 511
 * characters of the piece are stored. A null buffer or length, or an
 * empty piece, fails with 1. A data-buffer target receives the text with
 * Zos_DbufPstAddMultD.
 */
KESTRO_API uint32_t Zos_PrintOutStart(char *pcBuf, char **ppcOut, uint32_t *puiLen);
KESTRO_API uint32_t Zos_PrintOutPutFmt(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                       const char *pcFormat, ...);
KESTRO_API uint32_t Zos_PrintOutPutStr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                       const char *pcStr);
KESTRO_API uint32_t Zos_PrintOutPutChr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen, char cChr);
KESTRO_API uint32_t Zos_PrintOutPutNStr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                        const char *pcStr, uint32_t uiLen);
KESTRO_API uint32_t Zos_PrintOutPutSStr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                        const ST_ZOS_SSTR *pstStr);
/* Flushes what the buffer holds and empties it; 1 for a null buffer or
 * length, or when nothing was printed. */
KESTRO_API uint32_t Zos_PrintOutEnd(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen);

/* Prints a long counted text in pieces of 511 characters. */
KESTRO_API uint32_t Zos_PrintNStr(const char *pcText, uint32_t uiLen);
/* Hex dump of a byte buffer: the length, then lines of 16 bytes in
 * hexadecimal followed by the printable characters ('%' shown as "%%",
 * others as '.'). 1 for null data. */
KESTRO_API uint32_t Zos_PrintBuf(const void *pData, uint32_t uiLen);
/* Prints the print pool's bucket statistics; 1 before initialisation. */
KESTRO_API uint32_t Zos_PrintDbgShow(void);

ZOS_END_DECLS

#endif /* ZOS_PRINT_H */
