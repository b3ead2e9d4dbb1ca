// ABNF scanner: buffer state, line endings and folds per protocol, escapes
// per protocol, white space, single characters, character sets, the error
// record and its report.
#include <string>
#include <vector>

#include "abnf_test.h"

using ktest::AbnfDec;
using ktest::RunStep;
using ktest::S;
using ktest::Step;

namespace {

// A set with class 1 = letters, class 2 = digits, class 4 = hex digits.
struct Sets {
    ST_ABNF_CHRSET *set = Abnf_ChrsetCreate(7);
    Sets() {
        Abnf_ChrsetSetStr(set, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", 1);
        Abnf_ChrsetSetStr(set, "0123456789", 2);
        Abnf_ChrsetSetStr(set, "0123456789abcdefABCDEF", 4);
    }
    ~Sets() { Abnf_ChrsetDelete(set); }
};

std::string Str(ST_ABNF_MSG *msg) {
    ST_ZOS_SSTR out{};
    return Abnf_GetStr(msg, &out) == ZOK ? S(out) : std::string("<fail>");
}

}  // namespace

TEST_F(ZosTest, AbnfMsgInitAndState) {
    Zos_LogOpen(Zos_LogGetZosId(), ZOS_LOG_LEVEL_WARN);  // the warning texts too
    ST_ABNF_MSG msg;
    ST_ZOS_SSTR empty{nullptr, 0};
    EXPECT_EQ(Abnf_MsgInit(&msg, 5, &empty, nullptr, nullptr, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfMsgInitL decode invalid string."));
    EXPECT_EQ(msg.uiMinVal, ABNF_NO_BOUND);
    EXPECT_EQ(msg.uiMaxVal, ABNF_NO_BOUND);
    EXPECT_EQ(Abnf_MsgInit(&msg, 5, nullptr, nullptr, nullptr, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfMsgInitL encode null memory buffer."));
    EXPECT_EQ(Abnf_MsgInitX(&msg, 1, "v=0", nullptr, 1), ZOK);
    EXPECT_EQ(msg.stState.uiTotalLen, 3u);
    EXPECT_EQ(msg.stSaved.pcBase, msg.stState.pcBase);

    // Scanned and scanning parts, and a reset.
    Sets sets;
    AbnfDec d(0, "abc123 rest");
    ST_ZOS_SSTR out{};
    ASSERT_EQ(Abnf_GetSStrChrset(&d.msg, sets.set, 1, &out), ZOK);
    EXPECT_EQ(S(out), "abc");
    EXPECT_EQ(d.msg.ucStopChr, '1');
    AbnfDec ws(0, "ab\tcd");  // white space outside the set stops the scan too
    ASSERT_EQ(Abnf_GetSStrChrset(&ws.msg, sets.set, 1, &out), ZOK);
    EXPECT_EQ(S(out), "ab");
    EXPECT_EQ(ws.msg.ucStopChr, '\t');
    uint8_t tab = 0;
    ASSERT_EQ(Abnf_GetChr(&ws.msg, &tab), ZOK);
    ASSERT_EQ(Abnf_GetSStrChrset(&ws.msg, sets.set, 1, &out), ZOK);
    EXPECT_EQ(S(out), "cd");
    EXPECT_EQ(ws.msg.ucStopChr, 0) << "a scan that reaches the end stops at no character";
    EXPECT_EQ(Abnf_GetScannedStr(&d.msg, &out), ZOK);
    EXPECT_EQ(S(out), "abc");
    EXPECT_EQ(Abnf_GetScanningStr(&d.msg, &out), ZOK);
    EXPECT_EQ(S(out), "123 rest");
    EXPECT_EQ(Abnf_ResetBufState(&d.msg), ZOK);
    EXPECT_EQ(d.msg.stState.uiScannedLen, 0u);
    EXPECT_EQ(Abnf_GetScannedStrL(&d.msg, nullptr), ZOK);
    EXPECT_EQ(Abnf_GetScannedStr(&d.msg, nullptr), ZFAILED);
    ST_ABNF_MSG blank{};
    EXPECT_EQ(Abnf_GetScanningStrL(&blank, &out), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfGetScanningStrL invalid message."));
    EXPECT_EQ(Abnf_GetScannedStrL(&blank, &out), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfGetScannedStrL invalid message."));
    EXPECT_EQ(Abnf_GetStr(&blank, &out), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfGetStr invalid message."));
}

TEST_F(ZosTest, AbnfSaveRestoreMove) {
    AbnfDec d(0, "0123456789");
    uint8_t c = 0;
    ST_ABNF_BUF_STATE save{};
    ASSERT_EQ(Abnf_GetChr(&d.msg, &c), ZOK);
    EXPECT_EQ(c, '0');
    EXPECT_EQ(d.msg.ucStopChr, '1');
    EXPECT_EQ(Abnf_SaveBufState(&d.msg, &save), ZOK);
    Abnf_GetChr(&d.msg, &c);
    Abnf_GetChr(&d.msg, &c);
    EXPECT_EQ(c, '2');
    EXPECT_EQ(Abnf_RestoreBufState(&d.msg, &save), ZOK);
    Abnf_GetChr(&d.msg, &c);
    EXPECT_EQ(c, '1');
    // The record's own saved state when none is given.
    EXPECT_EQ(Abnf_SaveBufState(&d.msg, nullptr), ZOK);
    Abnf_GetChr(&d.msg, &c);
    EXPECT_EQ(Abnf_RestoreBufState(&d.msg, nullptr), ZOK);
    EXPECT_EQ(Abnf_SaveBufState(nullptr, &save) + Abnf_RestoreBufState(nullptr, &save),
              2 * ZFAILED);
    Abnf_GetChr(&d.msg, &c);
    EXPECT_EQ(c, '2');

    // Move: after the commit 3 bytes are behind and 7 remain. A backward
    // move shrinks the remaining length and a forward move grows it (the
    // kept asymmetry); bounds are |delta| <= remaining and <= total - remaining.
    AbnfDec m(0, "0123456789");
    Abnf_GetChr(&m.msg, &c);
    Abnf_GetChr(&m.msg, &c);
    Abnf_GetChr(&m.msg, &c);
    EXPECT_EQ(Abnf_MoveBufState(&m.msg, -4), ZFAILED);
    ASSERT_EQ(Abnf_MoveBufState(&m.msg, -2), ZOK);
    EXPECT_EQ(m.start(), 1u);
    EXPECT_EQ(m.msg.stState.uiRemainLen, 5u);
    ASSERT_EQ(Abnf_MoveBufState(&m.msg, 3), ZOK);
    EXPECT_EQ(m.start(), 4u);
    EXPECT_EQ(m.msg.stState.uiRemainLen, 8u);
    // The grown remaining length never makes a scan read past the text.
    ST_ZOS_SSTR out{};
    ASSERT_EQ(Abnf_GetStr(&m.msg, &out), ZOK);
    EXPECT_EQ(S(out), "456789");
    // At the end of the text there is no string left to take.
    EXPECT_EQ(Abnf_GetStr(&m.msg, &out), ZFAILED);
    EXPECT_TRUE(out.pcStr == nullptr && out.uiLen == 0);
    EXPECT_EQ(Abnf_MoveBufState(nullptr, 1), ZFAILED);
    // Right back to the start of the text is within the bounds.
    AbnfDec back(0, "0123");
    Abnf_GetChr(&back.msg, &c);
    Abnf_GetChr(&back.msg, &c);
    ASSERT_EQ(Abnf_MoveBufState(&back.msg, -2), ZOK);
    EXPECT_EQ(back.start(), 0u);
}

TEST_F(ZosTest, AbnfLineEndingsPerProtocol) {
    uint32_t eol = 9;
    // SDP: a lone LF is no line ending, CR LF is.
    AbnfDec sdp(1, "\nx");
    EXPECT_EQ(Abnf_ProcEol(&sdp.msg, &eol), ZFAILED);
    EXPECT_EQ(sdp.code(), ABNF_ERR_EXPECT);
    AbnfDec sdp2(1, "\r\nx");
    EXPECT_EQ(Abnf_ProcEol(&sdp2.msg, &eol), ZOK);
    EXPECT_EQ(sdp2.msg.ucPendEol, 2);
    uint8_t next = 0;  // the next token starts behind the pending ending
    EXPECT_EQ(Abnf_GetChr(&sdp2.msg, &next), ZOK);
    EXPECT_EQ(next, 'x');
    // MGCP: LF is one, pending 1; CR LF pending 2; a lone CR is none.
    AbnfDec mgcp(2, "\nx");
    EXPECT_EQ(Abnf_ProcEol(&mgcp.msg, &eol), ZOK);
    EXPECT_EQ(eol, 1u);
    EXPECT_EQ(mgcp.msg.ucPendEol, 1);
    EXPECT_EQ(mgcp.cur(), 1u);
    AbnfDec cr(2, "\rx");
    EXPECT_EQ(Abnf_ProcEol(&cr.msg, &eol), ZFAILED);
    // SIP: CR LF SP is a fold (scanned), CR LF at the end is an ending.
    AbnfDec fold(5, "\r\n b");
    EXPECT_EQ(Abnf_ProcEol(&fold.msg, &eol), ZOK);
    EXPECT_EQ(eol, 0u);
    EXPECT_EQ(fold.msg.stState.uiScannedLen, 3u);
    AbnfDec end(5, "\r\n");
    EXPECT_EQ(Abnf_ProcEol(&end.msg, &eol), ZOK);
    EXPECT_EQ(eol, 1u);
    EXPECT_EQ(end.msg.ucPendEol, 2);
    // The ending stays pending when the cursor is reset: none of the text is
    // left to scan.
    ST_ZOS_SSTR rest{};
    ASSERT_EQ(Abnf_ResetBufState(&end.msg), ZOK);
    EXPECT_EQ(Abnf_GetScanningStr(&end.msg, &rest), ZOK);
    EXPECT_TRUE(rest.pcStr == nullptr && rest.uiLen == 0) << S(rest);
    // An ending that ExpectEol meets itself is committed, and the byte behind
    // it becomes the stop character.
    AbnfDec met(5, "\r\nx");
    EXPECT_EQ(Abnf_ExpectEol(&met.msg), ZOK);
    EXPECT_EQ(met.start(), 2u);
    EXPECT_EQ(met.msg.ucStopChr, 'x');
    AbnfDec lf(5, "\n");
    EXPECT_EQ(Abnf_ProcEol(&lf.msg, &eol), ZFAILED);

    // Lines: GetLine excludes the ending and ExpectEol takes a pending one.
    for (uint32_t proto : {0u, 2u, 3u}) {
        AbnfDec d(proto, "first\nsecond\r\nthird");
        ST_ZOS_SSTR out{};
        ASSERT_EQ(Abnf_GetLine(&d.msg, &out), ZOK);
        EXPECT_EQ(S(out), "first");
        EXPECT_EQ(Abnf_ExpectEol(&d.msg), ZOK);
        ASSERT_EQ(Abnf_GetLine(&d.msg, &out), ZOK);
        EXPECT_EQ(S(out), "second");
        ASSERT_EQ(Abnf_GetLine(&d.msg, &out), ZOK) << proto;
        EXPECT_EQ(S(out), "third");
        EXPECT_EQ(Abnf_GetLine(&d.msg, &out), ZFAILED);
    }
    // SIP lines unfold; MSRP (strict) refuses a bare LF inside a line.
    AbnfDec sip(5, "Subject: a\r\n b\r\nX");
    ST_ZOS_SSTR out{};
    ASSERT_EQ(Abnf_GetLine(&sip.msg, &out), ZOK);
    EXPECT_EQ(S(out), "Subject: a\r\n b");
    EXPECT_EQ(Abnf_ExpectCRLF(&sip.msg), ZOK);
    AbnfDec msrp(10, "a\nb");
    EXPECT_EQ(Abnf_GetLine(&msrp.msg, &out), ZFAILED);
    AbnfDec nul(0, std::string("\0a", 2));
    EXPECT_EQ(Abnf_GetLine(&nul.msg, &out), ZFAILED);

    // ExpectEol and the Try forms on a non-ending and on CR LF.
    EXPECT_EQ(RunStep(0, "ab\n", Abnf_TryExpectEol), (Step{ZFAILED, ABNF_ERR_EXPECT, 0, 0}));
    EXPECT_EQ(RunStep(0, "ab\n", Abnf_ExpectEol), (Step{ZFAILED, ABNF_ERR_EXPECT, 0, 0}));
    EXPECT_EQ(RunStep(0, "\r\n", Abnf_TryExpectCRLF), (Step{ZOK, 0, 1, 2}));
    EXPECT_EQ(RunStep(0, "\n", Abnf_TryExpectCRLF), (Step{ZFAILED, ABNF_ERR_EXPECT, 0, 0}));
}

TEST_F(ZosTest, AbnfStringScanFoldsAndSeparators) {
    Sets sets;
    // The five bytes a CR LF SP b in SIP: all of them with folding, up to
    // the CR without.
    const std::string folded("a\r\n b");
    AbnfDec on(5, folded);
    on.msg.pstChrset = sets.set;
    on.msg.uiChrsetMask = 1;
    on.msg.ucFoldAllowed = 1;
    EXPECT_EQ(Str(&on.msg), folded);
    // A fold that ends the text is taken whole.
    AbnfDec last(5, "a\r\n ");
    last.msg.pstChrset = sets.set;
    last.msg.uiChrsetMask = 1;
    last.msg.ucFoldAllowed = 1;
    EXPECT_EQ(Str(&last.msg), "a\r\n ");
    AbnfDec off(5, folded);
    off.msg.pstChrset = sets.set;
    off.msg.uiChrsetMask = 1;
    EXPECT_EQ(Str(&off.msg), "a");
    EXPECT_EQ(off.msg.ucStopChr, '\r');
    // MGCP is no folded-whitespace protocol.
    AbnfDec mg(2, folded);
    mg.msg.pstChrset = sets.set;
    mg.msg.uiChrsetMask = 1;
    mg.msg.ucFoldAllowed = 1;
    EXPECT_EQ(Str(&mg.msg), "a");
    // White space allowed, no set: conflicting parameters.
    AbnfDec ws(5, "a b");
    ws.msg.ucWsAllowed = 1;
    EXPECT_EQ(Abnf_GetStr(&ws.msg, nullptr), ZFAILED);
    EXPECT_EQ(ws.code(), ABNF_ERR_FORM);

    // Separators stop; CR/LF ends a string in SIP but not in protocol 0.
    ST_ZOS_SSTR out{};
    AbnfDec sep(5, "name;x=y");
    ASSERT_EQ(Abnf_GetSStrSepas(&sep.msg, ';', ',', 0, 0, &out), ZOK);
    EXPECT_EQ(S(out), "name");
    EXPECT_EQ(sep.msg.ucStopChr, ';');
    EXPECT_EQ(sep.msg.ucSepaOn, 0);  // parameters cleared again
    AbnfDec eol(5, "ab\r\ncd");
    ASSERT_EQ(Abnf_GetSStrSepas(&eol.msg, ';', ';', ';', ';', &out), ZOK);
    EXPECT_EQ(S(out), "ab");
    EXPECT_EQ(eol.msg.ucPendEol, 2);
    AbnfDec plain(0, "ab\r\ncd");
    ASSERT_EQ(Abnf_GetSStrSepas(&plain.msg, ';', ';', ';', ';', &out), ZOK);
    EXPECT_EQ(S(out), "ab\r\ncd");
    AbnfDec nul(5, std::string("ab\0cd", 5));
    ASSERT_EQ(Abnf_GetSStrSepas(&nul.msg, ';', ';', ';', ';', &out), ZOK);
    EXPECT_EQ(S(out), "ab");
    // Neither set nor separators: the rest of the text.
    AbnfDec all(0, "x y\r\n");
    EXPECT_EQ(Str(&all.msg), "x y\r\n");

    // Length bounds: minimum 3 on 2 bytes is error 12; a maximum of 0 is
    // no limit; 4 bytes over a maximum of 3 is error 13.
    AbnfDec shortStr(0, "ab;");
    EXPECT_EQ(Abnf_GetNSStrChrset(&shortStr.msg, sets.set, 1, 3, 0, &out), ZFAILED);
    EXPECT_EQ(shortStr.code(), ABNF_ERR_TOO_SHORT);
    AbnfDec noMax(0, std::string(300, 'a'));
    EXPECT_EQ(Abnf_GetNSStrChrset(&noMax.msg, sets.set, 1, 0, 0, &out), ZOK);
    EXPECT_EQ(out.uiLen, 300u);
    AbnfDec longStr(0, "abcd");
    EXPECT_EQ(Abnf_GetNSStrChrset(&longStr.msg, sets.set, 1, 1, 3, &out), ZFAILED);
    EXPECT_EQ(longStr.code(), ABNF_ERR_TOO_LONG);
}

TEST_F(ZosTest, AbnfEscapesPerProtocol) {
    Sets sets;
    ST_ZOS_SSTR out{};
    struct Case {
        uint32_t proto;
        uint8_t esc;
        const char *text;
        const char *expect;  // string scanned, or nullptr when it stops at the escape
    };
    const Case cases[] = {
        {5, '%', "ab%4Fcd!", "ab%4Fcd"},   // percent triplet
        {5, '\\', "ab\\4cd!", "ab\\4cd"},  // backslash pair
        {5, '%', "ab%4F", "ab%4F"},        // both at the text's very end
        {5, '\\', "ab\\4", "ab\\4"},
        {5, '%', "ab%4!", "ab"},   // incomplete triplet stops
        {8, '%', "a%zz", "a"},     // triplet outside the class
        {11, '~', "a~b!", "a~b"},  // protocol 11 takes any escape
        {4, '%', "a%41b", "a"},    // no escapes in 4
        {9, '\\', "a\\4b", "a"},   // nor in 9
        // MGCP and MEGACO move only the cursor over an escape: the scanned
        // length then counts the bytes after it, not the escape itself.
        {2, '"', "a\"\"b!", "a\""},
        {3, '\\', "a\\}b!", "a\\"},
    };
    for (const Case &c : cases) {
        AbnfDec d(c.proto, c.text);
        ASSERT_EQ(Abnf_GetSStrEscape(&d.msg, sets.set, 1, c.esc, 4, &out), ZOK) << c.text;
        EXPECT_EQ(S(out), c.expect) << c.proto << " " << c.text;
    }
    // The escape step alone: MGCP's doubled quote moves the cursor by 2,
    // MEGACO's \} by 2, protocol 0 by 1; protocol 7 refuses.
    AbnfDec q(2, "\"\"x");
    EXPECT_EQ(Abnf_ProcEscapeChr(&q.msg, '"'), ZOK);
    EXPECT_EQ(q.cur(), 2u);
    AbnfDec q1(2, "\"x");
    EXPECT_EQ(Abnf_ProcEscapeChr(&q1.msg, '"'), ZFAILED);
    AbnfDec mc(3, "\\}");
    EXPECT_EQ(Abnf_ProcEscapeChr(&mc.msg, '\\'), ZOK);
    EXPECT_EQ(mc.cur(), 2u);
    AbnfDec p0(0, "\\x");
    EXPECT_EQ(Abnf_ProcEscapeChr(&p0.msg, '\\'), ZOK);
    EXPECT_EQ(p0.cur(), 1u);
    AbnfDec p7(7, "\\x");
    EXPECT_EQ(Abnf_ProcEscapeChr(&p7.msg, '\\'), ZFAILED);
    // A percent at the very end reads nothing past the text.
    AbnfDec tail(5, "a%");
    EXPECT_EQ(Abnf_GetSStrEscape(&tail.msg, sets.set, 1, '%', 4, &out), ZOK);
    EXPECT_EQ(S(out), "a");
}

TEST_F(ZosTest, AbnfCharactersAndWhiteSpace) {
    // ExpectChr consumes a mismatch, TryExpectChr does not.
    AbnfDec e(0, "y");
    EXPECT_EQ(Abnf_ExpectChr(&e.msg, 'x', 1), ZFAILED);
    EXPECT_EQ(e.code(), ABNF_ERR_EXPECT);
    EXPECT_EQ(e.msg.stState.uiScannedLen, 1u);
    AbnfDec t(0, "y");
    EXPECT_EQ(Abnf_TryExpectChr(&t.msg, 'x', 1), ZFAILED);
    EXPECT_EQ(t.msg.stState.uiScannedLen, 0u);
    // Case folding unless exact is 1 (any other value folds).
    AbnfDec f(0, "Ab");
    EXPECT_EQ(Abnf_TryExpectChr(&f.msg, 'a', 1), ZFAILED);
    EXPECT_EQ(Abnf_TryExpectChr(&f.msg, 'a', 2), ZOK);
    EXPECT_EQ(f.msg.ucStopChr, 'b');
    EXPECT_EQ(Abnf_ExpectChr(&f.msg, 'B', 0), ZOK);
    // NUL at the end of the text is found; GetChr then has nothing left.
    EXPECT_EQ(Abnf_ExpectChr(&f.msg, 0, 1), ZOK);
    EXPECT_EQ(Abnf_TryExpectChr(&f.msg, 0, 1), ZOK);
    EXPECT_EQ(Abnf_GetChr(&f.msg, nullptr), ZFAILED);
    EXPECT_EQ(f.code(), ABNF_ERR_NO_TEXT);

    // White space: {result, error code, token start, cursor} afterwards.
    EXPECT_EQ(RunStep(0, " \t x", Abnf_IgnWS), (Step{ZOK, 0, 3, 3}));
    EXPECT_EQ(RunStep(5, "  \r\n\t y", Abnf_IgnLWS), (Step{ZOK, 0, 6, 6}));
    EXPECT_EQ(RunStep(5, " \r\ny", Abnf_IgnLWS), (Step{ZOK, 0, 1, 1}));  // an ending, no fold
    EXPECT_EQ(RunStep(5, ";x", Abnf_IgnLWS), (Step{ZOK, 0, 0, 0}));
    EXPECT_EQ(RunStep(0, " \r\n y", Abnf_IgnLWS), (Step{ZOK, 0, 1, 1}));  // blanks only
    EXPECT_EQ(RunStep(5, "\r\n x", Abnf_ExpectLWS), (Step{ZOK, 0, 3, 3}));
    EXPECT_EQ(RunStep(5, " \r\nx", Abnf_TryExpectLWS), (Step{ZFAILED, ABNF_ERR_EXPECT, 0, 0}));
    EXPECT_EQ(RunStep(11, "x", Abnf_ExpectLWS), (Step{ZFAILED, ABNF_ERR_EXPECT, 0, 0}));
    EXPECT_EQ(RunStep(5, "x", Abnf_ExpectLWS), (Step{ZFAILED, ABNF_ERR_EXPECT, 0, 0}));
    AbnfDec exEmpty(0, " ");
    Abnf_IgnWS(&exEmpty.msg);
    EXPECT_EQ(Abnf_ExpectLWS(&exEmpty.msg), ZFAILED);
}

TEST_F(ZosTest, AbnfMegacoComments) {
    EXPECT_EQ(RunStep(3, " ; comment one\n\t;two\r\n  Reply", Abnf_IgnLWS), (Step{ZOK, 0, 24, 24}));
    EXPECT_EQ(RunStep(3, "; comment at the end", Abnf_ExpectLWS),
              (Step{ZFAILED, ABNF_ERR_COMMENT, 20, 20}));
    EXPECT_EQ(RunStep(3, std::string(" ;a\0b\n", 6), Abnf_IgnLWS),
              (Step{ZFAILED, ABNF_ERR_COMMENT, 3, 3}));
    EXPECT_EQ(RunStep(3, "x", Abnf_ExpectLWS), (Step{ZFAILED, ABNF_ERR_EXPECT, 0, 0}));
    // A comment that meets the end of a counted text is cut there, whatever
    // byte follows the count.
    char cut[] = "; cut hereX";
    ST_ABNF_ERR err;
    Abnf_ErrInit(&err);
    ST_ABNF_MSG msg{};
    ST_ZOS_SSTR text{cut, 10};
    ASSERT_EQ(Abnf_MsgInit(&msg, 3, &text, nullptr, &err, 1), ZOK);
    EXPECT_EQ(Abnf_IgnLWS(&msg), ZFAILED);
    EXPECT_EQ(err.usErrCode, ABNF_ERR_COMMENT);
    Abnf_ErrDestroy(&err);
}

TEST_F(ZosTest, AbnfChrsets) {
    ST_ABNF_CHRSET *set = Abnf_ChrsetCreate(3);
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->uiId, 3u);
    EXPECT_EQ(Abnf_ChrsetSetStr(set, "", 1), ZOK);
    EXPECT_EQ(Abnf_ChrsetSetStr(set, "ab", 1), ZOK);
    EXPECT_EQ(Abnf_ChrsetSetByte(set, 0xFF, 8), ZOK);
    EXPECT_EQ(Abnf_ChrsetFind(set, 'a', 1), 1u);
    EXPECT_EQ(Abnf_ChrsetFind(set, 'a', 2), 0u);
    EXPECT_EQ(Abnf_ChrsetFind(set, 0xFF, 8), 1u);
    EXPECT_EQ(Abnf_ChrsetFind(nullptr, 'a', 1), 0u);
    std::vector<uint32_t> table(256, 0);
    table['z'] = 16;
    EXPECT_EQ(Abnf_ChrsetCopy(set, table.data(), 255), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("AbnfChrsetCopy invalid size."));
    EXPECT_EQ(Abnf_ChrsetCopy(set, table.data(), 256), ZOK);
    EXPECT_EQ(Abnf_ChrsetFind(set, 'a', 1), 0u);
    EXPECT_EQ(Abnf_ChrsetFind(set, 'z', 16), 1u);
    EXPECT_EQ(set->uiMagic, ABNF_CHRSET_MAGIC);
    // Copy over itself (overlap) keeps the words.
    EXPECT_EQ(Abnf_ChrsetCopy(set, set->auiClass, 256), ZOK);
    EXPECT_EQ(Abnf_ChrsetFind(set, 'z', 16), 1u);
    EXPECT_EQ(Abnf_ChrsetDelete(set), ZOK);
    // Every call on the deleted set is refused without reading it.
    ktest::ClearLogged();
    EXPECT_EQ(Abnf_ChrsetDelete(set), ZFAILED);
    EXPECT_EQ(Abnf_ChrsetSetStr(set, "a", 1), ZFAILED);
    EXPECT_EQ(Abnf_ChrsetSetByte(set, 'a', 1), ZFAILED);
    EXPECT_EQ(Abnf_ChrsetCopy(set, table.data(), 256), ZFAILED);
    EXPECT_EQ(Abnf_ChrsetFind(set, 'a', 1), 0u);
    EXPECT_TRUE(ktest::LoggedContains("AbnfChrsetDelete invalid id."));
    EXPECT_TRUE(ktest::LoggedContains("AbnfChrsetSetStr invalid magic id."));
    EXPECT_TRUE(ktest::LoggedContains("AbnfChrsetSetByte invalid id."));
    EXPECT_TRUE(ktest::LoggedContains("AbnfChrsetCopy invalid id."));
    EXPECT_TRUE(ktest::LoggedContains("AbnfChrsetFind invalid id."));
    // A scan under a deleted set fails instead of reading it.
    AbnfDec d(0, "abc");
    ST_ZOS_SSTR out{};
    EXPECT_EQ(Abnf_GetSStrChrset(&d.msg, set, 1, &out), ZFAILED);
    EXPECT_EQ(d.code(), ABNF_ERR_FORM);
}

TEST_F(ZosTest, AbnfErrorFramesAndRestore) {
    AbnfDec d(5, "INVITE sip:x SIP/2.0");
    ST_ABNF_BUF_STATE save{};
    Abnf_SaveBufState(&d.msg, &save);
    uint8_t c;
    Abnf_GetChr(&d.msg, &c);
    Abnf_GetChr(&d.msg, &c);  // token start now at 1
    for (int i = 0; i < 5; i++) EXPECT_EQ(Abnf_ErrLog(&d.msg, 0, 0, "frame", 100 + i), ZOK);
    EXPECT_EQ(d.err.pcErrPos, d.bytes.get() + 1);
    EXPECT_EQ(Abnf_ErrLog(&d.msg, 0, 0, "sixth", 200), ZFAILED);
    EXPECT_EQ(d.err.usFrameCount, 5u);
    Abnf_RestoreBufState(&d.msg, &save);
    EXPECT_EQ(d.err.usFrameCount, 0u);
    EXPECT_EQ(Abnf_ErrLog(&d.msg, 0, 0, "again", 300), ZOK);
    EXPECT_EQ(d.err.usFrameCount, 1u);
    EXPECT_EQ(Abnf_ErrClear(&d.msg), ZOK);
    EXPECT_EQ(d.err.pcErrPos, nullptr);
    ST_ABNF_MSG noErr = d.msg;
    noErr.pstErr = nullptr;
    EXPECT_EQ(Abnf_ErrLog(&noErr, 0, 0, "x", 1), ZFAILED);
}

namespace {

std::string Report(AbnfDec &d, size_t pos, uint16_t code) {
    d.err.pcErrPos = d.bytes.get() + pos;
    d.err.usErrCode = code;
    ktest::ClearPrinted();
    EXPECT_EQ(Abnf_ErrLogPrint(&d.msg, nullptr), ZOK);
    return ktest::Printed();
}

}  // namespace

TEST_F(ZosTest, AbnfErrorReport) {
    // The report with its frames, against the golden file (times masked).
    AbnfDec d(5, "INVITE sip:bob@example.com SIP/2.0\r\nVia: SIP/2.0/UDP host\r\n\x01\r\n");
    d.msg.stState.pcTknStart = d.bytes.get() + 40;
    Abnf_ErrLog(&d.msg, 1, 2, "SipDecodeVia", 812);
    Abnf_ErrLog(&d.msg, 1, 2, "SipDecodeMsg", 90);
    d.err.usErrCode = 18;
    ktest::ClearPrinted();
    ASSERT_EQ(Abnf_ErrLogPrint(&d.msg, nullptr), ZOK);
    std::string text = ktest::Printed();
    text = ktest::Mask(text, "time:[^\r]*", "time:T");
    text = ktest::Mask(text, "Dump [0-9a-fA-Fx]+ ", "Dump ADDR ");
    EXPECT_EQ(text, ktest::Golden("abnf_report.txt"));

    // Context windows of at most 62 bytes, starting at most 10 bytes before
    // the error, at the first byte, near the start, middle and end of a text.
    std::string t;
    for (int i = 0; i < 100; i++) t += char('A' + i % 26);
    AbnfDec w(0, t);
    const std::string first = Report(w, 0, 16);
    EXPECT_NE(first.find("    \"" + t.substr(0, 62) + "\"\r\n     ^\r\n"), std::string::npos);
    const std::string start = Report(w, 3, 16);
    EXPECT_NE(start.find("    \"" + t.substr(0, 62) + "\"\r\n        ^\r\n"), std::string::npos);
    const std::string mid = Report(w, 50, 16);
    EXPECT_NE(mid.find("    \"" + t.substr(40, 62) + "\"\r\n               ^\r\n"),
              std::string::npos);
    const std::string end = Report(w, 99, 16);
    EXPECT_NE(end.find("    \"" + t.substr(89) + "\"\r\n               ^\r\n"), std::string::npos);
    // A position outside the text gives the code alone.
    const std::string out = Report(w, 100, 19);
    EXPECT_NE(out.find("  ABNF Error Code 19\r\n"), std::string::npos);
    EXPECT_NE(out.find("UNKNOWN Decode Error"), std::string::npos);
    // Without an error record.
    w.msg.pstErr = nullptr;
    ktest::ClearPrinted();
    Abnf_ErrLogPrint(&w.msg, nullptr);
    EXPECT_NE(ktest::Printed().find("  ABNF Error Without Info.---"), std::string::npos);
    // With a log name the report goes to the log instead.
    w.msg.pstErr = &w.err;
    ktest::ClearPrinted();
    ktest::ClearLogged();
    EXPECT_EQ(Abnf_ErrLogPrint(&w.msg, "sipdec"), ZOK);
    EXPECT_TRUE(ktest::LoggedContains("UNKNOWN Decode Error, More Detail See Below:"));
}
