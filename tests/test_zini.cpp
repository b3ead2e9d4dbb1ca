// INI files: create results, decoding (line endings, white space, comments,
// every decoder error text), lookups with the deliberate first/last section
// difference, number range rules, edits, the exact written form, the safe
// save under injected write failures and allocation failures.
#include <atomic>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

class ZiniTest : public ZosTest {};

// The tree as text through the index lookups: "[name]" per section, then
// " key=value" per key.
std::string Tree(ZiniFile *ini) {
    std::string out;
    for (uint32_t s = 0; s < Zini_GetSectCount(ini); ++s) {
        const char *name = Zini_GetSectName(ini, s);
        out += std::string(out.empty() ? "" : " ") + "[" +
               std::string(name != nullptr ? name : "") + "]";
        for (uint32_t k = 0; k < Zini_GetKeyCount(ini, s); ++k) {
            const char *key = Zini_GetKeyName(ini, s, k);
            out +=
                " " + std::string(key != nullptr ? key : "") + "=" + Zini_GetKeyStr(ini, s, k, "");
        }
    }
    return out;
}

std::string Text(const ST_ZOS_SSTR &s) {
    return s.uiLen != 0 ? std::string(s.pcStr, s.uiLen) : std::string();
}

ST_ZINI_SECT *SectRec(ZiniFile *ini, uint32_t index) {
    ST_ZOS_DLIST_NODE *n = ini->stSectLst.pstHead;
    while (n != nullptr && index-- != 0) n = n->pstNext;
    return reinterpret_cast<ST_ZINI_SECT *>(n);
}

ST_ZINI_KEY *KeyRec(ST_ZINI_SECT *sect, uint32_t index) {
    ST_ZOS_DLIST_NODE *n = sect->stKeyLst.pstHead;
    while (n != nullptr && index-- != 0) n = n->pstNext;
    return reinterpret_cast<ST_ZINI_KEY *>(n);
}

// Decodes a text with CreateX; the object is deleted at scope end.
struct Ini {
    ZiniFile *p = nullptr;
    uint32_t rc = 0;
    explicit Ini(const std::string &text) {
        rc = Zini_CreateX(text.data(), static_cast<uint32_t>(text.size()), &p);
    }
    ~Ini() { Zini_Delete(p); }
    Ini(const Ini &) = delete;
    Ini &operator=(const Ini &) = delete;
};

// The frames an error record holds, as its dump prints them.
std::string Frames(const ST_ABNF_ERR &err) {
    ZDBUF out = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, 512);
    Zos_DumpPrintBuf(err.zDump, out);
    const std::string frames = ktest::DbufText(out);
    Zos_DbufDelete(out);
    return frames;
}

// Runs the decoder over a text with an error record of its own and
// returns the frames it logged (the dump's printed form), "" on success.
std::string DecodeFrames(const std::string &text, uint16_t *code = nullptr) {
    ZiniFile *ini = nullptr;
    EXPECT_EQ(Zini_Init(&ini), ZOK);
    ST_ABNF_ERR err{};
    EXPECT_EQ(Abnf_ErrInit(&err), ZOK);
    ST_ABNF_MSG msg{};
    ST_ZOS_SSTR str{const_cast<char *>(text.data()), static_cast<uint32_t>(text.size())};
    EXPECT_EQ(Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, &str, ini->zMemBuf, &err, 1), ZOK);
    std::string frames;
    if (Zini_DecodeBuf(&msg, ini) != ZOK) frames = Frames(err) + "<failed>";
    if (code != nullptr) *code = err.usErrCode;
    Abnf_ErrDestroy(&err);
    Zini_Delete(ini);
    return frames;
}

std::string Written(ZiniFile *ini, const std::string &path) {
    EXPECT_EQ(Zini_Update(ini, path.c_str()), ZOK);
    return ktest::ReadFile(path);
}

}  // namespace

