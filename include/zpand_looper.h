/*
 * A small event loop with the shape of Android's looper, for hosts that
 * have none (Linux): a thread prepares its looper, descriptors are added
 * with a callback, and the thread runs the callbacks by polling. On
 * Android the platform's own looper is used and this header is not built.
 */
#ifndef ZPAND_LOOPER_H
#define ZPAND_LOOPER_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

#if !defined(__ANDROID__)

typedef struct ALooper ALooper;
/* Returns 1 to stay registered, 0 to be removed. */
typedef int (*ALooper_callbackFunc)(int fd, int events, void *data);

#define ALOOPER_PREPARE_ALLOW_NON_CALLBACKS 1
#define ALOOPER_POLL_WAKE (-1)
#define ALOOPER_POLL_CALLBACK (-2)
#define ALOOPER_POLL_TIMEOUT (-3)
#define ALOOPER_POLL_ERROR (-4)
#define ALOOPER_EVENT_INPUT 1
#define ALOOPER_EVENT_OUTPUT 2
#define ALOOPER_EVENT_ERROR 4
#define ALOOPER_EVENT_HANGUP 8

/* The calling thread's looper, or null when it has prepared none. */
KESTRO_API ALooper *ALooper_forThread(void);
/* The calling thread's looper, made on first use; it lives until the
 * thread ends (or longer while acquired). */
KESTRO_API ALooper *ALooper_prepare(int opts);
KESTRO_API void ALooper_acquire(ALooper *looper);
KESTRO_API void ALooper_release(ALooper *looper);
/* Watches a descriptor: 1 on success, -1 on failure. */
KESTRO_API int ALooper_addFd(ALooper *looper, int fd, int ident, int events,
                             ALooper_callbackFunc callback, void *data);
/* 1 when it was watched, 0 when not, -1 on failure. */
KESTRO_API int ALooper_removeFd(ALooper *looper, int fd);
/* Waits at most timeoutMillis (-1 without limit, 0 only looks) on the
 * calling thread's looper and runs the callbacks of the ready descriptors:
 * ALOOPER_POLL_CALLBACK when some ran, ALOOPER_POLL_WAKE after a wake,
 * ALOOPER_POLL_TIMEOUT, ALOOPER_POLL_ERROR, or the identifier of a ready
 * descriptor without a callback (with its descriptor, events and data). */
KESTRO_API int ALooper_pollOnce(int timeoutMillis, int *outFd, int *outEvents, void **outData);
/* Ends a pollOnce in progress (or the next one) with ALOOPER_POLL_WAKE;
 * any thread may call it. */
KESTRO_API void ALooper_wake(ALooper *looper);

#endif

ZOS_END_DECLS

#endif /* ZPAND_LOOPER_H */
