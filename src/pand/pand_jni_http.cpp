// HTTP bridge on the Java class ZpandHttp: one Java object per connection,
// held as a global reference, and the native "notifyStatus" through which
// the Java side reports status changes.
#include <cstring>

#include "pand_jni.h"
#include "zos_http.h"
#include "zos_sys.h"
#include "zpand.h"

namespace {

constexpr const char *kHttpClass = "com/quelmar/nubo/kestro/ZpandHttp";

// Bound once at load, like the other classes (process-wide).
jclass g_httpClass = nullptr;
struct HttpMethods {
    jmethodID init, open, close, connect, disconnect, setProperty, setConfig, setBody, getBody;
};
HttpMethods g_http{};

struct MethodRow {
    jmethodID HttpMethods::*field;
    const char *name;
    const char *sig;
};
constexpr MethodRow kMethods[] = {
    {&HttpMethods::init, "<init>", "()V"},
    {&HttpMethods::open, "open", "(ILjava/lang/String;ZZ)Z"},
    {&HttpMethods::close, "close", "()V"},
    {&HttpMethods::connect, "connect", "()V"},
    {&HttpMethods::disconnect, "disconnect", "()V"},
    {&HttpMethods::setProperty, "setProperty", "(Ljava/lang/String;Ljava/lang/String;)V"},
    {&HttpMethods::setConfig, "setConfig", "(Ljava/lang/String;Ljava/lang/String;)V"},
    {&HttpMethods::setBody, "setBody", "(Ljava/lang/String;Ljava/lang/String;Z)V"},
    {&HttpMethods::getBody, "getBody", "()Ljava/lang/String;"},
};

bool Bound() {
    return g_httpClass != nullptr;
}

// A void call on the connection object with its exception cleared.
template <typename... Args>
uint32_t CallVoid(void *obj, jmethodID HttpMethods::*method, Args... args) {
    if (obj == nullptr || !Bound()) return ZFAILED;
    zpand::jni::EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return ZFAILED;
    env->CallVoidMethod(static_cast<jobject>(obj), g_http.*method, args...);
    zpand::jni::ClearException(env);
    return ZOK;
}

// A call taking two texts as Java strings, released afterwards.
uint32_t CallTexts(void *obj, jmethodID HttpMethods::*method, const char *t1, const char *t2,
                   bool withFlag, bool flag) {
    if (obj == nullptr || !Bound()) return ZFAILED;
    zpand::jni::EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return ZFAILED;
    jstring j1 = Zpand_BytesToJstring(env, t1);
    jstring j2 = Zpand_BytesToJstring(env, t2);
    if (withFlag) {
        env->CallVoidMethod(static_cast<jobject>(obj), g_http.*method, j1, j2,
                            static_cast<jboolean>(flag ? JNI_TRUE : JNI_FALSE));
    } else {
        env->CallVoidMethod(static_cast<jobject>(obj), g_http.*method, j1, j2);
    }
    zpand::jni::ClearException(env);
    if (j1 != nullptr) env->DeleteLocalRef(j1);
    if (j2 != nullptr) env->DeleteLocalRef(j2);
    return ZOK;
}

void JNICALL NotifyStatus(JNIEnv * /*env*/, jclass /*cls*/, jint id, jint status) {
    Zos_HttpNotifyStatus(static_cast<int32_t>(id), static_cast<int32_t>(status));
}

template <typename F>
ZOS_OSDEP_FUNC AsSlot(F fn) {
    return reinterpret_cast<ZOS_OSDEP_FUNC>(fn);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zpand_HttpOnLoad(JNIEnv *pstEnv) {
    if (pstEnv == nullptr || Bound()) return ZFAILED;
    jclass local = pstEnv->FindClass(kHttpClass);
    if (local == nullptr) {
        zpand::jni::ClearException(pstEnv);
        return ZFAILED;
    }
    auto cls = static_cast<jclass>(pstEnv->NewGlobalRef(local));
    HttpMethods methods{};
    bool ok = cls != nullptr;
    for (const MethodRow &row : kMethods) {
        if (!ok) break;
        methods.*row.field = pstEnv->GetMethodID(cls, row.name, row.sig);
        if (methods.*row.field == nullptr) {
            zpand::jni::ClearException(pstEnv);
            ok = false;
        }
    }
    if (ok) {
        JNINativeMethod native{const_cast<char *>("notifyStatus"), const_cast<char *>("(II)V"),
                               reinterpret_cast<void *>(NotifyStatus)};
        if (pstEnv->RegisterNatives(local, &native, 1) != JNI_OK) {
            zpand::jni::ClearException(pstEnv);
            ok = false;
        }
    }
    pstEnv->DeleteLocalRef(local);
    if (!ok) {
        if (cls != nullptr) pstEnv->DeleteGlobalRef(cls);
        return ZFAILED;
    }
    g_http = methods;
    g_httpClass = cls;
    return ZOK;
}

JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandHttp_notifyStatus(JNIEnv *pstEnv, jclass jCls,
                                                                      jint iId, jint iStatus) {
    NotifyStatus(pstEnv, jCls, iId, iStatus);
}

KESTRO_API void *Zpand_HttpOpen(int32_t iId, const char *pcUrl, const void *pOption1,
                                const void *pOption2) {
    if (!Bound()) return nullptr;
    zpand::jni::EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return nullptr;
    jobject local = env->NewObject(g_httpClass, g_http.init);
    if (local == nullptr) {
        zpand::jni::ClearException(env);
        return nullptr;
    }
    // Only whether each option is given reaches Java; the result of
    // "open" is not used.
    jstring url = Zpand_BytesToJstring(env, pcUrl);
    env->CallBooleanMethod(local, g_http.open, static_cast<jint>(iId), url,
                           static_cast<jboolean>(pOption1 != nullptr ? JNI_TRUE : JNI_FALSE),
                           static_cast<jboolean>(pOption2 != nullptr ? JNI_TRUE : JNI_FALSE));
    zpand::jni::ClearException(env);
    if (url != nullptr) env->DeleteLocalRef(url);
    jobject global = env->NewGlobalRef(local);
    env->DeleteLocalRef(local);
    return global;
}

KESTRO_API void Zpand_HttpClose(void *pObj) {
    if (pObj == nullptr || !Bound()) return;
    zpand::jni::EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return;
    env->CallVoidMethod(static_cast<jobject>(pObj), g_http.close);
    zpand::jni::ClearException(env);
    env->DeleteGlobalRef(static_cast<jobject>(pObj));
}

KESTRO_API uint32_t Zpand_HttpConn(void *pObj) {
    return CallVoid(pObj, &HttpMethods::connect);
}

KESTRO_API uint32_t Zpand_HttpDisconn(void *pObj) {
    return CallVoid(pObj, &HttpMethods::disconnect);
}

KESTRO_API uint32_t Zpand_HttpSetProp(void *pObj, const char *pcName, const char *pcValue) {
    return CallTexts(pObj, &HttpMethods::setProperty, pcName, pcValue, false, false);
}

KESTRO_API uint32_t Zpand_HttpSetCfg(void *pObj, const char *pcName, const char *pcValue) {
    return CallTexts(pObj, &HttpMethods::setConfig, pcName, pcValue, false, false);
}

KESTRO_API uint32_t Zpand_HttpSetBody(void *pObj, const char *pcText1, const char *pcText2) {
    return CallTexts(pObj, &HttpMethods::setBody, pcText1, pcText2, true, false);
}

KESTRO_API uint32_t Zpand_HttpSetFile(void *pObj, const char *pcText1, const char *pcText2) {
    return CallTexts(pObj, &HttpMethods::setBody, pcText1, pcText2, true, true);
}

KESTRO_API char *Zpand_HttpGetBody(void *pObj) {
    if (pObj == nullptr || !Bound()) return nullptr;
    zpand::jni::EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return nullptr;
    auto body =
        static_cast<jstring>(env->CallObjectMethod(static_cast<jobject>(pObj), g_http.getBody));
    if (zpand::jni::ClearException(env) || body == nullptr) return nullptr;
    char *text = Zpand_JstringToBytes(env, body, nullptr);
    env->DeleteLocalRef(body);
    return text;
}

KESTRO_API uint32_t Zpand_HttpOsdepInstall(void) {
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    if (holder == nullptr || holder->pfnOsdep == nullptr) return ZFAILED;
    const ZOS_OSDEP_FUNC fill[] = {
        AsSlot(Zpand_HttpOpen),    AsSlot(Zpand_HttpClose),   AsSlot(Zpand_HttpConn),
        AsSlot(Zpand_HttpDisconn), AsSlot(Zpand_HttpSetProp), AsSlot(Zpand_HttpSetCfg),
        AsSlot(Zpand_HttpSetBody), AsSlot(Zpand_HttpSetFile), AsSlot(Zpand_HttpGetBody)};
    // Table slots 107 to 115, in the order above.
    std::memcpy(holder->pfnOsdep + 107, fill, sizeof(fill));
    return ZOK;
}

}  // extern "C"
