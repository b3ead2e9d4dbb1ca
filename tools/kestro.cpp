// kestro: the command-line face of kestro_lite. Without arguments it starts
// the layer (the start-up progress lines appear), shows the version and the
// configuration in force, and stops the layer again.
#include <cstdio>
#include <cstring>
#include <iterator>

#include "kestro_cmd.h"
#include "kestro_lite.h"

namespace kestro {
namespace {

void ShowConfig() {
    std::printf("configuration:\n");
#define KESTRO_SHOW_FLAG(name, type, def, fb) \
    std::printf("  %-20s %u\n", #name, static_cast<unsigned>(Zos_CfgGet##name()));
#define KESTRO_SHOW_U32(name, type, def, fb) \
    std::printf("  %-20s %lu\n", #name, static_cast<unsigned long>(Zos_CfgGet##name()));
    ZOS_CFG_FLAGS(KESTRO_SHOW_FLAG)
    std::printf("  %-20s %lu\n", "ImsbrdEnable",
                static_cast<unsigned long>(Zos_CfgGetImsbrdEnable()));
    std::printf("  %-20s %lu\n", "CPVoiceEnable",
                static_cast<unsigned long>(Zos_CfgGetCPVoiceEnable()));
    ZOS_CFG_VALUES_B(KESTRO_SHOW_U32)
    ZOS_CFG_RULED_A(KESTRO_SHOW_U32)
    ZOS_CFG_VALUES_C(KESTRO_SHOW_U32)
    ZOS_CFG_RULED_B(KESTRO_SHOW_U32)
    std::printf("  %-20s \"%s\"\n", "LogDir", Zos_CfgGetLogDir());
    std::printf("  %-20s \"%s\"\n", "LogFile", Zos_CfgGetLogFile());
    ZOS_CFG_VALUES_D(KESTRO_SHOW_U32)
#undef KESTRO_SHOW_FLAG
#undef KESTRO_SHOW_U32
    const ST_ZOS_POOL_CFG *pools[] = {Zos_CfgGetMemPool(), Zos_CfgGetDbufPool(),
                                      Zos_CfgGetPMemPool()};
    for (const ST_ZOS_POOL_CFG *p : pools) {
        std::printf("  pool %-15s rows %u, locked %u, shrink %u, log %u\n", p->pcName, p->ucBktCnt,
                    p->ucLocked, p->ucShrink, p->ucLogErr);
    }
}

}  // namespace

uint32_t StartLayer() {
    Zos_CfgSetLogFile("");
    return Zos_SysInit();
}

int RunStatus(int /*argc*/, char ** /*argv*/) {
    // The system log's lines are echoed to the console, so its start-up
    // line (and any failure the layer logs) shows with the progress lines.
    Zos_CfgSetLogPrint(1);
    // The OS timer manager runs on this thread's looper, through the host
    // timer.
    ALooper_prepare(0);
    Zpand_HostTimerInstall();
    if (StartLayer() != ZOK) {
        std::fprintf(stderr, "kestro: the layer did not start\n");
        return 1;
    }
    std::printf("kestro_lite version %s\n", Kestro_GetVersion());
    ShowConfig();
    Zos_LogInfo(Zos_LogGetZosId(), "kestro status shown.");
    Zos_SysDestroy();
    return 0;
}

namespace {

const Command kCommands[] = {
    {"status", "start the layer, show version and configuration, stop it", RunStatus},
    {"base64", "[-d] [-u] [TEXT]: Base64 encode (-u URL-safe) or decode", RunBase64},
    {"base32", "[-d] [TEXT]: Base32 encode or decode", RunBase32},
    {"hex", "[-d] [TEXT]: upper-case hex encode or decode", RunHex},
    {"crc32", "[FILE...]: CRC-32 of files or standard input", RunCrc32},
    {"fcs16", "[FILE...]: PPP FCS-16 of files or standard input", RunFcs16},
    {"md5", "[FILE...]: MD5 of files or standard input", RunMd5},
    {"sha1", "[FILE...]: SHA-1 of files or standard input", RunSha1},
    {"des", "-e|-d KEY [DATA]: DES with length byte and padding, hex key", RunDes},
    {"milenage", "K RAND SQN AMF --op OP|--opc OPC: f1-f5* and OPc", RunMilenage},
    {"uuid", "[COUNT]: version-1 UUIDs", RunUuid},
    {"random", "[16|32|64] [COUNT]: random numbers", RunRandom},
    {"sms", "decode <hex> | submit | deliver | deliver-report: SMS PDUs", RunSms},
    {"utf8", "<text>: its code points and UTF-16 units", RunUtf8},
    {"pinyin", "<text>: the text spelled in pinyin", RunPinyin},
    {"runtime", "demo | bench [COUNT]: module tasks exchanging messages", RunRuntime},
    {"sip", "FILE: read a SIP message, or show where it does not read", RunSip},
    {"ini", "get FILE SECT KEY | set FILE SECT KEY VALUE | dump FILE: INI files", RunIni},
};

void Usage(FILE *out) {
    std::fprintf(out, "usage: kestro [command [arguments]]\n\ncommands:\n");
    for (const Command &c : kCommands) std::fprintf(out, "  %-10s %s\n", c.name, c.usage);
    std::fprintf(out, "  %-10s %s\n", "help", "show this text");
    std::fprintf(out, "\nWithout a command, kestro runs \"status\".\n");
}

}  // namespace
}  // namespace kestro

int main(int argc, char **argv) {
    // No log file for the commands that use the layer without starting it.
    Zos_CfgSetLogFile("");
    if (argc < 2) return kestro::RunStatus(argc, argv);
    if (std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0 ||
        std::strcmp(argv[1], "-h") == 0) {
        kestro::Usage(stdout);
        return 0;
    }
    for (const kestro::Command &c : kestro::kCommands) {
        if (std::strcmp(argv[1], c.name) == 0) return c.run(argc - 1, argv + 1);
    }
    std::fprintf(stderr, "kestro: unknown command \"%s\"\n\n", argv[1]);
    kestro::Usage(stderr);
    return 2;
}
