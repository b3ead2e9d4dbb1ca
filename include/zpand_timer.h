/*
 * The OS timer the layer's timers run on: init, destroy, start (a length
 * in milliseconds and an expiry callback) and stop, the four platform
 * table slots of the timer.
 *
 * Each operation calls the function an application installed for it.
 * Without one, init and destroy do nothing and return ZOK; start keeps the
 * callback and calls the static Java method ZpandTimer.start with the
 * length, stop calls ZpandTimer.stop; both return ZFAILED when the thread
 * cannot get a JNI environment (no virtual machine). When the Java timer
 * fires it calls the native "active", which calls the kept callback with
 * 0; the callback stays kept, so each later "active" fires it again, until
 * the Java class calls "doDestroy".
 */
#ifndef ZPAND_TIMER_H
#define ZPAND_TIMER_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void (*PFN_ZPAND_TIMER_CB)(uint32_t uiArg);
typedef uint32_t (*PFN_ZPAND_TIMER_INIT)(void);
typedef uint32_t (*PFN_ZPAND_TIMER_DESTROY)(void);
typedef uint32_t (*PFN_ZPAND_TIMER_START)(uint32_t uiLen, PFN_ZPAND_TIMER_CB pfnCb);
typedef uint32_t (*PFN_ZPAND_TIMER_STOP)(void);

KESTRO_API uint32_t Zpand_TimerInit(void);
KESTRO_API uint32_t Zpand_TimerDestroy(void);
KESTRO_API uint32_t Zpand_TimerStart(uint32_t uiLen, PFN_ZPAND_TIMER_CB pfnCb);
KESTRO_API uint32_t Zpand_TimerStop(void);

/* Installed functions; null removes one. */
KESTRO_API void Zpand_TimerSetInit(PFN_ZPAND_TIMER_INIT pfnInit);
KESTRO_API PFN_ZPAND_TIMER_INIT Zpand_TimerGetInit(void);
KESTRO_API void Zpand_TimerSetDestroy(PFN_ZPAND_TIMER_DESTROY pfnDestroy);
KESTRO_API PFN_ZPAND_TIMER_DESTROY Zpand_TimerGetDestroy(void);
KESTRO_API void Zpand_TimerSetStart(PFN_ZPAND_TIMER_START pfnStart);
KESTRO_API PFN_ZPAND_TIMER_START Zpand_TimerGetStart(void);
KESTRO_API void Zpand_TimerSetStop(PFN_ZPAND_TIMER_STOP pfnStop);
KESTRO_API PFN_ZPAND_TIMER_STOP Zpand_TimerGetStop(void);

ZOS_END_DECLS

#endif /* ZPAND_TIMER_H */
