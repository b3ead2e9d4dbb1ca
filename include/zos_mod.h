/*
 * Module manager: the runtime's message pump.
 *
 * Module tasks receive messages (zos_msg.h) posted to their id. A task
 * with a thread of its own drains its own priority queue; the others share
 * the manager's queue, drained by the manager task "MOD_MGR" (threaded
 * mode: OsThreadSupt and ModDrvMode both set) or by the host's loop, which
 * calls Zos_ModDriveMsg once per drive request that the manager makes
 * through the platform (host-driven mode). Messages and events are passed
 * as their handles (void pointers here).
 *
 * Performs run a function on a task with arguments carried by an event.
 * The argument format is a text of conversions as in the C library:
 *   %d %u      int, unsigned int        %hd %hu   short, unsigned short
 *   %hhd %hhu  char, unsigned char      %ld %lu   long, unsigned long
 *   %lld %llu  64-bit (long long)       %zu %zd   size_t (a word)
 *   %p         pointer (not copied)     %s        text, copied
 *   %zd        long                     %*s %*p   memory given as two
 *              arguments, the pointer and then an unsigned int length;
 *              the bytes are copied
 * and the function is called with the same arguments in the same order,
 * texts and memory pointing at the event's copies (valid during the call).
 *
 * Word layout of Zos_ModStrToArray / Zos_ModEvntInvoke: one machine word
 * (uintptr_t) per argument, signed values sign-extended and unsigned ones
 * zero-extended; a memory argument gives two words (pointer, length). On a
 * 32-bit target a 64-bit value takes two words, low word first, starting
 * at an even word index: a padding word of 0 goes before it when needed.
 * That is exactly where the 32-bit ARM procedure call standard puts such
 * an argument (an even register pair, or an 8-byte aligned stack slot), so
 * calling the function as if it took N words passes its real arguments.
 * At most ZOS_MOD_MAX_WORDS words; floating-point arguments and variadic
 * functions are not supported.
 */
#ifndef ZOS_MOD_H
#define ZOS_MOD_H

#include "zos_task.h"
#include "zos_type.h"

ZOS_BEGIN_DECLS

#define ZOS_MOD_UI_TASK 15u /* the host's user-interface thread */
#define ZOS_MOD_MAX_WORDS 9u

/* Reserved message types. */
#define ZOS_MSG_TYPE_PERFORM 0xFF00FF00u  /* perform the event asynchronously */
#define ZOS_MSG_TYPE_PERFORMX 0xFF00FF01u /* perform it; the poster waits */

/* Control codes (a control block is 65535, task id, code). */
#define ZOS_MOD_CTRL_MARK 65535u
#define ZOS_MOD_CTRL_STOP 16u
#define ZOS_MOD_CTRL_RESUME 17u
#define ZOS_MOD_CTRL_PAUSE 18u

/* Event parameters of a perform. */
#define ZOS_MOD_PARM_FUNC 0x10000u /* the function (pointer) */
#define ZOS_MOD_PARM_FMT 0x10001u  /* the argument format (text) */
#define ZOS_MOD_PARM_SEM 0x10003u  /* the semaphore to post (cookie) */

/* Any function a perform may call; cast it to this type to pass it. */
typedef void (*PFN_ZOS_MOD_FUNC)(void);
/* A module task's entry: handles one message (the manager deletes it
 * afterwards). A result below 0 resumes a paused task. */
typedef int32_t (*PFN_ZOS_MOD_ENTRY)(void *zMsg);
/* Called once when a module task starts; non-zero fails the start. */
typedef uint32_t (*PFN_ZOS_MOD_INIT)(const char *pcName, uint32_t uiTaskId);
/* A deferred call: the argument and a copy of the data given. */
typedef void (*PFN_ZOS_MOD_LEAVE)(uintptr_t zArg, void *pData, uint32_t uiLen);
/* An installed post-drive function (Zpand_ModSetPostDrv). */
typedef uint32_t (*PFN_ZOS_MOD_POSTDRV)(void);

