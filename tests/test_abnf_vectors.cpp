// The SIP reader on the RFC 4475 torture messages, and the scanner's
// line rules per protocol on the published SDP, MGCP, MEGACO, MSRP, RTSP
// and HTTP examples. Every text is read from an exact-size heap copy, so
// AddressSanitizer reports any read past its end.
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "abnf_test.h"
#include "sip_reader.h"

using ktest::AbnfDec;
using ktest::S;
namespace sip = kestro::sip;

namespace {

const std::string kDir = std::string(KESTRO_VECTORS_DIR) + "/protocols/";

std::string Load(const std::string &rel) {
    return ktest::ReadFile(kDir + rel);
}

// file -> class, from the torture index.
std::map<std::string, std::string> TortureIndex() {
    std::map<std::string, std::string> out;
    std::istringstream in(Load("sip/rfc4475/INDEX.tsv"));
    std::string line;
    std::getline(in, line);  // column names
    while (std::getline(in, line)) {
        std::vector<std::string> cols;
        std::istringstream l(line);
        std::string c;
        while (std::getline(l, c, '\t')) cols.push_back(c);
        if (cols.size() >= 4) out[cols[0]] = cols[3];
    }
    return out;
}

// A model of the header count: lines of the header section that do not
// begin with a blank (those continue the previous line), start line aside.
size_t ModelHeaderCount(const std::string &text) {
    size_t count = 0, pos = text.find("\r\n");
    while (pos != std::string::npos) {
        const size_t start = pos + 2;
        if (start >= text.size() || text.compare(start, 2, "\r\n") == 0) break;
        if (text[start] != ' ' && text[start] != '\t') count++;
        pos = text.find("\r\n", start);
    }
    return count;
}

struct Read {
    bool ok = false;
    sip::Message msg;
    sip::Failure fail;
    std::string report;
};

Read ReadSip(const sip::Reader &reader, const std::string &text) {
    Read r;
    std::unique_ptr<char[]> copy(new char[text.size()]);
    std::memcpy(copy.get(), text.data(), text.size());
    ktest::ClearPrinted();
    r.ok = reader.Read(copy.get(), uint32_t(text.size()), &r.msg, true, &r.fail);
    r.report = ktest::Printed();
    if (r.ok) r.msg = sip::Message{};  // its texts pointed into the copy
    if (r.ok) reader.Read(text.data(), uint32_t(text.size()), &r.msg, false);
    return r;
}

std::string Value(const sip::Message &m, uint32_t id) {
    const sip::Header *h = m.Find(id);
    return h != nullptr ? h->Value() : std::string("<none>");
}

}  // namespace

TEST_F(ZosTest, AbnfSipReaderTortureMessages) {
    const sip::Reader reader;
    ASSERT_TRUE(reader.ok());
    const auto index = TortureIndex();
    ASSERT_EQ(index.size(), 49u);
    // Invalid messages this reader refuses; every other invalid one is read,
    // as RFC 4475 leaves its rejection to the transaction or application
    // layer (wrong CSeq method, missing headers, bad display names...).
    const std::map<std::string, std::string> refused = {
        {"bigcode.dat", "SipDecodeStatusLine code"},
        {"clerr.dat", "SipDecodeBody shorter than Content-Length"},
        {"ltgtruri.dat", "SipDecodeReqLine Request-URI"},
        {"lwsruri.dat", "SipDecodeVersion SIP/"},
        {"lwsstart.dat", "SipDecodeReqLine Request-URI"},
        {"mcl01.dat", "SipDecodeHdr second Content-Length"},
        {"ncl.dat", "SipDecodeHdr Content-Length"},
        {"scalar02.dat", "SipDecodeHdr CSeq"},
        {"scalarlg.dat", "SipDecodeHdr CSeq"},
        {"trws.dat", "SipDecodeStartLine CRLF"},
    };
    for (const auto &[file, cls] : index) {
        const std::string text = Load("sip/rfc4475/" + file);
        ASSERT_FALSE(text.empty()) << file;
        const Read r = ReadSip(reader, text);
        const bool valid = cls.rfind("valid", 0) == 0;
        if (valid) {
            ASSERT_TRUE(r.ok) << file << "\n" << r.report;
        }
        const auto it = refused.find(file);
        if (it != refused.end()) {
            ASSERT_FALSE(r.ok) << file;
            EXPECT_NE(r.report.find("SIP Decode Error, More Detail See Below:"), std::string::npos);
            EXPECT_NE(r.report.find(it->second), std::string::npos) << file << "\n" << r.report;
            EXPECT_NE(r.report.find("^\r\n"), std::string::npos) << file;
            EXPECT_LT(r.fail.offset, text.size()) << file;
            continue;
        }
        ASSERT_TRUE(r.ok) << file << "\n" << r.report;
        EXPECT_EQ(r.msg.headers.size(), ModelHeaderCount(text)) << file;
        if (r.msg.hasContentLength) EXPECT_EQ(r.msg.body.uiLen, r.msg.contentLength) << file;
    }
}

