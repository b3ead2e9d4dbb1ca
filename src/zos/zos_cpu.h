// The processor's spin-wait hint, for loops that wait a few hundred cycles
// on a word another core is about to change: it lowers the power and the
// memory-order traffic of the loop and lets a sibling hardware thread run.
#pragma once

namespace zos {

inline void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield" ::: "memory");
#else
    __asm__ __volatile__("" ::: "memory");
#endif
}

}  // namespace zos
