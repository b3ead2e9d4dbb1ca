// Logs: the manager and its list, the line prefix, display through
// cache, file and console, rotating files, and the debug commands.
#include <atomic>
#include <cstddef>
#include <cstring>
#include <strings.h>

#include "zfile.h"
#include "zos_cfg_rec.h"
#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_log.h"
#include "zos_live.h"
#include "zos_log_int.h"
#include "zos_print.h"
#include "zos_print_int.h"
#include "zos_task.h"
#include "zos_time.h"
#include "zos_util.h"

namespace {

constexpr char kMark[4] = {'>', '>', 'E', 'E'};
constexpr uint32_t kLineBuf = 4096;
constexpr uint32_t kMinCache = 1024;
constexpr char kFileHead[] = "#ZOSLOG#\r\n";
constexpr uint32_t kFileHeadLen = sizeof(kFileHead) - 1;
// A hex dump longer than this is written as several lines.
constexpr uint32_t kDumpChunk = 2900;

// One file of a log: its path and its creation time, kept as the digits
// of its name (YYYYMMDDhhmmssmmm) so that listed and new files order the
// same way.
struct LogFile {
    char *pcName;
    int64_t llKey;
};

// A log. The handle given out is the address of uiLevel, just after the
// ">>EE" mark; the record, its file list and its cache are one block.
struct LogRec {
    ST_ZOS_DLIST_NODE stLink;
    char acMark[4];
    uint32_t uiLevel;
    ZLOGID zRedirect;
    uint32_t uiFlags;
    uint32_t uiCacheSize;
    uint32_t uiFileSize;
    void *pUser;
    ZOS_LOG_WATCHER pfnWatcher;
    char acName[ZOS_LOG_NAME_MAX + 1];
    uint8_t ucMaxFile;
    uint8_t ucFileCnt;
    uint8_t ucOpen;
    uint8_t ucBusy;
    uint8_t ucLocked;   // zMutex exists
    uint8_t ucWrapped;  // the memory cache has wrapped at least once
    ZMUTEX zMutex;
    char *pcTemplate;
    ZFILE zFile;
    // Cache [pcStart, pcEnd). With a file it is a ring of pending bytes
    // from pcFlush to pcWrite; without, a memory of the latest lines.
    char *pcStart;
    char *pcWrite;
    char *pcEnd;
    char *pcFlush;
    LogFile *pstFiles;  // oldest first
};

static_assert(offsetof(LogRec, uiLevel) == offsetof(LogRec, acMark) + sizeof(kMark),
              "the mark sits immediately in front of the handle");

ZLOGID HandleOf(LogRec *r) {
    return &r->uiLevel;
}

LogRec *RecOf(ZLOGID h) {
    return reinterpret_cast<LogRec *>(static_cast<char *>(h) - offsetof(LogRec, uiLevel));
}

LogRec *RecOfLink(ST_ZOS_DLIST_NODE *node) {
    return reinterpret_cast<LogRec *>(reinterpret_cast<char *>(node) - offsetof(LogRec, stLink));
}

ZosLogMgr *Mgr() {
    return static_cast<ZosLogMgr *>(Zos_EnvLocateLogMgr());
}

// What the manager's resets clear: all but the write gate, which writers
// may be touching meanwhile.
constexpr size_t kResetBytes = offsetof(ZosLogMgr, uiWriters);
static_assert(offsetof(ZosLogMgr, uiClosing) + sizeof(uint32_t) == sizeof(ZosLogMgr) &&
                  offsetof(ZosLogMgr, uiWriters) + sizeof(uint32_t) ==
                      offsetof(ZosLogMgr, uiClosing),
              "the write gate is the manager's tail, which its resets leave alone");

// A write counted in for its whole length, from finding its log to its
// last use of the print pool; refused (ok() false) once shut-down has
// begun to take the logs apart.
class WriteScope {
  public:
    WriteScope() : mgr_(Mgr()) {
        if (mgr_ == nullptr) return;
        std::atomic_ref<uint32_t>(mgr_->uiWriters).fetch_add(1, std::memory_order_seq_cst);
        if (std::atomic_ref<uint32_t>(mgr_->uiClosing).load(std::memory_order_seq_cst) != 0) {
            Leave();
        }
    }
    ~WriteScope() { Leave(); }
    WriteScope(const WriteScope &) = delete;
    WriteScope &operator=(const WriteScope &) = delete;
    bool ok() const { return mgr_ != nullptr; }

