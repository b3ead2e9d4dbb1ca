// Subcommands of the kestro program. Each returns the process exit code.
#pragma once

#include <cstdint>
#include <string>

namespace kestro {

struct Command {
    const char *name;
    const char *usage;                  // one line: arguments and what it does
    int (*run)(int argc, char **argv);  // argv[0] is the subcommand name
};

// Starts the layer without a log file: a command-line tool writes no files
// the user did not ask for. Every start needs it, since a shut-down drops
// the settings made before it.
uint32_t StartLayer();

// Starts the layer, shows the version and the configuration, stops it.
int RunStatus(int argc, char **argv);

// Codecs (cmd_codec.cpp): text codecs encode their argument or standard
// input, or decode it with -d; digests and checksums take files.
int RunBase64(int argc, char **argv);
int RunBase32(int argc, char **argv);
int RunHex(int argc, char **argv);
int RunCrc32(int argc, char **argv);
int RunFcs16(int argc, char **argv);
int RunMd5(int argc, char **argv);
int RunSha1(int argc, char **argv);
int RunDes(int argc, char **argv);
int RunMilenage(int argc, char **argv);
int RunUuid(int argc, char **argv);
int RunRandom(int argc, char **argv);
// SMS PDUs: "sms decode <hex>", "sms submit", "sms deliver", "sms deliver-report".
int RunSms(int argc, char **argv);
// The tool's own SMS PDU reader (cmd_sms_decode.cpp): prints every field of
// a whole message, or says which field is wrong at which octet (exit 1).
int SmsDecodeText(const std::string &text);
// Code points and UTF-16 units of a UTF-8 text.
int RunUtf8(int argc, char **argv);
// A UTF-8 text spelled in pinyin.
int RunPinyin(int argc, char **argv);
// A SIP message read with the ABNF toolkit, or the toolkit's error report.
int RunSip(int argc, char **argv);
// INI files: "ini get FILE SECTION KEY", "ini set FILE SECTION KEY VALUE", "ini dump FILE".
int RunIni(int argc, char **argv);

// The module manager at work: "runtime demo" and "runtime bench [COUNT]".
int RunRuntime(int argc, char **argv);

}  // namespace kestro
