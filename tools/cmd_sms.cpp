// kestro subcommands for the SMS PDU codec and the UTF-8/UCS-2 converters:
//   sms decode <hex>             an RPDU, or an SMS-DELIVER with its service centre field
//   sms submit --to N --text T [--report] [--mr M] [--smsc S]
//   sms deliver --from N --text T [--indication 0|1|2]
//   sms deliver-report [--mr M] [--cause C]
//   utf8 <text>                  code points and UTF-16 units
//   pinyin <text>                the text spelled in pinyin
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kestro_cmd.h"
#include "kestro_lite.h"

namespace kestro {
namespace {

void Quiet(const char * /*text*/) {}

// Starts the layer without its progress lines for the life of a command.
class Layer {
  public:
    Layer() {
        Zos_CfgSetPrintDisp(Quiet);
        ok_ = StartLayer() == ZOK;
        if (!ok_) std::fprintf(stderr, "kestro: the layer did not start\n");
    }
    ~Layer() {
        if (ok_) Zos_SysDestroy();
    }
    Layer(const Layer &) = delete;
    Layer &operator=(const Layer &) = delete;
    bool ok() const { return ok_; }

  private:
    bool ok_ = false;
};

// "--name value" options after the subcommand; flags take no value.
struct Options {
    std::vector<std::string> words;  // everything that is not an option

    bool Parse(int argc, char **argv, const std::vector<std::string> &withValue,
               const std::vector<std::string> &flags) {
        for (int i = 1; i < argc; ++i) {
            const std::string a = argv[i];
            bool known = false;
            for (const std::string &o : withValue) {
                if (a == o) {
                    if (i + 1 >= argc) {
                        std::fprintf(stderr, "kestro: %s needs a value\n", a.c_str());
                        return false;
                    }
                    values_.push_back({a, argv[++i]});
                    known = true;
                }
            }
            for (const std::string &f : flags) {
                if (a == f) {
                    values_.push_back({a, ""});
                    known = true;
                }
            }
            if (!known && a.size() > 2 && a.compare(0, 2, "--") == 0) {
                std::fprintf(stderr, "kestro: unknown option %s\n", a.c_str());
                return false;
            }
            if (!known) words.push_back(a);
        }
        return true;
    }
    const char *Get(const char *name) const {
        for (const auto &v : values_) {
            if (v.first == name) return v.second.c_str();
        }
        return nullptr;
    }
    bool Has(const char *name) const { return Get(name) != nullptr; }
    // A number option in 0..max, or the default when absent; false when bad.
    bool Number(const char *name, unsigned long max, unsigned long def, unsigned long *out) const {
        const char *v = Get(name);
        *out = def;
        if (v == nullptr) return true;
        char *end = nullptr;
        *out = std::strtoul(v, &end, 0);
        if (*v == '\0' || *end != '\0' || *out > max) {
            std::fprintf(stderr, "kestro: bad value for %s: %s\n", name, v);
            return false;
        }
        return true;
    }

  private:
    std::vector<std::pair<std::string, std::string>> values_;
};

std::string HexOf(const uint8_t *p, int32_t n) {
    if (n <= 0) return "";
    std::string out(2 * static_cast<size_t>(n) + 1, '\0');
    PDU_pduBytesToHexString(p, static_cast<uint32_t>(n), out.data());
    out.resize(2 * static_cast<size_t>(n));
    return out;
}

int SmsDecode(int argc, char **argv) {
    Options o;
    if (!o.Parse(argc, argv, {}, {}) || o.words.size() > 1) {
        std::fprintf(stderr, "usage: kestro sms decode [hex]   (standard input without hex)\n");
        return 2;
    }
    std::string text;
    if (o.words.size() == 1) {
        text = o.words[0];
    } else {
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof(buf), stdin)) > 0) text.append(buf, n);
    }
    return SmsDecodeText(text);
}

