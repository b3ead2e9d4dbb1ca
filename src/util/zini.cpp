// INI files: decode a text into a tree of sections and keys kept in one
// memory buffer, look values up, edit the tree and write it back.
//
// Everything an object owns is carved from its memory buffer (a data
// buffer of type 2): the object itself, the records and every text. Such
// areas never move, so the tree's (pointer, length) texts stay valid, and
// the whole object goes with one buffer delete. Unlinked records are not
// reused; their memory goes with the buffer.
#include "zini.h"

#include <cstring>

#include "zos_dbuf.h"
#include "zos_dlist_link.h"
#include "zos_live.h"
#include "zos_str.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kMemBlock = 4096;
constexpr uint32_t kMsgBlock = 4096;
// A text copied into the memory buffer takes one more byte for its NUL;
// far below the data buffer's own limit.
constexpr uint32_t kMaxText = 0x7FFFFF00u;

using Sect = ST_ZINI_SECT;
using Key = ST_ZINI_KEY;

// A live object: registered at Zini_Init and removed before its buffer
// goes, so a deleted handle is refused without reading its memory.
ZiniFile *Live(ZiniFile *ini) {
    return ini != nullptr && zos::LiveHas(ini) ? ini : nullptr;
}

template <typename T>
T *Next(const T *rec) {
    return reinterpret_cast<T *>(rec->stNode.pstNext);
}

Sect *FirstSect(const ZiniFile *ini) {
    return reinterpret_cast<Sect *>(ini->stSectLst.pstHead);
}

Key *FirstKey(const Sect *sect) {
    return reinterpret_cast<Key *>(sect->stKeyLst.pstHead);
}

bool NameIs(const ST_ZOS_SSTR &name, const char *text) {
    const size_t len = std::strlen(text);
    return name.uiLen == len && (len == 0 || std::memcmp(name.pcStr, text, len) == 0);
}

Sect *SectAt(const ZiniFile *ini, uint32_t index) {
    Sect *s = FirstSect(ini);
    for (; s != nullptr && index != 0; --index) s = Next(s);
    return s;
}

Key *KeyAt(const Sect *sect, uint32_t index) {
    Key *k = sect != nullptr ? FirstKey(sect) : nullptr;
    for (; k != nullptr && index != 0; --index) k = Next(k);
    return k;
}

Sect *FindSect(const ZiniFile *ini, const char *name) {
    for (Sect *s = FirstSect(ini); s != nullptr; s = Next(s)) {
        if (NameIs(s->stName, name)) return s;
    }
    return nullptr;
}

Key *FindKey(const Sect *sect, const char *name) {
    for (Key *k = FirstKey(sect); k != nullptr; k = Next(k)) {
        if (NameIs(k->stName, name)) return k;
    }
    return nullptr;
}

// The text NUL-terminated where it lies, or null when empty. Every text
// has a byte after it inside the memory buffer: decoded texts lie in a
// copy that ends with an extra NUL, copied texts carry their own.
const char *Terminated(const ST_ZOS_SSTR &text) {
    if (text.uiLen == 0 || text.pcStr == nullptr) return nullptr;
    text.pcStr[text.uiLen] = '\0';
    return text.pcStr;
}

void InitList(ST_ZOS_DLIST *list) {
    list->uiMax = ZOS_LIST_NO_LIMIT;
    list->uiCount = 0;
    list->pstHead = nullptr;
    list->pstTail = nullptr;
    list->zMutex = 0;  // an object belongs to one thread: no list lock
}

// A copy of (text, len) with a NUL after it, from the memory buffer.
bool CopyText(ZDBUF buf, const char *text, uint32_t len, ST_ZOS_SSTR *out) {
    out->pcStr = nullptr;
    out->uiLen = 0;
    if (len == 0) return true;
    if (len > kMaxText) return false;
    auto *p = static_cast<char *>(Zos_DbufAlloc(buf, len + 1));
    if (p == nullptr) return false;
    std::memcpy(p, text, len);
    p[len] = '\0';
    out->pcStr = p;
    out->uiLen = len;
    return true;
}

