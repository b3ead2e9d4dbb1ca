/*
 * SMS PDU codec: transfer-layer PDUs of 3GPP TS 23.040 (SMS-SUBMIT,
 * SMS-DELIVER, SMS-DELIVER-REPORT, status reports) and relay-layer RPDUs of
 * 3GPP TS 24.011 (RP-DATA, RP-ACK, RP-ERROR, RP-SMMA), with the GSM 7-bit
 * default alphabet and UCS-2 of 3GPP TS 23.038.
 *
 * Results are byte counts, or -1 for failure, unless stated. Texts are
 * NUL-terminated 8-bit (ISO 8859-1) or UTF-8 strings; PDUs go out as raw
 * bytes or as upper-case hexadecimal text. Decoded 7-bit texts come out in
 * ISO 8859-1, decoded UCS-2 texts in UTF-8.
 *
 * Every function is re-entrant: the PDU buffer lives on the caller's stack
 * and the tables are read-only. No PDU longer than PDU_BUF_SIZE bytes (or
 * hexadecimal text longer than twice that) is built or parsed.
 */
#ifndef SMS_PDU_H
#define SMS_PDU_H

#include "zos_time.h"
#include "zos_type.h"

ZOS_BEGIN_DECLS

#define PDU_BUF_SIZE 512u
/* Longest address text a decoder writes, with its "+" and NUL: callers
 * hand address outputs of at least this size. Longer addresses are
 * refused. */
#define PDU_ADDR_SIZE 48u

/* Encoding codes derived from a data coding scheme. */
#define PDU_ENC_UNKNOWN 0
#define PDU_ENC_7BIT 1
#define PDU_ENC_8BIT 2
#define PDU_ENC_UCS2 3

/* TP-MTI classes reported by PDU_3gppDecodeSms in tp_type. */
#define PDU_TP_DELIVER 0
#define PDU_TP_STATUS_REPORT 2
#define PDU_TP_REPORT 5

typedef struct tagPDU_BUF {
    uint8_t aucData[PDU_BUF_SIZE];
    uint8_t *pucStart;  /* aucData */
    uint32_t uiLength;  /* encoding: the capacity; decoding: the bytes loaded */
    uint8_t *pucCursor; /* next byte to read or write */
} PduBuf;

/* User data located by _PDU_pduDecodeUserDataAndHeader. */
typedef struct tagPDU_USER_DATA {
    uint32_t auiReserved[3];
    const uint8_t *pucData; /* first byte after the header */
    uint32_t uiRemaining;   /* bytes from pucData to the end; all ones when none */
    uint32_t uiDataLen;     /* septets or bytes of user data */
} PduUserData;

/* ---- GSM 7-bit default alphabet ----------------------------------------- */

/* Default-alphabet code -> ISO 8859-1 ("?" where there is no 8-bit form;
 * code 27, the escape, maps to 27). */
KESTRO_API extern const int32_t lookup_ascii7to8[128];
/* ISO 8859-1 -> code 0-127; 256 + n: escape then n; 63 for a character
 * other than "?": not representable; -c: look-alike character c. */
KESTRO_API extern const int32_t lookup_ascii8to7[256];

/* ---- relay layer and whole messages ------------------------------------- */

/* RP-DATA (mobile to network) around a TPDU, to the service centre smsc
 * when it is a valid number. Raw bytes; out_size must be at least twice
 * the length. */
KESTRO_API int32_t PDU_3gppEncodeSubmit(const uint8_t *tpdu, uint32_t tpdu_len, const char *smsc,
                                        uint8_t mr, uint8_t *out, uint32_t out_size);
/* RP-SMMA; the second argument is not used. */
KESTRO_API int32_t PDU_3gppEncodeSmma(uint8_t mr, uint32_t unused, uint8_t *out, uint32_t out_size);
/* RP-ACK (cause 0) or RP-ERROR around an empty SMS-DELIVER-REPORT; the
 * first argument is not used. */
