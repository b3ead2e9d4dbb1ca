// kestro ini: read and edit INI files.
//   ini get FILE SECTION KEY        the value, as a lookup by name answers it
//   ini set FILE SECTION KEY VALUE  sets the value and rewrites the file
//   ini dump FILE                   sections and keys, or the decoder's report
//
// Exit codes: 0 success, 1 the operation failed (unreadable or undecodable
// file, absent key, failed write), 2 bad usage.
#include <cstdio>
#include <cstring>

#include "kestro_cmd.h"
#include "kestro_lite.h"

namespace kestro {
namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

bool g_show = false;

// The layer's console output (the decoder's error report, failure lines)
// goes to standard error once the layer is up; its start-up lines do not.
void ToStderr(const char *text) {
    if (g_show) std::fputs(text, stderr);
}

class Layer {
  public:
    Layer() {
        Zos_CfgSetPrintDisp(ToStderr);
        ok_ = StartLayer() == ZOK;
        if (!ok_) std::fprintf(stderr, "kestro: the layer did not start\n");
        g_show = ok_;
    }
    ~Layer() {
        g_show = false;
        if (ok_) Zos_SysDestroy();
    }
    Layer(const Layer &) = delete;
    Layer &operator=(const Layer &) = delete;
    bool ok() const { return ok_; }

  private:
    bool ok_ = false;
};

// The object of a file; allowMissing lets a missing file start empty.
ZiniFile *Open(const char *path, bool allowMissing) {
    ZiniFile *ini = nullptr;
    const uint32_t rc = Zini_Create(path, &ini);
    if (rc == ZOK || (rc == ZINI_LOAD_FAILED && allowMissing)) return ini;
    if (rc == ZINI_LOAD_FAILED) {
        std::fprintf(stderr, "kestro ini: cannot read %s\n", path);
    } else if (rc == ZINI_DECODE_FAILED) {
        std::fprintf(stderr, "kestro ini: %s is not a valid INI file\n", path);
    } else {
        std::fprintf(stderr, "kestro ini: no memory for %s\n", path);
    }
    Zini_Delete(ini);
    return nullptr;
}

void Put(const ST_ZOS_SSTR &text) {
    if (text.uiLen != 0) std::fwrite(text.pcStr, 1, text.uiLen, stdout);
}

void PutComment(const ST_ZOS_SSTR &c) {
    if (c.uiLen != 0) std::fputs("  ; ", stdout);
    Put(c);
    std::fputc('\n', stdout);
}

int Dump(ZiniFile *ini) {
    for (ST_ZOS_DLIST_NODE *n = ini->stSectLst.pstHead; n != nullptr; n = n->pstNext) {
        const auto *s = reinterpret_cast<const ST_ZINI_SECT *>(n);
        std::fputc('[', stdout);
        Put(s->stName);
        std::fputc(']', stdout);
        PutComment(s->stComment);
        for (ST_ZOS_DLIST_NODE *m = s->stKeyLst.pstHead; m != nullptr; m = m->pstNext) {
            const auto *k = reinterpret_cast<const ST_ZINI_KEY *>(m);
            std::fputs("    ", stdout);
            Put(k->stName);
            std::fputc('=', stdout);
            Put(k->stValue);
            PutComment(k->stComment);
        }
    }
    return kOk;
}

}  // namespace

int RunIni(int argc, char **argv) {
    const char *usage = "get FILE SECTION KEY | set FILE SECTION KEY VALUE | dump FILE";
    const char *verb = argc > 1 ? argv[1] : "";
    const bool get = std::strcmp(verb, "get") == 0 && argc == 5;
    const bool set = std::strcmp(verb, "set") == 0 && argc == 6;
    const bool dump = std::strcmp(verb, "dump") == 0 && argc == 3;
    if (!get && !set && !dump) {
        std::fprintf(stderr, "usage: kestro ini %s\n", usage);
        return kUsage;
    }
    Layer layer;
    if (!layer.ok()) return kFailed;
    ZiniFile *ini = Open(argv[2], set);
    if (ini == nullptr) return kFailed;
    int rc = kOk;
    if (get) {
        const char *value = Zini_GetStr(ini, argv[3], argv[4], nullptr);
        if (value != nullptr) {
            std::printf("%s\n", value);
        } else {
            std::fprintf(stderr, "kestro ini: no value for [%s] %s\n", argv[3], argv[4]);
            rc = kFailed;
        }
    } else if (set) {
        const auto len = static_cast<uint32_t>(std::strlen(argv[5]));
        if (len == 0) {
            std::fprintf(stderr, "kestro ini: the value must not be empty\n");
            rc = kUsage;
        } else if (Zini_PutStr(ini, argv[3], argv[4], argv[5], len) != ZOK ||
                   Zini_Update(ini, argv[2]) != ZOK) {
            std::fprintf(stderr, "kestro ini: cannot write %s\n", argv[2]);
            rc = kFailed;
        }
    } else {
        rc = Dump(ini);
    }
    Zini_Delete(ini);
    return rc;
}

}  // namespace kestro