// A cleared record from the memory buffer. Its areas are only 4-aligned,
// so a record holding pointers takes a little more and starts at the next
// multiple of its alignment.
template <typename T>
T *NewRecord(ZDBUF buf) {
    constexpr uint32_t kAlign = alignof(T) > 4 ? alignof(T) : 4;
    auto *p = static_cast<unsigned char *>(Zos_DbufAllocClrd(buf, sizeof(T) + kAlign - 4));
    if (p == nullptr) return nullptr;
    const uintptr_t at = (reinterpret_cast<uintptr_t>(p) + kAlign - 1) & ~uintptr_t{kAlign - 1};
    return reinterpret_cast<T *>(p + (at - reinterpret_cast<uintptr_t>(p)));
}

// ---------------------------------------------------------------------
// Scanning helpers on the ABNF message

bool IsWs(char c) {
    return c == ' ' || c == '\t';
}

// Drops SP/HT at both ends of a scanned text.
void Trim(ST_ZOS_SSTR *s) {
    while (s->uiLen != 0 && IsWs(s->pcStr[0])) {
        s->pcStr++;
        s->uiLen--;
    }
    while (s->uiLen != 0 && IsWs(s->pcStr[s->uiLen - 1])) s->uiLen--;
    if (s->uiLen == 0) s->pcStr = nullptr;
}

// The next byte not yet scanned, or -1 at the end of the text.
int Peek(ST_ABNF_MSG *msg) {
    ST_ZOS_SSTR rest{};
    if (Abnf_GetScanningStr(msg, &rest) != ZOK || rest.uiLen == 0 || rest.pcStr == nullptr) {
        return -1;
    }
    return static_cast<unsigned char>(rest.pcStr[0]);
}

// Records one decoder or encoder error frame; the caller fails.
uint32_t Fail(ST_ABNF_MSG *msg, const char *text, uint32_t line) {
    Abnf_ErrLog(msg, 0, 0, text, line);
    return ZFAILED;
}

#define ZINI_FAIL(msg, text) Fail(msg, text, __LINE__)

// An optional ";" comment (after its owner's SP/HT were skipped) and the
// line ending; the end of the text ends the line too. The comment loses
// the SP/HT around it.
uint32_t CommentAndEol(ST_ABNF_MSG *msg, ST_ZOS_SSTR *comment, const char *eolText) {
    if (Peek(msg) == ';') {
        if (Abnf_ExpectChr(msg, ';', 1) != ZOK || Abnf_IgnWS(msg) != ZOK) {
            return ZINI_FAIL(msg, "ini Key get comment");
        }
        const int c = Peek(msg);
        if (c != -1 && c != '\r' && c != '\n') {
            if (Abnf_GetLine(msg, comment) != ZOK) return ZINI_FAIL(msg, "ini Key get comment");
            Trim(comment);
        }
    }
    if (Peek(msg) == -1) return ZOK;
    if (Abnf_ExpectEol(msg) != ZOK) return Fail(msg, eolText, __LINE__);
    return ZOK;
}

// ---------------------------------------------------------------------
// Creation

struct CreateTexts {
    const char *nullParm;
    const char *initEmpty;   // init failure on the empty-input path
    const char *initDecode;  // init failure on the decoding path
    const char *decodeFail;
};

constexpr CreateTexts kCreate{"IniCreate null parameter.", "IniCreate init ini fail.",
                              "IniCreate init ini fail.", "IniCreate decode ini buffer fail."};
constexpr CreateTexts kCreateX{"IniCreateX null parameter.", "IniCreate init ini fail.",
                               "IniCreateX init ini fail.", "IniCreateX decode ini buffer fail."};

// A new object holding the decoded text: ZOK, ZINI_DECODE_FAILED (the
// object keeps what decoded before the error, and the error report is
// printed) or ZFAILED without an object.
uint32_t CreateFrom(const char *text, uint32_t len, ZiniFile **out, const CreateTexts &t) {
    if (Zini_Init(out) != ZOK) {
        ZOS_LOG_ERR("%s", t.initDecode);
        return ZFAILED;
    }
    if (len == 0) return ZOK;
    ST_ABNF_ERR err{};
    const bool haveErr = Abnf_ErrInit(&err) == ZOK;
    ST_ABNF_MSG msg{};
    ST_ZOS_SSTR str{const_cast<char *>(text), len};
    uint32_t rc =
        Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, &str, (*out)->zMemBuf, haveErr ? &err : nullptr, 1);
    if (rc == ZOK) rc = Zini_DecodeBuf(&msg, *out);
    if (rc != ZOK) {
        Abnf_ErrLogPrint(&msg, nullptr);
        ZOS_LOG_ERR("%s", t.decodeFail);
    }
    if (haveErr) Abnf_ErrDestroy(&err);
    return rc == ZOK ? ZOK : ZINI_DECODE_FAILED;
}