TEST_F(ZiniTest, CreateResultsAndUsableObjects) {
    // The object is the buffer's first item: 28 bytes on 32-bit targets.
    if (sizeof(void *) == 4) {
        EXPECT_EQ(sizeof(ZiniFile), 28u);
    }
    // No out argument: 1 and the create's own line.
    EXPECT_EQ(Zini_Create("x.ini", nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("IniCreate null parameter."));
    EXPECT_EQ(Zini_CreateX("[a]", 3, nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("IniCreateX null parameter."));
    EXPECT_EQ(Zini_Init(nullptr), ZFAILED);

    // No path, no text or an empty one: -1 with an empty, usable object.
    ZiniFile *ini = nullptr;
    EXPECT_EQ(Zini_Create(nullptr, &ini), ZINI_EMPTY_INPUT);
    ASSERT_NE(ini, nullptr);
    EXPECT_EQ(Zini_PutStr(ini, "s", "k", "v", 1), ZOK);
    EXPECT_EQ(Tree(ini), "[s] k=v");
    EXPECT_EQ(Zini_Delete(ini), ZOK);
    for (const char *text : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(Zini_CreateX(text, 0, &ini), ZINI_EMPTY_INPUT);
        EXPECT_EQ(Zini_GetSectCount(ini), 0u);
        Zini_Delete(ini);
    }

    // A missing file: -2 and an empty object that takes edits.
    const std::string dir = ktest::FreshDir("zini_create");
    EXPECT_EQ(Zini_Create((dir + "/missing.ini").c_str(), &ini), ZINI_LOAD_FAILED);
    ASSERT_NE(ini, nullptr);
    EXPECT_EQ(Zini_GetSectCount(ini), 0u);
    EXPECT_EQ(Zini_PutUi(ini, "n", "x", 5, 0), ZOK);
    EXPECT_EQ(Zini_GetUi(ini, "n", "x", 0), 5u);
    Zini_Delete(ini);
    // A directory cannot be loaded either; an empty file is an empty tree.
    EXPECT_EQ(Zini_Create(dir.c_str(), &ini), ZINI_LOAD_FAILED);
    Zini_Delete(ini);
    ASSERT_EQ(Zfile_SaveSafe((dir + "/empty.ini").c_str(), nullptr, 0), ZOK);
    EXPECT_EQ(Zini_Create((dir + "/empty.ini").c_str(), &ini), ZOK);
    EXPECT_EQ(Zini_GetSectCount(ini), 0u);
    Zini_Delete(ini);

    // A file is read through the file module and decoded.
    const std::string path = dir + "/a.ini";
    ASSERT_EQ(Zfile_SaveSafe(path.c_str(), "[a]\nk=1\n", 8), ZOK);
    EXPECT_EQ(Zini_Create(path.c_str(), &ini), ZOK);
    EXPECT_EQ(Tree(ini), "[a] k=1");

    // The memory buffer is traced for dumps under its name.
    ktest::ClearPrinted();
    Zos_DumpDbgShow();
    EXPECT_NE(ktest::Printed().find("ini membuf"), std::string::npos);
    Zini_Delete(ini);
}

TEST_F(ZiniTest, DeletedAndNullHandlesAreRefused) {
    ZiniFile *ini = nullptr;
    ASSERT_EQ(Zini_CreateX("[a]\nk=1\n", 8, &ini), ZOK);
    ASSERT_EQ(Zini_Delete(ini), ZOK);
    // Every call on the dead handle gives the null-handle result without
    // reading its freed memory (AddressSanitizer watches).
    for (ZiniFile *h : {ini, static_cast<ZiniFile *>(nullptr)}) {
        EXPECT_EQ(Zini_Delete(h) + Zini_PutStr(h, "a", "k", "v", 1) + Zini_DelKey(h, "a", "k") +
                      Zini_DelSect(h, "a") + Zini_Update(h, "/nonexistent/x.ini"),
                  5 * ZFAILED);
        EXPECT_EQ(Zini_GetSectCount(h) + Zini_GetKeyCount(h, 0) + Zini_GetKeyCountX(h, "a"), 0u);
        EXPECT_EQ(Zini_GetSectName(h, 0), nullptr);
        EXPECT_EQ(Zini_GetKeyName(h, 0, 0), nullptr);
        EXPECT_STREQ(Zini_GetKeyStr(h, 0, 0, "d"), "d");
        EXPECT_STREQ(Zini_GetStr(h, "a", "k", "d"), "d");
        EXPECT_EQ(Zini_GetUi(h, "a", "k", 9), 9u);
    }
    for (const char *text : {"PutStr null parameter(s).", "DelKey null parameter(s).",
                             "DelSect null parameter(s).", "IniUpdate null parameter(s)."}) {
        EXPECT_TRUE(ktest::LoggedContains(text)) << text;
    }
}

TEST_F(ZiniTest, DecodesSectionsKeysCommentsAndWhiteSpace) {
    // A section and a key with a trailing comment.
    {
        Ini ini("[a]\nk = v ; note");
        ASSERT_EQ(ini.rc, ZOK);
        ST_ZINI_SECT *a = SectRec(ini.p, 0);
        ASSERT_NE(a, nullptr);
        EXPECT_EQ(Text(a->stName), "a");
        ST_ZINI_KEY *k = KeyRec(a, 0);
        ASSERT_NE(k, nullptr);
        EXPECT_EQ(Text(k->stName) + "|" + Text(k->stValue) + "|" + Text(k->stComment), "k|v|note");
    }
    // LF, CR LF and a mix give one tree; so do missing last line endings,
    // blank lines, comment lines and white space around everything.
    const std::string want = "[one] a=1 b=x y [two words] c= d=3";
    for (const char *text : {
             "[one]\na=1\nb=x y\n[two words]\nc=\nd=3\n",
             "[one]\r\na=1\r\nb=x y\r\n[two words]\r\nc=\r\nd=3\r\n",
             "[one]\na=1\r\nb=x y\n[two words]\r\nc=\nd=3",
             "; head\n\n  [ one ]  ; first\n\t a\t=\t1 \n b = x y ;c\n\n \t\n"
             "[two words]\n  ; inner\n c = ; nothing\nd= 3",
             "[one]\n;\n;;\na=1\nb=x y\n[two words]\nc=\t\nd=3   ;",
         }) {
        Ini ini(text);
        EXPECT_EQ(ini.rc, ZOK) << text;
        EXPECT_EQ(Tree(ini.p), want) << text;
    }
    // A section comment is kept; comment lines are not.
    Ini c("; file\n[s] ;  about s  \n");
    ASSERT_EQ(c.rc, ZOK);
    EXPECT_EQ(Text(SectRec(c.p, 0)->stComment), "about s");
    EXPECT_EQ(Zini_GetSectCount(c.p), 1u);
    // Only blank and comment lines: no sections, success.
    Ini blank("\n  \r\n; x\n");
    EXPECT_EQ(blank.rc, ZOK);
    EXPECT_EQ(Zini_GetSectCount(blank.p), 0u);
}

TEST_F(ZiniTest, FailedDecodesKeepWhatCameBefore) {
    // A first non-comment line that is a key: -4 and no sections.
    const std::string dir = ktest::FreshDir("zini_bad");
    const std::string path = dir + "/bad.ini";
    ASSERT_EQ(Zfile_SaveSafe(path.c_str(), "; c\nk=v\n[s]\nx=1\n", 16), ZOK);
    ZiniFile *ini = nullptr;
    ktest::ClearPrinted();
    EXPECT_EQ(Zini_Create(path.c_str(), &ini), ZINI_DECODE_FAILED);
    ASSERT_NE(ini, nullptr);
    EXPECT_EQ(Zini_GetSectCount(ini), 0u);
    EXPECT_TRUE(ktest::LoggedContains("IniCreate decode ini buffer fail."));
    // The error report with the frames was printed.
    EXPECT_NE(ktest::Printed().find("ini Buf decode key"), std::string::npos);
    EXPECT_NE(ktest::Printed().find("^"), std::string::npos);
    Zini_Delete(ini);

    // An error further down keeps the sections and keys before it.
    Ini part("[a]\nx=1\n[b]\ny=2\n[c\nz=3\n");
    EXPECT_EQ(part.rc, ZINI_DECODE_FAILED);
    EXPECT_EQ(Tree(part.p), "[a] x=1 [b] y=2");
    EXPECT_TRUE(ktest::LoggedContains("IniCreateX decode ini buffer fail."));
}

TEST_F(ZiniTest, EveryReachableDecoderErrorText) {
    struct Case {
        std::string text;
        const char *inner;  // the innermost frame
        const char *outer;  // the buffer-level frame ("" when the same)
    };
    const Case cases[] = {
        {"k=v\n[s]\n", "ini Buf decode key", ""},
        {"[]\n", "ini Sect decode name", "ini Buf decode section"},
        {"[ \t ]\n", "ini Sect decode name", "ini Buf decode section"},
        {"[abc\nk=v\n", "ini Sect decode ]", "ini Buf decode section"},
        {"[abc", "ini Sect decode ]", "ini Buf decode section"},
        {"[a] x\n", "ini Sect expect eol", "ini Buf decode section"},
        {"[a]\r\r\n", "ini Sect expect eol", "ini Buf decode section"},
        {"[a] ;c\rx\n", "ini Key get comment", "ini Buf decode section"},
        {"[s]\n=v\n", "ini Key decode name", "ini Buf decode key"},
        {"[s]\nk v\n", "ini Key decode =", "ini Buf decode key"},
        {"[s]\nk\n", "ini Key decode =", "ini Buf decode key"},
        {"[s]\nk=v ; c\rd\n", "ini Key get comment", "ini Buf decode key"},
        {std::string("[s]\nk=v\0w\n", 10), "ini Key expect eol", "ini Buf decode key"},
        {"[s]\nk=v\rw\n", "ini Key expect eol", "ini Buf decode key"},
        {"[s]\n\rk=v\n", "ini Buf expect eol", ""},
        {"; c\rx\n", "ini Buf skip comment", ""},
    };
    for (const Case &c : cases) {
        const std::string frames = DecodeFrames(c.text);
        EXPECT_NE(frames.find(std::string("\"") + c.inner + "\""), std::string::npos)
            << c.text << "\n"
            << frames;
        if (c.outer[0] != '\0') {
            EXPECT_LT(frames.find(c.inner), frames.find(c.outer)) << c.text << "\n" << frames;
        }
    }
    // The section step on its own: a line without "[".
    ST_ABNF_ERR err{};
    ASSERT_EQ(Abnf_ErrInit(&err), ZOK);
    ST_ABNF_MSG msg{};
    ST_ZOS_SSTR str{const_cast<char *>("a]"), 2};
    ASSERT_EQ(Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, &str, nullptr, &err, 1), ZOK);
    ST_ZINI_SECT sect{};
    EXPECT_EQ(Zini_DecodeSect(&msg, &sect), ZFAILED);
    EXPECT_EQ(err.usFrameCount, 1u);
    EXPECT_EQ(err.usErrCode, ABNF_ERR_EXPECT);
    // Each step refuses a missing message or target, and takes nothing of
    // the text.
    ZiniFile *ini = nullptr;
    ASSERT_EQ(Zini_Init(&ini), ZOK);
    ST_ZOS_SSTR good{const_cast<char *>("[s]\nk=v\n"), 8};
    ASSERT_EQ(Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, &good, nullptr, &err, 1), ZOK);
    ST_ZINI_KEY key{};
    EXPECT_EQ(Zini_DecodeBuf(nullptr, ini) + Zini_DecodeBuf(&msg, nullptr) +
                  Zini_DecodeSect(nullptr, &sect) + Zini_DecodeSect(&msg, nullptr) +
                  Zini_DecodeKey(nullptr, &key) + Zini_DecodeKey(&msg, nullptr),
              6 * ZFAILED);
    EXPECT_EQ(msg.stState.pcCur, good.pcStr);
    EXPECT_EQ(Zini_GetSectCount(ini), 0u);
    Zini_Delete(ini);
    Abnf_ErrDestroy(&err);
    // A good text logs no frame.
    EXPECT_EQ(DecodeFrames("[s]\nk=v\n"), "");
}

