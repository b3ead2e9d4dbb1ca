/*
 * ABNF toolkit: the common engine under the text-protocol codecs (SDP,
 * MGCP, MEGACO/H.248, SIP, RTSP, HTTP, MSRP) and the INI reader.
 *
 * A caller describes one text to decode, or one data buffer to encode
 * into, with a message record (ST_ABNF_MSG). The scanner walks the text
 * token by token under the line-ending, folding and escape rules of the
 * record's protocol, and records the first error with its position in an
 * error record so that a report with a caret under the bad byte can be
 * printed. On top of the scanner sit typed rules (numbers, q-values,
 * addresses, tokens), their encoders, a token manager that maps keywords
 * to ids through a hash, list helpers and one-call drivers.
 *
 * Every scanning primitive stays inside (base, total length) whatever the
 * record's fields say: a record whose state would lead outside the text
 * fails instead. Results: 0 success, 1 failure, unless stated otherwise.
 */
#ifndef ABNF_H
#define ABNF_H

#include "zos_dlist.h"
#include "zos_dump.h"
#include "zos_hash.h"
#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Protocol ids: they select the line-ending and escape rules and name the
 * protocol in error reports. 0 (plain text: LF or CR LF ends a line) is
 * what the INI reader uses; 11 is a further protocol with no name. */
#define ABNF_PROTO_TEXT 0u
#define ABNF_PROTO_SDP 1u
#define ABNF_PROTO_MGCP 2u
#define ABNF_PROTO_MEGACO 3u
#define ABNF_PROTO_SIP 5u
#define ABNF_PROTO_RTSP 6u
#define ABNF_PROTO_HTTP 8u
#define ABNF_PROTO_MSRP 10u
#define ABNF_PROTO_OTHER 11u

/* Error codes stored in the error record. */
#define ABNF_ERR_NO_TKN_MGR 5u /* token scan without a token manager */
#define ABNF_ERR_IPV6 7u       /* malformed IPv6 address */
#define ABNF_ERR_COMMENT 8u    /* MEGACO comment meets NUL or the end */
#define ABNF_ERR_TOO_SHORT 12u /* string below the minimum length */
#define ABNF_ERR_TOO_LONG 13u  /* string above the maximum length */
#define ABNF_ERR_BELOW_MIN 14u /* number below the minimum value */
#define ABNF_ERR_ABOVE_MAX 15u /* number above the maximum value */
#define ABNF_ERR_FORM 16u      /* no digits, bad form, conflicting parameters */
#define ABNF_ERR_EXPECT 18u    /* expected character/line end/space/token absent */
#define ABNF_ERR_NO_TEXT 19u   /* no text left */
#define ABNF_ERR_NULL_STR 21u  /* encoder given a null or empty string */
#define ABNF_ERR_ADD 23u       /* appending to the output buffer failed */

/* Token scan answers. */
#define ABNF_TKN_UNKNOWN 0xFFFFFFFEu /* no token matched: still a success */
#define ABNF_TKN_INVALID 0xFFFFFFFFu /* invalid manager */

/* "No bound" of the number rules. */
#define ABNF_NO_BOUND 0xFFFFFFFFu

#define ABNF_CHRSET_MAGIC 0xCBCDCBCDu
#define ABNF_TKNMGR_MAGIC 0xCECECECEu

/* Buffer state: text base; token start; cursor; total length of the text;
 * remaining length counted from the token start; scanned length (bytes of
 * the current token between token start and cursor). The cursor can lie
 * beyond token start + scanned by the pending end-of-line count. */
typedef struct tagABNF_BUF_STATE {
    char *pcBase;
    char *pcTknStart;
    char *pcCur;
    uint32_t uiTotalLen;
    uint32_t uiRemainLen;
    uint32_t uiScannedLen;
} ST_ABNF_BUF_STATE;

/* Error record: position of the first logged frame (pointer into the
 * text), the dump "abnf" (depth 6) holding the frames, the error code and
 * the number of logged frames (at most 5). */
