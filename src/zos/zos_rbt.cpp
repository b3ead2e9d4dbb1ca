// Red-black tree whose record and nodes live in one arena.
#include "zos_rbt.h"
#include "zos_rbt_int.h"
#include "zos_cbuf.h"
#include "zos_dbuf.h"
#include "zos_fmt.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kMagic = 0xAB45CD79;
constexpr uint32_t kRed = ZOS_RBT_RED;
constexpr uint32_t kBlack = ZOS_RBT_BLACK;
// Size argument of the tree's arena.
constexpr uint32_t kArenaHint = 256;
// Data buffer made by print when the caller gives none.
constexpr uint32_t kPrintBufType = 1;
constexpr uint32_t kPrintBufSize = 512;

// The fields a lookup reads (key and both children) sit together.
struct Node {
    uint32_t uiColour;
    uintptr_t zKey;
    Node *pstLeft;
    Node *pstRight;
    Node *pstParent;
    uintptr_t zValue;
};

struct Tree {
    uint32_t uiMagic;
    uint32_t uiSize;
    ZCBUF zCbuf;
    PFN_ZOS_RBTCMP pfnCmp; /* caller's order; null: Zos_RbtKeyCmp, inlined */
    Node *pstRoot;
    Node *pstFree; /* removed nodes, linked through pstLeft */
};

inline Tree *Valid(ZRBT zTree) {
    Tree *tree = static_cast<Tree *>(zTree);
    return zos::LiveRecord<Tree>(tree, kMagic);
}

inline bool IsRed(const Node *node) {
    return node != nullptr && node->uiColour == kRed;
}

// Mirrored code takes a side: kLeft or kRight, and 1 - side for the other.
constexpr int kLeft = 0;
constexpr int kRight = 1;

inline Node *&Kid(Node *node, int side) {
    return side == kLeft ? node->pstLeft : node->pstRight;
}

// The last node down the given side.
inline Node *Outermost(Node *node, int side) {
    while (Kid(node, side) != nullptr) node = Kid(node, side);
    return node;
}

inline Node *Leftmost(Node *node) {
    return Outermost(node, kLeft);
}

inline Node *Rightmost(Node *node) {
    return Outermost(node, kRight);
}

// Signed order of a key against a node's key; the default order is
// inlined, a caller's order goes through its function.
struct DefaultOrder {
    int32_t operator()(uintptr_t a, uintptr_t b) const { return a < b ? -1 : (a > b ? 1 : 0); }
};
struct CallerOrder {
    PFN_ZOS_RBTCMP pfn;
    int32_t operator()(uintptr_t a, uintptr_t b) const { return pfn(a, b); }
};

template <class Order>
Node *FindWith(Node *node, uintptr_t zKey, Order order) {
    while (node != nullptr) {
        const int32_t c = order(zKey, node->zKey);
        if (c == 0) return node;
        node = c < 0 ? node->pstLeft : node->pstRight;
    }
    return nullptr;
}

// Out of line so that the default-order lookup stays a leaf routine.
[[gnu::noinline]] Node *FindByCaller(const Tree *tree, uintptr_t zKey) {
    return FindWith(tree->pstRoot, zKey, CallerOrder{tree->pfnCmp});
}

inline Node *FindNode(const Tree *tree, uintptr_t zKey) {
    if (tree->pfnCmp == nullptr) return FindWith(tree->pstRoot, zKey, DefaultOrder{});
    return FindByCaller(tree, zKey);
}

template <class Order>
Node *CeilWith(Node *node, uintptr_t zKey, Order order) {
    Node *best = nullptr;
    while (node != nullptr) {
        const int32_t c = order(zKey, node->zKey);
        if (c == 0) return node;
        if (c < 0) {
            best = node;
            node = node->pstLeft;
        } else {
            node = node->pstRight;
        }
    }
    return best;
}

// Where a new key goes: its parent and side; sets *found when the key is
// present already.
template <class Order>
Node *PlaceWith(Node *node, uintptr_t zKey, Order order, bool *left, Node **found) {
    Node *parent = nullptr;
    while (node != nullptr) {
        const int32_t c = order(zKey, node->zKey);
        if (c == 0) {
            *found = node;
            return nullptr;
        }
        parent = node;
        *left = c < 0;
        node = c < 0 ? node->pstLeft : node->pstRight;
    }
    return parent;
}

