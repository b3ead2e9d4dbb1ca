// kestro sip FILE: reads one SIP message with the reader built on the ABNF
// toolkit and prints it, or prints the toolkit's error report.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kestro_cmd.h"
#include "kestro_lite.h"
#include "sip_reader.h"

namespace kestro {

int RunSip(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kestro sip FILE\n");
        return 2;
    }
    // A directory opens as a stream but fails on the first read.
    std::error_code ec;
    std::ifstream in;
    if (std::filesystem::is_regular_file(argv[1], ec)) in.open(argv[1], std::ios::binary);
    if (!in.is_open()) {
        std::fprintf(stderr, "kestro: cannot read \"%s\"\n", argv[1]);
        return 2;
    }
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (text.empty()) {
        std::fprintf(stderr, "kestro: \"%s\" is empty\n", argv[1]);
        return 1;
    }
    Zos_CfgSetLogPrint(0);  // only the message or the report on the console
    if (StartLayer() != ZOK) {
        std::fprintf(stderr, "kestro: the layer did not start\n");
        return 1;
    }
    int rc = 1;
    {
        const sip::Reader reader;
        sip::Message msg;
        if (!reader.ok()) {
            std::fprintf(stderr, "kestro: the SIP reader could not be built\n");
        } else if (reader.Read(text.data(), static_cast<uint32_t>(text.size()), &msg)) {
            std::fputs(sip::Describe(msg).c_str(), stdout);
            rc = 0;
        }
    }
    Zos_SysDestroy();
    return rc;
}

}  // namespace kestro