  private:
    void Leave() {
        if (mgr_ == nullptr) return;
        std::atomic_ref<uint32_t>(mgr_->uiWriters).fetch_sub(1, std::memory_order_release);
        mgr_ = nullptr;
    }
    ZosLogMgr *mgr_;
};

// Turns new writes away and waits for those under way, for at most 2 s (a
// watcher that does not return keeps its write, as before).
void CloseWrites(ZosLogMgr *mgr) {
    std::atomic_ref<uint32_t>(mgr->uiClosing).store(1, std::memory_order_seq_cst);
    std::atomic_ref<uint32_t> writers(mgr->uiWriters);
    for (uint32_t waited = 0; writers.load(std::memory_order_acquire) != 0 && waited < 2000;
         ++waited) {
        Zos_TaskDelay(1);
    }
}

bool Marked(const LogRec *r) {
    return std::memcmp(r->acMark, kMark, sizeof(kMark)) == 0;
}

// The record of a handle that may be written to, else null. Only the
// memory of a registered handle is read: a deleted log's record went back
// to the print pool, which may have given its block back to the heap (a
// redirect may still name it). The mark is read through bytes first: a
// foreign pointer is never taken for a record.
LogRec *Usable(ZLOGID h) {
    if (Mgr() == nullptr || h == nullptr || !zos::LiveHas(h)) return nullptr;
    const auto at = reinterpret_cast<uintptr_t>(h) - offsetof(LogRec, uiLevel);
    if (at % alignof(LogRec) != 0) return nullptr;
    if (std::memcmp(static_cast<const char *>(h) - sizeof(kMark), kMark, sizeof(kMark)) != 0) {
        return nullptr;
    }
    LogRec *r = RecOf(h);
    return r->ucOpen != 0 ? r : nullptr;
}

uint32_t LoadU32(uint32_t &v) {
    return std::atomic_ref<uint32_t>(v).load(std::memory_order_relaxed);
}

const char *LevelWord(uint32_t level) {
    switch (level) {
        case ZOS_LOG_LEVEL_FATAL:
            return "FATAL";
        case ZOS_LOG_LEVEL_ERROR:
            return "ERROR";
        case ZOS_LOG_LEVEL_WARN:
            return "WARN";
        case ZOS_LOG_LEVEL_INFO:
            return "INFO";
        case ZOS_LOG_LEVEL_DEBUG:
            return "DEBUG";
        case ZOS_LOG_LEVEL_FUNC:
            return "FUNC";
        default:
            return "UNKNOWN";
    }
}

// Characters stored by a bounded format into `size` bytes.
uint32_t Stored(uint32_t produced, uint32_t size) {
    return size == 0 ? 0 : (produced < size ? produced : size - 1);
}

// ---------------------------------------------------------------------
// Prefix

uint32_t AddPrefix(const ST_ZOS_CFG *cfg, char *buf, uint32_t size, const LogRec *r,
                   const char *name, uint32_t level, const char *prefix) {
    const bool date = cfg != nullptr && cfg->LogDispDateSupt != 0;
    const bool time = cfg != nullptr && cfg->LogDispTimeSupt != 0;
    const bool inMs = cfg != nullptr && cfg->LogDispTimeInMs != 0;
    ST_ZOS_SYS_TIME t{};
    if (date || time) zos::LogStampTime(inMs, &t);
    const char *nm = name != nullptr && name[0] != '\0' ? name : r->acName;
    const char *word = LevelWord(level);
    const int yy = t.wYear % 2000;
    const long ms = static_cast<long>(t.uiMillisecond);
    const auto sz = static_cast<int32_t>(size);
    uint32_t n = 0;
    if (date && time && inMs) {
        n = Zos_SNPrintf(buf, sz, "%02d-%02d-%02d %02d:%02d:%02d.%03ld %s: %s: ", yy, t.ucMonth,
                         t.ucDay, t.ucHour, t.ucMinute, t.ucSecond, ms, nm, word);
    } else if (date && time) {
        n = Zos_SNPrintf(buf, sz, "%02d-%02d-%02d %02d:%02d:%02d %s: %s: ", yy, t.ucMonth, t.ucDay,
                         t.ucHour, t.ucMinute, t.ucSecond, nm, word);
    } else if (date) {
        n = Zos_SNPrintf(buf, sz, "%02d-%02d-%02d %s: %s: ", yy, t.ucMonth, t.ucDay, nm, word);
    } else if (time && inMs) {
        n = Zos_SNPrintf(buf, sz, "%02d:%02d:%02d.%03ld %s: %s: ", t.ucHour, t.ucMinute, t.ucSecond,
                         ms, nm, word);
    } else if (time) {
        n = Zos_SNPrintf(buf, sz, "%02d:%02d:%02d %s: %s: ", t.ucHour, t.ucMinute, t.ucSecond, nm,
                         word);
    } else {
        n = Zos_SNPrintf(buf, sz, "%s: %s: ", nm, word);
    }
    n = Stored(n, size);
    if (prefix != nullptr && prefix[0] != '\0' && n + 1 < size) {
        n += Stored(Zos_SNPrintf(buf + n, static_cast<int32_t>(size - n), "%s ", prefix), size - n);
    }
    return n;
}

// ---------------------------------------------------------------------
// Files

// Path split for the file names: everything before the base name's last
// '.' is the prefix, the rest the extension (without the dot).
struct PathParts {
    const char *path;
    uint32_t dirLen;     // characters up to and including the last '/'
    uint32_t prefixLen;  // characters of the path before the extension's dot
    const char *ext;     // null when the base name has no '.'
};

PathParts SplitPath(const char *path) {
    PathParts p{path, 0, 0, nullptr};
    const char *slash = std::strrchr(path, '/');
    const char *base = slash != nullptr ? slash + 1 : path;
    p.dirLen = static_cast<uint32_t>(base - path);
    const char *dot = std::strrchr(base, '.');
    p.prefixLen = static_cast<uint32_t>((dot != nullptr ? dot : base + std::strlen(base)) - path);
    p.ext = dot != nullptr ? dot + 1 : nullptr;
    return p;
}

// Appends text with every '%' doubled, so the template stays a format.
void AppendEscaped(char *out, uint32_t *len, uint32_t cap, const char *text, uint32_t n) {
    for (uint32_t i = 0; i < n && *len + 2 < cap; ++i) {
        if (text[i] == '%') out[(*len)++] = '%';
        out[(*len)++] = text[i];
    }
    out[*len] = '\0';
}

// The file-name template: prefix, then the creation time as
// "%d%02d%02d_%02d%02d%02d_%03d", then "." and the extension if any.
char *MakeTemplate(const PathParts &p) {
    constexpr uint32_t kCap = 2 * ZFILE_PATH_MAX;
    auto *buf = static_cast<char *>(Zos_PrintAlloc(kCap));
    if (buf == nullptr) return nullptr;
    uint32_t len = 0;
    AppendEscaped(buf, &len, kCap, p.path, p.prefixLen);
    static constexpr char kTime[] = "%d%02d%02d_%02d%02d%02d_%03d";
    if (len + sizeof(kTime) < kCap) {
        std::memcpy(buf + len, kTime, sizeof(kTime));
        len += sizeof(kTime) - 1;
    }
    if (p.ext != nullptr) {
        AppendEscaped(buf, &len, kCap, ".", 1);
        AppendEscaped(buf, &len, kCap, p.ext, static_cast<uint32_t>(std::strlen(p.ext)));
    }
    char *tmpl = Zos_PrintStrAlloc(buf);
    Zos_PrintFree(buf);
    return tmpl;
}

// Key of a time: YYYYMMDDhhmmssmmm as one number.
int64_t KeyOf(const ST_ZOS_SYS_TIME &t) {
    int64_t k = t.wYear;
    k = k * 100 + t.ucMonth;
    k = k * 100 + t.ucDay;
    k = k * 100 + t.ucHour;
    k = k * 100 + t.ucMinute;
    k = k * 100 + t.ucSecond;
    return k * 1000 + static_cast<int64_t>(t.uiMillisecond % 1000u);
}

char *NameOfKey(const char *tmpl, int64_t k) {
    const int ms = static_cast<int>(k % 1000);
    k /= 1000;
    const int sec = static_cast<int>(k % 100);
    k /= 100;
    const int min = static_cast<int>(k % 100);
    k /= 100;
    const int hour = static_cast<int>(k % 100);
    k /= 100;
    const int day = static_cast<int>(k % 100);
    k /= 100;
    const int mon = static_cast<int>(k % 100);
    const int year = static_cast<int>(k / 100);
    return Zos_PrintStrFAlloc(tmpl, year, mon, day, hour, min, sec, ms);
}

// Parses n decimal digits.
bool Digits(const char *s, uint32_t n, int64_t *out) {
    int64_t v = 0;
    for (uint32_t i = 0; i < n; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
        v = v * 10 + (s[i] - '0');
    }
    *out = v;
    return true;
}

// The key of a directory entry that is one of this log's files, or -1.
int64_t KeyOfEntry(const PathParts &p, const char *entry) {
    const char *basePrefix = p.path + p.dirLen;
    const uint32_t baseLen = p.prefixLen - p.dirLen;
    if (std::strncmp(entry, basePrefix, baseLen) != 0) return -1;
    const char *s = entry + baseLen;
    int64_t date = 0, time = 0, ms = 0;
    if (!Digits(s, 8, &date) || s[8] != '_' || !Digits(s + 9, 6, &time) || s[15] != '_' ||
        !Digits(s + 16, 3, &ms)) {
        return -1;
    }
    const char *rest = s + 19;
    if (p.ext != nullptr ? (rest[0] != '.' || std::strcmp(rest + 1, p.ext) != 0) : rest[0] != 0) {
        return -1;
    }
    return (date * 1000000 + time) * 1000 + ms;
}

// Records a file in the list, oldest first. A full list gives up its
// oldest file (removed from disk); a file older than all of a full list
// is removed instead of recorded.
void AppendFile(LogRec *r, char *name, int64_t key) {
    if (r->ucMaxFile == 0) {
        Zos_PrintFree(name);
        return;
    }
    for (uint32_t i = 0; i < r->ucFileCnt; ++i) {
        if (r->pstFiles[i].llKey == key && std::strcmp(r->pstFiles[i].pcName, name) == 0) {
            Zos_PrintFree(name);  // listed already
            return;
        }
    }
    if (r->ucFileCnt == r->ucMaxFile) {
        if (key < r->pstFiles[0].llKey) {
            Zos_Printf("LogAppendFile remove %s.\n", name);
            Zfile_Remove(name);
            Zos_PrintFree(name);
            return;
        }
        Zos_Printf("LogAppendFile remove oldest %s.\n", r->pstFiles[0].pcName);
        Zfile_Remove(r->pstFiles[0].pcName);
        Zos_PrintFree(r->pstFiles[0].pcName);
        std::memmove(&r->pstFiles[0], &r->pstFiles[1], (r->ucFileCnt - 1u) * sizeof(LogFile));
        r->ucFileCnt--;
    }
    uint32_t i = r->ucFileCnt;
    while (i > 0 && r->pstFiles[i - 1].llKey > key) {
        r->pstFiles[i] = r->pstFiles[i - 1];
        --i;
    }
    r->pstFiles[i] = LogFile{name, key};
    r->ucFileCnt++;
}

// Lists the files of this log that already exist in its directory.
void GetFileList(LogRec *r, const PathParts &p) {
    char dir[ZFILE_PATH_MAX];
    if (p.dirLen == 0) {
        std::memcpy(dir, ".", 2);
    } else {
        if (p.dirLen >= sizeof(dir)) return;
        std::memcpy(dir, p.path, p.dirLen);
        dir[p.dirLen] = '\0';
    }
    if (Zfile_IsDir(dir) == 0) return;
    ZDIR d = 0;
    if (Zfile_DirOpen(dir, &d) != ZOK) return;
    char entry[256];
    while (Zfile_DirRead(d, entry, sizeof(entry)) == ZOK) {
        const int64_t key = KeyOfEntry(p, entry);
        if (key < 0) continue;
        char *full = nullptr;
        if (p.dirLen == 0) {
            full = Zos_PrintStrAlloc(entry);
        } else {
            full = Zos_PrintStrFAlloc("%s%s", dir, entry);
        }
        if (full != nullptr) AppendFile(r, full, key);
    }
    Zfile_DirClose(d);
}

void WriteFailed(LogRec *r) {
    Zos_Printf("log <%s> file write failed.\r\n", r->acName);
    Zfile_Close(r->zFile);
    r->zFile = 0;
    r->pcWrite = r->pcFlush = r->pcStart;
}

// Writes bytes to the file in pieces of at most the alert size.
bool FileWrite(LogRec *r, const char *data, uint32_t len) {
    const uint32_t cfgPiece = Zos_CfgGetLogAlertSize();
    while (len != 0 && r->zFile != 0) {
        const uint32_t n = cfgPiece != 0 && len > cfgPiece ? cfgPiece : len;
        if (Zfile_Write(r->zFile, data, n) != ZOK) {
            WriteFailed(r);
            return false;
        }
        data += n;
        len -= n;
    }
    return r->zFile != 0;
}

// Writes the ring's pending bytes to the file, oldest first.
void DrainRing(LogRec *r) {
    if (r->zFile == 0 || r->pcStart == nullptr || r->pcWrite == r->pcFlush) return;
    if (r->pcFlush < r->pcWrite) {
        FileWrite(r, r->pcFlush, static_cast<uint32_t>(r->pcWrite - r->pcFlush));
    } else if (FileWrite(r, r->pcFlush, static_cast<uint32_t>(r->pcEnd - r->pcFlush))) {
        FileWrite(r, r->pcStart, static_cast<uint32_t>(r->pcWrite - r->pcStart));
    }
    r->pcWrite = r->pcFlush = r->pcStart;
}

// Creates the next file from the template; its name never repeats an
// earlier one, even when files follow each other within a millisecond.
uint32_t OpenNewFile(LogRec *r) {
    ST_ZOS_SYS_TIME now{};
    Zos_SysTime(&now);
    int64_t key = KeyOf(now);
    if (r->ucFileCnt != 0 && key <= r->pstFiles[r->ucFileCnt - 1].llKey) {
        key = r->pstFiles[r->ucFileCnt - 1].llKey + 1;
    }
    char *name = NameOfKey(r->pcTemplate, key);
    if (name == nullptr || Zfile_Open(name, "wb", &r->zFile) != ZOK) {
        Zos_Printf("LogAdjFile open %s.", name != nullptr ? name : r->pcTemplate);
        Zos_PrintFree(name);
        r->zFile = 0;
        return ZFAILED;
    }
    AppendFile(r, name, key);
    r->uiFileSize = 0;
    if (FileWrite(r, kFileHead, kFileHeadLen)) r->uiFileSize = kFileHeadLen;
    return ZOK;
}

// Rotation: the current file receives what the ring holds and is closed,
// so every file ends with complete lines; then a new file starts.
uint32_t AdjFile(LogRec *r) {
    DrainRing(r);
    if (r->zFile != 0) Zfile_Close(r->zFile);
    r->zFile = 0;
    r->uiFileSize = 0;
    return OpenNewFile(r);
}

// Opens the newest listed file for appending while it is below the
// rotation size, else starts a new one.
void OpenLogFile(LogRec *r) {
    const uint32_t limit = Zos_CfgGetLogFileSize();
    if (r->ucFileCnt != 0) {
        const char *newest = r->pstFiles[r->ucFileCnt - 1].pcName;
        uint64_t size = 0;
        if (Zfile_Size(newest, &size) == ZOK && size < limit &&
            Zfile_Open(newest, "ab", &r->zFile) == ZOK) {
            r->uiFileSize = static_cast<uint32_t>(size);
            return;
        }
    }
    OpenNewFile(r);
}

// ---------------------------------------------------------------------
// Display

uint32_t RingFree(const LogRec *r) {
    const auto size = static_cast<uint32_t>(r->pcEnd - r->pcStart);
    const auto used =
        static_cast<uint32_t>((r->pcWrite - r->pcFlush + static_cast<ptrdiff_t>(size)) % size);
    return size - 1 - used;
}

void RingPut(LogRec *r, const char *text, uint32_t len) {
    const auto head = static_cast<uint32_t>(r->pcEnd - r->pcWrite);
    const uint32_t first = len < head ? len : head;
    std::memcpy(r->pcWrite, text, first);
    r->pcWrite += first;
    if (r->pcWrite == r->pcEnd) r->pcWrite = r->pcStart;
    if (first < len) {
        std::memcpy(r->pcWrite, text + first, len - first);
        r->pcWrite += len - first;
    }
}

// A line for the file: into the ring; when the ring cannot take it, the
// ring is written out first, and a line longer than the whole ring goes
// straight to the file. Nothing is dropped.
void DispFile(LogRec *r, const char *text, uint32_t len) {
    if (r->pcStart == nullptr) {
        FileWrite(r, text, len);
    } else {
        if (len > RingFree(r)) DrainRing(r);
        if (r->zFile == 0) return;
        if (len > r->uiCacheSize - 1) {
            FileWrite(r, text, len);
        } else {
            RingPut(r, text, len);
        }
    }
    r->uiFileSize += len;
}

// A line for a log without a file: the cache keeps the latest text,
// wrapping at its end.
void DispBuff(LogRec *r, const char *text, uint32_t len) {
    const auto head = static_cast<uint32_t>(r->pcEnd - r->pcWrite);
    const uint32_t first = len < head ? len : head;
    std::memcpy(r->pcWrite, text, first);
    r->pcWrite += first;
    if (r->pcWrite == r->pcEnd) {
        r->pcWrite = r->pcStart;
        r->ucWrapped = 1;
    }
    uint32_t rest = len - first;
    if (rest == 0) return;
    if (rest >= r->uiCacheSize) {
        Zos_Printf("zos log line too big!\r\n");
        rest = r->uiCacheSize - 1;
    }
    std::memcpy(r->pcWrite, text + first, rest);
    r->pcWrite += rest;
}

// The watcher of a log and its user data, read together.
struct Watcher {
    ZOS_LOG_WATCHER fn = nullptr;
    void *user = nullptr;
};

// Displays a line. When `watcher` is given, the log's watcher is read in
// the same locked section (one lock per line on the common path).
void Disp(const ST_ZOS_CFG *cfg, LogRec *r, const char *text, uint32_t len, Watcher *watcher) {
    const bool echo = (LoadU32(r->uiFlags) & ZOS_LOG_FLAG_PRINT) != 0;
    const ZOS_LOGDISP_HOOK hook = echo && cfg != nullptr ? cfg->LogDisp : nullptr;
    const uint32_t limit = cfg != nullptr ? cfg->LogFileSize : 0xFFFFFFFFu;
    {
        zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
        if (watcher != nullptr) *watcher = Watcher{r->pfnWatcher, r->pUser};
        // A failure reported while this log displays (a file error logged
        // to the log itself) must not come back into it.
        if (r->ucBusy != 0) return;
        r->ucBusy = 1;
        if (r->zFile != 0) {
            DispFile(r, text, len);
        } else if (r->uiCacheSize != 0) {
            DispBuff(r, text, len);
        }
        if (echo && hook == nullptr) Zos_PrintNStr(text, len);
        if (r->zFile != 0 && r->uiFileSize > limit) AdjFile(r);
        r->ucBusy = 0;
    }
    if (hook != nullptr) hook(text, len);
}

// ---------------------------------------------------------------------
// Writing

// The message body: a format with its arguments, or a raw text.
struct Body {
    const char *fmt;
    va_list *ap;
    const char *raw;
    uint32_t rawLen;
};

uint32_t LogPrint(LogRec *r, const char *name, uint32_t level, const char *prefix,
                  const Body &body) {
    auto *buf = static_cast<char *>(Zos_PrintAlloc(kLineBuf));
    if (buf == nullptr) return ZFAILED;
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    const uint32_t pre = AddPrefix(cfg, buf, ZOS_LOG_LINE_MAX, r, name, level, prefix);
    const uint32_t room = ZOS_LOG_LINE_MAX - pre;
    uint32_t msg = 0;
    if (body.fmt != nullptr) {
        va_list ap;
        va_copy(ap, *body.ap);
        msg = Stored(Zos_VSNPrintf(buf + pre, static_cast<int32_t>(room), body.fmt, ap), room);
        va_end(ap);
    } else {
        msg = body.rawLen < room - 1 ? body.rawLen : room - 1;
        if (msg != 0) std::memcpy(buf + pre, body.raw, msg);
    }
    uint32_t len = pre + msg;
    buf[len++] = '\n';
    buf[len] = '\0';

    LogRec *target = r;
    const ZLOGID redirect = std::atomic_ref<ZLOGID>(r->zRedirect).load(std::memory_order_relaxed);
    if (redirect != nullptr) {
        LogRec *t = Usable(redirect);
        if (t != nullptr) target = t;
    }
    Watcher watcher;
    if (target == r) {
        Disp(cfg, r, buf, len, &watcher);
    } else {
        Disp(cfg, target, buf, len, nullptr);
        zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
        watcher = Watcher{r->pfnWatcher, r->pUser};
    }
    if (watcher.fn != nullptr) {
        buf[len - 1] = '\0';
        watcher.fn(watcher.user, level, buf + pre);
    }
    Zos_PrintFree(buf);
    return ZOK;
}

uint32_t Write(ZLOGID h, const char *name, uint32_t level, const char *prefix, const Body &body) {
    WriteScope scope;
    if (!scope.ok()) return ZFAILED;
    LogRec *r = Usable(h);
    if (r == nullptr) return ZFAILED;
    if ((LoadU32(r->uiLevel) & level) == 0) return ZOK;
    return LogPrint(r, name, level, prefix, body);
}

uint32_t WriteV(ZLOGID h, const char *name, uint32_t level, const char *prefix, const char *fmt,
                va_list ap) {
    if (fmt == nullptr) return Usable(h) != nullptr ? ZOK : ZFAILED;
    va_list copy;
    va_copy(copy, ap);
    const uint32_t rc = Write(h, name, level, prefix, Body{fmt, &copy, nullptr, 0});
    va_end(copy);
    return rc;
}

uint32_t WriteRaw(ZLOGID h, const char *name, uint32_t level, const char *text, uint32_t len) {
    if (text == nullptr && len != 0) return ZFAILED;
    return Write(h, name, level, nullptr, Body{nullptr, nullptr, text, len});
}

// Hex dump as log lines: one line unless the dump is long, then several,
// each starting on a row of the dump.
uint32_t WriteBuf(ZLOGID h, const char *name, uint32_t level, const void *data, uint32_t len) {
    WriteScope scope;
    if (!scope.ok()) return ZFAILED;
    LogRec *r = Usable(h);
    if (r == nullptr || data == nullptr) return ZFAILED;
    if ((LoadU32(r->uiLevel) & level) == 0) return ZOK;
    struct Chunk {
        ZLOGID h;
        const char *name;
        uint32_t level;
        char *buf;
        uint32_t len;
        uint32_t rc;
        void Emit() {
            // The dump's own last "\n" is replaced by the line's.
            const uint32_t n = len != 0 && buf[len - 1] == '\n' ? len - 1 : len;
            if (WriteRaw(h, name, level, buf, n) != ZOK) rc = ZFAILED;
            len = 0;
        }
    };
    auto *buf = static_cast<char *>(Zos_PrintAlloc(kLineBuf));
    if (buf == nullptr) return ZFAILED;
    Chunk chunk{h, name, level, buf, 0, ZOK};
    zos::HexDump(
        static_cast<const uint8_t *>(data), len,
        [](void *arg, const char *piece, uint32_t n) {
            auto *c = static_cast<Chunk *>(arg);
            if (piece[0] == '\n' && n > 1 && c->len > kDumpChunk) {
                c->Emit();
                ++piece;  // the next line starts with the row's indent
                --n;
            }
            std::memcpy(c->buf + c->len, piece, n);
            c->len += n;
        },
        &chunk);
    chunk.Emit();
    Zos_PrintFree(buf);
    return chunk.rc;
}

LogRec *FindByName(ZosLogMgr *mgr, const char *name) {
    for (ST_ZOS_DLIST_NODE *n = mgr->stLogList.pstHead; n != nullptr; n = n->pstNext) {
        LogRec *r = RecOfLink(n);
        if (Marked(r) && r->ucOpen != 0 && strcasecmp(r->acName, name) == 0) return r;
    }
    return nullptr;
}

void FreeRecord(LogRec *r) {
    for (uint32_t i = 0; i < r->ucFileCnt; ++i) Zos_PrintFree(r->pstFiles[i].pcName);
    Zos_PrintFree(r->pcTemplate);
    Zos_PrintFree(r);
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------
// Manager

KESTRO_API uint32_t Zos_LogInit(void) {
    ZosEnv *env = zos::Env();
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    if (env == nullptr || cfg == nullptr) return ZFAILED;
    ZosLogMgr *mgr = &env->stLogMgr;
    if (mgr->ucInit != 0) return ZOK;
    std::memset(mgr, 0, kResetBytes);
    if (Zos_MutexCreate(&mgr->zMutex) != ZOK) return ZFAILED;
    if (Zos_DlistCreate(&mgr->stLogList, ZOS_LIST_NO_LIMIT) != ZOK) {
        Zos_MutexDelete(&mgr->zMutex);
        return ZFAILED;
    }
    std::atomic_ref<uint32_t>(mgr->uiClosing).store(0, std::memory_order_seq_cst);
    mgr->ucInit = 1;
    const uint32_t flags =
        cfg->LogPrint != 0 ? ZOS_LOG_FLAG_MUTEX | ZOS_LOG_FLAG_PRINT : ZOS_LOG_FLAG_MUTEX;
    ZLOGID sys = Zos_LogCreateX("ZOS", cfg->LogFile, flags, cfg->LogLevel, cfg->LogBufSize);
    if (sys == nullptr) {
        Zos_DlistDelete(&mgr->stLogList);
        Zos_MutexDelete(&mgr->zMutex);
        std::memset(mgr, 0, kResetBytes);
        return ZFAILED;
    }
    mgr->zZosLogId = sys;
    return ZOK;
}

KESTRO_API void Zos_LogDestroy(void) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr) return;
    // The layer's own failure lines stop here: no line may reach a log
    // that is being taken apart. A line that a thread racing shut-down
    // began before is finished first: it may still be using its log and
    // the print pool, which goes next.
    mgr->zZosLogId = nullptr;
    CloseWrites(mgr);
    for (;;) {
        ST_ZOS_DLIST_NODE *node = nullptr;
        {
            zos::MutexGuard lock(&mgr->zMutex);
            node = mgr->stLogList.pstHead;
        }
        if (node == nullptr) break;
        LogRec *r = RecOfLink(node);
        if (Zos_LogDelete(HandleOf(r)) != ZOK) {
            zos::MutexGuard lock(&mgr->zMutex);
            Zos_DlistRemove(&mgr->stLogList, node);
        }
    }
    Zos_DlistDelete(&mgr->stLogList);
    Zos_MutexDelete(&mgr->zMutex);
    std::memset(mgr, 0, kResetBytes);
}

