// kestro subcommands over the codecs: Base64/32/16, checksums and digests,
// DES, Milenage, UUIDs and random numbers.
//
// Exit codes: 0 success, 1 the operation failed (undecodable input, an
// unreadable file), 2 bad usage (unknown option, bad hex, wrong length).
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kestro_cmd.h"
#include "kestro_lite.h"

namespace kestro {
namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

using Bytes = std::vector<uint8_t>;

int Usage(const char *cmd, const char *text) {
    std::fprintf(stderr, "usage: kestro %s %s\n", cmd, text);
    return kUsage;
}

int Fail(const char *cmd, const char *what) {
    std::fprintf(stderr, "kestro %s: %s\n", cmd, what);
    return kFailed;
}

bool ReadStream(FILE *f, Bytes &out) {
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) {
        if (out.size() + n > 0xFFFFFFF0u) return false;  // the codecs take 32-bit lengths
        out.insert(out.end(), buf, buf + n);
    }
    return std::ferror(f) == 0;
}

// The argument's bytes, or standard input when there is no argument.
bool ReadInput(const char *arg, Bytes &out) {
    if (arg != nullptr) {
        out.assign(arg, arg + std::strlen(arg));
        return true;
    }
    return ReadStream(stdin, out);
}

// Text input for the decoders: white space (line breaks of wrapped text)
// is dropped.
std::string Compact(const Bytes &in) {
    std::string s;
    for (uint8_t c : in) {
        if (std::isspace(c) == 0) s += static_cast<char>(c);
    }
    return s;
}

// Strict hexadecimal (either case, no separators); false on any odd
// length or non-digit.
bool ParseHex(const std::string &text, Bytes &out) {
    std::string upper = text;
    for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (upper.empty()) return false;
    out.assign(upper.size() / 2, 0);
    uint32_t size = static_cast<uint32_t>(out.size());
    return Zbase16_Decode(upper.data(), static_cast<uint32_t>(upper.size()), out.data(), &size) ==
           ZOK;
}

std::string ToHex(const uint8_t *p, size_t n) {
    static const char kDigits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += kDigits[p[i] >> 4];
        s += kDigits[p[i] & 15];
    }
    return s;
}

void WriteBytes(const Bytes &b) {
    if (!b.empty()) std::fwrite(b.data(), 1, b.size(), stdout);
}

// Shared driver of the three text codecs.
struct TextCodec {
    const char *name;
    const char *usage;
    bool hasUrl;
    uint32_t (*encode)(const uint8_t *, uint32_t, uint32_t, char *, uint32_t *);
    uint32_t (*decode)(const char *, uint32_t, uint8_t *, uint32_t *);
    bool trimPadding;      // drop the bytes that "=" stands for (Base32)
    const char *badChars;  // what the decoder refuses
};

// The library's Base32 decoder always returns whole 5-byte groups; the
// "=" run at the end tells how many of the last group's bytes are real.
// RFC 4648 pads a final group with 0, 1, 3, 4 or 6 "="; any other run
// gives kBadPadding.
constexpr uint32_t kBadPadding = 0xFFFFFFFFu;
uint32_t Base32PaddedBytes(const std::string &text) {
    size_t pads = 0;
    while (pads < text.size() && pads < 8 && text[text.size() - 1 - pads] == '=') ++pads;
    static const uint32_t kDropped[9] = {0,           1, kBadPadding, 2,          3,
                                         kBadPadding, 4, kBadPadding, kBadPadding};
    return kDropped[pads];
}