// Links `child` where `node` hung from its parent (or as the root).
inline void Replace(Tree *tree, Node *node, Node *child) {
    Node *parent = node->pstParent;
    if (parent == nullptr) {
        tree->pstRoot = child;
    } else if (parent->pstLeft == node) {
        parent->pstLeft = child;
    } else {
        parent->pstRight = child;
    }
    if (child != nullptr) child->pstParent = parent;
}

// Turns `node` down to the given side: its child on the other side takes
// its place.
void Rotate(Tree *tree, Node *node, int side) {
    Node *pivot = Kid(node, 1 - side);
    Kid(node, 1 - side) = Kid(pivot, side);
    if (Kid(pivot, side) != nullptr) Kid(pivot, side)->pstParent = node;
    Replace(tree, node, pivot);
    Kid(pivot, side) = node;
    node->pstParent = pivot;
}

// Restores the colour rules after a red node was linked. A red parent
// always has a parent itself; false when the links say otherwise.
bool InsertFixup(Tree *tree, Node *node) {
    while (IsRed(node->pstParent)) {
        Node *parent = node->pstParent;
        Node *grand = parent->pstParent;
        if (grand == nullptr) return false;
        // The side of the grandparent the parent hangs on.
        const int side = parent == grand->pstLeft ? kLeft : kRight;
        Node *uncle = Kid(grand, 1 - side);
        if (IsRed(uncle)) {
            parent->uiColour = kBlack;
            uncle->uiColour = kBlack;
            grand->uiColour = kRed;
            node = grand;
            continue;
        }
        if (node == Kid(parent, 1 - side)) {
            node = parent;
            Rotate(tree, node, side);
            parent = node->pstParent;
        }
        parent->uiColour = kBlack;
        grand->uiColour = kRed;
        Rotate(tree, grand, 1 - side);
    }
    tree->pstRoot->uiColour = kBlack;
    return true;
}

// Restores the colour rules after a black node was taken out of the
// `left` side of `parent`, leaving `node` (possibly null) one black short.
void RemoveFixup(Tree *tree, Node *node, Node *parent, bool left) {
    while (node != tree->pstRoot && !IsRed(node)) {
        const int side = left ? kLeft : kRight;
        Node *sibling = Kid(parent, 1 - side);
        if (IsRed(sibling)) {
            sibling->uiColour = kBlack;
            parent->uiColour = kRed;
            Rotate(tree, parent, side);
            sibling = Kid(parent, 1 - side);
        }
        if (!IsRed(sibling->pstLeft) && !IsRed(sibling->pstRight)) {
            sibling->uiColour = kRed;
            node = parent;
        } else {
            if (!IsRed(Kid(sibling, 1 - side))) {
                Kid(sibling, side)->uiColour = kBlack;
                sibling->uiColour = kRed;
                Rotate(tree, sibling, 1 - side);
                sibling = Kid(parent, 1 - side);
            }
            sibling->uiColour = parent->uiColour;
            parent->uiColour = kBlack;
            Kid(sibling, 1 - side)->uiColour = kBlack;
            Rotate(tree, parent, side);
            node = tree->pstRoot;
            break;
        }
        parent = node->pstParent;
        if (parent == nullptr) break;
        left = node == parent->pstLeft;
    }
    if (node != nullptr) node->uiColour = kBlack;
}

uint32_t Ancestors(const Node *node) {
    uint32_t n = 0;
    for (node = node->pstParent; node != nullptr; node = node->pstParent) ++n;
    return n;
}

// For a node with two children: the node whose entry moves into it and
// which is unlinked instead. Red candidates and candidates with a red
// outer child need no repair; otherwise the deeper one is taken.
Node *PickReplacement(Node *node) {
    Node *pred = Rightmost(node->pstLeft);
    Node *succ = Leftmost(node->pstRight);
    if (IsRed(pred)) return pred;
    if (IsRed(succ)) return succ;
    if (IsRed(pred->pstLeft)) return pred;
    if (IsRed(succ->pstRight)) return succ;
    return Ancestors(pred) > Ancestors(succ) ? pred : succ;
}

