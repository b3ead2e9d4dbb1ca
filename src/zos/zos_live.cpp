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

namespace {

constexpr uintptr_t kEmpty = 0;
constexpr uintptr_t kGone = 1;  // a removed entry: look-ups probe past it
constexpr uint32_t kFirstBits = 10;

// A table is never more than half full (live and removed entries; see
// Reserve), and a replaced one no longer changes, so every probe meets an
// empty slot and ends.
struct Table {
    uint32_t uiBits;
    uint32_t uiMask;    // slots - 1
    uint32_t uiShift;   // 64 - bits: the home slot is the hash's top bits
    Table *pstRetired;  // the table this one replaced
    std::atomic<uintptr_t> *pSlots;
};

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

// The current table, kept apart from the registry's lock and counts so a
// look-up reaches it with one load, without the registry's first-use
// guard. Constant-initialised and trivially destroyed, so it is valid at
// any time of the process. Written only under the registry's lock.
std::atomic<Table *> g_current{nullptr};

// Never destroyed: threads still running while the process exits may check
// a handle after static destructors ran. The tables stay reachable from
// g_current through their retired links.
Registry &Reg() {
    static Registry *reg = new Registry;
    return *reg;
}

inline uint32_t Home(const Table *t, uintptr_t key) {
    // Fibonacci hashing of the address without its always-zero low bits.
    return static_cast<uint32_t>((static_cast<uint64_t>(key >> 3) * 0x9E3779B97F4A7C15ull) >>
                                 t->uiShift);
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

// The slot holding the key in the table, or null.
std::atomic<uintptr_t> *Find(Table *t, uintptr_t key) {
    std::atomic<uintptr_t> *slots = t->pSlots;
    const uint32_t mask = t->uiMask;
    for (uint32_t i = Home(t, key);; i = (i + 1) & mask) {
        const uintptr_t v = slots[i].load(std::memory_order_acquire);
        if (v == key) return &slots[i];
        if (v == kEmpty) return nullptr;
    }
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

bool LiveHas(const void *handle) {
    const auto key = reinterpret_cast<uintptr_t>(handle);
    if (key <= kGone) return false;
    Table *cur = g_current.load(std::memory_order_acquire);
    return cur != nullptr && Find(cur, key) != nullptr;
}

uint32_t LiveCount() {
    Registry &reg = Reg();
    std::lock_guard<SpinLock> hold(reg.lock);
    return reg.uiLive;
}

}  // namespace zos
