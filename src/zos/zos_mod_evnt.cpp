// Module performs (a function run on a task with arguments carried by an
// event), the call of a C function from words, and the event hub.
#include <cstdarg>
#include <cstring>

#include "zos_cbuf.h"
#include "zos_evnt.h"
#include "zos_mod_int.h"
#include "zos_msg.h"
#include "zos_osdep.h"
#include "zos_rbt.h"
#include "zos_util.h"

namespace {

using zos::ModTask;

// Kinds a conversion of the argument format makes.
enum class Kind {
    kI8,
    kU8,
    kI16,
    kU16,
    kI32,
    kU32,
    kLong,
    kULong,
    kI64,
    kU64,
    kStr,
    kMem,
    kPtr,
    kCookie,
    kEnd,
    kBad
};

// The next conversion of a format: '%', stars, 'z', 'h'/'l' (counted),
// then d, u, s or p. kEnd at the end of the text, kBad (with the letter)
// for anything else.
Kind NextConv(const char *&p, int *letter) {
    while (*p != '\0' && *p != '%') ++p;
    if (*p == '\0') return Kind::kEnd;
    ++p;
    bool star = false, z = false;
    int h = 0, l = 0;
    while (*p == '*') star = true, ++p;
    if (*p == 'z') z = true, ++p;
    while (*p == 'h' || *p == 'l') (*p == 'h' ? h : l)++, ++p;
    *letter = static_cast<unsigned char>(*p);
    const char c = *p;
    if (c != '\0') ++p;
    switch (c) {
        case 's':
            return star ? Kind::kMem : Kind::kStr;
        case 'p':
            return star ? Kind::kMem : Kind::kPtr;
        case 'd':
            if (z) return Kind::kLong;
            if (l >= 2) return Kind::kI64;
            if (l == 1) return Kind::kLong;
            return h >= 2 ? Kind::kI8 : h == 1 ? Kind::kI16 : Kind::kI32;
        case 'u':
            if (z) return Kind::kCookie;
            if (l >= 2) return Kind::kU64;
            if (l == 1) return Kind::kULong;
            return h >= 2 ? Kind::kU8 : h == 1 ? Kind::kU16 : Kind::kU32;
        default:
            return Kind::kBad;
    }
}

// Stores the next variadic argument of a kind as parameter n.
uint32_t SetArg(ZEVNT ev, uint32_t n, Kind k, va_list *args) {
    va_list &ap = *args;
    switch (k) {
        case Kind::kI8:
            return Zos_EParmSetChar(ev, n, static_cast<int8_t>(va_arg(ap, int)));
        case Kind::kU8:
            return Zos_EParmSetUchar(ev, n, static_cast<uint8_t>(va_arg(ap, unsigned)));
        case Kind::kI16:
            return Zos_EParmSetShort(ev, n, static_cast<int16_t>(va_arg(ap, int)));
        case Kind::kU16:
            return Zos_EParmSetUshort(ev, n, static_cast<uint16_t>(va_arg(ap, unsigned)));
        case Kind::kI32:
            return Zos_EParmSetInt(ev, n, va_arg(ap, int));
        case Kind::kU32:
            return Zos_EParmSetUint(ev, n, va_arg(ap, unsigned));
        case Kind::kLong:
            return Zos_EParmSetLong(ev, n, va_arg(ap, long));
        case Kind::kULong:
            return Zos_EParmSetUlong(ev, n, va_arg(ap, unsigned long));
        case Kind::kI64:
            return Zos_EParmSetInt64(ev, n, va_arg(ap, long long));
        case Kind::kU64:
            return Zos_EParmSetUint64(ev, n, va_arg(ap, unsigned long long));
        case Kind::kStr:
            return Zos_EParmSetStr(ev, n, va_arg(ap, const char *));
        case Kind::kMem: {
            const void *data = va_arg(ap, const void *);
            const unsigned len = va_arg(ap, unsigned);
            return Zos_EParmSetMem(ev, n, data, data != nullptr ? len : 0u);
        }
        case Kind::kPtr:
            return Zos_EParmSetPtr(ev, n, va_arg(ap, void *));
        case Kind::kCookie:
            return Zos_EParmSetCookie(ev, n, va_arg(ap, size_t));
        default:
            return ZFAILED;
    }
}

// An event holding the arguments of a format from parameter `first` on;
// null on failure (logged with `failText`).
ZEVNT BuildEvent(ZEVNT ev, uint32_t first, const char *fmt, va_list ap) {
    if (ev == nullptr) return nullptr;
    const char *p = fmt != nullptr ? fmt : "";
    int letter = 0;
    // A local copy, so the arguments can be handed on by address.
    va_list args;
    va_copy(args, ap);
    for (uint32_t n = first;; ++n) {
        const Kind k = NextConv(p, &letter);
        if (k == Kind::kEnd) break;
        if (k == Kind::kBad || SetArg(ev, n, k, &args) != ZOK) {
            if (k == Kind::kBad) ZOS_LOG_ERR("EvntCreateFmtSX unknown type %d.", letter);
            Zos_EvntDelete(ev);
            ev = nullptr;
            break;
        }
    }
    va_end(args);
    return ev;
}

// A 64-bit value as call words: one on a 64-bit target; on a 32-bit one
// two, low word first, from an even index (where 32-bit ARM passes it).
void Put64(uintptr_t *w, uint32_t *n, uint64_t v) {
    if constexpr (sizeof(uintptr_t) >= 8) {
        w[(*n)++] = static_cast<uintptr_t>(v);
    } else {
#if defined(__arm__)
        if ((*n & 1u) != 0) w[(*n)++] = 0;
#endif
        w[(*n)++] = static_cast<uintptr_t>(v);
        w[(*n)++] = static_cast<uintptr_t>(v >> 32);
    }
}

template <typename S>
uintptr_t Signed(S v) {
    return static_cast<uintptr_t>(static_cast<intptr_t>(v));
}

// The perform run on the host's UI thread (slot 102): the event is the
// word; it is deleted after the call.
void UiPerform(uintptr_t word) {
    auto ev = reinterpret_cast<ZEVNT>(word);
    Zos_ModEvntProc(ev);
    Zos_EvntDelete(ev);
}

// ---- hub ----------------------------------------------------------------

struct Suber {
    uint32_t uiTaskId;
    uintptr_t zData;
    PFN_ZOS_MOD_FUNC pfnFunc;
};

struct HubEntry {
    char *pcName;  // the tree's key
    uint32_t uiCount;
    uint32_t uiCap;
    Suber *pstSubers;
};

int32_t NameCmp(uintptr_t a, uintptr_t b) {
    const int r = std::strcmp(reinterpret_cast<const char *>(a), reinterpret_cast<const char *>(b));
    return r < 0 ? -1 : r > 0 ? 1 : 0;
}

void *FnPtr(PFN_ZOS_MOD_FUNC fn) {
    return reinterpret_cast<void *>(fn);
}

using Lock = zos::ModLock;

// Checks a hub call's arguments; false after logging.
bool SubArgs(const char *fn, const char *name, uint32_t task, PFN_ZOS_MOD_FUNC func) {
    if (name == nullptr || name[0] == '\0') {
        ZOS_LOG_ERR("%s invalid event name.", fn);
        return false;
    }
    if (task == ZOS_INVALID_ID || func == nullptr) {
        ZOS_LOG_ERR("%s null parameter.", fn);
        return false;
    }
    return true;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_ModEvntSetPerform(void *zEvnt, PFN_ZOS_MOD_FUNC pfnFunc) {
    return Zos_EParmSetPtr(zEvnt, ZOS_MOD_PARM_FUNC, FnPtr(pfnFunc));
}

KESTRO_API PFN_ZOS_MOD_FUNC Zos_ModEvntGetPerform(void *zEvnt) {
    return reinterpret_cast<PFN_ZOS_MOD_FUNC>(Zos_EParmGetPtr(zEvnt, ZOS_MOD_PARM_FUNC));
}

KESTRO_API uint32_t Zos_ModEvntSetParm(void *zEvnt, const char *pcFormat) {
    return Zos_EParmSetStr(zEvnt, ZOS_MOD_PARM_FMT, pcFormat);
}

KESTRO_API const char *Zos_ModEvntGetParm(void *zEvnt) {
    return Zos_EParmGetStr(zEvnt, ZOS_MOD_PARM_FMT);
}

KESTRO_API uint32_t Zos_ModEvntSetSem(void *zEvnt, ZSEM zSem) {
    return Zos_EParmSetCookie(zEvnt, ZOS_MOD_PARM_SEM, zSem);
}

KESTRO_API ZSEM Zos_ModEvntGetSem(void *zEvnt) {
    return Zos_EParmGetCookie(zEvnt, ZOS_MOD_PARM_SEM);
}

KESTRO_API uintptr_t *Zos_ModStrToArray(void *zEvnt, const char *pcFormat, uint32_t *puiCount) {
    if (puiCount != nullptr) *puiCount = 0;
    const char *p = pcFormat != nullptr ? pcFormat : "";
    int letter = 0;
    uint32_t convs = 0;
    for (Kind k; (k = NextConv(p, &letter)) != Kind::kEnd; ++convs) {
        if (k == Kind::kBad) {
            ZOS_LOG_ERR("ModStrToArray unknown type %d.", letter);
            return nullptr;
        }
    }
    // At most three words a conversion (a padded 64-bit pair), at least one.
    const uint64_t bytes = (static_cast<uint64_t>(convs) * 3u + 1u) * sizeof(uintptr_t);
    auto *w = bytes < 0x7FFFFFFFu
                  ? static_cast<uintptr_t *>(Zos_Malloc(static_cast<uint32_t>(bytes)))
                  : nullptr;
    if (w == nullptr) {
        ZOS_LOG_ERR("ModStrToArray allocate.");
        return nullptr;
    }
    uint32_t n = 0;
    p = pcFormat != nullptr ? pcFormat : "";
    for (uint32_t i = 0; i < convs; ++i) {
        switch (NextConv(p, &letter)) {
            case Kind::kI8:
                w[n++] = Signed(Zos_EParmGetChar(zEvnt, i));
                break;
            case Kind::kU8:
                w[n++] = Zos_EParmGetUchar(zEvnt, i);
                break;
            case Kind::kI16:
                w[n++] = Signed(Zos_EParmGetShort(zEvnt, i));
                break;
            case Kind::kU16:
                w[n++] = Zos_EParmGetUshort(zEvnt, i);
                break;
            case Kind::kI32:
                w[n++] = Signed(Zos_EParmGetInt(zEvnt, i));
                break;
            case Kind::kU32:
                w[n++] = Zos_EParmGetUint(zEvnt, i);
                break;
            case Kind::kLong:
                w[n++] = Signed(Zos_EParmGetLong(zEvnt, i));
                break;
            case Kind::kULong:
                w[n++] = static_cast<uintptr_t>(Zos_EParmGetUlong(zEvnt, i));
                break;
            case Kind::kI64:
                Put64(w, &n, static_cast<uint64_t>(Zos_EParmGetInt64(zEvnt, i)));
                break;
            case Kind::kU64:
                Put64(w, &n, Zos_EParmGetUint64(zEvnt, i));
                break;
            case Kind::kStr:
                w[n++] = reinterpret_cast<uintptr_t>(Zos_EParmGetStr(zEvnt, i));
                break;
            case Kind::kMem: {
                uint32_t len = 0;
                w[n++] = reinterpret_cast<uintptr_t>(Zos_EParmGetMem(zEvnt, i, &len));
                w[n++] = len;
                break;
            }
            case Kind::kPtr:
                w[n++] = reinterpret_cast<uintptr_t>(Zos_EParmGetPtr(zEvnt, i));
                break;
            case Kind::kCookie:
                w[n++] = Zos_EParmGetCookie(zEvnt, i);
                break;
            default:
                break;
        }
    }
    if (puiCount != nullptr) *puiCount = n;
    return w;
}

// The function is called through a type of N word parameters: on the
// targets served (every argument one register or stack word, 64-bit
// values placed by the word layout) that passes its real arguments. The
// call-type check of the undefined-behaviour sanitizer is off here for
// that reason.
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
KESTRO_API uint32_t
Zos_ModEvntInvoke(PFN_ZOS_MOD_FUNC pfnFunc, const uintptr_t *pzArgs, uint32_t uiCount) {
    if (pfnFunc == nullptr || (pzArgs == nullptr && uiCount != 0)) return ZFAILED;
    if (uiCount > ZOS_MOD_MAX_WORDS) {
        ZOS_LOG_ERR("ModTaskEntry too many parameters %d.", static_cast<int>(uiCount));
        return ZFAILED;
    }
    using W = uintptr_t;
    const W *a = pzArgs;
    switch (uiCount) {
        case 0:
            reinterpret_cast<void (*)()>(pfnFunc)();
            break;
        case 1:
            reinterpret_cast<void (*)(W)>(pfnFunc)(a[0]);
            break;
        case 2:
            reinterpret_cast<void (*)(W, W)>(pfnFunc)(a[0], a[1]);
            break;
        case 3:
            reinterpret_cast<void (*)(W, W, W)>(pfnFunc)(a[0], a[1], a[2]);
            break;
        case 4:
            reinterpret_cast<void (*)(W, W, W, W)>(pfnFunc)(a[0], a[1], a[2], a[3]);
            break;
        case 5:
            reinterpret_cast<void (*)(W, W, W, W, W)>(pfnFunc)(a[0], a[1], a[2], a[3], a[4]);
            break;
        case 6:
            reinterpret_cast<void (*)(W, W, W, W, W, W)>(pfnFunc)(a[0], a[1], a[2], a[3], a[4],
                                                                  a[5]);
            break;
        case 7:
            reinterpret_cast<void (*)(W, W, W, W, W, W, W)>(pfnFunc)(a[0], a[1], a[2], a[3], a[4],
                                                                     a[5], a[6]);
            break;
        case 8:
            reinterpret_cast<void (*)(W, W, W, W, W, W, W, W)>(pfnFunc)(a[0], a[1], a[2], a[3],
                                                                        a[4], a[5], a[6], a[7]);
            break;
        default:
            reinterpret_cast<void (*)(W, W, W, W, W, W, W, W, W)>(pfnFunc)(
                a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8]);
            break;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_ModEvntProc(void *zEvnt) {
    PFN_ZOS_MOD_FUNC fn = Zos_ModEvntGetPerform(zEvnt);
    uint32_t rc = ZFAILED;
    if (fn == nullptr) {
        ZOS_LOG_ERR("ModEvntProc invalid parameter.");
    } else {
        uint32_t count = 0;
        uintptr_t *words = Zos_ModStrToArray(zEvnt, Zos_ModEvntGetParm(zEvnt), &count);
        // A synchronous perform's poster waits on a semaphore of its own,
        // which it deletes only after the wait. A thread that shut-down
        // turns away while the call runs still lets the poster go, through
        // the platform's post read now, as it may not ask the layer then.
        ZSEM poster = Zos_ModEvntGetSem(zEvnt);
        const auto post = poster != 0 ? zos::Osdep<zos::kSlotSemPost>() : nullptr;
        if (words != nullptr) {
            zos::GateScope user(false);
            rc = Zos_ModEvntInvoke(fn, words, count);
        }
        if (zos::GateAbandoned()) {
            if (post != nullptr) post(&poster);
            return rc;
        }
        Zos_Free(words);
    }
    // The poster of a synchronous perform waits for this post whatever
    // became of the call.
    ZSEM sem = Zos_ModEvntGetSem(zEvnt);
    if (sem != 0 && Zos_SemPost(&sem) != ZOK) {
        ZOS_LOG_ERR("ModTaskEntry releases semaphore.");
        Zos_SemDelete(&sem);
    }
    return rc;
}

KESTRO_API uint32_t Zos_ModTaskPerform(uint32_t uiTaskId, void *zEvnt, uint32_t uiType) {
    if (zEvnt == nullptr) {
        ZOS_LOG_ERR("TaskPerform null event");
        return ZFAILED;
    }
    // Read before the event is handed over: the receiver deletes it. The
    // wait is looked up then too: a perform that outlives a shut-down lets
    // this thread go only after the layer and its platform table are gone.
    ZSEM sem = uiType == ZOS_MSG_TYPE_PERFORMX ? Zos_ModEvntGetSem(zEvnt) : 0;
    // A handle is only made with semaphores switched on.
    const auto wait = sem != 0 ? zos::Osdep<zos::kSlotSemWait>() : nullptr;
    uint32_t rc = ZFAILED;
    if (uiTaskId == ZOS_MOD_UI_TASK) {
        auto ui = zos::Osdep<zos::kSlotUiProcEvnt>();
        if (ui != nullptr) rc = ui(reinterpret_cast<uintptr_t>(zEvnt), UiPerform);
        // Without a slot, or refused by it, the event has no receiver.
        if (rc != ZOK) Zos_EvntDelete(zEvnt);
    } else {
        ZMSG msg = Zos_MsgCreateE(zEvnt, uiTaskId, uiTaskId, uiType);
        if (msg == nullptr) {
            Zos_EvntDelete(zEvnt);
        } else if ((rc = Zos_ModPostMsg(msg)) != ZOK) {
            Zos_MsgDelete(msg);  // takes the event with it
        }
        if (rc != ZOK) ZOS_LOG_ERR("ModTaskPerform send message.");
    }
    if (sem != 0) {
        if (rc == ZOK && wait != nullptr) wait(&sem, ZOS_WAIT_FOREVER);
        Zos_SemDelete(&sem);
    }
    return rc;
}

KESTRO_API uint32_t Zos_ModPerform(uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                   const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    ZEVNT ev = BuildEvent(Zos_EvntCreate(), 0, pcFormat, ap);
    va_end(ap);
    if (ev == nullptr || Zos_ModEvntSetPerform(ev, pfnFunc) != ZOK ||
        Zos_ModEvntSetParm(ev, pcFormat) != ZOK) {
        ZOS_LOG_ERR("ModPerform create event.");
        Zos_EvntDelete(ev);
        return ZFAILED;
    }
    return Zos_ModTaskPerform(uiTaskId, ev, ZOS_MSG_TYPE_PERFORM);
}

KESTRO_API uint32_t Zos_ModPerformX(uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                    const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    ZEVNT ev = BuildEvent(Zos_EvntCreate(), 0, pcFormat, ap);
    va_end(ap);
    if (ev == nullptr || Zos_ModEvntSetPerform(ev, pfnFunc) != ZOK ||
        Zos_ModEvntSetParm(ev, pcFormat) != ZOK) {
        ZOS_LOG_ERR("ModPerform create event.");
        Zos_EvntDelete(ev);
        return ZFAILED;
    }
    // Waiting for a task that runs on the caller's own thread would never
    // end: such a perform runs at once. That is the case for the UI task
    // on the main thread, for the caller's own task, and for a task of the
    // shared queue when the caller is the thread that drains it.
    bool atOnce = (uiTaskId == ZOS_MOD_UI_TASK && Zos_TaskIsMainThread() != 0) ||
                  Zos_TaskIsCurrent(uiTaskId) != 0;
    if (!atOnce && uiTaskId != ZOS_MOD_UI_TASK) {
        if (ZosModMgr *mgr = zos::ModMgr()) {
            bool shared = false;
            {
                Lock lock(mgr);
                ModTask *t = zos::TaskFind(mgr, uiTaskId);
                shared = t != nullptr && t->zQueue == nullptr;
            }
            if (shared) {
                atOnce = mgr->bThreaded != 0 ? Zos_TaskIsCurrent(mgr->uiMgrTaskId) != 0
                                             : Zos_TaskIsMainThread() != 0;
            }
        }
    }
    if (atOnce) {
        const uint32_t rc = Zos_ModEvntProc(ev);
        Zos_EvntDelete(ev);
        return rc;
    }
    ZSEM sem = 0;
    if (Zos_SemCreate(&sem, 0) != ZOK) {
        ZOS_LOG_ERR("ModPerformX create semaphore.");
        Zos_EvntDelete(ev);
        return ZFAILED;
    }
    if (Zos_ModEvntSetSem(ev, sem) != ZOK) {
        ZOS_LOG_ERR("ModPerformX set semaphore.");
        Zos_SemDelete(&sem);
        Zos_EvntDelete(ev);
        return ZFAILED;
    }
    return Zos_ModTaskPerform(uiTaskId, ev, ZOS_MSG_TYPE_PERFORMX);
}

// ---- hub ----------------------------------------------------------------

KESTRO_API uint32_t Zos_ModEhInit(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    // Made already: nothing to do, as with the layer's other start-up
    // steps. A second hub would drop the first one's entries and memory.
    if (mgr->zHub != nullptr) return ZOK;
    ZCBUF buf = Zos_CbufCreate(512);
    if (buf == nullptr) {
        ZOS_LOG_ERR("ModEhInit allocate memory buffer.");
        return ZFAILED;
    }
    ZRBT tree = Zos_RbtCreate(buf);
    if (tree == nullptr || Zos_RbtSetCmp(tree, NameCmp) != ZOK) {
        ZOS_LOG_ERR("ModEhInit create hub.");
        Zos_RbtDelete(tree);
        Zos_CbufDelete(buf);
        return ZFAILED;
    }
    mgr->zHubBuf = buf;
    mgr->zHub = tree;
    Zos_LogInfo(Zos_LogGetZosId(), "ModEhInit hub.");
    return ZOK;
}

KESTRO_API void Zos_ModEhDestroy(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || mgr->zHub == nullptr) return;
    Lock lock(mgr);
    for (ZRBTNODE n = Zos_RbtHead(mgr->zHub, ZOS_RBT_INORDER); n != nullptr;
         n = Zos_RbtNext(mgr->zHub, n, ZOS_RBT_INORDER)) {
        auto *e = reinterpret_cast<HubEntry *>(Zos_RbtGetValue(n));
        Zos_Free(e->pstSubers);
        Zos_Free(e->pcName);
        Zos_Free(e);
    }
    Zos_RbtDelete(mgr->zHub);
    Zos_CbufDelete(mgr->zHubBuf);
    mgr->zHub = nullptr;
    mgr->zHubBuf = nullptr;
}

KESTRO_API void *Zos_ModEhFindEntry(const char *pcName) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || mgr->zHub == nullptr || pcName == nullptr) return nullptr;
    Lock lock(mgr);
    ZRBTNODE n = Zos_RbtFind(mgr->zHub, reinterpret_cast<uintptr_t>(pcName));
    return n != nullptr ? reinterpret_cast<void *>(Zos_RbtGetValue(n)) : nullptr;
}