KESTRO_API int32_t PDU_3gppEncodeDeliverReport(uint32_t unused, uint8_t mr, uint8_t cause,
                                               uint8_t *out, uint32_t out_size);
/* SMS-SUBMIT. raw: bytes to out (out_size at least twice the length);
 * otherwise upper-case hexadecimal text (its length is the result). */
KESTRO_API int32_t PDU_3gppEncodeSubmitTPDU(uint8_t mr, const char *destination, const char *text,
                                            int32_t raw, void *out, uint32_t out_size,
                                            int32_t report);
/* SMS-DELIVER preceded by a service centre field, as hexadecimal text.
 * indication 1 or 2 selects a message-waiting coding group. */
KESTRO_API int32_t PDU_3gppEncodeDeliverySms(const char *originator, const char *text, char *out,
                                             uint32_t out_size, int32_t indication);
/* Parses an RPDU (length 0: rpdu is NUL-terminated hexadecimal text).
 * RP-DATA: the TPDU goes to tpdu_hex behind an empty service centre field
 * "00"; originator (PDU_ADDR_SIZE bytes) receives RP-OA. rp_mti, extra and
 * tpdu_hex may be null when not needed. Returns 0 or -1. */
KESTRO_API int32_t PDU_3gppDecodeSms(const void *rpdu, uint32_t length, char *tpdu_hex,
                                     uint32_t tpdu_hex_size, char *originator, uint32_t unused,
                                     int32_t *tp_type, int32_t *rp_mti, int32_t *mr,
                                     int32_t *extra);
/* Parses a hexadecimal SMS-DELIVER with a leading service centre field:
 * originator (PDU_ADDR_SIZE bytes), text and the service centre time stamp
 * (time may be null): year 2000 + two digits, and iTzOffset = the zone's
 * quarter hours x 900, positive whatever the zone's sign bit says; the
 * weekday and milliseconds are left as they were. Returns 0 or -1. */
KESTRO_API int32_t PDU_3gppGetSubmitPduMessageAndAddress(const char *hex, char *originator,
                                                         char *text, uint32_t text_size,
                                                         ST_ZOS_SYS_TIME *time);
/* 1 for "+" followed by digits or digits only (has_plus set to 1 when a
 * "+" leads), else 0. */
KESTRO_API int32_t isValidSmscRPDAddress(const char *text, int32_t *has_plus);

/* ---- text conversions --------------------------------------------------- */

/* Packs text into septets (least significant bit first). Sets *unrep to 1
 * when a character is not representable. 0 when there is nothing to pack
 * or the septet count exceeds out_size. */
KESTRO_API int32_t ascii_to_pdu(const char *text, uint8_t *out, uint32_t out_size, int32_t *unrep);
KESTRO_API int32_t count_septets(const char *text);
/* Unpacks septets from packed (which holds at least (septets * 7 + 7) / 8
 * bytes) and converts them; out_size must be at least 2 * septets + 1. */
KESTRO_API int32_t pdu_to_ascii(const uint8_t *packed, uint32_t septets, char *out,
                                uint32_t out_size);
/* Default-alphabet codes to 8-bit text; out_size at least 2 * count + 1,
 * else 0 and nothing written. Returns the text length. */
KESTRO_API int32_t convert_7bit_to_ascii(const uint8_t *codes, uint32_t count, char *out,
                                         uint32_t out_size);
/* The same with septets packed most significant bit first; count is the
 * number of septets. */
KESTRO_API int32_t ascii_to_7bitAsciiPdu(const char *text, uint8_t *out, uint32_t out_size,
                                         int32_t *unrep);
KESTRO_API int32_t pdu7BitAscii_to_ascii(const uint8_t *packed, uint32_t count, char *out,
                                         uint32_t out_size);
/* Plain 7-bit ASCII packed most significant bit first, without a table; a
 * byte of 0x80 or above sets *failed and gives 0. ansi7bitAscii_to_ascii
 * unpacks count characters into out, which holds count + 1 bytes. */