TEST_F(ZosTest, AbnfSipReaderSelectedValues) {
    const sip::Reader reader;
    sip::Message m;
    std::string text = Load("sip/rfc4475/wsinv.dat");
    ASSERT_TRUE(reader.Read(text.data(), uint32_t(text.size()), &m, false));
    EXPECT_TRUE(m.request);
    EXPECT_EQ(S(m.method), "INVITE");
    EXPECT_EQ(S(m.uri), "sip:vivekg@chair-dnrc.example.com;unknownparam");
    EXPECT_EQ(m.maxForwards, 68u);  // "0068"
    EXPECT_EQ(m.cseq, 9u);          // "0009" then a fold, then the method
    EXPECT_EQ(S(m.cseqMethod), "INVITE");
    EXPECT_EQ(m.contentLength, 150u);
    EXPECT_EQ(Value(m, sip::kTo), "sip:vivekg@chair-dnrc.example.com ;   tag    = 1918181833n");
    EXPECT_EQ(Value(m, sip::kSubject), "");  // "s :" with nothing after it
    EXPECT_EQ(m.Count(sip::kVia), 2u);       // "Via" and compact "v"
    EXPECT_EQ(Value(m, sip::kContact),
              "\"Quoted string \\\"\\\"\" <sip:jdrosen@example.com> ; newparam = newvalue ; "
              "secondparam ; q = 0.33");
    EXPECT_EQ(S(m.body).substr(0, 5), "v=0\r\n");

    text = Load("sip/rfc4475/esc02.dat");
    ASSERT_TRUE(reader.Read(text.data(), uint32_t(text.size()), &m, false));
    EXPECT_EQ(S(m.method), "RE%47IST%45R");
    EXPECT_EQ(m.Count(sip::kContact), 2u);  // C%6Fntact is another header
    EXPECT_EQ(m.headers[7].id, ABNF_TKN_UNKNOWN);
    EXPECT_EQ(S(m.headers[7].name), "C%6Fntact");

    text = Load("sip/rfc4475/dblreq.dat");
    ASSERT_TRUE(reader.Read(text.data(), uint32_t(text.size()), &m, false));
    EXPECT_EQ(m.Find(sip::kCallId)->Value(), "dblreq.0ha0isndaksdj99sdfafnl3lk233412");  // "I:"
    EXPECT_EQ(m.body.uiLen, 0u);
    EXPECT_GT(m.trailing, 300u);  // the second request is ignored

    text = Load("sip/rfc4475/noreason.dat");
    ASSERT_TRUE(reader.Read(text.data(), uint32_t(text.size()), &m, false));
    EXPECT_FALSE(m.request);
    EXPECT_EQ(m.status, 100u);
    EXPECT_EQ(m.reason.uiLen, 0u);

    text = Load("sip/rfc4475/intmeth.dat");
    ASSERT_TRUE(reader.Read(text.data(), uint32_t(text.size()), &m, false));
    EXPECT_EQ(m.maxForwards, 255u);
    EXPECT_EQ(m.cseq, 139122385u);
    EXPECT_NE(Value(m, sip::kTo).find(std::string("NUL:\\\0", 6)), std::string::npos);

    text = Load("sip/rfc4475/regescrt.dat");
    ASSERT_TRUE(reader.Read(text.data(), uint32_t(text.size()), &m, false));
    EXPECT_TRUE(m.hasContentLength);  // "L:0"
    EXPECT_EQ(Value(m, sip::kContact), "<sip:user@example.com?Route=%3Csip:sip.example.com%3E>");

    text = Load("sip/rfc4475/mpart01.dat");
    ASSERT_TRUE(reader.Read(text.data(), uint32_t(text.size()), &m, false));
    EXPECT_EQ(m.body.uiLen, 553u);
    EXPECT_EQ(m.trailing, 0u);

    // Header names: long and compact forms in any case; unknown names.
    for (const char *name : {"via", "V", "VIA", "Call-Id", "i", "CONTENT-LENGTH", "l"}) {
        EXPECT_NE(reader.Lookup(name, uint32_t(std::strlen(name))), ABNF_TKN_UNKNOWN) << name;
    }
    EXPECT_EQ(reader.Lookup("Viaa", 4), ABNF_TKN_UNKNOWN);
    EXPECT_EQ(reader.Lookup("I", 1), uint32_t(sip::kCallId));
    EXPECT_STREQ(sip::Reader::Name(sip::kWwwAuthenticate), "WWW-Authenticate");

    // The report's caret stands under the offending byte: the second SP of
    // "INVITE  sip:".
    const Read bad = ReadSip(reader, Load("sip/rfc4475/lwsstart.dat"));
    ASSERT_FALSE(bad.ok);
    EXPECT_EQ(bad.fail.offset, 7u);
    EXPECT_EQ(bad.fail.code, ABNF_ERR_TOO_SHORT);
    EXPECT_NE(
        bad.report.find("    \"INVITE  sip:user@example.com  SIP/2.0..Max-Forwards: 8..To: si\"\r\n"
                        "            ^\r\n"),
        std::string::npos)
        << bad.report;
}