typedef struct tagABNF_ERR {
    char *pcErrPos;
    ZDUMP zDump;
    uint16_t usErrCode;
    uint16_t usFrameCount;
} ST_ABNF_ERR;

/* Character set: a caller's id, one class word per byte value (each bit a
 * class the caller chooses) and the magic word. A handle from
 * Abnf_ChrsetCreate; read-only once built, so readers may share it. */
typedef struct tagABNF_CHRSET {
    uint32_t uiId;
    uint32_t auiClass[256];
    uint32_t uiMagic;
} ST_ABNF_CHRSET;

/* Token manager entry: key class (token-key prefix), token id, text. The
 * text is not copied and must outlive the manager. */
typedef struct tagABNF_TKN {
    uint16_t usKeyClass;
    uint16_t usTknId;
    const char *pcText;
    uint32_t uiLen;
} ST_ABNF_TKN;

/* Token manager: a handle from Abnf_TknMgrCreate. The entries follow the
 * record in the same allocation. */
typedef struct tagABNF_TKN_MGR {
    uint16_t usMgrId;
    uint16_t usNoCase;
    uint16_t usCapacity;
    uint16_t usCount;
    uint32_t uiMagic;
    ST_ZOS_HASH stHash;
    ST_ABNF_TKN *pstTkns;
} ST_ABNF_TKN_MGR;

/* Static token table entry (Abnf_GetTknChrsetX, Abnf_AddTkn). */
typedef struct tagABNF_TKN_TBL {
    const char *pcText;
    uint16_t usLen;
    uint16_t usTknId;
} ST_ABNF_TKN_TBL;

/* Message record. Fields from ucFoldAllowed to aucSepa are scan
 * parameters: the rules set them, call one primitive and clear them again
 * (the bounds go back to ABNF_NO_BOUND). ucStopChr and ucPendEol are
 * results of the last scan and keep their values between calls. */
typedef struct tagABNF_MSG {
    uint32_t uiProtocol;
    /* Encoding: the data buffer receiving text. Decoding: the memory
     * buffer (any kind the universal buffer knows) decoded values come
     * from. */
    ZUBUF zBuf;
    ST_ABNF_ERR *pstErr; /* null: errors are not recorded */
    ST_ABNF_BUF_STATE stState;
    ST_ABNF_BUF_STATE stSaved;
    uint8_t ucFoldAllowed; /* SP/HT and, folding protocols, CR LF SP/HT */
    uint8_t ucWsAllowed;   /* SP and HT */
    uint8_t ucEscapeChr;   /* 0: none */
    uint32_t uiEscapeMask; /* classes allowed after an escape */
    const ST_ABNF_CHRSET *pstChrset;
    uint32_t uiChrsetMask;
    uint32_t uiMinLen; /* 0: none */
    uint32_t uiMaxLen; /* 0: none */
    uint32_t uiMinVal; /* ABNF_NO_BOUND: none */
    uint32_t uiMaxVal;
    uint32_t uiTknPrefix;
    ST_ABNF_TKN_MGR *pstTknMgr;
    uint8_t ucSepaOn;
    uint8_t ucStopChr; /* byte at which the last scan stopped, 0 unknown */
    uint8_t ucPendEol; /* bytes of a passed line ending not yet committed */
    uint8_t aucSepa[4];
} ST_ABNF_MSG;

typedef uint32_t (*PFN_ABNF_DECODE)(ST_ABNF_MSG *pstMsg, void *pData);
typedef uint32_t (*PFN_ABNF_ENCODE)(ST_ABNF_MSG *pstMsg, void *pData);
typedef uint32_t (*PFN_ABNF_COPY)(ZUBUF zBuf, void *pDst, const void *pSrc);

/* ---- Message and buffer state ----------------------------------------- */

