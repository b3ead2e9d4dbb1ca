/*
 * Print service: the one road by which text leaves the layer for the
 * platform's console (or the configured print hook, PrintDisp).
 */
#ifndef ZOS_PRINT_H
#define ZOS_PRINT_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Formats and prints one line (at most 4095 characters). Before the print
 * service starts it hands over to Zos_PrintNull. 1 without an environment
 * or when nothing could be printed. */
KESTRO_API uint32_t Zos_Printf(const char *pcFormat, ...);
/* The form used before initialisation: formats into a 4096-byte heap
 * buffer and prints through the print hook if set, else the platform. */
KESTRO_API uint32_t Zos_PrintNull(const char *pcFormat, va_list ap);
/* Hands the text straight to the platform print; 0 when there is none. */
KESTRO_API uint32_t Zos_PrintStrByOs(const char *pcText);

ZOS_END_DECLS

#endif /* ZOS_PRINT_H */