// Loads a whole file into heap memory (the caller frees it); an empty
// file gives a null copy and a length of 0.
bool LoadFile(const char *path, char **data, uint32_t *len) {
    *data = nullptr;
    *len = 0;
    // A missing file is an expected answer: asked quietly first.
    if (Zfile_IsExist(path) != 1 || Zfile_IsDir(path) == 1) return false;
    uint64_t size = 0;
    if (Zfile_Size(path, &size) != ZOK || size > kMaxText) return false;
    if (size == 0) return true;
    ZFILE f = 0;
    if (Zfile_Open(path, "rb", &f) != ZOK) return false;
    auto *p = static_cast<char *>(Zos_Malloc(static_cast<uint32_t>(size)));
    uint32_t got = 0;
    const bool ok =
        p != nullptr && Zfile_Read(f, p, static_cast<uint32_t>(size), &got) == ZOK && got == size;
    Zfile_Close(f);
    if (!ok) {
        Zos_Free(p);
        return false;
    }
    *data = p;
    *len = got;
    return true;
}

// ---------------------------------------------------------------------
// Writing

struct EncodeGuard {
    ST_ABNF_ERR err{};
    bool haveErr = false;
    EncodeGuard() { haveErr = Abnf_ErrInit(&err) == ZOK; }
    ~EncodeGuard() {
        if (haveErr) Abnf_ErrDestroy(&err);
    }
    EncodeGuard(const EncodeGuard &) = delete;
    EncodeGuard &operator=(const EncodeGuard &) = delete;
};