/* Clears the record, stores protocol, buffer and error record, opens the
 * number bounds. Decoding (bDecode non-zero) needs a non-empty string
 * (warning "AbnfMsgInitL decode invalid string."); encoding needs a buffer
 * ("AbnfMsgInitL encode null memory buffer."). The record stays
 * initialised on failure. The X form takes a NUL-terminated text and no
 * error record. */
KESTRO_API uint32_t Abnf_MsgInit(ST_ABNF_MSG *pstMsg, uint32_t uiProtocol,
                                 const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, ST_ABNF_ERR *pstErr,
                                 uint32_t bDecode);
KESTRO_API uint32_t Abnf_MsgInitL(ST_ABNF_MSG *pstMsg, uint32_t uiProtocol,
                                  const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, ST_ABNF_ERR *pstErr,
                                  uint32_t bDecode);
KESTRO_API uint32_t Abnf_MsgInitX(ST_ABNF_MSG *pstMsg, uint32_t uiProtocol, const char *pcText,
                                  ZUBUF zBuf, uint32_t bDecode);

/* Save copies token start, cursor, remaining and scanned into pstSave
 * (null: the record's own saved state); restore copies them back, clears
 * the stop character and pending count and forgets logged error frames. */
KESTRO_API uint32_t Abnf_SaveBufState(ST_ABNF_MSG *pstMsg, ST_ABNF_BUF_STATE *pstSave);
KESTRO_API uint32_t Abnf_RestoreBufState(ST_ABNF_MSG *pstMsg, const ST_ABNF_BUF_STATE *pstSave);
/* Commits, then moves token start and cursor by iDelta (|iDelta| at most
 * the remaining length and at most total - remaining); the remaining
 * length grows by iDelta (a positive move lengthens it: kept as it is). */
KESTRO_API uint32_t Abnf_MoveBufState(ST_ABNF_MSG *pstMsg, int32_t iDelta);
/* Cursor back to the token start, scanned 0, stop character 0. */
KESTRO_API uint32_t Abnf_ResetBufState(ST_ABNF_MSG *pstMsg);
/* (token start, scanned length). */
KESTRO_API uint32_t Abnf_GetScannedStr(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetScannedStrL(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut);
/* The text not yet scanned (cursor, remaining - scanned - pending). */
KESTRO_API uint32_t Abnf_GetScanningStr(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetScanningStrL(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut);

/* ---- Character sets ---------------------------------------------------- */

KESTRO_API ST_ABNF_CHRSET *Abnf_ChrsetCreate(uint32_t uiId);
KESTRO_API uint32_t Abnf_ChrsetDelete(ST_ABNF_CHRSET *pstSet);
/* ORs uiMask into the class word of every byte of a NUL-terminated text. */
KESTRO_API uint32_t Abnf_ChrsetSetStr(ST_ABNF_CHRSET *pstSet, const char *pcText, uint32_t uiMask);
KESTRO_API uint32_t Abnf_ChrsetSetByte(ST_ABNF_CHRSET *pstSet, uint8_t ucByte, uint32_t uiMask);
/* Copies 256 class words (uiCount must be 256) over the set's words. */
KESTRO_API uint32_t Abnf_ChrsetCopy(ST_ABNF_CHRSET *pstSet, const uint32_t *puiTable,
                                    uint32_t uiCount);
/* 1 when the byte's class word has a bit of uiMask, else 0. */
KESTRO_API uint32_t Abnf_ChrsetFind(const ST_ABNF_CHRSET *pstSet, uint8_t ucByte, uint32_t uiMask);

/* ---- Scanning primitives ----------------------------------------------- */

KESTRO_API uint32_t Abnf_GetStr(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetLine(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut);
/* *puiId := the token id, ABNF_TKN_UNKNOWN (success) or all ones. */
KESTRO_API uint32_t Abnf_GetTkn(ST_ABNF_MSG *pstMsg, uint32_t *puiId);
KESTRO_API uint32_t Abnf_GetChr(ST_ABNF_MSG *pstMsg, uint8_t *pucChr);
/* bExact 1 compares exactly, any other value ignores letter case. Expect
 * consumes the byte even on a mismatch; TryExpect only on a match. */
KESTRO_API uint32_t Abnf_ExpectChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr, uint32_t bExact);
KESTRO_API uint32_t Abnf_TryExpectChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr, uint32_t bExact);
KESTRO_API uint32_t Abnf_ExpectEol(ST_ABNF_MSG *pstMsg);
KESTRO_API uint32_t Abnf_TryExpectEol(ST_ABNF_MSG *pstMsg);
KESTRO_API uint32_t Abnf_ExpectCRLF(ST_ABNF_MSG *pstMsg);
KESTRO_API uint32_t Abnf_TryExpectCRLF(ST_ABNF_MSG *pstMsg);
KESTRO_API uint32_t Abnf_ExpectLWS(ST_ABNF_MSG *pstMsg);
KESTRO_API uint32_t Abnf_TryExpectLWS(ST_ABNF_MSG *pstMsg);
KESTRO_API uint32_t Abnf_IgnWS(ST_ABNF_MSG *pstMsg);
KESTRO_API uint32_t Abnf_IgnLWS(ST_ABNF_MSG *pstMsg);
/* The line-ending step at a CR or LF under the cursor: *puiIsEol 1 for a
 * true line ending, 0 for a fold. */
KESTRO_API uint32_t Abnf_ProcEol(ST_ABNF_MSG *pstMsg, uint32_t *puiIsEol);
/* The escape step at the escape character under the cursor. */
KESTRO_API uint32_t Abnf_ProcEscapeChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr);

