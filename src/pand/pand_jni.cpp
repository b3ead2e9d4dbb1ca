// Library entry from a Java virtual machine: binds the Java classes of
// com/quelmar/nubo/kestro once per process, and the environment and text
// helpers every Java bridge uses.
#include "pand_jni.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

// The HTTP bridge is a separate piece of the library; loading runs its
// step only when it is linked in.
#pragma weak Zpand_HttpOnLoad

extern "C" {

// Process-wide, written only while the library is loaded (a virtual
// machine loads a library from one thread), never released.
KESTRO_API JavaVM *g_zZosJvm = nullptr;
KESTRO_API jclass g_zZpandNet = nullptr;
KESTRO_API jclass g_zZpandMod = nullptr;
KESTRO_API jmethodID g_zZpandNetGetLocalIP = nullptr;
KESTRO_API jmethodID g_zZpandModPostDrv = nullptr;

}  // extern "C"

namespace {

constexpr const char *kNetClass = "com/quelmar/nubo/kestro/ZpandNet";
constexpr const char *kModClass = "com/quelmar/nubo/kestro/ZpandMod";
constexpr const char *kTimerClass = "com/quelmar/nubo/kestro/ZpandTimer";

// The text conversion bindings (process-wide like the ones above).
jclass g_stringClass = nullptr;
jstring g_utf8Name = nullptr;
jmethodID g_stringInit = nullptr;
jmethodID g_stringGetBytes = nullptr;

// The JDK's jni.h takes the environment out-parameter of
// AttachCurrentThread as void **, the Android NDK's as JNIEnv **: this
// converts to whichever the header in use asks for.
struct EnvOut {
    JNIEnv **env;
    operator JNIEnv **() const { return env; }
    operator void **() const { return reinterpret_cast<void **>(env); }
};

// A class found by name as a global reference (the local one dropped);
// null, with the exception cleared, when it is not there.
jclass GlobalClass(JNIEnv *env, const char *name) {
    jclass local = env->FindClass(name);
    if (local == nullptr) {
        zpand::jni::ClearException(env);
        return nullptr;
    }
    auto global = static_cast<jclass>(env->NewGlobalRef(local));
    env->DeleteLocalRef(local);
    return global;
}

jmethodID StaticMethod(JNIEnv *env, jclass cls, const char *name, const char *sig) {
    jmethodID id = env->GetStaticMethodID(cls, name, sig);
    if (id == nullptr) zpand::jni::ClearException(env);
    return id;
}

// A global class reference with one static method, both kept only when
// both are found.
bool BindStatic(JNIEnv *env, const char *cls, const char *name, const char *sig, jclass &outCls,
                jmethodID &outId) {
    jclass global = GlobalClass(env, cls);
    if (global == nullptr) return false;
    jmethodID id = StaticMethod(env, global, name, sig);
    if (id == nullptr) {
        env->DeleteGlobalRef(global);
        return false;
    }
    outCls = global;
    outId = id;
    return true;
}

// Registers natives on a class found by name; a class that is not there is
// skipped.
void Register(JNIEnv *env, const char *name, const JNINativeMethod *methods, jint count) {
    jclass cls = env->FindClass(name);
    if (cls == nullptr) {
        zpand::jni::ClearException(env);
        return;
    }
    if (env->RegisterNatives(cls, methods, count) != JNI_OK) zpand::jni::ClearException(env);
    env->DeleteLocalRef(cls);
}

// JNINativeMethod's name and signature are char * in the JDK's header and
// const char * in the NDK's.
template <typename Fn>
JNINativeMethod Native(const char *name, const char *sig, Fn fn) {
    return JNINativeMethod{const_cast<char *>(name), const_cast<char *>(sig),
                           reinterpret_cast<void *>(fn)};
}

void BindStrings(JNIEnv *env) {
    jclass cls = GlobalClass(env, "java/lang/String");
    if (cls == nullptr) return;
    jstring local = env->NewStringUTF("utf-8");
    if (local == nullptr) {
        zpand::jni::ClearException(env);
        env->DeleteGlobalRef(cls);
        return;
    }
    g_utf8Name = static_cast<jstring>(env->NewGlobalRef(local));
    env->DeleteLocalRef(local);
    g_stringClass = cls;
    g_stringInit = env->GetMethodID(cls, "<init>", "([BLjava/lang/String;)V");
    if (g_stringInit == nullptr) zpand::jni::ClearException(env);
    g_stringGetBytes = env->GetMethodID(cls, "getBytes", "(Ljava/lang/String;)[B");
    if (g_stringGetBytes == nullptr) zpand::jni::ClearException(env);
}

}  // namespace

namespace zpand::jni {

bool ClearException(JNIEnv *env) {
    if (!env->ExceptionCheck()) return false;
    env->ExceptionClear();
    return true;
}

void DetachCurrent() {
    JavaVM *vm = g_zZosJvm;
    if (vm == nullptr) return;
    void *env = nullptr;
    if (vm->GetEnv(&env, ZPAND_JNI_VERSION) == JNI_OK) vm->DetachCurrentThread();
}

}  // namespace zpand::jni

extern "C" {

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM *vm, void * /*reserved*/) {
    Zpand_JniOnLoad(vm);
    return ZPAND_JNI_VERSION;
}

