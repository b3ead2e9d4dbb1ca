// The heap behind the platform's memory slots. jemalloc's non-standard
// entry points are called directly so jemalloc serves the layer's heap
// whichever malloc the process resolved first. A build whose jemalloc
// carries the je_ prefix changes only the three names below.
//
// Sanitizer builds define KESTRO_SYSTEM_HEAP so that AddressSanitizer sees
// (and checks) every block of the layer; product builds never do.
#pragma once

#include <cstddef>

#ifdef KESTRO_SYSTEM_HEAP
#include <cstdlib>
namespace zpand::heap {
inline void *Alloc(size_t size) {
    return std::malloc(size);
}
inline void *Realloc(void *p, size_t size) {
    return std::realloc(p, size);
}
inline void Free(void *p) {
    std::free(p);
}
}  // namespace zpand::heap
#else
#include <jemalloc.h>
namespace zpand::heap {
inline void *Alloc(size_t size) {
    return mallocx(size, 0);
}
inline void *Realloc(void *p, size_t size) {
    return p == nullptr ? mallocx(size, 0) : rallocx(p, size, 0);
}
inline void Free(void *p) {
    if (p != nullptr) dallocx(p, 0);
}
}  // namespace zpand::heap
#endif