/* Start-up step "modules" and its shut-down. */
KESTRO_API uint32_t Zos_ModInit(void);
KESTRO_API void Zos_ModDestroy(void);
KESTRO_API uint32_t Zos_ModMgrStart(void);
KESTRO_API void Zos_ModMgrStop(void);
KESTRO_API uint32_t Zos_ModMgrEntry(ST_ZOS_TASK_START *pstStart);

/* Task table, under the module lock. Zos_ModGetTask gives the new
 * record's id (ZOS_INVALID_ID on failure); records are opaque pointers,
 * valid until the task is released. */
KESTRO_API uint32_t Zos_ModGetTask(const char *pcName, uint32_t uiPriority);
KESTRO_API uint32_t Zos_ModPutTask(uint32_t uiTaskId);
KESTRO_API void *Zos_ModFindTask(uint32_t uiTaskId);
KESTRO_API void *Zos_ModFindTaskX(const char *pcName);
/* The live record of an id through *ppTask: 0 / 1. */
KESTRO_API uint32_t Zos_ModLocateTask(uint32_t uiTaskId, void **ppTask);
KESTRO_API uint32_t Zos_ModLock(void);
KESTRO_API uint32_t Zos_ModUnlock(void);

/* Module tasks. uiQueueSize 0 takes 10; bMainThread asks to be driven by
 * the host's loop (shared queue) instead of a thread of its own. */
KESTRO_API uint32_t Zos_ModTaskStart(const char *pcName, uint32_t uiPriority, uint32_t uiQueueSize,
                                     uint32_t uiStackSize, uint32_t bMainThread,
                                     PFN_ZOS_MOD_INIT pfnInit, PFN_ZOS_TASK_EXIT pfnExit,
                                     PFN_ZOS_MOD_ENTRY pfnEntry, uint32_t *puiTaskId);
/* Stops a task and releases its record; its exit callback runs once the
 * task's handler has returned (a handler stopping its own task does not
 * wait for itself). A task waiting in Zos_ModPerformX on the caller's
 * task never returns to be stopped: do not stop it from that task. */
