/*
 * Dumps: named, bounded stacks of time-stamped records (file, line, text,
 * value) that code pushes as it passes interesting points, printed on
 * demand. The registry starts with Zos_SysInit.
 */
#ifndef ZOS_DUMP_H
#define ZOS_DUMP_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZDUMP; /* dump handle */

KESTRO_API uint32_t Zos_DumpInit(void);
/* Frees every dump still registered. */
KESTRO_API void Zos_DumpDestroy(void);

/* A dump holding at most usDeepSize records. The name is not copied and
 * must outlive the dump. Null for a depth of 0, before Zos_DumpInit or
 * without memory. */
KESTRO_API ZDUMP Zos_DumpCreate(const char *pcName, uint16_t usDeepSize);
KESTRO_API uint32_t Zos_DumpDelete(ZDUMP zDump);
/* Drops every record; the next push has index 0 again. */
KESTRO_API uint32_t Zos_DumpClear(ZDUMP zDump);
/* Pushes one record stamped with the current time. The file and text are
 * not copied (a null text is kept as ""). 1 when the dump is full (the
 * record is not pushed); 0 when only the record's memory was missing. */
KESTRO_API uint32_t Zos_DumpStack(ZDUMP zDump, const char *pcFile, uint32_t uiLine,
                                  const char *pcText, uint32_t uiValue);
/* Prints the dump to the console. */
KESTRO_API uint32_t Zos_DumpPrint(ZDUMP zDump);
/* Prints the dump into a data buffer (appended), or to the console when
 * zDbuf is null. */
KESTRO_API uint32_t Zos_DumpPrintBuf(ZDUMP zDump, ZDBUF zDbuf);
/* Prints every non-empty dump. */
KESTRO_API uint32_t Zos_DumpDbgShow(void);

ZOS_END_DECLS

#endif /* ZOS_DUMP_H */
