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

#include <cstdint>

namespace zos {

// Registers a handle; false when the registry cannot grow (the caller
// fails its create). Adding an address twice keeps one entry.
bool LiveAdd(const void *handle);
// Forgets a handle; an address that is not registered is ignored.
void LiveRemove(const void *handle);
// True while the handle is registered. Lock-free; safe beside adds and
// removes on other threads.
bool LiveHas(const void *handle);
// Number of registered handles (tests and diagnostics).
uint32_t LiveCount();

// The usual check: a registered handle whose magic word still holds the
// family's value. `T` is the family's record type with a `uiMagic` field.
template <typename T>
inline T *LiveRecord(const void *handle, uint32_t magic) {
    if (handle == nullptr || !LiveHas(handle)) return nullptr;
    auto *rec = static_cast<T *>(const_cast<void *>(handle));
    return rec->uiMagic == magic ? rec : nullptr;
}

}  // namespace zos
