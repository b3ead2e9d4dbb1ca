// Event internals shared with the message and module code: the parser of
// one conversion of an event text format ("%d", "%*s", "%zu" ...), so that
// building, reading and performing an event agree on the kinds.
#pragma once

#include <cstdint>

#include "zos_evnt.h"

namespace zos {

// One conversion of a text format.
struct EvntConv {
    uint32_t uiKind;  // ZOS_EPARM_* kind it makes (0 for an unknown letter)
    char cLetter;     // the conversion letter as written ('\0' at the end)
};

// Steps *ppc past the next conversion of the text format. Returns 1 with
// *pstConv filled, 0 at the end of the text (no more '%'), -1 for an
// unknown letter (the letter in pstConv->cLetter, 0 when the text ends
// inside a conversion).
int EvntNextConv(const char **ppc, EvntConv *pstConv);

// The arena of a live event, null (without logging) for anything else.
ZCBUF EvntBuf(ZEVNT zEvnt);

// Zos_EvntDelete for a holder that drops its own reference of arena zNext
// right after: a last delete gives the event's record back to its arena
// only when the arena outlives that reference too.
void EvntDeleteBefore(ZEVNT zEvnt, ZCBUF zNext);

}  // namespace zos
