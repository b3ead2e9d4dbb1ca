/* Starts the layer, formats a text with it and stops it again; prints
 * "consumer: <text>" on success. */
#include <stdio.h>

#include "kestro_lite.h"

static void quiet(const char *text) {
    (void)text;
}

int main(void) {
    char text[64];
    Zos_CfgSetLogFile("");
    Zos_CfgSetPrintDisp(quiet);
    if (Zos_SysInit() != ZOK) return 1;
    char *s = Zos_SysStrFAlloc("%s:%u", "peer", 5060u);
    Zos_SNPrintf(text, (int32_t)sizeof(text), "%s is %d bytes", s, (int)Zos_SysStrLen(s));
    Zos_SysStrFree(s);
    Zos_SysDestroy();
    printf("consumer: %s (kestro_lite %s)\n", text, Kestro_GetVersion());
    return 0;
}
