// Tree lookups the layer's own containers need beyond the exported set.
#pragma once

#include "zos_rbt.h"

namespace zos {

// The node with the smallest key not below zKey in the tree's order, or
// null (also for an invalid tree).
ZRBTNODE RbtCeil(ZRBT zTree, uintptr_t zKey);

}  // namespace zos
