// Registry of live handles. Every family whose handles callers may use
// after deleting them (a call on a dead handle must be refused, not read
// freed memory) registers a handle when it is made and removes it before
// its memory goes back. The check asks the registry first and reads the
// record's magic word only for a registered address.
//
// Process-wide on purpose: handles made before start-up or kept after
// shut-down are checked against it too, so it cannot live in the
// environment record, which shut-down releases.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace zos {

namespace live {

// The registry's table: an open-addressed set of addresses with linear
// probing, never more than half full, so every probe meets an empty slot.
// A removed entry leaves no marker behind: the entries after it on its
// probe move back into the gap, so the table holds only live addresses and
// needs no clean-up (which, with look-ups that take no lock, could only be
// a new table, and a replaced table must stay allocated).
struct Table {
    uint32_t uiBits;
    uint32_t uiMask;    // slots - 1
    uint32_t uiShift;   // 64 - bits: the home slot is the hash's top bits
    Table *pstRetired;  // the table this one replaced
    std::atomic<uintptr_t> *pSlots;
};

constexpr uintptr_t kEmpty = 0;

// The current table: before the first handle, a constant empty one that is
// never written, so a look-up needs no test for "no table yet".
// Constant-initialised and trivially destroyed, so it is valid at any time
// of the process; written only under the registry's lock, read here
// without it.
extern std::atomic<Table *> g_current;
// Whether a table is that empty first one.
bool IsNone(const Table *t);

// Odd while a remove moves entries back, bumped again when it is done. A
// look-up that met no match reads it before and after its probe; a move
// in between may have carried the address past it, so it looks again. A
// match needs no such check: only live addresses are ever written.
extern std::atomic<uint32_t> g_moves;

inline size_t Home(const Table *t, uintptr_t key) {
    // Fibonacci hashing of the address. Its always-zero low bits only shift
    // the product, whose top bits still depend on every other bit.
    return static_cast<size_t>((static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ull) >> t->uiShift);
}

// Whether the key's probe meets the key before an empty slot. The null
// address (kEmpty) meets an empty slot as its match and is refused there.
inline bool Holds(const Table *t, uintptr_t key) {
    const std::atomic<uintptr_t> *slots = t->pSlots;
    size_t i = Home(t, key);
    // The home slot first, on a straight path: it holds most handles.
    uintptr_t v = slots[i].load(std::memory_order_relaxed);
    while (__builtin_expect(v != key, 0)) {
        if (v == kEmpty) return false;
        i = (i + 1) & t->uiMask;
        v = slots[i].load(std::memory_order_relaxed);
    }
    return key != kEmpty;
}

}  // namespace live

// Registers a handle; false when the registry cannot grow (the caller
// fails its create). Adding an address twice keeps one entry.
bool LiveAdd(const void *handle);
// Forgets a handle; an address that is not registered is ignored.
void LiveRemove(const void *handle);
// The answer to a look-up that met no match while g_moves read `moves`
// before it: false if no move ran meanwhile, else the look-up again.
bool LiveMissed(uintptr_t key, uint32_t moves);
// True while the handle is registered. Lock-free; safe beside adds and
// removes on other threads. Inline: every call on a handle asks it.
inline bool LiveHas(const void *handle) {
    const auto key = reinterpret_cast<uintptr_t>(handle);
    const uint32_t moves = live::g_moves.load(std::memory_order_acquire);
    const live::Table *cur = live::g_current.load(std::memory_order_acquire);
    return live::Holds(cur, key) || LiveMissed(key, moves);
}
// True when the handle is found registered on a first look, which is
// final; false is not (a move may have carried it past the look, which
// LiveHas then looks into). For hot paths that leave a false answer to a
// slower path making the whole check.
inline bool LiveSeen(const void *handle) {
    return live::Holds(live::g_current.load(std::memory_order_acquire),
                       reinterpret_cast<uintptr_t>(handle));
}

// The usual check: a registered handle whose magic word still holds the
// family's value. `T` is the family's record type with a `uiMagic` field.
template <typename T>
inline T *LiveRecord(const void *handle, uint32_t magic) {
    if (handle == nullptr || !LiveHas(handle)) return nullptr;
    auto *rec = static_cast<T *>(const_cast<void *>(handle));
    return rec->uiMagic == magic ? rec : nullptr;
}

}  // namespace zos
