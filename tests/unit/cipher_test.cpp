// The payload cipher against the openssl command line (the portal side uses the same
// primitives), round trips, wrong keys and malformed Base64 (cases in corpus/cases/cipher.txt).
#include "app_fixture.h"
#include "case_rows.h"

namespace {

// What `openssl enc` makes of the plain text under the key text's digest and a zero IV.
std::string opensslEncrypt(const tola_test::TempRoot& root, const std::string& key,
                           const std::string& plain) {
    root.writeFile("/plain.txt", plain);
    root.writeFile("/key.txt", key);
    std::string command = "openssl enc -aes-256-cbc -K $(openssl dgst -sha256 -r '" + root.path("/key.txt") +
                          "' | cut -c1-64) -iv " + std::string(32, '0') + " -a -A -in '" +
                          root.path("/plain.txt") + "' -out '" + root.path("/enc.txt") + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::string out = root.readFile("/enc.txt");
    return out.substr(0, out.find_last_not_of("\r\n") + 1);
}

std::string plainOfLength(size_t length) {
    std::string text(length, ' ');
    for (size_t i = 0; i < length; ++i) {
        text[i] = static_cast<char>('a' + (i * 7) % 26);
    }
    return text;
}

// AesDecrypt's text ("unset" when it gives none); it reports success even for a wrong key or a
// damaged input, whose text then fails to parse.
std::string decrypt(const std::string& key, const std::string& base64) {
    char* out = nullptr;
    EXPECT_EQ(0, AesDecrypt(key.c_str(), base64.c_str(), &out));
    std::string plain = out != nullptr ? out : "unset";
    std::free(out);
    return plain;
}

TEST(PayloadCipher, MatchesOpensslAndRoundTripsOverLengthsAndKeys) {
    tola_test::TempRoot root(true);
    for (const tola_test::CaseRow& row : tola_test::readCaseRows("cipher.txt", "key")) {
        const std::string key = row[0];
        for (size_t length : {0, 1, 15, 16, 17, 1000, 100000}) {
            SCOPED_TRACE("key '" + key + "' length " + std::to_string(length));
            std::string plain = plainOfLength(length);
            std::string encrypted = tola_test::Encrypt(key, plain);
            // The same bytes: padded, Base64 on one line (no line break, none at the end).
            EXPECT_EQ(opensslEncrypt(root, key, plain), encrypted);
            EXPECT_EQ(plain, tola_test::Decrypt(key, encrypted));
        }
    }
}

TEST(PayloadCipher, WrongKeysAndMalformedBase64NeverYieldThePlainText) {
    const std::string key = "k";
    const std::string plain = plainOfLength(200);
    std::string good = tola_test::Encrypt(key, plain);
    for (const char* wrongKey : {"", "K", "k "}) {
        EXPECT_NE(plain, decrypt(wrongKey, good)) << wrongKey;
    }
    std::string broken;  // the same text with a line break every 64 characters
    for (size_t i = 0; i < good.size(); i += 64) {
        broken += good.substr(i, 64) + "\n";
    }
    // Truncated or broken into lines: too short once decoded, as the case file's inputs.
    std::vector<std::string> cases = {good.substr(0, 10), broken};
    for (const tola_test::CaseRow& row : tola_test::readCaseRows("cipher.txt", "malformed")) {
        cases.push_back(row[0]);
    }
    for (const std::string& text : cases) {
        SCOPED_TRACE("input '" + text + "'");
        EXPECT_EQ("", decrypt(key, text));
    }
    // Junk after the padding is ignored by the decoder.
    EXPECT_EQ(plain, tola_test::Decrypt(key, good + "\x01\x02"));
}

TEST(PayloadCipher, DecodeEstimateSubtractsThePadding) {
    for (const tola_test::CaseRow& row : tola_test::readCaseRows("cipher.txt", "estimate")) {
        EXPECT_EQ(row.num(1), CalcDecodeLength(row[0].c_str())) << row.where;
    }
}

}  // namespace
