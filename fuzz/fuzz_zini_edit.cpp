// Fuzzes INI edits against a model. The input is an INI text, a 0xFF byte,
// then edit operations: puts, key and section deletes and lookups with
// names and values drawn from the input. After the edits the tree must
// equal the model, every value put must read back as the lookups define
// (index lookups and puts take the first section of a name, lookups by
// name the last one that has the key), and the tree written into memory
// must decode to the same tree again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_layer.h"
#include "kestro_lite.h"

namespace {

struct Sect {
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys;
};
using Model = std::vector<Sect>;

void Fail(const char *what, const std::string &a, const std::string &b) {
    std::fprintf(stderr, "fuzz_zini_edit: %s\n--- want\n%s\n--- got\n%s\n", what, a.c_str(),
                 b.c_str());
    std::abort();
}

std::string Text(const ST_ZOS_SSTR &s) {
    return s.uiLen != 0 ? std::string(s.pcStr, s.uiLen) : std::string();
}

Model Read(ZiniFile *ini) {
    Model m;
    for (ST_ZOS_DLIST_NODE *n = ini->stSectLst.pstHead; n != nullptr; n = n->pstNext) {
        auto *s = reinterpret_cast<ST_ZINI_SECT *>(n);
        Sect sect{Text(s->stName), {}};
        for (ST_ZOS_DLIST_NODE *k = s->stKeyLst.pstHead; k != nullptr; k = k->pstNext) {
            auto *key = reinterpret_cast<ST_ZINI_KEY *>(k);
            sect.keys.emplace_back(Text(key->stName), Text(key->stValue));
        }
        m.push_back(std::move(sect));
    }
    return m;
}

std::string Show(const Model &m) {
    std::string out;
    for (const Sect &s : m) {
        out += "[" + s.name + "]\n";
        for (const auto &[k, v] : s.keys) out += "  " + k + "=" + v + "\n";
    }
    return out;
}

Sect *FirstSect(Model &m, const std::string &name) {
    for (Sect &s : m) {
        if (s.name == name) return &s;
    }
    return nullptr;
}

struct Input : kfuzz::Input {
    // A name that writes and reads back alike: 1 to 3 characters.
    std::string Name() {
        static const char kChars[] = "abs0_-";
        std::string s(1 + Byte() % 3, 'a');
        for (char &c : s) c = kChars[Byte() % 6];
        return s;
    }
    // A value of 1 to 8 characters with no SP/HT at its ends.
    std::string Value() {
        static const char kChars[] = "ab1=[] .";
        std::string s(1 + Byte() % 8, 'v');
        for (char &c : s) c = kChars[Byte() % 8];
        s.front() = 'v';
        s.back() = 'z';
        return s;
    }
};

// The value a lookup by name must give: the last section of the name with
// the key, its first key of the name.
bool Expected(const Model &m, const std::string &sect, const std::string &key, std::string *out) {
    bool found = false;
    for (const Sect &s : m) {
        if (s.name != sect) continue;
        for (const auto &[k, v] : s.keys) {
            if (k == key) {
                *out = v;
                found = true;
                break;
            }
        }
    }
    return found;
}

void CheckLookup(ZiniFile *ini, const Model &m, const std::string &sect, const std::string &key) {
    std::string want;
    const bool found = Expected(m, sect, key, &want);
    ST_ZOS_SSTR got{};
    const uint32_t rc = Zini_GetXStr(ini, sect.c_str(), key.c_str(), "<d>", &got);
    if ((rc == ZOK) != found || (found ? Text(got) != want : Text(got) != "<d>")) {
        Fail("lookup", sect + "/" + key + "=" + want, Text(got));
    }
    const char *s = Zini_GetStr(ini, sect.c_str(), key.c_str(), nullptr);
    if ((found && !want.empty()) ? (s == nullptr || want != s) : s != nullptr) {
        Fail("GetStr", want, s != nullptr ? s : "<null>");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    kfuzz::StartQuietLayer();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 16) return 0;
    const auto *end = static_cast<const uint8_t *>(std::memchr(data, 0xFF, size));
    const size_t textLen = end != nullptr ? static_cast<size_t>(end - data) : size;
    Input in{{data + textLen, size - textLen}};
    in.Byte();  // the 0xFF mark

    ZiniFile *ini = nullptr;
    const uint32_t rc =
        Zini_CreateX(reinterpret_cast<const char *>(data), static_cast<uint32_t>(textLen), &ini);
    if (rc != ZOK && rc != ZINI_EMPTY_INPUT) {
        // A text that does not decode: edit an empty object instead.
        Zini_Delete(ini);
        if (Zini_Init(&ini) != ZOK) std::abort();
    }
    Model model = Read(ini);

    for (int step = 0; in.n > 0 && step < 64; ++step) {
        const uint8_t op = in.Byte() % 4;
        const std::string sect = in.Name();
        const std::string key = in.Name();
        if (op == 0) {
            const std::string value = in.Value();
            if (Zini_PutStr(ini, sect.c_str(), key.c_str(), value.data(),
                            static_cast<uint32_t>(value.size())) != ZOK) {
                Fail("put", sect + "/" + key, value);
            }
            Sect *s = FirstSect(model, sect);
            if (s == nullptr) {
                model.push_back(Sect{sect, {}});
                s = &model.back();
            }
            bool set = false;
            for (auto &[k, v] : s->keys) {
                if (k == key) {
                    v = value;
                    set = true;
                    break;
                }
            }
            if (!set) s->keys.emplace_back(key, value);
            // What was put reads back through the first section by index.
            const char *got = Zini_GetKeyStrX(
                ini, sect.c_str(), static_cast<uint32_t>(s->keys.size() - 1), nullptr, nullptr);
            if (!set && (got == nullptr || value != got)) Fail("put read back", value, "");
        } else if (op == 1) {
            if (Zini_DelKey(ini, sect.c_str(), key.c_str()) != ZOK) Fail("delkey", sect, key);
            for (Sect &s : model) {
                if (s.name != sect) continue;
                for (auto it = s.keys.begin(); it != s.keys.end(); ++it) {
                    if (it->first == key) {
                        s.keys.erase(it);
                        break;
                    }
                }
            }
        } else if (op == 2) {
            bool had = false;
            for (auto it = model.begin(); it != model.end(); ++it) {
                if (it->name == sect) {
                    model.erase(it);
                    had = true;
                    break;
                }
            }
            if ((Zini_DelSect(ini, sect.c_str()) == ZOK) != had) Fail("delsect", sect, "");
        } else {
            CheckLookup(ini, model, sect, key);
        }
    }

    const Model got = Read(ini);
    if (Show(got) != Show(model)) Fail("tree after edits", Show(model), Show(got));
    for (const Sect &s : model) {
        for (const auto &kv : s.keys) CheckLookup(ini, model, s.name, kv.first);
    }

    // Written into memory and decoded again: the same tree.
    ZDBUF out = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, 4096);
    ST_ABNF_MSG msg{};
    if (out == nullptr || Abnf_MsgInit(&msg, ABNF_PROTO_TEXT, nullptr, out, nullptr, 0) != ZOK ||
        Zini_EncodeBuf(&msg, ini) != ZOK) {
        Fail("encode", Show(model), "");
    }
    const std::string text = kfuzz::DbufText(out);
    Zos_DbufDelete(out);
    ZiniFile *back = nullptr;
    const uint32_t rc2 = Zini_CreateX(text.data(), static_cast<uint32_t>(text.size()), &back);
    if (rc2 != (text.empty() ? ZINI_EMPTY_INPUT : ZOK)) Fail("decode written", Show(model), text);
    if (Show(Read(back)) != Show(model)) Fail("round trip", Show(model), Show(Read(back)));
    Zini_Delete(back);
    Zini_Delete(ini);
    return 0;
}