int RunTextCodec(const TextCodec &codec, int argc, char **argv) {
    bool decode = false;
    uint32_t url = 0;
    const char *arg = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-d") == 0) {
            decode = true;
        } else if (codec.hasUrl && std::strcmp(argv[i], "-u") == 0) {
            url = 1;
        } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
            return Usage(codec.name, codec.usage);
        } else if (arg == nullptr) {
            arg = argv[i];
        } else {
            return Usage(codec.name, codec.usage);
        }
    }
    Bytes in;
    if (!ReadInput(arg, in)) return Fail(codec.name, "cannot read the input");
    if (decode) {
        const std::string text = Compact(in);
        if (text.empty()) return kOk;  // nothing in, nothing out
        uint32_t size = 0;
        if (codec.decode(text.data(), static_cast<uint32_t>(text.size()), nullptr, &size) != ZOK) {
            return Fail(codec.name, "input length is not valid for this encoding");
        }
        Bytes out(size);
        if (codec.decode(text.data(), static_cast<uint32_t>(text.size()), out.data(), &size) !=
            ZOK) {
            std::fprintf(stderr, "kestro %s: invalid character in the input (%s)\n", codec.name,
                         codec.badChars);
            return kFailed;
        }
        out.resize(size);
        if (codec.trimPadding) {
            const uint32_t dropped = Base32PaddedBytes(text);
            if (dropped == kBadPadding) return Fail(codec.name, "a final \"=\" run of 2, 5 or 7");
            out.resize(size - dropped);
        }
        WriteBytes(out);
        return kOk;
    }
    if (in.empty()) return kOk;  // nothing in, nothing out
    uint32_t size = 0;
    if (codec.encode(in.data(), static_cast<uint32_t>(in.size()), url, nullptr, &size) != ZOK) {
        return Fail(codec.name, "input too long");
    }
    std::string out(size, '=');
    if (codec.encode(in.data(), static_cast<uint32_t>(in.size()), url, out.data(), &size) != ZOK) {
        return Fail(codec.name, "encoding failed");
    }
    std::printf("%s\n", out.c_str());
    return kOk;
}

uint32_t Enc64(const uint8_t *d, uint32_t n, uint32_t url, char *o, uint32_t *s) {
    return Zbase64_Encode(d, n, url, o, s);
}
// RFC 4648 text. The library writes a final group of three bytes as four
// characters, dropping its last four bits; such a group is encoded here as
// four bytes (a zero added), of which the five characters that carry the
// three bytes are kept, then "===".
uint32_t Enc32(const uint8_t *d, uint32_t n, uint32_t, char *o, uint32_t *s) {
    if (d == nullptr || n == 0 || n % 5 != 3) return Zbase32_Encode(d, n, o, s);
    if (n > 0xFFFFFFF0u) return ZFAILED;
    const uint32_t need = (n + 4) / 5 * 8;
    if (o == nullptr) {
        *s = need;
        return ZOK;
    }
    if (*s < need) return ZFAILED;
    Bytes padded(d, d + n);
    padded.push_back(0);
    uint32_t size = need;
    if (Zbase32_Encode(padded.data(), n + 1, o, &size) != ZOK) return ZFAILED;
    std::memcpy(o + need - 3, "===", 3);
    *s = need;
    return ZOK;
}

// Upper-case digits for the library's decoder, which takes only those.
uint32_t Dec16(const char *t, uint32_t n, uint8_t *o, uint32_t *s) {
    std::string upper(t, n);
    for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return Zbase16_Decode(upper.data(), n, o, s);
}
uint32_t Enc16(const uint8_t *d, uint32_t n, uint32_t, char *o, uint32_t *s) {
    return Zbase16_Encode(d, n, o, s);
}

// Runs `digest` over every named file (standard input without names or
// for "-") and prints "<value>  <name>" lines.
int ForEachFile(const char *cmd, int argc, char **argv, std::string (*digest)(FILE *f, bool &ok)) {
    int rc = kOk;
    auto one = [&](const char *path) {
        const bool isStdin = path == nullptr || std::strcmp(path, "-") == 0;
        const char *name = isStdin ? "-" : path;
        FILE *f = isStdin ? stdin : std::fopen(path, "rb");
        if (f == nullptr) {
            std::fprintf(stderr, "kestro %s: %s: %s\n", cmd, name, std::strerror(errno));
            rc = kFailed;
            return;
        }
        bool ok = true;
        const std::string value = digest(f, ok);
        if (!isStdin) std::fclose(f);
        if (!ok) {
            std::fprintf(stderr, "kestro %s: %s: read error or too large\n", cmd, name);
            rc = kFailed;
            return;
        }
        std::printf("%s  %s\n", value.c_str(), name);
    };
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-' && argv[i][1] != '\0') {
            return Usage(cmd, "[FILE...]   (standard input without FILE or for -)");
        }
    }
    if (argc < 2) one(nullptr);
    for (int i = 1; i < argc; ++i) one(argv[i]);
    return rc;
}

