// kestro sms decode: the tool's own reader of SMS PDUs as they are pasted
// from modems and traces. It reads every field itself (the library keeps
// simplifications of its own) and accepts a PDU only when it consumes all
// octets; otherwise it names the field and the octet where reading failed.
//
// Forms tried, in order (the first that reads the whole input wins):
//   service centre address + SMS-DELIVER / SMS-SUBMIT / SMS-STATUS-REPORT
//   RPDU: RP-DATA (either direction), RP-ACK, RP-ERROR, RP-SMMA
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kestro_cmd.h"
#include "kestro_lite.h"

namespace kestro {
namespace {

using Bytes = std::vector<uint8_t>;

// What a reading shows, printed only when the whole message was read.
std::string g_out;
// The message as upper-case hex without white space, for the library.
std::string g_hex;

__attribute__((format(printf, 1, 2))) void Out(const char *fmt, ...) {
    char line[512];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof(line), fmt, ap);
    va_end(ap);
    g_out += line;
}

// A failure: what was being read, and at which octet (0-based).
struct Fault {
    std::string field;
    size_t octet = 0;
};

class Reader {
  public:
    Reader(const Bytes &b, size_t start = 0, size_t end = SIZE_MAX)
        : b_(b), pos_(start), end_(end < b.size() ? end : b.size()) {}
    bool Byte(const char *field, uint8_t *out) {
        if (pos_ >= end_) return Fail(field);
        *out = b_[pos_++];
        return true;
    }
    bool Take(const char *field, size_t n, const uint8_t **out) {
        if (n > end_ - pos_) return Fail(field);
        *out = b_.data() + pos_;
        pos_ += n;
        return true;
    }
    bool Fail(const char *field) { return FailAt(field, pos_); }
    bool FailAt(const char *field, size_t at) {
        if (fault.field.empty()) fault = {field, at};
        return false;
    }
    size_t pos() const { return pos_; }
    size_t left() const { return end_ - pos_; }
    Fault fault;

  private:
    const Bytes &b_;
    size_t pos_;
    size_t end_;
};

std::string Hex(const uint8_t *p, size_t n) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += kDigits[p[i] >> 4];
        s += kDigits[p[i] & 15];
    }
    return s;
}

