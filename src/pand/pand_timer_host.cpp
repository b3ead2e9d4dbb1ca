// Host timer for hosts without the Java timer (Linux): a one-shot timerfd
// watched by the host looper, so the OS timer manager is stepped on the
// looper's thread, as the Java timer's callback steps it on Android.
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>

#include "pand_main.h"
#include "zpand_timer.h"

#if defined(__ANDROID__)
#include <android/looper.h>
#else
#include "zpand_looper.h"
#endif

namespace {

// Identifier of the timer's descriptor in the looper.
constexpr int kLooperIdent = 4;

std::mutex g_lock;  // serialises init, destroy, start and stop
int g_fd = -1;
ALooper *g_looper = nullptr;
std::atomic<PFN_ZPAND_TIMER_CB> g_cb{nullptr};

// The looper callback: consumes the expiry and calls the timer callback.
int OnReadable(int fd, int /*events*/, void * /*data*/) {
    uint64_t expirations = 0;
    if (read(fd, &expirations, sizeof(expirations)) != static_cast<ssize_t>(sizeof(expirations))) {
        return 1;  // a stop raced the expiry: nothing to run
    }
    PFN_ZPAND_TIMER_CB cb = g_cb.load(std::memory_order_acquire);
    if (cb != nullptr) cb(0);
    return 1;
}

uint32_t Arm(uint32_t ms) {
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(ms / 1000u);
    when.it_value.tv_nsec = static_cast<long>(ms % 1000u) * 1000000L;
    // A length of 0 would disarm: the shortest run is 1 ns.
    if (ms == 0) when.it_value.tv_nsec = 1;
    return timerfd_settime(g_fd, 0, &when, nullptr) == 0 ? ZOK : ZFAILED;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zpand_HostTimerInit(void) {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_fd >= 0) return ZOK;
    auto *looper = static_cast<ALooper *>(zpand::UiLooper());
    if (looper == nullptr) looper = ALooper_forThread();
    if (looper == nullptr) return ZFAILED;
    const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (fd < 0) return ZFAILED;
    ALooper_acquire(looper);
    if (ALooper_addFd(looper, fd, kLooperIdent, ALOOPER_EVENT_INPUT, OnReadable, nullptr) != 1) {
        ALooper_release(looper);
        close(fd);
        return ZFAILED;
    }
    g_fd = fd;
    g_looper = looper;
    return ZOK;
}

KESTRO_API uint32_t Zpand_HostTimerDestroy(void) {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_fd < 0) return ZOK;
    ALooper_removeFd(g_looper, g_fd);
    ALooper_release(g_looper);
    close(g_fd);
    g_fd = -1;
    g_looper = nullptr;
    g_cb.store(nullptr, std::memory_order_release);
    return ZOK;
}

KESTRO_API uint32_t Zpand_HostTimerStart(uint32_t uiLenMs, PFN_ZPAND_TIMER_CB pfnCb) {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_fd < 0) return ZFAILED;
    g_cb.store(pfnCb, std::memory_order_release);
    return Arm(uiLenMs);
}

KESTRO_API uint32_t Zpand_HostTimerStop(void) {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_fd < 0) return ZFAILED;
    const itimerspec off{};
    if (timerfd_settime(g_fd, 0, &off, nullptr) != 0) return ZFAILED;
    // An expiry that came before the stop is dropped, so a stopped timer
    // never calls back.
    uint64_t expirations = 0;
    while (read(g_fd, &expirations, sizeof(expirations)) < 0 && errno == EINTR) {
    }
    return ZOK;
}

KESTRO_API void Zpand_HostTimerInstall(void) {
    Zpand_TimerSetInit(Zpand_HostTimerInit);
    Zpand_TimerSetDestroy(Zpand_HostTimerDestroy);
    Zpand_TimerSetStart(Zpand_HostTimerStart);
    Zpand_TimerSetStop(Zpand_HostTimerStop);
}

}  // extern "C"
