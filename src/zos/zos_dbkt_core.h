// Node bucket access for containers that hold a lock of their own.
#pragma once

#include "zos_dbkt.h"

namespace zos {

// As Zos_DbktGetBkt and Zos_DbktPutBkt. With `covered` the caller's own
// lock already serialises every use of the bucket, so neither the
// bucket's mutex nor its lists' mutexes are taken.
void *DbktGet(ZDBKT zBkt, bool covered);
uint32_t DbktPut(ZDBKT zBkt, void *pNode, bool covered);

}  // namespace zos