KESTRO_API ZLOGID Zos_LogCreateX(const char *pcName, const char *pcFile, uint32_t uiFlags,
                                 uint32_t uiLevel, uint32_t uiCacheSize) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || pcName == nullptr || pcName[0] == '\0') return nullptr;
    const uint32_t cache = uiCacheSize != 0 && uiCacheSize < kMinCache ? kMinCache : uiCacheSize;
    const uint32_t count = Zos_CfgGetLogFileCount();
    const uint32_t maxFiles = count > 255 ? 255 : count;
    const uint64_t total =
        sizeof(LogRec) + static_cast<uint64_t>(maxFiles) * sizeof(LogFile) + cache;
    if (total >= 0x7FFFFFFEu) return nullptr;
    auto *r = static_cast<LogRec *>(Zos_PrintAllocClrd(static_cast<uint32_t>(total)));
    if (r == nullptr) return nullptr;
    r->pstFiles = reinterpret_cast<LogFile *>(r + 1);
    r->ucMaxFile = static_cast<uint8_t>(maxFiles);
    if (cache != 0) {
        r->pcStart = reinterpret_cast<char *>(r->pstFiles + maxFiles);
        r->pcEnd = r->pcStart + cache;
        r->pcWrite = r->pcFlush = r->pcStart;
    }
    std::memcpy(r->acName, pcName, strnlen(pcName, ZOS_LOG_NAME_MAX));

    const bool useFile = pcFile != nullptr && pcFile[0] != '\0';
    PathParts parts{};
    if (useFile) {
        parts = SplitPath(pcFile);
        r->pcTemplate = MakeTemplate(parts);
        if (r->pcTemplate == nullptr) {
            FreeRecord(r);
            return nullptr;
        }
        GetFileList(r, parts);
    }
    if ((uiFlags & ZOS_LOG_FLAG_MUTEX) != 0 || useFile) {
        if (Zos_MutexCreate(&r->zMutex) != ZOK) {
            FreeRecord(r);
            return nullptr;
        }
        r->ucLocked = 1;
    }
    if (useFile) OpenLogFile(r);

    r->uiFlags = uiFlags;
    r->uiCacheSize = cache;
    r->uiLevel = uiLevel;
    std::memcpy(r->acMark, kMark, sizeof(kMark));
    r->ucOpen = 1;
    {
        zos::MutexGuard lock(&mgr->zMutex);
        const bool added = zos::LiveAdd(HandleOf(r));
        if (!added || Zos_DlistInsert(&mgr->stLogList, mgr->stLogList.pstTail, &r->stLink) != ZOK) {
            if (added) zos::LiveRemove(HandleOf(r));
            std::memset(r->acMark, 0, sizeof(r->acMark));
            if (r->zFile != 0) Zfile_Close(r->zFile);
            if (r->ucLocked != 0) Zos_MutexDelete(&r->zMutex);
            FreeRecord(r);
            return nullptr;
        }
    }
    return HandleOf(r);
}

