/*
 * Red-black tree: an ordered map from unique pointer-sized keys to
 * pointer-sized values.
 *
 * The tree record is the first allocation of the tree's own arena and
 * every node comes from that arena, so deleting the tree is one arena
 * release. Node handles returned by find and the traversal functions stay
 * valid until the node's entry is removed; removing another key may move
 * that key's entry into the node, so re-read the key after a removal. The
 * tree takes no lock: it belongs to one task or is locked by its user.
 */
#ifndef ZOS_RBT_H
#define ZOS_RBT_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZRBT;     /* tree handle */
typedef void *ZRBTNODE; /* node handle */

/* Traversal orders. */
#define ZOS_RBT_PREORDER 0u  /* node, left, right */
#define ZOS_RBT_INORDER 1u   /* ascending keys */
#define ZOS_RBT_POSTORDER 2u /* left, right, node */

/* Node colours, as Zos_RbtKey2Str takes them. */
#define ZOS_RBT_RED 0u
#define ZOS_RBT_BLACK 1u

/* Print styles. */
#define ZOS_RBT_PRINT_COMPACT 0u /* 0x8B{0x3R,#} on one line */
#define ZOS_RBT_PRINT_LINES 1u   /* one node per line, indented by depth */

/* Room Zos_RbtKey2Str needs: the longest key in decimal, colour, NUL. */
#define ZOS_RBT_KEY_STR_SIZE 24u

/* Key order: negative, 0 or positive as key a sorts before, equal to or
 * after key b. */
typedef int32_t (*PFN_ZOS_RBTCMP)(uintptr_t zKeyA, uintptr_t zKeyB);

/* The default order: unsigned comparison, -1, 0 or 1. */
KESTRO_API int32_t Zos_RbtKeyCmp(uintptr_t zKeyA, uintptr_t zKeyB);

/* A new empty tree whose arena is a child of zParent (standalone when
 * null), or null. */
KESTRO_API ZRBT Zos_RbtCreate(ZCBUF zParent);
/* Invalidates the handle and releases the arena with every node. */
KESTRO_API void Zos_RbtDelete(ZRBT zTree);
/* Replaces the key order (null: the default); only while the tree is
 * empty, since the nodes are placed by it: 0 / 1. */
KESTRO_API uint32_t Zos_RbtSetCmp(ZRBT zTree, PFN_ZOS_RBTCMP pfnCmp);

/* Adds a new key: 1 when it exists already (its value is kept). */
KESTRO_API uint32_t Zos_RbtAdd(ZRBT zTree, uintptr_t zKey, uintptr_t zValue);
/* Replaces the value of an existing key: 1 when the key is absent. */
KESTRO_API uint32_t Zos_RbtMap(ZRBT zTree, uintptr_t zKey, uintptr_t zValue);
/* Removes a key: 1 (without a log line) when it is absent. */
KESTRO_API uint32_t Zos_RbtRmv(ZRBT zTree, uintptr_t zKey);
KESTRO_API ZRBTNODE Zos_RbtFind(ZRBT zTree, uintptr_t zKey);

/* Key and value of a node; 0 for a null node. */
KESTRO_API uintptr_t Zos_RbtGetKey(ZRBTNODE zNode);
KESTRO_API uintptr_t Zos_RbtGetValue(ZRBTNODE zNode);

/* Number of nodes; height (1 for a lone root, 0 when empty). */
KESTRO_API uint32_t Zos_RbtSize(ZRBT zTree);
KESTRO_API uint32_t Zos_RbtDepth(ZRBT zTree);
KESTRO_API ZRBTNODE Zos_RbtMin(ZRBT zTree);
KESTRO_API ZRBTNODE Zos_RbtMax(ZRBT zTree);

/* Traversal. Head: pre-order the root, in-order and post-order the
 * minimum. Tail: pre-order and in-order the maximum, post-order the root.
 * (So a post-order walk from the head and a pre-order walk back from the
 * tail skip a red leaf below the minimum or maximum.) Next and prev give
 * the neighbour in the order, or null; unknown orders give null. */
KESTRO_API ZRBTNODE Zos_RbtHead(ZRBT zTree, uint32_t uiOrder);
KESTRO_API ZRBTNODE Zos_RbtTail(ZRBT zTree, uint32_t uiOrder);
KESTRO_API ZRBTNODE Zos_RbtNext(ZRBT zTree, ZRBTNODE zNode, uint32_t uiOrder);
KESTRO_API ZRBTNODE Zos_RbtPrev(ZRBT zTree, ZRBTNODE zNode, uint32_t uiOrder);

/* Checks the colour rules (black root, no red node with a red child, the
 * same number of black nodes on every path): 0 if they hold, else 1 with
 * a log line naming the first fault. An empty tree passes. */
KESTRO_API uint32_t Zos_RbtChk(ZRBT zTree);
/* Writes the tree into zDbuf, or into a new type 1 data buffer of size
 * 512 when zDbuf is null, and returns that buffer (null on failure; a
 * buffer made here is then released). Nodes print as "0x%x" of the key
 * and "B" or "R"; "#" stands for a missing child. */
KESTRO_API ZDBUF Zos_RbtPrint(ZRBT zTree, ZDBUF zDbuf, uint32_t uiStyle);
/* Writes the key in decimal and "B" (colour 1) or "R" into pcText, which
 * holds ZOS_RBT_KEY_STR_SIZE bytes: 0, or 1 for a null pcText. */
KESTRO_API uint32_t Zos_RbtKey2Str(uintptr_t zKey, uint32_t uiColour, char *pcText);

ZOS_END_DECLS

#endif /* ZOS_RBT_H */