uint32_t AddText(ST_ABNF_MSG *msg, const ST_ZOS_SSTR &text) {
    return Abnf_AddPstSStr(msg, &text);
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------
// Life cycle

KESTRO_API uint32_t Zini_Init(ZiniFile **ppstIni) {
    if (ppstIni == nullptr) return ZFAILED;
    *ppstIni = nullptr;
    void *p = nullptr;
    ZDBUF buf = Zos_DbufCreateClrd(nullptr, ZOS_DBUF_TYPE_MEM, kMemBlock, sizeof(ZiniFile), &p);
    if (buf == nullptr) return ZFAILED;
    auto *ini = static_cast<ZiniFile *>(p);
    ini->zMemBuf = buf;
    ini->zMsgBuf = nullptr;
    InitList(&ini->stSectLst);
    if (!zos::LiveAdd(ini)) {
        Zos_DbufDelete(buf);
        return ZFAILED;
    }
    // The trace only helps diagnostics: an object without it still works.
    (void)Zos_DbufDumpCreate(buf, "ini membuf", __FILE__, __LINE__);
    *ppstIni = ini;
    return ZOK;
}

KESTRO_API uint32_t Zini_Create(const char *pcPath, ZiniFile **ppstIni) {
    if (ppstIni == nullptr) {
        ZOS_LOG_ERR("%s", kCreate.nullParm);
        return ZFAILED;
    }
    *ppstIni = nullptr;
    if (pcPath == nullptr) {
        if (Zini_Init(ppstIni) != ZOK) {
            ZOS_LOG_ERR("%s", kCreate.initEmpty);
            return ZFAILED;
        }
        return ZINI_EMPTY_INPUT;
    }
    char *data = nullptr;
    uint32_t len = 0;
    if (!LoadFile(pcPath, &data, &len)) {
        if (Zini_Init(ppstIni) != ZOK) {
            ZOS_LOG_ERR("%s", kCreate.initEmpty);
            return ZFAILED;
        }
        return ZINI_LOAD_FAILED;
    }
    const uint32_t rc = CreateFrom(data, len, ppstIni, kCreate);
    Zos_Free(data);
    return rc;
}

KESTRO_API uint32_t Zini_CreateX(const char *pcText, uint32_t uiLen, ZiniFile **ppstIni) {
    if (ppstIni == nullptr) {
        ZOS_LOG_ERR("%s", kCreateX.nullParm);
        return ZFAILED;
    }
    *ppstIni = nullptr;
    if (pcText == nullptr || uiLen == 0) {
        if (Zini_Init(ppstIni) != ZOK) {
            ZOS_LOG_ERR("%s", kCreateX.initEmpty);
            return ZFAILED;
        }
        return ZINI_EMPTY_INPUT;
    }
    return CreateFrom(pcText, uiLen, ppstIni, kCreateX);
}

KESTRO_API uint32_t Zini_Delete(ZiniFile *pstIni) {
    ZiniFile *ini = Live(pstIni);
    if (ini == nullptr) return ZFAILED;
    // The object lies inside its memory buffer: read what is needed, then
    // forget the handle before the buffer goes.
    ZDBUF mem = ini->zMemBuf;
    ZDBUF out = ini->zMsgBuf;
    zos::LiveRemove(ini);
    if (out != nullptr) Zos_DbufDelete(out);
    Zos_DbufDelete(mem);
    return ZOK;
}

// ---------------------------------------------------------------------
// Lookups by index

KESTRO_API uint32_t Zini_GetSectCount(ZiniFile *pstIni) {
    ZiniFile *ini = Live(pstIni);
    return ini != nullptr ? ini->stSectLst.uiCount : 0;
}

KESTRO_API const char *Zini_GetSectName(ZiniFile *pstIni, uint32_t uiSectIdx) {
    ZiniFile *ini = Live(pstIni);
    Sect *s = ini != nullptr ? SectAt(ini, uiSectIdx) : nullptr;
    return s != nullptr ? Terminated(s->stName) : nullptr;
}

KESTRO_API uint32_t Zini_GetKeyCount(ZiniFile *pstIni, uint32_t uiSectIdx) {
    ZiniFile *ini = Live(pstIni);
    Sect *s = ini != nullptr ? SectAt(ini, uiSectIdx) : nullptr;
    return s != nullptr ? s->stKeyLst.uiCount : 0;
}

KESTRO_API uint32_t Zini_GetKeyCountX(ZiniFile *pstIni, const char *pcSect) {
    ZiniFile *ini = Live(pstIni);
    Sect *s = ini != nullptr && pcSect != nullptr ? FindSect(ini, pcSect) : nullptr;
    return s != nullptr ? s->stKeyLst.uiCount : 0;
}

KESTRO_API const char *Zini_GetKeyName(ZiniFile *pstIni, uint32_t uiSectIdx, uint32_t uiKeyIdx) {
    ZiniFile *ini = Live(pstIni);
    Key *k = ini != nullptr ? KeyAt(SectAt(ini, uiSectIdx), uiKeyIdx) : nullptr;
    return k != nullptr ? Terminated(k->stName) : nullptr;
}

KESTRO_API const char *Zini_GetKeyStr(ZiniFile *pstIni, uint32_t uiSectIdx, uint32_t uiKeyIdx,
                                      const char *pcDft) {
    ZiniFile *ini = Live(pstIni);
    Key *k = ini != nullptr ? KeyAt(SectAt(ini, uiSectIdx), uiKeyIdx) : nullptr;
    const char *v = k != nullptr ? Terminated(k->stValue) : nullptr;
    return v != nullptr ? v : pcDft;
}

KESTRO_API const char *Zini_GetKeyStrX(ZiniFile *pstIni, const char *pcSect, uint32_t uiKeyIdx,
                                       const char *pcDft, const char **ppcName) {
    if (ppcName != nullptr) *ppcName = nullptr;
    ZiniFile *ini = Live(pstIni);
    Sect *s = ini != nullptr && pcSect != nullptr ? FindSect(ini, pcSect) : nullptr;
    Key *k = KeyAt(s, uiKeyIdx);
    if (k == nullptr) return pcDft;
    if (ppcName != nullptr) *ppcName = Terminated(k->stName);
    const char *v = Terminated(k->stValue);
    return v != nullptr ? v : pcDft;
}

// ---------------------------------------------------------------------
// Lookups by name

KESTRO_API uint32_t Zini_GetXStr(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                                 const char *pcDft, ST_ZOS_SSTR *pstResult) {
    if (pstResult == nullptr) return ZFAILED;
    pstResult->pcStr = const_cast<char *>(pcDft);
    pstResult->uiLen = pcDft != nullptr ? static_cast<uint32_t>(std::strlen(pcDft)) : 0;
    ZiniFile *ini = Live(pstIni);
    if (ini == nullptr || pcSect == nullptr || pcKey == nullptr) return ZFAILED;
    // Every section of the name is searched and each hit overwrites the
    // result, so the last section with the key wins. Zini_PutStr and the
    // index lookups take the first section instead; the two differ on
    // purpose.
    uint32_t rc = ZFAILED;
    for (Sect *s = FirstSect(ini); s != nullptr; s = Next(s)) {
        if (!NameIs(s->stName, pcSect)) continue;
        if (Key *k = FindKey(s, pcKey)) {
            *pstResult = k->stValue;
            rc = ZOK;
        }
    }
    return rc;
}

KESTRO_API const char *Zini_GetStr(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                                   const char *pcDft) {
    ST_ZOS_SSTR v{};
    if (Zini_GetXStr(pstIni, pcSect, pcKey, nullptr, &v) != ZOK) return pcDft;
    const char *text = Terminated(v);
    return text != nullptr ? text : pcDft;
}

KESTRO_API uint32_t Zini_GetUi(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint32_t uiDft) {
    ST_ZOS_SSTR v{};
    if (Zini_GetXStr(pstIni, pcSect, pcKey, nullptr, &v) != ZOK || v.uiLen == 0) return uiDft;
    uint32_t n = 0;
    const bool hex = v.uiLen > 2 && v.pcStr[0] == '0' && (v.pcStr[1] == 'x' || v.pcStr[1] == 'X');
    const uint32_t rc =
        hex ? Zos_XStrToUint(v.pcStr + 2, v.uiLen - 2, &n) : Zos_StrToUint(v.pcStr, v.uiLen, &n);
    return rc == ZOK ? n : uiDft;
}

KESTRO_API uint16_t Zini_GetUs(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint16_t usDft) {
    const uint32_t n = Zini_GetUi(pstIni, pcSect, pcKey, usDft);
    return n < 0x10000u ? static_cast<uint16_t>(n) : usDft;
}

KESTRO_API uint8_t Zini_GetUc(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                              uint8_t ucDft) {
    const uint32_t n = Zini_GetUi(pstIni, pcSect, pcKey, ucDft);
    return n < 0x100u ? static_cast<uint8_t>(n) : ucDft;
}

// ---------------------------------------------------------------------
// Edits

KESTRO_API uint32_t Zini_PutStr(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                                const char *pcVal, uint32_t uiLen) {
    ZiniFile *ini = Live(pstIni);
    if (ini == nullptr || pcSect == nullptr || pcKey == nullptr || pcVal == nullptr || uiLen == 0) {
        ZOS_LOG_ERR("PutStr null parameter(s).");
        return ZFAILED;
    }
    ZDBUF buf = ini->zMemBuf;
    ST_ZOS_SSTR value{};
    if (!CopyText(buf, pcVal, uiLen, &value)) {
        ZOS_LOG_ERR("PutStr alloc memory.");
        return ZFAILED;
    }
    Sect *s = FindSect(ini, pcSect);
    if (s == nullptr) {
        s = NewRecord<Sect>(buf);
        if (s == nullptr ||
            !CopyText(buf, pcSect, static_cast<uint32_t>(std::strlen(pcSect)), &s->stName)) {
            ZOS_LOG_ERR("PutStr alloc memory.");
            return ZFAILED;
        }
        InitList(&s->stKeyLst);
        zos::DlistLinkTail(&ini->stSectLst, &s->stNode);
    }
    Key *k = FindKey(s, pcKey);
    if (k == nullptr) {
        k = NewRecord<Key>(buf);
        if (k == nullptr ||
            !CopyText(buf, pcKey, static_cast<uint32_t>(std::strlen(pcKey)), &k->stName)) {
            ZOS_LOG_ERR("PutStr alloc memory.");
            return ZFAILED;
        }
        zos::DlistLinkTail(&s->stKeyLst, &k->stNode);
    }
    k->stValue = value;
    return ZOK;
}

KESTRO_API uint32_t Zini_PutUi(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint32_t uiVal, uint32_t bHex) {
    char text[16] = "0x";
    if (bHex == 1) {
        Zos_UintToXStr(uiVal, text + 2, sizeof(text) - 2);
    } else {
        Zos_UintToStr(uiVal, text, sizeof(text));
    }
    return Zini_PutStr(pstIni, pcSect, pcKey, text, static_cast<uint32_t>(std::strlen(text)));
}

KESTRO_API uint32_t Zini_PutUs(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint16_t usVal, uint32_t bHex) {
    return Zini_PutUi(pstIni, pcSect, pcKey, usVal, bHex);
}

KESTRO_API uint32_t Zini_PutUc(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint8_t ucVal, uint32_t bHex) {
    return Zini_PutUi(pstIni, pcSect, pcKey, ucVal, bHex);
}

KESTRO_API uint32_t Zini_DelKey(ZiniFile *pstIni, const char *pcSect, const char *pcKey) {
    ZiniFile *ini = Live(pstIni);
    if (ini == nullptr || pcSect == nullptr || pcKey == nullptr) {
        ZOS_LOG_ERR("DelKey null parameter(s).");
        return ZFAILED;
    }
    for (Sect *s = FirstSect(ini); s != nullptr; s = Next(s)) {
        if (!NameIs(s->stName, pcSect)) continue;
        if (Key *k = FindKey(s, pcKey)) zos::DlistUnlink(&s->stKeyLst, &k->stNode);
    }
    return ZOK;
}

KESTRO_API uint32_t Zini_DelSect(ZiniFile *pstIni, const char *pcSect) {
    ZiniFile *ini = Live(pstIni);
    if (ini == nullptr || pcSect == nullptr) {
        ZOS_LOG_ERR("DelSect null parameter(s).");
        return ZFAILED;
    }
    Sect *s = FindSect(ini, pcSect);
    if (s == nullptr) return ZFAILED;
    zos::DlistUnlink(&ini->stSectLst, &s->stNode);
    return ZOK;
}

KESTRO_API uint32_t Zini_Update(ZiniFile *pstIni, const char *pcPath) {
    ZiniFile *ini = Live(pstIni);
    if (ini == nullptr || pcPath == nullptr) {
        ZOS_LOG_ERR("IniUpdate null parameter(s).");
        return ZFAILED;
    }
    if (ini->zMsgBuf != nullptr) {
        Zos_DbufDelete(ini->zMsgBuf);
        ini->zMsgBuf = nullptr;
    }
    ini->zMsgBuf = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, kMsgBlock);
    if (ini->zMsgBuf == nullptr) {
        ZOS_LOG_ERR("IniUpdate alloc memory.");
        return ZFAILED;
    }
    (void)Zos_DbufDumpCreate(ini->zMsgBuf, "ini msgbuf", __FILE__, __LINE__);
    {
        EncodeGuard g;
        ST_ABNF_MSG msg{};
        uint32_t rc = Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, nullptr, ini->zMsgBuf,
                                   g.haveErr ? &g.err : nullptr, 0);
        if (rc == ZOK) rc = Zini_EncodeBuf(&msg, ini);
        if (rc != ZOK) {
            Abnf_ErrLogPrint(&msg, nullptr);
            ZOS_LOG_ERR("IniUpdate encode ini buffer fail.");
            return ZFAILED;
        }
    }
    if (Zos_DbufSaveFile(ini->zMsgBuf, pcPath) != ZOK) {
        ZOS_LOG_ERR("IniUpdate write file fail.");
        return ZFAILED;
    }
    return ZOK;
}