TEST_F(ZiniTest, LookupsByIndexAndName) {
    Ini ini("[s]\nk=1\nkk=\n[t]\nx=9\n[s]\nk=2\nonly=here\n");
    ASSERT_EQ(ini.rc, ZOK);
    ZiniFile *p = ini.p;
    // By index: the first section of a name, default for an empty value,
    // null and default out of range.
    EXPECT_EQ(Zini_GetSectCount(p), 3u);
    EXPECT_STREQ(Zini_GetSectName(p, 2), "s");
    EXPECT_EQ(Zini_GetSectName(p, 3), nullptr);
    EXPECT_EQ(Zini_GetKeyCount(p, 0), 2u);
    EXPECT_EQ(Zini_GetKeyCount(p, 7), 0u);
    EXPECT_EQ(Zini_GetKeyCountX(p, "s"), 2u);
    EXPECT_EQ(Zini_GetKeyCountX(p, "S"), 0u);  // names are case-sensitive
    EXPECT_STREQ(Zini_GetKeyName(p, 0, 1), "kk");
    EXPECT_EQ(Zini_GetKeyName(p, 0, 2), nullptr);
    EXPECT_STREQ(Zini_GetKeyStr(p, 0, 1, "dft"), "dft");
    EXPECT_STREQ(Zini_GetKeyStr(p, 1, 0, "dft"), "9");
    const char *name = "unset";
    EXPECT_STREQ(Zini_GetKeyStrX(p, "s", 0, "d", &name), "1");
    EXPECT_STREQ(name, "k");
    EXPECT_STREQ(Zini_GetKeyStrX(p, "s", 5, "d", &name), "d");
    EXPECT_EQ(name, nullptr);
    EXPECT_STREQ(Zini_GetKeyStrX(p, "none", 0, "d", nullptr), "d");

    // By name: the last section that has the key wins.
    EXPECT_STREQ(Zini_GetStr(p, "s", "k", "d"), "2");
    EXPECT_STREQ(Zini_GetStr(p, "s", "only", "d"), "here");
    EXPECT_STREQ(Zini_GetStr(p, "s", "kk", "d"), "d");  // empty value
    EXPECT_STREQ(Zini_GetStr(p, "s", "K", "d"), "d");
    ST_ZOS_SSTR r{};
    EXPECT_EQ(Zini_GetXStr(p, "s", "kk", "d", &r), ZOK);
    EXPECT_EQ(r.uiLen, 0u);
    EXPECT_EQ(Zini_GetXStr(p, "t", "nope", "dflt", &r), ZFAILED);
    EXPECT_EQ(Text(r), "dflt");
    EXPECT_EQ(Zini_GetXStr(p, "t", "nope", nullptr, &r), ZFAILED);
    EXPECT_EQ(r.uiLen, 0u);
    EXPECT_EQ(Zini_GetXStr(p, nullptr, "k", "d", &r), ZFAILED);
    EXPECT_EQ(Zini_GetXStr(p, "s", "k", "d", nullptr), ZFAILED);

    // PutStr changes the first section, so GetStr still answers from the
    // second: the difference is deliberate.
    EXPECT_EQ(Zini_PutStr(p, "s", "k", "3", 1), ZOK);
    EXPECT_STREQ(Zini_GetKeyStr(p, 0, 0, ""), "3");
    EXPECT_STREQ(Zini_GetStr(p, "s", "k", "d"), "2");
    // Returned texts are NUL-terminated in place and stay valid.
    const char *t = Zini_GetStr(p, "t", "x", nullptr);
    EXPECT_STREQ(Zini_GetSectName(p, 1), "t");
    EXPECT_STREQ(t, "9");
}