// Unlinks a node with at most one child and returns it to the arena.
void RemoveAt(Tree *tree, Node *node) {
    if (tree->uiSize == 1) {
        tree->pstRoot = nullptr;
    } else {
        if (node->pstLeft != nullptr && node->pstRight != nullptr) {
            Node *chosen = PickReplacement(node);
            node->zKey = chosen->zKey;
            node->zValue = chosen->zValue;
            node = chosen;
        }
        Node *child = node->pstLeft != nullptr ? node->pstLeft : node->pstRight;
        Node *parent = node->pstParent;
        const bool left = parent != nullptr && parent->pstLeft == node;
        Replace(tree, node, child);
        if (node->uiColour == kBlack) {
            if (IsRed(child)) {
                child->uiColour = kBlack;
            } else if (parent != nullptr) {
                RemoveFixup(tree, child, parent, left);
            } else if (child != nullptr) {
                child->uiColour = kBlack;
            }
        }
    }
    tree->uiSize--;
    // Only this tree allocates from its arena, so a removed node is kept
    // for the next add instead of being handed back (the arena's free
    // looks the pointer up among all of its pages).
    *node = Node{};
    node->pstLeft = tree->pstFree;
    tree->pstFree = node;
}

// A cleared node: a removed one if any, else a new one from the arena.
Node *NewNode(Tree *tree) {
    Node *node = tree->pstFree;
    if (node == nullptr) return static_cast<Node *>(Zos_CbufAllocClrd(tree->zCbuf, sizeof(Node)));
    tree->pstFree = node->pstLeft;
    node->pstLeft = nullptr;
    return node;
}

// The traversal steps come in mirrored pairs: pre-order forward walks
// like post-order backward with the sides swapped, and so on.

// Pre-order next (side kLeft) and post-order previous (kRight): the
// node's child on `side`, else on the other side, else the other-side
// child of the nearest ancestor reached from its `side`.
Node *DownThenUp(Node *node, int side) {
    if (Kid(node, side) != nullptr) return Kid(node, side);
    if (Kid(node, 1 - side) != nullptr) return Kid(node, 1 - side);
    for (Node *parent = node->pstParent; parent != nullptr;
         node = parent, parent = parent->pstParent) {
        if (node == Kid(parent, side) && Kid(parent, 1 - side) != nullptr) {
            return Kid(parent, 1 - side);
        }
    }
    return nullptr;
}

// Down to a leaf, taking `side` where possible, else the other side: the
// last node of a subtree in pre-order (kRight), the first in post-order
// (kLeft).
Node *DeepestOn(Node *node, int side) {
    for (;;) {
        if (Kid(node, side) != nullptr) {
            node = Kid(node, side);
        } else if (Kid(node, 1 - side) != nullptr) {
            node = Kid(node, 1 - side);
        } else {
            return node;
        }
    }
}

// Pre-order previous (side kLeft) and post-order next (kRight): the
// parent when coming from its `side` or when that side is empty, else
// the deepest node of that side's subtree.
Node *UpThenDown(Node *node, int side) {
    Node *parent = node->pstParent;
    if (parent == nullptr) return nullptr;
    if (node == Kid(parent, side) || Kid(parent, side) == nullptr) return parent;
    return DeepestOn(Kid(parent, side), 1 - side);
}

// In-order next (side kRight) and previous (kLeft).
Node *InStep(Node *node, int side) {
    if (Kid(node, side) != nullptr) return Outermost(Kid(node, side), 1 - side);
    Node *parent = node->pstParent;
    while (parent != nullptr && node == Kid(parent, side)) {
        node = parent;
        parent = parent->pstParent;
    }
    return parent;
}

// Pre-order: node, left, right.
inline Node *PreNext(Node *node) {
    return DownThenUp(node, kLeft);
}

inline Node *PrePrev(Node *node) {
    return UpThenDown(node, kLeft);
}

// Post-order: left, right, node.
inline Node *PostNext(Node *node) {
    return UpThenDown(node, kRight);
}

inline Node *PostPrev(Node *node) {
    return DownThenUp(node, kRight);
}

inline Node *InNext(Node *node) {
    return InStep(node, kRight);
}

inline Node *InPrev(Node *node) {
    return InStep(node, kLeft);
}

uint32_t Height(const Node *node) {
    if (node == nullptr) return 0;
    const uint32_t l = Height(node->pstLeft);
    const uint32_t r = Height(node->pstRight);
    return 1 + (l > r ? l : r);
}

// Black nodes from a node up to the root, itself included, plus one for
// the missing child below it.
int32_t BlackToRoot(const Node *node) {
    int32_t n = 1;
    for (; node != nullptr; node = node->pstParent) {
        if (node->uiColour == kBlack) ++n;
    }
    return n;
}

