/*
 * Messages: the envelope in which an event (zos_evnt.h) travels from one
 * task to another. A message names its sender, its receiver and a type,
 * and carries an event that holds its object (element slot 9) and its data
 * (element slot 10: length, pointer). The record, the event and the data
 * live in one arena (zos_cbuf.h), so deleting the message frees them all.
 *
 * A message belongs to one thread at a time; posting hands it over. Every
 * call checks the handle (a deleted message is refused without reading its
 * memory). Constructors that fail after their arena exists free all they
 * made.
 */
#ifndef ZOS_MSG_H
#define ZOS_MSG_H

#include "zos_evnt.h"

ZOS_BEGIN_DECLS

/* Block sizes of a message's arena: Zos_MsgCreate / Zos_MsgCreateX, and
 * Zos_MsgCreateXD. */
#define ZOS_MSG_BLOCK_SIZE 32u
#define ZOS_MSG_BLOCK_SIZE_XD 256u

/* The carried event's slots of the object and the data. */
#define ZOS_MSG_ELEM_OBJECT 9u
#define ZOS_MSG_ELEM_DATA 10u

/* A message without event (made on first need); "MsgCreate alloc mem.". */
KESTRO_API ZMSG Zos_MsgCreate(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType);
/* As Zos_MsgCreate; a non-zero object makes the event and sets slot 9, then
 * the data is set as by Zos_MsgSetData. Failures: "MsgCreateX alloc mem.",
 * "MsgCreateX set object.", "MsgCreateX set data." (the message is freed). */
KESTRO_API ZMSG Zos_MsgCreateX(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                               uintptr_t zObject, const void *pData, uint32_t uiLen);
/* An arena of 256-byte blocks with the event made at once; zObject is the
 * object word as in the other constructors (slot 9 set when non-zero).
 * uiLen zeroed bytes are allocated as the data (slot 10) and their address
 * returned in *ppData (null first; with uiLen 0 no data is made) for the
 * caller to fill. Failures: "MsgCreateXD alloc mem.", "MsgCreateXD create
 * event.", "MsgCreateXD alloc data.". */
KESTRO_API ZMSG Zos_MsgCreateXD(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                                uintptr_t zObject, uint32_t uiLen, void **ppData);
/* A message built inside the event's arena, taking one new reference to
 * that arena; the event becomes the carried event and its message id
 * points at the message. The caller hands the event over: Zos_MsgDelete
 * drops the event's reference and the arena's. "MsgCreateE alloc mem.". */
KESTRO_API ZMSG Zos_MsgCreateE(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                               uint32_t uiType);
/* Zos_MsgCreateE plus object and data. Failures: "MsgCreateED alloc mem.",
 * "MsgCreateED set object.", "MsgCreateED set data."; the event is then
 * left to the caller as it was handed in (without the message). */
KESTRO_API ZMSG Zos_MsgCreateED(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                uint32_t uiType, uintptr_t zObject, const void *pData,
                                uint32_t uiLen);

/* Sets slot 9 (the event made if needed). 0 / 1. */
KESTRO_API uint32_t Zos_MsgSetObject(ZMSG zMsg, uintptr_t zObject);
/* Makes the event if needed; with data and a non-zero length the bytes are
 * copied into the message's arena ("MsgCreateX copy data." on failure),
 * otherwise the pointer is stored as given; then the length. 0 / 1. */
KESTRO_API uint32_t Zos_MsgSetData(ZMSG zMsg, const void *pData, uint32_t uiLen);
/* Clears the magic, drops the carried event (one reference) and the
 * arena. Null is ignored; a bad handle logs "MsgDelete invalid magic.". */
KESTRO_API void Zos_MsgDelete(ZMSG zMsg);

/* Posting, through the module manager (Zos_ModPostMsg, Zos_ModPostMsgX
 * with the priority): after a successful post the message belongs to the
 * receiver, which deletes it after handling; after a failed post the
 * sending function deletes it, so the caller never has to (a message sent
 * with an event takes the event with it). 0 / 1. "MsgSend invalid magic."
 * for a bad handle. */
KESTRO_API uint32_t Zos_MsgSend(ZMSG zMsg);
KESTRO_API uint32_t Zos_MsgSendP(ZMSG zMsg, uint32_t uiPriority);
/* Create as Zos_MsgCreateX and post; "MsgSendX create message.". */
KESTRO_API uint32_t Zos_MsgSendX(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                                 uintptr_t zObject, const void *pData, uint32_t uiLen);
KESTRO_API uint32_t Zos_MsgSendXP(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                                  uintptr_t zObject, const void *pData, uint32_t uiLen,
                                  uint32_t uiPriority);
/* Create as Zos_MsgCreateE and post; "MsgSendE create message.". */
KESTRO_API uint32_t Zos_MsgSendE(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                 uint32_t uiType);
KESTRO_API uint32_t Zos_MsgSendEP(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                  uint32_t uiType, uint32_t uiPriority);
/* Create as Zos_MsgCreateED and post. */
KESTRO_API uint32_t Zos_MsgSendED(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                  uint32_t uiType, uintptr_t zObject, const void *pData,
                                  uint32_t uiLen);
KESTRO_API uint32_t Zos_MsgSendEDP(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                   uint32_t uiType, uintptr_t zObject, const void *pData,
                                   uint32_t uiLen, uint32_t uiPriority);

/* 0xFFFFFFFF (-1) for null or a bad handle, with "MsgGetSendTaskId invalid
 * magic." / "MsgGetRecvTaskId invalid magic.". */
KESTRO_API uint32_t Zos_MsgGetSendTaskId(ZMSG zMsg);
KESTRO_API uint32_t Zos_MsgGetRecvTaskId(ZMSG zMsg);
/* 0 for null or a bad handle ("MsgGetType invalid magic."). */
KESTRO_API uint32_t Zos_MsgGetType(ZMSG zMsg);
/* From slots 9 and 10 of the carried event; 0 / null when absent (no event
 * is made for them). Bad handle: "MsgGetObject invalid magic." and the
 * like. */
KESTRO_API uintptr_t Zos_MsgGetObject(ZMSG zMsg);
KESTRO_API void *Zos_MsgGetData(ZMSG zMsg);
KESTRO_API uint32_t Zos_MsgGetDataLen(ZMSG zMsg);
/* The carried event, made on demand (null when that fails); "MsgGetEvntId
 * invalid magic." for a bad handle. The event stays the message's. */
KESTRO_API ZEVNT Zos_MsgGetEvntId(ZMSG zMsg);
/* The message's arena (no reference added). */
KESTRO_API ZCBUF Zos_MsgGetMemBuf(ZMSG zMsg);

ZOS_END_DECLS

#endif /* ZOS_MSG_H */
