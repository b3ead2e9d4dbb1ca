// The kestro program as a user runs it: outputs, exit codes, and the files
// it leaves behind (none). Skipped where the program cannot be started
// from the test (a cross build run under an emulator).
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "zos_test.h"

namespace {

struct ToolRun {
    int code = -1;
    std::string out;  // standard output and standard error together
};

// Runs kestro with the arguments (shell words) in the directory.
ToolRun Kestro(const std::string &args, const std::string &dir = ktest::TempDir()) {
    ToolRun r;
    const std::string cmd = "cd '" + dir + "' && '" KESTRO_TOOL "' " + args + " 2>&1";
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr) return r;
    char buf[512];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), p)) > 0) r.out.append(buf, n);
    const int status = pclose(p);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

class KestroTool : public ::testing::Test {
  protected:
    void SetUp() override {
        if (Kestro("help").code != 0) GTEST_SKIP() << "kestro cannot run here";
    }
};

}  // namespace

TEST_F(KestroTool, Base32IsRfc4648BothWays) {
    // RFC 4648 section 10, every tail length.
    const char *const kVectors[][2] = {{"f", "MY======"},
                                       {"fo", "MZXQ===="},
                                       {"foo", "MZXW6==="},
                                       {"foob", "MZXW6YQ="},
                                       {"fooba", "MZXW6YTB"},
                                       {"foobar", "MZXW6YTBOI======"},
                                       {"foobarfoo", "MZXW6YTBOJTG63Y="},
                                       {"foobarfo", "MZXW6YTBOJTG6==="}};
    for (const auto &v : kVectors) {
        EXPECT_EQ(Kestro(std::string("base32 ") + v[0]).out, std::string(v[1]) + "\n") << v[0];
        const ToolRun back = Kestro(std::string("base32 -d ") + v[1]);
        EXPECT_EQ(back.code, 0);
        EXPECT_EQ(back.out, v[0]) << v[1];
    }
    // A final "=" run RFC 4648 never writes is refused, not guessed at.
    for (const char *bad : {"MZXW6Y==", "MZX=====", "M======="}) {
        EXPECT_EQ(Kestro(std::string("base32 -d ") + bad).code, 1) << bad;
    }
}

TEST_F(KestroTool, HexDecodeTakesEitherCaseAndWhiteSpace) {
    EXPECT_EQ(Kestro("hex -d 666f6F").out, "foo");
    EXPECT_EQ(Kestro("hex -d '66 6f\n6f'").out, "foo");
    EXPECT_EQ(Kestro("hex -d 66g6").code, 1);
    EXPECT_EQ(Kestro("hex -d 666").code, 1);
    EXPECT_EQ(Kestro("hex foo").out, "666F6F\n");
}

TEST_F(KestroTool, SmsEncodersRefuseBadNumbers) {
    EXPECT_EQ(Kestro("sms deliver-report --mr 5 --cause 0x6F").out, "040542016F020000\n");
    EXPECT_EQ(Kestro("sms deliver-report --mr 5").out, "020541020000\n");
    EXPECT_EQ(Kestro("sms submit --to abc --text hi").code, 2);
    EXPECT_EQ(Kestro("sms submit --to 12+3 --text hi").code, 2);
    EXPECT_EQ(Kestro("sms submit --to + --text hi").code, 2);
    EXPECT_EQ(Kestro("sms submit --to 123 --text hi --smsc foo").code, 2);
    EXPECT_EQ(Kestro("sms submit --to 123 --text hi --smsc ''").code, 2);
    EXPECT_EQ(Kestro("sms deliver --from x1 --text hi").code, 2);
    const ToolRun ok = Kestro("sms submit --to +4912 --text hi --smsc +49");
    EXPECT_EQ(ok.code, 0);
    EXPECT_NE(ok.out.find("RP-DATA 0000000291940C"), std::string::npos) << ok.out;
}

