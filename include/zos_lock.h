/*
 * Locks and semaphores: thin forwarding over the platform table, each kind
 * switchable off by a configuration flag (OsMutexSupt, OsSharexSupt,
 * OsSemSupt). With the flag off every operation succeeds and does nothing.
 * Every operation takes the address of the caller's handle and returns 0
 * for success and 1 for failure (an empty slot or a null handle address).
 */
#ifndef ZOS_LOCK_H
#define ZOS_LOCK_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

#define ZOS_WAIT_FOREVER 0xFFFFFFFFu

/* Recursive mutexes: the owning thread may lock again. */
KESTRO_API uint32_t Zos_MutexCreate(ZMUTEX *pzMutex);
KESTRO_API uint32_t Zos_MutexDelete(ZMUTEX *pzMutex);
KESTRO_API uint32_t Zos_MutexLock(ZMUTEX *pzMutex);
KESTRO_API uint32_t Zos_MutexUnlock(ZMUTEX *pzMutex);

/* Reader-writer locks: Lock/Unlock shared, LockEx/UnlockEx exclusive. */
KESTRO_API uint32_t Zos_SharexCreate(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zos_SharexDelete(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zos_SharexLock(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zos_SharexUnlock(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zos_SharexLockEx(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zos_SharexUnlockEx(ZSHAREX *pzSharex);

/* Counting semaphores. Zos_SemCreateOne starts empty: the first wait
 * blocks until a post. Wait time-out in ms: ZOS_WAIT_FOREVER waits without
 * limit, 0 only tries; 1 on time-out. */
KESTRO_API uint32_t Zos_SemCreate(ZSEM *pzSem, uint32_t uiCount);
KESTRO_API uint32_t Zos_SemCreateOne(ZSEM *pzSem);
KESTRO_API uint32_t Zos_SemDelete(ZSEM *pzSem);
KESTRO_API uint32_t Zos_SemWait(ZSEM *pzSem, uint32_t uiTimeout);
KESTRO_API uint32_t Zos_SemPost(ZSEM *pzSem);

ZOS_END_DECLS

#endif /* ZOS_LOCK_H */
