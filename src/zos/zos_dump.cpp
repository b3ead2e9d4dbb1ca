// Dumps: the registry of named record stacks and their printing.
#include <cstring>

#include "zos_dump.h"
#include "zos_env.h"
#include "zos_mem.h"
#include "zos_print.h"
#include "zos_time.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kDumpMagic = 0xD0D1D2D3u;

struct DumpRec {
    uint32_t uiMagic;
    uint16_t wDeepSize;
    uint16_t wStackNum;
    const char *pcName;
    ST_ZOS_DLIST stStack;  // StackRec records, oldest first; its mutex guards them
    ST_ZOS_DLIST_NODE stLink;
};

struct StackRec {
    ST_ZOS_DLIST_NODE stLink;
    const char *pcFile;
    const char *pcText;
    uint32_t uiLine;
    uint32_t uiValue;
    ST_ZOS_SYS_TIME stTime;
};

DumpRec *DumpOfLink(ST_ZOS_DLIST_NODE *node) {
    return reinterpret_cast<DumpRec *>(reinterpret_cast<char *>(node) - offsetof(DumpRec, stLink));
}

// The environment while the registry runs, else null.
ZosEnv *DumpEnv() {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && env->ucDumpInit != 0 ? env : nullptr;
}

const char *NameOf(const DumpRec *d) {
    return d->pcName != nullptr ? d->pcName : "";
}

// Frees every record of a dump; the caller holds the dump mutex, which
// guards the count.
void FreeStack(DumpRec *d) {
    zos::MutexGuard lock(&d->stStack.zMutex);
    while (d->stStack.pstHead != nullptr) {
        Zos_Free(Zos_DlistDequeue(&d->stStack));
    }
    d->wStackNum = 0;
}

void FreeDump(DumpRec *d) {
    FreeStack(d);
    Zos_DlistDelete(&d->stStack);
    zos::LiveRemove(d);
    d->uiMagic = 0;
    Zos_Free(d);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_DumpInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    if (env->ucDumpInit != 0) return ZOK;
    if (Zos_MutexCreate(&env->zDumpMutex) != ZOK) {
        ZOS_LOG_ERR("DumpInit create mutex.");
        return ZFAILED;
    }
    if (Zos_DlistCreate(&env->stDumpList, ZOS_LIST_NO_LIMIT) != ZOK) {
        Zos_MutexDelete(&env->zDumpMutex);
        return ZFAILED;
    }
    env->ucDumpInit = 1;
    return ZOK;
}

KESTRO_API void Zos_DumpDestroy(void) {
    ZosEnv *env = DumpEnv();
    if (env == nullptr) return;
    {
        zos::MutexGuard lock(&env->zDumpMutex);
        while (env->stDumpList.pstHead != nullptr) {
            DumpRec *d = DumpOfLink(Zos_DlistDequeue(&env->stDumpList));
            if (zos::LiveRecord<DumpRec>(d, kDumpMagic) == nullptr) {
                ZOS_LOG_ERR("DumpDestroy invalid dump id.");
                continue;
            }
            FreeDump(d);
        }
    }
    Zos_DlistDelete(&env->stDumpList);
    Zos_MutexDelete(&env->zDumpMutex);
    env->ucDumpInit = 0;
}

KESTRO_API ZDUMP Zos_DumpCreate(const char *pcName, uint16_t usDeepSize) {
    ZosEnv *env = DumpEnv();
    if (env == nullptr || usDeepSize == 0) return nullptr;
    auto *d = static_cast<DumpRec *>(Zos_MallocClrd(sizeof(DumpRec)));
    if (d == nullptr) {
        ZOS_LOG_ERR("DumpCreate alloc dump.");
        return nullptr;
    }
    if (Zos_DlistCreate(&d->stStack, ZOS_LIST_NO_LIMIT) != ZOK) {
        ZOS_LOG_ERR("DumpCreate create stacklist mutex.");
        Zos_Free(d);
        return nullptr;
    }
    d->wDeepSize = usDeepSize;
    d->pcName = pcName;
    if (!zos::LiveAdd(d)) {
        ZOS_LOG_ERR("DumpCreate alloc dump.");
        Zos_DlistDelete(&d->stStack);
        Zos_Free(d);
        return nullptr;
    }
    d->uiMagic = kDumpMagic;
    zos::MutexGuard lock(&env->zDumpMutex);
    Zos_DlistInsert(&env->stDumpList, env->stDumpList.pstTail, &d->stLink);
    return d;
}

KESTRO_API uint32_t Zos_DumpDelete(ZDUMP zDump) {
    ZosEnv *env = DumpEnv();
    auto *d = static_cast<DumpRec *>(zDump);
    if (env == nullptr || d == nullptr) return ZFAILED;
    if (zos::LiveRecord<DumpRec>(d, kDumpMagic) == nullptr) {
        ZOS_LOG_ERR("DumpDelete invalid id.");
        return ZFAILED;
    }
    zos::MutexGuard lock(&env->zDumpMutex);
    Zos_DlistRemove(&env->stDumpList, &d->stLink);
    FreeDump(d);
    return ZOK;
}

KESTRO_API uint32_t Zos_DumpClear(ZDUMP zDump) {
    ZosEnv *env = DumpEnv();
    auto *d = static_cast<DumpRec *>(zDump);
    if (env == nullptr || d == nullptr) return ZFAILED;
    if (zos::LiveRecord<DumpRec>(d, kDumpMagic) == nullptr) {
        ZOS_LOG_ERR("DumpClear invalid id.");
        return ZFAILED;
    }
    zos::MutexGuard lock(&env->zDumpMutex);
    FreeStack(d);
    return ZOK;
}