TEST_F(ZiniTest, NumberGettersAndSetters) {
    Ini ini(
        "[n]\nbig=70000\nhex=0x1F\nHEX=0XfF\nmax=4294967295\nover=4294967296\nbad=12a\n"
        "x0=0x\nx9=0x123456789\nc=255\nc1=256\nneg=-1\nempty=\nsp= 42 \n");
    ASSERT_EQ(ini.rc, ZOK);
    ZiniFile *p = ini.p;
    EXPECT_EQ(Zini_GetUs(p, "n", "big", 7), 7u);
    EXPECT_EQ(Zini_GetUi(p, "n", "big", 7), 70000u);
    EXPECT_EQ(Zini_GetUi(p, "n", "hex", 0), 31u);
    EXPECT_EQ(Zini_GetUs(p, "n", "HEX", 0), 255u);
    EXPECT_EQ(Zini_GetUi(p, "n", "max", 0), 4294967295u);
    EXPECT_EQ(Zini_GetUc(p, "n", "c", 1), 255u);
    EXPECT_EQ(Zini_GetUc(p, "n", "c1", 1), 1u);
    EXPECT_EQ(Zini_GetUi(p, "n", "sp", 0), 42u);
    for (const char *k : {"over", "bad", "x0", "x9", "neg", "empty", "absent"}) {
        EXPECT_EQ(Zini_GetUi(p, "n", k, 0xABCD), 0xABCDu) << k;
    }

    // Setters: decimal, or "0x" and upper-case digits; no range check.
    EXPECT_EQ(Zini_PutUi(p, "m", "a", 31, 1), ZOK);
    EXPECT_EQ(Zini_PutUs(p, "m", "b", 65535, 0), ZOK);
    EXPECT_EQ(Zini_PutUc(p, "m", "c", 0xAB, 1), ZOK);
    EXPECT_EQ(Zini_PutUi(p, "m", "d", 0, 0), ZOK);
    EXPECT_EQ(Tree(p).substr(Tree(p).find("[m]")), "[m] a=0x1F b=65535 c=0xAB d=0");
    EXPECT_EQ(Zini_GetUc(p, "m", "c", 0), 0xABu);
}