KESTRO_API void *Zos_ModEhCreateEntry(const char *pcName) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || mgr->zHub == nullptr || pcName == nullptr) return nullptr;
    const size_t len = std::strlen(pcName);
    if (len >= 0x7FFFFFFFu) return nullptr;
    auto *e = static_cast<HubEntry *>(Zos_MallocClrd(sizeof(HubEntry)));
    char *name = static_cast<char *>(Zos_Malloc(static_cast<uint32_t>(len + 1)));
    if (e == nullptr || name == nullptr) {
        Zos_Free(e);
        Zos_Free(name);
        return nullptr;
    }
    std::memcpy(name, pcName, len + 1);
    e->pcName = name;
    Lock lock(mgr);
    if (Zos_RbtAdd(mgr->zHub, reinterpret_cast<uintptr_t>(name), reinterpret_cast<uintptr_t>(e)) !=
        ZOK) {
        Zos_Free(name);
        Zos_Free(e);
        return nullptr;
    }
    return e;
}

KESTRO_API uint32_t Zos_ModEhDeleteEntry(void *pEntry) {
    ZosModMgr *mgr = zos::ModMgr();
    auto *e = static_cast<HubEntry *>(pEntry);
    if (mgr == nullptr || mgr->zHub == nullptr || e == nullptr) return ZFAILED;
    Lock lock(mgr);
    if (Zos_RbtRmv(mgr->zHub, reinterpret_cast<uintptr_t>(e->pcName)) != ZOK) return ZFAILED;
    Zos_Free(e->pstSubers);
    Zos_Free(e->pcName);
    Zos_Free(e);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModEhReallocEntry(void *pEntry) {
    auto *e = static_cast<HubEntry *>(pEntry);
    if (e == nullptr || e->uiCap > 0x01000000u) return ZFAILED;
    const uint32_t cap = e->uiCap == 0 ? 4u : e->uiCap * 2u;
    auto *grown = static_cast<Suber *>(Zos_Malloc(cap * static_cast<uint32_t>(sizeof(Suber))));
    if (grown == nullptr) return ZFAILED;
    if (e->uiCount != 0) std::memcpy(grown, e->pstSubers, e->uiCount * sizeof(Suber));
    Zos_Free(e->pstSubers);
    e->pstSubers = grown;
    e->uiCap = cap;
    return ZOK;
}

KESTRO_API void *Zos_ModEhFindSuber(void *pEntry, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                    uintptr_t zData) {
    auto *e = static_cast<HubEntry *>(pEntry);
    if (e == nullptr) return nullptr;
    for (uint32_t i = 0; i < e->uiCount; ++i) {
        Suber &s = e->pstSubers[i];
        if (s.uiTaskId == uiTaskId && s.pfnFunc == pfnFunc && s.zData == zData) return &s;
    }
    return nullptr;
}

KESTRO_API uint32_t Zos_ModEhAddSuber(void *pEntry, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                      uintptr_t zData) {
    auto *e = static_cast<HubEntry *>(pEntry);
    if (e == nullptr) return ZFAILED;
    if (e->uiCount == e->uiCap && Zos_ModEhReallocEntry(e) != ZOK) return ZFAILED;
    e->pstSubers[e->uiCount++] = Suber{uiTaskId, zData, pfnFunc};
    return ZOK;
}

// What a subscribe or unsubscribe found; its line is written after the
// module lock is released, so a task subscribing in a loop does not hold
// every poster up behind its log writes.
enum class SubOutcome { kDone, kNoEntry, kExists, kNoSuber, kFailed };

KESTRO_API uint32_t Zos_ModEhSub(const char *pcName, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                 uintptr_t zData) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || mgr->zHub == nullptr || pcName == nullptr) return ZFAILED;
    SubOutcome outcome = SubOutcome::kDone;
    {
        Lock lock(mgr);
        void *e = Zos_ModEhFindEntry(pcName);
        if (e == nullptr && (e = Zos_ModEhCreateEntry(pcName)) == nullptr) {
            outcome = SubOutcome::kNoEntry;
        } else if (Zos_ModEhFindSuber(e, uiTaskId, pfnFunc, zData) != nullptr) {
            outcome = SubOutcome::kExists;
        } else if (Zos_ModEhAddSuber(e, uiTaskId, pfnFunc, zData) != ZOK) {
            // An entry lives only while it has subscribers: one just made
            // for this subscriber goes again rather than stay empty.
            if (static_cast<HubEntry *>(e)->uiCount == 0) Zos_ModEhDeleteEntry(e);
            outcome = SubOutcome::kFailed;
        }
    }
    const size_t data = zData;
    switch (outcome) {
        case SubOutcome::kNoEntry:
            ZOS_LOG_ERR("ModEhSub create entry %s.", pcName);
            return ZFAILED;
        case SubOutcome::kExists:
            ZOS_LOG_WARN("ModEhSub entry %s exist suber %x:%zu:%p.", pcName, uiTaskId, data,
                         FnPtr(pfnFunc));
            return ZOK;
        case SubOutcome::kFailed:
            ZOS_LOG_ERR("ModEhSub entry %s create suber %x:%zu:%p.", pcName, uiTaskId, data,
                        FnPtr(pfnFunc));
            return ZFAILED;
        default:
            Zos_LogInfo(Zos_LogGetZosId(), "ModEhSub entry %s suber %x:%zu:%p.", pcName, uiTaskId,
                        data, FnPtr(pfnFunc));
            return ZOK;
    }
}

