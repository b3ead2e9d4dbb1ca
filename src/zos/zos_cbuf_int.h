// Arena internals shared with the event and message code.
#pragma once

#include <cstdint>

#include "zos_cbuf.h"

namespace zos {

// The references of an arena that the caller holds a reference of, read
// without the handle check (the caller's reference keeps it alive).
uint32_t CbufRefsHeld(ZCBUF zCbuf);

}  // namespace zos