TEST_F(ZosTest, AbnfSipReaderTruncationsAndGarbage) {
    // Every prefix of a valid message and every single-byte change reads
    // or fails cleanly (AddressSanitizer watches the exact-size copies).
    const sip::Reader reader;
    const std::string text = Load("sip/rfc4475/wsinv.dat");
    size_t readOk = 0;
    for (size_t n = 1; n <= text.size(); n++) {
        std::unique_ptr<char[]> copy(new char[n]);
        std::memcpy(copy.get(), text.data(), n);
        sip::Message m;
        readOk += reader.Read(copy.get(), uint32_t(n), &m, false) ? 1 : 0;
    }
    EXPECT_GT(readOk, 0u);
    // Cut after the last header line: no empty line and no body, so the
    // Content-Length of 150 is not met.
    const std::string headers = text.substr(0, text.find("\r\n\r\n") + 2);
    const Read cut = ReadSip(reader, headers);
    EXPECT_FALSE(cut.ok);
    EXPECT_NE(cut.report.find("SipDecodeBody shorter than Content-Length"), std::string::npos);
    const char subst[] = {'\0', '\r', '\n', ' ', ':', '\xFF', '0'};
    for (size_t i = 0; i < text.size(); i += 7) {
        for (char c : subst) {
            std::unique_ptr<char[]> copy(new char[text.size()]);
            std::memcpy(copy.get(), text.data(), text.size());
            copy[i] = c;
            sip::Message m;
            sip::Failure f;
            if (!reader.Read(copy.get(), uint32_t(text.size()), &m, false, &f)) {
                ASSERT_LT(f.offset, text.size());
            }
        }
    }
}

