/*
 * HTTP client bridge: the layer keeps a table of open connections, named by
 * small integer ids (1 and up), and forwards every operation to the
 * platform table's HTTP slots (107 open, 108 close, 109 connect,
 * 110 disconnect, 111 set property, 112 set configuration, 113 set body,
 * 114 set file, 115 get body). The standard platform fill leaves those
 * slots empty, so every operation then fails with its "no function" line;
 * Zpand_HttpOsdepInstall puts the Java bridge's functions there.
 *
 * One recursive mutex guards the table and every forwarded call, so at
 * most one platform HTTP operation runs at a time. Status changes come
 * back through Zos_HttpNotifyStatus and are published to the modules as
 * the event named kZosHttpNotifyStatusEvnt with the format "%d %d"
 * (connection id, status).
 *
 * Close every connection before shut-down: Zos_HttpDestroy keeps handing
 * the first connection of the table to the platform's close until the
 * table is empty, and the platform's close does not take it out of the
 * table, so a connection left open keeps shut-down from finishing.
 */
#ifndef ZOS_HTTP_H
#define ZOS_HTTP_H

#include "zos_dbuf.h"
#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Name of the status event ("kZosHttpNotifyStatusEvnt"). */
KESTRO_API extern const char *const kZosHttpNotifyStatusEvnt;

/* Start-up and shut-down of the bridge: 0 / 1. */
KESTRO_API uint32_t Zos_HttpInit(void);
KESTRO_API void Zos_HttpDestroy(void);

/* Opens a connection to the URL: its id, or -1. The two options are
 * passed on to the platform, which only looks at whether each is null. */
KESTRO_API int32_t Zos_HttpOpen(const char *pcUrl, const void *pOption1, const void *pOption2);
/* Takes the connection out of the table and closes it. */
KESTRO_API void Zos_HttpClose(int32_t iId);

/* Forwarded operations: the platform's result (0 / 1), or 1 when the slot
 * is empty, the bridge is stopped or the id is not open. */
KESTRO_API uint32_t Zos_HttpConn(int32_t iId);
KESTRO_API uint32_t Zos_HttpDisconn(int32_t iId);
KESTRO_API uint32_t Zos_HttpSetProp(int32_t iId, const char *pcName, const char *pcValue);
KESTRO_API uint32_t Zos_HttpSetCfg(int32_t iId, const char *pcName, const char *pcValue);
KESTRO_API uint32_t Zos_HttpSetBody(int32_t iId, const char *pcText1, const char *pcText2);
KESTRO_API uint32_t Zos_HttpSetFile(int32_t iId, const char *pcText1, const char *pcText2);

/* The response body in a new data buffer of one block: the text followed
 * by one zero byte (the buffer's length counts it). The caller deletes it.
 * Null when there is no body or no connection. */
KESTRO_API ZDBUF Zos_HttpGetBody(int32_t iId);

/* The platform object of a connection with the bridge's mutex held, and
 * the environment in *ppEnv (when not null) for the matching
 * Zos_HttpRelease; null (nothing held) for an unknown id or a stopped
 * bridge. Use the object only between the two calls. */
KESTRO_API void *Zos_HttpRetain(void **ppEnv, int32_t iId);
KESTRO_API void Zos_HttpRelease(void *pEnv);

/* A status from the platform: logged and published for an open id,
 * logged only for another. */
KESTRO_API void Zos_HttpNotifyStatus(int32_t iId, int32_t iStatus);

ZOS_END_DECLS

#endif /* ZOS_HTTP_H */