// ---------------------------------------------------------------------
// Parser steps

KESTRO_API uint32_t Zini_DecodeBuf(ST_ABNF_MSG *pstMsg, ZiniFile *pstIni) {
    ZiniFile *ini = Live(pstIni);
    if (pstMsg == nullptr || ini == nullptr) return ZFAILED;
    ST_ZOS_SSTR text{};
    if (Abnf_GetScanningStr(pstMsg, &text) != ZOK) return ZFAILED;
    if (text.uiLen == 0) return ZOK;
    // The tree's texts point into a copy held by the object. Its extra NUL
    // lets a lookup terminate the last text in place.
    ST_ZOS_SSTR copy{};
    if (!CopyText(ini->zMemBuf, text.pcStr, text.uiLen, &copy)) return ZFAILED;
    ST_ABNF_ERR *err = pstMsg->pstErr;
    if (Abnf_MsgInit(pstMsg, ABNF_PROTO_TEXT, &copy, ini->zMemBuf, err, 1) != ZOK) {
        return ZFAILED;
    }
    Sect *cur = nullptr;
    for (;;) {
        if (Abnf_IgnWS(pstMsg) != ZOK) return ZINI_FAIL(pstMsg, "ini Buf ignore multi SP");
        const int c = Peek(pstMsg);
        if (c == -1) return ZOK;
        if (c == ';') {
            ST_ZOS_SSTR line{};
            if (Abnf_GetLine(pstMsg, &line) != ZOK) {
                return ZINI_FAIL(pstMsg, "ini Buf skip comment");
            }
            if (Peek(pstMsg) != -1 && Abnf_ExpectEol(pstMsg) != ZOK) {
                return ZINI_FAIL(pstMsg, "ini Buf expect eol");
            }
        } else if (c == '[') {
            Sect *s = NewRecord<Sect>(ini->zMemBuf);
            if (s == nullptr) return ZINI_FAIL(pstMsg, "ini Buf get section node data memory");
            InitList(&s->stKeyLst);
            if (Zini_DecodeSect(pstMsg, s) != ZOK) {
                return ZINI_FAIL(pstMsg, "ini Buf decode section");
            }
            zos::DlistLinkTail(&ini->stSectLst, &s->stNode);
            cur = s;
        } else if (c == '\r' || c == '\n') {
            if (Abnf_ExpectEol(pstMsg) != ZOK) return ZINI_FAIL(pstMsg, "ini Buf expect eol");
        } else {
            // A key before the first section fails the decode.
            if (cur == nullptr) return ZINI_FAIL(pstMsg, "ini Buf decode key");
            Key *k = NewRecord<Key>(ini->zMemBuf);
            if (k == nullptr) return ZINI_FAIL(pstMsg, "ini Buf get key node data memory");
            if (Zini_DecodeKey(pstMsg, k) != ZOK) return ZINI_FAIL(pstMsg, "ini Buf decode key");
            zos::DlistLinkTail(&cur->stKeyLst, &k->stNode);
        }
    }
}