KESTRO_API uint32_t Zos_DumpStack(ZDUMP zDump, const char *pcFile, uint32_t uiLine,
                                  const char *pcText, uint32_t uiValue) {
    ZosEnv *env = DumpEnv();
    auto *d = static_cast<DumpRec *>(zDump);
    if (env == nullptr || d == nullptr) return ZFAILED;
    if (zos::LiveRecord<DumpRec>(d, kDumpMagic) == nullptr) {
        ZOS_LOG_ERR("DumpStack invalid id.");
        return ZFAILED;
    }
    zos::MutexGuard lock(&env->zDumpMutex);
    if (d->wStackNum >= d->wDeepSize) {
        ZOS_LOG_ERR("DumpStack deap <%d> beyond specify <%d>.", d->wStackNum, d->wDeepSize);
        ZOS_LOG_ERR("DumpStack stack full, pstDump->wStackNum=%d pstDump->wDeepSize=%d",
                    d->wStackNum, d->wDeepSize);
        return ZFAILED;
    }
    auto *rec = static_cast<StackRec *>(Zos_MallocClrd(sizeof(StackRec)));
    if (rec == nullptr) {
        // Diagnostics never make their caller fail.
        ZOS_LOG_ERR("DumpStack no enough memory.");
        return ZOK;
    }
    rec->pcFile = pcFile;
    rec->pcText = pcText != nullptr ? pcText : "";
    rec->uiLine = uiLine;
    rec->uiValue = uiValue;
    Zos_SysTime(&rec->stTime);
    if (Zos_DlistInsert(&d->stStack, d->stStack.pstTail, &rec->stLink) != ZOK) {
        Zos_Free(rec);
        return ZFAILED;
    }
    d->wStackNum++;
    return ZOK;
}

KESTRO_API uint32_t Zos_DumpPrint(ZDUMP zDump) {
    return Zos_DumpPrintBuf(zDump, nullptr);
}

KESTRO_API uint32_t Zos_DumpPrintBuf(ZDUMP zDump, ZDBUF zDbuf) {
    ZosEnv *env = DumpEnv();
    auto *d = static_cast<DumpRec *>(zDump);
    if (env == nullptr || d == nullptr) return ZFAILED;
    if (zos::LiveRecord<DumpRec>(d, kDumpMagic) == nullptr) {
        ZOS_LOG_ERR("DumpPrintBuf invalid id.");
        return ZFAILED;
    }
    auto *buf = static_cast<char *>(Zos_PrintAlloc(ZOS_PRINT_OUT_SIZE));
    if (buf == nullptr) return ZFAILED;
    char *out = nullptr;
    uint32_t len = 0;
    Zos_PrintOutStart(buf, &out, &len);
    uint32_t rc = ZOK;
    uint16_t count = 0;
    {
        zos::MutexGuard lock(&env->zDumpMutex);
        count = d->wStackNum;
    }
    if (count == 0) {
        rc = Zos_PrintOutPutFmt(zDbuf, buf, &len, "Dump <%s> stack is empty.\r\n", NameOf(d));
    } else {
        rc = Zos_PrintOutPutFmt(
            zDbuf, buf, &len, "  Dump %x  \"%s\" %d/%d (Stack Count / Deep Size) \r\n",
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(d)), NameOf(d), count, d->wDeepSize);
        Zos_PrintOutPutFmt(zDbuf, buf, &len, "  Dump Stack:\r\n");
        zos::MutexGuard lock(&d->stStack.zMutex);
        int index = 0;
        for (ST_ZOS_DLIST_NODE *n = d->stStack.pstHead; n != nullptr; n = n->pstNext, ++index) {
            const auto *rec = reinterpret_cast<const StackRec *>(n);
            Zos_PrintOutPutFmt(zDbuf, buf, &len, "    <%d>  %5d  \"%s\"  time:%s\r\n", index,
                               static_cast<int>(rec->uiValue), rec->pcText,
                               Zos_SysTime2Str(nullptr, &rec->stTime));
            if (rec->pcFile != nullptr) {
                Zos_PrintOutPutFmt(zDbuf, buf, &len, "         \"%s\":%5d  \r\n", rec->pcFile,
                                   static_cast<int>(rec->uiLine));
            }
        }
    }
    if (rc == ZOK) rc = Zos_PrintOutEnd(zDbuf, buf, &len);
    Zos_PrintFree(buf);
    return rc;
}

KESTRO_API uint32_t Zos_DumpDbgShow(void) {
    ZosEnv *env = DumpEnv();
    if (env == nullptr) return ZFAILED;
    zos::MutexGuard lock(&env->zDumpMutex);
    int number = 0;
    for (ST_ZOS_DLIST_NODE *n = env->stDumpList.pstHead; n != nullptr; n = n->pstNext) {
        DumpRec *d = DumpOfLink(n);
        if (d->uiMagic != kDumpMagic || d->wStackNum == 0) continue;
        if (number == 0) Zos_Printf("\r\n-----------------------------------------\r\n");
        Zos_Printf("[No.%d] \r\n", ++number);
        Zos_DumpPrint(d);
        Zos_Printf("-----------------------------------------\r\n\r\n");
    }
    return ZOK;
}

}  // extern "C"