// Appends one formatted piece to the print buffer.
bool Put(ZDBUF zDbuf, const char *pcFormat, ...) {
    char text[64];
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t len = Zos_VSNPrintf(text, static_cast<int32_t>(sizeof(text)), pcFormat, ap);
    va_end(ap);
    return Zos_DbufPstAddMultD(zDbuf, text, len) == ZOK;
}

inline unsigned long KeyWord(uintptr_t zKey) {
    return static_cast<unsigned long>(zKey);
}

inline const char *ColourText(const Node *node) {
    return node->uiColour == kBlack ? "B" : "R";
}

// "0x8B{0x3R,#}": a node with children is followed by both subtrees.
bool PrintCompact(ZDBUF zDbuf, const Node *node) {
    if (node == nullptr) return Put(zDbuf, "#");
    if (!Put(zDbuf, "0x%lx%s", KeyWord(node->zKey), ColourText(node))) return false;
    if (node->pstLeft == nullptr && node->pstRight == nullptr) return true;
    return Put(zDbuf, "{") && PrintCompact(zDbuf, node->pstLeft) && Put(zDbuf, ",") &&
           PrintCompact(zDbuf, node->pstRight) && Put(zDbuf, "}");
}

// One node per line, two spaces of indent per level.
bool PrintLines(ZDBUF zDbuf, const Node *node, uint32_t uiDepth) {
    for (uint32_t i = 0; i < uiDepth; ++i) {
        if (!Put(zDbuf, "  ")) return false;
    }
    if (node == nullptr) return Put(zDbuf, "#\n");
    if (!Put(zDbuf, "0x%lx%s\n", KeyWord(node->zKey), ColourText(node))) return false;
    if (node->pstLeft == nullptr && node->pstRight == nullptr) return true;
    return PrintLines(zDbuf, node->pstLeft, uiDepth + 1) &&
           PrintLines(zDbuf, node->pstRight, uiDepth + 1);
}

// Log arguments of "%zu": the formatter reads 32 bits for 'z'.
inline uint32_t LogKey(uintptr_t zKey) {
    return static_cast<uint32_t>(zKey);
}

}  // namespace

namespace zos {

ZRBTNODE RbtCeil(ZRBT zTree, uintptr_t zKey) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) return nullptr;
    if (tree->pfnCmp == nullptr) return CeilWith(tree->pstRoot, zKey, DefaultOrder{});
    return CeilWith(tree->pstRoot, zKey, CallerOrder{tree->pfnCmp});
}

}  // namespace zos

extern "C" {

KESTRO_API int32_t Zos_RbtKeyCmp(uintptr_t zKeyA, uintptr_t zKeyB) {
    return DefaultOrder{}(zKeyA, zKeyB);
}

KESTRO_API ZRBT Zos_RbtCreate(ZCBUF zParent) {
    void *record = nullptr;
    ZCBUF zCbuf = Zos_CbufCreateXD(zParent, kArenaHint, sizeof(Tree), &record);
    if (zCbuf == nullptr) {
        ZOS_LOG_ERR("RbtCreate alloc mem.");
        return nullptr;
    }
    Tree *tree = static_cast<Tree *>(record);
    if (!zos::LiveAdd(tree)) {
        ZOS_LOG_ERR("RbtCreate alloc mem.");
        Zos_CbufDelete(zCbuf);
        return nullptr;
    }
    tree->uiMagic = kMagic;
    tree->uiSize = 0;
    tree->zCbuf = zCbuf;
    tree->pfnCmp = nullptr;
    tree->pstRoot = nullptr;
    tree->pstFree = nullptr;
    return tree;
}

KESTRO_API void Zos_RbtDelete(ZRBT zTree) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtDelete invalid id.");
        return;
    }
    ZCBUF zCbuf = tree->zCbuf;
    zos::LiveRemove(tree);
    tree->uiMagic = 0;
    Zos_CbufDelete(zCbuf);
}

KESTRO_API uint32_t Zos_RbtSetCmp(ZRBT zTree, PFN_ZOS_RBTCMP pfnCmp) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtSetCmp invalid id.");
        return ZFAILED;
    }
    if (tree->pstRoot != nullptr) {
        ZOS_LOG_ERR("RbtSetCmp tree not empty.");
        return ZFAILED;
    }
    tree->pfnCmp = pfnCmp != &Zos_RbtKeyCmp ? pfnCmp : nullptr;
    return ZOK;
}

