// SIP message reader written only with the ABNF toolkit's public
// functions: the request or status line, every header with its name looked
// up in a token manager of the common SIP header names (long and compact
// forms, case-insensitive), folded values unfolded, and the body split off
// by Content-Length. A message that does not read gives the toolkit's own
// error report, with a caret under the byte where reading stopped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "abnf.h"

namespace kestro::sip {

// Header ids of the manager; compact forms map to their long form's id.
enum HeaderId : uint16_t {
    kAccept = 1,
    kAcceptContact,
    kAcceptEncoding,
    kAcceptLanguage,
    kAlertInfo,
    kAllow,
    kAllowEvents,
    kAuthenticationInfo,
    kAuthorization,
    kCallId,
    kCallInfo,
    kContact,
    kContentDisposition,
    kContentEncoding,
    kContentLanguage,
    kContentLength,
    kContentType,
    kCSeq,
    kDate,
    kErrorInfo,
    kEvent,
    kExpires,
    kFrom,
    kIdentity,
    kIdentityInfo,
    kInReplyTo,
    kMaxForwards,
    kMimeVersion,
    kMinExpires,
    kMinSe,
    kOrganization,
    kPAssertedIdentity,
    kPath,
    kPriority,
    kPrivacy,
    kProxyAuthenticate,
    kProxyAuthorization,
    kProxyRequire,
    kRAck,
    kReason,
    kRecordRoute,
    kReferTo,
    kReferredBy,
    kRejectContact,
    kReplaces,
    kReplyTo,
    kRequestDisposition,
    kRequire,
    kRetryAfter,
    kRoute,
    kRSeq,
    kServer,
    kServiceRoute,
    kSessionExpires,
    kSubject,
    kSubscriptionState,
    kSupported,
    kTimestamp,
    kTo,
    kUnsupported,
    kUserAgent,
    kVia,
    kWarning,
    kWwwAuthenticate,
    kHeaderIdEnd
};

struct Header {
    uint32_t id;       // a HeaderId, or ABNF_TKN_UNKNOWN
    ST_ZOS_SSTR name;  // as written
    ST_ZOS_SSTR raw;   // the value as written (folds included)
    // The value unfolded: each line fold is one space, trailing blanks cut.
    std::string Value() const;
};

struct Message {
    bool request = false;
    ST_ZOS_SSTR method{};  // requests
    ST_ZOS_SSTR uri{};     // requests
    uint32_t versionMajor = 0, versionMinor = 0;
    uint32_t status = 0;   // responses
    ST_ZOS_SSTR reason{};  // responses (may be empty)
    std::vector<Header> headers;
    // Selected values read with the number rules (0 when absent).
    bool hasContentLength = false;
    uint32_t contentLength = 0;
    uint32_t cseq = 0;
    ST_ZOS_SSTR cseqMethod{};
    bool hasMaxForwards = false;
    uint32_t maxForwards = 0;
    ST_ZOS_SSTR body{};
    uint32_t trailing = 0;  // bytes after the body (ignored, as on a datagram)

    const Header *Find(uint32_t id) const;
    size_t Count(uint32_t id) const;
};

// Where and why reading stopped.
struct Failure {
    uint32_t code = 0;    // the error record's code
    uint32_t offset = 0;  // error position in the text
    std::string frame;    // the first logged frame's text
};

class Reader {
  public:
    // Builds the token manager and the character sets (the layer must be
    // started); ok() tells whether that worked.
    Reader();
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    bool ok() const { return mgr_ != nullptr && set_ != nullptr; }

    // Reads one message. On failure: false, `fail` filled when given, and
    // the toolkit's error report printed when `report` is set.
    bool Read(const char *data, uint32_t len, Message *out, bool report = true,
              Failure *fail = nullptr) const;

    // The id of a header name (either form, any case), ABNF_TKN_UNKNOWN
    // when the manager does not know it.
    uint32_t Lookup(const char *name, uint32_t len) const;
    // The long name of an id ("" for unknown).
    static const char *Name(uint32_t id);
    // The manager itself (benchmarks).
    ST_ABNF_TKN_MGR *Manager() const { return mgr_; }

  private:
    ST_ABNF_TKN_MGR *mgr_ = nullptr;
    ST_ABNF_CHRSET *set_ = nullptr;
};

// The text `kestro sip` prints for a read message.
std::string Describe(const Message &msg);

}  // namespace kestro::sip