namespace {

// Lines of a text under a protocol's rules: GetLine then ExpectEol until
// no text is left. -1 when a line does not read.
int Lines(uint32_t proto, const std::string &text) {
    AbnfDec d(proto, text);
    int n = 0;
    for (;;) {
        ST_ZOS_SSTR rest{};
        Abnf_GetScanningStr(&d.msg, &rest);
        if (rest.uiLen == 0) return n;
        ST_ZOS_SSTR line{};
        if (rest.pcStr[0] != '\r' && rest.pcStr[0] != '\n') {
            if (Abnf_GetLine(&d.msg, &line) != ZOK) return -1;
        }
        n++;
        Abnf_GetScanningStr(&d.msg, &rest);
        if (d.msg.ucPendEol == 0 && rest.uiLen == 0) return n;  // last line, no ending
        if (Abnf_ExpectEol(&d.msg) != ZOK) return -1;
    }
}

int CountEndings(const std::string &text, bool lfToo) {
    int n = 0;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == '\n' && (lfToo || (i > 0 && text[i - 1] == '\r'))) n++;
    }
    return n + (text.empty() || text.back() == '\n' ? 0 : 1);
}

}  // namespace

TEST_F(ZosTest, AbnfProtocolExamplesLineRules) {
    // SDP: only CR LF ends a line; the files with bare LF endings do not
    // read as SDP but read as plain text (protocol 0).
    for (const char *f :
         {"rfc4566_s5_example.sdp", "rfc8866_s5_example.sdp", "sdp-transform_jssip.sdp",
          "sdp-transform_normal.sdp", "sofia-sip_message-2.sdp", "sofia-sip_message-9.sdp",
          "sofia-sip_message-10.sdp", "sofia-sip_message-11.sdp"}) {
        const std::string t = Load(std::string("sdp/") + f);
        EXPECT_EQ(Lines(ABNF_PROTO_SDP, t), CountEndings(t, false)) << f;
    }
    for (const char *f : {"sdp-transform_jsep.sdp", "sdp-transform_ssrc.sdp"}) {
        const std::string t = Load(std::string("sdp/") + f);
        EXPECT_EQ(Lines(ABNF_PROTO_SDP, t), -1) << f;
        EXPECT_EQ(Lines(ABNF_PROTO_TEXT, t), CountEndings(t, true)) << f;
    }
    // MGCP: LF or CR LF; the file with bare CR endings has no line ending
    // at all, so it reads as one line.
    for (const char *f : {"ndpi_mgcp_f03_rqnt_v01_crlf.mgcp", "ndpi_mgcp_f04_510_response.mgcp",
                          "ndpi_mgcp_f07_rsip_restart.mgcp", "ndpi_mgcp_f08_200_ok_crlf.mgcp",
                          "ndpi_mgcp_f19_rqnt_lf.mgcp", "ndpi_mgcp_f21_auep.mgcp",
                          "ndpi_mgcp_f22_200_auep_capabilities.mgcp", "ndpi_mgcp_f23_ntfy.mgcp"}) {
        const std::string t = Load(std::string("other/mgcp/") + f);
        EXPECT_EQ(Lines(ABNF_PROTO_MGCP, t), CountEndings(t, true)) << f;
    }
    EXPECT_EQ(Lines(ABNF_PROTO_MGCP, Load("other/mgcp/ndpi_mgcp_f27_rqnt_cr_only.mgcp")), -1);
    // MSRP is strict: the CR LF forms read, the LF forms do not.
    for (const char *f : {"siplib_MsrpRequestMessage1", "siplib_MsrpResponseMessage1",
                          "siplib_MsrpReportRequest1", "siplib_MsrpPositiveReport1",
                          "siplib_MsrpNicknameRequest1", "siplib_MsrpUnknownRequestMethod"}) {
        const std::string crlf = Load(std::string("other/msrp/") + f + ".crlf.msrp");
        const std::string lf = Load(std::string("other/msrp/") + f + ".lf.msrp");
        EXPECT_EQ(Lines(ABNF_PROTO_MSRP, crlf), CountEndings(crlf, false)) << f;
        EXPECT_EQ(Lines(ABNF_PROTO_MSRP, lf), -1) << f;
    }
    // RTSP and HTTP fold like SIP: the header lines of the CR LF messages read.
    for (const char *f :
         {"other/rtsp/retina_describe_request.rtsp",
          "other/rtsp/retina_dahua_options_response.rtsp",
          "other/rtsp/retina_longse_401_response.rtsp", "other/rtsp/ndpi_vlc_setup_request.rtsp",
          "other/http/ndpi_http_get_curl.http", "other/http/ndpi_http_get_basic_auth.http"}) {
        const std::string t = Load(f);
        const uint32_t proto = std::strstr(f, "rtsp") ? ABNF_PROTO_RTSP : ABNF_PROTO_HTTP;
        EXPECT_EQ(Lines(proto, t), CountEndings(t, false)) << f;
    }

    // MEGACO: white space and ";" comments between tokens; every message
    // splits into tokens of visible characters with nothing left over.
    ST_ABNF_CHRSET *set = Abnf_ChrsetCreate(3);
    for (int c = 0x21; c < 0x7F; c++) {
        if (c != ';') Abnf_ChrsetSetByte(set, uint8_t(c), 1);
    }
    for (const char *f :
         {"otp_time_test_msg01a", "otp_time_test_msg03", "otp_time_test_msg04",
          "otp_time_test_msg05", "otp_time_test_msg08a", "otp_time_test_msg10",
          "otp_time_test_msg23c", "otp_time_test_msg30b", "otp_time_test_msg72c01",
          "otp_time_test_msg79a01", "otp_time_test_msg80b01", "otp_time_test_msg81a01"}) {
        const std::string t = Load(std::string("other/megaco/") + f + ".megaco");
        AbnfDec d(ABNF_PROTO_MEGACO, t + "\n; end of message\n");
        size_t taken = 0;
        int tokens = 0;
        for (;;) {
            ASSERT_EQ(Abnf_IgnLWS(&d.msg), ZOK) << f;
            ST_ZOS_SSTR tok{};
            if (Abnf_GetSStrChrset(&d.msg, set, 1, &tok) != ZOK || tok.uiLen == 0) break;
            taken += tok.uiLen;
            tokens++;
        }
        ST_ZOS_SSTR rest{};
        Abnf_GetScanningStr(&d.msg, &rest);
        EXPECT_EQ(rest.uiLen, 0u) << f;
        size_t visible = 0;
        for (char c : t) visible += (c > 0x20 && c < 0x7F && c != ';') ? 1 : 0;
        EXPECT_EQ(taken, visible) << f;
        EXPECT_GT(tokens, 3) << f;
    }
    Abnf_ChrsetDelete(set);

    // Every example of every protocol through the SIP reader: read or a
    // clean refusal, never a read past the text.
    const sip::Reader reader;
    for (const char *dir :
         {"sdp", "other/http", "other/megaco", "other/mgcp", "other/msrp", "other/rtsp"}) {
        for (const std::string &path : ktest::FilesIn(kDir + dir)) {
            const std::string t = ktest::ReadFile(path);
            if (t.empty()) continue;
            std::unique_ptr<char[]> copy(new char[t.size()]);
            std::memcpy(copy.get(), t.data(), t.size());
            sip::Message m;
            sip::Failure fail;
            if (!reader.Read(copy.get(), uint32_t(t.size()), &m, false, &fail)) {
                EXPECT_LT(fail.offset, t.size()) << path;
            }
        }
    }
}