TEST_F(ZiniTest, PutAndDelete) {
    Ini ini("[s]\nk=1\nk=1b\nj=0\n[s]\nk=2\n[t]\nk=3\n");
    ASSERT_EQ(ini.rc, ZOK);
    ZiniFile *p = ini.p;
    EXPECT_EQ(Zini_PutStr(p, "s", "k", "", 0) + Zini_PutStr(p, "s", "k", nullptr, 1) +
                  Zini_PutStr(p, nullptr, "k", "v", 1) + Zini_PutStr(p, "s", nullptr, "v", 1),
              4 * ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("PutStr null parameter(s)."));
    // The value is copied with its length: the caller's text may go.
    std::string v = "new value!";
    EXPECT_EQ(Zini_PutStr(p, "t", "n", v.data(), 3), ZOK);
    v.assign(v.size(), 'x');
    // New sections and keys go at the end.
    EXPECT_EQ(Zini_PutStr(p, "u", "a", "1", 1), ZOK);
    EXPECT_EQ(Tree(p), "[s] k=1 k=1b j=0 [s] k=2 [t] k=3 n=new [u] a=1");

    // DelKey: the first key of the name in every section of the name.
    EXPECT_EQ(Zini_DelKey(p, "s", "k"), ZOK);
    EXPECT_EQ(Tree(p), "[s] k=1b j=0 [s] [t] k=3 n=new [u] a=1");
    EXPECT_EQ(Zini_DelKey(p, "s", "missing"), ZOK);
    EXPECT_EQ(Zini_DelKey(p, "missing", "k"), ZOK);
    EXPECT_EQ(Zini_DelKey(p, nullptr, "k"), ZFAILED);
    // DelSect: the first section of the name only.
    EXPECT_EQ(Zini_DelSect(p, "s"), ZOK);
    EXPECT_EQ(Tree(p), "[s] [t] k=3 n=new [u] a=1");
    EXPECT_EQ(Zini_DelSect(p, "nope"), ZFAILED);
    EXPECT_EQ(Zini_DelSect(p, "s"), ZOK);
    EXPECT_EQ(Zini_DelSect(p, "s"), ZFAILED);
    // A key put after its section's deletion lands in a new section.
    EXPECT_EQ(Zini_PutStr(p, "s", "k", "again", 5), ZOK);
    EXPECT_EQ(Tree(p), "[t] k=3 n=new [u] a=1 [s] k=again");
    EXPECT_EQ(Zini_GetKeyCountX(p, "s"), 1u);
}

