// The payload cipher's decryption of arbitrary text (Base64 or not) under a fixed key and under
// a key taken from the input, up to its first line break.
#include <cstdlib>
#include <string>

#include "fuzz_env.h"
#include "payload_cipher.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    std::string key = "VeltraFactoryKey-2017";
    std::string text = input;
    size_t cut = input.find('\n');
    if (cut != std::string::npos) {
        key = input.substr(0, cut);
        text = input.substr(cut + 1);
    }
    char* plain = nullptr;
    AesDecrypt(key.c_str(), text.c_str(), &plain);
    std::free(plain);
    tola_fuzz::TrimLog();
    return 0;
}
