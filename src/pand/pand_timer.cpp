// Platform timer slots: each calls the hook the embedding program
// installed; without one, the Java timer bridge (pand_jni_timer.cpp).
#include <atomic>

#include "pand_jni.h"
#include "zpand_timer.h"

namespace {

std::atomic<PFN_ZPAND_TIMER_INIT> g_init{nullptr};
std::atomic<PFN_ZPAND_TIMER_DESTROY> g_destroy{nullptr};
std::atomic<PFN_ZPAND_TIMER_START> g_start{nullptr};
std::atomic<PFN_ZPAND_TIMER_STOP> g_stop{nullptr};

}  // namespace

extern "C" {

KESTRO_API void Zpand_TimerSetInit(PFN_ZPAND_TIMER_INIT pfnInit) {
    g_init.store(pfnInit);
}
KESTRO_API PFN_ZPAND_TIMER_INIT Zpand_TimerGetInit(void) {
    return g_init.load();
}
KESTRO_API void Zpand_TimerSetDestroy(PFN_ZPAND_TIMER_DESTROY pfnDestroy) {
    g_destroy.store(pfnDestroy);
}
KESTRO_API PFN_ZPAND_TIMER_DESTROY Zpand_TimerGetDestroy(void) {
    return g_destroy.load();
}
KESTRO_API void Zpand_TimerSetStart(PFN_ZPAND_TIMER_START pfnStart) {
    g_start.store(pfnStart);
}
KESTRO_API PFN_ZPAND_TIMER_START Zpand_TimerGetStart(void) {
    return g_start.load();
}
KESTRO_API void Zpand_TimerSetStop(PFN_ZPAND_TIMER_STOP pfnStop) {
    g_stop.store(pfnStop);
}
KESTRO_API PFN_ZPAND_TIMER_STOP Zpand_TimerGetStop(void) {
    return g_stop.load();
}

KESTRO_API uint32_t Zpand_TimerInit(void) {
    PFN_ZPAND_TIMER_INIT hook = g_init.load();
    if (hook != nullptr) return hook();
    zpand::jni::TimerOpen();
    return ZOK;
}

KESTRO_API uint32_t Zpand_TimerDestroy(void) {
    PFN_ZPAND_TIMER_DESTROY hook = g_destroy.load();
    if (hook != nullptr) return hook();
    // No expiry of the Java timer runs once the layer frees its timers.
    zpand::jni::TimerClose();
    return ZOK;
}

// Without a hook: the Java timer (ZpandTimer), which fails where there is
// no virtual machine.
KESTRO_API uint32_t Zpand_TimerStart(uint32_t uiLenMs, PFN_ZPAND_TIMER_CB pfnCb) {
    PFN_ZPAND_TIMER_START hook = g_start.load();
    return hook != nullptr ? hook(uiLenMs, pfnCb) : zpand::jni::TimerStart(uiLenMs, pfnCb);
}

KESTRO_API uint32_t Zpand_TimerStop(void) {
    PFN_ZPAND_TIMER_STOP hook = g_stop.load();
    return hook != nullptr ? hook() : zpand::jni::TimerStop();
}

}  // extern "C"
