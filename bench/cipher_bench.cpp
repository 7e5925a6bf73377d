// Payload cipher throughput over the message sizes the agent handles (a request is about 1 KiB,
// a configuration document tens of KiB).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "payload_cipher.h"

namespace {

void BM_AesEncrypt(benchmark::State& state) {
    std::string plain(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        char* out = nullptr;
        int rc = AesEncrypt("VeltraFactoryKey-2017", plain.c_str(), &out);
        benchmark::DoNotOptimize(rc);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_AesEncrypt)->Arg(64)->Arg(1024)->Arg(16 * 1024)->Arg(256 * 1024);

void BM_AesDecrypt(benchmark::State& state) {
    std::string plain(static_cast<size_t>(state.range(0)), 'x');
    char* cipher = nullptr;
    AesEncrypt("VeltraFactoryKey-2017", plain.c_str(), &cipher);
    for (auto _ : state) {
        char* out = nullptr;
        int rc = AesDecrypt("VeltraFactoryKey-2017", cipher, &out);
        benchmark::DoNotOptimize(rc);
        std::free(out);
    }
    std::free(cipher);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_AesDecrypt)->Arg(64)->Arg(1024)->Arg(16 * 1024)->Arg(256 * 1024);

}  // namespace
