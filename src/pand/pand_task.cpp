// Threads: spawn with the layer's priority levels, delay, identity.
#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <climits>
#include <ctime>

#include "pand_heap.h"
#include "pand_jni.h"
#include "pand_main.h"
#include "zpand.h"

namespace {

struct Start {
    PFN_ZPAND_TASK_ENTRY entry;
    uintptr_t arg;
};

void *Trampoline(void *p) {
    const Start start = *static_cast<Start *>(p);
    zpand::heap::Free(p);
    start.entry(start.arg);
    return nullptr;
}

// The thread that set up the host's message pipe last.
pthread_t g_mainThread;
bool g_mainThreadSet = false;

}  // namespace

namespace zpand {

void NoteMainThread() {
    g_mainThread = pthread_self();
    g_mainThreadSet = true;
}

}  // namespace zpand

extern "C" {

KESTRO_API int32_t Zpand_TaskMapPriority(uint32_t uiPriority, int32_t iMin, int32_t iMax) {
    const int32_t mid = (iMin + iMax) / 2;
    const int32_t dir = iMax >= iMin ? 1 : -1;
    switch (uiPriority) {
        case 1:
            return iMax;
        case 4:
            return mid;
        case 8:
            return iMin + dir;
        default: {
            const int32_t quarter = (iMin + iMax) / 4;
            return uiPriority < 5 ? mid + dir * quarter : mid - dir * quarter;
        }
    }
}

KESTRO_API uint32_t Zpand_TaskSpawn(const char * /*pcName*/, uint32_t uiPriority,
                                    uint32_t uiStackSize, PFN_ZPAND_TASK_ENTRY pfnEntry,
                                    uintptr_t zArg, uintptr_t *pzThread, uintptr_t *pzHandle) {
    if (pfnEntry == nullptr) return ZFAILED;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return ZFAILED;
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    if (uiStackSize != 0) {
        size_t size = uiStackSize;
        if (size < static_cast<size_t>(PTHREAD_STACK_MIN)) size = PTHREAD_STACK_MIN;
        pthread_attr_setstacksize(&attr, size);
    }
    int policy = SCHED_OTHER;
    pthread_attr_getschedpolicy(&attr, &policy);
    const int max = sched_get_priority_max(policy);
    if (max != EINVAL) {
        sched_param param{};
        param.sched_priority =
            Zpand_TaskMapPriority(uiPriority, sched_get_priority_min(policy), max);
        pthread_attr_setschedparam(&attr, &param);
    }
    auto *start = static_cast<Start *>(zpand::heap::Alloc(sizeof(Start)));
    if (start == nullptr) {
        pthread_attr_destroy(&attr);
        return ZFAILED;
    }
    start->entry = pfnEntry;
    start->arg = zArg;
    pthread_t tid{};
    const int rc = pthread_create(&tid, &attr, Trampoline, start);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        zpand::heap::Free(start);
        return ZFAILED;
    }
    if (pzThread != nullptr) *pzThread = static_cast<uintptr_t>(tid);
    if (pzHandle != nullptr) *pzHandle = static_cast<uintptr_t>(tid);
    return ZOK;
}

KESTRO_API uint32_t Zpand_TaskDelete(uintptr_t /*zHandle*/, uint32_t uiForced) {
    return uiForced == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_TaskDelay(uint32_t uiMs) {
    // Asking for 16 ms or more sleeps 15 ms less, an allowance for the
    // scheduling overhead around the sleep.
    const uint32_t ms = uiMs >= 16 ? uiMs - 15 : uiMs;
    timespec ts{static_cast<time_t>(ms / 1000u), static_cast<long>(ms % 1000u) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
    return ZOK;
}

// A thread of the layer that called into Java was attached to the virtual
// machine on the way; it leaves the machine before it ends.
KESTRO_API void Zpand_TaskExit(uintptr_t /*zHandle*/, uintptr_t /*zWord*/) {
    zpand::jni::DetachCurrent();
}

KESTRO_API uint32_t Zpand_TaskIsCurrent(uintptr_t zThread) {
    return pthread_equal(pthread_self(), static_cast<pthread_t>(zThread)) != 0 ? 1u : 0u;
}

KESTRO_API uint32_t Zpand_TaskIsMainThread(void) {
    // With a looper the main thread is the one whose looper watches the
    // message pipe; without one, the thread that set the pipe up last.
    void *ui = zpand::UiLooper();
    if (ui != nullptr) return zpand::CurrentLooper() == ui ? 1u : 0u;
    return g_mainThreadSet && pthread_equal(pthread_self(), g_mainThread) != 0 ? 1u : 0u;
}

}  // extern "C"