KESTRO_API uint32_t Zini_DecodeSect(ST_ABNF_MSG *pstMsg, ST_ZINI_SECT *pstSect) {
    if (pstMsg == nullptr || pstSect == nullptr) return ZFAILED;
    if (Abnf_ExpectChr(pstMsg, '[', 1) != ZOK) return ZINI_FAIL(pstMsg, "ini Sect decode [");
    // The name runs to "]"; a line ending or NUL before it is an error.
    ST_ZOS_SSTR name{};
    const int c = Peek(pstMsg);
    if (c != -1 && c != ']' && c != '\r' && c != '\n' &&
        Abnf_GetSStrSepas(pstMsg, ']', '\r', '\n', '\0', &name) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini Sect decode name");
    }
    Trim(&name);
    if (name.uiLen == 0) return ZINI_FAIL(pstMsg, "ini Sect decode name");
    pstSect->stName = name;
    if (Abnf_ExpectChr(pstMsg, ']', 1) != ZOK) return ZINI_FAIL(pstMsg, "ini Sect decode ]");
    if (Abnf_IgnWS(pstMsg) != ZOK) return ZINI_FAIL(pstMsg, "ini Sect ignore multi SP");
    return CommentAndEol(pstMsg, &pstSect->stComment, "ini Sect expect eol");
}

