// Platform timer slots: each calls the hook the embedding program
// installed; without one, the Java timer bridge, which this host lacks.
#include <atomic>

#include "zpand_timer.h"

namespace {

std::atomic<PFN_ZPAND_TIMER_INIT> g_init{nullptr};
std::atomic<PFN_ZPAND_TIMER_DESTROY> g_destroy{nullptr};
std::atomic<PFN_ZPAND_TIMER_START> g_start{nullptr};
std::atomic<PFN_ZPAND_TIMER_STOP> g_stop{nullptr};
// The callback the Java timer's expiry would call; kept until replaced.
std::atomic<PFN_ZPAND_TIMER_CB> g_javaCb{nullptr};

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
    return hook != nullptr ? hook() : ZOK;
}

KESTRO_API uint32_t Zpand_TimerDestroy(void) {
    PFN_ZPAND_TIMER_DESTROY hook = g_destroy.load();
    return hook != nullptr ? hook() : ZOK;
}

// Without a hook the Java timer would be asked to start; this host has no
// virtual machine to ask, so the start fails after keeping the callback.
KESTRO_API uint32_t Zpand_TimerStart(uint32_t uiLenMs, PFN_ZPAND_TIMER_CB pfnCb) {
    PFN_ZPAND_TIMER_START hook = g_start.load();
    if (hook != nullptr) return hook(uiLenMs, pfnCb);
    g_javaCb.store(pfnCb);
    return ZFAILED;
}

KESTRO_API uint32_t Zpand_TimerStop(void) {
    PFN_ZPAND_TIMER_STOP hook = g_stop.load();
    return hook != nullptr ? hook() : ZFAILED;
}

}  // extern "C"