KESTRO_API ZLOGID Zos_LogCreate(const char *pcName) {
    return Zos_LogCreateX(pcName, nullptr, ZOS_LOG_FLAG_MUTEX, Zos_CfgGetLogLevel(),
                          Zos_CfgGetLogBufSize());
}

KESTRO_API uint32_t Zos_LogDelete(ZLOGID zLogId) {
    ZosLogMgr *mgr = Mgr();
    LogRec *r = Usable(zLogId);
    if (mgr == nullptr || r == nullptr) return ZFAILED;
    {
        zos::MutexGuard lock(&mgr->zMutex);
        Zos_DlistRemove(&mgr->stLogList, &r->stLink);
        if (mgr->zZosLogId == zLogId) mgr->zZosLogId = nullptr;
    }
    {
        zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
        r->ucBusy = 1;  // nothing reaches the log from here on
        DrainRing(r);
        zos::LiveRemove(zLogId);
        std::memset(r->acMark, 0, sizeof(r->acMark));
        r->ucOpen = 0;
        if (r->zFile != 0) Zfile_Close(r->zFile);
        r->zFile = 0;
    }
    if (r->ucLocked != 0) Zos_MutexDelete(&r->zMutex);
    FreeRecord(r);
    return ZOK;
}

KESTRO_API ZLOGID Zos_LogGetZosId(void) {
    ZosLogMgr *mgr = Mgr();
    return mgr != nullptr ? mgr->zZosLogId : nullptr;
}

