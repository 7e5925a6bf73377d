// The payload cipher against the openssl command line (the portal side uses the same
// primitives), round trips, wrong keys and malformed Base64.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "payload_cipher.h"
#include "test_env.h"

namespace {

std::string sha256Hex(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest, &length, EVP_sha256(), nullptr);
    char hex[2 * EVP_MAX_MD_SIZE + 1] = "";
    for (unsigned int i = 0; i < length; ++i) {
        std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    }
    return hex;
}

// What `openssl enc` makes of the plain text under the key text's digest and a zero IV.
std::string opensslEncrypt(const tola_test::TempRoot& root, const std::string& key,
                           const std::string& plain) {
    root.writeFile("/plain.txt", plain);
    std::string command = "openssl enc -aes-256-cbc -K " + sha256Hex(key) +
                          " -iv 00000000000000000000000000000000 -a -A -in '" + root.path("/plain.txt") + "'";
    FILE* pipe = popen(command.c_str(), "r");
    std::string out;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        out.append(buffer, n);
    }
    pclose(pipe);
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) {
        out.pop_back();
    }
    return out;
}

std::string plainOfLength(size_t length) {
    std::string text(length, 'a');
    for (size_t i = 0; i < length; ++i) {
        text[i] = static_cast<char>('a' + (i * 7) % 26);
    }
    return text;
}

std::string encrypt(const std::string& key, const std::string& plain) {
    char* out = nullptr;
    EXPECT_EQ(0, AesEncrypt(key.c_str(), plain.c_str(), &out));
    std::string text = out != nullptr ? out : "";
    std::free(out);
    return text;
}

// rc of AesDecrypt; the text in *plain.
int decrypt(const std::string& key, const std::string& base64, std::string* plain) {
    char* out = nullptr;
    int rc = AesDecrypt(key.c_str(), base64.c_str(), &out);
    *plain = rc == 0 && out != nullptr ? out : *plain;
    std::free(out);
    return rc;
}

const char* const kKeys[] = {
    "", "k", "VeltraFactoryKey-2017",
    "a key text of 127 characters ....................................................."
    "..............................................",
    "  spaced Key\twith tab "};
const size_t kLengths[] = {0, 1, 15, 16, 17, 1000, 100000};

TEST(PayloadCipher, MatchesOpensslAndRoundTripsOverLengthsAndKeys) {
    tola_test::TempRoot root(true);
    for (const char* key : kKeys) {
        for (size_t length : kLengths) {
            SCOPED_TRACE("key '" + std::string(key) + "' length " + std::to_string(length));
            std::string plain = plainOfLength(length);
            std::string encrypted = encrypt(key, plain);
            // One to sixteen bytes of padding, then Base64 on one line.
            size_t cipherLength = 16 * (length / 16 + 1);
            EXPECT_EQ(4 * ((cipherLength + 2) / 3), encrypted.size());
            EXPECT_EQ(std::string::npos, encrypted.find('\n'));
            EXPECT_EQ(opensslEncrypt(root, key, plain), encrypted);
            std::string decrypted;
            ASSERT_EQ(0, decrypt(key, encrypted, &decrypted));
            EXPECT_EQ(plain, decrypted);
        }
    }
}

TEST(PayloadCipher, WrongKeySucceedsWithOtherText) {
    const std::string plain = "{\"ResultCode\":0,\"Version\":\"12\"}";
    for (const char* wrongKey : {"", "other", "VeltraFactoryKey-2018"}) {
        std::string decrypted = "unset";
        EXPECT_EQ(0, decrypt(wrongKey, encrypt("VeltraFactoryKey-2017", plain), &decrypted));
        EXPECT_NE(plain, decrypted);
    }
}

TEST(PayloadCipher, MalformedBase64NeverCrashesNorYieldsThePlainText) {
    const std::string key = "k";
    const std::string plain = plainOfLength(200);
    std::string good = encrypt(key, plain);
    std::string broken;  // the same text with a line break every 64 characters
    for (size_t i = 0; i < good.size(); i += 64) {
        broken += good.substr(i, 64) + "\n";
    }
    // Nothing, padding only, not Base64, padding in the middle, 3 bytes (not a whole block),
    // truncated, broken into lines. None is reported: each decodes to less than a block (or to
    // nothing), the padding check fails, and the caller gets success with an empty text, which
    // then does not parse.
    const std::string cases[] = {
        "", "=", "==", "!!!!@@@@####", "AAAA==AAAA==AAAA", "QUJD", good.substr(0, 10), broken};
    for (const std::string& text : cases) {
        SCOPED_TRACE("input '" + text + "'");
        std::string decrypted = "unset";
        EXPECT_EQ(0, decrypt(key, text, &decrypted));
        EXPECT_EQ("", decrypted);
    }
    // Junk after the padding is ignored by the decoder.
    std::string decrypted;
    EXPECT_EQ(0, decrypt(key, good + "\x01\x02", &decrypted));
    EXPECT_EQ(plain, decrypted);
}

TEST(PayloadCipher, DecodeEstimateSubtractsThePadding) {
    const std::string block44(44, 'A');
    struct Case {
        std::string text;
        int estimate;
    } cases[] = {
        {"QUJD", 3},
        {"QUI=", 2},
        {"QQ==", 1},
        {"A=B=", 2},  // only the end counts
        {block44, 33},
        {block44.substr(0, 43) + "=", 32},
        {block44.substr(0, 42) + "==", 31},
        {"", 0},
        {"=", 0},
        {"==", 0},  // truncated towards zero, never negative
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.estimate, CalcDecodeLength(c.text.c_str())) << "'" << c.text << "'";
    }
}

}  // namespace
