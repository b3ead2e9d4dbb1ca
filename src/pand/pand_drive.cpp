// The host loop's message drive: the pipe watched by the looper of the
// thread that set it up, the post-drive request of the module manager,
// and the Android log lines of both.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>

#include "pand_jni.h"
#include "pand_main.h"
#include "zos_mod.h"
#include "zpand.h"

#if defined(__ANDROID__)
#include <android/log.h>
#include <android/looper.h>
#else
#include "zpand_looper.h"
#endif

namespace {

// One pipe record: the argument, then the function. Both are words that
// may carry pointers, so they are pointer-sized; a record is far below
// PIPE_BUF, so each write and read moves it whole.
struct PipeRecord {
    uintptr_t arg;
    uintptr_t func;
};

std::mutex g_setupLock;  // serialises set-ups
std::atomic<int> g_readFd{-1};
std::atomic<int> g_writeFd{-1};
std::atomic<ALooper *> m_pUiLooper{nullptr};
std::atomic<PFN_ZOS_MOD_POSTDRV> m_pfnZpandModPostDrv{nullptr};

#if !defined(__ANDROID__)
// Off Android the log lines go to a ring that tests and tools can read.
std::mutex g_ringLock;
constexpr uint32_t kRingSize = 4096;
char g_ring[kRingSize];
uint32_t g_ringStart = 0;  // oldest byte
uint32_t g_ringLen = 0;

void RingPut(const char *text, size_t len) {
    for (size_t i = 0; i < len; ++i) {
        g_ring[(g_ringStart + g_ringLen) % kRingSize] = text[i];
        if (g_ringLen < kRingSize) {
            g_ringLen++;
        } else {
            g_ringStart = (g_ringStart + 1) % kRingSize;
        }
    }
}
#endif

constexpr uint32_t kLogDebug = 3;
constexpr uint32_t kLogError = 6;

// Posts the full pipe could not take (a stalled user-interface thread),
// in post order. While any wait here, posts join them instead of writing,
// and the looper callback runs them after the pipe's records, so a stall
// delays posts but loses none.
struct Spilled {
    PipeRecord rec;
    Spilled *next;
};
std::mutex g_spillLock;
Spilled *g_spillHead = nullptr;
Spilled **g_spillTail = &g_spillHead;
std::atomic<bool> g_spilling{false};

enum class Wrote { kWhole, kFull, kLost };

// One write of the record; a full pipe and a failed write are logged.
Wrote WriteRecord(const PipeRecord &rec, bool logFull) {
    const ssize_t n = write(g_writeFd.load(std::memory_order_acquire), &rec, sizeof(rec));
    if (n == static_cast<ssize_t>(sizeof(rec))) return Wrote::kWhole;
    const bool full = n < 0 && errno == EAGAIN;
    if (!full || logFull) Zpand_AndroidLog(kLogError, "Zpand_PostMessage write failed.");
    return full ? Wrote::kFull : Wrote::kLost;
}

void Post(const PipeRecord &rec) {
    if (!g_spilling.load(std::memory_order_acquire) && WriteRecord(rec, true) != Wrote::kFull) {
        return;
    }
    std::lock_guard<std::mutex> lock(g_spillLock);
    // With nothing spilled yet the looper may have emptied the pipe since
    // the write failed; one more write under the lock makes sure a record
    // is spilled only while the pipe holds records, whose callback will
    // run it.
    if (!g_spilling.load(std::memory_order_relaxed) && WriteRecord(rec, false) != Wrote::kFull) {
        return;
    }
    auto *s = new (std::nothrow) Spilled{rec, nullptr};
    if (s == nullptr) return;  // lost, as with a failed write
    *g_spillTail = s;
    g_spillTail = &s->next;
    g_spilling.store(true, std::memory_order_release);
}

// The oldest spilled post; false (and posting goes back to the pipe) when
// none is left.
bool TakeSpilled(PipeRecord *rec) {
    std::lock_guard<std::mutex> lock(g_spillLock);
    Spilled *s = g_spillHead;
    if (s == nullptr) {
        g_spilling.store(false, std::memory_order_release);
        return false;
    }
    g_spillHead = s->next;
    if (g_spillHead == nullptr) g_spillTail = &g_spillHead;
    *rec = s->rec;
    delete s;
    return true;
}

// Drops every waiting post: no looper will run them.
void DropSpilled() {
    PipeRecord rec{};
    while (TakeSpilled(&rec)) {
    }
}

// While the pipe is replaced, posts wait in the spill, behind the records
// still in the old pipe.
void HoldPosts() {
    std::lock_guard<std::mutex> lock(g_spillLock);
    g_spilling.store(true, std::memory_order_release);
}

// Moves the records still in a replaced pipe to the front of the spill, in
// their order: the spilled posts came after them.
void TakeOver(int oldRead) {
    Spilled *head = nullptr;
    Spilled **tail = &head;
    PipeRecord rec{};
    while (read(oldRead, &rec, sizeof(rec)) == static_cast<ssize_t>(sizeof(rec))) {
        auto *s = new (std::nothrow) Spilled{rec, nullptr};
        if (s == nullptr) continue;  // lost, as with a failed write
        *tail = s;
        tail = &s->next;
    }
    if (head == nullptr) return;
    std::lock_guard<std::mutex> lock(g_spillLock);
    *tail = g_spillHead;
    if (g_spillHead == nullptr) g_spillTail = tail;
    g_spillHead = head;
}

// Posting goes on through the new pipe; what waits in the spill is run by
// the new looper, which one record without a function wakes.
void ReleasePosts() {
    std::lock_guard<std::mutex> lock(g_spillLock);
    if (g_spillHead == nullptr) {
        g_spilling.store(false, std::memory_order_release);
        return;
    }
    const PipeRecord wake{0, 0};
    if (WriteRecord(wake, true) != Wrote::kWhole) {
        g_spilling.store(false, std::memory_order_release);
    }
}

void RunRecord(const PipeRecord &rec) {
    Zpand_AndroidLog(kLogDebug, "Zpand_MsgPipeCb.");
    auto fn = reinterpret_cast<PFN_ZPAND_UI_FUNC>(rec.func);
    if (fn != nullptr) fn(rec.arg);
}

}  // namespace