// A number the encoders can write: digits, optionally after one leading
// "+", at most 20 of them. Anything else is a usage error, not a message
// with filler digits or an empty address.
bool PhoneNumber(const char *option, const char *number) {
    const char *digits = number[0] == '+' ? number + 1 : number;
    const size_t n = std::strlen(digits);
    bool ok = n > 0 && n <= 20;
    for (size_t i = 0; ok && i < n; ++i) ok = digits[i] >= '0' && digits[i] <= '9';
    if (!ok)
        std::fprintf(stderr, "kestro: %s needs a number (digits, an optional leading +): %s\n",
                     option, number);
    return ok;
}

int SmsSubmit(int argc, char **argv) {
    Options o;
    unsigned long mr = 0;
    if (!o.Parse(argc, argv, {"--to", "--text", "--mr", "--smsc"}, {"--report"}) ||
        !o.words.empty() || !o.Has("--to") || !o.Has("--text") || !o.Number("--mr", 255, 0, &mr)) {
        std::fprintf(stderr,
                     "usage: kestro sms submit --to N --text T [--report] [--mr M] [--smsc S]\n");
        return 2;
    }
    if (!PhoneNumber("--to", o.Get("--to")) ||
        (o.Has("--smsc") && !PhoneNumber("--smsc", o.Get("--smsc")))) {
        return 2;
    }
    char hex[2 * PDU_BUF_SIZE + 1];
    uint8_t raw[PDU_BUF_SIZE];
    const auto ref = static_cast<uint8_t>(mr);
    const int32_t report = o.Has("--report") ? 1 : 0;
    if (PDU_3gppEncodeSubmitTPDU(ref, o.Get("--to"), o.Get("--text"), 0, hex, sizeof(hex), report) <
        0) {
        std::fprintf(stderr, "kestro: the message does not fit an SMS-SUBMIT\n");
        return 1;
    }
    std::printf("%s\n", hex);
    if (o.Has("--smsc")) {
        const int32_t n = PDU_3gppEncodeSubmitTPDU(ref, o.Get("--to"), o.Get("--text"), 1, raw,
                                                   sizeof(raw), report);
        uint8_t rp[2 * PDU_BUF_SIZE];
        const int32_t m = n < 0 ? -1
                                : PDU_3gppEncodeSubmit(raw, static_cast<uint32_t>(n),
                                                       o.Get("--smsc"), ref, rp, sizeof(rp));
        if (m < 0) {
            std::fprintf(stderr, "kestro: the message does not fit an RP-DATA\n");
            return 1;
        }
        std::printf("RP-DATA %s\n", HexOf(rp, m).c_str());
    }
    return 0;
}

int SmsDeliver(int argc, char **argv) {
    Options o;
    unsigned long indication = 0;
    if (!o.Parse(argc, argv, {"--from", "--text", "--indication"}, {}) || !o.words.empty() ||
        !o.Has("--from") || !o.Has("--text") || !o.Number("--indication", 2, 0, &indication)) {
        std::fprintf(stderr, "usage: kestro sms deliver --from N --text T [--indication 0|1|2]\n");
        return 2;
    }
    if (!PhoneNumber("--from", o.Get("--from"))) return 2;
    char hex[2 * PDU_BUF_SIZE + 1];
    if (PDU_3gppEncodeDeliverySms(o.Get("--from"), o.Get("--text"), hex, sizeof(hex),
                                  static_cast<int32_t>(indication)) < 0) {
        std::fprintf(stderr, "kestro: the message does not fit an SMS-DELIVER\n");
        return 1;
    }
    std::printf("%s\n", hex);
    return 0;
}

int SmsDeliverReport(int argc, char **argv) {
    Options o;
    unsigned long mr = 0, cause = 0;
    if (!o.Parse(argc, argv, {"--mr", "--cause"}, {}) || !o.words.empty() ||
        !o.Number("--mr", 255, 0, &mr) || !o.Number("--cause", 255, 0, &cause)) {
        std::fprintf(stderr, "usage: kestro sms deliver-report [--mr M] [--cause C]\n");
        return 2;
    }
    uint8_t rp[32];
    const int32_t n = PDU_3gppEncodeDeliverReport(0, static_cast<uint8_t>(mr),
                                                  static_cast<uint8_t>(cause), rp, sizeof(rp));
    if (n < 0) return 1;
    std::printf("%s\n", HexOf(rp, n).c_str());
    return 0;
}

}  // namespace

