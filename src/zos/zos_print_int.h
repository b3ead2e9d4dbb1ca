// Print services shared with other families of the layer.
#pragma once

#include "zos_type.h"

namespace zos {

// Receives the pieces of a hex dump in order.
using HexSink = void (*)(void *arg, const char *piece, uint32_t len);

// The hex dump of Zos_PrintBuf as a sequence of pieces: the length header,
// lines of 16 bytes in hexadecimal with their printable characters, and a
// final "\n".
void HexDump(const uint8_t *data, uint32_t len, HexSink sink, void *arg);

}  // namespace zos
