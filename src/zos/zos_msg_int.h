// Message internals shared with the event code.
#pragma once

#include <cstdint>

#include "zos_msg.h"

namespace zos {

// The sender and receiver of a live message, without logging; false (both
// left as they are) for anything that is not a live message.
bool MsgTaskIds(ZMSG zMsg, uint32_t *puiSend, uint32_t *puiRecv);

}  // namespace zos
