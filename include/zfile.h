/*
 * File module: files and directories through the platform table, and a
 * safe save that never leaves a half-written file behind.
 *
 * Every function returns ZOK (0) or ZFAILED (1) unless stated otherwise.
 * An empty platform slot, a null path, handle or buffer fails with 1 and
 * touches nothing. Failures write one error line to the system log.
 * Handles are opaque words; 0 is "no file" / "no directory". Paths are
 * NUL-terminated and passed to the platform as they are.
 */
#ifndef ZFILE_H
#define ZFILE_H

#include "zos_type.h"
#include "zpand.h"

ZOS_BEGIN_DECLS

typedef uintptr_t ZFILE; /* open file */
typedef uintptr_t ZDIR;  /* open directory */

/* Seek origins of Zfile_Seek. */
#define ZFILE_SEEK_SET 0u
#define ZFILE_SEEK_CUR 1u
#define ZFILE_SEEK_END 2u

/* Longest path the safe save accepts (its temporary name adds ".tmp"). */
#define ZFILE_PATH_MAX 1024u

/* Opens a file. The mode is a C-library mode text: "rb" read, "wb" create
 * or truncate, "ab" append, "r+b" update. *pzFile is set to 0 first and
 * to the handle on success. */
KESTRO_API uint32_t Zfile_Open(const char *pcPath, const char *pcMode, ZFILE *pzFile);
/* Closes the file; buffered data is handed to the system first. */
KESTRO_API uint32_t Zfile_Close(ZFILE zFile);
/* Reads up to uiSize bytes. *puiRead (optional) receives the count; a
 * short count at end of file is a success, a read error is a failure. */
KESTRO_API uint32_t Zfile_Read(ZFILE zFile, void *pBuf, uint32_t uiSize, uint32_t *puiRead);
/* Writes all uiSize bytes or fails (a short write is a failure). Writing
 * 0 bytes succeeds. */
KESTRO_API uint32_t Zfile_Write(ZFILE zFile, const void *pBuf, uint32_t uiSize);
/* Hands buffered data to the system and asks it to put it on disk. */
KESTRO_API uint32_t Zfile_Flush(ZFILE zFile);
/* Reads one line with its line end into pcBuf (at most uiSize - 1
 * characters and a NUL; a longer line comes in pieces). Fails at end of
 * file. */
KESTRO_API uint32_t Zfile_Gets(ZFILE zFile, char *pcBuf, uint32_t uiSize);
/* Moves the position: origin ZFILE_SEEK_SET, _CUR or _END. */
KESTRO_API uint32_t Zfile_Seek(ZFILE zFile, int64_t llOffset, uint32_t uiWhence);
/* The current position in *pllPos. */
KESTRO_API uint32_t Zfile_Tell(ZFILE zFile, int64_t *pllPos);
/* Predicate: 1 once a read has hit the end of the file (or for a null
 * handle), else 0. */
KESTRO_API uint32_t Zfile_Eof(ZFILE zFile);

/* Size in bytes of the file at a path; *pullSize is 0 on failure. */
KESTRO_API uint32_t Zfile_Size(const char *pcPath, uint64_t *pullSize);
/* Size, modification time and kind of a path. */
KESTRO_API uint32_t Zfile_Stat(const char *pcPath, ST_ZOS_FILE_STAT *pstStat);
/* Predicates: 1 when the path exists (as anything) / is a directory.
 * Quiet: a missing path is an answer, not a failure, and is not logged. */
KESTRO_API uint32_t Zfile_IsExist(const char *pcPath);
KESTRO_API uint32_t Zfile_IsDir(const char *pcPath);
/* Removes a file. */
KESTRO_API uint32_t Zfile_Remove(const char *pcPath);
/* Renames a file, replacing the target when it exists (atomically on the
 * platforms this layer runs on). */
KESTRO_API uint32_t Zfile_Rename(const char *pcFrom, const char *pcTo);

/* Directories. Zfile_DirRead gives the next entry name ("." and ".." are
 * skipped; a name that does not fit uiSize is skipped too) and fails when
 * there are no more. Zfile_DirRemove removes an empty directory. */
KESTRO_API uint32_t Zfile_DirOpen(const char *pcPath, ZDIR *pzDir);
KESTRO_API uint32_t Zfile_DirRead(ZDIR zDir, char *pcName, uint32_t uiSize);
KESTRO_API uint32_t Zfile_DirClose(ZDIR zDir);
KESTRO_API uint32_t Zfile_DirMake(const char *pcPath);
KESTRO_API uint32_t Zfile_DirRemove(const char *pcPath);

/*
 * Safe save. The new content is written to a temporary file beside the
 * target (the target's path + ".tmp"), put on disk, closed, and only then
 * renamed over the target. A crash or failure at any point leaves either
 * the complete old file or the complete new one, never a mixture; what
 * may remain is the temporary file, which Zfile_SaveRecover removes.
 *
 * Zfile_SaveBegin opens the temporary file for writing (truncating a
 * leftover one) and gives its handle; write it with Zfile_Write, then
 * either Zfile_SaveCommit (flush, close, rename; on any failure the
 * temporary file is removed and the target left as it was) or
 * Zfile_SaveAbort (close and remove the temporary file). Paths of
 * more than ZFILE_PATH_MAX - 5 characters are refused.
 */
KESTRO_API uint32_t Zfile_SaveBegin(const char *pcPath, ZFILE *pzFile);
KESTRO_API uint32_t Zfile_SaveCommit(const char *pcPath, ZFILE zFile);
KESTRO_API uint32_t Zfile_SaveAbort(const char *pcPath, ZFILE zFile);
/* The three steps for one block of data (uiLen may be 0: an empty file). */
KESTRO_API uint32_t Zfile_SaveSafe(const char *pcPath, const void *pData, uint32_t uiLen);
/* Removes a temporary file left by an interrupted save of pcPath; the
 * target keeps its last committed content. 0 also when there was none. */
KESTRO_API uint32_t Zfile_SaveRecover(const char *pcPath);

ZOS_END_DECLS

#endif /* ZFILE_H */
