// SIP message reader on the ABNF toolkit (see sip_reader.h).
#include "sip_reader.h"

#include <cstdio>
#include <cstring>

namespace kestro::sip {
namespace {

// Character classes of the reader's one set.
constexpr uint32_t kToken = 0x1;  // RFC 3261 token characters
constexpr uint32_t kUri = 0x2;    // Request-URI: visible characters but < > "
constexpr uint32_t kValue = 0x4;  // header values: every byte but CR and LF
constexpr uint32_t kDigit = 0x8;

struct NameEntry {
    const char *text;
    uint16_t id;
};

// Long forms, then the compact forms of RFC 3261 and its extensions.
constexpr NameEntry kNames[] = {
    {"Accept", kAccept},
    {"Accept-Contact", kAcceptContact},
    {"Accept-Encoding", kAcceptEncoding},
    {"Accept-Language", kAcceptLanguage},
    {"Alert-Info", kAlertInfo},
    {"Allow", kAllow},
    {"Allow-Events", kAllowEvents},
    {"Authentication-Info", kAuthenticationInfo},
    {"Authorization", kAuthorization},
    {"Call-ID", kCallId},
    {"Call-Info", kCallInfo},
    {"Contact", kContact},
    {"Content-Disposition", kContentDisposition},
    {"Content-Encoding", kContentEncoding},
    {"Content-Language", kContentLanguage},
    {"Content-Length", kContentLength},
    {"Content-Type", kContentType},
    {"CSeq", kCSeq},
    {"Date", kDate},
    {"Error-Info", kErrorInfo},
    {"Event", kEvent},
    {"Expires", kExpires},
    {"From", kFrom},
    {"Identity", kIdentity},
    {"Identity-Info", kIdentityInfo},
    {"In-Reply-To", kInReplyTo},
    {"Max-Forwards", kMaxForwards},
    {"MIME-Version", kMimeVersion},
    {"Min-Expires", kMinExpires},
    {"Min-SE", kMinSe},
    {"Organization", kOrganization},
    {"P-Asserted-Identity", kPAssertedIdentity},
    {"Path", kPath},
    {"Priority", kPriority},
    {"Privacy", kPrivacy},
    {"Proxy-Authenticate", kProxyAuthenticate},
    {"Proxy-Authorization", kProxyAuthorization},
    {"Proxy-Require", kProxyRequire},
    {"RAck", kRAck},
    {"Reason", kReason},
    {"Record-Route", kRecordRoute},
    {"Refer-To", kReferTo},
    {"Referred-By", kReferredBy},
    {"Reject-Contact", kRejectContact},
    {"Replaces", kReplaces},
    {"Reply-To", kReplyTo},
    {"Request-Disposition", kRequestDisposition},
    {"Require", kRequire},
    {"Retry-After", kRetryAfter},
    {"Route", kRoute},
    {"RSeq", kRSeq},
    {"Server", kServer},
    {"Service-Route", kServiceRoute},
    {"Session-Expires", kSessionExpires},
    {"Subject", kSubject},
    {"Subscription-State", kSubscriptionState},
    {"Supported", kSupported},
    {"Timestamp", kTimestamp},
    {"To", kTo},
    {"Unsupported", kUnsupported},
    {"User-Agent", kUserAgent},
    {"Via", kVia},
    {"Warning", kWarning},
    {"WWW-Authenticate", kWwwAuthenticate},
    {"a", kAcceptContact},
    {"b", kReferredBy},
    {"c", kContentType},
    {"d", kRequestDisposition},
    {"e", kContentEncoding},
    {"f", kFrom},
    {"i", kCallId},
    {"j", kRejectContact},
    {"k", kSupported},
    {"l", kContentLength},
    {"m", kContact},
    {"n", kIdentityInfo},
    {"o", kEvent},
    {"r", kReferTo},
    {"s", kSubject},
    {"t", kTo},
    {"u", kAllowEvents},
    {"v", kVia},
    {"x", kSessionExpires},
    {"y", kIdentity},
};

constexpr uint32_t kNameCount = sizeof(kNames) / sizeof(kNames[0]);

// One reading run: the message record, its error record, and the steps.
// Each step that fails logs one frame (the innermost first) and fails.
class Run {
  public:
    Run(ST_ABNF_TKN_MGR *mgr, const ST_ABNF_CHRSET *set) : mgr_(mgr), set_(set) {}
    ~Run() { Abnf_ErrDestroy(&err_); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    bool Start(const char *data, uint32_t len) {
        ST_ZOS_SSTR text{const_cast<char *>(data), len};
        return Abnf_MsgInit(&msg_, ABNF_PROTO_SIP, &text, nullptr, &err_, 1) == ZOK;
    }
    bool Message(kestro::sip::Message *out);
    void Report() { Abnf_ErrLogPrint(&msg_, nullptr); }
    void Fill(Failure *fail, const char *base) const {
        fail->code = err_.usErrCode;
        fail->offset = err_.pcErrPos != nullptr ? uint32_t(err_.pcErrPos - base) : 0;
    }

  private:
    bool Fail(const char *what, uint32_t line) {
        // The dump of the frames is made on the first failure only: most
        // messages read, and they need none.
        if (err_.zDump == nullptr && err_.usFrameCount == 0) err_.zDump = Zos_DumpCreate("abnf", 6);
        Abnf_ErrLog(&msg_, 0, 0, what, line);
        return false;
    }
    bool Chr(uint8_t c, bool exact = true) {
        return Abnf_ExpectChr(&msg_, c, exact ? 1 : 0) == ZOK;
    }
    bool Str(uint32_t mask, uint32_t min, ST_ZOS_SSTR *out) {
        return Abnf_GetNSStrChrset(&msg_, set_, mask, min, 0, out) == ZOK;
    }
    // A number with bounds; more than `digits` digits is too large.
    bool Number(uint32_t min, uint32_t max, uint32_t digits, uint32_t *value);
    bool Version(kestro::sip::Message *out);
    bool StartLine(kestro::sip::Message *out);
    bool HeaderLine(kestro::sip::Message *out);
    bool Value(ST_ZOS_SSTR *out);
    bool Body(kestro::sip::Message *out);

    ST_ABNF_TKN_MGR *mgr_;
    const ST_ABNF_CHRSET *set_;
    ST_ABNF_ERR err_{};
    ST_ABNF_MSG msg_{};
};

bool Run::Number(uint32_t min, uint32_t max, uint32_t digits, uint32_t *value) {
    msg_.uiMinVal = min;
    msg_.uiMaxVal = max;
    const bool ok = Abnf_GetUiDigit(&msg_, value) == ZOK;
    msg_.uiMinVal = msg_.uiMaxVal = ABNF_NO_BOUND;
    if (!ok) return false;
    // Leading zeros aside, more digits than the largest value has means
    // the 32-bit value wrapped.
    ST_ZOS_SSTR scanned{};
    Abnf_GetScannedStr(&msg_, &scanned);
    uint32_t zeros = 0;
    while (zeros + 1 < scanned.uiLen && scanned.pcStr[zeros] == '0') zeros++;
    if (scanned.uiLen - zeros > digits) {
        err_.usErrCode = ABNF_ERR_ABOVE_MAX;  // the value wrapped: far too large
        return false;
    }
    return true;
}

bool Run::Version(kestro::sip::Message *out) {
    if (!Chr('S', false) || !Chr('I', false) || !Chr('P', false) || !Chr('/')) {
        return Fail("SipDecodeVersion SIP/", __LINE__);
    }
    if (Abnf_GetUiDigit(&msg_, &out->versionMajor) != ZOK || !Chr('.') ||
        Abnf_GetUiDigit(&msg_, &out->versionMinor) != ZOK) {
        return Fail("SipDecodeVersion digits", __LINE__);
    }
    return true;
}

bool Run::StartLine(kestro::sip::Message *out) {
    ST_ZOS_SSTR ahead{};
    Abnf_GetScanningStr(&msg_, &ahead);
    out->request = !(ahead.uiLen >= 4 && std::strncmp(ahead.pcStr, "SIP/", 4) == 0);
    if (out->request) {
        if (!Str(kToken, 1, &out->method)) return Fail("SipDecodeReqLine method", __LINE__);
        if (!Chr(' ')) return Fail("SipDecodeReqLine SP", __LINE__);
        if (!Str(kUri, 1, &out->uri)) return Fail("SipDecodeReqLine Request-URI", __LINE__);
        if (!Chr(' ')) return Fail("SipDecodeReqLine SP", __LINE__);
        if (!Version(out)) return Fail("SipDecodeReqLine SIP-Version", __LINE__);
    } else {
        if (!Version(out)) return Fail("SipDecodeStatusLine SIP-Version", __LINE__);
        if (!Chr(' ')) return Fail("SipDecodeStatusLine SP", __LINE__);
        if (!Number(100, 699, 3, &out->status)) return Fail("SipDecodeStatusLine code", __LINE__);
        if (!Chr(' ')) return Fail("SipDecodeStatusLine SP", __LINE__);
        if (!Str(kValue, 0, &out->reason)) return Fail("SipDecodeStatusLine reason", __LINE__);
    }
    if (Abnf_ExpectCRLF(&msg_) != ZOK) return Fail("SipDecodeStartLine CRLF", __LINE__);
    return true;
}

// A header value up to the end of its line, folds included (the scan takes
// CR LF SP/HT as part of the value).
bool Run::Value(ST_ZOS_SSTR *out) {
    msg_.ucFoldAllowed = 1;
    return Abnf_GetSStrChrset(&msg_, set_, kValue, out) == ZOK;
}

bool Run::HeaderLine(kestro::sip::Message *out) {
    Header h{};
    if (Abnf_GetTknChrset(&msg_, mgr_, 0, set_, kToken, &h.id) != ZOK) {
        return Fail("SipDecodeHdr name", __LINE__);
    }
    Abnf_GetScannedStr(&msg_, &h.name);
    if (Abnf_IgnLWS(&msg_) != ZOK || !Chr(':') || Abnf_IgnLWS(&msg_) != ZOK) {
        return Fail("SipDecodeHdr HCOLON", __LINE__);
    }
    ST_ABNF_BUF_STATE mark{};
    Abnf_SaveBufState(&msg_, &mark);
    switch (h.id) {
        case kContentLength:
            if (out->hasContentLength) {
                err_.usErrCode = ABNF_ERR_FORM;
                return Fail("SipDecodeHdr second Content-Length", __LINE__);
            }
            if (!Number(0, 0x7FFFFFFF, 10, &out->contentLength)) {
                return Fail("SipDecodeHdr Content-Length", __LINE__);
            }
            out->hasContentLength = true;
            break;
        case kMaxForwards:
            if (!Number(0, 255, 3, &out->maxForwards)) {
                return Fail("SipDecodeHdr Max-Forwards", __LINE__);
            }
            out->hasMaxForwards = true;
            break;
        case kCSeq:
            if (!Number(0, 0x7FFFFFFF, 10, &out->cseq) || Abnf_ExpectLWS(&msg_) != ZOK ||
                !Str(kToken, 1, &out->cseqMethod)) {
                return Fail("SipDecodeHdr CSeq", __LINE__);
            }
            break;
        default:
            break;
    }
    // The value as written: from after the colon to the end of the line.
    Abnf_RestoreBufState(&msg_, &mark);
    if (!Value(&h.raw)) return Fail("SipDecodeHdr value", __LINE__);
    if (Abnf_ExpectCRLF(&msg_) != ZOK) return Fail("SipDecodeHdr CRLF", __LINE__);
    out->headers.push_back(h);
    return true;
}

bool Run::Body(kestro::sip::Message *out) {
    ST_ZOS_SSTR rest{};
    Abnf_GetScanningStr(&msg_, &rest);
    if (!out->hasContentLength) {
        out->body = rest;
        return true;
    }
    if (rest.uiLen < out->contentLength) {
        // Position the report at the start of the body.
        Abnf_MoveBufState(&msg_, 0);
        err_.usErrCode = ABNF_ERR_NO_TEXT;
        return Fail("SipDecodeBody shorter than Content-Length", __LINE__);
    }
    out->body = ST_ZOS_SSTR{out->contentLength != 0 ? rest.pcStr : nullptr, out->contentLength};
    out->trailing = rest.uiLen - out->contentLength;
    return true;
}

bool Run::Message(kestro::sip::Message *out) {
    if (!StartLine(out)) return Fail("SipDecodeMsg start line", __LINE__);
    for (;;) {
        ST_ZOS_SSTR ahead{};
        Abnf_GetScanningStr(&msg_, &ahead);
        if (ahead.uiLen == 0) {
            // No empty line: the text ended after the headers, so the body
            // is empty (and a Content-Length above 0 is not met).
            if (!Body(out)) return Fail("SipDecodeMsg body", __LINE__);
            return true;
        }
        if (Abnf_TryExpectCRLF(&msg_) == ZOK) {
            if (!Body(out)) return Fail("SipDecodeMsg body", __LINE__);
            return true;
        }
        if (!HeaderLine(out)) return Fail("SipDecodeMsg header", __LINE__);
    }
}

}  // namespace

std::string Header::Value() const {
    std::string v;
    const char *p = raw.pcStr;
    for (uint32_t i = 0; i < raw.uiLen; i++) {
        if (p[i] == '\r' && i + 1 < raw.uiLen && p[i + 1] == '\n') {
            i += 2;
            while (i < raw.uiLen && (p[i] == ' ' || p[i] == '\t')) i++;
            i--;
            v.push_back(' ');
            continue;
        }
        v.push_back(p[i]);
    }
    while (!v.empty() && (v.back() == ' ' || v.back() == '\t')) v.pop_back();
    return v;
}

const Header *Message::Find(uint32_t id) const {
    for (const Header &h : headers) {
        if (h.id == id) return &h;
    }
    return nullptr;
}

size_t Message::Count(uint32_t id) const {
    size_t n = 0;
    for (const Header &h : headers) n += h.id == id ? 1 : 0;
    return n;
}

Reader::Reader() {
    mgr_ = Abnf_TknMgrCreate(1, 1, 2 * kNameCount);
    set_ = Abnf_ChrsetCreate(1);
    if (mgr_ == nullptr || set_ == nullptr) return;
    for (const NameEntry &n : kNames) {
        if (Abnf_TknAdd(mgr_, 0, n.text, uint32_t(std::strlen(n.text)), n.id) != ZOK) {
            Abnf_TknMgrDelete(mgr_);
            mgr_ = nullptr;
            return;
        }
    }
    Abnf_ChrsetSetStr(set_,
                      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                      "-.!%*_+`'~",
                      kToken);
    for (int c = 0x21; c < 0x7F; c++) {
        if (c != '<' && c != '>' && c != '"') Abnf_ChrsetSetByte(set_, uint8_t(c), kUri);
    }
    for (int c = 0; c < 256; c++) {
        if (c != '\r' && c != '\n') Abnf_ChrsetSetByte(set_, uint8_t(c), kValue);
    }
    Abnf_ChrsetSetStr(set_, "0123456789", kDigit);
}

Reader::~Reader() {
    if (mgr_ != nullptr) Abnf_TknMgrDelete(mgr_);
    if (set_ != nullptr) Abnf_ChrsetDelete(set_);
}

bool Reader::Read(const char *data, uint32_t len, Message *out, bool report, Failure *fail) const {
    // A fresh record that keeps the header vector's room for the next read.
    std::vector<Header> room = std::move(out->headers);
    room.clear();
    *out = Message{};
    out->headers = std::move(room);
    if (!ok() || data == nullptr || len == 0) return false;
    Run run(mgr_, set_);
    if (run.Start(data, len) && run.Message(out)) return true;
    if (fail != nullptr) run.Fill(fail, data);
    if (report) run.Report();
    return false;
}

uint32_t Reader::Lookup(const char *name, uint32_t len) const {
    return Abnf_TknFind(mgr_, 0, name, len);
}

const char *Reader::Name(uint32_t id) {
    for (const auto &n : kNames) {
        if (n.id == id) return n.text;
    }
    return "";
}

namespace {

void Put(std::string &s, const char *p, uint32_t n) {
    for (uint32_t i = 0; i < n; i++) {
        const auto c = static_cast<unsigned char>(p[i]);
        if (c >= 0x20 && c < 0x7F) {
            s.push_back(char(c));
        } else {
            char hex[8];
            std::snprintf(hex, sizeof(hex), "\\x%02X", c);
            s += hex;
        }
    }
}

void Put(std::string &s, const ST_ZOS_SSTR &str) {
    Put(s, str.pcStr, str.uiLen);
}

}  // namespace

std::string Describe(const Message &msg) {
    std::string s;
    char line[96];
    if (msg.request) {
        s += "request: ";
        Put(s, msg.method);
        s += " ";
        Put(s, msg.uri);
    } else {
        std::snprintf(line, sizeof(line), "response: %u ", msg.status);
        s += line;
        Put(s, msg.reason);
    }
    std::snprintf(line, sizeof(line), " (SIP/%u.%u)\nheaders: %zu\n", msg.versionMajor,
                  msg.versionMinor, msg.headers.size());
    s += line;
    for (const Header &h : msg.headers) {
        s += "  ";
        s += h.id == ABNF_TKN_UNKNOWN ? "?" : Reader::Name(h.id);
        s += " | ";
        Put(s, h.name);
        s += ": ";
        const std::string v = h.Value();
        Put(s, v.data(), uint32_t(v.size()));
        s += "\n";
    }
    std::snprintf(line, sizeof(line), "body: %u bytes", msg.body.uiLen);
    s += line;
    if (msg.trailing != 0) {
        std::snprintf(line, sizeof(line), ", %u bytes after it ignored", msg.trailing);
        s += line;
    }
    s += "\n";
    return s;
}

}  // namespace kestro::sip