KESTRO_API uint32_t Zos_LogGetId(const char *pcName, ZLOGID *pzLogId) {
    if (pzLogId != nullptr) *pzLogId = nullptr;
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || pcName == nullptr || pcName[0] == '\0' || pzLogId == nullptr) {
        return ZFAILED;
    }
    zos::MutexGuard lock(&mgr->zMutex);
    LogRec *r = FindByName(mgr, pcName);
    if (r == nullptr) return ZFAILED;
    *pzLogId = HandleOf(r);
    return ZOK;
}

// ---------------------------------------------------------------------
// Levels, echo, watcher, redirection

KESTRO_API uint32_t Zos_LogOpen(ZLOGID zLogId, uint32_t uiLevel) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || uiLevel == 0) return ZFAILED;
    std::atomic_ref<uint32_t>(r->uiLevel).fetch_or(uiLevel, std::memory_order_relaxed);
    return ZOK;
}

KESTRO_API uint32_t Zos_LogClose(ZLOGID zLogId, uint32_t uiLevel) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || uiLevel == 0) return ZFAILED;
    std::atomic_ref<uint32_t>(r->uiLevel).fetch_and(~uiLevel, std::memory_order_relaxed);
    return ZOK;
}

KESTRO_API uint32_t Zos_LogOpenX(const char *pcName, uint32_t uiLevel) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || pcName == nullptr || pcName[0] == '\0') return ZFAILED;
    zos::MutexGuard lock(&mgr->zMutex);
    LogRec *r = FindByName(mgr, pcName);
    return r != nullptr ? Zos_LogOpen(HandleOf(r), uiLevel) : ZOK;
}