KESTRO_API int32_t ascii_to_7bitAsciiAnsi(const char *text, uint8_t *out, uint32_t size,
                                          int32_t *failed);
KESTRO_API int32_t ansi7bitAscii_to_ascii(const uint8_t *packed, uint32_t count, char *out);
/* Big-endian UCS-2 to UTF-8: -1 at a 0xFFFF unit, 0 for fewer than two
 * bytes or out_size below 4, else the UTF-8 length. */
KESTRO_API int32_t pdu_utf16_to_utf8(const uint8_t *ucs2, uint32_t bytes, char *out,
                                     uint32_t out_size);
/* Hexadecimal text (out holds 2 * count + 1 bytes); returns its length. */
KESTRO_API int32_t PDU_pduBytesToHexString(const uint8_t *bytes, uint32_t count, char *out);
/* Two digits a byte (out holds strlen(hex) / 2 bytes); a character that
 * is not a hexadecimal digit counts as 0. Returns the byte count. */
KESTRO_API int32_t PDU_pduHexStringToBytes(const char *hex, uint8_t *out);
KESTRO_API int32_t _PDU_pduHexCharToInt(char c);

/* ---- buffer primitives -------------------------------------------------- */

KESTRO_API int32_t _PDU_pduInitEncode(PduBuf *buf);
/* Copies length bytes, or with length 0 converts the NUL-terminated
 * hexadecimal text at bytes. -1 when the input does not fit the buffer. */
KESTRO_API int32_t _PDU_pduInitDecode(PduBuf *buf, const void *bytes, uint32_t length);
KESTRO_API int32_t _PDU_pduReadByte(PduBuf *buf, uint8_t *value);
KESTRO_API int32_t _PDU_pduWriteByte(PduBuf *buf, uint8_t value);
KESTRO_API int32_t _PDU_pduWriteBytes(PduBuf *buf, const uint8_t *bytes, uint32_t n);
KESTRO_API int32_t _PDU_pduAdvance(PduBuf *buf, uint32_t n);
KESTRO_API int32_t _PDU_pduRemaining(const PduBuf *buf);
KESTRO_API int32_t _PDU_pduGetLength(const PduBuf *buf);
KESTRO_API int32_t _PDU_pduCheckLength(const PduBuf *buf, uint32_t n);
KESTRO_API uint8_t _PDU_pduHexByteToBcd(uint32_t value);
KESTRO_API int32_t _PDU_pduBcdToChar(uint8_t nibble);
KESTRO_API int32_t _PDU_pduCharToBCD(char c);
/* out holds 2 * octets + 1 bytes. */
KESTRO_API int32_t _PDU_pduReadBCDToString(PduBuf *buf, uint32_t octets, char *out);
KESTRO_API int32_t _PDU_pduWriteStringToBCD(PduBuf *buf, const char *digits, uint32_t n);
/* octets BCD octets as digits, "+" in front for type 0x91; out holds
 * 2 * octets + 2 bytes. Returns octets or -1. */
KESTRO_API int32_t _PDU_pduDecodeAddress(PduBuf *buf, uint32_t octets, uint8_t type, char *out);
/* An address of `digits` semi-octets (out holds PDU_ADDR_SIZE bytes).
 * Returns the octets read or -1 (nothing consumed then). */
KESTRO_API int32_t _PDU_pduDecodeOriginatingAddress(PduBuf *buf, uint32_t digits, uint8_t type,
                                                    char *out);
KESTRO_API int32_t _PDU_pduDecodeUserData(PduBuf *buf, int32_t udhi, uint8_t dcs, char *out,
                                          uint32_t out_size);
KESTRO_API int32_t _PDU_pduDecodeUserDataAndHeader(PduBuf *buf, int32_t udhi, int32_t septets,
                                                   PduUserData *ud);
KESTRO_API void _PDU_pduInitUserData(PduUserData *ud);

ZOS_END_DECLS

#endif /* SMS_PDU_H */
