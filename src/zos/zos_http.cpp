// HTTP client bridge: the table of open connections on an object map, and
// every operation forwarded to the platform table's HTTP slots under the
// bridge's mutex.
#include "zos_http.h"

#include <cstdlib>

#include "zos_env.h"
#include "zos_mod.h"
#include "zos_omap.h"
#include "zos_osdep.h"
#include "zos_str.h"
#include "zos_util.h"

// Exported through its declaration in the header (an attribute on this
// definition of a constant is ignored by GCC).
extern "C" {
const char *const kZosHttpNotifyStatusEvnt = "kZosHttpNotifyStatusEvnt";
}

namespace {

// Connection ids handed out: 1 .. kMaxConns.
constexpr uint32_t kFirstId = 1;
constexpr uint32_t kMaxConns = 0xFFFF;

#define HTTP_LOG_INFO(...) ((void)Zos_LogInfo(Zos_LogGetZosId(), __VA_ARGS__))

ZosEnv *Started() {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && env->ucHttpInit != 0 ? env : nullptr;
}

ZOMAP Map(ZosEnv *env) {
    return static_cast<ZOMAP>(env->pHttpMap);
}

// The texts of one forwarded operation.
struct OpTexts {
    const char *noFunction;
    const char *noConn;
    const char *conn;
};

// A forwarded operation: the slot's function called with the connection
// object while the mutex is held, its result logged and returned.
template <uint32_t kSlot, typename... Args>
uint32_t Forward(const OpTexts &t, int32_t id, Args... args) {
    auto fn = zos::Osdep<kSlot>();
    if (fn == nullptr) {
        ZOS_LOG_ERR(t.noFunction);
        return ZFAILED;
    }
    void *env = nullptr;
    void *obj = Zos_HttpRetain(&env, id);
    if (obj == nullptr) {
        ZOS_LOG_ERR(t.noConn, id);
        return ZFAILED;
    }
    const uint32_t ret = fn(obj, args...);
    if (ret != ZOK) {
        ZOS_LOG_ERR(t.conn, id);
    } else {
        HTTP_LOG_INFO(t.conn, id);
    }
    Zos_HttpRelease(env);
    return ret;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_HttpInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    if (env->ucHttpInit != 0) return ZOK;
    if (Zos_MutexCreate(&env->zHttpMutex) != ZOK) {
        ZOS_LOG_ERR("HttpInit create mutex.");
        return ZFAILED;
    }
    env->pHttpMap = Zos_OmapCreate(kFirstId, kMaxConns);
    if (env->pHttpMap == nullptr) {
        Zos_MutexDelete(&env->zHttpMutex);
        ZOS_LOG_ERR("HttpInit create map.");
        return ZFAILED;
    }
    HTTP_LOG_INFO("HttpInit");
    env->ucHttpInit = 1;
    return ZOK;
}

KESTRO_API void Zos_HttpDestroy(void) {
    ZosEnv *env = Started();
    if (env == nullptr) return;
    auto close = zos::Osdep<zos::kSlotHttpClose>();
    Zos_MutexLock(&env->zHttpMutex);
    env->ucHttpInit = 0;
    // The first connection goes to the platform's close until the table is
    // empty; nothing here takes it out of the table (a connection left
    // open keeps this loop going).
    while (Zos_OmapCount(Map(env)) != 0) {
        void *obj = nullptr;
        if (close != nullptr && Zos_OmapFirst(Map(env), nullptr, &obj) == ZOK) close(obj);
    }
    Zos_OmapDelete(Map(env));
    env->pHttpMap = nullptr;
    Zos_MutexUnlock(&env->zHttpMutex);
    Zos_MutexDelete(&env->zHttpMutex);
    HTTP_LOG_INFO("HttpDestroy");
}

KESTRO_API int32_t Zos_HttpOpen(const char *pcUrl, const void *pOption1, const void *pOption2) {
    ZosEnv *env = Started();
    if (env == nullptr) {
        ZOS_LOG_ERR("HttpOpen no env.");
        return -1;
    }
    auto open = zos::Osdep<zos::kSlotHttpOpen>();
    auto close = zos::Osdep<zos::kSlotHttpClose>();
    if (open == nullptr || close == nullptr) {
        ZOS_LOG_ERR("HttpOpen no function.");
        return -1;
    }
    if (Zos_MutexLock(&env->zHttpMutex) != ZOK) {
        ZOS_LOG_ERR("HttpOpen lock.");
        return -1;
    }
    uint32_t id = 0;
    if (Zos_OmapAllocId(Map(env), &id) != ZOK) {
        ZOS_LOG_ERR("HttpOpen get id.");
        Zos_MutexUnlock(&env->zHttpMutex);
        return -1;
    }
    const auto iid = static_cast<int32_t>(id);
    void *obj = open(iid, pcUrl, pOption1, pOption2);
    if (obj == nullptr) {
        ZOS_LOG_ERR("HttpOpen create.");
        Zos_OmapFreeId(Map(env), id);
        Zos_MutexUnlock(&env->zHttpMutex);
        return -1;
    }
    if (Zos_OmapMap(Map(env), id, obj) != ZOK) {
        ZOS_LOG_ERR("HttpOpen add.");
        close(obj);
        Zos_OmapFreeId(Map(env), id);
        Zos_MutexUnlock(&env->zHttpMutex);
        return -1;
    }
    HTTP_LOG_INFO("HttpOpen conn<%d>.", iid);
    Zos_MutexUnlock(&env->zHttpMutex);
    return iid;
}

KESTRO_API void Zos_HttpClose(int32_t iId) {
    auto close = zos::Osdep<zos::kSlotHttpClose>();
    if (close == nullptr) {
        ZOS_LOG_ERR("HttpClose no function.");
        return;
    }
    ZosEnv *env = Started();
    void *obj = nullptr;
    if (env != nullptr) {
        Zos_MutexLock(&env->zHttpMutex);
        obj = Zos_OmapFind(Map(env), static_cast<uint32_t>(iId));
        if (obj != nullptr) Zos_OmapRemove(Map(env), static_cast<uint32_t>(iId));
        Zos_MutexUnlock(&env->zHttpMutex);
    }
    if (obj == nullptr) {
        ZOS_LOG_ERR("HttpClose no conn<%d>.", iId);
        return;
    }
    close(obj);
    HTTP_LOG_INFO("HttpClose conn<%d>.", iId);
}

KESTRO_API uint32_t Zos_HttpConn(int32_t iId) {
    static constexpr OpTexts t{"HttpConn no function.", "HttpConn no conn<%d>.",
                               "HttpConn conn<%d>."};
    return Forward<zos::kSlotHttpConn>(t, iId);
}

KESTRO_API uint32_t Zos_HttpDisconn(int32_t iId) {
    static constexpr OpTexts t{"HttpDisconn no function.", "HttpDisconn no conn<%d>.",
                               "HttpDisconn conn<%d>."};
    return Forward<zos::kSlotHttpDisconn>(t, iId);
}

KESTRO_API uint32_t Zos_HttpSetProp(int32_t iId, const char *pcName, const char *pcValue) {
    static constexpr OpTexts t{"HttpSetProp no function.", "HttpSetProp no conn<%d>.",
                               "HttpSetProp conn<%d>."};
    return Forward<zos::kSlotHttpSetProp>(t, iId, pcName, pcValue);
}

KESTRO_API uint32_t Zos_HttpSetCfg(int32_t iId, const char *pcName, const char *pcValue) {
    static constexpr OpTexts t{"HttpSetCfg no function.", "HttpSetCfg no conn<%d>.",
                               "HttpSetCfg conn<%d>."};
    return Forward<zos::kSlotHttpSetCfg>(t, iId, pcName, pcValue);
}

KESTRO_API uint32_t Zos_HttpSetBody(int32_t iId, const char *pcText1, const char *pcText2) {
    static constexpr OpTexts t{"HttpSetBody no function.", "HttpSetBody no conn<%d>.",
                               "HttpSetBody conn<%d>."};
    return Forward<zos::kSlotHttpSetBody>(t, iId, pcText1, pcText2);
}

KESTRO_API uint32_t Zos_HttpSetFile(int32_t iId, const char *pcText1, const char *pcText2) {
    static constexpr OpTexts t{"HttpSetFile no function.", "HttpSetFile no conn<%d>.",
                               "HttpSetFile conn<%d>."};
    return Forward<zos::kSlotHttpSetFile>(t, iId, pcText1, pcText2);
}

KESTRO_API ZDBUF Zos_HttpGetBody(int32_t iId) {
    auto get = zos::Osdep<zos::kSlotHttpGetBody>();
    if (get == nullptr) {
        ZOS_LOG_ERR("HttpGetBody no function.");
        return nullptr;
    }
    void *env = nullptr;
    void *obj = Zos_HttpRetain(&env, iId);
    if (obj == nullptr) {
        ZOS_LOG_ERR("HttpGetBody no conn<%d>.", iId);
        return nullptr;
    }
    char *text = get(obj);
    if (text == nullptr || text[0] == '\0') {
        ZOS_LOG_ERR("HttpGetBody conn<%d>.", iId);
        Zos_HttpRelease(env);
        // An empty text is released too: nothing refers to it any more.
        std::free(text);
        return nullptr;
    }
    Zos_HttpRelease(env);
    ZDBUF buf = Zos_DbufCreateAddD(nullptr, 1, 128, text, Zos_StrLen(text));
    std::free(text);
    if (buf == nullptr) return nullptr;
    if (Zos_DbufPstAddD(buf, 0) != ZOK) {
        Zos_DbufDelete(buf);
        return nullptr;
    }
    if (Zos_DbufIsFlat(buf) == 0) {
        ZDBUF flat = Zos_DbufFlat(buf);
        Zos_DbufDelete(buf);
        if (flat == nullptr) return nullptr;
        buf = flat;
    }
    HTTP_LOG_INFO("HttpGetBody conn<%d> length %d.", iId, static_cast<int>(Zos_DbufLen(buf)));
    return buf;
}

KESTRO_API void *Zos_HttpRetain(void **ppEnv, int32_t iId) {
    ZosEnv *env = Started();
    if (env == nullptr) {
        ZOS_LOG_ERR("HttpRetain no env.");
        return nullptr;
    }
    if (ppEnv != nullptr) *ppEnv = env;
    Zos_MutexLock(&env->zHttpMutex);
    void *obj = Zos_OmapFind(Map(env), static_cast<uint32_t>(iId));
    if (obj == nullptr) Zos_MutexUnlock(&env->zHttpMutex);
    return obj;
}

KESTRO_API void Zos_HttpRelease(void *pEnv) {
    if (pEnv == nullptr) return;
    Zos_MutexUnlock(&static_cast<ZosEnv *>(pEnv)->zHttpMutex);
}

KESTRO_API void Zos_HttpNotifyStatus(int32_t iId, int32_t iStatus) {
    void *env = nullptr;
    if (Zos_HttpRetain(&env, iId) == nullptr) {
        ZOS_LOG_ERR("HttpNotifyStatus no conn<%d>.", iId);
        return;
    }
    HTTP_LOG_INFO("HttpNotifyStatus conn<%d> %d.", iId, iStatus);
    Zos_ModPubEvnt(kZosHttpNotifyStatusEvnt, "%d %d", iId, iStatus);
    Zos_HttpRelease(env);
}

}  // extern "C"