KESTRO_API uint32_t Zos_LogCloseX(const char *pcName, uint32_t uiLevel) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || pcName == nullptr || pcName[0] == '\0') return ZFAILED;
    zos::MutexGuard lock(&mgr->zMutex);
    LogRec *r = FindByName(mgr, pcName);
    return r != nullptr ? Zos_LogClose(HandleOf(r), uiLevel) : ZOK;
}

KESTRO_API uint32_t Zos_LogGetLevel(ZLOGID zLogId) {
    LogRec *r = Usable(zLogId);
    return r != nullptr ? LoadU32(r->uiLevel) : 0;
}

KESTRO_API uint32_t Zos_LogSetPrint(ZLOGID zLogId, uint32_t uiSwitch) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr) return ZFAILED;
    std::atomic_ref<uint32_t> flags(r->uiFlags);
    if (uiSwitch == 1) {
        flags.fetch_or(ZOS_LOG_FLAG_PRINT, std::memory_order_relaxed);
    } else {
        flags.fetch_and(~ZOS_LOG_FLAG_PRINT, std::memory_order_relaxed);
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_LogGetPrint(ZLOGID zLogId) {
    LogRec *r = Usable(zLogId);
    return r != nullptr && (LoadU32(r->uiFlags) & ZOS_LOG_FLAG_PRINT) != 0 ? 1u : 0u;
}

KESTRO_API uint32_t Zos_LogSetWatcher(ZLOGID zLogId, ZOS_LOG_WATCHER pfnWatcher, void *pUser) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr) return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    r->pfnWatcher = pfnWatcher;
    r->pUser = pUser;
    return ZOK;
}

