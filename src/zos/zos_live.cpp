// Registry of live handles: an open-addressed set of addresses with linear
// probing. Look-ups read the slots without a lock; adds and removes take
// one short spin lock (a data buffer adds and removes its handle with every
// packet, and a system mutex's two calls cost more than that work). The set
// grows by building a larger table and publishing it; a replaced table
// stays allocated until the process ends, so a look-up still walking it
// reads valid memory. The tables double, so the replaced ones together
// never exceed the current one.
#include "zos_live.h"

#include <atomic>
#include <mutex>
#include <new>
#include <thread>

namespace zos::live {

std::atomic<Table *> g_current{nullptr};

}  // namespace zos::live

namespace {

using zos::live::Find;
using zos::live::g_current;
using zos::live::Home;
using zos::live::kEmpty;
using zos::live::kGone;
using zos::live::Table;

constexpr uint32_t kFirstBits = 10;

// Held for a few dozen instructions, or for the copy into a larger table
// (rare): a waiter spins, and yields its core when the holder takes long.
class SpinLock {
  public:
    void lock() {
        for (uint32_t spins = 0; word_.exchange(true, std::memory_order_acquire);) {
            while (word_.load(std::memory_order_relaxed)) {
                if (++spins > 64) std::this_thread::yield();
            }
        }
    }
    void unlock() { word_.store(false, std::memory_order_release); }

  private:
    std::atomic<bool> word_{false};
};

struct Registry {
    SpinLock lock;
    uint32_t uiLive = 0;
    uint32_t uiUsed = 0;  // live and removed slots: what probing must walk
};

// Never destroyed: threads still running while the process exits may check
// a handle after static destructors ran. The tables stay reachable from
// g_current through their retired links.
Registry &Reg() {
    static Registry *reg = new Registry;
    return *reg;
}

Table *NewTable(uint32_t bits) {
    auto *t = new (std::nothrow) Table;
    if (t == nullptr) return nullptr;
    t->uiBits = bits;
    t->uiMask = (1u << bits) - 1;
    t->uiShift = 64 - bits;
    t->pstRetired = nullptr;
    t->pSlots = new (std::nothrow) std::atomic<uintptr_t>[size_t{1} << bits];
    if (t->pSlots == nullptr) {
        delete t;
        return nullptr;
    }
    for (size_t i = 0; i < (size_t{1} << bits); i++) {
        t->pSlots[i].store(kEmpty, std::memory_order_relaxed);
    }
    return t;
}

// Places a key known to be absent in the first empty or removed slot of
// its probe; true when the slot was empty. The caller holds the lock.
bool Place(Table *t, uintptr_t key) {
    for (uint32_t i = Home(t, key);; i = (i + 1) & t->uiMask) {
        const uintptr_t v = t->pSlots[i].load(std::memory_order_relaxed);
        if (v == kEmpty || v == kGone) {
            t->pSlots[i].store(key, std::memory_order_release);
            return v == kEmpty;
        }
    }
}

// Makes room for one more entry: a new table when live and removed slots
// would fill more than half of the current one.
bool Reserve(Registry &reg) {
    Table *cur = g_current.load(std::memory_order_relaxed);
    if (cur != nullptr && (reg.uiUsed + 1) * 2 <= (1u << cur->uiBits)) return true;
    uint32_t bits = cur != nullptr ? cur->uiBits : kFirstBits;
    while ((reg.uiLive + 1) * 4 > (1u << bits)) bits++;
    if (bits > 30) return false;
    Table *t = NewTable(bits);
    if (t == nullptr) return false;
    if (cur != nullptr) {
        for (size_t i = 0; i < (size_t{1} << cur->uiBits); i++) {
            const uintptr_t v = cur->pSlots[i].load(std::memory_order_relaxed);
            if (v != kEmpty && v != kGone) Place(t, v);
        }
    }
    t->pstRetired = cur;
    g_current.store(t, std::memory_order_release);
    reg.uiUsed = reg.uiLive;
    return true;
}

}  // namespace

namespace zos {

bool LiveAdd(const void *handle) {
    const auto key = reinterpret_cast<uintptr_t>(handle);
    if (key <= kGone) return false;
    Registry &reg = Reg();
    std::lock_guard<SpinLock> hold(reg.lock);
    Table *cur = g_current.load(std::memory_order_relaxed);
    if (cur != nullptr && Find(cur, key) != nullptr) return true;
    if (!Reserve(reg)) return false;
    if (Place(g_current.load(std::memory_order_relaxed), key)) reg.uiUsed++;
    reg.uiLive++;
    return true;
}

void LiveRemove(const void *handle) {
    const auto key = reinterpret_cast<uintptr_t>(handle);
    if (key <= kGone) return;
    Registry &reg = Reg();
    std::lock_guard<SpinLock> hold(reg.lock);
    Table *cur = g_current.load(std::memory_order_relaxed);
    if (cur == nullptr) return;
    std::atomic<uintptr_t> *slot = Find(cur, key);
    if (slot == nullptr) return;
    slot->store(kGone, std::memory_order_release);
    reg.uiLive--;
}

uint32_t LiveCount() {
    Registry &reg = Reg();
    std::lock_guard<SpinLock> hold(reg.lock);
    return reg.uiLive;
}

}  // namespace zos
