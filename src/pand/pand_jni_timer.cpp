// OS timer bridge: the four timer slots run the application's installed
// functions, or the Java class ZpandTimer, which calls back through the
// native "active" when its one-shot timer fires.
#include <atomic>

#include "pand_jni.h"

namespace {

// Installed functions, each optional.
std::atomic<PFN_ZPAND_TIMER_INIT> m_pfnZpandTimerInit{nullptr};
std::atomic<PFN_ZPAND_TIMER_DESTROY> m_pfnZpandTimerDestroy{nullptr};
std::atomic<PFN_ZPAND_TIMER_START> m_pfnZpandTimerStart{nullptr};
std::atomic<PFN_ZPAND_TIMER_STOP> m_pfnZpandTimerStop{nullptr};

// Java side, process-wide: set by "doInit", cleared by "doDestroy". The
// callback is written by start on the layer's threads and read by
// "active" on the Java timer thread.
std::atomic<jclass> g_timerClass{nullptr};
std::atomic<jmethodID> g_timerStartId{nullptr};
std::atomic<jmethodID> g_timerStopId{nullptr};
std::atomic<PFN_ZPAND_TIMER_CB> g_timerCb{nullptr};

}  // namespace

namespace zpand::jni {

uint32_t TimerStart(uint32_t len, PFN_ZPAND_TIMER_CB cb) {
    g_timerCb.store(cb);
    EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return ZFAILED;
    jclass cls = g_timerClass.load();
    jmethodID start = g_timerStartId.load();
    if (cls != nullptr && start != nullptr) {
        env->CallStaticVoidMethod(cls, start, static_cast<jlong>(len));
        ClearException(env);
    }
    return ZOK;
}

uint32_t TimerStop() {
    EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return ZFAILED;
    jclass cls = g_timerClass.load();
    jmethodID stop = g_timerStopId.load();
    if (cls != nullptr && stop != nullptr) {
        env->CallStaticVoidMethod(cls, stop);
        ClearException(env);
    }
    return ZOK;
}

}  // namespace zpand::jni

extern "C" {

KESTRO_API uint32_t Zpand_TimerInit(void) {
    PFN_ZPAND_TIMER_INIT fn = m_pfnZpandTimerInit.load();
    return fn != nullptr ? fn() : ZOK;
}

KESTRO_API uint32_t Zpand_TimerDestroy(void) {
    PFN_ZPAND_TIMER_DESTROY fn = m_pfnZpandTimerDestroy.load();
    return fn != nullptr ? fn() : ZOK;
}

KESTRO_API uint32_t Zpand_TimerStart(uint32_t uiLen, PFN_ZPAND_TIMER_CB pfnCb) {
    PFN_ZPAND_TIMER_START fn = m_pfnZpandTimerStart.load();
    return fn != nullptr ? fn(uiLen, pfnCb) : zpand::jni::TimerStart(uiLen, pfnCb);
}

KESTRO_API uint32_t Zpand_TimerStop(void) {
    PFN_ZPAND_TIMER_STOP fn = m_pfnZpandTimerStop.load();
    return fn != nullptr ? fn() : zpand::jni::TimerStop();
}

KESTRO_API void Zpand_TimerSetInit(PFN_ZPAND_TIMER_INIT pfnInit) {
    m_pfnZpandTimerInit.store(pfnInit);
}
KESTRO_API PFN_ZPAND_TIMER_INIT Zpand_TimerGetInit(void) {
    return m_pfnZpandTimerInit.load();
}
KESTRO_API void Zpand_TimerSetDestroy(PFN_ZPAND_TIMER_DESTROY pfnDestroy) {
    m_pfnZpandTimerDestroy.store(pfnDestroy);
}
KESTRO_API PFN_ZPAND_TIMER_DESTROY Zpand_TimerGetDestroy(void) {
    return m_pfnZpandTimerDestroy.load();
}
KESTRO_API void Zpand_TimerSetStart(PFN_ZPAND_TIMER_START pfnStart) {
    m_pfnZpandTimerStart.store(pfnStart);
}
KESTRO_API PFN_ZPAND_TIMER_START Zpand_TimerGetStart(void) {
    return m_pfnZpandTimerStart.load();
}
KESTRO_API void Zpand_TimerSetStop(PFN_ZPAND_TIMER_STOP pfnStop) {
    m_pfnZpandTimerStop.store(pfnStop);
}
KESTRO_API PFN_ZPAND_TIMER_STOP Zpand_TimerGetStop(void) {
    return m_pfnZpandTimerStop.load();
}

// Keeps the class it is called on and its static "start" and "stop"; a
// second call replaces what the first kept.
JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandTimer_doInit(JNIEnv *pstEnv, jclass jCls) {
    if (pstEnv == nullptr || jCls == nullptr) return;
    auto global = static_cast<jclass>(pstEnv->NewGlobalRef(jCls));
    jmethodID start = pstEnv->GetStaticMethodID(jCls, "start", "(J)V");
    if (start == nullptr) zpand::jni::ClearException(pstEnv);
    jmethodID stop = pstEnv->GetStaticMethodID(jCls, "stop", "()V");
    if (stop == nullptr) zpand::jni::ClearException(pstEnv);
    g_timerStartId.store(start);
    g_timerStopId.store(stop);
    jclass old = g_timerClass.exchange(global);
    if (old != nullptr) pstEnv->DeleteGlobalRef(old);
}

JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandTimer_doDestroy(JNIEnv *pstEnv,
                                                                    jclass /*jCls*/) {
    jclass old = g_timerClass.exchange(nullptr);
    if (old != nullptr && pstEnv != nullptr) pstEnv->DeleteGlobalRef(old);
    g_timerStartId.store(nullptr);
    g_timerStopId.store(nullptr);
    g_timerCb.store(nullptr);
}

JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandTimer_active(JNIEnv * /*pstEnv*/,
                                                                 jclass /*jCls*/) {
    PFN_ZPAND_TIMER_CB cb = g_timerCb.load();
    if (cb != nullptr) cb(0);
}

}  // extern "C"