KESTRO_API uint32_t Zos_ModTaskStop(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskCease(uint32_t uiTaskId);
/* bResume 0 pauses a task with a thread of its own, non-zero resumes it
 * (other tasks: 0 at once); requests made while the task is busy collapse
 * to the latest one. */
KESTRO_API uint32_t Zos_ModTaskPause(uint32_t uiTaskId, uint32_t bResume);
KESTRO_API uint32_t Zos_ModTaskWaitStop(uint32_t uiTaskId, uint32_t uiSeconds);
/* 1 while the task's state is ready, pending or running. */
KESTRO_API uint32_t Zos_ModTaskIsRun(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskEntry(ST_ZOS_TASK_START *pstStart);
KESTRO_API uint32_t Zos_ModTaskLock(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskUnlock(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskSetReady(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskSetRuning(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskSetWaitDelete(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskSetDelete(uint32_t uiTaskId);
KESTRO_API PFN_ZOS_MOD_ENTRY Zos_ModTaskGetEntry(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModTaskNtfyDelete(uint32_t uiTaskId);

/* Posting: the message goes to its receiver's queue at the receiver's
 * priority (or the given one); the manager owns it after a 0. */
KESTRO_API uint32_t Zos_ModPostMsg(void *zMsg);
KESTRO_API uint32_t Zos_ModPostMsgX(void *zMsg, uint32_t uiPriority);

/* Host drive: one message per call, then the deferred calls; asks for
 * another drive while messages remain. */
KESTRO_API uint32_t Zos_ModDriveMsg(void);
KESTRO_API uint32_t Zos_ModDriveStart(uint32_t uiTaskId, PFN_ZOS_MOD_ENTRY *ppfnEntry);
KESTRO_API uint32_t Zos_ModDriveStop(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_ModDriveEvnt(void);

/* Performs. Zos_ModPerformX waits until the function has run. */
KESTRO_API uint32_t Zos_ModPerform(uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                   const char *pcFormat, ...);
KESTRO_API uint32_t Zos_ModPerformX(uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                    const char *pcFormat, ...);
KESTRO_API uint32_t Zos_ModTaskPerform(uint32_t uiTaskId, void *zEvnt, uint32_t uiType);
KESTRO_API uint32_t Zos_ModEvntProc(void *zEvnt);
/* The event's parameters 0, 1, ... as call words (layout above), in a
 * block to release with Zos_Free; null on failure. */
KESTRO_API uintptr_t *Zos_ModStrToArray(void *zEvnt, const char *pcFormat, uint32_t *puiCount);
/* Calls pfnFunc with uiCount words: 0, or 1 (nothing called) for more
 * than ZOS_MOD_MAX_WORDS or a null function. */
KESTRO_API uint32_t Zos_ModEvntInvoke(PFN_ZOS_MOD_FUNC pfnFunc, const uintptr_t *pzArgs,
                                      uint32_t uiCount);
KESTRO_API uint32_t Zos_ModEvntSetPerform(void *zEvnt, PFN_ZOS_MOD_FUNC pfnFunc);
KESTRO_API PFN_ZOS_MOD_FUNC Zos_ModEvntGetPerform(void *zEvnt);
KESTRO_API uint32_t Zos_ModEvntSetParm(void *zEvnt, const char *pcFormat);
KESTRO_API const char *Zos_ModEvntGetParm(void *zEvnt);
KESTRO_API uint32_t Zos_ModEvntSetSem(void *zEvnt, ZSEM zSem);
KESTRO_API ZSEM Zos_ModEvntGetSem(void *zEvnt);

/* Event hub. A subscriber is (task, function, data); a publish performs
 * function(name, data, arguments...) on each subscriber's task: the
 * format gets the prefix "%p %zu " (the event name, as a text copied into
 * the event, and the subscriber's data word). */
KESTRO_API uint32_t Zos_ModSubEvnt(const char *pcName, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                   uintptr_t zData);
KESTRO_API uint32_t Zos_ModUnSubEvnt(const char *pcName, uint32_t uiTaskId,
                                     PFN_ZOS_MOD_FUNC pfnFunc, uintptr_t zData);
KESTRO_API uint32_t Zos_ModPubEvnt(const char *pcName, const char *pcFormat, ...);
/* Queues function(argument, copy of the data, length) to run after the
 * message being handled on the task (or at the next host drive). */
KESTRO_API uint32_t Zos_ModLeaveEvnt(uint32_t uiTaskId, PFN_ZOS_MOD_LEAVE pfnFunc, uintptr_t zArg,
                                     const void *pData, uint32_t uiLen);
KESTRO_API uint32_t Zos_ModSilence(void);

/* Hub internals (under the module lock). Entries and subscribers are
 * opaque pointers. Zos_ModEhInit makes the hub once: called while a hub
 * stands it does nothing and succeeds. */
KESTRO_API uint32_t Zos_ModEhInit(void);
KESTRO_API void Zos_ModEhDestroy(void);
KESTRO_API uint32_t Zos_ModEhSub(const char *pcName, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                 uintptr_t zData);
KESTRO_API uint32_t Zos_ModEhUnSub(const char *pcName, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                   uintptr_t zData);
KESTRO_API void *Zos_ModEhFindEntry(const char *pcName);
KESTRO_API void *Zos_ModEhCreateEntry(const char *pcName);
KESTRO_API void *Zos_ModEhFindSuber(void *pEntry, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                    uintptr_t zData);
KESTRO_API uint32_t Zos_ModEhAddSuber(void *pEntry, uint32_t uiTaskId, PFN_ZOS_MOD_FUNC pfnFunc,
                                      uintptr_t zData);
KESTRO_API uint32_t Zos_ModEhDeleteEntry(void *pEntry);
/* Grows an entry's subscriber array (doubling): 0 / 1. */
KESTRO_API uint32_t Zos_ModEhReallocEntry(void *pEntry);

ZOS_END_DECLS

#endif /* ZOS_MOD_H */