std::string Latin1ToUtf8(const char *s) {
    std::string out;
    for (; *s != '\0'; ++s) {
        const auto c = static_cast<unsigned char>(*s);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

void PutUtf8(std::string &out, uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Semi-octet digits of an address or time stamp ('F' filler dropped).
std::string Digits(const uint8_t *p, size_t octets, size_t digits) {
    static const char kBcd[] = "0123456789*#abc";
    std::string s;
    for (size_t i = 0; i < octets && s.size() < digits; ++i) {
        for (uint8_t nib : {static_cast<uint8_t>(p[i] & 15), static_cast<uint8_t>(p[i] >> 4)}) {
            if (s.size() < digits && nib != 15) s += kBcd[nib];
        }
    }
    return s;
}

// An address: digits count (or octets for the service centre), type, value.
bool Address(Reader &r, const char *field, bool countsOctets, std::string *out) {
    uint8_t len = 0, type = 0;
    const uint8_t *p = nullptr;
    if (!r.Byte(field, &len)) return false;
    if (countsOctets && len == 0) {
        *out = "none";
        return true;
    }
    if (!r.Byte(field, &type)) return false;
    const size_t octets = countsOctets ? len - 1u : (len + 1u) / 2u;
    if (!r.Take(field, octets, &p)) return false;
    std::string value;
    if ((type & 0x70) == 0x50) {  // alphanumeric: GSM 7-bit packed
        char text[64] = "";
        const uint32_t septets = static_cast<uint32_t>(octets * 8 / 7);
        if (pdu_to_ascii(p, septets, text, sizeof(text)) <= 0) return r.Fail(field);
        value = Latin1ToUtf8(text);
    } else {
        // Appended piece by piece: GCC 12 misreads a literal + std::string
        // at -O3 as an overlapping copy (-Wrestrict).
        if ((type & 0x70) == 0x10) value = '+';
        value += Digits(p, octets, countsOctets ? 2 * octets : len);
    }
    char t[16];
    std::snprintf(t, sizeof(t), " (type 0x%02X)", type);
    *out = value + t;
    return true;
}

// Time stamp: its seven semi-octet pairs; the zone both ways.
bool TimeStamp(Reader &r, const char *field, std::string *out) {
    const uint8_t *p = nullptr;
    if (!r.Take(field, 7, &p)) return false;
    int v[6];
    for (int i = 0; i < 6; ++i) v[i] = (p[i] & 15) * 10 + (p[i] >> 4);
    // Quarter hours: swapped digits, the sign in bit 3 of the tens digit.
    const int quarters = (p[6] & 7) * 10 + (p[6] >> 4);
    const int zone = (p[6] & 8) != 0 ? -quarters : quarters;
    char text[96];
    std::snprintf(text, sizeof(text),
                  "20%02d-%02d-%02d %02d:%02d:%02d, zone %+d quarter hours (%+d min)", v[0], v[1],
                  v[2], v[3], v[4], v[5], zone, zone * 15);
    *out = text;
    return true;
}

enum class Alphabet { kGsm7, kEight, kUcs2 };

Alphabet AlphabetOf(uint8_t dcs) {
    if ((dcs & 0xC0) == 0x00) {
        const int a = (dcs >> 2) & 3;
        return a == 1 ? Alphabet::kEight : a == 2 ? Alphabet::kUcs2 : Alphabet::kGsm7;
    }
    if ((dcs & 0xF0) == 0xF0) return (dcs & 4) != 0 ? Alphabet::kEight : Alphabet::kGsm7;
    if ((dcs & 0xF0) == 0xE0) return Alphabet::kUcs2;
    return Alphabet::kGsm7;
}

const char *AlphabetName(Alphabet a) {
    return a == Alphabet::kGsm7 ? "GSM 7-bit" : a == Alphabet::kUcs2 ? "UCS-2" : "8-bit data";
}

// The user-data header's elements, one line each.
void ShowUdh(const uint8_t *h, size_t n, const char *indent) {
    Out("%s  user data header %s\n", indent, Hex(h, n).c_str());
    for (size_t i = 0; i + 2 <= n;) {
        const uint8_t iei = h[i], len = h[i + 1];
        const uint8_t *d = h + i + 2;
        if (i + 2 + len > n) break;
        if (iei == 0x00 && len == 3) {
            Out("%s    concatenated  reference %u, part %u of %u\n", indent, d[0], d[2], d[1]);
        } else if (iei == 0x08 && len == 4) {
            Out("%s    concatenated  reference %u, part %u of %u (16-bit reference)\n", indent,
                d[0] << 8 | d[1], d[3], d[2]);
        } else if (iei == 0x04 && len == 2) {
            Out("%s    ports         destination %u, origin %u\n", indent, d[0], d[1]);
        } else if (iei == 0x05 && len == 4) {
            Out("%s    ports         destination %u, origin %u\n", indent, d[0] << 8 | d[1],
                d[2] << 8 | d[3]);
        } else {
            Out("%s    element 0x%02X  %s\n", indent, iei, Hex(d, len).c_str());
        }
        i += 2u + len;
    }
}

// TP-UDL and TP-UD: the header when UDHI is set, then the text.
bool UserData(Reader &r, uint8_t dcs, bool udhi, const char *indent) {
    uint8_t udl = 0;
    if (!r.Byte("TP-UDL", &udl)) return false;
    const Alphabet a = AlphabetOf(dcs);
    const size_t octets = a == Alphabet::kGsm7 ? (udl * 7u + 7u) / 8u : udl;
    const size_t at = r.pos();
    const uint8_t *ud = nullptr;
    if (!r.Take("TP-UD", octets, &ud)) return false;
    size_t hdr = 0;  // octets of the header with its length octet
    if (udhi) {
        if (octets == 0 || ud[0] + 1u > octets)
            return r.FailAt("TP-UDHL (header longer than the data)", at);
        hdr = ud[0] + 1u;
        ShowUdh(ud + 1, ud[0], indent);
    }
    std::string text;
    if (a == Alphabet::kGsm7) {
        std::vector<uint8_t> codes(udl);
        for (size_t i = 0; i < udl; ++i) {
            const size_t bit = i * 7;
            unsigned v = ud[bit / 8] >> (bit % 8);
            if (bit % 8 > 1 && bit / 8 + 1 < octets) v |= ud[bit / 8 + 1] << (8 - bit % 8);
            codes[i] = static_cast<uint8_t>(v & 0x7F);
        }
        const size_t skip = (hdr * 8 + 6) / 7;  // septets the header and fill bits take
        const size_t count = udl > skip ? udl - skip : 0;
        std::vector<char> out(2 * count + 2);
        if (count != 0 &&
            convert_7bit_to_ascii(codes.data() + skip, static_cast<uint32_t>(count), out.data(),
                                  static_cast<uint32_t>(out.size())) == 0) {
            return r.FailAt("TP-UD (7-bit text)", at);
        }
        text = Latin1ToUtf8(out.data());
    } else if (a == Alphabet::kUcs2) {
        for (size_t i = hdr; i + 1 < octets; i += 2) {
            uint32_t c = static_cast<uint32_t>(ud[i] << 8 | ud[i + 1]);
            if (c >= 0xD800 && c < 0xDC00 && i + 3 < octets) {
                const uint32_t lo = static_cast<uint32_t>(ud[i + 2] << 8 | ud[i + 3]);
                if (lo >= 0xDC00 && lo < 0xE000) {
                    c = 0x10000 + ((c - 0xD800) << 10) + (lo - 0xDC00);
                    i += 2;
                }
            }
            PutUtf8(text, c);
        }
    } else {
        text = Hex(ud + hdr, octets - hdr) + " (hex)";
    }
    Out("%s  text            %s\n", indent, text.c_str());
    return true;
}

void Common(uint8_t pid, uint8_t dcs, const char *indent) {
    Out("%s  protocol id     0x%02X\n", indent, pid);
    Out("%s  coding scheme   0x%02X (%s)\n", indent, dcs, AlphabetName(AlphabetOf(dcs)));
}

bool Deliver(Reader &r, uint8_t first, const char *indent) {
    std::string from, stamp;
    uint8_t pid = 0, dcs = 0;
    if (!Address(r, "TP-OA", false, &from) || !r.Byte("TP-PID", &pid) || !r.Byte("TP-DCS", &dcs) ||
        !TimeStamp(r, "TP-SCTS", &stamp)) {
        return false;
    }
    Out("%sSMS-DELIVER\n", indent);
    Out("%s  first octet     0x%02X (MMS %d, SRI %d, UDHI %d, RP %d)\n", indent, first,
        (first >> 2) & 1, (first >> 5) & 1, (first >> 6) & 1, (first >> 7) & 1);
    Out("%s  originator      %s\n", indent, from.c_str());
    Common(pid, dcs, indent);
    Out("%s  time stamp      %s\n", indent, stamp.c_str());
    // The library reads the zone its own way; shown beside for comparison.
    if (indent[0] == '\0' && !g_hex.empty()) {
        char addr[PDU_ADDR_SIZE];
        std::vector<char> text(2048);
        ST_ZOS_SYS_TIME t{};
        if (PDU_3gppGetSubmitPduMessageAndAddress(g_hex.c_str(), addr, text.data(),
                                                  static_cast<uint32_t>(text.size()), &t) == 0) {
            Out("%s  zone (library)  %d s\n", indent, static_cast<int>(t.iTzOffset));
        }
    }
    return UserData(r, dcs, (first & 0x40) != 0, indent);
}

bool Submit(Reader &r, uint8_t first, const char *indent) {
    std::string to;
    uint8_t mr = 0, pid = 0, dcs = 0;
    if (!r.Byte("TP-MR", &mr) || !Address(r, "TP-DA", false, &to) || !r.Byte("TP-PID", &pid) ||
        !r.Byte("TP-DCS", &dcs)) {
        return false;
    }
    const int vpf = (first >> 3) & 3;
    std::string vp = "none";
    if (vpf == 2) {
        uint8_t v = 0;
        if (!r.Byte("TP-VP", &v)) return false;
        char t[48];
        const unsigned minutes = v <= 143   ? (v + 1u) * 5u
                                 : v <= 167 ? 720u + (v - 143u) * 30u
                                 : v <= 196 ? (v - 166u) * 1440u
                                            : (v - 192u) * 10080u;
        std::snprintf(t, sizeof(t), "relative 0x%02X (%u min)", v, minutes);
        vp = t;
    } else if (vpf == 3) {
        if (!TimeStamp(r, "TP-VP", &vp)) return false;
        vp.insert(0, "absolute ");
    } else if (vpf == 1) {
        const uint8_t *p = nullptr;
        if (!r.Take("TP-VP", 7, &p)) return false;
        vp = "enhanced ";
        vp += Hex(p, 7);
    }
    Out("%sSMS-SUBMIT\n", indent);
    Out("%s  first octet     0x%02X (RD %d, VPF %d, SRR %d, UDHI %d, RP %d)\n", indent, first,
        (first >> 2) & 1, vpf, (first >> 5) & 1, (first >> 6) & 1, (first >> 7) & 1);
    Out("%s  reference       %u\n", indent, mr);
    Out("%s  destination     %s\n", indent, to.c_str());
    Common(pid, dcs, indent);
    Out("%s  validity        %s\n", indent, vp.c_str());
    return UserData(r, dcs, (first & 0x40) != 0, indent);
}

bool StatusReport(Reader &r, uint8_t first, const char *indent) {
    std::string to, stamp, done;
    uint8_t mr = 0, st = 0;
    if (!r.Byte("TP-MR", &mr) || !Address(r, "TP-RA", false, &to) ||
        !TimeStamp(r, "TP-SCTS", &stamp) || !TimeStamp(r, "TP-DT", &done) ||
        !r.Byte("TP-ST", &st)) {
        return false;
    }
    Out("%sSMS-STATUS-REPORT\n", indent);
    Out("%s  first octet     0x%02X (MMS %d, SRQ %d, UDHI %d)\n", indent, first, (first >> 2) & 1,
        (first >> 5) & 1, (first >> 6) & 1);
    Out("%s  reference       %u\n", indent, mr);
    Out("%s  recipient       %s\n", indent, to.c_str());
    Out("%s  time stamp      %s\n", indent, stamp.c_str());
    Out("%s  discharged      %s\n", indent, done.c_str());
    const char *kind = st < 0x20 ? "delivered" : st < 0x40 ? "still trying" : "failed";
    Out("%s  status          0x%02X (%s)\n", indent, st, kind);
    if (r.left() == 0) return true;
    uint8_t pi = 0, pid = 0, dcs = 0;
    if (!r.Byte("TP-PI", &pi)) return false;
    if ((pi & 1) != 0 && !r.Byte("TP-PID", &pid)) return false;
    if ((pi & 2) != 0 && !r.Byte("TP-DCS", &dcs)) return false;
    if ((pi & 1) != 0 || (pi & 2) != 0) Common(pid, dcs, indent);
    if ((pi & 4) != 0) return UserData(r, dcs, (first & 0x40) != 0, indent);
    return true;
}

// A TPDU of the direction given by its place; the reader must end with it.
bool Tpdu(Reader &r, bool toMs, const char *indent) {
    uint8_t first = 0;
    if (!r.Byte("TP-MTI (first octet)", &first)) return false;
    const int mti = first & 3;
    bool ok = false;
    if (toMs && mti == 0) {
        ok = Deliver(r, first, indent);
    } else if (!toMs && mti == 1) {
        ok = Submit(r, first, indent);
    } else if (toMs && mti == 2) {
        ok = StatusReport(r, first, indent);
    } else {
        return r.Fail(toMs ? "TP-MTI (not DELIVER or STATUS-REPORT towards the phone)"
                           : "TP-MTI (not SUBMIT from the phone)");
    }
    return ok && (r.left() == 0 || r.Fail("end of message (octets left over)"));
}

// A report TPDU carried by RP-ACK or RP-ERROR: deliver report from the
// phone, submit report towards it. Shown as its octets and kind.
bool ReportTpdu(Reader &r, bool toMs, const char *indent) {
    uint8_t first = 0;
    if (!r.Byte("TP-MTI (first octet)", &first)) return false;
    const int mti = first & 3;
    if (mti != (toMs ? 1 : 0)) {
        return r.Fail(toMs ? "TP-MTI (not SUBMIT-REPORT)" : "TP-MTI (not DELIVER-REPORT)");
    }
    const uint8_t *rest = nullptr;
    const size_t n = r.left();
    r.Take("TPDU", n, &rest);
    Out("%sSMS-%s-REPORT\n", indent, toMs ? "SUBMIT" : "DELIVER");
    Out("%s  first octet     0x%02X\n", indent, first);
    Out("%s  parameters      %s\n", indent, n != 0 ? Hex(rest, n).c_str() : "none");
    return true;
}

// Service centre address + TPDU. The first octet of the TPDU tells the
// direction: DELIVER and STATUS-REPORT towards the phone, SUBMIT from it.
bool WithServiceCentre(const Bytes &pdu, Fault *fault) {
    g_out.clear();
    Reader r(pdu);
    std::string sc;
    bool ok = Address(r, "service centre address", true, &sc);
    if (ok) Out("service centre    %s\n", sc.c_str());
    if (ok) {
        const size_t at = r.pos();
        const bool toMs = at < pdu.size() && (pdu[at] & 3) != 1;
        ok = Tpdu(r, toMs, "");
    }
    if (!ok) *fault = r.fault;
    return ok;
}

const char *const kRpNames[] = {"RP-DATA (phone to network)",  "RP-DATA (network to phone)",
                                "RP-ACK (phone to network)",   "RP-ACK (network to phone)",
                                "RP-ERROR (phone to network)", "RP-ERROR (network to phone)",
                                "RP-SMMA (phone to network)"};

// An RPDU. RP-Cause is read as a length and value, or in the layout this
// library writes (identifier 0x42, length, value); RP-User-Data of RP-ACK
// and RP-ERROR with its identifier 0x41, or as the library writes an
// RP-ERROR's (length and TPDU).
bool Rpdu(const Bytes &pdu, Fault *fault) {
    g_out.clear();
    Reader r(pdu);
    uint8_t mti = 0, mr = 0;
    bool ok = r.Byte("RP-MTI", &mti) && (mti <= 6 || r.FailAt("RP-MTI (not 0 to 6)", 0)) &&
              r.Byte("RP-MR", &mr);
    if (ok) {
        Out("RPDU\n  message type    %u %s\n  reference       %u\n", mti, kRpNames[mti], mr);
    }
    const bool toMs = (mti & 1) != 0;
    if (ok && mti <= 1) {
        std::string oa, da;
        ok = Address(r, "RP-OA", true, &oa) && Address(r, "RP-DA", true, &da);
        if (ok) Out("  originator      %s\n  destination     %s\n", oa.c_str(), da.c_str());
        uint8_t len = 0;
        ok = ok && r.Byte("RP-UD length", &len);
        if (ok && len != r.left()) ok = r.Fail("RP-UD length (not the rest of the message)");
        ok = ok && Tpdu(r, toMs, "  ");
    } else if (ok && mti <= 5) {
        if (mti >= 4) {
            uint8_t a = 0, b = 0, cause = 0;
            ok = r.Byte("RP-Cause", &a) && r.Byte("RP-Cause", &b);
            if (ok && a == 0x42 && b >= 1) {  // identifier, length, value
                ok = r.Byte("RP-Cause value", &cause);
                for (uint8_t i = 1; ok && i < b; ++i) ok = r.Byte("RP-Cause diagnostic", &a);
                if (ok) Out("  cause           %u (0x%02X, with identifier 0x42)\n", cause, cause);
            } else if (ok && a >= 1) {  // length, value
                cause = b;
                for (uint8_t i = 1; ok && i < a; ++i) ok = r.Byte("RP-Cause diagnostic", &b);
                if (ok) Out("  cause           %u (0x%02X)\n", cause, cause);
            } else if (ok) {
                ok = r.FailAt("RP-Cause (length 0)", 2);
            }
        }
        if (ok && r.left() != 0) {
            uint8_t iei = 0, len = 0;
            ok = r.Byte("RP-UD", &iei);
            if (ok && iei == 0x41) {
                ok = r.Byte("RP-UD length", &len);
            } else {
                len = iei;  // no identifier
            }
            if (ok && len != r.left()) ok = r.Fail("RP-UD length (not the rest of the message)");
            ok = ok && ReportTpdu(r, toMs, "  ");
        }
    }
    if (ok && r.left() != 0) ok = r.Fail("end of message (octets left over)");
    if (!ok) *fault = r.fault;
    return ok;
}

// Hex digits, white space ignored; false for anything else or an odd count.
bool ParseHex(const std::string &text, Bytes *out, std::string *why) {
    std::string digits;
    for (char c : text) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            *why = std::string("not hexadecimal: '") + c + "'";
            return false;
        }
        digits += c;
    }
    g_hex.clear();
    for (char c : digits) g_hex += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (digits.empty() || digits.size() % 2 != 0) {
        *why = "need an even, non-zero number of hex digits";
        return false;
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
        out->push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return true;
}

}  // namespace

int SmsDecodeText(const std::string &text) {
    Bytes pdu;
    std::string why;
    if (!ParseHex(text, &pdu, &why)) {
        std::fprintf(stderr, "kestro sms decode: %s\n", why.c_str());
        return 2;
    }
    Fault asTpdu, asRpdu;
    if (WithServiceCentre(pdu, &asTpdu) || Rpdu(pdu, &asRpdu)) {
        std::fputs(g_out.c_str(), stdout);
        return 0;
    }
    std::fprintf(stderr,
                 "kestro sms decode: not a whole message (%zu octets)\n"
                 "  as service centre + TPDU: %s at octet %zu\n"
                 "  as RPDU:                  %s at octet %zu\n",
                 pdu.size(), asTpdu.field.c_str(), asTpdu.octet, asRpdu.field.c_str(),
                 asRpdu.octet);
    return 1;
}

}  // namespace kestro