/* ---- Error log --------------------------------------------------------- */

KESTRO_API uint32_t Abnf_ErrInit(ST_ABNF_ERR *pstErr);
KESTRO_API uint32_t Abnf_ErrDestroy(ST_ABNF_ERR *pstErr);
/* Pushes one frame (the text, with uiLine shown as its value; uiA and uiB
 * are the caller's own numbers and are not shown). The first frame sets
 * the error position to the token start. A sixth frame fails. */
KESTRO_API uint32_t Abnf_ErrLog(ST_ABNF_MSG *pstMsg, uint32_t uiA, uint32_t uiB, const char *pcText,
                                uint32_t uiLine);
KESTRO_API uint32_t Abnf_ErrClear(ST_ABNF_MSG *pstMsg);
/* Prints the report (to the console); with a log name it also goes to the
 * system log under that name at level 2 (error). */
KESTRO_API uint32_t Abnf_ErrLogPrint(ST_ABNF_MSG *pstMsg, const char *pcLogName);

/* ---- Parameterised scans ----------------------------------------------- */

KESTRO_API uint32_t Abnf_GetSStrChrset(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                       uint32_t uiMask, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetSStrEscape(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                       uint32_t uiMask, uint8_t ucEscape, uint32_t uiEscMask,
                                       ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetSStrSepas(ST_ABNF_MSG *pstMsg, uint8_t ucSepa1, uint8_t ucSepa2,
                                      uint8_t ucSepa3, uint8_t ucSepa4, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetNSStrChrset(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                        uint32_t uiMask, uint32_t uiMinLen, uint32_t uiMaxLen,
                                        ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetNSStrEscape(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                        uint32_t uiMask, uint8_t ucEscape, uint32_t uiEscMask,
                                        uint32_t uiMinLen, uint32_t uiMaxLen, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Abnf_GetTknChrset(ST_ABNF_MSG *pstMsg, ST_ABNF_TKN_MGR *pstMgr,
                                      uint32_t uiPrefix, const ST_ABNF_CHRSET *pstSet,
                                      uint32_t uiMask, uint32_t *puiId);
KESTRO_API uint32_t Abnf_GetTknSepas(ST_ABNF_MSG *pstMsg, ST_ABNF_TKN_MGR *pstMgr,
                                     uint32_t uiPrefix, uint8_t ucSepa1, uint8_t ucSepa2,
                                     uint8_t ucSepa3, uint8_t ucSepa4, uint32_t *puiId);
/* Scans under the set and compares (ignoring case) with the table's
 * entries in order; on a match *puiId is the FIRST entry's id, whichever
 * entry matched (kept as it is). */
KESTRO_API uint32_t Abnf_GetTknChrsetX(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                       uint32_t uiMask, const ST_ABNF_TKN_TBL *pstTable,
                                       uint32_t uiCount, uint32_t *puiId);

/* ---- Numbers and addresses --------------------------------------------- */

KESTRO_API uint32_t Abnf_GetUiDigit(ST_ABNF_MSG *pstMsg, uint32_t *puiValue);
KESTRO_API uint32_t Abnf_GetUsDigit(ST_ABNF_MSG *pstMsg, uint16_t *pusValue);
KESTRO_API uint32_t Abnf_GetUcDigit(ST_ABNF_MSG *pstMsg, uint8_t *pucValue);
KESTRO_API uint32_t Abnf_GetXUiDigit(ST_ABNF_MSG *pstMsg, uint32_t *puiValue);
/* 1 to 3 digits read as thousandths: 5, 50 and 500 all give 500. */
KESTRO_API uint32_t Abnf_GetQval(ST_ABNF_MSG *pstMsg, uint16_t *pusValue);
/* The four parts in text order (network byte order in memory). */
KESTRO_API uint32_t Abnf_GetIpV4(ST_ABNF_MSG *pstMsg, uint32_t *puiAddr);
KESTRO_API uint32_t Abnf_GetIpV6(ST_ABNF_MSG *pstMsg, uint8_t *pucAddr);

/* Whole-string converters: the rule over (text, length), successful only
 * when it consumed the whole string. */
KESTRO_API uint32_t Abnf_NStr2UiDigit(const char *pcStr, uint32_t uiLen, uint32_t *puiValue);
KESTRO_API uint32_t Abnf_NStr2UsDigit(const char *pcStr, uint32_t uiLen, uint16_t *pusValue);
KESTRO_API uint32_t Abnf_NStr2UcDigit(const char *pcStr, uint32_t uiLen, uint8_t *pucValue);
KESTRO_API uint32_t Abnf_NStr2XUiDigit(const char *pcStr, uint32_t uiLen, uint32_t *puiValue);
KESTRO_API uint32_t Abnf_NStr2Ipv4(const char *pcStr, uint32_t uiLen, uint32_t *puiAddr);
KESTRO_API uint32_t Abnf_NStr2Ipv6(const char *pcStr, uint32_t uiLen, uint8_t *pucAddr);
/* 1 when the string is wholly an address of that kind, else 0. */
KESTRO_API uint32_t Abnf_NStrIsIpv4(const char *pcStr, uint32_t uiLen);
KESTRO_API uint32_t Abnf_NStrIsIpv6(const char *pcStr, uint32_t uiLen);

/* ---- Percent-encoding -------------------------------------------------- */

/* *puiSize: capacity on entry, produced length on return. */
KESTRO_API uint32_t Abnf_StrP2N(const char *pcText, uint32_t uiLen, char *pcOut, uint32_t *puiSize);
KESTRO_API uint32_t Abnf_SizeP2N(const char *pcText, uint32_t uiLen, uint32_t *puiSize);
/* Bytes in the set are copied, others written as "%xx" (lower case). The
 * capacity is checked only before a triplet: size the output with
 * Abnf_SizeN2P first. */
KESTRO_API uint32_t Abnf_StrN2P(const char *pcText, uint32_t uiLen, const ST_ABNF_CHRSET *pstSet,
                                uint32_t uiMask, char *pcOut, uint32_t *puiSize);
KESTRO_API uint32_t Abnf_SizeN2P(const char *pcText, uint32_t uiLen, const ST_ABNF_CHRSET *pstSet,
                                 uint32_t uiMask, uint32_t *puiSize);
KESTRO_API uint32_t Abnf_XChr2Digit(uint8_t ucChr, uint8_t *pucValue);

/* ---- Encoders (append to the message's output data buffer) ------------- */

KESTRO_API uint32_t Abnf_AddPstChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr);
KESTRO_API uint32_t Abnf_AddPstStr(ST_ABNF_MSG *pstMsg, const char *pcText);
KESTRO_API uint32_t Abnf_AddPstStrN(ST_ABNF_MSG *pstMsg, const char *pcText, uint32_t uiLen);
KESTRO_API uint32_t Abnf_AddPstSStr(ST_ABNF_MSG *pstMsg, const ST_ZOS_SSTR *pstStr);
KESTRO_API uint32_t Abnf_AddPstLSStr(ST_ABNF_MSG *pstMsg, const ST_ZOS_SSTR *pstStr);
KESTRO_API uint32_t Abnf_AddPairSStr(ST_ABNF_MSG *pstMsg, uint8_t ucChr, const ST_ZOS_SSTR *pstStr);
KESTRO_API uint32_t Abnf_AddUiDigit(ST_ABNF_MSG *pstMsg, uint32_t uiValue);
KESTRO_API uint32_t Abnf_AddUsDigit(ST_ABNF_MSG *pstMsg, uint16_t usValue);
KESTRO_API uint32_t Abnf_AddUcDigit(ST_ABNF_MSG *pstMsg, uint8_t ucValue);
KESTRO_API uint32_t Abnf_AddXUiDigit(ST_ABNF_MSG *pstMsg, uint32_t uiValue);
KESTRO_API uint32_t Abnf_AddQval(ST_ABNF_MSG *pstMsg, uint16_t usValue);
/* The 32-bit value's most significant byte first. */
KESTRO_API uint32_t Abnf_AddIpV4(ST_ABNF_MSG *pstMsg, uint32_t uiAddr);
/* The layer's IPv6 text (Zos_InetNtop): lower case, longest zero run as "::". */
KESTRO_API uint32_t Abnf_AddIpV6(ST_ABNF_MSG *pstMsg, const uint8_t *pucAddr);
KESTRO_API uint32_t Abnf_AddTkn(ST_ABNF_MSG *pstMsg, const ST_ABNF_TKN_TBL *pstTable,
                                uint32_t uiCount, uint32_t uiId);

/* ---- Token manager ----------------------------------------------------- */

/* bNoCase non-zero: lookups ignore letter case. */
KESTRO_API ST_ABNF_TKN_MGR *Abnf_TknMgrCreate(uint32_t uiId, uint32_t bNoCase, uint16_t usCapacity);
KESTRO_API uint32_t Abnf_TknMgrDelete(ST_ABNF_TKN_MGR *pstMgr);
/* Texts are (pointer, length) and are not copied. */
KESTRO_API uint32_t Abnf_TknAdd(ST_ABNF_TKN_MGR *pstMgr, uint16_t usKeyClass, const char *pcText,
                                uint32_t uiLen, uint16_t usTknId);
/* The token id; ABNF_TKN_UNKNOWN when absent; all ones for a null
 * argument or an invalid manager. */
KESTRO_API uint32_t Abnf_TknFind(ST_ABNF_TKN_MGR *pstMgr, uint16_t usKeyClass, const char *pcText,
                                 uint32_t uiLen);
KESTRO_API uint32_t Abnf_TknFindByKey(ST_ABNF_TKN_MGR *pstMgr, uint16_t usKeyClass, uint32_t uiKey,
                                      const char *pcText, uint32_t uiLen);
/* Hash compare functions (PFN_ZOS_HASHCMP): entry, key class, text,
 * length; 0 when the entry matches. */
KESTRO_API uint32_t Abnf_TknHashComp(uintptr_t zEntry, uintptr_t zKeyClass, uintptr_t zText,
                                     uintptr_t zLen);
KESTRO_API uint32_t Abnf_TknHashCompNoCase(uintptr_t zEntry, uintptr_t zKeyClass, uintptr_t zText,
                                           uintptr_t zLen);

/* ---- Lists of decoded items -------------------------------------------- */

/* Item nodes are (next, prev, data pointer) followed by the item data,
 * from the buffer; a list header that is all zero is set up on first use
 * with no length limit (it takes no mutex: decoded lists belong to one
 * thread and go with their buffer). */
KESTRO_API uint32_t Abnf_ListAllocData(ZUBUF zBuf, uint32_t uiSize, void **ppItem);
KESTRO_API uint32_t Abnf_ListAppendData(ZUBUF zBuf, ST_ZOS_DLIST *pstList, void *pData);
KESTRO_API uint32_t Abnf_AnyLstItemDecode(ST_ABNF_MSG *pstMsg, ST_ZOS_DLIST *pstList,
                                          uint32_t uiSize, PFN_ABNF_DECODE pfnDecode);
KESTRO_API uint32_t Abnf_AnyLstAddParm(ZUBUF zBuf, ST_ZOS_DLIST *pstList, uint32_t uiSize,
                                       void **ppItem);
KESTRO_API uint32_t Abnf_AnyLstRmvParm(ST_ZOS_DLIST *pstList, void *pItem);
KESTRO_API uint32_t Abnf_AnyLstCpyParm(ZUBUF zBuf, ST_ZOS_DLIST *pstList, const void *pSrc,
                                       PFN_ABNF_COPY pfnCopy, uint32_t uiSize, void **ppItem);
/* Item encoder results: 0 wrote, 1 failed, 2 wrote nothing (no separator
 * follows it). The X form takes a separator text and fails on any
 * non-zero item result. */
KESTRO_API uint32_t Abnf_AnyLstEncode(ST_ABNF_MSG *pstMsg, ST_ZOS_DLIST *pstList, uint32_t bLeading,
                                      uint32_t bTrailing, uint8_t ucSepa,
                                      PFN_ABNF_ENCODE pfnEncode);
KESTRO_API uint32_t Abnf_AnyLstEncodeX(ST_ABNF_MSG *pstMsg, ST_ZOS_DLIST *pstList,
                                       uint32_t bLeading, uint32_t bTrailing, const char *pcSepa,
                                       PFN_ABNF_ENCODE pfnEncode);

/* ---- Drivers ----------------------------------------------------------- */

/* Decode a (pointer, length) text with pfnDecode(msg, target); the report
 * is printed on failure. */
KESTRO_API uint32_t Abnf_AnyDecode(uint32_t uiProtocol, PFN_ABNF_DECODE pfnDecode,
                                   const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, void *pTarget);
KESTRO_API uint32_t Abnf_AnyDecodeL(uint32_t uiProtocol, PFN_ABNF_DECODE pfnDecode,
                                    const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, void *pTarget);
/* As Abnf_AnyDecode with a memory buffer of its own (data buffer type 2,
 * block size 128), returned in *pzResult on success. */
KESTRO_API uint32_t Abnf_AnyDecodeX(uint32_t uiProtocol, PFN_ABNF_DECODE pfnDecode,
                                    const ST_ZOS_SSTR *pstStr, ZDBUF *pzResult, void *pTarget);
KESTRO_API uint32_t Abnf_AnyEncode(uint32_t uiProtocol, PFN_ABNF_ENCODE pfnEncode, ZDBUF zBuf,
                                   void *pSource);
/* Into a new data buffer (type 1, block size 256); with bFlat a buffer of
 * two or more blocks is flattened into one. */
KESTRO_API uint32_t Abnf_AnyEncodeX(uint32_t uiProtocol, PFN_ABNF_ENCODE pfnEncode, void *pSource,
                                    uint32_t bFlat, ZDBUF *pzResult);

ZOS_END_DECLS

#endif /* ABNF_H */
