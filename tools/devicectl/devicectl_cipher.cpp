// encrypt / decrypt: the agent's payload cipher on standard input, for a person reading or
// forging a captured payload.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "devicectl.h"
#include "payload_cipher.h"

namespace {

const char* const kEncryptUsage = "encrypt --key K   (plain text on stdin -> Base64 on stdout)";
const char* const kDecryptUsage = "decrypt --key K   (Base64 on stdin -> plain text on stdout)";

int runEncrypt(const devicectl::Args& args) {
    if (!devicectl::hasOption(args, "--key")) {
        return devicectl::usageError(kEncryptUsage);
    }
    std::string key = devicectl::option(args, "--key");
    std::string plain = devicectl::readStdin();
    char* encrypted = nullptr;
    if (AesEncrypt(key.c_str(), plain.c_str(), &encrypted) != 0) {
        std::fprintf(stderr, "tola-devicectl: encryption failed\n");
        return 1;
    }
    std::printf("%s\n", encrypted);
    std::free(encrypted);
    return 0;
}

int runDecrypt(const devicectl::Args& args) {
    if (!devicectl::hasOption(args, "--key")) {
        return devicectl::usageError(kDecryptUsage);
    }
    std::string key = devicectl::option(args, "--key");
    std::string text = devicectl::readStdin();
    // The line break that `echo` or a terminal adds is not part of the Base64 text.
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    char* plain = nullptr;
    if (AesDecrypt(key.c_str(), text.c_str(), &plain) != 0) {
        std::fprintf(stderr, "tola-devicectl: decryption failed\n");
        return 1;
    }
    std::fputs(plain, stdout);
    std::free(plain);
    return 0;
}

}  // namespace

DEVICECTL_VERB("encrypt", kEncryptUsage, runEncrypt);
DEVICECTL_VERB("decrypt", kDecryptUsage, runDecrypt);