KESTRO_API uint32_t Zos_RbtAdd(ZRBT zTree, uintptr_t zKey, uintptr_t zValue) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtInsert invalid id.");
        return ZFAILED;
    }
    if (tree->pstRoot == nullptr) {
        Node *root = NewNode(tree);
        if (root == nullptr) {
            ZOS_LOG_ERR("RbtInsert create root.");
            return ZFAILED;
        }
        root->uiColour = kBlack;
        root->zKey = zKey;
        root->zValue = zValue;
        tree->pstRoot = root;
        tree->uiSize = 1;
        return ZOK;
    }
    bool left = false;
    Node *found = nullptr;
    Node *parent = tree->pfnCmp == nullptr
                       ? PlaceWith(tree->pstRoot, zKey, DefaultOrder{}, &left, &found)
                       : PlaceWith(tree->pstRoot, zKey, CallerOrder{tree->pfnCmp}, &left, &found);
    if (found != nullptr) {
        (void)Zos_LogDbg(Zos_LogGetZosId(), "RbtInsert key %zu exist.", LogKey(zKey));
        return ZFAILED;
    }
    Node *node = NewNode(tree);
    if (node == nullptr) {
        ZOS_LOG_ERR("RbtInsert create new node.");
        return ZFAILED;
    }
    node->uiColour = kRed;
    node->zKey = zKey;
    node->zValue = zValue;
    node->pstParent = parent;
    Kid(parent, left ? kLeft : kRight) = node;
    tree->uiSize++;
    if (!InsertFixup(tree, node)) {
        ZOS_LOG_ERR("RbtInsert fixup failed.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_RbtMap(ZRBT zTree, uintptr_t zKey, uintptr_t zValue) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtMap invalid id.");
        return ZFAILED;
    }
    Node *node = FindNode(tree, zKey);
    if (node == nullptr) {
        ZOS_LOG_ERR("RbtMap no key %zu.", LogKey(zKey));
        return ZFAILED;
    }
    node->zValue = zValue;
    return ZOK;
}

KESTRO_API uint32_t Zos_RbtRmv(ZRBT zTree, uintptr_t zKey) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtRemove invalid id.");
        return ZFAILED;
    }
    Node *node = FindNode(tree, zKey);
    if (node == nullptr) return ZFAILED;
    RemoveAt(tree, node);
    return ZOK;
}

KESTRO_API ZRBTNODE Zos_RbtFind(ZRBT zTree, uintptr_t zKey) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtFind invalid id.");
        return nullptr;
    }
    return FindNode(tree, zKey);
}

KESTRO_API uintptr_t Zos_RbtGetKey(ZRBTNODE zNode) {
    return zNode != nullptr ? static_cast<Node *>(zNode)->zKey : 0;
}

KESTRO_API uintptr_t Zos_RbtGetValue(ZRBTNODE zNode) {
    return zNode != nullptr ? static_cast<Node *>(zNode)->zValue : 0;
}

KESTRO_API uint32_t Zos_RbtSize(ZRBT zTree) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtSize invalid id.");
        return 0;
    }
    return tree->uiSize;
}

KESTRO_API uint32_t Zos_RbtDepth(ZRBT zTree) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtDepth invalid id.");
        return 0;
    }
    return Height(tree->pstRoot);
}

KESTRO_API ZRBTNODE Zos_RbtMin(ZRBT zTree) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtMin invalid id.");
        return nullptr;
    }
    return tree->pstRoot != nullptr ? Leftmost(tree->pstRoot) : nullptr;
}

KESTRO_API ZRBTNODE Zos_RbtMax(ZRBT zTree) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtMax invalid id.");
        return nullptr;
    }
    return tree->pstRoot != nullptr ? Rightmost(tree->pstRoot) : nullptr;
}

KESTRO_API ZRBTNODE Zos_RbtHead(ZRBT zTree, uint32_t uiOrder) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtHead invalid id.");
        return nullptr;
    }
    if (tree->pstRoot == nullptr) return nullptr;
    switch (uiOrder) {
        case ZOS_RBT_PREORDER:
            return tree->pstRoot;
        case ZOS_RBT_INORDER:
        case ZOS_RBT_POSTORDER:
            return Leftmost(tree->pstRoot);
        default:
            return nullptr;
    }
}