std::string Crc32Of(FILE *f, bool &ok) {
    Bytes all;
    ok = ReadStream(f, all);
    char text[9];
    std::snprintf(text, sizeof(text), "%08x",
                  Zcrc_Calc32(all.data(), static_cast<uint32_t>(all.size())));
    return text;
}

std::string Fcs16Of(FILE *f, bool &ok) {
    uint8_t buf[65536];
    uint16_t fcs = 0xFFFF;
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) {
        fcs = Zcrc_Fcs16(fcs, buf, static_cast<uint32_t>(n));
    }
    ok = std::ferror(f) == 0;
    char text[5];
    std::snprintf(text, sizeof(text), "%04x", static_cast<unsigned>(static_cast<uint16_t>(~fcs)));
    return text;
}

std::string Md5Of(FILE *f, bool &ok) {
    uint8_t buf[65536];
    Zmd5Ctx ctx;
    Zmd5_Init(&ctx);
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) {
        Zmd5_Update(&ctx, buf, static_cast<uint32_t>(n));
    }
    ok = std::ferror(f) == 0;
    uint8_t d[ZMD5_DIGEST_LEN];
    Zmd5_Final(d, &ctx);
    return ToHex(d, sizeof(d));
}

std::string Sha1Of(FILE *f, bool &ok) {
    uint8_t buf[65536];
    Zsha1Ctx ctx;
    Zsha1_Reset(&ctx);
    size_t n;
    ok = true;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) {
        if (Zsha1_Input(&ctx, buf, static_cast<uint32_t>(n)) != ZSHA1_SUCCESS) ok = false;
    }
    uint8_t d[ZSHA1_DIGEST_LEN];
    if (std::ferror(f) != 0 || Zsha1_Result(&ctx, d) != ZSHA1_SUCCESS) ok = false;
    return ToHex(d, sizeof(d));
}

// Milenage from OPc with the library's AES core (the f-functions derive
// OPc from OP themselves).
struct MilenageOut {
    uint8_t opc[16], macA[8], macS[8], res[8], ck[16], ik[16], ak[6], akS[6];
};

void MilenageFromOpc(const Bytes &k, const Bytes &rand, const Bytes &sqn, const Bytes &amf,
                     const uint8_t *opc, MilenageOut &o) {
    Zaka_RjdlKeySchedule(k.data());
    std::memcpy(o.opc, opc, 16);
    uint8_t in[16], temp[16], out[16];
    for (int i = 0; i < 16; ++i) in[i] = rand[i] ^ opc[i];
    Zaka_RjdlEncrypt(in, temp);
    // OUT1: IN1 = SQN || AMF || SQN || AMF, rotated by 64 bits.
    uint8_t in1[16];
    for (int i = 0; i < 6; ++i) in1[i] = in1[i + 8] = sqn[i];
    for (int i = 0; i < 2; ++i) in1[i + 6] = in1[i + 14] = amf[i];
    for (int i = 0; i < 16; ++i) in[(i + 8) % 16] = in1[i] ^ opc[i];
    for (int i = 0; i < 16; ++i) in[i] ^= temp[i];
    Zaka_RjdlEncrypt(in, out);
    for (int i = 0; i < 16; ++i) out[i] ^= opc[i];
    std::memcpy(o.macA, out, 8);
    std::memcpy(o.macS, out + 8, 8);
    // OUT2..OUT5: byte shift of the rotation and the constant's last byte.
    const int shifts[4] = {0, 12, 8, 4};
    const uint8_t consts[4] = {1, 2, 4, 8};
    for (int n = 0; n < 4; ++n) {
        for (int i = 0; i < 16; ++i) in[(i + shifts[n]) % 16] = temp[i] ^ opc[i];
        in[15] ^= consts[n];
        Zaka_RjdlEncrypt(in, out);
        for (int i = 0; i < 16; ++i) out[i] ^= opc[i];
        if (n == 0) {
            std::memcpy(o.res, out + 8, 8);
            std::memcpy(o.ak, out, 6);
        } else if (n == 1) {
            std::memcpy(o.ck, out, 16);
        } else if (n == 2) {
            std::memcpy(o.ik, out, 16);
        } else {
            std::memcpy(o.akS, out, 6);
        }
    }
}

}  // namespace

