// Memory, console and trace output of the platform.
#include <cstdio>

#include "pand_heap.h"
#include "zpand.h"

extern "C" {

KESTRO_API void *Zpand_Malloc(uint32_t uiSize) {
    return zpand::heap::Alloc(uiSize);
}

KESTRO_API void *Zpand_Realloc(void *pMem, uint32_t uiSize) {
    return zpand::heap::Realloc(pMem, uiSize);
}

KESTRO_API void Zpand_Free(void *pMem) {
    zpand::heap::Free(pMem);
}

KESTRO_API uint32_t Zpand_Print(const char *pcText) {
    if (pcText != nullptr) {
        std::fputs(pcText, stdout);
        std::fflush(stdout);
    }
    return ZOK;
}

KESTRO_API void Zpand_Trace(const char *pcModule, const char *pcFile, uint32_t uiLine) {
    const char *file = pcFile != nullptr ? pcFile : "";
    if (pcModule == nullptr) {
        std::printf("quelmar source <%s:%d>\r\n", file, static_cast<int>(uiLine));
    } else {
        std::printf("quelmar source(%s) <%s:%d>\r\n", pcModule, file, static_cast<int>(uiLine));
    }
    std::fflush(stdout);
}

}  // extern "C"
