/*
 * Platform timer: the one-shot operating-system timer that steps the OS
 * timer manager (zos_timer.h) through platform slots 103-106.
 *
 * Zpand_TimerInit, Zpand_TimerDestroy, Zpand_TimerStart and
 * Zpand_TimerStop fill those slots. Each calls the hook an embedding
 * program installed with the matching Zpand_TimerSet* function. Without a
 * hook: init and destroy return 0; start keeps the callback and calls the
 * static Java method ZpandTimer.start with the length, stop calls
 * ZpandTimer.stop; both return 1 when the thread cannot get a JNI
 * environment (no Java virtual machine, as on a plain Linux host). When
 * the Java timer fires it calls the native "active", which calls the kept
 * callback with 0; the callback stays kept, so each later "active" fires
 * it again, until the Java class calls "doDestroy" (zpand_jni.h).
 *
 * On Linux the host timer (Zpand_HostTimer*) is a timerfd watched by the
 * host looper: Zpand_HostTimerInstall sets the four hooks to it, so the OS
 * timer manager runs on the looper's thread. Its callback runs there.
 */
#ifndef ZPAND_TIMER_H
#define ZPAND_TIMER_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Expiry callback: receives 0 from the platform timer. */
typedef void (*PFN_ZPAND_TIMER_CB)(uint32_t uiFlag);
typedef uint32_t (*PFN_ZPAND_TIMER_INIT)(void);
typedef uint32_t (*PFN_ZPAND_TIMER_DESTROY)(void);
/* Arms the one-shot timer for uiLenMs milliseconds; a start while armed
 * re-arms it. */
typedef uint32_t (*PFN_ZPAND_TIMER_START)(uint32_t uiLenMs, PFN_ZPAND_TIMER_CB pfnCb);
typedef uint32_t (*PFN_ZPAND_TIMER_STOP)(void);

/* Hooks, process-wide; null removes one. */
KESTRO_API void Zpand_TimerSetInit(PFN_ZPAND_TIMER_INIT pfnInit);
KESTRO_API PFN_ZPAND_TIMER_INIT Zpand_TimerGetInit(void);
KESTRO_API void Zpand_TimerSetDestroy(PFN_ZPAND_TIMER_DESTROY pfnDestroy);
KESTRO_API PFN_ZPAND_TIMER_DESTROY Zpand_TimerGetDestroy(void);
KESTRO_API void Zpand_TimerSetStart(PFN_ZPAND_TIMER_START pfnStart);
KESTRO_API PFN_ZPAND_TIMER_START Zpand_TimerGetStart(void);
KESTRO_API void Zpand_TimerSetStop(PFN_ZPAND_TIMER_STOP pfnStop);
KESTRO_API PFN_ZPAND_TIMER_STOP Zpand_TimerGetStop(void);

/* The platform table's timer slots. */
KESTRO_API uint32_t Zpand_TimerInit(void);
KESTRO_API uint32_t Zpand_TimerDestroy(void);
KESTRO_API uint32_t Zpand_TimerStart(uint32_t uiLenMs, PFN_ZPAND_TIMER_CB pfnCb);
KESTRO_API uint32_t Zpand_TimerStop(void);

/* Linux host timer on the host looper. */
KESTRO_API uint32_t Zpand_HostTimerInit(void);
KESTRO_API uint32_t Zpand_HostTimerDestroy(void);
KESTRO_API uint32_t Zpand_HostTimerStart(uint32_t uiLenMs, PFN_ZPAND_TIMER_CB pfnCb);
KESTRO_API uint32_t Zpand_HostTimerStop(void);
/* Sets the four hooks to the host timer. */
KESTRO_API void Zpand_HostTimerInstall(void);

ZOS_END_DECLS

#endif /* ZPAND_TIMER_H */
