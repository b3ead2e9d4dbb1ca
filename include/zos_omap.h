/*
 * Object map: hands out numeric ids from a range and maps each id in use
 * to an object, kept in a red-black tree ordered by id.
 *
 * Ids are allocated sequentially: each allocation takes the first id not
 * in use at or after the one following the previous allocation, wrapping
 * from the end of the range to its start, so a freed id comes back only
 * after the range has been gone through. An id can be reserved first and
 * given its object later (Zos_OmapAllocId, then Zos_OmapMap), or both in
 * one step (Zos_OmapAdd). The map takes no lock: its user locks around it.
 */
#ifndef ZOS_OMAP_H
#define ZOS_OMAP_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZOMAP; /* object map handle */

/* A map of the ids first .. first + range - 1, or null. The range must
 * not be empty and must end at or below 0xFFFFFFFE, so the id meaning
 * "none" (0xFFFFFFFF) is never handed out. */
KESTRO_API ZOMAP Zos_OmapCreate(uint32_t uiFirstId, uint32_t uiRange);
/* Releases the map; the objects are the caller's and are not touched. */
KESTRO_API void Zos_OmapDelete(ZOMAP zMap);

/* Reserves the next free id, without an object: 0 and the id, or 1 when
 * every id of the range is in use. */
KESTRO_API uint32_t Zos_OmapAllocId(ZOMAP zMap, uint32_t *puiId);
/* Returns an id in use, whether it carries an object or not: 0 / 1. */
KESTRO_API uint32_t Zos_OmapFreeId(ZOMAP zMap, uint32_t uiId);
/* Gives an id in use its object, replacing an earlier one: 0, or 1 for a
 * null object or an id not in use. */
KESTRO_API uint32_t Zos_OmapMap(ZOMAP zMap, uint32_t uiId, void *pObj);
/* Allocates an id and maps it to the object in one step: 0 / 1. */
KESTRO_API uint32_t Zos_OmapAdd(ZOMAP zMap, void *pObj, uint32_t *puiId);

/* The object of an id, or null (also for an id only reserved). */
KESTRO_API void *Zos_OmapFind(ZOMAP zMap, uint32_t uiId);
/* Takes an object out of the map and frees its id: the object, or null
 * when the id is not in use or carries no object (it then stays). */
KESTRO_API void *Zos_OmapRemove(ZOMAP zMap, uint32_t uiId);

/* Enumeration in ascending id order over every id in use (the object is
 * null for an id only reserved): the first entry, and the entry after an
 * id (which need not be in use any more, so the current entry may be
 * removed while enumerating). 0 and the id and object (either out
 * pointer may be null), or 1 at the end. */
KESTRO_API uint32_t Zos_OmapFirst(ZOMAP zMap, uint32_t *puiId, void **ppObj);
KESTRO_API uint32_t Zos_OmapNext(ZOMAP zMap, uint32_t uiId, uint32_t *puiNextId, void **ppObj);
/* Number of ids in use. */
KESTRO_API uint32_t Zos_OmapCount(ZOMAP zMap);

ZOS_END_DECLS

#endif /* ZOS_OMAP_H */