KESTRO_API ZRBTNODE Zos_RbtTail(ZRBT zTree, uint32_t uiOrder) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtTail invalid id.");
        return nullptr;
    }
    if (tree->pstRoot == nullptr) return nullptr;
    switch (uiOrder) {
        case ZOS_RBT_PREORDER:
        case ZOS_RBT_INORDER:
            return Rightmost(tree->pstRoot);
        case ZOS_RBT_POSTORDER:
            return tree->pstRoot;
        default:
            return nullptr;
    }
}

KESTRO_API ZRBTNODE Zos_RbtNext(ZRBT zTree, ZRBTNODE zNode, uint32_t uiOrder) {
    if (Valid(zTree) == nullptr) {
        ZOS_LOG_ERR("RbtNext invalid id.");
        return nullptr;
    }
    Node *node = static_cast<Node *>(zNode);
    if (node == nullptr) return nullptr;
    switch (uiOrder) {
        case ZOS_RBT_PREORDER:
            return PreNext(node);
        case ZOS_RBT_INORDER:
            return InNext(node);
        case ZOS_RBT_POSTORDER:
            return PostNext(node);
        default:
            return nullptr;
    }
}

KESTRO_API ZRBTNODE Zos_RbtPrev(ZRBT zTree, ZRBTNODE zNode, uint32_t uiOrder) {
    if (Valid(zTree) == nullptr) {
        ZOS_LOG_ERR("RbtPrev invalid id.");
        return nullptr;
    }
    Node *node = static_cast<Node *>(zNode);
    if (node == nullptr) return nullptr;
    switch (uiOrder) {
        case ZOS_RBT_PREORDER:
            return PrePrev(node);
        case ZOS_RBT_INORDER:
            return InPrev(node);
        case ZOS_RBT_POSTORDER:
            return PostPrev(node);
        default:
            return nullptr;
    }
}

KESTRO_API uint32_t Zos_RbtChk(ZRBT zTree) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtChk invalid id.");
        return ZFAILED;
    }
    if (tree->pstRoot == nullptr) {
        ZOS_LOG_WARN("RbtChk no root.");
        return ZOK;
    }
    if (tree->pstRoot->uiColour != kBlack) {
        ZOS_LOG_ERR("RbtChk root is not black.");
        return ZFAILED;
    }
    int32_t first = 0;
    for (Node *node = tree->pstRoot; node != nullptr; node = PreNext(node)) {
        if (node->pstLeft == nullptr || node->pstRight == nullptr) {
            const int32_t count = BlackToRoot(node);
            if (first == 0) first = count;
            if (count != first) {
                ZOS_LOG_ERR("RbtChk %zu black count %d %d.", LogKey(node->zKey), count, first);
                return ZFAILED;
            }
        }
        if (node->uiColour == kRed) {
            if (IsRed(node->pstLeft)) {
                ZOS_LOG_ERR("RbtChk %zu left is red.", LogKey(node->zKey));
                return ZFAILED;
            }
            if (IsRed(node->pstRight)) {
                ZOS_LOG_ERR("RbtChk %zu righ is red.", LogKey(node->zKey));
                return ZFAILED;
            }
        }
    }
    return ZOK;
}

KESTRO_API ZDBUF Zos_RbtPrint(ZRBT zTree, ZDBUF zDbuf, uint32_t uiStyle) {
    Tree *tree = Valid(zTree);
    if (tree == nullptr) {
        ZOS_LOG_ERR("RbtPrint invalid id.");
        return nullptr;
    }
    ZDBUF out = zDbuf;
    if (out == nullptr) {
        out = Zos_DbufCreate(nullptr, kPrintBufType, kPrintBufSize);
        if (out == nullptr) return nullptr;
    }
    const bool ok = uiStyle == ZOS_RBT_PRINT_COMPACT ? PrintCompact(out, tree->pstRoot)
                                                     : PrintLines(out, tree->pstRoot, 0);
    if (!ok) {
        if (zDbuf == nullptr) Zos_DbufDelete(out);
        return nullptr;
    }
    return out;
}

KESTRO_API uint32_t Zos_RbtKey2Str(uintptr_t zKey, uint32_t uiColour, char *pcText) {
    if (pcText == nullptr) return ZFAILED;
    Zos_SNPrintf(pcText, ZOS_RBT_KEY_STR_SIZE, "%lu%s", KeyWord(zKey),
                 uiColour == kBlack ? "B" : "R");
    return ZOK;
}

}  // extern "C"