KESTRO_API uint32_t Zpand_JniOnLoad(JavaVM *pstJvm) {
    if (g_zZosJvm != nullptr || pstJvm == nullptr) return ZFAILED;
    g_zZosJvm = pstJvm;
    void *raw = nullptr;
    if (pstJvm->GetEnv(&raw, ZPAND_JNI_VERSION) != JNI_OK || raw == nullptr) return ZFAILED;
    JNIEnv *env = static_cast<JNIEnv *>(raw);

    if (!BindStatic(env, kNetClass, "getLocalIP", "()Ljava/lang/String;", g_zZpandNet,
                    g_zZpandNetGetLocalIP)) {
        return ZFAILED;
    }
    if (!BindStatic(env, kModClass, "postDrv", "()V", g_zZpandMod, g_zZpandModPostDrv)) {
        return ZFAILED;
    }

    const JNINativeMethod timer[] = {
        Native("doInit", "()V", Java_com_quelmar_kestro_ZpandTimer_doInit),
        Native("doDestroy", "()V", Java_com_quelmar_kestro_ZpandTimer_doDestroy),
        Native("active", "()V", Java_com_quelmar_kestro_ZpandTimer_active),
    };
    Register(env, kTimerClass, timer, static_cast<jint>(std::size(timer)));
    const JNINativeMethod mod[] = {
        Native("driveMsg", "()V", Java_com_quelmar_kestro_ZpandMod_driveMsg),
    };
    Register(env, kModClass, mod, static_cast<jint>(std::size(mod)));

    BindStrings(env);

    if (Zpand_HttpOnLoad != nullptr) Zpand_HttpOnLoad(env);
    return ZOK;
}

KESTRO_API JavaVM *Zpand_GetJvm(void) {
    return g_zZosJvm;
}

KESTRO_API uint32_t Zpand_GetJniEnv(JNIEnv **ppstEnv) {
    if (ppstEnv == nullptr) return 0;
    *ppstEnv = nullptr;
    JavaVM *vm = g_zZosJvm;
    if (vm == nullptr) return 0;
    void *raw = nullptr;
    const jint rc = vm->GetEnv(&raw, ZPAND_JNI_VERSION);
    if (rc == JNI_OK) {
        *ppstEnv = static_cast<JNIEnv *>(raw);
        return 0;
    }
    if (rc != JNI_EDETACHED) return 0;
    JNIEnv *env = nullptr;
    if (vm->AttachCurrentThread(EnvOut{&env}, nullptr) != JNI_OK || env == nullptr) return 0;
    *ppstEnv = env;
    return 1;
}

KESTRO_API void Zpand_PutJniEnv(JNIEnv *pstEnv, uint32_t uiAttached) {
    if (pstEnv == nullptr || uiAttached == 0) return;
    JavaVM *vm = g_zZosJvm;
    if (vm != nullptr) vm->DetachCurrentThread();
}

KESTRO_API jstring Zpand_BytesToJstring(JNIEnv *pstEnv, const char *pcText) {
    if (pstEnv == nullptr || pcText == nullptr || g_stringClass == nullptr ||
        g_stringInit == nullptr) {
        return nullptr;
    }
    const size_t len = std::strlen(pcText);
    if (len > 0x7FFFFFFFu) return nullptr;
    jbyteArray bytes = pstEnv->NewByteArray(static_cast<jsize>(len));
    if (bytes == nullptr) {
        zpand::jni::ClearException(pstEnv);
        return nullptr;
    }
    pstEnv->SetByteArrayRegion(bytes, 0, static_cast<jsize>(len),
                               reinterpret_cast<const jbyte *>(pcText));
    auto text =
        static_cast<jstring>(pstEnv->NewObject(g_stringClass, g_stringInit, bytes, g_utf8Name));
    pstEnv->DeleteLocalRef(bytes);
    if (zpand::jni::ClearException(pstEnv)) {
        if (text != nullptr) pstEnv->DeleteLocalRef(text);
        return nullptr;
    }
    return text;
}

KESTRO_API char *Zpand_JstringToBytes(JNIEnv *pstEnv, jstring jText, uint32_t *puiLen) {
    if (puiLen != nullptr) *puiLen = 0;
    if (pstEnv == nullptr || jText == nullptr || g_stringGetBytes == nullptr) return nullptr;
    auto bytes =
        static_cast<jbyteArray>(pstEnv->CallObjectMethod(jText, g_stringGetBytes, g_utf8Name));
    if (zpand::jni::ClearException(pstEnv) || bytes == nullptr) {
        if (bytes != nullptr) pstEnv->DeleteLocalRef(bytes);
        return nullptr;
    }
    const jsize len = pstEnv->GetArrayLength(bytes);
    auto *out = static_cast<char *>(std::malloc(static_cast<size_t>(len) + 1));
    if (out != nullptr) {
        pstEnv->GetByteArrayRegion(bytes, 0, len, reinterpret_cast<jbyte *>(out));
        out[len] = '\0';
        if (puiLen != nullptr) *puiLen = static_cast<uint32_t>(len);
    }
    pstEnv->DeleteLocalRef(bytes);
    return out;
}

}  // extern "C"