TEST_F(ZiniTest, UpdateWritesTheExactFormAndRoundTrips) {
    const std::string dir = ktest::FreshDir("zini_update");
    const std::string path = dir + "/out.ini";
    {
        Ini ini("[s]\nk = v ; gone\n");
        ASSERT_EQ(ini.rc, ZOK);
        EXPECT_EQ(Written(ini.p, path), "[s]\r\n    k=v\r\n\r\n");
        // Every key form: name and value, empty value, neither (a key
        // record whose texts were emptied), and a section without keys.
        EXPECT_EQ(Zini_PutStr(ini.p, "s", "e", "x", 1), ZOK);
        KeyRec(SectRec(ini.p, 0), 1)->stValue = ST_ZOS_SSTR{nullptr, 0};
        EXPECT_EQ(Zini_PutStr(ini.p, "s", "z", "x", 1), ZOK);
        ST_ZINI_KEY *z = KeyRec(SectRec(ini.p, 0), 2);
        z->stName = z->stValue = ST_ZOS_SSTR{nullptr, 0};
        EXPECT_EQ(Zini_PutStr(ini.p, "t", "a", "1", 1), ZOK);
        EXPECT_EQ(Zini_DelKey(ini.p, "t", "a"), ZOK);
        EXPECT_EQ(Written(ini.p, path), "[s]\r\n    k=v\r\n    e=\r\n    \r\n\r\n[t]\r\n\r\n");
        // The output buffer is traced under its name.
        ktest::ClearPrinted();
        Zos_DumpDbgShow();
        EXPECT_NE(ktest::Printed().find("ini msgbuf"), std::string::npos);
    }
    {
        // An empty tree writes an empty file.
        Ini empty("");
        EXPECT_EQ(Written(empty.p, path), "");
    }

    // Decode, edit, update, decode: the same tree comes back.
    Ini ini("; cfg\n[net]\nport = 5060\nhost=example.org ; main\n[media]\ncodec=PCMU\n");
    ASSERT_EQ(ini.rc, ZOK);
    EXPECT_EQ(Zini_PutUi(ini.p, "net", "port", 5080, 0), ZOK);
    EXPECT_EQ(Zini_PutStr(ini.p, "media", "ptime", "20", 2), ZOK);
    EXPECT_EQ(Zini_PutStr(ini.p, "new", "flag", "on", 2), ZOK);
    EXPECT_EQ(Zini_DelKey(ini.p, "media", "codec"), ZOK);
    EXPECT_EQ(Zini_Update(ini.p, path.c_str()), ZOK);
    ZiniFile *back = nullptr;
    ASSERT_EQ(Zini_Create(path.c_str(), &back), ZOK);
    EXPECT_EQ(Tree(back), Tree(ini.p));
    EXPECT_EQ(Tree(back), "[net] port=5080 host=example.org [media] ptime=20 [new] flag=on");
    // A second update replaces the output buffer and the file.
    EXPECT_EQ(Zini_DelSect(back, "net"), ZOK);
    EXPECT_EQ(Written(back, path), "[media]\r\n    ptime=20\r\n\r\n[new]\r\n    flag=on\r\n\r\n");
    Zini_Delete(back);
}

namespace {

// Writes half of what it is given and reports a full disk.
uint32_t HalfWrite(uintptr_t f, const void *p, uint32_t n, uint32_t *done) {
    Zpand_FileWrite(f, p, n / 2, done);
    return ZFAILED;
}

}  // namespace

TEST_F(ZiniTest, FailedSaveLeavesTheOldFileWhole) {
    const std::string dir = ktest::FreshDir("zini_safe");
    const std::string path = dir + "/state.ini";
    const std::string old = "[old]\r\n    a=1\r\n\r\n";
    ASSERT_EQ(Zfile_SaveSafe(path.c_str(), old.data(), static_cast<uint32_t>(old.size())), ZOK);
    ZiniFile *ini = nullptr;
    ASSERT_EQ(Zini_Create(path.c_str(), &ini), ZOK);
    for (int i = 0; i < 200; ++i) {
        const std::string k = "key" + std::to_string(i);
        ASSERT_EQ(Zini_PutStr(ini, "new", k.c_str(), "a fairly long value", 19), ZOK);
    }
    // A write that fails part-way through the blocks. (A failed flush or
    // rename of the safe save: SafeSaveKeepsTheOldFileWhenAnyStepFails.)
    const ZOS_OSDEP_FUNC saved = ktest::Slot(20);
    ktest::Slot(20) = reinterpret_cast<ZOS_OSDEP_FUNC>(HalfWrite);
    EXPECT_EQ(Zini_Update(ini, path.c_str()), ZFAILED);
    ktest::Slot(20) = saved;
    EXPECT_TRUE(ktest::LoggedContains("IniUpdate write file fail."));
    EXPECT_EQ(ktest::ReadFile(path), old);
    EXPECT_EQ(Zfile_IsExist((path + ".tmp").c_str()), 0u);
    // A directory that does not exist cannot be written either.
    EXPECT_EQ(Zini_Update(ini, (dir + "/no/such/dir.ini").c_str()), ZFAILED);
    // With the slots back the update goes through.
    EXPECT_EQ(Zini_Update(ini, path.c_str()), ZOK);
    EXPECT_NE(ktest::ReadFile(path).find("    key199=a fairly long value\r\n"), std::string::npos);
    Zini_Delete(ini);
}