int RunBase64(int argc, char **argv) {
    static const TextCodec codec = {"base64",
                                    "[-d] [-u] [TEXT]",
                                    true,
                                    Enc64,
                                    Zbase64_Decode,
                                    false,
                                    "only A-Z a-z 0-9 + / or - _ and =, one alphabet"};
    return RunTextCodec(codec, argc, argv);
}

int RunBase32(int argc, char **argv) {
    static const TextCodec codec = {"base32", "[-d] [TEXT]",       false, Enc32, Zbase32_Decode,
                                    true,     "only A-Z 2-7 and ="};
    return RunTextCodec(codec, argc, argv);
}

int RunHex(int argc, char **argv) {
    static const TextCodec codec = {
        "hex", "[-d] [TEXT]", false, Enc16, Dec16, false, "only 0-9 and A-F in either case"};
    return RunTextCodec(codec, argc, argv);
}

int RunCrc32(int argc, char **argv) {
    return ForEachFile("crc32", argc, argv, Crc32Of);
}

int RunFcs16(int argc, char **argv) {
    return ForEachFile("fcs16", argc, argv, Fcs16Of);
}

int RunMd5(int argc, char **argv) {
    return ForEachFile("md5", argc, argv, Md5Of);
}

int RunSha1(int argc, char **argv) {
    return ForEachFile("sha1", argc, argv, Sha1Of);
}

int RunDes(int argc, char **argv) {
    const char *usage =
        "-e|-d KEY [DATA]   (KEY: 16 hex digits; -e reads DATA as bytes and "
        "prints hex, -d reads hex and writes bytes; standard input without DATA)";
    if (argc < 3 || argc > 4) return Usage("des", usage);
    const bool encrypt = std::strcmp(argv[1], "-e") == 0;
    if (!encrypt && std::strcmp(argv[1], "-d") != 0) return Usage("des", usage);
    Bytes key;
    if (!ParseHex(argv[2], key) || key.size() != 8) {
        std::fprintf(stderr, "kestro des: KEY must be 16 hex digits\n");
        return kUsage;
    }
    Bytes in;
    if (!ReadInput(argc == 4 ? argv[3] : nullptr, in)) return Fail("des", "cannot read the input");
    if (encrypt) {
        if (in.empty()) return Fail("des", "no data to encrypt");
        Bytes out(in.size() + 8);
        uint32_t size = static_cast<uint32_t>(out.size());
        if (Zdes_EncData(key.data(), in.data(), static_cast<uint32_t>(in.size()), out.data(),
                         &size) != ZOK) {
            return Fail("des", "encryption failed");
        }
        std::printf("%s\n", ToHex(out.data(), size).c_str());
        return kOk;
    }
    Bytes cipher;
    if (!ParseHex(Compact(in), cipher)) {
        std::fprintf(stderr, "kestro des: the cipher text must be hex digits\n");
        return kUsage;
    }
    if (cipher.size() % 8 != 0) {
        std::fprintf(stderr, "kestro des: the cipher text must be a multiple of 8 bytes\n");
        return kUsage;
    }
    Bytes out(cipher.size());
    uint32_t size = static_cast<uint32_t>(out.size());
    if (Zdes_DecData(key.data(), cipher.data(), static_cast<uint32_t>(cipher.size()), out.data(),
                     &size) != ZOK) {
        return Fail("des", "decryption failed (wrong key or damaged data)");
    }
    out.resize(size);
    WriteBytes(out);
    return kOk;
}

