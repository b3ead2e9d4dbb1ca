// Files and directories over stdio and POSIX.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "zpand.h"

namespace {

FILE *AsFile(uintptr_t z) {
    return reinterpret_cast<FILE *>(z);
}
DIR *AsDir(uintptr_t z) {
    return reinterpret_cast<DIR *>(z);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zpand_FileOpen(const char *pcPath, const char *pcMode, uintptr_t *pzFile) {
    if (pzFile == nullptr) return ZFAILED;
    *pzFile = 0;
    if (pcPath == nullptr || pcMode == nullptr) return ZFAILED;
    FILE *f = std::fopen(pcPath, pcMode);
    if (f == nullptr) return ZFAILED;
    *pzFile = reinterpret_cast<uintptr_t>(f);
    return ZOK;
}

KESTRO_API uint32_t Zpand_FileClose(uintptr_t zFile) {
    if (zFile == 0) return ZFAILED;
    return std::fclose(AsFile(zFile)) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileRemove(const char *pcPath) {
    if (pcPath == nullptr) return ZFAILED;
    return ::unlink(pcPath) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileRemoveX(const char *pcPath) {
    if (pcPath == nullptr) return ZFAILED;
    return std::remove(pcPath) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileRename(const char *pcFrom, const char *pcTo) {
    if (pcFrom == nullptr || pcTo == nullptr) return ZFAILED;
    return std::rename(pcFrom, pcTo) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileEof(uintptr_t zFile) {
    if (zFile == 0) return 1;
    return std::feof(AsFile(zFile)) != 0 ? 1u : 0u;
}

KESTRO_API uint32_t Zpand_FileRead(uintptr_t zFile, void *pBuf, uint32_t uiSize,
                                   uint32_t *puiRead) {
    if (puiRead != nullptr) *puiRead = 0;
    if (zFile == 0 || (pBuf == nullptr && uiSize != 0)) return ZFAILED;
    const size_t n = std::fread(pBuf, 1, uiSize, AsFile(zFile));
    if (puiRead != nullptr) *puiRead = static_cast<uint32_t>(n);
    return (n == uiSize || std::ferror(AsFile(zFile)) == 0) ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileWrite(uintptr_t zFile, const void *pBuf, uint32_t uiSize,
                                    uint32_t *puiWritten) {
    if (puiWritten != nullptr) *puiWritten = 0;
    if (zFile == 0 || (pBuf == nullptr && uiSize != 0)) return ZFAILED;
    const size_t n = std::fwrite(pBuf, 1, uiSize, AsFile(zFile));
    if (puiWritten != nullptr) *puiWritten = static_cast<uint32_t>(n);
    return n == uiSize ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileFlush(uintptr_t zFile) {
    if (zFile == 0) return ZFAILED;
    FILE *f = AsFile(zFile);
    if (std::fflush(f) != 0) return ZFAILED;
    return ::fsync(::fileno(f)) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileGets(uintptr_t zFile, char *pcBuf, uint32_t uiSize) {
    if (zFile == 0 || pcBuf == nullptr || uiSize == 0) return ZFAILED;
    const int size = uiSize > 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<int>(uiSize);
    return std::fgets(pcBuf, size, AsFile(zFile)) != nullptr ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileSeek(uintptr_t zFile, int64_t llOffset, uint32_t uiWhence) {
    if (zFile == 0) return ZFAILED;
    int whence = SEEK_SET;
    if (uiWhence == ZPAND_SEEK_CUR) {
        whence = SEEK_CUR;
    } else if (uiWhence == ZPAND_SEEK_END) {
        whence = SEEK_END;
    } else if (uiWhence != ZPAND_SEEK_SET) {
        return ZFAILED;
    }
    return ::fseeko(AsFile(zFile), static_cast<off_t>(llOffset), whence) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_FileTell(uintptr_t zFile, int64_t *pllPos) {
    if (zFile == 0 || pllPos == nullptr) return ZFAILED;
    const off_t pos = ::ftello(AsFile(zFile));
    if (pos < 0) return ZFAILED;
    *pllPos = static_cast<int64_t>(pos);
    return ZOK;
}

KESTRO_API uint32_t Zpand_FileStat(const char *pcPath, ST_ZOS_FILE_STAT *pstStat) {
    if (pcPath == nullptr || pstStat == nullptr) return ZFAILED;
    struct stat st {};
    if (::stat(pcPath, &st) != 0) return ZFAILED;
    std::memset(pstStat, 0, sizeof(*pstStat));
    pstStat->ullSize = static_cast<uint64_t>(st.st_size);
    pstStat->llMtime = static_cast<int64_t>(st.st_mtime);
    pstStat->ucIsDir = S_ISDIR(st.st_mode) ? 1 : 0;
    return ZOK;
}

KESTRO_API uint32_t Zpand_FileSize(const char *pcPath, uint64_t *pullSize) {
    if (pullSize == nullptr) return ZFAILED;
    *pullSize = 0;
    ST_ZOS_FILE_STAT st{};
    if (Zpand_FileStat(pcPath, &st) != ZOK) return ZFAILED;
    *pullSize = st.ullSize;
    return ZOK;
}

KESTRO_API uint32_t Zpand_DirOpen(const char *pcPath, uintptr_t *pzDir) {
    if (pzDir == nullptr) return ZFAILED;
    *pzDir = 0;
    if (pcPath == nullptr) return ZFAILED;
    DIR *d = ::opendir(pcPath);
    if (d == nullptr) return ZFAILED;
    *pzDir = reinterpret_cast<uintptr_t>(d);
    return ZOK;
}

KESTRO_API uint32_t Zpand_DirClose(uintptr_t zDir) {
    if (zDir == 0) return ZFAILED;
    return ::closedir(AsDir(zDir)) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_DirRead(uintptr_t zDir, char *pcName, uint32_t uiSize) {
    if (zDir == 0 || pcName == nullptr || uiSize == 0) return ZFAILED;
    for (;;) {
        const dirent *e = ::readdir(AsDir(zDir));
        if (e == nullptr) return ZFAILED;
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
        const size_t len = std::strlen(e->d_name);
        if (len >= uiSize) continue;  // a name that does not fit is skipped, never cut
        std::memcpy(pcName, e->d_name, len + 1);
        return ZOK;
    }
}

KESTRO_API uint32_t Zpand_DirMake(const char *pcPath) {
    if (pcPath == nullptr) return ZFAILED;
    return ::mkdir(pcPath, 0755) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_DirRemove(const char *pcPath) {
    if (pcPath == nullptr) return ZFAILED;
    return ::rmdir(pcPath) == 0 ? ZOK : ZFAILED;
}

}  // extern "C"