KESTRO_API uint32_t Zos_ModEhUnSub(const char *pcName, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                   uintptr_t zData) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || mgr->zHub == nullptr || pcName == nullptr) return ZFAILED;
    SubOutcome outcome = SubOutcome::kDone;
    {
        Lock lock(mgr);
        auto *e = static_cast<HubEntry *>(Zos_ModEhFindEntry(pcName));
        auto *s = e != nullptr
                      ? static_cast<Suber *>(Zos_ModEhFindSuber(e, uiTaskId, pfnFunc, zData))
                      : nullptr;
        if (e == nullptr) {
            outcome = SubOutcome::kNoEntry;
        } else if (s == nullptr) {
            outcome = SubOutcome::kNoSuber;
        } else {
            // Later subscribers move up, keeping their order.
            const uint32_t at = static_cast<uint32_t>(s - e->pstSubers);
            std::memmove(s, s + 1, (e->uiCount - at - 1) * sizeof(Suber));
            e->uiCount--;
            if (e->uiCount == 0) Zos_ModEhDeleteEntry(e);
        }
    }
    const size_t data = zData;
    switch (outcome) {
        case SubOutcome::kNoEntry:
            ZOS_LOG_ERR("ModEhUnSub no entry %s.", pcName);
            return ZFAILED;
        case SubOutcome::kNoSuber:
            ZOS_LOG_ERR("ModEhUnSub entry %s no suber %x:%zu:%p.", pcName, uiTaskId, data,
                        FnPtr(pfnFunc));
            return ZFAILED;
        default:
            Zos_LogInfo(Zos_LogGetZosId(), "ModEhUnSub entry %s suber %x:%zu:%p.", pcName, uiTaskId,
                        data, FnPtr(pfnFunc));
            return ZOK;
    }
}