TEST_F(KestroTool, PinyinPassesOtherCharactersThrough) {
    // U+4E2D U+6587, a full-width comma, e acute and ASCII.
    EXPECT_EQ(Kestro("pinyin '\xE4\xB8\xAD\xE6\x96\x87\xEF\xBC\x8C\xC3\xA9"
                     "Ab'")
                  .out,
              "zhong wen \xEF\xBC\x8C \xC3\xA9 a b\n");
    EXPECT_EQ(Kestro("pinyin '\xF0\x9F\x98\x80'").out, "\xF0\x9F\x98\x80\n");
    EXPECT_EQ(Kestro("pinyin '\xC3'").code, 1);
}

TEST_F(KestroTool, LeavesNoFilesBehind) {
    const std::string dir = ktest::FreshDir("kestro_files");
    EXPECT_EQ(Kestro("", dir).code, 0);
    EXPECT_EQ(Kestro("status", dir).code, 0);
    EXPECT_EQ(Kestro("pinyin abc", dir).code, 0);
    EXPECT_EQ(Kestro("sms deliver-report", dir).code, 0);
    EXPECT_EQ(Kestro("sms decode 00", dir).code, 1);
    EXPECT_TRUE(ktest::FilesIn(dir).empty());
}

TEST_F(KestroTool, SmsDecodeRefusesWhatItCannotReadWhole) {
    // Truncated: the service centre field runs past the end; a DELIVER
    // whose originator is cut short. Neither is an RPDU.
    ToolRun r = Kestro("sms decode 0791728301");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.out.find("service centre address at octet 2"), std::string::npos) << r.out;
    r = Kestro("sms decode 07917283010010F5040BC8723888");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.out.find("TP-OA at octet 11"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("RPDU\n"), std::string::npos);
    EXPECT_EQ(Kestro("sms decode 0791").code, 1);
    EXPECT_EQ(Kestro("sms decode 069100").code, 1) << "an RP-SMMA with an octet left over";
    EXPECT_EQ(Kestro("sms decode 0Z").code, 2);
    EXPECT_EQ(Kestro("sms decode 123").code, 2);
}

TEST_F(KestroTool, SmsDecodeNamesWhatItReads) {
    // SMS-SUBMIT with a service centre field of length 0, relative validity.
    ToolRun r = Kestro("sms decode 0011000B916407281553F80000AA0AE8329BFD4697D9EC37");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("SMS-SUBMIT"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("destination     +46708251358"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("text            hellohello"), std::string::npos) << r.out;
    // A status report read from standard input, white space ignored.
    const std::string input = ktest::TempDir() + "/status_report.txt";
    FILE *f = std::fopen(input.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("0006D60B911326880736F4 1110117195514011101171957140\n00\n", f);
    std::fclose(f);
    r = Kestro("sms decode < '" + input + "'");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("SMS-STATUS-REPORT"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("zone +4 quarter hours (+60 min)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("status          0x00 (delivered)"), std::string::npos) << r.out;
    // A 7-bit DELIVER with a concatenation header: the header, then the text.
    r = Kestro("sms decode 00440B916407281553F80000111011719551400C0500030E0201D06536FB0D");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("concatenated  reference 14, part 1 of 2"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("text            hello\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("zone (library)"), std::string::npos) << r.out;
    // The RPDUs: SUBMIT in RP-DATA, RP-ERROR with its cause and no TPDU
    // label of a report type, RP-ACK carrying a deliver report.
    r = Kestro("sms decode 0000000291940C1100049194210000AA02E834");
    EXPECT_NE(r.out.find("RP-DATA (phone to network)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  SMS-SUBMIT"), std::string::npos) << r.out;
    r = Kestro("sms decode 040542016F020000");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("cause           111"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("SMS-DELIVER\n"), std::string::npos) << r.out;
    r = Kestro("sms decode 020541020000");
    EXPECT_NE(r.out.find("RP-ACK (phone to network)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("SMS-DELIVER-REPORT"), std::string::npos) << r.out;
}