namespace zpand {

void UiEvntInit() {
    Zpand_UiEvntInit();
}

void *UiLooper() {
    return m_pUiLooper.load(std::memory_order_acquire);
}

void *CurrentLooper() {
    return ALooper_forThread();
}

// The Java road of the post drive: asks ZpandMod.postDrv to call back
// "driveMsg" on its own thread; fails while no virtual machine is attached.
uint32_t JavaPostDrv() {
    return jni::PostDrv();
}

}  // namespace zpand

extern "C" {

KESTRO_API void Zpand_AndroidLog(uint32_t uiPriority, const char *pcText) {
    if (pcText == nullptr) return;
#if defined(__ANDROID__)
    __android_log_write(static_cast<int>(uiPriority), "ZOS", pcText);
#else
    static constexpr char kLevels[] = "??VDIWEF";
    const char level = uiPriority < sizeof(kLevels) - 1 ? kLevels[uiPriority] : '?';
    const char head[] = {level, '/', 'Z', 'O', 'S', ':', ' '};
    std::lock_guard<std::mutex> guard(g_ringLock);
    RingPut(head, sizeof(head));
    RingPut(pcText, std::strlen(pcText));
    RingPut("\n", 1);
#endif
}

KESTRO_API uint32_t Zpand_AndroidLogRecent(char *pcBuf, uint32_t uiSize) {
    if (pcBuf == nullptr || uiSize == 0) return 0;
#if defined(__ANDROID__)
    pcBuf[0] = '\0';
    return 0;
#else
    std::lock_guard<std::mutex> guard(g_ringLock);
    const uint32_t n = g_ringLen < uiSize - 1 ? g_ringLen : uiSize - 1;
    const uint32_t from = g_ringStart + (g_ringLen - n);  // the newest n bytes
    for (uint32_t i = 0; i < n; ++i) pcBuf[i] = g_ring[(from + i) % kRingSize];
    pcBuf[n] = '\0';
    return n;
#endif
}

KESTRO_API uint32_t Zpand_UiEvntInit(void) {
    std::lock_guard<std::mutex> guard(g_setupLock);
    zpand::NoteMainThread();
    int fds[2] = {-1, -1};
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {  // 0x80800
        Zpand_AndroidLog(kLogError, "Zpand_SetupPipe create pipe.");
        return ZFAILED;
    }
    // A new set-up replaces the pipe of an earlier one; the posts it still
    // holds are run by the new looper.
    HoldPosts();
    const int oldRead = g_readFd.exchange(fds[0]);
    const int oldWrite = g_writeFd.exchange(fds[1]);
    ALooper *looper = ALooper_forThread();
    // The looper is held so that its address names it for as long as it
    // is the user-interface looper.
    if (looper != nullptr) ALooper_acquire(looper);
    ALooper *old = m_pUiLooper.exchange(looper, std::memory_order_acq_rel);
    if (old != nullptr) {
        if (oldRead >= 0) ALooper_removeFd(old, oldRead);
        ALooper_release(old);
    }
    if (oldRead >= 0) {
        TakeOver(oldRead);
        close(oldRead);
    }
    if (oldWrite >= 0) close(oldWrite);
    const char *fail = nullptr;
    if (looper == nullptr) {
        fail = "Zpand_SetupPipe get looper.";
    } else if (ALooper_addFd(looper, fds[0], 3, ALOOPER_EVENT_INPUT, Zpand_MsgPipeCb, nullptr) !=
               1) {
        fail = "Zpand_SetupPipe add fd.";
    }
    if (fail != nullptr) {
        // No looper runs them: waiting posts are dropped, as the pipe's
        // records were before.
        DropSpilled();
        Zpand_AndroidLog(kLogError, fail);
        return ZFAILED;
    }
    ReleasePosts();
    return ZOK;
}

KESTRO_API uint32_t Zpand_SetupPipe(void) {
    return Zpand_UiEvntInit();
}

KESTRO_API uint32_t Zpand_UiProcEvnt(uintptr_t zArg, PFN_ZPAND_UI_FUNC pfnFunc) {
    Post(PipeRecord{zArg, reinterpret_cast<uintptr_t>(pfnFunc)});
    Zpand_AndroidLog(kLogDebug, "Zpand_PostMessage.");
    return ZOK;
}

KESTRO_API uint32_t Zpand_PostMessage(uintptr_t zArg, PFN_ZPAND_UI_FUNC pfnFunc) {
    return Zpand_UiProcEvnt(zArg, pfnFunc);
}

KESTRO_API int Zpand_MsgPipeCb(int iFd, int /*iEvents*/, void * /*pData*/) {
    PipeRecord rec{};
    if (read(iFd, &rec, sizeof(rec)) != static_cast<ssize_t>(sizeof(rec))) return 1;
    do {
        RunRecord(rec);
    } while (read(iFd, &rec, sizeof(rec)) == static_cast<ssize_t>(sizeof(rec)));
    // Then the posts that came while the pipe was full.
    while (TakeSpilled(&rec)) RunRecord(rec);
    return 1;
}

KESTRO_API void *Zpand_UiThreadId(void) {
    return zpand::UiLooper();
}

KESTRO_API uint32_t Zpand_ModPostDrv(void) {
    const PFN_ZOS_MOD_POSTDRV fn = m_pfnZpandModPostDrv.load(std::memory_order_acquire);
    if (fn != nullptr) return fn();
    return zpand::JavaPostDrv();
}

KESTRO_API void Zpand_ModSetPostDrv(uint32_t (*pfnPostDrv)(void)) {
    m_pfnZpandModPostDrv.store(pfnPostDrv, std::memory_order_release);
}

KESTRO_API uint32_t (*Zpand_ModGetPostDrv(void))(void) {
    return m_pfnZpandModPostDrv.load(std::memory_order_acquire);
}

}  // extern "C"
