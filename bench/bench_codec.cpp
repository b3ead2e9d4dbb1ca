// Codecs side by side with their usual peers: zlib's crc32, OpenSSL's
// Base64 blocks, MD5, SHA-1 and DES, on 64-byte and 64-KiB inputs.
//
// Run with --benchmark_repetitions=10 --benchmark_enable_random_interleaving
// and compare the _min rows.
//
// OpenSSL's low-level digest and DES calls are used (no EVP fetch or
// context per call: in OpenSSL 3 even SHA1() goes through EVP), which is
// its fastest path. KESTRO_CPU_MASK=0 turns the library's
// accelerated paths off; OPENSSL_ia32cap=:~0x20000000 does the same for
// OpenSSL's SHA extension path.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <benchmark/benchmark.h>
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#include <zlib.h>

#include <algorithm>
#include <vector>

#include "kestro_lite.h"

namespace {

std::vector<uint8_t> Data(size_t n) {
    std::vector<uint8_t> v(n);
    uint32_t x = 0x12345678;
    for (uint8_t &b : v) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        b = static_cast<uint8_t>(x);
    }
    return v;
}

// ---- CRC-32 ----
void BM_Crc32_Kestro(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    for (auto _ : st)
        benchmark::DoNotOptimize(Zcrc_Calc32(d.data(), static_cast<uint32_t>(d.size())));
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
void BM_Crc32_Zlib(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    for (auto _ : st) benchmark::DoNotOptimize(crc32(0, d.data(), static_cast<uInt>(d.size())));
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}

// ---- Base64 ----
void BM_B64Enc_Kestro(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    std::vector<char> out(d.size() / 3 * 4 + 8);
    for (auto _ : st) {
        uint32_t size = static_cast<uint32_t>(out.size());
        Zbase64_Encode(d.data(), static_cast<uint32_t>(d.size()), 0, out.data(), &size);
        benchmark::DoNotOptimize(out.data());
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
void BM_B64Enc_OpenSSL(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    std::vector<uint8_t> out(d.size() / 3 * 4 + 8);
    for (auto _ : st) {
        benchmark::DoNotOptimize(EVP_EncodeBlock(out.data(), d.data(), static_cast<int>(d.size())));
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
std::vector<uint8_t> B64Text(size_t n) {
    const auto d = Data(n);
    std::vector<uint8_t> t(n / 3 * 4 + 8);
    t.resize(static_cast<size_t>(EVP_EncodeBlock(t.data(), d.data(), static_cast<int>(n))));
    return t;
}
// Bytes processed count the decoded size, as for the encoders.
void BM_B64Dec_Kestro(benchmark::State &st) {
    const auto t = B64Text(static_cast<size_t>(st.range(0)));
    std::vector<uint8_t> out(t.size());
    for (auto _ : st) {
        uint32_t size = static_cast<uint32_t>(out.size());
        Zbase64_Decode(reinterpret_cast<const char *>(t.data()), static_cast<uint32_t>(t.size()),
                       out.data(), &size);
        benchmark::DoNotOptimize(out.data());
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
void BM_B64Dec_OpenSSL(benchmark::State &st) {
    const auto t = B64Text(static_cast<size_t>(st.range(0)));
    std::vector<uint8_t> out(t.size());
    for (auto _ : st) {
        benchmark::DoNotOptimize(EVP_DecodeBlock(out.data(), t.data(), static_cast<int>(t.size())));
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}

// ---- MD5 ----
void BM_Md5_Kestro(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    uint8_t digest[16];
    for (auto _ : st) {
        Zmd5_Str(d.data(), static_cast<uint32_t>(d.size()), digest);
        benchmark::DoNotOptimize(digest);
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
void BM_Md5_OpenSSL(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    uint8_t digest[16];
    for (auto _ : st) {
        MD5_CTX ctx;
        MD5_Init(&ctx);
        MD5_Update(&ctx, d.data(), d.size());
        MD5_Final(digest, &ctx);
        benchmark::DoNotOptimize(digest);
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}

// ---- SHA-1 ----
void BM_Sha1_Kestro(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    uint8_t digest[20];
    for (auto _ : st) {
        Zsha1Ctx ctx;
        Zsha1_Reset(&ctx);
        Zsha1_Input(&ctx, d.data(), static_cast<uint32_t>(d.size()));
        Zsha1_Result(&ctx, digest);
        benchmark::DoNotOptimize(digest);
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
void BM_Sha1_OpenSSL(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    uint8_t digest[20];
    for (auto _ : st) {
        SHA_CTX ctx;
        SHA1_Init(&ctx);
        SHA1_Update(&ctx, d.data(), d.size());
        SHA1_Final(digest, &ctx);
        benchmark::DoNotOptimize(digest);
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}

// ---- DES (ECB blocks with a prepared schedule) ----
const uint8_t kDesKey[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};

void BM_DesEcb_Kestro(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    std::vector<uint8_t> out(d.size());
    ZDES_KS ks;
    Zdes_MakeEncKey(ks, kDesKey);
    for (auto _ : st) {
        for (size_t i = 0; i < d.size(); i += 8) Zdes_Run(ks, &d[i], &out[i]);
        benchmark::DoNotOptimize(out.data());
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
void BM_DesEcb_OpenSSL(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    std::vector<uint8_t> out(d.size());
    DES_key_schedule ks;
    DES_cblock key;
    std::copy(kDesKey, kDesKey + 8, key);
    DES_set_key_unchecked(&key, &ks);
    for (auto _ : st) {
        for (size_t i = 0; i < d.size(); i += 8) {
            DES_ecb_encrypt(reinterpret_cast<const_DES_cblock *>(const_cast<uint8_t *>(&d[i])),
                            reinterpret_cast<DES_cblock *>(&out[i]), &ks, DES_ENCRYPT);
        }
        benchmark::DoNotOptimize(out.data());
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}
// The library's data form: key schedule, length byte, padding, work buffer.
void BM_DesEncData_Kestro(benchmark::State &st) {
    const auto d = Data(static_cast<size_t>(st.range(0)));
    std::vector<uint8_t> out(d.size() + 8);
    for (auto _ : st) {
        uint32_t size = static_cast<uint32_t>(out.size());
        Zdes_EncData(kDesKey, d.data(), static_cast<uint32_t>(d.size()), out.data(), &size);
        benchmark::DoNotOptimize(out.data());
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * st.range(0));
}

}  // namespace

// The machine running these is often shared: with repetitions, the "min"
// aggregate (the least disturbed run) is the figure to compare.
namespace {
double MinOf(const std::vector<double> &v) {
    return v.empty() ? 0.0 : *std::min_element(v.begin(), v.end());
}
}  // namespace

#define KESTRO_SIZES Arg(64)->Arg(64 * 1024)->ComputeStatistics("min", MinOf)
BENCHMARK(BM_Crc32_Kestro)->KESTRO_SIZES;
BENCHMARK(BM_Crc32_Zlib)->KESTRO_SIZES;
BENCHMARK(BM_B64Enc_Kestro)->KESTRO_SIZES;
BENCHMARK(BM_B64Enc_OpenSSL)->KESTRO_SIZES;
BENCHMARK(BM_B64Dec_Kestro)->KESTRO_SIZES;
BENCHMARK(BM_B64Dec_OpenSSL)->KESTRO_SIZES;
BENCHMARK(BM_Md5_Kestro)->KESTRO_SIZES;
BENCHMARK(BM_Md5_OpenSSL)->KESTRO_SIZES;
BENCHMARK(BM_Sha1_Kestro)->KESTRO_SIZES;
BENCHMARK(BM_Sha1_OpenSSL)->KESTRO_SIZES;
BENCHMARK(BM_DesEcb_Kestro)->KESTRO_SIZES;
BENCHMARK(BM_DesEcb_OpenSSL)->KESTRO_SIZES;
BENCHMARK(BM_DesEncData_Kestro)->KESTRO_SIZES;
