// Texts sealed and opened with the payload cipher as the portal and the agent do, and an SMS
// framed as the portal sends it.
#pragma once

#include <cstdlib>
#include <string>

#include "payload_cipher.h"

namespace tola_test {

constexpr const char* kFactoryKey = "VeltraFactoryKey-2017";  // in the root's config.xml

// The payload cipher run one way (AesEncrypt or AesDecrypt) over text; "" when it fails.
inline std::string cipherText(int (*way)(const char*, const char*, char**), const std::string& key,
                              const std::string& text) {
    char* out = nullptr;
    std::string result = way(key.c_str(), text.c_str(), &out) == 0 && out != nullptr ? out : "";
    std::free(out);
    return result;
}
inline std::string Decrypt(const std::string& key, const std::string& text) {
    return cipherText(AesDecrypt, key, text);
}
inline std::string Encrypt(const std::string& key, const std::string& plain) {
    return cipherText(AesEncrypt, key, plain);
}
inline std::string Sms(const std::string& plain, const std::string& key = kFactoryKey) {
    return "<TOLA><" + Encrypt(key, plain) + ">";
}

}  // namespace tola_test
