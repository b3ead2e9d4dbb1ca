// The looper of hosts without Android's: one epoll set and one wake-up
// eventfd per thread that prepares it. Compiled on Linux only.
#if defined(__linux__) && !defined(__ANDROID__)

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <new>

#include "pand_heap.h"
#include "zpand_looper.h"

struct ALooper {
    int epollFd;
    int wakeFd;
    std::atomic<int> refs;
    std::mutex lock;  // guards the registrations
    struct Reg {
        int fd;
        int ident;
        int events;
        ALooper_callbackFunc callback;
        void *data;
    };
    Reg *regs;
    int regCount;
    int regCap;
};

namespace {

// The thread's looper; the holder releases the thread's reference when
// the thread ends.
struct ThreadLooper {
    ALooper *looper = nullptr;
    ~ThreadLooper() {
        if (looper != nullptr) ALooper_release(looper);
    }
};
thread_local ThreadLooper t_looper;

uint32_t ToEpoll(int events) {
    uint32_t e = 0;
    if ((events & ALOOPER_EVENT_INPUT) != 0) e |= EPOLLIN;
    if ((events & ALOOPER_EVENT_OUTPUT) != 0) e |= EPOLLOUT;
    return e;
}

int FromEpoll(uint32_t e) {
    int events = 0;
    if ((e & EPOLLIN) != 0) events |= ALOOPER_EVENT_INPUT;
    if ((e & EPOLLOUT) != 0) events |= ALOOPER_EVENT_OUTPUT;
    if ((e & EPOLLERR) != 0) events |= ALOOPER_EVENT_ERROR;
    if ((e & EPOLLHUP) != 0) events |= ALOOPER_EVENT_HANGUP;
    return events;
}

// Index of the registration of fd, or -1; called holding the lock.
int FindReg(const ALooper *l, int fd) {
    for (int i = 0; i < l->regCount; ++i) {
        if (l->regs[i].fd == fd) return i;
    }
    return -1;
}

ALooper *Create() {
    void *mem = zpand::heap::Alloc(sizeof(ALooper));
    if (mem == nullptr) return nullptr;
    auto *l = new (mem) ALooper{};
    l->epollFd = epoll_create1(EPOLL_CLOEXEC);
    l->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    l->refs.store(1, std::memory_order_relaxed);
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = l->wakeFd;
    if (l->epollFd < 0 || l->wakeFd < 0 ||
        epoll_ctl(l->epollFd, EPOLL_CTL_ADD, l->wakeFd, &ev) != 0) {
        if (l->epollFd >= 0) close(l->epollFd);
        if (l->wakeFd >= 0) close(l->wakeFd);
        l->~ALooper();
        zpand::heap::Free(mem);
        return nullptr;
    }
    return l;
}

}  // namespace

extern "C" {

KESTRO_API ALooper *ALooper_forThread(void) {
    return t_looper.looper;
}

KESTRO_API ALooper *ALooper_prepare(int /*opts*/) {
    if (t_looper.looper == nullptr) t_looper.looper = Create();
    return t_looper.looper;
}

KESTRO_API void ALooper_acquire(ALooper *looper) {
    if (looper != nullptr) looper->refs.fetch_add(1, std::memory_order_relaxed);
}

KESTRO_API void ALooper_release(ALooper *looper) {
    if (looper == nullptr || looper->refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (t_looper.looper == looper) t_looper.looper = nullptr;
    close(looper->epollFd);
    close(looper->wakeFd);
    zpand::heap::Free(looper->regs);
    looper->~ALooper();
    zpand::heap::Free(looper);
}

KESTRO_API int ALooper_addFd(ALooper *looper, int fd, int ident, int events,
                             ALooper_callbackFunc callback, void *data) {
    if (looper == nullptr || fd < 0) return -1;
    std::lock_guard<std::mutex> guard(looper->lock);
    int i = FindReg(looper, fd);
    const bool known = i >= 0;
    if (!known) {
        if (looper->regCount == looper->regCap) {
            const int cap = looper->regCap == 0 ? 4 : looper->regCap * 2;
            void *grown = zpand::heap::Realloc(looper->regs, sizeof(ALooper::Reg) * cap);
            if (grown == nullptr) return -1;
            looper->regs = static_cast<ALooper::Reg *>(grown);
            looper->regCap = cap;
        }
        i = looper->regCount;
    }
    epoll_event ev{};
    ev.events = ToEpoll(events);
    ev.data.fd = fd;
    if (epoll_ctl(looper->epollFd, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &ev) != 0) return -1;
    looper->regs[i] = ALooper::Reg{fd, callback != nullptr ? ALOOPER_POLL_CALLBACK : ident, events,
                                   callback, data};
    if (!known) looper->regCount++;
    return 1;
}

KESTRO_API int ALooper_removeFd(ALooper *looper, int fd) {
    if (looper == nullptr) return -1;
    std::lock_guard<std::mutex> guard(looper->lock);
    const int i = FindReg(looper, fd);
    if (i < 0) return 0;
    epoll_ctl(looper->epollFd, EPOLL_CTL_DEL, fd, nullptr);
    looper->regs[i] = looper->regs[--looper->regCount];
    return 1;
}

KESTRO_API void ALooper_wake(ALooper *looper) {
    if (looper == nullptr) return;
    const uint64_t one = 1;
    ssize_t n = write(looper->wakeFd, &one, sizeof(one));
    (void)n;  // a full counter already means "wake"
}

KESTRO_API int ALooper_pollOnce(int timeoutMillis, int *outFd, int *outEvents, void **outData) {
    ALooper *l = t_looper.looper;
    if (l == nullptr) return ALOOPER_POLL_ERROR;
    constexpr int kBatch = 16;
    epoll_event evs[kBatch];
    int n = 0;
    do {
        n = epoll_wait(l->epollFd, evs, kBatch, timeoutMillis);
    } while (n < 0 && errno == EINTR);
    if (n < 0) return ALOOPER_POLL_ERROR;
    if (n == 0) return ALOOPER_POLL_TIMEOUT;
    int result = ALOOPER_POLL_TIMEOUT;
    for (int k = 0; k < n; ++k) {
        const int fd = evs[k].data.fd;
        const int events = FromEpoll(evs[k].events);
        if (fd == l->wakeFd) {
            uint64_t count = 0;
            ssize_t r = read(l->wakeFd, &count, sizeof(count));
            (void)r;
            if (result == ALOOPER_POLL_TIMEOUT) result = ALOOPER_POLL_WAKE;
            continue;
        }
        ALooper::Reg reg{};
        {
            std::lock_guard<std::mutex> guard(l->lock);
            const int i = FindReg(l, fd);
            if (i < 0) continue;  // removed meanwhile
            reg = l->regs[i];
        }
        if (reg.callback == nullptr) {
            // A descriptor without callback is reported to the caller; the
            // other ready ones are seen again at the next poll.
            if (outFd != nullptr) *outFd = fd;
            if (outEvents != nullptr) *outEvents = events;
            if (outData != nullptr) *outData = reg.data;
            return reg.ident;
        }
        if (reg.callback(fd, events, reg.data) == 0) ALooper_removeFd(l, fd);
        result = ALOOPER_POLL_CALLBACK;
    }
    return result;
}

}  // extern "C"

#endif  // Linux