KESTRO_API uint32_t Zos_ModSubEvnt(const char *pcName, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                   uintptr_t zData) {
    if (!SubArgs("ModSubEvnt", pcName, uiTaskId, pfnFunc)) return ZFAILED;
    return Zos_ModEhSub(pcName, uiTaskId, pfnFunc, zData);
}

KESTRO_API uint32_t Zos_ModUnSubEvnt(const char *pcName, uint32_t uiTaskId,
                                     PFN_ZOS_MOD_FUNC pfnFunc, uintptr_t zData) {
    if (!SubArgs("ModUnSubEvnt", pcName, uiTaskId, pfnFunc)) return ZFAILED;
    return Zos_ModEhUnSub(pcName, uiTaskId, pfnFunc, zData);
}

KESTRO_API uint32_t Zos_ModPubEvnt(const char *pcName, const char *pcFormat, ...) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || pcName == nullptr) return ZFAILED;
    static constexpr char kPrefix[] = "%p %zu ";
    const char *user = pcFormat != nullptr ? pcFormat : "";
    const size_t userLen = std::strlen(user);
    const size_t nameLen = std::strlen(pcName);
    if (userLen > 0x7FFF0000u || nameLen > 0x7FFF0000u) return ZFAILED;
    char *full = static_cast<char *>(Zos_Malloc(static_cast<uint32_t>(sizeof(kPrefix) + userLen)));
    if (full == nullptr) return ZFAILED;
    std::memcpy(full, kPrefix, sizeof(kPrefix) - 1);
    std::memcpy(full + sizeof(kPrefix) - 1, user, userLen + 1);

    // The subscribers are copied under the lock, so the calls below need
    // none and a subscription changed meanwhile does no harm.
    Suber *subers = nullptr;
    uint32_t count = 0;
    {
        Lock lock(mgr);
        auto *e = static_cast<HubEntry *>(Zos_ModEhFindEntry(pcName));
        if (e != nullptr && e->uiCount != 0) {
            subers =
                static_cast<Suber *>(Zos_Malloc(e->uiCount * static_cast<uint32_t>(sizeof(Suber))));
            if (subers != nullptr) {
                std::memcpy(subers, e->pstSubers, e->uiCount * sizeof(Suber));
                count = e->uiCount;
            }
        }
    }
    if (count == 0) {
        ZOS_LOG_ERR("ModPubEvnt no subscriber %s.", pcName);
        Zos_Free(full);
        return ZFAILED;
    }
    Zos_LogInfo(Zos_LogGetZosId(), "ModPubEvnt event %s.", pcName);
    uint32_t rc = ZOK;
    va_list ap;
    va_start(ap, pcFormat);
    for (uint32_t i = 0; i < count; ++i) {
        ZEVNT ev = Zos_EvntCreate();
        // Parameter 0: the event name, copied into the event; 1: the data.
        char *name =
            ev != nullptr
                ? static_cast<char *>(Zos_EvntAlloc(ev, static_cast<uint32_t>(nameLen + 1)))
                : nullptr;
        if (name != nullptr) std::memcpy(name, pcName, nameLen + 1);
        va_list args;
        va_copy(args, ap);
        if (name == nullptr || Zos_EParmSetPtr(ev, 0, name) != ZOK ||
            Zos_EParmSetCookie(ev, 1, subers[i].zData) != ZOK ||
            (ev = BuildEvent(ev, 2, user, args)) == nullptr ||
            Zos_ModEvntSetPerform(ev, subers[i].pfnFunc) != ZOK ||
            Zos_ModEvntSetParm(ev, full) != ZOK) {
            va_end(args);
            ZOS_LOG_ERR("ModPubEvnt create event %s.", pcName);
            Zos_EvntDelete(ev);
            rc = ZFAILED;
            continue;
        }
        va_end(args);
        if (Zos_ModTaskPerform(subers[i].uiTaskId, ev, ZOS_MSG_TYPE_PERFORM) != ZOK) {
            ZOS_LOG_ERR("ModPubEvnt perform event %s.", pcName);
            rc = ZFAILED;
        }
    }
    va_end(ap);
    Zos_Free(subers);
    Zos_Free(full);
    return rc;
}

}  // extern "C"