int RunMilenage(int argc, char **argv) {
    const char *usage =
        "K RAND SQN AMF (--op OP | --opc OPC)   (hex: K, RAND, OP, OPC 32 "
        "digits; SQN 12; AMF 4)";
    if (argc != 7) return Usage("milenage", usage);
    const bool haveOp = std::strcmp(argv[5], "--op") == 0;
    if (!haveOp && std::strcmp(argv[5], "--opc") != 0) return Usage("milenage", usage);
    struct Field {
        const char *name;
        const char *text;
        size_t len;
        Bytes value;
    } fields[] = {{"K", argv[1], 16, {}},
                  {"RAND", argv[2], 16, {}},
                  {"SQN", argv[3], 6, {}},
                  {"AMF", argv[4], 2, {}},
                  {haveOp ? "OP" : "OPC", argv[6], 16, {}}};
    for (Field &f : fields) {
        if (!ParseHex(f.text, f.value) || f.value.size() != f.len) {
            std::fprintf(stderr, "kestro milenage: %s must be %zu hex digits\n", f.name, 2 * f.len);
            return kUsage;
        }
    }
    const Bytes &k = fields[0].value, &rand = fields[1].value, &sqn = fields[2].value,
                &amf = fields[3].value;
    MilenageOut o{};
    if (haveOp) {
        uint8_t saved[16];
        std::memcpy(saved, m_aucZakaOp, 16);
        std::memcpy(m_aucZakaOp, fields[4].value.data(), 16);
        Zaka_F1(k.data(), rand.data(), sqn.data(), amf.data(), o.macA);
        Zaka_ComputeOpC(o.opc);
        Zaka_F1star(k.data(), rand.data(), sqn.data(), amf.data(), o.macS);
        Zaka_F2345(k.data(), rand.data(), o.res, o.ck, o.ik, o.ak);
        Zaka_F5star(k.data(), rand.data(), o.akS);
        std::memcpy(m_aucZakaOp, saved, 16);
    } else {
        MilenageFromOpc(k, rand, sqn, amf, fields[4].value.data(), o);
    }
    std::printf("OPc           %s\n", ToHex(o.opc, 16).c_str());
    std::printf("f1  (MAC-A)   %s\n", ToHex(o.macA, 8).c_str());
    std::printf("f1* (MAC-S)   %s\n", ToHex(o.macS, 8).c_str());
    std::printf("f2  (RES)     %s\n", ToHex(o.res, 8).c_str());
    std::printf("f3  (CK)      %s\n", ToHex(o.ck, 16).c_str());
    std::printf("f4  (IK)      %s\n", ToHex(o.ik, 16).c_str());
    std::printf("f5  (AK)      %s\n", ToHex(o.ak, 6).c_str());
    std::printf("f5* (AK-S)    %s\n", ToHex(o.akS, 6).c_str());
    return kOk;
}

namespace {

// A count argument of 1..100000; 0 when it is not one.
unsigned long Count(const char *text) {
    char *end = nullptr;
    errno = 0;
    const unsigned long n = std::strtoul(text, &end, 10);
    return errno != 0 || end == text || *end != '\0' || n == 0 || n > 100000 ? 0 : n;
}

}  // namespace

int RunUuid(int argc, char **argv) {
    const char *usage = "[COUNT]   (1 to 100000 version-1 UUIDs, one per line)";
    unsigned long n = 1;
    if (argc > 2 || (argc == 2 && (n = Count(argv[1])) == 0)) return Usage("uuid", usage);
    for (unsigned long i = 0; i < n; ++i) {
        const char *u = Zuuid_Uuid();
        if (u == nullptr) return Fail("uuid", "the clock cannot be read");
        std::printf("%s\n", u);
    }
    return kOk;
}

int RunRandom(int argc, char **argv) {
    const char *usage = "[16|32|64] [COUNT]   (random numbers in hex, 32 bits by default)";
    unsigned long bits = 32, n = 1;
    if (argc > 3) return Usage("random", usage);
    if (argc >= 2) {
        bits = std::strtoul(argv[1], nullptr, 10);
        if (std::strcmp(argv[1], "16") != 0 && std::strcmp(argv[1], "32") != 0 &&
            std::strcmp(argv[1], "64") != 0) {
            return Usage("random", usage);
        }
    }
    if (argc == 3 && (n = Count(argv[2])) == 0) return Usage("random", usage);
    for (unsigned long i = 0; i < n; ++i) {
        if (bits == 16) {
            std::printf("%04x\n", static_cast<unsigned>(Zrandom_N16()));
        } else if (bits == 32) {
            std::printf("%08lx\n", static_cast<unsigned long>(Zrandom_N32()));
        } else {
            std::printf("%016llx\n", static_cast<unsigned long long>(Zrandom_N64()));
        }
    }
    return kOk;
}

}  // namespace kestro
