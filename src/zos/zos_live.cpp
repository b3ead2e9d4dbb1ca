// Registry of live handles: an open-addressed set of addresses with linear
// probing. Look-ups read the slots without a lock; adds and removes take
// one short spin lock (a data buffer adds and removes its handle with every
// packet, and a system mutex's two calls cost more than that work). The set
// grows by building a larger table and publishing it; a replaced table
// stays allocated until the process ends, so a look-up still walking it
// reads valid memory. A table is replaced only when the live handles
// outgrow it, by one at least four times its size, so the replaced ones
// together stay smaller than the current one, however many handles come
// and go.
#include "zos_live.h"

#include <atomic>
#include <mutex>
#include <new>
#include <thread>

namespace zos::live {

namespace {

// The table before the first handle: two empty slots, never written (the
// first add replaces it, as any table that is too small).
constinit std::atomic<uintptr_t> g_noSlots[2] = {kEmpty, kEmpty};
constinit Table g_none{1, 1, 63, nullptr, g_noSlots};

}  // namespace

std::atomic<Table *> g_current{&g_none};

bool IsNone(const Table *t) {
    return t == &g_none;
}

std::atomic<uint32_t> g_moves{0};

}  // namespace zos::live

namespace {

using zos::live::g_current;
using zos::live::g_moves;
using zos::live::Home;
using zos::live::IsNone;
using zos::live::kEmpty;
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

// The slot holding the key, or the empty slot that ends its probe.
std::atomic<uintptr_t> *Probe(Table *t, uintptr_t key) {
    for (auto i = static_cast<uint32_t>(Home(t, key));; i = (i + 1) & t->uiMask) {
        const uintptr_t v = t->pSlots[i].load(std::memory_order_relaxed);
        if (v == key || v == kEmpty) return &t->pSlots[i];
    }
}

// A new table when one more entry would fill more than half of the
// current one, sized for four times the live entries.
bool Reserve(Registry &reg) {
    Table *cur = g_current.load(std::memory_order_relaxed);
    if (!IsNone(cur) && (reg.uiLive + 1) * 2 <= (1u << cur->uiBits)) return true;
    uint32_t bits = IsNone(cur) ? kFirstBits : cur->uiBits;
    while ((reg.uiLive + 1) * 4 > (1u << bits)) bits++;
    if (bits > 30) return false;
    Table *t = NewTable(bits);
    if (t == nullptr) return false;
    for (size_t i = 0; i < (size_t{1} << cur->uiBits); i++) {
        const uintptr_t v = cur->pSlots[i].load(std::memory_order_relaxed);
        if (v != kEmpty) Probe(t, v)->store(v, std::memory_order_relaxed);
    }
    t->pstRetired = IsNone(cur) ? nullptr : cur;
    // A look-up still walking the replaced table sees every handle added
    // before it: that table is never written again, and a handle added
    // after this store is looked up in the new one by whoever was handed it.
    g_current.store(t, std::memory_order_release);
    return true;
}

// Empties slot `gap` and moves back every later entry of the run whose
// probe passes the gap, so each entry stays reachable from its home slot
// with no empty slot between. Readers that miss an entry while it moves
// see g_moves change and look again.
void Unlink(Table *t, uint32_t gap) {
    const uint32_t moves = g_moves.load(std::memory_order_relaxed);
    g_moves.store(moves + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    for (uint32_t j = gap;;) {
        j = (j + 1) & t->uiMask;
        const uintptr_t v = t->pSlots[j].load(std::memory_order_relaxed);
        if (v == kEmpty) break;
        // The entry may fill the gap unless its home lies after the gap,
        // up to and including j (cyclically).
        const auto home = static_cast<uint32_t>(Home(t, v));
        const bool stays = gap <= j ? (gap < home && home <= j) : (gap < home || home <= j);
        if (stays) continue;
        t->pSlots[gap].store(v, std::memory_order_relaxed);
        gap = j;
    }
    t->pSlots[gap].store(kEmpty, std::memory_order_relaxed);
    g_moves.store(moves + 2, std::memory_order_release);
}

}  // namespace

namespace zos {

bool LiveAdd(const void *handle) {
    const auto key = reinterpret_cast<uintptr_t>(handle);
    if (key == kEmpty) return false;
    Registry &reg = Reg();
    std::lock_guard<SpinLock> hold(reg.lock);
    Table *cur = g_current.load(std::memory_order_relaxed);
    std::atomic<uintptr_t> *slot = Probe(cur, key);
    if (slot->load(std::memory_order_relaxed) == key) return true;
    if (!Reserve(reg)) return false;
    Table *now = g_current.load(std::memory_order_relaxed);
    if (now != cur) slot = Probe(now, key);
    slot->store(key, std::memory_order_release);
    reg.uiLive++;
    return true;
}

void LiveRemove(const void *handle) {
    const auto key = reinterpret_cast<uintptr_t>(handle);
    if (key == kEmpty) return;
    Registry &reg = Reg();
    std::lock_guard<SpinLock> hold(reg.lock);
    Table *cur = g_current.load(std::memory_order_relaxed);
    std::atomic<uintptr_t> *slot = Probe(cur, key);
    if (slot->load(std::memory_order_relaxed) != key) return;
    Unlink(cur, static_cast<uint32_t>(slot - cur->pSlots));
    reg.uiLive--;
}

__attribute__((noinline, cold)) bool LiveMissed(uintptr_t key, uint32_t moves) {
    for (;;) {
        std::atomic_thread_fence(std::memory_order_acquire);
        const uint32_t now = g_moves.load(std::memory_order_relaxed);
        if ((moves & 1) == 0 && now == moves) return false;
        moves = g_moves.load(std::memory_order_acquire);
        const Table *cur = g_current.load(std::memory_order_acquire);
        if (zos::live::Holds(cur, key)) return true;
    }
}

}  // namespace zos