KESTRO_API uint32_t Zini_DecodeKey(ST_ABNF_MSG *pstMsg, ST_ZINI_KEY *pstKey) {
    if (pstMsg == nullptr || pstKey == nullptr) return ZFAILED;
    // The name runs to "=" or SP (a line ending or NUL ends it too).
    ST_ZOS_SSTR name{};
    const int c = Peek(pstMsg);
    if (c != -1 && c != '=' && c != ' ' && c != '\r' && c != '\n' &&
        Abnf_GetSStrSepas(pstMsg, '=', ' ', '\r', '\n', &name) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini Key decode name");
    }
    Trim(&name);
    if (name.uiLen == 0) return ZINI_FAIL(pstMsg, "ini Key decode name");
    pstKey->stName = name;
    if (Abnf_IgnWS(pstMsg) != ZOK) return ZINI_FAIL(pstMsg, "ini Key ignore multi SP");
    if (Abnf_ExpectChr(pstMsg, '=', 1) != ZOK) return ZINI_FAIL(pstMsg, "ini Key decode =");
    if (Abnf_IgnWS(pstMsg) != ZOK) return ZINI_FAIL(pstMsg, "ini Key ignore multi SP");
    // The value runs to ";", a line ending, a NUL or the end; it may be
    // empty.
    ST_ZOS_SSTR value{};
    const int v = Peek(pstMsg);
    if (v != -1 && v != ';' && v != '\r' && v != '\n' && v != '\0' &&
        Abnf_GetSStrSepas(pstMsg, ';', '\r', '\n', '\0', &value) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini Key decode value");
    }
    Trim(&value);
    pstKey->stValue = value;
    return CommentAndEol(pstMsg, &pstKey->stComment, "ini Key expect eol");
}

