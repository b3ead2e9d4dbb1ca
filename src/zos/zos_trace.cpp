// Trace: tracked memory blocks, trace events and trace lines.
#include <cstring>

#include "zos_cfg_rec.h"
#include "zos_env.h"
#include "zos_mem.h"
#include "zos_print.h"
#include "zos_trace.h"
#include "zos_util.h"

namespace {

struct TraceRec {
    ST_ZOS_DLIST_NODE stLink;
    const void *pMem;
    uint32_t uiLine;
    char acAbout[ZOS_TRACE_ABOUT_MAX + 1];
    char acFile[ZOS_TRACE_FILE_MAX + 1];
};

// The environment while the registry runs, else null.
ZosEnv *TraceEnv() {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && env->ucTraceInit != 0 ? env : nullptr;
}

void CopyCut(char *dst, size_t cap, const char *src) {
    const size_t n = src != nullptr ? strnlen(src, cap - 1) : 0;
    if (n != 0) std::memcpy(dst, src, n);
    dst[n] = '\0';
}

// Frees every tracked record; the caller holds the trace mutex.
void FreeAll(ZosEnv *env) {
    while (env->stTraceList.pstHead != nullptr) {
        Zos_HeapFree(Zos_DlistDequeue(&env->stTraceList));
    }
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_TraceInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    if (env->ucTraceInit != 0) return ZOK;
    if (Zos_MutexCreate(&env->zTraceMutex) != ZOK) {
        ZOS_LOG_ERR("TraceInit create mutex.");
        return ZFAILED;
    }
    if (Zos_DlistCreate(&env->stTraceList, ZOS_LIST_NO_LIMIT) != ZOK) {
        Zos_MutexDelete(&env->zTraceMutex);
        return ZFAILED;
    }
    env->pfnTraceEvnt = Zos_CfgGetTraceEvnt();
    env->ucTraceInit = 1;
    return ZOK;
}

KESTRO_API void Zos_TraceDestroy(void) {
    ZosEnv *env = TraceEnv();
    if (env == nullptr) return;
    {
        zos::MutexGuard lock(&env->zTraceMutex);
        FreeAll(env);
    }
    Zos_DlistDelete(&env->stTraceList);
    Zos_MutexDelete(&env->zTraceMutex);
    env->pfnTraceEvnt = nullptr;
    env->ucTraceInit = 0;
}

KESTRO_API uint32_t Zos_TraceLog(const char *pcAbout, const char *pcFile, uint32_t uiLine) {
    const bool about = pcAbout != nullptr && pcAbout[0] != '\0';
    ZLOGID log = Zos_LogGetZosId();
    if (pcFile == nullptr) return Zos_LogError(log, "trace(%s).", about ? pcAbout : "");
    if (!about) return Zos_LogError(log, "trace at<%s:%d>.", pcFile, static_cast<int>(uiLine));
    return Zos_LogError(log, "trace(%s) at<%s:%d>.", pcAbout, pcFile, static_cast<int>(uiLine));
}

KESTRO_API uint32_t Zos_TraceEvnt(uintptr_t zA, uintptr_t zB, uintptr_t zC) {
    return Zos_TraceEvntX(zA, zB, zC, 0);
}

KESTRO_API uint32_t Zos_TraceEvntX(uintptr_t zA, uintptr_t zB, uintptr_t zC, uintptr_t zD) {
    ZosEnv *env = TraceEnv();
    if (env == nullptr) return ZFAILED;
    zos::MutexGuard lock(&env->zTraceMutex);
    if (env->pfnTraceEvnt != nullptr) env->pfnTraceEvnt(zA, zB, zC, zD);
    return ZOK;
}

KESTRO_API uint32_t Zos_TraceMemAdd(const void *pMem, const char *pcAbout, const char *pcFile,
                                    uint32_t uiLine) {
    ZosEnv *env = TraceEnv();
    if (env == nullptr) return ZFAILED;
    auto *rec = static_cast<TraceRec *>(Zos_HeapAlloc(sizeof(TraceRec)));
    if (rec == nullptr) {
        ZOS_LOG_ERR("TraceMemAdd no enough memory.");
        return ZFAILED;
    }
    std::memset(rec, 0, sizeof(*rec));
    rec->pMem = pMem;
    rec->uiLine = uiLine;
    CopyCut(rec->acAbout, sizeof(rec->acAbout), pcAbout);
    CopyCut(rec->acFile, sizeof(rec->acFile), pcFile);
    zos::MutexGuard lock(&env->zTraceMutex);
    if (Zos_DlistInsert(&env->stTraceList, env->stTraceList.pstTail, &rec->stLink) != ZOK) {
        Zos_HeapFree(rec);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_TraceMemRmv(const void *pMem) {
    ZosEnv *env = TraceEnv();
    if (env == nullptr) return ZFAILED;
    zos::MutexGuard lock(&env->zTraceMutex);
    for (ST_ZOS_DLIST_NODE *n = env->stTraceList.pstHead; n != nullptr; n = n->pstNext) {
        auto *rec = reinterpret_cast<TraceRec *>(n);
        if (rec->pMem != pMem) continue;
        // The record leaves the list before it is freed: a freed record
        // left linked would be walked by every later trace operation.
        Zos_DlistRemove(&env->stTraceList, n);
        Zos_HeapFree(rec);
        break;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_TraceMemClr(void) {
    ZosEnv *env = TraceEnv();
    if (env == nullptr) return ZFAILED;
    zos::MutexGuard lock(&env->zTraceMutex);
    FreeAll(env);
    return ZOK;
}

KESTRO_API uint32_t Zos_TraceDbgShow(void) {
    ZosEnv *env = TraceEnv();
    if (env == nullptr) return ZFAILED;
    zos::MutexGuard lock(&env->zTraceMutex);
    int number = 0;
    for (ST_ZOS_DLIST_NODE *n = env->stTraceList.pstHead; n != nullptr; n = n->pstNext) {
        const auto *rec = reinterpret_cast<const TraceRec *>(n);
        if (number == 0) Zos_Printf("\r\n-----------------------------------------\r\n");
        Zos_Printf("[No.%d] \r\n", ++number);
        Zos_Printf("mem<0x%p> about(%s) added at(%s:%d)", rec->pMem, rec->acAbout, rec->acFile,
                   static_cast<int>(rec->uiLine));
        Zos_Printf("-----------------------------------------\r\n\r\n");
    }
    return ZOK;
}

}  // extern "C"