KESTRO_API uint32_t Zos_LogGetWatcher(ZLOGID zLogId, ZOS_LOG_WATCHER *ppfnWatcher, void **ppUser) {
    if (ppfnWatcher != nullptr) *ppfnWatcher = nullptr;
    if (ppUser != nullptr) *ppUser = nullptr;
    LogRec *r = Usable(zLogId);
    if (r == nullptr) return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    if (ppfnWatcher != nullptr) *ppfnWatcher = r->pfnWatcher;
    if (ppUser != nullptr) *ppUser = r->pUser;
    return ZOK;
}

KESTRO_API uint32_t Zos_LogRedirect(ZLOGID zLogId, ZLOGID zTarget) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || zTarget == zLogId || (zTarget != nullptr && Usable(zTarget) == nullptr)) {
        return ZFAILED;
    }
    std::atomic_ref<ZLOGID>(r->zRedirect).store(zTarget, std::memory_order_relaxed);
    return ZOK;
}

// ---------------------------------------------------------------------
// Writing

#define ZOS_LOG_WRITER(fn, level)                                                  \
    KESTRO_API uint32_t Zos_Log##fn(ZLOGID zLogId, const char *pcFormat, ...) {    \
        va_list ap;                                                                \
        va_start(ap, pcFormat);                                                    \
        const uint32_t rc = WriteV(zLogId, nullptr, level, nullptr, pcFormat, ap); \
        va_end(ap);                                                                \
        return rc;                                                                 \
    }
ZOS_LOG_WRITER(Fatal, ZOS_LOG_LEVEL_FATAL)
ZOS_LOG_WRITER(Error, ZOS_LOG_LEVEL_ERROR)
ZOS_LOG_WRITER(Warn, ZOS_LOG_LEVEL_WARN)
ZOS_LOG_WRITER(Info, ZOS_LOG_LEVEL_INFO)
ZOS_LOG_WRITER(Dbg, ZOS_LOG_LEVEL_DEBUG)
ZOS_LOG_WRITER(Func, ZOS_LOG_LEVEL_FUNC)
#undef ZOS_LOG_WRITER

KESTRO_API uint32_t Zos_LogFStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcPrefix,
                                const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t rc = WriteV(zLogId, nullptr, uiLevel, pcPrefix, pcFormat, ap);
    va_end(ap);
    return rc;
}

KESTRO_API uint32_t Zos_LogVFStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcPrefix,
                                 const char *pcFormat, va_list ap) {
    return WriteV(zLogId, nullptr, uiLevel, pcPrefix, pcFormat, ap);
}

KESTRO_API uint32_t Zos_LogNameFStr(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                    const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t rc = WriteV(zLogId, pcName, uiLevel, nullptr, pcFormat, ap);
    va_end(ap);
    return rc;
}

KESTRO_API uint32_t Zos_LogNameFStrX(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                     const char *pcPrefix, const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t rc = WriteV(zLogId, pcName, uiLevel, pcPrefix, pcFormat, ap);
    va_end(ap);
    return rc;
}

KESTRO_API uint32_t Zos_LogNameVFStr(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                     const char *pcPrefix, const char *pcFormat, va_list ap) {
    return WriteV(zLogId, pcName, uiLevel, pcPrefix, pcFormat, ap);
}

KESTRO_API uint32_t Zos_LogStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcStr) {
    if (pcStr == nullptr) return ZFAILED;
    return WriteRaw(zLogId, nullptr, uiLevel, pcStr, static_cast<uint32_t>(std::strlen(pcStr)));
}

KESTRO_API uint32_t Zos_LogNStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcStr,
                                uint32_t uiLen) {
    return WriteRaw(zLogId, nullptr, uiLevel, pcStr, uiLen);
}

KESTRO_API uint32_t Zos_LogSStr(ZLOGID zLogId, uint32_t uiLevel, const ST_ZOS_SSTR *pstStr) {
    if (pstStr == nullptr) return ZFAILED;
    return WriteRaw(zLogId, nullptr, uiLevel, pstStr->pcStr, pstStr->uiLen);
}

KESTRO_API uint32_t Zos_LogBuf(ZLOGID zLogId, uint32_t uiLevel, const void *pData, uint32_t uiLen) {
    return WriteBuf(zLogId, nullptr, uiLevel, pData, uiLen);
}

KESTRO_API uint32_t Zos_LogNameBuf(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                   const void *pData, uint32_t uiLen) {
    return WriteBuf(zLogId, pcName, uiLevel, pData, uiLen);
}

// ---------------------------------------------------------------------
// The steps of writing a line and of keeping the files, one by one

KESTRO_API uint32_t Zos_LogAddPrefix(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                     const char *pcPrefix, char *pcBuf, uint32_t uiSize) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || pcBuf == nullptr || uiSize == 0) return 0;
    return AddPrefix(Zos_CfgLocate(), pcBuf, uiSize, r, pcName, uiLevel, pcPrefix);
}

KESTRO_API uint32_t Zos_LogPrint(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                 const char *pcPrefix, const char *pcFormat, va_list ap) {
    WriteScope scope;
    if (!scope.ok()) return ZFAILED;
    LogRec *r = Usable(zLogId);
    if (r == nullptr || pcFormat == nullptr) return ZFAILED;
    va_list copy;
    va_copy(copy, ap);
    const uint32_t rc = LogPrint(r, pcName, uiLevel, pcPrefix, Body{pcFormat, &copy, nullptr, 0});
    va_end(copy);
    return rc;
}

KESTRO_API uint32_t Zos_LogDisp(ZLOGID zLogId, const char *pcText, uint32_t uiLen) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || pcText == nullptr) return ZFAILED;
    Disp(Zos_CfgLocate(), r, pcText, uiLen, nullptr);
    return ZOK;
}

KESTRO_API uint32_t Zos_LogDispBuff(ZLOGID zLogId, const char *pcText, uint32_t uiLen) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || pcText == nullptr || r->uiCacheSize == 0) return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    // A log with a file uses its cache as the file's ring.
    if (r->zFile != 0) return ZFAILED;
    DispBuff(r, pcText, uiLen);
    return ZOK;
}

KESTRO_API uint32_t Zos_LogDispFile(ZLOGID zLogId, const char *pcText, uint32_t uiLen) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || pcText == nullptr) return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    if (r->zFile == 0) return ZFAILED;
    DispFile(r, pcText, uiLen);
    return ZOK;
}

KESTRO_API uint32_t Zos_LogAdjFile(ZLOGID zLogId) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || r->pcTemplate == nullptr) return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    return AdjFile(r);
}

