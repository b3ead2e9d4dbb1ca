/*
 * INI files: a text of sections and keys read into a tree held in one
 * memory buffer, looked up by index or by name with typed conversions,
 * edited, and written back to a file.
 *
 * Text as read (a line ends at LF or CR LF; the last line may have none):
 *   blank     only SP/HT
 *   comment   optional SP/HT, ";" and any text (not kept)
 *   section   "[" name "]", optional SP/HT, optional ";" comment
 *   key       name, optional SP/HT, "=", optional SP/HT, value, optional
 *             ";" comment
 * Names and values are trimmed of SP/HT. A key name ends at "=" or SP, a
 * value at ";", CR or LF, a section name at "]". A key before the first
 * section fails the whole decode. Parse errors go to the ABNF error record
 * (abnf.h) and its report is printed.
 *
 * Text as written by Zini_Update, every line ended by CR LF: "[" name "]",
 * then each key as four spaces, name, "=", value (a key with neither name
 * nor value as the four spaces alone, one with an empty value as name and
 * "="), then an empty line. Comments are not written back.
 *
 * The object and every record and text live in the object's memory buffer
 * (a data buffer of type 2, block size 4096, traced as "ini membuf"), so
 * pointers handed out stay valid until Zini_Delete; deleted sections and
 * keys keep their memory until then. Lookups that return a text write a
 * NUL after it in the memory buffer. Names compare exactly (case matters).
 *
 * Objects are handles: a call with a deleted one gets the null-handle
 * result. An object belongs to one thread at a time.
 */
#ifndef ZINI_H
#define ZINI_H

#include "abnf.h"
#include "zos_dlist.h"
#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Result codes of Zini_Create / Zini_CreateX besides ZOK and ZFAILED; with
 * each of them *ppstIni is a usable object. */
#define ZINI_EMPTY_INPUT 0xFFFFFFFFu   /* -1: no path, or a null or empty text */
#define ZINI_LOAD_FAILED 0xFFFFFFFEu   /* -2: the file could not be loaded */
#define ZINI_DECODE_FAILED 0xFFFFFFFCu /* -4: holds what decoded before the error */

/* Key record (a list node first). Texts are (pointer, length) into the
 * memory buffer; an empty text is {NULL, 0}. */
typedef struct tagZINI_KEY {
    ST_ZOS_DLIST_NODE stNode;
    ST_ZOS_SSTR stName;
    ST_ZOS_SSTR stValue;
    ST_ZOS_SSTR stComment;
} ST_ZINI_KEY;

/* Section record: name, comment, keys in file order. */
typedef struct tagZINI_SECT {
    ST_ZOS_DLIST_NODE stNode;
    ST_ZOS_SSTR stName;
    ST_ZOS_SSTR stComment;
    ST_ZOS_DLIST stKeyLst;
} ST_ZINI_SECT;

/* The INI object, the first item of its own memory buffer: that buffer,
 * the output buffer of the last Zini_Update (null until then) and the
 * sections in file order. */
typedef struct tagZINI_FILE {
    ZDBUF zMemBuf;
    ZDBUF zMsgBuf;
    ST_ZOS_DLIST stSectLst;
} ZiniFile;

/* ---- Life cycle -------------------------------------------------------- */

/* An empty object; 1 (and *ppstIni null) when its buffer cannot be made. */
KESTRO_API uint32_t Zini_Init(ZiniFile **ppstIni);
/* Loads a file through the file module and decodes it: ZOK, or one of the
 * codes above with a usable object, or 1 with none ("IniCreate null
 * parameter." / "IniCreate init ini fail."). An empty file is an empty
 * object and ZOK. */
KESTRO_API uint32_t Zini_Create(const char *pcPath, ZiniFile **ppstIni);
/* The same over a text in memory (the text is copied; the caller keeps
 * it). */
KESTRO_API uint32_t Zini_CreateX(const char *pcText, uint32_t uiLen, ZiniFile **ppstIni);
/* Frees the object with its memory and output buffers. */
KESTRO_API uint32_t Zini_Delete(ZiniFile *pstIni);

/* ---- Lookups by index (the first section of a name counts) ------------- */

KESTRO_API uint32_t Zini_GetSectCount(ZiniFile *pstIni);
/* Null when out of range or empty. */
KESTRO_API const char *Zini_GetSectName(ZiniFile *pstIni, uint32_t uiSectIdx);
/* 0 when the section is out of range. */
KESTRO_API uint32_t Zini_GetKeyCount(ZiniFile *pstIni, uint32_t uiSectIdx);
/* Keys of the first section of that name; 0 when there is none. */
KESTRO_API uint32_t Zini_GetKeyCountX(ZiniFile *pstIni, const char *pcSect);
/* Null when out of range or empty. */
KESTRO_API const char *Zini_GetKeyName(ZiniFile *pstIni, uint32_t uiSectIdx, uint32_t uiKeyIdx);
/* The value, or pcDft when out of range or empty. */
KESTRO_API const char *Zini_GetKeyStr(ZiniFile *pstIni, uint32_t uiSectIdx, uint32_t uiKeyIdx,
                                      const char *pcDft);
