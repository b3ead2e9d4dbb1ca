// Fuzzes a data buffer with a random sequence of operations and checks it
// after every step against a std::string holding the same bytes.
//
// Input: byte 0 picks the buffer size (64 to 1084 bytes, so the standard
// block runs from 40 to 1060), then each operation is one byte of kind
// followed by the bytes its arguments need (lengths, offsets, data), read
// as far as the input goes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_layer.h"
#include "kestro_lite.h"

namespace {

void Fail(const char *what, size_t step) {
    std::fprintf(stderr, "fuzz_dbuf: %s at step %zu\n", what, step);
    std::abort();
}

struct Input : kfuzz::Input {
    uint32_t Word() { return static_cast<uint32_t>(Byte()) << 8 | Byte(); }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    kfuzz::StartQuietLayer();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input in{{data, size}};
    const uint32_t bufSize = 64 + 4 * static_cast<uint32_t>(in.Byte());
    ZDBUF b = Zos_DbufCreate(nullptr, 1, bufSize);
    if (b == nullptr) Fail("create", 0);
    std::string model;
    for (size_t step = 1; in.n > 0 && step < 200; ++step) {
        const uint8_t op = in.Byte() % 10;
        const auto len = static_cast<uint32_t>(model.size());
        if (op <= 1) {  // append / prepend bytes taken from the input
            const uint32_t want = in.Word() % 3000 + 1;
            std::string d;
            for (uint32_t i = 0; i < want; ++i)
                d.push_back(static_cast<char>(in.n > 0 ? in.Byte() : i));
            const uint32_t rc = op == 0 ? Zos_DbufPstAddMultD(b, d.data(), want)
                                        : Zos_DbufPreAddMultD(b, d.data(), want);
            if (rc != ZOK) Fail("add", step);
            model = op == 0 ? model + d : d + model;
        } else if (op <= 3) {  // remove from the front / back, copied out
            const uint32_t k = in.Word() % (len + 2);
            std::string out(k, '\0');
            const uint32_t rc = op == 2 ? Zos_DbufPreDelMultD(b, k, out.data())
                                        : Zos_DbufPstDelMultD(b, k, out.data());
            if (k > len) {
                if (rc == ZOK) Fail("removal past the end accepted", step);
            } else {
                if (rc != ZOK) Fail("removal", step);
                if (out != (op == 2 ? model.substr(0, k) : model.substr(len - k))) {
                    Fail("removed bytes", step);
                }
                model = op == 2 ? model.substr(k) : model.substr(0, len - k);
            }
        } else if (op == 4) {  // adjust at either end
            const auto k = static_cast<int32_t>(in.Word() % (len + 2)) * (in.Byte() & 1 ? -1 : 1);
            const uint32_t mag = static_cast<uint32_t>(k < 0 ? -k : k);
            const uint32_t rc = Zos_DbufAdjD(b, k);
            if ((rc == ZOK) != (k != 0 && mag <= len)) Fail("adjust result", step);
            if (rc == ZOK) model = k > 0 ? model.substr(mag) : model.substr(0, len - mag);
        } else if (op == 5) {  // split, check both parts, put back together
            const uint32_t off = in.Word() % (len + 1);
            ZDBUF tail = Zos_DbufSplit(b, off);
            if ((tail != nullptr) != (off > 0 && off < len)) Fail("split result", step);
            if (tail != nullptr) {
                if (kfuzz::DbufText(b) != model.substr(0, off) ||
                    kfuzz::DbufText(tail) != model.substr(off)) {
                    Fail("split parts", step);
                }
                if (Zos_DbufCat(b, tail) != ZOK) Fail("cat", step);
            }
        } else if (op <= 7) {  // single bytes
            const char c = static_cast<char>(in.Byte());
            if ((op == 6 ? Zos_DbufPstAddD(b, c) : Zos_DbufPreAddD(b, c)) != ZOK)
                Fail("byte", step);
            model = op == 6 ? model + c : std::string(1, c) + model;
        } else if (op == 8 && len > 0) {  // copies of a range
            const uint32_t off = in.Word() % len;
            const uint32_t n = in.Word() % (len - off) + 1;
            ZDBUF flat = Zos_DbufFlatX(b, off, n);
            ZDBUF copy = Zos_DbufCopyX(b, off, n);
            if (flat == nullptr || Zos_DbufIsFlat(flat) != 1 || copy == nullptr) Fail("copy", step);
            if (kfuzz::DbufText(flat) != model.substr(off, n) ||
                kfuzz::DbufText(copy) != model.substr(off, n)) {
                Fail("copied bytes", step);
            }
            Zos_DbufDelete(flat);
            Zos_DbufDelete(copy);
        } else if (op == 9) {  // a shared buffer refuses changes
            if (Zos_DbufClone(b) != b) Fail("clone", step);
            if (Zos_DbufPstAddD(b, 'x') == ZOK || Zos_DbufAdjD(b, 1) == ZOK)
                Fail("shared change", step);
            Zos_DbufDelete(b);
        }
        if (Zos_DbufLen(b) != model.size()) Fail("length", step);
        uint32_t sum = 0;
        for (uint32_t i = 0; i < Zos_DbufBlkSize(b); ++i) sum += Zos_DbufBlkLen(b, i);
        if (sum != model.size()) Fail("block lengths", step);
        if (kfuzz::DbufText(b) != model) Fail("content", step);
    }
    if (Zos_DbufDelete(b) != ZOK) Fail("delete", 0);
    if (Zos_DbufChkPool() != ZOK) Fail("pool damaged", 0);
    return 0;
}