KESTRO_API uint32_t Zos_LogAppendFile(ZLOGID zLogId, const char *pcFile,
                                      const ST_ZOS_SYS_TIME *pstTime) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || pcFile == nullptr || pcFile[0] == '\0' || pstTime == nullptr) {
        return ZFAILED;
    }
    char *name = Zos_PrintStrAlloc(pcFile);
    if (name == nullptr) return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    AppendFile(r, name, KeyOf(*pstTime));
    return ZOK;
}

KESTRO_API uint32_t Zos_LogGetFileList(ZLOGID zLogId, const char *pcFile) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr || pcFile == nullptr || pcFile[0] == '\0') return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    GetFileList(r, SplitPath(pcFile));
    return ZOK;
}

KESTRO_API char *Zos_LogGetFileName(const char *pcFile) {
    if (pcFile == nullptr || pcFile[0] == '\0') return nullptr;
    return MakeTemplate(SplitPath(pcFile));
}

KESTRO_API uint32_t Zos_LogFlush(ZLOGID zLogId) {
    LogRec *r = Usable(zLogId);
    if (r == nullptr) return ZFAILED;
    zos::MutexGuard lock(&r->zMutex, r->ucLocked != 0);
    if (r->zFile == 0) return ZOK;
    DrainRing(r);
    if (r->zFile != 0 && Zfile_Flush(r->zFile) != ZOK) return ZFAILED;
    return ZOK;
}

// ---------------------------------------------------------------------
// Debug commands

KESTRO_API uint32_t Zos_LogDbgSetLevel(uint32_t uiArgc, const char *const *ppcArgv) {
    static const struct {
        const char *word;
        uint32_t bits;
    } kLevels[] = {{"ERROR", ZOS_LOG_LEVEL_ERROR}, {"INFO", ZOS_LOG_LEVEL_INFO},
                   {"WARN", ZOS_LOG_LEVEL_WARN},   {"DEBUG", ZOS_LOG_LEVEL_DEBUG},
                   {"FATAL", ZOS_LOG_LEVEL_FATAL}, {"FUNC", ZOS_LOG_LEVEL_FUNC},
                   {"ALL", ZOS_LOG_LEVEL_ALL}};
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || uiArgc != 4 || ppcArgv == nullptr) return ZFAILED;
    const char *logName = ppcArgv[1];
    const char *levelName = ppcArgv[2];
    const char *onOff = ppcArgv[3];
    uint32_t bits = 0;
    const char *word = nullptr;
    for (const auto &l : kLevels) {
        if (levelName != nullptr && strcasecmp(levelName, l.word) == 0) {
            bits = l.bits;
            word = l.word;
        }
    }
    zos::MutexGuard lock(&mgr->zMutex);
    LogRec *r = logName != nullptr && logName[0] != '\0' ? FindByName(mgr, logName) : nullptr;
    if (r == nullptr || bits == 0) {
        Zos_Printf("log id or level name is invalid.\r\n");
        return ZFAILED;
    }
    if (onOff != nullptr && std::strcmp(onOff, "on") == 0) {
        Zos_LogOpen(HandleOf(r), bits);
        Zos_Printf("log id <%s> level <%s> open success.\r\n", r->acName, word);
    } else {
        Zos_LogClose(HandleOf(r), bits);
        Zos_Printf("log id <%s> level <%s> close success.\r\n", r->acName, word);
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_LogDbgShow(void) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr) return ZFAILED;
    zos::MutexGuard lock(&mgr->zMutex);
    for (ST_ZOS_DLIST_NODE *n = mgr->stLogList.pstHead; n != nullptr; n = n->pstNext) {
        LogRec *r = RecOfLink(n);
        if (!Marked(r)) continue;
        bool empty = true;
        bool hasFile = false;
        {
            zos::MutexGuard logLock(&r->zMutex, r->ucLocked != 0);
            hasFile = r->zFile != 0;
            if (r->pcStart != nullptr) {
                empty = r->zFile != 0 ? r->pcWrite == r->pcFlush
                                      : r->pcWrite == r->pcStart && r->ucWrapped == 0;
            }
        }
        Zos_Printf("log id <%s> cache info:\r\n", r->acName);
        if (empty) {
            Zos_Printf("log id <%s> cache is empty.\r\n", r->acName);
        } else {
            Zos_Printf("log id <%s> cache is in zos cache.\r\n\r\n", r->acName);
        }
        if (!hasFile) Zos_Printf("log file is not exist.\r\n");
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_LogDbgShowMonitor(void) {
    static const struct {
        const char *word;
        uint32_t bit;
    } kMonitored[] = {{"FATAL", ZOS_LOG_LEVEL_FATAL}, {"ERROR", ZOS_LOG_LEVEL_ERROR},
                      {"WARN", ZOS_LOG_LEVEL_WARN},   {"INFO", ZOS_LOG_LEVEL_INFO},
                      {"DBG", ZOS_LOG_LEVEL_DEBUG},   {"FUNC", ZOS_LOG_LEVEL_FUNC}};
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr) return ZFAILED;
    zos::MutexGuard lock(&mgr->zMutex);
    for (ST_ZOS_DLIST_NODE *n = mgr->stLogList.pstHead; n != nullptr; n = n->pstNext) {
        LogRec *r = RecOfLink(n);
        if (!Marked(r)) continue;
        const uint32_t level = LoadU32(r->uiLevel);
        for (const auto &m : kMonitored) {
            Zos_Printf("log id <%s> level %s monitor %s\r\n", r->acName, m.word,
                       (level & m.bit) != 0 ? "on" : "off");
        }
    }
    return ZOK;
}

}  // extern "C"

// ---------------------------------------------------------------------
// For the log task (zos_logtask.cpp)

namespace zos {

uint32_t LogForEachFileLog(void (*fn)(ZLOGID log, uint32_t pending, void *arg), void *arg) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr) return ZFAILED;
    zos::MutexGuard lock(&mgr->zMutex);
    for (ST_ZOS_DLIST_NODE *n = mgr->stLogList.pstHead; n != nullptr; n = n->pstNext) {
        LogRec *r = RecOfLink(n);
        if (!Marked(r) || r->ucOpen == 0) continue;
        if (std::atomic_ref<ZLOGID>(r->zRedirect).load(std::memory_order_relaxed) != nullptr) {
            continue;
        }
        uint32_t pending = 0;
        {
            zos::MutexGuard logLock(&r->zMutex, r->ucLocked != 0);
            if (r->zFile == 0) continue;
            if (r->pcStart != nullptr) {
                const auto size = static_cast<uint32_t>(r->pcEnd - r->pcStart);
                pending = static_cast<uint32_t>(
                    (r->pcWrite - r->pcFlush + static_cast<ptrdiff_t>(size)) % size);
            }
        }
        fn(HandleOf(r), pending, arg);
    }
    return ZOK;
}

}  // namespace zos
