// File module: files and directories over the platform table's file slots
// (13 to 31), and the safe save (temporary file, disk flush, rename).
#include <cstring>

#include "zfile.h"
#include "zos_osdep.h"
#include "zos_util.h"

namespace {

constexpr char kTmpSuffix[] = ".tmp";

// The temporary name of a safe save; false when the path is null or too
// long for the buffer.
bool TmpName(const char *path, char (&out)[ZFILE_PATH_MAX]) {
    if (path == nullptr || path[0] == '\0') return false;
    const size_t len = strnlen(path, ZFILE_PATH_MAX);
    if (len + sizeof(kTmpSuffix) > ZFILE_PATH_MAX) return false;
    std::memcpy(out, path, len);
    std::memcpy(out + len, kTmpSuffix, sizeof(kTmpSuffix));
    return true;
}

// Removes a file without logging: used to clean up, where a missing file
// is the expected case.
void RemoveQuiet(const char *path) {
    auto remove = zos::Osdep<zos::kSlotFileRemove>();
    if (remove != nullptr) remove(path);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zfile_Open(const char *pcPath, const char *pcMode, ZFILE *pzFile) {
    if (pzFile != nullptr) *pzFile = 0;
    auto open = zos::Osdep<zos::kSlotFileOpen>();
    if (pcPath == nullptr || pcMode == nullptr || pzFile == nullptr || open == nullptr) {
        ZOS_LOG_ERR("FileOpen null parameter(s).");
        return ZFAILED;
    }
    uintptr_t file = 0;
    if (open(pcPath, pcMode, &file) != ZOK || file == 0) {
        ZOS_LOG_ERR("FileOpen open <%s> mode <%s> failed.", pcPath, pcMode);
        return ZFAILED;
    }
    *pzFile = file;
    return ZOK;
}

KESTRO_API uint32_t Zfile_Close(ZFILE zFile) {
    auto close = zos::Osdep<zos::kSlotFileClose>();
    if (zFile == 0 || close == nullptr) {
        ZOS_LOG_ERR("FileClose invalid id.");
        return ZFAILED;
    }
    if (close(zFile) != ZOK) {
        ZOS_LOG_ERR("FileClose close failed.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_Read(ZFILE zFile, void *pBuf, uint32_t uiSize, uint32_t *puiRead) {
    if (puiRead != nullptr) *puiRead = 0;
    auto read = zos::Osdep<zos::kSlotFileRead>();
    if (zFile == 0 || (pBuf == nullptr && uiSize != 0) || read == nullptr) {
        ZOS_LOG_ERR("FileRead null parameter(s).");
        return ZFAILED;
    }
    uint32_t got = 0;
    if (read(zFile, pBuf, uiSize, &got) != ZOK) {
        ZOS_LOG_ERR("FileRead read failed.");
        return ZFAILED;
    }
    if (puiRead != nullptr) *puiRead = got;
    return ZOK;
}

KESTRO_API uint32_t Zfile_Write(ZFILE zFile, const void *pBuf, uint32_t uiSize) {
    auto write = zos::Osdep<zos::kSlotFileWrite>();
    if (zFile == 0 || (pBuf == nullptr && uiSize != 0) || write == nullptr) {
        ZOS_LOG_ERR("FileWrite null parameter(s).");
        return ZFAILED;
    }
    if (uiSize == 0) return ZOK;
    uint32_t done = 0;
    if (write(zFile, pBuf, uiSize, &done) != ZOK || done != uiSize) {
        ZOS_LOG_ERR("FileWrite write %u of %u bytes.", done, uiSize);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_Flush(ZFILE zFile) {
    auto flush = zos::Osdep<zos::kSlotFileFlush>();
    if (zFile == 0 || flush == nullptr) {
        ZOS_LOG_ERR("FileFlush invalid id.");
        return ZFAILED;
    }
    if (flush(zFile) != ZOK) {
        ZOS_LOG_ERR("FileFlush flush failed.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_Gets(ZFILE zFile, char *pcBuf, uint32_t uiSize) {
    auto gets = zos::Osdep<zos::kSlotFileGets>();
    if (zFile == 0 || pcBuf == nullptr || uiSize == 0 || gets == nullptr) {
        ZOS_LOG_ERR("FileGets null parameter(s).");
        return ZFAILED;
    }
    // The end of the file is the normal way out of a line loop: not logged.
    return gets(zFile, pcBuf, uiSize) == ZOK ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zfile_Seek(ZFILE zFile, int64_t llOffset, uint32_t uiWhence) {
    auto seek = zos::Osdep<zos::kSlotFileSeek>();
    if (zFile == 0 || seek == nullptr || uiWhence > ZFILE_SEEK_END) {
        ZOS_LOG_ERR("FileSeek invalid parameter(s).");
        return ZFAILED;
    }
    if (seek(zFile, llOffset, uiWhence) != ZOK) {
        ZOS_LOG_ERR("FileSeek seek failed.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_Tell(ZFILE zFile, int64_t *pllPos) {
    auto tell = zos::Osdep<zos::kSlotFileTell>();
    if (zFile == 0 || pllPos == nullptr || tell == nullptr) {
        ZOS_LOG_ERR("FileTell null parameter(s).");
        return ZFAILED;
    }
    if (tell(zFile, pllPos) != ZOK) {
        ZOS_LOG_ERR("FileTell tell failed.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_Eof(ZFILE zFile) {
    auto eof = zos::Osdep<zos::kSlotFileEof>();
    if (zFile == 0 || eof == nullptr) return 1;
    return eof(zFile) != 0 ? 1u : 0u;
}

KESTRO_API uint32_t Zfile_Size(const char *pcPath, uint64_t *pullSize) {
    if (pullSize != nullptr) *pullSize = 0;
    auto size = zos::Osdep<zos::kSlotFileSize>();
    if (pcPath == nullptr || pullSize == nullptr || size == nullptr) {
        ZOS_LOG_ERR("FileSize null parameter(s).");
        return ZFAILED;
    }
    if (size(pcPath, pullSize) != ZOK) {
        ZOS_LOG_ERR("FileSize <%s> failed.", pcPath);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_Stat(const char *pcPath, ST_ZOS_FILE_STAT *pstStat) {
    auto stat = zos::Osdep<zos::kSlotFileStat>();
    if (pcPath == nullptr || pstStat == nullptr || stat == nullptr) {
        ZOS_LOG_ERR("FileStat null parameter(s).");
        return ZFAILED;
    }
    if (stat(pcPath, pstStat) != ZOK) {
        ZOS_LOG_ERR("FileStat <%s> failed.", pcPath);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_IsExist(const char *pcPath) {
    auto stat = zos::Osdep<zos::kSlotFileStat>();
    ST_ZOS_FILE_STAT st{};
    return pcPath != nullptr && stat != nullptr && stat(pcPath, &st) == ZOK ? 1u : 0u;
}

KESTRO_API uint32_t Zfile_IsDir(const char *pcPath) {
    auto stat = zos::Osdep<zos::kSlotFileStat>();
    ST_ZOS_FILE_STAT st{};
    return pcPath != nullptr && stat != nullptr && stat(pcPath, &st) == ZOK && st.ucIsDir != 0 ? 1u
                                                                                               : 0u;
}

KESTRO_API uint32_t Zfile_Remove(const char *pcPath) {
    auto remove = zos::Osdep<zos::kSlotFileRemove>();
    if (pcPath == nullptr || remove == nullptr) {
        ZOS_LOG_ERR("FileRemove null parameter(s).");
        return ZFAILED;
    }
    if (remove(pcPath) != ZOK) {
        ZOS_LOG_ERR("FileRemove <%s> failed.", pcPath);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_Rename(const char *pcFrom, const char *pcTo) {
    auto rename = zos::Osdep<zos::kSlotFileRename>();
    if (pcFrom == nullptr || pcTo == nullptr || rename == nullptr) {
        ZOS_LOG_ERR("FileRename null parameter(s).");
        return ZFAILED;
    }
    if (rename(pcFrom, pcTo) != ZOK) {
        ZOS_LOG_ERR("FileRename <%s> to <%s> failed.", pcFrom, pcTo);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_DirOpen(const char *pcPath, ZDIR *pzDir) {
    if (pzDir != nullptr) *pzDir = 0;
    auto open = zos::Osdep<zos::kSlotDirOpen>();
    if (pcPath == nullptr || pzDir == nullptr || open == nullptr) {
        ZOS_LOG_ERR("DirOpen null parameter(s).");
        return ZFAILED;
    }
    uintptr_t dir = 0;
    if (open(pcPath, &dir) != ZOK || dir == 0) {
        ZOS_LOG_ERR("DirOpen open <%s> failed.", pcPath);
        return ZFAILED;
    }
    *pzDir = dir;
    return ZOK;
}

KESTRO_API uint32_t Zfile_DirRead(ZDIR zDir, char *pcName, uint32_t uiSize) {
    auto read = zos::Osdep<zos::kSlotDirRead>();
    if (zDir == 0 || pcName == nullptr || uiSize == 0 || read == nullptr) {
        ZOS_LOG_ERR("DirRead null parameter(s).");
        return ZFAILED;
    }
    // No more entries ends every directory walk: not logged.
    return read(zDir, pcName, uiSize) == ZOK ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zfile_DirClose(ZDIR zDir) {
    auto close = zos::Osdep<zos::kSlotDirClose>();
    if (zDir == 0 || close == nullptr) {
        ZOS_LOG_ERR("DirClose invalid id.");
        return ZFAILED;
    }
    return close(zDir) == ZOK ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zfile_DirMake(const char *pcPath) {
    auto make = zos::Osdep<zos::kSlotDirMake>();
    if (pcPath == nullptr || make == nullptr) {
        ZOS_LOG_ERR("DirMake null parameter(s).");
        return ZFAILED;
    }
    if (make(pcPath) != ZOK) {
        ZOS_LOG_ERR("DirMake <%s> failed.", pcPath);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_DirRemove(const char *pcPath) {
    auto remove = zos::Osdep<zos::kSlotDirRemove>();
    if (pcPath == nullptr || remove == nullptr) {
        ZOS_LOG_ERR("DirRemove null parameter(s).");
        return ZFAILED;
    }
    if (remove(pcPath) != ZOK) {
        ZOS_LOG_ERR("DirRemove <%s> failed.", pcPath);
        return ZFAILED;
    }
    return ZOK;
}

// ---------------------------------------------------------------------
// Safe save

KESTRO_API uint32_t Zfile_SaveBegin(const char *pcPath, ZFILE *pzFile) {
    if (pzFile != nullptr) *pzFile = 0;
    char tmp[ZFILE_PATH_MAX];
    if (pzFile == nullptr || !TmpName(pcPath, tmp)) {
        ZOS_LOG_ERR("FileSaveBegin invalid path.");
        return ZFAILED;
    }
    return Zfile_Open(tmp, "wb", pzFile);
}

KESTRO_API uint32_t Zfile_SaveCommit(const char *pcPath, ZFILE zFile) {
    char tmp[ZFILE_PATH_MAX];
    if (zFile == 0 || !TmpName(pcPath, tmp)) {
        ZOS_LOG_ERR("FileSaveCommit invalid parameter(s).");
        if (zFile != 0) Zfile_Close(zFile);
        return ZFAILED;
    }
    // The data must be on disk before the rename makes it the target:
    // otherwise a crash could leave a complete name over incomplete data.
    const bool flushed = Zfile_Flush(zFile) == ZOK;
    const bool closed = Zfile_Close(zFile) == ZOK;
    if (!flushed || !closed || Zfile_Rename(tmp, pcPath) != ZOK) {
        ZOS_LOG_ERR("FileSaveCommit <%s> not saved.", pcPath);
        RemoveQuiet(tmp);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zfile_SaveAbort(const char *pcPath, ZFILE zFile) {
    char tmp[ZFILE_PATH_MAX];
    if (zFile != 0) Zfile_Close(zFile);
    if (!TmpName(pcPath, tmp)) return ZFAILED;
    RemoveQuiet(tmp);
    return ZOK;
}

KESTRO_API uint32_t Zfile_SaveSafe(const char *pcPath, const void *pData, uint32_t uiLen) {
    if (pData == nullptr && uiLen != 0) {
        ZOS_LOG_ERR("FileSaveSafe null data.");
        return ZFAILED;
    }
    ZFILE file = 0;
    if (Zfile_SaveBegin(pcPath, &file) != ZOK) return ZFAILED;
    if (Zfile_Write(file, pData, uiLen) != ZOK) {
        Zfile_SaveAbort(pcPath, file);
        return ZFAILED;
    }
    return Zfile_SaveCommit(pcPath, file);
}

KESTRO_API uint32_t Zfile_SaveRecover(const char *pcPath) {
    char tmp[ZFILE_PATH_MAX];
    if (!TmpName(pcPath, tmp)) return ZFAILED;
    if (Zfile_IsExist(tmp) != 0 && Zfile_Remove(tmp) != ZOK) return ZFAILED;
    return ZOK;
}

}  // extern "C"
