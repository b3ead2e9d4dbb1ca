/*
 * Tasks: named units of execution with an id, a priority (1 highest .. 8
 * lowest) and a state, each normally running on a platform thread of its
 * own. The records live in the module manager's task table (zos_mod.h).
 *
 * A task's entry receives its start block. The state word in it changes
 * under the entry's feet (a stop request sets it to ZOS_TASK_WAIT_DELETE):
 * read it with an atomic load (C11 atomics, __atomic_load_n, or
 * Zos_TaskGetState) and return from the entry when it becomes 2.
 */
#ifndef ZOS_TASK_H
#define ZOS_TASK_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Task states. */
#define ZOS_TASK_FREE 0u        /* the record is free */
#define ZOS_TASK_DELETED 1u     /* "deleted": the entry has returned */
#define ZOS_TASK_WAIT_DELETE 2u /* "wait delete": a stop was requested */
#define ZOS_TASK_READY 3u       /* "ready": created, not yet running */
#define ZOS_TASK_PENDING 4u     /* "pending": created, waiting */
#define ZOS_TASK_RUNNING 5u     /* "runing": the entry (or a handler) runs */

#define ZOS_TASK_PRI_HIGHEST 1u
#define ZOS_TASK_PRI_LOWEST 8u
#define ZOS_TASK_NAME_MAX 18u /* characters kept of a task name */
#define ZOS_TASK_UNKNOWN_PRI 0x7FFFFFFFu

/* The block every task entry receives: its id and its live state. */
typedef struct tagZOS_TASK_START {
    uint32_t uiTaskId;
    uint32_t uiState; /* read atomically; see above */
} ST_ZOS_TASK_START;

/* A plain task's entry; its result is the thread function's result. */
typedef uint32_t (*PFN_ZOS_TASK_ENTRY)(ST_ZOS_TASK_START *pstStart);
/* Called once with the task's name and id after its loop has ended (or
 * when the record is released before that). */
typedef void (*PFN_ZOS_TASK_EXIT)(const char *pcName, uint32_t uiTaskId);

/* Spawns a task that runs pfnEntry on a new thread: 0 / 1. *puiTaskId is
 * ZOS_INVALID_ID first, then the id. The priority is clamped into 1..8;
 * a stack size of 0 takes the platform's default. Without thread support
 * (OsThreadSupt off) the record is made and nothing runs it. */
KESTRO_API uint32_t Zos_TaskSpawn(const char *pcName, uint32_t uiPriority, uint32_t uiStackSize,
                                  PFN_ZOS_TASK_ENTRY pfnEntry, uintptr_t zArg, uint32_t *puiTaskId);
/* Spawns the thread of a record the module manager already holds (a task
 * record of Zos_ModGetTask, passed as the pointer Zos_ModFindTask gives). */
KESTRO_API uint32_t Zos_TaskSpawnX(void *pTask, uint32_t uiStackSize, PFN_ZOS_TASK_ENTRY pfnEntry);
/* The thread function of every task. */
KESTRO_API uint32_t Zos_TaskEntry(ST_ZOS_TASK_START *pstStart);

/* Asks a task to stop (state 2): 0, or 1 for an unknown id. */
KESTRO_API uint32_t Zos_TaskCease(uint32_t uiTaskId);
/* Stops and releases a task, polling 200 times 30 ms apart for its entry
 * to return and forcing its thread after that: 0, or 1 for an unknown id. */
KESTRO_API uint32_t Zos_TaskDelete(uint32_t uiTaskId);
/* As Zos_TaskDelete, waiting at most uiSeconds. */
KESTRO_API uint32_t Zos_TaskWaitDelete(uint32_t uiTaskId, uint32_t uiSeconds);

/* 1 when the id names no task or a plain task, 0 for a module task. */
KESTRO_API uint32_t Zos_TaskIsSpawn(uint32_t uiTaskId);
/* 0 for an unknown id. */
KESTRO_API uint32_t Zos_TaskGetState(uint32_t uiTaskId);
/* "UNKNOWN_TASK" for an unknown id. The text is the record's own: copy it
 * if the task may be released meanwhile. */
KESTRO_API const char *Zos_TaskGetName(uint32_t uiTaskId);
/* ZOS_INVALID_ID when no live task has that name. */
KESTRO_API uint32_t Zos_TaskGetTaskId(const char *pcName);
/* ZOS_TASK_UNKNOWN_PRI for an unknown id. */
KESTRO_API uint32_t Zos_TaskGetPriority(uint32_t uiTaskId);
/* 1 when the caller runs on the task's thread. */
KESTRO_API uint32_t Zos_TaskIsCurrent(uint32_t uiTaskId);
/* 1 when the caller runs on the host's main (looper) thread. */
KESTRO_API uint32_t Zos_TaskIsMainThread(void);
KESTRO_API uint32_t Zos_TaskDelay(uint32_t uiMs);

/* Statistics: counted only for tasks without a thread of their own (the
 * module tasks driven from the host loop); all return 0. */
KESTRO_API uint32_t Zos_TaskQueueSizeInc(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_TaskQueueSizeDec(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_TaskTimerCountInc(uint32_t uiTaskId);
KESTRO_API uint32_t Zos_TaskTimerCountDec(uint32_t uiTaskId);

/* Debug listing: the state text of a record, and every task printed. */
KESTRO_API const char *Zos_TaskDbgGetState(const void *pTask);
KESTRO_API void Zos_TaskDbgShow(void);

ZOS_END_DECLS

#endif /* ZOS_TASK_H */
