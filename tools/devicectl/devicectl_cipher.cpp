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

// Exactly "--key K"; anything else is named and refused.
int checkKeyOnly(const char* verb, const devicectl::Args& args, const char* usage) {
    if (args.size() >= 2 && args[0] == "--key") {
        return args.size() == 2 ? 0 : devicectl::refuseArgument(verb, args[2], usage);
    }
    if (!args.empty() && args[0] != "--key") {
        return devicectl::refuseArgument(verb, args[0], usage);
    }
    return devicectl::usageError(usage);
}

std::string withoutSpace(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c != '\n' && c != '\r' && c != ' ' && c != '\t') {
            out += c;
        }
    }
    return out;
}

int runEncrypt(const devicectl::Args& args) {
    if (int rc = checkKeyOnly("encrypt", args, kEncryptUsage)) {
        return rc;
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
    if (int rc = checkKeyOnly("decrypt", args, kDecryptUsage)) {
        return rc;
    }
    std::string key = devicectl::option(args, "--key");
    std::string text = devicectl::readStdin();
    // The line break that `echo` or a terminal adds is not part of the Base64 text.
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    char* plain = nullptr;
    if (AesDecrypt(key.c_str(), text.c_str(), &plain) != 0) {
        std::free(plain);
        std::fprintf(stderr, "tola-devicectl: decryption failed\n");
        return 1;
    }
    // The cipher reports no wrong key or damaged text (the agent finds out when the text does not
    // parse). The encryption is deterministic (fixed IV), so the text was decrypted whole exactly
    // when encrypting the result gives it back.
    char* again = nullptr;
    bool whole = AesEncrypt(key.c_str(), plain, &again) == 0 && again != nullptr &&
                 withoutSpace(again) == withoutSpace(text) && !withoutSpace(text).empty();
    std::free(again);
    if (!whole) {
        std::free(plain);
        std::fprintf(stderr,
                     "tola-devicectl decrypt: not a text encrypted under this key (wrong key, or damaged or "
                     "not Base64)\n");
        return 1;
    }
    std::fputs(plain, stdout);
    std::free(plain);
    return 0;
}

}  // namespace

DEVICECTL_VERB("encrypt", kEncryptUsage, runEncrypt);
DEVICECTL_VERB("decrypt", kDecryptUsage, runDecrypt);