// ---------------------------------------------------------------------
// Writer steps

KESTRO_API uint32_t Zini_EncodeBuf(ST_ABNF_MSG *pstMsg, ZiniFile *pstIni) {
    ZiniFile *ini = Live(pstIni);
    if (pstMsg == nullptr || ini == nullptr) return ZFAILED;
    for (Sect *s = FirstSect(ini); s != nullptr; s = Next(s)) {
        if (Zini_EncodeSect(pstMsg, s) != ZOK) {
            ZOS_LOG_ERR("IniEncodeBuf encode section.");
            return ZFAILED;
        }
    }
    return ZOK;
}

KESTRO_API uint32_t Zini_EncodeSect(ST_ABNF_MSG *pstMsg, ST_ZINI_SECT *pstSect) {
    if (pstMsg == nullptr || pstSect == nullptr) return ZFAILED;
    if (Abnf_AddPstChr(pstMsg, '[') != ZOK) return ZINI_FAIL(pstMsg, "ini IniEncodeSect add '['.");
    if (pstSect->stName.uiLen != 0 && AddText(pstMsg, pstSect->stName) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeSect encode section name.");
    }
    if (Abnf_AddPstChr(pstMsg, ']') != ZOK) return ZINI_FAIL(pstMsg, "ini IniEncodeSect add ']'.");
    if (Abnf_AddPstStrN(pstMsg, "\r\n", 2) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeSect encode CRLF.");
    }
    for (Key *k = FirstKey(pstSect); k != nullptr; k = Next(k)) {
        if (Zini_EncodeKey(pstMsg, k) != ZOK) {
            ZOS_LOG_ERR("IniEncodeSect encode key.");
            return ZFAILED;
        }
    }
    if (Abnf_AddPstStrN(pstMsg, "\r\n", 2) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeSect encode CRLF.");
    }
    return ZOK;
}

KESTRO_API uint32_t Zini_EncodeKey(ST_ABNF_MSG *pstMsg, ST_ZINI_KEY *pstKey) {
    if (pstMsg == nullptr || pstKey == nullptr) return ZFAILED;
    if (Abnf_AddPstStrN(pstMsg, "    ", 4) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeKey add pad.");
    }
    const bool hasName = pstKey->stName.uiLen != 0;
    const bool hasValue = pstKey->stValue.uiLen != 0;
    if (hasName && AddText(pstMsg, pstKey->stName) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeKey encode key name.");
    }
    if ((hasName || hasValue) && Abnf_AddPstChr(pstMsg, '=') != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeKey add '='.");
    }
    if (hasValue && AddText(pstMsg, pstKey->stValue) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeKey encode key value.");
    }
    if (Abnf_AddPstStrN(pstMsg, "\r\n", 2) != ZOK) {
        return ZINI_FAIL(pstMsg, "ini IniEncodeKey encode CRLF.");
    }
    return ZOK;
}

}  // extern "C"
