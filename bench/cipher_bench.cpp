// The payload cipher against the bare library calls it is made of, over the message sizes the
// agent handles (a request is about 1 KiB, a configuration document tens of KiB):
//   BM_AesEncrypt/N, BM_AesDecrypt/N       the agent's functions, key text in, Base64 out (and back);
//   BM_RawEncrypt/N, BM_RawDecrypt/N       AES-256-CBC through EVP with a ready key (cipher fetched
//                                          once, a context per message) and EVP_EncodeBlock /
//                                          EVP_DecodeBlock: the floor the agent's functions are held to.
// bench/report prints the ratios.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "payload_cipher.h"

namespace {

const char* const kKeyText = "VeltraFactoryKey-2017";

std::string plainOfLength(int64_t length) {
    return std::string(static_cast<size_t>(length), 'x');
}

void BM_AesEncrypt(benchmark::State& state) {
    std::string plain = plainOfLength(state.range(0));
    for (auto _ : state) {
        char* out = nullptr;
        int rc = AesEncrypt(kKeyText, plain.c_str(), &out);
        benchmark::DoNotOptimize(rc);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_AesEncrypt)->Arg(64)->Arg(1024)->Arg(16 * 1024)->Arg(256 * 1024);

void BM_AesDecrypt(benchmark::State& state) {
    std::string plain = plainOfLength(state.range(0));
    char* cipher = nullptr;
    AesEncrypt(kKeyText, plain.c_str(), &cipher);
    for (auto _ : state) {
        char* out = nullptr;
        int rc = AesDecrypt(kKeyText, cipher, &out);
        benchmark::DoNotOptimize(rc);
        std::free(out);
    }
    std::free(cipher);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_AesDecrypt)->Arg(64)->Arg(1024)->Arg(16 * 1024)->Arg(256 * 1024);

// The bare calls, as an application that holds its key and cipher would make them.
struct Raw {
    Raw() : cipher(EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr)) {
        unsigned int length = 0;
        EVP_Digest(kKeyText, std::strlen(kKeyText), key, &length, EVP_sha256(), nullptr);
    }
    ~Raw() { EVP_CIPHER_free(cipher); }
    EVP_CIPHER* cipher;
    unsigned char key[EVP_MAX_MD_SIZE];
    unsigned char iv[16] = {0};
};

// AES-256-CBC and Base64 of plain; the malloc'ed, NUL-terminated Base64 text.
char* rawEncrypt(const Raw& raw, const std::string& plain) {
    int n = static_cast<int>(plain.size());
    unsigned char* cipher = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(n) + 16));
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex2(ctx, raw.cipher, raw.key, raw.iv, nullptr);
    int update = 0;
    int final = 0;
    EVP_EncryptUpdate(ctx, cipher, &update, reinterpret_cast<const unsigned char*>(plain.data()), n);
    EVP_EncryptFinal_ex(ctx, cipher + update, &final);
    EVP_CIPHER_CTX_free(ctx);
    int c = update + final;
    char* out = static_cast<char*>(std::malloc(static_cast<size_t>(4 * ((c + 2) / 3) + 1)));
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out), cipher, c);
    std::free(cipher);
    return out;
}

void BM_RawEncrypt(benchmark::State& state) {
    Raw raw;
    std::string plain = plainOfLength(state.range(0));
    for (auto _ : state) {
        char* out = rawEncrypt(raw, plain);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_RawEncrypt)->Arg(64)->Arg(1024)->Arg(16 * 1024)->Arg(256 * 1024);

void BM_RawDecrypt(benchmark::State& state) {
    Raw raw;
    std::string plain = plainOfLength(state.range(0));
    char* text = rawEncrypt(raw, plain);
    const int textLength = static_cast<int>(std::strlen(text));
    for (auto _ : state) {
        // Three bytes per quad, the padding's included: what EVP_DecodeBlock writes.
        unsigned char* decoded =
            static_cast<unsigned char*>(std::malloc(static_cast<size_t>(textLength) / 4 * 3));
        int d = EVP_DecodeBlock(decoded, reinterpret_cast<const unsigned char*>(text), textLength);
        d -= (text[textLength - 1] == '=') + (text[textLength - 2] == '=');
        char* out = static_cast<char*>(std::malloc(static_cast<size_t>(d) + 17));
        EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
        EVP_DecryptInit_ex2(ctx, raw.cipher, raw.key, raw.iv, nullptr);
        int update = 0;
        int final = 0;
        EVP_DecryptUpdate(ctx, reinterpret_cast<unsigned char*>(out), &update, decoded, d);
        EVP_DecryptFinal_ex(ctx, reinterpret_cast<unsigned char*>(out) + update, &final);
        EVP_CIPHER_CTX_free(ctx);
        out[update + final] = '\0';
        benchmark::DoNotOptimize(out);
        std::free(out);
        std::free(decoded);
    }
    std::free(text);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_RawDecrypt)->Arg(64)->Arg(1024)->Arg(16 * 1024)->Arg(256 * 1024);

}  // namespace