/* The same in the first section of that name; *ppcName (optional) gets
 * the key's name, or null when out of range. */
KESTRO_API const char *Zini_GetKeyStrX(ZiniFile *pstIni, const char *pcSect, uint32_t uiKeyIdx,
                                       const char *pcDft, const char **ppcName);

/* ---- Lookups by name (the LAST section of a name that has the key wins,
 * unlike the index lookups and Zini_PutStr: kept on purpose) ------------ */

/* *pstResult := the value (not NUL-terminated, possibly empty), or pcDft
 * (null: empty) when no section has the key. ZOK when found, ZFAILED for
 * the default or bad arguments. */
KESTRO_API uint32_t Zini_GetXStr(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                                 const char *pcDft, ST_ZOS_SSTR *pstResult);
/* The value NUL-terminated, or pcDft when absent or empty. */
KESTRO_API const char *Zini_GetStr(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                                   const char *pcDft);
/* The value as a number: "0x"/"0X" then 1 to 8 hexadecimal digits, or
 * decimal up to 4294967295; the default when absent or not a number. The
 * 16- and 8-bit forms give the default for 0x10000 / 256 and above. */
KESTRO_API uint32_t Zini_GetUi(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint32_t uiDft);
KESTRO_API uint16_t Zini_GetUs(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint16_t usDft);
KESTRO_API uint8_t Zini_GetUc(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                              uint8_t ucDft);

/* ---- Edits ------------------------------------------------------------- */

/* Sets a value (pointer, length; copied) in the first section of that
 * name, appended when absent; the first key of that name, appended when
 * absent. Every argument non-null and the value non-empty, else "PutStr
 * null parameter(s)." and 1. */
KESTRO_API uint32_t Zini_PutStr(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                                const char *pcVal, uint32_t uiLen);
/* The number in decimal, or with bHex 1 as "0x" and upper-case hex digits;
 * no range check. */
KESTRO_API uint32_t Zini_PutUi(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint32_t uiVal, uint32_t bHex);
KESTRO_API uint32_t Zini_PutUs(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint16_t usVal, uint32_t bHex);
KESTRO_API uint32_t Zini_PutUc(ZiniFile *pstIni, const char *pcSect, const char *pcKey,
                               uint8_t ucVal, uint32_t bHex);
/* Removes the first key of that name from every section of that name; ZOK
 * also when none matched. */
KESTRO_API uint32_t Zini_DelKey(ZiniFile *pstIni, const char *pcSect, const char *pcKey);
/* Removes the first section of that name; ZFAILED when there is none. */
KESTRO_API uint32_t Zini_DelSect(ZiniFile *pstIni, const char *pcSect);

/* Encodes the tree into a new output buffer (a data buffer of type 1,
 * block size 4096, traced as "ini msgbuf"; the previous one is deleted)
 * and saves it by the file module's safe save: a failed save leaves the
 * old file whole. Failures: "IniUpdate alloc memory.", "IniUpdate encode
 * ini buffer fail.", "IniUpdate write file fail.". */
KESTRO_API uint32_t Zini_Update(ZiniFile *pstIni, const char *pcPath);

/* ---- Parser and writer steps ------------------------------------------- */

/* Decodes the text not yet scanned of a decoding message: copies it into
 * the object's memory buffer, points the message at the copy (protocol
 * 0, buffer the memory buffer, the message's error record kept) and
 * appends what it reads to the object. An empty text decodes to nothing. */
KESTRO_API uint32_t Zini_DecodeBuf(ST_ABNF_MSG *pstMsg, ZiniFile *pstIni);
/* One section line from "[" through its line ending; one key line from
 * its name through its line ending. Texts point into the scanned text. */
KESTRO_API uint32_t Zini_DecodeSect(ST_ABNF_MSG *pstMsg, ST_ZINI_SECT *pstSect);
KESTRO_API uint32_t Zini_DecodeKey(ST_ABNF_MSG *pstMsg, ST_ZINI_KEY *pstKey);
/* Append the written form to an encoding message's data buffer. */
KESTRO_API uint32_t Zini_EncodeBuf(ST_ABNF_MSG *pstMsg, ZiniFile *pstIni);
KESTRO_API uint32_t Zini_EncodeSect(ST_ABNF_MSG *pstMsg, ST_ZINI_SECT *pstSect);
KESTRO_API uint32_t Zini_EncodeKey(ST_ABNF_MSG *pstMsg, ST_ZINI_KEY *pstKey);

ZOS_END_DECLS

#endif /* ZINI_H */