int RunSms(int argc, char **argv) {
    static const struct {
        const char *name;
        int (*run)(int, char **);
    } kSub[] = {{"decode", SmsDecode},
                {"submit", SmsSubmit},
                {"deliver", SmsDeliver},
                {"deliver-report", SmsDeliverReport}};
    if (argc >= 2) {
        for (const auto &s : kSub) {
            if (std::strcmp(argv[1], s.name) == 0) {
                Layer layer;
                return layer.ok() ? s.run(argc - 1, argv + 1) : 1;
            }
        }
    }
    std::fprintf(stderr,
                 "usage: kestro sms decode <hex>\n"
                 "       kestro sms submit --to N --text T [--report] [--mr M] [--smsc S]\n"
                 "       kestro sms deliver --from N --text T [--indication 0|1|2]\n"
                 "       kestro sms deliver-report [--mr M] [--cause C]\n");
    return 2;
}

int RunUtf8(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kestro utf8 <text>\n");
        return 2;
    }
    const char *text = argv[1];
    const auto len = static_cast<int32_t>(std::strlen(text));
    ST_UTF8_DECODE st;
    utf8_decode_init(&st, text, len);
    std::printf("code points:");
    for (int32_t c = utf8_decode_next(&st); c != UTF8_END; c = utf8_decode_next(&st)) {
        if (c == UTF8_ERROR) {
            std::printf("\nkestro: invalid UTF-8 at byte %d (character %d)\n",
                        utf8_decode_at_byte(&st), utf8_decode_at_character(&st));
            return 1;
        }
        std::printf(" U+%04X", static_cast<unsigned>(c));
    }
    std::vector<uint16_t> units(static_cast<size_t>(len) + 1);
    const int32_t n = utf8_to_utf16(units.data(), text, len, 0);
    std::printf("\nUTF-16:     ");
    for (int32_t i = 0; i < n; ++i) std::printf(" %04X", units[static_cast<size_t>(i)]);
    std::printf("\n");
    return 0;
}

// Characters with a reading are spelled by the library; every other
// character, ASCII aside (the library folds its capitals), passes through
// as the UTF-8 it came as. Items are separated by one space.
int RunPinyin(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kestro pinyin <text>\n");
        return 2;
    }
    Layer layer;
    if (!layer.ok()) return 1;
    const std::string text = argv[1];
    ST_UTF8_DECODE st;
    utf8_decode_init(&st, text.c_str(), static_cast<int32_t>(text.size()));
    std::string out;
    size_t at = 0;  // byte offset of the character being decoded
    for (int32_t c = utf8_decode_next(&st); c != UTF8_END; c = utf8_decode_next(&st)) {
        if (c == UTF8_ERROR) {
            std::fprintf(stderr, "kestro: invalid UTF-8 at byte %d\n", utf8_decode_at_byte(&st));
            return 1;
        }
        const size_t len = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        char item[16] = "";
        const auto u = static_cast<uint32_t>(c);
        const bool spelled = u < 0x80 || (u >= ZUCS_PINYIN_FIRST && u <= ZUCS_PINYIN_LAST);
        if (spelled) {
            const uint16_t unit[2] = {static_cast<uint16_t>(c), 0};
            if (Zucs_BmpToPinyin(unit, 1, item, sizeof(item), nullptr) != ZOK) return 1;
        }
        if (!out.empty()) out += ' ';
        if (item[0] != '\0') {
            out += item;
        } else {
            out.append(text, at, len);
        }
        at += len;
    }
    std::printf("%s\n", out.c_str());
    return 0;
}

}  // namespace kestro