namespace {

std::atomic<int> g_mallocsLeft{0};

void *FailingMalloc(uint32_t size) {
    if (g_mallocsLeft.fetch_sub(1) <= 0) return nullptr;
    return ktest::HeapMalloc(size);
}

// Refuses the large requests that grow the data-buffer pool; small ones
// (error frames) still work.
void *NoLargeMalloc(uint32_t size) {
    return size >= 4096 ? nullptr : ktest::HeapMalloc(size);
}

}  // namespace

TEST_F(ZiniTest, AllocationFailuresFailCleanly) {
    // Every heap request from the n-th on fails: each step either works or
    // fails with its own result, never crashes or leaks (AddressSanitizer).
    std::string text = "[a]\nk=v\n";
    for (int i = 0; i < 300; ++i)
        text += "[s" + std::to_string(i) + "]\nkey=" + std::string(40, 'x') + "\n";
    const std::string path = ktest::FreshDir("zini_alloc") + "/x.ini";
    const ZOS_OSDEP_FUNC saved = ktest::Slot(0);
    bool sawCreateFail = false, sawDecodeFail = false, sawAllOk = false;
    for (int n = 0; n < 400 && !sawAllOk; n += 3) {
        g_mallocsLeft = n;
        ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingMalloc);
        ZiniFile *ini = nullptr;
        const uint32_t rc = Zini_CreateX(text.data(), static_cast<uint32_t>(text.size()), &ini);
        uint32_t put = ZFAILED, upd = ZFAILED;
        if (ini != nullptr) {
            put = Zini_PutStr(ini, "a", "k2", "w", 1);
            upd = Zini_Update(ini, path.c_str());
        }
        ktest::Slot(0) = saved;
        if (rc == ZFAILED) {
            sawCreateFail = true;
            EXPECT_EQ(ini, nullptr);
        } else if (rc == ZINI_DECODE_FAILED) {
            sawDecodeFail = true;
            ASSERT_NE(ini, nullptr);
        } else {
            ASSERT_EQ(rc, ZOK) << n;
            sawAllOk = put == ZOK && upd == ZOK;
        }
        Zini_Delete(ini);
    }
    EXPECT_TRUE(sawCreateFail);
    EXPECT_TRUE(sawAllOk);
    EXPECT_TRUE(sawDecodeFail);
}

TEST_F(ZiniTest, RecordMemoryFailuresAreLoggedToTheErrorRecord) {
    // The text's copy fits the object's first block; the records then need
    // new blocks, which fail once the data-buffer pool is drained and the
    // heap refuses to grow it (small requests still work, so the frames
    // can be recorded).
    std::string sects, keys = "[s]\n";
    for (int i = 0; i < 400; ++i) sects += "[s" + std::to_string(i) + "]\n";
    while (keys.size() < 2500) keys += "k=1\n";
    const ZOS_OSDEP_FUNC saved = ktest::Slot(0);
    for (const auto &[text, frame] : {std::pair{sects, "ini Buf get section node data memory"},
                                      std::pair{keys, "ini Buf get key node data memory"}}) {
        ZiniFile *ini = nullptr;
        ASSERT_EQ(Zini_Init(&ini), ZOK);
        ST_ABNF_ERR err{};
        ASSERT_EQ(Abnf_ErrInit(&err), ZOK);
        ST_ABNF_MSG msg{};
        ST_ZOS_SSTR str{const_cast<char *>(text.data()), static_cast<uint32_t>(text.size())};
        ASSERT_EQ(Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, &str, ini->zMemBuf, &err, 1), ZOK);
        ZDBUF filler = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MEM, 4096);
        ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(NoLargeMalloc);
        for (int i = 0; i < 100000 && Zos_DbufAlloc(filler, 4000) != nullptr; ++i) {
        }
        EXPECT_EQ(Zini_DecodeBuf(&msg, ini), ZFAILED);
        ktest::Slot(0) = saved;
        const std::string frames = Frames(err);
        EXPECT_NE(frames.find(frame), std::string::npos) << frames;
        // What decoded before the failure stays usable.
        EXPECT_GT(Zini_GetSectCount(ini), 0u);
        Zos_DbufDelete(filler);
        Abnf_ErrDestroy(&err);
        Zini_Delete(ini);
    }
}

