// The gate between shut-down and the task threads that outlive its
// bounded waits. The module manager keeps it (zos_mod.cpp); the loops that
// call the application's callbacks (module tasks, the manager task, the
// timer task, a plain task's entry) mark where those callbacks run.
#pragma once

#include <atomic>
#include <cstdint>

namespace zos {

// Shared by the manager and every task thread it spawned, and made from
// the platform heap rather than the layer's memory, which shut-down frees:
// it outlives the layer for threads that do.
//
// uiRefs counts the manager and each live thread; the last to let go frees
// the gate. uiInside counts the threads running the layer's own code (a
// loop, a step between two callbacks) rather than a callback of the
// application (a handler, an exit callback, a plain task's entry). When
// shut-down has waited for a thread as long as it may, it closes the gate
// and waits only for the threads inside: a callback that returns later
// finds the gate closed and its thread leaves without touching the layer.
struct ModGate {
    static constexpr uint32_t kClosed = 0x80000000u;
    std::atomic<uint32_t> uiRefs;
    std::atomic<uint32_t> uiInside;  // kClosed once closed, and the count
};

// A new gate held by its maker, or null.
ModGate *GateNew();
// Lets go of a hold on the gate; the last frees it.
void GateRelease(ModGate *gate);
// Binds the calling thread, the thread of task `task`, to the gate it was
// spawned under (counted inside by the spawner), and unbinds it at the
// thread's end, letting go of its hold.
void GateAttach(ModGate *gate, uint32_t task);
void GateDetach();
// True on a task thread that found its gate closed: from then on it must
// leave without touching the layer.
bool GateAbandoned();
// The task whose thread is calling, or ZOS_INVALID_ID: a stop or delete
// of that task, or a shut-down, cannot wait for it to end.
uint32_t GateTask();
// 1 when the calling thread holds `gate`, else 0.
uint32_t GateHeldHere(const ModGate *gate);

// Puts the calling task thread inside the layer's code (true) or in the
// application's (false) for the scope, then back. Entering a closed gate
// abandons the thread instead. No effect on other threads.
class GateScope {
  public:
    explicit GateScope(bool inside);
    ~GateScope();
    GateScope(const GateScope &) = delete;
    GateScope &operator=(const GateScope &) = delete;

  private:
    bool prev_;
};

}  // namespace zos
