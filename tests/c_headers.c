/* Compiled as C99: every public header must stay valid C, and the C
 * interface must link and run from C. */
#include "kestro_lite.h"
#include "zpand_jni.h"

int main(void) {
    const char *version = Kestro_GetVersion();
    char buf[16];
    if (version == NULL || version[0] == '\0') return 1;
    if (Zos_SNPrintf(buf, (int32_t)sizeof(buf), "%d-%s", 7, "c") != 3) return 1;
    return buf[0] == '7' && buf[1] == '-' && buf[2] == 'c' && buf[3] == '\0' ? 0 : 1;
}