TEST_F(ZiniTest, EncoderFailuresAreReported) {
    Ini ini("[s]\nk=v\n");
    ASSERT_EQ(ini.rc, ZOK);
    // A shared output buffer refuses appends: the first step fails.
    ZDBUF shared = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, 512);
    ASSERT_NE(Zos_DbufClone(shared), nullptr);
    ST_ABNF_ERR err{};
    ASSERT_EQ(Abnf_ErrInit(&err), ZOK);
    ST_ABNF_MSG msg{};
    ASSERT_EQ(Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, nullptr, shared, &err, 0), ZOK);
    EXPECT_EQ(Zini_EncodeBuf(&msg, ini.p), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("IniEncodeBuf encode section."));
    EXPECT_EQ(Zini_EncodeKey(&msg, KeyRec(SectRec(ini.p, 0), 0)), ZFAILED);
    const std::string frames = Frames(err);
    EXPECT_NE(frames.find("\"ini IniEncodeSect add '['.\""), std::string::npos) << frames;
    EXPECT_NE(frames.find("\"ini IniEncodeKey add pad.\""), std::string::npos) << frames;
    Abnf_ErrDestroy(&err);
    Zos_DbufDelete(shared);
    Zos_DbufDelete(shared);

    // An update whose output blocks cannot be had: the encoding fails, its
    // report is printed and the file is not touched.
    const std::string path = ktest::FreshDir("zini_encode") + "/x.ini";
    ASSERT_EQ(Zfile_SaveSafe(path.c_str(), "old", 3), ZOK);
    ZDBUF filler = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MEM, 4096);
    const ZOS_OSDEP_FUNC saved = ktest::Slot(0);
    ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(NoLargeMalloc);
    for (int i = 0; i < 100000 && Zos_DbufAlloc(filler, 4000) != nullptr; ++i) {
    }
    ktest::ClearPrinted();
    EXPECT_EQ(Zini_Update(ini.p, path.c_str()), ZFAILED);
    ktest::Slot(0) = saved;
    Zos_DbufDelete(filler);
    EXPECT_TRUE(ktest::LoggedContains("IniUpdate encode ini buffer fail."));
    EXPECT_NE(ktest::Printed().find("ini IniEncodeSect add '['."), std::string::npos);
    EXPECT_EQ(ktest::ReadFile(path), "old");
    // With memory back the same object updates.
    EXPECT_EQ(Zini_Update(ini.p, path.c_str()), ZOK);
    EXPECT_EQ(ktest::ReadFile(path), "[s]\r\n    k=v\r\n\r\n");
}

TEST_F(ZiniTest, UpdateWithNoBufferHeaderFailsAndLeavesTheFile) {
    // Every header the data-buffer pool has free is taken and the heap
    // refuses to grow it, so the update cannot make its output buffer.
    Ini ini("[s]\nk=v\n");
    ASSERT_EQ(ini.rc, ZOK);
    const std::string path = ktest::FreshDir("zini_header") + "/x.ini";
    ASSERT_EQ(Zfile_SaveSafe(path.c_str(), "old", 3), ZOK);
    std::vector<ZDBUF> held;
    uint32_t rc = ZOK;
    {
        const ktest::RefusingHeap heap;
        held = ktest::TakeFreeHeaders();
        ktest::ClearLogged();
        rc = Zini_Update(ini.p, path.c_str());
    }
    for (ZDBUF b : held) Zos_DbufDelete(b);
    EXPECT_EQ(rc, ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("IniUpdate alloc memory."));
    EXPECT_EQ(ktest::ReadFile(path), "old");
    EXPECT_EQ(Zini_Update(ini.p, path.c_str()), ZOK);
    EXPECT_EQ(ktest::ReadFile(path), "[s]\r\n    k=v\r\n\r\n");
}

TEST_F(ZiniTest, CreateWithNoObjectToBeHadFails) {
    // With no data-buffer header free and a heap that refuses to grow the
    // pool, a create without input, or from a file that cannot be loaded,
    // fails with its line instead of handing out an empty object.
    const std::string missing = ktest::FreshDir("zini_noobject") + "/missing.ini";
    for (const char *path : {static_cast<const char *>(nullptr), missing.c_str()}) {
        ZiniFile *ini = nullptr;
        std::vector<ZDBUF> held;
        uint32_t rc = ZOK;
        {
            const ktest::RefusingHeap heap;
            held = ktest::TakeFreeHeaders();
            ktest::ClearLogged();
            rc = Zini_Create(path, &ini);
        }
        for (ZDBUF b : held) Zos_DbufDelete(b);
        EXPECT_EQ(rc, ZFAILED) << (path != nullptr ? path : "no path");
        EXPECT_EQ(ini, nullptr);
        EXPECT_TRUE(ktest::LoggedContains("IniCreate init ini fail."));
    }
}
