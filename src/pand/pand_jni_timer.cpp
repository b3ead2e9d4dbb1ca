// Java road of the OS timer: without an installed function the timer slots
// start and stop the Java class ZpandTimer, which calls back through the
// native "active" when its one-shot timer fires.
#include <atomic>
#include <chrono>
#include <thread>

#include "pand_jni.h"

namespace {

// Java side, process-wide: set by "doInit", cleared by "doDestroy". The
// callback is written by start on the layer's threads and read by
// "active" on the Java timer thread.
std::atomic<jclass> g_timerClass{nullptr};
std::atomic<jmethodID> g_timerStartId{nullptr};
std::atomic<jmethodID> g_timerStopId{nullptr};
std::atomic<PFN_ZPAND_TIMER_CB> g_timerCb{nullptr};
// Expiry calls in progress, and whether the bridge takes new ones. Both
// sequentially consistent: an expiry counts itself before it looks at the
// flag, a close sets the flag before it looks at the count, so one of the
// two always sees the other.
std::atomic<int> g_activeBusy{0};
std::atomic<bool> g_closed{false};

}  // namespace

namespace zpand::jni {

void TimerOpen() {
    g_closed.store(false);
}

void TimerClose() {
    g_closed.store(true);
    while (g_activeBusy.load() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

uint32_t TimerStart(uint32_t len, PFN_ZPAND_TIMER_CB cb) {
    g_timerCb.store(cb);
    // A start wants its expiry: the bridge takes expiry calls again.
    g_closed.store(false);
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
    g_activeBusy.fetch_add(1);
    PFN_ZPAND_TIMER_CB cb = g_closed.load() ? nullptr : g_timerCb.load();
    if (cb != nullptr) cb(0);
    g_activeBusy.fetch_sub(1);
}

}  // extern "C"
